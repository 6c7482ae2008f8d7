#include "measure/color/grayplotupdate.h"

#include "measure/color/graychartplot.h"
#include "measure/color/macbethcolordifference.h"
#include "measure/color/whitebalance.h"

namespace kestro {

bool updateGrayChartPlot(GrayChartPlot &plot, const QStdMacbethChartColorDifference &model,
                         int index)
{
    const ColorMetricSelection sel = colorMetricSelection(model, index);
    if (!sel.valid)
        return false;
    plot.setTitle(sel.plotTitle);
    plot.setAxisTitle(QwtPlot::yLeft, sel.axisTitle);
    plot.setGraySamples(sel.grayX.constData(), sel.grayValues.constData(), sel.grayX.size());
    return true;
}

} // namespace kestro
