// Save to HTML and Save to CSV: the dispatch by test name, the dialogs and
// messages, the batch paths, and the reports opened in a browser engine.

#include "app/reportexport.h"

#include "imaging/frame.h"
#include "imaging/gui/macbethframeview.h"
#include "measure/color/gui/macbethchartpage.h"
#include "tests/measure/color/chartimage.h"

#include "browsercheck.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kestro;

namespace {

struct StandInHost : KestroReportHost
{
    QString name;
    bool batch = false;
    QString paths[4];
    KestroUniformityBatch *uniformity = nullptr;

    QString currentTestName() const override { return name; }
    bool batchMode() const override { return batch; }
    QWidget *dialogParent() const override { return nullptr; }
    QString reportPath(ReportKind kind) const override { return paths[kind]; }
    void setReportPath(ReportKind kind, const QString &path) override { paths[kind] = path; }
    KestroMtfBatch *mtfPage() const override { return nullptr; }
    KestroUniformityBatch *uniformityPage() const override { return uniformity; }
};

struct StandInUniformity : KestroUniformityBatch
{
    QString html, image, folder, csvPath;
    bool runUniformity() override { return true; }
    QString uniformityHtml() const override { return html; }
    QString uniformityImagePath() const override { return image; }
    QString uniformityImageFolder() const override { return folder; }
    bool saveUniformityCsv(const QString &path) override { return csvPath = path, true; }
};

QString readText(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

// A chart page that has measured colour and noise on two generated frames,
// and an exporter over it with recorded messages and a scripted dialog.
struct ExportFixture
{
    QTemporaryDir dir;
    MacbethChartPage page;
    StandInHost host;
    KestroReportExporter exporter{&host, &page};
    QStringList messages;
    QString dialogAnswer;
    QStringList dialogFilters;

    ExportFixture()
    {
        exporter.setMessageFunction([this](QMessageBox::Icon, const QString &t, const QString &m) {
            messages << t + ": " + m;
        });
        exporter.setSaveDialog([this](QWidget *, const QString &caption, const QString &filter) {
            EXPECT_EQ(caption, "Choose a file name");
            dialogFilters << filter;
            return dialogAnswer;
        });
        page.resize(1400, 900);
    }
    void measure()
    {
        std::array<QRgb, 24> colours;
        for (int k = 0; k < 24; ++k)
            colours[k] = k < 18 ? QColor::fromHsv(k * 20, 160, 200).rgb()
                                : qRgb(240 - 40 * (k - 18), 240 - 40 * (k - 18),
                                       235 - 40 * (k - 18));
        const auto chart = test::makeChart(colours, 24, 8);
        for (int i = 0; i < 2; ++i) {
            QImage frameImage = chart.image;
            frameImage.setPixel(chart.rects[0].center(), qRgb(90 + 40 * i, 80, 70));
            const QString path = dir.filePath(QString("frame %1.png").arg(i + 1));
            ASSERT_TRUE(frameImage.save(path));
            CFrame frame;
            ASSERT_TRUE(frame.load(path));
            page.frameView()->addFrame(frame);
        }
        for (const QRect &r : chart.rects)
            page.frameView()->view()->addRegion(QRectF(r).adjusted(3, 3, -3, -3));
        ASSERT_TRUE(page.processMacbethChart());
        ASSERT_TRUE(page.calculateNoise());
    }
};

using kestro::test::pictureWidths;

} // namespace

TEST(ReportExport, ChartReportsThroughTheDialogs)
{
    ExportFixture f;
    // Nothing measured yet, or a tab without a report: a warning (the texts
    // as users have always seen them, misspelt), no dialog.
    f.dialogAnswer = f.dir.filePath("never.html");
    const QPair<const char *, const char *> cases[] = {
            {"Macbeth Chart Image Tests",
             "Warning: Color Difference table is empty. Please calculate Color Difference first."},
            {"Noise", "Warning: Noise table is empty. Please calculate noise first."},
            {"Initialization", "Warning: Save to HTML report is not available in curret tab."},
    };
    for (const auto &c : cases) {
        f.host.name = c.first;
        f.messages.clear();
        f.exporter.saveToHTMLFile();
        EXPECT_EQ(f.messages, QStringList{c.second}) << c.first;
    }
    f.host.name = "MTF";
    f.messages.clear();
    f.exporter.saveToCSVFile();
    EXPECT_EQ(f.messages,
              QStringList{"Warning: Save to CSV report is not available in curret tab."});
    EXPECT_TRUE(f.dialogFilters.isEmpty());
    // Batch runs never show anything.
    f.host.batch = true;
    f.messages.clear();
    f.host.name = "Color Difference";
    f.exporter.saveToHTMLFile();
    f.exporter.saveToCSVFile();
    EXPECT_TRUE(f.messages.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(f.dir.filePath("never.html")));
    f.host.batch = false;
    f.dialogAnswer.clear();

    f.measure();
    // A cancelled dialog ends the action quietly.
    f.host.name = "Color Difference";
    f.exporter.saveToHTMLFile();
    EXPECT_TRUE(f.messages.isEmpty());
    EXPECT_TRUE(f.host.paths[KestroReportHost::ColorDifferenceReport].isEmpty());

    f.dialogAnswer = QDir::toNativeSeparators(f.dir.filePath("color.html"));
    f.exporter.saveToHTMLFile();
    EXPECT_EQ(f.host.paths[KestroReportHost::ColorDifferenceReport], f.dialogAnswer);
    EXPECT_FALSE(readText(f.dialogAnswer).contains("Signal Noise Results"));

    f.host.name = "macbeth chart image tests"; // names match without regard to case
    f.dialogAnswer = f.dir.filePath("both.html");
    f.exporter.saveToHTMLFile();
    EXPECT_TRUE(readText(f.dialogAnswer).contains("Signal Noise Results"));
    EXPECT_TRUE(QFileInfo::exists(f.dir.filePath("both_files/both_GrayChart_noise.png")));

    f.dialogAnswer = f.dir.filePath("both.csv");
    f.exporter.saveToCSVFile();
    const QString both = readText(f.dialogAnswer);
    EXPECT_TRUE(both.startsWith("The file list:\n1, "));
    EXPECT_TRUE(both.contains("\nImage Name , "));

    EXPECT_TRUE(f.messages.isEmpty());

    // Files that cannot be written: the warnings, nothing made.
    f.dialogAnswer = f.dir.filePath("missing/noise.csv");
    f.exporter.saveToCSVFile();
    EXPECT_EQ(f.messages.last(), "Warning: Cannot write to " + f.dialogAnswer);
    f.dialogAnswer = f.dir.filePath("missing/noise.html");
    f.exporter.saveToHTMLFile();
    EXPECT_TRUE(f.messages.last().startsWith("HTML: Cannot write file " + f.dialogAnswer + ":\n"));
    EXPECT_FALSE(QFileInfo::exists(f.dir.filePath("missing")));
}

TEST(ReportExport, BatchPathsAndTheOtherPages)
{
    ExportFixture f;
    f.measure();
    f.host.batch = true;
    f.host.name = "Noise";
    f.host.paths[KestroReportHost::NoiseReport] = f.dir.filePath("out.HTML");
    f.exporter.saveToCSVFile();
    EXPECT_TRUE(readText(f.dir.filePath("out.csv")).startsWith("The file list:"));
    EXPECT_TRUE(f.dialogFilters.isEmpty());

    // An HTML file that cannot be opened: one line on stdout, nothing made.
    f.host.name = "ColorDifference";
    const QString blocked = f.dir.filePath("no such folder/r.html");
    f.host.paths[KestroReportHost::ColorDifferenceReport] = blocked;
    testing::internal::CaptureStdout();
    f.exporter.saveToHTMLFile();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind("Cannot write file " + blocked.toStdString() + ". ", 0), 0u) << out;
    EXPECT_TRUE(f.messages.isEmpty());

    // Uniformity: the picture and the four maps are copied beside the
    // report and the text refers to the copies.
    StandInUniformity uni;
    f.host.uniformity = &uni;
    QDir(f.dir.path()).mkpath("maps");
    uni.image = f.dir.filePath("flat.png");
    uni.folder = QDir::toNativeSeparators(f.dir.filePath("maps")) + QDir::separator();
    QImage(4, 4, QImage::Format_RGB32).save(uni.image);
    for (const char *map :
         {"UniformityY.png", "UniformityR.png", "UniformityG.png", "UniformityB.png"})
        QImage(2, 2, QImage::Format_RGB32).save(uni.folder + map);
    uni.html = "<img src=\"" + uni.image + "\"><img src=\"" + uni.folder + "UniformityR.png\">";
    for (const char *name : {"Uniformity", "Color Uniformity"}) {
        f.host.name = name;
        f.host.paths[KestroReportHost::UniformityReport] = f.dir.filePath("uni.html");
        f.exporter.saveToHTMLFile();
        EXPECT_EQ(readText(f.dir.filePath("uni.html")),
                  "<center><H1>Color Uniformity Results</H1></center><img "
                  "src=\".\\uni_files\\uni.png\"><img src=\".\\uni_files\\UniformityR.png\">");
        EXPECT_TRUE(QFileInfo::exists(f.dir.filePath("uni_files/uni.png")));
        EXPECT_TRUE(QFileInfo::exists(f.dir.filePath("uni_files/UniformityB.png")));
        f.exporter.saveToCSVFile();
        EXPECT_EQ(uni.csvPath, f.dir.filePath("uni.csv"));
        QFile::remove(f.dir.filePath("uni.html"));
    }
    EXPECT_TRUE(f.messages.isEmpty());
}

TEST(ReportExport, ReportsOpenInABrowserWithEveryPicture)
{
#ifndef KESTRO_TEST_WEBENGINE
    GTEST_SKIP() << "built without the browser engine";
#else
    ExportFixture f;
    f.measure();
    f.host.batch = true;
    f.host.paths[KestroReportHost::ColorDifferenceReport] = f.dir.filePath("chart run.html");
    f.host.paths[KestroReportHost::NoiseReport] = f.dir.filePath("noise.run.html");
    const QPair<const char *, QString> reports[] = {
            {"Color Difference", f.dir.filePath("chart run.html")},
            {"Noise", f.dir.filePath("noise.run.html")},
            {"Macbeth Chart Image Tests", f.dir.filePath("chart run.html")},
    };
    const int pictures[] = {3, 2, 5};
    for (int i = 0; i < 3; ++i) {
        f.host.name = reports[i].first;
        f.exporter.saveToHTMLFile();
        const QList<int> widths = pictureWidths(reports[i].second);
        EXPECT_EQ(widths.size(), pictures[i]) << reports[i].first;
        for (int w : widths)
            EXPECT_GT(w, 0) << reports[i].first;
    }
#endif
}
