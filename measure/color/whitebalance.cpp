#include "measure/color/whitebalance.h"

#include "measure/color/macbethcolordifference.h"

#include <QCoreApplication>

namespace kestro {

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("QStdMacbethChartColorDifference", text);
}

QString num(double v)
{
    return QString::number(v, 'g', 6);
}

} // namespace

void appendWhiteBalanceReport(QString &report, const QStdMacbethChartColorDifference &model)
{
    report += QStringLiteral("<center><H1>White Balance</H1></center>\n");
    report += QStringLiteral(
            "<p>The white balance data is calculated only on neutral (gray) patches. Chroma = sqrt(a * a + b * b) "
            "in L*a*b* </p>. The color ratios are calculated after linearization.\n");
    report += QStringLiteral("<p><table border=\"1\" cellspacing=\"0\" cellpadding=\"1\">\n");
    report += QStringLiteral("<caption>White Balance Report</caption>\n");
    report += QStringLiteral(
            "<tr><th align=\"center\">&nbsp;&nbsp;&nbsp;Patch ID&nbsp;&nbsp;&nbsp;</th>"
            "<th align=\"center\">&nbsp;&nbsp;Chroma&nbsp;&nbsp;</th>"
            "<th align=\"center\">&nbsp;&nbsp;R/G&nbsp;&nbsp;</th>"
            "<th align=\"center\">&nbsp;&nbsp;G/R&nbsp;&nbsp;</th>"
            "<th align=\"center\">&nbsp;&nbsp;B/G&nbsp;&nbsp;</th>"
            "<th align=\"center\">&nbsp;&nbsp;G/B&nbsp;&nbsp;</th></tr>\n");
    for (int i = kMacbethFirstGrayPatch; i < kMacbethPatchCount; ++i) {
        const MacbethPatch &p = model.patch(i);
        if (!p.computed)
            continue;
        report += tr("<tr><td align=\"center\">%1</td>").arg(i + 1);
        const double cells[5] = {p.chroma, p.rOverG, 1.0 / p.rOverG, p.bOverG, 1.0 / p.bOverG};
        for (double v : cells)
            report += tr("<td align=\"right\">%1</td>").arg(num(v));
        report += QStringLiteral("</tr>");
    }
    report += QStringLiteral("</table></p>\n");
    report += QStringLiteral("<p><table border=\"1\" cellspacing=\"0\" cellpadding=\"1\">\n");
    report += QStringLiteral("<caption>White Balance Summary Report</caption>\n");
    const ColorDifferenceSummary &s = model.summary();
    // The reciprocal averages are reciprocals of the averaged ratios.
    report += tr("<tr><td>Average Chroma</td><td>%1</td></tr>\n").arg(num(s.grayChromaAverage));
    report += tr("<tr><td>Average R/G</td><td>%1</td></tr>\n").arg(num(s.grayROverGAverage));
    report += tr("<tr><td>Average G/R</td><td>%1</td></tr>\n").arg(num(1.0 / s.grayROverGAverage));
    report += tr("<tr><td>Average B/G</td><td>%1</td></tr>\n").arg(num(s.grayBOverGAverage));
    report += tr("<tr><td>Average G/B</td><td>%1</td></tr>\n").arg(num(1.0 / s.grayBOverGAverage));
    report += QStringLiteral("</table></p>\n");
    report += QStringLiteral("</body></html>");
}

QStringList colorMetricNames()
{
    return {tr("Delta E00"), tr("Delta C00"), tr("Delta H00"), tr("Saturation"), tr("Chroma"),
            tr("R/G"),       tr("G/R"),       tr("B/G"),       tr("G/B")};
}

ColorMetricSelection colorMetricSelection(const QStdMacbethChartColorDifference &model, int index)
{
    ColorMetricSelection sel;
    if (index < 0 || index > 8 || !model.patch(0).computed)
        return sel;
    static const char *const plotTitles[9] = {"Gray Char Color Difference",
                                              "Gray Char Color Difference",
                                              "Gray Char Color Difference",
                                              "Gray Char Saturation",
                                              "Gray Char Chroma",
                                              "Gray Char R/G",
                                              "Gray Char G/R",
                                              "Gray Char B/G",
                                              "Gray Char G/B"};
    static const char *const axisTitles[9] = {"Delta E00",  "Delta C00", "Delta H00",
                                              "Saturation", "Chroma",    "R/G",
                                              "G/R",        "B/G",       "G/B"};
    auto value = [&](int i) -> double {
        switch (index) {
        case 0:
            return model.dE00(i);
        case 1:
            return model.dC00(i);
        case 2:
            return model.dH00(i);
        case 3:
            return model.saturation(i);
        }
        const MacbethPatch &p = model.patch(i);
        switch (index) {
        case 4:
            return p.chroma;
        case 5:
            return p.rOverG;
        case 6:
            return 1.0 / p.rOverG;
        case 7:
            return p.bOverG;
        default:
            return 1.0 / p.bOverG;
        }
    };
    sel.valid = true;
    sel.plotTitle = tr(plotTitles[index]);
    sel.axisTitle = tr(axisTitles[index]);
    for (int i = kMacbethFirstGrayPatch; i < kMacbethPatchCount; ++i) {
        sel.grayX.append(i + 1);
        sel.grayValues.append(value(i));
    }
    if (index <= 3) {
        sel.barMode = 0;
        for (int i = 0; i < kMacbethPatchCount; ++i)
            sel.barValues.append(value(i));
    } else {
        sel.barMode = 2;
        sel.barValues = sel.grayValues;
    }
    return sel;
}

} // namespace kestro
