// The hexadecimal dump dialog ("VmoraDump", title "Dump: <path>"): any file
// shown 16 bytes a line, scrolled by a vertical and a horizontal scroll bar.
#pragma once

#include <X11/Intrinsic.h>

#include <cstdint>

// One open dump dialog; freed when the dialog is destroyed.
struct HexDump {
  Widget shell;
  uint8_t* data;  // the whole file
  int32_t size;
  int32_t topLine;     // first line shown
  int32_t leftColumn;  // first character column shown
  int32_t visibleLines;
  int32_t lineCount;    // (size + 15) / 16
  int32_t columnCount;  // always 74
  XFontStruct* font;
  int16_t charWidth;   // width of "." in the font
  int16_t lineHeight;  // ascent + descent
  GC gc;
};

// Opens a dump of `path`. A file that cannot be opened or read into memory
// shows nothing and gives null.
HexDump* OpenHexDump(const char* path);
