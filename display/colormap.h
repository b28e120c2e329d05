// Colormaps shared by reference count between windows of one visual, the
// colour cubes allocated in them on mapped visuals, and the ordered-dither
// tables of each cube size.
#pragma once

#include <X11/Xlib.h>

#include <cstdint>

#include "display/visual.h"
#include "imgkit/imgkit.h"

// One entry of a channel table: how far the value lies from the lower cube
// level towards the upper one (0..63) and the two levels' contributions to
// the cube index, premultiplied by the channel's weight.
struct DitherEntry {
  uint8_t fraction;
  uint8_t lowTerm;
  uint8_t highTerm;
  uint8_t unused;
};

struct DitherCube {
  uint32_t redLevels, greenLevels, blueLevels;
  DitherEntry* redTable;    // 256 entries
  DitherEntry* greenTable;  // 256 entries
  DitherEntry* blueTable;   // 256 entries
  uint8_t (*matrix)[8][64];  // [row][column][fraction]: 1 when fraction > threshold
  DitherCube* next;
};

// How pixels are found in a ColormapRecord.
enum ColormapMode : int32_t {
  kModePalette = 0,  // pixels[i] is the pixel of palette index i (or nothing allocated)
  kModeCube884 = 1,
  kModeCube666 = 2,
  kModeCube484 = 3,
  kModeCube444 = 4,
  kModeCube222 = 5,
};

struct ColormapRecord {
  int32_t mode;
  Colormap colormap;
  uint16_t shared;          // may be handed to another window of the same visual
  uint16_t privatePalette;  // writable, holds the shown picture's palette
  Visual* visual;
  uint32_t refCount;
  uint32_t colourCount;
  uint32_t pixels[256];
  uint32_t blackPixel;
  uint32_t whitePixel;
  DitherCube* cube;
  ColormapRecord* next;
  Display* display;  // the connection the colormap belongs to
};

// Returns a record with its reference taken: a shared record of the same
// visual when one exists (unless a private colormap is wanted), otherwise a
// new one filled with a cube, black and white, or the picture's palette.
// `picture` may be a zero-filled record; only its type, colour count and
// palette are read.
ColormapRecord* acquireColormap(Display* display, const ImageRecord& picture,
                                const DisplayVisual& visual, bool wantOwn);

// Drops one reference; a private record is freed with its last one, a shared
// record stays listed for reuse until freeAllColormaps.
void releaseColormap(ColormapRecord* record);

// Fills a new record of a PseudoColor or GrayScale visual: black and white
// at 2 bits or less, the picture's palette in an own colormap, otherwise the
// largest colour cube that can be allocated (8x8x4, 6x6x6, 4x8x4, 4x4x4,
// then 2x2x2 whatever happens).
void fillColormap(ColormapRecord* record, const ImageRecord& picture, int depth, bool wantOwn);

// Allocates (read-only, `allocate` set) or stores (writable colormap, pixel =
// cube index) an r x g x b cube, red outermost. A cube that cannot be
// allocated in full is given back completely and false is returned.
bool allocColorCube(ColormapRecord* record, uint32_t r, uint32_t g, uint32_t b, bool allocate);

// Stores the picture's palette (or grey ramp; the 8x8x4 cube for a
// true-colour picture) in the record's writable colormap, pixel = index.
void storePalette(const ImageRecord& picture, ColormapRecord* record);

// Stores the picture's palette again in a record with a private palette;
// does nothing otherwise.
void restorePalette(const ImageRecord& picture, ColormapRecord* record);

// At exit: frees every record (and its colours or colormap) and every cube.
void freeAllColormaps();

// The dither tables of an R x G x B cube, built on first request and kept.
DitherCube* getDitherCube(uint32_t r, uint32_t g, uint32_t b);

// The head of the process-wide record list (newest first), for inspection.
ColormapRecord* colormapList();

// The cube index of (r, g, b) at screen position (x, y) by ordered dither.
inline unsigned ditherIndex(const DitherCube& c, unsigned r, unsigned g, unsigned b, int x,
                            int y) {
  const uint8_t* m = c.matrix[y & 7][x & 7];
  const DitherEntry &er = c.redTable[r], &eg = c.greenTable[g], &eb = c.blueTable[b];
  return (m[er.fraction] ? er.highTerm : er.lowTerm) + (m[eg.fraction] ? eg.highTerm : eg.lowTerm) +
         (m[eb.fraction] ? eb.highTerm : eb.lowTerm);
}
