#include "ccm.h"

#include "ccm_solve.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace kestro::ccm {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double k25Pow7 = 6103515625.0;

// sRGB primaries to XYZ (scale 1) and the rounded reference white.
constexpr double kToXyz[3][3] = {{0.4124, 0.3576, 0.1805},
                                 {0.2126, 0.7152, 0.0722},
                                 {0.0193, 0.1192, 0.9505}};
constexpr double kWhite[3] = {95.0, 100.0, 108.9};
constexpr double kLabEpsilon = 0.008856;
constexpr double kLabKappa = 7.787;

// Clipping thresholds on the 0..1 channel fractions: within one code of the
// ends of the 8-bit range.
constexpr double kClipHigh = 254.0 / 255.0;
constexpr double kClipLow = 1.0 / 255.0;

// Relative determinant of XᵀX below which the patches are taken as not
// spanning the colours.
constexpr double kSingular = 1e-10;

// Rounds of the alternation between the matrix and the exposure.
constexpr int kMaxExposureRounds = 200;

double labF(double t)
{
    return t > kLabEpsilon ? std::cbrt(t) : kLabKappa * t + 16.0 / 116.0;
}

double labFInverse(double f)
{
    const double t = f * f * f;
    return t > kLabEpsilon ? t : (f - 16.0 / 116.0) / kLabKappa;
}

double det3(const Mat3 &m)
{
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1])
           - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0])
           + m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

Vec3 multiply(const Mat3 &m, const Vec3 &v)
{
    Vec3 out{};
    for (int r = 0; r < 3; ++r)
        out[r] = m[r][0] * v[0] + m[r][1] * v[1] + m[r][2] * v[2];
    return out;
}

bool finite3(const Vec3 &v)
{
    return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]);
}

// The fit's data: white-balanced, exposure-scaled measurements and their
// linear targets, for the patches of the fit.
struct FitData
{
    std::vector<Vec3> x;
    std::vector<Vec3> target;
    std::vector<Lab> targetLab;
    Mat3 xtx{};
};

// Least-squares rows summing to 1, with ridge λ; false when singular.
bool leastSquaresMatrix(const FitData &d, double lambda, Mat3 *m)
{
    std::vector<double> h(9);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            h[r * 3 + c] = d.xtx[r][c] + (r == c ? lambda : 0.0);
    std::vector<double> v = {1.0, 1.0, 1.0};
    if (!solveLinear(h, v, 3))
        return false;
    const double oneV = v[0] + v[1] + v[2];
    if (!(std::fabs(oneV) > 0.0))
        return false;
    for (int row = 0; row < 3; ++row) {
        std::vector<double> u(3, 0.0);
        for (size_t i = 0; i < d.x.size(); ++i)
            for (int c = 0; c < 3; ++c)
                u[c] += d.x[i][c] * d.target[i][row];
        if (!solveLinear(h, u, 3))
            return false;
        const double k = (1.0 - (u[0] + u[1] + u[2])) / oneV;
        for (int c = 0; c < 3; ++c)
            (*m)[row][c] = u[c] + v[c] * k;
    }
    return true;
}

Mat3 matrixFromParameters(const std::vector<double> &p)
{
    Mat3 m{};
    for (int r = 0; r < 3; ++r)
        m[r] = {p[2 * r], p[2 * r + 1], 1.0 - p[2 * r] - p[2 * r + 1]};
    return m;
}

// The ΔE fit over the six free coefficients (two per row; the third makes
// the row sum 1), from `m`. Residuals: ΔE00 of every patch, then √μ times
// each coefficient when there is a ridge.
int minimiseDeltaE(const FitData &d, double mu, Mat3 *m, double *exposure)
{
    std::vector<double> p(7, 1.0);
    for (int r = 0; r < 3; ++r) {
        p[2 * r] = (*m)[r][0];
        p[2 * r + 1] = (*m)[r][1];
    }
    const double root = std::sqrt(mu);
    const Residuals residuals = [&d, mu, root](const std::vector<double> &q,
                                               std::vector<double> &out) {
        const Mat3 matrix = matrixFromParameters(q);
        out.clear();
        for (size_t i = 0; i < d.x.size(); ++i) {
            Vec3 y = multiply(matrix, d.x[i]);
            for (double &v : y)
                v *= q[6];
            out.push_back(deltaE00(d.targetLab[i], linearRgbToLab(y)));
        }
        if (mu > 0.0)
            for (const Vec3 &row : matrix)
                for (double v : row)
                    out.push_back(root * v);
    };
    const int iterations = minimiseSumOfSquares(residuals, p);
    *m = matrixFromParameters(p);
    *exposure *= p[6];
    return iterations;
}

// How many squared ΔE00 units one squared unit of linear RGB error is worth
// on this chart: the squared ΔE00 of a small step of each channel at each
// target, averaged with the weights that the patches carry in the linear
// fit (their squared signal). It converts a ridge weighed against linear
// errors into one weighed against ΔE00.
double deltaEPerLinear(const FitData &d)
{
    constexpr double h = 1e-4;
    double weighted = 0.0, weights = 0.0;
    for (size_t i = 0; i < d.x.size(); ++i) {
        double s2 = 0.0;
        for (int c = 0; c < 3; ++c) {
            Vec3 step = d.target[i];
            step[c] += h;
            const double e = deltaE00(d.targetLab[i], linearRgbToLab(step)) / h;
            s2 += e * e / 3.0;
        }
        const double w = d.x[i][0] * d.x[i][0] + d.x[i][1] * d.x[i][1] + d.x[i][2] * d.x[i][2];
        weighted += w * s2;
        weights += w;
    }
    return weights > 0.0 ? weighted / weights : 0.0;
}

// Per channel, the gain k_c = Σ r_c m_c / Σ m_c² over the gray patches: least
// squares through the origin against the reference grays.
Vec3 grayGains(const std::array<Vec3, kPatchCount> &linear,
               const std::array<Vec3, kPatchCount> &target, const std::vector<int> &grays)
{
    Vec3 k{};
    for (int c = 0; c < 3; ++c) {
        double num = 0.0, den = 0.0;
        for (int i : grays) {
            num += target[i][c] * linear[i][c];
            den += linear[i][c] * linear[i][c];
        }
        k[c] = den > 0.0 ? num / den : 0.0;
    }
    return k;
}

FitData fitData(const std::array<Vec3, kPatchCount> &linear,
                const std::array<Vec3, kPatchCount> &target,
                const std::array<Lab, kPatchCount> &reference, const std::vector<int> &patches,
                const Vec3 &k)
{
    FitData d;
    for (int i : patches) {
        Vec3 x{};
        for (int c = 0; c < 3; ++c)
            x[c] = k[c] * linear[i][c];
        d.x.push_back(x);
        d.target.push_back(target[i]);
        d.targetLab.push_back(reference[i]);
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                d.xtx[r][c] += x[r] * x[c];
    }
    return d;
}

std::string format(const char *pattern, int value)
{
    char text[256];
    std::snprintf(text, sizeof text, pattern, value);
    return text;
}

} // namespace

double srgbDecode(double v)
{
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

Mat3 inverse(const Mat3 &m)
{
    const double det = det3(m);
    Mat3 inv{};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            const int r1 = (c + 1) % 3, r2 = (c + 2) % 3, c1 = (r + 1) % 3, c2 = (r + 2) % 3;
            inv[r][c] = (m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1]) / det;
        }
    return inv;
}

Lab linearRgbToLab(const Vec3 &rgb)
{
    double f[3];
    for (int r = 0; r < 3; ++r) {
        const double xyz = 100.0
                           * (kToXyz[r][0] * rgb[0] + kToXyz[r][1] * rgb[1] + kToXyz[r][2] * rgb[2]);
        f[r] = labF(xyz / kWhite[r]);
    }
    return {116.0 * f[1] - 16.0, 500.0 * (f[0] - f[1]), 200.0 * (f[1] - f[2])};
}

Vec3 labToLinearRgb(const Lab &lab)
{
    // Inverse of the primaries, computed once.
    static const Mat3 toRgb = [] {
        Mat3 m{};
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                m[r][c] = kToXyz[r][c];
        return inverse(m);
    }();
    const double fy = (lab.L + 16.0) / 116.0;
    const double f[3] = {fy + lab.a / 500.0, fy, fy - lab.b / 200.0};
    Vec3 xyz{};
    for (int r = 0; r < 3; ++r)
        xyz[r] = labFInverse(f[r]) * kWhite[r] / 100.0;
    return multiply(toRgb, xyz);
}

double deltaE00(const Lab &reference, const Lab &sample)
{
    const double L1 = reference.L, a1 = reference.a, b1 = reference.b;
    const double L2 = sample.L, a2 = sample.a, b2 = sample.b;
    auto pow7 = [](double x) { return x * x * x * x * x * x * x; };
    const double cBar7 = pow7((std::sqrt(a1 * a1 + b1 * b1) + std::sqrt(a2 * a2 + b2 * b2)) / 2.0);
    const double g = 0.5 * (1.0 - std::sqrt(cBar7 / (cBar7 + k25Pow7)));
    const double a1p = a1 * (1.0 + g), a2p = a2 * (1.0 + g);
    const double c1p = std::sqrt(a1p * a1p + b1 * b1), c2p = std::sqrt(a2p * a2p + b2 * b2);
    auto hue = [](double b, double a) {
        if (b == 0.0 && a == 0.0)
            return 0.0;
        const double h = std::atan2(b, a);
        return h < 0.0 ? h + 2.0 * kPi : h;
    };
    const double h1 = hue(b1, a1p), h2 = hue(b2, a2p);
    const double cc = c1p * c2p;
    double dh = 0.0;
    if (cc != 0.0) {
        dh = h2 - h1;
        if (dh > kPi)
            dh -= 2.0 * kPi;
        else if (dh < -kPi)
            dh += 2.0 * kPi;
    }
    const double dL = L2 - L1, dC = c2p - c1p;
    const double dH = 2.0 * std::sqrt(cc) * std::sin(dh / 2.0);
    double hBar = h1 + h2;
    if (cc != 0.0) {
        hBar /= 2.0;
        if (std::fabs(h1 - h2) > kPi) {
            hBar -= kPi;
            if (hBar < 0.0)
                hBar += 2.0 * kPi;
        }
    }
    const double deg = kPi / 180.0;
    const double t = 1.0 - 0.17 * std::cos(hBar - 30.0 * deg) + 0.24 * std::cos(2.0 * hBar)
                     + 0.32 * std::cos(3.0 * hBar + 6.0 * deg)
                     - 0.20 * std::cos(4.0 * hBar - 63.0 * deg);
    const double theta = 30.0 * deg * std::exp(-std::pow((hBar / deg - 275.0) / 25.0, 2.0));
    const double cBarP = (c1p + c2p) / 2.0;
    const double cBarP7 = pow7(cBarP);
    const double rc = 2.0 * std::sqrt(cBarP7 / (cBarP7 + k25Pow7));
    const double lm = ((L1 + L2) / 2.0 - 50.0) * ((L1 + L2) / 2.0 - 50.0);
    const double sl = 1.0 + 0.015 * lm / std::sqrt(20.0 + lm);
    const double sc = 1.0 + 0.045 * cBarP;
    const double sh = 1.0 + 0.015 * cBarP * t;
    const double rt = -std::sin(2.0 * theta) * rc;
    const double l = dL / sl, c = dC / sc, h = dH / sh;
    return std::sqrt(l * l + c * c + h * h + rt * c * h);
}

Stats summarize(std::vector<double> values)
{
    Stats s;
    if (values.empty())
        return s;
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    double sum = 0.0;
    for (double v : values)
        sum += v;
    s.mean = sum / n;
    s.max = values.back();
    s.p95 = n >= 2 ? 0.7 * values[n - 2] + 0.3 * values[n - 1] : values[0];
    return s;
}

Vec3 applyCorrection(const Result &result, const Vec3 &linearMeasured)
{
    Vec3 x{};
    for (int c = 0; c < 3; ++c)
        x[c] = result.exposure * result.gains[c] * linearMeasured[c];
    return multiply(result.matrix, x);
}

Result computeCorrection(const Chart &chart, const Options &options)
{
    Result result;
    result.fit = options.fit;
    result.ridge = options.ridge;
    if (!std::isfinite(options.ridge) || options.ridge < 0.0 || options.ridge > 1e6) {
        result.error = "The ridge must be a number from 0 to 1000000.";
        return result;
    }
    int measured = 0;
    for (const Vec3 &m : chart.measured)
        measured += finite3(m) ? 1 : 0;
    if (measured < kPatchCount) {
        result.error = format("Only %d of the 24 patches have been measured: a color correction "
                              "needs the whole chart.",
                              measured);
        return result;
    }

    std::array<Vec3, kPatchCount> linear{}, target{};
    std::array<bool, kPatchCount> used{};
    for (int i = 0; i < kPatchCount; ++i) {
        const Vec3 &m = chart.measured[i];
        used[i] = true;
        for (int c = 0; c < 3; ++c) {
            linear[i][c] = srgbDecode(m[c]);
            if (m[c] > kClipHigh || m[c] < kClipLow)
                used[i] = false;
        }
        if (!used[i])
            result.excluded.push_back(i + 1);
        target[i] = labToLinearRgb(chart.reference[i]);
        Lab before = linearRgbToLab(linear[i]);
        result.deltaE00Before[i] = deltaE00(chart.reference[i], before);
    }
    if (result.excluded.size() == static_cast<size_t>(kPatchCount)) {
        result.error = "Every patch is clipped (a channel at 0 or 255): expose the chart so that "
                       "no patch is black or saturated.";
        return result;
    }

    // White balance from the unclipped gray patches alone, before any
    // matrix: the gains bring them onto the reference grays, so that the
    // matrix, whose rows sum to 1, keeps them where they are.
    std::vector<int> grays, fitted;
    for (int i = 0; i < kPatchCount; ++i)
        if (used[i])
            (i >= kFirstGrayPatch ? grays : fitted).push_back(i);
    fitted.insert(fitted.end(), grays.begin(), grays.end());
    if (grays.empty()) {
        result.error = "All six gray patches are clipped (a channel at 0 or 255): the white "
                       "balance cannot be measured.";
        return result;
    }
    const Vec3 k = grayGains(linear, target, grays);
    if (!(k[0] > 0.0 && k[1] > 0.0 && k[2] > 0.0) || !finite3(k)) {
        result.error = "The gray patches give no usable white balance (a channel without signal).";
        return result;
    }
    result.gains = {k[0] / k[1], 1.0, k[2] / k[1]};
    result.exposure = k[1];
    result.fittedPatches = static_cast<int>(fitted.size());
    FitData d = fitData(linear, target, chart.reference, fitted, k);
    double scale = (d.xtx[0][0] + d.xtx[1][1] + d.xtx[2][2]) / 3.0;
    if (!(scale > 0.0) || !(det3(d.xtx) / (scale * scale * scale) > kSingular)) {
        result.error = "The patches do not span the colors (they are all of nearly one color): "
                       "no matrix can be fitted.";
        return result;
    }
    // Matrix and exposure in turn: the matrix for the current exposure,
    // then the common scale that suits every patch of the fit through that
    // matrix, until the exposure settles.
    Mat3 m{};
    double lambda = 0.0;
    for (int round = 0; round < kMaxExposureRounds; ++round) {
        lambda = options.ridge * scale;
        if (!leastSquaresMatrix(d, lambda, &m)) {
            result.error = "The least-squares system is singular: no matrix can be fitted.";
            return result;
        }
        double num = 0.0, den = 0.0;
        for (size_t i = 0; i < d.x.size(); ++i) {
            const Vec3 y = multiply(m, d.x[i]);
            for (int c = 0; c < 3; ++c) {
                num += y[c] * d.target[i][c];
                den += y[c] * y[c];
            }
        }
        if (!(num > 0.0) || !(den > 0.0)) {
            result.error = "The patches give no usable exposure.";
            return result;
        }
        const double factor = num / den;
        result.exposure *= factor;
        Vec3 scaled{};
        for (int c = 0; c < 3; ++c)
            scaled[c] = result.exposure * result.gains[c];
        d = fitData(linear, target, chart.reference, fitted, scaled);
        scale = (d.xtx[0][0] + d.xtx[1][1] + d.xtx[2][2]) / 3.0;
        if (std::fabs(factor - 1.0) < 1e-13)
            break;
    }
    lambda = options.ridge * scale;
    if (!leastSquaresMatrix(d, lambda, &m)) {
        result.error = "The least-squares system is singular: no matrix can be fitted.";
        return result;
    }
    if (options.fit == Fit::MinimumDeltaE)
        result.iterations = minimiseDeltaE(d, lambda * deltaEPerLinear(d), &m, &result.exposure);
    result.matrix = m;
    for (int r = 0; r < 3; ++r)
        result.noiseGain[r] = std::sqrt(m[r][0] * m[r][0] + m[r][1] * m[r][1] + m[r][2] * m[r][2]);

    std::vector<double> before, after;
    for (int i = 0; i < kPatchCount; ++i) {
        result.deltaE00After[i] = deltaE00(chart.reference[i],
                                           linearRgbToLab(applyCorrection(result, linear[i])));
        if (used[i]) {
            before.push_back(result.deltaE00Before[i]);
            after.push_back(result.deltaE00After[i]);
        }
    }
    result.before = summarize(before);
    result.after = summarize(after);
    for (double v : result.noiseGain)
        if (!std::isfinite(v)) {
            result.error = "The fit did not converge to a finite matrix.";
            return result;
        }
    result.ok = true;
    return result;
}

} // namespace kestro::ccm
