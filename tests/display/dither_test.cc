// The dither tables: channel tables, the 8x8 cube matrix and the 16x16
// threshold matrix of the 4- and 2-bit converters. No server needed.
#include <gtest/gtest.h>

#include <set>

#include "display/colormap.h"
#include "display/converter.h"

namespace {

// The cube thresholds as published for the viewer's dither, row by row.
constexpr int kGivenThresholds[8][8] = {
    {0, 38, 9, 47, 2, 40, 11, 50},  {25, 12, 35, 22, 27, 15, 37, 24},
    {6, 44, 3, 41, 8, 47, 5, 43},   {31, 19, 28, 15, 34, 21, 31, 18},
    {1, 39, 11, 49, 0, 39, 10, 48}, {27, 14, 36, 23, 26, 13, 35, 23},
    {7, 46, 4, 43, 7, 45, 3, 42},   {33, 20, 30, 17, 32, 19, 29, 16},
};

TEST(DitherTables, RedTableOfTheLargestCubeEndsAtLevelSixFraction63) {
  const DitherCube* cube = getDitherCube(8, 8, 4);
  ASSERT_EQ(cube->redLevels, 8u);
  // Red weighs G*B = 32 in the cube index.
  EXPECT_EQ(cube->redTable[255].fraction, 63);
  EXPECT_EQ(cube->redTable[255].lowTerm, 6 * 32);
  EXPECT_EQ(cube->redTable[255].highTerm, 7 * 32);
  EXPECT_EQ(cube->redTable[0].fraction, 0);
  EXPECT_EQ(cube->redTable[0].lowTerm, 0);
  EXPECT_EQ(cube->redTable[0].highTerm, 32);
  EXPECT_EQ(cube->blueTable[255].highTerm, 3);
  EXPECT_EQ(cube->greenTable[255].highTerm, 7 * 4);
  EXPECT_EQ(getDitherCube(8, 8, 4), cube) << "cached per size";
}

TEST(DitherTables, ConsistencyLinesStaySilent) {
  testing::internal::CaptureStdout();
  for (uint32_t n = 2; n <= 16; ++n) getDitherCube(n, 3, 7);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(DitherTables, MatrixCellsFollowTheGivenThresholds) {
  const DitherCube* cube = getDitherCube(6, 6, 6);
  for (int row = 0; row < 8; ++row) {
    for (int col = 0; col < 8; ++col) {
      const uint8_t* cell = cube->matrix[row][col];
      const int t = kGivenThresholds[row][col];
      for (int f = 0; f < 64; ++f)
        ASSERT_EQ(cell[f], f > t ? 1 : 0) << "cell " << row << "," << col << " fraction " << f;
    }
  }
}

TEST(DitherTables, EveryCubeColourIsReproducedAtEveryPosition) {
  // A colour that lies exactly on the cube (fraction 0, or 255 at the top)
  // must give its own cell everywhere, whatever the thresholds.
  const unsigned sizes[][3] = {{8, 8, 4}, {6, 6, 6}, {4, 8, 4}, {4, 4, 4}, {2, 2, 2}};
  for (const auto& s : sizes) {
    const DitherCube* cube = getDitherCube(s[0], s[1], s[2]);
    for (unsigned r = 0; r < s[0]; ++r)
      for (unsigned g = 0; g < s[1]; ++g)
        for (unsigned b = 0; b < s[2]; ++b) {
          const unsigned rv = r * 255 / (s[0] - 1), gv = g * 255 / (s[1] - 1),
                         bv = b * 255 / (s[2] - 1);
          for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x)
              ASSERT_EQ(ditherIndex(*cube, rv, gv, bv, x, y), (r * s[1] + g) * s[2] + b)
                  << s[0] << "x" << s[1] << "x" << s[2] << " at " << x << "," << y;
        }
  }
}

TEST(DitherTables, MidGreyMixesTheTwoNeighbouringLevels) {
  const DitherCube* cube = getDitherCube(8, 8, 4);
  std::set<unsigned> seen;
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) seen.insert(ditherIndex(*cube, 128, 128, 128, x, y));
  EXPECT_GT(seen.size(), 1u);
  for (unsigned index : seen) {
    const unsigned r = index / 32, g = index / 4 % 8, b = index % 4;
    // 128 lies between red/green levels 3 and 4 of 8 and blue levels 1 and 2 of 4.
    EXPECT_TRUE(r == 3 || r == 4) << index;
    EXPECT_TRUE(g == 3 || g == 4) << index;
    EXPECT_TRUE(b == 1 || b == 2) << index;
  }
}

TEST(Bayer, FirstTwoRowsAndEveryValueOnce) {
  const unsigned row0[] = {0, 128, 32, 160, 8, 136, 40, 168, 2, 130, 34, 162, 10, 138, 42, 170};
  const unsigned row1[] = {192, 64, 224, 96, 200, 72, 232, 104,
                           194, 66, 226, 98, 202, 74, 234, 106};
  for (int x = 0; x < 16; ++x) {
    EXPECT_EQ(bayerThreshold(x, 0), row0[x]) << x;
    EXPECT_EQ(bayerThreshold(x, 1), row1[x]) << x;
  }
  std::set<unsigned> values;
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) values.insert(bayerThreshold(x, y));
  EXPECT_EQ(values.size(), 256u);
  EXPECT_EQ(bayerThreshold(16, 17), bayerThreshold(0, 1)) << "repeats every 16 pixels";
}

}  // namespace
