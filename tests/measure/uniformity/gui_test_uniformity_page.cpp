// The uniformity page as a user drives it: the subsample line, capture, the
// windows on the picture, the report, CSV and CPIQ files, the data table,
// auto-run, and a batch run from its parameters.

#include "imaging/gui/messages.h"
#include "measure/uniformity/gui/qspectrogramplot.h"
#include "measure/uniformity/gui/uniformitydatadialog.h"
#include "measure/uniformity/gui/uniformitypage.h"
#include "measure/uniformity/gui/uniformitypictureview.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>
#include <QGraphicsItem>
#include <QItemSelectionModel>
#include <QLineEdit>
#include <QSpinBox>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>

using namespace kestro;
using kestro::test::shadedFlatField;

namespace {

// Each test runs with its own temporary folder, where the charts go.
class UniformityPageTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        // The page's messages must not wait for a click.
        ASSERT_TRUE(messagesGoToStderr());
        ASSERT_TRUE(m_temp.isValid());
        m_oldTemp = qgetenv("TMPDIR");
        qputenv("TMPDIR", QFile::encodeName(m_temp.path()));
    }
    void TearDown() override { qputenv("TMPDIR", m_oldTemp); }

    void enterSubsample(const QString &text)
    {
        auto *line = m_page.findChild<QLineEdit *>("uniSubSampSize");
        line->setText(text);
        emit line->editingFinished();
    }

    QTemporaryDir m_temp;
    QByteArray m_oldTemp;
    UniformityPage m_page;
};

} // namespace

TEST_F(UniformityPageTest, SubsampleLineRefusedPicturesAndCapture)
{
    ASSERT_TRUE(m_page.setPicture(shadedFlatField(100, 80), "a.png"));
    const UniformityCalculation &calc = m_page.calculation();
    enterSubsample("10");
    ASSERT_TRUE(calc.isSubsampleValid());
    EXPECT_EQ(m_page.chart()->raster()->cols(), 10);
    // An invalid size leaves the grid and the chart as they were.
    for (const char *bad : {"11", "abc"}) {
        enterSubsample(bad);
        EXPECT_FALSE(calc.isSubsampleValid()) << bad;
        EXPECT_EQ(calc.data().cols(), 10);
        EXPECT_EQ(m_page.chart()->raster()->cols(), 10);
    }

    // A capture that does not convert keeps the picture; one that does is
    // saved and measured.
    enterSubsample("10");
    auto *fileName = m_page.findChild<QLineEdit *>("uniFileName");
    m_page.setCaptureFunction([](QImage &picture) { return picture = QImage(), true; });
    m_page.captureUniChartImage();
    EXPECT_EQ(calc.image()->width(), 100);
    EXPECT_TRUE(fileName->text().isEmpty());
    m_page.setCaptureFunction([](QImage &picture) {
        picture = shadedFlatField(160, 120).convertToFormat(QImage::Format_RGB888);
        return true;
    });
    m_page.captureUniChartImage();
    EXPECT_EQ(calc.image()->width(), 160);
    EXPECT_EQ(fileName->text(), "<<Captured from Strobix>>");
    const QString saved = m_temp.filePath("from_strobix_to_kestro.png");
    EXPECT_EQ(QImage(saved).size(), QSize(160, 120));
    m_page.printUniHTML();
    EXPECT_EQ(m_page.uniformityImagePath(), saved);

    // A 1 x 1 picture loads, but no subsample size fits it.
    ASSERT_TRUE(m_page.setPicture(shadedFlatField(1, 1), "one.png"));
    enterSubsample("1");
    EXPECT_FALSE(calc.isSubsampleValid());
    m_page.printUniHTML();
    EXPECT_TRUE(m_page.uniformityHtml().isEmpty());
}

TEST_F(UniformityPageTest, WindowsAndLabelsOnThePicture)
{
    ASSERT_TRUE(m_page.setPicture(shadedFlatField(400, 300), "flat.png"));
    const UniformityPictureView *view = m_page.pictureView();
    const UniformitySummary &s = m_page.calculation().summary();
    // 40 x 30 grid, 10 %: the centre window is 4 x 3 cells in the middle,
    // the top-right corner covers columns 35 to 38 and is drawn one cell
    // wider, all in picture pixels.
    EXPECT_EQ(view->windowRect(0), QRectF(180, 135, 40, 30));
    EXPECT_EQ(view->windowRect(1), QRectF(0, 0, 40, 30));
    EXPECT_EQ(view->windowRect(2), QRectF(350, 0, 50, 40));
    EXPECT_EQ(view->windowRect(4), QRectF(350, 260, 50, 40));
    EXPECT_EQ(view->labelText(0), QString("%1").arg(s.center));
    EXPECT_EQ(view->labelText(2), s.labels[TopRight]);
    // The top-right label right-aligned to its window's right edge at its top.
    EXPECT_EQ(view->labelAnchor(2), QPointF(400, 0));
    EXPECT_TRUE(view->labelAlignment(2) & Qt::AlignRight);

    // No label covers another, on a wide page or one as narrow as it may
    // get (a laptop beside the help), where a picture is narrower than two
    // corner labels.
    m_page.show();
    for (const int width : {1600, 0}) {
        m_page.resize(width, 700);
        QTest::qWait(50);
        QList<QRectF> labels;
        for (const QGraphicsItem *item : view->scene()->items())
            if (item->flags() & QGraphicsItem::ItemIgnoresTransformations)
                labels << item->deviceTransform(view->viewportTransform())
                                  .mapRect(item->boundingRect());
        ASSERT_EQ(labels.size(), 5);
        for (int i = 0; i < 5; ++i)
            for (int j = i + 1; j < 5; ++j)
                EXPECT_FALSE(labels[i].intersects(labels[j]))
                        << "page " << m_page.width() << " px, labels " << i << " and " << j;
    }
    m_page.hide();

    // Larger windows follow the corner spin box; the chart keeps its zoom
    // until the grid itself changes.
    MyZoomer *zoomer = m_page.chart()->zoomer();
    zoomer->zoom(QRectF(5, 5, 10, 10));
    m_page.findChild<QSpinBox *>("uniCornerPercent")->setValue(20);
    EXPECT_EQ(view->windowRect(2), QRectF(310, 0, 90, 70));
    EXPECT_EQ(zoomer->zoomRectIndex(), 1u);
    enterSubsample("20");
    EXPECT_EQ(zoomer->zoomRectIndex(), 0u);
}

TEST_F(UniformityPageTest, ReportCsvCpiqAndAutoRun)
{
    m_page.printUniHTML(); // nothing loaded: a message, no report
    EXPECT_TRUE(m_page.uniformityHtml().isEmpty());
    EXPECT_FALSE(m_page.saveUniformityCsv(m_temp.filePath("none.csv")));

    ASSERT_TRUE(m_page.setPicture(shadedFlatField(400, 300), "/data/flat.png"));
    m_page.printUniHTML();
    const QString html = m_page.uniformityHtml();
    EXPECT_TRUE(html.contains("src=\"/data/flat.png\""));
    EXPECT_EQ(m_page.uniformityImageFolder(), m_temp.path() + "/");
    EXPECT_TRUE(QFileInfo::exists(m_temp.filePath("UniformityB.png")));
    // CPIQ zones are measured by default and reported.
    EXPECT_TRUE(html.contains("<th>20<tr><th>1<td>"));

    EXPECT_TRUE(m_page.saveUniformityCsv(m_temp.filePath("u.csv")));
    EXPECT_TRUE(m_page.saveCpiqFile(m_temp.filePath("cpiq.txt")));

    // An invalid size blocks a new report; the last one stays.
    enterSubsample("0");
    m_page.findChild<QSpinBox *>("uniCenterPercent")->setValue(30);
    m_page.printUniHTML();
    EXPECT_EQ(m_page.uniformityHtml(), html);

    // With auto-run every change rebuilds the report.
    enterSubsample("20");
    m_page.updateUniAutoRun(true);
    EXPECT_TRUE(m_page.uniformityHtml().contains("Center Percentage : 30 %"));
    m_page.findChild<QSpinBox *>("uniCornerPercent")->setValue(15);
    EXPECT_TRUE(m_page.uniformityHtml().contains("Corner Percentage : 15 %"));
}

TEST_F(UniformityPageTest, DataTableCopiesTheGrid)
{
    ASSERT_TRUE(m_page.setPicture(shadedFlatField(400, 300), "flat.png"));
    m_page.clickedUniData();
    auto *dialog = m_page.findChild<UniformityDataDialog *>();
    ASSERT_NE(dialog, nullptr);
    QTableView *table = dialog->table();
    const UniformityData &data = m_page.calculation().data();
    // Without a selection the whole grid, one line per grid row.
    EXPECT_EQ(dialog->selectionText().count('\n'), 30);
    // A selected block alone.
    QItemSelection block(table->model()->index(2, 5), table->model()->index(3, 6));
    table->selectionModel()->select(block, QItemSelectionModel::Select);
    const auto v = [&](int c, int r) { return QString::number(data.value(c, r), 'g', 6); };
    EXPECT_EQ(dialog->selectionText(),
              v(5, 2) + "\t" + v(6, 2) + "\n" + v(5, 3) + "\t" + v(6, 3) + "\n");
    delete dialog;
}

TEST_F(UniformityPageTest, BatchRunHonoursEveryParameter)
{
    const QString picture = m_temp.filePath("flat.png");
    ASSERT_TRUE(shadedFlatField(400, 300).save(picture));
    UniformityBatchSettings settings = m_page.currentSettings();
    settings.imagePath = picture;
    settings.centerPercent = 30;
    settings.cornerPercent = 20;
    settings.colorMapName = "jet"; // the report reads names in any case
    settings.showContour = true;
    settings.contourLow = 100;
    settings.contourStepSize = 50;
    settings.contourHigh = 200;
    settings.chartSize = 400;
    settings.subSampleSize = 20;
    m_page.setBatchSettingsProvider([&] { return settings; });
    ASSERT_TRUE(m_page.runUniformity());
    const QString html = m_page.uniformityHtml();
    EXPECT_TRUE(html.contains("SubSampling Rate : 20</p><p>Center Percentage : 30 %\tCorner "
                              "Percentage : 20 %</p>"));
    EXPECT_TRUE(html.contains("<img width=\"400\" height=\"300\""));
    EXPECT_EQ(m_page.reportChart()->colorMapMode(), UniformityColorMap::Jet);
    EXPECT_EQ(m_page.reportChart()->contourLevels(), QList<double>({100, 150}));
    EXPECT_EQ(QImage(m_temp.filePath("UniformityG.png")).width(), 1339); // 400 px at 85 dpi

    // A refusal leaves no report.
    settings.imagePath = m_temp.filePath("missing.png");
    EXPECT_FALSE(m_page.runUniformity());
    EXPECT_TRUE(m_page.uniformityHtml().isEmpty());
}
