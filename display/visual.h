// The X visual a window draws with: the best visual of the screen (or the
// one asked for with -visualid) and the channel layout of direct visuals.
#pragma once

#include <X11/Xlib.h>

#include <cstdint>

struct DisplayVisual {
  Visual* visual;
  uint32_t visualId;
  int32_t depth;
  int32_t colormapSize;
  int32_t redShift, redLevels;
  int32_t greenShift, greenLevels;
  int32_t blueShift, blueLevels;
};

// Fills `out` for the default screen of `display`. requestedId -1 chooses the
// best visual (deepest TrueColor, then DirectColor, PseudoColor, StaticColor,
// StaticGray; the default visual wins a tie; Composite's 32-bit ARGB visual is
// never chosen), 0 the default visual, a positive id that visual when the
// screen has it. Prints "Use <class> visual (0x..) with N bits..." on
// standard error. Ends the process (status 0) when the server gives no
// visual information.
void chooseVisual(Display* display, int32_t requestedId, DisplayVisual* out);

// Opens its own connection to $DISPLAY and prints the visual list of the
// usage text on standard output. Ends the process (status 1) when the
// display cannot be opened.
void listVisuals();

// The number of the screen that offers `visual` (the default screen when none
// does).
int screenOfVisual(Display* display, const Visual* visual);

// A direct-visual pixel for 8-bit channel values (the DisplayVisual rule).
inline unsigned long directPixel(const DisplayVisual& v, unsigned r, unsigned g, unsigned b) {
  return ((static_cast<unsigned long>(r * v.redLevels) >> 8) << v.redShift) |
         ((static_cast<unsigned long>(g * v.greenLevels) >> 8) << v.greenShift) |
         ((static_cast<unsigned long>(b * v.blueLevels) >> 8) << v.blueShift);
}
