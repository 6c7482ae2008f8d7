#include "imaging/gui/roidialogs.h"

#include "imaging/gui/filedialogs.h"
#include "imaging/gui/messages.h"

#include <QFileInfo>

namespace kestro {

namespace {
const char kRoiFilter[] = "ROI (*.roi)";
}

QString acceptRoiFileToLoad(QWidget *parent, const QString &chosen, QString &lastRoiPath)
{
    if (chosen.isEmpty())
        return QString();
    if (!QFileInfo::exists(chosen)) {
        showMessage(parent, QMessageBox::Warning, QStringLiteral("Load marker position"),
                    QStringLiteral("Cannot load file %1.").arg(chosen));
        return QString();
    }
    lastRoiPath = chosen;
    return chosen;
}

// The dialogs open at the view's last ROI file; until it has one, in the
// program's last folder.
QString askRoiFileToLoad(QWidget *parent, QString &lastRoiPath)
{
    const QString chosen = chooseOpenFileFrom(parent, QStringLiteral("Load region data"),
                                              QLatin1String(kRoiFilter), lastRoiPath);
    return acceptRoiFileToLoad(parent, chosen, lastRoiPath);
}

QString askRoiFileToSave(QWidget *parent, QString &lastRoiPath)
{
    const QString chosen = chooseSaveFileFrom(parent, QStringLiteral("Save region data"),
                                              QLatin1String(kRoiFilter), lastRoiPath);
    if (chosen.isEmpty())
        return QString();
    lastRoiPath = chosen;
    return chosen;
}

} // namespace kestro
