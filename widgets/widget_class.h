// The class check at the top of every public function of Vimora's own
// widgets.
#pragma once

#include <X11/Intrinsic.h>
#include <Xm/PrimitiveP.h>

// True when `widget` is of class `widgetClass` or a subclass of it. Otherwise
// warns "<function>: widget has invalid class" through the toolkit's warning
// handler (a null widget included) and returns false.
bool MyCheckClass(Widget widget, WidgetClass widgetClass, const char* function);

// The class record of a widget class made directly under XmPrimitive, and
// the methods such a class brings (the rest is inherited or left empty).
struct MyPrimitiveClassRec {
  CoreClassPart core_class;
  XmPrimitiveClassPart primitive_class;
};
struct MyPrimitiveMethods {
  XtInitProc initialize;
  XtWidgetProc destroy;
  XtWidgetProc resize;
  XtExposeProc expose;
  XtSetValuesFunc setValues;
  XtGeometryHandler queryGeometry;
};
MyPrimitiveClassRec MyPrimitiveClass(const char* className, Cardinal widgetSize,
                                     XtResourceList resources, Cardinal resourceCount,
                                     const MyPrimitiveMethods& methods);
