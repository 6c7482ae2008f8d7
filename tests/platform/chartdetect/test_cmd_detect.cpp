// kestro-measure detect: the rectangles of a rendered chart as the view adds
// them, and the refusal (exit 2) and input errors (exit 1).
#include "tests/platform/chartdetect/chartscene.h"

#include "testsupport.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using kestro::test::parseJsonOutput;
using kestro::test::runProcess;

TEST(CmdDetect, ChartFoundRefusedAndUnreadable)
{
    QTemporaryDir dir;
    kestro::test::SceneSetup setup;
    setup.width = 1200;
    setup.height = 900;
    setup.chartLong = 520;
    setup.rotation = 270 - 12;
    const kestro::test::Scene scene = kestro::test::renderScene(setup);
    const QString chart = kestro::test::saveImage(dir, "chart.png", scene.image);

    const auto found = runProcess(kestro::test::measureToolPath(), {"detect", chart});
    ASSERT_EQ(found.exitCode, 0) << found.err.toStdString();
    const QJsonObject json = parseJsonOutput(found);
    EXPECT_EQ(json.value("found").toInt(), 24);
    const QJsonArray regions = json.value("regions").toArray();
    ASSERT_EQ(regions.size(), 24);
    for (int i = 0; i < 24; ++i) {
        const QJsonArray r = regions.at(i).toArray();
        ASSERT_EQ(r.size(), 4);
        // Top-left origin: the rectangle's centre lies in patch i + 1.
        const QPointF centre(r.at(0).toDouble() + r.at(2).toDouble() / 2,
                             r.at(1).toDouble() + r.at(3).toDouble() / 2);
        EXPECT_TRUE(scene.patches[i].containsPoint(centre, Qt::OddEvenFill)) << "patch " << i + 1;
    }

    QImage blank(640, 480, QImage::Format_RGB32);
    blank.fill(Qt::gray);
    const auto refused = runProcess(kestro::test::measureToolPath(),
                                    {"detect", kestro::test::saveImage(dir, "blank.png", blank)});
    EXPECT_EQ(refused.exitCode, 2);
    const QJsonObject none = parseJsonOutput(refused);
    EXPECT_FALSE(none.value("ok").toBool(true));
    EXPECT_EQ(none.value("found").toInt(), 0);

    const auto missing = runProcess(kestro::test::measureToolPath(),
                                    {"detect", dir.filePath("none.png")});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_FALSE(missing.err.isEmpty());
}
