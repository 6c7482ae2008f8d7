#include "sfr_measure.h"

#include "sfr_edgelocate.h"
#include "sfr_metrics.h"
#include "sfr_spectrum.h"

#include <QString>
#include <algorithm>
#include <cmath>
#include <limits>

namespace kestro::sfr {

namespace {

const double kPi = 3.14159265358979323846;
const double kBinWidth = 0.25;
const int kMaxBins = 4000;
const int kMinLength = 35;
const int kMinAcross = 10;
const double kMinContrast = 0.05;
const double kMaxRms = 3.0;
const double kMinAngle = 1.0;
const double kMaxAngle = 40.0;
const double kMaxClipped = 0.05;
const double kNoiseFloor = 1e-6; // linear units (1 is full scale)
// Four float planes of this many pixels take 128 MB.
const qint64 kMaxRegionPixels = 8000000;

struct Channel
{
    Failure failure;
    EdgeFit first; // the first-pass fit
    EdgeFit fit;
    double slope = 0;
    double angleDegrees = 0;
    double cosAngle = 1;
    double contrast = 0;
    double rise = 0;
    double cnr = 0;
    double samplesPerBin = 0;
    Esf esf;
    Lsf lsf;
};

// Distance from the edge of a second transition in the LSF (smoothed over a
// pixel) at least 30 % as strong as the edge's own peak and farther than
// `exclude` from it; 0 when there is none.
double secondTransition(const Lsf &lsf, double centre, double exclude)
{
    const int n = lsf.size();
    const int span = std::max(1, static_cast<int>(std::lround(1.0 / lsf.binWidth)));
    std::vector<double> smooth(static_cast<std::size_t>(n), 0.0);
    double running = 0;
    for (int k = 0; k < n; ++k) {
        running += lsf.values[static_cast<std::size_t>(k)];
        if (k >= span)
            running -= lsf.values[static_cast<std::size_t>(k - span)];
        smooth[static_cast<std::size_t>(k)] = running / span;
    }
    double peak = 0;
    for (int k = 0; k < n; ++k)
        if (std::fabs(lsf.distance(k) - centre) <= exclude)
            peak = std::max(peak, smooth[static_cast<std::size_t>(k)]);
    double where = 0, strongest = 0.3 * peak;
    for (int k = 0; k < n; ++k) {
        const double d = std::fabs(lsf.distance(k) - centre);
        if (d > exclude && std::fabs(smooth[static_cast<std::size_t>(k)]) > strongest) {
            strongest = std::fabs(smooth[static_cast<std::size_t>(k)]);
            where = d;
        }
    }
    return where;
}

// `guess`: a first-pass fit from another channel of the same edge (the
// colour channels start from the gray one's and skip their own first pass).
bool analyse(const Plane &p, const Quantisation &quantisation, Channel &ch,
             const EdgeFit *guess = nullptr)
{
    const int rows = p.rows, cols = p.cols;
    // Column means: their range tells whether there is anything to locate,
    // their two ends give the edge's direction and rough plateaus.
    std::vector<double> columns(static_cast<std::size_t>(cols), 0.0);
    for (int r = 0; r < rows; ++r) {
        const float *row = p.row(r);
        for (int c = 0; c < cols; ++c)
            columns[static_cast<std::size_t>(c)] += row[c];
    }
    for (double &v : columns)
        v /= rows;
    const int m = std::max(2, cols / 8);
    double a = 0, b = 0;
    for (int c = 0; c < m; ++c) {
        a += columns[static_cast<std::size_t>(c)];
        b += columns[static_cast<std::size_t>(cols - 1 - c)];
    }
    a /= m;
    b /= m;
    const double lowest = *std::min_element(columns.begin(), columns.end());
    const double highest = *std::max_element(columns.begin(), columns.end());
    const double roughContrast = highest + lowest > 0 ? (highest - lowest) / (highest + lowest)
                                                      : 0.0;
    if (!(roughContrast >= kMinContrast)) {
        ch.failure = Failure(FailureCode::EdgeTooFaint, roughContrast, kMinContrast);
        return false;
    }
    if (std::fabs(b - a) < 0.5 * (highest - lowest)) {
        ch.failure = Failure(FailureCode::BarOrLine);
        return false;
    }
    const double sign = b >= a ? 1.0 : -1.0;

    LocateOptions lo;
    lo.rowBegin = 0;
    lo.rowEnd = rows;
    lo.sign = sign;
    lo.minimumStep = 0.2 * std::fabs(b - a);
    lo.halfWidth = std::max(4.0, cols / 2.0);
    std::vector<EdgePoint> points;
    EdgeFit first;
    if (guess) {
        first = *guess;
    } else {
        points = locateEdgePoints(p, lo);
        if (static_cast<int>(points.size()) < std::max(10, rows / 2)
            || !fitEdge(points, false, first)) {
            ch.failure = Failure(FailureCode::NoEdge);
            return false;
        }
    }
    const double s = first.slope();
    const double angle = std::atan(s) * 180 / kPi;
    if (std::fabs(angle) > kMaxAngle) {
        ch.failure = Failure(FailureCode::AngleNearDiagonal, angle);
        return false;
    }
    if (std::fabs(angle) < kMinAngle || rows * std::fabs(s) < 1.0) {
        ch.failure = Failure(FailureCode::AngleNearAxis, angle);
        return false;
    }
    // Every row: the bins' values are centred on their bins whatever the
    // spread of phases, so no row needs to be left out to even them.
    const int used = rows, rowBegin = 0, rowEnd = rows;

    Esf esf;
    if (!binEdgeSpread(p, rowBegin, rowEnd, first, kBinWidth, kMaxBins, esf, false)) {
        ch.failure = Failure(FailureCode::NoEdge);
        return false;
    }
    double lo0, hi0;
    esfPlateaus(esf, std::max(2.0, cols * 0.2), lo0, hi0);
    double rise = esfRiseDistance(esf, lo0, hi0);

    // Second pass: windows centred on the fitted edge, sized to its blur.
    lo.prediction = &first;
    lo.rowBegin = rowBegin;
    lo.rowEnd = rowEnd;
    lo.halfWidth = std::min(std::max(4.0, 4.0 * rise + 2.0), std::max(4.0, cols / 2.0));
    points = locateEdgePoints(p, lo);
    EdgeFit fit;
    if (static_cast<int>(points.size()) < used / 2 || !fitEdge(points, true, fit)) {
        ch.failure = Failure(FailureCode::NoEdge);
        return false;
    }
    if (fit.rms > kMaxRms) {
        ch.failure = Failure(FailureCode::EdgeNotStraight, fit.rms, kMaxRms);
        return false;
    }
    const double margin = 2.0;
    const double x0 = fit.at(rowBegin), x1 = fit.at(rowEnd - 1);
    if (std::min(x0, x1) < margin || std::max(x0, x1) > cols - 1 - margin) {
        ch.failure = Failure(FailureCode::EdgeLeavesRegion);
        return false;
    }
    if (!binEdgeSpread(p, rowBegin, rowEnd, fit, kBinWidth, kMaxBins, esf)) {
        ch.failure = Failure(FailureCode::NoEdge);
        return false;
    }
    esfPlateaus(esf, std::max(2.0, 2.5 * rise + 1.0), lo0, hi0);
    rise = std::max(esfRiseDistance(esf, lo0, hi0), 0.25);
    const double dark = std::min(lo0, hi0), light = std::max(lo0, hi0);
    ch.contrast = light + dark > 0 ? (light - dark) / (light + dark) : 0.0;

    if (rise > cols / 3.0) {
        ch.failure = Failure(FailureCode::EdgeTooWide, rise, cols);
        return false;
    }
    Lsf lsf = differentiate(esf);
    const double centre = lsfCentroid(lsf, 0.0, std::max(2.0, 2.0 * rise));
    const double second = secondTransition(lsf, centre, 2.0 * rise + 2.0);
    if (second > 0) {
        ch.failure = Failure(FailureCode::SecondEdge, second);
        return false;
    }
    // Noise of single samples where the edge has settled: it decides how far
    // the window may reach, whether the plateaus need smoothing and how far
    // the result can be trusted. The sums of a bin of equal samples differ
    // from a perfect square by rounding only: below kNoiseFloor there is no
    // noise, and an 8-bit picture's tails are then read from its code
    // boundaries.
    double noise = esfSampleNoise(esf, centre, 1.6 * rise + 1.5);
    const bool noiseFree = noise >= 0 && noise < kNoiseFloor;
    if (noiseFree)
        restoreQuantisedTails(p, rowBegin, rowEnd, fit, quantisation, centre, esf);
    const LsfWindow window = chooseLsfWindow(esf, centre, rise, noiseFree ? 0.0 : noise);
    const double settled = std::max(window.flatBefore, window.flatAfter) + window.taper;
    if (const double outside = esfSampleNoise(esf, centre, settled); outside >= 0)
        noise = outside;
    if (!(noise >= 0))
        ch.cnr = std::numeric_limits<double>::quiet_NaN();
    else if (noise < kNoiseFloor)
        ch.cnr = std::numeric_limits<double>::infinity();
    else
        ch.cnr = (light - dark) / noise;
    ch.samplesPerBin = esfSamplesPerBin(esf, centre - window.flatBefore, centre + window.flatAfter);
    if (!noiseFree)
        smoothEsfTails(esf, centre, window.flatBefore, window.flatAfter, 2.0);
    lsf = differentiate(esf);
    applyWindow(lsf, window);

    ch.first = first;
    ch.fit = fit;
    ch.slope = fit.slope();
    ch.angleDegrees = std::atan(ch.slope) * 180 / kPi;
    ch.cosAngle = std::cos(std::atan(ch.slope));
    ch.rise = rise;
    ch.esf = std::move(esf);
    ch.lsf = std::move(lsf);
    return true;
}

bool samePlane(const Plane &a, const Plane &b)
{
    return a.rows == b.rows && a.cols == b.cols && a.v == b.v;
}

} // namespace

void measurePlanes(const RegionPlanes &planes, Result &result)
{
    result = Result();
    const Plane &gray = planes.channel[Gray];
    if (gray.rows < kMinLength) {
        result.failure = Failure(FailureCode::RegionTooShort, gray.rows, kMinLength);
        return;
    }
    if (gray.cols < kMinAcross) {
        result.failure = Failure(FailureCode::RegionTooNarrow, gray.cols, kMinAcross);
        return;
    }
    Channel ch[4];
    if (!analyse(gray, planes.quantisation[Gray], ch[Gray])) {
        result.failure = ch[Gray].failure;
        return;
    }
    const double clipped = std::max({planes.clipped[0], planes.clipped[1], planes.clipped[2]});
    if (clipped > kMaxClipped) {
        result.failure = Failure(FailureCode::EdgeClipped, clipped);
        return;
    }
    const bool monochrome = samePlane(planes.channel[Red], gray)
                            && samePlane(planes.channel[Green], gray)
                            && samePlane(planes.channel[Blue], gray);
    bool ok[4] = {false, false, false, true};
    for (int c = Red; c <= Blue; ++c) {
        if (monochrome) {
            ch[c] = ch[Gray];
            ok[c] = true;
        } else {
            ok[c] = analyse(planes.channel[c], planes.quantisation[c], ch[c], &ch[Gray].first);
        }
    }

    // One frequency axis for all channels, spaced as the gray ESF's length
    // gives, measured along the edge normal.
    const Channel &g = ch[Gray];
    double df = 1.0 / (g.esf.size() * kBinWidth * g.cosAngle);
    int points = static_cast<int>(std::floor(1.0 / df + 1e-9)) + 1;
    if (points > kMaxPoints) {
        df = 1.0 / (kMaxPoints - 1);
        points = kMaxPoints;
    }
    result.frequencies.resize(static_cast<std::size_t>(points));
    for (int i = 0; i < points; ++i)
        result.frequencies[static_cast<std::size_t>(i)] = i * df;

    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (int c = 0; c < 4; ++c) {
        std::vector<double> &curve = result.curve[c];
        curve.assign(static_cast<std::size_t>(points), 0.0);
        if (!ok[c]) {
            result.mtf50[c] = result.mtf50Peak[c] = result.mtf10[c] = result.mtf10Peak[c] = nan;
            result.slopeDegrees[c] = result.contrast[c] = nan;
            result.cnr[c] = result.samplesPerBin[c] = nan;
            continue;
        }
        if (monochrome && c != Gray)
            continue; // copied from gray below
        const ChannelSpectrum spectrum(&ch[c].lsf, ch[c].cosAngle);
        spectrum.evaluate(result.frequencies.data(), points, curve.data());
        const CurveMetrics m = curveMetrics(result.frequencies.data(), curve.data(), points,
                                            [&spectrum](double f) { return spectrum(f); });
        result.mtf50[c] = m.mtf50;
        result.mtf50Peak[c] = m.mtf50Peak;
        result.mtf10[c] = m.mtf10;
        result.mtf10Peak[c] = m.mtf10Peak;
        result.slopeDegrees[c] = ch[c].angleDegrees;
        result.contrast[c] = ch[c].contrast;
        result.cnr[c] = ch[c].cnr;
        result.samplesPerBin[c] = ch[c].samplesPerBin;
    }
    if (monochrome) {
        for (int c = Red; c <= Blue; ++c) {
            result.curve[c] = result.curve[Gray];
            result.mtf50[c] = result.mtf50[Gray];
            result.mtf50Peak[c] = result.mtf50Peak[Gray];
            result.mtf10[c] = result.mtf10[Gray];
            result.mtf10Peak[c] = result.mtf10Peak[Gray];
            result.slopeDegrees[c] = result.slopeDegrees[Gray];
            result.contrast[c] = result.contrast[Gray];
            result.cnr[c] = result.cnr[Gray];
            result.samplesPerBin[c] = result.samplesPerBin[Gray];
        }
    }
}

bool usableGamma(double gamma)
{
    return gamma > 0.05 && gamma < 20;
}

void measureImageRegion(const QImage &image, const QRect &rect, double gamma, Result &result)
{
    result = Result();
    if (!usableGamma(gamma)) {
        result.failure = Failure(FailureCode::BadGamma, gamma);
        return;
    }
    const QRect bounds = image.rect();
    if (rect.width() <= 0 || rect.height() <= 0 || !bounds.contains(rect)) {
        result.failure = Failure(FailureCode::RegionOutsideImage, rect.left(), rect.top(),
                                 rect.width(), rect.height(), image.width(), image.height());
        return;
    }
    if (qint64(rect.width()) * rect.height() > kMaxRegionPixels) {
        result.failure = Failure(FailureCode::RegionTooLarge, rect.width(), rect.height(),
                                 kMaxRegionPixels / 1000000);
        return;
    }
    RegionPlanes planes;
    const QImage::Format f = image.format();
    if (f == QImage::Format_Grayscale8 || f == QImage::Format_RGB32 || f == QImage::Format_ARGB32) {
        extractRegion(image, rect, gamma, planes);
    } else {
        const QImage part = image.copy(rect).convertToFormat(QImage::Format_RGB32);
        extractRegion(part, part.rect(), gamma, planes);
    }
    measurePlanes(planes, result);
}

} // namespace kestro::sfr
