#pragma once
// MTFPlot: the MTF curves of one region (gray as "RGB", red, green, blue)
// over cycles per pixel or line widths per picture height, with the gray
// curve's peak and the Nyquist frequency marked, and a legend whose check
// boxes show and hide the curves.

#include <qwt_plot.h>

#include <QImage>
#include <QString>

class QwtLegend;
class QwtPlotCurve;
class QwtPlotGrid;
class QwtPlotMarker;

class MTFPlot : public QwtPlot
{
    Q_OBJECT
public:
    explicit MTFPlot(QWidget *parent = nullptr);

    // Puts the four curves and both markers on the plot and replots. All
    // null and a count of 0 clears it.
    void setData(const double *x, const double *gray, const double *red, const double *green,
                 const double *blue, unsigned count);

    // Line widths per picture height on the bottom axis instead of cycles
    // per pixel; the Nyquist marker then stands at the picture height.
    void setLWPHMode(bool on);
    bool lwphMode() const { return m_lwph; }
    void setPictureHeight(unsigned height) { m_pictureHeight = height; }
    unsigned pictureHeight() const { return m_pictureHeight; }

    // Hides the curves and both markers.
    void hideAll();

    // The plot as a picture whose size in millimetres is numerically the
    // widget's size in pixels, at 85 dots per inch (3.35 image pixels per
    // widget pixel), on white.
    QImage renderImage();
    // Writes renderImage() as a PNG file, replacing it whole; false for an
    // empty name or when it cannot be written.
    bool save(const QString &fileName);

    // Inspection (tests, report).
    QwtPlotCurve *curve(int index) const { return m_curves[index]; }
    QwtPlotMarker *peakMarker() const { return m_peak; }
    QwtPlotMarker *nyquistMarker() const { return m_nyquist; }
    QwtLegend *legendWidget() const { return m_legend; }

public slots:
    // A legend check box changed: shows or hides that item.
    void legendChecked(const QVariant &itemInfo, bool on, int index = 0);

private:
    void checkAllLegendItems();

    // RGB (gray), Red, Green, Blue.
    QwtPlotCurve *m_curves[4] = {};
    QwtPlotGrid *m_grid = nullptr;
    QwtPlotMarker *m_nyquist = nullptr;
    QwtPlotMarker *m_peak = nullptr;
    QwtLegend *m_legend = nullptr;
    bool m_lwph = false;
    unsigned m_pictureHeight = 0;
};
