// JPEG: round trips of every picture kind, quality and progressive writing,
// cross-checks with djpeg/cjpeg/ImageMagick in both directions, DCT-scaled
// reduced loads against djpeg -scale references, damaged files, cancelling,
// CMYK colours and header look-ups.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/imgkit/codec_checks.h"

namespace {

using test::OwnedPicture;

const std::string kJpeg = test::corpusDir() + "/jpeg/";

// Writes R,G,B into pixel (x,y) of any true-colour layout (alpha 255).
void setRgb(ImageRecord& rec, int x, int y, uint8_t r, uint8_t g, uint8_t b) {
  uint8_t* p = rec.pixels + static_cast<size_t>(y) * rec.bytesPerLine + x * rec.bytesPerPixel;
  switch (rec.type) {
    case IMK_RGB:
      p[0] = r, p[1] = g, p[2] = b;
      break;
    case IMK_RGBX:
      p[0] = r, p[1] = g, p[2] = b, p[3] = 255;
      break;
    case IMK_BGR:
      p[0] = b, p[1] = g, p[2] = r;
      break;
    case IMK_XBGR:
      p[0] = 255, p[1] = b, p[2] = g, p[3] = r;
      break;
  }
}

// Smooth gradients: what JPEG reproduces closely.
void makeSmooth(OwnedPicture& pic, uint16_t type, int width, int height) {
  pic.reset();
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, width, height));
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const auto r = static_cast<uint8_t>(x * 255 / (width - 1));
      const auto g = static_cast<uint8_t>(y * 255 / (height - 1));
      const auto b = static_cast<uint8_t>((x + y) * 255 / (width + height - 2));
      if (type == IMK_GREY)
        pic.row(y)[x] = static_cast<uint8_t>((r + g) / 2);
      else
        setRgb(pic.rec, x, y, r, g, b);
    }
}

// djpeg's decoding (optionally "-scale 1/N") as RGB.
bool djpegRgb(const std::string& path, const std::string& scale, int* w, int* h,
              std::vector<uint8_t>* rgb) {
  test::TempDir dir;
  const std::string out = dir.file("d.pnm");
  const std::string opts = scale.empty() ? "" : "-scale " + scale + " ";
  if (test::run("djpeg " + opts + "-outfile " + test::quote(out) + " " + test::quote(path) +
                " 2>/dev/null") != 0)
    return false;
  return test::readNetpbmAsRgb(out, w, h, rgb);
}

bool hasMarker(const std::vector<uint8_t>& bytes, uint8_t marker) {
  for (size_t i = 0; i + 1 < bytes.size(); ++i)
    if (bytes[i] == 0xFF && bytes[i + 1] == marker) return true;
  return false;
}

// Our decoding compared with djpeg's.
void expectMatchesDjpeg(const std::string& path, int tolerance = 0) {
  OwnedPicture pic;
  ASSERT_EQ(test::load(path, pic), 0) << path;
  int w, h;
  std::vector<uint8_t> ref;
  ASSERT_TRUE(djpegRgb(path, "", &w, &h, &ref)) << path;
  EXPECT_EQ(pic->width, w) << path;
  EXPECT_EQ(pic->height, h) << path;
  EXPECT_LE(test::maxDifference(test::toRgb(pic.rec), ref), tolerance) << path;
}

// ---------------------------------------------------------------------------

TEST(JpegRoundTrip, GreyStaysGreyWith256Levels) {
  test::TempDir dir;
  OwnedPicture pic, back;
  makeSmooth(pic, IMK_GREY, 96, 64);
  ASSERT_EQ(test::save(dir.file("g.jpg"), pic.rec, "jpeg", 95), 0);
  ASSERT_EQ(test::load(dir.file("g.jpg"), back), 0);
  EXPECT_EQ(back->type, IMK_GREY);
  EXPECT_EQ(back->colorCount, 256);
  EXPECT_LE(test::maxDifference(test::toRgb(back.rec), test::toRgb(pic.rec)), 3);
  FileInfo info;
  ASSERT_EQ(imkFileInformation(dir.file("g.jpg").c_str(), -1, 0, &info), 0);
  EXPECT_EQ(info.planes, 1);
}

TEST(JpegRoundTrip, BinaryAndFewLevelGreyAreStoredAsIntensities) {
  test::TempDir dir;
  // Flat 16x16 blocks line up with the DCT blocks, so they survive almost
  // unchanged: what comes back are intensities of 256-level grey.
  OwnedPicture bin, grey16, back;
  ASSERT_TRUE(imkAllock(&bin.rec, IMK_BINARY, 8, 64, 32));
  ASSERT_TRUE(imkAllock(&grey16.rec, IMK_GREY, 8, 64, 32));
  grey16->colorCount = 16;
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 64; ++x) {
      bin.row(y)[x] = ((x / 16) + (y / 16)) & 1;
      grey16.row(y)[x] = static_cast<uint8_t>((x / 16) * 4 + (y / 16) * 3);  // levels 0..15
    }
  ASSERT_EQ(test::save(dir.file("b.jpg"), bin.rec, "jpeg", 95), 0);
  ASSERT_EQ(test::load(dir.file("b.jpg"), back), 0);
  EXPECT_EQ(back->type, IMK_GREY);
  EXPECT_EQ(back->colorCount, 256);
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 64; ++x)
      ASSERT_NEAR(back.row(y)[x], bin.row(y)[x] ? 255 : 0, 4) << x << "," << y;

  ASSERT_EQ(test::save(dir.file("g.jpg"), grey16.rec, "jpeg", 95), 0);
  ASSERT_EQ(test::load(dir.file("g.jpg"), back), 0);
  EXPECT_EQ(back->type, IMK_GREY);
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 64; ++x)
      ASSERT_NEAR(back.row(y)[x], grey16.row(y)[x] * 17, 4) << x << "," << y;  // 255/15 = 17
}

TEST(JpegRoundTrip, EveryTrueColourLayoutWritesTheSameFile) {
  test::TempDir dir;
  std::vector<uint8_t> first;
  for (uint16_t type : {IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR}) {
    OwnedPicture pic, back;
    makeSmooth(pic, type, 80, 48);
    const std::string path = dir.file("c" + std::to_string(type) + ".jpg");
    ASSERT_EQ(test::save(path, pic.rec, "jpeg", 95), 0);
    const std::vector<uint8_t> bytes = test::readFile(path);
    if (first.empty())
      first = bytes;
    else
      EXPECT_EQ(bytes, first) << "kind " << type;
    ASSERT_EQ(test::load(path, back), 0);
    EXPECT_EQ(back->type, IMK_RGB);
    EXPECT_LE(test::maxDifference(test::toRgb(back.rec), test::toRgb(pic.rec)), 6) << type;
  }
}

TEST(JpegRoundTrip, MappedPictureIsExpandedThroughItsPalette) {
  test::TempDir dir;
  OwnedPicture pic, back;
  ASSERT_TRUE(imkAllock(&pic.rec, IMK_MAPPED, 8, 64, 64));
  pic->colorCount = 4;
  const uint8_t colours[4][3] = {{200, 30, 40}, {20, 180, 60}, {30, 40, 190}, {240, 240, 200}};
  for (int i = 0; i < 4; ++i)
    for (int c = 0; c < 3; ++c) pic->palette[c * 256 + i] = colours[i][c];
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x) pic.row(y)[x] = static_cast<uint8_t>((x / 16 + y / 16) % 4);
  ASSERT_EQ(test::save(dir.file("m.jpg"), pic.rec, "jpeg", 95), 0);
  ASSERT_EQ(test::load(dir.file("m.jpg"), back), 0);
  EXPECT_EQ(back->type, IMK_RGB);
  // Each 16x16 block is one colour; away from its edges (where the chroma
  // upsampling blends neighbours) it comes back close to its palette entry.
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x) {
      if (x % 16 < 2 || x % 16 > 13 || y % 16 < 2 || y % 16 > 13) continue;
      const uint8_t* c = colours[pic.row(y)[x]];
      const uint8_t* p = back.row(y) + x * 3;
      for (int k = 0; k < 3; ++k) ASSERT_NEAR(p[k], c[k], 6) << x << "," << y;
    }
}

TEST(JpegWrite, QualityChangesSizeDefaultsTo75AndClampsAt100) {
  test::TempDir dir;
  OwnedPicture pic;
  test::makePattern(pic, IMK_RGB, 128, 96);
  auto sizeAt = [&](int q) {
    const std::string path = dir.file("q" + std::to_string(q) + ".jpg");
    EXPECT_EQ(test::save(path, pic.rec, "jpeg", q), 0);
    return test::readFile(path);
  };
  const auto q20 = sizeAt(20), q75 = sizeAt(75), q100 = sizeAt(100);
  EXPECT_LT(q20.size(), q75.size());
  EXPECT_LT(q75.size(), q100.size());
  EXPECT_EQ(sizeAt(0), q75);     // 0 means the default
  EXPECT_EQ(sizeAt(250), q100);  // beyond 100 is 100
}

TEST(JpegWrite, PicturesWiderThanTheFormatAllowsCannotBeSaved) {
  test::TempDir dir;
  OwnedPicture wide;
  ASSERT_TRUE(imkAllock(&wide.rec, IMK_GREY, 8, 65501, 2));
  EXPECT_EQ(test::save(dir.file("w.jpg"), wide.rec, "jpeg"), IMK_ERR_CANNOT_SAVE);
  EXPECT_FALSE(test::fileExists(dir.file("w.jpg")));
  OwnedPicture widest;
  ASSERT_TRUE(imkAllock(&widest.rec, IMK_GREY, 8, 65500, 2));
  EXPECT_EQ(test::save(dir.file("w.jpg"), widest.rec, "jpeg"), 0);
}

TEST(JpegWrite, ProgressiveOptionWritesSof2AndDecodesLikeBaseline) {
  test::TempDir dir;
  OwnedPicture pic, base, prog;
  makeSmooth(pic, IMK_RGB, 120, 90);
  ASSERT_EQ(test::save(dir.file("b.jpg"), pic.rec, "jpeg", 85, 0), 0);
  ASSERT_EQ(test::save(dir.file("p.jpg"), pic.rec, "jpeg", 85, 1), 0);
  const auto b = test::readFile(dir.file("b.jpg")), p = test::readFile(dir.file("p.jpg"));
  EXPECT_TRUE(hasMarker(b, 0xC0));
  EXPECT_FALSE(hasMarker(b, 0xC2));
  EXPECT_TRUE(hasMarker(p, 0xC2));
  EXPECT_FALSE(hasMarker(p, 0xC0));
  // Progressive order only rearranges the same quantised coefficients.
  ASSERT_EQ(test::load(dir.file("b.jpg"), base), 0);
  ASSERT_EQ(test::load(dir.file("p.jpg"), prog), 0);
  EXPECT_EQ(test::toRgb(prog.rec), test::toRgb(base.rec));
  expectMatchesDjpeg(dir.file("p.jpg"));
}

// djpeg decodes our files exactly like we do; the pattern is far from smooth,
// so closeness to the source is left to the tests of smooth pictures.
checks::RoundTripCase jpeg(uint16_t kind, int levels, uint16_t loaded) {
  return {.format = "jpeg",
          .kind = kind,
          .levels = levels,
          .loaded = loaded,
          .tolerance = 255,
          .magickReads = false,
          .toolReads = {"djpeg {file}"},
          .toolsMatchOurs = true,
          .width = 75,
          .height = 53,
          .quality = 80};
}

INSTANTIATE_TEST_SUITE_P(Jpeg, RoundTrip,
                         testing::Values(jpeg(IMK_RGB, 256, IMK_RGB), jpeg(IMK_GREY, 256, IMK_GREY),
                                         jpeg(IMK_MAPPED, 100, IMK_RGB),
                                         jpeg(IMK_BINARY, 2, IMK_GREY)),
                         checks::caseName<checks::RoundTripCase>);

// Files of other encoders decode exactly like djpeg decodes them.
checks::ToolWriteCase jpegTool(const char* command, uint16_t kind = 0) {
  return {.format = "jpg", .command = command, .kind = kind, .decoder = "djpeg {out}"};
}

INSTANTIATE_TEST_SUITE_P(
    Jpeg, ToolWrites,
    testing::Values(
        jpegTool("cjpeg -quality 80 {dir}/rgb.ppm > {out}", IMK_RGB),
        jpegTool("cjpeg -progressive {dir}/rgb.ppm > {out}"),
        jpegTool("cjpeg -sample 1x1 -quality 95 {dir}/rgb.ppm > {out}"),
        jpegTool("cjpeg -sample 2x1 {dir}/rgb.ppm > {out}"),
        jpegTool("cjpeg -grayscale {dir}/rgb.ppm > {out}", IMK_GREY),
        jpegTool("cjpeg -restart 1 {dir}/rgb.ppm > {out}"),
        jpegTool("cjpeg -arithmetic {dir}/rgb.ppm > {out}"),
        jpegTool("cjpeg -optimize -quality 60 {dir}/rgb.ppm > {out}"),
        jpegTool("/usr/bin/convert {dir}/rgb.ppm -quality 70 jpg:{out}"),
        jpegTool("/usr/bin/convert {dir}/rgb.ppm -colorspace gray -quality 90 jpg:{out}")),
    checks::caseName<checks::ToolWriteCase>);

TEST(JpegCrossCheck, ImageMagickAgreesWithinRounding) {
  // It may use another IDCT.
  test::TempDir dir;
  OwnedPicture pic, back;
  makeSmooth(pic, IMK_RGB, 64, 64);
  ASSERT_EQ(test::save(dir.file("m.jpg"), pic.rec, "jpeg", 90), 0);
  ASSERT_EQ(test::load(dir.file("m.jpg"), back), 0);
  int w, h;
  std::vector<uint8_t> magick;
  ASSERT_TRUE(test::magickToRgb(dir.file("m.jpg"), &w, &h, &magick));
  EXPECT_LE(test::maxDifference(test::toRgb(back.rec), magick), 2);
}

TEST(JpegCorpus, GeneratedAndReferenceFilesMatchDjpegExactly) {
  for (const char* name : {"generated/cjpeg_arithmetic.jpg", "generated/cjpeg_baseline_420.jpg",
                           "generated/cjpeg_baseline_422.jpg", "generated/cjpeg_baseline_444.jpg",
                           "generated/cjpeg_gray.jpg", "generated/cjpeg_progressive.jpg",
                           "generated/cjpeg_restart1row.jpg", "generated/cjpeg_rgb_nonycc.jpg",
                           "libjpeg-turbo/testimgint.jpg", "libjpeg-turbo/testimgari.jpg",
                           "jpeg-decoder/progressive3.jpg", "jpeg-decoder/non-interleaved-mcu.jpg",
                           "pillow/hopper_16bit_qtables.jpg", "image-rs/progressive/cat.jpg"})
    expectMatchesDjpeg(kJpeg + name);
  // The stored full-size djpeg decoding of testorig.jpg.
  OwnedPicture pic;
  ASSERT_EQ(test::load(kJpeg + "libjpeg-turbo/testorig.jpg", pic), 0);
  int w, h;
  std::vector<uint8_t> ref;
  ASSERT_TRUE(test::readNetpbmAsRgb(kJpeg + "generated/ref/testorig.full.ppm", &w, &h, &ref));
  EXPECT_EQ(test::toRgb(pic.rec), ref);
}

TEST(JpegCorpus, LibjpegsOwnWordsReachTheCaller) {
  OwnedPicture pic;
  FileInfo info;
  EXPECT_EQ(test::load(kJpeg + "libjpeg-turbo/monkey12.jpg", pic, 0, 0, &info), IMK_ERR_JPEG);
  EXPECT_STREQ(info.errorText, "Unsupported JPEG data precision 12");
}

// --- reduced loads ----------------------------------------------------------

int loadReduced(const std::string& path, OwnedPicture& pic, int fitWidth, int fitHeight) {
  pic.reset();
  LoadOptions o;
  imkDefaultOption(&o);
  o.flags |= IMK_FLAG_REDUCE;
  o.fitWidth = fitWidth;
  o.fitHeight = fitHeight;
  return imkLoad(path.c_str(), &pic.rec, &o, nullptr);
}

TEST(JpegReduced, DctScaledLoadsMatchDjpegScaleReferences) {
  // 227x149 files: 1/2 -> 114x75, 1/4 -> 57x38, 1/8 -> 29x19. Asking for
  // those sizes must decode at exactly that DCT scale, nothing more.
  const struct {
    const char* file;
    const char* ref;
  } files[] = {{"libjpeg-turbo/testorig.jpg", "testorig"},
               {"generated/cjpeg_baseline_420.jpg", "cjpeg_baseline_420"},
               {"generated/cjpeg_progressive.jpg", "progressive"}};
  const struct {
    const char* suffix;
    int w, h;
  } scales[] = {{"scale1_2", 114, 75}, {"scale1_4", 57, 38}, {"scale1_8", 29, 19}};
  for (const auto& f : files)
    for (const auto& s : scales) {
      SCOPED_TRACE(std::string(f.file) + " " + s.suffix);
      OwnedPicture pic;
      ASSERT_EQ(loadReduced(kJpeg + f.file, pic, s.w, s.h), 0);
      int w, h;
      std::vector<uint8_t> ref;
      ASSERT_TRUE(test::readNetpbmAsRgb(kJpeg + "generated/ref/" + f.ref + "." + s.suffix + ".ppm",
                                        &w, &h, &ref));
      ASSERT_EQ(pic->width, w);
      ASSERT_EQ(pic->height, h);
      EXPECT_EQ(test::toRgb(pic.rec), ref);
    }
  // Another decoder's 1/8 decoding of rgb.jpg (500x333 -> 63x42).
  OwnedPicture pic;
  ASSERT_EQ(loadReduced(kJpeg + "jpeg-decoder/rgb.jpg", pic, 63, 42), 0);
  int w, h;
  std::vector<uint8_t> ref;
  ASSERT_TRUE(test::magickToRgb(kJpeg + "jpeg-decoder/rgb_63x42.png", &w, &h, &ref));
  EXPECT_LE(test::maxDifference(test::toRgb(pic.rec), ref), 1);
}

TEST(JpegReduced, BetweenScalesTheAreaReductionFinishes) {
  test::TempDir dir;
  OwnedPicture pic, small;
  makeSmooth(pic, IMK_RGB, 800, 600);
  ASSERT_EQ(test::save(dir.file("s.jpg"), pic.rec, "jpeg", 90), 0);
  // 150x150 box: 150x113 wanted; the 1/4 scale (200x150) covers it and is
  // then averaged down.
  ASSERT_EQ(loadReduced(dir.file("s.jpg"), small, 150, 150), 0);
  EXPECT_EQ(small->width, 150);
  EXPECT_EQ(small->height, 113);
  // A smooth gradient reduced is still that gradient: compare with the
  // original picture sampled at the centre of each output pixel.
  for (int y = 0; y < 113; y += 7)
    for (int x = 0; x < 150; x += 7) {
      const int sx = (2 * x + 1) * 800 / 300, sy = (2 * y + 1) * 600 / 226;
      const uint8_t* o = pic.row(sy) + sx * 3;
      const uint8_t* r = small.row(y) + x * 3;
      for (int c = 0; c < 3; ++c) ASSERT_NEAR(r[c], o[c], 6) << x << "," << y;
    }
}

TEST(JpegReduced, FineCheckerboardBecomesMidGreyNotSamples) {
  test::TempDir dir;
  OwnedPicture board, small;
  ASSERT_TRUE(imkAllock(&board.rec, IMK_GREY, 8, 512, 512));
  for (int y = 0; y < 512; ++y)
    for (int x = 0; x < 512; ++x) board.row(y)[x] = ((x + y) & 1) ? 255 : 0;
  ASSERT_EQ(test::save(dir.file("c.jpg"), board.rec, "jpeg", 100), 0);
  ASSERT_EQ(loadReduced(dir.file("c.jpg"), small, 64, 64), 0);
  ASSERT_EQ(small->width, 64);
  ASSERT_EQ(small->height, 64);
  // Picking pixels would give 0 or 255; averaging gives 127.5.
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x) ASSERT_NEAR(small.row(y)[x], 128, 3) << x << "," << y;
}

// --- damage, cancelling -------------------------------------------------------

TEST(JpegDamage, TruncatedFileKeepsAFullSizePictureOnlyWhenErrorsAreIgnored) {
  test::TempDir dir;
  OwnedPicture pic, whole, cut;
  makeSmooth(pic, IMK_RGB, 256, 256);
  ASSERT_EQ(test::save(dir.file("w.jpg"), pic.rec, "jpeg", 90), 0);
  std::vector<uint8_t> bytes = test::readFile(dir.file("w.jpg"));
  bytes.resize(bytes.size() / 2);
  test::writeFile(dir.file("cut.jpg"), bytes);

  FileInfo info;
  EXPECT_EQ(test::load(dir.file("cut.jpg"), cut, 0, 0, &info), IMK_ERR_JPEG);
  EXPECT_EQ(cut->pixels, nullptr);
  EXPECT_STREQ(info.errorText, "Premature end of JPEG file");

  ASSERT_EQ(test::load(dir.file("cut.jpg"), cut, 0, IMK_FLAG_IGNORE_ERRORS, &info), 0);
  ASSERT_EQ(test::load(dir.file("w.jpg"), whole), 0);
  ASSERT_EQ(cut->width, 256);
  ASSERT_EQ(cut->height, 256);
  EXPECT_STREQ(info.errorText, "Premature end of JPEG file");
  // The rows before the cut are the complete file's; the missing part is
  // filled with one flat colour by the decoder.
  const size_t rowBytes = 256 * 3;
  const auto a = test::toRgb(cut.rec), b = test::toRgb(whole.rec);
  EXPECT_TRUE(std::equal(a.begin(), a.begin() + 64 * rowBytes, b.begin()));
  const uint8_t* last = &a[255 * rowBytes];
  for (size_t i = 3; i < rowBytes; ++i) ASSERT_EQ(last[i], last[i % 3]);
}

TEST(JpegProgress, CancellingGives15AndAnEmptyRecord) {
  test::TempDir dir;
  OwnedPicture pic;
  makeSmooth(pic, IMK_RGB, 200, 160);
  ASSERT_EQ(test::save(dir.file("b.jpg"), pic.rec, "jpeg", 0, 0), 0);
  ASSERT_EQ(test::save(dir.file("p.jpg"), pic.rec, "jpeg", 0, 1), 0);
  for (const char* name : {"b.jpg", "p.jpg"})
    for (int stop : {0, 3, 20}) checks::expectEveryStepAndStopAt(dir.file(name), stop);
}

TEST(JpegWrite, CancellingOrAFullDiskLeavesTheTargetAlone) {
  OwnedPicture pic;
  test::makePattern(pic, IMK_RGB, 400, 300);
  checks::expectStoppedAndFailedSavesLeaveFilesAlone(pic.rec, "jpeg", 95);
}

// --- CMYK, headers ------------------------------------------------------------

TEST(JpegCmyk, InkValuesBecomeTheColoursTheyDescribe) {
  test::TempDir dir;
  // ImageMagick writes Adobe CMYK files (inverted ink values). Expected
  // colours: R = 255 (1 - C) (1 - K), and so on, with inks as fractions of 255.
  const struct {
    const char* ink;
    int r, g, b;
  } cases[] = {
      {"cmyk(255,0,0,0)", 0, 255, 255},    // cyan
      {"cmyk(0,255,255,0)", 255, 0, 0},    // red
      {"cmyk(0,0,0,128)", 127, 127, 127},  // half black: 255 * 127/255
      {"cmyk(0,128,255,64)", 191, 95, 0},  // 255*191/255, 127*191/255, 0
  };
  for (const auto& c : cases) {
    const std::string path = dir.file("k.jpg");
    ASSERT_EQ(test::run("/usr/bin/convert -size 16x16 " + test::quote(std::string("xc:") + c.ink) +
                        " -quality 100 " + test::quote(path)),
              0);
    OwnedPicture pic;
    FileInfo info;
    ASSERT_EQ(test::load(path, pic, 0, 0, &info), 0) << c.ink;
    EXPECT_EQ(info.planes, 4);
    EXPECT_EQ(pic->type, IMK_RGB);
    const uint8_t* p = pic.row(8) + 8 * 3;
    EXPECT_NEAR(p[0], c.r, 2) << c.ink;
    EXPECT_NEAR(p[1], c.g, 2) << c.ink;
    EXPECT_NEAR(p[2], c.b, 2) << c.ink;
  }
  // Real CMYK files against the reference decodings shipped with them.
  for (const char* name : {"jpeg-decoder/mozilla/jpg-cmyk-1", "jpeg-decoder/mozilla/jpg-cmyk-2"}) {
    OwnedPicture pic;
    ASSERT_EQ(test::load(kJpeg + name + ".jpg", pic), 0);
    int w, h;
    std::vector<uint8_t> ref;
    ASSERT_TRUE(test::magickToRgb(kJpeg + name + ".png", &w, &h, &ref));
    EXPECT_LE(test::maxDifference(test::toRgb(pic.rec), ref), 1) << name;
  }
  // testorig converted to Adobe CMYK by ImageMagick looks like testorig.
  OwnedPicture cmyk, rgb;
  ASSERT_EQ(test::load(kJpeg + "generated/im_cmyk.jpg", cmyk), 0);
  ASSERT_EQ(test::load(kJpeg + "libjpeg-turbo/testorig.jpg", rgb), 0);
  const auto a = test::toRgb(cmyk.rec), b = test::toRgb(rgb.rec);
  ASSERT_EQ(a.size(), b.size());
  long sum = 0;
  for (size_t i = 0; i < a.size(); ++i) sum += std::abs(a[i] - b[i]);
  EXPECT_LT(static_cast<double>(sum) / a.size(), 3.0);
}

TEST(JpegInfo, FileCutAfterTheScanHeaderIsDescribedButNotLoaded) {
  // Cut right after the start-of-scan header: described, but not loadable.
  test::TempDir dir;
  std::vector<uint8_t> bytes = test::readFile(kJpeg + "libjpeg-turbo/testorig.jpg");
  size_t sos = 0;
  for (size_t i = 2; i + 3 < bytes.size() && !sos; ++i)
    if (bytes[i] == 0xFF && bytes[i + 1] == 0xDA) sos = i + 2 + (bytes[i + 2] << 8 | bytes[i + 3]);
  ASSERT_GT(sos, 0u);
  bytes.resize(sos);
  test::writeFile(dir.file("h.jpg"), bytes);
  FileInfo info;
  ASSERT_EQ(imkFileInformation(dir.file("h.jpg").c_str(), -1, 0, &info), 0);
  EXPECT_EQ(info.width, 227);
  OwnedPicture pic;
  EXPECT_EQ(test::load(dir.file("h.jpg"), pic), IMK_ERR_JPEG);
}

}  // namespace
