#pragma once
// Small dense solvers of the colour-correction fits: linear systems by
// Gaussian elimination, and nonlinear least squares by Levenberg-Marquardt.

#include <functional>
#include <vector>

namespace kestro::ccm {

// Solves the n×n system a·x = b (a row-major) by Gaussian elimination with
// partial pivoting; x replaces b. False when a pivot vanishes.
bool solveLinear(std::vector<double> a, std::vector<double> &b, int n);

// The residuals of a least-squares problem at parameters p.
using Residuals = std::function<void(const std::vector<double> &p, std::vector<double> &out)>;

// Minimises the sum of squared residuals over p, starting from p, by
// Levenberg-Marquardt with central-difference derivatives (step 1e-6: the
// parameters are of order one). Stops when a step no longer lowers the sum
// by a relative 1e-13, the step is below 1e-12, or after maxIterations.
// Returns the iterations made.
int minimiseSumOfSquares(const Residuals &residuals, std::vector<double> &p,
                         int maxIterations = 300);

} // namespace kestro::ccm
