// PBM / PGM / PPM / PAM: round trips, plain versus raw, worked sample
// scaling, multi-image streams, hostile headers, and cross-checks with netpbm
// and ImageMagick in both directions.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;

const std::string kPnm = test::corpusDir() + "/pnm/";

void writeText(const std::string& path, const std::string& text) {
  test::writeFile(path, std::vector<uint8_t>(text.begin(), text.end()));
}

// A string literal with embedded NUL bytes, without the terminating one.
template <size_t N>
std::string bin(const char (&s)[N]) {
  return std::string(s, N - 1);
}

// R,G,B,A of every pixel (A = 255 unless the kind carries alpha).
std::vector<uint8_t> rgbaOf(const ImageRecord& pic) {
  const std::vector<uint8_t> rgb = test::toRgb(pic);
  std::vector<uint8_t> out(static_cast<size_t>(pic.width) * pic.height * 4);
  for (int y = 0; y < pic.height; ++y)
    for (int x = 0; x < pic.width; ++x) {
      const size_t i = static_cast<size_t>(y) * pic.width + x;
      for (int c = 0; c < 3; ++c) out[i * 4 + c] = rgb[i * 3 + c];
      out[i * 4 + 3] = pic.type == IMK_RGBX
                           ? pic.pixels[static_cast<size_t>(y) * pic.bytesPerLine + x * 4 + 3]
                           : 255;
    }
  return out;
}

bool magickRgba(const std::string& path, int width, int height, std::vector<uint8_t>* out,
                int frame = 0) {
  std::string data;
  const std::string src = path + "[" + std::to_string(frame) + "]";
  if (test::run("/usr/bin/convert " + test::quote(src) + " -depth 8 rgba:- 2>/dev/null", &data) !=
      0)
    return false;
  if (data.size() != static_cast<size_t>(width) * height * 4) return false;
  out->assign(data.begin(), data.end());
  return true;
}

int maxDiff(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  return test::maxDifference(a, b);
}

std::string magicOf(const std::string& path) {
  const std::vector<uint8_t> b = test::readFile(path);
  return b.size() >= 2 ? std::string(b.begin(), b.begin() + 2) : std::string();
}

// ---------------------------------------------------------------------------

struct RoundTrip {
  const char* format;
  uint16_t type;
  int levels;
  int plain;          // saveOption
  const char* magic;  // written
  uint16_t loaded;    // kind read back
};

TEST(PnmRoundTrip, EveryFormatKeepsThePicture) {
  const RoundTrip cases[] = {
      {"pbm", IMK_BINARY, 2, 0, "P4", IMK_BINARY}, {"pbm", IMK_BINARY, 2, 1, "P1", IMK_BINARY},
      {"pgm", IMK_BINARY, 2, 0, "P5", IMK_GREY},   {"pgm", IMK_GREY, 256, 0, "P5", IMK_GREY},
      {"pgm", IMK_GREY, 256, 1, "P2", IMK_GREY},   {"pgm", IMK_GREY, 100, 0, "P5", IMK_GREY},
      {"pgm", IMK_GREY, 2, 1, "P2", IMK_GREY},     {"ppm", IMK_BINARY, 2, 0, "P6", IMK_RGB},
      {"ppm", IMK_GREY, 37, 0, "P6", IMK_RGB},     {"ppm", IMK_MAPPED, 150, 1, "P3", IMK_RGB},
      {"ppm", IMK_RGB, 0, 0, "P6", IMK_RGB},       {"ppm", IMK_BGR, 0, 1, "P3", IMK_RGB},
      {"ppm", IMK_XBGR, 0, 0, "P6", IMK_RGB},      {"pam", IMK_BINARY, 2, 0, "P7", IMK_BINARY},
      {"pam", IMK_GREY, 256, 0, "P7", IMK_GREY},   {"pam", IMK_GREY, 13, 0, "P7", IMK_GREY},
      {"pam", IMK_RGB, 0, 0, "P7", IMK_RGB},       {"pam", IMK_RGBX, 0, 0, "P7", IMK_RGBX},
      {"pam", IMK_MAPPED, 60, 0, "P7", IMK_RGB},
  };
  test::TempDir dir;
  for (const RoundTrip& c : cases) {
    SCOPED_TRACE(std::string(c.format) + " " + c.magic + " kind " + std::to_string(c.type) + "/" +
                 std::to_string(c.levels));
    OwnedPicture src, back;
    // Wide enough that plain lines must wrap at 70 characters.
    test::makePattern(src, c.type, 83, 9, c.levels > 0 ? c.levels : 256);
    const std::string path = dir.file("x");
    ASSERT_EQ(test::save(path, src.rec, c.format, 0, c.plain), 0);
    EXPECT_EQ(magicOf(path), c.magic);
    ASSERT_EQ(test::load(path, back), 0);
    EXPECT_EQ(back->type, c.loaded);
    ASSERT_EQ(back->width, 83);
    ASSERT_EQ(back->height, 9);
    EXPECT_EQ(rgbaOf(back.rec), rgbaOf(src.rec));
    if (c.loaded == IMK_GREY) {
      EXPECT_EQ(back->colorCount, c.levels);
    }
    if (c.loaded == IMK_GREY || c.loaded == IMK_BINARY) {
      // Level numbers themselves survive, not just intensities.
      for (int y = 0; y < 9; ++y) EXPECT_EQ(std::memcmp(back.row(y), src.row(y), 83), 0) << y;
    }
    if (c.plain) {
      const std::vector<uint8_t> text = test::readFile(path);
      size_t line = 0, longest = 0;
      for (uint8_t ch : text) longest = std::max(longest, line = ch == '\n' ? 0 : line + 1);
      EXPECT_LE(longest, 70u);
    }
  }
}

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
  writeText(dir.file("a.pgm"), bin("P5\n4 1\n65535\n\x00\x00\x01\x01\x80\x00\xff\xff"));
  ASSERT_EQ(test::load(dir.file("a.pgm"), pic), 0);
  EXPECT_EQ(pic->type, IMK_GREY);
  EXPECT_EQ(pic->colorCount, 256);
  const uint8_t grey[4] = {0, 1, 128, 255};
  EXPECT_EQ(std::memcmp(pic.row(0), grey, 4), 0);
  // maxval 15: 15 -> 255, 0 -> 0, 7 -> 7 * 255 / 15 = 119.
  writeText(dir.file("b.ppm"), "P3\n1 1\n15\n15 0 7\n");
  ASSERT_EQ(test::load(dir.file("b.ppm"), pic), 0);
  EXPECT_EQ(pic->type, IMK_RGB);
  EXPECT_EQ(pic.row(0)[0], 255);
  EXPECT_EQ(pic.row(0)[1], 0);
  EXPECT_EQ(pic.row(0)[2], 119);
  // maxval 1000: 500 -> 127.5 -> 128; above maxval clamps to 255.
  writeText(dir.file("c.ppm"), "P3\n1 1\n1000\n500 1000 4000\n");
  ASSERT_EQ(test::load(dir.file("c.ppm"), pic), 0);
  EXPECT_EQ(pic.row(0)[0], 128);
  EXPECT_EQ(pic.row(0)[1], 255);
  EXPECT_EQ(pic.row(0)[2], 255);
}

TEST(PnmRead, SmallMaxvalGreyKeepsItsLevels) {
  test::TempDir dir;
  OwnedPicture pic;
  writeText(dir.file("a.pgm"), "P2\n5 1\n3\n0 1 2 3 9\n");
  ASSERT_EQ(test::load(dir.file("a.pgm"), pic), 0);
  EXPECT_EQ(pic->type, IMK_GREY);
  EXPECT_EQ(pic->colorCount, 4);
  const uint8_t levels[5] = {0, 1, 2, 3, 3};  // 9 is clamped to maxval
  EXPECT_EQ(std::memcmp(pic.row(0), levels, 5), 0);
  EXPECT_EQ(pic->palette[1], 85);
  EXPECT_EQ(pic->palette[2], 170);
  writeText(dir.file("b.pgm"), bin("P5\n2 1\n1\n\x01\x00"));
  ASSERT_EQ(test::load(dir.file("b.pgm"), pic), 0);
  EXPECT_EQ(pic->type, IMK_GREY);  // a 2-level grey, not a binary picture
  EXPECT_EQ(pic->colorCount, 2);
  EXPECT_EQ(pic.row(0)[0], 1);
  EXPECT_EQ(pic.row(0)[1], 0);
}

TEST(PnmRead, PbmOneIsBlackButPamBlackAndWhiteOneIsWhite) {
  test::TempDir dir;
  OwnedPicture pic;
  writeText(dir.file("a.pbm"), "P1\n4 1\n0110\n");
  ASSERT_EQ(test::load(dir.file("a.pbm"), pic), 0);
  ASSERT_EQ(pic->type, IMK_BINARY);
  const uint8_t fromPbm[4] = {1, 0, 0, 1};
  EXPECT_EQ(std::memcmp(pic.row(0), fromPbm, 4), 0);
  writeText(
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
  writeText(dir.file("a.pgm"),
            "P2#after magic\n# line\n2# width\n \t#x\n1\n#max\n255\n# in raster\n10 # c\n20\n");
  ASSERT_EQ(test::load(dir.file("a.pgm"), pic), 0);
  EXPECT_EQ(pic.row(0)[0], 10);
  EXPECT_EQ(pic.row(0)[1], 20);
  writeText(
      dir.file("b.pam"),
      "P7\n# c\nWIDTH 1\n#c2\nHEIGHT 1\nDEPTH 3\nMAXVAL 255\nTUPLTYPE RGB\n# c3\nENDHDR\nabc");
  ASSERT_EQ(test::load(dir.file("b.pam"), pic), 0);
  EXPECT_EQ(pic.row(0)[0], 'a');
  EXPECT_EQ(pic.row(0)[2], 'c');
}

TEST(PamRead, TupleTypesGiveTheirKinds) {
  test::TempDir dir;
  auto pam = [&](const std::string& head, const std::string& raster) {
    writeText(dir.file("t.pam"), "P7\n" + head + "ENDHDR\n" + raster);
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
  EXPECT_EQ(rgbaOf(pic.rec), (std::vector<uint8_t>{255, 255, 255, 255, 0, 0, 0, 0}));
  // 16-bit RGB_ALPHA: 0xFFFF, 0, 0x8000, 0x4000 -> 255, 0, 128, 64.
  ASSERT_EQ(test::load(pam("WIDTH 1\nHEIGHT 1\nDEPTH 4\nMAXVAL 65535\nTUPLTYPE RGB_ALPHA\n",
                           bin("\xff\xff\0\0\x80\0\x40\0")),
                       pic),
            0);
  EXPECT_EQ(rgbaOf(pic.rec), (std::vector<uint8_t>{255, 0, 128, 64}));
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
  const char* headers[] = {
      "P6\n-1 2\n255\n",
      "P6\n0 2\n255\n",
      "P6\n2 0\n255\n",
      "P6\n2 2\n0\n",
      "P6\n2 2\n65536\n",
      "P6\n99999999999999999999 2\n255\n",
      "P6\n2000000 2\n255\n",
      "P6\n2 2\n",
      "P5 2 2 255",
      "P6\n2 2\n255#\n",
      "P5\n2 x\n255\n",
      "P7\nWIDTH 2\nHEIGHT 2\nDEPTH 0\nMAXVAL 255\nENDHDR\n",
      "P7\nWIDTH 2\nHEIGHT 2\nDEPTH 3\nMAXVAL 255\nTUPLTYPE RGB\n",
      "P7\nWIDTH 2\nHEIGHT 2\nDEPTH 1\nMAXVAL 255\nTUPLTYPE RGB\nENDHDR\n",
      "P7\nWIDTH 2\nBOGUS 1\nHEIGHT 2\nDEPTH 1\nMAXVAL 255\nENDHDR\n",
      "P7\nHEIGHT 2\nDEPTH 1\nMAXVAL 255\nENDHDR\n",
      "P7\nWIDTH 2\nHEIGHT 2\nDEPTH 1\nMAXVAL 70000\nENDHDR\n",
  };
  test::TempDir dir;
  for (const char* h : headers) {
    SCOPED_TRACE(h);
    writeText(dir.file("bad"), std::string(h) + std::string(64, 'x'));
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(test::load(dir.file("bad"), pic, 0, IMK_FLAG_IGNORE_ERRORS, &info), IMK_ERR_BAD_FILE);
    EXPECT_NE(info.errorText[0], '\0');
    EXPECT_EQ(pic->pixels, nullptr);
    EXPECT_EQ(imkFileInformation(dir.file("bad").c_str(), -1, 0, &info), IMK_ERR_BAD_FILE);
  }
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
  writeText(dir.file("tok.pgm"), "P2\n2 2\n255\n1 x 3 4\n");
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("tok.pgm"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_STREQ(info.errorText, "bad sample");
  ASSERT_EQ(test::load(dir.file("tok.pgm"), pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(pic.row(0)[0], 1);
}

TEST(PnmCorpus, BrokenFilesFail) {
  for (const char* f : {"gdk-pixbuf/fail/invalid.1.ppm", "gdk-pixbuf/fail/invalid.2.ppm",
                        "gdk-pixbuf/fail/invalid.3.ppm", "gdk-pixbuf/fail/invalid.5.ppm",
                        "gdk-pixbuf/fail/invalid.6.ppm", "gdk-pixbuf/fail/invalid.7.ppm",
                        "gdk-pixbuf/fail/invalid.8.ppm",
                        "gdk-pixbuf/randomly-modified/bug775232.pnm", "pillow/negative_size.ppm"}) {
    SCOPED_TRACE(f);
    OwnedPicture pic;
    EXPECT_NE(test::load(kPnm + f, pic), 0);
    EXPECT_NE(test::load(kPnm + f, pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
    EXPECT_EQ(pic->pixels, nullptr);
  }
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
    EXPECT_EQ(rgbaOf(pic.rec), rgbaOf(parts[i]->rec));
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
    writeText(dir.file("s"), c.text);
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
    writeText(dir.file("i"), c.text);
    FileInfo info;
    ASSERT_EQ(imkFileInformation(dir.file("i").c_str(), -1, 0, &info), 0);
    EXPECT_EQ(info.planes, c.planes);
    EXPECT_EQ(info.bitsPerPlane, c.bits);
    EXPECT_EQ(info.pictureCount, 1);
  }
}

int gSteps;
int stopAtTwo(int step, int) {
  ++gSteps;
  return step >= 2;
}

TEST(PnmProgress, StoppingGivesCode15AndNoPicture) {
  test::TempDir dir;
  OwnedPicture src, pic;
  test::makePattern(src, IMK_RGB, 30, 60);
  ASSERT_EQ(test::save(dir.file("p.ppm"), src.rec, "ppm"), 0);
  LoadOptions o;
  imkDefaultOption(&o);
  o.flags |= IMK_FLAG_PROGRESS;
  o.progress = stopAtTwo;
  gSteps = 0;
  EXPECT_EQ(imkLoad(dir.file("p.ppm").c_str(), &pic.rec, &o, nullptr), IMK_ERR_STOPPED);
  EXPECT_EQ(pic->pixels, nullptr);
  EXPECT_EQ(gSteps, 3);
}

// ---------------------------------------------------------------------------
// Independent tools.

TEST(PnmRead, PlainAndRawFilesOfTheSamePictureAgree) {
  const std::pair<const char*, const char*> pairs[] = {
      {"generated/np_plain.pgm", "generated/np_raw.pgm"},
      {"generated/np_plain.pbm", "generated/np_raw.pbm"},
      {"pillow/hopper_8bit_plain.pgm", "pillow/hopper_8bit.pgm"},
      {"pillow/hopper_16bit_plain.pgm", "pillow/hopper_16bit.pgm"},
      {"pillow/hopper_1bit_plain.pbm", "pillow/hopper_1bit.pbm"},
  };
  for (const auto& [plain, raw] : pairs) {
    SCOPED_TRACE(plain);
    OwnedPicture a, b;
    ASSERT_EQ(test::load(kPnm + plain, a), 0);
    ASSERT_EQ(test::load(kPnm + raw, b), 0);
    EXPECT_EQ(a->type, b->type);
    EXPECT_EQ(rgbaOf(a.rec), rgbaOf(b.rec));
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
  EXPECT_EQ(rgbaOf(a.rec), rgbaOf(b.rec));
}

TEST(PnmCrossCheck, NetpbmAndImageMagickReadOurFiles) {
  struct Case {
    const char* format;
    uint16_t type;
    int levels;
    int plain;
  } cases[] = {{"pbm", IMK_BINARY, 2, 0}, {"pbm", IMK_BINARY, 2, 1},  {"pgm", IMK_GREY, 256, 0},
               {"pgm", IMK_GREY, 7, 1},   {"ppm", IMK_MAPPED, 90, 0}, {"ppm", IMK_RGB, 0, 1},
               {"pam", IMK_BINARY, 2, 0}, {"pam", IMK_GREY, 20, 0},   {"pam", IMK_RGB, 0, 0},
               {"pam", IMK_RGBX, 0, 0}};
  test::TempDir dir;
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.format) + " " + std::to_string(c.type) + (c.plain ? " plain" : ""));
    OwnedPicture src;
    test::makePattern(src, c.type, 29, 11, c.levels > 0 ? c.levels : 256);
    const std::string path = dir.file("ours");
    ASSERT_EQ(test::save(path, src.rec, c.format, 0, c.plain), 0);
    const std::vector<uint8_t> want = rgbaOf(src.rec);
    std::vector<uint8_t> im;
    ASSERT_TRUE(magickRgba(path, 29, 11, &im));
    EXPECT_EQ(maxDiff(im, want), 0);
    // netpbm: turn ours into a raw PNM (alpha dropped) and read that.
    const std::string pnm = dir.file("np.pnm");
    ASSERT_EQ(
        test::run("pamtopnm " + test::quote(path) + " > " + test::quote(pnm) + " 2>/dev/null"), 0);
    int w, h;
    std::vector<uint8_t> rgb;
    ASSERT_TRUE(test::readNetpbmAsRgb(pnm, &w, &h, &rgb));
    EXPECT_EQ(rgb, test::toRgb(src.rec));
    if (c.type == IMK_RGBX) {
      ASSERT_EQ(test::run("pamchannel -infile " + test::quote(path) +
                          " -tupletype GRAYSCALE 3 | pamtopnm > " + test::quote(pnm)),
                0);
      ASSERT_TRUE(test::readNetpbmAsRgb(pnm, &w, &h, &rgb));
      for (size_t i = 0; i < rgb.size() / 3; ++i) ASSERT_EQ(rgb[i * 3], want[i * 4 + 3]) << i;
    }
  }
}

TEST(PnmCrossCheck, WeReadFilesWrittenByNetpbmAndImageMagick) {
  const std::string source = kPnm + "libjpeg-turbo/testorig.ppm";
  const std::string q = test::quote(source);
  test::TempDir dir;
  OwnedPicture orig;
  ASSERT_EQ(test::load(source, orig), 0);
  struct Tool {
    const char* name;
    std::string command;
    bool sameAsSource;  // else compared with ImageMagick's decoding
  } tools[] = {
      {"pamdepth 65535", "pamdepth 65535 " + q, true},
      {"pamtopam", "pamtopam < " + q, true},
      {"pnmtoplainpnm 16-bit", "pamdepth 65535 " + q + " | pnmtoplainpnm", true},
      {"convert 16-bit", "convert " + q + " -depth 16 ppm:-", true},
      {"convert plain", "convert " + q + " -compress none ppm:-", true},
      {"convert pam", "convert " + q + " pam:-", true},
      {"ppmtopgm", "ppmtopgm " + q, false},
      {"pamdepth 1023 grey", "ppmtopgm " + q + " | pamdepth 1023", false},
      {"pamdepth 15", "pamdepth 15 " + q, false},
      {"pamditherbw", "ppmtopgm " + q + " | pamditherbw -threshold | pamtopnm", false},
      {"plain pbm", "ppmtopgm " + q + " | pamditherbw -threshold | pamtopnm | pnmtoplainpnm",
       false},
      {"convert rgba pam", "convert " + q + " -alpha set -channel A -fx 'i/w' pam:-", false},
      {"convert grey alpha pam",
       "convert " + q + " -colorspace gray -alpha set -channel A -fx 'j/h' pam:-", false},
  };
  for (const Tool& t : tools) {
    SCOPED_TRACE(t.name);
    const std::string out = dir.file("t");
    ASSERT_EQ(test::run(t.command + " > " + test::quote(out) + " 2>/dev/null"), 0);
    OwnedPicture pic;
    ASSERT_EQ(test::load(out, pic), 0);
    ASSERT_EQ(pic->width, 227);
    ASSERT_EQ(pic->height, 149);
    if (t.sameAsSource) {
      EXPECT_EQ(rgbaOf(pic.rec), rgbaOf(orig.rec));
    } else {
      std::vector<uint8_t> ref;
      ASSERT_TRUE(magickRgba(out, 227, 149, &ref));
      EXPECT_LE(maxDiff(rgbaOf(pic.rec), ref), 1);
    }
  }
}

TEST(PnmCorpus, GoodFilesHaveTheirSizeAndMatchImageMagick) {
  struct Case {
    const char* file;
    int width, height;
  } cases[] = {
      {"generated/np_blackandwhite.pam", 227, 149},
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
      {"sdl_image/sample.pnm", 23, 42},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    OwnedPicture pic;
    ASSERT_EQ(test::load(kPnm + c.file, pic), 0);
    EXPECT_EQ(pic->width, c.width);
    EXPECT_EQ(pic->height, c.height);
    std::vector<uint8_t> ref;
    ASSERT_TRUE(magickRgba(kPnm + c.file, c.width, c.height, &ref));
    EXPECT_LE(maxDiff(rgbaOf(pic.rec), ref), 1);  // 16-bit rounding
  }
}

}  // namespace
