// Wiring of the MTF page.

#include "app/kestro.h"

void Kestro::wireMtfPage()
{
    // The page's custom gamma text, until the page exists: linear.
    m_mtfGamma = 1.0;
}
