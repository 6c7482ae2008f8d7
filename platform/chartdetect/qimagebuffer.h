#pragma once
// The bridge from Qt pictures to the detection library's buffer layout.

#include <QImage>

#include <memory>

namespace kestro::chartdetect {

// The picture as packed 24-bit pixels (blue, green, red), rows top to
// bottom without gaps, as FindColorCheckerROIsFromMemory takes it. Only
// formats from QImage::Format_RGB32 upwards are converted; others, a null
// picture or a failed allocation give null.
std::unique_ptr<unsigned char[]> packedBgrBuffer(const QImage &picture);

} // namespace kestro::chartdetect
