// Regions on an imageGraphicsView: loading and saving ROI files, numbering,
// stacking and removal.
#include "imaging/gui/imagegraphicsview.h"
#include "imaging/roifile.h"

#include "testsupport.h"

#include <QLoggingCategory>
#include <QPainter>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

QImage grayPicture(int w = 200, int h = 150)
{
    QImage img(w, h, QImage::Format_RGB32);
    img.fill(qRgb(128, 128, 128));
    return img;
}

// Records the order of the view's signals.
struct SignalLog
{
    explicit SignalLog(imageGraphicsView &view)
    {
        QObject::connect(&view, &imageGraphicsView::regionSelectionChanged,
                         [this](qRegionGraphicsRectItem *item) {
                             entries << QStringLiteral("selection:%1").arg(item ? item->index() : 0);
                         });
        QObject::connect(&view, &imageGraphicsView::regionResized,
                         [this](qRegionGraphicsRectItem *item) {
                             entries << QStringLiteral("resized:%1").arg(item ? item->index() : 0);
                         });
        QObject::connect(&view, &imageGraphicsView::regionCreated, [this] { entries << "created"; });
        QObject::connect(&view, &imageGraphicsView::regionDeleted, [this] { entries << "deleted"; });
    }
    QStringList entries;
};

} // namespace

class RegionView : public ::testing::Test
{
protected:
    void SetUp() override { QLoggingCategory::setFilterRules("kestro.view.debug=false"); }
};

TEST_F(RegionView, ReadingAddsNumberedStackedRegionsAndSelectsTheLast)
{
    QTemporaryDir dir;
    imageGraphicsView view;
    view.setPicture(grayPicture());
    view.addRegion(QRectF(1, 1, 5, 5));
    view.setShowNumbers(true);
    const QString path
            = kestro::test::writeFile(dir, "r.roi",
                                      "[patches]\n1\\left=10\n1\\top=10\n1\\width=20\n1\\height=20\n"
                                      "2\\left=20.5\n2\\top=20\n2\\width=20\n2\\height=20\n"
                                      "size=3\n");
    SignalLog log(view);
    ASSERT_TRUE(view.readRegions(path));
    ASSERT_EQ(view.regionCount(), 4); // added to the region already there
    EXPECT_EQ(view.region(1)->rect(), QRectF(10, 10, 20, 20));
    EXPECT_EQ(view.region(2)->rect(), QRectF(20.5, 20, 20, 20));
    EXPECT_EQ(view.region(3)->rect(), QRectF(0, 0, 0, 0)); // size 3, two entries
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(view.region(i)->index(), i + 1);
        EXPECT_EQ(view.region(i)->showNumber(), i > 0);
    }
    EXPECT_DOUBLE_EQ(view.stackingCounter(), 0.04);
    // The last region is selected and current; selecting it moved it to
    // 0 since it overlaps nothing (an empty rectangle).
    EXPECT_TRUE(view.region(3)->isSelected());
    EXPECT_EQ(view.currentRegion(), view.region(3));
    EXPECT_DOUBLE_EQ(view.region(3)->zValue(), 0.0);
    EXPECT_EQ(log.entries, QStringList{"selection:4"});

    // A file without regions changes nothing.
    EXPECT_FALSE(view.readRegions(dir.filePath("missing.roi")));
    EXPECT_EQ(view.regionCount(), 4);
    EXPECT_EQ(log.entries.size(), 1);

    // Saving then loading into a cleared view gives the same regions in the
    // same order, as integer rectangles.
    const QString saved = dir.filePath("saved.roi");
    ASSERT_TRUE(writeRegions(&view, saved));
    view.removeAllRegions();
    ASSERT_TRUE(readRegions(&view, saved));
    ASSERT_EQ(view.regionCount(), 4);
    EXPECT_EQ(view.region(2)->rect(), QRectF(20, 20, 21, 20));
    EXPECT_FALSE(view.writeRegions(dir.filePath("nofolder/x.roi")));
}

TEST_F(RegionView, SelectionLiftsARegionJustAboveTheRegionsItOverlaps)
{
    imageGraphicsView view;
    view.setPicture(grayPicture());
    qRegionGraphicsRectItem *a = view.addRegion(QRectF(10, 10, 40, 40));
    qRegionGraphicsRectItem *b = view.addRegion(QRectF(30, 30, 40, 40));
    view.addRegion(QRectF(60, 60, 40, 40));
    qRegionGraphicsRectItem *d = view.addRegion(QRectF(150, 100, 10, 10));
    view.selectRegion(a); // overlaps b only
    EXPECT_DOUBLE_EQ(a->zValue(), 0.02 + 0.0001);
    view.selectRegion(b); // overlaps a (0.0201) and c (0.03)
    EXPECT_DOUBLE_EQ(b->zValue(), 0.03 + 0.0001);
    view.selectRegion(d); // overlaps nothing: lowered to 0
    EXPECT_DOUBLE_EQ(d->zValue(), 0.0);

    // A new picture resets the counter but keeps the regions.
    view.setPicture(grayPicture(300, 200));
    EXPECT_EQ(view.regionCount(), 4);
    EXPECT_DOUBLE_EQ(view.addRegion(QRectF(0, 0, 1, 1))->zValue(), 0.01);
}

TEST_F(RegionView, RemovingKeepsNumbersAndSelectsANeighbour)
{
    imageGraphicsView view;
    view.setPicture(grayPicture());
    for (int i = 0; i < 3; ++i)
        view.addRegion(QRectF(10 + 50 * i, 10, 30, 30));
    SignalLog log(view);

    view.removeSelectedRegion(); // nothing selected
    EXPECT_EQ(log.entries, QStringList{"deleted"});
    EXPECT_EQ(view.regionCount(), 3);

    log.entries.clear();
    view.selectRegion(view.region(1));
    view.removeSelectedRegion();
    ASSERT_EQ(view.regionCount(), 2);
    EXPECT_EQ(view.region(0)->index(), 1);
    EXPECT_EQ(view.region(1)->index(), 3);
    EXPECT_TRUE(view.region(1)->isSelected());
    EXPECT_EQ(view.currentRegion(), view.region(1));
    EXPECT_EQ(log.entries, (QStringList{"selection:2", "selection:3", "deleted"}));

    // The last one removed: its predecessor is selected.
    log.entries.clear();
    view.removeSelectedRegion();
    ASSERT_EQ(view.regionCount(), 1);
    EXPECT_EQ(log.entries, (QStringList{"selection:1", "deleted"}));
    view.removeSelectedRegion();
    EXPECT_EQ(view.currentRegion(), nullptr);

    // A new region after removals is numbered by the list size; removing
    // all leaves only the picture.
    view.addRegion(QRectF(1, 1, 2, 2));
    view.addRegion(QRectF(1, 1, 2, 2));
    EXPECT_EQ(view.region(1)->index(), 2);
    log.entries.clear();
    view.removeAllRegions();
    EXPECT_DOUBLE_EQ(view.stackingCounter(), 0.0);
    EXPECT_EQ(log.entries, (QStringList{"selection:0", "deleted"}));
    EXPECT_EQ(view.scene()->items().size(), 1);
}

TEST_F(RegionView, NumbersArePaintedInsideTheirRegions)
{
    imageGraphicsView view;
    view.setPicture(grayPicture());
    view.setShowNumbers(true);
    qRegionGraphicsRectItem *item = view.addRegion(QRectF(20, 20, 80, 80));
    // Pixels inside the region (clear of its outline) that are not the picture's gray.
    auto interiorInk = [&view] {
        QImage out(200, 150, QImage::Format_RGB32);
        QPainter painter(&out);
        view.scene()->render(&painter, out.rect(), out.rect());
        painter.end();
        int n = 0;
        for (int y = 30; y < 90; ++y)
            for (int x = 30; x < 90; ++x)
                n += out.pixel(x, y) != qRgb(128, 128, 128);
        return n;
    };
    EXPECT_GT(interiorInk(), 100);
    item->setShowNumber(false);
    EXPECT_EQ(interiorInk(), 0);
}
