// TIFF reading and writing: round trips of every kind and compression,
// multi-page files, sample layouts written with libtiff itself, the corpus
// against ImageMagick, damaged and truncated files, and progress.
#include <gtest/gtest.h>
#include <tiffio.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

namespace {

std::string corpusTiff(const std::string& rel) { return test::corpusDir() + "/tiff/" + rel; }

std::string tiffinfo(const std::string& path) {
  std::string out;
  test::run("tiffinfo " + test::quote(path) + " 2>/dev/null", &out);
  return out;
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

std::vector<uint8_t> rowsOf(const test::OwnedPicture& pic, int first, int count) {
  std::vector<uint8_t> out;
  const size_t n = static_cast<size_t>(pic->width) * pic->bytesPerPixel;
  for (int y = first; y < first + count; ++y) out.insert(out.end(), pic.row(y), pic.row(y) + n);
  return out;
}

bool samePixels(const test::OwnedPicture& a, const test::OwnedPicture& b) {
  return a->width == b->width && a->height == b->height && a->bytesPerPixel == b->bytesPerPixel &&
         rowsOf(a, 0, a->height) == rowsOf(b, 0, b->height);
}

// Writes a one-page TIFF with libtiff: `fields` sets the tags beyond the
// size, `rows` gives each packed row in order.
bool writeWithLibtiff(const std::string& path, uint32_t width, uint32_t height,
                      const std::function<void(TIFF*)>& fields,
                      const std::vector<std::vector<uint8_t>>& rows) {
  TIFF* tif = TIFFOpen(path.c_str(), "w");
  if (!tif) return false;
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width);
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 1u);
  fields(tif);
  bool ok = true;
  for (uint32_t y = 0; ok && y < height; ++y)
    ok = TIFFWriteScanline(tif, const_cast<uint8_t*>(rows[y].data()), y, 0) >= 0;
  TIFFClose(tif);
  return ok;
}

void setSamples(TIFF* tif, uint16_t spp, uint16_t bps, uint16_t photometric,
                uint16_t format = SAMPLEFORMAT_UINT) {
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, spp);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, bps);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, photometric);
  TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, format);
}

template <typename T>
std::vector<uint8_t> bytesOf(const std::vector<T>& values) {
  std::vector<uint8_t> out(values.size() * sizeof(T));
  std::memcpy(out.data(), values.data(), out.size());
  return out;
}

// ---------------------------------------------------------------------------
// Writing.

// The compression tiffinfo reports (Group 4 holds only bilevel pictures; the
// rest fall back to LZW) and the bits per sample, or the extra alpha sample.
void tiffHeader(const std::vector<uint8_t>& file, const checks::RoundTripCase& c, int option) {
  test::TempDir dir;
  test::writeFile(dir.file("t.tif"), file);
  const std::string info = tiffinfo(dir.file("t.tif"));
  const std::map<int, const char*> schemes = {{IMK_TIFF_NONE, "None"},
                                              {IMK_TIFF_LZW, "LZW"},
                                              {IMK_TIFF_PACKBITS, "PackBits"},
                                              {IMK_TIFF_DEFLATE, "AdobeDeflate"},
                                              {IMK_TIFF_G4, "CCITT Group 4"}};
  const int used = option == IMK_TIFF_G4 && c.kind != IMK_BINARY ? IMK_TIFF_LZW : option;
  EXPECT_TRUE(contains(info, std::string("Compression Scheme: ") + schemes.at(used))) << info;
  EXPECT_TRUE(contains(info, c.fileKind ? "Extra Samples: 1<unassoc-alpha>"
                                        : "Bits/Sample: " + std::to_string(c.fileDepth)))
      << info;
}

checks::RoundTripCase tiff(uint16_t kind, int levels, uint16_t loaded, int colours,
                           bool sameNumbers, int bits) {
  return {
      .format = "tiff",
      .kind = kind,
      .levels = levels,
      .loaded = loaded,
      .options = {IMK_TIFF_NONE, IMK_TIFF_LZW, IMK_TIFF_PACKBITS, IMK_TIFF_DEFLATE, IMK_TIFF_G4},
      .colours = colours,
      .sameNumbers = sameNumbers,
      .width = 45,
      .height = 31,
      .header = tiffHeader,
      .fileKind = kind == IMK_RGBX,
      .fileDepth = bits};
}

INSTANTIATE_TEST_SUITE_P(Tiff, RoundTrip,
                         testing::Values(tiff(IMK_BINARY, 2, IMK_BINARY, 2, true, 1),
                                         tiff(IMK_GREY, 4, IMK_GREY, 4, true, 2),
                                         tiff(IMK_GREY, 16, IMK_GREY, 16, true, 4),
                                         tiff(IMK_GREY, 256, IMK_GREY, 256, true, 8),
                                         // Other level counts are stored as 8-bit intensities.
                                         tiff(IMK_GREY, 7, IMK_GREY, 256, false, 8),
                                         tiff(IMK_MAPPED, 10, IMK_MAPPED, 256, true, 8),
                                         tiff(IMK_RGB, 256, IMK_RGB, -1, true, 8),
                                         tiff(IMK_RGBX, 256, IMK_RGBX, -1, true, 8),
                                         tiff(IMK_BGR, 256, IMK_RGB, -1, false, 8),
                                         tiff(IMK_XBGR, 256, IMK_RGB, -1, false, 8)),
                         checks::caseName<checks::RoundTripCase>);

TEST(TiffWrite, StripsAreAboutSixtyFourKilobytesWithAPredictorForLzw) {
  test::TempDir dir;
  test::OwnedPicture p;
  test::makePattern(p, IMK_RGB, 1000, 300);
  ASSERT_EQ(test::save(dir.file("s.tif"), p.rec, "tiff", 0, IMK_TIFF_LZW), IMK_OK);
  const std::string info = tiffinfo(dir.file("s.tif"));
  EXPECT_TRUE(contains(info, "Rows/Strip: 21")) << info;  // 65536 / 3000 bytes per row
  EXPECT_TRUE(contains(info, "Predictor: horizontal differencing")) << info;
}

TEST(TiffWrite, StoppedOrFailedSavesLeaveTheTargetUntouched) {
  test::OwnedPicture p;
  test::makePattern(p, IMK_RGB, 64, 64);
  checks::expectStoppedAndFailedSavesLeaveFilesAlone(p.rec, "tiff");
}

// ---------------------------------------------------------------------------
// Pages.

TEST(TiffRead, EveryPageOfAnImageMagickMultiPageFile) {
  test::TempDir dir;
  const std::string path = dir.file("three.tif");
  ASSERT_EQ(test::run("/usr/bin/convert -size 40x30 gradient:red-blue "
                      "\\( -size 25x35 gradient:white-black -colorspace Gray \\) "
                      "\\( -size 17x9 pattern:checkerboard -monochrome \\) -depth 8 " +
                      test::quote(path)),
            0);
  FileInfo info;
  ASSERT_EQ(imkFileInformation(path.c_str(), -1, 0, &info), IMK_OK);
  EXPECT_EQ(info.pictureCount, 3);
  EXPECT_EQ(info.width, 40);
  ASSERT_EQ(imkFileInformation(path.c_str(), -1, 1, &info), IMK_OK);
  EXPECT_EQ(info.width, 25);
  EXPECT_EQ(info.height, 35);
  const int sizes[3][2] = {{40, 30}, {25, 35}, {17, 9}};
  for (int k = 0; k < 3; ++k) {
    SCOPED_TRACE(k);
    test::OwnedPicture pic;
    ASSERT_EQ(test::load(path, pic, k), IMK_OK);
    EXPECT_EQ(pic->width, sizes[k][0]);
    EXPECT_EQ(pic->height, sizes[k][1]);
    int w = 0, h = 0;
    std::vector<uint8_t> magick;
    ASSERT_TRUE(test::magickToRgb(path, &w, &h, &magick, k));
    EXPECT_EQ(test::maxDifference(test::toRgb(pic.rec), magick), 0);
  }
  test::OwnedPicture none;
  EXPECT_EQ(test::load(path, none, 3), IMK_ERR_BAD_FILE);
  EXPECT_EQ(none->pixels, nullptr);
}

TEST(TiffRead, PagesJoinedByTiffcpAreOurPicturesUnchanged) {
  test::TempDir dir;
  std::vector<test::OwnedPicture> pics(3);
  test::makePattern(pics[0], IMK_BINARY, 33, 20);
  test::makePattern(pics[1], IMK_MAPPED, 20, 33, 77);
  test::makePattern(pics[2], IMK_RGBX, 17, 18);
  std::string files;
  for (int k = 0; k < 3; ++k) {
    const std::string p = dir.file("p" + std::to_string(k) + ".tif");
    ASSERT_EQ(test::save(p, pics[static_cast<size_t>(k)].rec, "tiff", 0, IMK_TIFF_DEFLATE), IMK_OK);
    files += test::quote(p) + " ";
  }
  const std::string joined = dir.file("joined.tif");
  ASSERT_EQ(test::run("tiffcp " + files + test::quote(joined)), 0);
  FileInfo info;
  ASSERT_EQ(imkFileInformation(joined.c_str(), -1, 0, &info), IMK_OK);
  EXPECT_EQ(info.pictureCount, 3);
  for (int k = 0; k < 3; ++k) {
    test::OwnedPicture back;
    ASSERT_EQ(test::load(joined, back, k), IMK_OK);
    EXPECT_TRUE(samePixels(back, pics[static_cast<size_t>(k)])) << k;
  }
}

TEST(TiffInfo, CountsPagesWithoutDecodingAndSurvivesDirectoryLoops) {
  const std::map<std::string, int> pages = {{"pillow/multipage.tiff", 3},
                                            {"pillow/multipage_out_of_order.tiff", 3},
                                            {"pillow/multipage_multiple_frame_loop.tiff", 2},
                                            {"pillow/multipage_single_frame_loop.tiff", 1},
                                            {"libtiff-test/test_ifd_loop_to_first.tif", 2},
                                            {"libtiff-test/test_ifd_loop_to_self.tif", 1},
                                            {"generated/im_multipage3.tif", 3}};
  for (const auto& [file, count] : pages) {
    SCOPED_TRACE(file);
    FileInfo info;
    ASSERT_EQ(imkFileInformation(corpusTiff(file).c_str(), -1, 0, &info), IMK_OK);
    EXPECT_EQ(info.pictureCount, count);
  }
  FileInfo info;
  ASSERT_EQ(imkFileInformation(corpusTiff("libtiffpic/jello.tif").c_str(), -1, 0, &info), IMK_OK);
  EXPECT_EQ(info.width, 256);
  EXPECT_EQ(info.height, 192);
  EXPECT_EQ(info.planes, 1);
  EXPECT_EQ(info.bitsPerPlane, 8);
}

// ---------------------------------------------------------------------------
// The corpus.

// Decodes with GraphicsMagick, for the files where ImageMagick 6 is the odd
// one out.
bool graphicsMagickToRgb(const std::string& path, int page, int* w, int* h,
                         std::vector<uint8_t>* rgb, const test::TempDir& dir) {
  const std::string out = dir.file("gm.ppm");
  if (test::run("gm convert " + test::quote(path + "[" + std::to_string(page) + "]") +
                " -depth 8 " + test::quote(out) + " 2>/dev/null") != 0)
    return false;
  return test::readNetpbmAsRgb(out, w, h, rgb);
}

TEST(TiffRead, CorpusGroupsMatchAnIndependentDecoder) {
  // Files where ImageMagick 6.9 is the odd one out (its PPM output converts
  // old-style JPEG YCbCr a second time, its YCbCr and LogL conversions
  // differ, and it keeps premultiplied colour where alpha is partial);
  // GraphicsMagick agrees with libtiff's own conversions there.
  const std::map<std::string, std::string> useGraphicsMagick = {
      {"libtiffpic/ycbcr-cat.tif", "subsampled YCbCr conversion"},
      {"libtiffpic/off_l16.tif", "LogL luminance mapping"},
      {"libtiffpic/smallliz.tif", "old-style JPEG converted twice"},
      {"libtiffpic/zackthecat.tif", "old-style JPEG converted twice"},
      {"libtiffpic/strike.tif", "premultiplied colour kept"}};
  const std::vector<std::string> files = {"generated/im_bw_fax.tif",
                                          "generated/im_bw_group4.tif",
                                          "generated/im_multipage3.tif",
                                          "generated/im_rgb_jpeg.tif",
                                          "generated/im_rgb_lzw.tif",
                                          "generated/im_rgb_none.tif",
                                          "generated/im_rgb_rle.tif",
                                          "generated/im_rgb_zip.tif",
                                          "generated/pil_rgba_multipage.tif",
                                          "generated/tiffcp_multipage_tiled.tif",
                                          "libtiffpic/caspian.tif",
                                          "libtiffpic/cramps.tif",
                                          "libtiffpic/fax2d.tif",
                                          "libtiffpic/g3test.tif",
                                          "libtiffpic/jello.tif",
                                          "libtiffpic/jim___ah.tif",
                                          "libtiffpic/jim___cg.tif",
                                          "libtiffpic/jim___dg.tif",
                                          "libtiffpic/jim___gg.tif",
                                          "libtiffpic/ladoga.tif",
                                          "libtiffpic/off_l16.tif",
                                          "libtiffpic/off_luv24.tif",
                                          "libtiffpic/off_luv32.tif",
                                          "libtiffpic/oxford.tif",
                                          "libtiffpic/quad-jpeg.tif",
                                          "libtiffpic/quad-lzw.tif",
                                          "libtiffpic/quad-tile.tif",
                                          "libtiffpic/smallliz.tif",
                                          "libtiffpic/strike.tif",
                                          "libtiffpic/ycbcr-cat.tif",
                                          "libtiffpic/zackthecat.tif",
                                          "pillow/multipage-lastframe.tif",
                                          "pillow/multipage-mmap.tiff",
                                          "pillow/multipage.tiff",
                                          "pillow/multipage_multiple_frame_loop.tiff",
                                          "pillow/multipage_out_of_order.tiff",
                                          "pillow/multipage_single_frame_loop.tiff"};
  test::TempDir dir;
  int pagesCompared = 0;
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    const std::string path = corpusTiff(file);
    FileInfo info;
    ASSERT_EQ(imkFileInformation(path.c_str(), -1, 0, &info), IMK_OK);
    for (int k = 0; k < info.pictureCount; ++k) {
      SCOPED_TRACE(k);
      test::OwnedPicture pic;
      FileInfo li;
      ASSERT_EQ(test::load(path, pic, k, 0, &li), IMK_OK) << li.errorText;
      int w = 0, h = 0;
      std::vector<uint8_t> ref;
      if (useGraphicsMagick.count(file))
        ASSERT_TRUE(graphicsMagickToRgb(path, k, &w, &h, &ref, dir));
      else
        ASSERT_TRUE(test::magickToRgb(path, &w, &h, &ref, k));
      ASSERT_EQ(pic->width, w);
      ASSERT_EQ(pic->height, h);
      EXPECT_LE(test::maxDifference(test::toRgb(pic.rec), ref), 1);
      ++pagesCompared;
    }
  }
  EXPECT_GE(pagesCompared, 45);
}

TEST(TiffRead, DamagedThunderscanPageFailsUnlessAskedToKeepIt) {
  // Page 0 of text.tif ends early; page 1 is whole.
  const std::string path = corpusTiff("libtiffpic/text.tif");
  test::OwnedPicture pic;
  FileInfo info;
  EXPECT_EQ(test::load(path, pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_EQ(pic->pixels, nullptr);
  EXPECT_TRUE(contains(info.errorText, "Not enough data")) << info.errorText;
  ASSERT_EQ(test::load(path, pic, 0, IMK_FLAG_IGNORE_ERRORS), IMK_OK);
  EXPECT_EQ(pic->width, 1512);
  EXPECT_EQ(pic->colorCount, 16);
  ASSERT_EQ(test::load(path, pic, 1), IMK_OK);
  EXPECT_EQ(pic->type, IMK_BINARY);
}

TEST(TiffRead, EveryOrientationShowsTheSamePicture) {
  // The same fax page stored in the eight orientations (a reader that ignored
  // the tag would see it mirrored, upside down or on its side).
  test::OwnedPicture first;
  ASSERT_EQ(test::load(corpusTiff("pillow/g4_orientation_1.tif"), first), IMK_OK);
  EXPECT_EQ(first->width, 590);
  EXPECT_EQ(first->height, 88);
  for (int o = 2; o <= 8; ++o) {
    SCOPED_TRACE(o);
    const std::string path = corpusTiff("pillow/g4_orientation_" + std::to_string(o) + ".tif");
    test::OwnedPicture pic;
    FileInfo info;
    ASSERT_EQ(test::load(path, pic, 0, 0, &info), IMK_OK);
    EXPECT_EQ(info.width, 590);
    // The eight files were rendered separately, so a few edge pixels of the
    // text differ; a wrong orientation would differ almost everywhere.
    ASSERT_EQ(pic->height, 88);
    int differing = 0;
    for (int y = 0; y < 88; ++y)
      for (int x = 0; x < 590; ++x) differing += pic.row(y)[x] != first.row(y)[x];
    EXPECT_LT(differing, 590 * 88 / 200);
    ASSERT_EQ(imkFileInformation(path.c_str(), -1, 0, &info), IMK_OK);
    EXPECT_EQ(info.width, 590);
    EXPECT_EQ(info.height, 88);
  }
}

TEST(TiffRead, LargeStripedTiledAndPlanarFilesDecodeExactly) {
  // Big enough for the decoding to be shared between threads.
  test::TempDir dir;
  const std::string src = dir.file("src.ppm");
  ASSERT_EQ(test::run("/usr/bin/convert -seed 5 -size 1300x1100 xc: +noise Random -depth 8 " +
                      test::quote(src)),
            0);
  int w = 0, h = 0;
  std::vector<uint8_t> expected;
  ASSERT_TRUE(test::readNetpbmAsRgb(src, &w, &h, &expected));
  const std::string lzw = dir.file("lzw.tif");
  ASSERT_EQ(
      test::run("/usr/bin/convert " + test::quote(src) + " -compress LZW " + test::quote(lzw)), 0);
  const std::vector<std::pair<std::string, std::string>> variants = {
      {"lzw", ""},
      {"tiled", "tiffcp -t -w 128 -l 64 -c zip"},
      {"planar", "tiffcp -p separate -c lzw:2 -r 7"},
      {"chopped", "tiffcp -c none -r 3000"}};
  for (const auto& [name, command] : variants) {
    SCOPED_TRACE(name);
    std::string path = lzw;
    if (!command.empty()) {
      path = dir.file(name + ".tif");
      ASSERT_EQ(test::run(command + " " + test::quote(lzw) + " " + test::quote(path)), 0);
    }
    test::OwnedPicture pic;
    ASSERT_EQ(test::load(path, pic), IMK_OK);
    ASSERT_EQ(pic->type, IMK_RGB);
    EXPECT_EQ(test::toRgb(pic.rec), expected);
  }
}

// ---------------------------------------------------------------------------
// Sample layouts, written with libtiff.

TEST(TiffRead, GreyLevelsKeepTheirNumbersAndMinIsWhiteIsInverted) {
  test::TempDir dir;
  // 4-bit: the values 0, 3, 9, 15 packed in two bytes.
  const std::vector<std::vector<uint8_t>> packed = {{0x03, 0x9F}};
  for (uint16_t photometric : {PHOTOMETRIC_MINISBLACK, PHOTOMETRIC_MINISWHITE}) {
    const std::string path = dir.file("g4.tif");
    ASSERT_TRUE(writeWithLibtiff(
        path, 4, 1, [&](TIFF* t) { setSamples(t, 1, 4, photometric); }, packed));
    test::OwnedPicture pic;
    ASSERT_EQ(test::load(path, pic), IMK_OK);
    EXPECT_EQ(pic->type, IMK_GREY);
    EXPECT_EQ(pic->colorCount, 16);
    const std::vector<uint8_t> levels(pic.row(0), pic.row(0) + 4);
    const std::vector<uint8_t> expected = photometric == PHOTOMETRIC_MINISBLACK
                                              ? std::vector<uint8_t>{0, 3, 9, 15}
                                              : std::vector<uint8_t>{15, 12, 6, 0};
    EXPECT_EQ(levels, expected);
  }
  // 1-bit MinIsWhite: a set bit is black.
  ASSERT_TRUE(writeWithLibtiff(dir.file("b.tif"), 8, 1,
                               [](TIFF* t) { setSamples(t, 1, 1, PHOTOMETRIC_MINISWHITE); },
                               {{0xA0}}));
  test::OwnedPicture bin;
  ASSERT_EQ(test::load(dir.file("b.tif"), bin), IMK_OK);
  EXPECT_EQ(bin->type, IMK_BINARY);
  EXPECT_EQ(std::vector<uint8_t>(bin.row(0), bin.row(0) + 8),
            (std::vector<uint8_t>{0, 1, 0, 1, 1, 1, 1, 1}));
}

TEST(TiffRead, DeepAndUnusualSamplesBecomeEightBitsRounded) {
  test::TempDir dir;
  struct Case {
    const char* name;
    uint16_t bps, format;
    std::vector<uint8_t> row;
    std::vector<uint8_t> expected;
  };
  const std::vector<Case> cases = {
      // round(v / 257)
      {"16-bit",
       16,
       SAMPLEFORMAT_UINT,
       bytesOf(std::vector<uint16_t>{0, 1000, 32768, 65535}),
       {0, 4, 128, 255}},
      // round(v * 255 / 4095) of 0, 100, 2048, 4095 packed MSB first
      {"12-bit", 12, SAMPLEFORMAT_UINT, {0x00, 0x00, 0x64, 0x80, 0x0F, 0xFF}, {0, 6, 128, 255}},
      // signed: the most negative value is black
      {"int16",
       16,
       SAMPLEFORMAT_INT,
       bytesOf(std::vector<int16_t>{-32768, 0, 32767, -1}),
       {0, 128, 255, 127}},
      {"float",
       32,
       SAMPLEFORMAT_IEEEFP,
       bytesOf(std::vector<float>{0.0f, 0.5f, 1.0f, 2.0f}),
       {0, 128, 255, 255}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = dir.file("deep.tif");
    ASSERT_TRUE(writeWithLibtiff(
        path, 4, 1, [&](TIFF* t) { setSamples(t, 1, c.bps, PHOTOMETRIC_MINISBLACK, c.format); },
        {c.row}));
    test::OwnedPicture pic;
    ASSERT_EQ(test::load(path, pic), IMK_OK);
    EXPECT_EQ(pic->type, IMK_GREY);
    EXPECT_EQ(pic->colorCount, 256);
    EXPECT_EQ(std::vector<uint8_t>(pic.row(0), pic.row(0) + 4), c.expected);
  }
}

TEST(TiffRead, SixteenAndOldEightBitColormapsGiveTheSamePalette) {
  test::TempDir dir;
  for (bool old : {false, true}) {
    SCOPED_TRACE(old ? "8-bit values" : "16-bit values");
    std::vector<uint16_t> map(3 * 16, 0);
    const uint8_t colours[3][3] = {{255, 0, 0}, {0, 128, 64}, {10, 20, 30}};
    for (int i = 0; i < 3; ++i)
      for (int c = 0; c < 3; ++c)
        map[static_cast<size_t>(c * 16 + i)] =
            static_cast<uint16_t>(old ? colours[i][c] : colours[i][c] * 257);
    const std::string path = dir.file("pal.tif");
    ASSERT_TRUE(writeWithLibtiff(path, 4, 1,
                                 [&](TIFF* t) {
                                   setSamples(t, 1, 4, PHOTOMETRIC_PALETTE);
                                   TIFFSetField(t, TIFFTAG_COLORMAP, map.data(), map.data() + 16,
                                                map.data() + 32);
                                 },
                                 {{0x01, 0x20}}));
    test::OwnedPicture pic;
    ASSERT_EQ(test::load(path, pic), IMK_OK);
    EXPECT_EQ(pic->type, IMK_MAPPED);
    EXPECT_EQ(pic->colorCount, 16);
    EXPECT_EQ(test::toRgb(pic.rec),
              (std::vector<uint8_t>{255, 0, 0, 0, 128, 64, 10, 20, 30, 255, 0, 0}));
  }
}

TEST(TiffRead, AlphaIsAlwaysUnassociatedInThePicture) {
  test::TempDir dir;
  for (uint16_t extra : {EXTRASAMPLE_ASSOCALPHA, EXTRASAMPLE_UNASSALPHA}) {
    SCOPED_TRACE(extra);
    const std::string path = dir.file("a.tif");
    ASSERT_TRUE(writeWithLibtiff(path, 2, 1,
                                 [&](TIFF* t) {
                                   setSamples(t, 4, 8, PHOTOMETRIC_RGB);
                                   TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &extra);
                                 },
                                 {{64, 32, 0, 128, 10, 20, 30, 0}}));
    test::OwnedPicture pic;
    ASSERT_EQ(test::load(path, pic), IMK_OK);
    ASSERT_EQ(pic->type, IMK_RGBX);
    const std::vector<uint8_t> px(pic.row(0), pic.row(0) + 8);
    // Associated colour is divided by alpha; nothing is left where alpha is 0.
    const std::vector<uint8_t> expected = extra == EXTRASAMPLE_ASSOCALPHA
                                              ? std::vector<uint8_t>{128, 64, 0, 128, 0, 0, 0, 0}
                                              : std::vector<uint8_t>{64, 32, 0, 128, 10, 20, 30, 0};
    EXPECT_EQ(px, expected);
  }
  // 16 bits: the division happens before the reduction to 8 bits.
  const uint16_t assoc = EXTRASAMPLE_ASSOCALPHA;
  ASSERT_TRUE(writeWithLibtiff(dir.file("a16.tif"), 1, 1,
                               [&](TIFF* t) {
                                 setSamples(t, 4, 16, PHOTOMETRIC_RGB);
                                 TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &assoc);
                               },
                               {bytesOf(std::vector<uint16_t>{100, 50, 0, 200})}));
  test::OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("a16.tif"), pic), IMK_OK);
  // 100/200 of full scale is 128 after rounding; alpha 200/257 rounds to 1.
  EXPECT_EQ(std::vector<uint8_t>(pic.row(0), pic.row(0) + 4),
            (std::vector<uint8_t>{128, 64, 0, 1}));
}

TEST(TiffRead, CmykInksTakeAwayFromWhite) {
  test::TempDir dir;
  const std::string path = dir.file("cmyk.tif");
  ASSERT_TRUE(writeWithLibtiff(path, 4, 1,
                               [](TIFF* t) { setSamples(t, 4, 8, PHOTOMETRIC_SEPARATED); },
                               {{0, 0, 0, 0, 255, 0, 0, 0, 0, 0, 0, 255, 0, 128, 0, 128}}));
  test::OwnedPicture pic;
  ASSERT_EQ(test::load(path, pic), IMK_OK);
  ASSERT_EQ(pic->type, IMK_RGB);
  // white, cyan, black, and half magenta on half black: 255 x (127/255) for
  // red and blue, 255 x (127/255)^2 = 63.25 for green.
  EXPECT_EQ(test::toRgb(pic.rec),
            (std::vector<uint8_t>{255, 255, 255, 0, 255, 255, 0, 0, 0, 127, 63, 127}));
  int w = 0, h = 0;
  std::vector<uint8_t> magick;
  ASSERT_TRUE(test::magickToRgb(path, &w, &h, &magick));
  EXPECT_LE(test::maxDifference(test::toRgb(pic.rec), magick), 1);
}

// ---------------------------------------------------------------------------
// Damage and progress.

// Rows per strip, offsets and sizes of the strips of page 0, read with libtiff.
bool stripsOf(const std::string& path, uint32_t* rowsPerStrip, std::vector<uint64_t>* offsets,
              std::vector<uint64_t>* sizes) {
  TIFF* tif = TIFFOpen(path.c_str(), "r");
  if (!tif) return false;
  TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
  const uint32_t n = TIFFNumberOfStrips(tif);
  offsets->clear();
  sizes->clear();
  for (uint32_t s = 0; s < n; ++s) {
    offsets->push_back(TIFFGetStrileOffset(tif, s));
    sizes->push_back(TIFFGetStrileByteCount(tif, s));
  }
  TIFFClose(tif);
  return n > 0;
}

TEST(TiffRead, DamagedStripFailsOrKeepsTheOtherStripsWhenAsked) {
  test::TempDir dir;
  test::OwnedPicture src;
  test::makePattern(src, IMK_RGB, 300, 300);
  const std::string path = dir.file("lzw.tif");
  ASSERT_EQ(test::save(path, src.rec, "tiff", 0, IMK_TIFF_LZW), IMK_OK);
  std::vector<uint64_t> offsets, sizes;
  uint32_t rowsPerStrip = 0;
  ASSERT_TRUE(stripsOf(path, &rowsPerStrip, &offsets, &sizes));
  ASSERT_EQ(rowsPerStrip, 72u);  // 65536 / 900 bytes per row
  ASSERT_EQ(offsets.size(), 5u);
  std::vector<uint8_t> bytes = test::readFile(path);
  // Codes above the table's size in the last strip.
  for (uint64_t i = 0; i < sizes.back(); ++i) bytes[offsets.back() + i] = 0xFF;
  test::writeFile(dir.file("bad.tif"), bytes);

  FileInfo info;
  ASSERT_EQ(imkFileInformation(dir.file("bad.tif").c_str(), -1, 0, &info),
            IMK_OK);  // headers are fine
  test::OwnedPicture pic;
  EXPECT_EQ(test::load(dir.file("bad.tif"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_EQ(pic->pixels, nullptr);
  EXPECT_NE(info.errorText[0], '\0');

  ASSERT_EQ(test::load(dir.file("bad.tif"), pic, 0, IMK_FLAG_IGNORE_ERRORS), IMK_OK);
  const int intact = 4 * 72;
  EXPECT_EQ(rowsOf(pic, 0, intact), rowsOf(src, 0, intact));
}

// A hand-made uncompressed grey TIFF whose directory comes before the pixel
// data, so that cutting the file loses strips but keeps the headers.
std::vector<uint8_t> greyTiffDirectoryFirst(uint16_t width, uint16_t height,
                                            uint16_t rowsPerStrip) {
  const uint16_t strips = static_cast<uint16_t>((height + rowsPerStrip - 1) / rowsPerStrip);
  std::vector<uint8_t> f;
  auto u16 = [&f](uint32_t v) { f.push_back(v & 0xFF), f.push_back((v >> 8) & 0xFF); };
  auto u32 = [&](uint32_t v) { u16(v & 0xFFFF), u16(v >> 16); };
  const uint16_t entries = 9;
  const uint32_t ifdEnd = 8 + 2 + entries * 12 + 4;
  const uint32_t offsetsAt = ifdEnd, countsAt = ifdEnd + 4u * strips, dataAt = ifdEnd + 8u * strips;
  f = {'I', 'I', 42, 0};
  u32(8);
  u16(entries);
  auto entry = [&](uint16_t tag, uint16_t type, uint32_t count, uint32_t value) {
    u16(tag), u16(type), u32(count), u32(value);
  };
  entry(256, 3, 1, width);
  entry(257, 3, 1, height);
  entry(258, 3, 1, 8);
  entry(259, 3, 1, 1);
  entry(262, 3, 1, 1);
  entry(273, 4, strips, offsetsAt);
  entry(277, 3, 1, 1);
  entry(278, 3, 1, rowsPerStrip);
  entry(279, 4, strips, countsAt);
  u32(0);
  for (uint32_t s = 0; s < strips; ++s) u32(dataAt + s * rowsPerStrip * width);
  for (uint32_t s = 0; s < strips; ++s)
    u32(static_cast<uint32_t>(std::min<int>(rowsPerStrip, height - s * rowsPerStrip)) * width);
  for (uint32_t i = 0; i < static_cast<uint32_t>(width) * height; ++i)
    f.push_back(static_cast<uint8_t>(i * 7));
  return f;
}

TEST(TiffRead, TruncatedFileFailsOrKeepsTheRowsBeforeTheCut) {
  test::TempDir dir;
  std::vector<uint8_t> bytes = greyTiffDirectoryFirst(16, 64, 8);
  test::writeFile(dir.file("whole.tif"), bytes);
  test::OwnedPicture whole;
  ASSERT_EQ(test::load(dir.file("whole.tif"), whole), IMK_OK);
  ASSERT_EQ(whole->type, IMK_GREY);
  EXPECT_EQ(whole.row(3)[5], static_cast<uint8_t>((3 * 16 + 5) * 7));

  bytes.resize(bytes.size() - 16 * 36);  // the last 36 rows are gone
  test::writeFile(dir.file("cut.tif"), bytes);
  test::OwnedPicture pic;
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("cut.tif"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_EQ(pic->pixels, nullptr);
  EXPECT_NE(info.errorText[0], '\0');
  ASSERT_EQ(test::load(dir.file("cut.tif"), pic, 0, IMK_FLAG_IGNORE_ERRORS), IMK_OK);
  EXPECT_EQ(rowsOf(pic, 0, 24), rowsOf(whole, 0, 24));
  EXPECT_EQ(rowsOf(pic, 32, 32), std::vector<uint8_t>(16 * 32, 0));
}

TEST(TiffRead, ProgressRunsToTheEndAndCanStopEveryRoute) {
  // Direct route (large enough to be shared between threads) and the RGBA
  // route (YCbCr JPEG).
  test::TempDir dir;
  test::OwnedPicture big;
  test::makePattern(big, IMK_RGB, 1500, 1200);
  ASSERT_EQ(test::save(dir.file("big.tif"), big.rec, "tiff", 0, IMK_TIFF_LZW), IMK_OK);
  checks::expectEveryStepAndStopAt(dir.file("big.tif"), 3);
  checks::expectEveryStepAndStopAt(corpusTiff("generated/im_rgb_jpeg.tif"), 3);
}

TEST(TiffRead, HeaderPointingFarPastTheEndFailsWithACodeAndAReason) {
  test::TempDir dir;
  test::writeFile(dir.file("header.tif"), {'I', 'I', 42, 0, 0xFF, 0xFF, 0xFF, 0x7F});
  test::OwnedPicture pic;
  FileInfo info;
  const int rc = test::load(dir.file("header.tif"), pic, 0, 0, &info);
  EXPECT_TRUE(rc == IMK_ERR_BAD_FILE || rc == IMK_ERR_CORRUPT) << rc;
  EXPECT_EQ(pic->pixels, nullptr);
  EXPECT_NE(info.errorText[0], '\0');
}

}  // namespace
