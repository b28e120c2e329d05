// Pixmaps of the built-in palette icons: dithered like pictures for the tool
// bar, allocated colour by colour in the widget's own colormap for the tree.
#include "display/icons.h"

#include <X11/StringDefs.h>
#include <X11/Xutil.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "display/converter.h"

namespace {

Pixmap normalPixmaps[kToolBarIconCount];
Pixmap insensitivePixmaps[kToolBarIconCount];
int pixmapsMade = 0;

Pixel widgetBackground(Widget widget) {
  Pixel background = 0;
  XtVaGetValues(widget, XtNbackground, &background, nullptr);
  return background;
}

}  // namespace

Pixmap iconToPixmap(Widget widget, const IconImage& icon, int index, int width,
                    ColormapRecord* colormap, DisplayVisual* visual) {
  Display* display = XtDisplay(widget);
  const int w = width < 1 ? icon.width : width;
  const int x0 = width < 1 ? 0 : index * width;
  const int h = icon.height;
  if (w < 1 || h < 1 || x0 < 0 || x0 + w > icon.width) return None;

  // The colour table spread into a planar palette, entry `index` at its place.
  uint8_t palette[768] = {};
  for (int i = 0; i < icon.colourCount && i < 256; ++i) {
    const IconColour& c = icon.colours[i];
    palette[c.index] = c.red;
    palette[256 + c.index] = c.green;
    palette[512 + c.index] = c.blue;
  }
  const Pixel background = widgetBackground(widget);

  XImage* image = XCreateImage(display, visual->visual, static_cast<unsigned>(visual->depth),
                               ZPixmap, 0, nullptr, static_cast<unsigned>(w),
                               static_cast<unsigned>(h), BitmapPad(display), 0);
  if (!image) return None;
  image->data = static_cast<char*>(
      calloc(static_cast<size_t>(image->bytes_per_line), static_cast<size_t>(h)));
  if (!image->data) {
    XDestroyImage(image);
    return None;
  }
  for (int y = 0; y < h; ++y) {
    const uint8_t* row = icon.pixels + static_cast<size_t>(y) * icon.width + x0;
    for (int x = 0; x < w; ++x) {
      const uint8_t i = row[x];
      XPutPixel(image, x, y,
                i == icon.transparent ? background
                                      : screenPixel(colormap, visual, palette[i], palette[256 + i],
                                                    palette[512 + i], x, y));
    }
  }
  const Window root = RootWindow(display, screenOfVisual(display, visual->visual));
  Pixmap pixmap = XCreatePixmap(display, root, static_cast<unsigned>(w), static_cast<unsigned>(h),
                                static_cast<unsigned>(visual->depth));
  GC gc = XCreateGC(display, pixmap, 0, nullptr);
  XPutImage(display, pixmap, gc, image, 0, 0, 0, 0, static_cast<unsigned>(w),
            static_cast<unsigned>(h));
  XFreeGC(display, gc);
  XDestroyImage(image);
  return pixmap;
}

void makeToolBarPixmaps(Widget widget, ColormapRecord* colormap, DisplayVisual* visual) {
  if (pixmapsMade) return;
  Display* display = XtDisplay(widget);
  const IconImage& strip = toolBarStrip();
  static const char kStipple[] = {0x55, static_cast<char>(0xAA), 0x55, static_cast<char>(0xAA),
                                  0x55, static_cast<char>(0xAA), 0x55, static_cast<char>(0xAA)};
  const Window root = RootWindow(display, screenOfVisual(display, visual->visual));
  Pixmap stipple = XCreateBitmapFromData(display, root, kStipple, 8, 8);
  GC gc = None;
  for (int i = 0; i < kToolBarIconCount; ++i) {
    Pixmap normal = iconToPixmap(widget, strip, i, 24, colormap, visual);
    if (!normal) break;
    if (!gc) {
      // Every other pixel painted over in the background: the greyed copy.
      XGCValues values;
      values.foreground = widgetBackground(widget);
      values.fill_style = FillStippled;
      values.stipple = stipple;
      gc = XCreateGC(display, normal, GCForeground | GCFillStyle | GCStipple, &values);
    }
    Pixmap insensitive = XCreatePixmap(display, root, 24, static_cast<unsigned>(strip.height),
                                       static_cast<unsigned>(visual->depth));
    XCopyArea(display, normal, insensitive, gc, 0, 0, 24, static_cast<unsigned>(strip.height), 0,
              0);
    XFillRectangle(display, insensitive, gc, 0, 0, 24, static_cast<unsigned>(strip.height));
    normalPixmaps[i] = normal;
    insensitivePixmaps[i] = insensitive;
    pixmapsMade = i + 1;
  }
  if (gc) XFreeGC(display, gc);
  XFreePixmap(display, stipple);
}

void ToolBarGetPixmap(int index, Pixmap* normal, Pixmap* insensitive) {
  if (index < 0 || index >= pixmapsMade) {
    printf("ToolBarGetPixmap : Bad index...\n");
    return;
  }
  if (normal) *normal = normalPixmaps[index];
  if (insensitive) *insensitive = insensitivePixmaps[index];
}

void freeToolBarPixmaps(Display* display) {
  for (int i = 0; i < pixmapsMade; ++i) {
    XFreePixmap(display, normalPixmaps[i]);
    XFreePixmap(display, insensitivePixmaps[i]);
    normalPixmaps[i] = insensitivePixmaps[i] = None;
  }
  pixmapsMade = 0;
}

Pixmap treeIconToPixmap(Widget widget, const IconImage& icon) {
  Display* display = XtDisplay(widget);
  Colormap colormap = None;
  int depth = 0;
  XtVaGetValues(widget, XtNcolormap, &colormap, XtNdepth, &depth, nullptr);
  const Pixel background = widgetBackground(widget);
  const int rootClass = DefaultVisualOfScreen(XtScreen(widget))->c_class;
  if (rootClass == StaticGray || rootClass == GrayScale) {
    fprintf(stderr, "Bad Visual \n");
    return None;
  }

  // One read-only cell per colour of the table; after the first failure the
  // remaining colours fall back to the background.
  std::vector<Pixel> pixel(static_cast<size_t>(icon.colourCount), background);
  for (int i = 0; i < icon.colourCount; ++i) {
    const IconColour& c = icon.colours[i];
    XColor colour{};
    colour.red = static_cast<unsigned short>(c.red * 257);
    colour.green = static_cast<unsigned short>(c.green * 257);
    colour.blue = static_cast<unsigned short>(c.blue * 257);
    colour.flags = DoRed | DoGreen | DoBlue;
    if (!XAllocColor(display, colormap, &colour)) {
      fprintf(stderr, "Error XAllocColor : <%x %x %x>\n", c.red, c.green, c.blue);
      break;
    }
    pixel[static_cast<size_t>(i)] = colour.pixel;
  }

  const Window root = RootWindowOfScreen(XtScreen(widget));
  Pixmap pixmap = XCreatePixmap(display, root, static_cast<unsigned>(icon.width),
                                static_cast<unsigned>(icon.height), static_cast<unsigned>(depth));
  GC gc = XCreateGC(display, pixmap, 0, nullptr);
  XSetForeground(display, gc, background);
  XFillRectangle(display, pixmap, gc, 0, 0, static_cast<unsigned>(icon.width),
                 static_cast<unsigned>(icon.height));
  std::vector<XPoint> points;
  for (int i = 0; i < icon.colourCount; ++i) {
    const uint8_t index = icon.colours[i].index;
    points.clear();
    for (int y = 0; y < icon.height; ++y)
      for (int x = 0; x < icon.width; ++x)
        if (icon.pixels[static_cast<size_t>(y) * icon.width + x] == index)
          points.push_back({static_cast<short>(x), static_cast<short>(y)});
    if (points.empty()) continue;
    XSetForeground(display, gc,
                   index == icon.transparent ? background : pixel[static_cast<size_t>(i)]);
    XDrawPoints(display, pixmap, gc, points.data(), static_cast<int>(points.size()),
                CoordModeOrigin);
  }
  XFreeGC(display, gc);
  return pixmap;
}
