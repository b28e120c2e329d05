// The "Convert ..." dialog and the save hooks of the windows.
#include "widgets/conversion_dialog.h"

#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/List.h>
#include <Xm/Xm.h>

#include <string>

#include "core/app.h"
#include "core/test_log.h"
#include "process/conversion_items.h"
#include "widgets/dialog_parts.h"
#include "widgets/message_box.h"
#include "widgets/progress_dialog.h"

std::vector<int> ConversionChoices(const ImageRecord& picture) {
  const bool trueColour = picture.type & 0xF00;
  std::vector<int> items;
  for (int i = 1; i <= process::kConversionItemCount; ++i) {
    const process::ConversionItem* c = process::conversionItem(i);
    if (c->code == 1 && picture.type == IMK_BINARY) continue;
    if (c->code == 19 && trueColour) continue;
    items.push_back(i);
  }
  return items;
}

namespace {

struct Answer {
  int state = 0;  // 0 waiting, 1 OK, 2 cancelled
  Widget list = nullptr;
};

void okCB(Widget, XtPointer data, XtPointer) {
  Answer* a = static_cast<Answer*>(data);
  if (a->state == 0) a->state = 1;
}
void cancelCB(Widget, XtPointer data, XtPointer) {
  Answer* a = static_cast<Answer*>(data);
  if (a->state == 0) a->state = 2;
}

void destroyTimeout(XtPointer data, XtIntervalId*) { XtDestroyWidget(static_cast<Widget>(data)); }

}  // namespace

int AskConversionDialog(Widget parent, const char* title, const ImageRecord& picture) {
  const std::vector<int> choices = ConversionChoices(picture);
  Answer answer;
  Widget shell = CreateDialogShell(parent, "VmoraConvert", title, XmUNMAP);
  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, shell, XmNautoUnmanage, False,
                                 XmNmarginWidth, 8, XmNmarginHeight, 8, XmNdialogStyle,
                                 XmDIALOG_FULL_APPLICATION_MODAL, nullptr);
  // Closing the window unmaps the form: that is a cancel.
  XtAddCallback(form, XmNunmapCallback, cancelCB, &answer);

  const OkCancelRow row = CreateOkCancelRow(form, okCB, cancelCB, &answer);
  Widget okButton = row.ok, cancelButton = row.cancel, separator = row.separator;

  std::vector<XmString> items;
  for (int item : choices) {
    const process::ConversionItem* c = process::conversionItem(item);
    // A submenu's items are named after it: "Convert to Grey: 16 Grey scale".
    const std::string text = *c->menu ? std::string(c->menu) + ": " + c->label : c->label;
    items.push_back(XmStringCreateLocalized(const_cast<char*>(text.c_str())));
  }
  Arg largs[4];
  XtSetArg(largs[0], XmNitems, items.data());
  XtSetArg(largs[1], XmNitemCount, static_cast<int>(items.size()));
  XtSetArg(largs[2], XmNvisibleItemCount, 14);
  XtSetArg(largs[3], XmNselectionPolicy, XmBROWSE_SELECT);
  answer.list = XmCreateScrolledList(form, const_cast<char*>("scrolledList"), largs, 4);
  for (XmString s : items) XmStringFree(s);
  XtVaSetValues(XtParent(answer.list), XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                XmATTACH_FORM, XmNtopAttachment, XmATTACH_FORM, XmNbottomAttachment,
                XmATTACH_WIDGET, XmNbottomWidget, separator, XmNbottomOffset, 8, nullptr);
  // A double click (or Return) on an item is OK.
  XtAddCallback(answer.list, XmNdefaultActionCallback, okCB, &answer);
  XtManageChild(answer.list);
  XmListSelectPos(answer.list, 1, False);
  XmListSetKbdItemPos(answer.list, 1);

  XtVaSetValues(form, XmNdefaultButton, okButton, XmNcancelButton, cancelButton, XmNinitialFocus,
                XtParent(answer.list), nullptr);
  XtManageChild(form);
  XmProcessTraversal(answer.list, XmTRAVERSE_CURRENT);
  XmUpdateDisplay(shell);
  TestLog("conversionDialog 0x%lx items %d", XtWindow(shell), static_cast<int>(choices.size()));
  while (answer.state == 0) XtAppProcessEvent(appContext, XtIMAll);

  int result = 0;
  if (answer.state == 1) {
    int* positions = nullptr;
    int count = 0;
    if (XmListGetSelectedPos(answer.list, &positions, &count) && count > 0) {
      const int p = positions[0] - 1;
      if (p >= 0 && p < static_cast<int>(choices.size())) result = choices[static_cast<size_t>(p)];
    }
    XtFree(reinterpret_cast<char*>(positions));
  }
  XtRemoveCallback(form, XmNunmapCallback, cancelCB, &answer);
  XtAppAddTimeOut(appContext, 0, destroyTimeout, shell);
  TestLog("conversion %d", result);
  return result;
}

namespace {

int askConversionHook(void* data, const char* title, const ImageRecord& picture) {
  return AskConversionDialog(static_cast<Widget>(data), title, picture);
}

void showErrorHook(void* data, const char* text) {
  ShowMessage(static_cast<Widget>(data), "Error", text, true);
}

}  // namespace

SaveHooks GuiSaveHooks(Widget parent) {
  SaveHooks hooks;
  SetProgressSaveHooks(&hooks, parent);  // progress dialog and busy cursor
  hooks.askConversion = askConversionHook;
  hooks.showError = showErrorHook;
  return hooks;
}
