// Format names and lists for the file dialogs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Option bits of BuildFormatList.
enum : unsigned {
  kFormatListAutomatic = 1u << 0,    // "Automatic" row
  kFormatListAllGraphics = 1u << 1,  // "All Graphics Files" row
  kFormatListAllFiles = 1u << 2,     // "All Files" row
  kFormatListReadable = 1u << 3,     // a row per readable format
  kFormatListWritable = 1u << 4,     // a row per writable format
};

struct FormatListRow {
  std::string label;    // at most 255 characters
  std::string pattern;  // extensions, each followed by ";"
  int16_t index;        // library format index, -1 for a generic row
};

// strcmp of the two formats' display names, for sorting.
int CompareFormatNames(int16_t a, int16_t b);

// The rows of a file dialog's format list: the generic rows asked for, then
// the formats in alphabetical order. A pattern text that would not fit the
// dialog's 2,048-byte buffer ends the program (it cannot happen with the
// library's own lists).
std::vector<FormatListRow> BuildFormatList(unsigned options);
