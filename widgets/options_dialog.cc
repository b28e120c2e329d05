// The options dialog, made from the option rows: one page per category, one
// control per setting.
#include "widgets/options_dialog.h"

#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Frame.h>
#include <Xm/Label.h>
#include <Xm/List.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "core/app.h"
#include "core/test_log.h"
#include "widgets/dialog_parts.h"
#include "widgets/options_table.h"

namespace {

struct OptionsDialog {
  Widget shell = nullptr;
  Widget list = nullptr;
  std::vector<Widget> pages;
  std::vector<Widget> controls;  // one per option row
  int page = 0;
  bool closing = false;
};

OptionsDialog* gDialog = nullptr;

void destroyTimeout(XtPointer data, XtIntervalId*) { XtDestroyWidget(static_cast<Widget>(data)); }

// Every way out ends here. Motif still moves the focus after the button
// callbacks, so the shell goes from a time-out.
void finish(OptionsDialog* d, const char* how) {
  if (d->closing) return;
  d->closing = true;
  TestLog("optionsDialog %s", how);
  XtAppAddTimeOut(appContext, 0, destroyTimeout, d->shell);
}

void apply(OptionsDialog* d) {
  const std::vector<OptionRow>& rows = OptionRows();
  for (size_t i = 0; i < rows.size(); ++i) {
    const OptionRow& row = rows[i];
    Widget w = d->controls[i];
    switch (row.kind) {
      case OptionKind::kToggle:
        OptionBool(gSettings, row) = XmToggleButtonGetState(w);
        break;
      case OptionKind::kNumber: {
        char* text = XmTextFieldGetString(w);
        OptionInt(gSettings, row) = OptionNumberFromText(row, text, OptionInt(gSettings, row));
        XtFree(text);
        break;
      }
      case OptionKind::kChoice: {
        Widget chosen = nullptr;
        XtVaGetValues(w, XmNmenuHistory, &chosen, nullptr);
        XtPointer position = nullptr;
        if (chosen) XtVaGetValues(chosen, XmNuserData, &position, nullptr);
        const int p = static_cast<int>(reinterpret_cast<intptr_t>(position));
        if (p >= 0 && p < row.choiceCount) OptionInt(gSettings, row) = row.choices[p].value;
        break;
      }
      case OptionKind::kText: {
        char* text = XmTextFieldGetString(w);
        std::snprintf(OptionText(gSettings, row), kPathSize, "%s", text);
        XtFree(text);
        break;
      }
    }
  }
}

void okCB(Widget, XtPointer data, XtPointer) {
  OptionsDialog* d = static_cast<OptionsDialog*>(data);
  if (d->closing) return;
  apply(d);
  finish(d, "ok");
}

void cancelCB(Widget, XtPointer data, XtPointer) {
  finish(static_cast<OptionsDialog*>(data), "cancel");
}

// Closed by the window manager: the shell was only unmapped.
void unmapCB(Widget, XtPointer data, XtPointer) {
  finish(static_cast<OptionsDialog*>(data), "cancel");
}

void destroyCB(Widget, XtPointer data, XtPointer) {
  OptionsDialog* d = static_cast<OptionsDialog*>(data);
  if (gDialog == d) gDialog = nullptr;
  delete d;
}

void showPage(OptionsDialog* d, int page) {
  page = std::clamp(page, 0, static_cast<int>(d->pages.size()) - 1);
  for (size_t i = 0; i < d->pages.size(); ++i)
    if (static_cast<int>(i) != page) XtUnmanageChild(d->pages[i]);
  XtManageChild(d->pages[static_cast<size_t>(page)]);
  d->page = page;
  if (XtIsRealized(d->shell)) XmUpdateDisplay(d->shell);
  TestLog("optionsPage %d %s", page, OptionPages()[static_cast<size_t>(page)]);
}

void selectCB(Widget, XtPointer data, XtPointer call) {
  auto* cb = static_cast<XmListCallbackStruct*>(call);
  showPage(static_cast<OptionsDialog*>(data), cb->item_position - 1);
}

void selectPage(OptionsDialog* d, int page) {
  page = std::clamp(page, 0, static_cast<int>(d->pages.size()) - 1);
  XmListSelectPos(d->list, page + 1, False);
  XmListSetKbdItemPos(d->list, page + 1);
  showPage(d, page);
}

void exclusiveTab(Widget w) { XtVaSetValues(w, XmNnavigationType, XmEXCLUSIVE_TAB_GROUP, nullptr); }

// A text field on the right of a row ("<key>Row"), its label on the left.
Widget makeText(Widget page, const OptionRow& row, int columns, const char* value) {
  const std::string name = std::string(row.key) + "Row";
  Widget form = XtVaCreateManagedWidget(name.c_str(), xmFormWidgetClass, page, nullptr);
  Widget field =
      XtVaCreateManagedWidget(row.key, xmTextFieldWidgetClass, form, XmNcolumns, columns, XmNvalue,
                              value, XmNrightAttachment, XmATTACH_FORM, XmNtopAttachment,
                              XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM, nullptr);
  XmString s = XmStringCreateLocalized(const_cast<char*>(row.label));
  XtVaCreateManagedWidget("label", xmLabelWidgetClass, form, XmNlabelString, s, XmNalignment,
                          XmALIGNMENT_BEGINNING, XmNleftAttachment, XmATTACH_FORM,
                          XmNrightAttachment, XmATTACH_WIDGET, XmNrightWidget, field,
                          XmNrightOffset, 6, XmNtopAttachment, XmATTACH_FORM, XmNbottomAttachment,
                          XmATTACH_FORM, nullptr);
  XmStringFree(s);
  return field;
}

Widget makeChoice(Widget page, const OptionRow& row) {
  Widget pulldown = XmCreatePulldownMenu(
      page, const_cast<char*>((std::string(row.key) + "Pulldown").c_str()), nullptr, 0);
  const int current = OptionChoicePosition(row, OptionInt(gSettings, row));
  Widget history = nullptr;
  for (int i = 0; i < row.choiceCount; ++i) {
    XmString s = XmStringCreateLocalized(const_cast<char*>(row.choices[i].label));
    char name[24];
    std::snprintf(name, sizeof name, "choice%d", i);
    Widget b =
        XtVaCreateManagedWidget(name, xmPushButtonWidgetClass, pulldown, XmNlabelString, s,
                                XmNuserData, reinterpret_cast<XtPointer>(intptr_t{i}), nullptr);
    XmStringFree(s);
    if (i == current) history = b;
  }
  XmString label = XmStringCreateLocalized(const_cast<char*>(row.label));
  Arg args[3];
  XtSetArg(args[0], XmNsubMenuId, pulldown);
  XtSetArg(args[1], XmNlabelString, label);
  XtSetArg(args[2], XmNmenuHistory, history);
  Widget menu = XmCreateOptionMenu(page, const_cast<char*>(row.key), args, 3);
  XmStringFree(label);
  XtManageChild(menu);
  return menu;
}

Widget makeControl(Widget page, const OptionRow& row) {
  switch (row.kind) {
    case OptionKind::kToggle: {
      XmString s = XmStringCreateLocalized(const_cast<char*>(row.label));
      Widget t =
          XtVaCreateManagedWidget(row.key, xmToggleButtonWidgetClass, page, XmNlabelString, s,
                                  XmNset, OptionBool(gSettings, row) ? XmSET : XmUNSET, nullptr);
      XmStringFree(s);
      return t;
    }
    case OptionKind::kNumber: {
      char value[16];
      std::snprintf(value, sizeof value, "%d", OptionInt(gSettings, row));
      return makeText(page, row, 8, value);
    }
    case OptionKind::kChoice:
      return makeChoice(page, row);
    case OptionKind::kText:
      return makeText(page, row, 24, OptionText(gSettings, row));
  }
  return nullptr;
}

OptionsDialog* create(Widget parent) {
  OptionsDialog* d = new OptionsDialog;
  d->shell = CreateDialogShell(parent, "VmoraOptions", "Options", XmUNMAP);
  XtAddCallback(d->shell, XmNdestroyCallback, destroyCB, d);

  Widget form =
      XtVaCreateWidget("form", xmFormWidgetClass, d->shell, XmNautoUnmanage, False, XmNmarginWidth,
                       8, XmNmarginHeight, 8, XmNdialogStyle, XmDIALOG_MODELESS, nullptr);
  XtAddCallback(form, XmNunmapCallback, unmapCB, d);

  // Buttons along the bottom.
  const OkCancelRow row = CreateOkCancelRow(form, okCB, cancelCB, d);
  Widget okButton = row.ok, cancelButton = row.cancel, separator = row.separator;

  // The category list on the left.
  const std::vector<const char*>& names = OptionPages();
  std::vector<XmString> items;
  for (const char* name : names) items.push_back(XmStringCreateLocalized(const_cast<char*>(name)));
  Arg largs[4];
  XtSetArg(largs[0], XmNitems, items.data());
  XtSetArg(largs[1], XmNitemCount, static_cast<int>(items.size()));
  XtSetArg(largs[2], XmNvisibleItemCount, static_cast<int>(items.size()));
  XtSetArg(largs[3], XmNselectionPolicy, XmBROWSE_SELECT);
  d->list = XmCreateScrolledList(form, const_cast<char*>("scrolledList"), largs, 4);
  for (XmString s : items) XmStringFree(s);
  XtVaSetValues(XtParent(d->list), XmNleftAttachment, XmATTACH_FORM, XmNtopAttachment,
                XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, separator,
                XmNbottomOffset, 8, nullptr);
  XtAddCallback(d->list, XmNbrowseSelectionCallback, selectCB, d);
  XtManageChild(d->list);
  // Tab goes from the list through the controls of the page shown to the
  // buttons: the order in which the tab groups are registered.
  exclusiveTab(d->list);

  // The pages, stacked in one frame; only the current one is managed. All
  // are managed at first so that the area takes the size of the largest and
  // keeps it (it only grows).
  Widget frame = XtVaCreateManagedWidget(
      "framePage", xmFrameWidgetClass, form, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget,
      XtParent(d->list), XmNleftOffset, 8, XmNrightAttachment, XmATTACH_FORM, XmNtopAttachment,
      XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, separator,
      XmNbottomOffset, 8, nullptr);
  Widget area = XtVaCreateManagedWidget("pageArea", xmFormWidgetClass, frame, XmNresizePolicy,
                                        XmRESIZE_GROW, nullptr);
  const std::vector<OptionRow>& rows = OptionRows();
  for (size_t p = 0; p < names.size(); ++p) {
    int count = 0;
    for (const OptionRow& row : rows) count += row.page == static_cast<int>(p);
    const std::string name = std::string("page") + names[p];
    // Long pages are set in two columns to keep the dialog on the screen.
    Widget page = XtVaCreateWidget(name.c_str(), xmRowColumnWidgetClass, area, XmNorientation,
                                   XmVERTICAL, XmNpacking, XmPACK_COLUMN, XmNnumColumns,
                                   count > 14 ? 2 : 1, XmNspacing, 2, XmNtopAttachment,
                                   XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, nullptr);
    d->pages.push_back(page);
  }
  for (const OptionRow& row : rows) {
    Widget control = makeControl(d->pages[static_cast<size_t>(row.page)], row);
    exclusiveTab(control);
    d->controls.push_back(control);
  }
  for (Widget page : d->pages) XtManageChild(page);

  exclusiveTab(okButton);
  exclusiveTab(cancelButton);
  XtVaSetValues(form, XmNdefaultButton, okButton, XmNcancelButton, cancelButton, XmNinitialFocus,
                d->list, nullptr);
  XtManageChild(form);
  return d;
}

}  // namespace

void OpenOptionsDialog(Widget parent, int category) {
  if (!gDialog || gDialog->closing) {
    gDialog = create(parent);
    selectPage(gDialog, category);
    XmProcessTraversal(gDialog->list, XmTRAVERSE_CURRENT);
  } else {
    selectPage(gDialog, category);
    XRaiseWindow(XtDisplay(gDialog->shell), XtWindow(gDialog->shell));
  }
  XmUpdateDisplay(gDialog->shell);
  TestLog("optionsDialog 0x%lx page %d", XtWindow(gDialog->shell), gDialog->page);
}
