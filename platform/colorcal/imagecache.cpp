#include "imagecache.h"

#include "imaging/imageload.h"

#include <QDateTime>
#include <QFileInfo>
#include <list>
#include <mutex>

namespace kestro::colorcal {

namespace {

struct Entry
{
    QString path;
    qint64 modified = 0;
    qint64 size = 0;
    QImage image;
};

// Bounded by count and by bytes: a few large frames at most.
const int kMaxEntries = 4;
const qint64 kMaxBytes = qint64(512) * 1024 * 1024;

// A standard mutex, so that the thread sanitizer sees it.
std::mutex &cacheMutex()
{
    static std::mutex m;
    return m;
}

std::list<Entry> &entries()
{
    static std::list<Entry> list; // most recently used first
    return list;
}

QImage decode(const QString &path, QString *error)
{
    // The shared loader: regular files only, size checked before decoding.
    const ImageLoadResult read = readImageFile(path);
    if (!read.ok()) {
        if (error)
            *error = imageLoadReason(read);
        return QImage();
    }
    const QImage &image = read.image;
    switch (image.format()) {
    case QImage::Format_Grayscale8:
    case QImage::Format_RGB32:
    case QImage::Format_ARGB32:
        return image;
    case QImage::Format_Indexed8:
    case QImage::Format_Mono:
    case QImage::Format_MonoLSB:
        if (image.allGray())
            return image.convertToFormat(QImage::Format_Grayscale8);
        return image.convertToFormat(QImage::Format_RGB32);
    case QImage::Format_Grayscale16:
        return image.convertToFormat(QImage::Format_Grayscale8);
    default:
        return image.convertToFormat(image.hasAlphaChannel() ? QImage::Format_ARGB32
                                                             : QImage::Format_RGB32);
    }
}

// Keeps `image` as the decoded picture of the file and bounds the cache.
void remember(const QString &key, qint64 modified, qint64 size, const QImage &image)
{
    std::lock_guard<std::mutex> lock(cacheMutex());
    auto &list = entries();
    list.remove_if([&](const Entry &e) { return e.path == key; });
    list.push_front({key, modified, size, image});
    qint64 bytes = 0;
    int count = 0;
    for (auto it = list.begin(); it != list.end();) {
        bytes += it->image.sizeInBytes();
        ++count;
        if (it != list.begin() && (count > kMaxEntries || bytes > kMaxBytes)) {
            bytes -= it->image.sizeInBytes();
            --count;
            it = list.erase(it);
        } else
            ++it;
    }
}

} // namespace

QImage cacheWrittenPicture(const QString &path, const QImage &picture)
{
    const QFileInfo info(path);
    if (picture.isNull() || path.isEmpty() || !info.isFile())
        return QImage();
    const QImage decoded = picture.format() == QImage::Format_Grayscale8
                                   ? picture
                                   : picture.convertToFormat(QImage::Format_RGB32);
    if (decoded.isNull())
        return decoded;
    remember(info.absoluteFilePath(), info.lastModified().toMSecsSinceEpoch(), info.size(), decoded);
    return decoded;
}

QImage loadImageCached(const QString &path, QString *error)
{
    const QFileInfo info(path);
    if (path.isEmpty() || !info.exists()) {
        if (error)
            *error = QStringLiteral("the file does not exist or cannot be read");
        return QImage();
    }
    const QString key = info.absoluteFilePath();
    const qint64 modified = info.lastModified().toMSecsSinceEpoch();
    const qint64 size = info.size();
    {
        std::lock_guard<std::mutex> lock(cacheMutex());
        auto &list = entries();
        for (auto it = list.begin(); it != list.end(); ++it) {
            if (it->path == key && it->modified == modified && it->size == size) {
                list.splice(list.begin(), list, it);
                return list.front().image;
            }
        }
    }
    // Decoding runs outside the lock; two threads asking for the same new
    // file at once both decode it, which costs time but stays correct.
    QImage image = decode(path, error);
    if (!image.isNull())
        remember(key, modified, size, image);
    return image;
}

void clearImageCache()
{
    std::lock_guard<std::mutex> lock(cacheMutex());
    entries().clear();
}

int imageCacheSize()
{
    std::lock_guard<std::mutex> lock(cacheMutex());
    return static_cast<int>(entries().size());
}

} // namespace kestro::colorcal
