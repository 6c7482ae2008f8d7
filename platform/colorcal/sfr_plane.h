#pragma once
// One channel of a region in linear light, oriented so that every row crosses
// the edge (a horizontal edge is transposed on extraction).

#include <cstddef>
#include <vector>

namespace kestro::sfr {

struct Plane
{
    int rows = 0;
    int cols = 0;
    std::vector<float> v; // row-major, rows x cols

    const float *row(int r) const { return v.data() + static_cast<std::size_t>(r) * cols; }
    float *row(int r) { return v.data() + static_cast<std::size_t>(r) * cols; }
    void resize(int r, int c)
    {
        rows = r;
        cols = c;
        v.assign(static_cast<std::size_t>(r) * c, 0.0f);
    }
};

// Swaps rows and columns.
Plane transposed(const Plane &p);

} // namespace kestro::sfr
