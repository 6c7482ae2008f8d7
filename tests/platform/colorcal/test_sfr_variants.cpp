// The slanted-edge measurement across orientations, polarities, encodings,
// placements and bowed edges, the line spread's centroid, and its refusals.

#include "slantededge.h"

#include "platform/colorcal/sfr_lsf.h"
#include "platform/colorcal/sfr_measure.h"

#include <gtest/gtest.h>

#include <QPainter>
#include <cmath>

using namespace kestro;
using kestro::test::EdgeParams;
using kestro::test::makeEdgeImage;
using kestro::test::trueCrossing;

namespace {

sfr::Result measure(const QImage &image, double gamma = 1.0, QRect rect = QRect())
{
    sfr::Result r;
    sfr::measureImageRegion(image, rect.isNull() ? image.rect() : rect, gamma, r);
    return r;
}

EdgeParams params(double angle, double sigma)
{
    EdgeParams s;
    s.angleDegrees = angle;
    s.sigma[0] = s.sigma[1] = s.sigma[2] = sigma;
    s.width = 120;
    s.height = 160;
    return s;
}

double relErr(double got, double truth)
{
    return std::fabs(got / truth - 1);
}

} // namespace

TEST(SfrVariants, OrientationAndPolarityGiveTheSameResult)
{
    for (double angle : {3.0, 7.0, 12.0}) {
        for (double sigma : {0.5, 1.2}) {
            const double truth = trueCrossing(sigma, angle, 0.5);
            for (bool horizontal : {false, true}) {
                for (bool darkLeft : {true, false}) {
                    EdgeParams s = params(angle, sigma);
                    s.horizontal = horizontal;
                    s.darkLeft = darkLeft;
                    const sfr::Result r = measure(makeEdgeImage(s));
                    ASSERT_TRUE(r.ok()) << r.errorText();
                    EXPECT_LT(relErr(r.mtf50[sfr::Gray], truth), 0.005)
                            << angle << " " << sigma << " h" << horizontal << " d" << darkLeft;
                    EXPECT_NEAR(std::fabs(r.slopeDegrees[sfr::Gray]), angle, 0.05);
                    EXPECT_NEAR(r.contrast[sfr::Gray], (0.8 - 0.05) / 0.85, 0.01);
                    // A gray picture gives the same figures in every channel.
                    EXPECT_EQ(r.mtf50[sfr::Red], r.mtf50[sfr::Gray]);
                }
            }
        }
    }
}

TEST(SfrVariants, AxisIsAlongTheNormalUpToOneCyclePerPixel)
{
    const double angle = 9, sigma = 0.8;
    const sfr::Result r = measure(makeEdgeImage(params(angle, sigma)));
    ASSERT_TRUE(r.ok()) << r.errorText();
    EXPECT_EQ(r.frequencies.front(), 0.0);
    EXPECT_LE(r.frequencies.back(), 1.0);
    EXPECT_GT(r.frequencies.back(), 0.97);
    EXPECT_NEAR(r.curve[sfr::Gray].front(), 1.0, 1e-12);
    EXPECT_LT(relErr(r.mtf10[sfr::Gray], trueCrossing(sigma, angle, 0.1)), 0.005);
    // A monotonic curve peaks at zero frequency: the peak figures agree.
    EXPECT_NEAR(r.mtf10Peak[sfr::Gray], r.mtf10[sfr::Gray], 1e-9);
}

// The centroid that centres the line spread: a spread 1.5 pixels past the
// edge is found there, and a bump outside the half-width does not count.
TEST(SfrVariants, LineSpreadCentroidWithinItsHalfWidth)
{
    sfr::Lsf lsf;
    lsf.binWidth = 0.25;
    lsf.firstCentre = -8;
    lsf.values.resize(65);
    for (int k = 0; k < lsf.size(); ++k) {
        const double u = lsf.distance(k);
        lsf.values[static_cast<std::size_t>(k)] = std::exp(-(u - 1.5) * (u - 1.5) / 0.72)
                                                  + (u < -6 ? 5.0 : 0.0);
    }
    EXPECT_NEAR(sfr::lsfCentroid(lsf, 0.0, 5.0), 1.5, 1e-6);
    EXPECT_NEAR(sfr::lsfCentroid(lsf, 1.0, 5.0), 1.5, 1e-6);
    EXPECT_EQ(sfr::lsfCentroid(sfr::Lsf(), 0.75, 5.0), 0.75); // nothing to weigh
}

TEST(SfrVariants, GammaEncodedImagesAreLinearised)
{
    for (double sigma : {0.6, 1.5}) {
        EdgeParams s = params(5, sigma);
        s.encodeGamma = 0.45;
        s.dark = 0.04;
        s.light = 0.7;
        s.noise = 1;
        const QImage image = makeEdgeImage(s);
        const double truth = trueCrossing(sigma, 5, 0.5);
        const sfr::Result r = measure(image, 0.45);
        ASSERT_TRUE(r.ok()) << r.errorText();
        EXPECT_LT(relErr(r.mtf50[sfr::Gray], truth), 0.01) << sigma;
        // Read as linear, the encoded edge looks markedly different.
        const sfr::Result wrong = measure(image, 1.0);
        ASSERT_TRUE(wrong.ok());
        EXPECT_GT(relErr(wrong.mtf50[sfr::Gray], truth), 0.03) << sigma;
    }
}

// An edge off the centre of a short region, and one bowed as barrel
// distortion leaves it near the frame's border (2 px over 200 rows), fitted
// with a polynomial.
TEST(SfrVariants, OffCentreAndBowedEdgesStillMeasure)
{
    EdgeParams off = params(4, 0.9);
    off.offset = -25;
    off.width = 100;
    off.height = 60;
    EdgeParams bowed = params(5, 0.8);
    bowed.height = 200;
    bowed.width = 140;
    bowed.bow = 2;
    for (const EdgeParams &s : {off, bowed}) {
        const sfr::Result r = measure(makeEdgeImage(s));
        ASSERT_TRUE(r.ok()) << r.errorText();
        EXPECT_LT(relErr(r.mtf50[sfr::Gray], trueCrossing(s.sigma[0], s.angleDegrees, 0.5)), 0.01)
                << s.bow;
    }
}

TEST(SfrVariants, RefusalsNameTheirCause)
{
    using sfr::FailureCode;
    const auto code = [](const QImage &image, double gamma = 1.0, QRect rect = QRect()) {
        return measure(image, gamma, rect).failure.code;
    };
    EdgeParams faint = params(5, 1);
    faint.dark = 0.50;
    faint.light = 0.52;
    EXPECT_EQ(code(makeEdgeImage(faint)), FailureCode::EdgeTooFaint);

    EdgeParams clipped = params(5, 1);
    clipped.dark = 0;
    clipped.light = 1.2;
    EXPECT_EQ(code(makeEdgeImage(clipped)), FailureCode::EdgeClipped);

    EXPECT_EQ(code(makeEdgeImage(params(0.3, 1))), FailureCode::AngleNearAxis);

    EdgeParams steep = params(44, 1);
    steep.width = 200;
    steep.height = 200;
    EXPECT_EQ(code(makeEdgeImage(steep)), FailureCode::AngleNearDiagonal);

    EdgeParams wide = params(5, 10);
    wide.width = 60;
    EXPECT_EQ(code(makeEdgeImage(wide)), FailureCode::EdgeTooWide);

    // A step up and, 30 pixels on, a step down.
    EdgeParams up = params(5, 0.8);
    up.offset = -15;
    EdgeParams down = params(5, 0.8);
    down.offset = 15;
    down.darkLeft = false;
    QImage twoEdges = makeEdgeImage(up);
    const QImage second = makeEdgeImage(down);
    for (int y = 0; y < twoEdges.height(); ++y)
        for (int x = 60; x < twoEdges.width(); ++x)
            twoEdges.scanLine(y)[x] = second.constScanLine(y)[x];
    EXPECT_EQ(code(twoEdges), FailureCode::BarOrLine);

    const QImage ok = makeEdgeImage(params(5, 1));
    EXPECT_EQ(code(ok, 1.0, QRect(0, 0, 120, 30)), FailureCode::RegionTooShort);
    EXPECT_EQ(code(ok, 1.0, QRect(0, 0, 8, 160)), FailureCode::RegionTooNarrow);
    EXPECT_EQ(code(ok, 1.0, QRect(-1, 0, 80, 160)), FailureCode::RegionOutsideImage);
    EXPECT_EQ(code(QImage(4000, 2100, QImage::Format_Grayscale8)), FailureCode::RegionTooLarge);
    EXPECT_EQ(code(ok, std::nan("")), FailureCode::BadGamma);

    // A jagged edge: every eighth row band shifted far sideways.
    QImage jagged = ok.copy();
    for (int y = 0; y < jagged.height(); ++y) {
        const int shift = (y / 8) % 2 ? 14 : -14;
        for (int x = 0; x < jagged.width(); ++x)
            jagged.scanLine(y)[x] = ok.constScanLine(y)[std::clamp(x - shift, 0, ok.width() - 1)];
    }
    EXPECT_NE(code(jagged), FailureCode::None);

    // A bar leaning across the region: refused, not measured.
    QImage bar(120, 160, QImage::Format_Grayscale8);
    bar.fill(30);
    QPainter p(&bar);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(200, 200, 200));
    p.drawPolygon(QPolygonF({QPointF(30, 0), QPointF(90, 0), QPointF(80, 160), QPointF(20, 160)}));
    p.end();
    EXPECT_NE(code(bar), FailureCode::None);
}

// One case of each kind of figure in the texts: a quoted path,
// percentages, signed angles and decimals.
TEST(SfrVariants, FailureTextsTellTheUserWhatToDo)
{
    using sfr::Failure;
    using sfr::FailureCode;
    Failure unreadable(FailureCode::UnreadableImage);
    unreadable.text[0] = "/tmp/chart%1 copy.png";
    unreadable.text[1] = "Unsupported image format";
    const struct
    {
        Failure failure;
        const char *text;
    } cases[] = {
            {unreadable,
             "Cannot read the image file /tmp/chart%1 copy.png (Unsupported image format): check "
             "that it exists and is a supported image format."},
            {Failure(FailureCode::EdgeTooFaint, 0.0196, 0.05),
             "The edge is too faint to locate (contrast 2.0 %, at least 5 % needed): draw the "
             "region across a clear dark-to-light edge, or raise the exposure."},
            {Failure(FailureCode::AngleNearAxis, -0.304),
             "The edge angle (-0.30 degrees) is too close to 0 degrees to be measured reliably: "
             "tilt the chart so that the edge leans by 2 to 10 degrees, or draw a longer region."},
    };
    for (const auto &c : cases)
        EXPECT_EQ(sfr::failureText(c.failure), c.text);
}
