// Neighbourhood filters of the Filter menu and the batch words: fixed 3x3
// kernels, strength-controlled 3x3 filters, size-controlled filters (average,
// Gaussian, maximum, minimum, box and cross medians), "Reduce noise" and the
// 5x5 user filter.
//
// Every filter works on bytes: each byte position of a pixel (each colour
// byte, and the fourth byte of 4-byte pixels too) is filtered on its own with
// the same weights, on every kind of picture. Grey level numbers, binary 0/1
// bytes and palette indices are filtered as plain numbers. The picture is
// extended by edge replication in all four directions, so border pixels see
// copies of the nearest row / column as their missing neighbours.
//
// Unless a filter says otherwise the window sum is taken in signed integers,
// divided with truncation toward zero and clamped to 0..255.
//
// The result keeps the source's layout, size, colour count, attributes and
// palette. Every filter returns 0, or 1 when the result or its row buffers
// could not be allocated (nothing is changed then). With dst given the result
// goes to dst and src is kept; with dst null src is released and replaced.
#pragma once

#include <cstdint>

#include "imgkit/imgkit.h"

namespace process {

// Fills `buffer` with row y of `picture` (y clamped to 0..height-1) padded by
// edge replication for a window of size s: the row goes in at pixel offset
// s/2, the first pixel's bytes are repeated into the s/2 pixels on the left
// and the last pixel's bytes into the s/2 pixels on the right. `buffer` holds
// (width + 2 * (s/2)) * bytesPerPixel bytes.
void loadPaddedRow(uint8_t* buffer, const ImageRecord& picture, int y, int s);

// The fixed 3x3 kernels: out = clamp(sum(w * pixel) / divisor + bias).
//   0 "Enhance Detail"     0 -1  0 / -1 10 -1 /  0 -1  0   divisor 6
//   1 "Enhance Focus"     -1  0 -1 /  0  7  0 / -1  0 -1   divisor 3
//   2 "Focus Restoration"  0 -1  0 / -1  5 -1 /  0 -1  0   divisor 1
//   3 (no menu entry)      1 -2  1 / -2  5 -2 /  1 -2  1   divisor 1
//   4 "Edge detect Light"  0  1  0 /  1 -4  1 /  0  1  0   bias 128
//   5 "Edge detect Medium" -1 -1 -1 / -1 8 -1 / -1 -1 -1   bias 128
//   6 "Edge detect Heavy"  1 -2  1 / -2  4 -2 /  1 -2  1   bias 128
//   7 "Emboss"            -1  0  0 /  0  0  0 /  0  0  1   bias 128
//   8 "Emboss More"       -1 -2  0 / -2  0  2 /  0  2  1   bias 128
// Batch words "-edetail" 0, "-efocus" 1, "-frestore" 2, "-edgedetect light"
// 4, "medium" 5, "heavy" 6, "-emboss" 7, "-embossmore" 8. A kernel number
// outside 0..8 does nothing and returns 0.
int convolve3x3(ImageRecord* src, ImageRecord* dst, int kernelNumber);

// Strength-controlled 3x3 filters, strength p in 1..100 (clamped into it).
// P is the centre byte, E the sum of the four side neighbours, K the sum of
// the four corners, N = E + K.
//  "Soften..." / "-soften" (dialog starts at 5): w = (100 - p) * 3175 / 100,
//    out = (P * (w + 25) + 100 * N) / (w + 825).
//  "Blur..." / "-blur" (starts at 5): w as for soften,
//    out = (P * (w + 25) + 200 * E + 100 * K) / (w + 1225).
//  "Enhance Edges..." / "-eedge" (starts at 50): w = (100 - p) * 55 / 100,
//    out = clamp((P * (w + 9) - N) / (w + 1)).
//  "Sharpen..." / "-sharpen" (starts at 50): d = 100 - p, or 1 at p = 100,
//    out = clamp((100 * P - (p * N) / 8) / d). Strength 100 divides by 1, so a
//    uniform picture comes out black there.
int softenFilter(ImageRecord* src, ImageRecord* dst, int strength);
int blurFilter(ImageRecord* src, ImageRecord* dst, int strength);
int enhanceEdgesFilter(ImageRecord* src, ImageRecord* dst, int strength);
int sharpenFilter(ImageRecord* src, ImageRecord* dst, int strength);

// Size-controlled filters over the s x s window centred on each pixel; the
// dialog offers 3, 5, 7, 9, 11, 13 (default 3). Any size from 1 to 31 is
// accepted: an even size is taken as the next odd one, smaller sizes as 1
// (which copies the picture) and larger as 31.
//  "Average..." / "-average": out = window sum / (s * s), truncating.
//  "Blur Gaussian..." / "-gauss": integer weights W = trunc(w / S * 2048 +
//    0.5) where w = exp(-r^2 / (2 sigma^2)) falls to 1/255 at distance s
//    (sigma^2 = -s^2 / (2 ln(1/255))) and S is the sum of w over the window;
//    out = (sum W * pixel) >> 11 with no clamping: only the low 8 bits are
//    stored, so when the rounded weights add up to more than 2048 the
//    brightest bytes can wrap round to dark ones.
//  "Maximum..." / "-maximum", "Minimum..." / "-minimum": the largest /
//    smallest byte of the window.
//  "Median Box..." / "-medianb": the middle (index s*s/2) of the window's
//    bytes sorted ascending.
//  "Median Cross..." / "-medianc": the middle (index s - 1) of the 2s - 1
//    bytes of the window's centre row and centre column (centre once).
int averageFilter(ImageRecord* src, ImageRecord* dst, int size);
int gaussianFilter(ImageRecord* src, ImageRecord* dst, int size);
int maximumFilter(ImageRecord* src, ImageRecord* dst, int size);
int minimumFilter(ImageRecord* src, ImageRecord* dst, int size);
int medianBoxFilter(ImageRecord* src, ImageRecord* dst, int size);
int medianCrossFilter(ImageRecord* src, ImageRecord* dst, int size);

// The integer weights of the Gaussian of size s (after the same size
// adjustment as gaussianFilter), row-major into `weights` (s * s entries).
// Returns the adjusted size.
int gaussianWeights(int size, int* weights);

// "Reduce noise" / "-noise reduce": a 5x5 cross,
// out = clamp((7 P + 3 (u1 + d1 + l1 + r1) - (u2 + d2 + l2 + r2)) / 15) with
// u1, u2 one and two rows above, d1, d2 below, l1, l2 left, r1, r2 right.
int reduceNoiseFilter(ImageRecord* src, ImageRecord* dst);

// "User filter...": 25 weights (row-major, top row first), a divisor and a
// bias; out = clamp(sum(m * pixel) / divisor + bias). A divisor of 0 is taken
// as 1.
int userFilter(ImageRecord* src, ImageRecord* dst, const int weights[25], int divisor, int bias);

}  // namespace process
