// Flips, quarter turns, crop and canvas: pure byte moves.
#include "process/geometry.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

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

// Tiles keep both the rows read and the rows written in cache while a turn
// walks one of them across its columns.
constexpr int kTile = 32;

// Moves a 3-byte pixel with one 4-byte load and store. The extra byte
// written lands on the next pixel of the result row, which is written after
// it; the extra byte read must lie inside the source buffer.
inline void copyPixelWide(uint8_t* d, const uint8_t* s) {
  uint32_t v;
  std::memcpy(&v, s, 4);
  std::memcpy(d, &v, 4);
}

// Result row i, column j takes source pixel (row sy(i, j), column sx(i, j)):
// clockwise sy = height - 1 - j, sx = i; counter-clockwise sy = j,
// sx = width - 1 - i. Inside a tile the source row is walked along j.
template <int kBpp, bool kClockwise>
void turnTiles(const ImageRecord& src, ImageRecord& result) {
  const int outW = result.width, outH = result.height;  // src.height, src.width
  const ptrdiff_t sStride = src.bytesPerLine;
  for (int i0 = 0; i0 < outH; i0 += kTile) {
    const int i1 = std::min(i0 + kTile, outH);
    for (int j0 = 0; j0 < outW; j0 += kTile) {
      const int j1 = std::min(j0 + kTile, outW);
      for (int i = i0; i < i1; ++i) {
        uint8_t* d = rowOf(result, i) + static_cast<ptrdiff_t>(j0) * kBpp;
        const int sx = kClockwise ? i : src.width - 1 - i;
        const uint8_t* s =
            rowOf(src, kClockwise ? src.height - 1 - j0 : j0) + static_cast<ptrdiff_t>(sx) * kBpp;
        const ptrdiff_t sStep = kClockwise ? -sStride : sStride;
        int j = j0;
        if constexpr (kBpp == 3) {
          // The last pixel of a result row is moved exactly, so that nothing
          // spills into the row's padding or the next row.
          if (sx * 3 + 4 <= src.bytesPerLine) {
            const int wideEnd = j1 == outW ? j1 - 1 : j1;
            for (; j < wideEnd; ++j, d += 3, s += sStep) copyPixelWide(d, s);
          }
        }
        for (; j < j1; ++j, d += kBpp, s += sStep) copyPixel<kBpp>(d, s);
      }
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

template <bool kClockwise>
void turn(const ImageRecord& src, ImageRecord& result) {
  switch (src.bytesPerPixel) {
    case 1:
      turnTiles<1, kClockwise>(src, result);
      break;
    case 3:
      turnTiles<3, kClockwise>(src, result);
      break;
    case 4:
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
