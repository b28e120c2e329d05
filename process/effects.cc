// Mosaic, de-interlace, slice and tile (oil painting is in oil_paint.cc).
#include "process/effects.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "process/operation.h"

namespace process {

namespace {

int bytesPerPixelOf(const ImageRecord& picture) {
  return picture.bytesPerPixel > 0 ? picture.bytesPerPixel : 1;
}

// Allocates the result like the source and copies its palette.
bool startResult(const ImageRecord& src, ImageRecord& result) {
  if (!newResult(src, result)) return false;
  if (src.palette && result.palette) std::memcpy(result.palette, src.palette, 768);
  return true;
}

size_t rowBytes(const ImageRecord& a, const ImageRecord& b) {
  return static_cast<size_t>(std::min(a.bytesPerLine, b.bytesPerLine));
}

// -------------------------------------------------------------------- mosaic

template <int kBpp>
void mosaicBlocks(const ImageRecord& src, ImageRecord& result, int t, int bpp) {
  const int n = kBpp > 0 ? kBpp : bpp;
  const int width = src.width, height = src.height;
  uint32_t sum[8];
  uint8_t mean[8];
  for (int y0 = 0; y0 < height; y0 += t) {
    const int y1 = std::min(y0 + t, height - 1);
    for (int x0 = 0; x0 < width; x0 += t) {
      const int x1 = std::min(x0 + t, width - 1);
      const size_t begin = static_cast<size_t>(x0) * n;
      const size_t bytes = static_cast<size_t>(x1 - x0 + 1) * n;
      for (int c = 0; c < n; ++c) sum[c] = 0;
      for (int y = y0; y <= y1; ++y) {
        const uint8_t* p = rowOf(src, y) + begin;
        for (size_t i = 0; i < bytes; i += n)
          for (int c = 0; c < n; ++c) sum[c] += p[i + c];
      }
      const uint32_t count = static_cast<uint32_t>((y1 - y0 + 1) * (x1 - x0 + 1));
      for (int c = 0; c < n; ++c) mean[c] = static_cast<uint8_t>(sum[c] / count);
      // Written over the whole block; the next block to the right and the
      // next row of blocks overwrite the shared column and row.
      for (int y = y0; y <= y1; ++y) {
        uint8_t* q = rowOf(result, y) + begin;
        for (size_t i = 0; i < bytes; i += n)
          for (int c = 0; c < n; ++c) q[i + c] = mean[c];
      }
    }
  }
}

// ------------------------------------------------------------- pixel moves

template <int kBpp>
inline void copyPixel(uint8_t* to, const uint8_t* from, int bpp) {
  if constexpr (kBpp > 0)
    std::memcpy(to, from, kBpp);
  else
    std::memcpy(to, from, static_cast<size_t>(bpp));
}

template <int kBpp>
void gatherRows(const ImageRecord& src, ImageRecord& result, const std::vector<int>& columns,
                const std::vector<int>& rows, int bpp) {
  const int n = kBpp > 0 ? kBpp : bpp;
  for (int y = 0; y < result.height; ++y) {
    const uint8_t* from = rowOf(src, rows[y]);
    uint8_t* to = rowOf(result, y);
    for (int x = 0; x < result.width; ++x)
      copyPixel<kBpp>(to + static_cast<size_t>(x) * n, from + static_cast<size_t>(columns[x]) * n,
                      bpp);
  }
}

void gather(const ImageRecord& src, ImageRecord& result, const std::vector<int>& columns,
            const std::vector<int>& rows) {
  const int bpp = bytesPerPixelOf(src);
  switch (bpp) {
    case 1:
      gatherRows<1>(src, result, columns, rows, bpp);
      break;
    case 3:
      gatherRows<3>(src, result, columns, rows, bpp);
      break;
    case 4:
      gatherRows<4>(src, result, columns, rows, bpp);
      break;
    default:
      gatherRows<0>(src, result, columns, rows, bpp);
      break;
  }
}

int wrap(int64_t v, int length) {
  const int64_t m = v % length;
  return static_cast<int>(m < 0 ? m + length : m);
}

}  // namespace

int mosaicEffect(ImageRecord* src, ImageRecord* dst, int t) {
  t = std::clamp(t, 1, 64);
  ImageRecord result;
  if (!startResult(*src, result)) return 1;
  const int bpp = bytesPerPixelOf(*src);
  switch (bpp) {
    case 1:
      mosaicBlocks<1>(*src, result, t, bpp);
      break;
    case 3:
      mosaicBlocks<3>(*src, result, t, bpp);
      break;
    case 4:
      mosaicBlocks<4>(*src, result, t, bpp);
      break;
    default:
      mosaicBlocks<0>(*src, result, t, std::min(bpp, 8));
      break;
  }
  return deliver(src, dst, result);
}

int deinterlaceEffect(ImageRecord* src, ImageRecord* dst, int keepOdd, int duplicate) {
  keepOdd = keepOdd ? 1 : 0;
  ImageRecord result;
  if (!startResult(*src, result)) return 1;
  const int height = src->height;
  const size_t bytes = rowBytes(*src, result);
  for (int i = 0; i < height; ++i) {
    uint8_t* to = rowOf(result, i);
    if (duplicate) {
      // Rows 2k and 2k + 1 both show row 2k + keepOdd of the kept field.
      int from = (i & ~1) + keepOdd;
      if (from >= height) from -= 2;
      if (from < 0) from = 0;
      std::memcpy(to, rowOf(*src, from), bytes);
    } else if ((i & 1) != keepOdd && i > 0 && i + 1 < height) {
      const uint8_t* above = rowOf(*src, i - 1);
      const uint8_t* below = rowOf(*src, i + 1);
      for (size_t b = 0; b < bytes; ++b) to[b] = static_cast<uint8_t>((above[b] + below[b]) >> 1);
    } else {
      std::memcpy(to, rowOf(*src, i), bytes);
    }
  }
  return deliver(src, dst, result);
}

int sliceEffect(ImageRecord* src, ImageRecord* dst, int size, int offset, bool vertical) {
  size = std::max(size, 1);
  const int width = src->width, height = src->height;
  ImageRecord result;
  if (!startResult(*src, result)) return 1;
  if (!vertical) {
    // Each band of rows is a rotation of the source rows by +-offset pixels.
    const int bpp = bytesPerPixelOf(*src);
    const size_t rowLength = static_cast<size_t>(width) * bpp;
    for (int y = 0; y < height; ++y) {
      const int band = y / size;
      // Sliding left by d: pixel x shows source pixel x + d.
      const int shift =
          wrap(band % 2 == 0 ? static_cast<int64_t>(offset) : -static_cast<int64_t>(offset), width);
      const uint8_t* from = rowOf(*src, y);
      uint8_t* to = rowOf(result, y);
      const size_t head = static_cast<size_t>(shift) * bpp;
      std::memcpy(to, from + head, rowLength - head);
      std::memcpy(to + (rowLength - head), from, head);
    }
  } else {
    // Column bands: sliding up by d, pixel (x, y) shows source row y + d.
    const int bpp = bytesPerPixelOf(*src);
    for (int y = 0; y < height; ++y) {
      uint8_t* to = rowOf(result, y);
      for (int x = 0; x < width; ++x) {
        const int band = x / size;
        const int64_t d = band % 2 == 0 ? offset : -static_cast<int64_t>(offset);
        const int from = wrap(y + d, height);
        std::memcpy(to + static_cast<size_t>(x) * bpp,
                    rowOf(*src, from) + static_cast<size_t>(x) * bpp, static_cast<size_t>(bpp));
      }
    }
  }
  return deliver(src, dst, result);
}

int tileEffect(ImageRecord* src, ImageRecord* dst, int columns, int rows) {
  columns = std::max(columns, 1);
  rows = std::max(rows, 1);
  std::vector<int> fromColumn, fromRow;
  try {
    fromColumn.resize(static_cast<size_t>(src->width));
    fromRow.resize(static_cast<size_t>(src->height));
  } catch (const std::bad_alloc&) {
    return 1;
  }
  for (int x = 0; x < src->width; ++x)
    fromColumn[x] = wrap(static_cast<int64_t>(x) * columns, src->width);
  for (int y = 0; y < src->height; ++y)
    fromRow[y] = wrap(static_cast<int64_t>(y) * rows, src->height);
  ImageRecord result;
  if (!startResult(*src, result)) return 1;
  gather(*src, result, fromColumn, fromRow);
  return deliver(src, dst, result);
}

}  // namespace process
