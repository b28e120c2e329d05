// What every picture operation shares: starting a result picture like its
// source, handing it over by the destination convention, and row access.
//
// Destination convention: with `dst` given the result goes to dst and the
// source is kept (the view passes its undo copy as source); with dst null the
// source is released and replaced by the result.
#pragma once

#include <cstddef>
#include <cstdint>

#include "imgkit/imgkit.h"

// Hot pixel loops are compiled once per instruction-set level and the best
// one the processor supports is picked when the library loads; the loops
// themselves stay plain C++ that the compiler vectorizes. (GCC only: clang
// cannot clone function templates.)
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define VIMORA_VECTOR_CLONES \
  __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define VIMORA_VECTOR_CLONES
#endif

namespace process {

// Whether the hand-written 512-bit paths may run (they do only on processors
// that have the instructions). Tests switch it off to check the portable
// paths on any machine.
extern bool gWideVectorPaths;

// True when the processor has the 512-bit byte permutes (AVX-512 VBMI and BW)
// and gWideVectorPaths allows them.
bool wideBytePermutes();

// Allocates `result` with imkAllock(type, src.bitsPerComponent, width,
// height) and copies the carried attribute and the colour count. False when
// memory is short; `result` is then all zero.
bool newResult(const ImageRecord& src, ImageRecord& result, uint16_t type, int32_t width,
               int32_t height);
inline bool newResult(const ImageRecord& src, ImageRecord& result) {
  return newResult(src, result, src.type, src.width, src.height);
}

// Stores `result` by the destination convention. Returns 0.
int deliver(ImageRecord* src, ImageRecord* dst, const ImageRecord& result);

// Duplicates src into dst (same layout, colour count, attribute; pixels and
// palette copied whole) or, with dst null, does nothing. 0, or 1 when memory
// is short.
int duplicate(ImageRecord* src, ImageRecord* dst);

inline uint8_t* rowOf(ImageRecord& r, int y) {
  return r.pixels + static_cast<size_t>(y) * static_cast<size_t>(r.bytesPerLine);
}
inline const uint8_t* rowOf(const ImageRecord& r, int y) {
  return r.pixels + static_cast<size_t>(y) * static_cast<size_t>(r.bytesPerLine);
}

inline bool isTrueColour(uint16_t type) { return type != 1 && type != 2 && type != 4; }

// Byte offsets of red, green and blue in a true-colour pixel of this layout:
// 256 and 512 R,G,B; 2048 spare,B,G,R; every other layout B,G,R.
struct ChannelOffsets {
  int r, g, b;
};
inline ChannelOffsets channelOffsets(uint16_t type) {
  if (type == 256 || type == 512) return {0, 1, 2};
  if (type == 2048) return {3, 2, 1};
  return {2, 1, 0};
}

// grey = (77 R + 150 G + 29 B) >> 8
inline uint8_t luminance(unsigned r, unsigned g, unsigned b) {
  return static_cast<uint8_t>((77 * r + 150 * g + 29 * b) >> 8);
}

// table[i] = i * (m - 1) / (n - 1), i = 0..n-1, integer division.
void levelRamp(uint8_t* table, int n, int m);

}  // namespace process
