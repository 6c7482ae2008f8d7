#include "imaging/gui/filedialogs.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>

namespace kestro {

namespace {

QString &openFolder()
{
    static QString folder = QDir::homePath();
    return folder;
}

QString &saveFolder()
{
    static QString folder = QDir::homePath();
    return folder;
}

QString remember(QString &folder, const QString &chosen)
{
    if (chosen.isEmpty())
        return chosen;
    folder = QFileInfo(chosen).absolutePath();
    return QDir::toNativeSeparators(chosen);
}

} // namespace

QString lastOpenDirectory()
{
    return openFolder();
}

QString lastSaveDirectory()
{
    return saveFolder();
}

void setLastOpenDirectory(const QString &folder)
{
    openFolder() = folder;
}

void setLastSaveDirectory(const QString &folder)
{
    saveFolder() = folder;
}

QString chooseOpenFile(QWidget *parent, const QString &caption, const QString &filter)
{
    return chooseOpenFileFrom(parent, caption, filter, QString());
}

QString chooseOpenFileFrom(QWidget *parent, const QString &caption, const QString &filter,
                           const QString &start)
{
    return remember(openFolder(),
                    QFileDialog::getOpenFileName(parent, caption,
                                                 start.isEmpty() ? openFolder() : start, filter));
}

QStringList chooseOpenFiles(QWidget *parent, const QString &caption, const QString &filter)
{
    QStringList files = QFileDialog::getOpenFileNames(parent, caption, openFolder(), filter);
    for (QString &file : files)
        file = remember(openFolder(), file);
    return files;
}

QString chooseSaveFile(QWidget *parent, const QString &caption, const QString &filter)
{
    return chooseSaveFileFrom(parent, caption, filter, QString());
}

QString chooseSaveFileFrom(QWidget *parent, const QString &caption, const QString &filter,
                           const QString &start)
{
    return remember(saveFolder(),
                    QFileDialog::getSaveFileName(parent, caption,
                                                 start.isEmpty() ? saveFolder() : start, filter));
}

} // namespace kestro
