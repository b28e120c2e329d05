// The public entry points of libimgkit: the format registry, recognition of a
// file's format, and load / save / information dispatched to the codecs.
#include <algorithm>
#include <cstdio>

#include "imgkit/internal.h"

namespace imk {

namespace {

// Index order is part of the interface (callers remember indices), so new
// formats are appended.
const Codec* const kRegistry[] = {
    &kJpegCodec, &kPngCodec, &kGifCodec,  &kTiffCodec, &kBmpCodec, &kPbmCodec, &kPgmCodec,
    &kPpmCodec,  &kPamCodec, &kRawCodec,  &kPcxCodec,  &kTgaCodec, &kSgiCodec, &kIffCodec,
    &kSoftCodec, &kSunCodec, &kXbmCodec,  &kXpmCodec,  &kIcoCodec, &kCurCodec, &kWebpCodec,
    &kJp2Codec,  &kJ2kCodec, &kHeifCodec, &kAvifCodec, &kPsdCodec,
};
constexpr int kRegistrySize = static_cast<int>(sizeof kRegistry / sizeof kRegistry[0]);

const Codec* codecAt(int index) {
  return index >= 0 && index < kRegistrySize ? kRegistry[index] : nullptr;
}

bool sniffs(const Codec* c, const uint8_t* data, size_t size) {
  return c && c->sniff && !(c->capabilities & IMK_NO_SNIFF) && c->sniff(data, size);
}

// The codec for a file: the requested one when the content agrees (or when it
// can only be chosen by index), otherwise whatever recognises the content.
int chooseCodec(int requested, const uint8_t* data, size_t size) {
  const Codec* wanted = codecAt(requested);
  if (wanted && (wanted->capabilities & IMK_NO_SNIFF)) return requested;
  if (wanted && sniffs(wanted, data, size)) return requested;
  for (int i = 0; i < kRegistrySize; ++i)
    if (sniffs(kRegistry[i], data, size)) return i;
  return -1;
}

void copyText(char* dst, size_t cap, const std::string& text) {
  const size_t n = std::min(cap - 1, text.size());
  std::memcpy(dst, text.data(), n);
  dst[n] = '\0';
}

void fillInfo(FileInfo* info, int index, const HeaderInfo& h, const std::string& error) {
  if (!info) return;
  std::memset(info, 0, sizeof *info);
  info->formatIndex = static_cast<int16_t>(index);
  if (const Codec* c = codecAt(index))
    copyText(info->formatName, sizeof info->formatName, c->displayName);
  info->width = h.width;
  info->height = h.height;
  info->planes = h.planes;
  info->bitsPerPlane = h.bitsPerPlane;
  info->pictureCount = h.pictureCount;
  copyText(info->errorText, sizeof info->errorText, error);
}

LoadOptions defaults() {
  LoadOptions o;
  imkDefaultOption(&o);
  return o;
}

}  // namespace

const Codec* const* codecs() { return kRegistry; }
int codecCount() { return kRegistrySize; }

}  // namespace imk

using namespace imk;

extern "C" void imkVersion(char* buf) {
  if (buf) std::memcpy(buf, "2.90", 5);
}

extern "C" void imkDefaultOption(LoadOptions* o) {
  if (!o) return;
  std::memset(o, 0, sizeof *o);
  o->formatIndex = -1;
  o->flags = IMK_FLAG_LOAD;
  o->saveQuality = 0;
  o->reserved38 = 1;
}

extern "C" int imkLoad(const char* path, ImageRecord* picture, LoadOptions* options,
                       FileInfo* info) {
  if (!picture || !path) return IMK_ERR_OPEN;
  picture->palette = nullptr;
  picture->pixels = nullptr;
  const LoadOptions opts = options ? *options : defaults();
  if (info) std::memset(info, 0, sizeof *info);

  FileData file;
  if (int rc = file.open(path)) {
    fillInfo(info, -1, HeaderInfo{}, rc == IMK_ERR_OPEN ? "cannot open file" : "cannot read file");
    return rc;
  }
  const int index = chooseCodec(opts.formatIndex, file.data(), file.size());
  const Codec* codec = codecAt(index);
  if (!codec || !codec->read || !(codec->capabilities & IMK_CAN_READ)) {
    fillInfo(info, index, HeaderInfo{}, "unknown format");
    return IMK_ERR_UNKNOWN_FORMAT;
  }

  ReadContext ctx(file.data(), file.size(), opts);
  Picture pic;
  int rc = codec->read(ctx, pic);
  if (rc == IMK_OK && ctx.stopped()) rc = IMK_ERR_STOPPED;
  if (rc == IMK_OK && pic.empty()) rc = ctx.fail(IMK_ERR_CORRUPT, "no picture decoded");
  if (rc == IMK_OK && ctx.header.pictureCount > 0 && ctx.pictureIndex() >= ctx.header.pictureCount)
    rc = ctx.fail(IMK_ERR_BAD_FILE, "no such picture in file");
  int32_t fw, fh;
  if (rc == IMK_OK && ctx.reduceTarget(&fw, &fh) && !reducePicture(pic, fw, fh))
    rc = ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  fillInfo(info, index, ctx.header, ctx.errorText());
  if (rc != IMK_OK) return rc;
  *picture = pic.release();
  return IMK_OK;
}

extern "C" int imkFileInformation(const char* path, int16_t formatIndex, int32_t pictureIndex,
                                  FileInfo* info) {
  if (!path) return IMK_ERR_OPEN;
  if (info) std::memset(info, 0, sizeof *info);
  FileData file;
  if (int rc = file.open(path, false)) return rc;
  const int index = chooseCodec(formatIndex, file.data(), file.size());
  const Codec* codec = codecAt(index);
  if (!codec || !codec->info) return IMK_ERR_UNKNOWN_FORMAT;
  LoadOptions opts = defaults();
  opts.pictureIndex = pictureIndex < 0 ? 0 : pictureIndex;
  ReadContext ctx(file.data(), file.size(), opts);
  const int rc = codec->info(ctx);
  fillInfo(info, index, ctx.header, ctx.errorText());
  return rc;
}

extern "C" int16_t imkSave(const char* path, const ImageRecord* picture,
                           const LoadOptions* options) {
  if (!picture || !picture->pixels || picture->width <= 0 || picture->height <= 0 ||
      bytesPerPixelOf(picture->type) == 0)
    return IMK_ERR_CANNOT_SAVE;
  const LoadOptions opts = options ? *options : defaults();
  const Codec* codec = codecAt(opts.formatIndex);
  if (!codec || !codec->write || !(codec->capabilities & IMK_CAN_WRITE)) return IMK_ERR_CANNOT_SAVE;
  AtomicFile out;
  if (!out.open(path)) return IMK_ERR_WRITE;
  WriteContext ctx(opts, out);
  int rc = codec->write(ctx, *picture);
  if (rc == IMK_OK && !out.commit()) rc = IMK_ERR_WRITE;
  return static_cast<int16_t>(rc);
}

extern "C" int16_t imkCount(void) { return static_cast<int16_t>(kRegistrySize); }

extern "C" void imkGetInfo(int16_t index, FormatInfo* info) {
  if (!info) return;
  std::memset(info, 0, sizeof *info);
  for (auto& k : info->kinds) k.kind = kEndKinds.kind;
  const Codec* c = codecAt(index);
  if (!c) {
    info->index = -1;
    return;
  }
  copyText(info->shortName, sizeof info->shortName, c->shortName);
  info->index = index;
  info->capabilities = c->capabilities;
  copyText(info->name, sizeof info->name, c->displayName);
  for (int i = 0; i < IMK_MAX_EXTENSIONS - 1 && c->extensions[i]; ++i)
    copyText(info->extensions[i], sizeof info->extensions[i], c->extensions[i]);
  for (int i = 0; i < IMK_MAX_KINDS && c->kinds[i].kind != 0 && c->kinds[i].kind < 65535; ++i)
    info->kinds[i] = c->kinds[i];
}

extern "C" int16_t imkGetIndex(const char* shortName) {
  if (!shortName) return -1;
  for (int i = 0; i < kRegistrySize; ++i)
    if (std::strcmp(kRegistry[i]->shortName, shortName) == 0) return static_cast<int16_t>(i);
  return -1;
}
