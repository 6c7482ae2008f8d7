// kestro-measure noise ROIFILE FRAME [FRAME...]: per-patch signal and noise
// over a frame set. The frames are loaded and accumulated one at a time, so
// a long set needs no more memory than two frames.

#include "command.h"
#include "json.h"

#include "imaging/frame.h"
#include "imaging/region.h"
#include "measure/noise/noiseengine.h"

#include <QFileInfo>
#include <QSettings>
#include <QVector>
#include <cmath>
#include <memory>

namespace {

using namespace kestro;

// Reads the "patches" array of an ROI file (left, top, width, height as real
// numbers; missing or unreadable values are 0) and rounds each rectangle
// outwards to whole pixels.
bool readPatches(const QString &path, QVector<QRect> *patches, QString *error)
{
    const QFileInfo info(path);
    if (!info.isFile() || !info.isReadable()) {
        *error = QStringLiteral("cannot read ROI file %1").arg(path);
        return false;
    }
    QSettings settings(path, QSettings::IniFormat);
    if (settings.status() != QSettings::NoError) {
        *error = QStringLiteral("cannot read ROI file %1").arg(path);
        return false;
    }
    const int size = settings.beginReadArray(QStringLiteral("patches"));
    if (size < 1 || size > 100000) {
        settings.endArray();
        *error = QStringLiteral("no regions in ROI file %1").arg(path);
        return false;
    }
    for (int i = 0; i < size; ++i) {
        settings.setArrayIndex(i);
        auto number = [&settings](const char *key) {
            bool ok = false;
            const double v = settings.value(QLatin1String(key)).toDouble(&ok);
            return ok && std::isfinite(v) && std::abs(v) < 1e9 ? v : 0.0;
        };
        const double height = number("height");
        const double width = number("width");
        const double top = number("top");
        const double left = number("left");
        patches->append(alignedRect(QRectF(left, top, width, height)));
    }
    settings.endArray();
    return true;
}

void writeChannel(JsonWriter &w, const NoisePatchResult &patch, int c)
{
    const NoiseChannelResult &ch = patch.channels[c];
    w.beginObject();
    w.field("name", ch.name);
    w.field("signal", ch.signal);
    w.field("overall", ch.overall);
    w.field("temporal", ch.temporal);
    w.field("fpn", ch.fpn);
    w.field("columnFpn", ch.columnFpn);
    w.field("rowFpn", ch.rowFpn);
    w.field("columnTemporal", ch.columnTemporal);
    w.field("rowTemporal", ch.rowTemporal);
    w.field("snr", patch.snr(c));
    w.field("snrDb", patch.snrDb(c));
    w.endObject();
}

int runNoise(const QStringList &args)
{
    if (args.size() < 2)
        return measure::usageError("noise");
    QVector<QRect> patches;
    QString error;
    if (!readPatches(args[0], &patches, &error))
        return measure::fail(error);

    const QStringList files = args.mid(1);
    NoiseAccumulator acc;
    QString refusal;
    for (int i = 0; i < files.size(); ++i) {
        std::unique_ptr<CFrame> frame(new CFrame);
        if (!frame->load(files[i]))
            return measure::fail(QStringLiteral("cannot load frame %1").arg(files[i]));
        if (!refusal.isEmpty())
            continue; // keep checking that the remaining files load
        const bool ok = i == 0 ? acc.start(*frame, patches) && acc.add(*frame) : acc.add(*frame);
        if (!ok)
            refusal = acc.errorMessage();
    }

    JsonWriter w;
    w.beginObject();
    w.field("ok", refusal.isEmpty());
    w.field("error", refusal);
    w.field("frames", static_cast<int>(files.size()));
    w.key("patches").beginArray();
    if (refusal.isEmpty()) {
        const QVector<NoisePatchResult> results = acc.results();
        for (int p = 0; p < results.size(); ++p) {
            const NoisePatchResult &patch = results[p];
            w.beginObject();
            w.field("patch", p + 1);
            w.field("frames", patch.frames);
            w.key("channels").beginArray();
            for (int c = 0; c < patch.channels.size(); ++c)
                writeChannel(w, patch, c);
            w.endArray();
            w.endObject();
        }
    }
    w.endArray();
    w.endObject();
    measure::printJson(w.text());
    return refusal.isEmpty() ? 0 : 2;
}

} // namespace

KESTRO_MEASURE_COMMAND("noise", "ROIFILE FRAME [FRAME...]", runNoise);
