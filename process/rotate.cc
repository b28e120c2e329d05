// Free-angle rotation: inverse mapping of every result pixel into the source,
// in 32.32 fixed point, with bilinear or nearest sampling.
#include "process/rotate.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>

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
int rotateHalf(ImageRecord* src, ImageRecord* dst) {
  ImageRecord result;
  if (!newResult(*src, result)) return 1;
  copyPalette(*src, result);
  const int bpp = src->bytesPerPixel;
  for (int y = 0; y < src->height; ++y) {
    const uint8_t* s = rowOf(*src, src->height - 1 - y) + static_cast<size_t>(src->width - 1) * bpp;
    uint8_t* d = rowOf(result, y);
    for (int x = 0; x < src->width; ++x, d += bpp, s -= bpp)
      std::memcpy(d, s, static_cast<size_t>(bpp));
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

// Bilinear sampling with the outside taken as 0, so the turned picture's edge
// fades into the black corners over one pixel.
template <int kBpp>
void bilinear(const ImageRecord& src, ImageRecord& result, const Mapping& m) {
  const int w = src.width, h = src.height;
  const int64_t stepX = toFixed(m.c), stepY = toFixed(-m.s);
  static const uint8_t kZero[4] = {0, 0, 0, 0};
  for (int y = 0; y < result.height; ++y) {
    const int64_t rowX = toFixed(m.fx00 + y * m.s), rowY = toFixed(m.fy00 + y * m.c);
    uint8_t* d = rowOf(result, y);
    for (int x = 0; x < result.width; ++x, d += kBpp) {
      const int64_t fx = rowX + x * stepX, fy = rowY + x * stepY;
      const int64_t ix = fx >> kFracBits, iy = fy >> kFracBits;  // floor
      if (ix < -1 || ix >= w || iy < -1 || iy >= h) continue;    // stays 0
      const uint32_t ax = static_cast<uint32_t>(fx >> (kFracBits - 8)) & 255;
      const uint32_t ay = static_cast<uint32_t>(fy >> (kFracBits - 8)) & 255;
      const uint8_t *p00, *p01, *p10, *p11;
      if (ix >= 0 && ix < w - 1 && iy >= 0 && iy < h - 1) {
        p00 = rowOf(src, static_cast<int>(iy)) + ix * kBpp;
        p01 = p00 + kBpp;
        p10 = p00 + src.bytesPerLine;
        p11 = p10 + kBpp;
      } else {
        auto at = [&](int64_t cx, int64_t cy) -> const uint8_t* {
          if (cx < 0 || cx >= w || cy < 0 || cy >= h) return kZero;
          return rowOf(src, static_cast<int>(cy)) + cx * kBpp;
        };
        p00 = at(ix, iy);
        p01 = at(ix + 1, iy);
        p10 = at(ix, iy + 1);
        p11 = at(ix + 1, iy + 1);
      }
      const uint32_t bx = 256 - ax, by = 256 - ay;
      for (int c = 0; c < kBpp; ++c) {
        const uint32_t top = p00[c] * bx + p01[c] * ax;
        const uint32_t bottom = p10[c] * bx + p11[c] * ax;
        d[c] = static_cast<uint8_t>((top * by + bottom * ay + 32768) >> 16);
      }
    }
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
