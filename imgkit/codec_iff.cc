// IFF pictures: FORM ILBM (interleaved bitplanes) and FORM PBM (chunky bytes).
//
// A FORM holds chunks (id, big-endian length, data padded to even length).
// Used here: BMHD (size, plane count, masking, compression), CMAP (R,G,B
// triples), CAMG (Amiga display mode: HAM 0x800, extra half-brite 0x80),
// DCOL (direct colour: bits of red, green, blue) and BODY (the rows). Every
// other chunk is skipped. Each row of an ILBM stores its planes one after the
// other, each plane a row of bits padded to 16, plus a mask plane when
// masking is 1 (skipped: the picture is shown opaque, as it is with a
// transparent colour). ByteRun1 codes each row: n in 0..127 copies n + 1
// bytes, n in -127..-1 repeats the next byte 1 - n times, -128 does nothing.
//
// Reading gives:
//   1..8 planes        colour-mapped through CMAP (grey ramp without CMAP)
//   EHB (6 planes)     colour-mapped, 64 entries: 32 from CMAP, then halves
//   HAM6 / HAM8        R,G,B: each pixel takes a base colour or modifies one
//                      channel of its left neighbour (4 / 6 bits)
//   24 / 32 planes     R,G,B / R,G,B + alpha, 8 planes per channel, LSB first
//   DCOL               R,G,B from planes of the given widths, scaled to 8 bits
//   PBM                colour-mapped, one byte per pixel, rows padded to even
// A CMAP of old 4-bit hardware (every value a multiple of 16) is widened so
// that 0xF0 shows as 0xFF. Writing stores binary pictures as one plane,
// colour-mapped ones with as many planes as their colour count needs, grey
// as 8 planes over a grey CMAP and true colour as 24 planes; saveOption 1
// compresses with ByteRun1.
#include <algorithm>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

constexpr uint32_t chunkId(const char (&s)[5]) {
  return uint32_t(uint8_t(s[0])) << 24 | uint32_t(uint8_t(s[1])) << 16 |
         uint32_t(uint8_t(s[2])) << 8 | uint8_t(s[3]);
}

constexpr uint32_t kForm = chunkId("FORM");
constexpr uint32_t kIlbm = chunkId("ILBM");
constexpr uint32_t kPbm = chunkId("PBM ");
constexpr uint32_t kBmhd = chunkId("BMHD");
constexpr uint32_t kCmap = chunkId("CMAP");
constexpr uint32_t kCamg = chunkId("CAMG");
constexpr uint32_t kDcol = chunkId("DCOL");
constexpr uint32_t kBody = chunkId("BODY");

constexpr uint32_t kCamgHam = 0x800;
constexpr uint32_t kCamgEhb = 0x80;
constexpr int kMaskPlane = 1;
// ByteRun1 turns two bytes into at most 128.
constexpr uint64_t kMaxExpansion = 64;

enum class Mode { kMapped, kEhb, kHam, kDeep, kDirect, kChunky };

struct IffLayout {
  bool chunky = false;  // FORM PBM
  int32_t width = 0, height = 0;
  int planes = 0;
  int masking = 0;
  int compression = 0;
  uint32_t camg = 0;
  int directBits[3] = {0, 0, 0};  // DCOL red, green, blue
  bool hasDirect = false;
  uint8_t cmap[256][3] = {};
  int cmapCount = 0;
  bool fourBit = false;  // CMAP made for 4-bit hardware
  size_t bodyOffset = 0;
  size_t bodyLength = 0;     // as declared
  size_t bodyAvailable = 0;  // what the file holds of it
  bool hasBody = false;
  Mode mode = Mode::kMapped;

  size_t rowBytes() const {  // one plane of one row
    return chunky ? static_cast<size_t>(width) + (width & 1)
                  : (static_cast<size_t>(width) + 15) / 16 * 2;
  }
  size_t lineBytes() const {  // every plane of one row
    return chunky ? rowBytes() : rowBytes() * static_cast<size_t>(planes + (masking == kMaskPlane));
  }
};

// Reads BMHD and CMAP from their chunk data.
void readBmhd(ByteReader& r, IffLayout& L) {
  L.width = r.u16be();
  L.height = r.u16be();
  r.skip(4);  // position
  L.planes = r.u8();
  L.masking = r.u8();
  L.compression = r.u8();
}

void readCmap(ByteReader& r, uint32_t length, IffLayout& L) {
  L.cmapCount = static_cast<int>(std::min<uint32_t>(length / 3, 256));
  for (int i = 0; i < L.cmapCount; ++i)
    for (int c = 0; c < 3; ++c) L.cmap[i][c] = r.u8();
}

// Chooses how the planes are read and checks that the header allows it.
int chooseMode(ReadContext& ctx, IffLayout& L) {
  if (L.width == 0 || L.height == 0) return ctx.fail(IMK_ERR_BAD_FILE, "bad dimensions");
  if (L.compression > 1) return ctx.fail(IMK_ERR_BAD_FILE, "unsupported compression");
  if (L.masking > 3) return ctx.fail(IMK_ERR_BAD_FILE, "bad masking");
  if (L.planes == 0) return ctx.fail(IMK_ERR_BAD_FILE, "colour map only, no picture");
  if (L.chunky) {
    if (L.planes != 8) return ctx.fail(IMK_ERR_BAD_FILE, "unsupported PBM depth");
    L.mode = Mode::kChunky;
  } else if (L.hasDirect) {
    const int* b = L.directBits;
    if (b[0] < 1 || b[0] > 8 || b[1] < 1 || b[1] > 8 || b[2] < 1 || b[2] > 8 ||
        b[0] + b[1] + b[2] != L.planes)
      return ctx.fail(IMK_ERR_BAD_FILE, "unsupported direct colour layout");
    L.mode = Mode::kDirect;
  } else if (L.planes == 24 || L.planes == 32) {
    L.mode = Mode::kDeep;
  } else if (L.planes > 8) {
    return ctx.fail(IMK_ERR_BAD_FILE, "unsupported plane count");
  } else if (L.camg & kCamgHam) {
    if (L.planes != 6 && L.planes != 8) return ctx.fail(IMK_ERR_BAD_FILE, "unsupported HAM depth");
    L.mode = Mode::kHam;
  } else if ((L.camg & kCamgEhb) && L.planes == 6) {
    L.mode = Mode::kEhb;
  } else {
    L.mode = Mode::kMapped;
  }
  HeaderInfo& h = ctx.header;
  h.width = L.width;
  h.height = L.height;
  h.pictureCount = 1;
  if (L.mode == Mode::kDeep || L.mode == Mode::kDirect) {
    h.planes = static_cast<int16_t>(L.planes == 32 ? 4 : 3);
    h.bitsPerPlane = static_cast<int16_t>(L.mode == Mode::kDeep ? 8 : L.directBits[0]);
  } else {
    h.planes = 1;
    h.bitsPerPlane = static_cast<int16_t>(L.planes);
  }
  return IMK_OK;
}

// Walks the chunks of the FORM. `needBody`: a missing BODY is an error.
int parseChunks(ReadContext& ctx, IffLayout& L, bool needBody) {
  ByteReader r(ctx.data, ctx.size);
  if (ctx.size < 12) return ctx.fail(IMK_ERR_BAD_FILE, "file too short");
  if (r.u32be() != kForm) return ctx.fail(IMK_ERR_BAD_FILE, "not an IFF file");
  const uint64_t formEnd = uint64_t{8} + r.u32be();
  const uint32_t type = r.u32be();
  if (type != kIlbm && type != kPbm)
    return ctx.fail(IMK_ERR_BAD_FILE, "not an ILBM or PBM picture");
  if (formEnd < 12) return ctx.fail(IMK_ERR_BAD_FILE, "bad FORM length");
  L.chunky = type == kPbm;
  const uint64_t end = std::min<uint64_t>(formEnd, ctx.size);
  bool haveBmhd = false;
  uint64_t pos = 12;
  while (pos + 8 <= end) {
    r.seek(pos);
    const uint32_t id = r.u32be();
    const uint32_t length = r.u32be();
    const uint64_t data = pos + 8;
    if (data + length > formEnd) return ctx.fail(IMK_ERR_BAD_FILE, "chunk length past end of FORM");
    const bool cut = data + length > ctx.size;
    if (id == kBody) {
      L.hasBody = true;
      L.bodyOffset = data;
      L.bodyLength = length;
      L.bodyAvailable = cut ? ctx.size - data : length;
      break;
    }
    if (cut && (id == kBmhd || id == kCmap || id == kCamg || id == kDcol))
      return ctx.fail(IMK_ERR_BAD_FILE, "truncated header");
    if (id == kBmhd) {
      if (length < 20) return ctx.fail(IMK_ERR_BAD_FILE, "short BMHD chunk");
      readBmhd(r, L);
      haveBmhd = true;
    } else if (id == kCmap) {
      readCmap(r, length, L);
    } else if (id == kCamg && length >= 4) {
      L.camg = r.u32be();
    } else if (id == kDcol && length >= 3) {
      for (int& b : L.directBits) b = r.u8();
      L.hasDirect = true;
    }
    pos = data + length + (length & 1);
  }
  if (!haveBmhd) return ctx.fail(IMK_ERR_BAD_FILE, "no BMHD chunk");
  if (int rc = chooseMode(ctx, L)) return rc;
  if (needBody && !L.hasBody) {
    return formEnd > ctx.size ? ctx.fail(IMK_ERR_CORRUPT, "truncated")
                              : ctx.fail(IMK_ERR_BAD_FILE, "no BODY chunk");
  }
  return IMK_OK;
}

// ---------------------------------------------------------------------------
// Decoding.

// One row of every plane, decompressed. The damage found, or nullptr.
const char* readLine(ByteReader& r, bool byteRun, uint8_t* out, size_t n) {
  if (!byteRun) return r.bytes(out, n) ? nullptr : "truncated";
  size_t done = 0;
  while (done < n) {
    const auto code = static_cast<int8_t>(r.u8());
    if (r.overrun()) return "truncated";
    if (code == -128) continue;
    const size_t count = code >= 0 ? size_t(code) + 1 : size_t(1 - code);
    if (count > n - done) return "ByteRun1 run past end of row";
    if (code >= 0) {
      if (!r.bytes(out + done, count)) return "truncated";
    } else {
      const uint8_t v = r.u8();
      if (r.overrun()) return "truncated";
      std::memset(out + done, v, count);
    }
    done += count;
  }
  return nullptr;
}

// Gathers the bits of `planes` planes into one value per pixel: plane p
// gives bit p.
void gatherPlanes(const uint8_t* line, size_t rowBytes, int planes, int width, uint32_t* values) {
  std::fill(values, values + width, 0u);
  for (int p = 0; p < planes; ++p) {
    const uint8_t* plane = line + rowBytes * static_cast<size_t>(p);
    for (int x = 0; x < width; ++x)
      values[x] |= static_cast<uint32_t>((plane[x >> 3] >> (7 - (x & 7))) & 1) << p;
  }
}

// Channel of `bits` bits scaled to 8.
uint8_t scaleTo8(uint32_t v, int bits) {
  const uint32_t max = (1u << bits) - 1;
  return static_cast<uint8_t>((v * 255 + max / 2) / max);
}

// Hold-and-modify: the top two bits choose a base colour (0) or which
// channel of the left neighbour to replace (1 blue, 2 red, 3 green); every
// row starts from base colour 0. The new value fills the top bits of the
// channel and its low bits stay, as on the 8-bit hardware; pictures made for
// 4-bit hardware (L.fourBit) have 4-bit channels, widened like their CMAP.
void decodeHam(const IffLayout& L, const uint32_t* values, uint8_t* dst) {
  const int dataBits = L.planes - 2;
  const uint32_t dataMask = (1u << dataBits) - 1;
  const uint32_t keep = (1u << (8 - dataBits)) - 1;
  uint8_t c[3] = {L.cmap[0][0], L.cmap[0][1], L.cmap[0][2]};
  for (int x = 0; x < L.width; ++x) {
    const uint32_t data = values[x] & dataMask;
    const uint32_t control = values[x] >> dataBits;
    if (control == 0) {
      std::memcpy(c, L.cmap[data], 3);
    } else {
      uint8_t& channel = c[control == 1 ? 2 : control == 2 ? 0 : 1];
      channel = L.fourBit ? scaleTo8(data, dataBits)
                          : static_cast<uint8_t>(data << (8 - dataBits) | (channel & keep));
    }
    std::memcpy(dst + 3 * x, c, 3);
  }
}

// The pixels of one decompressed row into output row `dst`. Palette indices
// past `colours` are clamped; *badIndex records that it happened.
void decodeRow(const IffLayout& L, const uint8_t* line, uint32_t* values, uint8_t* dst, int colours,
               bool* badIndex) {
  const int w = L.width;
  if (L.mode == Mode::kChunky) {
    for (int x = 0; x < w; ++x) values[x] = line[x];
  } else {
    gatherPlanes(line, L.rowBytes(), L.planes, w, values);
  }
  switch (L.mode) {
    case Mode::kHam:
      decodeHam(L, values, dst);
      return;
    case Mode::kDeep: {
      const int bpp = L.planes / 8;
      for (int x = 0; x < w; ++x)
        for (int c = 0; c < bpp; ++c) dst[x * bpp + c] = static_cast<uint8_t>(values[x] >> (8 * c));
      return;
    }
    case Mode::kDirect: {
      const int* b = L.directBits;
      for (int x = 0; x < w; ++x) {
        const uint32_t v = values[x];
        dst[3 * x] = scaleTo8(v & ((1u << b[0]) - 1), b[0]);
        dst[3 * x + 1] = scaleTo8((v >> b[0]) & ((1u << b[1]) - 1), b[1]);
        dst[3 * x + 2] = scaleTo8(v >> (b[0] + b[1]), b[2]);
      }
      return;
    }
    default:
      for (int x = 0; x < w; ++x) {
        if (values[x] >= static_cast<uint32_t>(colours)) {
          *badIndex = true;
          values[x] = static_cast<uint32_t>(colours - 1);
        }
        dst[x] = static_cast<uint8_t>(values[x]);
      }
      return;
  }
}

// The base colours: CMAP, widened when written for 4-bit hardware (every
// value a multiple of 16, so that 0xF0 becomes 0xFF).
void widenFourBitCmap(IffLayout& L) {
  L.fourBit = L.cmapCount > 0;
  for (int i = 0; i < L.cmapCount && L.fourBit; ++i)
    for (int c = 0; c < 3; ++c) L.fourBit &= (L.cmap[i][c] & 0x0F) == 0;
  if (!L.fourBit) return;
  for (int i = 0; i < L.cmapCount; ++i)
    for (int c = 0; c < 3; ++c)
      L.cmap[i][c] = static_cast<uint8_t>(L.cmap[i][c] | L.cmap[i][c] >> 4);
}

// Sets up the palette of a colour-mapped picture; returns its entry count.
int setPalette(IffLayout& L, ImageRecord& rec) {
  int count;
  if (L.mode == Mode::kEhb) {
    // Entries 32..63 are always the halves of 0..31, whatever CMAP holds.
    for (int i = 0; i < 32; ++i)
      for (int c = 0; c < 3; ++c) L.cmap[32 + i][c] = L.cmap[i][c] >> 1;
    count = 64;
  } else if (L.cmapCount == 0) {
    count = 1 << L.planes;  // no colours: levels of grey
    rec.type = IMK_GREY;
    fillGreyPalette(rec, count);
    return count;
  } else {
    count = std::min(L.cmapCount, 1 << L.planes);
  }
  for (int i = 0; i < count; ++i) {
    rec.palette[i] = L.cmap[i][0];
    rec.palette[256 + i] = L.cmap[i][1];
    rec.palette[512 + i] = L.cmap[i][2];
  }
  return count;
}

bool sniff(const uint8_t* data, size_t size) {
  return size >= 12 && std::memcmp(data, "FORM", 4) == 0 &&
         (std::memcmp(data + 8, "ILBM", 4) == 0 || std::memcmp(data + 8, "PBM ", 4) == 0);
}

int info(ReadContext& ctx) {
  IffLayout L;
  return parseChunks(ctx, L, false);
}

int read(ReadContext& ctx, Picture& out) {
  IffLayout L;
  if (int rc = parseChunks(ctx, L, true)) return rc;
  const bool byteRun = L.compression == 1;
  const size_t lineBytes = L.lineBytes();
  const uint64_t need = static_cast<uint64_t>(lineBytes) * L.height;
  // A BODY whose bytes could not fill the picture even at ByteRun1's best
  // comes from a hostile header rather than a cut file; uncompressed, one
  // that holds less than 1/64 of the rows leaves too little to show. Either
  // way the picture's memory is not worth allocating.
  if (L.bodyAvailable * kMaxExpansion + 128 < need)
    return ctx.fail(IMK_ERR_BAD_FILE, "BODY too short for the picture");
  // Without IMK_FLAG_IGNORE_ERRORS missing data fails before allocating.
  const bool missing = byteRun ? L.bodyAvailable < L.bodyLength : L.bodyAvailable < need;
  if (missing && !ctx.ignoreErrors())
    return ctx.fail(IMK_ERR_CORRUPT,
                    L.bodyAvailable < L.bodyLength ? "truncated" : "BODY too short");

  const uint16_t kind = L.mode == Mode::kHam || L.mode == Mode::kDirect ? IMK_RGB
                        : L.mode == Mode::kDeep ? (L.planes == 32 ? IMK_RGBX : IMK_RGB)
                                                : IMK_MAPPED;
  if (!sizeAcceptable(L.width, L.height, bytesPerPixelOf(kind)))
    return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  if (!out.allocate(kind, L.width, L.height)) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  ImageRecord& rec = out.rec();
  widenFourBitCmap(L);
  int colours = 256;
  if (kind == IMK_MAPPED) rec.colorCount = colours = setPalette(L, rec);

  if (ctx.beginProgress(L.height)) return IMK_ERR_STOPPED;
  ByteReader r(ctx.data + L.bodyOffset, L.bodyAvailable);
  std::vector<uint8_t> line(lineBytes);
  std::vector<uint32_t> values(static_cast<size_t>(L.width));
  const char* damage = nullptr;
  bool badIndex = false;
  for (int y = 0; y < L.height && !damage; ++y) {
    std::fill(line.begin(), line.end(), 0);
    damage = readLine(r, byteRun, line.data(), lineBytes);
    // A row cut short is shown with what it holds (the rest zero).
    decodeRow(L, line.data(), values.data(), out.row(y), colours, &badIndex);
    if (ctx.advanceProgress(y + 1)) return IMK_ERR_STOPPED;
  }
  if (!damage && badIndex) damage = "palette index out of range";
  if (kind == IMK_MAPPED && rec.type == IMK_MAPPED) simplifyMappedPicture(rec);
  if (damage) return ctx.damaged(IMK_ERR_CORRUPT, damage);
  return IMK_OK;
}

// ---------------------------------------------------------------------------
// Writing.

void putBe(std::vector<uint8_t>& out, uint32_t v, int bytes) {
  while (bytes-- > 0) out.push_back(static_cast<uint8_t>(v >> (8 * bytes)));
}

// ByteRun1 codes for one row of one plane: repeats of three or more bytes
// become runs, everything else literal stretches of up to 128 bytes.
void byteRun1(const uint8_t* in, size_t n, std::vector<uint8_t>& out) {
  size_t i = 0;
  auto runAt = [&](size_t at) {
    size_t k = 1;
    while (at + k < n && k < 128 && in[at + k] == in[at]) ++k;
    return k;
  };
  while (i < n) {
    const size_t run = runAt(i);
    if (run >= 3) {
      out.push_back(static_cast<uint8_t>(1 - static_cast<int>(run)));
      out.push_back(in[i]);
      i += run;
      continue;
    }
    size_t end = i;
    while (end < n && end - i < 128) {
      const size_t k = runAt(end);
      if (k >= 3) break;
      end += std::min(k, 128 - (end - i));
    }
    out.push_back(static_cast<uint8_t>(end - i - 1));
    out.insert(out.end(), in + i, in + end);
    i = end;
  }
}

// How a picture is stored: plane count, CMAP and one value per pixel.
struct Encoding {
  int planes = 24;
  std::vector<uint8_t> cmap;  // R,G,B triples
};

Encoding encodingOf(const ImageRecord& pic) {
  Encoding e;
  auto add = [&](uint8_t r, uint8_t g, uint8_t b) { e.cmap.insert(e.cmap.end(), {r, g, b}); };
  switch (pic.type) {
    case IMK_BINARY:
      e.planes = 1;
      add(0, 0, 0);
      add(255, 255, 255);
      break;
    case IMK_GREY:
      e.planes = 8;
      for (int i = 0; i < 256; ++i) add(uint8_t(i), uint8_t(i), uint8_t(i));
      break;
    case IMK_MAPPED: {
      const int n = std::clamp(pic.colorCount, 1, 256);
      e.planes = 1;
      while ((1 << e.planes) < n) ++e.planes;
      for (int i = 0; i < n; ++i) add(pic.palette[i], pic.palette[256 + i], pic.palette[512 + i]);
      break;
    }
    default:
      break;
  }
  return e;
}

// Row y as one value per pixel (index, intensity or 0xBBGGRR).
void pixelValues(const ImageRecord& pic, int y, uint32_t* values, std::vector<uint8_t>& scratch) {
  const uint8_t* src = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
  const int w = pic.width;
  switch (pic.type) {
    case IMK_BINARY:
      for (int x = 0; x < w; ++x) values[x] = src[x] != 0;
      return;
    case IMK_GREY:
      rowToGrey(pic, y, scratch.data());
      for (int x = 0; x < w; ++x) values[x] = scratch[x];
      return;
    case IMK_MAPPED: {
      const int top = std::clamp(pic.colorCount, 1, 256) - 1;
      for (int x = 0; x < w; ++x) values[x] = static_cast<uint32_t>(std::min<int>(src[x], top));
      return;
    }
    default:
      rowToRgb(pic, y, scratch.data());
      for (int x = 0; x < w; ++x) {
        const uint8_t* p = &scratch[3 * static_cast<size_t>(x)];
        values[x] = p[0] | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16;
      }
      return;
  }
}

int write(WriteContext& ctx, const ImageRecord& pic) {
  FILE* f = ctx.out.file();
  if (!f) return IMK_ERR_WRITE;
  if (pic.width > 0xFFFF || pic.height > 0xFFFF) return IMK_ERR_CANNOT_SAVE;
  if (pic.type == IMK_MAPPED && !pic.palette) return IMK_ERR_CANNOT_SAVE;
  const Encoding e = encodingOf(pic);
  const bool byteRun = ctx.options.saveOption == 1;
  const size_t rowBytes = (static_cast<size_t>(pic.width) + 15) / 16 * 2;
  // ByteRun1 adds at most one byte per 128; the whole FORM must stay in 32 bits.
  const uint64_t worst = (rowBytes + rowBytes / 128 + 1) * e.planes * uint64_t(pic.height);
  if (worst + e.cmap.size() + 64 > 0xFFFFFFF0u) return IMK_ERR_CANNOT_SAVE;

  std::vector<uint8_t> head;
  putBe(head, kForm, 4);
  putBe(head, 0, 4);  // FORM length, patched at the end
  putBe(head, kIlbm, 4);
  putBe(head, kBmhd, 4);
  putBe(head, 20, 4);
  putBe(head, static_cast<uint32_t>(pic.width), 2);
  putBe(head, static_cast<uint32_t>(pic.height), 2);
  putBe(head, 0, 4);  // position
  putBe(head, static_cast<uint32_t>(e.planes), 1);
  putBe(head, 0, 1);  // no mask
  putBe(head, byteRun ? 1 : 0, 1);
  putBe(head, 0, 1);
  putBe(head, 0, 2);  // transparent colour
  putBe(head, 1, 1);  // square pixels
  putBe(head, 1, 1);
  putBe(head, static_cast<uint32_t>(pic.width), 2);
  putBe(head, static_cast<uint32_t>(pic.height), 2);
  if (!e.cmap.empty()) {
    putBe(head, kCmap, 4);
    putBe(head, static_cast<uint32_t>(e.cmap.size()), 4);
    head.insert(head.end(), e.cmap.begin(), e.cmap.end());
    if (e.cmap.size() & 1) head.push_back(0);
  }
  putBe(head, kBody, 4);
  const size_t bodyLengthAt = head.size();
  putBe(head, 0, 4);  // BODY length, patched at the end
  if (std::fwrite(head.data(), 1, head.size(), f) != head.size()) return IMK_ERR_WRITE;

  if (ctx.progress.begin(pic.height)) return IMK_ERR_STOPPED;
  std::vector<uint32_t> values(static_cast<size_t>(pic.width));
  std::vector<uint8_t> scratch(static_cast<size_t>(pic.width) * 3), plane(rowBytes), coded;
  uint64_t bodyLength = 0;
  for (int y = 0; y < pic.height; ++y) {
    pixelValues(pic, y, values.data(), scratch);
    coded.clear();
    for (int p = 0; p < e.planes; ++p) {
      std::fill(plane.begin(), plane.end(), 0);
      for (int x = 0; x < pic.width; ++x)
        if ((values[x] >> p) & 1) plane[x >> 3] |= static_cast<uint8_t>(0x80 >> (x & 7));
      if (byteRun)
        byteRun1(plane.data(), rowBytes, coded);
      else
        coded.insert(coded.end(), plane.begin(), plane.end());
    }
    if (std::fwrite(coded.data(), 1, coded.size(), f) != coded.size()) return IMK_ERR_WRITE;
    bodyLength += coded.size();
    if (ctx.progress.advance(y + 1)) return IMK_ERR_STOPPED;
  }
  if ((bodyLength & 1) && std::fputc(0, f) == EOF) return IMK_ERR_WRITE;

  // Patch the two lengths now that they are known.
  const uint64_t formLength = head.size() - 8 + bodyLength + (bodyLength & 1);
  std::vector<uint8_t> patch;
  putBe(patch, static_cast<uint32_t>(formLength), 4);
  putBe(patch, static_cast<uint32_t>(bodyLength), 4);
  if (std::fseek(f, 4, SEEK_SET) != 0 || std::fwrite(patch.data(), 1, 4, f) != 4 ||
      std::fseek(f, static_cast<long>(bodyLengthAt), SEEK_SET) != 0 ||
      std::fwrite(patch.data() + 4, 1, 4, f) != 4 || std::fseek(f, 0, SEEK_END) != 0)
    return IMK_ERR_WRITE;
  return std::ferror(f) ? IMK_ERR_WRITE : IMK_OK;
}

}  // namespace

const Codec kIffCodec = {"iff",
                         "IFF ILBM",
                         {"iff", "ilbm", "lbm"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize},
                          {IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_MAPPED, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         sniff,
                         info,
                         read,
                         write};

}  // namespace imk
