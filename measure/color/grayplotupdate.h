#pragma once
// Shows the metric of one selector index on a gray patch plot.

class GrayChartPlot;
class QStdMacbethChartColorDifference;

namespace kestro {

// Gives the "Gray Patch" curve the six gray values of the metric at x = 19..24
// and sets the plot title and left-axis title of the index. Does nothing and
// returns false while patch 1 has no computed result or for an unknown index;
// the coloured curves are left as they are.
bool updateGrayChartPlot(GrayChartPlot &plot, const QStdMacbethChartColorDifference &model,
                         int index);

} // namespace kestro
