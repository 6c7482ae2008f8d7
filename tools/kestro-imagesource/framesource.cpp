#include "framesource.h"

#include "imaging/imageload.h"

#include <QFileInfo>
#include <QImage>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <sys/mman.h>
#include <unistd.h>

namespace kestro::imagesource {

namespace {

QString systemError(const char *what)
{
    return QStringLiteral("%1: %2").arg(QLatin1String(what),
                                        QString::fromLocal8Bit(std::strerror(errno)));
}

// Decoded files kept for the next rounds of the cycle, at most this much.
constexpr std::size_t kFileCacheBudget = std::size_t(1) << 30;

} // namespace

SharedFrame::~SharedFrame()
{
    if (m_pixels)
        munmap(const_cast<std::uint8_t *>(m_pixels), bytes());
    if (m_fd >= 0)
        close(m_fd);
}

std::shared_ptr<const SharedFrame> SharedFrame::create(
        int width, int height, const std::function<bool(std::uint8_t *, QString *)> &fill,
        QString *error)
{
    if (width <= 0 || height <= 0 || std::int64_t(width) * height > kMaxScenePixels) {
        *error = QStringLiteral("frame size %1 x %2 out of range").arg(width).arg(height);
        return nullptr;
    }
    std::shared_ptr<SharedFrame> frame(new SharedFrame);
    frame->m_width = width;
    frame->m_height = height;
    frame->m_fd = memfd_create("kestro-frame", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (frame->m_fd < 0) {
        *error = systemError("memfd_create");
        return nullptr;
    }
    const std::size_t size = frame->bytes();
    if (ftruncate(frame->m_fd, static_cast<off_t>(size)) != 0) {
        *error = systemError("ftruncate");
        return nullptr;
    }
    void *writable = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE,
                          frame->m_fd, 0);
    if (writable == MAP_FAILED) {
        *error = systemError("mmap");
        return nullptr;
    }
    const bool filled = fill(static_cast<std::uint8_t *>(writable), error);
    munmap(writable, size);
    if (!filled)
        return nullptr;
    // Sealing against writes needs every writable mapping gone; readers keep
    // a read-only one.
    if (fcntl(frame->m_fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL)
        != 0) {
        *error = systemError("sealing the frame");
        return nullptr;
    }
    void *readable = mmap(nullptr, size, PROT_READ, MAP_SHARED, frame->m_fd, 0);
    if (readable == MAP_FAILED) {
        *error = systemError("mmap");
        return nullptr;
    }
    frame->m_pixels = static_cast<const std::uint8_t *>(readable);
    return frame;
}

// --- scene ---

void SceneSource::setSettings(const SceneSettings &settings)
{
    const SceneSettings &old = m_settings;
    if (settings.kind != old.kind || settings.width != old.width || settings.height != old.height
        || settings.exposure != old.exposure || settings.shading != old.shading)
        m_base.reset();
    m_settings = settings;
}

void SceneSource::setNoise(double sigma)
{
    if (sigma != m_noise.sigma())
        m_noise = NoiseGenerator(sigma);
}

FramePtr SceneSource::next(QString *error)
{
    if (!m_base) {
        m_base = SharedFrame::create(
                m_settings.width, m_settings.height,
                [this](std::uint8_t *pixels, QString *) {
                    renderScene(m_settings, pixels);
                    return true;
                },
                error);
        if (!m_base)
            return nullptr;
    }
    if (m_noise.sigma() <= 0.0)
        return m_base;
    const std::uint64_t seed = ++m_frameNumber;
    const FramePtr base = m_base;
    return SharedFrame::create(
            base->width(), base->height(),
            [&](std::uint8_t *pixels, QString *) {
                m_noise.apply(base->pixels(), pixels, std::size_t(base->width()) * base->height(),
                              seed);
                return true;
            },
            error);
}

// --- files ---

FileListSource::FileListSource(const QStringList &files)
    : m_files(files)
    , m_cache(files.size())
{ }

bool FileListSource::start(QString *error)
{
    if (m_files.isEmpty()) {
        *error = QStringLiteral("no image files given");
        return false;
    }
    for (const QString &file : m_files) {
        if (!QFileInfo(file).isFile()) {
            *error = imageLoadErrorText(QFileInfo::exists(file) ? ImageLoadError::NotRegularFile
                                                                : ImageLoadError::Missing,
                                        file);
            return false;
        }
    }
    return true;
}

FramePtr FileListSource::next(QString *error)
{
    if (m_files.isEmpty()) {
        *error = QStringLiteral("no image files given");
        return nullptr;
    }
    const int index = m_next;
    m_next = (m_next + 1) % m_files.size();
    if (m_cache[index])
        return m_cache[index];
    const QImage image = loadImage(m_files[index], error);
    if (image.isNull())
        return nullptr;
    // Bytes R, G, B, 255 per pixel, rows without padding: the frame layout.
    const QImage rgbx = image.convertToFormat(QImage::Format_RGBX8888);
    if (rgbx.isNull()) {
        *error = QStringLiteral("cannot convert %1 (out of memory)").arg(m_files[index]);
        return nullptr;
    }
    FramePtr frame = SharedFrame::create(
            rgbx.width(), rgbx.height(),
            [&](std::uint8_t *pixels, QString *) {
                const std::size_t row = std::size_t(rgbx.width()) * 4;
                for (int y = 0; y < rgbx.height(); ++y)
                    std::memcpy(pixels + y * row, rgbx.constScanLine(y), row);
                return true;
            },
            error);
    if (frame && m_cachedBytes + frame->bytes() <= kFileCacheBudget) {
        m_cachedBytes += frame->bytes();
        m_cache[index] = frame;
    }
    return frame;
}

// --- device ---

DeviceSource::DeviceSource(const QString &path)
    : m_path(path)
{ }

DeviceSource::~DeviceSource() = default;

bool DeviceSource::start(QString *error)
{
    if (m_capture && m_capture->isOpened())
        return true;
    m_capture = std::make_unique<cv::VideoCapture>();
    const std::string name = QFile::encodeName(m_path).toStdString();
    // Video devices go through V4L2; anything else (a video file) through
    // whichever backend reads it.
    const int backend = m_path.startsWith(QLatin1String("/dev/")) ? cv::CAP_V4L2 : cv::CAP_ANY;
    bool opened = false;
    try {
        opened = m_capture->open(name, backend);
        if (opened && backend == cv::CAP_V4L2)
            m_capture->set(cv::CAP_PROP_BUFFERSIZE, 1);
    } catch (const cv::Exception &e) {
        *error = QStringLiteral("cannot open %1: %2").arg(m_path, QString::fromStdString(e.msg));
        m_capture.reset();
        return false;
    }
    if (!opened) {
        *error = QStringLiteral("cannot open %1 as a video device").arg(m_path);
        m_capture.reset();
        return false;
    }
    return true;
}

void DeviceSource::stop()
{
    m_capture.reset();
}

FramePtr DeviceSource::next(QString *error)
{
    if (!start(error))
        return nullptr;
    cv::Mat mat;
    try {
        if (!m_capture->read(mat) || mat.empty()) {
            // A video file starts again at its end; a device that gives no
            // frame has failed.
            m_capture->set(cv::CAP_PROP_POS_FRAMES, 0);
            if (!m_capture->read(mat) || mat.empty()) {
                *error = QStringLiteral("%1 delivered no frame").arg(m_path);
                return nullptr;
            }
        }
    } catch (const cv::Exception &e) {
        *error = QStringLiteral("%1: %2").arg(m_path, QString::fromStdString(e.msg));
        return nullptr;
    }
    if (mat.depth() != CV_8U) {
        cv::Mat converted;
        mat.convertTo(converted, CV_8U, mat.depth() == CV_16U ? 1.0 / 257.0 : 1.0);
        mat = converted;
    }
    int code = -1;
    switch (mat.channels()) {
    case 1:
        code = cv::COLOR_GRAY2RGBA;
        break;
    case 3:
        code = cv::COLOR_BGR2RGBA;
        break;
    case 4:
        code = cv::COLOR_BGRA2RGBA;
        break;
    default:
        *error = QStringLiteral("%1 delivered frames of %2 channels").arg(m_path).arg(mat.channels());
        return nullptr;
    }
    return SharedFrame::create(
            mat.cols, mat.rows,
            [&](std::uint8_t *pixels, QString *) {
                cv::Mat out(mat.rows, mat.cols, CV_8UC4, pixels);
                cv::cvtColor(mat, out, code);
                // The fourth byte is unused: keep it opaque.
                if (code != cv::COLOR_BGRA2RGBA)
                    return true;
                for (std::size_t i = 3; i < std::size_t(mat.total()) * 4; i += 4)
                    pixels[i] = 255;
                return true;
            },
            error);
}

} // namespace kestro::imagesource
