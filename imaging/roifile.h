#pragma once
// ROI files: a set of region rectangles kept as one settings array "patches"
// in INI form, with the keys left, top, width and height per entry.
//
//     [patches]
//     1\height=40
//     1\left=120
//     1\top=88
//     1\width=40
//     size=1
//
// These functions are headless so that the views, the engines and
// kestro-measure share one reader and one writer.

#include <QRectF>
#include <QString>
#include <QVector>

namespace kestro {

// Largest entry count a file may announce. Real files hold a few dozen
// regions; a bigger "size" is taken as a damaged file rather than a request
// for millions of regions.
constexpr int kMaxRoiEntries = 100000;
// Largest coordinate or size accepted from a file, in pixels (either sign):
// far beyond any sensor, and small enough that every computation on a
// region stays exact and inside 32-bit integers after rounding.
constexpr double kMaxRoiCoordinate = 1.0e9;
// Largest ROI file read (a file of kMaxRoiEntries regions takes a few MB).
constexpr qint64 kMaxRoiFileBytes = 32 * 1024 * 1024;

struct RoiReadResult
{
    // True when the file announced at least one entry and all were read.
    bool ok = false;
    // The rectangles as read (left, top, width, height), in array order.
    QVector<QRectF> rects;
    // Why nothing was read; empty when the file simply holds no regions.
    QString error;
};

// Reads the "patches" array of an ROI file. Each value is taken as a real
// number; a missing value, one that does not convert or one that is not
// finite gives 0. Empty and off-image rectangles are returned unchanged: the
// measurement that uses a region refuses it with its own text.
// A file that is not a regular file, cannot be opened, is larger than
// kMaxRoiFileBytes, announces a "size" below 1 or above kMaxRoiEntries, or
// holds a value beyond kMaxRoiCoordinate gives ok = false and no rectangles
// (with the reason in `error`, except for an empty array).
RoiReadResult readRoiFile(const QString &path);

// Writes the rectangles, rounded outwards to whole pixels, as the "patches"
// array of an ROI file (index i under key i + 1, "size" = count). Other
// groups and entries of an existing file beyond the new count are kept.
// Returns false, and leaves the file as it was, when the file cannot be
// written; `error` (optional) then tells why.
bool writeRoiFile(const QString &path, const QVector<QRectF> &rects, QString *error = nullptr);

// Outward rounding as the writer stores it; values beyond the 32-bit range
// are clamped and non-finite ones read as 0.
QRect roiStoredRect(const QRectF &rect);

} // namespace kestro
