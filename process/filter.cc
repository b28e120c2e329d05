// Neighbourhood filters on padded row buffers.
//
// The filters keep s padded copies of source rows (edge replicated, see
// loadPaddedRow) and rotate them by pointer. Each output row is computed in
// blocks of kLanes bytes with a fixed inner count, which lets the compiler
// turn the per-byte arithmetic into vector code; the buffers carry enough
// slack that a last, partial block may read and write past the row's end.
// Medians, maxima and minima use exact shortcuts (separable passes, pruned
// comparator networks, a sliding histogram for large windows) that give the
// same byte as sorting the window.
#include "process/filter.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "process/operation.h"

namespace process {

namespace {

constexpr int kLanes = 16;  // bytes per arithmetic block
constexpr int kWide = 32;   // bytes per comparator-network block; buffers round up to it
constexpr int kMaxSize = 31;
// From this size on the sliding histogram beats the comparator network.
constexpr int kSlidingMedianSize = 9;

typedef uint8_t Bytes32 __attribute__((vector_size(kWide)));

inline uint8_t clampByte(int v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

int bytesPerPixelOf(const ImageRecord& picture) {
  return picture.bytesPerPixel > 0 ? picture.bytesPerPixel : 1;
}

int oddSize(int size) {
  if (size < 1) return 1;
  if (size > kMaxSize) return kMaxSize;
  return size | 1;
}

// Truncating n / d for integers n and d with |n| < 2^24 and 0 < d < 2^24,
// both held exactly in floats. The correctly rounded quotient q' of x = n / d is off by
// at most |x| 2^-24 < 1/d, while a quotient that is not a whole number lies
// at least 1/d away from one, so truncating q' gives trunc(x). Unlike an
// integer division by a run-time divisor this runs in vector registers.
inline int divideTruncating(float n, float d) { return static_cast<int>(n / d); }

size_t roundedToBlocks(size_t n) { return (n + kWide - 1) / kWide * kWide; }

// Whole-row passes over `length` bytes (a multiple of kLanes). Each is one
// fixed-count inner loop over unaliased rows, which the compiler vectorizes.
void widenRow(uint16_t* __restrict to, const uint8_t* __restrict from, int length) {
  for (int i = 0; i < length; i += kLanes)
    for (int t = 0; t < kLanes; ++t) to[i + t] = from[i + t];
}

void addRow(uint16_t* __restrict to, const uint8_t* __restrict from, int length) {
  for (int i = 0; i < length; i += kLanes)
    for (int t = 0; t < kLanes; ++t) to[i + t] = static_cast<uint16_t>(to[i + t] + from[i + t]);
}

void floatRow(float* __restrict to, const uint8_t* __restrict from, int length) {
  for (int i = 0; i < length; i += kLanes)
    for (int t = 0; t < kLanes; ++t) to[i + t] = static_cast<float>(from[i + t]);
}

void floatPairRow(float* __restrict to, const uint8_t* __restrict a, const uint8_t* __restrict b,
                  int length) {
  for (int i = 0; i < length; i += kLanes)
    for (int t = 0; t < kLanes; ++t) to[i + t] = static_cast<float>(a[i + t] + b[i + t]);
}

void maxRow(uint8_t* __restrict to, const uint8_t* __restrict from, int length) {
  for (int i = 0; i < length; i += kLanes)
    for (int t = 0; t < kLanes; ++t) to[i + t] = to[i + t] < from[i + t] ? from[i + t] : to[i + t];
}

void minRow(uint8_t* __restrict to, const uint8_t* __restrict from, int length) {
  for (int i = 0; i < length; i += kLanes)
    for (int t = 0; t < kLanes; ++t) to[i + t] = from[i + t] < to[i + t] ? from[i + t] : to[i + t];
}

// One filter pass: `rows[k]` is padded source row y - s/2 + k, `out` receives
// n = width * bytesPerPixel bytes (and may be written up to the next block).
struct RowContext {
  const uint8_t* const* rows;
  uint8_t* out;
  int n;    // bytes of the output row
  int bpp;  // step between the same byte of neighbouring pixels
};

// Drives a window filter of size s over the whole picture: allocation, row
// buffers, rotation, palette copy and the destination convention.
template <class RowFilter>
int runWindowFilter(ImageRecord* src, ImageRecord* dst, int s, RowFilter&& rowFilter) {
  ImageRecord result;
  if (!newResult(*src, result)) return 1;
  const int bpp = bytesPerPixelOf(*src);
  const int h = s / 2;
  const size_t n = static_cast<size_t>(src->width) * static_cast<size_t>(bpp);
  const size_t blocks = roundedToBlocks(n);
  const size_t padded = roundedToBlocks(blocks + static_cast<size_t>(2 * h * bpp)) + kWide;
  std::vector<uint8_t> store;
  std::vector<uint8_t> out;
  std::vector<uint8_t*> rows;
  try {
    store.assign(padded * static_cast<size_t>(s), 0);
    out.assign(blocks, 0);
    rows.resize(static_cast<size_t>(s));
  } catch (const std::bad_alloc&) {
    imkFree(&result);
    return 1;
  }
  for (int k = 0; k < s; ++k) rows[k] = store.data() + padded * static_cast<size_t>(k);
  // Before the first output row the buffers hold rows -h .. h-1.
  for (int k = 0; k < s - 1; ++k) loadPaddedRow(rows[k], *src, k - h, s);
  for (int y = 0; y < src->height; ++y) {
    loadPaddedRow(rows[s - 1], *src, y + h, s);
    rowFilter(RowContext{rows.data(), out.data(), static_cast<int>(n), bpp});
    std::memcpy(rowOf(result, y), out.data(), n);
    std::rotate(rows.begin(), rows.begin() + 1, rows.end());  // the oldest becomes the last
  }
  if (src->palette && result.palette) std::memcpy(result.palette, src->palette, 768);
  return deliver(src, dst, result);
}

// ---------------------------------------------------------------- 3x3 kernels

struct Kernel3 {
  int w[9];
  int divisor;
  int bias;
};

constexpr Kernel3 kKernels[9] = {
    {{0, -1, 0, -1, 10, -1, 0, -1, 0}, 6, 0},       // Enhance Detail
    {{-1, 0, -1, 0, 7, 0, -1, 0, -1}, 3, 0},        // Enhance Focus
    {{0, -1, 0, -1, 5, -1, 0, -1, 0}, 1, 0},        // Focus Restoration
    {{1, -2, 1, -2, 5, -2, 1, -2, 1}, 1, 0},        // kept in the table, no menu entry
    {{0, 1, 0, 1, -4, 1, 0, 1, 0}, 1, 128},         // Edge detect Light
    {{-1, -1, -1, -1, 8, -1, -1, -1, -1}, 1, 128},  // Edge detect Medium
    {{1, -2, 1, -2, 4, -2, 1, -2, 1}, 1, 128},      // Edge detect Heavy
    {{-1, 0, 0, 0, 0, 0, 0, 0, 1}, 1, 128},         // Emboss
    {{-1, -2, 0, -2, 0, 2, 0, 2, 1}, 1, 128},       // Emboss More
};

// The weights are constants here, so zero taps vanish and the division by
// the divisor becomes a multiplication.
template <int K>
void convolveRow(const uint8_t* __restrict a, const uint8_t* __restrict b,
                 const uint8_t* __restrict c, uint8_t* __restrict out, int n, int bpp) {
  constexpr Kernel3 k = kKernels[K];
  const int b2 = 2 * bpp;
  for (int i = 0; i < n; i += kLanes) {
    for (int t = 0; t < kLanes; ++t) {
      const int j = i + t;
      const int sum = k.w[0] * a[j] + k.w[1] * a[j + bpp] + k.w[2] * a[j + b2] + k.w[3] * b[j] +
                      k.w[4] * b[j + bpp] + k.w[5] * b[j + b2] + k.w[6] * c[j] +
                      k.w[7] * c[j + bpp] + k.w[8] * c[j + b2];
      out[j] = clampByte(sum / k.divisor + k.bias);
    }
  }
}

template <int K>
int convolveWith(ImageRecord* src, ImageRecord* dst) {
  return runWindowFilter(src, dst, 3, [](const RowContext& r) {
    convolveRow<K>(r.rows[0], r.rows[1], r.rows[2], r.out, r.n, r.bpp);
  });
}

// ------------------------------------------------- strength-controlled 3x3

// In the strength filters P is the centre byte, E the sum of the four side
// neighbours and K the sum of the four corners (b2 = 2 * bpp); they are
// written out in each loop so that the loops stay vectorizable.
void softenRow(const uint8_t* __restrict a, const uint8_t* __restrict b,
               const uint8_t* __restrict c, uint8_t* __restrict out, int n, int bpp, int w) {
  const int centre = w + 25, d = w + 825;
  const int b2 = 2 * bpp;
  const float fc = static_cast<float>(centre);
  const float fd = static_cast<float>(d);
  for (int i = 0; i < n; i += kLanes) {
    for (int t = 0; t < kLanes; ++t) {
      const int j = i + t;
      const int P = b[j + bpp];
      const int E = a[j + bpp] + b[j] + b[j + b2] + c[j + bpp];
      const int K = a[j] + a[j + b2] + c[j] + c[j + b2];
      // The weights add up to the divisor: the quotient is already 0..255.
      out[j] = static_cast<uint8_t>(
          divideTruncating(static_cast<float>(P) * fc + 100.0f * static_cast<float>(E + K), fd));
    }
  }
}

void blurRow(const uint8_t* __restrict a, const uint8_t* __restrict b, const uint8_t* __restrict c,
             uint8_t* __restrict out, int n, int bpp, int w) {
  const int centre = w + 25, d = w + 1225;
  const int b2 = 2 * bpp;
  const float fc = static_cast<float>(centre);
  const float fd = static_cast<float>(d);
  for (int i = 0; i < n; i += kLanes) {
    for (int t = 0; t < kLanes; ++t) {
      const int j = i + t;
      const int P = b[j + bpp];
      const int E = a[j + bpp] + b[j] + b[j + b2] + c[j + bpp];
      const int K = a[j] + a[j + b2] + c[j] + c[j + b2];
      out[j] = static_cast<uint8_t>(divideTruncating(static_cast<float>(P) * fc +
                                                         200.0f * static_cast<float>(E) +
                                                         100.0f * static_cast<float>(K),
                                                     fd));
    }
  }
}

void enhanceEdgesRow(const uint8_t* __restrict a, const uint8_t* __restrict b,
                     const uint8_t* __restrict c, uint8_t* __restrict out, int n, int bpp, int w) {
  const int centre = w + 9, d = w + 1;
  const int b2 = 2 * bpp;
  const float fc = static_cast<float>(centre);
  const float fd = static_cast<float>(d);
  for (int i = 0; i < n; i += kLanes) {
    for (int t = 0; t < kLanes; ++t) {
      const int j = i + t;
      const int P = b[j + bpp];
      const int E = a[j + bpp] + b[j] + b[j + b2] + c[j + bpp];
      const int K = a[j] + a[j + b2] + c[j] + c[j + b2];
      out[j] =
          clampByte(divideTruncating(static_cast<float>(P) * fc - static_cast<float>(E + K), fd));
    }
  }
}

void sharpenRow(const uint8_t* __restrict a, const uint8_t* __restrict b,
                const uint8_t* __restrict c, uint8_t* __restrict out, int n, int bpp, int p) {
  const int d = p == 100 ? 1 : 100 - p;
  const int b2 = 2 * bpp;
  const float fd = static_cast<float>(d);
  for (int i = 0; i < n; i += kLanes) {
    for (int t = 0; t < kLanes; ++t) {
      const int j = i + t;
      const int P = b[j + bpp];
      const int E = a[j + bpp] + b[j] + b[j + b2] + c[j + bpp];
      const int K = a[j] + a[j + b2] + c[j] + c[j + b2];
      // p * N is never negative, so the shift is the truncating division by 8.
      out[j] = clampByte(divideTruncating(static_cast<float>(100 * P - ((p * (E + K)) >> 3)), fd));
    }
  }
}

int clampStrength(int p) { return p < 1 ? 1 : p > 100 ? 100 : p; }

template <void (*Row)(const uint8_t* __restrict, const uint8_t* __restrict,
                      const uint8_t* __restrict, uint8_t* __restrict, int, int, int)>
int strengthFilter(ImageRecord* src, ImageRecord* dst, int parameter) {
  return runWindowFilter(src, dst, 3, [parameter](const RowContext& r) {
    Row(r.rows[0], r.rows[1], r.rows[2], r.out, r.n, r.bpp, parameter);
  });
}

// ------------------------------------------------------ weighted windows

// One non-zero tap of a general kernel: source row, byte offset in the padded
// row, weight.
struct Tap {
  int row;
  int offset;
  int weight;
};

// out = clamp(sum / divisor + bias) for kernels whose sum stays below 2^24 in
// magnitude and a divisor in 1..2^24-1. Every product and partial sum is then
// an integer that single-precision floats hold exactly, and a float multiply
// vectorizes where a 32-bit integer one does not.
void weightedRowFast(const RowContext& r, const std::vector<Tap>& taps, int divisor, int bias) {
  const float fd = static_cast<float>(divisor);
  uint8_t* __restrict out = r.out;
  for (int i = 0; i < r.n; i += kLanes) {
    float acc[kLanes] = {};
    for (const Tap& tap : taps) {
      const uint8_t* __restrict p = r.rows[tap.row] + tap.offset + i;
      const float w = static_cast<float>(tap.weight);
      for (int t = 0; t < kLanes; ++t) acc[t] += w * static_cast<float>(p[t]);
    }
    for (int t = 0; t < kLanes; ++t) out[i + t] = clampByte(divideTruncating(acc[t], fd) + bias);
  }
}

// The same in 64-bit integers for any weights, divisor and bias.
void weightedRowWide(const RowContext& r, const std::vector<Tap>& taps, int divisor, int bias) {
  for (int j = 0; j < r.n; ++j) {
    int64_t acc = 0;
    for (const Tap& tap : taps)
      acc += static_cast<int64_t>(tap.weight) * r.rows[tap.row][tap.offset + j];
    const int64_t v = acc / divisor + bias;
    r.out[j] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
  }
}

int weightedFilter(ImageRecord* src, ImageRecord* dst, int s, const int* weights, int divisor,
                   int bias) {
  const int bpp = bytesPerPixelOf(*src);
  std::vector<Tap> taps;
  int64_t magnitude = 0;
  for (int i = 0; i < s; ++i)
    for (int j = 0; j < s; ++j)
      if (const int w = weights[i * s + j]) {
        taps.push_back({i, j * bpp, w});
        magnitude += 255 * std::abs(static_cast<int64_t>(w));
      }
  constexpr int64_t kExact = int64_t{1} << 24;
  if (divisor > 0 && divisor < kExact && magnitude < kExact) {
    // |quotient| < 2^24, so a bias beyond +-2^25 clamps the same way as the
    // bias itself would; keeping it small keeps the sum in range.
    const int b = std::clamp(bias, -(1 << 25), 1 << 25);
    return runWindowFilter(src, dst, s,
                           [&](const RowContext& r) { weightedRowFast(r, taps, divisor, b); });
  }
  return runWindowFilter(src, dst, s,
                         [&](const RowContext& r) { weightedRowWide(r, taps, divisor, bias); });
}

// --------------------------------------------------------------- average

void averageRow(const RowContext& r, int s, std::vector<uint16_t>& columns) {
  uint16_t* col = columns.data();
  const int length = static_cast<int>(columns.size());
  // Column sums of the s rows at every padded byte (at most 31 * 255).
  widenRow(col, r.rows[0], length);
  for (int k = 1; k < s; ++k) addRow(col, r.rows[k], length);
  const int area = s * s;
  const float fa = static_cast<float>(area);
  uint8_t* __restrict out = r.out;
  for (int i = 0; i < r.n; i += kLanes) {
    int acc[kLanes] = {};
    for (int m = 0; m < s; ++m) {
      const uint16_t* __restrict c = col + i + m * r.bpp;
      for (int t = 0; t < kLanes; ++t) acc[t] += c[t];
    }
    for (int t = 0; t < kLanes; ++t)
      out[i + t] = static_cast<uint8_t>(divideTruncating(static_cast<float>(acc[t]), fa));
  }
}

// --------------------------------------------------------------- Gaussian

// The Gaussian's weights depend only on the squared distance from the centre,
// so the window is folded: V_a adds the two rows a above and a below the
// centre, and one weight multiplies the sum of all cells at row distance a
// and column distance b or the other way round (up to eight cells). That is
// the same sum of products as the full window, with one multiplication per
// distinct pair {a, b}.
struct GaussTap {
  int weight;
  int count;      // folded entries added: 1 (centre), 2 (a = b), 3 (a = 0) or 4
  int plane[4];   // which V_a
  int column[4];  // column offset from the window's left edge, in pixels
};

// The products and sums are integers below 2^24 (the weights add up to
// about 2048), which floats hold exactly; float arithmetic vectorizes. The
// row is done in blocks: the folded rows of a block (with the window's reach
// on both sides) and its sums stay in the first-level cache, and each tap
// runs over the whole block.
constexpr int kGaussBlock = 16 * kLanes;

VIMORA_VECTOR_CLONES void gaussianRow(const RowContext& r, int s, const std::vector<GaussTap>& taps,
                                      std::vector<float>& folded) {
  const int h = s / 2;
  // Folded plane a of the block: V_a over the block's bytes and reach.
  const int reach = (kGaussBlock + 2 * h * r.bpp + kLanes - 1) / kLanes * kLanes;
  float* __restrict planes = folded.data();
  uint8_t* __restrict out = r.out;
  for (int i0 = 0; i0 < r.n; i0 += kGaussBlock) {
    const int m = std::min(kGaussBlock, (r.n - i0 + kLanes - 1) / kLanes * kLanes);
    const int span = std::min(reach, (m + 2 * h * r.bpp + kLanes - 1) / kLanes * kLanes);
    floatRow(planes, r.rows[h] + i0, span);
    for (int a = 1; a <= h; ++a)
      floatPairRow(planes + a * reach, r.rows[h - a] + i0, r.rows[h + a] + i0, span);
    float acc[kGaussBlock] = {};
    for (const GaussTap& tap : taps) {
      const float* p[4] = {};
      for (int k = 0; k < tap.count; ++k)
        p[k] = planes + tap.plane[k] * reach + tap.column[k] * r.bpp;
      const float w = static_cast<float>(tap.weight);
      const float* __restrict p0 = p[0];
      const float* __restrict p1 = p[1];
      const float* __restrict p2 = p[2];
      const float* __restrict p3 = p[3];
      switch (tap.count) {
        case 1:
          for (int t = 0; t < m; ++t) acc[t] += w * p0[t];
          break;
        case 2:
          for (int t = 0; t < m; ++t) acc[t] += w * (p0[t] + p1[t]);
          break;
        case 3:
          for (int t = 0; t < m; ++t) acc[t] += w * ((p0[t] + p1[t]) + p2[t]);
          break;
        default:
          for (int t = 0; t < m; ++t) acc[t] += w * ((p0[t] + p1[t]) + (p2[t] + p3[t]));
      }
    }
    // No clamping: the low 8 bits of the shifted sum are what is stored.
    for (int t = 0; t < m; ++t) out[i0 + t] = static_cast<uint8_t>(static_cast<int>(acc[t]) >> 11);
  }
}

// Folded taps of the Gaussian of size s: one per distinct pair a <= b of row
// and column distances, each naming the folded rows and columns it adds.
std::vector<GaussTap> gaussianTaps(int s, const std::vector<int>& weights) {
  const int h = s / 2;
  std::vector<GaussTap> taps;
  for (int a = 0; a <= h; ++a)
    for (int b = a; b <= h; ++b) {
      GaussTap tap{weights[(h + a) * s + (h + b)], 0, {}, {}};
      if (tap.weight == 0) continue;
      auto add = [&](int plane, int column) {
        tap.plane[tap.count] = plane;
        tap.column[tap.count] = column;
        ++tap.count;
      };
      // Row distance a (folded into V_a), column distance b; then mirrored.
      add(a, h - b);
      if (b != 0) add(a, h + b);
      if (a != b) {
        add(b, h - a);
        if (a != 0) add(b, h + a);
      }
      taps.push_back(tap);
    }
  return taps;
}

// ---------------------------------------------------------- maximum, minimum

// Separable: the extreme of the window is the extreme over its columns of
// each column's extreme.
template <bool kMaximum>
void extremeRow(const RowContext& r, int s, std::vector<uint8_t>& columns) {
  uint8_t* col = columns.data();
  const int length = static_cast<int>(columns.size());
  std::memcpy(col, r.rows[0], static_cast<size_t>(length));
  for (int k = 1; k < s; ++k) (kMaximum ? maxRow : minRow)(col, r.rows[k], length);
  const int blocks = static_cast<int>(roundedToBlocks(static_cast<size_t>(r.n)));
  std::memcpy(r.out, col, static_cast<size_t>(blocks));
  for (int m = 1; m < s; ++m) (kMaximum ? maxRow : minRow)(r.out, col + m * r.bpp, blocks);
}

// ------------------------------------------------------------------ medians

// A comparator puts the smaller byte on wire `lo` and the larger on `hi`.
struct Comparator {
  uint16_t lo, hi;
};

// Batcher's odd-even merge sort on the given wires (any count): afterwards
// wires[i] holds the i-th smallest value.
void appendSortingNetwork(const std::vector<int>& wires, std::vector<Comparator>& net) {
  const int n = static_cast<int>(wires.size());
  for (int p = 1; p < n; p += p)
    for (int k = p; k >= 1; k /= 2)
      for (int j = k % p; j + k < n; j += 2 * k)
        for (int i = 0; i < k && i + j + k < n; ++i)
          if ((i + j) / (2 * p) == (i + j + k) / (2 * p))
            net.push_back(
                {static_cast<uint16_t>(wires[i + j]), static_cast<uint16_t>(wires[i + j + k])});
}

// Keeps only the comparators that influence `target`, walking backwards;
// `needed` receives the input wires that must be loaded.
std::vector<Comparator> pruneNetwork(const std::vector<Comparator>& net, int target,
                                     std::vector<char>& needed) {
  std::vector<Comparator> kept;
  needed[target] = 1;
  for (auto it = net.rbegin(); it != net.rend(); ++it) {
    if (!needed[it->lo] && !needed[it->hi]) continue;
    kept.push_back(*it);
    needed[it->lo] = needed[it->hi] = 1;
  }
  std::reverse(kept.begin(), kept.end());
  return kept;
}

// Both outputs are always written, even one that is no longer needed (it is
// then never read again): that keeps the loop free of branches.
inline void runNetwork(Bytes32* w, const std::vector<Comparator>& net) {
  for (const Comparator& c : net) {
    const Bytes32 a = w[c.lo], b = w[c.hi];
    w[c.lo] = a < b ? a : b;
    w[c.hi] = a < b ? b : a;
  }
}

// Box median. Sorting each column of the window (shared by the s windows that
// contain it) and then each rank across the columns leaves a matrix sorted
// both ways. Order its entries by value, ties broken by r + c: the entry at
// rank r, column c then comes after the (r+1)(c+1) - 1 entries it dominates
// and before the (s-r)(s-c) - 1 entries that dominate it. With k = s*s/2,
// entries with (r+1)(c+1) >= k+2 come after the median and entries with
// (s-r)(s-c) >= s*s-k+1 before it, so the median is the candidate of rank
// k - (number before) among the rest. Only the comparators that lead to it
// are kept.
struct BoxMedianPlan {
  struct Load {
    int wire, plane, column;  // wire r*s + c comes from rank plane r, window column c
  };
  std::vector<Comparator> columnSort;  // on wires 0..s-1 (rows of the window)
  std::vector<Comparator> net;         // on wires r*s + c
  std::vector<Load> loads;             // wires to load before `net`
  int target = 0;
};

BoxMedianPlan planBoxMedian(int s) {
  BoxMedianPlan plan;
  std::vector<int> wires(static_cast<size_t>(s));
  for (int i = 0; i < s; ++i) wires[i] = i;
  appendSortingNetwork(wires, plan.columnSort);

  const int count = s * s, k = count / 2;
  std::vector<Comparator> net;
  for (int r = 0; r < s; ++r) {
    for (int c = 0; c < s; ++c) wires[c] = r * s + c;
    appendSortingNetwork(wires, net);
  }
  std::vector<int> candidates;
  int below = 0;
  for (int r = 0; r < s; ++r)
    for (int c = 0; c < s; ++c) {
      if ((s - r) * (s - c) >= count - k + 1)
        ++below;
      else if ((r + 1) * (c + 1) < k + 2)
        candidates.push_back(r * s + c);
    }
  appendSortingNetwork(candidates, net);
  plan.target = candidates[static_cast<size_t>(k - below)];
  std::vector<char> needed(static_cast<size_t>(count), 0);
  plan.net = pruneNetwork(net, plan.target, needed);
  for (int wire = 0; wire < count; ++wire)
    if (needed[wire]) plan.loads.push_back({wire, wire / s, wire % s});
  return plan;
}

void boxMedianRow(const RowContext& r, int s, const BoxMedianPlan& plan,
                  std::vector<uint8_t>& ranks, int length, std::vector<Bytes32>& wires) {
  // Rank planes: ranks[q * length + p] is the q-th smallest of column p.
  Bytes32* w = wires.data();
  for (int p = 0; p < length; p += kWide) {
    for (int q = 0; q < s; ++q) std::memcpy(&w[q], r.rows[q] + p, kWide);
    runNetwork(w, plan.columnSort);
    for (int q = 0; q < s; ++q) std::memcpy(ranks.data() + q * length + p, &w[q], kWide);
  }
  for (int i = 0; i < r.n; i += kWide) {
    for (const BoxMedianPlan::Load& load : plan.loads)
      std::memcpy(&w[load.wire], ranks.data() + load.plane * length + i + load.column * r.bpp,
                  kWide);
    runNetwork(w, plan.net);
    std::memcpy(r.out + i, &w[plan.target], kWide);
  }
}

// Box median of large windows: a histogram per byte position slides along
// the row (s bytes leave and s enter per step), and the median level moves
// from its previous place; `below` counts the window's bytes under it. The
// median is the level m with below <= s*s/2 < below + count[m], the same
// byte as sorting gives.
void slidingMedianRow(const RowContext& r, int s, int width) {
  const int k = s * s / 2;
  const int bpp = r.bpp;
  for (int c = 0; c < bpp; ++c) {
    uint16_t count[256] = {};
    for (int q = 0; q < s; ++q)
      for (int col = 0; col < s; ++col) ++count[r.rows[q][col * bpp + c]];
    int m = 0, below = 0;
    while (below + count[m] <= k) below += count[m++];
    r.out[c] = static_cast<uint8_t>(m);
    for (int x = 1; x < width; ++x) {
      const int leave = (x - 1) * bpp + c, enter = (x + s - 1) * bpp + c;
      for (int q = 0; q < s; ++q) {
        const uint8_t* row = r.rows[q];
        const uint8_t out = row[leave], in = row[enter];
        --count[out];
        ++count[in];
        below += (in < m) - (out < m);
      }
      while (below > k) below -= count[--m];
      while (below + count[m] <= k) below += count[m++];
      r.out[x * bpp + c] = static_cast<uint8_t>(m);
    }
  }
}

// Cross median: the centre column's s bytes on wires 0..s-1 and the centre
// row's other s-1 bytes on wires s..2s-2, sorted and pruned to the middle.
struct CrossMedianPlan {
  struct Load {
    int wire, row, column;  // window row and column of the wire's byte
  };
  std::vector<Comparator> net;
  std::vector<Load> loads;
  int target = 0;
};

CrossMedianPlan planCrossMedian(int s) {
  CrossMedianPlan plan;
  const int h = s / 2, count = 2 * s - 1;
  std::vector<int> wires(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) wires[i] = i;
  std::vector<Comparator> net;
  appendSortingNetwork(wires, net);
  plan.target = count / 2;
  std::vector<char> needed(static_cast<size_t>(count), 0);
  plan.net = pruneNetwork(net, plan.target, needed);
  for (int wire = 0; wire < count; ++wire) {
    if (!needed[wire]) continue;
    if (wire < s)
      plan.loads.push_back({wire, wire, h});  // centre column
    else
      plan.loads.push_back({wire, h, wire - s < h ? wire - s : wire - s + 1});  // centre row
  }
  return plan;
}

void crossMedianRow(const RowContext& r, const CrossMedianPlan& plan, std::vector<Bytes32>& wires) {
  Bytes32* w = wires.data();
  for (int i = 0; i < r.n; i += kWide) {
    for (const CrossMedianPlan::Load& load : plan.loads)
      std::memcpy(&w[load.wire], r.rows[load.row] + i + load.column * r.bpp, kWide);
    runNetwork(w, plan.net);
    std::memcpy(r.out + i, &w[plan.target], kWide);
  }
}

// Length of a padded row rounded up to whole blocks (every buffer of
// runWindowFilter is readable that far).
size_t paddedBlocks(const ImageRecord& src, int s) {
  const size_t bpp = static_cast<size_t>(bytesPerPixelOf(src));
  return roundedToBlocks(roundedToBlocks(static_cast<size_t>(src.width) * bpp) +
                         static_cast<size_t>(2 * (s / 2)) * bpp);
}

}  // namespace

void loadPaddedRow(uint8_t* buffer, const ImageRecord& picture, int y, int s) {
  const int h = s / 2;
  const int bpp = bytesPerPixelOf(picture);
  const int yc = y < 0 ? 0 : y >= picture.height ? picture.height - 1 : y;
  const uint8_t* row = rowOf(picture, yc);
  const size_t n = static_cast<size_t>(picture.width) * static_cast<size_t>(bpp);
  std::memcpy(buffer + h * bpp, row, n);
  uint8_t* right = buffer + h * bpp + n;
  const uint8_t* last = row + n - bpp;
  for (int k = 0; k < h; ++k) {
    std::memcpy(buffer + k * bpp, row, static_cast<size_t>(bpp));
    std::memcpy(right + k * bpp, last, static_cast<size_t>(bpp));
  }
}

int convolve3x3(ImageRecord* src, ImageRecord* dst, int kernelNumber) {
  switch (kernelNumber) {
    case 0:
      return convolveWith<0>(src, dst);
    case 1:
      return convolveWith<1>(src, dst);
    case 2:
      return convolveWith<2>(src, dst);
    case 3:
      return convolveWith<3>(src, dst);
    case 4:
      return convolveWith<4>(src, dst);
    case 5:
      return convolveWith<5>(src, dst);
    case 6:
      return convolveWith<6>(src, dst);
    case 7:
      return convolveWith<7>(src, dst);
    case 8:
      return convolveWith<8>(src, dst);
    default:
      return 0;
  }
}

int softenFilter(ImageRecord* src, ImageRecord* dst, int strength) {
  return strengthFilter<softenRow>(src, dst, ((100 - clampStrength(strength)) * 3175) / 100);
}

int blurFilter(ImageRecord* src, ImageRecord* dst, int strength) {
  return strengthFilter<blurRow>(src, dst, ((100 - clampStrength(strength)) * 3175) / 100);
}

int enhanceEdgesFilter(ImageRecord* src, ImageRecord* dst, int strength) {
  return strengthFilter<enhanceEdgesRow>(src, dst, ((100 - clampStrength(strength)) * 55) / 100);
}

int sharpenFilter(ImageRecord* src, ImageRecord* dst, int strength) {
  return strengthFilter<sharpenRow>(src, dst, clampStrength(strength));
}

int averageFilter(ImageRecord* src, ImageRecord* dst, int size) {
  const int s = oddSize(size);
  std::vector<uint16_t> columns;
  try {
    columns.assign(paddedBlocks(*src, s), 0);
  } catch (const std::bad_alloc&) {
    return 1;
  }
  return runWindowFilter(src, dst, s, [&](const RowContext& r) { averageRow(r, s, columns); });
}

int gaussianWeights(int size, int* weights) {
  const int s = oddSize(size);
  const int h = s / 2;
  const double L = std::log(1.0 / 255.0);
  const double sigma = std::sqrt(-static_cast<double>(s) * s / (2.0 * L));
  std::vector<double> w(static_cast<size_t>(s) * s);
  double sum = 0.0;
  for (int i = 0; i < s; ++i)
    for (int j = 0; j < s; ++j) {
      const int r2 = (i - h) * (i - h) + (j - h) * (j - h);
      w[i * s + j] = std::exp(-r2 / (2.0 * sigma * sigma));
      sum += w[i * s + j];
    }
  for (int i = 0; i < s * s; ++i)
    weights[i] = static_cast<int>(std::trunc(w[i] / sum * 2048.0 + 0.5));
  return s;
}

int gaussianFilter(ImageRecord* src, ImageRecord* dst, int size) {
  const int s = oddSize(size);
  const int h = s / 2;
  std::vector<int> weights(static_cast<size_t>(s) * s);
  gaussianWeights(s, weights.data());
  const std::vector<GaussTap> taps = gaussianTaps(s, weights);
  const int reach = kGaussBlock + 2 * h * bytesPerPixelOf(*src) + kLanes;
  std::vector<float> folded;
  try {
    folded.assign(static_cast<size_t>(reach) * static_cast<size_t>(h + 1), 0.0f);
  } catch (const std::bad_alloc&) {
    return 1;
  }
  return runWindowFilter(src, dst, s,
                         [&](const RowContext& r) { gaussianRow(r, s, taps, folded); });
}

template <bool kMaximum>
int extremeFilter(ImageRecord* src, ImageRecord* dst, int size) {
  const int s = oddSize(size);
  std::vector<uint8_t> columns;
  try {
    columns.assign(paddedBlocks(*src, s), 0);
  } catch (const std::bad_alloc&) {
    return 1;
  }
  return runWindowFilter(src, dst, s,
                         [&](const RowContext& r) { extremeRow<kMaximum>(r, s, columns); });
}

int maximumFilter(ImageRecord* src, ImageRecord* dst, int size) {
  return extremeFilter<true>(src, dst, size);
}

int minimumFilter(ImageRecord* src, ImageRecord* dst, int size) {
  return extremeFilter<false>(src, dst, size);
}

int medianBoxFilter(ImageRecord* src, ImageRecord* dst, int size) {
  const int s = oddSize(size);
  if (s >= kSlidingMedianSize) {
    const int width = src->width;
    return runWindowFilter(src, dst, s,
                           [&](const RowContext& r) { slidingMedianRow(r, s, width); });
  }
  const BoxMedianPlan plan = planBoxMedian(s);
  const int length = static_cast<int>(paddedBlocks(*src, s));
  std::vector<uint8_t> ranks;
  std::vector<Bytes32> wires;
  try {
    ranks.assign(static_cast<size_t>(length) * static_cast<size_t>(s), 0);
    wires.resize(static_cast<size_t>(s) * s);
  } catch (const std::bad_alloc&) {
    return 1;
  }
  return runWindowFilter(
      src, dst, s, [&](const RowContext& r) { boxMedianRow(r, s, plan, ranks, length, wires); });
}

int medianCrossFilter(ImageRecord* src, ImageRecord* dst, int size) {
  const int s = oddSize(size);
  const CrossMedianPlan plan = planCrossMedian(s);
  std::vector<Bytes32> wires;
  try {
    wires.resize(static_cast<size_t>(2 * s - 1));
  } catch (const std::bad_alloc&) {
    return 1;
  }
  return runWindowFilter(src, dst, s, [&](const RowContext& r) { crossMedianRow(r, plan, wires); });
}

int reduceNoiseFilter(ImageRecord* src, ImageRecord* dst) {
  // Centre 7, the four nearest 3, the four at distance two -1; divisor 15.
  static constexpr int kCross[25] = {0, 0,  -1, 0, 0, 0, 0, 3, 0, 0,  -1, 3, 7,
                                     3, -1, 0,  0, 3, 0, 0, 0, 0, -1, 0,  0};
  return weightedFilter(src, dst, 5, kCross, 15, 0);
}

int userFilter(ImageRecord* src, ImageRecord* dst, const int weights[25], int divisor, int bias) {
  return weightedFilter(src, dst, 5, weights, divisor == 0 ? 1 : divisor, bias);
}

}  // namespace process
