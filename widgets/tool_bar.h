// Tool bars (a row of pixmap buttons made from a table) and bubble help: a
// small yellow text near the pointer after it has rested on a widget.
#pragma once

#include <X11/Intrinsic.h>

#include <vector>

struct ToolBarItem {
  const char* name;  // the button's widget name, passed to `activate` as client data
  const char* help;  // the bubble text (null: none)
};

// A horizontal row "name" of push buttons on `parent`, one per item, with
// bubble help; the caller sets their pixmaps. `buttons` (may be null)
// receives the buttons in table order. The row is not managed.
Widget CreateToolBar(Widget parent, const char* name, const ToolBarItem* items, int count,
                     XtCallbackProc activate, std::vector<Widget>* buttons);

// How long the pointer rests on a widget before its bubble shows.
constexpr unsigned long kBubbleDelay = 600;

// Gives `widget` a bubble with `text` (copied). Push buttons get it through
// their translations (DoBubble on enter and leave, their own Enter and Leave
// kept); other widgets through event handlers. The bubble's label is named
// "ButtonBubbleText" for tool-bar buttons and "BubbleText" otherwise.
void AddBubbleHelp(Widget widget, const char* text, bool toolButton = false);

// The action procedure "DoBubble(enter)" / "DoBubble(leave)": starts the
// time-out of the widget's bubble, or hides the bubble and stops it. Any
// other parameter count does nothing.
void DoBubble(Widget widget, XEvent* event, String* params, Cardinal* count);

// Hides the bubble now (pressing a button, closing a window).
void HideBubble();
