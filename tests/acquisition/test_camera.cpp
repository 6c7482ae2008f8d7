#include "acquisition/camera.h"
#include "platform/tarnlib/tarnlib.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <vector>

namespace {

// Plugs a demo board in (or none) and keeps the per-user files in a
// temporary folder for the life of the test.
class CameraTest : public ::testing::Test
{
protected:
    void SetUp() override { m_env.set("XDG_DATA_HOME", QFile::encodeName(m_home.path())); }
    void plugIn(const char *board) { m_env.set("KESTRO_DEMO_CAMERA", board); }

    QTemporaryDir m_home;
    kestro::test::ScopedEnvironment m_env;
};

} // namespace

TEST_F(CameraTest, OpenIdentifiesTheSensorAndLoadsItsStartUpPreset)
{
    CCamera camera;
    EXPECT_EQ(camera.open(), TL_ERR_NO_CAMERA);
    EXPECT_FALSE(camera.isOpen());
    EXPECT_FALSE(camera.sensorSupport());

    plugIn("KSD644-REV2-DEV3");
    ASSERT_EQ(camera.open(), TL_OK);
    ASSERT_TRUE(camera.isOpen());
    EXPECT_EQ(camera.partId(), 0x6442u);
    EXPECT_EQ(camera.defaultIniFile(),
              QDir(m_home.path()).filePath("Kestro/ini/KSD644-REV2-DEV3.ini"));

    // The start-up preset ran (MODE_SELECT is 0 after reset), the register
    // names are known and the transport streams.
    kestro::SensorSupport *support = camera.sensorSupport();
    ASSERT_TRUE(support && support->isInitialized());
    unsigned value = 0;
    ASSERT_EQ(support->readRegister("MODE_SELECT", &value), TL_OK);
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(support->writeRegister("NO_SUCH", 1), TL_ERR_NO_REGISTER);
    std::vector<unsigned char> frame(camera.handle()->sensor.bufferSize);
    EXPECT_EQ(tl_grabFrame(camera.handle(), frame.data(), static_cast<unsigned>(frame.size())),
              TL_OK);

    // Opening again closes the first camera; a failed open leaves none.
    plugIn("KSM1024");
    ASSERT_EQ(camera.open(), TL_OK);
    EXPECT_EQ(camera.partId(), 0x1024u);
    plugIn("NOSUCHBOARD");
    EXPECT_EQ(camera.open(), TL_ERR_NO_CAMERA);
    EXPECT_FALSE(camera.handle());
    camera.close(); // closing twice is harmless
}
