// The chart page: processing with its messages, the metric selector, the
// noise side, auto run, capture and the reports it writes.

#include "measure/color/gui/macbethchartpage.h"

#include "chartimage.h"
#include "imaging/frame.h"
#include "imaging/gui/macbethframeview.h"
#include "measure/color/graychartplot.h"
#include "measure/noise/chartgraph.h"

#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <gtest/gtest.h>

using namespace kestro;

namespace {

const std::array<QRgb, 24> &kColours = test::kSrgbChartColours;

struct Message
{
    QString title, text;
};

// A page with recorded messages and a generated chart as its frame set.
struct PageFixture
{
    QTemporaryDir dir;
    MacbethChartPage page;
    QVector<Message> messages;
    test::GeneratedChart chart = test::makeChart(kColours, 20, 6);

    PageFixture()
    {
        page.setMessageFunction([this](QMessageBox::Icon, const QString &t, const QString &m) {
            messages.append({t, m});
        });
        page.resize(1400, 900);
    }
    QString addFrame(const QImage &image, const QString &name)
    {
        const QString path = dir.filePath(name);
        image.save(path);
        CFrame frame;
        EXPECT_TRUE(frame.load(path));
        page.frameView()->addFrame(frame);
        return path;
    }
    void placeRegions(int count)
    {
        page.frameView()->view()->removeAllRegions();
        for (int i = 0; i < count; ++i)
            page.frameView()->view()->addRegion(QRectF(chart.rects[i % 24]).adjusted(2, 2, -2, -2));
    }
    QString lastText() const { return messages.isEmpty() ? QString() : messages.last().text; }
};

} // namespace

TEST(MacbethChartPage, ProcessingMessagesAndResults)
{
    PageFixture f;
    // The selector before any processing changes nothing.
    f.page.metricSelector()->setCurrentIndex(4);
    EXPECT_EQ(f.page.colorChart()->mode(), ChartGraph::ValueMode);
    EXPECT_EQ(f.page.colorGrayPlot()->curve(0)->dataSize(), 0u);
    f.page.metricSelector()->setCurrentIndex(0);

    f.placeRegions(24);
    EXPECT_FALSE(f.page.processMacbethChart());
    EXPECT_EQ(f.lastText(), "Color difference process error : No valid image to do processing.");

    // A region off the picture: told, no report.
    f.addFrame(f.chart.image, "chart.png");
    f.page.frameView()->view()->region(7)->setRect(QRectF(-3.5, 2, 4, 4));
    f.messages.clear();
    EXPECT_TRUE(f.page.processMacbethChart());
    EXPECT_EQ(f.lastText(), "Color difference process error : Invalid region:((-4, 2), (0, 5))");
    EXPECT_TRUE(f.page.colorDifferenceHtml().isEmpty());

    f.placeRegions(24);
    f.messages.clear();
    ASSERT_TRUE(f.page.processMacbethChart());
    EXPECT_TRUE(f.messages.isEmpty());
    EXPECT_TRUE(f.page.colorDifferenceHtml().contains(
            "<a href=\"" + QDir::toNativeSeparators(f.dir.filePath("chart.png"))));

    // The selector switches the bar chart between all patches and the gray row.
    f.page.metricSelector()->setCurrentIndex(5);
    EXPECT_EQ(f.page.colorChart()->mode(), ChartGraph::GrayMode);
    EXPECT_EQ(f.page.colorGrayPlot()->curve(0)->dataSize(), 6u);
    f.page.metricSelector()->setCurrentIndex(1);
    EXPECT_EQ(f.page.colorChart()->mode(), ChartGraph::ValueMode);
}

TEST(MacbethChartPage, NoiseOverTheFrameSet)
{
    PageFixture f;
    f.page.initNoiseCharts();
    EXPECT_FALSE(f.page.calculateNoise());
    EXPECT_EQ(f.messages.last().title, "Noise calculation");
    EXPECT_EQ(f.lastText(), "Invalid frame data. Calculation cannot be performed.");

    f.placeRegions(24);
    QImage brighter = f.chart.image;
    brighter.setPixel(f.chart.rects[0].center(), qRgb(200, 90, 80));
    const QString a = f.addFrame(f.chart.image, "a.png");
    f.addFrame(brighter, "b.png");
    ASSERT_TRUE(f.page.calculateNoise());
    ASSERT_EQ(f.page.noiseResults().size(), 24);
    EXPECT_GT(f.page.noiseResults()[0].channels[0].overall, 0.0);
    EXPECT_TRUE(f.page.noiseHtml().contains("<caption>Patch 24&nbsp;"));
    EXPECT_TRUE(f.page.noiseHtml().contains(QDir::toNativeSeparators(a)));

    f.page.noisePatchSelector()->setCurrentIndex(5);
    EXPECT_FALSE(f.page.noiseHtml().contains("<caption>Patch 1&nbsp;"));
    EXPECT_EQ(f.page.noiseChart()->selectedPatch(), 4);
}

TEST(MacbethChartPage, AutoRunMeasuresAgainAfterARegionEdit)
{
    PageFixture f;
    f.addFrame(f.chart.image, "a.png");
    f.addFrame(f.chart.image, "b.png");
    f.placeRegions(24);
    auto *view = f.page.frameView()->view();
    emit view->regionResized(view->region(0));
    EXPECT_TRUE(f.page.colorDifferenceHtml().isEmpty()); // auto run is off

    f.page.updateNoiseColorDiffAutoRun(true);
    view->region(0)->setRect(QRectF(f.chart.rects[1]).adjusted(3, 3, -3, -3));
    emit view->regionResized(view->region(0));
    EXPECT_FALSE(f.page.colorDifferenceHtml().isEmpty());
    ASSERT_EQ(f.page.noiseResults().size(), 24);
    // Patch 1 now measures the colour of patch 2.
    EXPECT_NEAR(f.page.colorDifference().patch(0).R, qRed(kColours[1]) / 255.0, 1e-4);
    EXPECT_TRUE(f.messages.isEmpty());

    // An incomplete placement is not measured (no error box at every edit).
    view->selectRegion(view->region(0));
    view->removeSelectedRegion();
    emit view->regionResized(view->region(0));
    EXPECT_TRUE(f.messages.isEmpty());
}

TEST(MacbethChartPage, CaptureSeriesReplacesTheFramesOnlyWhenComplete)
{
    QTemporaryDir tmp;
    const QByteArray savedTmp = qgetenv("TMPDIR");
    qputenv("TMPDIR", QFile::encodeName(tmp.path()));
    PageFixture f;
    const QString previous = f.addFrame(f.chart.image, "chart.png");
    int calls = 0;
    int failing = 0;     // the call that fails
    bool refused = true; // by the service, else with a picture that does not convert
    f.page.setCaptureFunction([&](QImage &picture) {
        ++calls;
        if (calls == failing && refused)
            return false;
        picture = calls == failing ? QImage() : QImage(64, 48, QImage::Format_RGB888);
        if (!picture.isNull())
            picture.fill(QColor(10 * calls, 20, 30));
        return true;
    });
    f.page.findChild<QSpinBox *>("spinBoxCaptureCount")->setValue(3);
    macbethFrameView *view = f.page.frameView();
    // A series that fails partway keeps the previous frames, and writes no
    // file that an earlier series' frames may be named after.
    for (const auto &failure : {std::make_pair(2, true), std::make_pair(3, false)}) {
        calls = 0;
        failing = failure.first;
        refused = failure.second;
        f.page.captureChartImage();
        EXPECT_EQ(f.lastText(), refused ? captureFailureText() : captureConversionFailureText());
        ASSERT_EQ(view->frameCount(), 1);
        EXPECT_EQ(view->frameFileName(view->frameSet().at(0)), previous);
        EXPECT_TRUE(QDir(tmp.path()).entryList(QDir::Files).isEmpty());
    }

    calls = 0;
    failing = 0;
    f.page.captureChartImage();
    ASSERT_EQ(view->frameCount(), 3);
    for (int k = 1; k <= 3; ++k) {
        const QString file = QDir::toNativeSeparators(
                tmp.filePath(QStringLiteral("from_strobix_to_kestro%1.png").arg(k)));
        EXPECT_EQ(view->frameFileName(view->frameSet().at(k - 1)), file);
        EXPECT_EQ(QImage(file).pixelColor(5, 5), QColor(10 * k, 20, 30));
    }
    qputenv("TMPDIR", savedTmp);
}
