#include "imaging/gui/frameset_dialog.h"

#include "imaging/frameset.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>

namespace kestro {

static QString startFolder(const QString &lastDirectory)
{
    return lastDirectory.isEmpty() ? QDir::homePath() : lastDirectory;
}

bool loadFrameSetFiles(CFrameSet &set, const QStringList &files, QString &lastDirectory)
{
    if (files.isEmpty())
        return false;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    set.loadFiles(files);
    lastDirectory = QFileInfo(files.first()).absolutePath();
    QApplication::restoreOverrideCursor();
    return true;
}

bool loadFrameSetWithDialog(QWidget *parent, CFrameSet &set, QString &lastDirectory)
{
    const QStringList files
            = QFileDialog::getOpenFileNames(parent, QString::fromLatin1(kOpenChartFilesTitle),
                                            startFolder(lastDirectory),
                                            QString::fromLatin1(kImageFilesFilterWithRaw));
    return loadFrameSetFiles(set, files, lastDirectory);
}

QString chooseImageFile(QWidget *parent, const QString &title, QString &lastDirectory)
{
    const QString file = QFileDialog::getOpenFileName(parent, title, startFolder(lastDirectory),
                                                      QString::fromLatin1(kImageFilesFilter));
    if (!file.isEmpty())
        lastDirectory = QFileInfo(file).absolutePath();
    return file;
}

} // namespace kestro
