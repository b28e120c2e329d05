// The text of a hexadecimal dump, shared by the dump dialog and the
// browser's dump pane: 16 bytes a line, "%08x: ", each byte as "%02x ",
// then the bytes as characters ("." for unprintable ones). A full line is
// 74 characters; a short last line is padded with blanks to the same width.
#pragma once

#include <cstdint>
#include <string>

namespace tools {

constexpr int kHexDumpColumns = 74;

// Lines of a file of `size` bytes: (size + 15) / 16.
inline int32_t HexDumpLineCount(int32_t size) { return size > 0 ? (size + 15) / 16 : 0; }

// Line `line` of the dump of `data` (`size` bytes).
std::string HexDumpLine(const uint8_t* data, int32_t size, int32_t line);

}  // namespace tools
