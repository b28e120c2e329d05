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
#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstdio>
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

void onWrite(png_structp png, png_bytep bytes, size_t length) {
  auto* s = static_cast<PngState*>(png_get_io_ptr(png));
  if (std::fwrite(bytes, 1, length, s->file) != length) png_error(png, "write failed");
}

void onFlush(png_structp png) {
  auto* s = static_cast<PngState*>(png_get_io_ptr(png));
  if (std::fflush(s->file) != 0) png_error(png, "write failed");
}

struct Writer : PngState {
  explicit Writer(FILE* out) {
    file = out;
    png = png_create_write_struct(PNG_LIBPNG_VER_STRING, this, onError, onWarning);
    if (png) info = png_create_info_struct(png);
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  ~Writer() {
    if (png) png_destroy_write_struct(&png, info ? &info : nullptr);
  }
};

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

// Writes the whole file; `line` holds one row of up to width*4 bytes.
// Protected by setjmp: returns an imgkit result code.
int encode(PngState* s, const ImageRecord* pic, const Encoding* e, uint8_t* line,
           WriteContext* ctx) {
  if (setjmp(s->jump)) return IMK_ERR_WRITE;
  png_structp png = s->png;
  png_set_write_fn(png, s, onWrite, onFlush);
  png_set_user_limits(png, kMaxDimension, kMaxDimension);
  png_set_IHDR(png, s->info, static_cast<png_uint_32>(pic->width),
               static_cast<png_uint_32>(pic->height), e->depth, e->colorType, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (e->colorType == PNG_COLOR_TYPE_PALETTE) {
    png_color entries[256];
    for (int i = 0; i < e->levels; ++i)
      entries[i] = {pic->palette[i], pic->palette[256 + i], pic->palette[512 + i]};
    png_set_PLTE(png, s->info, entries, e->levels);
  }
  png_set_compression_level(png, std::min<int>(ctx->options.saveQuality, 9));
  png_write_info(png, s->info);
  if (e->depth < 8) png_set_packing(png);
  if (ctx->progress.begin(pic->height)) return IMK_ERR_STOPPED;
  for (int y = 0; y < pic->height; ++y) {
    storedRow(*pic, *e, y, line);
    png_write_row(png, line);
    if (ctx->progress.advance(y + 1)) return IMK_ERR_STOPPED;
  }
  png_write_end(png, nullptr);
  return IMK_OK;
}

int write(WriteContext& ctx, const ImageRecord& pic) {
  if (!ctx.out.file()) return IMK_ERR_WRITE;
  if (pic.type == IMK_MAPPED && !pic.palette) return IMK_ERR_CANNOT_SAVE;
  Writer w(ctx.out.file());
  if (!w.png || !w.info) return IMK_ERR_MEMORY;
  const Encoding e = encodingOf(pic);
  std::vector<uint8_t> line(static_cast<size_t>(pic.width) * 4);
  const int rc = encode(&w, &pic, &e, line.data(), &ctx);
  if (rc == IMK_OK && std::ferror(w.file)) return IMK_ERR_WRITE;
  return rc;
}

}  // namespace

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
