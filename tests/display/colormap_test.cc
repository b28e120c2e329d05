// Colormap records on the 8-bit PseudoColor server (whose default colormap
// starts with 183 free cells) and on 24-bit TrueColor.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/display/x_server.h"
#include "tests/support/test_support.h"

namespace {

DisplayVisual defaultVisual(Display* display) {
  DisplayVisual v{};
  testing::internal::CaptureStderr();
  chooseVisual(display, 0, &v);
  testing::internal::GetCapturedStderr();
  return v;
}

// A zero-filled record: what windows pass before they hold a picture.
const ImageRecord kNoPicture{};

TEST(ColormapPseudoColor8, LadderFallsBackAndGivesFailedSizesBack) {
  REQUIRE_SERVER("pseudocolor8");
  test::XConnection x;
  const DisplayVisual v = defaultVisual(x.display);
  const Colormap cmap = DefaultColormap(x.display, x.screen());
  const std::set<unsigned long> before = test::freeCells(x.display, cmap);
  ASSERT_GT(before.size(), 100u);
  ASSERT_LT(before.size(), 199u) << "too roomy a map: 8x8x4 would fit";

  testing::internal::CaptureStderr();
  ColormapRecord* r = acquireColormap(x.display, kNoPicture, v, false);
  const std::string err = testing::internal::GetCapturedStderr();
  // 8x8x4 and 6x6x6 do not fit in what is left; 4x8x4 does.
  EXPECT_EQ(err, "Use 4x8x4 colormap \n");
  EXPECT_EQ(r->mode, kModeCube484);
  EXPECT_EQ(r->colourCount, 128u);
  EXPECT_EQ(r->colormap, cmap);
  EXPECT_EQ(r->shared, 1);
  EXPECT_EQ(r->refCount, 1u);
  ASSERT_NE(r->cube, nullptr);
  EXPECT_EQ(r->cube->greenLevels, 8u);

  // The cells taken are exactly the cube's own new cells: the two failed
  // attempts left nothing behind.
  std::set<unsigned long> newlyTaken;
  for (uint32_t i = 0; i < r->colourCount; ++i)
    if (before.count(r->pixels[i])) newlyTaken.insert(r->pixels[i]);
  const std::set<unsigned long> during = test::freeCells(x.display, cmap);
  EXPECT_EQ(during.size(), before.size() - newlyTaken.size());

  // Black and white are the cube's corners.
  EXPECT_EQ(test::queryColour(x.display, cmap, r->blackPixel).red, 0);
  const XColor white = test::queryColour(x.display, cmap, r->whitePixel);
  EXPECT_EQ(white.red & white.green & white.blue, 0xffff);

  freeAllColormaps();
  EXPECT_EQ(test::freeCells(x.display, cmap), before) << "every cell given back at exit";
}

TEST(ColormapPseudoColor8, WindowsShareOneRecordThatOutlivesThem) {
  REQUIRE_SERVER("pseudocolor8");
  test::XConnection x;
  const DisplayVisual v = defaultVisual(x.display);
  const Colormap cmap = DefaultColormap(x.display, x.screen());

  testing::internal::CaptureStderr();
  ColormapRecord* first = acquireColormap(x.display, kNoPicture, v, false);
  const size_t freeAfterFirst = test::freeCells(x.display, cmap).size();
  ColormapRecord* second = acquireColormap(x.display, kNoPicture, v, false);
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(first, second);
  EXPECT_EQ(first->refCount, 2u);
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << "one cube allocated: " << err;
  EXPECT_EQ(test::freeCells(x.display, cmap).size(), freeAfterFirst);

  releaseColormap(first);
  releaseColormap(second);
  EXPECT_EQ(colormapList(), first) << "a shared record stays listed";
  EXPECT_EQ(first->refCount, 0u);

  testing::internal::CaptureStderr();
  ColormapRecord* third = acquireColormap(x.display, kNoPicture, v, false);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(third, first);
  EXPECT_EQ(third->refCount, 1u);
  EXPECT_EQ(test::freeCells(x.display, cmap).size(), freeAfterFirst);
}

TEST(ColormapPseudoColor8, OwnColormapHoldsTheGreyRampOfThePicture) {
  REQUIRE_SERVER("pseudocolor8");
  test::XConnection x;
  const DisplayVisual v = defaultVisual(x.display);
  ImageRecord grey{};
  grey.type = IMK_GREY;
  grey.colorCount = 16;

  ColormapRecord* a = acquireColormap(x.display, grey, v, true);
  ColormapRecord* b = acquireColormap(x.display, grey, v, true);
  EXPECT_NE(a, b) << "every window its own";
  EXPECT_EQ(a->privatePalette, 1);
  EXPECT_EQ(a->shared, 0);
  EXPECT_EQ(a->mode, kModePalette);
  EXPECT_EQ(a->colourCount, 16u);
  EXPECT_NE(a->colormap, DefaultColormap(x.display, x.screen()));
  for (int i = 0; i < 16; ++i) {
    EXPECT_EQ(a->pixels[i], static_cast<uint32_t>(i));
    const XColor c = test::queryColour(x.display, a->colormap, static_cast<unsigned long>(i));
    EXPECT_EQ(c.red, 4369 * i) << i;  // 65535 / 15 = 4369
    EXPECT_EQ(c.green, 4369 * i);
    EXPECT_EQ(c.blue, 4369 * i);
  }

  // A new picture in the same window: its palette replaces the ramp.
  test::OwnedPicture mapped;
  ASSERT_TRUE(imkAllock(&mapped.rec, IMK_MAPPED, 8, 4, 4));
  mapped->colorCount = 3;
  const uint8_t colours[3][3] = {{255, 0, 0}, {0, 128, 0}, {10, 20, 30}};
  for (int i = 0; i < 3; ++i)
    for (int c = 0; c < 3; ++c) mapped->palette[256 * c + i] = colours[i][c];
  restorePalette(mapped.rec, a);
  EXPECT_EQ(a->colourCount, 3u);
  const XColor c = test::queryColour(x.display, a->colormap, 2);
  EXPECT_EQ(c.red, 10 * 257);
  EXPECT_EQ(c.green, 20 * 257);
  EXPECT_EQ(c.blue, 30 * 257);

  releaseColormap(a);
  for (ColormapRecord* r = colormapList(); r; r = r->next) EXPECT_NE(r, a) << "unlinked";
  releaseColormap(b);
  EXPECT_EQ(colormapList(), nullptr);
}

TEST(ColormapPseudoColor8, OwnColormapOfATrueColourPictureHoldsTheFullCube) {
  REQUIRE_SERVER("pseudocolor8");
  test::XConnection x;
  const DisplayVisual v = defaultVisual(x.display);
  ImageRecord rgb{};
  rgb.type = IMK_RGB;
  testing::internal::CaptureStderr();
  ColormapRecord* r = acquireColormap(x.display, rgb, v, true);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Use 8x8x4 colormap \n");
  EXPECT_EQ(r->privatePalette, 1);
  EXPECT_EQ(r->mode, kModePalette);
  ASSERT_NE(r->cube, nullptr);
  EXPECT_EQ(r->pixels[255], 255u);
  // Cell index (r * 8 + g) * 4 + b: cell 0b111'000'11 is red 7 of 8, blue 3 of 4.
  const XColor c = test::queryColour(x.display, r->colormap, 7 * 32 + 3);
  EXPECT_EQ(c.red, 65535);
  EXPECT_EQ(c.green, 0);
  EXPECT_EQ(c.blue, 65535);
  releaseColormap(r);
}

TEST(ColormapTrueColor24, OwnHasNoEffectAndPixelsComeFromTheMasks) {
  REQUIRE_SERVER("truecolor24");
  test::XConnection x;
  const DisplayVisual v = defaultVisual(x.display);
  ColormapRecord* a = acquireColormap(x.display, kNoPicture, v, false);
  ColormapRecord* b = acquireColormap(x.display, kNoPicture, v, true);
  EXPECT_EQ(a, b);
  EXPECT_EQ(a->refCount, 2u);
  EXPECT_EQ(a->privatePalette, 0);
  EXPECT_EQ(a->mode, kModePalette);
  EXPECT_EQ(a->cube, nullptr);
  EXPECT_EQ(a->colormap, DefaultColormap(x.display, x.screen()));
  EXPECT_EQ(a->blackPixel, 0u);
  EXPECT_EQ(a->whitePixel, 0xffffffu);
}

}  // namespace
