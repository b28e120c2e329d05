// Built-in palette icons with a transparent colour: the tool-bar strip, the
// application icons and the tree icons, and their pixmaps.
#pragma once

#include <X11/Intrinsic.h>

#include <cstdint>

#include "display/colormap.h"
#include "display/visual.h"

struct IconColour {
  uint8_t index, red, green, blue;
};

struct IconImage {
  int32_t width;
  int32_t height;
  uint8_t transparent;
  int32_t colourCount;
  IconColour colours[256];
  const uint8_t* pixels;  // width * height palette indices, row after row
};

// The tool-bar strip: 25 icons of 24 x 22 side by side (600 x 22, 64
// colours, transparent index 32), in this order.
enum ToolBarIcon {
  kIconOpen, kIconSave, kIconClose, kIconBrowser, kIconPrevFile, kIconNextFile, kIconPrevPage,
  kIconNextPage, kIconZoomIn, kIconZoomOut, kIconFit, kIconFullScreen, kIconUndo, kIconCrop,
  kIconRotateLeft, kIconRotateRight, kIconFlip, kIconSlideShow, kIconToGrey, kIconToColours,
  kIconToTrueColour, kIconHexDump, kIconOptions, kIconProperties, kIconQuit,
  kToolBarIconCount
};
const IconImage& toolBarStrip();
const IconImage& appIcon64();
const IconImage& appIcon32();
// Tree icons (16 x 16), whose colour tables list only the colours they use.
const IconImage& treeFolderClosedIcon();
const IconImage& treeFolderOpenIcon();
const IconImage& treeFileIcon();

// A pixmap of sub-icon `index` of a strip of icons `width` wide (a width
// below 1 takes the whole icon); transparent pixels get the widget's
// background. The caller frees it.
Pixmap iconToPixmap(Widget widget, const IconImage& icon, int index, int width,
                    ColormapRecord* colormap, DisplayVisual* visual);

// Once per process: the normal and stippled insensitive pixmaps of the 25
// tool-bar icons.
void makeToolBarPixmaps(Widget widget, ColormapRecord* colormap, DisplayVisual* visual);

// The pixmaps of tool-bar icon `index`; prints "ToolBarGetPixmap : Bad index...\n"
// and leaves the outputs alone when the index is out of range.
void ToolBarGetPixmap(int index, Pixmap* normal, Pixmap* insensitive = nullptr);

// At exit: frees the tool-bar pixmaps.
void freeToolBarPixmaps(Display* display);

// A tree icon in the widget's own colormap and depth, without dithering.
// None (after "Bad Visual \n") on a grey root visual.
Pixmap treeIconToPixmap(Widget widget, const IconImage& icon);
