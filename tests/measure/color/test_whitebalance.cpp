#include "measure/color/whitebalance.h"

#include "measure/color/macbethcolordifference.h"

#include <gtest/gtest.h>

using namespace kestro;

namespace {

// Gray row with chosen white-balance values, every record computed.
void fillGrayRow(QStdMacbethChartColorDifference &m, const double rOverG[6], const double bOverG[6],
                 const double chroma[6])
{
    for (int i = 0; i < 24; ++i) {
        MacbethPatch &p = m.patch(i);
        p.hasMeasured = true;
        p.computed = true;
        p.dE00 = 1.0 + i;
        p.dC00 = 0.5 + i;
        p.dH00 = 0.25 + i;
        p.saturation = 0.01 * i;
        if (i >= 18) {
            p.rOverG = rOverG[i - 18];
            p.bOverG = bOverG[i - 18];
            p.chroma = chroma[i - 18];
        }
    }
    m.calculateStatistics();
}

} // namespace

TEST(WhiteBalance, ReportSectionTextAndReciprocalAverages)
{
    QStdMacbethChartColorDifference m;
    const double rg[6] = {0.5, 2.0, 1.0, 1.0, 1.0, 1.0};
    const double bg[6] = {1.0, 1.0, 1.0, 1.0, 1.0, 1.0};
    const double chroma[6] = {1.5, 0.25, 0.0, 0.125, 3.0, 2.0};
    fillGrayRow(m, rg, bg, chroma);
    m.patch(23).computed = false; // an uncomputed gray patch is left out

    QString report = "head";
    appendWhiteBalanceReport(report, m);
    EXPECT_TRUE(report.startsWith("head<center><H1>White Balance</H1></center>\n"));
    // Rows of the computed gray patches only, then the averages: the
    // reciprocal columns are reciprocals of the averaged ratios.
    auto row = [](int patch, const char *chroma, const char *rg, const char *gr) {
        return QString("<tr><td align=\"center\">%1</td><td align=\"right\">%2</td><td "
                       "align=\"right\">%3</td><td align=\"right\">%4</td><td "
                       "align=\"right\">1</td><td align=\"right\">1</td></tr>")
                .arg(patch)
                .arg(chroma, rg, gr);
    };
    EXPECT_TRUE(report.contains(row(19, "1.5", "0.5", "2") + row(20, "0.25", "2", "0.5")
                                + row(21, "0", "1", "1") + row(22, "0.125", "1", "1")
                                + row(23, "3", "1", "1") + "</table></p>\n"))
            << report.toStdString();
    EXPECT_TRUE(report.endsWith("<caption>White Balance Summary Report</caption>\n"
                                "<tr><td>Average Chroma</td><td>1.14583</td></tr>\n"
                                "<tr><td>Average R/G</td><td>1.08333</td></tr>\n"
                                "<tr><td>Average G/R</td><td>0.923077</td></tr>\n"
                                "<tr><td>Average B/G</td><td>1</td></tr>\n"
                                "<tr><td>Average G/B</td><td>1</td></tr>\n"
                                "</table></p>\n"
                                "</body></html>"));
}

TEST(WhiteBalance, MetricSelectionTable)
{
    QStdMacbethChartColorDifference m;
    EXPECT_FALSE(colorMetricSelection(m, 0).valid); // nothing measured yet

    const double rg[6] = {0.8, 0.9, 1.0, 1.1, 1.25, 2.0};
    const double bg[6] = {1.0, 0.5, 4.0, 1.0, 1.0, 1.0};
    const double chroma[6] = {1, 2, 3, 4, 5, 6};
    fillGrayRow(m, rg, bg, chroma);
    EXPECT_FALSE(colorMetricSelection(m, 9).valid);
    EXPECT_FALSE(colorMetricSelection(m, -1).valid);

    // Metrics 0-3 go to the bar chart over all patches, the others over the
    // gray row; both series start at patch 19.
    for (int k : {0, 3, 4, 8}) {
        const ColorMetricSelection s = colorMetricSelection(m, k);
        ASSERT_TRUE(s.valid);
        EXPECT_EQ(s.grayX.front(), 19.0);
        EXPECT_EQ(s.barValues.size(), k <= 3 ? 24 : 6);
    }
    EXPECT_EQ(colorMetricSelection(m, 0).barValues[4], 5.0);    // dE00 of patch 5
    EXPECT_EQ(colorMetricSelection(m, 2).grayValues[0], 18.25); // dH00 of patch 19
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(colorMetricSelection(m, 5).grayValues[i], rg[i]);
        EXPECT_DOUBLE_EQ(colorMetricSelection(m, 6).grayValues[i], 1.0 / rg[i]);
        EXPECT_DOUBLE_EQ(colorMetricSelection(m, 8).grayValues[i], 1.0 / bg[i]);
    }
}
