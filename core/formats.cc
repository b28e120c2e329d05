// Format list for the file dialogs, built from the codec library's registry.
#include "core/formats.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "imgkit/imgkit.h"

namespace {

constexpr size_t kPatternBuffer = 2048;

FormatInfo infoOf(int16_t index) {
  FormatInfo info;
  imkGetInfo(index, &info);
  return info;
}

std::string patternOf(const FormatInfo& info) {
  std::string text;
  for (const auto& ext : info.extensions) {
    if (!ext[0]) break;
    text.append(ext, strnlen(ext, sizeof ext));
    text += ';';
  }
  return text;
}

}  // namespace

int CompareFormatNames(int16_t a, int16_t b) {
  const FormatInfo fa = infoOf(a);
  const FormatInfo fb = infoOf(b);
  return std::strcmp(fa.name, fb.name);
}

std::vector<FormatListRow> BuildFormatList(unsigned options) {
  const int16_t count = imkCount();
  std::vector<FormatListRow> rows;
  rows.reserve(static_cast<size_t>(count) + 3);
  if (options & kFormatListAutomatic) rows.push_back({"Automatic", "", -1});
  if (options & kFormatListAllFiles) rows.push_back({"All Files", "", -1});
  if (options & kFormatListAllGraphics) {
    std::string all;
    for (int16_t i = 0; i < count; ++i) all += patternOf(infoOf(i));
    if (all.size() > kPatternBuffer - 1) {
      std::printf("Houpps: Error fileselector %d \n", static_cast<int>(all.size()));
      std::exit(1);
    }
    rows.push_back({"All Graphics Files", all, -1});
  }

  std::vector<FormatInfo> infos;
  infos.reserve(static_cast<size_t>(count));
  for (int16_t i = 0; i < count; ++i) infos.push_back(infoOf(i));
  std::stable_sort(infos.begin(), infos.end(), [](const FormatInfo& a, const FormatInfo& b) {
    return CompareFormatNames(a.index, b.index) < 0;
  });
  for (const FormatInfo& info : infos) {
    const bool wanted = ((options & kFormatListReadable) && (info.capabilities & IMK_CAN_READ)) ||
                        ((options & kFormatListWritable) && (info.capabilities & IMK_CAN_WRITE));
    if (!wanted) continue;
    std::string pattern = patternOf(info);
    if (pattern.size() > kPatternBuffer - 1) {
      std::printf("Houpps: Error fileselector \n");
      std::exit(1);
    }
    rows.push_back({std::string(info.name, strnlen(info.name, 255)), pattern, info.index});
  }
  return rows;
}
