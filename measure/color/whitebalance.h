#pragma once
// White balance of the gray row and the metric selection shared by the
// colour difference bar chart and the gray patch plot.

#include <QString>
#include <QStringList>
#include <QVector>

class QStdMacbethChartColorDifference;

namespace kestro {

// Appends the white-balance section, which closes the colour difference
// report document, to `report`. Gray patches whose record is not computed are
// left out of the table.
void appendWhiteBalanceReport(QString &report, const QStdMacbethChartColorDifference &model);

// The nine entries of the metric selector, in index order.
QStringList colorMetricNames();

// What one selector index shows. Indices 0-3 (dE00, dC00, dH00, saturation)
// give the bar chart all 24 patch values in mode 0; indices 4-8 (chroma, R/G,
// G/R, B/G, G/B) give it the six gray values in mode 2. The gray plot always
// gets the six gray values at x = 19..24 with the titles.
struct ColorMetricSelection
{
    bool valid = false; // false while patch 1 has no computed result, or a bad index
    int barMode = 0;
    QVector<double> barValues;
    QVector<double> grayX;      // 19..24
    QVector<double> grayValues; // patches 19..24
    QString plotTitle;
    QString axisTitle;
};
ColorMetricSelection colorMetricSelection(const QStdMacbethChartColorDifference &model, int index);

} // namespace kestro
