// The conversion items of the Image menu, numbered 1..32. The same numbers
// are what the save path's conversion dialog returns and remembers during a
// batch, so this table is the one place that defines them.
//
// Order (the menus "Convert to Binary", "Convert to Grey", "Convert to
// Colors", then the single item "Convert to True Color"):
//    1  Binary (Pattern)            code 1,  method 1
//    2  Binary (Floyd Steinberg)    code 1,  method 5
//    3  Binary (Halftone45)         code 1,  method 2
//    4  Binary (Halftone90)         code 1,  method 3
//    5..10  4 .. 128 Grey scale     codes 2..7, method 4
//   11  256 Grey scale              code 9,  method 4
//   12..17  4 .. 128 Grey scale (Dither)   codes 2..7, method 1
//   18..24  8 .. 256 colors (Adaptive)     codes 12..18, method 4
//   25..31  8 .. 256 colors (Dither)       codes 12..18, method 1
//   32  Convert to True Color       code 19, method 0
#pragma once

#include "imgkit/imgkit.h"

namespace process {

struct ConversionItem {
  int item;           // 1..32
  const char* menu;   // the submenu holding it; "" for an item of the Image menu itself
  const char* label;  // the item's text
  int code;           // conversion code of convertPicture
  int method;         // method code of convertPicture
};

constexpr int kConversionItemCount = 32;

// The item with that number, or null outside 1..32.
const ConversionItem* conversionItem(int item);

// Applies item `item` with convertPicture (destination convention and result
// as there). A number outside 1..32 does nothing and returns 0; callers that
// must refuse such a number check it with conversionItem first.
int convertByItem(ImageRecord* src, ImageRecord* dst, int item);

}  // namespace process
