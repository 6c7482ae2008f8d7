#pragma once
// Discrete Fourier transform of the windowed LSF and the corrections for the
// binning and the derivative filter.

#include "sfr_lsf.h"

namespace kestro::sfr {

// |DFT| of the windowed LSF at `nu` cycles per pixel along the row (the
// transform evaluated at any frequency, by the Goertzel recurrence).
double lsfMagnitude(const Lsf &lsf, double nu);
// The same at `count` frequencies, four independent recurrences at a time.
void lsfMagnitudes(const Lsf &lsf, const double *nu, int count, double *out);

// Response of the central difference [-1/2, 0, 1/2] over samples `binWidth`
// apart, relative to a true derivative: sin(2 pi nu h) / (2 pi nu h).
double derivativeResponse(double nu, double binWidth);

// Response of averaging samples spread evenly over a bin of `binWidth`:
// sin(pi nu h) / (pi nu h).
double binResponse(double nu, double binWidth);

// The MTF of one channel at frequencies measured along the edge normal.
class ChannelSpectrum
{
public:
    ChannelSpectrum() = default;
    // cosAngle: cosine of the edge angle; a row distance u is a distance
    // u * cosAngle along the normal.
    ChannelSpectrum(const Lsf *lsf, double cosAngle);

    bool isValid() const { return m_lsf && m_dc > 0; }
    // Normalised (1 at zero frequency) and corrected MTF at `f` cycles per
    // pixel along the normal.
    double operator()(double f) const;
    // The MTF at `count` frequencies at once (faster than one by one).
    void evaluate(const double *f, int count, double *out) const;

private:
    const Lsf *m_lsf = nullptr;
    double m_cos = 1;
    double m_dc = 0;
};

} // namespace kestro::sfr
