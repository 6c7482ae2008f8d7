#include "imaging/frame.h"

// Raw sensor files are read through the camera library (tarnlib).
bool CFrame::loadRawLocked(const QString &path)
{
    Q_UNUSED(path);
    return false;
}
