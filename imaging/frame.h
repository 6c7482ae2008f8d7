#pragma once
// CFrame: one still image (image file, raw sensor file or capture) with the
// pixel-layout facts that the measurements need.

#include <QImage>
#include <QObject>
#include <QReadWriteLock>
#include <QString>
#include <cstdint>

class CFrame : public QObject
{
    Q_OBJECT
public:
    // Colour class of a frame.
    enum Kind : std::uint32_t {
        KindSingleSample = 1, // gray, or a Bayer mosaic before conversion
        KindRawType5 = 2,     // raw image type 5 that the camera library does not class as Bayer
        KindRgb = 3,          // three-channel RGB
    };

    explicit CFrame(QObject *parent = nullptr);
    CFrame(const CFrame &other);
    ~CFrame() override;
    CFrame &operator=(const CFrame &) = delete;

    // Reads an image file or, for the lower-case suffix "raw", a raw sensor
    // file. Returns false and leaves the frame invalid on any failure.
    bool load(const QString &path);

    bool isValid() const;
    std::uint32_t kind() const;
    int width() const;
    int height() const;
    int bytesPerLine() const;
    int bitsPerPixel() const;
    int bytesPerPixel() const;
    int bayerOrder() const;
    // Black level of a raw frame in raw digital numbers (0 for other frames).
    double blackLevel() const;
    // Camera-library image type of a raw frame; -1 for frames from image
    // files or captures.
    int imageType() const;
    int tag() const;
    int dataSize() const;
    QString fileName() const;
    QString description() const;
    QImage image() const;

    // Raw sample data if the frame came from a raw file, else the image bits
    // (null when there is no image).
    const std::uint8_t *data() const;

    // sRGB-decoded copy of an RGB frame's bytes (same size and stride as the
    // data; the fourth byte of each pixel is zero). Null for other kinds.
    const std::uint8_t *linearData() const;
    int linearSize() const;
    int linearStride() const;

    // Frames of one set must agree in layout: same kind, size, stride, depth,
    // colour order and tag, and both loaded.
    bool isCompatible(const CFrame &other) const;

    // Fills the frame from a captured picture (tag identifies the source).
    bool setFromImage(const QImage &image, int tag = 0);

private:
    bool loadRawLocked(const QString &path);
    bool takeImageLocked(QImage image);
    void freeBuffersLocked();

    std::uint32_t m_kind = KindRgb;
    std::uint8_t *m_rawData = nullptr;
    int m_dataSize = 0;
    int m_width = 0;
    int m_height = 0;
    int m_bytesPerLine = 0;
    mutable std::uint8_t *m_linearData = nullptr;
    mutable int m_linearSize = 0;
    mutable int m_linearStride = 0;
    int m_bitsPerPixel = 0;
    int m_tag = 0;
    bool m_valid = false;
    bool m_loaded = false;
    int m_bayerOrder = 0;
    double m_blackLevel = 0.0;
    int m_imageType = -1;
    QString m_fileName;
    QString m_description;
    mutable QReadWriteLock m_lock;
    QImage m_image;
};

// Byte count per pixel for a sample depth in bits: up to 8 -> 1, 16 -> 2,
// 24 -> 3, 32 -> 4, anything larger -> 1.
int bytesPerPixelForBits(int bitsPerPixel);

// Label of channel `index` of a camera-library image type ("---" if none).
QString channelName(int imageType, int index);
