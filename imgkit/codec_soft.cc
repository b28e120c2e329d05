// Softimage PIC pictures. A 104-byte big-endian header
//
//   magic 0x5380F634, version (float), comment[80], "PICT",
//   width (u16), height (u16), pixel ratio (float), fields (u16), pad (u16)
//
// is followed by a chain of channel packets (chained flag, bits per sample,
// encoding, channel mask: 0x80 red, 0x40 green, 0x20 blue, 0x10 alpha) and
// then the rows, top first: for each row, each packet in turn codes its
// channels for the whole row, uncompressed, as pure runs (count, value) or as
// mixed runs (count < 128: count + 1 literal pixels; 128: a 16-bit count and
// a value; above 128: count - 127 copies of a value). Only 8-bit samples
// exist. The field flags (odd / even / both fields of a video frame) do not
// change the layout and are not used.
//
// Reading gives R,G,B, or R,G,B + alpha when a packet carries alpha; channels
// no packet codes are 0 (alpha 255). Writing stores true colour as one RGB
// packet, kind 512 with a second packet for alpha; saveOption 1 codes mixed
// runs, 0 stores the samples uncompressed.
#include <algorithm>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

constexpr uint32_t kMagic = 0x5380F634;
constexpr size_t kHeaderSize = 104;
// More packets than channels can only come from a broken file.
constexpr int kMaxPackets = 8;

enum : uint8_t { kUncompressed = 0, kPureRun = 1, kMixedRun = 2 };
enum : uint8_t { kRed = 0x80, kGreen = 0x40, kBlue = 0x20, kAlpha = 0x10 };

struct Packet {
  uint8_t encoding = kUncompressed;
  uint8_t channels = 0;
  // Byte offsets within an output pixel of the channels coded, in order.
  int offsets[4] = {};
  int count = 0;
};

struct SoftHeader {
  int32_t width = 0, height = 0;
  bool alpha = false;
  std::vector<Packet> packets;
  size_t dataOffset = 0;
};

int parseHeader(ReadContext& ctx, SoftHeader& h) {
  ByteReader r(ctx.data, ctx.size);
  if (ctx.size < kHeaderSize) return ctx.fail(IMK_ERR_BAD_FILE, "file too short");
  if (r.u32be() != kMagic) return ctx.fail(IMK_ERR_BAD_FILE, "not a Softimage PIC file");
  r.seek(88);
  if (r.u32be() != 0x50494354)  // "PICT"
    return ctx.fail(IMK_ERR_BAD_FILE, "not a Softimage picture");
  h.width = r.u16be();
  h.height = r.u16be();
  if (h.width == 0 || h.height == 0) return ctx.fail(IMK_ERR_BAD_FILE, "bad dimensions");
  r.seek(kHeaderSize);
  uint8_t seen = 0;
  for (bool chained = true; chained;) {
    if (static_cast<int>(h.packets.size()) == kMaxPackets)
      return ctx.fail(IMK_ERR_BAD_FILE, "too many channel packets");
    chained = r.u8() != 0;
    const uint8_t bits = r.u8();
    Packet p;
    p.encoding = r.u8();
    p.channels = r.u8();
    if (r.overrun()) return ctx.fail(IMK_ERR_BAD_FILE, "truncated header");
    if (bits != 8) return ctx.fail(IMK_ERR_BAD_FILE, "unsupported sample size");
    if (p.encoding > kMixedRun) return ctx.fail(IMK_ERR_BAD_FILE, "unknown packet encoding");
    if ((p.channels & 0xF0) == 0 || (p.channels & 0x0F) != 0)
      return ctx.fail(IMK_ERR_BAD_FILE, "bad channel mask");
    const uint8_t bitsOf[4] = {kRed, kGreen, kBlue, kAlpha};
    for (int c = 0; c < 4; ++c)
      if (p.channels & bitsOf[c]) p.offsets[p.count++] = c;
    seen |= p.channels;
    h.packets.push_back(p);
  }
  h.alpha = (seen & kAlpha) != 0;
  h.dataOffset = r.pos();
  HeaderInfo& info = ctx.header;
  info.width = h.width;
  info.height = h.height;
  info.planes = h.alpha ? 4 : 3;
  info.bitsPerPlane = 8;
  info.pictureCount = 1;
  return IMK_OK;
}

// Decodes one packet of one row into `row` (pixels of `bpp` bytes). The
// damage found, or nullptr.
const char* decodePacket(ByteReader& r, const Packet& p, uint8_t* row, int width, int bpp) {
  auto pixel = [&](int x, const uint8_t* v) {
    uint8_t* o = row + static_cast<size_t>(x) * bpp;
    for (int c = 0; c < p.count; ++c) o[p.offsets[c]] = v[c];
  };
  uint8_t value[4] = {};
  auto readValue = [&] {
    for (int c = 0; c < p.count; ++c) value[c] = r.u8();
    return !r.overrun();
  };
  int x = 0;
  if (p.encoding == kUncompressed) {
    for (; x < width; ++x) {
      if (!readValue()) return "truncated";
      pixel(x, value);
    }
    return nullptr;
  }
  while (x < width) {
    int count = r.u8();
    bool run = true;
    if (p.encoding == kMixedRun) {
      if (count < 128) {
        run = false;
        ++count;
      } else if (count == 128) {
        count = r.u16be();
      } else {
        count -= 127;
      }
    }
    if (r.overrun()) return "truncated";
    if (count > width - x) return "run past end of row";
    if (run && !readValue()) return "truncated";
    for (int i = 0; i < count; ++i, ++x) {
      if (!run && !readValue()) return "truncated";
      pixel(x, value);
    }
  }
  return nullptr;
}

bool sniff(const uint8_t* data, size_t size) {
  return size >= 4 && data[0] == 0x53 && data[1] == 0x80 && data[2] == 0xF6 && data[3] == 0x34;
}

int info(ReadContext& ctx) {
  SoftHeader h;
  return parseHeader(ctx, h);
}

int read(ReadContext& ctx, Picture& out) {
  SoftHeader h;
  if (int rc = parseHeader(ctx, h)) return rc;
  // The fewest bytes a row can take: a byte per sample uncompressed, else
  // runs as long as the encoding allows (pure: 255 pixels for a count byte;
  // mixed: 128 for a count byte or 65535 for three bytes).
  uint64_t leastPerRow = 0;
  for (const Packet& p : h.packets) {
    const uint64_t w = static_cast<uint64_t>(h.width), n = static_cast<uint64_t>(p.count);
    if (p.encoding == kUncompressed)
      leastPerRow += w * n;
    else if (p.encoding == kPureRun)
      leastPerRow += (w + 254) / 255 * (1 + n);
    else
      leastPerRow += std::min((w + 127) / 128 * (1 + n), (w + 65534) / 65535 * (3 + n));
  }
  if (int rc = ctx.requireData(leastPerRow * h.height, ctx.size - h.dataOffset)) return rc;
  const uint16_t kind = h.alpha ? IMK_RGBX : IMK_RGB;
  if (!sizeAcceptable(h.width, h.height, bytesPerPixelOf(kind)))
    return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  if (!out.allocate(kind, h.width, h.height)) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  if (ctx.beginProgress(h.height)) return IMK_ERR_STOPPED;
  const int bpp = out.rec().bytesPerPixel;
  ByteReader r(ctx.data, ctx.size);
  r.seek(h.dataOffset);
  for (int y = 0; y < h.height; ++y) {
    uint8_t* row = out.row(y);
    if (h.alpha)
      for (int x = 0; x < h.width; ++x) row[static_cast<size_t>(x) * 4 + 3] = 255;
    for (const Packet& p : h.packets)
      if (const char* damage = decodePacket(r, p, row, h.width, bpp))
        return ctx.damaged(IMK_ERR_CORRUPT, damage);
    if (ctx.advanceProgress(y + 1)) return IMK_ERR_STOPPED;
  }
  return IMK_OK;
}

// ---------------------------------------------------------------------------
// Writing.

struct Bytes {
  std::vector<uint8_t> data;
  void u8(uint32_t v) { data.push_back(static_cast<uint8_t>(v)); }
  void u16(uint32_t v) { u8(v >> 8), u8(v); }
  void u32(uint32_t v) { u16(v >> 16), u16(v); }
};

// Mixed-run codes for `width` pixels of `n` channels each (`px` holds them
// packed). Repeats of two or more pixels become runs, the rest literals.
void encodeMixed(const uint8_t* px, int width, int n, Bytes& out) {
  auto same = [&](int a, int b) { return std::memcmp(px + a * n, px + b * n, n) == 0; };
  auto emit = [&](int x) { out.data.insert(out.data.end(), px + x * n, px + (x + 1) * n); };
  int x = 0;
  while (x < width) {
    int run = 1;
    while (x + run < width && run < 65535 && same(x, x + run)) ++run;
    if (run >= 2) {
      if (run <= 128) {
        out.u8(static_cast<uint32_t>(run + 127));
      } else {
        out.u8(128);
        out.u16(static_cast<uint32_t>(run));
      }
      emit(x);
      x += run;
      continue;
    }
    int end = x + 1;  // literals up to the next repeat, at most 128
    while (end < width && end - x < 128 && !(end + 1 < width && same(end, end + 1))) ++end;
    out.u8(static_cast<uint32_t>(end - x - 1));
    for (; x < end; ++x) emit(x);
  }
}

int write(WriteContext& ctx, const ImageRecord& pic) {
  FILE* f = ctx.out.file();
  if (!f) return IMK_ERR_WRITE;
  if (pic.width > 0xFFFF || pic.height > 0xFFFF) return IMK_ERR_CANNOT_SAVE;
  const bool alpha = pic.type == IMK_RGBX;
  const bool mixed = ctx.options.saveOption == 1;
  Bytes head;
  head.u32(kMagic);
  head.u32(0x406D70A4);                     // version 3.71 as a float
  head.data.resize(head.data.size() + 80);  // empty comment
  head.u32(0x50494354);                     // "PICT"
  head.u16(static_cast<uint32_t>(pic.width));
  head.u16(static_cast<uint32_t>(pic.height));
  head.u32(0x3F800000);  // pixel ratio 1.0
  head.u16(3);           // both fields: a full frame
  head.u16(0);
  const uint8_t encoding = mixed ? kMixedRun : kUncompressed;
  for (uint32_t v : {alpha ? 1u : 0u, 8u, uint32_t{encoding}, uint32_t{kRed | kGreen | kBlue}})
    head.u8(v);
  if (alpha)
    for (uint32_t v : {0u, 8u, uint32_t{encoding}, uint32_t{kAlpha}}) head.u8(v);
  if (std::fwrite(head.data.data(), 1, head.data.size(), f) != head.data.size())
    return IMK_ERR_WRITE;

  if (ctx.progress.begin(pic.height)) return IMK_ERR_STOPPED;
  const size_t w = static_cast<size_t>(pic.width);
  std::vector<uint8_t> rgba(w * 4), rgb(w * 3), a(w);
  Bytes row;
  for (int y = 0; y < pic.height; ++y) {
    rowToRgba(pic, y, rgba.data());
    for (size_t x = 0; x < w; ++x) {
      std::memcpy(&rgb[x * 3], &rgba[x * 4], 3);
      a[x] = rgba[x * 4 + 3];
    }
    row.data.clear();
    if (mixed) {
      encodeMixed(rgb.data(), pic.width, 3, row);
      if (alpha) encodeMixed(a.data(), pic.width, 1, row);
    } else {
      row.data = rgb;
      if (alpha) row.data.insert(row.data.end(), a.begin(), a.end());
    }
    if (std::fwrite(row.data.data(), 1, row.data.size(), f) != row.data.size())
      return IMK_ERR_WRITE;
    if (ctx.progress.advance(y + 1)) return IMK_ERR_STOPPED;
  }
  return std::ferror(f) ? IMK_ERR_WRITE : IMK_OK;
}

}  // namespace

const Codec kSoftCodec = {"soft",
                          "Softimage PIC",
                          {"pic", "si"},
                          IMK_CAN_READ | IMK_CAN_WRITE,
                          {{IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize}, kEndKinds},
                          sniff,
                          info,
                          read,
                          write};

}  // namespace imk
