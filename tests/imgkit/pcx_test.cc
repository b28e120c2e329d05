// PCX and DCX: round trips of every kind with and without run-length coding,
// files checked against ImageMagick and netpbm in both directions, the
// layouts of hand-made files (bit planes, packed pixels, header palettes),
// run-length codes that cross lines, and hostile headers. At the end, huge
// headers of the four hand-written raster readers (PCX, Targa, SGI, Sun).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

namespace {

using test::OwnedPicture;

// A PCX header followed by `data` (and, for 8-bit files, nothing else:
// callers append a palette when they want one).
std::vector<uint8_t> makePcx(int width, int height, int bits, int planes, int bytesPerLine,
                             int encoding, const std::vector<uint8_t>& data,
                             const std::vector<uint8_t>& headerPalette = {}, int version = 5) {
  std::vector<uint8_t> b(128, 0);
  auto u16 = [&](size_t at, int v) { b[at] = v & 255, b[at + 1] = (v >> 8) & 255; };
  b[0] = 0x0A, b[1] = static_cast<uint8_t>(version), b[2] = static_cast<uint8_t>(encoding);
  b[3] = static_cast<uint8_t>(bits);
  u16(8, width - 1);
  u16(10, height - 1);
  for (size_t i = 0; i < headerPalette.size() && i < 48; ++i) b[16 + i] = headerPalette[i];
  b[65] = static_cast<uint8_t>(planes);
  u16(66, bytesPerLine);
  u16(68, 1);
  b.insert(b.end(), data.begin(), data.end());
  return b;
}

// The 256-colour palette that ends 8-bit files: entry i = (i, 255 - i, 7).
void appendPalette(std::vector<uint8_t>& file) {
  file.push_back(12);
  for (int i = 0; i < 256; ++i) file.insert(file.end(), {uint8_t(i), uint8_t(255 - i), 7});
}

std::vector<uint8_t> rgbAt(const OwnedPicture& pic, int x, int y) {
  const std::vector<uint8_t> all = test::toRgb(pic.rec);
  const size_t i = (static_cast<size_t>(y) * pic->width + x) * 3;
  return {all[i], all[i + 1], all[i + 2]};
}

// Encoding, bits per pixel per plane, planes, and an even line length.
void pcxHeader(const std::vector<uint8_t>& file, const checks::RoundTripCase& c, int rle) {
  ASSERT_GT(file.size(), 128u);
  EXPECT_EQ(file[2], rle);
  EXPECT_EQ(file[3], c.fileDepth);
  EXPECT_EQ(file[65], c.fileKind);
  EXPECT_EQ(test::le(file, 66, 2) % 2, 0u);
}

// Black-and-white files are the exception: ImageMagick shows a set bit of a
// 1-bit PCX as black whatever the palette says (it does so for the files of
// every writer in the corpus too), GraphicsMagick as white whatever the
// palette says, netpbm through the palette. Ours say 0 = black, 1 = white in
// both the bits and the palette; GraphicsMagick and netpbm check them.
// netpbm reads run-length coded files only.
std::vector<checks::RoundTripCase> pcxCases() {
  const struct {
    uint16_t kind;
    int levels;
    uint16_t loaded;
    int bits, planes;
  } kinds[] = {{IMK_BINARY, 2, IMK_BINARY, 1, 1},  {IMK_GREY, 256, IMK_GREY, 8, 1},
               {IMK_GREY, 16, IMK_MAPPED, 8, 1},   {IMK_MAPPED, 200, IMK_MAPPED, 8, 1},
               {IMK_MAPPED, 12, IMK_MAPPED, 8, 1}, {IMK_RGB, 256, IMK_RGB, 8, 3},
               {IMK_BGR, 256, IMK_RGB, 8, 3},      {IMK_XBGR, 256, IMK_RGB, 8, 3},
               {IMK_RGBX, 256, IMK_RGB, 8, 3}};
  std::vector<checks::RoundTripCase> cases;
  for (const auto& k : kinds)
    for (int rle = 0; rle <= 1; ++rle) {
      std::vector<const char*> tools;
      if (k.kind == IMK_BINARY) tools.push_back("gm convert {file} -depth 8 ppm:-");
      if (rle) tools.push_back("pcxtoppm {file}");
      cases.push_back({.format = "pcx",
                       .kind = k.kind,
                       .levels = k.levels,
                       .loaded = k.loaded,
                       .options = {rle},
                       .sameNumbers = k.kind < IMK_RGB,
                       .magickReads = k.kind != IMK_BINARY,
                       .toolReads = tools,
                       .header = pcxHeader,
                       .fileKind = k.planes,
                       .fileDepth = k.bits});
    }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Pcx, RoundTrip, testing::ValuesIn(pcxCases()),
                         checks::caseName<checks::RoundTripCase>);

// PCX stores these losslessly: the source's pixels come back.
INSTANTIATE_TEST_SUITE_P(
    Pcx, ToolWrites,
    testing::Values(
        checks::ToolWriteCase{"pcx", "convert {dir}/rgb.ppm -type TrueColor {out}", "rgb"},
        checks::ToolWriteCase{"pcx", "convert {dir}/pal16.ppm -type Palette {out}", "pal16"},
        checks::ToolWriteCase{"pcx", "convert {dir}/bin.pbm -type Bilevel {out}", "bin"},
        checks::ToolWriteCase{"pcx", "convert {dir}/grey.pgm {out}", "grey"},
        checks::ToolWriteCase{"pcx", "ppmtopcx -24bit {dir}/rgb.ppm > {out}", "rgb"},
        checks::ToolWriteCase{"pcx", "ppmtopcx -8bit {dir}/pal16.ppm > {out}", "pal16"},
        checks::ToolWriteCase{"pcx", "ppmtopcx -planes 4 {dir}/pal16.ppm > {out}", "pal16"},
        checks::ToolWriteCase{"pcx", "ppmtopcx -packed {dir}/pal16.ppm > {out}", "pal16"},
        checks::ToolWriteCase{"pcx", "ppmtopcx {dir}/bin.pbm > {out}", "bin"}),
    checks::caseName<checks::ToolWriteCase>);

TEST(PcxWrite, CompressionShrinksFlatPicturesAndBytesAbove191AreEscaped) {
  test::TempDir dir;
  OwnedPicture flat, back;
  ASSERT_NE(imkAllock(&flat.rec, IMK_GREY, 8, 300, 20), 0);
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 300; ++x) flat.row(y)[x] = static_cast<uint8_t>(x < 150 ? 200 : 0xC5 + y);
  // Lone bytes that look like run codes must be written as runs of one.
  for (int y = 0; y < 20; ++y) flat.row(y)[0] = 0xC7, flat.row(y)[1] = 0x05;
  ASSERT_EQ(test::save(dir.file("plain.pcx"), flat.rec, "pcx", 0, 0), 0);
  ASSERT_EQ(test::save(dir.file("rle.pcx"), flat.rec, "pcx", 0, 1), 0);
  // Plain: header, 300 bytes a line, the palette.
  EXPECT_EQ(test::readFile(dir.file("plain.pcx")).size(), 128u + 300 * 20 + 769);
  EXPECT_LT(test::readFile(dir.file("rle.pcx")).size(), 128u + 300 * 2 + 769);
  ASSERT_EQ(test::load(dir.file("rle.pcx"), back), 0);
  EXPECT_EQ(test::pixelsOf(back.rec), test::pixelsOf(flat.rec));
}

// ---------------------------------------------------------------------------
// Layouts.

TEST(PcxRead, FourBitPlanesAndPackedNibblesUseTheHeaderPalette) {
  test::TempDir dir;
  // Header palette entry i = (16 i, 255 - 16 i, i).
  std::vector<uint8_t> pal;
  for (int i = 0; i < 16; ++i)
    pal.insert(pal.end(), {uint8_t(16 * i), uint8_t(255 - 16 * i), uint8_t(i)});
  // Indices 0..7 on one 8-pixel line: 4 planes of 1 bit, plane p = bit p.
  // Index x: plane 0 = 01010101, plane 1 = 00110011, plane 2 = 00001111, plane 3 = 0.
  const std::vector<uint8_t> planes = {0x55, 0, 0x33, 0, 0x0F, 0, 0x00, 0};
  test::writeFile(dir.file("planes.pcx"), makePcx(8, 1, 1, 4, 2, 0, planes, pal));
  // The same indices packed two to a byte, plus index 15 on a second line.
  const std::vector<uint8_t> packed = {0x01, 0x23, 0x45, 0x67, 0xF0, 0, 0, 0};
  test::writeFile(dir.file("packed.pcx"), makePcx(8, 2, 4, 1, 4, 0, packed, pal));
  for (const char* name : {"planes.pcx", "packed.pcx"}) {
    SCOPED_TRACE(name);
    OwnedPicture pic;
    ASSERT_EQ(test::load(dir.file(name), pic), 0);
    ASSERT_EQ(pic->type, IMK_MAPPED);
    EXPECT_EQ(pic->colorCount, 16);
    for (int x = 0; x < 8; ++x) {
      EXPECT_EQ(pic.row(0)[x], x);
      EXPECT_EQ(rgbAt(pic, x, 0),
                (std::vector<uint8_t>{uint8_t(16 * x), uint8_t(255 - 16 * x), uint8_t(x)}));
    }
  }
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("packed.pcx"), pic), 0);
  EXPECT_EQ(pic.row(1)[0], 15);
  EXPECT_EQ(rgbAt(pic, 0, 1), (std::vector<uint8_t>{240, 15, 15}));
}

TEST(PcxRead, FilesWithoutAPaletteGetEgaColoursBlackAndWhiteOrGrey) {
  test::TempDir dir;
  // Version 3 carries no palette: 4 planes show the EGA colours. Index 9 is
  // light blue (85, 85, 255), index 14 yellow (255, 255, 85).
  // Pixel 0 sets planes 0 and 3 (index 9), pixel 1 planes 1, 2 and 3 (14).
  const std::vector<uint8_t> planes = {0x80, 0, 0x40, 0, 0x40, 0, 0xC0, 0};
  test::writeFile(dir.file("ega.pcx"), makePcx(2, 1, 1, 4, 2, 0, planes, {}, 3));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("ega.pcx"), pic), 0);
  EXPECT_EQ(rgbAt(pic, 0, 0), (std::vector<uint8_t>{85, 85, 255}));
  EXPECT_EQ(rgbAt(pic, 1, 0), (std::vector<uint8_t>{255, 255, 85}));

  // 1-bit with an empty palette: 1 is white.
  test::writeFile(dir.file("mono.pcx"), makePcx(8, 1, 1, 1, 2, 0, {0xF0, 0}));
  ASSERT_EQ(test::load(dir.file("mono.pcx"), pic), 0);
  ASSERT_EQ(pic->type, IMK_BINARY);
  EXPECT_EQ(test::pixelsOf(pic.rec), (std::vector<uint8_t>{1, 1, 1, 1, 0, 0, 0, 0}));
  // 1-bit with two real colours keeps them.
  test::writeFile(dir.file("two.pcx"),
                  makePcx(2, 1, 1, 1, 2, 0, {0x40, 0}, {200, 0, 0, 0, 0, 200}));
  ASSERT_EQ(test::load(dir.file("two.pcx"), pic), 0);
  ASSERT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(rgbAt(pic, 0, 0), (std::vector<uint8_t>{200, 0, 0}));
  EXPECT_EQ(rgbAt(pic, 1, 0), (std::vector<uint8_t>{0, 0, 200}));

  // 8-bit without the palette marker: the levels are grey.
  test::writeFile(dir.file("grey.pcx"), makePcx(4, 1, 8, 1, 4, 0, {0, 100, 200, 255}));
  ASSERT_EQ(test::load(dir.file("grey.pcx"), pic), 0);
  ASSERT_EQ(pic->type, IMK_GREY);
  EXPECT_EQ(test::pixelsOf(pic.rec), (std::vector<uint8_t>{0, 100, 200, 255}));
}

TEST(PcxRead, RunsCrossLinesAndPlanesAndZeroLengthRunsWriteNothing) {
  test::TempDir dir;
  // 3x2 true colour, 4 bytes per plane line (one padding byte): a line is
  // 12 bytes. One run of 14 x 0x10 fills line 0 and two bytes of line 1;
  // a zero-length run (0xC0 0x77) adds nothing; then 10 literal bytes.
  std::vector<uint8_t> codes = {0xC0 | 14, 0x10, 0xC0, 0x77};
  for (int i = 0; i < 10; ++i) codes.push_back(static_cast<uint8_t>(0x20 + i));
  test::writeFile(dir.file("cross.pcx"), makePcx(3, 2, 8, 3, 4, 1, codes));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("cross.pcx"), pic), 0);
  ASSERT_EQ(pic->type, IMK_RGB);
  for (int x = 0; x < 3; ++x) EXPECT_EQ(rgbAt(pic, x, 0), (std::vector<uint8_t>{0x10, 0x10, 0x10}));
  // Line 1: red plane = 10 10 20 (21 pad), green = 22 23 24 (25), blue = 26 27 28 (29).
  EXPECT_EQ(rgbAt(pic, 0, 1), (std::vector<uint8_t>{0x10, 0x22, 0x26}));
  EXPECT_EQ(rgbAt(pic, 1, 1), (std::vector<uint8_t>{0x10, 0x23, 0x27}));
  EXPECT_EQ(rgbAt(pic, 2, 1), (std::vector<uint8_t>{0x20, 0x24, 0x28}));

  // A run longer than what is left of the picture is harmless.
  test::writeFile(dir.file("long.pcx"), makePcx(4, 2, 8, 1, 4, 1, {0xFF, 9}));
  ASSERT_EQ(test::load(dir.file("long.pcx"), pic), 0);
  EXPECT_EQ(test::pixelsOf(pic.rec), std::vector<uint8_t>(8, 9));
}

TEST(PcxRead, TheEndPaletteIsFoundAndNotTakenForPixels) {
  test::TempDir dir;
  // 2x2, 8-bit: indices 0, 1, 254, 255 (a run ending the data right before
  // the palette marker).
  std::vector<uint8_t> file = makePcx(2, 2, 8, 1, 2, 1, {0, 1, 0xC1, 254, 0xC1, 255});
  appendPalette(file);
  test::writeFile(dir.file("p.pcx"), file);
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("p.pcx"), pic), 0);
  ASSERT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(pic->colorCount, 256);
  EXPECT_EQ(rgbAt(pic, 1, 0), (std::vector<uint8_t>{1, 254, 7}));
  EXPECT_EQ(rgbAt(pic, 0, 1), (std::vector<uint8_t>{254, 1, 7}));
  EXPECT_EQ(rgbAt(pic, 1, 1), (std::vector<uint8_t>{255, 0, 7}));
}

// ---------------------------------------------------------------------------
// Damage.

TEST(PcxRead, HostileHeadersAreRefusedBeforeAllocating) {
  const std::vector<uint8_t> data(64, 1);
  std::vector<uint8_t> backwards = makePcx(4, 4, 8, 1, 4, 1, data);
  backwards[4] = 9;  // the window starts right of its end
  test::expectRefused(
      {
          // 65535 x 65536 true colour: 12 GiB, with 6 bytes of data.
          {"huge", makePcx(65535, 65536, 8, 3, 65535, 1, {0xFF, 0, 0xFF, 0, 0xFF, 0}),
           IMK_ERR_CORRUPT},
          {"short line", makePcx(100, 2, 8, 1, 50, 1, data), IMK_ERR_BAD_FILE},
          {"backwards", backwards, IMK_ERR_BAD_FILE},
          // Not recognised as PCX at all.
          {"bits", makePcx(4, 4, 3, 1, 2, 1, data), IMK_ERR_UNKNOWN_FORMAT},
          {"planes", makePcx(4, 4, 4, 2, 2, 1, data), IMK_ERR_BAD_FILE},
          {"encoding", makePcx(4, 4, 8, 1, 4, 2, data), IMK_ERR_UNKNOWN_FORMAT},
          {"shorter than a header",
           std::vector<uint8_t>(backwards.begin(), backwards.begin() + 100),
           IMK_ERR_UNKNOWN_FORMAT},
      },
      0, 0, false);
  // Even when errors are ignored the huge one is too large to allocate.
}

TEST(PcxRead, TruncatedFileFailsOrKeepsTheDecodedLines) {
  test::TempDir dir;
  OwnedPicture src, pic;
  test::makePattern(src, IMK_RGB, 64, 50);
  for (int rle = 0; rle <= 1; ++rle) {
    SCOPED_TRACE(rle);
    ASSERT_EQ(test::save(dir.file("x.pcx"), src.rec, "pcx", 0, rle), 0);
    std::vector<uint8_t> bytes = test::readFile(dir.file("x.pcx"));
    bytes.resize(128 + (bytes.size() - 128) / 2);
    test::writeFile(dir.file("cut.pcx"), bytes);
    FileInfo info;
    EXPECT_EQ(test::load(dir.file("cut.pcx"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
    EXPECT_STREQ(info.errorText, "truncated");
    EXPECT_EQ(pic->pixels, nullptr);
    ASSERT_EQ(test::load(dir.file("cut.pcx"), pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
    const std::vector<uint8_t> a = test::toRgb(pic.rec), b = test::toRgb(src.rec);
    const size_t line = 64 * 3;
    // About half the lines came through unchanged; the last ones are black.
    int same = 0;
    for (int y = 0; y < 50; ++y)
      same += std::equal(a.begin() + y * line, a.begin() + (y + 1) * line, b.begin() + y * line);
    EXPECT_GE(same, 20);
    EXPECT_LT(same, 50);
    EXPECT_EQ(rgbAt(pic, 63, 49), (std::vector<uint8_t>{0, 0, 0}));
  }
}

// Runs the reader on bytes the way the fuzz target does: without the format
// being recognised first.
int readDirectly(const std::vector<uint8_t>& bytes, uint16_t flags) {
  LoadOptions o;
  imkDefaultOption(&o);
  o.flags |= flags;
  imk::ReadContext ctx(bytes.data(), bytes.size(), o);
  imk::Picture pic;
  return imk::codecs()[imkGetIndex("pcx")]->read(ctx, pic);
}

// Found by fuzzing: a header with no colour planes gave empty scan lines.
TEST(PcxRead, ZeroColourPlanesAreRefused) {
  const std::vector<uint8_t> file = makePcx(8, 2, 1, 0, 2, 0, {0x55, 0, 0x55, 0});
  EXPECT_EQ(readDirectly(file, 0), IMK_ERR_BAD_FILE);
  EXPECT_EQ(readDirectly(file, IMK_FLAG_IGNORE_ERRORS), IMK_ERR_BAD_FILE);
}

// ---------------------------------------------------------------------------
// DCX.

TEST(DcxRead, EveryPageOfAnImageMagickDcxDecodesLikeImageMagick) {
  test::TempDir dir;
  OwnedPicture a, b, c;
  test::makePattern(a, IMK_RGB, 30, 20);
  test::makePattern(b, IMK_MAPPED, 25, 15, 100);
  test::makePattern(c, IMK_BINARY, 33, 9);
  ASSERT_EQ(test::save(dir.file("a.ppm"), a.rec, "ppm"), 0);
  ASSERT_EQ(test::save(dir.file("b.ppm"), b.rec, "ppm"), 0);
  ASSERT_EQ(test::save(dir.file("c.pbm"), c.rec, "pbm"), 0);
  const std::string dcx = dir.file("pages.dcx");
  ASSERT_EQ(test::run("convert " + dir.file("a.ppm") + " " + dir.file("b.ppm") + " " +
                      dir.file("c.pbm") + " DCX:" + dcx + " 2>/dev/null"),
            0);
  FileInfo info;
  ASSERT_EQ(imkFileInformation(dcx.c_str(), -1, 1, &info), 0);
  EXPECT_EQ(info.formatIndex, imkGetIndex("pcx"));
  EXPECT_EQ(info.pictureCount, 3);
  EXPECT_EQ(info.width, 25);
  const OwnedPicture* sources[] = {&a, &b, &c};
  for (int page = 0; page < 3; ++page) {
    SCOPED_TRACE(page);
    OwnedPicture pic;
    ASSERT_EQ(test::load(dcx, pic, page, 0, &info), 0);
    EXPECT_EQ(info.pictureCount, 3);
    EXPECT_EQ(test::toRgb(pic.rec), test::toRgb(sources[page]->rec));
  }
  OwnedPicture pic;
  EXPECT_EQ(test::load(dcx, pic, 3, 0, &info), IMK_ERR_BAD_FILE);
  EXPECT_EQ(pic->pixels, nullptr);
}

// ---------------------------------------------------------------------------
// What the four hand-written raster readers share beyond the other readers
// (see readers_test.cc): no allocation for a huge header even when errors
// are ignored.

// Headers of pictures of 12 to 17 GB followed by a few bytes. Without
// IMK_FLAG_IGNORE_ERRORS they fail as truncated (or with truncated tables)
// before anything is allocated; with it, the check of the data against the
// picture's size refuses them, still before allocating.
TEST(RasterHeaders, HugePicturesAreRefusedEvenWhenErrorsAreIgnored) {
  std::vector<uint8_t> tga = {0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 32, 0};
  std::vector<uint8_t> sgi(512, 0);
  for (auto [at, v] : {std::pair{0, 0x01},
                       {1, 0xDA},
                       {3, 1},
                       {5, 3},
                       {6, 0xFF},
                       {7, 0xFF},
                       {8, 0xFF},
                       {9, 0xFF},
                       {11, 4}})
    sgi[at] = static_cast<uint8_t>(v);
  std::vector<uint8_t> sun = {0x59, 0xA6, 0x6A, 0x95, 0, 0x10, 0, 0, 0, 0x10, 0, 0, 0, 0, 0, 24};
  sun.resize(32);
  sun[23] = 1;  // standard type
  struct Case {
    const char* format;
    std::vector<uint8_t> file;
    int code;
  } cases[] = {
      {"pcx", makePcx(65535, 65536, 8, 3, 65535, 1, {}), IMK_ERR_CORRUPT},
      {"tga", tga, IMK_ERR_CORRUPT},
      {"sgi", sgi, IMK_ERR_CORRUPT},
      {"sun", sun, IMK_ERR_CORRUPT},
  };
  test::TempDir dir;
  imk::setPixelByteLimit(size_t{64} << 20);
  for (Case& c : cases) {
    SCOPED_TRACE(c.format);
    c.file.insert(c.file.end(), {0xFF, 0, 0xFF, 0, 0xFF, 0});
    test::writeFile(dir.file("huge"), c.file);
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(test::load(dir.file("huge"), pic, 0, 0, &info), c.code) << info.errorText;
    EXPECT_EQ(info.formatIndex, imkGetIndex(c.format));
    EXPECT_EQ(test::load(dir.file("huge"), pic, 0, IMK_FLAG_IGNORE_ERRORS, &info),
              IMK_ERR_BAD_FILE);
    EXPECT_STREQ(info.errorText, "too little data for the picture");
    EXPECT_EQ(pic->pixels, nullptr);
  }
  imk::setPixelByteLimit(size_t{1} << 32);
}

}  // namespace
