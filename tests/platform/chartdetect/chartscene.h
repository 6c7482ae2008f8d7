#pragma once
// Rendered chart scenes with known patch positions, for the detection tests,
// the benchmark and the detection sweep: the 24 reference colours on a dark
// card, placed with rotation and perspective on a background, with blur,
// noise, lighting gradients, colour casts, JPEG compression and clutter
// (including grids of coloured squares that are not the chart).

#include "platform/chartdetect/chartdetect.h"

#include <QBuffer>
#include <QImage>
#include <QPainter>
#include <QPolygonF>
#include <QStringList>
#include <QTransform>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace kestro::test {

struct SceneSetup
{
    int width = 1600;
    int height = 1200;
    double chartLong = 600; // length of the patch grid's long side, pixels
    double rotation = 0;    // in-plane rotation, degrees
    double perspective = 0; // corner displacement, fraction of the chart size
    double centreX = 0.5;   // chart centre, fraction of the picture
    double centreY = 0.5;
    double blur = 0;                        // box blur radius, pixels
    double noise = 0;                       // Gaussian noise sigma, 8-bit levels
    double gradient = 0;                    // lighting fall-off across the picture, 0..1
    double castR = 1, castG = 1, castB = 1; // channel gains
    int jpegQuality = 0;                    // 0: no compression
    int clutter = 0;                        // number of distractor objects
    bool decoyGrids = false;                // distractors include grids of coloured squares
    std::uint32_t seed = 1;
};

struct Scene
{
    QImage image;                                // Format_RGB32
    QPolygonF patches[chartdetect::kPatchCount]; // patch outlines, reading order
};

namespace scene_detail {

inline double clamp255(double v)
{
    return std::min(255.0, std::max(0.0, v));
}

inline void boxBlur(QImage &image, int radius)
{
    if (radius < 1)
        return;
    const int w = image.width(), h = image.height();
    auto pass = [&](bool horizontal) {
        const int lines = horizontal ? h : w, len = horizontal ? w : h;
        std::vector<QRgb> copy(len);
        for (int l = 0; l < lines; ++l) {
            for (int i = 0; i < len; ++i)
                copy[i] = horizontal ? reinterpret_cast<QRgb *>(image.scanLine(l))[i]
                                     : reinterpret_cast<QRgb *>(image.scanLine(i))[l];
            int r = 0, g = 0, b = 0, n = 0;
            for (int i = -radius; i <= radius; ++i) {
                const QRgb p = copy[std::clamp(i, 0, len - 1)];
                r += qRed(p), g += qGreen(p), b += qBlue(p), ++n;
            }
            for (int i = 0; i < len; ++i) {
                const QRgb out = qRgb(r / n, g / n, b / n);
                if (horizontal)
                    reinterpret_cast<QRgb *>(image.scanLine(l))[i] = out;
                else
                    reinterpret_cast<QRgb *>(image.scanLine(i))[l] = out;
                const QRgb add = copy[std::min(i + radius + 1, len - 1)];
                const QRgb sub = copy[std::max(i - radius, 0)];
                r += qRed(add) - qRed(sub), g += qGreen(add) - qGreen(sub);
                b += qBlue(add) - qBlue(sub);
            }
        }
    };
    pass(true);
    pass(false);
}

} // namespace scene_detail

// Draws the scene. The chart's grid (6 x 4 cells of one pitch, patches 0.8 of
// the pitch) sits on a card with a margin of 0.35 pitch.
inline Scene renderScene(const SceneSetup &setup)
{
    using namespace scene_detail;
    std::mt19937 rng(setup.seed);
    std::uniform_real_distribution<double> uni(0.0, 1.0);
    Scene scene;
    QImage image(setup.width, setup.height, QImage::Format_RGB32);
    const QColor background = QColor::fromHsvF(uni(rng), 0.1 + 0.3 * uni(rng),
                                               0.35 + 0.5 * uni(rng));
    image.fill(background);

    // Chart transform: grid units -> picture.
    const double pitch = setup.chartLong / 6.0;
    QTransform similarity;
    similarity.translate(setup.centreX * setup.width, setup.centreY * setup.height);
    similarity.rotate(setup.rotation);
    similarity.scale(pitch, pitch);
    similarity.translate(-3.0, -2.0);
    const QRectF card(-0.35, -0.35, 6.7, 4.7);
    const QPolygonF cardQuad(card);
    QPolygonF target = similarity.map(cardQuad);
    target.removeLast();
    for (QPointF &p : target)
        p += QPointF((uni(rng) - 0.5) * 2 * setup.perspective * setup.chartLong,
                     (uni(rng) - 0.5) * 2 * setup.perspective * setup.chartLong);
    QPolygonF source = cardQuad;
    source.removeLast();
    QTransform chart;
    if (!QTransform::quadToQuad(source, target, chart))
        chart = similarity;
    const QRectF chartBounds = chart.mapRect(card).adjusted(-pitch, -pitch, pitch, pitch);

    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    // Clutter away from the chart: plain shapes and, optionally, grids of
    // coloured squares of the chart's own scale.
    for (int i = 0, tries = 0; i < setup.clutter && tries < 200; ++tries) {
        const double size = pitch * (0.8 + 3 * uni(rng));
        const QRectF box(uni(rng) * (setup.width - size), uni(rng) * (setup.height - size), size,
                         size * (0.5 + uni(rng)));
        if (box.intersects(chartBounds))
            continue;
        ++i;
        painter.save();
        painter.translate(box.center());
        painter.rotate(uni(rng) * 360);
        painter.translate(-box.center());
        if (setup.decoyGrids && i % 2 == 0) {
            const int cols = 2 + int(uni(rng) * 4), rows = 2 + int(uni(rng) * 3);
            const double p = std::min(box.width() / cols, box.height() / rows);
            painter.setBrush(QColor(35, 35, 35));
            painter.drawRect(QRectF(box.topLeft(), QSizeF(p * cols, p * rows)));
            for (int r = 0; r < rows; ++r)
                for (int c = 0; c < cols; ++c) {
                    painter.setBrush(
                            QColor::fromHsvF(uni(rng), 0.3 + 0.6 * uni(rng), 0.3 + 0.7 * uni(rng)));
                    painter.drawRect(QRectF(box.left() + (c + 0.1) * p, box.top() + (r + 0.1) * p,
                                            0.8 * p, 0.8 * p));
                }
        } else {
            painter.setBrush(QColor::fromHsvF(uni(rng), uni(rng), uni(rng)));
            if (i % 3 == 0)
                painter.drawEllipse(box);
            else
                painter.drawRect(box);
        }
        painter.restore();
    }
    painter.setTransform(chart);
    painter.setBrush(QColor(28, 28, 28));
    painter.drawRect(card);
    for (int i = 0; i < chartdetect::kPatchCount; ++i) {
        const unsigned char *rgb = chartdetect::kReferenceSrgb[i];
        painter.setBrush(QColor(rgb[0], rgb[1], rgb[2]));
        const QRectF patch(i % 6 + 0.1, i / 6 + 0.1, 0.8, 0.8);
        painter.drawRect(patch);
        scene.patches[i] = chart.map(QPolygonF(patch));
    }
    painter.end();

    // Light, colour cast and noise, then blur and compression.
    std::normal_distribution<double> gauss(0.0, 1.0);
    const double gx = uni(rng) - 0.5, gy = uni(rng) - 0.5;
    const double glen = std::max(1e-9, std::hypot(gx, gy));
    for (int y = 0; y < setup.height; ++y) {
        QRgb *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < setup.width; ++x) {
            const double t = ((x / double(setup.width) - 0.5) * gx
                              + (y / double(setup.height) - 0.5) * gy)
                             / glen;
            const double light = 1.0 - setup.gradient * (t + 0.5);
            double r = qRed(line[x]) * light * setup.castR;
            double g = qGreen(line[x]) * light * setup.castG;
            double b = qBlue(line[x]) * light * setup.castB;
            if (setup.noise > 0) {
                r += gauss(rng) * setup.noise;
                g += gauss(rng) * setup.noise;
                b += gauss(rng) * setup.noise;
            }
            line[x] = qRgb(int(clamp255(r) + 0.5), int(clamp255(g) + 0.5), int(clamp255(b) + 0.5));
        }
    }
    boxBlur(image, int(std::lround(setup.blur)));
    if (setup.jpegQuality > 0) {
        QByteArray bytes;
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::WriteOnly);
        image.save(&buffer, "JPG", setup.jpegQuality);
        image = QImage::fromData(bytes, "JPG").convertToFormat(QImage::Format_RGB32);
    }
    scene.image = image;
    return scene;
}

// True when every rectangle lies inside its own patch outline (shrunk by
// `margin` pixels), in reading order.
inline bool placedCorrectly(const Scene &scene, const ColorCheckerROI *regions, double margin = 0.5)
{
    for (int i = 0; i < chartdetect::kPatchCount; ++i) {
        const ColorCheckerROI &r = regions[i];
        if (r.width <= 0 || r.height <= 0)
            return false;
        const double top = r.y - r.height;
        const QPointF corners[4] = {{r.x + margin, top + margin},
                                    {r.x + r.width - margin, top + margin},
                                    {r.x + r.width - margin, r.y - margin},
                                    {r.x + margin, r.y - margin}};
        for (const QPointF &c : corners) {
            if (!scene.patches[i].containsPoint(c, Qt::OddEvenFill))
                return false;
        }
    }
    return true;
}

// Checks a placement on a photograph by the colours inside the rectangles
// alone: every rectangle lies in the picture and is flat (its spread is small
// against the spread between patches), one affine colour transform takes the
// 24 means to the reference colours (so the order is the reading order), and
// the gray row darkens from white to black.
struct PlacementCheck
{
    bool inside = false;
    double worstSpread = 1; // largest spread inside a rectangle / spread between
    double residual = 1;    // unexplained share of the reference colours' variance
    bool grayOrdered = false;
    bool ok() const { return inside && worstSpread < 0.5 && residual < 0.1 && grayOrdered; }
};

inline PlacementCheck checkPlacement(const QImage &picture, const ColorCheckerROI *regions)
{
    PlacementCheck check;
    const QImage image = picture.convertToFormat(QImage::Format_RGB32);
    double mean[chartdetect::kPatchCount][3], spread[chartdetect::kPatchCount];
    for (int i = 0; i < chartdetect::kPatchCount; ++i) {
        const ColorCheckerROI &r = regions[i];
        const int top = r.y - r.height;
        if (r.width < 1 || r.height < 1 || r.x < 0 || top < 0 || r.x + r.width > image.width()
            || r.y > image.height())
            return check;
        double sum[3] = {0, 0, 0}, sq[3] = {0, 0, 0};
        for (int y = top; y < r.y; ++y) {
            const QRgb *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
            for (int x = r.x; x < r.x + r.width; ++x) {
                const double v[3] = {qRed(line[x]) / 255.0, qGreen(line[x]) / 255.0,
                                     qBlue(line[x]) / 255.0};
                for (int k = 0; k < 3; ++k)
                    sum[k] += v[k], sq[k] += v[k] * v[k];
            }
        }
        const double n = double(r.width) * r.height;
        double var = 0;
        for (int k = 0; k < 3; ++k) {
            mean[i][k] = sum[k] / n;
            var += std::max(0.0, sq[k] / n - mean[i][k] * mean[i][k]);
        }
        spread[i] = std::sqrt(var / 3);
    }
    check.inside = true;
    double centre[3] = {0, 0, 0}, between = 0;
    for (auto &m : mean)
        for (int k = 0; k < 3; ++k)
            centre[k] += m[k] / chartdetect::kPatchCount;
    for (auto &m : mean)
        for (int k = 0; k < 3; ++k)
            between += (m[k] - centre[k]) * (m[k] - centre[k]);
    between = std::sqrt(between / (3 * chartdetect::kPatchCount));
    check.worstSpread = *std::max_element(spread, spread + chartdetect::kPatchCount)
                        / std::max(1e-9, between);

    // Least squares through the normal equations: [r g b 1] x = reference.
    double ata[4][4] = {}, atb[4][3] = {};
    for (int i = 0; i < chartdetect::kPatchCount; ++i) {
        const double row[4] = {mean[i][0], mean[i][1], mean[i][2], 1.0};
        for (int a = 0; a < 4; ++a) {
            for (int b = 0; b < 4; ++b)
                ata[a][b] += row[a] * row[b];
            for (int k = 0; k < 3; ++k)
                atb[a][k] += row[a] * chartdetect::kReferenceSrgb[i][k] / 255.0;
        }
    }
    for (int c = 0; c < 4; ++c) { // Gauss-Jordan with partial pivoting
        int pivot = c;
        for (int r = c + 1; r < 4; ++r)
            if (std::fabs(ata[r][c]) > std::fabs(ata[pivot][c]))
                pivot = r;
        std::swap(ata[c], ata[pivot]);
        std::swap(atb[c], atb[pivot]);
        if (std::fabs(ata[c][c]) < 1e-12)
            return check;
        for (int r = 0; r < 4; ++r) {
            if (r == c)
                continue;
            const double f = ata[r][c] / ata[c][c];
            for (int k = 0; k < 4; ++k)
                ata[r][k] -= f * ata[c][k];
            for (int k = 0; k < 3; ++k)
                atb[r][k] -= f * atb[c][k];
        }
    }
    double unexplained = 0, total = 0, refCentre[3] = {0, 0, 0};
    for (int i = 0; i < chartdetect::kPatchCount; ++i)
        for (int k = 0; k < 3; ++k)
            refCentre[k] += chartdetect::kReferenceSrgb[i][k] / 255.0 / chartdetect::kPatchCount;
    for (int i = 0; i < chartdetect::kPatchCount; ++i) {
        const double row[4] = {mean[i][0], mean[i][1], mean[i][2], 1.0};
        for (int k = 0; k < 3; ++k) {
            double fitted = 0;
            for (int a = 0; a < 4; ++a)
                fitted += row[a] * atb[a][k] / ata[a][a];
            const double ref = chartdetect::kReferenceSrgb[i][k] / 255.0;
            unexplained += (fitted - ref) * (fitted - ref);
            total += (ref - refCentre[k]) * (ref - refCentre[k]);
        }
    }
    check.residual = unexplained / total;
    check.grayOrdered = true;
    for (int i = 18; i < 23; ++i) {
        const double l0 = mean[i][0] + mean[i][1] + mean[i][2];
        const double l1 = mean[i + 1][0] + mean[i + 1][1] + mean[i + 1][2];
        if (!(l0 > l1))
            check.grayOrdered = false;
    }
    return check;
}

// The fields of a line of the photographs' table (charts.csv); commas inside
// double quotes belong to the field.
inline QStringList csvFields(const QString &line)
{
    QStringList fields{QString()};
    bool quoted = false;
    for (const QChar c : line) {
        if (c == '"')
            quoted = !quoted;
        else if (c == ',' && !quoted)
            fields.append(QString());
        else
            fields.last().append(c);
    }
    return fields;
}

// A varied scene for sweeps: rotation a quarter turn times `index` plus up
// to 25 degrees either way, some perspective, a chart long side between
// minLong and what the frame holds, and at random blur, noise, a lighting
// gradient, a colour cast, JPEG compression and clutter with decoy grids.
inline SceneSetup sweepSceneSetup(int index, int width, int height, double minLong,
                                  std::uint32_t seed)
{
    std::mt19937 rng(seed * 7919u + static_cast<std::uint32_t>(index));
    std::uniform_real_distribution<double> uni(0.0, 1.0);
    SceneSetup setup;
    setup.width = width;
    setup.height = height;
    setup.seed = rng();
    setup.rotation = 90.0 * (index % 4) + (uni(rng) - 0.5) * 50.0;
    setup.perspective = 0.08 * uni(rng);
    // The card's diagonal is about 1.4 times the grid's long side: keep the
    // rotated chart inside the frame.
    const double maxLong = 0.6 * std::min(width, height);
    const double low = std::min(minLong, maxLong);
    setup.chartLong = low * std::pow(maxLong / low, uni(rng));
    const double half = 0.75 * setup.chartLong;
    setup.centreX = (half + uni(rng) * std::max(0.0, width - 2 * half)) / width;
    setup.centreY = (half + uni(rng) * std::max(0.0, height - 2 * half)) / height;
    if (uni(rng) < 0.4)
        setup.blur = 1 + int(uni(rng) * 2.5 * setup.chartLong / 600.0);
    if (uni(rng) < 0.5)
        setup.noise = 2 + 8 * uni(rng);
    if (uni(rng) < 0.5)
        setup.gradient = 0.5 * uni(rng);
    if (uni(rng) < 0.5) {
        setup.castR = 0.7 + 0.6 * uni(rng);
        setup.castG = 0.85 + 0.3 * uni(rng);
        setup.castB = 0.7 + 0.6 * uni(rng);
    }
    if (uni(rng) < 0.5)
        setup.jpegQuality = 60 + int(35 * uni(rng));
    setup.clutter = int(uni(rng) * 12);
    setup.decoyGrids = uni(rng) < 0.6;
    return setup;
}

} // namespace kestro::test
