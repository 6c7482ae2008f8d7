#include "platform/chartdetect/chartverify.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>

namespace kestro::chartdetect {

namespace {

constexpr int kLattice = 7; // samples per side of a patch

double luma(const double *rgb)
{
    return 0.2126 * rgb[0] + 0.7152 * rgb[1] + 0.0722 * rgb[2];
}

double correlation(const double *a, const double *b, int n)
{
    double ma = 0, mb = 0;
    for (int i = 0; i < n; ++i)
        ma += a[i], mb += b[i];
    ma /= n, mb /= n;
    double sab = 0, saa = 0, sbb = 0;
    for (int i = 0; i < n; ++i) {
        sab += (a[i] - ma) * (b[i] - mb);
        saa += (a[i] - ma) * (a[i] - ma);
        sbb += (b[i] - mb) * (b[i] - mb);
    }
    if (saa <= 0 || sbb <= 0)
        return 0.0;
    return sab / std::sqrt(saa * sbb);
}

// The eight orderings of four corners: four rotations, each also mirrored.
constexpr int kOrderings[8][4] = {{0, 1, 2, 3}, {1, 2, 3, 0}, {2, 3, 0, 1}, {3, 0, 1, 2},
                                  {0, 3, 2, 1}, {3, 2, 1, 0}, {2, 1, 0, 3}, {1, 0, 3, 2}};

} // namespace

PatchColours samplePatches(const cv::Mat &bgr, const Homography &h, double fraction)
{
    PatchColours out;
    for (int i = 0; i < kPatchCount; ++i) {
        const Point2 c = patchGridCentre(i);
        double sum[3] = {0, 0, 0}, sq[3] = {0, 0, 0};
        int n = 0;
        for (int a = 0; a < kLattice; ++a) {
            for (int b = 0; b < kLattice; ++b) {
                const double u = c.x + (double(b) / (kLattice - 1) - 0.5) * fraction;
                const double v = c.y + (double(a) / (kLattice - 1) - 0.5) * fraction;
                Point2 p;
                if (!mapPoint(h, u, v, p))
                    return out;
                const int x = static_cast<int>(std::floor(p.x));
                const int y = static_cast<int>(std::floor(p.y));
                if (x < 1 || y < 1 || x >= bgr.cols - 1 || y >= bgr.rows - 1)
                    return out;
                // A sample is the mean of the 3 x 3 pixels around the point:
                // pixel noise would otherwise count as spread inside the
                // patch, and a noisy picture of a flat patch is still flat.
                int box[3] = {0, 0, 0};
                for (int dy = -1; dy <= 1; ++dy) {
                    const cv::Vec3b *row = bgr.ptr<cv::Vec3b>(y + dy) + x;
                    for (int dx = -1; dx <= 1; ++dx)
                        for (int k = 0; k < 3; ++k)
                            box[k] += row[dx][2 - k];
                }
                for (int k = 0; k < 3; ++k) {
                    const double value = box[k] / (9 * 255.0);
                    sum[k] += value;
                    sq[k] += value * value;
                }
                ++n;
            }
        }
        double variance = 0;
        for (int k = 0; k < 3; ++k) {
            out.mean[i][k] = sum[k] / n;
            variance += std::max(0.0, sq[k] / n - out.mean[i][k] * out.mean[i][k]);
        }
        out.spread[i] = std::sqrt(variance / 3);
    }
    out.ok = true;
    return out;
}

Verdict judge(const PatchColours &colours, bool strict)
{
    Verdict v;
    if (!colours.ok)
        return v;

    // One affine colour transform from the measured to the reference colours.
    cv::Mat a(kPatchCount, 4, CV_64F), b(kPatchCount, 3, CV_64F);
    double refMean[3] = {0, 0, 0};
    for (int i = 0; i < kPatchCount; ++i) {
        for (int k = 0; k < 3; ++k) {
            a.at<double>(i, k) = colours.mean[i][k];
            b.at<double>(i, k) = kReferenceSrgb[i][k] / 255.0;
            refMean[k] += b.at<double>(i, k) / kPatchCount;
        }
        a.at<double>(i, 3) = 1.0;
    }
    cv::Mat x;
    if (!cv::solve(a, b, x, cv::DECOMP_SVD))
        return v;
    const cv::Mat fitted = a * x;
    double unexplained = 0, total = 0;
    for (int i = 0; i < kPatchCount; ++i) {
        for (int k = 0; k < 3; ++k) {
            const double e = fitted.at<double>(i, k) - b.at<double>(i, k);
            const double d = b.at<double>(i, k) - refMean[k];
            unexplained += e * e;
            total += d * d;
        }
    }
    v.residual = total > 0 ? unexplained / total : 1.0;

    // Patches are flat: the spread inside them is small against the spread
    // between them.
    double between = 0, inside = 0, mean[3] = {0, 0, 0};
    for (int i = 0; i < kPatchCount; ++i) {
        for (int k = 0; k < 3; ++k)
            mean[k] += colours.mean[i][k] / kPatchCount;
        inside += colours.spread[i] / kPatchCount;
    }
    for (int i = 0; i < kPatchCount; ++i) {
        for (int k = 0; k < 3; ++k)
            between += (colours.mean[i][k] - mean[k]) * (colours.mean[i][k] - mean[k]);
    }
    between = std::sqrt(between / (3 * kPatchCount));
    v.uniformity = between > 1e-6 ? inside / between : 1e9;
    double worst = 0;
    for (int i = 0; i < kPatchCount; ++i)
        worst = std::max(worst, colours.spread[i]);
    v.worstPatch = between > 1e-6 ? worst / between : 1e9;

    double measuredLuma[kPatchCount], referenceLuma[kPatchCount];
    for (int i = 0; i < kPatchCount; ++i) {
        measuredLuma[i] = luma(colours.mean[i]);
        double ref[3];
        for (int k = 0; k < 3; ++k)
            ref[k] = kReferenceSrgb[i][k] / 255.0;
        referenceLuma[i] = luma(ref);
    }
    v.lumaCorrelation = correlation(measuredLuma, referenceLuma, kPatchCount);

    // The gray row darkens from white to black; its chromaticity varies far
    // less than that of the colour patches.
    const double step = 0.1 * (measuredLuma[18] - measuredLuma[23]) / 5.0;
    v.grayOrderErrors = 0;
    for (int i = 18; i < 23; ++i) {
        if (!(measuredLuma[i] - measuredLuma[i + 1] > step))
            ++v.grayOrderErrors;
    }
    auto chroma = [&](int i, double &r, double &g) {
        const double s = colours.mean[i][0] + colours.mean[i][1] + colours.mean[i][2] + 1e-6;
        r = colours.mean[i][0] / s;
        g = colours.mean[i][1] / s;
    };
    auto chromaSpread = [&](int first, int last) {
        double mr = 0, mg = 0;
        const int n = last - first;
        for (int i = first; i < last; ++i) {
            double r, g;
            chroma(i, r, g);
            mr += r / n, mg += g / n;
        }
        double s = 0;
        for (int i = first; i < last; ++i) {
            double r, g;
            chroma(i, r, g);
            s += (r - mr) * (r - mr) + (g - mg) * (g - mg);
        }
        return std::sqrt(s / n);
    };
    const double colourSpread = chromaSpread(0, 18);
    v.grayChroma = colourSpread > 1e-6 ? chromaSpread(18, 23) / colourSpread : 1.0;

    v.score = std::max(0.0, 1.0 - v.residual) * std::max(0.0, 1.0 - v.uniformity)
              * std::max(0.0, 1.0 - v.grayChroma);
    if (strict)
        v.accepted = v.residual < 0.1 && v.uniformity < 0.15 && v.worstPatch < 0.5
                     && v.lumaCorrelation > 0.9 && v.grayOrderErrors == 0 && v.grayChroma < 0.3;
    else
        v.accepted = v.residual < 0.15 && v.uniformity < 0.3 && v.lumaCorrelation > 0.85
                     && v.grayOrderErrors <= 1 && v.grayChroma < 0.4;
    return v;
}

bool bestOrientation(const cv::Mat &bgr, const Point2 corners[4], Homography &h, Verdict &verdict)
{
    bool any = false;
    verdict = Verdict();
    for (const auto &order : kOrderings) {
        const Point2 ordered[4] = {corners[order[0]], corners[order[1]], corners[order[2]],
                                   corners[order[3]]};
        Homography candidate;
        if (!gridHomography(ordered, candidate))
            continue;
        const Verdict v = judge(samplePatches(bgr, candidate, 0.4));
        if (!any || v.score > verdict.score) {
            verdict = v;
            h = candidate;
            any = true;
        }
    }
    return any;
}

} // namespace kestro::chartdetect
