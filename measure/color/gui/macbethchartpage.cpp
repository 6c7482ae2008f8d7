#include "measure/color/gui/macbethchartpage.h"

#include "imaging/frameset.h"
#include "imaging/gui/filedialogs.h"
#include "imaging/gui/macbethframeview.h"
#include "imaging/gui/preferringsplitter.h"
#include "imaging/gui/reportdock.h"
#include "imaging/pngwriter.h"
#include "imaging/region.h"
#include "measure/color/colordiffreport.h"
#include "measure/color/graychartplot.h"
#include "measure/color/grayplotupdate.h"
#include "measure/color/whitebalance.h"
#include "measure/noise/chartgraph.h"
#include "measure/noise/noisecharts.h"
#include "measure/noise/noisereport.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QSpinBox>
#include <QSplitter>
#include <QTabWidget>
#include <QTextBrowser>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>
#include <cstdio>

#ifdef KESTRO_HAVE_WEBENGINE
#include <QWebEngineView>
#include <unistd.h>
#endif

using namespace kestro;

namespace {

// The gray plots keep one size, so their pictures in the reports do too.
const QSize kPlotSize(480, 320);
// Region edits arrive in bursts while a corner handle is dragged; the
// measurements run again once the burst is over.
const int kRerunDelayMs = 250;

const char kErrorTitle[] = "Error";
const char kNoiseTitle[] = "Noise calculation";

QWidget *fixedArea(QWidget *parent)
{
    auto *area = new QWidget(parent);
    area->setFixedSize(kPlotSize);
    return area;
}

} // namespace

MacbethChartPage::MacbethChartPage(QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("macbethChartPage"));
    buildUi();

    // The page's gray patch plot of the colour difference.
    m_colorGrayPlot = new GrayChartPlot(m_colorPlotArea);
    m_colorGrayPlot->setMinimumSize(m_colorPlotArea->size());
    m_colorGrayPlot->setMaximumSize(m_colorPlotArea->size());
    m_colorGrayPlot->setTitle(tr("Gray Chart Color Difference"));
    m_colorGrayPlot->enableAxis(QwtPlot::yLeft);
    m_colorGrayPlot->setAxisTitle(QwtPlot::xBottom, tr("Gray Patch Index"));
    m_colorGrayPlot->setAxisTitle(QwtPlot::yLeft, tr("Color Difference"));

    m_rerunTimer = new QTimer(this);
    m_rerunTimer->setSingleShot(true);
    m_rerunTimer->setInterval(kRerunDelayMs);
    connect(m_rerunTimer, &QTimer::timeout, this, &MacbethChartPage::rerunAfterRegionChange);

    connect(m_loadButton, &QPushButton::pressed, this, &MacbethChartPage::loadChartImage);
    connect(m_captureButton, &QPushButton::pressed, this, &MacbethChartPage::captureChartImage);
    connect(m_processButton, &QPushButton::pressed, this, &MacbethChartPage::processMacbethChart);
    connect(m_metric, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &MacbethChartPage::changeColordifferenceMetic);
    connect(m_noiseButton, &QPushButton::pressed, this, &MacbethChartPage::calculateNoise);
    connect(m_noisePatch, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &MacbethChartPage::noiseGraphSelChanged);
    connect(m_autoRunBox, &QCheckBox::toggled, this, &MacbethChartPage::updateNoiseColorDiffAutoRun);
    // A click on a patch of the noise chart selects its report.
    connect(m_noiseChart, &ChartGraph::patchSelected, this,
            [this](int patch) { m_noisePatch->setCurrentIndex(patch + 1); });
    // A region moved or resized by hand ends with regionResized; corner
    // drags, detection and loading rebuild all regions at once.
    connect(m_frameView->view(), &imageGraphicsView::regionResized, this, [this] {
        if (m_autoRun)
            rerunAfterRegionChange();
    });
    connect(m_frameView, &macbethFrameView::regionsReplaced, this, [this] {
        if (m_autoRun)
            m_rerunTimer->start();
    });
    m_processButton->setEnabled(true);
}

MacbethChartPage::~MacbethChartPage() = default;

void MacbethChartPage::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // The picture was fitted into the view before the page had its size.
    if (!m_shownOnce) {
        m_shownOnce = true;
        QTimer::singleShot(0, m_frameView, &macbethFrameView::fitView);
    }
}

void MacbethChartPage::buildUi()
{
    auto *layout = new QVBoxLayout(this);

    auto *controls = new QHBoxLayout;
    m_loadButton = new QPushButton(tr("Load Image(s)"), this);
    m_loadButton->setObjectName(QStringLiteral("pushButtonLoadChartImage"));
    m_loadButton->setToolTip(tr("Load chart pictures as the frame set"));
    m_captureButton = new QPushButton(tr("Capture"), this);
    m_captureButton->setObjectName(QStringLiteral("pushButtonCaptureChartImage"));
    m_captureButton->setToolTip(tr("Capture a series of frames from the running sensor"));
    m_captureCount = new QSpinBox(this);
    m_captureCount->setObjectName(QStringLiteral("spinBoxCaptureCount"));
    m_captureCount->setRange(1, 256);
    m_captureCount->setValue(1);
    m_captureCount->setToolTip(tr("Frames per capture"));
    m_processButton = new QPushButton(tr("Color Difference"), this);
    m_processButton->setObjectName(QStringLiteral("pushButtonProcessMacbethChart"));
    m_processButton->setToolTip(tr("Measure the color difference on the current frame"));
    m_metric = new QComboBox(this);
    m_metric->setObjectName(QStringLiteral("comboBoxColorDifferenceMetric"));
    m_metric->addItems(colorMetricNames());
    m_noiseButton = new QPushButton(tr("Noise"), this);
    m_noiseButton->setObjectName(QStringLiteral("pushButtonCalculateNoise"));
    m_noiseButton->setToolTip(tr("Measure the noise over all frames of the frame set"));
    m_noisePatch = new QComboBox(this);
    m_noisePatch->setObjectName(QStringLiteral("comboBoxNoisePatch"));
    m_noisePatch->addItem(tr("All patches"));
    for (int k = 1; k <= kMacbethPatchCount; ++k)
        m_noisePatch->addItem(tr("Patch %1").arg(k));
    m_noisePatch->setToolTip(tr("Patches shown in the noise report"));
    m_autoRunBox = new QCheckBox(tr("Auto run"), this);
    m_autoRunBox->setObjectName(QStringLiteral("checkBoxAutoRun"));
    m_autoRunBox->setToolTip(
            tr("Measure color difference and noise again when a region is moved or resized"));
    controls->addWidget(m_loadButton);
    controls->addWidget(m_captureButton);
    controls->addWidget(new QLabel(tr("Frames:"), this));
    controls->addWidget(m_captureCount);
    controls->addSpacing(16);
    controls->addWidget(m_processButton);
    controls->addWidget(m_metric);
    controls->addSpacing(16);
    controls->addWidget(m_noiseButton);
    controls->addWidget(m_noisePatch);
    controls->addSpacing(16);
    controls->addWidget(m_autoRunBox);
    controls->addStretch(1);
    layout->addLayout(controls);

    auto *split = new PreferringSplitter(Qt::Horizontal, this);
    m_frameView = new macbethFrameView(split);
    split->addWidget(m_frameView);

    auto *results = new QSplitter(Qt::Vertical, split);
    auto *charts = new QWidget(results);
    auto *chartsLayout = new QHBoxLayout(charts);
    chartsLayout->setContentsMargins(0, 0, 0, 0);
    auto makeTabs = [&](const char *name, ChartGraph **chart, QWidget **plotArea) {
        auto *tabs = new QTabWidget(charts);
        tabs->setObjectName(QLatin1String(name));
        *chart = new ChartGraph;
        (*chart)->setMinimumSize(kPlotSize / 2);
        tabs->addTab(*chart, tr("Color Patch"));
        // The tab's frame is margin enough: the charts fit a laptop screen
        // with the reports docked below. A tab narrower than the plot (beside
        // the help on a laptop) scrolls it instead of widening the page.
        auto *grayPage = new QScrollArea;
        grayPage->setFrameShape(QFrame::NoFrame);
        grayPage->setAlignment(Qt::AlignCenter);
        grayPage->setMinimumSize(kPlotSize.width() / 2, kPlotSize.height());
        *plotArea = fixedArea(grayPage);
        grayPage->setWidget(*plotArea);
        tabs->addTab(grayPage, tr("Gray Patch"));
        tabs->setCurrentIndex(0);
        chartsLayout->addWidget(tabs);
        return tabs;
    };
    m_colorTabs = makeTabs("colorDifferenceTabs", &m_colorChart, &m_colorPlotArea);
    m_noiseTabs = makeTabs("noiseTabs", &m_noiseChart, &m_noisePlotArea);
    results->addWidget(charts);

    m_reportTabs = new QTabWidget;
    m_reportTabs->setObjectName(QStringLiteral("reportTabs"));
    m_colorReportView = new QTextBrowser;
    m_colorReportView->setObjectName(QStringLiteral("colorDifferenceReportView"));
    m_colorReportView->setOpenLinks(false);
    // The report links the chart picture by its file name: open it in the
    // desktop's viewer.
    connect(m_colorReportView, &QTextBrowser::anchorClicked, this, [](const QUrl &link) {
        QDesktopServices::openUrl(link.isRelative() ? QUrl::fromLocalFile(link.toString()) : link);
    });
    m_reportTabs->addTab(m_colorReportView, tr("Color Difference Report"));
    m_noiseReportArea = new QWidget;
    m_noiseReportArea->setObjectName(QStringLiteral("noiseReportArea"));
    auto *noiseReportLayout = new QVBoxLayout(m_noiseReportArea);
    noiseReportLayout->setContentsMargins(0, 0, 0, 0);
    m_reportTabs->addTab(m_noiseReportArea, tr("Noise Report"));
    // The reports are a dock: below the charts here, or wherever the window
    // that takes it puts it.
    m_reportDock = new ReportDock(tr("Reports"), QStringLiteral("chartReportDock"), m_reportTabs,
                                  this);
    results->addWidget(m_reportDock->pageArea());

    split->addWidget(results);
    split->setChildrenCollapsible(false);
    results->setChildrenCollapsible(false);
    split->setStretchFactor(0, 1);
    split->setStretchFactor(1, 1);
    // The charts prefer the width that shows their gray plots whole (each
    // gray page may be half as wide as its plot), and start with it.
    const auto chartsWidth = [results] {
        return results->minimumSizeHint().width() + kPlotSize.width();
    };
    split->setSizes({700, std::max(900, chartsWidth())});
    split->setPreferredWidth(1, chartsWidth);
    layout->addWidget(split, 1);
}

void MacbethChartPage::initNoiseCharts()
{
    if (m_noiseChartsReady)
        return;
    m_noiseGrayPlot = kestro::initNoiseCharts(&m_noiseResults, m_noiseChart, m_noisePlotArea);
    m_noiseChartsReady = true;
}

void MacbethChartPage::message(QMessageBox::Icon icon, const QString &title, const QString &text)
{
    if (m_message) {
        m_message(icon, title, text);
        return;
    }
    std::fflush(stdout);
    std::fprintf(stderr, "%s\n", (title + QLatin1String(": ") + text).toLocal8Bit().constData());
}

void MacbethChartPage::loadChartImage()
{
    const QStringList files = chooseOpenFiles(this, tr(kOpenChartFilesTitle),
                                              tr(kImageFilesFilterWithRaw));
    if (files.isEmpty())
        return;
    m_frameView->frameSet().loadFiles(files);
    QStringList failed;
    QStringList loaded;
    for (const CFrame *frame : m_frameView->frameSet().frames())
        loaded << QDir::toNativeSeparators(frame->fileName());
    for (const QString &file : files) {
        if (!loaded.contains(QDir::toNativeSeparators(file)))
            failed << QDir::toNativeSeparators(file);
    }
    if (!failed.isEmpty())
        message(QMessageBox::Warning, tr("Warning"),
                tr("These files could not be read as chart images:\n") + failed.join('\n'));
}

void MacbethChartPage::captureChartImage()
{
    // The whole series is taken before anything changes: a capture that
    // fails partway keeps the previous frames and their files.
    const int count = m_captureCount->value();
    QVector<QImage> pictures;
    for (int i = 1; i <= count; ++i) {
        QImage picture;
        if (!m_capture || !m_capture(picture)) {
            message(QMessageBox::Critical, tr(kErrorTitle), captureFailureText());
            return;
        }
        // The frames are 32-bit opaque pictures; the captured 24-bit buffer
        // is let go as soon as it is converted.
        QImage frameImage = picture.isNull()
                                    ? QImage()
                                    : std::move(picture).convertToFormat(QImage::Format_ARGB32);
        if (frameImage.isNull()) {
            message(QMessageBox::Critical, tr(kErrorTitle), captureConversionFailureText());
            return;
        }
        pictures << frameImage;
    }
    // Each frame is saved so that it has a name in the reports; one that
    // cannot be written is kept without a name. The frames are made from the
    // pictures in memory, not read back from the files.
    QStringList names;
    for (int i = 0; i < pictures.size(); ++i) {
        const QString path = capturedPicturePath(i + 1);
        names << (savePng(pictures[i], path, PngCompression::None) ? path : QString());
    }
    if (!m_frameView->replaceFrames(pictures, names))
        message(QMessageBox::Critical, tr(kErrorTitle), captureConversionFailureText());
}

bool MacbethChartPage::processMacbethChart()
{
    const QVector<QRectF> regions = m_frameView->regionRects();
    if (regions.size() != kMacbethPatchCount) {
        message(QMessageBox::Critical, tr(kErrorTitle),
                tr("Color difference process error : not enough regions to do Macbeth chart "
                   "processing."));
        return false;
    }
    const QImage image = m_frameView->currentImage();
    if (image.isNull()) {
        message(QMessageBox::Critical, tr(kErrorTitle),
                tr("Color difference process error : No valid image to do processing."));
        return false;
    }
    QStdMacbethChartColorDifference::Rects rects;
    for (int i = 0; i < kMacbethPatchCount; ++i)
        rects[i] = alignedRect(regions[i]);
    if (!m_model.setMeasuredRegions(image, rects)) {
        message(QMessageBox::Critical, tr(kErrorTitle),
                tr("Color difference process error : ") + m_model.errorText());
        return true;
    }
    m_model.calculateStatistics();
    QColor colors[kMacbethPatchCount];
    m_model.getMeasuredColors(colors, kMacbethPatchCount);
    m_colorChart->setPatchColors(colors, kMacbethPatchCount);
    changeColordifferenceMetic(m_metric->currentIndex());

    const CFrame *frame = m_frameView->currentFrame();
    m_chartImageFile = QDir::toNativeSeparators(m_frameView->frameFileName(frame));
    if (!m_batchMode)
        m_colorReportView->clear();
    m_colorHtml = colorDifferenceReport(m_model, m_chartImageFile);
    if (!m_batchMode) {
        m_colorReportView->setHtml(m_colorHtml);
        m_reportTabs->setCurrentWidget(m_colorReportView);
    }
    emit chartProcessed();
    return true;
}

void MacbethChartPage::changeColordifferenceMetic(int index)
{
    const ColorMetricSelection sel = colorMetricSelection(m_model, index);
    if (!sel.valid)
        return;
    m_colorChart->setMode(sel.barMode);
    if (sel.barMode == ChartGraph::ValueMode)
        m_colorChart->setValues(sel.barValues.constData(), sel.barValues.size());
    else
        m_colorChart->setGrayValues(sel.barValues.constData(), sel.barValues.size());
    updateGrayChartPlot(*m_colorGrayPlot, m_model, index);
}

bool MacbethChartPage::calculateNoise()
{
    initNoiseCharts();
    const CFrameSet &set = m_frameView->frameSet();
    QList<const CFrame *> frames;
    QStringList files;
    for (const CFrame *frame : set.frames()) {
        frames << frame;
        files << QDir::toNativeSeparators(m_frameView->frameFileName(frame));
    }
    QVector<QRect> patches;
    for (const QRectF &r : m_frameView->regionRects())
        patches << alignedRect(r);
    if (frames.isEmpty()) {
        message(QMessageBox::Warning, tr(kNoiseTitle), noiseInvalidFrameText());
        return false;
    }
    if (patches.isEmpty()) {
        message(QMessageBox::Warning, tr(kNoiseTitle),
                tr("There are no regions to measure. Place or detect the chart regions first."));
        return false;
    }
    QVector<NoisePatchResult> results;
    QString error;
    if (!measureNoise(frames, patches, &results, &error)) {
        message(QMessageBox::Warning, tr(kNoiseTitle), error);
        return false;
    }
    showNoiseResults(results, files);
    return true;
}

void MacbethChartPage::showNoiseResults(const QVector<NoisePatchResult> &results,
                                        const QStringList &frameFiles)
{
    initNoiseCharts();
    m_noiseResults = results;
    m_noiseFrameFiles = frameFiles;
    updateSnrCharts(m_noiseResults, m_noiseChart, m_noiseGrayPlot);
    showNoiseReport();
    if (!m_batchMode)
        m_reportTabs->setCurrentWidget(m_noiseReportArea);
}

void MacbethChartPage::noiseGraphSelChanged(int curSel)
{
    m_noiseChart->setSelectedPatch(curSel - 1);
    if (!m_noiseResults.isEmpty())
        showNoiseReport();
}

void MacbethChartPage::showNoiseReport()
{
    m_noiseHtml = buildNoiseReport(m_noiseResults, m_noiseFrameFiles,
                                   m_noisePatch->currentIndex() - 1);
    if (m_batchMode)
        return;
    if (!m_noiseReportView) {
#ifdef KESTRO_HAVE_WEBENGINE
        if (m_useWebView) {
            // The browser engine refuses to start as root unless its sandbox
            // is off; a lab PC running the tool as root is common enough.
            if (::geteuid() == 0 && qEnvironmentVariableIsEmpty("QTWEBENGINE_DISABLE_SANDBOX"))
                qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
            m_noiseReportView = new QWebEngineView(m_noiseReportArea);
        }
#endif
        if (!m_noiseReportView) {
            auto *browser = new QTextBrowser(m_noiseReportArea);
            browser->setOpenLinks(false);
            m_noiseReportView = browser;
        }
        m_noiseReportView->setObjectName(QStringLiteral("noiseReportView"));
        m_noiseReportArea->layout()->addWidget(m_noiseReportView);
    }
#ifdef KESTRO_HAVE_WEBENGINE
    if (auto *web = qobject_cast<QWebEngineView *>(m_noiseReportView)) {
        web->setHtml(m_noiseHtml, QUrl());
        return;
    }
#endif
    static_cast<QTextBrowser *>(m_noiseReportView)->setHtml(m_noiseHtml);
}

void MacbethChartPage::updateNoiseColorDiffAutoRun(bool bAutoRun)
{
    m_autoRun = bAutoRun;
    if (m_autoRunBox->isChecked() != bAutoRun)
        m_autoRunBox->setChecked(bAutoRun);
    if (!bAutoRun)
        m_rerunTimer->stop();
}

void MacbethChartPage::rerunAfterRegionChange()
{
    // Only a complete placement is measured: a half-edited chart would
    // bring up an error box at every step.
    if (!m_autoRun || m_frameView->regionRects().size() != kMacbethPatchCount
        || m_frameView->currentImage().isNull())
        return;
    processMacbethChart();
    if (m_frameView->frameCount() > 0)
        calculateNoise();
}

bool MacbethChartPage::saveChartPictures(const ReportLocation &location, ChartGraph *chart,
                                         GrayChartPlot *plot, const QString &chartSuffix,
                                         const QString &plotSuffix) const
{
    if (!chart || !plot)
        return false;
    const QSize size(plot->width() - 1, plot->height() - 1);
    const bool chartSaved = savePng(chart->renderImage(size), location.picturePath(chartSuffix));
    const bool plotSaved = savePng(plot->grab().toImage(), location.picturePath(plotSuffix));
    return chartSaved && plotSaved;
}

bool MacbethChartPage::writeColorDifferenceReport(const QString &path, bool withNoise,
                                                  QString *error)
{
    return writeReportFile(
            path,
            [&] {
                const ReportLocation location = reportLocation(path);
                location.makeCompanionFolder();
                QStringList fragments;
                const QString regions = QStringLiteral("_macbethRegions.png");
                if (m_frameView->saveFrameView(location.picturePath(regions)))
                    fragments << regionsPictureFragment(location, regions);
                fragments << m_colorHtml;
                // A picture that cannot be saved is not an error of the report: it
                // then refers to a missing picture.
                saveChartPictures(location, m_colorChart, m_colorGrayPlot, QStringLiteral(".png"),
                                  QStringLiteral("_GrayChart.png"));
                fragments << QLatin1String("<body>")
                                     + chartPicturesHtml(location, QStringLiteral(".png"),
                                                         QStringLiteral("Macbeth ColorChecker Color "
                                                                        "Difference Chart"),
                                                         QStringLiteral("_GrayChart.png"),
                                                         QStringLiteral(
                                                                 "Gray Patches Color Difference "
                                                                 "Chart"))
                                     + QLatin1String("</body>");
                if (withNoise) {
                    initNoiseCharts();
                    saveChartPictures(location, m_noiseChart, m_noiseGrayPlot,
                                      QStringLiteral("_noise.png"),
                                      QStringLiteral("_GrayChart_noise.png"));
                    fragments << m_noiseHtml;
                    fragments << QLatin1String("<body>")
                                         + chartPicturesHtml(
                                                 location, QStringLiteral("_noise.png"),
                                                 QStringLiteral("Macbeth ColorChecker Noise Chart"),
                                                 QStringLiteral("_GrayChart_noise.png"),
                                                 QStringLiteral("Gray Patches Noise Chart"))
                                         + QLatin1String("</body>");
                }
                return mergeHtmlStreams(fragments, QStringLiteral("Macbeth Color Chart Results"));
            },
            error);
}

bool MacbethChartPage::writeNoiseReport(const QString &path, QString *error)
{
    return writeReportFile(
            path,
            [&] {
                initNoiseCharts();
                const ReportLocation location = reportLocation(path);
                location.makeCompanionFolder();
                saveChartPictures(location, m_noiseChart, m_noiseGrayPlot, QStringLiteral(".png"),
                                  QStringLiteral("_GrayChart.png"));
                // The noise HTML goes into the file whole, between its heading
                // and its chart pictures: there is no second document to merge
                // it with, so its own head and body stay as they were built.
                return QLatin1String("<center><H1>Noise Measurement Results</H1></center>")
                       + m_noiseHtml + QLatin1String("<br>")
                       + chartPicturesHtml(location, QStringLiteral(".png"),
                                           QStringLiteral("Macbeth ColorChecker Noise Chart"),
                                           QStringLiteral("_GrayChart.png"),
                                           QStringLiteral("Gray Patches Noise Chart"));
            },
            error);
}

MeasurementCsvData MacbethChartPage::csvData() const
{
    MeasurementCsvData data;
    data.frameFiles = m_noiseFrameFiles;
    data.noise = &m_noiseResults;
    data.colorDifference = &m_model;
    data.imageFileName = m_chartImageFile;
    return data;
}
