// Message and question dialogs built on the Motif message box.
#include "widgets/message_box.h"

#include <Xm/MessageB.h>
#include <Xm/Xm.h>

#include "core/app.h"
#include "core/test_log.h"

namespace {

Widget dialogParent(Widget parent) { return parent ? parent : topLevel; }

// Motif still moves the keyboard focus away from a dialog after its button
// callbacks, so the dialog is destroyed from a time-out, once that is done.
void destroyTimeout(XtPointer data, XtIntervalId*) { XtDestroyWidget(static_cast<Widget>(data)); }

void destroyShellCB(Widget w, XtPointer, XtPointer) {
  XtAppAddTimeOut(XtWidgetToApplicationContext(w), 0, destroyTimeout, XtParent(w));
}

}  // namespace

void ShowMessage(Widget parent, const char* title, const char* text, bool error) {
  Arg args[3];
  XmString message = XmStringCreateLocalized(const_cast<char*>(text));
  XtSetArg(args[0], XmNmessageString, message);
  XtSetArg(args[1], XmNtitle, title);
  XtSetArg(args[2], XmNdeleteResponse, XmUNMAP);
  Widget box =
      error
          ? XmCreateErrorDialog(dialogParent(parent), const_cast<char*>("message"), args, 3)
          : XmCreateInformationDialog(dialogParent(parent), const_cast<char*>("message"), args, 3);
  XmStringFree(message);
  XtUnmanageChild(XmMessageBoxGetChild(box, XmDIALOG_CANCEL_BUTTON));
  XtUnmanageChild(XmMessageBoxGetChild(box, XmDIALOG_HELP_BUTTON));
  XtAddCallback(box, XmNunmapCallback, destroyShellCB, nullptr);
  XtManageChild(box);
  TestLog("message %s", text);
}

namespace {

struct Answer {
  int state = 0;  // 0 waiting, 1 yes, 2 no
};

void yesCB(Widget, XtPointer data, XtPointer) { static_cast<Answer*>(data)->state = 1; }
void noCB(Widget, XtPointer data, XtPointer) { static_cast<Answer*>(data)->state = 2; }
// The dialog also goes down after Yes or No; only a close without an
// answer counts as No here.
void popdownCB(Widget, XtPointer data, XtPointer) {
  Answer* answer = static_cast<Answer*>(data);
  if (answer->state == 0) answer->state = 2;
}

}  // namespace

bool AskYesNo(Widget parent, const char* title, const char* text) {
  Answer answer;
  Arg args[6];
  XmString message = XmStringCreateLocalized(const_cast<char*>(text));
  XmString yes = XmStringCreateLocalized(const_cast<char*>("Yes"));
  XmString no = XmStringCreateLocalized(const_cast<char*>("No"));
  XtSetArg(args[0], XmNmessageString, message);
  XtSetArg(args[1], XmNtitle, title);
  XtSetArg(args[2], XmNokLabelString, yes);
  XtSetArg(args[3], XmNcancelLabelString, no);
  XtSetArg(args[4], XmNdialogStyle, XmDIALOG_FULL_APPLICATION_MODAL);
  XtSetArg(args[5], XmNdeleteResponse, XmUNMAP);
  Widget box = XmCreateQuestionDialog(dialogParent(parent), const_cast<char*>("question"), args, 6);
  XmStringFree(message);
  XmStringFree(yes);
  XmStringFree(no);
  XtUnmanageChild(XmMessageBoxGetChild(box, XmDIALOG_HELP_BUTTON));
  XtAddCallback(box, XmNokCallback, yesCB, &answer);
  XtAddCallback(box, XmNcancelCallback, noCB, &answer);
  XtAddCallback(XtParent(box), XmNpopdownCallback, popdownCB, &answer);
  XtManageChild(box);
  TestLog("question %s", text);
  while (answer.state == 0) XtAppProcessEvent(appContext, XtIMAll);
  const bool result = answer.state == 1;
  XtRemoveCallback(XtParent(box), XmNpopdownCallback, popdownCB, &answer);
  XtAppAddTimeOut(appContext, 0, destroyTimeout, XtParent(box));
  return result;
}
