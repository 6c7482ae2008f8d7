#pragma once
// The frame-set load with its open dialog, shared by the views that keep a
// frame set.

#include <QString>
#include <QStringList>

class QWidget;

namespace kestro {

class CFrameSet;

// Asks for one or more image files (raw files included) in the open dialog
// titled kOpenChartFilesTitle, starting in lastDirectory (the home folder
// when empty). An empty choice changes nothing and returns false. Otherwise
// the set is cleared and loaded from the files under the wait cursor, the
// folder of the first file becomes lastDirectory, and true is returned; the
// caller refreshes its view.
bool loadFrameSetWithDialog(QWidget *parent, CFrameSet &set, QString &lastDirectory);

// The load step alone (no dialog): used by the function above and by callers
// that already have the file list. Returns false for an empty list.
bool loadFrameSetFiles(CFrameSet &set, const QStringList &files, QString &lastDirectory);

// Asks for one image file without raw files (the tabs that take a single
// image), starting in lastDirectory; updates it when a file is chosen.
// Returns the chosen path or an empty text.
QString chooseImageFile(QWidget *parent, const QString &title, QString &lastDirectory);

} // namespace kestro
