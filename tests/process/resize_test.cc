// Resizing: the quick pattern worked by hand, bilinear and area values worked
// by hand, uniform pictures, kinds, sizes with and without the kept aspect,
// and ImageMagick's box and triangle filters as an independent reference.
#include "process/resize.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;

const uint16_t kAllKinds[] = {IMK_BINARY, IMK_GREY, IMK_MAPPED, IMK_RGB,
                              IMK_RGBX,   IMK_BGR,  IMK_XBGR};

void makePicture(OwnedPicture& pic, uint16_t type, int width, int height,
                 const std::vector<int>& bytes, int colorCount = -1) {
  pic.reset();
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, width, height));
  if (colorCount >= 0) pic->colorCount = colorCount;
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

std::vector<uint8_t> snapshot(const ImageRecord& pic) {
  std::vector<uint8_t> out(pic.pixels,
                           pic.pixels + static_cast<size_t>(pic.bytesPerLine) * pic.height);
  out.insert(out.end(), pic.palette, pic.palette + 768);
  const uint8_t* header = reinterpret_cast<const uint8_t*>(&pic);
  out.insert(out.end(), header, header + offsetof(ImageRecord, palette));
  return out;
}

int resize(OwnedPicture& src, OwnedPicture& dst, int w, int h, process::ResampleType type,
           bool keep = false) {
  dst.reset();
  return process::resizePicture(&src.rec, &dst.rec, w, h, type, keep);
}

// Lengths of the runs of equal values in a sequence.
std::vector<int> runs(const std::vector<int>& v) {
  std::vector<int> out;
  for (size_t i = 0; i < v.size(); ++i) {
    if (i == 0 || v[i] != v[i - 1])
      out.push_back(1);
    else
      ++out.back();
  }
  return out;
}

// ---------------------------------------------------------------------------
// Sizes

TEST(ResizeSize, KeepRatioFitsTheBox) {
  int w, h;
  process::resizedSize(400, 300, 200, 200, true, &w, &h);
  EXPECT_EQ(w, 200);
  EXPECT_EQ(h, 150);
  process::resizedSize(300, 400, 200, 200, true, &w, &h);
  EXPECT_EQ(w, 150);
  EXPECT_EQ(h, 200);
  process::resizedSize(400, 300, 1000, 600, true, &w, &h);  // enlarging, height decides
  EXPECT_EQ(w, 800);
  EXPECT_EQ(h, 600);
  process::resizedSize(3, 2, 2, 2, true, &w, &h);  // 2 * 2 / 3 = 1.33
  EXPECT_EQ(w, 2);
  EXPECT_EQ(h, 1);
  process::resizedSize(400, 300, 0, 150, true, &w, &h);  // free width
  EXPECT_EQ(w, 200);
  EXPECT_EQ(h, 150);
}

TEST(ResizeSize, ExactUnlessASideIsMissing) {
  int w, h;
  process::resizedSize(400, 300, 200, 200, false, &w, &h);
  EXPECT_EQ(w, 200);
  EXPECT_EQ(h, 200);
  process::resizedSize(400, 300, 100, 0, false, &w, &h);
  EXPECT_EQ(w, 100);
  EXPECT_EQ(h, 75);
  process::resizedSize(400, 300, -1, 30, false, &w, &h);
  EXPECT_EQ(w, 40);
  EXPECT_EQ(h, 30);
  process::resizedSize(400, 300, 0, 0, false, &w, &h);
  EXPECT_EQ(w, 400);
  EXPECT_EQ(h, 300);
  process::resizedSize(1000, 10, 10, 0, false, &w, &h);  // never below one pixel
  EXPECT_EQ(w, 10);
  EXPECT_EQ(h, 1);
}

// ---------------------------------------------------------------------------
// Quick

TEST(ResizeQuick, TenToTwentyFiveRepeatsThreeTwo) {
  OwnedPicture src, dst;
  std::vector<int> v(100);
  for (int i = 0; i < 100; ++i) v[i] = i;  // value = 10 y + x
  makePicture(src, IMK_GREY, 10, 10, v, 256);
  ASSERT_EQ(resize(src, dst, 25, 25, process::kResampleQuick), 0);
  const std::vector<int> all = packed(dst.rec);
  std::vector<int> firstRow(all.begin(), all.begin() + 25), firstColumn;
  for (int y = 0; y < 25; ++y) firstColumn.push_back(all[y * 25]);
  const std::vector<int> pattern{3, 2, 3, 2, 3, 2, 3, 2, 3, 2};
  EXPECT_EQ(runs(firstRow), pattern);
  EXPECT_EQ(runs(firstColumn), pattern);
  EXPECT_EQ(firstRow[24], 9);
  EXPECT_EQ(firstColumn[24], 90);
}

TEST(ResizeQuick, ReducingDropsByTruncation) {
  OwnedPicture src, dst;
  makePicture(src, IMK_RGB, 10, 1, {0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4,
                                    5, 5, 5, 6, 6, 6, 7, 7, 7, 8, 8, 8, 9, 9, 9});
  // x * 10 / 4 = 0, 2, 5, 7.
  ASSERT_EQ(resize(src, dst, 4, 1, process::kResampleQuick), 0);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{0, 0, 0, 2, 2, 2, 5, 5, 5, 7, 7, 7}));
}

TEST(ResizeQuick, EveryKindKeepsItsKindAndPalette) {
  for (uint16_t type : kAllKinds) {
    OwnedPicture src, dst;
    test::makePattern(src, type, 9, 6, 16);
    ASSERT_EQ(resize(src, dst, 20, 4, process::kResampleQuick), 0);
    EXPECT_EQ(dst->type, type);
    EXPECT_EQ(dst->width, 20);
    EXPECT_EQ(dst->height, 4);
    EXPECT_EQ(dst->colorCount, src->colorCount);
    EXPECT_EQ(std::memcmp(dst->palette, src->palette, 768), 0);
    const int bpp = src->bytesPerPixel;
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 20; ++x)
        ASSERT_EQ(std::memcmp(dst.row(y) + x * bpp, src.row(y * 6 / 4) + (x * 9 / 20) * bpp, bpp),
                  0)
            << type;
  }
}

// ---------------------------------------------------------------------------
// Linear

TEST(ResizeLinear, EnlargingInterpolatesBetweenCentres) {
  OwnedPicture src, dst;
  // Centres of 4 result pixels over 2 source pixels sit at -0.25 (edge), 0.25,
  // 0.75 and 1.25 (edge).
  makePicture(src, IMK_GREY, 2, 1, {0, 100}, 256);
  ASSERT_EQ(resize(src, dst, 4, 1, process::kResampleLinear), 0);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{0, 25, 75, 100}));
  makePicture(src, IMK_GREY, 2, 2, {0, 100, 100, 200}, 256);
  ASSERT_EQ(resize(src, dst, 4, 4, process::kResampleLinear), 0);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{0, 25, 75, 100,     //
                                               25, 50, 100, 125,   //
                                               75, 100, 150, 175,  //
                                               100, 125, 175, 200}));
}

TEST(ResizeLinear, ReducingAveragesTheCoveredArea) {
  OwnedPicture src, dst;
  makePicture(src, IMK_GREY, 4, 1, {10, 20, 30, 40}, 256);
  ASSERT_EQ(resize(src, dst, 2, 1, process::kResampleLinear), 0);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{15, 35}));
  // Three to two: [0, 1.5) holds a whole and half of b, so (2a + b) / 3.
  makePicture(src, IMK_GREY, 3, 1, {0, 90, 180}, 256);
  ASSERT_EQ(resize(src, dst, 2, 1, process::kResampleLinear), 0);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{30, 150}));
  // Two by two blocks of an RGB picture.
  makePicture(src, IMK_RGB, 2, 2, {0, 10, 200, 4, 30, 100, 8, 50, 0, 12, 70, 100});
  ASSERT_EQ(resize(src, dst, 1, 1, process::kResampleLinear), 0);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{6, 40, 100}));
  // Growing across and shrinking down at once.
  makePicture(src, IMK_GREY, 2, 2, {0, 100, 100, 200}, 256);
  ASSERT_EQ(resize(src, dst, 4, 1, process::kResampleLinear), 0);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{50, 75, 125, 150}));
}

TEST(ResizeLinear, UniformPicturesStayUniform) {
  const int sizes[][2] = {{1, 1}, {7, 3}, {30, 30}, {97, 41}, {13, 200}};
  for (uint16_t type : kAllKinds) {
    OwnedPicture src, dst;
    ASSERT_TRUE(imkAllock(&src.rec, type, 8, 29, 17));
    const int value = type == IMK_BINARY ? 1 : type == IMK_MAPPED ? 3 : 201;
    if (type == IMK_MAPPED)
      src->palette[3] = 10, src->palette[256 + 3] = 130, src->palette[512 + 3] = 250;
    for (int y = 0; y < 17; ++y) std::memset(src.row(y), value, 29 * src->bytesPerPixel);
    const std::vector<uint8_t> rgb = test::toRgb(src.rec);
    for (const auto& s : sizes) {
      ASSERT_EQ(resize(src, dst, s[0], s[1], process::kResampleLinear), 0);
      const std::vector<uint8_t> out = test::toRgb(dst.rec);
      for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], rgb[i % 3]) << type << " " << s[0];
      if (type & IMK_TRUECOLOR_MASK) {
        for (int b : packed(dst.rec)) ASSERT_EQ(b, value);  // the spare byte too
      }
    }
  }
}

TEST(ResizeLinear, ColourMappedBecomesTrueColourAndBinaryGrey) {
  OwnedPicture src, dst;
  makePicture(src, IMK_MAPPED, 2, 1, {0, 1}, 2);
  src->palette[0] = 0, src->palette[256] = 100, src->palette[512] = 200;
  src->palette[1] = 200, src->palette[257] = 100, src->palette[513] = 0;
  ASSERT_EQ(resize(src, dst, 1, 1, process::kResampleLinear), 0);
  EXPECT_EQ(dst->type, IMK_RGB);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{100, 100, 100}));
  // Binary 0 and 1 average to 127.5, rounded up.
  makePicture(src, IMK_BINARY, 4, 1, {0, 1, 1, 1});
  ASSERT_EQ(resize(src, dst, 2, 1, process::kResampleLinear), 0);
  EXPECT_EQ(dst->type, IMK_GREY);
  EXPECT_EQ(dst->colorCount, 256);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{128, 255}));
  // Few-level grey keeps its levels.
  makePicture(src, IMK_GREY, 2, 1, {0, 5}, 6);
  ASSERT_EQ(resize(src, dst, 1, 1, process::kResampleLinear), 0);
  EXPECT_EQ(dst->type, IMK_GREY);
  EXPECT_EQ(dst->colorCount, 6);
  EXPECT_EQ(packed(dst.rec), (std::vector<int>{3}));
  // The same size is a plain copy, even of a colour-mapped picture.
  test::makePattern(src, IMK_MAPPED, 5, 4, 16);
  ASSERT_EQ(resize(src, dst, 5, 4, process::kResampleLinear), 0);
  EXPECT_EQ(snapshot(dst.rec), snapshot(src.rec));
}

// Weights of one direction in double precision, written from the geometry:
// growing, the result centre (o + 1/2) in / out - 1/2 between the two nearest
// source centres (clamped at the edges); shrinking, the length of each source
// pixel's part of [o in / out, (o + 1) in / out), over in / out.
std::vector<std::vector<double>> referenceWeights(int in, int out) {
  std::vector<std::vector<double>> w(out, std::vector<double>(in, 0.0));
  for (int o = 0; o < out; ++o) {
    if (out >= in) {
      double pos = (o + 0.5) * in / out - 0.5;
      pos = std::min(std::max(pos, 0.0), in - 1.0);
      const int i0 = static_cast<int>(pos);
      const double f = pos - i0;
      w[o][i0] += 1 - f;
      if (f > 0) w[o][i0 + 1] += f;
    } else {
      const double lo = static_cast<double>(o) * in / out,
                   hi = static_cast<double>(o + 1) * in / out;
      for (int i = 0; i < in; ++i) {
        const double part = std::min(hi, i + 1.0) - std::max(lo, static_cast<double>(i));
        if (part > 0) w[o][i] = part / (hi - lo);
      }
    }
  }
  return w;
}

TEST(ResizeLinear, MatchesADoublePrecisionReference) {
  const int sizes[][2] = {{23, 17}, {7, 40}, {60, 9}, {1, 1}, {45, 31}, {12, 12}, {100, 3}};
  for (uint16_t type : {IMK_GREY, IMK_RGB, IMK_XBGR}) {
    OwnedPicture src;
    test::makePattern(src, type, 45, 31);
    const int bpp = src->bytesPerPixel;
    for (const auto& size : sizes) {
      OwnedPicture dst;
      ASSERT_EQ(resize(src, dst, size[0], size[1], process::kResampleLinear), 0);
      const auto wx = referenceWeights(45, size[0]);
      const auto wy = referenceWeights(31, size[1]);
      int worst = 0;
      for (int y = 0; y < size[1]; ++y)
        for (int x = 0; x < size[0]; ++x)
          for (int c = 0; c < bpp; ++c) {
            double v = 0;
            for (int sy = 0; sy < 31; ++sy) {
              if (wy[y][sy] == 0) continue;
              for (int sx = 0; sx < 45; ++sx)
                v += wy[y][sy] * wx[x][sx] * src.row(sy)[sx * bpp + c];
            }
            worst = std::max(worst,
                             std::abs(dst.row(y)[x * bpp + c] - static_cast<int>(std::lround(v))));
          }
      EXPECT_LE(worst, 1) << type << " " << size[0] << "x" << size[1];
    }
  }
}

// Writes any picture as a binary PPM of its RGB.
void writePpm(const std::string& path, const ImageRecord& pic) {
  const std::string header =
      "P6\n" + std::to_string(pic.width) + " " + std::to_string(pic.height) + "\n255\n";
  std::vector<uint8_t> bytes(header.begin(), header.end());
  const std::vector<uint8_t> rgb = test::toRgb(pic);
  bytes.insert(bytes.end(), rgb.begin(), rgb.end());
  test::writeFile(path, bytes);
}

TEST(ResizeLinear, AgreesWithImageMagickBoxAndTriangle) {
  if (test::run("/usr/bin/convert -version >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "ImageMagick not installed";
  test::TempDir dir;
  OwnedPicture src;
  ASSERT_TRUE(imkAllock(&src.rec, IMK_RGB, 8, 40, 30));
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x) {
      uint8_t* p = src.row(y) + x * 3;
      p[0] = static_cast<uint8_t>((x * 37 + y * 11) % 256);
      p[1] = static_cast<uint8_t>(x * 6);
      p[2] = static_cast<uint8_t>((x * y) % 251);
    }
  writePpm(dir.file("in.ppm"), src.rec);
  struct Case {
    const char* filter;
    int w, h;
  };
  // Box at a whole factor is the area average; Triangle when enlarging is
  // bilinear between centres with the edge pixels repeated.
  for (const Case& c : {Case{"Box", 20, 15}, Case{"Box", 10, 10}, Case{"Triangle", 80, 60},
                        Case{"Triangle", 100, 75}}) {
    const std::string out = dir.file(std::string("out") + c.filter + std::to_string(c.w) + ".ppm");
    ASSERT_EQ(test::run("/usr/bin/convert " + test::quote(dir.file("in.ppm")) + " -filter " +
                        c.filter + " -resize " + std::to_string(c.w) + "x" + std::to_string(c.h) +
                        "! -depth 8 " + test::quote(out)),
              0);
    int w = 0, h = 0;
    std::vector<uint8_t> expected;
    ASSERT_TRUE(test::readNetpbmAsRgb(out, &w, &h, &expected));
    OwnedPicture dst;
    ASSERT_EQ(resize(src, dst, c.w, c.h, process::kResampleLinear), 0);
    ASSERT_EQ(dst->width, w);
    ASSERT_EQ(dst->height, h);
    EXPECT_LE(test::maxDifference(test::toRgb(dst.rec), expected), 1) << c.filter << " " << c.w;
  }
}

TEST(Resize, SourceKeptWithDestinationAndReplacedWithout) {
  for (uint16_t type : kAllKinds) {
    for (process::ResampleType rt : {process::kResampleQuick, process::kResampleLinear}) {
      OwnedPicture src, dst, inPlace;
      test::makePattern(src, type, 17, 9, 16);
      test::makePattern(inPlace, type, 17, 9, 16);
      src->attribute = inPlace->attribute = 2;
      const std::vector<uint8_t> before = snapshot(src.rec);
      ASSERT_EQ(process::resizePicture(&src.rec, &dst.rec, 30, 5, rt, false), 0);
      EXPECT_EQ(snapshot(src.rec), before);
      EXPECT_EQ(dst->attribute, 2);
      EXPECT_EQ(dst->width, 30);
      ASSERT_EQ(process::resizePicture(&inPlace.rec, nullptr, 30, 5, rt, false), 0);
      EXPECT_EQ(snapshot(inPlace.rec), snapshot(dst.rec));
    }
  }
}

}  // namespace
