#pragma once
// The synthetic scenes of the image source: a 24-patch colour chart, a
// slanted-edge chart and a flat field, rendered in linear light with the
// source's exposure and lens shading, then encoded with the sRGB curve into
// 32-bit pixels (bytes R, G, B, then an unused byte set to 255). Temporal
// noise is added per frame on top of the noiseless picture.
//
// The geometry and levels below are the scene's known content: tests and
// users can check a captured picture against them.

#include <QRect>
#include <QString>
#include <QVector>
#include <cstddef>
#include <cstdint>

namespace kestro::imagesource {

enum class SceneKind { Chart, Edge, Flat };

// "chart", "edge", "flat"; false for any other name.
bool sceneFromName(const QString &name, SceneKind *kind);
QString sceneName(SceneKind kind);

struct SceneSettings
{
    SceneKind kind = SceneKind::Chart;
    int width = 2048;
    int height = 1536;
    // Linear-light gain (1 = the scene as designed).
    double exposure = 1.0;
    // Lens shading: fraction of light lost in the corners, falling off with
    // the square of the distance from the centre (0 = none).
    double shading = 0.0;
};

// Largest frame the source renders (pixels).
constexpr std::int64_t kMaxScenePixels = 100000000;
constexpr int kMaxSceneSide = 20000;

// Linear-light levels of the scenes (before exposure and shading).
constexpr double kChartBackground = 0.18; // mid-gray surround
constexpr double kChartBody = 0.02;       // the chart's black frame
constexpr double kEdgeLight = 0.60;       // slanted-edge background
constexpr double kEdgeDark = 0.15;        // the slanted square (4:1 contrast)
constexpr double kFlatLevel = 0.50;       // flat field
// The slanted square: centred, side half the shorter frame side, turned
// counter-clockwise by this angle.
constexpr double kEdgeAngleDegrees = 5.0;

// The 24 patch rectangles of the chart scene in chart reading order (rows
// top to bottom, left to right; 1-18 colours, 19-24 grays from white to
// black); empty when the frame is too small to hold a chart.
QVector<QRect> chartPatchRects(int width, int height);

// The linear RGB of chart patch `index` (0-based): the reference L*a*b* of
// the colour measurement turned back into linear sRGB, clipped to 0..1 where
// the patch lies outside the sRGB gamut.
void chartPatchLinear(int index, double rgb[3]);

// Renders the noiseless picture into `pixels` (width x height x 4 bytes).
void renderScene(const SceneSettings &settings, std::uint8_t *pixels);

// Gaussian temporal noise of a given standard deviation in 8-bit steps.
class NoiseGenerator
{
public:
    explicit NoiseGenerator(double sigma = 0.0);
    double sigma() const { return m_sigma; }
    // dst = src + noise on the three colour bytes of every pixel (clipped
    // to 0..255; the fourth byte copied); `seed` makes each frame's noise
    // its own and reproducible.
    void apply(const std::uint8_t *src, std::uint8_t *dst, std::size_t pixels,
               std::uint64_t seed) const;

private:
    double m_sigma = 0.0;
    // Noise values for equally likely 16-bit random numbers (the normal
    // distribution's quantiles, rounded to whole steps).
    QVector<std::int16_t> m_table;
};

} // namespace kestro::imagesource
