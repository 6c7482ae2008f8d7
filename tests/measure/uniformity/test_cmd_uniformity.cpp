// kestro-measure uniformity run as a process: the options reaching the
// engine, the zones in row order, a refusal (status 2) and the input and
// usage errors (status 1).

#include "testsupport.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kestro::test;

TEST(UniformityCommand, PrintsRefusesAndRejects)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    // 100 x 80 gray field, brighter in its left half, with a blue cast in the
    // top-left CPIQ zone.
    QImage img(100, 80, QImage::Format_RGB32);
    img.fill(qRgb(100, 100, 100));
    for (int y = 0; y < 80; ++y)
        for (int x = 0; x < 50; ++x)
            img.setPixel(x, y, x < 5 && y < 5 ? qRgb(120, 120, 200) : qRgb(120, 120, 120));
    const QString path = saveImage(dir, "flat.png", img);

    ProcessResult r = runProcess(measureToolPath(),
                                 {"uniformity", path, "--subsample", "5", "--center", "20",
                                  "--corner", "25", "--zones", "16x20"});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    QJsonObject o = parseJsonOutput(r);
    EXPECT_TRUE(o["valid"].toBool());
    // The engine's figures are checked by its own tests; here the wiring.
    const QJsonObject channels = o["channels"].toObject();
    EXPECT_EQ(channels.keys(), QStringList({"B", "G", "R", "Y"}));
    const QJsonObject g = channels["G"].toObject();
    EXPECT_EQ(g["cols"].toInt(), 20);
    EXPECT_EQ(g["rows"].toInt(), 16);
    EXPECT_EQ(g["center"].toDouble(), 110); // centre window columns 8..11
    EXPECT_EQ(g["labels"].toObject()["topLeft"].toString(), "120, Dropoff: -10, -9.09%");
    const QJsonObject cpiq = o["cpiq"].toObject();
    const QJsonArray zones = cpiq["zones"].toArray();
    ASSERT_EQ(zones.size(), 16 * 20);
    EXPECT_EQ(zones[0].toObject()["B"].toDouble(), 200);
    EXPECT_EQ(zones[21].toObject()["row"].toInt(), 2);
    EXPECT_EQ(zones[21].toObject()["column"].toInt(), 2);
    EXPECT_EQ(cpiq["metric"].toDouble(), zones[0].toObject()["deltaAb"].toDouble());

    // A subsample size the picture does not allow: the engine's refusal.
    r = runProcess(measureToolPath(), {"uniformity", path, "--subsample", "11"});
    EXPECT_EQ(r.exitCode, 2);
    o = parseJsonOutput(r);
    EXPECT_FALSE(o["ok"].toBool());
    EXPECT_EQ(o["error"].toString(),
              "Cannot display subsampled image. Please input valid subsampling size "
              "(1 - Height/8 or Width/8).");
    EXPECT_FALSE(o.contains("channels"));

    // Percentages outside 0..100 are refused before the picture is read, in
    // the engine's words; an unreadable picture likewise goes to stderr.
    r = runProcess(measureToolPath(), {"uniformity", path, "--center", "101"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_EQ(r.err, "kestro-measure: Invalid centre percentage 101: give a value from 0 to 100.\n");
    const QString broken = writeFile(dir, "broken.png", "\x89PNG\r\n\x1a\n truncated");
    r = runProcess(measureToolPath(), {"uniformity", broken});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_FALSE(r.err.isEmpty());
}
