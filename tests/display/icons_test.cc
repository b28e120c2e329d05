// The built-in icons: the records' shapes (no server), their pixmaps on
// 24-bit TrueColor, the greyed tool-bar copies and the tree icons.
// clang-format off
// GoogleTest before the X headers, whose None macro clashes with it.
#include <gtest/gtest.h>

#include <X11/Intrinsic.h>
#include <X11/Shell.h>
#include <X11/StringDefs.h>
// clang-format on
#include "display/icons.h"

#include <set>

#include "tests/display/x_server.h"

namespace {

std::vector<uint8_t> subIcon(const IconImage& icon, int index, int width) {
  std::vector<uint8_t> out;
  for (int y = 0; y < icon.height; ++y)
    for (int x = 0; x < width; ++x) out.push_back(icon.pixels[y * icon.width + index * width + x]);
  return out;
}

TEST(IconRecords, ToolBarStripHoldsTwentyFiveDistinctIcons) {
  const IconImage& strip = toolBarStrip();
  EXPECT_EQ(strip.width, 600);
  EXPECT_EQ(strip.height, 22);
  EXPECT_EQ(strip.colourCount, 64);
  EXPECT_EQ(strip.transparent, 32);
  EXPECT_EQ(kToolBarIconCount, 25);
  std::set<std::vector<uint8_t>> seen;
  for (int i = 0; i < kToolBarIconCount; ++i) {
    const auto icon = subIcon(strip, i, 24);
    const auto drawn = std::count_if(icon.begin(), icon.end(), [](uint8_t v) { return v != 32; });
    EXPECT_GT(drawn, 60) << "icon " << i << " is nearly empty";
    EXPECT_LT(drawn, 24 * 22) << "icon " << i << " has no transparent edge";
    for (uint8_t v : icon) ASSERT_LT(v, 64) << "icon " << i;
    seen.insert(icon);
  }
  EXPECT_EQ(seen.size(), 25u);
}

TEST(IconRecords, ApplicationAndTreeIconsUseOnlyTheirTables) {
  struct Case {
    const IconImage& icon;
    int size, colours;
  };
  const Case cases[] = {{appIcon64(), 64, 32},
                        {appIcon32(), 32, 32},
                        {treeFolderClosedIcon(), 16, 0},
                        {treeFolderOpenIcon(), 16, 0},
                        {treeFileIcon(), 16, 0}};
  for (const Case& c : cases) {
    EXPECT_EQ(c.icon.width, c.size);
    EXPECT_EQ(c.icon.height, c.size);
    if (c.colours) {
      EXPECT_EQ(c.icon.colourCount, c.colours);
    }
    std::set<int> table;
    for (int i = 0; i < c.icon.colourCount; ++i) table.insert(c.icon.colours[i].index);
    for (int i = 0; i < c.size * c.size; ++i) {
      const int v = c.icon.pixels[i];
      ASSERT_TRUE(v == c.icon.transparent || table.count(v)) << c.size << ": index " << v;
    }
  }
}

// An application shell of a known background on the test server, made once
// and kept for the whole run (the toolkit keeps caches of its own).
struct Toolkit {
  XtAppContext app = nullptr;
  Widget shell = nullptr;
  Display* display = nullptr;
  static constexpr Pixel kBackground = 0x123456;
  Toolkit() {
    XtToolkitInitialize();
    app = XtCreateApplicationContext();
    int argc = 0;
    display = XtOpenDisplay(app, nullptr, "iconTest", "VimoraTest", nullptr, 0, &argc, nullptr);
    if (display)
      shell = XtVaAppCreateShell("iconTest", "VimoraTest", applicationShellWidgetClass, display,
                                 XtNbackground, kBackground, XtNwidth, 10, XtNheight, 10, nullptr);
  }
  static Toolkit& get() {
    static Toolkit* toolkit = new Toolkit;
    return *toolkit;
  }
};

// What a test made on the shared connection, freed at its end.
struct ToolkitTest {
  Toolkit& tk = Toolkit::get();
  ~ToolkitTest() {
    if (!tk.display) return;
    freeToolBarPixmaps(tk.display);
    freeAllColormaps();
    XSync(tk.display, False);
  }
};

unsigned long rgbOf(const IconImage& icon, uint8_t index) {
  for (int i = 0; i < icon.colourCount; ++i)
    if (icon.colours[i].index == index)
      return static_cast<unsigned long>(icon.colours[i].red << 16 | icon.colours[i].green << 8 |
                                        icon.colours[i].blue);
  return ~0ul;
}

TEST(IconsTrueColor24, PixmapsShowTheColoursAndTheBackground) {
  REQUIRE_SERVER("truecolor24");
  ToolkitTest t;
  Toolkit& tk = t.tk;
  ASSERT_NE(tk.shell, nullptr);
  DisplayVisual visual{};
  testing::internal::CaptureStderr();
  chooseVisual(tk.display, -1, &visual);
  testing::internal::GetCapturedStderr();
  ColormapRecord* cm = acquireColormap(tk.display, ImageRecord{}, visual, false);

  const IconImage& strip = toolBarStrip();
  Pixmap p = iconToPixmap(tk.shell, strip, kIconQuit, 24, cm, &visual);
  ASSERT_NE(p, None);
  const auto got = test::readPixels(tk.display, p, 24, 22);
  XFreePixmap(tk.display, p);
  const auto icon = subIcon(strip, kIconQuit, 24);
  for (size_t i = 0; i < icon.size(); ++i)
    ASSERT_EQ(got[i], icon[i] == 32 ? Toolkit::kBackground : rgbOf(strip, icon[i])) << i;

  // The greyed copy: the background on every other pixel, the icon between.
  makeToolBarPixmaps(tk.shell, cm, &visual);
  Pixmap normal = None, insensitive = None;
  ToolBarGetPixmap(kIconQuit, &normal, &insensitive);
  ASSERT_NE(normal, None);
  ASSERT_NE(insensitive, None);
  const auto shown = test::readPixels(tk.display, normal, 24, 22);
  EXPECT_EQ(shown, got);
  const auto greyed = test::readPixels(tk.display, insensitive, 24, 22);
  for (int y = 0; y < 22; ++y)
    for (int x = 0; x < 24; ++x) {
      const size_t i = static_cast<size_t>(y) * 24 + x;
      ASSERT_EQ(greyed[i], (x + y) % 2 == 0 ? Toolkit::kBackground : shown[i]) << x << "," << y;
    }

  makeToolBarPixmaps(tk.shell, cm, &visual);
  Pixmap again = None;
  ToolBarGetPixmap(kIconQuit, &again);
  EXPECT_EQ(again, normal) << "made once per process";

  testing::internal::CaptureStdout();
  Pixmap untouched = 77;
  ToolBarGetPixmap(kToolBarIconCount, &untouched, &untouched);
  ToolBarGetPixmap(-1, &untouched);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ToolBarGetPixmap : Bad index...\nToolBarGetPixmap : Bad index...\n");
  EXPECT_EQ(untouched, 77u);
  releaseColormap(cm);
}

TEST(IconsTrueColor24, TreeIconAllocatesItsColoursInTheWidgetColormap) {
  REQUIRE_SERVER("truecolor24");
  ToolkitTest t;
  Toolkit& tk = t.tk;
  ASSERT_NE(tk.shell, nullptr);
  const IconImage& icon = treeFolderOpenIcon();
  Pixmap p = treeIconToPixmap(tk.shell, icon);
  ASSERT_NE(p, None);
  const auto got = test::readPixels(tk.display, p, 16, 16);
  XFreePixmap(tk.display, p);
  for (int i = 0; i < 256; ++i)
    ASSERT_EQ(got[static_cast<size_t>(i)], icon.pixels[i] == icon.transparent
                                               ? Toolkit::kBackground
                                               : rgbOf(icon, icon.pixels[i]))
        << i;
}

TEST(IconsStaticGray8, TreeIconRefusesAGreyScreen) {
  REQUIRE_SERVER("staticgray8");
  ToolkitTest t;
  Toolkit& tk = t.tk;
  ASSERT_NE(tk.shell, nullptr);
  testing::internal::CaptureStderr();
  EXPECT_EQ(treeIconToPixmap(tk.shell, treeFileIcon()), None);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Bad Visual \n");
}

}  // namespace
