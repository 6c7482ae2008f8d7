#include "imaging/frame.h"
#include "measure/noise/noiseengine.h"
#include "testsupport.h"

#include <QImage>
#include <QTemporaryDir>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <vector>

using namespace kestro;

namespace {

// A stack of 16-bit single-sample frames: value(x, y, i) =
// signal + row(y) + col(x) + pixel(x, y) + temporal(x, y, i), rounded.
struct Stack
{
    int width = 0, height = 0, frames = 0;
    std::vector<std::vector<std::uint16_t>> data;

    NoiseFrameData frame(int i) const
    {
        NoiseFrameData d;
        d.data = reinterpret_cast<const std::uint8_t *>(data[i].data());
        d.size = data[i].size() * 2;
        d.width = width;
        d.height = height;
        d.bytesPerLine = width * 2;
        d.bytesPerPixel = 2;
        d.layout = NoiseLayout::Single;
        d.picture = QSize(width, height);
        d.setDefaultLut();
        return d;
    }

    NoisePatchResult run(const QRect &patch) const
    {
        NoiseAccumulator acc;
        EXPECT_TRUE(acc.start(frame(0), {patch})) << acc.errorMessage().toStdString();
        for (int i = 0; i < frames; ++i)
            EXPECT_TRUE(acc.add(frame(i)));
        return acc.results().value(0);
    }
};

// An 80 x 60 stack around 20000 with row, column, pixel and temporal noise
// of standard deviations 3, 2, 4 and 5 inside a border of 4 pixels, which
// stays at exactly 20000.
Stack makeStack(int n, unsigned seed)
{
    const int w = 80, h = 60;
    std::mt19937 rng(seed);
    std::normal_distribution<double> gauss(0.0, 1.0);
    std::vector<double> rows(h), cols(w), pix(static_cast<std::size_t>(w) * h);
    for (double &v : rows)
        v = 3 * gauss(rng);
    for (double &v : cols)
        v = 2 * gauss(rng);
    for (double &v : pix)
        v = 4 * gauss(rng);
    Stack s;
    s.width = w;
    s.height = h;
    s.frames = n;
    s.data.assign(n, std::vector<std::uint16_t>(pix.size(), 20000));
    for (int i = 0; i < n; ++i)
        for (int y = 4; y < h - 4; ++y)
            for (int x = 4; x < w - 4; ++x) {
                const double v = 20000 + rows[y] + cols[x] + pix[y * w + x]
                                 + (n > 1 ? 5 * gauss(rng) : 0.0);
                s.data[i][y * w + x] = static_cast<std::uint16_t>(std::lround(v));
            }
    return s;
}

// The table's formulas evaluated directly, two-pass, over a stack.
NoiseChannelResult bruteForce(const Stack &s, const QRect &r)
{
    const int W = r.width(), H = r.height(), N = s.frames;
    auto p = [&](int x, int y, int i) {
        return double(s.data[i][(r.top() + y) * s.width + r.left() + x]);
    };
    double signal = 0;
    for (int i = 0; i < N; ++i)
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x)
                signal += p(x, y, i);
    signal /= double(W) * H * N;
    NoiseChannelResult out;
    out.signal = signal;
    double var = 0, sd = 0, fpn = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            double avg = 0;
            for (int i = 0; i < N; ++i)
                avg += p(x, y, i);
            avg /= N;
            double v = 0;
            for (int i = 0; i < N; ++i)
                v += (p(x, y, i) - avg) * (p(x, y, i) - avg);
            v /= N;
            var += v;
            sd += std::sqrt(v);
            fpn += (avg - signal) * (avg - signal);
        }
    out.overall = std::sqrt(var / (W * H));
    out.temporal = sd / (W * H);
    out.fpn = std::sqrt(fpn / (W * H));
    // Per frame the mean of each column (row); then the spread of those
    // means across columns (rows) and over the frames.
    auto lineNoise = [&](int lines, int length, auto at, double &fixed, double &temporal) {
        double f = 0, t = 0;
        for (int l = 0; l < lines; ++l) {
            std::vector<double> m(N, 0.0);
            double mean = 0;
            for (int i = 0; i < N; ++i) {
                for (int k = 0; k < length; ++k)
                    m[i] += at(l, k, i);
                m[i] /= length;
                mean += m[i] / N;
            }
            f += (mean - signal) * (mean - signal);
            for (int i = 0; i < N; ++i)
                t += (m[i] - mean) * (m[i] - mean);
        }
        fixed = std::sqrt(f / lines);
        temporal = std::sqrt(t / (lines * N));
    };
    lineNoise(W, H, p, out.columnFpn, out.columnTemporal);
    lineNoise(
            H, W, [&](int y, int x, int i) { return p(x, y, i); }, out.rowFpn, out.rowTemporal);
    return out;
}

} // namespace

TEST(NoiseEngine, MatchesTheFormulasEvaluatedDirectly)
{
    // Nine frames, and a single one (no temporal noise: the SNR takes FPN).
    for (int frames : {9, 1}) {
        const Stack s = makeStack(frames, 1);
        // The noisy area, off-centre patches that cut it, one pixel.
        for (const QRect &r : {QRect(4, 4, 72, 52), QRect(2, 5, 31, 17), QRect(10, 10, 1, 1)}) {
            const NoisePatchResult got = s.run(r);
            const NoiseChannelResult want = bruteForce(s, r);
            ASSERT_EQ(got.channels.size(), 1);
            const NoiseChannelResult &c = got.channels[0];
            EXPECT_EQ(got.frames, frames);
            EXPECT_EQ(c.name, QStringLiteral("Mono"));
            EXPECT_NEAR(c.signal, want.signal, 1e-9 * 20000);
            EXPECT_NEAR(c.overall, want.overall, 1e-9);
            EXPECT_NEAR(c.temporal, want.temporal, 1e-9);
            EXPECT_NEAR(c.fpn, want.fpn, 1e-8);
            EXPECT_NEAR(c.columnFpn, want.columnFpn, 1e-8);
            EXPECT_NEAR(c.rowFpn, want.rowFpn, 1e-8);
            EXPECT_NEAR(c.columnTemporal, want.columnTemporal, 1e-9);
            EXPECT_NEAR(c.rowTemporal, want.rowTemporal, 1e-9);
            const double noise = frames > 1 ? c.overall : c.fpn;
            EXPECT_EQ(got.snrNoise(0), noise);
        }
    }
}

TEST(NoiseEngine, LongStacksStayAccurate)
{
    // A large offset with a tiny spread: a naive sum of squares would lose
    // the variance; the running form keeps it.
    Stack s;
    s.width = 8;
    s.height = 8;
    s.frames = 400;
    for (int i = 0; i < s.frames; ++i)
        s.data.push_back(
                std::vector<std::uint16_t>(64, static_cast<std::uint16_t>(60000 + (i % 2))));
    const NoiseChannelResult c = s.run(QRect(0, 0, 8, 8)).channels[0];
    EXPECT_NEAR(c.signal, 60000.5, 1e-9);
    EXPECT_NEAR(c.overall, 0.5, 1e-12);
    EXPECT_NEAR(c.temporal, 0.5, 1e-12);
    EXPECT_NEAR(c.rowTemporal, 0.5, 1e-12);
    EXPECT_NEAR(c.fpn, 0.0, 1e-9);
}

TEST(NoiseEngine, RefusalsSayWhy)
{
    QImage a(20, 10, QImage::Format_ARGB32), b(21, 10, QImage::Format_ARGB32);
    a.fill(Qt::gray);
    b.fill(Qt::gray);
    CFrame fa, fb, invalid;
    ASSERT_TRUE(fa.setFromImage(a));
    ASSERT_TRUE(fb.setFromImage(b));
    QVector<NoisePatchResult> results(1);
    NoiseFailure failure;
    const QVector<QRect> patch{QRect(0, 0, 4, 4)};
    EXPECT_FALSE(measureNoise({&fa, &fb}, patch, &results, &failure));
    EXPECT_EQ(noiseErrorText(failure), "Frames in the frameset do not have the same format. "
                                       "Calculation cannot be performed.");
    EXPECT_EQ(results.size(), 1); // left as it was
    EXPECT_FALSE(measureNoise({&invalid}, patch, &results, &failure));
    EXPECT_EQ(noiseErrorText(failure), "Invalid frame data. Calculation cannot be performed.");

    // Every invalid region is named; the last pixel row and column are inside.
    EXPECT_TRUE(measureNoise({&fa, &fa}, {QRect(16, 6, 4, 4)}, &results, &failure));
    EXPECT_EQ(failure.error, NoiseError::None);
    EXPECT_FALSE(measureNoise({&fa}, {QRect(17, 6, 4, 4), QRect(0, 0, 2, 2), QRect(-1, 0, 3, 3)},
                              &results, &failure));
    EXPECT_EQ(noiseErrorText(failure),
              "Invalid region:((17, 6), (20, 9))Invalid region:((-1, 0), (1, 2))");

    // The streaming accumulator refuses a frame of another layout.
    NoiseAccumulator acc;
    ASSERT_TRUE(acc.start(fa, patch));
    EXPECT_TRUE(acc.add(fa));
    EXPECT_FALSE(acc.add(fb));
    EXPECT_EQ(acc.error(), NoiseError::FormatMismatch);
    EXPECT_EQ(acc.frames(), 1);

    // Patches whose accumulators would not fit are refused up front (the
    // buffer below is never read).
    const std::uint16_t tiny[4] = {};
    NoiseFrameData huge;
    huge.data = reinterpret_cast<const std::uint8_t *>(tiny);
    huge.width = huge.height = 60000;
    huge.bytesPerLine = 120000;
    huge.bytesPerPixel = 2;
    huge.size = 120000ull * 60000ull;
    huge.picture = QSize(60000, 60000);
    NoiseAccumulator big;
    EXPECT_FALSE(big.start(huge, {QRect(0, 0, 60000, 60000)}));
    EXPECT_EQ(noiseErrorText(big.failure()),
              "The patches are too large for the noise calculation (54931 MiB needed).");
    EXPECT_FALSE(big.add(huge));
    EXPECT_EQ(big.error(), NoiseError::InvalidFrame);
}

// A mosaic with a distinct level on each colour site and temporal noise on
// the red sites only: every channel reads its own sites, minus the black
// level, for each colour order and for patches starting on odd coordinates.
TEST(NoiseEngine, BayerChannelsSampleTheirOwnSites)
{
    // Position class at (x & 1) + 2 (y & 1): 0 Gr, 1 R, 2 B, 3 Gb.
    const int map[4][4] = {{0, 1, 2, 3}, {1, 0, 3, 2}, {2, 3, 0, 1}, {3, 2, 1, 0}};
    const double level[4] = {300, 100, 400, 200}; // by class: Gr, R, B, Gb
    const char *names[4] = {"BayerR", "BayerGr", "BayerGb", "BayerB"};
    const double want[4] = {100, 300, 200, 400};
    const int w = 24, h = 18, black = 64;
    QTemporaryDir dir;
    for (int order = 0; order < 4; ++order) {
        SCOPED_TRACE(order);
        std::vector<std::vector<std::uint16_t>> frames(3, std::vector<std::uint16_t>(w * h));
        for (int i = 0; i < 3; ++i)
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    const int cls = map[order][(x & 1) + 2 * (y & 1)];
                    const int noise = cls == 1 ? (i - 1) * 6 : 0; // red: -6, 0, +6
                    // The 2-pixel border that the picture leaves out reads black.
                    const bool border = x < 2 || y < 2 || x >= w - 2 || y >= h - 2;
                    frames[i][y * w + x] = static_cast<std::uint16_t>(
                            black + (border ? 0 : level[cls] + noise));
                }
        // Raw files with their sidecar: the frame's samples, colour order,
        // black level and picture offset reach the engine.
        std::vector<std::unique_ptr<CFrame>> owned;
        QList<const CFrame *> loaded;
        for (int i = 0; i < 3; ++i) {
            const QString base = QString("o%1_f%2").arg(order).arg(i);
            const auto *bytes = reinterpret_cast<const char *>(frames[i].data());
            const QString raw = test::writeFile(dir, base + ".raw", QByteArray(bytes, w * h * 2));
            test::writeFile(dir, base + ".ini",
                            QString::asprintf("[Frame]\nWidth=%d\nHeight=%d\nBitsPerPixel=10\n"
                                              "ImageType=1\nBayerOrder=%d\nBlackLevel=%d\n",
                                              w, h, order, black)
                                    .toLatin1());
            owned.emplace_back(new CFrame);
            ASSERT_TRUE(owned.back()->load(raw));
            loaded << owned.back().get();
        }
        QVector<NoisePatchResult> fromFiles;
        NoiseFailure failure;
        // Picture coordinates; (3, 1) is mosaic (5, 3).
        ASSERT_TRUE(
                measureNoise(loaded, {QRect(3, 1, 9, 7), QRect(0, 0, 1, 1)}, &fromFiles, &failure));
        const NoisePatchResult &r = fromFiles[0];
        EXPECT_EQ(r.layout, NoiseLayout::Bayer);
        ASSERT_EQ(r.channels.size(), 4);
        for (int c = 0; c < 4; ++c) {
            EXPECT_EQ(r.channels[c].name, QLatin1String(names[c]));
            EXPECT_DOUBLE_EQ(r.channels[c].signal, want[c]) << names[c];
            EXPECT_EQ(r.channels[c].fpn, 0.0) << names[c];
            EXPECT_NEAR(r.channels[c].overall, c == 0 ? std::sqrt(24.0) : 0.0, 1e-12) << names[c];
        }
        // Picture (0, 0) is mosaic (2, 2), inside the border: its one site,
        // and no sample in the other channels.
        const int cls = map[order][0];
        const int channel = cls == 1 ? 0 : cls == 0 ? 1 : cls == 3 ? 2 : 3;
        int withSamples = 0;
        for (const NoiseChannelResult &c : fromFiles[1].channels)
            withSamples += std::isfinite(c.signal) ? 1 : 0;
        EXPECT_EQ(withSamples, 1);
        EXPECT_EQ(fromFiles[1].channels[channel].signal, level[cls]);
        // The picture is the mosaic less two pixels each side: 20 x 14.
        EXPECT_TRUE(measureNoise(loaded, {QRect(19, 13, 1, 1)}, &fromFiles, &failure));
        EXPECT_FALSE(measureNoise(loaded, {QRect(19, 13, 2, 1)}, &fromFiles, &failure));
        EXPECT_EQ(failure.error, NoiseError::InvalidRegion);
    }
}
