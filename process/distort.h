// Geometric distortions of the batch words: shear, swirl, spread, lens and
// waves.
//
// Each output pixel is taken from a computed source position:
//  - true colour and grey pictures are sampled bilinearly (all bytes of a
//    pixel, grey level numbers interpolated and rounded, so the level count
//    stays);
//  - binary and colour-mapped pictures take the nearest pixel, so no new
//    values or palette indices appear (spread always copies whole pixels).
// Positions outside the picture give 0: black, level 0 or palette index 0.
// The result keeps the source's layout, colour count, attributes and palette.
// Every operation returns 0, or 1 when the result could not be allocated
// (nothing is changed then). With dst given the result goes to dst and src is
// kept; with dst null src is released and replaced.
#pragma once

#include <cstdint>

#include "imgkit/imgkit.h"

namespace process {

// Size of the picture sheared by `xDegrees` then `yDegrees` (see
// shearEffect): the bounding box of the sheared pixel centres plus one pixel.
void shearedSize(int width, int height, double xDegrees, double yDegrees, int* outWidth,
                 int* outHeight);

// "-shear": a horizontal shear by xDegrees (rows further down move right for
// positive angles: x' = x + tan(xDegrees) * y) followed by a vertical shear by
// yDegrees (columns further right move down: y' = y + tan(yDegrees) * x'),
// about the picture's centre, into a picture grown to hold all of it (see
// shearedSize). Angles are clamped to -85..85 degrees; 0, 0 copies.
int shearEffect(ImageRecord* src, ImageRecord* dst, double xDegrees, double yDegrees);

// "-swirl": turns the picture inside the ellipse inscribed in it about the
// centre, by `degrees` at the centre falling to 0 at the ellipse:
// angle = degrees * (1 - rho)^2 with rho the elliptical distance (0 centre,
// 1 on the ellipse). Positive angles turn clockwise. Outside the ellipse the
// picture is unchanged. 0 copies.
int swirlEffect(ImageRecord* src, ImageRecord* dst, double degrees);

// "-spread": every pixel is replaced by a pixel chosen at random from the
// square of half-side `radius` around it (offsets -radius..radius in each
// direction, positions clamped to the picture). Whole pixels are copied, on
// every kind of picture. The same seed gives the same picture; radius 0
// copies.
int spreadEffect(ImageRecord* src, ImageRecord* dst, int radius, uint32_t seed);

// "-lens": a lens over the ellipse inscribed in the picture. A point at
// elliptical distance rho (0 centre, 1 on the ellipse) shows the source point
// in the same direction at distance rho^e, e = 2^(amount / 100), amount
// clamped to -100..100: positive amounts magnify the centre (a bulge),
// negative ones shrink it (a pinch). Outside the ellipse the picture is
// unchanged; 0 copies.
int lensEffect(ImageRecord* src, ImageRecord* dst, int amount);

// "-waves": every column is moved down by amplitude * sin(2 pi x /
// wavelength) pixels (x the column from 0), on a picture grown by
// 2 * ceil(amplitude) rows (ceil(amplitude) above and below) so nothing is
// lost. Amplitude is clamped to 0..1000 pixels, wavelength to at least 1
// pixel. Amplitude 0 copies.
int wavesEffect(ImageRecord* src, ImageRecord* dst, double amplitude, double wavelength);

}  // namespace process
