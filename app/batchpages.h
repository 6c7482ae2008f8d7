#pragma once
// What the batch runner needs from the measurement pages and the report
// export. Each page implements its interface and the window holds a
// (non-owning) pointer to it once the page is wired. Until a page is there,
// the runner prints on stderr that the measurement is not available.

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
};

// The uniformity page.
class KestroUniformityBatch
{
public:
    virtual ~KestroUniformityBatch() = default;
    // Loads the window's uniformity input, computes and builds the report
    // from the window's uniformity fields.
    virtual bool runUniformity() = 0;
};

// The report export.
class KestroReportExport
{
public:
    virtual ~KestroReportExport() = default;
    // Writes the HTML report of the current test (the window's current test
    // name) to `path`, without a file dialog.
    virtual bool saveHtmlReport(const QString &path) = 0;
};
