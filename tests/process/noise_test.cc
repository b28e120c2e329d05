// Added noise: repeatability per seed, the moments of each distribution
// measured on flat pictures (mean, standard deviation, kurtosis), photon
// noise growing with intensity, and the per-kind rules (levels kept, binary
// thresholded, palette indices kept in range, spare byte untouched).
#include "process/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <vector>

#include "tests/support/test_support.h"

namespace {

using process::NoiseKind;
using test::OwnedPicture;

std::vector<uint8_t> bytesOf(const ImageRecord& r) {
  std::vector<uint8_t> out;
  const size_t n = static_cast<size_t>(r.width) * r.bytesPerPixel;
  for (int y = 0; y < r.height; ++y) {
    const uint8_t* row = r.pixels + static_cast<size_t>(y) * r.bytesPerLine;
    out.insert(out.end(), row, row + n);
  }
  return out;
}

void makeFlat(OwnedPicture& pic, uint16_t type, int width, int height, uint8_t value) {
  pic.reset();
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, width, height));
  for (int y = 0; y < height; ++y)
    std::fill_n(pic.row(y), static_cast<size_t>(width) * pic->bytesPerPixel, value);
}

std::vector<uint8_t> noisy(OwnedPicture& src, NoiseKind kind, int amount, uint32_t seed) {
  const std::vector<uint8_t> before = bytesOf(src.rec);
  OwnedPicture out;
  EXPECT_EQ(process::addNoise(&src.rec, &out.rec, kind, amount, seed), 0);
  EXPECT_EQ(bytesOf(src.rec), before) << "source changed";
  EXPECT_EQ(out->type, src->type);
  return bytesOf(out.rec);
}

struct Moments {
  double mean, deviation, kurtosis;
};

Moments momentsOf(const std::vector<uint8_t>& v) {
  double sum = 0;
  for (uint8_t x : v) sum += x;
  const double mean = sum / v.size();
  double m2 = 0, m4 = 0;
  for (uint8_t x : v) {
    const double d = x - mean;
    m2 += d * d;
    m4 += d * d * d * d;
  }
  m2 /= v.size();
  m4 /= v.size();
  return {mean, std::sqrt(m2), m4 / (m2 * m2)};
}

TEST(Noise, ZeroAmountCopies) {
  OwnedPicture pic;
  test::makePattern(pic, IMK_RGB, 20, 10);
  for (NoiseKind kind :
       {NoiseKind::uniform, NoiseKind::gaussian, NoiseKind::laplacian, NoiseKind::poisson})
    EXPECT_EQ(noisy(pic, kind, 0, 1), bytesOf(pic.rec));
  const std::vector<uint8_t> before = bytesOf(pic.rec);
  EXPECT_EQ(process::addNoise(&pic.rec, nullptr, NoiseKind::gaussian, 0, 1), 0);
  EXPECT_EQ(bytesOf(pic.rec), before);
}

TEST(Noise, SameSeedSameNoiseOtherSeedOtherNoise) {
  OwnedPicture pic;
  test::makePattern(pic, IMK_BGR, 40, 30);
  for (NoiseKind kind :
       {NoiseKind::uniform, NoiseKind::gaussian, NoiseKind::laplacian, NoiseKind::poisson}) {
    const std::vector<uint8_t> a = noisy(pic, kind, 30, 5), b = noisy(pic, kind, 30, 5);
    const std::vector<uint8_t> c = noisy(pic, kind, 30, 6);
    EXPECT_EQ(a, b);
    EXPECT_NE(a, c);
    EXPECT_NE(a, bytesOf(pic.rec));
  }
}

TEST(Noise, UniformCoversMinusAmountToAmountEvenly) {
  OwnedPicture pic;
  makeFlat(pic, IMK_RGB, 256, 256, 128);
  const std::vector<uint8_t> out = noisy(pic, NoiseKind::uniform, 20, 11);
  std::map<int, int> histogram;
  for (uint8_t v : out) ++histogram[v - 128];
  ASSERT_EQ(histogram.size(), 41u);
  EXPECT_EQ(histogram.begin()->first, -20);
  EXPECT_EQ(histogram.rbegin()->first, 20);
  const double expected = out.size() / 41.0;
  for (auto [offset, count] : histogram) EXPECT_NEAR(count, expected, expected * 0.06) << offset;
  // Variance of an even spread over 41 integers: (41^2 - 1) / 12 = 140.
  const Moments m = momentsOf(out);
  EXPECT_NEAR(m.mean, 128, 0.3);
  EXPECT_NEAR(m.deviation, std::sqrt(140.0), 0.2);
}

TEST(Noise, GaussianAndLaplacianHaveTheAmountAsDeviation) {
  OwnedPicture pic;
  makeFlat(pic, IMK_RGB, 256, 256, 128);
  const Moments g = momentsOf(noisy(pic, NoiseKind::gaussian, 20, 3));
  EXPECT_NEAR(g.mean, 128, 0.3);
  EXPECT_NEAR(g.deviation, 20, 0.4);
  EXPECT_NEAR(g.kurtosis, 3.0, 0.2);  // normal
  const Moments l = momentsOf(noisy(pic, NoiseKind::laplacian, 20, 3));
  EXPECT_NEAR(l.mean, 128, 0.3);
  EXPECT_NEAR(l.deviation, 20, 0.6);
  EXPECT_NEAR(l.kurtosis, 6.0, 1.0);  // double exponential: heavier tails
}

TEST(Noise, PhotonNoiseGrowsWithIntensityAndLeavesBlack) {
  // c = 255 / 20^2; the deviation of v is sqrt(v / c) = 20 sqrt(v / 255):
  // 10.02 at 64, 5.01 at 16.
  for (auto [value, deviation] : {std::pair{64, 10.02}, {16, 5.01}}) {
    OwnedPicture pic;
    makeFlat(pic, IMK_BGR, 256, 256, static_cast<uint8_t>(value));
    const Moments m = momentsOf(noisy(pic, NoiseKind::poisson, 20, 9));
    EXPECT_NEAR(m.mean, value, 0.5);
    EXPECT_NEAR(m.deviation, deviation, deviation * 0.05);
  }
  OwnedPicture black;
  makeFlat(black, IMK_RGB, 64, 64, 0);
  EXPECT_EQ(noisy(black, NoiseKind::poisson, 100, 1), bytesOf(black.rec));
}

TEST(Noise, SpareByteOfFourBytePixelsIsKept) {
  for (uint16_t kind : {IMK_RGBX, IMK_XBGR}) {
    OwnedPicture pic;
    makeFlat(pic, kind, 30, 20, 100);
    const int spare = kind == IMK_RGBX ? 3 : 0;
    const std::vector<uint8_t> out = noisy(pic, NoiseKind::gaussian, 40, 2);
    int changed = 0;
    for (size_t i = 0; i < out.size(); ++i) {
      if (i % 4 == static_cast<size_t>(spare))
        ASSERT_EQ(out[i], 100);
      else
        changed += out[i] != 100;
    }
    EXPECT_GT(changed, 1000);
  }
}

TEST(Noise, BinaryStaysBinaryAndFlipsOnlyUnderStrongNoise) {
  OwnedPicture pic;
  test::makePattern(pic, IMK_BINARY, 64, 64);
  // A deviation of 20 never reaches the threshold 128 away (the table's
  // extreme outcome is about 4.3 deviations).
  EXPECT_EQ(noisy(pic, NoiseKind::gaussian, 20, 4), bytesOf(pic.rec));
  const std::vector<uint8_t> out = noisy(pic, NoiseKind::uniform, 200, 4);
  int flips = 0;
  const std::vector<uint8_t> in = bytesOf(pic.rec);
  for (size_t i = 0; i < out.size(); ++i) {
    ASSERT_LE(out[i], 1);
    flips += out[i] != in[i];
  }
  // Black flips for offsets 128..200, white for -200..-128: 73 of 401.
  EXPECT_NEAR(flips / static_cast<double>(out.size()), 73.0 / 401, 0.02);
}

TEST(Noise, GreyKeepsItsLevelCount) {
  OwnedPicture pic;
  test::makePattern(pic, IMK_GREY, 64, 64, 4);
  pic->colorCount = 4;
  const std::vector<uint8_t> out = noisy(pic, NoiseKind::laplacian, 40, 8);
  const std::vector<uint8_t> in = bytesOf(pic.rec);
  int changed = 0;
  for (size_t i = 0; i < out.size(); ++i) {
    ASSERT_LE(out[i], 3);
    changed += out[i] != in[i];
    ASSERT_LE(std::abs(out[i] - in[i]), 3);
  }
  EXPECT_GT(changed, 0);
  // Small noise cannot reach the next level, 42 intensity steps away.
  EXPECT_EQ(noisy(pic, NoiseKind::uniform, 40, 8), in);
}

TEST(Noise, MappedPicturesPickTheNearestPaletteEntry) {
  OwnedPicture pic;
  makeFlat(pic, IMK_MAPPED, 64, 64, 0);
  pic->colorCount = 3;
  // 0 black, 1 white, 2 mid grey; entries beyond the count are never used.
  const uint8_t entries[3] = {0, 255, 128};
  for (int i = 0; i < 256; ++i)
    pic->palette[i] = pic->palette[256 + i] = pic->palette[512 + i] = i < 3 ? entries[i] : 129;
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x) pic.row(y)[x] = static_cast<uint8_t>((x + y) % 3);
  // Noise of deviation 10 keeps every colour nearest to its own entry.
  EXPECT_EQ(noisy(pic, NoiseKind::gaussian, 10, 1), bytesOf(pic.rec));
  const std::vector<uint8_t> out = noisy(pic, NoiseKind::uniform, 255, 1);
  std::map<int, int> used;
  for (uint8_t v : out) ++used[v];
  EXPECT_EQ(used.size(), 3u);
  EXPECT_LE(used.rbegin()->first, 2);
  OwnedPicture result;
  ASSERT_EQ(process::addNoise(&pic.rec, &result.rec, NoiseKind::uniform, 255, 1), 0);
  EXPECT_EQ(result->colorCount, 3);
  EXPECT_EQ(0, std::memcmp(result->palette, pic->palette, 768));
}

}  // namespace
