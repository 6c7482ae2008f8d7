#pragma once
// CFrame: one still image (image file, raw sensor file or capture) with the
// pixel-layout facts that the measurements need.
//
// Threads: everything a load produces lives in one immutable block
// (CFrameData) that the frame holds through a shared pointer. A reload
// builds a new block and swaps it in; it never changes a block that a reader
// may hold. A thread that reads pixels while another may reload the frame
// takes the block once with pixels() and reads everything from it: the data
// stays alive and consistent for as long as it keeps the pointer.

#include <QImage>
#include <QObject>
#include <QString>
#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>

// Why a frame did not load.
enum class FrameError {
    None,
    Missing,           // no file at the path
    NotRegularFile,    // a folder, named pipe or device
    Unreadable,        // cannot be opened (detail: the system's reason)
    TooLarge,          // above the picture size limit (detail: the sizes)
    Undecodable,       // not a picture the decoders know (detail: their reason)
    UnsupportedFormat, // decoded, but a pixel format frames do not take (1-bit)
    RawNoDescription,  // raw file: no sidecar and no sensor data of its size
    RawBadDescription, // raw file: invalid sidecar or sensor data (detail: which value)
    RawSizeMismatch,   // raw file: size differs from the description (detail: sizes)
    RawReadFailed,     // raw file: read error or changed while read
    OutOfMemory,
};

// The sentence shown to the user: "cannot load <path> as an image or raw
// sensor file: <reason>".
QString frameErrorText(FrameError error, const QString &path, const QString &detail = QString());

// Everything one load of a frame produced. Never changed after it is
// published by a frame, except for the linear copy, which is made once, on
// first request, under std::call_once.
class CFrameData
{
public:
    CFrameData() = default;
    CFrameData(const CFrameData &) = delete;
    CFrameData &operator=(const CFrameData &) = delete;

    std::uint32_t kind = 3;
    int width = 0;
    int height = 0;
    int bytesPerLine = 0;
    int bitsPerPixel = 0;
    int dataSize = 0;
    int bayerOrder = 0;
    double blackLevel = 0.0;
    int imageType = -1;
    int tag = 0;
    bool valid = false;
    QString fileName;
    QString description;
    QImage image;
    FrameError error = FrameError::None;
    QString errorDetail;
    // Raw sample words of a raw file (dataSize bytes); empty otherwise.
    std::unique_ptr<std::uint8_t[]> raw;

    // Raw sample data if the frame came from a raw file, else the image bits
    // (null when there is no image).
    const std::uint8_t *data() const;
    // sRGB-decoded copy of an RGB frame's bytes (same size and stride as the
    // data; the fourth byte of each pixel is zero). Null for other kinds.
    const std::uint8_t *linearData() const;
    int linearSize() const;
    int linearStride() const;

private:
    mutable std::once_flag m_linearOnce;
    mutable std::unique_ptr<std::uint8_t[]> m_linear;
};

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
    // A copy shares the source's immutable block: no pixel is copied.
    CFrame(const CFrame &other);
    ~CFrame() override;
    CFrame &operator=(const CFrame &) = delete;

    // Reads an image file or, for the lower-case suffix "raw", a raw sensor
    // file. Returns false and leaves the frame invalid on any failure;
    // error() and errorText() then say why. Gray pictures become 8-bit
    // indexed gray frames (kind 1, 16-bit samples rounded to 8 bits), colour
    // pictures 32-bit ARGB frames (kind 3); 1-bit pictures are refused.
    bool load(const QString &path);
    // Fills the frame from a picture in memory (tag identifies the source);
    // `fileName` names the file the picture was saved as, if any.
    bool setFromImage(const QImage &image, int tag = 0, const QString &fileName = QString());

    // The current block, for reading from any thread (never null).
    std::shared_ptr<const CFrameData> pixels() const;

    FrameError error() const;
    QString errorText() const;

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

    // Pointers into the current block: valid until this frame is loaded
    // again or destroyed. Code that may race with a reload reads through
    // pixels() instead.
    const std::uint8_t *data() const;
    const std::uint8_t *linearData() const;
    int linearSize() const;
    int linearStride() const;

    // Frames of one set must agree in layout: same kind, size, stride, depth,
    // colour order and tag, and both loaded.
    bool isCompatible(const CFrame &other) const;

private:
    void publish(std::shared_ptr<const CFrameData> block);

    // Guards m_data (the pointer, not the block). A standard lock, so that
    // ThreadSanitizer sees it.
    mutable std::shared_mutex m_lock;
    std::shared_ptr<const CFrameData> m_data;
};

// Byte count per pixel for a sample depth in bits: up to 8 -> 1, 16 -> 2,
// 24 -> 3, 32 -> 4, anything larger -> 1.
int bytesPerPixelForBits(int bitsPerPixel);

// Label of channel `index` of a camera-library image type ("---" if none).
QString channelName(int imageType, int index);

namespace kestro {
// Reads a raw sensor file into a block (the frame's raw branch).
FrameError readRawFrame(const QString &path, CFrameData *block);
// Fills a block from a decoded picture: indexed and gray pictures become
// one-sample 8-bit frames, every colour format a 32-bit ARGB frame; 1-bit and
// alpha-only pictures are refused.
FrameError frameFromImage(QImage image, CFrameData *block);
} // namespace kestro
