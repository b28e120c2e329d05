// The trapping X error handler; the program is single-threaded, so one
// module-wide flag serves.
#include "display/xerror.h"

namespace {
int trappedError = 0;

int trapHandler(Display*, XErrorEvent* event) {
  trappedError = event->error_code;
  return 0;
}
}  // namespace

XErrorTrap::XErrorTrap(Display* display) : display_(display) {
  XSync(display_, False);
  trappedError = 0;
  previous_ = XSetErrorHandler(trapHandler);
}

XErrorTrap::~XErrorTrap() {
  XSync(display_, False);
  XSetErrorHandler(previous_);
}

bool XErrorTrap::failed() {
  XSync(display_, False);
  return trappedError != 0;
}
