// kestro-measure capture [--scene chart|edge|flat] OUT: one frame taken
// through the camera object as the pages take it (the demo board, the
// image-source service started when needed), saved to OUT. --scene is the
// scene a synthetic source shows (as for the colour, MTF and uniformity
// pages); a file or device source ignores it.
#include "command.h"
#include "json.h"

#include "acquisition/automation.h"
#include "acquisition/capture.h"
#include "imaging/pngwriter.h"

#include <QFileInfo>
#include <QImageWriter>
#include <QSaveFile>

namespace {

using namespace kestro::measure;

bool saveImage(const QImage &picture, const QString &path, const QByteArray &format)
{
    if (format == "png")
        return kestro::savePng(picture, path, kestro::PngCompression::None);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    QImageWriter writer(&file, format);
    if (!writer.write(picture)) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

// The page's failure text, then why (for whoever reads the log).
int captureFailed(const QString &reason)
{
    fail(kestro::captureFailureText());
    if (!reason.isEmpty())
        fail(QStringLiteral("reason: %1").arg(reason));
    return 1;
}

int runCapture(const QStringList &args)
{
    QString scene, out;
    for (int i = 0; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--scene") && i + 1 < args.size())
            scene = args[++i];
        else if (out.isEmpty() && !args[i].startsWith(QLatin1String("--")))
            out = args[i];
        else
            return usageError("capture");
    }
    if (out.isEmpty())
        return usageError("capture");
    if (!scene.isEmpty() && scene != QLatin1String("chart") && scene != QLatin1String("edge")
        && scene != QLatin1String("flat"))
        return usageError("capture");
    const QByteArray format = QFileInfo(out).suffix().toLower().toLatin1();
    if (!QImageWriter::supportedImageFormats().contains(format))
        return fail(QStringLiteral("cannot write %1: unknown picture format \"%2\"")
                            .arg(out, QString::fromLatin1(format)));

    CCamera camera;
    camera.open();
    // Nobody answers a prompt here: the sensor is readied without one. The
    // scene is asked for as the page of that measurement asks for it.
    kestro::CapturedImage frame;
    if (!kestro::captureImage(camera, frame, true, {}, scene)) {
        auto *automation = dynamic_cast<kestro::ImageSourceAutomation *>(camera.automation());
        return captureFailed(automation ? automation->lastError()
                                        : QStringLiteral("no camera found"));
    }
    const QImage picture = kestro::toImage(std::move(frame));
    if (picture.isNull())
        return fail(kestro::captureConversionFailureText());
    if (!saveImage(picture, out, format))
        return fail(QStringLiteral("cannot write %1").arg(out));

    kestro::JsonWriter json;
    json.beginObject()
            .field("ok", true)
            .field("file", out)
            .field("width", picture.width())
            .field("height", picture.height())
            .endObject();
    printJson(json.text());
    return 0;
}

} // namespace

KESTRO_MEASURE_COMMAND("capture", "[--scene chart|edge|flat] OUT", runCapture);
