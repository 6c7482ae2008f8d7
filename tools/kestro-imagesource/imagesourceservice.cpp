#include "imagesourceservice.h"

#include "acquisition/imagesourceprotocol.h"

#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QFileInfo>
#include <QSettings>
#include <QTimer>
#include <cmath>

namespace kestro::imagesource {

namespace {

// The interface as the bus shows it: every method of the capture
// application's automation interface with its parameter names.
const char kIntrospection[] = R"(  <interface name="org.kestro.ImageSource1">
    <method name="BeginAccessRegs"/>
    <method name="Command">
      <arg name="nCommand" type="i" direction="in"/>
      <arg name="lParam" type="i" direction="in"/>
      <arg name="result" type="i" direction="out"/>
    </method>
    <method name="EndAccessRegs"/>
    <method name="GetGraphData">
      <arg name="nColumns" type="i" direction="in"/>
      <arg name="nRows" type="i" direction="in"/>
      <arg name="data" type="ad" direction="out"/>
    </method>
    <method name="GetMouseSelection">
      <arg name="nSelectType" type="i" direction="in"/>
      <arg name="nStartX" type="i" direction="out"/>
      <arg name="nStartY" type="i" direction="out"/>
      <arg name="nEndX" type="i" direction="out"/>
      <arg name="nEndY" type="i" direction="out"/>
    </method>
    <method name="GetOption">
      <arg name="sOption" type="s" direction="in"/>
      <arg name="value" type="i" direction="out"/>
    </method>
    <method name="GetOptionStr">
      <arg name="sOption" type="s" direction="in"/>
      <arg name="value" type="s" direction="out"/>
    </method>
    <method name="GetRawImage">
      <arg name="nWidth" type="i" direction="in"/>
      <arg name="nHeight" type="i" direction="in"/>
      <arg name="imageType" type="i" direction="in"/>
      <arg name="nBlack" type="i" direction="in"/>
      <arg name="nWhite" type="i" direction="in"/>
      <arg name="nPattern" type="i" direction="in"/>
      <arg name="width" type="i" direction="out"/>
      <arg name="height" type="i" direction="out"/>
      <arg name="pixels" type="h" direction="out"/>
    </method>
    <method name="GetRgbImage">
      <arg name="nWidth" type="i" direction="in"/>
      <arg name="nHeight" type="i" direction="in"/>
      <arg name="nDepth" type="i" direction="in"/>
      <arg name="width" type="i" direction="out"/>
      <arg name="height" type="i" direction="out"/>
      <arg name="pixels" type="h" direction="out"/>
    </method>
    <method name="GetState">
      <arg name="sState" type="s" direction="in"/>
      <arg name="value" type="i" direction="out"/>
    </method>
    <method name="GetStateStr">
      <arg name="sState" type="s" direction="in"/>
      <arg name="value" type="s" direction="out"/>
    </method>
    <method name="Image">
      <arg name="image" type="v" direction="out"/>
    </method>
    <method name="LoadPreset">
      <arg name="sPreset" type="s" direction="in"/>
    </method>
    <method name="LoadPreset2">
      <arg name="sIniFile" type="s" direction="in"/>
      <arg name="sPreset" type="s" direction="in"/>
      <arg name="nSuppressDlgs" type="i" direction="in"/>
    </method>
    <method name="Pause">
      <arg name="bPause" type="b" direction="in"/>
    </method>
    <method name="PeekRegisters">
      <arg name="nBaseAddr" type="u" direction="in"/>
      <arg name="nAddr" type="u" direction="in"/>
      <arg name="nCount" type="i" direction="in"/>
      <arg name="nAddrSize" type="i" direction="in"/>
      <arg name="nDataSize" type="i" direction="in"/>
      <arg name="values" type="au" direction="out"/>
    </method>
    <method name="PokeRegisters">
      <arg name="nBaseAddr" type="u" direction="in"/>
      <arg name="nAddr" type="u" direction="in"/>
      <arg name="nCount" type="i" direction="in"/>
      <arg name="nAddrSize" type="i" direction="in"/>
      <arg name="nDataSize" type="i" direction="in"/>
      <arg name="pValues" type="au" direction="in"/>
    </method>
    <method name="Quit"/>
    <method name="ReadRegister">
      <arg name="sReg" type="s" direction="in"/>
      <arg name="sBitfield" type="s" direction="in"/>
      <arg name="bCached" type="b" direction="in"/>
      <arg name="value" type="u" direction="out"/>
    </method>
    <method name="ReadRegisterAddr">
      <arg name="nAddrType" type="i" direction="in"/>
      <arg name="nAddrSpace" type="i" direction="in"/>
      <arg name="nAddr" type="u" direction="in"/>
      <arg name="nBitmask" type="u" direction="in"/>
      <arg name="bCached" type="b" direction="in"/>
      <arg name="value" type="u" direction="out"/>
    </method>
    <method name="RefreshSensorFile">
      <arg name="sFilename" type="s" direction="in"/>
    </method>
    <method name="RunPython">
      <arg name="sStatements" type="s" direction="in"/>
      <arg name="output" type="s" direction="out"/>
    </method>
    <method name="SendCommand">
      <arg name="nCommand" type="i" direction="in"/>
      <arg name="pParam" type="v" direction="in"/>
      <arg name="pResult" type="v" direction="out"/>
    </method>
    <method name="SetMouseSelection">
      <arg name="nSelectType" type="i" direction="in"/>
      <arg name="nStartX" type="i" direction="in"/>
      <arg name="nStartY" type="i" direction="in"/>
      <arg name="nEndX" type="i" direction="in"/>
      <arg name="nEndY" type="i" direction="in"/>
    </method>
    <method name="SetOption">
      <arg name="sOption" type="s" direction="in"/>
      <arg name="nValue" type="i" direction="in"/>
    </method>
    <method name="SetOptionStr">
      <arg name="sOption" type="s" direction="in"/>
      <arg name="sValue" type="s" direction="in"/>
    </method>
    <method name="SetPresetsFile">
      <arg name="PresetsFile" type="s" direction="in"/>
    </method>
    <method name="SetSensorFile">
      <arg name="SensorFile" type="s" direction="in"/>
    </method>
    <method name="SetState">
      <arg name="sState" type="s" direction="in"/>
      <arg name="nValue" type="i" direction="in"/>
    </method>
    <method name="SetStateStr">
      <arg name="sState" type="s" direction="in"/>
      <arg name="sValue" type="s" direction="in"/>
    </method>
    <method name="Stop">
      <arg name="bStop" type="b" direction="in"/>
    </method>
    <method name="UploadFirmware">
      <arg name="sFile" type="s" direction="in"/>
      <arg name="bBurst" type="b" direction="in"/>
    </method>
    <method name="UploadImageFile">
      <arg name="sFile" type="s" direction="in"/>
      <arg name="nOffset" type="i" direction="in"/>
      <arg name="nLength" type="i" direction="in"/>
    </method>
    <method name="WriteRegister">
      <arg name="sReg" type="s" direction="in"/>
      <arg name="sBitfield" type="s" direction="in"/>
      <arg name="nValue" type="u" direction="in"/>
      <arg name="bCached" type="b" direction="in"/>
    </method>
    <method name="WriteRegisterAddr">
      <arg name="nAddrType" type="i" direction="in"/>
      <arg name="nAddrSpace" type="i" direction="in"/>
      <arg name="nAddr" type="u" direction="in"/>
      <arg name="nBitmask" type="u" direction="in"/>
      <arg name="nValue" type="u" direction="in"/>
      <arg name="bCached" type="b" direction="in"/>
    </method>
    <signal name="exception">
      <arg name="code" type="i"/>
      <arg name="source" type="s"/>
      <arg name="disc" type="s"/>
      <arg name="help" type="s"/>
    </signal>
    <signal name="propertyChanged">
      <arg name="name" type="s"/>
    </signal>
    <signal name="signal">
      <arg name="name" type="s"/>
      <arg name="argc" type="i"/>
      <arg name="argv" type="as"/>
    </signal>
  </interface>
)";

// Longest wait a frame can be given.
constexpr int kMaxLatencyMs = 600000;

bool parseNumber(const QString &text, double low, double high, double *value)
{
    bool ok = false;
    const double v = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(v) || v < low || v > high)
        return false;
    *value = v;
    return true;
}

QString numberText(double value)
{
    return QString::number(value, 'g', 12);
}

} // namespace

ImageSourceService::ImageSourceService(std::unique_ptr<SceneSource> scene,
                                       std::unique_ptr<FrameSource> source,
                                       std::function<void()> quit, QObject *parent)
    : QDBusVirtualObject(parent)
    , m_scene(std::move(scene))
    , m_other(std::move(source))
    , m_quit(std::move(quit))
{
    m_source = m_other ? m_other.get() : m_scene.get();
}

ImageSourceService::~ImageSourceService() = default;

QString ImageSourceService::introspect(const QString &) const
{
    return QLatin1String(kIntrospection);
}

bool ImageSourceService::handleMessage(const QDBusMessage &message,
                                       const QDBusConnection &connection)
{
    if (message.type() != QDBusMessage::MethodCallMessage)
        return false;
    // Introspection and the other standard interfaces are the library's.
    if (!message.interface().isEmpty() && message.interface() != QLatin1String(kInterfaceName))
        return false;
    bool delayed = false;
    const QDBusMessage reply = call(message, connection, &delayed);
    if (!delayed)
        connection.send(reply);
    return true;
}

QDBusMessage ImageSourceService::call(const QDBusMessage &message,
                                      const QDBusConnection &connection, bool *delayed)
{
    const QString method = message.member();
    const QString signature = message.signature();
    const QVariantList args = message.arguments();
    auto invalid = [&] {
        return message.createErrorReply(QDBusError::InvalidArgs,
                                        QStringLiteral("%1 takes other arguments than (%2)")
                                                .arg(method, signature));
    };
    auto failed = [&](const QString &reason) {
        return message.createErrorReply(QLatin1String(kErrorFailed), reason);
    };

    if (method == QLatin1String("GetRgbImage")) {
        if (signature != QLatin1String("iii"))
            return invalid();
        const int depth = args[2].toInt();
        if (depth != 0 && depth != 32)
            return message.createErrorReply(
                    QLatin1String(kErrorNotSupported),
                    QStringLiteral("only 32-bit pixels are supported (asked for %1)").arg(depth));
        if (m_latencyMs <= 0)
            return rgbImage(message);
        // A slow sensor: the answer follows after the exposure, while the
        // service keeps answering other calls.
        *delayed = true;
        QTimer::singleShot(m_latencyMs, this,
                           [this, message, connection] { connection.send(rgbImage(message)); });
        return QDBusMessage();
    }
    if (method == QLatin1String("Command")) {
        if (signature != QLatin1String("ii"))
            return invalid();
        if (args[0].toInt() != kCommandPrepareCapture)
            return message.createErrorReply(QLatin1String(kErrorNotSupported),
                                            QStringLiteral("command %1 is not supported")
                                                    .arg(args[0].toInt()));
        QString error;
        if (!m_source->start(&error))
            return failed(error);
        m_streaming = true;
        m_paused = false;
        return message.createReply(QVariantList{0});
    }
    if (method == QLatin1String("Quit")) {
        if (!signature.isEmpty())
            return invalid();
        if (m_quit)
            QTimer::singleShot(0, this, m_quit);
        return message.createReply();
    }
    if (method == QLatin1String("GetOption") || method == QLatin1String("GetOptionStr")) {
        if (signature != QLatin1String("s"))
            return invalid();
        QString value, error;
        if (!option(args[0].toString(), &value, &error))
            return failed(error);
        if (method == QLatin1String("GetOptionStr"))
            return message.createReply(QVariantList{value});
        SceneKind kind;
        if (args[0].toString() == QLatin1String("scene") && sceneFromName(value, &kind))
            return message.createReply(QVariantList{int(kind)});
        double number = 0;
        if (!parseNumber(value, -2147483648.0, 2147483647.0, &number))
            return failed(
                    QStringLiteral("option %1 is text: use GetOptionStr").arg(args[0].toString()));
        return message.createReply(QVariantList{int(std::lround(number))});
    }
    if (method == QLatin1String("SetOption") || method == QLatin1String("SetOptionStr")) {
        const bool text = method == QLatin1String("SetOptionStr");
        if (signature != QLatin1String(text ? "ss" : "si"))
            return invalid();
        const QString name = args[0].toString();
        QString value = text ? args[1].toString() : QString::number(args[1].toInt());
        if (!text && name == QLatin1String("scene")) {
            const int index = args[1].toInt();
            if (index < 0 || index > 3)
                return failed(QStringLiteral("scene %1 is not 0, 1, 2 or 3").arg(index));
            value = index == 3 ? QStringLiteral("auto") : sceneName(SceneKind(index));
        }
        QString error;
        if (!setOption(name, value, &error))
            return failed(error);
        emitSignal(connection, "propertyChanged", {name});
        return message.createReply();
    }
    if (method == QLatin1String("GetState") || method == QLatin1String("GetStateStr")) {
        if (signature != QLatin1String("s"))
            return invalid();
        return state(message, method == QLatin1String("GetStateStr"));
    }
    if (method == QLatin1String("SetPresetsFile")) {
        if (signature != QLatin1String("s"))
            return invalid();
        m_presetsFile = args[0].toString();
        return message.createReply();
    }
    if (method == QLatin1String("LoadPreset") || method == QLatin1String("LoadPreset2")) {
        const bool two = method == QLatin1String("LoadPreset2");
        if (signature != QLatin1String(two ? "ssi" : "s"))
            return invalid();
        const QString file = two ? args[0].toString() : m_presetsFile;
        const QString preset = args[two ? 1 : 0].toString();
        if (file.isEmpty())
            return failed(QStringLiteral("no presets file (SetPresetsFile)"));
        QString error;
        if (!loadPreset(file, preset, &error))
            return failed(error);
        emitSignal(connection, "propertyChanged", {QStringLiteral("preset")});
        return message.createReply();
    }
    if (method == QLatin1String("Pause") || method == QLatin1String("Stop")) {
        if (signature != QLatin1String("b"))
            return invalid();
        const bool on = args[0].toBool();
        if (method == QLatin1String("Pause")) {
            m_paused = on;
        } else {
            m_streaming = !on;
            if (on)
                m_source->stop();
        }
        return message.createReply();
    }
    static const char *const known[] = {"BeginAccessRegs",   "EndAccessRegs",
                                        "GetGraphData",      "GetMouseSelection",
                                        "GetRawImage",       "Image",
                                        "PeekRegisters",     "PokeRegisters",
                                        "ReadRegister",      "ReadRegisterAddr",
                                        "RefreshSensorFile", "RunPython",
                                        "SendCommand",       "SetMouseSelection",
                                        "SetSensorFile",     "SetState",
                                        "SetStateStr",       "UploadFirmware",
                                        "UploadImageFile",   "WriteRegister",
                                        "WriteRegisterAddr"};
    for (const char *name : known) {
        if (method == QLatin1String(name))
            return message.createErrorReply(QLatin1String(kErrorNotSupported),
                                            QStringLiteral("not supported"));
    }
    return message.createErrorReply(QDBusError::UnknownMethod,
                                    QStringLiteral("no method %1").arg(method));
}

QDBusMessage ImageSourceService::rgbImage(const QDBusMessage &message)
{
    if (!m_streaming)
        return message.createErrorReply(QLatin1String(kErrorFailed),
                                        QStringLiteral("not streaming (Command 160 starts it)"));
    QString error;
    FramePtr frame = m_paused && m_last ? m_last : m_source->next(&error);
    if (!frame)
        return message.createErrorReply(QLatin1String(kErrorFailed), error);
    m_last = frame;
    ++m_frames;
    // The descriptor is duplicated into the message; the frame keeps its own.
    return message.createReply(
            QVariantList{frame->width(), frame->height(),
                         QVariant::fromValue(QDBusUnixFileDescriptor(frame->fd()))});
}

QDBusMessage ImageSourceService::state(const QDBusMessage &message, bool asText) const
{
    const QString name = message.arguments().value(0).toString();
    QString text;
    qint64 number = 0;
    bool numeric = true;
    if (name == QLatin1String("streaming")) {
        number = m_streaming;
    } else if (name == QLatin1String("paused")) {
        number = m_paused;
    } else if (name == QLatin1String("frames")) {
        number = m_frames;
    } else if (name == QLatin1String("width")) {
        number = m_last ? m_last->width() : 0;
    } else if (name == QLatin1String("height")) {
        number = m_last ? m_last->height() : 0;
    } else if (name == QLatin1String("source")) {
        numeric = false;
        text = m_source->kind();
    } else {
        return message.createErrorReply(QLatin1String(kErrorFailed),
                                        QStringLiteral("no state %1").arg(name));
    }
    if (asText)
        return message.createReply(QVariantList{numeric ? QString::number(number) : text});
    if (!numeric)
        return message
                .createErrorReply(QLatin1String(kErrorFailed),
                                  QStringLiteral("state %1 is text: use GetStateStr").arg(name));
    return message.createReply(QVariantList{int(std::min<qint64>(number, 2147483647))});
}

bool ImageSourceService::setOption(const QString &name, const QString &value, QString *error)
{
    return changeOption(name, value, false, error) && changeOption(name, value, true, error);
}

bool ImageSourceService::changeOption(const QString &name, const QString &value, bool apply,
                                      QString *error)
{
    SceneSettings settings = m_scene->settings();
    double number = 0;
    auto outOfRange = [&](const char *range) {
        *error = QStringLiteral("%1 %2 is not %3").arg(name, value, QLatin1String(range));
        return false;
    };
    if (name == QLatin1String("scene")) {
        const bool automatic = value.trimmed().toLower() == QLatin1String("auto");
        if (automatic)
            settings.kind = m_hint;
        else if (!sceneFromName(value, &settings.kind))
            return outOfRange("chart, edge, flat or auto");
        if (apply) {
            m_sceneFollowsHint = automatic;
            m_scene->setSettings(settings);
            // Choosing a scene chooses the synthetic source.
            if (m_source != m_scene.get()) {
                m_source->stop();
                m_source = m_scene.get();
            }
        }
        return true;
    }
    if (name == QLatin1String("scenehint")) {
        SceneKind hint;
        if (!sceneFromName(value, &hint))
            return outOfRange("chart, edge or flat");
        if (apply) {
            m_hint = hint;
            if (m_sceneFollowsHint) {
                settings.kind = hint;
                m_scene->setSettings(settings);
            }
        }
        return true;
    }
    if (name == QLatin1String("width") || name == QLatin1String("height")) {
        if (!parseNumber(value, 1, kMaxSceneSide, &number) || number != std::floor(number))
            return outOfRange("a whole number of pixels from 1 to 20000");
        (name == QLatin1String("width") ? settings.width : settings.height) = int(number);
        if (std::int64_t(settings.width) * settings.height > kMaxScenePixels) {
            *error = QStringLiteral("%1 x %2 pixels is above the 100-megapixel limit")
                             .arg(settings.width)
                             .arg(settings.height);
            return false;
        }
    } else if (name == QLatin1String("exposure")) {
        if (!parseNumber(value, 0, 100, &number))
            return outOfRange("a gain from 0 to 100");
        settings.exposure = number;
    } else if (name == QLatin1String("shading")) {
        if (!parseNumber(value, 0, 100, &number))
            return outOfRange("a percentage from 0 to 100");
        settings.shading = number / 100.0;
    } else if (name == QLatin1String("noise")) {
        if (!parseNumber(value, 0, 100, &number))
            return outOfRange("a standard deviation from 0 to 100");
        if (apply)
            m_scene->setNoise(number);
        return true;
    } else if (name == QLatin1String("latency")) {
        if (!parseNumber(value, 0, kMaxLatencyMs, &number))
            return outOfRange("a number of milliseconds from 0 to 600000");
        if (apply)
            m_latencyMs = int(number);
        return true;
    } else if (name == QLatin1String("device")) {
        if (value.trimmed().isEmpty())
            return outOfRange("a device path");
        if (apply) {
            auto device = std::make_unique<DeviceSource>(value.trimmed());
            if (!device->start(error))
                return false;
            m_source->stop();
            m_other = std::move(device);
            m_source = m_other.get();
        }
        return true;
    } else {
        *error = QStringLiteral("no option %1").arg(name);
        return false;
    }
    if (apply)
        m_scene->setSettings(settings);
    return true;
}

bool ImageSourceService::option(const QString &name, QString *value, QString *error) const
{
    const SceneSettings &s = m_scene->settings();
    if (name == QLatin1String("scene"))
        *value = sceneName(s.kind);
    else if (name == QLatin1String("scenehint"))
        *value = sceneName(m_hint);
    else if (name == QLatin1String("width"))
        *value = QString::number(s.width);
    else if (name == QLatin1String("height"))
        *value = QString::number(s.height);
    else if (name == QLatin1String("exposure"))
        *value = numberText(s.exposure);
    else if (name == QLatin1String("shading"))
        *value = numberText(s.shading * 100.0);
    else if (name == QLatin1String("noise"))
        *value = numberText(m_scene->noise());
    else if (name == QLatin1String("latency"))
        *value = QString::number(m_latencyMs);
    else if (name == QLatin1String("device"))
        *value = m_source->kind() == QLatin1String("device")
                         ? static_cast<const DeviceSource *>(m_source)->path()
                         : QString();
    else {
        *error = QStringLiteral("no option %1").arg(name);
        return false;
    }
    return true;
}

bool ImageSourceService::loadPreset(const QString &iniFile, const QString &preset, QString *error)
{
    const QFileInfo info(iniFile);
    if (!info.isFile() || !info.isReadable()) {
        *error = QStringLiteral("cannot read presets file %1").arg(iniFile);
        return false;
    }
    QSettings ini(iniFile, QSettings::IniFormat);
    if (!ini.childGroups().contains(preset)) {
        *error = QStringLiteral("no preset %1 in %2").arg(preset, iniFile);
        return false;
    }
    ini.beginGroup(preset);
    QList<QPair<QString, QString>> values;
    for (const QString &key : ini.childKeys()) {
        const QVariant v = ini.value(key);
        values.append({key, v.type() == QVariant::StringList
                                    ? v.toStringList().join(QLatin1Char(','))
                                    : v.toString()});
    }
    // Every value is checked before any is applied: a bad preset changes
    // nothing. The scene size is checked as a whole.
    SceneSettings before = m_scene->settings();
    for (const auto &kv : values) {
        if (!changeOption(kv.first, kv.second, false, error))
            return false;
    }
    for (const auto &kv : values) {
        if (!changeOption(kv.first, kv.second, true, error)) {
            m_scene->setSettings(before);
            return false;
        }
    }
    return true;
}

void ImageSourceService::emitSignal(const QDBusConnection &connection, const char *name,
                                    const QVariantList &arguments) const
{
    QDBusMessage signal = QDBusMessage::createSignal(QLatin1String(kObjectPath),
                                                     QLatin1String(kInterfaceName),
                                                     QLatin1String(name));
    signal.setArguments(arguments);
    connection.send(signal);
}

} // namespace kestro::imagesource
