#include "tools/hex_dump_line.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace tools {

std::string HexDumpLine(const uint8_t* data, int32_t size, int32_t line) {
  const int64_t start = static_cast<int64_t>(line) * 16;
  const int present = start >= size ? 0 : static_cast<int>(std::min<int64_t>(16, size - start));
  char text[kHexDumpColumns + 1];
  int n = std::snprintf(text, sizeof text, "%08x: ", static_cast<unsigned>(start));
  for (int i = 0; i < 16; ++i) {
    if (i < present)
      n += std::snprintf(text + n, sizeof text - n, "%02x ", data[start + i]);
    else
      n += std::snprintf(text + n, sizeof text - n, "   ");
  }
  for (int i = 0; i < 16; ++i) {
    const unsigned char c = i < present ? data[start + i] : ' ';
    text[n++] = i >= present ? ' ' : (std::isprint(c) ? static_cast<char>(c) : '.');
  }
  return std::string(text, static_cast<size_t>(n));
}

}  // namespace tools
