// MyComboBox: a text field with an arrow button that drops a list of choices
// in an override shell below it. Editable combo boxes take typed text;
// non-editable ones show only the chosen item. Keys in the text field: Up
// and Down step through the items, Alt+Down (or the arrow) drops the list,
// Return accepts. In the dropped list: Return or a click chooses, Escape
// closes it.
//
// Resources (besides those of XmForm):
//   arrowColor (Pixel)        the arrow's colour
//   fontList (XmFontList)     font of the text field and the list
//   editable (Boolean)        whether text can be typed (default True)
//   visibleItemCount (int)    rows of the dropped list (default 8)
//   selectionCallback         called with a MyComboBoxCallbackStruct when an
//                             item is chosen or typed text is accepted
#pragma once

#include <X11/Intrinsic.h>

#include <string>

extern WidgetClass myComboBoxWidgetClass;

#define MyNarrowColor "arrowColor"
#define MyCArrowColor "ArrowColor"

struct MyComboBoxCallbackStruct {
  int reason;     // XmCR_SINGLE_SELECT (item chosen) or XmCR_ACTIVATE (Return)
  XEvent* event;  // may be null
  int position;   // chosen item counted from 0; -1 when the text is no item
  const char* text;
};

// Every function checks its widget and warns "<Function>: widget has invalid
// class" when it is not a MyComboBox; the call then does nothing (returns -1,
// 0 or "" as fits).
Widget MyComboBoxCreate(Widget parent, const char* name, ArgList args, Cardinal count);
// Inserts an item at `position` (-1 or past the end: appends).
void MyComboBoxAddItem(Widget combo, const char* text, int position);
void MyComboBoxDeleteAllItems(Widget combo);
int MyComboBoxGetItemCount(Widget combo);
std::string MyComboBoxGetItem(Widget combo, int position);
// Shows item `position` in the text field and makes it the selection; with
// `notify` the selection callback runs as after a choice.
void MyComboBoxSelectPos(Widget combo, int position, bool notify);
int MyComboBoxGetSelectedPos(Widget combo);
// Replaces the text (the selection becomes the item of that text, if any).
void MyComboBoxSetText(Widget combo, const char* text);
std::string MyComboBoxGetText(Widget combo);
// Drops or closes the list.
void MyComboBoxShowList(Widget combo, bool show);
bool MyComboBoxListShown(Widget combo);
// The text field, e.g. to give it the keyboard focus.
Widget MyComboBoxGetTextField(Widget combo);
