// Tone adjustments: look-up tables built once per call and applied byte by
// byte, and the channel swaps.
#include "process/tone.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "process/lookup.h"
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

constexpr std::array<uint8_t, 256> kIdentity = [] {
  std::array<uint8_t, 256> t{};
  for (int i = 0; i < 256; ++i) t[i] = static_cast<uint8_t>(i);
  return t;
}();

// Passes the pixel bytes through tables[k] for byte k of each pixel (period
// 1: one table for every byte). Packed pictures are one run of bytes.
void mapRows(const ImageRecord& src, ImageRecord& result, const uint8_t* const tables[],
             int period) {
  const size_t n = static_cast<size_t>(src.width) * static_cast<size_t>(src.bytesPerPixel);
  if (src.bytesPerLine == result.bytesPerLine && static_cast<size_t>(src.bytesPerLine) == n) {
    lookupBytes(src.pixels, result.pixels, n * static_cast<size_t>(src.height), tables, period);
    return;
  }
  for (int y = 0; y < src.height; ++y)
    lookupBytes(rowOf(src, y), rowOf(result, y), n, tables, period);
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
  // The fourth byte of a 4-byte pixel is not a tone: it is copied.
  const uint8_t* tables[4] = {t, t, t, kIdentity.data()};
  mapRows(src, result, tables, src.bytesPerPixel == 4 ? 4 : 1);
}

void applyChannelTables(const ImageRecord& src, ImageRecord& result,
                        const uint8_t tables[3 * 256]) {
  copyPalette(src, result);
  const int bpp = src.bytesPerPixel;
  if (bpp >= 1 && bpp <= 4) {
    const uint8_t* perByte[4] = {tables, tables + 256, tables + 512, kIdentity.data()};
    mapRows(src, result, perByte, bpp);
  } else {
    const size_t rowBytes = static_cast<size_t>(src.width) * static_cast<size_t>(bpp);
    for (int y = 0; y < src.height; ++y) {
      const uint8_t* s = rowOf(src, y);
      uint8_t* d = rowOf(result, y);
      for (size_t i = 0; i < rowBytes; ++i) {
        const size_t ch = i % static_cast<size_t>(bpp);
        d[i] = ch < 3 ? tables[ch * 256 + s[i]] : s[i];
      }
    }
  }
  if (result.type & 7) result.colorCount = 256;
}

namespace {

// Four sets of counters for the four byte positions. The sets are not 4 KiB
// apart: stores to one set and loads from the next would otherwise look alike
// to the processor's store forwarding (same address bits below 4 KiB) and
// wait for each other.
using CounterSets = uint32_t[4][4 * 256 + 16];

// Counts one run of bytes whose byte k belongs to channel k of each
// `kPeriod`-byte group. Neighbouring pixels often share a value, so four
// consecutive pixels count into four sets of counters: increments of one
// counter stay apart instead of waiting for each other.
template <int kPeriod>
void countRun(const uint8_t* s, size_t n, CounterSets& sets) {
  constexpr size_t kGroup = 4 * kPeriod;
  size_t i = 0;
  for (; i + kGroup <= n; i += kGroup)
    for (int p = 0; p < 4; ++p)
      for (int k = 0; k < kPeriod; ++k) ++sets[p][k * 256 + s[i + p * kPeriod + k]];
  for (int k = 0; i < n; ++i, k = (k + 1) % kPeriod) ++sets[0][k * 256 + s[i]];
}

// Calls run(bytes, length) over the pixel bytes: once for a packed picture,
// else once per row.
template <class Run>
void forEachRun(const ImageRecord& pic, Run&& run) {
  const size_t n = static_cast<size_t>(pic.width) * static_cast<size_t>(pic.bytesPerPixel);
  if (static_cast<size_t>(pic.bytesPerLine) == n) {
    run(pic.pixels, n * static_cast<size_t>(pic.height));
    return;
  }
  for (int y = 0; y < pic.height; ++y) run(rowOf(pic, y), n);
}

// Smallest and largest byte of each lane over blocks of kBlock bytes; the
// plain fixed-size loops vectorize.
template <int kBlock>
VIMORA_VECTOR_CLONES void rangeBlocks(const uint8_t* s, size_t blocks, uint8_t* lo, uint8_t* hi) {
  for (size_t b = 0; b < blocks; ++b, s += kBlock)
    for (int j = 0; j < kBlock; ++j) {
      lo[j] = s[j] < lo[j] ? s[j] : lo[j];
      hi[j] = s[j] > hi[j] ? s[j] : hi[j];
    }
}

template <int kPeriod>
void rangeOf(const ImageRecord& pic, uint8_t lo[4], uint8_t hi[4]) {
  constexpr int kBlock = 64 * kPeriod;  // whole groups, whole vectors
  uint8_t blockLo[kBlock], blockHi[kBlock];
  std::memset(blockLo, 255, sizeof blockLo);
  std::memset(blockHi, 0, sizeof blockHi);
  forEachRun(pic, [&](const uint8_t* s, size_t n) {
    const size_t blocks = n / kBlock;
    rangeBlocks<kBlock>(s, blocks, blockLo, blockHi);
    for (size_t i = blocks * kBlock, k = 0; i < n; ++i, k = (k + 1) % kPeriod) {
      blockLo[k] = std::min(blockLo[k], s[i]);
      blockHi[k] = std::max(blockHi[k], s[i]);
    }
  });
  for (int j = 0; j < kBlock; ++j) {
    lo[j % kPeriod] = std::min(lo[j % kPeriod], blockLo[j]);
    hi[j % kPeriod] = std::max(hi[j % kPeriod], blockHi[j]);
  }
}

}  // namespace

void channelHistogram(const ImageRecord& pic, uint32_t counts[4 * 256]) {
  CounterSets sets = {};
  const int bpp = pic.bytesPerPixel;
  forEachRun(pic, [&](const uint8_t* s, size_t n) {
    switch (bpp) {
      case 1:
        return countRun<1>(s, n, sets);
      case 3:
        return countRun<3>(s, n, sets);
      case 4:
        return countRun<4>(s, n, sets);
      default:  // only the first four bytes of a pixel are counted
        for (size_t i = 0; i < n; ++i)
          if (i % static_cast<size_t>(bpp) < 4) ++sets[0][(i % bpp) * 256 + s[i]];
    }
  });
  for (int i = 0; i < 4 * 256; ++i) counts[i] = sets[0][i] + sets[1][i] + sets[2][i] + sets[3][i];
}

void channelRange(const ImageRecord& pic, uint8_t lo[4], uint8_t hi[4]) {
  for (int k = 0; k < 4; ++k) lo[k] = 255, hi[k] = 0;
  switch (pic.bytesPerPixel) {
    case 1:
      return rangeOf<1>(pic, lo, hi);
    case 3:
      return rangeOf<3>(pic, lo, hi);
    case 4:
      return rangeOf<4>(pic, lo, hi);
    default: {
      uint32_t counts[4 * 256];
      channelHistogram(pic, counts);
      for (int ch = 0; ch < std::min<int>(pic.bytesPerPixel, 4); ++ch)
        for (int v = 0; v < 256; ++v)
          if (counts[ch * 256 + v]) {
            lo[ch] = std::min<uint8_t>(lo[ch], static_cast<uint8_t>(v));
            hi[ch] = static_cast<uint8_t>(v);
          }
    }
  }
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

void normalizeTables(const uint8_t lo[4], const uint8_t hi[4], int channels,
                     uint8_t tables[3 * 256]) {
  identityTables(tables);
  for (int ch = 0; ch < std::min(channels, 3); ++ch) {
    // An empty or single-valued channel has nothing to stretch: it is kept.
    if (lo[ch] >= hi[ch]) continue;
    uint8_t* t = tables + ch * 256;
    for (int v = 0; v < 256; ++v)
      t[v] = v < lo[ch]   ? 0
             : v > hi[ch] ? 255
                          : static_cast<uint8_t>((v - lo[ch]) * 255 / (hi[ch] - lo[ch]));
  }
}

void normalizeTables(const uint32_t counts[4 * 256], int channels, uint8_t tables[3 * 256]) {
  uint8_t lo[4] = {255, 255, 255, 255}, hi[4] = {};
  for (int ch = 0; ch < std::min(channels, 3); ++ch)
    for (int v = 0; v < 256; ++v)
      if (counts[ch * 256 + v]) {
        lo[ch] = std::min<uint8_t>(lo[ch], static_cast<uint8_t>(v));
        hi[ch] = static_cast<uint8_t>(v);
      }
  normalizeTables(lo, hi, channels, tables);
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
  uint8_t lo[4], hi[4];
  channelRange(*src, lo, hi);
  uint8_t tables[3 * 256];
  normalizeTables(lo, hi, toneChannels(*src), tables);
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
