// View windows: one picture (one page of a file) in a scrollable drawing
// area, zoomed or fitted, with a menu bar or popup menu, a tool bar and an
// information line; optionally stepping through a list of files.
#pragma once

#include <X11/Intrinsic.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "display/colormap.h"
#include "display/converter.h"
#include "display/visual.h"
#include "imgkit/imgkit.h"

struct ViewWindow {
  GC gc;
  ColormapRecord* colormap;
  ImageRecord picture;
  ImageRecord undoPicture;  // empty (pixels null) when there is nothing to undo
  ImageConverter converter;
  int32_t offsetX, offsetY;  // centring of the scaled picture against the area
  int16_t zoom;              // 1 and -1: 100%; N > 1: N x 100%; N < -1: 100/-N %
  bool fitMode;
  Widget shell, drawingArea, scrollBarV, scrollBarH, menu, infoLabel, toolBar;
  bool modified;
  int16_t formatIndex;
  int32_t pictureIndex;
  int32_t pictureCount;
  char path[1024];
  std::vector<std::string> fileList;
  int filePosition;
  bool selectionPresent;
  int32_t selectionX, selectionY, selectionWidth, selectionHeight;  // picture pixels
  bool listNavigation;

  // Window-side state beyond the picture.
  DisplayVisual visual;
  int scrollH, scrollV;  // scroll values the drawing area currently shows
  bool dragging;
  int dragPointerX, dragPointerY, dragScrollH, dragScrollV;
  bool selecting;
  int selectStartX, selectStartY;  // picture pixels
  Cursor handCursor, moveCursor;
  bool fullScreenOn;
  Position savedX, savedY;
  Dimension savedWidth, savedHeight;
  bool adaptive;
  bool painted;  // the picture was drawn once since it was loaded
  std::vector<Widget> toolButtons;
};

// Opens a view window on one file (pictureIndex -1: its first picture).
// Returns the shell, or null when the file could not be read (the error has
// been shown).
Widget CreateViewWindow(const char* path, int pictureIndex);

// Opens a view window over a list of files showing the first one that can be
// read; its next/previous commands step through the list. Null when none
// could be read.
Widget CreateListViewWindow(const std::vector<std::string>& files);

// The view window a widget belongs to, or null (for the start window).
ViewWindow* ViewOfWidget(Widget widget);

// Recomputes the scaled size, the centring offsets and the scroll ranges.
void RelayoutView(ViewWindow* view);
// Rewrites the information line and brings the menu sensitivities up to date.
void ShowInfo(ViewWindow* view);
// Applies a zoom request "+1", "-1", "+N" or "-N".
void ZoomView(ViewWindow* view, const char* text);

// The pure rules behind the three functions above.
int16_t NextZoom(int16_t zoom, const char* text);
int ZoomPercentage(int16_t zoom);
void ScaledSize(int16_t zoom, int width, int height, int* outWidth, int* outHeight);
// Fit mode: the picture scaled (up or down) to touch a W x H area in one
// direction with its aspect kept.
void FitSize(int areaWidth, int areaHeight, int width, int height, int* outWidth, int* outHeight);
std::string ViewInfoText(const ImageRecord& picture, int16_t zoom);

// Action procedures named by the translation tables.
void ViewDoCommand(Widget widget, XEvent* event, String* params, Cardinal* count);
void ViewKeyScroll(Widget widget, XEvent* event, String* params, Cardinal* count);
void ViewClose(Widget widget, XEvent* event, String* params, Cardinal* count);

// Shows a new file of the window's list (position clamped to the list).
void ShowListFile(ViewWindow* view, int position);
// Shows another picture of the current file.
void ShowPage(ViewWindow* view, int pictureIndex);
// After the picture was replaced: colours, scaling, redraw, information line.
void ViewPictureChanged(ViewWindow* view);

// Runs a picture operation (current picture to a new one) under the busy
// cursor. On success the new picture becomes current, the old one the undo
// picture (dropped when the UseUndo setting is off), the window is marked
// modified and redrawn; a failure shows "Not enough memory" and changes
// nothing. Returns whether the picture was replaced.
bool ApplyViewOperation(ViewWindow* view,
                        const std::function<int(ImageRecord* source, ImageRecord* result)>& op);
// Closes a view, asking first when its picture has unsaved changes.
void CloseView(ViewWindow* view);
