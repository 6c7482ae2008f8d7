#include "measure/color/graychartplot.h"

#include <QPrintDialog>
#include <QPrinter>
#include <qwt_plot_renderer.h>
#include <qwt_scale_engine.h>
#include <qwt_symbol.h>

GrayChartPlot::GrayChartPlot(QWidget *parent)
    : QwtPlot(parent)
{
    setAutoReplot(false);
    setCanvasBackground(Qt::white);

    struct CurveSpec
    {
        const char *title;
        Qt::GlobalColor colour;
    };
    static const CurveSpec specs[CurveCount] = {{"Gray Patch", Qt::black},
                                                {"Gray Patch R", Qt::red},
                                                {"Gray Patch G", Qt::green},
                                                {"Gray Patch B", Qt::blue}};
    for (int i = 0; i < CurveCount; ++i) {
        auto *c = new QwtPlotCurve(tr(specs[i].title));
        c->setPen(QPen(specs[i].colour));
        c->setStyle(QwtPlotCurve::Lines);
        c->setRenderHint(QwtPlotItem::RenderAntialiased, true);
        c->setYAxis(QwtPlot::yLeft);
        // The curves own their symbols, so each gets its own copy of the one
        // symbol design (a 10 x 10 ellipse).
        c->setSymbol(
                new QwtSymbol(QwtSymbol::Ellipse, QBrush(), QPen(specs[i].colour), QSize(10, 10)));
        c->attach(this);
        m_curves[i] = c;
    }

    setAxisScaleEngine(QwtPlot::xBottom, new QwtLinearScaleEngine(10));
    setAxisMaxMajor(QwtPlot::xBottom, 6);
    setAxisMaxMinor(QwtPlot::xBottom, 10);
    setAxisScale(QwtPlot::xBottom, 19.0, 24.0);

    setAutoReplot(true);
}

GrayChartPlot::~GrayChartPlot() = default;

void GrayChartPlot::setSamples(const double *x, const double *gray, const double *red,
                               const double *green, const double *blue, int count)
{
    const double *ys[CurveCount] = {gray, red, green, blue};
    if (!x || count < 0)
        return;
    for (int i = 0; i < CurveCount; ++i) {
        if (ys[i])
            m_curves[i]->setSamples(x, ys[i], count);
    }
    replot();
}

void GrayChartPlot::setGraySamples(const double *x, const double *values, int count)
{
    if (!x || !values || count < 0)
        return;
    m_curves[GrayCurve]->setSamples(x, values, count);
    replot();
}

void GrayChartPlot::setCurveStyle(QwtPlotCurve::CurveStyle style)
{
    for (QwtPlotCurve *c : m_curves)
        c->setStyle(style);
    replot();
}

QwtPlotCurve *GrayChartPlot::curve(int index) const
{
    return index >= 0 && index < CurveCount ? m_curves[index] : nullptr;
}

void GrayChartPlot::print()
{
    QPrinter printer(QPrinter::HighResolution);
    printer.setPageOrientation(QPageLayout::Landscape);
    QPrintDialog dialog(&printer, this);
    if (dialog.exec() == QDialog::Accepted)
        renderTo(printer);
}

void GrayChartPlot::renderTo(QPrinter &printer)
{
    QwtPlotRenderer renderer;
    renderer.renderTo(this, printer);
}
