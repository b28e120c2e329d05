// Softimage PIC: hand-built files with worked-out pixels for every packet
// encoding, the writer's header bytes, round trips, the corpus files against
// the pictures they were made from, and broken files. None of the installed
// tools (ImageMagick's PIC is another format, GraphicsMagick, netpbm) reads
// Softimage pictures, so no cross-check with an independent decoder here.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

namespace {

using test::OwnedPicture;
using Bytes = std::vector<uint8_t>;

struct Packet {
  uint8_t encoding;  // 0 uncompressed, 1 pure run, 2 mixed run
  uint8_t channels;  // 0x80 R, 0x40 G, 0x20 B, 0x10 A
};

// The 104-byte header and the packet chain, then `data`.
Bytes softFile(int w, int h, const std::vector<Packet>& packets, const Bytes& data,
               const char* id = "PICT", int bits = 8) {
  Bytes b = {0x53, 0x80, 0xF6, 0x34, 0x40, 0x6D, 0x70, 0xA4};  // magic, version 3.71
  b.resize(88, 0);                                             // comment
  b.insert(b.end(), id, id + 4);
  b.insert(b.end(), {uint8_t(w >> 8), uint8_t(w), uint8_t(h >> 8), uint8_t(h)});
  b.insert(b.end(), {0x3F, 0x80, 0, 0, 0, 3, 0, 0});  // ratio 1.0, both fields
  for (size_t i = 0; i < packets.size(); ++i)
    b.insert(b.end(), {uint8_t(i + 1 < packets.size()), uint8_t(bits), packets[i].encoding,
                       packets[i].channels});
  b.insert(b.end(), data.begin(), data.end());
  return b;
}

class SoftFile : public testing::Test {
 protected:
  int load(const Bytes& bytes, OwnedPicture& pic, uint16_t flags = 0, FileInfo* info = nullptr) {
    test::writeFile(dir_.file("t.pic"), bytes);
    return test::load(dir_.file("t.pic"), pic, 0, flags, info);
  }
  // The bytes of pixel (x, y).
  static Bytes px(const OwnedPicture& pic, int x, int y) {
    const uint8_t* p = pic.row(y) + x * pic->bytesPerPixel;
    return Bytes(p, p + pic->bytesPerPixel);
  }
  test::TempDir dir_;
};

TEST_F(SoftFile, MixedAndPureRunsDecodeToTheWorkedPixels) {
  // 4 x 3; an RGB packet of mixed runs and an alpha packet of pure runs.
  const Bytes data = {// row 0: 2 literal pixels (count 1), then a run of 2 (count 129)
                      1, 10, 20, 30, 40, 50, 60, 129, 70, 80, 90,
                      // row 0 alpha: 4 x 200
                      4, 200,
                      // row 1: the long form, 128 then a 16-bit count 4
                      128, 0, 4, 1, 2, 3,
                      // row 1 alpha: 1 x 10, 3 x 20
                      1, 10, 3, 20,
                      // row 2: 4 literal pixels
                      3, 0, 0, 0, 255, 255, 255, 9, 8, 7, 6, 5, 4,
                      // row 2 alpha
                      4, 255};
  OwnedPicture pic;
  FileInfo info;
  ASSERT_EQ(load(softFile(4, 3, {{2, 0xE0}, {1, 0x10}}, data), pic, 0, &info), 0) << info.errorText;
  EXPECT_EQ(info.formatIndex, imkGetIndex("soft"));
  EXPECT_EQ(info.planes, 4);
  EXPECT_EQ(info.bitsPerPlane, 8);
  ASSERT_EQ(pic->type, IMK_RGBX);
  EXPECT_EQ(px(pic, 0, 0), (Bytes{10, 20, 30, 200}));
  EXPECT_EQ(px(pic, 1, 0), (Bytes{40, 50, 60, 200}));
  EXPECT_EQ(px(pic, 2, 0), (Bytes{70, 80, 90, 200}));
  EXPECT_EQ(px(pic, 3, 0), (Bytes{70, 80, 90, 200}));
  EXPECT_EQ(px(pic, 0, 1), (Bytes{1, 2, 3, 10}));
  EXPECT_EQ(px(pic, 3, 1), (Bytes{1, 2, 3, 20}));
  EXPECT_EQ(px(pic, 1, 2), (Bytes{255, 255, 255, 255}));
  EXPECT_EQ(px(pic, 3, 2), (Bytes{6, 5, 4, 255}));
}

TEST_F(SoftFile, EachPacketFillsOnlyItsChannels) {
  // Red uncompressed, green as pure runs, blue as mixed runs; no alpha.
  const Bytes data = {11, 12, 13, 3, 50, 2, 7, 8, 9};
  OwnedPicture pic;
  ASSERT_EQ(load(softFile(3, 1, {{0, 0x80}, {1, 0x40}, {2, 0x20}}, data), pic), 0);
  ASSERT_EQ(pic->type, IMK_RGB);
  EXPECT_EQ(px(pic, 0, 0), (Bytes{11, 50, 7}));
  EXPECT_EQ(px(pic, 2, 0), (Bytes{13, 50, 9}));
}

TEST_F(SoftFile, BrokenFilesAreRefusedAndCutFilesKeepTheirRows) {
  struct Case {
    const char* name;
    Bytes file;
    int code;
    const char* text;
  } cases[] = {
      {"id", softFile(2, 1, {{0, 0xE0}}, Bytes(6), "XXXX"), IMK_ERR_BAD_FILE,
       "not a Softimage picture"},
      {"16-bit", softFile(2, 1, {{0, 0xE0}}, Bytes(12), "PICT", 16), IMK_ERR_BAD_FILE,
       "unsupported sample size"},
      {"encoding", softFile(2, 1, {{3, 0xE0}}, Bytes(6)), IMK_ERR_BAD_FILE,
       "unknown packet encoding"},
      {"mask", softFile(2, 1, {{0, 0x01}}, Bytes(6)), IMK_ERR_BAD_FILE, "bad channel mask"},
      {"chain", softFile(2, 1, std::vector<Packet>(9, {0, 0x80}), Bytes(18)), IMK_ERR_BAD_FILE,
       "too many channel packets"},
      {"run", softFile(4, 1, {{2, 0xE0}}, {132, 1, 2, 3}), IMK_ERR_CORRUPT, "run past end of row"},
      {"cut", softFile(2, 2, {{0, 0xE0}}, {1, 2, 3, 4, 5, 6, 7}), IMK_ERR_CORRUPT, "truncated"},
      // A huge picture of a few bytes fails before anything is allocated.
      {"huge", softFile(65535, 65535, {{0, 0xE0}}, Bytes(6)), IMK_ERR_CORRUPT, "truncated"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(load(c.file, pic, 0, &info), c.code);
    EXPECT_STREQ(info.errorText, c.text);
    EXPECT_EQ(pic->pixels, nullptr);
  }
  OwnedPicture pic;
  ASSERT_EQ(load(cases[6].file, pic, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(px(pic, 1, 0), (Bytes{4, 5, 6}));
  EXPECT_EQ(px(pic, 0, 1), (Bytes{0, 0, 0}));  // its pixel was cut short
  // Ignoring errors does not make 6 bytes worth a picture of 65535 x 65535.
  FileInfo info;
  EXPECT_EQ(load(cases[7].file, pic, IMK_FLAG_IGNORE_ERRORS, &info), IMK_ERR_BAD_FILE);
  EXPECT_STREQ(info.errorText, "too little data for the picture");
}

TEST(SoftWrite, HeaderAndPacketsAreAsDocumented) {
  test::TempDir dir;
  OwnedPicture pic;
  test::makePattern(pic, IMK_RGBX, 300, 2);
  ASSERT_EQ(test::save(dir.file("a.pic"), pic.rec, "soft", 0, 1), 0);
  const Bytes b = test::readFile(dir.file("a.pic"));
  ASSERT_GT(b.size(), 112u);
  EXPECT_EQ(Bytes(b.begin(), b.begin() + 4), (Bytes{0x53, 0x80, 0xF6, 0x34}));
  EXPECT_EQ(std::string(b.begin() + 88, b.begin() + 92), "PICT");
  EXPECT_EQ(b[92] << 8 | b[93], 300);
  EXPECT_EQ(b[94] << 8 | b[95], 2);
  EXPECT_EQ(b[100] << 8 | b[101], 3);  // a full frame
  EXPECT_EQ(Bytes(b.begin() + 104, b.begin() + 112), (Bytes{1, 8, 2, 0xE0, 0, 8, 2, 0x10}));
  OwnedPicture rgb;
  test::makePattern(rgb, IMK_RGB, 3, 1);
  ASSERT_EQ(test::save(dir.file("b.pic"), rgb.rec, "soft", 0, 0), 0);
  const Bytes c = test::readFile(dir.file("b.pic"));
  ASSERT_EQ(c.size(), 108u + 9);  // one packet, 3 uncompressed pixels
  EXPECT_EQ(Bytes(c.begin() + 104, c.begin() + 108), (Bytes{0, 8, 0, 0xE0}));
  EXPECT_EQ(Bytes(c.begin() + 108, c.end()), test::pixelsOf(rgb.rec));
}

// Every kind reads back as true colour, plain or with mixed runs.
checks::RoundTripCase soft(uint16_t kind, uint16_t loaded) {
  return {.format = "soft",
          .kind = kind,
          .levels = 100,
          .loaded = loaded,
          .options = {0, 1},
          .sameNumbers = kind == IMK_RGBX,
          .magickReads = false};
}

INSTANTIATE_TEST_SUITE_P(Soft, RoundTrip,
                         testing::Values(soft(IMK_BINARY, IMK_RGB), soft(IMK_GREY, IMK_RGB),
                                         soft(IMK_MAPPED, IMK_RGB), soft(IMK_RGB, IMK_RGB),
                                         soft(IMK_BGR, IMK_RGB), soft(IMK_XBGR, IMK_RGB),
                                         soft(IMK_RGBX, IMK_RGBX)),
                         checks::caseName<checks::RoundTripCase>);

TEST(SoftWrite, MixedRunsShrinkFlatPictures) {
  test::TempDir dir;
  OwnedPicture flat;
  ASSERT_NE(imkAllock(&flat.rec, IMK_RGBX, 8, 400, 30), 0);
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 400; ++x) test::storeRgb(flat, x, y, uint8_t(y), 0, x < 200 ? 9 : 99);
  ASSERT_EQ(test::save(dir.file("plain.pic"), flat.rec, "soft", 0, 0), 0);
  ASSERT_EQ(test::save(dir.file("mixed.pic"), flat.rec, "soft", 0, 1), 0);
  const size_t plain = test::readFile(dir.file("plain.pic")).size();
  EXPECT_EQ(plain, 112u + 400 * 30 * 4);
  EXPECT_LT(test::readFile(dir.file("mixed.pic")).size() * 50, plain);
  OwnedPicture back;
  ASSERT_EQ(test::load(dir.file("mixed.pic"), back), 0);
  EXPECT_EQ(test::pixelsOf(back.rec), test::pixelsOf(flat.rec));
}

TEST(SoftCorpus, FilesMatchThePicturesTheyWereMadeFrom) {
  const std::string corpus = test::corpusDir();
  // kimg_rgb.pic was written from testorig.ppm: lossless, so equal.
  OwnedPicture pic;
  ASSERT_EQ(test::load(corpus + "/pic/generated/kimg_rgb.pic", pic), 0);
  int w, h;
  std::vector<uint8_t> rgb;
  ASSERT_TRUE(test::readNetpbmAsRgb(corpus + "/pnm/libjpeg-turbo/testorig.ppm", &w, &h, &rgb));
  EXPECT_EQ(test::toRgb(pic.rec), rgb);
  // kimg_rgba.pic from basn6a08.png: its writer converted the colours for
  // the PNG's gamma but kept the alpha channel as it was.
  ASSERT_EQ(test::load(corpus + "/pic/generated/kimg_rgba.pic", pic), 0);
  ASSERT_EQ(pic->type, IMK_RGBX);
  std::string ref;
  ASSERT_EQ(test::run("/usr/bin/convert " + test::quote(corpus + "/png/pngsuite/basn6a08.png") +
                          " -depth 8 rgba:-",
                      &ref),
            0);
  ASSERT_EQ(ref.size(), 32u * 32 * 4);
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 32; ++x)
      ASSERT_EQ(pic.row(y)[x * 4 + 3], static_cast<uint8_t>(ref[(y * 32 + x) * 4 + 3]))
          << x << "," << y;
}

}  // namespace
