// The MTF page on the offscreen platform: gamma choices, synchronous and
// threaded runs, the plot and result pane, auto re-run, capture, the
// file-name line, region files, report pictures and batch runs.

#include "../../platform/colorcal/slantededge.h"
#include "testsupport.h"

#include "imaging/gui/imagegraphicsview.h"
#include "measure/mtf/gui/mtfpage.h"
#include "measure/mtf/gui/mtfplot.h"
#include "measure/mtf/regionbasedmtf.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QDir>
#include <QImageReader>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>
#include <QToolButton>
#include <qwt_plot_curve.h>
#include <qwt_plot_marker.h>

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

const QRectF kEdge(100, 300, 128, 200); // the slanted edge
const QRectF kFlat(10, 10, 50, 50);     // no edge: the library refuses it
const QRectF kOff(400, 10, 50, 50);     // wholly off the 320-pixel-wide picture

class Page : public ::testing::Test
{
protected:
    void SetUp() override
    {
        kestro::test::EdgeParams edge;
        edge.width = 128;
        edge.height = 200;
        edge.sigma[0] = 0.8;
        const QImage part = kestro::test::makeEdgeImage(edge);
        QImage picture(320, 960, QImage::Format_Grayscale8);
        picture.fill(60);
        for (int y = 0; y < part.height(); ++y)
            std::copy(part.constScanLine(y), part.constScanLine(y) + part.width(),
                      picture.scanLine(300 + y) + 100);
        path = kestro::test::saveImage(dir, "edge chart %1.png", picture);
    }

    regionBasedMTF *mtf(int position) const
    {
        const qRegionGraphicsRectItem *item = page.view()->region(position);
        return item ? dynamic_cast<regionBasedMTF *>(item->calculation()) : nullptr;
    }

    void loadWithRegions(std::initializer_list<QRectF> regions)
    {
        ASSERT_TRUE(page.loadImageFile(path));
        for (const QRectF &r : regions)
            page.view()->addRegion(r);
    }

    QTemporaryDir dir;
    QString path;
    MtfPage page;
};

// The picture files an HTML report refers to, resolved beside it.
QStringList pictureFiles(const QString &html, const QString &reportPath)
{
    QStringList files;
    const QRegularExpression src(QStringLiteral("<img[^>]*src=\"([^\"]+)\""));
    for (auto it = src.globalMatch(html); it.hasNext();) {
        QString link = it.next().captured(1);
        link.replace(QLatin1Char('\\'), QLatin1Char('/'));
        files << QFileInfo(reportPath).dir().filePath(link);
    }
    return files;
}

} // namespace

TEST_F(Page, GammaChoicesAndRunsWithoutRegions)
{
    page.customButton()->setChecked(true);
    page.customGammaLine()->setText("0");
    EXPECT_TRUE(page.calcMTF(false)); // only shows and hides the bar
    EXPECT_EQ(page.gamma(), 0.0);
    EXPECT_TRUE(page.progressBar()->isHidden());
    EXPECT_TRUE(page.calculateButton()->isEnabled());
    EXPECT_TRUE(page.loadButton()->isEnabled());

    for (const char *text : {"-0.1", "abc"}) {
        page.customGammaLine()->setText(text);
        CaptureStderr();
        EXPECT_FALSE(page.calcMTF(false));
        EXPECT_EQ(GetCapturedStderr(), "Gamma: Invalid gamma number.\n");
        EXPECT_EQ(page.gamma(), 0.0);
        EXPECT_TRUE(page.progressBar()->isHidden());
        EXPECT_TRUE(page.calculateButton()->isEnabled());
    }
    EXPECT_EQ(page.customGamma(), 1.0);
    page.srgbButton()->setChecked(true);
    EXPECT_TRUE(page.calcMTF(false));
    EXPECT_EQ(page.gamma(), 0.45);
    page.linearButton()->setChecked(true);
    EXPECT_TRUE(page.calcMTF(false));
    EXPECT_EQ(page.gamma(), 1.0);
}

TEST_F(Page, CalculationFillsThePlotAndTheResultPane)
{
    loadWithRegions({kEdge, kFlat});
    EXPECT_EQ(page.fileNameLine()->text(), path);
    page.linearButton()->setChecked(true);
    EXPECT_TRUE(page.calcMTF(false));
    ASSERT_TRUE(mtf(0) && mtf(0)->isValid())
            << (mtf(0) ? mtf(0)->errorMessage().toStdString() : "");
    ASSERT_TRUE(mtf(1));
    EXPECT_FALSE(mtf(1)->isValid());
    EXPECT_FALSE(mtf(1)->errorMessage().isEmpty());

    // No region selected: the first one is plotted, with the gray peak.
    MTFPlot *plot = page.plot();
    const regionBasedMTF &m = *mtf(0);
    EXPECT_EQ(plot->curve(0)->dataSize(), m.pointCount());
    const double *g = m.curve(regionBasedMTF::Gray);
    const unsigned peak = static_cast<unsigned>(std::max_element(g, g + m.pointCount()) - g);
    EXPECT_EQ(plot->peakMarker()->label().text(),
              QString::asprintf("RGB Peak: (%.3g, %.3g)", m.frequencies()[peak], g[peak]));
    EXPECT_EQ(plot->nyquistMarker()->xValue(), 0.5);
    const QString pane = page.resultPane()->toPlainText();
    EXPECT_TRUE(pane.contains("MTF 10/50"));
    EXPECT_TRUE(pane.contains("No valid result for this region. Last error message : "
                              + mtf(1)->errorMessage()));

    // LW/PH on a 960-pixel-high picture: Nyquist at 960.
    page.lwphBox()->setChecked(true);
    EXPECT_EQ(plot->nyquistMarker()->xValue(), 960.0);
    EXPECT_EQ(plot->curve(0)->sample(1).x(), m.frequenciesLWPH()[1]);

    // Selecting the failed region shows its error instead of a plot.
    page.view()->selectRegion(page.view()->region(1));
    EXPECT_FALSE(plot->curve(0)->isVisible());
    EXPECT_TRUE(page.resultPane()->toPlainText().startsWith("Error in MTF calculation."));
    EXPECT_TRUE(page.resultPane()->toPlainText().contains(mtf(1)->errorMessage()));

    // Back on the edge, the pane can list only the selected region.
    page.onlySelectedBox()->setChecked(true);
    page.view()->selectRegion(page.view()->region(0));
    EXPECT_FALSE(page.lwphBox()->isChecked()); // a region edit shows cycles per pixel
    EXPECT_EQ(page.resultPane()->toPlainText().count("Distance from center"), 1);
}

TEST_F(Page, ThreadedRunLocksTheInputsUntilItEnds)
{
    loadWithRegions({kEdge, kEdge.translated(0, 1), kFlat});
    EXPECT_TRUE(page.calcMTF(true));
    // Inputs stay locked until the finished signal reaches the page.
    EXPECT_FALSE(page.calculateButton()->isEnabled());
    EXPECT_FALSE(page.loadButton()->isEnabled());
    EXPECT_FALSE(page.view()->isEnabled());
    EXPECT_FALSE(page.calcMTF(true));
    QTRY_VERIFY_WITH_TIMEOUT(page.calculateButton()->isEnabled(), 30000);
    EXPECT_TRUE(page.view()->isEnabled());
    EXPECT_TRUE(page.progressBar()->isHidden());
    EXPECT_EQ(page.progressBar()->maximum(), 3);
    EXPECT_EQ(page.progressBar()->value(), 3);
    EXPECT_TRUE(mtf(0)->isValid());
    EXPECT_TRUE(mtf(1)->isValid());
    EXPECT_FALSE(mtf(2)->isValid());
    EXPECT_TRUE(page.resultPane()->toPlainText().contains("MTF Table"));
}

TEST_F(Page, AutoRerunMeasuresEditedRegionsAtOnce)
{
    loadWithRegions({kEdge});
    // Without auto re-run a region edit attaches no calculation.
    page.changeRegionRect(page.view()->region(0));
    EXPECT_EQ(mtf(0), nullptr);

    page.autoRerunBox()->setChecked(true);
    EXPECT_TRUE(page.calculateButton()->isCheckable());
    page.calculateButton()->click(); // pressed: a threaded run
    QTRY_VERIFY_WITH_TIMEOUT(!page.isCalculating() && page.progressBar()->isHidden(), 30000);
    ASSERT_TRUE(mtf(0) && mtf(0)->isValid());
    EXPECT_TRUE(page.calculateButton()->isEnabled());

    qRegionGraphicsRectItem *item = page.view()->region(0);
    item->setRect(kEdge.adjusted(2.5, 0, 0, -20));
    page.changeRegionRect(item);
    EXPECT_EQ(mtf(0)->region(), QRect(102, 300, 126, 180));
    EXPECT_TRUE(mtf(0)->isValid());

    page.autoRerunBox()->setChecked(false);
    EXPECT_FALSE(page.calculateButton()->isCheckable());
    EXPECT_FALSE(page.calculateButton()->isChecked());
}

TEST_F(Page, CaptureSavesThePictureAndMarksTheFileLine)
{
    const QByteArray failure = "Error: Unable to capture an image from Strobix.\n\nMake sure "
                               "Strobix is running and the Demo camera is setup and streaming "
                               "images.\n";
    CaptureStderr();
    page.captureMTFChartImage(); // no capture service
    EXPECT_EQ(GetCapturedStderr(), failure.toStdString());

    page.setCaptureFunction([](QImage &) { return false; });
    CaptureStderr();
    page.captureMTFChartImage();
    EXPECT_EQ(GetCapturedStderr(), failure.toStdString());

    page.setCaptureFunction([](QImage &picture) {
        picture = QImage();
        return true;
    });
    CaptureStderr();
    page.captureMTFChartImage();
    EXPECT_EQ(GetCapturedStderr(), "Error: Unable to convert the specified file.\n");
    EXPECT_TRUE(page.view()->picture().isNull());

    page.setCaptureFunction([this](QImage &picture) {
        picture = QImage(path).convertToFormat(QImage::Format_RGB888);
        return true;
    });
    page.captureMTFChartImage();
    const QString saved = QDir::tempPath() + "/from_strobix_to_kestro.png";
    EXPECT_EQ(page.mtfFileName(), QDir::toNativeSeparators(saved));
    EXPECT_EQ(QImageReader(saved).size(), QSize(320, 960));
    EXPECT_EQ(page.view()->picture().size(), QSize(320, 960));
    EXPECT_EQ(page.fileNameLine()->text(), "<<Captured from Strobix>>");
    EXPECT_EQ(page.fileNameLine()->styleSheet(), "background-color: rgb(170, 255, 127);");
}

TEST_F(Page, FileNameLineAndRegionFiles)
{
    ASSERT_TRUE(page.loadImageFile(path));
    const QString red = "background-color: rgb(236, 150, 150);";
    const QString white = "background-color: white;";
    EXPECT_EQ(page.fileNameLine()->styleSheet(), white);
    page.lineTextEdited("x");
    EXPECT_EQ(page.fileNameLine()->styleSheet(), red);
    page.lineTextEdited(path);
    EXPECT_EQ(page.fileNameLine()->styleSheet(), white);
    page.lineTextEdited("");
    EXPECT_EQ(page.fileNameLine()->styleSheet(), white);

    // A typed name is loaded when editing ends.
    const QString missing = dir.filePath("missing.png");
    page.fileNameLine()->setText(missing);
    page.lineTextEdited(missing);
    CaptureStderr();
    page.lineEditingFinished();
    EXPECT_EQ(GetCapturedStderr(),
              ("File load failure: Failed to load the file : " + missing + "\n").toStdString());
    EXPECT_EQ(page.mtfFileName(), path);

    page.view()->addRegion(kEdge);
    page.view()->addRegion(QRectF(10.4, 10.6, 20.2, 5));
    const QString roi = dir.filePath("regions.roi");
    ASSERT_TRUE(page.saveRegionFile(roi));
    CaptureStderr();
    page.removeAllRegions();
    EXPECT_EQ(GetCapturedStderr(), "Region removal: Are you sure you want to remove all regions \n");
    EXPECT_EQ(page.view()->regionCount(), 0);
    ASSERT_TRUE(page.loadRegionFile(roi));
    ASSERT_EQ(page.view()->regionCount(), 2);
    EXPECT_EQ(page.view()->region(1)->rect(), QRectF(10, 10, 21, 6));

    CaptureStderr();
    EXPECT_FALSE(page.loadRegionFile(missing));
    EXPECT_FALSE(page.saveRegionFile(dir.filePath("no/such/folder/r.roi")));
    const std::string err = GetCapturedStderr();
    EXPECT_NE(err.find("Load marker position: Cannot load file " + missing.toStdString() + "."),
              std::string::npos);
    EXPECT_NE(err.find("Save region data: Cannot write file "), std::string::npos);
    EXPECT_EQ(page.view()->regionCount(), 2);
}

TEST_F(Page, SavedReportWritesEveryPictureItRefersTo)
{
    loadWithRegions({kEdge, kFlat, kOff});
    ASSERT_TRUE(page.calcMTF(false));
    const QString report = dir.filePath("out.html");
    const QString html = page.mtfReport(report, true, true);

    const QStringList files = pictureFiles(html, report);
    // The regions, the crops of the two regions on the picture, one graph.
    ASSERT_EQ(files.size(), 4) << html.toStdString();
    for (const QString &file : files)
        EXPECT_FALSE(QImageReader(file).read().isNull()) << file.toStdString();
    EXPECT_TRUE(files[0].endsWith("out_files/out_mtfRegions.png"));
    EXPECT_EQ(QImageReader(files[0]).size(), QSize(320, 960)); // small pictures are not scaled
    EXPECT_EQ(QImageReader(files[1]).size(), QSize(128, 200));
    // Batch graphs: 1280 x 960 millimetres at 85 dpi.
    EXPECT_TRUE(files[2].endsWith("out_mtfGraph_100_300_128_200.png"));
    EXPECT_EQ(QImageReader(files[2]).size(), QSize(4283, 3213));
    EXPECT_EQ(html.count("<hr>"), 3);

    const regionBasedMTF &m = *mtf(0);
    for (int c = regionBasedMTF::Red; c <= regionBasedMTF::Blue; ++c) {
        EXPECT_TRUE(html.contains(QString("<tr><td>%1</td><td>%2 </td><td>%3 </td><td>%4 </td>")
                                          .arg(regionBasedMTF::channelName(c),
                                               QString::number(m.overshoot(c), 'g', 3),
                                               QString::number(m.mtf50(c), 'g', 3),
                                               QString::number(m.mtf50Peak(c), 'g', 3))));
    }
}

TEST_F(Page, BatchRunsTakeTheWindowFieldsAndSayWhyNothingWasWritten)
{
    MtfBatchSettings batch;
    batch.commandLine = true;
    batch.gamma = 1.0;
    batch.imagePath = path;
    batch.inlineRegion = kEdge.toRect();
    page.setBatchSettings([&batch] { return batch; });

    // No picture yet.
    CaptureStderr();
    EXPECT_FALSE(page.calcMTF(false));
    std::string err = GetCapturedStderr();
    EXPECT_NE(err.find("File load failure: Failed to load the file : "), std::string::npos);
    EXPECT_NE(err.find("Kestro: no MTF report written: the picture did not load."),
              std::string::npos);

    QImage picture(path);
    page.newSlantedEdgeImage(picture);
    EXPECT_EQ(page.mtfFileName(), path);
    EXPECT_TRUE(page.calcMTF(false));
    EXPECT_EQ(page.view()->regionCount(), 1);
    EXPECT_TRUE(mtf(0)->isValid());
    EXPECT_TRUE(page.calcMTF(false)); // the inline region is added once
    EXPECT_EQ(page.view()->regionCount(), 1);

    // A region file: one region off this picture, one on the edge. The
    // failed one keeps its own error.
    const QString roi = kestro::test::writeFile(
            dir, "two.roi",
            "[patches]\n1\\left=400\n1\\top=10\n1\\width=50\n1\\height=50\n2\\left=100\n"
            "2\\top=300\n2\\width=128\n2\\height=200\nsize=2\n");
    MtfPage second;
    batch.inlineRegion = QRect();
    batch.roiFile = roi;
    batch.roiFileGiven = true;
    second.setBatchSettings([&batch] { return batch; });
    second.newSlantedEdgeImage(picture);
    EXPECT_TRUE(second.calcMTF(false));
    const QString html = second.mtfReport(dir.filePath("two.html"), true, false);
    EXPECT_EQ(html.count("<caption>MTF 10/50</caption>"), 1);
    EXPECT_EQ(html.count("No valid result for this region."), 1);

    // A file with an absurd value says why; so does an inline region beyond
    // any picture.
    batch.roiFile = kestro::test::writeFile(
            dir, "far.roi", "[patches]\n1\\left=1e300\n1\\top=0\n1\\width=9\n1\\height=9\nsize=1\n");
    MtfPage far;
    far.setBatchSettings([&batch] { return batch; });
    far.newSlantedEdgeImage(picture);
    CaptureStderr();
    EXPECT_FALSE(far.calcMTF(false));
    err = GetCapturedStderr();
    EXPECT_NE(err.find("Kestro: no MTF report written: " + batch.roiFile.toStdString()
                       + ": region 1"),
              std::string::npos)
            << err;
    MtfPage farInline;
    batch.roiFileGiven = false;
    batch.inlineRegion = QRect(-2147483647 - 1, 0, 2147483647, 10);
    farInline.setBatchSettings([&batch] { return batch; });
    farInline.newSlantedEdgeImage(picture);
    CaptureStderr();
    EXPECT_FALSE(farInline.calcMTF(false));
    EXPECT_NE(GetCapturedStderr().find("lies beyond the largest picture size"), std::string::npos);

    // A missing region file, and regions without a result.
    MtfPage third;
    batch.roiFileGiven = true;
    batch.roiFile = dir.filePath("missing.roi");
    third.setBatchSettings([&batch] { return batch; });
    third.newSlantedEdgeImage(picture);
    CaptureStderr();
    EXPECT_FALSE(third.calcMTF(false));
    err = GetCapturedStderr();
    EXPECT_NE(err.find("Load marker position: Cannot load file " + batch.roiFile.toStdString()),
              std::string::npos);
    EXPECT_NE(err.find("Kestro: no MTF report written"), std::string::npos);

    MtfPage fourth;
    batch.roiFileGiven = false;
    batch.inlineRegion = kFlat.toRect();
    fourth.setBatchSettings([&batch] { return batch; });
    fourth.newSlantedEdgeImage(picture);
    CaptureStderr();
    EXPECT_FALSE(fourth.calcMTF(false));
    err = GetCapturedStderr();
    EXPECT_NE(err.find("Kestro: no MTF report written: no region has a valid result; region 1 "
                       "(10_10_50_50): "),
              std::string::npos)
            << err;
}
