// Neighbourhood filters: worked numbers from the kernel tables, uniform
// pictures, border replication, the unclamped Gaussian, and a slow
// coordinate-clamping reference (plain sorting for medians) on random
// pictures of every kind.
#include "process/filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <random>
#include <vector>

#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;

const uint16_t kKinds[] = {IMK_BINARY, IMK_GREY, IMK_MAPPED, IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR};

int bppOf(const ImageRecord& r) { return r.bytesPerPixel; }

// A picture whose rows hold `bytes` (width * bytesPerPixel bytes per row).
void makePicture(OwnedPicture& pic, uint16_t type, int width, int height,
                 const std::vector<uint8_t>& bytes) {
  pic.reset();
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, width, height));
  const size_t n = static_cast<size_t>(width) * pic->bytesPerPixel;
  ASSERT_EQ(bytes.size(), n * height);
  for (int y = 0; y < height; ++y) std::copy_n(bytes.begin() + n * y, n, pic.row(y));
}

std::vector<uint8_t> bytesOf(const ImageRecord& r) {
  std::vector<uint8_t> out;
  const size_t n = static_cast<size_t>(r.width) * r.bytesPerPixel;
  for (int y = 0; y < r.height; ++y) {
    const uint8_t* row = r.pixels + static_cast<size_t>(y) * r.bytesPerLine;
    out.insert(out.end(), row, row + n);
  }
  return out;
}

void makeUniform(OwnedPicture& pic, uint16_t type, int width, int height, uint8_t value) {
  pic.reset();
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, width, height));
  for (int y = 0; y < height; ++y)
    std::fill_n(pic.row(y), static_cast<size_t>(width) * pic->bytesPerPixel, value);
}

void makeRandom(OwnedPicture& pic, uint16_t type, int width, int height, unsigned seed,
                int maxValue) {
  pic.reset();
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, width, height));
  std::mt19937 gen(seed);
  std::uniform_int_distribution<int> dist(0, maxValue);
  for (int y = 0; y < height; ++y)
    for (int i = 0; i < width * pic->bytesPerPixel; ++i)
      pic.row(y)[i] = static_cast<uint8_t>(dist(gen));
}

// The filter applied with a destination; checks the source is untouched.
using Filter = std::function<int(ImageRecord*, ImageRecord*)>;
std::vector<uint8_t> apply(OwnedPicture& src, const Filter& f) {
  const std::vector<uint8_t> before = bytesOf(src.rec);
  OwnedPicture out;
  EXPECT_EQ(f(&src.rec, &out.rec), 0);
  EXPECT_EQ(bytesOf(src.rec), before) << "source changed";
  EXPECT_EQ(out->width, src->width);
  EXPECT_EQ(out->height, src->height);
  EXPECT_EQ(out->type, src->type);
  return bytesOf(out.rec);
}

// ----------------------------------------------------------- reference

// Byte c of pixel (x, y) with coordinates clamped into the picture: edge
// replication, written as coordinates rather than padded rows.
int at(const ImageRecord& r, int x, int y, int c) {
  x = std::clamp(x, 0, r.width - 1);
  y = std::clamp(y, 0, r.height - 1);
  return r.pixels[static_cast<size_t>(y) * r.bytesPerLine +
                  static_cast<size_t>(x) * r.bytesPerPixel + c];
}

// Applies `perByte(window)` where window(dx, dy) reads the neighbour.
std::vector<uint8_t> reference(
    const ImageRecord& r, const std::function<int(const std::function<int(int, int)>&)>& perByte) {
  std::vector<uint8_t> out;
  for (int y = 0; y < r.height; ++y)
    for (int x = 0; x < r.width; ++x)
      for (int c = 0; c < r.bytesPerPixel; ++c)
        out.push_back(static_cast<uint8_t>(
            perByte([&](int dx, int dy) { return at(r, x + dx, y + dy, c); })));
  return out;
}

int clamp255(long long v) { return static_cast<int>(std::clamp<long long>(v, 0, 255)); }

// sum(m * pixel) over an s x s kernel, divided truncating, plus bias, clamped.
std::vector<uint8_t> referenceKernel(const ImageRecord& r, int s, const std::vector<int>& m,
                                     int divisor, int bias) {
  const int h = s / 2;
  return reference(r, [&](const std::function<int(int, int)>& px) {
    long long sum = 0;
    for (int i = 0; i < s; ++i)
      for (int j = 0; j < s; ++j) sum += static_cast<long long>(m[i * s + j]) * px(j - h, i - h);
    return clamp255(sum / divisor + bias);
  });
}

std::vector<int> windowOf(const std::function<int(int, int)>& px, int s) {
  std::vector<int> v;
  for (int dy = -s / 2; dy <= s / 2; ++dy)
    for (int dx = -s / 2; dx <= s / 2; ++dx) v.push_back(px(dx, dy));
  return v;
}

// ------------------------------------------------------------ padded rows

TEST(PaddedRow, RepeatsEdgePixelsAndClampsRows) {
  OwnedPicture pic;
  makePicture(pic, IMK_RGB, 3, 2, {1, 2, 3, 4, 5, 6, 7, 8, 9, 11, 12, 13, 14, 15, 16, 17, 18, 19});
  std::vector<uint8_t> buffer(7 * 3, 0xEE);
  process::loadPaddedRow(buffer.data(), pic.rec, -3, 5);  // row -3 is row 0
  EXPECT_EQ(buffer,
            (std::vector<uint8_t>{1, 2, 3, 1, 2, 3, 1, 2, 3, 4, 5, 6, 7, 8, 9, 7, 8, 9, 7, 8, 9}));
  process::loadPaddedRow(buffer.data(), pic.rec, 5, 5);  // row 5 is row 1
  EXPECT_EQ(buffer, (std::vector<uint8_t>{11, 12, 13, 11, 12, 13, 11, 12, 13, 14, 15,
                                          16, 17, 18, 19, 17, 18, 19, 17, 18, 19}));
}

TEST(PaddedRow, OnePixelWidePictureIsFilteredAsARepeatedColumn) {
  // A single column filtered must match the middle column of three copies.
  OwnedPicture narrow, wide;
  makeRandom(narrow, IMK_GREY, 1, 9, 7, 255);
  std::vector<uint8_t> tripled;
  for (int y = 0; y < 9; ++y) tripled.insert(tripled.end(), 3, narrow.row(y)[0]);
  makePicture(wide, IMK_GREY, 3, 9, tripled);
  const std::vector<Filter> filters = {
      [](ImageRecord* s, ImageRecord* d) { return process::convolve3x3(s, d, 5); },
      [](ImageRecord* s, ImageRecord* d) { return process::sharpenFilter(s, d, 40); },
      [](ImageRecord* s, ImageRecord* d) { return process::reduceNoiseFilter(s, d); },
      [](ImageRecord* s, ImageRecord* d) { return process::gaussianFilter(s, d, 5); },
      [](ImageRecord* s, ImageRecord* d) { return process::medianBoxFilter(s, d, 3); },
  };
  for (const Filter& f : filters) {
    const std::vector<uint8_t> a = apply(narrow, f), b = apply(wide, f);
    for (int y = 0; y < 9; ++y) EXPECT_EQ(a[y], b[y * 3 + 1]) << "row " << y;
  }
}

// ------------------------------------------------------------ 3x3 kernels

// 3 x 3, centre 100, everything else 10, the same value in every byte.
void makeSpot(OwnedPicture& pic, uint16_t type) {
  pic.reset();
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, 3, 3));
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 3; ++x)
      for (int c = 0; c < pic->bytesPerPixel; ++c)
        pic.row(y)[x * pic->bytesPerPixel + c] = (x == 1 && y == 1) ? 100 : 10;
}

std::vector<uint8_t> expand(const std::vector<uint8_t>& perPixel, int bpp) {
  std::vector<uint8_t> out;
  for (uint8_t v : perPixel) out.insert(out.end(), static_cast<size_t>(bpp), v);
  return out;
}

TEST(Convolve3x3, WorkedNumbersOnASpotEveryKind) {
  // Worked by hand with replicated borders; e.g. Enhance Detail at the top
  // middle: -10 -10 + 100 - 10 - 100 = -30, /6 = -5, clamped to 0.
  const std::vector<std::pair<int, std::vector<uint8_t>>> cases = {
      {0, {10, 0, 10, 0, 160, 0, 10, 0, 10}},
      {2, {10, 0, 10, 0, 255, 0, 10, 0, 10}},
      {5, {38, 38, 38, 38, 255, 38, 38, 38, 38}},
      {7, {218, 128, 128, 128, 128, 128, 128, 128, 38}},
  };
  for (uint16_t kind : {IMK_GREY, IMK_MAPPED, IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR}) {
    OwnedPicture pic;
    makeSpot(pic, kind);
    for (const auto& [kernel, expected] : cases)
      EXPECT_EQ(apply(pic, [k = kernel](ImageRecord* s,
                                        ImageRecord* d) { return process::convolve3x3(s, d, k); }),
                expand(expected, bppOf(pic.rec)))
          << "kind " << kind << " kernel " << kernel;
  }
}

TEST(Convolve3x3, MatchesTheKernelTableOnRandomPictures) {
  const std::vector<std::vector<int>> table = {
      {0, -1, 0, -1, 10, -1, 0, -1, 0}, {-1, 0, -1, 0, 7, 0, -1, 0, -1},
      {0, -1, 0, -1, 5, -1, 0, -1, 0},  {1, -2, 1, -2, 5, -2, 1, -2, 1},
      {0, 1, 0, 1, -4, 1, 0, 1, 0},     {-1, -1, -1, -1, 8, -1, -1, -1, -1},
      {1, -2, 1, -2, 4, -2, 1, -2, 1},  {-1, 0, 0, 0, 0, 0, 0, 0, 1},
      {-1, -2, 0, -2, 0, 2, 0, 2, 1}};
  const int divisors[] = {6, 3, 1, 1, 1, 1, 1, 1, 1};
  const int biases[] = {0, 0, 0, 0, 128, 128, 128, 128, 128};
  for (uint16_t kind : {IMK_GREY, IMK_RGB, IMK_XBGR}) {
    OwnedPicture pic;
    makeRandom(pic, kind, 37, 6, kind, 255);
    for (int k = 0; k < 9; ++k)
      EXPECT_EQ(
          apply(pic, [k](ImageRecord* s, ImageRecord* d) { return process::convolve3x3(s, d, k); }),
          referenceKernel(pic.rec, 3, table[k], divisors[k], biases[k]))
          << "kind " << kind << " kernel " << k;
  }
}

TEST(Convolve3x3, UnknownKernelNumberDoesNothing) {
  OwnedPicture pic;
  makeSpot(pic, IMK_GREY);
  const std::vector<uint8_t> before = bytesOf(pic.rec);
  EXPECT_EQ(process::convolve3x3(&pic.rec, nullptr, 9), 0);
  EXPECT_EQ(process::convolve3x3(&pic.rec, nullptr, -1), 0);
  EXPECT_EQ(bytesOf(pic.rec), before);
}

// ------------------------------------------------------ uniform pictures

struct NamedFilter {
  const char* name;
  Filter f;
  int expected;  // -1: the picture's own value
};

std::vector<NamedFilter> uniformCases() {
  using process::convolve3x3;
  std::vector<NamedFilter> cases;
  const char* names[] = {"detail",     "focus",     "restore", "kernel3",   "edgeLight",
                         "edgeMedium", "edgeHeavy", "emboss",  "embossMore"};
  for (int k = 0; k < 9; ++k)
    cases.push_back({names[k], [k](ImageRecord* s, ImageRecord* d) { return convolve3x3(s, d, k); },
                     k < 4 ? -1 : 128});
  for (int p : {1, 5, 50, 100}) {
    cases.push_back({"soften",
                     [p](ImageRecord* s, ImageRecord* d) { return process::softenFilter(s, d, p); },
                     -1});
    cases.push_back(
        {"blur", [p](ImageRecord* s, ImageRecord* d) { return process::blurFilter(s, d, p); }, -1});
    cases.push_back(
        {"edges",
         [p](ImageRecord* s, ImageRecord* d) { return process::enhanceEdgesFilter(s, d, p); }, -1});
  }
  for (int p : {1, 50, 99})
    cases.push_back(
        {"sharpen", [p](ImageRecord* s, ImageRecord* d) { return process::sharpenFilter(s, d, p); },
         -1});
  for (int size : {1, 3, 5, 7, 13}) {
    cases.push_back(
        {"average",
         [size](ImageRecord* s, ImageRecord* d) { return process::averageFilter(s, d, size); },
         -1});
    cases.push_back(
        {"maximum",
         [size](ImageRecord* s, ImageRecord* d) { return process::maximumFilter(s, d, size); },
         -1});
    cases.push_back(
        {"minimum",
         [size](ImageRecord* s, ImageRecord* d) { return process::minimumFilter(s, d, size); },
         -1});
    cases.push_back(
        {"medianBox",
         [size](ImageRecord* s, ImageRecord* d) { return process::medianBoxFilter(s, d, size); },
         -1});
    cases.push_back(
        {"medianCross",
         [size](ImageRecord* s, ImageRecord* d) { return process::medianCrossFilter(s, d, size); },
         -1});
  }
  cases.push_back({"gauss3",
                   [](ImageRecord* s, ImageRecord* d) { return process::gaussianFilter(s, d, 3); },
                   -1});
  cases.push_back({"reduceNoise",
                   [](ImageRecord* s, ImageRecord* d) { return process::reduceNoiseFilter(s, d); },
                   -1});
  return cases;
}

TEST(UniformPicture, StaysUniformUnderBalancedKernelsAndGoesTo128UnderEdgeKernels) {
  for (uint16_t kind : kKinds) {
    const uint8_t value = kind == IMK_BINARY ? 1 : 77;
    OwnedPicture pic;
    makeUniform(pic, kind, 19, 7, value);
    for (const NamedFilter& c : uniformCases()) {
      const std::vector<uint8_t> out = apply(pic, c.f);
      const uint8_t want = static_cast<uint8_t>(c.expected < 0 ? value : c.expected);
      EXPECT_EQ(out, std::vector<uint8_t>(out.size(), want)) << c.name << " kind " << kind;
    }
  }
}

TEST(UniformPicture, SharpenAtFullStrengthDividesByOneAndGivesBlack) {
  // d = 1 at strength 100: 100 v - (100 * 8 v) / 8 = 0.
  OwnedPicture pic;
  makeUniform(pic, IMK_RGB, 5, 4, 200);
  const std::vector<uint8_t> out =
      apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::sharpenFilter(s, d, 100); });
  EXPECT_EQ(out, std::vector<uint8_t>(out.size(), 0));
}

// ------------------------------------------------- strength-controlled

// 3 x 3 grey: background b, centre c. Returns {centre, top middle, corner}.
std::vector<int> spotResult(uint8_t background, uint8_t centre, const Filter& f) {
  OwnedPicture pic;
  makePicture(pic, IMK_GREY, 3, 3,
              {background, background, background, background, centre, background, background,
               background, background});
  const std::vector<uint8_t> out = apply(pic, f);
  return {out[4], out[1], out[0]};
}

TEST(StrengthFilters, WorkedNumbers) {
  using V = std::vector<int>;
  // Soften 100: w = 0, (25 P + 100 N) / 825: centre 6375/825 = 7, each
  // neighbour sees the spot once: 25500/825 = 30.
  EXPECT_EQ(
      spotResult(0, 255,
                 [](ImageRecord* s, ImageRecord* d) { return process::softenFilter(s, d, 100); }),
      (V{7, 30, 30}));
  // Soften 5: w = 95 * 3175 / 100 = 3016; centre 255 * 3041 / 3841 = 201,
  // neighbours 25500 / 3841 = 6.
  EXPECT_EQ(
      spotResult(0, 255,
                 [](ImageRecord* s, ImageRecord* d) { return process::softenFilter(s, d, 5); }),
      (V{201, 6, 6}));
  // Blur 100: (25 P + 200 E + 100 K) / 1225: centre 5, side 51000/1225 = 41,
  // corner 25500/1225 = 20.
  EXPECT_EQ(
      spotResult(0, 255,
                 [](ImageRecord* s, ImageRecord* d) { return process::blurFilter(s, d, 100); }),
      (V{5, 41, 20}));
  // Enhance edges 50: w = 27; centre (130*36 - 800)/28 = 138, neighbours
  // (100*36 - 830)/28 = 98.
  EXPECT_EQ(spotResult(100, 130,
                       [](ImageRecord* s, ImageRecord* d) {
                         return process::enhanceEdgesFilter(s, d, 50);
                       }),
            (V{138, 98, 98}));
  // Enhance edges 100: 9 P - N: centre 9*130 - 800 = 370 -> 255,
  // neighbours 900 - 830 = 70.
  EXPECT_EQ(spotResult(100, 130,
                       [](ImageRecord* s, ImageRecord* d) {
                         return process::enhanceEdgesFilter(s, d, 100);
                       }),
            (V{255, 70, 70}));
  // Sharpen 50: d = 50; centre (13000 - 5000)/50 = 160; neighbours
  // (10000 - 41500/8 = 5187)/50 = 96.
  EXPECT_EQ(
      spotResult(100, 130,
                 [](ImageRecord* s, ImageRecord* d) { return process::sharpenFilter(s, d, 50); }),
      (V{160, 96, 96}));
  // Strengths outside 1..100 are clamped.
  EXPECT_EQ(
      spotResult(0, 255,
                 [](ImageRecord* s, ImageRecord* d) { return process::softenFilter(s, d, 1000); }),
      (V{7, 30, 30}));
}

TEST(StrengthFilters, MatchTheirFormulasAtEveryStrength) {
  for (uint16_t kind : {IMK_GREY, IMK_BGR, IMK_RGBX}) {
    OwnedPicture pic;
    makeRandom(pic, kind, 21, 5, 100 + kind, 255);
    for (int p = 1; p <= 100; ++p) {
      const int ws = ((100 - p) * 3175) / 100, we = ((100 - p) * 55) / 100;
      const int d = p == 100 ? 1 : 100 - p;
      auto parts = [](const std::function<int(int, int)>& px, int* P, int* E, int* K) {
        *P = px(0, 0);
        *E = px(0, -1) + px(0, 1) + px(-1, 0) + px(1, 0);
        *K = px(-1, -1) + px(1, -1) + px(-1, 1) + px(1, 1);
      };
      EXPECT_EQ(apply(pic, [p](ImageRecord* s,
                               ImageRecord* o) { return process::softenFilter(s, o, p); }),
                reference(pic.rec,
                          [&](const std::function<int(int, int)>& px) {
                            int P, E, K;
                            parts(px, &P, &E, &K);
                            return (P * (ws + 25) + 100 * (E + K)) / (ws + 825);
                          }))
          << "soften " << p;
      EXPECT_EQ(
          apply(pic, [p](ImageRecord* s, ImageRecord* o) { return process::blurFilter(s, o, p); }),
          reference(pic.rec,
                    [&](const std::function<int(int, int)>& px) {
                      int P, E, K;
                      parts(px, &P, &E, &K);
                      return (P * (ws + 25) + 200 * E + 100 * K) / (ws + 1225);
                    }))
          << "blur " << p;
      EXPECT_EQ(apply(pic, [p](ImageRecord* s,
                               ImageRecord* o) { return process::enhanceEdgesFilter(s, o, p); }),
                reference(pic.rec,
                          [&](const std::function<int(int, int)>& px) {
                            int P, E, K;
                            parts(px, &P, &E, &K);
                            return clamp255((P * (we + 9) - (E + K)) / (we + 1));
                          }))
          << "edges " << p;
      EXPECT_EQ(apply(pic, [p](ImageRecord* s,
                               ImageRecord* o) { return process::sharpenFilter(s, o, p); }),
                reference(pic.rec,
                          [&](const std::function<int(int, int)>& px) {
                            int P, E, K;
                            parts(px, &P, &E, &K);
                            return clamp255((100 * P - (p * (E + K)) / 8) / d);
                          }))
          << "sharpen " << p;
    }
  }
}

// ------------------------------------------------------------ reduce noise

TEST(ReduceNoise, WorkedNumbersOnASpot) {
  // 5 x 5 of 10 with 100 in the middle. Centre: (700 + 3*40 - 40)/15 = 52.
  // One to the left: (70 + 3*(30 + 100) - 40)/15 = 28. Two to the left:
  // (70 + 120 - (30 + 100))/15 = 4 (its own left neighbours are replicas).
  std::vector<uint8_t> bytes(25, 10);
  bytes[12] = 100;
  OwnedPicture pic;
  makePicture(pic, IMK_GREY, 5, 5, bytes);
  const std::vector<uint8_t> out =
      apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::reduceNoiseFilter(s, d); });
  EXPECT_EQ(out[12], 52);
  EXPECT_EQ(out[11], 28);
  EXPECT_EQ(out[10], 4);
  EXPECT_EQ(out[7], 28);  // above
  EXPECT_EQ(out[2], 4);   // two above
  EXPECT_EQ(out[6], 10);  // diagonal: untouched by the cross
}

TEST(ReduceNoise, MatchesTheCrossOnRandomPictures) {
  std::vector<int> cross(25, 0);
  cross[12] = 7;
  cross[7] = cross[17] = cross[11] = cross[13] = 3;
  cross[2] = cross[22] = cross[10] = cross[14] = -1;
  for (uint16_t kind : {IMK_GREY, IMK_RGB, IMK_XBGR}) {
    OwnedPicture pic;
    makeRandom(pic, kind, 23, 7, 5 + kind, 255);
    EXPECT_EQ(
        apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::reduceNoiseFilter(s, d); }),
        referenceKernel(pic.rec, 5, cross, 15, 0));
  }
}

// ------------------------------------------------------------- user filter

TEST(UserFilter, IdentityKernelCopies) {
  std::vector<int> m(25, 0);
  m[12] = 1;
  for (uint16_t kind : kKinds) {
    OwnedPicture pic;
    makeRandom(pic, kind, 13, 6, kind, kind == IMK_BINARY ? 1 : 255);
    EXPECT_EQ(apply(pic, [&](ImageRecord* s,
                             ImageRecord* d) { return process::userFilter(s, d, m.data(), 1, 0); }),
              bytesOf(pic.rec));
  }
}

TEST(UserFilter, DividesTowardZeroThenAddsTheBias) {
  // -7 / 2 is -3 (not -4), plus 10 gives 7.
  std::vector<int> m(25, 0);
  m[12] = -1;
  OwnedPicture pic;
  makeUniform(pic, IMK_GREY, 4, 4, 7);
  std::vector<uint8_t> out = apply(pic, [&](ImageRecord* s, ImageRecord* d) {
    return process::userFilter(s, d, m.data(), 2, 10);
  });
  EXPECT_EQ(out, std::vector<uint8_t>(16, 7));
  // A divisor of 0 is taken as 1: -7 + 10 = 3.
  out = apply(pic, [&](ImageRecord* s, ImageRecord* d) {
    return process::userFilter(s, d, m.data(), 0, 10);
  });
  EXPECT_EQ(out, std::vector<uint8_t>(16, 3));
}

TEST(UserFilter, MatchesTheWeightsForSmallAndHugeWeights) {
  std::mt19937 gen(3);
  std::uniform_int_distribution<int> small(-9, 9);
  std::vector<int> m(25);
  for (int& w : m) w = small(gen);
  OwnedPicture pic;
  makeRandom(pic, IMK_RGB, 17, 8, 11, 255);
  EXPECT_EQ(apply(pic, [&](ImageRecord* s,
                           ImageRecord* d) { return process::userFilter(s, d, m.data(), 7, -3); }),
            referenceKernel(pic.rec, 5, m, 7, -3));
  EXPECT_EQ(
      apply(pic, [&](ImageRecord* s,
                     ImageRecord* d) { return process::userFilter(s, d, m.data(), -5, 200); }),
      referenceKernel(pic.rec, 5, m, -5, 200));
  // Weights far too big for a 24-bit sum still divide exactly.
  std::vector<int> huge(25, 0);
  huge[12] = 1 << 22;
  huge[0] = 3 << 20;
  EXPECT_EQ(apply(pic,
                  [&](ImageRecord* s, ImageRecord* d) {
                    return process::userFilter(s, d, huge.data(), 1 << 22, 0);
                  }),
            referenceKernel(pic.rec, 5, huge, 1 << 22, 0));
}

// ---------------------------------------------------------------- average

TEST(Average, WorkedNumbers) {
  // A 255 spot: every 3x3 window that holds it once gives 255 / 9 = 28.
  EXPECT_EQ(
      spotResult(0, 255,
                 [](ImageRecord* s, ImageRecord* d) { return process::averageFilter(s, d, 3); }),
      (std::vector<int>{28, 28, 28}));
  // 5x5 on a 3x3 picture: the corner's window holds the spot once of 25:
  // 255/25 = 10; the centre too.
  EXPECT_EQ(
      spotResult(0, 255,
                 [](ImageRecord* s, ImageRecord* d) { return process::averageFilter(s, d, 5); }),
      (std::vector<int>{10, 10, 10}));
}

TEST(Average, MatchesTheWindowMeanForEverySize) {
  for (uint16_t kind : {IMK_GREY, IMK_RGB, IMK_RGBX}) {
    OwnedPicture pic;
    makeRandom(pic, kind, 29, 9, 50 + kind, 255);
    for (int s = 1; s <= 13; s += 2)
      EXPECT_EQ(apply(pic, [s](ImageRecord* a,
                               ImageRecord* b) { return process::averageFilter(a, b, s); }),
                reference(pic.rec,
                          [&](const std::function<int(int, int)>& px) {
                            int sum = 0;
                            for (int v : windowOf(px, s)) sum += v;
                            return sum / (s * s);
                          }))
          << "size " << s;
  }
}

// --------------------------------------------------------------- Gaussian

TEST(Gaussian, WeightsOfSizesThreeAndFive) {
  // sigma^2 = 9 / (2 ln 255) = 0.8121: exp(-1/1.6242) = 0.5403,
  // exp(-2/1.6242) = 0.2919, S = 4.3286; 2048/S = 473.1, 255.6, 138.1.
  std::vector<int> w(9);
  EXPECT_EQ(process::gaussianWeights(3, w.data()), 3);
  EXPECT_EQ(w, (std::vector<int>{138, 256, 138, 256, 473, 256, 138, 256, 138}));
  std::vector<int> w5(25);
  process::gaussianWeights(5, w5.data());
  EXPECT_EQ(w5[12], 174);
  EXPECT_EQ(w5[13], 140);
  EXPECT_EQ(w5[0], 30);
  // The rounded weights need not add up to 2048.
  int sum = 0;
  for (int v : w5) sum += v;
  EXPECT_EQ(sum, 2054);
}

TEST(Gaussian, IsNotClampedSoWhiteCanWrapToBlack) {
  // Rounded weights of size 11 add up to 2064 and of 13 to 2058: white gives
  // 255 * 2064 >> 11 = 256, stored as 0. Size 9 adds up to 2042: 254.
  for (uint16_t kind : {IMK_GREY, IMK_RGB, IMK_XBGR}) {
    OwnedPicture pic;
    makeUniform(pic, kind, 15, 15, 255);
    for (auto [size, want] : {std::pair{3, 255}, {5, 255}, {9, 254}, {11, 0}, {13, 0}}) {
      const std::vector<uint8_t> out = apply(pic, [s = size](ImageRecord* a, ImageRecord* b) {
        return process::gaussianFilter(a, b, s);
      });
      EXPECT_EQ(out, std::vector<uint8_t>(out.size(), want)) << "size " << size << " kind " << kind;
    }
  }
}

TEST(Gaussian, MatchesTheFullWindowSum) {
  // The reference multiplies all s*s cells by their own weight.
  for (uint16_t kind : {IMK_GREY, IMK_BGR, IMK_XBGR}) {
    OwnedPicture pic;
    makeRandom(pic, kind, 31, 8, 9 + kind, 255);
    for (int s = 1; s <= 13; s += 2) {
      std::vector<int> w(static_cast<size_t>(s * s));
      process::gaussianWeights(s, w.data());
      EXPECT_EQ(apply(pic, [s](ImageRecord* a,
                               ImageRecord* b) { return process::gaussianFilter(a, b, s); }),
                reference(pic.rec,
                          [&](const std::function<int(int, int)>& px) {
                            const std::vector<int> v = windowOf(px, s);
                            int sum = 0;
                            for (size_t i = 0; i < v.size(); ++i) sum += w[i] * v[i];
                            return (sum >> 11) & 255;
                          }))
          << "size " << s;
    }
  }
}

// ------------------------------------------------ maximum, minimum, medians

TEST(RankFilters, WorkedNumbers) {
  // 3 x 3 holding 1..9 row by row (9 at the bottom right).
  OwnedPicture pic;
  makePicture(pic, IMK_GREY, 3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9});
  auto run = [&](const Filter& f) { return apply(pic, f); };
  using V = std::vector<uint8_t>;
  // Centre window is 1..9: median 5; the corner (0,0) window is
  // 1 1 2 / 1 1 2 / 4 4 5, sorted 1 1 1 1 2 2 4 4 5: median 2; the top
  // middle 1 2 3 / 1 2 3 / 4 5 6: median 3.
  EXPECT_EQ(run([](ImageRecord* s, ImageRecord* d) { return process::medianBoxFilter(s, d, 3); }),
            (V{2, 3, 3, 4, 5, 6, 7, 7, 8}));
  EXPECT_EQ(run([](ImageRecord* s, ImageRecord* d) { return process::maximumFilter(s, d, 3); }),
            (V{5, 6, 6, 8, 9, 9, 8, 9, 9}));
  EXPECT_EQ(run([](ImageRecord* s, ImageRecord* d) { return process::minimumFilter(s, d, 3); }),
            (V{1, 1, 2, 1, 1, 2, 4, 4, 5}));
  // Cross at the centre: 2, 4, 5, 6, 8 -> 5; at (1,0): 2 (above, replica),
  // 1, 2, 3, 5 -> 2; at (0,0): 1 1 1 2 4 -> 1.
  const V cross =
      run([](ImageRecord* s, ImageRecord* d) { return process::medianCrossFilter(s, d, 3); });
  EXPECT_EQ(cross[4], 5);
  EXPECT_EQ(cross[1], 2);
  EXPECT_EQ(cross[0], 1);
}

TEST(RankFilters, MatchSortingForEverySizeKindAndWidth) {
  for (uint16_t kind : {IMK_GREY, IMK_RGB, IMK_RGBX}) {
    for (int width : {1, 2, 17, 40}) {
      for (int maxValue : {1, 3, 255}) {
        OwnedPicture pic;
        makeRandom(pic, kind, width, 7, kind * 100 + width + maxValue, maxValue);
        for (int s = 1; s <= 13; s += 2) {
          const std::string where = "kind " + std::to_string(kind) + " width " +
                                    std::to_string(width) + " max " + std::to_string(maxValue) +
                                    " size " + std::to_string(s);
          EXPECT_EQ(apply(pic, [s](ImageRecord* a,
                                   ImageRecord* b) { return process::medianBoxFilter(a, b, s); }),
                    reference(pic.rec,
                              [&](const std::function<int(int, int)>& px) {
                                std::vector<int> v = windowOf(px, s);
                                std::sort(v.begin(), v.end());
                                return v[v.size() / 2];
                              }))
              << "box median " << where;
          EXPECT_EQ(apply(pic, [s](ImageRecord* a,
                                   ImageRecord* b) { return process::medianCrossFilter(a, b, s); }),
                    reference(pic.rec,
                              [&](const std::function<int(int, int)>& px) {
                                std::vector<int> v;
                                for (int d = -s / 2; d <= s / 2; ++d) {
                                  v.push_back(px(0, d));
                                  if (d != 0) v.push_back(px(d, 0));
                                }
                                std::sort(v.begin(), v.end());
                                return v[(2 * s - 1) / 2];
                              }))
              << "cross median " << where;
          EXPECT_EQ(apply(pic, [s](ImageRecord* a,
                                   ImageRecord* b) { return process::maximumFilter(a, b, s); }),
                    reference(pic.rec,
                              [&](const std::function<int(int, int)>& px) {
                                const std::vector<int> v = windowOf(px, s);
                                return *std::max_element(v.begin(), v.end());
                              }))
              << "maximum " << where;
          EXPECT_EQ(apply(pic, [s](ImageRecord* a,
                                   ImageRecord* b) { return process::minimumFilter(a, b, s); }),
                    reference(pic.rec,
                              [&](const std::function<int(int, int)>& px) {
                                const std::vector<int> v = windowOf(px, s);
                                return *std::min_element(v.begin(), v.end());
                              }))
              << "minimum " << where;
        }
      }
    }
  }
}

TEST(RankFilters, EvenAndOutOfRangeSizesAreAdjusted) {
  OwnedPicture pic;
  makeRandom(pic, IMK_GREY, 20, 20, 4, 255);
  auto box = [&](int s) {
    return apply(pic,
                 [s](ImageRecord* a, ImageRecord* b) { return process::medianBoxFilter(a, b, s); });
  };
  EXPECT_EQ(box(4), box(5));
  EXPECT_EQ(box(0), bytesOf(pic.rec));  // size 1 copies
  EXPECT_EQ(box(-3), bytesOf(pic.rec));
}

// ------------------------------------------------------ picture handling

TEST(FilterResult, FourthByteIsFilteredLikeTheColourBytes) {
  // Only the spare byte of one pixel is set: a maximum spreads it.
  for (uint16_t kind : {IMK_RGBX, IMK_XBGR}) {
    OwnedPicture pic;
    makeUniform(pic, kind, 3, 3, 0);
    const int spare = kind == IMK_RGBX ? 3 : 0;
    pic.row(1)[4 + spare] = 200;
    const std::vector<uint8_t> out =
        apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::maximumFilter(s, d, 3); });
    for (size_t i = 0; i < out.size(); ++i)
      EXPECT_EQ(out[i], i % 4 == static_cast<size_t>(spare) ? 200 : 0);
  }
}

TEST(FilterResult, KeepsCountAttributeAndPaletteAndReplacesWithoutDestination) {
  OwnedPicture pic;
  makeRandom(pic, IMK_MAPPED, 9, 9, 1, 15);
  pic->colorCount = 16;
  pic->attribute = 5;
  for (int i = 0; i < 768; ++i) pic->palette[i] = static_cast<uint8_t>(i * 7);
  const std::vector<uint8_t> expected =
      apply(pic, [](ImageRecord* s, ImageRecord* d) { return process::medianBoxFilter(s, d, 5); });
  OwnedPicture out;
  ASSERT_EQ(process::medianBoxFilter(&pic.rec, &out.rec, 5), 0);
  EXPECT_EQ(out->colorCount, 16);
  EXPECT_EQ(out->attribute, 5);
  for (int i = 0; i < 768; ++i) ASSERT_EQ(out->palette[i], static_cast<uint8_t>(i * 7));
  // Without a destination the picture itself is replaced.
  ASSERT_EQ(process::medianBoxFilter(&pic.rec, nullptr, 5), 0);
  EXPECT_EQ(bytesOf(pic.rec), expected);
  EXPECT_EQ(pic->colorCount, 16);
  EXPECT_EQ(pic->palette[100], static_cast<uint8_t>(700));
}

}  // namespace
