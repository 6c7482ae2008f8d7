#pragma once
// Decoded image files, kept in a small cache keyed by path, modification time
// and size, so that many regions of one file decode it once. Thread-safe.

#include <QImage>
#include <QString>

namespace kestro::colorcal {

// The decoded image (Format_Grayscale8 for gray files, else 32-bit RGB), or a
// null image when the file cannot be read; `error` then says why.
QImage loadImageCached(const QString &path, QString *error = nullptr);

// Takes a picture that was just written to `path` as a PNG file (the
// program's PNG writer: 8-bit gray for gray pictures, else 8-bit RGB) as
// the decoded picture of that file as it is now, so that loadImageCached does
// not read the file back while it stays unchanged. Returns the picture in
// the form loadImageCached gives (gray stays gray, everything else 32-bit
// RGB with the alpha dropped); null, with nothing cached, when the picture is
// null or there is no file at the path.
QImage cacheWrittenPicture(const QString &path, const QImage &picture);

// Drops every cached image.
void clearImageCache();

// Number of images held (at most four, and at most 512 MB of pixels
// besides the most recent one).
int imageCacheSize();

} // namespace kestro::colorcal
