// Free-angle rotation: exact multiples of 90 degrees, the grown size worked by
// hand, direction, uniform pictures, value sets of the nearest-pixel kinds and
// the round trip.
#include "process/rotate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>
#include <vector>

#include "process/geometry.h"
#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;

const uint16_t kAllKinds[] = {IMK_BINARY, IMK_GREY, IMK_MAPPED, IMK_RGB,
                              IMK_RGBX,   IMK_BGR,  IMK_XBGR};

std::vector<int> pixelAt(const ImageRecord& pic, int x, int y) {
  const uint8_t* p = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine +
                     static_cast<size_t>(x) * pic.bytesPerPixel;
  return std::vector<int>(p, p + pic.bytesPerPixel);
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

// A picture of `type` whose every byte is `value` (binary: 1, grey: the top
// level of `levels`).
void uniform(OwnedPicture& pic, uint16_t type, int width, int height, int value) {
  pic.reset();
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, width, height));
  for (int y = 0; y < height; ++y)
    std::memset(pic.row(y), value, static_cast<size_t>(width) * pic->bytesPerPixel);
}

// ---------------------------------------------------------------------------

TEST(RotateFree, GrownSizeByHand) {
  int w, h;
  process::rotatedSize(100, 100, 45, &w, &h);  // 100 sqrt 2 = 141.42
  EXPECT_EQ(w, 142);
  EXPECT_EQ(h, 142);
  process::rotatedSize(40, 20, 30, &w, &h);  // 34.64 + 10 and 20 + 17.32
  EXPECT_EQ(w, 45);
  EXPECT_EQ(h, 38);
  process::rotatedSize(40, 20, -30, &w, &h);
  EXPECT_EQ(w, 45);
  EXPECT_EQ(h, 38);
  process::rotatedSize(40, 20, 150, &w, &h);
  EXPECT_EQ(w, 45);
  EXPECT_EQ(h, 38);
  process::rotatedSize(40, 20, 90, &w, &h);
  EXPECT_EQ(w, 20);
  EXPECT_EQ(h, 40);
  process::rotatedSize(40, 20, -180, &w, &h);
  EXPECT_EQ(w, 40);
  EXPECT_EQ(h, 20);
  process::rotatedSize(1, 1, 45, &w, &h);  // 1.41
  EXPECT_EQ(w, 2);
  EXPECT_EQ(h, 2);
}

TEST(RotateFree, ZeroAndFullTurnsCopy) {
  for (uint16_t type : kAllKinds) {
    OwnedPicture src;
    test::makePattern(src, type, 13, 7, 16);
    for (double angle : {0.0, 360.0, -720.0}) {
      OwnedPicture dst;
      ASSERT_EQ(process::rotateFreeAngle(&src.rec, &dst.rec, angle), 0);
      EXPECT_EQ(snapshot(dst.rec), snapshot(src.rec)) << type << " " << angle;
    }
    const std::vector<uint8_t> before = snapshot(src.rec);
    ASSERT_EQ(process::rotateFreeAngle(&src.rec, nullptr, 0), 0);
    EXPECT_EQ(snapshot(src.rec), before);
  }
}

TEST(RotateFree, HalfTurnIsExactOnEveryKind) {
  for (uint16_t type : kAllKinds) {
    OwnedPicture src;
    test::makePattern(src, type, 13, 7, 16);  // padded rows for the 1- and 3-byte kinds
    for (double angle : {180.0, -180.0, 540.0}) {
      OwnedPicture dst;
      ASSERT_EQ(process::rotatePicture(&src.rec, &dst.rec, angle), 0);
      ASSERT_EQ(dst->width, 13);
      ASSERT_EQ(dst->height, 7);
      EXPECT_EQ(dst->colorCount, src->colorCount);
      for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 13; ++x)
          ASSERT_EQ(pixelAt(dst.rec, x, y), pixelAt(src.rec, 12 - x, 6 - y))
              << type << " " << angle;
    }
  }
}

TEST(RotateFree, QuarterAnglesAreExactTurns) {
  OwnedPicture src, right, left;
  test::makePattern(src, IMK_BGR, 11, 6);
  ASSERT_EQ(process::rotateQuarter(&src.rec, &right.rec, 1), 0);
  ASSERT_EQ(process::rotateQuarter(&src.rec, &left.rec, -1), 0);
  for (double angle : {450.0, -270.0, 90.0}) {
    OwnedPicture dst;
    ASSERT_EQ(process::rotateFreeAngle(&src.rec, &dst.rec, angle), 0);
    EXPECT_EQ(packed(dst.rec), packed(right.rec)) << angle;
  }
  for (double angle : {270.0, -90.0, -450.0}) {
    OwnedPicture dst;
    ASSERT_EQ(process::rotateFreeAngle(&src.rec, &dst.rec, angle), 0);
    EXPECT_EQ(packed(dst.rec), packed(left.rec)) << angle;
  }
  OwnedPicture viaDispatch;
  ASSERT_EQ(process::rotatePicture(&src.rec, &viaDispatch.rec, -270), 0);
  EXPECT_EQ(packed(viaDispatch.rec), packed(right.rec));
}

TEST(RotateFree, PositiveAnglesTurnClockwise) {
  // A white 5 x 5 block centred 16 pixels above the centre of a 41 x 41 black
  // grey picture. Turned clockwise by 30 degrees (y down) the block centre
  // offset (0, -16) becomes (16 sin 30, -16 cos 30) = (8, -13.86). The result
  // is 57 x 57 (41 (cos 30 + sin 30) = 56.01), centre 28.5: the block lands
  // around (36.5, 14.6).
  OwnedPicture src, cw, ccw;
  uniform(src, IMK_GREY, 41, 41, 0);
  for (int y = 2; y <= 6; ++y)
    for (int x = 18; x <= 22; ++x) src.row(y)[x] = 255;
  ASSERT_EQ(process::rotateFreeAngle(&src.rec, &cw.rec, 30), 0);
  ASSERT_EQ(cw->width, 57);
  ASSERT_EQ(cw->height, 57);
  EXPECT_EQ(cw.row(14)[36], 255);
  EXPECT_EQ(cw.row(15)[36], 255);
  EXPECT_EQ(cw.row(14)[20], 0);
  ASSERT_EQ(process::rotateFreeAngle(&src.rec, &ccw.rec, -30), 0);
  EXPECT_EQ(ccw.row(14)[20], 255);  // mirrored: 28.5 - 8
  EXPECT_EQ(ccw.row(14)[36], 0);
}

TEST(RotateFree, UniformPictureStaysUniformInsideAndBlackInCorners) {
  for (uint16_t type : {IMK_GREY, IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR, IMK_MAPPED, IMK_BINARY}) {
    OwnedPicture src, dst;
    const int value = type == IMK_BINARY ? 1 : type == IMK_MAPPED ? 7 : 200;
    uniform(src, type, 40, 30, value);
    for (double angle : {30.0, -17.5, 135.0, 1.0}) {
      dst.reset();
      ASSERT_EQ(process::rotateFreeAngle(&src.rec, &dst.rec, angle), 0);
      // The inscribed circle (radius 15) turns into itself: pixels within 13
      // of the centre sample well inside the source.
      const double cx = dst->width / 2.0, cy = dst->height / 2.0;
      for (int y = 0; y < dst->height; ++y)
        for (int x = 0; x < dst->width; ++x) {
          const double dx = x + 0.5 - cx, dy = y + 0.5 - cy;
          const std::vector<int> p = pixelAt(dst.rec, x, y);
          for (int b : p) ASSERT_LE(b, value) << type << " " << angle;  // never brighter
          if (dx * dx + dy * dy < 13 * 13) {
            for (int b : p) ASSERT_EQ(b, value) << type << " " << angle << " at " << x << "," << y;
          }
        }
      if (angle != 1.0) {
        for (int b : pixelAt(dst.rec, 0, 0)) EXPECT_EQ(b, 0) << type << " " << angle;
      }
    }
  }
}

TEST(RotateFree, NearestKindsIntroduceNoNewValues) {
  OwnedPicture src, dst;
  test::makePattern(src, IMK_MAPPED, 23, 19, 40);
  std::set<int> used{0};
  for (int v : packed(src.rec)) used.insert(v);
  ASSERT_EQ(process::rotateFreeAngle(&src.rec, &dst.rec, 33), 0);
  for (int v : packed(dst.rec)) ASSERT_TRUE(used.count(v)) << v;
  EXPECT_EQ(std::memcmp(dst->palette, src->palette, 768), 0);
  EXPECT_EQ(dst->colorCount, 40);

  test::makePattern(src, IMK_BINARY, 23, 19);
  dst.reset();
  ASSERT_EQ(process::rotateFreeAngle(&src.rec, &dst.rec, -71), 0);
  int ones = 0;
  for (int v : packed(dst.rec)) {
    ASSERT_LE(v, 1);
    ones += v;
  }
  EXPECT_GT(ones, 0);

  // Grey of 6 levels: interpolated level numbers stay below the count.
  test::makePattern(src, IMK_GREY, 23, 19, 6);
  dst.reset();
  ASSERT_EQ(process::rotateFreeAngle(&src.rec, &dst.rec, 12.5), 0);
  EXPECT_EQ(dst->colorCount, 6);
  for (int v : packed(dst.rec)) ASSERT_LT(v, 6);
}

TEST(RotateFree, TurningBackRestoresTheMiddle) {
  // A smooth picture turned by 25 degrees and back: the middle matches the
  // original within the error of two bilinear samplings.
  OwnedPicture src, there, back;
  ASSERT_TRUE(imkAllock(&src.rec, IMK_RGB, 8, 60, 50));
  for (int y = 0; y < 50; ++y)
    for (int x = 0; x < 60; ++x) {
      uint8_t* p = src.row(y) + x * 3;
      p[0] = static_cast<uint8_t>(x * 2 + y), p[1] = static_cast<uint8_t>(200 - y * 2),
      p[2] = static_cast<uint8_t>(x + 50);
    }
  ASSERT_EQ(process::rotateFreeAngle(&src.rec, &there.rec, 25), 0);
  ASSERT_EQ(process::rotateFreeAngle(&there.rec, &back.rec, -25), 0);
  const double ox = (back->width - 60) / 2.0, oy = (back->height - 50) / 2.0;
  int worst = 0;
  for (int y = 15; y < 35; ++y)
    for (int x = 15; x < 45; ++x) {
      const int bx = static_cast<int>(x + ox + 0.5), by = static_cast<int>(y + oy + 0.5);
      for (int c = 0; c < 3; ++c)
        worst = std::max(worst, std::abs(pixelAt(back.rec, bx, by)[c] - pixelAt(src.rec, x, y)[c]));
    }
  EXPECT_LE(worst, 3);
}

// Reference in double precision, written directly from the geometry: result
// pixel centre (x + 1/2, y + 1/2) relative to the result's centre, turned back
// counter-clockwise onto the source, sampled bilinearly with 0 outside.
std::vector<double> referenceTurn(const ImageRecord& src, int outW, int outH, double degrees) {
  const double a = degrees * 3.14159265358979323846 / 180.0, c = std::cos(a), s = std::sin(a);
  const int bpp = src.bytesPerPixel;
  std::vector<double> out(static_cast<size_t>(outW) * outH * bpp);
  auto value = [&](int x, int y, int ch) -> double {
    if (x < 0 || y < 0 || x >= src.width || y >= src.height) return 0;
    return src
        .pixels[static_cast<size_t>(y) * src.bytesPerLine + static_cast<size_t>(x) * bpp + ch];
  };
  for (int y = 0; y < outH; ++y)
    for (int x = 0; x < outW; ++x) {
      const double u = x + 0.5 - outW / 2.0, v = y + 0.5 - outH / 2.0;
      const double sx = u * c + v * s + src.width / 2.0 - 0.5;
      const double sy = -u * s + v * c + src.height / 2.0 - 0.5;
      const int x0 = static_cast<int>(std::floor(sx)), y0 = static_cast<int>(std::floor(sy));
      const double fx = sx - x0, fy = sy - y0;
      for (int ch = 0; ch < bpp; ++ch)
        out[(static_cast<size_t>(y) * outW + x) * bpp + ch] =
            (1 - fy) * ((1 - fx) * value(x0, y0, ch) + fx * value(x0 + 1, y0, ch)) +
            fy * ((1 - fx) * value(x0, y0 + 1, ch) + fx * value(x0 + 1, y0 + 1, ch));
    }
  return out;
}

TEST(RotateFree, BilinearMatchesADoublePrecisionReference) {
  struct Case {
    uint16_t type;
    int w, h;
    double angle;
  };
  const Case cases[] = {{IMK_RGB, 61, 40, 30},     {IMK_RGB, 40, 61, -100}, {IMK_GREY, 33, 33, 45},
                        {IMK_XBGR, 20, 50, 200.5}, {IMK_BGR, 17, 9, 359},   {IMK_RGBX, 50, 3, 77},
                        {IMK_GREY, 1, 30, 10},     {IMK_RGB, 80, 60, -0.5}};
  for (const Case& k : cases) {
    OwnedPicture src, dst;
    test::makePattern(src, k.type, k.w, k.h);
    ASSERT_EQ(process::rotateFreeAngle(&src.rec, &dst.rec, k.angle), 0);
    const std::vector<double> ref = referenceTurn(src.rec, dst->width, dst->height, k.angle);
    const std::vector<int> got = packed(dst.rec);
    ASSERT_EQ(got.size(), ref.size());
    int worst = 0;
    for (size_t i = 0; i < got.size(); ++i)
      worst = std::max(worst, static_cast<int>(std::lround(std::fabs(got[i] - ref[i]))));
    // The weights are eighths of eighths of a pixel (1/256): at most a step
    // of one or two between neighbours that differ by up to 255.
    EXPECT_LE(worst, 2) << k.type << " " << k.w << "x" << k.h << " " << k.angle;
  }
}

TEST(RotateFree, SourceKeptWithDestinationAndReplacedWithout) {
  for (uint16_t type : kAllKinds) {
    OwnedPicture src, dst, inPlace;
    test::makePattern(src, type, 17, 9, 16);
    test::makePattern(inPlace, type, 17, 9, 16);
    src->attribute = inPlace->attribute = 4;
    const std::vector<uint8_t> before = snapshot(src.rec);
    ASSERT_EQ(process::rotateFreeAngle(&src.rec, &dst.rec, 20), 0);
    EXPECT_EQ(snapshot(src.rec), before);
    EXPECT_EQ(dst->type, type);
    EXPECT_EQ(dst->attribute, 4);
    ASSERT_EQ(process::rotateFreeAngle(&inPlace.rec, nullptr, 20), 0);
    EXPECT_EQ(snapshot(inPlace.rec), snapshot(dst.rec));
  }
}

}  // namespace
