#pragma once
// Exact summation of doubles: the running sum is kept as a list of
// non-overlapping partials, so the result is the exact sum rounded once to the
// nearest double (ties to even), whatever the order of the terms. Window
// averages and grid statistics use it so that they do not depend on the order
// of traversal and agree to the last digit with any exact computation.

#include <cmath>
#include <cstddef>
#include <cstdint>
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
        if (n > 0
            && ((lo < 0.0 && m_partials[n - 1] < 0.0) || (lo > 0.0 && m_partials[n - 1] > 0.0))) {
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

// Exact sum of many doubles, fast for the values of a uniformity grid. A
// value in [2^-4, 2^8) is a multiple of 2^-56; rounding it to a multiple of
// 2^-20 (adding and subtracting 1.5 * 2^32) splits it exactly into a high
// part and a low part that are carried as integers in units of 2^-20 and
// 2^-56. Zeros are skipped; any other value goes to an ExactSum. The result is
// the exact sum rounded once, like ExactSum.
class GridSum
{
public:
    void add(const double *values, std::size_t count)
    {
        // Chunks of 2^16 values keep the double partial sums exact: high
        // parts below 2^24 in steps of 2^-20, low parts below 2^-5 in steps
        // of 2^-56. Four independent partial sums per part.
        constexpr std::size_t kChunk = 65536;
        constexpr double kMagic = 6442450944.0; // 1.5 * 2^32
        constexpr double kTwo20 = 1048576.0;
        constexpr double kTwo56 = 72057594037927936.0;
        for (std::size_t start = 0; start < count; start += kChunk) {
            const std::size_t end = count - start < kChunk ? count : start + kChunk;
            double high[4] = {0, 0, 0, 0};
            double low[4] = {0, 0, 0, 0};
            bool others = false;
            std::size_t i = start;
            auto take = [&](double v, int lane) {
                const bool fits = v >= 0.0625 && v < 256.0;
                const double u = fits ? v : 0.0;
                const double h = (u + kMagic) - kMagic;
                high[lane] += h;
                low[lane] += u - h;
                others |= !fits && v != 0.0;
            };
            for (; i + 4 <= end; i += 4) {
                take(values[i], 0);
                take(values[i + 1], 1);
                take(values[i + 2], 2);
                take(values[i + 3], 3);
            }
            for (; i < end; ++i)
                take(values[i], 0);
            m_high += static_cast<std::int64_t>(((high[0] + high[1]) + (high[2] + high[3]))
                                                * kTwo20);
            m_low += static_cast<std::int64_t>(((low[0] + low[1]) + (low[2] + low[3])) * kTwo56);
            if (others) {
                for (std::size_t k = start; k < end; ++k) {
                    const double v = values[k];
                    if (!(v >= 0.0625 && v < 256.0) && v != 0.0)
                        m_other.add(v);
                }
            }
        }
    }

    double value() const
    {
        ExactSum total = m_other;
        addInteger(total, m_high, -20);
        addInteger(total, m_low, -56);
        return total.value();
    }

private:
    // Adds integer * 2^exponent exactly, in two parts of at most 32 bits.
    static void addInteger(ExactSum &sum, __int128 integer, int exponent)
    {
        const double sign = integer < 0 ? -1.0 : 1.0;
        unsigned __int128 magnitude = integer < 0 ? -static_cast<unsigned __int128>(integer)
                                                  : static_cast<unsigned __int128>(integer);
        while (magnitude != 0) {
            const auto part = static_cast<std::uint64_t>(magnitude & 0xFFFFFFFFu);
            sum.add(sign * std::ldexp(static_cast<double>(part), exponent));
            magnitude >>= 32;
            exponent += 32;
        }
    }

    ExactSum m_other;
    __int128 m_high = 0;
    __int128 m_low = 0;
};

} // namespace kestro
