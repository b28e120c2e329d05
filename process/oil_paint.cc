// Oil painting: every byte of the result is the most frequent byte of its
// window, with one set of counters shared by all byte positions of a pixel.
//
// The window of pixel (x, y) is rows max(y - r, 0) .. min(y + r, height - 1)
// and columns max(x - r, 0) .. min(x + r, width - 1), scanned row by row, left
// to right, and byte position by byte position within a pixel. Each scanned
// byte v increments counter[v] (the counters are indexed by (channel >> 8) +
// value, which is the value itself for every channel); when that counter
// exceeds the best count of the byte's position, the position takes v. So a
// position ends with the value whose count, at one of that position's own
// bytes, was the highest, and among equal counts the one reached first.
//
// Two ways give that result: the direct scan (any picture, any radius), and
// for the inside of larger pictures a vector form that computes the same
// counts for 64 neighbouring pixels at once (see oilStrip).
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "process/effects.h"
#include "process/operation.h"

namespace process {

namespace {

// ------------------------------------------------------------ direct scan

// Each event is packed into a key, count << 19 | (2047 - pixel index in the
// window) << 8 | value, and the largest key per byte position is the winner;
// keeping it is a maximum, with no branch. The counts stay below 2^13 (at
// most 33 x 33 pixels of 4 bytes) and the pixel index below 2^11.
// Counters are kept already shifted into the key's count field.
constexpr uint32_t kCountStep = 1u << 19;

struct OilCounters {
  uint32_t count[256];
  uint32_t best[8];
};

// One output pixel, window columns x0..x1 and rows y0..y1.
template <int kBpp>
inline void oilPaintPixel(const ImageRecord& src, int n, int x0, int x1, int y0, int y1,
                          OilCounters& t, uint8_t* out) {
  const size_t begin = static_cast<size_t>(x0) * n;
  const size_t end = static_cast<size_t>(x1 + 1) * n;
  std::memset(t.count, 0, sizeof t.count);
  for (int c = 0; c < n; ++c) t.best[c] = 0;
  uint32_t order = 2047u << 8;
  for (int yy = y0; yy <= y1; ++yy) {
    const uint8_t* row = rowOf(src, yy);
    for (size_t i = begin; i < end; i += n, order -= 1u << 8)
      for (int c = 0; c < n; ++c) {
        const uint8_t v = row[i + c];
        t.best[c] = std::max(t.best[c], (t.count[v] += kCountStep) | order | v);
      }
  }
  for (int c = 0; c < n; ++c) out[c] = static_cast<uint8_t>(t.best[c]);
}

// kWays neighbouring output pixels whose windows lie wholly inside the
// picture's columns, scanned together with a counter table each: the same
// work as one pixel at a time, but the independent counter updates overlap in
// the processor instead of waiting for each other.
template <int kBpp, int kWays>
inline void oilPaintInterior(const ImageRecord& src, int n, int x, int radius, int y0, int y1,
                             OilCounters* t, uint8_t* out) {
  const size_t begin = static_cast<size_t>(x - radius) * n;
  const size_t span = static_cast<size_t>(2 * radius + 1) * n;
  for (int w = 0; w < kWays; ++w) {
    std::memset(t[w].count, 0, sizeof t[w].count);
    for (int c = 0; c < n; ++c) t[w].best[c] = 0;
  }
  uint32_t order = 2047u << 8;
  for (int yy = y0; yy <= y1; ++yy) {
    const uint8_t* row = rowOf(src, yy) + begin;
    for (size_t i = 0; i < span; i += n, order -= 1u << 8)
      for (int c = 0; c < n; ++c)
        for (int w = 0; w < kWays; ++w) {
          const uint8_t v = row[i + static_cast<size_t>(w * n) + c];
          t[w].best[c] = std::max(t[w].best[c], (t[w].count[v] += kCountStep) | order | v);
        }
  }
  for (int w = 0; w < kWays; ++w)
    for (int c = 0; c < n; ++c) out[w * n + c] = static_cast<uint8_t>(t[w].best[c]);
}

// Output pixels x0 .. x1 - 1 of row y by the direct scan.
template <int kBpp>
void oilPaintSpan(const ImageRecord& src, ImageRecord& result, int radius, int bpp, int y, int x0,
                  int x1) {
  constexpr int kWays = 4;
  const int n = kBpp > 0 ? kBpp : bpp;
  const int width = src.width, height = src.height;
  OilCounters t[kWays];
  const int y0 = std::max(y - radius, 0), y1 = std::min(y + radius, height - 1);
  uint8_t* out = rowOf(result, y);
  int x = x0;
  for (; x < x1 && x < radius; ++x)
    oilPaintPixel<kBpp>(src, n, 0, std::min(x + radius, width - 1), y0, y1, t[0],
                        out + static_cast<size_t>(x) * n);
  for (; x + kWays <= x1 && x + kWays - 1 + radius < width; x += kWays)
    oilPaintInterior<kBpp, kWays>(src, n, x, radius, y0, y1, t, out + static_cast<size_t>(x) * n);
  for (; x < x1; ++x)
    oilPaintPixel<kBpp>(src, n, std::max(x - radius, 0), std::min(x + radius, width - 1), y0, y1,
                        t[0], out + static_cast<size_t>(x) * n);
}

// ------------------------------------------------------------- vector form
//
// For a pixel whose window lies wholly inside the picture, number the window's
// bytes in scan order: event e of window row t is byte position e % n of
// window column e / n. The count an event reaches is 1 + the number of equal
// bytes before it in the scan: the equal bytes earlier in its own row plus
// the equal bytes of each row above. That last part compares two source rows
// only, the same for every output row whose window holds both; so it is
// computed once, when a row enters the window, against each of the 2r rows
// above it, and kept while the row stays.
//
// Everything runs on 64 neighbouring output pixels at once, one per byte lane:
// lane j of event e of a row holds the byte the window of pixel x0 + j sees
// there. The counts fit in bytes while the window has at most 255 bytes.

constexpr int kLanes = 64;
typedef uint8_t Lanes __attribute__((vector_size(kLanes)));

constexpr int kMaxStripRadius = 7;

// Whether the vector form can take a window of radius r over n-byte pixels.
bool stripFits(int r, int n) { return (2 * r + 1) * (2 * r + 1) * n <= 255; }

// An array of lane vectors on their natural 64-byte alignment.
struct LaneArray {
  Lanes* data = nullptr;
  LaneArray() = default;
  LaneArray(const LaneArray&) = delete;
  LaneArray& operator=(const LaneArray&) = delete;
  ~LaneArray() { std::free(data); }
  bool allocate(size_t count) {
    data = static_cast<Lanes*>(std::aligned_alloc(sizeof(Lanes), count * sizeof(Lanes)));
    return data != nullptr;
  }
  Lanes& operator[](size_t i) { return data[i]; }
};

struct StripRows {
  int r, span, events;
  // Ring of the window's rows, slot = source row % span:
  LaneArray bytes;  // [slot][event]: the bytes each lane sees
  LaneArray own;    // [slot][event]: equal bytes earlier in the row
  LaneArray above;  // [slot][k][event]: equal bytes in row t - 1 - k
};

// Adds one to the lanes of `count` where a and b hold the same byte (written
// as a select, which becomes a single masked add with 512-bit registers).
#define VIMORA_COUNT_EQUAL(count, a, b) count = ((a) == (b)) ? count + 1 : count

// Source row t enters the window: its bytes per lane, its own counts and its
// counts against the rows above still in the ring.
template <int kN>
__attribute__((always_inline)) inline void oilStripEnter(const ImageRecord& src, int x0, int t,
                                                         StripRows& w) {
  const int r = w.r, span = w.span, events = w.events;
  uint8_t planes[kN][kLanes + 2 * kMaxStripRadius];
  const uint8_t* row = rowOf(src, t) + static_cast<ptrdiff_t>(x0 - r) * kN;
  for (int j = 0; j < kLanes + 2 * r; ++j)
    for (int c = 0; c < kN; ++c) planes[c][j] = row[j * kN + c];
  Lanes* s = &w.bytes[static_cast<size_t>(t % span) * events];
  for (int dx = 0; dx < span; ++dx)
    for (int c = 0; c < kN; ++c) std::memcpy(&s[dx * kN + c], planes[c] + dx, kLanes);
  Lanes* own = &w.own[static_cast<size_t>(t % span) * events];
  for (int e = 0; e < events; ++e) {
    Lanes count = {};
    for (int f = 0; f < e; ++f) VIMORA_COUNT_EQUAL(count, s[f], s[e]);
    own[e] = count;
  }
  for (int k = 0; k < 2 * r && k < t; ++k) {
    const Lanes* u = &w.bytes[static_cast<size_t>((t - 1 - k) % span) * events];
    Lanes* cross = &w.above[(static_cast<size_t>(t % span) * 2 * r + k) * events];
    for (int e = 0; e < events; ++e) {
      Lanes count = {};
      for (int f = 0; f < events; ++f) VIMORA_COUNT_EQUAL(count, u[f], s[e]);
      cross[e] = count;
    }
  }
}
#undef VIMORA_COUNT_EQUAL

template <int kN>
__attribute__((always_inline)) inline void oilStripBody(const ImageRecord& src, ImageRecord& result,
                                                        int x0, StripRows& w) {
  const int r = w.r, span = w.span, events = w.events;
  const int height = src.height;
  for (int t = 0; t < 2 * r; ++t) oilStripEnter<kN>(src, x0, t, w);
  for (int y = r; y < height - r; ++y) {
    oilStripEnter<kN>(src, x0, y + r, w);
    const int top = y - r;
    Lanes best[kN] = {}, winner[kN] = {};
    for (int t = top; t <= y + r; ++t) {
      const size_t at = static_cast<size_t>(t % span) * events;
      const Lanes* s = &w.bytes[at];
      const Lanes* own = &w.own[at];
      const Lanes* cross = &w.above[at * 2 * r];
      for (int e = 0; e < events; ++e) {
        Lanes count = own[e] + 1;
        for (int k = 0; k < t - top; ++k) count += cross[k * events + e];
        const int c = e % kN;
        // Strictly greater: among equal counts the earlier event stays.
        const auto more = count > best[c];
        best[c] = more ? count : best[c];
        winner[c] = more ? s[e] : winner[c];
      }
    }
    uint8_t* out = rowOf(result, y) + static_cast<ptrdiff_t>(x0) * kN;
    for (int j = 0; j < kLanes; ++j)
      for (int c = 0; c < kN; ++c) out[j * kN + c] = winner[c][j];
  }
}

VIMORA_VECTOR_CLONES void oilStrip1(const ImageRecord& src, ImageRecord& result, int x0,
                                    StripRows& w) {
  oilStripBody<1>(src, result, x0, w);
}
VIMORA_VECTOR_CLONES void oilStrip3(const ImageRecord& src, ImageRecord& result, int x0,
                                    StripRows& w) {
  oilStripBody<3>(src, result, x0, w);
}
VIMORA_VECTOR_CLONES void oilStrip4(const ImageRecord& src, ImageRecord& result, int x0,
                                    StripRows& w) {
  oilStripBody<4>(src, result, x0, w);
}

// Runs the vector form over the inside of the picture: output rows r ..
// height - r - 1, columns r .. width - r - 1, in strips of 64 columns (the last
// strip overlaps the one before it). False when it does not apply or memory
// is short; the caller then scans those pixels directly.
bool oilPaintInside(const ImageRecord& src, ImageRecord& result, int r, int n) {
  if ((n != 1 && n != 3 && n != 4) || r > kMaxStripRadius || !stripFits(r, n)) return false;
  const int first = r, last = src.width - r;  // output columns first .. last - 1
  if (last - first < kLanes || src.height - 2 * r < 1) return false;
  StripRows w{r, 2 * r + 1, (2 * r + 1) * n, {}, {}, {}};
  const size_t ring = static_cast<size_t>(w.events) * static_cast<size_t>(w.span);
  if (!w.bytes.allocate(ring) || !w.own.allocate(ring) ||
      !w.above.allocate(ring * static_cast<size_t>(2 * r)))
    return false;
  for (int x0 = first;; x0 += kLanes) {
    const int x = std::min(x0, last - kLanes);
    if (n == 1) oilStrip1(src, result, x, w);
    if (n == 3) oilStrip3(src, result, x, w);
    if (n == 4) oilStrip4(src, result, x, w);
    if (x + kLanes >= last) break;
  }
  return true;
}

template <int kBpp>
void oilPaintRows(const ImageRecord& src, ImageRecord& result, int radius, int bpp) {
  const int n = kBpp > 0 ? kBpp : bpp;
  const int width = src.width, height = src.height;
  const bool inside = oilPaintInside(src, result, radius, n);
  for (int y = 0; y < height; ++y) {
    if (inside && y >= radius && y < height - radius) {
      oilPaintSpan<kBpp>(src, result, radius, bpp, y, 0, radius);
      oilPaintSpan<kBpp>(src, result, radius, bpp, y, width - radius, width);
    } else {
      oilPaintSpan<kBpp>(src, result, radius, bpp, y, 0, width);
    }
  }
}

int bytesPerPixelOf(const ImageRecord& picture) {
  return picture.bytesPerPixel > 0 ? picture.bytesPerPixel : 1;
}

}  // namespace

int oilPaintEffect(ImageRecord* src, ImageRecord* dst, int r) {
  r = std::clamp(r, 1, 16);
  ImageRecord result;
  if (!newResult(*src, result)) return 1;
  if (src->palette && result.palette) std::memcpy(result.palette, src->palette, 768);
  const int bpp = bytesPerPixelOf(*src);
  switch (bpp) {
    case 1:
      oilPaintRows<1>(*src, result, r, bpp);
      break;
    case 3:
      oilPaintRows<3>(*src, result, r, bpp);
      break;
    case 4:
      oilPaintRows<4>(*src, result, r, bpp);
      break;
    default:
      oilPaintRows<0>(*src, result, r, std::min(bpp, 8));
      break;
  }
  return deliver(src, dst, result);
}

}  // namespace process
