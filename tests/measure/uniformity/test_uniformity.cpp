#include "imaging/parallel.h"
#include "measure/color/cielab.h"
#include "measure/uniformity/cpiq.h"
#include "measure/uniformity/exactsum.h"
#include "measure/uniformity/uniformity.h"
#include "measure/uniformity/uniformitykernels.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <random>

using namespace kestro;

namespace {

// Flat field with a radial fall-off from the centre, a colour cast that grows
// towards the right (more red, less blue) and a small deterministic ripple, so
// that block sums exercise every rounding.
QImage flatField(int w, int h, QImage::Format format = QImage::Format_RGB32)
{
    QImage img(w, h, format);
    auto clamp = [](double v) { return std::clamp(static_cast<int>(std::lround(v)), 0, 255); };
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const double dx = (x - w / 2.0) / (w / 2.0);
            const double dy = (y - h / 2.0) / (h / 2.0);
            const double fall = 1.0 - 0.35 * (dx * dx + dy * dy);
            const int ripple = (x * 7 + y * 13) % 5 - 2;
            img.setPixel(x, y,
                         qRgb(clamp(210 * fall + 20.0 * x / w + ripple), clamp(200 * fall + ripple),
                              clamp(170 * fall - 15.0 * x / w + ripple)));
        }
    }
    return img;
}

// Independent reference: pixel values through QImage::pixel, block sums as
// integers (luminance weighted by 587, 299 and 114 thousandths), each mean
// divided once; window sums accumulated exactly in binary128.
using Exact = __float128;

long long refWeighted(QRgb p, int channel)
{
    const long long luma = 587LL * qGreen(p) + 299LL * qRed(p) + 114LL * qBlue(p);
    const long long values[4] = {luma, qRed(p), qGreen(p), qBlue(p)};
    return values[channel];
}

std::vector<double> refGrid(const QImage &img, int channel, int s)
{
    const int cols = img.width() / s;
    const int rows = img.height() / s;
    const double scale = (channel == 0 ? 1000.0 : 1.0) * s * s;
    std::vector<double> grid(static_cast<std::size_t>(cols) * rows);
    for (int c = 0; c < cols; ++c) {
        for (int r = 0; r < rows; ++r) {
            long long sum = 0;
            for (int x = c * s; x < (c + 1) * s; ++x)
                for (int y = r * s; y < (r + 1) * s; ++y)
                    sum += refWeighted(img.pixel(x, y), channel);
            grid[static_cast<std::size_t>(c) * rows + r] = static_cast<double>(sum) / scale;
        }
    }
    return grid;
}

double refMean(const std::vector<double> &grid, int rows, int x0, int y0, int x1, int y1)
{
    Exact sum = 0;
    for (int x = x0; x < x1; ++x)
        for (int y = y0; y < y1; ++y)
            sum += grid[static_cast<std::size_t>(x) * rows + y];
    return static_cast<double>(sum) / ((x1 - x0) * (y1 - y0));
}

// Two passes hold the same grids and zone means, bit for bit.
void expectSamePass(const UniformityPass &a, const UniformityPass &b)
{
    for (int c = 0; c < 4; ++c) {
        EXPECT_EQ(a.grids[c].rows, b.grids[c].rows) << "channel " << c;
        EXPECT_EQ(a.grids[c].values, b.grids[c].values) << "channel " << c;
    }
    EXPECT_EQ(a.zones.rows, b.zones.rows);
    EXPECT_EQ(a.zones.cols, b.zones.cols);
    EXPECT_EQ(a.zones.red, b.zones.red);
    EXPECT_EQ(a.zones.green, b.zones.green);
    EXPECT_EQ(a.zones.blue, b.zones.blue);
}

} // namespace

TEST(Uniformity, FlatFieldGridStatisticsAndWindowsMatchExactReference)
{
    // 203 x 157 with s = 5: a 40 x 31 grid, right and bottom strips dropped.
    const QImage img = flatField(203, 157);
    const UniformityImage image(img);
    ASSERT_TRUE(image.isValid());
    UniformityPass pass = image.compute(5, kAllUniformityChannels);
    for (int channel = 0; channel < 4; ++channel) {
        SCOPED_TRACE(channel);
        const std::vector<double> ref = refGrid(img, channel, 5);
        const UniformityGrid &grid = pass.grids[channel];
        ASSERT_EQ(grid.cols, 40);
        ASSERT_EQ(grid.rows, 31);
        ASSERT_EQ(grid.values, ref); // bit for bit
        EXPECT_EQ(image.grid(static_cast<UniformityChannel>(channel), 5).values, ref);

        UniformityData data;
        data.setGrid(grid.values, grid.cols, grid.rows);
        EXPECT_EQ(data.maximum(), *std::max_element(ref.begin(), ref.end()));
        Exact total = 0;
        for (double v : ref)
            total += v;
        EXPECT_EQ(data.sum(), static_cast<double>(total));

        // Centre 10 %: (20 - 2, 15.5 - 1.55, 4, 3.1) truncated to columns
        // 18..21, rows 13..16. Corner 10 %: cw = 4, ch = 3.
        const UniformitySummary s = summariseUniformity(data, 10, 10);
        EXPECT_EQ(s.center, refMean(ref, 31, 18, 13, 22, 17));
        EXPECT_EQ(s.corners[TopLeft], refMean(ref, 31, 0, 0, 4, 3));
        EXPECT_EQ(s.corners[TopRight], refMean(ref, 31, 35, 0, 39, 3));
        EXPECT_EQ(s.corners[BottomLeft], refMean(ref, 31, 0, 27, 4, 30));
        EXPECT_EQ(s.corners[BottomRight], refMean(ref, 31, 35, 27, 39, 30));
    }
}

TEST(Uniformity, ResultsDoNotDependOnBandsOrKernels)
{
    // Over a million pixels, so the pass really splits; s = 7 leaves strips.
    const QImage img = flatField(1103, 1000);
    const UniformityImage image(img);
    const UniformityPass one = image.compute(7, kAllUniformityChannels, 15, 20, 1);
    EXPECT_EQ(one.grids[0].values, refGrid(img, 0, 7));
    std::vector<UniformityPass> others(4);
    image.compute(others[0], 7, kAllUniformityChannels, 15, 20, 3);
    image.compute(others[1], 7, kAllUniformityChannels, 15, 20, 0, UniformityKernels::Reference);
    image.compute(others[2], 7, kAllUniformityChannels, 15, 20, 1, UniformityKernels::Reference);
    // A pool that cannot start its threads leaves the bands to the caller.
    setParallelLaunchFailsForTesting(true);
    image.compute(others[3], 7, kAllUniformityChannels, 15, 20, 5);
    setParallelLaunchFailsForTesting(false);
    for (const UniformityPass &other : others)
        expectSamePass(one, other);
}

TEST(Uniformity, RecomputeIntoAUsedPassEqualsAFreshPass)
{
    // A recompute writes over the memory of the previous one: whatever the
    // previous size, channels or zones, nothing of it may show through.
    const QImage img = flatField(203, 157);
    const UniformityImage image(img);
    struct Step
    {
        int size;
        unsigned mask;
        int zoneRows, zoneCols;
    };
    const Step steps[] = {{10, kAllUniformityChannels, 15, 20},
                          {10, kAllUniformityChannels, 15, 20},
                          {4, kAllUniformityChannels, 3, 4},
                          {10, 1u, 0, 0},
                          {7, kAllUniformityChannels, 15, 20},
                          {7, 2u | 4u, 2, 2}};
    UniformityPass reused;
    for (const Step &step : steps) {
        image.compute(reused, step.size, step.mask, step.zoneRows, step.zoneCols);
        SCOPED_TRACE(step.size);
        expectSamePass(reused, image.compute(step.size, step.mask, step.zoneRows, step.zoneCols));
    }
}

TEST(Uniformity, CornerWindowsAreShiftedOneColumnAndRowIn)
{
    // Grid value col * 100 + row: a window's mean reveals its placement.
    UniformityData data;
    std::vector<double> values;
    for (int c = 0; c < 40; ++c)
        for (int r = 0; r < 30; ++r)
            values.push_back(c * 100 + r);
    data.setGrid(values, 40, 30);
    const std::array<double, 4> corners = data.cornerValues(0.10);
    EXPECT_EQ(corners[TopLeft], 151);      // columns 0..3, rows 0..2
    EXPECT_EQ(corners[TopRight], 3651);    // columns 35..38, rows 0..2
    EXPECT_EQ(corners[BottomLeft], 177);   // columns 0..3, rows 26..28
    EXPECT_EQ(corners[BottomRight], 3677); // columns 35..38, rows 26..28
    EXPECT_EQ(data.cornerRects()[TopRight], QRect(35, 0, 4, 3));

    // Windows that leave the grid or are empty give NaN, never an overflow.
    EXPECT_TRUE(std::isnan(data.cornerValues(1.0)[TopRight]));
    EXPECT_EQ(data.centerValue(1.0), data.mean());
    for (double f : {0.0, -21474836.48, 21474836.47, std::nan("")}) {
        for (double v : data.cornerValues(f))
            EXPECT_TRUE(std::isnan(v)) << f;
        EXPECT_TRUE(std::isnan(data.centerValue(f))) << f;
    }

    // Chart lookup: the cell containing the point, clamped to the grid.
    EXPECT_EQ(data.valueAt(12.7, 3.2), 1203);
    EXPECT_EQ(data.valueAt(55, -4), 3900);
}

TEST(Uniformity, GridSumIsExactForAnyValues)
{
    // Grid-like values take the fast path; tiny, large and negative values
    // the general one. Both must give the exact sum rounded once.
    std::vector<double> values;
    Exact reference = 0;
    for (int i = 0; i < 5000; ++i) {
        double v = 255.0 / (i + 1) + 1.0 / 3.0;
        if (i % 97 == 0)
            v = 1e-3 / (i + 1);
        if (i % 101 == 0)
            v = -v;
        if (i % 131 == 0)
            v = 1e6 + i / 7.0;
        values.push_back(v);
        reference += v;
    }
    GridSum sum;
    sum.add(values.data(), values.size());
    EXPECT_EQ(sum.value(), static_cast<double>(reference));
    ExactSum slow;
    for (double v : values)
        slow.add(v);
    EXPECT_EQ(slow.value(), static_cast<double>(reference));
}

TEST(Uniformity, CornerLabelsAndAUniformField)
{
    EXPECT_EQ(uniformityCornerLabel(130.4, 120), "130.4, Dropoff: -10.4, -8.67%");
    EXPECT_EQ(uniformityCornerLabel(123.456789, 200), "123.457, Dropoff: 76.5, 38.3%");

    // A uniform field: no drop-off, no colour non-uniformity.
    QImage img(120, 96, QImage::Format_RGB32);
    img.fill(qRgb(90, 140, 200));
    UniformityPass pass = UniformityImage(img).compute(6, kAllUniformityChannels, 15, 20);
    const std::array<UniformitySummary, 4> s = summariseChannels(pass, 10, 10);
    EXPECT_EQ(s[1].labels[BottomRight], "90, Dropoff: 0, 0%");
    const CpiqResult cpiq = cpiqFromZoneMeans(pass.zones);
    ASSERT_TRUE(cpiq.valid);
    EXPECT_EQ(cpiq.metric, 0);
}

TEST(Uniformity, SubsampleValidityAndRefusedInputs)
{
    UniformityCalculation calc;
    QImage img(100, 80, QImage::Format_RGB32);
    img.fill(qRgb(40, 40, 40));
    ASSERT_EQ(calc.setImage(img, "flat.png"), UniformityCalculation::Loaded);
    calc.setChannel(UniformityChannel::R);
    calc.setSubsampleSize(10);
    ASSERT_TRUE(calc.update());
    for (int s : {0, 11}) {
        calc.setSubsampleSize(s);
        EXPECT_FALSE(calc.update()) << s;
        EXPECT_EQ(calc.error(), UniformityError::InvalidSubsample);
        EXPECT_EQ(calc.data().cols(), 10); // the previous grid stays
    }
    calc.setSubsampleSize(10);

    // Percentages outside 0..100 are refused before anything is computed,
    // however extreme; 0 and 100 are measured.
    const double center = calc.centerValue();
    for (int percent : {101, INT_MIN}) {
        calc.setCenterPercent(percent);
        EXPECT_FALSE(calc.update());
        EXPECT_EQ(calc.error(), UniformityError::InvalidCenterPercent);
        EXPECT_EQ(calc.centerValue(), center);
        calc.setCenterPercent(10);
        calc.setCornerPercent(percent);
        EXPECT_FALSE(calc.update());
        EXPECT_EQ(calc.error(), UniformityError::InvalidCornerPercent);
        calc.setCornerPercent(10);
    }
    calc.setCenterPercent(100);
    calc.setCornerPercent(0);
    EXPECT_TRUE(calc.update());
    EXPECT_EQ(calc.centerValue(), 40);
    EXPECT_TRUE(std::isnan(calc.summary().corners[TopLeft]));

    EXPECT_EQ(calc.setImage(img.convertToFormat(QImage::Format_Grayscale8), "gray.png"),
              UniformityCalculation::InvalidFormat);
    EXPECT_EQ(calc.fileName(), "flat.png"); // the previous picture stays
    EXPECT_EQ(calc.loadImage("/nonexistent/flat.png"), UniformityCalculation::LoadFailed);
    EXPECT_EQ(calc.error(), UniformityError::LoadFailure);
}

TEST(Uniformity, FailureTextsAndTitles)
{
    using E = UniformityError;
    EXPECT_EQ(uniformityErrorTitle(E::LoadFailure), "File load failure");
    EXPECT_EQ(uniformityErrorText({E::InvalidFormat, "gray.png"}),
              "Only RGB files are supported for this test. Failed to load the file : gray.png");
    EXPECT_EQ(uniformityErrorTitle(E::InvalidFormat), "Invalid format");
    EXPECT_EQ(uniformityErrorText({E::InvalidCenterPercent, {}, -2147483647 - 1}),
              "Invalid centre percentage -2147483648: give a value from 0 to 100.");
    EXPECT_EQ(uniformityErrorText({E::InvalidCornerPercent, {}, 150}),
              "Invalid corner percentage 150: give a value from 0 to 100.");
    EXPECT_EQ(uniformityErrorText({E::InvalidCpiqGrid, {}, 0, 40, 20, 200, 30}),
              "Invalid CPIQ zone grid 40 x 20 for a 200 x 30 image (1 to 32 zones per side, at "
              "least one pixel per zone)");
    // A file name that looks like a placeholder stays as it is.
    EXPECT_EQ(uniformityLoadFailureText("chart%2Bcopy%1.png"),
              "Failed to load the file : chart%2Bcopy%1.png");
}

TEST(Uniformity, RecomputesCentreAndLabelsWhenPercentagesChange)
{
    UniformityCalculation calc;
    ASSERT_EQ(calc.setImage(flatField(160, 120), "f.png"), UniformityCalculation::Loaded);
    calc.setSubsampleSize(4);
    ASSERT_TRUE(calc.update());
    const double narrow = calc.centerValue();
    const QString label = calc.summary().labels[TopLeft];
    calc.setCenterPercent(80);
    ASSERT_TRUE(calc.update());
    EXPECT_LT(calc.centerValue(), narrow); // a wider window takes in the fall-off
    EXPECT_NE(calc.summary().labels[TopLeft], label);
    EXPECT_EQ(calc.summary().labels[TopLeft],
              uniformityCornerLabel(calc.summary().corners[TopLeft], calc.centerValue()));
}

TEST(Uniformity, CpiqFindsColourCastInOneCorner)
{
    // Gray field; the top-left zone of a 15 x 20 grid on 200 x 150 pixels is
    // x 0..9, y 0..9 and gets a red cast.
    QImage img(200, 150, QImage::Format_RGB32);
    img.fill(qRgb(128, 128, 128));
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 10; ++x)
            img.setPixel(x, y, qRgb(170, 128, 128));
    const CpiqResult cpiq = computeCpiq(UniformityImage(img));
    ASSERT_TRUE(cpiq.valid);
    // L*a*b* of the bytes (128, 128, 128) and (170, 128, 128): sRGB decoding,
    // the sRGB primaries and the white (95.0, 100.0, 108.9).
    const LabColor gray{53.585013452169036, 0.052611017183401554, 0.0};
    const LabColor red{57.60060926129796, 16.266348357886372, 6.315431586284093};
    const double meanA = (red.a + 299 * gray.a) / 300;
    const double meanB = (red.b + 299 * gray.b) / 300;
    const double cast = std::hypot(red.a - meanA, red.b - meanB);
    const double rest = std::hypot(gray.a - meanA, gray.b - meanB);
    EXPECT_GT(cast, 10);
    EXPECT_NEAR(cpiq.zones[0].L, red.L, 1e-9);
    EXPECT_NEAR(cpiq.zones[0].a, red.a, 1e-9);
    EXPECT_NEAR(cpiq.zones[0].b, red.b, 1e-9);
    EXPECT_NEAR(cpiq.zones[0].deltaAb, cast, 1e-9);
    EXPECT_NEAR(cpiq.zones[1].deltaAb, rest, 1e-9);
    EXPECT_EQ(cpiq.metric, cpiq.zones[0].deltaAb);
    // A dark zone mean of 10.1 decodes between the two sRGB thresholds in
    // circulation (10.02 and 10.31 on the byte scale): only 0.04045 gives
    // this L*.
    UniformityZoneMeans dark;
    dark.rows = 1;
    dark.cols = 1;
    dark.red = dark.green = dark.blue = {10.1};
    EXPECT_NEAR(cpiqFromZoneMeans(dark).zones[0].L, 2.7691523098403437, 1e-9);

    // Uneven zone sizes: zone k spans [floor(k s / n), floor((k + 1) s / n)).
    const QImage field = flatField(203, 157);
    const CpiqResult uneven = computeCpiq(UniformityImage(field), 7, 9);
    ASSERT_EQ(uneven.zones.size(), std::size_t(63));
    for (const CpiqZone &z : uneven.zones) {
        const int x0 = (z.column - 1) * 203 / 9, x1 = z.column * 203 / 9;
        const int y0 = (z.row - 1) * 157 / 7, y1 = z.row * 157 / 7;
        long long g = 0;
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x)
                g += qGreen(field.pixel(x, y));
        EXPECT_EQ(z.G, static_cast<double>(g) / ((x1 - x0) * (y1 - y0)));
    }

    // At most 32 zones a side, at least one pixel a zone.
    EXPECT_EQ(computeCpiq(UniformityImage(img), 33, 20).failure, UniformityError::InvalidCpiqGrid);
    QImage narrow(20, 40, QImage::Format_RGB32);
    narrow.fill(Qt::gray);
    EXPECT_EQ(computeCpiq(UniformityImage(narrow), 15, 21).failure,
              UniformityError::InvalidCpiqGrid);
    EXPECT_TRUE(computeCpiq(UniformityImage(narrow), 15, 20).valid);
}
