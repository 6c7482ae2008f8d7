#include "measure/mtf/gui/mtfpage.h"

#include "app/messages.h"
#include "imaging/gui/capturedpicture.h"
#include "imaging/gui/filedialogs.h"
#include "imaging/gui/imagegraphicsview.h"
#include "imaging/gui/qregiongraphicsrectitem.h"
#include "imaging/gui/reportdock.h"
#include "imaging/roifile.h"
#include "measure/mtf/gui/mtfplot.h"
#include "measure/mtf/gui/mtfreportpictures.h"
#include "measure/mtf/mtfreport.h"
#include "measure/mtf/regionbasedmtf.h"
#include "platform/colorcal/imagecache.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QDir>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QSplitter>
#include <QStyle>
#include <QTextBrowser>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <memory>

namespace {

const char kRoiFilter[] = "ROI (*.roi)";
const char kEditedStyle[] = "background-color: rgb(236, 150, 150);";
const char kPlainStyle[] = "background-color: white;";
// Regions whose MTF tables the result pane shows all.
const int kFullTablesOnScreen = 8;

// A yes/no question. Where boxes go to stderr nobody can answer, so the
// question is printed and taken as answered yes.
bool askYesNo(QWidget *parent, const QString &title, const QString &text)
{
    if (kestro::messagesGoToStderr()) {
        std::fprintf(stderr, "%s\n", (title + QLatin1String(": ") + text).toLocal8Bit().constData());
        return true;
    }
    return QMessageBox::question(parent, title, text, QMessageBox::Yes | QMessageBox::No)
           == QMessageBox::Yes;
}

void warn(QWidget *parent, const QString &title, const QString &text)
{
    kestro::showMessage(parent, QMessageBox::Warning, title, text);
}

} // namespace

// A snapshot of the regions taken when a run starts. The run reads only this
// copy, so moving a region meanwhile cannot change a measurement half-way,
// and the page keeps the regions themselves from being removed until it ends.
class MtfPage::RunSource : public MTFRegionSource
{
public:
    QList<qRegionGraphicsRectItem *> items;
    QVector<QRectF> rects;
    int height = 0;
    QString fileName;
    double gamma = 1.0;

    int mtfRegionCount() const override { return items.size(); }
    QRectF mtfRegionRect(int index) const override { return rects.at(index); }
    regionBasedCalculation *mtfRegionCalculation(int index) const override
    {
        return items.at(index)->calculation();
    }
    void attachMtfRegionCalculation(int index, regionBasedCalculation *calculation) override
    {
        items.at(index)->setCalculation(calculation);
    }
    int mtfPictureHeight() const override { return height; }
    QString mtfFileName() const override { return fileName; }
    double mtfGamma() const override { return gamma; }
};

MtfPage::MtfPage(QWidget *parent)
    : QWidget(parent)
    , m_runSource(new RunSource)
{
    setObjectName(QStringLiteral("MtfPage"));
    buildForm();
    m_thread = new MTFThread(this, m_runSource);
    connect(m_thread, &MTFThread::setProgressValue, m_progress, &QProgressBar::setValue);
    connect(m_thread, &QThread::finished, this, &MtfPage::mtfCalculationFinished);
}

MtfPage::~MtfPage()
{
    m_thread->wait();
    delete m_runSource;
}

void MtfPage::buildForm()
{
    // A tool bar: on a narrow screen the buttons that do not fit move into
    // its extension menu instead of widening the page.
    auto *tools = new QToolBar(this);
    tools->setObjectName(QStringLiteral("mtfTools"));
    auto tool = [&](const QString &name, const QString &text, const QString &tip,
                    QStyle::StandardPixmap icon = QStyle::SP_CustomBase) {
        auto *button = new QToolButton(this);
        button->setObjectName(name);
        button->setText(text);
        button->setToolTip(tip);
        if (icon != QStyle::SP_CustomBase) {
            button->setIcon(style()->standardIcon(icon));
            button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        }
        tools->addWidget(button);
        return button;
    };
    m_view = new imageGraphicsView(this);
    m_view->setObjectName(QStringLiteral("mtfView"));

    m_loadButton = tool(QStringLiteral("loadImage"), tr("Open"), tr("Open a chart picture"),
                        QStyle::SP_DialogOpenButton);
    m_captureButton = tool(QStringLiteral("captureImage"), tr("Capture"),
                           tr("Capture a chart picture from the streaming sensor"));
    tools->addSeparator();
    QToolButton *pointer = tool(QStringLiteral("pointer"), tr("Select"),
                                tr("Select, move and resize regions"));
    QToolButton *draw = tool(QStringLiteral("drawRegion"), tr("Draw"),
                             tr("Draw a region across a slanted edge"));
    pointer->setCheckable(true);
    draw->setCheckable(true);
    auto *modes = new QButtonGroup(this);
    modes->addButton(pointer);
    modes->addButton(draw);
    QToolButton *zoomIn = tool(QStringLiteral("zoomIn"), tr("Zoom in"), tr("Zoom in"));
    QToolButton *zoomOut = tool(QStringLiteral("zoomOut"), tr("Zoom out"), tr("Zoom out"));
    QToolButton *fit = tool(QStringLiteral("fitView"), tr("Fit"), tr("Fit the picture"));
    tools->addSeparator();
    QToolButton *remove = tool(QStringLiteral("removeRegion"), tr("Remove"),
                               tr("Remove the selected region"), QStyle::SP_DialogDiscardButton);
    QToolButton *removeAll = tool(QStringLiteral("removeAllRegions"), tr("Remove all"),
                                  tr("Remove all regions"));
    QToolButton *saveRegions = tool(QStringLiteral("saveRegions"), tr("Save regions"),
                                    tr("Save region data"), QStyle::SP_DialogSaveButton);
    QToolButton *loadRegions = tool(QStringLiteral("loadRegions"), tr("Load regions"),
                                    tr("Load region data"));

    connect(m_loadButton, &QToolButton::clicked, this, &MtfPage::loadSlantedEdgeImage);
    connect(m_captureButton, &QToolButton::clicked, this, &MtfPage::captureMTFChartImage);
    connect(pointer, &QToolButton::clicked, m_view, &imageGraphicsView::enablePointing);
    connect(draw, &QToolButton::clicked, m_view, &imageGraphicsView::enableSelection);
    connect(zoomIn, &QToolButton::clicked, m_view, &imageGraphicsView::zoomIn);
    connect(zoomOut, &QToolButton::clicked, m_view, &imageGraphicsView::zoomOut);
    connect(fit, &QToolButton::clicked, m_view, &imageGraphicsView::fitView);
    connect(remove, &QToolButton::clicked, this, &MtfPage::removeSelectedRegion);
    connect(removeAll, &QToolButton::clicked, this, &MtfPage::removeAllRegions);
    connect(saveRegions, &QToolButton::clicked, this, &MtfPage::saveMarkerFileMTF);
    connect(loadRegions, &QToolButton::clicked, this, &MtfPage::loadMarkerFileMTF);
    connect(m_view, &imageGraphicsView::regionCreated, this, &MtfPage::changeToRegionSelection);
    connect(m_view, &imageGraphicsView::regionSelectionChanged, this, &MtfPage::changeRegionRect);
    // A drawn region is adjusted with the pointer; the mode buttons follow.
    connect(m_view, &imageGraphicsView::regionCreated, pointer,
            [pointer] { pointer->setChecked(true); });
    draw->setChecked(true);
    m_view->enableSelection();

    auto *fileRow = new QHBoxLayout;
    fileRow->addWidget(new QLabel(tr("File name:"), this));
    m_fileName = new QLineEdit(this);
    m_fileName->setObjectName(QStringLiteral("mtfFileName"));
    fileRow->addWidget(m_fileName, 1);
    connect(m_fileName, &QLineEdit::textEdited, this, &MtfPage::lineTextEdited);
    connect(m_fileName, &QLineEdit::editingFinished, this, &MtfPage::lineEditingFinished);

    auto *left = new QWidget(this);
    auto *leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 0, 0);
    leftLayout->addWidget(tools);
    leftLayout->addWidget(m_view, 1);
    leftLayout->addLayout(fileRow);

    auto *gammaBox = new QGroupBox(tr("Gamma"), this);
    gammaBox->setObjectName(QStringLiteral("gammaBox"));
    auto *gammaLayout = new QHBoxLayout(gammaBox);
    m_srgb = new QRadioButton(tr("sRGB (0.45)"), gammaBox);
    m_srgb->setObjectName(QStringLiteral("gammaSrgb"));
    m_linear = new QRadioButton(tr("Linear (1.00)"), gammaBox);
    m_linear->setObjectName(QStringLiteral("gammaLinear"));
    m_custom = new QRadioButton(tr("Custom"), gammaBox);
    m_custom->setObjectName(QStringLiteral("gammaCustom"));
    m_customGamma = new QLineEdit(QStringLiteral("0.45"), gammaBox);
    m_customGamma->setObjectName(QStringLiteral("customGamma"));
    m_customGamma->setMaximumWidth(80);
    m_srgb->setChecked(true);
    gammaLayout->addWidget(m_srgb);
    gammaLayout->addWidget(m_linear);
    gammaLayout->addWidget(m_custom);
    gammaLayout->addWidget(m_customGamma);
    gammaLayout->addStretch(1);

    m_calculate = new QPushButton(tr("Calculate MTF"), this);
    m_calculate->setObjectName(QStringLiteral("calculateMTF"));
    m_autoRerun = new QCheckBox(tr("Auto re-run"), this);
    m_autoRerun->setObjectName(QStringLiteral("autoRerun"));
    m_autoRerun->setToolTip(tr("With the Calculate MTF button pressed, regions are measured "
                               "again as soon as they change"));
    m_onlySelected = new QCheckBox(tr("Report selected region only"), this);
    m_onlySelected->setObjectName(QStringLiteral("reportOnlySelected"));
    m_lwph = new QCheckBox(tr("LW/PH"), this);
    m_lwph->setObjectName(QStringLiteral("showLWPH"));
    m_lwph->setToolTip(tr("Frequencies in line widths per picture height"));
    connect(m_calculate, &QPushButton::clicked, this, qOverload<>(&MtfPage::calcMTF));
    connect(m_autoRerun, &QCheckBox::stateChanged, this, &MtfPage::enableAutoRerun);
    connect(m_onlySelected, &QCheckBox::stateChanged, this, &MtfPage::showOnlySelected);
    connect(m_lwph, &QCheckBox::toggled, this, &MtfPage::showLWPH);

    // Two rows, so that the column stays narrow.
    auto *runRow = new QGridLayout;
    runRow->addWidget(m_calculate, 0, 0);
    runRow->addWidget(m_autoRerun, 0, 1);
    runRow->addWidget(m_lwph, 0, 2);
    runRow->addWidget(m_onlySelected, 1, 1, 1, 2);
    runRow->setColumnStretch(3, 1);

    m_progress = new QProgressBar(this);
    m_progress->setObjectName(QStringLiteral("mtfProgress"));
    m_progress->hide();

    m_plot = new MTFPlot(this);
    // The plot may shrink to its minimum on a small screen, not only to its
    // preferred size.
    m_plot->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    m_result = new QTextBrowser(this);
    m_result->setObjectName(QStringLiteral("mtfResult"));
    // The result pane is a dock: below the plot here, or wherever the
    // window that takes it puts it.
    m_reportDock = new kestro::ReportDock(tr("MTF Results"), QStringLiteral("mtfReportDock"),
                                          m_result, this);
    auto *results = new QSplitter(Qt::Vertical, this);
    results->setChildrenCollapsible(false);
    results->addWidget(m_plot);
    results->addWidget(m_reportDock->pageArea());
    results->setStretchFactor(0, 3);
    results->setStretchFactor(1, 2);

    auto *right = new QWidget(this);
    auto *rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    rightLayout->addWidget(gammaBox);
    rightLayout->addLayout(runRow);
    rightLayout->addWidget(m_progress);
    rightLayout->addWidget(results, 1);

    auto *split = new QSplitter(Qt::Horizontal, this);
    split->setChildrenCollapsible(false);
    split->addWidget(left);
    split->addWidget(right);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);
    split->setSizes({600, 400});
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(split);

    // Keyboard order: the picture's tools, the picture and its file, then
    // the calculation's settings and results from top to bottom.
    QWidget *order[] = {m_loadButton,   m_captureButton, pointer,     draw,
                        zoomIn,         zoomOut,         fit,         remove,
                        removeAll,      saveRegions,     loadRegions, m_view,
                        m_fileName,     m_srgb,          m_linear,    m_custom,
                        m_customGamma,  m_calculate,     m_autoRerun, m_lwph,
                        m_onlySelected, m_result};
    for (std::size_t i = 1; i < std::size(order); ++i)
        setTabOrder(order[i - 1], order[i]);

    // What a running calculation reads stays unchanged until it ends.
    m_runLocked = {m_view,      m_captureButton, gammaBox,    remove,        removeAll,
                   loadRegions, m_fileName,      m_autoRerun, m_onlySelected};
}

void MtfPage::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (m_fitOnShow) {
        m_fitOnShow = false;
        QTimer::singleShot(0, m_view, &imageGraphicsView::fitView);
    }
}

void MtfPage::setBatchSettings(std::function<MtfBatchSettings()> settings)
{
    m_batchSettings = std::move(settings);
}

void MtfPage::setCaptureFunction(kestro::CaptureFunction capture)
{
    m_capture = std::move(capture);
}

MtfBatchSettings MtfPage::batchSettings() const
{
    return m_batchSettings ? m_batchSettings() : MtfBatchSettings();
}

double MtfPage::customGamma() const
{
    bool ok = false;
    const double gamma = m_customGamma->text().trimmed().toDouble(&ok);
    return ok && std::isfinite(gamma) && gamma >= 0 ? gamma : 1.0;
}

bool MtfPage::isCalculating() const
{
    // A threaded run lasts until its end is handled here, not until the
    // worker stops: in between, the inputs stay locked and no second run
    // may start, or the first run's end would unlock them under it.
    return m_running || m_thread->isRunning();
}

bool MtfPage::autoRerun() const
{
    return m_calculate->isCheckable() && m_calculate->isChecked();
}

regionBasedMTF *MtfPage::mtfOf(const qRegionGraphicsRectItem *item)
{
    return item ? dynamic_cast<regionBasedMTF *>(item->calculation()) : nullptr;
}

qRegionGraphicsRectItem *MtfPage::shownRegion() const
{
    for (qRegionGraphicsRectItem *item : m_view->regions()) {
        if (item->isSelected())
            return item;
    }
    return m_view->region(0);
}

// ---------------------------------------------------------------------------
// Pictures

void MtfPage::newSlantedEdgeImage(QImage &image)
{
    m_thread->wait();
    const MtfBatchSettings batch = batchSettings();
    if (batch.commandLine)
        m_mtfFileName = batch.imagePath;
    m_view->setPicture(image);
    if (!batch.commandLine) {
        m_view->fitView();
        // The scroll bars of a zoomed view leave only when the view is laid
        // out again, and a hidden page's view has no size yet: fit again
        // once the view has its room.
        if (isVisible())
            QTimer::singleShot(0, m_view, &imageGraphicsView::fitView);
        m_fitOnShow = !isVisible();
    }
    clearResults();
    for (qRegionGraphicsRectItem *item : m_view->regions()) {
        if (regionBasedMTF *mtf = mtfOf(item))
            mtf->invalidate();
    }
}

bool MtfPage::loadImageFile(const QString &path)
{
    // Through the calculation's cache of decoded files: the regions then
    // measure this picture without decoding the file again.
    const QImage picture = kestro::colorcal::loadImageCached(path);
    if (picture.isNull()) {
        warn(this, QStringLiteral("File load failure"),
             QStringLiteral("Failed to load the file : ") + path);
        return false;
    }
    m_mtfFileName = path;
    m_loadedFileName = path;
    m_fileNameEdited = false;
    m_fileName->setText(path);
    m_fileName->setStyleSheet(QLatin1String(kPlainStyle));
    QImage shown = picture;
    newSlantedEdgeImage(shown);
    return true;
}

void MtfPage::loadSlantedEdgeImage()
{
    const QString path = kestro::chooseChartPicture(this);
    if (!path.isEmpty())
        loadImageFile(path);
}

void MtfPage::captureMTFChartImage()
{
    kestro::CapturedPicture captured;
    if (!kestro::capturePicture(this, m_capture, captured))
        return;
    // The view shows the picture as the calculation decodes the file, and
    // the calculation takes it from memory instead of reading the file back.
    QImage picture = kestro::colorcal::cacheWrittenPicture(captured.path, captured.image);
    if (picture.isNull())
        picture = captured.image;
    captured.image = QImage();
    m_mtfFileName = captured.path;
    newSlantedEdgeImage(picture);
    kestro::showCapturedFile(m_fileName);
    m_loadedFileName = kestro::capturedFileText();
    m_fileNameEdited = false;
}

void MtfPage::setFileNameStyle(const QString &text)
{
    const bool edited = !text.isEmpty() && text != m_loadedFileName;
    m_fileName->setStyleSheet(QLatin1String(edited ? kEditedStyle : kPlainStyle));
}

void MtfPage::lineTextEdited(const QString &text)
{
    m_fileNameEdited = true;
    setFileNameStyle(text);
}

void MtfPage::lineEditingFinished()
{
    // A path typed into the line is loaded when editing ends.
    if (!m_fileNameEdited)
        return;
    m_fileNameEdited = false;
    const QString text = m_fileName->text().trimmed();
    if (text.isEmpty() || text == m_loadedFileName)
        return;
    loadImageFile(text);
}

// ---------------------------------------------------------------------------
// Regions

void MtfPage::changeToRegionSelection()
{
    qRegionGraphicsRectItem *drawn = m_view->currentRegion();
    m_view->enablePointing();
    if (drawn)
        m_view->selectRegion(drawn);
}

void MtfPage::changeRegionRect(qRegionGraphicsRectItem *item)
{
    if (!item || isCalculating())
        return;
    regionBasedMTF *mtf = mtfOf(item);
    const bool rerun = autoRerun();
    if (!mtf) {
        if (!rerun)
            return;
        mtf = new regionBasedMTF;
        item->setCalculation(mtf);
    }
    mtf->setDrawnRegion(item->rect());
    mtf->setFileName(m_mtfFileName);
    mtf->setGamma(m_gamma);
    mtf->setPictureHeight(static_cast<unsigned>(m_view->picture().height()));
    if (rerun)
        mtf->calculate();
    if (mtf->isValid()) {
        // A region edit shows cycles per pixel.
        const QSignalBlocker block(m_lwph);
        m_lwph->setChecked(false);
        plotRegion(*mtf, false);
        m_result->setHtml(mtfReport(QString(), false, false));
    } else {
        m_plot->hideAll();
        m_result->setHtml(
                QStringLiteral("<html><body><p style=\"color:red\">Error in MTF calculation.</p> "
                               "<p>No valid result to plot for this region. Please use "
                               "\"Calculate MTF\" to refresh the results.</p><h4>Error "
                               "info</h4><p width=\"500px\"> ")
                + mtf->errorMessage() + QStringLiteral("</p></body></html>"));
    }
}

void MtfPage::removeSelectedRegion()
{
    if (isCalculating())
        return;
    m_view->removeSelectedRegion();
    if (m_view->regionCount() == 0)
        clearResults();
}

void MtfPage::removeAllRegions()
{
    if (isCalculating()
        || !askYesNo(this, QStringLiteral("Region removal"),
                     QStringLiteral("Are you sure you want to remove all regions ")))
        return;
    m_view->removeAllRegions();
    clearResults();
    if (autoRerun())
        calcMTF(true);
}

QString MtfPage::chooseRoiFile(bool save)
{
    // Region files keep a folder of their own: the dialogs start there and
    // leave the picture dialogs' folders as they were.
    const QString openFolder = kestro::lastOpenDirectory();
    const QString saveFolder = kestro::lastSaveDirectory();
    if (!m_lastRoiDirectory.isEmpty()) {
        kestro::setLastOpenDirectory(m_lastRoiDirectory);
        kestro::setLastSaveDirectory(m_lastRoiDirectory);
    }
    QString path = save ? kestro::chooseSaveFile(this, QStringLiteral("Save region data"),
                                                 QLatin1String(kRoiFilter))
                        : kestro::chooseOpenFile(this, QStringLiteral("Load region data"),
                                                 QLatin1String(kRoiFilter));
    kestro::setLastOpenDirectory(openFolder);
    kestro::setLastSaveDirectory(saveFolder);
    if (save && !path.isEmpty() && QFileInfo(path).suffix().isEmpty())
        path += QStringLiteral(".roi");
    return path;
}

bool MtfPage::saveRegionFile(const QString &path)
{
    m_lastRoiDirectory = QFileInfo(path).absolutePath();
    if (m_view->writeRegions(path))
        return true;
    warn(this, QStringLiteral("Save region data"),
         QStringLiteral("Cannot write file %1.").arg(path));
    return false;
}

bool MtfPage::loadRegionFile(const QString &path)
{
    if (!QFileInfo(path).isFile()) {
        warn(this, QStringLiteral("Load marker position"),
             QStringLiteral("Cannot load file %1.").arg(path));
        return false;
    }
    m_lastRoiDirectory = QFileInfo(path).absolutePath();
    const bool read = m_view->readRegions(path);
    if (!read) {
        // A file that holds no regions says nothing; a damaged one says why.
        const QString why = kestro::readRoiFile(path).error;
        if (!why.isEmpty())
            warn(this, QStringLiteral("Load marker position"), why);
    }
    if (autoRerun())
        calcMTF(true);
    return read;
}

void MtfPage::saveMarkerFileMTF()
{
    const QString path = chooseRoiFile(true);
    if (!path.isEmpty())
        saveRegionFile(path);
}

void MtfPage::loadMarkerFileMTF()
{
    if (isCalculating())
        return;
    const QString path = chooseRoiFile(false);
    if (!path.isEmpty())
        loadRegionFile(path);
}

// ---------------------------------------------------------------------------
// Calculation

void MtfPage::calcMTF()
{
    // Releasing the pressed toggle (auto re-run) calculates nothing.
    if (m_calculate->isCheckable() && !m_calculate->isChecked())
        return;
    calcMTF(true);
}

bool MtfPage::readGamma()
{
    if (m_srgb->isChecked()) {
        m_gamma = 0.45;
    } else if (m_linear->isChecked()) {
        m_gamma = 1.00;
    } else if (m_custom->isChecked()) {
        bool ok = false;
        const double gamma = m_customGamma->text().trimmed().toDouble(&ok);
        if (!ok || !std::isfinite(gamma) || gamma < 0)
            return false;
        m_gamma = gamma;
    }
    return true;
}

void MtfPage::setInputsEnabled(bool enabled)
{
    for (QWidget *w : qAsConst(m_runLocked))
        w->setEnabled(enabled);
}

void MtfPage::endRun()
{
    m_progress->hide();
    m_loadButton->setEnabled(true);
    m_calculate->setEnabled(true);
    setInputsEnabled(true);
}

void MtfPage::reportNoResult(const QString &why) const
{
    std::fflush(stdout);
    std::fprintf(stderr, "Kestro: no MTF report written: %s\n", why.toLocal8Bit().constData());
    std::fflush(stderr);
}

bool MtfPage::prepareBatchRegions(const MtfBatchSettings &batch)
{
    if (m_view->picture().isNull()) {
        warn(this, QStringLiteral("File load failure"),
             QStringLiteral("Failed to load the file : ") + batch.imagePath);
        reportNoResult(QStringLiteral("the picture did not load."));
        return false;
    }
    if (m_batchRegionsAdded)
        return true;
    if (batch.roiFileGiven) {
        if (!QFileInfo(batch.roiFile).isFile()) {
            warn(this, QStringLiteral("Load marker position"),
                 QStringLiteral("Cannot load file %1.").arg(batch.roiFile));
            reportNoResult(QStringLiteral("the region file did not load."));
            return false;
        }
        if (!m_view->readRegions(batch.roiFile)) {
            const QString why = kestro::readRoiFile(batch.roiFile).error;
            reportNoResult(why.isEmpty() ? QStringLiteral("the region file %1 holds no regions.")
                                                   .arg(batch.roiFile)
                                         : why);
            return false;
        }
    } else if (!batch.inlineRegion.isEmpty()) {
        m_view->addRegion(QRectF(batch.inlineRegion));
    }
    m_batchRegionsAdded = true;
    return true;
}

bool MtfPage::calcMTF(bool interactive)
{
    if (isCalculating())
        return false;
    const MtfBatchSettings batch = batchSettings();
    if (batch.commandLine && !prepareBatchRegions(batch))
        return false;

    m_plot->setData(nullptr, nullptr, nullptr, nullptr, nullptr, 0);
    m_loadButton->setEnabled(false);
    if (!m_calculate->isCheckable())
        m_calculate->setEnabled(false);
    m_progress->setValue(0);
    m_progress->show();

    if (batch.commandLine) {
        m_gamma = batch.gamma;
    } else if (!readGamma()) {
        kestro::showMessage(this, QMessageBox::Warning, QStringLiteral("Gamma"),
                            QStringLiteral("Invalid gamma number."));
        endRun();
        return false;
    }

    const int count = m_view->regionCount();
    m_progress->setMaximum(count);
    if (count == 0) {
        endRun();
        return true;
    }

    RunSource &run = *m_runSource;
    run.items = m_view->regions();
    run.rects = m_view->regionRects();
    run.height = m_view->picture().height();
    run.fileName = m_mtfFileName;
    run.gamma = m_gamma;
    // Calculations are attached here, so that the worker only computes.
    for (qRegionGraphicsRectItem *item : qAsConst(run.items)) {
        if (!mtfOf(item))
            item->setCalculation(new regionBasedMTF);
    }
    if (interactive) {
        setInputsEnabled(false);
        m_running = true;
        m_thread->start(QThread::InheritPriority);
        return true;
    }
    m_thread->runSynchronously();
    return finishRun();
}

void MtfPage::mtfCalculationFinished()
{
    m_running = false;
    finishRun();
}

bool MtfPage::finishRun()
{
    const bool commandLine = batchSettings().commandLine;
    qRegionGraphicsRectItem *item = shownRegion();
    regionBasedMTF *mtf = mtfOf(item);
    bool shown = false;
    if (!mtf) {
        kestro::showMessage(this, QMessageBox::Warning, QStringLiteral("MTF calulation error"),
                            QStringLiteral("No valid region for MTF calculation"));
    } else if (mtf->isValid()) {
        m_plot->setPictureHeight(static_cast<unsigned>(m_view->picture().height()));
        plotRegion(*mtf, m_lwph->isChecked());
        // The result pane is not seen in a batch run.
        if (!commandLine)
            m_result->setHtml(mtfReport(QString(), false, false));
        shown = true;
    } else {
        m_plot->hideAll();
        m_result->setHtml(
                QStringLiteral(
                        "<html><body><p style=\"color:red\">Error in MTF calculation for region</p><H4>"
                        "Region info </h4> <p width=\"500px\">%1</p><p>No valid result to plot for "
                        "this region. Please use \"Calculate MTF\" to refresh the results.</p>\n<h4>"
                        "Error info</h4><p width=\"500px\"> %2</p> </body></html>")
                        .arg(mtf->regionInfoHtml(), mtf->errorMessage()));
    }
    endRun();
    if (!commandLine)
        return shown;

    // A batch report needs one region with a result; it lists the failed
    // ones with their errors.
    QStringList failures;
    bool any = false;
    const QList<qRegionGraphicsRectItem *> &regions = m_view->regions();
    for (int i = 0; i < regions.size(); ++i) {
        const regionBasedMTF *m = mtfOf(regions[i]);
        if (m && m->isValid()) {
            any = true;
            break;
        }
        if (m && failures.size() < 20)
            failures << QStringLiteral("region %1 (%2): %3")
                                .arg(QString::number(i + 1), m->regionTag(), m->errorMessage());
    }
    if (!any)
        reportNoResult(QStringLiteral("no region has a valid result; ") + failures.join("; "));
    return any;
}

void MtfPage::plotRegion(const regionBasedMTF &mtf, bool lwph)
{
    m_plot->setLWPHMode(lwph);
    m_plot->setData(lwph ? mtf.frequenciesLWPH() : mtf.frequencies(),
                    mtf.curve(regionBasedMTF::Gray), mtf.curve(regionBasedMTF::Red),
                    mtf.curve(regionBasedMTF::Green), mtf.curve(regionBasedMTF::Blue),
                    mtf.pointCount());
}

void MtfPage::clearResults()
{
    m_plot->setData(nullptr, nullptr, nullptr, nullptr, nullptr, 0);
    m_result->clear();
}

void MtfPage::showLWPH(bool on)
{
    const regionBasedMTF *mtf = mtfOf(shownRegion());
    if (!mtf || !mtf->isValid() || isCalculating()) {
        m_plot->setLWPHMode(on);
        m_plot->replot();
        return;
    }
    m_plot->setPictureHeight(static_cast<unsigned>(m_view->picture().height()));
    plotRegion(*mtf, on);
}

void MtfPage::showOnlySelected(int state)
{
    Q_UNUSED(state);
    const regionBasedMTF *mtf = mtfOf(shownRegion());
    if (mtf && mtf->isValid() && !isCalculating())
        m_result->setHtml(mtfReport(QString(), false, false));
}

void MtfPage::enableAutoRerun(int state)
{
    const bool on = state != Qt::Unchecked;
    m_calculate->setCheckable(on);
    if (!on)
        m_calculate->setChecked(false);
}

// ---------------------------------------------------------------------------
// Report

void MtfPage::attachMissingCalculations()
{
    const auto height = static_cast<unsigned>(m_view->picture().height());
    for (qRegionGraphicsRectItem *item : m_view->regions()) {
        if (mtfOf(item))
            continue;
        auto *mtf = new regionBasedMTF;
        mtf->setDrawnRegion(item->rect());
        mtf->setFileName(m_mtfFileName);
        mtf->setGamma(m_gamma);
        mtf->setPictureHeight(height);
        item->setCalculation(mtf);
    }
}

QString MtfPage::mtfReport(const QString &outputPath, bool commandLine, bool saveImages)
{
    // The worker writes the results that the report reads.
    m_thread->wait();
    attachMissingCalculations();

    kestro::mtf::MtfReportInput input;
    input.gamma = m_gamma;
    input.outputPath = outputPath;
    const bool onlySelected = !saveImages && !commandLine && m_onlySelected->isChecked();
    if (onlySelected) {
        if (const regionBasedMTF *mtf = mtfOf(shownRegion()))
            input.regions << mtf;
    } else {
        for (const qRegionGraphicsRectItem *item : m_view->regions())
            input.regions << mtfOf(item);
        // On screen, many regions list their figures and only the shown one
        // its long MTF table: the pane stays quick to fill and to read.
        if (!saveImages && !commandLine && input.regions.size() > kFullTablesOnScreen)
            input.tableOnlyFor = m_view->regions().indexOf(shownRegion());
    }

    std::unique_ptr<kestro::mtf::MtfReportPictureWriter> pictures;
    if (saveImages && !outputPath.isEmpty()) {
        QVector<kestro::mtf::RegionOutline> outlines;
        for (const qRegionGraphicsRectItem *item : m_view->regions())
            outlines.append({item->rect(), item->color(), item->index()});
        // Batch graphs have a fixed size; saved ones that of the plot on screen.
        QSize graphSize = m_plot->size();
        if (commandLine || graphSize.width() < 200 || graphSize.height() < 150)
            graphSize = QSize(1280, 960);
        pictures = std::make_unique<kestro::mtf::MtfReportPictureWriter>(m_view->picture(),
                                                                         outlines, graphSize);
        input.pictures = pictures.get();
    }
    if (!commandLine) {
        m_progress->setMaximum(input.regions.size());
        input.progress = [this](int region) { m_progress->setValue(region); };
    }
    const QString html = kestro::mtf::buildMtfReport(input);
    if (pictures)
        pictures->finish();
    return html;
}
