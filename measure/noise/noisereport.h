#pragma once
// Text of the noise report: the input files, one table of noise levels per
// patch and the page of formulas.

#include "measure/noise/noiseengine.h"

#include <QColor>
#include <QString>
#include <QStringList>
#include <QVector>

namespace kestro {

// HTML document head shared by the measurement reports (head closed at once,
// no title, body start with the report font).
QString noiseReportHead();

// The report over `results` for one patch (patchIndex >= 0, 0-based) or for
// all patches (patchIndex < 0). `frameFiles` lists the frame set's file
// names in frame order.
QString buildNoiseReport(const QVector<NoisePatchResult> &results, const QStringList &frameFiles,
                         int patchIndex);

// The four SNR chart series over all patches (series[s][patch]). For each
// channel: Signal / noise, the noise being Overall with two frames or more
// and FPN with one; a zero (or unmeasurable) noise leaves 0 in the series.
// Colour channels go to fixed series: 0 red, 1 green (first green), 2 blue,
// 3 second green; other formats fill series 0, 1, 2 with channels 0, 1, 2.
QVector<QVector<double>> snrChartSeries(const QVector<NoisePatchResult> &results);

// A display colour per patch from its signals: RGB signals are linear light
// on 0..255 and are encoded back to sRGB; mosaic and single-channel signals
// are scaled by the largest signal of the set first.
QVector<QColor> noisePatchColors(const QVector<NoisePatchResult> &results);

} // namespace kestro
