// Byte look-up tables applied to interleaved channels.
#pragma once

#include <cstddef>
#include <cstdint>

namespace process {

// Passes n bytes through tables: byte k of every `period`-byte group (period
// 1 to 4) goes through tables[k]. `src` and `dst` may be the same buffer but
// must not otherwise overlap; n need not be a multiple of the period.
void lookupBytes(const uint8_t* src, uint8_t* dst, size_t n, const uint8_t* const tables[],
                 int period);

}  // namespace process
