#include "imaging/demosaic.h"
#include "imaging/frame.h"
#include "imaging/imageload.h"

#include "platform/tarnlib/tarnlib.h"

#include <QFile>
#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace kestro {

namespace {

FrameError fromStatus(int status)
{
    switch (status) {
    case TL_ERR_NO_FILE:
        return FrameError::Unreadable;
    case TL_ERR_NO_DESCRIPTION:
        return FrameError::RawNoDescription;
    case TL_ERR_BAD_DESCRIPTION:
        return FrameError::RawBadDescription;
    case TL_ERR_SIZE_MISMATCH:
        return FrameError::RawSizeMismatch;
    case TL_ERR_NO_MEMORY:
        return FrameError::OutOfMemory;
    default:
        return FrameError::RawReadFailed;
    }
}

// Closes the camera list however the read ends.
struct CameraList
{
    tl_camera_t **cameras = nullptr;
    int count = 0;
    ~CameraList() { tl_CloseCameras2(cameras, count); }
};

// Samples of a depth below 16 bits whose unused high bits are set (noise on
// the wire, a wrong sidecar) are clamped to full scale, so that every
// consumer of the frame sees values inside the declared depth.
void clampSamples(std::uint8_t *bytes, long long samples, int bits)
{
    if (bits >= 16)
        return;
    const std::uint16_t full = static_cast<std::uint16_t>((1u << bits) - 1u);
    for (long long i = 0; i < samples; ++i) {
        std::uint16_t v;
        std::memcpy(&v, bytes + 2 * i, 2);
        if (v > full)
            std::memcpy(bytes + 2 * i, &full, 2);
    }
}

} // namespace

// Raw sensor files are read through the camera library (tarnlib), which
// opens them as a file-backed camera: the sidecar INI file or the sensor data
// folder describes the frame, and a grab delivers 16-bit little-endian words.
FrameError readRawFrame(const QString &path, CFrameData *block)
{
    // The same checks as for pictures before the library opens anything.
    {
        QFile probe;
        const ImageLoadError opened = openRegularFile(probe, path, &block->errorDetail);
        if (opened == ImageLoadError::Missing)
            return FrameError::Missing;
        if (opened == ImageLoadError::NotRegularFile)
            return FrameError::NotRegularFile;
        if (opened != ImageLoadError::None)
            return FrameError::Unreadable;
    }
    CameraList list;
    // The library takes file names in the platform's 8-bit file name
    // encoding; 16 is the most cameras to list, 0 the open flags.
    const QByteArray name = QFile::encodeName(path);
    const int status = tl_OpenCameras2(&list.cameras, &list.count, name.constData(), 16, 0);
    if (status != TL_OK || list.count < 1 || !list.cameras || !list.cameras[0]) {
        block->errorDetail = QString::fromLocal8Bit(tl_LastErrorText());
        return fromStatus(status == TL_OK ? TL_ERR_IO : status);
    }
    tl_camera_t *camera = list.cameras[0];
    const tl_sensor_t sensor = camera->sensor;
    const unsigned int bufferSize = sensor.bufferSize;
    const long long pixels = static_cast<long long>(sensor.width) * sensor.height;
    // The grabbed frame must hold every sample of the described size.
    if (sensor.width < 1 || sensor.height < 1 || pixels * 2 > bufferSize
        || bufferSize > static_cast<unsigned int>(std::numeric_limits<int>::max()))
        return FrameError::RawBadDescription;
    if (pixels > kMaxImagePixels) {
        block->errorDetail = QStringLiteral("the frame is ") + QString::number(sensor.width)
                             + QStringLiteral(" x ") + QString::number(sensor.height)
                             + QStringLiteral(" pixels; at most ")
                             + QString::number(kMaxImagePixels / 1000000)
                             + QStringLiteral(" megapixels are accepted");
        return FrameError::TooLarge;
    }
    std::unique_ptr<std::uint8_t[]> buffer(new (std::nothrow) std::uint8_t[bufferSize]());
    if (!buffer)
        return FrameError::OutOfMemory;
    if (tl_grabFrame(camera, buffer.get(), bufferSize) != TL_OK)
        return FrameError::RawReadFailed;
    unsigned int order = 0;
    unsigned int black = 0;
    if (tl_getSensorParameter(camera, TL_PARAM_BAYER_ORDER, &order) != TL_OK)
        order = 0;
    if (tl_getSensorParameter(camera, TL_PARAM_BLACK_LEVEL, &black) != TL_OK)
        black = 0;
    clampSamples(buffer.get(), pixels, sensor.bitsPerPixel);

    block->width = sensor.width;
    block->height = sensor.height;
    block->bitsPerPixel = sensor.bitsPerPixel;
    block->bytesPerLine = sensor.width * sensor.bytesPerPixel;
    block->dataSize = static_cast<int>(bufferSize);
    block->bayerOrder = static_cast<int>(order);
    block->blackLevel = black;
    block->imageType = sensor.imageType;
    if (tl_IsBayerImageType(sensor.imageType))
        block->kind = CFrame::KindSingleSample;
    else if (sensor.imageType == 5)
        block->kind = CFrame::KindRawType5;
    else if (sensor.imageType == 11)
        block->kind = CFrame::KindRgb;
    else
        block->kind = CFrame::KindSingleSample;

    // The display picture, whatever the image type; a picture that cannot
    // be made (too small, no memory) stays null and the raw data remains.
    // Samples are unsigned 16-bit words: a 16-bit sensor's bright values
    // are above 32767.
    block->image = demosaicToImage(reinterpret_cast<const std::uint16_t *>(buffer.get()),
                                   sensor.width, sensor.height, sensor.bitsPerPixel, black,
                                   static_cast<int>(order));
    block->raw = std::move(buffer);
    return FrameError::None;
}

} // namespace kestro
