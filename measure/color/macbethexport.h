#pragma once
// Headless parts of the chart reports' export: the naming of an HTML
// report's companion picture folder and the links to it, the joining of HTML
// fragments into one document, the CSV file of the noise and colour
// difference measurements, and writing a text file so that a failed write
// never leaves half a file over a good one.

#include "measure/noise/noiseengine.h"

#include <QString>
#include <QStringList>
#include <QVector>
#include <functional>

class QStdMacbethChartColorDifference;

namespace kestro {

// An HTML report file and its companion folder "<base>_files" beside it,
// where base is the file name up to its first dot (a.b.html gives a).
// Paths on disk use native separators; links inside the report are relative
// and written with backslashes, which browsers resolve as separators.
struct ReportLocation
{
    QString reportPath; // native separators
    QString base;
    QString folder; // absolute folder of the report, native separators

    QString companionFolder() const;                  // folder/base_files
    QString picturePath(const QString &suffix) const; // companion folder/base + suffix
    QString pictureLink(const QString &suffix) const; // .\base_files\base + suffix
    bool makeCompanionFolder() const;                 // true when it exists afterwards
};
ReportLocation reportLocation(const QString &reportPath);

// Joins HTML documents into one: the document head with `title`, then the
// inside of each fragment's body element in order; a fragment without a body
// element adds nothing. The body and html elements are left open.
QString mergeHtmlStreams(const QStringList &fragments, const QString &title);

// The HTML of two chart pictures of a report, each centred with its caption:
// the pictures base + firstSuffix and base + secondSuffix of the companion
// folder.
QString chartPicturesHtml(const ReportLocation &location, const QString &firstSuffix,
                          const QString &firstCaption, const QString &secondSuffix,
                          const QString &secondCaption);

// The fragment of the picture of the chart with its regions drawn.
QString regionsPictureFragment(const ReportLocation &location, const QString &suffix);

// What the measurement CSV is made of.
struct MeasurementCsvData
{
    QStringList frameFiles;                           // the chart frame set, in order
    const QVector<NoisePatchResult> *noise = nullptr; // per patch, in patch order
    const QStdMacbethChartColorDifference *colorDifference = nullptr;
    QString imageFileName; // the picture the colour difference was measured on
};

// The CSV text: the noise section (frame list and one line per patch and
// channel) when withNoise, then the colour difference section (summary,
// per-patch table, white balance) when withColorDifference.
QString measurementCsv(const MeasurementCsvData &data, bool withColorDifference, bool withNoise);

// The reports of the chart page as the export sees them: its report texts,
// the writers of the two HTML reports with their pictures and the data of
// the CSV file.
class ChartReportSource
{
public:
    virtual ~ChartReportSource() = default;
    virtual QString colorDifferenceHtml() const = 0;
    virtual QString noiseHtml() const = 0;
    // Write the report at `path` with its companion folder of pictures. The
    // file is opened before anything else is made, so a path that cannot be
    // written leaves no folder behind. False with the reason in `error`.
    virtual bool writeColorDifferenceReport(const QString &path, bool withNoise, QString *error) = 0;
    virtual bool writeNoiseReport(const QString &path, QString *error) = 0;
    virtual MeasurementCsvData csvData() const = 0;
};

// Writes `text` as UTF-8 through a temporary file renamed into place. On
// failure `error` gets the system's reason and an existing file is untouched.
bool saveTextFile(const QString &path, const QString &text, QString *error = nullptr);

// The same for a report: the file is opened first, so that a path that
// cannot be written fails before `makeText` runs (which may write the
// report's pictures), then the text is written in place.
bool writeReportFile(const QString &path, const std::function<QString()> &makeText,
                     QString *error = nullptr);

// The CSV file beside a batch HTML report: a trailing ".html" (any case)
// becomes ".csv"; any other name gets ".csv" appended.
QString csvPathForReport(const QString &reportPath);

} // namespace kestro
