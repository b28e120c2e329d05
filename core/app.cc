// The running program's shared state, the list of view windows and the end
// of the program.
#include "core/app.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "core/settings.h"
#include "core/test_log.h"
#include "display/colormap.h"
#include "display/icons.h"
#include "widgets/message_box.h"

XtAppContext appContext = nullptr;
Widget topLevel = nullptr;
Display* display = nullptr;
int screen = 0;
int32_t visualId = -1;
bool ownColormap = false;
bool useMenuBar = true;
bool fullScreen = false;
char startDirectory[256] = "";
std::string browserDirectory;
Pixmap appIcon = None;
volatile int32_t interruptCount = 0;
std::string settingsPath;
const IconImage* appIconImage = nullptr;
ViewNode* viewList = nullptr;
void (*closeViewHook)(Widget shell) = nullptr;

Pixmap AppIconPixmap(Widget widget, ColormapRecord* colormap, DisplayVisual* visual) {
  if (appIcon == None && appIconImage)
    appIcon = iconToPixmap(widget, *appIconImage, 0, 0, colormap, visual);
  return appIcon;
}

void RegisterView(Widget shell) { viewList = new ViewNode{shell, viewList}; }

void UnregisterView(Widget shell) {
  for (ViewNode** link = &viewList; *link; link = &(*link)->next) {
    if ((*link)->shell == shell) {
      ViewNode* node = *link;
      *link = node->next;
      delete node;
      return;
    }
  }
  std::fprintf(stderr, "Error DelView: Wid not find\n");
}

bool AnyViewOpen() { return viewList != nullptr; }

void CloseAllViews() {
  // The destroy callbacks unregister the views (at once, or at the end of
  // the current dispatch when called from a callback), so walk a copy.
  std::vector<Widget> shells;
  for (ViewNode* node = viewList; node; node = node->next) shells.push_back(node->shell);
  for (Widget shell : shells) {
    if (closeViewHook)
      closeViewHook(shell);
    else
      XtDestroyWidget(shell);
  }
}

void QuitProgram() {
  CloseAllViews();
  if (Widget browser = BrowserWindow()) XtDestroyWidget(browser);
}

void ExitProgram() {
  if (appIcon != None && display) XFreePixmap(display, appIcon);
  appIcon = None;
  freeAllColormaps();
  if (display) freeToolBarPixmaps(display);
  TestLog("exit");
  std::exit(0);
}

void LastWindowClosed() {
  if (AnyViewOpen() || BrowserWindow()) return;
  WriteSettings(settingsPath.empty() ? DefaultSettingsPath() : settingsPath);
  TestLog("settings written");
  ExitProgram();
}

Widget BrowserWindow() { return nullptr; }

void OpenBrowser(Widget parent, const char* directory) {
  TestLog("browser %s", directory ? directory : "");
  ShowMessage(parent, "Browser", "The browser is not available yet.");
}
