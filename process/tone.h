// Tone adjustments: the "Map", "Adjust" and "Swap" operations. All but the
// channel swap build a 256-entry look-up table (or one per channel) once and
// pass every byte of the picture through it.
//
// Every operation has the form operation(src, dst[, parameter]) and returns 0,
// or 1 when the result could not be allocated (nothing is changed then). With
// dst given the result goes to dst and src is kept; with dst null src is
// released and replaced. Results keep the source's layout and size.
#pragma once

#include <cstdint>

#include "imgkit/imgkit.h"

namespace process {

// ---------------------------------------------------------------------------
// Tables (256 entries, out = table[in]).

// 255 - i.
void negativeTable(uint8_t table[256]);
// trunc(255 ln(1 + i) / ln 256): 0 stays 0 and 255 stays 255.
void logarithmicTable(uint8_t table[256]);
// i up to and including `threshold`, 255 - i above it.
void solarizeTable(uint8_t table[256], int threshold);
// `levels` blocks of 256 / levels entries, valued k * (255 / (levels - 1)); the
// block that would reach past 255 is forced to 255. levels <= 1 gives a single
// black level; levels above 256 are taken as 256 (the identity).
void posterizeTable(uint8_t table[256], int levels);
// clamp(i + offset, 0, 255).
void brightnessTable(uint8_t table[256], int offset);
// contrast > 0: 255 (i - k) / (255 - 2k); contrast <= 0: (255 + 2k) i / 255 - k;
// truncated toward zero and clamped. 127 is a hard threshold at 128.
void contrastTable(uint8_t table[256], int contrast);
// trunc(255 (i / 255)^(1 / gamma) + 0.5).
void gammaTable(uint8_t table[256], double gamma);

// Rewrites an intensity table for a picture of `levels` level numbers: level i
// goes to its intensity i * 255 / (levels - 1), through the table, and back to
// a level by truncation. Entries from `levels` on become 0. levels >= 256
// copies the table; levels <= 1 gives all zeros (the only level).
void levelSpaceTable(const uint8_t table[256], int levels, uint8_t out[256]);

// ---------------------------------------------------------------------------
// Applying tables. `result` must already be allocated like `src` (same
// layout and size); these only fill it.

// A binary picture or a grey picture of fewer than 256 levels gets the table
// in level space; a colour-mapped picture is adjusted through its palette only
// (the index bytes are copied); every other picture passes each byte through
// the table, except the fourth byte of a 4-byte pixel, which is copied.
void applyToneTable(const ImageRecord& src, ImageRecord& result, const uint8_t table[256]);

// Byte ch of every pixel goes through tables[ch * 256 + in] (the fourth byte of
// a 4-byte pixel is copied). The channels are byte positions, whatever the
// layout: on B,G,R the first table acts on blue, on a colour-mapped picture
// on the index bytes. Binary, grey and colour-mapped results get a colour
// count of 256 afterwards. The palette is copied unchanged.
void applyChannelTables(const ImageRecord& src, ImageRecord& result, const uint8_t tables[3 * 256]);

// counts[ch * 256 + v] = number of pixels whose byte ch is v, for every byte
// position ch below bytesPerPixel (at most 4).
void channelHistogram(const ImageRecord& pic, uint32_t counts[4 * 256]);

// lo[ch] and hi[ch]: the smallest and largest value of byte position ch, for
// every ch below bytesPerPixel (at most 4); an empty picture gives lo 255 and
// hi 0.
void channelRange(const ImageRecord& pic, uint8_t lo[4], uint8_t hi[4]);

// Number of channels the histogram operations look at: 3 for 4-byte pixels,
// else bytesPerPixel.
int toneChannels(const ImageRecord& pic);

// Per-channel tables from a histogram, for the first `channels` channels (the
// others are left as the identity).
//  - normalize: lo and hi, the smallest and largest values present, stretch
//    to 0..255: (v - lo) * 255 / (hi - lo), 0 below lo, 255 above hi. A
//    channel with a single value (or none) has nothing to stretch and is kept.
//  - equalize: trunc(255 (cdf[v] - cdf[0]) / max(cdf[255] - cdf[0], 1)); the
//    base is the count of value 0 itself, so a picture without that value
//    keeps its lowest value above 0.
//  - balance: clamp(i + offset) with the offsets red, green, blue for bytes
//    0, 1, 2.
void normalizeTables(const uint32_t counts[4 * 256], int channels, uint8_t tables[3 * 256]);
void normalizeTables(const uint8_t lo[4], const uint8_t hi[4], int channels,
                     uint8_t tables[3 * 256]);
void equalizeTables(const uint32_t counts[4 * 256], int channels, uint8_t tables[3 * 256]);
void balanceTables(int red, int green, int blue, int channels, uint8_t tables[3 * 256]);

// Whole operations with an arbitrary table: allocate, apply, deliver.
int mapPicture(ImageRecord* src, ImageRecord* dst, const uint8_t table[256]);
int mapChannels(ImageRecord* src, ImageRecord* dst, const uint8_t tables[3 * 256]);

// ---------------------------------------------------------------------------
// The menu operations ("-negate", "-log", ... in the batch vocabulary).

int negatePicture(ImageRecord* src, ImageRecord* dst);
int logarithmicPicture(ImageRecord* src, ImageRecord* dst);
int normalizePicture(ImageRecord* src, ImageRecord* dst);
int equalizePicture(ImageRecord* src, ImageRecord* dst);
int solarizePicture(ImageRecord* src, ImageRecord* dst, int threshold);  // 0..255
int posterizePicture(ImageRecord* src, ImageRecord* dst, int levels);    // 2..256
int brightnessPicture(ImageRecord* src, ImageRecord* dst, int offset);   // -255..255
int contrastPicture(ImageRecord* src, ImageRecord* dst, int contrast);   // -127..127
int gammaPicture(ImageRecord* src, ImageRecord* dst, double gamma);      // 0.01..5.00
// "Colors Balance...": offsets -100..100 for the tables of byte 0, 1 and 2.
int balancePicture(ImageRecord* src, ImageRecord* dst, int red, int green, int blue);

// Channel swap modes in the menu's order. Each label names, for the source
// channels R, G, B in turn, the slot each one moves to.
enum SwapMode : int {
  kSwapRBG = 0,  // "RGB->RBG": bytes s0, s2, s1
  kSwapBGR = 1,  // "RGB->BGR": bytes s2, s1, s0
  kSwapBRG = 2,  // "RGB->BRG": bytes s1, s2, s0
  kSwapGRB = 3,  // "RGB->GRB": bytes s1, s0, s2
  kSwapGBR = 4,  // "RGB->GBR": bytes s2, s0, s1
};
// Rearranges bytes 0..2 of every pixel of a picture of 3 or 4 bytes per pixel
// (the fourth byte is not written, so it comes out 0), or the palette entries
// of a colour-mapped picture; binary and grey pixels are copied. A mode
// outside 0..4 copies a colour-mapped picture and leaves true-colour pixels
// unwritten (0).
int swapChannels(ImageRecord* src, ImageRecord* dst, int mode);

}  // namespace process
