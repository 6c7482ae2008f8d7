#include "imaging/roifile.h"

#include "imaging/region.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QVariant>
#include <cmath>
#include <limits>

namespace kestro {

namespace {

const QString kArrayName = QStringLiteral("patches");

// A stored value as a real number: 0 when it is missing, does not convert or
// is not finite.
double readNumber(const QSettings &settings, const QString &key)
{
    const QVariant v = settings.value(key);
    if (!v.isValid())
        return 0.0;
    bool ok = false;
    const double d = v.toDouble(&ok);
    if (!ok || !std::isfinite(d))
        return 0.0;
    return d;
}

// Clamps to a range where floor/ceil and the int conversion stay defined.
double clampCoordinate(double v)
{
    if (!std::isfinite(v))
        return 0.0;
    constexpr double kLimit = kMaxRoiCoordinate;
    return v < -kLimit ? -kLimit : (v > kLimit ? kLimit : v);
}

} // namespace

QRect roiStoredRect(const QRectF &rect)
{
    const double x = clampCoordinate(rect.x());
    const double y = clampCoordinate(rect.y());
    const double w = clampCoordinate(rect.width());
    const double h = clampCoordinate(rect.height());
    return alignedRect(QRectF(x, y, w, h));
}

RoiReadResult readRoiFile(const QString &path)
{
    RoiReadResult result;
    // Texts are concatenated, never chained with arg(): a file name may
    // itself contain "%1".
    const QFileInfo info(path);
    if (path.isEmpty() || !info.exists()) {
        result.error = QStringLiteral("Cannot load file ") + path + QStringLiteral(".");
        return result;
    }
    // Only regular files: the settings reader would wait forever on a named
    // pipe and read a device without end.
    if (!info.isFile() || !info.isReadable()) {
        result.error = QStringLiteral("Cannot read file ") + path + QStringLiteral(".");
        return result;
    }
    if (info.size() > kMaxRoiFileBytes) {
        result.error = path + QStringLiteral(" is too large for a region file (")
                       + QString::number(info.size()) + QStringLiteral(" bytes).");
        return result;
    }
    QSettings settings(path, QSettings::IniFormat);
    if (settings.status() == QSettings::AccessError) {
        result.error = QStringLiteral("Cannot read file ") + path + QStringLiteral(".");
        return result;
    }
    if (settings.status() == QSettings::FormatError) {
        result.error = path + QStringLiteral(" is not a settings file in INI form.");
        return result;
    }
    // beginReadArray reads "size" with toInt(); a value beyond int range
    // reads as 0 and is then simply an empty array.
    const int size = settings.beginReadArray(kArrayName);
    if (size < 1) {
        settings.endArray();
        return result;
    }
    if (size > kMaxRoiEntries) {
        settings.endArray();
        result.error = path + QStringLiteral(" announces ") + QString::number(size)
                       + QStringLiteral(" regions; at most ") + QString::number(kMaxRoiEntries)
                       + QStringLiteral(" are accepted.");
        return result;
    }
    result.rects.reserve(size);
    for (int i = 0; i < size; ++i) {
        settings.setArrayIndex(i);
        double values[4]; // height, width, top, left: the order they are read in
        const char *const keys[4] = {"height", "width", "top", "left"};
        for (int k = 0; k < 4; ++k) {
            values[k] = readNumber(settings, QLatin1String(keys[k]));
            if (std::abs(values[k]) > kMaxRoiCoordinate) {
                settings.endArray();
                result.rects.clear();
                result.error = path + QStringLiteral(": region ") + QString::number(i + 1)
                               + QStringLiteral(" has ") + QLatin1String(keys[k])
                               + QStringLiteral(" = ") + QString::number(values[k], 'g', 17)
                               + QStringLiteral("; values beyond ")
                               + QString::number(kMaxRoiCoordinate, 'f', 0)
                               + QStringLiteral(" pixels are refused.");
                return result;
            }
        }
        result.rects.append(QRectF(values[3], values[2], values[1], values[0]));
    }
    settings.endArray();
    result.ok = true;
    return result;
}

bool writeRoiFile(const QString &path, const QVector<QRectF> &rects, QString *error)
{
    auto fail = [&](const QString &text) {
        if (error)
            *error = text;
        return false;
    };
    if (path.isEmpty())
        return fail(QStringLiteral("No file name given."));
    const QFileInfo info(path);
    if (info.exists() && !info.isFile())
        return fail(QStringLiteral("Cannot write ") + path + QStringLiteral(": it is not a file."));
    // The settings class would create missing folders; a region file goes
    // only into a folder that exists.
    if (!info.absoluteDir().exists())
        return fail(QStringLiteral("Cannot write ") + path
                    + QStringLiteral(": the folder does not exist."));
    QSettings settings(path, QSettings::IniFormat);
    if (!settings.isWritable())
        return fail(QStringLiteral("Cannot write ") + path + QStringLiteral("."));
    // The size is given up front so that an empty set also overwrites the
    // count of an earlier, longer array.
    settings.beginWriteArray(kArrayName, rects.size());
    for (int i = 0; i < rects.size(); ++i) {
        const QRect r = roiStoredRect(rects.at(i));
        settings.setArrayIndex(i);
        settings.setValue(QStringLiteral("left"), r.x());
        settings.setValue(QStringLiteral("top"), r.y());
        settings.setValue(QStringLiteral("width"), r.width());
        settings.setValue(QStringLiteral("height"), r.height());
    }
    settings.endArray();
    // The settings class writes through a temporary file and renames it, so
    // a failed write leaves the previous file untouched.
    settings.sync();
    if (settings.status() != QSettings::NoError)
        return fail(QStringLiteral("Cannot write ") + path + QStringLiteral("."));
    return true;
}

} // namespace kestro
