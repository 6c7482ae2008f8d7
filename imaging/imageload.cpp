#include "imaging/imageload.h"

#include "platform/tarnlib/inifile.h"

#include <QImageReader>
#include <cerrno>
#include <cstring>

namespace kestro {

ImageLoadError openRegularFile(QFile &file, const QString &path, QString *detail)
{
    if (file.isOpen())
        file.close();
    const int status = tarn::openRegularFile(file, path);
    if (status == 0)
        return ImageLoadError::None;
    if (status == tarn::kNotRegularFile)
        return ImageLoadError::NotRegularFile;
    if (status == ENOENT || status == ENOTDIR)
        return ImageLoadError::Missing;
    if (detail)
        *detail = QString::fromLocal8Bit(std::strerror(status));
    return ImageLoadError::Unreadable;
}

namespace {

// The format that the file's first bytes name, for the formats with an
// unmistakable signature; empty for any other content. A reader given no
// format asks every image plugin in turn whether it can read the device,
// which loads all of them and their libraries (a vector-graphics plugin
// brings the whole widget library) for the first picture a program reads.
QByteArray signatureFormat(QIODevice &device)
{
    const QByteArray head = device.peek(32);
    const auto starts = [&head](const char *magic, int size) {
        return head.size() >= size && std::memcmp(head.constData(), magic, size) == 0;
    };
    if (starts("\x89PNG\r\n\x1a\n", 8))
        return "png";
    if (starts("\xff\xd8\xff", 3))
        return "jpeg";
    if (starts("II*\0", 4) || starts("MM\0*", 4))
        return "tiff";
    if (starts("GIF87a", 6) || starts("GIF89a", 6))
        return "gif";
    if (starts("RIFF", 4) && head.size() >= 12 && head.mid(8, 4) == "WEBP")
        return "webp";
    // BMP: "BM" and one of the known sizes of the information header.
    if (starts("BM", 2) && head.size() >= 18) {
        const auto *b = reinterpret_cast<const uchar *>(head.constData());
        const quint32 infoSize = b[14] | b[15] << 8 | b[16] << 16 | quint32(b[17]) << 24;
        for (quint32 known : {12u, 40u, 52u, 56u, 64u, 108u, 124u}) {
            if (infoSize == known)
                return "bmp";
        }
    }
    return QByteArray();
}

} // namespace

ImageLoadResult readImageFile(const QString &path)
{
    ImageLoadResult result;
    QFile file;
    result.error = openRegularFile(file, path, &result.detail);
    if (!result.ok())
        return result;

    // The format comes from the content, not from the suffix; pixels are
    // taken as stored (no orientation tag applied), so that region
    // coordinates mean the same picture in every engine.
    const QByteArray format = signatureFormat(file);
    QImageReader reader(&file, format);
    // With a format known, the reader is kept from probing every plugin.
    reader.setAutoDetectImageFormat(format.isEmpty());
    reader.setAutoTransform(false);
    auto tooLarge = [](const QSize &size) {
        return size.isValid() && qint64(size.width()) * qint64(size.height()) > kMaxImagePixels;
    };
    // The header's declared size, before a single pixel is decoded. A reader
    // that cannot tell it beforehand is checked on the decoded picture.
    result.declaredSize = reader.size();
    if (tooLarge(result.declaredSize)) {
        result.error = ImageLoadError::TooLarge;
        return result;
    }
    QImage image;
    if (!reader.read(&image) || image.isNull()) {
        result.error = ImageLoadError::Undecodable;
        result.detail = reader.errorString();
        return result;
    }
    if (tooLarge(image.size())) {
        result.declaredSize = image.size();
        result.error = ImageLoadError::TooLarge;
        return result;
    }
    result.image = image;
    return result;
}

namespace {

QString reasonText(ImageLoadError error, const QString &detail, const QSize &declaredSize)
{
    switch (error) {
    case ImageLoadError::None:
        return QString();
    case ImageLoadError::Missing:
        return QStringLiteral("no such file");
    case ImageLoadError::NotRegularFile:
        return QStringLiteral("not a regular file");
    case ImageLoadError::Unreadable:
        return detail.isEmpty() ? QStringLiteral("permission denied") : detail;
    case ImageLoadError::TooLarge:
        return QStringLiteral("the picture is ") + QString::number(declaredSize.width())
               + QStringLiteral(" x ") + QString::number(declaredSize.height())
               + QStringLiteral(" pixels; at most ") + QString::number(kMaxImagePixels / 1000000)
               + QStringLiteral(" megapixels are accepted");
    case ImageLoadError::Undecodable:
        return detail.isEmpty() ? QStringLiteral("unknown format") : detail;
    }
    return detail;
}

} // namespace

QString imageLoadErrorText(ImageLoadError error, const QString &path, const QString &detail,
                           const QSize &declaredSize)
{
    if (error == ImageLoadError::None)
        return QString();
    // Built by concatenation: a file name may itself contain "%1".
    return QStringLiteral("cannot read ") + path
           + (error == ImageLoadError::Undecodable ? QStringLiteral(" as an image: ")
                                                   : QStringLiteral(": "))
           + reasonText(error, detail, declaredSize);
}

QString imageLoadErrorText(const ImageLoadResult &result, const QString &path)
{
    return imageLoadErrorText(result.error, path, result.detail, result.declaredSize);
}

QString imageLoadReason(const ImageLoadResult &result)
{
    return reasonText(result.error, result.detail, result.declaredSize);
}

QImage loadImage(const QString &path, QString *error)
{
    ImageLoadResult result = readImageFile(path);
    if (error)
        *error = imageLoadErrorText(result, path);
    return result.image;
}

} // namespace kestro
