#pragma once
// Exact summation of doubles: the running sum is kept as a list of
// non-overlapping partials, so the result is the exact sum rounded once to the
// nearest double (ties to even), whatever the order of the terms. Window
// averages and grid statistics use it so that they do not depend on the order
// of traversal and agree to the last digit with any exact computation.

#include <cmath>
#include <cstddef>
#include <vector>

namespace kestro {

class ExactSum
{
public:
    void add(double x)
    {
        std::size_t kept = 0;
        for (std::size_t i = 0; i < m_partials.size(); ++i) {
            double y = m_partials[i];
            if (std::fabs(x) < std::fabs(y))
                std::swap(x, y);
            const double hi = x + y;
            const double lo = y - (hi - x);
            if (lo != 0.0)
                m_partials[kept++] = lo;
            x = hi;
        }
        m_partials.resize(kept);
        m_partials.push_back(x);
    }

    // The exact sum rounded to nearest (ties to even); 0 for no terms.
    double value() const
    {
        std::size_t n = m_partials.size();
        if (n == 0)
            return 0.0;
        double hi = m_partials[--n];
        double lo = 0.0;
        while (n > 0) {
            const double x = hi;
            const double y = m_partials[--n];
            hi = x + y;
            const double yr = hi - x;
            lo = y - yr;
            if (lo != 0.0)
                break;
        }
        // Round half to even across the remaining partials.
        if (n > 0 && ((lo < 0.0 && m_partials[n - 1] < 0.0) || (lo > 0.0 && m_partials[n - 1] > 0.0))) {
            const double y = lo * 2.0;
            const double x = hi + y;
            const double yr = x - hi;
            if (y == yr)
                hi = x;
        }
        return hi;
    }

private:
    std::vector<double> m_partials;
};

} // namespace kestro
