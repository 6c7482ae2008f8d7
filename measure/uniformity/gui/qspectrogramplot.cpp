#include "measure/uniformity/gui/qspectrogramplot.h"

#include "imaging/gui/plotpicture.h"
#include "imaging/pngwriter.h"

#include <QFontMetrics>
#include <QPainter>
#include <QPen>
#include <qwt_color_map.h>
#include <qwt_plot_canvas.h>
#include <qwt_plot_layout.h>
#include <qwt_plot_panner.h>
#include <qwt_plot_renderer.h>
#include <qwt_plot_spectrogram.h>
#include <qwt_scale_draw.h>
#include <qwt_scale_widget.h>
#include <qwt_text.h>

#include <cmath>
#include <limits>

using kestro::UniformityColorMap;
using kestro::UniformityContour;

MyZoomer::MyZoomer(QWidget *canvas)
    : QwtPlotZoomer(canvas)
{
    setTrackerMode(AlwaysOn);
    setRubberBandPen(QColor(Qt::darkBlue));
    setTrackerPen(QColor(Qt::darkBlue));
}

QString MyZoomer::trackerString(double x, double y, double value, int subsample)
{
    return QLatin1String("x: ") + QString::number(x, 'g', 4) + QLatin1String("\ty: ")
           + QString::number(y, 'g', 4) + QLatin1String("\tval: ") + QString::number(value, 'g', 6)
           + QLatin1String("\norig x: ") + QString::number(x * subsample)
           + QLatin1String("\torig y: ") + QString::number(y * subsample);
}

QwtText MyZoomer::trackerTextF(const QPointF &position) const
{
    double value = std::numeric_limits<double>::quiet_NaN();
    int subsample = 0;
    if (const auto *chart = qobject_cast<const QSpectrogramPlot *>(plot())) {
        value = chart->raster()->value(position.x(), position.y());
        subsample = chart->raster()->subsampleSize();
    }
    QwtText text(trackerString(position.x(), position.y(), value, subsample));
    text.setRenderFlags(Qt::AlignLeft | Qt::AlignVCenter | Qt::TextExpandTabs);
    // Readable over any colour of the map without hiding it.
    text.setBackgroundBrush(QColor(255, 255, 255, 170));
    return text;
}

QSpectrogramPlot::QSpectrogramPlot(QWidget *parent)
    : QwtPlot(parent)
{
    setTitle(QStringLiteral("Uniformity Chart"));
    setAxisTitle(xBottom, QStringLiteral("horizontal subsamples"));
    setAxisTitle(yLeft, QStringLiteral("vertical subsamples"));
    setAxisTitle(yRight, QStringLiteral("response level"));

    m_spectrogram = new QwtPlotSpectrogram;
    m_raster = new kestro::UniformityRasterData;
    m_spectrogram->setData(m_raster);
    m_spectrogram->attach(this);

    enableAxis(yRight);
    axisWidget(yRight)->setColorBarEnabled(true);
    // The left axis keeps room for response-like labels, so that the canvas
    // does not jump when the grid changes size.
    axisScaleDraw(yLeft)->setMinimumExtent(
            QFontMetrics(axisWidget(yLeft)->font()).horizontalAdvance(QStringLiteral("100.00")));
    plotLayout()->setAlignCanvasToScales(true);

    m_zoomer = new MyZoomer(canvas());
    m_zoomer->setMousePattern(QwtEventPattern::MouseSelect2, Qt::RightButton, Qt::ControlModifier);
    m_zoomer->setMousePattern(QwtEventPattern::MouseSelect3, Qt::RightButton);

    m_panner = new QwtPlotPanner(canvas());
    m_panner->setAxisEnabled(yRight, false);
    m_panner->setMouseButton(Qt::MiddleButton);

    setGrid({}, 0, 0, 0);
}

void QSpectrogramPlot::setGrid(std::vector<double> values, int cols, int rows, int subsample)
{
    m_raster->setGridData(std::move(values), cols, rows, subsample);
    const int c = m_raster->cols();
    const int r = m_raster->rows();
    // Rows run top down so that the chart reads like the picture.
    setAxisScale(xBottom, 0.0, c > 1 ? c - 1 : 1.0);
    setAxisScale(yLeft, r > 1 ? r - 1 : 1.0, 0.0);
    applyColorMap();
    applyContour();
    m_zoomer->setZoomBase(true);
}

void QSpectrogramPlot::setGrid(const kestro::UniformityData &data)
{
    setGrid(data.grid(), data.cols(), data.rows(), data.subsampleSize());
}

UniformityColorMap QSpectrogramPlot::colorMapMode() const
{
    return m_raster->colorMap();
}

UniformityContour QSpectrogramPlot::contour() const
{
    return m_raster->contour();
}

QList<double> QSpectrogramPlot::contourLevels() const
{
    return m_spectrogram->testDisplayMode(QwtPlotSpectrogram::ContourMode)
                   ? m_spectrogram->contourLevels()
                   : QList<double>();
}

UniformityColorMap QSpectrogramPlot::colorMapForName(const QString &name)
{
    if (name == QLatin1String("Gray"))
        return UniformityColorMap::Gray;
    if (name == QLatin1String("Jet"))
        return UniformityColorMap::Jet;
    return UniformityColorMap::Standard;
}

QwtLinearColorMap *QSpectrogramPlot::createColorMap(UniformityColorMap map)
{
    switch (map) {
    case UniformityColorMap::Gray:
        return new QwtLinearColorMap(Qt::black, Qt::white);
    case UniformityColorMap::Jet: {
        // The end colour (132, 0, 0) is replaced by a stop (189, 0, 0) at 1;
        // a stop added at 1 would only colour the maximum itself, so the
        // replacement is made in the end colour.
        auto *jet = new QwtLinearColorMap(QColor(0, 0, 189), QColor(189, 0, 0));
        static const QColor stops[10] = {{0, 0, 255},     {0, 66, 255},   {0, 132, 255},
                                         {0, 189, 255},   {0, 255, 255},  {66, 255, 189},
                                         {132, 255, 132}, {189, 255, 66}, {255, 255, 0},
                                         {255, 189, 0}};
        for (int k = 1; k <= 10; ++k)
            jet->addColorStop(k / 13.0, stops[k - 1]);
        // There is no stop at 11/13.
        jet->addColorStop(12 / 13.0, QColor(255, 66, 0));
        return jet;
    }
    case UniformityColorMap::Standard:
        break;
    }
    auto *standard = new QwtLinearColorMap(Qt::darkCyan, Qt::red);
    standard->addColorStop(0.1, Qt::cyan);
    standard->addColorStop(0.6, Qt::green);
    standard->addColorStop(0.95, Qt::yellow);
    return standard;
}

QList<double> QSpectrogramPlot::contourLevelsFor(int low, int step, int high)
{
    QList<double> levels;
    if (step < 1)
        return levels;
    // 64-bit steps: low + k step never wraps around.
    for (qint64 level = low; level < high && levels.size() < kMaxContourLevels; level += step)
        levels.append(static_cast<double>(level));
    return levels;
}

void QSpectrogramPlot::setColorMap(const QString &name)
{
    m_raster->setColorMap(colorMapForName(name));
    applyColorMap();
    replot();
}

void QSpectrogramPlot::showContour(bool show)
{
    UniformityContour c = m_raster->contour();
    c.shown = show;
    m_raster->setContour(c);
    applyContour();
    replot();
}

void QSpectrogramPlot::setUniContourLow(int low)
{
    changeContour(&UniformityContour::low, low);
}

void QSpectrogramPlot::setUniContourHigh(int high)
{
    changeContour(&UniformityContour::high, high);
}

void QSpectrogramPlot::setUniContourSS(int step)
{
    changeContour(&UniformityContour::step, step);
}

void QSpectrogramPlot::changeContour(int UniformityContour::*field, int value)
{
    UniformityContour c = m_raster->contour();
    c.*field = value;
    m_raster->setContour(c);
    applyContour();
    replot();
}

void QSpectrogramPlot::applyColorMap()
{
    const UniformityColorMap map = m_raster->colorMap();
    m_spectrogram->setColorMap(createColorMap(map));
    axisWidget(yRight)->setColorMap(m_raster->interval(Qt::ZAxis), createColorMap(map));
}

void QSpectrogramPlot::applyContour()
{
    const UniformityContour c = m_raster->contour();
    const QList<double> levels = c.shown ? contourLevelsFor(c.low, c.step, c.high)
                                         : QList<double>();
    m_spectrogram->setContourLevels(levels);
    m_spectrogram->setDisplayMode(QwtPlotSpectrogram::ContourMode, c.shown);
    m_spectrogram->setDefaultContourPen(c.shown ? QPen() : QPen(Qt::NoPen));
    // With contours on, the response axis spans the contour range, so that
    // the levels can be read off the colour bar; otherwise the grid's range.
    const QwtInterval z = m_raster->interval(Qt::ZAxis);
    if (c.shown && c.low < c.high)
        setAxisScale(yRight, c.low, c.high);
    else
        setAxisScale(yRight, z.minValue(), z.maxValue());
}

QImage QSpectrogramPlot::renderImage(double dotsPerInch)
{
    // A document of width() x height() millimetres at the given resolution.
    return kestro::renderPlotDocument(this, dotsPerInch);
}

bool QSpectrogramPlot::save(const QString &fileName)
{
    if (fileName.isEmpty())
        return false;
    return kestro::savePng(renderImage(), fileName);
}

#include "moc_qspectrogramplot.cpp"
