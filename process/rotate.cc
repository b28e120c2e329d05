// Free-angle rotation: inverse mapping of every result pixel into the source,
// in 32.32 fixed point, with bilinear or nearest sampling.
#include "process/rotate.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numbers>
#include <utility>

#include "process/geometry.h"
#include "process/operation.h"

namespace process {

namespace {

// Angle folded into [0, 360).
double foldDegrees(double degrees) {
  double a = std::fmod(degrees, 360.0);
  if (a < 0) a += 360.0;
  if (a >= 360.0) a = 0;  // -tiny + 360 rounding up to 360
  return a;
}

void copyPalette(const ImageRecord& src, ImageRecord& result) {
  if (src.palette && result.palette) std::memcpy(result.palette, src.palette, 768);
}

// Half turn: result (i, j) = source (height - 1 - i, width - 1 - j).
template <int kBpp>
void halfRows(const ImageRecord& src, ImageRecord& result, int bpp) {
  const int step = kBpp ? kBpp : bpp;
  for (int y = 0; y < src.height; ++y) {
    const uint8_t* s = rowOf(src, src.height - 1 - y) +
                       static_cast<size_t>(src.width - 1) * static_cast<size_t>(step);
    uint8_t* d = rowOf(result, y);
    for (int x = 0; x < src.width; ++x, d += step, s -= step) {
      if constexpr (kBpp != 0)
        std::memcpy(d, s, kBpp);
      else
        std::memcpy(d, s, static_cast<size_t>(step));
    }
  }
}

int rotateHalf(ImageRecord* src, ImageRecord* dst) {
  ImageRecord result;
  if (!newResult(*src, result)) return 1;
  copyPalette(*src, result);
  switch (src->bytesPerPixel) {
    case 1:
      halfRows<1>(*src, result, 1);
      break;
    case 3:
      halfRows<3>(*src, result, 3);
      break;
    case 4:
      halfRows<4>(*src, result, 4);
      break;
    default:
      halfRows<0>(*src, result, src->bytesPerPixel);
      break;
  }
  return deliver(src, dst, result);
}

constexpr int kFracBits = 32;
constexpr int64_t kOne = int64_t{1} << kFracBits;

int64_t toFixed(double v) {
  return static_cast<int64_t>(std::llround(v * static_cast<double>(kOne)));
}

// Where result pixel (x, y) samples the source, in source index coordinates
// (pixel centres at integers): fx = fx0 + x * fxStep + y * fyStepX ... kept
// as a row origin plus a per-column step.
struct Mapping {
  double c, s;        // cosine and sine of the clockwise angle
  double fx00, fy00;  // source position of result pixel (0, 0)
};

Mapping makeMapping(const ImageRecord& src, int outW, int outH, double degrees) {
  const double rad = degrees * std::numbers::pi / 180.0;
  Mapping m;
  m.c = std::cos(rad);
  m.s = std::sin(rad);
  // Result pixel centre relative to the result's centre is (u, v); turning it
  // back (counter-clockwise) gives the offset from the source's centre:
  // dx = u c + v s, dy = -u s + v c.
  const double u0 = 0.5 - outW / 2.0, v0 = 0.5 - outH / 2.0;
  m.fx00 = u0 * m.c + v0 * m.s + src.width / 2.0 - 0.5;
  m.fy00 = -u0 * m.s + v0 * m.c + src.height / 2.0 - 0.5;
  return m;
}

// Columns [*first, *last) of a result row whose samples fx = x0 + x * dx,
// fy = y0 + x * dy all satisfy lo <= floor(f) < hi in both directions. The
// samples move along a line, so the columns form one run: found from the real
// line first, then settled against the exact fixed-point test.
void insideRun(int64_t x0, int64_t dx, int64_t y0, int64_t dy, int64_t loX, int64_t hiX,
               int64_t loY, int64_t hiY, int width, int* first, int* last) {
  auto inside = [&](int x) {
    const int64_t ix = (x0 + x * dx) >> kFracBits, iy = (y0 + x * dy) >> kFracBits;
    return ix >= loX && ix < hiX && iy >= loY && iy < hiY;
  };
  double a = 0, b = width;
  auto clip = [&](int64_t origin, int64_t step, int64_t lo, int64_t hi) {
    const double o = static_cast<double>(origin) / kOne, d = static_cast<double>(step) / kOne;
    if (d == 0) {
      if (o < static_cast<double>(lo) || o >= static_cast<double>(hi)) b = a;
      return;
    }
    double t0 = (static_cast<double>(lo) - o) / d, t1 = (static_cast<double>(hi) - o) / d;
    if (t0 > t1) std::swap(t0, t1);
    a = std::max(a, std::ceil(t0));
    b = std::min(b, std::floor(t1) + 1);
  };
  clip(x0, dx, loX, hiX);
  clip(y0, dy, loY, hiY);
  int f = static_cast<int>(std::clamp(a, 0.0, static_cast<double>(width)));
  int l = static_cast<int>(std::clamp(b, 0.0, static_cast<double>(width)));
  while (f < l && !inside(f)) ++f;
  while (l > f && !inside(l - 1)) --l;
  // The estimate can only be off by a column or two at either end.
  while (f > 0 && f < l && inside(f - 1)) --f;
  while (l < width && l > f && inside(l)) ++l;
  *first = f;
  *last = l;
}

// Bilinear sampling with the outside taken as 0, so the turned picture's edge
// fades into the black corners over one pixel.
template <int kBpp>
inline void blend(uint8_t* d, const uint8_t* p00, const uint8_t* p01, const uint8_t* p10,
                  const uint8_t* p11, int64_t fx, int64_t fy) {
  const uint32_t ax = static_cast<uint32_t>(fx >> (kFracBits - 8)) & 255;
  const uint32_t ay = static_cast<uint32_t>(fy >> (kFracBits - 8)) & 255;
  const uint32_t bx = 256 - ax, by = 256 - ay;
  for (int c = 0; c < kBpp; ++c) {
    const uint32_t top = p00[c] * bx + p01[c] * ax;
    const uint32_t bottom = p10[c] * bx + p11[c] * ax;
    d[c] = static_cast<uint8_t>((top * by + bottom * ay + 32768) >> 16);
  }
}

template <int kBpp>
void bilinear(const ImageRecord& src, ImageRecord& result, const Mapping& m) {
  const int w = src.width, h = src.height;
  const int64_t stepX = toFixed(m.c), stepY = toFixed(-m.s);
  static const uint8_t kZero[4] = {0, 0, 0, 0};
  auto at = [&](int64_t cx, int64_t cy) -> const uint8_t* {
    if (cx < 0 || cx >= w || cy < 0 || cy >= h) return kZero;
    return rowOf(src, static_cast<int>(cy)) + cx * kBpp;
  };
  // Outside the picture and its one-pixel fringe a sample is 0 (as allocated).
  auto edge = [&](uint8_t* d, int64_t fx, int64_t fy) {
    const int64_t ix = fx >> kFracBits, iy = fy >> kFracBits;  // floor
    if (ix < -1 || ix >= w || iy < -1 || iy >= h) return;
    blend<kBpp>(d, at(ix, iy), at(ix + 1, iy), at(ix, iy + 1), at(ix + 1, iy + 1), fx, fy);
  };
  for (int y = 0; y < result.height; ++y) {
    const int64_t rowX = toFixed(m.fx00 + y * m.s), rowY = toFixed(m.fy00 + y * m.c);
    uint8_t* d = rowOf(result, y);
    // Where all four neighbours are inside, no test is needed per pixel.
    int first, last;
    insideRun(rowX, stepX, rowY, stepY, 0, w - 1, 0, h - 1, result.width, &first, &last);
    for (int x = 0; x < first; ++x) edge(d + x * kBpp, rowX + x * stepX, rowY + x * stepY);
    const ptrdiff_t stride = src.bytesPerLine;
    for (int x = first; x < last; ++x) {
      const int64_t fx = rowX + x * stepX, fy = rowY + x * stepY;
      const uint8_t* p = rowOf(src, static_cast<int>(fy >> kFracBits)) + (fx >> kFracBits) * kBpp;
      blend<kBpp>(d + x * kBpp, p, p + kBpp, p + stride, p + stride + kBpp, fx, fy);
    }
    for (int x = std::max(first, last); x < result.width; ++x)
      edge(d + x * kBpp, rowX + x * stepX, rowY + x * stepY);
  }
}

// Nearest pixel, for pictures whose values are not intensities.
template <int kBpp>
void nearest(const ImageRecord& src, ImageRecord& result, const Mapping& m) {
  const int w = src.width, h = src.height;
  const int64_t stepX = toFixed(m.c), stepY = toFixed(-m.s);
  const int64_t half = kOne / 2;
  for (int y = 0; y < result.height; ++y) {
    const int64_t rowX = toFixed(m.fx00 + y * m.s) + half, rowY = toFixed(m.fy00 + y * m.c) + half;
    uint8_t* d = rowOf(result, y);
    for (int x = 0; x < result.width; ++x, d += kBpp) {
      const int64_t ix = (rowX + x * stepX) >> kFracBits, iy = (rowY + x * stepY) >> kFracBits;
      if (ix < 0 || ix >= w || iy < 0 || iy >= h) continue;
      std::memcpy(d, rowOf(src, static_cast<int>(iy)) + ix * kBpp, kBpp);
    }
  }
}

}  // namespace

void rotatedSize(int width, int height, double degrees, int* outWidth, int* outHeight) {
  const double a = foldDegrees(degrees);
  if (a == 0 || a == 180) {
    *outWidth = width, *outHeight = height;
    return;
  }
  if (a == 90 || a == 270) {
    *outWidth = height, *outHeight = width;
    return;
  }
  const double rad = a * std::numbers::pi / 180.0;
  const double c = std::fabs(std::cos(rad)), s = std::fabs(std::sin(rad));
  // The small allowance keeps a box that is whole in exact arithmetic from
  // growing by a pixel through rounding.
  const double bw = std::ceil(width * c + height * s - 1e-9);
  const double bh = std::ceil(width * s + height * c - 1e-9);
  *outWidth = static_cast<int>(std::clamp(bw, 1.0, 2147483647.0));
  *outHeight = static_cast<int>(std::clamp(bh, 1.0, 2147483647.0));
}

int rotateFreeAngle(ImageRecord* src, ImageRecord* dst, double degrees) {
  if (!std::isfinite(degrees)) return duplicate(src, dst);
  const double a = foldDegrees(degrees);
  if (a == 0) return duplicate(src, dst);
  if (a == 90) return rotateQuarter(src, dst, 1);
  if (a == 270) return rotateQuarter(src, dst, -1);
  if (a == 180) return rotateHalf(src, dst);

  int outW, outH;
  rotatedSize(src->width, src->height, a, &outW, &outH);
  ImageRecord result;
  if (!newResult(*src, result, src->type, outW, outH)) return 1;
  copyPalette(*src, result);
  const Mapping m = makeMapping(*src, outW, outH, a);
  const bool sampleValues = src->type != IMK_BINARY && src->type != IMK_MAPPED;
  switch (src->bytesPerPixel) {
    case 1:
      if (sampleValues)
        bilinear<1>(*src, result, m);
      else
        nearest<1>(*src, result, m);
      break;
    case 3:
      bilinear<3>(*src, result, m);
      break;
    case 4:
      bilinear<4>(*src, result, m);
      break;
    default:
      break;  // no other layouts exist
  }
  return deliver(src, dst, result);
}

}  // namespace process
