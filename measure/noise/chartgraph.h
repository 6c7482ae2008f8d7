#pragma once
// ChartGraph: the chart widget of the colour difference and noise pages. It
// lays the 24 patches of the chart out as the chart itself (6 columns, 4
// rows) and draws per patch its colour and its values as bars and texts.
//
// Modes: 0 one value per patch for all 24 patches (colour difference
// metrics); 1 up to four SNR series per patch (red, green, blue, second
// green); 2 the six gray patches (18..23) only, their bars drawn tall over
// the empty rows above them.

#include <QColor>
#include <QImage>
#include <QVector>
#include <QWidget>

class QPainter;

class ChartGraph : public QWidget
{
    Q_OBJECT
public:
    enum Mode { ValueMode = 0, NoiseMode = 1, GrayMode = 2 };
    static constexpr int kPatchCount = 24;
    static constexpr int kSeriesCount = 4;

    explicit ChartGraph(QWidget *parent = nullptr);

    void setMode(int mode);
    int mode() const { return m_mode; }
    // Measured colours of the patches (n = 24; fewer leave the rest gray).
    void setPatchColors(const QColor *colors, int n);
    void setPatchColors(const QVector<QColor> &colors);
    // Mode 0 values of the patches.
    void setValues(const double *values, int n);
    // Mode 2 values of the six gray patches.
    void setGrayValues(const double *values, int n);
    // Mode 1: four series (red, green, blue, second green) of n patch values;
    // a null series is empty.
    void setSeries(const double *const series[kSeriesCount], int n);
    // Forgets all values (colours stay).
    void clearValues();

    // The patch drawn with the selection frame (-1: none).
    void setSelectedPatch(int index);
    int selectedPatch() const { return m_selected; }

    // Patch under a widget position, or -1.
    int patchAt(const QPoint &pos) const;

    // The chart painted at `size`, whatever the widget's own size and
    // visibility (report pictures).
    QImage renderImage(const QSize &size) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

signals:
    // A patch was clicked.
    void patchSelected(int index);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    struct Grid
    {
        int margin = 0, cellWidth = 0, cellHeight = 0;
        QRect cell(int k) const;
        QRect inner(const QRect &cell) const;
    };
    Grid grid(const QSize &size) const;
    void paintChart(QPainter &p, const QSize &size) const;
    double scale() const;
    QColor patchColor(int k) const;

    int m_mode = ValueMode;
    QVector<QColor> m_colors;
    QVector<double> m_values;               // mode 0
    QVector<double> m_grayValues;           // mode 2
    QVector<double> m_series[kSeriesCount]; // mode 1
    int m_selected = -1;
};
