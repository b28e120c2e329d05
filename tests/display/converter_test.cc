// Picture to screen: exact read-back on 24-bit TrueColor, scaling, tiling,
// the repeated-expose shortcut, shared memory against plain puts, every
// picture layout, the cube dither on 8-bit PseudoColor, and the 4- and 2-bit
// converters on client-side images.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "tests/display/x_server.h"
#include "tests/support/test_support.h"

namespace {

struct TileLog {
  std::vector<std::array<int, 4>> converted;
  int repeated = 0;
  static void hook(void* data, const XRectangle& r, bool converted) {
    auto* log = static_cast<TileLog*>(data);
    if (converted)
      log->converted.push_back({r.x, r.y, r.width, r.height});
    else
      ++log->repeated;
  }
};

// A window's worth of display state: visual, colormap record, converter,
// and a pixmap to draw into.
struct Screen {
  test::XConnection x;
  DisplayVisual visual{};
  ColormapRecord* colormap = nullptr;
  ImageConverter converter{};
  Pixmap pixmap = None;
  GC gc = nullptr;
  TileLog log;

  explicit Screen(int w, int h, bool shm = true, bool own = false,
                  const ImageRecord& picture = ImageRecord{}) {
    testing::internal::CaptureStderr();
    chooseVisual(x.display, -1, &visual);
    colormap = acquireColormap(x.display, picture, visual, own);
    testing::internal::GetCapturedStderr();
    setConverterSharedMemory(shm);
    initConverter(&converter, x.display, colormap, &visual);
    converter.tileHook = TileLog::hook;
    converter.tileHookData = &log;
    pixmap = XCreatePixmap(x.display, RootWindow(x.display, x.screen()), static_cast<unsigned>(w),
                           static_cast<unsigned>(h), static_cast<unsigned>(visual.depth));
    gc = XCreateGC(x.display, pixmap, 0, nullptr);
  }
  ~Screen() {
    freeConverter(&converter);
    XFreeGC(x.display, gc);
    XFreePixmap(x.display, pixmap);
    releaseColormap(colormap);
  }
  void draw(const ImageRecord& picture, int outW, int outH, XRectangle area = {0, 0, 0, 0}) {
    ConvertBitmapToImage(&converter, &picture, outW, outH);
    if (!area.width)
      area = {0, 0, static_cast<unsigned short>(outW), static_cast<unsigned short>(outH)};
    drawArea(pixmap, gc, &converter, 0, 0, area);
  }
  std::vector<unsigned long> pixels(int w, int h) {
    return test::readPixels(x.display, pixmap, w, h);
  }
};

void makeRgb(test::OwnedPicture& pic, uint16_t type, int w, int h) {
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, w, h));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      test::storeRgb(pic, x, y, static_cast<uint8_t>(x * 7 + y), static_cast<uint8_t>(y * 13),
                     static_cast<uint8_t>((x * y) ^ 0x5a));
}

TEST(ConverterTrueColor24, ActualSizeReadsBackExactly) {
  REQUIRE_SERVER("truecolor24");
  for (bool shm : {true, false}) {
    Screen s(300, 200, shm);
    EXPECT_EQ(s.converter.useShm, shm);
    test::OwnedPicture pic;
    makeRgb(pic, IMK_RGB, 300, 200);
    s.draw(pic.rec, 300, 200);
    const auto got = s.pixels(300, 200);
    for (int y = 0; y < 200; ++y)
      for (int x = 0; x < 300; ++x) {
        const uint8_t* p = pic.row(y) + 3 * x;
        // The server's visual: red 0xff0000, green 0xff00, blue 0xff.
        ASSERT_EQ(got[static_cast<size_t>(y) * 300 + x],
                  static_cast<unsigned long>(p[0] << 16 | p[1] << 8 | p[2]))
            << x << "," << y << (shm ? " shm" : " put");
      }
  }
}

TEST(ConverterTrueColor24, EnlargingRepeatsColumnsAndRowsThreeTwoThreeTwo) {
  REQUIRE_SERVER("truecolor24");
  Screen s(25, 25);
  test::OwnedPicture pic;
  ASSERT_TRUE(imkAllock(&pic.rec, IMK_RGB, 8, 10, 10));
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 10; ++x)
      test::storeRgb(pic, x, y, static_cast<uint8_t>(x), static_cast<uint8_t>(y), 0);
  s.draw(pic.rec, 25, 25);
  const auto got = s.pixels(25, 25);
  std::vector<int> runs;
  int previous = -1;
  for (int x = 0; x < 25; ++x) {
    const int column = static_cast<int>(got[x] >> 16);
    if (column != previous) runs.push_back(0);
    ++runs.back();
    previous = column;
    for (int y = 0; y < 25; ++y)
      ASSERT_EQ(got[static_cast<size_t>(y) * 25 + x] >> 16, got[x] >> 16);
  }
  EXPECT_EQ(runs, (std::vector<int>{3, 2, 3, 2, 3, 2, 3, 2, 3, 2}));
  runs.clear();
  previous = -1;
  for (int y = 0; y < 25; ++y) {
    const int row = static_cast<int>(got[static_cast<size_t>(y) * 25] >> 8 & 0xff);
    if (row != previous) runs.push_back(0);
    ++runs.back();
    previous = row;
  }
  EXPECT_EQ(runs, (std::vector<int>{3, 2, 3, 2, 3, 2, 3, 2, 3, 2}));
}

TEST(ConverterTrueColor24, TilesFollowTheExposedAreaAndRepeatsConvertOnce) {
  REQUIRE_SERVER("truecolor24");
  Screen s(600, 300);
  test::OwnedPicture pic;
  makeRgb(pic, IMK_RGB, 600, 300);
  s.draw(pic.rec, 600, 300);
  const std::vector<std::array<int, 4>> whole = {{0, 0, 256, 256},    {256, 0, 256, 256},
                                                 {512, 0, 88, 256},   {0, 256, 256, 44},
                                                 {256, 256, 256, 44}, {512, 256, 88, 44}};
  EXPECT_EQ(s.log.converted, whole);

  // An exposed rectangle sticking out of the picture: tiles start at its
  // corner and stop at the picture's edge.
  s.log.converted.clear();
  drawArea(s.pixmap, s.gc, &s.converter, 0, 0, XRectangle{500, 250, 200, 100});
  EXPECT_EQ(s.log.converted, (std::vector<std::array<int, 4>>{{500, 250, 100, 50}}));
  drawArea(s.pixmap, s.gc, &s.converter, 0, 0, XRectangle{500, 250, 200, 100});
  EXPECT_EQ(s.log.converted.size(), 1u) << "the same area again is not converted";
  EXPECT_EQ(s.log.repeated, 1);
  EXPECT_EQ(s.converter.lastTile[0], 500);
  EXPECT_EQ(s.converter.lastTile[3], 50);

  // Moving the picture invalidates the shortcut.
  drawArea(s.pixmap, s.gc, &s.converter, 10, 0, XRectangle{500, 250, 200, 100});
  EXPECT_EQ(s.log.converted.size(), 2u);
  drawArea(s.pixmap, s.gc, &s.converter, 0, 0, XRectangle{700, 0, 10, 10});
  EXPECT_EQ(s.log.converted.size(), 2u) << "outside the picture nothing is drawn";
}

TEST(ConverterTrueColor24, SharedMemoryAndPlainPutsDrawTheSame) {
  REQUIRE_SERVER("truecolor24");
  test::OwnedPicture pic;
  makeRgb(pic, IMK_BGR, 333, 277);
  std::vector<unsigned long> drawn[2];
  for (int shm = 0; shm < 2; ++shm) {
    Screen s(400, 300, shm == 1);
    ASSERT_EQ(s.converter.useShm, shm == 1);
    XSetForeground(s.x.display, s.gc, 0x123456);
    XFillRectangle(s.x.display, s.pixmap, s.gc, 0, 0, 400, 300);
    s.draw(pic.rec, 400, 300, XRectangle{3, 5, 390, 290});
    drawn[shm] = s.pixels(400, 300);
  }
  EXPECT_EQ(drawn[0], drawn[1]);
}

TEST(ConverterTrueColor24, EveryLayoutAndPaletteGiveTheSamePixels) {
  REQUIRE_SERVER("truecolor24");
  // 256 colours, once as a palette picture and once in each true-colour layout.
  test::OwnedPicture mapped;
  ASSERT_TRUE(imkAllock(&mapped.rec, IMK_MAPPED, 8, 16, 16));
  mapped->colorCount = 256;
  for (int i = 0; i < 256; ++i) {
    mapped->palette[i] = static_cast<uint8_t>(i);
    mapped->palette[256 + i] = static_cast<uint8_t>(255 - i);
    mapped->palette[512 + i] = static_cast<uint8_t>(i * 37);
    mapped.row(i / 16)[i % 16] = static_cast<uint8_t>(i);
  }
  Screen s(32, 32);
  s.draw(mapped.rec, 32, 32);
  const auto reference = s.pixels(32, 32);
  EXPECT_EQ(reference[0], 0x00ff00u);

  for (uint16_t type : {IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR}) {
    test::OwnedPicture pic;
    ASSERT_TRUE(imkAllock(&pic.rec, type, 8, 16, 16));
    for (int i = 0; i < 256; ++i)
      test::storeRgb(pic, i % 16, i / 16, mapped->palette[i], mapped->palette[256 + i],
                     mapped->palette[512 + i]);
    s.draw(pic.rec, 32, 32);
    EXPECT_EQ(s.pixels(32, 32), reference) << "type " << type;
  }
}

TEST(ConverterTrueColor24, GreyWithoutPaletteSpreadsItsLevelsToWhite) {
  REQUIRE_SERVER("truecolor24");
  test::OwnedPicture grey;
  ASSERT_TRUE(imkAllock(&grey.rec, IMK_GREY, 8, 16, 1));
  grey->colorCount = 16;
  std::free(grey->palette);
  grey->palette = nullptr;
  for (int x = 0; x < 16; ++x) grey.row(0)[x] = static_cast<uint8_t>(x);
  Screen s(16, 1);
  s.draw(grey.rec, 16, 1);
  const auto got = s.pixels(16, 1);
  EXPECT_EQ(got[15], 0xffffffu);
  EXPECT_EQ(got[0], 0u);
  EXPECT_EQ(got[5], 0x555555u);  // 5 of 15 steps: 85
}

TEST(ConverterTrueColor24, PictureToPixmapHoldsTheWholePicture) {
  REQUIRE_SERVER("truecolor24");
  Screen s(1, 1);
  test::OwnedPicture pic;
  makeRgb(pic, IMK_XBGR, 70, 40);
  Pixmap p = pictureToPixmap(s.x.display, pic.rec, nullptr, s.colormap, &s.visual);
  ASSERT_NE(p, None);
  const auto got = test::readPixels(s.x.display, p, 70, 40);
  XFreePixmap(s.x.display, p);
  const uint8_t* last = pic.row(39) + 4 * 69;  // spare, B, G, R
  EXPECT_EQ(got.back(), static_cast<unsigned long>(last[3] << 16 | last[2] << 8 | last[1]));
}

TEST(ConverterPseudoColor8, MidGreyDithersBetweenNeighbouringCubeCells) {
  REQUIRE_SERVER("pseudocolor8");
  for (bool own : {false, true}) {
    test::OwnedPicture pic;
    ASSERT_TRUE(imkAllock(&pic.rec, IMK_RGB, 8, 16, 16));
    for (int y = 0; y < 16; ++y)
      for (int x = 0; x < 16; ++x) test::storeRgb(pic, x, y, 128, 128, 128);
    Screen s(16, 16, true, own, pic.rec);
    s.draw(pic.rec, 16, 16);
    const auto got = s.pixels(16, 16);
    const std::set<unsigned long> cells(got.begin(), got.end());
    ASSERT_GE(cells.size(), 2u) << (own ? "8x8x4" : "4x8x4") << " cube";
    // Every cell used brackets the grey: each channel has a cell below 128
    // and one above it, none far away.
    for (int c = 0; c < 3; ++c) {
      bool below = false, above = false;
      for (unsigned long cell : cells) {
        const XColor col = test::queryColour(s.x.display, s.colormap->colormap, cell);
        const int v = (c == 0 ? col.red : c == 1 ? col.green : col.blue) >> 8;
        below |= v < 128;
        above |= v > 128;
        EXPECT_LT(std::abs(v - 128), 90) << "channel " << c;
      }
      EXPECT_TRUE(below && above) << "channel " << c;
    }
  }
}

TEST(ConverterPseudoColor8, OwnColormapShowsPaletteIndicesStraight) {
  REQUIRE_SERVER("pseudocolor8");
  test::OwnedPicture mapped;
  ASSERT_TRUE(imkAllock(&mapped.rec, IMK_MAPPED, 8, 8, 8));
  mapped->colorCount = 64;
  for (int i = 0; i < 64; ++i) {
    mapped->palette[i] = mapped->palette[256 + i] = mapped->palette[512 + i] =
        static_cast<uint8_t>(i * 4);
    mapped.row(i / 8)[i % 8] = static_cast<uint8_t>(63 - i);
  }
  Screen s(8, 8, true, true, mapped.rec);
  s.draw(mapped.rec, 8, 8);
  const auto got = s.pixels(8, 8);
  for (int i = 0; i < 64; ++i) ASSERT_EQ(got[static_cast<size_t>(i)], 63u - i);
}

// 4- and 2-bit converters: no Xvfb screen has such a visual, so they fill a
// client-side tile for a hand-made PseudoColor visual.
struct OffScreen {
  test::XConnection x;
  Visual visual{};
  DisplayVisual dv{};
  ColormapRecord cm{};
  ImageConverter c{};
  explicit OffScreen(int depth) {
    visual.c_class = PseudoColor;
    visual.map_entries = 1 << depth;
    dv.visual = &visual;
    dv.depth = depth;
    // Pixels unlike the indices, so that a mix-up shows.
    for (uint32_t i = 0; i < 8; ++i) cm.pixels[i] = depth == 2 ? i + 1 : i + 8;
    setConverterSharedMemory(false);
    initConverter(&c, x.display, &cm, &dv);
  }
  ~OffScreen() { freeConverter(&c); }
  // Converts a 32x32 picture of one colour; the tile's pixels.
  std::vector<unsigned long> convert(uint8_t r, uint8_t g, uint8_t b) {
    test::OwnedPicture pic;
    EXPECT_TRUE(imkAllock(&pic.rec, IMK_RGB, 8, 32, 32));
    for (int y = 0; y < 32; ++y)
      for (int x = 0; x < 32; ++x) test::storeRgb(pic, x, y, r, g, b);
    ConvertBitmapToImage(&c, &pic.rec, 32, 32);
    EXPECT_NE(c.convert, nullptr);
    std::vector<unsigned long> out;
    if (!c.convert) return out;
    c.convert(&cm, &c, 0, 0, 32, 32);
    for (int y = 0; y < 32; ++y)
      for (int x = 0; x < 32; ++x) out.push_back(XGetPixel(c.tile, x, y));
    return out;
  }
};

TEST(ConverterOffScreen, TwoBitsWhiteAlwaysWhiteBlackLitOnlyAtThresholdZero) {
  REQUIRE_SERVER("truecolor24");
  OffScreen o(2);
  const auto white = o.convert(255, 255, 255);
  EXPECT_EQ(std::count(white.begin(), white.end(), 2ul), 32 * 32);
  const auto black = o.convert(0, 0, 0);
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 32; ++x)
      EXPECT_EQ(black[static_cast<size_t>(y) * 32 + x], x % 16 == 0 && y % 16 == 0 ? 2ul : 1ul)
          << x << "," << y;
}

TEST(ConverterOffScreen, FourBitsSetAChannelOnWhereItExceedsTheThreshold) {
  REQUIRE_SERVER("truecolor24");
  OffScreen o(4);
  // Over one 16x16 block every threshold 0..255 occurs once, so a channel of
  // value v is on at exactly v places (strictly greater).
  const auto got = o.convert(200, 100, 0);
  int red = 0, green = 0, other = 0;
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) {
      const unsigned long p = got[static_cast<size_t>(y) * 32 + x];
      const unsigned index = static_cast<unsigned>(p - 8);
      if (index > 7 || (index & 1)) ++other;
      red += (index >> 2) & 1;
      green += (index >> 1) & 1;
    }
  EXPECT_EQ(red, 200);
  EXPECT_EQ(green, 100);
  EXPECT_EQ(other, 0) << "blue 0 is never above a threshold";
  const auto white = o.convert(255, 255, 255);
  // 255 > T everywhere but where T is 255 itself.
  EXPECT_EQ(std::count(white.begin(), white.end(), 15ul), 32 * 32 - 4);
  EXPECT_EQ(white[0], 15ul);
}

TEST(ConverterOffScreen, OddDepthHasNoConverter) {
  REQUIRE_SERVER("truecolor24");
  OffScreen o(6);
  test::OwnedPicture pic;
  ASSERT_TRUE(imkAllock(&pic.rec, IMK_RGB, 8, 4, 4));
  testing::internal::CaptureStderr();
  ConvertBitmapToImage(&o.c, &pic.rec, 4, 4);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "******** ERROR : ConvertBitmapToImage NULL \n");
  EXPECT_EQ(o.c.convert, nullptr);
}

}  // namespace
