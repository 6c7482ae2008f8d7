#include "measure/color/gui/offscreenreports.h"

#include "imaging/frame.h"
#include "imaging/gui/macbethframeview.h"
#include "measure/color/gui/macbethchartpage.h"

#include <QApplication>
#include <memory>

namespace kestro {

namespace {

// A batch page of the window's size, when widgets can be made at all.
bool makePage(std::unique_ptr<MacbethChartPage> *page, QString *error)
{
    if (!qobject_cast<QApplication *>(QCoreApplication::instance())) {
        *error = QStringLiteral("the report pictures cannot be drawn without an application "
                                "object for widgets");
        return false;
    }
    *page = std::make_unique<MacbethChartPage>();
    (*page)->setBatchMode(true);
    (*page)->resize(1400, 900);
    return true;
}

} // namespace

bool writeOffscreenColorDifferenceReport(const CFrame &frame, const QVector<QRect> &regions,
                                         const QString &path, QString *error)
{
    std::unique_ptr<MacbethChartPage> page;
    if (!makePage(&page, error))
        return false;
    page->frameView()->addFrame(frame);
    for (const QRect &r : regions)
        page->frameView()->view()->addRegion(QRectF(r));
    if (!page->processMacbethChart()) {
        *error = QStringLiteral("the chart could not be processed");
        return false;
    }
    return page->writeColorDifferenceReport(path, false, error);
}

bool writeOffscreenNoiseReport(const QVector<NoisePatchResult> &results,
                               const QStringList &frameFiles, const QString &path, QString *error)
{
    std::unique_ptr<MacbethChartPage> page;
    if (!makePage(&page, error))
        return false;
    page->showNoiseResults(results, frameFiles);
    return page->writeNoiseReport(path, error);
}

} // namespace kestro
