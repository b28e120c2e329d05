// The show window: one pixmap of the current picture, centred in the
// drawing area, replaced at every step.
#include "tools/slide_show.h"

#include <Xm/DrawingA.h>
#include <Xm/Form.h>
#include <Xm/MwmUtil.h>
#include <Xm/Xm.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "core/app.h"
#include "core/messages.h"
#include "core/picture_io.h"
#include "core/test_log.h"
#include "display/converter.h"
#include "widgets/message_box.h"

namespace {

using namespace tools;

int randomValue() { return std::rand(); }

void freePixmap(SlideShow* s) {
  if (s->pixmap != None) XFreePixmap(display, s->pixmap);
  s->pixmap = None;
  s->shownWidth = s->shownHeight = 0;
}

// The picture at the size full-screen fitting gives it in an A-sized area.
void fitSize(const SlideShow* s, int areaW, int areaH, const ImageRecord& p, int* w, int* h) {
  *w = p.width;
  *h = p.height;
  const bool fit = (s->flags & kSlideFitAll) ||
                   ((s->flags & kSlideFitLarge) && (p.width > areaW || p.height > areaH));
  if (!fit || p.width <= 0 || p.height <= 0) return;
  *w = static_cast<int>(static_cast<int64_t>(areaH) * p.width / p.height);
  if (*w > areaW) {
    *w = areaW;
    *h = static_cast<int>(static_cast<int64_t>(areaW) * p.height / p.width);
  } else {
    *h = areaH;
  }
  if (*w < 1) *w = 1;
  if (*h < 1) *h = 1;
}

// A pixmap of the picture scaled to w x h, through a converter of its own.
Pixmap scaledPixmap(SlideShow* s, const ImageRecord& picture, int w, int h) {
  ImageConverter converter{};
  initConverter(&converter, display, s->colormap, &s->visual);
  ConvertBitmapToImage(&converter, &picture, w, h);
  Pixmap pixmap = XCreatePixmap(display, XtWindow(s->drawingArea), static_cast<unsigned>(w),
                                static_cast<unsigned>(h), static_cast<unsigned>(s->visual.depth));
  const XRectangle all = {0, 0, static_cast<unsigned short>(w), static_cast<unsigned short>(h)};
  drawArea(pixmap, s->gc, &converter, 0, 0, all);
  freeConverter(&converter);
  return pixmap;
}

// Window size and place outside full screen: the picture's own size, or the
// screen's when the picture is at least as wide or as high.
void placeWindow(SlideShow* s, const ImageRecord& p) {
  Screen* screenRec = XtScreen(s->shell);
  const int sw = WidthOfScreen(screenRec), sh = HeightOfScreen(screenRec);
  const bool large = p.width >= sw || p.height >= sh;
  const int w = large ? sw : p.width, h = large ? sh : p.height;
  if (s->flags & kSlideCenter)
    XtVaSetValues(s->shell, XmNx, large ? 0 : (sw - w) / 2, XmNy, large ? 0 : (sh - h) / 2,
                  XmNwidth, w, XmNheight, h, nullptr);
  else
    XtVaSetValues(s->shell, XmNwidth, w, XmNheight, h, nullptr);
}

void showFile(SlideShow* s, int index) {
  const char* path = s->files[static_cast<size_t>(index)].path;
  XtVaSetValues(s->shell, XmNtitle, path, nullptr);
  ImageRecord picture{};
  LoadOptions options;
  imkDefaultOption(&options);
  FileInfo info{};
  const int result = imkLoad(path, &picture, &options, &info) & 0xFF;
  TestLog("slide picture %d %d %s", index, result, path);
  if (result != 0) {
    FreePicture(&picture);
    if (!(s->flags & kSlideNoErrors) && result != 15)
      ShowMessage(s->shell, "Error", PictureErrorText(path, result, info.errorText).c_str(), true);
    return;
  }
  int w = picture.width, h = picture.height;
  if (s->flags & kSlideFullScreen) {
    Dimension areaW = 0, areaH = 0;
    XtVaGetValues(s->drawingArea, XmNwidth, &areaW, XmNheight, &areaH, nullptr);
    fitSize(s, areaW, areaH, picture, &w, &h);
  } else {
    placeWindow(s, picture);
  }
  freePixmap(s);
  restorePalette(picture, s->colormap);
  s->pixmap = w == picture.width && h == picture.height
                  ? pictureToPixmap(display, picture, s->gc, s->colormap, &s->visual)
                  : scaledPixmap(s, picture, w, h);
  s->shownWidth = w;
  s->shownHeight = h;
  FreePicture(&picture);
  XClearArea(display, XtWindow(s->drawingArea), 0, 0, 0, 0, True);
}

// One step; false when the show has ended (past an end without loop).
bool advance(SlideShow* s, int step) {
  const int index = SlideAdvance(&s->current, s->shown, s->count, s->flags, step, randomValue);
  if (index < 0) return false;
  showFile(s, index);
  return true;
}

void closeShow(SlideShow* s) { XtDestroyWidget(s->shell); }

void timerStep(XtPointer data, XtIntervalId*) {
  auto* s = static_cast<SlideShow*>(data);
  s->timer = 0;
  if (!advance(s, 1)) {
    closeShow(s);
    return;
  }
  XFlush(display);
  s->timer = XtAppAddTimeOut(appContext, static_cast<unsigned long>(s->delay), timerStep, s);
}

// A key or button past either end leaves the show on the picture it shows.
void userStep(SlideShow* s, int step) {
  if (!advance(s, step)) s->current -= step == 0 ? 1 : step;
}

void inputEH(Widget, XtPointer data, XEvent* e, Boolean*) {
  auto* s = static_cast<SlideShow*>(data);
  if (e->type == ButtonPress) {
    if (e->xbutton.button == Button1) userStep(s, -1);
    if (e->xbutton.button == Button3) userStep(s, 1);
    return;
  }
  if (e->type != KeyPress) return;
  const KeySym key = XLookupKeysym(&e->xkey, 0);
  if (key == XK_Escape || IsModifierKey(key)) return;  // Escape closes through the translation
  userStep(s, key == XK_Left ? -1 : 1);
}

void exposeCB(Widget w, XtPointer data, XtPointer) {
  auto* s = static_cast<SlideShow*>(data);
  if (s->pixmap == None) return;
  Dimension areaW = 0, areaH = 0;
  XtVaGetValues(w, XmNwidth, &areaW, XmNheight, &areaH, nullptr);
  XCopyArea(display, s->pixmap, XtWindow(w), s->gc, 0, 0, static_cast<unsigned>(s->shownWidth),
            static_cast<unsigned>(s->shownHeight), (areaW - s->shownWidth) / 2,
            (areaH - s->shownHeight) / 2);
  TestLog("slide drawn %d %d", s->shownWidth, s->shownHeight);
}

void destroyCB(Widget, XtPointer data, XtPointer) {
  auto* s = static_cast<SlideShow*>(data);
  if (s->timer) XtRemoveTimeOut(s->timer);
  if (s->colormap) {
    if (s->colormap->privatePalette) XUninstallColormap(display, s->colormap->colormap);
    releaseColormap(s->colormap);
  }
  freePixmap(s);
  std::free(s->shown);
  if (s->gc) XFreeGC(display, s->gc);
  TestLog("slide closed");
  delete s;
}

void kbdCancelAction(Widget w, XEvent*, String*, Cardinal*) {
  for (Widget shell = w; shell; shell = XtParent(shell)) {
    if (XtIsShell(shell)) {
      XtDestroyWidget(shell);
      return;
    }
  }
}

Cursor emptyCursor(Window window) {
  static const char bits[1] = {0};
  Pixmap blank = XCreateBitmapFromData(display, window, bits, 1, 1);
  XColor black{};
  Cursor cursor = XCreatePixmapCursor(display, blank, blank, &black, &black, 0, 0);
  XFreePixmap(display, blank);
  return cursor;
}

void createWindow(SlideShow* s) {
  static bool actionAdded = false;
  if (!actionAdded) {
    static XtActionsRec action = {const_cast<char*>("SlideKbdCancel"), kbdCancelAction};
    XtAppAddActions(appContext, &action, 1);
    actionAdded = true;
  }
  chooseVisual(display, visualId, &s->visual);
  ImageRecord none{};
  s->colormap = acquireColormap(display, none, s->visual, ownColormap);
  Screen* screenRec = DefaultScreenOfDisplay(display);
  const bool full = (s->flags & kSlideFullScreen) != 0;
  Arg args[10];
  Cardinal n = 0;
  XtSetArg(args[n], XmNvisual, s->visual.visual), ++n;
  XtSetArg(args[n], XmNdepth, s->visual.depth), ++n;
  XtSetArg(args[n], XmNcolormap, s->colormap->colormap), ++n;
  XtSetArg(args[n], XmNdeleteResponse, XmDESTROY), ++n;
  XtSetArg(args[n], XmNwidth, full ? WidthOfScreen(screenRec) : 320), ++n;
  XtSetArg(args[n], XmNheight, full ? HeightOfScreen(screenRec) : 240), ++n;
  if (full) {
    XtSetArg(args[n], XmNx, 0), ++n;
    XtSetArg(args[n], XmNy, 0), ++n;
  }
  if (s->flags & kSlideNoTitle) XtSetArg(args[n], XmNmwmDecorations, MWM_DECOR_BORDER), ++n;
  s->shell = XtCreatePopupShell("VmoraSlideView", topLevelShellWidgetClass, topLevel, args, n);
  XtAddCallback(s->shell, XmNdestroyCallback, destroyCB, s);
  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, s->shell, nullptr);
  s->drawingArea = XtVaCreateManagedWidget(
      "slideDrawingArea", xmDrawingAreaWidgetClass, form, XmNcolormap, s->colormap->colormap,
      XmNbackground, BlackPixelOfScreen(screenRec), XmNtopAttachment, XmATTACH_FORM,
      XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
      XmATTACH_FORM, XmNmarginWidth, 0, XmNmarginHeight, 0, nullptr);
  XtAddCallback(s->drawingArea, XmNexposeCallback, exposeCB, s);
  XtAddEventHandler(s->drawingArea, KeyPressMask | ButtonPressMask, False, inputEH, s);
  XtOverrideTranslations(s->drawingArea,
                         XtParseTranslationTable("<Key>osfCancel: SlideKbdCancel()"));
  XtManageChild(form);
  XtRealizeWidget(s->shell);
  s->gc = XCreateGC(display, XtWindow(s->drawingArea), 0, nullptr);
  if (s->flags & kSlideHideMouse) {
    Cursor blank = emptyCursor(XtWindow(s->drawingArea));
    XDefineCursor(display, XtWindow(s->drawingArea), blank);
    XFreeCursor(display, blank);
  }
  XtPopup(s->shell, XtGrabNone);
  XmProcessTraversal(s->drawingArea, XmTRAVERSE_CURRENT);
  TestLog("slide show %#lx %#lx %d", XtWindow(s->shell), XtWindow(s->drawingArea), s->count);
}

}  // namespace

SlideShow* StartSlideShowOf(const std::vector<SlideFileName>& files, uint32_t flags,
                            int32_t delayMs) {
  if (files.empty()) return nullptr;
  auto* s = new SlideShow{};
  s->files = files;
  s->count = static_cast<int32_t>(files.size());
  s->flags = flags;
  s->delay = delayMs;
  if (flags & kSlideRandom) {
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    s->shown = static_cast<uint8_t*>(std::calloc(files.size(), 1));
  }
  createWindow(s);
  s->current = -1;
  if (flags & kSlideTimer)
    timerStep(s, nullptr);
  else
    advance(s, 1);
  return s;
}

SlideShow* openSlideShow(const char* file) {
  SlideFileContents contents;
  switch (ReadSlideFile(file, &contents)) {
    case SlideFileResult::kCannotOpen:
      ShowMessage(nullptr, "Slide Show", (std::string("Can't open file : ") + file).c_str(), true);
      return nullptr;
    case SlideFileResult::kNotSlideFile:
      return nullptr;
    case SlideFileResult::kLoaded:
      break;
  }
  // The file's timer value is used as milliseconds as it stands.
  return StartSlideShowOf(contents.files, contents.flags, contents.timer);
}
