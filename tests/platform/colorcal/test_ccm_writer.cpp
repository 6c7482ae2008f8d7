// Colour correction written as sensor registers: fixed-point rounding, the
// INI section edit, and the writers of CColorCalibrate on the demo boards,
// whose registers are read back after loading the written presets.

#include "ccmchart.h"

#include "platform/colorcal/ccm_registers.h"
#include "platform/colorcal/colorcal.h"
#include "platform/tarnlib/tarnlib.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <random>

using namespace kestro;
using namespace kestro::ccm;

namespace {

struct DemoBoard
{
    tl_camera_t **list = nullptr;
    int count = 0;
    explicit DemoBoard(const char *name)
    {
        qputenv("KESTRO_DEMO_CAMERA", name);
        if (tl_OpenCameras(&list, &count, nullptr) == TL_OK)
            tl_DetectPartNumber(list[0]);
        qunsetenv("KESTRO_DEMO_CAMERA");
    }
    ~DemoBoard() { tl_CloseCameras2(list, count); }
    tl_camera_t *camera() const { return count ? list[0] : nullptr; }
};

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void setChart(CColorCalibrate &cal, const Chart &chart)
{
    double rgb[kPatchCount][3], lab[kPatchCount][3];
    for (int i = 0; i < kPatchCount; ++i) {
        for (int c = 0; c < 3; ++c)
            rgb[i][c] = chart.measured[i][c];
        lab[i][0] = chart.reference[i].L;
        lab[i][1] = chart.reference[i].a;
        lab[i][2] = chart.reference[i].b;
    }
    cal.SetChartPatches(kPatchCount, &rgb[0][0], &lab[0][0]);
}

QString errorText(const CColorCalibrate &cal)
{
    char text[512];
    cal.LastErrorState(text, sizeof text);
    return QString::fromLocal8Bit(text);
}

unsigned readRegister(tl_camera_t *camera, unsigned address)
{
    unsigned value = 0;
    EXPECT_EQ(tl_ReadRegister(camera, address, &value), TL_OK);
    return value;
}

} // namespace

TEST(CorrectionRegisters, RowsRoundToCodesThatSumToExactlyOne)
{
    std::mt19937 random(5);
    std::uniform_real_distribution<double> coefficient(-1.5, 1.5);
    for (const char *name : {"S7.8", "SM7.8", "S2.10", "S3.4"}) {
        FixedFormat format;
        ASSERT_TRUE(FixedFormat::parse(name, &format)) << name;
        EXPECT_EQ(format.text(), QString::fromLatin1(name));
        for (int trial = 0; trial < 500; ++trial) {
            Mat3 m{};
            for (Vec3 &row : m) {
                row[0] = coefficient(random);
                row[1] = coefficient(random);
                row[2] = 1.0 - row[0] - row[1];
            }
            std::array<CodeRow, 3> codes;
            QString why;
            ASSERT_TRUE(quantizeMatrix(m, format, &codes, &why)) << why.toStdString();
            for (int r = 0; r < 3; ++r) {
                ASSERT_EQ(codes[r][0] + codes[r][1] + codes[r][2], format.one());
                for (int c = 0; c < 3; ++c) {
                    ASSERT_LE(std::fabs(codes[r][c] - m[r][c] * format.one()), 1.0);
                    ASSERT_EQ(format.decode(format.encode(codes[r][c])), codes[r][c]);
                }
            }
        }
    }
    FixedFormat s78, sm78;
    FixedFormat::parse("S7.8", &s78);
    FixedFormat::parse("SM7.8", &sm78);
    EXPECT_EQ(sm78.encode(-1), 0x8001u);
    std::array<CodeRow, 3> codes;
    QString why;
    EXPECT_FALSE(quantizeMatrix({{{200, -199, 0}, {0, 1, 0}, {0, 0, 1}}}, s78, &codes, &why));
    EXPECT_TRUE(why.contains("does not fit the register format S7.8")) << why.toStdString();
    for (const char *bad : {"S7", "Q7.8", "S30.8"})
        EXPECT_FALSE(FixedFormat::parse(bad, &s78)) << bad;
}

TEST(CorrectionRegisters, SectionEditKeepsEveryOtherByte)
{
    const QByteArray text = "; top\r\n[A]\r\nx = 1\r\n[Color Correction Matrix]\r\n; old\r\n"
                            "CCM_RR=0x0100\r\n\r\n; about B\r\n[B]\r\ny=2\r\n"
                            "[ Color Correction Matrix ]\r\nCCM_RR=0x0200\r\n[C]\r\nz=3";
    EXPECT_EQ(replaceIniSection(text, "Color Correction Matrix", {"CCM_RR=0x0180", "CCM_RG=0"}),
              QByteArray("; top\r\n[A]\r\nx = 1\r\n[Color Correction Matrix]\r\nCCM_RR=0x0180\r\n"
                         "CCM_RG=0\r\n\r\n; about B\r\n[B]\r\ny=2\r\n[C]\r\nz=3"));
    EXPECT_EQ(replaceIniSection("[A]\nx=1", "AWB", {"G=1"}), QByteArray("[A]\nx=1\n\n[AWB]\nG=1\n"));
    EXPECT_EQ(replaceIniSection("", "AWB", {"G=1"}), QByteArray("[AWB]\nG=1\n"));
}

TEST(CorrectionRegisters, WrittenPresetsLoadIntoTheSensor)
{
    const Chart chart = test::renderChart(test::sampleMixing(), test::sampleGains(), 0.8);
    QTemporaryDir dir;
    // Both number formats of the demo boards: two's complement and sign and
    // magnitude.
    for (const char *board : {"KSD644-REV1", "KSD1300-REV1"}) {
        SCOPED_TRACE(board);
        DemoBoard demo(board);
        ASSERT_TRUE(demo.camera());
        CColorCalibrate cal(nullptr);
        cal.SetCameraSource([&demo] { return demo.camera(); });
        setChart(cal, chart);
        ASSERT_TRUE(cal.CorrectionResult().ok);

        const QByteArray other = "; the user's own\r\n[Strobix Initialization]\r\nMODE_SELECT=1\r\n";
        const QString path = test::writeFile(dir, QString::fromUtf8("réglages %1.ini"), other);
        const QByteArray name = QFile::encodeName(path);
        for (int round = 0; round < 2; ++round) { // writing again replaces
            ASSERT_TRUE(cal.SaveMatricesAsRegisters(name, -1, 1, 1))
                    << errorText(cal).toStdString();
            ASSERT_TRUE(cal.SaveMatricesForStrobixAwb(name, -1)) << errorText(cal).toStdString();
        }
        const QByteArray written = readAll(path);
        EXPECT_TRUE(written.startsWith(other + "\r\n[Color Correction Matrix]\r\n"));
        EXPECT_EQ(written.count("[Color Correction Matrix]"), 1);
        EXPECT_EQ(written.count("[Strobix AWB]"), 1);
        EXPECT_EQ(cal.LastErrorState(), 0);

        ASSERT_EQ(tl_LoadINIPreset(demo.camera(), name, "Color Correction Matrix"), TL_OK);
        ASSERT_EQ(tl_LoadINIPreset(demo.camera(), name, "Strobix AWB"), TL_OK);
        SensorCorrectionRegisters regs;
        QString why;
        ASSERT_TRUE(describeSensorCorrection(demo.camera(), &regs, &why)) << why.toStdString();
        const Result &r = cal.CorrectionResult();
        const double one = regs.matrixFormat.one();
        for (int row = 0; row < 3; ++row) {
            long long sum = 0;
            for (int c = 0; c < 3; ++c) {
                const long long code = regs.matrixFormat.decode(
                        readRegister(demo.camera(), regs.matrix[3 * row + c].address));
                EXPECT_NEAR(code / one, r.matrix[row][c], 1.0 / one);
                sum += code;
            }
            EXPECT_EQ(sum, regs.matrixFormat.one());
        }
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(readRegister(demo.camera(), regs.gains[c].address)
                                / double(regs.gainFormat.one()),
                        r.gains[c], 0.5 / regs.gainFormat.one());
    }
}

TEST(CorrectionRegisters, RefusalsLeaveTheFileAsItWas)
{
    QTemporaryDir dir;
    const QByteArray original = "[Keep]\nA=1\n";
    const QString path = test::writeFile(dir, "keep.ini", original);
    const QByteArray name = QFile::encodeName(path);
    DemoBoard color("KSD644-REV1"), mono("KSM1024-REV3");
    tl_camera_t *camera = color.camera();
    CColorCalibrate cal(nullptr);
    cal.SetCameraSource([&camera] { return camera; });
    auto refused = [&](const char *file, const char *text) {
        EXPECT_FALSE(cal.SaveMatricesAsRegisters(file, -1, 1, 1));
        EXPECT_NE(cal.LastErrorState(), 0);
        EXPECT_TRUE(errorText(cal).contains(QLatin1String(text))) << errorText(cal).toStdString();
        EXPECT_FALSE(cal.SaveMatricesForStrobixAwb(file, -1));
        EXPECT_TRUE(errorText(cal).contains(QLatin1String(text))) << errorText(cal).toStdString();
        EXPECT_EQ(readAll(path), original);
    };
    refused(name, "No color chart has been processed");

    setChart(cal, test::renderChart(test::sampleMixing(), test::sampleGains(), 0.8));
    EXPECT_FALSE(cal.SaveMatricesAsRegisters(name, 3, 1, 1));
    camera = mono.camera();
    refused(name, "KSM1024-REV3.sdat describes no color-correction registers");
    camera = color.camera();
    QFile::setPermissions(path, QFileDevice::ReadOwner);
    refused(name, "read-only");
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    EXPECT_FALSE(cal.SaveMatricesAsRegisters(QFile::encodeName(dir.filePath("no/such/x.ini")), -1,
                                             1, 1));
    EXPECT_TRUE(errorText(cal).contains("cannot be written"));
    EXPECT_FALSE(QDir(dir.filePath("no")).exists());

    // A format too narrow for the matrix: refused before any file is made.
    QTemporaryDir data;
    const QByteArray saved = qgetenv("KESTRO_SENSOR_DATA");
    QByteArray sdat = readAll(QFile::decodeName(saved) + "/KSD644-REV1.sdat");
    ASSERT_FALSE(sdat.isEmpty());
    sdat.replace("MatrixFormat=S7.8", "MatrixFormat=S0.8");
    test::writeFile(data, "KSD644-REV1.sdat", sdat);
    qputenv("KESTRO_SENSOR_DATA", QFile::encodeName(data.path()));
    const QString fresh = dir.filePath("fresh.ini");
    EXPECT_FALSE(cal.SaveMatricesAsRegisters(QFile::encodeName(fresh), -1, 1, 1));
    EXPECT_EQ(cal.LastErrorState(), CC_ERR_RANGE);
    qputenv("KESTRO_SENSOR_DATA", saved);
    EXPECT_FALSE(QFile::exists(fresh));
}
