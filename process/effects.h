// Area effects of the Effects menu and the batch words: mosaic, oil painting,
// de-interlace, slice and tile.
//
// Mosaic, oil painting and de-interlace treat each byte position of a pixel
// as its own channel, so they work on every kind of picture (grey level
// numbers, binary 0/1 bytes and palette indices are handled as numbers).
// Slice and tile only move whole pixels, so no new values appear.
//
// The result keeps the source's layout, size, colour count, attributes and
// palette. Every operation returns 0, or 1 when the result could not be
// allocated (nothing is changed then). With dst given the result goes to dst
// and src is kept; with dst null src is released and replaced.
#pragma once

#include "imgkit/imgkit.h"

namespace process {

// "Mosaic..." / "-mosaic", block step t in 1..64 (clamped; the dialog starts
// at 4). Blocks start at every multiple of t, rows outer, and each covers rows
// y .. min(y + t, height - 1) and columns x .. min(x + t, width - 1), both
// ends included: t + 1 pixels a side, overlapping the next block by one row
// and one column. Each block's source bytes are averaged per byte position
// (truncating) and the average is written over the whole block, so the next
// block overwrites the shared row and column. Even t = 1 changes the picture.
int mosaicEffect(ImageRecord* src, ImageRecord* dst, int t);

// "Oil Painting..." / "-oil", radius r in 1..16 (clamped; the dialog starts at
// 1). Every byte becomes the most frequent value of its window: rows
// max(y - r, 0) .. min(y + r, height - 1), columns likewise (clipped, not
// replicated). The window is scanned row by row, left to right, and each
// pixel's bytes in order; all byte positions count into one shared set of
// counters indexed by value, while each byte position keeps its own best
// count and winner, updated when a counter exceeds that best. So on
// multi-byte pixels a value seen in one channel helps the same value win in
// another; on one-byte pixels this is the plain mode filter of the window,
// ties going to the value that first reached the top count.
int oilPaintEffect(ImageRecord* src, ImageRecord* dst, int r);

// "De-Interlace...". keepOdd: 1 for "Eliminate: Odd Fields"; duplicate: 1 for
// "New Fields: Duplication", 0 for "Interpolation". Rows count from 0.
//  - Duplication: result rows 2k and 2k + 1 both receive source row
//    2k + keepOdd. When that row is past the end (odd height with keepOdd 1)
//    the last row of the kept field (two rows up) is used.
//  - Interpolation: a row i with (i mod 2) != keepOdd that has rows above and
//    below becomes (above + below) >> 1, byte by byte over the whole row
//    buffer; every other row, the first and the last included, is copied.
int deinterlaceEffect(ImageRecord* src, ImageRecord* dst, int keepOdd, int duplicate);

// "-slice": the picture is cut into bands `size` pixels thick (rows, or
// columns when `vertical` is set) and every band is slid along its length by
// `offset` pixels with wrap-around: bands 0, 2, 4, ... to the left (up), bands
// 1, 3, 5, ... to the right (down). size is at least 1; any offset is
// allowed (taken modulo the band length).
int sliceEffect(ImageRecord* src, ImageRecord* dst, int size, int offset, bool vertical);

// "-tile": the picture shrunk `columns` times across and `rows` times down and
// repeated to fill its own size: pixel (x, y) takes source pixel
// ((x * columns) mod width, (y * rows) mod height). 1 x 1 copies the picture;
// counts below 1 are taken as 1.
int tileEffect(ImageRecord* src, ImageRecord* dst, int columns, int rows);

}  // namespace process
