// Texts shown for codec results, picture depths and file colour counts.
#include "core/messages.h"

#include <gtest/gtest.h>

namespace {

TEST(PictureErrorText, EveryCodeHasItsMessage) {
  const char* path = "/tmp/a.gif";
  EXPECT_EQ(PictureErrorText(path, 1, nullptr), "Not enough memory");
  EXPECT_EQ(PictureErrorText(path, 2, nullptr), "Don't know how to read \n</tmp/a.gif>");
  EXPECT_EQ(PictureErrorText(path, 3, nullptr), "Can't read file \n</tmp/a.gif>");
  EXPECT_EQ(PictureErrorText(path, 4, nullptr), "Can't open file \n</tmp/a.gif>");
  EXPECT_EQ(PictureErrorText(path, 5, nullptr), "Can't write file \n</tmp/a.gif>");
  EXPECT_EQ(PictureErrorText(path, 6, nullptr), "Contact your dealer");
  EXPECT_EQ(PictureErrorText(path, 7, nullptr), "Can't save in this format !!");
  EXPECT_EQ(PictureErrorText(path, 9, nullptr), "Corrupt image");
  EXPECT_EQ(PictureErrorText(path, 10, nullptr), "Problem with JPEG");
}

TEST(PictureErrorText, BadFileUsesTheLibraryDetailWhenGiven) {
  EXPECT_EQ(PictureErrorText("x", 8, "bad header"), "bad header");
  EXPECT_EQ(PictureErrorText("x", 8, nullptr), "Bad picture file");
  EXPECT_EQ(PictureErrorText("x", 8, ""), "Bad picture file");
}

TEST(PictureErrorText, ZeroAndOutOfRangeCodesFallToTheLastRow) {
  for (int code : {0, 11, 15, 255, -1, 65536 + 99})
    EXPECT_EQ(PictureErrorText("x", code, "detail"), "Contact your dealer") << code;
  // The code is taken as 16 bits: 65536 + 4 is code 4.
  EXPECT_EQ(PictureErrorText("p", 65536 + 4, nullptr), "Can't open file \n<p>");
}

TEST(ImageDepthLabel, KindsGiveDepthAndText) {
  ImageRecord r{};
  r.type = 1;
  EXPECT_EQ(ImageDepthLabel(r).depth, 1);
  EXPECT_EQ(ImageDepthLabel(r).text, "Binary");
  r.type = 2;
  r.colorCount = 16;
  EXPECT_EQ(ImageDepthLabel(r).depth, 8);
  EXPECT_EQ(ImageDepthLabel(r).text, "16 Grey Scale");
  r.type = 4;
  r.colorCount = 200;
  EXPECT_EQ(ImageDepthLabel(r).text, "200 Colors");
  for (uint16_t t : {256, 512, 1024, 2048, 7}) {
    r.type = t;
    EXPECT_EQ(ImageDepthLabel(r).depth, 24);
    EXPECT_EQ(ImageDepthLabel(r).text, "True Colors");
  }
}

TEST(FileColorsText, TwentyFourBitsAndAboveAreSixteenMillions) {
  EXPECT_EQ(FileColorsText(1, 8), "# Colors:  256");
  EXPECT_EQ(FileColorsText(1, 1), "# Colors:  2");
  EXPECT_EQ(FileColorsText(1, 23), "# Colors:  8388608");
  EXPECT_EQ(FileColorsText(3, 8), "# Colors: 16 Millions");
  EXPECT_EQ(FileColorsText(4, 16), "# Colors: 16 Millions");
}

}  // namespace
