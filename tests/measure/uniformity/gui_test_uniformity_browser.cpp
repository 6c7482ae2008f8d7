// The uniformity report opens in a real browser engine with every picture:
// as the page writes it (pictures by their paths on disk) and as the batch
// test writes it (pictures copied beside the report, linked with
// backslashes).

#include "browsercheck.h"
#include "measure/color/macbethexport.h"
#include "measure/uniformity/gui/qspectrogramplot.h"
#include "measure/uniformity/gui/uniformityreport.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

using namespace kestro;

using kestro::test::pictureWidths;
using kestro::test::shadedFlatField;

TEST(UniformityReportInBrowser, EveryPictureLoads)
{
#ifndef KESTRO_TEST_WEBENGINE
    GTEST_SKIP() << "built without the browser engine";
#else
    QTemporaryDir dir;
    const QString picture = dir.filePath("flat field.png");
    ASSERT_TRUE(shadedFlatField(300, 200).save(picture));

    // As the page writes it: charts in a folder of their own.
    UniformityReportSettings settings;
    settings.imagePath = QDir::toNativeSeparators(picture);
    settings.subsample = 10;
    settings.centerPercent = 10;
    settings.cornerPercent = 10;
    settings.cpiq = true;
    UniformityPass pass;
    UniformityReportData data;
    ASSERT_TRUE(computeUniformityReport(UniformityImage(shadedFlatField(300, 200)), settings, pass,
                                        data, nullptr));
    ASSERT_TRUE(QDir().mkpath(dir.filePath("charts")));
    const QString charts = QDir::toNativeSeparators(dir.filePath("charts")) + QDir::separator();
    QSpectrogramPlot plot;
    ASSERT_EQ(renderUniformityCharts(plot, pass, settings, charts), 4);
    const QString direct = dir.filePath("direct.html");
    ASSERT_TRUE(saveTextFile(direct, uniformityReportHtml(settings, data, charts)));
    EXPECT_EQ(pictureWidths(direct), QList<int>({300, 1841, 1841, 1841, 1841}));

    // As the batch test writes it.
    ASSERT_TRUE(QDir().mkpath(dir.filePath("tmp")));
    const QString report = dir.filePath("batch report.html");
    const test::ProcessResult r = test::runProcess(test::buildPath("app/KestroLoader"),
                                                   {"Uniformity", picture, report, "ChartSize=700"},
                                                   120000,
                                                   {"TMPDIR=" + dir.filePath("tmp"),
                                                    "QT_QPA_PLATFORM=offscreen"});
    ASSERT_EQ(r.exitCode, 0) << r.err.constData();
    if (r.err.contains("export is not available"))
        GTEST_SKIP() << "no report export in this build";
    EXPECT_EQ(pictureWidths(report), QList<int>({300, 2343, 2343, 2343, 2343}));
#endif
}
