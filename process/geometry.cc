// Flips, quarter turns, crop and canvas: pure byte moves.
#include "process/geometry.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

#include "process/operation.h"
#include "process/rotate.h"

namespace process {

namespace {

void copyPalette(const ImageRecord& src, ImageRecord& result) {
  if (src.palette && result.palette) std::memcpy(result.palette, src.palette, 768);
}

template <int kBpp>
inline void copyPixel(uint8_t* d, const uint8_t* s) {
  std::memcpy(d, s, kBpp);
}

// Mirror of one row against the end of the result row buffer.
template <int kBpp>
void mirrorRow(const uint8_t* s, uint8_t* rowEnd, int width) {
  uint8_t* d = rowEnd - kBpp;
  for (int j = 0; j < width; ++j, s += kBpp, d -= kBpp) copyPixel<kBpp>(d, s);
}

void mirrorRowAny(const uint8_t* s, uint8_t* rowEnd, int width, int bpp) {
  uint8_t* d = rowEnd - bpp;
  for (int j = 0; j < width; ++j, s += bpp, d -= bpp) std::memcpy(d, s, static_cast<size_t>(bpp));
}

// Quarter turns. Result row i, column j takes source pixel (row sy, column
// sx): clockwise sy = height - 1 - j, sx = i; counter-clockwise sy = j,
// sx = width - 1 - i. The work goes in 32 x 32 tiles, so that the rows read
// and written stay in cache, and inside a tile in small square blocks moved
// with whole-word loads and stores: a block reads a few pixels from each of
// a few source rows and writes them, transposed, to as many result rows.
constexpr int kTile = 32;

template <typename T>
inline T load(const uint8_t* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <typename T>
inline void store(uint8_t* p, T v) {
  std::memcpy(p, &v, sizeof v);
}

struct TurnView {
  const ImageRecord& src;
  ImageRecord& result;
  // Start of the pixels that source row k of the block at result (i, j)
  // gives; the block's source rows are taken in result-column order.
  template <int kBpp, bool kClockwise, int kBlock>
  const uint8_t* blockRow(int i, int j, int k) const {
    if constexpr (kClockwise)
      return rowOf(src, src.height - 1 - (j + k)) + static_cast<ptrdiff_t>(i) * kBpp;
    else
      return rowOf(src, j + k) + static_cast<ptrdiff_t>(src.width - kBlock - i) * kBpp;
  }
  // Result row for block row m: counter-clockwise turns read the source
  // columns right to left.
  template <bool kClockwise, int kBlock>
  uint8_t* resultRow(int i, int m) const {
    return rowOf(result, kClockwise ? i + m : i + kBlock - 1 - m);
  }
};

template <int kBpp, bool kClockwise>
inline void turnPixel(const TurnView& v, int i, int j) {
  const int sy = kClockwise ? v.src.height - 1 - j : j;
  const int sx = kClockwise ? i : v.src.width - 1 - i;
  std::memcpy(rowOf(v.result, i) + static_cast<ptrdiff_t>(j) * kBpp,
              rowOf(v.src, sy) + static_cast<ptrdiff_t>(sx) * kBpp, kBpp);
}

// 8 x 8 one-byte pixels: eight 8-byte words transposed as a byte matrix (word
// k, byte m to word m, byte k) in three rounds of swaps between words.
template <bool kClockwise>
inline void turnBlock1(const TurnView& v, int i, int j) {
  uint64_t x[8];
  for (int k = 0; k < 8; ++k) x[k] = load<uint64_t>(v.blockRow<1, kClockwise, 8>(i, j, k));
  for (int k = 0; k < 8; k += 2) {
    const uint64_t t = ((x[k] >> 8) ^ x[k + 1]) & 0x00FF00FF00FF00FFull;
    x[k + 1] ^= t;
    x[k] ^= t << 8;
  }
  for (int k : {0, 1, 4, 5}) {
    const uint64_t t = ((x[k] >> 16) ^ x[k + 2]) & 0x0000FFFF0000FFFFull;
    x[k + 2] ^= t;
    x[k] ^= t << 16;
  }
  for (int k = 0; k < 4; ++k) {
    const uint64_t t = ((x[k] >> 32) ^ x[k + 4]) & 0x00000000FFFFFFFFull;
    x[k + 4] ^= t;
    x[k] ^= t << 32;
  }
  for (int m = 0; m < 8; ++m) store(v.resultRow<kClockwise, 8>(i, m) + j, x[m]);
}

// 4 x 4 three-byte pixels: each source row gives 12 bytes (one 8-byte and one
// 4-byte load) split into four pixels; each result row is put back together
// from one pixel of every source row.
template <bool kClockwise>
inline void turnBlock3(const TurnView& v, int i, int j) {
  uint32_t q[4][4];
  for (int k = 0; k < 4; ++k) {
    const uint8_t* s = v.blockRow<3, kClockwise, 4>(i, j, k);
    const uint64_t a = load<uint64_t>(s);
    const uint32_t b = load<uint32_t>(s + 8);
    q[k][0] = static_cast<uint32_t>(a & 0xFFFFFF);
    q[k][1] = static_cast<uint32_t>((a >> 24) & 0xFFFFFF);
    q[k][2] = static_cast<uint32_t>(a >> 48) | ((b & 0xFF) << 16);
    q[k][3] = b >> 8;
  }
  for (int m = 0; m < 4; ++m) {
    uint8_t* d = v.resultRow<kClockwise, 4>(i, m) + static_cast<ptrdiff_t>(j) * 3;
    store(d, static_cast<uint64_t>(q[0][m]) | static_cast<uint64_t>(q[1][m]) << 24 |
                 static_cast<uint64_t>(q[2][m]) << 48);
    store(d + 8, (q[2][m] >> 16) | (q[3][m] << 8));
  }
}

// 4 x 4 four-byte pixels: a 4 x 4 matrix of 32-bit words.
template <bool kClockwise>
inline void turnBlock4(const TurnView& v, int i, int j) {
  uint32_t q[4][4];
  for (int k = 0; k < 4; ++k) {
    const uint8_t* s = v.blockRow<4, kClockwise, 4>(i, j, k);
    for (int m = 0; m < 4; ++m) q[k][m] = load<uint32_t>(s + 4 * m);
  }
  for (int m = 0; m < 4; ++m) {
    uint8_t* d = v.resultRow<kClockwise, 4>(i, m) + static_cast<ptrdiff_t>(j) * 4;
    for (int k = 0; k < 4; ++k) store(d + 4 * k, q[k][m]);
  }
}

// Starts loading the source and result bytes of the tile at (i0..i1, j0..j1).
template <int kBpp, bool kClockwise>
void prefetchTile(const ImageRecord& src, const ImageRecord& result, int i0, int i1, int j0,
                  int j1) {
  const int n = (i1 - i0) * kBpp;
  for (int j = j0; j < j1; ++j) {
    const int sy = kClockwise ? src.height - 1 - j : j;
    const int sx = kClockwise ? i0 : src.width - i1;
    const uint8_t* p = rowOf(src, sy) + static_cast<ptrdiff_t>(sx) * kBpp;
    for (int b = 0; b < n; b += 64) __builtin_prefetch(p + b);
    __builtin_prefetch(p + n - 1);
  }
  const int m = (j1 - j0) * kBpp;
  for (int i = i0; i < i1; ++i) {
    const uint8_t* p = rowOf(result, i) + static_cast<ptrdiff_t>(j0) * kBpp;
    for (int b = 0; b < m; b += 64) __builtin_prefetch(p + b, 1);
    __builtin_prefetch(p + m - 1, 1);
  }
}

template <int kBpp, bool kClockwise>
void turnTiles(const ImageRecord& src, ImageRecord& result) {
  // The word moves take bytes in little-endian order.
  constexpr bool kWords = std::endian::native == std::endian::little;
  constexpr int kBlock = kBpp == 1 ? 8 : 4;
  const TurnView v{src, result};
  const int outW = result.width, outH = result.height;  // src.height, src.width
  for (int i0 = 0; i0 < outH; i0 += kTile) {
    const int i1 = std::min(i0 + kTile, outH);
    const int ib = kWords ? i0 + (i1 - i0) / kBlock * kBlock : i0;
    for (int j0 = 0; j0 < outW; j0 += kTile) {
      const int j1 = std::min(j0 + kTile, outW);
      const int jb = kWords ? j0 + (j1 - j0) / kBlock * kBlock : j0;
      // Every source row of a tile lies far from the others in memory, where
      // no hardware prefetcher looks: the next tile is asked for while this
      // one is moved.
      if (j1 < outW)
        prefetchTile<kBpp, kClockwise>(src, result, i0, i1, j1, std::min(j1 + kTile, outW));
      else if (i1 < outH)
        prefetchTile<kBpp, kClockwise>(src, result, i1, std::min(i1 + kTile, outH), 0,
                                       std::min(kTile, outW));
      for (int i = i0; i < ib; i += kBlock) {
        for (int j = j0; j < jb; j += kBlock) {
          if constexpr (kBpp == 1) turnBlock1<kClockwise>(v, i, j);
          if constexpr (kBpp == 3) turnBlock3<kClockwise>(v, i, j);
          if constexpr (kBpp == 4) turnBlock4<kClockwise>(v, i, j);
        }
        for (int m = i; m < i + kBlock; ++m)
          for (int j = jb; j < j1; ++j) turnPixel<kBpp, kClockwise>(v, m, j);
      }
      for (int i = ib; i < i1; ++i)
        for (int j = j0; j < j1; ++j) turnPixel<kBpp, kClockwise>(v, i, j);
    }
  }
}

template <bool kClockwise>
void turnAny(const ImageRecord& src, ImageRecord& result) {
  const int bpp = src.bytesPerPixel;
  for (int i = 0; i < result.height; ++i) {
    uint8_t* d = rowOf(result, i);
    for (int j = 0; j < result.width; ++j, d += bpp) {
      const int sy = kClockwise ? src.height - 1 - j : j;
      const int sx = kClockwise ? i : src.width - 1 - i;
      std::memcpy(d, rowOf(src, sy) + static_cast<ptrdiff_t>(sx) * bpp, static_cast<size_t>(bpp));
    }
  }
}

#if defined(__x86_64__) && defined(__GNUC__)
#define VIMORA_TURN_GATHER 1

// Quarter turn of 3- or 4-byte pixels with 512-bit gathers: sixteen source
// rows give one 4-byte word each (a whole pixel, plus the next pixel's first
// byte for 3-byte pixels), the words are packed to sixteen pixels with a byte
// permute and stored as one piece of a result row. Works in tiles like
// turnTiles so that the source rows stay in cache. The word read for the last
// pixel of the buffer would reach one byte past it, so the result row that
// takes the last source column goes pixel by pixel; so do the result columns
// left over after whole groups of sixteen.
// (GCC 12 warns about the intrinsics' own undefined start values.)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
template <int kBpp, bool kClockwise>
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) void turnGather(const ImageRecord& src,
                                                                       ImageRecord& result) {
  const TurnView v{src, result};
  const int outW = result.width, outH = result.height;
  const int bpl = src.bytesPerLine;
  // Lane k holds the offset of source row k of a group from the group's first
  // (clockwise: going up).
  alignas(64) int32_t rowStep[16];
  for (int k = 0; k < 16; ++k) rowStep[k] = (kClockwise ? -k : k) * bpl;
  const __m512i step = _mm512_load_si512(rowStep);
  alignas(64) uint8_t packOrder[64] = {};
  for (int b = 0; b < 48; ++b) packOrder[b] = static_cast<uint8_t>(b / 3 * 4 + b % 3);
  const __m512i pack = _mm512_load_si512(packOrder);
  const __mmask64 storeMask = kBpp == 3 ? (__mmask64{1} << 48) - 1 : ~__mmask64{0};
  const int lastColumnRow = kClockwise ? src.width - 1 : 0;
  const int jb = outW / 16 * 16;
  for (int i0 = 0; i0 < outH; i0 += kTile) {
    const int i1 = std::min(i0 + kTile, outH);
    for (int j0 = 0; j0 < jb; j0 += 2 * kTile) {
      const int j1 = std::min(j0 + 2 * kTile, jb);
      for (int i = i0; i < i1; ++i) {
        if (kBpp == 3 && i == lastColumnRow) continue;
        const int sx = kClockwise ? i : src.width - 1 - i;
        const uint8_t* base = src.pixels + static_cast<ptrdiff_t>(sx) * kBpp;
        uint8_t* out = rowOf(result, i);
        for (int j = j0; j < j1; j += 16) {
          const int firstRow = kClockwise ? src.height - 1 - j : j;
          const __m512i index = _mm512_add_epi32(_mm512_set1_epi32(firstRow * bpl), step);
          __m512i pixels = _mm512_i32gather_epi32(index, base, 1);
          if constexpr (kBpp == 3) pixels = _mm512_permutexvar_epi8(pack, pixels);
          _mm512_mask_storeu_epi8(out + static_cast<ptrdiff_t>(j) * kBpp, storeMask, pixels);
        }
      }
    }
  }
  for (int i = 0; i < outH; ++i)
    for (int j = (kBpp == 3 && i == lastColumnRow) ? 0 : jb; j < outW; ++j)
      turnPixel<kBpp, kClockwise>(v, i, j);
}
#pragma GCC diagnostic pop
#endif

// The gathers address the source with 32-bit offsets.
bool gatherFits(const ImageRecord& src) {
  return static_cast<int64_t>(src.bytesPerLine) * src.height < (int64_t{1} << 31);
}

template <bool kClockwise>
void turn(const ImageRecord& src, ImageRecord& result) {
  switch (src.bytesPerPixel) {
    case 1:
      turnTiles<1, kClockwise>(src, result);
      break;
    case 3:
#ifdef VIMORA_TURN_GATHER
      if (wideBytePermutes() && gatherFits(src)) return turnGather<3, kClockwise>(src, result);
#endif
      turnTiles<3, kClockwise>(src, result);
      break;
    case 4:
#ifdef VIMORA_TURN_GATHER
      if (wideBytePermutes() && gatherFits(src)) return turnGather<4, kClockwise>(src, result);
#endif
      turnTiles<4, kClockwise>(src, result);
      break;
    default:
      turnAny<kClockwise>(src, result);
      break;
  }
}

}  // namespace

int flipHorizontal(ImageRecord* src, ImageRecord* dst) {
  ImageRecord result;
  if (!newResult(*src, result)) return 1;
  copyPalette(*src, result);
  const int bpp = src->bytesPerPixel;
  for (int y = 0; y < src->height; ++y) {
    const uint8_t* s = rowOf(*src, y);
    uint8_t* end = rowOf(result, y) + result.bytesPerLine;
    switch (bpp) {
      case 1:
        mirrorRow<1>(s, end, src->width);
        break;
      case 3:
        mirrorRow<3>(s, end, src->width);
        break;
      case 4:
        mirrorRow<4>(s, end, src->width);
        break;
      default:
        mirrorRowAny(s, end, src->width, bpp);
        break;
    }
  }
  return deliver(src, dst, result);
}

int flipVertical(ImageRecord* src, ImageRecord* dst) {
  ImageRecord result;
  if (!newResult(*src, result)) return 1;
  copyPalette(*src, result);
  const size_t n = static_cast<size_t>(std::min(src->bytesPerLine, result.bytesPerLine));
  for (int y = 0; y < src->height; ++y)
    std::memcpy(rowOf(result, src->height - 1 - y), rowOf(*src, y), n);
  return deliver(src, dst, result);
}

int rotateQuarter(ImageRecord* src, ImageRecord* dst, int direction) {
  ImageRecord result;
  if (!newResult(*src, result, src->type, src->height, src->width)) return 1;
  copyPalette(*src, result);
  if (direction >= 1)
    turn<true>(*src, result);
  else
    turn<false>(*src, result);
  return deliver(src, dst, result);
}

int rotatePicture(ImageRecord* src, ImageRecord* dst, double angle) {
  if (angle == 90) return rotateQuarter(src, dst, 1);
  if (angle == -90 || angle == 270) return rotateQuarter(src, dst, -1);
  return rotateFreeAngle(src, dst, angle);
}

int cropPicture(ImageRecord* src, ImageRecord* dst, int x, int y, int w, int h) {
  // Clipped in 64 bits so that no rectangle can overflow the sums.
  int64_t cx = x, cy = y, cw = w, ch = h;
  if (cx < 0) {
    cw = cx + cw;
    cx = 0;
  }
  if (cx + cw > src->width) cw = src->width - cx;
  if (cy < 0) {
    ch = cy + ch;
    cy = 0;
  }
  if (cy + ch > src->height) ch = src->height - cy;
  if (cw <= 0 || ch <= 0) return 1;  // nothing of the picture is inside

  ImageRecord result;
  if (!newResult(*src, result, src->type, static_cast<int32_t>(cw), static_cast<int32_t>(ch)))
    return 1;
  copyPalette(*src, result);
  const size_t bpp = static_cast<size_t>(src->bytesPerPixel);
  const size_t n = static_cast<size_t>(cw) * bpp;
  for (int r = 0; r < ch; ++r)
    std::memcpy(rowOf(result, r),
                rowOf(*src, static_cast<int>(cy) + r) + static_cast<size_t>(cx) * bpp, n);
  return deliver(src, dst, result);
}

int resizeCanvas(ImageRecord* src, ImageRecord* dst, int newWidth, int newHeight) {
  ImageRecord result;
  if (!newResult(*src, result, src->type, newWidth, newHeight)) return 1;
  copyPalette(*src, result);
  // The fresh buffer is already all zero: black, or palette index 0.
  const int down = newHeight > src->height ? (newHeight - src->height) / 2 : 0;
  const int right = newWidth > src->width ? (newWidth - src->width) / 2 : 0;
  const size_t bpp = static_cast<size_t>(src->bytesPerPixel);
  const size_t n = static_cast<size_t>(std::min(newWidth, src->width)) * bpp;
  const int rows = std::min(newHeight, src->height);
  for (int r = 0; r < rows; ++r)
    std::memcpy(rowOf(result, down + r) + static_cast<size_t>(right) * bpp, rowOf(*src, r), n);
  return deliver(src, dst, result);
}

}  // namespace process
