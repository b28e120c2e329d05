// Resizing: nearest pixel ("quick") and a separable linear filter ("linear":
// bilinear where a direction grows, area averaging where it shrinks) with
// integer weights worked out once per call.
#include "process/resize.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

#include "process/operation.h"

namespace process {

namespace {

// round(a * b / c) for positive values, in 64 bits.
int64_t mulDivRound(int64_t a, int64_t b, int64_t c) { return (2 * a * b + c) / (2 * c); }

int clampSide(int64_t v) { return static_cast<int>(std::clamp<int64_t>(v, 1, INT32_MAX)); }

void copyPalette(const ImageRecord& src, ImageRecord& result) {
  if (src.palette && result.palette) std::memcpy(result.palette, src.palette, 768);
}

// ---------------------------------------------------------------------------
// Quick: nearest by truncating integer scaling.

template <int kBpp>
void quickRows(const ImageRecord& src, ImageRecord& result, const std::vector<size_t>& column) {
  for (int y = 0; y < result.height; ++y) {
    const int sy = static_cast<int>(static_cast<int64_t>(y) * src.height / result.height);
    const uint8_t* s = rowOf(src, sy);
    uint8_t* d = rowOf(result, y);
    for (int x = 0; x < result.width; ++x, d += kBpp)
      std::memcpy(d, s + column[static_cast<size_t>(x)], kBpp);
  }
}

void quickRowsAny(const ImageRecord& src, ImageRecord& result, const std::vector<size_t>& column) {
  const size_t bpp = static_cast<size_t>(src.bytesPerPixel);
  for (int y = 0; y < result.height; ++y) {
    const int sy = static_cast<int>(static_cast<int64_t>(y) * src.height / result.height);
    const uint8_t* s = rowOf(src, sy);
    uint8_t* d = rowOf(result, y);
    for (int x = 0; x < result.width; ++x, d += bpp)
      std::memcpy(d, s + column[static_cast<size_t>(x)], bpp);
  }
}

void resizeQuick(const ImageRecord& src, ImageRecord& result) {
  std::vector<size_t> column(static_cast<size_t>(result.width));
  for (int x = 0; x < result.width; ++x)
    column[static_cast<size_t>(x)] =
        static_cast<size_t>(static_cast<int64_t>(x) * src.width / result.width) *
        static_cast<size_t>(src.bytesPerPixel);
  switch (src.bytesPerPixel) {
    case 1:
      quickRows<1>(src, result, column);
      break;
    case 3:
      quickRows<3>(src, result, column);
      break;
    case 4:
      quickRows<4>(src, result, column);
      break;
    default:
      quickRowsAny(src, result, column);
      break;
  }
}

// ---------------------------------------------------------------------------
// Linear: per result index a run of source indices with weights summing to
// exactly kUnit, so that uniform areas stay exactly uniform.

constexpr int kWeightBits = 14;
constexpr int32_t kUnit = 1 << kWeightBits;

// Every result index uses the same number of taps (`taps`), starting at
// first[o]; shorter runs are padded with zero weights, moved left where
// needed so that every tap index is inside the source.
struct Taps {
  int taps = 0;
  std::vector<int> first;
  std::vector<int32_t> weight;  // taps weights per result index
};

// Makes the weights of one result index add up to kUnit by giving the
// rounding remainder to the largest of them.
void settle(int32_t* w, int n) {
  int32_t sum = 0;
  int big = 0;
  for (int k = 0; k < n; ++k) {
    sum += w[k];
    if (w[k] > w[big]) big = k;
  }
  w[big] += kUnit - sum;
}

Taps makeTaps(int in, int out) {
  const size_t n = static_cast<size_t>(out);
  // Raw runs: up to `room` weights per result index.
  const int room = out >= in ? 2 : (in + out - 1) / out + 1;
  std::vector<int> first(n), count(n);
  std::vector<int32_t> raw(n * static_cast<size_t>(room), 0);
  if (out >= in) {
    // Bilinear between source pixel centres: result centre o + 1/2 sits at
    // source position (o + 1/2) in / out - 1/2, here in units of 1 / (2 out).
    const int64_t unit = 2 * static_cast<int64_t>(out);
    for (int o = 0; o < out; ++o) {
      const int64_t pos = (2 * static_cast<int64_t>(o) + 1) * in - out;
      int64_t i0 = pos < 0 ? 0 : pos / unit;
      int64_t frac = pos < 0 ? 0 : pos - i0 * unit;
      if (i0 >= in - 1) i0 = in - 1, frac = 0;  // past the last centre: the edge pixel
      int32_t* w = &raw[static_cast<size_t>(o) * 2];
      const int32_t right = static_cast<int32_t>((frac * kUnit + unit / 2) / unit);
      first[static_cast<size_t>(o)] = static_cast<int>(i0);
      count[static_cast<size_t>(o)] = right == 0 ? 1 : 2;
      w[0] = kUnit - right;
      w[1] = right;
    }
  } else {
    // Area: result index o covers source [o in / out, (o + 1) in / out); in
    // units of 1 / out that is [o in, (o + 1) in), and source index i covers
    // [i out, (i + 1) out). Each weight is the overlap over the whole span in.
    for (int o = 0; o < out; ++o) {
      const int64_t lo = static_cast<int64_t>(o) * in, hi = lo + in;
      const int i0 = static_cast<int>(lo / out);
      const int i1 = static_cast<int>(std::min<int64_t>((hi + out - 1) / out, in));
      int32_t* w = &raw[static_cast<size_t>(o) * static_cast<size_t>(room)];
      for (int i = i0; i < i1; ++i) {
        const int64_t overlap = std::min<int64_t>(hi, static_cast<int64_t>(i + 1) * out) -
                                std::max<int64_t>(lo, static_cast<int64_t>(i) * out);
        w[i - i0] = static_cast<int32_t>((overlap * kUnit + in / 2) / in);
      }
      first[static_cast<size_t>(o)] = i0;
      count[static_cast<size_t>(o)] = i1 - i0;
      settle(w, i1 - i0);
    }
  }
  Taps t;
  t.taps = *std::max_element(count.begin(), count.end());
  t.first.resize(n);
  t.weight.assign(n * static_cast<size_t>(t.taps), 0);
  for (size_t o = 0; o < n; ++o) {
    const int start = std::min(first[o], in - t.taps);
    t.first[o] = start;
    for (int k = 0; k < count[o]; ++k)
      t.weight[o * static_cast<size_t>(t.taps) + static_cast<size_t>(first[o] - start + k)] =
          raw[o * static_cast<size_t>(room) + static_cast<size_t>(k)];
  }
  return t;
}

// Rows of bytes to resample: a picture's own rows, or expanded copies.
struct Plane {
  const uint8_t* pixels;
  size_t stride;
  int width, height, channels;
  const uint8_t* row(int y) const { return pixels + static_cast<size_t>(y) * stride; }
};

// The vertical pass gives value x 128 in 16 bits; the horizontal pass takes
// that back to bytes.
constexpr int kDownShift = kWeightBits - 7;
constexpr int kAcrossShift = kWeightBits + 7;

// One row of value x 128 from `kTaps` source rows (kTaps 0: any number).
template <int kTaps>
void downRow(const Plane& src, int first, const int32_t* w, int taps, uint32_t* acc, uint16_t* mid,
             size_t len) {
  constexpr uint32_t kHalf = 1u << (kDownShift - 1);
  if constexpr (kTaps == 1) {
    const uint8_t* s0 = src.row(first);
    for (size_t k = 0; k < len; ++k) mid[k] = static_cast<uint16_t>(s0[k] << 7);
  } else if constexpr (kTaps == 2) {
    const uint8_t *s0 = src.row(first), *s1 = src.row(first + 1);
    const uint32_t w0 = static_cast<uint32_t>(w[0]), w1 = static_cast<uint32_t>(w[1]);
    for (size_t k = 0; k < len; ++k)
      mid[k] = static_cast<uint16_t>((s0[k] * w0 + s1[k] * w1 + kHalf) >> kDownShift);
  } else if constexpr (kTaps == 3) {
    const uint8_t *s0 = src.row(first), *s1 = src.row(first + 1), *s2 = src.row(first + 2);
    const uint32_t w0 = static_cast<uint32_t>(w[0]), w1 = static_cast<uint32_t>(w[1]),
                   w2 = static_cast<uint32_t>(w[2]);
    for (size_t k = 0; k < len; ++k)
      mid[k] = static_cast<uint16_t>((s0[k] * w0 + s1[k] * w1 + s2[k] * w2 + kHalf) >> kDownShift);
  } else {
    for (size_t k = 0; k < len; ++k) acc[k] = kHalf;
    for (int t = 0; t < taps; ++t) {
      if (w[t] == 0) continue;
      const uint8_t* s = src.row(first + t);
      const uint32_t wt = static_cast<uint32_t>(w[t]);
      for (size_t k = 0; k < len; ++k) acc[k] += s[k] * wt;
    }
    for (size_t k = 0; k < len; ++k) mid[k] = static_cast<uint16_t>(acc[k] >> kDownShift);
  }
}

// One result row from a row of value x 128 (kTaps 0: any number).
template <int kCh, int kTaps>
void acrossRow(const uint16_t* mid, const Taps& across, uint8_t* d, int width) {
  const int taps = kTaps ? kTaps : across.taps;
  constexpr uint32_t kHalf = 1u << (kAcrossShift - 1);
  const int32_t* w = across.weight.data();
  for (int x = 0; x < width; ++x, d += kCh, w += taps) {
    const uint16_t* m = mid + static_cast<size_t>(across.first[static_cast<size_t>(x)]) * kCh;
    for (int c = 0; c < kCh; ++c) {
      uint32_t sum = kHalf;
      for (int t = 0; t < taps; ++t) sum += static_cast<uint32_t>(w[t]) * m[t * kCh + c];
      d[c] = static_cast<uint8_t>(sum >> kAcrossShift);
    }
  }
}

template <int kCh>
void resampleRows(const Plane& src, ImageRecord& result, const Taps& across, const Taps& down) {
  const size_t len = static_cast<size_t>(src.width) * kCh;
  std::vector<uint32_t> acc(down.taps > 3 ? len : 0);
  std::vector<uint16_t> mid(len);
  auto downFn = down.taps == 1   ? downRow<1>
                : down.taps == 2 ? downRow<2>
                : down.taps == 3 ? downRow<3>
                                 : downRow<0>;
  auto acrossFn = across.taps == 1   ? acrossRow<kCh, 1>
                  : across.taps == 2 ? acrossRow<kCh, 2>
                  : across.taps == 3 ? acrossRow<kCh, 3>
                                     : acrossRow<kCh, 0>;
  for (int y = 0; y < result.height; ++y) {
    const size_t yi = static_cast<size_t>(y);
    downFn(src, down.first[yi], &down.weight[yi * static_cast<size_t>(down.taps)], down.taps,
           acc.data(), mid.data(), len);
    acrossFn(mid.data(), across, rowOf(result, y), result.width);
  }
}

void resampleLinear(const Plane& src, ImageRecord& result) {
  const Taps across = makeTaps(src.width, result.width);
  const Taps down = makeTaps(src.height, result.height);
  switch (src.channels) {
    case 1:
      resampleRows<1>(src, result, across, down);
      break;
    case 3:
      resampleRows<3>(src, result, across, down);
      break;
    case 4:
      resampleRows<4>(src, result, across, down);
      break;
    default:
      break;  // no other layouts exist
  }
}

// Binary pixels as 0 / 255 intensities, or colour-mapped pixels as R,G,B.
std::vector<uint8_t> expandToIntensities(const ImageRecord& src, int* channels) {
  const bool mapped = src.type == IMK_MAPPED;
  *channels = mapped ? 3 : 1;
  const size_t stride = static_cast<size_t>(src.width) * static_cast<size_t>(*channels);
  std::vector<uint8_t> out(stride * static_cast<size_t>(src.height));
  for (int y = 0; y < src.height; ++y) {
    const uint8_t* s = rowOf(src, y);
    uint8_t* d = &out[static_cast<size_t>(y) * stride];
    if (mapped) {
      const uint8_t* p = src.palette;
      for (int x = 0; x < src.width; ++x, d += 3) {
        d[0] = p[s[x]];
        d[1] = p[256 + s[x]];
        d[2] = p[512 + s[x]];
      }
    } else {
      for (int x = 0; x < src.width; ++x) d[x] = s[x] ? 255 : 0;
    }
  }
  return out;
}

}  // namespace

void resizedSize(int width, int height, int boxWidth, int boxHeight, bool keepRatio, int* outWidth,
                 int* outHeight) {
  const int64_t w = std::max(width, 1), h = std::max(height, 1);
  int64_t ow, oh;
  if (boxWidth <= 0 && boxHeight <= 0) {
    ow = w, oh = h;
  } else if (boxWidth <= 0 ||
             (keepRatio && boxHeight > 0 &&
              static_cast<int64_t>(boxWidth) * h > static_cast<int64_t>(boxHeight) * w)) {
    oh = boxHeight, ow = mulDivRound(w, boxHeight, h);  // the height decides
  } else if (boxHeight <= 0 || keepRatio) {
    ow = boxWidth, oh = mulDivRound(h, boxWidth, w);  // the width decides
  } else {
    ow = boxWidth, oh = boxHeight;
  }
  *outWidth = clampSide(ow);
  *outHeight = clampSide(oh);
}

int resizePicture(ImageRecord* src, ImageRecord* dst, int width, int height, ResampleType type,
                  bool keepRatio) {
  int ow, oh;
  resizedSize(src->width, src->height, width, height, keepRatio, &ow, &oh);
  if (ow == src->width && oh == src->height) return duplicate(src, dst);

  // Averaging has no meaning for palette indices or two levels: those become
  // true colour and 256-level grey when filtered.
  const bool expand =
      type == kResampleLinear && (src->type == IMK_BINARY || src->type == IMK_MAPPED);
  const uint16_t resultType =
      !expand ? src->type : static_cast<uint16_t>(src->type == IMK_MAPPED ? IMK_RGB : IMK_GREY);
  ImageRecord result;
  if (!newResult(*src, result, resultType, ow, oh)) return 1;
  try {
    if (type != kResampleLinear) {
      copyPalette(*src, result);
      resizeQuick(*src, result);
    } else if (expand) {
      result.colorCount = resultType == IMK_GREY ? 256 : 0;  // keeps the fresh 256-level ramp
      int channels;
      const std::vector<uint8_t> expanded = expandToIntensities(*src, &channels);
      const Plane plane{expanded.data(),
                        static_cast<size_t>(src->width) * static_cast<size_t>(channels), src->width,
                        src->height, channels};
      resampleLinear(plane, result);
    } else {
      copyPalette(*src, result);
      const Plane plane{src->pixels, static_cast<size_t>(src->bytesPerLine), src->width,
                        src->height, src->bytesPerPixel};
      resampleLinear(plane, result);
    }
  } catch (const std::bad_alloc&) {  // scratch rows or weight tables
    imkFree(&result);
    return 1;
  }
  return deliver(src, dst, result);
}

}  // namespace process
