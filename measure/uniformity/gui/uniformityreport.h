#pragma once
// The uniformity report: the HTML report with its channel table, the
// original picture, the channel charts and the CPIQ zone table; the CPIQ
// shading-balance text file; and the uniformity CSV. The numbers come from
// one pass over the picture for all four channels (and the CPIQ zones);
// the charts are rendered with a QSpectrogramPlot into a picture folder.

#include "measure/uniformity/cpiq.h"
#include "measure/uniformity/gui/uniformitychartsettings.h"
#include "measure/uniformity/uniformity.h"

#include <QSize>
#include <QString>
#include <array>

class QSpectrogramPlot;

namespace kestro {

// Longer side of the original picture in the report, per chart size choice.
constexpr int kUniformityChartSizes[3] = {400, 550, 700}; // S, M, L

// What the report is made from, as the page holds it.
struct UniformityReportSettings
{
    QString imagePath; // as the report shows and links it
    int subsample = 0;
    int centerPercent = 0;
    int cornerPercent = 0;
    int chartSize = 550;
    // Channels whose charts are shown (uniformityChannelBit of Y, R, G, B).
    unsigned chartChannels = kAllUniformityChannels;
    QString colorMapName = QStringLiteral("Standard");
    UniformityContour contour;
    bool cpiq = false;
    int cpiqRows = kCpiqDefaultRows;
    int cpiqCols = kCpiqDefaultCols;
};

// The numbers of a report.
struct UniformityReportData
{
    int width = 0;
    int height = 0;
    int subsample = 0;
    std::array<UniformitySummary, 4> channels; // Y, R, G, B
    CpiqResult cpiq;                           // empty without CPIQ
};

// Grids of the four channels into `pass`, their summaries and, when asked,
// the CPIQ zones, from one pass over the picture. False, with the engine's
// message in `error`, for an invalid subsample size or a centre or corner
// percentage outside 0..100.
bool computeUniformityReport(const UniformityImage &image, const UniformityReportSettings &settings,
                             UniformityPass &pass, UniformityReportData &data, QString *error);

// A statistic as the page and the report show minimum, maximum and mean:
// truncated towards zero to an integer.
QString uniformityTruncatedText(double value);

// The report's colour map: "Standard", "Jet" or "Gray" in any letter case
// (any other name: "Standard"), as the chart's name for it.
QString uniformityReportColorMap(const QString &name);

// The size of the original picture in the report: the longer side at
// `chartSize`, the other scaled to keep the aspect ratio and truncated.
QSize uniformityPictureSize(int width, int height, int chartSize);

// "UniformityY.png", ... and the folder the charts are rendered into (the
// temporary folder, with a trailing separator).
QString uniformityChartFileName(UniformityChannel channel);
QString uniformityChartFolder();

// Renders the chart of each channel grid of `pass` into `folder` with
// `plot` (resized to the chart size, with the settings' colour map and
// contours). Each chart is rendered once; the PNG files are then written in
// parallel. Returns the number of charts written.
int renderUniformityCharts(QSpectrogramPlot &plot, const UniformityPass &pass,
                           const UniformityReportSettings &settings, const QString &folder);

// The report text; the charts are linked from `chartFolder`.
QString uniformityReportHtml(const UniformityReportSettings &settings,
                             const UniformityReportData &data, const QString &chartFolder);

// The CPIQ shading-balance table as text.
QString uniformityCpiqText(const CpiqResult &cpiq);

// The uniformity CSV: a header row and one row per channel with the columns
// of the report table, then the CPIQ zone table and metric when zones were
// computed. Numbers with 6 significant digits.
QString uniformityCsv(const UniformityReportData &data);

} // namespace kestro
