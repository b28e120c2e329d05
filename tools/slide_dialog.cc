// The slide-show dialog ("VmoraSlide"): the show's options, its timer, its
// list of files, slide files loaded and saved, and the button that starts a
// show. There is one dialog; opening it again raises it.
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
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/app.h"
#include "core/settings.h"
#include "core/test_log.h"
#include "tools/slide_file.h"
#include "tools/slide_show.h"
#include "widgets/file_selector.h"
#include "widgets/message_box.h"

namespace {

using namespace tools;

Widget slideShell = nullptr;

Widget find(const char* name) { return XtNameToWidget(slideShell, name); }

bool toggled(const char* name) { return XmToggleButtonGetState(find(name)); }
void setToggle(const char* name, bool on) { XmToggleButtonSetState(find(name), on, False); }

// The toggles that stand for one option each, and the radio groups.
struct ToggleRow {
  const char* name;
  const char* label;
  bool SlideDialogState::*field;
};
constexpr ToggleRow kOptionToggles[] = {
    {"SlideLoop", "Loop", &SlideDialogState::loop},
    {"SlideFull", "Full screen", &SlideDialogState::fullScreen},
    {"SlideCenter", "Center Window", &SlideDialogState::center},
    {"SlideTitle", "No Title Bar", &SlideDialogState::noTitle},
    {"SlideError", "Suppress read error", &SlideDialogState::suppressErrors},
    {"SlideRandom", "Use Random Order", &SlideDialogState::random},
};
struct RadioRow {
  const char* name;
  const char* label;
};
constexpr RadioRow kModeRadios[] = {
    {"SlideTimer", "Use Timer"},
    {"SlideKeybd", "Use Keyboard Press or Mouse Click"},
};
constexpr RadioRow kSizeRadios[] = {
    // by SlideDialogState::view
    {"SlideFitNo", "Normal size"},
    {"SlideFitLarge", "Fit to Window, large image only"},
    {"SlideFitAll", "Fit to Window, all images"},
};

std::vector<std::string> listedFiles() {
  std::vector<std::string> files;
  Widget list = find("*slideFile");
  XmStringTable items = nullptr;
  int count = 0;
  XtVaGetValues(list, XmNitems, &items, XmNitemCount, &count, nullptr);
  for (int i = 0; i < count; ++i) {
    char* text = nullptr;
    if (XmStringGetLtoR(items[i], const_cast<char*>(XmFONTLIST_DEFAULT_TAG), &text) && text) {
      files.emplace_back(text);
      XtFree(text);
    }
  }
  return files;
}

void addFiles(const std::vector<std::string>& files) {
  Widget list = find("*slideFile");
  for (const std::string& file : files) {
    XmString item = XmStringCreateLocalized(const_cast<char*>(file.c_str()));
    XmListAddItemUnselected(list, item, 0);
    XmStringFree(item);
  }
  TestLog("slideDialog files %d", static_cast<int>(listedFiles().size()));
}

SlideDialogState readDialog() {
  SlideDialogState s;
  s.timerMode = toggled("*SlideTimer");
  char* timer = XmTextFieldGetString(find("*textTimer"));
  s.timer = std::max(1, std::atoi(timer));
  XtFree(timer);
  for (const ToggleRow& t : kOptionToggles)
    s.*t.field = toggled((std::string("*") + t.name).c_str());
  for (int i = 0; i < 3; ++i)
    if (toggled((std::string("*") + kSizeRadios[i].name).c_str())) s.view = i;
  s.files = listedFiles();
  return s;
}

void showState(const SlideDialogState& s) {
  setToggle("*SlideTimer", s.timerMode);
  setToggle("*SlideKeybd", !s.timerMode);
  XmTextFieldSetString(find("*textTimer"), const_cast<char*>(std::to_string(s.timer).c_str()));
  for (const ToggleRow& t : kOptionToggles)
    setToggle((std::string("*") + t.name).c_str(), s.*t.field);
  for (int i = 0; i < 3; ++i)
    setToggle((std::string("*") + kSizeRadios[i].name).c_str(), s.view == i);
  XmListDeleteAllItems(find("*slideFile"));
  addFiles(s.files);
}

// The dialog starts from the Slide settings, and gives them back when a show
// starts, so that the next session offers the same.
SlideDialogState fromSettings() {
  SlideDialogState s;
  s.timerMode = gSettings.slideTimer > 0;
  s.timer = std::max(1, gSettings.slideTimer);
  s.loop = gSettings.slideLoop;
  s.fullScreen = gSettings.slideFull;
  s.center = gSettings.slideCenter;
  s.random = gSettings.slideRandom;
  s.noTitle = gSettings.slideNoTitle;
  s.suppressErrors = gSettings.slideNoError;
  s.view = gSettings.slideFitToWindow ? 2 : gSettings.slideResize ? 1 : 0;
  return s;
}

void toSettings(const SlideDialogState& s) {
  gSettings.slideTimer = s.timer;
  gSettings.slideLoop = s.loop;
  gSettings.slideFull = s.fullScreen;
  gSettings.slideCenter = s.center;
  gSettings.slideRandom = s.random;
  gSettings.slideNoTitle = s.noTitle;
  gSettings.slideNoError = s.suppressErrors;
  gSettings.slideFitToWindow = s.view == 2;
  gSettings.slideResize = s.view == 1;
}

const std::vector<FormatListRow>& slideRows() {
  static const std::vector<FormatListRow> rows = {{"Slide Files (*.sld)", "sld;", -1}};
  return rows;
}

// Buttons.

void addCmd() {
  FileSelectorRequest request;
  request.title = "Select Multi File ...";
  request.mode = FileSelectorMode::kOpenMany;
  request.formatOptions = kFormatListAllGraphics | kFormatListAllFiles | kFormatListReadable;
  const FileSelectorResult chosen = RunFileSelector(slideShell, request);
  if (chosen.accepted) addFiles(chosen.paths);
}

// A folder adds the pictures in it that the codec library recognises.
void addFolderCmd() {
  FileSelectorRequest request;
  request.title = "Select Directory ...";
  request.mode = FileSelectorMode::kDirectory;
  const FileSelectorResult chosen = RunFileSelector(slideShell, request);
  if (chosen.accepted && !chosen.paths.empty()) addFiles(PicturesInFolder(chosen.paths.front()));
}

void removeCmd() {
  Widget list = find("*slideFile");
  int* positions = nullptr;
  int count = 0;
  if (XmListGetSelectedPos(list, &positions, &count)) {
    XmListDeletePositions(list, positions, count);
    XtFree(reinterpret_cast<char*>(positions));
  }
  TestLog("slideDialog files %d", static_cast<int>(listedFiles().size()));
}

void removeAllCmd() {
  XmListDeleteAllItems(find("*slideFile"));
  TestLog("slideDialog files 0");
}

void loadCmd() {
  FileSelectorRequest request;
  request.title = "Load Slide File...";
  request.mode = FileSelectorMode::kOpenOne;
  request.filters = slideRows();
  const FileSelectorResult chosen = RunFileSelector(slideShell, request);
  if (!chosen.accepted || chosen.paths.empty()) return;
  const std::string& path = chosen.paths.front();
  SlideFileContents contents;
  const SlideFileResult result = ReadSlideFile(path.c_str(), &contents);
  if (result == SlideFileResult::kCannotOpen) {
    ShowMessage(slideShell, "Error", ("Can't open file : " + path).c_str(), true);
    return;
  }
  if (result != SlideFileResult::kLoaded) return;
  SlideDialogState state = readDialog();
  ApplySlideFile(contents, &state);
  showState(state);
  TestLog("slideDialog loaded %s flags %#x", path.c_str(), SlideFlagsOf(state));
}

void saveCmd() {
  FileSelectorRequest request;
  request.title = "Save Slide File...";
  request.mode = FileSelectorMode::kSave;
  request.filters = slideRows();
  const FileSelectorResult chosen = RunFileSelector(slideShell, request);
  if (!chosen.accepted || chosen.paths.empty()) return;
  const std::string& path = chosen.paths.front();
  if (!WriteSlideFile(path.c_str(), readDialog())) {
    ShowMessage(slideShell, "Error", ("Can't open file : " + path).c_str(), true);
    return;
  }
  TestLog("slideDialog saved %s", path.c_str());
}

void goCmd() {
  const SlideDialogState state = readDialog();
  if (state.files.empty()) return;
  toSettings(state);
  std::vector<SlideFileName> files;
  for (const std::string& f : state.files) {
    SlideFileName name{};
    std::memcpy(name.path, f.data(), std::min(f.size(), sizeof name.path - 1));
    files.push_back(name);
  }
  StartSlideShowOf(files, SlideFlagsOf(state), SlideDelayOf(state));
}

void closeCmd() { XtDestroyWidget(slideShell); }

// The command words of the dialog: its buttons and the list's keys.
struct SlideCommand {
  const char* word;
  const char* button;  // widget name; null for words with no button of their own
  const char* label;
  void (*run)();
};
constexpr SlideCommand kSlideCommands[] = {
    {"add", "buttonAdd", "Add...", addCmd},
    {"addFolder", "buttonAddFolder", "Add Folder...", addFolderCmd},
    {"remove", "buttonRemove", "Remove", removeCmd},
    {"removeAll", "buttonRemoveAll", "Remove All", removeAllCmd},
    {"load", "buttonLoad", "Load...", loadCmd},
    {"save", "buttonSave", "Save...", saveCmd},
    {"go", "buttonGo", "Start", goCmd},
    {"close", "buttonClose", "Close", closeCmd},
};

void buttonCB(Widget, XtPointer data, XtPointer) { static_cast<const SlideCommand*>(data)->run(); }

void destroyCB(Widget, XtPointer, XtPointer) {
  slideShell = nullptr;
  TestLog("slideDialog closed");
}

Widget frame(Widget parent, const char* name, const char* title) {
  Widget f = XtVaCreateManagedWidget(name, xmFrameWidgetClass, parent, nullptr);
  XmString t = XmStringCreateLocalized(const_cast<char*>(title));
  XtVaCreateManagedWidget("title", xmLabelWidgetClass, f, XmNlabelString, t, XmNchildType,
                          XmFRAME_TITLE_CHILD, nullptr);
  XmStringFree(t);
  return f;
}

Widget toggle(Widget parent, const char* name, const char* label) {
  XmString t = XmStringCreateLocalized(const_cast<char*>(label));
  Widget w =
      XtVaCreateManagedWidget(name, xmToggleButtonWidgetClass, parent, XmNlabelString, t, nullptr);
  XmStringFree(t);
  return w;
}

Widget radioBox(Widget parent, const char* name) {
  return XtVaCreateManagedWidget(name, xmRowColumnWidgetClass, parent, XmNradioBehavior, True,
                                 XmNpacking, XmPACK_COLUMN, nullptr);
}

void createDialog(Widget parent) {
  slideShell = XtVaCreatePopupShell("VmoraSlide", xmDialogShellWidgetClass, parent, XmNtitle,
                                    "Slide Show", XmNdeleteResponse, XmDESTROY, nullptr);
  XtAddCallback(slideShell, XmNdestroyCallback, destroyCB, nullptr);
  Widget form = XtVaCreateWidget("form", xmFormWidgetClass, slideShell, XmNmarginWidth, 8,
                                 XmNmarginHeight, 8, XmNautoUnmanage, False, nullptr);

  // Left: how the show advances, its options and the picture size.
  Widget left = XtVaCreateManagedWidget("options", xmRowColumnWidgetClass, form, XmNtopAttachment,
                                        XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM,
                                        XmNbottomAttachment, XmATTACH_FORM, nullptr);
  Widget advance = XtVaCreateManagedWidget("rowAdvance", xmRowColumnWidgetClass,
                                           frame(left, "frameMode", "Advance"), nullptr);
  Widget mode = radioBox(advance, "radioMode");
  for (const RadioRow& r : kModeRadios) toggle(mode, r.name, r.label);
  Widget delay = XtVaCreateManagedWidget("rowTimer", xmRowColumnWidgetClass, advance,
                                         XmNorientation, XmHORIZONTAL, nullptr);
  XmString t = XmStringCreateLocalized(const_cast<char*>("Seconds between pictures:"));
  XtVaCreateManagedWidget("labelTimer", xmLabelWidgetClass, delay, XmNlabelString, t, nullptr);
  XmStringFree(t);
  XtVaCreateManagedWidget("textTimer", xmTextFieldWidgetClass, delay, XmNcolumns, 5, nullptr);
  Widget options = XtVaCreateManagedWidget("rowOptions", xmRowColumnWidgetClass,
                                           frame(left, "frameOptions", "Options"), nullptr);
  for (const ToggleRow& t : kOptionToggles) toggle(options, t.name, t.label);
  Widget size = radioBox(frame(left, "frameSize", "Full screen size"), "radioSize");
  for (const RadioRow& r : kSizeRadios) toggle(size, r.name, r.label);

  // Right: the file list and the buttons.
  Widget buttons =
      XtVaCreateManagedWidget("buttons", xmRowColumnWidgetClass, form, XmNorientation, XmHORIZONTAL,
                              XmNpacking, XmPACK_COLUMN, XmNnumColumns, 2, XmNrightAttachment,
                              XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment,
                              XmATTACH_WIDGET, XmNleftWidget, left, XmNleftOffset, 8, nullptr);
  for (const SlideCommand& c : kSlideCommands) {
    XmString t = XmStringCreateLocalized(const_cast<char*>(c.label));
    Widget b = XtVaCreateManagedWidget(c.button, xmPushButtonWidgetClass, buttons, XmNlabelString,
                                       t, nullptr);
    XmStringFree(t);
    XtAddCallback(b, XmNactivateCallback, buttonCB, const_cast<SlideCommand*>(&c));
  }
  Arg args[3];
  XtSetArg(args[0], XmNselectionPolicy, XmEXTENDED_SELECT);
  XtSetArg(args[1], XmNvisibleItemCount, 12);
  XtSetArg(args[2], XmNwidth, 360);
  Widget list = XmCreateScrolledList(form, const_cast<char*>("slideFile"), args, 3);
  XtVaSetValues(XtParent(list), XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_WIDGET,
                XmNleftWidget, left, XmNleftOffset, 8, XmNrightAttachment, XmATTACH_FORM,
                XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, buttons, XmNbottomOffset, 8,
                nullptr);
  XtOverrideTranslations(list, XtParseTranslationTable("<Key>osfInsert: SlideDoCommand(add)\n"
                                                       "<Key>osfDelete: SlideDoCommand(remove)"));
  XtManageChild(list);
  XtVaSetValues(form, XmNdefaultButton, find("*buttonGo"), XmNcancelButton, find("*buttonClose"),
                nullptr);
  showState(fromSettings());
  XtManageChild(form);
}

}  // namespace

void SlideDoCommand(Widget, XEvent*, String* params, Cardinal* count) {
  if (!slideShell || !count || *count != 1) return;
  for (const SlideCommand& c : kSlideCommands)
    if (std::strcmp(params[0], c.word) == 0) c.run();
}

void StartSlideShow(Widget, const char* file) {
  TestLog("slide %s", file ? file : "");
  if (file) {
    openSlideShow(file);
    return;
  }
  // The dialog outlives the window it was opened from.
  const bool created = !slideShell;
  if (created) createDialog(topLevel);
  XtPopup(slideShell, XtGrabNone);
  XRaiseWindow(XtDisplay(slideShell), XtWindow(slideShell));
  XmProcessTraversal(find("*slideFile"), XmTRAVERSE_CURRENT);
  TestLog("slideDialog %#lx", XtWindow(slideShell));
  if (created && TestMode()) {
    std::string windows;
    for (const SlideCommand& c : kSlideCommands)
      windows += " " + std::string(c.word) + "=" +
                 std::to_string(XtWindow(find((std::string("*") + c.button).c_str())));
    TestLog("slideDialog buttons%s list=%lu", windows.c_str(), XtWindow(find("*slideFile")));
  }
}
