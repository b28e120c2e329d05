// JPEG codec on libjpeg(-turbo). Reading decodes straight into the picture
// rows (grey files as 256-level grey, everything else as R,G,B); CMYK and
// YCCK files are converted to R,G,B band by band. Reduced loads let the
// decoder's DCT scaling do the bulk of the work. Writing produces baseline or
// progressive JFIF files, grey for binary and grey pictures, R,G,B otherwise.
//
// libjpeg reports fatal errors through error_exit, which longjmps back to us.
// Every setjmp lives in a small function whose frame holds only plain data, so
// that the longjmp never skips a destructor; the objects that own memory live
// in the callers.

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <limits>
#include <memory>
#include <vector>

// clang-format off
#include <jpeglib.h>
#include <jerror.h>
// clang-format on

#include "imgkit/internal.h"

namespace imk {

namespace {

// A hostile progressive file can hold thousands of tiny scans, each of which
// makes the decoder walk the whole coefficient buffer again. Real encoders
// write about ten; the cap keeps decoding time bounded.
constexpr int kMaxScans = 500;

// Rows of CMYK converted per call during a CMYK decode.
constexpr int kCmykBand = 16;

// ---------------------------------------------------------------------------
// Error handling shared by decoder and encoder.

struct ErrorManager {
  jpeg_error_mgr pub;  // first member: libjpeg sees only this part
  std::jmp_buf jump;
  // Reading without IMK_FLAG_IGNORE_ERRORS: a corrupt-data warning is fatal.
  bool stopOnWarning = false;
  char error[JMSG_LENGTH_MAX] = {};
  char warning[JMSG_LENGTH_MAX] = {};  // the first corrupt-data warning
};

ErrorManager* errorsOf(j_common_ptr cinfo) { return reinterpret_cast<ErrorManager*>(cinfo->err); }

[[noreturn]] void onError(j_common_ptr cinfo) {
  ErrorManager* err = errorsOf(cinfo);
  if (!err->error[0]) (*cinfo->err->format_message)(cinfo, err->error);
  std::longjmp(err->jump, 1);
}

// Warnings that say nothing about the pixels: an unexpected JFIF version, an
// unknown Adobe transform code (the default guess still applies) and a broken
// ICC marker (we do not use profiles).
bool harmlessWarning(int code) {
  return code == JWRN_JFIF_MAJOR || code == JWRN_ADOBE_XFORM || code == JWRN_BOGUS_ICC;
}

// Trace messages (level >= 0) are dropped; warnings (level -1) mean corrupt
// data. Nothing ever reaches stderr.
void onMessage(j_common_ptr cinfo, int level) {
  if (level >= 0 || harmlessWarning(cinfo->err->msg_code)) return;
  ErrorManager* err = errorsOf(cinfo);
  ++cinfo->err->num_warnings;
  if (!err->warning[0]) (*cinfo->err->format_message)(cinfo, err->warning);
  if (err->stopOnWarning) {
    std::snprintf(err->error, sizeof err->error, "%s", err->warning);
    std::longjmp(err->jump, 1);
  }
}

void onOutput(j_common_ptr) {}

void installErrors(ErrorManager& err, j_common_ptr cinfo) {
  cinfo->err = jpeg_std_error(&err.pub);
  err.pub.error_exit = onError;
  err.pub.emit_message = onMessage;
  err.pub.output_message = onOutput;
}

[[noreturn]] void failWith(j_common_ptr cinfo, const char* text) {
  ErrorManager* err = errorsOf(cinfo);
  std::snprintf(err->error, sizeof err->error, "%s", text);
  std::longjmp(err->jump, 1);
}

// ---------------------------------------------------------------------------
// Reading.

void onDecodeProgress(j_common_ptr cinfo) {
  auto* d = reinterpret_cast<j_decompress_ptr>(cinfo);
  if (d->input_scan_number > kMaxScans) failWith(cinfo, "too many JPEG scans");
}

// Decompressor state; the owner of everything libjpeg allocated.
struct Decoder {
  jpeg_decompress_struct cinfo = {};
  ErrorManager err;
  jpeg_progress_mgr monitor = {};
  bool created = false;

  Decoder() = default;
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;
  ~Decoder() {
    if (created) jpeg_destroy_decompress(&cinfo);
  }
};

// Creates the decompressor over the file in memory and reads the headers.
// Protected by setjmp: returns false with err.error set on a libjpeg error.
bool readHeaders(Decoder* d, const uint8_t* data, size_t size) {
  installErrors(d->err, reinterpret_cast<j_common_ptr>(&d->cinfo));
  if (setjmp(d->err.jump)) return false;
  jpeg_create_decompress(&d->cinfo);
  d->created = true;
  d->monitor.progress_monitor = onDecodeProgress;
  d->cinfo.progress = &d->monitor;
  // Progressive files keep every coefficient in memory; bound that by the
  // same budget the pixel buffers get (a 4-channel progressive file needs up
  // to 8 bytes per pixel where the R,G,B picture needs 3).
  const size_t budget = pixelByteLimit() / 3 * 8 + (size_t{64} << 20);
  d->cinfo.mem->max_memory_to_use =
      static_cast<long>(std::min<size_t>(budget, std::numeric_limits<long>::max() / 2));
  jpeg_mem_src(&d->cinfo, data, static_cast<unsigned long>(size));
  jpeg_read_header(&d->cinfo, TRUE);
  return true;
}

// Picks the smallest N/8 DCT scale whose output still covers targetWidth x
// targetHeight, and leaves cinfo's output dimensions at that scale.
bool chooseScale(Decoder* d, int32_t targetWidth, int32_t targetHeight) {
  if (setjmp(d->err.jump)) return false;
  for (unsigned n = 1; n <= 8; ++n) {
    d->cinfo.scale_num = n;
    d->cinfo.scale_denom = 8;
    jpeg_calc_output_dimensions(&d->cinfo);
    if (static_cast<int64_t>(d->cinfo.output_width) >= targetWidth &&
        static_cast<int64_t>(d->cinfo.output_height) >= targetHeight)
      break;
  }
  return true;
}

bool outputDimensions(Decoder* d) {
  if (setjmp(d->err.jump)) return false;
  jpeg_calc_output_dimensions(&d->cinfo);
  return true;
}

enum class DecodeResult { kDone, kError, kStopped };

// Runs the decompression into `rows` (one pointer per output row), reporting
// progress. `*rowsDone` says how far it got when it fails. Protected by setjmp.
DecodeResult decodeRows(Decoder* d, JSAMPROW* rows, ReadContext* ctx, JDIMENSION* rowsDone) {
  if (setjmp(d->err.jump)) return DecodeResult::kError;
  j_decompress_ptr cinfo = &d->cinfo;
  if (ctx->beginProgress(cinfo->output_height)) return DecodeResult::kStopped;
  jpeg_start_decompress(cinfo);
  const bool cmyk = cinfo->out_color_space == JCS_CMYK;
  JSAMPARRAY band = nullptr;
  if (cmyk)
    band = (*cinfo->mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(cinfo), JPOOL_IMAGE,
                                       cinfo->output_width * 4, kCmykBand);
  while (cinfo->output_scanline < cinfo->output_height) {
    const JDIMENSION first = cinfo->output_scanline;
    const JDIMENSION want = cinfo->output_height - first;
    if (cmyk) {
      const JDIMENSION got =
          jpeg_read_scanlines(cinfo, band, std::min<JDIMENSION>(want, kCmykBand));
      for (JDIMENSION i = 0; i < got; ++i)
        cmykRowToRgb(band[i], rows[first + i], cinfo->output_width, cinfo->saw_Adobe_marker);
    } else {
      jpeg_read_scanlines(cinfo, rows + first, want);
    }
    *rowsDone = cinfo->output_scanline;
    if (*rowsDone == first) failWith(reinterpret_cast<j_common_ptr>(cinfo), "JPEG decoder stalled");
    if (ctx->advanceProgress(*rowsDone)) return DecodeResult::kStopped;
  }
  // The picture is complete: whatever follows the last scan is not read.
  jpeg_abort_decompress(cinfo);
  return DecodeResult::kDone;
}

void fillHeader(ReadContext& ctx, const jpeg_decompress_struct& cinfo) {
  ctx.header.width = static_cast<int32_t>(cinfo.image_width);
  ctx.header.height = static_cast<int32_t>(cinfo.image_height);
  ctx.header.planes = static_cast<int16_t>(cinfo.num_components);
  ctx.header.bitsPerPlane = 8;
  ctx.header.pictureCount = 1;
}

bool sniff(const uint8_t* data, size_t size) {
  return size >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF;
}

int info(ReadContext& ctx) {
  Decoder dec;
  if (!readHeaders(&dec, ctx.data, ctx.size)) return ctx.fail(IMK_ERR_JPEG, dec.err.error);
  fillHeader(ctx, dec.cinfo);
  return IMK_OK;
}

int read(ReadContext& ctx, Picture& out) {
  Decoder dec;
  dec.err.stopOnWarning = !ctx.ignoreErrors();
  if (!readHeaders(&dec, ctx.data, ctx.size)) return ctx.fail(IMK_ERR_JPEG, dec.err.error);
  jpeg_decompress_struct& cinfo = dec.cinfo;
  fillHeader(ctx, cinfo);

  uint16_t kind = IMK_RGB;
  switch (cinfo.jpeg_color_space) {
    case JCS_GRAYSCALE:
      cinfo.out_color_space = JCS_GRAYSCALE;
      kind = IMK_GREY;
      break;
    case JCS_YCbCr:
    case JCS_RGB:
      cinfo.out_color_space = JCS_RGB;
      break;
    case JCS_CMYK:
    case JCS_YCCK:
      cinfo.out_color_space = JCS_CMYK;  // libjpeg turns YCCK into CMYK
      break;
    default:
      return ctx.fail(IMK_ERR_BAD_FILE, "unsupported JPEG colour space");
  }
  cinfo.dct_method = JDCT_ISLOW;

  int32_t fitWidth, fitHeight;
  bool sized;
  if (ctx.reduceTarget(&fitWidth, &fitHeight)) {
    int32_t w, h;
    reducedSize(static_cast<int32_t>(cinfo.image_width), static_cast<int32_t>(cinfo.image_height),
                fitWidth, fitHeight, &w, &h);
    sized = chooseScale(&dec, w, h);
  } else {
    sized = outputDimensions(&dec);
  }
  if (!sized) return ctx.fail(IMK_ERR_JPEG, dec.err.error);

  const auto width = static_cast<int32_t>(cinfo.output_width);
  const auto height = static_cast<int32_t>(cinfo.output_height);
  if (!out.allocate(kind, width, height))
    return sizeAcceptable(width, height, kind == IMK_GREY ? 1 : 3)
               ? ctx.fail(IMK_ERR_MEMORY, "not enough memory")
               : ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  std::vector<JSAMPROW> rows(static_cast<size_t>(height));
  for (int32_t y = 0; y < height; ++y) rows[static_cast<size_t>(y)] = out.row(y);

  JDIMENSION rowsDone = 0;
  switch (decodeRows(&dec, rows.data(), &ctx, &rowsDone)) {
    case DecodeResult::kStopped:
      return IMK_ERR_STOPPED;
    case DecodeResult::kError:
      // Rows already decoded are worth keeping when the caller asked for it;
      // a file that failed before its first row has nothing to show.
      if (rowsDone == 0) return ctx.fail(IMK_ERR_JPEG, dec.err.error);
      return ctx.damaged(IMK_ERR_JPEG, dec.err.error);
    case DecodeResult::kDone:
      break;
  }
  // Corrupt data the decoder worked around (only reached when ignoring
  // errors: otherwise the first warning already failed the load).
  if (dec.err.warning[0]) return ctx.damaged(IMK_ERR_JPEG, dec.err.warning);
  return IMK_OK;
}

// ---------------------------------------------------------------------------
// Writing.

constexpr size_t kOutputBuffer = 64 * 1024;

struct FileDestination {
  jpeg_destination_mgr pub;  // first member
  FILE* file;
  bool writeFailed = false;
  JOCTET buffer[kOutputBuffer];
};

FileDestination* destinationOf(j_compress_ptr cinfo) {
  return reinterpret_cast<FileDestination*>(cinfo->dest);
}

void onInitDestination(j_compress_ptr cinfo) {
  FileDestination* dest = destinationOf(cinfo);
  dest->pub.next_output_byte = dest->buffer;
  dest->pub.free_in_buffer = kOutputBuffer;
}

void flushDestination(j_compress_ptr cinfo, size_t bytes) {
  FileDestination* dest = destinationOf(cinfo);
  if (bytes && std::fwrite(dest->buffer, 1, bytes, dest->file) != bytes) {
    dest->writeFailed = true;
    ERREXIT(cinfo, JERR_FILE_WRITE);
  }
}

boolean onEmptyOutput(j_compress_ptr cinfo) {
  flushDestination(cinfo, kOutputBuffer);
  onInitDestination(cinfo);
  return TRUE;
}

void onTermDestination(j_compress_ptr cinfo) {
  flushDestination(cinfo, kOutputBuffer - destinationOf(cinfo)->pub.free_in_buffer);
}

struct Encoder {
  jpeg_compress_struct cinfo = {};
  ErrorManager err;
  FileDestination dest;
  bool created = false;

  Encoder() = default;
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;
  ~Encoder() {
    if (created) jpeg_destroy_compress(&cinfo);
  }
};

int qualityOf(const LoadOptions& o) {
  return o.saveQuality == 0 ? 75 : std::clamp<int>(o.saveQuality, 1, 100);
}

// Compresses the whole picture; `line` holds one converted row. Protected by
// setjmp: returns an imgkit result code.
int compress(Encoder* e, const ImageRecord* pic, uint8_t* line, WriteContext* ctx) {
  installErrors(e->err, reinterpret_cast<j_common_ptr>(&e->cinfo));
  if (setjmp(e->err.jump)) return e->dest.writeFailed ? IMK_ERR_WRITE : IMK_ERR_JPEG;
  j_compress_ptr cinfo = &e->cinfo;
  jpeg_create_compress(cinfo);
  e->created = true;
  e->dest.pub.init_destination = onInitDestination;
  e->dest.pub.empty_output_buffer = onEmptyOutput;
  e->dest.pub.term_destination = onTermDestination;
  cinfo->dest = &e->dest.pub;

  const bool grey = pic->type == IMK_BINARY || pic->type == IMK_GREY;
  cinfo->image_width = static_cast<JDIMENSION>(pic->width);
  cinfo->image_height = static_cast<JDIMENSION>(pic->height);
  cinfo->input_components = grey ? 1 : 3;
  cinfo->in_color_space = grey ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(cinfo);
  jpeg_set_quality(cinfo, qualityOf(ctx->options), TRUE);
  if (ctx->options.saveOption == 1) jpeg_simple_progression(cinfo);
  if (ctx->progress.begin(pic->height)) return IMK_ERR_STOPPED;
  jpeg_start_compress(cinfo, TRUE);
  JSAMPROW row = line;
  for (int y = 0; y < pic->height; ++y) {
    if (grey)
      rowToGrey(*pic, y, line);
    else
      rowToRgb(*pic, y, line);
    jpeg_write_scanlines(cinfo, &row, 1);
    if (ctx->progress.advance(y + 1)) return IMK_ERR_STOPPED;
  }
  jpeg_finish_compress(cinfo);
  return std::ferror(e->dest.file) ? IMK_ERR_WRITE : IMK_OK;
}

int write(WriteContext& ctx, const ImageRecord& pic) {
  // Frame dimensions are 16-bit fields and libjpeg stops at 65500.
  if (pic.width > JPEG_MAX_DIMENSION || pic.height > JPEG_MAX_DIMENSION) return IMK_ERR_CANNOT_SAVE;
  FILE* file = ctx.out.file();
  if (!file) return IMK_ERR_WRITE;
  const bool grey = pic.type == IMK_BINARY || pic.type == IMK_GREY;
  std::vector<uint8_t> line(static_cast<size_t>(pic.width) * (grey ? 1 : 3));
  auto enc = std::make_unique<Encoder>();  // holds a 64 KiB buffer: keep it off the stack
  enc->dest.file = file;
  return compress(enc.get(), &pic, line.data(), &ctx);
}

}  // namespace

const Codec kJpegCodec = {"jpeg",
                          "JPEG",
                          {"jpg", "jpeg", "jpe", "jfif"},
                          IMK_CAN_READ | IMK_CAN_WRITE,
                          {{IMK_GREY, 256, kAnySize, kAnySize},
                           {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                           kEndKinds},
                          sniff,
                          info,
                          read,
                          write};

}  // namespace imk
