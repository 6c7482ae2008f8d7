#pragma once
// tarnlib internals shared by its source files: the private camera state
// behind tl_camera_t::priv and the sensor data file helpers.

#include "platform/tarnlib/inifile.h"
#include "platform/tarnlib/tarnlib.h"

#include <QFile>
#include <QString>
#include <QStringList>

#include <limits>
#include <map>

namespace tarn {

// Largest raw frame accepted: the grabbed 16-bit buffer must fit an int
// (frames keep their data size in a signed 32-bit field).
constexpr long long kMaxBufferBytes = std::numeric_limits<int>::max();

// Library-private state behind tl_camera_t::priv.
struct CameraState
{
    enum Kind { RawFile, Demo };
    explicit CameraState(Kind k)
        : kind(k)
    { }
    virtual ~CameraState() = default;
    const Kind kind;
};

struct RawSource : CameraState
{
    RawSource()
        : CameraState(RawFile)
    { }
    QString path;
    QFile file;              // opened once, when the camera is opened
    long long fileBytes = 0; // expected size of the file
};

// The simulated demo camera: a sensor from the sensor data folder looking at
// a 24-patch colour chart.
struct DemoCamera : CameraState
{
    DemoCamera()
        : CameraState(Demo)
    { }
    QString sensorFile;
    tl_sensor_t described; // everything the sensor data file says
    bool streaming = false;
    unsigned int frameCounter = 0;
    std::map<unsigned int, unsigned int> registers;
};

// Register of the demo camera: analogue gain in 1/16 steps (16 = 1x).
constexpr unsigned int kDemoGainRegister = 0x3060;

// Why the last call on this thread failed, in more words than its status
// code ("BitsPerPixel=20 in /x/a.ini: ..."); empty after a success.
QString lastErrorDetail();
void setLastErrorDetail(const QString &text);

void copyName(char (&dst)[TL_NAME_SIZE], const QString &text);
int sampleBytes(int bits);
// Reads the [Frame] group into the sensor record and checks every value;
// a refusal names the value in lastErrorDetail().
int readFrameGroup(const IniFile &ini, tl_sensor_t *s);
int readSensorFile(const QString &path, tl_sensor_t *s);
long long fileBytesOf(const tl_sensor_t &s);
QStringList sensorDataFilesSorted(const QString &folder);
// One frame of the demo camera into out (16-bit little-endian words).
int grabDemoFrame(tl_camera_t *camera, DemoCamera *demo, unsigned char *out);

} // namespace tarn
