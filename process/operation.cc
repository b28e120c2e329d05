// Result allocation and hand-over shared by every picture operation.
#include "process/operation.h"

#include <cstring>

namespace process {

bool gWideVectorPaths = true;

bool wideBytePermutes() {
#if defined(__x86_64__) && defined(__GNUC__)
  static const bool present =
      __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512bw");
  return present && gWideVectorPaths;
#else
  return false;
#endif
}

bool newResult(const ImageRecord& src, ImageRecord& result, uint16_t type, int32_t width,
               int32_t height) {
  std::memset(&result, 0, sizeof result);
  if (!imkAllock(&result, type, src.bitsPerComponent, width, height)) {
    std::memset(&result, 0, sizeof result);
    return false;
  }
  result.attribute = src.attribute;
  result.colorCount = src.colorCount;
  return true;
}

int deliver(ImageRecord* src, ImageRecord* dst, const ImageRecord& result) {
  if (dst) {
    *dst = result;
  } else {
    imkFree(src);
    *src = result;
  }
  return 0;
}

int duplicate(ImageRecord* src, ImageRecord* dst) {
  if (!dst) return 0;
  ImageRecord r;
  if (!newResult(*src, r)) return 1;
  const size_t n =
      static_cast<size_t>(src->bytesPerLine < r.bytesPerLine ? src->bytesPerLine : r.bytesPerLine);
  for (int y = 0; y < src->height; ++y) std::memcpy(rowOf(r, y), rowOf(*src, y), n);
  if (src->palette && r.palette) std::memcpy(r.palette, src->palette, 768);
  return deliver(src, dst, r);
}

void levelRamp(uint8_t* table, int n, int m) {
  for (int i = 0; i < n; ++i) table[i] = static_cast<uint8_t>(n > 1 ? i * (m - 1) / (n - 1) : 0);
}

}  // namespace process
