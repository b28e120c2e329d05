// What every fuzz harness does with one input for one codec: recognise it,
// describe it from its headers, decode it plainly, and decode it again with
// errors ignored and a reduction, all under a pixel-memory limit.
#pragma once

#include <cstddef>
#include <cstdint>

#include "imgkit/internal.h"

namespace fuzz {

void runCodec(const imk::Codec& codec, const uint8_t* data, size_t size);

// The registry's codec with this short name, or null; and a codec's index.
const imk::Codec* codecNamed(const char* shortName);
int16_t codecIndex(const imk::Codec& codec);

}  // namespace fuzz
