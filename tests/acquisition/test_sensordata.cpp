#include "acquisition/sensordata.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kestro;

namespace {

void touch(const QTemporaryDir &dir, const QString &name, const QByteArray &content = "[Sensor]\n")
{
    QFile f(dir.filePath(name));
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(content);
}

QByteArray sensorText(const char *name, const char *alt, int revision)
{
    return QByteArray("[Sensor]\nName=") + name + "\nAlternateName=" + alt
           + "\nPartId=0x42\nRevision=" + QByteArray::number(revision)
           + "\n[Frame]\nWidth=8\nHeight=6\nBitsPerPixel=10\n";
}

} // namespace

TEST(SensorData, LookupPatternsAndOrder)
{
    QTemporaryDir dir;
    touch(dir, "NAME-REV2-DEV7.xsdat");
    touch(dir, "NAME-REV21.sdat");
    touch(dir, "NAME-REV2.sdat");
    touch(dir, "ALT-REV2.xsdat");
    touch(dir, "NAME-REV3.sdat");
    touch(dir, "OTHER-REV2.sdat");
    QDir(dir.path()).mkdir("NAME-REV2-DEV9.sdat"); // folders never match

    const QStringList files = sensorDataFiles(dir.path(), "NAME", "ALT", 2);
    // The DEV file comes first (first pattern), each file once, "REV21"
    // matches revision 2 because the wildcard follows the number directly,
    // and the alternate name's files come last.
    EXPECT_EQ(files, QStringList({"NAME-REV2-DEV7.xsdat", "NAME-REV2.sdat", "NAME-REV21.sdat",
                                  "ALT-REV2.xsdat"}));
    // Only the alternate name given.
    EXPECT_EQ(sensorDataFiles(dir.path(), QString(), "ALT", 2), QStringList({"ALT-REV2.xsdat"}));
    // A missing folder finds nothing.
    EXPECT_TRUE(sensorDataFiles(dir.filePath("missing"), "NAME", "ALT", 2).isEmpty());
}

TEST(SensorData, ExistenceByRevisionMask)
{
    QTemporaryDir dir;
    touch(dir, "S-REV2.sdat");
    touch(dir, "S-REV4-DEV1.xsdat");
    // 0b101 asks for revisions 1 and 3 only: revision 2's file does not count.
    EXPECT_FALSE(sensorDataExists(dir.path(), "S", "T", 0b101));
    EXPECT_TRUE(sensorDataExists(dir.path(), "S", "T", 0b010));
    EXPECT_TRUE(sensorDataExists(dir.path(), "S", "T", 0b1000));
    EXPECT_FALSE(sensorDataExists(dir.path(), "S", "T", 0));
    touch(dir, "T-REV3.sdat");
    EXPECT_TRUE(sensorDataExists(dir.path(), "S", "T", 0b101)); // through the alternate name
    EXPECT_FALSE(sensorDataExists(dir.filePath("missing"), "S", "T", 0xffffffffu));
}

TEST(SensorData, AvailableSensorsFromFolder)
{
    QTemporaryDir dir;
    touch(dir, "B1-REV1.sdat", sensorText("B1", "B1X", 1));
    touch(dir, "B1-REV3-DEV2.xsdat", sensorText("B1", "B1X", 3));
    touch(dir, "A7-REV2.sdat", sensorText("A7", "A7M", 2));
    // The revision inside does not match the file name: no file is found
    // for it by the lookup, so it is not offered.
    touch(dir, "C5-REV1.sdat", sensorText("C5", "C5X", 4));
    touch(dir, "broken-REV1.sdat", "garbage\n\x01\x02");
    touch(dir, "notes.txt", sensorText("N", "N", 1));

    const QList<SensorDataInfo> sensors = availableSensors(dir.path());
    ASSERT_EQ(sensors.size(), 2);
    EXPECT_EQ(sensors[0].name, "A7");
    EXPECT_EQ(sensors[1].name, "B1");
    EXPECT_EQ(sensors[1].revisions, QList<int>({1, 3}));
    EXPECT_EQ(sensors[1].revisionMask, 0b101u);
    EXPECT_EQ(sensors[1].partIds.value(3), 0x42u);

    EXPECT_TRUE(availableSensors(dir.filePath("missing")).isEmpty());
}
