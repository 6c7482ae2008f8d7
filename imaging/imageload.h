#pragma once
// The one way to read a picture from disk. Every engine, command and page
// that opens an image file goes through here so that all of them share the
// same guarantees:
//  - only regular files are opened: a named pipe, a device or a folder is
//    refused at once instead of blocking the caller or reading forever;
//  - the declared size is read from the header before anything is decoded,
//    and a picture above kMaxImagePixels is refused (a small compressed file
//    can declare a picture that would take many gigabytes);
//  - a failure keeps its reason, including the decoder's own;
//  - file names in any script work (the name goes through the platform's
//    file-name encoding, never Latin-1).
//
// Typical use:
//     QString error;
//     const QImage image = kestro::loadImage(path, &error);
//     if (image.isNull())
//         return fail(error); // "cannot read /x/a.png: ..."
// or, when the caller wants to branch on the cause:
//     const kestro::ImageLoadResult r = kestro::readImageFile(path);
//     if (r.error == kestro::ImageLoadError::TooLarge) ...

#include <QFile>
#include <QImage>
#include <QSize>
#include <QString>

namespace kestro {

// Largest picture accepted, in pixels (width x height): 250 megapixels.
// That is five times the largest sensor frame the tool is made for, and it
// keeps a decoded 32-bit picture near one gigabyte.
constexpr qint64 kMaxImagePixels = 250000000;

enum class ImageLoadError {
    None,
    Missing,        // no file at that path (or an empty path)
    NotRegularFile, // a folder, named pipe, socket or device
    Unreadable,     // exists but cannot be opened for reading
    TooLarge,       // the declared size is above the limit
    Undecodable,    // no decoder recognises it, or the decoder failed
};

struct ImageLoadResult
{
    QImage image; // null on failure
    ImageLoadError error = ImageLoadError::None;
    QString detail;     // the decoder's or the system's reason
    QSize declaredSize; // from the header, when known
    bool ok() const { return error == ImageLoadError::None; }
};

// Opens `path` for reading when it is a regular file, without ever
// blocking on a named pipe or device. On failure `file` stays closed and
// the cause is returned (with the system's reason in `detail` when there is
// one).
ImageLoadError openRegularFile(QFile &file, const QString &path, QString *detail = nullptr);

// Reads and decodes an image file. The format is taken from the content;
// pixels are returned as stored (orientation tags are not applied).
ImageLoadResult readImageFile(const QString &path);

// The user-facing sentence for a failure, naming the file:
//   "cannot read <path>: no such file"
//   "cannot read <path>: not a regular file"
//   "cannot read <path>: <system reason>"
//   "cannot read <path>: the picture is W x H pixels; at most 250 megapixels are accepted"
//   "cannot read <path> as an image: <decoder reason>"
QString imageLoadErrorText(ImageLoadError error, const QString &path, const QString &detail = {},
                           const QSize &declaredSize = {});
QString imageLoadErrorText(const ImageLoadResult &result, const QString &path);
// The part after the colon alone ("no such file", ...), for callers that put
// the file name into a sentence of their own.
QString imageLoadReason(const ImageLoadResult &result);

// readImageFile() for callers that only need the picture and the sentence.
QImage loadImage(const QString &path, QString *error = nullptr);

} // namespace kestro
