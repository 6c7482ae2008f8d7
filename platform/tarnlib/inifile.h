#pragma once
// A small, strict INI reader for sidecar and sensor data files. It never
// caches (unlike QSettings), bounds what it reads, and keeps keys
// case-sensitive as they are written.

#include <QByteArray>
#include <QFile>
#include <QHash>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

namespace tarn {

// Opens a regular file for reading without ever blocking on a named pipe
// or device. Returns 0 on success; otherwise the file stays closed and the
// result is kNotRegularFile or the system's error number (ENOENT, EACCES...).
constexpr int kNotRegularFile = -1;
int openRegularFile(QFile &file, const QString &path);

class IniFile
{
public:
    // Parses INI text: "[Group]" lines, "Key=Value" lines, ';' or '#'
    // comments. Keys outside any group belong to the group "General". A
    // UTF-8 byte-order mark at the start is skipped.
    static IniFile parse(const QByteArray &text);
    // Reads a regular file of at most maxBytes; ok is false when it is
    // missing, not a regular file (a named pipe is never waited on), cannot
    // be read or is larger.
    static IniFile read(const QString &path, bool *ok, qint64 maxBytes = 1 << 20);

    bool contains(const QString &group, const QString &key) const;
    QString value(const QString &group, const QString &key) const;

    // Integer value: decimal, or hexadecimal with 0x. ok is false when the
    // key is missing or the value is not a whole number in range.
    long long integer(const QString &group, const QString &key, bool *ok) const;

    bool hasGroup(const QString &group) const;
    // Keys of a group in file order.
    QStringList keys(const QString &group) const;

private:
    QHash<QString, QString> m_values;       // "group/key" -> value
    QList<QPair<QString, QString>> m_order; // (group, key) in file order
    QStringList m_groups;
};

} // namespace tarn
