// The MTF report text: figures and tables of valid regions, errors of failed
// ones, the slope warning cell, and the pictures with their relative links.

#include "measure/mtf/mtfreport.h"
#include "scriptedmtf.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>
#include <cmath>

using namespace kestro::mtf;

namespace {

class Report : public ::testing::Test
{
protected:
    void SetUp() override
    {
        path = flatPictureFile(dir);
        for (ScriptedMTF *m : {&good, &bad}) {
            m->setFileName(path);
            m->setPictureHeight(100);
        }
        good.setRegion(QRect(20, 10, 40, 60));
        good.mtf50 = 0.123456;
        good.slope = -5;
        good.redPeak = 1.08;
        ASSERT_TRUE(good.calculate());
        bad.setRegion(QRect(150, 10, 40, 60));
        bad.message = "The edge is too faint";
        ASSERT_FALSE(bad.calculate());
        input.gamma = 0.45;
        input.regions = {&good, &bad};
    }
    QTemporaryDir dir;
    QString path;
    ScriptedMTF good, bad;
    MtfReportInput input;
};

// Records what the report asks for; refuses the crop of one region.
class Pictures : public MtfReportPictures
{
public:
    QStringList written;
    QRect refusedCrop;
    bool writeRegionsPicture(const QString &path) override { return write(path); }
    bool writeRegionCrop(const regionBasedMTF &region, const QString &path) override
    {
        return region.region() != refusedCrop && write(path);
    }
    bool writeRegionGraph(const regionBasedMTF &, const QString &path) override
    {
        return write(path);
    }

private:
    bool write(const QString &path) { return written << path, true; }
};

} // namespace

TEST_F(Report, ValidRegionsGetTablesFailedOnesTheirError)
{
    const QString html = buildMtfReport(input);
    EXPECT_TRUE(
            html.contains("<h1>MTF Report(Slanted edge based)</h1>\n\n<h4>Gamma</h4> 0.45</p>\n"));
    EXPECT_FALSE(html.contains("<img"));

    // Three significant digits, overshoot less one for the colours, the
    // slope's absolute value in a plain cell.
    EXPECT_TRUE(html.contains("<tr><td>Red</td><td>0.08 </td><td>0.123 </td><td>0.26 </td><td>0.45 "
                              "</td><td>0.46 </td><td>5 </td><td>0.7 </td></tr>\n"));
    // One MTF table row per point, LW/PH with six digits.
    EXPECT_TRUE(html.contains("<tr><td>0.1</td><td>20</td><td>1.08</td><td>0.5</td><td>0.5</td>"
                              "<td>1</td></tr>\n"));
    EXPECT_EQ(html.count("<caption>MTF Table</caption>"), 1);
    EXPECT_EQ(html.count("<tr><td>"), 3 + 3); // three colour rows, three points

    // A measured region's info tells the edge quality behind its figures.
    EXPECT_TRUE(html.contains("Edge contrast-to-noise</th><td> Red 40, Green 41, Blue 42, Gray 43"));
    EXPECT_FALSE(bad.regionInfoHtml().contains("contrast-to-noise"));

    // The long table can be kept to one region.
    input.tableOnlyFor = 1;
    const QString brief = buildMtfReport(input);
    EXPECT_FALSE(brief.contains("MTF Table"));
    EXPECT_TRUE(brief.contains("<caption>MTF 10/50</caption>"));
    EXPECT_TRUE(html.contains(
            "<p>No valid result for this region. Last error message : The edge is too faint</p>\n\n"));
}

TEST(ReportCells, SlopeOutsideThreeToSevenDegreesIsRed)
{
    const QString red = "<td style=\"background-color:#FF0000\">";
    EXPECT_EQ(slopeCell(3), "<td>3 </td>");
    EXPECT_EQ(slopeCell(7), "<td>7 </td>");
    EXPECT_EQ(slopeCell(2.5), red + "2.5 </td>");
    EXPECT_EQ(slopeCell(-45.25), red + "45.3 </td>");
    EXPECT_TRUE(slopeCell(std::nan("")).startsWith(red));
}

TEST_F(Report, PicturesGoBesideTheReportWithRelativeLinks)
{
    Pictures pictures;
    pictures.refusedCrop = bad.region();
    QVector<int> progress;
    input.outputPath = QDir::toNativeSeparators(dir.filePath("run.1.html"));
    input.pictures = &pictures;
    input.progress = [&](int region) { progress << region; };
    const QString html = buildMtfReport(input);

    ASSERT_EQ(pictures.written.size(), 3);
    EXPECT_EQ(pictures.written[0],
              QDir::toNativeSeparators(dir.filePath("run_files/run_mtfRegions.png")));
    EXPECT_TRUE(html.contains("<p align=\"left\"><img title=\"MTF regions\" alt=\"MTF regions\"  "
                              "src=\".\\run_files\\run_mtfRegions.png\"></p>\n\n"));
    EXPECT_TRUE(html.contains(
            "alt=\"MTF results\"  src=\".\\run_files\\run_mtfGraph_20_10_40_60.png\""));
    // The refused crop and the failed region's graph are left out.
    EXPECT_EQ(html.count("<img"), 3);
    EXPECT_EQ(progress, QVector<int>({1, 2}));
}
