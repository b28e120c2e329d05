// Colour reduction: the cube dither, the popularity palette and box
// splitting.
#include "process/colour_reduce.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "process/convert.h"
#include "process/operation.h"

namespace process {

namespace {

int clampedCount(int count) { return count >= 1 && count <= 256 ? count : 256; }

// Starts a colour-mapped result like the source with a black palette.
bool startMapped(const ImageRecord& src, ImageRecord& result, int colorCount) {
  std::memset(&result, 0, sizeof result);
  if (!imkAllock(&result, 4, src.bitsPerComponent, src.width, src.height)) {
    std::memset(&result, 0, sizeof result);
    return false;
  }
  result.attribute = src.attribute;
  result.colorCount = colorCount;
  std::memset(result.palette, 0, 768);
  return true;
}

// The colour of each index byte of a binary, grey or colour-mapped picture
// as the adaptive paths see it: binary 0 black, anything else white; grey
// the level's intensity; mapped its palette entry (grey without palette).
struct IndexColours {
  uint8_t r[256], g[256], b[256];
};
void indexColours(const ImageRecord& src, IndexColours& c) {
  if (src.type == 4 && src.palette) {
    std::memcpy(c.r, src.palette, 256);
    std::memcpy(c.g, src.palette + 256, 256);
    std::memcpy(c.b, src.palette + 512, 256);
    return;
  }
  const int n = src.type == 1 ? 2 : src.type == 2 ? clampedCount(src.colorCount) : 256;
  for (int i = 0; i < 256; ++i) {
    const int v = n > 1 ? std::min(std::min(i, n - 1) * 255 / (n - 1), 255) : 0;
    c.r[i] = c.g[i] = c.b[i] = static_cast<uint8_t>(v);
  }
}

// How many pixels use each byte value. Four partial counts so that runs of
// one value do not wait on their own increments.
void histogram(const ImageRecord& src, uint32_t* counts) {
  std::vector<uint32_t> part(4 * 256, 0);
  const int w = src.width;
  for (int y = 0; y < src.height; ++y) {
    const uint8_t* in = rowOf(src, y);
    int x = 0;
    for (; x + 4 <= w; x += 4) {
      ++part[in[x]];
      ++part[256 + in[x + 1]];
      ++part[512 + in[x + 2]];
      ++part[768 + in[x + 3]];
    }
    for (; x < w; ++x) ++part[in[x]];
  }
  for (int i = 0; i < 256; ++i) counts[i] = part[i] + part[256 + i] + part[512 + i] + part[768 + i];
}

void mapIndices(const ImageRecord& src, ImageRecord& result, const uint8_t* map) {
  for (int y = 0; y < src.height; ++y) {
    const uint8_t* in = rowOf(src, y);
    uint8_t* out = rowOf(result, y);
    for (int x = 0; x < src.width; ++x) out[x] = map[in[x]];
  }
}

// ---- Colour-cube ordered dither -----------------------------------------

// For one matrix position, the palette-index contribution of every value of
// each channel.
struct CubePicks {
  uint8_t r[256], g[256], b[256];
};

int cubeDither(ImageRecord* src, ImageRecord* dst, CubeShape shape) {
  const int total = shape.red * shape.green * shape.blue;
  ImageRecord result;
  if (!startMapped(*src, result, total)) return 1;
  buildCubePalette(result.palette, shape.red, shape.green, shape.blue);

  std::vector<CubeDitherTable> table(1);
  buildCubeDitherTable(table.data(), shape.red, shape.green, shape.blue);
  const CubeDitherTable& t = table[0];
  std::vector<CubePicks> picks(64);
  for (int pos = 0; pos < 64; ++pos) {
    const uint8_t* cell = t.cells[pos >> 3][pos & 7];
    CubePicks& p = picks[pos];
    for (int v = 0; v < 256; ++v) {
      p.r[v] = cell[t.red[v].frac] ? t.red[v].high : t.red[v].low;
      p.g[v] = cell[t.green[v].frac] ? t.green[v].high : t.green[v].low;
      p.b[v] = cell[t.blue[v].frac] ? t.blue[v].high : t.blue[v].low;
    }
  }

  const int w = src->width;
  if (!isTrueColour(src->type)) {
    IndexColours c;
    if (src->type == 1) {
      // White is the colour count, not 255: with 256 colours it stays white,
      // with 8 colours it is read as intensity 7 and comes out nearly black.
      const uint8_t white = static_cast<uint8_t>(total - 1);
      for (int i = 0; i < 256; ++i) c.r[i] = c.g[i] = c.b[i] = i ? white : 0;
    } else {
      indexColours(*src, c);
    }
    std::vector<uint8_t> index(64 * 256);
    for (int pos = 0; pos < 64; ++pos) {
      const CubePicks& p = picks[pos];
      for (int i = 0; i < 256; ++i)
        index[pos * 256 + i] = static_cast<uint8_t>(p.r[c.r[i]] + p.g[c.g[i]] + p.b[c.b[i]]);
    }
    for (int y = 0; y < src->height; ++y) {
      const uint8_t* in = rowOf(*src, y);
      uint8_t* out = rowOf(result, y);
      const uint8_t* byColumn[8];
      for (int i = 0; i < 8; ++i) byColumn[i] = &index[((y & 7) * 8 + i) * 256];
      for (int x = 0; x < w; ++x) out[x] = byColumn[x & 7][in[x]];
    }
  } else {
    // Bytes 0, 1 and 2 as red, green and blue, three bytes apart, whatever
    // the layout: the same fixed reading as the dithered grey conversion.
    for (int y = 0; y < src->height; ++y) {
      const uint8_t* in = rowOf(*src, y);
      uint8_t* out = rowOf(result, y);
      const CubePicks* byColumn[8];
      for (int i = 0; i < 8; ++i) byColumn[i] = &picks[(y & 7) * 8 + i];
      for (int x = 0; x < w; ++x, in += 3) {
        const CubePicks& p = *byColumn[x & 7];
        out[x] = static_cast<uint8_t>(p.r[in[0]] + p.g[in[1]] + p.b[in[2]]);
      }
    }
  }
  return deliver(src, dst, result);
}

// ---- Box splitting -------------------------------------------------------

int octantOf(const Colour6& c, const int* mid) {
  return (c.r > mid[0] ? 4 : 0) | (c.g > mid[1] ? 2 : 0) | (c.b > mid[2] ? 1 : 0);
}

void midpoints(const ColourBox& box, int* mid) {
  for (int c = 0; c < 3; ++c) mid[c] = (box.lower[c] + box.upper[c]) >> 1;
}

int countOctants(const ColourBox& box) {
  int mid[3];
  midpoints(box, mid);
  unsigned seen = 0;
  for (const Colour6& c : box.colours) {
    seen |= 1u << octantOf(c, mid);
    if (seen == 0xFF) break;
  }
  return __builtin_popcount(seen);
}

// Appends the non-empty octants of `box` to `out`, in octant order 0..7,
// each keeping its colours in their order. Bounds are [lower, mid] on the low
// side and [mid + 1, upper] on the high side of each channel.
void splitInto(const ColourBox& box, std::vector<ColourBox>& out) {
  int mid[3];
  midpoints(box, mid);
  int sizes[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  for (const Colour6& c : box.colours) ++sizes[octantOf(c, mid)];
  ColourBox parts[8];
  for (int o = 0; o < 8; ++o) parts[o].colours.reserve(static_cast<size_t>(sizes[o]));
  for (const Colour6& c : box.colours) parts[octantOf(c, mid)].colours.push_back(c);
  for (int o = 0; o < 8; ++o) {
    if (sizes[o] == 0) continue;
    ColourBox& p = parts[o];
    p.count = sizes[o];
    for (int c = 0; c < 3; ++c) {
      const bool high = (o >> (2 - c)) & 1;
      p.lower[c] = static_cast<uint8_t>(high ? mid[c] + 1 : box.lower[c]);
      p.upper[c] = static_cast<uint8_t>(high ? box.upper[c] : mid[c]);
    }
    out.push_back(std::move(p));
  }
}

// Sets the presence bit of every colour of a true-colour picture, red,
// green and blue at the given offsets, `Step` bytes apart.
template <int R, int G, int B, int Step>
void presenceRows(const ImageRecord& src, uint8_t* presence) {
  for (int y = 0; y < src.height; ++y) {
    const uint8_t* in = rowOf(src, y);
    for (int x = 0; x < src.width; ++x, in += Step) {
      const int key = colourKey(in[R] >> 2, in[G] >> 2, in[B] >> 2);
      presence[key >> 3] = static_cast<uint8_t>(presence[key >> 3] | (1 << (key & 7)));
    }
  }
}

template <int R, int G, int B, int Step>
void mapRows(const ImageRecord& src, ImageRecord& result, const uint8_t* table) {
  for (int y = 0; y < src.height; ++y) {
    const uint8_t* in = rowOf(src, y);
    uint8_t* out = rowOf(result, y);
    for (int x = 0; x < src.width; ++x, in += Step)
      out[x] = table[colourKey(in[R] >> 2, in[G] >> 2, in[B] >> 2)];
  }
}

// Calls `f.template operator()<R, G, B, Step>()` for the picture's layout
// (256 and 512: bytes 0, 1, 2; 2048: bytes 3, 2, 1; others bytes 2, 1, 0).
template <typename F>
void byLayout(const ImageRecord& src, F&& f) {
  const int step = src.bytesPerPixel;
  if ((src.type == 256 || src.type == 512) && step == 3) return f.template operator()<0, 1, 2, 3>();
  if ((src.type == 256 || src.type == 512) && step == 4) return f.template operator()<0, 1, 2, 4>();
  if (src.type == 2048 && step == 4) return f.template operator()<3, 2, 1, 4>();
  if (step == 4) return f.template operator()<2, 1, 0, 4>();
  return f.template operator()<2, 1, 0, 3>();
}

// `usage`: the pixel count of each index of a binary, grey or mapped source
// when the caller has it already.
int boxSplitting(ImageRecord* src, ImageRecord* dst, int colours, const uint32_t* usage) {
  ImageRecord result;
  if (!startMapped(*src, result, 0)) return 1;
  std::vector<uint8_t> presence(kPresenceBytes, 0);
  IndexColours c;
  uint32_t counts[256];
  const bool indexed = !isTrueColour(src->type);
  if (indexed) {
    indexColours(*src, c);
    if (usage)
      std::copy(usage, usage + 256, counts);
    else
      histogram(*src, counts);
    for (int i = 0; i < 256; ++i) {
      if (!counts[i]) continue;
      const int key = colourKey(c.r[i] >> 2, c.g[i] >> 2, c.b[i] >> 2);
      presence[key >> 3] = static_cast<uint8_t>(presence[key >> 3] | (1 << (key & 7)));
    }
  } else {
    byLayout(*src, [&]<int R, int G, int B, int Step>() {
      presenceRows<R, G, B, Step>(*src, presence.data());
    });
  }
  int distinct = 0;
  for (uint8_t byte : presence) distinct += __builtin_popcount(byte);

  const std::vector<ColourBox> boxes =
      splitColourBoxes(presence.data(), result.palette, distinct, colours);
  result.colorCount = std::min(distinct, colours);
  std::vector<uint8_t> table(1 << 18);
  colourBoxTable(boxes, table.data());
  if (indexed) {
    uint8_t map[256];
    for (int i = 0; i < 256; ++i) map[i] = table[colourKey(c.r[i] >> 2, c.g[i] >> 2, c.b[i] >> 2)];
    mapIndices(*src, result, map);
  } else {
    byLayout(*src, [&]<int R, int G, int B, int Step>() {
      mapRows<R, G, B, Step>(*src, result, table.data());
    });
  }
  return deliver(src, dst, result);
}

// ---- Popularity palette --------------------------------------------------

int popularity(ImageRecord* src, ImageRecord* dst, int colours) {
  const int n = src->type == 1 ? 2 : clampedCount(src->colorCount);
  int order[256];
  std::iota(order, order + 256, 0);
  if (n > colours) {
    uint32_t counts[256];
    histogram(*src, counts);
    // Most used first; equal counts keep ascending index order.
    std::stable_sort(order, order + 256, [&](int a, int b) { return counts[a] > counts[b]; });
    const int used =
        static_cast<int>(std::count_if(counts, counts + 256, [](uint32_t k) { return k != 0; }));
    if (used > colours && colours >= 8) return boxSplitting(src, dst, colours, counts);
  }
  ImageRecord result;
  if (!startMapped(*src, result, colours)) return 1;
  IndexColours c;
  indexColours(*src, c);
  uint8_t* pr = result.palette;
  uint8_t* pg = result.palette + 256;
  uint8_t* pb = result.palette + 512;
  uint8_t map[256];
  for (int i = 0; i < colours; ++i) {
    const int index = order[i];
    pr[i] = c.r[index];
    pg[i] = c.g[index];
    pb[i] = c.b[index];
    map[index] = static_cast<uint8_t>(i);
  }
  // The rest go to the nearest kept entry (squared distance; the lowest
  // entry wins a tie) and their own palette entries stay black.
  for (int i = colours; i < 256; ++i) {
    const int index = order[i];
    int best = 999999, bestEntry = 0;
    for (int j = 0; j < colours; ++j) {
      const int dr = c.r[index] - pr[j], dg = c.g[index] - pg[j], db = c.b[index] - pb[j];
      const int d = dr * dr + dg * dg + db * db;
      if (d < best) {
        best = d;
        bestEntry = j;
      }
    }
    map[index] = static_cast<uint8_t>(bestEntry);
  }
  mapIndices(*src, result, map);
  return deliver(src, dst, result);
}

}  // namespace

CubeShape cubeShape(int colours) {
  switch (colours) {
    case 8:
      return {2, 2, 2};
    case 16:
      return {2, 4, 2};
    case 32:
      return {4, 4, 2};
    case 64:
      return {4, 4, 4};
    case 128:
      return {8, 8, 4};  // the same cube as 256, on purpose
    case 216:
      return {6, 6, 6};
    case 256:
      return {8, 8, 4};
    default:
      return {0, 0, 0};
  }
}

void buildCubeDitherTable(CubeDitherTable* table, int red, int green, int blue) {
  std::vector<DitherTable> levels(1);
  DitherTable& d = levels[0];
  const int count[3] = {red, green, blue};
  const int place[3] = {green * blue, blue, 1};
  CubeDitherEntry* out[3] = {table->red, table->green, table->blue};
  for (int c = 0; c < 3; ++c) {
    buildDitherTable(&d, count[c]);
    for (int v = 0; v < 256; ++v)
      out[c][v] = {d.entry[v].frac, static_cast<uint8_t>(d.entry[v].lo * place[c]),
                   static_cast<uint8_t>(d.entry[v].hi * place[c])};
  }
  std::memcpy(table->cells, d.cells, sizeof table->cells);
}

void buildCubePalette(uint8_t* palette, int red, int green, int blue) {
  std::memset(palette, 0, 768);
  for (int ri = 0; ri < red; ++ri)
    for (int gi = 0; gi < green; ++gi)
      for (int bi = 0; bi < blue; ++bi) {
        const int i = ri * green * blue + gi * blue + bi;
        palette[i] = static_cast<uint8_t>(ri * 255 / (red - 1));
        palette[256 + i] = static_cast<uint8_t>(gi * 255 / (green - 1));
        palette[512 + i] = static_cast<uint8_t>(bi * 255 / (blue - 1));
      }
}

std::vector<ColourBox> splitColourBoxes(const uint8_t* presence, uint8_t* palette, int distinct,
                                        int colours) {
  const int target = std::min(colours, distinct);
  ColourBox whole;  // the whole cube, not the colours' bounding box
  whole.colours.reserve(static_cast<size_t>(distinct));
  for (int key = 0; key < (1 << 18); ++key)
    if (presence[key >> 3] & (1 << (key & 7)))
      whole.colours.push_back({static_cast<uint8_t>(key >> 12),
                               static_cast<uint8_t>((key >> 6) & 63),
                               static_cast<uint8_t>(key & 63), 0});
  whole.count = static_cast<int>(whole.colours.size());

  // Whole passes: every box split at once, as long as that does not
  // overshoot the target.
  std::vector<ColourBox> boxes;
  splitInto(whole, boxes);
  while (static_cast<int>(boxes.size()) < target) {
    std::vector<ColourBox> next;
    for (const ColourBox& b : boxes) splitInto(b, next);
    if (static_cast<int>(boxes.size()) <= target && static_cast<int>(next.size()) > target) break;
    boxes = std::move(next);
  }

  // Then one box at a time: the one giving most octants that still fit
  // (counted as count + octants <= target), more colours breaking a tie.
  // The split box leaves its place and its parts go to the end of the list.
  while (static_cast<int>(boxes.size()) < target) {
    const int count = static_cast<int>(boxes.size());
    int best = -1, bestK = 0, bestColours = 0;
    for (int i = 0; i < count; ++i) {
      ColourBox& b = boxes[static_cast<size_t>(i)];
      if (b.octants < 0) b.octants = countOctants(b);
      if (count + b.octants > target) continue;
      if (b.octants > bestK || (b.octants == bestK && b.count > bestColours)) {
        best = i;
        bestK = b.octants;
        bestColours = b.count;
      }
    }
    if (best < 0) break;
    const ColourBox chosen = std::move(boxes[static_cast<size_t>(best)]);
    boxes.erase(boxes.begin() + best);
    splitInto(chosen, boxes);
    if (bestK == 1) break;
  }

  for (size_t j = 0; j < boxes.size(); ++j) {
    ColourBox& b = boxes[j];
    long sum[3] = {0, 0, 0};
    for (const Colour6& c : b.colours) {
      sum[0] += c.r;
      sum[1] += c.g;
      sum[2] += c.b;
    }
    for (int c = 0; c < 3; ++c) {
      b.average[c] = static_cast<int>(sum[c] / b.count);
      const int half = (b.upper[c] - b.lower[c]) >> 1;
      b.nearLow[c] = b.average[c] - half;
      b.nearHigh[c] = b.average[c] + half;
    }
    if (j < 256)
      for (int c = 0; c < 3; ++c)
        palette[c * 256 + static_cast<int>(j)] = static_cast<uint8_t>(b.average[c] * 255 / 63);
  }
  return boxes;
}

int findColourBox(const std::vector<ColourBox>& boxes, ColourBoxCache& cache, int r, int g, int b) {
  const int v[3] = {r >> 2, g >> 2, b >> 2};
  const int key = colourKey(v[0], v[1], v[2]);
  if (key == cache.key) return cache.index;
  auto inside = [&](const auto& low, const auto& high) {
    return v[0] >= low[0] && v[0] <= high[0] && v[1] >= low[1] && v[1] <= high[1] &&
           v[2] >= low[2] && v[2] <= high[2];
  };
  int index = -1;
  for (size_t i = 0; i < boxes.size() && index < 0; ++i)
    if (inside(boxes[i].nearLow, boxes[i].nearHigh)) index = static_cast<int>(i);
  for (size_t i = 0; i < boxes.size() && index < 0; ++i)
    if (inside(boxes[i].lower, boxes[i].upper)) index = static_cast<int>(i);
  // No box holds it (cannot happen for a colour that was counted): the last
  // entry rather than one past the palette.
  if (index < 0) index = std::max(0, static_cast<int>(boxes.size()) - 1);
  cache.key = key;
  cache.index = index;
  return index;
}

void colourBoxTable(const std::vector<ColourBox>& boxes, uint8_t* table) {
  const int last = std::max(0, std::min(255, static_cast<int>(boxes.size()) - 1));
  std::memset(table, last, 1 << 18);
  auto paint = [&](int index, const int* low, const int* high) {
    int lo[3], hi[3];
    for (int c = 0; c < 3; ++c) {
      lo[c] = std::max(low[c], 0);
      hi[c] = std::min(high[c], 63);
      if (lo[c] > hi[c]) return;
    }
    for (int r = lo[0]; r <= hi[0]; ++r)
      for (int g = lo[1]; g <= hi[1]; ++g)
        std::memset(table + colourKey(r, g, lo[2]), index, static_cast<size_t>(hi[2] - lo[2] + 1));
  };
  // Painted from the last box to the first so that the first in list order
  // wins; bounds first, then second ranges, which take precedence.
  const int n = std::min(static_cast<int>(boxes.size()), 256);
  for (int i = n - 1; i >= 0; --i) {
    const ColourBox& b = boxes[static_cast<size_t>(i)];
    const int low[3] = {b.lower[0], b.lower[1], b.lower[2]};
    const int high[3] = {b.upper[0], b.upper[1], b.upper[2]};
    paint(i, low, high);
  }
  for (int i = n - 1; i >= 0; --i) {
    const ColourBox& b = boxes[static_cast<size_t>(i)];
    paint(i, b.nearLow, b.nearHigh);
  }
}

int reduceColours(ImageRecord* src, ImageRecord* dst, int colours, int method) {
  if (!src || !src->pixels || colours < 1) return 0;
  if (colours > 256) colours = 256;
  const CubeShape shape = cubeShape(colours);
  if (method == kMethodOrdered && shape.red > 0) return cubeDither(src, dst, shape);
  if (isTrueColour(src->type)) return boxSplitting(src, dst, colours, nullptr);
  return popularity(src, dst, colours);
}

}  // namespace process
