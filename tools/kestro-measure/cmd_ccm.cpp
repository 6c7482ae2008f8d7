// kestro-measure ccm IMAGE ROIFILE [--fit ls|de00] [--ridge L]: the colour
// correction of a 24-patch chart. The regions are measured by the colour
// difference model as the chart page measures them; the colour-calibration
// library then fits white-balance gains and a matrix with rows summing to 1
// (least squares, or minimum dE00), optionally with a ridge that bounds the
// matrix's noise gain. Prints the matrix (applied after the gains to linear
// RGB), the gains (green 1), the noise gain of each row, dE00 before and after
// over the fitted patches, and the clipped patches left out of the fit.

#include "command.h"
#include "json.h"

#include "imaging/imageload.h"
#include "imaging/region.h"
#include "imaging/roifile.h"
#include "measure/color/macbethcolordifference.h"
#include "platform/colorcal/colorcal.h"

#include <cmath>

namespace {

using namespace kestro;

int refuse(const QString &error)
{
    JsonWriter w;
    w.beginObject().field("ok", false).field("error", error).endObject();
    measure::printJson(w.text());
    return 2;
}

void writeStats(JsonWriter &w, const char *name, const ccm::Stats &s)
{
    w.key(name).beginObject();
    w.field("mean", s.mean).field("max", s.max).field("p95", s.p95);
    w.endObject();
}

int runCcm(const QStringList &args)
{
    QStringList positional;
    int fit = 0;
    double ridge = 0.0;
    for (int i = 0; i < args.size(); ++i) {
        const QString &arg = args[i];
        if (arg == QLatin1String("--fit") && i + 1 < args.size()) {
            const QString name = args[++i];
            if (name != QLatin1String("ls") && name != QLatin1String("de00"))
                return measure::usageError("ccm");
            fit = name == QLatin1String("de00") ? 1 : 0;
        } else if (arg == QLatin1String("--ridge") && i + 1 < args.size()) {
            bool ok = false;
            ridge = args[++i].toDouble(&ok);
            if (!ok || !std::isfinite(ridge) || ridge < 0.0)
                return measure::usageError("ccm");
        } else if (arg.startsWith(QLatin1String("--"))) {
            return measure::usageError("ccm");
        } else {
            positional << arg;
        }
    }
    if (positional.size() != 2)
        return measure::usageError("ccm");

    QString error;
    const QImage image = loadImage(positional[0], &error);
    if (image.isNull())
        return measure::fail(error);
    const RoiReadResult roi = readRoiFile(positional[1]);
    if (!roi.ok && !roi.error.isEmpty())
        return measure::fail(roi.error);
    if (roi.rects.size() != kMacbethPatchCount)
        return refuse(QStringLiteral("Color difference process error : not enough regions to do "
                                     "Macbeth chart processing."));

    // The chart page's measurement: regions rounded outwards, on the picture
    // as 32-bit RGB.
    QStdMacbethChartColorDifference model;
    QStdMacbethChartColorDifference::Rects rects;
    for (int i = 0; i < kMacbethPatchCount; ++i)
        rects[i] = alignedRect(roi.rects[i]);
    if (!model.setMeasuredRegions(image.convertToFormat(QImage::Format_RGB32), rects))
        return refuse(QStringLiteral("Color difference process error : ") + model.errorText());
    model.calculateStatistics();

    double rgb[kMacbethPatchCount][3], lab[kMacbethPatchCount][3];
    for (int i = 0; i < kMacbethPatchCount; ++i) {
        const MacbethPatch &p = model.patch(i);
        const double values[6] = {p.R, p.G, p.B, p.refL, p.refA, p.refB};
        std::copy(values, values + 3, rgb[i]);
        std::copy(values + 3, values + 6, lab[i]);
    }
    CColorCalibrate calibration(nullptr);
    calibration.SetCorrectionFit(fit, ridge);
    calibration.SetChartPatches(kMacbethPatchCount, &rgb[0][0], &lab[0][0]);
    const ccm::Result &r = calibration.CorrectionResult();
    if (!r.ok)
        return refuse(QString::fromStdString(r.error));

    JsonWriter w;
    w.beginObject();
    w.key("matrix").beginArray();
    for (const ccm::Vec3 &row : r.matrix)
        w.numbers({row[0], row[1], row[2]});
    w.endArray();
    w.key("gains").numbers({r.gains[0], r.gains[1], r.gains[2]});
    w.key("noiseGain").numbers({r.noiseGain[0], r.noiseGain[1], r.noiseGain[2]});
    w.key("deltaE00").beginObject();
    writeStats(w, "before", r.before);
    writeStats(w, "after", r.after);
    w.endObject();
    w.key("excluded").beginArray();
    for (int patch : r.excluded)
        w.value(patch);
    w.endArray();
    w.endObject();
    measure::printJson(w.text());
    return 0;
}

} // namespace

KESTRO_MEASURE_COMMAND("ccm", "IMAGE ROIFILE [--fit ls|de00] [--ridge L]", runCcm);
