#include "imaging/region.h"

#include <gtest/gtest.h>

using namespace kestro;

TEST(Region, AlignedRoundingAndValidity)
{
    EXPECT_EQ(alignedRect(QRectF(10.4, 10.6, 20.2, 5)), QRect(10, 10, 21, 6));
    QImage img(40, 30, QImage::Format_ARGB32);
    img.fill(Qt::gray);
    EXPECT_TRUE(isRegionValid(img, QRect(30, 20, 10, 10))); // ends on the last row and column
    EXPECT_FALSE(isRegionValid(img, QRect(30, 20, 11, 10)));
    EXPECT_FALSE(isRegionValid(img, QRect(30, 20, 10, 11)));
    EXPECT_FALSE(isRegionValid(img, QRect()));
    EXPECT_FALSE(isRegionValid(QImage(), QRect(0, 0, 2, 2)));
    EXPECT_FALSE(isRegionValid(img, QRect(-1, 0, 2, 2)));
    EXPECT_EQ(invalidRegionText(QRect(30, 20, 11, 10)), "Invalid region:((30, 20), (40, 29))");

    // Extreme rectangles neither overflow nor wrap in texts.
    const QRect huge = alignedRect(QRectF(1e300, -1e300, 1e300, qInf()));
    EXPECT_EQ(huge, QRect(1 << 30, -(1 << 30), 0, 1 << 30));
    EXPECT_EQ(alignedRect(QRectF(5.5, 5, -3, -2)), QRect(5, 5, -2, -2));
    EXPECT_FALSE(isRegionValid(img, QRect(2147483000, 0, 2000, 1)));
    EXPECT_EQ(invalidRegionText(QRect(2147483000, 5, 2000, 1)),
              "Invalid region:((2147483000, 5), (2147484999, 5))");
}

TEST(Region, MeanAndOutlineColour)
{
    QImage img(20, 10, QImage::Format_ARGB32);
    img.fill(qRgb(128, 128, 128));
    for (int x = 10; x < 20; ++x)
        for (int y = 0; y < 10; ++y)
            img.setPixel(x, y, qRgb(0, 0, 255));
    const QColor mean = regionMeanColor(img, QRect(8, 0, 4, 2)); // half gray, half blue
    ASSERT_TRUE(mean.isValid());
    EXPECT_NEAR(mean.redF(), 64.0 / 255, 1e-4);
    EXPECT_NEAR(mean.blueF(), (128.0 + 255.0) / 2 / 255, 1e-4);
    EXPECT_FALSE(regionMeanColor(img, QRect(15, 5, 6, 1)).isValid());

    EXPECT_TRUE(isNearNeutral(0.5, 0.5, 0.5));
    EXPECT_FALSE(isNearNeutral(0, 0, 1));
    EXPECT_EQ(regionOverlayColor(img, QRectF(0, 0, 5, 5)), QColor(Qt::red));
    EXPECT_EQ(regionOverlayColor(img, QRectF(12, 2, 4, 4)), QColor(Qt::yellow));
    EXPECT_EQ(regionOverlayColor(img, QRectF(18, 2, 4, 4)), QColor(Qt::red)); // off the picture
    EXPECT_EQ(regionOverlayColor(QImage(), QRectF(1, 1, 2, 2)), QColor(Qt::red));
}
