#pragma once
// The Capture button of a page: one frame from the running sensor, saved as
// the captured picture in the temporary folder (so that the reports can name
// and link it), then shown in the page's file-name field as captured.

#include "acquisition/capture.h"

#include <QImage>
#include <QString>

class QLineEdit;
class QWidget;

namespace kestro {

struct CapturedPicture
{
    QImage image; // as the capture delivered it
    QString path; // capturedPicturePath(), where it was saved
};

// Takes one frame through `capture` and saves it. When the capture fails,
// the frame cannot be converted or the file cannot be written, the error box
// (title "Error") is shown over `parent` and false is returned.
bool capturePicture(QWidget *parent, const CaptureFunction &capture, CapturedPicture &captured);

// Shows capturedFileText() on the captured style in a file-name field.
void showCapturedFile(QLineEdit *field);

} // namespace kestro
