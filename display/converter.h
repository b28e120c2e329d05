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
  // Called after every tile put on the drawable; `converted` is false when
  // the last tile was put again without converting. For instrumentation.
  void (*tileHook)(void* data, const XRectangle& tile, bool converted);
  void* tileHookData;
};

// The screen pixel of one colour at output position (x, y) by the rules the
// converters use for the visual: the DisplayVisual rule on direct visuals,
// the cube dither at 8 bits or more on mapped ones, the 16x16 threshold
// rules at 4 and 2 bits; 0 at other depths.
unsigned long screenPixel(const ColormapRecord* colormap, const DisplayVisual* visual, unsigned r,
                          unsigned g, unsigned b, int x, int y);

// The 16x16 threshold used on 4- and 2-bit visuals at output position (x, y).
unsigned bayerThreshold(int x, int y);

// Whether new converters may keep their tile in shared memory (MIT-SHM) when
// the server offers it and is local. On by default unless the environment
// sets VIMORA_NO_SHM; the pixels drawn are the same either way.
void setConverterSharedMemory(bool allowed);

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
