// kestro-measure mtf IMAGE [--gamma G] [--roi LEFT,TOP,WIDTH,HEIGHT]...
// [--roi-file FILE]: the slanted-edge MTF of each region (the --roi options
// first, then the file's regions), run through the same loop as the MTF page.
//
// Each region is written out as soon as it is computed and its calculation
// dropped, so that memory stays bounded however many regions a ROI file
// holds; "ok" and the first error follow the regions.

#include "command.h"
#include "json.h"

#include "imaging/roifile.h"
#include "measure/mtf/mtfthread.h"
#include "measure/mtf/regionbasedmtf.h"
#include "platform/colorcal/colorcal.h"
#include "platform/colorcal/imagecache.h"
#include "platform/colorcal/sfr_measure.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
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

// A region calculation that also keeps the library's quality figures.
class QualityMTF : public regionBasedMTF
{
public:
    QualityMTF() { clearQuality(); }
    const CColorCalibrate::MtfQuality &quality() const { return m_quality; }

protected:
    bool callLibrary(unsigned int &pointCount, double *frequencies, double *gray, double *red,
                     double *green, double *blue, double *mtf50, double *mtf50Peak, double *mtf10,
                     double *mtf10Peak, double *slopeDegrees, double *contrast, char *errorText,
                     int errorSize, const char *fileName, double gamma, int left, int top,
                     int width, int height, int mode) override
    {
        clearQuality();
        return sharedCalibration().CalculateMTF(pointCount, frequencies, gray, red, green, blue,
                                                mtf50, mtf50Peak, mtf10, mtf10Peak, slopeDegrees,
                                                contrast, errorText, errorSize, fileName, gamma,
                                                left, top, width, height, mode, &m_quality);
    }

private:
    void clearQuality()
    {
        for (int c = 0; c < 4; ++c)
            m_quality.cnr[c] = m_quality.samplesPerBin[c] = std::nan("");
    }
    CColorCalibrate::MtfQuality m_quality;
};

// The regions of one run: rectangles only, and the calculation of the region
// being computed.
class StreamedRegions : public MTFRegionSource
{
public:
    std::vector<QRectF> rects;
    QString fileName;
    double gamma = 1.0;
    int pictureHeight = 0;

    int mtfRegionCount() const override { return static_cast<int>(rects.size()); }
    QRectF mtfRegionRect(int index) const override
    {
        return rects.at(static_cast<std::size_t>(index));
    }
    regionBasedCalculation *mtfRegionCalculation(int index) const override
    {
        if (index != m_index) {
            m_current = std::make_unique<QualityMTF>();
            m_index = index;
        }
        return m_current.get();
    }
    void attachMtfRegionCalculation(int index, regionBasedCalculation *calculation) override
    {
        m_current.reset(dynamic_cast<QualityMTF *>(calculation));
        m_index = m_current ? index : -1;
        if (!m_current)
            delete calculation;
    }
    int mtfPictureHeight() const override { return pictureHeight; }
    QString mtfFileName() const override { return fileName; }
    double mtfGamma() const override { return gamma; }

    const QualityMTF *current() const { return m_current.get(); }
    void drop()
    {
        m_current.reset();
        m_index = -1;
    }

private:
    mutable std::unique_ptr<QualityMTF> m_current;
    mutable int m_index = -1;
};

void writePerChannel(JsonWriter &w, const char *key, const regionBasedMTF &m,
                     double (regionBasedMTF::*metric)(int) const)
{
    w.key(key).beginObject();
    for (int c = 0; c < 4; ++c)
        w.field(kChannelKeys[c], (m.*metric)(c));
    w.endObject();
}

std::string regionJson(const QualityMTF &m)
{
    JsonWriter w;
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
    // The gray channel's figures: what the edge as a whole allows.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    w.key("quality").beginObject();
    w.field("cnr", m.isValid() ? m.quality().cnr[3] : nan);
    w.field("samplesPerBin", m.isValid() ? m.quality().samplesPerBin[3] : nan);
    w.endObject();
    w.endObject();
    return w.text();
}

bool writeOut(const std::string &text)
{
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
}

int runMtf(const QStringList &args)
{
    using namespace kestro::measure;
    QString image;
    double gamma = 1.0;
    StreamedRegions regions;
    QString roiFile;
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args[i];
        const bool hasValue = i + 1 < args.size();
        if (a == QLatin1String("--gamma")) {
            bool ok = false;
            if (!hasValue || !((gamma = args[++i].toDouble(&ok)), ok) || !sfr::usableGamma(gamma))
                return fail(QStringLiteral("--gamma needs a number above 0.05 and below 20 (0.45 "
                                           "for sRGB-like images, 1 for linear)"));
        } else if (a == QLatin1String("--roi")) {
            QRectF rect;
            if (!hasValue || !parseRoi(args[++i], &rect))
                return fail(QStringLiteral(
                        "--roi needs LEFT,TOP,WIDTH,HEIGHT with a positive width and height"));
            regions.rects.push_back(rect);
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
            return fail(QStringLiteral("cannot read the ROI file ") + roiFile + QStringLiteral(": ")
                        + read.error);
        regions.rects.insert(regions.rects.end(), read.rects.begin(), read.rects.end());
    }
    if (regions.rects.empty())
        return fail(QStringLiteral("no regions: give --roi or an --roi-file with regions"));
    QString why;
    const QImage picture = colorcal::loadImageCached(image, &why);
    if (picture.isNull())
        return fail(QStringLiteral("cannot read the image ") + image + QStringLiteral(": ") + why);
    regions.fileName = image;
    regions.gamma = gamma;
    regions.pictureHeight = picture.height();

    bool allValid = true, written = writeOut("{\"regions\": [");
    QString firstError;
    MTFThread thread(nullptr, &regions);
    QObject::connect(&thread, &MTFThread::setProgressValue, [&](int done) {
        const QualityMTF *m = regions.current();
        if (!m)
            return;
        if (!m->isValid() && allValid) {
            firstError = QStringLiteral("region ") + QString::number(done) + QStringLiteral(": ")
                         + m->errorMessage();
            allValid = false;
        }
        written = written && writeOut((done > 1 ? ", " : "") + regionJson(*m));
        regions.drop();
    });
    thread.runSynchronously();
    std::string tail = "], \"ok\": ";
    tail += allValid ? "true" : "false";
    if (!allValid)
        tail += ", \"error\": " + JsonWriter::quote(firstError);
    tail += "}\n";
    written = written && writeOut(tail) && std::fflush(stdout) == 0;
    if (!written)
        return fail(QStringLiteral("cannot write the results to the standard output"));
    return allValid ? 0 : 2;
}

} // namespace

KESTRO_MEASURE_COMMAND("mtf",
                       "IMAGE [--gamma G] [--roi LEFT,TOP,WIDTH,HEIGHT]... [--roi-file FILE]",
                       runMtf);
