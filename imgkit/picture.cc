// Allocation and release of picture records, and the pixel helpers that turn
// any picture kind into rows of R,G,B, R,G,B,A or grey for the writers.
#include <sys/mman.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

#include "imgkit/internal.h"

namespace imk {

namespace {
std::atomic<size_t> gPixelByteLimit{size_t{1} << 32};
}

size_t pixelByteLimit() { return gPixelByteLimit.load(); }
void setPixelByteLimit(size_t bytes) { gPixelByteLimit.store(bytes); }

int bytesPerPixelOf(uint16_t type) {
  switch (type) {
    case IMK_BINARY:
    case IMK_GREY:
    case IMK_MAPPED:
      return 1;
    case IMK_RGB:
    case IMK_BGR:
      return 3;
    case IMK_RGBX:
    case IMK_XBGR:
      return 4;
    default:
      return 0;
  }
}

// Rows are packed: the stride is exactly width x bytes per pixel. Operations
// that place pixels relative to the end of the row buffer (the horizontal
// flip) then mirror the picture exactly.
static int64_t strideOf(int64_t width, int bytesPerPixel) { return width * bytesPerPixel; }

bool sizeAcceptable(int64_t width, int64_t height, int bytesPerPixel) {
  if (width <= 0 || height <= 0 || bytesPerPixel <= 0) return false;
  if (width > kMaxDimension || height > kMaxDimension) return false;
  uint64_t bytes;
  if (__builtin_mul_overflow(static_cast<uint64_t>(strideOf(width, bytesPerPixel)),
                             static_cast<uint64_t>(height), &bytes))
    return false;
  return bytes <= pixelByteLimit();
}

void fillGreyPalette(ImageRecord& rec, int count) {
  if (!rec.palette || count < 1 || count > 256) return;
  for (int i = 0; i < count; ++i) {
    uint8_t v = greyLevelIntensity(i, count);
    rec.palette[i] = rec.palette[256 + i] = rec.palette[512 + i] = v;
  }
}

bool Picture::allocate(uint16_t type, int32_t width, int32_t height, int16_t bitsPerComponent) {
  reset();
  if (!sizeAcceptable(width, height, bytesPerPixelOf(type))) return false;
  return imkAllock(&rec_, type, bitsPerComponent, width, height) != 0;
}

void Picture::reset() {
  if (rec_.pixels || rec_.palette) imkFree(&rec_);
  std::memset(&rec_, 0, sizeof rec_);
}

// Byte offsets of red, green and blue within a true-colour pixel.
static void channelOffsets(uint16_t type, int* r, int* g, int* b) {
  switch (type) {
    case IMK_RGB:
    case IMK_RGBX:
      *r = 0, *g = 1, *b = 2;
      break;
    case IMK_XBGR:
      *r = 3, *g = 2, *b = 1;
      break;
    default:  // IMK_BGR and any other true-colour layout
      *r = 2, *g = 1, *b = 0;
      break;
  }
}

template <int kOut>
static void rowToChannels(const ImageRecord& rec, int y, uint8_t* out) {
  const uint8_t* src = rec.pixels + static_cast<size_t>(y) * rec.bytesPerLine;
  const int w = rec.width;
  auto put = [&](int x, uint8_t r, uint8_t g, uint8_t b, uint8_t a) {
    uint8_t* o = out + x * kOut;
    o[0] = r, o[1] = g, o[2] = b;
    if constexpr (kOut == 4) o[3] = a;
  };
  switch (rec.type) {
    case IMK_BINARY:
      for (int x = 0; x < w; ++x) {
        uint8_t v = src[x] ? 255 : 0;
        put(x, v, v, v, 255);
      }
      return;
    case IMK_GREY: {
      int count = rec.colorCount > 0 && rec.colorCount <= 256 ? rec.colorCount : 256;
      uint8_t ramp[256];
      for (int i = 0; i < 256; ++i) ramp[i] = greyLevelIntensity(i < count ? i : count - 1, count);
      for (int x = 0; x < w; ++x) put(x, ramp[src[x]], ramp[src[x]], ramp[src[x]], 255);
      return;
    }
    case IMK_MAPPED: {
      const uint8_t* p = rec.palette;
      for (int x = 0; x < w; ++x) {
        uint8_t i = src[x];
        if (p)
          put(x, p[i], p[256 + i], p[512 + i], 255);
        else
          put(x, i, i, i, 255);
      }
      return;
    }
    default: {
      int r, g, b;
      channelOffsets(rec.type, &r, &g, &b);
      const int step = rec.bytesPerPixel > 0 ? rec.bytesPerPixel : 3;
      const bool alpha = rec.type == IMK_RGBX;
      for (int x = 0; x < w; ++x, src += step) put(x, src[r], src[g], src[b], alpha ? src[3] : 255);
      return;
    }
  }
}

void rowToRgb(const ImageRecord& rec, int y, uint8_t* out) { rowToChannels<3>(rec, y, out); }
void rowToRgba(const ImageRecord& rec, int y, uint8_t* out) { rowToChannels<4>(rec, y, out); }

void rowToGrey(const ImageRecord& rec, int y, uint8_t* out) {
  const uint8_t* src = rec.pixels + static_cast<size_t>(y) * rec.bytesPerLine;
  const int w = rec.width;
  switch (rec.type) {
    case IMK_BINARY:
      for (int x = 0; x < w; ++x) out[x] = src[x] ? 255 : 0;
      return;
    case IMK_GREY: {
      int count = rec.colorCount > 0 && rec.colorCount <= 256 ? rec.colorCount : 256;
      for (int x = 0; x < w; ++x) out[x] = greyLevelIntensity(src[x] < count ? src[x] : count - 1, count);
      return;
    }
    case IMK_MAPPED: {
      const uint8_t* p = rec.palette;
      for (int x = 0; x < w; ++x) {
        uint8_t i = src[x];
        out[x] = p ? static_cast<uint8_t>((77 * p[i] + 150 * p[256 + i] + 29 * p[512 + i]) >> 8) : i;
      }
      return;
    }
    default: {
      int r, g, b;
      channelOffsets(rec.type, &r, &g, &b);
      const int step = rec.bytesPerPixel > 0 ? rec.bytesPerPixel : 3;
      for (int x = 0; x < w; ++x, src += step)
        out[x] = static_cast<uint8_t>((77 * src[r] + 150 * src[g] + 29 * src[b]) >> 8);
      return;
    }
  }
}

void simplifyMappedPicture(ImageRecord& rec) {
  if (rec.type != IMK_MAPPED || !rec.palette || !rec.pixels) return;
  const uint8_t* p = rec.palette;
  auto is = [p](int i, uint8_t v) { return p[i] == v && p[256 + i] == v && p[512 + i] == v; };
  const int n = rec.colorCount;
  if (n == 2 && ((is(0, 0) && is(1, 255)) || (is(0, 255) && is(1, 0)))) {
    const bool inverted = is(0, 255);
    for (int y = 0; y < rec.height; ++y) {
      uint8_t* row = rec.pixels + static_cast<size_t>(y) * rec.bytesPerLine;
      for (int x = 0; x < rec.width; ++x) row[x] = static_cast<uint8_t>((row[x] != 0) ^ inverted);
    }
    rec.type = IMK_BINARY;
    rec.colorCount = 2;
    fillGreyPalette(rec, 2);
    return;
  }
  if (n == 256) {
    for (int i = 0; i < 256; ++i)
      if (!is(i, static_cast<uint8_t>(i))) return;
    rec.type = IMK_GREY;
  }
}

}  // namespace imk

using namespace imk;

// Large pixel buffers are fresh mappings: asking for huge pages before the
// first touch cuts the page faults of a 24-megapixel picture from thousands
// to a few dozen (a no-op where the system does not offer them).
static void adviseHugePages(void* buffer, size_t bytes) {
  constexpr uintptr_t kHuge = uintptr_t{2} << 20;
  if (bytes < 4 * kHuge) return;
  const auto begin = reinterpret_cast<uintptr_t>(buffer);
  const uintptr_t first = (begin + kHuge - 1) & ~(kHuge - 1);
  const uintptr_t last = (begin + bytes) & ~(kHuge - 1);
  if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
}

extern "C" int16_t imkAllock(ImageRecord* picture, uint16_t type, int16_t bitsPerComponent,
                             int32_t width, int32_t height) {
  if (!picture) return 0;
  const int bpp = bytesPerPixelOf(type);
  if (bpp == 0 || width <= 0 || height <= 0 || width > kMaxDimension || height > kMaxDimension)
    return 0;
  const int64_t stride = strideOf(width, bpp);
  uint64_t bytes;
  if (__builtin_mul_overflow(static_cast<uint64_t>(stride), static_cast<uint64_t>(height), &bytes) ||
      bytes > (uint64_t{1} << 36))
    return 0;
  auto* palette = static_cast<unsigned char*>(std::calloc(768, 1));
  auto* pixels = static_cast<unsigned char*>(std::calloc(bytes, 1));
  if (!palette || !pixels) {
    std::free(palette);
    std::free(pixels);
    return 0;
  }
  adviseHugePages(pixels, bytes);
  std::memset(picture, 0, sizeof *picture);
  picture->width = width;
  picture->height = height;
  picture->bytesPerLine = static_cast<int32_t>(stride);
  picture->type = type;
  picture->bytesPerPixel = static_cast<int16_t>(bpp);
  picture->bitsPerComponent = bitsPerComponent;
  picture->palette = palette;
  picture->pixels = pixels;
  switch (type) {
    case IMK_BINARY:
      picture->colorCount = 2;
      fillGreyPalette(*picture, 2);
      break;
    case IMK_GREY:
    case IMK_MAPPED:
      picture->colorCount = 256;
      fillGreyPalette(*picture, 256);
      break;
    default:
      break;
  }
  return 1;
}

extern "C" void imkFree(ImageRecord* picture) {
  if (!picture) return;
  std::free(picture->palette);
  std::free(picture->pixels);
  picture->palette = nullptr;
  picture->pixels = nullptr;
}

void imk::cmykRowToRgb(const uint8_t* in, uint8_t* out, size_t width, bool inverted) {
  for (size_t x = 0; x < width; ++x, in += 4, out += 3) {
    if (inverted) {
      out[0] = mul255(in[0], in[3]);
      out[1] = mul255(in[1], in[3]);
      out[2] = mul255(in[2], in[3]);
    } else {
      const unsigned k = 255u - in[3];
      out[0] = mul255(255u - in[0], k);
      out[1] = mul255(255u - in[1], k);
      out[2] = mul255(255u - in[2], k);
    }
  }
}
