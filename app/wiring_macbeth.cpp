// Wiring of the "Macbeth Chart Image Tests" page: colour difference and noise.

#include "app/kestro.h"

void Kestro::wireColorDifferencePage() { }

void Kestro::wireNoisePage() { }
