// PCX pictures, and the multi-page DCX files that bundle them.
//
// Reads 1-bit (black/white, or two colours from the header palette), 2- and
// 4-bit packed pixels, 2 to 4 planes of 1 bit (16-colour header palette),
// 8-bit with the 256-colour palette at the end of the page (without one the
// levels are grey), 24-bit as three planes of 8 and RGBA as four. Pixel data
// may be run-length encoded (encoding 1) or stored plainly (encoding 0). A DCX
// file is a table of page offsets followed by the PCX pages.
//
// Writes binary pictures as 1-bit, grey and colour-mapped pictures as 8-bit
// with the 256-colour palette, true colour as three 8-bit planes; saveOption 1
// run-length encodes the pixels, 0 stores them plainly.
//
// Every header field is checked before use; the run-length decoder fills one
// scan line at a time and never writes past it, whatever the runs claim.
#include <algorithm>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

constexpr size_t kHeaderSize = 128;
constexpr size_t kPaletteSize = 769;  // marker byte 12 + 256 R,G,B triples
constexpr uint8_t kPaletteMarker = 12;
constexpr uint32_t kDcxMagic = 0x3ADE68B1;
constexpr int kDcxMaxPages = 1023;

// The standard EGA colours, used by files that carry no palette of their own.
constexpr uint8_t kEgaPalette[48] = {0,   0,  0,  0,   0,  170, 0,   170, 0,  0,   170, 170,
                                     170, 0,  0,  170, 0,  170, 170, 85,  0,  170, 170, 170,
                                     85,  85, 85, 85,  85, 255, 85,  255, 85, 85,  255, 255,
                                     255, 85, 85, 255, 85, 255, 255, 255, 85, 255, 255, 255};

// The checked header of one page, and where its bytes lie in the file.
struct PcxPage {
  const uint8_t* data = nullptr;  // the page, header first
  size_t size = 0;
  int version = 0;
  bool rle = true;
  int bits = 0;    // per pixel per plane
  int planes = 0;  // colour planes
  int32_t width = 0;
  int32_t height = 0;
  uint32_t bytesPerLine = 0;  // per plane
  const uint8_t* headerPalette = nullptr;

  int indexBits() const { return bits * planes; }
  bool trueColor() const { return bits == 8 && planes >= 3; }
  size_t lineBytes() const { return size_t{bytesPerLine} * planes; }
};

uint16_t le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t le32(const uint8_t* p) { return le16(p) | static_cast<uint32_t>(le16(p + 2)) << 16; }

bool sniffPcxHeader(const uint8_t* d, size_t size) {
  if (size < kHeaderSize || d[0] != 0x0A) return false;
  const int version = d[1];
  return (version == 0 || (version >= 2 && version <= 5)) && d[2] <= 1 &&
         (d[3] == 1 || d[3] == 2 || d[3] == 4 || d[3] == 8) && d[65] >= 1 && d[65] <= 4;
}

bool isDcx(const uint8_t* d, size_t size) { return size >= 8 && le32(d) == kDcxMagic; }

// Reads and checks a page header. 0, or an error code recorded in ctx.
int parsePage(ReadContext& ctx, const uint8_t* data, size_t size, PcxPage& P) {
  if (size < kHeaderSize) return ctx.fail(IMK_ERR_BAD_FILE, "file too short");
  if (data[0] != 0x0A) return ctx.fail(IMK_ERR_BAD_FILE, "not a PCX file");
  P.data = data;
  P.size = size;
  P.version = data[1];
  if (data[2] > 1) return ctx.fail(IMK_ERR_BAD_FILE, "unknown PCX encoding");
  P.rle = data[2] == 1;
  P.bits = data[3];
  P.planes = data[65];
  const int xmin = le16(data + 4), ymin = le16(data + 6), xmax = le16(data + 8),
            ymax = le16(data + 10);
  if (xmax < xmin || ymax < ymin) return ctx.fail(IMK_ERR_BAD_FILE, "bad picture window");
  P.width = xmax - xmin + 1;
  P.height = ymax - ymin + 1;
  P.bytesPerLine = le16(data + 66);
  P.headerPalette = data + 16;

  if (P.planes < 1) return ctx.fail(IMK_ERR_BAD_FILE, "no colour planes");
  const bool packed = (P.bits == 1 || P.bits == 2 || P.bits == 4) && P.indexBits() <= 4;
  const bool eight = P.bits == 8 && (P.planes == 1 || P.planes == 3 || P.planes == 4);
  if (!packed && !eight) return ctx.fail(IMK_ERR_BAD_FILE, "unsupported PCX bit depth");
  if (P.bytesPerLine < (static_cast<uint32_t>(P.width) * P.bits + 7) / 8)
    return ctx.fail(IMK_ERR_BAD_FILE, "bad bytes per line");

  HeaderInfo& h = ctx.header;
  h.width = P.width;
  h.height = P.height;
  h.planes = static_cast<int16_t>(P.planes);
  h.bitsPerPlane = static_cast<int16_t>(P.bits);
  return IMK_OK;
}

// The byte span of page `index` of a DCX file: it ends where the next page
// starts (the 256-colour palette sits at the end of each page).
int dcxPage(ReadContext& ctx, int index, const uint8_t** page, size_t* pageSize) {
  ByteReader r(ctx.data, ctx.size);
  r.skip(4);
  std::vector<uint32_t> offsets;
  while (offsets.size() < kDcxMaxPages) {
    const uint32_t offset = r.u32le();
    if (r.overrun() || offset == 0) break;
    offsets.push_back(offset);
  }
  ctx.header.pictureCount = static_cast<int32_t>(offsets.size());
  if (offsets.empty()) return ctx.fail(IMK_ERR_BAD_FILE, "DCX file without pages");
  if (index >= static_cast<int>(offsets.size()))
    return ctx.fail(IMK_ERR_BAD_FILE, "no such picture in file");
  const size_t start = offsets[index];
  if (start >= ctx.size) return ctx.fail(IMK_ERR_BAD_FILE, "bad DCX page offset");
  size_t end = ctx.size;
  if (index + 1 < static_cast<int>(offsets.size()) && offsets[index + 1] > start &&
      offsets[index + 1] < end)
    end = offsets[index + 1];
  *page = ctx.data + start;
  *pageSize = end - start;
  return IMK_OK;
}

// The header of the picture the context asks for, from a PCX or DCX file.
int locatePage(ReadContext& ctx, PcxPage& P) {
  if (!isDcx(ctx.data, ctx.size)) {
    ctx.header.pictureCount = 1;
    return parsePage(ctx, ctx.data, ctx.size, P);
  }
  const uint8_t* page;
  size_t size;
  if (int rc = dcxPage(ctx, ctx.pictureIndex(), &page, &size)) return rc;
  return parsePage(ctx, page, size, P);
}

// Run-length codes of a page: a byte 0xC0 | n followed by v gives n times v;
// any other byte is itself. Runs may continue from one scan line (or plane)
// into the next.
struct PcxCodes {
  static bool next(const uint8_t*& p, const uint8_t* end, ByteRun& run) {
    if (p >= end) return false;
    const uint8_t c = *p++;
    if ((c & 0xC0) != 0xC0) {
      run = {1, c};
      return true;
    }
    if (p >= end) return false;
    run = {c & 0x3Fu, *p++};  // a zero-length run writes nothing
    return true;
  }
};
using PcxSource = RunSource<PcxCodes>;

// One scan line of bit planes (or packed pixels) into palette indices:
// plane p supplies bits p*bits .. p*bits+bits-1 of each index.
void planesToIndices(const PcxPage& P, const uint8_t* line, uint8_t* dst) {
  const int w = P.width, bits = P.bits, mask = (1 << bits) - 1;
  if (bits == 1 && P.planes == 1) {
    for (int x = 0; x < w; ++x) dst[x] = (line[x >> 3] >> (7 - (x & 7))) & 1;
    return;
  }
  std::memset(dst, 0, static_cast<size_t>(w));
  for (int p = 0; p < P.planes; ++p) {
    const uint8_t* src = line + size_t{P.bytesPerLine} * p;
    const int shift = p * bits;
    for (int x = 0; x < w; ++x) {
      const int bit = x * bits;
      const int v = (src[bit >> 3] >> (8 - bits - (bit & 7))) & mask;
      dst[x] = static_cast<uint8_t>(dst[x] | v << shift);
    }
  }
}

// Eight-bit planes into interleaved R,G,B (and alpha).
void planesToPixels(const PcxPage& P, const uint8_t* line, uint8_t* dst) {
  const int w = P.width, n = P.planes;
  for (int c = 0; c < n; ++c) {
    const uint8_t* src = line + size_t{P.bytesPerLine} * c;
    uint8_t* o = dst + c;
    for (int x = 0; x < w; ++x, o += n) *o = src[x];
  }
}

// Fills the palette of an indexed page and sets the picture's kind.
void finishPalette(const PcxPage& P, const uint8_t* endPalette, Picture& pic) {
  ImageRecord& rec = pic.rec();
  if (P.bits == 8) {
    rec.colorCount = 256;
    if (!endPalette) {  // no palette: the levels are grey
      rec.type = IMK_GREY;
      fillGreyPalette(rec, 256);
      return;
    }
    for (int i = 0; i < 256; ++i) {
      rec.palette[i] = endPalette[1 + 3 * i];
      rec.palette[256 + i] = endPalette[2 + 3 * i];
      rec.palette[512 + i] = endPalette[3 + 3 * i];
    }
    simplifyMappedPicture(rec);
    return;
  }
  const int colors = 1 << P.indexBits();
  const uint8_t* pal = P.headerPalette;
  // A palette whose entries are all alike (typically all zero) is no palette.
  bool blank = true;
  for (int i = 3; i < 3 * colors; ++i) blank = blank && pal[i] == pal[i % 3];
  if (colors == 2 && (blank || P.version == 3)) {
    // Monochrome: 0 is black, 1 white.
    rec.type = IMK_BINARY;
    rec.colorCount = 2;
    fillGreyPalette(rec, 2);
    return;
  }
  // Version 3 files have no palette, and an empty one means the same: EGA.
  if (P.version == 3 || blank) pal = kEgaPalette;
  rec.colorCount = colors;
  for (int i = 0; i < colors; ++i) {
    rec.palette[i] = pal[3 * i];
    rec.palette[256 + i] = pal[3 * i + 1];
    rec.palette[512 + i] = pal[3 * i + 2];
  }
  simplifyMappedPicture(rec);
}

int decodePage(ReadContext& ctx, const PcxPage& P, Picture& out) {
  const uint8_t* end = P.data + P.size;
  const uint8_t* endPalette = nullptr;
  if (P.bits == 8 && P.planes == 1 && P.size >= kHeaderSize + kPaletteSize &&
      end[-static_cast<ptrdiff_t>(kPaletteSize)] == kPaletteMarker) {
    endPalette = end - kPaletteSize;
    end = endPalette;
  }
  const size_t lineBytes = P.lineBytes();
  const size_t available = static_cast<size_t>(end - P.data) - kHeaderSize;
  // A file too short for its pixels fails before anything is allocated:
  // plain data needs every byte, a run code gives at most 63 bytes for 2.
  const uint64_t needed = uint64_t{lineBytes} * P.height;
  if (int rc = ctx.requireData(P.rle ? (needed * 2 + 62) / 63 : needed, available)) return rc;

  const uint16_t kind = P.trueColor() ? (P.planes == 4 ? IMK_RGBX : IMK_RGB) : IMK_MAPPED;
  if (!sizeAcceptable(P.width, P.height, bytesPerPixelOf(kind)))
    return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  if (!out.allocate(kind, P.width, P.height)) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  if (ctx.beginProgress(P.height)) return IMK_ERR_STOPPED;

  PcxSource source(P.data + kHeaderSize, end, P.rle);
  std::vector<uint8_t> line(lineBytes);
  bool complete = true;
  for (int y = 0; y < P.height && complete; ++y) {
    complete = source.fill(line.data(), lineBytes);
    if (P.trueColor())
      planesToPixels(P, line.data(), out.row(y));
    else if (P.bits == 8)
      std::memcpy(out.row(y), line.data(), static_cast<size_t>(P.width));
    else
      planesToIndices(P, line.data(), out.row(y));
    if (ctx.advanceProgress(y + 1)) return IMK_ERR_STOPPED;
  }
  if (!P.trueColor()) finishPalette(P, endPalette, out);
  if (!complete) return ctx.damaged(IMK_ERR_CORRUPT, "truncated");
  return IMK_OK;
}

bool sniffPcx(const uint8_t* data, size_t size) {
  if (isDcx(data, size)) {
    const uint32_t first = le32(data + 4);
    return first >= 8 && first < size && sniffPcxHeader(data + first, size - first);
  }
  return sniffPcxHeader(data, size);
}

int infoPcx(ReadContext& ctx) {
  PcxPage P;
  return locatePage(ctx, P);
}

int readPcx(ReadContext& ctx, Picture& out) {
  PcxPage P;
  if (int rc = locatePage(ctx, P)) return rc;
  return decodePage(ctx, P, out);
}

// ---------------------------------------------------------------------------
// Writing.

bool put(FILE* f, const void* p, size_t n) { return n == 0 || std::fwrite(p, 1, n, f) == n; }

// Run-length codes for one plane of a scan line. Runs stop at the end of the
// plane so that every line decodes on its own; single bytes below 0xC0 stand
// for themselves.
void encodeRle(const uint8_t* src, size_t n, std::vector<uint8_t>& out) {
  for (size_t i = 0; i < n;) {
    size_t run = 1;
    while (i + run < n && run < 63 && src[i + run] == src[i]) ++run;
    if (run > 1 || src[i] >= 0xC0) out.push_back(static_cast<uint8_t>(0xC0 | run));
    out.push_back(src[i]);
    i += run;
  }
}

int writePcx(WriteContext& ctx, const ImageRecord& pic) {
  FILE* f = ctx.out.file();
  const int w = pic.width, h = pic.height;
  const bool binary = pic.type == IMK_BINARY, trueColor = isTrueColor(pic.type);
  const int bits = binary ? 1 : 8, planes = trueColor ? 3 : 1;
  // Even bytes per line, as readers expect; the window is 16-bit.
  const uint32_t bytesPerLine = (static_cast<uint32_t>(w) * bits + 15) / 16 * 2;
  if (w > 65535 || h > 65535 || bytesPerLine > 65535) return IMK_ERR_CANNOT_SAVE;
  const bool rle = ctx.options.saveOption == 1;

  uint8_t head[kHeaderSize] = {};
  auto put16 = [&](size_t at, uint32_t v) {
    head[at] = static_cast<uint8_t>(v);
    head[at + 1] = static_cast<uint8_t>(v >> 8);
  };
  head[0] = 0x0A;
  head[1] = 5;
  head[2] = rle ? 1 : 0;
  head[3] = static_cast<uint8_t>(bits);
  put16(8, static_cast<uint32_t>(w - 1));
  put16(10, static_cast<uint32_t>(h - 1));
  put16(12, 72);
  put16(14, 72);
  if (binary) head[19] = head[20] = head[21] = 255;  // entry 1 white
  head[65] = static_cast<uint8_t>(planes);
  put16(66, bytesPerLine);
  put16(68, pic.type == IMK_GREY ? 2 : 1);
  if (!put(f, head, sizeof head)) return IMK_ERR_WRITE;

  // Indexed pictures: indices past the colour count are clamped to its end.
  const int colors = binary || trueColor                            ? 2
                     : pic.colorCount >= 1 && pic.colorCount <= 256 ? pic.colorCount
                                                                    : 256;
  std::vector<uint8_t> line(size_t{bytesPerLine} * planes), rgb(static_cast<size_t>(w) * 3), coded;
  if (ctx.progress.begin(h)) return IMK_ERR_STOPPED;
  for (int y = 0; y < h; ++y) {
    const uint8_t* src = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
    std::fill(line.begin(), line.end(), 0);
    if (binary) {
      for (int x = 0; x < w; ++x)
        if (src[x]) line[x >> 3] = static_cast<uint8_t>(line[x >> 3] | 0x80 >> (x & 7));
    } else if (trueColor) {
      rowToRgb(pic, y, rgb.data());
      for (int c = 0; c < 3; ++c)
        for (int x = 0; x < w; ++x) line[size_t{bytesPerLine} * c + x] = rgb[x * 3 + c];
    } else {
      for (int x = 0; x < w; ++x) line[x] = static_cast<uint8_t>(std::min<int>(src[x], colors - 1));
    }
    if (rle) {
      coded.clear();
      for (int p = 0; p < planes; ++p)
        encodeRle(line.data() + size_t{bytesPerLine} * p, bytesPerLine, coded);
      if (!put(f, coded.data(), coded.size())) return IMK_ERR_WRITE;
    } else if (!put(f, line.data(), line.size())) {
      return IMK_ERR_WRITE;
    }
    if (ctx.progress.advance(y + 1)) return IMK_ERR_STOPPED;
  }

  if (!binary && !trueColor) {
    uint8_t palette[kPaletteSize] = {kPaletteMarker};
    for (int i = 0; i < colors; ++i) {
      uint8_t* e = palette + 1 + 3 * i;
      if (pic.type == IMK_GREY || !pic.palette) {
        e[0] = e[1] = e[2] =
            pic.type == IMK_GREY ? greyLevelIntensity(i, colors) : static_cast<uint8_t>(i);
      } else {
        e[0] = pic.palette[i], e[1] = pic.palette[256 + i], e[2] = pic.palette[512 + i];
      }
    }
    if (!put(f, palette, sizeof palette)) return IMK_ERR_WRITE;
  }
  return std::ferror(f) ? IMK_ERR_WRITE : IMK_OK;
}

}  // namespace

const Codec kPcxCodec = {"pcx",
                         "PCX",
                         {"pcx", "dcx"},
                         IMK_CAN_READ | IMK_CAN_WRITE | IMK_MULTI_PICTURE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize},
                          {IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_MAPPED, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         sniffPcx,
                         infoPcx,
                         readPcx,
                         writePcx};

}  // namespace imk
