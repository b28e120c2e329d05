// Depth conversion and dithering.
//
// Every routine walks rows from the top and each row from the left. The
// per-pixel work is a table look-up or a luminance multiply: the source is
// first turned into one row of intensities, which a second pass over the
// same (cache-resident) row turns into output pixels.
#include "process/convert.h"

#include <cfenv>
#include <cstring>
#include <vector>

#include "process/colour_reduce.h"
#include "process/operation.h"

namespace process {

const uint8_t kDitherMatrix[8][8] = {
    {0, 38, 9, 47, 2, 40, 11, 50},  {25, 12, 35, 22, 27, 15, 37, 24},
    {6, 44, 3, 41, 8, 47, 5, 43},   {31, 19, 28, 15, 34, 21, 31, 18},
    {1, 39, 11, 49, 0, 39, 10, 48}, {27, 14, 36, 23, 26, 13, 35, 23},
    {7, 46, 4, 43, 7, 45, 3, 42},   {33, 20, 30, 17, 32, 19, 29, 16},
};

namespace {

// Clustered dot growing from the centre of a 6x6 cell (halftone 90 degrees).
const uint8_t kHalftone90[6][6] = {
    {30, 19, 13, 20, 31, 35}, {18, 8, 5, 9, 21, 29},    {12, 4, 1, 2, 10, 28},
    {17, 7, 3, 6, 14, 27},    {26, 16, 11, 15, 22, 32}, {34, 25, 24, 23, 33, 36},
};

// Two dots on a diagonal of a 6x6 cell (halftone 45 degrees).
const uint8_t kHalftone45[6][6] = {
    {15, 9, 17, 32, 22, 30},  {7, 1, 3, 19, 35, 23}, {13, 5, 11, 27, 26, 33},
    {31, 21, 29, 16, 10, 18}, {20, 36, 24, 8, 2, 4}, {28, 25, 34, 14, 6, 12},
};

// The 16x16 Bayer index matrix, grown from [[0, 2], [3, 1]] by
// B2n = [[4Bn, 4Bn + 2], [4Bn + 3, 4Bn + 1]]; at 16x16 it holds 0..255.
struct Bayer16 {
  uint8_t m[16][16];
  Bayer16() {
    int size = 1;
    m[0][0] = 0;
    while (size < 16) {
      for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
          const int v = 4 * m[y][x];
          m[y + size][x + size] = static_cast<uint8_t>(v + 1);
          m[y][x + size] = static_cast<uint8_t>(v + 2);
          m[y + size][x] = static_cast<uint8_t>(v + 3);
          m[y][x] = static_cast<uint8_t>(v);
        }
      size *= 2;
    }
  }
};

// Number of grey levels of a grey picture; a count outside 1..256 is taken
// as 256.
int greyCount(const ImageRecord& p) {
  return p.colorCount >= 1 && p.colorCount <= 256 ? p.colorCount : 256;
}

// table[i] = ramp(count -> m)[i] for all 256 byte values; a pixel above the
// top level counts as the top level. With one level everything is 0.
void rampTable(uint8_t* table, int count, int m) {
  levelRamp(table, count, m);
  for (int i = count; i < 256; ++i) table[i] = table[count - 1];
}

// Luminance of each palette entry; a mapped picture without palette is read
// as grey.
void paletteLuminance(const ImageRecord& p, uint8_t* table) {
  for (int i = 0; i < 256; ++i)
    table[i] = p.palette ? luminance(p.palette[i], p.palette[256 + i], p.palette[512 + i])
                         : static_cast<uint8_t>(i);
}

// Starts a result of the given type like the source (same size, allocation
// attribute, carried attribute); the colour count is the library's default
// until the caller sets it. False when memory is short (result all zero).
bool startResult(const ImageRecord& src, ImageRecord& result, uint16_t type) {
  std::memset(&result, 0, sizeof result);
  if (!imkAllock(&result, type, src.bitsPerComponent, src.width, src.height)) {
    std::memset(&result, 0, sizeof result);
    return false;
  }
  result.attribute = src.attribute;
  return true;
}

// One row of true-colour pixels to intensities, red, green and blue at the
// given byte offsets and `Step` bytes apart.
template <int R, int G, int B, int Step>
void trueColourRow(const uint8_t* in, int width, uint8_t* out) {
  for (int x = 0; x < width; ++x, in += Step) out[x] = luminance(in[R], in[G], in[B]);
}

void trueColourRowAnyStep(const uint8_t* in, int width, int step, ChannelOffsets o, uint8_t* out) {
  for (int x = 0; x < width; ++x, in += step) out[x] = luminance(in[o.r], in[o.g], in[o.b]);
}

// Turns rows of any picture into intensities 0..255. `fixedRgb` reads a
// true-colour source as R,G,B three bytes apart whatever its layout (the
// dithered paths do that); otherwise the layout decides.
class IntensityRows {
 public:
  IntensityRows(const ImageRecord& src, bool fixedRgb) : src_(src), fixedRgb_(fixedRgb) {
    if (src.type == 1) {
      table_[0] = 0;
      for (int i = 1; i < 256; ++i) table_[i] = 255;
    } else if (src.type == 2) {
      rampTable(table_, greyCount(src), 256);
    } else if (src.type == 4) {
      paletteLuminance(src, table_);
    }
  }
  void row(int y, uint8_t* out) const {
    const uint8_t* in = rowOf(src_, y);
    const int w = src_.width;
    if (!isTrueColour(src_.type)) {
      for (int x = 0; x < w; ++x) out[x] = table_[in[x]];
      return;
    }
    if (fixedRgb_) return trueColourRow<0, 1, 2, 3>(in, w, out);
    switch (src_.type) {
      case 256:
        return trueColourRow<0, 1, 2, 3>(in, w, out);
      case 1024:
        return trueColourRow<2, 1, 0, 3>(in, w, out);
      case 512:
        if (src_.bytesPerPixel == 4) return trueColourRow<0, 1, 2, 4>(in, w, out);
        break;
      case 2048:
        if (src_.bytesPerPixel == 4) return trueColourRow<3, 2, 1, 4>(in, w, out);
        break;
      default:
        break;
    }
    trueColourRowAnyStep(in, w, src_.bytesPerPixel, channelOffsets(src_.type), out);
  }

 private:
  const ImageRecord& src_;
  bool fixedRgb_;
  uint8_t table_[256];
};

// Error diffusion to binary. The error goes 3/8 right, 3/8 straight down and
// 2/8 down-right; nothing flows left, every row runs left to right, and both
// divisions truncate toward zero, negative errors included. The value is
// never clamped.
//
// The sums are the same as with two error rows (the current one taking the
// 3/8 to the right as it goes): the right-hand share travels in a register
// and one row buffer suffices, because below[x] is read for this row before
// it is rewritten with what the next row receives there (3/8 from x plus
// 2/8 from x - 1).
void diffuseToBinary(const IntensityRows& rows, ImageRecord& result) {
  const int w = result.width;
  std::vector<int32_t> below(static_cast<size_t>(w), 0);
  std::vector<uint8_t> g(static_cast<size_t>(w));
  for (int y = 0; y < result.height; ++y) {
    rows.row(y, g.data());
    uint8_t* out = rowOf(result, y);
    int32_t* err = below.data();
    int32_t right = 0;      // 3/8 from the pixel to the left
    int32_t downRight = 0;  // 2/8 from the pixel to the left, for the row below
    for (int x = 0; x < w; ++x) {
      const int32_t v = g[x] + err[x] + right;
      const bool white = v > 127;
      out[x] = white;
      const int32_t e = white ? v - 255 : v;
      const int32_t a = (3 * e) / 8;
      err[x] = a + downRight;
      downRight = e / 4;
      right = a;
    }
  }
}

// The smallest intensity that `white` accepts (256 when none does); every
// threshold rule here is monotonic in the intensity.
template <typename Rule>
int16_t lowestWhite(Rule white) {
  for (int g = 0; g < 256; ++g)
    if (white(g)) return static_cast<int16_t>(g);
  return 256;
}

// Threshold rows for the position-dependent binary methods: a pixel at
// (x, y) is white when its intensity reaches thresholds[y % period][x].
struct ThresholdRows {
  int period = 1;
  std::vector<int16_t> values;  // period rows of `width` thresholds
  const int16_t* row(int y, int width) const {
    return &values[static_cast<size_t>(y % period) * static_cast<size_t>(width)];
  }
};

ThresholdRows binaryThresholds(int method, int width) {
  ThresholdRows t;
  int16_t cell[16][16];
  if (method == kMethodThreshold) {
    t.period = 1;
    cell[0][0] = lowestWhite([](int g) { return g > 126; });
  } else if (method == kMethodOrdered) {
    static const Bayer16 bayer;
    t.period = 16;
    for (int y = 0; y < 16; ++y)
      for (int x = 0; x < 16; ++x) {
        const int b = bayer.m[y][x];
        cell[y][x] = lowestWhite([b](int g) { return g >= b; });
      }
  } else {
    const auto& h = method == kMethodHalftone90 ? kHalftone90 : kHalftone45;
    t.period = 6;
    for (int y = 0; y < 6; ++y)
      for (int x = 0; x < 6; ++x) {
        const int level = h[y][x];
        cell[y][x] = lowestWhite([level](int g) { return (g * 36) / 255 >= level; });
      }
  }
  t.values.resize(static_cast<size_t>(t.period) * static_cast<size_t>(width));
  for (int y = 0; y < t.period; ++y)
    for (int x = 0; x < width; ++x)
      t.values[static_cast<size_t>(y) * width + x] = cell[y][x % t.period];
  return t;
}

// Plain level tables for the grey conversion: level of each source byte.
void plainGreyTable(const ImageRecord& src, int levels, uint8_t* table) {
  if (src.type == 1) {
    table[0] = 0;
    for (int i = 1; i < 256; ++i) table[i] = static_cast<uint8_t>(levels - 1);
  } else if (src.type == 2) {
    // Level numbers map directly, without passing through intensities.
    rampTable(table, greyCount(src), levels);
  } else {
    uint8_t down[256];
    levelRamp(down, 256, levels);
    uint8_t lum[256];
    paletteLuminance(src, lum);
    for (int i = 0; i < 256; ++i) table[i] = down[lum[i]];
  }
}

}  // namespace

void buildDitherTable(DitherTable* table, int levels) {
  for (int row = 0; row < 8; ++row)
    for (int col = 0; col < 8; ++col)
      for (int k = 0; k < 64; ++k) table->cells[row][col][k] = kDitherMatrix[row][col] < k ? 1 : 0;

  // Extended precision with every operation rounded toward zero, not just
  // the conversions to integer: this is what puts intensities such as 85
  // with 8 levels exactly on frac 21 (round-to-nearest gives 20). The
  // volatiles keep the arithmetic between the two mode switches.
  const int oldMode = std::fegetround();
  std::fesetround(FE_TOWARDZERO);
  volatile long double step = 255.0L / static_cast<long double>(levels - 1);
  for (int v = 0; v < 256; ++v) {
    volatile long double q = static_cast<long double>(v) / step;
    int lo = static_cast<int>(static_cast<long double>(q));
    if (lo >= levels - 1) lo = levels - 2;
    volatile long double rest = static_cast<long double>(v) - step * static_cast<long double>(lo);
    volatile long double unit = step / 63.0L;
    volatile long double f = rest / unit;
    int frac = static_cast<int>(static_cast<long double>(f));
    if (frac < 0) frac = 0;
    if (frac > 63) frac = 63;
    table->entry[v] = {static_cast<uint8_t>(frac), static_cast<uint8_t>(lo),
                       static_cast<uint8_t>(lo + 1)};
  }
  std::fesetround(oldMode);
}

int convertToBinary(ImageRecord* src, ImageRecord* dst, int method) {
  if (!src || !src->pixels) return 0;
  if (src->type == 1) return duplicate(src, dst);
  ImageRecord result;
  if (!startResult(*src, result, 1)) return 1;
  const IntensityRows rows(*src, false);
  const int w = src->width;
  if (method == kMethodErrorDiffusion) {
    diffuseToBinary(rows, result);
  } else {
    const ThresholdRows thresholds = binaryThresholds(method, w);
    std::vector<uint8_t> g(static_cast<size_t>(w));
    for (int y = 0; y < src->height; ++y) {
      rows.row(y, g.data());
      const int16_t* t = thresholds.row(y, w);
      uint8_t* out = rowOf(result, y);
      for (int x = 0; x < w; ++x) out[x] = g[x] >= t[x] ? 1 : 0;
    }
  }
  return deliver(src, dst, result);
}

int convertToGrey(ImageRecord* src, ImageRecord* dst, int levels, int method) {
  if (!src || !src->pixels) return 0;
  if (levels < 2) levels = 2;
  if (levels > 256) levels = 256;
  ImageRecord result;
  if (!startResult(*src, result, 2)) return 1;
  result.colorCount = levels;
  uint8_t shade[256];
  levelRamp(shade, levels, 256);
  for (int i = 0; i < 256; ++i)
    result.palette[i] = result.palette[256 + i] = result.palette[512 + i] =
        i < levels ? shade[i] : 0;

  const int w = src->width;
  const bool dither = method == kMethodOrdered && levels != 256 && src->type != 1;
  if (!dither) {
    if (!isTrueColour(src->type)) {
      uint8_t table[256];
      plainGreyTable(*src, levels, table);
      for (int y = 0; y < src->height; ++y) {
        const uint8_t* in = rowOf(*src, y);
        uint8_t* out = rowOf(result, y);
        for (int x = 0; x < w; ++x) out[x] = table[in[x]];
      }
    } else {
      uint8_t down[256];
      levelRamp(down, 256, levels);
      const IntensityRows rows(*src, false);
      for (int y = 0; y < src->height; ++y) {
        uint8_t* out = rowOf(result, y);
        rows.row(y, out);
        for (int x = 0; x < w; ++x) out[x] = down[out[x]];
      }
    }
    return deliver(src, dst, result);
  }

  // Dithered: for each of the 64 matrix positions, the level of every
  // intensity, so that a pixel costs one look-up.
  std::vector<DitherTable> table(1);
  buildDitherTable(table.data(), levels);
  std::vector<uint8_t> level(64 * 256);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x)
      for (int g = 0; g < 256; ++g)
        level[(y * 8 + x) * 256 + g] = static_cast<uint8_t>(ditherLevel(table[0], g, x, y));
  const IntensityRows rows(*src, true);
  for (int y = 0; y < src->height; ++y) {
    uint8_t* out = rowOf(result, y);
    rows.row(y, out);
    const uint8_t* byColumn[8];
    for (int i = 0; i < 8; ++i) byColumn[i] = &level[((y & 7) * 8 + i) * 256];
    for (int x = 0; x < w; ++x) out[x] = byColumn[x & 7][out[x]];
  }
  return deliver(src, dst, result);
}

int convertToTrueColour(ImageRecord* src, ImageRecord* dst) {
  if (!src || !src->pixels) return 0;
  if (isTrueColour(src->type)) return duplicate(src, dst);
  ImageRecord result;
  if (!startResult(*src, result, 256)) return 1;
  uint8_t red[256], green[256], blue[256];
  if (src->type == 4 && src->palette) {
    std::memcpy(red, src->palette, 256);
    std::memcpy(green, src->palette + 256, 256);
    std::memcpy(blue, src->palette + 512, 256);
  } else {
    if (src->type == 1)
      rampTable(red, 2, 256);
    else if (src->type == 2)
      rampTable(red, greyCount(*src), 256);
    else
      for (int i = 0; i < 256; ++i) red[i] = static_cast<uint8_t>(i);
    std::memcpy(green, red, 256);
    std::memcpy(blue, red, 256);
  }
  const int w = src->width;
  const int step = result.bytesPerPixel;
  for (int y = 0; y < src->height; ++y) {
    const uint8_t* in = rowOf(*src, y);
    uint8_t* out = rowOf(result, y);
    for (int x = 0; x < w; ++x, out += step) {
      const uint8_t v = in[x];
      out[0] = red[v];
      out[1] = green[v];
      out[2] = blue[v];
    }
  }
  return deliver(src, dst, result);
}

int convertPicture(ImageRecord* src, ImageRecord* dst, int conversionCode, int methodCode) {
  static const int kColours[] = {8, 16, 32, 64, 128, 216, 256};
  if (conversionCode == kToBinary) return convertToBinary(src, dst, methodCode);
  if (conversionCode >= kToGrey4 && conversionCode <= kToGrey128)
    return convertToGrey(src, dst, 4 << (conversionCode - kToGrey4), methodCode);
  if (conversionCode == kToGrey256) return convertToGrey(src, dst, 256, methodCode);
  if (conversionCode >= kToColours8 && conversionCode <= kToColours256)
    return reduceColours(src, dst, kColours[conversionCode - kToColours8], methodCode);
  if (conversionCode == kToTrueColour) return convertToTrueColour(src, dst);
  return 0;
}

}  // namespace process
