// Tone adjustments: tables checked against worked values and small references
// written another way, the level-space adaptation, palette pictures, the
// per-channel operations and the channel swaps.
#include "process/tone.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

#include "process/lookup.h"
#include "process/operation.h"
#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;

// A picture of the given kind whose packed pixel bytes (width * bytesPerPixel
// per row) are `bytes`.
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

// Every byte a picture owns, for "the source is untouched" checks.
std::vector<uint8_t> snapshot(const ImageRecord& pic) {
  std::vector<uint8_t> out(pic.pixels,
                           pic.pixels + static_cast<size_t>(pic.bytesPerLine) * pic.height);
  out.insert(out.end(), pic.palette, pic.palette + 768);
  const uint8_t* header = reinterpret_cast<const uint8_t*>(&pic);
  out.insert(out.end(), header, header + offsetof(ImageRecord, palette));
  return out;
}

// A 256-level grey picture holding every value once (16 x 16).
void allValues(OwnedPicture& pic) {
  std::vector<int> v(256);
  for (int i = 0; i < 256; ++i) v[i] = i;
  makePicture(pic, IMK_GREY, 16, 16, v, 256);
}

// Runs an operation into a fresh destination and returns the packed result.
std::vector<int> run(const std::function<int(ImageRecord*, ImageRecord*)>& op, OwnedPicture& src,
                     OwnedPicture& dst) {
  dst.reset();
  EXPECT_EQ(op(&src.rec, &dst.rec), 0);
  return packed(dst.rec);
}

const uint16_t kAllKinds[] = {IMK_BINARY, IMK_GREY, IMK_MAPPED, IMK_RGB,
                              IMK_RGBX,   IMK_BGR,  IMK_XBGR};

// ---------------------------------------------------------------------------
// Tables

TEST(ToneTables, NegativeEndsAndMiddle) {
  uint8_t t[256];
  process::negativeTable(t);
  EXPECT_EQ(t[0], 255);
  EXPECT_EQ(t[255], 0);
  EXPECT_EQ(t[100], 155);
  EXPECT_EQ(t[128], 127);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(t[t[i]], i);  // an involution
}

TEST(ToneTables, LogarithmicAtPowersOfTwo) {
  uint8_t t[256];
  process::logarithmicTable(t);
  // ln(2^k) / ln(2^8) = k / 8, so 1 + i = 2^k gives trunc(255 k / 8).
  const int expected[9] = {0, 31, 63, 95, 127, 159, 191, 223, 255};
  for (int k = 0; k <= 8; ++k) EXPECT_EQ(t[(1 << k) - 1], expected[k]) << "k=" << k;
  for (int i = 1; i < 256; ++i) EXPECT_LE(t[i - 1], t[i]);
  // Reference through the base-2 logarithm: 255 * log2(1 + i) / 8.
  for (int i = 0; i < 256; ++i)
    EXPECT_EQ(t[i], static_cast<int>(255.0 * std::log2(1.0 + i) / 8.0)) << "i=" << i;
}

TEST(ToneTables, SolarizeMirrorsAboveThreshold) {
  uint8_t t[256];
  process::solarizeTable(t, 255);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(t[i], i);
  process::solarizeTable(t, 128);
  EXPECT_EQ(t[0], 0);
  EXPECT_EQ(t[128], 128);
  EXPECT_EQ(t[129], 126);
  EXPECT_EQ(t[255], 0);
  process::solarizeTable(t, 0);
  EXPECT_EQ(t[0], 0);
  EXPECT_EQ(t[1], 254);
}

// Value of v under posterize n, worked per value instead of per block: its
// block k = v / step starts at k * step; the block is white when its start
// plus one increment reaches 256.
int posterizeReference(int v, int n) {
  const int step = 256 / n, inc = 255 / (n - 1);
  const int k = v / step;
  return k * step + inc < 256 ? k * inc : 255;
}

TEST(Posterize, FourLevelsInQuarters) {
  uint8_t t[256];
  process::posterizeTable(t, 4);
  for (int i = 0; i < 256; ++i) {
    const int expected = i < 64 ? 0 : i < 128 ? 85 : i < 192 ? 170 : 255;
    EXPECT_EQ(t[i], expected) << "i=" << i;
  }
}

TEST(Posterize, FiveLevelsForceTopToWhite) {
  uint8_t t[256];
  process::posterizeTable(t, 5);
  // step 51, increment 63: 0..50, 51..101, 102..152, 153..203, and 204..255
  // forced to 255 instead of 4 * 63 = 252.
  for (int i = 0; i < 256; ++i) {
    const int expected = i <= 50 ? 0 : i <= 101 ? 63 : i <= 152 ? 126 : i <= 203 ? 189 : 255;
    EXPECT_EQ(t[i], expected) << "i=" << i;
  }
}

TEST(Posterize, TwoLevelsAndIdentity) {
  uint8_t t[256];
  process::posterizeTable(t, 2);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(t[i], i < 128 ? 0 : 255);
  process::posterizeTable(t, 256);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(t[i], i);
}

TEST(Posterize, EveryDialogLevelCountMatchesPerValueReference) {
  for (int n : {2, 3, 4, 5, 6, 7, 8, 16, 32, 64, 100, 128, 256}) {
    uint8_t t[256];
    process::posterizeTable(t, n);
    for (int v = 0; v < 256; ++v)
      ASSERT_EQ(t[v], posterizeReference(v, n)) << "n=" << n << " v=" << v;
  }
  // Eight levels by hand: 0, 36, ..., 216 and a white top block.
  uint8_t t[256];
  process::posterizeTable(t, 8);
  const int levels[8] = {0, 36, 72, 108, 144, 180, 216, 255};
  for (int k = 0; k < 8; ++k) EXPECT_EQ(t[k * 32 + 5], levels[k]);
}

TEST(Brightness, SaturatesAtBothEnds) {
  uint8_t t[256];
  process::brightnessTable(t, 0);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(t[i], i);
  process::brightnessTable(t, 50);
  EXPECT_EQ(t[0], 50);
  EXPECT_EQ(t[205], 255);
  EXPECT_EQ(t[206], 255);
  process::brightnessTable(t, -50);
  EXPECT_EQ(t[49], 0);
  EXPECT_EQ(t[50], 0);
  EXPECT_EQ(t[51], 1);
  EXPECT_EQ(t[255], 205);
}

// Exact rational reference in integers: C++ division truncates toward zero
// as the table's floating point does.
int contrastReference(int i, int k) {
  const int v = k > 0 ? 255 * (i - k) / (255 - 2 * k) : (255 + 2 * k) * i / 255 - k;
  return v < 0 ? 0 : v > 255 ? 255 : v;
}

TEST(Contrast, ZeroIsIdentityAnd127IsThreshold) {
  uint8_t t[256];
  process::contrastTable(t, 0);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(t[i], i);
  process::contrastTable(t, 127);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(t[i], i <= 127 ? 0 : 255) << "i=" << i;
}

TEST(Contrast, WorkedValuesAndIntegerReference) {
  uint8_t t[256];
  process::contrastTable(t, 50);
  EXPECT_EQ(t[50], 0);
  EXPECT_EQ(t[100], 82);   // 255 * 50 / 155 = 82.26
  EXPECT_EQ(t[204], 253);  // 255 * 154 / 155 = 253.35
  EXPECT_EQ(t[205], 255);
  process::contrastTable(t, -50);
  EXPECT_EQ(t[0], 50);
  EXPECT_EQ(t[100], 110);  // 155 * 100 / 255 + 50 = 110.78
  EXPECT_EQ(t[255], 205);
  process::contrastTable(t, -127);
  EXPECT_EQ(t[0], 127);
  EXPECT_EQ(t[255], 128);
  for (int k = -127; k <= 127; ++k) {
    process::contrastTable(t, k);
    for (int i = 0; i < 256; ++i)
      ASSERT_EQ(t[i], contrastReference(i, k)) << "k=" << k << " i=" << i;
  }
}

TEST(Gamma, OneIsIdentityAndWorkedValues) {
  uint8_t t[256];
  process::gammaTable(t, 1.0);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(t[i], i);
  process::gammaTable(t, 2.0);  // 255 sqrt(i / 255) rounded
  EXPECT_EQ(t[0], 0);
  EXPECT_EQ(t[64], 128);  // 127.75
  EXPECT_EQ(t[255], 255);
  process::gammaTable(t, 0.5);  // i^2 / 255 rounded
  EXPECT_EQ(t[100], 39);        // 39.22
  EXPECT_EQ(t[128], 64);        // 64.25
  EXPECT_EQ(t[255], 255);
  // Dialog steps of 0.01 keep the ends fixed and the table monotonic.
  for (int p = 0; p < 500; p += 7) {
    process::gammaTable(t, (p + 1) / 100.0);
    EXPECT_EQ(t[0], 0);
    EXPECT_EQ(t[255], 255);
    for (int i = 1; i < 256; ++i) ASSERT_LE(t[i - 1], t[i]);
  }
}

TEST(LevelSpace, TableTakenThroughIntensityAndBack) {
  uint8_t up[256], out[256];
  process::brightnessTable(up, 17);
  process::levelSpaceTable(up, 16, out);
  for (int i = 0; i < 15; ++i) EXPECT_EQ(out[i], i + 1);
  EXPECT_EQ(out[15], 15);
  for (int i = 16; i < 256; ++i) EXPECT_EQ(out[i], 0);
  process::negativeTable(up);
  process::levelSpaceTable(up, 2, out);
  EXPECT_EQ(out[0], 1);
  EXPECT_EQ(out[1], 0);
}

TEST(LevelSpace, TruncationCanDropALevel) {
  // With 10 levels the intensities are i * 255 / 9 = 0, 28, 56, ...; back by
  // truncation 28 * 9 / 255 = 0.99 is level 0, so even the identity table
  // moves level 1 down. Level counts with 255 / (n - 1) whole keep every level.
  uint8_t identity[256], out[256];
  process::brightnessTable(identity, 0);
  process::levelSpaceTable(identity, 10, out);
  EXPECT_EQ(out[1], 0);
  EXPECT_EQ(out[9], 9);
  for (int n : {2, 4, 6, 16, 18, 52, 86}) {
    process::levelSpaceTable(identity, n, out);
    for (int i = 0; i < n; ++i) EXPECT_EQ(out[i], i) << "n=" << n;
  }
}

// ---------------------------------------------------------------------------
// Applying a single table

TEST(ToneApply, SixteenLevelGreyBrightenedKeepsSixteenLevels) {
  OwnedPicture src, dst;
  std::vector<int> levels(16);
  for (int i = 0; i < 16; ++i) levels[i] = i;
  makePicture(src, IMK_GREY, 4, 4, levels, 16);
  ASSERT_EQ(process::brightnessPicture(&src.rec, &dst.rec, 17), 0);
  EXPECT_EQ(dst->type, IMK_GREY);
  EXPECT_EQ(dst->colorCount, 16);
  std::vector<int> expected(16);
  for (int i = 0; i < 16; ++i) expected[i] = i < 15 ? i + 1 : 15;
  EXPECT_EQ(packed(dst.rec), expected);
}

TEST(ToneApply, FewLevelGreyTruncatesBackToLevels) {
  OwnedPicture src, dst;
  // Four levels: intensities 0, 85, 170, 255. Contrast 127 sends 85 to 0 and
  // 170 to 255; gamma 2 sends 85 to 147 (level 1) and 170 to 208 (level 2).
  makePicture(src, IMK_GREY, 4, 1, {0, 1, 2, 3}, 4);
  EXPECT_EQ(run([](ImageRecord* s, ImageRecord* d) { return process::contrastPicture(s, d, 127); },
                src, dst),
            (std::vector<int>{0, 0, 3, 3}));
  EXPECT_EQ(run([](ImageRecord* s, ImageRecord* d) { return process::gammaPicture(s, d, 2.0); },
                src, dst),
            (std::vector<int>{0, 1, 2, 3}));
  EXPECT_EQ(dst->colorCount, 4);
  // A level number beyond the count has no entry in level space: it becomes 0.
  makePicture(src, IMK_GREY, 2, 1, {3, 7}, 4);
  EXPECT_EQ(run(process::negatePicture, src, dst), (std::vector<int>{0, 0}));
}

TEST(ToneApply, BinaryIsTwoLevels) {
  OwnedPicture src, dst;
  makePicture(src, IMK_BINARY, 4, 1, {0, 1, 1, 0});
  EXPECT_EQ(run(process::negatePicture, src, dst), (std::vector<int>{1, 0, 0, 1}));
  EXPECT_EQ(dst->type, IMK_BINARY);
  EXPECT_EQ(dst->colorCount, 2);
  // Brightening black by 100 gives intensity 100, which truncates to level 0.
  EXPECT_EQ(
      run([](ImageRecord* s, ImageRecord* d) { return process::brightnessPicture(s, d, 100); }, src,
          dst),
      (std::vector<int>{0, 1, 1, 0}));
  EXPECT_EQ(run([](ImageRecord* s, ImageRecord* d) { return process::brightnessPicture(s, d, -1); },
                src, dst),
            (std::vector<int>{0, 0, 0, 0}));
  EXPECT_EQ(
      run([](ImageRecord* s, ImageRecord* d) { return process::brightnessPicture(s, d, 255); }, src,
          dst),
      (std::vector<int>{1, 1, 1, 1}));
}

TEST(ToneApply, FullGreyUsesTableDirectly) {
  OwnedPicture src, dst;
  allValues(src);
  uint8_t t[256];
  process::posterizeTable(t, 4);
  ASSERT_EQ(process::posterizePicture(&src.rec, &dst.rec, 4), 0);
  const std::vector<int> got = packed(dst.rec);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(got[i], t[i]);
  EXPECT_EQ(dst->colorCount, 256);
}

TEST(ToneApply, ColourMappedChangesOnlyUsedPaletteEntries) {
  OwnedPicture src, dst;
  test::makePattern(src, IMK_MAPPED, 9, 7, 16);
  src->palette[20] = 10;  // an entry beyond the colour count
  ASSERT_EQ(process::negatePicture(&src.rec, &dst.rec), 0);
  EXPECT_EQ(packed(dst.rec), packed(src.rec));  // indices unchanged
  EXPECT_EQ(dst->colorCount, 16);
  for (int i = 0; i < 16; ++i)
    for (int c = 0; c < 3; ++c)
      EXPECT_EQ(dst->palette[c * 256 + i], 255 - src->palette[c * 256 + i]);
  EXPECT_EQ(dst->palette[20], 10);
}

TEST(ToneApply, TrueColourBytesAndTheFourthByte) {
  OwnedPicture src, dst;
  makePicture(src, IMK_RGB, 2, 1, {0, 10, 200, 255, 128, 1});
  EXPECT_EQ(run(process::negatePicture, src, dst), (std::vector<int>{255, 245, 55, 0, 127, 254}));
  makePicture(src, IMK_BGR, 2, 1, {0, 10, 200, 255, 128, 1});
  EXPECT_EQ(run(process::negatePicture, src, dst), (std::vector<int>{255, 245, 55, 0, 127, 254}));
  // Four bytes: the first three go through the table, the fourth is copied.
  makePicture(src, IMK_RGBX, 1, 1, {0, 10, 200, 77});
  EXPECT_EQ(run(process::negatePicture, src, dst), (std::vector<int>{255, 245, 55, 77}));
  // Byte positions, not colours: on spare,B,G,R the red byte is the fourth.
  makePicture(src, IMK_XBGR, 1, 1, {77, 0, 10, 200});
  EXPECT_EQ(run(process::negatePicture, src, dst), (std::vector<int>{178, 255, 245, 200}));
}

TEST(ToneApply, NegativeTwiceRestoresEveryKind) {
  for (uint16_t type : kAllKinds) {
    OwnedPicture src, once, twice;
    test::makePattern(src, type, 13, 5, type == IMK_GREY ? 256 : 16);
    ASSERT_EQ(process::negatePicture(&src.rec, &once.rec), 0);
    ASSERT_EQ(process::negatePicture(&once.rec, &twice.rec), 0);
    EXPECT_EQ(test::toRgb(twice.rec), test::toRgb(src.rec)) << "type " << type;
    EXPECT_EQ(twice->colorCount, src->colorCount);
  }
}

TEST(ToneApply, IdentityParametersChangeNothing) {
  for (uint16_t type : kAllKinds) {
    OwnedPicture src, dst;
    test::makePattern(src, type, 11, 6, 16);
    const std::vector<uint8_t> rgb = test::toRgb(src.rec);
    using Op = std::function<int(ImageRecord*, ImageRecord*)>;
    const Op ops[] = {
        [](ImageRecord* s, ImageRecord* d) { return process::brightnessPicture(s, d, 0); },
        [](ImageRecord* s, ImageRecord* d) { return process::contrastPicture(s, d, 0); },
        [](ImageRecord* s, ImageRecord* d) { return process::gammaPicture(s, d, 1.0); },
        [](ImageRecord* s, ImageRecord* d) { return process::solarizePicture(s, d, 255); },
        [](ImageRecord* s, ImageRecord* d) { return process::posterizePicture(s, d, 256); },
    };
    for (const Op& op : ops) {
      dst.reset();
      ASSERT_EQ(op(&src.rec, &dst.rec), 0);
      EXPECT_EQ(test::toRgb(dst.rec), rgb) << "type " << type;
      EXPECT_EQ(packed(dst.rec), packed(src.rec)) << "type " << type;
    }
  }
}

TEST(ToneApply, SourceKeptWithDestinationAndReplacedWithout) {
  using Op = std::function<int(ImageRecord*, ImageRecord*)>;
  const Op ops[] = {
      process::negatePicture,
      process::logarithmicPicture,
      process::normalizePicture,
      process::equalizePicture,
      [](ImageRecord* s, ImageRecord* d) { return process::solarizePicture(s, d, 100); },
      [](ImageRecord* s, ImageRecord* d) { return process::posterizePicture(s, d, 4); },
      [](ImageRecord* s, ImageRecord* d) { return process::brightnessPicture(s, d, 40); },
      [](ImageRecord* s, ImageRecord* d) { return process::contrastPicture(s, d, 30); },
      [](ImageRecord* s, ImageRecord* d) { return process::gammaPicture(s, d, 1.7); },
      [](ImageRecord* s, ImageRecord* d) { return process::balancePicture(s, d, 10, -20, 30); },
      [](ImageRecord* s, ImageRecord* d) { return process::swapChannels(s, d, process::kSwapBRG); },
  };
  for (uint16_t type : kAllKinds) {
    for (size_t k = 0; k < std::size(ops); ++k) {
      OwnedPicture src, dst, inPlace;
      test::makePattern(src, type, 7, 5, 12);
      test::makePattern(inPlace, type, 7, 5, 12);
      src->attribute = inPlace->attribute = 5;
      const std::vector<uint8_t> before = snapshot(src.rec);
      ASSERT_EQ(ops[k](&src.rec, &dst.rec), 0);
      EXPECT_EQ(snapshot(src.rec), before) << "type " << type << " op " << k;
      EXPECT_EQ(dst->type, type);
      EXPECT_EQ(dst->width, 7);
      EXPECT_EQ(dst->height, 5);
      EXPECT_EQ(dst->attribute, 5);
      ASSERT_EQ(ops[k](&inPlace.rec, nullptr), 0);
      EXPECT_EQ(snapshot(inPlace.rec), snapshot(dst.rec)) << "type " << type << " op " << k;
    }
  }
}

// ---------------------------------------------------------------------------
// Per-channel tables

TEST(ChannelHistogram, CountsEveryBytePosition) {
  OwnedPicture pic;
  makePicture(pic, IMK_RGBX, 3, 1, {1, 2, 3, 4, 1, 5, 3, 4, 9, 2, 3, 0});
  uint32_t counts[1024];
  process::channelHistogram(pic.rec, counts);
  EXPECT_EQ(counts[0 * 256 + 1], 2u);
  EXPECT_EQ(counts[0 * 256 + 9], 1u);
  EXPECT_EQ(counts[1 * 256 + 2], 2u);
  EXPECT_EQ(counts[1 * 256 + 5], 1u);
  EXPECT_EQ(counts[2 * 256 + 3], 3u);
  EXPECT_EQ(counts[3 * 256 + 4], 2u);
  EXPECT_EQ(counts[3 * 256 + 0], 1u);
  uint32_t total = 0;
  for (uint32_t c : counts) total += c;
  EXPECT_EQ(total, 12u);
  EXPECT_EQ(process::toneChannels(pic.rec), 3);
}

TEST(ChannelHistogram, MatchesPlainCountingOnEveryKind) {
  for (uint16_t type : kAllKinds) {
    for (int width : {1, 2, 7, 30}) {
      OwnedPicture pic;
      test::makePattern(pic, type, width, 9, 100);
      uint32_t counts[1024];
      process::channelHistogram(pic.rec, counts);
      std::vector<uint32_t> expected(1024, 0);
      const int bpp = pic->bytesPerPixel;
      for (int y = 0; y < 9; ++y)
        for (int i = 0; i < width * bpp; ++i) ++expected[(i % bpp) * 256 + pic.row(y)[i]];
      EXPECT_EQ(std::vector<uint32_t>(counts, counts + 1024), expected) << type << " " << width;
    }
  }
}

TEST(ColourBalance, TablesActOnBytePositions) {
  OwnedPicture src, dst;
  auto balance = [](ImageRecord* s, ImageRecord* d) {
    return process::balancePicture(s, d, 10, -20, 250);
  };
  makePicture(src, IMK_RGB, 2, 1, {0, 10, 20, 250, 255, 0});
  EXPECT_EQ(run(balance, src, dst), (std::vector<int>{10, 0, 255, 255, 235, 250}));
  // On B,G,R the "Red" offset still goes to byte 0, which is blue.
  makePicture(src, IMK_BGR, 1, 1, {0, 10, 20});
  EXPECT_EQ(run(balance, src, dst), (std::vector<int>{10, 0, 255}));
  makePicture(src, IMK_XBGR, 1, 1, {5, 10, 20, 30});
  EXPECT_EQ(run(balance, src, dst), (std::vector<int>{15, 0, 255, 30}));
}

TEST(ColourBalance, OneBytePicturesGetTheFirstTableAndCount256) {
  OwnedPicture src, dst;
  auto balance = [](ImageRecord* s, ImageRecord* d) {
    return process::balancePicture(s, d, 3, 50, 50);
  };
  // Grey level numbers are moved as bytes, without level adaptation.
  makePicture(src, IMK_GREY, 3, 1, {0, 5, 15}, 16);
  EXPECT_EQ(run(balance, src, dst), (std::vector<int>{3, 8, 18}));
  EXPECT_EQ(dst->colorCount, 256);
  // Colour-mapped: the index bytes move, the palette stays.
  test::makePattern(src, IMK_MAPPED, 5, 2, 16);
  const std::vector<int> indices = packed(src.rec);
  const std::vector<int> got = run(balance, src, dst);
  for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(got[i], indices[i] + 3);
  EXPECT_EQ(std::memcmp(dst->palette, src->palette, 768), 0);
  EXPECT_EQ(dst->colorCount, 256);
  EXPECT_EQ(dst->type, IMK_MAPPED);
}

TEST(Normalize, StretchesEachChannelSeparately) {
  OwnedPicture src, dst;
  makePicture(src, IMK_GREY, 3, 1, {50, 75, 100}, 256);
  EXPECT_EQ(run(process::normalizePicture, src, dst), (std::vector<int>{0, 127, 255}));
  // Red spans 10..20, green already spans 0..255, blue is flat (kept).
  makePicture(src, IMK_RGB, 3, 1, {10, 0, 7, 15, 128, 7, 20, 255, 7});
  EXPECT_EQ(run(process::normalizePicture, src, dst),
            (std::vector<int>{0, 0, 7, 127, 128, 7, 255, 255, 7}));
  // The spare byte of a 4-byte pixel is neither counted nor changed.
  makePicture(src, IMK_RGBX, 2, 1, {10, 0, 0, 99, 20, 255, 255, 3});
  EXPECT_EQ(run(process::normalizePicture, src, dst),
            (std::vector<int>{0, 0, 0, 99, 255, 255, 255, 3}));
}

TEST(Normalize, FullRangeIsIdentity) {
  OwnedPicture src, dst;
  allValues(src);
  EXPECT_EQ(run(process::normalizePicture, src, dst), packed(src.rec));
  std::vector<int> rgb;
  for (int i = 0; i < 256; ++i) rgb.insert(rgb.end(), {i, 255 - i, (i * 7) & 255});
  makePicture(src, IMK_RGB, 16, 16, rgb);
  EXPECT_EQ(run(process::normalizePicture, src, dst), packed(src.rec));
}

TEST(Normalize, FewLevelGreyBecomes256Levels) {
  OwnedPicture src, dst;
  makePicture(src, IMK_GREY, 3, 1, {2, 3, 4}, 16);
  EXPECT_EQ(run(process::normalizePicture, src, dst), (std::vector<int>{0, 127, 255}));
  EXPECT_EQ(dst->colorCount, 256);
}

TEST(Equalize, BaseIsTheCountOfZero) {
  OwnedPicture src, dst;
  // No black: cdf 2, 3, 4 of 4 give 255*2/4, 255*3/4, 255.
  makePicture(src, IMK_GREY, 4, 1, {10, 10, 20, 30}, 256);
  EXPECT_EQ(run(process::equalizePicture, src, dst), (std::vector<int>{127, 127, 191, 255}));
  // Two black pixels: base 2, span 2.
  makePicture(src, IMK_GREY, 4, 1, {0, 0, 10, 20}, 256);
  EXPECT_EQ(run(process::equalizePicture, src, dst), (std::vector<int>{0, 0, 127, 255}));
  // All black: the span is taken as 1 and everything stays 0.
  makePicture(src, IMK_GREY, 2, 1, {0, 0}, 256);
  EXPECT_EQ(run(process::equalizePicture, src, dst), (std::vector<int>{0, 0}));
}

TEST(Equalize, ChannelsAndColourCount) {
  OwnedPicture src, dst;
  makePicture(src, IMK_BGR, 2, 1, {0, 5, 9, 1, 5, 9});
  // Byte 0: cdf[0] = 1, span 1: 0 -> 0, 1 -> 255. Bytes 1 and 2 are
  // single-valued without zeros: cdf = total there, so 255.
  EXPECT_EQ(run(process::equalizePicture, src, dst),
            (std::vector<int>{0, 255, 255, 255, 255, 255}));
  makePicture(src, IMK_BINARY, 4, 1, {0, 1, 1, 1});
  EXPECT_EQ(run(process::equalizePicture, src, dst), (std::vector<int>{0, 255, 255, 255}));
  EXPECT_EQ(dst->colorCount, 256);
  EXPECT_EQ(dst->type, IMK_BINARY);
}

// ---------------------------------------------------------------------------
// Channel swap

TEST(SwapChannels, EachLabelMovesChannelsToTheNamedSlots) {
  OwnedPicture src, dst;
  makePicture(src, IMK_RGB, 1, 1, {1, 2, 3});
  auto swap = [&](int mode) {
    return run([mode](ImageRecord* s, ImageRecord* d) { return process::swapChannels(s, d, mode); },
               src, dst);
  };
  EXPECT_EQ(swap(process::kSwapRBG), (std::vector<int>{1, 3, 2}));
  EXPECT_EQ(swap(process::kSwapBGR), (std::vector<int>{3, 2, 1}));
  // "RGB->BRG": red to the blue slot, green to the red slot, blue to green.
  EXPECT_EQ(swap(process::kSwapBRG), (std::vector<int>{2, 3, 1}));
  EXPECT_EQ(swap(process::kSwapGRB), (std::vector<int>{2, 1, 3}));
  EXPECT_EQ(swap(process::kSwapGBR), (std::vector<int>{3, 1, 2}));
}

TEST(SwapChannels, InvolutionsAndThreeCycles) {
  for (uint16_t type : {IMK_RGB, IMK_BGR, IMK_MAPPED}) {
    OwnedPicture start;
    test::makePattern(start, type, 6, 5, 16);
    auto apply = [&](std::initializer_list<int> modes) {
      OwnedPicture pic;
      test::makePattern(pic, type, 6, 5, 16);
      for (int m : modes) EXPECT_EQ(process::swapChannels(&pic.rec, nullptr, m), 0);
      return test::toRgb(pic.rec);
    };
    const std::vector<uint8_t> rgb = test::toRgb(start.rec);
    EXPECT_EQ(apply({process::kSwapBRG, process::kSwapBRG, process::kSwapBRG}), rgb) << type;
    EXPECT_EQ(apply({process::kSwapGBR, process::kSwapGBR, process::kSwapGBR}), rgb) << type;
    EXPECT_EQ(apply({process::kSwapBGR, process::kSwapBGR}), rgb) << type;
    EXPECT_EQ(apply({process::kSwapRBG, process::kSwapRBG}), rgb) << type;
    EXPECT_EQ(apply({process::kSwapGRB, process::kSwapGRB}), rgb) << type;
    EXPECT_EQ(apply({process::kSwapBRG, process::kSwapGBR}), rgb) << type;
    EXPECT_NE(apply({process::kSwapBRG}), rgb) << type;
  }
}

TEST(SwapChannels, FourthByteIsNotWritten) {
  OwnedPicture src, dst;
  makePicture(src, IMK_RGBX, 1, 1, {1, 2, 3, 200});
  EXPECT_EQ(
      run([](ImageRecord* s, ImageRecord* d) { return process::swapChannels(s, d, 1); }, src, dst),
      (std::vector<int>{3, 2, 1, 0}));
  // The layout is not consulted: on spare,B,G,R bytes 0..2 are rearranged.
  makePicture(src, IMK_XBGR, 1, 1, {9, 1, 2, 3});
  EXPECT_EQ(
      run([](ImageRecord* s, ImageRecord* d) { return process::swapChannels(s, d, 1); }, src, dst),
      (std::vector<int>{2, 1, 9, 0}));
}

TEST(SwapChannels, PaletteGreyBinaryAndUnknownMode) {
  OwnedPicture src, dst;
  test::makePattern(src, IMK_MAPPED, 4, 4, 8);
  src->palette[9] = 1, src->palette[256 + 9] = 2, src->palette[512 + 9] = 3;  // beyond the count
  ASSERT_EQ(process::swapChannels(&src.rec, &dst.rec, process::kSwapBGR), 0);
  EXPECT_EQ(packed(dst.rec), packed(src.rec));
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(dst->palette[i], src->palette[512 + i]);
    EXPECT_EQ(dst->palette[256 + i], src->palette[256 + i]);
    EXPECT_EQ(dst->palette[512 + i], src->palette[i]);
  }
  EXPECT_EQ(dst->palette[9], 1);
  EXPECT_EQ(dst->palette[512 + 9], 3);

  for (uint16_t type : {IMK_BINARY, IMK_GREY}) {
    test::makePattern(src, type, 5, 3, 16);
    EXPECT_EQ(run([](ImageRecord* s, ImageRecord* d) { return process::swapChannels(s, d, 2); },
                  src, dst),
              packed(src.rec));
  }
  test::makePattern(src, IMK_MAPPED, 5, 3, 16);
  dst.reset();
  ASSERT_EQ(process::swapChannels(&src.rec, &dst.rec, 7), 0);
  EXPECT_EQ(test::toRgb(dst.rec), test::toRgb(src.rec));
  makePicture(src, IMK_RGB, 1, 1, {1, 2, 3});
  EXPECT_EQ(
      run([](ImageRecord* s, ImageRecord* d) { return process::swapChannels(s, d, 5); }, src, dst),
      (std::vector<int>{0, 0, 0}));
}

// ------------------------------------------------------------ table look-up

// Restores the wide-vector switch when a test ends, whatever happens.
struct WidePaths {
  explicit WidePaths(bool on) { process::gWideVectorPaths = on; }
  ~WidePaths() { process::gWideVectorPaths = true; }
};

TEST(LookupBytes, EveryPeriodLengthAndStartAgreeWithPlainIndexing) {
  // Four different tables; lengths around the 64-byte blocks, runs that start
  // inside a block, and a buffer looked up in place.
  std::vector<uint8_t> tables(4 * 256);
  for (int i = 0; i < 4 * 256; ++i) tables[i] = static_cast<uint8_t>(i * 167 + 13 * (i >> 8));
  const uint8_t* t[4] = {&tables[0], &tables[256], &tables[512], &tables[768]};
  std::vector<uint8_t> src(700);
  for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(i * 89 + (i >> 3));
  for (bool wide : {true, false}) {
    WidePaths paths(wide);
    for (int period = 1; period <= 4; ++period)
      for (size_t start : {0, 1, 5})
        for (size_t n : {0, 1, 2, 3, 63, 64, 65, 127, 191, 192, 193, 256, 600}) {
          std::vector<uint8_t> out(n + 1, 0xAA);
          process::lookupBytes(src.data() + start, out.data(), n, t, period);
          for (size_t i = 0; i < n; ++i)
            ASSERT_EQ(out[i], t[i % period][src[start + i]])
                << "wide " << wide << " period " << period << " n " << n << " at " << i;
          EXPECT_EQ(out[n], 0xAA) << "wrote past the end";
          std::vector<uint8_t> inPlace(src.begin() + start, src.begin() + start + n);
          process::lookupBytes(inPlace.data(), inPlace.data(), n, t, period);
          EXPECT_TRUE(std::equal(inPlace.begin(), inPlace.end(), out.begin()));
        }
  }
}

}  // namespace
