#include "imaging/pngwriter.h"

#include "imaging/parallel.h"

#include <QSaveFile>
#include <algorithm>
#include <cstring>
#include <vector>
#include <zlib.h>

namespace kestro {

namespace {

// Rows are compressed in stripes of about this many bytes each: enough for
// the compressor to find its runs and matches, small enough that two threads
// share a 12-megapixel frame evenly.
constexpr qint64 kStripeBytes = qint64(1) << 20;

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

// One stripe of rows as a piece of a deflate stream: it ends on a byte
// boundary (a sync flush) so that the pieces can be joined, the last one
// with the stream's final block.
struct Stripe
{
    QByteArray deflated;
    uLong adler = 1; // of the stripe's scanlines
    uLong crc = 0;   // of `deflated`
    bool ok = false;
};

// Fills `row` with scanline y of a gray, 24-bit or unpremultiplied 32-bit
// picture: the filter byte (none), then the samples.
void fillScanline(const QImage &image, int y, unsigned char *row)
{
    const int width = image.width();
    const uchar *line = image.constScanLine(y);
    row[0] = 0;
    unsigned char *out = row + 1;
    switch (image.format()) {
    case QImage::Format_Grayscale8:
        std::memcpy(out, line, std::size_t(width));
        break;
    case QImage::Format_RGB888:
        std::memcpy(out, line, std::size_t(width) * 3);
        break;
    default: { // 32-bit pixels, 0xAARRGGBB
        const auto *pixels = reinterpret_cast<const QRgb *>(line);
        for (int x = 0; x < width; ++x, out += 3) {
            out[0] = static_cast<unsigned char>(qRed(pixels[x]));
            out[1] = static_cast<unsigned char>(qGreen(pixels[x]));
            out[2] = static_cast<unsigned char>(qBlue(pixels[x]));
        }
        break;
    }
    }
}

Stripe deflateStripe(const QImage &image, qint64 length, int firstRow, int endRow, bool last,
                     PngCompression compression)
{
    Stripe stripe;
    z_stream z{};
    // A raw stream: the zlib header and checksum are written once for all
    // stripes.
    const int level = compression == PngCompression::None ? 0 : 1;
    if (deflateInit2(&z, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        return stripe;
    std::vector<unsigned char> row(static_cast<std::size_t>(length));
    const uLong bound = deflateBound(&z, static_cast<uLong>(length * (endRow - firstRow))) + 16;
    stripe.deflated.resize(static_cast<int>(bound));
    z.next_out = reinterpret_cast<Bytef *>(stripe.deflated.data());
    z.avail_out = static_cast<uInt>(bound);
    bool ok = true;
    for (int y = firstRow; y < endRow && ok; ++y) {
        fillScanline(image, y, row.data());
        stripe.adler = adler32(stripe.adler, row.data(), static_cast<uInt>(length));
        z.next_in = row.data();
        z.avail_in = static_cast<uInt>(length);
        const int flush = y + 1 < endRow ? Z_NO_FLUSH : (last ? Z_FINISH : Z_SYNC_FLUSH);
        const int result = deflate(&z, flush);
        ok = z.avail_in == 0 && (result == Z_OK || result == Z_STREAM_END || result == Z_BUF_ERROR)
             && (flush != Z_FINISH || result == Z_STREAM_END);
    }
    stripe.deflated.resize(static_cast<int>(bound - z.avail_out));
    deflateEnd(&z);
    stripe.crc = crc32(0, reinterpret_cast<const Bytef *>(stripe.deflated.constData()),
                       static_cast<uInt>(stripe.deflated.size()));
    stripe.ok = ok;
    return stripe;
}

} // namespace

QByteArray encodePng(const QImage &source, PngCompression compression)
{
    if (source.isNull())
        return QByteArray();
    // The row reader takes gray, 24-bit and unpremultiplied 32-bit pixels as
    // they are; everything else is converted once.
    QImage image = source;
    switch (source.format()) {
    case QImage::Format_Grayscale8:
    case QImage::Format_RGB888:
    case QImage::Format_RGB32:
    case QImage::Format_ARGB32:
        break;
    default:
        image = source.convertToFormat(QImage::Format_RGB32);
        break;
    }
    if (image.isNull())
        return QByteArray();
    const int channels = image.format() == QImage::Format_Grayscale8 ? 1 : 3;
    const qint64 rowBytes = 1 + qint64(image.width()) * channels;
    const int width = image.width();
    const int height = image.height();

    QByteArray out("\x89PNG\r\n\x1a\n", 8);
    QByteArray header;
    appendBigEndian(header, static_cast<quint32>(width));
    appendBigEndian(header, static_cast<quint32>(height));
    header.append(char(8));                     // bits per sample
    header.append(char(channels == 1 ? 0 : 2)); // gray or RGB
    header.append("\0\0\0", 3);                 // deflate, filter method 0, no interlace
    appendChunk(out, "IHDR", header);
    if (image.dotsPerMeterX() > 0 && image.dotsPerMeterY() > 0) {
        QByteArray physical;
        appendBigEndian(physical, static_cast<quint32>(image.dotsPerMeterX()));
        appendBigEndian(physical, static_cast<quint32>(image.dotsPerMeterY()));
        physical.append(char(1)); // per metre
        appendChunk(out, "pHYs", physical);
    }

    // The stripes depend on the picture alone, so the file does too.
    const int rowsPerStripe = static_cast<int>(
            std::clamp<qint64>(kStripeBytes / rowBytes, 1, height));
    const int stripeCount = (height + rowsPerStripe - 1) / rowsPerStripe;
    std::vector<Stripe> stripes(static_cast<std::size_t>(stripeCount));
    parallelFor(stripeCount, [&](int s) {
        const int first = s * rowsPerStripe;
        const int end = std::min(height, first + rowsPerStripe);
        stripes[std::size_t(s)] = deflateStripe(image, rowBytes, first, end, s + 1 == stripeCount,
                                                compression);
    });

    // One IDAT chunk: the zlib header (deflate, 32K window, fastest level),
    // the stripes in order and the checksum of every filtered row.
    const char zlibHeader[2] = {0x78, 0x01};
    qint64 dataSize = 2 + 4;
    for (const Stripe &stripe : stripes) {
        if (!stripe.ok)
            return QByteArray();
        dataSize += stripe.deflated.size();
    }
    if (dataSize > 0x7fffffff - out.size() - 64)
        return QByteArray(); // beyond one chunk and one byte array
    out.reserve(static_cast<int>(out.size() + dataSize + 12 + 12));
    appendBigEndian(out, static_cast<quint32>(dataSize));
    out.append("IDAT", 4);
    out.append(zlibHeader, 2);
    uLong crc = crc32(0, reinterpret_cast<const Bytef *>("IDAT"), 4);
    crc = crc32(crc, reinterpret_cast<const Bytef *>(zlibHeader), 2);
    uLong adler = 1;
    for (std::size_t s = 0; s < stripes.size(); ++s) {
        const Stripe &stripe = stripes[s];
        out.append(stripe.deflated);
        crc = crc32_combine(crc, stripe.crc, stripe.deflated.size());
        const int rows = std::min(height - int(s) * rowsPerStripe, rowsPerStripe);
        adler = adler32_combine(adler, stripe.adler, static_cast<z_off_t>(rowBytes * rows));
    }
    QByteArray trailer;
    appendBigEndian(trailer, static_cast<quint32>(adler));
    out.append(trailer);
    crc = crc32(crc, reinterpret_cast<const Bytef *>(trailer.constData()), 4);
    appendBigEndian(out, static_cast<quint32>(crc));
    appendChunk(out, "IEND", QByteArray());
    return out;
}

bool savePng(const QImage &image, const QString &path, PngCompression compression)
{
    if (image.isNull() || path.isEmpty())
        return false;
    const QByteArray png = encodePng(image, compression);
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
