// kestro-measure uniformity IMAGE [--subsample S] [--center C] [--corner K]
// [--zones ROWSxCOLS]: the subsampled grid statistics, centre and corner values
// of the four channels Y, R, G, B and the CPIQ colour-uniformity zones of a
// flat-field image, all from one pass over the pixels.

#include "command.h"
#include "json.h"

#include "imaging/imageload.h"
#include "measure/uniformity/cpiq.h"
#include "measure/uniformity/uniformity.h"

#include <QRegularExpression>

namespace {

using namespace kestro;

const char *const kCornerKeys[4] = {"topLeft", "topRight", "bottomLeft", "bottomRight"};

bool parseInt(const QString &text, int *value)
{
    bool ok = false;
    const int v = text.toInt(&ok);
    if (ok)
        *value = v;
    return ok;
}

void writeChannel(JsonWriter &w, const UniformitySummary &s)
{
    w.beginObject();
    w.field("cols", s.cols);
    w.field("rows", s.rows);
    w.field("minimum", s.minimum);
    w.field("maximum", s.maximum);
    w.field("mean", s.mean);
    w.field("center", s.center);
    w.key("corners").beginObject();
    for (int i = 0; i < 4; ++i)
        w.field(kCornerKeys[i], s.corners[i]);
    w.endObject();
    w.key("labels").beginObject();
    for (int i = 0; i < 4; ++i)
        w.field(kCornerKeys[i], s.labels[i]);
    w.endObject();
    w.endObject();
}

void writeCpiq(JsonWriter &w, const CpiqResult &cpiq)
{
    w.beginObject();
    w.field("rows", cpiq.rows);
    w.field("cols", cpiq.cols);
    w.key("zones").beginArray();
    for (const CpiqZone &z : cpiq.zones) {
        w.beginObject();
        w.field("row", z.row);
        w.field("column", z.column);
        w.field("R", z.R);
        w.field("G", z.G);
        w.field("B", z.B);
        w.field("L", z.L);
        w.field("a", z.a);
        w.field("b", z.b);
        w.field("deltaAb", z.deltaAb);
        w.endObject();
    }
    w.endArray();
    w.field("metric", cpiq.metric);
    w.endObject();
}

int refuse(int width, int height, int subsample, const QString &error)
{
    JsonWriter w;
    w.beginObject();
    w.field("ok", false);
    w.field("width", width);
    w.field("height", height);
    w.field("subsample", subsample);
    w.field("valid", false);
    w.field("error", error);
    w.endObject();
    measure::printJson(w.text());
    return 2;
}

int runUniformity(const QStringList &args)
{
    const char *name = "uniformity";
    QString path;
    int subsample = 10;
    int center = 10;
    int corner = 10;
    int zoneRows = kCpiqDefaultRows;
    int zoneCols = kCpiqDefaultCols;
    for (int i = 0; i < args.size(); ++i) {
        const QString &arg = args[i];
        if (arg == QLatin1String("--subsample") || arg == QLatin1String("--center")
            || arg == QLatin1String("--corner") || arg == QLatin1String("--zones")) {
            if (i + 1 >= args.size())
                return measure::usageError(name);
            const QString value = args[++i];
            bool ok = true;
            if (arg == QLatin1String("--subsample"))
                ok = parseInt(value, &subsample);
            else if (arg == QLatin1String("--center"))
                ok = parseInt(value, &center);
            else if (arg == QLatin1String("--corner"))
                ok = parseInt(value, &corner);
            else {
                const QRegularExpressionMatch m = QRegularExpression(
                                                          QStringLiteral(
                                                                  "^(\\d{1,4})[xX](\\d{1,4})$"))
                                                          .match(value);
                ok = m.hasMatch();
                if (ok) {
                    zoneRows = m.captured(1).toInt();
                    zoneCols = m.captured(2).toInt();
                    ok = zoneRows >= 1 && zoneCols >= 1 && zoneRows <= kCpiqMaxZones
                         && zoneCols <= kCpiqMaxZones;
                }
            }
            if (!ok) {
                QString text = QStringLiteral("invalid value for ") + arg + QStringLiteral(": ")
                               + value;
                if (arg == QLatin1String("--zones"))
                    text += QStringLiteral(" (ROWSxCOLS, 1 to ") + QString::number(kCpiqMaxZones)
                            + QStringLiteral(" each)");
                return measure::fail(text);
            }
        } else if (arg.startsWith(QLatin1String("--")) || !path.isEmpty()) {
            return measure::usageError(name);
        } else {
            path = arg;
        }
    }
    if (path.isEmpty())
        return measure::usageError(name);
    // A percentage outside 0..100 is wrong whatever the picture, like a zone
    // grid out of range: refused before the picture is read, in the engine's
    // words.
    if (!isValidUniformityPercent(center))
        return measure::fail(
                uniformityErrorText({UniformityError::InvalidCenterPercent, {}, center}));
    if (!isValidUniformityPercent(corner))
        return measure::fail(
                uniformityErrorText({UniformityError::InvalidCornerPercent, {}, corner}));

    QString loadError;
    const QImage picture = loadImage(path, &loadError);
    if (picture.isNull())
        return measure::fail(loadError);
    if (!UniformityImage::isSupportedFormat(picture.format()))
        return refuse(picture.width(), picture.height(), subsample,
                      uniformityInvalidFormatText(path));

    const UniformityImage image(picture);
    const int width = image.width();
    const int height = image.height();
    if (!UniformityImage::isValidSubsample(subsample, width, height))
        return refuse(width, height, subsample, QString::fromLatin1(kUniformitySubsampleMessage));
    if (!isValidCpiqGrid(zoneRows, zoneCols, width, height))
        return refuse(width, height, subsample, cpiqGridError(zoneRows, zoneCols, width, height));

    UniformityPass pass = image.compute(subsample, kAllUniformityChannels, zoneRows, zoneCols);
    const CpiqResult cpiq = cpiqFromZoneMeans(pass.zones);

    JsonWriter w;
    w.beginObject();
    w.field("ok", true);
    w.field("width", width);
    w.field("height", height);
    w.field("subsample", subsample);
    w.field("valid", true);
    w.field("error", "");
    const std::array<UniformitySummary, 4> summaries = summariseChannels(pass, center, corner);
    w.key("channels").beginObject();
    for (int c = 0; c < 4; ++c) {
        w.key(uniformityChannelName(static_cast<UniformityChannel>(c)));
        writeChannel(w, summaries[c]);
    }
    w.endObject();
    w.key("cpiq");
    writeCpiq(w, cpiq);
    w.endObject();
    measure::printJson(w.text());
    return 0;
}

} // namespace

KESTRO_MEASURE_COMMAND("uniformity",
                       "IMAGE [--subsample S] [--center C] [--corner K] [--zones ROWSxCOLS]",
                       runUniformity);
