// kestro-measure regions, run as a process the way a script would.
#include "testsupport.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using kestro::test::measureToolPath;
using kestro::test::runProcess;
using kestro::test::writeFile;

TEST(RoiMeasure, PrintsTheRectanglesAsRead)
{
    QTemporaryDir dir;
    const QString path = writeFile(dir, "a.roi",
                                   "[patches]\n1\\height=40\n1\\left=120.5\n1\\top=88\n1\\width=40\n"
                                   "2\\left=x\n2\\top=0.1\n2\\width=-3\n2\\height=1e20\nsize=3\n");
    const auto r = runProcess(measureToolPath(), {"regions", path});
    EXPECT_EQ(r.exitCode, 0) << r.err.constData();
    EXPECT_EQ(r.out, QByteArray("{\"regions\": [[120.5, 88, 40, 40], [0, 0.10000000000000001, -3, "
                                "1e+20], [0, 0, 0, 0]]}\n"));
}

TEST(RoiMeasure, EmptyFilesGiveNoRegionsAndBadInputAnError)
{
    QTemporaryDir dir;
    auto r = runProcess(measureToolPath(),
                        {"regions", writeFile(dir, "e.roi", "[patches]\nsize=0\n")});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, QByteArray("{\"regions\": []}\n"));

    r = runProcess(measureToolPath(), {"regions", dir.filePath("missing.roi")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_TRUE(r.err.contains("missing.roi"));

    r = runProcess(measureToolPath(),
                   {"regions", writeFile(dir, "h.roi", "[patches]\nsize=2000000000\n")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.isEmpty());

    r = runProcess(measureToolPath(), {"regions"});
    EXPECT_EQ(r.exitCode, 1);
    r = runProcess(measureToolPath(), {"regions", "a", "b"});
    EXPECT_EQ(r.exitCode, 1);
}
