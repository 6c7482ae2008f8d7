// Colour correction on the shared chart photographs (regions placed by chart
// detection, colours measured by the colour difference model), against the
// published fits computed here on the same patches:
//   - linear least squares, an unconstrained 3×3 on linear RGB (Cheung,
//     Westland, Connah and Ripamonti, Coloration Technology 120, 2004);
//   - root-polynomial regression of degree 2, a 3×6 matrix on R, G, B, √RG,
//     √GB, √RB (Finlayson, Mackiewicz and Hurlbert, IEEE Trans. Image
//     Processing 24(5), 2015);
//   - an unconstrained 3×3 minimising the squared ΔE00, started from the
//     linear least squares.
// Each benchmark fits every photograph once per iteration; the counters are
// the mean over the photographs of the mean and maximum ΔE00 after the fit
// (over the unclipped patches, the training patches themselves) and of the
// gray patches' a*b* distance to their references ("grayTint"). After the runs a table per photograph is
// printed.
//
//   build/bench/bench_ccm

#include "imaging/imageload.h"
#include "imaging/region.h"
#include "measure/color/macbethcolordifference.h"
#include "platform/chartdetect/chartdetect.h"
#include "platform/chartdetect/qimagebuffer.h"
#include "platform/colorcal/ccm.h"
#include "platform/colorcal/ccm_solve.h"

#include <QDir>
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using namespace kestro;

struct Photo
{
    std::string name;
    ccm::Chart chart;
};

const std::vector<Photo> &photos()
{
    static const std::vector<Photo> all = [] {
        std::vector<Photo> list;
        const QDir dir(QStringLiteral(KESTRO_CHARTS_DIR));
        for (const QString &name : dir.entryList({QStringLiteral("*.jpg"), QStringLiteral("*.png")},
                                                 QDir::Files, QDir::Name)) {
            const QImage image = loadImage(dir.filePath(name)).convertToFormat(QImage::Format_RGB32);
            const auto buffer = chartdetect::packedBgrBuffer(image);
            ColorCheckerROI regions[24] = {};
            unsigned char keepRunning = 1;
            if (!buffer
                || FindColorCheckerROIsFromMemory(buffer.get(), image.width(), image.height(),
                                                  regions, &keepRunning)
                           != 24)
                continue;
            QStdMacbethChartColorDifference model;
            QStdMacbethChartColorDifference::Rects rects;
            for (int i = 0; i < 24; ++i)
                rects[i] = alignedRect(QRectF(regions[i].x, regions[i].y - regions[i].height,
                                              regions[i].width, regions[i].height));
            if (!model.setMeasuredRegions(image, rects))
                continue;
            Photo photo;
            photo.name = name.toStdString();
            for (int i = 0; i < 24; ++i) {
                const MacbethPatch &p = model.patch(i);
                photo.chart.measured[i] = {p.R, p.G, p.B};
                photo.chart.reference[i] = {p.refL, p.refA, p.refB};
            }
            list.push_back(photo);
        }
        return list;
    }();
    return all;
}

enum FitKind { OursLs, OursDe00, OursLsRidge, LinearLs, RootPolynomial, Unconstrained3x3De00 };
const char *const kFitNames[] = {"ours least squares",      "ours minimum dE00",
                                 "ours least squares 0.01", "linear least squares 3x3",
                                 "root-polynomial 2",       "minimum dE00 3x3 free"};

struct Figures
{
    double mean = 0.0, max = 0.0;
    double grayTint = 0.0; // mean a*b* distance of the gray patches to theirs
};

// How far the corrected gray patches among `patches` (zero-based) are from
// their references in a* and b*: what keeping neutrals neutral is about.
template<typename Corrected>
double grayTint(const ccm::Chart &chart, const std::vector<int> &patches, Corrected corrected)
{
    double sum = 0.0;
    int n = 0;
    for (int i : patches)
        if (i >= ccm::kFirstGrayPatch) {
            const ccm::Lab lab = ccm::linearRgbToLab(corrected(i));
            sum += std::hypot(lab.a - chart.reference[i].a, lab.b - chart.reference[i].b);
            ++n;
        }
    return n ? sum / n : 0.0;
}

// Features of the published fits: linear RGB, or the root-polynomial terms.
std::vector<double> features(const ccm::Vec3 &m, bool rootPolynomial)
{
    if (!rootPolynomial)
        return {m[0], m[1], m[2]};
    auto root = [](double a, double b) { return std::sqrt(std::max(0.0, a * b)); };
    return {m[0], m[1], m[2], root(m[0], m[1]), root(m[1], m[2]), root(m[0], m[2])};
}

// A published fit on the patches our fit used; mean and max ΔE00 after it.
Figures publishedFit(const ccm::Chart &chart, const ccm::Result &ours, FitKind kind)
{
    std::vector<int> patches;
    for (int i = 0; i < 24; ++i)
        if (std::find(ours.excluded.begin(), ours.excluded.end(), i + 1) == ours.excluded.end())
            patches.push_back(i);
    const bool rp = kind == RootPolynomial;
    const int n = rp ? 6 : 3;
    std::vector<ccm::Vec3> linear(24);
    for (int i = 0; i < 24; ++i)
        for (int c = 0; c < 3; ++c)
            linear[i][c] = ccm::srgbDecode(chart.measured[i][c]);
    // Least squares per output channel from the normal equations.
    std::vector<double> a(n * n, 0.0), w(3 * n);
    for (int i : patches) {
        const std::vector<double> f = features(linear[i], rp);
        for (int r = 0; r < n; ++r)
            for (int c = 0; c < n; ++c)
                a[r * n + c] += f[r] * f[c];
    }
    for (int out = 0; out < 3; ++out) {
        std::vector<double> b(n, 0.0);
        for (int i : patches) {
            const std::vector<double> f = features(linear[i], rp);
            const double t = ccm::labToLinearRgb(chart.reference[i])[out];
            for (int r = 0; r < n; ++r)
                b[r] += f[r] * t;
        }
        ccm::solveLinear(a, b, n);
        std::copy(b.begin(), b.end(), w.begin() + out * n);
    }
    auto correct = [&](const std::vector<double> &coefficients, int i) {
        const std::vector<double> f = features(linear[i], rp);
        ccm::Vec3 y{};
        for (int out = 0; out < 3; ++out)
            for (int r = 0; r < n; ++r)
                y[out] += coefficients[out * n + r] * f[r];
        return y;
    };
    auto apply = [&](const std::vector<double> &coefficients, int i) {
        return ccm::deltaE00(chart.reference[i], ccm::linearRgbToLab(correct(coefficients, i)));
    };
    if (kind == Unconstrained3x3De00) {
        ccm::minimiseSumOfSquares(
                [&](const std::vector<double> &p, std::vector<double> &out) {
                    out.clear();
                    for (int i : patches)
                        out.push_back(apply(p, i));
                },
                w);
    }
    std::vector<double> de;
    for (int i : patches)
        de.push_back(apply(w, i));
    const ccm::Stats s = ccm::summarize(de);
    return {s.mean, s.max, grayTint(chart, patches, [&](int i) { return correct(w, i); })};
}

Figures fit(const Photo &photo, FitKind kind)
{
    const ccm::Options options = {kind == OursDe00 ? ccm::Fit::MinimumDeltaE
                                                   : ccm::Fit::LeastSquares,
                                  kind == OursLsRidge ? 0.01 : 0.0};
    const ccm::Result ours = ccm::computeCorrection(photo.chart, options);
    if (kind <= OursLsRidge) {
        std::vector<int> patches;
        for (int i = 0; i < 24; ++i)
            if (std::find(ours.excluded.begin(), ours.excluded.end(), i + 1) == ours.excluded.end())
                patches.push_back(i);
        return {ours.after.mean, ours.after.max, grayTint(photo.chart, patches, [&](int i) {
                    ccm::Vec3 linear{};
                    for (int c = 0; c < 3; ++c)
                        linear[c] = ccm::srgbDecode(photo.chart.measured[i][c]);
                    return ccm::applyCorrection(ours, linear);
                })};
    }
    return publishedFit(photo.chart, ours, kind);
}

void BM_Photographs(benchmark::State &state)
{
    const auto kind = static_cast<FitKind>(state.range(0));
    const std::vector<Photo> &all = photos();
    Figures sum;
    for (auto _ : state) {
        sum = Figures();
        for (const Photo &p : all) {
            const Figures f = fit(p, kind);
            sum.mean += f.mean;
            sum.max += f.max;
            sum.grayTint += f.grayTint;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetLabel(kFitNames[kind]);
    state.counters["photos"] = static_cast<double>(all.size());
    state.counters["meanDE00"] = all.empty() ? 0.0 : sum.mean / all.size();
    state.counters["maxDE00"] = all.empty() ? 0.0 : sum.max / all.size();
    state.counters["grayTint"] = all.empty() ? 0.0 : sum.grayTint / all.size();
}
BENCHMARK(BM_Photographs)->DenseRange(0, 5)->Unit(benchmark::kMillisecond);

void printTable()
{
    std::printf("\nmean dE00 per photograph (before, then after each fit):\n%-36s %7s", "photo",
                "before");
    for (const char *name : kFitNames)
        std::printf(" | %s", name);
    std::printf("\n");
    for (const Photo &p : photos()) {
        std::printf("%-36s %7.2f", p.name.c_str(), ccm::computeCorrection(p.chart).before.mean);
        for (int k = 0; k <= Unconstrained3x3De00; ++k)
            std::printf(" | %5.2f", fit(p, static_cast<FitKind>(k)).mean);
        std::printf("\n");
    }
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    printTable();
    return 0;
}
