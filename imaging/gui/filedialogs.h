#pragma once
// The program's open and save file dialogs. They share one memory of the
// last folders: open dialogs start in the last open folder, save dialogs in
// the last save folder (both the home folder until a file is chosen). A
// chosen file's folder becomes the new start folder. Paths come back with
// native separators.

#include "imaging/frameset.h"

#include <QString>
#include <QStringList>

class QWidget;

namespace kestro {

QString lastOpenDirectory();
QString lastSaveDirectory();
void setLastOpenDirectory(const QString &folder);
void setLastSaveDirectory(const QString &folder);

// Empty (or an empty list) when the user cancels.
QString chooseOpenFile(QWidget *parent, const QString &caption, const QString &filter);
QStringList chooseOpenFiles(QWidget *parent, const QString &caption, const QString &filter);
QString chooseSaveFile(QWidget *parent, const QString &caption, const QString &filter);
// The same dialogs opening at `start` (a file or a folder) instead of the last
// folder, for callers that keep a memory of their own; the chosen file's
// folder is remembered all the same. An empty `start` is the last folder.
QString chooseOpenFileFrom(QWidget *parent, const QString &caption, const QString &filter,
                           const QString &start);
QString chooseSaveFileFrom(QWidget *parent, const QString &caption, const QString &filter,
                           const QString &start);

// The open dialog of a page that measures one chart picture.
inline QString chooseChartPicture(QWidget *parent)
{
    return chooseOpenFile(parent, QStringLiteral("Open Chart File"),
                          QString::fromLatin1(kImageFilesFilter));
}

} // namespace kestro
