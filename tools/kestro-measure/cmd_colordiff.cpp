// kestro-measure colordiff IMAGE ROIFILE [--report FILE.html] [--threshold T]:
// colour difference of a 24-patch Macbeth chart. The image is loaded as a
// frame, the 24 regions of the ROI file are rounded outwards to whole pixels
// and measured, and the per-patch results and the summary print as one JSON
// object. --report writes the HTML report with its picture folder as the
// chart page does; --threshold T ends with status 3 when the largest dE00
// exceeds T (a pass/fail check for test stations).

#include "command.h"
#include "json.h"

#include "imaging/frame.h"
#include "imaging/region.h"
#include "imaging/roifile.h"
#include "measure/color/macbethcolordifference.h"

#include <QFileInfo>
#include <QVector>
#include <algorithm>
#include <cmath>
#include <cstdio>

#ifdef KESTRO_HAVE_COLOR_PAGE
#include "measure/color/gui/offscreenreports.h"
#endif

namespace {

using namespace kestro;

const char *const kNotEnoughRegions
        = "Color difference process error : not enough regions to do Macbeth chart processing.";

// Reads the regions of an ROI file, rounded outwards to whole pixels. A file
// without regions gives none; a file that cannot be read gives false.
bool readRegions(const QString &path, QVector<QRect> *rects, QString *error)
{
    const RoiReadResult roi = readRoiFile(path);
    if (!roi.ok && !roi.error.isEmpty()) {
        *error = roi.error;
        return false;
    }
    for (const QRectF &r : roi.rects)
        rects->append(roiStoredRect(r));
    return true;
}

void writeStat(JsonWriter &w, const char *name, float average, float minimum, float maximum,
               float p95, int minimumIndex, int maximumIndex)
{
    w.key(name).beginObject();
    w.field("average", double(average));
    w.field("minimum", double(minimum));
    w.field("maximum", double(maximum));
    w.field("percentile95", double(p95));
    w.field("minimumIndex", minimumIndex);
    w.field("maximumIndex", maximumIndex);
    w.endObject();
}

void writePatch(JsonWriter &w, const QStdMacbethChartColorDifference &model, int i)
{
    const MacbethPatch &p = model.patch(i);
    const double dE00 = model.dE00(i); // computes the record
    w.beginObject();
    w.field("patch", i + 1);
    w.field("R", p.R);
    w.field("G", p.G);
    w.field("B", p.B);
    w.field("L", p.L);
    w.field("a", p.a);
    w.field("b", p.b);
    w.field("refL", p.refL);
    w.field("refA", p.refA);
    w.field("refB", p.refB);
    w.field("dE00", dE00);
    w.field("dC00", p.dC00);
    w.field("dH00", p.dH00);
    w.field("saturation", p.saturation);
    w.field("chroma", p.chroma);
    w.field("rOverG", p.rOverG);
    w.field("bOverG", p.bOverG);
    w.field("pixels", static_cast<long long>(p.region.width()) * p.region.height());
    w.endObject();
}

struct Options
{
    QStringList positional;
    QString report;
    bool hasThreshold = false;
    double threshold = 0.0;
};

bool parseOptions(const QStringList &args, Options *options)
{
    for (int i = 0; i < args.size(); ++i) {
        const QString &arg = args[i];
        if (arg == QLatin1String("--report") && i + 1 < args.size()) {
            options->report = args[++i];
            if (options->report.isEmpty())
                return false;
        } else if (arg == QLatin1String("--threshold") && i + 1 < args.size()) {
            bool ok = false;
            options->threshold = args[++i].toDouble(&ok);
            if (!ok || !std::isfinite(options->threshold))
                return false;
            options->hasThreshold = true;
        } else if (arg.startsWith(QLatin1String("--"))) {
            return false;
        } else {
            options->positional << arg;
        }
    }
    return options->positional.size() == 2;
}

// The chart page's report over the same picture and regions.
bool writeReport(const CFrame &frame, const QVector<QRect> &rects, const QString &path,
                 QString *error)
{
#ifdef KESTRO_HAVE_COLOR_PAGE
    return writeOffscreenColorDifferenceReport(frame, rects, path, error);
#else
    *error = QStringLiteral("this build has no chart page to draw the report");
    return false;
#endif
}

int runColorDiff(const QStringList &args)
{
    Options options;
    if (!parseOptions(args, &options))
        return measure::usageError("colordiff");
    const QString imagePath = options.positional[0];
    const QString roiPath = options.positional[1];

    CFrame frame;
    if (!QFileInfo(imagePath).isFile() || !frame.load(imagePath) || frame.image().isNull())
        return measure::fail(QStringLiteral("cannot load image %1").arg(imagePath));
    QVector<QRect> rects;
    QString error;
    if (!readRegions(roiPath, &rects, &error))
        return measure::fail(error);

    JsonWriter w;
    if (rects.size() != kMacbethPatchCount) {
        std::fprintf(stderr,
                     "kestro-measure: the ROI file holds %d regions; a Macbeth chart needs 24\n",
                     int(rects.size()));
        w.beginObject().field("ok", false).field("error", kNotEnoughRegions);
        w.key("patches").beginArray().endArray();
        w.endObject();
        measure::printJson(w.text());
        return 2;
    }

    QStdMacbethChartColorDifference model;
    QStdMacbethChartColorDifference::Rects patchRects;
    std::copy(rects.begin(), rects.end(), patchRects.begin());
    const bool ok = model.setMeasuredRegions(frame.image(), patchRects);
    if (ok)
        model.calculateStatistics();
    if (!options.report.isEmpty()) {
        if (!ok) {
            std::fprintf(stderr, "kestro-measure: no report written: %s\n",
                         model.errorText().toLocal8Bit().constData());
        } else if (!writeReport(frame, rects, options.report, &error)) {
            return measure::fail(QStringLiteral("cannot write the report ") + options.report
                                 + QStringLiteral(": ") + error);
        }
    }
    const bool exceeded = ok && options.hasThreshold
                          && double(model.summary().dE00Maximum) > options.threshold;

    w.beginObject().field("ok", ok).field("error", model.errorText());
    w.key("patches").beginArray();
    for (int i = 0; i < kMacbethPatchCount; ++i) {
        if (model.patch(i).hasMeasured)
            writePatch(w, model, i);
    }
    w.endArray();
    if (ok) {
        const ColorDifferenceSummary &s = model.summary();
        w.key("summary").beginObject();
        writeStat(w, "dE00", s.dE00Average, s.dE00Minimum, s.dE00Maximum, s.dE00Percentile95,
                  s.dE00MinimumIndex, s.dE00MaximumIndex);
        writeStat(w, "dC00", s.dC00Average, s.dC00Minimum, s.dC00Maximum, s.dC00Percentile95,
                  s.dC00MinimumIndex, s.dC00MaximumIndex);
        writeStat(w, "dH00", s.dH00Average, s.dH00Minimum, s.dH00Maximum, s.dH00Percentile95,
                  s.dH00MinimumIndex, s.dH00MaximumIndex);
        writeStat(w, "saturation", s.saturationAverage, s.saturationMinimum, s.saturationMaximum,
                  s.saturationPercentile95, s.saturationMinimumIndex, s.saturationMaximumIndex);
        w.field("grayChromaAverage", double(s.grayChromaAverage));
        w.field("grayROverGAverage", double(s.grayROverGAverage));
        w.field("grayBOverGAverage", double(s.grayBOverGAverage));
        w.endObject();
        if (options.hasThreshold)
            w.field("thresholdExceeded", exceeded);
    }
    w.endObject();
    measure::printJson(w.text());
    return !ok ? 2 : exceeded ? 3 : 0;
}

} // namespace

KESTRO_MEASURE_COMMAND("colordiff", "IMAGE ROIFILE [--report FILE.html] [--threshold T]",
                       runColorDiff);
