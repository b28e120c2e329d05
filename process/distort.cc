// Shear, swirl, spread, lens and waves: each output row first gets its source
// positions (in 1/256 pixel), then one sampling pass fills it.
#include "process/distort.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <numbers>
#include <vector>

#include "process/operation.h"

namespace process {

namespace {

constexpr int kFractionBits = 8;
constexpr int kOne = 1 << kFractionBits;

int bytesPerPixelOf(const ImageRecord& picture) {
  return picture.bytesPerPixel > 0 ? picture.bytesPerPixel : 1;
}

// Source position of one output pixel, in 1/256 pixel from the centre of the
// source's top-left pixel.
struct SourcePoint {
  int32_t x, y;
};

int32_t toFixed(double v) {
  // Far-away positions only need to stay far away. Rounding to the nearest
  // 1/256: shifted to be positive, truncation is floor (no library call).
  v = std::clamp(v, -4194304.0, 4194304.0);
  constexpr double kShift = 1 << 30;
  return static_cast<int32_t>(static_cast<int64_t>(v * kOne + (kShift + 0.5)) -
                              static_cast<int64_t>(kShift));
}

// Inside when within half a pixel of the picture's pixel centres.
inline bool inside(int32_t v, int length) {
  return v >= -kOne / 2 && v <= (length - 1) * kOne + kOne / 2;
}

inline int clampIndex(int v, int length) { return v < 0 ? 0 : v >= length ? length - 1 : v; }

template <int kBpp>
void sampleBilinear(const ImageRecord& src, const SourcePoint* points, uint8_t* out, int width,
                    int bpp) {
  const int n = kBpp > 0 ? kBpp : bpp;
  for (int x = 0; x < width; ++x, out += n) {
    const SourcePoint p = points[x];
    if (!inside(p.x, src.width) || !inside(p.y, src.height)) continue;  // stays 0
    const int ix = p.x >> kFractionBits, iy = p.y >> kFractionBits;
    const int fx = p.x & (kOne - 1), fy = p.y & (kOne - 1);
    const size_t x0 = static_cast<size_t>(clampIndex(ix, src.width)) * n;
    const size_t x1 = static_cast<size_t>(clampIndex(ix + 1, src.width)) * n;
    const uint8_t* r0 = rowOf(src, clampIndex(iy, src.height));
    const uint8_t* r1 = rowOf(src, clampIndex(iy + 1, src.height));
    for (int c = 0; c < n; ++c) {
      const int top = r0[x0 + c] * (kOne - fx) + r0[x1 + c] * fx;
      const int bottom = r1[x0 + c] * (kOne - fx) + r1[x1 + c] * fx;
      out[c] = static_cast<uint8_t>((top * (kOne - fy) + bottom * fy + (1 << 15)) >> 16);
    }
  }
}

void sampleNearest(const ImageRecord& src, const SourcePoint* points, uint8_t* out, int width,
                   int bpp) {
  for (int x = 0; x < width; ++x, out += bpp) {
    const SourcePoint p = points[x];
    if (!inside(p.x, src.width) || !inside(p.y, src.height)) continue;
    const int ix = clampIndex((p.x + kOne / 2) >> kFractionBits, src.width);
    const int iy = clampIndex((p.y + kOne / 2) >> kFractionBits, src.height);
    std::memcpy(out, rowOf(src, iy) + static_cast<size_t>(ix) * bpp, static_cast<size_t>(bpp));
  }
}

// Builds a width x height result whose row y is sampled at the positions
// that mapRow(y, points) fills in.
template <class MapRow>
int remap(ImageRecord* src, ImageRecord* dst, int width, int height, MapRow&& mapRow) {
  std::vector<SourcePoint> points;
  try {
    points.resize(static_cast<size_t>(width));
  } catch (const std::bad_alloc&) {
    return 1;
  }
  ImageRecord result;
  if (!newResult(*src, result, src->type, width, height)) return 1;
  if (src->palette && result.palette) std::memcpy(result.palette, src->palette, 768);
  const int bpp = bytesPerPixelOf(*src);
  const bool nearest = src->type == 1 || src->type == 4;
  for (int y = 0; y < height; ++y) {
    mapRow(y, points.data());
    uint8_t* out = rowOf(result, y);
    if (nearest)
      sampleNearest(*src, points.data(), out, width, bpp);
    else if (bpp == 1)
      sampleBilinear<1>(*src, points.data(), out, width, bpp);
    else if (bpp == 3)
      sampleBilinear<3>(*src, points.data(), out, width, bpp);
    else if (bpp == 4)
      sampleBilinear<4>(*src, points.data(), out, width, bpp);
    else
      sampleBilinear<0>(*src, points.data(), out, width, bpp);
  }
  return deliver(src, dst, result);
}

// A table over the elliptical distance rho in 0..1 (kSteps + 1 entries).
constexpr int kSteps = 4096;

// Elliptical distance of (dx, dy) with the half axes rx, ry, as a table
// index 0..kSteps, or -1 outside the ellipse.
inline int radialIndex(double nx, double ny) {
  const double rho2 = nx * nx + ny * ny;
  if (rho2 >= 1.0) return -1;
  return static_cast<int>(std::sqrt(rho2) * kSteps + 0.5);
}

uint64_t nextRandom(uint64_t& state) {
  // splitmix64: a fixed, portable sequence for every seed.
  uint64_t z = (state += 0x9e3779b97f4a7c15ull);
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
  return z ^ (z >> 31);
}

}  // namespace

void shearedSize(int width, int height, double xDegrees, double yDegrees, int* outWidth,
                 int* outHeight) {
  const double kx = std::tan(std::clamp(xDegrees, -85.0, 85.0) * std::numbers::pi / 180.0);
  const double ky = std::tan(std::clamp(yDegrees, -85.0, 85.0) * std::numbers::pi / 180.0);
  const double a = (width - 1) / 2.0, b = (height - 1) / 2.0;
  const double halfWidth = a + std::fabs(kx) * b;
  const double halfHeight = std::fabs(ky) * a + std::fabs(1.0 + kx * ky) * b;
  *outWidth = std::max(1, static_cast<int>(std::ceil(2.0 * halfWidth + 1.0 - 1e-9)));
  *outHeight = std::max(1, static_cast<int>(std::ceil(2.0 * halfHeight + 1.0 - 1e-9)));
}

int shearEffect(ImageRecord* src, ImageRecord* dst, double xDegrees, double yDegrees) {
  const double kx = std::tan(std::clamp(xDegrees, -85.0, 85.0) * std::numbers::pi / 180.0);
  const double ky = std::tan(std::clamp(yDegrees, -85.0, 85.0) * std::numbers::pi / 180.0);
  int width, height;
  shearedSize(src->width, src->height, xDegrees, yDegrees, &width, &height);
  const double cx = (src->width - 1) / 2.0, cy = (src->height - 1) / 2.0;
  const double ox = (width - 1) / 2.0, oy = (height - 1) / 2.0;
  // The inverse of x' = x + kx y, y' = y + ky x' (its determinant is 1).
  return remap(src, dst, width, height, [&](int y, SourcePoint* points) {
    const double v = y - oy;
    for (int x = 0; x < width; ++x) {
      const double u = x - ox;
      points[x] = {toFixed((1.0 + kx * ky) * u - kx * v + cx), toFixed(-ky * u + v + cy)};
    }
  });
}

int swirlEffect(ImageRecord* src, ImageRecord* dst, double degrees) {
  const double theta = degrees * std::numbers::pi / 180.0;
  // Turn angle by distance, applied backwards: the source of a point lies
  // against the turn.
  std::vector<double> cosTable, sinTable;
  try {
    cosTable.resize(kSteps + 1);
    sinTable.resize(kSteps + 1);
  } catch (const std::bad_alloc&) {
    return 1;
  }
  for (int i = 0; i <= kSteps; ++i) {
    const double fall = 1.0 - static_cast<double>(i) / kSteps;
    const double angle = -theta * fall * fall;
    cosTable[i] = std::cos(angle);
    sinTable[i] = std::sin(angle);
  }
  const double cx = (src->width - 1) / 2.0, cy = (src->height - 1) / 2.0;
  const double rx = src->width / 2.0, ry = src->height / 2.0;
  return remap(src, dst, src->width, src->height, [&](int y, SourcePoint* points) {
    const double ny = (y - cy) / ry;
    for (int x = 0; x < src->width; ++x) {
      const double nx = (x - cx) / rx;
      const int i = radialIndex(nx, ny);
      if (i < 0) {
        points[x] = {x * kOne, y * kOne};
        continue;
      }
      // Positive angles turn clockwise on screen (y grows downwards).
      const double sx = nx * cosTable[i] - ny * sinTable[i];
      const double sy = nx * sinTable[i] + ny * cosTable[i];
      points[x] = {toFixed(cx + sx * rx), toFixed(cy + sy * ry)};
    }
  });
}

int lensEffect(ImageRecord* src, ImageRecord* dst, int amount) {
  const double e = std::exp2(std::clamp(amount, -100, 100) / 100.0);
  // rho^e / rho = rho^(e - 1): how far in the same direction to look.
  std::vector<double> scale;
  try {
    scale.resize(kSteps + 1);
  } catch (const std::bad_alloc&) {
    return 1;
  }
  scale[0] = e > 1.0 ? 0.0 : e < 1.0 ? std::pow(0.5 / kSteps, e - 1.0) : 1.0;
  for (int i = 1; i <= kSteps; ++i) scale[i] = std::pow(static_cast<double>(i) / kSteps, e - 1.0);
  const double cx = (src->width - 1) / 2.0, cy = (src->height - 1) / 2.0;
  const double rx = src->width / 2.0, ry = src->height / 2.0;
  return remap(src, dst, src->width, src->height, [&](int y, SourcePoint* points) {
    const double dy = y - cy;
    for (int x = 0; x < src->width; ++x) {
      const double dx = x - cx;
      const int i = radialIndex(dx / rx, dy / ry);
      if (i < 0) {
        points[x] = {x * kOne, y * kOne};
        continue;
      }
      points[x] = {toFixed(cx + dx * scale[i]), toFixed(cy + dy * scale[i])};
    }
  });
}

int wavesEffect(ImageRecord* src, ImageRecord* dst, double amplitude, double wavelength) {
  amplitude = std::clamp(amplitude, 0.0, 1000.0);
  wavelength = std::max(wavelength, 1.0);
  const int margin = static_cast<int>(std::ceil(amplitude));
  const int width = src->width, height = src->height + 2 * margin;
  std::vector<int32_t> shift;
  try {
    shift.resize(static_cast<size_t>(width));
  } catch (const std::bad_alloc&) {
    return 1;
  }
  // Column x moves down by its shift: it shows source row y - margin - shift.
  for (int x = 0; x < width; ++x)
    shift[x] = toFixed(margin + amplitude * std::sin(2.0 * std::numbers::pi * x / wavelength));
  return remap(src, dst, width, height, [&](int y, SourcePoint* points) {
    for (int x = 0; x < width; ++x) points[x] = {x * kOne, y * kOne - shift[x]};
  });
}

int spreadEffect(ImageRecord* src, ImageRecord* dst, int radius, uint32_t seed) {
  radius = std::clamp(radius, 0, 1 << 20);
  ImageRecord result;
  if (!newResult(*src, result)) return 1;
  if (src->palette && result.palette) std::memcpy(result.palette, src->palette, 768);
  const int bpp = bytesPerPixelOf(*src);
  const uint64_t span = 2 * static_cast<uint64_t>(radius) + 1;
  uint64_t state = seed;
  for (int y = 0; y < src->height; ++y) {
    uint8_t* out = rowOf(result, y);
    for (int x = 0; x < src->width; ++x) {
      const uint64_t r = nextRandom(state);
      // Two offsets in -radius..radius from the two halves of one number.
      const int dx = static_cast<int>(((r & 0xffffffffu) * span) >> 32) - radius;
      const int dy = static_cast<int>(((r >> 32) * span) >> 32) - radius;
      const int sx = clampIndex(x + dx, src->width), sy = clampIndex(y + dy, src->height);
      std::memcpy(out + static_cast<size_t>(x) * bpp,
                  rowOf(*src, sy) + static_cast<size_t>(sx) * bpp, static_cast<size_t>(bpp));
    }
  }
  return deliver(src, dst, result);
}

}  // namespace process
