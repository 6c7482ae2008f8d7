// kestro-measure uniformity, run as a process.

#include "testsupport.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kestro::test;

TEST(UniformityCommand, PrintsChannelsLabelsAndCpiqZones)
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
    EXPECT_EQ(o["subsample"].toInt(), 5);
    EXPECT_TRUE(o["valid"].toBool());
    // The engine's figures are checked by its own tests; here the wiring: four
    // channels, the options reaching the engine, the zones in row order.
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

    // An empty centre window prints "nan".
    r = runProcess(measureToolPath(), {"uniformity", path, "--center", "0"});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    o = parseJsonOutput(r);
    EXPECT_EQ(o["channels"].toObject()["Y"].toObject()["center"].toString(), "nan");
    EXPECT_EQ(o["cpiq"].toObject()["zones"].toArray().size(), 300);
}

TEST(UniformityCommand, RefusalsAndUsageErrors)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    QImage img(100, 80, QImage::Format_RGB32);
    img.fill(qRgb(10, 20, 30));
    const QString path = saveImage(dir, "flat.png", img);

    for (const char *size : {"0", "11"}) {
        const ProcessResult r = runProcess(measureToolPath(),
                                           {"uniformity", path, "--subsample", size});
        EXPECT_EQ(r.exitCode, 2);
        const QJsonObject o = parseJsonOutput(r);
        EXPECT_FALSE(o["ok"].toBool());
        EXPECT_FALSE(o["valid"].toBool());
        EXPECT_EQ(o["error"].toString(),
                  "Cannot display subsampled image. Please input valid subsampling size "
                  "(1 - Height/8 or Width/8).");
        EXPECT_FALSE(o.contains("channels"));
        EXPECT_FALSE(o.contains("cpiq"));
    }

    const QString gray = saveImage(dir, "gray.png", img.convertToFormat(QImage::Format_Grayscale8));
    ProcessResult r = runProcess(measureToolPath(), {"uniformity", gray});
    EXPECT_EQ(r.exitCode, 2);
    QJsonObject o = parseJsonOutput(r);
    EXPECT_FALSE(o["valid"].toBool());
    EXPECT_EQ(o["error"].toString(),
              "Only RGB files are supported for this test. Failed to load the file : " + gray);

    // Unreadable input and usage errors: stderr, status 1, no JSON. The
    // option parsing itself is one loop; two bad options stand for all.
    const QString broken = writeFile(dir, "broken.png", "\x89PNG\r\n\x1a\n truncated");
    for (const QStringList &args : {QStringList{"uniformity", broken}, QStringList{"uniformity"},
                                    QStringList{"uniformity", path, "--zones", "33x20"},
                                    QStringList{"uniformity", path, "--corner"}}) {
        r = runProcess(measureToolPath(), args);
        EXPECT_EQ(r.exitCode, 1) << args.join(' ').toStdString();
        EXPECT_TRUE(r.out.isEmpty());
        EXPECT_FALSE(r.err.isEmpty());
    }
    // Only the zones option explains its format.
    r = runProcess(measureToolPath(), {"uniformity", path, "--center", "ten"});
    EXPECT_EQ(r.err, "kestro-measure: invalid value for --center: ten\n");

    // Percentages outside 0..100 would give windows off the grid: refused in
    // the engine's words, like any other out-of-range option.
    r = runProcess(measureToolPath(), {"uniformity", path, "--center", "101"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_EQ(r.err, "kestro-measure: Invalid centre percentage 101: give a value from 0 to 100.\n");
    r = runProcess(measureToolPath(), {"uniformity", path, "--corner", "-1"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "kestro-measure: Invalid corner percentage -1: give a value from 0 to 100.\n");
}
