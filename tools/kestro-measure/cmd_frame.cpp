// kestro-measure frame FILE: the frame's layout facts as JSON.
#include "command.h"
#include "json.h"

#include "imaging/frame.h"

namespace {

int runFrame(const QStringList &args)
{
    using namespace kestro::measure;
    if (args.size() != 1)
        return usageError("frame");
    const QString path = args.first();
    CFrame frame;
    const bool loaded = frame.load(path);
    // A file that cannot be opened at all gets no JSON, only the reason.
    const FrameError error = frame.error();
    if (error == FrameError::Missing || error == FrameError::NotRegularFile
        || error == FrameError::Unreadable)
        return fail(frame.errorText());
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
    // shows "valid": false, the reason goes to stderr.
    if (!loaded)
        return fail(frame.errorText());
    return 0;
}

} // namespace

KESTRO_MEASURE_COMMAND("frame", "FILE", runFrame);
