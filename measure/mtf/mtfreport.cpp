#include "measure/mtf/mtfreport.h"

#include "measure/color/macbethexport.h"
#include "measure/mtf/regionbasedmtf.h"

#include <QStringList>
#include <cmath>

namespace kestro::mtf {

namespace {

QString g3(double value)
{
    return QString::number(value, 'g', 3);
}

QString image(const QString &title, const QString &link)
{
    return QStringLiteral("<p align=\"left\"><img title=\"%1\" alt=\"%1\"  src=\"%2\"></p>\n\n")
            .arg(title, link);
}

const char kParagraph[] = "<p style=\" margin-top:0px; margin-bottom:0px; margin-left:0px; "
                          "margin-right:0px;-qt-block-indent:0; text-indent:0px;\">";
const char kSecondParagraph[] = "<p style=\" margin-top:0px; margin-bottom:0px; margin-left:0px; "
                                "margin-right:0px; -qt-block-indent:0; text-indent:0px;\">";
const char kTable[] = "<table border=\"1\" cellspacing=\"0\" cellpadding=\"1\">\n";

void appendFigures(QString &out, const regionBasedMTF &m)
{
    out += QLatin1String(kParagraph);
    out += QLatin1String(kTable);
    out += QLatin1String("<caption>MTF 10/50</caption>\n");
    out += QLatin1String(
            "<tr><th>Channel Name</th><th>Overshoot</th><th>MTF 50 Frequency</th><th>MTF 50 "
            "Frequency peak</th><th>MTF 10 Frequency</th><th>MTF 10 Frequency peak</th><th>MTF "
            "Slope(Degree)</th><th>Contrast</th></tr>\n");
    for (int c = regionBasedMTF::Red; c <= regionBasedMTF::Blue; ++c) {
        out += QLatin1String("<tr><td>") + regionBasedMTF::channelName(c)
               + QLatin1String("</td><td>") + g3(m.overshoot(c)) + QLatin1String(" </td><td>")
               + g3(m.mtf50(c)) + QLatin1String(" </td><td>") + g3(m.mtf50Peak(c))
               + QLatin1String(" </td><td>") + g3(m.mtf10(c)) + QLatin1String(" </td><td>")
               + g3(m.mtf10Peak(c)) + QLatin1String(" </td>") + slopeCell(m.slopeDegrees(c))
               + QLatin1String("<td>") + g3(m.contrast(c)) + QLatin1String(" </td></tr>\n");
    }
    out += QLatin1String("</table>\n</p>\n");
}

void appendTable(QString &out, const regionBasedMTF &m)
{
    out += QLatin1String(kSecondParagraph);
    out += QLatin1String(kTable);
    out += QLatin1String("<caption>MTF Table</caption>\n");
    out += QLatin1String("<tr><th>Frequency(Cycles/pixel)</th><th>Frequency(LWPH)</th><th>Red</"
                         "th><th>Green</th><th>Blue</th><th>Gray</th></tr>\n");
    const double *f = m.frequencies();
    const double *lwph = m.frequenciesLWPH();
    const double *red = m.curve(regionBasedMTF::Red);
    const double *green = m.curve(regionBasedMTF::Green);
    const double *blue = m.curve(regionBasedMTF::Blue);
    const double *gray = m.curve(regionBasedMTF::Gray);
    const unsigned n = m.pointCount();
    out.reserve(out.size() + static_cast<int>(n) * 90);
    for (unsigned i = 0; i < n; ++i) {
        out += QLatin1String("<tr><td>") + g3(f[i]) + QLatin1String("</td><td>")
               + QString::number(lwph[i], 'g', 6) + QLatin1String("</td><td>") + g3(red[i])
               + QLatin1String("</td><td>") + g3(green[i]) + QLatin1String("</td><td>")
               + g3(blue[i]) + QLatin1String("</td><td>") + g3(gray[i])
               + QLatin1String("</td></tr>\n");
    }
    out += QLatin1String("</table>\n</p>\n");
}

} // namespace

QString slopeCell(double slopeDegrees)
{
    const double slope = std::abs(slopeDegrees);
    // NaN is outside the band too.
    const bool outside = !(slope >= 3.0 && slope <= 7.0);
    return (outside ? QStringLiteral("<td style=\"background-color:#FF0000\">")
                    : QStringLiteral("<td>"))
           + g3(slope) + QLatin1String(" </td>");
}

QString buildMtfReport(const MtfReportInput &input)
{
    // The shared document head, with the report's title.
    QString out = mergeHtmlStreams(QStringList(), QStringLiteral(" MTF Report(Slanted edge based)"));
    out += QLatin1String("<h1>MTF Report(Slanted edge based)</h1>\n\n");
    out += QLatin1String("<h4>Gamma</h4> ") + g3(input.gamma) + QLatin1String("</p>\n");

    MtfReportPictures *pictures = input.pictures;
    const ReportLocation location = reportLocation(input.outputPath);
    if (pictures) {
        location.makeCompanionFolder();
        const QString suffix = QStringLiteral("_mtfRegions.png");
        if (pictures->writeRegionsPicture(location.picturePath(suffix)))
            out += image(QStringLiteral("MTF regions"), location.pictureLink(suffix));
    }

    for (int i = 0; i < input.regions.size(); ++i) {
        if (input.progress)
            input.progress(i + 1);
        const regionBasedMTF &m = *input.regions[i];
        out += QLatin1String("<p>") + m.regionInfoHtml() + QLatin1String("</p>\n");
        out += QLatin1String("<h4>Distance from center : ") + QString::number(m.roiDistance(), 'g')
               + QLatin1String("</h4>\n");
        if (pictures) {
            const QString suffix = QLatin1String("_mtfRegion") + m.regionTag()
                                   + QLatin1String(".png");
            if (pictures->writeRegionCrop(m, location.picturePath(suffix)))
                out += image(QStringLiteral("MTF region"), location.pictureLink(suffix));
        }
        if (m.isValid()) {
            appendFigures(out, m);
            if (input.tableOnlyFor < 0 || input.tableOnlyFor == i)
                appendTable(out, m);
            if (pictures) {
                const QString suffix = QLatin1String("_mtfGraph_") + m.regionTag()
                                       + QLatin1String(".png");
                if (pictures->writeRegionGraph(m, location.picturePath(suffix)))
                    out += image(QStringLiteral("MTF results"), location.pictureLink(suffix));
            }
        } else {
            out += QStringLiteral("<p>No valid result for this region. Last error message : "
                                  "%1</p>\n\n")
                           .arg(m.errorMessage());
        }
        out += QLatin1String("<hr>\n\n");
    }
    out += QLatin1String("</body></html>");
    return out;
}

} // namespace kestro::mtf
