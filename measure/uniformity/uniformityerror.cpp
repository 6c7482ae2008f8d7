#include "measure/uniformity/uniformityerror.h"

#include "measure/uniformity/cpiq.h"

namespace kestro {

const char kUniformitySubsampleMessage[]
        = "Cannot display subsampled image. Please input valid subsampling size (1 - Height/8 or Width/8).";
const char kUniformityLoadFailureTitle[] = "File load failure";
const char kUniformityInvalidFormatTitle[] = "Invalid format";

QString uniformityErrorText(const UniformityFailure &failure)
{
    switch (failure.error) {
    case UniformityError::None:
        break;
    case UniformityError::LoadFailure:
        return QStringLiteral("Failed to load the file : ") + failure.fileName;
    case UniformityError::InvalidFormat:
        return QStringLiteral(
                       "Only RGB files are supported for this test. Failed to load the file : ")
               + failure.fileName;
    case UniformityError::InvalidSubsample:
        return QString::fromLatin1(kUniformitySubsampleMessage);
    case UniformityError::InvalidCenterPercent:
        return QStringLiteral("Invalid centre percentage %1: give a value from 0 to 100.")
                .arg(failure.value);
    case UniformityError::InvalidCornerPercent:
        return QStringLiteral("Invalid corner percentage %1: give a value from 0 to 100.")
                .arg(failure.value);
    case UniformityError::InvalidCpiqGrid:
        return QStringLiteral("Invalid CPIQ zone grid %1 x %2 for a %3 x %4 image (1 to %5 zones "
                              "per side, at least one pixel per zone)")
                .arg(QString::number(failure.zoneRows), QString::number(failure.zoneCols),
                     QString::number(failure.width), QString::number(failure.height),
                     QString::number(kCpiqMaxZones));
    case UniformityError::NoCpiqZones:
        return QStringLiteral("No CPIQ zones");
    case UniformityError::NoImage:
        return QStringLiteral("No RGB image");
    }
    return QString();
}

QString uniformityErrorTitle(UniformityError error)
{
    switch (error) {
    case UniformityError::LoadFailure:
        return QString::fromLatin1(kUniformityLoadFailureTitle);
    case UniformityError::InvalidFormat:
        return QString::fromLatin1(kUniformityInvalidFormatTitle);
    default:
        return QString();
    }
}

QString uniformityLoadFailureText(const QString &fileName)
{
    return uniformityErrorText({UniformityError::LoadFailure, fileName});
}

QString uniformityInvalidFormatText(const QString &fileName)
{
    return uniformityErrorText({UniformityError::InvalidFormat, fileName});
}

bool isValidUniformityPercent(int percent)
{
    return percent >= 0 && percent <= 100;
}

} // namespace kestro
