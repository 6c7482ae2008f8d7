#include "measure/color/macbethcolordifference.h"

#include "imaging/region.h"
#include "imaging/srgb.h"
#include "measure/color/cielab.h"

#include <algorithm>
#include <cmath>

using namespace kestro;

namespace {

struct ReferenceLab
{
    double L, a, b;
};

// Reference L*a*b* of the chart, in reading order (gray row white to black).
const ReferenceLab kReference[kMacbethPatchCount] = {
        {37.54, 12.02, 13.33},  {65.2, 14.82, 17.55},   {50.37, -1.57, -21.43},
        {43.13, -14.63, 22.12}, {55.34, 11.45, -25.29}, {71.36, -32.72, 1.64},
        {61.37, 32.88, 55.16},  {40.71, 16.91, -45.09}, {49.86, 45.93, 13.88},
        {30.15, 24.91, -22.61}, {72.44, -27.46, 58.47}, {70.92, 15.58, 66.54},
        {29.62, 21.43, -49.03}, {55.64, -40.76, 33.27}, {40.55, 49.97, 25.46},
        {80.98, -1.04, 80.03},  {51.01, 49.88, -16.93}, {52.12, -24.61, -26.18},
        {96.54, -0.69, 1.35},   {81.27, -0.61, -0.24},  {66.79, -0.65, -0.43},
        {50.87, -0.06, -0.25},  {35.68, -0.22, -1.21},  {20.48, 0.05, -0.97},
};

bool validIndex(int index)
{
    return index >= 0 && index < kMacbethPatchCount;
}

// Ascending in-place quicksort of a small float array. Comparisons only move
// elements inside the bounds, so non-finite values cannot run it off the end.
void quickSort(float *v, int lo, int hi)
{
    while (lo < hi) {
        const float pivot = v[lo + (hi - lo) / 2];
        int i = lo, j = hi;
        while (i <= j) {
            while (i < hi && v[i] < pivot)
                ++i;
            while (j > lo && pivot < v[j])
                --j;
            if (i <= j) {
                std::swap(v[i], v[j]);
                ++i;
                --j;
            }
        }
        // Recurse into the smaller side to bound the depth.
        if (j - lo < hi - i) {
            quickSort(v, lo, j);
            lo = i;
        } else {
            quickSort(v, i, hi);
            hi = j;
        }
    }
}

float percentile95(std::array<float, kMacbethPatchCount> values)
{
    quickSort(values.data(), 0, kMacbethPatchCount - 1);
    return static_cast<float>(0.7 * static_cast<double>(values[22])
                              + 0.3 * static_cast<double>(values[23]));
}

// Minimum and maximum of one metric: patch 0 sets both extremes and writes no
// index; later patches set the index whenever they equal the extreme after
// the comparison, so ties go to the later patch.
void trackExtremes(int i, float value, float &minimum, float &maximum, std::int32_t &minimumIndex,
                   std::int32_t &maximumIndex)
{
    if (i == 0) {
        minimum = value;
        maximum = value;
        return;
    }
    if (value < minimum)
        minimum = value;
    if (value == minimum)
        minimumIndex = i;
    if (value > maximum)
        maximum = value;
    if (value == maximum)
        maximumIndex = i;
}

} // namespace

void MacbethPatch::setReference(double l, double aa, double bb)
{
    refL = l;
    refA = aa;
    refB = bb;
    hasReference = true;
    computed = false;
}

void MacbethPatch::setMeasured(double r, double g, double bl)
{
    R = r;
    G = g;
    B = bl;
    if (linearise) {
        linR = srgbToLinear(r);
        linG = srgbToLinear(g);
        linB = srgbToLinear(bl);
    }
    const LabColor lab = linearRgbToLab(linR, linG, linB);
    L = lab.L;
    a = lab.a;
    b = lab.b;
    saturation = hsvSaturation(linR, linG, linB);
    chroma = std::sqrt(a * a + b * b);
    rOverG = linR / linG; // a zero green gives inf or nan on purpose
    bOverG = linB / linG;
    hasMeasured = true;
    computed = false;
    // Thresholds in 0..255 units against 0..1 fractions: set for nearly every
    // patch. Nothing reads the flag for results.
    outOfRange = r > 254.0 || g > 254.0 || bl > 254.0 || r < 1.0 || g < 1.0 || bl < 1.0;
}

void MacbethPatch::compute()
{
    if (computed || !hasReference || !hasMeasured)
        return;
    const double da = refA - a;
    const double db = refB - b;
    dL = refL - L;
    dAB = std::sqrt(da * da + db * db);
    dEab = std::sqrt(dL * dL + da * da + db * db);

    const double C1 = std::sqrt(refA * refA + refB * refB);
    const double C2 = std::sqrt(a * a + b * b);
    dCab = C1 - C2;
    // Rounding can make the radicand a hair negative for pure lightness or
    // chroma differences; the hue difference is then zero.
    dHab = std::sqrt(std::max(0.0, dEab * dEab - dL * dL - dCab * dCab));
    const double Cg = std::sqrt(C1 * C2);
    const double hueTerm = dHab / (1.0 + 0.045 * Cg);
    const double chromaTerm = dCab / (1.0 + 0.015 * Cg);
    dE94chroma = std::sqrt(hueTerm * hueTerm + chromaTerm * chromaTerm);
    dE94 = std::sqrt(dL * dL + dE94chroma * dE94chroma);

    const Ciede2000 d = ciede2000(LabColor{refL, refA, refB}, LabColor{L, a, b});
    dE00 = d.dE00;
    dC00 = d.dC00;
    dH00 = d.dH00;
    computed = true;
}

QStdMacbethChartColorDifference::QStdMacbethChartColorDifference(QObject *parent)
    : QObject(parent)
{
    for (int i = 0; i < kMacbethPatchCount; ++i) {
        m_patches[i] = std::make_unique<MacbethPatch>();
        m_patches[i]->setReference(kReference[i].L, kReference[i].a, kReference[i].b);
    }
}

QStdMacbethChartColorDifference::~QStdMacbethChartColorDifference() = default;

void QStdMacbethChartColorDifference::referenceLab(int index, double &L, double &a, double &b)
{
    if (!validIndex(index)) {
        L = a = b = 0.0;
        return;
    }
    L = kReference[index].L;
    a = kReference[index].a;
    b = kReference[index].b;
}

bool QStdMacbethChartColorDifference::isRegionInside(const QImage &image, const QRect &rect)
{
    return isRegionValid(image, rect);
}

QColor QStdMacbethChartColorDifference::regionAverageColor(const QImage &image, const QRect &rect)
{
    // A rectangle with a zero or negative side can pass the corner test but
    // holds no pixels: it has no average.
    if (rect.width() <= 0 || rect.height() <= 0)
        return QColor();
    // regionMeanColor walks the inclusive rectangle pixel by pixel and stores
    // the fractions in a QColor, which keeps 16 bits per channel.
    return regionMeanColor(image, rect);
}

bool QStdMacbethChartColorDifference::setMeasuredRegions(const QImage &image, const Rects &rects)
{
    m_errorText.clear();
    bool ok = true;
    for (int i = 0; i < kMacbethPatchCount; ++i) {
        const QRect &rect = rects[i];
        const QColor colour = isRegionInside(image, rect) ? regionAverageColor(image, rect)
                                                          : QColor();
        if (colour.isValid()) {
            m_measured[i] = colour;
            m_patches[i]->setMeasured(colour.redF(), colour.greenF(), colour.blueF());
            m_patches[i]->region = rect;
        } else {
            ok = false;
            m_errorText += invalidRegionText(rect);
        }
    }
    return ok;
}

void QStdMacbethChartColorDifference::calculateStatistics()
{
    ColorDifferenceSummary &s = m_summary;
    s.dE00Average = s.dC00Average = s.dH00Average = 0.f;
    s.saturationAverage = 0.f;
    s.grayChromaAverage = s.grayROverGAverage = s.grayBOverGAverage = 0.f;

    std::array<float, kMacbethPatchCount> e00{}, c00{}, h00{}, sat{};
    for (int i = 0; i < kMacbethPatchCount; ++i) {
        MacbethPatch &p = *m_patches[i];
        p.compute();
        const float e = static_cast<float>(p.dE00);
        const float c = static_cast<float>(p.dC00);
        const float h = static_cast<float>(p.dH00);
        const float sa = static_cast<float>(p.saturation);
        e00[i] = e;
        c00[i] = c;
        h00[i] = h;
        sat[i] = sa;
        s.dE00Average += e;
        s.dC00Average += c;
        s.dH00Average += h;
        if (i < kMacbethColorPatchCount) {
            s.saturationAverage += sa;
        } else {
            s.grayChromaAverage = static_cast<float>(s.grayChromaAverage + p.chroma);
            s.grayROverGAverage = static_cast<float>(s.grayROverGAverage + p.rOverG);
            s.grayBOverGAverage = static_cast<float>(s.grayBOverGAverage + p.bOverG);
        }
        trackExtremes(i, e, s.dE00Minimum, s.dE00Maximum, s.dE00MinimumIndex, s.dE00MaximumIndex);
        trackExtremes(i, c, s.dC00Minimum, s.dC00Maximum, s.dC00MinimumIndex, s.dC00MaximumIndex);
        trackExtremes(i, h, s.dH00Minimum, s.dH00Maximum, s.dH00MinimumIndex, s.dH00MaximumIndex);
        // Both saturation extremes record into the minimum index; the maximum
        // index is left as it was, so no saturation cell is ever marked.
        trackExtremes(i, sa, s.saturationMinimum, s.saturationMaximum, s.saturationMinimumIndex,
                      s.saturationMinimumIndex);
    }
    s.dE00Average = static_cast<float>(s.dE00Average / 24.0);
    s.dC00Average = static_cast<float>(s.dC00Average / 24.0);
    s.dH00Average = static_cast<float>(s.dH00Average / 24.0);
    s.saturationAverage = static_cast<float>(s.saturationAverage / 18.0);
    s.grayChromaAverage = static_cast<float>(s.grayChromaAverage / 6.0);
    s.grayROverGAverage = static_cast<float>(s.grayROverGAverage / 6.0);
    s.grayBOverGAverage = static_cast<float>(s.grayBOverGAverage / 6.0);
    s.dE00Percentile95 = percentile95(e00);
    s.dC00Percentile95 = percentile95(c00);
    s.dH00Percentile95 = percentile95(h00);
    s.saturationPercentile95 = percentile95(sat);
}

MacbethPatch *QStdMacbethChartColorDifference::computedPatch(int index) const
{
    if (!validIndex(index))
        return nullptr;
    MacbethPatch *p = m_patches[index].get();
    p->compute();
    return p;
}

double QStdMacbethChartColorDifference::dE00(int index) const
{
    const MacbethPatch *p = computedPatch(index);
    return p ? p->dE00 : 0.0;
}

double QStdMacbethChartColorDifference::dC00(int index) const
{
    const MacbethPatch *p = computedPatch(index);
    return p ? p->dC00 : 0.0;
}

double QStdMacbethChartColorDifference::dH00(int index) const
{
    const MacbethPatch *p = computedPatch(index);
    return p ? p->dH00 : 0.0;
}

double QStdMacbethChartColorDifference::saturation(int index) const
{
    const MacbethPatch *p = computedPatch(index);
    return p ? p->saturation : 0.0;
}

double QStdMacbethChartColorDifference::regionArea(int index) const
{
    if (!validIndex(index))
        return 0.0;
    const QRect &r = m_patches[index]->region;
    return static_cast<double>(r.width()) * static_cast<double>(r.height());
}

void QStdMacbethChartColorDifference::getDE00(double *values, int n) const
{
    for (int i = 0; i < std::min(n, kMacbethPatchCount); ++i)
        values[i] = dE00(i);
}

void QStdMacbethChartColorDifference::getDC00(double *values, int n) const
{
    for (int i = 0; i < std::min(n, kMacbethPatchCount); ++i)
        values[i] = dC00(i);
}

void QStdMacbethChartColorDifference::getDH00(double *values, int n) const
{
    for (int i = 0; i < std::min(n, kMacbethPatchCount); ++i)
        values[i] = dH00(i);
}

void QStdMacbethChartColorDifference::getSaturation(double *values, int n) const
{
    for (int i = 0; i < std::min(n, kMacbethPatchCount); ++i)
        values[i] = saturation(i);
}

void QStdMacbethChartColorDifference::getMeasuredColors(QColor *colors, int n) const
{
    for (int i = 0; i < std::min(n, kMacbethPatchCount); ++i)
        colors[i] = m_measured[i];
}
