// Fuzz target for the readers: the first byte picks a codec, the rest is the
// file. Each input is decoded plainly, with errors ignored, reduced, and
// described from its headers alone.
#include <cstddef>
#include <cstdint>

#include "imgkit/internal.h"

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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  imk::setPixelByteLimit(size_t{64} << 20);
  const imk::Codec& codec = *imk::codecs()[data[0] % imk::codecCount()];
  ++data, --size;
  if (codec.sniff) codec.sniff(data, size);
  if (codec.info) {
    LoadOptions options;
    imkDefaultOption(&options);
    imk::ReadContext ctx(data, size, options);
    codec.info(ctx);
  }
  decode(codec, data, size, 0);
  decode(codec, data, size, IMK_FLAG_IGNORE_ERRORS | IMK_FLAG_REDUCE);
  return 0;
}
