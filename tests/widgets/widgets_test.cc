// Vimora's own widgets and the progress dialog on a real X server (the test
// runs under Xvfb; without a display it skips).
// GoogleTest first: Xlib defines None and Bool as macros.
#include <gtest/gtest.h>
// clang-format off
#include <Xm/Xm.h>
#include <Xm/Label.h>
// clang-format on

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "core/app.h"
#include "core/save.h"
#include "imgkit/imgkit.h"
#include "tests/support/test_support.h"
#include "widgets/paned.h"
#include "widgets/progress_bar.h"
#include "widgets/progress_dialog.h"
#include "widgets/status_bar.h"

namespace {

class Widgets : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!std::getenv("DISPLAY") || appContext) return;
    XtToolkitInitialize();
    appContext = XtCreateApplicationContext();
    int argc = 1;
    char name[] = "widgets_tests";
    char* argv[] = {name, nullptr};
    display = XtOpenDisplay(appContext, nullptr, "vimora", "Vimora", nullptr, 0, &argc, argv);
    if (!display) return;
    topLevel =
        XtVaAppCreateShell("vimora", "Vimora", applicationShellWidgetClass, display,
                           XmNmappedWhenManaged, False, XmNwidth, 100, XmNheight, 100, nullptr);
    XtRealizeWidget(topLevel);
  }
  void SetUp() override {
    if (!display) GTEST_SKIP() << "no X display";
  }
  // A realised, mapped top-level window to put widgets in.
  Widget window(int width, int height) {
    Widget shell = XtVaCreatePopupShell("window", topLevelShellWidgetClass, topLevel, XmNwidth,
                                        width, XmNheight, height, nullptr);
    shells.push_back(shell);
    return shell;
  }
  void show(Widget shell) {
    XtPopup(shell, XtGrabNone);
    XSync(display, False);
    DispatchPendingEvents();
  }
  void TearDown() override {
    for (Widget s : shells) XtDestroyWidget(s);
    if (display) DispatchPendingEvents();
  }
  std::vector<Widget> shells;
};

TEST_F(Widgets, PublicFunctionsWarnAboutAWidgetOfAnotherClass) {
  Widget label = XtVaCreateManagedWidget("label", xmLabelWidgetClass, window(50, 50), nullptr);
  testing::internal::CaptureStderr();
  MyProgressBarSetRange(label, 0, 10);
  MyProgressBarSetValue(label, 3);
  MyProgressBarStep(label);
  MyProgressBarReset(label);
  EXPECT_EQ(MyProgressBarGetValue(label), 0);
  MyStatusBarSetText(label, 0, "text");
  EXPECT_STREQ(MyStatusBarGetText(label, 0), "");
  MyStatusBarSetFieldCount(label, 2);
  EXPECT_EQ(MyStatusBarGetFieldCount(label), 0);
  MyStatusBarSetFieldWidth(label, 0, 40);
  MyProgressBarSetValue(nullptr, 1);
  const std::string err = testing::internal::GetCapturedStderr();
  for (const char* function :
       {"MyProgressBarSetRange", "MyProgressBarSetValue", "MyProgressBarStep", "MyProgressBarReset",
        "MyProgressBarGetValue", "MyStatusBarSetText", "MyStatusBarGetText",
        "MyStatusBarSetFieldCount", "MyStatusBarGetFieldCount", "MyStatusBarSetFieldWidth"})
    EXPECT_NE(err.find(std::string(function) + ": widget has invalid class\n"), std::string::npos)
        << function << " in:\n"
        << err;
  // The null widget warns too: eleven warnings in all.
  size_t count = 0;
  for (size_t at = err.find("widget has invalid class"); at != std::string::npos;
       at = err.find("widget has invalid class", at + 1))
    ++count;
  EXPECT_EQ(count, 11u);
}

TEST_F(Widgets, ProgressBarKeepsItsValueInsideTheRange) {
  Widget bar = MyCreateProgressBar(window(200, 30), "bar", nullptr, 0);
  MyProgressBarSetRange(bar, 0, 10);
  MyProgressBarSetValue(bar, 15);
  EXPECT_EQ(MyProgressBarGetValue(bar), 10);
  MyProgressBarStep(bar);
  EXPECT_EQ(MyProgressBarGetValue(bar), 10);
  MyProgressBarReset(bar);
  EXPECT_EQ(MyProgressBarGetValue(bar), 0);
  MyProgressBarStep(bar);
  MyProgressBarStep(bar);
  EXPECT_EQ(MyProgressBarGetValue(bar), 2);
  MyProgressBarSetValue(bar, -4);
  EXPECT_EQ(MyProgressBarGetValue(bar), 0);
  // A range moved above the value drags the value along.
  MyProgressBarSetRange(bar, 5, 3);
  EXPECT_EQ(MyProgressBarGetValue(bar), 5);
  int maximum = 0;
  XtVaGetValues(bar, XmNmaximum, &maximum, nullptr);
  EXPECT_EQ(maximum, 5);
}

// The filled part is drawn in barColor from the left: at 30 of 0..120 a
// 100-pixel inside is filled 25 pixels wide.
TEST_F(Widgets, ProgressBarFillsInBarColorFromTheLeft) {
  Widget shell = window(104, 24);
  Widget bar = XtVaCreateManagedWidget("bar", myProgressBarWidgetClass, shell, XmNwidth, 104,
                                       XmNheight, 24, XmNshadowThickness, 2, XmNhighlightThickness,
                                       0, XtVaTypedArg, MyNbarColor, XmRString, "red", 4,
                                       XtVaTypedArg, XmNbackground, XmRString, "white", 6, nullptr);
  show(shell);
  MyProgressBarSetRange(bar, 0, 120);
  MyProgressBarSetValue(bar, 30);
  XSync(display, False);
  XImage* image = XGetImage(display, XtWindow(bar), 0, 0, 104, 24, AllPlanes, ZPixmap);
  ASSERT_NE(image, nullptr);
  Pixel red = 0, white = 0;
  XtVaGetValues(bar, MyNbarColor, &red, XmNbackground, &white, nullptr);
  int redCount = 0, firstWhite = -1;
  for (int x = 2; x < 102; ++x) {
    const Pixel p = XGetPixel(image, x, 12);
    if (p == red) ++redCount;
    if (p == white && firstWhite < 0) firstWhite = x;
  }
  XDestroyImage(image);
  EXPECT_EQ(redCount, 25);
  EXPECT_EQ(firstWhite, 2 + 25);
}

TEST_F(Widgets, StatusBarFieldsKeepTheirTexts) {
  Widget shell = window(300, 24);
  Arg args[] = {{const_cast<char*>(MyNfieldCount), 3}};
  Widget status = MyCreateStatusBar(shell, "status", args, 1);
  XtManageChild(status);
  show(shell);
  EXPECT_EQ(MyStatusBarGetFieldCount(status), 3);
  MyStatusBarSetText(status, 0, "12 files");
  MyStatusBarSetText(status, 2, "Width: 640");
  EXPECT_STREQ(MyStatusBarGetText(status, 0), "12 files");
  EXPECT_STREQ(MyStatusBarGetText(status, 1), "");
  EXPECT_STREQ(MyStatusBarGetText(status, 2), "Width: 640");
  MyStatusBarSetFieldCount(status, 1);
  EXPECT_EQ(MyStatusBarGetFieldCount(status), 1);
  EXPECT_STREQ(MyStatusBarGetText(status, 0), "12 files");
  testing::internal::CaptureStderr();
  MyStatusBarSetText(status, 1, "gone");
  EXPECT_NE(testing::internal::GetCapturedStderr().find("MyStatusBarSetText: field out of range"),
            std::string::npos);
  MyStatusBarSetFieldCount(status, 0);
  EXPECT_EQ(MyStatusBarGetFieldCount(status), 1);
}

// Three fields of a 302-pixel bar share its width (two 2-pixel gaps): a
// text set in the last field is drawn only right of x = 2 * (98 + 2) = 200.
TEST_F(Widgets, StatusBarDrawsATextInsideItsOwnField) {
  Widget shell = window(302, 24);
  Widget status = XtVaCreateManagedWidget(
      "status", myStatusBarWidgetClass, shell, XmNwidth, 302, XmNheight, 24, MyNfieldCount, 3,
      XmNhighlightThickness, 0, XmNshadowThickness, 0, XtVaTypedArg, XmNforeground, XmRString,
      "black", 6, XtVaTypedArg, XmNbackground, XmRString, "white", 6, nullptr);
  show(shell);
  MyStatusBarSetText(status, 2, "MMMM");
  XSync(display, False);
  XImage* image = XGetImage(display, XtWindow(status), 0, 0, 302, 24, AllPlanes, ZPixmap);
  ASSERT_NE(image, nullptr);
  Pixel black = 0;
  XtVaGetValues(status, XmNforeground, &black, nullptr);
  int left = 302, right = -1;
  // Without shadows only the text is drawn in the foreground.
  for (int y = 0; y < 24; ++y)
    for (int x = 0; x < 302; ++x)
      if (XGetPixel(image, x, y) == black) {
        left = std::min(left, x);
        right = std::max(right, x);
      }
  XDestroyImage(image);
  EXPECT_GT(left, 200);
  EXPECT_LT(right, 240);  // four letters, drawn from the field's left margin
  EXPECT_GE(right, left);
}

TEST_F(Widgets, PanedPairPutsTwoPanesSideBySide) {
  Widget shell = window(400, 200);
  Widget first = nullptr, second = nullptr;
  Widget paned = CreatePanedPair(shell, "paned", true, 150, 30, &first, &second);
  show(shell);
  EXPECT_EQ(XtParent(first), paned);
  EXPECT_EQ(XtParent(second), paned);
  EXPECT_STREQ(XtName(first), "pane1");
  EXPECT_STREQ(XtName(second), "pane2");
  Position x1 = 0, x2 = 0;
  Dimension w1 = 0, w2 = 0, h1 = 0, h2 = 0;
  XtVaGetValues(first, XmNx, &x1, XmNwidth, &w1, XmNheight, &h1, nullptr);
  XtVaGetValues(second, XmNx, &x2, XmNwidth, &w2, XmNheight, &h2, nullptr);
  EXPECT_EQ(w1, 150);
  EXPECT_GT(x2, x1 + w1);  // the sash lies between them
  EXPECT_GT(w2, 150);      // the second takes the rest of 400
  EXPECT_EQ(h1, h2);
}

TEST_F(Widgets, ProgressDialogCountsAndStops) {
  Widget dialog = CreateProgressDialog(nullptr, "Copy files...", "Copying");
  EXPECT_STREQ(XtName(dialog), "VmoraProgress");
  Widget bar = XtNameToWidget(dialog, "*progressBar");
  Widget stop = XtNameToWidget(dialog, "*buttonStop");
  ASSERT_NE(bar, nullptr);
  ASSERT_NE(stop, nullptr);
  ProgressDialogPopup(dialog);
  EXPECT_TRUE(XtIsRealized(dialog));
  ProgressDialogSetTotal(dialog, 3);
  ProgressDialogAdvance(dialog, "a.png");
  ProgressDialogAdvance(dialog);
  EXPECT_EQ(MyProgressBarGetValue(bar), 2);
  EXPECT_FALSE(ProgressDialogStopped(dialog));
  XtCallCallbacks(stop, XmNactivateCallback, nullptr);
  EXPECT_TRUE(ProgressDialogStopped(dialog));
  EXPECT_FALSE(ProgressDialogStopped(dialog));  // reading cleared it
  CloseProgressDialog(dialog);
  DispatchPendingEvents();
}

// The library's progress function: step 0 sets the range to count + 1 and
// every call advances by one; a stop request is returned once, and the call
// that returns it does not advance.
TEST_F(Widgets, ProgressFunctionFollowsTheLibrarysSteps) {
  Widget dialog = CreateProgressDialog(nullptr, "Loading", "Loading big.png");
  Widget before = SetProgressDialog(dialog);
  Widget bar = XtNameToWidget(dialog, "*progressBar");
  EXPECT_EQ(PictureProgress(0, 4), 0);
  int maximum = 0;
  XtVaGetValues(bar, XmNmaximum, &maximum, nullptr);
  EXPECT_EQ(maximum, 5);
  EXPECT_EQ(MyProgressBarGetValue(bar), 1);
  EXPECT_EQ(PictureProgress(1, 4), 0);
  EXPECT_EQ(MyProgressBarGetValue(bar), 2);
  XtCallCallbacks(XtNameToWidget(dialog, "*buttonStop"), XmNactivateCallback, nullptr);
  EXPECT_EQ(PictureProgress(2, 4), 1);
  EXPECT_EQ(MyProgressBarGetValue(bar), 2);
  EXPECT_EQ(PictureProgress(3, 4), 0);
  EXPECT_EQ(MyProgressBarGetValue(bar), 3);
  SetProgressDialog(before);
  EXPECT_EQ(PictureProgress(4, 4), 0);  // no dialog: nothing to stop
  CloseProgressDialog(dialog);
  DispatchPendingEvents();
}

// The save's progress goes through the same dialog: "Stop" pressed while the
// writer reports its rows ends the save with code 15 and writes nothing.
void pressStopTimeout(XtPointer, XtIntervalId*) {
  Widget stop = XtNameToWidget(topLevel, "VmoraProgress*buttonStop");
  if (stop) XtCallCallbacks(stop, XmNactivateCallback, nullptr);
}

TEST_F(Widgets, SaveStoppedFromTheProgressDialogWritesNothing) {
  test::TempDir dir;
  test::OwnedPicture picture;
  ASSERT_NE(imkAllock(&picture.rec, 256, 8, 256, 256), 0);
  SaveHooks hooks;
  SetProgressSaveHooks(&hooks, topLevel);
  const std::string path = dir.file("stopped.png");
  XtAppAddTimeOut(appContext, 0, pressStopTimeout, nullptr);
  EXPECT_EQ(SavePicture(hooks, path.c_str(), imkGetIndex("png"), &picture.rec, 0, 0, true), 15);
  EXPECT_NE(access(path.c_str(), F_OK), 0);
  EXPECT_EQ(XtNameToWidget(topLevel, "VmoraProgress"), nullptr);  // closed
  // Without a stop the same save writes the file.
  const std::string done = dir.file("done.png");
  EXPECT_EQ(SavePicture(hooks, done.c_str(), imkGetIndex("png"), &picture.rec, 0, 0, true), 0);
  EXPECT_EQ(access(done.c_str(), F_OK), 0);
  DispatchPendingEvents();
}

}  // namespace
