#include "measure/color/colordiffreport.h"

#include "measure/color/macbethcolordifference.h"
#include "measure/color/whitebalance.h"
#include "measure/noise/noisereport.h"

#include <QCoreApplication>

namespace kestro {

namespace {

const char kParagraphStart[]
        = "<p style=\" margin-top:0px; margin-bottom:0px; margin-left:0px; margin-right:0px; "
          "-qt-block-indent:0; text-indent:0px;\">";
const char kTableStart[] = "<table border=\"1\" cellspacing=\"0\" cellpadding=\"1\">\n";

QString tr(const char *text)
{
    return QCoreApplication::translate("QStdMacbethChartColorDifference", text);
}

QString num(double v)
{
    return QString::number(v, 'g', 6);
}

// A centred header cell padded with `pad` non-breaking spaces on each side.
QString headerCell(const char *text, int pad, const char *span = "")
{
    const QString spaces = QStringLiteral("&nbsp;").repeated(pad);
    return QStringLiteral("<th%1 align=\"center\">").arg(QLatin1String(span)) + spaces
           + QLatin1String(text) + spaces + QLatin1String("</th>");
}

void appendSummaryRow(QString &out, const char *templ, float maximum, float minimum, float p95,
                      float average)
{
    out += tr(templ).arg(num(maximum), num(minimum), num(p95), num(average));
}

// The value cell of one metric: red when the patch holds that metric's maximum.
QString metricCell(double value, bool isMaximum)
{
    return isMaximum ? tr("<td align=\"right\"><font color=\"red\">%1</font></td>").arg(num(value))
                     : tr("<td align=\"right\">%1</td>").arg(num(value));
}

} // namespace

QString colorDifferenceReport(const QStdMacbethChartColorDifference &model,
                              const QString &imageFileName)
{
    const ColorDifferenceSummary &s = model.summary();
    QString out = noiseReportHead();
    out += QLatin1String("<center><H1>Color Difference Results</H1></center>");
    out += QLatin1String("<p>Image: <a href=\"") + imageFileName + QLatin1String("\"> ")
           + imageFileName + QLatin1String("</a></p>");

    out += QLatin1String(kParagraphStart);
    out += QLatin1String(kTableStart);
    out += QLatin1String("<caption>Color Difference Summary Report</caption>\n");
    out += QLatin1String("<tr><th>Difference Metric</th><th>Maximum</th><th>Minimum</th><th>95%</"
                         "th><th>Average</th></tr>\n");
    appendSummaryRow(out,
                     "<tr><th>Delta E00</th><td>%1</td><td>%2</td><td>%3</td><td>%4</td></tr>\n",
                     s.dE00Maximum, s.dE00Minimum, s.dE00Percentile95, s.dE00Average);
    appendSummaryRow(out,
                     "<tr><th>Delta C00</th><td>%1</td><td>%2</td><td>%3</td><td>%4</td></tr>\n",
                     s.dC00Maximum, s.dC00Minimum, s.dC00Percentile95, s.dC00Average);
    appendSummaryRow(out,
                     "<tr><th>Delta H00</th><td>%1</td><td>%2</td><td>%3</td><td>%4</td></tr>\n",
                     s.dH00Maximum, s.dH00Minimum, s.dH00Percentile95, s.dH00Average);
    appendSummaryRow(out,
                     "<tr><th>Saturation</th><td>%1</td><td>%2</td><td>%3</td><td>%4</td></tr>\n",
                     s.saturationMaximum, s.saturationMinimum, s.saturationPercentile95,
                     s.saturationAverage);
    out += QLatin1String("</table>\n");

    out += QLatin1String(kParagraphStart);
    out += QLatin1String(kTableStart);
    out += QLatin1String("<caption>Color Difference Report</caption>\n");
    const char rows2[] = " rowspan=\"2\"";
    const char cols3[] = " colspan=\"3\"";
    out += QLatin1String("<tr>") + headerCell("Patch ID", 3, rows2)
           + headerCell("DeltaE00", 2, rows2) + headerCell("DeltaC00", 2, rows2)
           + headerCell("DeltaH00", 2, rows2) + headerCell("Saturation", 2, rows2)
           + headerCell("Pixel count", 2, rows2) + headerCell("Pixel value(RGB)", 2, cols3)
           + headerCell("Pixel value(L*a*b*)", 2, cols3)
           + headerCell("Target value(L*a*b*)", 2, cols3) + QLatin1String("</tr>\n");
    out += QLatin1String("<tr>");
    for (const char *name : {"Red", "Green", "Blue", "L*", "a*", "b*", "L*", "a*", "b*"})
        out += headerCell(name, 2);
    out += QLatin1String("</tr>\n");

    for (int i = 0; i < kMacbethPatchCount; ++i) {
        const MacbethPatch &p = model.patch(i);
        if (!p.computed)
            continue;
        out += tr("<tr><td align=\"center\">%1</td>").arg(i + 1);
        out += metricCell(p.dE00, s.dE00MaximumIndex == i);
        out += metricCell(p.dC00, s.dC00MaximumIndex == i);
        out += metricCell(p.dH00, s.dH00MaximumIndex == i);
        out += metricCell(p.saturation, s.saturationMaximumIndex == i);
        // The pixel count is an exact integer, also for regions of millions
        // of pixels.
        const qint64 pixels = qint64(p.region.width()) * qint64(p.region.height());
        out += tr("<td align=\"right\">%1</td>").arg(pixels);
        for (double v : {p.R, p.G, p.B, p.L, p.a, p.b, p.refL, p.refA, p.refB})
            out += tr("<td align=\"right\">%1</td>").arg(num(v));
        out += QLatin1String("</tr>");
    }
    out += QLatin1String("</table>\n");
    out += QLatin1String("</p>\n");
    out += QLatin1String(
            "<p>note: text in red presents the patch with maximum color difference metric.</p>\n");
    appendWhiteBalanceReport(out, model);
    return out;
}

} // namespace kestro
