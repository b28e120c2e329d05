// HEIF and AVIF: files made by heif-enc (x265 and aom) read back against
// their source pictures and against heif-convert, alpha planes, 10- and
// 12-bit files, several pictures in a file, brand sniffing, progress,
// damaged and hostile files.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"
#include "tests/support/test_support.h"

namespace {

using checks::makeGradient;
using checks::meanDifference;
using test::rgbaOf;
using test::OwnedPicture;

// heif-enc's lossless mode: the coding is lossless, but heif-enc 1.15 still
// stores Y,Cb,Cr without subsampling (it writes no colour box asking for
// R,G,B), so pixels come back within the rounding of that conversion.
const char* const kLossless = " -L -p chroma=444 --matrix_coefficients=0";
constexpr int kYccRounding = 2;

// Runs heif-enc on `inputs` (space-separated, quoted) into `out`.
bool heifEnc(const std::string& inputs, const std::string& out, const std::string& options) {
  return test::run("heif-enc" + options + " " + inputs + " -o " + test::quote(out) +
                   " >/dev/null 2>&1") == 0 &&
         test::fileExists(out);
}

// heif-convert's decoding, through the PNG it writes.
bool heifConvert(const std::string& path, OwnedPicture& pic, const test::TempDir& dir) {
  const std::string png = dir.file("convert.png");
  if (test::run("heif-convert " + test::quote(path) + " " + test::quote(png) +
                " >/dev/null 2>&1") != 0)
    return false;
  return test::load(png, pic) == 0;
}

// --- reading ------------------------------------------------------------------

TEST(HeifRead, LosslessFilesMatchHeifConvertAndTheirSource) {
  test::TempDir dir;
  OwnedPicture src;
  test::makePattern(src, IMK_RGB, 64, 48);
  ASSERT_EQ(test::save(dir.file("src.png"), src.rec, "png"), 0);
  for (const char* ext : {"heic", "avif"}) {
    const std::string path = dir.file(std::string("ll.") + ext);
    ASSERT_TRUE(heifEnc(test::quote(dir.file("src.png")), path, kLossless)) << ext;
    OwnedPicture pic;
    FileInfo info;
    ASSERT_EQ(test::load(path, pic, 0, 0, &info), 0) << ext;
    EXPECT_EQ(info.formatIndex, imkGetIndex(std::string(ext) == "heic" ? "heif" : "avif"));
    EXPECT_EQ(info.pictureCount, 1);
    EXPECT_EQ(pic->type, IMK_RGB);
    OwnedPicture theirs;
    ASSERT_TRUE(heifConvert(path, theirs, dir)) << ext;
    EXPECT_EQ(test::toRgb(pic.rec), test::toRgb(theirs.rec)) << ext;
    EXPECT_LE(test::maxDifference(test::toRgb(pic.rec), test::toRgb(src.rec)), kYccRounding) << ext;
  }
}

TEST(HeifRead, LossyFilesMatchHeifConvertAndStayCloseToTheSource) {
  test::TempDir dir;
  OwnedPicture src;
  makeGradient(src, IMK_RGB, 96, 64);
  ASSERT_EQ(test::save(dir.file("src.png"), src.rec, "png"), 0);
  for (const char* ext : {"heic", "avif"}) {
    const std::string path = dir.file(std::string("q.") + ext);
    ASSERT_TRUE(heifEnc(test::quote(dir.file("src.png")), path, " -q 90")) << ext;
    OwnedPicture ours, theirs;
    ASSERT_EQ(test::load(path, ours), 0) << ext;
    ASSERT_TRUE(heifConvert(path, theirs, dir)) << ext;
    EXPECT_EQ(test::toRgb(ours.rec), test::toRgb(theirs.rec)) << ext;
    EXPECT_LT(meanDifference(test::toRgb(ours.rec), test::toRgb(src.rec)), 3.0) << ext;
  }
}

TEST(HeifRead, AlphaPlaneGivesKind512WithItsValues) {
  test::TempDir dir;
  OwnedPicture src;
  makeGradient(src, IMK_RGBX, 64, 48);
  ASSERT_EQ(test::save(dir.file("src.png"), src.rec, "png"), 0);
  for (const char* ext : {"heic", "avif"}) {
    const std::string path = dir.file(std::string("a.") + ext);
    ASSERT_TRUE(heifEnc(test::quote(dir.file("src.png")), path, kLossless)) << ext;
    OwnedPicture pic;
    FileInfo info;
    ASSERT_EQ(test::load(path, pic, 0, 0, &info), 0) << ext;
    EXPECT_EQ(info.planes, 4);
    ASSERT_EQ(pic->type, IMK_RGBX) << ext;
    const auto ours = rgbaOf(pic.rec), want = rgbaOf(src.rec);
    for (size_t i = 3; i < ours.size(); i += 4)
      ASSERT_EQ(ours[i], want[i]) << ext << " pixel " << i / 4;
  }
}

TEST(HeifRead, TenAndTwelveBitSamplesRoundToEightBits) {
  test::TempDir dir;
  // A 16-bit source: samples spread over the whole range.
  const int w = 48, h = 32;
  std::string ppm = "P6\n" + std::to_string(w) + " " + std::to_string(h) + "\n65535\n";
  std::vector<uint8_t> bytes(ppm.begin(), ppm.end());
  std::vector<int> samples;
  for (int i = 0; i < w * h * 3; ++i) {
    const int v = (i * 977 + (i / 3) * 131) % 65536;
    samples.push_back(v);
    bytes.push_back(static_cast<uint8_t>(v >> 8));
    bytes.push_back(static_cast<uint8_t>(v));
  }
  test::writeFile(dir.file("deep.ppm"), bytes);
  ASSERT_EQ(test::run("/usr/bin/convert " + test::quote(dir.file("deep.ppm")) +
                      " PNG48:" + test::quote(dir.file("deep.png")) + " 2>/dev/null"),
            0);
  for (const auto& [ext, bits] : {std::pair{"heic", 10}, std::pair{"avif", 12}}) {
    const std::string path = dir.file(std::string("deep.") + ext);
    ASSERT_TRUE(heifEnc(test::quote(dir.file("deep.png")), path,
                        std::string(kLossless) + " -b " + std::to_string(bits)))
        << ext;
    FileInfo info;
    ASSERT_EQ(imkFileInformation(path.c_str(), -1, 0, &info), 0);
    EXPECT_EQ(info.bitsPerPlane, bits) << ext;
    OwnedPicture ours, theirs;
    ASSERT_EQ(test::load(path, ours), 0) << ext;
    ASSERT_TRUE(heifConvert(path, theirs, dir)) << ext;
    // heif-convert writes 16 bits, which the PNG reader rounds to 8.
    EXPECT_LE(test::maxDifference(test::toRgb(ours.rec), test::toRgb(theirs.rec)), 1) << ext;
    // Against the source: the file holds the top `bits` bits of each sample.
    const auto rgb = test::toRgb(ours.rec);
    int worst = 0;
    for (size_t i = 0; i < samples.size(); ++i)
      worst = std::max(worst, std::abs(rgb[i] - (samples[i] * 255 + 32767) / 65535));
    EXPECT_LE(worst, 1) << ext;
  }
}

TEST(HeifPictures, PrimaryFirstThenEveryTopLevelImage) {
  test::TempDir dir;
  OwnedPicture a, b;
  test::makePattern(a, IMK_RGB, 40, 30);
  test::makePattern(b, IMK_RGB, 24, 56);
  ASSERT_EQ(test::save(dir.file("a.png"), a.rec, "png"), 0);
  ASSERT_EQ(test::save(dir.file("b.png"), b.rec, "png"), 0);
  const std::string path = dir.file("two.heic");
  ASSERT_TRUE(heifEnc(test::quote(dir.file("a.png")) + " " + test::quote(dir.file("b.png")), path,
                      kLossless));
  FileInfo info;
  ASSERT_EQ(imkFileInformation(path.c_str(), -1, 1, &info), 0);
  EXPECT_EQ(info.pictureCount, 2);
  EXPECT_EQ(info.width, 24);
  EXPECT_EQ(info.height, 56);
  OwnedPicture first, second, none;
  ASSERT_EQ(test::load(path, first, 0), 0);
  ASSERT_EQ(test::load(path, second, 1), 0);
  EXPECT_LE(test::maxDifference(test::toRgb(first.rec), test::toRgb(a.rec)), kYccRounding);
  EXPECT_LE(test::maxDifference(test::toRgb(second.rec), test::toRgb(b.rec)), kYccRounding);
  EXPECT_EQ(test::load(path, none, 2), IMK_ERR_BAD_FILE);
  EXPECT_EQ(none->pixels, nullptr);
}

// An ftyp box with the given brands; nothing after it.
std::vector<uint8_t> ftyp(const char* major, const std::vector<const char*>& compatible) {
  const uint32_t size = 16 + 4 * static_cast<uint32_t>(compatible.size());
  std::vector<uint8_t> box = {
      0, 0, static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size), 'f', 't', 'y', 'p'};
  box.insert(box.end(), major, major + 4);
  box.insert(box.end(), {0, 0, 0, 0});
  for (const char* b : compatible) box.insert(box.end(), b, b + 4);
  return box;
}

TEST(HeifSniff, BrandsRouteToHeifOrAvif) {
  test::TempDir dir;
  const std::string path = dir.file("brands");
  const struct {
    const char* major;
    std::vector<const char*> compatible;
    const char* format;  // nullptr: neither
  } cases[] = {
      {"heic", {"mif1", "heic"}, "heif"},
      {"heix", {}, "heif"},
      {"hevc", {"msf1"}, "heif"},
      {"msf1", {"hevc"}, "heif"},
      {"mif1", {"heic"}, "heif"},
      {"avif", {"mif1", "miaf"}, "avif"},
      {"avis", {"msf1"}, "avif"},
      {"mif1", {"avif"}, "avif"},
      {"mif1", {"miaf", "MA1B", "avif"}, "avif"},
      {"isom", {"mp41", "avc1"}, nullptr},
      {"mp42", {"isom"}, nullptr},
  };
  for (const auto& c : cases) {
    test::writeFile(path, ftyp(c.major, c.compatible));
    FileInfo info;
    const int rc = imkFileInformation(path.c_str(), -1, 0, &info);
    if (!c.format) {
      EXPECT_EQ(rc, IMK_ERR_UNKNOWN_FORMAT) << c.major;
      continue;
    }
    // Recognised, then refused: the box alone is no picture.
    EXPECT_EQ(info.formatIndex, imkGetIndex(c.format)) << c.major;
    EXPECT_EQ(rc, IMK_ERR_BAD_FILE) << c.major;
    EXPECT_NE(info.errorText[0], '\0') << c.major;
  }
}

// --- progress, reduced loads ------------------------------------------------

TEST(HeifProgress, ClimbsFromZeroStopsWhenAskedAndReducedLoadsFit) {
  test::TempDir dir;
  OwnedPicture src;
  makeGradient(src, IMK_RGB, 160, 120);
  ASSERT_EQ(test::save(dir.file("src.png"), src.rec, "png"), 0);
  const std::string path = dir.file("p.avif");
  ASSERT_TRUE(heifEnc(test::quote(dir.file("src.png")), path, " -q 80"));
  checks::expectProgressClimbsAndStops(path);
  LoadOptions o;
  imkDefaultOption(&o);
  o.flags |= IMK_FLAG_REDUCE;
  o.fitWidth = o.fitHeight = 40;
  OwnedPicture pic;
  ASSERT_EQ(imkLoad(path.c_str(), &pic.rec, &o, nullptr), 0);
  EXPECT_EQ(pic->width, 40);
  EXPECT_EQ(pic->height, 30);
}

// --- damaged and hostile files ------------------------------------------------

TEST(HeifDamaged, CutAndBrokenFilesFailWithLibheifsReason) {
  test::TempDir dir;
  OwnedPicture src;
  makeGradient(src, IMK_RGB, 128, 96);
  ASSERT_EQ(test::save(dir.file("src.png"), src.rec, "png"), 0);
  for (const char* ext : {"heic", "avif"}) {
    const std::string path = dir.file(std::string("d.") + ext);
    ASSERT_TRUE(heifEnc(test::quote(dir.file("src.png")), path, " -q 80")) << ext;
    const std::vector<uint8_t> whole = test::readFile(path);
    for (size_t keep : {whole.size() * 6 / 10, size_t{40}, size_t{17}}) {
      std::vector<uint8_t> bytes(whole.begin(), whole.begin() + static_cast<long>(keep));
      const std::string cut = dir.file(std::string("cut.") + ext);
      test::writeFile(cut, bytes);
      for (uint16_t flags : {0, static_cast<int>(IMK_FLAG_IGNORE_ERRORS)}) {
        OwnedPicture pic;
        FileInfo info;
        const int rc = test::load(cut, pic, 0, flags, &info);
        EXPECT_TRUE(rc == IMK_ERR_BAD_FILE || rc == IMK_ERR_CORRUPT)
            << ext << " " << keep << ": " << rc;
        EXPECT_NE(info.errorText[0], '\0') << ext << " " << keep;
        EXPECT_EQ(pic->pixels, nullptr);
      }
    }
    // The coded data overwritten: the boxes are fine, the decoder is not.
    std::vector<uint8_t> broken = whole;
    for (size_t i = broken.size() - broken.size() / 3; i < broken.size(); ++i)
      broken[i] = static_cast<uint8_t>(i * 77);
    test::writeFile(dir.file("broken"), broken);
    OwnedPicture pic;
    const int rc = test::load(dir.file("broken"), pic);
    if (rc != 0) {
      EXPECT_EQ(pic->pixels, nullptr);
    } else {
      EXPECT_EQ(pic->width, 128);  // some decoders conceal the damage
    }
  }
}

TEST(HeifHostile, PixelBudgetRefusesLargePicturesBeforeDecoding) {
  test::TempDir dir;
  OwnedPicture src;
  makeGradient(src, IMK_RGB, 200, 200);
  ASSERT_EQ(test::save(dir.file("src.png"), src.rec, "png"), 0);
  const std::string path = dir.file("b.heic");
  ASSERT_TRUE(heifEnc(test::quote(dir.file("src.png")), path, " -q 50"));
  OwnedPicture pic;
  FileInfo info;
  EXPECT_EQ(checks::loadWithBudget(path, 200 * 200 * 4, pic, &info), IMK_ERR_BAD_FILE);
  EXPECT_STREQ(info.errorText, "picture too large");
}

}  // namespace
