// kestro-measure demosaic FILE OUT.png: writes the frame's display picture
// (for raw files the demosaiced picture) as PNG.
#include "command.h"
#include "json.h"

#include "imaging/frame.h"

#include <QSaveFile>

namespace {

int runDemosaic(const QStringList &args)
{
    using namespace kestro::measure;
    if (args.size() != 2)
        return usageError("demosaic");
    const QString path = args.at(0);
    const QString out = args.at(1);
    CFrame frame;
    if (!frame.load(path))
        return fail(frame.errorText());
    const QImage image = frame.image();
    if (image.isNull())
        return fail(path + QStringLiteral(" has no display picture (too small to demosaic)"));
    // Written to a temporary file and renamed, so a failure never leaves a
    // half-written picture behind.
    QSaveFile file(out);
    if (!file.open(QIODevice::WriteOnly) || !image.save(&file, "PNG") || !file.commit())
        return fail(QStringLiteral("cannot write ") + out);
    kestro::JsonWriter json;
    json.beginObject()
            .field("ok", true)
            .field("output", out)
            .field("width", image.width())
            .field("height", image.height())
            .endObject();
    printJson(json.text());
    return 0;
}

} // namespace

KESTRO_MEASURE_COMMAND("demosaic", "FILE OUT.png", runDemosaic);
