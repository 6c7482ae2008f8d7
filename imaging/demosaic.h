#pragma once
// Demosaicing of a raw Bayer mosaic by gradient-corrected linear
// interpolation (5 x 5 kernels, Malvar, He and Cutler).

#include <QImage>
#include <cstdint>

namespace kestro {

// Position class of the mosaic cell position (x mod 2, y mod 2) for a colour
// order code: 0 green on a red row, 1 red, 2 blue, 3 green on a blue row.
// Order codes: 0 "G R / B G", 1 "R G / G B", 2 "B G / G R", 3 "G B / R G";
// any other code is treated as 0.
int bayerPositionClass(int bayerOrder, int x, int y);

// The channel quantisation of demosaicToImage: floor(clamp(n / range, 0, 1) *
// 255 + 1/2), exact for range in 1..16 * 65535.
int quantiseChannel(int n, int range);

// Demosaics a width x height array of 16-bit samples (row pitch = width) of
// `bits` significant bits with black level `black` into a Format_RGB32
// picture. The mosaic is first cut to even width and height (W, H); the
// picture is (W - 4) x (H - 4): output pixel (x, y) is centred on sample
// (x + 2, y + 2). Each channel is
// floor(clamp((sum of kernel * normalised sample), 0, 1) * 255 + 0.5) with the
// normalised sample (s - black) / ((2^bits - 1) - black), computed exactly
// in integer arithmetic (no rounding before the final one).
//
// Unsigned samples above full scale (noise in the unused high bits of a
// narrower depth) count as full scale; signed samples are taken as they are,
// negative ones included.
//
// Returns a null image when the mosaic is smaller than 6 x 6 after cutting,
// bits are outside 1..16, the black level is at or above full scale, or the
// picture cannot be allocated. The rows are computed in at most `threads`
// bands on the worker pool (1: on the calling thread alone; <= 0: a few
// bands per pool thread); the picture is the same for any banding.
//
// When `withinFullScale` is given, it is set to whether every sample the
// picture was made from (the mosaic cut to even width and height) is at or
// below full scale; false when no picture was made. A caller that keeps the
// samples learns from it whether they need clamping, without reading them
// again.
QImage demosaicToImage(const std::uint16_t *samples, int width, int height, int bits,
                       unsigned black, int bayerOrder, int threads = 0,
                       bool *withinFullScale = nullptr);
QImage demosaicToImage(const std::int16_t *samples, int width, int height, int bits, unsigned black,
                       int bayerOrder, int threads = 0);

} // namespace kestro
