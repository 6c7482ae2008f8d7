#pragma once
// Debug log of the region views ("Mouse move   ", "Done with region drawing",
// "old Z : " ...). Off by default, so that batch runs keep stderr for what
// matters; QT_LOGGING_RULES="kestro.view.debug=true" turns it on.

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(kestroViewLog)
