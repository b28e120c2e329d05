// Message texts for codec results and picture descriptions.
#include "core/messages.h"

#include <cstdint>
#include <cstdio>

namespace {

std::string format(const char* fmt, const char* arg) {
  const int n = std::snprintf(nullptr, 0, fmt, arg);
  std::string out(static_cast<size_t>(n), '\0');
  std::snprintf(out.data(), out.size() + 1, fmt, arg);
  return out;
}

std::string format(const char* fmt, int arg) {
  char buf[64];
  std::snprintf(buf, sizeof buf, fmt, arg);
  return buf;
}

}  // namespace

std::string PictureErrorText(const char* path, int code, const char* detail) {
  static const char* const kTexts[] = {
      nullptr,
      "Not enough memory",
      "Don't know how to read \n<%s>",
      "Can't read file \n<%s>",
      "Can't open file \n<%s>",
      "Can't write file \n<%s>",
      "Contact your dealer",
      "Can't save in this format !!",
      nullptr,  // 8: the library's detail
      "Corrupt image",
      "Problem with JPEG",
  };
  const uint16_t c = static_cast<uint16_t>(code);
  if (c == 8) return detail && *detail ? std::string(detail) : std::string("Bad picture file");
  if (c < 1 || c > 10) return "Contact your dealer";
  return format(kTexts[c], path ? path : "");
}

DepthLabel ImageDepthLabel(const ImageRecord& picture) {
  switch (picture.type) {
    case 1:
      return {1, "Binary"};
    case 2:
      return {8, format("%d Grey Scale", picture.colorCount)};
    case 4:
      return {8, format("%d Colors", picture.colorCount)};
    default:
      return {24, "True Colors"};
  }
}

std::string FileColorsText(int planes, int bitsPerPlane) {
  const int bits = planes * bitsPerPlane;
  if (bits >= 24) return "# Colors: 16 Millions";
  return format("# Colors:  %d", bits < 0 ? 1 : 1 << bits);
}
