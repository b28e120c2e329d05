// Depth conversion: to binary (threshold, Bayer pattern, halftones, error
// diffusion), to N greys (plain and dithered), to true colour, the
// dispatcher and the menu's item table. Expectations are worked by hand from
// the rules, or come from small references written independently below
// (exact rational arithmetic, a full-picture error matrix, a bit-interleaving
// Bayer formula).
#include "process/convert.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "process/conversion_items.h"
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

// A grey picture of `levels` levels with the given pixel values, one row per
// vector.
void greyPicture(OwnedPicture& p, int levels, const std::vector<std::vector<int>>& rows) {
  allocate(p, IMK_GREY, static_cast<int>(rows[0].size()), static_cast<int>(rows.size()));
  p->colorCount = levels;
  for (size_t y = 0; y < rows.size(); ++y)
    for (size_t x = 0; x < rows[y].size(); ++x)
      p.row(static_cast<int>(y))[x] = static_cast<uint8_t>(rows[y][x]);
}

std::vector<std::vector<int>> rowsOf(const ImageRecord& r) {
  std::vector<std::vector<int>> out(static_cast<size_t>(r.height));
  for (int y = 0; y < r.height; ++y)
    for (int x = 0; x < r.width; ++x)
      out[static_cast<size_t>(y)].push_back(r.pixels[static_cast<size_t>(y) * r.bytesPerLine + x]);
  return out;
}

// Snapshot of a whole record (header, pixels, palette) to prove it untouched.
struct Snapshot {
  ImageRecord header;
  std::vector<uint8_t> pixels, palette;
  explicit Snapshot(const ImageRecord& r)
      : header(r),
        pixels(r.pixels, r.pixels + static_cast<size_t>(r.bytesPerLine) * r.height),
        palette(r.palette ? std::vector<uint8_t>(r.palette, r.palette + 768)
                          : std::vector<uint8_t>()) {}
  bool same(const ImageRecord& r) const {
    return std::memcmp(&header, &r, sizeof r) == 0 && Snapshot(r).pixels == pixels &&
           Snapshot(r).palette == palette;
  }
};

// The 8x8 dither matrix, typed in again here rather than taken from the code.
const int kD[8][8] = {
    {0, 38, 9, 47, 2, 40, 11, 50},  {25, 12, 35, 22, 27, 15, 37, 24},
    {6, 44, 3, 41, 8, 47, 5, 43},   {31, 19, 28, 15, 34, 21, 31, 18},
    {1, 39, 11, 49, 0, 39, 10, 48}, {27, 14, 36, 23, 26, 13, 35, 23},
    {7, 46, 4, 43, 7, 45, 3, 42},   {33, 20, 30, 17, 32, 19, 29, 16},
};

// Exact rational version of the dither entry: step = 255/(n-1), so
// v/step = v(n-1)/255 and (v - step*lo)/(step/63) = (v(n-1) - 255 lo)*63/255.
int exactLevel(int v, int n, int x, int y) {
  int lo = v * (n - 1) / 255;
  if (lo == n - 1) lo = n - 2;
  const int frac = (v * (n - 1) - 255 * lo) * 63 / 255;
  return lo + (kD[y & 7][x & 7] < frac ? 1 : 0);
}

// ---------------------------------------------------------------- binary

TEST(ConvertToBinary, ThresholdWhiteAbove126OnGreyLevels) {
  OwnedPicture p, out;
  greyPicture(p, 256, {{0, 125, 126, 127, 128, 255}});
  ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, 1, 0), 0);
  EXPECT_EQ(out->type, IMK_BINARY);
  EXPECT_EQ(rowsOf(out.rec), (std::vector<std::vector<int>>{{0, 0, 0, 1, 1, 1}}));
  // Four levels are the intensities 0, 85, 170, 255 first.
  greyPicture(p, 4, {{0, 1, 2, 3}});
  out.reset();
  ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, 1, 0), 0);
  EXPECT_EQ(rowsOf(out.rec), (std::vector<std::vector<int>>{{0, 0, 1, 1}}));
}

TEST(ConvertToBinary, ThresholdUsesLuminanceOfPaletteAndEveryLayout) {
  // Luminance by hand: red 255 -> 76, green 255 -> 149, blue 255 -> 28,
  // (127,127,127) -> 127, (126,126,126) -> 126, (255,100,0) -> 135.
  const uint8_t colours[][3] = {{255, 0, 0},     {0, 255, 0},     {0, 0, 255},
                                {127, 127, 127}, {126, 126, 126}, {255, 100, 0}};
  const std::vector<std::vector<int>> expected = {{0, 1, 0, 1, 0, 1}};
  OwnedPicture mapped, out;
  allocate(mapped, IMK_MAPPED, 6, 1);
  for (int i = 0; i < 6; ++i) {
    const int index = 10 + 7 * i;
    mapped->palette[index] = colours[i][0];
    mapped->palette[256 + index] = colours[i][1];
    mapped->palette[512 + index] = colours[i][2];
    mapped.row(0)[i] = static_cast<uint8_t>(index);
  }
  ASSERT_EQ(process::convertToBinary(&mapped.rec, &out.rec, 0), 0);
  EXPECT_EQ(rowsOf(out.rec), expected);
  for (uint16_t type : {IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR}) {
    OwnedPicture tc, res;
    allocate(tc, type, 6, 1);
    for (int i = 0; i < 6; ++i) putRgb(tc, i, 0, colours[i][0], colours[i][1], colours[i][2]);
    ASSERT_EQ(process::convertToBinary(&tc.rec, &res.rec, 0), 0);
    EXPECT_EQ(rowsOf(res.rec), expected) << "layout " << type;
  }
}

TEST(ConvertToBinary, PatternFollowsThe16x16BayerMatrix) {
  // Rows 0 and 1 as worked out from the 2x2 seed.
  const int row0[16] = {0, 128, 32, 160, 8, 136, 40, 168, 2, 130, 34, 162, 10, 138, 42, 170};
  const int row1[16] = {192, 64, 224, 96, 200, 72, 232, 104, 194, 66, 226, 98, 202, 74, 234, 106};
  // The whole matrix by bit interleaving: the lowest bits of x and y pick
  // the highest digit (seed [[0, 2], [3, 1]]).
  auto bayer = [](int x, int y) {
    static const int seed[2][2] = {{0, 2}, {3, 1}};
    int v = 0;
    for (int bit = 0; bit < 4; ++bit) v += seed[(y >> bit) & 1][(x >> bit) & 1] << (2 * (3 - bit));
    return v;
  };
  for (int x = 0; x < 16; ++x) {
    ASSERT_EQ(bayer(x, 0), row0[x]);
    ASSERT_EQ(bayer(x, 1), row1[x]);
  }
  // One 16x16 tile of each intensity, and a 20th row to see the wrap.
  OwnedPicture p, out;
  allocate(p, IMK_GREY, 16 * 256, 20);
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 16 * 256; ++x) p.row(y)[x] = static_cast<uint8_t>(x / 16);
  ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, 1, 1), 0);
  std::set<int> values;
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 16 * 256; ++x) {
      const int g = x / 16;
      ASSERT_EQ(out.row(y)[x], g >= bayer(x % 16, y % 16) ? 1 : 0) << x << "," << y;
    }
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) values.insert(bayer(x, y));
  EXPECT_EQ(values.size(), 256u);  // 0..255, each once
}

const int kH90[6][6] = {{30, 19, 13, 20, 31, 35}, {18, 8, 5, 9, 21, 29},
                        {12, 4, 1, 2, 10, 28},    {17, 7, 3, 6, 14, 27},
                        {26, 16, 11, 15, 22, 32}, {34, 25, 24, 23, 33, 36}};
const int kH45[6][6] = {{15, 9, 17, 32, 22, 30},  {7, 1, 3, 19, 35, 23}, {13, 5, 11, 27, 26, 33},
                        {31, 21, 29, 16, 10, 18}, {20, 36, 24, 8, 2, 4}, {28, 25, 34, 14, 6, 12}};

// Whites of a uniform 12x12 picture of intensity g (four cells).
std::vector<std::vector<int>> halftoneOf(int g, int method) {
  OwnedPicture p, out;
  greyPicture(p, 256, std::vector<std::vector<int>>(12, std::vector<int>(12, g)));
  EXPECT_EQ(process::convertPicture(&p.rec, &out.rec, 1, method), 0);
  return rowsOf(out.rec);
}

TEST(ConvertToBinary, HalftonesGrowTheirDotsInTableOrder) {
  for (int method : {2, 3, 7}) {
    const auto& h = method == 3 ? kH90 : kH45;
    // 0 and 7 give t = 0 (all black); 8 gives t = 1, only the cell's first
    // dot; 128 gives t = 4608/255 = 18; 255 gives 36 (all white).
    const auto black = halftoneOf(7, method);
    const auto one = halftoneOf(8, method);
    const auto half = halftoneOf(128, method);
    const auto white = halftoneOf(255, method);
    int whites128 = 0;
    for (int y = 0; y < 12; ++y)
      for (int x = 0; x < 12; ++x) {
        EXPECT_EQ(black[y][x], 0);
        EXPECT_EQ(white[y][x], 1);
        EXPECT_EQ(one[y][x], h[y % 6][x % 6] == 1 ? 1 : 0) << method << " " << x << "," << y;
        EXPECT_EQ(half[y][x], h[y % 6][x % 6] <= 18 ? 1 : 0);
        whites128 += half[y][x];
      }
    EXPECT_EQ(whites128, 4 * 18);
  }
  // The first dot of the 90-degree cell is its centre (2, 2); of the 45-degree
  // cell (1, 1).
  EXPECT_EQ(halftoneOf(8, 3)[2][2], 1);
  EXPECT_EQ(halftoneOf(8, 2)[1][1], 1);
}

// Reference error diffusion over a full matrix of errors, spreading each
// error explicitly to its three neighbours with truncation toward zero.
std::vector<std::vector<int>> referenceDiffusion(const std::vector<std::vector<int>>& g) {
  const size_t h = g.size(), w = g[0].size();
  std::vector<std::vector<long>> err(h + 1, std::vector<long>(w + 2, 0));
  std::vector<std::vector<int>> out(h, std::vector<int>(w));
  auto towardZero = [](long num, long den) {
    const long q = (num < 0 ? -num : num) / den;
    return num < 0 ? -q : q;
  };
  for (size_t y = 0; y < h; ++y)
    for (size_t x = 0; x < w; ++x) {
      const long v = g[y][x] + err[y][x];
      const long e = v > 127 ? v - 255 : v;
      out[y][x] = v > 127 ? 1 : 0;
      err[y][x + 1] += towardZero(3 * e, 8);  // right
      err[y + 1][x] += towardZero(3 * e, 8);  // below
      err[y + 1][x + 1] += towardZero(e, 4);  // below right
    }
  return out;
}

TEST(ConvertToBinary, ErrorDiffusionWorkedByHand) {
  OwnedPicture p, out;
  // Worked: row 0 gives 0 1 0 0 (errors 100, -118, 56, 121), row 1 gives
  // 1 0 0 1 after receiving 37, -19, -8, 59 from above.
  greyPicture(p, 256, {{100, 100, 100, 100}, {100, 100, 100, 100}});
  ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, 1, 5), 0);
  EXPECT_EQ(rowsOf(out.rec), (std::vector<std::vector<int>>{{0, 1, 0, 0}, {1, 0, 0, 1}}));
  // 3/8 to the right, not 7/16: 80 + 45 = 125 stays black (7/16 would give 132).
  greyPicture(p, 256, {{120, 80}});
  out.reset();
  ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, 1, 5), 0);
  EXPECT_EQ(rowsOf(out.rec), (std::vector<std::vector<int>>{{0, 0}}));
  // Truncation toward zero: e = -127 passes -47 (not -48), so 175 - 47 = 128
  // is white.
  greyPicture(p, 256, {{128, 175}});
  out.reset();
  ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, 1, 5), 0);
  EXPECT_EQ(rowsOf(out.rec), (std::vector<std::vector<int>>{{1, 1}}));
  // Nothing flows down-left: (0,1) receives only 3/8 of (0,0)'s zero error,
  // not 3/16 of (1,0)'s 120.
  greyPicture(p, 256, {{0, 120}, {110, 0}});
  out.reset();
  ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, 1, 5), 0);
  EXPECT_EQ(out.row(1)[0], 0);
}

TEST(ConvertToBinary, ErrorDiffusionMatchesFullMatrixReference) {
  std::mt19937 rng(7);
  for (int trial = 0; trial < 6; ++trial) {
    const int w = 1 + static_cast<int>(rng() % 70), h = 1 + static_cast<int>(rng() % 40);
    std::vector<std::vector<int>> g(static_cast<size_t>(h),
                                    std::vector<int>(static_cast<size_t>(w)));
    for (auto& row : g)
      for (int& v : row) v = static_cast<int>(rng() % 256);
    OwnedPicture p, out;
    greyPicture(p, 256, g);
    ASSERT_EQ(process::convertToBinary(&p.rec, &out.rec, 5), 0);
    EXPECT_EQ(rowsOf(out.rec), referenceDiffusion(g)) << w << "x" << h;
  }
}

TEST(ConvertToBinary, ErrorDiffusionLeftColumnsIgnoreWidthAndLayout) {
  std::mt19937 rng(11);
  OwnedPicture wide, narrow, outWide, outNarrow;
  allocate(wide, IMK_RGB, 50, 30);
  allocate(narrow, IMK_XBGR, 17, 30);
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 50; ++x) {
      const uint8_t r = static_cast<uint8_t>(rng()), g = static_cast<uint8_t>(rng()),
                    b = static_cast<uint8_t>(rng());
      putRgb(wide, x, y, r, g, b);
      if (x < 17) putRgb(narrow, x, y, r, g, b);
    }
  ASSERT_EQ(process::convertToBinary(&wide.rec, &outWide.rec, 5), 0);
  ASSERT_EQ(process::convertToBinary(&narrow.rec, &outNarrow.rec, 5), 0);
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 17; ++x) ASSERT_EQ(outWide.row(y)[x], outNarrow.row(y)[x]);
}

TEST(ConvertToBinary, BinarySourceIsLeftAloneOrDuplicated) {
  OwnedPicture p, out;
  test::makePattern(p, IMK_BINARY, 9, 7);
  p->attribute = 5;
  const Snapshot before(p.rec);
  for (int method : {0, 1, 2, 3, 5}) {
    ASSERT_EQ(process::convertPicture(&p.rec, nullptr, 1, method), 0);
    EXPECT_TRUE(before.same(p.rec));
  }
  ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, 1, 5), 0);
  EXPECT_TRUE(before.same(p.rec));
  EXPECT_NE(out->pixels, p->pixels);
  EXPECT_EQ(out->type, IMK_BINARY);
  EXPECT_EQ(out->attribute, 5);
  EXPECT_EQ(pixelsOf(out.rec), pixelsOf(p.rec));
}

// ---------------------------------------------------------------- grey

TEST(ConvertToGrey, PlainGreyMapsLevelNumbersDirectly) {
  OwnedPicture p, out;
  // Same count: the numbers stay (through intensities 1 of 8 would become 0).
  greyPicture(p, 8, {{0, 1, 2, 3, 4, 5, 6, 7}});
  ASSERT_EQ(process::convertToGrey(&p.rec, &out.rec, 8, 4), 0);
  EXPECT_EQ(rowsOf(out.rec), rowsOf(p.rec));
  EXPECT_EQ(out->colorCount, 8);
  // 10 levels to 64: 1 * 63 / 9 = 7 (through intensities it would be 6).
  greyPicture(p, 10, {{0, 1, 9}});
  out.reset();
  ASSERT_EQ(process::convertToGrey(&p.rec, &out.rec, 64, 4), 0);
  EXPECT_EQ(rowsOf(out.rec), (std::vector<std::vector<int>>{{0, 7, 63}}));
  // 256 to 4: truncating v * 3 / 255.
  greyPicture(p, 256, {{0, 84, 85, 169, 170, 254, 255}});
  out.reset();
  ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, 2, 4), 0);
  EXPECT_EQ(rowsOf(out.rec), (std::vector<std::vector<int>>{{0, 0, 1, 1, 2, 2, 3}}));
  EXPECT_EQ(out->type, IMK_GREY);
  EXPECT_EQ(out->colorCount, 4);
}

TEST(ConvertToGrey, BinaryBecomesBlackAndTopLevelEvenWhenDithered) {
  OwnedPicture p;
  test::makePattern(p, IMK_BINARY, 21, 13);
  for (int code = 2; code <= 9; ++code) {
    if (code == 8) continue;
    const int n = code == 9 ? 256 : 4 << (code - 2);
    for (int method : {1, 4}) {
      OwnedPicture out;
      ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, code, method), 0);
      EXPECT_EQ(out->colorCount, n);
      for (int y = 0; y < 13; ++y)
        for (int x = 0; x < 21; ++x)
          ASSERT_EQ(out.row(y)[x], p.row(y)[x] ? n - 1 : 0) << code << " " << method;
    }
  }
}

TEST(ConvertToGrey, PlainColourUsesLuminanceByLayout) {
  // Luminances 76, 149, 28, 127, 255 to 8 levels: v * 7 / 255 = 2, 4, 0, 3, 7.
  const uint8_t colours[][3] = {
      {255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {127, 127, 127}, {255, 255, 255}};
  const std::vector<std::vector<int>> expected = {{2, 4, 0, 3, 7}};
  for (uint16_t type : {IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR}) {
    OwnedPicture tc, out;
    allocate(tc, type, 5, 1);
    for (int i = 0; i < 5; ++i) putRgb(tc, i, 0, colours[i][0], colours[i][1], colours[i][2]);
    ASSERT_EQ(process::convertPicture(&tc.rec, &out.rec, 3, 4), 0);
    EXPECT_EQ(rowsOf(out.rec), expected) << type;
  }
  OwnedPicture mapped, out;
  allocate(mapped, IMK_MAPPED, 5, 1);
  for (int i = 0; i < 5; ++i) {
    for (int c = 0; c < 3; ++c) mapped->palette[c * 256 + 40 + i] = colours[i][c];
    mapped.row(0)[i] = static_cast<uint8_t>(40 + i);
  }
  ASSERT_EQ(process::convertPicture(&mapped.rec, &out.rec, 3, 4), 0);
  EXPECT_EQ(rowsOf(out.rec), expected);
}

TEST(ConvertToGrey, DitherLevelsMatchExactRationalReference) {
  // One 8x8 tile per intensity, 8 levels to 128.
  OwnedPicture p;
  allocate(p, IMK_GREY, 8 * 256, 16);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 8 * 256; ++x) p.row(y)[x] = static_cast<uint8_t>(x / 8);
  for (int code = 2; code <= 7; ++code) {
    const int n = 4 << (code - 2);
    OwnedPicture out;
    ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, code, 1), 0);
    EXPECT_EQ(out->colorCount, n);
    for (int y = 0; y < 16; ++y)
      for (int x = 0; x < 8 * 256; ++x)
        ASSERT_EQ(out.row(y)[x], exactLevel(x / 8, n, x, y))
            << n << " v=" << x / 8 << " at " << x % 8 << "," << y % 8;
  }
}

TEST(ConvertToGrey, DitherTableWorkedEntries) {
  process::DitherTable t;
  // 8 levels: step 255/7. Intensity 85 = 2 steps + 23.14, i.e. frac 21
  // exactly; rounding to nearest instead of toward zero would give 20.
  process::buildDitherTable(&t, 8);
  EXPECT_EQ(t.entry[85].lo, 2);
  EXPECT_EQ(t.entry[85].frac, 21);
  EXPECT_EQ(t.entry[170].frac, 42);
  // The matrix holds 20 at (1, 7): 20 < 21 so that pixel takes level 3.
  EXPECT_EQ(process::ditherLevel(t, 85, 1, 7), 3);
  EXPECT_EQ(process::ditherLevel(t, 85, 0, 3), 2);  // 31 is not below 21
  // White: lo pulled back to N-2 and frac 63, above every matrix value.
  for (int n : {4, 8, 16, 32, 64, 128}) {
    process::buildDitherTable(&t, n);
    EXPECT_EQ(t.entry[255].lo, n - 2);
    EXPECT_EQ(t.entry[255].frac, 63);
    EXPECT_EQ(t.entry[0].lo, 0);
    EXPECT_EQ(t.entry[0].frac, 0);
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 8; ++x) {
        EXPECT_EQ(process::ditherLevel(t, 255, x, y), n - 1);
        EXPECT_EQ(process::ditherLevel(t, 0, x, y), 0);
      }
  }
  // The cell tables: 1 exactly where the matrix entry is below k.
  EXPECT_EQ(t.cells[0][7][50], 0);
  EXPECT_EQ(t.cells[0][7][51], 1);
  EXPECT_EQ(t.cells[4][4][0], 0);
  EXPECT_EQ(t.cells[4][4][1], 1);
}

TEST(ConvertToGrey, TwoHundredFiftySixNeverDithers) {
  OwnedPicture p, plain, dithered;
  test::makePattern(p, IMK_RGB, 33, 17);
  ASSERT_EQ(process::convertPicture(&p.rec, &plain.rec, 9, 4), 0);
  ASSERT_EQ(process::convertPicture(&p.rec, &dithered.rec, 9, 1), 0);
  EXPECT_EQ(pixelsOf(plain.rec), pixelsOf(dithered.rec));
  EXPECT_EQ(dithered->colorCount, 256);
  // And plain 256 greys are the luminances themselves.
  for (int y = 0; y < 17; ++y)
    for (int x = 0; x < 33; ++x) {
      const uint8_t* px = p.row(y) + 3 * x;
      ASSERT_EQ(plain.row(y)[x], (77 * px[0] + 150 * px[1] + 29 * px[2]) >> 8);
    }
}

TEST(ConvertToGrey, DitheredTrueColourReadsThreeBytesWhateverTheLayout) {
  // B,G,R layout with bytes (255, 0, 0): a pure blue pixel, but the dithered
  // path reads byte 0 as red, so its intensity is 76, not 28.
  OwnedPicture bgr, out;
  allocate(bgr, IMK_BGR, 8, 8);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) putRgb(bgr, x, y, 0, 0, 255);
  ASSERT_EQ(process::convertPicture(&bgr.rec, &out.rec, 3, 1), 0);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) ASSERT_EQ(out.row(y)[x], exactLevel(76, 8, x, y));
  // R,G,B,spare: pixel x is read from bytes 3x, 3x+1, 3x+2 of its row.
  OwnedPicture rgbx, out2;
  allocate(rgbx, IMK_RGBX, 4, 1);
  const uint8_t bytes[16] = {10, 20, 30, 200, 40, 50, 60, 210, 70, 80, 90, 220, 100, 110, 120, 230};
  std::memcpy(rgbx.row(0), bytes, 16);
  ASSERT_EQ(process::convertPicture(&rgbx.rec, &out2.rec, 7, 1), 0);
  for (int x = 0; x < 4; ++x) {
    const int g = (77 * bytes[3 * x] + 150 * bytes[3 * x + 1] + 29 * bytes[3 * x + 2]) >> 8;
    EXPECT_EQ(out2.row(0)[x], exactLevel(g, 128, x, 0)) << x;
  }
}

TEST(ConvertToGrey, DitheredColourMappedUsesPaletteLuminance) {
  OwnedPicture p, out;
  allocate(p, IMK_MAPPED, 16, 16);
  for (int i = 0; i < 256; ++i) {
    p->palette[i] = static_cast<uint8_t>(i);
    p->palette[256 + i] = static_cast<uint8_t>(255 - i);
    p->palette[512 + i] = static_cast<uint8_t>(i * 3);
  }
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) p.row(y)[x] = static_cast<uint8_t>(y * 16 + x);
  ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, 4, 1), 0);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) {
      const int i = y * 16 + x;
      const int g = (77 * i + 150 * (255 - i) + 29 * ((i * 3) & 255)) >> 8;
      ASSERT_EQ(out.row(y)[x], exactLevel(g, 16, x, y));
    }
}

// ---------------------------------------------------------------- true colour

TEST(ConvertToTrueColour, LevelsAndPalettesBecomeRgb) {
  OwnedPicture bin, grey, mapped, out;
  allocate(bin, IMK_BINARY, 2, 1);
  bin.row(0)[1] = 1;
  ASSERT_EQ(process::convertPicture(&bin.rec, &out.rec, 19, 0), 0);
  EXPECT_EQ(out->type, IMK_RGB);
  EXPECT_EQ(pixelsOf(out.rec), (std::vector<uint8_t>{0, 0, 0, 255, 255, 255}));
  greyPicture(grey, 4, {{0, 1, 2, 3}});
  out.reset();
  ASSERT_EQ(process::convertPicture(&grey.rec, &out.rec, 19, 0), 0);
  EXPECT_EQ(pixelsOf(out.rec),
            (std::vector<uint8_t>{0, 0, 0, 85, 85, 85, 170, 170, 170, 255, 255, 255}));
  allocate(mapped, IMK_MAPPED, 2, 1);
  mapped->palette[7] = 1, mapped->palette[256 + 7] = 2, mapped->palette[512 + 7] = 3;
  mapped->palette[9] = 200, mapped->palette[256 + 9] = 100, mapped->palette[512 + 9] = 50;
  mapped.row(0)[0] = 9, mapped.row(0)[1] = 7;
  out.reset();
  ASSERT_EQ(process::convertPicture(&mapped.rec, &out.rec, 19, 0), 0);
  EXPECT_EQ(pixelsOf(out.rec), (std::vector<uint8_t>{200, 100, 50, 1, 2, 3}));
}

TEST(ConvertToTrueColour, TrueColourIsNotRepacked) {
  for (uint16_t type : {IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR}) {
    OwnedPicture p, out;
    test::makePattern(p, type, 7, 5);
    const Snapshot before(p.rec);
    ASSERT_EQ(process::convertPicture(&p.rec, nullptr, 19, 0), 0);
    EXPECT_TRUE(before.same(p.rec));
    ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, 19, 0), 0);
    EXPECT_TRUE(before.same(p.rec));
    EXPECT_EQ(out->type, type);
    EXPECT_EQ(pixelsOf(out.rec), pixelsOf(p.rec));
  }
}

// ---------------------------------------------------------------- dispatcher

TEST(ConvertPicture, UnassignedCodesDoNothing) {
  OwnedPicture p, out;
  test::makePattern(p, IMK_RGB, 6, 6);
  const Snapshot before(p.rec);
  for (int code : {0, 8, 10, 11, 20, 99, -3}) {
    EXPECT_EQ(process::convertPicture(&p.rec, &out.rec, code, 1), 0);
    EXPECT_EQ(process::convertPicture(&p.rec, nullptr, code, 4), 0);
    EXPECT_TRUE(before.same(p.rec));
    EXPECT_EQ(out->pixels, nullptr);
  }
}

TEST(ConvertPicture, EveryCodeAndKindKeepsSourceWithDestinationAndReplacesWithout) {
  struct Case {
    int code, method;
    uint16_t type;
    int count;  // expected colour count, 0: not checked
  };
  const Case cases[] = {
      {1, 0, IMK_BINARY, 0},    {1, 1, IMK_BINARY, 0},    {1, 2, IMK_BINARY, 0},
      {1, 3, IMK_BINARY, 0},    {1, 5, IMK_BINARY, 0},    {2, 4, IMK_GREY, 4},
      {3, 1, IMK_GREY, 8},      {4, 4, IMK_GREY, 16},     {5, 1, IMK_GREY, 32},
      {6, 4, IMK_GREY, 64},     {7, 1, IMK_GREY, 128},    {9, 4, IMK_GREY, 256},
      {12, 1, IMK_MAPPED, 8},   {13, 1, IMK_MAPPED, 16},  {14, 1, IMK_MAPPED, 32},
      {15, 1, IMK_MAPPED, 64},  {16, 1, IMK_MAPPED, 256}, {17, 1, IMK_MAPPED, 216},
      {18, 1, IMK_MAPPED, 256}, {12, 4, IMK_MAPPED, 0},   {18, 4, IMK_MAPPED, 0},
      {19, 0, IMK_RGB, 0},
  };
  const struct {
    uint16_t type;
    int levels;
  } kinds[] = {{IMK_BINARY, 2}, {IMK_GREY, 16}, {IMK_GREY, 256}, {IMK_MAPPED, 200},
               {IMK_RGB, 0},    {IMK_RGBX, 0},  {IMK_BGR, 0},    {IMK_XBGR, 0}};
  for (const auto& kind : kinds)
    for (const Case& c : cases) {
      const std::string what = std::to_string(kind.type) + " code " + std::to_string(c.code) +
                               " method " + std::to_string(c.method);
      OwnedPicture p, out;
      test::makePattern(p, kind.type, 23, 11, kind.levels > 0 ? kind.levels : 256);
      p->attribute = 77;
      const Snapshot before(p.rec);
      ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, c.code, c.method), 0) << what;
      EXPECT_TRUE(before.same(p.rec)) << what;
      ASSERT_NE(out->pixels, nullptr) << what;
      const bool sameKind = (c.code == 1 && kind.type == IMK_BINARY) ||
                            (c.code == 19 && kind.type != IMK_BINARY && kind.type != IMK_GREY &&
                             kind.type != IMK_MAPPED);
      EXPECT_EQ(out->type, sameKind ? kind.type : c.type) << what;
      EXPECT_EQ(out->width, 23);
      EXPECT_EQ(out->height, 11);
      EXPECT_EQ(out->attribute, 77) << what;
      EXPECT_EQ(out->bitsPerComponent, p->bitsPerComponent);
      if (c.count) {
        EXPECT_EQ(out->colorCount, c.count) << what;
      }
      // Without destination the source becomes that same result.
      const std::vector<uint8_t> expected = pixelsOf(out.rec);
      ASSERT_EQ(process::convertPicture(&p.rec, nullptr, c.code, c.method), 0) << what;
      EXPECT_EQ(p->type, out->type) << what;
      EXPECT_EQ(p->colorCount, out->colorCount) << what;
      EXPECT_EQ(pixelsOf(p.rec), expected) << what;
    }
}

TEST(ConvertPicture, ColourCodesHandOverToColourReduction) {
  OwnedPicture p;
  test::makePattern(p, IMK_RGB, 40, 30);
  const int expectedCube[] = {8, 16, 32, 64, 256, 216, 256};
  for (int code = 12; code <= 18; ++code) {
    OwnedPicture out;
    ASSERT_EQ(process::convertPicture(&p.rec, &out.rec, code, 1), 0);
    EXPECT_EQ(out->type, IMK_MAPPED);
    EXPECT_EQ(out->colorCount, expectedCube[code - 12]) << code;
  }
}

// ---------------------------------------------------------------- menu items

TEST(ConversionItems, ThirtyTwoItemsInMenuOrder) {
  EXPECT_EQ(process::conversionItem(0), nullptr);
  EXPECT_EQ(process::conversionItem(33), nullptr);
  std::set<std::string> labels;
  int binary = 0, grey = 0, colours = 0, trueColour = 0;
  for (int i = 1; i <= process::kConversionItemCount; ++i) {
    const process::ConversionItem* item = process::conversionItem(i);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->item, i);
    labels.insert(item->label);
    if (item->code == 1) ++binary;
    if ((item->code >= 2 && item->code <= 7) || item->code == 9) ++grey;
    if (item->code >= 12 && item->code <= 18) ++colours;
    if (item->code == 19) ++trueColour;
  }
  EXPECT_EQ(labels.size(), 32u);
  EXPECT_EQ(binary, 4);
  EXPECT_EQ(grey, 13);  // 7 plain (4..256) and 6 dithered (no dithered 256)
  EXPECT_EQ(colours, 14);
  EXPECT_EQ(trueColour, 1);
  EXPECT_STREQ(process::conversionItem(2)->label, "Binary (Floyd Steinberg)");
  EXPECT_EQ(process::conversionItem(2)->method, 5);
  EXPECT_STREQ(process::conversionItem(11)->label, "256 Grey scale");
  EXPECT_STREQ(process::conversionItem(19)->label, "16 colors (Adaptive)");
  EXPECT_EQ(process::conversionItem(19)->method, 4);
  EXPECT_STREQ(process::conversionItem(29)->label, "128 colors (Dither)");
  EXPECT_EQ(process::conversionItem(29)->code, 16);
  EXPECT_EQ(process::conversionItem(29)->method, 1);
}

TEST(ConversionItems, DispatcherAppliesTheItem) {
  OwnedPicture p;
  test::makePattern(p, IMK_RGB, 30, 20);
  const Snapshot before(p.rec);
  const struct {
    int item;
    uint16_t type;
    int count;
  } expected[] = {{2, IMK_BINARY, 2},    {11, IMK_GREY, 256},   {12, IMK_GREY, 4},
                  {29, IMK_MAPPED, 256}, {30, IMK_MAPPED, 216}, {32, IMK_RGB, 0}};
  for (const auto& e : expected) {
    OwnedPicture out;
    ASSERT_EQ(process::convertByItem(&p.rec, &out.rec, e.item), 0);
    EXPECT_EQ(out->type, e.type) << e.item;
    if (e.count) {
      EXPECT_EQ(out->colorCount, e.count) << e.item;
    }
    EXPECT_TRUE(before.same(p.rec));
  }
  // Floyd-Steinberg item equals the routine with method 5.
  OwnedPicture viaItem, direct;
  ASSERT_EQ(process::convertByItem(&p.rec, &viaItem.rec, 2), 0);
  ASSERT_EQ(process::convertToBinary(&p.rec, &direct.rec, 5), 0);
  EXPECT_EQ(pixelsOf(viaItem.rec), pixelsOf(direct.rec));
  OwnedPicture none;
  EXPECT_EQ(process::convertByItem(&p.rec, &none.rec, 0), 0);
  EXPECT_EQ(process::convertByItem(&p.rec, &none.rec, 33), 0);
  EXPECT_EQ(none->pixels, nullptr);
}

}  // namespace
