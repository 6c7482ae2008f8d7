#pragma once
// What the main window, the batch runner and the report export need from the
// measurement pages. Each page implements its interface and the window holds
// a (non-owning) pointer to it once the page is wired. Until a page is
// there, the runner prints on stderr that the measurement is not available.

#include <QImage>
#include <QString>

class Kestro;

// The MTF page.
class KestroMtfBatch
{
public:
    virtual ~KestroMtfBatch() = default;
    // The loaded picture becomes the page's new slanted-edge image.
    virtual void newSlantedEdgeImage(QImage &image) = 0;
    // Runs the calculation over the page's regions (adding one region from
    // the window's inline region when it is set); true when a result exists.
    // In command-line mode the gamma comes from the window's batch fields.
    virtual bool calcMTF(bool interactive) = 0;
    // The MTF report text for a report written at `outputPath`; with
    // `saveImages` its pictures are written into the companion folder
    // beside it. `commandLine` selects the batch picture sizes.
    virtual QString mtfReport(const QString &outputPath, bool commandLine, bool saveImages) = 0;
};

// The uniformity page.
class KestroUniformityBatch
{
public:
    virtual ~KestroUniformityBatch() = default;
    // Loads the window's uniformity input, computes and builds the report
    // from the window's uniformity fields.
    virtual bool runUniformity() = 0;
    // The last report text (empty before a calculation), the picture file
    // it refers to and the folder of its chart pictures, which the export
    // copies into the report's companion folder and replaces in the text.
    virtual QString uniformityHtml() const = 0;
    virtual QString uniformityImagePath() const = 0;
    virtual QString uniformityImageFolder() const = 0;
    // Writes the uniformity CSV; false when the file cannot be written.
    virtual bool saveUniformityCsv(const QString &path) = 0;
};

// The report export (Save to HTML / Save to CSV of the tool bar).
class KestroReportExport
{
public:
    virtual ~KestroReportExport() = default;
    // Saves the report of the current test (the window's current test
    // name): through the save dialogs in the window, on the report paths
    // that the runner set in command-line mode.
    virtual void saveToHTMLFile() = 0;
    virtual void saveToCSVFile() = 0;
};
