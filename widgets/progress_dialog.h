// The progress dialog (shell "VmoraProgress"): a title, a text, a progress
// bar and a "Stop" button; Escape asks to stop as well. It serves the load
// with progress, the save, file operations and batch conversion. Also the
// busy (watch) cursor.
#pragma once

#include <X11/Intrinsic.h>

struct SaveHooks;

// Makes the dialog over `parent` (the application shell when null) with
// `title` and `text`, not yet shown. Returns its shell. The dialog is modal
// while shown, so the windows behind it take no input during long work.
Widget CreateProgressDialog(Widget parent, const char* title, const char* text);
// Shows the dialog and draws it before returning.
void ProgressDialogPopup(Widget dialog);
// Sets the number of steps (the bar's range) and starts again from zero.
void ProgressDialogSetTotal(Widget dialog, int total);
// Advances the bar by one step; a non-null `text` replaces the text.
void ProgressDialogAdvance(Widget dialog, const char* text = nullptr);
void ProgressDialogSetText(Widget dialog, const char* text);
// Whether "Stop" (or Escape) was pressed since the last call; reading
// clears the request.
bool ProgressDialogStopped(Widget dialog);
// Whether a stop is asked for, without clearing it.
bool ProgressDialogStopPending(Widget dialog);
// Takes the dialog down and destroys it.
void CloseProgressDialog(Widget dialog);

// Handles every event and expired time-out that is waiting, then returns
// (never blocks).
void DispatchPendingEvents();

// The codec library's progress function for the dialog made current with
// SetProgressDialog: step 0 shows it and sets the range to count + 1 unless
// a stop was already asked for; every call advances by one unless stopped,
// dispatches the pending events, and returns the stop request (1) or 0,
// clearing the request. Without a current dialog it returns 0.
int PictureProgress(int step, int count);
// Makes `dialog` (may be null) the one PictureProgress drives; returns the
// one that was current before.
Widget SetProgressDialog(Widget dialog);

// Fills the progress and busy members of save hooks: the save opens a
// progress dialog over `parent`, shows the watch cursor on it, and closes
// both afterwards.
void SetProgressSaveHooks(SaveHooks* hooks, Widget parent);

// Shows (on) or removes (off) the watch cursor on the window of `widget`'s
// shell; flushed at once.
void SetBusyCursor(Widget widget, bool on);
