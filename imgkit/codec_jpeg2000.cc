// JPEG 2000 on OpenJPEG: the JP2 box file ("jp2") and the bare code stream
// ("j2k") share everything but OpenJPEG's codec kind.
//
// Reading: OpenJPEG reads the memory block through bounded stream callbacks.
// Its messages never reach stderr: the first error becomes the reason of the
// failure. The decoded components are turned into a picture:
//   1 component, 1 bit            -> binary
//   1 component, 2..7 bits        -> grey with 2^bits levels (level numbers)
//   1 component, 8 bits and more  -> grey, 256 levels
//   grey + alpha                  -> R,G,B + alpha
//   3 components                  -> R,G,B (sYCC converted)
//   4 components                  -> R,G,B + alpha, or CMYK converted
// Signed samples are shifted by half their range; every precision is scaled
// to 8 bits. Components sampled more coarsely than the first one (chroma of
// YCC files) are upsampled by repeating their samples. Palettes and channel
// definitions of JP2 files are applied by OpenJPEG.
//
// OpenJPEG has no progress hook: progress is reported as step 0 before the
// decoding and then while the samples are converted. Reduced loads decode a
// lower resolution level (each halves the size) that still covers the
// reduced size; the generic area reduction finishes the job.
//
// A damaged code stream fails; with "ignore errors" it is decoded again in
// OpenJPEG's lenient mode, which keeps whatever the intact packets give
// (unless a tile-part claims far more bytes than any picture of its size
// needs: the lenient mode would allocate them all).
//
// Writing: grey pictures (and binary) as one 8-bit component, true colour as
// three, kind 512 as four with the fourth marked as alpha. Save quality 0 or
// 100 is lossless (reversible 5/3 wavelet); 1..99 is lossy (irreversible 9/7)
// with a target quality of 20 + 0.3 x quality dB PSNR: 75 gives 42.5 dB,
// visually clean, 1 gives 20.3 dB, a rough preview.
#include <openjpeg.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

constexpr uint8_t kJp2Signature[12] = {0, 0, 0, 0x0C, 'j', 'P', ' ', ' ', 0x0D, 0x0A, 0x87, 0x0A};
constexpr uint8_t kCodestreamStart[4] = {0xFF, 0x4F, 0xFF, 0x51};  // SOC, then SIZ

bool sniffJp2(const uint8_t* data, size_t size) {
  return size >= sizeof kJp2Signature &&
         std::memcmp(data, kJp2Signature, sizeof kJp2Signature) == 0;
}

bool sniffJ2k(const uint8_t* data, size_t size) {
  return size >= sizeof kCodestreamStart &&
         std::memcmp(data, kCodestreamStart, sizeof kCodestreamStart) == 0;
}

// More components than this are not pictures this library shows.
constexpr uint32_t kMaxComponents = 16;

// ---------------------------------------------------------------------------
// OpenJPEG objects and messages.

struct CodecDeleter {
  void operator()(opj_codec_t* c) const { opj_destroy_codec(c); }
};
struct StreamDeleter {
  void operator()(opj_stream_t* s) const { opj_stream_destroy(s); }
};
struct ImageDeleter {
  void operator()(opj_image_t* i) const { opj_image_destroy(i); }
};
using CodecPtr = std::unique_ptr<opj_codec_t, CodecDeleter>;
using StreamPtr = std::unique_ptr<opj_stream_t, StreamDeleter>;
using ImagePtr = std::unique_ptr<opj_image_t, ImageDeleter>;

// The first error OpenJPEG reports, without its line feed.
struct Messages {
  char error[64] = {};
};

void onError(const char* message, void* data) {
  char* error = static_cast<Messages*>(data)->error;
  if (error[0] || !message) return;
  std::snprintf(error, sizeof(Messages::error), "%s", message);
  for (char* p = error; *p; ++p)
    if (*p == '\n') *p = '\0';
}

// Warnings and information describe what the decoder worked around.
void onQuiet(const char*, void*) {}

void silence(opj_codec_t* codec, Messages* messages) {
  opj_set_error_handler(codec, onError, messages);
  opj_set_warning_handler(codec, onQuiet, nullptr);
  opj_set_info_handler(codec, onQuiet, nullptr);
}

// One core: worker threads would only compete with the viewer's own work.
// Setting it also overrides OPJ_NUM_THREADS from the environment.
void singleThreaded(opj_codec_t* codec) { opj_codec_set_threads(codec, 0); }

// ---------------------------------------------------------------------------
// Reading.

// The file in memory as an OpenJPEG stream: reads, skips and seeks never
// leave the block.
struct Source {
  const uint8_t* data;
  size_t size;
  size_t pos = 0;
};

OPJ_SIZE_T onRead(void* buffer, OPJ_SIZE_T n, void* user) {
  auto* s = static_cast<Source*>(user);
  if (s->pos >= s->size) return static_cast<OPJ_SIZE_T>(-1);
  n = std::min<OPJ_SIZE_T>(n, s->size - s->pos);
  std::memcpy(buffer, s->data + s->pos, n);
  s->pos += n;
  return n;
}

// Skipping nothing would make OpenJPEG retry forever: at the end it is -1.
OPJ_OFF_T onSkip(OPJ_OFF_T n, void* user) {
  auto* s = static_cast<Source*>(user);
  if (n < 0) {
    const auto back = static_cast<uint64_t>(-(n + 1)) + 1;
    if (back > s->pos) return -1;
    s->pos -= static_cast<size_t>(back);
    return n;
  }
  if (s->pos >= s->size) return -1;
  const size_t step =
      static_cast<size_t>(std::min<uint64_t>(static_cast<uint64_t>(n), s->size - s->pos));
  s->pos += step;
  return static_cast<OPJ_OFF_T>(step);
}

OPJ_BOOL onSeek(OPJ_OFF_T to, void* user) {
  auto* s = static_cast<Source*>(user);
  if (to < 0 || static_cast<uint64_t>(to) > s->size) return OPJ_FALSE;
  s->pos = static_cast<size_t>(to);
  return OPJ_TRUE;
}

struct Decoder {
  Source source;
  Messages messages;
  CodecPtr codec;
  StreamPtr stream;
  ImagePtr image;
};

// Creates the decompressor over the file and reads the main headers.
bool openDecoder(const ReadContext& ctx, OPJ_CODEC_FORMAT format, bool strict, Decoder* d) {
  d->source = {ctx.data, ctx.size};
  d->codec.reset(opj_create_decompress(format));
  d->stream.reset(opj_stream_create(OPJ_J2K_STREAM_CHUNK_SIZE, OPJ_TRUE));
  if (!d->codec || !d->stream) {
    std::snprintf(d->messages.error, sizeof d->messages.error, "not enough memory");
    return false;
  }
  silence(d->codec.get(), &d->messages);
  opj_stream_set_read_function(d->stream.get(), onRead);
  opj_stream_set_skip_function(d->stream.get(), onSkip);
  opj_stream_set_seek_function(d->stream.get(), onSeek);
  opj_stream_set_user_data(d->stream.get(), &d->source, nullptr);
  opj_stream_set_user_data_length(d->stream.get(), ctx.size);
  opj_dparameters_t parameters;
  opj_set_default_decoder_parameters(&parameters);
  if (!opj_setup_decoder(d->codec.get(), &parameters)) return false;
  opj_decoder_set_strict_mode(d->codec.get(), strict ? OPJ_TRUE : OPJ_FALSE);
  singleThreaded(d->codec.get());
  opj_image_t* image = nullptr;
  const bool ok = opj_read_header(d->stream.get(), d->codec.get(), &image) != 0;
  d->image.reset(image);
  return ok && image;
}

uint32_t ceilDiv(uint32_t a, uint32_t b) {
  return static_cast<uint32_t>((static_cast<uint64_t>(a) + b - 1) / b);
}
uint32_t ceilShift(uint32_t a, uint32_t s) {
  return static_cast<uint32_t>((static_cast<uint64_t>(a) + (uint64_t{1} << s) - 1) >> s);
}

// Size of component c at resolution reduction `factor` (each level halves).
void componentSize(const opj_image_t& image, uint32_t c, uint32_t factor, uint32_t* w,
                   uint32_t* h) {
  const opj_image_comp_t& comp = image.comps[c];
  *w =
      ceilShift(ceilDiv(image.x1, comp.dx), factor) - ceilShift(ceilDiv(image.x0, comp.dx), factor);
  *h =
      ceilShift(ceilDiv(image.y1, comp.dy), factor) - ceilShift(ceilDiv(image.y0, comp.dy), factor);
}

// Checks what the headers declare; the picture is the first component's size.
int checkHeader(ReadContext& ctx, const opj_image_t& image) {
  if (image.numcomps < 1 || image.numcomps > kMaxComponents || !image.comps)
    return ctx.fail(IMK_ERR_BAD_FILE, "unsupported number of components");
  for (uint32_t c = 0; c < image.numcomps; ++c) {
    const opj_image_comp_t& comp = image.comps[c];
    if (comp.prec < 1 || comp.prec > 31 || comp.dx < 1 || comp.dy < 1)
      return ctx.fail(IMK_ERR_BAD_FILE, "unsupported component layout");
  }
  if (image.x1 <= image.x0 || image.y1 <= image.y0)
    return ctx.fail(IMK_ERR_BAD_FILE, "bad picture size");
  uint32_t w, h;
  componentSize(image, 0, 0, &w, &h);
  ctx.header.width = static_cast<int32_t>(std::min<uint32_t>(w, INT32_MAX));
  ctx.header.height = static_cast<int32_t>(std::min<uint32_t>(h, INT32_MAX));
  ctx.header.planes = static_cast<int16_t>(image.numcomps);
  ctx.header.bitsPerPlane = static_cast<int16_t>(image.comps[0].prec);
  ctx.header.pictureCount = 1;
  if (w == 0 || h == 0 || w > static_cast<uint32_t>(kMaxDimension) ||
      h > static_cast<uint32_t>(kMaxDimension))
    return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  return IMK_OK;
}

// OpenJPEG keeps every decoded sample as a 32-bit integer: the decoded
// components must fit the pixel budget too.
bool componentsFit(const opj_image_t& image, uint32_t factor) {
  uint64_t bytes = 0;
  for (uint32_t c = 0; c < image.numcomps; ++c) {
    uint32_t w, h;
    componentSize(image, c, factor, &w, &h);
    bytes += static_cast<uint64_t>(w) * h * 4;
  }
  return bytes <= pixelByteLimit();
}

// Fewest resolution levels any component of the default tile has.
uint32_t resolutionLevels(opj_codec_t* codec, uint32_t numcomps) {
  opj_codestream_info_v2_t* info = opj_get_cstr_info(codec);
  if (!info) return 1;
  uint32_t levels = 33;
  if (info->m_default_tile_info.tccp_info)
    for (uint32_t c = 0; c < numcomps && c < info->nbcomps; ++c)
      levels = std::min(levels, info->m_default_tile_info.tccp_info[c].numresolutions);
  opj_destroy_cstr_info(&info);
  return std::max<uint32_t>(levels, 1);
}

// The largest resolution reduction whose picture still covers the reduced
// size of a reduced load; 0 for a plain load.
uint32_t reductionFor(const ReadContext& ctx, opj_codec_t* codec, const opj_image_t& image) {
  int32_t fitWidth, fitHeight;
  if (!ctx.reduceTarget(&fitWidth, &fitHeight)) return 0;
  int32_t rw, rh;
  reducedSize(ctx.header.width, ctx.header.height, fitWidth, fitHeight, &rw, &rh);
  const uint32_t levels = resolutionLevels(codec, image.numcomps);
  uint32_t factor = 0;
  while (factor + 1 < levels) {
    uint32_t w, h;
    componentSize(image, 0, factor + 1, &w, &h);
    if (w < static_cast<uint32_t>(rw) || h < static_cast<uint32_t>(rh)) break;
    ++factor;
  }
  return factor;
}

// Reads the headers and decodes the picture (at a reduced resolution when
// that is enough); progress starts on the first attempt, over the rows of the
// picture. 0 or an error code with the reason recorded.
int decode(ReadContext& ctx, OPJ_CODEC_FORMAT format, bool strict, Decoder* d) {
  if (!openDecoder(ctx, format, strict, d))
    return ctx.fail(IMK_ERR_BAD_FILE,
                    d->messages.error[0] ? d->messages.error : "bad JPEG 2000 header");
  opj_image_t& image = *d->image;
  if (int rc = checkHeader(ctx, image)) return rc;
  uint32_t factor = reductionFor(ctx, d->codec.get(), image);
  if (factor && !opj_set_decoded_resolution_factor(d->codec.get(), factor)) factor = 0;
  if (!componentsFit(image, factor)) return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  uint32_t w, h;
  componentSize(image, 0, factor, &w, &h);
  if (strict && ctx.beginProgress(h)) return IMK_ERR_STOPPED;
  if (!opj_decode(d->codec.get(), d->stream.get(), d->image.get()))
    return ctx.fail(IMK_ERR_CORRUPT,
                    d->messages.error[0] ? d->messages.error : "damaged JPEG 2000 data");
  return IMK_OK;
}

// One decoded component as 8-bit values along an output row.
class Channel {
 public:
  // False when the component holds no samples.
  bool init(const opj_image_comp_t& comp, int32_t width, int32_t height) {
    if (!comp.data || comp.w == 0 || comp.h == 0) return false;
    comp_ = &comp;
    height_ = height;
    max_ = static_cast<int32_t>((uint64_t{1} << comp.prec) - 1);
    offset_ = comp.sgnd ? static_cast<int32_t>(uint32_t{1} << (comp.prec - 1)) : 0;
    // Coarser components repeat their samples: output x takes sample
    // x * w / width (the identity when the sizes agree).
    xs_.resize(static_cast<size_t>(width));
    for (int32_t x = 0; x < width; ++x)
      xs_[static_cast<size_t>(x)] = static_cast<uint32_t>(
          std::min<uint64_t>(static_cast<uint64_t>(x) * comp.w / width, comp.w - 1));
    if (comp.prec <= 16) {
      scale_.resize(static_cast<size_t>(max_) + 1);
      for (int32_t v = 0; v <= max_; ++v)
        scale_[static_cast<size_t>(v)] =
            static_cast<uint8_t>((static_cast<int64_t>(v) * 255 + max_ / 2) / max_);
    }
    return true;
  }

  // The raw level of sample x in output row y, shifted and clamped to 0..max.
  int32_t level(int32_t x, int32_t y) const {
    const uint64_t sy =
        std::min<uint64_t>(static_cast<uint64_t>(y) * comp_->h / height_, comp_->h - 1);
    const int64_t v =
        static_cast<int64_t>(comp_->data[sy * comp_->w + xs_[static_cast<size_t>(x)]]) + offset_;
    return static_cast<int32_t>(std::clamp<int64_t>(v, 0, max_));
  }
  // Output row y as 8-bit values written every `step` bytes.
  void row(int32_t y, uint8_t* out, int step) const {
    const uint64_t sy =
        std::min<uint64_t>(static_cast<uint64_t>(y) * comp_->h / height_, comp_->h - 1);
    const OPJ_INT32* src = comp_->data + sy * comp_->w;
    const auto width = static_cast<int32_t>(xs_.size());
    for (int32_t x = 0; x < width; ++x, out += step) {
      const int64_t v = static_cast<int64_t>(src[xs_[static_cast<size_t>(x)]]) + offset_;
      out[0] = eight(static_cast<int32_t>(std::clamp<int64_t>(v, 0, max_)));
    }
  }

 private:
  uint8_t eight(int32_t v) const {
    if (!scale_.empty()) return scale_[static_cast<size_t>(v)];
    return static_cast<uint8_t>(v >> (comp_->prec - 8));
  }

  const opj_image_comp_t* comp_ = nullptr;
  int32_t height_ = 1;
  int32_t max_ = 255;
  int32_t offset_ = 0;
  std::vector<uint32_t> xs_;
  std::vector<uint8_t> scale_;
};

enum class Colour { kGrey, kGreyAlpha, kRgb, kRgba, kYcc, kCmyk };

Colour colourOf(const opj_image_t& image) {
  const uint32_t n = image.numcomps;
  if (n < 3) return n == 2 ? Colour::kGreyAlpha : Colour::kGrey;
  const bool unspecified =
      image.color_space == OPJ_CLRSPC_UNSPECIFIED || image.color_space == OPJ_CLRSPC_UNKNOWN;
  // Code streams say nothing about colour: subsampled second and third
  // components are chroma.
  const bool chroma =
      image.comps[1].dx > image.comps[0].dx || image.comps[1].dy > image.comps[0].dy;
  if (image.color_space == OPJ_CLRSPC_SYCC || (unspecified && chroma)) return Colour::kYcc;
  if (n >= 4) return image.color_space == OPJ_CLRSPC_CMYK ? Colour::kCmyk : Colour::kRgba;
  return Colour::kRgb;
}

inline uint8_t clamp8(int v) { return static_cast<uint8_t>(std::clamp(v, 0, 255)); }

// Y, Cb, Cr (each 8 bits, chroma centred on 128) to R,G,B in place, with
// the coefficients in 16-bit fixed point.
void yccRowToRgb(uint8_t* px, int32_t width) {
  for (int32_t x = 0; x < width; ++x, px += 3) {
    const int y = px[0], cb = px[1] - 128, cr = px[2] - 128;
    px[0] = clamp8(y + ((91881 * cr + 32768) >> 16));
    px[1] = clamp8(y - ((22554 * cb + 46802 * cr - 32768) >> 16));
    px[2] = clamp8(y + ((116130 * cb + 32768) >> 16));
  }
}

int convert(ReadContext& ctx, const opj_image_t& image, Picture& out) {
  const int32_t width = static_cast<int32_t>(image.comps[0].w);
  const int32_t height = static_cast<int32_t>(image.comps[0].h);
  const Colour colour = colourOf(image);
  const uint32_t used = colour == Colour::kGrey                              ? 1
                        : colour == Colour::kGreyAlpha                       ? 2
                        : colour == Colour::kRgba || colour == Colour::kCmyk ? 4
                                                                             : 3;
  if (width <= 0 || height <= 0 || image.numcomps < used)
    return ctx.fail(IMK_ERR_CORRUPT, "no samples decoded");
  std::vector<Channel> channels(used);
  for (uint32_t c = 0; c < used; ++c)
    if (!channels[c].init(image.comps[c], width, height))
      return ctx.fail(IMK_ERR_CORRUPT, "no samples decoded");

  const uint32_t prec = image.comps[0].prec;
  uint16_t kind = IMK_RGB;
  if (colour == Colour::kGrey)
    kind = prec == 1 ? IMK_BINARY : IMK_GREY;
  else if (colour == Colour::kGreyAlpha || colour == Colour::kRgba)
    kind = IMK_RGBX;
  if (!out.allocate(kind, width, height))
    return sizeAcceptable(width, height, bytesPerPixelOf(kind))
               ? ctx.fail(IMK_ERR_MEMORY, "not enough memory")
               : ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  ImageRecord& rec = out.rec();
  // Low-precision grey keeps its level numbers.
  const bool levels = colour == Colour::kGrey && prec < 8;
  if (levels && kind == IMK_GREY) {
    rec.colorCount = 1 << prec;
    fillGreyPalette(rec, rec.colorCount);
  }
  std::vector<uint8_t> cmyk(colour == Colour::kCmyk ? static_cast<size_t>(width) * 4 : 0);
  for (int32_t y = 0; y < height; ++y) {
    uint8_t* row = out.row(y);
    if (levels) {
      for (int32_t x = 0; x < width; ++x) row[x] = static_cast<uint8_t>(channels[0].level(x, y));
    } else if (colour == Colour::kGreyAlpha) {
      channels[0].row(y, row, 4);
      channels[1].row(y, row + 3, 4);
      for (int32_t x = 0; x < width; ++x) row[4 * x + 1] = row[4 * x + 2] = row[4 * x];
    } else if (colour == Colour::kCmyk) {
      for (uint32_t c = 0; c < 4; ++c) channels[c].row(y, cmyk.data() + c, 4);
      cmykRowToRgb(cmyk.data(), row, static_cast<size_t>(width), false);
    } else {
      for (uint32_t c = 0; c < used; ++c) channels[c].row(y, row + c, rec.bytesPerPixel);
      if (colour == Colour::kYcc) yccRowToRgb(row, width);
    }
    if (ctx.advanceProgress(y + 1)) return IMK_ERR_STOPPED;
  }
  return IMK_OK;
}

int info(ReadContext& ctx, OPJ_CODEC_FORMAT format) {
  Decoder d;
  if (!openDecoder(ctx, format, true, &d))
    return ctx.fail(IMK_ERR_BAD_FILE,
                    d.messages.error[0] ? d.messages.error : "bad JPEG 2000 header");
  return checkHeader(ctx, *d.image);
}

// The largest tile-part length (Psot) the SOT markers of the code stream
// declare, walking the boxes of a JP2 file to its code stream first. Stops
// at the first length that leaves the file.
uint64_t largestTilePart(const uint8_t* data, size_t size, bool boxed) {
  ByteReader r(data, size);
  while (boxed) {
    const size_t start = r.pos();
    uint64_t length = r.u32be();
    const uint32_t type = r.u32be();
    if (length == 1) length = (uint64_t{r.u32be()} << 32) | r.u32be();
    if (length == 0) length = size - start;
    if (r.overrun()) return 0;
    if (type == 0x6A703263) break;  // 'jp2c'
    if (length < 8 || length > size - start) return 0;
    r.seek(start + static_cast<size_t>(length));
  }
  if (r.u16be() != 0xFF4F) return 0;  // SOC
  uint64_t largest = 0;
  while (!r.overrun()) {
    const size_t start = r.pos();
    const uint16_t marker = r.u16be();
    if (marker == 0xFF90) {  // SOT: Lsot, Isot, Psot, TPsot, TNsot
      r.skip(4);
      const uint64_t length = r.u32be();
      if (r.overrun() || length == 0) break;
      largest = std::max(largest, length);
      if (length > size - start) break;
      r.seek(start + static_cast<size_t>(length));
    } else if ((marker >> 8) == 0xFF && marker != 0xFFD9) {
      const uint16_t length = r.u16be();
      if (length < 2) break;
      r.skip(length - 2u);
    } else {
      break;
    }
  }
  return largest;
}

// OpenJPEG's lenient mode allocates each tile-part at its declared length
// whether the file holds it or not: fine for a cut file, not for a length
// far beyond anything a picture of this size could need.
bool lenientAffordable(const ReadContext& ctx, OPJ_CODEC_FORMAT format, const opj_image_t& image) {
  uint64_t raw = 0;
  for (uint32_t c = 0; c < image.numcomps; ++c) {
    uint32_t w, h;
    componentSize(image, c, 0, &w, &h);
    raw += static_cast<uint64_t>(w) * h * ((image.comps[c].prec + 7) / 8);
  }
  return largestTilePart(ctx.data, ctx.size, format == OPJ_CODEC_JP2) <=
         2 * raw + (uint64_t{1} << 20);
}

int read(ReadContext& ctx, Picture& out, OPJ_CODEC_FORMAT format) {
  auto d = std::make_unique<Decoder>();
  int rc = decode(ctx, format, true, d.get());
  bool damaged = false;
  if (rc == IMK_ERR_CORRUPT && ctx.ignoreErrors() && lenientAffordable(ctx, format, *d->image)) {
    // What the lenient mode makes of the damaged stream.
    d = std::make_unique<Decoder>();
    rc = decode(ctx, format, false, d.get());
    damaged = true;
  }
  if (rc) return rc;
  if ((rc = convert(ctx, *d->image, out))) return rc;
  return damaged ? ctx.damaged(IMK_ERR_CORRUPT, ctx.errorText().c_str()) : IMK_OK;
}

int infoJp2(ReadContext& ctx) { return info(ctx, OPJ_CODEC_JP2); }
int infoJ2k(ReadContext& ctx) { return info(ctx, OPJ_CODEC_J2K); }
int readJp2(ReadContext& ctx, Picture& out) { return read(ctx, out, OPJ_CODEC_JP2); }
int readJ2k(ReadContext& ctx, Picture& out) { return read(ctx, out, OPJ_CODEC_J2K); }

// ---------------------------------------------------------------------------
// Writing.

struct Sink {
  FILE* file;
  bool failed = false;
};

OPJ_SIZE_T onWrite(void* buffer, OPJ_SIZE_T n, void* user) {
  auto* s = static_cast<Sink*>(user);
  if (std::fwrite(buffer, 1, n, s->file) != n) {
    s->failed = true;
    return static_cast<OPJ_SIZE_T>(-1);
  }
  return n;
}

OPJ_OFF_T onWriteSkip(OPJ_OFF_T n, void* user) {
  auto* s = static_cast<Sink*>(user);
  return fseeko(s->file, n, SEEK_CUR) == 0 ? n : -1;
}

OPJ_BOOL onWriteSeek(OPJ_OFF_T to, void* user) {
  auto* s = static_cast<Sink*>(user);
  return fseeko(s->file, to, SEEK_SET) == 0;
}

// Wavelet levels: OpenJPEG's default 6, fewer for pictures too small to
// halve that often.
int resolutionsFor(const ImageRecord& rec) {
  int levels = 1;
  for (int32_t side = std::min(rec.width, rec.height); side >= 2 && levels < 6; side /= 2) ++levels;
  return levels;
}

void setQuality(opj_cparameters_t* p, int quality, int components) {
  p->tcp_numlayers = 1;
  p->tcp_mct = components >= 3 ? 1 : 0;
  if (quality == 0 || quality >= 100) {
    p->irreversible = 0;
    p->cp_disto_alloc = 1;
    p->tcp_rates[0] = 0;  // every bit kept
  } else {
    p->irreversible = 1;
    p->cp_fixed_quality = 1;
    p->tcp_distoratio[0] = 20.0f + 0.3f * static_cast<float>(quality);
  }
}

// The picture's samples as OpenJPEG components: grey, R,G,B or R,G,B,A.
ImagePtr makeImage(const ImageRecord& rec, int components, WriteContext& ctx, bool* stopped) {
  opj_image_cmptparm_t params[4];
  std::memset(params, 0, sizeof params);
  for (int c = 0; c < components; ++c) {
    params[c].dx = params[c].dy = 1;
    params[c].w = static_cast<OPJ_UINT32>(rec.width);
    params[c].h = static_cast<OPJ_UINT32>(rec.height);
    params[c].prec = 8;
  }
  ImagePtr image(opj_image_create(static_cast<OPJ_UINT32>(components), params,
                                  components == 1 ? OPJ_CLRSPC_GRAY : OPJ_CLRSPC_SRGB));
  if (!image) return image;
  image->x1 = static_cast<OPJ_UINT32>(rec.width);
  image->y1 = static_cast<OPJ_UINT32>(rec.height);
  if (components == 4) image->comps[3].alpha = 1;
  std::vector<uint8_t> line(static_cast<size_t>(rec.width) * components);
  for (int32_t y = 0; y < rec.height; ++y) {
    if (components == 1)
      rowToGrey(rec, y, line.data());
    else if (components == 4)
      rowToRgba(rec, y, line.data());
    else
      rowToRgb(rec, y, line.data());
    const size_t at = static_cast<size_t>(y) * static_cast<size_t>(rec.width);
    for (int c = 0; c < components; ++c) {
      OPJ_INT32* dst = image->comps[c].data + at;
      for (int32_t x = 0; x < rec.width; ++x)
        dst[x] = line[static_cast<size_t>(x) * components + c];
    }
    if (ctx.progress.advance(y + 1)) {
      *stopped = true;
      return nullptr;
    }
  }
  return image;
}

int write(WriteContext& ctx, const ImageRecord& rec, OPJ_CODEC_FORMAT format) {
  FILE* file = ctx.out.file();
  if (!file) return IMK_ERR_WRITE;
  const int components = rec.type == IMK_BINARY || rec.type == IMK_GREY ? 1
                         : rec.type == IMK_RGBX                         ? 4
                                                                        : 3;
  // Rows are converted first, then OpenJPEG encodes: one unit each.
  if (ctx.progress.begin(static_cast<int64_t>(rec.height) * 2)) return IMK_ERR_STOPPED;
  bool stopped = false;
  ImagePtr image = makeImage(rec, components, ctx, &stopped);
  if (stopped) return IMK_ERR_STOPPED;
  if (!image) return IMK_ERR_MEMORY;

  opj_cparameters_t parameters;
  opj_set_default_encoder_parameters(&parameters);
  setQuality(&parameters, ctx.options.saveQuality, components);
  parameters.numresolution = resolutionsFor(rec);
  CodecPtr codec(opj_create_compress(format));
  StreamPtr stream(opj_stream_create(OPJ_J2K_STREAM_CHUNK_SIZE, OPJ_FALSE));
  if (!codec || !stream) return IMK_ERR_MEMORY;
  Messages messages;
  silence(codec.get(), &messages);
  Sink sink{file};
  opj_stream_set_write_function(stream.get(), onWrite);
  opj_stream_set_skip_function(stream.get(), onWriteSkip);
  opj_stream_set_seek_function(stream.get(), onWriteSeek);
  opj_stream_set_user_data(stream.get(), &sink, nullptr);
  if (!opj_setup_encoder(codec.get(), &parameters, image.get())) return IMK_ERR_CANNOT_SAVE;
  singleThreaded(codec.get());
  const bool ok = opj_start_compress(codec.get(), image.get(), stream.get()) &&
                  opj_encode(codec.get(), stream.get()) &&
                  opj_end_compress(codec.get(), stream.get());
  if (!ok || sink.failed || std::ferror(file)) return IMK_ERR_WRITE;
  return ctx.progress.advance(static_cast<int64_t>(rec.height) * 2) ? IMK_ERR_STOPPED : IMK_OK;
}

int writeJp2(WriteContext& ctx, const ImageRecord& rec) { return write(ctx, rec, OPJ_CODEC_JP2); }
int writeJ2k(WriteContext& ctx, const ImageRecord& rec) { return write(ctx, rec, OPJ_CODEC_J2K); }

}  // namespace

const Codec kJp2Codec = {"jp2",
                         "JPEG 2000",
                         {"jp2", "jpx", "jpf"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         sniffJp2,
                         infoJp2,
                         readJp2,
                         writeJp2};

const Codec kJ2kCodec = {"j2k",
                         "JPEG 2000 codestream",
                         {"j2k", "j2c", "jpc"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         sniffJ2k,
                         infoJ2k,
                         readJ2k,
                         writeJ2k};

}  // namespace imk
