#pragma once
// Least-squares fit of the edge position (column) against the row: a straight
// line, or a low-order polynomial when the edge is visibly curved.

#include <vector>

namespace kestro::sfr {

struct EdgePoint
{
    double row = 0;
    double position = 0;
};

struct EdgeFit
{
    // Coefficients in powers of t = (row - centre) / scale.
    std::vector<double> coeffs;
    double centre = 0;
    double scale = 1;
    double rms = 0; // root-mean-square residual of the points kept, pixels

    bool isValid() const { return !coeffs.empty(); }
    int degree() const { return static_cast<int>(coeffs.size()) - 1; }
    double at(double row) const;
    // Columns per row at the centre of the fitted rows.
    double slope() const;
};

// Fits a polynomial of the given degree; false when there are too few points
// or the system is singular.
bool fitPolynomial(const std::vector<EdgePoint> &points, int degree, EdgeFit &fit);

// Fits a straight line, drops gross outliers and refits; when
// `allowCurve` is set, a quadratic replaces the line if it explains the
// points clearly better (a lens-distorted edge).
bool fitEdge(const std::vector<EdgePoint> &points, bool allowCurve, EdgeFit &fit);

} // namespace kestro::sfr
