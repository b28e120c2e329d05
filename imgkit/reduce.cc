// Area-averaging reduction for previews: every output pixel is the exact
// area-weighted mean of the source pixels it covers (integer weights, no
// rounding drift), so thumbnails are smooth rather than sampled.
#include <algorithm>
#include <cmath>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

void reducedSize(int32_t width, int32_t height, int32_t fitWidth, int32_t fitHeight,
                 int32_t* outWidth, int32_t* outHeight) {
  if (width <= fitWidth && height <= fitHeight) {
    *outWidth = width;
    *outHeight = height;
    return;
  }
  const double scale = std::min(static_cast<double>(fitWidth) / width,
                                static_cast<double>(fitHeight) / height);
  *outWidth = std::clamp(static_cast<int32_t>(std::lround(width * scale)), 1, std::max(1, fitWidth));
  *outHeight =
      std::clamp(static_cast<int32_t>(std::lround(height * scale)), 1, std::max(1, fitHeight));
}

namespace {

// Source index i of `in` covers [i*out, (i+1)*out) in units where each output
// cell is `in` wide; it overlaps at most two output cells since out <= in.
struct Span {
  int32_t first;    // output cell of the span's start
  uint32_t weight;  // part that falls in `first`; the rest (out - weight) in first+1
};

std::vector<Span> spans(int32_t in, int32_t out) {
  std::vector<Span> s(static_cast<size_t>(in));
  for (int64_t i = 0; i < in; ++i) {
    const int64_t start = i * out;
    const int64_t cell = start / in;
    const int64_t boundary = (cell + 1) * in;
    const int64_t end = start + out;
    s[static_cast<size_t>(i)] = {static_cast<int32_t>(cell),
                                 static_cast<uint32_t>(std::min(end, boundary) - start)};
  }
  return s;
}

}  // namespace

bool reducePicture(Picture& pic, int32_t fitWidth, int32_t fitHeight) {
  const ImageRecord& src = pic.rec();
  if (pic.empty() || fitWidth <= 0 || fitHeight <= 0) return true;
  int32_t ow, oh;
  reducedSize(src.width, src.height, fitWidth, fitHeight, &ow, &oh);
  if (ow == src.width && oh == src.height) return true;
  // Never enlarge one axis while reducing the other.
  ow = std::min(ow, src.width);
  oh = std::min(oh, src.height);

  const bool grey = src.type == IMK_BINARY || src.type == IMK_GREY;
  const bool alpha = src.type == IMK_RGBX;
  const int ch = grey ? 1 : alpha ? 4 : 3;
  Picture out;
  if (!out.allocate(grey ? IMK_GREY : alpha ? IMK_RGBX : IMK_RGB, ow, oh, src.bitsPerComponent))
    return false;
  out.rec().attribute = src.attribute;
  if (grey) out.rec().colorCount = 256;

  const std::vector<Span> xs = spans(src.width, ow);
  const std::vector<Span> ys = spans(src.height, oh);
  std::vector<uint8_t> line(static_cast<size_t>(src.width) * ch);
  std::vector<uint32_t> hsum(static_cast<size_t>(ow + 1) * ch);
  // Two output rows of accumulators: the current one and the next.
  std::vector<uint64_t> acc(static_cast<size_t>(2 * (ow + 1)) * ch, 0);
  const uint64_t divisor = static_cast<uint64_t>(src.width) * static_cast<uint64_t>(src.height);
  int32_t current = 0;  // output row held in the first half of acc
  const size_t rowLen = static_cast<size_t>(ow + 1) * ch;

  auto flush = [&](int32_t y) {
    uint8_t* o = out.row(y);
    for (int32_t x = 0; x < ow * ch; ++x) o[x] = static_cast<uint8_t>((acc[x] + divisor / 2) / divisor);
    std::copy(acc.begin() + rowLen, acc.end(), acc.begin());
    std::fill(acc.begin() + rowLen, acc.end(), 0);
  };

  for (int32_t y = 0; y < src.height; ++y) {
    if (grey)
      rowToGrey(src, y, line.data());
    else if (alpha)
      rowToRgba(src, y, line.data());
    else
      rowToRgb(src, y, line.data());
    std::fill(hsum.begin(), hsum.end(), 0);
    const uint32_t full = static_cast<uint32_t>(ow);
    for (int32_t x = 0; x < src.width; ++x) {
      const Span s = xs[static_cast<size_t>(x)];
      uint32_t* h = &hsum[static_cast<size_t>(s.first) * ch];
      const uint8_t* p = &line[static_cast<size_t>(x) * ch];
      for (int c = 0; c < ch; ++c) {
        h[c] += p[c] * s.weight;
        h[ch + c] += p[c] * (full - s.weight);
      }
    }
    const Span s = ys[static_cast<size_t>(y)];
    while (current < s.first) flush(current++);
    const uint64_t wFirst = s.weight;
    const uint64_t wNext = static_cast<uint64_t>(oh) - s.weight;
    for (size_t i = 0; i < static_cast<size_t>(ow) * ch; ++i) {
      acc[i] += hsum[i] * wFirst;
      if (wNext) acc[rowLen + i] += hsum[i] * wNext;
    }
  }
  while (current < oh) flush(current++);
  pic = std::move(out);
  return true;
}

}  // namespace imk
