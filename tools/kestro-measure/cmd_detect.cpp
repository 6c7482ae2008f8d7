// kestro-measure detect IMAGE: the 24 patch rectangles that automatic chart
// detection places, as the chart frame view adds them (top-left origin,
// reading order), with the time the detection took.
#include "command.h"
#include "json.h"

#include "imaging/frame.h"
#include "platform/chartdetect/chartdetect.h"
#include "platform/chartdetect/qimagebuffer.h"

#include <QElapsedTimer>

namespace {

int runDetect(const QStringList &args)
{
    using namespace kestro::measure;
    namespace cd = kestro::chartdetect;
    if (args.size() != 1)
        return usageError("detect");
    CFrame frame;
    if (!frame.load(args.first()))
        return fail(frame.errorText());
    const QImage picture = frame.image();
    // Pictures below 32-bit RGB (gray, indexed) are not searched, as in the
    // chart frame view.
    const auto buffer = cd::packedBgrBuffer(picture);
    ColorCheckerROI regions[cd::kPatchCount] = {};
    unsigned char keepRunning = 1;
    QElapsedTimer clock;
    clock.start();
    const int found = buffer ? FindColorCheckerROIsFromMemory(buffer.get(), picture.width(),
                                                              picture.height(), regions,
                                                              &keepRunning)
                             : 0;
    const double seconds = clock.nsecsElapsed() / 1e9;

    const bool ok = found == cd::kPatchCount;
    kestro::JsonWriter json;
    json.beginObject();
    if (!ok) {
        json.field("ok", false);
        json.field("error", QStringLiteral("Found %1 of 24 chart patches").arg(found));
    }
    json.field("found", found);
    json.key("regions").beginArray();
    if (ok) {
        for (const ColorCheckerROI &r : regions) {
            json.beginArray()
                    .value(r.x)
                    .value(r.y - r.height)
                    .value(r.width)
                    .value(r.height)
                    .endArray();
        }
    }
    json.endArray();
    json.field("seconds", seconds);
    json.endObject();
    printJson(json.text());
    return ok ? 0 : 2;
}

} // namespace

KESTRO_MEASURE_COMMAND("detect", "IMAGE", runDetect);
