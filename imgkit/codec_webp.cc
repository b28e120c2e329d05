// WebP codec on libwebp. Still pictures, lossy or lossless, decode straight
// into the picture rows: R,G,B, or R,G,B + alpha when the file declares an
// alpha channel. The bytes are fed to libwebp's incremental decoder in slices
// so that progress can be reported (and a cut file keeps the rows it has);
// libwebp never reads past the slice it was given.
//
// Every frame of an animation is a picture of its own, shown the way the
// animation shows it: libwebp's animation decoder composes each frame on the
// canvas (blending and disposal), so picture n is the canvas after frame n.
//
// Reduced loads of still pictures let libwebp's area-averaging rescaler
// produce the reduced size directly; animations are reduced afterwards.
//
// Writing: lossy with the save quality (0 = 75), or lossless (save option 1,
// which keeps the colour under fully transparent pixels too). Kind 512 keeps
// its alpha; every other kind is stored as R,G,B.
#include <webp/decode.h>
#include <webp/demux.h>
#include <webp/encode.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

bool sniff(const uint8_t* data, size_t size) {
  return size >= 12 && std::memcmp(data, "RIFF", 4) == 0 && std::memcmp(data + 8, "WEBP", 4) == 0;
}

const char* statusText(VP8StatusCode status) {
  switch (status) {
    case VP8_STATUS_OUT_OF_MEMORY:
      return "not enough memory";
    case VP8_STATUS_UNSUPPORTED_FEATURE:
      return "unsupported WebP feature";
    case VP8_STATUS_NOT_ENOUGH_DATA:
    case VP8_STATUS_SUSPENDED:
      return "truncated";
    case VP8_STATUS_INVALID_PARAM:
      return "invalid WebP parameters";
    default:
      return "damaged WebP data";
  }
}

int failStatus(ReadContext& ctx, VP8StatusCode status, int code) {
  return ctx.fail(status == VP8_STATUS_OUT_OF_MEMORY ? IMK_ERR_MEMORY : code, statusText(status));
}

// The picture as the headers describe it; for an animation the canvas.
struct Layout {
  int32_t width = 0;
  int32_t height = 0;
  bool alpha = false;
  bool animated = false;
  int32_t frames = 1;
};

struct DemuxDeleter {
  void operator()(WebPDemuxer* d) const { WebPDemuxDelete(d); }
};

// Reads the headers: the first chunks for a still picture, every chunk
// header of an animation for its frame count. Nothing is decoded.
int readLayout(ReadContext& ctx, Layout* layout) {
  WebPBitstreamFeatures features;
  const VP8StatusCode status = WebPGetFeatures(ctx.data, ctx.size, &features);
  if (status != VP8_STATUS_OK) return failStatus(ctx, status, IMK_ERR_BAD_FILE);
  layout->width = features.width;
  layout->height = features.height;
  layout->alpha = features.has_alpha != 0;
  layout->animated = features.has_animation != 0;
  if (layout->animated) {
    // The partial demuxer also describes a cut file: the frames it holds.
    const WebPData data = {ctx.data, ctx.size};
    WebPDemuxState state;
    std::unique_ptr<WebPDemuxer, DemuxDeleter> demux(WebPDemuxPartial(&data, &state));
    if (!demux || state == WEBP_DEMUX_PARSE_ERROR)
      return ctx.fail(IMK_ERR_BAD_FILE, "bad WebP animation container");
    layout->width = static_cast<int32_t>(WebPDemuxGetI(demux.get(), WEBP_FF_CANVAS_WIDTH));
    layout->height = static_cast<int32_t>(WebPDemuxGetI(demux.get(), WEBP_FF_CANVAS_HEIGHT));
    layout->frames = static_cast<int32_t>(WebPDemuxGetI(demux.get(), WEBP_FF_FRAME_COUNT));
    if (layout->frames < 1) return ctx.fail(IMK_ERR_BAD_FILE, "animation without frames");
  }
  ctx.header.width = layout->width;
  ctx.header.height = layout->height;
  ctx.header.planes = layout->alpha ? 4 : 3;
  ctx.header.bitsPerPlane = 8;
  ctx.header.pictureCount = layout->frames;
  if (layout->width <= 0 || layout->height <= 0) return ctx.fail(IMK_ERR_BAD_FILE, "bad WebP size");
  return IMK_OK;
}

int allocateFailure(ReadContext& ctx, int32_t width, int32_t height, uint16_t kind) {
  return sizeAcceptable(width, height, bytesPerPixelOf(kind))
             ? ctx.fail(IMK_ERR_MEMORY, "not enough memory")
             : ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
}

struct IncrementalDeleter {
  void operator()(WebPIDecoder* d) const { WebPIDelete(d); }
};

// Bytes handed to the incremental decoder per step: progress gets about
// 40 steps without slowing small files down with tiny slices.
size_t sliceSize(size_t total) {
  return std::max<size_t>(total / ProgressMeter::kSteps, 64 * 1024);
}

int readStill(ReadContext& ctx, const Layout& layout, Picture& out) {
  WebPDecoderConfig config;
  if (!WebPInitDecoderConfig(&config)) return ctx.fail(IMK_ERR_MEMORY, "libwebp version mismatch");
  int32_t width = layout.width, height = layout.height;
  int32_t fitWidth, fitHeight;
  if (ctx.reduceTarget(&fitWidth, &fitHeight)) {
    reducedSize(layout.width, layout.height, fitWidth, fitHeight, &width, &height);
    width = std::min(width, layout.width);
    height = std::min(height, layout.height);
    if (width != layout.width || height != layout.height) {
      config.options.use_scaling = 1;
      config.options.scaled_width = width;
      config.options.scaled_height = height;
    }
  }
  const uint16_t kind = layout.alpha ? IMK_RGBX : IMK_RGB;
  if (!out.allocate(kind, width, height)) return allocateFailure(ctx, width, height, kind);
  ImageRecord& rec = out.rec();
  config.output.colorspace = layout.alpha ? MODE_RGBA : MODE_RGB;
  config.output.is_external_memory = 1;
  config.output.u.RGBA.rgba = rec.pixels;
  config.output.u.RGBA.stride = rec.bytesPerLine;
  config.output.u.RGBA.size = static_cast<size_t>(rec.bytesPerLine) * static_cast<size_t>(height);

  std::unique_ptr<WebPIDecoder, IncrementalDeleter> dec(WebPIDecode(nullptr, 0, &config));
  if (!dec) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  if (ctx.beginProgress(height)) return IMK_ERR_STOPPED;
  const size_t slice = sliceSize(ctx.size);
  VP8StatusCode status = VP8_STATUS_SUSPENDED;
  int rowsDone = 0;
  for (size_t fed = 0; fed < ctx.size && status == VP8_STATUS_SUSPENDED;) {
    fed = std::min(ctx.size, fed + slice);
    // The same block grows: libwebp reads in place, nothing is copied.
    status = WebPIUpdate(dec.get(), ctx.data, fed);
    int lastY = 0;
    if (WebPIDecGetRGB(dec.get(), &lastY, nullptr, nullptr, nullptr)) rowsDone = lastY;
    if (ctx.advanceProgress(rowsDone)) return IMK_ERR_STOPPED;
  }
  if (status == VP8_STATUS_OK) return IMK_OK;
  // Rows decoded before the damage or the cut are worth keeping when asked.
  if (rowsDone == 0) return failStatus(ctx, status, IMK_ERR_CORRUPT);
  return ctx.damaged(IMK_ERR_CORRUPT, statusText(status));
}

struct AnimDeleter {
  void operator()(WebPAnimDecoder* d) const { WebPAnimDecoderDelete(d); }
};

// Copies a composed R,G,B,A canvas into the picture (alpha kept for 512).
void copyCanvas(const uint8_t* canvas, ImageRecord& rec) {
  const size_t rowBytes = static_cast<size_t>(rec.width) * 4;
  for (int32_t y = 0; y < rec.height; ++y) {
    const uint8_t* src = canvas + rowBytes * static_cast<size_t>(y);
    uint8_t* dst = rec.pixels + static_cast<size_t>(rec.bytesPerLine) * static_cast<size_t>(y);
    if (rec.type == IMK_RGBX) {
      std::memcpy(dst, src, rowBytes);
    } else {
      for (int32_t x = 0; x < rec.width; ++x, src += 4, dst += 3)
        dst[0] = src[0], dst[1] = src[1], dst[2] = src[2];
    }
  }
}

int readFrame(ReadContext& ctx, const Layout& layout, Picture& out) {
  const int index = ctx.pictureIndex();
  if (index >= layout.frames) return ctx.fail(IMK_ERR_BAD_FILE, "no such picture in file");
  // The decoder keeps two canvases of 4 bytes a pixel.
  if (!sizeAcceptable(layout.width, layout.height, 8))
    return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  WebPAnimDecoderOptions options;
  if (!WebPAnimDecoderOptionsInit(&options))
    return ctx.fail(IMK_ERR_MEMORY, "libwebp version mismatch");
  options.color_mode = MODE_RGBA;
  options.use_threads = 0;
  const WebPData data = {ctx.data, ctx.size};
  std::unique_ptr<WebPAnimDecoder, AnimDeleter> dec(WebPAnimDecoderNew(&data, &options));
  if (!dec) return ctx.fail(IMK_ERR_CORRUPT, "damaged WebP animation");
  WebPAnimInfo info;
  if (!WebPAnimDecoderGetInfo(dec.get(), &info) ||
      static_cast<int32_t>(info.canvas_width) != layout.width ||
      static_cast<int32_t>(info.canvas_height) != layout.height)
    return ctx.fail(IMK_ERR_CORRUPT, "damaged WebP animation");

  if (ctx.beginProgress(index + 1)) return IMK_ERR_STOPPED;
  const uint8_t* canvas = nullptr;
  bool broken = false;
  for (int i = 0; i <= index && !broken; ++i) {
    uint8_t* next = nullptr;
    int timestamp = 0;
    if (!WebPAnimDecoderGetNext(dec.get(), &next, &timestamp) || !next) {
      // With earlier frames decoded, the canvas as far as it got is the
      // partial picture.
      if (!canvas) return ctx.fail(IMK_ERR_CORRUPT, "damaged WebP frame");
      broken = true;
    } else {
      canvas = next;
    }
    if (ctx.advanceProgress(i + 1)) return IMK_ERR_STOPPED;
  }
  const uint16_t kind = layout.alpha ? IMK_RGBX : IMK_RGB;
  if (!out.allocate(kind, layout.width, layout.height))
    return allocateFailure(ctx, layout.width, layout.height, kind);
  copyCanvas(canvas, out.rec());
  return broken ? ctx.damaged(IMK_ERR_CORRUPT, "damaged WebP frame") : IMK_OK;
}

int info(ReadContext& ctx) {
  Layout layout;
  return readLayout(ctx, &layout);
}

int read(ReadContext& ctx, Picture& out) {
  Layout layout;
  if (int rc = readLayout(ctx, &layout)) return rc;
  return layout.animated ? readFrame(ctx, layout, out) : readStill(ctx, layout, out);
}

// ---------------------------------------------------------------------------
// Writing.

struct Sink {
  FILE* file;
  bool failed = false;
  WriteContext* ctx;
};

int onWrite(const uint8_t* data, size_t size, const WebPPicture* picture) {
  auto* sink = static_cast<Sink*>(picture->custom_ptr);
  if (size && std::fwrite(data, 1, size, sink->file) != size) sink->failed = true;
  return !sink->failed;
}

int onProgress(int percent, const WebPPicture* picture) {
  auto* sink = static_cast<Sink*>(picture->custom_ptr);
  return !sink->ctx->progress.advance(percent);
}

// A WebPPicture that frees what libwebp allocated for it.
struct EncoderPicture {
  WebPPicture pic;
  bool ready;
  EncoderPicture() : ready(WebPPictureInit(&pic) != 0) {}
  EncoderPicture(const EncoderPicture&) = delete;
  EncoderPicture& operator=(const EncoderPicture&) = delete;
  ~EncoderPicture() { WebPPictureFree(&pic); }
};

// Hands the picture's pixels to the encoder: R,G,B, B,G,R and R,G,B,A rows
// directly, everything else converted to packed R,G,B first.
bool importPixels(const ImageRecord& rec, WebPPicture* pic) {
  switch (rec.type) {
    case IMK_RGB:
      return WebPPictureImportRGB(pic, rec.pixels, rec.bytesPerLine) != 0;
    case IMK_BGR:
      return WebPPictureImportBGR(pic, rec.pixels, rec.bytesPerLine) != 0;
    case IMK_RGBX:
      return WebPPictureImportRGBA(pic, rec.pixels, rec.bytesPerLine) != 0;
    default: {
      const size_t rowBytes = static_cast<size_t>(rec.width) * 3;
      std::vector<uint8_t> rgb(rowBytes * static_cast<size_t>(rec.height));
      for (int32_t y = 0; y < rec.height; ++y)
        rowToRgb(rec, y, &rgb[rowBytes * static_cast<size_t>(y)]);
      return WebPPictureImportRGB(pic, rgb.data(), static_cast<int>(rowBytes)) != 0;
    }
  }
}

int qualityOf(const LoadOptions& o) {
  return o.saveQuality == 0 ? 75 : std::min<int>(o.saveQuality, 100);
}

int write(WriteContext& ctx, const ImageRecord& rec) {
  if (rec.width > WEBP_MAX_DIMENSION || rec.height > WEBP_MAX_DIMENSION) return IMK_ERR_CANNOT_SAVE;
  if (!ctx.out.file()) return IMK_ERR_WRITE;
  WebPConfig config;
  if (!WebPConfigInit(&config)) return IMK_ERR_MEMORY;
  const bool lossless = ctx.options.saveOption == 1;
  config.lossless = lossless;
  config.exact = lossless;
  if (!lossless) config.quality = static_cast<float>(qualityOf(ctx.options));
  if (!WebPValidateConfig(&config)) return IMK_ERR_CANNOT_SAVE;

  EncoderPicture p;
  if (!p.ready) return IMK_ERR_MEMORY;
  p.pic.use_argb = lossless;
  p.pic.width = rec.width;
  p.pic.height = rec.height;
  Sink sink{ctx.out.file(), false, &ctx};
  p.pic.writer = onWrite;
  p.pic.custom_ptr = &sink;
  p.pic.progress_hook = onProgress;
  if (ctx.progress.begin(100)) return IMK_ERR_STOPPED;
  if (!importPixels(rec, &p.pic)) return IMK_ERR_MEMORY;
  if (!WebPEncode(&config, &p.pic)) {
    switch (p.pic.error_code) {
      case VP8_ENC_ERROR_USER_ABORT:
        return IMK_ERR_STOPPED;
      case VP8_ENC_ERROR_OUT_OF_MEMORY:
      case VP8_ENC_ERROR_BITSTREAM_OUT_OF_MEMORY:
        return IMK_ERR_MEMORY;
      default:
        return IMK_ERR_WRITE;
    }
  }
  if (sink.failed || std::ferror(sink.file)) return IMK_ERR_WRITE;
  return ctx.progress.advance(100) ? IMK_ERR_STOPPED : IMK_OK;
}

}  // namespace

const Codec kWebpCodec = {"webp",
                          "WebP",
                          {"webp"},
                          IMK_CAN_READ | IMK_CAN_WRITE | IMK_MULTI_PICTURE,
                          {{IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize}, kEndKinds},
                          sniff,
                          info,
                          read,
                          write};

}  // namespace imk
