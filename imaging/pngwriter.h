#pragma once
// The program's PNG writer for the pictures it saves: captured frames, report
// graphs and charts. Report graphs are large (tens of megapixels at their
// print resolution) and mostly flat; the generic image writer spends most of
// its time choosing row filters and compressing hard. This writer stores
// unfiltered rows with the fastest deflate level, which takes a fraction of
// the time for files of about the same size.

#include <QByteArray>
#include <QImage>
#include <QString>

namespace kestro {

// The PNG file of a picture: 8-bit gray for gray pictures, 8-bit RGB for
// everything else (alpha dropped), with the picture's resolution. Empty for
// a null picture.
QByteArray encodePng(const QImage &image);

// Writes encodePng() through a temporary file renamed into place, so that a
// failed write leaves no half-written file. False when the picture is null
// or the file cannot be written.
bool savePng(const QImage &image, const QString &path);

} // namespace kestro
