// Tone adjustments: look-up tables built once per call and applied byte by
// byte, and the channel swaps.
#include "process/tone.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "process/operation.h"

namespace process {

namespace {

// Rounds toward zero and clamps to a byte; NaN (never produced by the dialog
// ranges) becomes 0 rather than undefined behaviour.
template <typename Float>
uint8_t truncToByte(Float v) {
  if (!(v > 0)) return 0;
  if (v >= 255) return 255;
  return static_cast<uint8_t>(v);
}

uint8_t clampToByte(int v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

void copyPalette(const ImageRecord& src, ImageRecord& result) {
  if (src.palette && result.palette) std::memcpy(result.palette, src.palette, 768);
}

// Copies every row buffer (as much of it as both strides hold).
void copyRows(const ImageRecord& src, ImageRecord& result) {
  const size_t n = static_cast<size_t>(std::min(src.bytesPerLine, result.bytesPerLine));
  for (int y = 0; y < src.height; ++y) std::memcpy(rowOf(result, y), rowOf(src, y), n);
}

int paletteEntries(const ImageRecord& pic) { return std::clamp(pic.colorCount, 0, 256); }

// Passes n bytes through the table, eight at a time.
void mapBytes(const uint8_t* s, uint8_t* d, size_t n, const uint8_t* t) {
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    d[i] = t[s[i]];
    d[i + 1] = t[s[i + 1]];
    d[i + 2] = t[s[i + 2]];
    d[i + 3] = t[s[i + 3]];
    d[i + 4] = t[s[i + 4]];
    d[i + 5] = t[s[i + 5]];
    d[i + 6] = t[s[i + 6]];
    d[i + 7] = t[s[i + 7]];
  }
  for (; i < n; ++i) d[i] = t[s[i]];
}

// Three tables for bytes 0..2 of a 4-byte pixel; the fourth byte is copied.
void mapQuads(const uint8_t* s, uint8_t* d, int width, const uint8_t* t0, const uint8_t* t1,
              const uint8_t* t2) {
  for (int x = 0; x < width; ++x, s += 4, d += 4) {
    d[0] = t0[s[0]];
    d[1] = t1[s[1]];
    d[2] = t2[s[2]];
    d[3] = s[3];
  }
}

// Bytes 0, 1, 2 of each pixel go through tables 0, 1, 2.
void mapTriples(const uint8_t* s, uint8_t* d, int width, const uint8_t* t0, const uint8_t* t1,
                const uint8_t* t2) {
  for (int x = 0; x < width; ++x, s += 3, d += 3) {
    d[0] = t0[s[0]];
    d[1] = t1[s[1]];
    d[2] = t2[s[2]];
  }
}

}  // namespace

// ---------------------------------------------------------------------------
// Tables

void negativeTable(uint8_t table[256]) {
  for (int i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(255 - i);
}

void logarithmicTable(uint8_t table[256]) {
  const double top = std::log(256.0);
  for (int i = 0; i < 256; ++i) table[i] = truncToByte(255.0 * std::log(1.0 + i) / top);
}

void solarizeTable(uint8_t table[256], int threshold) {
  for (int i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(i <= threshold ? i : 255 - i);
}

void posterizeTable(uint8_t table[256], int levels) {
  if (levels <= 1) {  // one level: everything black
    std::memset(table, 0, 256);
    return;
  }
  if (levels > 256) levels = 256;
  const int step = 256 / levels;
  const int inc = 255 / (levels - 1);
  // Blocks of `step` entries valued k * inc; the block whose value would come
  // within one increment of the top runs to 255 and is forced to white, so
  // five levels give 0, 63, 126, 189 and 255 (not 252).
  for (int s = 0, k = 0; s < 256; s += step, ++k) {
    if (s + inc < 256) {
      const int end = std::min(s + step, 256);
      std::memset(table + s, k * inc, static_cast<size_t>(end - s));
    } else {
      std::memset(table + s, 255, static_cast<size_t>(256 - s));
    }
  }
}

void brightnessTable(uint8_t table[256], int offset) {
  for (int i = 0; i < 256; ++i) table[i] = clampToByte(i + offset);
}

void contrastTable(uint8_t table[256], int contrast) {
  const long double k = contrast;
  for (int i = 0; i < 256; ++i) {
    const long double v = contrast > 0 ? 255.0L * (i - k) / (255.0L - 2.0L * k)
                                       : (255.0L + 2.0L * k) * i / 255.0L - k;
    // Negative values truncate toward zero and then clamp to 0 all the same.
    table[i] = truncToByte(v);
  }
}

void gammaTable(uint8_t table[256], double gamma) {
  const double exponent = 1.0 / gamma;
  for (int i = 0; i < 256; ++i) table[i] = truncToByte(255.0 * std::pow(i / 255.0, exponent) + 0.5);
}

void levelSpaceTable(const uint8_t table[256], int levels, uint8_t out[256]) {
  if (levels >= 256) {
    std::memcpy(out, table, 256);
    return;
  }
  std::memset(out, 0, 256);
  if (levels <= 1) return;
  const int top = levels - 1;
  for (int i = 0; i < levels; ++i) out[i] = static_cast<uint8_t>(table[i * 255 / top] * top / 255);
}

// ---------------------------------------------------------------------------
// Applying tables

void applyToneTable(const ImageRecord& src, ImageRecord& result, const uint8_t table[256]) {
  copyPalette(src, result);
  if (src.type == IMK_MAPPED) {
    // Only the palette changes; the cost does not grow with the picture.
    copyRows(src, result);
    if (result.palette) {
      uint8_t* p = result.palette;
      for (int i = 0, n = paletteEntries(src); i < n; ++i) {
        p[i] = table[p[i]];
        p[256 + i] = table[p[256 + i]];
        p[512 + i] = table[p[512 + i]];
      }
    }
    return;
  }
  // Binary pixels are two levels and grey pixels level numbers: take each
  // level to its intensity, through the table and back.
  uint8_t levelTable[256];
  const uint8_t* t = table;
  if (src.type == IMK_BINARY) {
    levelSpaceTable(table, 2, levelTable);
    t = levelTable;
  } else if (src.type == IMK_GREY && src.colorCount != 256) {
    levelSpaceTable(table, src.colorCount, levelTable);
    t = levelTable;
  }
  const int bpp = src.bytesPerPixel;
  const size_t rowBytes = static_cast<size_t>(src.width) * static_cast<size_t>(bpp);
  for (int y = 0; y < src.height; ++y) {
    if (bpp == 4)
      mapQuads(rowOf(src, y), rowOf(result, y), src.width, t, t, t);
    else
      mapBytes(rowOf(src, y), rowOf(result, y), rowBytes, t);
  }
}

void applyChannelTables(const ImageRecord& src, ImageRecord& result,
                        const uint8_t tables[3 * 256]) {
  copyPalette(src, result);
  const int bpp = src.bytesPerPixel;
  const uint8_t* t0 = tables;
  const uint8_t* t1 = tables + 256;
  const uint8_t* t2 = tables + 512;
  const size_t rowBytes = static_cast<size_t>(src.width) * static_cast<size_t>(bpp);
  for (int y = 0; y < src.height; ++y) {
    const uint8_t* s = rowOf(src, y);
    uint8_t* d = rowOf(result, y);
    switch (bpp) {
      case 4:
        mapQuads(s, d, src.width, t0, t1, t2);
        break;
      case 3:
        mapTriples(s, d, src.width, t0, t1, t2);
        break;
      case 1:
        mapBytes(s, d, rowBytes, t0);
        break;
      default:
        for (size_t i = 0; i < rowBytes; ++i) {
          const size_t ch = i % static_cast<size_t>(bpp);
          d[i] = ch < 3 ? tables[ch * 256 + s[i]] : s[i];
        }
    }
  }
  if (result.type & 7) result.colorCount = 256;
}

void channelHistogram(const ImageRecord& pic, uint32_t counts[4 * 256]) {
  std::memset(counts, 0, 4 * 256 * sizeof(uint32_t));
  const int step = pic.bytesPerPixel;
  const int bpp = std::min(step, 4);
  // Neighbouring pixels often share a value; counting alternate pixels into
  // a second set of counters keeps increments of one counter apart.
  uint32_t second[4 * 256] = {};
  for (int y = 0; y < pic.height; ++y) {
    const uint8_t* s = rowOf(pic, y);
    int x = 0;
    if (step == 1) {
      for (; x + 2 <= pic.width; x += 2) {
        ++counts[s[x]];
        ++second[s[x + 1]];
      }
      if (x < pic.width) ++counts[s[x]];
      continue;
    }
    if (step == 3 || step == 4) {
      for (; x + 2 <= pic.width; x += 2, s += 2 * step) {
        ++counts[s[0]];
        ++counts[256 + s[1]];
        ++counts[512 + s[2]];
        ++second[s[step]];
        ++second[256 + s[step + 1]];
        ++second[512 + s[step + 2]];
        if (step == 4) {
          ++counts[768 + s[3]];
          ++second[768 + s[7]];
        }
      }
    }
    for (; x < pic.width; ++x, s += step)
      for (int ch = 0; ch < bpp; ++ch) ++counts[ch * 256 + s[ch]];
  }
  for (int i = 0; i < 4 * 256; ++i) counts[i] += second[i];
}

int toneChannels(const ImageRecord& pic) {
  return pic.bytesPerPixel == 4 ? 3 : std::min<int>(pic.bytesPerPixel, 3);
}

namespace {
void identityTables(uint8_t tables[3 * 256]) {
  for (int ch = 0; ch < 3; ++ch)
    for (int i = 0; i < 256; ++i) tables[ch * 256 + i] = static_cast<uint8_t>(i);
}
}  // namespace

void normalizeTables(const uint32_t counts[4 * 256], int channels, uint8_t tables[3 * 256]) {
  identityTables(tables);
  for (int ch = 0; ch < std::min(channels, 3); ++ch) {
    const uint32_t* c = counts + ch * 256;
    int lo = 0, hi = 255;
    while (lo < 256 && c[lo] == 0) ++lo;
    while (hi >= 0 && c[hi] == 0) --hi;
    // An empty or single-valued channel has nothing to stretch: it is kept.
    if (lo >= hi) continue;
    uint8_t* t = tables + ch * 256;
    for (int v = 0; v < 256; ++v)
      t[v] = v < lo ? 0 : v > hi ? 255 : static_cast<uint8_t>((v - lo) * 255 / (hi - lo));
  }
}

void equalizeTables(const uint32_t counts[4 * 256], int channels, uint8_t tables[3 * 256]) {
  identityTables(tables);
  for (int ch = 0; ch < std::min(channels, 3); ++ch) {
    const uint32_t* c = counts + ch * 256;
    uint64_t cdf[256];
    uint64_t sum = 0;
    for (int v = 0; v < 256; ++v) cdf[v] = sum += c[v];
    // The base is the count of value 0 itself, not the first occupied bin: a
    // picture without black keeps its lowest value above 0.
    const double base = static_cast<double>(cdf[0]);
    const double span = std::max(static_cast<double>(cdf[255]) - base, 1.0);
    uint8_t* t = tables + ch * 256;
    for (int v = 0; v < 256; ++v)
      t[v] = truncToByte(255.0 * (static_cast<double>(cdf[v]) - base) / span);
  }
}

void balanceTables(int red, int green, int blue, int channels, uint8_t tables[3 * 256]) {
  identityTables(tables);
  const int d[3] = {red, green, blue};
  for (int ch = 0; ch < std::min(channels, 3); ++ch)
    for (int i = 0; i < 256; ++i) tables[ch * 256 + i] = clampToByte(i + d[ch]);
}

int mapPicture(ImageRecord* src, ImageRecord* dst, const uint8_t table[256]) {
  ImageRecord result;
  if (!newResult(*src, result)) return 1;
  applyToneTable(*src, result, table);
  return deliver(src, dst, result);
}

int mapChannels(ImageRecord* src, ImageRecord* dst, const uint8_t tables[3 * 256]) {
  ImageRecord result;
  if (!newResult(*src, result)) return 1;
  applyChannelTables(*src, result, tables);
  return deliver(src, dst, result);
}

// ---------------------------------------------------------------------------
// Menu operations

int negatePicture(ImageRecord* src, ImageRecord* dst) {
  uint8_t t[256];
  negativeTable(t);
  return mapPicture(src, dst, t);
}

int logarithmicPicture(ImageRecord* src, ImageRecord* dst) {
  uint8_t t[256];
  logarithmicTable(t);
  return mapPicture(src, dst, t);
}

int solarizePicture(ImageRecord* src, ImageRecord* dst, int threshold) {
  uint8_t t[256];
  solarizeTable(t, threshold);
  return mapPicture(src, dst, t);
}

int posterizePicture(ImageRecord* src, ImageRecord* dst, int levels) {
  uint8_t t[256];
  posterizeTable(t, levels);
  return mapPicture(src, dst, t);
}

int brightnessPicture(ImageRecord* src, ImageRecord* dst, int offset) {
  uint8_t t[256];
  brightnessTable(t, offset);
  return mapPicture(src, dst, t);
}

int contrastPicture(ImageRecord* src, ImageRecord* dst, int contrast) {
  uint8_t t[256];
  contrastTable(t, contrast);
  return mapPicture(src, dst, t);
}

int gammaPicture(ImageRecord* src, ImageRecord* dst, double gamma) {
  uint8_t t[256];
  gammaTable(t, gamma);
  return mapPicture(src, dst, t);
}

int normalizePicture(ImageRecord* src, ImageRecord* dst) {
  uint32_t counts[4 * 256];
  channelHistogram(*src, counts);
  uint8_t tables[3 * 256];
  normalizeTables(counts, toneChannels(*src), tables);
  return mapChannels(src, dst, tables);
}

int equalizePicture(ImageRecord* src, ImageRecord* dst) {
  uint32_t counts[4 * 256];
  channelHistogram(*src, counts);
  uint8_t tables[3 * 256];
  equalizeTables(counts, toneChannels(*src), tables);
  return mapChannels(src, dst, tables);
}

int balancePicture(ImageRecord* src, ImageRecord* dst, int red, int green, int blue) {
  uint8_t tables[3 * 256];
  balanceTables(red, green, blue, toneChannels(*src), tables);
  return mapChannels(src, dst, tables);
}

// ---------------------------------------------------------------------------
// Channel swap

namespace {

// Source byte for result bytes 0, 1, 2 in each mode.
constexpr int kSwapOrder[5][3] = {{0, 2, 1}, {2, 1, 0}, {1, 2, 0}, {1, 0, 2}, {2, 0, 1}};

template <int kStep>
void swapRow(const uint8_t* s, uint8_t* d, int width, int a, int b, int c) {
  for (int x = 0; x < width; ++x, s += kStep, d += kStep) {
    const uint8_t s0 = s[a], s1 = s[b], s2 = s[c];
    d[0] = s0;
    d[1] = s1;
    d[2] = s2;
  }
}

}  // namespace

int swapChannels(ImageRecord* src, ImageRecord* dst, int mode) {
  ImageRecord result;
  if (!newResult(*src, result)) return 1;
  copyPalette(*src, result);
  const bool known = mode >= 0 && mode <= 4;
  const int bpp = src->bytesPerPixel;
  if (src->type == IMK_MAPPED) {
    copyRows(*src, result);
    if (known && result.palette) {
      const int* o = kSwapOrder[mode];
      uint8_t* p = result.palette;
      for (int i = 0, n = paletteEntries(*src); i < n; ++i) {
        const uint8_t e[3] = {p[i], p[256 + i], p[512 + i]};
        p[i] = e[o[0]];
        p[256 + i] = e[o[1]];
        p[512 + i] = e[o[2]];
      }
    }
  } else if (bpp > 2) {
    // Only bytes 0..2 are written, whatever the layout; a fourth byte stays
    // as the fresh picture has it (0), and an unknown mode writes nothing.
    if (known) {
      const int* o = kSwapOrder[mode];
      for (int y = 0; y < src->height; ++y) {
        const uint8_t* s = rowOf(*src, y);
        uint8_t* d = rowOf(result, y);
        if (bpp == 3)
          swapRow<3>(s, d, src->width, o[0], o[1], o[2]);
        else if (bpp == 4)
          swapRow<4>(s, d, src->width, o[0], o[1], o[2]);
        else
          for (int x = 0; x < src->width; ++x) {
            const uint8_t* sp = s + static_cast<size_t>(x) * bpp;
            uint8_t* dp = d + static_cast<size_t>(x) * bpp;
            const uint8_t s0 = sp[o[0]], s1 = sp[o[1]], s2 = sp[o[2]];
            dp[0] = s0, dp[1] = s1, dp[2] = s2;
          }
      }
    }
  } else {
    copyRows(*src, result);  // binary and grey have no channels to swap
  }
  return deliver(src, dst, result);
}

}  // namespace process
