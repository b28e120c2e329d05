// MyStatusBar: one or more sunken text fields side by side along the bottom
// of a window (the view window's information line, the browser's status).
#pragma once

#include <X11/Intrinsic.h>

// Resources beyond those of XmPrimitive: fontList and fieldCount (int, at
// least 1, default 1). Fields without a fixed width share the width left
// over by those with one.
#define MyNfieldCount "fieldCount"
#define MyCFieldCount "FieldCount"

extern WidgetClass myStatusBarWidgetClass;

Widget MyCreateStatusBar(Widget parent, const char* name, ArgList args, Cardinal count);

// Each function checks that `w` is a MyStatusBar and otherwise warns
// "<function>: widget has invalid class" through the toolkit and does
// nothing. A field number outside 0..count-1 is ignored with a warning.

// Replaces the text of one field and redraws that field.
void MyStatusBarSetText(Widget w, int field, const char* text);
// The text of one field ("" when there is none, or for a bad widget/field).
// Valid until the field is next changed.
const char* MyStatusBarGetText(Widget w, int field);
// Changes the number of fields (at least 1); texts of fields that remain are
// kept.
void MyStatusBarSetFieldCount(Widget w, int count);
int MyStatusBarGetFieldCount(Widget w);
// Fixes a field's width in pixels; 0 lets it share the free width.
void MyStatusBarSetFieldWidth(Widget w, int field, int width);
