#pragma once
// Where the image source's frames come from: the synthetic scene, a list of
// image files, or a video device. Every frame is handed out as a sealed
// shared-memory file of 32-bit pixels (see acquisition/imagesourceprotocol.h)
// so that its pixels reach the client without passing through the bus.

#include "scene.h"

#include <QString>
#include <QStringList>
#include <QVector>
#include <cstdint>
#include <functional>
#include <memory>

namespace cv {
class VideoCapture;
}

namespace kestro::imagesource {

// One frame in a shared-memory file, sealed once filled: it can no longer
// be written, shrunk or grown, so any number of readers may map it.
class SharedFrame
{
public:
    ~SharedFrame();
    SharedFrame(const SharedFrame &) = delete;
    SharedFrame &operator=(const SharedFrame &) = delete;

    // A width x height frame whose pixels `fill` writes; null with the
    // reason when the memory cannot be had or `fill` fails.
    static std::shared_ptr<const SharedFrame> create(
            int width, int height, const std::function<bool(std::uint8_t *, QString *)> &fill,
            QString *error);

    int width() const { return m_width; }
    int height() const { return m_height; }
    std::size_t bytes() const { return std::size_t(m_width) * m_height * 4; }
    // The file, owned by the frame (senders duplicate it).
    int fd() const { return m_fd; }
    // A read-only view of the pixels.
    const std::uint8_t *pixels() const { return m_pixels; }

private:
    SharedFrame() = default;
    int m_width = 0;
    int m_height = 0;
    int m_fd = -1;
    const std::uint8_t *m_pixels = nullptr;
};

using FramePtr = std::shared_ptr<const SharedFrame>;

class FrameSource
{
public:
    virtual ~FrameSource() = default;
    // "scene", "files" or "device".
    virtual QString kind() const = 0;
    // Readies the source (opens a device); false with the reason.
    virtual bool start(QString *error) = 0;
    // Releases what start() took.
    virtual void stop() { }
    // The next frame; null with the reason.
    virtual FramePtr next(QString *error) = 0;
};

// The synthetic scene with its noise: the noiseless picture is rendered
// once per setting and shared by every frame while the noise is off.
class SceneSource : public FrameSource
{
public:
    QString kind() const override { return QStringLiteral("scene"); }
    bool start(QString *) override { return true; }
    FramePtr next(QString *error) override;

    const SceneSettings &settings() const { return m_settings; }
    void setSettings(const SceneSettings &settings);
    double noise() const { return m_noise.sigma(); }
    void setNoise(double sigma);

private:
    SceneSettings m_settings;
    NoiseGenerator m_noise{1.0};
    FramePtr m_base;
    std::uint64_t m_frameNumber = 0;
};

// Image files, one per frame, in a cycle. Decoded frames are kept while
// they fit in a memory budget.
class FileListSource : public FrameSource
{
public:
    explicit FileListSource(const QStringList &files);
    QString kind() const override { return QStringLiteral("files"); }
    bool start(QString *error) override;
    FramePtr next(QString *error) override;
    const QStringList &files() const { return m_files; }

private:
    QStringList m_files;
    QVector<FramePtr> m_cache;
    std::size_t m_cachedBytes = 0;
    int m_next = 0;
};

// A video device (V4L2 for /dev/video*), or a video file played in a loop.
class DeviceSource : public FrameSource
{
public:
    explicit DeviceSource(const QString &path);
    ~DeviceSource() override;
    QString kind() const override { return QStringLiteral("device"); }
    bool start(QString *error) override;
    void stop() override;
    FramePtr next(QString *error) override;
    const QString &path() const { return m_path; }

private:
    QString m_path;
    std::unique_ptr<cv::VideoCapture> m_capture;
};

} // namespace kestro::imagesource
