// libFuzzer harness of the ROI file reader: arbitrary bytes as a region file
// must give regions or a refusal, never a crash, a hang or a huge allocation.
#include "imaging/roifile.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static QTemporaryDir dir;
    static unsigned long long counter = 0;
    // A new name each time: the settings class caches parsed files by name.
    const QString path = dir.filePath(QStringLiteral("in%1.roi").arg(++counter));
    {
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly))
            return 0;
        f.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size));
    }
    const kestro::RoiReadResult result = kestro::readRoiFile(path);
    if (result.ok && (result.rects.isEmpty() || result.rects.size() > kestro::kMaxRoiEntries))
        __builtin_trap();
    for (const QRectF &r : result.rects) {
        // Values are finite (unconvertible ones read as 0); the stored form
        // must be computable for every one of them.
        if (!qIsFinite(r.x()) || !qIsFinite(r.y()) || !qIsFinite(r.width())
            || !qIsFinite(r.height()))
            __builtin_trap();
        (void) kestro::roiStoredRect(r);
    }
    QFile::remove(path);
    return 0;
}
