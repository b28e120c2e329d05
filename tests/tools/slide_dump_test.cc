// Slide files (both directions, and where writer and reader disagree), the
// order of a show, and the lines of a hexadecimal dump.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/test_support.h"
#include "tools/hex_dump_line.h"
#include "tools/slide_file.h"

namespace {

using namespace tools;

std::string writeText(const test::TempDir& dir, const std::string& text) {
  const std::string path = dir.path() + "/show.sld";
  std::ofstream(path) << text;
  return path;
}

std::vector<std::string> paths(const SlideFileContents& c) {
  std::vector<std::string> out;
  for (const SlideFileName& f : c.files) out.emplace_back(f.path);
  return out;
}

TEST(SlideFile, ReadsKeysAndQuotedPaths) {
  test::TempDir dir;
  SlideFileContents c;
  const std::string path = writeText(dir,
                                     "# Slide Show Sequence\n"
                                     "Timer = 0\n"
                                     "Loop = 1\n"
                                     "Loops = 0\n"         // not a key: compared whole
                                     "CenterWindow = 0\n"  // zero sets nothing
                                     "RandomOrder = 7\n"
                                     "View = 2\n"
                                     "HideMouse = 1\n"
                                     "\"/pics/a b.png\" and a remark\n"
                                     "\"/pics/unclosed.gif\n");
  ASSERT_EQ(ReadSlideFile(path.c_str(), &c), SlideFileResult::kLoaded);
  // Timer 0 is read back as 1; title bar off and errors suppressed unless
  // the file says otherwise.
  EXPECT_EQ(c.timer, 1);
  EXPECT_EQ(c.flags, kSlideTimer | kSlideLoop | kSlideRandom | kSlideFitAll | kSlideHideMouse |
                         kSlideNoTitle | kSlideNoErrors);
  // A path followed by other text loses the quotes and the text; without a
  // closing quote the rest of the line, line feed included, is the path.
  EXPECT_EQ(paths(c), (std::vector<std::string>{"/pics/a b.png", "/pics/unclosed.gif\n"}));
}

TEST(SlideFile, HeaderOnlyGivesNoFilesAndAMissingHeaderLoadsNothing) {
  test::TempDir dir;
  SlideFileContents c;
  ASSERT_EQ(ReadSlideFile(writeText(dir, "# Slide Show Sequence\n").c_str(), &c),
            SlideFileResult::kLoaded);
  EXPECT_TRUE(c.files.empty());
  EXPECT_EQ(c.timer, 1);

  c.timer = 42;
  EXPECT_EQ(ReadSlideFile(writeText(dir, "Slide Show\n\"/a.png\"\n").c_str(), &c),
            SlideFileResult::kNotSlideFile);
  EXPECT_EQ(c.timer, 42);
  EXPECT_EQ(ReadSlideFile((dir.path() + "/none.sld").c_str(), &c), SlideFileResult::kCannotOpen);
}

TEST(SlideFile, WriteThenReadKeepsTheKnownDisagreements) {
  test::TempDir dir;
  const std::string path = dir.path() + "/saved.sld";
  SlideDialogState s;
  s.timerMode = true;
  s.timer = 5;
  s.center = true;
  s.view = 1;
  s.files = {"/p/one.png", "/p/two.jpg"};
  ASSERT_TRUE(WriteSlideFile(path.c_str(), s));
  std::ifstream in(path);
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(text,
            "# Slide Show Sequence\nTimer = 5\nLoop = 0\nCenterWindow = 1\nRandomOrder = 0\n"
            "ReadErrors = 1\nTitleBar = 1\nFullScreen = 0\nView = 1\n\"/p/one.png\"\n"
            "\"/p/two.jpg\"\n");

  SlideFileContents c;
  ASSERT_EQ(ReadSlideFile(path.c_str(), &c), SlideFileResult::kLoaded);
  // "TitleBar" is no key of the reader: the title bar stays off although the
  // dialog had it on; "ReadErrors = 1" turns suppressing off, as written.
  EXPECT_EQ(c.flags, kSlideTimer | kSlideCenter | kSlideFitLarge | kSlideNoTitle);
  EXPECT_EQ(c.timer, 5);
  EXPECT_EQ(paths(c), s.files);

  // Without timer mode no Timer line is written, and HideMouse never is.
  s.timerMode = false;
  s.suppressErrors = true;
  ASSERT_TRUE(WriteSlideFile(path.c_str(), s));
  ASSERT_EQ(ReadSlideFile(path.c_str(), &c), SlideFileResult::kLoaded);
  EXPECT_EQ(c.flags & (kSlideTimer | kSlideHideMouse), 0u);
  EXPECT_NE(c.flags & kSlideNoErrors, 0u);
  EXPECT_FALSE(WriteSlideFile((dir.path() + "/no/such/dir.sld").c_str(), s));
}

TEST(SlideDialog, FlagsDelayAndLoadedState) {
  SlideDialogState s;
  s.timer = 0;
  s.loop = s.random = s.noTitle = true;
  s.view = 2;
  // Keyboard mode: no timer bit; the delay is seconds (at least one) in ms.
  EXPECT_EQ(SlideFlagsOf(s), kSlideLoop | kSlideRandom | kSlideNoTitle | kSlideFitAll);
  EXPECT_EQ(SlideDelayOf(s), 1000);
  s.timerMode = true;
  s.timer = 3;
  EXPECT_EQ(SlideFlagsOf(s) & kSlideTimer, kSlideTimer);
  EXPECT_EQ(SlideDelayOf(s), 3000);

  // Loading a file without files keeps the list; one with files replaces it.
  SlideFileContents c;
  c.flags = kSlideTimer | kSlideFitLarge | kSlideNoErrors;
  c.timer = 7;
  SlideDialogState loaded;
  loaded.files = {"/keep.png"};
  ApplySlideFile(c, &loaded);
  EXPECT_TRUE(loaded.timerMode);
  EXPECT_EQ(loaded.timer, 7);
  EXPECT_EQ(loaded.view, 1);
  EXPECT_TRUE(loaded.suppressErrors);
  EXPECT_FALSE(loaded.noTitle);
  EXPECT_EQ(loaded.files, std::vector<std::string>{"/keep.png"});
  SlideFileName name{};
  std::snprintf(name.path, sizeof name.path, "/new.gif");
  c.files = {name};
  ApplySlideFile(c, &loaded);
  EXPECT_EQ(loaded.files, std::vector<std::string>{"/new.gif"});
}

TEST(SlideDialog, AddFolderTakesRecognisedPicturesInNameOrder) {
  test::TempDir dir;
  const std::string wheel = std::string(VIMORA_SOURCE_DIR) + "/samples/wheel.png";
  const std::string rings = std::string(VIMORA_SOURCE_DIR) + "/samples/rings.pgm";
  for (const auto& [from, to] :
       {std::pair{wheel, "b.png"}, std::pair{rings, "a.pgm"}, std::pair{wheel, ".hidden.png"}}) {
    std::ifstream in(from, std::ios::binary);
    std::ofstream(dir.file(to), std::ios::binary) << in.rdbuf();
  }
  std::ofstream(dir.file("notes.txt")) << "not a picture\n";
  ASSERT_EQ(mkdir(dir.file("sub.png").c_str(), 0700), 0);
  EXPECT_EQ(PicturesInFolder(dir.path()),
            (std::vector<std::string>{dir.file("a.pgm"), dir.file("b.png")}));
  EXPECT_TRUE(PicturesInFolder(dir.file("missing")).empty());
}

int sequence[16];
int sequenceAt = 0;
int nextRandom() { return sequence[sequenceAt++]; }

TEST(SlideAdvance, StepsLoopsAndEnds) {
  int32_t current = -1;
  // Three files in order, then the end without loop.
  EXPECT_EQ(SlideAdvance(&current, nullptr, 3, 0, 0, nextRandom), 0);
  EXPECT_EQ(SlideAdvance(&current, nullptr, 3, 0, 1, nextRandom), 1);
  EXPECT_EQ(SlideAdvance(&current, nullptr, 3, 0, 1, nextRandom), 2);
  EXPECT_EQ(SlideAdvance(&current, nullptr, 3, 0, 1, nextRandom), -1);
  // Back from the first picture: nothing new without loop, the last with it.
  current = 0;
  EXPECT_EQ(SlideAdvance(&current, nullptr, 3, 0, -1, nextRandom), -1);
  current = 0;
  EXPECT_EQ(SlideAdvance(&current, nullptr, 3, kSlideLoop, -1, nextRandom), 2);
  EXPECT_EQ(SlideAdvance(&current, nullptr, 3, kSlideLoop, 1, nextRandom), 0);
  // One file with loop shows that file at every step.
  current = -1;
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(SlideAdvance(&current, nullptr, 1, kSlideLoop, 1, nullptr), 0);
}

TEST(SlideAdvance, RandomOrderShowsEachFileOncePerRound) {
  uint8_t shown[3] = {};
  int32_t current = -1;
  const uint32_t flags = kSlideRandom | kSlideLoop;
  // Draws 4, 4, 4: file 1, then the next unshown from 1 (2), then wrapping
  // below the draw (0). The fourth picture starts a new round (marks cleared
  // by the loop) and draws 2 % 3.
  const int draws[] = {4, 4, 4, 2, 2, 2};
  std::copy(std::begin(draws), std::end(draws), sequence);
  sequenceAt = 0;
  std::vector<int> order;
  for (int i = 0; i < 6; ++i)
    order.push_back(SlideAdvance(&current, shown, 3, flags, 1, nextRandom));
  EXPECT_EQ(order, (std::vector<int>{1, 2, 0, 2, 0, 1}));

  // Without loop a random show still ends after three pictures.
  uint8_t marks[3] = {};
  current = -1;
  sequenceAt = 0;
  for (int i = 0; i < 3; ++i)
    EXPECT_GE(SlideAdvance(&current, marks, 3, kSlideRandom, 1, nextRandom), 0);
  EXPECT_EQ(SlideAdvance(&current, marks, 3, kSlideRandom, 1, nextRandom), -1);
}

TEST(HexDumpLine, FullShortAndEmpty) {
  EXPECT_EQ(HexDumpLineCount(0), 0);
  EXPECT_EQ(HexDumpLineCount(16), 1);
  EXPECT_EQ(HexDumpLineCount(17), 2);

  uint8_t data[17];
  for (int i = 0; i < 16; ++i) data[i] = static_cast<uint8_t>('A' + i);
  data[3] = 0x0A;
  data[16] = 'z';
  const std::string first = HexDumpLine(data, 17, 0);
  EXPECT_EQ(first, "00000000: 41 42 43 0a 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50 ABC.EFGHIJKLMNOP");
  EXPECT_EQ(first.size(), 74u);
  // The second line: offset, one byte and a blank, 45 blanks, the character
  // and 15 blanks.
  EXPECT_EQ(HexDumpLine(data, 17, 1),
            "00000010: 7a " + std::string(45, ' ') + "z" + std::string(15, ' '));
}

}  // namespace
