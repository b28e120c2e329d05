// XBM: hand-written bitmaps in both forms, round trips, cross-checks with
// ImageMagick in both directions and refusal of broken text.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

namespace {

using test::OwnedPicture;

// Binary pixels as a string of '#' (black, 0) and '.' (white, 1) per row.
std::string rowsOf(const OwnedPicture& pic) {
  std::string s;
  for (int y = 0; y < pic->height; ++y) {
    for (int x = 0; x < pic->width; ++x) s += pic.row(y)[x] ? '.' : '#';
    s += '\n';
  }
  return s;
}

// 10 x 2: row 0 has pixels 0 and 9 black, row 1 pixels 1..8 black. A set bit
// is black and bits run from the least significant, so row 0 is the bytes
// 0x01 (pixel 0), 0x02 (pixel 9 = bit 1 of the second byte) and row 1 is
// 0xFE, 0x01; as 16-bit words 0x0201 and 0x01FE.
const char kExpected[] = "#........#\n.########.\n";

TEST(XbmRead, X11AndX10FormsWithCommentsAndHotSpotGiveTheSamePixels) {
  test::TempDir dir;
  test::writeText(dir.file("x11.xbm"),
                  "/* a comment before */\n#define arrow_width 10\n#define arrow_height   2\n"
                  "#define arrow_x_hot 1\n#define arrow_y_hot 0\n"
                  "static unsigned char arrow_bits[] = {\n  0x01, 0x02, // row 0\n 0xfe,0x01 };\n");
  test::writeText(dir.file("x10.xbm"),
                  "#define old_width 10\n#define old_height 2\nstatic short old_bits[] = {\n"
                  "   0x0201,\n/* second row */ 0x01FE};\n");
  for (const char* name : {"x11.xbm", "x10.xbm"}) {
    SCOPED_TRACE(name);
    OwnedPicture pic;
    FileInfo info;
    ASSERT_EQ(test::load(dir.file(name), pic, 0, 0, &info), 0) << info.errorText;
    EXPECT_EQ(info.formatIndex, imkGetIndex("xbm"));
    EXPECT_EQ(pic->type, IMK_BINARY);
    EXPECT_EQ(rowsOf(pic), kExpected);
    EXPECT_EQ(info.planes * info.bitsPerPlane, 1);
  }
}

// Binary pictures of any width read back exactly, also by ImageMagick.
checks::RoundTripCase xbm(int width) {
  return {.format = "xbm",
          .kind = IMK_BINARY,
          .levels = 2,
          .loaded = IMK_BINARY,
          .sameNumbers = true,
          .width = width,
          .height = 11};
}

INSTANTIATE_TEST_SUITE_P(Xbm, RoundTrip,
                         testing::Values(xbm(1), xbm(7), xbm(8), xbm(9), xbm(16), xbm(37), xbm(45)),
                         checks::caseName<checks::RoundTripCase>);

// ImageMagick writes the XBM of a PBM.
INSTANTIATE_TEST_SUITE_P(Xbm, ToolWrites,
                         testing::Values(checks::ToolWriteCase{
                             "xbm", "/usr/bin/convert {dir}/bin.pbm xbm:{out}", "bin"}),
                         checks::caseName<checks::ToolWriteCase>);

TEST(XbmWrite, OutputIsX11SourceAndOnlyBinaryPicturesAreAccepted) {
  test::TempDir dir;
  OwnedPicture pic;
  ASSERT_NE(imkAllock(&pic.rec, IMK_BINARY, 8, 10, 2), 0);
  const char* rows[] = {"#........#", ".########."};
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 10; ++x) pic.row(y)[x] = rows[y][x] == '.';
  ASSERT_EQ(test::save(dir.file("a.xbm"), pic.rec, "xbm"), 0);
  const std::vector<uint8_t> bytes = test::readFile(dir.file("a.xbm"));
  const std::string text(bytes.begin(), bytes.end());
  EXPECT_EQ(text,
            "#define image_width 10\n#define image_height 2\n"
            "static unsigned char image_bits[] = {\n  0x01, 0x02, 0xfe, 0x01 };\n");

  for (uint16_t kind : {IMK_GREY, IMK_MAPPED, IMK_RGB}) {
    OwnedPicture other;
    test::makePattern(other, kind, 4, 4, 2);
    EXPECT_EQ(test::save(dir.file("b.xbm"), other.rec, "xbm"), IMK_ERR_CANNOT_SAVE) << kind;
  }
  EXPECT_FALSE(test::fileExists(dir.file("b.xbm")));
}

TEST(XbmRead, CorpusX10AndX11FilesOfTheSamePictureAgree) {
  const std::string dir = test::corpusDir() + "/xbm/generated/";
  OwnedPicture x10, x11;
  ASSERT_EQ(test::load(dir + "np_x10.xbm", x10), 0);
  ASSERT_EQ(test::load(dir + "np_x11.xbm", x11), 0);
  EXPECT_EQ(rowsOf(x10), rowsOf(x11));
}

TEST(XbmRead, BrokenTextIsRefusedAndTruncationKeepsTheRowsRead) {
  test::TempDir dir;
  struct Case {
    const char* name;
    const char* text;
    int code;
  } cases[] = {
      {"noheight", "#define a_width 8\nstatic char a_bits[] = {0x01};\n", IMK_ERR_BAD_FILE},
      {"zero", "#define a_width 0\n#define a_height 1\nstatic char a_bits[] = {0};\n",
       IMK_ERR_BAD_FILE},
      {"nodata", "#define a_width 8\n#define a_height 1\n", IMK_ERR_BAD_FILE},
      {"badvalue", "#define a_width 8\n#define a_height 2\nstatic char a_bits[] = {0x01, 0xZZ};\n",
       IMK_ERR_CORRUPT},
      // A header asking for a huge bitmap that the text cannot hold fails
      // before anything is allocated.
      {"huge",
       "#define a_width 1000000\n#define a_height 1000000\nstatic char a_bits[] = {0x01};\n",
       IMK_ERR_CORRUPT},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    test::writeText(dir.file(c.name), c.text);
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(test::load(dir.file(c.name), pic, 0, 0, &info), c.code);
    EXPECT_NE(info.errorText[0], '\0');
    EXPECT_EQ(pic->pixels, nullptr);
  }
  // Ignoring errors does not make one value worth a huge bitmap.
  OwnedPicture pic;
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("huge"), pic, 0, IMK_FLAG_IGNORE_ERRORS, &info), IMK_ERR_BAD_FILE);
  EXPECT_STREQ(info.errorText, "too little data for the picture");

  // Three rows declared, one and a half present: row 0 decoded, the rest
  // white.
  test::writeText(
      dir.file("cut.xbm"),
      "#define c_width 10\n#define c_height 3\nstatic char c_bits[] = {\n0x01, 0x02, 0xfe");
  EXPECT_EQ(test::load(dir.file("cut.xbm"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_STREQ(info.errorText, "truncated");
  ASSERT_EQ(test::load(dir.file("cut.xbm"), pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(rowsOf(pic), "#........#\n.#######..\n..........\n");
}

}  // namespace
