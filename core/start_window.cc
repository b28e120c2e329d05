// The start window: a small shell with the File, Option and Info menus,
// shown when neither a picture nor the browser is asked for.
#include <Xm/Form.h>
#include <Xm/Xm.h>

#include <cstdlib>

#include "core/app.h"
#include "core/startup.h"
#include "core/test_log.h"
#include "display/colormap.h"
#include "display/visual.h"
#include "view/view_commands.h"

namespace {

constexpr const char* kTitle = "VIMORA v1.12";

Widget startShell = nullptr;
ColormapRecord* startColormap = nullptr;

void destroyCB(Widget, XtPointer, XtPointer) {
  startShell = nullptr;
  if (startColormap) releaseColormap(startColormap);
  startColormap = nullptr;
  LastWindowClosed();
}

// Taken down by the window manager: the program ends at once.
void popdownCB(Widget, XtPointer, XtPointer) { std::exit(0); }

}  // namespace

Widget StartWindow() { return startShell; }

void OpenStartWindow() {
  if (startShell) return;
  startShell =
      XtVaCreatePopupShell("VmoraInit", topLevelShellWidgetClass, topLevel, XmNtitle, kTitle,
                           XmNiconName, kTitle, XmNdeleteResponse, XmDESTROY, nullptr);
  XtAddCallback(startShell, XmNdestroyCallback, destroyCB, nullptr);
  XtAddCallback(startShell, XmNpopdownCallback, popdownCB, nullptr);
  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, startShell, XmNwidth, 190, XmNheight,
                                 35, nullptr);
  static const MenuRecord* const kMenus[] = {&MenuFile, &MenuOption, &MenuInfo};
  Widget bar = CreateMenus(form, "menu1", kMenus, 3, false, startShell);
  XtVaSetValues(bar, XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
                XmNrightAttachment, XmATTACH_FORM, nullptr);
  XtManageChild(form);
  XtRealizeWidget(startShell);
  DisplayVisual visual;
  chooseVisual(display, 0, &visual);
  ImageRecord none{};
  startColormap = acquireColormap(display, none, visual, false);
  if (Pixmap icon = AppIconPixmap(startShell, startColormap, &visual))
    XtVaSetValues(startShell, XmNiconPixmap, icon, nullptr);
  XtPopup(startShell, XtGrabNone);
  TestLog("start window %#lx", XtWindow(startShell));
}
