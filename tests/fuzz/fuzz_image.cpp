// libFuzzer harness for image files: the shared loader, then a frame made
// from the same bytes. Every input must end in a picture within the size
// limit or in a failure with a reason, never in a crash or a huge
// allocation.
#include "imaging/frame.h"
#include "imaging/imageload.h"

#include <QFile>
#include <QTemporaryDir>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
    static QTemporaryDir dir;
    const QString path = dir.filePath("input.img");
    {
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
            std::abort();
        f.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size));
    }
    const kestro::ImageLoadResult r = kestro::readImageFile(path);
    if (r.ok() == r.image.isNull())
        std::abort();
    if (r.ok() && qint64(r.image.width()) * r.image.height() > kestro::kMaxImagePixels)
        std::abort();
    if (!r.ok() && kestro::imageLoadErrorText(r, path).isEmpty())
        std::abort();

    CFrame frame;
    if (frame.load(path)) {
        const auto block = frame.pixels();
        if (block->dataSize != block->bytesPerLine * block->height || !block->data())
            std::abort();
        (void) block->linearData();
    } else if (frame.errorText().isEmpty()) {
        std::abort();
    }
    return 0;
}
