// The batch uniformity test end to end: KestroLoader run as a test station
// runs it, every parameter on the command line, the report and its pictures
// written unattended.

#include "testsupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

using kestro::test::buildPath;
using kestro::test::ProcessResult;
using kestro::test::runProcess;

namespace {

class UniformityBatch : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        ASSERT_TRUE(QDir().mkpath(m_dir.filePath("tmp")));
        // A name in two scripts and with percent signs, as argv carries it.
        ASSERT_TRUE(QDir().mkpath(m_dir.filePath(QStringLiteral("图像 Снимки"))));
        m_picture = m_dir.filePath(QStringLiteral("图像 Снимки/flat %1%2B.png"));
        ASSERT_TRUE(kestro::test::shadedFlatField(400, 300).save(m_picture));
    }

    // The charts go to a temporary folder of the test's own.
    ProcessResult run(const QStringList &args)
    {
        return runProcess(buildPath("app/KestroLoader"), args, 120000,
                          {"TMPDIR=" + m_dir.filePath("tmp")});
    }

    QTemporaryDir m_dir;
    QString m_picture;
};

} // namespace

TEST_F(UniformityBatch, WritesTheReportWithEveryParameter)
{
    const QString report = m_dir.filePath("out/report.html");
    ASSERT_TRUE(QDir().mkpath(m_dir.filePath("out")));
    const ProcessResult r = run({"Uniformity", m_picture, report, "colormap=gray",
                                 "CenterPercent=20", "CornerPercent=5", "ShowContour=TRUE",
                                 "ContourLow=150", "ContourSS=10", "ContourHigh=200",
                                 "ChartSize=400", "SubSampleSize=25"});
    ASSERT_EQ(r.exitCode, 0) << r.err.constData();
    if (r.err.contains("export is not available"))
        GTEST_SKIP() << "no report export in this build";
    QFile file(report);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << r.err.constData();
    const QString html = QString::fromUtf8(file.readAll());
    EXPECT_TRUE(html.contains("Original Width : 400\tOriginal Height : 300\tSubSampled Width : "
                              "16\tSubSampled Height : 12\tSubSampling Rate : 25</p><p>Center "
                              "Percentage : 20 %\tCorner Percentage : 5 %</p>"));
    EXPECT_TRUE(html.contains(
            "<img width=\"400\" height=\"300\" src=\".\\report_files\\report.png\">"));
    for (const char *c : {"Y", "R", "G", "B"})
        EXPECT_TRUE(html.contains(
                QStringLiteral("<img src=\".\\report_files\\Uniformity%1.png\">").arg(c)));

    const QDir files(m_dir.filePath("out/report_files"));
    EXPECT_EQ(QImage(files.filePath("report.png")).size(), QSize(400, 300));
    // Charts 400 x 300 at 85 dpi in the gray map.
    const QImage chart(files.filePath("UniformityY.png"));
    ASSERT_EQ(chart.size(), QSize(1339, 1004));
    const QRgb middle = chart.pixel(chart.width() / 2, chart.height() / 2);
    EXPECT_EQ(qRed(middle), qGreen(middle));
    EXPECT_EQ(qGreen(middle), qBlue(middle));
}

TEST_F(UniformityBatch, BadInputGivesItsMessageAndNoCharts)
{
    // A refusal and a picture that does not load: the page's message on
    // stderr, no charts and no report; the rules themselves are the
    // engine's and the page's tests.
    const QString report = m_dir.filePath("bad.html");
    const QPair<QStringList, const char *> cases[] = {
            {{m_picture, report, "SubSampleSize=38"},
             "Cannot display subsampled image. Please input valid subsampling size (1 - "
             "Height/8 or Width/8)."},
            {{m_dir.filePath("missing.png"), report},
             "File load failure: Failed to load the file : "},
    };
    for (const auto &c : cases) {
        const ProcessResult r = run(QStringList{"Uniformity"} + c.first);
        EXPECT_EQ(r.exitCode, 0);
        EXPECT_TRUE(r.err.contains(c.second)) << r.err.constData();
    }
    EXPECT_TRUE(QDir(m_dir.filePath("tmp")).entryList({"Uniformity*.png"}).isEmpty());
    EXPECT_FALSE(QFileInfo::exists(report)) << "a refused input must leave no report";

    // Contours with a step that does not advance, or low above high, draw
    // no lines and do not hang.
    const ProcessResult r = run({"Uniformity", m_picture, report, "ShowContour=true",
                                 "ContourLow=300", "ContourHigh=100", "ContourSS=-5"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(QDir(m_dir.filePath("tmp")).entryList({"Uniformity*.png"}).size(), 4);
}
