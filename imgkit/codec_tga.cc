// Targa pictures.
//
// Reads colour-mapped pictures (8-bit indices, 15/16/24/32-bit map entries,
// the map may start at any index), grey (8-bit, or 16-bit grey + alpha) and
// true colour of 15, 16, 24 and 32 bits, stored plainly or run-length
// encoded, in all four orientations. The image ID is skipped and the
// version 2 footer and extension area are ignored.
//
// Alpha: a 32-bit pixel (or 16-bit grey pixel, or the top bit of a 16-bit
// colour pixel) carries alpha when the descriptor's attribute bits say so.
// Many writers declare attribute bits yet leave them all zero: such a picture
// would be wholly transparent, so it is read as opaque (kind 256, or grey).
// Pictures with real alpha become kind 512.
//
// Writes grey and binary pictures as 8-bit grey (type 3), colour-mapped ones
// with a 24-bit colour map (type 1), kind 512 as 32-bit with 8 alpha bits and
// every other true-colour kind as 24-bit (type 2); saveOption 1 run-length
// encodes them (types 9, 10, 11). Rows are stored bottom-up.
#include <algorithm>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

constexpr size_t kHeaderSize = 18;
constexpr int kMaxPacket = 128;

enum : int { kTypeMapped = 1, kTypeTrueColor = 2, kTypeGrey = 3, kRleFlag = 8 };

// Descriptor bits.
constexpr int kAlphaBitsMask = 0x0F;
constexpr int kRightToLeft = 0x10;
constexpr int kTopDown = 0x20;

struct TgaLayout {
  int base = 0;  // kTypeMapped, kTypeTrueColor or kTypeGrey
  bool rle = false;
  int32_t width = 0;
  int32_t height = 0;
  int depth = 0;  // bits per pixel in the file
  int alphaBits = 0;
  bool rightToLeft = false;
  bool topDown = false;
  int mapFirst = 0;
  int mapLength = 0;
  int mapBits = 0;
  size_t mapOffset = 0;
  size_t dataOffset = 0;

  int pixelBytes() const { return (depth + 7) / 8; }
  bool alphaCandidate() const {
    return alphaBits > 0 && (depth == 32 || (depth == 16 && base != kTypeMapped));
  }
};

uint16_t le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

bool validMapBits(int bits) { return bits == 15 || bits == 16 || bits == 24 || bits == 32; }

// The base type (mapped, true colour, grey) of an image type byte, plain or
// run-length encoded; 0 for types without pixels or not supported.
int baseType(int type) {
  const int base = type & ~kRleFlag;
  return base >= kTypeMapped && base <= kTypeGrey ? base : 0;
}

// The pixel sizes each base type allows (colour indices of 8 bits only).
bool validDepth(int base, int depth) {
  switch (base) {
    case kTypeMapped:
      return depth == 8;
    case kTypeTrueColor:
      return depth == 15 || depth == 16 || depth == 24 || depth == 32;
    default:
      return depth == 8 || depth == 16;
  }
}

// Targa files carry no signature: the header fields must be consistent.
bool sniffTga(const uint8_t* d, size_t size) {
  if (size < kHeaderSize) return false;
  const int mapType = d[1], base = baseType(d[2]);
  if (mapType > 1 || base == 0 || !validDepth(base, d[16])) return false;
  // Without a colour map its fields must be empty.
  if (mapType == 1 ? !validMapBits(d[7]) : le16(d + 5) != 0) return false;
  if (base == kTypeMapped && mapType != 1) return false;
  return le16(d + 12) != 0 && le16(d + 14) != 0;
}

int parseHeader(ReadContext& ctx, TgaLayout& L) {
  if (ctx.size < kHeaderSize) return ctx.fail(IMK_ERR_BAD_FILE, "file too short");
  const uint8_t* d = ctx.data;
  const int idLength = d[0], mapType = d[1];
  L.base = baseType(d[2]);
  if (L.base == 0) return ctx.fail(IMK_ERR_BAD_FILE, "unsupported Targa image type");
  L.rle = (d[2] & kRleFlag) != 0;
  if (mapType > 1) return ctx.fail(IMK_ERR_BAD_FILE, "unknown colour map type");
  L.mapFirst = le16(d + 3);
  L.mapLength = le16(d + 5);
  L.mapBits = d[7];
  L.width = le16(d + 12);
  L.height = le16(d + 14);
  L.depth = d[16];
  L.alphaBits = d[17] & kAlphaBitsMask;
  L.rightToLeft = (d[17] & kRightToLeft) != 0;
  L.topDown = (d[17] & kTopDown) != 0;
  if (L.width == 0 || L.height == 0) return ctx.fail(IMK_ERR_BAD_FILE, "bad picture size");

  if (!validDepth(L.base, L.depth)) return ctx.fail(IMK_ERR_BAD_FILE, "unsupported bit depth");
  if (L.base == kTypeMapped && (mapType != 1 || L.mapLength == 0))
    return ctx.fail(IMK_ERR_BAD_FILE, "no colour map");
  // A true-colour or grey file may still carry a map: it is skipped.
  if (mapType == 1 && !validMapBits(L.mapBits))
    return ctx.fail(IMK_ERR_BAD_FILE, "unsupported colour map entry size");
  if (mapType == 0) L.mapLength = 0;
  L.mapOffset = kHeaderSize + idLength;
  L.dataOffset = L.mapOffset + size_t{static_cast<uint32_t>(L.mapLength)} * ((L.mapBits + 7) / 8);
  if (L.dataOffset > ctx.size) return ctx.fail(IMK_ERR_BAD_FILE, "truncated colour map");

  HeaderInfo& h = ctx.header;
  h.width = L.width;
  h.height = L.height;
  h.pictureCount = 1;
  if (L.depth == 15 || (L.depth == 16 && L.base == kTypeTrueColor)) {
    h.planes = 3;
    h.bitsPerPlane = 5;
  } else {
    h.planes = static_cast<int16_t>(L.depth / 8);
    h.bitsPerPlane = 8;
  }
  return IMK_OK;
}

// 5-bit channel to 8 bits.
inline uint8_t expand5(unsigned v) { return static_cast<uint8_t>(v << 3 | v >> 2); }

// Colour of a 15/16-bit pixel (x RRRRR GGGGG BBBBB, little-endian).
inline void color16(const uint8_t* s, uint8_t* o) {
  const unsigned v = le16(s);
  o[0] = expand5(v >> 10 & 31), o[1] = expand5(v >> 5 & 31), o[2] = expand5(v & 31);
}

// The colour map into the record's palette: entry i is index mapFirst + i.
void readColorMap(ReadContext& ctx, const TgaLayout& L, ImageRecord& rec) {
  const int entryBytes = (L.mapBits + 7) / 8;
  const uint8_t* e = ctx.data + L.mapOffset;
  const int end = std::min(256, L.mapFirst + L.mapLength);
  std::memset(rec.palette, 0, 768);  // indices without an entry show black
  for (int i = L.mapFirst; i < end; ++i, e += entryBytes) {
    uint8_t rgb[3];
    if (entryBytes == 2)
      color16(e, rgb);
    else
      rgb[0] = e[2], rgb[1] = e[1], rgb[2] = e[0];
    rec.palette[i] = rgb[0], rec.palette[256 + i] = rgb[1], rec.palette[512 + i] = rgb[2];
  }
  rec.colorCount = std::max(1, end);
}

// Pixels in file order, from plain data or from run-length packets that may
// run on from one row into the next.
class TgaSource {
 public:
  TgaSource(const uint8_t* p, const uint8_t* end, int pixelBytes, bool rle)
      : p_(p), end_(end), bpp_(pixelBytes), rle_(rle) {}

  // Fills `count` pixels; false when the data ends first (the rest is zero).
  bool fill(uint8_t* out, int count) {
    const size_t want = static_cast<size_t>(count) * bpp_;
    size_t done = 0;
    while (done < want) {
      if (!rle_ || (left_ > 0 && !repeat_)) {
        size_t take = want - done;
        if (rle_) take = std::min(take, static_cast<size_t>(left_) * bpp_);
        take = std::min(take, static_cast<size_t>(end_ - p_));
        if (take == 0) break;
        std::memcpy(out + done, p_, take);
        p_ += take, done += take;
        if (rle_) left_ -= static_cast<int>(take / bpp_);
        if (take % bpp_) break;  // the data ended inside a pixel
        continue;
      }
      if (left_ > 0) {  // repeated pixel
        const int n = std::min(left_, static_cast<int>((want - done) / bpp_));
        for (int i = 0; i < n; ++i, done += bpp_) std::memcpy(out + done, value_, bpp_);
        left_ -= n;
        continue;
      }
      if (p_ >= end_) break;
      const uint8_t head = *p_++;
      left_ = (head & 0x7F) + 1;
      repeat_ = (head & 0x80) != 0;
      if (repeat_) {
        if (end_ - p_ < bpp_) break;
        std::memcpy(value_, p_, bpp_);
        p_ += bpp_;
      }
    }
    if (done < want) std::memset(out + done, 0, want - done);
    return done == want;
  }

 private:
  const uint8_t* p_;
  const uint8_t* end_;
  int bpp_;
  bool rle_;
  int left_ = 0;
  bool repeat_ = false;
  uint8_t value_[4] = {};
};

// One row of file pixels into the record's layout. `step` is the distance
// between output pixels: negative for right-to-left files.
template <int kDepth, bool kAlpha>
void convertRow(const uint8_t* src, int width, uint8_t* dst, int step) {
  for (int x = 0; x < width; ++x, dst += step) {
    if constexpr (kDepth == 8) {
      dst[0] = src[x];
    } else if constexpr (kDepth == 16) {  // 15 and 16 bits; the top bit may be alpha
      color16(src + 2 * x, dst);
      if constexpr (kAlpha) dst[3] = src[2 * x + 1] & 0x80 ? 255 : 0;
    } else {
      constexpr int n = kDepth / 8;
      const uint8_t* s = src + n * x;
      dst[0] = s[2], dst[1] = s[1], dst[2] = s[0];
      if constexpr (kAlpha) dst[3] = s[3];
    }
  }
}

// Sixteen-bit grey: the low byte is the level, the high byte alpha.
void greyAlphaRow(const uint8_t* src, int width, uint8_t* dst, int step, bool alpha) {
  for (int x = 0; x < width; ++x, dst += step) {
    if (alpha)
      dst[0] = dst[1] = dst[2] = src[2 * x], dst[3] = src[2 * x + 1];
    else
      dst[0] = src[2 * x];
  }
}

void convert(const TgaLayout& L, bool alpha, const uint8_t* src, uint8_t* row, int bpp) {
  const int w = L.width;
  const int step = L.rightToLeft ? -bpp : bpp;
  uint8_t* dst = L.rightToLeft ? row + static_cast<size_t>(w - 1) * bpp : row;
  if (L.base == kTypeGrey && L.depth == 16) return greyAlphaRow(src, w, dst, step, alpha);
  switch (L.depth) {
    case 8:
      return convertRow<8, false>(src, w, dst, step);
    case 15:
    case 16:
      return alpha ? convertRow<16, true>(src, w, dst, step)
                   : convertRow<16, false>(src, w, dst, step);
    case 24:
      return convertRow<24, false>(src, w, dst, step);
    default:
      return alpha ? convertRow<32, true>(src, w, dst, step)
                   : convertRow<32, false>(src, w, dst, step);
  }
}

// A picture read with an alpha channel that is zero everywhere: the writer
// never filled it, so the picture is shown opaque, without the channel.
bool dropBlankAlpha(ReadContext& ctx, const TgaLayout& L, Picture& pic) {
  const ImageRecord& rec = pic.rec();
  for (int y = 0; y < rec.height; ++y) {
    const uint8_t* row = pic.row(y);
    for (int x = 0; x < rec.width; ++x)
      if (row[4 * x + 3]) return true;
  }
  const bool grey = L.base == kTypeGrey;
  Picture opaque;
  if (!opaque.allocate(grey ? IMK_GREY : IMK_RGB, rec.width, rec.height)) {
    ctx.fail(IMK_ERR_MEMORY, "not enough memory");
    return false;
  }
  for (int y = 0; y < rec.height; ++y) {
    const uint8_t* s = pic.row(y);
    uint8_t* d = opaque.row(y);
    const int step = grey ? 1 : 3;
    for (int x = 0; x < rec.width; ++x, s += 4, d += step) std::memcpy(d, s, step);
  }
  pic = std::move(opaque);
  return true;
}

int infoTga(ReadContext& ctx) {
  TgaLayout L;
  return parseHeader(ctx, L);
}

int readTga(ReadContext& ctx, Picture& out) {
  TgaLayout L;
  if (int rc = parseHeader(ctx, L)) return rc;
  const int bpp = L.pixelBytes();
  const uint64_t pixels = uint64_t{static_cast<uint32_t>(L.width)} * L.height;
  const size_t available = ctx.size - L.dataOffset;
  // A file too short for its pixels fails before anything is allocated; a
  // packet holds at most 128 pixels.
  const uint64_t needed = L.rle ? (pixels + kMaxPacket - 1) / kMaxPacket * (1 + bpp) : pixels * bpp;
  if (int rc = ctx.requireData(needed, available)) return rc;

  const bool alpha = L.alphaCandidate();
  const uint16_t kind = alpha                   ? IMK_RGBX
                        : L.base == kTypeMapped ? IMK_MAPPED
                        : L.base == kTypeGrey   ? IMK_GREY
                                                : IMK_RGB;
  if (!sizeAcceptable(L.width, L.height, bytesPerPixelOf(kind)))
    return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  if (!out.allocate(kind, L.width, L.height)) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  if (ctx.beginProgress(L.height)) return IMK_ERR_STOPPED;

  TgaSource source(ctx.data + L.dataOffset, ctx.data + ctx.size, bpp, L.rle);
  std::vector<uint8_t> fileRow(static_cast<size_t>(L.width) * bpp);
  const int outBpp = out.rec().bytesPerPixel;
  bool complete = true;
  int rows = 0;
  for (int i = 0; i < L.height && complete; ++i, ++rows) {
    complete = source.fill(fileRow.data(), L.width);
    convert(L, alpha, fileRow.data(), out.row(L.topDown ? i : L.height - 1 - i), outBpp);
    if (ctx.advanceProgress(i + 1)) return IMK_ERR_STOPPED;
  }

  const char* damage = complete ? nullptr : "truncated";
  if (kind == IMK_MAPPED) {
    ImageRecord& rec = out.rec();
    readColorMap(ctx, L, rec);
    int highest = 0;
    for (int i = 0; i < rows; ++i) {
      const uint8_t* row = out.row(L.topDown ? i : L.height - 1 - i);
      for (int x = 0; x < L.width; ++x) highest = std::max<int>(highest, row[x]);
    }
    if (highest >= rec.colorCount) {
      // Missing entries stay black.
      if (!damage) damage = "palette index out of range";
      rec.colorCount = highest + 1;
    }
    simplifyMappedPicture(rec);
  } else if (alpha && !dropBlankAlpha(ctx, L, out)) {
    return IMK_ERR_MEMORY;
  }
  if (damage) return ctx.damaged(IMK_ERR_CORRUPT, damage);
  return IMK_OK;
}

// ---------------------------------------------------------------------------
// Writing.

bool put(FILE* f, const void* p, size_t n) { return n == 0 || std::fwrite(p, 1, n, f) == n; }

// Run-length packets for one row of `bpp`-byte pixels: runs of two or more
// equal pixels become run packets, the rest raw packets. Packets end with the
// row, as version 2 readers expect.
void encodeRow(const uint8_t* src, int count, int bpp, std::vector<uint8_t>& out) {
  auto same = [&](int a, int b) { return std::memcmp(src + a * bpp, src + b * bpp, bpp) == 0; };
  for (int x = 0; x < count;) {
    int run = 1;
    while (x + run < count && run < kMaxPacket && same(x, x + run)) ++run;
    if (run >= 2) {
      out.push_back(static_cast<uint8_t>(0x80 | (run - 1)));
      out.insert(out.end(), src + x * bpp, src + (x + 1) * bpp);
      x += run;
      continue;
    }
    int n = 1;
    while (x + n < count && n < kMaxPacket && !(x + n + 1 < count && same(x + n, x + n + 1))) ++n;
    out.push_back(static_cast<uint8_t>(n - 1));
    out.insert(out.end(), src + x * bpp, src + (x + n) * bpp);
    x += n;
  }
}

int writeTga(WriteContext& ctx, const ImageRecord& pic) {
  FILE* f = ctx.out.file();
  const int w = pic.width, h = pic.height;
  if (w > 65535 || h > 65535) return IMK_ERR_CANNOT_SAVE;
  const bool mapped = pic.type == IMK_MAPPED;
  const bool grey = pic.type == IMK_GREY || pic.type == IMK_BINARY;
  const bool alpha = pic.type == IMK_RGBX;
  const bool rle = ctx.options.saveOption == 1;
  const int bpp = mapped || grey ? 1 : alpha ? 4 : 3;
  const int colors = pic.colorCount >= 1 && pic.colorCount <= 256 ? pic.colorCount : 256;

  uint8_t head[kHeaderSize] = {};
  head[1] = mapped ? 1 : 0;
  head[2] = static_cast<uint8_t>((mapped ? kTypeMapped
                                  : grey ? kTypeGrey
                                         : kTypeTrueColor) |
                                 (rle ? kRleFlag : 0));
  if (mapped) {
    head[5] = static_cast<uint8_t>(colors), head[6] = static_cast<uint8_t>(colors >> 8);
    head[7] = 24;
  }
  head[12] = static_cast<uint8_t>(w), head[13] = static_cast<uint8_t>(w >> 8);
  head[14] = static_cast<uint8_t>(h), head[15] = static_cast<uint8_t>(h >> 8);
  head[16] = static_cast<uint8_t>(bpp * 8);
  head[17] = alpha ? 8 : 0;  // bottom-up rows, left to right
  if (!put(f, head, sizeof head)) return IMK_ERR_WRITE;
  if (mapped) {
    std::vector<uint8_t> map(static_cast<size_t>(colors) * 3);
    for (int i = 0; i < colors; ++i) {
      const uint8_t v = static_cast<uint8_t>(i);
      map[3 * i] = pic.palette ? pic.palette[512 + i] : v;
      map[3 * i + 1] = pic.palette ? pic.palette[256 + i] : v;
      map[3 * i + 2] = pic.palette ? pic.palette[i] : v;
    }
    if (!put(f, map.data(), map.size())) return IMK_ERR_WRITE;
  }

  std::vector<uint8_t> channels(static_cast<size_t>(w) * 4), row(static_cast<size_t>(w) * bpp),
      coded;
  if (ctx.progress.begin(h)) return IMK_ERR_STOPPED;
  for (int i = 0; i < h; ++i) {
    const int y = h - 1 - i;
    if (mapped) {
      const uint8_t* src = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
      for (int x = 0; x < w; ++x) row[x] = static_cast<uint8_t>(std::min<int>(src[x], colors - 1));
    } else if (grey) {
      rowToGrey(pic, y, row.data());
    } else {
      if (alpha)
        rowToRgba(pic, y, channels.data());
      else
        rowToRgb(pic, y, channels.data());
      for (int x = 0; x < w; ++x) {
        const uint8_t* s = &channels[static_cast<size_t>(x) * bpp];
        uint8_t* d = &row[static_cast<size_t>(x) * bpp];
        d[0] = s[2], d[1] = s[1], d[2] = s[0];
        if (alpha) d[3] = s[3];
      }
    }
    if (rle) {
      coded.clear();
      encodeRow(row.data(), w, bpp, coded);
      if (!put(f, coded.data(), coded.size())) return IMK_ERR_WRITE;
    } else if (!put(f, row.data(), row.size())) {
      return IMK_ERR_WRITE;
    }
    if (ctx.progress.advance(i + 1)) return IMK_ERR_STOPPED;
  }
  // Version 2 footer: no extension area, no developer directory.
  static const char kFooter[26] = "\0\0\0\0\0\0\0\0TRUEVISION-XFILE.";
  if (!put(f, kFooter, sizeof kFooter)) return IMK_ERR_WRITE;
  return std::ferror(f) ? IMK_ERR_WRITE : IMK_OK;
}

}  // namespace

const Codec kTgaCodec = {"tga",
                         "Targa",
                         {"tga", "targa", "vda", "icb", "vst"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_MAPPED, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         sniffTga,
                         infoTga,
                         readTga,
                         writeTga};

}  // namespace imk
