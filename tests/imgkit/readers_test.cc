// Behaviour every reader shares, checked across all writable formats with
// files our own writers made: progress reporting and cancelling (of loads and
// saves), damaged files with and without "ignore errors", reduced loads,
// header-only look-ups.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/support/test_support.h"

namespace {

struct Case {
  const char* format;
  uint16_t kind;
  int width = 320, height = 240;
  int option = 0;  // the save option (run-length coding of the raster formats)
  // TIFF writers put the directory after the pixels: a cut file has no header.
  bool headerAtEnd = false;
  // A cut PCX loses the palette at its end, a cut SGI whole channel planes, so
  // no row survives the way the truncation test expects (their own tests
  // check what they keep).
  bool cutKeepsRows = true;
  // The reduced load is the full picture reduced afterwards, exactly.
  bool exactReduce = false;
  // A cut file fails with this code and reason (0, nullptr: any), and keeps
  // the rows stored first: the top ones (1), the bottom ones (-1) or either.
  int cutCode = 0;
  const char* cutReason = nullptr;
  int keptEnd = 0;
};

// One picture per format, large enough for several progress steps.
const Case kCases[] = {
    {"jpeg", IMK_RGB},
    {"png", IMK_RGB},
    {"gif", IMK_MAPPED, 320, 240, 0, false, true, false, IMK_ERR_CORRUPT, "truncated", 1},
    {"tiff", IMK_RGB, 320, 240, 0, true},
    {"bmp", IMK_RGB},
    {"pbm", IMK_BINARY},
    {"pgm", IMK_GREY},
    {"ppm", IMK_RGB},
    {"pam", IMK_RGB},
    {"iff", IMK_MAPPED, 320, 240, 0, false, true, false, IMK_ERR_CORRUPT, "truncated", 1},
    {"iff", IMK_MAPPED, 320, 240, 1, false, true, false, IMK_ERR_CORRUPT, "truncated", 1},
    {"soft", IMK_RGB},
    {"xbm", IMK_BINARY},
    {"xpm", IMK_MAPPED},
    {"ico", IMK_MAPPED, 240, 180},
    {"cur", IMK_RGB, 200, 150},
    {"tga", IMK_RGB, 320, 240, 0, false, true, true, IMK_ERR_CORRUPT, "truncated", -1},
    {"tga", IMK_RGB, 320, 240, 1, false, true, true, IMK_ERR_CORRUPT, "truncated", -1},
    {"tga", IMK_GREY, 320, 240, 0, false, true, true},
    {"sun", IMK_MAPPED, 320, 240, 0, false, true, true},
    {"sun", IMK_MAPPED, 320, 240, 1, false, true, true},
    {"sun", IMK_RGB, 320, 240, 0, false, true, true, IMK_ERR_CORRUPT, nullptr, 1},
    {"sun", IMK_RGB, 320, 240, 1, false, true, true, IMK_ERR_CORRUPT, nullptr, 1},
    {"pcx", IMK_MAPPED, 320, 240, 1, false, false, true},
    {"pcx", IMK_RGB, 320, 240, 0, false, false, true},
    {"sgi", IMK_RGB, 320, 240, 1, false, false, true},
    {"sgi", IMK_RGBX, 320, 240, 0, false, false, true}};

class Readers : public testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    const Case& c = GetParam();
    test::makePattern(src_, c.kind, c.width, c.height, c.kind == IMK_GREY ? 256 : 200);
    path_ = dir_.file(std::string("picture.") + c.format);
    ASSERT_EQ(test::save(path_, src_.rec, c.format, 0, c.option), 0);
  }
  test::TempDir dir_;
  test::OwnedPicture src_;
  std::string path_;
};

std::vector<std::pair<int, int>> gCalls;
int gStopAt = -1;
int record(int step, int count) {
  gCalls.emplace_back(step, count);
  return step == gStopAt;
}

LoadOptions progressOptions(int stopAt) {
  gCalls.clear();
  gStopAt = stopAt;
  LoadOptions o;
  imkDefaultOption(&o);
  o.flags = IMK_FLAG_PROGRESS | IMK_FLAG_LOAD;
  o.progress = record;
  return o;
}

int loadWithProgress(const std::string& path, test::OwnedPicture& pic, int stopAt) {
  pic.reset();
  LoadOptions o = progressOptions(stopAt);
  return imkLoad(path.c_str(), &pic.rec, &o, nullptr);
}

TEST_P(Readers, ProgressClimbsFromZeroOneStepAtATimeToItsCount) {
  test::OwnedPicture pic;
  ASSERT_EQ(loadWithProgress(path_, pic, -1), 0);
  ASSERT_GE(gCalls.size(), 2u);
  EXPECT_EQ(gCalls.front().first, 0);
  const int count = gCalls.front().second;
  EXPECT_GT(count, 0);
  EXPECT_EQ(gCalls.back().first, count);
  for (size_t i = 1; i < gCalls.size(); ++i) EXPECT_EQ(gCalls[i].first, gCalls[i - 1].first + 1);
}

TEST_P(Readers, StoppingFromTheCallbackGives15AndNoPictureOrFile) {
  for (int stopAt : {0, 1, 2}) {
    test::OwnedPicture pic;
    EXPECT_EQ(loadWithProgress(path_, pic, stopAt), IMK_ERR_STOPPED) << "stop at " << stopAt;
    EXPECT_EQ(pic->pixels, nullptr);
    EXPECT_EQ(pic->palette, nullptr);
  }
  // Saving stops the same way and leaves no file.
  LoadOptions o = progressOptions(2);
  o.formatIndex = imkGetIndex(GetParam().format);
  o.saveOption = static_cast<uint16_t>(GetParam().option);
  EXPECT_EQ(imkSave(dir_.file("stopped").c_str(), &src_.rec, &o), IMK_ERR_STOPPED);
  EXPECT_FALSE(test::fileExists(dir_.file("stopped")));
}

TEST_P(Readers, TruncatedFileFailsUnlessErrorsAreIgnored) {
  std::vector<uint8_t> bytes = test::readFile(path_);
  bytes.resize(bytes.size() * 6 / 10);
  const std::string cut = dir_.file(std::string("cut.") + GetParam().format);
  test::writeFile(cut, bytes);
  const Case& c = GetParam();
  test::OwnedPicture pic;
  FileInfo info;
  const int rc = test::load(cut, pic, 0, 0, &info);
  EXPECT_NE(rc, 0);
  if (c.cutCode) {
    EXPECT_EQ(rc, c.cutCode);
  }
  if (c.cutReason) {
    EXPECT_STREQ(info.errorText, c.cutReason);
  }
  EXPECT_EQ(pic->pixels, nullptr);
  if (!c.cutKeepsRows) return;
  if (GetParam().headerAtEnd) {
    EXPECT_NE(test::load(cut, pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
    EXPECT_EQ(pic->pixels, nullptr);
    return;
  }
  ASSERT_EQ(test::load(cut, pic, 0, IMK_FLAG_IGNORE_ERRORS, &info), 0);
  if (c.cutReason) {
    EXPECT_STREQ(info.errorText, c.cutReason);
  }
  EXPECT_EQ(pic->width, GetParam().width);
  EXPECT_EQ(pic->height, GetParam().height);
  // The rows stored before the cut were decoded and match the complete file.
  test::OwnedPicture whole;
  ASSERT_EQ(test::load(path_, whole), 0);
  const std::vector<uint8_t> a = test::toRgb(pic.rec), b = test::toRgb(whole.rec);
  const size_t rowBytes = static_cast<size_t>(GetParam().width) * 3;
  std::vector<bool> same;
  for (int y = 0; y < c.height; ++y)
    same.push_back(std::equal(a.begin() + y * rowBytes, a.begin() + (y + 1) * rowBytes,
                              b.begin() + y * rowBytes));
  const long kept = std::count(same.begin(), same.end(), true);
  EXPECT_GE(kept, c.height * 4 / 10);
  EXPECT_LT(kept, c.height);
  // The rows kept are the ones stored first.
  if (c.keptEnd) {
    const bool topKept = c.keptEnd > 0;
    EXPECT_EQ(same.front(), topKept);
    EXPECT_EQ(same.back(), !topKept);
  }
}

TEST_P(Readers, ReducedLoadFitsAndKeepsTheAspect) {
  test::OwnedPicture pic;
  ASSERT_EQ(test::load(path_, pic, 0, IMK_FLAG_REDUCE), IMK_OK);  // fit 0x0: no reduction
  EXPECT_EQ(pic->width, GetParam().width);
  LoadOptions o;
  imkDefaultOption(&o);
  o.flags |= IMK_FLAG_REDUCE;
  o.fitWidth = 80;
  o.fitHeight = 80;
  pic.reset();
  ASSERT_EQ(imkLoad(path_.c_str(), &pic.rec, &o, nullptr), 0);
  EXPECT_EQ(pic->width, 80);
  EXPECT_EQ(pic->height, 80 * GetParam().height / GetParam().width);
  if (!GetParam().exactReduce) return;
  // The same picture as the full one reduced afterwards.
  test::OwnedPicture whole;
  ASSERT_EQ(test::load(path_, whole), 0);
  imk::Picture full;  // takes the buffers over
  full.rec() = whole.rec;
  std::memset(&whole.rec, 0, sizeof whole.rec);
  ASSERT_TRUE(imk::reducePicture(full, 80, 80));
  EXPECT_EQ(test::toRgb(full.rec()), test::toRgb(pic.rec));
}

TEST_P(Readers, HeaderInformationWithoutDecoding) {
  FileInfo info;
  ASSERT_EQ(imkFileInformation(path_.c_str(), -1, 0, &info), 0);
  EXPECT_EQ(info.formatIndex, imkGetIndex(GetParam().format));
  EXPECT_EQ(info.width, GetParam().width);
  EXPECT_EQ(info.height, GetParam().height);
  EXPECT_EQ(info.pictureCount, 1);
  FormatInfo format;
  imkGetInfo(info.formatIndex, &format);
  EXPECT_STREQ(info.formatName, format.name);
  // A file cut right after its header is still described.
  if (GetParam().headerAtEnd) return;
  std::vector<uint8_t> bytes = test::readFile(path_);
  bytes.resize(std::min<size_t>(bytes.size(), 1200));
  test::writeFile(dir_.file("head"), bytes);
  FileInfo head;
  ASSERT_EQ(imkFileInformation(dir_.file("head").c_str(), -1, 0, &head), 0);
  EXPECT_EQ(head.width, GetParam().width);
}

TEST_P(Readers, FormatIsFoundWhateverTheExtensionOrRequestedIndex) {
  const std::string renamed = dir_.file("no-extension");
  test::writeFile(renamed, test::readFile(path_));
  test::OwnedPicture pic;
  FileInfo info;
  LoadOptions o;
  imkDefaultOption(&o);
  o.formatIndex = imkGetIndex(std::string(GetParam().format) == "png" ? "gif" : "png");
  ASSERT_EQ(imkLoad(renamed.c_str(), &pic.rec, &o, &info), 0);
  EXPECT_EQ(info.formatIndex, imkGetIndex(GetParam().format));
  EXPECT_EQ(info.pictureCount, 1);
}

INSTANTIATE_TEST_SUITE_P(AllFormats, Readers, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<Case>& info) {
                           return std::string(info.param.format) + "_" + std::to_string(info.index);
                         });

// A header that claims a huge picture over a few bytes of data is refused
// even when errors are ignored, before the reader allocates the picture; a
// damaged file holding a fair share of its data still loads in part.
std::vector<uint8_t> bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

// A BMP header: 24-bit uncompressed, or 8-bit with a grey palette and the
// given compression (1 = RLE8).
std::vector<uint8_t> bmpHeader(int32_t width, int32_t height, int bits = 24, int compression = 0) {
  const uint32_t paletteBytes = bits == 8 ? 1024 : 0;
  std::vector<uint8_t> b(54 + paletteBytes, 0);
  auto put32 = [&](size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
  };
  b[0] = 'B', b[1] = 'M';
  put32(10, 54 + paletteBytes);
  put32(14, 40);
  put32(18, static_cast<uint32_t>(width));
  put32(22, static_cast<uint32_t>(height));
  b[26] = 1;  // planes
  b[28] = static_cast<uint8_t>(bits);
  b[30] = static_cast<uint8_t>(compression);
  for (uint32_t i = 0; i < paletteBytes / 4; ++i) b[54 + 4 * i] = b[55 + 4 * i] = b[56 + 4 * i] = i;
  return b;
}

TEST(DamagedFiles, AHugeHeaderOverAlmostNoDataIsRefusedEvenWhenErrorsAreIgnored) {
  test::TempDir dir;
  std::vector<uint8_t> bmp = bmpHeader(4000, 4000);
  bmp.resize(bmp.size() + 300, 0x80);
  // Run-length codes covering two rows of a picture of 262293.
  std::vector<uint8_t> rle = bmpHeader(227, 262293, 8, 1);
  for (uint8_t code : {200, 7, 27, 9, 0, 0, 100, 3, 0, 0}) rle.push_back(code);
  const std::pair<const char*, std::vector<uint8_t>> kFiles[] = {
      {"p3.ppm", bytesOf("P3\n1025105 17\n3\n0 1 2 3 2 1")},
      {"p6.ppm", bytesOf("P6\n4000 4000\n255\n" + std::string(300, 'x'))},
      {"p1.pbm", bytesOf("P1\n5000 5000\n0101")},
      {"huge.bmp", bmp},
      {"rle.bmp", rle},
      {"huge.xbm", bytesOf("#define a_width 9000\n#define a_height 9000\n"
                           "static char a_bits[] = {0x00, 0x01};\n")},
  };
  for (const auto& [name, bytes] : kFiles) {
    const std::string path = dir.file(name);
    test::writeFile(path, bytes);
    test::OwnedPicture pic;
    EXPECT_EQ(test::load(path, pic, 0, IMK_FLAG_IGNORE_ERRORS), IMK_ERR_BAD_FILE) << name;
    EXPECT_EQ(pic->pixels, nullptr) << name;
  }
  // A small run-length picture may end at once: all background.
  std::vector<uint8_t> empty = bmpHeader(100, 100, 8, 1);
  for (uint8_t code : {0, 1}) empty.push_back(code);
  test::writeFile(dir.file("empty.bmp"), empty);
  test::OwnedPicture blank;
  ASSERT_EQ(test::load(dir.file("empty.bmp"), blank), IMK_OK);
  EXPECT_EQ(blank->height, 100);
  // A quarter of the pixels present: a partial picture with errors ignored.
  const std::string quarter = dir.file("quarter.ppm");
  test::writeFile(quarter, bytesOf("P6\n64 64\n255\n" + std::string(64 * 64 * 3 / 4, 'x')));
  test::OwnedPicture pic;
  EXPECT_EQ(test::load(quarter, pic), IMK_ERR_CORRUPT);
  ASSERT_EQ(test::load(quarter, pic, 0, IMK_FLAG_IGNORE_ERRORS), IMK_OK);
  EXPECT_EQ(pic->height, 64);
}

}  // namespace
