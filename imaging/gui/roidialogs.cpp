#include "imaging/gui/roidialogs.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>

namespace kestro {

namespace {
const char kRoiFilter[] = "ROI (*.roi)";
}

QString acceptRoiFileToLoad(QWidget *parent, const QString &chosen, QString &lastRoiPath)
{
    if (chosen.isEmpty())
        return QString();
    if (!QFileInfo::exists(chosen)) {
        QMessageBox::warning(parent, QStringLiteral("Load marker position"),
                             QStringLiteral("Cannot load file %1.").arg(chosen), QMessageBox::Ok);
        return QString();
    }
    lastRoiPath = chosen;
    return chosen;
}

QString askRoiFileToLoad(QWidget *parent, QString &lastRoiPath)
{
    const QString chosen = QFileDialog::getOpenFileName(parent, QStringLiteral("Load region data"),
                                                        lastRoiPath, QLatin1String(kRoiFilter));
    return acceptRoiFileToLoad(parent, chosen, lastRoiPath);
}

QString askRoiFileToSave(QWidget *parent, QString &lastRoiPath)
{
    const QString chosen = QFileDialog::getSaveFileName(parent, QStringLiteral("Save region data"),
                                                        lastRoiPath, QLatin1String(kRoiFilter));
    if (chosen.isEmpty())
        return QString();
    lastRoiPath = chosen;
    return chosen;
}

} // namespace kestro
