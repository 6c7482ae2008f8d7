// Capture of one picture through the window's camera, for the pages'
// capture buttons.

#include "app/kestro.h"

#include "acquisition/automation.h"
#include "app/messages.h"

#include <QImage>
#include <QTabWidget>

bool Kestro::captureImage(QImage &picture)
{
    picture = QImage();
    if (!m_camera)
        return false;
    // What the current page measures, for an image source that renders its
    // scene (the demo set-up without hardware).
    const int tab = m_workflow ? m_workflow->currentIndex() : -1;
    const QString scene = tab == 2   ? QStringLiteral("edge")
                          : tab == 3 ? QStringLiteral("flat")
                                     : QStringLiteral("chart");
    kestro::CapturedImage frame;
    const bool captured = kestro::captureImage(
            *m_camera, frame, m_firstCapture,
            [] {
                kestro::showMessage(nullptr, QMessageBox::Information, kestro::setupSensorTitle(),
                                    kestro::setupSensorText());
            },
            scene);
    if (!captured)
        return false;
    m_firstCapture = false;
    picture = kestro::toImage(std::move(frame));
    return true;
}
