// regionBasedMTF: a result is reused until an input really changes; a
// failure keeps the region to be computed again and says why; overshoots,
// distances from the picture centre and the region's description. MTFThread:
// progress after each region, calculations attached on demand, unchanged
// regions not recomputed.

#include "../../platform/colorcal/slantededge.h"

#include "measure/mtf/mtfregionlist.h"
#include "measure/mtf/mtfthread.h"
#include "measure/mtf/regionbasedmtf.h"
#include "scriptedmtf.h"

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTemporaryDir>
#include <cmath>
#include <mutex>
#include <vector>

namespace {

class RegionMtf : public ::testing::Test
{
protected:
    void SetUp() override
    {
        path = flatPictureFile(dir);
        m.setFileName(path);
        m.setRegion(QRect(20, 10, 40, 60));
        m.setPictureHeight(100);
    }
    QTemporaryDir dir;
    QString path;
    ScriptedMTF m;
};

} // namespace

TEST_F(RegionMtf, RecalculatesOnlyWhenAnInputReallyChanges)
{
    EXPECT_FALSE(m.isValid());
    ASSERT_TRUE(m.calculate());
    EXPECT_TRUE(m.isValid());
    EXPECT_TRUE(m.calculate());
    EXPECT_EQ(m.calls, 1);

    m.setFileName(path);
    m.setGamma(1.0);
    m.setPictureHeight(100);
    m.setRegion(QRect(20, 10, 40, 60));
    EXPECT_TRUE(m.isValid());

    m.setFileName(path.toUpper());
    EXPECT_FALSE(m.isValid());
    m.setFileName(path);
    ASSERT_TRUE(m.calculate());
    for (auto change : {+[](regionBasedMTF &r) { r.setGamma(0.45); },
                        +[](regionBasedMTF &r) { r.setPictureHeight(101); },
                        +[](regionBasedMTF &r) { r.setRegion(QRect(20, 10, 40, 61)); },
                        +[](regionBasedMTF &r) { r.invalidate(); }}) {
        change(m);
        EXPECT_FALSE(m.isValid());
        ASSERT_TRUE(m.calculate());
    }
    EXPECT_EQ(m.calls, 6);
    // The LW/PH axis is twice the picture height times cycles per pixel.
    EXPECT_DOUBLE_EQ(m.frequenciesLWPH()[2], 2 * 101 * 0.2);
}

TEST_F(RegionMtf, FailuresKeepTheObjectDirty)
{
    m.setFileName(dir.filePath("none.png"));
    EXPECT_FALSE(m.calculate());
    EXPECT_EQ(m.errorMessage(), "Cannot open the file : " + dir.filePath("none.png"));
    EXPECT_EQ(m.calls, 0);
    EXPECT_EQ(m.roiDistance(), 0.0);

    m.setFileName(path);
    m.message.clear();
    m.result = false;
    EXPECT_FALSE(m.calculate());
    EXPECT_EQ(m.errorMessage(), "Internal operation error in MTF calculation");
    EXPECT_GT(m.roiDistance(), 0.0);

    m.result = true;
    EXPECT_TRUE(m.calculate());
    EXPECT_EQ(m.errorMessage(), "");
    EXPECT_EQ(m.calls, 2);
}

TEST_F(RegionMtf, OvershootsDistancesAndTexts)
{
    m.redPeak = 1.08;
    m.grayPeak = 1.08;
    ASSERT_TRUE(m.calculate());
    EXPECT_NEAR(m.overshoot(regionBasedMTF::Red), 0.08, 1e-12);
    EXPECT_NEAR(m.overshoot(regionBasedMTF::Green), -0.5, 1e-12);
    EXPECT_NEAR(m.overshoot(regionBasedMTF::Gray), 1.08, 1e-12);
    EXPECT_EQ(m.overshoot(4), 0.0);

    // Picture 200 x 100: centre (99, 49).
    m.setRegion(QRect(77, 26, 40, 40)); // centre (96, 45): 3 left, 4 up
    ASSERT_TRUE(m.calculate());
    EXPECT_EQ(m.roiDistance(), 5.0);

    m.setRegion(QRect(120, 80, 64, 128));
    EXPECT_EQ(m.regionTag(), "120_80_64_128");
    EXPECT_TRUE(m.regionInfoHtml().startsWith(
            "<table><tr><th align=\"left\">Region</th><td> topleft(120, 80), width: 64, height: 128"));
}

TEST_F(RegionMtf, AbsurdRegionsAndOddFileNamesAreSafe)
{
    // A region beyond any picture is refused by name, without the library.
    m.setDrawnRegion(QRectF(1e300, 0, 10, 10));
    EXPECT_FALSE(m.calculate());
    EXPECT_EQ(m.errorMessage(), "The region (left 1e+300, top 0, width 10, height 10) lies beyond "
                                "the largest picture size; redraw it on the picture.");
    EXPECT_EQ(m.calls, 0);
    EXPECT_GE(m.region().left(), 0); // clamped, never wrapped
    m.setDrawnRegion(QRectF(std::nan(""), 0, 10, 10));
    EXPECT_FALSE(m.calculate());
    EXPECT_EQ(m.calls, 0);

    // Drawn regions are rounded outwards and normalised.
    m.setDrawnRegion(QRectF(60.5, 70.2, -40, -60));
    EXPECT_EQ(m.region(), QRect(20, 10, 41, 61));
    ASSERT_TRUE(m.calculate());
    EXPECT_EQ(m.calls, 1);

    // Far corners: the distance squares do not overflow 32 bits.
    m.setRegion(QRect(2000000000, 2000000000, 10, 10));
    m.calculate();
    EXPECT_NEAR(m.roiDistance(), std::hypot(2000000004.0 - 99, 2000000004.0 - 49), 1.0);

    // "%" sequences in a file name stay as they are in the region info.
    m.setFileName(dir.filePath("edge %6 %1.png"));
    EXPECT_TRUE(m.regionInfoHtml().contains("edge %6 %1.png"));
}

TEST(MtfThread, RunsEveryRegionOnItsThreadAndReportsProgress)
{
    QTemporaryDir dir;
    kestro::test::EdgeParams s;
    s.width = 100;
    s.height = 120;
    s.angleDegrees = 4;
    const QImage picture = kestro::test::edgeInPicture(s, {300, 160}, {150, 10}, 60);
    const QString path = dir.filePath("chart.png");
    ASSERT_TRUE(picture.save(path));

    MTFRegionList regions;
    regions.setFileName(path);
    regions.setGamma(1.0);
    regions.setPictureHeight(picture.height());
    regions.addRegion(QRectF(150.4, 10.2, 99.2, 119.5)); // rounds out to 150, 10, 100, 120
    regions.addRegion(QRectF(0, 0, 50, 50));             // flat: refused
    regions.addRegion(QRectF(250, 0, 100, 50));          // partly outside the picture

    MTFThread thread(nullptr, &regions);
    // Recorded on the worker thread under a lock: read after QThread::wait, a
    // handover that the thread sanitizer does not see.
    std::mutex mutex;
    std::vector<int> signalled; // progress values, then 0 for the end
    const auto record = [&](int value) {
        const std::lock_guard<std::mutex> lock(mutex);
        signalled.push_back(value);
    };
    QObject::connect(&thread, &MTFThread::setProgressValue, record);
    QObject::connect(&thread, &QThread::finished, [&] { record(0); });
    thread.start();
    // Join rather than wait for a signal: the run may end before a wait starts.
    ASSERT_TRUE(thread.wait(30000));
    {
        const std::lock_guard<std::mutex> lock(mutex);
        EXPECT_EQ(signalled, (std::vector<int>{1, 2, 3, 0}));
    }
    QSignalSpy progress(&thread, &MTFThread::setProgressValue);

    ASSERT_NE(regions.mtf(0), nullptr);
    EXPECT_EQ(regions.mtf(0)->region(), QRect(150, 10, 100, 120));
    EXPECT_TRUE(regions.mtf(0)->isValid()) << regions.mtf(0)->errorMessage().toStdString();
    EXPECT_EQ(regions.mtf(0)->pictureHeight(), 160u);
    EXPECT_FALSE(regions.mtf(1)->isValid());
    EXPECT_NE(regions.mtf(1)->errorMessage(), "");
    EXPECT_FALSE(regions.mtf(2)->isValid());

    // Again, synchronously: the valid region keeps its object and result.
    regionBasedMTF *first = regions.mtf(0);
    const double mtf50 = first->mtf50(regionBasedMTF::Gray);
    thread.runSynchronously();
    EXPECT_EQ(progress.count(), 3);
    EXPECT_EQ(regions.mtf(0), first);
    EXPECT_TRUE(first->isValid());
    EXPECT_EQ(first->mtf50(regionBasedMTF::Gray), mtf50);

    // A new gamma makes every region recompute.
    regions.setGamma(0.45);
    thread.runSynchronously();
    EXPECT_TRUE(first->isValid());
    EXPECT_NE(first->mtf50(regionBasedMTF::Gray), mtf50);
}
