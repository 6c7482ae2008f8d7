#pragma once
// The colour difference report: an HTML document with the summary of the
// four difference metrics, one row per measured patch and the white-balance
// section of the gray row.

#include <QString>

class QStdMacbethChartColorDifference;

namespace kestro {

// The whole report over the model's computed patches. `imageFileName` is the
// chart picture the patches were measured on; it is shown and linked as
// given. Patches whose record is not computed are left out of the table.
QString colorDifferenceReport(const QStdMacbethChartColorDifference &model,
                              const QString &imageFileName);

} // namespace kestro
