// kestro-measure noise ROIFILE FRAME [FRAME...]: per-patch signal and noise
// over a frame set. The frames are loaded and accumulated one at a time, so
// a long set needs no more memory than two frames.

#include "command.h"
#include "json.h"

#include "imaging/frame.h"
#include "imaging/roifile.h"
#include "measure/noise/noiseengine.h"

#include <QVector>
#include <cmath>
#include <memory>

namespace {

using namespace kestro;

// Reads the regions of an ROI file, rounded outwards to whole pixels as
// they are stored. A file without regions is an error here: the noise
// calculation needs at least one patch.
bool readPatches(const QString &path, QVector<QRect> *patches, QString *error)
{
    const RoiReadResult roi = readRoiFile(path);
    if (!roi.ok) {
        *error = roi.error.isEmpty() ? QStringLiteral("no regions in ROI file %1").arg(path)
                                     : roi.error;
        return false;
    }
    for (const QRectF &r : roi.rects)
        patches->append(roiStoredRect(r));
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
