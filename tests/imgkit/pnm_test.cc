// PBM / PGM / PPM / PAM: round trips, plain versus raw, worked sample
// scaling, multi-image streams, hostile headers, and cross-checks with netpbm
// and ImageMagick in both directions.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

namespace {

using test::OwnedPicture;

const std::string kPnm = test::corpusDir() + "/pnm/";

// A string literal with embedded NUL bytes, without the terminating one.
template <size_t N>
std::string bin(const char (&s)[N]) {
  return std::string(s, N - 1);
}

std::string magicOf(const std::string& path) {
  const std::vector<uint8_t> b = test::readFile(path);
  return b.size() >= 2 ? std::string(b.begin(), b.begin() + 2) : std::string();
}

// ---------------------------------------------------------------------------

// The magic number written; plain files keep their lines within 70
// characters (the pictures are wide enough to need wrapping).
void pnmHeader(const std::vector<uint8_t>& file, const checks::RoundTripCase& c, int plain) {
  ASSERT_GT(file.size(), 2u);
  EXPECT_EQ(file[0], 'P');
  EXPECT_EQ(file[1], c.fileKind);
  size_t line = 0, longest = 0;
  for (uint8_t ch : file) longest = std::max(longest, line = ch == '\n' ? 0 : line + 1);
  if (plain) {
    EXPECT_LE(longest, 70u);
  }
}

checks::RoundTripCase pnm(const char* format, uint16_t kind, int levels, int plain, char magic,
                          uint16_t loaded) {
  return {.format = format,
          .kind = kind,
          .levels = levels,
          .loaded = loaded,
          .options = {plain},
          .colours = loaded == IMK_GREY ? levels : -1,
          // Level numbers themselves survive, not just intensities.
          .sameNumbers = loaded == IMK_GREY || loaded == IMK_BINARY,
          .toolReads = {"pamtopnm {file}"},  // alpha dropped
          .width = 83,
          .height = 9,
          .header = pnmHeader,
          .fileKind = magic};
}

INSTANTIATE_TEST_SUITE_P(
    Pnm, RoundTrip,
    testing::Values(
        pnm("pbm", IMK_BINARY, 2, 0, '4', IMK_BINARY),
        pnm("pbm", IMK_BINARY, 2, 1, '1', IMK_BINARY), pnm("pgm", IMK_BINARY, 2, 0, '5', IMK_GREY),
        pnm("pgm", IMK_GREY, 256, 0, '5', IMK_GREY), pnm("pgm", IMK_GREY, 256, 1, '2', IMK_GREY),
        pnm("pgm", IMK_GREY, 100, 0, '5', IMK_GREY), pnm("pgm", IMK_GREY, 2, 1, '2', IMK_GREY),
        pnm("ppm", IMK_BINARY, 2, 0, '6', IMK_RGB), pnm("ppm", IMK_GREY, 37, 0, '6', IMK_RGB),
        pnm("ppm", IMK_MAPPED, 150, 1, '3', IMK_RGB), pnm("ppm", IMK_RGB, 256, 0, '6', IMK_RGB),
        pnm("ppm", IMK_BGR, 256, 1, '3', IMK_RGB), pnm("ppm", IMK_XBGR, 256, 0, '6', IMK_RGB),
        pnm("pam", IMK_BINARY, 2, 0, '7', IMK_BINARY), pnm("pam", IMK_GREY, 256, 0, '7', IMK_GREY),
        pnm("pam", IMK_GREY, 13, 0, '7', IMK_GREY), pnm("pam", IMK_RGB, 256, 0, '7', IMK_RGB),
        pnm("pam", IMK_RGBX, 256, 0, '7', IMK_RGBX), pnm("pam", IMK_MAPPED, 60, 0, '7', IMK_RGB)),
    checks::caseName<checks::RoundTripCase>);

// Exact where the tool keeps the photograph's colours; otherwise as
// ImageMagick decodes the file, within one step of 16-bit rounding.
checks::ToolWriteCase pnmTool(const char* command, bool exact) {
  return {"pnm", command, exact ? "orig" : nullptr, exact ? 0 : 1};
}

INSTANTIATE_TEST_SUITE_P(
    Pnm, ToolWrites,
    testing::Values(
        pnmTool("pamdepth 65535 {orig} > {out}", true), pnmTool("pamtopam < {orig} > {out}", true),
        pnmTool("pamdepth 65535 {orig} | pnmtoplainpnm > {out}", true),
        pnmTool("convert {orig} -depth 16 ppm:{out}", true),
        pnmTool("convert {orig} -compress none ppm:{out}", true),
        pnmTool("convert {orig} pam:{out}", true), pnmTool("ppmtopgm {orig} > {out}", false),
        pnmTool("ppmtopgm {orig} | pamdepth 1023 > {out}", false),
        pnmTool("pamdepth 15 {orig} > {out}", false),
        pnmTool("ppmtopgm {orig} | pamditherbw -threshold | pamtopnm > {out}", false),
        pnmTool("ppmtopgm {orig} | pamditherbw -threshold | pamtopnm | pnmtoplainpnm > {out}",
                false),
        pnmTool("convert {orig} -alpha set -channel A -fx 'i/w' pam:{out}", false),
        pnmTool("convert {orig} -colorspace gray -alpha set -channel A -fx 'j/h' pam:{out}",
                false)),
    checks::caseName<checks::ToolWriteCase>);

TEST(PnmWrite, KindsTheFormatCannotHoldAreRefused) {
  test::TempDir dir;
  struct Case {
    const char* format;
    uint16_t type;
  } cases[] = {{"pbm", IMK_GREY}, {"pbm", IMK_RGB},    {"pbm", IMK_MAPPED},
               {"pgm", IMK_RGB},  {"pgm", IMK_MAPPED}, {"pgm", IMK_RGBX}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.format) + " " + std::to_string(c.type));
    OwnedPicture src;
    test::makePattern(src, c.type, 5, 5, 16);
    EXPECT_EQ(test::save(dir.file("no"), src.rec, c.format), IMK_ERR_CANNOT_SAVE);
    EXPECT_FALSE(test::fileExists(dir.file("no")));
  }
}

TEST(PnmWrite, OneLevelGreyIsWrittenWithMaxvalOne) {
  test::TempDir dir;
  OwnedPicture src, back;
  test::makePattern(src, IMK_GREY, 4, 4, 1);
  ASSERT_EQ(test::save(dir.file("g.pgm"), src.rec, "pgm"), 0);
  const std::vector<uint8_t> b = test::readFile(dir.file("g.pgm"));
  EXPECT_EQ(std::string(b.begin(), b.begin() + 9), "P5\n4 4\n1\n");
  ASSERT_EQ(test::load(dir.file("g.pgm"), back), 0);
  EXPECT_EQ(test::toRgb(back.rec), test::toRgb(src.rec));  // all black
}

// ---------------------------------------------------------------------------
// Worked numbers.

TEST(PnmRead, SamplesScaleToEightBitsWithRounding) {
  test::TempDir dir;
  OwnedPicture pic;
  // 16-bit big-endian: 0, 257, 32768, 65535 -> 0, 1, 128 (127.5 rounds up), 255.
  test::writeText(dir.file("a.pgm"), bin("P5\n4 1\n65535\n\x00\x00\x01\x01\x80\x00\xff\xff"));
  ASSERT_EQ(test::load(dir.file("a.pgm"), pic), 0);
  EXPECT_EQ(pic->type, IMK_GREY);
  EXPECT_EQ(pic->colorCount, 256);
  const uint8_t grey[4] = {0, 1, 128, 255};
  EXPECT_EQ(std::memcmp(pic.row(0), grey, 4), 0);
  // maxval 15: 15 -> 255, 0 -> 0, 7 -> 7 * 255 / 15 = 119.
  test::writeText(dir.file("b.ppm"), "P3\n1 1\n15\n15 0 7\n");
  ASSERT_EQ(test::load(dir.file("b.ppm"), pic), 0);
  EXPECT_EQ(pic->type, IMK_RGB);
  EXPECT_EQ(pic.row(0)[0], 255);
  EXPECT_EQ(pic.row(0)[1], 0);
  EXPECT_EQ(pic.row(0)[2], 119);
  // maxval 1000: 500 -> 127.5 -> 128; above maxval clamps to 255.
  test::writeText(dir.file("c.ppm"), "P3\n1 1\n1000\n500 1000 4000\n");
  ASSERT_EQ(test::load(dir.file("c.ppm"), pic), 0);
  EXPECT_EQ(pic.row(0)[0], 128);
  EXPECT_EQ(pic.row(0)[1], 255);
  EXPECT_EQ(pic.row(0)[2], 255);
}

TEST(PnmRead, SmallMaxvalGreyKeepsItsLevels) {
  test::TempDir dir;
  OwnedPicture pic;
  test::writeText(dir.file("a.pgm"), "P2\n5 1\n3\n0 1 2 3 9\n");
  ASSERT_EQ(test::load(dir.file("a.pgm"), pic), 0);
  EXPECT_EQ(pic->type, IMK_GREY);
  EXPECT_EQ(pic->colorCount, 4);
  const uint8_t levels[5] = {0, 1, 2, 3, 3};  // 9 is clamped to maxval
  EXPECT_EQ(std::memcmp(pic.row(0), levels, 5), 0);
  EXPECT_EQ(pic->palette[1], 85);
  EXPECT_EQ(pic->palette[2], 170);
  test::writeText(dir.file("b.pgm"), bin("P5\n2 1\n1\n\x01\x00"));
  ASSERT_EQ(test::load(dir.file("b.pgm"), pic), 0);
  EXPECT_EQ(pic->type, IMK_GREY);  // a 2-level grey, not a binary picture
  EXPECT_EQ(pic->colorCount, 2);
  EXPECT_EQ(pic.row(0)[0], 1);
  EXPECT_EQ(pic.row(0)[1], 0);
}

TEST(PnmRead, PbmOneIsBlackButPamBlackAndWhiteOneIsWhite) {
  test::TempDir dir;
  OwnedPicture pic;
  test::writeText(dir.file("a.pbm"), "P1\n4 1\n0110\n");
  ASSERT_EQ(test::load(dir.file("a.pbm"), pic), 0);
  ASSERT_EQ(pic->type, IMK_BINARY);
  const uint8_t fromPbm[4] = {1, 0, 0, 1};
  EXPECT_EQ(std::memcmp(pic.row(0), fromPbm, 4), 0);
  test::writeText(
      dir.file("b.pam"),
      bin("P7\nWIDTH 4\nHEIGHT 1\nDEPTH 1\nMAXVAL 1\nTUPLTYPE BLACKANDWHITE\nENDHDR\n\0\1\1\0"));
  ASSERT_EQ(test::load(dir.file("b.pam"), pic), 0);
  ASSERT_EQ(pic->type, IMK_BINARY);
  const uint8_t fromPam[4] = {0, 1, 1, 0};
  EXPECT_EQ(std::memcmp(pic.row(0), fromPam, 4), 0);
}

TEST(PnmRead, CommentsMayAppearBetweenAnyHeaderTokens) {
  test::TempDir dir;
  OwnedPicture pic;
  test::writeText(
      dir.file("a.pgm"),
      "P2#after magic\n# line\n2# width\n \t#x\n1\n#max\n255\n# in raster\n10 # c\n20\n");
  ASSERT_EQ(test::load(dir.file("a.pgm"), pic), 0);
  EXPECT_EQ(pic.row(0)[0], 10);
  EXPECT_EQ(pic.row(0)[1], 20);
  test::writeText(
      dir.file("b.pam"),
      "P7\n# c\nWIDTH 1\n#c2\nHEIGHT 1\nDEPTH 3\nMAXVAL 255\nTUPLTYPE RGB\n# c3\nENDHDR\nabc");
  ASSERT_EQ(test::load(dir.file("b.pam"), pic), 0);
  EXPECT_EQ(pic.row(0)[0], 'a');
  EXPECT_EQ(pic.row(0)[2], 'c');
}

TEST(PamRead, TupleTypesGiveTheirKinds) {
  test::TempDir dir;
  auto pam = [&](const std::string& head, const std::string& raster) {
    test::writeText(dir.file("t.pam"), "P7\n" + head + "ENDHDR\n" + raster);
    return dir.file("t.pam");
  };
  OwnedPicture pic;
  // Grey with alpha becomes R = G = B plus alpha.
  ASSERT_EQ(
      test::load(pam("WIDTH 1\nHEIGHT 1\nDEPTH 2\nMAXVAL 255\nTUPLTYPE GRAYSCALE_ALPHA\n", "d2"),
                 pic),
      0);
  ASSERT_EQ(pic->type, IMK_RGBX);
  EXPECT_EQ(pic.row(0)[0], 'd');
  EXPECT_EQ(pic.row(0)[2], 'd');
  EXPECT_EQ(pic.row(0)[3], '2');
  ASSERT_EQ(test::load(pam("WIDTH 2\nHEIGHT 1\nDEPTH 2\nMAXVAL 1\nTUPLTYPE BLACKANDWHITE_ALPHA\n",
                           bin("\1\1\0\0")),
                       pic),
            0);
  ASSERT_EQ(pic->type, IMK_RGBX);
  EXPECT_EQ(test::rgbaOf(pic.rec), (std::vector<uint8_t>{255, 255, 255, 255, 0, 0, 0, 0}));
  // 16-bit RGB_ALPHA: 0xFFFF, 0, 0x8000, 0x4000 -> 255, 0, 128, 64.
  ASSERT_EQ(test::load(pam("WIDTH 1\nHEIGHT 1\nDEPTH 4\nMAXVAL 65535\nTUPLTYPE RGB_ALPHA\n",
                           bin("\xff\xff\0\0\x80\0\x40\0")),
                       pic),
            0);
  EXPECT_EQ(test::rgbaOf(pic.rec), (std::vector<uint8_t>{255, 0, 128, 64}));
  // GRAYSCALE with maxval 3 keeps 4 levels.
  ASSERT_EQ(
      test::load(pam("WIDTH 2\nHEIGHT 1\nDEPTH 1\nMAXVAL 3\nTUPLTYPE GRAYSCALE\n", "\3\1"), pic),
      0);
  EXPECT_EQ(pic->type, IMK_GREY);
  EXPECT_EQ(pic->colorCount, 4);
  EXPECT_EQ(pic.row(0)[0], 3);
  // Without a tuple type the depth decides.
  ASSERT_EQ(test::load(pam("WIDTH 1\nHEIGHT 1\nDEPTH 3\nMAXVAL 255\n", "xyz"), pic), 0);
  EXPECT_EQ(pic->type, IMK_RGB);
  ASSERT_EQ(test::load(pam("WIDTH 1\nHEIGHT 1\nDEPTH 2\nMAXVAL 255\n", "xy"), pic), 0);
  EXPECT_EQ(pic->type, IMK_RGBX);
  FileInfo info;
  EXPECT_EQ(test::load(pam("WIDTH 1\nHEIGHT 1\nDEPTH 5\nMAXVAL 255\n", "12345"), pic, 0, 0, &info),
            IMK_ERR_BAD_FILE);
  EXPECT_STREQ(info.errorText, "unsupported PAM tuple type");
}

// ---------------------------------------------------------------------------
// Broken input.

TEST(PnmRead, BadHeadersAreRejected) {
  std::vector<test::Refusal> files;
  for (const char* h :
       {"P6\n-1 2\n255\n", "P6\n0 2\n255\n", "P6\n2 0\n255\n", "P6\n2 2\n0\n", "P6\n2 2\n65536\n",
        "P6\n99999999999999999999 2\n255\n", "P6\n2000000 2\n255\n", "P6\n2 2\n", "P5 2 2 255",
        "P6\n2 2\n255#\n", "P5\n2 x\n255\n", "P7\nWIDTH 2\nHEIGHT 2\nDEPTH 0\nMAXVAL 255\nENDHDR\n",
        "P7\nWIDTH 2\nHEIGHT 2\nDEPTH 3\nMAXVAL 255\nTUPLTYPE RGB\n",
        "P7\nWIDTH 2\nHEIGHT 2\nDEPTH 1\nMAXVAL 255\nTUPLTYPE RGB\nENDHDR\n",
        "P7\nWIDTH 2\nBOGUS 1\nHEIGHT 2\nDEPTH 1\nMAXVAL 255\nENDHDR\n",
        "P7\nHEIGHT 2\nDEPTH 1\nMAXVAL 255\nENDHDR\n",
        "P7\nWIDTH 2\nHEIGHT 2\nDEPTH 1\nMAXVAL 70000\nENDHDR\n"}) {
    const std::string text = std::string(h) + std::string(64, 'x');
    files.push_back({h, std::vector<uint8_t>(text.begin(), text.end())});
  }
  test::expectRefused(files, IMK_FLAG_IGNORE_ERRORS, IMK_ERR_BAD_FILE);
}

TEST(PnmRead, TruncatedRastersAreDamage) {
  test::TempDir dir;
  OwnedPicture src, pic;
  test::makePattern(src, IMK_RGB, 10, 10, 256);
  for (int plain = 0; plain <= 1; ++plain) {
    SCOPED_TRACE(plain);
    ASSERT_EQ(test::save(dir.file("full.ppm"), src.rec, "ppm", 0, plain), 0);
    std::vector<uint8_t> b = test::readFile(dir.file("full.ppm"));
    // Raw: the 13-byte header and 5 rows of 30 bytes. Plain: about half.
    b.resize(plain ? b.size() / 2 : 13 + 150);
    test::writeFile(dir.file("cut.ppm"), b);
    FileInfo info;
    EXPECT_EQ(test::load(dir.file("cut.ppm"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
    EXPECT_STREQ(info.errorText, "truncated");
    EXPECT_EQ(pic->pixels, nullptr);
    ASSERT_EQ(test::load(dir.file("cut.ppm"), pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
    for (int y = 0; y < 4; ++y) EXPECT_EQ(std::memcmp(pic.row(y), src.row(y), 30), 0) << y;
    for (int i = 0; i < 30; ++i) EXPECT_EQ(pic.row(9)[i], 0);
  }
  // A plain raster with something that is not a number.
  test::writeText(dir.file("tok.pgm"), "P2\n2 2\n255\n1 x 3 4\n");
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("tok.pgm"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_STREQ(info.errorText, "bad sample");
  ASSERT_EQ(test::load(dir.file("tok.pgm"), pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(pic.row(0)[0], 1);
}

// ---------------------------------------------------------------------------
// Several images in one file.

TEST(PnmRead, MultiImageStreamsAreCountedAndIndexed) {
  test::TempDir dir;
  OwnedPicture a, b, c, d;
  test::makePattern(a, IMK_RGB, 3, 2);
  test::makePattern(b, IMK_GREY, 4, 1, 256);
  test::makePattern(c, IMK_RGBX, 2, 2);
  test::makePattern(d, IMK_BINARY, 5, 3);
  ASSERT_EQ(test::save(dir.file("a"), a.rec, "ppm"), 0);
  ASSERT_EQ(test::save(dir.file("b"), b.rec, "pgm", 0, 1), 0);
  ASSERT_EQ(test::save(dir.file("c"), c.rec, "pam"), 0);
  ASSERT_EQ(test::save(dir.file("d"), d.rec, "pbm", 0, 1), 0);
  std::vector<uint8_t> all;
  for (const char* n : {"a", "b", "c", "d"}) {
    const std::vector<uint8_t> part = test::readFile(dir.file(n));
    all.insert(all.end(), part.begin(), part.end());
  }
  test::writeFile(dir.file("all.ppm"), all);
  const OwnedPicture* parts[] = {&a, &b, &c, &d};
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    FileInfo info;
    ASSERT_EQ(imkFileInformation(dir.file("all.ppm").c_str(), -1, i, &info), 0);
    EXPECT_EQ(info.pictureCount, 4);
    EXPECT_EQ(info.width, parts[i]->rec.width);
    EXPECT_EQ(info.height, parts[i]->rec.height);
    OwnedPicture pic;
    ASSERT_EQ(test::load(dir.file("all.ppm"), pic, i, 0, &info), 0);
    EXPECT_EQ(info.pictureCount, 4);
    EXPECT_EQ(test::rgbaOf(pic.rec), test::rgbaOf(parts[i]->rec));
  }
  OwnedPicture pic;
  EXPECT_EQ(test::load(dir.file("all.ppm"), pic, 4), IMK_ERR_BAD_FILE);
  // netpbm sees the same four images.
  std::string out;
  ASSERT_EQ(test::run("pamfile -count < " + test::quote(dir.file("all.ppm")), &out), 0);
  EXPECT_EQ(out, "stdin:\t4 images\n");
}

// ---------------------------------------------------------------------------
// Recognition and header information.

TEST(PnmSniff, EachRowRecognisesOnlyItsOwnMagicNumbers) {
  test::TempDir dir;
  struct Case {
    const char* text;
    const char* format;
  } cases[] = {{"P1\n1 1\n0\n", "pbm"},
               {"P4\n1 1\n\x80", "pbm"},
               {"P2\n1 1\n9\n3\n", "pgm"},
               {"P5\n1 1\n9\n\x03", "pgm"},
               {"P3\n1 1\n9\n1 2 3\n", "ppm"},
               {"P6\n1 1\n9\n\1\2\3", "ppm"},
               {"P7\nWIDTH 1\nHEIGHT 1\nDEPTH 1\nMAXVAL 9\nENDHDR\n\3", "pam"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    test::writeText(dir.file("s"), c.text);
    FileInfo info;
    ASSERT_EQ(imkFileInformation(dir.file("s").c_str(), -1, 0, &info), 0);
    EXPECT_EQ(info.formatIndex, imkGetIndex(c.format));
    // Asking for another member of the family still decodes by content.
    OwnedPicture pic;
    LoadOptions o;
    imkDefaultOption(&o);
    o.formatIndex = imkGetIndex(std::string(c.format) == "pgm" ? "ppm" : "pgm");
    ASSERT_EQ(imkLoad(dir.file("s").c_str(), &pic.rec, &o, &info), 0);
    EXPECT_EQ(info.formatIndex, imkGetIndex(c.format));
  }
}

TEST(PnmInfo, PlanesAndBitsFollowDepthAndMaxval) {
  test::TempDir dir;
  struct Case {
    std::string text;
    int planes, bits;
  } cases[] = {
      {"P4\n8 1\n\x80", 1, 1},
      {"P5\n1 1\n255\n\x03", 1, 8},
      {"P2\n1 1\n1023\n3\n", 1, 10},
      {"P6\n1 1\n65535\n123456", 3, 16},
      {"P3\n1 1\n15\n1 2 3\n", 3, 4},
      {"P7\nWIDTH 1\nHEIGHT 1\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\nabcd", 4, 8}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    test::writeText(dir.file("i"), c.text);
    FileInfo info;
    ASSERT_EQ(imkFileInformation(dir.file("i").c_str(), -1, 0, &info), 0);
    EXPECT_EQ(info.planes, c.planes);
    EXPECT_EQ(info.bitsPerPlane, c.bits);
    EXPECT_EQ(info.pictureCount, 1);
  }
}

TEST(PnmProgress, StoppingGivesCode15AndNoPicture) {
  test::TempDir dir;
  OwnedPicture src;
  test::makePattern(src, IMK_RGB, 30, 60);
  ASSERT_EQ(test::save(dir.file("p.ppm"), src.rec, "ppm"), 0);
  checks::expectEveryStepAndStopAt(dir.file("p.ppm"), 2);
}

// ---------------------------------------------------------------------------
// Independent tools.

TEST(PnmRead, PlainAndRawFilesOfTheSamePictureAgree) {
  const std::pair<const char*, const char*> pairs[] = {
      {"generated/np_plain.pgm", "generated/np_raw.pgm"},
      {"generated/np_plain.pbm", "generated/np_raw.pbm"},
      {"pillow/hopper_8bit_plain.pgm", "pillow/hopper_8bit.pgm"},
      {"pillow/hopper_16bit_plain.pgm", "pillow/hopper_16bit.pgm"},
      {"pillow/hopper_1bit_plain.pbm", "pillow/hopper_1bit.pbm"}};
  for (const auto& [plain, raw] : pairs) {
    SCOPED_TRACE(plain);
    OwnedPicture a, b;
    ASSERT_EQ(test::load(kPnm + plain, a), 0);
    ASSERT_EQ(test::load(kPnm + raw, b), 0);
    EXPECT_EQ(a->type, b->type);
    EXPECT_EQ(test::rgbaOf(a.rec), test::rgbaOf(b.rec));
  }
  // netpbm's own plain rendering of a raw PPM.
  test::TempDir dir;
  const std::string raw = kPnm + "libjpeg-turbo/testorig.ppm";
  ASSERT_EQ(test::run("pnmtoplainpnm " + test::quote(raw) + " > " + test::quote(dir.file("p.ppm"))),
            0);
  OwnedPicture a, b;
  ASSERT_EQ(test::load(raw, a), 0);
  ASSERT_EQ(test::load(dir.file("p.ppm"), b), 0);
  EXPECT_EQ(magicOf(dir.file("p.ppm")), "P3");
  EXPECT_EQ(test::rgbaOf(a.rec), test::rgbaOf(b.rec));
}

TEST(PnmCorpus, GoodFilesHaveTheirSizeAndMatchImageMagick) {
  struct Case {
    const char* file;
    int width, height;
  } cases[] = {{"generated/np_blackandwhite.pam", 227, 149},
               {"generated/np_gray_alpha.pam", 32, 32},
               {"generated/np_maxval1023.pgm", 227, 149},
               {"generated/np_maxval15.ppm", 227, 149},
               {"generated/np_maxval65535.ppm", 64, 42},
               {"generated/np_plain.pbm", 227, 149},
               {"generated/np_plain.pgm", 227, 149},
               {"generated/np_plain.ppm", 64, 42},
               {"generated/np_raw.pbm", 227, 149},
               {"generated/np_raw.pgm", 227, 149},
               {"generated/np_rgb.pam", 64, 42},
               {"generated/np_rgb_alpha.pam", 32, 32},
               {"image-rs/issue-794.pbm", 10, 10},
               {"image-rs/narrow.pbm", 1, 9},
               {"libjpeg-turbo/testorig.ppm", 227, 149},
               {"libtiff-test/minisblack-1c-8b.pgm", 157, 151},
               {"libtiff-test/miniswhite-1c-1b.pbm", 157, 151},
               {"libtiff-test/rgb-3c-16b.ppm", 157, 151},
               {"libtiff-test/rgb-3c-8b.ppm", 157, 151},
               {"pillow/16_bit_binary.pgm", 20, 100},
               {"pillow/hopper.pnm", 128, 128},
               {"pillow/hopper.ppm", 128, 128},
               {"pillow/hopper_16bit.pgm", 128, 128},
               {"pillow/hopper_16bit_plain.pgm", 128, 128},
               {"pillow/hopper_1bit.pbm", 128, 128},
               {"pillow/hopper_1bit_plain.pbm", 128, 128},
               {"pillow/hopper_8bit.pgm", 128, 128},
               {"pillow/hopper_8bit.ppm", 128, 128},
               {"pillow/hopper_8bit_plain.pgm", 128, 128},
               {"sdl_image/sample.pnm", 23, 42}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    OwnedPicture pic;
    ASSERT_EQ(test::load(kPnm + c.file, pic), 0);
    EXPECT_EQ(pic->width, c.width);
    EXPECT_EQ(pic->height, c.height);
    std::vector<uint8_t> ref;
    ASSERT_TRUE(test::magickRgba(kPnm + c.file, c.width, c.height, &ref));
    EXPECT_LE(test::maxDifference(test::rgbaOf(pic.rec), ref), 1);  // 16-bit rounding
  }
}

}  // namespace
