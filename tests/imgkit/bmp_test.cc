// BMP: round trips of every picture kind, the BMP Suite against its reference
// renderings, rejection of broken files, and cross-checks with ImageMagick
// and netpbm in both directions.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

namespace {

using test::OwnedPicture;

const std::string kSuite = test::corpusDir() + "/bmp/bmpsuite/";

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

// The declared bits per pixel, and the compression: RLE8 / RLE4 for 8- and
// 4-bit palettes when asked, bit fields with an alpha mask for 32 bits.
void bmpHeader(const std::vector<uint8_t>& file, const checks::RoundTripCase& c, int rle) {
  ASSERT_GT(file.size(), 54u);
  EXPECT_EQ(file[28], c.fileDepth);
  const uint32_t want = c.fileDepth == 32         ? 3u
                        : !rle || c.fileDepth > 8 ? 0u
                        : c.fileDepth == 8        ? 1u
                        : c.fileDepth == 4        ? 2u
                                                  : 0u;
  EXPECT_EQ(test::le(file, 30), want);
}

checks::RoundTripCase bmp(uint16_t kind, int levels, uint16_t loaded, int bits) {
  const bool indexed = kind == IMK_GREY || kind == IMK_MAPPED;
  return {.format = "bmp",
          .kind = kind,
          .levels = levels,
          .loaded = loaded,
          .options = {0, 1},
          .colours = indexed ? levels : -1,
          .sameNumbers = kind == IMK_GREY || kind == IMK_BINARY,
          // netpbm leaves the alpha of 32-bit files aside.
          .toolReads = kind == IMK_RGBX ? std::vector<const char*>{}
                                        : std::vector<const char*>{"bmptopnm {file}"},
          .header = bmpHeader,
          .fileDepth = bits};
}

INSTANTIATE_TEST_SUITE_P(
    Bmp, RoundTrip,
    testing::Values(bmp(IMK_BINARY, 2, IMK_BINARY, 1), bmp(IMK_GREY, 256, IMK_GREY, 8),
                    bmp(IMK_GREY, 100, IMK_GREY, 8), bmp(IMK_GREY, 16, IMK_GREY, 4),
                    bmp(IMK_GREY, 5, IMK_GREY, 4), bmp(IMK_MAPPED, 200, IMK_MAPPED, 8),
                    bmp(IMK_MAPPED, 12, IMK_MAPPED, 4), bmp(IMK_RGB, 256, IMK_RGB, 24),
                    bmp(IMK_BGR, 256, IMK_RGB, 24), bmp(IMK_XBGR, 256, IMK_RGB, 24),
                    bmp(IMK_RGBX, 256, IMK_RGBX, 32)),
    checks::caseName<checks::RoundTripCase>);

// 5/6-bit channels differ by rounding versus shifting: one step.
INSTANTIATE_TEST_SUITE_P(
    Bmp, ToolWrites,
    testing::Values(checks::ToolWriteCase{"bmp", "ppmtobmp {orig} > {out}", "orig"},
                    checks::ToolWriteCase{"bmp", "ppmtobmp -os2 {orig} > {out}", "orig"},
                    checks::ToolWriteCase{
                        "bmp", "pnmquant 200 {orig} 2>/dev/null | ppmtobmp > {out}", nullptr, 1},
                    checks::ToolWriteCase{"bmp", "convert {orig} bmp3:{out}", "orig"},
                    checks::ToolWriteCase{
                        "bmp", "convert {orig} -colors 200 -compress rle bmp3:{out}", nullptr, 1},
                    checks::ToolWriteCase{
                        "bmp", "convert {orig} -define bmp:subtype=RGB565 bmp:{out}", nullptr, 1},
                    checks::ToolWriteCase{
                        "bmp", "convert {orig} -alpha set -channel A -evaluate set 50% bmp:{out}",
                        nullptr, 1}),
    checks::caseName<checks::ToolWriteCase>);

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
  EXPECT_EQ(test::le(rle, 2), rle.size());  // file size field
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
const SuiteCase kSuiteCases[] = {{"g/pal1", "pal1"},
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
                                 {"q/rgba32h56", "rgba32"}};

TEST(BmpSuite, FilesMatchTheReferenceRenderings) {
  for (const SuiteCase& c : kSuiteCases) {
    SCOPED_TRACE(c.file);
    OwnedPicture pic;
    ASSERT_EQ(test::load(kSuite + c.file + ".bmp", pic), 0);
    std::vector<uint8_t> ref;
    ASSERT_TRUE(test::magickRgba(kSuite + "ref/" + c.ref + ".png", pic->width, pic->height, &ref));
    // Channels of 10+ bits are rounded, so allow one step.
    const test::RgbaDiff d = test::compareRgba(test::rgbaOf(pic.rec), ref);
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
  std::vector<uint8_t> shortPal = makeBmp(2, 2, 8, 0, {0, 0}, {});
  shortPal[46] = 200;  // colours used: a palette running past the end of the file
  test::expectRefused({
      {"zero height", makeBmp(4, 0, 24, 0, {}, std::vector<uint8_t>(16))},
      {"negative width", makeBmp(-4, 1, 24, 0, {}, std::vector<uint8_t>(16))},
      {"huge", makeBmp(1 << 30, 1 << 30, 24, 0, {}, std::vector<uint8_t>(16))},
      {"top-down rle", makeBmp(4, -2, 8, 1, {0, 0}, {0, 1})},
      {"rle8 with 4 bits", makeBmp(4, 2, 4, 1, {0, 0}, {0, 1})},
      {"bit count 7", makeBmp(4, 2, 7, 0, {}, std::vector<uint8_t>(16))},
      {"compression 9", makeBmp(4, 2, 24, 9, {}, std::vector<uint8_t>(32))},
      {"overlapping masks",
       makeBmp(2, 2, 16, 3, {0xF800, 0x0FE0, 0x001F}, std::vector<uint8_t>(8))},
      {"palette past end", shortPal},
  });
}

TEST(BmpRead, TruncatedPixelsKeepTheDecodedRowsOnlyWithIgnoreErrors) {
  test::TempDir dir;
  OwnedPicture src, pic;
  test::makePattern(src, IMK_RGB, 20, 10, 256);
  ASSERT_EQ(test::save(dir.file("full.bmp"), src.rec, "bmp"), 0);
  // 20 RGB pixels pad to 60 bytes a row; keep the bottom 4 rows and a half.
  test::expectCutFileKeepsRows(test::readFile(dir.file("full.bmp")), 54 + 60 * 4 + 30, "truncated",
                               pic);
  ASSERT_NE(pic->pixels, nullptr);
  for (int y = 6; y < 10; ++y) EXPECT_EQ(std::memcmp(pic.row(y), src.row(y), 60), 0) << y;
  EXPECT_EQ(std::memcmp(pic.row(5), src.row(5), 30), 0);  // the half row
  for (int y = 0; y < 5; ++y)
    for (int i = 0; i < 60; ++i) ASSERT_EQ(pic.row(y)[i], 0) << y;
}

TEST(BmpProgress, StoppingGivesCode15AndNoPicture) {
  test::TempDir dir;
  OwnedPicture src;
  test::makePattern(src, IMK_MAPPED, 64, 80, 200);
  for (int rle = 0; rle <= 1; ++rle) {
    SCOPED_TRACE(rle);
    ASSERT_EQ(test::save(dir.file("p.bmp"), src.rec, "bmp", 0, rle), 0);
    checks::expectEveryStepAndStopAt(dir.file("p.bmp"), 3);
  }
  // Saving stops the same way and leaves no file behind.
  checks::expectStoppedAndFailedSavesLeaveFilesAlone(src.rec, "bmp");
}

TEST(BmpCorpus, FilesFromOtherWritersMatchImageMagick) {
  const std::string dir = test::corpusDir() + "/bmp/";
  const char* files[] = {"generated/gimp_rle4.bmp",
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
                         "gdk-pixbuf/reftests/mandatory-bitmasks.bmp"};
  for (const char* f : files) {
    SCOPED_TRACE(f);
    OwnedPicture pic;
    ASSERT_EQ(test::load(dir + f, pic), 0);
    std::vector<uint8_t> ref;
    ASSERT_TRUE(test::magickRgba(dir + f, pic->width, pic->height, &ref));
    const test::RgbaDiff d = test::compareRgba(test::rgbaOf(pic.rec), ref);
    EXPECT_EQ(d.color, 0);
    EXPECT_EQ(d.alpha, 0);
  }
}

}  // namespace
