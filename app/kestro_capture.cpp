// Capture of one picture through the window's camera, for the pages'
// capture buttons.

#include "app/kestro.h"

bool Kestro::captureImage(QImage &picture)
{
    // No capture service yet: every capture fails.
    picture = QImage();
    return false;
}
