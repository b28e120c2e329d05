// Headerless raw pixels: every channel type in every arrangement against
// pictures written out by hand, the offset, short files, bad options, and
// the rule that raw is only ever chosen by its index.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;

int loadRaw(const std::string& path, OwnedPicture& pic, int width, int height, int type, int order,
            int offset = 0, uint16_t flags = 0, FileInfo* info = nullptr) {
  pic.reset();
  LoadOptions o;
  imkDefaultOption(&o);
  o.formatIndex = imkGetIndex("raw");
  o.flags |= flags;
  o.rawWidth = width;
  o.rawHeight = height;
  o.rawOffset = offset;
  o.rawChannelType = static_cast<uint16_t>(type);
  o.rawChannelOrder = static_cast<uint16_t>(order);
  return imkLoad(path.c_str(), &pic.rec, &o, info);
}

// A 3x2 picture in every arrangement, written out by hand. Channel values are
// named by pixel and channel: pixel p (0..5, row-major) has channel c equal to
// 10 * (p + 1) + c, so R of pixel 4 is 50, G of pixel 4 is 51.
struct Arrangements {
  std::vector<uint8_t> interleaved, sequential, planes;
};
Arrangements arrange(int channels) {
  const int w = 3, h = 2;
  auto v = [](int p, int c) { return static_cast<uint8_t>(10 * (p + 1) + c); };
  Arrangements a;
  for (int p = 0; p < w * h; ++p)
    for (int c = 0; c < channels; ++c) a.interleaved.push_back(v(p, c));
  for (int y = 0; y < h; ++y)
    for (int c = 0; c < channels; ++c)
      for (int x = 0; x < w; ++x) a.sequential.push_back(v(y * w + x, c));
  for (int c = 0; c < channels; ++c)
    for (int p = 0; p < w * h; ++p) a.planes.push_back(v(p, c));
  return a;
}

TEST(RawRead, EveryTypeInEveryArrangementGivesTheSamePixels) {
  struct Case {
    int type;
    int channels;
    uint16_t kind;
    // Expected bytes of pixel 4 (second row, middle) in the picture.
    std::vector<uint8_t> pixel4;
  } cases[] = {
      {IMK_RAW_GREY, 1, IMK_GREY, {50}},
      {IMK_RAW_RGB, 3, IMK_RGB, {50, 51, 52}},
      {IMK_RAW_BGR, 3, IMK_RGB, {52, 51, 50}},
      {IMK_RAW_RGBA, 4, IMK_RGBX, {50, 51, 52, 53}},
      {IMK_RAW_ABGR, 4, IMK_RGBX, {53, 52, 51, 50}},
      {IMK_RAW_CMY, 3, IMK_RGB, {205, 204, 203}},
      // K = 53: 205 * 202 / 255 = 162.4, 204 * 202 / 255 = 161.6, 203 * 202 / 255 = 160.8
      {IMK_RAW_CMYK, 4, IMK_RGB, {162, 162, 161}},
  };
  test::TempDir dir;
  for (const Case& c : cases) {
    const Arrangements a = arrange(c.channels);
    const std::pair<int, const std::vector<uint8_t>*> orders[] = {
        {IMK_RAW_INTERLEAVED, &a.interleaved},
        {IMK_RAW_SEQUENTIAL, &a.sequential},
        {IMK_RAW_PLANES, &a.planes}};
    for (const auto& [order, bytes] : orders) {
      SCOPED_TRACE("type " + std::to_string(c.type) + " order " + std::to_string(order));
      test::writeFile(dir.file("p.raw"), *bytes);
      OwnedPicture pic;
      ASSERT_EQ(loadRaw(dir.file("p.raw"), pic, 3, 2, c.type, order), 0);
      EXPECT_EQ(pic->type, c.kind);
      ASSERT_EQ(pic->width, 3);
      ASSERT_EQ(pic->height, 2);
      const int bpp = pic->bytesPerPixel;
      EXPECT_EQ(std::vector<uint8_t>(pic.row(1) + bpp, pic.row(1) + 2 * bpp), c.pixel4);
      // Pixel 0 follows the same pattern: channel c of pixel 0 is 10 + c.
      if (c.type == IMK_RAW_RGB) {
        EXPECT_EQ(pic.row(0)[0], 10);
        EXPECT_EQ(pic.row(0)[2], 12);
      }
    }
  }
}

TEST(RawRead, GreyIs256LevelsAndCmykCombinesBlack) {
  test::TempDir dir;
  OwnedPicture pic;
  test::writeFile(dir.file("g.raw"), {0, 128, 255});
  ASSERT_EQ(loadRaw(dir.file("g.raw"), pic, 3, 1, IMK_RAW_GREY, IMK_RAW_INTERLEAVED), 0);
  EXPECT_EQ(pic->type, IMK_GREY);
  EXPECT_EQ(pic->colorCount, 256);
  EXPECT_EQ(pic.row(0)[1], 128);
  EXPECT_EQ(pic->palette[128], 128);
  // Each colour is (255 - C)(255 - K) / 255, rounded.
  //   pixel 0: C=0 M=255 Y=100 K=0   -> 255, 0, 155
  //   pixel 1: C=0 M=100 Y=0   K=50  -> 205, 155 * 205 / 255 = 124.6 -> 125, 205
  //   pixel 2: K=255                 -> 0, 0, 0
  test::writeFile(dir.file("k.raw"), {0, 255, 100, 0, 0, 100, 0, 50, 0, 0, 0, 255});
  ASSERT_EQ(loadRaw(dir.file("k.raw"), pic, 3, 1, IMK_RAW_CMYK, IMK_RAW_INTERLEAVED), 0);
  EXPECT_EQ(pic->type, IMK_RGB);
  EXPECT_EQ(std::vector<uint8_t>(pic.row(0), pic.row(0) + 9),
            (std::vector<uint8_t>{255, 0, 155, 205, 125, 205, 0, 0, 0}));
}

TEST(RawRead, OffsetSkipsLeadingBytes) {
  test::TempDir dir;
  std::vector<uint8_t> bytes(100, 0xEE);
  const Arrangements a = arrange(3);
  bytes.insert(bytes.end(), a.planes.begin(), a.planes.end());
  test::writeFile(dir.file("o.raw"), bytes);
  OwnedPicture pic;
  ASSERT_EQ(loadRaw(dir.file("o.raw"), pic, 3, 2, IMK_RAW_RGB, IMK_RAW_PLANES, 100), 0);
  EXPECT_EQ(pic.row(0)[0], 10);
  EXPECT_EQ(pic.row(1)[8], 62);  // B of pixel 5
}

TEST(RawRead, ShortFileIsDamageAndKeepsWhatIsThere) {
  test::TempDir dir;
  const Arrangements a = arrange(3);
  // Interleaved, one and a half rows of three.
  test::writeFile(dir.file("s.raw"),
                  std::vector<uint8_t>(a.interleaved.begin(), a.interleaved.begin() + 13));
  OwnedPicture pic;
  FileInfo info;
  EXPECT_EQ(loadRaw(dir.file("s.raw"), pic, 3, 2, IMK_RAW_RGB, IMK_RAW_INTERLEAVED, 0, 0, &info),
            IMK_ERR_CORRUPT);
  EXPECT_NE(info.errorText[0], '\0');
  EXPECT_EQ(pic->pixels, nullptr);
  ASSERT_EQ(loadRaw(dir.file("s.raw"), pic, 3, 2, IMK_RAW_RGB, IMK_RAW_INTERLEAVED, 0,
                    IMK_FLAG_IGNORE_ERRORS),
            0);
  EXPECT_EQ(std::vector<uint8_t>(pic.row(0), pic.row(0) + 9),
            std::vector<uint8_t>(a.interleaved.begin(), a.interleaved.begin() + 9));
  EXPECT_EQ(pic.row(1)[3], 50);
  EXPECT_EQ(pic.row(1)[4], 0);  // missing
  // Planes: the blue plane is missing entirely.
  test::writeFile(dir.file("p.raw"), std::vector<uint8_t>(a.planes.begin(), a.planes.begin() + 12));
  ASSERT_EQ(
      loadRaw(dir.file("p.raw"), pic, 3, 2, IMK_RAW_RGB, IMK_RAW_PLANES, 0, IMK_FLAG_IGNORE_ERRORS),
      0);
  EXPECT_EQ(pic.row(1)[3], 50);
  EXPECT_EQ(pic.row(1)[4], 51);
  EXPECT_EQ(pic.row(1)[5], 0);
  // An offset past the end of the file leaves nothing at all.
  EXPECT_EQ(loadRaw(dir.file("p.raw"), pic, 3, 2, IMK_RAW_RGB, IMK_RAW_PLANES, 1000),
            IMK_ERR_CORRUPT);
}

TEST(RawRead, ImpossibleOptionsAreRefusedWithAReason) {
  test::TempDir dir;
  test::writeFile(dir.file("x.raw"), std::vector<uint8_t>(64, 1));
  struct Case {
    int w, h, type, order, offset;
  } cases[] = {
      {0, 2, IMK_RAW_RGB, 0, 0}, {2, -1, IMK_RAW_RGB, 0, 0}, {2, 2, 7, 0, 0},
      {2, 2, IMK_RAW_RGB, 3, 0}, {2, 2, IMK_RAW_RGB, 0, -5}, {1 << 21, 1 << 21, IMK_RAW_RGB, 0, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.w) + "x" + std::to_string(c.h) + " type " +
                 std::to_string(c.type) + " order " + std::to_string(c.order));
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(loadRaw(dir.file("x.raw"), pic, c.w, c.h, c.type, c.order, c.offset,
                      IMK_FLAG_IGNORE_ERRORS, &info),
              IMK_ERR_BAD_FILE);
    EXPECT_NE(info.errorText[0], '\0');
    EXPECT_EQ(pic->pixels, nullptr);
  }
}

TEST(RawFormat, IsChosenOnlyByItsIndex) {
  const int16_t raw = imkGetIndex("raw");
  ASSERT_GE(raw, 0);
  FormatInfo fi;
  imkGetInfo(raw, &fi);
  EXPECT_TRUE(fi.capabilities & IMK_NO_SNIFF);
  EXPECT_FALSE(fi.capabilities & IMK_CAN_WRITE);

  test::TempDir dir;
  std::vector<uint8_t> bytes(48);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 5 + 1);
  test::writeFile(dir.file("r.raw"), bytes);
  // Recognition never picks raw, whatever the bytes.
  OwnedPicture pic;
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("r.raw"), pic, 0, 0, &info), IMK_ERR_UNKNOWN_FORMAT);
  EXPECT_NE(imkFileInformation(dir.file("r.raw").c_str(), -1, 0, &info), 0);
  EXPECT_NE(info.formatIndex, raw);
  // By index, with the layout given, it loads.
  ASSERT_EQ(loadRaw(dir.file("r.raw"), pic, 4, 4, IMK_RAW_RGB, IMK_RAW_INTERLEAVED, 0, 0, &info),
            0);
  EXPECT_EQ(info.formatIndex, raw);
  EXPECT_EQ(info.width, 4);
  EXPECT_EQ(pic.row(3)[11], bytes[47]);
  // File information has no header to read.
  EXPECT_EQ(imkFileInformation(dir.file("r.raw").c_str(), raw, 0, &info), IMK_ERR_UNKNOWN_FORMAT);
  // Another format's file loaded as raw is taken as raw bytes.
  OwnedPicture src;
  test::makePattern(src, IMK_GREY, 8, 2, 256);
  ASSERT_EQ(test::save(dir.file("g.pgm"), src.rec, "pgm"), 0);
  ASSERT_EQ(loadRaw(dir.file("g.pgm"), pic, 4, 1, IMK_RAW_GREY, IMK_RAW_INTERLEAVED, 0, 0, &info),
            0);
  EXPECT_EQ(info.formatIndex, raw);
  EXPECT_EQ(pic.row(0)[0], 'P');
}

}  // namespace
