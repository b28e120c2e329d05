// Small modal dialogs shared by every window: an information or error
// message and a Yes/No question.
#pragma once

#include <X11/Intrinsic.h>

// Shows `text` in a message dialog over `parent` (the application shell when
// null) with an "OK" button; returns at once.
void ShowMessage(Widget parent, const char* title, const char* text, bool error = false);

// Asks `text` with "Yes" and "No" buttons and waits for the answer in a local
// event loop. Closing the dialog counts as No.
bool AskYesNo(Widget parent, const char* title, const char* text);
