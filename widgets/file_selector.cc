// The file selector dialog.
#include "widgets/file_selector.h"

#include <Xm/DialogS.h>
#include <Xm/Form.h>
#include <Xm/Label.h>
#include <Xm/List.h>
#include <Xm/Protocols.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/Separator.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "core/app.h"
#include "core/messages.h"
#include "core/picture_io.h"
#include "core/settings.h"
#include "core/test_log.h"
#include "display/colormap.h"
#include "display/converter.h"
#include "display/visual.h"
#include "widgets/combo_box.h"
#include "widgets/file_list.h"
#include "widgets/message_box.h"

namespace {

constexpr int kPreviewWidth = 160;
constexpr int kPreviewHeight = 120;

// One open dialog. It belongs to the shell and is freed by its destroy
// callback, so that nothing the toolkit still calls after the answer can
// reach freed memory.
struct Selector {
  FileSelectorRequest request;
  std::vector<FormatListRow> rows;
  std::string directory;
  std::vector<std::string> directories;  // as listed in scrolledList1
  std::vector<std::string> files;        // as listed in scrolledList2
  int filter = 0;                        // chosen row
  bool preview = true;                   // the toggle; written to the settings on accept
  bool settingName = false;              // the name field is being filled by the program
  int answer = 0;                        // 0 waiting, 1 accepted, 2 cancelled
  FileSelectorResult result;

  Widget shell = nullptr, form = nullptr, comboDirectory = nullptr, comboFilter = nullptr;
  Widget dirList = nullptr, fileList = nullptr, nameText = nullptr;
  Widget labelType = nullptr, labelWidth = nullptr, labelHeight = nullptr, labelPlanes = nullptr;
  Widget labelBits = nullptr, labelColors = nullptr, labelPreview = nullptr;
  Widget togglePreview = nullptr;

  // The preview, drawn in the screen's default visual.
  DisplayVisual visual{};
  ColormapRecord* colormap = nullptr;
  GC gc = nullptr;
  Pixmap previewPixmap = None;
  int previewWidth = 0, previewHeight = 0;

  XtIntervalId destroyTimer = 0;  // the shell's destruction after the answer
  bool* alive = nullptr;          // cleared when the shell goes while waiting
};

// The dialog's state hangs on its form (shells have no user data).
Selector* selectorOf(Widget w) {
  while (w && !XtIsShell(w)) w = XtParent(w);
  Widget form = w ? XtNameToWidget(w, "form") : nullptr;
  if (!form) return nullptr;
  XtPointer data = nullptr;
  XtVaGetValues(form, XmNuserData, &data, nullptr);
  return static_cast<Selector*>(data);
}

bool isDirectory(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isFile(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

std::string currentDirectory() {
  char buffer[kPathSize];
  return getcwd(buffer, sizeof buffer) ? buffer : "/";
}

void setLabel(Widget label, const std::string& text) {
  XmString s = XmStringCreateLocalized(const_cast<char*>(text.empty() ? " " : text.c_str()));
  XtVaSetValues(label, XmNlabelString, s, nullptr);
  XmStringFree(s);
}

void fillList(Widget list, const std::vector<std::string>& names) {
  XmListDeleteAllItems(list);
  std::vector<XmString> items;
  items.reserve(names.size());
  for (const std::string& name : names)
    items.push_back(XmStringCreateLocalized(const_cast<char*>(name.c_str())));
  if (!items.empty()) XmListAddItems(list, items.data(), static_cast<int>(items.size()), 0);
  for (XmString s : items) XmStringFree(s);
}

void setName(Selector* s, const std::string& name) {
  s->settingName = true;
  XmTextFieldSetString(s->nameText, const_cast<char*>(name.c_str()));
  XmTextFieldSetInsertionPosition(s->nameText, static_cast<XmTextPosition>(name.size()));
  s->settingName = false;
}

std::string nameOf(Selector* s) {
  char* text = XmTextFieldGetString(s->nameText);
  std::string name = text ? text : "";
  XtFree(text);
  const size_t first = name.find_first_not_of(' ');
  const size_t last = name.find_last_not_of(' ');
  return first == std::string::npos ? "" : name.substr(first, last - first + 1);
}

// Information and preview.

void logPreview(const Selector* s) {
  TestLog("fileselector preview 0x%lx %dx%d", XtWindow(s->labelPreview), s->previewWidth,
          s->previewHeight);
}

void clearPreview(Selector* s) {
  XtVaSetValues(s->labelPreview, XmNlabelPixmap, XmUNSPECIFIED_PIXMAP, nullptr);
  if (s->previewPixmap != None) XFreePixmap(XtDisplay(s->shell), s->previewPixmap);
  s->previewPixmap = None;
}

void drawPreview(Selector* s, const std::string& path, int16_t formatIndex) {
  clearPreview(s);
  if (!s->preview) return;
  ImageRecord picture;
  std::memset(&picture, 0, sizeof picture);
  if (LoadPicture(path.c_str(), &picture, formatIndex, kPreviewWidth, kPreviewHeight) != 0) {
    FreePicture(&picture);
    return;
  }
  Display* dpy = XtDisplay(s->shell);
  if (!s->colormap) {
    ImageRecord none;
    std::memset(&none, 0, sizeof none);
    chooseVisual(dpy, 0, &s->visual);
    s->colormap = acquireColormap(dpy, none, s->visual, false);
    s->gc = XCreateGC(dpy, RootWindow(dpy, DefaultScreen(dpy)), 0, nullptr);
  }
  s->previewPixmap = pictureToPixmap(dpy, picture, s->gc, s->colormap, &s->visual);
  if (s->previewPixmap != None) {
    XtVaSetValues(s->labelPreview, XmNlabelPixmap, s->previewPixmap, nullptr);
    s->previewWidth = picture.width;
    s->previewHeight = picture.height;
    // Before the dialog is on the screen this is reported once it is.
    if (XtIsRealized(s->labelPreview)) logPreview(s);
  }
  FreePicture(&picture);
}

// Shows what the library knows of one file (blank labels for anything else).
void showInformation(Selector* s, const std::string& path) {
  FileInfo info;
  std::memset(&info, 0, sizeof info);
  const bool known =
      !path.empty() && isFile(path) && imkFileInformation(path.c_str(), -1, 0, &info) == 0;
  if (!known) {
    for (Widget label : {s->labelType, s->labelWidth, s->labelHeight, s->labelPlanes, s->labelBits,
                         s->labelColors})
      setLabel(label, "");
    clearPreview(s);
    TestLog("fileselector info none");
    return;
  }
  char width[32], height[32], planes[32], bits[32];
  std::snprintf(width, sizeof width, "Width: %d", info.width);
  std::snprintf(height, sizeof height, "Height: %d", info.height);
  std::snprintf(planes, sizeof planes, "# Planes: %d", info.planes);
  std::snprintf(bits, sizeof bits, "Bits Per Plane: %d", info.bitsPerPlane);
  const std::string type(info.formatName, strnlen(info.formatName, sizeof info.formatName));
  const std::string colours = FileColorsText(info.planes, info.bitsPerPlane);
  setLabel(s->labelType, type);
  setLabel(s->labelWidth, width);
  setLabel(s->labelHeight, height);
  setLabel(s->labelPlanes, planes);
  setLabel(s->labelBits, bits);
  setLabel(s->labelColors, colours);
  TestLog("fileselector info %s|%s|%s|%s|%s|%s", type.c_str(), width, height, planes, bits,
          colours.c_str());
  drawPreview(s, path, info.formatIndex);
}

// The listing.

bool selectNamed(Selector* s);

void fillDirectoryCombo(Selector* s) {
  MyComboBoxDeleteAllItems(s->comboDirectory);
  MyComboBoxAddItem(s->comboDirectory, s->directory.c_str(), -1);
  for (const auto& name : gSettings.dirName)
    if (name[0] && s->directory != name) MyComboBoxAddItem(s->comboDirectory, name, -1);
  MyComboBoxSelectPos(s->comboDirectory, 0, false);
}

// Lists `directory` with the chosen filter; false (and nothing changed)
// when it cannot be read.
bool showDirectory(Selector* s, const std::string& directory) {
  const std::string& pattern = s->rows.empty() ? std::string() : s->rows[s->filter].pattern;
  DirectoryListing listing = ListDirectory(directory, pattern);
  if (!listing.readable) {
    XBell(XtDisplay(s->shell), 0);
    return false;
  }
  s->directory = directory;
  s->files = std::move(listing.files);
  s->directories = std::move(listing.directories);
  fillList(s->dirList, s->directories);
  fillList(s->fileList,
           s->request.mode == FileSelectorMode::kDirectory ? std::vector<std::string>() : s->files);
  fillDirectoryCombo(s);
  if (s->request.mode != FileSelectorMode::kDirectory) selectNamed(s);
  TestLog("fileselector directory %s dirs %d files %d", directory.c_str(),
          static_cast<int>(s->directories.size()), static_cast<int>(s->files.size()));
  return true;
}

// The names in the name field: one name, or several in double quotes.
std::vector<std::string> namesOf(const std::string& text) {
  std::vector<std::string> names;
  if (text.empty() || text[0] != '"') {
    if (!text.empty()) names.push_back(text);
    return names;
  }
  size_t at = 0;
  while ((at = text.find('"', at)) != std::string::npos) {
    const size_t end = text.find('"', at + 1);
    if (end == std::string::npos) break;
    if (end > at + 1) names.push_back(text.substr(at + 1, end - at - 1));
    at = end + 1;
  }
  return names;
}

// The format row that fits a file name's extension, or -1.
int rowForName(const Selector* s, const std::string& name) {
  for (size_t i = 0; i < s->rows.size(); ++i)
    if (s->rows[i].index >= 0 && MatchesPattern(name, s->rows[i].pattern))
      return static_cast<int>(i);
  return -1;
}

// A saved name takes the chosen format's first extension unless it already
// has one of the format's.
std::string withFormatExtension(const Selector* s, const std::string& name) {
  if (s->rows.empty()) return name;
  const FormatListRow& row = s->rows[s->filter];
  if (row.index < 0 || row.pattern.empty() || MatchesPattern(name, row.pattern)) return name;
  const std::string extension = row.pattern.substr(0, row.pattern.find(';'));
  const size_t slash = name.rfind('/');
  const size_t dot = name.rfind('.');
  const std::string stem =
      dot != std::string::npos && (slash == std::string::npos || dot > slash) && dot > 0
          ? name.substr(0, dot)
          : name;
  return stem + "." + extension;
}

// The answer.

void finish(Selector* s, int answer) {
  if (s->answer != 0) return;
  s->answer = answer;
  if (answer == 2) {
    TestLog("fileselector cancel");
    return;
  }
  const std::string directory = s->request.mode == FileSelectorMode::kDirectory
                                    ? s->result.paths.front()
                                    : DirectoryOf(s->result.paths.front());
  char* remembered =
      s->request.mode == FileSelectorMode::kSave ? gSettings.pathSave : gSettings.pathLoad;
  std::snprintf(remembered, kPathSize, "%s", directory.c_str());
  AddRecentDirectory(gSettings, directory);
  gSettings.loadPreview = s->preview;
  for (const std::string& path : s->result.paths) TestLog("fileselector accept %s", path.c_str());
  TestLog("fileselector format %d", s->result.formatIndex);
}

void accept(Selector* s) {
  if (s->answer != 0) return;
  const std::string text = nameOf(s);
  FileSelectorResult& r = s->result;
  r.paths.clear();
  r.accepted = false;
  r.formatIndex = s->rows.empty() ? -1 : s->rows[s->filter].index;

  if (s->request.mode == FileSelectorMode::kDirectory) {
    const std::string typed = CleanPath(text, s->directory);
    r.paths.push_back(!text.empty() && isDirectory(typed) ? typed : s->directory);
    r.accepted = true;
    finish(s, 1);
    return;
  }
  const std::vector<std::string> names = namesOf(text);
  if (names.empty()) {
    XBell(XtDisplay(s->shell), 0);
    return;
  }
  // A directory typed alone is entered.
  if (names.size() == 1 && isDirectory(CleanPath(names[0], s->directory))) {
    if (showDirectory(s, CleanPath(names[0], s->directory))) setName(s, "");
    return;
  }
  if (s->request.mode == FileSelectorMode::kSave) {
    const std::string path = CleanPath(withFormatExtension(s, names[0]), s->directory);
    if (!isDirectory(DirectoryOf(path))) {
      ShowMessage(s->shell, "Error", PictureErrorText(path.c_str(), 5, nullptr).c_str(), true);
      return;
    }
    r.paths.push_back(path);
  } else {
    if (s->request.mode == FileSelectorMode::kOpenOne && names.size() > 1) {
      XBell(XtDisplay(s->shell), 0);
      return;
    }
    for (const std::string& name : names) {
      const std::string path = CleanPath(name, s->directory);
      if (!isFile(path)) {
        ShowMessage(s->shell, "Error", PictureErrorText(path.c_str(), 4, nullptr).c_str(), true);
        r.paths.clear();
        return;
      }
      r.paths.push_back(path);
    }
    if (r.formatIndex < 0 && r.paths.size() == 1) {
      FileInfo info;
      std::memset(&info, 0, sizeof info);
      if (imkFileInformation(r.paths[0].c_str(), -1, 0, &info) == 0)
        r.formatIndex = info.formatIndex;
    }
  }
  r.accepted = true;
  finish(s, 1);
}

// Callbacks.

void okCB(Widget w, XtPointer, XtPointer) {
  if (Selector* s = selectorOf(w)) accept(s);
}

void cancelCB(Widget w, XtPointer, XtPointer) {
  if (Selector* s = selectorOf(w)) finish(s, 2);
}

void enterDirectory(Selector* s, int position) {
  if (position < 1 || position > static_cast<int>(s->directories.size())) return;
  showDirectory(s, CleanPath(s->directories[static_cast<size_t>(position - 1)], s->directory));
}

void directoryDefaultCB(Widget w, XtPointer, XtPointer data) {
  Selector* s = selectorOf(w);
  if (s) enterDirectory(s, static_cast<XmListCallbackStruct*>(data)->item_position);
}

// Return in the directory list enters the directory and goes no further (the
// list would otherwise also press the dialog's default button).
void FileSelectorEnter(Widget w, XEvent*, String*, Cardinal*) {
  Selector* s = selectorOf(w);
  if (!s) return;
  int* positions = nullptr;
  int count = 0;
  if (XmListGetSelectedPos(s->dirList, &positions, &count) && count > 0) {
    const int position = positions[0];
    XtFree(reinterpret_cast<char*>(positions));
    enterDirectory(s, position);
  } else {
    enterDirectory(s, XmListGetKbdItemPos(s->dirList));
  }
}

void fileSelectionCB(Widget w, XtPointer, XtPointer data) {
  Selector* s = selectorOf(w);
  if (!s) return;
  const auto* cb = static_cast<XmListCallbackStruct*>(data);
  std::vector<std::string> chosen;
  if (cb->reason == XmCR_EXTENDED_SELECT) {
    for (int i = 0; i < cb->selected_item_count; ++i) {
      const int p = cb->selected_item_positions[i] - 1;
      if (p >= 0 && p < static_cast<int>(s->files.size()))
        chosen.push_back(s->files[static_cast<size_t>(p)]);
    }
  } else if (cb->item_position >= 1 && cb->item_position <= static_cast<int>(s->files.size())) {
    chosen.push_back(s->files[static_cast<size_t>(cb->item_position - 1)]);
  }
  if (chosen.size() == 1) {
    setName(s, s->request.mode == FileSelectorMode::kSave ? withFormatExtension(s, chosen[0])
                                                          : chosen[0]);
    showInformation(s, JoinPath(s->directory, chosen[0]));
  } else {
    std::string text;
    for (const std::string& name : chosen) text += (text.empty() ? "\"" : " \"") + name + "\"";
    setName(s, text);
    showInformation(s, "");
  }
}

void fileDefaultCB(Widget w, XtPointer, XtPointer) {
  if (Selector* s = selectorOf(w)) accept(s);
}

// Selects the file the name field names, if it is listed; true then.
bool selectNamed(Selector* s) {
  const std::string name = nameOf(s);
  const auto found = std::find(s->files.begin(), s->files.end(), name);
  XmListDeselectAllItems(s->fileList);
  if (found == s->files.end()) return false;
  const int position = static_cast<int>(found - s->files.begin()) + 1;
  XmListSelectPos(s->fileList, position, False);
  XmListSetKbdItemPos(s->fileList, position);
  int top = 0, visible = 0;
  XtVaGetValues(s->fileList, XmNtopItemPosition, &top, XmNvisibleItemCount, &visible, nullptr);
  if (position < top || position >= top + visible) XmListSetPos(s->fileList, position);
  return true;
}

// Typing a listed name selects it in the list and shows its information.
void nameChangedCB(Widget w, XtPointer, XtPointer) {
  Selector* s = selectorOf(w);
  if (!s || s->settingName) return;
  if (selectNamed(s)) showInformation(s, JoinPath(s->directory, nameOf(s)));
}

void nameActivateCB(Widget w, XtPointer, XtPointer) {
  if (Selector* s = selectorOf(w)) accept(s);
}

void directoryChosenCB(Widget w, XtPointer, XtPointer data) {
  Selector* s = selectorOf(w);
  if (!s) return;
  const auto* cb = static_cast<MyComboBoxCallbackStruct*>(data);
  const std::string target = CleanPath(cb->text ? cb->text : "", s->directory);
  if (target != s->directory && !showDirectory(s, target)) fillDirectoryCombo(s);
}

void filterChosenCB(Widget w, XtPointer, XtPointer data) {
  Selector* s = selectorOf(w);
  if (!s) return;
  const int position = static_cast<MyComboBoxCallbackStruct*>(data)->position;
  if (position < 0 || position >= static_cast<int>(s->rows.size())) return;
  s->filter = position;
  if (s->request.mode == FileSelectorMode::kSave) {
    const std::string name = nameOf(s);
    if (!name.empty()) setName(s, withFormatExtension(s, name));
  }
  showDirectory(s, s->directory);
  TestLog("fileselector filter %s", s->rows[static_cast<size_t>(position)].label.c_str());
}

void previewToggleCB(Widget w, XtPointer, XtPointer data) {
  Selector* s = selectorOf(w);
  if (!s) return;
  s->preview = static_cast<XmToggleButtonCallbackStruct*>(data)->set;
  const std::string name = nameOf(s);
  if (s->preview && !name.empty() && name[0] != '"')
    showInformation(s, CleanPath(name, s->directory));
  else
    clearPreview(s);
}

void destroyCB(Widget, XtPointer data, XtPointer) {
  Selector* s = static_cast<Selector*>(data);
  Display* dpy = XtDisplay(s->shell);
  if (s->previewPixmap != None) XFreePixmap(dpy, s->previewPixmap);
  if (s->gc) XFreeGC(dpy, s->gc);
  if (s->colormap) releaseColormap(s->colormap);
  // Destroyed with its parent before its own time-out came.
  if (s->destroyTimer) XtRemoveTimeOut(s->destroyTimer);
  if (s->alive) *s->alive = false;
  delete s;
  TestLog("fileselector closed");
}

// Reported once the dialog is on the screen, ready for keys.
void mappedHandler(Widget w, XtPointer, XEvent* event, Boolean*) {
  if (event->type != MapNotify) return;
  XtRemoveEventHandler(w, StructureNotifyMask, False, mappedHandler, nullptr);
  Selector* s = selectorOf(w);
  if (!s) return;
  XmProcessTraversal(s->nameText, XmTRAVERSE_CURRENT);
  TestLog("fileselector 0x%lx %s", XtWindow(w), s->request.title);
  if (s->previewPixmap != None) logPreview(s);
}

void destroyTimeout(XtPointer data, XtIntervalId*) {
  Selector* s = static_cast<Selector*>(data);
  s->destroyTimer = 0;
  XtDestroyWidget(s->shell);
}

XtActionsRec kActions[] = {
    {const_cast<char*>("FileSelectorEnter"), FileSelectorEnter},
};

const char kDirectoryListTranslations[] =
    "~Shift ~Ctrl ~Meta ~Alt<Key>Return: FileSelectorEnter()\n"
    "<Key>osfActivate: FileSelectorEnter()\n";

// Widgets.

Widget label(Widget parent, const char* name, const char* text) {
  XmString s = XmStringCreateLocalized(const_cast<char*>(text));
  Widget w = XtVaCreateManagedWidget(name, xmLabelWidgetClass, parent, XmNlabelString, s,
                                     XmNalignment, XmALIGNMENT_BEGINNING, nullptr);
  XmStringFree(s);
  return w;
}

Widget button(Widget parent, const char* name, const char* text) {
  XmString s = XmStringCreateLocalized(const_cast<char*>(text));
  Widget w =
      XtVaCreateManagedWidget(name, xmPushButtonWidgetClass, parent, XmNlabelString, s, nullptr);
  XmStringFree(s);
  return w;
}

// A label of fixed width at the start of a row.
Widget rowLabel(Widget form, const char* name, const char* text, Widget below) {
  Widget w = label(form, name, text);
  XtVaSetValues(w, XmNwidth, 80, XmNrecomputeSize, False, XmNleftAttachment, XmATTACH_FORM,
                XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, below, XmNbottomOffset, 8,
                nullptr);
  return w;
}

Widget createDialog(Selector* s, Widget parent) {
  Display* dpy = XtDisplay(parent);
  const int scr = DefaultScreen(dpy);
  s->shell = XtVaCreatePopupShell("FileSelector", xmDialogShellWidgetClass, parent, XmNtitle,
                                  s->request.title, XmNvisual, DefaultVisual(dpy, scr), XmNcolormap,
                                  DefaultColormap(dpy, scr), XmNdepth, DefaultDepth(dpy, scr),
                                  XmNdeleteResponse, XmDO_NOTHING, XmNuserData, s, nullptr);
  XtAddCallback(s->shell, XmNdestroyCallback, destroyCB, s);
  Atom deleteWindow = XmInternAtom(dpy, const_cast<char*>("WM_DELETE_WINDOW"), False);
  XmAddWMProtocolCallback(s->shell, deleteWindow, cancelCB, nullptr);

  const bool save = s->request.mode == FileSelectorMode::kSave;
  const bool directoryMode = s->request.mode == FileSelectorMode::kDirectory;
  s->form =
      XtVaCreateWidget("form", xmFormWidgetClass, s->shell, XmNdialogStyle,
                       XmDIALOG_FULL_APPLICATION_MODAL, XmNautoUnmanage, False, XmNmarginWidth, 8,
                       XmNmarginHeight, 8, XmNnoResize, False, XmNuserData, s, nullptr);
  Widget form = s->form;

  // Buttons along the bottom.
  Widget ok = button(form, "buttonOk", save ? "Save" : directoryMode ? "OK" : "Open");
  Widget cancel = button(form, "buttonCancel", "Cancel");
  XtVaSetValues(ok, XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_POSITION,
                XmNleftPosition, 15, XmNrightAttachment, XmATTACH_POSITION, XmNrightPosition, 40,
                XmNshowAsDefault, 1, nullptr);
  XtVaSetValues(cancel, XmNbottomAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_POSITION,
                XmNleftPosition, 60, XmNrightAttachment, XmATTACH_POSITION, XmNrightPosition, 85,
                nullptr);
  XtAddCallback(ok, XmNactivateCallback, okCB, nullptr);
  XtAddCallback(cancel, XmNactivateCallback, cancelCB, nullptr);
  Widget separator =
      XtVaCreateManagedWidget("separator", xmSeparatorWidgetClass, form, XmNleftAttachment,
                              XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment,
                              XmATTACH_WIDGET, XmNbottomWidget, ok, XmNbottomOffset, 8, nullptr);

  // Filter (or format) and name rows.
  Widget filterLabel = rowLabel(form, "labelFilter", save ? "Format:" : "Filter:", separator);
  Arg args[2];
  XtSetArg(args[0], XmNeditable, False);
  s->comboFilter = MyComboBoxCreate(form, "comboFilter", args, 1);
  XtVaSetValues(s->comboFilter, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, filterLabel,
                XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET,
                XmNbottomWidget, separator, XmNbottomOffset, 6, nullptr);
  XtManageChild(s->comboFilter);
  XtAddCallback(s->comboFilter, XmNselectionCallback, filterChosenCB, nullptr);
  Widget nameLabel =
      rowLabel(form, "labelName", directoryMode ? "Directory:" : "File name:", s->comboFilter);
  s->nameText = XtVaCreateManagedWidget(
      "textName", xmTextFieldWidgetClass, form, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget,
      nameLabel, XmNrightAttachment, XmATTACH_FORM, XmNbottomAttachment, XmATTACH_WIDGET,
      XmNbottomWidget, s->comboFilter, XmNbottomOffset, 4, nullptr);
  XtAddCallback(s->nameText, XmNvalueChangedCallback, nameChangedCB, nullptr);
  XtAddCallback(s->nameText, XmNactivateCallback, nameActivateCB, nullptr);

  // Directory row along the top.
  Widget lookIn = label(form, "labelDirectory", "Look in:");
  XtVaSetValues(lookIn, XmNwidth, 80, XmNrecomputeSize, False, XmNleftAttachment, XmATTACH_FORM,
                XmNtopAttachment, XmATTACH_FORM, XmNtopOffset, 4, nullptr);
  s->comboDirectory = MyComboBoxCreate(form, "comboBox", nullptr, 0);
  XtVaSetValues(s->comboDirectory, XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget, lookIn,
                XmNrightAttachment, XmATTACH_FORM, XmNtopAttachment, XmATTACH_FORM, nullptr);
  XtManageChild(s->comboDirectory);
  XtAddCallback(s->comboDirectory, XmNselectionCallback, directoryChosenCB, nullptr);

  // Information and preview on the right.
  Widget info = XtVaCreateManagedWidget(
      "info", xmRowColumnWidgetClass, form, XmNorientation, XmVERTICAL, XmNpacking, XmPACK_TIGHT,
      XmNspacing, 2, XmNrightAttachment, XmATTACH_FORM, XmNtopAttachment, XmATTACH_WIDGET,
      XmNtopWidget, s->comboDirectory, XmNtopOffset, 8, XmNbottomAttachment, XmATTACH_WIDGET,
      XmNbottomWidget, s->nameText, XmNbottomOffset, 8, nullptr);
  s->labelType = label(info, "labelType", " ");
  s->labelWidth = label(info, "labelWidth", " ");
  s->labelHeight = label(info, "labelHeight", " ");
  s->labelPlanes = label(info, "labelPlanes", " ");
  s->labelBits = label(info, "labelBits", " ");
  s->labelColors = label(info, "labelColors", " ");
  for (Widget w :
       {s->labelType, s->labelWidth, s->labelHeight, s->labelPlanes, s->labelBits, s->labelColors})
    XtVaSetValues(w, XmNwidth, kPreviewWidth + 4, XmNrecomputeSize, False, nullptr);
  s->labelPreview = XtVaCreateManagedWidget(
      "labelPreview", xmLabelWidgetClass, info, XmNlabelType, XmPIXMAP, XmNlabelPixmap,
      XmUNSPECIFIED_PIXMAP, XmNwidth, kPreviewWidth + 4, XmNheight, kPreviewHeight + 4,
      XmNrecomputeSize, False, XmNmarginWidth, 0, XmNmarginHeight, 0, nullptr);
  XmString previewText = XmStringCreateLocalized(const_cast<char*>("Preview"));
  s->togglePreview =
      XtVaCreateManagedWidget("togglePreview", xmToggleButtonWidgetClass, info, XmNlabelString,
                              previewText, XmNset, s->preview, nullptr);
  XmStringFree(previewText);
  XtAddCallback(s->togglePreview, XmNvalueChangedCallback, previewToggleCB, nullptr);

  // The two lists fill the rest.
  Arg listArgs[5];
  XtSetArg(listArgs[0], XmNselectionPolicy, XmBROWSE_SELECT);
  XtSetArg(listArgs[1], XmNvisibleItemCount, 14);
  XtSetArg(listArgs[2], XmNscrollBarDisplayPolicy, XmSTATIC);
  XtSetArg(listArgs[3], XmNlistSizePolicy, XmCONSTANT);
  XtSetArg(listArgs[4], XmNwidth, 170);
  s->dirList = XmCreateScrolledList(form, const_cast<char*>("scrolledList1"), listArgs, 5);
  XtVaSetValues(XtParent(s->dirList), XmNleftAttachment, XmATTACH_FORM, XmNtopAttachment,
                XmATTACH_WIDGET, XmNtopWidget, s->comboDirectory, XmNtopOffset, 8,
                XmNbottomAttachment, XmATTACH_WIDGET, XmNbottomWidget, s->nameText, XmNbottomOffset,
                8, XmNwidth, 180, nullptr);
  XtAddCallback(s->dirList, XmNdefaultActionCallback, directoryDefaultCB, nullptr);
  XtOverrideTranslations(s->dirList, XtParseTranslationTable(kDirectoryListTranslations));
  XtManageChild(s->dirList);

  XtSetArg(listArgs[0], XmNselectionPolicy,
           s->request.mode == FileSelectorMode::kOpenMany ? XmEXTENDED_SELECT : XmBROWSE_SELECT);
  XtSetArg(listArgs[4], XmNwidth, 230);
  s->fileList = XmCreateScrolledList(form, const_cast<char*>("scrolledList2"), listArgs, 5);
  XtVaSetValues(XtParent(s->fileList), XmNleftAttachment, XmATTACH_WIDGET, XmNleftWidget,
                XtParent(s->dirList), XmNleftOffset, 6, XmNrightAttachment, XmATTACH_WIDGET,
                XmNrightWidget, info, XmNrightOffset, 8, XmNtopAttachment, XmATTACH_WIDGET,
                XmNtopWidget, s->comboDirectory, XmNtopOffset, 8, XmNbottomAttachment,
                XmATTACH_WIDGET, XmNbottomWidget, s->nameText, XmNbottomOffset, 8, nullptr);
  XtAddCallback(s->fileList, XmNbrowseSelectionCallback, fileSelectionCB, nullptr);
  XtAddCallback(s->fileList, XmNextendedSelectionCallback, fileSelectionCB, nullptr);
  XtAddCallback(s->fileList, XmNdefaultActionCallback, fileDefaultCB, nullptr);
  XtManageChild(s->fileList);
  if (directoryMode) XtSetSensitive(XtParent(s->fileList), False);

  // Tab goes round in reading order, not in the order of creation.
  for (Widget w : {s->comboDirectory, XtParent(s->dirList), XtParent(s->fileList), s->nameText,
                   s->comboFilter, s->togglePreview, ok, cancel}) {
    XtVaSetValues(w, XmNnavigationType, XmEXCLUSIVE_TAB_GROUP, nullptr);
    XmAddTabGroup(w);
  }
  XtVaSetValues(form, XmNdefaultButton, ok, XmNcancelButton, cancel, XmNinitialFocus, s->nameText,
                nullptr);
  return s->shell;
}

void registerActions() {
  static XtAppContext done = nullptr;
  if (done == appContext) return;
  XtAppAddActions(appContext, kActions, XtNumber(kActions));
  done = appContext;
}

}  // namespace

FileSelectorResult RunFileSelector(Widget parent, const FileSelectorRequest& request) {
  registerActions();
  Selector* s = new Selector;
  s->request = request;
  const bool save = request.mode == FileSelectorMode::kSave;
  s->rows = save && request.filters.empty() ? BuildFormatList(kFormatListWritable)
            : request.formatOptions         ? BuildFormatList(request.formatOptions)
                                            : request.filters;
  s->preview = gSettings.loadPreview;

  // Where to start, and the name shown at first.
  std::string name = request.name;
  std::string directory = request.directory;
  if (!name.empty() && name.find('/') != std::string::npos) {
    const std::string full = CleanPath(name, currentDirectory());
    if (directory.empty()) directory = DirectoryOf(full);
    name = BaseName(full);
  }
  const char* remembered = save ? gSettings.pathSave : gSettings.pathLoad;
  if (directory.empty() || !isDirectory(directory)) directory = remembered;
  if (directory.empty() || !isDirectory(directory)) directory = currentDirectory();
  directory = CleanPath(directory, currentDirectory());

  createDialog(s, parent ? parent : topLevel);
  for (const FormatListRow& row : s->rows) MyComboBoxAddItem(s->comboFilter, row.label.c_str(), -1);
  if (save && !s->rows.empty()) {
    int row = -1;
    for (size_t i = 0; i < s->rows.size(); ++i)
      if (s->rows[i].index == request.format) row = static_cast<int>(i);
    if (row < 0) row = rowForName(s, name);
    s->filter = std::max(row, 0);
  }
  if (!s->rows.empty()) MyComboBoxSelectPos(s->comboFilter, s->filter, false);
  if (!showDirectory(s, directory)) showDirectory(s, "/");
  if (!name.empty()) {
    setName(s, save ? withFormatExtension(s, name) : name);
    nameChangedCB(s->nameText, nullptr, nullptr);
  }

  XtAddEventHandler(s->shell, StructureNotifyMask, False, mappedHandler, nullptr);
  XtManageChild(s->form);
  bool alive = true;
  s->alive = &alive;
  while (alive && s->answer == 0) XtAppProcessEvent(appContext, XtIMAll);
  if (!alive) return FileSelectorResult{};  // taken down with its parent
  s->alive = nullptr;
  FileSelectorResult result = s->result;
  XtUnmanageChild(s->form);
  // Motif still moves the keyboard focus after the button callbacks; the
  // dialog goes once that is done.
  s->destroyTimer = XtAppAddTimeOut(appContext, 0, destroyTimeout, s);
  return result;
}

FileSelectorResult AskFilesToLoad(Widget parent) {
  FileSelectorRequest request;
  request.title = "Load Files...";
  request.mode = FileSelectorMode::kOpenMany;
  request.formatOptions =
      kFormatListAutomatic | kFormatListAllFiles | kFormatListAllGraphics | kFormatListReadable;
  return RunFileSelector(parent, request);
}

FileSelectorResult AskFileToSave(Widget parent, const std::string& startName, int16_t startFormat) {
  FileSelectorRequest request;
  request.title = "Save File...";
  request.mode = FileSelectorMode::kSave;
  request.format = startFormat;
  request.name = startName;
  return RunFileSelector(parent, request);
}
