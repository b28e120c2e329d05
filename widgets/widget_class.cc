#include "widgets/widget_class.h"

#include <string>

bool MyCheckClass(Widget widget, WidgetClass widgetClass, const char* function) {
  if (widget && XtIsSubclass(widget, widgetClass)) return true;
  const std::string text = std::string(function) + ": widget has invalid class";
  if (widget)
    XtAppWarning(XtWidgetToApplicationContext(widget), text.c_str());
  else
    XtWarning(text.c_str());
  return false;
}

MyPrimitiveClassRec MyPrimitiveClass(const char* className, Cardinal widgetSize,
                                     XtResourceList resources, Cardinal resourceCount,
                                     const MyPrimitiveMethods& m) {
  MyPrimitiveClassRec r{};
  CoreClassPart& c = r.core_class;
  c.superclass = reinterpret_cast<WidgetClass>(&xmPrimitiveClassRec);
  c.class_name = const_cast<char*>(className);
  c.widget_size = widgetSize;
  c.class_inited = False;
  c.initialize = m.initialize;
  c.realize = XtInheritRealize;
  c.resources = resources;
  c.num_resources = resourceCount;
  c.xrm_class = NULLQUARK;
  c.compress_motion = True;
  c.compress_exposure = XtExposeCompressMaximal;
  c.compress_enterleave = True;
  c.visible_interest = False;
  c.destroy = m.destroy;
  c.resize = m.resize;
  c.expose = m.expose;
  c.set_values = m.setValues;
  c.set_values_almost = XtInheritSetValuesAlmost;
  c.version = XtVersion;
  c.tm_table = XtInheritTranslations;
  c.query_geometry = m.queryGeometry;
  XmPrimitiveClassPart& p = r.primitive_class;
  p.border_highlight = XmInheritBorderHighlight;
  p.border_unhighlight = XmInheritBorderUnhighlight;
  p.translations = XtInheritTranslations;
  return r;
}
