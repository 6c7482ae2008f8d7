// kestro-measure mtf IMAGE [--gamma G] [--roi LEFT,TOP,WIDTH,HEIGHT]...
// [--roi-file FILE]: the slanted-edge MTF of each region (the --roi options
// first, then the file's regions), run through the same loop as the MTF page.

#include "command.h"
#include "json.h"

#include "imaging/region.h"
#include "imaging/roifile.h"
#include "measure/mtf/mtfregionlist.h"
#include "measure/mtf/mtfthread.h"
#include "platform/colorcal/imagecache.h"

#include <cmath>
#include <vector>

namespace {

using namespace kestro;

const char *const kChannelKeys[4] = {"red", "green", "blue", "gray"};

bool parseRoi(const QString &text, QRectF *rect)
{
    const QStringList parts = text.split(QLatin1Char(','));
    if (parts.size() != 4)
        return false;
    double v[4];
    for (int i = 0; i < 4; ++i) {
        bool ok = false;
        v[i] = parts[i].trimmed().toDouble(&ok);
        if (!ok || !std::isfinite(v[i]) || std::fabs(v[i]) > 1e9)
            return false;
    }
    if (v[2] <= 0 || v[3] <= 0)
        return false;
    *rect = QRectF(v[0], v[1], v[2], v[3]);
    return true;
}

void writePerChannel(JsonWriter &w, const char *key, const regionBasedMTF &m,
                     double (regionBasedMTF::*metric)(int) const)
{
    w.key(key).beginObject();
    for (int c = 0; c < 4; ++c)
        w.field(kChannelKeys[c], (m.*metric)(c));
    w.endObject();
}

void writeRegion(JsonWriter &w, const regionBasedMTF &m)
{
    const QRect r = m.region();
    w.beginObject();
    w.key("rect")
            .beginArray()
            .value(r.left())
            .value(r.top())
            .value(r.width())
            .value(r.height())
            .endArray();
    w.field("valid", m.isValid());
    w.field("error", m.errorMessage());
    w.field("roiDistance", m.roiDistance());
    w.field("pointCount", m.pointCount());
    const int n = m.isValid() ? static_cast<int>(m.pointCount()) : 0;
    auto series = [n](const double *values) {
        return values ? std::vector<double>(values, values + n) : std::vector<double>();
    };
    w.key("frequencies").numbers(series(m.frequencies()));
    w.key("curves").beginObject();
    for (int c = 0; c < 4; ++c)
        w.key(kChannelKeys[c]).numbers(series(m.curve(c)));
    w.endObject();
    writePerChannel(w, "mtf50", m, &regionBasedMTF::mtf50);
    writePerChannel(w, "mtf50Peak", m, &regionBasedMTF::mtf50Peak);
    writePerChannel(w, "mtf10", m, &regionBasedMTF::mtf10);
    writePerChannel(w, "mtf10Peak", m, &regionBasedMTF::mtf10Peak);
    writePerChannel(w, "slopeDegrees", m, &regionBasedMTF::slopeDegrees);
    writePerChannel(w, "contrast", m, &regionBasedMTF::contrast);
    writePerChannel(w, "overshoot", m, &regionBasedMTF::overshoot);
    w.endObject();
}

int runMtf(const QStringList &args)
{
    using namespace kestro::measure;
    QString image;
    double gamma = 1.0;
    std::vector<QRectF> rois;
    QString roiFile;
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args[i];
        const bool hasValue = i + 1 < args.size();
        if (a == QLatin1String("--gamma")) {
            bool ok = false;
            if (!hasValue || !((gamma = args[++i].toDouble(&ok)), ok) || !(gamma > 0)
                || !std::isfinite(gamma))
                return fail(QStringLiteral(
                        "--gamma needs a positive number (0.45 for sRGB-like images, 1 for linear)"));
        } else if (a == QLatin1String("--roi")) {
            QRectF rect;
            if (!hasValue || !parseRoi(args[++i], &rect))
                return fail(QStringLiteral(
                        "--roi needs LEFT,TOP,WIDTH,HEIGHT with a positive width and height"));
            rois.push_back(rect);
        } else if (a == QLatin1String("--roi-file")) {
            if (!hasValue || !roiFile.isEmpty())
                return usageError("mtf");
            roiFile = args[++i];
        } else if (a.startsWith(QLatin1String("--")) || !image.isEmpty()) {
            return usageError("mtf");
        } else {
            image = a;
        }
    }
    if (image.isEmpty())
        return usageError("mtf");
    if (!roiFile.isEmpty()) {
        const RoiReadResult read = readRoiFile(roiFile);
        if (!read.ok && !read.error.isEmpty())
            return fail(QStringLiteral("cannot read the ROI file %1: %2").arg(roiFile, read.error));
        for (const QRectF &r : read.rects)
            rois.push_back(r);
    }
    if (rois.empty())
        return fail(QStringLiteral("no regions: give --roi or an --roi-file with regions"));
    QString why;
    const QImage picture = colorcal::loadImageCached(image, &why);
    if (picture.isNull())
        return fail(QStringLiteral("cannot read the image %1: %2").arg(image, why));

    MTFRegionList regions;
    regions.setFileName(image);
    regions.setGamma(gamma);
    regions.setPictureHeight(picture.height());
    for (const QRectF &r : rois)
        regions.addRegion(r);
    MTFThread thread(nullptr, &regions);
    thread.runSynchronously();

    bool allValid = true;
    QString firstError;
    for (int i = 0; i < regions.mtfRegionCount(); ++i) {
        const regionBasedMTF *m = regions.mtf(i);
        if (m && !m->isValid()) {
            if (allValid)
                firstError = QStringLiteral("region %1: %2").arg(i + 1).arg(m->errorMessage());
            allValid = false;
        }
    }
    JsonWriter w;
    w.beginObject();
    w.field("ok", allValid);
    if (!allValid)
        w.field("error", firstError);
    w.key("regions").beginArray();
    for (int i = 0; i < regions.mtfRegionCount(); ++i)
        writeRegion(w, *regions.mtf(i));
    w.endArray();
    w.endObject();
    printJson(w.text());
    return allValid ? 0 : 2;
}

} // namespace

KESTRO_MEASURE_COMMAND("mtf",
                       "IMAGE [--gamma G] [--roi LEFT,TOP,WIDTH,HEIGHT]... [--roi-file FILE]",
                       runMtf);
