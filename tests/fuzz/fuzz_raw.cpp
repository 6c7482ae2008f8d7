// libFuzzer harness for the raw reader: file bytes and sidecar INI text.
//
// Input layout: byte 0 holds flags (bit 0: write a sidecar), bytes 1-2 the
// sidecar length (little-endian, cut to what is there); then the sidecar
// text, then the raw file bytes. Without a sidecar the sensor data folder
// (one small sensor of 8 x 6 samples, 10 bits, 96 bytes) describes the file.
#include "imaging/frame.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

struct Workspace
{
    QTemporaryDir dir;
    QString raw, ini;
    Workspace()
    {
        raw = dir.filePath("f.raw");
        ini = dir.filePath("f.ini");
        QDir(dir.path()).mkdir("sensors");
        QFile sensor(dir.filePath("sensors/FZ-REV1.sdat"));
        sensor.open(QIODevice::WriteOnly);
        sensor.write("[Sensor]\nName=FZ\nRevision=1\n[Frame]\nWidth=8\nHeight=6\nBitsPerPixel=10\n"
                     "ImageType=1\nBayerOrder=2\nBlackLevel=64\n");
        sensor.close();
        qputenv("KESTRO_SENSOR_DATA", QFile::encodeName(dir.filePath("sensors")));
    }
};

void writeFile(const QString &path, const std::uint8_t *data, size_t size)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        std::abort();
    f.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
    static Workspace workspace;
    if (size < 3)
        return 0;
    const bool sidecar = data[0] & 1;
    size_t iniSize = data[1] | (static_cast<size_t>(data[2]) << 8);
    data += 3;
    size -= 3;
    if (iniSize > size)
        iniSize = size;
    if (sidecar)
        writeFile(workspace.ini, data, iniSize);
    else
        QFile::remove(workspace.ini);
    writeFile(workspace.raw, data + iniSize, size - iniSize);

    CFrame frame;
    if (frame.load(workspace.raw)) {
        // Every accessor on the loaded frame must stay inside its buffers.
        const std::uint8_t *bytes = frame.data();
        unsigned sum = 0;
        for (int i = 0; i < frame.dataSize(); ++i)
            sum += bytes[i];
        const QImage image = frame.image();
        if (!image.isNull()
            && (image.width() != (frame.width() & ~1) - 4
                || image.height() != (frame.height() & ~1) - 4))
            std::abort();
        if (frame.dataSize() != frame.width() * frame.height() * 2)
            std::abort();
        CFrame copy(frame);
        if (!copy.isCompatible(frame))
            std::abort();
        (void) copy.linearData();
        (void) sum;
    } else if (frame.isValid()) {
        std::abort();
    }
    return 0;
}
