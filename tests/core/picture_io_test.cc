// The plain load and the undo copy around the codec library.
#include "core/picture_io.h"

#include <gtest/gtest.h>

#include <cstring>

#include "core/settings.h"
#include "tests/support/test_support.h"

namespace {

TEST(CopyPicture, SourceGetsTheCopyAndDestinationTheOriginalBuffers) {
  test::OwnedPicture src, dst, old;
  test::makePattern(src, IMK_MAPPED, 9, 4, 20);
  src->attribute = 77;
  test::makePattern(old, IMK_GREY, 3, 3);
  dst.rec = old.rec;  // destination already holds a picture: it must be freed
  std::memset(&old.rec, 0, sizeof old.rec);
  unsigned char* originalPixels = src->pixels;
  const std::vector<uint8_t> before = test::toRgb(src.rec);

  ASSERT_EQ(CopyPicture(&src.rec, &dst.rec, false), 1);
  EXPECT_EQ(dst->pixels, originalPixels);
  EXPECT_NE(src->pixels, originalPixels);
  EXPECT_EQ(test::toRgb(src.rec), before);
  EXPECT_EQ(test::toRgb(dst.rec), before);
  EXPECT_EQ(src->attribute, 77);
  EXPECT_EQ(src->colorCount, 20);
  EXPECT_EQ(std::memcmp(src->palette, dst->palette, 768), 0);
}

TEST(CopyPicture, RotatedCopyExchangesSizesAndLeavesPixelsToTheCaller) {
  test::OwnedPicture src, dst;
  test::makePattern(src, IMK_RGB, 7, 3);
  ASSERT_EQ(CopyPicture(&src.rec, &dst.rec, true), 1);
  EXPECT_EQ(src->width, 3);
  EXPECT_EQ(src->height, 7);
  EXPECT_EQ(dst->width, 7);
  EXPECT_EQ(dst->height, 3);
  // Fresh buffers are zeroed by the library; nothing was copied into them.
  for (int y = 0; y < 7; ++y)
    for (int x = 0; x < 9; ++x) EXPECT_EQ(src.row(y)[x], 0);
}

TEST(FreePicture, ClearsAndIsSafeTwice) {
  test::OwnedPicture p;
  test::makePattern(p, IMK_BINARY, 4, 4);
  FreePicture(&p.rec);
  EXPECT_EQ(p->pixels, nullptr);
  EXPECT_EQ(p->width, 0);
  FreePicture(&p.rec);
}

TEST(LoadPicture, MissingFileGivesCannotOpenAndEmptyRecord) {
  test::OwnedPicture p;
  EXPECT_EQ(LoadPicture("/nonexistent.png", &p.rec, -1, 64, 64), 4);
  EXPECT_EQ(p->pixels, nullptr);
}

}  // namespace
