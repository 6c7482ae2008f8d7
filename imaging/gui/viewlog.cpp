#include "imaging/gui/viewlog.h"

Q_LOGGING_CATEGORY(kestroViewLog, "kestro.view", QtInfoMsg)
