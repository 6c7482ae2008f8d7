#include "imaging/gui/capturedpicture.h"

#include "imaging/gui/messages.h"
#include "imaging/pngwriter.h"

#include <QLineEdit>

namespace kestro {

bool capturePicture(QWidget *parent, const CaptureFunction &capture, CapturedPicture &captured)
{
    const auto fail = [parent](const QString &text) {
        showMessage(parent, QMessageBox::Critical, QStringLiteral("Error"), text);
        return false;
    };
    QImage picture;
    if (!capture || !capture(picture))
        return fail(captureFailureText());
    if (picture.isNull())
        return fail(captureConversionFailureText());
    const QString path = capturedPicturePath();
    if (!savePng(picture, path, PngCompression::None))
        return fail(QStringLiteral("Cannot write file %1.").arg(path));
    captured.image = picture;
    captured.path = path;
    return true;
}

void showCapturedFile(QLineEdit *field)
{
    field->clear();
    field->setText(capturedFileText());
    field->setStyleSheet(capturedFileStyle());
}

} // namespace kestro
