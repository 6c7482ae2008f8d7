// The batch MTF test end to end: KestroLoader run as a test station runs it,
// on generated slanted edges of known sharpness. The report's figures match
// the truth, every picture it refers to opens in a browser engine, and a
// report that cannot be written leaves nothing behind.

#include "browsercheck.h"
#include "tests/platform/colorcal/slantededge.h"
#include "testsupport.h"

#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using kestro::test::ProcessResult;

namespace {

const double kSigma = 0.7; // blur of the edges, pixels
const double kAngle = 5;   // lean of the edges, degrees

// A gray chart of 480 x 360 pixels: two slanted edges, flat elsewhere.
// Region 1 and 2 lie on the edges, region 3 on a flat area.
struct Chart
{
    QTemporaryDir dir;
    QString image;
    QString roi;
    const QRect regions[3] = {{40, 60, 128, 200}, {280, 60, 128, 200}, {200, 300, 40, 40}};

    Chart()
    {
        kestro::test::EdgeParams edge;
        edge.sigma[0] = kSigma;
        edge.angleDegrees = kAngle;
        edge.dark = 0.1;
        edge.light = 0.7;
        const QImage part = kestro::test::makeEdgeImage(edge);
        QImage picture(480, 360, QImage::Format_Grayscale8);
        picture.fill(90);
        for (int k = 0; k < 2; ++k)
            for (int y = 0; y < part.height(); ++y)
                std::copy(part.constScanLine(y), part.constScanLine(y) + part.width(),
                          picture.scanLine(regions[k].top() + y) + regions[k].left());
        image = kestro::test::saveImage(dir, "edges.png", picture);
        roi = kestro::test::writeFile(
                dir, "regions.roi",
                "[patches]\n1\\left=40\n1\\top=60\n1\\width=128\n1\\height=200\n2\\left=280\n"
                "2\\top=60\n2\\width=128\n2\\height=200\n3\\left=200\n3\\top=300\n"
                "3\\width=40\n3\\height=40\nsize=3\n");
    }
};

ProcessResult kestroLoader(const QStringList &args)
{
    return kestro::test::runProcess(kestro::test::buildPath("app/KestroLoader"), args);
}

QString readText(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

// The picture files a report refers to, resolved beside it.
QStringList pictureFiles(const QString &html, const QString &reportPath)
{
    QStringList files;
    const QRegularExpression src(QStringLiteral("<img[^>]*src=\"([^\"]+)\""));
    for (auto it = src.globalMatch(html); it.hasNext();)
        files << QFileInfo(reportPath)
                         .dir()
                         .filePath(it.next().captured(1).replace(QLatin1Char('\\'),
                                                                 QLatin1Char('/')));
    return files;
}

// The cells of a channel's row in a region's MTF 10/50 table: overshoot,
// MTF50, MTF50 peak, MTF10, MTF10 peak, slope, contrast.
QStringList figureCells(const QString &regionHtml, const QString &channel)
{
    const QRegularExpression row("<tr><td>" + channel + "</td>((?:<td[^>]*>[^<]*</td>){7})</tr>");
    const QRegularExpressionMatch m = row.match(regionHtml);
    QStringList cells;
    const QRegularExpression cell("<td[^>]*>([^<]*) </td>");
    for (auto it = cell.globalMatch(m.captured(1)); it.hasNext();)
        cells << it.next().captured(1);
    return cells;
}

using kestro::test::pictureWidths;

} // namespace

TEST(BatchMtf, RegionFileReportAgreesWithTheTruth)
{
    Chart chart;
    const QString report = chart.dir.filePath("out.html");
    const ProcessResult r = kestroLoader(
            {"MTF", chart.image, report, "Gamma=1", "ROI=" + chart.roi});
    EXPECT_EQ(r.exitCode, 0) << r.err.constData();
    EXPECT_EQ(r.out, QByteArray());
    const QString html = readText(report);
    ASSERT_FALSE(html.isEmpty()) << r.err.constData();

    // Every picture is there: the regions, three crops, two graphs.
    const QStringList files = pictureFiles(html, report);
    EXPECT_EQ(files.size(), 6);
    for (const QString &file : files)
        EXPECT_FALSE(QImage(file).isNull()) << file.toStdString();

    // Per region: the figures of the gray edges are the same in every
    // channel and near the true MTF50 and slope; the flat region is refused
    // with the engine's reason.
    const QStringList sections = html.split("<hr>");
    ASSERT_EQ(sections.size(), 4);
    const double truth = kestro::test::trueCrossing(kSigma, kAngle, 0.5);
    for (int i = 0; i < 2; ++i) {
        const QStringList red = figureCells(sections[i], "Red");
        ASSERT_EQ(red.size(), 7) << sections[i].toStdString();
        EXPECT_EQ(figureCells(sections[i], "Green"), red);
        EXPECT_EQ(figureCells(sections[i], "Blue"), red);
        EXPECT_NEAR(red[1].toDouble() / truth, 1.0, 0.01);
        EXPECT_NEAR(red[5].toDouble(), kAngle, 0.1);
    }
    EXPECT_TRUE(sections[2].contains("No valid result for this region. Last error message : "));

#ifdef KESTRO_TEST_WEBENGINE
    const QList<int> widths = pictureWidths(report);
    ASSERT_EQ(widths.size(), 6);
    for (int w : widths)
        EXPECT_GT(w, 0);
#endif
}

TEST(BatchMtf, InlineRegionAndReportsThatCannotBeWritten)
{
    Chart chart;
    const QRect &edge = chart.regions[0];
    const QStringList corners = {"X1=" + QString::number(edge.right() + 1),
                                 "Y1=" + QString::number(edge.top()),
                                 "X2=" + QString::number(edge.left()),
                                 "Y2=" + QString::number(edge.bottom() + 1)};
    const QString report = chart.dir.filePath("inline.html");
    ProcessResult r = kestroLoader(QStringList{"MTF", chart.image, report, "Gamma=0.45"} + corners);
    EXPECT_EQ(r.exitCode, 0);
    const QString html = readText(report);
    EXPECT_TRUE(html.contains("<h4>Gamma</h4> 0.45</p>"));
    EXPECT_TRUE(html.contains("topleft(40, 60), width: 128, height: 200"));
    // The regions picture, the crop and the graph: 1280 x 960 mm at 85 dpi.
    const QStringList files = pictureFiles(html, report);
    ASSERT_EQ(files.size(), 3);
    EXPECT_EQ(QImage(files[2]).size(), QSize(4283, 3213));

    // A folder that does not exist: the export's message, nothing written.
    const QString nowhere = chart.dir.filePath("no/such/folder/out.html");
    r = kestroLoader(QStringList{"MTF", chart.image, nowhere, "Gamma=0.45"} + corners);
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_TRUE(r.out.startsWith("Cannot write file " + QFile::encodeName(nowhere) + ". "))
            << r.out.constData();
    EXPECT_FALSE(QFileInfo::exists(chart.dir.filePath("no")));
}
