#include "imaging/demosaic.h"
#include "imaging/frame.h"

#include "platform/tarnlib/tarnlib.h"

#include <QFile>
#include <limits>
#include <new>

// Raw sensor files are read through the camera library (tarnlib), which
// opens them as a file-backed camera: the sidecar INI file or the sensor data
// folder describes the frame, and a grab delivers 16-bit little-endian words.
bool CFrame::loadRawLocked(const QString &path)
{
    tl_camera_t **cameras = nullptr;
    int count = 0;
    // The library takes file names in the platform's 8-bit file name
    // encoding; 16 is the most cameras to list, 0 the open flags.
    const QByteArray name = QFile::encodeName(path);
    if (tl_OpenCameras2(&cameras, &count, name.constData(), 16, 0) != TL_OK || count < 1 || !cameras
        || !cameras[0]) {
        tl_CloseCameras2(cameras, count);
        return false;
    }
    tl_camera_t *camera = cameras[0];
    const tl_sensor_t sensor = camera->sensor;
    const unsigned int bufferSize = sensor.bufferSize;
    if (bufferSize < 1 || bufferSize > static_cast<unsigned int>(std::numeric_limits<int>::max())) {
        tl_CloseCameras2(cameras, count);
        return false;
    }
    auto *buffer = new (std::nothrow) std::uint8_t[bufferSize]();
    if (!buffer || tl_grabFrame(camera, buffer, bufferSize) != TL_OK) {
        delete[] buffer;
        tl_CloseCameras2(cameras, count);
        return false;
    }
    unsigned int order = 0;
    unsigned int black = 0;
    if (tl_getSensorParameter(camera, TL_PARAM_BAYER_ORDER, &order) != TL_OK)
        order = 0;
    if (tl_getSensorParameter(camera, TL_PARAM_BLACK_LEVEL, &black) != TL_OK)
        black = 0;
    tl_CloseCameras2(cameras, count);

    // The grabbed frame must hold every sample of the described size.
    const long long pixels = static_cast<long long>(sensor.width) * sensor.height;
    if (sensor.width < 1 || sensor.height < 1 || pixels * 2 > bufferSize) {
        delete[] buffer;
        return false;
    }

    m_width = sensor.width;
    m_height = sensor.height;
    m_bitsPerPixel = sensor.bitsPerPixel;
    m_bytesPerLine = sensor.width * sensor.bytesPerPixel;
    m_dataSize = static_cast<int>(bufferSize);
    m_rawData = buffer;
    m_bayerOrder = static_cast<int>(order);
    m_blackLevel = black;
    m_imageType = sensor.imageType;
    m_tag = 0;
    if (tl_IsBayerImageType(sensor.imageType))
        m_kind = KindSingleSample;
    else if (sensor.imageType == 5)
        m_kind = KindRawType5;
    else if (sensor.imageType == 11)
        m_kind = KindRgb;
    else
        m_kind = KindSingleSample;

    // The display picture, whatever the image type; a picture that cannot
    // be made (too small, no memory) stays null and the raw data remains.
    m_image = kestro::demosaicToImage(reinterpret_cast<const std::int16_t *>(buffer), sensor.width,
                                      sensor.height, sensor.bitsPerPixel, black,
                                      static_cast<int>(order));
    return true;
}
