// Targa: round trips of every kind plain and run-length coded, files checked
// against ImageMagick and netpbm in both directions and against the
// gdk-pixbuf suite's reference renderings, orientations, alpha, 15/16-bit
// colours, colour maps, run-length packets and hostile headers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

namespace {

using test::OwnedPicture;

// A Targa header, an optional image ID and colour map, then `data`.
struct TgaSpec {
  int type = 2;
  int width = 1, height = 1, depth = 24, descriptor = 0;
  std::vector<uint8_t> id;
  int mapFirst = 0, mapBits = 0;
  std::vector<uint8_t> map;  // entries as stored
};
std::vector<uint8_t> makeTga(const TgaSpec& s, const std::vector<uint8_t>& data) {
  const int entryBytes = (s.mapBits + 7) / 8;
  const int mapLength = entryBytes ? static_cast<int>(s.map.size()) / entryBytes : 0;
  std::vector<uint8_t> b = {static_cast<uint8_t>(s.id.size()),
                            static_cast<uint8_t>(s.mapBits ? 1 : 0),
                            static_cast<uint8_t>(s.type),
                            static_cast<uint8_t>(s.mapFirst),
                            static_cast<uint8_t>(s.mapFirst >> 8),
                            static_cast<uint8_t>(mapLength),
                            static_cast<uint8_t>(mapLength >> 8),
                            static_cast<uint8_t>(s.mapBits),
                            0,
                            0,
                            0,
                            0,
                            static_cast<uint8_t>(s.width),
                            static_cast<uint8_t>(s.width >> 8),
                            static_cast<uint8_t>(s.height),
                            static_cast<uint8_t>(s.height >> 8),
                            static_cast<uint8_t>(s.depth),
                            static_cast<uint8_t>(s.descriptor)};
  b.insert(b.end(), s.id.begin(), s.id.end());
  b.insert(b.end(), s.map.begin(), s.map.end());
  b.insert(b.end(), data.begin(), data.end());
  return b;
}

// Image type (the plain one, plus 8 when run-length coded), depth, and the
// descriptor: bottom-up rows, eight alpha bits for 32-bit pixels.
void tgaHeader(const std::vector<uint8_t>& file, const checks::RoundTripCase& c, int rle) {
  ASSERT_GT(file.size(), 18u);
  EXPECT_EQ(file[2], c.fileKind + 8 * rle);
  EXPECT_EQ(file[16], c.fileDepth);
  EXPECT_EQ(file[17], c.fileDepth == 32 ? 8 : 0);
}

checks::RoundTripCase tga(uint16_t kind, int levels, uint16_t loaded, int fileType, int depth) {
  return {.format = "tga",
          .kind = kind,
          .levels = levels,
          .loaded = loaded,
          .options = {0, 1},
          .colours = kind == IMK_MAPPED ? levels : -1,
          .sameNumbers = kind == IMK_MAPPED,
          .header = tgaHeader,
          .fileKind = fileType,
          .fileDepth = depth};
}

INSTANTIATE_TEST_SUITE_P(
    Tga, RoundTrip,
    testing::Values(tga(IMK_BINARY, 2, IMK_GREY, 3, 8), tga(IMK_GREY, 256, IMK_GREY, 3, 8),
                    tga(IMK_GREY, 16, IMK_GREY, 3, 8), tga(IMK_MAPPED, 200, IMK_MAPPED, 1, 8),
                    tga(IMK_MAPPED, 12, IMK_MAPPED, 1, 8), tga(IMK_RGB, 256, IMK_RGB, 2, 24),
                    tga(IMK_BGR, 256, IMK_RGB, 2, 24), tga(IMK_XBGR, 256, IMK_RGB, 2, 24),
                    tga(IMK_RGBX, 256, IMK_RGBX, 2, 32)),
    checks::caseName<checks::RoundTripCase>);

// Files of other writers decode as ImageMagick decodes them.
INSTANTIATE_TEST_SUITE_P(
    Tga, ToolWrites,
    testing::Values(
        checks::ToolWriteCase{"tga", "convert {dir}/rgb.ppm -compress None {out}"},
        checks::ToolWriteCase{"tga", "convert {dir}/rgb.ppm -compress RLE {out}"},
        checks::ToolWriteCase{"tga", "convert {dir}/pal.ppm -type Palette -compress None {out}"},
        checks::ToolWriteCase{"tga", "convert {dir}/pal.ppm -type Palette -compress RLE {out}"},
        checks::ToolWriteCase{"tga", "convert {dir}/grey.pgm -compress None {out}"},
        checks::ToolWriteCase{"tga", "convert {dir}/grey.pgm -compress RLE {out}"},
        checks::ToolWriteCase{"tga", "convert {dir}/rgba.png -compress None {out}"},
        checks::ToolWriteCase{"tga", "convert {dir}/rgba.png -compress RLE {out}"},
        checks::ToolWriteCase{"tga", "ppmtotga -rgb -norle {dir}/rgb.ppm > {out}"},
        checks::ToolWriteCase{"tga", "ppmtotga -rgb {dir}/rgb.ppm > {out}"},
        checks::ToolWriteCase{"tga", "ppmtotga -cmap {dir}/pal.ppm > {out}"},
        checks::ToolWriteCase{"tga", "pamtotga -mono {dir}/grey.pgm > {out}"}),
    checks::caseName<checks::ToolWriteCase>);

TEST(TgaWrite, RunLengthPacketsShrinkFlatPicturesAndEndWithTheirRow) {
  test::TempDir dir;
  OwnedPicture flat;
  test::makePattern(flat, IMK_RGB, 300, 20);
  for (int y = 0; y < 20; ++y)
    for (int x = 100; x < 300; ++x) test::storeRgb(flat, x, y, 10, 20, static_cast<uint8_t>(y));
  ASSERT_EQ(test::save(dir.file("rle.tga"), flat.rec, "tga", 0, 1), 0);
  const std::vector<uint8_t> b = test::readFile(dir.file("rle.tga"));
  EXPECT_LT(b.size(), 18u + 300 * 20 * 3 / 2);
  // Walk the packets: none may carry pixels of two rows.
  size_t at = 18;
  int pixel = 0;
  while (pixel < 300 * 20) {
    ASSERT_LT(at, b.size());
    const int n = (b[at] & 0x7F) + 1;
    const bool run = b[at] & 0x80;
    EXPECT_EQ(pixel / 300, (pixel + n - 1) / 300) << "packet at byte " << at;
    at += 1 + (run ? 3 : 3 * n);
    pixel += n;
  }
  // The version 2 footer follows.
  ASSERT_EQ(b.size(), at + 26);
  EXPECT_EQ(std::string(b.end() - 18, b.end() - 1), "TRUEVISION-XFILE.");
  OwnedPicture back;
  ASSERT_EQ(test::load(dir.file("rle.tga"), back), 0);
  EXPECT_EQ(test::toRgb(back.rec), test::toRgb(flat.rec));
}

// The gdk-pixbuf suite stores one picture in every depth, orientation and
// compression, each with the rendering it must give.
TEST(TgaRead, GdkPixbufReferenceFilesMatchTheirRenderingsExactly) {
  const std::string dir = test::corpusDir() + "/tga/gdk-pixbuf/reftests/tga/";
  std::string listing;
  ASSERT_EQ(test::run("ls " + test::quote(dir) + " | grep '\\.tga$'", &listing), 0);
  int checked = 0;
  for (size_t start = 0, end; (end = listing.find('\n', start)) != std::string::npos;
       start = end + 1) {
    const std::string name = listing.substr(start, end - start);
    SCOPED_TRACE(name);
    OwnedPicture pic;
    ASSERT_EQ(test::load(dir + name, pic), 0);
    std::vector<uint8_t> ref;
    ASSERT_TRUE(test::magickRgba(dir + name + ".ref.png", pic->width, pic->height, &ref));
    EXPECT_EQ(test::rgbaOf(pic.rec), ref);
    ++checked;
  }
  EXPECT_EQ(checked, 44);
}

// ---------------------------------------------------------------------------
// Hand-made files.

TEST(TgaRead, OrientationBitsPlaceTheStoredRows) {
  test::TempDir dir;
  struct Case {
    int descriptor;
    std::vector<uint8_t> shown;  // top row first
  } cases[] = {
      {0x00, {3, 4, 1, 2}},  // bottom-left: the first stored row is the bottom one
      {0x10, {4, 3, 2, 1}},  // bottom-right
      {0x20, {1, 2, 3, 4}},  // top-left
      {0x30, {2, 1, 4, 3}},  // top-right
  };
  for (const Case& c : cases) {
    for (int rle = 0; rle <= 1; ++rle) {
      SCOPED_TRACE(c.descriptor + 100 * rle);
      TgaSpec s;
      s.type = 3 + 8 * rle, s.width = 2, s.height = 2, s.depth = 8, s.descriptor = c.descriptor;
      const std::vector<uint8_t> data =
          rle ? std::vector<uint8_t>{0x03, 1, 2, 3, 4} : std::vector<uint8_t>{1, 2, 3, 4};
      test::writeFile(dir.file("o.tga"), makeTga(s, data));
      OwnedPicture pic;
      ASSERT_EQ(test::load(dir.file("o.tga"), pic), 0);
      EXPECT_EQ(test::pixelsOf(pic.rec), c.shown);
    }
  }
}

TEST(TgaRead, AlphaIsKeptOnlyWhenDeclaredAndNotBlank) {
  test::TempDir dir;
  struct Case {
    const char* name;
    int type, depth, descriptor;
    std::vector<uint8_t> data;  // two pixels
    uint16_t kind;
    std::vector<uint8_t> rgba;
  } cases[] = {
      // clang-format off
      {"32 declared",      2, 32, 0x28, {1, 2, 3, 0, 4, 5, 6, 128}, IMK_RGBX, {3, 2, 1, 0, 6, 5, 4, 128}},
      {"32 blank",         2, 32, 0x28, {1, 2, 3, 0, 4, 5, 6, 0},   IMK_RGB,  {3, 2, 1, 255, 6, 5, 4, 255}},
      {"32 undeclared",    2, 32, 0x20, {1, 2, 3, 9, 4, 5, 6, 128}, IMK_RGB,  {3, 2, 1, 255, 6, 5, 4, 255}},
      // 16-bit: the top bit; 0x801F is opaque blue, 0x7C00 transparent red.
      {"16 declared",      2, 16, 0x21, {0x1F, 0x80, 0x00, 0x7C},   IMK_RGBX, {0, 0, 255, 255, 255, 0, 0, 0}},
      {"16 undeclared",    2, 16, 0x20, {0x1F, 0x80, 0x00, 0x7C},   IMK_RGB,  {0, 0, 255, 255, 255, 0, 0, 255}},
      {"grey alpha",       3, 16, 0x28, {50, 255, 60, 7},           IMK_RGBX, {50, 50, 50, 255, 60, 60, 60, 7}},
      {"grey blank alpha", 3, 16, 0x28, {50, 0, 60, 0},             IMK_GREY, {50, 50, 50, 255, 60, 60, 60, 255}},
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TgaSpec s;
    s.type = c.type, s.width = 2, s.depth = c.depth, s.descriptor = c.descriptor;
    test::writeFile(dir.file("a.tga"), makeTga(s, c.data));
    OwnedPicture pic;
    ASSERT_EQ(test::load(dir.file("a.tga"), pic), 0);
    EXPECT_EQ(pic->type, c.kind);
    EXPECT_EQ(test::rgbaOf(pic.rec), c.rgba);
  }
}

TEST(TgaRead, FiveBitChannelsSpreadOverTheFullRange) {
  test::TempDir dir;
  TgaSpec s;
  s.width = 6, s.depth = 15, s.descriptor = 0x20;
  // White, red, green, blue, 16/31 of each, black (little-endian words).
  test::writeFile(dir.file("c.tga"), makeTga(s, {0xFF, 0x7F, 0x00, 0x7C, 0xE0, 0x03, 0x1F, 0x00,
                                                 0x10, 0x42, 0x00, 0x00}));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("c.tga"), pic), 0);
  EXPECT_EQ(test::toRgb(pic.rec), (std::vector<uint8_t>{255, 255, 255, 255, 0, 0, 0, 255, 0, 0, 0,
                                                        255, 132, 132, 132, 0, 0, 0}));
}

TEST(TgaRead, ColourMapsMayStartPastZeroAndIndicesPastTheMapAreDamage) {
  test::TempDir dir;
  TgaSpec s;
  s.type = 1, s.width = 3, s.depth = 8, s.descriptor = 0x20;
  s.mapFirst = 2, s.mapBits = 24;
  s.map = {30, 20, 10, 0, 0, 255, 0, 255, 0};  // B,G,R of entries 2, 3, 4
  test::writeFile(dir.file("m.tga"), makeTga(s, {2, 3, 4}));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("m.tga"), pic), 0);
  ASSERT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(pic->colorCount, 5);
  EXPECT_EQ(test::toRgb(pic.rec), (std::vector<uint8_t>{10, 20, 30, 255, 0, 0, 0, 255, 0}));
  // 16-bit entries: 0x7C00 red, 0x001F blue.
  s.mapFirst = 0, s.mapBits = 16, s.map = {0x00, 0x7C, 0x1F, 0x00};
  test::writeFile(dir.file("m16.tga"), makeTga(s, {1, 0, 1}));
  ASSERT_EQ(test::load(dir.file("m16.tga"), pic), 0);
  EXPECT_EQ(test::toRgb(pic.rec), (std::vector<uint8_t>{0, 0, 255, 255, 0, 0, 0, 0, 255}));
  // Index 5 has no entry.
  test::writeFile(dir.file("bad.tga"), makeTga(s, {0, 1, 5}));
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("bad.tga"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_STREQ(info.errorText, "palette index out of range");
  EXPECT_EQ(pic->pixels, nullptr);
  ASSERT_EQ(test::load(dir.file("bad.tga"), pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(pic->colorCount, 6);
  EXPECT_EQ(test::toRgb(pic.rec), (std::vector<uint8_t>{255, 0, 0, 0, 0, 255, 0, 0, 0}));
}

TEST(TgaRead, PacketsMayCrossRowsSurplusPixelsAreIgnoredAndTheIdIsSkipped) {
  test::TempDir dir;
  TgaSpec s;
  s.type = 11, s.width = 2, s.height = 2, s.depth = 8, s.descriptor = 0x20;
  s.id = {'h', 'e', 'l', 'l', 'o'};
  // A run of three 7s crossing into the second row, then a raw 9.
  test::writeFile(dir.file("x.tga"), makeTga(s, {0x82, 7, 0x00, 9}));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("x.tga"), pic), 0);
  EXPECT_EQ(test::pixelsOf(pic.rec), (std::vector<uint8_t>{7, 7, 7, 9}));
  // One packet of 128 pixels for a picture of 4.
  test::writeFile(dir.file("long.tga"), makeTga(s, {0xFF, 5}));
  ASSERT_EQ(test::load(dir.file("long.tga"), pic), 0);
  EXPECT_EQ(test::pixelsOf(pic.rec), (std::vector<uint8_t>{5, 5, 5, 5}));
  // A raw packet of four with two bytes left.
  test::writeFile(dir.file("cut.tga"), makeTga(s, {0x03, 1, 2}));
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("cut.tga"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  ASSERT_EQ(test::load(dir.file("cut.tga"), pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(test::pixelsOf(pic.rec), (std::vector<uint8_t>{1, 2, 0, 0}));
}

TEST(TgaRead, HostileHeadersAreRefusedBeforeAllocating) {
  TgaSpec huge;
  huge.width = 65535, huge.height = 65535, huge.depth = 32;
  TgaSpec shortMap;
  shortMap.type = 1, shortMap.depth = 8, shortMap.mapBits = 24, shortMap.map = {1, 2, 3};
  std::vector<uint8_t> cut = makeTga(shortMap, {0});
  cut[5] = 200;  // 200 entries declared, one present
  TgaSpec noMap;
  noMap.type = 1, noMap.depth = 8;
  TgaSpec wideIndex = shortMap;
  wideIndex.depth = 16;
  TgaSpec empty;
  empty.width = 0;
  test::expectRefused(
      {
          {"huge", makeTga(huge, std::vector<uint8_t>(10, 1)), IMK_ERR_CORRUPT},
          {"short map", cut, IMK_ERR_BAD_FILE},
          // Not recognised as Targa at all.
          {"no map", makeTga(noMap, {0}), IMK_ERR_UNKNOWN_FORMAT},
          {"16-bit index", makeTga(wideIndex, {0, 0}), IMK_ERR_UNKNOWN_FORMAT},
          {"zero width", makeTga(empty, {0}), IMK_ERR_UNKNOWN_FORMAT},
      },
      0, 0, false);
}

TEST(TgaRead, AnUnusedMapOrAttributeBitsLeaveTheSamePicture) {
  // image-rs stores one 4x4 picture as 16-bit colour with and without
  // attribute bits, with an unused map, and as indices into a 15-bit map.
  const std::string dir = test::corpusDir() + "/tga/image-rs/";
  OwnedPicture plain;
  ASSERT_EQ(test::load(dir + "b5-noattrib.tga", plain), 0);
  for (const char* name : {"b5-unused-cmap.tga", "b5-cmap.tga", "b5-attrib.tga"}) {
    SCOPED_TRACE(name);
    OwnedPicture pic;
    ASSERT_EQ(test::load(dir + name, pic), 0);
    EXPECT_EQ(test::toRgb(pic.rec), test::toRgb(plain.rec));
  }
}

}  // namespace
