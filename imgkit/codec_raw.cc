// Headerless raw pixels. Nothing in the file describes it: the size, the
// offset of the first byte, the channel layout (grey, RGB, BGR, RGBA, ABGR,
// CMY, CMYK; 8 bits each) and how the channels are arranged (interleaved,
// one plane after another within each row, or whole planes) all come from
// the load options. Never recognised by content.
#include <algorithm>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

int channelsOf(int type) {
  switch (type) {
    case IMK_RAW_GREY:
      return 1;
    case IMK_RAW_RGB:
    case IMK_RAW_BGR:
    case IMK_RAW_CMY:
      return 3;
    case IMK_RAW_RGBA:
    case IMK_RAW_ABGR:
    case IMK_RAW_CMYK:
      return 4;
    default:
      return 0;
  }
}

uint16_t kindOf(int type) {
  switch (type) {
    case IMK_RAW_GREY:
      return IMK_GREY;
    case IMK_RAW_RGBA:
    case IMK_RAW_ABGR:
      return IMK_RGBX;
    default:
      return IMK_RGB;
  }
}

// Checks the options that describe the file. 0 or an error recorded in ctx.
int checkOptions(ReadContext& ctx) {
  const LoadOptions& o = ctx.options;
  if (o.rawWidth <= 0 || o.rawHeight <= 0)
    return ctx.fail(IMK_ERR_BAD_FILE, "raw width and height not set");
  if (o.rawWidth > kMaxDimension || o.rawHeight > kMaxDimension)
    return ctx.fail(IMK_ERR_BAD_FILE, "raw picture too large");
  if (o.rawOffset < 0) return ctx.fail(IMK_ERR_BAD_FILE, "negative raw offset");
  if (channelsOf(o.rawChannelType) == 0)
    return ctx.fail(IMK_ERR_BAD_FILE, "unknown raw channel type");
  if (o.rawChannelOrder != IMK_RAW_INTERLEAVED && o.rawChannelOrder != IMK_RAW_SEQUENTIAL &&
      o.rawChannelOrder != IMK_RAW_PLANES)
    return ctx.fail(IMK_ERR_BAD_FILE, "unknown raw channel order");
  HeaderInfo& h = ctx.header;
  h.width = o.rawWidth;
  h.height = o.rawHeight;
  h.planes = static_cast<int16_t>(channelsOf(o.rawChannelType));
  h.bitsPerPlane = 8;
  h.pictureCount = 1;
  return IMK_OK;
}

// Copies `len` bytes at file offset `start` (zeros past the end of the file).
// False when the file ends before them.
bool copyBytes(const ReadContext& ctx, uint64_t start, size_t len, uint8_t* out) {
  ByteReader r(ctx.data, ctx.size);
  if (start > ctx.size) {
    std::memset(out, 0, len);
    return len == 0;
  }
  r.seek(static_cast<size_t>(start));
  return r.bytes(out, len);
}

// One row of interleaved channel values into the picture's pixel layout.
void storeRow(int type, const uint8_t* s, int w, uint8_t* dst) {
  auto inverse = [](uint8_t v) { return static_cast<uint8_t>(255 - v); };
  for (int x = 0; x < w; ++x) {
    switch (type) {
      case IMK_RAW_GREY:
        dst[x] = s[x];
        break;
      case IMK_RAW_RGB:
        std::memcpy(dst + 3 * x, s + 3 * x, 3);
        break;
      case IMK_RAW_BGR:
        dst[3 * x] = s[3 * x + 2], dst[3 * x + 1] = s[3 * x + 1], dst[3 * x + 2] = s[3 * x];
        break;
      case IMK_RAW_RGBA:
        std::memcpy(dst + 4 * x, s + 4 * x, 4);
        break;
      case IMK_RAW_ABGR:
        dst[4 * x] = s[4 * x + 3], dst[4 * x + 1] = s[4 * x + 2], dst[4 * x + 2] = s[4 * x + 1];
        dst[4 * x + 3] = s[4 * x];
        break;
      case IMK_RAW_CMY:
        for (int c = 0; c < 3; ++c) dst[3 * x + c] = inverse(s[3 * x + c]);
        break;
      default: {  // CMYK: each colour is (255 - C)(255 - K) / 255, rounded
        const unsigned k = inverse(s[4 * x + 3]);
        for (int c = 0; c < 3; ++c)
          dst[3 * x + c] = static_cast<uint8_t>((inverse(s[4 * x + c]) * k + 127) / 255);
        break;
      }
    }
  }
}

int infoRaw(ReadContext& ctx) {
  if (ctx.options.rawWidth <= 0 || ctx.options.rawHeight <= 0)
    return ctx.fail(IMK_ERR_UNKNOWN_FORMAT, "raw files have no header");
  return checkOptions(ctx);
}

int readRaw(ReadContext& ctx, Picture& out) {
  if (int rc = checkOptions(ctx)) return rc;
  const LoadOptions& o = ctx.options;
  const int w = o.rawWidth, h = o.rawHeight, ch = channelsOf(o.rawChannelType);
  const uint64_t rowBytes = static_cast<uint64_t>(w) * ch;
  const uint64_t offset = static_cast<uint64_t>(o.rawOffset);
  const uint16_t kind = kindOf(o.rawChannelType);
  if (!sizeAcceptable(w, h, bytesPerPixelOf(kind)) || !sizeAcceptable(w, h, ch))
    return ctx.fail(IMK_ERR_BAD_FILE, "raw picture too large");
  // Without IMK_FLAG_IGNORE_ERRORS a short file fails before allocating.
  const bool complete =
      ctx.size >= offset && (ctx.size - offset) / rowBytes >= static_cast<uint64_t>(h);
  if (!complete && !ctx.ignoreErrors()) return ctx.fail(IMK_ERR_CORRUPT, "raw file too short");
  if (!out.allocate(kind, w, h)) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");

  std::vector<uint8_t> row(rowBytes), plane(static_cast<size_t>(w));
  if (ctx.beginProgress(h)) return IMK_ERR_STOPPED;
  for (int y = 0; y < h; ++y) {
    // The first channel of a row is its earliest byte in every arrangement:
    // once it lies past the end, so does everything after it.
    const uint64_t first = o.rawChannelOrder == IMK_RAW_PLANES
                               ? offset + static_cast<uint64_t>(y) * w
                               : offset + y * rowBytes;
    if (first >= ctx.size) break;
    if (o.rawChannelOrder == IMK_RAW_INTERLEAVED) {
      copyBytes(ctx, offset + y * rowBytes, rowBytes, row.data());
    } else {
      // Each channel's values for this row are contiguous: within the row
      // (sequential) or within its whole plane.
      for (int c = 0; c < ch; ++c) {
        const uint64_t start = o.rawChannelOrder == IMK_RAW_SEQUENTIAL
                                   ? offset + y * rowBytes + static_cast<uint64_t>(c) * w
                                   : offset + (static_cast<uint64_t>(c) * h + y) * w;
        copyBytes(ctx, start, plane.size(), plane.data());
        for (int x = 0; x < w; ++x) row[static_cast<size_t>(x) * ch + c] = plane[x];
      }
    }
    storeRow(o.rawChannelType, row.data(), w, out.row(y));
    if (ctx.advanceProgress(y + 1)) return IMK_ERR_STOPPED;
  }
  if (!complete) return ctx.damaged(IMK_ERR_CORRUPT, "raw file too short");
  return IMK_OK;
}

}  // namespace

const Codec kRawCodec = {"raw",       "Raw",   {"raw"}, IMK_CAN_READ | IMK_NO_SNIFF,
                         {kEndKinds}, nullptr, infoRaw, readRaw,
                         nullptr};

}  // namespace imk
