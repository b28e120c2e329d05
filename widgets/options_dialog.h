// The options dialog: a category list and one page of controls per group of
// settings, built from the option rows.
#pragma once

#include <X11/Intrinsic.h>

// Opens the dialog over `parent` (the application shell when null) on page
// `category` (0 Start .. 10 Convert; 3 is the browser's page), or raises
// the open one and turns it to that page. OK copies every control into
// gSettings (kept for the settings file written at exit); Cancel, Escape
// and closing the window change nothing. The dialog is destroyed on close.
void OpenOptionsDialog(Widget parent, int category);
