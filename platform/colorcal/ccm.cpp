#include "ccm.h"

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

// Rounds of the alternation between the matrix and the gray gains.
constexpr int kMaxGainRounds = 200;

double labF(double t)
{
    return t > kLabEpsilon ? std::cbrt(t) : kLabKappa * t + 16.0 / 116.0;
}

double labFInverse(double f)
{
    const double t = f * f * f;
    return t > kLabEpsilon ? t : (f - 16.0 / 116.0) / kLabKappa;
}

// Solves the n×n system a·x = b in place by Gaussian elimination with partial
// pivoting (row-major a); false when a pivot vanishes.
bool solve(std::vector<double> a, std::vector<double> &b, int n)
{
    for (int col = 0; col < n; ++col) {
        int pivot = col;
        for (int r = col + 1; r < n; ++r)
            if (std::fabs(a[r * n + col]) > std::fabs(a[pivot * n + col]))
                pivot = r;
        if (!(std::fabs(a[pivot * n + col]) > 0.0))
            return false;
        if (pivot != col) {
            for (int c = 0; c < n; ++c)
                std::swap(a[col * n + c], a[pivot * n + c]);
            std::swap(b[col], b[pivot]);
        }
        for (int r = col + 1; r < n; ++r) {
            const double f = a[r * n + col] / a[col * n + col];
            for (int c = col; c < n; ++c)
                a[r * n + c] -= f * a[col * n + c];
            b[r] -= f * b[col];
        }
    }
    for (int r = n - 1; r >= 0; --r) {
        double s = b[r];
        for (int c = r + 1; c < n; ++c)
            s -= a[r * n + c] * b[c];
        b[r] = s / a[r * n + r];
    }
    return true;
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
    if (!solve(h, v, 3))
        return false;
    const double oneV = v[0] + v[1] + v[2];
    if (!(std::fabs(oneV) > 0.0))
        return false;
    for (int row = 0; row < 3; ++row) {
        std::vector<double> u(3, 0.0);
        for (size_t i = 0; i < d.x.size(); ++i)
            for (int c = 0; c < 3; ++c)
                u[c] += d.x[i][c] * d.target[i][row];
        if (!solve(h, u, 3))
            return false;
        const double k = (1.0 - (u[0] + u[1] + u[2])) / oneV;
        for (int c = 0; c < 3; ++c)
            (*m)[row][c] = u[c] + v[c] * k;
    }
    return true;
}

Mat3 matrixFromParameters(const double *p)
{
    Mat3 m{};
    for (int r = 0; r < 3; ++r)
        m[r] = {p[2 * r], p[2 * r + 1], 1.0 - p[2 * r] - p[2 * r + 1]};
    return m;
}

// Residuals of the ΔE fit: ΔE00 of every patch, then √μ times each
// coefficient when there is a ridge.
void deltaEResiduals(const FitData &d, double mu, const double *p, std::vector<double> &out)
{
    const Mat3 m = matrixFromParameters(p);
    out.clear();
    for (size_t i = 0; i < d.x.size(); ++i)
        out.push_back(deltaE00(d.targetLab[i], linearRgbToLab(multiply(m, d.x[i]))));
    if (mu > 0.0) {
        const double root = std::sqrt(mu);
        for (const Vec3 &row : m)
            for (double v : row)
                out.push_back(root * v);
    }
}

double sumOfSquares(const std::vector<double> &v)
{
    double s = 0.0;
    for (double x : v)
        s += x * x;
    return s;
}

// Levenberg-Marquardt over the six free coefficients, from `m`.
int minimiseDeltaE(const FitData &d, double mu, Mat3 *m)
{
    constexpr int kParams = 6;
    constexpr int kMaxIterations = 300;
    constexpr double kStep = 1e-6;
    double p[kParams];
    for (int r = 0; r < 3; ++r) {
        p[2 * r] = (*m)[r][0];
        p[2 * r + 1] = (*m)[r][1];
    }
    std::vector<double> res, plus, minus, trial;
    deltaEResiduals(d, mu, p, res);
    double cost = sumOfSquares(res);
    double damping = 1e-3;
    int iteration = 0;
    for (; iteration < kMaxIterations; ++iteration) {
        const size_t n = res.size();
        std::vector<double> jac(n * kParams);
        for (int k = 0; k < kParams; ++k) {
            const double saved = p[k];
            p[k] = saved + kStep;
            deltaEResiduals(d, mu, p, plus);
            p[k] = saved - kStep;
            deltaEResiduals(d, mu, p, minus);
            p[k] = saved;
            for (size_t i = 0; i < n; ++i)
                jac[i * kParams + k] = (plus[i] - minus[i]) / (2.0 * kStep);
        }
        std::vector<double> jtj(kParams * kParams, 0.0), grad(kParams, 0.0);
        for (size_t i = 0; i < n; ++i)
            for (int a = 0; a < kParams; ++a) {
                grad[a] += jac[i * kParams + a] * res[i];
                for (int b = 0; b < kParams; ++b)
                    jtj[a * kParams + b] += jac[i * kParams + a] * jac[i * kParams + b];
            }
        bool accepted = false;
        double improvement = 0.0, stepSize = 0.0;
        while (!accepted && damping < 1e12) {
            std::vector<double> a = jtj, delta(kParams);
            for (int k = 0; k < kParams; ++k) {
                a[k * kParams + k] += damping * (jtj[k * kParams + k] + 1e-12);
                delta[k] = -grad[k];
            }
            if (!solve(a, delta, kParams)) {
                damping *= 4.0;
                continue;
            }
            double q[kParams];
            stepSize = 0.0;
            for (int k = 0; k < kParams; ++k) {
                q[k] = p[k] + delta[k];
                stepSize = std::max(stepSize, std::fabs(delta[k]));
            }
            deltaEResiduals(d, mu, q, trial);
            const double trialCost = sumOfSquares(trial);
            if (std::isfinite(trialCost) && trialCost < cost) {
                improvement = cost - trialCost;
                std::copy(q, q + kParams, p);
                res.swap(trial);
                cost = trialCost;
                damping = std::max(damping / 3.0, 1e-9);
                accepted = true;
            } else {
                damping *= 4.0;
            }
        }
        if (!accepted || improvement <= 1e-13 * cost || stepSize < 1e-12)
            break;
    }
    *m = matrixFromParameters(p);
    return iteration + 1;
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

// Channel gains k that bring M·(k ∘ m_i) closest to the targets over the
// gray patches (a linear least-squares problem in k); false without a
// positive gain for every channel.
bool grayGains(const std::array<Vec3, kPatchCount> &linear,
               const std::array<Vec3, kPatchCount> &target, const std::vector<int> &grays,
               const Mat3 &m, Vec3 *k)
{
    std::vector<double> a(9, 0.0), b(3, 0.0);
    for (int i : grays)
        for (int j = 0; j < 3; ++j) {
            for (int l = 0; l < 3; ++l) {
                double column = 0.0;
                for (int r = 0; r < 3; ++r)
                    column += m[r][j] * m[r][l];
                a[j * 3 + l] += linear[i][j] * linear[i][l] * column;
            }
            for (int r = 0; r < 3; ++r)
                b[j] += linear[i][j] * m[r][j] * target[i][r];
        }
    if (!solve(a, b, 3))
        return false;
    *k = {b[0], b[1], b[2]};
    return finite3(*k) && b[0] > 0.0 && b[1] > 0.0 && b[2] > 0.0;
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
    // Inverse of the primaries by the adjugate, computed once.
    static const Mat3 toRgb = [] {
        Mat3 m{};
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                m[r][c] = kToXyz[r][c];
        const double det = det3(m);
        Mat3 inv{};
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) {
                const int r1 = (c + 1) % 3, r2 = (c + 2) % 3, c1 = (r + 1) % 3, c2 = (r + 2) % 3;
                inv[r][c] = (m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1]) / det;
            }
        return inv;
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

    // Starting gains: each channel of the unclipped gray patches against the
    // reference grays, as if the matrix were the identity.
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
    Mat3 m = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
    Vec3 k{};
    if (!grayGains(linear, target, grays, m, &k)) {
        result.error = "The gray patches give no usable white balance (a channel without signal).";
        return result;
    }
    FitData d = fitData(linear, target, chart.reference, fitted, k);
    result.fittedPatches = static_cast<int>(fitted.size());
    double scale = (d.xtx[0][0] + d.xtx[1][1] + d.xtx[2][2]) / 3.0;
    if (!(scale > 0.0) || !(det3(d.xtx) / (scale * scale * scale) > kSingular)) {
        result.error = "The patches do not span the colors (they are all of nearly one color): "
                       "no matrix can be fitted.";
        return result;
    }
    // Matrix and gains in turn: the matrix from every patch with the gains
    // applied, then the gains that bring the corrected gray patches onto
    // their references through that matrix, until the gains settle.
    double lambda = 0.0;
    for (int round = 0; round < kMaxGainRounds; ++round) {
        lambda = options.ridge * scale;
        Vec3 next{};
        if (!leastSquaresMatrix(d, lambda, &m) || !grayGains(linear, target, grays, m, &next)) {
            result.error = "The least-squares system is singular: no matrix can be fitted.";
            return result;
        }
        const double change = std::max({std::fabs(next[0] / k[0] - 1.0),
                                        std::fabs(next[1] / k[1] - 1.0),
                                        std::fabs(next[2] / k[2] - 1.0)});
        k = next;
        d = fitData(linear, target, chart.reference, fitted, k);
        scale = (d.xtx[0][0] + d.xtx[1][1] + d.xtx[2][2]) / 3.0;
        if (change < 1e-13)
            break;
    }
    lambda = options.ridge * scale;
    if (!leastSquaresMatrix(d, lambda, &m)) {
        result.error = "The least-squares system is singular: no matrix can be fitted.";
        return result;
    }
    result.exposure = k[1];
    result.gains = {k[0] / k[1], 1.0, k[2] / k[1]};
    if (options.fit == Fit::MinimumDeltaE)
        result.iterations = minimiseDeltaE(d, lambda * deltaEPerLinear(d), &m);
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
