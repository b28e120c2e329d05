// Picture records: allocation of every kind, release, and the row helpers.
#include <gtest/gtest.h>

#include "imgkit/internal.h"
#include "tests/support/test_support.h"

namespace {

struct KindCase {
  uint16_t type;
  int bytesPerPixel;
};

TEST(Allocation, EveryKindGetsItsLayoutAndBothBuffers) {
  const KindCase cases[] = {{IMK_BINARY, 1}, {IMK_GREY, 1}, {IMK_MAPPED, 1}, {IMK_RGB, 3},
                            {IMK_RGBX, 4},   {IMK_BGR, 3},  {IMK_XBGR, 4}};
  for (const KindCase& c : cases) {
    SCOPED_TRACE(c.type);
    ImageRecord r{};
    ASSERT_NE(imkAllock(&r, c.type, 8, 13, 5), 0);
    EXPECT_EQ(r.width, 13);
    EXPECT_EQ(r.height, 5);
    EXPECT_EQ(r.type, c.type);
    EXPECT_EQ(r.bytesPerPixel, c.bytesPerPixel);
    EXPECT_GE(r.bytesPerLine, 13 * c.bytesPerPixel);
    EXPECT_EQ(r.bitsPerComponent, 8);
    ASSERT_NE(r.pixels, nullptr);
    ASSERT_NE(r.palette, nullptr);
    // The whole buffer is addressable through the stride.
    r.pixels[static_cast<size_t>(r.bytesPerLine) * r.height - 1] = 7;
    r.palette[767] = 1;
    imkFree(&r);
  }
}

TEST(Allocation, ImpossibleRequestsFailAndLeaveTheRecordAlone) {
  ImageRecord r{};
  r.width = 99;
  EXPECT_EQ(imkAllock(&r, 3, 8, 10, 10), 0);  // no such kind
  EXPECT_EQ(imkAllock(&r, IMK_RGB, 8, 0, 10), 0);
  EXPECT_EQ(imkAllock(&r, IMK_RGB, 8, 10, -1), 0);
  EXPECT_EQ(imkAllock(&r, IMK_RGBX, 8, 1 << 21, 1 << 21), 0);
  EXPECT_EQ(r.width, 99);
  EXPECT_EQ(r.pixels, nullptr);
}

TEST(Allocation, FreeingAClearedRecordTwiceIsHarmless) {
  ImageRecord r{};
  ASSERT_NE(imkAllock(&r, IMK_GREY, 8, 4, 4), 0);
  imkFree(&r);
  std::memset(&r, 0, sizeof r);
  imkFree(&r);
  EXPECT_EQ(r.pixels, nullptr);
  EXPECT_EQ(r.palette, nullptr);
}

TEST(Allocation, PixelLimitRejectsHugeDeclaredSizes) {
  const size_t saved = imk::pixelByteLimit();
  imk::setPixelByteLimit(1000);
  EXPECT_TRUE(imk::sizeAcceptable(10, 10, 4));
  EXPECT_FALSE(imk::sizeAcceptable(100, 100, 1));
  EXPECT_FALSE(imk::sizeAcceptable(int64_t{1} << 40, 1, 1));
  imk::setPixelByteLimit(saved);
}

TEST(RowHelpers, EveryKindGivesTheSameColours) {
  // One row red, green, blue, white, black in every true-colour layout.
  const uint8_t rgb[5][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 255}, {0, 0, 0}};
  for (uint16_t type : {IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR}) {
    SCOPED_TRACE(type);
    test::OwnedPicture p;
    ASSERT_NE(imkAllock(&p.rec, type, 8, 5, 1), 0);
    for (int x = 0; x < 5; ++x) {
      uint8_t* px = p.row(0) + x * p->bytesPerPixel;
      switch (type) {
        case IMK_RGB: px[0] = rgb[x][0], px[1] = rgb[x][1], px[2] = rgb[x][2]; break;
        case IMK_RGBX: px[0] = rgb[x][0], px[1] = rgb[x][1], px[2] = rgb[x][2], px[3] = 128; break;
        case IMK_BGR: px[0] = rgb[x][2], px[1] = rgb[x][1], px[2] = rgb[x][0]; break;
        case IMK_XBGR: px[0] = 9, px[1] = rgb[x][2], px[2] = rgb[x][1], px[3] = rgb[x][0]; break;
      }
    }
    uint8_t out[20], grey[5];
    imk::rowToRgba(p.rec, 0, out);
    imk::rowToGrey(p.rec, 0, grey);
    for (int x = 0; x < 5; ++x) {
      EXPECT_EQ(out[x * 4 + 0], rgb[x][0]);
      EXPECT_EQ(out[x * 4 + 1], rgb[x][1]);
      EXPECT_EQ(out[x * 4 + 2], rgb[x][2]);
      EXPECT_EQ(out[x * 4 + 3], type == IMK_RGBX ? 128 : 255);
    }
    // Luminance (77R + 150G + 29B) >> 8 worked by hand.
    EXPECT_EQ(grey[0], 76);
    EXPECT_EQ(grey[1], 149);
    EXPECT_EQ(grey[2], 28);
    EXPECT_EQ(grey[3], 255);
    EXPECT_EQ(grey[4], 0);
  }
}

TEST(RowHelpers, GreyLevelsFollowTheRamp) {
  test::OwnedPicture p;
  ASSERT_NE(imkAllock(&p.rec, IMK_GREY, 8, 4, 1), 0);
  p->colorCount = 4;
  for (int x = 0; x < 4; ++x) p.row(0)[x] = static_cast<uint8_t>(x);
  uint8_t grey[4];
  imk::rowToGrey(p.rec, 0, grey);
  EXPECT_EQ(grey[0], 0);
  EXPECT_EQ(grey[1], 85);
  EXPECT_EQ(grey[2], 170);
  EXPECT_EQ(grey[3], 255);
}

TEST(SimplifyMapped, BlackWhitePaletteBecomesBinaryEvenWhenInverted) {
  test::OwnedPicture p;
  ASSERT_NE(imkAllock(&p.rec, IMK_MAPPED, 1, 3, 1), 0);
  p->colorCount = 2;
  // entry 0 white, entry 1 black
  for (int c = 0; c < 3; ++c) p->palette[c * 256] = 255, p->palette[c * 256 + 1] = 0;
  p.row(0)[0] = 0, p.row(0)[1] = 1, p.row(0)[2] = 0;
  imk::simplifyMappedPicture(p.rec);
  EXPECT_EQ(p->type, IMK_BINARY);
  EXPECT_EQ(p.row(0)[0], 1);
  EXPECT_EQ(p.row(0)[1], 0);
  EXPECT_EQ(p.row(0)[2], 1);
}

TEST(SimplifyMapped, ColouredTwoEntryPaletteStaysMapped) {
  test::OwnedPicture p;
  ASSERT_NE(imkAllock(&p.rec, IMK_MAPPED, 1, 2, 1), 0);
  p->colorCount = 2;
  p->palette[0] = 0, p->palette[1] = 255, p->palette[256 + 1] = 0, p->palette[512 + 1] = 0;
  imk::simplifyMappedPicture(p.rec);
  EXPECT_EQ(p->type, IMK_MAPPED);
}

}  // namespace
