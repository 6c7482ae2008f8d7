#include "sfr_spectrum.h"

#include <algorithm>
#include <cmath>

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

double derivativeResponse(double nu, double binWidth)
{
    return sinc(2 * nu * binWidth);
}

double binResponse(double nu, double binWidth)
{
    return sinc(nu * binWidth);
}

ChannelSpectrum::ChannelSpectrum(const Lsf *lsf, double cosAngle)
    : m_lsf(lsf), m_cos(cosAngle)
{
    double dc = 0;
    if (lsf)
        for (int k = lsf->first; k <= lsf->last; ++k)
            dc += lsf->values[static_cast<std::size_t>(k)];
    m_dc = dc;
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
