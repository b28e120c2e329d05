// "Multi Convert" and "Sequence Convert": the dialogs, the conversion run by
// a work procedure one file per call, and "Save Batch...". The conversion of
// one file, the output names and the script line are the batch core shared
// with pixbatch (tools/batch.h, tools/batch_script.h), so a saved script run
// by pixbatch writes the same files as the dialog's own "Go".
#include "tools/batch_dialog.h"

#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Label.h>
#include <Xm/List.h>
#include <Xm/PushB.h>
#include <Xm/Separator.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/app.h"
#include "core/formats.h"
#include "core/settings.h"
#include "core/test_log.h"
#include "tools/batch.h"
#include "tools/batch_script.h"
#include "tools/slide_file.h"
#include "widgets/combo_box.h"
#include "widgets/conversion_dialog.h"
#include "widgets/dialog_parts.h"
#include "widgets/file_selector.h"
#include "widgets/message_box.h"
#include "widgets/options_dialog.h"
#include "widgets/progress_dialog.h"

namespace {

using process::AdvancedStep;

constexpr int kSavePage = 4;           // the options dialog's "Save" page
constexpr size_t kMaxOutputDir = 512;  // longest output directory taken from the field

struct BatchDialog {
  Widget shell = nullptr;
  bool sequence = false;
  std::vector<int16_t> outFormats;  // position in fncvOutputList -> library index
  std::vector<int16_t> inFormats;   // position in fncvInputList -> library index (-1: recognised)
  std::vector<AdvancedStep> steps;
};

// The conversion in progress: at most one at a time.
struct BatchRun {
  std::vector<std::pair<std::string, std::string>> jobs;  // input, output
  size_t next = 0;
  int16_t inFormat = -1, outFormat = -1;
  unsigned flags = 0;
  int firstFileFlag = 0;
  std::vector<AdvancedStep> steps;
  Widget progress = nullptr;
  XtWorkProcId workProc = 0;
  int converted = 0;
};
BatchRun* gRun = nullptr;

Widget child(Widget shell, const char* name) { return XtNameToWidget(shell, name); }

std::string textOf(Widget shell, const char* name) {
  Widget w = child(shell, name);
  if (!w) return {};
  char* value = XmTextFieldGetString(w);
  std::string text = value ? value : "";
  XtFree(value);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.pop_back();
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.erase(0, 1);
  return text;
}

bool toggled(Widget shell, const char* name) { return XmToggleButtonGetState(child(shell, name)); }

std::string shortName(int16_t format) {
  if (format < 0) return {};
  FormatInfo info{};
  imkGetInfo(format, &info);
  return info.shortName;
}

int16_t chosenFormat(Widget shell, const char* name, const std::vector<int16_t>& table) {
  const int pos = MyComboBoxGetSelectedPos(child(shell, name));
  return pos >= 0 && pos < static_cast<int>(table.size()) ? table[static_cast<size_t>(pos)] : -1;
}

std::vector<std::string> inputFiles(Widget shell) {
  Widget list = child(shell, "*fncvInputFilename");
  XmStringTable items = nullptr;
  int count = 0;
  XtVaGetValues(list, XmNitems, &items, XmNitemCount, &count, nullptr);
  std::vector<std::string> files;
  for (int i = 0; i < count; ++i) {
    char* text = nullptr;
    if (XmStringGetLtoR(items[i], const_cast<char*>(XmFONTLIST_DEFAULT_TAG), &text) && text)
      files.push_back(text);
    XtFree(text);
  }
  return files;
}

unsigned flagsOf(Widget shell) {
  return (toggled(shell, "*fncvDelete") ? tools::kDeleteOriginal : 0u) |
         (toggled(shell, "*fncvError") ? tools::kSuppressReadErrors : 0u);
}

std::string outputDirOf(Widget shell) {
  std::string dir = textOf(shell, "*fncvOutputDir");
  if (dir.size() > kMaxOutputDir) dir.resize(kMaxOutputDir);
  return dir;
}

long numberOf(Widget shell, const char* name, long fallback) {
  const std::string text = textOf(shell, name);
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 10);
  return text.empty() || *end ? fallback : value;
}

// The job of the sequence dialog as a script: the same names for "Go" and
// for pixbatch.
tools::BatchScript sequenceScript(BatchDialog* d) {
  tools::BatchScript s;
  ScriptLoadValuesFrom(gSettings, &s);
  s.outFormat = shortName(chosenFormat(d->shell, "*fncvOutputList", d->outFormats));
  s.inFormat = shortName(chosenFormat(d->shell, "*fncvInputList", d->inFormats));
  s.deleteOriginals = toggled(d->shell, "*fncvDelete");
  s.outDir = outputDirOf(d->shell);
  s.sequence = true;
  s.start = numberOf(d->shell, "*fncvInputStart", 0);
  s.end = numberOf(d->shell, "*fncvInputEnd", 0);
  s.step = numberOf(d->shell, "*fncvInputStep", 1);
  s.outTemplate = textOf(d->shell, "*fncvOutputFile");
  std::string dir = textOf(d->shell, "*fncvInputDir");
  if (!dir.empty() && dir.back() != '/') dir += '/';
  s.inputs.push_back(dir + textOf(d->shell, "*fncvInputFile"));
  s.steps = d->steps;
  return s;
}

// The conversion, one file per call.

void loadErrorHook(void*, const char* text) { ShowMessage(nullptr, "Error", text, true); }

void endRun(bool stopped) {
  BatchRun* r = gRun;
  TestLog("batch done converted %d of %zu%s", r->converted, r->jobs.size(),
          stopped ? " stopped" : "");
  CloseProgressDialog(r->progress);
  gRun = nullptr;
  delete r;
}

Boolean convertNext(XtPointer) {
  BatchRun* r = gRun;
  if (!r) return True;
  const bool stopped = ProgressDialogStopped(r->progress);
  if (stopped || r->next >= r->jobs.size()) {
    endRun(stopped);
    return True;
  }
  const auto& [input, output] = r->jobs[r->next];
  const std::string text = "Converting \n    " + tools::FileNameOf(input);
  ProgressDialogSetText(r->progress, text.c_str());
  XmUpdateDisplay(r->progress);

  tools::ConvertRequest request;
  request.input = input;
  request.output = output;
  request.inputFormat = r->inFormat;
  request.outputFormat = r->outFormat;
  if (request.outputFormat < 0) {
    // No format chosen: the file keeps the one it is written in.
    FileInfo info{};
    if (imkFileInformation(input.c_str(), r->inFormat, 0, &info) == 0)
      request.outputFormat = info.formatIndex;
  }
  request.steps = &r->steps;
  request.flags = r->flags;
  request.firstFileFlag = r->firstFileFlag;
  request.load = tools::LoadSettingsFrom(gSettings);
  tools::BatchHooks hooks;
  hooks.loadError = loadErrorHook;
  hooks.save = GuiSaveHooks(nullptr);
  const tools::FileResult result = tools::ConvertOneFile(hooks, request);
  if (result.status == tools::FileStatus::kConverted) ++r->converted;
  TestLog("batch file %zu %s -> %s status %d code %d deleted %d", r->next, input.c_str(),
          output.c_str(), static_cast<int>(result.status), result.code, result.deleted ? 1 : 0);

  ProgressDialogAdvance(r->progress);
  r->firstFileFlag = 1;
  ++r->next;
  return False;
}

void startRun(BatchRun* r, const char* title) {
  gRun = r;
  r->progress = CreateProgressDialog(nullptr, title, "");
  ProgressDialogSetTotal(r->progress, static_cast<int>(r->jobs.size()));
  ProgressDialogPopup(r->progress);
  TestLog("batch start %zu %s", r->jobs.size(), title);
  r->workProc = XtAppAddWorkProc(appContext, convertNext, nullptr);
}

void closeDialog(BatchDialog* d) { XtDestroyWidget(d->shell); }

void goCB(Widget, XtPointer data, XtPointer) {
  auto* d = static_cast<BatchDialog*>(data);
  if (gRun) {
    XBell(XtDisplay(d->shell), 0);
    return;
  }
  auto* r = new BatchRun;
  r->outFormat = chosenFormat(d->shell, "*fncvOutputList", d->outFormats);
  r->flags = flagsOf(d->shell);
  r->steps = d->steps;
  const char* title = "Multi Converting...";
  if (d->sequence) {
    const char* missing = nullptr;
    if (textOf(d->shell, "*fncvInputFile").empty())
      missing = "The input filename is missing !!";
    else if (textOf(d->shell, "*fncvOutputFile").empty())
      missing = "The output filename is missing !!";
    if (missing) {
      delete r;
      ShowMessage(d->shell, "Error", missing, true);
      return;
    }
    const tools::BatchScript s = sequenceScript(d);
    r->jobs = tools::SequencePaths(s);
    r->inFormat = chosenFormat(d->shell, "*fncvInputList", d->inFormats);
    title = "Sequence Converting...";
  } else {
    const std::string dir = outputDirOf(d->shell);
    for (const std::string& input : inputFiles(d->shell))
      r->jobs.emplace_back(input, tools::OutputPath(input, dir, r->outFormat));
  }
  if (r->jobs.empty()) {
    // Nothing to convert (an empty list, or a sequence whose start lies
    // beyond its end): the dialog stays for the user to complete.
    delete r;
    XBell(XtDisplay(d->shell), 0);
    return;
  }
  closeDialog(d);
  startRun(r, title);
}

void cancelCB(Widget, XtPointer data, XtPointer) {
  TestLog("batch dialog cancel");
  closeDialog(static_cast<BatchDialog*>(data));
}

void destroyCB(Widget, XtPointer data, XtPointer) {
  TestLog("batch dialog closed");
  delete static_cast<BatchDialog*>(data);
}

void saveBatchCB(Widget, XtPointer data, XtPointer) {
  auto* d = static_cast<BatchDialog*>(data);
  tools::BatchScript s;
  if (d->sequence) {
    if (textOf(d->shell, "*fncvInputFile").empty()) return;
    s = sequenceScript(d);
  } else {
    s.inputs = inputFiles(d->shell);
    if (s.inputs.empty()) return;
    ScriptLoadValuesFrom(gSettings, &s);
    s.outFormat = shortName(chosenFormat(d->shell, "*fncvOutputList", d->outFormats));
    s.deleteOriginals = toggled(d->shell, "*fncvDelete");
    s.outDir = outputDirOf(d->shell);
    s.steps = d->steps;
  }
  FileSelectorRequest request;
  request.title = "Choose Filename...";
  request.mode = FileSelectorMode::kSave;
  request.filters = {{"All Files (*)", "", -1}};
  const FileSelectorResult answer = RunFileSelector(d->shell, request);
  if (!answer.accepted || answer.paths.empty()) return;
  const std::string& path = answer.paths[0];
  FILE* file = std::fopen(path.c_str(), "w");
  if (!file) {
    const std::string text = "Cannot create \n  '" + path + "'";
    ShowMessage(d->shell, "Error", text.c_str(), true);
    return;
  }
  const std::string line = tools::BatchScriptLine(s);
  std::fputs(line.c_str(), file);
  std::fclose(file);
  TestLog("batch script %s", path.c_str());
}

void optionsCB(Widget, XtPointer data, XtPointer) {
  OpenOptionsDialog(static_cast<BatchDialog*>(data)->shell, kSavePage);
}

void operationsCB(Widget, XtPointer data, XtPointer) {
  auto* d = static_cast<BatchDialog*>(data);
  EditAdvancedOperations(d->shell, &d->steps);
}

// The input list.

void addFiles(BatchDialog* d, const std::vector<std::string>& files) {
  Widget list = child(d->shell, "*fncvInputFilename");
  for (const std::string& file : files) {
    XmString item = XmStringCreateLocalized(const_cast<char*>(file.c_str()));
    if (!XmListItemExists(list, item)) XmListAddItemUnselected(list, item, 0);
    XmStringFree(item);
  }
  int count = 0;
  XtVaGetValues(list, XmNitemCount, &count, nullptr);
  TestLog("batch inputs %d", count);
}

void addCB(Widget, XtPointer data, XtPointer) {
  auto* d = static_cast<BatchDialog*>(data);
  FileSelectorRequest request;
  request.title = "Add Files...";
  request.mode = FileSelectorMode::kOpenMany;
  request.formatOptions = kFormatListAllGraphics | kFormatListAllFiles | kFormatListReadable;
  const FileSelectorResult answer = RunFileSelector(d->shell, request);
  if (answer.accepted) addFiles(d, answer.paths);
}

// "Add Folder..." adds the pictures the library recognises in the folder,
// not every file: the others could only fail to load.
void addFolderCB(Widget, XtPointer data, XtPointer) {
  auto* d = static_cast<BatchDialog*>(data);
  FileSelectorRequest request;
  request.title = "Add Folder...";
  request.mode = FileSelectorMode::kDirectory;
  const FileSelectorResult answer = RunFileSelector(d->shell, request);
  if (!answer.accepted || answer.paths.empty()) return;
  addFiles(d, tools::PicturesInFolder(answer.paths[0]));
}

void removeCB(Widget, XtPointer data, XtPointer) {
  Widget list = child(static_cast<BatchDialog*>(data)->shell, "*fncvInputFilename");
  int* positions = nullptr;
  int count = 0;
  if (XmListGetSelectedPos(list, &positions, &count) && count > 0)
    XmListDeletePositions(list, positions, count);
  XtFree(reinterpret_cast<char*>(positions));
  XtVaGetValues(list, XmNitemCount, &count, nullptr);
  TestLog("batch inputs %d", count);
}

void removeAllCB(Widget, XtPointer data, XtPointer) {
  XmListDeleteAllItems(child(static_cast<BatchDialog*>(data)->shell, "*fncvInputFilename"));
  TestLog("batch inputs 0");
}

// A directory field's "..." button: the field is the widget named in the
// button's userData.
void browseDirCB(Widget button, XtPointer data, XtPointer) {
  auto* d = static_cast<BatchDialog*>(data);
  XtPointer fieldName = nullptr;
  XtVaGetValues(button, XmNuserData, &fieldName, nullptr);
  Widget field = child(d->shell, static_cast<const char*>(fieldName));
  FileSelectorRequest request;
  request.title = "Choose Directory...";
  request.mode = FileSelectorMode::kDirectory;
  const std::string current = textOf(d->shell, static_cast<const char*>(fieldName));
  if (!current.empty()) request.directory = current;
  const FileSelectorResult answer = RunFileSelector(d->shell, request);
  if (answer.accepted && !answer.paths.empty())
    XmTextFieldSetString(field, const_cast<char*>(answer.paths[0].c_str()));
}

// Building the dialogs: every control of the form is placed below the one
// before it (rows of a label and a control side by side).

struct Layout {
  Widget form;
  Widget above = nullptr;  // the lowest widget placed so far
};

void placeBelow(Layout* l, Widget w, int offset = 6) {
  XtVaSetValues(w, XmNtopAttachment, l->above ? XmATTACH_WIDGET : XmATTACH_FORM, XmNtopWidget,
                l->above, XmNtopOffset, l->above ? offset : 0, nullptr);
}

Widget label(Layout* l, const char* name, const char* text, Widget left = nullptr) {
  XmString s = XmStringCreateLocalized(const_cast<char*>(text));
  Widget w = XtVaCreateManagedWidget(name, xmLabelWidgetClass, l->form, XmNlabelString, s,
                                     XmNalignment, XmALIGNMENT_BEGINNING, nullptr);
  XmStringFree(s);
  placeBelow(l, w, 10);
  if (left)
    XtVaSetValues(w, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, left, XmNleftOffset, 16,
                  nullptr);
  else
    XtVaSetValues(w, XmNleftAttachment, XmATTACH_FORM, nullptr);
  return w;
}

Widget button(Widget form, const char* name, const char* text, XtCallbackProc cb, void* data,
              int width = 0) {
  XmString s = XmStringCreateLocalized(const_cast<char*>(text));
  Widget w =
      XtVaCreateManagedWidget(name, xmPushButtonWidgetClass, form, XmNlabelString, s, nullptr);
  if (width) XtVaSetValues(w, XmNwidth, width, XmNrecomputeSize, False, nullptr);
  XmStringFree(s);
  XtAddCallback(w, XmNactivateCallback, cb, data);
  return w;
}

constexpr int kLabelWidth = 110;

// A labelled row: the label at the left, `control` from the label column to
// the right edge (or to `right`).
void row(Layout* l, const char* labelName, const char* text, Widget control,
         Widget right = nullptr) {
  XmString s = XmStringCreateLocalized(const_cast<char*>(text));
  Widget lab = XtVaCreateManagedWidget(
      labelName, xmLabelWidgetClass, l->form, XmNlabelString, s, XmNalignment, XmALIGNMENT_END,
      XmNwidth, kLabelWidth, XmNrecomputeSize, False, XmNleftAttachment, XmATTACH_FORM, nullptr);
  XmStringFree(s);
  placeBelow(l, control);
  placeBelow(l, lab, 10);
  XtVaSetValues(control, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, lab, XmNleftOffset, 6,
                nullptr);
  if (right) {
    placeBelow(l, right);
    XtVaSetValues(right, XmNrightAttachment, XmATTACH_FORM, nullptr);
    XtVaSetValues(control, XmNrightAttachment, XmATTACH_WIDGET, XmNrightWidget, right,
                  XmNrightOffset, 4, nullptr);
  } else {
    XtVaSetValues(control, XmNrightAttachment, XmATTACH_FORM, nullptr);
  }
  l->above = control;
}

Widget textField(Layout* l, const char* name, int columns = 30) {
  return XtVaCreateManagedWidget(name, xmTextFieldWidgetClass, l->form, XmNcolumns, columns,
                                 nullptr);
}

void directoryRow(Layout* l, BatchDialog* d, const char* name, const char* browseName,
                  const char* text) {
  Widget field = textField(l, name);
  Widget browse = button(l->form, browseName, "...", browseDirCB, d);
  // The name the browse button finds its field by; a string literal, so it
  // outlives the widget.
  XtVaSetValues(browse, XmNuserData, name, nullptr);
  row(l, name == std::string("fncvOutputDir") ? "labelOutputDir" : "labelInputDir", text, field,
      browse);
}

void formatChosenCB(Widget w, XtPointer data, XtPointer call);

Widget formatCombo(Layout* l, BatchDialog* d, const char* name,
                   const std::vector<FormatListRow>& rows, std::vector<int16_t>* table) {
  Arg args[1];
  XtSetArg(args[0], const_cast<char*>("editable"), False);
  Widget combo = MyComboBoxCreate(l->form, name, args, 1);
  for (const FormatListRow& r : rows) {
    MyComboBoxAddItem(combo, r.label.c_str(), -1);
    table->push_back(r.index);
  }
  XtAddCallback(combo, XmNselectionCallback, formatChosenCB, d);
  XtManageChild(combo);
  return combo;
}

int positionOf(const std::vector<int16_t>& table, const char* shortName) {
  const int16_t index = imkGetIndex(shortName);
  for (size_t i = 0; i < table.size(); ++i)
    if (table[i] == index) return static_cast<int>(i);
  return 0;
}

Widget toggle(Layout* l, const char* name, const char* text, bool set, Widget left = nullptr) {
  XmString s = XmStringCreateLocalized(const_cast<char*>(text));
  Widget w = XtVaCreateManagedWidget(name, xmToggleButtonWidgetClass, l->form, XmNlabelString, s,
                                     XmNset, set ? XmSET : XmUNSET, nullptr);
  XmStringFree(s);
  if (left) {
    XtVaSetValues(w, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, left, XmNleftOffset, 24,
                  XmNtopAttachment, XmATTACH_OPPOSITE_WIDGET, XmNtopWidget, left, nullptr);
  } else {
    placeBelow(l, w, 10);
    XtVaSetValues(w, XmNleftAttachment, XmATTACH_FORM, XmNleftOffset, kLabelWidth, nullptr);
    l->above = w;
  }
  return w;
}

// The windows of the controls, for a test that clicks them.
void logWindows(Widget shell) {
  if (!TestMode()) return;
  static const char* const names[] = {"*buttonAdd",       "*buttonAddFolder", "*buttonRemove",
                                      "*buttonRemoveAll", "*fncvInputDir",    "*fncvInputFile",
                                      "*fncvInputStart",  "*fncvInputEnd",    "*fncvInputStep",
                                      "*fncvOutputDir",   "*fncvOutputFile",  "*fncvOutputList",
                                      "*fncvInputList",   "*fncvDelete",      "*fncvError",
                                      "*fncvOp",          "*fncvOptions",     "*fncvSaveBatch",
                                      "*buttonGo",        "*buttonCancel",    "*fncvInputFilename"};
  for (const char* name : names)
    if (Widget w = XtNameToWidget(shell, name)) {
      // A combo box is typed into through its text field.
      if (XtIsSubclass(w, myComboBoxWidgetClass)) w = MyComboBoxGetTextField(w);
      TestLog("batch widget %s 0x%lx", name + 1, XtWindow(w));
    }
}

void formatChosenCB(Widget w, XtPointer data, XtPointer call) {
  auto* d = static_cast<BatchDialog*>(data);
  const auto* cb = static_cast<MyComboBoxCallbackStruct*>(call);
  const bool input = std::string(XtName(w)) == "fncvInputList";
  const std::vector<int16_t>& table = input ? d->inFormats : d->outFormats;
  const int16_t index = cb->position >= 0 && cb->position < static_cast<int>(table.size())
                            ? table[static_cast<size_t>(cb->position)]
                            : -1;
  TestLog("batch format %s %d %s", XtName(w), cb->position,
          index < 0 ? "-" : shortName(index).c_str());
}

BatchDialog* createDialog(Widget parent, bool sequence) {
  auto* d = new BatchDialog;
  d->sequence = sequence;
  d->shell = CreateDialogShell(parent, sequence ? "VmoraSeqConvert" : "VmoraMultiConvert",
                               sequence ? "Sequence Convert" : "Multi Convert", XmDESTROY);
  XtAddCallback(d->shell, XmNdestroyCallback, destroyCB, d);
  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, d->shell, XmNautoUnmanage, False,
                                 XmNmarginWidth, 10, XmNmarginHeight, 10, nullptr);
  Layout l{form};

  if (sequence) {
    directoryRow(&l, d, "fncvInputDir", "buttonInputDir", "Input Directory:");
    row(&l, "labelInputFile", "FileName:", textField(&l, "fncvInputFile"));
    Widget in =
        formatCombo(&l, d, "fncvInputList",
                    BuildFormatList(kFormatListAutomatic | kFormatListReadable), &d->inFormats);
    row(&l, "labelInputFormat", "Format:", in);
    MyComboBoxSelectPos(in, 0, false);
    // Start, End and Step side by side, each hanging from the row above.
    static const struct {
      const char* labelName;
      const char* text;
      const char* name;
      const char* value;
    } numbers[] = {{"labelInputStart", "Start:", "fncvInputStart", "0"},
                   {"labelInputEnd", "End:", "fncvInputEnd", "0"},
                   {"labelInputStep", "Step:", "fncvInputStep", "1"}};
    Widget left = nullptr, first = nullptr;
    for (const auto& number : numbers) {
      XmString text = XmStringCreateLocalized(const_cast<char*>(number.text));
      Widget lab =
          XtVaCreateManagedWidget(number.labelName, xmLabelWidgetClass, form, XmNlabelString, text,
                                  XmNalignment, XmALIGNMENT_END, nullptr);
      XmStringFree(text);
      if (left)
        XtVaSetValues(lab, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, left, XmNleftOffset,
                      16, nullptr);
      else
        XtVaSetValues(lab, XmNleftAttachment, XmATTACH_FORM, XmNwidth, kLabelWidth,
                      XmNrecomputeSize, False, nullptr);
      placeBelow(&l, lab, 10);
      Widget field = textField(&l, number.name, 6);
      XmTextFieldSetString(field, const_cast<char*>(number.value));
      XtVaSetValues(field, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, lab, XmNleftOffset, 6,
                    nullptr);
      placeBelow(&l, field);
      left = field;
      if (!first) first = field;
    }
    l.above = first;
    Widget hint =
        label(&l, "labelHint", "Use '#' in FileName to indicate where the number appears.");
    XtVaSetValues(hint, XmNleftOffset, kLabelWidth + 6, nullptr);
    l.above = hint;
  } else {
    Widget title = label(&l, "labelInput", "Input Files:");
    l.above = title;
    // The list's buttons in a column at the right.
    static const struct {
      const char* name;
      const char* text;
      XtCallbackProc cb;
    } listButtons[] = {{"buttonAdd", "Add...", addCB},
                       {"buttonAddFolder", "Add Folder...", addFolderCB},
                       {"buttonRemove", "Remove", removeCB},
                       {"buttonRemoveAll", "Remove All", removeAllCB}};
    Widget prev = nullptr;
    for (const auto& b : listButtons) {
      Widget w = button(form, b.name, b.text, b.cb, d, 110);
      XtVaSetValues(w, XmNrightAttachment, XmATTACH_FORM, XmNtopAttachment, XmATTACH_WIDGET,
                    XmNtopWidget, prev ? prev : title, XmNtopOffset, prev ? 4 : 6, nullptr);
      prev = w;
    }
    Arg largs[3];
    XtSetArg(largs[0], XmNvisibleItemCount, 8);
    XtSetArg(largs[1], XmNselectionPolicy, XmEXTENDED_SELECT);
    XtSetArg(largs[2], XmNscrollBarDisplayPolicy, XmSTATIC);
    Widget list = XmCreateScrolledList(form, const_cast<char*>("fncvInputFilename"), largs, 3);
    XtVaSetValues(XtParent(list), XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                  XmATTACH_WIDGET, XmNrightWidget, prev, XmNrightOffset, 8, XmNtopAttachment,
                  XmATTACH_WIDGET, XmNtopWidget, title, XmNtopOffset, 6, nullptr);
    XtManageChild(list);
    l.above = XtParent(list);
  }

  Widget outTitle = label(&l, "labelOutput", "Output");
  l.above = outTitle;
  directoryRow(&l, d, "fncvOutputDir", "buttonOutputDir", "Directory:");
  if (sequence) row(&l, "labelOutputFile", "FileName:", textField(&l, "fncvOutputFile"));
  Widget out =
      formatCombo(&l, d, "fncvOutputList", BuildFormatList(kFormatListWritable), &d->outFormats);
  row(&l, "labelOutputFormat", "Format:", out);
  MyComboBoxSelectPos(out, positionOf(d->outFormats, "png"), false);

  Widget del = toggle(&l, "fncvDelete", "Delete Original", false);
  toggle(&l, "fncvError", "Suppress read errors", gSettings.convertHideError, del);

  // The job's own buttons in one row, then Go / Cancel at the bottom.
  Widget op = button(form, "fncvOp", "Advanced Operations", operationsCB, d);
  placeBelow(&l, op, 10);
  XtVaSetValues(op, XmNleftAttachment, XmATTACH_FORM, nullptr);
  Widget options = button(form, "fncvOptions", "Options...", optionsCB, d);
  XtVaSetValues(options, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, op, XmNleftOffset, 6,
                XmNtopAttachment, XmATTACH_OPPOSITE_WIDGET, XmNtopWidget, op, nullptr);
  Widget save = button(form, "fncvSaveBatch", "Save Batch...", saveBatchCB, d);
  XtVaSetValues(save, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, options, XmNleftOffset, 6,
                XmNtopAttachment, XmATTACH_OPPOSITE_WIDGET, XmNtopWidget, op, nullptr);
  l.above = op;

  Widget sep = XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, form, XmNleftAttachment,
                                       XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  placeBelow(&l, sep, 10);
  l.above = sep;
  Widget cancel = button(form, "buttonCancel", "Cancel", cancelCB, d, 90);
  placeBelow(&l, cancel, 8);
  XtVaSetValues(cancel, XmNrightAttachment, XmATTACH_FORM, nullptr);
  Widget go = button(form, "buttonGo", "Go", goCB, d, 90);
  XtVaSetValues(go, XmNrightAttachment, XmATTACH_WIDGET, XmNrightWidget, cancel, XmNrightOffset, 8,
                XmNtopAttachment, XmATTACH_OPPOSITE_WIDGET, XmNtopWidget, cancel, XmNshowAsDefault,
                1, nullptr);

  XtVaSetValues(form, XmNdefaultButton, go, XmNcancelButton, cancel, nullptr);
  XtManageChild(form);
  XmUpdateDisplay(d->shell);
  TestLog("batch dialog %s 0x%lx", sequence ? "sequence" : "multi", XtWindow(d->shell));
  logWindows(d->shell);
  return d;
}

}  // namespace

void OpenMultiConvert(Widget parent, const std::vector<std::string>& files) {
  BatchDialog* d = createDialog(parent, false);
  if (!files.empty()) addFiles(d, files);
}

void OpenSequenceConvert(Widget parent) { createDialog(parent, true); }
