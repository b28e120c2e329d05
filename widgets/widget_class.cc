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
