#pragma once
// A frame set: an ordered list of owned frames that belong together (several
// captures of one scene). Only valid frames are added, as copies.

#include "imaging/frame.h"

#include <QList>
#include <QObject>
#include <QStringList>

namespace kestro {

// Texts of the frame-set load.
extern const char *const kOpenChartFilesTitle;     // the open dialog's title
extern const char *const kImageFilesFilterWithRaw; // file filter with raw files
extern const char *const kImageFilesFilter;        // the same without raw files
// The noise calculation's refusal of an incompatible set ("Noise calculation").
extern const char *const kFramesNotSameFormatText;

class CFrameSet : public QObject
{
    Q_OBJECT
public:
    explicit CFrameSet(QObject *parent = nullptr);
    ~CFrameSet() override;
    CFrameSet(const CFrameSet &) = delete;
    CFrameSet &operator=(const CFrameSet &) = delete;

    int count() const { return m_frames.size(); }
    bool isEmpty() const { return m_frames.isEmpty(); }
    // The frame at index (null when out of range); owned by the set.
    CFrame *at(int index) const;
    const QList<CFrame *> &frames() const { return m_frames; }

    // Adds a copy of the frame when it is valid; returns whether it did.
    bool addFrame(const CFrame &frame);
    // Deletes every frame.
    void clear();
    // Clears the set, then loads each file in order and adds the frames that
    // loaded. Returns the new count.
    int loadFiles(const QStringList &paths);

    // Usable for a multi-frame calculation: not empty and every frame
    // compatible with the first.
    bool isCompatible() const;

signals:
    void countChanged(int count);

private:
    QList<CFrame *> m_frames;
};

} // namespace kestro
