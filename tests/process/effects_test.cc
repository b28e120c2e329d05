// Mosaic, oil painting, de-interlace, slice and tile: worked examples by
// hand, the overlapping mosaic blocks, the shared oil-painting counters, and
// properties (inverse slices, tiling as a whole-pixel move).
#include "process/effects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;

const uint16_t kKinds[] = {IMK_BINARY, IMK_GREY, IMK_MAPPED, IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR};

void makePicture(OwnedPicture& pic, uint16_t type, int width, int height,
                 const std::vector<uint8_t>& bytes) {
  pic.reset();
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, width, height));
  const size_t n = static_cast<size_t>(width) * pic->bytesPerPixel;
  ASSERT_EQ(bytes.size(), n * height);
  for (int y = 0; y < height; ++y) std::copy_n(bytes.begin() + n * y, n, pic.row(y));
}

std::vector<uint8_t> bytesOf(const ImageRecord& r) {
  std::vector<uint8_t> out;
  const size_t n = static_cast<size_t>(r.width) * r.bytesPerPixel;
  for (int y = 0; y < r.height; ++y) {
    const uint8_t* row = r.pixels + static_cast<size_t>(y) * r.bytesPerLine;
    out.insert(out.end(), row, row + n);
  }
  return out;
}

void makeRandom(OwnedPicture& pic, uint16_t type, int width, int height, unsigned seed,
                int maxValue) {
  pic.reset();
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, width, height));
  std::mt19937 gen(seed);
  std::uniform_int_distribution<int> dist(0, maxValue);
  for (int y = 0; y < height; ++y)
    for (int i = 0; i < width * pic->bytesPerPixel; ++i)
      pic.row(y)[i] = static_cast<uint8_t>(dist(gen));
}

template <class F>
std::vector<uint8_t> apply(OwnedPicture& src, F f) {
  const std::vector<uint8_t> before = bytesOf(src.rec);
  OwnedPicture out;
  EXPECT_EQ(f(&src.rec, &out.rec), 0);
  EXPECT_EQ(bytesOf(src.rec), before) << "source changed";
  EXPECT_EQ(out->type, src->type);
  EXPECT_EQ(out->width, src->width);
  EXPECT_EQ(out->height, src->height);
  return bytesOf(out.rec);
}

std::vector<uint8_t> expand(const std::vector<uint8_t>& perPixel, int bpp) {
  std::vector<uint8_t> out;
  for (uint8_t v : perPixel) out.insert(out.end(), static_cast<size_t>(bpp), v);
  return out;
}

// -------------------------------------------------------------------- mosaic

TEST(Mosaic, StepOneAveragesOverlappingTwoByTwoBlocks) {
  // 10 20 30 / 40 50 60 / 70 80 90. Blocks in order, each overwriting:
  // (0,0) 10 20 40 50 -> 30; (1,0) 20 30 50 60 -> 40; (2,0) 30 60 -> 45;
  // (0,1) 40 50 70 80 -> 60; (1,1) 50 60 80 90 -> 70; (2,1) 60 90 -> 75;
  // (0,2) 70 80 -> 75; (1,2) 80 90 -> 85; (2,2) 90.
  const std::vector<uint8_t> source = {10, 20, 30, 40, 50, 60, 70, 80, 90};
  const std::vector<uint8_t> expected = {30, 40, 45, 60, 70, 75, 75, 85, 90};
  for (uint16_t kind : {IMK_GREY, IMK_MAPPED, IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR}) {
    OwnedPicture pic;
    const int bpp = kind == IMK_GREY || kind == IMK_MAPPED ? 1
                    : kind == IMK_RGB || kind == IMK_BGR   ? 3
                                                           : 4;
    makePicture(pic, kind, 3, 3, expand(source, bpp));
    EXPECT_EQ(
        apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::mosaicEffect(s, d, 1); }),
        expand(expected, bpp))
        << "kind " << kind;
  }
}

TEST(Mosaic, BlocksAreStepPlusOneWideAndClippedAtTheEdge) {
  // Step 2 on 0 10 20 30 40: columns 0..2 -> 10, then 2..4 -> 30, then 4 -> 40.
  OwnedPicture pic;
  makePicture(pic, IMK_GREY, 5, 1, {0, 10, 20, 30, 40});
  EXPECT_EQ(
      apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::mosaicEffect(s, d, 2); }),
      (std::vector<uint8_t>{10, 10, 30, 30, 40}));
}

TEST(Mosaic, ChannelsAreAveragedSeparatelyAndTruncated) {
  // Two pixels, step 2: the only block covers both: (1+2)/2 = 1,
  // (200+101)/2 = 150, (7+8)/2 = 7.
  OwnedPicture pic;
  makePicture(pic, IMK_RGB, 2, 1, {1, 200, 7, 2, 101, 8});
  EXPECT_EQ(
      apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::mosaicEffect(s, d, 2); }),
      (std::vector<uint8_t>{1, 150, 7, 1, 150, 7}));
  // Step 1: a second block starts at column 1 and covers it alone, so the
  // last pixel gets its own value back.
  EXPECT_EQ(
      apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::mosaicEffect(s, d, 1); }),
      (std::vector<uint8_t>{1, 150, 7, 2, 101, 8}));
}

TEST(Mosaic, StepsMatchAnIndependentBlockWalk) {
  for (uint16_t kind : kKinds) {
    OwnedPicture pic;
    makeRandom(pic, kind, 23, 11, kind, kind == IMK_BINARY ? 1 : 255);
    const int bpp = pic->bytesPerPixel;
    for (int t : {1, 3, 4, 7, 64}) {
      std::vector<uint8_t> want(static_cast<size_t>(23 * 11 * bpp));
      for (int by = 0; by < 11; by += t)
        for (int bx = 0; bx < 23; bx += t) {
          const int ey = std::min(by + t, 10), ex = std::min(bx + t, 22);
          for (int c = 0; c < bpp; ++c) {
            int sum = 0, count = 0;
            for (int y = by; y <= ey; ++y)
              for (int x = bx; x <= ex; ++x, ++count) sum += pic.row(y)[x * bpp + c];
            for (int y = by; y <= ey; ++y)
              for (int x = bx; x <= ex; ++x)
                want[(y * 23 + x) * bpp + c] = static_cast<uint8_t>(sum / count);
          }
        }
      EXPECT_EQ(apply(pic, [t](ImageRecord* s,
                               ImageRecord* d) { return process::mosaicEffect(s, d, t); }),
                want)
          << "kind " << kind << " step " << t;
    }
  }
}

// --------------------------------------------------------------- oil painting

TEST(OilPaint, GreyTiesGoToTheValueThatReachedTheTopCountFirst) {
  // Centre window, row by row: 5 7 7 / 5 9 9 / 1 2 3. 5, 7 and 9 all reach
  // 2; 7 gets there first (third value scanned).
  OwnedPicture pic;
  makePicture(pic, IMK_GREY, 3, 3, {5, 7, 7, 5, 9, 9, 1, 2, 3});
  const std::vector<uint8_t> out =
      apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::oilPaintEffect(s, d, 1); });
  EXPECT_EQ(out[4], 7);
  // Corner (0,0): window 5 7 / 5 9: 5 reaches 2 -> 5.
  EXPECT_EQ(out[0], 5);
  // Bottom right: 9 9 / 2 3 -> 9.
  EXPECT_EQ(out[8], 9);
}

TEST(OilPaint, ChannelsShareOneSetOfCounters) {
  // Pixels (10,20,30) (20,40,50) (60,20,70), radius 1, windows clipped.
  // Middle: R sees 10 (count 1, wins), then 20 whose counter the G of the
  // first pixel already raised to 1: count 2, R becomes 20. G's 20 reaches 3
  // on the last pixel. B stays with its first value, 30.
  // Left (pixels 0, 1): R 10 then 20 at count 2 -> 20; G 20; B 30.
  // Right (pixels 1, 2): R 20; G 40 first, then 20 at count 2 -> 20; B 50.
  OwnedPicture pic;
  makePicture(pic, IMK_RGB, 3, 1, {10, 20, 30, 20, 40, 50, 60, 20, 70});
  EXPECT_EQ(
      apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::oilPaintEffect(s, d, 1); }),
      (std::vector<uint8_t>{20, 20, 30, 20, 20, 30, 20, 20, 50}));
}

TEST(OilPaint, OneBytePicturesGetThePlainModeFilter) {
  // Reference: counts per value over the clipped window in scan order, the
  // first value to reach the final top count winning.
  for (uint16_t kind : {IMK_GREY, IMK_MAPPED, IMK_BINARY}) {
    OwnedPicture pic;
    makeRandom(pic, kind, 19, 13, 40 + kind, kind == IMK_BINARY ? 1 : 5);
    for (int r : {1, 2, 3}) {
      std::vector<uint8_t> want;
      for (int y = 0; y < 13; ++y)
        for (int x = 0; x < 19; ++x) {
          std::map<int, int> count;
          int top = 0, winner = -1;
          for (int yy = std::max(0, y - r); yy <= std::min(12, y + r); ++yy)
            for (int xx = std::max(0, x - r); xx <= std::min(18, x + r); ++xx) {
              const int v = pic.row(yy)[xx];
              if (++count[v] > top) top = count[v], winner = v;
            }
          want.push_back(static_cast<uint8_t>(winner));
        }
      EXPECT_EQ(apply(pic, [r](ImageRecord* s,
                               ImageRecord* d) { return process::oilPaintEffect(s, d, r); }),
                want)
          << "kind " << kind << " radius " << r;
    }
  }
}

TEST(OilPaint, MatchesTheCountingProcedureStepByStepOnEveryKind) {
  // The procedure as written: per output pixel 1024 counters cleared, the
  // window scanned row by row, pixel by pixel, byte by byte; counter
  // (ch >> 8) + value incremented; a byte position's winner replaced when
  // the counter exceeds its best count.
  // The wider pictures are also done 64 pixels at a time inside.
  const int sizes[][2] = {{26, 9}, {150, 12}};
  for (const auto& size : sizes)
    for (uint16_t kind : kKinds) {
      const int w = size[0], h = size[1];
      OwnedPicture pic;
      makeRandom(pic, kind, w, h, 70 + kind + w, kind == IMK_BINARY ? 1 : 7);
      const int bpp = pic->bytesPerPixel;
      for (int r : {1, 2, 3, 4}) {
        std::vector<uint8_t> want;
        for (int y = 0; y < h; ++y)
          for (int x = 0; x < w; ++x) {
            std::vector<int> counter(1024, 0);
            int best[4] = {0, 0, 0, 0}, winner[4] = {0, 0, 0, 0};
            for (int yy = std::max(y - r, 0); yy <= std::min(y + r, h - 1); ++yy)
              for (int xx = std::max(x - r, 0); xx <= std::min(x + r, w - 1); ++xx)
                for (int ch = 0; ch < bpp; ++ch) {
                  const int value = pic.row(yy)[xx * bpp + ch];
                  const int n = ++counter[(ch >> 8) + value];
                  if (n > best[ch]) best[ch] = n, winner[ch] = value;
                }
            for (int ch = 0; ch < bpp; ++ch) want.push_back(static_cast<uint8_t>(winner[ch]));
          }
        EXPECT_EQ(apply(pic, [r](ImageRecord* s,
                                 ImageRecord* d) { return process::oilPaintEffect(s, d, r); }),
                  want)
            << "kind " << kind << " radius " << r << " size " << w << "x" << h;
      }
    }
}

TEST(OilPaint, UniformPicturesStayUniformOnEveryKind) {
  for (uint16_t kind : kKinds) {
    OwnedPicture pic;
    makeRandom(pic, kind, 6, 5, 1, 0);
    for (int y = 0; y < 5; ++y)
      std::fill_n(pic.row(y), 6 * pic->bytesPerPixel, kind == IMK_BINARY ? 1 : 42);
    const std::vector<uint8_t> out =
        apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::oilPaintEffect(s, d, 2); });
    EXPECT_EQ(out, bytesOf(pic.rec)) << "kind " << kind;
  }
}

// --------------------------------------------------------------- de-interlace

std::vector<uint8_t> rowsOf(const std::vector<uint8_t>& bytes, int width) {
  std::vector<uint8_t> firsts;
  for (size_t i = 0; i < bytes.size(); i += static_cast<size_t>(width)) firsts.push_back(bytes[i]);
  return firsts;
}

TEST(Deinterlace, DuplicationRepeatsTheKeptField) {
  OwnedPicture pic;
  makePicture(pic, IMK_GREY, 2, 4, {10, 10, 20, 20, 30, 30, 40, 40});
  auto run = [&](int keepOdd) {
    return rowsOf(apply(pic,
                        [keepOdd](ImageRecord* s, ImageRecord* d) {
                          return process::deinterlaceEffect(s, d, keepOdd, 1);
                        }),
                  2);
  };
  EXPECT_EQ(run(0), (std::vector<uint8_t>{10, 10, 30, 30}));
  EXPECT_EQ(run(1), (std::vector<uint8_t>{20, 20, 40, 40}));
}

TEST(Deinterlace, DuplicationOfAnOddHeightStaysInsideThePicture) {
  // Keeping odd rows of 5: the last result row would be row 5; it takes the
  // last odd row, 3.
  OwnedPicture pic;
  makePicture(pic, IMK_GREY, 1, 5, {10, 20, 30, 40, 50});
  auto run = [&](int keepOdd) {
    return apply(pic, [keepOdd](ImageRecord* s, ImageRecord* d) {
      return process::deinterlaceEffect(s, d, keepOdd, 1);
    });
  };
  EXPECT_EQ(run(0), (std::vector<uint8_t>{10, 10, 30, 30, 50}));
  EXPECT_EQ(run(1), (std::vector<uint8_t>{20, 20, 40, 40, 40}));
}

TEST(Deinterlace, InterpolationKeepsFirstAndLastRows) {
  OwnedPicture pic;
  makePicture(pic, IMK_GREY, 1, 5, {10, 21, 99, 40, 7});
  auto run = [&](int keepOdd) {
    return apply(pic, [keepOdd](ImageRecord* s, ImageRecord* d) {
      return process::deinterlaceEffect(s, d, keepOdd, 0);
    });
  };
  // Keeping odd rows: row 2 = (21 + 40) >> 1 = 30; rows 0 and 4 have no
  // neighbour on one side and are kept although they are even.
  EXPECT_EQ(run(1), (std::vector<uint8_t>{10, 21, 30, 40, 7}));
  // Keeping even rows: row 1 = (10 + 99) >> 1 = 54, row 3 = (99 + 7) >> 1 = 53.
  EXPECT_EQ(run(0), (std::vector<uint8_t>{10, 54, 99, 53, 7}));
}

TEST(Deinterlace, InterpolatesEveryByteOfTrueColour) {
  OwnedPicture pic;
  makePicture(pic, IMK_XBGR, 1, 3, {1, 2, 3, 4, 0, 0, 0, 0, 9, 20, 31, 250});
  EXPECT_EQ(apply(pic, [](ImageRecord* s,
                          ImageRecord* d) { return process::deinterlaceEffect(s, d, 0, 0); }),
            (std::vector<uint8_t>{1, 2, 3, 4, 5, 11, 17, 127, 9, 20, 31, 250}));
}

// ---------------------------------------------------------------------- slice

TEST(Slice, BandsSlideAlternatelyWithWrapAround) {
  OwnedPicture pic;
  makePicture(pic, IMK_GREY, 4, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  // Bands of one row, offset 1: row 0 left, row 1 right, row 2 left.
  EXPECT_EQ(apply(pic, [](ImageRecord* s,
                          ImageRecord* d) { return process::sliceEffect(s, d, 1, 1, false); }),
            (std::vector<uint8_t>{2, 3, 4, 1, 8, 5, 6, 7, 10, 11, 12, 9}));
  // Bands of two columns, offset 1: columns 0-1 up, columns 2-3 down.
  EXPECT_EQ(apply(pic, [](ImageRecord* s,
                          ImageRecord* d) { return process::sliceEffect(s, d, 2, 1, true); }),
            (std::vector<uint8_t>{5, 6, 11, 12, 9, 10, 3, 4, 1, 2, 7, 8}));
}

TEST(Slice, OppositeOffsetsUndoEachOtherOnEveryKind) {
  for (uint16_t kind : kKinds) {
    for (bool vertical : {false, true}) {
      OwnedPicture pic, once, back;
      makeRandom(pic, kind, 13, 9, kind + vertical, kind == IMK_BINARY ? 1 : 255);
      ASSERT_EQ(process::sliceEffect(&pic.rec, &once.rec, 3, 5, vertical), 0);
      EXPECT_NE(bytesOf(once.rec), bytesOf(pic.rec));
      ASSERT_EQ(process::sliceEffect(&once.rec, &back.rec, 3, -5, vertical), 0);
      EXPECT_EQ(bytesOf(back.rec), bytesOf(pic.rec)) << "kind " << kind;
      // A whole turn of the band length moves nothing.
      OwnedPicture full;
      ASSERT_EQ(process::sliceEffect(&pic.rec, &full.rec, 2, vertical ? 18 : 26, vertical), 0);
      EXPECT_EQ(bytesOf(full.rec), bytesOf(pic.rec));
    }
  }
}

// ----------------------------------------------------------------------- tile

TEST(Tile, TwoByTwoRepeatsTheHalvedPicture) {
  // out(x, y) = src(2x mod 4, 2y mod 4).
  std::vector<uint8_t> bytes(16);
  for (int i = 0; i < 16; ++i) bytes[i] = static_cast<uint8_t>(i);
  OwnedPicture pic;
  makePicture(pic, IMK_GREY, 4, 4, bytes);
  EXPECT_EQ(
      apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::tileEffect(s, d, 2, 2); }),
      (std::vector<uint8_t>{0, 2, 0, 2, 8, 10, 8, 10, 0, 2, 0, 2, 8, 10, 8, 10}));
}

TEST(Tile, OneByOneCopiesAndTilesOnlyMoveWholePixels) {
  for (uint16_t kind : kKinds) {
    OwnedPicture pic;
    makeRandom(pic, kind, 10, 7, 3 * kind, kind == IMK_BINARY ? 1 : 255);
    EXPECT_EQ(
        apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::tileEffect(s, d, 1, 1); }),
        bytesOf(pic.rec));
    const std::vector<uint8_t> tiled =
        apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::tileEffect(s, d, 3, 2); });
    const int bpp = pic->bytesPerPixel;
    for (int y = 0; y < 7; ++y)
      for (int x = 0; x < 10; ++x)
        for (int c = 0; c < bpp; ++c)
          ASSERT_EQ(tiled[(y * 10 + x) * bpp + c], pic.row((y * 2) % 7)[((x * 3) % 10) * bpp + c]);
  }
}

// ----------------------------------------------------------- picture handling

TEST(EffectResult, KeepsPaletteCountAttributeAndReplacesWithoutDestination) {
  OwnedPicture pic;
  makeRandom(pic, IMK_MAPPED, 8, 8, 2, 9);
  pic->colorCount = 10;
  pic->attribute = 3;
  for (int i = 0; i < 768; ++i) pic->palette[i] = static_cast<uint8_t>(255 - i);
  OwnedPicture copy;
  makePicture(copy, IMK_MAPPED, 8, 8, bytesOf(pic.rec));
  OwnedPicture expected;
  ASSERT_EQ(process::oilPaintEffect(&copy.rec, &expected.rec, 1), 0);
  ASSERT_EQ(process::oilPaintEffect(&pic.rec, nullptr, 1), 0);
  EXPECT_EQ(bytesOf(pic.rec), bytesOf(expected.rec));
  EXPECT_EQ(pic->colorCount, 10);
  EXPECT_EQ(pic->attribute, 3);
  for (int i = 0; i < 768; ++i) ASSERT_EQ(pic->palette[i], static_cast<uint8_t>(255 - i));
  for (auto f : {+[](ImageRecord* s) { return process::mosaicEffect(s, nullptr, 2); },
                 +[](ImageRecord* s) { return process::deinterlaceEffect(s, nullptr, 1, 0); },
                 +[](ImageRecord* s) { return process::sliceEffect(s, nullptr, 2, 3, false); },
                 +[](ImageRecord* s) { return process::tileEffect(s, nullptr, 2, 3); }}) {
    ASSERT_EQ(f(&pic.rec), 0);
    EXPECT_EQ(pic->colorCount, 10);
    EXPECT_EQ(pic->palette[700], static_cast<uint8_t>(255 - 700));
  }
}

}  // namespace
