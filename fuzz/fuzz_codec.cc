// Fuzz target for one reader, named at build time (FUZZ_CODEC, a short name).
#include <cstdlib>

#include "fuzz/fuzz_target.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const imk::Codec* codec = fuzz::codecNamed(FUZZ_CODEC);
  if (!codec) std::abort();
  fuzz::runCodec(*codec, data, size);
  return 0;
}
