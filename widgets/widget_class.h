// The class check at the top of every public function of Vimora's own
// widgets.
#pragma once

#include <X11/Intrinsic.h>

// True when `widget` is of class `widgetClass` or a subclass of it. Otherwise
// warns "<function>: widget has invalid class" through the toolkit's warning
// handler (a null widget included) and returns false.
bool MyCheckClass(Widget widget, WidgetClass widgetClass, const char* function);
