// The dump dialog: the file is read whole, lines are formatted as they are
// drawn, vertical scrolling moves the drawn text with a copy and draws only
// the uncovered strip.
#include "tools/hex_dump.h"

#include <Xm/DrawingA.h>
#include <Xm/Form.h>
#include <Xm/PushB.h>
#include <Xm/ScrollBar.h>
#include <Xm/ScrolledW.h>
#include <Xm/Separator.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/app.h"
#include "core/test_log.h"
#include "tools/hex_dump_line.h"

namespace {

constexpr int kLineGap = 2;  // pixels between two lines

Widget child(const HexDump* d, const char* name) { return XtNameToWidget(d->shell, name); }

int lineStep(const HexDump* d) { return d->lineHeight + kLineGap; }

// Reads the whole file; false (nothing allocated) when it cannot be opened,
// is too large for the dump or does not fit in memory.
bool readWhole(const char* path, HexDump* d) {
  FILE* f = std::fopen(path, "rb");
  if (!f) return false;
  long size = -1;
  if (std::fseek(f, 0, SEEK_END) == 0) size = std::ftell(f);
  std::rewind(f);
  if (size < 0 || size > INT32_MAX) {
    std::fclose(f);
    return false;
  }
  d->data = static_cast<uint8_t*>(std::calloc(static_cast<size_t>(size) + 1, 1));
  if (!d->data) {
    std::fclose(f);
    return false;
  }
  d->size = static_cast<int32_t>(std::fread(d->data, 1, static_cast<size_t>(size), f));
  std::fclose(f);
  return true;
}

// Draws the lines from topLine on, through the gc's current clip.
void drawLines(HexDump* d) {
  Widget area = child(d, "*drawingArea");
  if (!XtIsRealized(area) || !d->font) return;
  Dimension height = 0;
  XtVaGetValues(area, XmNheight, &height, nullptr);
  const int x = 1 - d->leftColumn * d->charWidth;
  for (int k = 0; d->topLine + k < d->lineCount; ++k) {
    const int top = 1 + k * lineStep(d);
    if (top >= height) break;
    const std::string text = tools::HexDumpLine(d->data, d->size, d->topLine + k);
    XDrawString(XtDisplay(area), XtWindow(area), d->gc, x, top + d->font->ascent, text.data(),
                static_cast<int>(text.size()));
  }
}

void drawRectangle(HexDump* d, int x, int y, int w, int h) {
  XRectangle clip = {static_cast<short>(x), static_cast<short>(y), static_cast<unsigned short>(w),
                     static_cast<unsigned short>(h)};
  Widget area = child(d, "*drawingArea");
  XSetClipRectangles(XtDisplay(area), d->gc, 0, 0, &clip, 1, Unsorted);
  drawLines(d);
  XSetClipMask(XtDisplay(area), d->gc, None);
}

void exposeCB(Widget, XtPointer data, XtPointer call) {
  auto* d = static_cast<HexDump*>(data);
  const XEvent* e = static_cast<XmDrawingAreaCallbackStruct*>(call)->event;
  if (e && e->type == Expose)
    drawRectangle(d, e->xexpose.x, e->xexpose.y, e->xexpose.width, e->xexpose.height);
  else
    drawLines(d);
  TestLog("dump drawn %d", d->topLine);
}

// Areas a copy could not take from the window (it was covered) come back
// as GraphicsExpose events.
void graphicsExposeEH(Widget, XtPointer data, XEvent* e, Boolean*) {
  if (e->type != GraphicsExpose) return;
  drawRectangle(static_cast<HexDump*>(data), e->xgraphicsexpose.x, e->xgraphicsexpose.y,
                e->xgraphicsexpose.width, e->xgraphicsexpose.height);
}

void setScrollBars(HexDump* d) {
  Widget area = child(d, "*drawingArea");
  Dimension width = 0, height = 0;
  XtVaGetValues(area, XmNwidth, &width, XmNheight, &height, nullptr);
  d->visibleLines = height / lineStep(d);
  // A scroll bar needs a range of at least one and a slider inside it.
  const int lines = std::max(d->lineCount, 1);
  const int vSlider = std::clamp(std::min(d->visibleLines, d->lineCount), 1, lines);
  d->topLine = std::clamp(d->topLine, 0, lines - vSlider);
  XtVaSetValues(child(d, "*scrollV"), XmNminimum, 0, XmNmaximum, lines, XmNsliderSize, vSlider,
                XmNvalue, d->topLine, XmNpageIncrement, std::max(vSlider - 1, 1), nullptr);
  const int columns = d->charWidth > 0 ? (width - 2) / d->charWidth : d->columnCount;
  const int hSlider = std::clamp(columns, 1, d->columnCount);
  d->leftColumn = std::clamp(d->leftColumn, 0, d->columnCount - hSlider);
  XtVaSetValues(child(d, "*scrollH"), XmNminimum, 0, XmNmaximum, d->columnCount, XmNsliderSize,
                hSlider, XmNvalue, d->leftColumn, XmNpageIncrement, std::max(hSlider - 1, 1),
                nullptr);
}

void resizeCB(Widget, XtPointer data, XtPointer) { setScrollBars(static_cast<HexDump*>(data)); }

void verticalCB(Widget, XtPointer data, XtPointer call) {
  auto* d = static_cast<HexDump*>(data);
  const int value = static_cast<XmScrollBarCallbackStruct*>(call)->value;
  if (value == d->topLine) return;
  Widget area = child(d, "*drawingArea");
  if (!XtIsRealized(area)) {
    d->topLine = value;
    return;
  }
  Display* dpy = XtDisplay(area);
  Window window = XtWindow(area);
  Dimension width = 0, height = 0;
  XtVaGetValues(area, XmNwidth, &width, XmNheight, &height, nullptr);
  const int shift = (d->topLine - value) * lineStep(d);
  XFlush(dpy);
  d->topLine = value;
  if (std::abs(shift) >= height) {
    XClearArea(dpy, window, 0, 0, 0, 0, False);
    drawRectangle(d, 0, 0, width, height);
  } else if (shift < 0) {  // towards the end: the text moves up
    XCopyArea(dpy, window, window, d->gc, 0, -shift, width, height + shift, 0, 0);
    XClearArea(dpy, window, 0, height + shift, width, -shift, False);
    drawRectangle(d, 0, height + shift, width, -shift);
  } else {
    XCopyArea(dpy, window, window, d->gc, 0, 0, width, height - shift, 0, shift);
    XClearArea(dpy, window, 0, 0, width, shift, False);
    drawRectangle(d, 0, 0, width, shift);
  }
  TestLog("dump top %d", d->topLine);
}

void horizontalCB(Widget, XtPointer data, XtPointer call) {
  auto* d = static_cast<HexDump*>(data);
  const int value = static_cast<XmScrollBarCallbackStruct*>(call)->value;
  if (value == d->leftColumn) return;
  d->leftColumn = value;
  Widget area = child(d, "*drawingArea");
  if (XtIsRealized(area)) XClearArea(XtDisplay(area), XtWindow(area), 0, 0, 0, 0, True);
  TestLog("dump left %d", d->leftColumn);
}

void okCB(Widget, XtPointer data, XtPointer) {
  XtDestroyWidget(static_cast<HexDump*>(data)->shell);
}

void destroyCB(Widget w, XtPointer data, XtPointer) {
  auto* d = static_cast<HexDump*>(data);
  if (d->gc) XFreeGC(XtDisplay(w), d->gc);
  if (d->font) XFreeFont(XtDisplay(w), d->font);
  std::free(d->data);
  delete d;
}

XFontStruct* loadFont(Display* dpy) {
  for (const char* name : {"screen13", "-*-fixed-medium-r-normal--13-*-*-*-*-*-*-*"})
    if (XFontStruct* font = XLoadQueryFont(dpy, name)) return font;
  std::printf("XLoadQueryFont error ******** \n");
  std::fflush(stdout);
  return nullptr;
}

}  // namespace

HexDump* OpenHexDump(const char* path) {
  auto* d = new HexDump{};
  if (!readWhole(path, d)) {
    delete d;
    return nullptr;
  }
  d->lineCount = tools::HexDumpLineCount(d->size);
  d->columnCount = tools::kHexDumpColumns;
  d->font = loadFont(display);
  if (d->font) {
    d->charWidth = static_cast<int16_t>(XTextWidth(d->font, ".", 1));
    d->lineHeight = static_cast<int16_t>(d->font->ascent + d->font->descent);
  } else {
    d->charWidth = 8;  // no font: the scroll arithmetic still needs sizes
    d->lineHeight = 13;
  }

  const std::string title = std::string("Dump: ") + path;
  d->shell =
      XtVaCreatePopupShell("VmoraDump", topLevelShellWidgetClass, topLevel, XmNtitle, title.c_str(),
                           XmNiconName, title.c_str(), XmNdeleteResponse, XmDESTROY, nullptr);
  XtAddCallback(d->shell, XmNdestroyCallback, destroyCB, d);
  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, d->shell, nullptr);
  XmString ok = XmStringCreateLocalized(const_cast<char*>("O.K."));
  Widget button = XtVaCreateManagedWidget(
      "pushButtonOK", xmPushButtonWidgetClass, form, XmNlabelString, ok, XmNbottomAttachment,
      XmATTACH_FORM, XmNbottomOffset, 6, XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition, 40,
      XmNrightAttachment, XmATTACH_POSITION, XmNrightPosition, 60, nullptr);
  XmStringFree(ok);
  XtAddCallback(button, XmNactivateCallback, okCB, d);
  Widget separator = XtVaCreateManagedWidget("separator1", xmSeparatorWidgetClass, form,
                                             XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                                             XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET,
                                             XmNbottomWidget, button, XmNbottomOffset, 6, nullptr);
  Widget scrolled = XtVaCreateManagedWidget(
      "scrolledWindow", xmScrolledWindowWidgetClass, form, XmNscrollingPolicy,
      XmAPPLICATION_DEFINED, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
      XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget,
      separator, nullptr);
  // 74 columns and about 25 lines to start with.
  const int width = d->columnCount * d->charWidth + 2;
  const int height = 25 * (d->lineHeight + kLineGap);
  Widget area = XtVaCreateManagedWidget("drawingArea", xmDrawingAreaWidgetClass, scrolled, XmNwidth,
                                        width, XmNheight, height, nullptr);
  Widget scrollH = XtVaCreateManagedWidget("scrollH", xmScrollBarWidgetClass, scrolled,
                                           XmNorientation, XmHORIZONTAL, nullptr);
  Widget scrollV = XtVaCreateManagedWidget("scrollV", xmScrollBarWidgetClass, scrolled,
                                           XmNorientation, XmVERTICAL, nullptr);
  XmScrolledWindowSetAreas(scrolled, scrollH, scrollV, area);
  for (const char* reason : {XmNincrementCallback, XmNdecrementCallback, XmNpageIncrementCallback,
                             XmNpageDecrementCallback, XmNdragCallback, XmNvalueChangedCallback,
                             XmNtoTopCallback, XmNtoBottomCallback}) {
    XtAddCallback(scrollV, reason, verticalCB, d);
    XtAddCallback(scrollH, reason, horizontalCB, d);
  }
  XtAddCallback(area, XmNexposeCallback, exposeCB, d);
  XtAddCallback(area, XmNresizeCallback, resizeCB, d);
  XtAddEventHandler(area, NoEventMask, True, graphicsExposeEH, d);
  XtManageChild(form);

  XtRealizeWidget(d->shell);
  XGCValues values;
  Pixel foreground = 0;
  XtVaGetValues(area, XmNforeground, &foreground, nullptr);
  values.foreground = foreground;
  values.graphics_exposures = True;
  unsigned long mask = GCForeground | GCGraphicsExposures;
  if (d->font) {
    values.font = d->font->fid;
    mask |= GCFont;
  }
  d->gc = XCreateGC(XtDisplay(area), XtWindow(area), mask, &values);
  setScrollBars(d);
  XtPopup(d->shell, XtGrabNone);
  TestLog("dump %#lx %#lx %d %d %d", XtWindow(d->shell), XtWindow(area), d->lineCount, lineStep(d),
          d->charWidth);
  return d;
}
