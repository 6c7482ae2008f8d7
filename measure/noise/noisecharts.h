#pragma once
// The two SNR charts of the noise page: the patch bar chart (ChartGraph in
// its noise mode) and the gray chart SNR plot over the last six patches.

#include "measure/noise/chartgraph.h"
#include "measure/noise/noiseengine.h"

#include <QVector>

class QWidget;
#ifdef KESTRO_HAVE_GRAY_CHART_PLOT
class GrayChartPlot;
#endif

namespace kestro {

#ifdef KESTRO_HAVE_GRAY_CHART_PLOT
// Clears the results, puts the bar chart into its noise mode and creates the
// gray chart SNR plot in `plotArea` (fixed to the area's size, title "Gray
// Chart SNR", left axis "SNR", bottom axis "Gray Patch Index", line curves).
// Returns the plot, owned by plotArea.
GrayChartPlot *initNoiseCharts(QVector<NoisePatchResult> *results, ChartGraph *chart,
                               QWidget *plotArea);

// Fills the bar chart with the four SNR series of all patches and the plot
// with those of the last six patches (x = 1-based patch number): red, green
// and blue series on the "Gray Patch R/G/B" curves, the second green of a
// mosaic (or the one channel of a single-channel frame) on "Gray Patch".
void updateSnrCharts(const QVector<NoisePatchResult> &results, ChartGraph *chart,
                     GrayChartPlot *plot);
#endif

// The bar chart part of updateSnrCharts: series and patch colours.
void updateSnrBarChart(const QVector<NoisePatchResult> &results, ChartGraph *chart);

} // namespace kestro
