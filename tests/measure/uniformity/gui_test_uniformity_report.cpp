// The uniformity report, CPIQ text file and CSV, byte for byte, on a flat
// field with known shading: red falls off towards the top, blue towards the
// left, green is flat; and the channel charts written for the report.

#include "measure/uniformity/gui/qspectrogramplot.h"
#include "measure/uniformity/gui/uniformityreport.h"

#include <gtest/gtest.h>

using namespace kestro;

namespace {

// 48 x 32 pixels in 4 x 4 blocks (a 12 x 8 grid at subsample size 4):
// R = 120 + 10 row, G = 150, B = 100 + 5 column of the block.
QImage shadedField()
{
    QImage image(48, 32, QImage::Format_RGB32);
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 48; ++x)
            image.setPixel(x, y, qRgb(120 + 10 * (y / 4), 150, 100 + 5 * (x / 4)));
    return image;
}

UniformityReportSettings shadedSettings()
{
    UniformityReportSettings s;
    s.imagePath = QStringLiteral("/data/flat field.png");
    s.subsample = 4;
    s.centerPercent = 50;
    s.cornerPercent = 25;
    s.chartSize = 550;
    s.chartChannels = uniformityChannelBit(UniformityChannel::B)
                      | uniformityChannelBit(UniformityChannel::Y);
    return s;
}

UniformityReportData shadedData()
{
    UniformityPass pass;
    UniformityReportData data;
    EXPECT_TRUE(computeUniformityReport(UniformityImage(shadedField()), shadedSettings(), pass,
                                        data, nullptr));
    return data;
}

// The zone lines of handmadeZones() as the CSV and the CPIQ file write them.
const char kZoneLines[] = "1,1,201.5,190.25,25.7143,80.1235,-1.5,2.25,0.4\n"
                          "1,2,202.5,190.25,25.7143,80.1235,-1.5,2.25,0.5\n"
                          "1,3,203.5,190.25,25.7143,80.1235,-1.5,2.25,0.6\n"
                          "2,1,201.5,190.25,25.7143,80.1235,-1.5,2.25,0.7\n"
                          "2,2,202.5,190.25,25.7143,80.1235,-1.5,2.25,0.8\n"
                          "2,3,203.5,190.25,25.7143,80.1235,-1.5,2.25,0.9\n";

// Two rows of three zones.
CpiqResult handmadeZones()
{
    CpiqResult cpiq;
    cpiq.rows = 2;
    cpiq.cols = 3;
    cpiq.valid = true;
    for (int r = 1; r <= 2; ++r)
        for (int c = 1; c <= 3; ++c)
            cpiq.zones.push_back({r, c, 200.5 + c, 190.25, 180.0 / 7, 80.1234567, -1.5, 2.25,
                                  0.1 * (3 * r + c)});
    cpiq.metric = 0.9;
    return cpiq;
}

} // namespace

TEST(UniformityReport, HtmlRowsPicturesAndCpiq)
{
    const QString html = uniformityReportHtml(shadedSettings(), shadedData(),
                                              QStringLiteral("/tmp/k/"));
    EXPECT_TRUE(html.contains(
            "<p>Image: /data/flat field.png</p> <p>Original Width : 48\tOriginal Height : "
            "32\tSubSampled Width : 12\tSubSampled Height : 8\tSubSampling Rate : 4</p><p>Center "
            "Percentage : 50 %\tCorner Percentage : 25 %</p>\n"));
    // Each channel's row: max, mean, min, centre, the four corners and their
    // drop-offs; the CSV test checks every row's figures.
    const QString row = QStringLiteral("</th>\n<th align=\"center\">");
    EXPECT_TRUE(html.contains(QStringLiteral("<tr><th align=\"center\">Y") + row + "162" + row
                              + "148" + row + "135" + row + "148.93" + row + "137.395" + row
                              + "141.955" + row + "152.345" + row + "156.905" + row + "11.535" + row
                              + "6.975" + row + "-3.415" + row + "-7.975" + "</th></tr>\n"))
            << html.toStdString();
    // The picture at the chart size, then the charts of the checked channels.
    EXPECT_TRUE(html.contains(
            "<p align=\"center\"><img width=\"550\" height=\"366\" src=\"/data/flat field.png\">"
            "</p> <p><center>Original Image</center></p> <p></p><br><br><p align=\"center\"><img "
            "src=\"/tmp/k/UniformityY.png\"></p> <p><center>Uniformity Chart of Y Channel</center>"
            "</p> <p></p><br><br><p align=\"center\"><img src=\"/tmp/k/UniformityB.png\">"));

    // The CPIQ zones, when measured, fill the last table.
    UniformityReportData data = shadedData();
    data.cpiq = handmadeZones();
    const QString withZones = uniformityReportHtml(shadedSettings(), data, "/tmp/k/");
    EXPECT_TRUE(withZones.endsWith(
            "<h2>CPIQ regions shading balance report</h2><table cellspacing=\"15\"><tr><th></th>"
            "<th>1<th>2<th>3<tr><th>1<td>0.4</td><td>0.5</td><td>0.6</td>"
            "<tr><th>2<td>0.7</td><td>0.8</td><td>0.9</td></table>"
            "<p><H3> Color Uniformity Metric (CPIQ) </H3>0.9</p></body></html>"))
            << withZones.toStdString();
}

TEST(UniformityReport, CsvByteForByte)
{
    UniformityReportData data = shadedData();
    const QString table = QStringLiteral(
            "Channel,Max,Mean,Min,Center,Upper Left,Upper Right,Lower Left,Lower Right,"
            "UL DropOff,UR DropOff,LL DropOff,LR DropOff\n"
            "Y,162.53,148.93,135.33,148.93,137.395,141.955,152.345,156.905,11.535,6.975,-3.415,"
            "-7.975\n"
            "R,190,155,120,155,125,125,175,175,30,30,-20,-20\n"
            "G,150,150,150,150,150,150,150,150,0,0,0,0\n"
            "B,155,127.5,100,127.5,105,145,105,145,22.5,-17.5,22.5,-17.5\n");
    EXPECT_EQ(uniformityCsv(data), table);
    data.cpiq = handmadeZones();
    EXPECT_EQ(uniformityCsv(data),
              table + "\nZone row,Zone column,Red,Green,Blue,L*,a*,b*,Delta-ab\n" + kZoneLines
                      + "\nColor Uniformity Metric (CPIQ),0.9\n");
    // The CPIQ text file: the same zone lines, then the zones as a grid.
    const QString cpiq = uniformityCpiqText(data.cpiq);
    EXPECT_TRUE(cpiq.contains(kZoneLines));
    EXPECT_TRUE(cpiq.endsWith("\n\n1,2,3,\n1,0.4,0.5,0.6,\n>2,0.7,0.8,0.9,\n> \nColor Uniformity "
                              "Metric (CPIQ) \n0.9"));
}

TEST(UniformityReport, RefusalsAndCpiqZones)
{
    const UniformityImage image(shadedField());
    UniformityPass pass;
    UniformityReportData data;
    UniformityReportSettings settings = shadedSettings();
    QString error;
    settings.subsample = 5; // > min(48 / 8, 32 / 8)
    EXPECT_FALSE(computeUniformityReport(image, settings, pass, data, &error));
    EXPECT_EQ(error, QLatin1String(kUniformitySubsampleMessage));
    settings.subsample = 4;
    settings.cornerPercent = -1;
    EXPECT_FALSE(computeUniformityReport(image, settings, pass, data, &error));
    EXPECT_TRUE(error.contains("-1")) << error.toStdString();
    settings.cornerPercent = 25;
    settings.cpiq = true;
    settings.cpiqRows = 2;
    settings.cpiqCols = 2;
    ASSERT_TRUE(computeUniformityReport(image, settings, pass, data, nullptr));
    ASSERT_TRUE(data.cpiq.valid);
    EXPECT_EQ(data.cpiq.zones.size(), 4u);
    // Blue grows to the right: the left and right zones differ in colour.
    EXPECT_GT(data.cpiq.metric, 1.0);
    // Charts that cannot be written are not counted.
    QSpectrogramPlot plot;
    EXPECT_EQ(renderUniformityCharts(plot, pass, settings, "/nonexistent/"), 0);
}

TEST(UniformityReport, PictureSizeAndColourMapName)
{
    EXPECT_EQ(uniformityPictureSize(4000, 3000, 550), QSize(550, 412));
    EXPECT_EQ(uniformityPictureSize(3000, 4000, 550), QSize(412, 550));
    EXPECT_EQ(uniformityPictureSize(100000, 1, 700), QSize(700, 0));
    // The report reads the name without regard to letter case.
    EXPECT_EQ(uniformityReportColorMap("GRAY"), "Gray");
    EXPECT_EQ(uniformityReportColorMap("Rainbow"), "Standard");
}
