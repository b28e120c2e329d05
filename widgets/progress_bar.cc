// The MyProgressBar widget class, a subclass of XmPrimitive written with the
// toolkit's class-record machinery.
#include "widgets/progress_bar.h"

#include <Xm/DrawP.h>
#include <Xm/PrimitiveP.h>
#include <Xm/XmP.h>

#include <algorithm>
#include <cstdio>

#include "widgets/widget_class.h"

namespace {

struct MyProgressBarPart {
  Pixel barColor;
  XmFontList fontList;
  int minimum;
  int maximum;
  int value;
  Boolean showPercentage;
  GC barGC;
  GC textGC;
};

struct MyProgressBarRec {
  CorePart core;
  XmPrimitivePart primitive;
  MyProgressBarPart bar;
};

using MyProgressBarWidget = MyProgressBarRec*;

#define OFFSET(field) XtOffsetOf(MyProgressBarRec, bar.field)
XtResource resources[] = {
    {const_cast<char*>(MyNbarColor), const_cast<char*>(MyCBarColor), const_cast<char*>(XmRPixel),
     sizeof(Pixel), OFFSET(barColor), const_cast<char*>(XmRString), const_cast<char*>("#707070")},
    {const_cast<char*>(XmNfontList), const_cast<char*>(XmCFontList), const_cast<char*>(XmRFontList),
     sizeof(XmFontList), OFFSET(fontList), const_cast<char*>(XmRImmediate), nullptr},
    {const_cast<char*>(XmNminimum), const_cast<char*>(XmCMinimum), const_cast<char*>(XmRInt),
     sizeof(int), OFFSET(minimum), const_cast<char*>(XmRImmediate), reinterpret_cast<XtPointer>(0)},
    {const_cast<char*>(XmNmaximum), const_cast<char*>(XmCMaximum), const_cast<char*>(XmRInt),
     sizeof(int), OFFSET(maximum), const_cast<char*>(XmRImmediate),
     reinterpret_cast<XtPointer>(100)},
    {const_cast<char*>(XmNvalue), const_cast<char*>(XmCValue), const_cast<char*>(XmRInt),
     sizeof(int), OFFSET(value), const_cast<char*>(XmRImmediate), reinterpret_cast<XtPointer>(0)},
    {const_cast<char*>(MyNshowPercentage), const_cast<char*>(MyCShowPercentage),
     const_cast<char*>(XmRBoolean), sizeof(Boolean), OFFSET(showPercentage),
     const_cast<char*>(XmRImmediate), reinterpret_cast<XtPointer>(False)},
    // A bar shows state; it takes no keyboard focus unless asked to.
    {const_cast<char*>(XmNtraversalOn), const_cast<char*>(XmCTraversalOn),
     const_cast<char*>(XmRBoolean), sizeof(Boolean),
     XtOffsetOf(MyProgressBarRec, primitive.traversal_on), const_cast<char*>(XmRImmediate),
     reinterpret_cast<XtPointer>(False)},
    {const_cast<char*>(XmNshadowThickness), const_cast<char*>(XmCShadowThickness),
     const_cast<char*>(XmRHorizontalDimension), sizeof(Dimension),
     XtOffsetOf(MyProgressBarRec, primitive.shadow_thickness), const_cast<char*>(XmRImmediate),
     reinterpret_cast<XtPointer>(1)},
};
#undef OFFSET

constexpr Dimension kDefaultWidth = 200;
constexpr Dimension kDefaultHeight = 18;

MyProgressBarWidget self(Widget w) { return reinterpret_cast<MyProgressBarWidget>(w); }

void keepInRange(MyProgressBarPart& b) {
  if (b.maximum < b.minimum) b.maximum = b.minimum;
  b.value = std::clamp(b.value, b.minimum, b.maximum);
}

void makeGCs(Widget w) {
  MyProgressBarPart& b = self(w)->bar;
  XGCValues values;
  values.foreground = b.barColor;
  b.barGC = XtGetGC(w, GCForeground, &values);
  values.foreground = self(w)->primitive.foreground;
  values.background = self(w)->core.background_pixel;
  // XmStringDraw sets the font and the clip of the text GC itself.
  b.textGC = XtAllocateGC(w, 0, GCForeground | GCBackground, &values,
                          GCFont | GCClipMask | GCClipXOrigin | GCClipYOrigin, 0);
}

void freeGCs(Widget w) {
  MyProgressBarPart& b = self(w)->bar;
  XtReleaseGC(w, b.barGC);
  XtReleaseGC(w, b.textGC);
}

void initialize(Widget, Widget w, ArgList, Cardinal*) {
  MyProgressBarPart& b = self(w)->bar;
  if (w->core.width == 0) w->core.width = kDefaultWidth;
  if (w->core.height == 0) w->core.height = kDefaultHeight;
  b.fontList =
      XmFontListCopy(b.fontList ? b.fontList : XmeGetDefaultRenderTable(w, XmLABEL_FONTLIST));
  keepInRange(b);
  makeGCs(w);
}

void destroy(Widget w) {
  freeGCs(w);
  XmFontListFree(self(w)->bar.fontList);
}

// The inside of the shadow.
void innerArea(Widget w, int* x, int* y, int* width, int* height) {
  const int edge = self(w)->primitive.highlight_thickness + self(w)->primitive.shadow_thickness;
  *x = edge;
  *y = edge;
  *width = std::max(0, static_cast<int>(w->core.width) - 2 * edge);
  *height = std::max(0, static_cast<int>(w->core.height) - 2 * edge);
}

void drawBar(Widget w) {
  if (!XtIsRealized(w)) return;
  MyProgressBarWidget pb = self(w);
  const MyProgressBarPart& b = pb->bar;
  Display* dpy = XtDisplay(w);
  Window win = XtWindow(w);
  int x, y, width, height;
  innerArea(w, &x, &y, &width, &height);
  const long span = static_cast<long>(b.maximum) - b.minimum;
  const int filled =
      span > 0 ? static_cast<int>(static_cast<long>(width) * (b.value - b.minimum) / span) : 0;
  if (filled > 0) XFillRectangle(dpy, win, b.barGC, x, y, static_cast<unsigned>(filled), height);
  if (width - filled > 0)
    XClearArea(dpy, win, x + filled, y, static_cast<unsigned>(width - filled),
               static_cast<unsigned>(height), False);
  if (b.showPercentage && span > 0 && width > 0) {
    char text[16];
    std::snprintf(text, sizeof text, "%ld%%", 100L * (b.value - b.minimum) / span);
    XmString s = XmStringCreateLocalized(text);
    Dimension tw = 0, th = 0;
    XmStringExtent(b.fontList, s, &tw, &th);
    XRectangle clip = {static_cast<short>(x), static_cast<short>(y),
                       static_cast<unsigned short>(width), static_cast<unsigned short>(height)};
    XmStringDraw(dpy, win, b.fontList, s, b.textGC, static_cast<Position>(x),
                 static_cast<Position>(y + (height - th) / 2), static_cast<Dimension>(width),
                 XmALIGNMENT_CENTER, XmSTRING_DIRECTION_L_TO_R, &clip);
    XmStringFree(s);
  }
}

void expose(Widget w, XEvent*, Region) {
  if (!XtIsRealized(w)) return;
  MyProgressBarWidget pb = self(w);
  const Dimension ht = pb->primitive.highlight_thickness;
  XmeDrawShadows(XtDisplay(w), XtWindow(w), pb->primitive.top_shadow_GC,
                 pb->primitive.bottom_shadow_GC, static_cast<Position>(ht),
                 static_cast<Position>(ht), static_cast<Dimension>(w->core.width - 2 * ht),
                 static_cast<Dimension>(w->core.height - 2 * ht), pb->primitive.shadow_thickness,
                 XmSHADOW_IN);
  drawBar(w);
}

void resize(Widget w) {
  if (XtIsRealized(w)) XClearArea(XtDisplay(w), XtWindow(w), 0, 0, 0, 0, True);
}

Boolean setValues(Widget old, Widget, Widget w, ArgList, Cardinal*) {
  MyProgressBarPart& o = self(old)->bar;
  MyProgressBarPart& b = self(w)->bar;
  if (b.fontList != o.fontList) {
    XmFontListFree(o.fontList);
    b.fontList =
        XmFontListCopy(b.fontList ? b.fontList : XmeGetDefaultRenderTable(w, XmLABEL_FONTLIST));
  }
  if (b.barColor != o.barColor ||
      self(w)->primitive.foreground != self(old)->primitive.foreground ||
      w->core.background_pixel != old->core.background_pixel) {
    freeGCs(old);
    makeGCs(w);
  }
  keepInRange(b);
  return b.barColor != o.barColor || b.value != o.value || b.minimum != o.minimum ||
         b.maximum != o.maximum || b.showPercentage != o.showPercentage || b.fontList != o.fontList;
}

XtGeometryResult queryGeometry(Widget w, XtWidgetGeometry* request, XtWidgetGeometry* reply) {
  reply->request_mode = CWWidth | CWHeight;
  reply->width = kDefaultWidth;
  reply->height = kDefaultHeight;
  if ((request->request_mode & CWWidth) && (request->request_mode & CWHeight) &&
      request->width == reply->width && request->height == reply->height)
    return XtGeometryYes;
  if (reply->width == w->core.width && reply->height == w->core.height) return XtGeometryNo;
  return XtGeometryAlmost;
}

}  // namespace

static MyPrimitiveClassRec myProgressBarClassRec =
    MyPrimitiveClass("MyProgressBar", sizeof(MyProgressBarRec), resources, XtNumber(resources),
                     {initialize, destroy, resize, expose, setValues, queryGeometry});

WidgetClass myProgressBarWidgetClass = reinterpret_cast<WidgetClass>(&myProgressBarClassRec);

Widget MyCreateProgressBar(Widget parent, const char* name, ArgList args, Cardinal count) {
  return XtCreateWidget(name, myProgressBarWidgetClass, parent, args, count);
}

namespace {

MyProgressBarPart* checked(Widget w, const char* function) {
  return MyCheckClass(w, myProgressBarWidgetClass, function) ? &self(w)->bar : nullptr;
}

void changed(Widget w, MyProgressBarPart* b, int value) {
  const int before = b->value;
  b->value = value;
  keepInRange(*b);
  if (b->value != before) drawBar(w);
}

}  // namespace

void MyProgressBarSetRange(Widget w, int minimum, int maximum) {
  MyProgressBarPart* b = checked(w, "MyProgressBarSetRange");
  if (!b) return;
  b->minimum = minimum;
  b->maximum = maximum;
  keepInRange(*b);
  drawBar(w);
}

void MyProgressBarSetValue(Widget w, int value) {
  if (MyProgressBarPart* b = checked(w, "MyProgressBarSetValue")) changed(w, b, value);
}

void MyProgressBarStep(Widget w) {
  if (MyProgressBarPart* b = checked(w, "MyProgressBarStep"))
    if (b->value < b->maximum) changed(w, b, b->value + 1);
}

void MyProgressBarReset(Widget w) {
  if (MyProgressBarPart* b = checked(w, "MyProgressBarReset")) changed(w, b, b->minimum);
}

int MyProgressBarGetValue(Widget w) {
  MyProgressBarPart* b = checked(w, "MyProgressBarGetValue");
  return b ? b->value : 0;
}
