// The shared round-trip and independent-writer suites; each format's test
// file instantiates them with its rows.
#include "tests/imgkit/codec_checks.h"

namespace {

TEST_P(RoundTrip, PixelsComeBackAndIndependentDecodersAgree) {
  const checks::RoundTripCase& c = GetParam();
  test::TempDir dir;
  for (int option : c.options) {
    SCOPED_TRACE(std::string(c.format) + " kind " + std::to_string(c.kind) + "/" +
                 std::to_string(c.levels) + " option " + std::to_string(option));
    test::OwnedPicture src, back;
    test::makePattern(src, c.kind, c.width, c.height, c.levels);
    const std::string path = dir.file(std::string("x.") + c.format);
    ASSERT_EQ(test::save(path, src.rec, c.format, c.quality, option), 0);
    if (c.header) c.header(test::readFile(path), c, option);
    FileInfo info;
    ASSERT_EQ(test::load(path, back, 0, 0, &info), 0);
    EXPECT_EQ(info.formatIndex, imkGetIndex(c.format));
    EXPECT_EQ(back->type, c.loaded);
    ASSERT_EQ(back->width, c.width);
    ASSERT_EQ(back->height, c.height);
    // Alpha comes back only in kinds that carry it; otherwise opaque.
    std::vector<uint8_t> want = test::rgbaOf(src.rec);
    if (c.loaded != IMK_RGBX)
      for (size_t i = 3; i < want.size(); i += 4) want[i] = 255;
    EXPECT_LE(test::maxDifference(test::rgbaOf(back.rec), want), c.tolerance);
    if (c.colours >= 0) {
      EXPECT_EQ(back->colorCount, c.colours);
    }
    if (c.sameNumbers) {
      EXPECT_EQ(test::pixelsOf(back.rec), test::pixelsOf(src.rec));
    }
    if (c.magickReads) {
      std::vector<uint8_t> im;
      ASSERT_TRUE(test::magickRgba(path, c.width, c.height, &im));
      const test::RgbaDiff d = test::compareRgba(im, want);
      EXPECT_LE(d.color, c.tolerance);
      EXPECT_LE(d.alpha, c.tolerance);
    }
    for (const char* tool : c.toolReads) {
      SCOPED_TRACE(tool);
      std::string pnm;
      int w, h;
      std::vector<uint8_t> rgb;
      ASSERT_EQ(test::run(test::expand(tool, "file", test::quote(path)) + " 2>/dev/null", &pnm), 0);
      ASSERT_TRUE(test::parseNetpbm(pnm, &w, &h, &rgb));
      if (c.toolsMatchOurs) {
        EXPECT_EQ(rgb, test::toRgb(back.rec));
      } else {
        EXPECT_LE(test::maxDifference(rgb, test::toRgb(src.rec)), c.tolerance);
      }
    }
  }
}

TEST_P(ToolWrites, WeReadTheFileAsTheToolMeantIt) {
  const checks::ToolWriteCase& c = GetParam();
  SCOPED_TRACE(c.command);
  test::TempDir dir;
  test::OwnedPicture rgb, pal, pal16, grey, bin, rgba;
  test::makePattern(rgb, IMK_RGB, 45, 31);
  test::makePattern(pal, IMK_MAPPED, 45, 31, 60);
  test::makePattern(pal16, IMK_MAPPED, 45, 31, 16);
  test::makePattern(grey, IMK_GREY, 45, 31);
  test::makePattern(bin, IMK_BINARY, 45, 31);
  test::makePattern(rgba, IMK_RGBX, 45, 31);
  ASSERT_EQ(test::save(dir.file("rgb.ppm"), rgb.rec, "ppm"), 0);
  ASSERT_EQ(test::save(dir.file("pal.ppm"), pal.rec, "ppm"), 0);
  ASSERT_EQ(test::save(dir.file("pal16.ppm"), pal16.rec, "ppm"), 0);
  ASSERT_EQ(test::save(dir.file("grey.pgm"), grey.rec, "pgm"), 0);
  ASSERT_EQ(test::save(dir.file("bin.pbm"), bin.rec, "pbm"), 0);
  ASSERT_EQ(test::save(dir.file("rgba.png"), rgba.rec, "png"), 0);
  const std::string orig = test::corpusDir() + "/pnm/libjpeg-turbo/testorig.ppm";
  const std::string out = dir.file(std::string("out.") + c.format);
  std::string cmd = test::expand(c.command, "dir", dir.path());
  cmd = test::expand(test::expand(cmd, "orig", test::quote(orig)), "out", test::quote(out));
  ASSERT_EQ(test::run(cmd + " 2>/dev/null"), 0);
  test::OwnedPicture pic;
  FileInfo info;
  ASSERT_EQ(test::load(out, pic, 0, 0, &info), 0) << info.errorText;
  if (c.kind) {
    EXPECT_EQ(pic->type, c.kind);
  }
  if (c.maxColours) {
    EXPECT_LE(pic->colorCount, c.maxColours);
  }
  std::vector<uint8_t> want;
  if (!c.same && c.decoder) {
    std::string pnm;
    int w, h;
    ASSERT_EQ(test::run(test::expand(c.decoder, "out", test::quote(out)) + " 2>/dev/null", &pnm),
              0);
    ASSERT_TRUE(test::parseNetpbm(pnm, &w, &h, &want));
    EXPECT_LE(test::maxDifference(test::toRgb(pic.rec), want), c.tolerance);
    return;
  }
  if (!c.same) {
    ASSERT_TRUE(test::magickRgba(out, pic->width, pic->height, &want));
    const test::RgbaDiff d = test::compareRgba(test::rgbaOf(pic.rec), want);
    EXPECT_LE(d.color, c.tolerance);
    EXPECT_LE(d.alpha, c.tolerance);
    return;
  }
  const std::string same = c.same;
  if (same == "orig") {
    int w, h;
    std::vector<uint8_t> rgbOrig;
    ASSERT_TRUE(test::readNetpbmAsRgb(orig, &w, &h, &rgbOrig));
    for (size_t i = 0; i < rgbOrig.size(); i += 3)
      want.insert(want.end(), {rgbOrig[i], rgbOrig[i + 1], rgbOrig[i + 2], 255});
  } else {
    const test::OwnedPicture& p = same == "rgb"     ? rgb
                                  : same == "pal"   ? pal
                                  : same == "pal16" ? pal16
                                  : same == "grey"  ? grey
                                  : same == "bin"   ? bin
                                                    : rgba;
    want = test::rgbaOf(p.rec);
  }
  EXPECT_LE(test::maxDifference(test::rgbaOf(pic.rec), want), c.tolerance);
}

// Header look-ups of corpus files: size (0: not checked), planes and bits per
// plane, one picture, without decoding. bmp/b/shortfile lacks most of its
// pixels: headers alone are fine.
TEST(HeaderInfo, CorpusFilesGiveTheirPlanesAndBitsWithoutDecoding) {
  const struct {
    const char* path;
    const char* format;
    int width, height, planes, bits;
    const char* name = nullptr;  // the format's name, where checked
  } files[] = {{"bmp/bmpsuite/g/pal1.bmp", "bmp", 127, 64, 1, 1},
               {"bmp/bmpsuite/g/pal4rle.bmp", "bmp", 127, 64, 1, 4},
               {"bmp/bmpsuite/g/pal8os2.bmp", "bmp", 127, 64, 1, 8},
               {"bmp/bmpsuite/g/rgb16-565.bmp", "bmp", 127, 64, 1, 16},
               {"bmp/bmpsuite/g/rgb24.bmp", "bmp", 127, 64, 3, 8},
               {"bmp/bmpsuite/g/rgb32bf.bmp", "bmp", 127, 64, 4, 8},
               {"bmp/bmpsuite/b/shortfile.bmp", "bmp", 127, 64, 1, 1},
               {"png/pngsuite/basn0g01.png", "png", 32, 32, 1, 1, "PNG"},
               {"png/pngsuite/basn0g16.png", "png", 32, 32, 1, 16, "PNG"},
               {"png/pngsuite/basn2c16.png", "png", 32, 32, 3, 16, "PNG"},
               {"png/pngsuite/basn3p04.png", "png", 32, 32, 1, 4, "PNG"},
               {"png/pngsuite/basn4a08.png", "png", 32, 32, 2, 8, "PNG"},
               {"png/pngsuite/basn6a16.png", "png", 32, 32, 4, 16, "PNG"},
               {"jpeg/libjpeg-turbo/testorig.jpg", "jpeg", 227, 149, 3, 8, "JPEG"},
               {"jpeg/generated/cjpeg_gray.jpg", "jpeg", 227, 149, 1, 8, "JPEG"},
               {"jpeg/generated/im_cmyk.jpg", "jpeg", 227, 149, 4, 8, "JPEG"},
               {"jpeg/jpeg-decoder/grayscale_long.jpg", "jpeg", 1, 1000, 1, 8, "JPEG"},
               {"iff/generated/np_1plane.iff", "iff", 0, 0, 1, 1},
               {"iff/generated/np_24bit_deep.iff", "iff", 0, 0, 3, 8},
               {"iff/generated/np_ham6.iff", "iff", 0, 0, 1, 6},
               {"iff/generated/np_directcolor_555.iff", "iff", 0, 0, 3, 5},
               {"iff/iffshow/stone_circle.lbm", "iff", 0, 0, 1, 8},
               {"iff/iffshow/king_tut.iff", "iff", 0, 0, 1, 5},
               {"sgi/generated/np_gray_rle.sgi", "sgi", 0, 0, 1, 8},
               {"sgi/generated/gm_rgb.sgi", "sgi", 0, 0, 3, 8},
               {"sgi/generated/im_rgba_none.sgi", "sgi", 0, 0, 4, 8},
               {"sgi/generated/np_rgb16_rle.sgi", "sgi", 0, 0, 3, 16},
               {"ras/generated/np_1bit_standard.ras", "sun", 0, 0, 1, 1},
               {"ras/generated/im_pal.ras", "sun", 0, 0, 1, 8},
               {"ras/generated/im_rgb.ras", "sun", 0, 0, 3, 8},
               {"ras/generated/im_rgba.ras", "sun", 0, 0, 4, 8},
               {"tga/truevision/CBW8.TGA", "tga", 128, 128, 1, 8},
               {"tga/truevision/UCM8.TGA", "tga", 128, 128, 1, 8},
               {"tga/truevision/CTC16.TGA", "tga", 128, 128, 3, 5},
               {"tga/truevision/UTC24.TGA", "tga", 128, 128, 3, 8},
               {"tga/truevision/CTC32.TGA", "tga", 128, 128, 4, 8},
               {"pcx/generated/gm_1bit.pcx", "pcx", 227, 149, 1, 1},
               {"pcx/generated/np_2planes_4col.pcx", "pcx", 227, 149, 2, 1},
               {"pcx/generated/np_4planes_16col.pcx", "pcx", 227, 149, 4, 1},
               {"pcx/generated/np_packed_4bpp_16col.pcx", "pcx", 227, 149, 1, 4},
               {"pcx/generated/im_8bit.pcx", "pcx", 227, 149, 1, 8},
               {"pcx/generated/im_24bit.pcx", "pcx", 227, 149, 3, 8},
               {"xpm/pillow/hopper.xpm", "xpm", 128, 128, 1, 6}};  // 44 colours
  for (const auto& f : files) {
    SCOPED_TRACE(f.path);
    FileInfo info;
    ASSERT_EQ(imkFileInformation((test::corpusDir() + "/" + f.path).c_str(), -1, 0, &info), 0);
    EXPECT_EQ(info.formatIndex, imkGetIndex(f.format));
    if (f.width) {
      EXPECT_EQ(info.width, f.width);
      EXPECT_EQ(info.height, f.height);
    }
    EXPECT_EQ(info.planes, f.planes);
    EXPECT_EQ(info.bitsPerPlane, f.bits);
    EXPECT_EQ(info.pictureCount, 1);
    if (f.name) {
      EXPECT_STREQ(info.formatName, f.name);
    }
  }
}

// Broken files of other projects' suites are refused, leaving no picture;
// some also when errors are ignored (kAlways), some as bad or damaged files
// with a reason (kCoded), some with a reason whatever the code (kReason).
TEST(BrokenFiles, OtherSuitesFilesAreRefused) {
  enum { kAlways = 1, kCoded = 2, kReason = 4 };
  const std::pair<int, std::vector<const char*>> groups[] = {
      {0,
       {"bmp/gdk-pixbuf/fail/bug776694.bmp", "bmp/gdk-pixbuf/fail/bug777315.bmp",
        "bmp/gdk-pixbuf/fail/invalid.1.bmp",
        "bmp/gdk-pixbuf/randomly-modified/bmp-line-overflow.bmp",
        "bmp/gdk-pixbuf/randomly-modified/bug775242.bmp", "bmp/image-rs/bad/Bad_clrsUsed.bmp",
        "bmp/image-rs/bad/Bad_height.bmp", "bmp/image-rs/bad/Bad_unusual_extend_buffer_usage.bmp",
        "bmp/image-rs/bad/Bad_width.bmp"}},
      {kAlways,
       {"pnm/gdk-pixbuf/fail/invalid.1.ppm", "pnm/gdk-pixbuf/fail/invalid.2.ppm",
        "pnm/gdk-pixbuf/fail/invalid.3.ppm", "pnm/gdk-pixbuf/fail/invalid.5.ppm",
        "pnm/gdk-pixbuf/fail/invalid.6.ppm", "pnm/gdk-pixbuf/fail/invalid.7.ppm",
        "pnm/gdk-pixbuf/fail/invalid.8.ppm", "pnm/gdk-pixbuf/randomly-modified/bug775232.pnm",
        "pnm/pillow/negative_size.ppm"}},
      {kCoded,
       {"gif/gdk-pixbuf/fail/invalid.1.gif", "gif/gdk-pixbuf/fail/overflow-codes.gif",
        "gif/pygif-suite/invalid-code.gif", "gif/pillow/zero_width.gif",
        "gif/image-gif/stall/issue-101-infinite-empty-loop.gif", "gif/pygif-suite/zero-size.gif",
        "tiff/pillow/crash/crash-2020-10-test.tif"}},
      {kAlways | kReason,
       {"jpeg/gdk-pixbuf/fail/CVE-2017-2862.jpg", "jpeg/gdk-pixbuf/randomly-modified/bug775697.jpg",
        "jpeg/image-rs-regression/oss-fuzz-36829.jpeg",
        "jpeg/jpeg-decoder/crashtest/derive-huffman-codes-overflow.jpg",
        "jpeg/jpeg-decoder/crashtest/invalid-dimensions.jpg",
        "jpeg/jpeg-decoder/crashtest/max_size.jpg",
        "jpeg/jpeg-decoder/crashtest/missing-frame-image-1410.jpg",
        "jpeg/jpeg-decoder/crashtest/missing-sof.jpg",
        "jpeg/jpeg-decoder/crashtest/null_height.jpg",
        "jpeg/jpeg-decoder/crashtest/invalid-prediction-shift.jpg"}}};
  for (const auto& [how, files] : groups)
    for (const char* f : files)
      for (uint16_t flags : {0, static_cast<int>(IMK_FLAG_IGNORE_ERRORS)}) {
        if (flags && !(how & kAlways)) continue;
        SCOPED_TRACE(std::string(f) + (flags ? " ignoring errors" : ""));
        test::OwnedPicture pic;
        FileInfo info;
        const int rc = test::load(test::corpusDir() + "/" + f, pic, 0, flags, &info);
        EXPECT_NE(rc, 0);
        EXPECT_EQ(pic->pixels, nullptr);
        if (how & kCoded) {
          EXPECT_TRUE(rc == IMK_ERR_BAD_FILE || rc == IMK_ERR_CORRUPT) << rc;
        }
        if (how & (kCoded | kReason)) {
          EXPECT_NE(info.errorText[0], '\0');
        }
      }
}

}  // namespace
