#pragma once
// Regions without widgets: a region is an axis-aligned rectangle in image
// pixel coordinates. Measurements round it outwards to whole pixels and check
// it against the picture before they use it, so that a region drawn partly
// off the picture is refused instead of read out of bounds.

#include <QColor>
#include <QImage>
#include <QRect>
#include <QRectF>

namespace kestro {

// Smallest integer rectangle that contains `rect` (left and top rounded down,
// right and bottom edges rounded up).
QRect alignedRect(const QRectF &rect);

// True when the rectangle is not null, the image is not null and both the
// top-left and the inclusive bottom-right corners are pixels of the image.
bool isRegionValid(const QImage &image, const QRect &rect);

// Mean 8-bit red, green and blue over the inclusive rectangle, each divided by
// 255 (components 0..1); an invalid colour for invalid input.
QColor regionMeanColor(const QImage &image, const QRect &rect);

// Near-neutral test on sRGB components in 0..1: the a*b* chroma computed with
// the rounded reference white (95.0, 100, 108.9) is at most 10.
bool isNearNeutral(double r, double g, double b);

// Outline colour of a region on a picture: red unless the region is valid on
// a non-null picture and its mean colour is not near-neutral, in which case
// the complement of the mean colour.
QColor regionOverlayColor(const QImage &picture, const QRectF &rect);

// "Invalid region:((l, t), (r, b))" with the inclusive right and bottom.
QString invalidRegionText(const QRect &rect);

} // namespace kestro
