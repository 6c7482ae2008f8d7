#pragma once
// Save to HTML and Save to CSV of the tool bar. The report written depends
// on the current test name (the current tab's title, or the batch test):
//
//   "MTF"                                   sharpness report    -
//   "Color Uniformity", "Uniformity"        uniformity report   uniformity CSV
//   "Noise"                                 noise report        noise section
//   "Color Difference", "ColorDifference"   colour report       -
//   "Macbeth Chart Image Tests"             colour and noise    noise and colour sections
//
// Names are matched without regard to case, as the batch runner matches
// them. Interactively the files are chosen in the save dialogs; in batch
// mode the report paths that the runner set are used and nothing is shown.

#include "app/batchpages.h"

#include <QMessageBox>
#include <QObject>
#include <QString>
#include <functional>

namespace kestro {
class ChartReportSource;
}
class QWidget;

// What the export needs from the window; the wiring implements it over
// Kestro, tests over a stand-in.
class KestroReportHost
{
public:
    enum ReportKind { ColorDifferenceReport, NoiseReport, MtfReport, UniformityReport };

    virtual ~KestroReportHost() = default;
    virtual QString currentTestName() const = 0;
    virtual bool batchMode() const = 0;
    virtual QWidget *dialogParent() const = 0;
    virtual QString reportPath(ReportKind kind) const = 0;
    virtual void setReportPath(ReportKind kind, const QString &path) = 0;
    // The pages, once wired (null before).
    virtual KestroMtfBatch *mtfPage() const = 0;
    virtual KestroUniformityBatch *uniformityPage() const = 0;
};

class KestroReportExporter : public QObject, public KestroReportExport
{
    Q_OBJECT
public:
    // `host` must outlive the exporter; `charts` (the colour difference and
    // noise page) may be null, and then its reports are empty.
    KestroReportExporter(KestroReportHost *host, kestro::ChartReportSource *charts,
                         QObject *parent = nullptr);
    ~KestroReportExporter() override;

    void saveToHTMLFile() override;
    void saveToCSVFile() override;

    // The noise section and/or the colour difference section of the chart
    // page's measurements; false only when the file cannot be written.
    bool writeMeasurementCsv(const QString &path, bool withColorDifference, bool withNoise);

    // The save dialog and the message boxes, replaceable for tests.
    using SaveDialog
            = std::function<QString(QWidget *parent, const QString &caption, const QString &filter)>;
    using MessageFunction
            = std::function<void(QMessageBox::Icon icon, const QString &title, const QString &text)>;
    void setSaveDialog(SaveDialog dialog) { m_saveDialog = std::move(dialog); }
    void setMessageFunction(MessageFunction show) { m_message = std::move(show); }

private:
    enum class Target { None, Mtf, Uniformity, Noise, ColorDifference, Combined };
    Target target() const;
    // The file to write: the report path in batch mode, else the save dialog
    // (which then sets the report path). Empty when there is none.
    QString chooseFile(KestroReportHost::ReportKind kind, const QString &filter);
    QString chooseCsvFile(KestroReportHost::ReportKind kind);
    void reportWriteFailure(const QString &path, const QString &error);
    void message(QMessageBox::Icon icon, const QString &title, const QString &text);

    void saveChartReport(bool withNoise);
    void saveNoiseReport();
    // The steps every HTML report shares: the empty-table message (when
    // nothing was measured, interactively), the file, the writer and its
    // failure message.
    void saveReport(KestroReportHost::ReportKind kind, bool nothingMeasured,
                    const QString &emptyText,
                    const std::function<bool(const QString &, QString *)> &write);
    void saveMtfReport();
    void saveUniformityReport();

    KestroReportHost *m_host;
    kestro::ChartReportSource *m_charts;
    SaveDialog m_saveDialog;
    MessageFunction m_message;
};
