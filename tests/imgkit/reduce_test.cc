// Area-averaging reduction used by reduced (preview) loads.
#include <gtest/gtest.h>

#include "imgkit/internal.h"

namespace {

TEST(ReducedSize, KeepsAspectAndNeverEnlarges) {
  int32_t w, h;
  imk::reducedSize(6000, 4000, 128, 128, &w, &h);
  EXPECT_EQ(w, 128);
  EXPECT_EQ(h, 85);
  imk::reducedSize(4000, 6000, 128, 128, &w, &h);
  EXPECT_EQ(w, 85);
  EXPECT_EQ(h, 128);
  imk::reducedSize(100, 50, 128, 128, &w, &h);
  EXPECT_EQ(w, 100);
  EXPECT_EQ(h, 50);
  imk::reducedSize(10000, 1, 100, 100, &w, &h);
  EXPECT_EQ(w, 100);
  EXPECT_EQ(h, 1);
}

TEST(Reduce, TwoToOneAveragesEachBlockExactly) {
  imk::Picture p;
  ASSERT_TRUE(p.allocate(IMK_RGB, 4, 2));
  const uint8_t vals[2][4] = {{0, 100, 200, 255}, {50, 150, 10, 30}};
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 4; ++x)
      for (int c = 0; c < 3; ++c) p.row(y)[x * 3 + c] = static_cast<uint8_t>(vals[y][x] / (c + 1));
  ASSERT_TRUE(imk::reducePicture(p, 2, 1));
  ASSERT_EQ(p.rec().width, 2);
  ASSERT_EQ(p.rec().height, 1);
  // (0+100+50+150)/4 = 75 and (200+255+10+30)/4 = 123.75 -> 124
  EXPECT_EQ(p.row(0)[0], 75);
  EXPECT_EQ(p.row(0)[3], 124);
  // Green channel is value/2 per pixel: (0+50+25+75)/4 = 37.5 -> 38
  EXPECT_EQ(p.row(0)[1], 38);
}

TEST(Reduce, FractionalRatioWeighsPartialPixels) {
  // Three pixels 0, 90, 255 into two: cell 0 = 0 + half of 90 over 1.5 = 30,
  // cell 1 = (45 + 255) / 1.5 = 200.
  imk::Picture p;
  ASSERT_TRUE(p.allocate(IMK_GREY, 3, 1));
  p.rec().colorCount = 256;
  p.row(0)[0] = 0, p.row(0)[1] = 90, p.row(0)[2] = 255;
  ASSERT_TRUE(imk::reducePicture(p, 2, 1));
  ASSERT_EQ(p.rec().width, 2);
  EXPECT_EQ(p.rec().type, IMK_GREY);
  EXPECT_EQ(p.row(0)[0], 30);
  EXPECT_EQ(p.row(0)[1], 200);
}

TEST(Reduce, UniformPictureStaysUniformAndBinaryBecomesGrey) {
  imk::Picture p;
  ASSERT_TRUE(p.allocate(IMK_BINARY, 997, 631));
  for (int y = 0; y < 631; ++y)
    for (int x = 0; x < 997; ++x) p.row(y)[x] = static_cast<uint8_t>((x + y) & 1);
  ASSERT_TRUE(imk::reducePicture(p, 64, 64));
  EXPECT_EQ(p.rec().type, IMK_GREY);
  EXPECT_EQ(p.rec().width, 64);
  EXPECT_EQ(p.rec().height, 41);
  // A checkerboard averages to mid grey everywhere (127 or 128).
  for (int y = 0; y < p.rec().height; ++y)
    for (int x = 0; x < p.rec().width; ++x) {
      EXPECT_GE(p.row(y)[x], 126);
      EXPECT_LE(p.row(y)[x], 129);
    }
}

TEST(Reduce, AlphaIsAveragedInKind512) {
  imk::Picture p;
  ASSERT_TRUE(p.allocate(IMK_RGBX, 2, 2));
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 2; ++x) p.row(y)[x * 4 + 3] = (x + y) ? 0 : 200;
  ASSERT_TRUE(imk::reducePicture(p, 1, 1));
  EXPECT_EQ(p.rec().type, IMK_RGBX);
  EXPECT_EQ(p.row(0)[3], 50);
}

}  // namespace
