// kestro-measure noise ROIFILE FRAME [FRAME...] [--report FILE.html]
// [--csv FILE.csv]: per-patch signal and noise over a frame set. The frames
// are loaded and accumulated one at a time, so a long set needs no more
// memory than two frames. --report writes the noise report with its chart
// pictures as the chart page does, --csv the noise section of the
// measurement CSV.

#include "command.h"
#include "json.h"

#include "imaging/frame.h"
#include "imaging/roifile.h"
#include "measure/color/macbethexport.h"
#include "measure/noise/noiseengine.h"

#include <QDir>
#include <QVector>
#include <cmath>
#include <memory>

#ifdef KESTRO_HAVE_COLOR_PAGE
#include "measure/color/gui/offscreenreports.h"
#endif

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

struct Options
{
    QStringList positional;
    QString report;
    QString csv;
};

bool parseOptions(const QStringList &args, Options *options)
{
    for (int i = 0; i < args.size(); ++i) {
        const QString &arg = args[i];
        QString *value = arg == QLatin1String("--report") ? &options->report
                         : arg == QLatin1String("--csv")  ? &options->csv
                                                          : nullptr;
        if (value) {
            if (i + 1 >= args.size() || args[i + 1].isEmpty())
                return false;
            *value = args[++i];
        } else if (arg.startsWith(QLatin1String("--"))) {
            return false;
        } else {
            options->positional << arg;
        }
    }
    return options->positional.size() >= 2;
}

// The chart page's noise report over these results.
bool writeReport(const QVector<NoisePatchResult> &results, const QStringList &files,
                 const QString &path, QString *error)
{
#ifdef KESTRO_HAVE_COLOR_PAGE
    return writeOffscreenNoiseReport(results, files, path, error);
#else
    *error = QStringLiteral("this build has no chart page to draw the report");
    return false;
#endif
}

// Writes the requested report and CSV; 0, or 1 after a message.
int writeOutputs(const Options &options, const QVector<NoisePatchResult> &results,
                 const QStringList &files)
{
    QStringList names;
    for (const QString &file : files)
        names << QDir::toNativeSeparators(file);
    QString error;
    if (!options.csv.isEmpty()) {
        MeasurementCsvData data;
        data.frameFiles = names;
        data.noise = &results;
        if (!saveTextFile(options.csv, measurementCsv(data, false, true), &error))
            return measure::fail(QStringLiteral("cannot write ") + options.csv
                                 + QStringLiteral(": ") + error);
    }
    if (!options.report.isEmpty() && !writeReport(results, names, options.report, &error))
        return measure::fail(QStringLiteral("cannot write the report ") + options.report
                             + QStringLiteral(": ") + error);
    return 0;
}

int runNoise(const QStringList &args)
{
    Options options;
    if (!parseOptions(args, &options))
        return measure::usageError("noise");
    QVector<QRect> patches;
    QString error;
    if (!readPatches(options.positional[0], &patches, &error))
        return measure::fail(error);

    const QStringList files = options.positional.mid(1);
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

    const QVector<NoisePatchResult> results = refusal.isEmpty() ? acc.results()
                                                                : QVector<NoisePatchResult>();
    if (refusal.isEmpty()) {
        if (const int status = writeOutputs(options, results, files))
            return status;
    }

    JsonWriter w;
    w.beginObject();
    w.field("ok", refusal.isEmpty());
    w.field("error", refusal);
    w.field("frames", static_cast<int>(files.size()));
    w.key("patches").beginArray();
    if (refusal.isEmpty()) {
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

KESTRO_MEASURE_COMMAND("noise", "ROIFILE FRAME [FRAME...] [--report FILE.html] [--csv FILE.csv]",
                       runNoise);
