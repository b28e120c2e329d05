// PNG codec on libpng. Reading decodes every colour type and depth straight
// into the picture rows:
//   grey 1-bit            -> binary
//   grey 2/4/8-bit        -> grey with 4/16/256 levels (level numbers as stored)
//   grey 16-bit           -> grey, 256 levels
//   palette 1/2/4/8-bit   -> colour-mapped (transparency dropped)
//   RGB 8/16-bit          -> R,G,B
//   RGBA, grey+alpha, grey or RGB with a tRNS colour key -> R,G,B + alpha
// 16-bit samples are rounded to 8 bits; no gamma correction is applied, the
// stored values are what is shown. Writing mirrors this: binary and grey of
// 2/4/16/256 levels keep their level numbers at the matching bit depth,
// colour-mapped pictures become palette files, true colour RGB or RGBA.
//
// libpng reports errors through our error function, which longjmps back.
// Every setjmp lives in a small function whose frame holds only plain data,
// so the longjmp never skips a destructor.
#include <libdeflate.h>
#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

constexpr uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

// State shared with libpng's callbacks (through the error and io pointers).
struct PngState {
  png_structp png = nullptr;
  png_infop info = nullptr;
  std::jmp_buf jump;
  char error[64] = {};
  // Reading: the file in memory.
  const uint8_t* data = nullptr;
  size_t size = 0;
  size_t pos = 0;
  // Writing.
  FILE* file = nullptr;
};

PngState* stateOf(png_structp png) { return static_cast<PngState*>(png_get_error_ptr(png)); }

[[noreturn]] void onError(png_structp png, png_const_charp message) {
  PngState* s = stateOf(png);
  if (!s->error[0]) std::snprintf(s->error, sizeof s->error, "%s", message ? message : "PNG error");
  std::longjmp(s->jump, 1);
}

// Warnings concern ancillary chunks (bad CRC, unknown profile, ...): the
// pixels are fine, and nothing may reach stderr.
void onWarning(png_structp, png_const_charp) {}

// Bounded read over the file in memory; running out of bytes is an error.
void onRead(png_structp png, png_bytep out, size_t length) {
  auto* s = static_cast<PngState*>(png_get_io_ptr(png));
  if (length > s->size - s->pos) png_error(png, "truncated file");
  std::memcpy(out, s->data + s->pos, length);
  s->pos += length;
}

// Owns the libpng read structures.
struct Reader : PngState {
  Reader(const uint8_t* bytes, size_t length) {
    data = bytes;
    size = length;
    png = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, onError, onWarning);
    if (png) info = png_create_info_struct(png);
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  ~Reader() {
    if (png) png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
  }
};

// Reads the chunks up to the first IDAT. Protected by setjmp.
bool readInfo(PngState* s) {
  if (setjmp(s->jump)) return false;
  png_set_read_fn(s->png, s, onRead);
  png_set_user_limits(s->png, kMaxDimension, kMaxDimension);
  // Only IHDR, PLTE, tRNS, IDAT and IEND matter here. Every other chunk is
  // skipped unread: text, profiles and the like can claim huge lengths, and
  // libpng only warns before allocating those.
  png_set_keep_unknown_chunks(s->png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
  png_read_info(s->png, s->info);
  return true;
}

struct Ihdr {
  png_uint_32 width = 0, height = 0;
  int depth = 0, colorType = 0, interlace = 0;
};

Ihdr ihdrOf(const PngState& s) {
  Ihdr h;
  png_get_IHDR(s.png, s.info, &h.width, &h.height, &h.depth, &h.colorType, &h.interlace, nullptr,
               nullptr);
  return h;
}

void fillHeader(ReadContext& ctx, const Ihdr& h) {
  int planes = 1;
  switch (h.colorType) {
    case PNG_COLOR_TYPE_RGB:
      planes = 3;
      break;
    case PNG_COLOR_TYPE_GRAY_ALPHA:
      planes = 2;
      break;
    case PNG_COLOR_TYPE_RGB_ALPHA:
      planes = 4;
      break;
    default:
      break;  // grey and palette
  }
  ctx.header.width = static_cast<int32_t>(h.width);
  ctx.header.height = static_cast<int32_t>(h.height);
  ctx.header.planes = static_cast<int16_t>(planes);
  ctx.header.bitsPerPlane = static_cast<int16_t>(h.depth);
  ctx.header.pictureCount = 1;
}

// Deflate cannot expand much more than 1032:1 (a 258-byte match costs at
// least two bits: one-bit length and distance codes). A header whose picture
// could not come out of the bytes left in the file is hostile, not merely
// truncated: refuse it before allocating that picture.
bool dataCanHoldPicture(const PngState& s, const Ihdr& h) {
  constexpr uint64_t kMaxInflation = 1032;
  const uint64_t bitsPerPixel = static_cast<uint64_t>(png_get_channels(s.png, s.info)) * h.depth;
  const uint64_t rowBytes = 1 + (h.width * bitsPerPixel + 7) / 8;  // filter byte first
  const uint64_t left = s.size - s.pos;
  return rowBytes * h.height <= left * kMaxInflation + 1024;
}

// What the decoded rows will hold.
struct Target {
  uint16_t kind = IMK_RGB;
  int levels = 0;  // grey: level count; mapped: palette entries
  int passes = 1;  // 7 for Adam7 files
};

// Chooses the picture kind and sets libpng's transformations so that its
// rows come out in exactly that layout. Protected by setjmp.
bool setTransforms(PngState* s, const Ihdr* h, Target* t) {
  if (setjmp(s->jump)) return false;
  png_structp png = s->png;
  const bool keyed = png_get_valid(png, s->info, PNG_INFO_tRNS) != 0;
  if (h->depth == 16) png_set_scale_16(png);
  switch (h->colorType) {
    case PNG_COLOR_TYPE_GRAY:
      if (keyed) {
        png_set_expand(png);  // low depths to 8 bits, the key to an alpha channel
        png_set_gray_to_rgb(png);
        t->kind = IMK_RGBX;
      } else {
        png_set_packing(png);
        t->kind = h->depth == 1 ? IMK_BINARY : IMK_GREY;
        t->levels = h->depth >= 8 ? 256 : 1 << h->depth;
      }
      break;
    case PNG_COLOR_TYPE_GRAY_ALPHA:
      png_set_gray_to_rgb(png);
      t->kind = IMK_RGBX;
      break;
    case PNG_COLOR_TYPE_PALETTE:
      png_set_packing(png);  // tRNS is not applied: the picture stays mapped
      t->kind = IMK_MAPPED;
      break;
    case PNG_COLOR_TYPE_RGB:
      if (keyed) png_set_tRNS_to_alpha(png);
      t->kind = keyed ? IMK_RGBX : IMK_RGB;
      break;
    case PNG_COLOR_TYPE_RGB_ALPHA:
      t->kind = IMK_RGBX;
      break;
    default:
      png_error(png, "unsupported PNG colour type");
  }
  t->passes = png_set_interlace_handling(png);
  png_read_update_info(png, s->info);
  return true;
}

// Copies PLTE into the planar palette; the entry count, 0 when there is none.
int copyPalette(const PngState& s, ImageRecord& rec) {
  png_colorp entries = nullptr;
  int count = 0;
  if (!png_get_PLTE(s.png, s.info, &entries, &count) || !entries || count <= 0) return 0;
  count = std::min(count, 256);
  for (int i = 0; i < count; ++i) {
    rec.palette[i] = entries[i].red;
    rec.palette[256 + i] = entries[i].green;
    rec.palette[512 + i] = entries[i].blue;
  }
  return count;
}

enum class DecodeResult { kDone, kError, kStopped };

// Decodes every pass of every row into `rows`. Bytes >= `limit` (palette
// indices past the end of PLTE) are clamped to limit - 1; limit 256 means no
// check. `*rowsDone` counts the rows decoded over all passes. Protected by
// setjmp.
DecodeResult decodeRows(PngState* s, uint8_t* const* rows, int height, int width, int passes,
                        int limit, ReadContext* ctx, int64_t* rowsDone) {
  if (setjmp(s->jump)) return DecodeResult::kError;
  if (ctx->beginProgress(static_cast<int64_t>(height) * passes)) return DecodeResult::kStopped;
  const auto top = static_cast<uint8_t>(limit - 1);
  for (int pass = 0; pass < passes; ++pass) {
    for (int y = 0; y < height; ++y) {
      png_read_row(s->png, rows[y], nullptr);
      if (limit < 256) {
        uint8_t* row = rows[y];
        for (int x = 0; x < width; ++x) row[x] = std::min(row[x], top);
      }
      ++*rowsDone;
      if (ctx->advanceProgress(*rowsDone)) return DecodeResult::kStopped;
    }
  }
  // The chunks after the image data are not read: the picture is complete.
  return DecodeResult::kDone;
}

bool sniff(const uint8_t* data, size_t size) {
  return size >= sizeof kSignature && std::memcmp(data, kSignature, sizeof kSignature) == 0;
}

int info(ReadContext& ctx) {
  Reader r(ctx.data, ctx.size);
  if (!r.png || !r.info) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  if (!readInfo(&r)) return ctx.fail(IMK_ERR_BAD_FILE, r.error);
  fillHeader(ctx, ihdrOf(r));
  return IMK_OK;
}

int read(ReadContext& ctx, Picture& out) {
  Reader r(ctx.data, ctx.size);
  if (!r.png || !r.info) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  if (!readInfo(&r)) return ctx.fail(IMK_ERR_BAD_FILE, r.error);
  const Ihdr h = ihdrOf(r);
  fillHeader(ctx, h);
  if (!dataCanHoldPicture(r, h))
    return ctx.fail(IMK_ERR_BAD_FILE, "image data too short for its size");
  Target t;
  if (!setTransforms(&r, &h, &t)) return ctx.fail(IMK_ERR_BAD_FILE, r.error);

  const auto width = static_cast<int32_t>(h.width);
  const auto height = static_cast<int32_t>(h.height);
  const int bpp = bytesPerPixelOf(t.kind);
  // libpng's own idea of the row must be exactly what the picture holds.
  if (png_get_rowbytes(r.png, r.info) != static_cast<size_t>(width) * bpp)
    return ctx.fail(IMK_ERR_BAD_FILE, "unexpected PNG row layout");
  if (!out.allocate(t.kind, width, height))
    return sizeAcceptable(width, height, bpp) ? ctx.fail(IMK_ERR_MEMORY, "not enough memory")
                                              : ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  ImageRecord& rec = out.rec();
  int limit = 256;
  if (t.kind == IMK_GREY) {
    rec.colorCount = t.levels;
    fillGreyPalette(rec, t.levels);
  } else if (t.kind == IMK_MAPPED) {
    const int count = copyPalette(r, rec);
    if (count == 0) return ctx.fail(IMK_ERR_BAD_FILE, "palette missing");
    rec.colorCount = count;
    limit = count;
  }

  std::vector<uint8_t*> rows(static_cast<size_t>(height));
  for (int32_t y = 0; y < height; ++y) rows[static_cast<size_t>(y)] = out.row(y);
  int64_t rowsDone = 0;
  const DecodeResult result =
      decodeRows(&r, rows.data(), height, width, t.passes, limit, &ctx, &rowsDone);
  if (result == DecodeResult::kStopped) return IMK_ERR_STOPPED;
  if (result == DecodeResult::kError) {
    // A file that broke off after some rows keeps them when asked to.
    if (rowsDone == 0) return ctx.fail(IMK_ERR_CORRUPT, r.error);
    if (int rc = ctx.damaged(IMK_ERR_CORRUPT, r.error)) return rc;
  }
  if (t.kind == IMK_MAPPED) simplifyMappedPicture(rec);
  return IMK_OK;
}

// ---------------------------------------------------------------------------
// Writing.

// How a picture is stored.
struct Encoding {
  int colorType = PNG_COLOR_TYPE_RGB;
  int depth = 8;
  int levels = 0;  // level numbers / palette indices stored directly, clamped below this
};

int depthFor(int count) { return count <= 2 ? 1 : count <= 4 ? 2 : count <= 16 ? 4 : 8; }

Encoding encodingOf(const ImageRecord& pic) {
  Encoding e;
  switch (pic.type) {
    case IMK_BINARY:
      e.colorType = PNG_COLOR_TYPE_GRAY, e.depth = 1, e.levels = 2;
      break;
    case IMK_GREY: {
      const int n = pic.colorCount;
      e.colorType = PNG_COLOR_TYPE_GRAY;
      if (n == 2 || n == 4 || n == 16 || n == 256) e.depth = depthFor(n), e.levels = n;
      break;  // any other count: 8-bit intensities
    }
    case IMK_MAPPED:
      e.colorType = PNG_COLOR_TYPE_PALETTE;
      e.levels = std::clamp(pic.colorCount, 1, 256);
      e.depth = depthFor(e.levels);
      break;
    case IMK_RGBX:
      e.colorType = PNG_COLOR_TYPE_RGB_ALPHA;
      break;
    default:
      break;  // every other true-colour layout as R,G,B
  }
  return e;
}

// One row of the picture in the stored sample layout (before packing).
void storedRow(const ImageRecord& pic, const Encoding& e, int y, uint8_t* line) {
  if (e.levels) {
    const uint8_t* src = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
    if (pic.type == IMK_BINARY) {
      for (int x = 0; x < pic.width; ++x) line[x] = src[x] != 0;
    } else {
      const auto top = static_cast<uint8_t>(e.levels - 1);
      for (int x = 0; x < pic.width; ++x) line[x] = std::min(src[x], top);
    }
  } else if (e.colorType == PNG_COLOR_TYPE_GRAY) {
    rowToGrey(pic, y, line);
  } else if (e.colorType == PNG_COLOR_TYPE_RGB_ALPHA) {
    rowToRgba(pic, y, line);
  } else {
    rowToRgb(pic, y, line);
  }
}

// The chunks are written by hand around a zlib stream made by libdeflate,
// which compresses a whole picture at once two to three times faster than
// zlib at the same level for the same size or smaller. Pictures whose
// filtered rows would not fit comfortably in memory twice go through zlib's
// streaming interface instead.
std::atomic<size_t> gOneShotLimit{size_t{512} << 20};
constexpr size_t kIdatSize = size_t{256} << 10;

void putBigEndian(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}

struct ChunkWriter {
  FILE* file;
  bool ok = true;
  void raw(const void* data, size_t n) {
    if (ok && n && std::fwrite(data, 1, n, file) != n) ok = false;
  }
  void chunk(const char* type, const uint8_t* data, size_t n) {
    uint8_t head[8];
    putBigEndian(head, static_cast<uint32_t>(n));
    std::memcpy(head + 4, type, 4);
    uint32_t crc = libdeflate_crc32(0, head + 4, 4);
    // libdeflate_crc32 with a null buffer starts over instead of continuing.
    if (n) crc = libdeflate_crc32(crc, data, n);
    uint8_t tail[4];
    putBigEndian(tail, crc);
    raw(head, 8);
    raw(data, n);
    raw(tail, 4);
  }
  // Compressed data as IDAT chunks of at most kIdatSize bytes.
  void idat(const uint8_t* data, size_t n) {
    for (size_t at = 0; at < n; at += kIdatSize)
      chunk("IDAT", data + at, std::min(kIdatSize, n - at));
  }
};

// Packs samples of `depth` < 8 bits, most significant bits first.
void packRow(const uint8_t* samples, int count, int depth, uint8_t* out) {
  const int perByte = 8 / depth;
  for (int x = 0, b = 0; x < count; x += perByte, ++b) {
    unsigned v = 0;
    for (int k = 0; k < perByte; ++k) v = (v << depth) | (x + k < count ? samples[x + k] : 0u);
    out[b] = static_cast<uint8_t>(v);
  }
}

inline uint8_t paeth(int a, int b, int c) {
  const int p = a + b - c;
  const int pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
  return static_cast<uint8_t>(pa <= pb && pa <= pc ? a : pb <= pc ? b : c);
}

// Filters one row into out[0] (the filter type) and out[1..n]. Palette and
// low-depth rows stay unfiltered; the others take the filter whose bytes,
// read as signed values, have the smallest sum of magnitudes (the usual
// heuristic, which suits photographs).
void filterRow(const uint8_t* row, const uint8_t* prior, size_t n, int bpp, bool adaptive,
               uint8_t* out, std::vector<uint8_t>* scratch) {
  if (!adaptive) {
    out[0] = 0;
    std::memcpy(out + 1, row, n);
    return;
  }
  scratch->resize(4 * n);
  uint8_t* f[5] = {const_cast<uint8_t*>(row), scratch->data(), scratch->data() + n,
                   scratch->data() + 2 * n, scratch->data() + 3 * n};
  for (size_t i = 0; i < n; ++i) {
    const int a = i >= static_cast<size_t>(bpp) ? row[i - bpp] : 0;
    const int b = prior ? prior[i] : 0;
    const int c = prior && i >= static_cast<size_t>(bpp) ? prior[i - bpp] : 0;
    f[1][i] = static_cast<uint8_t>(row[i] - a);
    f[2][i] = static_cast<uint8_t>(row[i] - b);
    f[3][i] = static_cast<uint8_t>(row[i] - ((a + b) >> 1));
    f[4][i] = static_cast<uint8_t>(row[i] - paeth(a, b, c));
  }
  int best = 0;
  uint64_t bestCost = UINT64_MAX;
  for (int k = 0; k < 5; ++k) {
    uint64_t cost = 0;
    for (size_t i = 0; i < n; ++i) cost += f[k][i] < 128 ? f[k][i] : 256 - f[k][i];
    if (cost < bestCost) bestCost = cost, best = k;
  }
  out[0] = static_cast<uint8_t>(best);
  std::memcpy(out + 1, f[best], n);
}

int write(WriteContext& ctx, const ImageRecord& pic) {
  if (!ctx.out.file()) return IMK_ERR_WRITE;
  if (pic.type == IMK_MAPPED && !pic.palette) return IMK_ERR_CANNOT_SAVE;
  if (pic.width <= 0 || pic.height <= 0 || pic.width > kMaxDimension || pic.height > kMaxDimension)
    return IMK_ERR_CANNOT_SAVE;
  const Encoding e = encodingOf(pic);
  const int channels = e.colorType == PNG_COLOR_TYPE_RGB         ? 3
                       : e.colorType == PNG_COLOR_TYPE_RGB_ALPHA ? 4
                                                                 : 1;
  const size_t rowBytes = (static_cast<size_t>(pic.width) * channels * e.depth + 7) / 8;
  const bool adaptive = e.depth == 8 && e.colorType != PNG_COLOR_TYPE_PALETTE;
  const int level = std::min<int>(ctx.options.saveQuality, 9);

  ChunkWriter out{ctx.out.file()};
  out.raw(kSignature, sizeof kSignature);
  uint8_t ihdr[13];
  putBigEndian(ihdr, static_cast<uint32_t>(pic.width));
  putBigEndian(ihdr + 4, static_cast<uint32_t>(pic.height));
  ihdr[8] = static_cast<uint8_t>(e.depth);
  ihdr[9] = static_cast<uint8_t>(e.colorType);
  ihdr[10] = ihdr[11] = ihdr[12] = 0;  // deflate, adaptive filtering, not interlaced
  out.chunk("IHDR", ihdr, sizeof ihdr);
  if (e.colorType == PNG_COLOR_TYPE_PALETTE) {
    uint8_t plte[768];
    for (int i = 0; i < e.levels; ++i) {
      plte[3 * i] = pic.palette[i];
      plte[3 * i + 1] = pic.palette[256 + i];
      plte[3 * i + 2] = pic.palette[512 + i];
    }
    out.chunk("PLTE", plte, static_cast<size_t>(e.levels) * 3);
  }

  // Rows in the stored layout, packed and filtered.
  std::vector<uint8_t> samples(static_cast<size_t>(pic.width) * 4), row(rowBytes), prior(rowBytes),
      scratch;
  const size_t filteredSize = (rowBytes + 1) * static_cast<size_t>(pic.height);
  const bool oneShot = filteredSize <= pngOneShotLimit();
  std::vector<uint8_t> filtered(oneShot ? filteredSize : rowBytes + 1);
  z_stream z{};
  std::vector<uint8_t> zbuf;
  if (!oneShot) {
    if (deflateInit(&z, level) != Z_OK) return IMK_ERR_MEMORY;
    zbuf.resize(kIdatSize);
  }
  // Feeds one filtered row to the streaming compressor (flush at the end).
  auto stream = [&](const uint8_t* data, size_t n, int flush) {
    z.next_in = const_cast<uint8_t*>(data);
    z.avail_in = static_cast<uInt>(n);
    int rc;
    do {
      z.next_out = zbuf.data();
      z.avail_out = static_cast<uInt>(zbuf.size());
      rc = deflate(&z, flush);
      out.idat(zbuf.data(), zbuf.size() - z.avail_out);
    } while (z.avail_out == 0 || (flush == Z_FINISH && rc != Z_STREAM_END));
  };
  int result = IMK_OK;
  if (ctx.progress.begin(pic.height)) result = IMK_ERR_STOPPED;
  for (int y = 0; y < pic.height && result == IMK_OK; ++y) {
    storedRow(pic, e, y, samples.data());
    if (e.depth < 8)
      packRow(samples.data(), pic.width, e.depth, row.data());
    else
      std::memcpy(row.data(), samples.data(), rowBytes);
    uint8_t* dest =
        oneShot ? filtered.data() + static_cast<size_t>(y) * (rowBytes + 1) : filtered.data();
    filterRow(row.data(), y ? prior.data() : nullptr, rowBytes, channels, adaptive, dest, &scratch);
    if (!oneShot) stream(dest, rowBytes + 1, y + 1 == pic.height ? Z_FINISH : Z_NO_FLUSH);
    row.swap(prior);
    if (ctx.progress.advance(y + 1)) result = IMK_ERR_STOPPED;
  }
  if (!oneShot) deflateEnd(&z);
  if (result != IMK_OK) return result;
  if (oneShot) {
    libdeflate_compressor* c = libdeflate_alloc_compressor(level);
    if (!c) return IMK_ERR_MEMORY;
    std::vector<uint8_t> packed(libdeflate_zlib_compress_bound(c, filteredSize));
    const size_t n =
        libdeflate_zlib_compress(c, filtered.data(), filteredSize, packed.data(), packed.size());
    libdeflate_free_compressor(c);
    if (n == 0) return IMK_ERR_MEMORY;
    out.idat(packed.data(), n);
  }
  out.chunk("IEND", nullptr, 0);
  if (!out.ok || std::ferror(ctx.out.file())) return IMK_ERR_WRITE;
  return IMK_OK;
}

}  // namespace

size_t pngOneShotLimit() { return gOneShotLimit.load(); }
void setPngOneShotLimit(size_t bytes) { gOneShotLimit.store(bytes); }

const Codec kPngCodec = {"png",
                         "PNG",
                         {"png"},
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
