// The button row at the bottom of Vimora's own dialogs.
#pragma once

#include <X11/Intrinsic.h>

struct OkCancelRow {
  Widget ok, cancel;  // "buttonOK", "buttonCancel"
  Widget separator;   // "separator", just above the buttons
};

// "OK" and "Cancel" at the bottom right of `form` (OK shown as the default),
// with a separator across the form above them; the rest of the dialog is
// attached above the separator.
OkCancelRow CreateOkCancelRow(Widget form, XtCallbackProc okCB, XtCallbackProc cancelCB,
                              XtPointer data);
