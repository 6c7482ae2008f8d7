#include "imaging/gui/macbethframeview.h"

#include "imaging/frame.h"
#include "imaging/gui/messages.h"
#include "imaging/gui/roidialogs.h"
#include "imaging/gui/viewlog.h"
#include "resources/initresources.h"

#include <QDir>
#include <QFileInfo>
#include <QFrame>
#include <QGroupBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QMessageBox>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QResizeEvent>
#include <QSaveFile>
#include <QSpinBox>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

#include <cstdio>

namespace {

const char kIconRoot[] = ":/Kestro/Resources/";
// Largest side of the picture written by saveFrameView: enough for a report,
// small enough that a 50-megapixel frame does not make a huge file.
constexpr int kSavedViewMaxSide = 2048;

QToolButton *iconButton(QWidget *parent, const char *name, const char *icon, const QString &tip)
{
    auto *button = new QToolButton(parent);
    button->setObjectName(QLatin1String(name));
    button->setIcon(QIcon(QLatin1String(kIconRoot) + QLatin1String(icon)));
    button->setToolTip(tip);
    button->setAutoRaise(true);
    return button;
}

QToolButton *toolButton(QToolBar *bar, const char *name, const char *icon, const QString &tip)
{
    QToolButton *button = iconButton(bar, name, icon, tip);
    bar->addWidget(button);
    return button;
}

} // namespace

namespace kestro {

// A label for a file name that may be longer than the room it gets: it
// takes the width its layout gives (never widening the panel) and shows as
// much of the name as fits, with "…" standing for the middle.
class ElidedLabel : public QLabel
{
public:
    explicit ElidedLabel(QWidget *parent)
        : QLabel(parent)
    {
        setSizePolicy(QSizePolicy::Ignored, sizePolicy().verticalPolicy());
    }
    void setFullText(const QString &text)
    {
        m_full = text;
        elide();
    }
    QString fullText() const { return m_full; }

protected:
    void resizeEvent(QResizeEvent *event) override
    {
        QLabel::resizeEvent(event);
        elide();
    }

private:
    void elide()
    {
        const int room = contentsRect().width() - 2 * margin();
        setText(fontMetrics().elidedText(m_full, Qt::ElideMiddle, qMax(0, room)));
    }
    QString m_full;
};

} // namespace kestro

macbethFrameView::macbethFrameView(QWidget *parent)
    : QWidget(parent)
{
    kestro_initResources();
    setObjectName(QStringLiteral("macbethFrameView"));
    buildUi();

    m_markers = new CMarkers(this);
    m_progressTimer = new QTimer(this);
    m_progressTimer->setInterval(1000);
    connect(m_progressTimer, &QTimer::timeout, this, &macbethFrameView::setprogress);
    connect(m_cancelButton, &QPushButton::clicked, this, &macbethFrameView::cancelAutoDetection);
    connect(m_markers, &CMarkers::detectionCompleted, this, &macbethFrameView::onDetectionCompleted,
            Qt::QueuedConnection);
    connect(&m_frames, &kestro::CFrameSet::countChanged, this, &macbethFrameView::changeframeCount);
    connect(m_view, &macbethImageGraphicsView::cornerMoved, this,
            [this](QGraphicsCornerEllipseItem *item, QPointF) { moveCorner(item); });

    connect(m_refreshButton, &QToolButton::clicked, this, &macbethFrameView::onRereshButtonClicked);
    connect(m_zoomOutButton, &QToolButton::clicked, m_view, &imageGraphicsView::zoomOut);
    connect(m_zoomInButton, &QToolButton::clicked, m_view, &imageGraphicsView::zoomIn);
    connect(m_fitButton, &QToolButton::clicked, this, &macbethFrameView::fitView);
    connect(m_autoDetectButton, &QToolButton::clicked, this, &macbethFrameView::startAutoDetect);
    connect(m_cornerButton, &QToolButton::clicked, this, &macbethFrameView::useCornerInfo);
    connect(m_pointerButton, &QToolButton::clicked, m_view,
            &macbethImageGraphicsView::enablePointing);
    connect(m_resetButton, &QToolButton::clicked, this, &macbethFrameView::resetRegions);
    connect(m_increaseButton, &QToolButton::clicked, m_view,
            &macbethImageGraphicsView::increasePatchSize);
    connect(m_decreaseButton, &QToolButton::clicked, m_view,
            &macbethImageGraphicsView::decreasePatchSize);
    connect(m_saveRegionsButton, &QToolButton::clicked, this, &macbethFrameView::saveRegions);
    connect(m_openRegionsButton, &QToolButton::clicked, this, &macbethFrameView::loadRegions);
    connect(m_previousButton, &QToolButton::clicked, this, &macbethFrameView::showPrevious);
    connect(m_nextButton, &QToolButton::clicked, this, &macbethFrameView::showNext);
    connect(m_frameSpinBox, QOverload<int>::of(&QSpinBox::valueChanged), this,
            &macbethFrameView::changeCurrentFrame);

    // Patches carry their numbers so that the reading order can be checked
    // at a glance; a left drag draws a region by hand.
    m_view->setShowNumbers(true);
    m_view->enableSelection();
    changeframeCount();
}

macbethFrameView::~macbethFrameView()
{
    // The thread must end before the view it reports to goes away.
    m_markers->requestStop();
    m_markers->wait();
}

void macbethFrameView::buildUi()
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(2, 2, 2, 2);

    m_toolBar = new QToolBar(this);
    m_toolBar->setObjectName(QStringLiteral("toolBar"));
    m_toolBar->setIconSize(QSize(20, 20));
    m_refreshButton = toolButton(m_toolBar, "toolButtonRefreshImage", "refresh.png", QString());
    m_refreshButton->setText(QStringLiteral("..."));
    m_zoomOutButton = toolButton(m_toolBar, "toolButtonZoomOut", "zoom_out.png",
                                 QStringLiteral("Zoom out"));
    m_zoomInButton = toolButton(m_toolBar, "toolButtonZoomIn", "zoom_in.png",
                                QStringLiteral("Zoom in"));
    m_fitButton = toolButton(m_toolBar, "toolButtonFitInView", "fit_to_size.png",
                             QStringLiteral("Fit view"));
    m_toolBar->addSeparator();
    m_autoDetectButton = toolButton(m_toolBar, "toolButtonAutoDetect", "macbeth_auto.png",
                                    QStringLiteral("Auto detection of MacBeth charts"));
    m_autoDetectButton->setCheckable(true);
    m_cornerButton = toolButton(m_toolBar, "toolButtonUseCornerInfo", "macbeth_corner.png",
                                QStringLiteral("Corner assisted MacBeth region selection"));
    m_pointerButton = toolButton(m_toolBar, "toolButtonMousePointer", "mouse-arrow.png",
                                 QStringLiteral("Mouse select to resize or move region"));
    m_resetButton = toolButton(m_toolBar, "toolButtonResetRegions", "macbeth_corner_reset.png",
                               QStringLiteral("Reset regions selection"));
    m_increaseButton = toolButton(m_toolBar, "toolButtonIncreasePatchSize", "patchIncrease.png",
                                  QStringLiteral("Increase patch width and height by 10%"));
    m_decreaseButton = toolButton(m_toolBar, "toolButtonDecreasePatchSize", "patchDecrease.png",
                                  QStringLiteral("Decrease patch width and height by 10%"));
    m_toolBar->addSeparator();
    m_saveRegionsButton = toolButton(m_toolBar, "toolButtonSaveAsRegionFile", "save_as.png",
                                     QStringLiteral("Save regions to a file "));
    m_openRegionsButton = toolButton(m_toolBar, "toolButtonOpenRegionFile",
                                     "folder_blue_regions.png",
                                     QStringLiteral("Load regions from a file "));
    layout->addWidget(m_toolBar);

    m_progressGroup = new QGroupBox(this);
    m_progressGroup->setObjectName(QStringLiteral("progressBarDetectionGroup"));
    auto *progressLayout = new QHBoxLayout(m_progressGroup);
    progressLayout->setContentsMargins(4, 2, 4, 2);
    m_progressBar = new QProgressBar(m_progressGroup);
    m_progressBar->setObjectName(QStringLiteral("progressBar"));
    m_progressBar->setToolTip(QStringLiteral("Auto-detection progress"));
    m_progressBar->setRange(0, 30);
    m_cancelButton = new QPushButton(QStringLiteral("Cancel"), m_progressGroup);
    m_cancelButton->setObjectName(QStringLiteral("pushButtonCancelAutodetect"));
    m_cancelButton->setToolTip(QStringLiteral("Cancel Auto-detection"));
    progressLayout->addWidget(m_progressBar, 1);
    progressLayout->addWidget(m_cancelButton);
    m_progressGroup->hide();
    layout->addWidget(m_progressGroup);

    m_imageFrame = new QFrame(this);
    m_imageFrame->setObjectName(QStringLiteral("imageFrame"));
    m_imageFrame->setFrameShape(QFrame::StyledPanel);
    auto *frameLayout = new QVBoxLayout(m_imageFrame);
    frameLayout->setContentsMargins(0, 0, 0, 0);
    m_view = new macbethImageGraphicsView(m_imageFrame);
    frameLayout->addWidget(m_view);
    layout->addWidget(m_imageFrame, 1);

    m_browserGroup = new QGroupBox(this);
    m_browserGroup->setObjectName(QStringLiteral("groupBoxImageBrowser"));
    auto *browserLayout = new QHBoxLayout(m_browserGroup);
    browserLayout->setContentsMargins(4, 2, 4, 2);
    m_fileNameLabel = new kestro::ElidedLabel(m_browserGroup);
    m_fileNameLabel->setObjectName(QStringLiteral("labelFileName"));
    m_fileNameLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_previousButton = iconButton(m_browserGroup, "toolButtonPrevious", "navigate_left.png",
                                  QStringLiteral("Previous frame in frameset"));
    m_frameSpinBox = new QSpinBox(m_browserGroup);
    m_frameSpinBox->setObjectName(QStringLiteral("spinBoxCurrentCount"));
    m_frameSpinBox->setToolTip(QStringLiteral("Current frameindex"));
    auto *ofLabel = new QLabel(QStringLiteral("/"), m_browserGroup);
    m_totalCountLabel = new QLabel(m_browserGroup);
    m_totalCountLabel->setObjectName(QStringLiteral("labelTotalCount"));
    m_totalCountLabel->setToolTip(QStringLiteral("Total frame count in frameset"));
    m_nextButton = iconButton(m_browserGroup, "toolButtonNext", "navigate_right.png",
                              QStringLiteral("Next frame in frameset"));
    browserLayout->addWidget(m_fileNameLabel, 1);
    browserLayout->addWidget(m_previousButton);
    browserLayout->addWidget(m_frameSpinBox);
    browserLayout->addWidget(ofLabel);
    browserLayout->addWidget(m_totalCountLabel);
    browserLayout->addWidget(m_nextButton);
    layout->addWidget(m_browserGroup);
}

// --- Frame set ---------------------------------------------------------

bool macbethFrameView::addFrame(const CFrame &frame)
{
    return m_frames.addFrame(frame);
}

void macbethFrameView::clearFrames()
{
    m_frames.clear();
}

bool macbethFrameView::replaceFrames(const QVector<QImage> &pictures, const QStringList &fileNames)
{
    QList<CFrame *> made;
    for (int i = 0; i < pictures.size(); ++i) {
        auto *frame = new CFrame;
        made << frame;
        if (!frame->setFromImage(pictures[i], 0, fileNames.value(i))) {
            qDeleteAll(made);
            return false;
        }
    }
    {
        // The set changes once for the user: one count, one picture shown.
        const QSignalBlocker blocker(&m_frames);
        m_frames.clear();
        for (const CFrame *frame : made)
            m_frames.addFrame(*frame);
    }
    qDeleteAll(made);
    changeframeCount();
    return true;
}

CFrame *macbethFrameView::currentFrame() const
{
    return m_frames.at(m_frameSpinBox->value() - 1);
}

QImage macbethFrameView::currentImage() const
{
    if (m_pictureGivenDirectly)
        return m_view->picture();
    const CFrame *frame = currentFrame();
    return frame ? frame->image() : QImage();
}

bool macbethFrameView::isDetectionRunning() const
{
    return m_pendingRunId != 0;
}

void macbethFrameView::changeframeCount()
{
    const int count = m_frames.count();
    m_totalCountLabel->setText(QString::number(count));
    m_previousButton->setEnabled(count >= 1);
    m_nextButton->setEnabled(count >= 1);
    {
        const QSignalBlocker blocker(m_frameSpinBox);
        m_frameSpinBox->setMinimum(count > 0 ? 1 : 0);
        m_frameSpinBox->setMaximum(count);
        m_frameSpinBox->setValue(count);
    }
    // The last frame added is shown.
    changeCurrentFrame(m_frameSpinBox->value());
    emit frameCountChanged(count);
}

void macbethFrameView::changeCurrentFrame(int index)
{
    Q_UNUSED(index);
    m_pictureGivenDirectly = false;
    refreshBackGroundImage();
}

void macbethFrameView::showNext()
{
    m_frameSpinBox->setValue(m_frameSpinBox->value() + 1);
}

void macbethFrameView::showPrevious()
{
    m_frameSpinBox->setValue(m_frameSpinBox->value() - 1);
}

void macbethFrameView::refreshBackGroundImage()
{
    const CFrame *frame = m_pictureGivenDirectly ? nullptr : currentFrame();
    const QString path = frameFileName(frame);
    m_fileNameLabel->setFullText(QFileInfo(path).fileName());
    m_fileNameLabel->setToolTip(QDir::toNativeSeparators(path));
    showPicture(currentImage());
}

void macbethFrameView::onRereshButtonClicked()
{
    refreshBackGroundImage();
}

void macbethFrameView::loadBackGroundImage(const QImage &image)
{
    m_pictureGivenDirectly = true;
    m_fileNameLabel->setFullText(QString());
    m_fileNameLabel->setToolTip(QString());
    showPicture(image);
}

void macbethFrameView::showPicture(const QImage &picture)
{
    const bool sizeChanged = picture.size() != m_view->picture().size();
    m_view->setPicture(picture);
    m_markers->setImage(picture);
    // Outline colours follow the picture under the regions.
    for (qRegionGraphicsRectItem *item : m_view->regions())
        m_view->changeOverlayColor(item);
    if (sizeChanged && !picture.isNull())
        m_view->fitView();
}

void macbethFrameView::fitView()
{
    m_view->fitView();
}

// --- Placing the regions ----------------------------------------------

void macbethFrameView::placeRegions(const QVector<QRectF> &rects)
{
    for (const QRectF &rect : rects)
        m_view->addRegion(rect);
    emit regionsReplaced();
}

void macbethFrameView::startAutoDetect()
{
    const QImage picture = currentImage();
    if (picture.isNull()) {
        kestro::showMessage(this, QMessageBox::Warning, QStringLiteral("Patch Auto detection"),
                            QStringLiteral("Cannot detect patch on an empty image"));
        m_autoDetectButton->setChecked(false);
        return;
    }
    m_view->storeDisplayScaleFactor();
    m_progressTimer->start(1000);
    m_markers->requestStop();
    m_markers->setImage(picture);
    m_pendingRunId = m_markers->startDetection();
    m_autoDetectButton->setEnabled(false);
    m_progressGroup->show();
    m_progressBar->reset();
    m_progressBar->setValue(0);
}

void macbethFrameView::onDetectionCompleted(int runId, int found)
{
    // A detection replaced or abandoned meanwhile reports too late.
    if (runId != m_pendingRunId)
        return;
    m_pendingRunId = 0;
    completeAutoDetect();
    emit detectionFinished(found);
}

void macbethFrameView::setprogress()
{
    m_progressBar->setValue(m_progressBar->value() + 1);
    if (m_progressBar->value() >= m_progressBar->maximum() - 5)
        m_progressTimer->stop();
}

void macbethFrameView::cancelAutoDetection()
{
    m_markers->requestStop();
}

void macbethFrameView::completeAutoDetect()
{
    m_view->setCornerMode(false);
    m_view->disablePointing();
    m_progressTimer->stop();
    m_autoDetectButton->setEnabled(m_pendingRunId == 0);
    m_autoDetectButton->setChecked(false);
    m_progressGroup->hide();
    m_view->removeAllRegions();
    m_view->removeHandles();
    placeRegions(m_markers->patchRects());
    // Corner-assisted placement then starts from the chart found.
    m_markers->placeCornersOnDetection();
}

void macbethFrameView::useCornerInfo()
{
    const QImage picture = currentImage();
    if (picture.isNull())
        return;
    m_view->storeDisplayScaleFactor();
    m_markers->requestStop();
    if (m_pendingRunId != 0) {
        // The stopped detection's result no longer matters.
        m_pendingRunId = 0;
        m_progressTimer->stop();
        m_progressGroup->hide();
        m_autoDetectButton->setEnabled(true);
        m_autoDetectButton->setChecked(false);
    }
    m_markers->discardDetection();
    m_markers->setImage(picture);
    m_markers->ensureControlPoints();
    m_view->removeAllRegions();
    m_view->removeHandles();
    m_view->setCornerMode(true);
    placeRegions(m_markers->cornerPatchRects());
    m_view->setHandles(m_markers->handleSquares());
}

void macbethFrameView::resetRegions()
{
    if (!kestro::askQuestion(this, QStringLiteral("Resetting regions"),
                             QStringLiteral(
                                     "Do you want to reset regions selection? All previous selection "
                                     "will be lost.")))
        return;
    m_markers->setImage(currentImage());
    m_markers->initControlPoints();
    useCornerInfo();
}

void macbethFrameView::moveCorner(QGraphicsCornerEllipseItem *item)
{
    if (!item)
        return;
    const QPointF point = m_view->cornerPoint();
    if (!m_markers->moveControlPoint(item->cornerNumber(), point))
        return;
    qCDebug(kestroViewLog) << "Corner is moved " << point;
    m_markers->discardDetection();
    m_view->removeAllRegions();
    placeRegions(m_markers->cornerPatchRects());
    m_view->updateHandles(m_markers->handleSquares());
}

void macbethFrameView::enableFrameviewControl(bool enable)
{
    m_autoDetectButton->setEnabled(enable && m_pendingRunId == 0);
    m_cornerButton->setEnabled(enable);
    m_pointerButton->setEnabled(enable);
    m_resetButton->setEnabled(enable);
    m_increaseButton->setEnabled(enable);
    const bool browse = enable && m_frames.count() >= 1;
    m_previousButton->setEnabled(browse);
    m_nextButton->setEnabled(browse);
    m_frameSpinBox->setEnabled(enable);
}

// --- Region files ------------------------------------------------------

bool macbethFrameView::loadRegionsFrom(const QString &path)
{
    m_view->removeAllRegions();
    m_view->removeHandles();
    m_view->setCornerMode(false);
    const bool loaded = m_view->readRegions(path);
    emit regionsReplaced();
    return loaded;
}

bool macbethFrameView::saveRegionsTo(const QString &path)
{
    return m_view->writeRegions(path);
}

void macbethFrameView::loadRegions()
{
    const QString path = kestro::askRoiFileToLoad(this, m_lastRoiPath);
    if (!path.isEmpty())
        loadRegionsFrom(path);
}

void macbethFrameView::saveRegions()
{
    const QString path = kestro::askRoiFileToSave(this, m_lastRoiPath);
    if (!path.isEmpty())
        saveRegionsTo(path);
}

bool macbethFrameView::saveFrameView(const QString &fpath)
{
    const QImage picture = m_view->picture();
    if (picture.isNull() || fpath.isEmpty())
        return false;
    QSize size = picture.size();
    if (size.width() > kSavedViewMaxSide || size.height() > kSavedViewMaxSide)
        size.scale(kSavedViewMaxSide, kSavedViewMaxSide, Qt::KeepAspectRatio);
    QImage out(size, QImage::Format_RGB32);
    if (out.isNull())
        return false;
    out.fill(Qt::black);
    {
        QPainter painter(&out);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        m_view->scene()->render(&painter, QRectF(QPointF(0, 0), QSizeF(size)),
                                QRectF(QPointF(0, 0), QSizeF(picture.size())));
    }
    QSaveFile file(fpath);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    if (!out.save(&file, "PNG")) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}
