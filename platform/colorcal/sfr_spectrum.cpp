#include "sfr_spectrum.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace kestro::sfr {

static const double kPi = 3.14159265358979323846;

static double sinc(double x)
{
    if (std::fabs(x) < 1e-9)
        return 1.0;
    return std::sin(kPi * x) / (kPi * x);
}

double lsfMagnitude(const Lsf &lsf, double nu)
{
    if (lsf.last < lsf.first)
        return 0;
    const double w = 2 * kPi * nu * lsf.binWidth;
    const double c = 2 * std::cos(w);
    double s1 = 0, s2 = 0;
    const double *v = lsf.values.data();
    for (int k = lsf.first; k <= lsf.last; ++k) {
        const double s = v[k] + c * s1 - s2;
        s2 = s1;
        s1 = s;
    }
    const double power = s1 * s1 + s2 * s2 - c * s1 * s2;
    return std::sqrt(std::max(power, 0.0));
}

void lsfMagnitudes(const Lsf &lsf, const double *nu, int count, double *out)
{
    int i = 0;
    const double *v = lsf.values.data();
    for (; i + 4 <= count && lsf.last >= lsf.first; i += 4) {
        double c[4], a1[4] = {0, 0, 0, 0}, a2[4] = {0, 0, 0, 0};
        for (int q = 0; q < 4; ++q)
            c[q] = 2 * std::cos(2 * kPi * nu[i + q] * lsf.binWidth);
        for (int k = lsf.first; k <= lsf.last; ++k) {
            const double x = v[k];
            for (int q = 0; q < 4; ++q) {
                const double s = x + c[q] * a1[q] - a2[q];
                a2[q] = a1[q];
                a1[q] = s;
            }
        }
        for (int q = 0; q < 4; ++q)
            out[i + q] = std::sqrt(
                    std::max(a1[q] * a1[q] + a2[q] * a2[q] - c[q] * a1[q] * a2[q], 0.0));
    }
    for (; i < count; ++i)
        out[i] = lsfMagnitude(lsf, nu[i]);
}

double derivativeResponse(double nu, double binWidth)
{
    return sinc(2 * nu * binWidth);
}

double binResponse(double nu, double binWidth)
{
    return sinc(nu * binWidth);
}

ChannelSpectrum::ChannelSpectrum(const Lsf *lsf, double cosAngle)
    : m_lsf(lsf)
    , m_cos(cosAngle)
{
    double dc = 0;
    if (lsf)
        for (int k = lsf->first; k <= lsf->last; ++k)
            dc += lsf->values[static_cast<std::size_t>(k)];
    m_dc = dc;
}

void ChannelSpectrum::evaluate(const double *f, int count, double *out) const
{
    if (!isValid()) {
        std::fill(out, out + count, 0.0);
        return;
    }
    std::vector<double> nu(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        nu[static_cast<std::size_t>(i)] = f[i] * m_cos;
    lsfMagnitudes(*m_lsf, nu.data(), count, out);
    const double h = m_lsf->binWidth;
    for (int i = 0; i < count; ++i) {
        const double n = nu[static_cast<std::size_t>(i)];
        const double response = std::max(derivativeResponse(n, h) * binResponse(n, h), 0.1);
        out[i] = out[i] / m_dc / response;
    }
}

double ChannelSpectrum::operator()(double f) const
{
    if (!isValid())
        return 0;
    const double nu = f * m_cos;
    const double h = m_lsf->binWidth;
    // The corrections stay bounded: nu h is at most a quarter below 1 c/p.
    const double response = std::max(derivativeResponse(nu, h) * binResponse(nu, h), 0.1);
    return lsfMagnitude(*m_lsf, nu) / m_dc / response;
}

} // namespace kestro::sfr
