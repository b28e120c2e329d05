// The destination convention and the helpers every operation uses.
#include "process/operation.h"

#include <gtest/gtest.h>

#include "tests/support/test_support.h"

namespace {

TEST(LevelRamp, WorkedValuesInBothDirections) {
  uint8_t up[4];
  process::levelRamp(up, 4, 256);  // 4 levels to intensities
  EXPECT_EQ(up[0], 0);
  EXPECT_EQ(up[1], 85);
  EXPECT_EQ(up[2], 170);
  EXPECT_EQ(up[3], 255);
  uint8_t down[256];
  process::levelRamp(down, 256, 4);  // intensities to 4 levels, truncating
  EXPECT_EQ(down[0], 0);
  EXPECT_EQ(down[84], 0);
  EXPECT_EQ(down[85], 1);
  EXPECT_EQ(down[254], 2);
  EXPECT_EQ(down[255], 3);
}

TEST(Deliver, WithDestinationTheSourceIsKept) {
  test::OwnedPicture src, dst;
  test::makePattern(src, IMK_GREY, 5, 5);
  src->attribute = 9;
  unsigned char* original = src->pixels;
  ASSERT_EQ(process::duplicate(&src.rec, &dst.rec), 0);
  EXPECT_EQ(src->pixels, original);
  EXPECT_NE(dst->pixels, original);
  EXPECT_EQ(dst->attribute, 9);
  EXPECT_EQ(test::toRgb(src.rec), test::toRgb(dst.rec));
}

TEST(Deliver, WithoutDestinationTheSourceIsReplaced) {
  test::OwnedPicture src;
  test::makePattern(src, IMK_RGB, 4, 4);
  ImageRecord result;
  ASSERT_TRUE(process::newResult(src.rec, result, IMK_GREY, 2, 3));
  EXPECT_EQ(process::deliver(&src.rec, nullptr, result), 0);
  EXPECT_EQ(src->type, IMK_GREY);
  EXPECT_EQ(src->width, 2);
  EXPECT_EQ(src->height, 3);
}

}  // namespace
