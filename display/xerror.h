// Catches the protocol errors of a few requests whose failure the display
// code expects and handles itself (attaching shared memory, storing into a
// colormap the server refuses), instead of the program's error handler.
#pragma once

#include <X11/Xlib.h>

class XErrorTrap {
 public:
  // Flushes earlier requests first so that their errors are not caught here.
  explicit XErrorTrap(Display* display);
  ~XErrorTrap();
  XErrorTrap(const XErrorTrap&) = delete;
  XErrorTrap& operator=(const XErrorTrap&) = delete;

  // Waits for the server to process the trapped requests; true when one of
  // them failed.
  bool failed();

 private:
  Display* display_;
  XErrorHandler previous_;
};
