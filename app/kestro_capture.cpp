// Capture of one picture through the window's camera, for the pages'
// capture buttons.

#include "app/kestro.h"

#include "acquisition/automation.h"
#include "app/messages.h"

#include <QImage>

bool Kestro::captureImage(QImage &picture)
{
    picture = QImage();
    if (!m_camera)
        return false;
    kestro::CapturedImage frame;
    const bool captured = kestro::captureImage(*m_camera, frame, m_firstCapture, [] {
        kestro::showMessage(nullptr, QMessageBox::Information, kestro::setupSensorTitle(),
                            kestro::setupSensorText());
    });
    if (!captured)
        return false;
    m_firstCapture = false;
    picture = kestro::toImage(std::move(frame));
    return true;
}
