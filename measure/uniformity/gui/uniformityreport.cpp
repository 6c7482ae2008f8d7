#include "measure/uniformity/gui/uniformityreport.h"

#include "imaging/parallel.h"
#include "imaging/pngwriter.h"
#include "measure/color/macbethexport.h"
#include "measure/uniformity/gui/qspectrogramplot.h"

#include <QDir>
#include <cmath>
#include <vector>

namespace kestro {

namespace {

const UniformityChannel kChannels[4] = {UniformityChannel::Y, UniformityChannel::R,
                                        UniformityChannel::G, UniformityChannel::B};

QString g6(double v)
{
    return QString::number(v, 'g', 6);
}

// The values of one channel in the column order of the table: Max, Mean,
// Min (truncated in the report), Center, the four corners, the four
// drop-offs (centre minus corner).
std::array<double, 12> rowValues(const UniformitySummary &s)
{
    std::array<double, 12> v{};
    v[0] = s.maximum;
    v[1] = s.mean;
    v[2] = s.minimum;
    v[3] = s.center;
    for (int i = 0; i < 4; ++i) {
        v[4 + i] = s.corners[i];
        v[8 + i] = s.center - s.corners[i];
    }
    return v;
}

const char *const kColumnNames[13] = {"Channel",     "Max",        "Mean",        "Min",
                                      "Center",      "Upper Left", "Upper Right", "Lower Left",
                                      "Lower Right", "UL DropOff", "UR DropOff",  "LL DropOff",
                                      "LR DropOff"};

void appendChannelTable(QString &out, const UniformityReportData &data)
{
    out += QLatin1String("<p style=\" margin-top:0px; margin-bottom:0px; margin-left:0px; "
                         "margin-right:0px;-qt-block-indent:0; text-indent:0px;\">");
    out += QLatin1String("<table border=\"1\" cellspacing=\"0\" cellpadding=\"1\">\n");
    out += QLatin1String("<caption>Uniformity Test</caption>\n");
    out += QLatin1String("<tr>");
    for (int i = 0; i < 13; ++i) {
        if (i > 0)
            out += QLatin1Char('\n');
        out += QLatin1String("<th align=\"center\">&nbsp;&nbsp;") + QLatin1String(kColumnNames[i])
               + QLatin1String("&nbsp;&nbsp;</th>");
    }
    out += QLatin1String("</tr>\n");
    for (int c = 0; c < 4; ++c) {
        const std::array<double, 12> v = rowValues(data.channels[c]);
        out += QLatin1String("<tr><th align=\"center\">")
               + QLatin1String(uniformityChannelName(kChannels[c]));
        for (int i = 0; i < 12; ++i)
            out += QLatin1String("</th>\n<th align=\"center\">")
                   + (i < 3 ? uniformityTruncatedText(v[i]) : g6(v[i]));
        out += QLatin1String("</th></tr>\n");
    }
    out += QLatin1String("</table>\n");
    out += QLatin1String("</p>\n");
}

// "row,column,R,G,B,L*,a*,b*,Delta-ab" and a line end.
void appendZoneLine(QString &out, const CpiqZone &z)
{
    out += QString::number(z.row) + QLatin1Char(',') + QString::number(z.column);
    for (double v : {z.R, z.G, z.B, z.L, z.a, z.b, z.deltaAb})
        out += QLatin1Char(',') + g6(v);
    out += QLatin1Char('\n');
}

void appendCpiqTable(QString &out, const CpiqResult &cpiq)
{
    out += QLatin1String("<h2>CPIQ regions shading balance report</h2>");
    out += QLatin1String("<table cellspacing=\"15\">");
    out += QLatin1String("<tr><th></th>");
    for (int n = 1; n <= cpiq.cols; ++n)
        out += QLatin1String("<th>") + QString::number(n);
    for (int r = 0; r < cpiq.rows; ++r) {
        out += QLatin1String("<tr><th>") + QString::number(r + 1);
        for (int c = 0; c < cpiq.cols; ++c) {
            const std::size_t i = static_cast<std::size_t>(r) * cpiq.cols + c;
            if (i < cpiq.zones.size())
                out += QLatin1String("<td>") + g6(cpiq.zones[i].deltaAb) + QLatin1String("</td>");
        }
    }
    out += QLatin1String("</table>");
    out += QLatin1String("<p><H3> Color Uniformity Metric (CPIQ) </H3>") + g6(cpiq.metric)
           + QLatin1String("</p>");
}

} // namespace

bool computeUniformityReport(const UniformityImage &image, const UniformityReportSettings &settings,
                             UniformityPass &pass, UniformityReportData &data, QString *error)
{
    UniformityFailure failure;
    if (!image.isValid()
        || !UniformityImage::isValidSubsample(settings.subsample, image.width(), image.height()))
        failure.error = UniformityError::InvalidSubsample;
    else if (!isValidUniformityPercent(settings.centerPercent))
        failure = {UniformityError::InvalidCenterPercent, QString(), settings.centerPercent};
    else if (!isValidUniformityPercent(settings.cornerPercent))
        failure = {UniformityError::InvalidCornerPercent, QString(), settings.cornerPercent};
    if (failure.error != UniformityError::None) {
        if (error)
            *error = uniformityErrorText(failure);
        return false;
    }
    const bool zones = settings.cpiq
                       && isValidCpiqGrid(settings.cpiqRows, settings.cpiqCols, image.width(),
                                          image.height());
    image.compute(pass, settings.subsample, kAllUniformityChannels, zones ? settings.cpiqRows : 0,
                  zones ? settings.cpiqCols : 0);
    data = UniformityReportData();
    data.width = image.width();
    data.height = image.height();
    data.subsample = settings.subsample;
    data.channels = summariseChannels(pass, settings.centerPercent, settings.cornerPercent);
    if (zones) {
        data.cpiq = cpiqFromZoneMeans(pass.zones);
    } else if (settings.cpiq) {
        data.cpiq.error = cpiqGridError(settings.cpiqRows, settings.cpiqCols, image.width(),
                                        image.height());
    }
    return true;
}

QString uniformityTruncatedText(double value)
{
    if (!std::isfinite(value))
        return QString::number(value);
    return QString::number(static_cast<qint64>(std::trunc(value)));
}

QString uniformityReportColorMap(const QString &name)
{
    for (const char *known : {"Standard", "Jet", "Gray"}) {
        if (name.compare(QLatin1String(known), Qt::CaseInsensitive) == 0)
            return QLatin1String(known);
    }
    return QStringLiteral("Standard");
}

QSize uniformityPictureSize(int width, int height, int chartSize)
{
    if (width <= 0 || height <= 0)
        return QSize(chartSize, chartSize);
    if (width >= height)
        return QSize(chartSize, static_cast<int>(qint64(height) * chartSize / width));
    return QSize(static_cast<int>(qint64(width) * chartSize / height), chartSize);
}

QString uniformityChartFileName(UniformityChannel channel)
{
    return QLatin1String("Uniformity") + QLatin1String(uniformityChannelName(channel))
           + QLatin1String(".png");
}

QString uniformityChartFolder()
{
    return QDir::toNativeSeparators(QDir::tempPath()) + QDir::separator();
}

int renderUniformityCharts(QSpectrogramPlot &plot, const UniformityPass &pass,
                           const UniformityReportSettings &settings, const QString &folder)
{
    plot.resize(settings.chartSize, settings.chartSize * 3 / 4);
    plot.setColorMap(uniformityReportColorMap(settings.colorMapName));
    plot.setUniContourLow(settings.contour.low);
    plot.setUniContourHigh(settings.contour.high);
    plot.setUniContourSS(settings.contour.step);
    plot.showContour(settings.contour.shown);
    // Charts render one after the other on this thread (the plot is a
    // widget); their files are encoded on the worker pool together.
    std::vector<std::pair<QImage, QString>> charts;
    for (int c = 0; c < 4; ++c) {
        const UniformityGrid &grid = pass.grids[c];
        if (grid.values.empty())
            continue;
        plot.setGrid(grid.values, grid.cols, grid.rows, settings.subsample);
        charts.emplace_back(plot.renderImage(), folder + uniformityChartFileName(kChannels[c]));
    }
    std::vector<char> saved(charts.size(), 0);
    parallelFor(static_cast<int>(charts.size()),
                [&](int i) { saved[i] = savePng(charts[i].first, charts[i].second) ? 1 : 0; });
    int written = 0;
    for (char ok : saved)
        written += ok;
    return written;
}

QString uniformityReportHtml(const UniformityReportSettings &settings,
                             const UniformityReportData &data, const QString &chartFolder)
{
    const int s = settings.subsample;
    // The document head of the merged reports (nothing merged into it).
    QString out = mergeHtmlStreams(QStringList(), QStringLiteral("Uniformity Test Report"));
    out += QLatin1String("<h1>Uniformity Test Report</h1>");
    out += QLatin1String("<p>Minimum, maximum and mean value of each color channel (component) is "
                         "based on subsampled data of the image. </p>");
    out += QLatin1String("<p>Image: ") + settings.imagePath
           + QLatin1String("</p> <p>Original Width : ") + QString::number(data.width)
           + QLatin1String("\tOriginal Height : ") + QString::number(data.height)
           + QLatin1String("\tSubSampled Width : ") + QString::number(s > 0 ? data.width / s : 0)
           + QLatin1String("\tSubSampled Height : ") + QString::number(s > 0 ? data.height / s : 0)
           + QLatin1String("\tSubSampling Rate : ") + QString::number(s)
           + QLatin1String("</p><p>Center Percentage : ") + QString::number(settings.centerPercent)
           + QLatin1String(" %\tCorner Percentage : ") + QString::number(settings.cornerPercent)
           + QLatin1String(" %</p>\n");
    appendChannelTable(out, data);

    const QSize shown = uniformityPictureSize(data.width, data.height, settings.chartSize);
    out += QLatin1String("<p align=\"center\"><img width=\"") + QString::number(shown.width())
           + QLatin1String("\" height=\"") + QString::number(shown.height())
           + QLatin1String("\" src=\"") + settings.imagePath
           + QLatin1String("\"></p> <p><center>Original Image</center></p> <p></p><br><br>");
    for (UniformityChannel channel : kChannels) {
        if (!(settings.chartChannels & uniformityChannelBit(channel)))
            continue;
        out += QLatin1String("<p align=\"center\"><img src=\"") + chartFolder
               + uniformityChartFileName(channel)
               + QLatin1String("\"></p> <p><center>Uniformity Chart of ")
               + QLatin1String(uniformityChannelName(channel))
               + QLatin1String(" Channel</center></p> <p></p><br><br>");
    }
    appendCpiqTable(out, data.cpiq);
    out += QLatin1String("</body></html>");
    return out;
}

QString uniformityCpiqText(const CpiqResult &cpiq)
{
    QString out = QStringLiteral(
            "\n--------------\nCPIQ regions shading balance report\n--------------\n");
    out += QLatin1String(
            "Zone row, Zone column,Red,Green   ,Blue    ,L*      ,a*      ,b*      ,Delta-ab\n");
    for (const CpiqZone &z : cpiq.zones)
        appendZoneLine(out, z);
    out += QLatin1String("\n\n");
    for (int n = 1; n <= cpiq.cols; ++n)
        out += QString::number(n) + QLatin1Char(',');
    out += QLatin1Char('\n');
    for (int r = 0; r < cpiq.rows; ++r) {
        out += QString::number(r + 1) + QLatin1Char(',');
        for (int c = 0; c < cpiq.cols; ++c) {
            const std::size_t i = static_cast<std::size_t>(r) * cpiq.cols + c;
            if (i < cpiq.zones.size())
                out += g6(cpiq.zones[i].deltaAb) + QLatin1Char(',');
        }
        out += QLatin1String("\n>");
    }
    out += QLatin1String(" \nColor Uniformity Metric (CPIQ) \n") + g6(cpiq.metric);
    return out;
}

QString uniformityCsv(const UniformityReportData &data)
{
    QString out;
    for (int i = 0; i < 13; ++i)
        out += (i ? QLatin1String(",") : QLatin1String("")) + QLatin1String(kColumnNames[i]);
    out += QLatin1Char('\n');
    for (int c = 0; c < 4; ++c) {
        out += QLatin1String(uniformityChannelName(kChannels[c]));
        for (double v : rowValues(data.channels[c]))
            out += QLatin1Char(',') + g6(v);
        out += QLatin1Char('\n');
    }
    const CpiqResult &cpiq = data.cpiq;
    if (!cpiq.zones.empty()) {
        out += QLatin1String("\nZone row,Zone column,Red,Green,Blue,L*,a*,b*,Delta-ab\n");
        for (const CpiqZone &z : cpiq.zones)
            appendZoneLine(out, z);
        out += QLatin1String("\nColor Uniformity Metric (CPIQ),") + g6(cpiq.metric)
               + QLatin1Char('\n');
    }
    return out;
}

} // namespace kestro
