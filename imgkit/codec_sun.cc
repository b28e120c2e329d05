// Sun raster pictures.
//
// Reads depths 1 (black on white, or two colours from a colour map), 8 (with
// an RGB colour map, or grey without one), 24 and 32 bits (B,G,R and X,B,G,R;
// R,G,B and X,R,G,B in the type 3 variant; the X byte is padding), stored
// plainly (types 0, 1, 3) or run-length encoded (type 2). Rows are padded to
// 16 bits.
//
// Writes binary pictures as 1-bit, grey and colour-mapped ones as 8-bit with
// a colour map, true colour as 24-bit B,G,R (type 1); saveOption 1 run-length
// encodes them (type 2).
//
// The header's length field is not trusted (writers disagree on what it
// counts): the pixels are bounded by the end of the file.
#include <algorithm>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

constexpr size_t kHeaderSize = 32;
constexpr uint32_t kMagic = 0x59A66A95;
constexpr uint8_t kEscape = 0x80;

enum : uint32_t { kTypeOld = 0, kTypeStandard = 1, kTypeEncoded = 2, kTypeRgb = 3 };
enum : uint32_t { kMapNone = 0, kMapRgb = 1, kMapRaw = 2 };

struct SunLayout {
  int32_t width = 0;
  int32_t height = 0;
  int depth = 0;
  uint32_t type = 0;
  int mapEntries = 0;  // RGB colour map entries (0 = none)
  size_t mapOffset = kHeaderSize;
  size_t dataOffset = 0;
  size_t rowBytes = 0;  // padded to 16 bits
  uint16_t kind = 0;
};

uint32_t be32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3];
}

bool sniffSun(const uint8_t* d, size_t size) { return size >= kHeaderSize && be32(d) == kMagic; }

int parseHeader(ReadContext& ctx, SunLayout& L) {
  if (ctx.size < kHeaderSize) return ctx.fail(IMK_ERR_BAD_FILE, "file too short");
  const uint8_t* d = ctx.data;
  if (be32(d) != kMagic) return ctx.fail(IMK_ERR_BAD_FILE, "not a Sun raster file");
  const uint32_t width = be32(d + 4), height = be32(d + 8), depth = be32(d + 12);
  L.type = be32(d + 20);
  const uint32_t mapType = be32(d + 24), mapLength = be32(d + 28);
  if (width == 0 || height == 0) return ctx.fail(IMK_ERR_BAD_FILE, "bad picture size");
  if (width > static_cast<uint32_t>(kMaxDimension) || height > static_cast<uint32_t>(kMaxDimension))
    return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  if (depth != 1 && depth != 8 && depth != 24 && depth != 32)
    return ctx.fail(IMK_ERR_BAD_FILE, "unsupported bit depth");
  if (L.type > kTypeRgb) return ctx.fail(IMK_ERR_BAD_FILE, "unsupported Sun raster type");
  if (mapType > kMapRaw) return ctx.fail(IMK_ERR_BAD_FILE, "unknown colour map type");
  if (mapLength > ctx.size - kHeaderSize) return ctx.fail(IMK_ERR_BAD_FILE, "truncated colour map");
  L.width = static_cast<int32_t>(width);
  L.height = static_cast<int32_t>(height);
  L.depth = static_cast<int>(depth);
  L.dataOffset = kHeaderSize + mapLength;
  L.rowBytes = (size_t{width} * depth + 15) / 16 * 2;
  // An RGB map of 8-bit pictures is three planes of up to 256 entries; a
  // true-colour picture's map does not affect its pixels.
  if (mapType == kMapRgb && depth <= 8) {
    if (mapLength % 3 != 0 || mapLength / 3 > 256 || mapLength == 0)
      return ctx.fail(IMK_ERR_BAD_FILE, "bad colour map length");
    L.mapEntries = static_cast<int>(mapLength / 3);
  }
  L.kind = depth == 24 || depth == 32 ? IMK_RGB
           : L.mapEntries             ? IMK_MAPPED
           : depth == 1               ? IMK_BINARY
                                      : IMK_GREY;

  HeaderInfo& h = ctx.header;
  h.width = L.width;
  h.height = L.height;
  h.planes = static_cast<int16_t>(depth >= 24 ? depth / 8 : 1);
  h.bitsPerPlane = static_cast<int16_t>(depth >= 24 ? 8 : depth);
  h.pictureCount = 1;
  return IMK_OK;
}

// Pixel bytes: plain, or run-length codes (0x80 n v: n+1 times v; 0x80 0: a
// single 0x80) whose runs may continue from one row into the next.
struct SunCodes {
  static bool next(const uint8_t*& p, const uint8_t* end, ByteRun& run) {
    if (p < end && *p != kEscape) {
      run = {1, *p++};
    } else if (end - p >= 2 && p[1] == 0) {
      run = {1, kEscape};
      p += 2;
    } else if (end - p >= 3) {
      run = {p[1] + 1u, p[2]};
      p += 3;
    } else {
      return false;
    }
    return true;
  }
};
using SunSource = RunSource<SunCodes>;

// One padded file row into the record's row.
void convertRow(const SunLayout& L, const uint8_t* src, uint8_t* dst) {
  const int w = L.width;
  switch (L.depth) {
    case 1:
      // Without a map a set bit is black.
      for (int x = 0; x < w; ++x) {
        const int bit = src[x >> 3] >> (7 - (x & 7)) & 1;
        dst[x] = static_cast<uint8_t>(L.kind == IMK_BINARY ? !bit : bit);
      }
      return;
    case 8:
      std::memcpy(dst, src, static_cast<size_t>(w));
      return;
    default: {
      const int step = L.depth / 8, skip = step - 3;  // the padding byte comes first
      const bool rgb = L.type == kTypeRgb;
      src += skip;
      for (int x = 0; x < w; ++x, src += step, dst += 3) {
        dst[0] = src[rgb ? 0 : 2], dst[1] = src[1], dst[2] = src[rgb ? 2 : 0];
      }
      return;
    }
  }
}

int infoSun(ReadContext& ctx) {
  SunLayout L;
  return parseHeader(ctx, L);
}

int readSun(ReadContext& ctx, Picture& out) {
  SunLayout L;
  if (int rc = parseHeader(ctx, L)) return rc;
  const bool rle = L.type == kTypeEncoded;
  const uint64_t needed = uint64_t{L.rowBytes} * static_cast<uint32_t>(L.height);
  const size_t available = ctx.size - L.dataOffset;
  // A file too short for its pixels fails before anything is allocated: a
  // run code gives at most 256 bytes for 3.
  if (int rc = ctx.requireData(rle ? (needed + 255) / 256 * 3 : needed, available)) return rc;
  if (!sizeAcceptable(L.width, L.height, bytesPerPixelOf(L.kind)))
    return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  if (!out.allocate(L.kind, L.width, L.height))
    return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  if (ctx.beginProgress(L.height)) return IMK_ERR_STOPPED;

  SunSource source(ctx.data + L.dataOffset, ctx.data + ctx.size, rle);
  std::vector<uint8_t> row(L.rowBytes);
  bool complete = true;
  int rows = 0;
  for (; rows < L.height && complete; ++rows) {
    complete = source.fill(row.data(), row.size());
    convertRow(L, row.data(), out.row(rows));
    if (ctx.advanceProgress(rows + 1)) return IMK_ERR_STOPPED;
  }

  const char* damage = complete ? nullptr : "truncated";
  ImageRecord& rec = out.rec();
  if (L.kind == IMK_MAPPED) {
    const uint8_t* map = ctx.data + L.mapOffset;
    const int n = L.mapEntries;
    std::memset(rec.palette, 0, 768);  // indices without an entry show black
    for (int c = 0; c < 3; ++c)
      std::memcpy(rec.palette + 256 * c, map + n * c, static_cast<size_t>(n));
    rec.colorCount = n;
    int highest = 0;
    for (int y = 0; y < rows; ++y) {
      const uint8_t* p = out.row(y);
      for (int x = 0; x < L.width; ++x) highest = std::max<int>(highest, p[x]);
    }
    if (highest >= n) {
      // Missing entries stay black.
      if (!damage) damage = "palette index out of range";
      rec.colorCount = highest + 1;
    }
    simplifyMappedPicture(rec);
  }
  if (damage) return ctx.damaged(IMK_ERR_CORRUPT, damage);
  return IMK_OK;
}

// ---------------------------------------------------------------------------
// Writing.

bool put(FILE* f, const void* p, size_t n) { return n == 0 || std::fwrite(p, 1, n, f) == n; }

void putBe32(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 24), p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8), p[3] = static_cast<uint8_t>(v);
}

// Run-length codes for a row: runs of three or more (or any repeat of the
// escape byte) as 0x80 n v, a lone escape byte as 0x80 0, other bytes as
// themselves.
void encodeRow(const uint8_t* src, size_t n, std::vector<uint8_t>& out) {
  for (size_t i = 0; i < n;) {
    size_t run = 1;
    while (i + run < n && run < 256 && src[i + run] == src[i]) ++run;
    if (run >= 3 || (src[i] == kEscape && run == 2)) {
      out.insert(out.end(), {kEscape, static_cast<uint8_t>(run - 1), src[i]});
    } else if (src[i] == kEscape) {
      out.insert(out.end(), {kEscape, 0});
      run = 1;
    } else {
      out.push_back(src[i]);
      run = 1;
    }
    i += run;
  }
}

int writeSun(WriteContext& ctx, const ImageRecord& pic) {
  FILE* f = ctx.out.file();
  const int w = pic.width, h = pic.height;
  const bool binary = pic.type == IMK_BINARY, trueColor = isTrueColor(pic.type);
  const int depth = binary ? 1 : trueColor ? 24 : 8;
  const bool rle = ctx.options.saveOption == 1;
  const size_t rowBytes = (static_cast<size_t>(w) * depth + 15) / 16 * 2;
  const int colors = binary || trueColor                            ? 0
                     : pic.colorCount >= 1 && pic.colorCount <= 256 ? pic.colorCount
                                                                    : 256;

  // Colour map: three planes. Grey levels map to their intensities.
  std::vector<uint8_t> map(static_cast<size_t>(colors) * 3);
  for (int i = 0; i < colors; ++i)
    for (int c = 0; c < 3; ++c)
      map[static_cast<size_t>(c) * colors + i] = pic.type == IMK_GREY
                                                     ? greyLevelIntensity(i, colors)
                                                 : pic.palette ? pic.palette[256 * c + i]
                                                               : static_cast<uint8_t>(i);

  // Rows are encoded in memory first when compressed: the header's length
  // field counts the encoded bytes.
  std::vector<uint8_t> row(rowBytes), rgb(static_cast<size_t>(w) * 3), coded;
  auto fillRow = [&](int y) {
    const uint8_t* src = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
    std::fill(row.begin(), row.end(), 0);
    if (binary) {
      for (int x = 0; x < w; ++x)
        if (!src[x]) row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | 0x80 >> (x & 7));
    } else if (trueColor) {
      rowToRgb(pic, y, rgb.data());
      for (int x = 0; x < w; ++x)
        row[3 * x] = rgb[3 * x + 2], row[3 * x + 1] = rgb[3 * x + 1], row[3 * x + 2] = rgb[3 * x];
    } else {
      for (int x = 0; x < w; ++x) row[x] = static_cast<uint8_t>(std::min<int>(src[x], colors - 1));
    }
  };
  if (ctx.progress.begin(h)) return IMK_ERR_STOPPED;
  if (rle) {
    for (int y = 0; y < h; ++y) {
      fillRow(y);
      encodeRow(row.data(), rowBytes, coded);
      if (ctx.progress.advance(y + 1)) return IMK_ERR_STOPPED;
    }
  }
  const uint64_t length = rle ? coded.size() : uint64_t{rowBytes} * h;
  if (length > 0xFFFFFFFFu) return IMK_ERR_CANNOT_SAVE;

  uint8_t head[kHeaderSize];
  const uint32_t fields[8] = {kMagic,
                              static_cast<uint32_t>(w),
                              static_cast<uint32_t>(h),
                              static_cast<uint32_t>(depth),
                              static_cast<uint32_t>(length),
                              rle ? kTypeEncoded : kTypeStandard,
                              colors ? kMapRgb : kMapNone,
                              static_cast<uint32_t>(map.size())};
  for (int i = 0; i < 8; ++i) putBe32(head + 4 * i, fields[i]);
  if (!put(f, head, sizeof head) || !put(f, map.data(), map.size())) return IMK_ERR_WRITE;
  if (rle) return put(f, coded.data(), coded.size()) && !std::ferror(f) ? IMK_OK : IMK_ERR_WRITE;
  for (int y = 0; y < h; ++y) {
    fillRow(y);
    if (!put(f, row.data(), rowBytes)) return IMK_ERR_WRITE;
    if (ctx.progress.advance(y + 1)) return IMK_ERR_STOPPED;
  }
  return std::ferror(f) ? IMK_ERR_WRITE : IMK_OK;
}

}  // namespace

const Codec kSunCodec = {"sun",
                         "Sun Raster",
                         {"ras", "sun", "rs", "im1", "im8", "im24", "im32"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize},
                          {IMK_MAPPED, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         sniffSun,
                         infoSun,
                         readSun,
                         writeSun};

}  // namespace imk
