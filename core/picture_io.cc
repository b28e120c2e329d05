// Plain load, picture copy and release around the codec library.
#include "core/picture_io.h"

#include <algorithm>
#include <cstring>

#include "core/settings.h"

namespace {

// The `Load` settings that reach the library: the Photo CD base, the GROB
// depth (plus `grobExtra`) and the layout of headerless raw files.
void fillLoadSettings(LoadOptions* options, int grobExtra) {
  options->pcdBase = static_cast<uint16_t>(gSettings.loadPcdBase);
  options->grobBpp = static_cast<uint16_t>(gSettings.loadGrobBpp + grobExtra);
  options->rawWidth = gSettings.loadWidth;
  options->rawHeight = gSettings.loadHeight;
  options->rawOffset = gSettings.loadOffset;
  options->rawChannelOrder = static_cast<uint16_t>(gSettings.loadChannelOrder);
  options->rawChannelType = static_cast<uint16_t>(gSettings.loadChannelType);
}

}  // namespace

int LoadPicture(const char* path, ImageRecord* picture, int16_t formatIndex, int32_t fitWidth,
                int32_t fitHeight) {
  LoadOptions options;
  imkDefaultOption(&options);
  options.reserved0 = 0;
  options.flags = 0x804;
  options.formatIndex = formatIndex;
  options.fitWidth = fitWidth;
  options.fitHeight = fitHeight;
  options.reserved38 = 1;
  // The plain load passes GrobBpp plus one; the load with progress does not.
  fillLoadSettings(&options, 1);
  picture->palette = nullptr;
  picture->pixels = nullptr;
  return imkLoad(path, picture, &options, nullptr) & 0xFF;
}

int LoadPictureWithProgress(const char* path, int32_t pictureIndex, ImageRecord* picture,
                            int16_t* formatIndex, int32_t* pictureCount, ImkProgressFunc progress,
                            char (*detail)[64]) {
  LoadOptions options;
  imkDefaultOption(&options);
  options.flags = gSettings.loadIgnoreError ? 0x405 : 0x005;
  options.reserved0 = 0;
  options.reserved4 = 0;
  options.reserved28 = 0;
  options.reserved40 = 0;
  options.progressData = 0;
  options.reserved38 = 1;
  options.formatIndex = *formatIndex;
  options.pictureIndex = pictureIndex;
  options.progress = progress;
  fillLoadSettings(&options, 0);
  picture->palette = nullptr;
  picture->pixels = nullptr;
  FileInfo info;
  std::memset(&info, 0, sizeof info);
  info.formatIndex = *formatIndex;
  const int result = imkLoad(path, picture, &options, &info) & 0xFF;
  *formatIndex = info.formatIndex;
  *pictureCount = info.pictureCount;
  if (detail) {
    std::memcpy(*detail, info.errorText, sizeof *detail);
    (*detail)[sizeof *detail - 1] = '\0';
  }
  return result;
}

int CopyPicture(ImageRecord* source, ImageRecord* destination, bool rotated) {
  ImageRecord copy;
  std::memset(&copy, 0, sizeof copy);
  const int32_t w = rotated ? source->height : source->width;
  const int32_t h = rotated ? source->width : source->height;
  if (!imkAllock(&copy, source->type, source->bitsPerComponent, w, h)) return 0;
  if (!rotated && source->pixels) {
    const size_t n = static_cast<size_t>(std::min(copy.bytesPerLine, source->bytesPerLine));
    for (int32_t y = 0; y < h; ++y)
      std::memcpy(copy.pixels + static_cast<size_t>(y) * copy.bytesPerLine,
                  source->pixels + static_cast<size_t>(y) * source->bytesPerLine, n);
  }
  if (source->palette && copy.palette) std::memcpy(copy.palette, source->palette, 768);
  copy.attribute = source->attribute;
  copy.colorCount = source->colorCount;
  FreePicture(destination);
  *destination = *source;
  *source = copy;
  return 1;
}

void FreePicture(ImageRecord* picture) {
  if (!picture) return;
  if (picture->pixels || picture->palette) imkFree(picture);
  std::memset(picture, 0, sizeof *picture);
}
