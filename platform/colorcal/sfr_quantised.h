#pragma once
// The tails of a noise-free 8-bit edge. Without noise every plateau pixel
// reads the code nearest to the true level, so the last half code of the
// edge's approach to each plateau is lost or added; the measured step is then
// up to a code too large or too small, and the excess sits in the tails, where
// the ESF crosses its last code boundaries. The crossings themselves are exact
// samples of the true ESF (it passes each boundary between two codes where the
// pixels change from one to the other), so the tail beyond them follows from
// fitting their approach to the plateau.

#include "sfr_edgefit.h"
#include "sfr_esf.h"
#include "sfr_plane.h"

namespace kestro::sfr {

// How the plane's values came from 8-bit codes: value = (code / 255)^(1 /
// gamma).
struct Quantisation
{
    bool exact = false; // every value of the plane is one code's value
    double gamma = 1.0;
};

// For each side whose outermost bin holds one code, finds the first six
// code boundaries from the plateau inwards and fits them with the approach
// of a blurred step, step * Q(alpha + beta w) = k + y at the k-th boundary
// (Q the upper tail of the normal distribution, w the outward distance from
// `centre`, y the unknown distance of the true plateau beyond the outermost
// boundary); the bins from the sixth boundary outwards then take that
// approach, now to the true plateau. Sides with fewer than four boundaries,
// or whose boundaries do not follow such an approach, stay as they are.
// Returns the number of sides refitted.
int restoreQuantisedTails(const Plane &plane, int rowBegin, int rowEnd, const EdgeFit &fit,
                          const Quantisation &quantisation, double centre, Esf &esf);

} // namespace kestro::sfr
