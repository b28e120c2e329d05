// Windows icons (ICO) and cursors (CUR). A 6-byte header (0, type 1 = icon
// / 2 = cursor, entry count) and a directory of 16-byte entries (size, colour
// count, planes and bit count, or the hot spot of a cursor, data length and
// offset) lead to one picture per entry, each either a PNG file or a DIB
// without its file header: a BITMAPINFOHEADER whose height counts two
// bitmaps, the palette, the colour (XOR) rows and a one-bit AND mask, both
// bottom-up with rows padded to 32 bits.
//
// Every entry is a picture of the file, in directory order. PNG entries go
// through the library's PNG reader. DIB entries of 1, 4, 8, 24 and 32 bits:
// the mask is the transparency of 1- to 24-bit entries, and of 32-bit entries
// whose alpha bytes are all zero (older icons); other 32-bit entries carry
// their own alpha. An entry with a transparent pixel reads as R,G,B + alpha
// (kind 512; transparent pixels keep their stored colour), one without as a
// colour-mapped (binary / grey when exact) or R,G,B picture. The directory's
// length fields are unreliable in real files: an entry's data runs from its
// offset to the end of the file, and its own header gives its size. Bitmap
// entries above 1024 pixels a side are refused (the directory describes at
// most 256). A v5 header whose embedded colour profile overlaps the mask
// has no mask.
//
// Writing stores the picture as one entry: binary as 1-bit, grey and
// colour-mapped as 4-bit (up to 16 entries) or 8-bit palettes, true colour as
// 32-bit B,G,R,A with an AND mask set where alpha is 0. Pictures above 256
// pixels a side cannot be saved. A cursor's hot spot is (0, 0); cursors are
// declared 32 x 32, the classic size, which the save path converts to, but
// the writer takes any size up to 256.
#include <algorithm>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

constexpr size_t kHeaderSize = 6;
constexpr size_t kEntrySize = 16;
constexpr uint32_t kDibHeaderSize = 40;
constexpr int32_t kMaxBitmapSide = 1024;
constexpr int kMaxWriteSide = 256;
constexpr uint8_t kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

enum : uint16_t { kIcon = 1, kCursor = 2 };

// The directory, checked against the file: the data offset of each entry.
// 0 or an error code.
int parseDirectory(ReadContext& ctx, std::vector<uint32_t>& offsets) {
  ByteReader r(ctx.data, ctx.size);
  if (ctx.size < kHeaderSize) return ctx.fail(IMK_ERR_BAD_FILE, "file too short");
  const uint16_t reserved = r.u16le(), type = r.u16le(), count = r.u16le();
  if (reserved != 0 || (type != kIcon && type != kCursor))
    return ctx.fail(IMK_ERR_BAD_FILE, "not an icon or cursor file");
  if (count == 0) return ctx.fail(IMK_ERR_BAD_FILE, "no pictures in file");
  const size_t directoryEnd = kHeaderSize + kEntrySize * count;
  if (directoryEnd > ctx.size) return ctx.fail(IMK_ERR_BAD_FILE, "truncated directory");
  offsets.resize(count);
  for (uint32_t& offset : offsets) {
    // Size, colour count, reserved, planes / hot spot, bits / hot spot and
    // the data length are not needed.
    r.skip(12);
    offset = r.u32le();
  }
  ctx.header.pictureCount = count;
  if (ctx.pictureIndex() >= count) return ctx.fail(IMK_ERR_BAD_FILE, "no such picture in file");
  const uint32_t offset = offsets[ctx.pictureIndex()];
  if (offset < directoryEnd || offset >= ctx.size)
    return ctx.fail(IMK_ERR_BAD_FILE, "entry offset outside file");
  return IMK_OK;
}

bool isPng(const uint8_t* data, size_t size) {
  return size >= sizeof kPngSignature &&
         std::memcmp(data, kPngSignature, sizeof kPngSignature) == 0;
}

// A DIB entry, from its validated header.
struct Dib {
  int32_t width = 0, height = 0;
  int bits = 0;
  int colours = 0;  // palette entries used
  size_t paletteOffset = 0, xorOffset = 0, xorStride = 0, andOffset = 0, andStride = 0;
  bool hasMask = true;
};

constexpr uint32_t kEmbeddedProfile = 0x4D424544;  // 'MBED'

int parseDib(ReadContext& ctx, const uint8_t* data, size_t size, Dib& d) {
  ByteReader r(data, size);
  const uint32_t headerSize = r.u32le();
  d.width = static_cast<int32_t>(r.u32le());
  const auto doubleHeight = static_cast<int32_t>(r.u32le());
  r.skip(2);  // planes: often 0, not used
  d.bits = r.u16le();
  const uint32_t compression = r.u32le();
  r.skip(12);  // image size, density
  const uint32_t colorsUsed = r.u32le();
  if (r.overrun() || headerSize < kDibHeaderSize || headerSize > 124 || headerSize > size)
    return ctx.fail(IMK_ERR_BAD_FILE, "bad icon bitmap header");
  if (d.bits != 1 && d.bits != 4 && d.bits != 8 && d.bits != 24 && d.bits != 32)
    return ctx.fail(IMK_ERR_BAD_FILE, "unsupported icon bit depth");
  if (compression != 0) return ctx.fail(IMK_ERR_BAD_FILE, "unsupported icon compression");
  d.height = doubleHeight / 2;
  if (d.width <= 0 || d.height <= 0) return ctx.fail(IMK_ERR_BAD_FILE, "bad icon dimensions");
  if (d.width > kMaxBitmapSide || d.height > kMaxBitmapSide)
    return ctx.fail(IMK_ERR_BAD_FILE, "icon bitmap too large");
  uint32_t inFile = 0;
  if (d.bits <= 8) {
    const uint32_t most = 1u << d.bits;
    if (colorsUsed > 256) return ctx.fail(IMK_ERR_BAD_FILE, "bad palette size");
    inFile = colorsUsed ? colorsUsed : most;
    d.colours = static_cast<int>(std::min(inFile, most));
  }
  d.paletteOffset = headerSize;
  d.xorOffset = headerSize + size_t{4} * inFile;
  d.xorStride = (static_cast<size_t>(d.width) * d.bits + 31) / 32 * 4;
  d.andOffset = d.xorOffset + d.xorStride * d.height;
  d.andStride = (static_cast<size_t>(d.width) + 31) / 32 * 4;
  if (headerSize >= 124) {
    // A v5 header's embedded colour profile may lie where the mask would
    // be: those bytes are the profile, and the entry has no mask.
    r.seek(56);
    const uint32_t colourSpace = r.u32le();
    r.seek(112);
    const uint64_t profileStart = r.u32le(), profileEnd = profileStart + r.u32le();
    const uint64_t maskEnd = d.andOffset + d.andStride * d.height;
    if (colourSpace == kEmbeddedProfile && profileStart < maskEnd && profileEnd > d.andOffset)
      d.hasMask = false;
  }
  HeaderInfo& h = ctx.header;
  h.width = d.width;
  h.height = d.height;
  h.planes = static_cast<int16_t>(d.bits == 24 ? 3 : d.bits == 32 ? 4 : 1);
  h.bitsPerPlane = static_cast<int16_t>(d.bits > 8 ? 8 : d.bits);
  return IMK_OK;
}

// Reads a PNG entry with the PNG codec: `read` decodes, else headers only.
int pngEntry(ReadContext& ctx, const uint8_t* data, size_t size, Picture* out) {
  LoadOptions options = ctx.options;
  options.pictureIndex = 0;
  ReadContext sub(data, size, options);
  const int rc = out ? kPngCodec.read(sub, *out) : kPngCodec.info(sub);
  if (!sub.errorText().empty()) ctx.fail(rc, sub.errorText().c_str());
  const int32_t count = ctx.header.pictureCount;
  ctx.header = sub.header;
  ctx.header.pictureCount = count;
  return rc;
}

// Rows of a DIB entry as the file stores them (row i is picture row h-1-i).
struct DibRows {
  const Dib& d;
  ByteReader bytes;
  const uint8_t* xorRow(int i) const { return at(d.xorOffset + d.xorStride * i, d.xorStride); }
  const uint8_t* andRow(int i) const {
    return d.hasMask ? at(d.andOffset + d.andStride * i, d.andStride) : nullptr;
  }
  bool masked(const uint8_t* andRow, int x) const {
    return andRow && ((andRow[x >> 3] >> (7 - (x & 7))) & 1);
  }
  // nullptr when the file does not hold the whole row.
  const uint8_t* at(size_t offset, size_t n) const {
    return offset + n <= bytes.size() ? bytes.data() + offset : nullptr;
  }
};

// Whether the picture has transparent pixels, and where they come from.
struct Transparency {
  bool alphaBytes = false;  // 32-bit entry with its own alpha
  bool any = false;
};

Transparency transparencyOf(const DibRows& rows) {
  const Dib& d = rows.d;
  Transparency t;
  if (d.bits == 32) {
    for (int i = 0; i < d.height && !t.alphaBytes; ++i)
      if (const uint8_t* row = rows.xorRow(i))
        for (int x = 0; x < d.width && !t.alphaBytes; ++x) t.alphaBytes = row[4 * x + 3] != 0;
  }
  for (int i = 0; i < d.height && !t.any; ++i) {
    if (t.alphaBytes) {
      if (const uint8_t* row = rows.xorRow(i))
        for (int x = 0; x < d.width && !t.any; ++x) t.any = row[4 * x + 3] != 255;
    } else {
      const uint8_t* mask = rows.andRow(i);
      for (int x = 0; x < d.width && !t.any; ++x) t.any = rows.masked(mask, x);
    }
  }
  return t;
}

int dibEntry(ReadContext& ctx, const uint8_t* data, size_t size, Picture& out) {
  Dib d;
  if (int rc = parseDib(ctx, data, size, d)) return rc;
  const DibRows rows{d, ByteReader(data, size)};
  const Transparency t = transparencyOf(rows);
  const size_t need =
      t.alphaBytes || !d.hasMask ? d.andOffset : d.andOffset + d.andStride * d.height;
  if (int rc = ctx.requireData(need, size)) return rc;
  const uint16_t kind = t.any ? IMK_RGBX : d.bits <= 8 ? IMK_MAPPED : IMK_RGB;
  if (!out.allocate(kind, d.width, d.height)) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  ImageRecord& rec = out.rec();
  uint8_t palette[256][3] = {};  // R,G,B; the file stores B,G,R,0
  ByteReader pal(data, size);
  pal.seek(d.paletteOffset);
  for (int i = 0; i < d.colours; ++i) {
    palette[i][2] = pal.u8();
    palette[i][1] = pal.u8();
    palette[i][0] = pal.u8();
    pal.u8();
  }
  if (ctx.beginProgress(d.height)) return IMK_ERR_STOPPED;
  const char* damage = need > size ? "truncated" : nullptr;
  const int bpp = rec.bytesPerPixel;
  for (int i = 0; i < d.height; ++i) {
    const uint8_t* src = rows.xorRow(i);
    const uint8_t* mask = rows.andRow(i);
    if (!src) break;  // rows the file lacks stay zero
    uint8_t* dst = out.row(d.height - 1 - i);
    for (int x = 0; x < d.width; ++x) {
      uint8_t rgb[3];
      uint8_t alpha = rows.masked(mask, x) ? 0 : 255;
      if (d.bits <= 8) {
        const int perByte = 8 / d.bits;
        int index = (src[x / perByte] >> (8 - d.bits * (x % perByte + 1))) & ((1 << d.bits) - 1);
        if (index >= d.colours) {
          if (!damage) damage = "palette index out of range";
          index = d.colours - 1;
        }
        if (kind == IMK_MAPPED) {
          dst[x] = static_cast<uint8_t>(index);
          continue;
        }
        std::memcpy(rgb, palette[index], 3);
      } else {
        const uint8_t* p = src + static_cast<size_t>(x) * (d.bits / 8);
        rgb[0] = p[2], rgb[1] = p[1], rgb[2] = p[0];
        if (t.alphaBytes) alpha = p[3];
      }
      uint8_t* o = dst + static_cast<size_t>(x) * bpp;
      o[0] = rgb[0], o[1] = rgb[1], o[2] = rgb[2];
      if (bpp == 4) o[3] = alpha;
    }
    if (ctx.advanceProgress(i + 1)) return IMK_ERR_STOPPED;
  }
  if (kind == IMK_MAPPED) {
    for (int i = 0; i < d.colours; ++i)
      for (int c = 0; c < 3; ++c) rec.palette[256 * c + i] = palette[i][c];
    rec.colorCount = d.colours;
    simplifyMappedPicture(rec);
  }
  if (damage) return ctx.damaged(IMK_ERR_CORRUPT, damage);
  return IMK_OK;
}

bool sniffType(const uint8_t* data, size_t size, uint16_t type) {
  if (size < kHeaderSize + kEntrySize || data[0] || data[1] || data[2] != type || data[3])
    return false;
  const size_t count = data[4] | data[5] << 8;
  const size_t offset = data[18] | data[19] << 8 | size_t{data[20]} << 16 | size_t{data[21]} << 24;
  // At least one entry, and the first one's data follows the directory.
  return count > 0 && offset >= kHeaderSize + kEntrySize * count;
}

bool sniffIco(const uint8_t* data, size_t size) { return sniffType(data, size, kIcon); }
bool sniffCur(const uint8_t* data, size_t size) { return sniffType(data, size, kCursor); }

// The data of the picture asked for, from its offset to the end of the file.
struct EntryData {
  const uint8_t* data = nullptr;
  size_t size = 0;
};

int findEntry(ReadContext& ctx, EntryData& e) {
  std::vector<uint32_t> offsets;
  if (int rc = parseDirectory(ctx, offsets)) return rc;
  const uint32_t offset = offsets[ctx.pictureIndex()];
  e.data = ctx.data + offset;
  e.size = ctx.size - offset;
  return IMK_OK;
}

int info(ReadContext& ctx) {
  EntryData e;
  if (int rc = findEntry(ctx, e)) return rc;
  if (isPng(e.data, e.size)) return pngEntry(ctx, e.data, e.size, nullptr);
  Dib d;
  return parseDib(ctx, e.data, e.size, d);
}

int read(ReadContext& ctx, Picture& out) {
  EntryData e;
  if (int rc = findEntry(ctx, e)) return rc;
  if (isPng(e.data, e.size)) return pngEntry(ctx, e.data, e.size, &out);
  return dibEntry(ctx, e.data, e.size, out);
}

// ---------------------------------------------------------------------------
// Writing.

void putLe(std::vector<uint8_t>& out, uint32_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

int writeEntry(WriteContext& ctx, const ImageRecord& pic, uint16_t type) {
  FILE* f = ctx.out.file();
  if (!f) return IMK_ERR_WRITE;
  const int w = pic.width, h = pic.height;
  if (w > kMaxWriteSide || h > kMaxWriteSide) return IMK_ERR_CANNOT_SAVE;
  if (pic.type == IMK_MAPPED && !pic.palette) return IMK_ERR_CANNOT_SAVE;
  // Palette of binary, grey and colour-mapped pictures; none for true colour.
  int colours = 0, bits = 32;
  uint8_t palette[256][3] = {};
  if (pic.type == IMK_BINARY) {
    colours = 2, bits = 1;
    palette[1][0] = palette[1][1] = palette[1][2] = 255;
  } else if (pic.type == IMK_GREY || pic.type == IMK_MAPPED) {
    colours = std::clamp(pic.colorCount, 1, 256);
    bits = colours <= 16 ? 4 : 8;
    for (int i = 0; i < colours; ++i) {
      if (pic.type == IMK_GREY) {
        palette[i][0] = palette[i][1] = palette[i][2] = greyLevelIntensity(i, colours);
      } else {
        palette[i][0] = pic.palette[i], palette[i][1] = pic.palette[256 + i],
        palette[i][2] = pic.palette[512 + i];
      }
    }
  }
  const size_t xorStride = (static_cast<size_t>(w) * bits + 31) / 32 * 4;
  const size_t andStride = (static_cast<size_t>(w) + 31) / 32 * 4;
  const size_t bitmapSize = (xorStride + andStride) * h;
  const size_t entrySize = kDibHeaderSize + 4 * static_cast<size_t>(colours) + bitmapSize;

  std::vector<uint8_t> b;
  putLe(b, 0, 2);
  putLe(b, type, 2);
  putLe(b, 1, 2);
  putLe(b, static_cast<uint32_t>(w & 0xFF), 1);  // 256 is written as 0
  putLe(b, static_cast<uint32_t>(h & 0xFF), 1);
  putLe(b, static_cast<uint32_t>(bits < 8 ? colours : 0), 1);
  putLe(b, 0, 1);
  putLe(b, type == kCursor ? 0 : 1, 2);                            // planes, or the hot spot x
  putLe(b, type == kCursor ? 0 : static_cast<uint32_t>(bits), 2);  // bits, or hot spot y
  putLe(b, static_cast<uint32_t>(entrySize), 4);
  putLe(b, kHeaderSize + kEntrySize, 4);
  putLe(b, kDibHeaderSize, 4);
  putLe(b, static_cast<uint32_t>(w), 4);
  putLe(b, static_cast<uint32_t>(2 * h), 4);
  putLe(b, 1, 2);
  putLe(b, static_cast<uint32_t>(bits), 2);
  putLe(b, 0, 4);  // uncompressed
  putLe(b, static_cast<uint32_t>(bitmapSize), 4);
  putLe(b, 0, 4);  // density
  putLe(b, 0, 4);
  putLe(b, static_cast<uint32_t>(colours), 4);
  putLe(b, 0, 4);
  for (int i = 0; i < colours; ++i) {
    putLe(b, palette[i][2], 1);
    putLe(b, palette[i][1], 1);
    putLe(b, palette[i][0], 1);
    putLe(b, 0, 1);
  }

  if (ctx.progress.begin(h)) return IMK_ERR_STOPPED;
  // Colour rows, then mask rows, both bottom-up.
  std::vector<uint8_t> xorRows(xorStride * h), andRows(andStride * h),
      rgba(static_cast<size_t>(w) * 4);
  for (int i = 0; i < h; ++i) {
    const int y = h - 1 - i;
    uint8_t* xr = &xorRows[xorStride * i];
    uint8_t* ar = &andRows[andStride * i];
    const uint8_t* src = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
    if (bits == 32) {
      rowToRgba(pic, y, rgba.data());
      for (int x = 0; x < w; ++x) {
        const uint8_t* p = &rgba[4 * static_cast<size_t>(x)];
        xr[4 * x] = p[2], xr[4 * x + 1] = p[1], xr[4 * x + 2] = p[0], xr[4 * x + 3] = p[3];
        if (p[3] == 0) ar[x >> 3] |= static_cast<uint8_t>(0x80 >> (x & 7));
      }
    } else {
      const int perByte = 8 / bits;
      for (int x = 0; x < w; ++x) {
        const int index = pic.type == IMK_BINARY ? src[x] != 0 : std::min<int>(src[x], colours - 1);
        xr[x / perByte] |= static_cast<uint8_t>(index << (8 - bits * (x % perByte + 1)));
      }
    }
    if (ctx.progress.advance(i + 1)) return IMK_ERR_STOPPED;
  }
  b.insert(b.end(), xorRows.begin(), xorRows.end());
  b.insert(b.end(), andRows.begin(), andRows.end());
  if (std::fwrite(b.data(), 1, b.size(), f) != b.size()) return IMK_ERR_WRITE;
  return std::ferror(f) ? IMK_ERR_WRITE : IMK_OK;
}

int writeIco(WriteContext& ctx, const ImageRecord& pic) { return writeEntry(ctx, pic, kIcon); }
int writeCur(WriteContext& ctx, const ImageRecord& pic) { return writeEntry(ctx, pic, kCursor); }

constexpr uint32_t kCursorSide = 32;

}  // namespace

const Codec kIcoCodec = {"ico",
                         "Windows Icon",
                         {"ico"},
                         IMK_CAN_READ | IMK_CAN_WRITE | IMK_MULTI_PICTURE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize},
                          {IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_MAPPED, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         sniffIco,
                         info,
                         read,
                         writeIco};

const Codec kCurCodec = {"cur",
                         "Windows Cursor",
                         {"cur"},
                         IMK_CAN_READ | IMK_CAN_WRITE | IMK_MULTI_PICTURE,
                         {{IMK_BINARY, 2, kCursorSide, kCursorSide},
                          {IMK_GREY, 256, kCursorSide, kCursorSide},
                          {IMK_MAPPED, 256, kCursorSide, kCursorSide},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kCursorSide, kCursorSide},
                          kEndKinds},
                         sniffCur,
                         info,
                         read,
                         writeCur};

}  // namespace imk
