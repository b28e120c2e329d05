// Shear, swirl, spread, lens and waves: zero strengths copy, exact cases
// where the source positions fall on whole pixels (45-degree shear, quarter
// waves), what stays untouched outside the lens / swirl ellipse, and the
// whole-pixel and palette rules per picture kind.
#include "process/distort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <set>
#include <vector>

#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;

const uint16_t kKinds[] = {IMK_BINARY, IMK_GREY, IMK_MAPPED, IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR};

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

int maxValueOf(uint16_t kind) { return kind == IMK_BINARY ? 1 : kind == IMK_MAPPED ? 11 : 255; }

// Runs with a destination, checks that the source is untouched.
template <class F>
void run(OwnedPicture& src, OwnedPicture& out, F f) {
  const std::vector<uint8_t> before = bytesOf(src.rec);
  ASSERT_EQ(f(&src.rec, &out.rec), 0);
  EXPECT_EQ(bytesOf(src.rec), before) << "source changed";
  EXPECT_EQ(out->type, src->type);
}

const uint8_t* pixel(const ImageRecord& r, int x, int y) {
  return r.pixels + static_cast<size_t>(y) * r.bytesPerLine +
         static_cast<size_t>(x) * r.bytesPerPixel;
}

TEST(Distort, ZeroStrengthsCopyEveryKind) {
  for (uint16_t kind : kKinds) {
    OwnedPicture pic;
    makeRandom(pic, kind, 17, 12, kind, maxValueOf(kind));
    const std::vector<uint8_t> source = bytesOf(pic.rec);
    OwnedPicture a, b, c, d, e;
    run(pic, a, [](ImageRecord* s, ImageRecord* o) { return process::shearEffect(s, o, 0, 0); });
    run(pic, b, [](ImageRecord* s, ImageRecord* o) { return process::swirlEffect(s, o, 0); });
    run(pic, c, [](ImageRecord* s, ImageRecord* o) { return process::lensEffect(s, o, 0); });
    run(pic, d, [](ImageRecord* s, ImageRecord* o) { return process::wavesEffect(s, o, 0, 10); });
    run(pic, e, [](ImageRecord* s, ImageRecord* o) { return process::spreadEffect(s, o, 0, 99); });
    for (OwnedPicture* p : {&a, &b, &c, &d, &e}) {
      EXPECT_EQ((*p)->width, 17);
      EXPECT_EQ((*p)->height, 12);
      EXPECT_EQ(bytesOf(p->rec), source) << "kind " << kind;
    }
  }
}

// ---------------------------------------------------------------------- shear

TEST(Shear, GrowsToHoldTheShearedPicture) {
  int w, h;
  // 45 degrees across: 4 rows push the last row 3 pixels right: 10 + 3.
  process::shearedSize(10, 4, 45, 0, &w, &h);
  EXPECT_EQ(w, 13);
  EXPECT_EQ(h, 4);
  process::shearedSize(10, 4, 0, -45, &w, &h);
  EXPECT_EQ(w, 10);
  EXPECT_EQ(h, 13);
  process::shearedSize(10, 4, 0, 0, &w, &h);
  EXPECT_EQ(w, 10);
  EXPECT_EQ(h, 4);
}

TEST(Shear, FortyFiveDegreesMovesEachRowOnePixelFurther) {
  // Row y moves right by y pixels; the rest of the grown picture is 0.
  for (uint16_t kind : kKinds) {
    OwnedPicture pic, out;
    makeRandom(pic, kind, 10, 4, 7 + kind, maxValueOf(kind));
    run(pic, out, [](ImageRecord* s, ImageRecord* o) { return process::shearEffect(s, o, 45, 0); });
    ASSERT_EQ(out->width, 13);
    ASSERT_EQ(out->height, 4);
    const int bpp = pic->bytesPerPixel;
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 13; ++x) {
        const int from = x - y;
        for (int c = 0; c < bpp; ++c)
          ASSERT_EQ(pixel(out.rec, x, y)[c],
                    from >= 0 && from < 10 ? pixel(pic.rec, from, y)[c] : 0)
              << "kind " << kind << " at " << x << "," << y;
      }
  }
}

TEST(Shear, VerticalFortyFiveDegreesMovesEachColumnDown) {
  OwnedPicture pic, out;
  makeRandom(pic, IMK_RGB, 5, 3, 1, 255);
  run(pic, out, [](ImageRecord* s, ImageRecord* o) { return process::shearEffect(s, o, 0, 45); });
  ASSERT_EQ(out->width, 5);
  ASSERT_EQ(out->height, 7);
  for (int x = 0; x < 5; ++x)
    for (int y = 0; y < 7; ++y) {
      const int from = y - x;
      for (int c = 0; c < 3; ++c)
        ASSERT_EQ(pixel(out.rec, x, y)[c], from >= 0 && from < 3 ? pixel(pic.rec, x, from)[c] : 0);
    }
}

// ---------------------------------------------------------------------- waves

TEST(Waves, QuarterWavelengthColumnsMoveByWholePixels) {
  // Wavelength 4, amplitude 2: sin gives 0, 1, 0, -1, so columns move down
  // by 2 + 0, 2 + 2, 2 + 0, 2 - 2 on a picture 4 rows taller.
  for (uint16_t kind : kKinds) {
    OwnedPicture pic, out;
    makeRandom(pic, kind, 8, 5, 3 + kind, maxValueOf(kind));
    run(pic, out, [](ImageRecord* s, ImageRecord* o) { return process::wavesEffect(s, o, 2, 4); });
    ASSERT_EQ(out->width, 8);
    ASSERT_EQ(out->height, 9);
    const int down[4] = {2, 4, 2, 0};
    const int bpp = pic->bytesPerPixel;
    for (int x = 0; x < 8; ++x)
      for (int y = 0; y < 9; ++y) {
        const int from = y - down[x % 4];
        for (int c = 0; c < bpp; ++c)
          ASSERT_EQ(pixel(out.rec, x, y)[c], from >= 0 && from < 5 ? pixel(pic.rec, x, from)[c] : 0)
              << "kind " << kind << " at " << x << "," << y;
      }
  }
}

TEST(Waves, HalfPixelShiftsBlendGreyAndPickWholePixelsOfMappedPictures) {
  // Wavelength 12, amplitude 1: column 1 moves down by 1 + sin(30 deg) =
  // 1.5 rows. Grey levels 0 and 100 in rows 0 and 1 blend to 50 at row 2.
  for (uint16_t kind : {IMK_GREY, IMK_MAPPED}) {
    OwnedPicture pic, out;
    makeRandom(pic, kind, 2, 2, 0, 0);
    pic.row(1)[1] = 100;
    run(pic, out, [](ImageRecord* s, ImageRecord* o) { return process::wavesEffect(s, o, 1, 12); });
    const uint8_t v = pixel(out.rec, 1, 2)[0];
    if (kind == IMK_GREY)
      EXPECT_EQ(v, 50);
    else
      EXPECT_TRUE(v == 0 || v == 100) << int{v};
  }
}

// --------------------------------------------------------------- swirl, lens

// The corner pixels lie outside the inscribed ellipse and are unchanged.
void expectCornersKept(const OwnedPicture& pic, const OwnedPicture& out) {
  const int w = pic->width, h = pic->height;
  for (auto [x, y] : {std::pair{0, 0}, {w - 1, 0}, {0, h - 1}, {w - 1, h - 1}})
    for (int c = 0; c < pic->bytesPerPixel; ++c)
      EXPECT_EQ(pixel(out.rec, x, y)[c], pixel(pic.rec, x, y)[c]);
}

TEST(Swirl, TurnsTheInsideAndKeepsTheCornersAndCentre) {
  for (uint16_t kind : kKinds) {
    OwnedPicture pic, out;
    makeRandom(pic, kind, 21, 15, 5 + kind, maxValueOf(kind));
    run(pic, out, [](ImageRecord* s, ImageRecord* o) { return process::swirlEffect(s, o, 120); });
    EXPECT_EQ(out->width, 21);
    EXPECT_EQ(out->height, 15);
    expectCornersKept(pic, out);
    // The centre turns about itself.
    for (int c = 0; c < pic->bytesPerPixel; ++c)
      EXPECT_EQ(pixel(out.rec, 10, 7)[c], pixel(pic.rec, 10, 7)[c]);
    EXPECT_NE(bytesOf(out.rec), bytesOf(pic.rec));
  }
}

TEST(Swirl, PositiveAnglesTurnClockwise) {
  // A bright pixel right of the centre, near it, goes down (clockwise on a
  // screen whose y grows downwards) for +90 degrees.
  OwnedPicture pic, out;
  makeRandom(pic, IMK_GREY, 41, 41, 0, 0);
  pic.row(20)[23] = 255;
  run(pic, out, [](ImageRecord* s, ImageRecord* o) { return process::swirlEffect(s, o, 90); });
  int sumX = 0, sumY = 0, total = 0;
  for (int y = 0; y < 41; ++y)
    for (int x = 0; x < 41; ++x) {
      const int v = pixel(out.rec, x, y)[0];
      sumX += v * x, sumY += v * y, total += v;
    }
  ASSERT_GT(total, 0);
  EXPECT_GT(sumY / total, 21);  // below the centre row 20
}

TEST(Swirl, UniformPicturesStayUniformInside) {
  OwnedPicture pic, out;
  makeRandom(pic, IMK_RGB, 30, 20, 0, 0);
  for (int y = 0; y < 20; ++y) std::fill_n(pic.row(y), 90, 77);
  run(pic, out, [](ImageRecord* s, ImageRecord* o) { return process::swirlEffect(s, o, 300); });
  EXPECT_EQ(bytesOf(out.rec), bytesOf(pic.rec));
}

// Bright pixels in the middle of a dark picture with a bright centre block.
int brightCount(const ImageRecord& r) {
  int n = 0;
  for (int y = 0; y < r.height; ++y)
    for (int x = 0; x < r.width; ++x) n += pixel(r, x, y)[0] >= 128;
  return n;
}

TEST(Lens, PositiveAmountsMagnifyAndNegativeOnesShrinkTheCentre) {
  for (uint16_t kind : {IMK_GREY, IMK_BINARY, IMK_MAPPED, IMK_BGR}) {
    OwnedPicture pic;
    makeRandom(pic, kind, 41, 41, 0, 0);
    const uint8_t bright = kind == IMK_BINARY ? 1 : 255;
    for (int y = 16; y <= 24; ++y)
      for (int x = 16; x <= 24; ++x)
        std::fill_n(pic.row(y) + x * pic->bytesPerPixel, pic->bytesPerPixel, bright);
    OwnedPicture bulge, pinch;
    run(pic, bulge, [](ImageRecord* s, ImageRecord* o) { return process::lensEffect(s, o, 100); });
    run(pic, pinch, [](ImageRecord* s, ImageRecord* o) { return process::lensEffect(s, o, -100); });
    expectCornersKept(pic, bulge);
    expectCornersKept(pic, pinch);
    auto count = [&](const ImageRecord& r) {
      if (kind != IMK_BINARY) return brightCount(r);
      int n = 0;
      for (int y = 0; y < r.height; ++y)
        for (int x = 0; x < r.width; ++x) n += pixel(r, x, y)[0];
      return n;
    };
    EXPECT_GT(count(bulge.rec), count(pic.rec)) << "kind " << kind;
    EXPECT_LT(count(pinch.rec), count(pic.rec)) << "kind " << kind;
    // Every source point inside the ellipse lies inside the picture: the
    // lens never brings in black from outside, so values stay as they were.
    if (kind == IMK_BINARY || kind == IMK_MAPPED) {
      for (uint8_t v : bytesOf(bulge.rec)) EXPECT_TRUE(v == 0 || v == bright);
    }
  }
}

// --------------------------------------------------------------------- spread

TEST(Spread, TakesPixelsFromTheNeighbourhoodWholeAndRepeatably) {
  for (uint16_t kind : kKinds) {
    // Every pixel of the source is different, so its origin can be found
    // (one-byte pictures: 16 x 16 values y * 16 + x).
    OwnedPicture pic;
    const bool wide = kind != IMK_BINARY && kind != IMK_GREY && kind != IMK_MAPPED;
    const int size = wide ? 32 : 16;
    makeRandom(pic, kind, size, size, 0, 0);
    const int bpp = pic->bytesPerPixel;
    for (int y = 0; y < size; ++y)
      for (int x = 0; x < size; ++x) {
        uint8_t* p = pic.row(y) + x * bpp;
        if (!wide) {
          p[0] = static_cast<uint8_t>(kind == IMK_BINARY ? (x + y) & 1 : y * 16 + x);
        } else {
          p[0] = static_cast<uint8_t>(x);
          p[1] = static_cast<uint8_t>(y);
          p[2] = static_cast<uint8_t>(x * y);
          if (bpp == 4) p[3] = static_cast<uint8_t>(200 + x);
        }
      }
    OwnedPicture a, b, c;
    run(pic, a, [](ImageRecord* s, ImageRecord* o) { return process::spreadEffect(s, o, 2, 7); });
    run(pic, b, [](ImageRecord* s, ImageRecord* o) { return process::spreadEffect(s, o, 2, 7); });
    run(pic, c, [](ImageRecord* s, ImageRecord* o) { return process::spreadEffect(s, o, 2, 8); });
    EXPECT_EQ(bytesOf(a.rec), bytesOf(b.rec));
    EXPECT_NE(bytesOf(a.rec), bytesOf(c.rec));
    EXPECT_NE(bytesOf(a.rec), bytesOf(pic.rec));
    if (kind == IMK_BINARY) continue;
    std::set<int> offsets;
    for (int y = 0; y < size; ++y)
      for (int x = 0; x < size; ++x) {
        const uint8_t* p = pixel(a.rec, x, y);
        const int fx = wide ? p[0] : p[0] % 16, fy = wide ? p[1] : p[0] / 16;
        ASSERT_LE(std::abs(fx - x), 2);
        ASSERT_LE(std::abs(fy - y), 2);
        ASSERT_EQ(0, std::memcmp(p, pixel(pic.rec, fx, fy), static_cast<size_t>(bpp)));
        if (x >= 2 && x < size - 2 && y >= 2 && y < size - 2)
          offsets.insert((fx - x + 2) * 5 + (fy - y + 2));
      }
    if (wide) {
      EXPECT_EQ(offsets.size(), 25u) << "every offset in -2..2 x -2..2 turns up";
    }
  }
}

TEST(DistortResult, KeepsPaletteAndReplacesWithoutDestination) {
  OwnedPicture pic;
  makeRandom(pic, IMK_MAPPED, 12, 10, 4, 20);
  pic->colorCount = 21;
  pic->attribute = 6;
  for (int i = 0; i < 768; ++i) pic->palette[i] = static_cast<uint8_t>(i / 3);
  ASSERT_EQ(process::shearEffect(&pic.rec, nullptr, 30, 10), 0);
  ASSERT_EQ(process::swirlEffect(&pic.rec, nullptr, 45), 0);
  ASSERT_EQ(process::lensEffect(&pic.rec, nullptr, 50), 0);
  ASSERT_EQ(process::wavesEffect(&pic.rec, nullptr, 3, 9), 0);
  ASSERT_EQ(process::spreadEffect(&pic.rec, nullptr, 3, 1), 0);
  EXPECT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(pic->colorCount, 21);
  EXPECT_EQ(pic->attribute, 6);
  for (int i = 0; i < 768; ++i) ASSERT_EQ(pic->palette[i], static_cast<uint8_t>(i / 3));
  for (uint8_t v : bytesOf(pic.rec)) EXPECT_LE(v, 20);  // only existing indices (or 0)
}

}  // namespace
