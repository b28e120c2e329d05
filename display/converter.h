// Picture to screen pixels: a per-window converter that scales a picture by
// nearest neighbour to an output size and paints exposed rectangles through
// a 256 x 256 tile image, plus whole-picture pixmaps.
#pragma once

#include <X11/Xlib.h>
#include <X11/extensions/XShm.h>

#include <cstdint>

#include "display/colormap.h"
#include "display/visual.h"
#include "imgkit/imgkit.h"

struct ImageConverter;

// Fills the tile from its top-left corner with output pixels (x, y) of the
// rectangle; dither positions come from the output coordinates.
using PixelConverter = void (*)(const ColormapRecord* colormap, ImageConverter* converter, int x,
                                int y, int width, int height);

struct ImageConverter {
  DisplayVisual* visual;
  ColormapRecord* colormap;
  XImage* tile;              // 256 x 256 ZPixmap of the visual's depth
  uint32_t* columnOffset;    // per output column: byte offset within a source row
  const uint8_t** rowStart;  // per output row: first byte of the source row
  uint8_t red[256], green[256], blue[256];
  int32_t outWidth, outHeight;
  int32_t lastTile[4];    // x, y, width, height in drawable coordinates; -1 = none
  int32_t lastOrigin[2];  // picture origin at the last conversion
  PixelConverter convert;
  // Not part of the conversion itself: the connection, the picture being
  // shown, and the shared-memory segment when the tile lives in one.
  Display* display;
  const ImageRecord* picture;
  XShmSegmentInfo shm;
  bool useShm;
};

// Makes the tile image and clears the tables (once per window).
void initConverter(ImageConverter* converter, Display* display, ColormapRecord* colormap,
                   DisplayVisual* visual);

// Prepares for `picture` (which must outlive the drawing) at an output size:
// copies the palette, builds the scaling tables, forgets the last tile and
// chooses the pixel converter. Prints
// "******** ERROR : ConvertBitmapToImage NULL \n" on standard error when no
// converter fits the visual; nothing is drawn then.
void ConvertBitmapToImage(ImageConverter* converter, const ImageRecord* picture, int outWidth,
                          int outHeight);

// Paints the part of the scaled picture inside `exposed` (drawable
// coordinates); the picture's top-left corner is at (originX, originY).
void drawArea(Drawable drawable, GC gc, ImageConverter* converter, int originX, int originY,
              const XRectangle& exposed);

// Frees the tables and the tile image.
void freeConverter(ImageConverter* converter);

// A pixmap of the whole picture at its own size, made on the root window;
// the caller frees it. None when the visual has no converter.
Pixmap pictureToPixmap(Display* display, const ImageRecord& picture, GC gc,
                       ColormapRecord* colormap, DisplayVisual* visual);
