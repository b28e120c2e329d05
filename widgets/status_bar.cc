// The MyStatusBar widget class, a subclass of XmPrimitive written with the
// toolkit's class-record machinery. The texts live in a C++ structure that
// the instance record points to (Xt does not construct instance records).
#include "widgets/status_bar.h"

#include <Xm/DrawP.h>
#include <Xm/PrimitiveP.h>
#include <Xm/XmP.h>

#include <algorithm>
#include <string>
#include <vector>

#include "widgets/widget_class.h"

namespace {

struct Fields {
  std::vector<std::string> texts;
  std::vector<int> widths;  // 0: shares the free width
};

struct MyStatusBarPart {
  XmFontList fontList;
  int fieldCount;
  Fields* fields;
  GC textGC;
};

struct MyStatusBarRec {
  CorePart core;
  XmPrimitivePart primitive;
  MyStatusBarPart status;
};

using MyStatusBarWidget = MyStatusBarRec*;

#define OFFSET(field) XtOffsetOf(MyStatusBarRec, status.field)
XtResource resources[] = {
    {const_cast<char*>(XmNfontList), const_cast<char*>(XmCFontList), const_cast<char*>(XmRFontList),
     sizeof(XmFontList), OFFSET(fontList), const_cast<char*>(XmRImmediate), nullptr},
    {const_cast<char*>(MyNfieldCount), const_cast<char*>(MyCFieldCount), const_cast<char*>(XmRInt),
     sizeof(int), OFFSET(fieldCount), const_cast<char*>(XmRImmediate),
     reinterpret_cast<XtPointer>(1)},
    {const_cast<char*>(XmNtraversalOn), const_cast<char*>(XmCTraversalOn),
     const_cast<char*>(XmRBoolean), sizeof(Boolean),
     XtOffsetOf(MyStatusBarRec, primitive.traversal_on), const_cast<char*>(XmRImmediate),
     reinterpret_cast<XtPointer>(False)},
    {const_cast<char*>(XmNshadowThickness), const_cast<char*>(XmCShadowThickness),
     const_cast<char*>(XmRHorizontalDimension), sizeof(Dimension),
     XtOffsetOf(MyStatusBarRec, primitive.shadow_thickness), const_cast<char*>(XmRImmediate),
     reinterpret_cast<XtPointer>(1)},
};
#undef OFFSET

constexpr int kMargin = 3;  // between a field's shadow and its text
constexpr int kGap = 2;     // between two fields

MyStatusBarWidget self(Widget w) { return reinterpret_cast<MyStatusBarWidget>(w); }

void makeGC(Widget w) {
  XGCValues values;
  values.foreground = self(w)->primitive.foreground;
  values.background = w->core.background_pixel;
  // XmStringDraw sets the font and the clip itself.
  self(w)->status.textGC = XtAllocateGC(w, 0, GCForeground | GCBackground, &values,
                                        GCFont | GCClipMask | GCClipXOrigin | GCClipYOrigin, 0);
}

int textHeight(Widget w) {
  XmString s = XmStringCreateLocalized(const_cast<char*>("Ag"));
  Dimension width = 0, height = 0;
  XmStringExtent(self(w)->status.fontList, s, &width, &height);
  XmStringFree(s);
  return height;
}

int preferredHeight(Widget w) {
  const XmPrimitivePart& p = self(w)->primitive;
  return textHeight(w) + 2 * (p.highlight_thickness + p.shadow_thickness + kMargin);
}

void resizeFields(Fields& f, int count) {
  count = std::max(1, count);
  f.texts.resize(static_cast<size_t>(count));
  f.widths.resize(static_cast<size_t>(count), 0);
}

void initialize(Widget, Widget w, ArgList, Cardinal*) {
  MyStatusBarPart& s = self(w)->status;
  s.fontList =
      XmFontListCopy(s.fontList ? s.fontList : XmeGetDefaultRenderTable(w, XmLABEL_FONTLIST));
  s.fields = new Fields;
  resizeFields(*s.fields, s.fieldCount);
  s.fieldCount = static_cast<int>(s.fields->texts.size());
  if (w->core.width == 0) w->core.width = 200;
  if (w->core.height == 0) w->core.height = static_cast<Dimension>(preferredHeight(w));
  makeGC(w);
}

void destroy(Widget w) {
  MyStatusBarPart& s = self(w)->status;
  XtReleaseGC(w, s.textGC);
  XmFontListFree(s.fontList);
  delete s.fields;
}

// Left edge and width of field `i`, shadow included.
void fieldBox(Widget w, int i, int* x, int* width) {
  const Fields& f = *self(w)->status.fields;
  const int edge = self(w)->primitive.highlight_thickness;
  const int count = static_cast<int>(f.widths.size());
  int fixed = 0, sharing = 0;
  for (int fw : f.widths) {
    if (fw > 0)
      fixed += fw;
    else
      ++sharing;
  }
  const int total = std::max(0, static_cast<int>(w->core.width) - 2 * edge - kGap * (count - 1));
  const int share = sharing ? std::max(0, total - fixed) / sharing : 0;
  int left = edge;
  for (int k = 0; k < i; ++k) left += (f.widths[k] > 0 ? f.widths[k] : share) + kGap;
  *x = left;
  *width = f.widths[static_cast<size_t>(i)] > 0 ? f.widths[static_cast<size_t>(i)] : share;
  // The last field reaches the right edge whatever the rounding left over.
  if (i == count - 1) *width = std::max(0, static_cast<int>(w->core.width) - edge - left);
}

void drawField(Widget w, int i, bool clearFirst) {
  if (!XtIsRealized(w)) return;
  MyStatusBarWidget sb = self(w);
  const int ht = sb->primitive.highlight_thickness, st = sb->primitive.shadow_thickness;
  const int height = static_cast<int>(w->core.height) - 2 * ht;
  int x, width;
  fieldBox(w, i, &x, &width);
  if (width <= 2 * st || height <= 2 * st) return;
  Display* dpy = XtDisplay(w);
  Window win = XtWindow(w);
  const int innerX = x + st, innerY = ht + st;
  const int innerW = width - 2 * st, innerH = height - 2 * st;
  if (clearFirst)
    XClearArea(dpy, win, innerX, innerY, static_cast<unsigned>(innerW),
               static_cast<unsigned>(innerH), False);
  XmeDrawShadows(dpy, win, sb->primitive.top_shadow_GC, sb->primitive.bottom_shadow_GC,
                 static_cast<Position>(x), static_cast<Position>(ht), static_cast<Dimension>(width),
                 static_cast<Dimension>(height), static_cast<Dimension>(st), XmSHADOW_IN);
  const std::string& text = sb->status.fields->texts[static_cast<size_t>(i)];
  if (text.empty()) return;
  XmString s = XmStringCreateLocalized(const_cast<char*>(text.c_str()));
  XRectangle clip = {static_cast<short>(innerX), static_cast<short>(innerY),
                     static_cast<unsigned short>(innerW), static_cast<unsigned short>(innerH)};
  const int y = innerY + std::max(0, (innerH - textHeight(w)) / 2);
  XmStringDraw(dpy, win, sb->status.fontList, s, sb->status.textGC,
               static_cast<Position>(innerX + kMargin), static_cast<Position>(y),
               static_cast<Dimension>(std::max(1, innerW - 2 * kMargin)), XmALIGNMENT_BEGINNING,
               XmSTRING_DIRECTION_L_TO_R, &clip);
  XmStringFree(s);
}

void expose(Widget w, XEvent*, Region) {
  const int count = static_cast<int>(self(w)->status.fields->texts.size());
  for (int i = 0; i < count; ++i) drawField(w, i, false);
}

void resize(Widget w) {
  if (XtIsRealized(w)) XClearArea(XtDisplay(w), XtWindow(w), 0, 0, 0, 0, True);
}

Boolean setValues(Widget old, Widget, Widget w, ArgList, Cardinal*) {
  MyStatusBarPart& o = self(old)->status;
  MyStatusBarPart& s = self(w)->status;
  bool redraw = false;
  if (s.fontList != o.fontList) {
    XmFontListFree(o.fontList);
    s.fontList =
        XmFontListCopy(s.fontList ? s.fontList : XmeGetDefaultRenderTable(w, XmLABEL_FONTLIST));
    redraw = true;
  }
  if (s.fieldCount != o.fieldCount) {
    resizeFields(*s.fields, s.fieldCount);
    s.fieldCount = static_cast<int>(s.fields->texts.size());
    redraw = true;
  }
  if (self(w)->primitive.foreground != self(old)->primitive.foreground ||
      w->core.background_pixel != old->core.background_pixel) {
    XtReleaseGC(old, o.textGC);
    makeGC(w);
    redraw = true;
  }
  return redraw;
}

XtGeometryResult queryGeometry(Widget w, XtWidgetGeometry* request, XtWidgetGeometry* reply) {
  reply->request_mode = CWHeight;
  reply->height = static_cast<Dimension>(preferredHeight(w));
  if ((request->request_mode & CWHeight) && request->height == reply->height) return XtGeometryYes;
  if (reply->height == w->core.height) return XtGeometryNo;
  return XtGeometryAlmost;
}

}  // namespace

static MyPrimitiveClassRec myStatusBarClassRec =
    MyPrimitiveClass("MyStatusBar", sizeof(MyStatusBarRec), resources, XtNumber(resources),
                     {initialize, destroy, resize, expose, setValues, queryGeometry});

WidgetClass myStatusBarWidgetClass = reinterpret_cast<WidgetClass>(&myStatusBarClassRec);

Widget MyCreateStatusBar(Widget parent, const char* name, ArgList args, Cardinal count) {
  return XtCreateWidget(name, myStatusBarWidgetClass, parent, args, count);
}

namespace {

// The widget's fields, or null (with the class warning given).
Fields* checked(Widget w, const char* function) {
  return MyCheckClass(w, myStatusBarWidgetClass, function) ? self(w)->status.fields : nullptr;
}

bool fieldInRange(Widget w, const Fields& f, int field, const char* function) {
  if (field >= 0 && field < static_cast<int>(f.texts.size())) return true;
  const std::string text = std::string(function) + ": field out of range";
  XtAppWarning(XtWidgetToApplicationContext(w), text.c_str());
  return false;
}

}  // namespace

void MyStatusBarSetText(Widget w, int field, const char* text) {
  Fields* f = checked(w, "MyStatusBarSetText");
  if (!f || !fieldInRange(w, *f, field, "MyStatusBarSetText")) return;
  f->texts[static_cast<size_t>(field)] = text ? text : "";
  drawField(w, field, true);
}

const char* MyStatusBarGetText(Widget w, int field) {
  Fields* f = checked(w, "MyStatusBarGetText");
  if (!f || !fieldInRange(w, *f, field, "MyStatusBarGetText")) return "";
  return f->texts[static_cast<size_t>(field)].c_str();
}

void MyStatusBarSetFieldCount(Widget w, int count) {
  Fields* f = checked(w, "MyStatusBarSetFieldCount");
  if (!f) return;
  resizeFields(*f, count);
  self(w)->status.fieldCount = static_cast<int>(f->texts.size());
  resize(w);
}

int MyStatusBarGetFieldCount(Widget w) {
  Fields* f = checked(w, "MyStatusBarGetFieldCount");
  return f ? static_cast<int>(f->texts.size()) : 0;
}

void MyStatusBarSetFieldWidth(Widget w, int field, int width) {
  Fields* f = checked(w, "MyStatusBarSetFieldWidth");
  if (!f || !fieldInRange(w, *f, field, "MyStatusBarSetFieldWidth")) return;
  f->widths[static_cast<size_t>(field)] = std::max(0, width);
  resize(w);
}
