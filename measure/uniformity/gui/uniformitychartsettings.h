#pragma once
// How the uniformity chart draws the grid: its colour map and its contour
// lines. Shared by the chart, the page and the report without the plotting
// library's headers.

namespace kestro {

// Colour maps of the chart.
enum class UniformityColorMap { Standard = 0, Gray = 1, Jet = 2 };

struct UniformityContour
{
    bool shown = false;
    int low = 0;
    int high = 0;
    int step = 0;
};

} // namespace kestro
