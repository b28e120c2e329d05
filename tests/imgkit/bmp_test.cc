// BMP: round trips of every picture kind, the BMP Suite against its reference
// renderings, rejection of broken files, and cross-checks with ImageMagick
// and netpbm in both directions.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;

const std::string kSuite = test::corpusDir() + "/bmp/bmpsuite/";

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

// ImageMagick's decoding of `path` as RGBA.
bool magickRgba(const std::string& path, int width, int height, std::vector<uint8_t>* out) {
  std::string data;
  if (test::run("/usr/bin/convert " + test::quote(path + "[0]") + " -depth 8 rgba:- 2>/dev/null",
                &data) != 0)
    return false;
  if (data.size() != static_cast<size_t>(width) * height * 4) return false;
  out->assign(data.begin(), data.end());
  return true;
}

// Largest difference over colour channels of pixels that are not fully
// transparent in `ref`, and over alpha.
struct RgbaDiff {
  int color = 0;
  int alpha = 0;
};
RgbaDiff compareRgba(const std::vector<uint8_t>& got, const std::vector<uint8_t>& ref) {
  RgbaDiff d;
  if (got.size() != ref.size()) return {256, 256};
  for (size_t i = 0; i < got.size(); i += 4) {
    d.alpha = std::max(d.alpha, std::abs(got[i + 3] - ref[i + 3]));
    if (ref[i + 3] == 0) continue;
    for (int c = 0; c < 3; ++c) d.color = std::max(d.color, std::abs(got[i + c] - ref[i + c]));
  }
  return d;
}

uint32_t le32(const std::vector<uint8_t>& b, size_t at) {
  return b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) | (static_cast<uint32_t>(b[at + 3]) << 24);
}

// A hand-made BMP: a 40-byte header, a palette and the given pixel bytes.
std::vector<uint8_t> makeBmp(int32_t width, int32_t height, int bits, uint32_t compression,
                             const std::vector<uint32_t>& palette,
                             const std::vector<uint8_t>& pixels) {
  std::vector<uint8_t> b;
  auto u16 = [&](uint32_t v) { b.push_back(v & 255), b.push_back((v >> 8) & 255); };
  auto u32 = [&](uint32_t v) { u16(v & 0xFFFF), u16(v >> 16); };
  const uint32_t offset = 54 + 4 * static_cast<uint32_t>(palette.size());
  b.push_back('B'), b.push_back('M');
  u32(offset + static_cast<uint32_t>(pixels.size()));
  u32(0);
  u32(offset);
  u32(40);
  u32(static_cast<uint32_t>(width));
  u32(static_cast<uint32_t>(height));
  u16(1);
  u16(static_cast<uint32_t>(bits));
  u32(compression);
  u32(static_cast<uint32_t>(pixels.size()));
  u32(2835), u32(2835);
  u32(static_cast<uint32_t>(palette.size()));
  u32(0);
  for (uint32_t c : palette) u32(c);  // 0x00RRGGBB
  b.insert(b.end(), pixels.begin(), pixels.end());
  return b;
}

// ---------------------------------------------------------------------------

struct KindCase {
  const char* name;
  uint16_t type;
  int levels;       // grey levels / palette entries
  uint16_t loaded;  // the kind read back
  int bitsInFile;   // biBitCount written
};

TEST(BmpRoundTrip, EveryKindReadsBackWithTheSamePixels) {
  const KindCase cases[] = {
      {"binary", IMK_BINARY, 2, IMK_BINARY, 1},
      {"grey256", IMK_GREY, 256, IMK_GREY, 8},
      {"grey100", IMK_GREY, 100, IMK_GREY, 8},
      {"grey16", IMK_GREY, 16, IMK_GREY, 4},
      {"grey5", IMK_GREY, 5, IMK_GREY, 4},
      {"mapped200", IMK_MAPPED, 200, IMK_MAPPED, 8},
      {"mapped12", IMK_MAPPED, 12, IMK_MAPPED, 4},
      {"rgb", IMK_RGB, 0, IMK_RGB, 24},
      {"bgr", IMK_BGR, 0, IMK_RGB, 24},
      {"xbgr", IMK_XBGR, 0, IMK_RGB, 24},
      {"rgbx", IMK_RGBX, 0, IMK_RGBX, 32},
  };
  test::TempDir dir;
  for (const KindCase& c : cases) {
    for (int rle = 0; rle <= 1; ++rle) {
      SCOPED_TRACE(std::string(c.name) + (rle ? " rle" : " plain"));
      OwnedPicture src, back;
      test::makePattern(src, c.type, 37, 23, c.levels > 0 ? c.levels : 256);
      const std::string path = dir.file(std::string(c.name) + std::to_string(rle) + ".bmp");
      ASSERT_EQ(test::save(path, src.rec, "bmp", 0, rle), 0);
      const std::vector<uint8_t> bytes = test::readFile(path);
      ASSERT_GT(bytes.size(), 54u);
      EXPECT_EQ(bytes[28], c.bitsInFile);
      // RLE only exists for 4- and 8-bit palettes.
      const uint32_t compression = le32(bytes, 30);
      const uint32_t expected = !rle || c.bitsInFile == 24 || c.bitsInFile == 1 ? 0u
                                : c.bitsInFile == 8                             ? 1u
                                : c.bitsInFile == 4                             ? 2u
                                                                                : 3u;
      if (c.bitsInFile != 32) {
        EXPECT_EQ(compression, expected);
      } else {
        EXPECT_EQ(compression, 3u);  // bit fields with an alpha mask
      }

      ASSERT_EQ(test::load(path, back), 0);
      EXPECT_EQ(back->type, c.loaded);
      ASSERT_EQ(back->width, 37);
      ASSERT_EQ(back->height, 23);
      EXPECT_EQ(rgbaOf(back.rec), rgbaOf(src.rec));
      if (c.type == IMK_GREY || c.type == IMK_MAPPED) {
        EXPECT_EQ(back->colorCount, c.levels);
      }
      if (c.type == IMK_GREY || c.type == IMK_BINARY) {
        for (int y = 0; y < 23; ++y) EXPECT_EQ(std::memcmp(back.row(y), src.row(y), 37), 0) << y;
      }
    }
  }
}

TEST(BmpWrite, RleMakesFlatPicturesSmallerAndRowsArePadded) {
  test::TempDir dir;
  OwnedPicture flat;
  ASSERT_NE(imkAllock(&flat.rec, IMK_MAPPED, 8, 301, 40), 0);
  flat->colorCount = 40;
  for (int i = 0; i < 40; ++i)
    flat->palette[i] = flat->palette[256 + i] = static_cast<uint8_t>(i * 6);
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 301; ++x) flat.row(y)[x] = static_cast<uint8_t>(x < 150 ? y : 39 - y);
  ASSERT_EQ(test::save(dir.file("plain.bmp"), flat.rec, "bmp", 0, 0), 0);
  ASSERT_EQ(test::save(dir.file("rle.bmp"), flat.rec, "bmp", 0, 1), 0);
  const auto plain = test::readFile(dir.file("plain.bmp"));
  const auto rle = test::readFile(dir.file("rle.bmp"));
  // 301 pixels of 8 bits pad to 304 bytes a row.
  EXPECT_EQ(plain.size(), 14u + 40 + 40 * 4 + 304u * 40);
  EXPECT_LT(rle.size() * 10, plain.size());
  EXPECT_EQ(le32(rle, 2), rle.size());  // file size field
  OwnedPicture a, b;
  ASSERT_EQ(test::load(dir.file("plain.bmp"), a), 0);
  ASSERT_EQ(test::load(dir.file("rle.bmp"), b), 0);
  EXPECT_EQ(test::toRgb(a.rec), test::toRgb(b.rec));
  EXPECT_EQ(test::toRgb(a.rec), test::toRgb(flat.rec));
}

TEST(BmpWrite, PaletteIndicesBeyondTheColourCountAreClamped) {
  test::TempDir dir;
  OwnedPicture pic, back;
  ASSERT_NE(imkAllock(&pic.rec, IMK_MAPPED, 8, 4, 1), 0);
  pic->colorCount = 3;
  for (int i = 0; i < 3; ++i) pic->palette[i] = static_cast<uint8_t>(100 + i);
  const uint8_t row[4] = {0, 1, 2, 200};
  std::memcpy(pic.row(0), row, 4);
  ASSERT_EQ(test::save(dir.file("c.bmp"), pic.rec, "bmp"), 0);
  ASSERT_EQ(test::load(dir.file("c.bmp"), back), 0);
  EXPECT_EQ(back->colorCount, 3);
  EXPECT_EQ(back.row(0)[3], 2);
}

// ---------------------------------------------------------------------------
// BMP Suite.

struct SuiteCase {
  const char* file;
  const char* ref;
};

// g/ files and the q/ files we decode, with the suite's reference rendering.
// Where the suite allows alternatives for undefined RLE pixels, ours is the
// "-0" one (palette index 0).
const SuiteCase kSuiteCases[] = {
    {"g/pal1", "pal1"},
    {"g/pal1wb", "pal1"},
    {"g/pal1bg", "pal1bg"},
    {"g/pal4", "pal4"},
    {"g/pal4gs", "pal4gs"},
    {"g/pal4rle", "pal4"},
    {"g/pal8", "pal8"},
    {"g/pal8-0", "pal8"},
    {"g/pal8gs", "pal8gs"},
    {"g/pal8nonsquare", "pal8nonsquare-e"},
    {"g/pal8os2", "pal8"},
    {"g/pal8rle", "pal8"},
    {"g/pal8topdown", "pal8"},
    {"g/pal8v4", "pal8"},
    {"g/pal8v5", "pal8"},
    {"g/pal8w124", "pal8w124"},
    {"g/pal8w125", "pal8w125"},
    {"g/pal8w126", "pal8w126"},
    {"g/rgb16-565", "rgb16-565"},
    {"g/rgb16-565pal", "rgb16-565"},
    {"g/rgb16", "rgb16"},
    {"g/rgb16bfdef", "rgb16"},
    {"g/rgb24", "rgb24"},
    {"g/rgb24pal", "rgb24"},
    {"g/rgb32", "rgb24"},
    {"g/rgb32bf", "rgb24"},
    {"g/rgb32bfdef", "rgb24"},
    {"q/pal1p1", "pal1p1"},
    {"q/pal2", "pal2"},
    {"q/pal2color", "pal2color"},
    {"q/pal4rlecut", "pal4rlecut-0"},
    {"q/pal4rletrns", "pal4rletrns-0"},
    {"q/pal8offs", "pal8"},
    {"q/pal8os2-hs", "pal8"},
    {"q/pal8os2-sz", "pal8"},
    {"q/pal8os2sp", "pal8"},
    {"q/pal8os2v2-16", "pal8"},
    {"q/pal8os2v2-40sz", "pal8"},
    {"q/pal8os2v2-sz", "pal8"},
    {"q/pal8os2v2", "pal8"},
    {"q/pal8oversizepal", "pal8"},
    {"q/pal8rlecut", "pal8rlecut-0"},
    {"q/pal8rletrns", "pal8rletrns-0"},
    {"q/rgb16-231", "rgb16-231"},
    {"q/rgb16-3103", "rgb16-3103"},
    {"q/rgb16faketrns", "rgb16"},
    {"q/rgb24largepal", "rgb24"},
    {"q/rgb24lprof", "rgb24"},
    {"q/rgb24prof", "rgb24"},
    {"q/rgb32-111110", "rgb24"},
    {"q/rgb32-7187", "rgb32-7187"},
    {"q/rgb32-xbgr", "rgb24"},
    {"q/rgb32fakealpha", "rgb24"},
    {"q/rgb32h52", "rgb24"},
    {"q/rgba16-1924", "rgba16-1924"},
    {"q/rgba16-4444", "rgba16-4444"},
    {"q/rgba16-5551", "rgba16-5551"},
    {"q/rgba32-1", "rgba32"},
    {"q/rgba32-2", "rgba32"},
    {"q/rgba32-1010102", "rgba32-1010102"},
    {"q/rgba32-61754", "rgba32-61754"},
    {"q/rgba32-81284", "rgba32-81284"},
    {"q/rgba32abf", "rgba32"},
    {"q/rgba32h56", "rgba32"},
};

TEST(BmpSuite, FilesMatchTheReferenceRenderings) {
  for (const SuiteCase& c : kSuiteCases) {
    SCOPED_TRACE(c.file);
    OwnedPicture pic;
    ASSERT_EQ(test::load(kSuite + c.file + ".bmp", pic), 0);
    std::vector<uint8_t> ref;
    ASSERT_TRUE(magickRgba(kSuite + "ref/" + c.ref + ".png", pic->width, pic->height, &ref));
    // Channels of 10+ bits are rounded, so allow one step.
    const RgbaDiff d = compareRgba(rgbaOf(pic.rec), ref);
    EXPECT_LE(d.color, 1);
    EXPECT_LE(d.alpha, 1);
  }
}

TEST(BmpSuite, PalettesBecomeBinaryOrGreyOnlyWhenExact) {
  OwnedPicture pic;
  ASSERT_EQ(test::load(kSuite + "g/pal1.bmp", pic), 0);
  EXPECT_EQ(pic->type, IMK_BINARY);
  ASSERT_EQ(test::load(kSuite + "g/pal1wb.bmp", pic), 0);  // white first: indices swapped
  EXPECT_EQ(pic->type, IMK_BINARY);
  ASSERT_EQ(test::load(kSuite + "g/pal1bg.bmp", pic), 0);  // blue and green
  EXPECT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(pic->colorCount, 2);
  ASSERT_EQ(test::load(kSuite + "q/pal2.bmp", pic), 0);  // 4-level grey ramp
  EXPECT_EQ(pic->type, IMK_GREY);
  EXPECT_EQ(pic->colorCount, 4);
  ASSERT_EQ(test::load(kSuite + "g/pal8gs.bmp", pic), 0);  // 252 greys, not a ramp
  EXPECT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(pic->colorCount, 252);
  ASSERT_EQ(test::load(kSuite + "g/rgb24.bmp", pic), 0);
  EXPECT_EQ(pic->type, IMK_RGB);
  ASSERT_EQ(test::load(kSuite + "q/rgba32-1.bmp", pic), 0);
  EXPECT_EQ(pic->type, IMK_RGBX);
  // 32-bit BI_RGB: the fourth byte is not alpha even when it is set.
  ASSERT_EQ(test::load(kSuite + "q/rgb32fakealpha.bmp", pic), 0);
  EXPECT_EQ(pic->type, IMK_RGB);
}

TEST(BmpSuite, BadFilesAreRejectedWithAReason) {
  const char* bad[] = {"badbitcount",   "badbitssize",    "baddens1",  "baddens2",   "badfilesize",
                       "badheadersize", "badpalettesize", "badplanes", "badrle",     "badrle4",
                       "badrle4bis",    "badrle4ter",     "badrlebis", "badrleter",  "badwidth",
                       "pal8badindex",  "reallybig",      "rgb16-880", "rletopdown", "shortfile"};
  for (const char* name : bad) {
    SCOPED_TRACE(name);
    OwnedPicture pic;
    FileInfo info;
    const int rc = test::load(kSuite + "b/" + name + ".bmp", pic, 0, 0, &info);
    EXPECT_TRUE(rc == IMK_ERR_BAD_FILE || rc == IMK_ERR_CORRUPT) << rc;
    EXPECT_NE(info.errorText[0], '\0');
    EXPECT_EQ(pic->pixels, nullptr);
    // Keeping what can be decoded must not reach outside the file either.
    test::load(kSuite + "b/" + name + ".bmp", pic, 0, IMK_FLAG_IGNORE_ERRORS);
  }
}

TEST(BmpSuite, UnsupportedVariantsFailCleanly) {
  for (const char* name :
       {"q/pal1huffmsb", "q/rgb24jpeg", "q/rgb24png", "q/rgb24rle24", "q/rgba64"}) {
    SCOPED_TRACE(name);
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(test::load(kSuite + name + ".bmp", pic, 0, 0, &info), IMK_ERR_BAD_FILE);
    EXPECT_NE(info.errorText[0], '\0');
  }
}

TEST(BmpSuite, OutOfRangePaletteIndicesAreDamageAndShowBlack) {
  OwnedPicture pic;
  FileInfo info;
  EXPECT_EQ(test::load(kSuite + "b/pal8badindex.bmp", pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_STREQ(info.errorText, "palette index out of range");
  ASSERT_EQ(test::load(kSuite + "b/pal8badindex.bmp", pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  ASSERT_EQ(pic->type, IMK_MAPPED);
  // The file's palette has 101 entries; every index used is below the count
  // and the entries the file lacks are black.
  EXPECT_GT(pic->colorCount, 101);
  for (int y = 0; y < pic->height; ++y)
    for (int x = 0; x < pic->width; ++x) ASSERT_LT(pic.row(y)[x], pic->colorCount);
  for (int i = 101; i < pic->colorCount; ++i)
    EXPECT_EQ(pic->palette[i] | pic->palette[256 + i] | pic->palette[512 + i], 0);
}

TEST(BmpInfo, HeadersGivePlanesAndBitsWithoutDecoding) {
  struct Case {
    const char* file;
    int planes, bits;
  } cases[] = {{"g/pal1", 1, 1},  {"g/pal4rle", 1, 4}, {"g/pal8os2", 1, 8},  {"g/rgb16-565", 1, 16},
               {"g/rgb24", 3, 8}, {"g/rgb32bf", 4, 8}, {"b/shortfile", 1, 1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    FileInfo info;
    // shortfile lacks most of its pixels: headers alone are fine.
    ASSERT_EQ(imkFileInformation((kSuite + c.file + ".bmp").c_str(), -1, 0, &info), 0);
    EXPECT_EQ(info.formatIndex, imkGetIndex("bmp"));
    EXPECT_EQ(info.width, 127);
    EXPECT_EQ(info.height, 64);
    EXPECT_EQ(info.planes, c.planes);
    EXPECT_EQ(info.bitsPerPlane, c.bits);
    EXPECT_EQ(info.pictureCount, 1);
  }
}

// ---------------------------------------------------------------------------
// Hand-made files.

TEST(BmpRead, RleRunsIntoRowPaddingAreDroppedButRunsBeyondItAreDamage) {
  test::TempDir dir;
  const std::vector<uint32_t> pal = {0x000000, 0xFF0000, 0x00FF00};
  // 3 pixels wide: an uncompressed row would be 4 bytes, so a run of 4 only
  // covers the padding; a run of 5 reaches into the next row.
  test::writeFile(dir.file("pad.bmp"), makeBmp(3, 2, 8, 1, pal, {4, 1, 0, 0, 4, 2, 0, 1}));
  test::writeFile(dir.file("over.bmp"), makeBmp(3, 2, 8, 1, pal, {5, 1, 0, 0, 3, 2, 0, 1}));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("pad.bmp"), pic), 0);
  // Bottom-up: the first row in the file is the bottom one.
  for (int x = 0; x < 3; ++x) {
    EXPECT_EQ(pic.row(1)[x], 1);
    EXPECT_EQ(pic.row(0)[x], 2);
  }
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("over.bmp"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_STREQ(info.errorText, "RLE run past end of row");
}

TEST(BmpRead, RleDeltaAndEarlyEndLeaveIndexZero) {
  test::TempDir dir;
  const std::vector<uint32_t> pal = {0x102030, 0xFFFFFF};
  // 4x3: row 0 (bottom) "1 1 0 1" via a delta of 1; then end of bitmap.
  const std::vector<uint8_t> codes = {2, 1, 0, 2, 1, 0, 1, 1, 0, 0, 0, 1};
  test::writeFile(dir.file("d.bmp"), makeBmp(4, 3, 8, 1, pal, codes));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("d.bmp"), pic), 0);
  ASSERT_EQ(pic->type, IMK_MAPPED);
  const uint8_t bottom[4] = {1, 1, 0, 1};
  EXPECT_EQ(std::memcmp(pic.row(2), bottom, 4), 0);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 4; ++x) EXPECT_EQ(pic.row(y)[x], 0);
}

TEST(BmpRead, RleFourBitRunsAlternateNibbles) {
  test::TempDir dir;
  const std::vector<uint32_t> pal = {0, 0x0000FF, 0x00FF00, 0xFF0000};
  // A run of 5 of 0x12 is 1 2 1 2 1; an absolute run of 3 is 3 2 1 (+pad).
  const std::vector<uint8_t> codes = {5, 0x12, 0, 3, 0x32, 0x10, 0, 1};
  test::writeFile(dir.file("r4.bmp"), makeBmp(8, 1, 4, 2, pal, codes));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("r4.bmp"), pic), 0);
  const uint8_t want[8] = {1, 2, 1, 2, 1, 3, 2, 1};
  EXPECT_EQ(std::memcmp(pic.row(0), want, 8), 0);
}

TEST(BmpRead, HostileHeadersAreRejected) {
  test::TempDir dir;
  struct Case {
    const char* name;
    std::vector<uint8_t> bytes;
  };
  std::vector<Case> cases = {
      {"zero height", makeBmp(4, 0, 24, 0, {}, std::vector<uint8_t>(16))},
      {"negative width", makeBmp(-4, 1, 24, 0, {}, std::vector<uint8_t>(16))},
      {"huge", makeBmp(1 << 30, 1 << 30, 24, 0, {}, std::vector<uint8_t>(16))},
      {"top-down rle", makeBmp(4, -2, 8, 1, {0, 0}, {0, 1})},
      {"rle8 with 4 bits", makeBmp(4, 2, 4, 1, {0, 0}, {0, 1})},
      {"bit count 7", makeBmp(4, 2, 7, 0, {}, std::vector<uint8_t>(16))},
      {"compression 9", makeBmp(4, 2, 24, 9, {}, std::vector<uint8_t>(32))},
  };
  // Overlapping bit fields.
  std::vector<uint8_t> overlap =
      makeBmp(2, 2, 16, 3, {0xF800, 0x0FE0, 0x001F}, std::vector<uint8_t>(8));
  cases.push_back({"overlapping masks", overlap});
  // A palette running past the end of the file.
  std::vector<uint8_t> shortPal = makeBmp(2, 2, 8, 0, {0, 0}, {});
  shortPal[46] = 200;  // colours used
  cases.push_back({"palette past end", shortPal});
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    test::writeFile(dir.file("h.bmp"), c.bytes);
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(test::load(dir.file("h.bmp"), pic, 0, IMK_FLAG_IGNORE_ERRORS, &info),
              IMK_ERR_BAD_FILE);
    EXPECT_NE(info.errorText[0], '\0');
    EXPECT_NE(imkFileInformation(dir.file("h.bmp").c_str(), -1, 0, &info), 0);
  }
}

TEST(BmpRead, TruncatedPixelsKeepTheDecodedRowsOnlyWithIgnoreErrors) {
  test::TempDir dir;
  OwnedPicture src, pic;
  test::makePattern(src, IMK_RGB, 20, 10, 256);
  ASSERT_EQ(test::save(dir.file("full.bmp"), src.rec, "bmp"), 0);
  std::vector<uint8_t> bytes = test::readFile(dir.file("full.bmp"));
  // 20 RGB pixels pad to 60 bytes a row; keep the bottom 4 rows and a half.
  bytes.resize(54 + 60 * 4 + 30);
  test::writeFile(dir.file("cut.bmp"), bytes);
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("cut.bmp"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_STREQ(info.errorText, "truncated");
  EXPECT_EQ(pic->pixels, nullptr);
  ASSERT_EQ(test::load(dir.file("cut.bmp"), pic, 0, IMK_FLAG_IGNORE_ERRORS, &info), 0);
  EXPECT_STREQ(info.errorText, "truncated");
  for (int y = 6; y < 10; ++y) EXPECT_EQ(std::memcmp(pic.row(y), src.row(y), 60), 0) << y;
  EXPECT_EQ(std::memcmp(pic.row(5), src.row(5), 30), 0);  // the half row
  for (int y = 0; y < 5; ++y)
    for (int i = 0; i < 60; ++i) ASSERT_EQ(pic.row(y)[i], 0) << y;
}

int gSteps;
int stopAtThree(int step, int) {
  ++gSteps;
  return step >= 3;
}

TEST(BmpProgress, StoppingGivesCode15AndNoPicture) {
  test::TempDir dir;
  OwnedPicture src, pic;
  test::makePattern(src, IMK_MAPPED, 64, 80, 200);
  for (int rle = 0; rle <= 1; ++rle) {
    SCOPED_TRACE(rle);
    ASSERT_EQ(test::save(dir.file("p.bmp"), src.rec, "bmp", 0, rle), 0);
    LoadOptions o;
    imkDefaultOption(&o);
    o.flags |= IMK_FLAG_PROGRESS;
    o.progress = stopAtThree;
    gSteps = 0;
    EXPECT_EQ(imkLoad(dir.file("p.bmp").c_str(), &pic.rec, &o, nullptr), IMK_ERR_STOPPED);
    EXPECT_EQ(pic->pixels, nullptr);
    EXPECT_EQ(gSteps, 4);  // steps 0..3
  }
  // Saving stops the same way and leaves no file behind.
  LoadOptions o;
  imkDefaultOption(&o);
  o.formatIndex = imkGetIndex("bmp");
  o.flags |= IMK_FLAG_PROGRESS;
  o.progress = stopAtThree;
  EXPECT_EQ(imkSave(dir.file("stopped.bmp").c_str(), &src.rec, &o), IMK_ERR_STOPPED);
  EXPECT_FALSE(test::fileExists(dir.file("stopped.bmp")));
}

// ---------------------------------------------------------------------------
// Independent tools.

TEST(BmpCrossCheck, ImageMagickAndNetpbmReadOurFiles) {
  const KindCase cases[] = {
      {"binary", IMK_BINARY, 2, 0, 1},  {"grey", IMK_GREY, 256, 0, 8},
      {"grey9", IMK_GREY, 9, 0, 4},     {"mapped", IMK_MAPPED, 180, 0, 8},
      {"mapped7", IMK_MAPPED, 7, 0, 4}, {"bgr", IMK_BGR, 0, 0, 24},
      {"rgbx", IMK_RGBX, 0, 0, 32},
  };
  test::TempDir dir;
  for (const KindCase& c : cases) {
    for (int rle = 0; rle <= 1; ++rle) {
      SCOPED_TRACE(std::string(c.name) + (rle ? " rle" : " plain"));
      OwnedPicture src;
      test::makePattern(src, c.type, 41, 17, c.levels > 0 ? c.levels : 256);
      const std::string path = dir.file("x.bmp");
      ASSERT_EQ(test::save(path, src.rec, "bmp", 0, rle), 0);
      std::vector<uint8_t> im;
      ASSERT_TRUE(magickRgba(path, 41, 17, &im));
      const RgbaDiff d = compareRgba(im, rgbaOf(src.rec));
      EXPECT_EQ(d.color, 0);
      EXPECT_EQ(d.alpha, 0);
      if (c.type == IMK_RGBX) continue;  // netpbm leaves alpha aside
      ASSERT_EQ(test::run("bmptopnm " + test::quote(path) + " > " + test::quote(dir.file("x.pnm")) +
                          " 2>/dev/null"),
                0);
      int w, h;
      std::vector<uint8_t> rgb;
      ASSERT_TRUE(test::readNetpbmAsRgb(dir.file("x.pnm"), &w, &h, &rgb));
      EXPECT_EQ(rgb, test::toRgb(src.rec));
    }
  }
}

TEST(BmpCrossCheck, WeReadFilesWrittenByImageMagickAndNetpbm) {
  const std::string source = test::corpusDir() + "/pnm/libjpeg-turbo/testorig.ppm";
  int w, h;
  std::vector<uint8_t> want;
  ASSERT_TRUE(test::readNetpbmAsRgb(source, &w, &h, &want));
  test::TempDir dir;
  const std::string q = test::quote(source);
  struct Tool {
    const char* name;
    std::string command;  // writes out.bmp from the source picture
    bool exact;           // the same colours as the source
  } tools[] = {
      {"ppmtobmp", "ppmtobmp " + q, true},
      {"ppmtobmp os2", "ppmtobmp -os2 " + q, true},
      {"ppmtobmp 8-bit", "pnmquant 200 " + q + " 2>/dev/null | ppmtobmp", false},
      {"convert 24-bit", "convert " + q + " bmp3:-", true},
      {"convert rle8", "convert " + q + " -colors 200 -compress rle bmp3:-", false},
      {"convert 565", "convert " + q + " -define bmp:subtype=RGB565 bmp:-", false},
      {"convert v5 alpha", "convert " + q + " -alpha set -channel A -evaluate set 50% bmp:-",
       false},
  };
  for (const Tool& t : tools) {
    SCOPED_TRACE(t.name);
    const std::string out = dir.file("out.bmp");
    ASSERT_EQ(test::run(t.command + " > " + test::quote(out) + " 2>/dev/null"), 0);
    OwnedPicture pic;
    ASSERT_EQ(test::load(out, pic), 0);
    ASSERT_EQ(pic->width, w);
    ASSERT_EQ(pic->height, h);
    std::vector<uint8_t> ref;
    if (t.exact) {
      ref = want;
      EXPECT_EQ(test::toRgb(pic.rec), ref);
    } else {
      ASSERT_TRUE(magickRgba(out, w, h, &ref));
      const RgbaDiff d = compareRgba(rgbaOf(pic.rec), ref);
      EXPECT_LE(d.color, 1);  // 5/6-bit channels: rounding versus shifting
      EXPECT_LE(d.alpha, 1);
    }
  }
}

TEST(BmpCorpus, FilesFromOtherWritersMatchImageMagick) {
  const std::string dir = test::corpusDir() + "/bmp/";
  const char* files[] = {
      "generated/gimp_rle4.bmp",
      "generated/gimp_rle8.bmp",
      "generated/gm_rle8.bmp",
      "generated/im_16col_rle.bmp",
      "generated/im_rle8.bmp",
      "generated/im_rgba_v5.bmp",
      "generated/np_1bit.bmp",
      "generated/np_24bit.bmp",
      "generated/np_4bit.bmp",
      "generated/np_8bit.bmp",
      "generated/np_os2_8bit.bmp",
      "generated/pil_p.bmp",
      "image-rs/Core_1_Bit.bmp",
      "image-rs/Core_4_Bit.bmp",
      "image-rs/Core_8_Bit.bmp",
      "image-rs/Info_8_Bit_Top_Down.bmp",
      "image-rs/Info_X1_R5_G5_B5.bmp",
      "image-rs/V4_A8_R8_G8_B8.bmp",
      "libjpeg-turbo/vgl_6434_0018a.bmp",
      "pillow/hopper.bmp",
      "sdl_image/palette.bmp",
      "sdl_image/sample.bmp",
      "gdk-pixbuf/reftests/mandatory-bitmasks.bmp",
  };
  for (const char* f : files) {
    SCOPED_TRACE(f);
    OwnedPicture pic;
    ASSERT_EQ(test::load(dir + f, pic), 0);
    std::vector<uint8_t> ref;
    ASSERT_TRUE(magickRgba(dir + f, pic->width, pic->height, &ref));
    const RgbaDiff d = compareRgba(rgbaOf(pic.rec), ref);
    EXPECT_EQ(d.color, 0);
    EXPECT_EQ(d.alpha, 0);
  }
}

TEST(BmpCorpus, BrokenFilesFromOtherSuitesFail) {
  const std::string dir = test::corpusDir() + "/bmp/";
  for (const char* f :
       {"gdk-pixbuf/fail/bug776694.bmp", "gdk-pixbuf/fail/bug777315.bmp",
        "gdk-pixbuf/fail/invalid.1.bmp", "gdk-pixbuf/randomly-modified/bmp-line-overflow.bmp",
        "gdk-pixbuf/randomly-modified/bug775242.bmp", "image-rs/bad/Bad_clrsUsed.bmp",
        "image-rs/bad/Bad_height.bmp", "image-rs/bad/Bad_unusual_extend_buffer_usage.bmp",
        "image-rs/bad/Bad_width.bmp"}) {
    SCOPED_TRACE(f);
    OwnedPicture pic;
    EXPECT_NE(test::load(dir + f, pic), 0);
    EXPECT_EQ(pic->pixels, nullptr);
  }
}

}  // namespace
