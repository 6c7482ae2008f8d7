#include "scene.h"

#include "imaging/parallel.h"
#include "imaging/srgb.h"
#include "measure/color/cielab.h"
#include "measure/color/macbethcolordifference.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace kestro::imagesource {

namespace {

constexpr double kPi = 3.14159265358979323846;

// sRGB encoding of linear light through a table: 65536 steps keep the
// rounding error far below one 8-bit step even in the steep dark part.
constexpr int kEncodeSteps = 1 << 16;

const std::array<std::uint8_t, kEncodeSteps> &encodeTable()
{
    static const std::array<std::uint8_t, kEncodeSteps> table = [] {
        std::array<std::uint8_t, kEncodeSteps> t{};
        for (int i = 0; i < kEncodeSteps; ++i)
            t[i] = static_cast<std::uint8_t>(
                    std::lround(linearToSrgb(i / double(kEncodeSteps - 1)) * 255.0));
        return t;
    }();
    return table;
}

inline std::uint8_t encode(const std::array<std::uint8_t, kEncodeSteps> &table, double v)
{
    v = std::clamp(v, 0.0, 1.0);
    return table[static_cast<int>(v * (kEncodeSteps - 1) + 0.5)];
}

// Fraction of a unit pixel on the inner side of a straight edge whose unit
// normal is (nx, ny), the pixel centre lying `distance` outside the edge
// (negative inside). The normal's projection of a uniformly covered square
// is the sum of two uniform variables, whose distribution is a trapezoid.
double halfPlaneCoverage(double nx, double ny, double distance)
{
    const double a = std::max(std::abs(nx), std::abs(ny));
    const double b = std::min(std::abs(nx), std::abs(ny));
    const double t = -distance;
    if (t <= -(a + b) / 2)
        return 0.0;
    if (t >= (a + b) / 2)
        return 1.0;
    if (b < 1e-12 || std::abs(t) <= (a - b) / 2)
        return std::clamp(0.5 + t / a, 0.0, 1.0);
    if (t < 0) {
        const double u = t + (a + b) / 2;
        return u * u / (2 * a * b);
    }
    const double u = (a + b) / 2 - t;
    return 1.0 - u * u / (2 * a * b);
}

// The slanted square of the edge scene.
struct SlantedSquare
{
    double cx, cy, half;
    double nx[4], ny[4];

    SlantedSquare(int width, int height)
        : cx(width / 2.0)
        , cy(height / 2.0)
        , half(std::min(width, height) / 4.0)
    {
        const double theta = kEdgeAngleDegrees * kPi / 180.0;
        for (int k = 0; k < 4; ++k) {
            nx[k] = std::cos(theta + k * kPi / 2);
            ny[k] = -std::sin(theta + k * kPi / 2);
        }
    }

    bool inside(double x, double y) const
    {
        for (int k = 0; k < 4; ++k) {
            if (nx[k] * (x - cx) + ny[k] * (y - cy) > half)
                return false;
        }
        return true;
    }

    // Fraction of pixel (x, y) covered by the square: exact along a side,
    // by 16 x 16 samples where two sides meet.
    double coverage(int x, int y) const
    {
        const double px = x + 0.5, py = y + 0.5;
        double d[4];
        int near = 0, nearest = 0;
        double worst = -1e300;
        for (int k = 0; k < 4; ++k) {
            d[k] = nx[k] * (px - cx) + ny[k] * (py - cy) - half;
            if (d[k] > worst) {
                worst = d[k];
                nearest = k;
            }
            if (d[k] > -0.75)
                ++near;
        }
        if (worst >= 0.75)
            return 0.0;
        if (near == 0)
            return 1.0;
        if (near == 1)
            return halfPlaneCoverage(nx[nearest], ny[nearest], d[nearest]);
        int hits = 0;
        for (int j = 0; j < 16; ++j) {
            for (int i = 0; i < 16; ++i)
                hits += inside(x + (i + 0.5) / 16, y + (j + 0.5) / 16);
        }
        return hits / 256.0;
    }
};

// Linear RGB whose L*a*b* (as the colour measurement converts it) is the
// given one, by Newton steps on that conversion; clipped to the gamut.
void linearFromLab(const LabColor &target, double rgb[3])
{
    double x[3] = {0.2, 0.2, 0.2};
    for (int iteration = 0; iteration < 50; ++iteration) {
        const LabColor at = linearRgbToLab(x[0], x[1], x[2]);
        const double f[3] = {at.L - target.L, at.a - target.a, at.b - target.b};
        if (std::abs(f[0]) + std::abs(f[1]) + std::abs(f[2]) < 1e-10)
            break;
        double J[3][3];
        for (int c = 0; c < 3; ++c) {
            double y[3] = {x[0], x[1], x[2]};
            const double h = 1e-7 * std::max(1.0, std::abs(x[c]));
            y[c] += h;
            const LabColor s = linearRgbToLab(y[0], y[1], y[2]);
            J[0][c] = (s.L - at.L) / h;
            J[1][c] = (s.a - at.a) / h;
            J[2][c] = (s.b - at.b) / h;
        }
        // Solve J * step = f by Cramer's rule.
        auto det3 = [](const double m[3][3]) {
            return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1])
                   - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0])
                   + m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
        };
        const double det = det3(J);
        if (std::abs(det) < 1e-300)
            break;
        for (int c = 0; c < 3; ++c) {
            double m[3][3];
            for (int r = 0; r < 3; ++r) {
                for (int k = 0; k < 3; ++k)
                    m[r][k] = k == c ? f[r] : J[r][k];
            }
            // Linear light stays positive so that the cube roots of the
            // conversion are taken on its smooth branch.
            x[c] = std::max(1e-6, x[c] - det3(m) / det);
        }
    }
    for (int c = 0; c < 3; ++c)
        rgb[c] = std::clamp(x[c], 0.0, 1.0);
}

// The standard normal distribution's quantile by bisection.
double normalQuantile(double p)
{
    double lo = -10.0, hi = 10.0;
    for (int i = 0; i < 80; ++i) {
        const double mid = (lo + hi) / 2;
        if (0.5 * std::erfc(-mid / std::sqrt(2.0)) < p)
            lo = mid;
        else
            hi = mid;
    }
    return (lo + hi) / 2;
}

// xoshiro256+ seeded through splitmix64: fast, and good enough in its high
// bits for noise.
class Random
{
public:
    explicit Random(std::uint64_t seed)
    {
        for (std::uint64_t &s : m_s) {
            seed += 0x9E3779B97F4A7C15ull;
            std::uint64_t z = seed;
            z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
            z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
            s = z ^ (z >> 31);
        }
    }
    std::uint64_t next()
    {
        const std::uint64_t result = m_s[0] + m_s[3];
        const std::uint64_t t = m_s[1] << 17;
        m_s[2] ^= m_s[0];
        m_s[3] ^= m_s[1];
        m_s[1] ^= m_s[2];
        m_s[0] ^= m_s[3];
        m_s[2] ^= t;
        m_s[3] = (m_s[3] << 45) | (m_s[3] >> 19);
        return result;
    }

private:
    std::uint64_t m_s[4];
};

// Splits `count` items into parts of about `chunk` for the worker pool.
int partsFor(std::size_t count, std::size_t chunk)
{
    return static_cast<int>(std::max<std::size_t>(1, (count + chunk - 1) / chunk));
}

} // namespace

bool sceneFromName(const QString &name, SceneKind *kind)
{
    const QString n = name.trimmed().toLower();
    if (n == QLatin1String("chart"))
        *kind = SceneKind::Chart;
    else if (n == QLatin1String("edge"))
        *kind = SceneKind::Edge;
    else if (n == QLatin1String("flat"))
        *kind = SceneKind::Flat;
    else
        return false;
    return true;
}

QString sceneName(SceneKind kind)
{
    switch (kind) {
    case SceneKind::Chart:
        return QStringLiteral("chart");
    case SceneKind::Edge:
        return QStringLiteral("edge");
    case SceneKind::Flat:
        return QStringLiteral("flat");
    }
    return QString();
}

QVector<QRect> chartPatchRects(int width, int height)
{
    // Six by four patches on a black frame filling three quarters of the
    // picture; patches take 80 % of their pitch.
    const int pitch = static_cast<int>(std::min(0.75 * width / 6, 0.75 * height / 4));
    QVector<QRect> rects;
    if (pitch < 5)
        return rects;
    const int size = static_cast<int>(std::lround(0.8 * pitch));
    const int gap = pitch - size;
    const int left = (width - (6 * pitch + gap)) / 2;
    const int top = (height - (4 * pitch + gap)) / 2;
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 6; ++column)
            rects.append(QRect(left + gap + column * pitch, top + gap + row * pitch, size, size));
    }
    return rects;
}

void chartPatchLinear(int index, double rgb[3])
{
    LabColor lab;
    QStdMacbethChartColorDifference::referenceLab(index, lab.L, lab.a, lab.b);
    linearFromLab(lab, rgb);
}

void renderScene(const SceneSettings &settings, std::uint8_t *pixels)
{
    const int width = settings.width, height = settings.height;
    if (width <= 0 || height <= 0)
        return;
    const auto &table = encodeTable();

    const QVector<QRect> patches = settings.kind == SceneKind::Chart
                                           ? chartPatchRects(width, height)
                                           : QVector<QRect>();
    std::array<std::array<double, 3>, 24> patchLinear{};
    QRect body;
    if (!patches.isEmpty()) {
        for (int i = 0; i < 24; ++i)
            chartPatchLinear(i, patchLinear[i].data());
        const int gap = patches[1].left() - patches[0].right() - 1;
        body = QRect(patches[0].topLeft() - QPoint(gap, gap),
                     patches[23].bottomRight() + QPoint(gap, gap));
    }
    const SlantedSquare square(width, height);

    const double cx = width / 2.0, cy = height / 2.0;
    const double cornerSquared = cx * cx + cy * cy;
    const double loss = std::clamp(settings.shading, 0.0, 1.0);

    const int rowsPerPart = 64;
    parallelFor(partsFor(static_cast<std::size_t>(height), rowsPerPart), [&](int part) {
        const int y0 = part * rowsPerPart;
        const int y1 = std::min(height, y0 + rowsPerPart);
        for (int y = y0; y < y1; ++y) {
            std::uint8_t *out = pixels + std::size_t(y) * width * 4;
            const double dy = y + 0.5 - cy;
            // Patches crossed by this row, found once per row.
            int patchRow = -1;
            if (!patches.isEmpty()) {
                for (int r = 0; r < 4; ++r) {
                    if (y >= patches[r * 6].top() && y <= patches[r * 6].bottom())
                        patchRow = r;
                }
            }
            const bool inBodyRow = !body.isNull() && y >= body.top() && y <= body.bottom();
            for (int x = 0; x < width; ++x, out += 4) {
                double rgb[3] = {0.0, 0.0, 0.0};
                switch (settings.kind) {
                case SceneKind::Chart: {
                    double v = kChartBackground;
                    const double *patch = nullptr;
                    if (inBodyRow && x >= body.left() && x <= body.right()) {
                        v = kChartBody;
                        if (patchRow >= 0) {
                            for (int c = 0; c < 6; ++c) {
                                const QRect &p = patches[patchRow * 6 + c];
                                if (x >= p.left() && x <= p.right())
                                    patch = patchLinear[patchRow * 6 + c].data();
                            }
                        }
                    }
                    for (int c = 0; c < 3; ++c)
                        rgb[c] = patch ? patch[c] : v;
                    break;
                }
                case SceneKind::Edge: {
                    const double cover = square.coverage(x, y);
                    rgb[0] = rgb[1] = rgb[2] = kEdgeDark * cover + kEdgeLight * (1.0 - cover);
                    break;
                }
                case SceneKind::Flat:
                    rgb[0] = rgb[1] = rgb[2] = kFlatLevel;
                    break;
                }
                const double dx = x + 0.5 - cx;
                const double gain = settings.exposure
                                    * (1.0 - loss * (dx * dx + dy * dy) / cornerSquared);
                out[0] = encode(table, rgb[0] * gain);
                out[1] = encode(table, rgb[1] * gain);
                out[2] = encode(table, rgb[2] * gain);
                out[3] = 255;
            }
        }
    });
}

NoiseGenerator::NoiseGenerator(double sigma)
    : m_sigma(std::max(0.0, sigma))
{
    if (m_sigma <= 0.0)
        return;
    constexpr int n = 1 << 16;
    m_table.resize(n);
    for (int i = 0; i < n / 2; ++i) {
        const double q = m_sigma * normalQuantile((i + 0.5) / n);
        const auto v = static_cast<std::int16_t>(std::clamp(std::lround(q), -255L, 255L));
        m_table[i] = v;
        m_table[n - 1 - i] = static_cast<std::int16_t>(-v);
    }
}

void NoiseGenerator::apply(const std::uint8_t *src, std::uint8_t *dst, std::size_t pixels,
                           std::uint64_t seed) const
{
    if (m_table.isEmpty()) {
        std::memcpy(dst, src, pixels * 4);
        return;
    }
    const std::int16_t *table = m_table.constData();
    constexpr std::size_t chunk = 1 << 18;
    parallelFor(partsFor(pixels, chunk), [&](int part) {
        Random random(seed ^ (0xD1B54A32D192ED03ull * (std::uint64_t(part) + 1)));
        const std::size_t begin = std::size_t(part) * chunk;
        const std::size_t end = std::min(pixels, begin + chunk);
        const std::uint8_t *s = src + begin * 4;
        std::uint8_t *d = dst + begin * 4;
        for (std::size_t i = begin; i < end; ++i, s += 4, d += 4) {
            const std::uint64_t r = random.next();
            const int n0 = s[0] + table[(r >> 16) & 0xFFFF];
            const int n1 = s[1] + table[(r >> 32) & 0xFFFF];
            const int n2 = s[2] + table[r >> 48];
            d[0] = static_cast<std::uint8_t>(std::clamp(n0, 0, 255));
            d[1] = static_cast<std::uint8_t>(std::clamp(n1, 0, 255));
            d[2] = static_cast<std::uint8_t>(std::clamp(n2, 0, 255));
            d[3] = s[3];
        }
    });
}

} // namespace kestro::imagesource
