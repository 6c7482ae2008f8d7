#pragma once
// Decoded image files, kept in a small cache keyed by path, modification time
// and size, so that many regions of one file decode it once. Thread-safe.

#include <QImage>
#include <QString>

namespace kestro::colorcal {

// The decoded image (Format_Grayscale8 for gray files, else 32-bit RGB), or a
// null image when the file cannot be read; `error` then says why.
QImage loadImageCached(const QString &path, QString *error = nullptr);

// Drops every cached image.
void clearImageCache();

// Number of images held (at most four, and at most 512 MB of pixels
// besides the most recent one).
int imageCacheSize();

} // namespace kestro::colorcal
