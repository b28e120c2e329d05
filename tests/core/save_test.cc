// SavePicture: the supported-kinds search, the conversion asked once and
// reused during a batch, fixed sizes, the per-format options, and a failed
// write that leaves the old file alone.
#include "core/save.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "core/settings.h"
#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;
using test::formatWith;

// Counts the questions and answers with a fixed conversion item.
struct Answers {
  int answer = 32;
  int asked = 0;
  std::string lastTitle;
  std::vector<std::string> errors, statuses;
};

SaveHooks hooksFor(Answers& a) {
  SaveHooks h;
  h.data = &a;
  h.askConversion = [](void* d, const char* title, const ImageRecord&) {
    auto* a = static_cast<Answers*>(d);
    ++a->asked;
    a->lastTitle = title;
    return a->answer;
  };
  h.showError = [](void* d, const char* text) { static_cast<Answers*>(d)->errors.push_back(text); };
  h.showStatus = [](void* d, const char* text) {
    static_cast<Answers*>(d)->statuses.push_back(text);
  };
  return h;
}

constexpr uint32_t kAny = 0xFFFFFFFFu;

TEST(FormatAccepts, KindsColourLimitsAndFixedSizes) {
  OwnedPicture grey256, grey16, binary, rgb;
  test::makePattern(grey256, IMK_GREY, 8, 8, 256);
  test::makePattern(grey16, IMK_GREY, 8, 8, 16);
  test::makePattern(binary, IMK_BINARY, 8, 8);
  test::makePattern(rgb, IMK_RGB, 32, 32);
  int w, h;
  const FormatInfo sixteenGreys = formatWith({{IMK_GREY, 16, kAny, kAny}});
  EXPECT_FALSE(FormatAccepts(sixteenGreys, grey256.rec, &w, &h));
  EXPECT_TRUE(FormatAccepts(sixteenGreys, grey16.rec, &w, &h));
  EXPECT_EQ(w, -1);
  EXPECT_FALSE(FormatAccepts(sixteenGreys, binary.rec, &w, &h));
  // A maximum of 0xFFFFFFFE or more takes any count.
  EXPECT_TRUE(
      FormatAccepts(formatWith({{IMK_GREY, 0xFFFFFFFEu, kAny, kAny}}), grey256.rec, &w, &h));
  // True colour of every layout under 3840; an empty list takes everything.
  const FormatInfo trueOnly = formatWith({{IMK_ANY_TRUECOLOR, kAny, kAny, kAny}});
  EXPECT_TRUE(FormatAccepts(trueOnly, rgb.rec, &w, &h));
  EXPECT_FALSE(FormatAccepts(trueOnly, binary.rec, &w, &h));
  EXPECT_TRUE(FormatAccepts(formatWith({}), binary.rec, &w, &h));
  // A fixed size is reported with the accepting entry.
  const FormatInfo fixed = formatWith({{IMK_ANY_TRUECOLOR, kAny, 32, 32}});
  EXPECT_TRUE(FormatAccepts(fixed, rgb.rec, &w, &h));
  EXPECT_EQ(w, 32);
  EXPECT_EQ(h, 32);
}

TEST(SavePicture, BinaryIntoTrueColourOnlyAsksOnceAndTheBatchReusesTheAnswer) {
  test::TempDir dir;
  OwnedPicture binary;
  test::makePattern(binary, IMK_BINARY, 9, 5);
  Answers a;
  const SaveHooks hooks = hooksFor(a);
  const int16_t ppm = imkGetIndex("ppm");
  const std::string first = dir.file("a.ppm"), second = dir.file("b.ppm");
  ASSERT_EQ(SavePicture(hooks, first.c_str(), ppm, &binary.rec, 0, 0, false), 0);
  EXPECT_EQ(a.asked, 1);
  EXPECT_EQ(a.lastTitle, "Convert \"" + first + "\"");
  EXPECT_EQ(RememberedConversion(), 32);
  ASSERT_EQ(SavePicture(hooks, second.c_str(), ppm, &binary.rec, 0, 1, false), 0);
  EXPECT_EQ(a.asked, 1) << "the second file of a batch reuses the choice";
  // The saved pictures hold the binary pattern as black and white.
  OwnedPicture back;
  ASSERT_EQ(test::load(second, back), 0);
  EXPECT_EQ(test::toRgb(back.rec), test::toRgb(binary.rec));
  // A new save (not a continuation) forgets the choice and asks again.
  ASSERT_EQ(SavePicture(hooks, first.c_str(), ppm, &binary.rec, 0, 0, false), 0);
  EXPECT_EQ(a.asked, 2);
  // The picture itself is never changed.
  EXPECT_EQ(binary->type, IMK_BINARY);
}

TEST(SavePicture, CancelOrAnUnknownChoiceSavesNothing) {
  test::TempDir dir;
  OwnedPicture binary;
  test::makePattern(binary, IMK_BINARY, 4, 4);
  for (int answer : {0, 33}) {
    Answers a;
    a.answer = answer;
    const std::string path = dir.file("x" + std::to_string(answer) + ".ppm");
    EXPECT_EQ(SavePicture(hooksFor(a), path.c_str(), imkGetIndex("ppm"), &binary.rec, 0, 0, false),
              kSaveCancelled);
    EXPECT_TRUE(a.errors.empty());
    struct stat st {};
    EXPECT_NE(stat(path.c_str(), &st), 0);
  }
  // Without a way to ask, nothing is chosen either.
  EXPECT_EQ(SavePicture(SaveHooks{}, dir.file("y.ppm").c_str(), imkGetIndex("ppm"), &binary.rec, 0,
                        0, false),
            kSaveCancelled);
}

TEST(SavePicture, GreyIntoAGreyFormatNeedsNoQuestion) {
  test::TempDir dir;
  OwnedPicture grey;
  test::makePattern(grey, IMK_GREY, 7, 3, 256);
  Answers a;
  ASSERT_EQ(SavePicture(hooksFor(a), dir.file("g.pgm").c_str(), imkGetIndex("pgm"), &grey.rec, 0, 0,
                        false),
            0);
  EXPECT_EQ(a.asked, 0);
}

TEST(SavePicture, TooManyGreyLevelsAreConvertedFirst) {
  test::TempDir dir;
  OwnedPicture grey256, grey16;
  test::makePattern(grey256, IMK_GREY, 33, 9, 256);
  test::makePattern(grey16, IMK_GREY, 33, 9, 16);
  // Written by the PGM writer, but holding grey of at most 16 levels.
  const FormatInfo sixteenGreys = formatWith({{IMK_GREY, 16, kAny, kAny}});
  const int16_t pgm = imkGetIndex("pgm");
  Answers a;
  a.answer = 7;  // "16 Grey scale"
  const std::string path = dir.file("g.pgm");
  ASSERT_EQ(SavePictureFitting(hooksFor(a), path.c_str(), pgm, sixteenGreys, &grey256.rec, 0, 0,
                               false),
            0);
  EXPECT_EQ(a.asked, 1);
  OwnedPicture back;
  ASSERT_EQ(test::load(path, back), 0);
  // At most 16 levels, each one of the ramp 0, 17, ..., 255.
  const std::vector<uint8_t> before = test::toRgb(grey256.rec), after = test::toRgb(back.rec);
  EXPECT_GT(std::set<uint8_t>(before.begin(), before.end()).size(), 16u);
  const std::set<uint8_t> levels(after.begin(), after.end());
  EXPECT_LE(levels.size(), 16u);
  EXPECT_GT(levels.size(), 8u);
  for (uint8_t v : levels) EXPECT_EQ(v % 17, 0) << int{v};
  // A picture of 16 levels fits as it is: no question, the same pixels.
  ASSERT_EQ(SavePictureFitting(hooksFor(a), path.c_str(), pgm, sixteenGreys, &grey16.rec, 0, 0,
                               false),
            0);
  EXPECT_EQ(a.asked, 1);
  ASSERT_EQ(test::load(path, back), 0);
  EXPECT_EQ(test::toRgb(back.rec), test::toRgb(grey16.rec));
}

TEST(SavePicture, AFixedSizeFormatResizesOnlyPicturesOfAnotherSize) {
  test::TempDir dir;
  const int16_t cur = imkGetIndex("cur");
  OwnedPicture exact, other;
  test::makePattern(exact, IMK_RGB, 32, 32);
  test::makePattern(other, IMK_RGB, 48, 20);
  Answers a;
  const std::string path = dir.file("c.cur");
  // Already 32x32: written untouched, and no resize is announced.
  ASSERT_EQ(SavePicture(hooksFor(a), path.c_str(), cur, &exact.rec, 0, 1, false), 0);
  EXPECT_TRUE(a.statuses.empty());
  OwnedPicture back;
  ASSERT_EQ(test::load(path, back), 0);
  EXPECT_EQ(test::toRgb(back.rec), test::toRgb(exact.rec));
  // Another size is resized to 32x32, announced in a batch; the caller's
  // picture keeps its size.
  ASSERT_EQ(SavePicture(hooksFor(a), path.c_str(), cur, &other.rec, 0, 1, false), 0);
  ASSERT_EQ(a.statuses.size(), 1u);
  EXPECT_EQ(a.statuses[0], "Resizing in 32x32");
  ASSERT_EQ(test::load(path, back), 0);
  EXPECT_EQ(back->width, 32);
  EXPECT_EQ(back->height, 32);
  EXPECT_EQ(other->width, 48);
  EXPECT_EQ(a.asked, 0);
}

TEST(SavePicture, OptionsComeFromTheSaveSettings) {
  const Settings saved = gSettings;
  gSettings.saveJpegQuality = 37;
  gSettings.saveJpegProgressive = true;
  gSettings.savePngQuality = 4;
  gSettings.saveTiffCompress = 3;
  gSettings.saveBmpCompress = true;
  gSettings.saveGifInterlaced = true;
  LoadOptions o;
  SaveOptionsFor(imkGetIndex("jpeg"), 0, &o);
  EXPECT_EQ(o.flags, 5);
  EXPECT_EQ(o.saveQuality, 37);
  EXPECT_EQ(o.saveOption, 1);
  SaveOptionsFor(imkGetIndex("png"), 1, &o);
  EXPECT_EQ(o.flags, 193 | 4);
  EXPECT_EQ(o.saveQuality, 4);
  SaveOptionsFor(imkGetIndex("tiff"), 0, &o);
  EXPECT_EQ(o.saveQuality, 100);
  EXPECT_EQ(o.saveOption, 3);
  SaveOptionsFor(imkGetIndex("bmp"), 0, &o);
  EXPECT_EQ(o.saveOption, 1);
  SaveOptionsFor(imkGetIndex("gif"), 0, &o);
  EXPECT_EQ(o.saveOption, 1);
  SaveOptionsFor(imkGetIndex("ppm"), 0, &o);
  EXPECT_EQ(o.saveQuality, 100);
  EXPECT_EQ(o.saveOption, 0);
  EXPECT_EQ(o.saveOption2, 0);
  gSettings = saved;
}

std::string firstLine(const std::string& path) {
  std::ifstream in(path);
  std::string text;
  std::getline(in, text);
  return text;
}

TEST(SavePicture, FailedWriteKeepsTheOldFileAndReportsTheError) {
  test::TempDir dir;
  const std::string path = dir.file("keep.ppm");
  std::ofstream(path) << "old contents";
  OwnedPicture rgb;
  test::makePattern(rgb, IMK_RGB, 5, 5);
  // A format the library reads but cannot write: its text, nothing written.
  Answers a;
  EXPECT_EQ(SavePicture(hooksFor(a), path.c_str(), imkGetIndex("raw"), &rgb.rec, 0, 0, false),
            IMK_ERR_CANNOT_SAVE);
  ASSERT_EQ(a.errors.size(), 1u);
  EXPECT_EQ(a.errors[0], "Can't save in this format !!");
  EXPECT_EQ(firstLine(path), "old contents");
  // A directory that refuses the temporary file (not for root, who writes
  // anywhere).
  if (geteuid() == 0) return;
  Answers b;
  chmod(dir.path().c_str(), 0500);
  const int rc = SavePicture(hooksFor(b), path.c_str(), imkGetIndex("ppm"), &rgb.rec, 0, 0, false);
  chmod(dir.path().c_str(), 0700);
  EXPECT_NE(rc, 0);
  EXPECT_EQ(b.errors.size(), 1u);
  EXPECT_EQ(firstLine(path), "old contents");
}

}  // namespace
