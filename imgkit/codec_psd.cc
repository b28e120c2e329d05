// Photoshop documents (PSD, and PSB, the large-document variant): the
// flattened composite image that follows the layers, read only. Layers
// themselves are skipped by their section length.
//
//   bitmap (1 bit)            -> binary (a set bit is black)
//   greyscale, duotone        -> grey, 256 levels (duotone shows its first ink)
//   indexed                   -> colour-mapped, palette from the colour mode data
//   RGB                       -> R,G,B
//   CMYK                      -> R,G,B (Photoshop stores inverted inks: 255 = none)
// 16-bit channels are rounded to 8 bits; 32-bit, multichannel and Lab
// documents are refused.
//
// Transparency: the composite holds the document's extra channels after the
// colour channels, and most of them are saved selections, not transparency.
// The first extra channel is taken as the composite's alpha only when the
// layer count is negative, which is how Photoshop marks "the first alpha
// channel is the transparency of the merged result"; the picture is then
// R,G,B + alpha. Photoshop blends such a composite with white, so the
// colours of partly transparent pixels are unblended again.
//
// The composite is raw or PackBits-compressed, one channel after the other
// (planar). The PackBits row lengths are checked against the file; each row
// is decoded into its own bounded buffer, so damaged data can only garble its
// own row. A cut file keeps the rows it has when errors are ignored.
#include <algorithm>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

enum Mode : uint16_t {
  kBitmap = 0,
  kGreyscale = 1,
  kIndexed = 2,
  kRgb = 3,
  kCmyk = 4,
  kMultichannel = 7,
  kDuotone = 8,
  kLab = 9,
};

enum Compression : uint16_t { kRaw = 0, kPackBits = 1 };

struct Document {
  bool large = false;  // PSB: 32-bit row lengths, 64-bit section lengths
  uint32_t channels = 0;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t depth = 0;
  uint16_t mode = 0;
  const uint8_t* palette = nullptr;  // 768 bytes, planar like the picture's
  int paletteCount = 256;
  bool transparency = false;  // first extra channel = composite alpha
  size_t imageData = 0;       // offset of the compression word

  uint32_t colourChannels() const { return mode == kRgb ? 3 : mode == kCmyk ? 4 : 1; }
  bool alpha() const {
    return transparency && channels > colourChannels() && mode != kIndexed && mode != kBitmap;
  }
  uint32_t usedChannels() const { return colourChannels() + (alpha() ? 1 : 0); }
  size_t rowBytes() const {
    return depth == 1 ? (width + 7) / 8 : static_cast<size_t>(width) * (depth / 8);
  }
};

// A section length: 32 bits, 64 in large documents for the layer section.
uint64_t sectionLength(ByteReader& r, bool wide) {
  if (!wide) return r.u32be();
  const uint64_t high = r.u32be();
  return (high << 32) | r.u32be();
}

// The image resources: only the number of palette entries in use (1046)
// matters here. Malformed resources are ignored, never read past.
int paletteCountOf(const uint8_t* data, size_t size) {
  ByteReader r(data, size);
  while (r.remaining() >= 12) {
    uint8_t signature[4];
    r.bytes(signature, 4);
    if (std::memcmp(signature, "8BIM", 4) != 0) break;
    const uint16_t id = r.u16be();
    const uint8_t nameLength = r.u8();
    r.skip(nameLength + ((nameLength + 1) & 1));  // Pascal name padded to even
    const uint32_t length = r.u32be();
    if (r.overrun() || length > r.remaining()) break;
    if (id == 1046 && length >= 2) {
      const uint16_t count = r.u16be();
      return count >= 1 && count <= 256 ? count : 256;
    }
    r.skip(length + (length & 1));
  }
  return 256;
}

// Parses the header and the lengths of the sections before the composite.
int readDocument(ReadContext& ctx, Document* d) {
  ByteReader r(ctx.data, ctx.size);
  uint8_t signature[4];
  r.bytes(signature, 4);
  if (std::memcmp(signature, "8BPS", 4) != 0)
    return ctx.fail(IMK_ERR_BAD_FILE, "not a Photoshop document");
  const uint16_t version = r.u16be();
  if (version != 1 && version != 2) return ctx.fail(IMK_ERR_BAD_FILE, "unknown Photoshop version");
  d->large = version == 2;
  r.skip(6);
  d->channels = r.u16be();
  d->height = r.u32be();
  d->width = r.u32be();
  d->depth = r.u16be();
  d->mode = r.u16be();
  if (r.overrun()) return ctx.fail(IMK_ERR_BAD_FILE, "truncated header");
  ctx.header.width = static_cast<int32_t>(std::min<uint32_t>(d->width, INT32_MAX));
  ctx.header.height = static_cast<int32_t>(std::min<uint32_t>(d->height, INT32_MAX));
  ctx.header.pictureCount = 1;
  if (d->channels < 1 || d->channels > 56) return ctx.fail(IMK_ERR_BAD_FILE, "bad channel count");
  if (d->width < 1 || d->height < 1 || d->width > static_cast<uint32_t>(kMaxDimension) ||
      d->height > static_cast<uint32_t>(kMaxDimension))
    return ctx.fail(IMK_ERR_BAD_FILE, "bad picture size");
  switch (d->mode) {
    case kBitmap:
      if (d->depth != 1) return ctx.fail(IMK_ERR_BAD_FILE, "bitmap mode needs a depth of 1");
      break;
    case kIndexed:
      if (d->depth != 8) return ctx.fail(IMK_ERR_BAD_FILE, "indexed mode needs a depth of 8");
      break;
    case kGreyscale:
    case kDuotone:
    case kRgb:
    case kCmyk:
      if (d->depth == 32)
        return ctx.fail(IMK_ERR_BAD_FILE, "32-bit Photoshop documents not supported");
      if (d->depth != 8 && d->depth != 16) return ctx.fail(IMK_ERR_BAD_FILE, "bad channel depth");
      break;
    default:
      return ctx.fail(IMK_ERR_BAD_FILE, "unsupported Photoshop colour mode");
  }
  if (d->channels < d->colourChannels())
    return ctx.fail(IMK_ERR_BAD_FILE, "too few channels for the colour mode");

  // Colour mode data: the palette of indexed documents.
  const uint32_t modeLength = r.u32be();
  if (r.overrun() || modeLength > r.remaining())
    return ctx.fail(IMK_ERR_BAD_FILE, "colour mode data past the end");
  if (d->mode == kIndexed) {
    if (modeLength < 768) return ctx.fail(IMK_ERR_BAD_FILE, "palette missing");
    d->palette = r.peek(768);
  }
  r.skip(modeLength);

  const uint32_t resourceLength = r.u32be();
  if (r.overrun() || resourceLength > r.remaining())
    return ctx.fail(IMK_ERR_BAD_FILE, "image resources past the end");
  if (d->mode == kIndexed) d->paletteCount = paletteCountOf(r.peek(resourceLength), resourceLength);
  r.skip(resourceLength);

  // Layer and mask information: only the sign of the layer count is used.
  const uint64_t layerLength = sectionLength(r, d->large);
  if (r.overrun() || layerLength > r.remaining())
    return ctx.fail(IMK_ERR_BAD_FILE, "layer section past the end");
  const size_t layerEnd = r.pos() + static_cast<size_t>(layerLength);
  if (layerLength >= (d->large ? 10u : 6u)) {
    const uint64_t infoLength = sectionLength(r, d->large);
    if (infoLength >= 2 && !r.overrun()) d->transparency = static_cast<int16_t>(r.u16be()) < 0;
  }
  r.seek(layerEnd);
  d->imageData = r.pos();
  if (r.remaining() < 2) return ctx.fail(IMK_ERR_BAD_FILE, "composite image missing");

  ctx.header.planes = static_cast<int16_t>(d->usedChannels());
  ctx.header.bitsPerPlane = static_cast<int16_t>(d->depth);
  return IMK_OK;
}

// PackBits: a count byte n < 128 copies n + 1 bytes, n > 128 repeats the next
// byte 257 - n times, 128 does nothing. Decodes `in` into exactly `out.size()`
// bytes (the rest stays zero); false when the input ran out first.
bool unpackBits(const uint8_t* in, size_t inSize, std::vector<uint8_t>& out) {
  std::fill(out.begin(), out.end(), 0);
  size_t i = 0, o = 0;
  const size_t n = out.size();
  while (o < n && i < inSize) {
    const uint8_t c = in[i++];
    if (c < 128) {
      const size_t run = std::min<size_t>({size_t{c} + 1, n - o, inSize - i});
      std::memcpy(&out[o], in + i, run);
      o += run;
      if (run < size_t{c} + 1 && o < n) return false;
      i += run;
    } else if (c > 128) {
      if (i >= inSize) return false;
      const size_t run = std::min<size_t>(257u - c, n - o);
      std::memset(&out[o], in[i++], run);
      o += run;
    }
  }
  return o == n;
}

// Where every row of every stored channel lies in the file.
class RowSource {
 public:
  RowSource(const ReadContext& ctx, const Document& d) : ctx_(ctx), d_(d), row_(d.rowBytes()) {}

  // Sets up the row table; 0, or an error code for data that cannot hold
  // even one channel (hostile rather than cut).
  int init(ReadContext& ctx) {
    ByteReader r(ctx_.data, ctx_.size);
    r.seek(d_.imageData);
    compression_ = r.u16be();
    const size_t rows = static_cast<size_t>(d_.channels) * d_.height;
    const size_t rowBytes = d_.rowBytes();
    if (compression_ == kRaw) {
      // A cut file keeps what it has, but a header declaring far more than
      // the file holds (less than an eighth of it) is not worth a picture.
      start_ = r.pos();
      const uint64_t needed = static_cast<uint64_t>(d_.usedChannels()) * d_.height * rowBytes;
      if (uint64_t{r.remaining()} * 8 < needed)
        return ctx.fail(IMK_ERR_BAD_FILE, "image data too short for its size");
      return IMK_OK;
    }
    if (compression_ != kPackBits)
      return ctx.fail(IMK_ERR_BAD_FILE, "unsupported Photoshop compression");
    const size_t entry = d_.large ? 4 : 2;
    if (r.remaining() / entry < rows)
      return ctx.fail(IMK_ERR_BAD_FILE, "row length table past the end");
    // Offsets of the rows of the channels that are used.
    const size_t used = static_cast<size_t>(d_.usedChannels()) * d_.height;
    offsets_.resize(used + 1);
    uint64_t at = r.pos() + rows * entry;
    for (size_t i = 0; i < used; ++i) {
      offsets_[i] = at;
      at += d_.large ? r.u32be() : r.u16be();
    }
    offsets_[used] = at;
    // Even the smallest PackBits coding of a row takes 2 bytes per 128.
    const uint64_t minimal = uint64_t{2} * ((rowBytes + 127) / 128) * d_.height;
    if (ctx_.size - std::min<uint64_t>(offsets_[0], ctx_.size) < minimal)
      return ctx.fail(IMK_ERR_BAD_FILE, "image data too short for its size");
    return IMK_OK;
  }

  // Row y of channel c, decoded; nullptr where the data is missing or
  // damaged (`damaged` is then set).
  const uint8_t* row(uint32_t c, uint32_t y, bool* damaged) {
    const size_t rowBytes = row_.size();
    const size_t index = static_cast<size_t>(c) * d_.height + y;
    if (compression_ == kRaw) {
      const uint64_t at = start_ + static_cast<uint64_t>(index) * rowBytes;
      if (at + rowBytes > ctx_.size) {
        *damaged = true;
        return nullptr;
      }
      return ctx_.data + at;
    }
    const uint64_t begin = offsets_[index], end = offsets_[index + 1];
    if (end > ctx_.size) *damaged = true;
    if (begin >= ctx_.size) return nullptr;
    const size_t length = static_cast<size_t>(std::min<uint64_t>(end, ctx_.size) - begin);
    if (!unpackBits(ctx_.data + begin, length, row_)) *damaged = true;
    return row_.data();
  }

 private:
  const ReadContext& ctx_;
  const Document& d_;
  uint16_t compression_ = kRaw;
  size_t start_ = 0;
  std::vector<uint64_t> offsets_;
  std::vector<uint8_t> row_;
};

// One stored row as 8-bit values (16-bit samples rounded); zeros when missing.
void toEight(const uint8_t* src, uint8_t* out, const Document& d) {
  if (!src) {
    std::memset(out, 0, d.width);
  } else if (d.depth == 16) {
    for (uint32_t x = 0; x < d.width; ++x, src += 2)
      out[x] = static_cast<uint8_t>(((src[0] << 8 | src[1]) * 255u + 32767) / 65535);
  } else {
    std::memcpy(out, src, d.width);
  }
}

inline uint8_t mul255(unsigned a, unsigned b) {
  const unsigned x = a * b + 128;  // a*b/255 rounded, for a, b <= 255
  return static_cast<uint8_t>((x + (x >> 8)) >> 8);
}

// Undoes Photoshop's blending of a transparent composite with white.
void unblendWhite(uint8_t* px, int32_t width) {
  for (int32_t x = 0; x < width; ++x, px += 4) {
    const unsigned a = px[3];
    if (a == 0 || a == 255) continue;
    for (int c = 0; c < 3; ++c) {
      const int v = (static_cast<int>(px[c]) - static_cast<int>(255 - a)) * 255;
      px[c] = static_cast<uint8_t>(
          std::clamp((v + static_cast<int>(a / 2)) / static_cast<int>(a), 0, 255));
    }
  }
}

uint16_t kindOf(const Document& d) {
  switch (d.mode) {
    case kBitmap:
      return IMK_BINARY;
    case kIndexed:
      return IMK_MAPPED;
    case kGreyscale:
    case kDuotone:
      return d.alpha() ? IMK_RGBX : IMK_GREY;
    default:
      return d.alpha() ? IMK_RGBX : IMK_RGB;
  }
}

// Fills output row y from the stored channel rows.
void composeRow(const Document& d, RowSource& source, uint32_t y, std::vector<uint8_t>& planes,
                uint8_t* out, bool* damaged) {
  const uint32_t used = d.usedChannels();
  const int32_t width = static_cast<int32_t>(d.width);
  if (d.mode == kBitmap) {
    const uint8_t* bits = source.row(0, y, damaged);
    for (int32_t x = 0; x < width; ++x) out[x] = bits ? !((bits[x >> 3] >> (7 - (x & 7))) & 1) : 0;
    return;
  }
  for (uint32_t c = 0; c < used; ++c) toEight(source.row(c, y, damaged), &planes[c * d.width], d);
  const uint8_t* p = planes.data();
  switch (d.mode) {
    case kIndexed: {
      const auto top = static_cast<uint8_t>(d.paletteCount - 1);
      for (int32_t x = 0; x < width; ++x) out[x] = std::min(p[x], top);
      return;
    }
    case kCmyk: {
      const uint8_t *c = p, *m = p + d.width, *ye = p + 2 * d.width, *k = p + 3 * d.width;
      const int step = d.alpha() ? 4 : 3;
      uint8_t* o = out;
      for (int32_t x = 0; x < width; ++x, o += step) {
        o[0] = mul255(c[x], k[x]);
        o[1] = mul255(m[x], k[x]);
        o[2] = mul255(ye[x], k[x]);
        if (step == 4) o[3] = p[4 * d.width + x];
      }
      if (step == 4) unblendWhite(out, width);
      return;
    }
    case kRgb:
      if (d.alpha()) {
        for (int32_t x = 0; x < width; ++x)
          for (int c = 0; c < 4; ++c) out[4 * x + c] = p[c * d.width + x];
        unblendWhite(out, width);
      } else {
        for (int32_t x = 0; x < width; ++x)
          for (int c = 0; c < 3; ++c) out[3 * x + c] = p[c * d.width + x];
      }
      return;
    default:  // greyscale, duotone
      if (d.alpha()) {
        for (int32_t x = 0; x < width; ++x)
          out[4 * x] = out[4 * x + 1] = out[4 * x + 2] = p[x], out[4 * x + 3] = p[d.width + x];
        unblendWhite(out, width);
      } else {
        std::memcpy(out, p, d.width);
      }
      return;
  }
}

bool sniff(const uint8_t* data, size_t size) {
  return size >= 6 && std::memcmp(data, "8BPS", 4) == 0 && data[4] == 0 &&
         (data[5] == 1 || data[5] == 2);
}

int info(ReadContext& ctx) {
  Document d;
  return readDocument(ctx, &d);
}

int read(ReadContext& ctx, Picture& out) {
  Document d;
  if (int rc = readDocument(ctx, &d)) return rc;
  RowSource source(ctx, d);
  if (int rc = source.init(ctx)) return rc;
  const uint16_t kind = kindOf(d);
  const auto width = static_cast<int32_t>(d.width), height = static_cast<int32_t>(d.height);
  if (!out.allocate(kind, width, height))
    return sizeAcceptable(width, height, bytesPerPixelOf(kind))
               ? ctx.fail(IMK_ERR_MEMORY, "not enough memory")
               : ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  ImageRecord& rec = out.rec();
  if (kind == IMK_MAPPED) {
    for (int c = 0; c < 3; ++c) std::memcpy(rec.palette + 256 * c, d.palette + 256 * c, 256);
    rec.colorCount = d.paletteCount;
  }
  std::vector<uint8_t> planes(static_cast<size_t>(d.usedChannels()) * d.width);
  bool damaged = false;
  if (ctx.beginProgress(height)) return IMK_ERR_STOPPED;
  for (int32_t y = 0; y < height; ++y) {
    composeRow(d, source, static_cast<uint32_t>(y), planes, out.row(y), &damaged);
    if (ctx.advanceProgress(y + 1)) return IMK_ERR_STOPPED;
  }
  if (kind == IMK_MAPPED) simplifyMappedPicture(rec);
  return damaged ? ctx.damaged(IMK_ERR_CORRUPT, "truncated or damaged image data") : IMK_OK;
}

}  // namespace

const Codec kPsdCodec = {"psd", "Photoshop", {"psd", "psb"}, IMK_CAN_READ, {kEndKinds},
                         sniff, info,        read,           nullptr};

}  // namespace imk
