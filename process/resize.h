// Resizing a picture to another size ("Resize...", "-resize" with "-ratio" and
// "-rtype linear|quick"; also the plain resample that saving to a fixed-size
// format needs).
#pragma once

#include "imgkit/imgkit.h"

namespace process {

// Resampling choices, numbered as the resize setting stores them.
enum ResampleType : int {
  // "quick": nearest pixel by the same integer rule as the screen scaling,
  // source column x * width / newWidth and row y * height / newHeight
  // (truncating): enlarging repeats pixels, reducing drops them. Every
  // picture kind keeps its kind, palette and colour count.
  kResampleQuick = 0,
  // "linear": per direction, bilinear interpolation between pixel centres
  // where the picture grows and area averaging (each result pixel the exact
  // coverage-weighted mean of the source pixels under it) where it shrinks.
  // True colour (all bytes of a pixel, the spare byte too) and grey pictures
  // keep their kind; grey level numbers are averaged and rounded, so the level
  // count stays. Averaging has no meaning for palette indices or for two
  // levels, so a colour-mapped picture becomes true colour (R,G,B, layout 256)
  // and a binary picture 256-level grey.
  kResampleLinear = 1,
};

// The size that a width x height picture gets when resized into `boxWidth` x
// `boxHeight`:
//  - keepRatio: the largest size of the same aspect (rounded) that fits the
//    box; a box side of 0 or below leaves that direction free.
//  - otherwise exactly the box; a side of 0 or below follows from the other by
//    the picture's aspect.
// Both sides 0 or below keep the picture's size. Never below 1 x 1.
void resizedSize(int width, int height, int boxWidth, int boxHeight, bool keepRatio, int* outWidth,
                 int* outHeight);

// Resizes to the size given by resizedSize(). A result of the source's own size
// is a plain copy (with dst null nothing changes). Keeps the carried attribute.
// Returns 0, or 1 when the result could not be allocated (nothing is changed
// then).
int resizePicture(ImageRecord* src, ImageRecord* dst, int width, int height,
                  ResampleType type = kResampleLinear, bool keepRatio = false);

}  // namespace process
