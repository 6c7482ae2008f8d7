// Wiring of the "Color Uniformity" page.

#include "app/kestro.h"

void Kestro::wireUniformityPage() { }
