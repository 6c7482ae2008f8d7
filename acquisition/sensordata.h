#pragma once
// Sensor data files of the camera library: lookup by sensor name and
// revision, the existence test by revision bit mask, and the list of sensors
// that the sensor data folder describes.

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <cstdint>

namespace kestro {

// The camera library's sensor data folder (tl_SensorData()), as text.
QString sensorDataFolder();

// File names (not paths) in `folder` that hold the sensor data for sensor
// `name` / `alternateName` and `revision`. Patterns, in this order, with N the
// name and R the revision in decimal: "N-REVR-DEV*.xsdat", "N-REVR-DEV*.sdat",
// "N-REVR*.xsdat", "N-REVR*.sdat", then with N the alternate name
// "N-REVR*.xsdat", "N-REVR*.sdat". The wildcard follows the number directly,
// so "N-REV21.sdat" also matches revision 2. Within one pattern the names are
// sorted; a file matched by several patterns is listed once, at its first
// match. Null names skip their patterns.
QStringList sensorDataFiles(const QString &folder, const QString &name,
                            const QString &alternateName, int revision);
// The same in the library's folder.
QStringList sensorDataFiles(const QString &name, const QString &alternateName, int revision);

// True when sensor data exists for any revision in `revisionMask` (bit 0 is
// revision 1, bit 1 revision 2, ...). False when a name is null or the mask
// is 0.
bool sensorDataExists(const QString &folder, const QString &name, const QString &alternateName,
                      std::uint32_t revisionMask);
bool sensorDataExists(const QString &name, const QString &alternateName, std::uint32_t revisionMask);

// One sensor described by the sensor data folder.
struct SensorDataInfo
{
    QString name;
    QString alternateName;
    std::uint32_t partId = 0;         // of the first file read
    QList<int> revisions;             // ascending, each found by sensorDataFiles
    QMap<int, std::uint32_t> partIds; // part id of each revision's file
    std::uint32_t revisionMask = 0;   // bit r-1 set for revision r (revisions 1..32)
};

// Sensors of the folder, sorted by name, from the [Sensor] groups of its
// *.sdat and *.xsdat files (a file without a name is named by its file name
// up to "-REV"). Revisions are listed only when the lookup above finds their
// files, so the list agrees with sensorDataExists. Unreadable or invalid
// files are skipped with a debug line. A missing folder gives an empty list.
QList<SensorDataInfo> availableSensors(const QString &folder);
QList<SensorDataInfo> availableSensors();

} // namespace kestro
