// Colour reduction: any picture to a colour-mapped picture (type 4) of at
// most N colours, either ordered-dithered onto a fixed colour cube or with an
// adaptive palette built from the colours the picture uses.
//
// Destination convention of process/operation.h: with `dst` given the result
// goes to dst and `src` is kept; with dst null `src` is released and
// replaced. 0 on success, 1 when memory is short (nothing is changed then).
#pragma once

#include <cstdint>
#include <vector>

#include "imgkit/imgkit.h"

namespace process {

// Reduces `src` to `colours` colours (the menus use 8, 16, 32, 64, 128, 216
// and 256; other counts from 1 to 256 work on the adaptive paths, counts
// above 256 are taken as 256, counts below 1 do nothing and return 0).
//
// - method 1 with one of the menu counts: ordered dither onto the colour cube
//   of cubeShape(colours), for every picture kind. 128 uses the same
//   8 x 8 x 4 cube as 256 and so yields 256 palette entries.
// - otherwise, binary, grey and colour-mapped sources: the popularity
//   palette, which hands over to box splitting when more than `colours`
//   entries are in use and `colours` is at least 8.
// - otherwise, true-colour sources: box splitting.
int reduceColours(ImageRecord* src, ImageRecord* dst, int colours, int method);

// Levels of red, green and blue of the dither cube for a menu colour count;
// all zero for any other count.
struct CubeShape {
  int red, green, blue;
};
CubeShape cubeShape(int colours);

// Per-channel dither entries of a cube: `low` and `high` are the two
// candidate levels already multiplied by the channel's place in the palette
// index (red by green x blue levels, green by blue levels, blue by 1);
// `frac` is the position between them, compared against the 8x8 matrix.
struct CubeDitherEntry {
  uint8_t frac, low, high;
};
struct CubeDitherTable {
  uint8_t cells[8][8][64];  // cells[row][col][k] = 1 when the matrix entry is below k
  CubeDitherEntry red[256], green[256], blue[256];
};
void buildCubeDitherTable(CubeDitherTable* table, int red, int green, int blue);

// The cube's palette (planar, 768 bytes): entry ri*g*b + gi*b + bi is
// (ri*255/(r-1), gi*255/(g-1), bi*255/(b-1)); entries past r*g*b are black.
void buildCubePalette(uint8_t* palette, int red, int green, int blue);

// --- Box splitting -------------------------------------------------------
// Colours are reduced to 6 bits per channel (value >> 2). The presence set is
// 2^18 bits (32768 bytes), bit `key & 7` of byte `key >> 3`, with
// key = R6 * 4096 + G6 * 64 + B6.
constexpr int kPresenceBytes = 32768;
inline int colourKey(int r6, int g6, int b6) { return (r6 << 12) | (g6 << 6) | b6; }

struct Colour6 {
  uint8_t r, g, b, spare;
};

struct ColourBox {
  int count = 0;                 // colours in the box
  uint8_t lower[3] = {0, 0, 0};  // bounds per channel (R, G, B), 6-bit units
  uint8_t upper[3] = {63, 63, 63};
  std::vector<Colour6> colours;  // ascending key order
  int octants = -1;              // non-empty octants a split would give (-1: unknown)
  int average[3] = {0, 0, 0};    // set with the palette
  int nearLow[3] = {0, 0, 0};    // second range: average -/+ half the extent
  int nearHigh[3] = {0, 0, 0};
};

// Builds the boxes for the colours of `presence` (`distinct` of them) and
// writes their average colours to the planar `palette` in list order. The
// result has at most max(colours, 8) boxes and at most 256.
std::vector<ColourBox> splitColourBoxes(const uint8_t* presence, uint8_t* palette, int distinct,
                                        int colours);

// Palette index for an 8-bit colour: the first box whose second range holds
// its 6-bit colour, else the first whose bounds hold it, else the last box.
// `cache` remembers the previous answer (reset it for each reduction).
struct ColourBoxCache {
  int key = -1;
  int index = 0;
};
int findColourBox(const std::vector<ColourBox>& boxes, ColourBoxCache& cache, int r, int g, int b);

// The answer of findColourBox for every 6-bit colour, indexed by colourKey
// (2^18 entries), computed by painting the boxes' ranges instead of
// searching per colour.
void colourBoxTable(const std::vector<ColourBox>& boxes, uint8_t* table);

}  // namespace process
