#include "fuzz/fuzz_target.h"

#include <cstring>

namespace fuzz {

namespace {

void decode(const imk::Codec& codec, const uint8_t* data, size_t size, uint16_t flags) {
  LoadOptions options;
  imkDefaultOption(&options);
  options.flags |= flags;
  options.fitWidth = options.fitHeight = 32;
  options.rawWidth = 17;
  options.rawHeight = 9;
  imk::ReadContext ctx(data, size, options);
  imk::Picture pic;
  if (codec.read && codec.read(ctx, pic) == 0 && !pic.empty() && (flags & IMK_FLAG_REDUCE))
    imk::reducePicture(pic, options.fitWidth, options.fitHeight);
}

}  // namespace

void runCodec(const imk::Codec& codec, const uint8_t* data, size_t size) {
  imk::setPixelByteLimit(size_t{64} << 20);
  if (codec.sniff) codec.sniff(data, size);
  if (codec.info) {
    LoadOptions options;
    imkDefaultOption(&options);
    imk::ReadContext ctx(data, size, options);
    codec.info(ctx);
  }
  decode(codec, data, size, 0);
  decode(codec, data, size, IMK_FLAG_IGNORE_ERRORS | IMK_FLAG_REDUCE);
}

const imk::Codec* codecNamed(const char* shortName) {
  for (int i = 0; i < imk::codecCount(); ++i)
    if (!std::strcmp(imk::codecs()[i]->shortName, shortName)) return imk::codecs()[i];
  return nullptr;
}

int16_t codecIndex(const imk::Codec& codec) {
  for (int i = 0; i < imk::codecCount(); ++i)
    if (imk::codecs()[i] == &codec) return static_cast<int16_t>(i);
  return -1;
}

}  // namespace fuzz
