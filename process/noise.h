// "-noise uniform", "-noise gaussian", "-noise laplacian", "-noise poisson":
// random noise added to a picture. ("-noise reduce" is the filter
// reduceNoiseFilter of process/filter.h.)
//
// The noise is drawn independently for every colour byte from a fixed
// pseudo-random sequence started from `seed`, so the same seed on the same
// picture always gives the same result. `amount` is the strength in intensity
// steps 0..255 (clamped); 0 copies the picture.
//  - uniform: an integer offset drawn evenly from -amount..amount;
//  - gaussian: a normal offset with standard deviation `amount`, rounded;
//  - laplacian: a Laplace (double exponential) offset with standard deviation
//    `amount`, rounded: sharper peak and longer tails than the gaussian;
//  - poisson: intensity-dependent photon noise: v becomes
//    Poisson(v * c) / c rounded, c = 255 / amount^2, so black stays black and
//    the standard deviation grows as sqrt(v), reaching `amount` at white.
// Results are clamped to 0..255.
//
// By picture kind:
//  - true colour: R, G and B each get their own noise; the spare byte of
//    4-byte pixels is kept;
//  - grey: the level's intensity (level * 255 / (count - 1)) gets noise and
//    is turned back into the nearest level, so the level count stays;
//  - binary: 0 / 1 are taken as intensity 0 / 255 and the noisy intensity is
//    thresholded at 128;
//  - colour-mapped: the palette colour gets noise per channel and the pixel
//    becomes the palette entry nearest to the noisy colour (among the
//    colorCount entries, searched on a 32 x 32 x 32 grid of colours); the
//    palette itself is unchanged.
// The result keeps the source's layout, size, colour count, attributes and
// palette. Returns 0, or 1 when the result could not be allocated (nothing is
// changed then). With dst given the result goes to dst and src is kept; with
// dst null src is released and replaced.
#pragma once

#include <cstdint>

#include "imgkit/imgkit.h"

namespace process {

enum class NoiseKind { uniform, gaussian, laplacian, poisson };

int addNoise(ImageRecord* src, ImageRecord* dst, NoiseKind kind, int amount, uint32_t seed);

}  // namespace process
