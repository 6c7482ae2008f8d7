#pragma once
// macbethFrameView: the chart panel of the colour and noise pages. The user
// browses a frame set of chart pictures and places the 24 patch regions on
// the current one: found by automatic detection, laid out from six
// draggable corner handles, or drawn and edited one by one. The regions can
// be scaled together, reset, saved to and loaded from ROI files.

#include "imaging/frameset.h"
#include "imaging/gui/cmarkers.h"
#include "imaging/gui/macbethimagegraphicsview.h"

#include <QImage>
#include <QList>
#include <QRectF>
#include <QString>
#include <QVector>
#include <QWidget>
#include <memory>
#include <utility>

class CFrame;
class CFrameData;
class QFrame;
class QGroupBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QSpinBox;
class QTimer;
class QToolBar;
class QToolButton;
namespace kestro {
class ElidedLabel;
}

class macbethFrameView : public QWidget
{
    Q_OBJECT
public:
    explicit macbethFrameView(QWidget *parent = nullptr);
    ~macbethFrameView() override;

    macbethImageGraphicsView *view() const { return m_view; }
    CMarkers *markers() const { return m_markers; }

    // --- Frame set -----------------------------------------------------
    // The frames the user browses, owned by the view.
    kestro::CFrameSet &frameSet() { return m_frames; }
    const kestro::CFrameSet &frameSet() const { return m_frames; }
    // Adds a copy of a valid frame (the counter then shows the new count and
    // the view the new frame); false for an invalid frame.
    bool addFrame(const CFrame &frame);
    // Deletes every frame; the counter goes to 0.
    void clearFrames();
    // Replaces the whole frame set by frames made from pictures in memory
    // (as CFrame::setFromImage makes them), each known by the file it was
    // saved as (`fileNames`, one per picture; empty for a picture not
    // saved). The counter and the view follow once, showing the last frame.
    // False, with the set unchanged, when a picture makes no valid frame.
    bool replaceFrames(const QVector<QImage> &pictures, const QStringList &fileNames);
    // The file a frame of the set was read from or saved as (empty when
    // neither, or for no frame).
    QString frameFileName(const CFrame *frame) const
    {
        return frame ? frame->fileName() : QString();
    }
    int frameCount() const { return m_frames.count(); }
    // The frame shown (by the spin box), or null.
    CFrame *currentFrame() const;

    // The picture the regions are placed on: the one given directly with
    // loadBackGroundImage, else the current frame's picture, else empty.
    QImage currentImage() const;

    // --- Regions -------------------------------------------------------
    const QList<qRegionGraphicsRectItem *> &regions() const { return m_view->regions(); }
    QVector<QRectF> regionRects() const { return m_view->regionRects(); }
    // Replaces the regions by those of an ROI file (no dialog); false when
    // the file holds none (the view is then left empty).
    bool loadRegionsFrom(const QString &path);
    // Writes the regions to an ROI file (no dialog).
    bool saveRegionsTo(const QString &path);
    QString lastRoiPath() const { return m_lastRoiPath; }
    void setLastRoiPath(const QString &path) { m_lastRoiPath = path; }

    bool isDetectionRunning() const;

signals:
    void frameCountChanged(int count);
    // The set of regions was rebuilt (detection, corner layout, reset, load).
    void regionsReplaced();
    // A detection ended with `found` patches (24 placed them).
    void detectionFinished(int found);

public slots:
    void refreshBackGroundImage();
    void changeCurrentFrame(int index);
    void changeframeCount();
    void showNext();
    void showPrevious();
    void startAutoDetect();
    void completeAutoDetect();
    void setprogress();
    void cancelAutoDetection();
    void resetRegions();
    void moveCorner(QGraphicsCornerEllipseItem *item);
    void enableFrameviewControl(bool enable);
    void fitView();
    void loadRegions();
    void saveRegions();
    // Saves the picture with its regions drawn as a PNG file; false when
    // there is no picture or the file cannot be written.
    bool saveFrameView(const QString &fpath);
    void loadBackGroundImage(const QImage &image);
    void onRereshButtonClicked();
    // Corner-assisted placement: handles shown, regions from the corners.
    void useCornerInfo();

private:
    void buildUi();
    void placeRegions(const QVector<QRectF> &rects);
    void showPicture(const QImage &picture);
    void onDetectionCompleted(int runId, int found);

    kestro::CFrameSet m_frames;
    macbethImageGraphicsView *m_view = nullptr;
    CMarkers *m_markers = nullptr;
    QTimer *m_progressTimer = nullptr;
    QString m_lastRoiPath;
    bool m_pictureGivenDirectly = false;
    int m_pendingRunId = 0;
    // Names of frames made from pictures in memory, by the pixel block they
    // were made with: a frame loaded again, or gone, no longer matches.

    QToolBar *m_toolBar = nullptr;
    QToolButton *m_refreshButton = nullptr;
    QToolButton *m_zoomOutButton = nullptr;
    QToolButton *m_zoomInButton = nullptr;
    QToolButton *m_fitButton = nullptr;
    QToolButton *m_autoDetectButton = nullptr;
    QToolButton *m_cornerButton = nullptr;
    QToolButton *m_pointerButton = nullptr;
    QToolButton *m_resetButton = nullptr;
    QToolButton *m_increaseButton = nullptr;
    QToolButton *m_decreaseButton = nullptr;
    QToolButton *m_saveRegionsButton = nullptr;
    QToolButton *m_openRegionsButton = nullptr;
    QGroupBox *m_progressGroup = nullptr;
    QProgressBar *m_progressBar = nullptr;
    QPushButton *m_cancelButton = nullptr;
    QFrame *m_imageFrame = nullptr;
    QGroupBox *m_browserGroup = nullptr;
    kestro::ElidedLabel *m_fileNameLabel = nullptr;
    QToolButton *m_previousButton = nullptr;
    QToolButton *m_nextButton = nullptr;
    QSpinBox *m_frameSpinBox = nullptr;
    QLabel *m_totalCountLabel = nullptr;
};
