#include "imaging/pngwriter.h"

#include <QSaveFile>
#include <vector>
#include <zlib.h>

namespace kestro {

namespace {

void appendBigEndian(QByteArray &out, quint32 value)
{
    const char bytes[4] = {char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
    out.append(bytes, 4);
}

// Length, type, data and the CRC over type and data.
void appendChunk(QByteArray &out, const char *type, const QByteArray &data)
{
    appendBigEndian(out, static_cast<quint32>(data.size()));
    const int start = out.size();
    out.append(type, 4);
    out.append(data);
    const auto *typed = reinterpret_cast<const Bytef *>(out.constData() + start);
    appendBigEndian(out, static_cast<quint32>(crc32(0, typed, static_cast<uInt>(4 + data.size()))));
}

} // namespace

QByteArray encodePng(const QImage &source)
{
    if (source.isNull())
        return QByteArray();
    const bool gray = source.format() == QImage::Format_Grayscale8;
    const QImage image = gray ? source : source.convertToFormat(QImage::Format_RGB32);
    const int width = image.width();
    const int height = image.height();
    const int channels = gray ? 1 : 3;

    QByteArray out("\x89PNG\r\n\x1a\n", 8);
    QByteArray header;
    appendBigEndian(header, static_cast<quint32>(width));
    appendBigEndian(header, static_cast<quint32>(height));
    header.append(char(8));            // bits per sample
    header.append(char(gray ? 0 : 2)); // gray or RGB
    header.append("\0\0\0", 3);        // deflate, filter method 0, no interlace
    appendChunk(out, "IHDR", header);
    if (image.dotsPerMeterX() > 0 && image.dotsPerMeterY() > 0) {
        QByteArray physical;
        appendBigEndian(physical, static_cast<quint32>(image.dotsPerMeterX()));
        appendBigEndian(physical, static_cast<quint32>(image.dotsPerMeterY()));
        physical.append(char(1)); // per metre
        appendChunk(out, "pHYs", physical);
    }

    z_stream z{};
    if (deflateInit2(&z, 1, Z_DEFLATED, 15, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        return QByteArray();
    std::vector<unsigned char> row(1 + static_cast<std::size_t>(width) * channels);
    row[0] = 0; // filter: none
    std::vector<unsigned char> buffer(1 << 18);
    QByteArray data;
    auto pump = [&](int flush) {
        int result;
        do {
            z.next_out = buffer.data();
            z.avail_out = static_cast<uInt>(buffer.size());
            result = deflate(&z, flush);
            data.append(reinterpret_cast<const char *>(buffer.data()),
                        static_cast<int>(buffer.size() - z.avail_out));
        } while (z.avail_out == 0 || (flush == Z_FINISH && result != Z_STREAM_END));
    };
    for (int y = 0; y < height; ++y) {
        const uchar *line = image.constScanLine(y);
        if (gray) {
            std::copy(line, line + width, row.begin() + 1);
        } else {
            const auto *pixels = reinterpret_cast<const QRgb *>(line);
            unsigned char *p = row.data() + 1;
            for (int x = 0; x < width; ++x, p += 3) {
                p[0] = static_cast<unsigned char>(qRed(pixels[x]));
                p[1] = static_cast<unsigned char>(qGreen(pixels[x]));
                p[2] = static_cast<unsigned char>(qBlue(pixels[x]));
            }
        }
        z.next_in = row.data();
        z.avail_in = static_cast<uInt>(row.size());
        pump(Z_NO_FLUSH);
    }
    pump(Z_FINISH);
    deflateEnd(&z);
    appendChunk(out, "IDAT", data);
    appendChunk(out, "IEND", QByteArray());
    return out;
}

bool savePng(const QImage &image, const QString &path)
{
    if (image.isNull() || path.isEmpty())
        return false;
    const QByteArray png = encodePng(image);
    if (png.isEmpty())
        return false;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    if (file.write(png) != png.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

} // namespace kestro
