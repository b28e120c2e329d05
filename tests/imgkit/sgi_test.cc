// SGI: round trips of every kind verbatim and run-length coded, files checked
// against ImageMagick and netpbm in both directions, 16-bit samples, grey with
// alpha, run-length rows that overrun or end early, bad offset tables and
// hostile headers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;

uint32_t be32(const std::vector<uint8_t>& b, size_t at) {
  return static_cast<uint32_t>(b[at]) << 24 | b[at + 1] << 16 | b[at + 2] << 8 | b[at + 3];
}

// A 512-byte SGI header followed by `data`.
std::vector<uint8_t> makeSgi(int storage, int bpc, int dimension, int width, int height,
                             int channels, const std::vector<uint8_t>& data, int colormap = 0) {
  std::vector<uint8_t> b(512, 0);
  auto u16 = [&](size_t at, int v) { b[at] = (v >> 8) & 255, b[at + 1] = v & 255; };
  u16(0, 474);
  b[2] = static_cast<uint8_t>(storage), b[3] = static_cast<uint8_t>(bpc);
  u16(4, dimension);
  u16(6, width);
  u16(8, height);
  u16(10, channels);
  b[19] = 255;  // pixmax
  b[107] = static_cast<uint8_t>(colormap);
  b.insert(b.end(), data.begin(), data.end());
  return b;
}

// A run-length file of one channel: rows given bottom-up as code bytes; the
// tables are filled in.
std::vector<uint8_t> makeRleSgi(int width, const std::vector<std::vector<uint8_t>>& rows) {
  const int height = static_cast<int>(rows.size());
  std::vector<uint8_t> tables(static_cast<size_t>(height) * 8), codes;
  uint32_t offset = 512 + static_cast<uint32_t>(tables.size());
  for (int r = 0; r < height; ++r) {
    const uint32_t length = static_cast<uint32_t>(rows[r].size());
    for (int i = 0; i < 4; ++i) {
      tables[r * 4 + i] = static_cast<uint8_t>(offset >> (24 - 8 * i));
      tables[(height + r) * 4 + i] = static_cast<uint8_t>(length >> (24 - 8 * i));
    }
    codes.insert(codes.end(), rows[r].begin(), rows[r].end());
    offset += length;
  }
  tables.insert(tables.end(), codes.begin(), codes.end());
  return makeSgi(1, 1, 2, width, height, 1, tables);
}

// R,G,B,A of every pixel (A = 255 unless the kind carries alpha).
std::vector<uint8_t> rgbaOf(const ImageRecord& pic) {
  const std::vector<uint8_t> rgb = test::toRgb(pic);
  std::vector<uint8_t> out;
  for (int y = 0; y < pic.height; ++y)
    for (int x = 0; x < pic.width; ++x) {
      const size_t i = (static_cast<size_t>(y) * pic.width + x) * 3;
      out.insert(out.end(), {rgb[i], rgb[i + 1], rgb[i + 2]});
      out.push_back(pic.type == IMK_RGBX
                        ? pic.pixels[static_cast<size_t>(y) * pic.bytesPerLine + x * 4 + 3]
                        : 255);
    }
  return out;
}

std::vector<uint8_t> magickRgba(const std::string& path) {
  std::string out;
  if (test::run("/usr/bin/convert " + test::quote(path) + " -depth 8 rgba:- 2>/dev/null", &out) !=
      0)
    return {};
  return std::vector<uint8_t>(out.begin(), out.end());
}

struct KindCase {
  const char* name;
  uint16_t type;
  int levels;
  uint16_t loaded;  // the kind read back
  int channels;     // as stored
};

const KindCase kKinds[] = {
    {"binary", IMK_BINARY, 2, IMK_GREY, 1}, {"grey256", IMK_GREY, 256, IMK_GREY, 1},
    {"grey16", IMK_GREY, 16, IMK_GREY, 1},  {"mapped200", IMK_MAPPED, 200, IMK_RGB, 3},
    {"rgb", IMK_RGB, 256, IMK_RGB, 3},      {"bgr", IMK_BGR, 256, IMK_RGB, 3},
    {"xbgr", IMK_XBGR, 256, IMK_RGB, 3},    {"rgbx", IMK_RGBX, 256, IMK_RGBX, 4},
};

TEST(SgiRoundTrip, EveryKindReadsBackWithTheSamePixelsVerbatimOrRunLength) {
  test::TempDir dir;
  for (const KindCase& c : kKinds)
    for (int rle = 0; rle <= 1; ++rle) {
      SCOPED_TRACE(std::string(c.name) + (rle ? " rle" : " verbatim"));
      OwnedPicture src, back;
      test::makePattern(src, c.type, 37, 23, c.levels);
      const std::string path = dir.file("x.sgi");
      ASSERT_EQ(test::save(path, src.rec, "sgi", 0, rle), 0);
      const std::vector<uint8_t> bytes = test::readFile(path);
      ASSERT_GT(bytes.size(), 512u);
      EXPECT_EQ(bytes[2], rle);
      EXPECT_EQ(bytes[3], 1);
      EXPECT_EQ(bytes[11], c.channels);
      if (!rle) {
        EXPECT_EQ(bytes.size(), 512u + 37 * 23 * c.channels);
      }
      ASSERT_EQ(test::load(path, back), 0);
      EXPECT_EQ(back->type, c.loaded);
      ASSERT_EQ(back->width, 37);
      ASSERT_EQ(back->height, 23);
      EXPECT_EQ(rgbaOf(back.rec), rgbaOf(src.rec));
    }
}

TEST(SgiWrite, RunLengthTablesPointInsideTheFileAtRowsThatDoNotOverlap) {
  test::TempDir dir;
  OwnedPicture flat;
  test::makePattern(flat, IMK_RGB, 300, 20);
  for (int y = 0; y < 20; ++y)
    for (int x = 50; x < 300; ++x) test::storeRgb(flat, x, y, 1, 2, static_cast<uint8_t>(y));
  ASSERT_EQ(test::save(dir.file("rle.sgi"), flat.rec, "sgi", 0, 1), 0);
  const std::vector<uint8_t> b = test::readFile(dir.file("rle.sgi"));
  EXPECT_LT(b.size(), 512u + 300 * 20 * 3 / 2);
  const size_t entries = 20 * 3;
  std::vector<std::pair<uint32_t, uint32_t>> spans;
  for (size_t i = 0; i < entries; ++i)
    spans.emplace_back(be32(b, 512 + 4 * i), be32(b, 512 + 4 * (entries + i)));
  std::sort(spans.begin(), spans.end());
  EXPECT_EQ(spans.front().first, 512 + entries * 8);
  for (size_t i = 0; i < entries; ++i) {
    EXPECT_EQ(b[spans[i].first + spans[i].second - 1], 0) << "row codes end with a zero code";
    const uint64_t next = i + 1 < entries ? spans[i + 1].first : b.size();
    EXPECT_EQ(spans[i].first + spans[i].second, next);
  }
  OwnedPicture back;
  ASSERT_EQ(test::load(dir.file("rle.sgi"), back), 0);
  EXPECT_EQ(test::toRgb(back.rec), test::toRgb(flat.rec));
}

// ---------------------------------------------------------------------------
// Independent tools.

TEST(SgiCrossCheck, ImageMagickAndNetpbmReadOurFiles) {
  test::TempDir dir;
  for (const KindCase& c : kKinds)
    for (int rle = 0; rle <= 1; ++rle) {
      SCOPED_TRACE(std::string(c.name) + (rle ? " rle" : " verbatim"));
      OwnedPicture src;
      test::makePattern(src, c.type, 41, 17, c.levels);
      const std::string path = dir.file("x.sgi");
      ASSERT_EQ(test::save(path, src.rec, "sgi", 0, rle), 0);
      EXPECT_EQ(magickRgba(path), rgbaOf(src.rec));
      if (c.type == IMK_RGBX) continue;  // netpbm leaves alpha aside
      std::string out;
      int w, h;
      std::vector<uint8_t> rgb;
      ASSERT_EQ(test::run("sgitopnm " + test::quote(path) + " 2>/dev/null", &out), 0);
      ASSERT_TRUE(test::parseNetpbm(out, &w, &h, &rgb));
      EXPECT_EQ(rgb, test::toRgb(src.rec));
    }
}

TEST(SgiCrossCheck, FilesWrittenByImageMagickAndNetpbmDecodeAsTheyDo) {
  test::TempDir dir;
  OwnedPicture rgb, grey, rgba;
  test::makePattern(rgb, IMK_RGB, 45, 31);
  test::makePattern(grey, IMK_GREY, 45, 31);
  test::makePattern(rgba, IMK_RGBX, 45, 31);
  ASSERT_EQ(test::save(dir.file("rgb.ppm"), rgb.rec, "ppm"), 0);
  ASSERT_EQ(test::save(dir.file("grey.pgm"), grey.rec, "pgm"), 0);
  ASSERT_EQ(test::save(dir.file("rgba.png"), rgba.rec, "png"), 0);
  const char* commands[] = {
      "convert {dir}/rgb.ppm -compress None {dir}/out.sgi",
      "convert {dir}/rgb.ppm -compress RLE {dir}/out.sgi",
      "convert {dir}/rgb.ppm -depth 16 -compress None {dir}/out.sgi",
      "convert {dir}/rgb.ppm -depth 16 -compress RLE {dir}/out.sgi",
      "convert {dir}/grey.pgm -compress RLE {dir}/out.sgi",
      "convert {dir}/rgba.png -compress None {dir}/out.sgi",
      "convert {dir}/rgba.png -compress RLE {dir}/out.sgi",
      "pnmtosgi -verbatim {dir}/rgb.ppm > {dir}/out.sgi",
      "pnmtosgi -rle {dir}/rgb.ppm > {dir}/out.sgi",
      "pnmtosgi -rle {dir}/grey.pgm > {dir}/out.sgi",
  };
  for (const char* command : commands) {
    SCOPED_TRACE(command);
    std::string cmd = command;
    for (size_t at; (at = cmd.find("{dir}")) != std::string::npos;) cmd.replace(at, 5, dir.path());
    ASSERT_EQ(test::run(cmd + " 2>/dev/null"), 0);
    OwnedPicture pic;
    ASSERT_EQ(test::load(dir.file("out.sgi"), pic), 0);
    EXPECT_EQ(rgbaOf(pic.rec), magickRgba(dir.file("out.sgi")));
  }
}

// ---------------------------------------------------------------------------
// Hand-made files.

TEST(SgiRead, SixteenBitSamplesRoundToTheNearestEightBitValue) {
  test::TempDir dir;
  // 65535 -> 255, 0x8080 = 128 * 257 -> 128, 0x7F7F -> 127, and 128 / 257
  // lies just below one half, 129 / 257 just above.
  const std::vector<uint8_t> data = {0x00, 0x00, 0xFF, 0xFF, 0x80, 0x80,
                                     0x7F, 0x7F, 0x00, 0x80, 0x00, 0x81};
  test::writeFile(dir.file("16.sgi"), makeSgi(0, 2, 2, 6, 1, 1, data));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("16.sgi"), pic), 0);
  ASSERT_EQ(pic->type, IMK_GREY);
  EXPECT_EQ(test::pixelsOf(pic.rec), (std::vector<uint8_t>{0, 255, 128, 127, 0, 1}));
}

TEST(SgiRead, GreyWithAlphaAndChannelsPastTheFourth) {
  test::TempDir dir;
  // Two pixels; channel planes one after the other.
  test::writeFile(dir.file("la.sgi"), makeSgi(0, 1, 3, 2, 1, 2, {10, 200, 255, 0}));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("la.sgi"), pic), 0);
  ASSERT_EQ(pic->type, IMK_RGBX);
  EXPECT_EQ(test::pixelsOf(pic.rec), (std::vector<uint8_t>{10, 10, 10, 255, 200, 200, 200, 0}));
  test::writeFile(dir.file("5.sgi"), makeSgi(0, 1, 3, 2, 1, 5, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  ASSERT_EQ(test::load(dir.file("5.sgi"), pic), 0);
  ASSERT_EQ(pic->type, IMK_RGBX);
  EXPECT_EQ(test::pixelsOf(pic.rec), (std::vector<uint8_t>{1, 3, 5, 7, 2, 4, 6, 8}));
}

TEST(SgiRead, RowsAreStoredBottomUpAndRunLengthCodesStayInTheirRow) {
  test::TempDir dir;
  // Bottom row: a run of three 9s; top row: literal 1 2 3 without an end code.
  test::writeFile(dir.file("ok.sgi"), makeRleSgi(3, {{0x03, 9, 0}, {0x83, 1, 2, 3}}));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("ok.sgi"), pic), 0);
  EXPECT_EQ(test::pixelsOf(pic.rec), (std::vector<uint8_t>{1, 2, 3, 9, 9, 9}));
  struct Bad {
    const char* name;
    std::vector<uint8_t> codes;
  } bad[] = {
      {"run past the row", {0x04, 9, 0}},
      {"literal past the row", {0x84, 1, 2, 3, 4, 0}},
      {"row ends early", {0x02, 9, 0}},
      {"codes cut short", {0x83, 1}},
  };
  for (const Bad& b : bad) {
    SCOPED_TRACE(b.name);
    test::writeFile(dir.file("bad.sgi"), makeRleSgi(3, {b.codes, {0x03, 5, 0}}));
    FileInfo info;
    EXPECT_EQ(test::load(dir.file("bad.sgi"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
    EXPECT_STREQ(info.errorText, "bad RLE row");
    EXPECT_EQ(pic->pixels, nullptr);
    // Kept: the good top row.
    ASSERT_EQ(test::load(dir.file("bad.sgi"), pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
    EXPECT_EQ(std::vector<uint8_t>(pic.row(0), pic.row(0) + 3), (std::vector<uint8_t>{5, 5, 5}));
  }
  // A table entry pointing past the end of the file.
  std::vector<uint8_t> file = makeRleSgi(3, {{0x03, 9, 0}, {0x03, 5, 0}});
  file[512 + 4 + 2] = 0x7F;  // second row's offset
  test::writeFile(dir.file("offset.sgi"), file);
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("offset.sgi"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_STREQ(info.errorText, "bad RLE row offset");
  ASSERT_EQ(test::load(dir.file("offset.sgi"), pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(test::pixelsOf(pic.rec), (std::vector<uint8_t>{0, 0, 0, 9, 9, 9}));
}

TEST(SgiRead, HostileHeadersAreRefusedBeforeAllocating) {
  test::TempDir dir;
  std::vector<uint8_t> headerCut = makeSgi(0, 1, 2, 2, 2, 1, {});
  headerCut.resize(300);
  struct Case {
    const char* name;
    std::vector<uint8_t> file;
    int code;
  } cases[] = {
      {"huge verbatim", makeSgi(0, 1, 3, 65535, 65535, 4, {1, 2, 3}), IMK_ERR_CORRUPT},
      {"huge run-length", makeSgi(1, 1, 3, 65535, 65535, 4, {1, 2, 3}), IMK_ERR_BAD_FILE},
      {"colour map file", makeSgi(0, 1, 2, 2, 2, 1, {1, 2, 3, 4}, 3), IMK_ERR_BAD_FILE},
      {"zero width", makeSgi(0, 1, 2, 0, 2, 1, {1, 2, 3, 4}), IMK_ERR_BAD_FILE},
      {"header cut", headerCut, IMK_ERR_BAD_FILE},
      // Not recognised as SGI at all.
      {"dimension 4", makeSgi(0, 1, 4, 2, 2, 1, {1, 2, 3, 4}), IMK_ERR_UNKNOWN_FORMAT},
      {"3 bytes a sample", makeSgi(0, 3, 2, 2, 2, 1, {1, 2, 3, 4}), IMK_ERR_UNKNOWN_FORMAT},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    test::writeFile(dir.file("h.sgi"), c.file);
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(test::load(dir.file("h.sgi"), pic, 0, 0, &info), c.code) << info.errorText;
    EXPECT_EQ(pic->pixels, nullptr);
  }
}

TEST(SgiRead, TruncatedFileFailsOrKeepsTheBottomRows) {
  test::TempDir dir;
  OwnedPicture src, pic;
  test::makePattern(src, IMK_GREY, 64, 50);
  ASSERT_EQ(test::save(dir.file("x.sgi"), src.rec, "sgi", 0, 0), 0);
  std::vector<uint8_t> bytes = test::readFile(dir.file("x.sgi"));
  bytes.resize(512 + 64 * 30 + 10);  // 30 whole rows and a bit
  test::writeFile(dir.file("cut.sgi"), bytes);
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("cut.sgi"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_STREQ(info.errorText, "truncated");
  EXPECT_EQ(pic->pixels, nullptr);
  ASSERT_EQ(test::load(dir.file("cut.sgi"), pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  for (int y = 0; y < 50; ++y) {
    const bool stored = y >= 20;  // the bottom 30 rows
    EXPECT_EQ(std::memcmp(pic.row(y), src.row(y), 64) == 0, stored) << y;
  }
}

TEST(SgiInfo, HeadersGiveChannelsAndSampleBits) {
  const std::string dir = test::corpusDir() + "/sgi/generated/";
  struct Case {
    const char* file;
    int planes, bits;
  } cases[] = {{"np_gray_rle.sgi", 1, 8},
               {"gm_rgb.sgi", 3, 8},
               {"im_rgba_none.sgi", 4, 8},
               {"np_rgb16_rle.sgi", 3, 16}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    FileInfo info;
    ASSERT_EQ(imkFileInformation((dir + c.file).c_str(), -1, 0, &info), 0);
    EXPECT_EQ(info.formatIndex, imkGetIndex("sgi"));
    EXPECT_EQ(info.planes, c.planes);
    EXPECT_EQ(info.bitsPerPlane, c.bits);
  }
}

}  // namespace
