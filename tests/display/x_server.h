// Shared pieces of the display tests: which Xvfb configuration the test runs
// on, the connection, and readers of what the server holds.
#pragma once

// clang-format off
// GoogleTest before the X headers, whose None macro clashes with it.
#include <gtest/gtest.h>

#include <X11/Xlib.h>
#include <X11/Xutil.h>
// clang-format on

#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "display/colormap.h"
#include "display/converter.h"
#include "display/visual.h"

namespace test {

// ctest names the server each run gets; a suite written for another one
// skips itself.
inline bool serverIs(const char* name) {
  const char* s = getenv("VIMORA_TEST_SERVER");
  return s && strcmp(s, name) == 0;
}

#define REQUIRE_SERVER(name) \
  if (!test::serverIs(name)) GTEST_SKIP() << "runs on the " name " server"

// A connection closed at the end of the test, after every colormap record
// made on it is freed.
struct XConnection {
  Display* display = XOpenDisplay(nullptr);
  ~XConnection() {
    if (display) {
      freeAllColormaps();
      XCloseDisplay(display);
    }
  }
  int screen() const { return DefaultScreen(display); }
};

// The free cells of a colormap, found by allocating writable cells one by one
// until the server refuses, then giving them all back.
inline std::set<unsigned long> freeCells(Display* display, Colormap colormap) {
  std::vector<unsigned long> got;
  unsigned long pixel;
  while (XAllocColorCells(display, colormap, False, nullptr, 0, &pixel, 1)) got.push_back(pixel);
  if (!got.empty()) XFreeColors(display, colormap, got.data(), static_cast<int>(got.size()), 0);
  XSync(display, False);
  return {got.begin(), got.end()};
}

// The pixels of a drawable's rectangle.
inline std::vector<unsigned long> readPixels(Display* display, Drawable d, int w, int h) {
  XImage* image = XGetImage(display, d, 0, 0, static_cast<unsigned>(w), static_cast<unsigned>(h),
                            AllPlanes, ZPixmap);
  std::vector<unsigned long> out;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) out.push_back(XGetPixel(image, x, y));
  XDestroyImage(image);
  return out;
}

// The colour of a cell, 16 bits per channel.
inline XColor queryColour(Display* display, Colormap colormap, unsigned long pixel) {
  XColor c{};
  c.pixel = pixel;
  XQueryColor(display, colormap, &c);
  return c;
}

}  // namespace test
