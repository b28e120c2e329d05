// Process-wide state of the running program and its end: the toolkit
// context, the options of the command line, the list of open view windows,
// and the check that ends the program when its last top-level window goes.
#pragma once

#include <X11/Intrinsic.h>

#include <cstdint>
#include <string>

extern XtAppContext appContext;
extern Widget topLevel;  // realised, never shown
extern Display* display;
extern int screen;
extern int32_t visualId;  // -1: let the display code choose
extern bool ownColormap;
extern bool useMenuBar;  // false: view windows use a popup menu
extern bool fullScreen;
extern char startDirectory[256];
extern std::string browserDirectory;
extern Pixmap appIcon;
extern volatile int32_t interruptCount;
extern std::string settingsPath;  // where the settings are read and written

// The application icon chosen at start (64x64 or 32x32) and its pixmap,
// made by the first window that asks, in that window's visual and colours.
struct IconImage;
struct ColormapRecord;
struct DisplayVisual;
extern const IconImage* appIconImage;
Pixmap AppIconPixmap(Widget widget, ColormapRecord* colormap, DisplayVisual* visual);

// One open view window, newest first.
struct ViewNode {
  Widget shell;
  ViewNode* next;
};
extern ViewNode* viewList;

void RegisterView(Widget shell);
// Prints "Error DelView: Wid not find\n" on standard error when the shell is
// not listed.
void UnregisterView(Widget shell);
bool AnyViewOpen();

// How CloseAllViews closes one view: asks about unsaved changes (and saves
// on Yes), then destroys the shell. The view windows install it; without it
// the shell is simply destroyed.
extern void (*closeViewHook)(Widget shell);

// Closes every view window in list order (asking about unsaved changes).
void CloseAllViews();
// Closes every view and the browser; the program then ends through the
// destroy callbacks.
void QuitProgram();
// Frees the icon, the colours and the tool-bar pixmaps, and exits with 0.
[[noreturn]] void ExitProgram();
// From the destroy callback of every top-level window: with no view and no
// browser left, writes the settings and ends the program.
void LastWindowClosed();

// The browser. Until it exists, opening it shows a message saying so;
// BrowserWindow is then always null.
Widget BrowserWindow();
void OpenBrowser(Widget parent, const char* directory);
// The slide show: with a slide file, the show it describes; without one,
// the slide-show dialog (tools/).
void StartSlideShow(Widget parent, const char* file);
