// Choosing the visual on the Xvfb configurations the viewer meets: 24-bit
// TrueColor, 8-bit PseudoColor, two screens, and a GLX server whose 32-bit
// ARGB visual must never be taken as the best.
#include <gtest/gtest.h>

#include "tests/display/x_server.h"

namespace {

std::string chooseAndCapture(Display* display, int32_t requested, DisplayVisual* out) {
  testing::internal::CaptureStderr();
  chooseVisual(display, requested, out);
  return testing::internal::GetCapturedStderr();
}

TEST(VisualTrueColor24, BestIsTheTrueColorDefaultWithItsChannelLayout) {
  REQUIRE_SERVER("truecolor24");
  test::XConnection x;
  DisplayVisual v{};
  EXPECT_EQ(chooseAndCapture(x.display, -1, &v), "Use TrueColor visual (0x21) with 24 bits...\n");
  EXPECT_EQ(v.visualId, 0x21u);
  EXPECT_EQ(v.depth, 24);
  EXPECT_EQ(v.colormapSize, 256);
  // Masks 0xff0000, 0xff00, 0xff.
  EXPECT_EQ(v.redShift, 16);
  EXPECT_EQ(v.greenShift, 8);
  EXPECT_EQ(v.blueShift, 0);
  EXPECT_EQ(v.redLevels, 256);
  EXPECT_EQ(v.greenLevels, 256);
  EXPECT_EQ(v.blueLevels, 256);
}

TEST(VisualTrueColor24, RequestedIds) {
  REQUIRE_SERVER("truecolor24");
  test::XConnection x;
  DisplayVisual v{};
  EXPECT_EQ(chooseAndCapture(x.display, 0, &v), "Use TrueColor visual (0x21) with 24 bits...\n");
  EXPECT_EQ(chooseAndCapture(x.display, 0x22, &v),
            "Use DirectColor visual (0x22) with 24 bits...\n");
  EXPECT_EQ(v.visualId, 0x22u);
  EXPECT_EQ(chooseAndCapture(x.display, 0x4321, &v),
            "Use TrueColor visual (0x21) with 24 bits...\n")
      << "an unknown id falls back to the best visual";
}

TEST(VisualTrueColor24, ListGoesToStandardOutput) {
  REQUIRE_SERVER("truecolor24");
  testing::internal::CaptureStdout();
  listVisuals();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "              Visual available : \n"
            // "% 2d": the space flag puts a blank before the positive depth.
            "                0x21 : TrueColor       /  24 planes\n"
            "                0x22 : DirectColor     /  24 planes\n"
            "                0x40 : TrueColor       /  32 planes\n");
}

TEST(VisualPseudoColor8, DefaultWinsTheTieAndTrueColorCanBeAskedFor) {
  REQUIRE_SERVER("pseudocolor8");
  test::XConnection x;
  DisplayVisual v{};
  v.greenShift = 77;  // mapped visuals leave green and blue alone
  EXPECT_EQ(chooseAndCapture(x.display, -1, &v), "Use PseudoColor visual (0x21) with 8 bits...\n");
  EXPECT_EQ(v.depth, 8);
  EXPECT_EQ(v.redShift, 0);
  EXPECT_EQ(v.redLevels, 1);
  EXPECT_EQ(v.greenShift, 77);

  // 0x24 is the 8-bit TrueColor visual, masks 0x7, 0x38, 0xc0.
  EXPECT_EQ(chooseAndCapture(x.display, 0x24, &v), "Use TrueColor visual (0x24) with 8 bits...\n");
  EXPECT_EQ(v.redShift, 0);
  EXPECT_EQ(v.redLevels, 8);
  EXPECT_EQ(v.greenShift, 3);
  EXPECT_EQ(v.greenLevels, 8);
  EXPECT_EQ(v.blueShift, 6);
  EXPECT_EQ(v.blueLevels, 4);
  EXPECT_EQ(chooseAndCapture(x.display, 0x22, &v), "Use GrayScale visual (0x22) with 8 bits...\n");
}

TEST(VisualStaticGray8, StaticGrayDefaultWinsOverTheEqualDepthTrueColor) {
  REQUIRE_SERVER("staticgray8");
  test::XConnection x;
  DisplayVisual v{};
  // This server also offers 32-bit TrueColor visuals of 24 colour bits.
  EXPECT_EQ(chooseAndCapture(x.display, -1, &v), "Use StaticGray visual (0x26) with 8 bits...\n");
  // Its masks are empty: shift 32 and a single level per channel.
  EXPECT_EQ(v.redShift, 32);
  EXPECT_EQ(v.redLevels, 1);
  EXPECT_EQ(v.blueLevels, 1);
}

TEST(VisualTwoScreens, SecondScreenUsesItsOwnVisuals) {
  REQUIRE_SERVER("two_screens");
  test::XConnection x;
  ASSERT_EQ(x.screen(), 1);
  DisplayVisual v{};
  EXPECT_EQ(chooseAndCapture(x.display, -1, &v), "Use PseudoColor visual (0x3e) with 8 bits...\n");
  EXPECT_EQ(chooseAndCapture(x.display, 0x21, &v), "Use PseudoColor visual (0x3e) with 8 bits...\n")
      << "0x21 belongs to screen 0";
}

TEST(VisualGlx, ArgbVisualIsNeverTheBestButCanBeAskedFor) {
  REQUIRE_SERVER("glx");
  test::XConnection x;
  XVisualInfo templ{};
  templ.screen = x.screen();
  templ.depth = 32;
  int n = 0;
  XVisualInfo* deep = XGetVisualInfo(x.display, VisualScreenMask | VisualDepthMask, &templ, &n);
  ASSERT_GT(n, 0) << "the GLX server offers 32-bit visuals";
  const unsigned deepId = static_cast<unsigned>(deep[0].visualid);
  XFree(deep);

  DisplayVisual v{};
  EXPECT_EQ(chooseAndCapture(x.display, -1, &v), "Use TrueColor visual (0x21) with 24 bits...\n");
  EXPECT_EQ(v.depth, 24);
  char expected[80];
  snprintf(expected, sizeof expected, "Use TrueColor visual (0x%x) with 32 bits...\n", deepId);
  EXPECT_EQ(chooseAndCapture(x.display, static_cast<int32_t>(deepId), &v), expected);
}

}  // namespace
