// Sun raster: round trips of every kind standard and run-length coded, files
// checked against ImageMagick and netpbm in both directions, 32-bit and RGB
// variants, run-length escapes, colour maps and hostile headers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

namespace {

using test::OwnedPicture;

// A Sun raster header, a colour map (three planes) and `data`.
std::vector<uint8_t> makeSun(uint32_t width, uint32_t height, uint32_t depth, uint32_t type,
                             const std::vector<uint8_t>& map, const std::vector<uint8_t>& data) {
  std::vector<uint8_t> b;
  const uint32_t fields[8] = {0x59A66A95u,
                              width,
                              height,
                              depth,
                              static_cast<uint32_t>(data.size()),
                              type,
                              map.empty() ? 0u : 1u,
                              static_cast<uint32_t>(map.size())};
  for (uint32_t f : fields)
    for (int i = 3; i >= 0; --i) b.push_back(static_cast<uint8_t>(f >> (8 * i)));
  b.insert(b.end(), map.begin(), map.end());
  b.insert(b.end(), data.begin(), data.end());
  return b;
}

// Depth, type (2: run-length), the colour map's type and length, and the
// length of the pixel data: whatever follows the header and the map.
void sunHeader(const std::vector<uint8_t>& file, const checks::RoundTripCase& c, int rle) {
  ASSERT_GT(file.size(), 32u);
  const uint32_t map = c.kind == IMK_GREY || c.kind == IMK_MAPPED ? c.levels * 3u : 0u;
  EXPECT_EQ(test::be(file, 12), static_cast<uint32_t>(c.fileDepth));
  EXPECT_EQ(test::be(file, 20), rle ? 2u : 1u);
  EXPECT_EQ(test::be(file, 24), map ? 1u : 0u);
  EXPECT_EQ(test::be(file, 28), map);
  EXPECT_EQ(test::be(file, 16), file.size() - 32 - map);
}

// Every file goes through netpbm's decoder. Standard files go through
// ImageMagick's too; run-length coded ones through GraphicsMagick's, but for
// 24 bits: both read byte-encoded 24-bit pixels as R,G,B where standard ones
// are B,G,R (GIMP writes B,G,R in both, and netpbm reads them so).
// ImageMagick also drops the end of run-length coded rasters with padded
// rows, and refuses 1-bit ones whose rows are an even number of bytes.
std::vector<checks::RoundTripCase> sunCases() {
  const struct {
    uint16_t kind;
    int levels;
    uint16_t loaded;
    int depth;
  } kinds[] = {{IMK_BINARY, 2, IMK_BINARY, 1},  {IMK_GREY, 256, IMK_GREY, 8},
               {IMK_GREY, 16, IMK_MAPPED, 8},   {IMK_MAPPED, 200, IMK_MAPPED, 8},
               {IMK_MAPPED, 12, IMK_MAPPED, 8}, {IMK_RGB, 256, IMK_RGB, 24},
               {IMK_BGR, 256, IMK_RGB, 24},     {IMK_XBGR, 256, IMK_RGB, 24},
               {IMK_RGBX, 256, IMK_RGB, 24}};
  std::vector<checks::RoundTripCase> cases;
  for (const auto& k : kinds)
    for (int rle = 0; rle <= 1; ++rle) {
      std::vector<const char*> tools = {"rasttopnm {file}"};
      if (rle && k.depth < 24) tools.push_back("gm convert {file} ppm:-");
      cases.push_back({.format = "sun",
                       .kind = k.kind,
                       .levels = k.levels,
                       .loaded = k.loaded,
                       .options = {rle},
                       .colours = k.kind == IMK_MAPPED ? k.levels : -1,
                       .sameNumbers = k.kind == IMK_MAPPED,
                       .magickReads = !rle,
                       .toolReads = tools,
                       .header = sunHeader,
                       .fileDepth = k.depth});
    }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Sun, RoundTrip, testing::ValuesIn(sunCases()),
                         checks::caseName<checks::RoundTripCase>);

// Each file is compared with its writer's own decoding: netpbm's run-length
// writer drops the last pixels of 1-bit rows, and its reader agrees.
checks::ToolWriteCase sunTool(const char* command) {
  const bool netpbm = command[0] == 'p';
  return {.format = "ras",
          .command = command,
          .decoder = netpbm ? "rasttopnm {out}" : "/usr/bin/convert {out} -depth 8 ppm:-"};
}

INSTANTIATE_TEST_SUITE_P(Sun, ToolWrites,
                         testing::Values(sunTool("convert {dir}/rgb.ppm SUN:{out}"),
                                         sunTool("convert {dir}/pal.ppm -type Palette SUN:{out}"),
                                         sunTool("convert {dir}/bin.pbm -type Bilevel SUN:{out}"),
                                         sunTool("convert {dir}/grey.pgm SUN:{out}"),
                                         sunTool("pnmtorast -standard {dir}/rgb.ppm > {out}"),
                                         sunTool("pnmtorast -rle {dir}/rgb.ppm > {out}"),
                                         sunTool("pnmtorast -standard {dir}/pal.ppm > {out}"),
                                         sunTool("pnmtorast -rle {dir}/pal.ppm > {out}"),
                                         sunTool("pnmtorast -standard {dir}/bin.pbm > {out}"),
                                         sunTool("pnmtorast -rle {dir}/bin.pbm > {out}"),
                                         sunTool("pnmtorast -standard {dir}/grey.pgm > {out}")),
                         checks::caseName<checks::ToolWriteCase>);

TEST(SunWrite, RowsArePaddedToSixteenBits) {
  test::TempDir dir;
  struct Case {
    uint16_t type;
    size_t rowBytes;  // 13 pixels
  } cases[] = {{IMK_BINARY, 2}, {IMK_MAPPED, 14}, {IMK_RGB, 40}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    OwnedPicture src;
    test::makePattern(src, c.type, 13, 5, 100);
    ASSERT_EQ(test::save(dir.file("p.ras"), src.rec, "sun"), 0);
    const size_t map = c.type == IMK_MAPPED ? 300 : 0;
    EXPECT_EQ(test::readFile(dir.file("p.ras")).size(), 32 + map + c.rowBytes * 5);
  }
}

// ---------------------------------------------------------------------------
// Hand-made files.

TEST(SunRead, ThirtyTwoBitPixelsSkipTheirPadByteAndTypeThreeIsRgb) {
  test::TempDir dir;
  struct Case {
    uint32_t depth, type;
    std::vector<uint8_t> data;
    std::vector<uint8_t> rgb;
  } cases[] = {
      {32, 1, {0x99, 1, 2, 3}, {3, 2, 1}}, {32, 3, {0x99, 1, 2, 3}, {1, 2, 3}},
      {24, 1, {1, 2, 3, 0}, {3, 2, 1}},    {24, 3, {1, 2, 3, 0}, {1, 2, 3}},
      {24, 0, {1, 2, 3, 0}, {3, 2, 1}},  // the old type: as standard
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.depth * 10 + c.type);
    test::writeFile(dir.file("p.ras"), makeSun(1, 1, c.depth, c.type, {}, c.data));
    OwnedPicture pic;
    ASSERT_EQ(test::load(dir.file("p.ras"), pic), 0);
    EXPECT_EQ(pic->type, IMK_RGB);
    EXPECT_EQ(test::toRgb(pic.rec), c.rgb);
  }
}

TEST(SunRead, RunLengthEscapesAndRunsThatCrossRows) {
  test::TempDir dir;
  // 3x2 grey, rows of 4 bytes: 0x80 0 is a lone 0x80; 0x80 3 7 is four 7s,
  // running from row 0 (and its pad byte) into row 1; then 5 6 9 as they are.
  const std::vector<uint8_t> codes = {0x80, 0x00, 0x80, 0x03, 0x07, 0x05, 0x06, 0x09};
  test::writeFile(dir.file("r.ras"), makeSun(3, 2, 8, 2, {}, codes));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("r.ras"), pic), 0);
  ASSERT_EQ(pic->type, IMK_GREY);
  EXPECT_EQ(test::pixelsOf(pic.rec), (std::vector<uint8_t>{0x80, 7, 7, 7, 5, 6}));
  // One run of 256 bytes for a picture of 8.
  test::writeFile(dir.file("long.ras"), makeSun(3, 2, 8, 2, {}, {0x80, 0xFF, 3}));
  ASSERT_EQ(test::load(dir.file("long.ras"), pic), 0);
  EXPECT_EQ(test::pixelsOf(pic.rec), std::vector<uint8_t>(6, 3));
  // An escape cut before its value.
  test::writeFile(dir.file("cut.ras"), makeSun(3, 2, 8, 2, {}, {1, 2, 3, 4, 0x80, 0x05}));
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("cut.ras"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_EQ(pic->pixels, nullptr);
  ASSERT_EQ(test::load(dir.file("cut.ras"), pic, 0, IMK_FLAG_IGNORE_ERRORS, &info), 0);
  EXPECT_STREQ(info.errorText, "truncated");
  EXPECT_EQ(test::pixelsOf(pic.rec), (std::vector<uint8_t>{1, 2, 3, 0, 0, 0}));
}

TEST(SunRead, OneBitIsBlackOnWhiteUnlessAMapGivesColours) {
  test::TempDir dir;
  // Bits 1 0 1: without a map a set bit is black.
  test::writeFile(dir.file("bw.ras"), makeSun(3, 1, 1, 1, {}, {0xA0, 0}));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("bw.ras"), pic), 0);
  ASSERT_EQ(pic->type, IMK_BINARY);
  EXPECT_EQ(test::pixelsOf(pic.rec), (std::vector<uint8_t>{0, 1, 0}));
  // Map: red, green, blue planes of entries 0 (red) and 1 (blue).
  test::writeFile(dir.file("map.ras"), makeSun(3, 1, 1, 1, {255, 0, 0, 0, 0, 255}, {0xA0, 0}));
  ASSERT_EQ(test::load(dir.file("map.ras"), pic), 0);
  ASSERT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(test::toRgb(pic.rec), (std::vector<uint8_t>{0, 0, 255, 255, 0, 0, 0, 0, 255}));
}

TEST(SunRead, IndicesPastTheMapAreDamageAndShowBlack) {
  test::TempDir dir;
  // Two entries: grey 100 and grey 200; the pixels use 0, 1 and 5.
  test::writeFile(dir.file("m.ras"),
                  makeSun(3, 1, 8, 1, {100, 200, 100, 200, 100, 200}, {0, 1, 5, 0}));
  OwnedPicture pic;
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("m.ras"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_STREQ(info.errorText, "palette index out of range");
  EXPECT_EQ(pic->pixels, nullptr);
  ASSERT_EQ(test::load(dir.file("m.ras"), pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(pic->colorCount, 6);
  EXPECT_EQ(test::toRgb(pic.rec), (std::vector<uint8_t>{100, 100, 100, 200, 200, 200, 0, 0, 0}));
}

TEST(SunRead, HostileHeadersAreRefusedBeforeAllocating) {
  std::vector<uint8_t> longMap = makeSun(2, 2, 8, 1, {1, 2, 3}, {0, 0, 0, 0});
  longMap[30] = 0x10;  // map length 4099, past the end of the file
  test::expectRefused(
      {
          {"wide", makeSun(0x7FFFFFFF, 1, 8, 1, {}, {1, 2}), IMK_ERR_BAD_FILE},
          {"huge", makeSun(1 << 20, 1 << 20, 24, 1, {}, {1, 2, 3}), IMK_ERR_CORRUPT},
          {"huge encoded", makeSun(1 << 20, 1 << 20, 24, 2, {}, {0x80, 0xFF, 1}), IMK_ERR_CORRUPT},
          {"zero height", makeSun(4, 0, 8, 1, {}, {1, 2, 3, 4}), IMK_ERR_BAD_FILE},
          {"depth 16", makeSun(2, 2, 16, 1, {}, std::vector<uint8_t>(8, 1)), IMK_ERR_BAD_FILE},
          {"type 4", makeSun(2, 2, 8, 4, {}, std::vector<uint8_t>(4, 1)), IMK_ERR_BAD_FILE},
          {"map past the end", longMap, IMK_ERR_BAD_FILE},
          {"map of 2 bytes", makeSun(2, 2, 8, 1, {1, 2}, std::vector<uint8_t>(4, 1)),
           IMK_ERR_BAD_FILE},
      },
      0, 0, false);
}

}  // namespace
