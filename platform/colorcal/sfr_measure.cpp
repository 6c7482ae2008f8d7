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
// Four float planes of this many pixels take 128 MB.
const qint64 kMaxRegionPixels = 8000000;

struct Channel
{
    std::string error;
    EdgeFit first; // the first-pass fit
    EdgeFit fit;
    double slope = 0;
    double angleDegrees = 0;
    double cosAngle = 1;
    double contrast = 0;
    double rise = 0;
    Esf esf;
    Lsf lsf;
};

std::string text(const QString &s)
{
    return s.toStdString();
}

// Half-width of the Hamming window on the LSF: wide against the edge's blur
// (the taper then barely weights the LSF's wings, which would raise the MTF),
// narrow enough to leave out most of the noise of the plateaus. It may reach
// past the data, where the LSF is zero.
double windowHalfWidth(double rise)
{
    return std::max(8.0, 20.0 * rise);
}

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
bool analyse(const Plane &p, Channel &ch, const EdgeFit *guess = nullptr)
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
        ch.error = text(QString("The edge is too faint to locate (contrast %1 %, at least %2 % "
                                "needed): draw the region across a clear dark-to-light edge, "
                                "or raise the exposure.")
                                .arg(roughContrast * 100, 0, 'f', 1)
                                .arg(kMinContrast * 100, 0, 'f', 0));
        return false;
    }
    if (std::fabs(b - a) < 0.5 * (highest - lowest)) {
        ch.error = "The region holds more than one edge (both ends are alike, with a bar or a "
                   "line between them): draw it over a single edge between two even areas.";
        return false;
    }
    const double sign = b >= a ? 1.0 : -1.0;
    const std::string noEdge = "No edge found in the region: draw the region across one "
                               "straight slanted edge, with both the dark and the light side "
                               "inside it.";

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
            ch.error = noEdge;
            return false;
        }
    }
    const double s = first.slope();
    const double angle = std::atan(s) * 180 / kPi;
    if (std::fabs(angle) > kMaxAngle) {
        ch.error = text(QString("The edge angle (%1 degrees) is too close to 45 degrees to be "
                                "measured reliably: use an edge tilted by 2 to 10 degrees from "
                                "the vertical or the horizontal.")
                                .arg(angle, 0, 'f', 1));
        return false;
    }
    if (std::fabs(angle) < kMinAngle || rows * std::fabs(s) < 1.0) {
        ch.error = text(QString("The edge angle (%1 degrees) is too close to 0 degrees to be "
                                "measured reliably: tilt the chart so that the edge leans by "
                                "2 to 10 degrees, or draw a longer region.")
                                .arg(angle, 0, 'f', 2));
        return false;
    }
    // Use a whole number of phase cycles, so that every quarter-pixel bin
    // receives samples evenly from all phases.
    const double cycles = std::floor(rows * std::fabs(s));
    const int used = std::min(rows, std::max(kMinLength,
                                             static_cast<int>(std::lround(cycles / std::fabs(s)))));
    const int rowBegin = (rows - used) / 2, rowEnd = rowBegin + used;

    Esf esf;
    if (!binEdgeSpread(p, rowBegin, rowEnd, first, kBinWidth, kMaxBins, esf)) {
        ch.error = noEdge;
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
        ch.error = noEdge;
        return false;
    }
    if (fit.rms > kMaxRms) {
        ch.error = text(QString("The edge is not straight (fit error %1 pixels RMS, at most %2 "
                                "allowed): the region may hold more than one edge or a badly "
                                "curved one; draw it over a single straight edge.")
                                .arg(fit.rms, 0, 'f', 2)
                                .arg(kMaxRms, 0, 'f', 0));
        return false;
    }
    const double margin = 2.0;
    const double x0 = fit.at(rowBegin), x1 = fit.at(rowEnd - 1);
    if (std::min(x0, x1) < margin || std::max(x0, x1) > cols - 1 - margin) {
        ch.error = "The edge leaves the region: draw the region so that the edge crosses it "
                   "from one end to the other, with both sides of the edge inside it.";
        return false;
    }
    if (!binEdgeSpread(p, rowBegin, rowEnd, fit, kBinWidth, kMaxBins, esf)) {
        ch.error = noEdge;
        return false;
    }
    esfPlateaus(esf, std::max(2.0, 2.5 * rise + 1.0), lo0, hi0);
    rise = std::max(esfRiseDistance(esf, lo0, hi0), 0.25);
    const double dark = std::min(lo0, hi0), light = std::max(lo0, hi0);
    ch.contrast = light + dark > 0 ? (light - dark) / (light + dark) : 0.0;

    if (rise > cols / 3.0) {
        ch.error = text(QString("The edge is too wide for the region (it rises over %1 pixels in a "
                                "region %2 pixels across): widen the region, or draw it over a "
                                "sharper edge.")
                                .arg(rise, 0, 'f', 1)
                                .arg(cols));
        return false;
    }
    Lsf lsf = differentiate(esf);
    const double centre = lsfCentroid(lsf, 0.0, std::max(2.0, 2.0 * rise));
    const double second = secondTransition(lsf, centre, 2.0 * rise + 2.0);
    if (second > 0) {
        ch.error = text(QString("The region holds more than one edge (another transition %1 pixels "
                                "from the measured one): draw it over a single edge between two "
                                "even areas.")
                                .arg(second, 0, 'f', 0));
        return false;
    }
    applyHammingWindow(lsf, centre, windowHalfWidth(rise));

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
        result.error = text(QString("The region is too short along the edge (%1 pixels, at least "
                                    "%2 needed): draw a longer region over the edge.")
                                    .arg(gray.rows)
                                    .arg(kMinLength));
        return;
    }
    if (gray.cols < kMinAcross) {
        result.error = text(QString("The region is too narrow across the edge (%1 pixels, at "
                                    "least %2 needed): widen it so that both sides of the edge "
                                    "are inside.")
                                    .arg(gray.cols)
                                    .arg(kMinAcross));
        return;
    }
    Channel ch[4];
    if (!analyse(gray, ch[Gray])) {
        result.error = ch[Gray].error;
        return;
    }
    const double clipped = std::max({planes.clipped[0], planes.clipped[1], planes.clipped[2]});
    if (clipped > kMaxClipped) {
        result.error = text(QString("The edge is clipped (%1 % of the pixels at 0 or 255): lower "
                                    "the exposure or the gain so that both sides of the edge "
                                    "stay within range.")
                                    .arg(clipped * 100, 0, 'f', 1));
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
            ok[c] = analyse(planes.channel[c], ch[c], &ch[Gray].first);
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
        }
    }
}

void measureImageRegion(const QImage &image, const QRect &rect, double gamma, Result &result)
{
    result = Result();
    if (!(gamma > 0.05 && gamma < 20)) {
        result.error = text(QString("The gamma %1 cannot be used: give a positive value such as "
                                    "0.45 for sRGB-like images or 1.0 for linear ones.")
                                    .arg(gamma));
        return;
    }
    const QRect bounds = image.rect();
    if (rect.width() <= 0 || rect.height() <= 0 || !bounds.contains(rect)) {
        result.error = text(QString("The region (left %1, top %2, width %3, height %4) does not lie "
                                    "inside the image (%5 x %6 pixels): draw it on the picture.")
                                    .arg(rect.left())
                                    .arg(rect.top())
                                    .arg(rect.width())
                                    .arg(rect.height())
                                    .arg(image.width())
                                    .arg(image.height()));
        return;
    }
    if (qint64(rect.width()) * rect.height() > kMaxRegionPixels) {
        result.error = text(QString("The region is too large (%1 x %2 pixels, at most %3 million "
                                    "pixels): draw a smaller region around one edge.")
                                    .arg(rect.width())
                                    .arg(rect.height())
                                    .arg(kMaxRegionPixels / 1000000));
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
