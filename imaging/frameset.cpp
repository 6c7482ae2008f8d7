#include "imaging/frameset.h"

#include <new>

namespace kestro {

const char *const kOpenChartFilesTitle
        = "Open Chart File(s). Use CTRL or SHIFT + mouse select for multiple selection of files. ";
const char *const kImageFilesFilterWithRaw
        = "Image Files (*.RAW *.BMP *.GIF *.JPG *.PNG *.PBM *.PGM *.PPM *.TIFF *.TIF *.XBM *.XPM *.JPEG)";
const char *const kImageFilesFilter
        = "Image Files (*.BMP *.GIF *.JPG *.PNG *.PBM *.PGM *.PPM *.TIFF *.TIF *.XBM *.XPM *.JPEG)";
const char *const kFramesNotSameFormatText
        = "Frames in the frameset do not have the same format. Calculation cannot be performed.";

CFrameSet::CFrameSet(QObject *parent)
    : QObject(parent)
{ }

CFrameSet::~CFrameSet()
{
    qDeleteAll(m_frames);
}

CFrame *CFrameSet::at(int index) const
{
    return index >= 0 && index < m_frames.size() ? m_frames.at(index) : nullptr;
}

bool CFrameSet::addFrame(const CFrame &frame)
{
    if (!frame.isValid())
        return false;
    auto *copy = new (std::nothrow) CFrame(frame);
    if (!copy)
        return false;
    m_frames.append(copy);
    emit countChanged(m_frames.size());
    return true;
}

void CFrameSet::clear()
{
    qDeleteAll(m_frames);
    m_frames.clear();
    emit countChanged(0);
}

int CFrameSet::loadFiles(const QStringList &paths)
{
    clear();
    for (const QString &path : paths) {
        // Loaded straight into a frame the set keeps, so a big raw frame is
        // not copied once more.
        auto *frame = new (std::nothrow) CFrame;
        if (!frame)
            break;
        if (frame->load(path)) {
            m_frames.append(frame);
            emit countChanged(m_frames.size());
        } else {
            delete frame;
        }
    }
    return m_frames.size();
}

bool CFrameSet::isCompatible() const
{
    if (m_frames.isEmpty())
        return false;
    const CFrame *first = m_frames.first();
    for (const CFrame *frame : m_frames) {
        if (!first->isCompatible(*frame))
            return false;
    }
    return true;
}

} // namespace kestro
