#include "platform/tarnlib/inifile.h"

#include <QFile>
#include <QFileInfo>
#include <QList>

#include <cerrno>

#ifdef Q_OS_UNIX
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace tarn {

int openRegularFile(QFile &file, const QString &path)
{
    if (path.isEmpty())
        return ENOENT;
#ifdef Q_OS_UNIX
    // Non-blocking open, then the type of what was opened: checking the name
    // first would leave a window for a rename, and a blocking open of a named
    // pipe waits for a writer.
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return errno;
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return kNotRegularFile;
    }
    // A regular file never blocks; reads then behave as usual.
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        return EIO;
    }
    return 0;
#else
    const QFileInfo info(path);
    if (!info.exists())
        return ENOENT;
    if (!info.isFile())
        return kNotRegularFile;
    file.setFileName(path);
    return file.open(QIODevice::ReadOnly) ? 0 : EACCES;
#endif
}

static QString joinKey(const QString &group, const QString &key)
{
    return group + QLatin1Char('/') + key;
}

IniFile IniFile::parse(const QByteArray &text)
{
    IniFile ini;
    QString group = QStringLiteral("General");
    const bool bom = text.startsWith("\xEF\xBB\xBF");
    const QList<QByteArray> lines = (bom ? text.mid(3) : text).split('\n');
    for (QByteArray line : lines) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(';') || line.startsWith('#'))
            continue;
        if (line.startsWith('[')) {
            const int end = line.indexOf(']');
            if (end > 1) {
                group = QString::fromUtf8(line.mid(1, end - 1)).trimmed();
                if (!ini.m_groups.contains(group))
                    ini.m_groups << group;
            }
            continue;
        }
        const int eq = line.indexOf('=');
        if (eq <= 0)
            continue;
        const QString key = QString::fromUtf8(line.left(eq)).trimmed();
        QString value = QString::fromUtf8(line.mid(eq + 1)).trimmed();
        if (value.size() >= 2 && value.startsWith(QLatin1Char('"'))
            && value.endsWith(QLatin1Char('"')))
            value = value.mid(1, value.size() - 2);
        // The first occurrence of a key wins, as in the sensor tools' files.
        const QString full = joinKey(group, key);
        if (!ini.m_values.contains(full)) {
            ini.m_values.insert(full, value);
            ini.m_order.append(qMakePair(group, key));
        }
    }
    return ini;
}

IniFile IniFile::read(const QString &path, bool *ok, qint64 maxBytes)
{
    QFile file;
    *ok = false;
    if (openRegularFile(file, path) != 0)
        return IniFile();
    const qint64 size = file.size();
    if (size > maxBytes)
        return IniFile();
    const QByteArray text = file.read(maxBytes + 1);
    if (text.size() > maxBytes)
        return IniFile();
    *ok = true;
    return parse(text);
}

bool IniFile::contains(const QString &group, const QString &key) const
{
    return m_values.contains(joinKey(group, key));
}

QString IniFile::value(const QString &group, const QString &key) const
{
    return m_values.value(joinKey(group, key));
}

bool IniFile::hasGroup(const QString &group) const
{
    return m_groups.contains(group);
}

QStringList IniFile::keys(const QString &group) const
{
    QStringList result;
    for (const auto &entry : m_order) {
        if (entry.first == group)
            result << entry.second;
    }
    return result;
}

long long IniFile::integer(const QString &group, const QString &key, bool *ok) const
{
    *ok = false;
    const auto it = m_values.constFind(joinKey(group, key));
    if (it == m_values.constEnd())
        return 0;
    const QString text = it.value();
    bool converted = false;
    long long number = 0;
    if (text.startsWith(QLatin1String("0x")) || text.startsWith(QLatin1String("0X")))
        number = text.mid(2).toLongLong(&converted, 16);
    else
        number = text.toLongLong(&converted, 10);
    if (!converted)
        return 0;
    *ok = true;
    return number;
}

} // namespace tarn
