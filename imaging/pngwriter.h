#pragma once
// The program's PNG writer for the pictures it saves: captured frames, report
// graphs and charts. The generic image writer spends most of its time
// choosing row filters and compressing hard; this one stores unfiltered
// rows with the fastest deflate level (or none), and compresses horizontal
// stripes of a large picture on the worker pool. The file is the same
// whatever the number of threads.

#include <QByteArray>
#include <QImage>
#include <QString>

namespace kestro {

// How the rows are compressed.
enum class PngCompression {
    // Plain rows with the fastest LZ matching: drawn pictures (report graphs,
    // charts), mostly flat areas and repeats, shrink to a small part of
    // their size.
    Fast,
    // The rows stored as they are (a file of three bytes a pixel): for
    // captured frames, which must be on disk before their picture is shown.
    // The cheapest coding that shrinks a noisy frame (to about a third)
    // takes longer than all the rest of a capture.
    None,
};

// The PNG file of a picture: 8-bit gray for gray pictures, 8-bit RGB for
// everything else (alpha dropped), with the picture's resolution. Empty for
// a null picture.
QByteArray encodePng(const QImage &image, PngCompression compression = PngCompression::Fast);

// Writes encodePng() through a temporary file renamed into place, so that a
// failed write leaves no half-written file. False when the picture is null
// or the file cannot be written.
bool savePng(const QImage &image, const QString &path,
             PngCompression compression = PngCompression::Fast);

} // namespace kestro
