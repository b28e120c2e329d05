// BMP codec. Reads the OS/2 1.x core header, the Windows 40/52/56/108/124-byte
// headers and the OS/2 2.x 16/64-byte headers; palettes of 1, 2, 4 and 8 bits,
// 16/24/32-bit pixels with default or bit-field masks (with alpha), and RLE8 /
// RLE4 compression. Writes binary pictures as 1-bit; grey and colour-mapped
// ones as 4-bit (up to 16 entries) or 8-bit palettes, RLE4 / RLE8 compressed
// when saveOption is 1; kind 512 as 32-bit with a v4 header whose alpha mask
// keeps the spare byte; every other true-colour kind as 24-bit.
//
// Every field of the headers comes from an untrusted file: it is checked before
// use, all reads go through ByteReader, and the RLE decoder never writes
// outside the row it is on.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

// biCompression values. OS/2 2.x reuses 3 for Huffman 1D and 4 for RLE24.
enum : uint32_t {
  kBiRgb = 0,
  kBiRle8 = 1,
  kBiRle4 = 2,
  kBiBitfields = 3,
  kBiJpeg = 4,
  kBiPng = 5,
  kBiAlphaBitfields = 6
};

constexpr uint32_t kFileHeaderSize = 14;
constexpr uint32_t kInfoHeaderSize = 40;
constexpr uint32_t kV4HeaderSize = 108;

// Horizontal and vertical density of written files: 72 dpi.
constexpr uint32_t kPixelsPerMetre = 2835;

// One colour channel of a 16- or 32-bit pixel, described by its bit mask.
// Values are scaled to 8 bits with rounding, so that a 5-bit 31 becomes 255.
struct Channel {
  uint32_t mask = 0;
  int shift = 0;
  uint32_t max = 0;  // largest value after shifting; 0 = channel absent

  uint8_t get(uint32_t pixel) const {
    const uint32_t v = (pixel & mask) >> shift;
    if (max == 255) return static_cast<uint8_t>(v);
    return static_cast<uint8_t>((uint64_t{v} * 255 + max / 2) / max);
  }
};

// False when the mask's bits are not contiguous.
bool makeChannel(uint32_t mask, Channel* c) {
  *c = Channel{};
  if (mask == 0) return true;
  c->mask = mask;
  c->shift = __builtin_ctz(mask);
  c->max = mask >> c->shift;
  return (c->max & (uint64_t{c->max} + 1)) == 0;
}

// Everything the pixel decoder needs, taken from validated headers.
struct BmpLayout {
  int32_t width = 0;
  int32_t height = 0;
  bool topDown = false;
  int bits = 0;
  uint32_t compression = kBiRgb;
  bool hasAlpha = false;
  Channel red, green, blue, alpha;
  size_t paletteOffset = 0;
  int paletteEntrySize = 4;  // 3 for the OS/2 1.x core header
  int paletteCount = 0;      // entries present in the file (bits <= 8)
  size_t dataOffset = 0;
  uint32_t declaredFileSize = 0;  // the file header's size field
};

bool compressed(const BmpLayout& L) { return L.compression == kBiRle8 || L.compression == kBiRle4; }

uint64_t rowBytes(int64_t width, int bits) {
  return ((static_cast<uint64_t>(width) * bits + 31) / 32) * 4;
}

// Reads and checks the headers. 0, or an error code recorded in ctx.
int parseHeaders(ReadContext& ctx, BmpLayout& L) {
  ByteReader r(ctx.data, ctx.size);
  if (ctx.size < kFileHeaderSize + 12) return ctx.fail(IMK_ERR_BAD_FILE, "file too short");
  if (r.u8() != 'B' || r.u8() != 'M') return ctx.fail(IMK_ERR_BAD_FILE, "not a BMP file");
  const uint32_t fileSize = r.u32le();
  r.skip(4);  // reserved (OS/2 hot spot)
  const uint32_t dataOffset = r.u32le();
  const uint32_t headerSize = r.u32le();
  switch (headerSize) {
    case 12:
    case 16:
    case 40:
    case 52:
    case 56:
    case 64:
    case 108:
    case 124:
      break;
    default:
      return ctx.fail(IMK_ERR_BAD_FILE, "unsupported BMP header size");
  }
  if (kFileHeaderSize + headerSize > ctx.size)
    return ctx.fail(IMK_ERR_BAD_FILE, "truncated header");

  int64_t width, height;
  uint32_t planes, bits, compression = kBiRgb, imageSize = 0, colorsUsed = 0;
  int32_t xDensity = 0, yDensity = 0;
  uint32_t masks[4] = {0, 0, 0, 0};
  uint64_t profileEnd = 0;
  const bool os2 = headerSize == 12 || headerSize == 16 || headerSize == 64;
  if (headerSize == 12) {
    width = r.u16le();
    height = r.u16le();
    planes = r.u16le();
    bits = r.u16le();
  } else {
    width = static_cast<int32_t>(r.u32le());
    height = static_cast<int32_t>(r.u32le());
    planes = r.u16le();
    bits = r.u16le();
    if (headerSize >= 40) {
      compression = r.u32le();
      imageSize = r.u32le();
      xDensity = static_cast<int32_t>(r.u32le());
      yDensity = static_cast<int32_t>(r.u32le());
      colorsUsed = r.u32le();
      r.skip(4);  // colours important
    }
    if (headerSize >= 52 && !os2) {
      for (int i = 0; i < (headerSize >= 56 ? 4 : 3); ++i) masks[i] = r.u32le();
    }
    if (headerSize == 124) {
      // The embedded colour profile may follow the pixels; the file size
      // field then legitimately reaches beyond them.
      r.seek(kFileHeaderSize + 112);
      const uint64_t profileData = r.u32le(), profileSize = r.u32le();
      profileEnd = kFileHeaderSize + profileData + profileSize;
    }
  }

  if (os2 && headerSize != 12 && compression == 3)
    return ctx.fail(IMK_ERR_BAD_FILE, "Huffman-compressed BMP not supported");
  if (os2 && headerSize != 12 && compression == 4)
    return ctx.fail(IMK_ERR_BAD_FILE, "RLE24-compressed BMP not supported");
  if (compression == kBiJpeg || compression == kBiPng)
    return ctx.fail(IMK_ERR_BAD_FILE, "BMP with embedded JPEG/PNG not supported");
  if (compression > kBiAlphaBitfields) return ctx.fail(IMK_ERR_BAD_FILE, "unknown BMP compression");
  if (planes != 1) return ctx.fail(IMK_ERR_BAD_FILE, "bad plane count");
  if (bits != 1 && bits != 2 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32)
    return ctx.fail(IMK_ERR_BAD_FILE, "unsupported bit depth");
  if (width <= 0) return ctx.fail(IMK_ERR_BAD_FILE, "bad width");
  if (height == 0 || height == INT32_MIN) return ctx.fail(IMK_ERR_BAD_FILE, "bad height");
  L.topDown = height < 0;
  height = std::abs(height);
  if (width > kMaxDimension || height > kMaxDimension)
    return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  L.width = static_cast<int32_t>(width);
  L.height = static_cast<int32_t>(height);
  L.bits = static_cast<int>(bits);
  L.compression = compression;

  const bool bitfields = compression == kBiBitfields || compression == kBiAlphaBitfields;
  if ((compression == kBiRle8 && bits != 8) || (compression == kBiRle4 && bits != 4) ||
      (bitfields && bits != 16 && bits != 32))
    return ctx.fail(IMK_ERR_BAD_FILE, "compression does not suit bit depth");
  if (L.topDown && compressed(L)) return ctx.fail(IMK_ERR_BAD_FILE, "top-down RLE picture");
  // Density is not used, but a ratio like 10^7:1 only comes from a broken
  // or hostile writer.
  if (xDensity > 0 && yDensity > 0 &&
      std::max(xDensity, yDensity) / std::min(xDensity, yDensity) > 100)
    return ctx.fail(IMK_ERR_BAD_FILE, "absurd pixel density");

  // Bit-field masks: in the 52+ byte headers, or right after the 40-byte one.
  size_t afterHeader = kFileHeaderSize + headerSize;
  if (bitfields && headerSize == kInfoHeaderSize) {
    const int n = compression == kBiAlphaBitfields ? 4 : 3;
    r.seek(afterHeader);
    for (int i = 0; i < n; ++i) masks[i] = r.u32le();
    if (r.overrun()) return ctx.fail(IMK_ERR_BAD_FILE, "truncated header");
    afterHeader += 4 * n;
  }
  if (bits == 16 || bits == 32) {
    if (!bitfields) {
      masks[0] = bits == 16 ? 0x7C00 : 0xFF0000;
      masks[1] = bits == 16 ? 0x03E0 : 0x00FF00;
      masks[2] = bits == 16 ? 0x001F : 0x0000FF;
      // Plain 16/32-bit pixels have no alpha, except where a v4/v5 header
      // declares an alpha mask.
      if (headerSize < 108) masks[3] = 0;
    }
    const uint32_t limit = bits == 16 ? 0xFFFFu : 0xFFFFFFFFu;
    bool ok = makeChannel(masks[0], &L.red) && makeChannel(masks[1], &L.green) &&
              makeChannel(masks[2], &L.blue) && makeChannel(masks[3], &L.alpha);
    ok = ok && masks[0] && masks[1] && masks[2];
    for (int i = 0; i < 4 && ok; ++i) {
      ok = (masks[i] & ~limit) == 0;
      for (int j = i + 1; j < 4 && ok; ++j) ok = (masks[i] & masks[j]) == 0;
    }
    if (!ok) return ctx.fail(IMK_ERR_BAD_FILE, "bad bit field masks");
    L.hasAlpha = masks[3] != 0;
  }

  // Palette.
  L.paletteOffset = afterHeader;
  L.paletteEntrySize = headerSize == 12 ? 3 : 4;
  if (bits <= 8) {
    const int64_t most = int64_t{1} << bits;
    const int64_t room =
        dataOffset > afterHeader ? (dataOffset - afterHeader) / L.paletteEntrySize : 0;
    const bool declared = headerSize != 12 && colorsUsed != 0;
    int64_t count = declared ? colorsUsed : most;
    // Without a declared count, a palette shorter than 1 << bits ends where
    // the pixels start.
    if (!declared && room >= 1 && room < count) count = room;
    if (count > most) {
      // Surplus entries are tolerated when they really lie before the pixels.
      if (count > room) return ctx.fail(IMK_ERR_BAD_FILE, "bad palette size");
      count = most;
    }
    L.paletteCount = static_cast<int>(count);
    if (L.paletteOffset + static_cast<uint64_t>(count) * L.paletteEntrySize > ctx.size)
      return ctx.fail(IMK_ERR_BAD_FILE, "truncated palette");
    if (dataOffset < L.paletteOffset + static_cast<uint64_t>(count) * L.paletteEntrySize)
      return ctx.fail(IMK_ERR_BAD_FILE, "bad pixel data offset");
  } else if (dataOffset < afterHeader) {
    return ctx.fail(IMK_ERR_BAD_FILE, "bad pixel data offset");
  }
  if (dataOffset >= ctx.size) return ctx.fail(IMK_ERR_BAD_FILE, "no pixel data");
  L.dataOffset = dataOffset;
  L.declaredFileSize = fileSize;

  // Sizes that exceed by far anything the picture could occupy (an RLE code
  // of two bytes per pixel is the worst honest encoding) mark a broken file.
  const uint64_t need =
      compressed(L) ? (2 * static_cast<uint64_t>(L.width) + 2) * static_cast<uint64_t>(L.height) + 2
                    : rowBytes(L.width, L.bits) * L.height;
  const uint64_t slack = 2 * need + 4096;
  if (imageSize > slack) return ctx.fail(IMK_ERR_BAD_FILE, "bad image size");
  if (fileSize > ctx.size && fileSize > std::max<uint64_t>(dataOffset + slack, profileEnd))
    return ctx.fail(IMK_ERR_BAD_FILE, "bad file size");

  HeaderInfo& h = ctx.header;
  h.width = L.width;
  h.height = L.height;
  h.planes = bits == 24 ? 3 : bits == 32 ? 4 : 1;
  h.bitsPerPlane = static_cast<int16_t>(bits >= 24 ? 8 : bits);
  h.pictureCount = 1;
  return IMK_OK;
}

// What decoding left behind: the first problem found (reported once decoding
// ends) and how many rows, in file order, may hold decoded pixels.
struct Decoded {
  const char* damage = nullptr;
  int rows = 0;
  void note(const char* t) {
    if (!damage) damage = t;
  }
};

// Uncompressed rows: one file row at a time into out row y.
void decodeRow(const BmpLayout& L, const uint8_t* src, uint8_t* dst) {
  const int w = L.width;
  switch (L.bits) {
    case 1:
    case 2:
    case 4: {
      const int perByte = 8 / L.bits;
      const int mask = (1 << L.bits) - 1;
      for (int x = 0; x < w; ++x) {
        const int shift = 8 - L.bits * (x % perByte + 1);
        dst[x] = static_cast<uint8_t>((src[x / perByte] >> shift) & mask);
      }
      return;
    }
    case 8:
      std::memcpy(dst, src, static_cast<size_t>(w));
      return;
    case 24:
      for (int x = 0; x < w; ++x, src += 3, dst += 3)
        dst[0] = src[2], dst[1] = src[1], dst[2] = src[0];
      return;
    default: {
      const int step = L.bits / 8;
      const int outStep = L.hasAlpha ? 4 : 3;
      for (int x = 0; x < w; ++x, src += step, dst += outStep) {
        uint32_t v = src[0] | (static_cast<uint32_t>(src[1]) << 8);
        if (step == 4)
          v |= (static_cast<uint32_t>(src[2]) << 16) | (static_cast<uint32_t>(src[3]) << 24);
        dst[0] = L.red.get(v);
        dst[1] = L.green.get(v);
        dst[2] = L.blue.get(v);
        if (L.hasAlpha) dst[3] = L.alpha.get(v);
      }
      return;
    }
  }
}

int decodeUncompressed(ReadContext& ctx, const BmpLayout& L, Picture& pic, Decoded& decoded) {
  const size_t stride = static_cast<size_t>(rowBytes(L.width, L.bits));
  ByteReader r(ctx.data, ctx.size);
  r.seek(L.dataOffset);
  std::vector<uint8_t> row(stride);
  for (int i = 0; i < L.height; ++i) {
    const bool whole = r.bytes(row.data(), stride);
    decodeRow(L, row.data(), pic.row(L.topDown ? i : L.height - 1 - i));
    decoded.rows = i + 1;
    if (!whole) {
      decoded.note("truncated");
      break;
    }
    if (ctx.advanceProgress(i + 1)) return IMK_ERR_STOPPED;
  }
  return IMK_OK;
}

// RLE8 / RLE4. Rows count from the bottom; pixels the codes skip keep index 0.
// Some writers encode the padding of a row as pixels (a run ending at the
// 4-byte boundary an uncompressed row would have): those surplus pixels are
// dropped. Codes reaching beyond that, or outside the picture, are damage.
// Without a picture the codes are only followed: `reached` tells how many
// rows they cover, before anything is allocated.
int decodeRle(ReadContext& ctx, const BmpLayout& L, Picture* pic, Decoded& decoded,
              int* reached = nullptr) {
  const bool four = L.compression == kBiRle4;
  ByteReader r(ctx.data, ctx.size);
  r.seek(L.dataOffset);
  const int w = L.width, h = L.height;
  const int64_t slots = static_cast<int64_t>(rowBytes(w, L.bits)) * 8 / L.bits;
  int64_t x = 0;
  int y = 0;
  // Pixel i of a run comes from pick(i); only those inside the row are kept.
  auto runFits = [&](int n) {
    if (x + n <= slots) return true;
    decoded.note("RLE run past end of row");
    return false;
  };
  auto store = [&](int n, auto pick) {
    decoded.rows = y + 1;
    if (pic) {
      uint8_t* dst = pic->row(h - 1 - y);
      const int64_t end = std::min<int64_t>(x + n, w);
      for (int64_t i = x; i < end; ++i) dst[i] = pick(static_cast<int>(i - x));
    }
    x += n;
  };
  auto progress = [&] { return pic && ctx.advanceProgress(y); };
  struct Reach {
    int* out;
    const int& y;
    const int64_t& x;
    ~Reach() {
      if (out) *out = y + (x > 0);
    }
  } reach{reached, y, x};
  while (y < h) {
    const uint8_t count = r.u8();
    const uint8_t value = r.u8();
    if (r.overrun()) {
      // A file may end without a final end-of-line once every pixel is set.
      if (y < h - 1 || x < w) decoded.note("truncated");
      return IMK_OK;
    }
    if (count > 0) {  // encoded run
      if (!runFits(count)) return IMK_OK;
      store(count,
            [&](int i) -> uint8_t { return four ? (i & 1 ? value & 15 : value >> 4) : value; });
      continue;
    }
    switch (value) {
      case 0:  // end of line
        x = 0;
        ++y;
        if (progress()) return IMK_ERR_STOPPED;
        break;
      case 1:  // end of bitmap
        // An early end in a file shorter than its header says is a cut file
        // whose last bytes happen to read as this code.
        if (y < h - 1 && L.declaredFileSize > ctx.size) decoded.note("truncated");
        return IMK_OK;
      case 2: {  // delta
        const int dx = r.u8(), dy = r.u8();
        if (r.overrun()) {
          decoded.note("truncated");
          return IMK_OK;
        }
        x += dx;
        y += dy;
        if (x > slots || y > h || (y == h && x > 0)) {
          decoded.note("RLE delta outside picture");
          return IMK_OK;
        }
        if (dy && progress()) return IMK_ERR_STOPPED;
        break;
      }
      default: {  // absolute run of `value` pixels, padded to 16 bits
        const int n = value;
        const size_t bytes = four ? (n + 1) / 2 : n;
        const uint8_t* src = r.peek(bytes);
        if (!runFits(n)) return IMK_OK;
        if (!src) {
          decoded.note("truncated");
          return IMK_OK;
        }
        store(n, [&](int i) -> uint8_t {
          return four ? (i & 1 ? src[i / 2] & 15 : src[i / 2] >> 4) : src[i];
        });
        r.skip(bytes + (bytes & 1));
        break;
      }
    }
  }
  return IMK_OK;
}

// Copies the palette, checks every index against it and turns black/white
// and grey-ramp palettes into binary and grey pictures.
void finishPalette(ReadContext& ctx, const BmpLayout& L, Picture& pic, Decoded& decoded) {
  ImageRecord& rec = pic.rec();
  ByteReader r(ctx.data, ctx.size);
  r.seek(L.paletteOffset);
  std::memset(rec.palette, 0, 768);
  for (int i = 0; i < L.paletteCount; ++i) {
    rec.palette[512 + i] = r.u8();
    rec.palette[256 + i] = r.u8();
    rec.palette[i] = r.u8();
    if (L.paletteEntrySize == 4) r.u8();
  }
  // Rows never reached hold index 0, which every palette has; a huge picture
  // cut short is not scanned in full.
  int highest = 0;
  for (int i = 0; i < decoded.rows; ++i) {
    const uint8_t* row = pic.row(L.topDown ? i : L.height - 1 - i);
    for (int x = 0; x < rec.width; ++x) highest = std::max<int>(highest, row[x]);
  }
  rec.colorCount = L.paletteCount;
  if (highest >= L.paletteCount) {
    // Missing entries stay black.
    decoded.note("palette index out of range");
    rec.colorCount = highest + 1;
  }
  simplifyMappedPicture(rec);
  if (rec.type != IMK_MAPPED || rec.colorCount < 3) return;
  for (int i = 0; i < rec.colorCount; ++i) {
    const uint8_t v = greyLevelIntensity(i, rec.colorCount);
    if (rec.palette[i] != v || rec.palette[256 + i] != v || rec.palette[512 + i] != v) return;
  }
  rec.type = IMK_GREY;
}

bool sniffBmp(const uint8_t* data, size_t size) {
  if (size < kFileHeaderSize + 4 || data[0] != 'B' || data[1] != 'M') return false;
  const uint32_t headerSize =
      data[14] | (data[15] << 8) | (data[16] << 16) | (uint32_t{data[17]} << 24);
  return headerSize >= 12 && headerSize <= 256;
}

int infoBmp(ReadContext& ctx) {
  BmpLayout layout;
  return parseHeaders(ctx, layout);
}

int readBmp(ReadContext& ctx, Picture& out) {
  BmpLayout L;
  if (int rc = parseHeaders(ctx, L)) return rc;
  // A file too short for its uncompressed pixels fails before anything is
  // allocated. (Run-length data has no such bound: its codes may skip rows
  // or end the picture early.)
  if (!compressed(L))
    if (int rc = ctx.requireData(uint64_t{rowBytes(L.width, L.bits)} * L.height,
                                 ctx.size - L.dataOffset))
      return rc;
  // Run-length codes can skip rows or end the picture early, so their size
  // says little. A picture larger than delta codes could cover with this
  // many bytes (4 bytes for 255 x 255 pixels) must have codes reaching a fair
  // share of its rows.
  if (compressed(L) && uint64_t{static_cast<uint32_t>(L.width)} * L.height >
                           uint64_t{ctx.size} / 4 * 255 * 255) {
    Decoded scan;
    int reached = 0;
    decodeRle(ctx, L, nullptr, scan, &reached);
    if (static_cast<uint64_t>(L.height) / ReadContext::kLeastShare > static_cast<uint64_t>(reached))
      return ctx.fail(IMK_ERR_BAD_FILE, "too little data for the picture");
  }
  const uint16_t kind = L.bits <= 8 ? IMK_MAPPED : L.hasAlpha ? IMK_RGBX : IMK_RGB;
  if (!sizeAcceptable(L.width, L.height, bytesPerPixelOf(kind)))
    return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  if (!out.allocate(kind, L.width, L.height)) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  if (ctx.beginProgress(L.height)) return IMK_ERR_STOPPED;
  Decoded decoded;
  const int rc =
      compressed(L) ? decodeRle(ctx, L, &out, decoded) : decodeUncompressed(ctx, L, out, decoded);
  if (rc) return rc;
  if (L.bits <= 8) finishPalette(ctx, L, out, decoded);
  if (decoded.damage) return ctx.damaged(IMK_ERR_CORRUPT, decoded.damage);
  return IMK_OK;
}

// ---------------------------------------------------------------------------
// Writing.

// Collects little-endian fields of a header.
struct Bytes {
  std::vector<uint8_t> data;
  void u8(uint32_t v) { data.push_back(static_cast<uint8_t>(v)); }
  void u16(uint32_t v) { u8(v), u8(v >> 8); }
  void u32(uint32_t v) { u16(v), u16(v >> 16); }
};

// Run-length codes for one row of indices (RLE8 or, with `four`, RLE4),
// followed by an end-of-line code. Runs of one colour use encoded mode;
// stretches without repeats use absolute mode (at least 3 pixels).
void encodeRleRow(const uint8_t* idx, int w, bool four, Bytes& out) {
  int x = 0;
  auto runAt = [&](int i) {
    int n = 1;
    while (i + n < w && n < 255 && idx[i + n] == idx[i]) ++n;
    return n;
  };
  while (x < w) {
    const int run = runAt(x);
    if (run >= 3 || w - x < 3) {
      const int n = run;
      out.u8(static_cast<uint32_t>(n));
      out.u8(four ? static_cast<uint32_t>(idx[x] << 4 | idx[x]) : idx[x]);
      x += n;
      continue;
    }
    // Literal stretch up to the next run of three or more.
    int end = x;
    while (end < w && end - x < 255 && (end == x || runAt(end) < 3)) ++end;
    int n = end - x;
    if (n < 3) n = std::min(3, w - x);
    out.u8(0);
    out.u8(static_cast<uint32_t>(n));
    size_t bytes = 0;
    for (int i = 0; i < n; i += four ? 2 : 1, ++bytes) {
      if (four)
        out.u8(static_cast<uint32_t>(idx[x + i] << 4 | (i + 1 < n ? idx[x + i + 1] : 0)));
      else
        out.u8(idx[x + i]);
    }
    if (bytes & 1) out.u8(0);
    x += n;
  }
  out.u16(0);  // end of line
}

// Packs indices of `bits` bits each, most significant first, into a padded row.
void packRow(const uint8_t* idx, int w, int bits, uint8_t* out) {
  const int perByte = 8 / bits;
  for (int x = 0; x < w; ++x) {
    const int shift = 8 - bits * (x % perByte + 1);
    out[x / perByte] = static_cast<uint8_t>(out[x / perByte] | (idx[x] << shift));
  }
}

bool put(FILE* f, const void* p, size_t n) { return n == 0 || std::fwrite(p, 1, n, f) == n; }

int writeBmp(WriteContext& ctx, const ImageRecord& pic) {
  FILE* f = ctx.out.file();
  const int w = pic.width, h = pic.height;
  const bool trueColor = isTrueColor(pic.type);
  const bool alpha = pic.type == IMK_RGBX;

  // Palette pictures: binary as 1-bit; grey and mapped as 4-bit up to 16
  // entries, else 8-bit. Indices past the palette are clamped to its end.
  int colors = 0, bits;
  uint8_t palette[256][3] = {};
  if (pic.type == IMK_BINARY) {
    colors = 2, bits = 1;
    palette[1][0] = palette[1][1] = palette[1][2] = 255;
  } else if (!trueColor) {
    colors = pic.colorCount >= 1 && pic.colorCount <= 256 ? pic.colorCount : 256;
    bits = colors <= 16 ? 4 : 8;
    for (int i = 0; i < colors; ++i) {
      if (pic.type == IMK_GREY) {
        palette[i][0] = palette[i][1] = palette[i][2] = greyLevelIntensity(i, colors);
      } else if (!pic.palette) {  // a caller's record without a palette: grey
        palette[i][0] = palette[i][1] = palette[i][2] = static_cast<uint8_t>(i);
      } else {
        palette[i][0] = pic.palette[i], palette[i][1] = pic.palette[256 + i],
        palette[i][2] = pic.palette[512 + i];
      }
    }
  } else {
    bits = alpha ? 32 : 24;
  }
  const bool rle = !trueColor && bits >= 4 && ctx.options.saveOption == 1;
  const uint32_t headerSize = alpha ? kV4HeaderSize : kInfoHeaderSize;
  const uint32_t stride = static_cast<uint32_t>(rowBytes(w, bits));

  if (ctx.progress.begin(h)) return IMK_ERR_STOPPED;
  // Pixel rows, bottom-up. RLE data is built in memory first since its
  // length goes into the headers; plain rows stream straight to the file.
  Bytes rleData;
  std::vector<uint8_t> idx(static_cast<size_t>(w)), row(std::max<size_t>(stride, size_t(w) * 4));
  auto indicesOf = [&](int y) {
    const uint8_t* src = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
    for (int x = 0; x < w; ++x)
      idx[x] = pic.type == IMK_BINARY ? (src[x] != 0) : std::min<int>(src[x], colors - 1);
  };
  if (rle) {
    for (int i = 0; i < h; ++i) {
      indicesOf(h - 1 - i);
      encodeRleRow(idx.data(), w, bits == 4, rleData);
      if (ctx.progress.advance(i + 1)) return IMK_ERR_STOPPED;
    }
    rleData.u16(0x0100);  // end of bitmap
  }
  const uint32_t paletteBytes = 4u * colors;
  const uint32_t dataOffset = kFileHeaderSize + headerSize + paletteBytes;
  const uint64_t imageSize = rle ? rleData.data.size() : uint64_t{stride} * h;
  if (dataOffset + imageSize > 0xFFFFFFFFu) return IMK_ERR_CANNOT_SAVE;

  Bytes head;
  head.u8('B');
  head.u8('M');
  head.u32(static_cast<uint32_t>(dataOffset + imageSize));
  head.u32(0);
  head.u32(dataOffset);
  head.u32(headerSize);
  head.u32(static_cast<uint32_t>(w));
  head.u32(static_cast<uint32_t>(h));
  head.u16(1);
  head.u16(static_cast<uint32_t>(bits));
  head.u32(rle ? (bits == 8 ? kBiRle8 : kBiRle4) : alpha ? kBiBitfields : kBiRgb);
  head.u32(static_cast<uint32_t>(imageSize));
  head.u32(kPixelsPerMetre);
  head.u32(kPixelsPerMetre);
  head.u32(static_cast<uint32_t>(colors));
  head.u32(0);
  if (alpha) {
    head.u32(0x00FF0000);
    head.u32(0x0000FF00);
    head.u32(0x000000FF);
    head.u32(0xFF000000);
    head.u32(0x73524742);                      // colour space 'sRGB'
    for (int i = 0; i < 12; ++i) head.u32(0);  // end points, gamma
  }
  for (int i = 0; i < colors; ++i) {
    head.u8(palette[i][2]);
    head.u8(palette[i][1]);
    head.u8(palette[i][0]);
    head.u8(0);
  }
  if (!put(f, head.data.data(), head.data.size())) return IMK_ERR_WRITE;

  if (rle) {
    if (!put(f, rleData.data.data(), rleData.data.size())) return IMK_ERR_WRITE;
  } else {
    std::vector<uint8_t> rgba(static_cast<size_t>(w) * 4);
    for (int i = 0; i < h; ++i) {
      const int y = h - 1 - i;
      std::fill(row.begin(), row.end(), 0);
      if (!trueColor) {
        indicesOf(y);
        packRow(idx.data(), w, bits, row.data());
      } else if (alpha) {
        rowToRgba(pic, y, rgba.data());
        for (int x = 0; x < w; ++x) {
          const uint8_t* p = &rgba[x * 4];
          uint8_t* o = &row[x * 4];
          o[0] = p[2], o[1] = p[1], o[2] = p[0], o[3] = p[3];
        }
      } else {
        rowToRgb(pic, y, rgba.data());
        for (int x = 0; x < w; ++x) {
          const uint8_t* p = &rgba[x * 3];
          uint8_t* o = &row[x * 3];
          o[0] = p[2], o[1] = p[1], o[2] = p[0];
        }
      }
      if (!put(f, row.data(), stride)) return IMK_ERR_WRITE;
      if (ctx.progress.advance(i + 1)) return IMK_ERR_STOPPED;
    }
  }
  return std::ferror(f) ? IMK_ERR_WRITE : IMK_OK;
}

}  // namespace

const Codec kBmpCodec = {"bmp",
                         "BMP",
                         {"bmp", "dib"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize},
                          {IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_MAPPED, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         sniffBmp,
                         infoBmp,
                         readBmp,
                         writeBmp};

}  // namespace imk
