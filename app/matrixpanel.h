#pragma once
// MatrixPanel: the colour correction of the last processed chart, inside the
// window's "Color Correction" group on the Initialization page. It shows the
// matrix (applied to linear RGB after the white-balance gains, rows summing
// to 1), the noise gain of each row, the gains and exposure, dE00 before and
// after correction and the clipped patches left out; the fit (least squares
// or minimum dE00) and the ridge are chosen here. The group's buttons then
// apply the result to the sensor or save it into its INI files.

#include <QWidget>
#include <functional>

class CColorCalibrate;
class Kestro;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QStdMacbethChartColorDifference;
class QTableWidget;

class MatrixPanel : public QWidget
{
    Q_OBJECT
public:
    explicit MatrixPanel(CColorCalibrate *calibration, QWidget *parent = nullptr);

    void setCalibration(CColorCalibrate *calibration);
    // Where chartProcessed() takes the chart from.
    void setChartSource(std::function<const QStdMacbethChartColorDifference *()> source)
    {
        m_chartSource = std::move(source);
    }
    // Hands the measured patches of a processed chart to the library, which
    // fits the correction with the panel's options; shown at once.
    void takeChart(const QStdMacbethChartColorDifference &model);
    // Shows the library's current result.
    void refresh();

    QComboBox *fitChoice() const { return m_fit; }
    QDoubleSpinBox *ridgeBox() const { return m_ridge; }
    // Matrix rows with the noise gain as a fourth column.
    QTableWidget *matrixTable() const { return m_matrix; }
    // Rows "Before" and "After", columns mean, maximum and 95%.
    QTableWidget *deltaETable() const { return m_deltaE; }
    QLabel *gainsLabel() const { return m_gains; }
    QLabel *statusLabel() const { return m_status; }

public slots:
    // The chart page finished a measurement: take its chart.
    void chartProcessed();

signals:
    // A chart was taken (whether or not a correction could be fitted).
    void chartTaken();

private:
    void optionsChanged();

    CColorCalibrate *m_calibration = nullptr;
    std::function<const QStdMacbethChartColorDifference *()> m_chartSource;
    QComboBox *m_fit = nullptr;
    QDoubleSpinBox *m_ridge = nullptr;
    QTableWidget *m_matrix = nullptr;
    QTableWidget *m_deltaE = nullptr;
    QLabel *m_gains = nullptr;
    QLabel *m_status = nullptr;
};

namespace kestro {
// Puts the panel into the window's "matrixPanel" group (once; a second call
// returns the same panel) and takes every chart that the chart page
// processes, enabling the group. Null when the window has no such group.
MatrixPanel *installMatrixPanel(Kestro *window);
} // namespace kestro
