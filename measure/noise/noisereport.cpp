#include "measure/noise/noisereport.h"

#include "imaging/srgb.h"

#include <algorithm>
#include <cmath>

namespace kestro {

namespace {

const char kParagraphStart[]
        = "<p style=\" margin-top:0px; margin-bottom:0px; margin-left:0px; margin-right:0px; -qt-block-indent:0; "
          "text-indent:0px;\">";
const char kTableStart[] = "<table border=\"1\" cellspacing=\"0\" cellpadding=\"1\">\n";

const char kHeaderCells[]
        = "<th>Channel</th><th align=\"center\">Signal</th><th align=\"center\">SNR <br> (signal to noise ratio)</th>"
          "<th align=\"center\">SNR (dB)</th><th align=\"center\">Overall</th><th align=\"center\">FPN (fixed pattern "
          "noise)</th><th align=\"center\">Column FPN</th><th align=\"center\">Row FPN</th><th "
          "align=\"center\">Temporal</th><th align=\"center\">Row Temporal</th><th align=\"center\">Column "
          "Temporal</th>";

const char kNumberCells[]
        = "<td align=\"right\">%.1f </td><td align=\"right\">%.1f </td><td align=\"right\">%.1f</td><td "
          "align=\"right\">%.3f</td><td align=\"right\">%.3f</td><td align=\"right\">%.3f</td><td "
          "align=\"right\">%.3f</td><td align=\"right\">%.3f</td><td align=\"right\">%.3f</td><td "
          "align=\"right\">%.3f</td></tr>\n";

// p(x, y, i) and the formulas of the intermediate values and results.
const char kFormulas[]
        = "<P align=\"center\">p(x, y, i), x = 0 .. W-1, y = 0 .. H-1, i = 0 .. N-1</P>\n"
          "<P>Define also the following intermediate values:</P>\n"
          "<P align=\"center\">p<SUB>avg</SUB>(x, y) = 1/N <STRONG>&#931;</STRONG><SUB>i</SUB> p(x, y, i)</P>\n"
          "<P align=\"center\">&#963;(x, y) = sqrt( 1/N <STRONG>&#931;</STRONG><SUB>i</SUB> (p(x, y, i) - "
          "p<SUB>avg</SUB>(x, y))<SUP>2</SUP> )</P>\n"
          "<P align=\"center\">h(y, i) = 1/W <STRONG>&#931;</STRONG><SUB>x</SUB> p(x, y, i)</P>\n"
          "<P align=\"center\">h(y) = 1/N <STRONG>&#931;</STRONG><SUB>i</SUB> h(y, i)</P>\n"
          "<P align=\"center\">v(x, i) = 1/H <STRONG>&#931;</STRONG><SUB>y</SUB> p(x, y, i)</P>\n"
          "<P align=\"center\">v(x) = 1/N <STRONG>&#931;</STRONG><SUB>i</SUB> v(x, i)</P>\n"
          "<P>The analysis results are calculated as follows:</P>\n"
          "<P align=\"center\">Signal = 1/(W*H*N) <STRONG>&#931;</STRONG><SUB>x,y,i</SUB> p(x, y, i)</P>\n"
          "<P align=\"center\">RMS Dyn = sqrt( 1/(W*H) <STRONG>&#931;</STRONG><SUB>x,y</SUB> "
          "&#963;(x, y)<SUP>2</SUP> )</P>\n"
          "<P align=\"center\">Avg Dyn = 1/(W*H) <STRONG>&#931;</STRONG><SUB>x,y</SUB> &#963;(x, y)</P>\n"
          "<P align=\"center\">FPN = sqrt( 1/(W*H) <STRONG>&#931;</STRONG><SUB>x,y</SUB> (p<SUB>avg</SUB>(x, y) - "
          "Signal)<SUP>2</SUP> )</P>\n"
          "<P align=\"center\">Col FPN = sqrt( 1/W <STRONG>&#931;</STRONG><SUB>x</SUB> (v(x) - Signal)<SUP>2</SUP> "
          ")</P>\n"
          "<P align=\"center\">Row FPN = sqrt( 1/H <STRONG>&#931;</STRONG><SUB>y</SUB> (h(y) - Signal)<SUP>2</SUP> "
          ")</P>\n"
          "<P align=\"center\">Col Dyn = sqrt( 1/(W*N) <STRONG>&#931;</STRONG><SUB>x,i</SUB> (v(x, i) - "
          "v(x))<SUP>2</SUP> )</P>\n"
          "<P align=\"center\">Row Dyn = sqrt( 1/(H*N) <STRONG>&#931;</STRONG><SUB>y,i</SUB> (h(y, i) - "
          "h(y))<SUP>2</SUP> )</P>\n";

void appendPatchTable(QString &out, const NoisePatchResult &patch, int number)
{
    out += QLatin1String(kParagraphStart);
    out += QLatin1String(kTableStart);
    out += QString::asprintf(
            "<caption>Patch %d&nbsp;&nbsp;&nbsp;&nbsp;Noise Levels (standard deviation).</caption>\n",
            number);
    out += QString::asprintf("<tr>%s</tr>\n", kHeaderCells);
    for (int c = 0; c < patch.channels.size(); ++c) {
        const NoiseChannelResult &ch = patch.channels[c];
        out += QString::asprintf("<tr><td>%s</td>", ch.name.toUtf8().constData());
        out += QString::asprintf(kNumberCells, ch.signal, patch.snr(c), patch.snrDb(c),
                                 patch.snrNoise(c), ch.fpn, ch.columnFpn, ch.rowFpn, ch.temporal,
                                 ch.rowTemporal, ch.columnTemporal);
    }
    out += QLatin1String("</table>\n");
    out += QLatin1String("</p>\n");
}

} // namespace

QString noiseReportHead()
{
    return QStringLiteral(
            "<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.0//EN\" \"http://www.w3.org/TR/REC-html40/strict.dtd\">"
            "<html><head><meta name=\"qrichtext\" content=\"1\" /><style type=\"text/css\">p, li { white-space: "
            "pre-wrap; }</style></head><body style=\" font-family:'MS Shell Dlg 2'; font-size:8.25pt; "
            "font-weight:400; font-style:normal;\">");
}

QString buildNoiseReport(const QVector<NoisePatchResult> &results, const QStringList &frameFiles,
                         int patchIndex)
{
    QString out = noiseReportHead();
    out += QLatin1String("<center><H1>Signal Noise Results</H1></center>");
    out += QLatin1String(
            "<p>For RGB images, input image is considered to be sRGB and linearized before singal and "
            "noise are computed.</p>");

    out += QLatin1String(kParagraphStart);
    out += QLatin1String(kTableStart);
    out += QLatin1String("<caption>Input files</caption>");
    for (int i = 0; i < frameFiles.size(); ++i) {
        out += QStringLiteral("<tr><td>%1</td><td><a href=\"%2\" target=\"BLANK\">%2</a></td></tr>")
                       .arg(i + 1)
                       .arg(frameFiles[i]);
    }
    out += QLatin1String("</table></p>");

    if (patchIndex < 0) {
        for (int p = 0; p < results.size(); ++p)
            appendPatchTable(out, results[p], p + 1);
    } else if (patchIndex < results.size()) {
        appendPatchTable(out, results[patchIndex], patchIndex + 1);
    }

    out += QLatin1String(
            "<p>The formulas for the calculations are as follows. The noise measurement process "
            "captures N frames of W x H pixels, creating a 3-dimensional data set of W*H*N pixel "
            "values. Pixel values are denoted as </P>\n");
    out += QLatin1String(kFormulas);
    out += QLatin1String(
            "<P>In the above equations RMS Dyn refers to overall noise. Avg Dyn refers to temporal "
            "noise. </p>");
    out += QLatin1String("</body></html>");
    return out;
}

QVector<QVector<double>> snrChartSeries(const QVector<NoisePatchResult> &results)
{
    QVector<QVector<double>> series(4, QVector<double>(results.size(), 0.0));
    for (int p = 0; p < results.size(); ++p) {
        const NoisePatchResult &r = results[p];
        // Bayer channels are R, Gr, Gb, B; the chart keeps R, G, B, G2.
        static const int bayerSlot[4] = {0, 1, 3, 2};
        const int charted = std::min(r.layout == NoiseLayout::Bayer ? 4 : 3,
                                     static_cast<int>(r.channels.size()));
        for (int c = 0; c < charted; ++c) {
            const int slot = r.layout == NoiseLayout::Bayer ? bayerSlot[c] : c;
            const double noise = r.snrNoise(c);
            const double value = noise != 0.0 ? r.channels[c].signal / noise : noise;
            series[slot][p] = std::isfinite(value) ? value : 0.0;
        }
    }
    return series;
}

QVector<QColor> noisePatchColors(const QVector<NoisePatchResult> &results)
{
    auto finite = [](double v) { return std::isfinite(v) ? std::max(v, 0.0) : 0.0; };
    double largest = 0.0;
    for (const NoisePatchResult &r : results)
        for (const NoiseChannelResult &c : r.channels)
            largest = std::max(largest, finite(c.signal));
    QVector<QColor> colors;
    for (const NoisePatchResult &r : results) {
        double rgb[3] = {0, 0, 0};
        double scale = 255.0;
        const auto &ch = r.channels;
        if (r.layout == NoiseLayout::Rgb && ch.size() >= 3) {
            for (int k = 0; k < 3; ++k)
                rgb[k] = finite(ch[k].signal);
        } else {
            scale = largest > 0 ? largest : 1.0;
            if (r.layout == NoiseLayout::Bayer && ch.size() >= 4) {
                rgb[0] = finite(ch[0].signal);
                rgb[1] = (finite(ch[1].signal) + finite(ch[2].signal)) / 2;
                rgb[2] = finite(ch[3].signal);
            } else if (!ch.isEmpty()) {
                rgb[0] = rgb[1] = rgb[2] = finite(ch[0].signal);
            }
        }
        QColor color;
        color.setRgbF(std::clamp(linearToSrgb(std::min(rgb[0] / scale, 1.0)), 0.0, 1.0),
                      std::clamp(linearToSrgb(std::min(rgb[1] / scale, 1.0)), 0.0, 1.0),
                      std::clamp(linearToSrgb(std::min(rgb[2] / scale, 1.0)), 0.0, 1.0));
        colors << color;
    }
    return colors;
}

} // namespace kestro
