// The slide show window ("VmoraSlideView"): a list of pictures shown one
// after another, advanced by a timer or by keys and mouse buttons.
#pragma once

#include <X11/Intrinsic.h>

#include <cstdint>
#include <vector>

#include "display/colormap.h"
#include "display/visual.h"
#include "tools/slide_file.h"

// One running show; made when it starts, freed when its window closes.
struct SlideShow {
  XtIntervalId timer;  // pending time-out, 0 when none
  uint8_t* shown;      // random order: 1 = shown in this round
  int32_t current;     // step counter, -1 before the first picture
  DisplayVisual visual;
  GC gc;
  Pixmap pixmap;  // the picture shown, at its shown size
  ColormapRecord* colormap;
  int32_t shownWidth, shownHeight;
  Widget shell;
  Widget drawingArea;  // "slideDrawingArea"
  uint32_t flags;      // tools::kSlide... bits
  std::vector<tools::SlideFileName> files;
  int32_t count;
  int32_t delay;  // milliseconds between pictures in timer mode
};

// Starts a show of `files` with the option bits `flags` and `delayMs`
// between pictures in timer mode. Nothing happens for an empty list.
SlideShow* StartSlideShowOf(const std::vector<tools::SlideFileName>& files, uint32_t flags,
                            int32_t delayMs);

// Starts the show a slide file describes; its Timer value is taken as
// milliseconds. A file that cannot be read says "Can't open file : <path>";
// one without the header or without files starts nothing.
SlideShow* openSlideShow(const char* file);

// The action of the slide-show dialog's keys: SlideDoCommand(add),
// SlideDoCommand(remove), ... with exactly one word.
void SlideDoCommand(Widget widget, XEvent* event, String* params, Cardinal* count);
