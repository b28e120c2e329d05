// GIF reading and writing: round trips of every kind the format holds,
// animation composition against the pygif suite and giflib's references,
// cross-checks with ImageMagick, damaged files and progress.
#include <gif_lib.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

namespace {

std::string corpusGif(const std::string& rel) { return test::corpusDir() + "/gif/" + rel; }

// The packed byte of the first image descriptor of a file we wrote (no
// extensions precede it): bit 0x40 is the interlace flag.
int firstDescriptorFlags(const std::vector<uint8_t>& file) {
  if (file.size() < 13) return -1;
  size_t pos = 13;
  if (file[10] & 0x80) pos += 3u << ((file[10] & 7) + 1);
  if (pos + 10 > file.size() || file[pos] != 0x2C) return -1;
  return file[pos + 9];
}

// Frames of an animation as ImageMagick composes them (-coalesce), as RGB.
bool magickFrames(const std::string& path, const test::TempDir& dir, int count,
                  std::vector<std::vector<uint8_t>>* frames, int* width, int* height) {
  const std::string pattern = dir.file("im-%d.ppm");
  if (test::run("/usr/bin/convert " + test::quote(path) + " -coalesce +adjoin -depth 8 " +
                test::quote(pattern) + " 2>/dev/null") != 0)
    return false;
  frames->clear();
  for (int k = 0; k < count; ++k) {
    std::vector<uint8_t> rgb;
    if (!test::readNetpbmAsRgb(dir.file("im-" + std::to_string(k) + ".ppm"), width, height, &rgb))
      return false;
    frames->push_back(rgb);
  }
  return true;
}

// ---------------------------------------------------------------------------
// Writing and reading back.

// "GIF89a", and the interlace flag of the first image as asked.
void gifHeader(const std::vector<uint8_t>& file, const checks::RoundTripCase&, int interlace) {
  ASSERT_GE(file.size(), 6u);
  EXPECT_EQ(std::string(file.begin(), file.begin() + 6), "GIF89a");
  EXPECT_EQ((firstDescriptorFlags(file) & 0x40) != 0, interlace == 1);
}

checks::RoundTripCase gif(uint16_t kind, int levels, uint16_t loaded, int colours) {
  return {.format = "gif",
          .kind = kind,
          .levels = levels,
          .loaded = loaded,
          .options = {0, 1},
          .colours = colours,
          .sameNumbers = kind == IMK_MAPPED,
          .width = 37,
          .height = 29,
          .header = gifHeader};
}

INSTANTIATE_TEST_SUITE_P(
    Gif, RoundTrip,
    testing::Values(gif(IMK_BINARY, 2, IMK_BINARY, 2), gif(IMK_GREY, 256, IMK_GREY, 256),
                    // Other level counts become a grey palette padded to a power of two.
                    gif(IMK_GREY, 5, IMK_MAPPED, 8), gif(IMK_GREY, 16, IMK_MAPPED, 16),
                    gif(IMK_MAPPED, 3, IMK_MAPPED, 4), gif(IMK_MAPPED, 200, IMK_MAPPED, 256)),
    checks::caseName<checks::RoundTripCase>);

TEST(GifWrite, TrueColourCannotBeSavedAndLeavesNoFile) {
  test::TempDir dir;
  for (uint16_t type : {IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR}) {
    test::OwnedPicture p;
    test::makePattern(p, type, 8, 8);
    EXPECT_EQ(test::save(dir.file("t.gif"), p.rec, "gif"), IMK_ERR_CANNOT_SAVE);
    EXPECT_FALSE(test::fileExists(dir.file("t.gif")));
  }
}

TEST(GifWrite, IndicesBeyondTheDeclaredColourCountWidenThePalette) {
  // A record whose pixels use entries past colorCount still saves losslessly.
  test::TempDir dir;
  test::OwnedPicture p;
  test::makePattern(p, IMK_MAPPED, 16, 4, 40);
  p->colorCount = 10;
  ASSERT_EQ(test::save(dir.file("w.gif"), p.rec, "gif"), IMK_OK);
  test::OwnedPicture back;
  ASSERT_EQ(test::load(dir.file("w.gif"), back), IMK_OK);
  EXPECT_EQ(back->colorCount, 64);
  EXPECT_EQ(test::maxDifference(test::toRgb(back.rec), test::toRgb(p.rec)), 0);
}

TEST(GifWrite, StoppedOrFailedSavesLeaveTheTargetUntouched) {
  test::OwnedPicture p;
  test::makePattern(p, IMK_GREY, 400, 300, 256);  // well over the 4 KiB of a full disk
  checks::expectStoppedAndFailedSavesLeaveFilesAlone(p.rec, "gif");
}

// ---------------------------------------------------------------------------
// Composition of animations.

struct PygifConf {
  int width = 0, height = 0;
  bool forceAnimation = false;
  std::vector<std::string> pixels;  // expected RGBA per frame
};

bool readConf(const std::string& path, PygifConf* conf) {
  std::ifstream in(path);
  if (!in) return false;
  std::map<std::string, std::string> pixelsOf;
  std::vector<std::string> frameNames;
  std::string line, section;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == '[') {
      section = line.substr(1, line.find(']') - 1);
      continue;
    }
    const size_t eq = line.find(" = ");
    if (eq == std::string::npos) continue;
    const std::string key = line.substr(0, eq), value = line.substr(eq + 3);
    if (section == "config") {
      if (key == "width") conf->width = std::stoi(value);
      if (key == "height") conf->height = std::stoi(value);
      if (key == "force-animation") conf->forceAnimation = value == "yes";
      if (key == "frames") {
        std::stringstream ss(value);
        std::string name;
        while (std::getline(ss, name, ','))
          if (!name.empty()) frameNames.push_back(name);
      }
    } else if (key == "pixels") {
      pixelsOf[section] = value;
    }
  }
  for (const std::string& f : frameNames) conf->pixels.push_back(pixelsOf[f]);
  return true;
}

// Delay of every image in the file, read with giflib's own slurper.
bool imageDelays(const std::string& path, std::vector<int>* delays) {
  int error = 0;
  GifFileType* gif = DGifOpenFileName(path.c_str(), &error);
  if (!gif) return false;
  const bool ok = DGifSlurp(gif) == GIF_OK;
  delays->clear();
  for (int i = 0; ok && i < gif->ImageCount; ++i) {
    GraphicsControlBlock gcb;
    delays->push_back(DGifSavedExtensionToGCB(gif, i, &gcb) == GIF_OK ? gcb.DelayTime : 0);
  }
  DGifCloseFile(gif, &error);
  return ok;
}

TEST(GifRead, FramesMatchThePygifSuite) {
  // The suite shows images without a delay together with the next ones; the
  // frame it expects is our picture of the last image of each such group.
  const std::string dir = corpusGif("pygif-suite");
  std::ifstream list(dir + "/TESTS");
  std::string name;
  int comparedFrames = 0, comparedFiles = 0;
  while (std::getline(list, name)) {
    PygifConf conf;
    if (name.empty() || !readConf(dir + "/" + name + ".conf", &conf) || conf.pixels.empty())
      continue;
    const std::string gif = dir + "/" + name + ".gif";
    std::vector<int> delays;
    if (!imageDelays(gif, &delays)) continue;  // files giflib cannot slurp are covered elsewhere
    std::vector<int> lastImageOfFrame;
    for (size_t i = 0; i < delays.size(); ++i)
      if (conf.forceAnimation || delays[i] > 0 || i + 1 == delays.size())
        lastImageOfFrame.push_back(static_cast<int>(i));
    SCOPED_TRACE(name);
    ASSERT_EQ(lastImageOfFrame.size(), conf.pixels.size());
    FileInfo info;
    ASSERT_EQ(imkFileInformation(gif.c_str(), -1, 0, &info), IMK_OK);
    EXPECT_EQ(info.pictureCount, static_cast<int>(delays.size()));
    for (size_t f = 0; f < conf.pixels.size(); ++f) {
      SCOPED_TRACE("frame " + std::to_string(f));
      const std::vector<uint8_t> expected = test::readFile(dir + "/" + conf.pixels[f]);
      ASSERT_EQ(expected.size(), static_cast<size_t>(conf.width) * conf.height * 4);
      test::OwnedPicture pic;
      ASSERT_EQ(test::load(gif, pic, lastImageOfFrame[f]), IMK_OK);
      ASSERT_EQ(pic->width, conf.width);
      ASSERT_EQ(pic->height, conf.height);
      const std::vector<uint8_t> rgb = test::toRgb(pic.rec);
      int differing = 0;
      for (size_t i = 0; i < static_cast<size_t>(conf.width) * conf.height; ++i) {
        if (expected[i * 4 + 3] != 255) continue;  // the suite leaves the background open
        for (int c = 0; c < 3; ++c) differing += rgb[i * 3 + c] != expected[i * 4 + c];
      }
      EXPECT_EQ(differing, 0);
      ++comparedFrames;
    }
    ++comparedFiles;
  }
  EXPECT_GE(comparedFiles, 50);
  EXPECT_GE(comparedFrames, 80);
}

TEST(GifRead, MatchesGiflibReferenceRenderings) {
  // gif2rgb draws every image onto one screen in turn, ignoring transparency
  // and disposal, so its output is our last frame for these files. welcome2
  // relies on transparency between frames and is left out.
  for (const char* stem :
       {"fire", "gifgrid", "porsche", "solid2", "treescap", "treescap-interlaced", "x-trans"}) {
    SCOPED_TRACE(stem);
    const std::string gif = corpusGif(std::string("giflib/") + stem + ".gif");
    FileInfo info;
    ASSERT_EQ(imkFileInformation(gif.c_str(), -1, 0, &info), IMK_OK);
    test::OwnedPicture pic;
    ASSERT_EQ(test::load(gif, pic, info.pictureCount - 1), IMK_OK);
    const std::vector<uint8_t> ref =
        test::readFile(corpusGif(std::string("giflib/ref/") + stem + ".rgb"));
    EXPECT_EQ(test::maxDifference(test::toRgb(pic.rec), ref), 0);
  }
}

TEST(GifRead, EveryFrameOfCorpusAnimationsMatchesImageMagick) {
  // Files whose every frame covers the canvas opaquely, so that ImageMagick's
  // coalesced frames have no open background to disagree about.
  struct Case {
    const char* file;
    int frames;
  };
  for (const Case& c :
       {Case{"giflib/fire.gif", 33}, Case{"pillow/chi.gif", 31}, Case{"pillow/iss634.gif", 42},
        Case{"generated/im_anim3.gif", 3}, Case{"generated/gifsicle_anim_offsets.gif", 2},
        Case{"image-gif/moon_impact.gif", 14}, Case{"pillow/dispose_none.gif", 5},
        Case{"pillow/dispose_prev.gif", 5}}) {
    SCOPED_TRACE(c.file);
    test::TempDir dir;
    std::vector<std::vector<uint8_t>> frames;
    int w = 0, h = 0;
    ASSERT_TRUE(magickFrames(corpusGif(c.file), dir, c.frames, &frames, &w, &h));
    FileInfo info;
    ASSERT_EQ(imkFileInformation(corpusGif(c.file).c_str(), -1, 0, &info), IMK_OK);
    EXPECT_EQ(info.pictureCount, c.frames);
    for (int k = 0; k < c.frames; ++k) {
      test::OwnedPicture pic;
      ASSERT_EQ(test::load(corpusGif(c.file), pic, k), IMK_OK) << k;
      ASSERT_EQ(pic->width, w);
      EXPECT_EQ(test::maxDifference(test::toRgb(pic.rec), frames[static_cast<size_t>(k)]), 0)
          << "frame " << k;
    }
  }
}

// Writes an animation with giflib: a global palette, frames at offsets.
struct FrameSpec {
  int left, top, width, height;
  int disposal;
  int transparent;  // -1: none
  std::vector<uint8_t> pixels;
  bool localRedTable = false;
};

bool writeAnimation(const std::string& path, int width, int height, int background,
                    const std::vector<FrameSpec>& frames, bool globalTable = true) {
  int error = 0;
  GifFileType* gif = EGifOpenFileName(path.c_str(), false, &error);
  if (!gif) return false;
  GifColorType colors[4] = {{0, 0, 0}, {255, 0, 0}, {0, 255, 0}, {0, 0, 255}};
  ColorMapObject* global = GifMakeMapObject(4, colors);
  GifColorType reds[4] = {{10, 0, 0}, {20, 0, 0}, {30, 0, 0}, {40, 0, 0}};
  ColorMapObject* local = GifMakeMapObject(4, reds);
  EGifSetGifVersion(gif, true);
  bool ok = EGifPutScreenDesc(gif, width, height, 2, background, globalTable ? global : nullptr) ==
            GIF_OK;
  for (const FrameSpec& f : frames) {
    GraphicsControlBlock gcb{f.disposal, false, 10, f.transparent};
    GifByteType ext[4];
    const size_t n = EGifGCBToExtension(&gcb, ext);
    ok = ok && EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(n), ext) == GIF_OK;
    ok = ok && EGifPutImageDesc(gif, f.left, f.top, f.width, f.height, false,
                                f.localRedTable ? local : nullptr) == GIF_OK;
    std::vector<GifPixelType> row(static_cast<size_t>(f.width));
    for (int y = 0; ok && y < f.height; ++y) {
      std::copy(f.pixels.begin() + y * f.width, f.pixels.begin() + (y + 1) * f.width, row.begin());
      ok = EGifPutLine(gif, row.data(), f.width) == GIF_OK;
    }
  }
  ok = EGifCloseFile(gif, &error) == GIF_OK && ok;
  GifFreeMapObject(global);
  GifFreeMapObject(local);
  return ok;
}

// Colour index (0 black, 1 red, 2 green, 3 blue) of every pixel of a mapped
// picture, or -1 where the colour is none of them.
std::vector<int> colourNames(const test::OwnedPicture& pic) {
  std::vector<int> out;
  const std::vector<uint8_t> rgb = test::toRgb(pic.rec);
  for (size_t i = 0; i < rgb.size(); i += 3) {
    const int r = rgb[i], g = rgb[i + 1], b = rgb[i + 2];
    int name = -1;
    if (r == 0 && g == 0 && b == 0) name = 0;
    if (r == 255 && g == 0 && b == 0) name = 1;
    if (r == 0 && g == 255 && b == 0) name = 2;
    if (r == 0 && g == 0 && b == 255) name = 3;
    out.push_back(name);
  }
  return out;
}

TEST(GifRead, DisposalMethodsComposeAsAViewerShowsThem) {
  // 4x1 screen, background green (2). Frame 0 paints all red; frame 1 paints
  // blue over x=1..2 with the given disposal; frame 2 paints black at x=2
  // with transparency elsewhere (index 3 transparent in a 2-wide frame).
  test::TempDir dir;
  struct Case {
    int disposal;
    std::vector<int> frame2;  // expected colours after frame 2
  };
  const Case cases[] = {
      {1, {1, 3, 0, 1}},  // keep: blue stays
      {2, {1, 2, 0, 1}},  // restore to background: green where blue was
      {3, {1, 1, 0, 1}},  // restore previous: red again
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.disposal);
    const std::string path = dir.file("d" + std::to_string(c.disposal) + ".gif");
    ASSERT_TRUE(writeAnimation(path, 4, 1, 2,
                               {{0, 0, 4, 1, 1, -1, {1, 1, 1, 1}},
                                {1, 0, 2, 1, c.disposal, -1, {3, 3}},
                                {1, 0, 2, 1, 1, 3, {3, 0}}}));
    test::OwnedPicture f1, f2;
    ASSERT_EQ(test::load(path, f1, 1), IMK_OK);
    EXPECT_EQ(colourNames(f1), (std::vector<int>{1, 3, 3, 1}));
    ASSERT_EQ(test::load(path, f2, 2), IMK_OK);
    EXPECT_EQ(f2->type, IMK_MAPPED);  // every frame uses the global table
    EXPECT_EQ(colourNames(f2), c.frame2);
  }
}

TEST(GifRead, UnpaintedAreasShowTheBackgroundAndFramesAreClipped) {
  test::TempDir dir;
  // A 2x2 frame at (2,2) on a 3x3 screen: only its top-left pixel is visible;
  // the rest of the screen shows the background, blue.
  ASSERT_TRUE(writeAnimation(dir.file("clip.gif"), 3, 3, 3, {{2, 2, 2, 2, 0, -1, {1, 2, 2, 2}}}));
  test::OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("clip.gif"), pic), IMK_OK);
  EXPECT_EQ(colourNames(pic), (std::vector<int>{3, 3, 3, 3, 3, 3, 3, 3, 1}));

  // Without a global table the screen is white and a local table gives the
  // colours: the result is true colour.
  std::vector<FrameSpec> local = {{1, 0, 1, 1, 0, -1, {2}}};
  local[0].localRedTable = true;
  ASSERT_TRUE(writeAnimation(dir.file("local.gif"), 2, 1, 0, local, false));
  ASSERT_EQ(test::load(dir.file("local.gif"), pic), IMK_OK);
  EXPECT_EQ(pic->type, IMK_RGB);
  EXPECT_EQ(test::toRgb(pic.rec), (std::vector<uint8_t>{255, 255, 255, 30, 0, 0}));
}

TEST(GifRead, ALocalTableOnALaterFrameGivesTrueColourFromThatFrameOn) {
  test::TempDir dir;
  std::vector<FrameSpec> frames = {{0, 0, 2, 1, 1, -1, {1, 2}}, {1, 0, 1, 1, 1, -1, {3}}};
  frames[1].localRedTable = true;
  ASSERT_TRUE(writeAnimation(dir.file("mix.gif"), 2, 1, 0, frames));
  test::OwnedPicture first, second;
  ASSERT_EQ(test::load(dir.file("mix.gif"), first, 0), IMK_OK);
  EXPECT_EQ(first->type, IMK_MAPPED);
  ASSERT_EQ(test::load(dir.file("mix.gif"), second, 1), IMK_OK);
  EXPECT_EQ(second->type, IMK_RGB);
  EXPECT_EQ(test::toRgb(second.rec), (std::vector<uint8_t>{255, 0, 0, 40, 0, 0}));
}

TEST(GifRead, PixelValuesBeyondTheColourTableDrawEntryZero) {
  // 2x1 picture, global table {red, green}, LZW code size 3; the codes are
  // clear(8), 1, 5, end(9) in 4-bit codes: 0x18 0x95.
  const std::vector<uint8_t> file = {'G',  'I', 'F',  '8',  '9', 'a', 2, 0, 1, 0,
                                     0x80, 0,   0,                   // screen, 2-entry table
                                     255,  0,   0,    0,    255, 0,  // red, green
                                     0x2C, 0,   0,    0,    0,   2,   0, 1, 0, 0,  // image 2x1
                                     3,    2,   0x18, 0x95, 0,  // code size 3, one block
                                     0x3B};
  test::TempDir dir;
  test::writeFile(dir.file("oob.gif"), file);
  test::OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("oob.gif"), pic), IMK_OK);
  ASSERT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(pic->colorCount, 2);
  EXPECT_EQ(pic.row(0)[0], 1);
  EXPECT_EQ(pic.row(0)[1], 0);  // value 5 is outside the table
}

// ---------------------------------------------------------------------------
// ImageMagick writes, we read.

TEST(GifRead, ImageMagickWrittenFilesDecodeTheSame) {
  test::TempDir dir;
  const std::string still = dir.file("still.gif");
  ASSERT_EQ(
      test::run("/usr/bin/convert -size 61x47 gradient:red-blue -colors 60 " + test::quote(still)),
      0);
  const std::string interlaced = dir.file("interlaced.gif");
  ASSERT_EQ(
      test::run("/usr/bin/convert -seed 3 -size 33x58 plasma:fractal -colors 200 -interlace GIF " +
                test::quote(interlaced) + " 2>/dev/null"),
      0);
  for (const std::string& path : {still, interlaced}) {
    SCOPED_TRACE(path);
    int w = 0, h = 0;
    std::vector<uint8_t> magick;
    ASSERT_TRUE(test::magickToRgb(path, &w, &h, &magick));
    test::OwnedPicture pic;
    ASSERT_EQ(test::load(path, pic), IMK_OK);
    EXPECT_EQ(pic->width, w);
    EXPECT_EQ(test::maxDifference(test::toRgb(pic.rec), magick), 0);
  }

  // An animation with a smaller frame at an offset and a different palette.
  const std::string anim = dir.file("anim.gif");
  ASSERT_EQ(test::run("/usr/bin/convert -delay 20 -size 40x30 gradient:yellow-green "
                      "\\( -size 15x10 gradient:black-white -repage +12+9 \\) "
                      "\\( -size 40x30 xc:navy -draw 'circle 20,15 20,5' \\) " +
                      test::quote(anim)),
            0);
  std::vector<std::vector<uint8_t>> frames;
  int w = 0, h = 0;
  ASSERT_TRUE(magickFrames(anim, dir, 3, &frames, &w, &h));
  FileInfo info;
  ASSERT_EQ(imkFileInformation(anim.c_str(), -1, 0, &info), IMK_OK);
  ASSERT_EQ(info.pictureCount, 3);
  for (int k = 0; k < 3; ++k) {
    test::OwnedPicture pic;
    ASSERT_EQ(test::load(anim, pic, k), IMK_OK);
    EXPECT_EQ(test::maxDifference(test::toRgb(pic.rec), frames[static_cast<size_t>(k)]), 0)
        << "frame " << k;
  }
}

// ---------------------------------------------------------------------------
// Headers, damage, progress.

TEST(GifInfo, CountsFramesWithoutDecodingThem) {
  FileInfo info;
  ASSERT_EQ(imkFileInformation(corpusGif("giflib/fire.gif").c_str(), -1, 0, &info), IMK_OK);
  EXPECT_EQ(info.pictureCount, 33);
  EXPECT_EQ(info.width, 30);
  EXPECT_EQ(info.height, 60);
  EXPECT_EQ(info.planes, 1);
  EXPECT_EQ(info.bitsPerPlane, 8);

  // Garbage in every frame's LZW data: the block structure still counts
  // three frames, while decoding them fails.
  test::TempDir dir;
  ASSERT_TRUE(writeAnimation(dir.file("a.gif"), 8, 8, 0,
                             {{0, 0, 8, 8, 1, -1, std::vector<uint8_t>(64, 1)},
                              {0, 0, 8, 8, 1, -1, std::vector<uint8_t>(64, 2)},
                              {0, 0, 8, 8, 1, -1, std::vector<uint8_t>(64, 3)}}));
  std::vector<uint8_t> bytes = test::readFile(dir.file("a.gif"));
  int frames = 0;
  for (size_t i = 0; i + 12 < bytes.size(); ++i) {
    // An image descriptor for 8x8 at 0,0 followed by code size 2 and a block.
    if (bytes[i] == 0x2C && bytes[i + 5] == 8 && bytes[i + 7] == 8 && bytes[i + 10] == 2) {
      const size_t len = bytes[i + 11];
      for (size_t k = 0; k < len && i + 12 + k < bytes.size(); ++k) bytes[i + 12 + k] = 0xFF;
      ++frames;
    }
  }
  ASSERT_EQ(frames, 3);
  test::writeFile(dir.file("garbage.gif"), bytes);
  ASSERT_EQ(imkFileInformation(dir.file("garbage.gif").c_str(), -1, 0, &info), IMK_OK);
  EXPECT_EQ(info.pictureCount, 3);
  test::OwnedPicture pic;
  EXPECT_NE(test::load(dir.file("garbage.gif"), pic), IMK_OK);
  EXPECT_EQ(pic->pixels, nullptr);
}

TEST(GifRead, ProgressRunsFromZeroToTheEndAndCanStopTheLoad) {
  checks::expectEveryStepAndStopAt(corpusGif("giflib/fire.gif"), 2, 20);
}

TEST(GifRead, ReducedLoadAveragesTheComposedFrame) {
  LoadOptions o;
  imkDefaultOption(&o);
  o.flags |= IMK_FLAG_REDUCE;
  o.fitWidth = 160;
  o.fitHeight = 100;
  test::OwnedPicture pic;
  ASSERT_EQ(imkLoad(corpusGif("giflib/porsche.gif").c_str(), &pic.rec, &o, nullptr), IMK_OK);
  EXPECT_EQ(pic->width, 160);
  EXPECT_EQ(pic->height, 100);
  // Halving exactly: each output pixel is the mean of a 2x2 block.
  test::OwnedPicture full;
  ASSERT_EQ(test::load(corpusGif("giflib/porsche.gif"), full), IMK_OK);
  const std::vector<uint8_t> a = test::toRgb(full.rec), b = test::toRgb(pic.rec);
  for (int y = 0; y < 100; y += 13)
    for (int x = 0; x < 160; x += 17)
      for (int c = 0; c < 3; ++c) {
        auto at = [&](int yy, int xx) { return a[(static_cast<size_t>(yy) * 320 + xx) * 3 + c]; };
        const int mean = (at(2 * y, 2 * x) + at(2 * y, 2 * x + 1) + at(2 * y + 1, 2 * x) +
                          at(2 * y + 1, 2 * x + 1));
        EXPECT_NEAR(b[(static_cast<size_t>(y) * 160 + x) * 3 + c], mean / 4.0, 1.0);
      }
}

}  // namespace
