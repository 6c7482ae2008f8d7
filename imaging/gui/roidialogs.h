#pragma once
// The load and save dialogs of ROI files. Each view that offers them keeps
// its own last ROI file path, which the dialogs start from and update.

#include <QString>

class QWidget;

namespace kestro {

// Asks for an ROI file to load ("Load region data", "ROI (*.roi)"). Returns
// the chosen path, remembered in lastRoiPath, when the file exists. An empty
// answer returns an empty string; a file that does not exist shows the
// warning "Load marker position" / "Cannot load file %1." and returns an
// empty string, leaving lastRoiPath as it was.
QString askRoiFileToLoad(QWidget *parent, QString &lastRoiPath);

// The check that follows the open dialog, for a path already chosen.
QString acceptRoiFileToLoad(QWidget *parent, const QString &chosen, QString &lastRoiPath);

// Asks for an ROI file to save into ("Save region data", "ROI (*.roi)").
// Returns the chosen path, remembered in lastRoiPath; empty when cancelled.
QString askRoiFileToSave(QWidget *parent, QString &lastRoiPath);

} // namespace kestro
