// The chart reports' text: the colour difference report, the joining of
// fragments, the companion folder names and the measurement CSV.

#include "measure/color/colordiffreport.h"
#include "measure/color/macbethcolordifference.h"
#include "measure/color/macbethexport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kestro;

namespace {

// A model with hand-set results: patch k (1-based) has dE00 = k, the other
// metrics fixed, patch 3 left uncomputed.
void fillModel(QStdMacbethChartColorDifference &m)
{
    for (int i = 0; i < 24; ++i) {
        MacbethPatch &p = m.patch(i);
        p.hasMeasured = true;
        p.computed = i != 2;
        p.dE00 = i + 1;
        p.dC00 = 0.5;
        p.dH00 = 0.25;
        p.saturation = 0.125;
        p.region = QRect(3, 4, 10, 12);
        p.R = 0.5;
        p.G = 0.25;
        p.B = 0.75;
        p.L = 50;
        p.a = 1.5;
        p.b = -2.5;
        p.chroma = 2;
        p.rOverG = 0.5;
        p.bOverG = 4;
    }
    ColorDifferenceSummary &s = m.summary();
    s.dE00Maximum = 24;
    s.dE00Minimum = 1;
    s.dE00Percentile95 = 23.3f;
    s.dE00Average = 12.5f;
    s.dE00MaximumIndex = 23;
    s.dC00Maximum = s.dC00Minimum = s.dC00Percentile95 = s.dC00Average = 0.5f;
    s.dC00MaximumIndex = 5;
    s.dH00Maximum = s.dH00Minimum = s.dH00Percentile95 = s.dH00Average = 0.25f;
    s.dH00MaximumIndex = 23;
    s.saturationMaximum = s.saturationMinimum = s.saturationPercentile95 = 0.125f;
    s.saturationAverage = 0.125f;
    s.grayChromaAverage = 2;
    s.grayROverGAverage = 0.5;
    s.grayBOverGAverage = 4;
}

NoisePatchResult noiseRecord(int frames, const char *name, double signal, double overall,
                             double fpn, double temporal)
{
    NoisePatchResult r;
    r.frames = frames;
    NoiseChannelResult c;
    c.name = QLatin1String(name);
    c.signal = signal;
    c.overall = overall;
    c.fpn = fpn;
    c.columnFpn = 0.5;
    c.rowFpn = 0.25;
    c.temporal = temporal;
    c.rowTemporal = temporal / 12;
    c.columnTemporal = temporal / 24;
    r.channels << c;
    return r;
}

} // namespace

TEST(MacbethExport, MergedReportTakesTheBodiesAndLeavesTheDocumentOpen)
{
    const QString merged = mergeHtmlStreams(
            {"<html><head><title>x</title></head><body style=\"a\">\nfirst\n</body></html>",
             "no body element here", "<BODY>upper case is not a body</BODY>",
             "<body >second</body >", "< body class=\"c\" >third</body>"},
            "Macbeth Color Chart Results");
    EXPECT_TRUE(merged.contains("<title>Macbeth Color Chart Results</title></head><body "));
    EXPECT_TRUE(merged.endsWith("font-style:normal;\">\nfirst\nsecondthird"));

    // The colour difference report: patch 24 holds the dE00 and dH00 maxima,
    // patch 6 the dC00 maximum, saturation is never marked; the uncomputed
    // patch 3 has no row.
    QStdMacbethChartColorDifference m;
    fillModel(m);
    const QString report = colorDifferenceReport(m, "chart.png");
    EXPECT_TRUE(report.contains(
            "<tr><td align=\"center\">24</td><td align=\"right\"><font color=\"red\">24</font></td>"
            "<td align=\"right\">0.5</td><td align=\"right\"><font "
            "color=\"red\">0.25</font></td><td align=\"right\">0.125</td><td "
            "align=\"right\">120</td><td align=\"right\">0.5</td>"));
    EXPECT_EQ(report.count("<font color=\"red\">"), 3);
    EXPECT_FALSE(report.contains("<tr><td align=\"center\">3</td>"));
    EXPECT_TRUE(report.contains("</p>\n<center><H1>White Balance</H1></center>"));

    // Companion folder, picture links and the CSV beside the report.
    const ReportLocation a = reportLocation("/data/run 1/a.b.html");
    EXPECT_EQ(a.picturePath("_GrayChart.png"),
              QDir::toNativeSeparators("/data/run 1/a_files/a_GrayChart.png"));
    EXPECT_EQ(a.pictureLink(".png"), ".\\a_files\\a.png");
    EXPECT_EQ(csvPathForReport("/x.html/out.HTML"), "/x.html/out.csv");
    EXPECT_EQ(csvPathForReport("/x/out.htm"), "/x/out.htm.csv");
}

TEST(MacbethExport, MeasurementCsvLayoutByteForByte)
{
    QStdMacbethChartColorDifference m;
    fillModel(m);
    const QVector<NoisePatchResult> noise = {noiseRecord(2, "R", 100, 2, 1, 1.5),
                                             noiseRecord(1, "G", 30, 0, 3, 0)};
    MeasurementCsvData data;
    data.frameFiles = QStringList{"a.png", "dir/b.png"};
    data.noise = &noise;
    data.colorDifference = &m;
    data.imageFileName = "chart.png";

    const QString noiseSection
            = "The file list:\n1, a.png\n2, dir/b.png\n\n\nPatch , Channel , Signal, SNR , "
              "Overall, FPN, Column FPN, Row FPN, Temporal, Row Temporal, Column temporal\n"
              // Two frames: SNR = 100 / overall; one frame: 30 / FPN, FPN as Overall.
              "1, R, 100, 50, 2, 1, 0.5, 0.25, 1.5, 0.125, 0.0625, \n"
              "2, G, 30, 10, 3, 3, 0.5, 0.25, 0, 0, 0, \n";
    QString patchLines;
    for (int k = 1; k <= 24; ++k) {
        if (k == 3)
            continue;
        double L, a, b;
        QStdMacbethChartColorDifference::referenceLab(k - 1, L, a, b);
        patchLines += QString("%1,%1,0.5,0.25,0.125,120,0.5,0.25,0.75,50,1.5,-2.5,%2,%3,%4\n")
                              .arg(k)
                              .arg(L)
                              .arg(a)
                              .arg(b);
    }
    const QString colorSection
            = "Image Name , chart.png\n\n\nColor Difference Summary \n\nDifference Metric, "
              "Maximum, Minimum, 95%, Average \n"
              "DeltaE00 , 24,1, 23.3 , 12.5 \n DeltaC00 , 0.5,0.5, 0.5 , 0.5 \n "
              "DeltaH00 , 0.25,0.25, 0.25 , 0.25 \n Saturation , 0.125,0.125, 0.125 , 0.125 \n "
              "\n\n\n-------------------\nColor Difference Report\n-------------------\n"
              "Patch ID, DeltaE00, DeltaC00, DeltaH00, Saturation, Pixel Count, R, G, B, L*, a* , "
              "b*, target L*, target a*, target b*\n"
              + patchLines
              + "\n\n\n---------------\nWhite Balance\n---------------\nPatch ID , Chroma, R/G, "
                "G/R, B/G, G/B\n19,2,0.5,2,4,0.25\n20,2,0.5,2,4,0.25\n21,2,0.5,2,4,0.25\n"
                "22,2,0.5,2,4,0.25\n23,2,0.5,2,4,0.25\n24,2,0.5,2,4,0.25\n"
                "\n---------------\nWhite Balance Summary\n---------------\nAverage Chroma , 2\n"
                "Average R/G ,    0.5\nAverage G/R ,    2\nAverage B/G ,    4\nAverage G/B ,    "
                "0.25\n";
    EXPECT_EQ(measurementCsv(data, true, true), noiseSection + colorSection);
    EXPECT_EQ(measurementCsv(data, false, true), noiseSection);
    EXPECT_EQ(measurementCsv(data, true, false), colorSection);
}

TEST(MacbethExport, SaveTextFileWritesWholeOrNothing)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("r.csv");
    ASSERT_TRUE(saveTextFile(path, "first"));
    ASSERT_TRUE(saveTextFile(path, QString::fromUtf8("zweite Fassung \u00e9")));
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    EXPECT_EQ(f.readAll(), QByteArray("zweite Fassung \xc3\xa9"));

    // A folder that does not exist: an error, nothing created.
    QString error;
    EXPECT_FALSE(saveTextFile(dir.filePath("missing/r.csv"), "x", &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("missing")));
}
