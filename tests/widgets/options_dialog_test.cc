// The options dialog on a real X server (Xvfb): the page it opens on, and
// what OK and Cancel do to the settings.
// clang-format off
#include <gtest/gtest.h>

#include <Xm/List.h>
#include <Xm/RowColumn.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>
// clang-format on

#include "widgets/options_dialog.h"

#include <cstdlib>
#include <cstring>

#include "core/app.h"
#include "core/settings.h"

namespace {

bool onServer() {
  const char* s = std::getenv("VIMORA_TEST_SERVER");
  return s && std::strcmp(s, "widgets") == 0;
}

#define REQUIRE_WIDGET_SERVER() \
  if (!onServer()) GTEST_SKIP() << "runs on its own Xvfb"

// One toolkit for the whole program, made as start-up makes it.
void initToolkit() {
  if (topLevel) return;
  int argc = 1;
  char name[] = "vimora";
  char* argv[] = {name, nullptr};
  topLevel = XtVaAppInitialize(&appContext, "Vimora", nullptr, 0, &argc, argv, nullptr,
                               XmNmappedWhenManaged, False, nullptr);
  display = XtDisplay(topLevel);
  XtRealizeWidget(topLevel);
}

// Handles everything queued, time-outs included (the dialog is destroyed
// from one).
void drain() {
  XSync(display, False);
  for (int i = 0; i < 50; ++i) {
    while (XtAppPending(appContext)) XtAppProcessEvent(appContext, XtIMAll);
    XSync(display, False);
    if (!XtAppPending(appContext)) break;
  }
}

Widget dialogForm() { return XtNameToWidget(topLevel, "VmoraOptions.form"); }
Widget find(const char* name) {
  Widget form = dialogForm();
  return form ? XtNameToWidget(form, name) : nullptr;
}

void press(const char* button) {
  Widget w = find(button);
  ASSERT_NE(w, nullptr);
  XtCallCallbacks(w, XmNactivateCallback, nullptr);
  drain();
  EXPECT_EQ(dialogForm(), nullptr) << "dialog left after " << button;
}

class OptionsDialogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!onServer()) return;
    initToolkit();
    gSettings = Settings{};
  }
};

TEST_F(OptionsDialogTest, OpensOnTheGivenPageAndTurnsWhenOpenedAgain) {
  REQUIRE_WIDGET_SERVER();
  OpenOptionsDialog(nullptr, 3);
  drain();
  ASSERT_NE(dialogForm(), nullptr);
  char* title = nullptr;
  XtVaGetValues(XtParent(dialogForm()), XmNtitle, &title, nullptr);
  EXPECT_STREQ(title, "Options");
  EXPECT_TRUE(XtIsManaged(find("*pageBrowser")));
  for (const char* other : {"*pageStart", "*pageView", "*pageSave", "*pageConvert"})
    EXPECT_FALSE(XtIsManaged(find(other))) << other;
  int* positions = nullptr;
  int count = 0;
  ASSERT_TRUE(XmListGetSelectedPos(find("*scrolledList"), &positions, &count));
  ASSERT_EQ(count, 1);
  EXPECT_EQ(positions[0], 4);
  XtFree(reinterpret_cast<char*>(positions));

  // Asked again while open: the same dialog, on the new page.
  Widget form = dialogForm();
  OpenOptionsDialog(nullptr, 5);
  drain();
  EXPECT_EQ(dialogForm(), form);
  EXPECT_TRUE(XtIsManaged(find("*pageLoad")));
  EXPECT_FALSE(XtIsManaged(find("*pageBrowser")));
  press("buttonCancel");
}

// Sets a toggle, a number (out of range: held at its maximum), a text and a
// choice.
void changeControls() {
  XmToggleButtonSetState(find("*ViewUsePopupInView"), True, False);
  XmTextFieldSetString(find("*SaveJpegQuality"), const_cast<char*>("150"));
  XmTextFieldSetString(find("*RenameTemplate"), const_cast<char*>("holiday-##"));
  Widget menu = find("*ResizeResample");
  ASSERT_NE(menu, nullptr);
  Widget pulldown = nullptr;
  XtVaGetValues(menu, XmNsubMenuId, &pulldown, nullptr);
  XtVaSetValues(menu, XmNmenuHistory, XtNameToWidget(pulldown, "choice1"), nullptr);
}

TEST_F(OptionsDialogTest, OkAppliesEveryControl) {
  REQUIRE_WIDGET_SERVER();
  OpenOptionsDialog(nullptr, 0);
  drain();
  changeControls();
  press("buttonOK");
  EXPECT_TRUE(gSettings.viewUsePopupInView);
  EXPECT_EQ(gSettings.saveJpegQuality, 100);
  EXPECT_STREQ(gSettings.renameTemplate, "holiday-##");
  EXPECT_EQ(gSettings.resizeResample, 1);
  // Everything else as it was.
  Settings expected{};
  expected.viewUsePopupInView = true;
  expected.saveJpegQuality = 100;
  std::strcpy(expected.renameTemplate, "holiday-##");
  expected.resizeResample = 1;
  for (const SettingKey& k : SettingKeys())
    EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(&gSettings) + k.offset,
                          reinterpret_cast<const char*>(&expected) + k.offset, k.size),
              0)
        << k.key;
}

TEST_F(OptionsDialogTest, CancelAndClosingChangeNothing) {
  REQUIRE_WIDGET_SERVER();
  OpenOptionsDialog(nullptr, 0);
  drain();
  changeControls();
  press("buttonCancel");
  // Closed by the window manager: the shell is only unmapped.
  OpenOptionsDialog(nullptr, 2);
  drain();
  changeControls();
  XtUnmanageChild(dialogForm());
  drain();
  EXPECT_EQ(dialogForm(), nullptr);
  const Settings defaults{};
  for (const SettingKey& k : SettingKeys())
    EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(&gSettings) + k.offset,
                          reinterpret_cast<const char*>(&defaults) + k.offset, k.size),
              0)
        << k.key;
}

}  // namespace
