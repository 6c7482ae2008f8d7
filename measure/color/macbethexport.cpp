#include "measure/color/macbethexport.h"

#include "measure/color/macbethcolordifference.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTextStream>

namespace kestro {

QString ReportLocation::companionFolder() const
{
    return QDir::toNativeSeparators(folder + QLatin1Char('/') + base + QLatin1String("_files"));
}

QString ReportLocation::picturePath(const QString &suffix) const
{
    return QDir::toNativeSeparators(companionFolder() + QLatin1Char('/') + base + suffix);
}

QString ReportLocation::pictureLink(const QString &suffix) const
{
    return QLatin1String(".\\") + base + QLatin1String("_files\\") + base + suffix;
}

bool ReportLocation::makeCompanionFolder() const
{
    return QDir().mkpath(companionFolder());
}

ReportLocation reportLocation(const QString &reportPath)
{
    const QFileInfo info(reportPath);
    ReportLocation location;
    location.reportPath = QDir::toNativeSeparators(reportPath);
    location.base = info.baseName();
    location.folder = QDir::toNativeSeparators(info.absolutePath());
    return location;
}

QString mergeHtmlStreams(const QStringList &fragments, const QString &title)
{
    QString out = QStringLiteral(
            "<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.0//EN\" "
            "\"http://www.w3.org/TR/REC-html40/strict.dtd\">"
            "<html><head><meta name=\"qrichtext\" content=\"1\" /><style type=\"text/css\">p, li "
            "{ white-space: pre-wrap; }</style>");
    out += QLatin1String("<title>") + title + QLatin1String("</title></head>");
    out += QLatin1String("<body style=\" font-family:'MS Shell Dlg 2'; font-size:8.25pt; "
                         "font-weight:400; font-style:normal;\">");
    static const QRegularExpression body(QStringLiteral(".*<\\s*body[^>]*\\s*>(.*)<\\/body\\s*>"),
                                         QRegularExpression::DotMatchesEverythingOption);
    for (const QString &fragment : fragments) {
        const QRegularExpressionMatch match = body.match(fragment);
        if (match.hasMatch() && match.lastCapturedIndex() >= 1)
            out += match.captured(1);
    }
    // The body and html elements stay open; readers close them.
    return out;
}

QString chartPicturesHtml(const ReportLocation &location, const QString &firstSuffix,
                          const QString &firstCaption, const QString &secondSuffix,
                          const QString &secondCaption)
{
    return QLatin1String("<p align=\"center\"><img src=\"") + location.pictureLink(firstSuffix)
           + QLatin1String("\"></p> <p><center>") + firstCaption
           + QLatin1String("</center></p> <p></p><br><br>")
           + QLatin1String("<p align=\"center\"><img src=\"") + location.pictureLink(secondSuffix)
           + QLatin1String("\"></p><p><center>") + secondCaption
           + QLatin1String("</center></p> <p></p><br><br>");
}

QString regionsPictureFragment(const ReportLocation &location, const QString &suffix)
{
    return QLatin1String("<body><p align=\"center\"><img src=\"") + location.pictureLink(suffix)
           + QLatin1String("\"></p> <p><center>Selected regions</center></p></body>");
}

namespace {

void writeNoiseSection(QTextStream &out, const MeasurementCsvData &data)
{
    out << "The file list:\n";
    for (int i = 0; i < data.frameFiles.size(); ++i)
        out << QStringLiteral("%1, %2\n").arg(QString::number(i + 1), data.frameFiles[i]);
    out << "\n\n";
    out << "Patch , Channel , Signal, SNR , Overall, FPN, Column FPN, Row FPN, Temporal, Row "
           "Temporal, Column temporal\n";
    if (!data.noise)
        return;
    const QVector<NoisePatchResult> &results = *data.noise;
    for (int p = 0; p < results.size() && p < kMacbethPatchCount; ++p) {
        const NoisePatchResult &patch = results[p];
        for (int c = 0; c < patch.channels.size(); ++c) {
            const NoiseChannelResult &ch = patch.channels[c];
            out << QStringLiteral("%1, %2, ").arg(QString::number(p + 1), ch.name);
            // With one frame the SNR rests on the fixed-pattern noise, which
            // then also stands in the Overall column.
            const double values[9] = {ch.signal,   patch.snr(c),   patch.snrNoise(c),
                                      ch.fpn,      ch.columnFpn,   ch.rowFpn,
                                      ch.temporal, ch.rowTemporal, ch.columnTemporal};
            for (double v : values)
                out << QStringLiteral("%1, ").arg(v, 0, 'g', 6);
            out << "\n";
        }
    }
}

void writeColorSection(QTextStream &out, const MeasurementCsvData &data)
{
    out << "Image Name , " << data.imageFileName << "\n";
    out << "\n\n"
        << "Color Difference Summary \n"
        << "\n"
        << "Difference Metric, Maximum, Minimum, 95%, Average \n";
    const QStdMacbethChartColorDifference nothingMeasured;
    const QStdMacbethChartColorDifference &model = data.colorDifference ? *data.colorDifference
                                                                        : nothingMeasured;
    const ColorDifferenceSummary &s = model.summary();
    // The separators differ inside these lines and each ends in a blank
    // after the line end: readers of the file depend on the layout.
    auto summaryLine = [&out](const char *label, float maximum, float minimum, float p95,
                              float average) {
        out << label << maximum << "," << minimum << ", " << p95 << " , " << average << " \n ";
    };
    summaryLine("DeltaE00 , ", s.dE00Maximum, s.dE00Minimum, s.dE00Percentile95, s.dE00Average);
    summaryLine("DeltaC00 , ", s.dC00Maximum, s.dC00Minimum, s.dC00Percentile95, s.dC00Average);
    summaryLine("DeltaH00 , ", s.dH00Maximum, s.dH00Minimum, s.dH00Percentile95, s.dH00Average);
    summaryLine("Saturation , ", s.saturationMaximum, s.saturationMinimum, s.saturationPercentile95,
                s.saturationAverage);

    out << "\n\n"
        << "\n-------------------\nColor Difference Report\n-------------------\n"
        << "Patch ID, DeltaE00, DeltaC00, DeltaH00, Saturation, Pixel Count, R, G, B, L*, a* , "
           "b*, target L*, target a*, target b*\n";
    for (int i = 0; i < kMacbethPatchCount; ++i) {
        const MacbethPatch &p = model.patch(i);
        if (!p.computed)
            continue;
        out << i + 1 << "," << p.dE00 << "," << p.dC00 << "," << p.dH00 << "," << p.saturation
            << "," << qint64(p.region.width()) * qint64(p.region.height());
        for (double v : {p.R, p.G, p.B, p.L, p.a, p.b, p.refL, p.refA, p.refB})
            out << "," << v;
        out << "\n";
    }

    out << "\n\n"
        << "\n---------------\nWhite Balance\n---------------\n"
        << "Patch ID , Chroma, R/G, G/R, B/G, G/B\n";
    for (int i = kMacbethFirstGrayPatch; i < kMacbethPatchCount; ++i) {
        const MacbethPatch &p = model.patch(i);
        if (!p.computed)
            continue;
        out << i + 1 << "," << p.chroma << "," << p.rOverG << "," << 1.0 / p.rOverG << ","
            << p.bOverG << "," << 1.0 / p.bOverG << "\n";
    }
    // The G/R and G/B summaries are reciprocals of the averaged ratios.
    out << "\n---------------\nWhite Balance Summary\n---------------\n";
    out << "Average Chroma , " << s.grayChromaAverage << "\n";
    out << "Average R/G ,    " << s.grayROverGAverage << "\n";
    out << "Average G/R ,    " << 1.0 / s.grayROverGAverage << "\n";
    out << "Average B/G ,    " << s.grayBOverGAverage << "\n";
    out << "Average G/B ,    " << 1.0 / s.grayBOverGAverage << "\n";
}

} // namespace

QString measurementCsv(const MeasurementCsvData &data, bool withColorDifference, bool withNoise)
{
    QString text;
    QTextStream out(&text);
    if (withNoise)
        writeNoiseSection(out, data);
    if (withColorDifference)
        writeColorSection(out, data);
    out.flush();
    return text;
}

bool saveTextFile(const QString &path, const QString &text, QString *error)
{
    return writeReportFile(
            path, [&text] { return text; }, error);
}

bool writeReportFile(const QString &path, const std::function<QString()> &makeText, QString *error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        if (error)
            *error = file.errorString();
        return false;
    }
    const QByteArray bytes = makeText().toUtf8();
    if (file.write(bytes) == bytes.size() && file.commit())
        return true;
    if (error)
        *error = file.errorString();
    file.cancelWriting();
    file.commit(); // removes the temporary file
    return false;
}

QString csvPathForReport(const QString &reportPath)
{
    static const QRegularExpression html(QStringLiteral("\\.html$"),
                                         QRegularExpression::CaseInsensitiveOption);
    QString path = reportPath;
    if (html.match(path).hasMatch())
        return path.replace(html, QStringLiteral(".csv"));
    return path + QLatin1String(".csv");
}

} // namespace kestro
