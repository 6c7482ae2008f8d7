#pragma once
// The program's PNG writer for the pictures it saves: captured frames, report
// graphs and charts. The generic image writer spends most of its time
// choosing row filters and compressing hard; this one uses one fixed filter
// and the fastest deflate settings for what the picture shows, and
// compresses horizontal stripes of a large picture on the worker pool. The
// file is the same whatever the number of threads.

#include <QByteArray>
#include <QImage>
#include <QString>

namespace kestro {

// What a picture shows, which decides how its rows are compressed.
enum class PngContent {
    // Drawn pictures (report graphs, charts): mostly flat areas and repeated
    // rows. Plain rows with the fastest LZ matching compress them well.
    Drawing,
    // Photographs (captured frames): noise in every pixel leaves LZ matching
    // little to find. Each row is stored as differences from the pixel to
    // its left, which are mostly small, and coded with Huffman codes only:
    // less time than LZ matching, and a smaller file.
    Photograph,
};

// The PNG file of a picture: 8-bit gray for gray pictures, 8-bit RGB for
// everything else (alpha dropped), with the picture's resolution. Empty for
// a null picture.
QByteArray encodePng(const QImage &image, PngContent content = PngContent::Drawing);

// Writes encodePng() through a temporary file renamed into place, so that a
// failed write leaves no half-written file. False when the picture is null
// or the file cannot be written.
bool savePng(const QImage &image, const QString &path, PngContent content = PngContent::Drawing);

} // namespace kestro
