// The "Advanced Operations" editor: the chosen operations on the left, in the
// order they run, the whole vocabulary on the right. Parameters are edited as
// the words a script would hold after the option word, checked against the
// vocabulary's ranges by the same parser that reads scripts.
#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Label.h>
#include <Xm/List.h>
#include <Xm/PushB.h>
#include <Xm/TextF.h>
#include <Xm/Xm.h>

#include <string>
#include <vector>

#include "core/app.h"
#include "core/test_log.h"
#include "tools/batch_dialog.h"
#include "tools/batch_script.h"
#include "widgets/dialog_parts.h"
#include "widgets/message_box.h"
#include "widgets/param_dialog.h"
#include "widgets/param_table.h"

namespace {

using process::AdvancedOp;
using process::AdvancedStep;

struct OpsEditor {
  Widget shell = nullptr, chosen = nullptr, vocabulary = nullptr;
  std::vector<AdvancedStep> steps;
  int answer = -1;  // -1 open, 0 cancelled, 1 accepted
};

// The parameter words of a step: its script words without the option word.
std::string parameterWords(const AdvancedStep& step) {
  const std::string all = process::advancedOpWords(step);
  const std::string word = step.op->word;
  std::string rest = all.size() > word.size() ? all.substr(word.size()) : std::string();
  while (!rest.empty() && rest.front() == ' ') rest.erase(0, 1);
  while (!rest.empty() && rest.back() == ' ') rest.pop_back();
  return rest;
}

void setItems(Widget list, const std::vector<std::string>& texts) {
  XmListDeleteAllItems(list);
  for (const std::string& text : texts) {
    XmString item = XmStringCreateLocalized(const_cast<char*>(text.c_str()));
    XmListAddItemUnselected(list, item, 0);
    XmStringFree(item);
  }
}

void refresh(OpsEditor* e, int select) {
  std::vector<std::string> texts;
  for (const AdvancedStep& step : e->steps) texts.push_back(process::advancedOpWords(step));
  setItems(e->chosen, texts);
  if (select >= 0 && select < static_cast<int>(e->steps.size()))
    XmListSelectPos(e->chosen, select + 1, False);
  std::string line;
  for (const std::string& t : texts) line += " [" + t + "]";
  TestLog("advancedOps list %zu%s", e->steps.size(), line.c_str());
}

int selected(Widget list) {
  int* positions = nullptr;
  int count = 0;
  int pos = -1;
  if (XmListGetSelectedPos(list, &positions, &count) && count > 0) pos = positions[0] - 1;
  XtFree(reinterpret_cast<char*>(positions));
  return pos;
}

AdvancedStep defaultStep(const AdvancedOp& op) {
  AdvancedStep step{&op, {}, {}};
  for (int i = 0; i < op.paramCount; ++i) step.values[i] = op.params[i].start;
  return step;
}

void addCB(Widget, XtPointer data, XtPointer) {
  auto* e = static_cast<OpsEditor*>(data);
  const int pos = selected(e->vocabulary);
  if (pos < 0) return;
  e->steps.push_back(defaultStep(process::advancedOps()[static_cast<size_t>(pos)]));
  refresh(e, static_cast<int>(e->steps.size()) - 1);
}

void removeCB(Widget, XtPointer data, XtPointer) {
  auto* e = static_cast<OpsEditor*>(data);
  const int pos = selected(e->chosen);
  if (pos < 0) return;
  e->steps.erase(e->steps.begin() + pos);
  refresh(e, pos < static_cast<int>(e->steps.size()) ? pos : pos - 1);
}

void move(OpsEditor* e, int by) {
  const int pos = selected(e->chosen);
  const int to = pos + by;
  if (pos < 0 || to < 0 || to >= static_cast<int>(e->steps.size())) return;
  std::swap(e->steps[static_cast<size_t>(pos)], e->steps[static_cast<size_t>(to)]);
  refresh(e, to);
}
void upCB(Widget, XtPointer data, XtPointer) { move(static_cast<OpsEditor*>(data), -1); }
void downCB(Widget, XtPointer data, XtPointer) { move(static_cast<OpsEditor*>(data), 1); }

// The parameters of one step: a text field holding the words after the
// option word, with the syntax and the ranges above it.
struct ParamEditor {
  Widget shell = nullptr, text = nullptr;
  int answer = -1;
};
void paramOkCB(Widget, XtPointer data, XtPointer) { static_cast<ParamEditor*>(data)->answer = 1; }
void paramCancelCB(Widget, XtPointer data, XtPointer) {
  static_cast<ParamEditor*>(data)->answer = 0;
}

bool editStep(Widget parent, AdvancedStep* step) {
  ParamEditor p;
  p.shell = CreateDialogShell(parent, "VmoraOpParams", step->op->label, XmUNMAP);
  XtAddCallback(p.shell, XmNpopdownCallback, paramCancelCB, &p);
  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, p.shell, XmNautoUnmanage, False,
                                 XmNdialogStyle, XmDIALOG_FULL_APPLICATION_MODAL, XmNmarginWidth, 8,
                                 XmNmarginHeight, 8, nullptr);
  const OkCancelRow row = CreateOkCancelRow(form, paramOkCB, paramCancelCB, &p);
  const std::string help =
      process::advancedOpSyntax(*step->op) + "\n" + process::advancedOpRanges(*step->op);
  XmString label = XmStringCreateLtoR(const_cast<char*>(help.c_str()),
                                      const_cast<char*>(XmFONTLIST_DEFAULT_TAG));
  Widget info = XtVaCreateManagedWidget("labelInfo", xmLabelWidgetClass, form, XmNlabelString,
                                        label, XmNalignment, XmALIGNMENT_BEGINNING,
                                        XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment,
                                        XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  XmStringFree(label);
  const std::string words = parameterWords(*step);
  p.text = XtVaCreateManagedWidget(
      "textParams", xmTextFieldWidgetClass, form, XmNvalue, words.c_str(), XmNcolumns, 36,
      XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, info, XmNtopOffset, 8, XmNleftAttachment,
      XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET,
      XmNbottomWidget, row.separator, XmNbottomOffset, 8, nullptr);
  XtVaSetValues(form, XmNdefaultButton, row.ok, XmNcancelButton, row.cancel, XmNinitialFocus,
                p.text, nullptr);
  XtManageChild(form);
  TestLog("advancedOps params 0x%lx %s", XtWindow(p.shell), step->op->word);
  bool accepted = false;
  while (!accepted) {
    p.answer = -1;
    while (p.answer < 0) XtAppProcessEvent(appContext, XtIMAll);
    if (p.answer == 0) break;
    char* value = XmTextFieldGetString(p.text);
    // The option word may itself hold a blank ("-noise reduce"): the whole
    // line is read back as a script would be.
    const std::vector<std::string> all =
        tools::SplitScriptWords(std::string(step->op->word) + " " + value);
    XtFree(value);
    size_t pos = 0;
    AdvancedStep parsed{};
    std::string error;
    if (process::parseAdvancedStep(all, &pos, &parsed, &error) && pos == all.size() &&
        parsed.op == step->op) {
      *step = parsed;
      accepted = true;
    } else {
      if (error.empty()) error = "Unexpected words after the parameters";
      ShowMessage(p.shell, "Error", error.c_str(), true);
    }
  }
  TestLog("advancedOps params %s", accepted ? "ok" : "cancel");
  XtRemoveCallback(p.shell, XmNpopdownCallback, paramCancelCB, &p);
  XtDestroyWidget(p.shell);
  return accepted;
}

// The processing dialog of the same operation, when one exists and its
// values are the step's parameters one for one: plain numbers or choices
// (lengths given in percent of a picture have no picture to refer to here).
const params::ParamDialog* matchingDialog(const process::AdvancedOp& op) {
  for (int i = 0; i < op.paramCount; ++i) {
    const process::ParamKind kind = op.params[i].kind;
    if (kind != process::ParamKind::kNumber && kind != process::ParamKind::kChoice) return nullptr;
  }
  for (const params::ParamDialog& dialog : params::paramDialogs()) {
    if (!dialog.word || std::string(dialog.word) != op.word) continue;
    if (static_cast<int>(dialog.controls.size()) != op.paramCount) return nullptr;
    for (const params::ParamControl& control : dialog.controls)
      if (params::positionCount(control) != 1 || control.pictureSide) return nullptr;
    return &dialog;
  }
  return nullptr;
}

// Edits through the processing dialog; its values are read back through the
// script parser, so they are held to the vocabulary's ranges.
bool editWithDialog(Widget parent, const params::ParamDialog& dialog, AdvancedStep* step) {
  std::vector<int> positions;
  if (!RunParamDialog(parent, dialog, nullptr, nullptr, nullptr, &positions)) return false;
  const std::vector<double> values = params::dialogValues(dialog, positions);
  AdvancedStep chosen = *step;
  for (int i = 0; i < step->op->paramCount && i < static_cast<int>(values.size()); ++i)
    chosen.values[i] = values[static_cast<size_t>(i)];
  const std::vector<std::string> words = tools::SplitScriptWords(process::advancedOpWords(chosen));
  size_t pos = 0;
  AdvancedStep parsed{};
  std::string error;
  if (!process::parseAdvancedStep(words, &pos, &parsed, &error) || parsed.op != step->op) {
    ShowMessage(parent, "Error", error.c_str(), true);
    return false;
  }
  *step = parsed;
  return true;
}

void editCB(Widget w, XtPointer data, XtPointer) {
  auto* e = static_cast<OpsEditor*>(data);
  const int pos = selected(e->chosen);
  if (pos < 0) return;
  AdvancedStep& step = e->steps[static_cast<size_t>(pos)];
  if (step.op->paramCount == 0) return;
  const params::ParamDialog* dialog = matchingDialog(*step.op);
  if (dialog ? editWithDialog(e->shell, *dialog, &step) : editStep(w, &step)) refresh(e, pos);
}

void pickCB(Widget, XtPointer, XtPointer call) {
  const auto* cb = static_cast<XmListCallbackStruct*>(call);
  const auto& ops = process::advancedOps();
  if (cb->item_position >= 1 && cb->item_position <= static_cast<int>(ops.size()))
    TestLog("advancedOps pick %s", ops[static_cast<size_t>(cb->item_position - 1)].word);
}

void okCB(Widget, XtPointer data, XtPointer) { static_cast<OpsEditor*>(data)->answer = 1; }
void cancelCB(Widget, XtPointer data, XtPointer) { static_cast<OpsEditor*>(data)->answer = 0; }

struct ButtonRow {
  const char* name;
  const char* label;
  XtCallbackProc callback;
};

}  // namespace

bool EditAdvancedOperations(Widget parent, std::vector<AdvancedStep>* steps) {
  OpsEditor e;
  e.steps = *steps;
  e.shell = CreateDialogShell(parent, "VmoraAdvancedOps", "Advanced Operations", XmUNMAP);
  // Closing the window counts as Cancel.
  XtAddCallback(e.shell, XmNpopdownCallback, cancelCB, &e);
  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, e.shell, XmNautoUnmanage, False,
                                 XmNdialogStyle, XmDIALOG_FULL_APPLICATION_MODAL, XmNmarginWidth, 8,
                                 XmNmarginHeight, 8, nullptr);
  const OkCancelRow row = CreateOkCancelRow(form, okCB, cancelCB, &e);

  // The buttons between the two lists.
  static const ButtonRow buttons[] = {
      {"buttonAdd", "<< Add", addCB},          {"buttonRemove", "Remove", removeCB},
      {"buttonUp", "Move Up", upCB},           {"buttonDown", "Move Down", downCB},
      {"buttonEdit", "Parameters...", editCB},
  };
  Widget column = XtVaCreateManagedWidget(
      "buttons", xmFormWidgetClass, form, XmNtopAttachment, XmATTACH_FORM, XmNtopOffset, 24,
      XmNleftAttachment, XmATTACH_POSITION, XmNleftPosition, 50, XmNleftOffset, -60, nullptr);
  Widget above = nullptr;
  for (const ButtonRow& b : buttons) {
    XmString label = XmStringCreateLocalized(const_cast<char*>(b.label));
    Widget button = XtVaCreateManagedWidget(
        b.name, xmPushButtonWidgetClass, column, XmNlabelString, label, XmNwidth, 120,
        XmNrecomputeSize, False, XmNleftAttachment, XmATTACH_FORM, XmNtopAttachment,
        above ? XmATTACH_WIDGET : XmATTACH_FORM, XmNtopWidget, above, XmNtopOffset, 4, nullptr);
    XmStringFree(label);
    XtAddCallback(button, XmNactivateCallback, b.callback, &e);
    above = button;
  }

  auto makeList = [&](const char* name, const char* title, bool left) {
    XmString text = XmStringCreateLocalized(const_cast<char*>(title));
    Widget label = XtVaCreateManagedWidget(
        left ? "labelChosen" : "labelVocabulary", xmLabelWidgetClass, form, XmNlabelString, text,
        XmNtopAttachment, XmATTACH_FORM, left ? XmNleftAttachment : XmNrightAttachment,
        XmATTACH_FORM, nullptr);
    XmStringFree(text);
    Arg args[3];
    XtSetArg(args[0], XmNvisibleItemCount, 12);
    XtSetArg(args[1], XmNselectionPolicy, XmBROWSE_SELECT);
    XtSetArg(args[2], XmNwidth, 250);
    Widget list = XmCreateScrolledList(form, const_cast<char*>(name), args, 3);
    XtVaSetValues(XtParent(list), XmNtopAttachment, XmATTACH_WIDGET, XmNtopWidget, label,
                  XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, row.separator,
                  XmNbottomOffset, 8, nullptr);
    if (left)
      XtVaSetValues(XtParent(list), XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                    XmATTACH_WIDGET, XmNrightWidget, column, XmNrightOffset, 8, nullptr);
    else
      XtVaSetValues(XtParent(list), XmNrightAttachment, XmATTACH_FORM, XmNleftAttachment,
                    XmATTACH_WIDGET, XmNleftWidget, column, XmNleftOffset, 8, nullptr);
    XtManageChild(list);
    return list;
  };
  e.chosen = makeList("scrolledList", "Operations, in order:", true);
  e.vocabulary = makeList("listVocabulary", "Available:", false);
  std::vector<std::string> labels;
  for (const AdvancedOp& op : process::advancedOps())
    labels.push_back(std::string(op.word) + "  " + op.label);
  setItems(e.vocabulary, labels);
  XtAddCallback(e.vocabulary, XmNdefaultActionCallback, addCB, &e);
  XtAddCallback(e.vocabulary, XmNbrowseSelectionCallback, pickCB, &e);
  XtAddCallback(e.chosen, XmNdefaultActionCallback, editCB, &e);
  refresh(&e, 0);

  XtVaSetValues(form, XmNdefaultButton, row.ok, XmNcancelButton, row.cancel, XmNinitialFocus,
                e.vocabulary, nullptr);
  XtManageChild(form);
  XmUpdateDisplay(e.shell);
  TestLog("advancedOps 0x%lx", XtWindow(e.shell));
  if (TestMode()) {
    for (const ButtonRow& b : buttons)
      TestLog("advancedOps widget %s 0x%lx", b.name, XtWindow(XtNameToWidget(column, b.name)));
    TestLog("advancedOps widget buttonOK 0x%lx", XtWindow(row.ok));
    TestLog("advancedOps widget listVocabulary 0x%lx", XtWindow(e.vocabulary));
    TestLog("advancedOps widget scrolledList 0x%lx", XtWindow(e.chosen));
  }
  while (e.answer < 0) XtAppProcessEvent(appContext, XtIMAll);
  XtRemoveCallback(e.shell, XmNpopdownCallback, cancelCB, &e);
  if (e.answer == 1) *steps = e.steps;
  TestLog("advancedOps %s %zu", e.answer == 1 ? "ok" : "cancel", steps->size());
  XtDestroyWidget(e.shell);
  return e.answer == 1;
}
