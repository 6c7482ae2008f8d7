#pragma once
// Colour-correction matrix from the 24 patches of a ColorChecker chart.
//
// Model. A measured patch colour m (sRGB-encoded fractions, decoded to linear
// RGB) is corrected as
//
//     c = s · M · (g ∘ m)
//
// g: white-balance gains (green 1), s: exposure factor (a common scale that
// the sensor's exposure control provides; it is not written anywhere), M: a
// 3×3 matrix whose rows sum to 1, so that whatever the gains made neutral
// stays neutral. The targets r are the chart's reference L*a*b* values taken
// back to linear RGB through the same conversion that the colour difference
// measurement uses (sRGB primaries, reference white X 95.0, Y 100, Z 108.9).
//
// Gains. From the unclipped gray patches (19-24) alone, before any matrix:
// per channel k_c = Σ r_c m_c / Σ m_c² (least squares through the origin
// against the reference grays), g = k / k_G. These are the gains a white
// balance on the chart's grays gives; the matrix is fitted for them, so the
// sensor's own white balance and the matrix work together.
//
// Least-squares matrix (fit LeastSquares). With x_i = s g ∘ m_i over the
// unclipped patches, each row w of M minimises
//
//     Σ_i (r_i,c − w·x_i)² + λ |w|²   subject to  w·(1,1,1) = 1,
//
// solved in closed form from the normal equations with a Lagrange multiplier:
// H = XᵀX + λI, u = H⁻¹Xᵀr_c, v = H⁻¹1, w = u + v (1 − 1·u) / (1·v).
// The exposure starts at k_G and alternates with the matrix: s becomes the
// least-squares scale of M x_i onto r_i over all fitted patches, then M is
// fitted again, until s settles. This is the linear least-squares mapping of
// Cheung, Westland, Connah and Ripamonti (Coloration Technology 120, 2004)
// with the white-preserving row constraint of Finlayson and Drew (Journal of
// Electronic Imaging 6(4), 1997).
//
// ΔE00-minimising matrix (fit MinimumDeltaE). Starting from the least-squares
// matrix and exposure, the six free coefficients (two per row; the third
// makes the row sum 1) and the exposure minimise
// Σ_i ΔE00(ref_i, Lab(s M (g ∘ m_i)))² + μ Σ |w|² by Levenberg-Marquardt with
// central-difference derivatives; the gains stay those of the grays.
// Compared with the root-polynomial regression of Finlayson, Mackiewicz and
// Hurlbert (IEEE Trans. Image Processing 24(5), 2015) this keeps a plain 3×3
// matrix, which is what a sensor's colour-correction registers hold.
//
// Ridge. λ = L · trace(XᵀX) / 3, so that the ridge strength L is relative to
// the chart's own signal and does not depend on exposure. The penalty is on
// |w|², the square of the row's noise gain: a row's output noise is
// |w| times the (equal, independent) channel noise, and large coefficients
// of opposite sign amplify noise. With rows summing to 1, a growing L moves
// every row towards (1/3, 1/3, 1/3), the lowest noise gain (1/√3) there is.
// In the ΔE fit, μ = λ times the squared ΔE00 that a unit step of linear RGB
// makes at the reference colours (averaged with the patches' weights in the
// linear fit), so that L weighs about the same against the colour error in
// both fits.
//
// Clipping. A patch with any channel within one code of 0 or 255 (above
// 254/255 or below 1/255, as the colour difference measurement flags
// out-of-range values) is left out of the gains and of the fit and listed in
// `excluded`. Statistics ("before" and "after") cover the patches of the fit;
// with nothing excluded, "before" equals the colour difference measurement's
// own figures.

#include <array>
#include <string>
#include <vector>

namespace kestro::ccm {

constexpr int kPatchCount = 24;
constexpr int kFirstGrayPatch = 18; // zero-based index of patch 19
constexpr int kGrayPatchCount = 6;

using Vec3 = std::array<double, 3>;
using Mat3 = std::array<Vec3, 3>;

struct Lab
{
    double L = 0.0, a = 0.0, b = 0.0;
};

// Inverse of a 3×3 matrix by its adjugate (not finite for a singular one).
Mat3 inverse(const Mat3 &m);

// The colour conversions of the colour difference measurement.
double srgbDecode(double v);
Lab linearRgbToLab(const Vec3 &rgb);
// Exact inverse of linearRgbToLab (the same rounded white, the same linear
// segment of f near black).
Vec3 labToLinearRgb(const Lab &lab);
// CIEDE2000 with k_L = k_C = k_H = 1 (Sharma, Wu and Dalal, Color Research
// and Application 30(1), 2005).
double deltaE00(const Lab &reference, const Lab &sample);

enum class Fit { LeastSquares, MinimumDeltaE };

struct Options
{
    Fit fit = Fit::LeastSquares;
    double ridge = 0.0; // L above; 0 for none
};

// The input: what a processed chart holds.
struct Chart
{
    // Measured colours as sRGB-encoded channel fractions 0..1, in patch
    // order; a patch with any non-finite value was not measured.
    std::array<Vec3, kPatchCount> measured;
    std::array<Lab, kPatchCount> reference;
};

// Mean, maximum and "95%" of a set of ΔE00 values; the 95% is taken as the
// colour difference measurement does: 0.7 × the second largest + 0.3 × the
// largest.
struct Stats
{
    double mean = 0.0, max = 0.0, p95 = 0.0;
};
Stats summarize(std::vector<double> values);

struct Result
{
    bool ok = false;
    std::string error; // why there is no matrix (ok false)

    Fit fit = Fit::LeastSquares;
    double ridge = 0.0;
    Mat3 matrix{};       // rows sum to 1
    Vec3 gains{};        // green 1
    double exposure = 1; // s
    Vec3 noiseGain{};    // |row| of the matrix
    std::array<double, kPatchCount> deltaE00Before{};
    std::array<double, kPatchCount> deltaE00After{};
    Stats before, after;       // over the patches of the fit
    std::vector<int> excluded; // clipped patches, 1-based
    int fittedPatches = 0;
    int iterations = 0; // of the ΔE fit
};

// The whole computation. Fails (ok false, error set) when fewer than 24
// patches were measured, every gray patch or too many patches are clipped,
// the patches do not span the colours (all of one colour), or an option is
// absurd.
Result computeCorrection(const Chart &chart, const Options &options = {});

// The corrected linear RGB of one linear measured colour.
Vec3 applyCorrection(const Result &result, const Vec3 &linearMeasured);

} // namespace kestro::ccm
