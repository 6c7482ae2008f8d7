#include "ccm_solve.h"

#include <algorithm>
#include <cmath>

namespace kestro::ccm {

bool solveLinear(std::vector<double> a, std::vector<double> &b, int n)
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

namespace {

double sumOfSquares(const std::vector<double> &v)
{
    double s = 0.0;
    for (double x : v)
        s += x * x;
    return s;
}

} // namespace

int minimiseSumOfSquares(const Residuals &residuals, std::vector<double> &p, int maxIterations)
{
    constexpr double kStep = 1e-6;
    const int k = static_cast<int>(p.size());
    std::vector<double> res, plus, minus, trial, q(p.size());
    residuals(p, res);
    double cost = sumOfSquares(res);
    double damping = 1e-3;
    int iteration = 0;
    for (; iteration < maxIterations; ++iteration) {
        const size_t n = res.size();
        std::vector<double> jac(n * k);
        for (int j = 0; j < k; ++j) {
            const double saved = p[j];
            p[j] = saved + kStep;
            residuals(p, plus);
            p[j] = saved - kStep;
            residuals(p, minus);
            p[j] = saved;
            for (size_t i = 0; i < n; ++i)
                jac[i * k + j] = (plus[i] - minus[i]) / (2.0 * kStep);
        }
        std::vector<double> jtj(k * k, 0.0), grad(k, 0.0);
        for (size_t i = 0; i < n; ++i)
            for (int a = 0; a < k; ++a) {
                grad[a] += jac[i * k + a] * res[i];
                for (int b = 0; b < k; ++b)
                    jtj[a * k + b] += jac[i * k + a] * jac[i * k + b];
            }
        bool accepted = false;
        double improvement = 0.0, stepSize = 0.0;
        while (!accepted && damping < 1e12) {
            std::vector<double> a = jtj, delta(k);
            for (int j = 0; j < k; ++j) {
                a[j * k + j] += damping * (jtj[j * k + j] + 1e-12);
                delta[j] = -grad[j];
            }
            if (!solveLinear(a, delta, k)) {
                damping *= 4.0;
                continue;
            }
            stepSize = 0.0;
            for (int j = 0; j < k; ++j) {
                q[j] = p[j] + delta[j];
                stepSize = std::max(stepSize, std::fabs(delta[j]));
            }
            residuals(q, trial);
            const double trialCost = sumOfSquares(trial);
            if (std::isfinite(trialCost) && trialCost < cost) {
                improvement = cost - trialCost;
                p = q;
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
    return iteration + 1;
}

} // namespace kestro::ccm
