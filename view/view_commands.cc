// View commands: the word table, the key translations, the menus and the
// tool bar; all of them end in RunViewCommand.
#include "view/view_commands.h"

#include <Xm/CascadeB.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/SeparatoG.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "core/app.h"
#include "core/messages.h"
#include "core/picture_io.h"
#include "core/save.h"
#include "core/settings.h"
#include "core/test_log.h"
#include "display/icons.h"
#include "process/conversion_items.h"
#include "process/geometry.h"
#include "tools/batch_dialog.h"
#include "tools/hex_dump.h"
#include "tools/slide_file.h"
#include "view/process_menu.h"
#include "view/view_window.h"
#include "widgets/conversion_dialog.h"
#include "widgets/file_selector.h"
#include "widgets/message_box.h"
#include "widgets/options_dialog.h"
#include "widgets/picture_load.h"
#include "widgets/tool_bar.h"

namespace {

// Commands.

// Each chosen file opens in a view window of its own. Without a view (the
// start window's menu) the dialog hangs on the application shell: the start
// window may go once a view is open.
void openCmd(ViewWindow* v, Widget) {
  const FileSelectorResult chosen = AskFilesToLoad(v ? v->shell : nullptr);
  if (!chosen.accepted) return;
  for (const std::string& path : chosen.paths) CreateViewWindow(path.c_str(), -1);
}

// Saves the picture under a chosen name and format, converting it when the
// format cannot hold it.
void saveCmd(ViewWindow* v, Widget) {
  if (!v || !v->picture.pixels) return;
  const FileSelectorResult chosen = AskFileToSave(v->shell, v->path, v->formatIndex);
  if (!chosen.accepted || chosen.paths.empty() || chosen.formatIndex < 0) return;
  const char* path = chosen.paths.front().c_str();
  if (access(path, F_OK) == 0) {
    char question[1100];
    std::snprintf(question, sizeof question, "Replace the existing file \n  '%s' ?", path);
    if (!AskYesNo(v->shell, "Question", question)) return;
  }
  const int result =
      SavePicture(GuiSaveHooks(v->shell), path, chosen.formatIndex, &v->picture, 0, 0, true);
  TestLog("saved %s %d", path, result);
  if (result != 0) return;  // a failed write was reported through the hook
  std::snprintf(v->path, sizeof v->path, "%s", path);
  v->formatIndex = chosen.formatIndex;
  v->modified = false;
  AddRecentFile(gSettings, path);
}

// Chooses any file (the one shown to begin with) and dumps it in hexadecimal.
void viewHexaCmd(ViewWindow* v, Widget origin) {
  FileSelectorRequest request;
  request.title = "View Files...";
  request.mode = FileSelectorMode::kOpenOne;
  request.formatOptions = kFormatListAllFiles;
  if (v) request.name = v->path;  // its directory and name
  const FileSelectorResult chosen = RunFileSelector(v ? v->shell : origin, request);
  if (chosen.accepted && !chosen.paths.empty()) OpenHexDump(chosen.paths.front().c_str());
}

void browseCmd(ViewWindow* v, Widget origin) {
  OpenBrowser(v ? v->shell : origin, browserDirectory.empty() ? nullptr : browserDirectory.c_str());
}

void slideShowCmd(ViewWindow* v, Widget origin) { StartSlideShow(v ? v->shell : origin, nullptr); }

void multiConvertCmd(ViewWindow* v, Widget origin) { OpenMultiConvert(v ? v->shell : origin); }

void sequenceConvertCmd(ViewWindow* v, Widget origin) {
  OpenSequenceConvert(v ? v->shell : origin);
}

void reopenCmd(ViewWindow* v, Widget) {
  if (!v) return;
  ImageRecord picture;
  std::memset(&picture, 0, sizeof picture);
  int16_t formatIndex = v->formatIndex;
  int32_t count = 0;
  FreePicture(&v->picture);
  FreePicture(&v->undoPicture);
  if (LoadPictureWithProgress(v->shell, v->path, v->pictureIndex, &picture, &formatIndex, &count,
                              true) == 0) {
    v->picture = picture;
    v->formatIndex = formatIndex;
    v->pictureCount = count;
  }
  v->modified = false;
  ViewPictureChanged(v);
}

void closeCmd(ViewWindow* v, Widget) {
  if (v) CloseView(v);
}

void quitCmd(ViewWindow*, Widget) { QuitProgram(); }

void optionsCmd(ViewWindow* v, Widget origin) { OpenOptionsDialog(v ? v->shell : origin, 0); }

void undoCmd(ViewWindow* v, Widget) {
  if (!v || !v->undoPicture.pixels) return;
  std::swap(v->picture, v->undoPicture);
  v->modified = true;
  ViewPictureChanged(v);
}

void cropCmd(ViewWindow* v, Widget) {
  if (!v || !v->selectionPresent) return;
  ApplyViewOperation(v, [v](ImageRecord* src, ImageRecord* dst) {
    return process::cropPicture(src, dst, v->selectionX, v->selectionY, v->selectionWidth,
                                v->selectionHeight);
  });
}

// The window takes the size that shows the whole scaled picture (within the
// screen).
void fitWindowToPicture(ViewWindow* v) {
  Dimension shellW = 0, shellH = 0, areaW = 0, areaH = 0;
  XtVaGetValues(v->shell, XmNwidth, &shellW, XmNheight, &shellH, nullptr);
  XtVaGetValues(v->drawingArea, XmNwidth, &areaW, XmNheight, &areaH, nullptr);
  Screen* s = XtScreen(v->shell);
  const int w = std::clamp(shellW + v->converter.outWidth - areaW, 64, WidthOfScreen(s));
  const int h = std::clamp(shellH + v->converter.outHeight - areaH, 64, HeightOfScreen(s));
  XtVaSetValues(v->shell, XmNwidth, w, XmNheight, h, nullptr);
}

void adaptiveCmd(ViewWindow* v, Widget) {
  if (!v) return;
  v->adaptive = !v->adaptive;
  if (v->adaptive) fitWindowToPicture(v);
  UpdateViewSensitivity(v);
}

void fitCmd(ViewWindow* v, Widget) {
  if (!v) return;
  v->fitMode = !v->fitMode;
  RelayoutView(v);
  if (XtIsRealized(v->drawingArea))
    XClearArea(XtDisplay(v->drawingArea), XtWindow(v->drawingArea), 0, 0, 0, 0, True);
  ShowInfo(v);
}

void fullScreenCmd(ViewWindow* v, Widget) {
  if (!v) return;
  if (!v->fullScreenOn) {
    XtVaGetValues(v->shell, XmNx, &v->savedX, XmNy, &v->savedY, XmNwidth, &v->savedWidth, XmNheight,
                  &v->savedHeight, nullptr);
    Screen* s = XtScreen(v->shell);
    XtVaSetValues(v->shell, XmNx, 0, XmNy, 0, XmNwidth, WidthOfScreen(s), XmNheight,
                  HeightOfScreen(s), nullptr);
    if (XtIsRealized(v->shell)) XRaiseWindow(XtDisplay(v->shell), XtWindow(v->shell));
  } else {
    XtVaSetValues(v->shell, XmNx, v->savedX, XmNy, v->savedY, XmNwidth, v->savedWidth, XmNheight,
                  v->savedHeight, nullptr);
  }
  v->fullScreenOn = !v->fullScreenOn;
}

void toggleManaged(Widget w) {
  if (XtIsManaged(w))
    XtUnmanageChild(w);
  else
    XtManageChild(w);
}

void statusBarCmd(ViewWindow* v, Widget) {
  if (!v) return;
  toggleManaged(v->infoLabel);
  UpdateViewSensitivity(v);
}

void toolBarCmd(ViewWindow* v, Widget) {
  if (!v) return;
  toggleManaged(v->toolBar);
  UpdateViewSensitivity(v);
}

void zoomInCmd(ViewWindow* v, Widget) {
  if (v) ZoomView(v, "+1");
}
void zoomOutCmd(ViewWindow* v, Widget) {
  if (v) ZoomView(v, "-1");
}

void firstCmd(ViewWindow* v, Widget) {
  if (v) ShowListFile(v, 0);
}
void lastCmd(ViewWindow* v, Widget) {
  if (v) ShowListFile(v, static_cast<int>(v->fileList.size()) - 1);
}
void nextCmd(ViewWindow* v, Widget) {
  if (v) ShowListFile(v, v->filePosition + 1);
}
void prevCmd(ViewWindow* v, Widget) {
  if (v) ShowListFile(v, v->filePosition - 1);
}
void pageFirstCmd(ViewWindow* v, Widget) {
  if (v) ShowPage(v, 0);
}
void pageLastCmd(ViewWindow* v, Widget) {
  if (v) ShowPage(v, v->pictureCount - 1);
}
void pageNextCmd(ViewWindow* v, Widget) {
  if (v) ShowPage(v, v->pictureIndex + 1);
}
void pagePrevCmd(ViewWindow* v, Widget) {
  if (v) ShowPage(v, v->pictureIndex - 1);
}

}  // namespace

// In the order the words are compared.
// clang-format off
const ViewCommand kViewCommands[] = {
    {"open", openCmd},           {"viewHexa", viewHexaCmd},
    {"browseFiles", browseCmd},  {"reopenFiles", reopenCmd},
    {"close", closeCmd},         {"saveFiles", saveCmd},
    {"slideShow", slideShowCmd}, {"sequenceConvert", sequenceConvertCmd},
    {"multiConvert", multiConvertCmd}, {"quit", quitCmd},
    {"undo", undoCmd},           {"crop", cropCmd},
    {"options", optionsCmd},     {"adaptiveSize", adaptiveCmd},
    {"fitImage", fitCmd},        {"fullScreen", fullScreenCmd},
    {"statusBar", statusBarCmd}, {"toolBar", toolBarCmd},
    {"zoom+", zoomInCmd},        {"zoom-", zoomOutCmd},
    {"first", firstCmd},         {"last", lastCmd},
    {"next", nextCmd},           {"prev", prevCmd},
    {"pageFirst", pageFirstCmd}, {"pageLast", pageLastCmd},
    {"pageNext", pageNextCmd},   {"pagePrev", pagePrevCmd},
};
// clang-format on
const int kViewCommandCount = static_cast<int>(std::size(kViewCommands));

const ViewCommand* FindViewCommand(const char* word) {
  if (!word) return nullptr;
  for (const ViewCommand& c : kViewCommands)
    if (std::strcmp(c.word, word) == 0) return &c;
  return nullptr;
}

void RunViewCommand(ViewWindow* view, const char* word, Widget origin) {
  const ViewCommand* command = FindViewCommand(word);
  if (!command || !command->run) return;
  TestLog("command %s", word);
  command->run(view, origin);
}

void ViewDoCommand(Widget widget, XEvent*, String* params, Cardinal* count) {
  if (*count != 1) return;
  RunViewCommand(ViewOfWidget(widget), params[0], widget);
}

// Keys.

const char* const kViewTranslationLines[] = {
    "~Meta ~Alt ~Ctrl ~Shift<Key>osfRight: ViewKeyScroll(0)",
    "~Meta ~Alt ~Ctrl ~Shift<Key>osfLeft: ViewKeyScroll(1)",
    "~Meta ~Alt ~Ctrl ~Shift<Key>osfUp: ViewKeyScroll(2)",
    "~Meta ~Alt ~Ctrl ~Shift<Key>osfDown: ViewKeyScroll(3)",
    "<Key>osfCancel: ViewClose()",
    "Ctrl ~Alt ~Shift<Key>o: ViewDoCommand(open)",
    "Ctrl ~Alt ~Shift<Key>h: ViewDoCommand(viewHexa)",
    "Ctrl ~Alt ~Shift<Key>b: ViewDoCommand(browseFiles)",
    "Ctrl ~Alt ~Shift<Key>r: ViewDoCommand(reopenFiles)",
    "Ctrl ~Alt ~Shift<Key>c: ViewDoCommand(close)",
    "Ctrl ~Alt ~Shift<Key>s: ViewDoCommand(saveFiles)",
    "Ctrl ~Alt ~Shift<Key>l: ViewDoCommand(slideShow)",
    "Ctrl ~Alt ~Shift<Key>n: ViewDoCommand(sequenceConvert)",
    "Ctrl ~Alt ~Shift<Key>u: ViewDoCommand(multiConvert)",
    "Ctrl ~Alt ~Shift<Key>q: ViewDoCommand(quit)",
    "Ctrl ~Alt ~Shift<Key>z: ViewDoCommand(undo)",
    "Ctrl ~Alt ~Shift<Key>y: ViewDoCommand(crop)",
    "Ctrl ~Alt ~Shift<Key>g: ViewDoCommand(options)",
    "Ctrl ~Alt ~Shift<Key>a: ViewDoCommand(adaptiveSize)",
    "Ctrl ~Alt ~Shift<Key>w: ViewDoCommand(fitImage)",
    "Ctrl ~Alt ~Shift<Key>f: ViewDoCommand(fullScreen)",
    "Ctrl ~Alt Shift<Key>s: ViewDoCommand(statusBar)",
    "Ctrl ~Alt Shift<Key>t: ViewDoCommand(toolBar)",
    "~Meta ~Alt ~Ctrl ~Shift<Key>osfBeginLine: ViewDoCommand(first)",
    "~Meta ~Alt ~Ctrl ~Shift<Key>osfPageDown: ViewDoCommand(next)",
    "~Meta ~Alt ~Ctrl ~Shift<Key>osfPageUp: ViewDoCommand(prev)",
    "~Meta ~Alt ~Ctrl ~Shift<Key>osfEndLine: ViewDoCommand(last)",
    "~Meta ~Alt ~Ctrl Shift<Key>osfBeginLine: ViewDoCommand(pageFirst)",
    "~Meta ~Alt ~Ctrl Shift<Key>osfPageDown: ViewDoCommand(pageNext)",
    "~Meta ~Alt ~Ctrl Shift<Key>osfPageUp: ViewDoCommand(pagePrev)",
    "~Meta ~Alt ~Ctrl Shift<Key>osfEndLine: ViewDoCommand(pageLast)",
    ":<Key>-: ViewDoCommand(zoom-)",
    ":<Key>+: ViewDoCommand(zoom+)",
    "Meta<Key>minus: ViewDoCommand(zoom-)",
    "Meta<Key>plus: ViewDoCommand(zoom+)",
};
const int kViewTranslationLineCount = static_cast<int>(std::size(kViewTranslationLines));

std::string ViewTranslationText() {
  std::string text;
  for (const char* line : kViewTranslationLines) (text += line) += '\n';
  return text;
}

XtTranslations ViewTranslations() {
  static XtTranslations parsed = XtParseTranslationTable(ViewTranslationText().c_str());
  return parsed;
}

// Tool bar.

namespace {

void applyConversion(ViewWindow* v, int number);

// The last six buttons run operations of the Image menu, not command words.
// Conversion items: 256 grey levels, 256 colours (adaptive), true colour.
constexpr int kItemGrey256 = 11, kItemColours256 = 24, kItemTrueColour = 32;
void toolRotateLeft(ViewWindow* v) { ApplyProcessAction(v, kActRotateLeft); }
void toolRotateRight(ViewWindow* v) { ApplyProcessAction(v, kActRotateRight); }
void toolFlip(ViewWindow* v) { ApplyProcessAction(v, kActFlipHorizontal); }
void toolToGrey(ViewWindow* v) { applyConversion(v, kItemGrey256); }
void toolToColours(ViewWindow* v) { applyConversion(v, kItemColours256); }
void toolToTrueColour(ViewWindow* v) { applyConversion(v, kItemTrueColour); }

}  // namespace

const ToolBarButton kToolBarButtons[kToolBarButtonCount] = {
    {kIconOpen, "open", "Open a picture"},
    {kIconSave, "saveFiles", "Save the picture"},
    {kIconClose, "close", "Close this window"},
    {kIconBrowser, "browseFiles", "Browse the files"},
    {kIconPrevFile, "prev", "Previous file"},
    {kIconNextFile, "next", "Next file"},
    {kIconPrevPage, "pagePrev", "Previous page"},
    {kIconNextPage, "pageNext", "Next page"},
    {kIconZoomIn, "zoom+", "Zoom in"},
    {kIconZoomOut, "zoom-", "Zoom out"},
    {kIconFit, "fitImage", "Fit to the window"},
    {kIconFullScreen, "fullScreen", "Full screen"},
    {kIconUndo, "undo", "Undo the last change"},
    {kIconCrop, "crop", "Crop to the selection"},
    {kIconSlideShow, "slideShow", "Slide show"},
    {kIconHexDump, "viewHexa", "View in hexadecimal"},
    {kIconOptions, "options", "Options"},
    {kIconQuit, "quit", "Quit"},
    {kIconRotateLeft, "rotateLeft", "Rotate left", toolRotateLeft},
    {kIconRotateRight, "rotateRight", "Rotate right", toolRotateRight},
    {kIconFlip, "flip", "Flip", toolFlip},
    {kIconToGrey, "toGrey", "Convert to grey", toolToGrey},
    {kIconToColours, "toColors", "Reduce to 256 colours", toolToColours},
    {kIconToTrueColour, "toTrueColor", "Convert to true colour", toolToTrueColour},
};

namespace {

const ToolBarButton* toolButton(const char* word) {
  for (const ToolBarButton& b : kToolBarButtons)
    if (std::strcmp(b.word, word) == 0) return &b;
  return nullptr;
}

void toolButtonCB(Widget w, XtPointer data, XtPointer) {
  const char* word = static_cast<const char*>(data);
  const ToolBarButton* b = toolButton(word);
  ViewWindow* v = ViewOfWidget(w);
  if (b && b->apply) {
    if (v && v->picture.pixels) b->apply(v);
    return;
  }
  RunViewCommand(v, word, w);
}

bool implemented(const char* word) {
  const ViewCommand* c = FindViewCommand(word);
  return c && c->run;
}

// Whether a command can act on the view as it is now.
bool commandSensitive(const ViewWindow* v, const char* word) {
  if (const ToolBarButton* b = toolButton(word); b && b->apply) {
    if (!v || !v->picture.pixels) return false;
    const bool trueColour = v->picture.type != IMK_BINARY && v->picture.type != IMK_GREY &&
                            v->picture.type != IMK_MAPPED;
    return !(b->apply == toolToTrueColour && trueColour);
  }
  if (!implemented(word)) return false;
  if (!v) return true;
  if (std::strcmp(word, "undo") == 0) return v->undoPicture.pixels != nullptr;
  if (std::strcmp(word, "crop") == 0) return v->selectionPresent;
  if (std::strcmp(word, "pageNext") == 0)
    return v->pictureCount > 1 && v->pictureIndex < v->pictureCount - 1;
  if (std::strcmp(word, "pagePrev") == 0) return v->pictureCount > 1 && v->pictureIndex > 0;
  return true;
}

}  // namespace

Widget CreateViewToolBar(ViewWindow* v, Widget mainWindow) {
  ToolBarItem items[kToolBarButtonCount];
  for (int i = 0; i < kToolBarButtonCount; ++i)
    items[i] = {kToolBarButtons[i].word, kToolBarButtons[i].help};
  Widget bar = CreateToolBar(mainWindow, "toolBar", items, kToolBarButtonCount, toolButtonCB,
                             &v->toolButtons);
  makeToolBarPixmaps(v->toolButtons.front(), v->colormap, &v->visual);
  for (int i = 0; i < kToolBarButtonCount; ++i) {
    Pixmap normal = None, insensitive = None;
    ToolBarGetPixmap(kToolBarButtons[i].icon, &normal, &insensitive);
    if (normal != None)
      XtVaSetValues(v->toolButtons[static_cast<size_t>(i)], XmNlabelPixmap, normal,
                    XmNlabelInsensitivePixmap, insensitive, nullptr);
  }
  return bar;
}

// Menus.

namespace {

void menuItemCB(Widget w, XtPointer data, XtPointer) {
  RunViewCommand(ViewOfWidget(w), static_cast<const char*>(data), w);
}

void menuCallbackCB(Widget w, XtPointer data, XtPointer) {
  const MenuItem* item = static_cast<const MenuItem*>(data);
  item->callback(w, item->number);
}

// "Open All...": the pictures of a chosen folder in one window that steps
// through them.
void openAllCB(Widget w, int) {
  ViewWindow* v = ViewOfWidget(w);
  FileSelectorRequest request;
  request.title = "Select Directory ...";
  request.mode = FileSelectorMode::kDirectory;
  const FileSelectorResult chosen = RunFileSelector(v ? v->shell : nullptr, request);
  if (!chosen.accepted || chosen.paths.empty()) return;
  const std::vector<std::string> files = tools::PicturesInFolder(chosen.paths.front());
  if (files.empty()) {
    ShowMessage(v ? v->shell : nullptr, "Open All",
                ("No picture in \n<" + chosen.paths.front() + ">").c_str());
    return;
  }
  CreateListViewWindow(files);
}

void recentFileCB(Widget, int number) {
  if (number < 1 || number > kRecentFiles) return;
  const char* path = gSettings.fileName[number - 1];
  if (path[0]) CreateViewWindow(path, -1);
}

// Applies an Image-menu conversion (item 1..32) with undo.
void applyConversion(ViewWindow* v, int number) {
  if (ApplyViewOperation(v, [number](ImageRecord* src, ImageRecord* dst) {
        return process::convertByItem(src, dst, number);
      }))
    TestLog("converted %d", number);
}

void convertCB(Widget w, int number) { applyConversion(ViewOfWidget(w), number); }

// "Properties...": what is known of the shown file and picture.
void propertiesCB(Widget w, int) {
  ViewWindow* v = ViewOfWidget(w);
  if (!v) return;
  FileInfo info;
  std::memset(&info, 0, sizeof info);
  const bool known = imkFileInformation(v->path, -1, 0, &info) == 0;
  struct stat st {};
  const bool exists = stat(v->path, &st) == 0;
  const DepthLabel depth = ImageDepthLabel(v->picture);
  char text[2600];  // the path (1024) and the format name (512) with room to spare
  std::snprintf(text, sizeof text,
                "File: %s\nFormat: %s\nFile size: %lld bytes\nPicture %d of %d\n"
                "Width: %d  Height: %d\nDepth: %d (%s)\nModified: %s",
                v->path, known ? info.formatName : "unknown",
                exists ? static_cast<long long>(st.st_size) : 0LL, v->pictureIndex + 1,
                std::max(v->pictureCount, 1), v->picture.width, v->picture.height, depth.depth,
                depth.text.c_str(), v->modified ? "Yes" : "No");
  ShowMessage(v->shell, "Properties", text);
}

void aboutCB(Widget w, int) {
  ShowMessage(w, "About", "VIMORA v1.12\nPicture viewer, browser and converter for X11");
}

struct PulldownInfo {
  const MenuRecord* record;
  Widget pulldown;
  Widget shell;  // whose visual, depth and colormap the pulldowns take
};

Widget createPulldown(Widget parent, const MenuRecord& record, bool popup, Widget shell);

void buildItems(Widget pulldown, const MenuRecord& record, Widget shell) {
  for (int i = 0; i < record.itemCount; ++i) {
    const MenuItem& item = record.items[i];
    if (item.kind == MenuItemKind::kSeparator) {
      XtVaCreateManagedWidget(item.name, xmSeparatorGadgetClass, pulldown, nullptr);
      continue;
    }
    // Conversion items take their text from the conversion table.
    const char* text = item.label;
    if (!text && item.callback == convertCB)
      if (const process::ConversionItem* c = process::conversionItem(item.number)) text = c->label;
    XmString label = XmStringCreateLocalized(const_cast<char*>(text ? text : ""));
    Widget w = nullptr;
    if (item.kind == MenuItemKind::kCascade) {
      Widget sub = createPulldown(pulldown, *item.submenu, false, shell);
      w = XtVaCreateManagedWidget(item.name, xmCascadeButtonWidgetClass, pulldown, XmNlabelString,
                                  label, XmNsubMenuId, sub, nullptr);
      // A submenu is made together with the menu that holds it.
      buildItems(sub, *item.submenu, shell);
    } else if (item.kind == MenuItemKind::kToggle) {
      w = XtVaCreateManagedWidget(item.name, xmToggleButtonWidgetClass, pulldown, XmNlabelString,
                                  label, XmNvisibleWhenOff, True, nullptr);
      XtAddCallback(w, XmNvalueChangedCallback, menuItemCB, const_cast<char*>(item.word));
    } else {
      w = XtVaCreateManagedWidget(item.name, xmPushButtonWidgetClass, pulldown, XmNlabelString,
                                  label, nullptr);
      if (item.callback)
        XtAddCallback(w, XmNactivateCallback, menuCallbackCB, const_cast<MenuItem*>(&item));
      else if (item.word)
        XtAddCallback(w, XmNactivateCallback, menuItemCB, const_cast<char*>(item.word));
    }
    XmStringFree(label);
    if (item.accelerator) {
      XmString accel = XmStringCreateLocalized(const_cast<char*>(item.accelerator));
      XtVaSetValues(w, XmNacceleratorText, accel, nullptr);
      XmStringFree(accel);
    }
    if (item.mnemonic) XtVaSetValues(w, XmNmnemonic, static_cast<KeySym>(item.mnemonic), nullptr);
    if (item.kind != MenuItemKind::kCascade && !item.callback)
      XtSetSensitive(w, implemented(item.word));
  }
}

// Runs the menu's update function each time it opens (after the items are
// built, by the callback added before this one).
void updateCB(Widget cascade, XtPointer data, XtPointer) {
  const PulldownInfo* info = static_cast<const PulldownInfo*>(data);
  if (info->record->update) info->record->update(info->pulldown, ViewOfWidget(cascade));
  TestLog("menu %s", info->record->name);
}

// Makes the menu's items the first time it opens, then stops being called.
void buildCB(Widget cascade, XtPointer data, XtPointer) {
  PulldownInfo* info = static_cast<PulldownInfo*>(data);
  buildItems(info->pulldown, *info->record, info->shell);
  XtRemoveCallback(cascade, XmNcascadingCallback, buildCB, data);
}

void freeInfoCB(Widget, XtPointer data, XtPointer) { delete static_cast<PulldownInfo*>(data); }

Widget createPulldown(Widget parent, const MenuRecord& record, bool popup, Widget shell) {
  Visual* visual = nullptr;
  Colormap colormap = 0;
  int depth = 0;
  XtVaGetValues(shell, XmNvisual, &visual, XmNcolormap, &colormap, XmNdepth, &depth, nullptr);
  const std::string name = std::string(record.name) + (popup ? "popup" : "pulldown");
  Arg args[3];
  Cardinal n = 0;
  if (visual) XtSetArg(args[n], XmNvisual, visual), ++n;
  XtSetArg(args[n], XmNcolormap, colormap), ++n;
  XtSetArg(args[n], XmNdepth, depth), ++n;
  Widget pulldown = XmCreatePulldownMenu(parent, const_cast<char*>(name.c_str()), args, n);
  if (record.tearOff) XtVaSetValues(pulldown, XmNtearOffModel, XmTEAR_OFF_ENABLED, nullptr);
  return pulldown;
}

void buildOnFirstOpening(Widget cascade, const MenuRecord& record, Widget pulldown, Widget shell) {
  PulldownInfo* info = new PulldownInfo{&record, pulldown, shell};
  XtAddCallback(cascade, XmNcascadingCallback, buildCB, info);
  XtAddCallback(cascade, XmNcascadingCallback, updateCB, info);
  XtAddCallback(cascade, XmNdestroyCallback, freeInfoCB, info);
}

Widget addMenu(Widget bar, const MenuRecord& record, bool popup, Widget shell) {
  Widget pulldown = createPulldown(bar, record, popup, shell);
  XmString label = XmStringCreateLocalized(const_cast<char*>(record.label));
  Widget cascade = XtVaCreateManagedWidget(
      record.name, xmCascadeButtonWidgetClass, bar, XmNlabelString, label, XmNsubMenuId, pulldown,
      XmNmnemonic, static_cast<KeySym>(record.mnemonic), nullptr);
  XmStringFree(label);
  buildOnFirstOpening(cascade, record, pulldown, shell);
  if (record.help && !popup) XtVaSetValues(bar, XmNmenuHelpWidget, cascade, nullptr);
  return cascade;
}

// Update functions.

Widget child(Widget pulldown, const char* name) { return XtNameToWidget(pulldown, name); }

void setSensitive(Widget pulldown, const char* name, bool on) {
  if (Widget w = child(pulldown, name)) XtSetSensitive(w, on);
}

void updateFile(Widget pulldown, ViewWindow*) {
  bool any = false;
  int shown = 0;
  for (int i = 0; i < kRecentFiles; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "FileItem%d", i + 1);
    Widget item = child(pulldown, name);
    if (!item) continue;
    const char* path = gSettings.fileName[i];
    if (path[0] && access(path, F_OK) == 0) {
      char label[kPathSize + 16];
      std::snprintf(label, sizeof label, "%d: %s", i + 1, path);
      XmString s = XmStringCreateLocalized(label);
      XtVaSetValues(item, XmNlabelString, s, nullptr);
      XmStringFree(s);
      XtManageChild(item);
      any = true;
      ++shown;
    } else {
      XtUnmanageChild(item);
    }
  }
  TestLog("recent %d", shown);
  if (Widget sep = child(pulldown, "FileItemSep")) {
    if (any)
      XtManageChild(sep);
    else
      XtUnmanageChild(sep);
  }
}

// Widget names "Convert1" .. "Convert32".
struct ConvertNames {
  char text[process::kConversionItemCount + 1][12];
};
constexpr ConvertNames makeConvertNames() {
  ConvertNames n{};
  for (int i = 1; i <= process::kConversionItemCount; ++i) {
    int k = 0;
    for (char c : {'C', 'o', 'n', 'v', 'e', 'r', 't'}) n.text[i][k++] = c;
    if (i >= 10) n.text[i][k++] = static_cast<char>('0' + i / 10);
    n.text[i][k] = static_cast<char>('0' + i % 10);
  }
  return n;
}
constexpr ConvertNames kConvertNames = makeConvertNames();

void updateImage(Widget pulldown, ViewWindow* v) {
  setSensitive(pulldown, "Undo", v && v->undoPicture.pixels);
  setSensitive(pulldown, "MenuSwap",
               v && v->picture.pixels && v->picture.type != IMK_BINARY &&
                   v->picture.type != IMK_GREY && v->picture.type != IMK_MAPPED);
  setSensitive(pulldown, "Crop", v && v->selectionPresent);
  // A conversion to the kind the picture already has is off.
  std::vector<bool> offered(process::kConversionItemCount + 1, false);
  if (v && v->picture.pixels)
    for (int item : ConversionChoices(v->picture)) offered[static_cast<size_t>(item)] = true;
  for (int i = 1; i <= process::kConversionItemCount; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "*Convert%d", i);
    setSensitive(pulldown, name, offered[static_cast<size_t>(i)]);
  }
  TestLog("image undo %d crop %d conversions %d", v && v->undoPicture.pixels ? 1 : 0,
          v && v->selectionPresent ? 1 : 0,
          static_cast<int>(std::count(offered.begin(), offered.end(), true)));
}

void setToggle(Widget pulldown, const char* name, bool on) {
  if (Widget w = child(pulldown, name)) XmToggleButtonSetState(w, on, False);
}

void updateView(Widget pulldown, ViewWindow* v) {
  if (!v) return;
  setToggle(pulldown, "WindowAdaptive", v->adaptive);
  setToggle(pulldown, "StatusBar", XtIsManaged(v->infoLabel));
  setToggle(pulldown, "ToolBar", XtIsManaged(v->toolBar));
  setToggle(pulldown, "FitToWindow", v->fitMode);
  setSensitive(pulldown, "NextPage", commandSensitive(v, "pageNext"));
  setSensitive(pulldown, "PreviousPage", commandSensitive(v, "pagePrev"));
  setSensitive(pulldown, "FirstPage", v->pictureCount > 1);
  setSensitive(pulldown, "LastPage", v->pictureCount > 1);
  for (const char* name : {"FirstFile", "PreviousFile", "NextFile", "LastFile"})
    setSensitive(pulldown, name, v->fileList.size() > 1);
}

using K = MenuItemKind;

const MenuItem kFileItems[] = {
    {"Open...", "Open", K::kPush, "open", "Ctrl+O", 'O'},
    {"Open All...", "OpenAll", K::kPush, nullptr, nullptr, 'A', nullptr, openAllCB, 0},
    {"View in hexa...", "ViewHexa", K::kPush, "viewHexa", "Ctrl+H", 'h'},
    {"Browse...", "Browse", K::kPush, "browseFiles", "Ctrl+B", 'B'},
    {"Reopen", "Reopen", K::kPush, "reopenFiles", "Ctrl+R", 'R'},
    {"Close", "Close", K::kPush, "close", "Ctrl+C", 'C'},
    {"", "sep1", K::kSeparator},
    {"Describe...", "Describe", K::kPush, nullptr, nullptr, 'D'},
    {"Capture...", "Capture", K::kPush, nullptr, nullptr, 'p'},
    {"", "sep2", K::kSeparator},
    {"Save", "Save", K::kPush, "saveFiles", "Ctrl+S", 'S'},
    {"Save As...", "SaveAs", K::kPush, "saveFiles", nullptr, 'v'},
    {"", "sep3", K::kSeparator},
    {"Slide Show...", "SlideShow", K::kPush, "slideShow", "Ctrl+L", 'l'},
    {"Sequence Convert...", "SequenceConvert", K::kPush, "sequenceConvert", "Ctrl+N", 'e'},
    {"Multi Convert...", "MultiConvert", K::kPush, "multiConvert", "Ctrl+U", 'M'},
    {"", "sep4", K::kSeparator},
    {"Quit", "Quit", K::kPush, "quit", "Ctrl+Q", 'Q'},
    {"", "FileItemSep", K::kSeparator},
    {"1:", "FileItem1", K::kRecent, nullptr, nullptr, 0, nullptr, recentFileCB, 1},
    {"2:", "FileItem2", K::kRecent, nullptr, nullptr, 0, nullptr, recentFileCB, 2},
    {"3:", "FileItem3", K::kRecent, nullptr, nullptr, 0, nullptr, recentFileCB, 3},
    {"4:", "FileItem4", K::kRecent, nullptr, nullptr, 0, nullptr, recentFileCB, 4},
    {"5:", "FileItem5", K::kRecent, nullptr, nullptr, 0, nullptr, recentFileCB, 5},
    {"6:", "FileItem6", K::kRecent, nullptr, nullptr, 0, nullptr, recentFileCB, 6},
    {"7:", "FileItem7", K::kRecent, nullptr, nullptr, 0, nullptr, recentFileCB, 7},
    {"8:", "FileItem8", K::kRecent, nullptr, nullptr, 0, nullptr, recentFileCB, 8},
    {"9:", "FileItem9", K::kRecent, nullptr, nullptr, 0, nullptr, recentFileCB, 9},
};

// The conversions, numbered as in the conversion table (their texts come
// from there).

// Items First .. First + Count - 1 of the conversion table.
template <int First, int Count>
constexpr std::array<MenuItem, Count> conversionRows() {
  std::array<MenuItem, Count> rows{};
  for (int i = 0; i < Count; ++i) {  // no label: the text comes from the table
    rows[i].name = kConvertNames.text[First + i];
    rows[i].kind = K::kPush;
    rows[i].callback = convertCB;
    rows[i].number = First + i;
  }
  return rows;
}
const auto kBinaryItems = conversionRows<1, 4>();
const auto kGreyItems = conversionRows<5, 13>();
const auto kColourItems = conversionRows<18, 14>();
const MenuRecord kBinaryMenu = {"Convert to Binary",
                                "MenuBinary",
                                false,
                                false,
                                'B',
                                kBinaryItems.data(),
                                static_cast<int>(std::size(kBinaryItems)),
                                nullptr};
const MenuRecord kGreyMenu = {"Convert to Grey",
                              "MenuGrey",
                              false,
                              false,
                              'G',
                              kGreyItems.data(),
                              static_cast<int>(std::size(kGreyItems)),
                              nullptr};
const MenuRecord kColourMenu = {"Convert to Colors",
                                "MenuColors",
                                false,
                                false,
                                'o',
                                kColourItems.data(),
                                static_cast<int>(std::size(kColourItems)),
                                nullptr};

const MenuItem kImageItems[] = {
    {"Undo", "Undo", K::kPush, "undo", "Ctrl+Z", 'U'},
    {"Crop", "Crop", K::kPush, "crop", "Ctrl+Y", 'C'},
    {"", "sep1", K::kSeparator},
    {"Convert to Binary", "MenuBinary", K::kCascade, nullptr, nullptr, 'B', &kBinaryMenu},
    {"Convert to Grey", "MenuGrey", K::kCascade, nullptr, nullptr, 'G', &kGreyMenu},
    {"Convert to Colors", "MenuColors", K::kCascade, nullptr, nullptr, 'o', &kColourMenu},
    {nullptr, kConvertNames.text[32], K::kPush, nullptr, nullptr, 0, nullptr, convertCB, 32},
    {"", "sep2", K::kSeparator},
    {"Map", "MenuMap", K::kCascade, nullptr, nullptr, 'M', &MenuMap},
    {"Adjust", "MenuAdjust", K::kCascade, nullptr, nullptr, 'A', &MenuAdjust},
    {"Swap", "MenuSwap", K::kCascade, nullptr, nullptr, 'w', &MenuSwap},
    {"", "sep3", K::kSeparator},
    {"Flip", "MenuFlip", K::kCascade, nullptr, nullptr, 'F', &MenuFlip},
    {"Rotate", "MenuRotate", K::kCascade, nullptr, nullptr, 'R', &MenuRotate},
    {"Canvas size...", "CanvasSize", K::kPush, nullptr, nullptr, 'v', nullptr, ProcessMenuCB,
     kActCanvas},
    {"Resize...", "Resize", K::kPush, nullptr, nullptr, 's', nullptr, ProcessMenuCB, kActResize},
};

const MenuItem kViewItems[] = {
    {"Zoom In", "ZoomIn", K::kPush, "zoom+", "+", 'I'},
    {"Zoom Out", "ZoomOut", K::kPush, "zoom-", "-", 'O'},
    {"Fit to Window", "FitToWindow", K::kToggle, "fitImage", "Ctrl+W", 'F'},
    {"Full Screen", "FullScreen", K::kPush, "fullScreen", "Ctrl+F", 'u'},
    {"", "sep1", K::kSeparator},
    {"Window adaptive", "WindowAdaptive", K::kToggle, "adaptiveSize", "Ctrl+A", 'W'},
    {"Status Bar", "StatusBar", K::kToggle, "statusBar", "Ctrl+Shift+S", 'S'},
    {"ToolBar", "ToolBar", K::kToggle, "toolBar", "Ctrl+Shift+T", 'T'},
    {"", "sep2", K::kSeparator},
    {"First File", "FirstFile", K::kPush, "first", "Home", 0},
    {"Previous File", "PreviousFile", K::kPush, "prev", "PgUp", 0},
    {"Next File", "NextFile", K::kPush, "next", "PgDn", 0},
    {"Last File", "LastFile", K::kPush, "last", "End", 0},
    {"", "sep3", K::kSeparator},
    {"First Page", "FirstPage", K::kPush, "pageFirst", "Shift+Home", 0},
    {"Previous Page", "PreviousPage", K::kPush, "pagePrev", "Shift+PgUp", 0},
    {"Next Page", "NextPage", K::kPush, "pageNext", "Shift+PgDn", 0},
    {"Last Page", "LastPage", K::kPush, "pageLast", "Shift+End", 0},
};

const MenuItem kInfoItems[] = {
    {"Properties...", "Properties", K::kPush, nullptr, nullptr, 'P', nullptr, propertiesCB, 0},
    {"About...", "About", K::kPush, nullptr, nullptr, 'A', nullptr, aboutCB, 0},
};

const MenuItem kOptionItems[] = {
    {"Options...", "Options", K::kPush, "options", "Ctrl+G", 'O'},
};

}  // namespace

const MenuRecord MenuFile = {"File",     "MenuFile",          false,     false, 'F',
                             kFileItems, countOf(kFileItems), updateFile};
const MenuRecord MenuImage = {"Image",     "MenuImage",          false,      false, 'I',
                              kImageItems, countOf(kImageItems), updateImage};
const MenuRecord MenuView = {"View",     "MenuView",          false,     false, 'V',
                             kViewItems, countOf(kViewItems), updateView};
const MenuRecord MenuInfo = {"Info",     "MenuInfo",          true,   false, 'n',
                             kInfoItems, countOf(kInfoItems), nullptr};
const MenuRecord MenuOption = {"Option",     "MenuOption",          false,  false, 'O',
                               kOptionItems, countOf(kOptionItems), nullptr};

Widget CreateMenus(Widget parent, const char* name, const MenuRecord* const* menus, int count,
                   bool popup, Widget shell) {
  Widget bar = nullptr;
  if (popup) {
    Visual* visual = nullptr;
    Colormap colormap = 0;
    int depth = 0;
    XtVaGetValues(shell, XmNvisual, &visual, XmNcolormap, &colormap, XmNdepth, &depth, nullptr);
    Arg args[3];
    Cardinal n = 0;
    if (visual) XtSetArg(args[n], XmNvisual, visual), ++n;
    XtSetArg(args[n], XmNcolormap, colormap), ++n;
    XtSetArg(args[n], XmNdepth, depth), ++n;
    bar = XmCreatePopupMenu(parent, const_cast<char*>(name), args, n);
  } else {
    bar = XmCreateMenuBar(parent, const_cast<char*>(name), nullptr, 0);
  }
  for (int i = 0; i < count; ++i) addMenu(bar, *menus[i], popup, shell);
  if (!popup) XtManageChild(bar);
  return bar;
}

Widget CreateViewMenu(ViewWindow* v, Widget mainWindow, Widget drawingArea) {
  static const MenuRecord* const kMenus[] = {&MenuFile, &MenuImage, &MenuFilter, &MenuView,
                                             &MenuInfo};
  if (useMenuBar) return CreateMenus(mainWindow, "MenuBar", kMenus, 5, false, v->shell);
  return CreateMenus(drawingArea, "MenuPopup", kMenus, 5, true, v->shell);
}

void UpdateViewSensitivity(ViewWindow* v) {
  for (size_t i = 0; i < v->toolButtons.size(); ++i)
    XtSetSensitive(v->toolButtons[i], commandSensitive(v, kToolBarButtons[i].word));
  if (!v->menu) return;
  static const MenuRecord* const kMenus[] = {&MenuFile, &MenuImage, &MenuFilter, &MenuView};
  for (const MenuRecord* record : kMenus) {
    const std::string name = std::string("*") + record->name + (useMenuBar ? "pulldown" : "popup");
    Widget pulldown = XtNameToWidget(v->menu, name.c_str());
    if (pulldown && record->update) record->update(pulldown, v);
  }
}
