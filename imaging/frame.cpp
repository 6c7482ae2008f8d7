#include "imaging/frame.h"

#include "imaging/imageload.h"
#include "imaging/srgb.h"

#include <QFileInfo>
#include <cmath>
#include <cstring>
#include <new>

namespace {

// The block of a frame that holds nothing: shared by every new frame.
std::shared_ptr<const CFrameData> emptyBlock()
{
    static const std::shared_ptr<const CFrameData> empty = std::make_shared<CFrameData>();
    return empty;
}

FrameError fromImageError(kestro::ImageLoadError error)
{
    switch (error) {
    case kestro::ImageLoadError::None:
        return FrameError::None;
    case kestro::ImageLoadError::Missing:
        return FrameError::Missing;
    case kestro::ImageLoadError::NotRegularFile:
        return FrameError::NotRegularFile;
    case kestro::ImageLoadError::Unreadable:
        return FrameError::Unreadable;
    case kestro::ImageLoadError::TooLarge:
        return FrameError::TooLarge;
    case kestro::ImageLoadError::Undecodable:
        return FrameError::Undecodable;
    }
    return FrameError::Undecodable;
}

// An 8-bit indexed picture with the gray ramp as its colour table.
QImage indexedGray(int width, int height)
{
    QImage gray(width, height, QImage::Format_Indexed8);
    if (gray.isNull())
        return gray;
    QVector<QRgb> table(256);
    for (int v = 0; v < 256; ++v)
        table[v] = qRgb(v, v, v);
    gray.setColorTable(table);
    return gray;
}

// Gray pictures as 8-bit indexed gray; 16-bit samples rounded to the nearest
// 8-bit value (v / 257, half up).
QImage grayToIndexed(const QImage &image)
{
    QImage gray = indexedGray(image.width(), image.height());
    if (gray.isNull())
        return gray;
    const bool wide = image.format() == QImage::Format_Grayscale16;
    for (int y = 0; y < image.height(); ++y) {
        uchar *out = gray.scanLine(y);
        if (wide) {
            const auto *in = reinterpret_cast<const quint16 *>(image.constScanLine(y));
            for (int x = 0; x < image.width(); ++x)
                out[x] = static_cast<uchar>((2u * in[x] + 257u) / 514u);
        } else {
            std::memcpy(out, image.constScanLine(y), static_cast<size_t>(image.width()));
        }
    }
    return gray;
}

} // namespace

QString frameErrorText(FrameError error, const QString &path, const QString &detail)
{
    if (error == FrameError::None)
        return QString();
    // The detail, when the failing step gave one, is the more precise reason.
    QString reason = detail;
    if (reason.isEmpty()) {
        switch (error) {
        case FrameError::None:
            break;
        case FrameError::Missing:
            reason = QStringLiteral("no such file");
            break;
        case FrameError::NotRegularFile:
            reason = QStringLiteral("not a regular file");
            break;
        case FrameError::Unreadable:
            reason = QStringLiteral("permission denied");
            break;
        case FrameError::TooLarge:
            reason = QStringLiteral("the picture is too large");
            break;
        case FrameError::Undecodable:
            reason = QStringLiteral("unknown format");
            break;
        case FrameError::UnsupportedFormat:
            reason = QStringLiteral("the pixel format is not supported");
            break;
        case FrameError::RawNoDescription:
            reason = QStringLiteral("no sidecar file and no sensor data file describes a raw "
                                    "frame of this size");
            break;
        case FrameError::RawBadDescription:
            reason = QStringLiteral("invalid frame description");
            break;
        case FrameError::RawSizeMismatch:
            reason = QStringLiteral("the file size does not match the frame description");
            break;
        case FrameError::RawReadFailed:
            reason = QStringLiteral("read error, or the file changed while it was read");
            break;
        case FrameError::OutOfMemory:
            reason = QStringLiteral("not enough memory");
            break;
        }
    }
    // Concatenated: the path may contain "%1".
    return QStringLiteral("cannot load ") + path
           + QStringLiteral(" as an image or raw sensor file: ") + reason;
}

const std::uint8_t *CFrameData::data() const
{
    if (raw)
        return raw.get();
    if (image.isNull())
        return nullptr;
    return image.constBits();
}

const std::uint8_t *CFrameData::linearData() const
{
    if (kind != CFrame::KindRgb)
        return nullptr;
    std::call_once(m_linearOnce, [this] {
        const std::uint8_t *src = data();
        if (!src || dataSize < 1)
            return;
        // 256-entry table: every byte value decodes to the same stored byte.
        std::uint8_t table[256];
        for (int v = 0; v < 256; ++v)
            table[v] = static_cast<std::uint8_t>(std::floor(
                    kestro::srgbByteToLinear(static_cast<std::uint8_t>(v)) * 255.0 + 0.5));
        std::unique_ptr<std::uint8_t[]> buffer(new (std::nothrow) std::uint8_t[dataSize]());
        if (!buffer)
            return;
        for (int y = 0; y < height; ++y) {
            const std::size_t rowOffset = static_cast<std::size_t>(y) * bytesPerLine;
            for (int x = 0; x < width; ++x) {
                const std::size_t offset = rowOffset + 4u * static_cast<std::size_t>(x);
                if (offset + 3 > static_cast<std::size_t>(dataSize))
                    break;
                for (int k = 0; k < 3; ++k)
                    buffer[offset + k] = table[src[offset + k]];
            }
        }
        m_linear = std::move(buffer);
    });
    return m_linear.get();
}

int CFrameData::linearSize() const
{
    return linearData() ? dataSize : 0;
}

int CFrameData::linearStride() const
{
    return linearData() ? bytesPerLine : 0;
}

namespace kestro {

FrameError frameFromImage(QImage image, CFrameData *block)
{
    if (image.isNull() || image.format() == QImage::Format_Invalid)
        return FrameError::Undecodable;
    const QImage::Format format = image.format();
    switch (format) {
    case QImage::Format_Indexed8:
        block->kind = CFrame::KindSingleSample;
        break;
    case QImage::Format_Grayscale8:
    case QImage::Format_Grayscale16:
        image = grayToIndexed(image);
        block->kind = CFrame::KindSingleSample;
        break;
    case QImage::Format_ARGB32:
        block->kind = CFrame::KindRgb;
        break;
    case QImage::Format_Mono:
    case QImage::Format_MonoLSB:
        block->errorDetail = QStringLiteral("1-bit pictures are not supported");
        return FrameError::UnsupportedFormat;
    case QImage::Format_Alpha8:
        block->errorDetail = QStringLiteral("alpha-only pictures are not supported");
        return FrameError::UnsupportedFormat;
    default:
        // Every colour format, 16 bits per channel included.
        image = image.convertToFormat(QImage::Format_ARGB32);
        block->kind = CFrame::KindRgb;
        break;
    }
    if (image.isNull())
        return FrameError::OutOfMemory;
    block->bayerOrder = 0;
    block->blackLevel = 0.0;
    block->imageType = -1;
    block->width = image.width();
    block->height = image.height();
    block->bytesPerLine = image.bytesPerLine();
    block->bitsPerPixel = image.depth();
    block->dataSize = static_cast<int>(image.sizeInBytes());
    block->image = image;
    return FrameError::None;
}

} // namespace kestro

CFrame::CFrame(QObject *parent)
    : QObject(parent)
    , m_data(emptyBlock())
{ }

CFrame::CFrame(const CFrame &other)
    : QObject(nullptr)
    , m_data(other.pixels())
{ }

CFrame::~CFrame() = default;

std::shared_ptr<const CFrameData> CFrame::pixels() const
{
    std::shared_lock<std::shared_mutex> locker(m_lock);
    return m_data;
}

void CFrame::publish(std::shared_ptr<const CFrameData> block)
{
    std::shared_ptr<const CFrameData> previous;
    {
        std::unique_lock<std::shared_mutex> locker(m_lock);
        previous = std::move(m_data);
        m_data = std::move(block);
    }
    // The previous block is released here, outside the lock (it may be the
    // last reference to a large buffer).
}

bool CFrame::load(const QString &path)
{
    // The new block is built without any lock held: readers keep the
    // previous frame until the finished one is swapped in.
    auto block = std::make_shared<CFrameData>();
    FrameError error = FrameError::None;
    if (QFileInfo(path).suffix() == QLatin1String("raw")) {
        error = kestro::readRawFrame(path, block.get());
    } else {
        const kestro::ImageLoadResult read = kestro::readImageFile(path);
        error = fromImageError(read.error);
        if (read.ok())
            error = kestro::frameFromImage(read.image, block.get());
        else
            block->errorDetail = kestro::imageLoadReason(read);
    }
    if (error != FrameError::None) {
        auto failed = std::make_shared<CFrameData>();
        failed->error = error;
        failed->errorDetail = block->errorDetail;
        failed->fileName = path;
        publish(std::move(failed));
        return false;
    }
    block->tag = 0; // frames read from files carry no tag
    block->fileName = path;
    block->valid = true;
    publish(std::move(block));
    return true;
}

bool CFrame::setFromImage(const QImage &image, int tag, const QString &fileName)
{
    auto block = std::make_shared<CFrameData>();
    const FrameError error = kestro::frameFromImage(image, block.get());
    if (error != FrameError::None) {
        auto failed = std::make_shared<CFrameData>();
        failed->error = error;
        failed->errorDetail = block->errorDetail;
        publish(std::move(failed));
        return false;
    }
    block->tag = tag;
    block->fileName = fileName;
    block->valid = true;
    publish(std::move(block));
    return true;
}

FrameError CFrame::error() const
{
    return pixels()->error;
}

QString CFrame::errorText() const
{
    const auto block = pixels();
    return frameErrorText(block->error, block->fileName, block->errorDetail);
}

bool CFrame::isValid() const
{
    return pixels()->valid;
}

std::uint32_t CFrame::kind() const
{
    return pixels()->kind;
}

int CFrame::width() const
{
    return pixels()->width;
}

int CFrame::height() const
{
    return pixels()->height;
}

int CFrame::bytesPerLine() const
{
    return pixels()->bytesPerLine;
}

int CFrame::bitsPerPixel() const
{
    return pixels()->bitsPerPixel;
}

int bytesPerPixelForBits(int bits)
{
    if (bits <= 8)
        return 1;
    if (bits <= 16)
        return 2;
    if (bits <= 24)
        return 3;
    if (bits <= 32)
        return 4;
    return 1;
}

int CFrame::bytesPerPixel() const
{
    return bytesPerPixelForBits(bitsPerPixel());
}

int CFrame::bayerOrder() const
{
    return pixels()->bayerOrder;
}

double CFrame::blackLevel() const
{
    return pixels()->blackLevel;
}

int CFrame::imageType() const
{
    return pixels()->imageType;
}

int CFrame::tag() const
{
    return pixels()->tag;
}

int CFrame::dataSize() const
{
    return pixels()->dataSize;
}

QString CFrame::fileName() const
{
    const auto block = pixels();
    return block->valid ? block->fileName : QString();
}

QString CFrame::description() const
{
    return pixels()->description;
}

QImage CFrame::image() const
{
    return pixels()->image;
}

const std::uint8_t *CFrame::data() const
{
    return pixels()->data();
}

const std::uint8_t *CFrame::linearData() const
{
    return pixels()->linearData();
}

int CFrame::linearSize() const
{
    return pixels()->linearSize();
}

int CFrame::linearStride() const
{
    return pixels()->linearStride();
}

bool CFrame::isCompatible(const CFrame &other) const
{
    // Each frame's block is taken once: the comparison sees one consistent
    // state of each, and no two locks are ever held together.
    const auto mine = pixels();
    if (&other == this)
        return mine->valid;
    const auto theirs = other.pixels();
    if (!mine->valid || !theirs->valid)
        return false;
    return mine->kind == theirs->kind && mine->dataSize == theirs->dataSize
           && mine->width == theirs->width && mine->height == theirs->height
           && mine->bytesPerLine == theirs->bytesPerLine
           && mine->bitsPerPixel == theirs->bitsPerPixel && mine->bayerOrder == theirs->bayerOrder
           && mine->tag == theirs->tag;
}

QString channelName(int imageType, int index)
{
    static const char *const none = "---";
    switch (imageType) {
    case 0:
    case 4:
        return QStringLiteral("Mono");
    case 1:
    case 5:
    case 7:
    case 8:
    case 10: {
        static const char *const names[] = {"BayerR", "BayerGr", "BayerGb", "BayerB", "P1", "P2"};
        return QLatin1String(index >= 0 && index < 6 ? names[index] : none);
    }
    case 2:
    case 6: {
        static const char *const names[] = {"Y", "Cb", "Cr"};
        return QLatin1String(index >= 0 && index < 3 ? names[index] : none);
    }
    case 3: {
        static const char *const names[] = {"Red", "Green", "Blue"};
        return QLatin1String(index >= 0 && index < 3 ? names[index] : none);
    }
    case 9: {
        static const char *const names[] = {"R", "Gc", "Gi", "B", "IR"};
        return QLatin1String(index >= 0 && index < 5 ? names[index] : none);
    }
    default:
        return QLatin1String(none);
    }
}
