// HEIF (HEVC-coded .heic/.heif) and AVIF pictures on libheif, read only.
//
// The file is read from memory without a copy. Every top-level image is a
// picture: picture 0 is the primary image (the one a viewer shows first),
// the others follow in the order of the file. Geometric transformations the
// file asks for (rotation, mirroring, cropping) are applied by libheif.
// Pictures come out as R,G,B, or R,G,B + alpha when the image has an alpha
// plane; 10- and 12-bit images are scaled to 8 bits with rounding.
//
// Which of the two formats a file is comes from its ftyp brands: AVIF brands
// (avif, avis) make it AVIF, the HEVC and generic HEIF brands make it HEIF.
//
// libheif decodes a picture in one call: progress reports step 0 before it
// and then the rows as they are copied. Reduced loads are done by the
// generic area reduction afterwards.
#include <libheif/heif.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

enum class Family { kNone, kHeif, kAvif };

// The family a file's ftyp box declares: the major brand first, then the
// compatible brands.
Family familyOf(const uint8_t* data, size_t size) {
  if (size < 16 || std::memcmp(data + 4, "ftyp", 4) != 0) return Family::kNone;
  const uint32_t boxSize =
      (uint32_t{data[0]} << 24) | (uint32_t{data[1]} << 16) | (uint32_t{data[2]} << 8) | data[3];
  const size_t end = std::min<size_t>(std::max<uint32_t>(boxSize, 12), size);
  auto brandAt = [data](size_t at) -> Family {
    static const char* const kAvif[] = {"avif", "avis"};
    static const char* const kHeif[] = {"heic", "heix", "heim", "heis", "hevc",
                                        "hevx", "hevm", "hevs", "mif1", "msf1"};
    for (const char* b : kAvif)
      if (std::memcmp(data + at, b, 4) == 0) return Family::kAvif;
    for (const char* b : kHeif)
      if (std::memcmp(data + at, b, 4) == 0) return Family::kHeif;
    return Family::kNone;
  };
  const Family major = brandAt(8);
  // mif1 / msf1 only say "some HEIF": the compatible brands may say AVIF.
  if (major != Family::kNone && std::memcmp(data + 8, "mif1", 4) != 0 &&
      std::memcmp(data + 8, "msf1", 4) != 0)
    return major;
  Family found = major;
  for (size_t at = 16; at + 4 <= end; at += 4) {
    const Family f = brandAt(at);
    if (f == Family::kAvif) return f;
    if (f == Family::kHeif) found = f;
  }
  return found;
}

bool sniffHeif(const uint8_t* data, size_t size) { return familyOf(data, size) == Family::kHeif; }
bool sniffAvif(const uint8_t* data, size_t size) { return familyOf(data, size) == Family::kAvif; }

// libheif counts its users; the library stays initialised once used.
void initialiseOnce() {
  static std::once_flag once;
  std::call_once(once, [] { heif_init(nullptr); });
}

int codeOf(const heif_error& err) {
  switch (err.code) {
    case heif_error_Memory_allocation_error:
      return IMK_ERR_MEMORY;
    case heif_error_Decoder_plugin_error:
      return IMK_ERR_CORRUPT;
    default:
      return IMK_ERR_BAD_FILE;
  }
}

int failWith(ReadContext& ctx, const heif_error& err) {
  return ctx.fail(codeOf(err), err.message && *err.message ? err.message : "HEIF error");
}

struct ContextDeleter {
  void operator()(heif_context* c) const { heif_context_free(c); }
};
struct HandleDeleter {
  void operator()(heif_image_handle* h) const { heif_image_handle_release(h); }
};
struct ImageDeleter {
  void operator()(heif_image* i) const { heif_image_release(i); }
};
struct OptionsDeleter {
  void operator()(heif_decoding_options* o) const { heif_decoding_options_free(o); }
};

// The file's boxes parsed and the handle of the wanted picture.
struct Opened {
  std::unique_ptr<heif_context, ContextDeleter> context;
  std::unique_ptr<heif_image_handle, HandleDeleter> handle;
  bool alpha = false;
  int bits = 8;
};

// Top-level images with the primary one first.
std::vector<heif_item_id> pictureOrder(heif_context* context) {
  const int count = heif_context_get_number_of_top_level_images(context);
  std::vector<heif_item_id> ids(static_cast<size_t>(std::max(count, 0)));
  if (count > 0)
    ids.resize(static_cast<size_t>(
        heif_context_get_list_of_top_level_image_IDs(context, ids.data(), count)));
  heif_item_id primary;
  if (heif_context_get_primary_image_ID(context, &primary).code == heif_error_Ok) {
    auto it = std::find(ids.begin(), ids.end(), primary);
    if (it != ids.end()) std::rotate(ids.begin(), it, it + 1);
  }
  return ids;
}

// Reads the boxes (no pixel data) and describes picture ctx.pictureIndex().
int open(ReadContext& ctx, Opened* o) {
  initialiseOnce();
  o->context.reset(heif_context_alloc());
  if (!o->context) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  // libheif refuses images wider or higher than this before decoding them.
  heif_context_set_maximum_image_size_limit(o->context.get(), kMaxDimension);
  heif_context_set_max_decoding_threads(o->context.get(), 0);
  heif_error err =
      heif_context_read_from_memory_without_copy(o->context.get(), ctx.data, ctx.size, nullptr);
  if (err.code != heif_error_Ok) return failWith(ctx, err);
  const std::vector<heif_item_id> ids = pictureOrder(o->context.get());
  ctx.header.pictureCount = static_cast<int32_t>(ids.size());
  if (ids.empty()) return ctx.fail(IMK_ERR_BAD_FILE, "no pictures in file");
  const auto index = static_cast<size_t>(ctx.pictureIndex());
  if (index >= ids.size()) return ctx.fail(IMK_ERR_BAD_FILE, "no such picture in file");
  heif_image_handle* handle = nullptr;
  err = heif_context_get_image_handle(o->context.get(), ids[index], &handle);
  o->handle.reset(handle);
  if (err.code != heif_error_Ok) return failWith(ctx, err);
  if (!handle) return ctx.fail(IMK_ERR_BAD_FILE, "no such picture in file");
  o->alpha = heif_image_handle_has_alpha_channel(handle) != 0;
  const int bits = heif_image_handle_get_luma_bits_per_pixel(handle);
  o->bits = bits > 0 ? bits : 8;
  ctx.header.width = heif_image_handle_get_width(handle);
  ctx.header.height = heif_image_handle_get_height(handle);
  ctx.header.planes = o->alpha ? 4 : 3;
  ctx.header.bitsPerPlane = static_cast<int16_t>(o->bits);
  if (ctx.header.width <= 0 || ctx.header.height <= 0)
    return ctx.fail(IMK_ERR_BAD_FILE, "bad picture size");
  return IMK_OK;
}

int info(ReadContext& ctx) {
  Opened o;
  return open(ctx, &o);
}

// Interleaved rows of 8-bit samples copied, of 16-bit little-endian samples
// with `bits` significant bits scaled to 8.
void copyRow(const uint8_t* src, uint8_t* dst, size_t samples, const std::vector<uint8_t>& scale) {
  if (scale.empty()) {
    std::memcpy(dst, src, samples);
    return;
  }
  const uint32_t top = static_cast<uint32_t>(scale.size() - 1);
  for (size_t i = 0; i < samples; ++i, src += 2)
    dst[i] = scale[std::min<uint32_t>(static_cast<uint32_t>(src[0] | (src[1] << 8)), top)];
}

int read(ReadContext& ctx, Picture& out) {
  Opened o;
  if (int rc = open(ctx, &o)) return rc;
  const int32_t width = ctx.header.width, height = ctx.header.height;
  const bool deep = o.bits > 8;
  // The decoder holds the planes it decodes and the interleaved conversion
  // (two bytes a sample when deep) besides our picture.
  if (!sizeAcceptable(width, height, deep ? 16 : 8))
    return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  if (ctx.beginProgress(height)) return IMK_ERR_STOPPED;

  std::unique_ptr<heif_decoding_options, OptionsDeleter> options(heif_decoding_options_alloc());
  if (!options) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  const heif_chroma chroma =
      deep ? (o.alpha ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE)
           : (o.alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB);
  heif_image* decoded = nullptr;
  const heif_error err =
      heif_decode_image(o.handle.get(), &decoded, heif_colorspace_RGB, chroma, options.get());
  std::unique_ptr<heif_image, ImageDeleter> image(decoded);
  if (err.code != heif_error_Ok)
    return ctx.fail(err.code == heif_error_Invalid_input ? IMK_ERR_CORRUPT : codeOf(err),
                    err.message && *err.message ? err.message : "HEIF error");
  if (!image) return ctx.fail(IMK_ERR_CORRUPT, "no picture decoded");

  const int channels = o.alpha ? 4 : 3;
  const int bytes = deep ? 2 : 1;
  int stride = 0;
  const uint8_t* plane =
      heif_image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
  const int w = heif_image_get_width(image.get(), heif_channel_interleaved);
  const int h = heif_image_get_height(image.get(), heif_channel_interleaved);
  if (!plane || w <= 0 || h <= 0 || stride < w * channels * bytes)
    return ctx.fail(IMK_ERR_CORRUPT, "unexpected HEIF picture layout");
  if (!out.allocate(o.alpha ? IMK_RGBX : IMK_RGB, w, h))
    return sizeAcceptable(w, h, channels) ? ctx.fail(IMK_ERR_MEMORY, "not enough memory")
                                          : ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  std::vector<uint8_t> scale;
  if (deep) {
    const int range = std::clamp(
        heif_image_get_bits_per_pixel_range(image.get(), heif_channel_interleaved), 9, 16);
    const uint32_t max = (1u << range) - 1;
    scale.resize(max + 1);
    for (uint32_t v = 0; v <= max; ++v) scale[v] = static_cast<uint8_t>((v * 255 + max / 2) / max);
  }
  const size_t samples = static_cast<size_t>(w) * channels;
  for (int y = 0; y < h; ++y) {
    copyRow(plane + static_cast<size_t>(y) * static_cast<size_t>(stride), out.row(y), samples,
            scale);
    if (ctx.advanceProgress(static_cast<int64_t>(y + 1) * height / h)) return IMK_ERR_STOPPED;
  }
  return IMK_OK;
}

}  // namespace

const Codec kHeifCodec = {"heif",
                          "HEIF",
                          {"heic", "heif", "hif"},
                          IMK_CAN_READ | IMK_MULTI_PICTURE,
                          {kEndKinds},
                          sniffHeif,
                          info,
                          read,
                          nullptr};

const Codec kAvifCodec = {"avif",      "AVIF",    {"avif"}, IMK_CAN_READ | IMK_MULTI_PICTURE,
                          {kEndKinds}, sniffAvif, info,     read,
                          nullptr};

}  // namespace imk
