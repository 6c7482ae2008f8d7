#pragma once
// Colour difference of a 24-patch Macbeth ColorChecker: per-patch measured
// colour, L*a*b*, CIEDE2000 and related differences against the fixed
// reference chart, saturation, gray-patch white-balance ratios and the
// summary statistics that the tab, the reports and the batch runner read.

#include <QColor>
#include <QImage>
#include <QObject>
#include <QRect>
#include <QString>

#include <array>
#include <cstdint>
#include <memory>

namespace kestro {
constexpr int kMacbethPatchCount = 24;
constexpr int kMacbethColorPatchCount = 18; // patches 1..18; 19..24 are the gray row
constexpr int kMacbethFirstGrayPatch = 18;  // zero-based index of patch 19
} // namespace kestro

// One patch: reference and measured colour, conversions and differences.
// All values start at zero except the two ratios (1.0) and linearise (true).
struct MacbethPatch
{
    bool linearise = true; // decode the measured colour with the sRGB curve
    bool hasReference = false;
    bool hasMeasured = false;
    bool outOfRange = false; // a channel fraction above 254.0 or below 1.0
    bool computed = false;   // the differences below are up to date

    double refL = 0.0, refA = 0.0, refB = 0.0;
    double L = 0.0, a = 0.0, b = 0.0;
    double dE00 = 0.0;
    double dH00 = 0.0;
    double dC00 = 0.0;
    double dL = 0.0;
    double dAB = 0.0;
    double dE94chroma = 0.0;
    double dEab = 0.0;
    double dE94 = 0.0;
    double dHab = 0.0;
    double dCab = 0.0;
    double saturation = 0.0;
    double chroma = 0.0;
    double rOverG = 1.0;
    double bOverG = 1.0;
    double R = 0.0, G = 0.0, B = 0.0;
    double linR = 0.0, linG = 0.0, linB = 0.0;
    QRect region;

    void setReference(double refL, double refA, double refB);
    // Channel fractions 0..1; runs the L*a*b*, saturation and ratio conversions.
    void setMeasured(double r, double g, double b);
    // Computes the differences when both colours are set and the cache is stale.
    void compute();
};

struct ColorDifferenceSummary
{
    float dE00Average = 0.f, dE00Minimum = 0.f, dE00Maximum = 0.f, dE00Percentile95 = 0.f;
    float dC00Average = 0.f, dC00Minimum = 0.f, dC00Maximum = 0.f, dC00Percentile95 = 0.f;
    float dH00Average = 0.f, dH00Minimum = 0.f, dH00Maximum = 0.f, dH00Percentile95 = 0.f;
    // Zero-based patch indices; -1 until a measurement writes them.
    std::int32_t dE00MinimumIndex = -1, dE00MaximumIndex = -1;
    std::int32_t dC00MinimumIndex = -1, dC00MaximumIndex = -1;
    std::int32_t dH00MinimumIndex = -1, dH00MaximumIndex = -1;
    std::int32_t saturationMinimumIndex = -1, saturationMaximumIndex = -1;
    float saturationAverage = 0.f; // colour patches 1..18 only
    float saturationMinimum = 0.f, saturationMaximum = 0.f, saturationPercentile95 = 0.f;
    float grayChromaAverage = 0.f;
    float grayROverGAverage = 0.f;
    float grayBOverGAverage = 0.f;
};

class QStdMacbethChartColorDifference : public QObject
{
    Q_OBJECT
public:
    using Rects = std::array<QRect, kestro::kMacbethPatchCount>;

    explicit QStdMacbethChartColorDifference(QObject *parent = nullptr);
    ~QStdMacbethChartColorDifference() override;

    // The reference L*a*b* of patch `index` (zero-based) of the chart.
    static void referenceLab(int index, double &L, double &a, double &b);

    // Averages each rectangle of `image` into its patch. Returns false when
    // any rectangle is unusable; the error text then lists every unusable
    // rectangle, and the usable ones are measured all the same.
    bool setMeasuredRegions(const QImage &image, const Rects &rects);
    // Computes every patch and the summary (after setMeasuredRegions succeeded).
    void calculateStatistics();
    QString errorText() const { return m_errorText; }

    // Per-patch metrics by zero-based index; they compute the patch first when
    // its cache is stale. Out-of-range indices give 0.
    double dE00(int index) const;
    double dC00(int index) const;
    double dH00(int index) const;
    double saturation(int index) const;
    double regionArea(int index) const;

    // Fill min(n, 24) entries of a caller's array.
    void getDE00(double *values, int n) const;
    void getDC00(double *values, int n) const;
    void getDH00(double *values, int n) const;
    void getSaturation(double *values, int n) const;
    void getMeasuredColors(QColor *colors, int n) const;

    // The 24 records (computing them lazily is the getters' business).
    MacbethPatch &patch(int index) { return *m_patches[index]; }
    const MacbethPatch &patch(int index) const { return *m_patches[index]; }
    const QColor &measuredColor(int index) const { return m_measured[index]; }

    ColorDifferenceSummary &summary() { return m_summary; }
    const ColorDifferenceSummary &summary() const { return m_summary; }

    // The average colour of a usable rectangle as a 16-bit-per-channel colour;
    // an invalid colour for an unusable one.
    static QColor regionAverageColor(const QImage &image, const QRect &rect);
    static bool isRegionInside(const QImage &image, const QRect &rect);

private:
    MacbethPatch *computedPatch(int index) const;

    std::array<QColor, kestro::kMacbethPatchCount> m_measured;
    std::array<QColor, kestro::kMacbethPatchCount> m_secondary; // kept invalid
    std::array<std::unique_ptr<MacbethPatch>, kestro::kMacbethPatchCount> m_patches;
    ColorDifferenceSummary m_summary;
    QString m_errorText;
};
