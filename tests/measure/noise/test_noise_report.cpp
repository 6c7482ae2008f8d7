#include "measure/noise/noisereport.h"

#include <gtest/gtest.h>

using namespace kestro;

namespace {

NoisePatchResult record(int frames, double signal, double overall, double fpn)
{
    NoisePatchResult r;
    r.frames = frames;
    NoiseChannelResult c;
    c.name = QStringLiteral("G");
    c.signal = signal;
    c.overall = overall;
    c.temporal = frames > 1 ? overall * 0.9 : 0.0;
    c.fpn = fpn;
    c.columnFpn = 0.25;
    c.rowFpn = 0.125;
    c.columnTemporal = frames > 1 ? 0.0626 : 0.0;
    c.rowTemporal = frames > 1 ? 0.5 : 0.0;
    r.channels << c;
    return r;
}

} // namespace

TEST(NoiseReport, PatchRowsUseTheNoiseOfTheFrameCount)
{
    // Two frames: SNR = 200 / 2 = 100, i.e. 40 dB, and Overall shows 2.
    const QString multi = buildNoiseReport({record(2, 200.0, 2.0, 4.0)}, {"a.png", "b.png"}, -1);
    EXPECT_TRUE(multi.contains("<tr><td>G</td><td align=\"right\">200.0 </td><td "
                               "align=\"right\">100.0 </td><td align=\"right\">40.0</td><td "
                               "align=\"right\">2.000</td><td align=\"right\">4.000</td>"));

    // One frame: SNR = Signal / FPN, Overall shows FPN, temporal columns 0.
    const QString single = buildNoiseReport({record(1, 200.0, 0.0, 4.0)}, {"a.png"}, -1);
    EXPECT_TRUE(single.contains(
            "<td align=\"right\">200.0 </td><td align=\"right\">50.0 </td><td align=\"right\">34.0</td>"
            "<td align=\"right\">4.000</td><td align=\"right\">4.000</td><td align=\"right\">0.250</td>"
            "<td align=\"right\">0.125</td><td align=\"right\">0.000</td><td align=\"right\">0.000</td>"
            "<td align=\"right\">0.000</td></tr>\n"));

    // Zero noise prints the infinite ratio as printf renders it.
    const QString flat = buildNoiseReport({record(2, 10.0, 0.0, 0.0)}, {}, -1);
    EXPECT_TRUE(flat.contains("<td align=\"right\">inf </td><td align=\"right\">inf</td>"));
}

TEST(NoiseReport, FileTableAndTheChosenPatch)
{
    QVector<NoisePatchResult> results;
    for (int i = 0; i < 6; ++i)
        results << record(3, 100 + i, 1, 1);
    const QString all = buildNoiseReport(results, {"C:/x/one.png"}, -1);
    EXPECT_TRUE(all.contains("<caption>Input files</caption><tr><td>1</td><td><a "
                             "href=\"C:/x/one.png\" target=\"BLANK\">C:/x/one.png</a></td></tr>"
                             "</table></p>"));
    EXPECT_EQ(all.count("<caption>Patch "), 6);
    // One patch: only the fifth patch's table; past the end, none.
    const QString fifth = buildNoiseReport(results, {}, 4);
    EXPECT_EQ(fifth.count("<caption>Patch "), 1);
    EXPECT_TRUE(fifth.contains("<caption>Patch 5&nbsp;&nbsp;&nbsp;&nbsp;Noise Levels (standard "
                               "deviation).</caption>\n<tr><th>Channel</th>"));
    EXPECT_TRUE(fifth.contains("<td align=\"right\">104.0 </td>"));
    EXPECT_EQ(buildNoiseReport(results, {}, 6).count("<caption>Patch "), 0);
}

TEST(NoiseReport, SnrChartSeriesPlacesChannelsByColour)
{
    // A mosaic patch (R, Gr, Gb, B) with one frame: the noise is FPN and the
    // series hold R, Gr, B, Gb.
    NoisePatchResult bayer;
    bayer.frames = 1;
    bayer.layout = NoiseLayout::Bayer;
    const double signal[4] = {100, 200, 300, 400};
    for (int c = 0; c < 4; ++c) {
        NoiseChannelResult ch;
        ch.signal = signal[c];
        ch.fpn = 10.0;
        ch.overall = 1.0; // not used with one frame
        bayer.channels << ch;
    }
    // An RGB patch with two frames, green without noise.
    NoisePatchResult rgb = record(2, 60.0, 3.0, 1.0);
    rgb.channels << rgb.channels[0] << rgb.channels[0];
    rgb.channels[1].overall = 0.0;
    // A single-channel patch.
    NoisePatchResult mono = record(3, 80.0, 4.0, 1.0);
    mono.layout = NoiseLayout::Single;

    const QVector<QVector<double>> s = snrChartSeries({bayer, rgb, mono});
    // Series R, G, B, G2 over the three patches; no noise charts as 0.
    EXPECT_EQ(s, (QVector<QVector<double>>{{10, 20, 20}, {20, 0, 0}, {40, 20, 0}, {30, 0, 0}}));

    // Display colours: RGB signals are linear and come back as sRGB bytes.
    NoisePatchResult mid = record(2, 0, 1, 1);
    mid.channels = {mid.channels[0], mid.channels[0], mid.channels[0]};
    for (auto &c : mid.channels)
        c.signal = 0.21404114048223255 * 255; // sRGB 128
    EXPECT_EQ(noisePatchColors({mid}).value(0).rgb(), qRgb(128, 128, 128));
}
