// WebP: lossless round trips of every picture kind, lossy quality, alpha,
// files made and read by libwebp's own tools, animations composed frame by
// frame, reduced loads, progress, damaged and hostile files.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"
#include "tests/support/test_support.h"

namespace {

using checks::makeGradient;
using checks::makeNoise;
using checks::meanDifference;
using test::OwnedPicture;
using test::rgbaOf;

// Decodes a file with dwebp into a PNG, then reads that PNG.
bool dwebpDecode(const std::string& webp, OwnedPicture& pic, const test::TempDir& dir) {
  const std::string png = dir.file("dwebp.png");
  if (test::run("dwebp -quiet " + test::quote(webp) + " -o " + test::quote(png) + " 2>/dev/null") !=
      0)
    return false;
  return test::load(png, pic) == 0;
}

// A solid colour, packed R,G,B, written as a binary PPM.
void writeSolidPpm(const std::string& path, int w, int h, uint8_t r, uint8_t g, uint8_t b) {
  const std::string head = "P6\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n";
  std::vector<uint8_t> bytes(head.begin(), head.end());
  for (int i = 0; i < w * h; ++i) bytes.insert(bytes.end(), {r, g, b});
  test::writeFile(path, bytes);
}

// --- round trips ----------------------------------------------------------

// Lossless files are exact for every kind; without alpha in the picture there
// is none in the file. With alpha, colours under fully transparent pixels
// survive too.
checks::RoundTripCase webp(uint16_t kind, int levels, uint16_t loaded) {
  return {.format = "webp",
          .kind = kind,
          .levels = levels,
          .loaded = loaded,
          .options = {1},
          .sameNumbers = kind == IMK_RGBX,
          .magickReads = false,
          .width = 45,
          .height = 29};
}

INSTANTIATE_TEST_SUITE_P(Webp, RoundTrip,
                         testing::Values(webp(IMK_BINARY, 2, IMK_RGB), webp(IMK_GREY, 16, IMK_RGB),
                                         webp(IMK_MAPPED, 200, IMK_RGB),
                                         webp(IMK_RGB, 256, IMK_RGB), webp(IMK_BGR, 256, IMK_RGB),
                                         webp(IMK_XBGR, 256, IMK_RGB),
                                         webp(IMK_RGBX, 256, IMK_RGBX)),
                         checks::caseName<checks::RoundTripCase>);

TEST(WebpInfo, AlphaMakesFourPlanesOfEightBits) {
  test::TempDir dir;
  const std::string path = dir.file("a.webp");
  OwnedPicture pic;
  test::makePattern(pic, IMK_RGBX, 40, 31);
  ASSERT_EQ(test::save(path, pic.rec, "webp", 0, 1), 0);
  FileInfo info;
  ASSERT_EQ(imkFileInformation(path.c_str(), -1, 0, &info), 0);
  EXPECT_EQ(info.planes, 4);
  EXPECT_EQ(info.bitsPerPlane, 8);
}

TEST(WebpRoundTrip, OpaqueSpareByteMakesAFileWithoutAlpha) {
  test::TempDir dir;
  const std::string path = dir.file("o.webp");
  OwnedPicture pic, back;
  test::makePattern(pic, IMK_RGBX, 30, 20);
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 30; ++x) pic.row(y)[x * 4 + 3] = 255;
  for (int option : {0, 1}) {
    ASSERT_EQ(test::save(path, pic.rec, "webp", 90, option), 0);
    ASSERT_EQ(test::load(path, back), 0);
    EXPECT_EQ(back->type, IMK_RGB) << option;
  }
}

TEST(WebpRoundTrip, LossyStaysCloseAndQualityTradesSize) {
  test::TempDir dir;
  OwnedPicture pic, back;
  makeGradient(pic, IMK_RGB, 160, 120);
  ASSERT_EQ(test::save(dir.file("q0.webp"), pic.rec, "webp", 0), 0);
  ASSERT_EQ(test::save(dir.file("q75.webp"), pic.rec, "webp", 75), 0);
  ASSERT_EQ(test::save(dir.file("q5.webp"), pic.rec, "webp", 5), 0);
  ASSERT_EQ(test::save(dir.file("q100.webp"), pic.rec, "webp", 100), 0);
  // Quality 0 means the default, 75.
  EXPECT_EQ(test::readFile(dir.file("q0.webp")), test::readFile(dir.file("q75.webp")));
  EXPECT_LT(test::readFile(dir.file("q5.webp")).size(),
            test::readFile(dir.file("q100.webp")).size());
  ASSERT_EQ(test::load(dir.file("q75.webp"), back), 0);
  EXPECT_EQ(back->type, IMK_RGB);
  // Quality 75 with half-resolution chroma: close on average, a few larger
  // errors where the wave and the ramps cross.
  const auto a = test::toRgb(pic.rec), b = test::toRgb(back.rec);
  EXPECT_LT(meanDifference(a, b), 3.0);
  EXPECT_LE(test::maxDifference(a, b), 32);

  // Lossy alpha is coded losslessly by default.
  OwnedPicture rgba;
  makeGradient(rgba, IMK_RGBX, 64, 48);
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x)
      rgba.row(y)[x * 4 + 3] = static_cast<uint8_t>(x < 32 ? 255 : y * 5);
  ASSERT_EQ(test::save(dir.file("qa.webp"), rgba.rec, "webp", 90), 0);
  ASSERT_EQ(test::load(dir.file("qa.webp"), back), 0);
  ASSERT_EQ(back->type, IMK_RGBX);
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x)
      ASSERT_EQ(back.row(y)[x * 4 + 3], rgba.row(y)[x * 4 + 3]) << x << "," << y;
}

// --- independent tools ------------------------------------------------------

TEST(WebpCrossCheck, DwebpReadsOurFilesAsWeDo) {
  test::TempDir dir;
  OwnedPicture pic;
  test::makePattern(pic, IMK_RGBX, 51, 37);
  for (int option : {0, 1}) {
    const std::string path = dir.file("ours.webp");
    ASSERT_EQ(test::save(path, pic.rec, "webp", 80, option), 0);
    OwnedPicture ours, theirs;
    ASSERT_EQ(test::load(path, ours), 0);
    ASSERT_TRUE(dwebpDecode(path, theirs, dir));
    EXPECT_EQ(rgbaOf(ours.rec), rgbaOf(theirs.rec)) << option;
    if (option == 1) {
      EXPECT_EQ(rgbaOf(theirs.rec), rgbaOf(pic.rec));
    }
  }
}

TEST(WebpCrossCheck, CwebpFilesReadLikeTheirSource) {
  test::TempDir dir;
  OwnedPicture pic;
  test::makePattern(pic, IMK_RGBX, 47, 33);
  const std::string png = dir.file("src.png");
  ASSERT_EQ(test::save(png, pic.rec, "png"), 0);
  ASSERT_EQ(test::run("cwebp -quiet -lossless -exact " + test::quote(png) + " -o " +
                      test::quote(dir.file("ll.webp")) + " 2>/dev/null"),
            0);
  OwnedPicture ll;
  ASSERT_EQ(test::load(dir.file("ll.webp"), ll), 0);
  ASSERT_EQ(ll->type, IMK_RGBX);
  EXPECT_EQ(test::pixelsOf(ll.rec), test::pixelsOf(pic.rec));

  // Lossy: the same pixels dwebp decodes; and close to the source.
  OwnedPicture smooth;
  makeGradient(smooth, IMK_RGB, 96, 64);
  ASSERT_EQ(test::save(dir.file("smooth.ppm"), smooth.rec, "ppm"), 0);
  ASSERT_EQ(test::run("cwebp -quiet -q 85 " + test::quote(dir.file("smooth.ppm")) + " -o " +
                      test::quote(dir.file("lossy.webp")) + " 2>/dev/null"),
            0);
  OwnedPicture ours, theirs;
  ASSERT_EQ(test::load(dir.file("lossy.webp"), ours), 0);
  EXPECT_EQ(ours->type, IMK_RGB);
  ASSERT_TRUE(dwebpDecode(dir.file("lossy.webp"), theirs, dir));
  EXPECT_EQ(test::toRgb(ours.rec), test::toRgb(theirs.rec));
  EXPECT_LT(meanDifference(test::toRgb(ours.rec), test::toRgb(smooth.rec)), 3.0);
}

// --- animations ----------------------------------------------------------------

// Three frames on a 40 x 30 canvas: a red background frame, a 10 x 8 blue
// patch at (10,6) kept afterwards, a 6 x 4 green patch at (20,20) disposed to
// the background (transparent) after it is shown.
std::string makeAnimation(const test::TempDir& dir) {
  writeSolidPpm(dir.file("red.ppm"), 40, 30, 255, 0, 0);
  writeSolidPpm(dir.file("blue.ppm"), 10, 8, 0, 0, 255);
  writeSolidPpm(dir.file("green.ppm"), 6, 4, 0, 255, 0);
  for (const char* name : {"red", "blue", "green"})
    if (test::run(std::string("cwebp -quiet -lossless ") +
                  test::quote(dir.file(std::string(name) + ".ppm")) + " -o " +
                  test::quote(dir.file(std::string(name) + ".webp")) + " 2>/dev/null") != 0)
      return "";
  const std::string anim = dir.file("anim.webp");
  const std::string cmd = "webpmux -frame " + test::quote(dir.file("red.webp")) +
                          " +100+0+0+0-b -frame " + test::quote(dir.file("blue.webp")) +
                          " +100+10+6+0-b -frame " + test::quote(dir.file("green.webp")) +
                          " +100+20+20+1-b -frame " + test::quote(dir.file("blue.webp")) +
                          " +100+0+0+0-b -loop 0 -bgcolor 0,0,0,0 -o " + test::quote(anim) +
                          " 2>/dev/null";
  return test::run(cmd) == 0 ? anim : "";
}

// The colour at (x,y) of picture `frame` of the animation above.
std::vector<uint8_t> expectedFrame(int frame) {
  std::vector<uint8_t> rgb;
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x) {
      uint8_t r = 255, g = 0, b = 0;
      if (frame >= 1 && x >= 10 && x < 20 && y >= 6 && y < 14) r = 0, b = 255;
      if (frame == 2 && x >= 20 && x < 26 && y >= 20 && y < 24) r = 0, g = 255, b = 0;
      if (frame == 3 && x >= 20 && x < 26 && y >= 20 && y < 24) r = 0, g = 0, b = 0;  // disposed
      if (frame == 3 && x < 10 && y < 8) r = 0, b = 255;
      rgb.insert(rgb.end(), {r, g, b});
    }
  return rgb;
}

TEST(WebpAnimation, EveryFrameIsThePictureTheAnimationShows) {
  test::TempDir dir;
  const std::string anim = makeAnimation(dir);
  ASSERT_FALSE(anim.empty());
  FileInfo info;
  ASSERT_EQ(imkFileInformation(anim.c_str(), -1, 0, &info), 0);
  EXPECT_EQ(info.pictureCount, 4);
  EXPECT_EQ(info.width, 40);
  EXPECT_EQ(info.height, 30);
  for (int frame = 0; frame < 4; ++frame) {
    OwnedPicture pic;
    FileInfo loaded;
    ASSERT_EQ(test::load(anim, pic, frame, 0, &loaded), 0) << frame;
    EXPECT_EQ(loaded.pictureCount, 4);
    ASSERT_EQ(pic->width, 40);
    ASSERT_EQ(pic->height, 30);
    EXPECT_EQ(test::toRgb(pic.rec), expectedFrame(frame)) << "frame " << frame;
    // The disposed patch is transparent on the canvas.
    if (pic->type == IMK_RGBX) {
      EXPECT_EQ(pic.row(21)[21 * 4 + 3], frame == 3 ? 0 : 255) << frame;
    }
  }
  OwnedPicture none;
  EXPECT_EQ(test::load(anim, none, 4), IMK_ERR_BAD_FILE);
  EXPECT_EQ(none->pixels, nullptr);
}

TEST(WebpAnimation, CorpusFramesAgreeWithImageMagick) {
  for (const char* name :
       {"image-webp/animated/random_lossless.webp", "image-webp/animated/random_lossy.webp",
        "image-rs/extended_images__anim.webp", "generated/img2webp_anim.webp"}) {
    const std::string path = test::corpusDir() + "/webp/" + name;
    FileInfo info;
    ASSERT_EQ(imkFileInformation(path.c_str(), -1, 0, &info), 0) << name;
    std::string all;
    ASSERT_EQ(test::run("/usr/bin/convert " + test::quote(path) +
                            " -coalesce -depth 8 rgba:- 2>/dev/null",
                        &all),
              0);
    const size_t frameBytes = static_cast<size_t>(info.width) * info.height * 4;
    ASSERT_EQ(all.size(), frameBytes * info.pictureCount) << name;
    for (int frame = 0; frame < info.pictureCount; ++frame) {
      OwnedPicture pic;
      ASSERT_EQ(test::load(path, pic, frame), 0) << name << " " << frame;
      const std::vector<uint8_t> ours = rgbaOf(pic.rec);
      long differing = 0;
      for (size_t i = 0; i < frameBytes; i += 4) {
        const auto* ref = reinterpret_cast<const uint8_t*>(all.data()) + frameBytes * frame + i;
        // Colours count where the reference is opaque.
        bool differs = std::abs(ours[i + 3] - ref[3]) > 1;
        if (ref[3] == 255)
          for (int c = 0; c < 3; ++c) differs |= std::abs(ours[i + c] - ref[c]) > 1;
        differing += differs;
      }
      EXPECT_EQ(differing, 0) << name << " frame " << frame;
    }
  }
}

// --- reduced loads, progress ------------------------------------------------

TEST(WebpReduce, ScaledDecodeMatchesTheAreaAverageOfTheFullPicture) {
  test::TempDir dir;
  OwnedPicture pic;
  makeGradient(pic, IMK_RGB, 400, 300);
  for (int y = 100; y < 200; ++y)  // a hard edge as well
    for (int x = 150; x < 250; ++x) test::storeRgb(pic, x, y, 255, 255, 255);
  const std::string path = dir.file("r.webp");
  ASSERT_EQ(test::save(path, pic.rec, "webp", 0, 1), 0);
  LoadOptions o;
  imkDefaultOption(&o);
  o.flags |= IMK_FLAG_REDUCE;
  o.fitWidth = o.fitHeight = 100;
  OwnedPicture reduced;
  ASSERT_EQ(imkLoad(path.c_str(), &reduced.rec, &o, nullptr), 0);
  EXPECT_EQ(reduced->width, 100);
  EXPECT_EQ(reduced->height, 75);

  imk::Picture full;
  ASSERT_TRUE(full.allocate(IMK_RGB, 400, 300));
  for (int y = 0; y < 300; ++y) std::memcpy(full.row(y), pic.row(y), 400 * 3);
  ASSERT_TRUE(imk::reducePicture(full, 100, 100));
  const auto a = test::toRgb(reduced.rec), b = test::toRgb(full.rec());
  EXPECT_LE(test::maxDifference(a, b), 4);

  // An animation is reduced after composing.
  const std::string anim = makeAnimation(dir);
  ASSERT_FALSE(anim.empty());
  OwnedPicture small;
  LoadOptions ao = o;
  ao.fitWidth = ao.fitHeight = 20;
  ao.pictureIndex = 1;
  ASSERT_EQ(imkLoad(anim.c_str(), &small.rec, &ao, nullptr), 0);
  EXPECT_EQ(small->width, 20);
  EXPECT_EQ(small->height, 15);
  const auto rgb = test::toRgb(small.rec);
  EXPECT_EQ(rgb[(5 * 20 + 7) * 3 + 2], 255);  // inside the blue patch
  EXPECT_EQ(rgb[0], 255);                     // red corner
}

TEST(WebpProgress, ClimbsFromZeroAndStopsWhenAsked) {
  test::TempDir dir;
  OwnedPicture pic;
  test::makePattern(pic, IMK_RGB, 600, 500);
  const std::string path = dir.file("p.webp");
  ASSERT_EQ(test::save(path, pic.rec, "webp", 0, 1), 0);
  checks::expectProgressClimbsAndStops(path);
  const std::string anim = makeAnimation(dir);
  ASSERT_FALSE(anim.empty());
  checks::expectProgressClimbsAndStops(anim, 3);
}

TEST(WebpWrite, StoppingLeavesNoFileWriteErrorsAreReportedAndSizesAreFourteenBit) {
  OwnedPicture pic;
  makeNoise(pic, IMK_RGB, 300, 200);
  checks::expectStoppedAndFailedSavesLeaveFilesAlone(pic.rec, "webp", 0, 1);
  test::TempDir dir;
  OwnedPicture wide;
  ASSERT_TRUE(imkAllock(&wide.rec, IMK_GREY, 8, 16384, 1));
  EXPECT_EQ(test::save(dir.file("wide.webp"), wide.rec, "webp"), IMK_ERR_CANNOT_SAVE);
}

// --- damaged and hostile files ------------------------------------------------

TEST(WebpDamaged, CutFileKeepsItsTopRowsOnlyWhenErrorsAreIgnored) {
  test::TempDir dir;
  OwnedPicture pic, whole;
  makeNoise(pic, IMK_RGB, 320, 240);
  for (int option : {0, 1}) {
    const std::string path = dir.file("w.webp");
    ASSERT_EQ(test::save(path, pic.rec, "webp", 90, option), 0);
    ASSERT_EQ(test::load(path, whole), 0);
    std::vector<uint8_t> bytes = test::readFile(path);
    bytes.resize(bytes.size() * 6 / 10);
    const std::string cut = dir.file("cut.webp");
    test::writeFile(cut, bytes);
    OwnedPicture part;
    FileInfo info;
    EXPECT_EQ(test::load(cut, part, 0, 0, &info), IMK_ERR_CORRUPT) << option;
    EXPECT_STREQ(info.errorText, "truncated");
    EXPECT_EQ(part->pixels, nullptr);
    ASSERT_EQ(test::load(cut, part, 0, IMK_FLAG_IGNORE_ERRORS), 0) << option;
    ASSERT_EQ(part->width, 320);
    const size_t rowBytes = 320 * 3;
    const auto a = test::toRgb(part.rec), b = test::toRgb(whole.rec);
    int same = 0;
    for (int y = 0; y < 240; ++y)
      same += std::equal(a.begin() + y * rowBytes, a.begin() + (y + 1) * rowBytes,
                         b.begin() + y * rowBytes);
    EXPECT_GE(same, 240 * 3 / 10) << option;
    EXPECT_LT(same, 240) << option;
    // The headers are still described.
    ASSERT_EQ(imkFileInformation(cut.c_str(), -1, 0, &info), 0);
    EXPECT_EQ(info.width, 320);
  }
}

void put32le(std::vector<uint8_t>& v, uint32_t x) {
  for (int i = 0; i < 4; ++i) v.push_back(static_cast<uint8_t>(x >> (8 * i)));
}

// RIFF/WEBP around the given chunks.
std::vector<uint8_t> riff(const std::vector<uint8_t>& chunks) {
  std::vector<uint8_t> f = {'R', 'I', 'F', 'F'};
  put32le(f, static_cast<uint32_t>(chunks.size() + 4));
  f.insert(f.end(), {'W', 'E', 'B', 'P'});
  f.insert(f.end(), chunks.begin(), chunks.end());
  return f;
}

std::vector<uint8_t> chunk(const char* tag, const std::vector<uint8_t>& data) {
  std::vector<uint8_t> c(tag, tag + 4);
  put32le(c, static_cast<uint32_t>(data.size()));
  c.insert(c.end(), data.begin(), data.end());
  if (data.size() & 1) c.push_back(0);
  return c;
}

TEST(WebpHostile, BadHeadersHugeSizesAndLengthsPastTheEndFailCleanly) {
  test::TempDir dir;
  const std::string path = dir.file("h.webp");
  auto loadFails = [&](const std::vector<uint8_t>& bytes, const char* what) {
    test::writeFile(path, bytes);
    for (uint16_t flags : {0, static_cast<int>(IMK_FLAG_IGNORE_ERRORS)}) {
      OwnedPicture pic;
      const int rc = test::load(path, pic, 0, flags);
      EXPECT_TRUE(rc == IMK_ERR_BAD_FILE || rc == IMK_ERR_CORRUPT) << what << ": " << rc;
      EXPECT_EQ(pic->pixels, nullptr) << what;
    }
  };
  // A lossless header of 16384 x 16384 with no image data behind it.
  std::vector<uint8_t> vp8l = {0x2F};
  const uint32_t bits = 16383u | (16383u << 14);
  put32le(vp8l, bits);
  vp8l.insert(vp8l.end(), {0, 0, 0});
  loadFails(riff(chunk("VP8L", vp8l)), "huge lossless");
  // A chunk longer than the file.
  std::vector<uint8_t> longer = riff(chunk("VP8L", vp8l));
  longer[16] = 0xFF, longer[17] = 0xFF, longer[18] = 0xFF;
  loadFails(longer, "chunk past the end");
  // A lossy key frame without its start code.
  loadFails(riff(chunk("VP8 ", {0x10, 0x02, 0x00, 1, 2, 3, 10, 0, 10, 0})), "bad VP8 start code");
  // An animation whose canvas is beyond the pixel budget.
  std::vector<uint8_t> vp8x = {0x02, 0, 0, 0};                              // animation flag
  for (int i = 0; i < 2; ++i) vp8x.insert(vp8x.end(), {0xFF, 0xFF, 0x00});  // 65536 x 65536
  std::vector<uint8_t> anim = chunk("VP8X", vp8x);
  const auto animChunk = chunk("ANIM", {0, 0, 0, 0, 0, 0});
  anim.insert(anim.end(), animChunk.begin(), animChunk.end());
  loadFails(riff(anim), "huge canvas");
  // Not WebP inside the RIFF: some other format claims it or nobody does.
  std::vector<uint8_t> wave = riff({});
  std::memcpy(&wave[8], "WAVE", 4);
  test::writeFile(path, wave);
  OwnedPicture pic;
  FileInfo info;
  EXPECT_NE(test::load(path, pic, 0, 0, &info), 0);
  EXPECT_NE(info.formatIndex, imkGetIndex("webp"));
}

TEST(WebpHostile, PixelBudgetRefusesLargePicturesBeforeDecoding) {
  checks::expectRefusedUnderBudget("webp", 200, 200, 100 * 100 * 3);
}

}  // namespace
