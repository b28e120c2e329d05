// Texts the program shows about pictures and files: load and save errors,
// the depth label of a picture and the colour count of a file.
#pragma once

#include <string>

#include "imgkit/imgkit.h"

// The message for a codec-library result code; "<%s>" receives the path.
// `detail` (the library's own text, may be null) is used for code 8.
std::string PictureErrorText(const char* path, int code, const char* detail);

struct DepthLabel {
  int depth;         // 1, 8 or 24
  std::string text;  // "Binary", "%d Grey Scale", "%d Colors", "True Colors"
};
DepthLabel ImageDepthLabel(const ImageRecord& picture);

// "# Colors:  %d" for up to 23 bits per pixel, else "# Colors: 16 Millions".
std::string FileColorsText(int planes, int bitsPerPlane);
