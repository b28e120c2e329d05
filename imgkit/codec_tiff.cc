// TIFF codec: every directory (page) of a file is a picture. Reading goes
// through libtiff over the memory block of the file; writing through libtiff
// onto the output FILE*.
//
// Reading has two routes. The direct route handles grey (MinIsBlack or
// MinIsWhite), palette, RGB and CMYK pages of unsigned, signed or
// floating-point samples, contiguous or in separate planes, at any depth
// libtiff decodes: strips or tiles are decoded band by band and converted row
// by row, and 8-bit contiguous data whose rows already have the picture's
// layout is decoded straight into the picture. Every other photometric kind
// (YCbCr and JPEG, old-style JPEG, CIE L*a*b*, LogLuv, ...) goes through
// libtiff's RGBA image reader.
//
// Kinds produced: 1-bit grey is binary; grey up to 8 bits keeps its level
// numbers (2^bits levels, MinIsWhite inverted); deeper grey is reduced to 256
// levels; palettes of up to 8 bits stay colour-mapped (16-bit colormaps are
// reduced to 8 bits; old files that wrote 8-bit values are detected); RGB and
// CMYK become R,G,B; any page with an alpha extra sample becomes R,G,B,A
// (an extra sample of unspecified meaning is not taken for alpha). Alpha in the
// picture is always unassociated: associated (premultiplied) alpha is divided
// out. Signed samples are shown offset by half their range, so the most
// negative value is black; floating-point samples are taken as 0..1.
//
// The Orientation tag is honoured for every route, including the transposed
// orientations 5-8, whose width and height are swapped.
#include <sys/stat.h>
#include <tiffio.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

// ---------------------------------------------------------------------------
// libtiff sessions: per-handle message capture, memory input, FILE* output.

// Error messages of a session: the first explains a refused file, the last
// a failed strip. Warnings are dropped; nothing reaches stderr.
struct TiffMessages {
  std::string first;
  std::string last;
};

int captureError(TIFF*, void* user, const char*, const char* fmt, va_list ap) {
  auto* m = static_cast<TiffMessages*>(user);
  if (m) {
    char buf[256];
    std::vsnprintf(buf, sizeof buf, fmt, ap);
    m->last = buf;
    if (m->first.empty()) m->first = buf;
  }
  return 1;
}

int dropWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct TiffCloser {
  void operator()(TIFF* tif) const { TIFFClose(tif); }
};
using TiffPtr = std::unique_ptr<TIFF, TiffCloser>;

struct OptionsFree {
  void operator()(TIFFOpenOptions* o) const { TIFFOpenOptionsFree(o); }
};

// Largest single allocation libtiff may make for one session.
tmsize_t libtiffAllocationLimit() {
  const size_t limit = std::max<size_t>(pixelByteLimit(), size_t{64} << 20);
  return static_cast<tmsize_t>(std::min<size_t>(limit, size_t{1} << 40));
}

// The read side: the whole file in memory, also offered to libtiff as its
// "mapping" so that strips are decoded from the block without copies.
struct MemoryFile {
  const uint8_t* data;
  uint64_t size;
  uint64_t pos;
};

tmsize_t memRead(thandle_t h, void* buf, tmsize_t n) {
  auto* f = static_cast<MemoryFile*>(h);
  if (n <= 0 || f->pos >= f->size) return 0;
  const uint64_t take = std::min<uint64_t>(static_cast<uint64_t>(n), f->size - f->pos);
  std::memcpy(buf, f->data + f->pos, take);
  f->pos += take;
  return static_cast<tmsize_t>(take);
}

tmsize_t memWrite(thandle_t, void*, tmsize_t) { return 0; }

toff_t memSeek(thandle_t h, toff_t off, int whence) {
  auto* f = static_cast<MemoryFile*>(h);
  uint64_t base = whence == SEEK_CUR ? f->pos : whence == SEEK_END ? f->size : 0;
  const uint64_t target = base + off;  // libtiff passes backward moves as wrapped values
  if (target > (uint64_t{1} << 62)) return static_cast<toff_t>(-1);
  f->pos = target;
  return target;
}

int memClose(thandle_t) { return 0; }
toff_t memSize(thandle_t h) { return static_cast<MemoryFile*>(h)->size; }

int memMap(thandle_t h, void** base, toff_t* size) {
  auto* f = static_cast<MemoryFile*>(h);
  *base = const_cast<uint8_t*>(f->data);  // libtiff only reads through the mapping
  *size = f->size;
  return 1;
}

void memUnmap(thandle_t, void*, toff_t) {}

TIFF* openClient(const char* mode, thandle_t handle, TiffMessages& messages, TIFFReadWriteProc rd,
                 TIFFReadWriteProc wr, TIFFSeekProc seek, TIFFCloseProc close, TIFFSizeProc size,
                 TIFFMapFileProc map, TIFFUnmapFileProc unmap) {
  std::unique_ptr<TIFFOpenOptions, OptionsFree> opts(TIFFOpenOptionsAlloc());
  if (!opts) return nullptr;
  TIFFOpenOptionsSetErrorHandlerExtR(opts.get(), captureError, &messages);
  TIFFOpenOptionsSetWarningHandlerExtR(opts.get(), dropWarning, nullptr);
  TIFFOpenOptionsSetMaxSingleMemAlloc(opts.get(), libtiffAllocationLimit());
  return TIFFClientOpenExt("TIFF", mode, handle, rd, wr, seek, close, size, map, unmap, opts.get());
}

TiffPtr openMemory(MemoryFile& file, TiffMessages& messages, const char* mode) {
  return TiffPtr(openClient(mode, &file, messages, memRead, memWrite, memSeek, memClose, memSize,
                            memMap, memUnmap));
}

// The text for ctx.fail: libtiff's first (or last) message when it gave one.
const char* reason(const TiffMessages& m, const char* fallback, bool last = false) {
  const std::string& text = last ? m.last : m.first;
  return text.empty() ? fallback : text.c_str();
}

// ---------------------------------------------------------------------------
// Page description.

struct Page {
  uint32_t width = 0, height = 0;
  uint16_t spp = 1, bps = 1;
  uint16_t photometric = PHOTOMETRIC_MINISBLACK;
  uint16_t planar = PLANARCONFIG_CONTIG;
  uint16_t format = SAMPLEFORMAT_UINT;
  uint16_t orientation = ORIENTATION_TOPLEFT;
  uint16_t compression = COMPRESSION_NONE;
  uint16_t alpha = 0;  // EXTRASAMPLE_ASSOCALPHA / _UNASSALPHA of the first extra sample
  bool tiled = false;
};

bool transposed(uint16_t orientation) {
  return orientation >= ORIENTATION_LEFTTOP && orientation <= ORIENTATION_LEFTBOT;
}

bool describePage(TIFF* tif, Page& p) {
  if (!TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &p.width) ||
      !TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &p.height))
    return false;
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &p.spp);
  TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &p.bps);
  if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &p.photometric))
    p.photometric = p.spp >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
  TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &p.planar);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &p.format);
  TIFFGetFieldDefaulted(tif, TIFFTAG_ORIENTATION, &p.orientation);
  TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &p.compression);
  if (p.orientation < ORIENTATION_TOPLEFT || p.orientation > ORIENTATION_LEFTBOT)
    p.orientation = ORIENTATION_TOPLEFT;
  uint16_t extraCount = 0;
  uint16_t* extraTypes = nullptr;
  if (TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extraTypes) &&
      extraCount > 0 && extraTypes &&
      (extraTypes[0] == EXTRASAMPLE_ASSOCALPHA || extraTypes[0] == EXTRASAMPLE_UNASSALPHA))
    p.alpha = extraTypes[0];
  p.tiled = TIFFIsTiled(tif) != 0;
  return true;
}

// Opens the file and selects page `index`; fills the header. 0 or a code.
int openPage(ReadContext& ctx, MemoryFile& file, TiffMessages& messages, TiffPtr& tif, Page& page,
             const char* mode) {
  tif = openMemory(file, messages, mode);
  if (!tif) return ctx.fail(IMK_ERR_BAD_FILE, reason(messages, "not a readable TIFF file"));
  const tdir_t pages = TIFFNumberOfDirectories(tif.get());
  ctx.header.pictureCount = static_cast<int32_t>(pages);
  const int index = ctx.pictureIndex();
  if (index >= static_cast<int>(pages) ||
      (index > 0 && !TIFFSetDirectory(tif.get(), static_cast<tdir_t>(index))))
    return ctx.fail(IMK_ERR_BAD_FILE, "no such page in file");
  if (!describePage(tif.get(), page))
    return ctx.fail(IMK_ERR_BAD_FILE, reason(messages, "page without size"));
  const bool swap = transposed(page.orientation);
  ctx.header.width =
      static_cast<int32_t>(std::min<uint32_t>(swap ? page.height : page.width, INT32_MAX));
  ctx.header.height =
      static_cast<int32_t>(std::min<uint32_t>(swap ? page.width : page.height, INT32_MAX));
  ctx.header.planes = static_cast<int16_t>(page.spp);
  ctx.header.bitsPerPlane = static_cast<int16_t>(page.bps);
  if (page.width == 0 || page.height == 0 || page.width > static_cast<uint32_t>(kMaxDimension) ||
      page.height > static_cast<uint32_t>(kMaxDimension))
    return ctx.fail(IMK_ERR_BAD_FILE, "bad picture size");
  return 0;
}

// ---------------------------------------------------------------------------
// Sample conversion for the direct route.

// How raw samples are read: level numbers (unsigned, up to 8 bits, kept as
// they are) or intensities scaled to 0..65535, so that alpha can be divided
// out and CMYK combined before the reduction to 8 bits.
struct SampleCodec {
  uint16_t bps;
  uint16_t format;
  bool levels;
};

inline uint16_t scaleTo16(uint64_t v, int bits) {
  const uint64_t max = (uint64_t{1} << bits) - 1;
  return static_cast<uint16_t>((v * 65535 + max / 2) / max);
}

inline uint16_t floatTo16(double v) {
  if (!(v > 0)) return 0;  // also NaN
  if (v >= 1) return 65535;
  return static_cast<uint16_t>(v * 65535 + 0.5);
}

inline uint8_t to8(uint32_t v16) { return static_cast<uint8_t>((v16 * 255 + 32767) / 65535); }

// MSB-first bit field of `bits` (<= 32) bits starting at bit `pos`.
inline uint32_t bitField(const uint8_t* row, uint64_t pos, int bits) {
  uint64_t acc = 0;
  const uint64_t first = pos >> 3;
  const int skip = static_cast<int>(pos & 7);
  const int bytes = (skip + bits + 7) >> 3;
  for (int i = 0; i < bytes; ++i) acc = (acc << 8) | row[first + i];
  acc >>= bytes * 8 - skip - bits;
  return static_cast<uint32_t>(acc & ((uint64_t{1} << bits) - 1));
}

template <typename T>
inline T loadNative(const uint8_t* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// Converts `count` samples taken every `step` samples from `first` on.
// libtiff has already put 16-, 24-, 32- and 64-bit samples in host order;
// other depths are MSB-first bit fields.
void unpackSamples(const uint8_t* row, size_t first, size_t step, uint32_t count,
                   const SampleCodec& c, uint16_t* out) {
  const int bits = c.bps;
  if (c.format == SAMPLEFORMAT_IEEEFP) {
    for (uint32_t i = 0; i < count; ++i) {
      const size_t s = first + i * step;
      out[i] = bits == 64 ? floatTo16(loadNative<double>(row + s * 8))
                          : floatTo16(loadNative<float>(row + s * 4));
    }
    return;
  }
  const bool isSigned = c.format == SAMPLEFORMAT_INT;
  const uint64_t offset = isSigned ? uint64_t{1} << (bits - 1) : 0;
  const uint64_t mask = (uint64_t{1} << bits) - 1;
  for (uint32_t i = 0; i < count; ++i) {
    const size_t s = first + i * step;
    uint64_t v;
    switch (bits) {
      case 8:
        v = row[s];
        break;
      case 16:
        v = loadNative<uint16_t>(row + s * 2);
        break;
      case 24:
        v = row[s * 3] | (uint32_t{row[s * 3 + 1]} << 8) | (uint32_t{row[s * 3 + 2]} << 16);
        break;
      case 32:
        v = loadNative<uint32_t>(row + s * 4);
        break;
      default:
        v = bitField(row, static_cast<uint64_t>(s) * bits, bits);
        break;
    }
    if (isSigned) v = (v + offset) & mask;  // two's complement to offset binary
    out[i] = c.levels     ? static_cast<uint16_t>(v)
             : bits == 16 ? static_cast<uint16_t>(v)
                          : scaleTo16(v, bits);
  }
}

bool samplesSupported(const Page& p) {
  switch (p.format) {
    case SAMPLEFORMAT_UINT:
    case SAMPLEFORMAT_VOID:
      return p.bps >= 1 && p.bps <= 32;
    case SAMPLEFORMAT_INT:
      return p.bps == 8 || p.bps == 16 || p.bps == 32;
    case SAMPLEFORMAT_IEEEFP:
      return p.bps == 32 || p.bps == 64;
    default:
      return false;
  }
}

// What the direct route makes of a page.
struct DirectPlan {
  int colours = 1;  // 1 (grey, palette), 3 (RGB) or 4 (CMYK)
  bool minIsWhite = false;
  bool palette = false;
  bool alpha = false;
  bool associated = false;
  uint16_t kind = IMK_GREY;
  int levels = 256;  // grey / mapped level count
  SampleCodec codec{8, SAMPLEFORMAT_UINT, false};
  bool copyRows = false;  // 8-bit rows already in the picture's layout
  uint8_t colormap[768] = {};
};

bool loadColormap(TIFF* tif, int bits, uint8_t* colormap) {
  uint16_t *r, *g, *b;
  if (!TIFFGetField(tif, TIFFTAG_COLORMAP, &r, &g, &b)) return false;
  const int n = 1 << bits;
  // Some old writers stored 8-bit values in the 16-bit colormap.
  bool eightBit = true;
  for (int i = 0; i < n && eightBit; ++i) eightBit = r[i] < 256 && g[i] < 256 && b[i] < 256;
  for (int i = 0; i < n; ++i) {
    const auto to8bit = [eightBit](uint16_t v) {
      return static_cast<uint8_t>(eightBit ? v : to8(v));
    };
    colormap[i] = to8bit(r[i]);
    colormap[256 + i] = to8bit(g[i]);
    colormap[512 + i] = to8bit(b[i]);
  }
  return true;
}

bool planDirect(TIFF* tif, const Page& p, DirectPlan& plan) {
  if (!samplesSupported(p) || p.spp == 0 || p.spp > 32) return false;
  if (p.compression == COMPRESSION_OJPEG) return false;
  const uint16_t format = p.format == SAMPLEFORMAT_VOID ? SAMPLEFORMAT_UINT : p.format;
  switch (p.photometric) {
    case PHOTOMETRIC_MINISWHITE:
    case PHOTOMETRIC_MINISBLACK:
      plan.colours = 1;
      plan.minIsWhite = p.photometric == PHOTOMETRIC_MINISWHITE;
      break;
    case PHOTOMETRIC_PALETTE:
      if (format != SAMPLEFORMAT_UINT || p.bps > 8) return false;
      plan.colours = 1;
      plan.palette = true;
      break;
    case PHOTOMETRIC_RGB:
      plan.colours = 3;
      break;
    case PHOTOMETRIC_SEPARATED: {
      uint16_t inkset = INKSET_CMYK;
      TIFFGetFieldDefaulted(tif, TIFFTAG_INKSET, &inkset);
      if (inkset != INKSET_CMYK) return false;
      plan.colours = 4;
      break;
    }
    default:
      return false;
  }
  if (p.spp < plan.colours) return false;
  plan.alpha = p.alpha != 0 && p.spp > plan.colours;
  plan.associated = plan.alpha && p.alpha == EXTRASAMPLE_ASSOCALPHA;
  const bool smallUint = format == SAMPLEFORMAT_UINT && p.bps <= 8;
  // Palette indices always stay indices; grey keeps its level numbers when
  // it becomes a grey or binary picture.
  plan.codec = {p.bps, format, smallUint && (plan.palette || (plan.colours == 1 && !plan.alpha))};
  if (plan.alpha) {
    plan.kind = IMK_RGBX;
  } else if (plan.colours >= 3) {
    plan.kind = IMK_RGB;
  } else if (plan.palette) {
    plan.kind = IMK_MAPPED;
    plan.levels = 1 << p.bps;
  } else if (smallUint && p.bps == 1) {
    plan.kind = IMK_BINARY;
    plan.levels = 2;
  } else {
    plan.kind = IMK_GREY;
    plan.levels = smallUint ? 1 << p.bps : 256;
  }
  if (plan.palette && !loadColormap(tif, p.bps, plan.colormap)) return false;
  const bool contiguous = p.planar == PLANARCONFIG_CONTIG || p.spp == 1;
  const bool eightBit = p.bps == 8 && format == SAMPLEFORMAT_UINT;
  plan.copyRows = contiguous && eightBit &&
                  ((plan.kind == IMK_RGB && plan.colours == 3 && p.spp == 3) ||
                   (plan.kind == IMK_RGBX && plan.colours == 3 && p.spp == 4) ||
                   ((plan.kind == IMK_GREY || plan.kind == IMK_MAPPED) && p.spp == 1));
  return true;
}

inline uint8_t unpremultiply(uint8_t c, uint8_t a) {
  if (a == 0) return 0;
  return static_cast<uint8_t>(std::min(255, (c * 255 + a / 2) / a));
}

inline uint32_t unpremultiply16(uint32_t c, uint32_t a) {
  if (a == 0) return 0;
  return std::min<uint32_t>(65535, (c * 65535 + a / 2) / a);
}

// Converts one decoded row (one pointer per plane; a single plane when
// contiguous) into picture row `dst`. With copyRows, src may equal dst.
class RowConverter {
 public:
  RowConverter(const Page& page, const DirectPlan& plan)
      : page_(page), plan_(plan), scratch_(static_cast<size_t>(page.width) * 5) {}

  void convert(const uint8_t* const* planes, uint8_t* dst) {
    if (plan_.copyRows)
      copyRow(planes[0], dst);
    else
      convertRow(planes, dst);
  }

 private:
  void copyRow(const uint8_t* src, uint8_t* dst) {
    const uint32_t w = page_.width;
    const size_t n = static_cast<size_t>(w) * page_.spp;
    if (src != dst) std::memcpy(dst, src, n);
    if (plan_.minIsWhite)
      for (size_t i = 0; i < n; ++i) dst[i] = static_cast<uint8_t>(255 - dst[i]);
    if (plan_.associated)
      for (uint32_t x = 0; x < w; ++x) {
        uint8_t* px = dst + 4 * x;
        px[0] = unpremultiply(px[0], px[3]);
        px[1] = unpremultiply(px[1], px[3]);
        px[2] = unpremultiply(px[2], px[3]);
      }
  }

  // General case: each channel is unpacked into scratch, then assembled.
  void convertRow(const uint8_t* const* planes, uint8_t* dst) {
    const uint32_t w = page_.width;
    const int channels = plan_.colours + (plan_.alpha ? 1 : 0);
    const bool contiguous = page_.planar == PLANARCONFIG_CONTIG || page_.spp == 1;
    SampleCodec alphaCodec = plan_.codec;
    alphaCodec.levels = false;
    for (int c = 0; c < channels; ++c) {
      uint16_t* out = channel(c);
      const SampleCodec& codec = c < plan_.colours ? plan_.codec : alphaCodec;
      if (contiguous)
        unpackSamples(planes[0], static_cast<size_t>(c), page_.spp, w, codec, out);
      else
        unpackSamples(planes[c], 0, 1, w, codec, out);
      if (c < plan_.colours && plan_.minIsWhite) {
        const uint16_t top = codec.levels ? static_cast<uint16_t>(plan_.levels - 1) : 65535;
        for (uint32_t x = 0; x < w; ++x) out[x] = static_cast<uint16_t>(top - out[x]);
      }
    }
    const uint16_t* c0 = channel(0);
    switch (plan_.kind) {
      case IMK_BINARY:
      case IMK_GREY:
      case IMK_MAPPED:
        for (uint32_t x = 0; x < w; ++x)
          dst[x] = plan_.codec.levels ? static_cast<uint8_t>(c0[x]) : to8(c0[x]);
        return;
      default:
        break;
    }
    const int bpp = plan_.kind == IMK_RGBX ? 4 : 3;
    const uint16_t* a = plan_.alpha ? channel(plan_.colours) : nullptr;
    for (uint32_t x = 0; x < w; ++x) {
      uint32_t rgb[3];
      colourAt(x, rgb);
      uint8_t* px = dst + bpp * x;
      if (a && plan_.associated)
        for (uint32_t& v : rgb) v = unpremultiply16(v, a[x]);
      px[0] = to8(rgb[0]), px[1] = to8(rgb[1]), px[2] = to8(rgb[2]);
      if (a) px[3] = to8(a[x]);
    }
  }

  // R, G, B of pixel x at 16 bits.
  void colourAt(uint32_t x, uint32_t* rgb) const {
    const uint16_t* c0 = channel(0);
    if (plan_.palette) {
      const uint8_t i = static_cast<uint8_t>(c0[x]);
      for (int k = 0; k < 3; ++k) rgb[k] = plan_.colormap[256 * k + i] * 257u;
    } else if (plan_.colours == 1) {
      const uint32_t v =
          plan_.codec.levels ? greyLevelIntensity(c0[x], plan_.levels) * 257u : c0[x];
      rgb[0] = rgb[1] = rgb[2] = v;
    } else if (plan_.colours == 3) {
      for (int k = 0; k < 3; ++k) rgb[k] = channel(k)[x];
    } else {  // CMYK: each ink takes away from white
      const uint32_t white = 65535u - channel(3)[x];
      for (int k = 0; k < 3; ++k) rgb[k] = (65535u - channel(k)[x]) * white / 65535u;
    }
  }

  uint16_t* channel(int c) { return scratch_.data() + static_cast<size_t>(c) * page_.width; }
  const uint16_t* channel(int c) const {
    return scratch_.data() + static_cast<size_t>(c) * page_.width;
  }

  const Page& page_;
  const DirectPlan& plan_;
  std::vector<uint16_t> scratch_;
};

// ---------------------------------------------------------------------------
// Band decoding: a strip, or a row of tiles, for every plane.

class BandDecoder {
 public:
  // `usedPlanes`: how many of separate planes are needed (extra samples
  // that are not alpha are never decoded).
  BandDecoder(TIFF* tif, const Page& page, uint16_t usedPlanes)
      : tif_(tif), page_(page), used_(usedPlanes) {}

  // Sets up the band geometry; 0 or a reason.
  const char* init() {
    separate_ = page_.planar == PLANARCONFIG_SEPARATE && page_.spp > 1;
    planes_ = separate_ ? std::clamp<uint16_t>(used_, 1, page_.spp) : 1;
    scanline_ = TIFFScanlineSize64(tif_);
    if (scanline_ == 0) return "bad scanline size";
    if (page_.tiled) {
      uint32_t tw = 0, th = 0;
      if (!TIFFGetField(tif_, TIFFTAG_TILEWIDTH, &tw) ||
          !TIFFGetField(tif_, TIFFTAG_TILELENGTH, &th) || tw == 0 || th == 0)
        return "bad tile size";
      const uint64_t pixelBits = uint64_t{page_.bps} * (separate_ ? 1 : page_.spp);
      if ((uint64_t{tw} * pixelBits) % 8 != 0) return "unsupported tile width";
      tileWidth_ = tw;
      bandRows_ = th;
      tileRowBytes_ = TIFFTileRowSize64(tif_);
      tileBytes_ = TIFFTileSize64(tif_);
      if (tileRowBytes_ == 0 || tileBytes_ == 0 || tileBytes_ > pixelByteLimit())
        return "bad tile size";
      tile_.resize(static_cast<size_t>(tileBytes_));
    } else {
      uint32_t rps = 0;
      TIFFGetFieldDefaulted(tif_, TIFFTAG_ROWSPERSTRIP, &rps);
      bandRows_ = rps == 0 || rps > page_.height ? page_.height : rps;
    }
    bandRows_ = std::min(bandRows_, page_.height);
    uint64_t bytes;
    if (__builtin_mul_overflow(scanline_, uint64_t{bandRows_} * planes_, &bytes) ||
        bytes > pixelByteLimit())
      return "strip too large";
    bandBytes_ = scanline_ * bandRows_;
    return nullptr;
  }

  uint32_t bandRows() const { return bandRows_; }
  uint64_t scanline() const { return scanline_; }

  // Decodes rows [y0, y0 + rows) into `target` (planes one after another),
  // or into the decoder's own buffer when `target` is null. False on a
  // decoding error; whatever was decoded stays.
  bool decode(uint32_t y0, uint32_t rows, uint8_t* target, bool clearFirst) {
    if (!target) {
      if (buffer_.size() < bandBytes_ * planes_)
        buffer_.resize(static_cast<size_t>(bandBytes_ * planes_));
      target = buffer_.data();
    }
    current_ = target;
    if (clearFirst) std::memset(target, 0, static_cast<size_t>(scanline_ * rows) * planes_);
    bool ok = true;
    for (uint16_t p = 0; p < planes_; ++p) {
      uint8_t* dst = target + static_cast<size_t>(p) * bandBytes_;
      ok = (page_.tiled ? decodeTiles(y0, rows, p, dst) : decodeStrip(y0, rows, p, dst)) && ok;
    }
    return ok;
  }

  // Row `r` of the last band, for plane `p`.
  const uint8_t* row(uint32_t r, uint16_t p) const {
    return current_ + static_cast<size_t>(p) * bandBytes_ + static_cast<size_t>(r) * scanline_;
  }

 private:
  bool decodeStrip(uint32_t y0, uint32_t rows, uint16_t plane, uint8_t* dst) {
    const uint32_t strip = TIFFComputeStrip(tif_, y0, plane);
    return TIFFReadEncodedStrip(tif_, strip, dst, static_cast<tmsize_t>(scanline_ * rows)) >= 0;
  }

  bool decodeTiles(uint32_t y0, uint32_t rows, uint16_t plane, uint8_t* dst) {
    bool ok = true;
    const uint64_t pixelBits = uint64_t{page_.bps} * (separate_ ? 1 : page_.spp);
    for (uint32_t x = 0; x < page_.width; x += tileWidth_) {
      const uint32_t tile = TIFFComputeTile(tif_, x, y0, 0, plane);
      if (TIFFReadEncodedTile(tif_, tile, tile_.data(), static_cast<tmsize_t>(tileBytes_)) < 0) {
        ok = false;
        continue;
      }
      const uint64_t offset = uint64_t{x} * pixelBits / 8;
      const uint64_t n = std::min<uint64_t>(tileRowBytes_, scanline_ - offset);
      for (uint32_t r = 0; r < rows; ++r)
        std::memcpy(dst + r * scanline_ + offset, tile_.data() + r * tileRowBytes_,
                    static_cast<size_t>(n));
    }
    return ok;
  }

  TIFF* tif_;
  const Page& page_;
  uint16_t used_;
  bool separate_ = false;
  uint16_t planes_ = 1;
  uint64_t scanline_ = 0;
  uint32_t bandRows_ = 1;
  uint64_t bandBytes_ = 0;
  uint32_t tileWidth_ = 0;
  uint64_t tileRowBytes_ = 0;
  uint64_t tileBytes_ = 0;
  std::vector<uint8_t> tile_;
  std::vector<uint8_t> buffer_;
  uint8_t* current_ = nullptr;
};

// One page decoded band by band, possibly by several threads: each thread
// has its own libtiff handle over the same memory and takes the next band no
// one has taken yet. Bands cover disjoint rows of the picture.
struct BandJob {
  BandJob(const Page& page, const DirectPlan& plan, Picture& out)
      : page(page), plan(plan), out(out) {}
  const Page& page;
  const DirectPlan& plan;
  Picture& out;
  uint16_t planes = 1;   // planes decoded per band
  bool inPlace = false;  // bands decode straight into the picture's rows
  bool keepGoing = false;
  uint32_t bandRows = 1;
  uint32_t bands = 0;
  std::atomic<uint32_t> next{0};
  std::atomic<int64_t> rowsDone{0};
  std::atomic<bool> stop{false};
  std::atomic<bool> cancelled{false};
  std::mutex lock;
  std::string error;  // the first damaged band's message
  bool damaged = false;
};

// Decodes bands until none is left. Only the calling thread passes `ctx`:
// the caller's progress function is called from that thread alone.
void decodeBands(BandJob& job, TIFF* tif, const TiffMessages& messages, ReadContext* ctx) {
  BandDecoder bands(tif, job.page, job.planes);
  if (bands.init()) return;  // the same geometry was accepted before
  RowConverter converter(job.page, job.plan);
  std::vector<const uint8_t*> planeRows(job.planes);
  // Kept going past damage, a run of bands that all fail means the rest of
  // the file is no better: the remaining rows stay blank rather than costing
  // a conversion each.
  constexpr int kFailedBandsInARow = 16;
  int failedInARow = 0;
  while (!job.stop.load(std::memory_order_relaxed)) {
    const uint32_t band = job.next.fetch_add(1);
    if (band >= job.bands) break;
    const uint32_t y0 = band * job.bandRows;
    const uint32_t rows = std::min(job.bandRows, job.page.height - y0);
    uint8_t* target = job.inPlace ? job.out.row(static_cast<int>(y0)) : nullptr;
    if (bands.decode(y0, rows, target, job.keepGoing && !job.inPlace)) {
      failedInARow = 0;
    } else {
      std::lock_guard<std::mutex> hold(job.lock);
      if (!job.damaged) job.error = reason(messages, "damaged strip", true);
      job.damaged = true;
      if (!job.keepGoing || ++failedInARow > kFailedBandsInARow) {
        job.stop = true;
        break;
      }
    }
    for (uint32_t r = 0; r < rows; ++r) {
      for (uint16_t p = 0; p < job.planes; ++p) planeRows[p] = bands.row(r, p);
      converter.convert(planeRows.data(), job.out.row(static_cast<int>(y0 + r)));
    }
    const int64_t done = job.rowsDone.fetch_add(rows) + rows;
    if (ctx && ctx->advanceProgress(done)) {
      job.cancelled = true;
      job.stop = true;
    }
  }
}

// Threads worth using for a page of `bands` bands and `bytes` of pixels:
// only large pictures are split, and never into bands too few to share.
unsigned decodeThreads(uint32_t bands, uint64_t bytes) {
  if (bytes < (uint64_t{4} << 20) || bands < 4) return 1;
  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  return std::min({cores, 4u, bands / 2});
}

int readDirect(ReadContext& ctx, TIFF* tif, const TiffMessages& messages, const Page& page,
               const DirectPlan& plan, Picture& out) {
  BandJob job(page, plan, out);
  const int channels = plan.colours + (plan.alpha ? 1 : 0);
  const bool separate = page.planar == PLANARCONFIG_SEPARATE && page.spp > 1;
  job.planes = separate ? static_cast<uint16_t>(channels) : 1;
  BandDecoder probe(tif, page, job.planes);
  if (const char* why = probe.init()) return ctx.fail(IMK_ERR_BAD_FILE, reason(messages, why));
  if (!out.allocate(plan.kind, static_cast<int32_t>(page.width), static_cast<int32_t>(page.height)))
    return ctx.fail(IMK_ERR_MEMORY, "picture too large");
  ImageRecord& rec = out.rec();
  if (plan.kind == IMK_GREY) {
    rec.colorCount = plan.levels;
    fillGreyPalette(rec, plan.levels);
  } else if (plan.kind == IMK_MAPPED) {
    rec.colorCount = plan.levels;
    std::memcpy(rec.palette, plan.colormap, 768);
  }
  // Contiguous 8-bit strips whose rows match the picture's stride are
  // decoded in place.
  job.inPlace =
      plan.copyRows && !page.tiled && probe.scanline() == static_cast<uint64_t>(rec.bytesPerLine);
  job.keepGoing = ctx.ignoreErrors();
  job.bandRows = probe.bandRows();
  job.bands = (page.height + job.bandRows - 1) / job.bandRows;
  if (ctx.beginProgress(page.height)) return IMK_ERR_STOPPED;

  const unsigned threads = decodeThreads(
      job.bands, static_cast<uint64_t>(rec.bytesPerLine) * static_cast<uint64_t>(rec.height));
  std::vector<std::thread> helpers;
  const int index = ctx.pictureIndex();
  for (unsigned t = 1; t < threads; ++t) {
    try {
      helpers.emplace_back([&job, &ctx, index] {
        MemoryFile file{ctx.data, ctx.size, 0};
        TiffMessages own;
        TiffPtr handle = openMemory(file, own, "r");
        if (!handle || (index > 0 && !TIFFSetDirectory(handle.get(), static_cast<tdir_t>(index))))
          return;
        decodeBands(job, handle.get(), own, nullptr);
      });
    } catch (...) {
      break;  // fewer threads then; the bands are shared out all the same
    }
  }
  decodeBands(job, tif, messages, &ctx);
  for (std::thread& t : helpers) t.join();

  if (job.cancelled) return IMK_ERR_STOPPED;
  if (job.damaged) {
    if (int rc = ctx.damaged(IMK_ERR_CORRUPT, job.error.c_str())) return rc;
  }
  if (ctx.advanceProgress(page.height)) return IMK_ERR_STOPPED;
  if (plan.kind == IMK_MAPPED) simplifyMappedPicture(rec);
  return 0;
}

// ---------------------------------------------------------------------------
// Everything else: libtiff's RGBA reader, in bands of rows.

struct RgbaImageEnd {
  void operator()(TIFFRGBAImage* img) const { TIFFRGBAImageEnd(img); }
};

int readRgba(ReadContext& ctx, TIFF* tif, const TiffMessages& messages, const Page& page,
             Picture& out) {
  char emsg[1024] = "";
  if (!TIFFRGBAImageOK(tif, emsg))
    return ctx.fail(IMK_ERR_BAD_FILE, emsg[0] ? emsg : "unsupported TIFF kind");
  TIFFRGBAImage img;
  std::memset(&img, 0, sizeof img);
  if (!TIFFRGBAImageBegin(&img, tif, ctx.ignoreErrors() ? 0 : 1, emsg))
    return ctx.fail(IMK_ERR_BAD_FILE, emsg[0] ? emsg : reason(messages, "unsupported TIFF kind"));
  std::unique_ptr<TIFFRGBAImage, RgbaImageEnd> end(&img);
  // Rows come in the file's own order; the orientation is applied afterwards
  // for every route alike.
  img.req_orientation = img.orientation;
  const uint32_t w = page.width, h = page.height;
  const bool alpha = img.alpha != 0;
  if (!out.allocate(alpha ? IMK_RGBX : IMK_RGB, static_cast<int32_t>(w), static_cast<int32_t>(h)))
    return ctx.fail(IMK_ERR_MEMORY, "picture too large");

  // Bands of whole strips or tiles, about 4 MB each.
  uint32_t unit = 1;
  if (page.tiled)
    TIFFGetField(tif, TIFFTAG_TILELENGTH, &unit);
  else
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &unit);
  unit = std::clamp<uint32_t>(unit, 1, h);
  const uint32_t wanted =
      std::max<uint32_t>(1, static_cast<uint32_t>((size_t{4} << 20) / (size_t{w} * 4)));
  const uint32_t band = std::min(h, std::max(unit, wanted / unit * unit));
  if (!sizeAcceptable(w, band, 4)) return ctx.fail(IMK_ERR_MEMORY, "strip too large");
  std::vector<uint32_t> raster(static_cast<size_t>(w) * band);

  if (ctx.beginProgress(h)) return IMK_ERR_STOPPED;
  for (uint32_t y0 = 0; y0 < h; y0 += band) {
    const uint32_t rows = std::min(band, h - y0);
    img.row_offset = static_cast<int>(y0);
    img.col_offset = 0;
    if (ctx.ignoreErrors()) std::fill(raster.begin(), raster.end(), 0u);
    if (!TIFFRGBAImageGet(&img, raster.data(), w, rows)) {
      if (int rc = ctx.damaged(IMK_ERR_CORRUPT, reason(messages, "damaged strip", true))) return rc;
    }
    for (uint32_t r = 0; r < rows; ++r) {
      const uint32_t* src = raster.data() + static_cast<size_t>(r) * w;
      uint8_t* dst = out.row(static_cast<int>(y0 + r));
      for (uint32_t x = 0; x < w; ++x) {
        const uint32_t v = src[x];
        const uint8_t a = static_cast<uint8_t>(TIFFGetA(v));
        uint8_t* px = dst + (alpha ? 4 * x : 3 * x);
        px[0] = static_cast<uint8_t>(TIFFGetR(v));
        px[1] = static_cast<uint8_t>(TIFFGetG(v));
        px[2] = static_cast<uint8_t>(TIFFGetB(v));
        if (alpha) {
          // The RGBA reader always delivers premultiplied colour.
          px[0] = unpremultiply(px[0], a), px[1] = unpremultiply(px[1], a),
          px[2] = unpremultiply(px[2], a);
          px[3] = a;
        }
      }
    }
    if (ctx.advanceProgress(y0 + rows)) return IMK_ERR_STOPPED;
  }
  return 0;
}

// ---------------------------------------------------------------------------
// Orientation.

void mirrorRows(Picture& pic) {
  ImageRecord& r = pic.rec();
  const int bpp = r.bytesPerPixel;
  for (int y = 0; y < r.height; ++y) {
    uint8_t* row = pic.row(y);
    for (int a = 0, b = r.width - 1; a < b; ++a, --b)
      for (int c = 0; c < bpp; ++c) std::swap(row[a * bpp + c], row[b * bpp + c]);
  }
}

void flipRows(Picture& pic) {
  ImageRecord& r = pic.rec();
  std::vector<uint8_t> tmp(static_cast<size_t>(r.bytesPerLine));
  for (int a = 0, b = r.height - 1; a < b; ++a, --b) {
    std::memcpy(tmp.data(), pic.row(a), tmp.size());
    std::memcpy(pic.row(a), pic.row(b), tmp.size());
    std::memcpy(pic.row(b), tmp.data(), tmp.size());
  }
}

// Turns the stored rows into the picture as it is meant to be seen. False
// when memory for a transposed copy is short.
bool applyOrientation(Picture& pic, uint16_t orientation) {
  switch (orientation) {
    case ORIENTATION_TOPRIGHT:
      mirrorRows(pic);
      return true;
    case ORIENTATION_BOTRIGHT:
      mirrorRows(pic);
      flipRows(pic);
      return true;
    case ORIENTATION_BOTLEFT:
      flipRows(pic);
      return true;
    case ORIENTATION_LEFTTOP:
    case ORIENTATION_RIGHTTOP:
    case ORIENTATION_RIGHTBOT:
    case ORIENTATION_LEFTBOT:
      break;
    default:
      return true;
  }
  const ImageRecord& in = pic.rec();
  Picture t;
  if (!t.allocate(in.type, in.height, in.width, in.bitsPerComponent)) return false;
  ImageRecord& o = t.rec();
  o.colorCount = in.colorCount;
  std::memcpy(o.palette, in.palette, 768);
  const int bpp = in.bytesPerPixel;
  const bool flipX = orientation == ORIENTATION_RIGHTTOP || orientation == ORIENTATION_RIGHTBOT;
  const bool flipY = orientation == ORIENTATION_RIGHTBOT || orientation == ORIENTATION_LEFTBOT;
  for (int r = 0; r < in.height; ++r) {
    const uint8_t* src = pic.row(r);
    const int ox = flipX ? in.height - 1 - r : r;
    for (int c = 0; c < in.width; ++c) {
      const int oy = flipY ? in.width - 1 - c : c;
      std::memcpy(t.row(oy) + ox * bpp, src + c * bpp, static_cast<size_t>(bpp));
    }
  }
  pic = std::move(t);
  return true;
}

// ---------------------------------------------------------------------------
// Codec entry points: reading.

bool sniffTiff(const uint8_t* data, size_t size) {
  if (size < 4) return false;
  return (data[0] == 'I' && data[1] == 'I' && (data[2] == 42 || data[2] == 43) && data[3] == 0) ||
         (data[0] == 'M' && data[1] == 'M' && data[2] == 0 && (data[3] == 42 || data[3] == 43));
}

int infoTiff(ReadContext& ctx) {
  MemoryFile file{ctx.data, ctx.size, 0};
  TiffMessages messages;
  TiffPtr tif;
  Page page;
  // Strip offsets are loaded on demand: a header query touches none of them.
  return openPage(ctx, file, messages, tif, page, "rO");
}

int readTiff(ReadContext& ctx, Picture& out) {
  MemoryFile file{ctx.data, ctx.size, 0};
  TiffMessages messages;
  TiffPtr tif;
  Page page;
  if (int rc = openPage(ctx, file, messages, tif, page, "r")) return rc;
  DirectPlan plan;
  int rc = planDirect(tif.get(), page, plan) ? readDirect(ctx, tif.get(), messages, page, plan, out)
                                             : readRgba(ctx, tif.get(), messages, page, out);
  if (rc != 0) return rc;
  if (!applyOrientation(out, page.orientation))
    return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  return 0;
}

// ---------------------------------------------------------------------------
// Writing.

struct FileSink {
  FILE* file;
  bool failed = false;
};

tmsize_t sinkRead(thandle_t h, void* buf, tmsize_t n) {
  auto* s = static_cast<FileSink*>(h);
  return n <= 0 ? 0 : static_cast<tmsize_t>(std::fread(buf, 1, static_cast<size_t>(n), s->file));
}

tmsize_t sinkWrite(thandle_t h, void* buf, tmsize_t n) {
  auto* s = static_cast<FileSink*>(h);
  if (n <= 0) return 0;
  const size_t done = std::fwrite(buf, 1, static_cast<size_t>(n), s->file);
  if (done != static_cast<size_t>(n)) s->failed = true;
  return static_cast<tmsize_t>(done);
}

toff_t sinkSeek(thandle_t h, toff_t off, int whence) {
  auto* s = static_cast<FileSink*>(h);
  if (fseeko(s->file, static_cast<off_t>(off), whence) != 0) return static_cast<toff_t>(-1);
  const off_t pos = ftello(s->file);
  return pos < 0 ? static_cast<toff_t>(-1) : static_cast<toff_t>(pos);
}

int sinkClose(thandle_t) { return 0; }  // the caller owns the FILE

toff_t sinkSize(thandle_t h) {
  auto* s = static_cast<FileSink*>(h);
  std::fflush(s->file);
  struct stat st;
  return fstat(fileno(s->file), &st) == 0 ? static_cast<toff_t>(st.st_size) : 0;
}

int noMap(thandle_t, void**, toff_t*) { return 0; }
void noUnmap(thandle_t, void*, toff_t) {}

// How a picture is laid out in the file.
struct WriteLayout {
  uint16_t photometric;
  uint16_t bps;
  uint16_t spp;
  bool alpha = false;
};

WriteLayout writeLayout(const ImageRecord& pic) {
  switch (pic.type) {
    case IMK_BINARY:
      return {PHOTOMETRIC_MINISWHITE, 1, 1};
    case IMK_GREY: {
      const int n = pic.colorCount;
      const uint16_t bps = n == 4 ? 2 : n == 16 ? 4 : 8;
      return {PHOTOMETRIC_MINISBLACK, bps, 1};
    }
    case IMK_MAPPED:
      return {PHOTOMETRIC_PALETTE, 8, 1};
    case IMK_RGBX:
      return {PHOTOMETRIC_RGB, 8, 4, true};
    default:
      return {PHOTOMETRIC_RGB, 8, 3};
  }
}

uint16_t compressionFor(uint16_t option, const WriteLayout& l) {
  switch (option) {
    case IMK_TIFF_NONE:
      return COMPRESSION_NONE;
    case IMK_TIFF_PACKBITS:
      return COMPRESSION_PACKBITS;
    case IMK_TIFF_DEFLATE:
      return COMPRESSION_ADOBE_DEFLATE;
    case IMK_TIFF_G4:
      return l.bps == 1 ? COMPRESSION_CCITTFAX4 : COMPRESSION_LZW;
    default:
      return COMPRESSION_LZW;
  }
}

// Packs picture row y into the file's row layout.
void packRow(const ImageRecord& pic, const WriteLayout& l, int y, uint8_t* out) {
  const uint8_t* src = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
  const int w = pic.width;
  switch (pic.type) {
    case IMK_BINARY:
      std::memset(out, 0, static_cast<size_t>((w + 7) / 8));
      for (int x = 0; x < w; ++x)
        if (!src[x])
          out[x >> 3] |= static_cast<uint8_t>(0x80 >> (x & 7));  // MinIsWhite: 1 is black
      return;
    case IMK_GREY:
      if (l.bps == 8 && pic.colorCount == 256) {
        std::memcpy(out, src, static_cast<size_t>(w));
      } else if (l.bps == 8) {
        rowToGrey(pic, y, out);
      } else {
        const int perByte = 8 / l.bps;
        const int top = (1 << l.bps) - 1;
        std::memset(out, 0, static_cast<size_t>((w * l.bps + 7) / 8));
        for (int x = 0; x < w; ++x) {
          const int v = std::min<int>(src[x], top);
          const int shift = 8 - l.bps * (x % perByte + 1);
          out[x / perByte] |= static_cast<uint8_t>(v << shift);
        }
      }
      return;
    case IMK_MAPPED:
      std::memcpy(out, src, static_cast<size_t>(w));
      return;
    case IMK_RGBX:
      rowToRgba(pic, y, out);
      return;
    default:
      rowToRgb(pic, y, out);
      return;
  }
}

int writeTiff(WriteContext& ctx, const ImageRecord& pic) {
  const WriteLayout layout = writeLayout(pic);
  const uint16_t compression = compressionFor(ctx.options.saveOption, layout);
  const uint64_t rowBytes =
      (uint64_t{static_cast<uint32_t>(pic.width)} * layout.bps * layout.spp + 7) / 8;
  // Files beyond what 32-bit offsets can address are written as BigTIFF.
  const bool big = rowBytes * static_cast<uint64_t>(pic.height) > 0xF0000000u;

  FileSink sink{ctx.out.file()};
  TiffMessages messages;
  TiffPtr tif(openClient(big ? "w8" : "w", &sink, messages, sinkRead, sinkWrite, sinkSeek,
                         sinkClose, sinkSize, noMap, noUnmap));
  if (!tif) return IMK_ERR_WRITE;
  TIFF* t = tif.get();
  const bool predictor =
      (compression == COMPRESSION_LZW || compression == COMPRESSION_ADOBE_DEFLATE) &&
      layout.bps == 8 && layout.photometric != PHOTOMETRIC_PALETTE;
  const uint32_t rowsPerStrip =
      compression == COMPRESSION_CCITTFAX4
          ? static_cast<uint32_t>(pic.height)
          : static_cast<uint32_t>(std::clamp<uint64_t>(65536 / std::max<uint64_t>(rowBytes, 1), 1,
                                                       static_cast<uint64_t>(pic.height)));
  bool ok = TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(pic.width)) &&
            TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(pic.height)) &&
            TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, layout.bps) &&
            TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, layout.spp) &&
            TIFFSetField(t, TIFFTAG_PHOTOMETRIC, layout.photometric) &&
            TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
            TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
            TIFFSetField(t, TIFFTAG_COMPRESSION, compression) &&
            TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
  if (ok && predictor) ok = TIFFSetField(t, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
  if (ok && layout.alpha) {
    const uint16_t extra[1] = {EXTRASAMPLE_UNASSALPHA};
    ok = TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, extra);
  }
  if (ok && layout.photometric == PHOTOMETRIC_PALETTE) {
    std::vector<uint16_t> map(768);
    for (int i = 0; i < 768; ++i)
      map[static_cast<size_t>(i)] = static_cast<uint16_t>(pic.palette ? pic.palette[i] * 257 : 0);
    ok = TIFFSetField(t, TIFFTAG_COLORMAP, map.data(), map.data() + 256, map.data() + 512);
  }
  if (!ok) return IMK_ERR_WRITE;

  if (ctx.progress.begin(pic.height)) return IMK_ERR_STOPPED;
  std::vector<uint8_t> row(static_cast<size_t>(
      std::max<uint64_t>(rowBytes, uint64_t{static_cast<uint32_t>(pic.width)} * 4)));
  for (int y = 0; y < pic.height; ++y) {
    packRow(pic, layout, y, row.data());
    if (TIFFWriteScanline(t, row.data(), static_cast<uint32_t>(y), 0) < 0 || sink.failed)
      return IMK_ERR_WRITE;
    if (ctx.progress.advance(y + 1)) return IMK_ERR_STOPPED;
  }
  if (!TIFFFlush(t) || sink.failed) return IMK_ERR_WRITE;
  tif.reset();
  if (sink.failed || std::ferror(ctx.out.file())) return IMK_ERR_WRITE;
  return 0;
}

}  // namespace

const Codec kTiffCodec = {"tiff",
                          "TIFF",
                          {"tif", "tiff"},
                          IMK_CAN_READ | IMK_CAN_WRITE | IMK_MULTI_PICTURE,
                          {{IMK_BINARY, 2, kAnySize, kAnySize},
                           {IMK_GREY, 256, kAnySize, kAnySize},
                           {IMK_MAPPED, 256, kAnySize, kAnySize},
                           {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                           kEndKinds},
                          sniffTiff,
                          infoTiff,
                          readTiff,
                          writeTiff};

}  // namespace imk
