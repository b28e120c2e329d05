// SGI: round trips of every kind verbatim and run-length coded, files checked
// against ImageMagick and netpbm in both directions, 16-bit samples, grey with
// alpha, run-length rows that overrun or end early, bad offset tables and
// hostile headers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

namespace {

using test::OwnedPicture;

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

// Storage (1: run-length), one byte a sample, the channels stored; verbatim
// files hold exactly the header and the samples.
void sgiHeader(const std::vector<uint8_t>& file, const checks::RoundTripCase& c, int rle) {
  ASSERT_GT(file.size(), 512u);
  EXPECT_EQ(file[2], rle);
  EXPECT_EQ(file[3], 1);
  EXPECT_EQ(file[11], c.fileKind);
  if (!rle) {
    EXPECT_EQ(file.size(), 512u + static_cast<size_t>(c.width * c.height * c.fileKind));
  }
}

checks::RoundTripCase sgi(uint16_t kind, int levels, uint16_t loaded, int channels) {
  return {.format = "sgi",
          .kind = kind,
          .levels = levels,
          .loaded = loaded,
          .options = {0, 1},
          // netpbm leaves alpha aside.
          .toolReads = {"sgitopnm {file}"},
          .header = sgiHeader,
          .fileKind = channels};
}

INSTANTIATE_TEST_SUITE_P(
    Sgi, RoundTrip,
    testing::Values(sgi(IMK_BINARY, 2, IMK_GREY, 1), sgi(IMK_GREY, 256, IMK_GREY, 1),
                    sgi(IMK_GREY, 16, IMK_GREY, 1), sgi(IMK_MAPPED, 200, IMK_RGB, 3),
                    sgi(IMK_RGB, 256, IMK_RGB, 3), sgi(IMK_BGR, 256, IMK_RGB, 3),
                    sgi(IMK_XBGR, 256, IMK_RGB, 3), sgi(IMK_RGBX, 256, IMK_RGBX, 4)),
    checks::caseName<checks::RoundTripCase>);

// Files of other writers decode as ImageMagick decodes them.
INSTANTIATE_TEST_SUITE_P(
    Sgi, ToolWrites,
    testing::Values(
        checks::ToolWriteCase{"sgi", "convert {dir}/rgb.ppm -compress None {out}"},
        checks::ToolWriteCase{"sgi", "convert {dir}/rgb.ppm -compress RLE {out}"},
        checks::ToolWriteCase{"sgi", "convert {dir}/rgb.ppm -depth 16 -compress None {out}"},
        checks::ToolWriteCase{"sgi", "convert {dir}/rgb.ppm -depth 16 -compress RLE {out}"},
        checks::ToolWriteCase{"sgi", "convert {dir}/grey.pgm -compress RLE {out}"},
        checks::ToolWriteCase{"sgi", "convert {dir}/rgba.png -compress None {out}"},
        checks::ToolWriteCase{"sgi", "convert {dir}/rgba.png -compress RLE {out}"},
        checks::ToolWriteCase{"sgi", "pnmtosgi -verbatim {dir}/rgb.ppm > {out}"},
        checks::ToolWriteCase{"sgi", "pnmtosgi -rle {dir}/rgb.ppm > {out}"},
        checks::ToolWriteCase{"sgi", "pnmtosgi -rle {dir}/grey.pgm > {out}"}),
    checks::caseName<checks::ToolWriteCase>);

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
    spans.emplace_back(test::be(b, 512 + 4 * i), test::be(b, 512 + 4 * (entries + i)));
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
  std::vector<uint8_t> headerCut = makeSgi(0, 1, 2, 2, 2, 1, {});
  headerCut.resize(300);
  test::expectRefused(
      {
          {"huge verbatim", makeSgi(0, 1, 3, 65535, 65535, 4, {1, 2, 3}), IMK_ERR_CORRUPT},
          {"huge run-length", makeSgi(1, 1, 3, 65535, 65535, 4, {1, 2, 3}), IMK_ERR_BAD_FILE},
          {"colour map file", makeSgi(0, 1, 2, 2, 2, 1, {1, 2, 3, 4}, 3), IMK_ERR_BAD_FILE},
          {"zero width", makeSgi(0, 1, 2, 0, 2, 1, {1, 2, 3, 4}), IMK_ERR_BAD_FILE},
          {"header cut", headerCut, IMK_ERR_BAD_FILE},
          // Not recognised as SGI at all.
          {"dimension 4", makeSgi(0, 1, 4, 2, 2, 1, {1, 2, 3, 4}), IMK_ERR_UNKNOWN_FORMAT},
          {"3 bytes a sample", makeSgi(0, 3, 2, 2, 2, 1, {1, 2, 3, 4}), IMK_ERR_UNKNOWN_FORMAT},
      },
      0, 0, false);
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

}  // namespace
