// Depth conversion and dithering: any picture to binary, to N grey levels
// (plain or ordered-dithered) or to true colour, and the dispatcher that the
// Image menu, the advanced operations and the save path share.
//
// Every operation follows the destination convention of process/operation.h:
// with `dst` given the result goes to dst and `src` is kept; with dst null
// `src` is released and replaced. Each returns 0, or 1 when the result could
// not be allocated (then nothing is changed).
#pragma once

#include <cstdint>

#include "imgkit/imgkit.h"

namespace process {

// Conversion codes of convertPicture.
enum ConversionCode {
  kToBinary = 1,
  kToGrey4 = 2,  // 2..7: 4, 8, 16, 32, 64, 128 grey levels
  kToGrey128 = 7,
  kToGrey256 = 9,    // 8, 10 and 11 are unassigned: there is no 216-grey scale
  kToColours8 = 12,  // 12..18: 8, 16, 32, 64, 128, 216, 256 colours
  kToColours256 = 18,
  kToTrueColour = 19,
};

// Method codes of convertPicture.
enum ConversionMethod {
  kMethodThreshold = 0,       // binary: white above 126
  kMethodOrdered = 1,         // "Pattern" for binary, dithered grey, cube-dithered colours
  kMethodHalftone45 = 2,      // binary only
  kMethodHalftone90 = 3,      // binary only
  kMethodPlain = 4,           // grey without dither, adaptive palette for colours
  kMethodErrorDiffusion = 5,  // "Floyd Steinberg" to binary
};

// The dispatcher: chooses the routine for a conversion code and method.
// Codes 12..18 are handed to reduceColours (process/colour_reduce.h). Codes
// 0, 8, 10, 11, below 0 or above 19 return 0 and do nothing.
int convertPicture(ImageRecord* src, ImageRecord* dst, int conversionCode, int methodCode);

// To binary (type 1, pixels 0 black / 1 white). Methods: 0 threshold (white
// when the intensity is above 126), 1 the 16x16 Bayer pattern, 3 halftone
// 90 degrees, 5 error diffusion, anything else halftone 45 degrees. A binary
// source is duplicated into dst, or left alone when dst is null.
int convertToBinary(ImageRecord* src, ImageRecord* dst, int method);

// To `levels` grey levels (type 2, colour count `levels`, pixels are level
// numbers 0..levels-1; levels 2..256). Method 1 dithers with the 8x8 matrix
// unless levels is 256; every other method maps plainly. A binary source is
// always mapped plainly to 0 and levels-1.
int convertToGrey(ImageRecord* src, ImageRecord* dst, int levels, int method);

// To true colour (type 256, R,G,B). A true-colour source of any layout is
// duplicated into dst, or left alone when dst is null; it is not repacked.
int convertToTrueColour(ImageRecord* src, ImageRecord* dst);

// The ordered-dither table for n levels (n >= 2), built once per conversion.
// `cells[row][col][k]` is 1 when the matrix entry at (col, row) is below k;
// entry[v] splits intensity v into a lower level `lo`, the level above it
// `hi` = lo + 1, and the position `frac` (0..63) of v between the two.
struct DitherEntry {
  uint8_t frac, lo, hi;
};
struct DitherTable {
  uint8_t cells[8][8][64];
  DitherEntry entry[256];
};
void buildDitherTable(DitherTable* table, int levels);
// The level of intensity g at column x, row y.
inline int ditherLevel(const DitherTable& t, int g, int x, int y) {
  const DitherEntry& e = t.entry[g];
  return e.lo + t.cells[y & 7][x & 7][e.frac];
}

// The 8x8 matrix (values 0..50 with repeats; not a Bayer matrix) that drives
// the grey dither and the colour-cube dither: kDitherMatrix[y][x].
extern const uint8_t kDitherMatrix[8][8];

}  // namespace process
