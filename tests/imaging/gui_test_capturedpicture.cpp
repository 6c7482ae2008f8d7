// The Capture button's sequence shared by the pages: the frame saved as the
// captured picture, the field marked as captured, and every failure told in
// the error box without a file left behind.

#include "imaging/gui/capturedpicture.h"

#include "testsupport.h"

#include <QFile>
#include <QLineEdit>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kestro;

namespace {

// The captures go to a private temporary folder.
class CapturedPictureTest : public ::testing::Test
{
protected:
    void SetUp() override { m_env.set("TMPDIR", QFile::encodeName(m_tmp.path())); }

    // The box texts that a capture printed.
    QString boxesOf(const CaptureFunction &capture, bool expected, CapturedPicture &captured)
    {
        return kestro::test::boxesOf(
                       [&] { EXPECT_EQ(capturePicture(nullptr, capture, captured), expected); })
                .trimmed();
    }

    QTemporaryDir m_tmp;
    kestro::test::ScopedEnvironment m_env;
};

} // namespace

TEST_F(CapturedPictureTest, SavesTheFrameAndMarksTheField)
{
    QImage frame(40, 30, QImage::Format_RGB888);
    frame.fill(QColor(10, 200, 30));
    CapturedPicture captured;
    EXPECT_EQ(boxesOf([&](QImage &p) { return p = frame, true; }, true, captured), "");
    EXPECT_EQ(captured.path, QDir::toNativeSeparators(m_tmp.filePath("from_strobix_to_kestro.png")));
    EXPECT_EQ(QImage(captured.path).convertToFormat(QImage::Format_RGB888), frame);

    QLineEdit field(QStringLiteral("/some/picture.png"));
    showCapturedFile(&field);
    EXPECT_EQ(field.text(), "<<Captured from Strobix>>");
    EXPECT_EQ(field.styleSheet(), "background-color: rgb(170, 255, 127);");
}

TEST_F(CapturedPictureTest, FailuresAreToldAndSaveNothing)
{
    QImage frame(8, 8, QImage::Format_RGB888);
    frame.fill(Qt::gray);
    CapturedPicture captured;
    EXPECT_TRUE(boxesOf([](QImage &) { return false; }, false, captured)
                        .startsWith("Error: Unable to capture an image"));
    EXPECT_EQ(boxesOf([](QImage &p) { return p = QImage(), true; }, false, captured),
              "Error: Unable to convert the specified file.");
    EXPECT_FALSE(QFile::exists(capturedPicturePath()));

    // A file that cannot be written (a folder stands in its place): the
    // frame is refused, not measured from a file that does not exist.
    ASSERT_TRUE(QDir(m_tmp.path()).mkdir("from_strobix_to_kestro.png"));
    EXPECT_EQ(boxesOf([&](QImage &p) { return p = frame, true; }, false, captured),
              "Error: Cannot write file " + capturedPicturePath() + ".");
    EXPECT_TRUE(captured.path.isEmpty());
}
