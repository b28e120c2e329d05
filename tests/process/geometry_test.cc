// Flips, quarter turns, crop and canvas: hand-worked small pictures, the
// involutions, netpbm's pamflip as an independent reference, and every
// picture kind.
#include "process/geometry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "process/operation.h"
#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;

const uint16_t kAllKinds[] = {IMK_BINARY, IMK_GREY, IMK_MAPPED, IMK_RGB,
                              IMK_RGBX,   IMK_BGR,  IMK_XBGR};

// A picture with the given bytes. With `bufferWidth` larger than `width` the
// rows are padded (the library packs rows, but records from elsewhere may not).
void makePicture(OwnedPicture& pic, uint16_t type, int width, int height,
                 const std::vector<int>& bytes, int bufferWidth = 0) {
  pic.reset();
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, std::max(width, bufferWidth), height));
  pic->width = width;
  const size_t rowBytes = static_cast<size_t>(width) * pic->bytesPerPixel;
  ASSERT_EQ(bytes.size(), rowBytes * height);
  for (int y = 0; y < height; ++y)
    for (size_t i = 0; i < rowBytes; ++i)
      pic.row(y)[i] = static_cast<uint8_t>(bytes[y * rowBytes + i]);
}

std::vector<int> packed(const ImageRecord& pic) {
  std::vector<int> out;
  for (int y = 0; y < pic.height; ++y)
    for (int i = 0; i < pic.width * pic.bytesPerPixel; ++i)
      out.push_back(pic.pixels[static_cast<size_t>(y) * pic.bytesPerLine + i]);
  return out;
}

std::vector<int> rowBuffer(const ImageRecord& pic, int y) {
  const uint8_t* r = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
  return std::vector<int>(r, r + pic.bytesPerLine);
}

std::vector<uint8_t> snapshot(const ImageRecord& pic) {
  std::vector<uint8_t> out(pic.pixels,
                           pic.pixels + static_cast<size_t>(pic.bytesPerLine) * pic.height);
  out.insert(out.end(), pic.palette, pic.palette + 768);
  const uint8_t* header = reinterpret_cast<const uint8_t*>(&pic);
  out.insert(out.end(), header, header + offsetof(ImageRecord, palette));
  return out;
}

// Distinct values in every pixel and byte (a picture of `type`).
void numbered(OwnedPicture& pic, uint16_t type, int width, int height) {
  test::makePattern(pic, type, width, height, 256);
  for (int y = 0; y < height; ++y)
    for (int i = 0; i < width * pic->bytesPerPixel; ++i)
      pic.row(y)[i] =
          static_cast<uint8_t>(type == IMK_BINARY ? (i * 3 + y) % 5 % 2 : i * 7 + y * 31 + 1);
  if (type == IMK_MAPPED) pic->colorCount = 200;
}

// Pixel (x, y) as the bytes of one pixel.
std::vector<int> pixelAt(const ImageRecord& pic, int x, int y) {
  const uint8_t* p = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine +
                     static_cast<size_t>(x) * pic.bytesPerPixel;
  return std::vector<int>(p, p + pic.bytesPerPixel);
}

// ---------------------------------------------------------------------------
// Flips

TEST(FlipHorizontal, MirrorsWholeRows) {
  OwnedPicture src, dst;
  // RGB, 4 pixels: 12 bytes, no padding.
  makePicture(src, IMK_RGB, 4, 1, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  ASSERT_EQ(process::flipHorizontal(&src.rec, &dst.rec), 0);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{10, 11, 12, 7, 8, 9, 4, 5, 6, 1, 2, 3}));
  makePicture(src, IMK_GREY, 8, 2, {1, 2, 3, 4, 5, 6, 7, 8, 11, 12, 13, 14, 15, 16, 17, 18});
  dst.reset();
  ASSERT_EQ(process::flipHorizontal(&src.rec, &dst.rec), 0);
  EXPECT_EQ(packed(dst.rec),
            (std::vector<int>{8, 7, 6, 5, 4, 3, 2, 1, 18, 17, 16, 15, 14, 13, 12, 11}));
}

TEST(FlipHorizontal, PixelsMirrorAgainstTheResultRowEnd) {
  OwnedPicture src, dst;
  // Pixel j lands at byte bytesPerLine - (j + 1) * bytesPerPixel of the result
  // row. Results are packed, so a padded source still mirrors exactly.
  makePicture(src, IMK_GREY, 3, 1, {10, 20, 30}, 4);
  ASSERT_EQ(src->bytesPerLine, 4);
  ASSERT_EQ(process::flipHorizontal(&src.rec, &dst.rec), 0);
  EXPECT_EQ(dst->bytesPerLine, 3);
  EXPECT_EQ(rowBuffer(dst.rec, 0), (std::vector<int>{30, 20, 10}));
  makePicture(src, IMK_RGB, 3, 1, {1, 2, 3, 4, 5, 6, 7, 8, 9}, 4);
  ASSERT_EQ(src->bytesPerLine, 12);
  dst.reset();
  ASSERT_EQ(process::flipHorizontal(&src.rec, &dst.rec), 0);
  EXPECT_EQ(rowBuffer(dst.rec, 0), (std::vector<int>{7, 8, 9, 4, 5, 6, 1, 2, 3}));
}

TEST(FlipHorizontal, TwiceRestoresThePicture) {
  for (uint16_t type : kAllKinds) {
    OwnedPicture pic;
    const int width = 7;
    numbered(pic, type, width, 5);
    ASSERT_EQ(pic->bytesPerLine, width * pic->bytesPerPixel);
    const std::vector<uint8_t> before = snapshot(pic.rec);
    ASSERT_EQ(process::flipHorizontal(&pic.rec, nullptr), 0);
    EXPECT_NE(snapshot(pic.rec), before) << type;
    ASSERT_EQ(process::flipHorizontal(&pic.rec, nullptr), 0);
    EXPECT_EQ(snapshot(pic.rec), before) << type;
  }
}

TEST(FlipVertical, ReversesRowsAndTwiceRestores) {
  OwnedPicture src, dst;
  // A padded source row is copied as far as the packed result row holds.
  makePicture(src, IMK_GREY, 3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9}, 4);
  src.row(0)[3] = 99;
  ASSERT_EQ(process::flipVertical(&src.rec, &dst.rec), 0);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{7, 8, 9, 4, 5, 6, 1, 2, 3}));
  for (uint16_t type : kAllKinds) {
    OwnedPicture pic;
    numbered(pic, type, 7, 6);
    const std::vector<uint8_t> before = snapshot(pic.rec);
    ASSERT_EQ(process::flipVertical(&pic.rec, nullptr), 0);
    EXPECT_NE(snapshot(pic.rec), before) << type;
    ASSERT_EQ(process::flipVertical(&pic.rec, nullptr), 0);
    EXPECT_EQ(snapshot(pic.rec), before) << type;
  }
}

// ---------------------------------------------------------------------------
// Quarter turns

TEST(RotateQuarter, WorkedThreeByTwo) {
  // a b c        right:  d a     left:  c f
  // d e f                e b            b e
  //                      f c            a d
  OwnedPicture src, right, left;
  makePicture(src, IMK_GREY, 3, 2, {'a', 'b', 'c', 'd', 'e', 'f'});
  ASSERT_EQ(process::rotateQuarter(&src.rec, &right.rec, 1), 0);
  EXPECT_EQ(right->width, 2);
  EXPECT_EQ(right->height, 3);
  EXPECT_EQ(packed(right.rec), (std::vector<int>{'d', 'a', 'e', 'b', 'f', 'c'}));
  ASSERT_EQ(process::rotateQuarter(&src.rec, &left.rec, -1), 0);
  EXPECT_EQ(packed(left.rec), (std::vector<int>{'c', 'f', 'b', 'e', 'a', 'd'}));
  // Any direction below 1 is "Left"; any from 1 up is "Right".
  OwnedPicture zero, two;
  ASSERT_EQ(process::rotateQuarter(&src.rec, &zero.rec, 0), 0);
  EXPECT_EQ(packed(zero.rec), packed(left.rec));
  ASSERT_EQ(process::rotateQuarter(&src.rec, &two.rec, 2), 0);
  EXPECT_EQ(packed(two.rec), packed(right.rec));
}

TEST(RotateQuarter, MovesWholePixelsOfEveryLayout) {
  // Odd sizes over more than one tile each way; rows with and without padding;
  // the 512-bit path (where the processor has it) and the portable one.
  const int sizes[][2] = {{37, 70}, {40, 13}, {64, 33}, {1, 5}, {3, 100}};
  for (bool wide : {true, false})
    for (uint16_t type : kAllKinds) {
      process::gWideVectorPaths = wide;
      for (const auto& size : sizes) {
        const int w = size[0], h = size[1];
        OwnedPicture src, right, left;
        numbered(src, type, w, h);
        src->attribute = 3;
        ASSERT_EQ(process::rotateQuarter(&src.rec, &right.rec, 1), 0);
        ASSERT_EQ(process::rotateQuarter(&src.rec, &left.rec, -1), 0);
        ASSERT_EQ(right->width, h);
        ASSERT_EQ(right->height, w);
        EXPECT_EQ(right->type, type);
        EXPECT_EQ(right->colorCount, src->colorCount);
        EXPECT_EQ(right->attribute, 3);
        EXPECT_EQ(std::memcmp(right->palette, src->palette, 768), 0);
        for (int y = 0; y < h; ++y)
          for (int x = 0; x < w; ++x) {
            ASSERT_EQ(pixelAt(right.rec, h - 1 - y, x), pixelAt(src.rec, x, y))
                << type << " " << w << "x" << h << " at " << x << "," << y;
            ASSERT_EQ(pixelAt(left.rec, y, w - 1 - x), pixelAt(src.rec, x, y))
                << type << " " << w << "x" << h << " at " << x << "," << y;
          }
        // Row padding stays clear.
        for (int r = 0; r < right->height; ++r)
          for (int b = right->width * right->bytesPerPixel; b < right->bytesPerLine; ++b)
            ASSERT_EQ(right.row(r)[b], 0);
      }
      process::gWideVectorPaths = true;
    }
}

TEST(RotateQuarter, FourRightsAndRightLeftRestore) {
  for (uint16_t type : kAllKinds) {
    OwnedPicture pic;
    numbered(pic, type, 45, 33);
    const std::vector<uint8_t> before = snapshot(pic.rec);
    for (int k = 0; k < 4; ++k) ASSERT_EQ(process::rotateQuarter(&pic.rec, nullptr, 1), 0);
    EXPECT_EQ(snapshot(pic.rec), before) << type;
    ASSERT_EQ(process::rotateQuarter(&pic.rec, nullptr, 1), 0);
    EXPECT_EQ(pic->width, 33);
    ASSERT_EQ(process::rotateQuarter(&pic.rec, nullptr, -1), 0);
    EXPECT_EQ(snapshot(pic.rec), before) << type;
  }
}

TEST(RotatePicture, DispatchesQuarterTurns) {
  OwnedPicture src, a, b;
  numbered(src, IMK_RGB, 9, 4);
  ASSERT_EQ(process::rotatePicture(&src.rec, &a.rec, 90), 0);
  ASSERT_EQ(process::rotateQuarter(&src.rec, &b.rec, 1), 0);
  EXPECT_EQ(packed(a.rec), packed(b.rec));
  for (double angle : {-90.0, 270.0}) {
    a.reset(), b.reset();
    ASSERT_EQ(process::rotatePicture(&src.rec, &a.rec, angle), 0);
    ASSERT_EQ(process::rotateQuarter(&src.rec, &b.rec, -1), 0);
    EXPECT_EQ(a->width, 4);
    EXPECT_EQ(packed(a.rec), packed(b.rec)) << angle;
  }
}

// Writes an RGB picture as a binary PPM.
void writePpm(const std::string& path, const ImageRecord& pic) {
  const std::string header =
      "P6\n" + std::to_string(pic.width) + " " + std::to_string(pic.height) + "\n255\n";
  std::vector<uint8_t> bytes(header.begin(), header.end());
  const std::vector<uint8_t> rgb = test::toRgb(pic);
  bytes.insert(bytes.end(), rgb.begin(), rgb.end());
  test::writeFile(path, bytes);
}

TEST(Geometry, AgreesWithPamflip) {
  if (test::run("command -v pamflip >/dev/null") != 0) GTEST_SKIP() << "pamflip not installed";
  test::TempDir dir;
  OwnedPicture src;
  numbered(src, IMK_RGB, 31, 17);
  writePpm(dir.file("in.ppm"), src.rec);
  struct Case {
    const char* option;
    std::function<int(ImageRecord*, ImageRecord*)> op;
  };
  const Case cases[] = {
      {"-cw", [](ImageRecord* s, ImageRecord* d) { return process::rotateQuarter(s, d, 1); }},
      {"-ccw", [](ImageRecord* s, ImageRecord* d) { return process::rotateQuarter(s, d, -1); }},
      {"-tb", process::flipVertical},
  };
  for (const Case& c : cases) {
    const std::string out = dir.file(std::string("out") + c.option + ".ppm");
    ASSERT_EQ(test::run("pamflip " + std::string(c.option) + " " + test::quote(dir.file("in.ppm")) +
                        " > " + test::quote(out)),
              0);
    int w = 0, h = 0;
    std::vector<uint8_t> expected;
    ASSERT_TRUE(test::readNetpbmAsRgb(out, &w, &h, &expected));
    OwnedPicture dst;
    ASSERT_EQ(c.op(&src.rec, &dst.rec), 0);
    EXPECT_EQ(dst->width, w);
    EXPECT_EQ(dst->height, h);
    EXPECT_EQ(test::toRgb(dst.rec), expected) << c.option;
  }
  // Left-right on rows without padding (32 RGB pixels are 96 bytes).
  numbered(src, IMK_RGB, 32, 9);
  writePpm(dir.file("wide.ppm"), src.rec);
  ASSERT_EQ(test::run("pamflip -lr " + test::quote(dir.file("wide.ppm")) + " > " +
                      test::quote(dir.file("lr.ppm"))),
            0);
  int w = 0, h = 0;
  std::vector<uint8_t> expected;
  ASSERT_TRUE(test::readNetpbmAsRgb(dir.file("lr.ppm"), &w, &h, &expected));
  OwnedPicture dst;
  ASSERT_EQ(process::flipHorizontal(&src.rec, &dst.rec), 0);
  EXPECT_EQ(test::toRgb(dst.rec), expected);
}

// ---------------------------------------------------------------------------
// Crop

TEST(Crop, NegativeLeftShortensTheWidth) {
  OwnedPicture src, dst;
  numbered(src, IMK_GREY, 100, 30);
  ASSERT_EQ(process::cropPicture(&src.rec, &dst.rec, -10, 5, 50, 10), 0);
  EXPECT_EQ(dst->width, 40);
  EXPECT_EQ(dst->height, 10);
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 40; ++x)
      ASSERT_EQ(dst->pixels[y * dst->bytesPerLine + x], src.row(5 + y)[x]);
}

TEST(Crop, ClipsAtEverySide) {
  OwnedPicture src, dst;
  numbered(src, IMK_RGB, 20, 10);
  ASSERT_EQ(process::cropPicture(&src.rec, &dst.rec, 15, -3, 50, 5), 0);
  EXPECT_EQ(dst->width, 5);   // 20 - 15
  EXPECT_EQ(dst->height, 2);  // -3 + 5
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 5; ++x) EXPECT_EQ(pixelAt(dst.rec, x, y), pixelAt(src.rec, 15 + x, y));
  dst.reset();
  ASSERT_EQ(process::cropPicture(&src.rec, &dst.rec, -5, -5, 100, 100), 0);
  EXPECT_EQ(packed(dst.rec), packed(src.rec));
  dst.reset();
  ASSERT_EQ(process::cropPicture(&src.rec, &dst.rec, 3, 8, 4, 7), 0);
  EXPECT_EQ(dst->width, 4);
  EXPECT_EQ(dst->height, 2);
  EXPECT_EQ(pixelAt(dst.rec, 3, 1), pixelAt(src.rec, 6, 9));
}

TEST(Crop, RectangleOutsideIsRefusedAndChangesNothing) {
  OwnedPicture src, dst;
  numbered(src, IMK_GREY, 20, 10);
  const std::vector<uint8_t> before = snapshot(src.rec);
  EXPECT_EQ(process::cropPicture(&src.rec, &dst.rec, 20, 0, 5, 5), 1);
  EXPECT_EQ(process::cropPicture(&src.rec, &dst.rec, -10, 0, 10, 5), 1);
  EXPECT_EQ(process::cropPicture(&src.rec, &dst.rec, 0, 12, 5, 5), 1);
  EXPECT_EQ(process::cropPicture(&src.rec, nullptr, 0, 0, 0, 5), 1);
  EXPECT_EQ(process::cropPicture(&src.rec, nullptr, 2147483000, 0, 2000, 5), 1);
  EXPECT_EQ(dst->pixels, nullptr);
  EXPECT_EQ(snapshot(src.rec), before);
}

TEST(Crop, EveryKindKeepsPaletteAndCount) {
  for (uint16_t type : kAllKinds) {
    OwnedPicture src, dst;
    numbered(src, type, 11, 9);
    ASSERT_EQ(process::cropPicture(&src.rec, &dst.rec, 2, 3, 5, 4), 0);
    EXPECT_EQ(dst->type, type);
    EXPECT_EQ(dst->colorCount, src->colorCount);
    EXPECT_EQ(std::memcmp(dst->palette, src->palette, 768), 0);
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 5; ++x)
        ASSERT_EQ(pixelAt(dst.rec, x, y), pixelAt(src.rec, 2 + x, 3 + y)) << type;
  }
}

// ---------------------------------------------------------------------------
// Canvas

TEST(Canvas, SameSizeIsACopy) {
  for (uint16_t type : kAllKinds) {
    OwnedPicture src, dst;
    numbered(src, type, 9, 7);
    ASSERT_EQ(process::resizeCanvas(&src.rec, &dst.rec, 9, 7), 0);
    EXPECT_EQ(packed(dst.rec), packed(src.rec)) << type;
    EXPECT_EQ(std::memcmp(dst->palette, src->palette, 768), 0);
  }
}

TEST(Canvas, GrowingCentresWithTheOddPixelRightAndDown) {
  OwnedPicture src, dst;
  makePicture(src, IMK_GREY, 2, 2, {1, 2, 3, 4});
  // 5 x 5: right by (5 - 2) / 2 = 1, down by 1; two columns and rows of 0
  // are left after the picture and one before it.
  ASSERT_EQ(process::resizeCanvas(&src.rec, &dst.rec, 5, 5), 0);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{0, 0, 0, 0, 0,  //
                                               0, 1, 2, 0, 0,  //
                                               0, 3, 4, 0, 0,  //
                                               0, 0, 0, 0, 0,  //
                                               0, 0, 0, 0, 0}));
}

TEST(Canvas, ShrinkingKeepsTheTopLeftCorner) {
  OwnedPicture src, dst;
  makePicture(src, IMK_GREY, 4, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  ASSERT_EQ(process::resizeCanvas(&src.rec, &dst.rec, 2, 2), 0);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{1, 2, 5, 6}));
  // Wider but shorter: centred across (right by 2), top rows kept.
  dst.reset();
  ASSERT_EQ(process::resizeCanvas(&src.rec, &dst.rec, 8, 2), 0);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{0, 0, 1, 2, 3, 4, 0, 0,  //
                                               0, 0, 5, 6, 7, 8, 0, 0}));
  // Narrower but taller: left columns kept, centred down by (6 - 3) / 2 = 1.
  dst.reset();
  ASSERT_EQ(process::resizeCanvas(&src.rec, &dst.rec, 3, 6), 0);
  EXPECT_EQ(packed(dst.rec),
            (std::vector<int>{0, 0, 0, 1, 2, 3, 5, 6, 7, 9, 10, 11, 0, 0, 0, 0, 0, 0}));
}

TEST(Canvas, ColourMappedAndTrueColourFillWithZero) {
  OwnedPicture src, dst;
  numbered(src, IMK_MAPPED, 3, 3);
  ASSERT_EQ(process::resizeCanvas(&src.rec, &dst.rec, 6, 4), 0);
  EXPECT_EQ(dst->colorCount, 200);
  EXPECT_EQ(std::memcmp(dst->palette, src->palette, 768), 0);
  EXPECT_EQ(pixelAt(dst.rec, 0, 0), std::vector<int>{0});
  EXPECT_EQ(pixelAt(dst.rec, 1, 0), pixelAt(src.rec, 0, 0));  // right by 1, down by 0
  numbered(src, IMK_XBGR, 3, 3);
  dst.reset();
  ASSERT_EQ(process::resizeCanvas(&src.rec, &dst.rec, 5, 7), 0);
  EXPECT_EQ(pixelAt(dst.rec, 0, 0), (std::vector<int>{0, 0, 0, 0}));
  EXPECT_EQ(pixelAt(dst.rec, 1, 2), pixelAt(src.rec, 0, 0));
  EXPECT_EQ(pixelAt(dst.rec, 3, 4), pixelAt(src.rec, 2, 2));
  EXPECT_EQ(pixelAt(dst.rec, 4, 4), (std::vector<int>{0, 0, 0, 0}));
}

// ---------------------------------------------------------------------------
// Destination convention

TEST(Geometry, SourceKeptWithDestinationAndReplacedWithout) {
  using Op = std::function<int(ImageRecord*, ImageRecord*)>;
  const Op ops[] = {
      process::flipHorizontal,
      process::flipVertical,
      [](ImageRecord* s, ImageRecord* d) { return process::rotateQuarter(s, d, 1); },
      [](ImageRecord* s, ImageRecord* d) { return process::rotateQuarter(s, d, -1); },
      [](ImageRecord* s, ImageRecord* d) { return process::cropPicture(s, d, 1, 1, 4, 3); },
      [](ImageRecord* s, ImageRecord* d) { return process::resizeCanvas(s, d, 12, 3); },
  };
  for (uint16_t type : kAllKinds) {
    for (size_t k = 0; k < std::size(ops); ++k) {
      OwnedPicture src, dst, inPlace;
      numbered(src, type, 7, 5);
      numbered(inPlace, type, 7, 5);
      src->attribute = inPlace->attribute = 6;
      const std::vector<uint8_t> before = snapshot(src.rec);
      ASSERT_EQ(ops[k](&src.rec, &dst.rec), 0);
      EXPECT_EQ(snapshot(src.rec), before) << type << " op " << k;
      EXPECT_EQ(dst->attribute, 6);
      EXPECT_EQ(dst->bitsPerComponent, src->bitsPerComponent);
      ASSERT_EQ(ops[k](&inPlace.rec, nullptr), 0);
      EXPECT_EQ(snapshot(inPlace.rec), snapshot(dst.rec)) << type << " op " << k;
    }
  }
}

}  // namespace
