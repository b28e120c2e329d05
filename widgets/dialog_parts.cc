#include "widgets/dialog_parts.h"

#include <Xm/DialogS.h>
#include <Xm/PushB.h>
#include <Xm/Separator.h>
#include <Xm/Xm.h>

#include "core/app.h"

Widget ShellOf(Widget w) {
  while (w && !XtIsShell(w)) w = XtParent(w);
  return w;
}

Widget CreateDialogShell(Widget parent, const char* name, const char* title,
                         unsigned char deleteResponse) {
  Widget owner = ShellOf(parent ? parent : topLevel);
  Screen* screen = XtScreen(owner);
  Arg args[6];
  Cardinal n = 0;
  XtSetArg(args[n], XmNtitle, title), ++n;
  XtSetArg(args[n], XmNdeleteResponse, deleteResponse), ++n;
  XtSetArg(args[n], XmNvisual, DefaultVisualOfScreen(screen)), ++n;
  XtSetArg(args[n], XmNdepth, DefaultDepthOfScreen(screen)), ++n;
  XtSetArg(args[n], XmNcolormap, DefaultColormapOfScreen(screen)), ++n;
  XtSetArg(args[n], XmNallowShellResize, True), ++n;
  return XmCreateDialogShell(owner, const_cast<char*>(name), args, n);
}

OkCancelRow CreateOkCancelRow(Widget form, XtCallbackProc okCB, XtCallbackProc cancelCB,
                              XtPointer data) {
  OkCancelRow row;
  XmString ok = XmStringCreateLocalized(const_cast<char*>("OK"));
  XmString cancel = XmStringCreateLocalized(const_cast<char*>("Cancel"));
  row.cancel = XtVaCreateManagedWidget("buttonCancel", xmPushButtonWidgetClass, form,
                                       XmNlabelString, cancel, XmNwidth, 90, XmNrightAttachment,
                                       XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM, nullptr);
  row.ok = XtVaCreateManagedWidget(
      "buttonOK", xmPushButtonWidgetClass, form, XmNlabelString, ok, XmNwidth, 90,
      XmNrightAttachment, XmATTACH_WIDGET, XmNrightWidget, row.cancel, XmNrightOffset, 8,
      XmNbottomAttachment, XmATTACH_FORM, XmNshowAsDefault, 1, nullptr);
  XmStringFree(ok);
  XmStringFree(cancel);
  XtAddCallback(row.ok, XmNactivateCallback, okCB, data);
  XtAddCallback(row.cancel, XmNactivateCallback, cancelCB, data);
  row.separator = XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, form,
                                          XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                                          XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET,
                                          XmNbottomWidget, row.ok, XmNbottomOffset, 8, nullptr);
  return row;
}
