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
    QImageReader reader(&file);
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
