// Tool bars and bubble help. One bubble exists at a time: an override-redirect
// shell on the hovered widget's shell (same visual and colormap) holding one
// label, destroyed when the pointer leaves or a button is pressed.
#include "widgets/tool_bar.h"

#include <Xm/Label.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <map>
#include <string>

#include "core/test_log.h"
#include "widgets/dialog_parts.h"

namespace {

struct BubbleHelp {
  std::string text;
  bool toolButton;
};

// Every widget with bubble help; entries go with their widgets.
std::map<Widget, BubbleHelp> helpTexts;

struct {
  Widget target = nullptr;  // the widget the pointer rests on
  XtIntervalId timer = 0;
  Widget shell = nullptr;  // the bubble shown, if any
} bubble;

void bubbleGoneCB(Widget w, XtPointer, XtPointer) {
  if (bubble.shell == w) bubble.shell = nullptr;
}

void bubbleTimeout(XtPointer, XtIntervalId*) {
  bubble.timer = 0;
  Widget target = bubble.target;
  auto entry = helpTexts.find(target);
  if (!target || entry == helpTexts.end() || !XtIsRealized(target)) return;
  // Only when the pointer is still over the widget (a Leave can be lost to
  // a grab or an insensitive widget).
  Display* dpy = XtDisplay(target);
  Window root, child;
  int rootX, rootY, x, y;
  unsigned int mask;
  if (!XQueryPointer(dpy, XtWindow(target), &root, &child, &rootX, &rootY, &x, &y, &mask)) return;
  Dimension width = 0, height = 0;
  XtVaGetValues(target, XmNwidth, &width, XmNheight, &height, nullptr);
  if (x < 0 || y < 0 || x >= width || y >= height) return;

  Widget owner = ShellOf(target);
  Visual* visual = nullptr;
  Colormap colormap = 0;
  int depth = 0;
  XtVaGetValues(owner, XmNvisual, &visual, XmNcolormap, &colormap, XmNdepth, &depth, nullptr);
  Arg args[5];
  Cardinal n = 0;
  if (visual) XtSetArg(args[n], XmNvisual, visual), ++n;
  XtSetArg(args[n], XmNcolormap, colormap), ++n;
  XtSetArg(args[n], XmNdepth, depth), ++n;
  XtSetArg(args[n], XmNborderWidth, 1), ++n;
  bubble.shell = XtCreatePopupShell("bubble", overrideShellWidgetClass, owner, args, n);
  // The bubble goes with the window it belongs to.
  XtAddCallback(bubble.shell, XmNdestroyCallback, bubbleGoneCB, nullptr);
  XmString s = XmStringCreateLocalized(const_cast<char*>(entry->second.text.c_str()));
  XtVaCreateManagedWidget(entry->second.toolButton ? "ButtonBubbleText" : "BubbleText",
                          xmLabelWidgetClass, bubble.shell, XmNlabelString, s, XmNmarginWidth, 3,
                          nullptr);
  XmStringFree(s);
  XtRealizeWidget(bubble.shell);
  // Below and right of the pointer, kept on the screen.
  Screen* screen = XtScreen(owner);
  Dimension shellWidth = 0, shellHeight = 0;
  XtVaGetValues(bubble.shell, XmNwidth, &shellWidth, XmNheight, &shellHeight, nullptr);
  const int w = shellWidth + 2, h = shellHeight + 2;
  int bx = rootX + 8, by = rootY + 20;
  if (bx + w > WidthOfScreen(screen)) bx = std::max(0, WidthOfScreen(screen) - w);
  if (by + h > HeightOfScreen(screen)) by = std::max(0, rootY - 4 - h);
  XtVaSetValues(bubble.shell, XmNx, bx, XmNy, by, nullptr);
  XtPopup(bubble.shell, XtGrabNone);
  TestLog("bubble %#lx %s", XtWindow(bubble.shell), entry->second.text.c_str());
}

void startBubble(Widget w) {
  HideBubble();
  bubble.target = w;
  bubble.timer =
      XtAppAddTimeOut(XtWidgetToApplicationContext(w), kBubbleDelay, bubbleTimeout, nullptr);
}

void enterLeaveHandler(Widget w, XtPointer, XEvent* event, Boolean*) {
  if (event->type == EnterNotify)
    startBubble(w);
  else
    HideBubble();
}

void pressHandler(Widget, XtPointer, XEvent*, Boolean*) { HideBubble(); }

void forgetCB(Widget w, XtPointer, XtPointer) {
  if (bubble.target == w) HideBubble();
  helpTexts.erase(w);
}

}  // namespace

void HideBubble() {
  if (bubble.timer) XtRemoveTimeOut(bubble.timer);
  bubble.timer = 0;
  bubble.target = nullptr;
  if (bubble.shell) {
    XtDestroyWidget(bubble.shell);
    bubble.shell = nullptr;
    TestLog("bubble hidden");
  }
}

void DoBubble(Widget widget, XEvent*, String* params, Cardinal* count) {
  if (*count != 1) return;
  if (std::string(params[0]) == "enter")
    startBubble(widget);
  else if (std::string(params[0]) == "leave")
    HideBubble();
}

void AddBubbleHelp(Widget widget, const char* text, bool toolButton) {
  if (!widget || !text) return;
  const bool known = helpTexts.count(widget) != 0;
  helpTexts[widget] = BubbleHelp{text, toolButton};
  if (known) return;
  XtAddCallback(widget, XmNdestroyCallback, forgetCB, nullptr);
  XtAddEventHandler(widget, ButtonPressMask, False, pressHandler, nullptr);
  if (XtIsSubclass(widget, xmPushButtonWidgetClass)) {
    static XtTranslations translations = XtParseTranslationTable(
        "<EnterWindow>: Enter() DoBubble(enter)\n"
        "<LeaveWindow>: Leave() DoBubble(leave)\n");
    XtOverrideTranslations(widget, translations);
  } else {
    XtAddEventHandler(widget, EnterWindowMask | LeaveWindowMask, False, enterLeaveHandler, nullptr);
  }
}

Widget CreateToolBar(Widget parent, const char* name, const ToolBarItem* items, int count,
                     XtCallbackProc activate, std::vector<Widget>* buttons) {
  Widget bar = XtVaCreateWidget(name, xmRowColumnWidgetClass, parent, XmNorientation, XmHORIZONTAL,
                                XmNpacking, XmPACK_TIGHT, XmNspacing, 0, XmNmarginHeight, 1,
                                XmNmarginWidth, 1, nullptr);
  for (int i = 0; i < count; ++i) {
    const ToolBarItem& item = items[i];
    Widget button = XtVaCreateManagedWidget(item.name, xmPushButtonWidgetClass, bar, XmNlabelType,
                                            XmPIXMAP, XmNtraversalOn, False, nullptr);
    if (activate)
      XtAddCallback(button, XmNactivateCallback, activate, const_cast<char*>(item.name));
    AddBubbleHelp(button, item.help, true);
    if (buttons) buttons->push_back(button);
  }
  return bar;
}
