#include "measure/mtf/gui/mtfplot.h"

#include "imaging/gui/plotpicture.h"
#include "imaging/pngwriter.h"

#include <qwt_legend.h>
#include <qwt_legend_label.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_grid.h>
#include <qwt_plot_marker.h>
#include <qwt_plot_renderer.h>
#include <qwt_scale_engine.h>
#include <qwt_text.h>

#include <QPainter>
#include <QVector>

namespace {

const QColor kMarkerColor(200, 150, 0);

QwtText markerText(const QString &text)
{
    QwtText label(text);
    label.setFont(QFont(QStringLiteral("Helvetica")));
    label.setColor(kMarkerColor);
    return label;
}

} // namespace

MTFPlot::MTFPlot(QWidget *parent)
    : QwtPlot(parent)
{
    setObjectName(QStringLiteral("MTFPlot"));
    setTitle(QStringLiteral("SFR/MTF System"));
    setCanvasBackground(Qt::white);
    setAutoReplot(false);

    m_legend = new QwtLegend;
    m_legend->setDefaultItemMode(QwtLegendData::Checkable);
    insertLegend(m_legend, QwtPlot::RightLegend);
    connect(m_legend, &QwtLegend::checked, this, &MTFPlot::legendChecked);

    m_grid = new QwtPlotGrid;
    m_grid->enableXMin(true);
    m_grid->enableYMin(true);
    m_grid->setMajorPen(QPen(Qt::gray, 0, Qt::DotLine));
    m_grid->setMinorPen(QPen(Qt::lightGray, 0, Qt::DotLine));
    m_grid->attach(this);

    setAxisTitle(QwtPlot::xBottom, QStringLiteral("Cycles/Pixel"));
    setAxisScaleEngine(QwtPlot::xBottom, new QwtLinearScaleEngine);
    setAxisTitle(QwtPlot::yLeft, QStringLiteral("MTF"));

    const char *titles[4] = {"RGB", "Red", "Green", "Blue"};
    const Qt::GlobalColor colors[4] = {Qt::black, Qt::red, Qt::green, Qt::blue};
    for (int i = 0; i < 4; ++i) {
        m_curves[i] = new QwtPlotCurve(QLatin1String(titles[i]));
        m_curves[i]->setPen(QPen(colors[i], 2));
        m_curves[i]->setRenderHint(QwtPlotItem::RenderAntialiased, true);
        m_curves[i]->attach(this);
    }

    m_nyquist = new QwtPlotMarker;
    m_nyquist->setLineStyle(QwtPlotMarker::VLine);
    m_nyquist->setLinePen(QPen(kMarkerColor, 0, Qt::DashLine));
    m_nyquist->setLabel(markerText(QStringLiteral("Nyquist Frequency")));
    m_nyquist->setLabelAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_nyquist->setLabelOrientation(Qt::Vertical);
    m_nyquist->attach(this);

    m_peak = new QwtPlotMarker;
    m_peak->setLineStyle(QwtPlotMarker::HLine);
    m_peak->setLinePen(QPen(kMarkerColor, 0, Qt::DashLine));
    // Below the line: a peak at the top of the scale keeps its label in view.
    m_peak->setLabelAlignment(Qt::AlignRight | Qt::AlignBottom);
    m_peak->attach(this);

    checkAllLegendItems();
    hideAll();
}

void MTFPlot::checkAllLegendItems()
{
    for (QwtPlotCurve *c : m_curves) {
        if (auto *label = qobject_cast<QwtLegendLabel *>(m_legend->legendWidget(itemToInfo(c))))
            label->setChecked(true);
    }
}

void MTFPlot::setData(const double *x, const double *gray, const double *red, const double *green,
                      const double *blue, unsigned count)
{
    const double *values[4] = {gray, red, green, blue};
    const bool empty = !x || count == 0;
    for (int i = 0; i < 4; ++i) {
        if (empty || !values[i])
            m_curves[i]->setSamples(QVector<QPointF>());
        else
            m_curves[i]->setSamples(x, values[i], static_cast<int>(count));
        m_curves[i]->setVisible(!empty);
    }
    checkAllLegendItems();
    if (empty || !gray) {
        m_peak->setVisible(false);
        m_nyquist->setVisible(false);
        replot();
        return;
    }

    // First of equal maxima of the gray curve.
    double peak = -1.0;
    double peakX = 0.0;
    for (unsigned i = 0; i < count; ++i) {
        if (gray[i] > peak) {
            peak = gray[i];
            peakX = x[i];
        }
    }
    m_peak->setValue(peakX, peak);
    m_peak->setLabel(markerText(QString::asprintf("RGB Peak: (%.3g, %.3g)", peakX, peak)));
    m_peak->setVisible(true);

    m_nyquist->setValue(m_lwph ? static_cast<double>(m_pictureHeight) : 0.5, 0.0);
    m_nyquist->setVisible(true);
    replot();
}

void MTFPlot::setLWPHMode(bool on)
{
    m_lwph = on;
    setAxisTitle(QwtPlot::xBottom,
                 on ? QStringLiteral("Frequency(LW/PH)") : QStringLiteral("Cycles/Pixel"));
}

void MTFPlot::hideAll()
{
    for (QwtPlotCurve *c : m_curves)
        c->setVisible(false);
    m_nyquist->setVisible(false);
    m_peak->setVisible(false);
    replot();
}

void MTFPlot::legendChecked(const QVariant &itemInfo, bool on, int index)
{
    Q_UNUSED(index);
    if (QwtPlotItem *item = infoToItem(itemInfo)) {
        item->setVisible(on);
        replot();
    }
}

QImage MTFPlot::renderImage()
{
    // A document of width x height millimetres at 85 dots per inch.
    return kestro::renderPlotDocument(this, 85.0);
}

bool MTFPlot::save(const QString &fileName)
{
    if (fileName.isEmpty())
        return false;
    return kestro::savePng(renderImage(), fileName);
}
