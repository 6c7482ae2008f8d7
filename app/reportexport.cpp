#include "app/reportexport.h"

#include "app/messages.h"
#include "imaging/gui/filedialogs.h"
#include "measure/color/macbethexport.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <cstdio>

namespace {

const char kHtmlFilter[] = "HTML (*.html *.htm)";
const char kCsvFilter[] = "CSV (*.csv *.txt)";

// The wait cursor while a report is written (interactive runs only).
class WaitCursor
{
public:
    explicit WaitCursor(bool show)
        : m_shown(show && qobject_cast<QApplication *>(QCoreApplication::instance()))
    {
        if (m_shown)
            QApplication::setOverrideCursor(Qt::WaitCursor);
    }
    ~WaitCursor()
    {
        if (m_shown)
            QApplication::restoreOverrideCursor();
    }
    WaitCursor(const WaitCursor &) = delete;
    WaitCursor &operator=(const WaitCursor &) = delete;

private:
    bool m_shown;
};

// Copies a file over an existing one of the same name; a missing source is
// not an error of the report, which then refers to a missing picture.
void copyReplacing(const QString &from, const QString &to)
{
    if (from.isEmpty() || !QFile::exists(from))
        return;
    QFile::remove(to);
    QFile::copy(from, to);
}

// The uniformity report for a file at `path`: its picture and the four maps
// copied into the companion folder, the text referring to the copies.
QString uniformityReportText(const KestroUniformityBatch &uni, const QString &path)
{
    QString html = uni.uniformityHtml();
    const kestro::ReportLocation location = kestro::reportLocation(path);
    location.makeCompanionFolder();
    const QString imagePath = uni.uniformityImagePath();
    const QString imageFolder = uni.uniformityImageFolder();
    copyReplacing(imagePath, location.picturePath(QStringLiteral(".png")));
    for (const char *map :
         {"UniformityY.png", "UniformityR.png", "UniformityG.png", "UniformityB.png"}) {
        if (!imageFolder.isEmpty())
            copyReplacing(QDir(imageFolder).filePath(QLatin1String(map)),
                          QDir(location.companionFolder()).filePath(QLatin1String(map)));
    }
    // The text refers to the copies, relative to the report. An empty name
    // would match between every character, so only real names are replaced.
    if (!imagePath.isEmpty())
        html.replace(imagePath, location.pictureLink(QStringLiteral(".png")));
    if (!imageFolder.isEmpty())
        html.replace(imageFolder, QLatin1String(".\\") + location.base + QLatin1String("_files\\"));
    return QStringLiteral("<center><H1>Color Uniformity Results</H1></center>") + html;
}

} // namespace

KestroReportExporter::KestroReportExporter(KestroReportHost *host,
                                           kestro::ChartReportSource *charts, QObject *parent)
    : QObject(parent)
    , m_host(host)
    , m_charts(charts)
    , m_saveDialog(&kestro::chooseSaveFile)
{
    m_message = [this](QMessageBox::Icon icon, const QString &title, const QString &text) {
        kestro::showMessage(m_host->dialogParent(), icon, title, text);
    };
}

KestroReportExporter::~KestroReportExporter() = default;

KestroReportExporter::Target KestroReportExporter::target() const
{
    const QString name = m_host->currentTestName();
    auto is = [&name](const char *test) {
        return name.compare(QLatin1String(test), Qt::CaseInsensitive) == 0;
    };
    if (is("MTF"))
        return Target::Mtf;
    if (is("Color Uniformity") || is("Uniformity"))
        return Target::Uniformity;
    if (is("Noise"))
        return Target::Noise;
    if (is("Color Difference") || is("ColorDifference"))
        return Target::ColorDifference;
    if (is("Macbeth Chart Image Tests"))
        return Target::Combined;
    return Target::None;
}

void KestroReportExporter::message(QMessageBox::Icon icon, const QString &title, const QString &text)
{
    if (m_message)
        m_message(icon, title, text);
}

QString KestroReportExporter::chooseFile(KestroReportHost::ReportKind kind, const QString &filter)
{
    if (m_host->batchMode())
        return m_host->reportPath(kind);
    const QString path = m_saveDialog(m_host->dialogParent(), tr("Choose a file name"), filter);
    if (!path.isEmpty())
        m_host->setReportPath(kind, path);
    return path;
}

QString KestroReportExporter::chooseCsvFile(KestroReportHost::ReportKind kind)
{
    if (m_host->batchMode()) {
        const QString report = m_host->reportPath(kind);
        return report.isEmpty() ? QString() : kestro::csvPathForReport(report);
    }
    return m_saveDialog(m_host->dialogParent(), tr("Choose a file name"), tr(kCsvFilter));
}

void KestroReportExporter::reportWriteFailure(const QString &path, const QString &error)
{
    if (m_host->batchMode()) {
        std::printf("Cannot write file %s. %s\n", QFile::encodeName(path).constData(),
                    error.toLocal8Bit().constData());
        std::fflush(stdout);
        return;
    }
    message(QMessageBox::Warning, tr("HTML"), tr("Cannot write file %1:\n%2.").arg(path, error));
}

void KestroReportExporter::saveToHTMLFile()
{
    switch (target()) {
    case Target::Combined:
        saveChartReport(true);
        break;
    case Target::ColorDifference:
        saveChartReport(false);
        break;
    case Target::Noise:
        saveNoiseReport();
        break;
    case Target::Mtf:
        saveMtfReport();
        break;
    case Target::Uniformity:
        saveUniformityReport();
        break;
    case Target::None:
        if (!m_host->batchMode())
            message(QMessageBox::Warning, tr("Warning"),
                    tr("Save to HTML report is not available in curret tab."));
        break;
    }
}

void KestroReportExporter::saveChartReport(bool withNoise)
{
    if (!m_charts) {
        std::fprintf(stderr, "Kestro: the colour difference report is not available.\n");
        return;
    }
    saveReport(KestroReportHost::ColorDifferenceReport, m_charts->colorDifferenceHtml().isEmpty(),
               tr("Color Difference table is empty. Please calculate Color Difference first."),
               [this, withNoise](const QString &path, QString *error) {
                   return m_charts->writeColorDifferenceReport(path, withNoise, error);
               });
}

void KestroReportExporter::saveNoiseReport()
{
    if (!m_charts) {
        std::fprintf(stderr, "Kestro: the noise report is not available.\n");
        return;
    }
    saveReport(KestroReportHost::NoiseReport, m_charts->noiseHtml().isEmpty(),
               tr("Noise table is empty. Please calculate noise first."),
               [this](const QString &path, QString *error) {
                   return m_charts->writeNoiseReport(path, error);
               });
}

void KestroReportExporter::saveMtfReport()
{
    KestroMtfBatch *mtf = m_host->mtfPage();
    if (!mtf) {
        std::fprintf(stderr, "Kestro: the MTF report is not available.\n");
        return;
    }
    saveReport(KestroReportHost::MtfReport, false, QString(),
               [this, mtf](const QString &path, QString *error) {
                   return kestro::writeReportFile(
                           path, [&] { return mtf->mtfReport(path, m_host->batchMode(), true); },
                           error);
               });
}

void KestroReportExporter::saveUniformityReport()
{
    KestroUniformityBatch *uni = m_host->uniformityPage();
    if (!uni) {
        std::fprintf(stderr, "Kestro: the uniformity report is not available.\n");
        return;
    }
    saveReport(KestroReportHost::UniformityReport, uni->uniformityHtml().isEmpty(),
               tr("Color Uniformity table is empty. Please calculate Color Uniformity first."),
               [uni](const QString &path, QString *error) {
                   return kestro::writeReportFile(
                           path, [&] { return uniformityReportText(*uni, path); }, error);
               });
}

void KestroReportExporter::saveReport(KestroReportHost::ReportKind kind, bool nothingMeasured,
                                      const QString &emptyText,
                                      const std::function<bool(const QString &, QString *)> &write)
{
    if (nothingMeasured) {
        // A batch run that measured nothing writes no report, so that a
        // script never finds a report without results; it says why.
        if (m_host->batchMode())
            std::fprintf(stderr, "Kestro: no report written: %s\n",
                         emptyText.toLocal8Bit().constData());
        else
            message(QMessageBox::Warning, tr("Warning"), emptyText);
        return;
    }
    const QString path = chooseFile(kind, tr(kHtmlFilter));
    if (path.isEmpty())
        return;
    const WaitCursor wait(!m_host->batchMode());
    QString error;
    if (!write(path, &error))
        reportWriteFailure(path, error);
}

void KestroReportExporter::saveToCSVFile()
{
    const Target t = target();
    QString path;
    bool written = false;
    if (t == Target::Noise || t == Target::Combined) {
        path = chooseCsvFile(KestroReportHost::NoiseReport);
        if (path.isEmpty())
            return;
        written = writeMeasurementCsv(path, t == Target::Combined, true);
    } else if (t == Target::Uniformity) {
        path = chooseCsvFile(KestroReportHost::UniformityReport);
        if (path.isEmpty())
            return;
        KestroUniformityBatch *uni = m_host->uniformityPage();
        written = uni && uni->saveUniformityCsv(path);
    } else {
        if (!m_host->batchMode())
            message(QMessageBox::Warning, tr("Warning"),
                    tr("Save to CSV report is not available in curret tab."));
        return;
    }
    if (!written && !m_host->batchMode())
        message(QMessageBox::Warning, tr("Warning"), tr("Cannot write to ") + path);
}

bool KestroReportExporter::writeMeasurementCsv(const QString &path, bool withColorDifference,
                                               bool withNoise)
{
    const kestro::MeasurementCsvData data = m_charts ? m_charts->csvData()
                                                     : kestro::MeasurementCsvData();
    const WaitCursor wait(!m_host->batchMode());
    return kestro::saveTextFile(path, kestro::measurementCsv(data, withColorDifference, withNoise));
}
