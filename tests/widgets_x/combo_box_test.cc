// MyComboBox on a real X server: the class checks of its public functions,
// its items and text, and its keys (sent as key events to its windows).
// clang-format off
#include <gtest/gtest.h>
// clang-format on

#include "widgets/combo_box.h"

#include <X11/Shell.h>
#include <X11/keysym.h>
#include <Xm/Form.h>
#include <Xm/PushB.h>
#include <Xm/Xm.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace {

struct Choice {
  int reason;
  int position;
  std::string text;
};

class ComboBoxTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    XtToolkitInitialize();
    app = XtCreateApplicationContext();
    int argc = 0;
    display = XtOpenDisplay(app, nullptr, "vimora", "Vimora", nullptr, 0, &argc, nullptr);
  }

  void SetUp() override {
    if (!display) GTEST_SKIP() << "no X server";
    shell = XtVaAppCreateShell("vimora", "Vimora", topLevelShellWidgetClass, display, XmNwidth, 300,
                               XmNheight, 60, nullptr);
    Widget form = XtVaCreateManagedWidget("form", xmFormWidgetClass, shell, nullptr);
    combo = MyComboBoxCreate(form, "comboBox", nullptr, 0);
    XtVaSetValues(combo, XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM,
                  XmNtopAttachment, XmATTACH_FORM, nullptr);
    XtManageChild(combo);
    XtAddCallback(combo, XmNselectionCallback, choiceCB, &choices);
    XtRealizeWidget(shell);
    pumpUntil([&] { return viewable(XtWindow(combo)); });
  }

  void TearDown() override {
    if (shell) XtDestroyWidget(shell);
    pump();
  }

  static void choiceCB(Widget, XtPointer data, XtPointer call) {
    const auto* cb = static_cast<MyComboBoxCallbackStruct*>(call);
    static_cast<std::vector<Choice>*>(data)->push_back({cb->reason, cb->position, cb->text});
  }

  bool viewable(Window w) {
    XWindowAttributes a;
    return XGetWindowAttributes(display, w, &a) && a.map_state == IsViewable;
  }

  void pump() {
    XSync(display, False);
    while (XtAppPending(app)) XtAppProcessEvent(app, XtIMAll);
  }

  // Handles events until `done` holds (two seconds at most).
  bool pumpUntil(const std::function<bool()>& done) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (std::chrono::steady_clock::now() < end) {
      pump();
      if (done()) return true;
    }
    return false;
  }

  // A key press and release on a widget's window.
  void key(Widget w, KeySym sym, unsigned state = 0) {
    for (int type : {KeyPress, KeyRelease}) {
      XEvent e{};
      e.xkey.type = type;
      e.xkey.display = display;
      e.xkey.window = XtWindow(w);
      e.xkey.root = DefaultRootWindow(display);
      e.xkey.subwindow = 0;
      e.xkey.time = CurrentTime;
      e.xkey.same_screen = True;
      e.xkey.state = state;
      e.xkey.keycode = XKeysymToKeycode(display, sym);
      XSendEvent(display, XtWindow(w), True, type == KeyPress ? KeyPressMask : KeyReleaseMask, &e);
    }
    pump();
  }

  void addItems(std::initializer_list<const char*> items) {
    for (const char* item : items) MyComboBoxAddItem(combo, item, -1);
  }

  static XtAppContext app;
  static Display* display;
  Widget shell = nullptr;
  Widget combo = nullptr;
  std::vector<Choice> choices;
};

XtAppContext ComboBoxTest::app = nullptr;
Display* ComboBoxTest::display = nullptr;

TEST_F(ComboBoxTest, PublicFunctionsRefuseOtherWidgetsWithAWarning) {
  Widget button = XtVaCreateWidget("button", xmPushButtonWidgetClass, XtParent(combo), nullptr);
  const std::vector<std::pair<std::string, std::function<void(Widget)>>> calls = {
      {"MyComboBoxAddItem", [](Widget w) { MyComboBoxAddItem(w, "x", -1); }},
      {"MyComboBoxDeleteAllItems", [](Widget w) { MyComboBoxDeleteAllItems(w); }},
      {"MyComboBoxGetItemCount", [](Widget w) { EXPECT_EQ(MyComboBoxGetItemCount(w), 0); }},
      {"MyComboBoxGetItem", [](Widget w) { EXPECT_EQ(MyComboBoxGetItem(w, 0), ""); }},
      {"MyComboBoxSelectPos", [](Widget w) { MyComboBoxSelectPos(w, 0, true); }},
      {"MyComboBoxGetSelectedPos", [](Widget w) { EXPECT_EQ(MyComboBoxGetSelectedPos(w), -1); }},
      {"MyComboBoxSetText", [](Widget w) { MyComboBoxSetText(w, "x"); }},
      {"MyComboBoxGetText", [](Widget w) { EXPECT_EQ(MyComboBoxGetText(w), ""); }},
      {"MyComboBoxShowList", [](Widget w) { MyComboBoxShowList(w, true); }},
      {"MyComboBoxListShown", [](Widget w) { EXPECT_FALSE(MyComboBoxListShown(w)); }},
      {"MyComboBoxGetTextField", [](Widget w) { EXPECT_EQ(MyComboBoxGetTextField(w), nullptr); }},
  };
  for (const auto& [name, call] : calls) {
    for (Widget wrong : {button, static_cast<Widget>(nullptr)}) {
      testing::internal::CaptureStderr();
      call(wrong);
      const std::string err = testing::internal::GetCapturedStderr();
      EXPECT_EQ(err, "Warning: " + name + ": widget has invalid class\n");
    }
  }
  // The combo box itself passes the check silently.
  testing::internal::CaptureStderr();
  MyComboBoxAddItem(combo, "x", -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(ComboBoxTest, ItemsTextAndSelection) {
  EXPECT_EQ(MyComboBoxGetItemCount(combo), 0);
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo), -1);
  addItems({"/home", "/tmp"});
  MyComboBoxAddItem(combo, "/", 0);      // inserted first
  MyComboBoxAddItem(combo, "/usr", 99);  // past the end: appended
  ASSERT_EQ(MyComboBoxGetItemCount(combo), 4);
  EXPECT_EQ(MyComboBoxGetItem(combo, 0), "/");
  EXPECT_EQ(MyComboBoxGetItem(combo, 1), "/home");
  EXPECT_EQ(MyComboBoxGetItem(combo, 3), "/usr");
  EXPECT_EQ(MyComboBoxGetItem(combo, 4), "");

  MyComboBoxSelectPos(combo, 2, false);
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo), 2);
  EXPECT_EQ(MyComboBoxGetText(combo), "/tmp");
  EXPECT_TRUE(choices.empty());
  MyComboBoxAddItem(combo, "/a", 0);  // the selection moves with its item
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo), 3);
  MyComboBoxSelectPos(combo, 1, true);
  ASSERT_EQ(choices.size(), 1u);
  EXPECT_EQ(choices[0].reason, XmCR_SINGLE_SELECT);
  EXPECT_EQ(choices[0].position, 1);
  EXPECT_EQ(choices[0].text, "/");
  MyComboBoxSelectPos(combo, 9, true);  // out of range: nothing
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo), 1);

  MyComboBoxSetText(combo, "/elsewhere");
  EXPECT_EQ(MyComboBoxGetText(combo), "/elsewhere");
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo), -1);
  MyComboBoxSetText(combo, "/usr");
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo), 4);

  MyComboBoxDeleteAllItems(combo);
  EXPECT_EQ(MyComboBoxGetItemCount(combo), 0);
  EXPECT_EQ(MyComboBoxGetSelectedPos(combo), -1);
}

TEST_F(ComboBoxTest, UpDownStepReturnAccepts) {
  addItems({"one", "two", "three"});
  Widget text = MyComboBoxGetTextField(combo);
  key(text, XK_Down);  // nothing chosen yet: the first item
  key(text, XK_Down);
  key(text, XK_Up);
  key(text, XK_Up);  // already at the first: no change, no call
  ASSERT_EQ(choices.size(), 3u);
  EXPECT_EQ(choices[0].position, 0);
  EXPECT_EQ(choices[1].position, 1);
  EXPECT_EQ(choices[1].text, "two");
  EXPECT_EQ(choices[2].position, 0);
  EXPECT_EQ(MyComboBoxGetText(combo), "one");

  // Editable: typed text is accepted with Return, as an item or not.
  MyComboBoxSetText(combo, "three");
  key(text, XK_Return);
  MyComboBoxSetText(combo, "four");
  key(text, XK_Return);
  ASSERT_EQ(choices.size(), 5u);
  EXPECT_EQ(choices[3].reason, XmCR_ACTIVATE);
  EXPECT_EQ(choices[3].position, 2);
  EXPECT_EQ(choices[4].position, -1);
  EXPECT_EQ(choices[4].text, "four");
}

TEST_F(ComboBoxTest, DropListChoosesByKeyAndEscapeCloses) {
  addItems({"red", "green", "blue"});
  MyComboBoxSelectPos(combo, 0, false);
  Widget text = MyComboBoxGetTextField(combo);
  key(text, XK_Down, Mod1Mask);  // Alt+Down drops the list
  ASSERT_TRUE(MyComboBoxListShown(combo));
  Widget list = XtNameToWidget(combo, "dropShell*list");
  ASSERT_NE(list, nullptr);
  ASSERT_TRUE(pumpUntil([&] { return viewable(XtWindow(list)); }));
  // It lies below the text field, as wide as the combo box.
  Position comboX, comboY, listX, listY;
  XtTranslateCoords(combo, 0, 0, &comboX, &comboY);
  XtVaGetValues(XtParent(XtParent(list)), XmNx, &listX, XmNy, &listY, nullptr);
  Dimension comboW, comboH, shellW;
  XtVaGetValues(combo, XmNwidth, &comboW, XmNheight, &comboH, nullptr);
  XtVaGetValues(XtParent(XtParent(list)), XmNwidth, &shellW, nullptr);
  EXPECT_EQ(listX, comboX);
  EXPECT_EQ(listY, comboY + comboH);
  EXPECT_EQ(shellW, comboW);

  key(list, XK_Escape);
  EXPECT_FALSE(MyComboBoxListShown(combo));
  EXPECT_TRUE(choices.empty());
  EXPECT_EQ(MyComboBoxGetText(combo), "red");

  MyComboBoxShowList(combo, true);
  ASSERT_TRUE(pumpUntil([&] { return viewable(XtWindow(list)); }));
  key(list, XK_Down);
  key(list, XK_Down);
  key(list, XK_Return);
  EXPECT_FALSE(MyComboBoxListShown(combo));
  ASSERT_EQ(choices.size(), 1u);
  EXPECT_EQ(choices[0].reason, XmCR_SINGLE_SELECT);
  EXPECT_EQ(choices[0].position, 2);
  EXPECT_EQ(MyComboBoxGetText(combo), "blue");
}

TEST_F(ComboBoxTest, NonEditableTakesNoTypedText) {
  XtVaSetValues(combo, XmNeditable, False, nullptr);
  addItems({"Automatic", "All Files"});
  MyComboBoxSelectPos(combo, 1, false);
  Widget text = MyComboBoxGetTextField(combo);
  key(text, XK_a);
  EXPECT_EQ(MyComboBoxGetText(combo), "All Files");
  key(text, XK_Up);
  EXPECT_EQ(MyComboBoxGetText(combo), "Automatic");
  Boolean editable = True;
  XtVaGetValues(text, XmNeditable, &editable, nullptr);
  EXPECT_FALSE(editable);
}

}  // namespace
