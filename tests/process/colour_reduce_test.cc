// Colour reduction: the cube dither (against an exact rational reference and
// worked cases), the popularity palette and box splitting (worked by hand,
// including the quirks of the split order and of the colour lookup).
#include "process/colour_reduce.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "process/convert.h"
#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;
using test::pixelsOf;

// Stores a colour; the pictures here are always true colour.
void putRgb(OwnedPicture& p, int x, int y, uint8_t r, uint8_t g, uint8_t b) {
  ASSERT_TRUE(test::storeRgb(p, x, y, r, g, b)) << "not a true-colour layout";
}

void allocate(OwnedPicture& p, uint16_t type, int w, int h) {
  p.reset();
  ASSERT_NE(imkAllock(&p.rec, type, 8, w, h), 0);
}

std::vector<uint8_t> paletteOf(const ImageRecord& r) {
  return std::vector<uint8_t>(r.palette, r.palette + 768);
}

struct Rgb {
  int r, g, b;
  bool operator==(const Rgb&) const = default;
};
Rgb entry(const ImageRecord& r, int i) {
  return {r.palette[i], r.palette[256 + i], r.palette[512 + i]};
}
std::ostream& operator<<(std::ostream& o, const Rgb& c) {
  return o << "(" << c.r << "," << c.g << "," << c.b << ")";
}

struct Snapshot {
  ImageRecord header;
  std::vector<uint8_t> pixels, palette;
  explicit Snapshot(const ImageRecord& r)
      : header(r),
        pixels(r.pixels, r.pixels + static_cast<size_t>(r.bytesPerLine) * r.height),
        palette(r.palette, r.palette + 768) {}
  bool same(const ImageRecord& r) const {
    return std::memcmp(&header, &r, sizeof r) == 0 && Snapshot(r).pixels == pixels &&
           Snapshot(r).palette == palette;
  }
};

const int kD[8][8] = {
    {0, 38, 9, 47, 2, 40, 11, 50},  {25, 12, 35, 22, 27, 15, 37, 24},
    {6, 44, 3, 41, 8, 47, 5, 43},   {31, 19, 28, 15, 34, 21, 31, 18},
    {1, 39, 11, 49, 0, 39, 10, 48}, {27, 14, 36, 23, 26, 13, 35, 23},
    {7, 46, 4, 43, 7, 45, 3, 42},   {33, 20, 30, 17, 32, 19, 29, 16},
};

// Level of one channel with n levels, in exact rational arithmetic.
int exactLevel(int v, int n, int x, int y) {
  int lo = v * (n - 1) / 255;
  if (lo == n - 1) lo = n - 2;
  const int frac = (v * (n - 1) - 255 * lo) * 63 / 255;
  return lo + (kD[y & 7][x & 7] < frac ? 1 : 0);
}

struct Cube {
  int r, g, b;
};
int exactCubeIndex(Cube c, int red, int green, int blue, int x, int y) {
  return exactLevel(red, c.r, x, y) * c.g * c.b + exactLevel(green, c.g, x, y) * c.b +
         exactLevel(blue, c.b, x, y);
}

const struct {
  int colours;
  Cube cube;
} kCubes[] = {{8, {2, 2, 2}},   {16, {2, 4, 2}},  {32, {4, 4, 2}}, {64, {4, 4, 4}},
              {128, {8, 8, 4}}, {216, {6, 6, 6}}, {256, {8, 8, 4}}};

// ---------------------------------------------------------------- cube dither

TEST(CubeDither, TwoHundredSixteenColoursAreTheSixLevelCube) {
  OwnedPicture p, out;
  test::makePattern(p, IMK_RGB, 10, 10);
  ASSERT_EQ(process::reduceColours(&p.rec, &out.rec, 216, 1), 0);
  EXPECT_EQ(out->type, IMK_MAPPED);
  EXPECT_EQ(out->colorCount, 216);
  const int levels[6] = {0, 51, 102, 153, 204, 255};
  for (int ri = 0; ri < 6; ++ri)
    for (int gi = 0; gi < 6; ++gi)
      for (int bi = 0; bi < 6; ++bi)
        ASSERT_EQ(entry(out.rec, ri * 36 + gi * 6 + bi), (Rgb{levels[ri], levels[gi], levels[bi]}));
  for (int i = 216; i < 256; ++i) EXPECT_EQ(entry(out.rec, i), (Rgb{0, 0, 0}));
}

TEST(CubeDither, CubeShapesAndTheirPalettes) {
  for (const auto& c : kCubes) {
    const process::CubeShape s = process::cubeShape(c.colours);
    EXPECT_EQ(s.red, c.cube.r);
    EXPECT_EQ(s.green, c.cube.g);
    EXPECT_EQ(s.blue, c.cube.b);
  }
  EXPECT_EQ(process::cubeShape(100).red, 0);
  uint8_t pal[768];
  process::buildCubePalette(pal, 8, 8, 4);
  const int eight[8] = {0, 36, 72, 109, 145, 182, 218, 255};
  const int four[4] = {0, 85, 170, 255};
  for (int i = 0; i < 256; ++i) {
    EXPECT_EQ(pal[i], eight[i / 32]);
    EXPECT_EQ(pal[256 + i], eight[(i / 4) % 8]);
    EXPECT_EQ(pal[512 + i], four[i % 4]);
  }
  process::buildCubePalette(pal, 2, 4, 2);  // 16 colours: green has four levels
  EXPECT_EQ((Rgb{pal[5], pal[256 + 5], pal[512 + 5]}), (Rgb{0, 170, 255}));
  EXPECT_EQ((Rgb{pal[15], pal[256 + 15], pal[512 + 15]}), (Rgb{255, 255, 255}));
  EXPECT_EQ(pal[16], 0);
}

TEST(CubeDither, TrueColourMatchesExactReferenceForEveryCount) {
  std::mt19937 rng(3);
  OwnedPicture p;
  allocate(p, IMK_RGB, 37, 19);
  for (int y = 0; y < 19; ++y)
    for (int x = 0; x < 37; ++x)
      putRgb(p, x, y, static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()),
             static_cast<uint8_t>(rng()));
  for (const auto& c : kCubes) {
    OwnedPicture out;
    ASSERT_EQ(process::reduceColours(&p.rec, &out.rec, c.colours, 1), 0);
    EXPECT_EQ(out->colorCount, c.cube.r * c.cube.g * c.cube.b);
    for (int y = 0; y < 19; ++y)
      for (int x = 0; x < 37; ++x) {
        const uint8_t* px = p.row(y) + 3 * x;
        ASSERT_EQ(out.row(y)[x], exactCubeIndex(c.cube, px[0], px[1], px[2], x, y))
            << c.colours << " at " << x << "," << y;
      }
  }
}

TEST(CubeDither, OneHundredTwentyEightGivesTheTwoHundredFiftySixCube) {
  OwnedPicture p, a, b;
  test::makePattern(p, IMK_RGB, 31, 23);
  ASSERT_EQ(process::reduceColours(&p.rec, &a.rec, 128, 1), 0);
  ASSERT_EQ(process::reduceColours(&p.rec, &b.rec, 256, 1), 0);
  EXPECT_EQ(a->colorCount, 256);
  EXPECT_EQ(pixelsOf(a.rec), pixelsOf(b.rec));
  EXPECT_EQ(paletteOf(a.rec), paletteOf(b.rec));
}

TEST(CubeDither, BinaryWhiteIsTheColourCountNot255) {
  OwnedPicture p;
  allocate(p, IMK_BINARY, 16, 16);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) p.row(y)[x] = x < 8 ? 1 : 0;
  // 8 colours: white is read as intensity 7: frac = 7*63/255 = 1, so only
  // the matrix's two zeros, at (0,0) and (4,4), take the upper level.
  OwnedPicture eight;
  ASSERT_EQ(process::reduceColours(&p.rec, &eight.rec, 8, 1), 0);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) {
      const bool corner = (x % 8 == 0 && y % 8 == 0) || (x % 8 == 4 && y % 8 == 4);
      ASSERT_EQ(eight.row(y)[x], x < 8 && corner ? 7 : 0) << x << "," << y;
    }
  // 256 colours: white is 255 and stays the cube's white, index 255.
  OwnedPicture all;
  ASSERT_EQ(process::reduceColours(&p.rec, &all.rec, 256, 1), 0);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) ASSERT_EQ(all.row(y)[x], x < 8 ? 255 : 0);
  // 216: white is 215 in each channel.
  OwnedPicture six;
  ASSERT_EQ(process::reduceColours(&p.rec, &six.rec, 216, 1), 0);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 8; ++x)
      ASSERT_EQ(six.row(y)[x], exactCubeIndex({6, 6, 6}, 215, 215, 215, x, y));
}

TEST(CubeDither, GreyAndMappedSourcesUseLevelsAndPalette) {
  OwnedPicture grey, mapped;
  allocate(grey, IMK_GREY, 24, 24);
  grey->colorCount = 4;  // intensities 0, 85, 170, 255
  allocate(mapped, IMK_MAPPED, 24, 24);
  for (int i = 0; i < 256; ++i) {
    mapped->palette[i] = static_cast<uint8_t>(i * 7);
    mapped->palette[256 + i] = static_cast<uint8_t>(255 - i);
    mapped->palette[512 + i] = static_cast<uint8_t>(i * 13 + 5);
  }
  for (int y = 0; y < 24; ++y)
    for (int x = 0; x < 24; ++x) {
      grey.row(y)[x] = static_cast<uint8_t>((x / 8 + y / 8) % 4);
      mapped.row(y)[x] = static_cast<uint8_t>(x * 11 + y * 5);
    }
  for (const auto& c : kCubes) {
    OwnedPicture g, m;
    ASSERT_EQ(process::reduceColours(&grey.rec, &g.rec, c.colours, 1), 0);
    ASSERT_EQ(process::reduceColours(&mapped.rec, &m.rec, c.colours, 1), 0);
    for (int y = 0; y < 24; ++y)
      for (int x = 0; x < 24; ++x) {
        const int v = ((x / 8 + y / 8) % 4) * 85;
        ASSERT_EQ(g.row(y)[x], exactCubeIndex(c.cube, v, v, v, x, y));
        const int i = mapped.row(y)[x];
        ASSERT_EQ(m.row(y)[x],
                  exactCubeIndex(c.cube, (i * 7) & 255, 255 - i, (i * 13 + 5) & 255, x, y));
      }
  }
}

TEST(CubeDither, TrueColourReadsThreeBytesWhateverTheLayout) {
  // A B,G,R picture dithers like the R,G,B picture with red and blue swapped.
  std::mt19937 rng(5);
  OwnedPicture bgr, rgb;
  allocate(bgr, IMK_BGR, 20, 12);
  allocate(rgb, IMK_RGB, 20, 12);
  for (int y = 0; y < 12; ++y)
    for (int x = 0; x < 20; ++x) {
      const uint8_t r = static_cast<uint8_t>(rng()), g = static_cast<uint8_t>(rng()),
                    b = static_cast<uint8_t>(rng());
      putRgb(bgr, x, y, r, g, b);
      putRgb(rgb, x, y, b, g, r);
    }
  OwnedPicture a, b;
  ASSERT_EQ(process::reduceColours(&bgr.rec, &a.rec, 64, 1), 0);
  ASSERT_EQ(process::reduceColours(&rgb.rec, &b.rec, 64, 1), 0);
  EXPECT_EQ(pixelsOf(a.rec), pixelsOf(b.rec));
  // Four-byte layouts are read three bytes a pixel from the row's start.
  OwnedPicture xbgr, out;
  allocate(xbgr, IMK_XBGR, 6, 3);
  for (int y = 0; y < 3; ++y)
    for (int i = 0; i < 24; ++i) xbgr.row(y)[i] = static_cast<uint8_t>(rng());
  ASSERT_EQ(process::reduceColours(&xbgr.rec, &out.rec, 32, 1), 0);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 6; ++x) {
      const uint8_t* px = xbgr.row(y) + 3 * x;
      ASSERT_EQ(out.row(y)[x], exactCubeIndex({4, 4, 2}, px[0], px[1], px[2], x, y));
    }
}

// ---------------------------------------------------------------- popularity

TEST(Popularity, UsedEntriesAreKeptMostUsedFirst) {
  OwnedPicture p, out;
  allocate(p, IMK_MAPPED, 10, 6);  // 256 entries, 3 in use
  for (int i = 0; i < 256; ++i) {
    p->palette[i] = static_cast<uint8_t>(i);
    p->palette[256 + i] = static_cast<uint8_t>(i / 2);
    p->palette[512 + i] = static_cast<uint8_t>(255 - i);
  }
  // index 5: 10 pixels, 9: 30 pixels, 200: 20 pixels
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 10; ++x) p.row(y)[x] = y == 0 ? 5 : y < 4 ? 9 : 200;
  ASSERT_EQ(process::reduceColours(&p.rec, &out.rec, 8, 4), 0);
  EXPECT_EQ(out->colorCount, 8);
  // 9, 200, 5, then the unused 0, 1, 2, 3, 4 in index order.
  const int order[8] = {9, 200, 5, 0, 1, 2, 3, 4};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(entry(out.rec, i), entry(p.rec, order[i])) << i;
  for (int i = 8; i < 256; ++i) EXPECT_EQ(entry(out.rec, i), (Rgb{0, 0, 0}));
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 10; ++x) EXPECT_EQ(out.row(y)[x], y == 0 ? 2 : y < 4 ? 0 : 1);
}

TEST(Popularity, FewerSourceColoursKeepIndexOrder) {
  OwnedPicture p, out;
  test::makePattern(p, IMK_MAPPED, 13, 9, 8);
  ASSERT_EQ(process::reduceColours(&p.rec, &out.rec, 16, 4), 0);
  EXPECT_EQ(out->colorCount, 16);
  EXPECT_EQ(pixelsOf(out.rec), pixelsOf(p.rec));
  for (int i = 0; i < 16; ++i) EXPECT_EQ(entry(out.rec, i), entry(p.rec, i));
}

TEST(Popularity, TiesKeepIndexOrderAndTheRestGoToTheNearest) {
  OwnedPicture p, out;
  allocate(p, IMK_MAPPED, 23, 1);
  auto set = [&](int i, int r, int g, int b) {
    p->palette[i] = static_cast<uint8_t>(r);
    p->palette[256 + i] = static_cast<uint8_t>(g);
    p->palette[512 + i] = static_cast<uint8_t>(b);
  };
  set(8, 0, 0, 0);        // 9 pixels
  set(1, 255, 0, 0);      // 5 pixels
  set(3, 0, 0, 254);      // 5 pixels (ties with 1, which comes first)
  set(7, 255, 255, 255);  // 2 pixels
  set(2, 200, 10, 10);    // 1 pixel: nearest is the red entry
  set(6, 0, 0, 127);      // 1 pixel: 127^2 from black and from blue; black is lower
  const int counts[][2] = {{8, 9}, {1, 5}, {3, 5}, {7, 2}, {2, 1}, {6, 1}};
  int x = 0;
  for (const auto& c : counts)
    for (int k = 0; k < c[1]; ++k) p.row(0)[x++] = static_cast<uint8_t>(c[0]);
  // Four colours: below 8, so no box splitting although six are in use.
  ASSERT_EQ(process::reduceColours(&p.rec, &out.rec, 4, 4), 0);
  EXPECT_EQ(out->colorCount, 4);
  EXPECT_EQ(entry(out.rec, 0), (Rgb{0, 0, 0}));
  EXPECT_EQ(entry(out.rec, 1), (Rgb{255, 0, 0}));
  EXPECT_EQ(entry(out.rec, 2), (Rgb{0, 0, 254}));
  EXPECT_EQ(entry(out.rec, 3), (Rgb{255, 255, 255}));
  for (int i = 4; i < 256; ++i) EXPECT_EQ(entry(out.rec, i), (Rgb{0, 0, 0}));
  const int expected[] = {8, 0, 1, 1, 3, 2, 7, 3, 2, 1, 6, 0};
  for (int i = 0; i < 12; i += 2)
    for (int k = 0; k < 23; ++k)
      if (p.row(0)[k] == expected[i]) {
        ASSERT_EQ(out.row(0)[k], expected[i + 1]) << expected[i];
      }
}

TEST(Popularity, GreyAndBinarySourcesUseTheirLevelGreys) {
  OwnedPicture grey, out;
  allocate(grey, IMK_GREY, 6, 1);
  grey->colorCount = 16;
  const uint8_t levels[6] = {5, 5, 15, 0, 5, 15};  // 5: 3 pixels, 15: 2, 0: 1
  std::memcpy(grey.row(0), levels, 6);
  ASSERT_EQ(process::reduceColours(&grey.rec, &out.rec, 8, 4), 0);
  EXPECT_EQ(out->colorCount, 8);
  EXPECT_EQ(entry(out.rec, 0), (Rgb{85, 85, 85}));     // 5 * 255 / 15
  EXPECT_EQ(entry(out.rec, 1), (Rgb{255, 255, 255}));  // 15
  EXPECT_EQ(entry(out.rec, 2), (Rgb{0, 0, 0}));        // 0
  EXPECT_EQ(entry(out.rec, 3), (Rgb{17, 17, 17}));     // 1, the first unused level
  EXPECT_EQ(pixelsOf(out.rec), (std::vector<uint8_t>{0, 0, 1, 2, 0, 1}));

  OwnedPicture bin, out2;
  test::makePattern(bin, IMK_BINARY, 11, 7);
  ASSERT_EQ(process::reduceColours(&bin.rec, &out2.rec, 8, 4), 0);
  EXPECT_EQ(out2->colorCount, 8);
  EXPECT_EQ(entry(out2.rec, 0), (Rgb{0, 0, 0}));
  EXPECT_EQ(entry(out2.rec, 1), (Rgb{255, 255, 255}));
  EXPECT_EQ(pixelsOf(out2.rec), pixelsOf(bin.rec));
}

TEST(Popularity, TooManyInUseHandsOverToBoxSplitting) {
  // A grey picture using 100 levels, and a mapped one using 40 entries,
  // reduce exactly like true-colour pictures of the same colours.
  OwnedPicture grey, greyRgb, mapped, mappedRgb;
  allocate(grey, IMK_GREY, 25, 8);
  allocate(greyRgb, IMK_RGB, 25, 8);
  allocate(mapped, IMK_MAPPED, 25, 8);
  allocate(mappedRgb, IMK_BGR, 25, 8);
  for (int i = 0; i < 256; ++i) {
    mapped->palette[i] = static_cast<uint8_t>(i * 29);
    mapped->palette[256 + i] = static_cast<uint8_t>(i * 71 + 3);
    mapped->palette[512 + i] = static_cast<uint8_t>(200 - i);
  }
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 25; ++x) {
      const int k = y * 25 + x;
      const uint8_t g = static_cast<uint8_t>((k % 100) * 2 + 30);
      grey.row(y)[x] = g;
      putRgb(greyRgb, x, y, g, g, g);
      const int i = k % 40;
      mapped.row(y)[x] = static_cast<uint8_t>(i);
      putRgb(mappedRgb, x, y, mapped->palette[i], mapped->palette[256 + i],
             mapped->palette[512 + i]);
    }
  for (int n : {8, 16, 32}) {
    OwnedPicture a, b, c, d;
    ASSERT_EQ(process::reduceColours(&grey.rec, &a.rec, n, 4), 0);
    ASSERT_EQ(process::reduceColours(&greyRgb.rec, &b.rec, n, 4), 0);
    EXPECT_EQ(a->colorCount, n);
    EXPECT_EQ(pixelsOf(a.rec), pixelsOf(b.rec));
    EXPECT_EQ(paletteOf(a.rec), paletteOf(b.rec));
    ASSERT_EQ(process::reduceColours(&mapped.rec, &c.rec, n, 4), 0);
    ASSERT_EQ(process::reduceColours(&mappedRgb.rec, &d.rec, n, 4), 0);
    EXPECT_EQ(pixelsOf(c.rec), pixelsOf(d.rec));
    EXPECT_EQ(paletteOf(c.rec), paletteOf(d.rec));
  }
}

// ---------------------------------------------------------------- box splitting

// A true-colour picture with one pixel per listed 6-bit colour (written as
// 4c + 2), on a row.
void sixBitPicture(OwnedPicture& p, uint16_t type, const std::vector<Rgb>& colours) {
  allocate(p, type, static_cast<int>(colours.size()), 1);
  for (size_t x = 0; x < colours.size(); ++x)
    putRgb(p, static_cast<int>(x), 0, static_cast<uint8_t>(colours[x].r * 4 + 2),
           static_cast<uint8_t>(colours[x].g * 4 + 2), static_cast<uint8_t>(colours[x].b * 4 + 2));
}

TEST(BoxSplitting, WorkedSplitOrderWithTheCountPlusOctantsRule) {
  // Ten colours, eight wanted. The first split gives octants 0, 1, 2, 4, 7;
  // whole passes go on to 7 boxes of width 2 (the next would give 10). Then
  // the boxes that would split in two are refused because 7 + 2 > 8, and the
  // first single-colour box, (20,20,20), is split in place of itself and
  // moves to the end; that ends the splitting with 7 boxes.
  const std::vector<Rgb> colours = {{0, 0, 0},    {1, 0, 0},   {20, 20, 20}, {0, 0, 63},
                                    {0, 63, 0},   {63, 0, 0},  {63, 0, 1},   {63, 63, 63},
                                    {40, 40, 40}, {63, 63, 62}};
  const int expected[10] = {0, 0, 6, 1, 2, 3, 3, 5, 4, 5};
  for (uint16_t type : {IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR}) {
    OwnedPicture p, out;
    sixBitPicture(p, type, colours);
    ASSERT_EQ(process::reduceColours(&p.rec, &out.rec, 8, 4), 0);
    EXPECT_EQ(out->type, IMK_MAPPED);
    EXPECT_EQ(out->colorCount, 8);
    EXPECT_EQ(entry(out.rec, 0), (Rgb{0, 0, 0}));
    EXPECT_EQ(entry(out.rec, 1), (Rgb{0, 0, 255}));
    EXPECT_EQ(entry(out.rec, 2), (Rgb{0, 255, 0}));
    EXPECT_EQ(entry(out.rec, 3), (Rgb{255, 0, 0}));      // average blue (0 + 1) / 2 = 0
    EXPECT_EQ(entry(out.rec, 4), (Rgb{161, 161, 161}));  // 40 * 255 / 63
    EXPECT_EQ(entry(out.rec, 5), (Rgb{255, 255, 250}));  // blue (63 + 62) / 2 = 62
    EXPECT_EQ(entry(out.rec, 6), (Rgb{80, 80, 80}));     // 20 * 255 / 63
    EXPECT_EQ(entry(out.rec, 7), (Rgb{0, 0, 0}));
    for (int x = 0; x < 10; ++x) EXPECT_EQ(out.row(0)[x], expected[x]) << type << " colour " << x;
  }
}

TEST(BoxSplitting, FewColoursGetOneBoxEachWithTheirSixBitColour) {
  const std::vector<Rgb> eight = {
      {10, 20, 30}, {10, 20, 230}, {10, 220, 30}, {210, 20, 30}, {210, 220, 230}};
  OwnedPicture p, out;
  allocate(p, IMK_RGB, 5, 3);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 5; ++x)
      putRgb(p, x, y, static_cast<uint8_t>(eight[x].r), static_cast<uint8_t>(eight[x].g),
             static_cast<uint8_t>(eight[x].b));
  ASSERT_EQ(process::reduceColours(&p.rec, &out.rec, 256, 4), 0);
  EXPECT_EQ(out->colorCount, 5);
  std::set<int> used;
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 5; ++x) {
      const Rgb c = eight[x];
      const Rgb want{(c.r >> 2) * 255 / 63, (c.g >> 2) * 255 / 63, (c.b >> 2) * 255 / 63};
      EXPECT_EQ(entry(out.rec, out.row(y)[x]), want);
      used.insert(out.row(y)[x]);
    }
  EXPECT_EQ(used.size(), 5u);
  // Boxes follow octant order: black-ish, blue, green, red, white.
  EXPECT_EQ(out.row(0)[0], 0);
  EXPECT_EQ(out.row(0)[1], 1);
  EXPECT_EQ(out.row(0)[2], 2);
  EXPECT_EQ(out.row(0)[3], 3);
  EXPECT_EQ(out.row(0)[4], 4);
}

TEST(BoxSplitting, AnEarlierBoxsSecondRangeWinsTheLookup) {
  // Two colours, red 14 and 16 (6-bit), split into [0,15] and [16,31]. The
  // first box's second range is 14 -/+ 7, which holds 16 as well, so both
  // colours take entry 0 although two entries are made.
  OwnedPicture p, out;
  sixBitPicture(p, IMK_RGB, {{14, 0, 0}, {16, 0, 0}, {16, 0, 0}});
  ASSERT_EQ(process::reduceColours(&p.rec, &out.rec, 8, 4), 0);
  EXPECT_EQ(out->colorCount, 2);
  EXPECT_EQ(entry(out.rec, 0), (Rgb{56, 0, 0}));
  EXPECT_EQ(entry(out.rec, 1), (Rgb{64, 0, 0}));
  EXPECT_EQ(pixelsOf(out.rec), (std::vector<uint8_t>{0, 0, 0}));
}

TEST(BoxSplitting, UniformPictureGetsOneColour) {
  OwnedPicture p, out;
  allocate(p, IMK_XBGR, 9, 9);
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 9; ++x) putRgb(p, x, y, 100, 150, 200);
  ASSERT_EQ(process::reduceColours(&p.rec, &out.rec, 256, 4), 0);
  EXPECT_EQ(out->colorCount, 1);
  EXPECT_EQ(entry(out.rec, 0), (Rgb{25 * 255 / 63, 37 * 255 / 63, 50 * 255 / 63}));
  for (uint8_t v : pixelsOf(out.rec)) ASSERT_EQ(v, 0);
}

TEST(BoxSplitting, ManyColoursFillThePaletteAndStayInRange) {
  std::mt19937 rng(9);
  OwnedPicture p;
  allocate(p, IMK_RGB, 120, 80);
  for (int y = 0; y < 80; ++y)
    for (int x = 0; x < 120; ++x)
      putRgb(p, x, y, static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()),
             static_cast<uint8_t>(rng()));
  for (int n : {8, 16, 64, 216, 256}) {
    OwnedPicture out;
    ASSERT_EQ(process::reduceColours(&p.rec, &out.rec, n, 4), 0);
    EXPECT_EQ(out->colorCount, n);
    for (uint8_t v : pixelsOf(out.rec)) ASSERT_LT(v, n);
  }
}

// Presence set of the 6-bit colours of random 8-bit colours.
std::vector<uint8_t> randomPresence(int count, unsigned seed, int* distinct) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> presence(process::kPresenceBytes, 0);
  std::set<int> keys;
  for (int i = 0; i < count; ++i) {
    // Clustered colours so that boxes come in all sizes.
    const int r = static_cast<int>(rng() % 64), g = static_cast<int>((r + rng() % 9) % 64),
              b = static_cast<int>(rng() % 20);
    const int key = r * 4096 + g * 64 + b;
    keys.insert(key);
    presence[static_cast<size_t>(key / 8)] |= static_cast<uint8_t>(1 << (key % 8));
  }
  *distinct = static_cast<int>(keys.size());
  return presence;
}

TEST(BoxSplitting, LookupTableAgreesWithTheSearch) {
  for (int n : {8, 27, 100}) {
    int distinct = 0;
    const std::vector<uint8_t> presence = randomPresence(3000, static_cast<unsigned>(n), &distinct);
    uint8_t palette[768] = {};
    const std::vector<process::ColourBox> boxes =
        process::splitColourBoxes(presence.data(), palette, distinct, n);
    EXPECT_LE(static_cast<int>(boxes.size()), n);
    std::vector<uint8_t> table(1 << 18);
    process::colourBoxTable(boxes, table.data());
    process::ColourBoxCache cache;
    for (int key = 0; key < (1 << 18); key += (n == 100 ? 7 : 1)) {
      const int r = (key >> 12) * 4 + 3, g = ((key >> 6) & 63) * 4, b = (key & 63) * 4 + 1;
      ASSERT_EQ(table[static_cast<size_t>(key)], process::findColourBox(boxes, cache, r, g, b))
          << n << " key " << key;
    }
    // The cache answers a repeated 6-bit colour without searching.
    process::ColourBoxCache fresh;
    const int first = process::findColourBox(boxes, fresh, 0, 0, 0);
    EXPECT_EQ(fresh.key, 0);
    EXPECT_EQ(process::findColourBox(boxes, fresh, 3, 2, 1), first);
  }
}

// ---------------------------------------------------------------- convention

TEST(ReduceColours, SourceKeptWithDestinationAndReplacedWithout) {
  const struct {
    uint16_t type;
    int levels;
  } kinds[] = {{IMK_BINARY, 2}, {IMK_GREY, 16}, {IMK_GREY, 256}, {IMK_MAPPED, 256}, {IMK_MAPPED, 5},
               {IMK_RGB, 0},    {IMK_RGBX, 0},  {IMK_BGR, 0},    {IMK_XBGR, 0}};
  for (const auto& kind : kinds)
    for (int n : {8, 16, 32, 64, 128, 216, 256})
      for (int method : {1, 4}) {
        const std::string what = std::to_string(kind.type) + "/" + std::to_string(kind.levels) +
                                 " " + std::to_string(n) + " m" + std::to_string(method);
        OwnedPicture p, out;
        test::makePattern(p, kind.type, 29, 13, kind.levels > 0 ? kind.levels : 256);
        p->attribute = 33;
        const Snapshot before(p.rec);
        ASSERT_EQ(process::reduceColours(&p.rec, &out.rec, n, method), 0) << what;
        EXPECT_TRUE(before.same(p.rec)) << what;
        EXPECT_EQ(out->type, IMK_MAPPED) << what;
        EXPECT_EQ(out->attribute, 33) << what;
        EXPECT_EQ(out->width, 29);
        EXPECT_EQ(out->height, 13);
        const std::vector<uint8_t> expected = pixelsOf(out.rec);
        const std::vector<uint8_t> expectedPalette = paletteOf(out.rec);
        ASSERT_EQ(process::reduceColours(&p.rec, nullptr, n, method), 0) << what;
        EXPECT_EQ(p->type, IMK_MAPPED);
        EXPECT_EQ(p->colorCount, out->colorCount) << what;
        EXPECT_EQ(pixelsOf(p.rec), expected) << what;
        EXPECT_EQ(paletteOf(p.rec), expectedPalette) << what;
      }
}

TEST(ReduceColours, NoColoursDoesNothing) {
  OwnedPicture p, out;
  test::makePattern(p, IMK_RGB, 5, 5);
  const Snapshot before(p.rec);
  EXPECT_EQ(process::reduceColours(&p.rec, &out.rec, 0, 4), 0);
  EXPECT_TRUE(before.same(p.rec));
  EXPECT_EQ(out->pixels, nullptr);
}

}  // namespace
