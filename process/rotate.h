// Rotation by any angle ("Custom..." and "-rotate" with angles other than the
// quarter turns).
#pragma once

#include "imgkit/imgkit.h"

namespace process {

// Size of the picture turned by `degrees`: the bounding box of the turned
// rectangle, rounded up (at least 1 x 1). Multiples of 90 give the exact sizes.
void rotatedSize(int width, int height, double degrees, int* outWidth, int* outHeight);

// Turns the picture by `degrees` about its centre, clockwise for positive
// angles (as "Right" turns), into a picture grown to hold all of it. The
// uncovered corners are 0: black, or palette index 0.
//  - Multiples of 90 degrees are exact byte moves: 0 copies (with dst null
//    nothing changes), 90 / -270 and 270 / -90 are quarter turns, 180 the
//    half turn.
//  - True colour and grey pictures are sampled bilinearly (grey level numbers
//    are interpolated and rounded, so the level count stays); along the edge
//    of the turned picture its pixels are blended with the black outside.
//  - Binary and colour-mapped pictures take the nearest pixel, so no new
//    values or palette indices appear.
// The layout, colour count, attributes and palette are kept. Returns 0, or 1
// when the result could not be allocated (nothing is changed then).
int rotateFreeAngle(ImageRecord* src, ImageRecord* dst, double degrees);

}  // namespace process
