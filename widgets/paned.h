// A two-pane split with a movable sash between the panes.
#pragma once

#include <X11/Intrinsic.h>

// Makes a paned window `name` on `parent` holding two forms, "pane1" and
// "pane2", side by side (`sideBySide`) or one above the other, with a sash
// between them that the user drags. The first pane starts `firstSize` pixels
// wide (or high); neither pane can be dragged below `minimum` pixels. The
// caller fills the forms; the paned window is managed, the forms too.
Widget CreatePanedPair(Widget parent, const char* name, bool sideBySide, int firstSize, int minimum,
                       Widget* first, Widget* second);
