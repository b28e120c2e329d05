// Netpbm family: PBM, PGM and PPM in plain (P1-P3) and raw (P4-P6) form, and
// PAM (P7) with the BLACKANDWHITE, GRAYSCALE and RGB tuple types and their
// _ALPHA variants. Maxval 1..65535 (16-bit samples are big-endian). A file
// may hold several images one after another; the picture index picks one.
//
// The four registry rows share one reader: each only recognises its own
// magic numbers, but any of them decodes any netpbm image.
#include <algorithm>
#include <string>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

enum class Tuple { kBlackWhite, kGrey, kRgb };

struct PnmHeader {
  char magic = 0;  // '1'..'7'
  int32_t width = 0;
  int32_t height = 0;
  uint32_t maxval = 1;
  int depth = 1;  // samples per pixel in the file
  Tuple tuple = Tuple::kGrey;
  bool alpha = false;
  size_t raster = 0;  // offset of the first sample

  bool plain() const { return magic >= '1' && magic <= '3'; }
  bool pbm() const { return magic == '1' || magic == '4'; }
  int bytesPerSample() const { return maxval < 256 ? 1 : 2; }
  // Bytes of one row of a raw raster.
  uint64_t rawRowBytes() const {
    if (magic == '4') return (static_cast<uint64_t>(width) + 7) / 8;
    return static_cast<uint64_t>(width) * depth * bytesPerSample();
  }
};

bool isSpace(uint8_t c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}
bool isDigit(uint8_t c) { return c >= '0' && c <= '9'; }

int peekByte(const ByteReader& r) {
  const uint8_t* p = r.peek(1);
  return p ? *p : -1;
}

// Skips whitespace and comments (from '#' to the end of the line).
void skipSpace(ByteReader& r) {
  for (int c; (c = peekByte(r)) >= 0;) {
    if (c == '#') {
      while ((c = peekByte(r)) >= 0 && c != '\n' && c != '\r') r.skip(1);
    } else if (isSpace(static_cast<uint8_t>(c))) {
      r.skip(1);
    } else {
      return;
    }
  }
}

// Reads an unsigned decimal number after optional whitespace and comments.
// Values too large for any field saturate instead of overflowing.
bool readNumber(ByteReader& r, uint64_t* out) {
  skipSpace(r);
  int c = peekByte(r);
  if (c < 0 || !isDigit(static_cast<uint8_t>(c))) return false;
  uint64_t v = 0;
  while ((c = peekByte(r)) >= 0 && isDigit(static_cast<uint8_t>(c))) {
    if (v < (uint64_t{1} << 40)) v = v * 10 + static_cast<uint64_t>(c - '0');
    r.skip(1);
  }
  *out = v;
  return true;
}

bool sizeOk(uint64_t w, uint64_t h) {
  return w >= 1 && h >= 1 && w <= kMaxDimension && h <= kMaxDimension;
}

// PAM header after "P7": keyword lines up to ENDHDR.
const char* parsePam(ByteReader& r, PnmHeader& h) {
  uint64_t width = 0, height = 0, depth = 0, maxval = 0;
  bool haveWidth = false, haveHeight = false, haveDepth = false, haveMaxval = false;
  std::string tuple;
  for (;;) {
    skipSpace(r);
    std::string key;
    for (int c; (c = peekByte(r)) >= 0 && !isSpace(static_cast<uint8_t>(c)) && key.size() < 16;
         r.skip(1))
      key += static_cast<char>(c);
    if (key.empty()) return "truncated PAM header";
    if (key == "ENDHDR") {
      while (peekByte(r) >= 0 && peekByte(r) != '\n') r.skip(1);
      r.skip(1);
      break;
    }
    if (key == "TUPLTYPE") {
      while (peekByte(r) == ' ' || peekByte(r) == '\t') r.skip(1);
      std::string value;
      for (int c; (c = peekByte(r)) >= 0 && c != '\n' && c != '\r'; r.skip(1))
        if (value.size() < 64) value += static_cast<char>(c);
      while (!value.empty() && isSpace(static_cast<uint8_t>(value.back()))) value.pop_back();
      if (!tuple.empty() && !value.empty()) tuple += ' ';
      tuple += value;
      continue;
    }
    uint64_t* field = key == "WIDTH"    ? &width
                      : key == "HEIGHT" ? &height
                      : key == "DEPTH"  ? &depth
                      : key == "MAXVAL" ? &maxval
                                        : nullptr;
    if (!field) return "bad PAM header";
    if (!readNumber(r, field)) return "bad PAM header";
    (key == "WIDTH"    ? haveWidth
     : key == "HEIGHT" ? haveHeight
     : key == "DEPTH"  ? haveDepth
                       : haveMaxval) = true;
  }
  if (!haveWidth || !haveHeight || !haveDepth || !haveMaxval) return "incomplete PAM header";
  if (!sizeOk(width, height)) return "bad width or height";
  if (maxval < 1 || maxval > 65535) return "bad maxval";
  if (depth < 1 || depth > 16) return "bad PAM depth";
  h.width = static_cast<int32_t>(width);
  h.height = static_cast<int32_t>(height);
  h.maxval = static_cast<uint32_t>(maxval);
  h.depth = static_cast<int>(depth);

  struct Known {
    const char* name;
    Tuple tuple;
    bool alpha;
    int channels;
  };
  static const Known kKnown[] = {
      {"BLACKANDWHITE", Tuple::kBlackWhite, false, 1},
      {"BLACKANDWHITE_ALPHA", Tuple::kBlackWhite, true, 2},
      {"GRAYSCALE", Tuple::kGrey, false, 1},
      {"GRAYSCALE_ALPHA", Tuple::kGrey, true, 2},
      {"RGB", Tuple::kRgb, false, 3},
      {"RGB_ALPHA", Tuple::kRgb, true, 4},
  };
  const Known* known = nullptr;
  for (const Known& k : kKnown)
    if (tuple == k.name) known = &k;
  if (!known) {
    // No or an unfamiliar tuple type: go by the depth.
    if (h.depth > 4) return "unsupported PAM tuple type";
    known = &kKnown[h.depth == 1 ? 2 : h.depth == 2 ? 3 : h.depth == 3 ? 4 : 5];
  }
  if (h.depth < known->channels) return "bad PAM depth";
  h.tuple = known->tuple;
  h.alpha = known->alpha;
  return nullptr;
}

// Parses the header of the image starting at r.pos(). Null on success, else
// the reason.
const char* parseHeader(ByteReader& r, PnmHeader& h) {
  h = PnmHeader{};
  const uint8_t* p = r.peek(3);
  if (!p || p[0] != 'P' || p[1] < '1' || p[1] > '7') return "not a netpbm file";
  if (!isSpace(p[2]) && p[2] != '#') return "bad netpbm header";
  h.magic = static_cast<char>(p[1]);
  r.skip(2);
  if (h.magic == '7') {
    if (const char* why = parsePam(r, h)) return why;
  } else {
    uint64_t width, height, maxval = 1;
    if (!readNumber(r, &width) || !readNumber(r, &height)) return "bad netpbm header";
    if (!h.pbm() && !readNumber(r, &maxval)) return "bad netpbm header";
    // One whitespace character ends the header.
    const int c = peekByte(r);
    if (c < 0 || !isSpace(static_cast<uint8_t>(c))) return "bad netpbm header";
    r.skip(1);
    if (!sizeOk(width, height)) return "bad width or height";
    if (maxval < 1 || maxval > 65535) return "bad maxval";
    h.width = static_cast<int32_t>(width);
    h.height = static_cast<int32_t>(height);
    h.maxval = static_cast<uint32_t>(maxval);
    h.depth = h.magic == '3' || h.magic == '6' ? 3 : 1;
    h.tuple = h.pbm() ? Tuple::kBlackWhite : h.depth == 3 ? Tuple::kRgb : Tuple::kGrey;
  }
  h.raster = r.pos();
  return nullptr;
}

// Reads the samples of one row: width * depth values clamped to maxval (for
// PBM, width bits with 1 = black). `out` null skips them. Returns how many
// samples were read; fewer means the data ended or held a bad token.
size_t readRow(ByteReader& r, const PnmHeader& h, uint16_t* out) {
  const size_t n = static_cast<size_t>(h.width) * (h.pbm() ? 1 : h.depth);
  if (h.magic == '4') {
    const size_t bytes = (n + 7) / 8;
    const uint8_t* p = r.peek(bytes);
    const size_t have = p ? bytes : r.remaining();
    p = r.peek(have);
    if (out)
      for (size_t i = 0; i < std::min(n, have * 8); ++i) out[i] = (p[i / 8] >> (7 - i % 8)) & 1;
    r.skip(have);
    return std::min(n, have * 8);
  }
  if (!h.plain()) {
    const size_t bps = static_cast<size_t>(h.bytesPerSample());
    const size_t have = std::min(n, r.remaining() / bps);
    const uint8_t* p = r.peek(have * bps);
    if (out) {
      for (size_t i = 0; i < have; ++i) {
        const uint32_t v = bps == 1 ? p[i] : (p[2 * i] << 8 | p[2 * i + 1]);
        out[i] = static_cast<uint16_t>(std::min(v, h.maxval));
      }
    }
    r.skip(have * bps);
    return have;
  }
  for (size_t i = 0; i < n; ++i) {
    uint64_t v;
    if (h.magic == '1') {
      // Plain PBM digits need no separators.
      skipSpace(r);
      const int c = peekByte(r);
      if (c != '0' && c != '1') return i;
      r.skip(1);
      v = static_cast<uint64_t>(c - '0');
    } else if (!readNumber(r, &v)) {
      return i;
    }
    if (out) out[i] = static_cast<uint16_t>(std::min<uint64_t>(v, h.maxval));
  }
  return n;
}

// Moves r past the raster of an image whose header has been read. False when
// the raster is incomplete.
bool skipRaster(ByteReader& r, const PnmHeader& h) {
  if (!h.plain()) {
    const uint64_t bytes = h.rawRowBytes() * static_cast<uint64_t>(h.height);
    if (bytes > r.remaining()) return false;
    r.skip(bytes);
    return true;
  }
  for (int y = 0; y < h.height; ++y)
    if (readRow(r, h, nullptr) < static_cast<size_t>(h.width) * (h.pbm() ? 1 : h.depth))
      return false;
  return true;
}

// Finds image `index` of the stream and counts all images. The first header
// must be valid; after the last complete image, anything that is not another
// valid header is ignored. Null on success (index found), else the reason.
const char* locate(const ReadContext& ctx, int index, PnmHeader* found, int* count) {
  ByteReader r(ctx.data, ctx.size);
  *count = 0;
  const char* why = "no such picture in file";
  for (;;) {
    PnmHeader h;
    if (const char* bad = parseHeader(r, h))
      return *count == 0 ? bad : (*count > index ? nullptr : why);
    if (*count == index) *found = h;
    ++*count;
    if (!skipRaster(r, h)) break;
    while (peekByte(r) >= 0 && isSpace(static_cast<uint8_t>(peekByte(r)))) r.skip(1);
    if (r.remaining() == 0) break;
  }
  return *count > index ? nullptr : why;
}

int bitsOf(uint32_t maxval) { return 32 - __builtin_clz(maxval); }

void fillHeader(ReadContext& ctx, const PnmHeader& h, int count) {
  ctx.header.width = h.width;
  ctx.header.height = h.height;
  ctx.header.planes = static_cast<int16_t>(h.pbm() ? 1 : h.depth);
  ctx.header.bitsPerPlane = static_cast<int16_t>(bitsOf(h.maxval));
  ctx.header.pictureCount = count;
}

uint8_t scale(uint32_t v, uint32_t maxval) {
  if (maxval == 255) return static_cast<uint8_t>(v);
  return static_cast<uint8_t>((v * 255 + maxval / 2) / maxval);
}

// The picture kind an image becomes.
uint16_t kindOf(const PnmHeader& h) {
  if (h.alpha) return IMK_RGBX;
  return h.tuple == Tuple::kBlackWhite ? IMK_BINARY : h.tuple == Tuple::kGrey ? IMK_GREY : IMK_RGB;
}

// Converts the first `have` samples of a row into picture pixels.
void storeRow(const PnmHeader& h, const uint16_t* s, size_t have, uint8_t* dst) {
  const int w = h.width, d = h.pbm() ? 1 : h.depth;
  const int pixels = static_cast<int>(std::min<size_t>(have / d, static_cast<size_t>(w)));
  switch (kindOf(h)) {
    case IMK_BINARY:
      // PBM: 1 is black; PAM BLACKANDWHITE: 0 is black.
      for (int x = 0; x < pixels; ++x) dst[x] = h.pbm() ? s[x * d] == 0 : s[x * d] != 0;
      return;
    case IMK_GREY:
      for (int x = 0; x < pixels; ++x)
        dst[x] = h.maxval <= 255 ? static_cast<uint8_t>(s[x * d]) : scale(s[x * d], h.maxval);
      return;
    case IMK_RGB:
      for (int x = 0; x < pixels; ++x, s += d, dst += 3)
        for (int c = 0; c < 3; ++c) dst[c] = scale(s[c], h.maxval);
      return;
    default:  // with alpha
      for (int x = 0; x < pixels; ++x, s += d, dst += 4) {
        if (h.tuple == Tuple::kRgb) {
          for (int c = 0; c < 3; ++c) dst[c] = scale(s[c], h.maxval);
        } else {
          dst[0] = dst[1] = dst[2] =
              h.tuple == Tuple::kBlackWhite ? (s[0] ? 255 : 0) : scale(s[0], h.maxval);
        }
        dst[3] = scale(s[h.tuple == Tuple::kRgb ? 3 : 1], h.maxval);
      }
      return;
  }
}

int infoPnm(ReadContext& ctx) {
  PnmHeader h;
  int count;
  if (const char* why = locate(ctx, ctx.pictureIndex(), &h, &count)) {
    if (count > 0) {
      locate(ctx, 0, &h, &count);  // describe the first picture
      fillHeader(ctx, h, count);
    }
    return ctx.fail(IMK_ERR_BAD_FILE, why);
  }
  fillHeader(ctx, h, count);
  return IMK_OK;
}

int readPnm(ReadContext& ctx, Picture& out) {
  PnmHeader h;
  int count;
  if (const char* why = locate(ctx, ctx.pictureIndex(), &h, &count)) {
    ctx.header.pictureCount = count;
    return ctx.fail(IMK_ERR_BAD_FILE, why);
  }
  fillHeader(ctx, h, count);
  ByteReader r(ctx.data, ctx.size);
  r.seek(h.raster);
  // The raster is checked against the file before anything is allocated:
  // raw rasters have an exact size; plain ones need at least a character per
  // sample, and a separator between numbers.
  const uint64_t total = static_cast<uint64_t>(h.width) * h.height * (h.pbm() ? 1 : h.depth);
  const uint64_t least = !h.plain()       ? h.rawRowBytes() * h.height
                         : h.magic == '1' ? total
                                          : 2 * total - 1;
  if (int rc = ctx.requireData(least, r.remaining())) return rc;
  const uint16_t kind = kindOf(h);
  if (!sizeAcceptable(h.width, h.height, bytesPerPixelOf(kind)))
    return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  if (!out.allocate(kind, h.width, h.height)) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  if (kind == IMK_GREY) {
    out.rec().colorCount = h.maxval <= 255 ? static_cast<int32_t>(h.maxval) + 1 : 256;
    fillGreyPalette(out.rec(), out.rec().colorCount);
  }
  const size_t n = static_cast<size_t>(h.width) * (h.pbm() ? 1 : h.depth);
  std::vector<uint16_t> samples(n);
  if (ctx.beginProgress(h.height)) return IMK_ERR_STOPPED;
  for (int y = 0; y < h.height; ++y) {
    const size_t have = readRow(r, h, samples.data());
    storeRow(h, samples.data(), have, out.row(y));
    if (have < n)
      return ctx.damaged(IMK_ERR_CORRUPT, h.plain() && r.remaining() ? "bad sample" : "truncated");
    if (ctx.advanceProgress(y + 1)) return IMK_ERR_STOPPED;
  }
  return IMK_OK;
}

bool sniffMagic(const uint8_t* data, size_t size, char a, char b) {
  return size >= 3 && data[0] == 'P' && (data[1] == a || data[1] == b) &&
         (isSpace(data[2]) || data[2] == '#');
}
bool sniffPbm(const uint8_t* data, size_t size) { return sniffMagic(data, size, '1', '4'); }
bool sniffPgm(const uint8_t* data, size_t size) { return sniffMagic(data, size, '2', '5'); }
bool sniffPpm(const uint8_t* data, size_t size) { return sniffMagic(data, size, '3', '6'); }
bool sniffPam(const uint8_t* data, size_t size) { return sniffMagic(data, size, '7', '7'); }

// ---------------------------------------------------------------------------
// Writing.

// Output with error tracking; plain rasters keep lines within 70 characters.
class PnmOut {
 public:
  explicit PnmOut(FILE* f) : f_(f) {}
  void text(const std::string& s) { bytes(s.data(), s.size()); }
  void bytes(const void* p, size_t n) {
    if (ok_ && n && std::fwrite(p, 1, n, f_) != n) ok_ = false;
  }
  // A plain sample; `separate` puts a space before it unless a line starts.
  void token(unsigned v, bool separate) {
    char buf[8];
    const int len = std::snprintf(buf, sizeof buf, "%u", v);
    if (line_ + len + (separate ? 1 : 0) > 70) endLine();
    if (separate && line_ > 0) line_ += 1, bytes(" ", 1);
    bytes(buf, static_cast<size_t>(len));
    line_ += len;
  }
  void endLine() {
    bytes("\n", 1);
    line_ = 0;
  }
  bool ok() const { return ok_ && !std::ferror(f_); }

 private:
  FILE* f_;
  bool ok_ = true;
  int line_ = 0;
};

// What a picture is written as.
struct Plan {
  char magic;  // '1'..'7'
  int depth;   // samples per pixel
  uint32_t maxval;
  const char* tuple;  // PAM only
};

// Samples of row y in the plan's layout.
void rowSamples(const ImageRecord& pic, int y, const Plan& plan, std::vector<uint8_t>& rgba,
                uint16_t* out) {
  const uint8_t* src = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
  const int w = pic.width;
  if (pic.type == IMK_BINARY && plan.depth == 1) {
    const bool pbm = plan.magic == '1' || plan.magic == '4';
    for (int x = 0; x < w; ++x) out[x] = pbm ? src[x] == 0 : src[x] != 0;
  } else if (pic.type == IMK_GREY && plan.depth == 1) {
    for (int x = 0; x < w; ++x)
      out[x] = static_cast<uint16_t>(std::min<uint32_t>(src[x], plan.maxval));
  } else if (plan.depth == 4) {
    rowToRgba(pic, y, rgba.data());
    for (size_t i = 0; i < static_cast<size_t>(w) * 4; ++i) out[i] = rgba[i];
  } else {
    rowToRgb(pic, y, rgba.data());
    for (size_t i = 0; i < static_cast<size_t>(w) * 3; ++i) out[i] = rgba[i];
  }
}

int writeRaster(WriteContext& ctx, const ImageRecord& pic, const Plan& plan) {
  PnmOut out(ctx.out.file());
  const int w = pic.width, h = pic.height;
  if (plan.magic == '7') {
    out.text("P7\nWIDTH " + std::to_string(w) + "\nHEIGHT " + std::to_string(h) + "\nDEPTH " +
             std::to_string(plan.depth) + "\nMAXVAL " + std::to_string(plan.maxval) +
             "\nTUPLTYPE " + plan.tuple + "\nENDHDR\n");
  } else {
    std::string head =
        std::string("P") + plan.magic + "\n" + std::to_string(w) + " " + std::to_string(h) + "\n";
    if (plan.magic != '1' && plan.magic != '4') head += std::to_string(plan.maxval) + "\n";
    out.text(head);
  }
  const bool plain = plan.magic <= '3';
  const size_t n = static_cast<size_t>(w) * plan.depth;
  std::vector<uint16_t> samples(n);
  std::vector<uint8_t> rgba(static_cast<size_t>(w) * 4), bytes(n + 8);
  if (ctx.progress.begin(h)) return IMK_ERR_STOPPED;
  for (int y = 0; y < h && out.ok(); ++y) {
    rowSamples(pic, y, plan, rgba, samples.data());
    if (plan.magic == '4') {
      std::fill(bytes.begin(), bytes.end(), 0);
      for (size_t i = 0; i < n; ++i)
        bytes[i / 8] = static_cast<uint8_t>(bytes[i / 8] | samples[i] << (7 - i % 8));
      out.bytes(bytes.data(), (n + 7) / 8);
    } else if (!plain) {
      for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(samples[i]);
      out.bytes(bytes.data(), n);
    } else {
      for (size_t i = 0; i < n; ++i) out.token(samples[i], plan.magic != '1');
      out.endLine();
    }
    if (ctx.progress.advance(y + 1)) return IMK_ERR_STOPPED;
  }
  return out.ok() ? IMK_OK : IMK_ERR_WRITE;
}

// Grey levels written as themselves: maxval = levels - 1 (at least 1).
uint32_t greyMaxval(const ImageRecord& pic) {
  const int levels = pic.colorCount >= 1 && pic.colorCount <= 256 ? pic.colorCount : 256;
  return static_cast<uint32_t>(std::max(levels - 1, 1));
}

bool plainOption(const WriteContext& ctx) { return ctx.options.saveOption == 1; }

int writePbm(WriteContext& ctx, const ImageRecord& pic) {
  if (pic.type != IMK_BINARY) return IMK_ERR_CANNOT_SAVE;
  return writeRaster(ctx, pic, {plainOption(ctx) ? '1' : '4', 1, 1, nullptr});
}

int writePgm(WriteContext& ctx, const ImageRecord& pic) {
  if (pic.type != IMK_BINARY && pic.type != IMK_GREY) return IMK_ERR_CANNOT_SAVE;
  const uint32_t maxval = pic.type == IMK_BINARY ? 1 : greyMaxval(pic);
  return writeRaster(ctx, pic, {plainOption(ctx) ? '2' : '5', 1, maxval, nullptr});
}

int writePpm(WriteContext& ctx, const ImageRecord& pic) {
  return writeRaster(ctx, pic, {plainOption(ctx) ? '3' : '6', 3, 255, nullptr});
}

int writePam(WriteContext& ctx, const ImageRecord& pic) {
  switch (pic.type) {
    case IMK_BINARY:
      return writeRaster(ctx, pic, {'7', 1, 1, "BLACKANDWHITE"});
    case IMK_GREY:
      return writeRaster(ctx, pic, {'7', 1, greyMaxval(pic), "GRAYSCALE"});
    case IMK_RGBX:
      return writeRaster(ctx, pic, {'7', 4, 255, "RGB_ALPHA"});
    default:
      return writeRaster(ctx, pic, {'7', 3, 255, "RGB"});
  }
}

}  // namespace

const Codec kPbmCodec = {"pbm",
                         "PBM",
                         {"pbm"},
                         IMK_CAN_READ | IMK_CAN_WRITE | IMK_MULTI_PICTURE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize}, kEndKinds},
                         sniffPbm,
                         infoPnm,
                         readPnm,
                         writePbm};
const Codec kPgmCodec = {
    "pgm",
    "PGM",
    {"pgm"},
    IMK_CAN_READ | IMK_CAN_WRITE | IMK_MULTI_PICTURE,
    {{IMK_BINARY, 2, kAnySize, kAnySize}, {IMK_GREY, 256, kAnySize, kAnySize}, kEndKinds},
    sniffPgm,
    infoPnm,
    readPnm,
    writePgm};
const Codec kPpmCodec = {"ppm",
                         "PPM",
                         {"ppm", "pnm"},
                         IMK_CAN_READ | IMK_CAN_WRITE | IMK_MULTI_PICTURE,
                         {{IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize}, kEndKinds},
                         sniffPpm,
                         infoPnm,
                         readPnm,
                         writePpm};
const Codec kPamCodec = {"pam",
                         "PAM",
                         {"pam"},
                         IMK_CAN_READ | IMK_CAN_WRITE | IMK_MULTI_PICTURE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize},
                          {IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         sniffPam,
                         infoPnm,
                         readPnm,
                         writePam};

}  // namespace imk
