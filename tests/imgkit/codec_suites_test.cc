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

}  // namespace
