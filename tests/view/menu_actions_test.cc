// The processing items of the view's menus: every action is offered once,
// the swaps are in mode order, and the dialogs are the ones the items name.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "view/process_menu.h"
#include "widgets/param_table.h"

namespace {

// Counts the processing items of a menu and its submenus.
void countItems(const MenuRecord& menu, std::map<int, int>* seen) {
  for (int i = 0; i < menu.itemCount; ++i) {
    const MenuItem& item = menu.items[i];
    if (item.kind == MenuItemKind::kCascade && item.submenu) countItems(*item.submenu, seen);
    if (item.callback == ProcessMenuCB) ++(*seen)[item.number];
  }
}

}  // namespace

TEST(ProcessMenu, EveryActionIsOfferedOnce) {
  std::map<int, int> seen;
  countItems(MenuImage, &seen);
  countItems(MenuFilter, &seen);
  for (int id = 0; id < kProcessActionCount; ++id)
    EXPECT_EQ(seen[id], 1) << kProcessActions[id].label;
  EXPECT_EQ(static_cast<int>(seen.size()), kProcessActionCount);
}

TEST(ProcessMenu, SwapsInModeOrder) {
  const char* const labels[] = {"RGB->RBG", "RGB->BGR", "RGB->BRG", "RGB->GRB", "RGB->GBR"};
  ASSERT_EQ(MenuSwap.itemCount, 5);
  for (int mode = 0; mode < 5; ++mode) {
    const ProcessAction& a = kProcessActions[MenuSwap.items[mode].number];
    EXPECT_STREQ(a.label, labels[mode]);
    EXPECT_EQ(a.argument, mode);
  }
}

// An item with "..." opens the dialog of the same name; the other items
// apply at once.
TEST(ProcessMenu, DialogItemsOpenTheirDialogs) {
  const std::map<std::string, std::string> otherTitles = {{"Gamma...", "Change Gamma"},
                                                          {"Custom...", "Rotate..."}};
  for (const ProcessAction& a : kProcessActions) {
    const std::string label = a.label;
    const bool dots = label.size() > 3 && label.compare(label.size() - 3, 3, "...") == 0;
    EXPECT_EQ(dots, a.dialog >= 0) << label;
    if (a.dialog < 0) {
      EXPECT_NE(a.apply, nullptr) << label;
      continue;
    }
    ASSERT_LT(a.dialog, static_cast<int>(params::DialogId::kCount)) << label;
    const std::string title = params::paramDialog(static_cast<params::DialogId>(a.dialog)).title;
    const auto other = otherTitles.find(label);
    EXPECT_EQ(title, other == otherTitles.end() ? label : other->second);
  }
}
