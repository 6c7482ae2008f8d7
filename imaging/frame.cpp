#include "imaging/frame.h"

#include "imaging/srgb.h"

#include <QFileInfo>
#include <QReadLocker>
#include <QWriteLocker>
#include <cmath>
#include <cstring>
#include <new>

CFrame::CFrame(QObject *parent)
    : QObject(parent)
{ }

CFrame::CFrame(const CFrame &other)
    : QObject(nullptr)
{
    QReadLocker locker(&other.m_lock);
    if (other.m_rawData && other.m_dataSize >= 1) {
        m_rawData = new (std::nothrow) std::uint8_t[other.m_dataSize];
        if (!m_rawData)
            return;
        std::memcpy(m_rawData, other.m_rawData, other.m_dataSize);
    }
    if (other.m_linearData && other.m_linearSize >= 1) {
        m_linearData = new (std::nothrow) std::uint8_t[other.m_linearSize];
        if (!m_linearData)
            return;
        std::memcpy(m_linearData, other.m_linearData, other.m_linearSize);
        m_linearSize = other.m_linearSize;
        m_linearStride = other.m_linearStride;
    }
    m_image = other.m_image;
    m_kind = other.m_kind;
    m_dataSize = other.m_dataSize;
    m_width = other.m_width;
    m_height = other.m_height;
    m_bytesPerLine = other.m_bytesPerLine;
    m_bitsPerPixel = other.m_bitsPerPixel;
    m_tag = other.m_tag;
    m_valid = other.m_valid;
    m_loaded = other.m_loaded;
    m_bayerOrder = other.m_bayerOrder;
    m_blackLevel = other.m_blackLevel;
    m_imageType = other.m_imageType;
    m_fileName = other.m_fileName;
    m_description = other.m_description;
}

CFrame::~CFrame()
{
    freeBuffersLocked();
}

void CFrame::freeBuffersLocked()
{
    delete[] m_rawData;
    m_rawData = nullptr;
    delete[] m_linearData;
    m_linearData = nullptr;
    m_linearSize = 0;
    m_linearStride = 0;
}

bool CFrame::load(const QString &path)
{
    QWriteLocker locker(&m_lock);
    m_valid = false;
    m_loaded = false;
    freeBuffersLocked();

    if (!QFileInfo(path).isFile())
        return false;

    bool ok = false;
    if (QFileInfo(path).suffix() == QLatin1String("raw")) {
        ok = loadRawLocked(path);
    } else {
        m_rawData = nullptr;
        ok = takeImageLocked(QImage(path));
    }
    if (!ok)
        return false;
    m_tag = 0; // frames read from files carry no tag
    m_fileName = path;
    m_valid = true;
    m_loaded = true;
    return true;
}

bool CFrame::setFromImage(const QImage &image, int tag)
{
    QWriteLocker locker(&m_lock);
    m_valid = false;
    m_loaded = false;
    freeBuffersLocked();
    if (!takeImageLocked(image))
        return false;
    m_tag = tag;
    m_fileName.clear();
    m_valid = true;
    m_loaded = true;
    return true;
}

bool CFrame::takeImageLocked(QImage image)
{
    if (image.isNull() || image.format() == QImage::Format_Invalid)
        return false;
    const int format = image.format();
    if (format == QImage::Format_Indexed8) {
        m_kind = KindSingleSample;
    } else if (format == QImage::Format_ARGB32) {
        m_kind = KindRgb;
    } else if (format == QImage::Format_RGB32
               || (format >= QImage::Format_ARGB32_Premultiplied
                   && format <= QImage::Format_ARGB4444_Premultiplied)) {
        image = image.convertToFormat(QImage::Format_ARGB32);
        if (image.isNull())
            return false;
        m_kind = KindRgb;
    } else {
        return false;
    }
    m_bayerOrder = 0;
    m_blackLevel = 0.0;
    m_imageType = -1;
    m_image = image;
    m_width = image.width();
    m_height = image.height();
    m_bytesPerLine = image.bytesPerLine();
    m_bitsPerPixel = image.depth();
    m_dataSize = static_cast<int>(image.sizeInBytes());
    return true;
}

bool CFrame::isValid() const
{
    QReadLocker locker(&m_lock);
    return m_valid;
}

std::uint32_t CFrame::kind() const
{
    QReadLocker locker(&m_lock);
    return m_kind;
}

int CFrame::width() const
{
    QReadLocker locker(&m_lock);
    return m_width;
}

int CFrame::height() const
{
    QReadLocker locker(&m_lock);
    return m_height;
}

int CFrame::bytesPerLine() const
{
    QReadLocker locker(&m_lock);
    return m_bytesPerLine;
}

int CFrame::bitsPerPixel() const
{
    QReadLocker locker(&m_lock);
    return m_bitsPerPixel;
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
    QReadLocker locker(&m_lock);
    return bytesPerPixelForBits(m_bitsPerPixel);
}

int CFrame::bayerOrder() const
{
    QReadLocker locker(&m_lock);
    return m_bayerOrder;
}

double CFrame::blackLevel() const
{
    QReadLocker locker(&m_lock);
    return m_blackLevel;
}

int CFrame::imageType() const
{
    QReadLocker locker(&m_lock);
    return m_imageType;
}

int CFrame::tag() const
{
    QReadLocker locker(&m_lock);
    return m_tag;
}

int CFrame::dataSize() const
{
    QReadLocker locker(&m_lock);
    return m_dataSize;
}

QString CFrame::fileName() const
{
    QReadLocker locker(&m_lock);
    return m_fileName;
}

QString CFrame::description() const
{
    QReadLocker locker(&m_lock);
    return m_description;
}

QImage CFrame::image() const
{
    QReadLocker locker(&m_lock);
    return m_image;
}

const std::uint8_t *CFrame::data() const
{
    QReadLocker locker(&m_lock);
    if (m_rawData)
        return m_rawData;
    if (m_image.isNull())
        return nullptr;
    return m_image.constBits();
}

const std::uint8_t *CFrame::linearData() const
{
    QReadLocker locker(&m_lock);
    if (m_kind != KindRgb)
        return nullptr;
    if (m_linearData)
        return m_linearData;
    const std::uint8_t *src = m_rawData ? m_rawData
                                        : (m_image.isNull() ? nullptr : m_image.constBits());
    if (!src || m_dataSize < 1)
        return nullptr;

    // 256-entry table: every byte value decodes to the same stored byte.
    std::uint8_t table[256];
    for (int v = 0; v < 256; ++v)
        table[v] = static_cast<std::uint8_t>(
                std::floor(kestro::srgbByteToLinear(static_cast<std::uint8_t>(v)) * 255.0 + 0.5));

    auto *buffer = new (std::nothrow) std::uint8_t[m_dataSize]();
    if (!buffer)
        return nullptr;
    const int stride = m_bytesPerLine;
    for (int y = 0; y < m_height; ++y) {
        const std::size_t rowOffset = static_cast<std::size_t>(y) * stride;
        for (int x = 0; x < m_width; ++x) {
            const std::size_t offset = rowOffset + 4u * static_cast<std::size_t>(x);
            if (offset + 3 > static_cast<std::size_t>(m_dataSize))
                break;
            for (int k = 0; k < 3; ++k)
                buffer[offset + k] = table[src[offset + k]];
        }
    }
    m_linearData = buffer;
    m_linearSize = m_dataSize;
    m_linearStride = m_bytesPerLine;
    return m_linearData;
}

int CFrame::linearSize() const
{
    QReadLocker locker(&m_lock);
    return m_linearSize;
}

int CFrame::linearStride() const
{
    QReadLocker locker(&m_lock);
    return m_linearStride;
}

bool CFrame::isCompatible(const CFrame &other) const
{
    if (&other == this) {
        QReadLocker locker(&m_lock);
        return m_valid && m_loaded;
    }
    QReadLocker mine(&m_lock);
    QReadLocker theirs(&other.m_lock);
    if (!(m_valid && m_loaded && other.m_valid && other.m_loaded))
        return false;
    return m_kind == other.m_kind && m_dataSize == other.m_dataSize && m_width == other.m_width
           && m_height == other.m_height && m_bytesPerLine == other.m_bytesPerLine
           && m_bitsPerPixel == other.m_bitsPerPixel && m_bayerOrder == other.m_bayerOrder
           && m_tag == other.m_tag;
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
