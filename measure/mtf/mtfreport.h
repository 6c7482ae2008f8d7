#pragma once
// Text of the MTF report: the gamma, then for every region its place, its
// MTF 10/50 figures per colour channel and its MTF table, or its last error.
// The pictures it refers to (the regions on the chart, each region's crop
// and graph) are written by the caller through MtfReportPictures.

#include <QString>
#include <QVector>
#include <functional>

class regionBasedMTF;

namespace kestro::mtf {

// Writes the report's pictures. Each call gets the full path of the file to
// write; it returns false when there is nothing to write (for example a
// region that lies wholly off the picture), and the report then leaves the
// picture out.
class MtfReportPictures
{
public:
    virtual ~MtfReportPictures() = default;
    virtual bool writeRegionsPicture(const QString &path) = 0;
    virtual bool writeRegionCrop(const regionBasedMTF &region, const QString &path) = 0;
    virtual bool writeRegionGraph(const regionBasedMTF &region, const QString &path) = 0;
};

struct MtfReportInput
{
    double gamma = 1.0;
    // The regions in list order; every one carries its calculation.
    QVector<const regionBasedMTF *> regions;
    // The report file: its folder and base name place the pictures in
    // "<base>_files" beside it. Pictures are written only with `pictures`.
    QString outputPath;
    MtfReportPictures *pictures = nullptr;
    // When set (a position in `regions`), only that region gets its full MTF
    // table; the others keep their figures. Keeps a report of hundreds of
    // regions readable on screen.
    int tableOnlyFor = -1;
    // Called with the 1-based number of each region as it is written.
    std::function<void(int)> progress;
};

// Slope cell: the absolute edge angle, red when outside 3..7 degrees, where
// the slanted-edge estimate is least reliable.
QString slopeCell(double slopeDegrees);

// The whole report. With pictures, the companion folder is created first.
QString buildMtfReport(const MtfReportInput &input);

} // namespace kestro::mtf
