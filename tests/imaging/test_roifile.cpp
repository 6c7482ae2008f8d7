#include "imaging/roifile.h"

#include "testsupport.h"

#include <QFile>
#include <QFileDevice>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace kestro;

namespace {

QByteArray readAll(const QString &path)
{
    QFile f(path);
    f.open(QIODevice::ReadOnly);
    return f.readAll();
}

} // namespace

TEST(RoiFile, WritesOutwardRoundedIntegersKeepsOtherEntriesAndReadsThemBack)
{
    QTemporaryDir dir;
    const QString path = kestro::test::writeFile(dir, "c.roi", "[camera]\nname=x\n");
    ASSERT_TRUE(writeRoiFile(path, {QRectF(1, 1, 2, 2), QRectF(3, 3, 4, 4), QRectF(5, 5, 6, 6)}));
    ASSERT_TRUE(writeRoiFile(path, {QRectF(10.4, 10.6, 20.2, 5), QRectF(180, 88, 40, 40)}));
    const QByteArray text = readAll(path);
    for (const char *line : {"1\\left=10\n", "1\\top=10\n", "1\\width=21\n", "1\\height=6\n",
                             "2\\left=180\n", "size=2\n", "name=x", "3\\left=5"})
        EXPECT_TRUE(text.contains(line)) << line;

    // The count decides, not the entries left over from the longer array.
    const RoiReadResult read = readRoiFile(path);
    ASSERT_TRUE(read.ok);
    ASSERT_EQ(read.rects.size(), 2);
    EXPECT_EQ(read.rects[0], QRectF(10, 10, 21, 6));
    EXPECT_EQ(read.rects[1], QRectF(180, 88, 40, 40));

    // An empty set still overwrites the count.
    ASSERT_TRUE(writeRoiFile(path, {}));
    EXPECT_FALSE(readRoiFile(path).ok);
    EXPECT_TRUE(readAll(path).contains("size=0\n"));
}

TEST(RoiFile, ReadsTheArrayInAnyKeyOrderAndUnconvertibleValuesAsZero)
{
    QTemporaryDir dir;
    RoiReadResult read = readRoiFile(kestro::test::writeFile(
            dir, "a.roi",
            "[other]\nkey=1\n[patches]\nsize=2\n2\\width=4\n2\\height=5\n2\\top=3.25\n"
            "2\\left=-7.5\n1\\left=120.5\n1\\top=88\n1\\width=40\n1\\height=40\n"));
    ASSERT_TRUE(read.ok);
    ASSERT_EQ(read.rects.size(), 2);
    EXPECT_EQ(read.rects[0], QRectF(120.5, 88, 40, 40));
    EXPECT_EQ(read.rects[1], QRectF(-7.5, 3.25, 4, 5));

    // size 3 with two entries; garbage, lists and non-finite numbers.
    read = readRoiFile(kestro::test::writeFile(
            dir, "b.roi",
            "[patches]\n1\\left=abc\n1\\top=12\n1\\width=1,2\n1\\height=nan\n"
            "2\\left=inf\n2\\top=-inf\n2\\width=1e999\n2\\height=@Rect(1 2 3 4)\n"
            "size=3\n"));
    ASSERT_TRUE(read.ok);
    EXPECT_EQ(read.rects, (QVector<QRectF>{QRectF(0, 12, 0, 0), QRectF(), QRectF()}));
}

TEST(RoiFile, FilesWithoutRegionsAreRefusedWithoutCrashingOrWaiting)
{
    QTemporaryDir dir;
    const QPair<const char *, QByteArray> cases[] = {
            {"empty", ""},
            {"nogroup", "[other]\nsize=3\n"},
            {"negative", "[patches]\nsize=-4\n1\\left=1\n"},
            {"overflow", "[patches]\nsize=99999999999999999999\n"},
            {"binary", QByteArray("\x00\xff\xfe[\x01\x02=\n\x89PNG\r\n\x1a\n", 16)},
    };
    for (const auto &c : cases)
        EXPECT_FALSE(readRoiFile(kestro::test::writeFile(dir, c.first, c.second)).ok) << c.first;
    EXPECT_FALSE(readRoiFile(dir.filePath("none.roi")).error.isEmpty());
    EXPECT_FALSE(readRoiFile(dir.path()).ok);                              // a folder
    EXPECT_FALSE(readRoiFile(kestro::test::makeFifo(dir, "pipe.roi")).ok); // never waits
}

TEST(RoiFile, ExtremeRectanglesAreStoredClampedNotOverflowed)
{
    EXPECT_EQ(roiStoredRect(QRectF(5, 5, -3, -2)), QRect(5, 5, -3, -2));
    EXPECT_EQ(roiStoredRect(QRectF(1e300, -1e300, 1e300, 1e300)).topLeft(),
              QPoint(1000000000, -1000000000));
    EXPECT_EQ(roiStoredRect(QRectF(qQNaN(), 1, qInf(), 2)), QRect(0, 1, 0, 2));
}

TEST(RoiFile, UnwritablePlacesFailAndLeaveNothingBehind)
{
    QTemporaryDir dir;
    QString error;
    EXPECT_FALSE(writeRoiFile(dir.filePath("no/such/folder/x.roi"), {QRectF(1, 1, 2, 2)}, &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_FALSE(writeRoiFile(dir.path(), {QRectF(1, 1, 2, 2)}));

    // A read-only file keeps its content (unless running as root, which
    // may write anyway).
    const QString path = kestro::test::writeFile(dir, "ro.roi", "[patches]\nsize=1\n");
    QFile::setPermissions(path, QFileDevice::ReadOwner);
    if (::geteuid() != 0) {
        EXPECT_FALSE(writeRoiFile(path, {QRectF(7, 7, 7, 7)}));
        EXPECT_EQ(readAll(path), QByteArray("[patches]\nsize=1\n"));
    }
}

TEST(RoiFile, NonLatinAndPercentNamesRoundTripAndStayIntactInTexts)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QString::fromUtf8("régions-ключ-図 %1.roi"));
    ASSERT_TRUE(writeRoiFile(path, {QRectF(1, 2, 3, 4)}));
    EXPECT_EQ(readRoiFile(path).rects.value(0), QRectF(1, 2, 3, 4));

    const QString many = kestro::test::writeFile(dir, QStringLiteral("chart%2Bcopy%1.roi"),
                                                 "[patches]\nsize=2147483647\n");
    EXPECT_EQ(readRoiFile(many).error,
              many + " announces 2147483647 regions; at most 100000 are accepted.");
    const QString absurd = kestro::test::writeFile(dir, QStringLiteral("%2%3.roi"),
                                                   "[patches]\nsize=1\n1\\width=-1e300\n");
    EXPECT_EQ(readRoiFile(absurd).error,
              absurd
                      + ": region 1 has width = -1.0000000000000001e+300; values beyond 1000000000 "
                        "pixels are refused.");
}
