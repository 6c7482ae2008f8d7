#pragma once
// QSpectrogramPlot: the uniformity colour-map chart. The subsampled grid is
// drawn as a spectrogram with a colour bar on the right axis and optional
// contour lines; MyZoomer zooms with the left button (right button one step
// back, Ctrl + right button the whole grid) and tracks the value under the
// pointer; the middle button pans.

#include "measure/uniformity/gui/uniformityrasterdata.h"

#include <QImage>
#include <QList>
#include <QString>
#include <qwt_plot.h>
#include <qwt_plot_zoomer.h>

#include <vector>

class QwtLinearColorMap;
class QwtPlotPanner;
class QwtPlotSpectrogram;

class MyZoomer : public QwtPlotZoomer
{
public:
    explicit MyZoomer(QWidget *canvas);

    // "x: X\ty: Y\tval: V\norig x: X*s\torig y: Y*s": grid coordinates with 4
    // significant digits, the value with 6, and the picture position of the
    // point (grid coordinates times the subsample size s).
    static QString trackerString(double x, double y, double value, int subsample);

protected:
    QwtText trackerTextF(const QPointF &position) const override;
};

class QSpectrogramPlot : public QwtPlot
{
    Q_OBJECT
public:
    explicit QSpectrogramPlot(QWidget *parent = nullptr);

    // Shows a grid (column-major): the axes become 0..cols - 1 and
    // 0..rows - 1 (rows top down, as in the picture) and the zoom is reset.
    void setGrid(std::vector<double> values, int cols, int rows, int subsample);
    void setGrid(const kestro::UniformityData &data);

    kestro::UniformityRasterData *raster() const { return m_raster; }
    MyZoomer *zoomer() const { return m_zoomer; }
    QwtPlotPanner *panner() const { return m_panner; }
    QwtPlotSpectrogram *spectrogram() const { return m_spectrogram; }

    kestro::UniformityColorMap colorMapMode() const;
    kestro::UniformityContour contour() const;
    // The contour levels drawn (empty while contours are off).
    QList<double> contourLevels() const;

    // "Gray" and "Jet" exactly, letter case included; any other name gives
    // the standard map.
    static kestro::UniformityColorMap colorMapForName(const QString &name);
    static QwtLinearColorMap *createColorMap(kestro::UniformityColorMap map);
    // low, low + step, ... while below high; none for a step below 1. Very
    // fine steps are cut at kMaxContourLevels levels.
    static QList<double> contourLevelsFor(int low, int step, int high);
    static constexpr int kMaxContourLevels = 1000;

    // The plot as a picture whose size in millimetres is numerically the
    // widget's size in pixels, at `dotsPerInch`.
    QImage renderImage(double dotsPerInch = 85.0);
    // renderImage() written as PNG, replacing the file whole; false when it
    // cannot be written.
    bool save(const QString &fileName);

public slots:
    void setColorMap(const QString &name);
    void showContour(bool show);
    void setUniContourLow(int low);
    void setUniContourHigh(int high);
    void setUniContourSS(int step);

private:
    void changeContour(int kestro::UniformityContour::*field, int value);
    void applyColorMap();
    void applyContour();

    QwtPlotSpectrogram *m_spectrogram = nullptr;
    kestro::UniformityRasterData *m_raster = nullptr; // owned by the spectrogram
    MyZoomer *m_zoomer = nullptr;
    QwtPlotPanner *m_panner = nullptr;
};
