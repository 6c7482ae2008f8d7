#pragma once
// Text of the noise report: the input files, one table of noise levels per
// patch and the page of formulas.

#include "measure/noise/noiseengine.h"

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

} // namespace kestro
