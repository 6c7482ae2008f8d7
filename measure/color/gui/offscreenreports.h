#pragma once
// The chart page's HTML reports for a program without a window (the
// command-line tool): a page is made offscreen, given the measurement, and
// writes its report with the same pictures as in the window. The program
// must run a QApplication (on the offscreen platform, say).

#include "measure/noise/noiseengine.h"

#include <QRect>
#include <QString>
#include <QStringList>
#include <QVector>

class CFrame;

namespace kestro {

// The colour difference report of `frame` measured over the 24 `regions`.
bool writeOffscreenColorDifferenceReport(const CFrame &frame, const QVector<QRect> &regions,
                                         const QString &path, QString *error);

// The noise report of results measured over `frameFiles`.
bool writeOffscreenNoiseReport(const QVector<NoisePatchResult> &results,
                               const QStringList &frameFiles, const QString &path, QString *error);

} // namespace kestro
