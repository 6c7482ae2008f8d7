#pragma once
// The message boxes live with the lowest widget library, so that views and
// pages can use them without depending on the window.
#include "imaging/gui/messages.h"
