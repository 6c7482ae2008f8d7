// MTFThread: progress after each region, calculations attached on demand,
// unchanged regions not recomputed.

#include "../../platform/colorcal/slantededge.h"

#include "measure/mtf/mtfregionlist.h"
#include "measure/mtf/mtfthread.h"

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTemporaryDir>
#include <mutex>
#include <vector>

namespace {

// What the worker thread signals, recorded on that thread under a lock: the
// test reads it after QThread::wait, a handover that the thread sanitizer
// does not see.
struct WorkerSignals
{
    std::mutex mutex;
    std::vector<int> progress;
    int finished = 0;

    explicit WorkerSignals(MTFThread &thread)
    {
        QObject::connect(&thread, &MTFThread::setProgressValue, [this](int value) {
            const std::lock_guard<std::mutex> lock(mutex);
            progress.push_back(value);
        });
        QObject::connect(&thread, &QThread::finished, [this] {
            const std::lock_guard<std::mutex> lock(mutex);
            ++finished;
        });
    }
    std::vector<int> progressValues()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return progress;
    }
    int finishedCount()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return finished;
    }
};

} // namespace

TEST(MtfThread, RunsEveryRegionOnItsThreadAndReportsProgress)
{
    QTemporaryDir dir;
    kestro::test::EdgeParams s;
    s.width = 100;
    s.height = 120;
    s.angleDegrees = 4;
    QImage picture(300, 160, QImage::Format_Grayscale8);
    picture.fill(60);
    const QImage edge = kestro::test::makeEdgeImage(s);
    for (int y = 0; y < edge.height(); ++y)
        for (int x = 0; x < edge.width(); ++x)
            picture.scanLine(10 + y)[150 + x] = edge.constScanLine(y)[x];
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
    WorkerSignals worker(thread);
    thread.start();
    // Join rather than wait for a signal: the run may end before a wait starts.
    ASSERT_TRUE(thread.wait(30000));
    EXPECT_EQ(worker.finishedCount(), 1);
    EXPECT_EQ(worker.progressValues(), (std::vector<int>{1, 2, 3}));
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

TEST(MtfThread, NoRegionsNoProgress)
{
    MTFRegionList regions;
    MTFThread thread;
    QSignalSpy progress(&thread, &MTFThread::setProgressValue);
    thread.runSynchronously();
    thread.setSource(&regions);
    thread.runSynchronously();
    EXPECT_EQ(progress.count(), 0);
}
