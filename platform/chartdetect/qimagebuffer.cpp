#include "platform/chartdetect/qimagebuffer.h"

#include <new>

namespace kestro::chartdetect {

std::unique_ptr<unsigned char[]> packedBgrBuffer(const QImage &picture)
{
    if (picture.isNull() || picture.format() < QImage::Format_RGB32)
        return nullptr;
    const QImage image = (picture.format() == QImage::Format_RGB32
                          || picture.format() == QImage::Format_ARGB32)
                                 ? picture
                                 : picture.convertToFormat(QImage::Format_RGB32);
    if (image.isNull())
        return nullptr;
    const size_t width = static_cast<size_t>(image.width());
    const size_t height = static_cast<size_t>(image.height());
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[width * height * 3]);
    if (!buffer)
        return nullptr;
    for (size_t y = 0; y < height; ++y) {
        const QRgb *line = reinterpret_cast<const QRgb *>(image.constScanLine(int(y)));
        unsigned char *out = buffer.get() + y * width * 3;
        for (size_t x = 0; x < width; ++x) {
            const QRgb px = line[x];
            out[3 * x] = static_cast<unsigned char>(qBlue(px));
            out[3 * x + 1] = static_cast<unsigned char>(qGreen(px));
            out[3 * x + 2] = static_cast<unsigned char>(qRed(px));
        }
    }
    return buffer;
}

} // namespace kestro::chartdetect
