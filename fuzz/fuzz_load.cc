// Fuzz target over every reader: the first byte picks a codec, the rest is
// the file.
#include "fuzz/fuzz_target.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const imk::Codec& codec = *imk::codecs()[data[0] % imk::codecCount()];
  fuzz::runCodec(codec, data + 1, size - 1);
  return 0;
}
