#include "measure/color/cielab.h"

#include "testsupport.h"

#include <QFile>
#include <QTextStream>
#include <gtest/gtest.h>

#include <cmath>

using namespace kestro;

TEST(Ciede2000, PublishedPairsInBothOrders)
{
    QFile file(test::dataPath("ciede2000/sharma2005.csv"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly | QIODevice::Text)) << file.fileName().toStdString();
    QTextStream in(&file);
    in.readLine(); // header
    int pairs = 0;
    while (!in.atEnd()) {
        const QStringList f = in.readLine().trimmed().split(',');
        if (f.size() < 7)
            continue;
        const LabColor c1{f[0].toDouble(), f[1].toDouble(), f[2].toDouble()};
        const LabColor c2{f[3].toDouble(), f[4].toDouble(), f[5].toDouble()};
        const double expected = f[6].toDouble();
        EXPECT_NEAR(deltaE00(c1, c2), expected, 1e-4) << "pair " << pairs + 1;
        EXPECT_NEAR(deltaE00(c2, c1), expected, 1e-4) << "pair " << pairs + 1 << " swapped";
        ++pairs;
    }
    EXPECT_EQ(pairs, 34);
}

TEST(Cielab, RoundedWhitePointAndGrayAxis)
{
    // White maps to L* 100; the rounded white leaves a small a*/b* offset.
    const LabColor white = srgbToLab(1.0, 1.0, 1.0);
    const double X = 0.4124 + 0.3576 + 0.1805, Z = 0.0193 + 0.1192 + 0.9505;
    EXPECT_NEAR(white.L, 100.0, 1e-9);
    EXPECT_NEAR(white.a, 500.0 * (std::cbrt(X * 100.0 / 95.0) - 1.0), 1e-9);
    EXPECT_NEAR(white.b, 200.0 * (1.0 - std::cbrt(Z * 100.0 / 108.9)), 1e-9);
    // Below 0.008856 f is linear.
    const LabColor dark = linearRgbToLab(0.001, 0.001, 0.001);
    EXPECT_NEAR(dark.L, 116.0 * (7.787 * 0.001 * 1.0 + 16.0 / 116.0) - 16.0, 1e-9);
    EXPECT_DOUBLE_EQ(hsvSaturation(0.5, 0.25, 0.0), 1.0);
    EXPECT_EQ(hsvSaturation(0.0, 0.0, 0.0), 0.0);
}
