// Photoshop documents: files written by ImageMagick (RGB raw and PackBits,
// 16-bit, grey, indexed, bitmap, CMYK, transparency, layers, PSB) against
// their source pixels and ImageMagick's own decoding; hand-made documents for
// the transparency rule, damaged and hostile files; progress.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"
#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;

// ImageMagick writes `source` (any file it reads) as a document.
bool magickWrites(const std::string& source, const std::string& psd,
                  const std::string& options = "") {
  return test::run("/usr/bin/convert " + test::quote(source) + options + " " + test::quote(psd) +
                   " 2>/dev/null") == 0;
}

// --- documents from ImageMagick ------------------------------------------------

TEST(PsdRead, RgbRawPackBitsSixteenBitAndPsbGiveTheSourcePixels) {
  test::TempDir dir;
  OwnedPicture src;
  test::makePattern(src, IMK_RGB, 61, 37);
  ASSERT_EQ(test::save(dir.file("src.ppm"), src.rec, "ppm"), 0);
  const struct {
    const char* name;
    const char* options;
  } cases[] = {{"raw.psd", " -compress None"},
               {"rle.psd", " -compress RLE"},
               {"deep.psd", " -depth 16 -compress RLE"},
               {"deep-raw.psd", " -depth 16 -compress None"},
               {"big.psb", " -compress RLE"}};
  for (const auto& c : cases) {
    const std::string path = dir.file(c.name);
    ASSERT_TRUE(magickWrites(dir.file("src.ppm"), path, c.options)) << c.name;
    OwnedPicture pic;
    FileInfo info;
    ASSERT_EQ(test::load(path, pic, 0, 0, &info), 0) << c.name << ": " << info.errorText;
    EXPECT_EQ(info.formatIndex, imkGetIndex("psd"));
    EXPECT_EQ(info.planes, 3);
    EXPECT_EQ(info.bitsPerPlane, std::string(c.name).find("deep") == 0 ? 16 : 8) << c.name;
    EXPECT_EQ(pic->type, IMK_RGB) << c.name;
    EXPECT_EQ(test::toRgb(pic.rec), test::toRgb(src.rec)) << c.name;
  }
}

TEST(PsdRead, GreyIndexedAndBitmapDocuments) {
  test::TempDir dir;
  OwnedPicture grey, mapped, binary;
  test::makePattern(grey, IMK_GREY, 50, 30);
  test::makePattern(mapped, IMK_MAPPED, 50, 30, 12);
  test::makePattern(binary, IMK_BINARY, 50, 30);
  ASSERT_EQ(test::save(dir.file("grey.pgm"), grey.rec, "pgm"), 0);
  ASSERT_EQ(test::save(dir.file("mapped.png"), mapped.rec, "png"), 0);
  ASSERT_EQ(test::save(dir.file("binary.pbm"), binary.rec, "pbm"), 0);

  ASSERT_TRUE(magickWrites(dir.file("grey.pgm"), dir.file("grey.psd")));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("grey.psd"), pic), 0);
  EXPECT_EQ(pic->type, IMK_GREY);
  EXPECT_EQ(test::toRgb(pic.rec), test::toRgb(grey.rec));

  ASSERT_TRUE(magickWrites(dir.file("mapped.png"), dir.file("mapped.psd"), " -type palette"));
  ASSERT_EQ(test::load(dir.file("mapped.psd"), pic), 0);
  EXPECT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(test::toRgb(pic.rec), test::toRgb(mapped.rec));

  ASSERT_TRUE(magickWrites(dir.file("binary.pbm"), dir.file("binary.psd"), " -depth 1"));
  FileInfo info;
  ASSERT_EQ(test::load(dir.file("binary.psd"), pic, 0, 0, &info), 0);
  EXPECT_EQ(info.bitsPerPlane, 1);
  EXPECT_EQ(pic->type, IMK_BINARY);
  EXPECT_EQ(test::toRgb(pic.rec), test::toRgb(binary.rec));
}

TEST(PsdRead, CmykAgreesWithImageMagickAndTheSource) {
  test::TempDir dir;
  OwnedPicture src;
  test::makePattern(src, IMK_RGB, 40, 24);
  ASSERT_EQ(test::save(dir.file("src.ppm"), src.rec, "ppm"), 0);
  for (const char* compression : {" -compress None", " -compress RLE"}) {
    ASSERT_TRUE(magickWrites(dir.file("src.ppm"), dir.file("cmyk.psd"),
                             std::string(" -colorspace CMYK") + compression));
    OwnedPicture pic;
    FileInfo info;
    ASSERT_EQ(test::load(dir.file("cmyk.psd"), pic, 0, 0, &info), 0) << compression;
    EXPECT_EQ(info.planes, 4);
    EXPECT_EQ(pic->type, IMK_RGB);
    std::string out;
    ASSERT_EQ(test::run("/usr/bin/convert " + test::quote(dir.file("cmyk.psd")) +
                            " -colorspace sRGB -depth 8 ppm:-",
                        &out),
              0);
    int w, h;
    std::vector<uint8_t> magick;
    ASSERT_TRUE(test::parseNetpbm(out, &w, &h, &magick));
    EXPECT_LE(test::maxDifference(test::toRgb(pic.rec), magick), 1) << compression;
    EXPECT_LE(test::maxDifference(test::toRgb(pic.rec), test::toRgb(src.rec)), 1) << compression;
  }
}

TEST(PsdRead, TransparentCompositeKeepsItsAlpha) {
  test::TempDir dir;
  OwnedPicture src;
  ASSERT_TRUE(imkAllock(&src.rec, IMK_RGBX, 8, 48, 32));
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 48; ++x) {
      uint8_t* p = src.row(y) + 4 * x;
      p[0] = static_cast<uint8_t>(x * 5), p[1] = static_cast<uint8_t>(200 - y * 3),
      p[2] = static_cast<uint8_t>(x * y);
      p[3] = static_cast<uint8_t>(x < 16 ? 255 : x < 32 ? 128 + y : 0);
    }
  ASSERT_EQ(test::save(dir.file("src.png"), src.rec, "png"), 0);
  ASSERT_TRUE(magickWrites(dir.file("src.png"), dir.file("a.psd")));
  OwnedPicture pic;
  FileInfo info;
  ASSERT_EQ(test::load(dir.file("a.psd"), pic, 0, 0, &info), 0);
  EXPECT_EQ(info.planes, 4);
  ASSERT_EQ(pic->type, IMK_RGBX);
  // ImageMagick stores the colours as they are (Photoshop would blend them
  // with white first): alpha and the opaque colours must match exactly.
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 48; ++x) {
      const uint8_t* ours = pic.row(y) + 4 * x;
      const uint8_t* want = src.row(y) + 4 * x;
      ASSERT_EQ(ours[3], want[3]) << x << "," << y;
      if (want[3] == 255) {
        ASSERT_TRUE(std::equal(ours, ours + 3, want)) << x << "," << y;
      }
    }

  // Grey with transparency becomes R,G,B + alpha too.
  ASSERT_TRUE(magickWrites(dir.file("src.png"), dir.file("ga.psd"), " -colorspace Gray"));
  ASSERT_EQ(test::load(dir.file("ga.psd"), pic), 0);
  ASSERT_EQ(pic->type, IMK_RGBX);
  EXPECT_EQ(pic.row(5)[4 * 40 + 3], 0);
  EXPECT_EQ(pic.row(5)[4 * 3 + 3], 255);
  EXPECT_EQ(pic.row(5)[4 * 3], pic.row(5)[4 * 3 + 1]);
}

TEST(PsdRead, LayeredDocumentShowsItsComposite) {
  test::TempDir dir;
  OwnedPicture composite, layer;
  test::makePattern(composite, IMK_RGB, 40, 30);
  test::makePattern(layer, IMK_RGBX, 20, 10);
  ASSERT_EQ(test::save(dir.file("c.ppm"), composite.rec, "ppm"), 0);
  ASSERT_EQ(test::save(dir.file("l.png"), layer.rec, "png"), 0);
  // ImageMagick writes the first picture as the composite, the rest as layers.
  ASSERT_EQ(test::run("/usr/bin/convert " + test::quote(dir.file("c.ppm")) + " " +
                      test::quote(dir.file("c.ppm")) + " " + test::quote(dir.file("l.png")) + " " +
                      test::quote(dir.file("doc.psd")) + " 2>/dev/null"),
            0);
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("doc.psd"), pic), 0);
  EXPECT_EQ(pic->type, IMK_RGB);
  EXPECT_EQ(test::toRgb(pic.rec), test::toRgb(composite.rec));
  int w, h;
  std::vector<uint8_t> magick;
  ASSERT_TRUE(test::magickToRgb(dir.file("doc.psd"), &w, &h, &magick));
  EXPECT_EQ(test::toRgb(pic.rec), magick);
}

// --- hand-made documents ----------------------------------------------------

void put16(std::vector<uint8_t>& v, uint32_t x) {
  v.push_back(static_cast<uint8_t>(x >> 8));
  v.push_back(static_cast<uint8_t>(x));
}
void put32(std::vector<uint8_t>& v, uint32_t x) {
  put16(v, x >> 16);
  put16(v, x & 0xFFFF);
}

struct Doc {
  uint16_t channels = 3;
  uint32_t width = 4, height = 3;
  uint16_t depth = 8, mode = 3;
  std::vector<uint8_t> modeData, resources;
  int layerCount = 0;  // 0: no layer section
  uint16_t compression = 0;
  std::vector<uint8_t> data;  // after the compression word
};

std::vector<uint8_t> build(const Doc& d) {
  std::vector<uint8_t> f = {'8', 'B', 'P', 'S'};
  put16(f, 1);
  f.insert(f.end(), 6, 0);
  put16(f, d.channels);
  put32(f, d.height);
  put32(f, d.width);
  put16(f, d.depth);
  put16(f, d.mode);
  put32(f, static_cast<uint32_t>(d.modeData.size()));
  f.insert(f.end(), d.modeData.begin(), d.modeData.end());
  put32(f, static_cast<uint32_t>(d.resources.size()));
  f.insert(f.end(), d.resources.begin(), d.resources.end());
  if (d.layerCount == 0) {
    put32(f, 0);
  } else {
    put32(f, 8);  // layer info: its length, the count, no layer records
    put32(f, 2);
    put16(f, static_cast<uint16_t>(static_cast<int16_t>(d.layerCount)));
    put16(f, 0);
  }
  put16(f, d.compression);
  f.insert(f.end(), d.data.begin(), d.data.end());
  return f;
}

// Raw planar samples: channel c of pixel i is value(c, i).
std::vector<uint8_t> planes(uint32_t channels, uint32_t pixels,
                            int (*value)(uint32_t c, uint32_t i)) {
  std::vector<uint8_t> v;
  for (uint32_t c = 0; c < channels; ++c)
    for (uint32_t i = 0; i < pixels; ++i) v.push_back(static_cast<uint8_t>(value(c, i)));
  return v;
}

int loadBytes(const test::TempDir& dir, const std::vector<uint8_t>& bytes, OwnedPicture& pic,
              uint16_t flags = 0, FileInfo* info = nullptr) {
  const std::string path = dir.file("doc.psd");
  test::writeFile(path, bytes);
  return test::load(path, pic, 0, flags, info);
}

TEST(PsdTransparency, OnlyANegativeLayerCountMakesTheExtraChannelAlpha) {
  test::TempDir dir;
  Doc d;
  d.channels = 4;
  d.data = planes(
      4, 12, [](uint32_t c, uint32_t i) { return c == 3 ? 255 - static_cast<int>(i) * 20 : 255; });
  // A saved selection: ignored.
  OwnedPicture pic;
  ASSERT_EQ(loadBytes(dir, build(d), pic), 0);
  EXPECT_EQ(pic->type, IMK_RGB);
  d.layerCount = 1;
  ASSERT_EQ(loadBytes(dir, build(d), pic), 0);
  EXPECT_EQ(pic->type, IMK_RGB);
  // The merged transparency: white unblends to white, alpha as stored.
  d.layerCount = -1;
  FileInfo info;
  ASSERT_EQ(loadBytes(dir, build(d), pic, 0, &info), 0);
  EXPECT_EQ(info.planes, 4);
  ASSERT_EQ(pic->type, IMK_RGBX);
  for (int i = 0; i < 12; ++i) {
    const uint8_t* p = pic.row(i / 4) + 4 * (i % 4);
    EXPECT_EQ(p[3], 255 - i * 20);
    EXPECT_EQ(p[0], 255);
  }
  // Colours blended with white at alpha 128: black shows as 127 and
  // unblends to (127 - 127) * 255 / 128 = 0; (80,200,0) shows as
  // (167,227,127) and unblends to 40 * 255 / 128 = 79.7 -> 80,
  // 100 * 255 / 128 = 199.2 -> 199 (the blend lost that bit) and 0.
  d.data = planes(4, 12, [](uint32_t c, uint32_t i) {
    static const int blended[2][3] = {{127, 127, 127}, {167, 227, 127}};
    return c == 3 ? 128 : blended[i & 1][c];
  });
  ASSERT_EQ(loadBytes(dir, build(d), pic), 0);
  const uint8_t expected[8] = {0, 0, 0, 128, 80, 199, 0, 128};
  EXPECT_TRUE(std::equal(expected, expected + 8, pic.row(0)));
}

TEST(PsdRead, PaletteCountResourceLimitsIndicesAndCmykInksAreInverted) {
  test::TempDir dir;
  Doc d;
  d.mode = 2;
  d.channels = 1;
  for (int c = 0; c < 3; ++c)
    for (int i = 0; i < 256; ++i) d.modeData.push_back(static_cast<uint8_t>(i * (c + 1)));
  // Resource 1046: 3 palette entries in use.
  d.resources = {'8', 'B', 'I', 'M', 0x04, 0x16, 0, 0, 0, 0, 0, 2, 0, 3};
  d.data = {0, 1, 2, 3, 200, 2, 1, 0, 7, 7, 7, 7};
  OwnedPicture pic;
  ASSERT_EQ(loadBytes(dir, build(d), pic), 0);
  ASSERT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(pic->colorCount, 3);
  EXPECT_EQ(pic.row(0)[3], 2);  // 3 clamped to the last entry
  EXPECT_EQ(pic.row(1)[0], 2);  // 200 too
  EXPECT_EQ(pic->palette[256 + 2], 4);

  // CMYK as stored: 255 = no ink. No ink is white; full K is black; full
  // cyan (0) with no black is (0,255,255); half black (127) halves it.
  Doc cmyk;
  cmyk.mode = 4;
  cmyk.channels = 4;
  cmyk.width = 4;
  cmyk.height = 1;
  cmyk.data = {255, 255, 0, 0, 255, 255, 255, 255, 255, 255, 255, 255, 255, 0, 255, 127};
  ASSERT_EQ(loadBytes(dir, build(cmyk), pic), 0);
  ASSERT_EQ(pic->type, IMK_RGB);
  const uint8_t expected[12] = {255, 255, 255, 0, 0, 0, 0, 255, 255, 0, 127, 127};
  EXPECT_TRUE(std::equal(expected, expected + 12, pic.row(0)));
}

// --- damaged and hostile documents ----------------------------------------------

TEST(PsdDamaged, CutPackBitsDataKeepsTheDecodedRowsWhenErrorsAreIgnored) {
  test::TempDir dir;
  OwnedPicture src;
  test::makePattern(src, IMK_GREY, 120, 80);
  ASSERT_EQ(test::save(dir.file("src.pgm"), src.rec, "pgm"), 0);
  for (const char* compression : {" -compress RLE", " -compress None"}) {
    ASSERT_TRUE(magickWrites(dir.file("src.pgm"), dir.file("g.psd"), compression));
    std::vector<uint8_t> bytes = test::readFile(dir.file("g.psd"));
    // Keep the headers and about half of the pixel rows.
    bytes.resize(bytes.size() - 120 * 80 / 2);
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(loadBytes(dir, bytes, pic, 0, &info), IMK_ERR_CORRUPT) << compression;
    EXPECT_NE(info.errorText[0], '\0');
    EXPECT_EQ(pic->pixels, nullptr);
    ASSERT_EQ(loadBytes(dir, bytes, pic, IMK_FLAG_IGNORE_ERRORS), 0) << compression;
    int same = 0;
    for (int y = 0; y < 80; ++y) same += std::equal(pic.row(y), pic.row(y) + 120, src.row(y));
    EXPECT_GE(same, 20) << compression;
    EXPECT_LT(same, 80) << compression;
  }
}

TEST(PsdHostile, BadHeadersAndLengthsPastTheEndFailCleanly) {
  test::TempDir dir;
  auto fails = [&](const std::vector<uint8_t>& bytes, const char* what) {
    for (uint16_t flags : {0, static_cast<int>(IMK_FLAG_IGNORE_ERRORS)}) {
      OwnedPicture pic;
      FileInfo info;
      const int rc = loadBytes(dir, bytes, pic, flags, &info);
      EXPECT_TRUE(rc == IMK_ERR_BAD_FILE || rc == IMK_ERR_CORRUPT) << what << ": " << rc;
      EXPECT_NE(info.errorText[0], '\0') << what;
      EXPECT_EQ(pic->pixels, nullptr) << what;
    }
  };
  Doc good;
  good.data = planes(3, 12, [](uint32_t c, uint32_t i) { return static_cast<int>(c * 50 + i); });
  OwnedPicture ok;
  ASSERT_EQ(loadBytes(dir, build(good), ok), 0);

  Doc d = good;
  d.width = d.height = 300000;  // no data for it
  fails(build(d), "huge");
  d = good, d.channels = 0;
  fails(build(d), "no channels");
  d = good, d.channels = 2;
  fails(build(d), "too few channels for RGB");
  d = good, d.depth = 32;
  fails(build(d), "32-bit");
  d = good, d.depth = 7;
  fails(build(d), "depth 7");
  d = good, d.mode = 9;
  fails(build(d), "Lab");
  d = good, d.mode = 2;
  fails(build(d), "indexed without palette");
  d = good, d.compression = 2;
  fails(build(d), "zip");
  // Section lengths past the end.
  std::vector<uint8_t> b = build(good);
  b[26] = 0x7F;  // colour mode data length
  fails(b, "colour mode data");
  b = build(good);
  b[30] = 0x7F;  // resources length
  fails(b, "resources");
  b = build(good);
  b[34] = 0x7F;  // layer section length
  fails(b, "layers");
  // A PackBits row table longer than the file.
  d = good, d.compression = 1, d.data = {0, 5};
  fails(build(d), "row table");
  // Row lengths far past the end, and runs longer than the rows: garbled
  // rows, never a read or write out of bounds.
  d = good;
  d.compression = 1;
  d.data.clear();
  for (int i = 0; i < 9; ++i) put16(d.data, i == 4 ? 60000 : 2);
  for (int i = 0; i < 9; ++i) d.data.insert(d.data.end(), {0x81, 0x33});  // a run of 128
  OwnedPicture pic;
  EXPECT_EQ(loadBytes(dir, build(d), pic), IMK_ERR_CORRUPT);
  ASSERT_EQ(loadBytes(dir, build(d), pic, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(pic.row(0)[0], 0x33);
  // Only the header.
  b = build(good);
  b.resize(20);
  fails(b, "short header");
}

TEST(PsdHostile, PixelBudgetRefusesLargeDocuments) {
  test::TempDir dir;
  Doc d;
  d.width = 400, d.height = 400, d.channels = 3;
  d.data.assign(400 * 400 * 3, 9);
  const std::string path = dir.file("big.psd");
  test::writeFile(path, build(d));
  OwnedPicture pic;
  FileInfo info;
  EXPECT_EQ(checks::loadWithBudget(path, 100 * 100 * 3, pic, &info), IMK_ERR_BAD_FILE);
  EXPECT_STREQ(info.errorText, "picture too large");
}

// --- progress ---------------------------------------------------------------

TEST(PsdProgress, ClimbsFromZeroAndStopsWhenAsked) {
  test::TempDir dir;
  Doc d;
  d.width = 200, d.height = 150;
  d.data.assign(200 * 150 * 3, 77);
  const std::string path = dir.file("p.psd");
  test::writeFile(path, build(d));
  checks::expectProgressClimbsAndStops(path);
}

}  // namespace
