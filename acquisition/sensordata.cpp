#include "acquisition/sensordata.h"

#include "platform/tarnlib/tarnlib.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QMap>
#include <algorithm>

namespace kestro {

QString sensorDataFolder()
{
    return QFile::decodeName(tl_SensorData());
}

QStringList sensorDataFiles(const QString &folder, const QString &name,
                            const QString &alternateName, int revision)
{
    QStringList patterns;
    const QString rev = QString::number(revision);
    if (!name.isEmpty()) {
        for (const char *pattern :
             {"%1-REV%2-DEV*.xsdat", "%1-REV%2-DEV*.sdat", "%1-REV%2*.xsdat", "%1-REV%2*.sdat"})
            patterns << QString::fromLatin1(pattern).arg(name, rev);
    }
    if (!alternateName.isEmpty()) {
        for (const char *pattern : {"%1-REV%2*.xsdat", "%1-REV%2*.sdat"})
            patterns << QString::fromLatin1(pattern).arg(alternateName, rev);
    }
    QStringList files;
    QDir dir(folder);
    if (folder.isEmpty() || !dir.exists())
        return files;
    for (const QString &pattern : patterns) {
        for (const QString &file : dir.entryList({pattern}, QDir::Files, QDir::Name)) {
            if (!files.contains(file))
                files << file;
        }
    }
    return files;
}

QStringList sensorDataFiles(const QString &name, const QString &alternateName, int revision)
{
    return sensorDataFiles(sensorDataFolder(), name, alternateName, revision);
}

bool sensorDataExists(const QString &folder, const QString &name, const QString &alternateName,
                      std::uint32_t revisionMask)
{
    if (name.isNull() || alternateName.isNull() || revisionMask == 0)
        return false;
    int revision = 1;
    for (std::uint32_t mask = revisionMask; mask != 0; mask >>= 1, ++revision) {
        if ((mask & 1u) && !sensorDataFiles(folder, name, alternateName, revision).isEmpty())
            return true;
    }
    return false;
}

bool sensorDataExists(const QString &name, const QString &alternateName, std::uint32_t revisionMask)
{
    return sensorDataExists(sensorDataFolder(), name, alternateName, revisionMask);
}

QList<SensorDataInfo> availableSensors(const QString &folder)
{
    QDir dir(folder);
    if (folder.isEmpty() || !dir.exists())
        return {};
    QMap<QString, SensorDataInfo> byName;
    const QStringList files = dir.entryList({QStringLiteral("*.sdat"), QStringLiteral("*.xsdat")},
                                            QDir::Files, QDir::Name);
    for (const QString &file : files) {
        tl_sensor_t sensor;
        const int status = tl_ReadSensorDataFile(QFile::encodeName(dir.filePath(file)).constData(),
                                                 &sensor);
        if (status != TL_OK) {
            qDebug().noquote() << "Sensor data file" << dir.filePath(file)
                               << "skipped:" << tl_StatusText(status);
            continue;
        }
        const QString name = QString::fromLatin1(sensor.name);
        if (name.isEmpty())
            continue;
        SensorDataInfo &info = byName[name];
        if (info.name.isEmpty()) {
            info.name = name;
            info.alternateName = QString::fromLatin1(sensor.alternateName);
            info.partId = sensor.partId;
        }
        const int revision = sensor.revision;
        if (revision < 1 || info.revisions.contains(revision))
            continue;
        if (sensorDataFiles(folder, info.name, info.alternateName, revision).isEmpty())
            continue;
        info.revisions << revision;
        info.partIds.insert(revision, sensor.partId);
    }
    QList<SensorDataInfo> result;
    for (SensorDataInfo &info : byName) {
        if (info.revisions.isEmpty())
            continue;
        std::sort(info.revisions.begin(), info.revisions.end());
        for (int r : info.revisions) {
            if (r <= 32)
                info.revisionMask |= 1u << (r - 1);
        }
        result << info;
    }
    return result;
}

QList<SensorDataInfo> availableSensors()
{
    return availableSensors(sensorDataFolder());
}

} // namespace kestro
