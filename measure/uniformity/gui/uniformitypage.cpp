#include "measure/uniformity/gui/uniformitypage.h"

#include "imaging/gui/capturedpicture.h"
#include "imaging/gui/filedialogs.h"
#include "imaging/gui/messages.h"
#include "imaging/gui/preferringsplitter.h"
#include "imaging/gui/reportdock.h"
#include "measure/color/macbethexport.h"
#include "measure/uniformity/gui/qspectrogramplot.h"
#include "measure/uniformity/gui/uniformitydatadialog.h"
#include "measure/uniformity/gui/uniformitypictureview.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHash>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QSplitter>
#include <QTextBrowser>
#include <QUrl>
#include <QVBoxLayout>
#include <cmath>

namespace kestro {

namespace {

const UniformityChannel kChannels[4] = {UniformityChannel::Y, UniformityChannel::R,
                                        UniformityChannel::G, UniformityChannel::B};

// Size of the picture the page shows for a chart size choice.
const char *const kChartSizeNames[3] = {"S", "M", "L"};

QSpinBox *spinBox(int minimum, int maximum, int value, const char *name)
{
    auto *box = new QSpinBox;
    box->setRange(minimum, maximum);
    box->setValue(value);
    // One change per finished edit: every change recomputes.
    box->setKeyboardTracking(false);
    box->setObjectName(QLatin1String(name));
    return box;
}

// The report view: pictures the page has in memory are shown from there,
// the original one already scaled down, and always as rendered last (a
// document would otherwise keep the first chart it read under a name). The
// charts, rendered for print, are shown no wider than the chart size.
class ReportBrowser : public QTextBrowser
{
public:
    using QTextBrowser::QTextBrowser;

    void setReport(const QString &html, QHash<QString, QImage> pictures, int maxWidth)
    {
        m_pictures = std::move(pictures);
        m_maxWidth = maxWidth;
        // A fresh document forgets the pictures the last one read; the
        // browser deletes the last one, its child.
        setDocument(new QTextDocument(this));
        setHtml(html);
    }

protected:
    QVariant loadResource(int type, const QUrl &name) override
    {
        if (type != QTextDocument::ImageResource)
            return QTextBrowser::loadResource(type, name);
        for (auto it = m_pictures.constBegin(); it != m_pictures.constEnd(); ++it) {
            if (QUrl::fromUserInput(it.key()) == QUrl::fromUserInput(name.toString())
                || it.key() == name.toString())
                return it.value();
        }
        const QVariant loaded = QTextBrowser::loadResource(type, name);
        QImage picture;
        if (loaded.type() == QVariant::ByteArray)
            picture.loadFromData(loaded.toByteArray());
        else if (loaded.canConvert<QImage>())
            picture = loaded.value<QImage>();
        if (!picture.isNull() && m_maxWidth > 0 && picture.width() > m_maxWidth)
            return picture.scaledToWidth(m_maxWidth, Qt::SmoothTransformation);
        return loaded;
    }

private:
    QHash<QString, QImage> m_pictures;
    int m_maxWidth = 0;
};

} // namespace

UniformityPage::UniformityPage(QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("uniformityPage"));
    m_calc.setSubsampleSize(m_subsample);
    m_calc.setCenterPercent(m_centerPercent);
    m_calc.setCornerPercent(m_cornerPercent);
    buildWidgets();
    connectWidgets();
}

UniformityPage::~UniformityPage() = default;

void UniformityPage::buildWidgets()
{
    // Picture.
    auto *pictureBox = new QGroupBox(QStringLiteral("Flat-field picture"));
    m_fileName = new QLineEdit;
    m_fileName->setObjectName(QStringLiteral("uniFileName"));
    m_fileName->setReadOnly(true);
    m_load = new QPushButton(QStringLiteral("Load..."));
    m_load->setObjectName(QStringLiteral("uniLoad"));
    m_capturePicture = new QPushButton(QStringLiteral("Capture"));
    m_capturePicture->setObjectName(QStringLiteral("uniCapture"));
    auto *pictureButtons = new QHBoxLayout;
    pictureButtons->addWidget(m_load);
    pictureButtons->addWidget(m_capturePicture);
    auto *pictureLayout = new QVBoxLayout(pictureBox);
    pictureLayout->addWidget(m_fileName);
    pictureLayout->addLayout(pictureButtons);

    // Subsampling and windows.
    auto *gridBox = new QGroupBox(QStringLiteral("Subsampling"));
    m_subsampleLine = new QLineEdit(QString::number(m_subsample));
    m_subsampleLine->setObjectName(QStringLiteral("uniSubSampSize"));
    m_subsampleLine->setToolTip(QStringLiteral("Block size in pixels (1 - Height/8 or Width/8)"));
    m_centerSpin = spinBox(1, 100, m_centerPercent, "uniCenterPercent");
    m_centerSpin->setSuffix(QStringLiteral(" %"));
    m_cornerSpin = spinBox(1, 100, m_cornerPercent, "uniCornerPercent");
    m_cornerSpin->setSuffix(QStringLiteral(" %"));
    m_channel = new QComboBox;
    m_channel->setObjectName(QStringLiteral("uniChannel"));
    for (UniformityChannel c : kChannels)
        m_channel->addItem(QLatin1String(uniformityChannelName(c)));
    auto *gridForm = new QFormLayout(gridBox);
    gridForm->addRow(QStringLiteral("Subsample size:"), m_subsampleLine);
    gridForm->addRow(QStringLiteral("Center:"), m_centerSpin);
    gridForm->addRow(QStringLiteral("Corner:"), m_cornerSpin);
    gridForm->addRow(QStringLiteral("Channel:"), m_channel);

    // Results.
    auto *resultBox = new QGroupBox(QStringLiteral("Subsampled data"));
    auto label = [](const char *name) {
        auto *l = new QLabel(QStringLiteral("-"));
        l->setObjectName(QLatin1String(name));
        l->setTextInteractionFlags(Qt::TextSelectableByMouse);
        return l;
    };
    m_minimum = label("uniMin");
    m_maximum = label("uniMax");
    m_mean = label("uniMean");
    m_center = label("uniCenter");
    m_cpiqMetric = label("uniCpiqMetric");
    auto *resultForm = new QFormLayout(resultBox);
    resultForm->addRow(QStringLiteral("Minimum:"), m_minimum);
    resultForm->addRow(QStringLiteral("Maximum:"), m_maximum);
    resultForm->addRow(QStringLiteral("Mean:"), m_mean);
    resultForm->addRow(QStringLiteral("Center:"), m_center);
    resultForm->addRow(QStringLiteral("CPIQ metric:"), m_cpiqMetric);
    m_data = new QPushButton(QStringLiteral("Data..."));
    m_data->setObjectName(QStringLiteral("uniData"));
    m_data->setToolTip(QStringLiteral("The subsampled grid of the channel as a table"));
    resultForm->addRow(m_data);

    // Chart.
    auto *chartBox = new QGroupBox(QStringLiteral("Chart"));
    m_colorMap = new QComboBox;
    m_colorMap->setObjectName(QStringLiteral("uniColorMap"));
    m_colorMap->addItems(
            {QStringLiteral("Standard"), QStringLiteral("Gray"), QStringLiteral("Jet")});
    m_showContour = new QCheckBox(QStringLiteral("Show contour"));
    m_showContour->setObjectName(QStringLiteral("uniShowContour"));
    m_contourLow = spinBox(-1000000, 1000000, m_contour.low, "uniContourLow");
    m_contourHigh = spinBox(-1000000, 1000000, m_contour.high, "uniContourHigh");
    m_contourStep = spinBox(0, 1000000, m_contour.step, "uniContourSS");
    auto *chartForm = new QFormLayout(chartBox);
    chartForm->addRow(QStringLiteral("Color map:"), m_colorMap);
    chartForm->addRow(m_showContour);
    chartForm->addRow(QStringLiteral("Contour low:"), m_contourLow);
    chartForm->addRow(QStringLiteral("Contour high:"), m_contourHigh);
    chartForm->addRow(QStringLiteral("Contour step:"), m_contourStep);

    // Report.
    auto *reportBox = new QGroupBox(QStringLiteral("Report"));
    auto *sizeRow = new QHBoxLayout;
    m_chartSizeGroup = new QButtonGroup(this);
    for (int i = 0; i < 3; ++i) {
        auto *button = new QRadioButton(QLatin1String(kChartSizeNames[i]));
        button->setObjectName(QStringLiteral("uniChartSize") + QLatin1String(kChartSizeNames[i]));
        m_chartSizeGroup->addButton(button, kUniformityChartSizes[i]);
        sizeRow->addWidget(button);
        button->setChecked(kUniformityChartSizes[i] == m_chartSize);
    }
    auto *channelRow = new QHBoxLayout;
    for (int c = 0; c < 4; ++c) {
        m_reportChannel[c] = new QCheckBox(QLatin1String(uniformityChannelName(kChannels[c])));
        m_reportChannel[c]->setObjectName(QStringLiteral("uniReport")
                                          + QLatin1String(uniformityChannelName(kChannels[c])));
        m_reportChannel[c]->setChecked(true);
        channelRow->addWidget(m_reportChannel[c]);
    }
    m_cpiq = new QCheckBox(QStringLiteral("CPIQ zones"));
    m_cpiq->setObjectName(QStringLiteral("uniCPIQ"));
    // The zones come from the same pass as the grids: nearly free.
    m_cpiq->setChecked(true);
    m_cpiqRows = spinBox(1, kCpiqMaxZones, kCpiqDefaultRows, "uniCpiqRows");
    m_cpiqCols = spinBox(1, kCpiqMaxZones, kCpiqDefaultCols, "uniCpiqCols");
    auto *cpiqRow = new QHBoxLayout;
    cpiqRow->addWidget(m_cpiq);
    cpiqRow->addWidget(m_cpiqRows);
    cpiqRow->addWidget(new QLabel(QStringLiteral("x")));
    cpiqRow->addWidget(m_cpiqCols);
    m_autoRunBox = new QCheckBox(QStringLiteral("Auto run"));
    m_autoRunBox->setObjectName(QStringLiteral("uniAutoRun"));
    m_autoRunBox->setToolTip(QStringLiteral("Rebuild the report after every change"));
    m_report = new QPushButton(QStringLiteral("Report"));
    m_report->setObjectName(QStringLiteral("uniPrintHTML"));
    m_saveCpiq = new QPushButton(QStringLiteral("Save CPIQ..."));
    m_saveCpiq->setObjectName(QStringLiteral("uniSaveCpiq"));
    auto *reportButtons = new QHBoxLayout;
    reportButtons->addWidget(m_report);
    reportButtons->addWidget(m_saveCpiq);
    auto *reportForm = new QFormLayout(reportBox);
    reportForm->addRow(QStringLiteral("Chart size:"), sizeRow);
    reportForm->addRow(QStringLiteral("Charts:"), channelRow);
    reportForm->addRow(cpiqRow);
    reportForm->addRow(m_autoRunBox);
    reportForm->addRow(reportButtons);

    auto *controls = new QWidget;
    auto *controlLayout = new QVBoxLayout(controls);
    for (QGroupBox *box : {pictureBox, gridBox, resultBox, chartBox, reportBox})
        controlLayout->addWidget(box);
    controlLayout->addStretch(1);
    auto *scroll = new QScrollArea;
    scroll->setWidget(controls);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setMinimumWidth(controls->sizeHint().width() + 24);
    scroll->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);

    m_picture = new UniformityPictureView;
    m_picture->setObjectName(QStringLiteral("uniPicture"));
    m_chart = new QSpectrogramPlot;
    m_chart->setObjectName(QStringLiteral("uniChart"));
    m_reportView = new ReportBrowser;
    m_reportView->setObjectName(QStringLiteral("uniReportView"));
    m_reportChart = new QSpectrogramPlot(this);
    m_reportChart->setObjectName(QStringLiteral("uniReportChart"));
    m_reportChart->setAttribute(Qt::WA_DontShowOnScreen);
    m_reportChart->hide();

    // Picture and chart side by side; neither can be pushed out of view.
    auto *views = new PreferringSplitter(Qt::Horizontal);
    views->setChildrenCollapsible(false);
    views->addWidget(m_picture);
    views->addWidget(m_chart);
    // The picture is as wide as its corner labels next to each other while
    // the chart keeps its smallest width, and the chart takes the rest.
    // Below its preferred width the chart may shrink to what its axes need,
    // so that the page fits beside the help dock on a laptop.
    views->setStretchFactor(0, 0);
    views->setStretchFactor(1, 1);
    views->setPreferredWidth(0, [this] { return m_picture->sizeHint().width(); });
    m_chart->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    // The report view is a dock: below the views here, or wherever the
    // window that takes it puts it.
    m_reportDock = new ReportDock(QStringLiteral("Uniformity Report"),
                                  QStringLiteral("uniReportDock"), m_reportView, this);
    auto *right = new QSplitter(Qt::Vertical);
    right->setChildrenCollapsible(false);
    right->addWidget(views);
    right->addWidget(m_reportDock->pageArea());
    right->setStretchFactor(0, 3);
    right->setStretchFactor(1, 2);

    auto *layout = new QHBoxLayout(this);
    layout->addWidget(scroll);
    layout->addWidget(right, 1);
}

void UniformityPage::connectWidgets()
{
    connect(m_load, &QPushButton::clicked, this, &UniformityPage::loadUniImage);
    connect(m_capturePicture, &QPushButton::clicked, this, &UniformityPage::captureUniChartImage);
    connect(m_subsampleLine, &QLineEdit::editingFinished, this,
            &UniformityPage::valueChangedUniSubSampSize);
    connect(m_centerSpin, QOverload<int>::of(&QSpinBox::valueChanged), this,
            &UniformityPage::valueChangedUniCenterPercent);
    connect(m_cornerSpin, QOverload<int>::of(&QSpinBox::valueChanged), this,
            &UniformityPage::valueChangedUniCornerPercent);
    connect(m_channel, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            [this] { recompute(false); });
    connect(m_autoRunBox, &QCheckBox::toggled, this, &UniformityPage::updateUniAutoRun);
    connect(m_cpiq, &QCheckBox::toggled, this, &UniformityPage::enableCPIQ);
    for (QSpinBox *zones : {m_cpiqRows, m_cpiqCols})
        connect(zones, QOverload<int>::of(&QSpinBox::valueChanged), this,
                [this] { recompute(false); });

    // The chart follows its controls directly; the page keeps the same
    // settings for the report.
    connect(m_colorMap, &QComboBox::currentTextChanged, m_chart, &QSpectrogramPlot::setColorMap);
    connect(m_colorMap, &QComboBox::currentTextChanged, this,
            &UniformityPage::indexChangedUniColorMap);
    connect(m_showContour, &QCheckBox::toggled, m_chart, &QSpectrogramPlot::showContour);
    connect(m_showContour, &QCheckBox::toggled, this, &UniformityPage::clickedUniShowContour);
    const auto spinChanged = QOverload<int>::of(&QSpinBox::valueChanged);
    connect(m_contourLow, spinChanged, m_chart, &QSpectrogramPlot::setUniContourLow);
    connect(m_contourLow, spinChanged, this, &UniformityPage::valueChangedUniMin);
    connect(m_contourHigh, spinChanged, m_chart, &QSpectrogramPlot::setUniContourHigh);
    connect(m_contourHigh, spinChanged, this, &UniformityPage::valueChangedUniMax);
    connect(m_contourStep, spinChanged, m_chart, &QSpectrogramPlot::setUniContourSS);
    connect(m_contourStep, spinChanged, this, &UniformityPage::valueChangedUniStepSize);
    m_chart->setUniContourLow(m_contour.low);
    m_chart->setUniContourHigh(m_contour.high);
    m_chart->setUniContourSS(m_contour.step);

    connect(m_chartSizeGroup, &QButtonGroup::idClicked, this, [this](int) {
        m_chartSize = m_chartSizeGroup->checkedId();
        reportIfAutoRun();
    });
    for (QCheckBox *box : m_reportChannel)
        connect(box, &QCheckBox::toggled, this, [this] { reportIfAutoRun(); });
    connect(m_report, &QPushButton::clicked, this, &UniformityPage::printUniHTML);
    connect(m_data, &QPushButton::clicked, this, &UniformityPage::clickedUniData);
    connect(m_saveCpiq, &QPushButton::clicked, this, &UniformityPage::saveUniCpiq);
}

void UniformityPage::setCaptureFunction(CaptureFunction capture)
{
    m_capture = std::move(capture);
}

void UniformityPage::setBatchSettingsProvider(std::function<UniformityBatchSettings()> provider)
{
    m_settingsProvider = std::move(provider);
}

UniformityBatchSettings UniformityPage::currentSettings() const
{
    UniformityBatchSettings s;
    s.imagePath = m_imagePath;
    s.centerPercent = m_centerPercent;
    s.cornerPercent = m_cornerPercent;
    s.showContour = m_contour.shown;
    s.contourLow = m_contour.low;
    s.contourStepSize = m_contour.step;
    s.contourHigh = m_contour.high;
    s.chartSize = m_chartSize;
    s.subSampleSize = m_subsample;
    s.colorMapName = m_colorMapName;
    return s;
}

UniformityReportSettings UniformityPage::reportSettings() const
{
    UniformityReportSettings s;
    s.imagePath = m_imagePath;
    s.subsample = m_subsample;
    s.centerPercent = m_centerPercent;
    s.cornerPercent = m_cornerPercent;
    s.chartSize = m_chartSize;
    s.chartChannels = chartChannelMask();
    s.colorMapName = m_colorMapName;
    s.contour = m_contour;
    s.cpiq = m_cpiq->isChecked();
    s.cpiqRows = m_cpiqRows->value();
    s.cpiqCols = m_cpiqCols->value();
    return s;
}

UniformityChannel UniformityPage::shownChannel() const
{
    return kChannels[qBound(0, m_channel->currentIndex(), 3)];
}

unsigned UniformityPage::chartChannelMask() const
{
    unsigned mask = 0;
    for (int c = 0; c < 4; ++c)
        if (m_reportChannel[c]->isChecked())
            mask |= uniformityChannelBit(kChannels[c]);
    return mask;
}

void UniformityPage::warn(const QString &title, const QString &text)
{
    showMessage(window(), QMessageBox::Warning, title, text);
}

void UniformityPage::loadUniImage()
{
    const QString path = chooseChartPicture(this);
    if (!path.isEmpty())
        loadPictureFile(path);
}

bool UniformityPage::loadPictureFile(const QString &path)
{
    if (!loadPicture(path))
        return false;
    m_fileName->setStyleSheet(QString());
    m_fileName->setText(path);
    return true;
}

bool UniformityPage::loadPicture(const QString &path)
{
    if (m_calc.loadImage(path) != UniformityCalculation::Loaded) {
        warn(m_calc.errorTitle(), m_calc.errorText());
        return false;
    }
    showNewPicture(path.isEmpty() ? path
                                  : QDir::toNativeSeparators(QFileInfo(path).absoluteFilePath()));
    return true;
}

bool UniformityPage::setPicture(const QImage &image, const QString &path)
{
    if (m_calc.setImage(image, path) != UniformityCalculation::Loaded) {
        warn(m_calc.errorTitle(), m_calc.errorText());
        return false;
    }
    showNewPicture(path);
    return true;
}

void UniformityPage::showNewPicture(const QString &path)
{
    m_imagePath = path;
    ++m_pictureNumber;
    m_picture->setPicture(m_calc.image()->image());
    m_picture->clearWindows();
    // A report of the previous picture no longer applies.
    m_html.clear();
    m_reportView->clear();
    recompute(true);
}

void UniformityPage::newUniImage(QImage &image)
{
    setPicture(image, m_imagePath);
}

void UniformityPage::captureUniChartImage()
{
    CapturedPicture captured;
    if (!capturePicture(window(), m_capture, captured))
        return;
    // The measurement reads 32-bit pixels; a captured frame is 24-bit RGB.
    if (!setPicture(captured.image.convertToFormat(QImage::Format_RGB32), captured.path))
        return;
    showCapturedFile(m_fileName);
}

void UniformityPage::valueChangedUniSubSampSize()
{
    bool ok = false;
    const int size = m_subsampleLine->text().trimmed().toInt(&ok);
    // Text that is not a number is an invalid size like 0.
    m_subsample = ok ? size : 0;
    recompute(true);
}

void UniformityPage::valueChangedUniCenterPercent(int percent)
{
    m_centerPercent = percent;
    recompute(false);
}

void UniformityPage::valueChangedUniCornerPercent(int percent)
{
    m_cornerPercent = percent;
    recompute(false);
}

void UniformityPage::updateUniAutoRun(bool autoRun)
{
    m_autoRun = autoRun;
    reportIfAutoRun();
}

void UniformityPage::enableCPIQ(bool enable)
{
    Q_UNUSED(enable);
    recompute(false);
}

void UniformityPage::indexChangedUniColorMap(const QString &name)
{
    m_colorMapName = name;
    reportIfAutoRun();
}

void UniformityPage::clickedUniShowContour(bool show)
{
    m_contour.shown = show;
    reportIfAutoRun();
}

void UniformityPage::valueChangedUniMin(int low)
{
    m_contour.low = low;
    reportIfAutoRun();
}

void UniformityPage::valueChangedUniMax(int high)
{
    m_contour.high = high;
    reportIfAutoRun();
}

void UniformityPage::valueChangedUniStepSize(int step)
{
    m_contour.step = step;
    reportIfAutoRun();
}

void UniformityPage::recompute(bool announce)
{
    if (!m_calc.hasImage())
        return;
    m_calc.setChannel(shownChannel());
    m_calc.setSubsampleSize(m_subsample);
    m_calc.setCenterPercent(m_centerPercent);
    m_calc.setCornerPercent(m_cornerPercent);
    m_calc.setCpiqZones(m_cpiqRows->value(), m_cpiqCols->value());
    m_calc.setCpiqEnabled(m_cpiq->isChecked());
    const bool valid = m_calc.update();
    showResults();
    if (!valid) {
        if (announce && !m_calc.errorText().isEmpty())
            warn(QStringLiteral("Warning"), m_calc.errorText());
        return;
    }
    reportIfAutoRun();
}

void UniformityPage::showResults()
{
    const CpiqResult &cpiq = m_calc.cpiq();
    if (!m_cpiq->isChecked())
        m_cpiqMetric->setText(QStringLiteral("-"));
    else if (cpiq.valid)
        m_cpiqMetric->setText(QString::number(cpiq.metric, 'g', 6));
    else
        m_cpiqMetric->setText(cpiq.error);
    if (!m_calc.isSubsampleValid())
        return;
    const UniformitySummary &s = m_calc.summary();
    m_minimum->setText(uniformityTruncatedText(s.minimum));
    m_maximum->setText(uniformityTruncatedText(s.maximum));
    m_mean->setText(uniformityTruncatedText(s.mean));
    m_center->setText(QString::number(s.center, 'g', 6));
    // A new grid resets the chart's zoom; a change of the windows alone
    // keeps the view the user zoomed to.
    const int gridSubsample = m_calc.data().subsampleSize();
    const ChartSource source{m_pictureNumber, static_cast<int>(m_calc.channel()), gridSubsample};
    if (!(source == m_chartSource)) {
        m_chart->setGrid(m_calc.data());
        m_chartSource = source;
    }

    // Windows are kept in grid cells; the picture shows them in pixels.
    const double scale = gridSubsample;
    auto toPixels = [scale](const QRectF &r) {
        return QRectF(r.x() * scale, r.y() * scale, r.width() * scale, r.height() * scale);
    };
    const std::array<QRectF, 4> drawn = m_calc.data().cornerDrawRects();
    std::array<QRectF, 4> corners;
    for (int i = 0; i < 4; ++i)
        corners[i] = toPixels(drawn[i]);
    m_picture->setWindows(toPixels(m_calc.data().centerRect()), QStringLiteral("%1").arg(s.center),
                          corners, s.labels);
}

void UniformityPage::reportIfAutoRun()
{
    if (m_autoRun && m_calc.hasImage() && m_calc.isSubsampleValid())
        buildReport(false);
}

bool UniformityPage::buildReport(bool announce)
{
    if (!m_calc.hasImage() || m_building)
        return false;
    m_building = true;
    const UniformityReportSettings settings = reportSettings();
    UniformityReportData data;
    QString error;
    if (!computeUniformityReport(*m_calc.image(), settings, m_reportPass, data, &error)) {
        m_building = false;
        if (announce)
            warn(QStringLiteral("Warning"), error);
        return false;
    }
    const QString folder = uniformityChartFolder();
    renderUniformityCharts(*m_reportChart, m_reportPass, settings, folder);
    m_html = uniformityReportHtml(settings, data, folder);
    m_htmlImagePath = settings.imagePath;
    m_htmlImageFolder = folder;
    if (!isBatchRun()) {
        // The view shows the picture at its report size from memory.
        QHash<QString, QImage> pictures;
        const QSize shown = uniformityPictureSize(data.width, data.height, settings.chartSize);
        pictures.insert(settings.imagePath,
                        m_calc.image()->image().scaled(shown, Qt::IgnoreAspectRatio,
                                                       Qt::SmoothTransformation));
        static_cast<ReportBrowser *>(m_reportView)->setReport(m_html, pictures, settings.chartSize);
    }
    m_building = false;
    return true;
}

void UniformityPage::printUniHTML()
{
    if (!m_calc.hasImage()) {
        warn(QStringLiteral("Warning"),
             QStringLiteral("Load or capture a flat-field picture first."));
        return;
    }
    buildReport(true);
}

void UniformityPage::clickedUniData()
{
    if (!m_calc.hasImage() || m_calc.data().cols() == 0) {
        warn(QStringLiteral("Warning"),
             QStringLiteral("Load or capture a flat-field picture first."));
        return;
    }
    auto *dialog = new UniformityDataDialog(m_calc.data().grid(), m_calc.data().cols(),
                                            m_calc.data().rows(),
                                            QLatin1String(uniformityChannelName(m_calc.channel())),
                                            this);
    dialog->setObjectName(QStringLiteral("uniDataDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->show();
}

bool UniformityPage::saveUniformityCsv(const QString &path)
{
    if (!m_calc.hasImage())
        return false;
    // The numbers as the page's settings give them now.
    UniformityReportData data;
    if (!computeUniformityReport(*m_calc.image(), reportSettings(), m_reportPass, data, nullptr))
        return false;
    return saveTextFile(path, uniformityCsv(data));
}

bool UniformityPage::saveCpiqFile(const QString &path)
{
    if (!m_calc.hasImage())
        return false;
    const CpiqResult cpiq = m_calc.cpiqEnabled() && m_calc.cpiq().valid
                                    ? m_calc.cpiq()
                                    : computeCpiq(*m_calc.image(), m_cpiqRows->value(),
                                                  m_cpiqCols->value());
    return saveTextFile(path, uniformityCpiqText(cpiq));
}

void UniformityPage::saveUniCpiq()
{
    if (!m_calc.hasImage()) {
        warn(QStringLiteral("Warning"),
             QStringLiteral("Load or capture a flat-field picture first."));
        return;
    }
    const QString path = chooseSaveFile(this, tr("Choose a file name"), tr("CSV (*.csv *.txt)"));
    if (path.isEmpty())
        return;
    if (!saveCpiqFile(path))
        warn(QStringLiteral("Warning"), QStringLiteral("Cannot write to ") + path);
}

void UniformityPage::applyBatchSettings(const UniformityBatchSettings &b)
{
    m_subsample = b.subSampleSize;
    m_centerPercent = b.centerPercent;
    m_cornerPercent = b.cornerPercent;
    m_contour = UniformityContour{b.showContour, b.contourLow, b.contourHigh, b.contourStepSize};
    // A chart size that is not a size keeps the page's choice.
    if (b.chartSize > 0)
        m_chartSize = b.chartSize;
    m_colorMapName = uniformityReportColorMap(b.colorMapName);
    // The widgets show what they can of it; the page state above is what
    // the run uses (a spin box would clamp an out-of-range value).
    const QSignalBlocker blockers[] = {QSignalBlocker(m_subsampleLine),
                                       QSignalBlocker(m_centerSpin),
                                       QSignalBlocker(m_cornerSpin),
                                       QSignalBlocker(m_showContour),
                                       QSignalBlocker(m_contourLow),
                                       QSignalBlocker(m_contourHigh),
                                       QSignalBlocker(m_contourStep),
                                       QSignalBlocker(m_colorMap)};
    m_subsampleLine->setText(QString::number(m_subsample));
    m_centerSpin->setValue(m_centerPercent);
    m_cornerSpin->setValue(m_cornerPercent);
    m_showContour->setChecked(m_contour.shown);
    m_contourLow->setValue(m_contour.low);
    m_contourHigh->setValue(m_contour.high);
    m_contourStep->setValue(m_contour.step);
    m_colorMap->setCurrentText(m_colorMapName);
    if (QAbstractButton *size = m_chartSizeGroup->button(m_chartSize))
        size->setChecked(true);
}

bool UniformityPage::runUniformity()
{
    m_html.clear();
    m_htmlImagePath.clear();
    m_htmlImageFolder.clear();
    if (!m_settingsProvider)
        return false;
    const UniformityBatchSettings settings = m_settingsProvider();
    applyBatchSettings(settings);
    if (m_calc.loadImage(settings.imagePath) != UniformityCalculation::Loaded) {
        warn(m_calc.errorTitle(), m_calc.errorText());
        return false;
    }
    ++m_pictureNumber;
    m_imagePath = QDir::toNativeSeparators(QFileInfo(settings.imagePath).absoluteFilePath());
    return buildReport(true);
}

} // namespace kestro

#include "moc_uniformitypage.cpp"
