// The view window: creation, layout, zoom, drawing, scrolling, the mouse,
// stepping through files and pages, and the destroy path.
#include "view/view_window.h"

#include <X11/cursorfont.h>
#include <Xm/DrawingA.h>
#include <Xm/MainW.h>
#include <Xm/RowColumn.h>
#include <Xm/ScrollBar.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/app.h"
#include "core/messages.h"
#include "core/picture_io.h"
#include "core/save.h"
#include "core/settings.h"
#include "core/test_log.h"
#include "tools/hex_dump.h"
#include "view/view_commands.h"
#include "widgets/conversion_dialog.h"
#include "widgets/message_box.h"
#include "widgets/picture_load.h"
#include "widgets/progress_dialog.h"
#include "widgets/status_bar.h"

namespace {

constexpr const char* kTitle = "VIMORA v1.12";
constexpr int kHandCursorShape = 60;  // the hand glyph of the cursor font

// Every open view, to find a view from any of its widgets.
std::vector<ViewWindow*> openViews;

}  // namespace

// The zoom, size and information-line rules.

int16_t NextZoom(int16_t zoom, const char* text) {
  if (!text || (text[0] != '+' && text[0] != '-')) return zoom;
  const long n = std::strtol(text + 1, nullptr, 10);
  if (text[0] == '+') {
    if (n == 1) {
      if (zoom < 16) ++zoom;
      if (zoom == 0) zoom = 2;  // -1 and 1 are both 100%: skip to 200%
    } else {
      zoom = static_cast<int16_t>(n);
      if (zoom == 0) zoom = 1;
    }
  } else {
    if (n == 1) {
      if (zoom > -16) --zoom;
      if (zoom == 0) zoom = -2;  // 1 and -1 are both 100%: skip to 50%
    } else {
      zoom = static_cast<int16_t>(-n);
      if (zoom == 0) zoom = 1;
    }
  }
  return zoom;
}

int ZoomPercentage(int16_t zoom) { return zoom >= 1 ? zoom * 100 : 100 / -zoom; }

void ScaledSize(int16_t zoom, int width, int height, int* outWidth, int* outHeight) {
  if (zoom == 1 || zoom == -1) {
    *outWidth = width;
    *outHeight = height;
  } else if (zoom >= 0) {
    *outWidth = width * zoom;
    *outHeight = height * zoom;
  } else {
    *outWidth = width / -zoom;
    *outHeight = height / -zoom;
  }
}

void FitSize(int areaWidth, int areaHeight, int width, int height, int* outWidth, int* outHeight) {
  const long long w = static_cast<long long>(areaHeight) * width / height;
  if (w > areaWidth) {
    *outHeight = static_cast<int>(static_cast<long long>(height) * areaWidth / width);
    *outWidth = areaWidth;
  } else {
    *outWidth = static_cast<int>(w);
    *outHeight = areaHeight;
  }
}

std::string ViewInfoText(const ImageRecord& picture, int16_t zoom) {
  const DepthLabel label = ImageDepthLabel(picture);
  char text[256];
  std::snprintf(text, sizeof text, "Width: %d  Height: %d  Depth: %d  (%s) / Percentage %d%%",
                picture.width, picture.height, label.depth, label.text.c_str(),
                ZoomPercentage(zoom));
  return text;
}

namespace {

// Loading.

// Loads one picture with the progress dialog over `parent` and reports a
// failure (other than a stop) there.
int loadReported(Widget parent, const char* path, int pictureIndex, ImageRecord* picture,
                 int16_t* formatIndex, int32_t* pictureCount) {
  std::memset(picture, 0, sizeof *picture);
  return LoadPictureWithProgress(parent, path, pictureIndex, picture, formatIndex, pictureCount,
                                 true);
}

// Drawing.

int originX(const ViewWindow* v) { return -v->offsetX - v->scrollH; }
int originY(const ViewWindow* v) { return -v->offsetY - v->scrollV; }

void areaSize(const ViewWindow* v, int* w, int* h) {
  Dimension width = 0, height = 0;
  XtVaGetValues(v->drawingArea, XmNwidth, &width, XmNheight, &height, nullptr);
  *w = width;
  *h = height;
}

// Window coordinates to picture pixels, clamped to the picture.
void toPicture(const ViewWindow* v, int wx, int wy, int* px, int* py) {
  const int sw = std::max(1, v->converter.outWidth), sh = std::max(1, v->converter.outHeight);
  *px =
      std::clamp(static_cast<int>(static_cast<long long>(wx - originX(v)) * v->picture.width / sw),
                 0, v->picture.width);
  *py =
      std::clamp(static_cast<int>(static_cast<long long>(wy - originY(v)) * v->picture.height / sh),
                 0, v->picture.height);
}

void toWindow(const ViewWindow* v, int px, int py, int* wx, int* wy) {
  const int pw = std::max(1, v->picture.width), ph = std::max(1, v->picture.height);
  *wx = originX(v) + static_cast<int>(static_cast<long long>(px) * v->converter.outWidth / pw);
  *wy = originY(v) + static_cast<int>(static_cast<long long>(py) * v->converter.outHeight / ph);
}

void drawSelection(ViewWindow* v) {
  if (!v->selectionPresent || !XtIsRealized(v->drawingArea)) return;
  int x0, y0, x1, y1;
  toWindow(v, v->selectionX, v->selectionY, &x0, &y0);
  toWindow(v, v->selectionX + v->selectionWidth, v->selectionY + v->selectionHeight, &x1, &y1);
  Display* dpy = XtDisplay(v->drawingArea);
  XGCValues values;
  values.foreground = v->colormap->whitePixel;
  values.background = v->colormap->blackPixel;
  values.line_style = LineDoubleDash;
  GC gc =
      XCreateGC(dpy, XtWindow(v->drawingArea), GCForeground | GCBackground | GCLineStyle, &values);
  XDrawRectangle(dpy, XtWindow(v->drawingArea), gc, x0, y0, std::max(0, x1 - x0 - 1),
                 std::max(0, y1 - y0 - 1));
  XFreeGC(dpy, gc);
}

// Paints a rectangle of the drawing area: background, then the picture.
void paint(ViewWindow* v, const XRectangle& r, bool clear) {
  if (!XtIsRealized(v->drawingArea) || r.width == 0 || r.height == 0) return;
  Display* dpy = XtDisplay(v->drawingArea);
  if (clear) XClearArea(dpy, XtWindow(v->drawingArea), r.x, r.y, r.width, r.height, False);
  if (v->picture.pixels) {
    drawArea(XtWindow(v->drawingArea), v->gc, &v->converter, originX(v), originY(v), r);
    if (!v->painted) {
      v->painted = true;
      timespec now;
      clock_gettime(CLOCK_REALTIME, &now);
      TestLog("paint %ld.%06ld", static_cast<long>(now.tv_sec), now.tv_nsec / 1000);
    }
  }
}

void redrawAll(ViewWindow* v) {
  if (XtIsManaged(v->drawingArea) && XtIsRealized(v->drawingArea))
    XClearArea(XtDisplay(v->drawingArea), XtWindow(v->drawingArea), 0, 0, 0, 0, True);
}

void showFilename(ViewWindow* v) {
  if (!v->listNavigation || !gSettings.viewShowFilename || !XtIsRealized(v->drawingArea)) return;
  XDrawString(XtDisplay(v->drawingArea), XtWindow(v->drawingArea), v->gc, 6, 16, v->path,
              static_cast<int>(std::strlen(v->path)));
}

void exposeCB(Widget, XtPointer data, XtPointer call) {
  ViewWindow* v = static_cast<ViewWindow*>(data);
  const XmDrawingAreaCallbackStruct* cb = static_cast<XmDrawingAreaCallbackStruct*>(call);
  if (!cb->event || cb->event->type != Expose) return;
  const XExposeEvent& e = cb->event->xexpose;
  paint(v,
        XRectangle{static_cast<short>(e.x), static_cast<short>(e.y),
                   static_cast<unsigned short>(e.width), static_cast<unsigned short>(e.height)},
        false);
  if (e.count == 0) {
    drawSelection(v);
    TestLog("drawn");
  }
}

// The exposures that follow a copy of the area: parts of the copied region
// that were not available, then the end of the copy.
void copyExposeHandler(Widget, XtPointer data, XEvent* event, Boolean*) {
  ViewWindow* v = static_cast<ViewWindow*>(data);
  if (event->type == GraphicsExpose) {
    const XGraphicsExposeEvent& e = event->xgraphicsexpose;
    paint(v,
          XRectangle{static_cast<short>(e.x), static_cast<short>(e.y),
                     static_cast<unsigned short>(e.width), static_cast<unsigned short>(e.height)},
          true);
    if (e.count == 0) {
      drawSelection(v);
      showFilename(v);
    }
  } else if (event->type == NoExpose) {
    showFilename(v);
  }
}

// Moves the shown part to new scroll values: the still-visible part is
// copied, and only the uncovered strips are exposed and converted again.
void scrollTo(ViewWindow* v, int newH, int newV) {
  const int dx = v->scrollH - newH, dy = v->scrollV - newV;
  if (dx == 0 && dy == 0) return;
  v->scrollH = newH;
  v->scrollV = newV;
  if (!XtIsRealized(v->drawingArea)) return;
  int w, h;
  areaSize(v, &w, &h);
  if (std::abs(dx) >= w || std::abs(dy) >= h) {
    redrawAll(v);
    return;
  }
  Display* dpy = XtDisplay(v->drawingArea);
  const Window win = XtWindow(v->drawingArea);
  XCopyArea(dpy, win, win, v->gc, dx < 0 ? -dx : 0, dy < 0 ? -dy : 0, w - std::abs(dx),
            h - std::abs(dy), dx > 0 ? dx : 0, dy > 0 ? dy : 0);
  XSync(dpy, False);
  // The uncovered strips are cleared with exposure; the expose callback
  // converts and draws them.
  auto expose = [&](int x, int y, int sw, int sh) { XClearArea(dpy, win, x, y, sw, sh, True); };
  if (dx > 0) expose(0, 0, dx, h);
  if (dx < 0) expose(w + dx, 0, -dx, h);
  if (dy > 0) expose(0, 0, w, dy);
  if (dy < 0) expose(0, h + dy, w, -dy);
  drawSelection(v);
  TestLog("scrolled %d %d", newH, newV);
}

int scrollValue(Widget bar) {
  int value = 0;
  XtVaGetValues(bar, XmNvalue, &value, nullptr);
  return value;
}

void scrollCB(Widget, XtPointer data, XtPointer) {
  ViewWindow* v = static_cast<ViewWindow*>(data);
  scrollTo(v, scrollValue(v->scrollBarH), scrollValue(v->scrollBarV));
}

void resizeCB(Widget, XtPointer data, XtPointer) {
  ViewWindow* v = static_cast<ViewWindow*>(data);
  RelayoutView(v);
  redrawAll(v);
}

// Mouse.

void setScroll(Widget bar, int value) {
  int maximum = 0, slider = 0, minimum = 0;
  XtVaGetValues(bar, XmNmaximum, &maximum, XmNsliderSize, &slider, XmNminimum, &minimum, nullptr);
  value = std::clamp(value, minimum, std::max(minimum, maximum - slider));
  if (value != scrollValue(bar)) XmScrollBarSetValues(bar, value, slider, 0, 0, True);
}

void showSelectionText(ViewWindow* v) {
  char text[96];
  std::snprintf(text, sizeof text, "%d %d (%dx%d)", v->selectionX, v->selectionY, v->selectionWidth,
                v->selectionHeight);
  MyStatusBarSetText(v->infoLabel, 0, text);
  TestLog("selection %s", text);
}

// Repaints what lies under the selection's outline (to erase it).
void eraseSelection(ViewWindow* v) {
  if (!v->selectionPresent) return;
  int x0, y0, x1, y1;
  toWindow(v, v->selectionX, v->selectionY, &x0, &y0);
  toWindow(v, v->selectionX + v->selectionWidth, v->selectionY + v->selectionHeight, &x1, &y1);
  const unsigned short w = static_cast<unsigned short>(std::max(1, x1 - x0 + 1));
  const unsigned short h = static_cast<unsigned short>(std::max(1, y1 - y0 + 1));
  const short l = static_cast<short>(x0), t = static_cast<short>(y0);
  paint(v, XRectangle{l, t, w, 1}, true);
  paint(v, XRectangle{l, static_cast<short>(y1 - 1), w, 2}, true);
  paint(v, XRectangle{l, t, 1, h}, true);
  paint(v, XRectangle{static_cast<short>(x1 - 1), t, 2, h}, true);
}

void buttonPressHandler(Widget w, XtPointer data, XEvent* event, Boolean*) {
  ViewWindow* v = static_cast<ViewWindow*>(data);
  const XButtonEvent& b = event->xbutton;
  if (v->listNavigation && gSettings.viewMouseNavigation && (b.button == 1 || b.button == 3)) {
    ShowListFile(v, v->filePosition + (b.button == 1 ? -1 : 1));
    return;
  }
  if (b.button == 3) {
    if (!useMenuBar && v->menu) {
      XmMenuPosition(v->menu, const_cast<XButtonPressedEvent*>(&b));
      XtManageChild(v->menu);
    }
    return;
  }
  if (b.button == 2) {
    v->dragging = true;
    v->dragPointerX = b.x;
    v->dragPointerY = b.y;
    v->dragScrollH = scrollValue(v->scrollBarH);
    v->dragScrollV = scrollValue(v->scrollBarV);
    XDefineCursor(XtDisplay(w), XtWindow(w), v->handCursor);
    return;
  }
  if (b.button == 1 && v->picture.pixels) {
    eraseSelection(v);
    v->selectionPresent = false;
    v->selecting = true;
    toPicture(v, b.x, b.y, &v->selectStartX, &v->selectStartY);
    UpdateViewSensitivity(v);
  }
}

void motionHandler(Widget w, XtPointer data, XEvent* event, Boolean*) {
  ViewWindow* v = static_cast<ViewWindow*>(data);
  const XMotionEvent& m = event->xmotion;
  if (v->dragging) {
    setScroll(v->scrollBarH, v->dragScrollH + v->dragPointerX - m.x);
    setScroll(v->scrollBarV, v->dragScrollV + v->dragPointerY - m.y);
    return;
  }
  if (v->selecting) {
    int px, py;
    toPicture(v, m.x, m.y, &px, &py);
    eraseSelection(v);
    v->selectionX = std::min(px, v->selectStartX);
    v->selectionY = std::min(py, v->selectStartY);
    v->selectionWidth = std::abs(px - v->selectStartX);
    v->selectionHeight = std::abs(py - v->selectStartY);
    v->selectionPresent = v->selectionWidth > 0 && v->selectionHeight > 0;
    showSelectionText(v);
    drawSelection(v);
    return;
  }
  if (v->selectionPresent && !(m.state & (Button1Mask | Button2Mask | Button3Mask))) {
    int px, py;
    toPicture(v, m.x, m.y, &px, &py);
    const bool inside = px >= v->selectionX && px < v->selectionX + v->selectionWidth &&
                        py >= v->selectionY && py < v->selectionY + v->selectionHeight;
    if (inside)
      XDefineCursor(XtDisplay(w), XtWindow(w), v->moveCursor);
    else
      XUndefineCursor(XtDisplay(w), XtWindow(w));
  }
}

void buttonReleaseHandler(Widget w, XtPointer data, XEvent* event, Boolean*) {
  ViewWindow* v = static_cast<ViewWindow*>(data);
  if (event->xbutton.button == 2 && v->dragging) {
    v->dragging = false;
    XUndefineCursor(XtDisplay(w), XtWindow(w));
  } else if (event->xbutton.button == 1 && v->selecting) {
    v->selecting = false;
    UpdateViewSensitivity(v);
  }
}

// Destroy.

void destroyCB(Widget shell, XtPointer data, XtPointer) {
  ViewWindow* v = static_cast<ViewWindow*>(data);
  UnregisterView(shell);
  openViews.erase(std::find(openViews.begin(), openViews.end(), v));
  FreePicture(&v->picture);
  if (v->undoPicture.pixels) FreePicture(&v->undoPicture);
  freeConverter(&v->converter);
  releaseColormap(v->colormap);
  Display* dpy = XtDisplay(shell);
  if (v->gc) XtReleaseGC(v->drawingArea, v->gc);
  if (v->handCursor) XFreeCursor(dpy, v->handCursor);
  if (v->moveCursor) XFreeCursor(dpy, v->moveCursor);
  delete v;
  TestLog("closed");
  LastWindowClosed();
}

void closeHook(Widget shell) {
  if (ViewWindow* v = ViewOfWidget(shell))
    CloseView(v);
  else
    XtDestroyWidget(shell);
}

}  // namespace

void ViewPictureChanged(ViewWindow* v) {
  restorePalette(v->picture, v->colormap);
  eraseSelection(v);
  v->selectionPresent = false;
  v->painted = false;
  RelayoutView(v);
  redrawAll(v);
  ShowInfo(v);
}

namespace {

Widget createWindow(ImageRecord& loaded, const char* path, int16_t formatIndex,
                    int32_t pictureIndex, int32_t pictureCount,
                    const std::vector<std::string>* files, int position) {
  ViewWindow* v = new ViewWindow{};
  v->picture = loaded;
  v->formatIndex = formatIndex;
  v->pictureIndex = pictureIndex;
  v->pictureCount = pictureCount;
  std::snprintf(v->path, sizeof v->path, "%s", path);
  AddRecentFile(gSettings, path);
  if (files) {
    v->fileList = *files;
    v->filePosition = position;
    v->listNavigation = files->size() > 1;
  }
  v->zoom = 1;
  v->fitMode = gSettings.viewFitToWindow;

  chooseVisual(display, visualId, &v->visual);
  v->colormap = acquireColormap(display, v->picture, v->visual, ownColormap);
  initConverter(&v->converter, display, v->colormap, &v->visual);
  XtTranslations translations = ViewTranslations();

  Arg args[8];
  Cardinal n = 0;
  XtSetArg(args[n], XmNwidth, 410), ++n;
  XtSetArg(args[n], XmNheight, 360), ++n;
  XtSetArg(args[n], XmNtitle, kTitle), ++n;
  XtSetArg(args[n], XmNiconName, kTitle), ++n;
  XtSetArg(args[n], XmNvisual, v->visual.visual), ++n;
  XtSetArg(args[n], XmNdepth, v->visual.depth), ++n;
  XtSetArg(args[n], XmNcolormap, v->colormap->colormap), ++n;
  XtSetArg(args[n], XmNdeleteResponse, XmDESTROY), ++n;
  v->shell = XtCreatePopupShell("VmoraView", topLevelShellWidgetClass, topLevel, args, n);
  XtAddCallback(v->shell, XmNdestroyCallback, destroyCB, v);
  openViews.push_back(v);
  RegisterView(v->shell);
  closeViewHook = closeHook;

  Widget main = XtVaCreateWidget("mainWindow", xmMainWindowWidgetClass, v->shell,
                                 XmNscrollingPolicy, XmAPPLICATION_DEFINED, nullptr);
  v->toolBar = CreateViewToolBar(v, main);
  if (gSettings.viewToolBar) XtManageChild(v->toolBar);

  v->scrollBarH =
      XtVaCreateManagedWidget("scrollBarH", xmScrollBarWidgetClass, main, XmNorientation,
                              XmHORIZONTAL, XmNtraversalOn, False, nullptr);
  v->scrollBarV =
      XtVaCreateManagedWidget("scrollBarV", xmScrollBarWidgetClass, main, XmNorientation,
                              XmVERTICAL, XmNtraversalOn, False, nullptr);
  for (Widget bar : {v->scrollBarH, v->scrollBarV}) {
    XtAddCallback(bar, XmNvalueChangedCallback, scrollCB, v);
    XtAddCallback(bar, XmNdragCallback, scrollCB, v);
  }

  v->drawingArea =
      XtVaCreateManagedWidget("drawingArea", xmDrawingAreaWidgetClass, main, XmNcolormap,
                              v->colormap->colormap, XmNmarginWidth, 0, XmNmarginHeight, 0,
                              XmNresizePolicy, XmRESIZE_NONE, XmNtraversalOn, True, nullptr);
  XtAddCallback(v->drawingArea, XmNresizeCallback, resizeCB, v);
  XtAddCallback(v->drawingArea, XmNexposeCallback, exposeCB, v);
  XtAddEventHandler(v->drawingArea, NoEventMask, True, copyExposeHandler, v);

  v->infoLabel =
      XtVaCreateWidget("labelInfo", myStatusBarWidgetClass, main, XmNheight, 20, nullptr);
  if (gSettings.viewStatusBar) XtManageChild(v->infoLabel);
  v->menu = CreateViewMenu(v, main, v->drawingArea);

  XmMainWindowSetAreas(main, useMenuBar ? v->menu : nullptr, v->toolBar, v->scrollBarH,
                       v->scrollBarV, v->drawingArea);
  XtVaSetValues(main, XmNmessageWindow, v->infoLabel, nullptr);
  XtManageChild(main);
  XtRealizeWidget(v->shell);
  if (Pixmap icon = AppIconPixmap(v->shell, v->colormap, &v->visual))
    XtVaSetValues(v->shell, XmNiconPixmap, icon, nullptr);
  XtOverrideTranslations(v->drawingArea, translations);

  XGCValues values;
  values.foreground = v->colormap->whitePixel;
  values.background = v->colormap->blackPixel;
  values.graphics_exposures = True;
  v->gc = XtGetGC(v->drawingArea, GCForeground | GCBackground | GCGraphicsExposures, &values);
  v->handCursor = XCreateFontCursor(display, kHandCursorShape);
  v->moveCursor = XCreateFontCursor(display, XC_fleur);

  XtAddEventHandler(v->drawingArea, ButtonPressMask, False, buttonPressHandler, v);
  XtAddEventHandler(v->drawingArea, ButtonReleaseMask, False, buttonReleaseHandler, v);
  XtAddEventHandler(v->drawingArea, PointerMotionMask, False, motionHandler, v);

  if (fullScreen) RunViewCommand(v, "fullScreen");
  RelayoutView(v);
  XtPopup(v->shell, XtGrabNone);
  ShowInfo(v);
  TestLog("view %#lx drawingArea %#lx", XtWindow(v->shell), XtWindow(v->drawingArea));
  TestLog("toolbar %#lx", XtWindow(v->toolBar));
  return v->shell;
}

}  // namespace

ViewWindow* ViewOfWidget(Widget widget) {
  for (Widget w = widget; w; w = XtParent(w)) {
    if (!XtIsShell(w)) continue;
    for (ViewWindow* v : openViews)
      if (v->shell == w) return v;
  }
  return nullptr;
}

Widget CreateViewWindow(const char* path, int pictureIndex) {
  // A file the library does not recognise is dumped instead, when the
  // setting asks for it (a file that cannot be read at all is still
  // reported by the load).
  FileInfo info{};
  if (gSettings.viewOpenHexaViewIfNotPicture && imkFileInformation(path, -1, 0, &info) != 0 &&
      OpenHexDump(path))
    return nullptr;
  ImageRecord picture;
  int16_t formatIndex = -1;
  int32_t count = 0;
  const int index = pictureIndex < 0 ? 0 : pictureIndex;
  if (loadReported(nullptr, path, index, &picture, &formatIndex, &count) != 0) return nullptr;
  return createWindow(picture, path, formatIndex, index, count, nullptr, 0);
}

Widget CreateListViewWindow(const std::vector<std::string>& files) {
  if (files.size() == 1) return CreateViewWindow(files.front().c_str(), 0);
  for (size_t i = 0; i < files.size(); ++i) {
    ImageRecord picture;
    int16_t formatIndex = -1;
    int32_t count = 0;
    if (loadReported(nullptr, files[i].c_str(), 0, &picture, &formatIndex, &count) == 0)
      return createWindow(picture, files[i].c_str(), formatIndex, 0, count, &files,
                          static_cast<int>(i));
  }
  return nullptr;
}

void RelayoutView(ViewWindow* v) {
  int W, H;
  areaSize(v, &W, &H);
  v->offsetX = v->offsetY = 0;
  int w = v->picture.width, h = v->picture.height;
  if (v->fitMode) {
    for (Widget bar : {v->scrollBarH, v->scrollBarV})
      XtVaSetValues(bar, XmNvalue, 0, XmNsliderSize, 1, XmNmaximum, 1, XmNincrement, 1, nullptr);
    if (W > 1 && H > 1 && w > 0 && h > 0) {
      FitSize(W, H, v->picture.width, v->picture.height, &w, &h);
      v->offsetX = (w - W) / 2;
      v->offsetY = (h - H) / 2;
    }
  } else {
    ScaledSize(v->zoom, v->picture.width, v->picture.height, &w, &h);
    auto direction = [](Widget bar, int scaled, int area, int32_t* offset) {
      if (scaled >= area) {
        XtVaSetValues(bar, XmNvalue, 0, XmNmaximum, scaled, XmNsliderSize, std::max(1, area),
                      XmNpageIncrement, std::max(1, area), XmNincrement, 10, nullptr);
      } else {
        XtVaSetValues(bar, XmNvalue, 0, XmNsliderSize, 1, XmNmaximum, 1, XmNincrement, 10, nullptr);
        *offset = (scaled - area) / 2;
      }
    };
    direction(v->scrollBarH, w, W, &v->offsetX);
    direction(v->scrollBarV, h, H, &v->offsetY);
  }
  v->scrollH = v->scrollV = 0;
  if (v->picture.pixels)
    ConvertBitmapToImage(&v->converter, &v->picture, std::max(1, w), std::max(1, h));
  TestLog("layout %d %d scaled %d %d origin %d %d", W, H, w, h, originX(v), originY(v));
}

void ShowInfo(ViewWindow* v) {
  const std::string text = ViewInfoText(v->picture, v->zoom);
  MyStatusBarSetText(v->infoLabel, 0, text.c_str());
  TestLog("info %s", text.c_str());
  // A file of several pictures names the page shown in the title.
  char title[64];
  if (v->pictureCount > 1)
    std::snprintf(title, sizeof title, "%s - Page %d/%d", kTitle, v->pictureIndex + 1,
                  v->pictureCount);
  else
    std::snprintf(title, sizeof title, "%s", kTitle);
  XtVaSetValues(v->shell, XmNtitle, title, nullptr);
  UpdateViewSensitivity(v);
}

void ZoomView(ViewWindow* v, const char* text) {
  v->zoom = NextZoom(v->zoom, text);
  v->fitMode = false;
  RelayoutView(v);
  redrawAll(v);
  ShowInfo(v);
}

void ViewKeyScroll(Widget widget, XEvent*, String* params, Cardinal* count) {
  ViewWindow* v = ViewOfWidget(widget);
  if (!v || *count != 1) return;
  const int which = std::atoi(params[0]);
  if (which < 0 || which > 3) return;
  Widget bar = which < 2 ? v->scrollBarH : v->scrollBarV;
  int value = 0, minimum = 0, maximum = 0, slider = 0, increment = 0;
  XtVaGetValues(bar, XmNvalue, &value, XmNminimum, &minimum, XmNmaximum, &maximum, XmNsliderSize,
                &slider, XmNincrement, &increment, nullptr);
  // Right and Up lower the value, so the picture moves the arrow's way.
  if (which == 0 || which == 2)
    value = std::max(minimum, value - increment);
  else
    value = std::min(maximum - slider, value + increment);
  XmScrollBarSetValues(bar, value, slider, increment, 0, True);
}

void ViewClose(Widget widget, XEvent*, String*, Cardinal*) {
  if (ViewWindow* v = ViewOfWidget(widget)) CloseView(v);
}

void CloseView(ViewWindow* v) {
  if (v->modified) {
    char question[1100];
    std::snprintf(question, sizeof question, "Do you want to save changes to \n  '%s' ?", v->path);
    if (AskYesNo(v->shell, "Question", question)) {
      // Saved in place, in the format it was read from. A failed save (or a
      // cancelled conversion) keeps the window, so nothing is lost.
      const int result =
          SavePicture(GuiSaveHooks(v->shell), v->path, v->formatIndex, &v->picture, 0, 0, true);
      TestLog("saved %s %d", v->path, result);
      if (result != 0) return;
      v->modified = false;
    }
  }
  XtDestroyWidget(v->shell);
}

void ShowListFile(ViewWindow* v, int position) {
  if (v->fileList.empty()) return;
  position = std::clamp(position, 0, static_cast<int>(v->fileList.size()) - 1);
  if (position == v->filePosition) return;
  v->filePosition = position;
  const std::string path = v->fileList[static_cast<size_t>(position)];
  ImageRecord picture;
  int16_t formatIndex = -1;
  int32_t count = 0;
  if (loadReported(v->shell, path.c_str(), 0, &picture, &formatIndex, &count) != 0) return;
  FreePicture(&v->picture);
  FreePicture(&v->undoPicture);
  v->picture = picture;
  v->formatIndex = formatIndex;
  v->pictureIndex = 0;
  v->pictureCount = count;
  v->modified = false;
  std::snprintf(v->path, sizeof v->path, "%s", path.c_str());
  AddRecentFile(gSettings, path);
  ViewPictureChanged(v);
}

void ShowPage(ViewWindow* v, int pictureIndex) {
  if (v->pictureCount <= 1) return;
  pictureIndex = std::clamp(pictureIndex, 0, v->pictureCount - 1);
  if (pictureIndex == v->pictureIndex) return;
  ImageRecord picture;
  int16_t formatIndex = v->formatIndex;
  int32_t count = 0;
  if (loadReported(v->shell, v->path, pictureIndex, &picture, &formatIndex, &count) != 0) return;
  FreePicture(&v->picture);
  FreePicture(&v->undoPicture);
  v->picture = picture;
  v->formatIndex = formatIndex;
  v->pictureIndex = pictureIndex;
  if (count > 0) v->pictureCount = count;
  v->modified = false;
  ViewPictureChanged(v);
}

bool ApplyViewOperation(ViewWindow* v,
                        const std::function<int(ImageRecord* source, ImageRecord* result)>& op) {
  if (!v || !v->picture.pixels) return false;
  ImageRecord result;
  std::memset(&result, 0, sizeof result);
  SetBusyCursor(v->shell, true);
  const int failed = op(&v->picture, &result);
  SetBusyCursor(v->shell, false);
  if (failed) {
    ShowMessage(v->shell, "Error", "Not enough memory", true);
    return false;
  }
  FreePicture(&v->undoPicture);
  if (gSettings.viewUseUndo)
    v->undoPicture = v->picture;
  else
    FreePicture(&v->picture);
  v->picture = result;
  v->modified = true;
  ViewPictureChanged(v);
  return true;
}
