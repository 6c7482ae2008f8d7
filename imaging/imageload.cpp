#include "imaging/imageload.h"

#include <QFileInfo>
#include <QImageReader>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace kestro {

ImageLoadError openRegularFile(QFile &file, const QString &path, QString *detail)
{
    if (file.isOpen())
        file.close();
    if (path.isEmpty())
        return ImageLoadError::Missing;
#ifdef Q_OS_UNIX
    // Opened without blocking and checked on the open descriptor: a named
    // pipe would otherwise block the open until a writer appears, and a
    // check by name before the open could be raced by a rename.
    const QByteArray name = QFile::encodeName(path);
    const int fd = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        const int err = errno;
        if (err == ENOENT || err == ENOTDIR)
            return ImageLoadError::Missing;
        if (detail)
            *detail = QString::fromLocal8Bit(std::strerror(err));
        return ImageLoadError::Unreadable;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return ImageLoadError::NotRegularFile;
    }
    // Regular files never block; the flag goes so that reads behave normally.
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags != -1)
        ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        if (detail)
            *detail = file.errorString();
        return ImageLoadError::Unreadable;
    }
    return ImageLoadError::None;
#else
    const QFileInfo info(path);
    if (!info.exists())
        return ImageLoadError::Missing;
    if (!info.isFile())
        return ImageLoadError::NotRegularFile;
    file.setFileName(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (detail)
            *detail = file.errorString();
        return ImageLoadError::Unreadable;
    }
    return ImageLoadError::None;
#endif
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

QString imageLoadErrorText(ImageLoadError error, const QString &path, const QString &detail,
                           const QSize &declaredSize)
{
    // Built by concatenation: a file name may itself contain "%1".
    const QString head = QStringLiteral("cannot read ") + path;
    switch (error) {
    case ImageLoadError::None:
        return QString();
    case ImageLoadError::Missing:
        return head + QStringLiteral(": no such file");
    case ImageLoadError::NotRegularFile:
        return head + QStringLiteral(": not a regular file");
    case ImageLoadError::Unreadable:
        return head + QStringLiteral(": ")
               + (detail.isEmpty() ? QStringLiteral("permission denied") : detail);
    case ImageLoadError::TooLarge:
        return head + QStringLiteral(": the picture is ") + QString::number(declaredSize.width())
               + QStringLiteral(" x ") + QString::number(declaredSize.height())
               + QStringLiteral(" pixels; at most ") + QString::number(kMaxImagePixels / 1000000)
               + QStringLiteral(" megapixels are accepted");
    case ImageLoadError::Undecodable:
        return head + QStringLiteral(" as an image: ")
               + (detail.isEmpty() ? QStringLiteral("unknown format") : detail);
    }
    return head;
}

QString imageLoadErrorText(const ImageLoadResult &result, const QString &path)
{
    return imageLoadErrorText(result.error, path, result.detail, result.declaredSize);
}

QImage loadImage(const QString &path, QString *error)
{
    ImageLoadResult result = readImageFile(path);
    if (error)
        *error = imageLoadErrorText(result, path);
    return result.image;
}

} // namespace kestro
