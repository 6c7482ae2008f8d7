#pragma once
// The image-source object on the session bus. It answers the methods of the
// capture application's automation interface: Command, GetRgbImage, Quit,
// the option, state and preset methods, Pause and Stop; every other method
// of the interface answers the error "not supported".
//
// Options (GetOption/SetOption take whole numbers, GetOptionStr/
// SetOptionStr text):
//   scene     chart | edge | flat | auto (0 to 3); setting it selects the
//             scene as the source; "auto" (the default) shows the scene
//             that the client last hinted at
//   scenehint chart | edge | flat: the scene a client's page would
//             measure (the colour chart, a slanted edge, a flat field)
//   width, height   size of the scene's frames
//   exposure  linear gain of the scene (1 = as designed)
//   noise     temporal noise, standard deviation in 8-bit steps
//   shading   light lost in the corners, percent
//   latency   milliseconds before a requested frame is delivered
//   device    a video device (or video file) to take frames from
// States (read only): streaming, paused, frames (delivered so far),
// width, height (of the last frame), source (scene, files or device).

#include "framesource.h"

#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QString>
#include <functional>
#include <memory>

namespace kestro::imagesource {

class ImageSourceService : public QDBusVirtualObject
{
    Q_OBJECT
public:
    // Serves `source` (files or a device) when given, else the scene;
    // `quit` ends the program (null: Quit is answered and ignored).
    ImageSourceService(std::unique_ptr<SceneSource> scene, std::unique_ptr<FrameSource> source,
                       std::function<void()> quit, QObject *parent = nullptr);
    ~ImageSourceService() override;

    QString introspect(const QString &path) const override;
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override;

    // Option access shared by the bus methods and the presets; false with
    // the reason for an unknown option or a value out of range.
    bool setOption(const QString &name, const QString &value, QString *error);
    bool option(const QString &name, QString *value, QString *error) const;

private:
    QDBusMessage call(const QDBusMessage &message, const QDBusConnection &connection, bool *delayed);
    QDBusMessage rgbImage(const QDBusMessage &message);
    QDBusMessage state(const QDBusMessage &message, bool asText) const;
    bool loadPreset(const QString &iniFile, const QString &preset, QString *error);
    bool changeOption(const QString &name, const QString &value, bool apply, QString *error);
    void emitSignal(const QDBusConnection &connection, const char *name,
                    const QVariantList &arguments) const;

    // The scene keeps its settings while files or a device are in use.
    std::unique_ptr<SceneSource> m_scene;
    std::unique_ptr<FrameSource> m_other;
    FrameSource *m_source = nullptr;
    std::function<void()> m_quit;
    QString m_presetsFile;
    FramePtr m_last;
    bool m_sceneFollowsHint = true;
    SceneKind m_hint = SceneKind::Chart;
    bool m_streaming = true;
    bool m_paused = false;
    qint64 m_frames = 0;
    int m_latencyMs = 0;
};

} // namespace kestro::imagesource
