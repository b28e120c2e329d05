// Zoom steps, scaled and fitted sizes, the information line and the
// integrity of the command, key, tool-bar and menu tables.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "view/view_commands.h"
#include "view/view_window.h"

namespace {

TEST(Zoom, StepsAcrossHundredPercent) {
  EXPECT_EQ(ZoomPercentage(NextZoom(1, "+1")), 200);
  EXPECT_EQ(ZoomPercentage(NextZoom(1, "-1")), 50);
  EXPECT_EQ(ZoomPercentage(NextZoom(-1, "+1")), 200);
  EXPECT_EQ(ZoomPercentage(NextZoom(-2, "+1")), 100);
  EXPECT_EQ(ZoomPercentage(NextZoom(-2, "-1")), 33);
}

TEST(Zoom, SeventeenZoomInsStopAt1600Percent) {
  int16_t zoom = 1;
  for (int i = 0; i < 17; ++i) zoom = NextZoom(zoom, "+1");
  EXPECT_EQ(ZoomPercentage(zoom), 1600);
  zoom = 1;
  for (int i = 0; i < 20; ++i) zoom = NextZoom(zoom, "-1");
  EXPECT_EQ(ZoomPercentage(zoom), 6);
}

TEST(Zoom, AbsoluteRequests) {
  EXPECT_EQ(ZoomPercentage(NextZoom(5, "+4")), 400);
  EXPECT_EQ(ZoomPercentage(NextZoom(5, "-4")), 25);
  EXPECT_EQ(ZoomPercentage(NextZoom(5, "+0")), 100);
  EXPECT_EQ(NextZoom(5, "x"), 5);
}

TEST(ScaledSize, ZoomInRepeatsZoomOutTruncates) {
  int w, h;
  ScaledSize(1, 640, 480, &w, &h);
  EXPECT_EQ(w, 640);
  EXPECT_EQ(h, 480);
  ScaledSize(2, 640, 480, &w, &h);
  EXPECT_EQ(w, 1280);
  EXPECT_EQ(h, 960);
  ScaledSize(-3, 100, 50, &w, &h);
  EXPECT_EQ(w, 33);
  EXPECT_EQ(h, 16);
}

TEST(FitSize, TouchesTheAreaInOneDirection) {
  int w, h;
  FitSize(400, 400, 100, 50, &w, &h);  // wide: full width, centred vertically
  EXPECT_EQ(w, 400);
  EXPECT_EQ(h, 200);
  FitSize(400, 400, 50, 100, &w, &h);  // tall: full height
  EXPECT_EQ(w, 200);
  EXPECT_EQ(h, 400);
  FitSize(300, 200, 3000, 2000, &w, &h);  // reduced
  EXPECT_EQ(w, 300);
  EXPECT_EQ(h, 200);
}

TEST(InfoLine, ReadsAsShown) {
  ImageRecord picture{};
  picture.width = 640;
  picture.height = 480;
  picture.type = IMK_RGB;
  EXPECT_EQ(ViewInfoText(picture, -2),
            "Width: 640  Height: 480  Depth: 24  (True Colors) / Percentage 50%");
  picture.type = IMK_MAPPED;
  picture.colorCount = 16;
  EXPECT_EQ(ViewInfoText(picture, 3),
            "Width: 640  Height: 480  Depth: 8  (16 Colors) / Percentage 300%");
  picture.type = IMK_BINARY;
  EXPECT_EQ(ViewInfoText(picture, 1),
            "Width: 640  Height: 480  Depth: 1  (Binary) / Percentage 100%");
}

TEST(ViewCommands, WordsInTheirOrder) {
  const char* const expected[] = {
      "open",      "viewHexa",        "browseFiles",  "reopenFiles", "close",     "saveFiles",
      "slideShow", "sequenceConvert", "multiConvert", "quit",        "undo",      "crop",
      "options",   "adaptiveSize",    "fitImage",     "fullScreen",  "statusBar", "toolBar",
      "zoom+",     "zoom-",           "first",        "last",        "next",      "prev",
      "pageFirst", "pageLast",        "pageNext",     "pagePrev"};
  ASSERT_EQ(kViewCommandCount, static_cast<int>(std::size(expected)));
  for (int i = 0; i < kViewCommandCount; ++i) EXPECT_STREQ(kViewCommands[i].word, expected[i]);
  EXPECT_EQ(FindViewCommand("Open"), nullptr);  // case-sensitive
  EXPECT_EQ(FindViewCommand("zoom"), nullptr);
}

// The action prints "TEST command <word>" for every command it runs.
const bool kTestLines = (setenv("VIMORA_TEST", "1", 1), true);

std::string commandsRun(std::vector<const char*> params) {
  Cardinal count = static_cast<Cardinal>(params.size());
  testing::internal::CaptureStdout();
  ViewDoCommand(nullptr, nullptr, const_cast<String*>(params.data()), &count);
  return testing::internal::GetCapturedStdout();
}

TEST(ViewCommands, TheActionRunsOnlyOneKnownWord) {
  ASSERT_TRUE(kTestLines);
  EXPECT_EQ(commandsRun({"zoom+"}), "TEST command zoom+\n");
  EXPECT_EQ(commandsRun({"zoom+", "zoom-"}), "");  // two parameters
  EXPECT_EQ(commandsRun({}), "");
  EXPECT_EQ(commandsRun({"Open"}), "");  // words are compared exactly
  EXPECT_EQ(commandsRun({"zoom"}), "");
}

TEST(ViewCommands, TheCommandsOfThisWindowAreImplemented) {
  for (const char* word :
       {"open", "saveFiles", "close", "quit", "zoom+", "zoom-", "fitImage", "first", "last", "next",
        "prev", "pageFirst", "pageLast", "pageNext", "pagePrev"}) {
    const ViewCommand* c = FindViewCommand(word);
    ASSERT_NE(c, nullptr) << word;
    EXPECT_NE(c->run, nullptr) << word;
  }
}

TEST(ViewCommands, EveryBindingNamesARealWordAndNoKeyIsBoundTwice) {
  std::set<std::string> keys;
  for (int i = 0; i < kViewTranslationLineCount; ++i) {
    const std::string line = kViewTranslationLines[i];
    const size_t colon = line.find(": ");
    ASSERT_NE(colon, std::string::npos) << line;
    EXPECT_TRUE(keys.insert(line.substr(0, colon)).second) << line;
    const std::string action = line.substr(colon + 2);
    if (action.rfind("ViewDoCommand(", 0) == 0) {
      const std::string word = action.substr(14, action.size() - 15);
      EXPECT_NE(FindViewCommand(word.c_str()), nullptr) << line;
    } else {
      EXPECT_TRUE(action.rfind("ViewKeyScroll(", 0) == 0 || action == "ViewClose()") << line;
    }
  }
  EXPECT_EQ(kViewTranslationLineCount, 35);
  EXPECT_EQ(ViewTranslationText().find("Ctrl ~Alt Shift<Key>t: ViewDoCommand(toolBar)\n") !=
                std::string::npos,
            true);
}

TEST(ViewCommands, MenuItemsNameRealWords) {
  for (const MenuRecord* menu :
       {&MenuFile, &MenuImage, &MenuFilter, &MenuView, &MenuInfo, &MenuOption}) {
    for (int i = 0; i < menu->itemCount; ++i) {
      const MenuItem& item = menu->items[i];
      if (item.word) {
        EXPECT_NE(FindViewCommand(item.word), nullptr) << item.label;
      }
    }
  }
  // The File menu's items in their order, then the nine recent files.
  std::string labels;
  int recent = 0;
  for (int i = 0; i < MenuFile.itemCount; ++i) {
    const MenuItem& item = MenuFile.items[i];
    if (item.kind == MenuItemKind::kRecent)
      ++recent;
    else if (item.kind != MenuItemKind::kSeparator)
      (labels += item.label) += '|';
  }
  EXPECT_EQ(labels,
            "Open...|Open All...|View in hexa...|Browse...|Reopen|Close|Describe...|Capture...|"
            "Save|Save As...|Slide Show...|Sequence Convert...|Multi Convert...|Quit|");
  EXPECT_EQ(recent, 9);
}

TEST(ViewCommands, ToolBarHasTwentyFourDistinctButtons) {
  std::set<int> icons;
  std::set<std::string> words;
  for (const ToolBarButton& b : kToolBarButtons) {
    icons.insert(b.icon);
    words.insert(b.word);
  }
  EXPECT_EQ(icons.size(), 24u);
  EXPECT_EQ(words.size(), 24u);
}

}  // namespace
