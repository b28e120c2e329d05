// Parts shared by Vimora's own dialogs: their shell and the button row at
// the bottom.
#pragma once

#include <X11/Intrinsic.h>

// The shell a widget belongs to (itself when it is one), or null.
Widget ShellOf(Widget widget);

// A dialog shell over the shell of `parent` (the application shell when
// null), titled `title`, that draws with the screen's default visual and
// colormap whatever its owner's are. `deleteResponse` is what the window
// manager's close does (XmUNMAP or XmDESTROY).
Widget CreateDialogShell(Widget parent, const char* name, const char* title,
                         unsigned char deleteResponse);

struct OkCancelRow {
  Widget ok, cancel;  // "buttonOK", "buttonCancel"
  Widget separator;   // "separator", just above the buttons
};

// "OK" and "Cancel" at the bottom right of `form` (OK shown as the default),
// with a separator across the form above them; the rest of the dialog is
// attached above the separator.
OkCancelRow CreateOkCancelRow(Widget form, XtCallbackProc okCB, XtCallbackProc cancelCB,
                              XtPointer data);
