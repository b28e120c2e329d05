// The batch core: name templates, output paths, converting one file with
// the removal of its original, the automatic conversion choice, and a batch
// slot for the remembered conversion.
#include "tools/batch.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>

#include "process/conversion_items.h"
#include "tests/support/test_support.h"

namespace {

using test::formatWith;
using test::OwnedPicture;

bool exists(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0;
}

TEST(SequenceName, HashRunsBecomeZeroPaddedNumbers) {
  EXPECT_EQ(tools::SequenceName("img###.tif", 7), "img007.tif");
  EXPECT_EQ(tools::SequenceName("pic#.gif", 12), "pic12.gif");
  EXPECT_EQ(tools::SequenceName("scan", 3), "scan3");
  // Only the first run is replaced; a number wider than the run is not cut.
  EXPECT_EQ(tools::SequenceName("a##b#c", 5), "a05b#c");
  EXPECT_EQ(tools::SequenceName("##", 1234), "1234");
  EXPECT_EQ(tools::SequenceName("#.png", 0), "0.png");
}

TEST(OutputPath, BesideTheInputOrInTheDirectoryWithTheFormatsExtension) {
  const int16_t png = imkGetIndex("png"), jpeg = imkGetIndex("jpeg");
  ASSERT_GE(png, 0);
  const std::string pngExt = tools::FormatExtension(png);
  EXPECT_EQ(pngExt, "png");
  EXPECT_EQ(tools::OutputPath("/a/b/photo.jpg", "", png), "/a/b/photo.png");
  EXPECT_EQ(tools::OutputPath("/a/b/photo.jpg", "/out", png), "/out/photo.png");
  EXPECT_EQ(tools::OutputPath("/a/b/photo.jpg", "/out/", png), "/out/photo.png");
  EXPECT_EQ(tools::OutputPath("photo.tar.gz", "", png), "photo.tar.png");
  EXPECT_EQ(tools::OutputPath("noext", "o", png), "o/noext.png");
  EXPECT_EQ(tools::OutputPath("/x/.hidden", "", png), "/x/.hidden.png");
  EXPECT_EQ(tools::OutputPath("/a/b.d/c", "", -1), "/a/b.d/c");
  // The same name in the same format is the same path: an in-place conversion.
  const std::string jpg = "/p/q." + tools::FormatExtension(jpeg);
  EXPECT_EQ(tools::OutputPath(jpg, "", jpeg), jpg);
}

class ConvertOneFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    OwnedPicture pic;
    test::makePattern(pic, IMK_RGB, 24, 16);
    input = dir.file("in.ppm");
    ASSERT_EQ(test::save(input, pic.rec, "ppm"), 0);
    request.input = input;
    request.outputFormat = imkGetIndex("png");
    request.flags = tools::kDeleteOriginal;
  }
  tools::FileResult run() { return tools::ConvertOneFile(hooks, request); }

  test::TempDir dir;
  std::string input;
  tools::ConvertRequest request;
  tools::BatchHooks hooks;
};

TEST_F(ConvertOneFileTest, TheOriginalGoesOnlyAfterAWrittenConversion) {
  // A failed save (the directory does not exist) keeps the original.
  request.output = dir.file("missing/out.png");
  tools::FileResult r = run();
  EXPECT_EQ(r.status, tools::FileStatus::kSaveFailed);
  EXPECT_FALSE(r.deleted);
  EXPECT_TRUE(exists(input));
  // A successful one removes it.
  request.output = dir.file("out.png");
  r = run();
  EXPECT_EQ(r.status, tools::FileStatus::kConverted);
  EXPECT_TRUE(r.deleted);
  EXPECT_FALSE(exists(input));
  OwnedPicture back;
  ASSERT_EQ(test::load(request.output, back), 0);
  EXPECT_EQ(back->width, 24);
}

TEST_F(ConvertOneFileTest, InPlaceConversionIsNotDeleted) {
  request.output = input;
  request.outputFormat = imkGetIndex("ppm");
  const process::AdvancedOp* flip = process::findAdvancedOp("-xflip");
  std::vector<process::AdvancedStep> steps = {{flip, {}}};
  request.steps = &steps;
  const tools::FileResult r = run();
  EXPECT_EQ(r.status, tools::FileStatus::kConverted);
  EXPECT_FALSE(r.deleted);
  ASSERT_TRUE(exists(input));
  // The same file spelled differently is in place too: flipped back, kept.
  request.output = dir.file("./in.ppm");
  const tools::FileResult again = run();
  EXPECT_EQ(again.status, tools::FileStatus::kConverted);
  EXPECT_FALSE(again.deleted);
  ASSERT_TRUE(exists(input));
  ASSERT_EQ(run().status, tools::FileStatus::kConverted);  // flipped once more
  // It holds the converted (flipped) picture.
  OwnedPicture before, after;
  test::makePattern(before, IMK_RGB, 24, 16);
  ASSERT_EQ(test::load(input, after), 0);
  const std::vector<uint8_t> a = test::toRgb(before.rec), b = test::toRgb(after.rec);
  for (int x = 0; x < 24; ++x)
    for (int c = 0; c < 3; ++c) EXPECT_EQ(b[x * 3 + c], a[(23 - x) * 3 + c]);
}

TEST_F(ConvertOneFileTest, UnreadableFilesAreReportedUnlessSuppressed) {
  std::vector<std::string> reported;
  hooks.data = &reported;
  hooks.loadError = [](void* d, const char* text) {
    static_cast<std::vector<std::string>*>(d)->push_back(text);
  };
  request.input = dir.file("nothing-here.ppm");
  request.output = dir.file("out.png");
  tools::FileResult r = run();
  EXPECT_EQ(r.status, tools::FileStatus::kLoadFailed);
  ASSERT_EQ(reported.size(), 1u);
  EXPECT_NE(reported[0].find(request.input), std::string::npos) << reported[0];
  EXPECT_EQ(reported[0].find('\n'), std::string::npos) << "one line per file";
  request.flags |= tools::kSuppressReadErrors;
  r = run();
  EXPECT_EQ(r.status, tools::FileStatus::kLoadFailed);
  EXPECT_EQ(reported.size(), 1u);
  EXPECT_FALSE(exists(request.output));
}

TEST_F(ConvertOneFileTest, OperationsRunInListOrder) {
  // Crop then resize differs from resize then crop: check the order by size.
  std::vector<process::AdvancedStep> steps = {
      {process::findAdvancedOp("-crop"), {0, 0, 10, 8}},
      {process::findAdvancedOp("-resize"), {50, 50, 0, 0}, {true, true}},
  };
  request.steps = &steps;
  request.output = dir.file("out.png");
  ASSERT_EQ(run().status, tools::FileStatus::kConverted);
  OwnedPicture back;
  ASSERT_EQ(test::load(request.output, back), 0);
  EXPECT_EQ(back->width, 5);
  EXPECT_EQ(back->height, 4);
}

std::string contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Files converted on four threads at once come out byte for byte as they do
// one after the other: the codecs, the operations and the save keep no
// shared state between calls.
TEST(ConvertOneFile, ConcurrentConversionsMatchSerialOnes) {
  test::TempDir dir;
  const char* formats[] = {"png", "gif", "jpeg", "tiff", "bmp", "ppm"};
  std::vector<process::AdvancedStep> steps;
  for (const char* words :
       {"-gauss 5", "-swirl 60", "-oil 2", "-colors 16 adaptive", "-resize 75% 75%"}) {
    std::istringstream in(words);
    const std::vector<std::string> w{std::istream_iterator<std::string>(in), {}};
    size_t pos = 0;
    process::AdvancedStep step{};
    ASSERT_TRUE(process::parseAdvancedStep(w, &pos, &step)) << words;
    steps.push_back(step);
  }
  constexpr int kFiles = 12;
  for (int k = 0; k < kFiles; ++k) {
    OwnedPicture pic;
    test::makePattern(pic, k % 3 ? IMK_RGB : IMK_GREY, 60 + k, 40 + k);
    ASSERT_EQ(
        test::save(dir.file("in" + std::to_string(k) + ".ppm"), pic.rec, k % 3 ? "ppm" : "pgm"), 0);
  }
  auto convert = [&](int k, const std::string& suffix) {
    tools::ConvertRequest r;
    r.input = dir.file("in" + std::to_string(k) + ".ppm");
    r.outputFormat = imkGetIndex(formats[k % 6]);
    r.output = dir.file("out" + std::to_string(k) + suffix);
    r.steps = &steps;
    std::atomic<int> slot{kNoConversion};
    tools::BatchHooks hooks;
    hooks.save.askConversion = [](void*, const char*, const ImageRecord&) { return 24; };
    hooks.save.rememberedChoice = &slot;
    return tools::ConvertOneFile(hooks, r).status == tools::FileStatus::kConverted;
  };
  for (int k = 0; k < kFiles; ++k) ASSERT_TRUE(convert(k, ".serial")) << k;
  const mode_t mask = umask(022);
  umask(mask);
  std::atomic<int> next{0}, failed{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int k; (k = next++) < kFiles;)
        if (!convert(k, ".threaded")) ++failed;
    });
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(failed.load(), 0);
  for (int k = 0; k < kFiles; ++k) {
    const std::string a = contents(dir.file("out" + std::to_string(k) + ".serial"));
    EXPECT_FALSE(a.empty());
    EXPECT_EQ(a, contents(dir.file("out" + std::to_string(k) + ".threaded"))) << formats[k % 6];
  }
  // Saving new files on several threads leaves the process's umask alone.
  const mode_t after = umask(mask);
  EXPECT_EQ(after, mask);
}

TEST(ChooseConversion, TheClosestKindTheFormatHolds) {
  constexpr uint32_t kAny = 0xFFFFFFFFu;
  OwnedPicture rgb, grey, mapped, binary;
  test::makePattern(rgb, IMK_RGB, 8, 8);
  test::makePattern(grey, IMK_GREY, 8, 8, 256);
  test::makePattern(mapped, IMK_MAPPED, 8, 8, 100);
  test::makePattern(binary, IMK_BINARY, 8, 8);
  auto label = [](int item) { return std::string(process::conversionItem(item)->label); };
  const FormatInfo palette =
      formatWith({{IMK_BINARY, 2, kAny, kAny}, {IMK_MAPPED, 256, kAny, kAny}});
  EXPECT_EQ(label(tools::ChooseConversion(palette, rgb.rec)), "256 colors (Adaptive)");
  EXPECT_EQ(label(tools::ChooseConversion(palette, grey.rec)), "256 colors (Adaptive)");
  const FormatInfo binaryOnly = formatWith({{IMK_BINARY, 2, kAny, kAny}});
  EXPECT_EQ(label(tools::ChooseConversion(binaryOnly, grey.rec)), "Binary (Floyd Steinberg)");
  EXPECT_EQ(label(tools::ChooseConversion(binaryOnly, rgb.rec)), "Binary (Floyd Steinberg)");
  const FormatInfo trueOnly = formatWith({{IMK_ANY_TRUECOLOR, kAny, kAny, kAny}});
  EXPECT_EQ(label(tools::ChooseConversion(trueOnly, binary.rec)), "Convert to True Color");
  EXPECT_EQ(label(tools::ChooseConversion(trueOnly, mapped.rec)), "Convert to True Color");
  // 256 grey levels into a 16-level format: the dithered 16 levels.
  const FormatInfo sixteenGreys = formatWith({{IMK_GREY, 16, kAny, kAny}});
  EXPECT_EQ(label(tools::ChooseConversion(sixteenGreys, grey.rec)), "16 Grey scale (Dither)");
  EXPECT_EQ(label(tools::ChooseConversion(sixteenGreys, rgb.rec)), "16 Grey scale (Dither)");
  EXPECT_EQ(label(tools::ChooseConversion(sixteenGreys, binary.rec)), "4 Grey scale");
  // Sixteen colours at most: 128 dithered colours would fill 256 entries.
  const FormatInfo sixteenColours = formatWith({{IMK_MAPPED, 16, kAny, kAny}});
  EXPECT_EQ(label(tools::ChooseConversion(sixteenColours, rgb.rec)), "16 colors (Adaptive)");
  EXPECT_EQ(tools::ChooseConversion(formatWith({{99, 1, kAny, kAny}}), rgb.rec), 0);
  // Every choice really gives a picture the format accepts.
  for (const FormatInfo* f : {&palette, &binaryOnly, &trueOnly, &sixteenGreys, &sixteenColours})
    for (OwnedPicture* p : {&rgb, &grey, &mapped, &binary}) {
      int w, h;
      if (FormatAccepts(*f, p->rec, &w, &h)) continue;
      const int item = tools::ChooseConversion(*f, p->rec);
      ASSERT_GT(item, 0);
      OwnedPicture out;
      ASSERT_EQ(process::convertByItem(&p->rec, &out.rec, item), 0);
      EXPECT_TRUE(FormatAccepts(*f, out.rec, &w, &h)) << label(item);
    }
}

TEST(SavePictureSlot, ABatchKeepsItsChoiceInItsOwnSlot) {
  test::TempDir dir;
  OwnedPicture binary;
  test::makePattern(binary, IMK_BINARY, 5, 5);
  std::atomic<int> slot{kNoConversion};
  SaveHooks hooks;
  hooks.askConversion = [](void*, const char*, const ImageRecord&) { return 32; };
  hooks.rememberedChoice = &slot;
  const int before = RememberedConversion();
  ASSERT_EQ(
      SavePicture(hooks, dir.file("a.ppm").c_str(), imkGetIndex("ppm"), &binary.rec, 0, 0, false),
      0);
  EXPECT_EQ(slot.load(), 32);
  EXPECT_EQ(RememberedConversion(), before) << "the program's own choice is untouched";
  // The second file of that batch reuses the slot without asking.
  hooks.askConversion = nullptr;
  EXPECT_EQ(
      SavePicture(hooks, dir.file("b.ppm").c_str(), imkGetIndex("ppm"), &binary.rec, 0, 1, false),
      0);
}

}  // namespace
