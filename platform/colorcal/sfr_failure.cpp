#include "sfr_failure.h"

#include <QString>

namespace kestro::sfr {

std::string failureText(const Failure &f)
{
    const double *v = f.value;
    auto whole = [](double x) { return QString::number(static_cast<qint64>(x)); };
    QString s;
    switch (f.code) {
    case FailureCode::None:
        return std::string();
    case FailureCode::UnreadableImage:
        s = QString("Cannot read the image file %1 (%2): check that it exists and is a "
                    "supported image format.")
                    .arg(QString::fromStdString(f.text[0]), QString::fromStdString(f.text[1]));
        break;
    case FailureCode::BadGamma:
        s = QString("The gamma %1 cannot be used: give a positive value such as 0.45 for "
                    "sRGB-like images or 1.0 for linear ones.")
                    .arg(v[0]);
        break;
    case FailureCode::RegionOutsideImage:
        s = QString("The region (left %1, top %2, width %3, height %4) does not lie inside the "
                    "image (%5 x %6 pixels): draw it on the picture.")
                    .arg(whole(v[0]), whole(v[1]), whole(v[2]), whole(v[3]), whole(v[4]),
                         whole(v[5]));
        break;
    case FailureCode::RegionTooLarge:
        s = QString("The region is too large (%1 x %2 pixels, at most %3 million pixels): draw a "
                    "smaller region around one edge.")
                    .arg(whole(v[0]), whole(v[1]), whole(v[2]));
        break;
    case FailureCode::RegionTooShort:
        s = QString("The region is too short along the edge (%1 pixels, at least %2 needed): "
                    "draw a longer region over the edge.")
                    .arg(whole(v[0]), whole(v[1]));
        break;
    case FailureCode::RegionTooNarrow:
        s = QString("The region is too narrow across the edge (%1 pixels, at least %2 needed): "
                    "widen it so that both sides of the edge are inside.")
                    .arg(whole(v[0]), whole(v[1]));
        break;
    case FailureCode::EdgeTooFaint:
        s = QString("The edge is too faint to locate (contrast %1 %, at least %2 % needed): draw "
                    "the region across a clear dark-to-light edge, or raise the exposure.")
                    .arg(QString::number(v[0] * 100, 'f', 1), QString::number(v[1] * 100, 'f', 0));
        break;
    case FailureCode::BarOrLine:
        s = QStringLiteral("The region holds more than one edge (both ends are alike, with a bar "
                           "or a line between them): draw it over a single edge between two even "
                           "areas.");
        break;
    case FailureCode::NoEdge:
        s = QStringLiteral("No edge found in the region: draw the region across one straight "
                           "slanted edge, with both the dark and the light side inside it.");
        break;
    case FailureCode::AngleNearDiagonal:
        s = QString("The edge angle (%1 degrees) is too close to 45 degrees to be measured "
                    "reliably: use an edge tilted by 2 to 10 degrees from the vertical or the "
                    "horizontal.")
                    .arg(QString::number(v[0], 'f', 1));
        break;
    case FailureCode::AngleNearAxis:
        s = QString("The edge angle (%1 degrees) is too close to 0 degrees to be measured "
                    "reliably: tilt the chart so that the edge leans by 2 to 10 degrees, or draw "
                    "a longer region.")
                    .arg(QString::number(v[0], 'f', 2));
        break;
    case FailureCode::EdgeNotStraight:
        s = QString("The edge is not straight (fit error %1 pixels RMS, at most %2 allowed): the "
                    "region may hold more than one edge or a badly curved one; draw it over a "
                    "single straight edge.")
                    .arg(QString::number(v[0], 'f', 2), QString::number(v[1], 'f', 0));
        break;
    case FailureCode::EdgeLeavesRegion:
        s = QStringLiteral("The edge leaves the region: draw the region so that the edge crosses "
                           "it from one end to the other, with both sides of the edge inside it.");
        break;
    case FailureCode::EdgeTooWide:
        s = QString("The edge is too wide for the region (it rises over %1 pixels in a region %2 "
                    "pixels across): widen the region, or draw it over a sharper edge.")
                    .arg(QString::number(v[0], 'f', 1), whole(v[1]));
        break;
    case FailureCode::SecondEdge:
        s = QString("The region holds more than one edge (another transition %1 pixels from the "
                    "measured one): draw it over a single edge between two even areas.")
                    .arg(QString::number(v[0], 'f', 0));
        break;
    case FailureCode::EdgeClipped:
        s = QString("The edge is clipped (%1 % of the pixels at 0 or 255): lower the exposure or "
                    "the gain so that both sides of the edge stay within range.")
                    .arg(QString::number(v[0] * 100, 'f', 1));
        break;
    }
    return s.toStdString();
}

} // namespace kestro::sfr
