// kestro-measure frame FILE: the frame's layout facts as JSON.
#include "command.h"
#include "json.h"

#include "imaging/frame.h"

#include <QFileInfo>

namespace {

int runFrame(const QStringList &args)
{
    using namespace kestro::measure;
    if (args.size() != 1)
        return usageError("frame");
    const QString path = args.first();
    if (!QFileInfo(path).isFile())
        return fail(QStringLiteral("cannot read %1").arg(path));
    CFrame frame;
    const bool loaded = frame.load(path);
    const QImage image = frame.image();
    kestro::JsonWriter json;
    json.beginObject()
            .field("valid", frame.isValid())
            .field("kind", frame.kind())
            .field("width", frame.width())
            .field("height", frame.height())
            .field("bytesPerLine", frame.bytesPerLine())
            .field("bitsPerPixel", frame.bitsPerPixel())
            .field("bytesPerPixel", frame.bytesPerPixel())
            .field("bayerOrder", frame.bayerOrder())
            .field("dataSize", frame.dataSize())
            .field("imageWidth", image.width())
            .field("imageHeight", image.height())
            .endObject();
    printJson(json.text());
    // A file that does not load is unreadable input: the JSON above still
    // shows "valid": false, the message goes to stderr.
    if (!loaded)
        return fail(QStringLiteral("cannot load %1 as an image or raw sensor file").arg(path));
    return 0;
}

} // namespace

KESTRO_MEASURE_COMMAND("frame", "FILE", runFrame);
