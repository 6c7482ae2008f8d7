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

std::uint16_t sampleAt(const std::uint8_t *bytes, long long index)
{
    std::uint16_t v;
    std::memcpy(&v, bytes + 2 * index, 2);
    return v;
}

// Samples of a depth below 16 bits whose unused high bits are set (noise on
// the wire, a wrong sidecar) are clamped to full scale, so that every
// consumer of the frame sees values inside the declared depth.
void clampSamples(std::uint8_t *bytes, long long samples, std::uint16_t full)
{
    for (long long i = 0; i < samples; ++i) {
        const std::uint16_t v = std::min(sampleAt(bytes, i), full);
        std::memcpy(bytes + 2 * i, &v, 2);
    }
}

// Whether the samples that the demosaic leaves out (the last column of an
// odd width, the last row of an odd height) are within full scale.
bool edgesWithinFullScale(const std::uint8_t *bytes, int width, int height, std::uint16_t full)
{
    if (width & 1) {
        for (int y = 0; y < height; ++y)
            if (sampleAt(bytes, static_cast<long long>(y) * width + width - 1) > full)
                return false;
    }
    if (height & 1) {
        const long long row = static_cast<long long>(height - 1) * width;
        for (int x = 0; x < width; ++x)
            if (sampleAt(bytes, row + x) > full)
                return false;
    }
    return true;
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
    // The grab writes every sample; only bytes past them (a buffer larger
    // than the frame) need zeroing. Zeroing the whole buffer first would be
    // one more pass over a frame of many megabytes.
    std::unique_ptr<std::uint8_t[]> buffer(new (std::nothrow) std::uint8_t[bufferSize]);
    if (!buffer)
        return FrameError::OutOfMemory;
    std::memset(buffer.get() + pixels * 2, 0, bufferSize - static_cast<size_t>(pixels * 2));
    if (tl_grabFrame(camera, buffer.get(), bufferSize) != TL_OK)
        return FrameError::RawReadFailed;
    unsigned int order = 0;
    unsigned int black = 0;
    if (tl_getSensorParameter(camera, TL_PARAM_BAYER_ORDER, &order) != TL_OK)
        order = 0;
    if (tl_getSensorParameter(camera, TL_PARAM_BLACK_LEVEL, &black) != TL_OK)
        black = 0;

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
    // are above 32767. The demosaic clamps as it reads and says whether it
    // met a sample above full scale, so the stored samples are rewritten only
    // when something needs clamping: in an ordinary frame, nothing does.
    bool withinFullScale = false;
    block->image = demosaicToImage(reinterpret_cast<const std::uint16_t *>(buffer.get()),
                                   sensor.width, sensor.height, sensor.bitsPerPixel, black,
                                   static_cast<int>(order), 0, &withinFullScale);
    if (sensor.bitsPerPixel < 16) {
        const auto full = static_cast<std::uint16_t>((1u << sensor.bitsPerPixel) - 1u);
        if (!withinFullScale
            || !edgesWithinFullScale(buffer.get(), sensor.width, sensor.height, full))
            clampSamples(buffer.get(), pixels, full);
    }
    block->raw = std::move(buffer);
    return FrameError::None;
}

} // namespace kestro
