// The view command vocabulary and everything that ends in it: the key
// translations, the menus (built from tables, items made when a menu first
// opens) and the tool bar.
#pragma once

#include <X11/Intrinsic.h>

#include <string>

struct ViewWindow;

// One command word and what it does. `run` is null for the words whose tools
// do not exist yet: the word is known, it does nothing, and its menu items
// and tool-bar buttons are insensitive. `origin` is the widget the command
// came from (the start window's menus give a null view).
struct ViewCommand {
  const char* word;
  void (*run)(ViewWindow* view, Widget origin);
};
extern const ViewCommand kViewCommands[];
extern const int kViewCommandCount;

// The entry of `word` (compared exactly, in table order), or null.
const ViewCommand* FindViewCommand(const char* word);

// Runs a command word for a view (which may be null). Unknown words and
// words without an implementation do nothing.
void RunViewCommand(ViewWindow* view, const char* word, Widget origin = nullptr);

// The drawing area's key bindings, one line per binding.
extern const char* const kViewTranslationLines[];
extern const int kViewTranslationLineCount;
std::string ViewTranslationText();
// The parsed table (parsed once).
XtTranslations ViewTranslations();

// The tool bar: icon index, command word and bubble text of each button.
struct ToolBarButton {
  int icon;
  const char* word;  // the command word; the button's name when `apply` is set
  const char* help;
  void (*apply)(ViewWindow* view);  // the operation of a button without a word
};
constexpr int kToolBarButtonCount = 24;
extern const ToolBarButton kToolBarButtons[kToolBarButtonCount];

// Menus: a record per menu with its items.
enum class MenuItemKind { kPush, kToggle, kSeparator, kCascade, kRecent };
struct MenuRecord;
struct MenuItem {
  const char* label;
  const char* name;  // the widget name
  MenuItemKind kind;
  const char* word;  // the command word; null when the item has none yet
  const char* accelerator;
  char mnemonic;
  const MenuRecord* submenu;                  // kCascade
  void (*callback)(Widget item, int number);  // items that are no command word
  int number;                                 // passed to callback
};
struct MenuRecord {
  const char* label;
  const char* name;  // "MenuFile", ...; the pulldown is name + "pulldown" (popup: "popup")
  bool help;         // placed at the right end of the bar
  bool tearOff;
  char mnemonic;
  const MenuItem* items;
  int itemCount;
  void (*update)(Widget pulldown, ViewWindow* view);
};
extern const MenuRecord MenuFile, MenuImage, MenuFilter, MenuView, MenuInfo, MenuOption;

// The number of items of a menu's item table.
template <size_t N>
constexpr int countOf(const MenuItem (&)[N]) {
  return static_cast<int>(N);
}

// A menu bar named `name` (or, with popup set, a popup menu on `parent`)
// holding `menus`; pulldowns use `shell`'s visual, depth and colormap.
Widget CreateMenus(Widget parent, const char* name, const MenuRecord* const* menus, int count,
                   bool popup, Widget shell);

// The view's menu bar "MenuBar", or popup menu "MenuPopup" on the drawing
// area when the menu bar is off.
Widget CreateViewMenu(ViewWindow* view, Widget mainWindow, Widget drawingArea);
// The tool bar (not managed).
Widget CreateViewToolBar(ViewWindow* view, Widget mainWindow);
// Runs the update functions of the menus built so far and sets the tool
// bar's sensitivities.
void UpdateViewSensitivity(ViewWindow* view);
