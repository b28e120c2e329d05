// The progress dialog, the codec library's progress function and the busy
// cursor.
#include "widgets/progress_dialog.h"

#include <X11/cursorfont.h>
#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Label.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/Xm.h>

#include "core/app.h"
#include "core/save.h"
#include "core/test_log.h"
#include "widgets/dialog_parts.h"
#include "widgets/progress_bar.h"

namespace {

struct ProgressState {
  Widget shell, form, label, bar;
  bool stop = false;
};

// The dialog PictureProgress drives.
Widget currentDialog = nullptr;

ProgressState* stateOf(Widget dialog) {
  if (!dialog) return nullptr;
  Widget form = XtNameToWidget(dialog, "form");
  if (!form) return nullptr;
  XtPointer data = nullptr;
  XtVaGetValues(form, XmNuserData, &data, nullptr);
  return static_cast<ProgressState*>(data);
}

void stopCB(Widget, XtPointer data, XtPointer) {
  static_cast<ProgressState*>(data)->stop = true;
  TestLog("progress stop");
}

void destroyCB(Widget shell, XtPointer data, XtPointer) {
  // A dialog destroyed with its parent while a load runs: the load stops.
  if (currentDialog == shell) currentDialog = nullptr;
  delete static_cast<ProgressState*>(data);
}

void setLabel(ProgressState* s, const char* text) {
  XmString string = XmStringCreateLtoR(const_cast<char*>(text), XmFONTLIST_DEFAULT_TAG);
  XtVaSetValues(s->label, XmNlabelString, string, nullptr);
  XmStringFree(string);
}

}  // namespace

Widget CreateProgressDialog(Widget parent, const char* title, const char* text) {
  Widget owner = ShellOf(parent ? parent : topLevel);
  // The dialog lives in its owner's visual and colormap (a view window may
  // use another visual than the screen's default).
  Visual* visual = nullptr;
  Colormap colormap = 0;
  int depth = 0;
  XtVaGetValues(owner, XmNvisual, &visual, XmNcolormap, &colormap, XmNdepth, &depth, nullptr);
  Arg args[8];
  Cardinal n = 0;
  if (visual) XtSetArg(args[n], XmNvisual, visual), ++n;
  XtSetArg(args[n], XmNcolormap, colormap), ++n;
  XtSetArg(args[n], XmNdepth, depth), ++n;
  XtSetArg(args[n], XmNtitle, title), ++n;
  XtSetArg(args[n], XmNdeleteResponse, XmDO_NOTHING), ++n;
  XtSetArg(args[n], XmNallowShellResize, True), ++n;
  Widget shell = XtCreatePopupShell("VmoraProgress", xmDialogShellWidgetClass, owner, args, n);

  ProgressState* s = new ProgressState;
  s->shell = shell;
  XtAddCallback(shell, XmNdestroyCallback, destroyCB, s);
  s->form = XtVaCreateWidget("form", xmFormWidgetClass, shell, XmNuserData, s, XmNdialogStyle,
                             XmDIALOG_FULL_APPLICATION_MODAL, XmNmarginWidth, 12, XmNmarginHeight,
                             10, XmNfractionBase, 100, XmNautoUnmanage, False, nullptr);
  s->label = XtVaCreateManagedWidget("labelText", xmLabelWidgetClass, s->form, XmNalignment,
                                     XmALIGNMENT_BEGINNING, XmNtopAttachment, XmATTACH_FORM,
                                     XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                                     XmATTACH_FORM, XmNrecomputeSize, True, nullptr);
  setLabel(s, text);
  Arg barArgs[] = {
      {const_cast<char*>(XmNtopAttachment), XmATTACH_WIDGET},
      {const_cast<char*>(XmNtopWidget), reinterpret_cast<XtArgVal>(s->label)},
      {const_cast<char*>(XmNtopOffset), 8},
      {const_cast<char*>(XmNleftAttachment), XmATTACH_FORM},
      {const_cast<char*>(XmNrightAttachment), XmATTACH_FORM},
      {const_cast<char*>(XmNwidth), 280},
      {const_cast<char*>(XmNheight), 18},
      {const_cast<char*>(MyNshowPercentage), True},
  };
  s->bar = MyCreateProgressBar(s->form, "progressBar", barArgs, XtNumber(barArgs));
  XtManageChild(s->bar);
  XmString stopText = XmStringCreateLocalized(const_cast<char*>("Stop"));
  Widget stop = XtVaCreateManagedWidget(
      "buttonStop", xmPushButtonWidgetClass, s->form, XmNlabelString, stopText, XmNtopAttachment,
      XmATTACH_WIDGET, XmNtopWidget, s->bar, XmNtopOffset, 12, XmNleftAttachment, XmATTACH_POSITION,
      XmNleftPosition, 35, XmNrightAttachment, XmATTACH_POSITION, XmNrightPosition, 65,
      XmNbottomAttachment, XmATTACH_FORM, nullptr);
  XmStringFree(stopText);
  XtAddCallback(stop, XmNactivateCallback, stopCB, s);
  // Return and Escape both press "Stop", the only button.
  XtVaSetValues(s->form, XmNdefaultButton, stop, XmNcancelButton, stop, XmNinitialFocus, stop,
                nullptr);
  Atom deleteWindow = XmInternAtom(XtDisplay(shell), const_cast<char*>("WM_DELETE_WINDOW"), False);
  XmAddWMProtocolCallback(shell, deleteWindow, stopCB, s);
  return shell;
}

void ProgressDialogPopup(Widget dialog) {
  ProgressState* s = stateOf(dialog);
  if (!s || XtIsManaged(s->form)) return;
  XtManageChild(s->form);
  // Mapped and drawn before the caller goes back to its work.
  XmUpdateDisplay(s->shell);
  XSync(XtDisplay(s->shell), False);
  DispatchPendingEvents();
  TestLog("progress %#lx stop %#lx", XtWindow(s->shell),
          XtWindow(XtNameToWidget(s->form, "buttonStop")));
}

void ProgressDialogSetTotal(Widget dialog, int total) {
  if (ProgressState* s = stateOf(dialog)) {
    MyProgressBarSetRange(s->bar, 0, total > 0 ? total : 1);
    MyProgressBarReset(s->bar);
  }
}

void ProgressDialogAdvance(Widget dialog, const char* text) {
  ProgressState* s = stateOf(dialog);
  if (!s) return;
  if (text) setLabel(s, text);
  MyProgressBarStep(s->bar);
  XFlush(XtDisplay(s->shell));
}

void ProgressDialogSetText(Widget dialog, const char* text) {
  if (ProgressState* s = stateOf(dialog)) setLabel(s, text);
}

bool ProgressDialogStopped(Widget dialog) {
  ProgressState* s = stateOf(dialog);
  if (!s) return false;
  const bool stop = s->stop;
  s->stop = false;
  return stop;
}

bool ProgressDialogStopPending(Widget dialog) {
  ProgressState* s = stateOf(dialog);
  return s && s->stop;
}

void CloseProgressDialog(Widget dialog) {
  if (!dialog) return;
  if (currentDialog == dialog) currentDialog = nullptr;
  if (ProgressState* s = stateOf(dialog)) XtUnmanageChild(s->form);
  XtDestroyWidget(dialog);
  TestLog("progress closed");
}

void DispatchPendingEvents() {
  XtAppContext app = appContext;
  if (!app) return;
  while (XtAppPending(app) & (XtIMXEvent | XtIMTimer))
    XtAppProcessEvent(app, XtIMXEvent | XtIMTimer);
}

Widget SetProgressDialog(Widget dialog) {
  Widget before = currentDialog;
  currentDialog = dialog;
  return before;
}

int PictureProgress(int step, int count) {
  Widget dialog = currentDialog;
  if (!dialog) return 0;
  const bool first = step == 0 && !ProgressDialogStopPending(dialog);
  if (first) ProgressDialogSetTotal(dialog, count + 1);
  if (!ProgressDialogStopPending(dialog)) ProgressDialogAdvance(dialog);
  // Shown once the bar holds its first step, so it never flashes empty.
  if (first) ProgressDialogPopup(dialog);
  DispatchPendingEvents();
  // The dialog went with its parent while events were handled: stop.
  if (currentDialog != dialog) return 1;
  return ProgressDialogStopped(dialog) ? 1 : 0;
}

namespace {

// The save's dialog; saves do not nest.
Widget saveDialog = nullptr;
Widget saveOuterDialog = nullptr;

void saveOpenProgress(void* data, const char* title, const char* text) {
  saveDialog = CreateProgressDialog(static_cast<Widget>(data), title, text);
  saveOuterDialog = SetProgressDialog(saveDialog);
}

void saveCloseProgress(void*) {
  if (currentDialog == saveDialog) SetProgressDialog(saveOuterDialog);
  CloseProgressDialog(saveDialog);
  saveDialog = nullptr;
}

void saveBusy(void* data, bool on) { SetBusyCursor(static_cast<Widget>(data), on); }

}  // namespace

void SetProgressSaveHooks(SaveHooks* hooks, Widget parent) {
  hooks->data = parent;
  hooks->openProgress = saveOpenProgress;
  hooks->progress = PictureProgress;
  hooks->closeProgress = saveCloseProgress;
  hooks->busy = saveBusy;
}

void SetBusyCursor(Widget widget, bool on) {
  Widget shell = ShellOf(widget);
  if (!shell || !XtIsRealized(shell)) return;
  Display* dpy = XtDisplay(shell);
  static Display* cursorDisplay = nullptr;
  static Cursor watch = None;
  if (on && (watch == None || cursorDisplay != dpy)) {
    watch = XCreateFontCursor(dpy, XC_watch);
    cursorDisplay = dpy;
  }
  if (on)
    XDefineCursor(dpy, XtWindow(shell), watch);
  else
    XUndefineCursor(dpy, XtWindow(shell));
  XFlush(dpy);
}
