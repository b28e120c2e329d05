// The Image menu's conversion items and their dispatcher.
#include "process/conversion_items.h"

#include "process/convert.h"

namespace process {

namespace {

constexpr const char* kBinary = "Convert to Binary";
constexpr const char* kGrey = "Convert to Grey";
constexpr const char* kColours = "Convert to Colors";

const ConversionItem kItems[kConversionItemCount] = {
    {1, kBinary, "Binary (Pattern)", 1, 1},
    {2, kBinary, "Binary (Floyd Steinberg)", 1, 5},
    {3, kBinary, "Binary (Halftone45)", 1, 2},
    {4, kBinary, "Binary (Halftone90)", 1, 3},
    {5, kGrey, "4 Grey scale", 2, 4},
    {6, kGrey, "8 Grey scale", 3, 4},
    {7, kGrey, "16 Grey scale", 4, 4},
    {8, kGrey, "32 Grey scale", 5, 4},
    {9, kGrey, "64 Grey scale", 6, 4},
    {10, kGrey, "128 Grey scale", 7, 4},
    {11, kGrey, "256 Grey scale", 9, 4},
    {12, kGrey, "4 Grey scale (Dither)", 2, 1},
    {13, kGrey, "8 Grey scale (Dither)", 3, 1},
    {14, kGrey, "16 Grey scale (Dither)", 4, 1},
    {15, kGrey, "32 Grey scale (Dither)", 5, 1},
    {16, kGrey, "64 Grey scale (Dither)", 6, 1},
    {17, kGrey, "128 Grey scale (Dither)", 7, 1},
    {18, kColours, "8 colors (Adaptive)", 12, 4},
    {19, kColours, "16 colors (Adaptive)", 13, 4},
    {20, kColours, "32 colors (Adaptive)", 14, 4},
    {21, kColours, "64 colors (Adaptive)", 15, 4},
    {22, kColours, "128 colors (Adaptive)", 16, 4},
    {23, kColours, "216 colors (Adaptive)", 17, 4},
    {24, kColours, "256 colors (Adaptive)", 18, 4},
    {25, kColours, "8 colors (Dither)", 12, 1},
    {26, kColours, "16 colors (Dither)", 13, 1},
    {27, kColours, "32 colors (Dither)", 14, 1},
    {28, kColours, "64 colors (Dither)", 15, 1},
    {29, kColours, "128 colors (Dither)", 16, 1},
    {30, kColours, "216 colors (Dither)", 17, 1},
    {31, kColours, "256 colors (Dither)", 18, 1},
    {32, "", "Convert to True Color", 19, 0},
};

}  // namespace

const ConversionItem* conversionItem(int item) {
  if (item < 1 || item > kConversionItemCount) return nullptr;
  return &kItems[item - 1];
}

int convertByItem(ImageRecord* src, ImageRecord* dst, int item) {
  const ConversionItem* entry = conversionItem(item);
  if (!entry) return 0;
  return convertPicture(src, dst, entry->code, entry->method);
}

}  // namespace process
