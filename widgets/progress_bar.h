// MyProgressBar: a sunken bar that fills from the left as a value moves
// through a range, with an optional percentage drawn over it.
#pragma once

#include <X11/Intrinsic.h>

// Resources beyond those of XmPrimitive: barColor (Pixel, the filled part),
// fontList (the percentage text), minimum, maximum, value (int) and
// showPercentage (Boolean, default False).
#define MyNbarColor "barColor"
#define MyCBarColor "BarColor"
#define MyNshowPercentage "showPercentage"
#define MyCShowPercentage "ShowPercentage"

extern WidgetClass myProgressBarWidgetClass;

Widget MyCreateProgressBar(Widget parent, const char* name, ArgList args, Cardinal count);

// Each function checks that `w` is a MyProgressBar and otherwise warns
// "<function>: widget has invalid class" through the toolkit and does nothing.
// A realised bar is redrawn at once, so progress shows even while the caller
// keeps the event loop waiting.

// Sets the range (maximum below minimum is taken as minimum) and keeps the
// value inside it.
void MyProgressBarSetRange(Widget w, int minimum, int maximum);
// Sets the value, clamped to the range.
void MyProgressBarSetValue(Widget w, int value);
// Adds one to the value (never beyond the maximum).
void MyProgressBarStep(Widget w);
// Back to the minimum.
void MyProgressBarReset(Widget w);
// The value; 0 for a widget of another class.
int MyProgressBarGetValue(Widget w);
