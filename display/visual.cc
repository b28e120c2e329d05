// Choosing the X visual a window draws with, and the visual list of the
// usage text.
#include "display/visual.h"

#include <X11/Xutil.h>

#include <cstdio>
#include <cstdlib>

namespace {

const char* className(int cls) {
  static const char* const kNames[] = {"StaticGray",  "GrayScale", "StaticColor",
                                       "PseudoColor", "TrueColor", "DirectColor"};
  return cls >= 0 && cls < 6 ? kNames[cls] : "Unknown";
}

// Composite's ARGB visual is a 32-bit TrueColor (or DirectColor) visual whose
// colour masks leave 8 bits for alpha. Windows of it need a colormap of their
// own and blend on compositing managers, so it never counts as the best one.
bool isArgbVisual(const XVisualInfo& v) {
  if (v.depth != 32 || (v.c_class != TrueColor && v.c_class != DirectColor)) return false;
  return __builtin_popcountl(v.red_mask | v.green_mask | v.blue_mask) <= 24;
}

// Shift = zero bits below the mask; levels = 2 ^ (contiguous one bits from
// there), stopping at the first zero bit or at bit 31.
void analyseMask(unsigned long mask, int32_t* shift, int32_t* levels) {
  int bit = 0;
  while (bit < 32 && !(mask & (1UL << bit))) ++bit;
  *shift = bit;
  *levels = 1;
  while (bit < 31 && (mask & (1UL << bit))) {
    *levels *= 2;
    ++bit;
  }
}

[[noreturn]] void noVisualInfo(Display* display) {
  fprintf(stderr, "Error obtaining X visual info for %s\n", DisplayString(display));
  exit(0);
}

struct VisualList {
  XVisualInfo* info = nullptr;
  int count = 0;
  ~VisualList() {
    if (info) XFree(info);
  }
};

}  // namespace

int screenOfVisual(Display* display, const Visual* visual) {
  for (int s = 0; s < ScreenCount(display); ++s) {
    const Screen* screen = ScreenOfDisplay(display, s);
    for (int d = 0; d < screen->ndepths; ++d)
      for (int v = 0; v < screen->depths[d].nvisuals; ++v)
        if (&screen->depths[d].visuals[v] == visual) return s;
  }
  return DefaultScreen(display);
}

void chooseVisual(Display* display, int32_t requestedId, DisplayVisual* out) {
  const int screen = DefaultScreen(display);
  Visual* defaultVisual = DefaultVisual(display, screen);

  VisualList def;
  XVisualInfo templ{};
  templ.visualid = XVisualIDFromVisual(defaultVisual);
  def.info = XGetVisualInfo(display, VisualIDMask, &templ, &def.count);
  if (!def.info || def.count < 1) noVisualInfo(display);

  VisualList all;
  templ.screen = screen;
  all.info = XGetVisualInfo(display, VisualScreenMask, &templ, &all.count);
  if (!all.info || all.count < 1) noVisualInfo(display);

  // The deepest visual of the first class in this order that the screen has;
  // on equal depth the first in the server's list. GrayScale is never chosen.
  static const int kPreference[] = {TrueColor, DirectColor, PseudoColor, StaticColor, StaticGray};
  const XVisualInfo* best = nullptr;
  for (int cls : kPreference) {
    for (int i = 0; i < all.count; ++i) {
      const XVisualInfo& v = all.info[i];
      if (v.c_class != cls || isArgbVisual(v)) continue;
      if (!best || v.depth > best->depth) best = &v;
    }
    if (best) break;
  }
  const XVisualInfo* chosen = def.info;
  if (best && best->depth != def.info->depth) chosen = best;

  if (requestedId == 0) {
    chosen = def.info;
  } else if (requestedId > 0) {
    for (int i = 0; i < all.count; ++i) {
      if (all.info[i].visualid == static_cast<VisualID>(requestedId)) {
        chosen = &all.info[i];
        break;
      }
    }
  }

  fprintf(stderr, "Use %s visual (0x%x) with %d bits...\n", className(chosen->c_class),
          static_cast<unsigned>(chosen->visualid), chosen->depth);

  out->visual = chosen->visual;
  out->visualId = static_cast<uint32_t>(chosen->visualid);
  out->colormapSize = chosen->colormap_size;
  out->depth = chosen->depth;
  out->redShift = 0;
  out->redLevels = 1;
  switch (chosen->c_class) {
    case TrueColor:
    case DirectColor:
    case StaticColor:
    case StaticGray:
      analyseMask(chosen->red_mask, &out->redShift, &out->redLevels);
      analyseMask(chosen->green_mask, &out->greenShift, &out->greenLevels);
      analyseMask(chosen->blue_mask, &out->blueShift, &out->blueLevels);
      break;
    default:  // mapped visuals: the masks mean nothing
      break;
  }
}

void listVisuals() {
  Display* display = XOpenDisplay(nullptr);
  if (!display) {
    fprintf(stderr, "Can't open X Server : %s\n", XDisplayName(nullptr));
    exit(1);
  }
  VisualList all;
  XVisualInfo templ{};
  templ.screen = DefaultScreen(display);
  all.info = XGetVisualInfo(display, VisualScreenMask, &templ, &all.count);
  if (!all.info || all.count < 1) {
    fprintf(stderr, "Error obtaining X visual info for %s\n", DisplayString(display));
    XCloseDisplay(display);
    exit(0);
  }
  XCloseDisplay(display);
  printf("              Visual available : \n");
  for (int i = 0; i < all.count; ++i)
    printf("                0x%x : %-15s / % 2d planes\n",
           static_cast<unsigned>(all.info[i].visualid), className(all.info[i].c_class),
           all.info[i].depth);
  fflush(stdout);
}
