// The MTF page on the offscreen platform: gamma choices, synchronous and
// threaded runs, the plot and result pane, auto re-run, capture, typed
// paths and batch runs; the plot's markers and legend.

#include "../../platform/colorcal/slantededge.h"
#include "testsupport.h"

#include "imaging/gui/imagegraphicsview.h"
#include "measure/mtf/gui/mtfpage.h"
#include "measure/mtf/gui/mtfplot.h"
#include "measure/mtf/mtfthread.h"
#include "measure/mtf/regionbasedmtf.h"
#include "platform/colorcal/imagecache.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>
#include <QToolButton>
#include <qwt_legend.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_marker.h>

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

// Plot data: gray has two equal maxima, red lies above it everywhere.
const double kX[5] = {0, 0.1, 0.2, 0.3, 0.4};
const double kGray[5] = {0.5, 0.9, 0.9, 0.2, 0.1};
const double kRed[5] = {2, 2, 2, 2, 2};

const QRectF kEdge(100, 300, 128, 200); // the slanted edge
const QRectF kFlat(10, 10, 50, 50);     // no edge: the library refuses it

class Page : public ::testing::Test
{
protected:
    void SetUp() override
    {
        kestro::test::EdgeParams edge; // 128 x 200
        edge.sigma[0] = 0.8;
        path = kestro::test::saveImage(dir, "edge chart %1.png",
                                       kestro::test::edgeInPicture(edge, {320, 960},
                                                                   kEdge.topLeft().toPoint(), 60));
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

} // namespace

TEST_F(Page, GammaChoicesAndRunsWithoutRegions)
{
    page.customButton()->setChecked(true);
    page.customGammaLine()->setText("0");
    EXPECT_TRUE(page.calcMTF(false)); // only shows and hides the bar
    EXPECT_EQ(page.gamma(), 0.0);

    page.customGammaLine()->setText("-0.1");
    CaptureStderr();
    EXPECT_FALSE(page.calcMTF(false));
    EXPECT_EQ(GetCapturedStderr(), "Gamma: Invalid gamma number.\n");
    EXPECT_EQ(page.gamma(), 0.0);
    EXPECT_TRUE(page.progressBar()->isHidden());
    EXPECT_TRUE(page.calculateButton()->isEnabled());
    EXPECT_TRUE(page.loadButton()->isEnabled());
    page.srgbButton()->setChecked(true);
    EXPECT_TRUE(page.calcMTF(false));
    EXPECT_EQ(page.gamma(), 0.45);
}

TEST_F(Page, CalculationFillsThePlotAndTheResultPane)
{
    loadWithRegions({kEdge, kFlat});
    EXPECT_EQ(page.fileNameLine()->text(), path);
    page.linearButton()->setChecked(true);
    EXPECT_TRUE(page.calcMTF(false));
    ASSERT_TRUE(mtf(0) && mtf(0)->isValid())
            << (mtf(0) ? mtf(0)->errorMessage().toStdString() : "");
    ASSERT_TRUE(mtf(1) && !mtf(1)->isValid());

    // No region selected: the first one is plotted.
    MTFPlot *plot = page.plot();
    const regionBasedMTF &m = *mtf(0);
    EXPECT_EQ(plot->curve(0)->dataSize(), m.pointCount());
    EXPECT_EQ(plot->nyquistMarker()->xValue(), 0.5);
    EXPECT_TRUE(page.resultPane()->toPlainText().contains(
            "No valid result for this region. Last error message : " + mtf(1)->errorMessage()));

    // LW/PH on a 960-pixel-high picture: Nyquist at 960.
    page.lwphBox()->setChecked(true);
    EXPECT_EQ(plot->nyquistMarker()->xValue(), 960.0);
    EXPECT_EQ(plot->curve(0)->sample(1).x(), m.frequenciesLWPH()[1]);

    // Selecting the failed region shows its error instead of a plot.
    page.view()->selectRegion(page.view()->region(1));
    EXPECT_FALSE(plot->curve(0)->isVisible());
    EXPECT_TRUE(page.resultPane()->toPlainText().startsWith("Error in MTF calculation."));

    // Back on the edge, the pane can list only the selected region.
    page.onlySelectedBox()->setChecked(true);
    page.view()->selectRegion(page.view()->region(0));
    EXPECT_FALSE(page.lwphBox()->isChecked()); // a region edit shows cycles per pixel
    EXPECT_EQ(page.resultPane()->toPlainText().count("Distance from center"), 1);
}

// The worker's end and the page's handling of it are apart: in between, the
// page must still count as calculating, or a second run starts while the
// first one's end is pending and that end then unlocks the inputs under it.
TEST_F(Page, ThreadedRunLocksTheInputsUntilItsEndIsHandled)
{
    loadWithRegions({kEdge, kEdge.translated(0, 1), kFlat});
    ASSERT_TRUE(page.calcMTF(true));
    EXPECT_FALSE(page.calculateButton()->isEnabled());
    EXPECT_FALSE(page.loadButton()->isEnabled());
    EXPECT_FALSE(page.view()->isEnabled());
    auto *worker = page.findChild<MTFThread *>();
    ASSERT_TRUE(worker && worker->wait(30000)); // ended; its signal not yet handled
    EXPECT_TRUE(page.isCalculating());
    EXPECT_FALSE(page.calcMTF(true));
    EXPECT_FALSE(page.calculateButton()->isEnabled());
    QTRY_VERIFY_WITH_TIMEOUT(page.calculateButton()->isEnabled(), 30000);
    EXPECT_TRUE(page.view()->isEnabled());
    EXPECT_TRUE(page.progressBar()->isHidden());
    EXPECT_EQ(page.progressBar()->value(), 3);
    EXPECT_TRUE(mtf(1)->isValid());
    EXPECT_FALSE(mtf(2)->isValid());
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
}

TEST_F(Page, CaptureAndTypedPathsSetThePicture)
{
    page.setCaptureFunction([](QImage &p) { return p = QImage(), true; });
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
    EXPECT_EQ(QImage(saved).size(), QSize(320, 960));
    EXPECT_EQ(page.fileNameLine()->text(), "<<Captured from Strobix>>");
    // The regions measure the picture in memory; the file is not read back.
    EXPECT_EQ(kestro::colorcal::loadImageCached(saved).constBits(),
              page.view()->picture().constBits());

    // A typed path is loaded when editing ends; a missing one changes nothing.
    const QString missing = dir.filePath("missing.png");
    page.fileNameLine()->setText(missing);
    page.lineTextEdited(missing);
    CaptureStderr();
    page.lineEditingFinished();
    EXPECT_NE(GetCapturedStderr().find(missing.toStdString()), std::string::npos);
    EXPECT_EQ(page.mtfFileName(), QDir::toNativeSeparators(saved));
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

    // Region files and inline regions that cannot give a report say why.
    const auto refusal = [&](const QString &roiFile, const QRect &inlineRegion) {
        batch.roiFile = roiFile;
        batch.roiFileGiven = !roiFile.isEmpty();
        batch.inlineRegion = inlineRegion;
        MtfPage other;
        other.setBatchSettings([&batch] { return batch; });
        other.newSlantedEdgeImage(picture);
        CaptureStderr();
        EXPECT_FALSE(other.calcMTF(false));
        const std::string text = GetCapturedStderr();
        EXPECT_NE(text.find("Kestro: no MTF report written"), std::string::npos) << text;
        return text;
    };
    const QString missing = dir.filePath("missing.roi");
    EXPECT_NE(refusal(missing, {})
                      .find(("Load marker position: Cannot load file " + missing).toStdString()),
              std::string::npos);
    EXPECT_NE(refusal({}, kFlat.toRect())
                      .find("no region has a valid result; region 1 (10_10_50_50): "),
              std::string::npos);
}

TEST_F(Page, CapturedPictureIsFittedToTheView)
{
    page.resize(1366, 700);
    page.show();
    QImage big(4000, 3000, QImage::Format_RGB888);
    big.fill(Qt::gray);
    page.setCaptureFunction([&](QImage &p) { return p = big, true; });
    // Captured while the previous picture is zoomed in: the view loses its
    // scroll bars on the way.
    page.captureMTFChartImage();
    page.view()->zoomIn();
    page.view()->zoomIn();
    QApplication::processEvents();
    page.captureMTFChartImage();
    QApplication::processEvents();
    const QSizeF shown = page.view()->mapFromScene(page.view()->sceneRect()).boundingRect().size();
    const QSize room = page.view()->viewport()->size();
    EXPECT_LE(shown.width(), room.width());
    EXPECT_LE(shown.height(), room.height());
    EXPECT_GE(std::max(shown.width() - room.width(), shown.height() - room.height()), -4.0)
            << shown.width() << "x" << shown.height() << " in " << room.width() << "x"
            << room.height();
}

TEST(MtfPlot, MarkersLegendAndClearing)
{
    MTFPlot plot;
    plot.setData(kX, kGray, kRed, kRed, kRed, 5);
    EXPECT_EQ(plot.curve(3)->dataSize(), 5u);
    // The first of the gray curve's equal maxima.
    EXPECT_EQ(plot.peakMarker()->value(), QPointF(0.1, 0.9));
    EXPECT_EQ(plot.peakMarker()->label().text(), "RGB Peak: (0.1, 0.9)");
    EXPECT_EQ(plot.nyquistMarker()->xValue(), 0.5);

    // Unchecking a legend item hides its curve; new data shows it again.
    emit plot.legendWidget()->checked(plot.itemToInfo(plot.curve(1)), false, 0);
    EXPECT_FALSE(plot.curve(1)->isVisible());
    EXPECT_TRUE(plot.curve(2)->isVisible());
    plot.setData(kX, kGray, kRed, kRed, kRed, 5);
    EXPECT_TRUE(plot.curve(1)->isVisible());

    plot.setData(nullptr, nullptr, nullptr, nullptr, nullptr, 0);
    EXPECT_FALSE(plot.curve(0)->isVisible());
    EXPECT_EQ(plot.curve(0)->dataSize(), 0u);
    EXPECT_FALSE(plot.peakMarker()->isVisible());
    EXPECT_FALSE(plot.nyquistMarker()->isVisible());
}
