#include "measure/noise/noisecharts.h"

#include "measure/noise/noisereport.h"

#ifdef KESTRO_HAVE_GRAY_CHART_PLOT
#include "measure/color/graychartplot.h"
#endif

#include <QWidget>
#include <algorithm>

namespace kestro {

void updateSnrBarChart(const QVector<NoisePatchResult> &results, ChartGraph *chart)
{
    if (!chart)
        return;
    const QVector<QVector<double>> series = snrChartSeries(results);
    const double *ptrs[ChartGraph::kSeriesCount] = {series[0].constData(), series[1].constData(),
                                                    series[2].constData(), series[3].constData()};
    chart->setPatchColors(noisePatchColors(results));
    chart->setSeries(ptrs, results.size());
}

#ifdef KESTRO_HAVE_GRAY_CHART_PLOT
GrayChartPlot *initNoiseCharts(QVector<NoisePatchResult> *results, ChartGraph *chart,
                               QWidget *plotArea)
{
    if (results)
        results->clear();
    if (chart)
        chart->setMode(ChartGraph::NoiseMode);
    if (!plotArea)
        return nullptr;
    auto *plot = new GrayChartPlot(plotArea);
    plot->setMinimumSize(plotArea->size());
    plot->setMaximumSize(plotArea->size());
    plot->setTitle(QObject::tr("Gray Chart SNR"));
    plot->enableAxis(QwtPlot::yLeft);
    plot->setAxisTitle(QwtPlot::yLeft, QObject::tr("SNR"));
    plot->setAxisTitle(QwtPlot::xBottom, QObject::tr("Gray Patch Index"));
    plot->setCurveStyle(QwtPlotCurve::Lines);
    plot->show();
    return plot;
}

void updateSnrCharts(const QVector<NoisePatchResult> &results, ChartGraph *chart,
                     GrayChartPlot *plot)
{
    updateSnrBarChart(results, chart);
    if (!plot)
        return;
    const QVector<QVector<double>> series = snrChartSeries(results);
    const int count = std::min(6, int(results.size()));
    const int first = results.size() - count;
    QVector<double> x(count), s[4];
    for (int i = 0; i < count; ++i) {
        x[i] = first + i + 1;
        for (int k = 0; k < 4; ++k)
            s[k] << series[k][first + i];
    }
    // Curves in plot order: "Gray Patch", "Gray Patch R", "Gray Patch G",
    // "Gray Patch B". Single-channel frames chart their one channel on the
    // black curve; a series without data leaves its curve empty.
    const bool single = count > 0 && results[first].layout == NoiseLayout::Single;
    const int source[4] = {single ? 0 : 3, single ? -1 : 0, single ? -1 : 1, single ? -1 : 2};
    for (int c = 0; c < 4; ++c) {
        QwtPlotCurve *curve = plot->curve(c);
        if (!curve)
            continue;
        const int k = source[c];
        const bool used = k >= 0 && std::any_of(series[k].begin(), series[k].end(), [](double v) {
                              return v != 0.0;
                          });
        if (used)
            curve->setSamples(x, s[k]);
        else
            curve->setSamples(QVector<double>(), QVector<double>());
    }
    plot->replot();
}
#endif

} // namespace kestro
