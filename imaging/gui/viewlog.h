#pragma once
// Debug log of the region views ("Mouse move   ", "Done with region drawing",
// "old Z : " ...). On by default; QT_LOGGING_RULES="kestro.view.debug=false"
// silences it.

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(kestroViewLog)
