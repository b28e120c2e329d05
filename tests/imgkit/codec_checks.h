// Checks shared by the codec tests: the table-driven round-trip and
// independent-writer suites every format instantiates with its own rows,
// pixel comparisons, smooth and noisy test pictures, progress recording, and
// saving when the disk is full or the caller stops.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "imgkit/internal.h"
#include "tests/support/test_support.h"

namespace checks {

// --- shared suites ---------------------------------------------------------------

// One picture kind written in one format, read back, and read by independent
// decoders. Every value of `options` is tried as the save option.
struct RoundTripCase {
  const char* format;
  uint16_t kind;
  int levels;       // grey levels or palette entries (256 for true colour)
  uint16_t loaded;  // the kind read back
  std::vector<int> options = {0};
  int colours = -1;          // colorCount read back (-1: not checked)
  bool sameNumbers = false;  // the pixel bytes (levels, indices) survive unchanged
  int tolerance = 0;         // largest channel difference allowed (lossy formats)
  bool magickReads = true;   // ImageMagick decodes our file to the same RGBA
  // Commands turning {file} into PNM on stdout; their RGB is compared with
  // the source, or with our own decoding when `toolsMatchOurs`.
  std::vector<const char*> toolReads = {};
  bool toolsMatchOurs = false;
  int width = 37, height = 23;
  int quality = 0;
  // Format-specific header checks; `file` is the whole written file.
  void (*header)(const std::vector<uint8_t>& file, const RoundTripCase& c, int option) = nullptr;
  int fileKind = 0, fileDepth = 0;  // what `header` expects the file to declare
};

// A file written by an independent tool that we must read. The fixture
// provides 45 x 31 pattern pictures as {dir}/rgb.ppm, {dir}/pal.ppm (60
// colours), {dir}/pal16.ppm (16 colours), {dir}/grey.pgm, {dir}/bin.pbm and
// {dir}/rgba.png, and {orig}, a 227 x 149 photograph in PPM; the command
// writes {out}.
struct ToolWriteCase {
  const char* format;  // the file's extension
  const char* command;
  // The picture the file must hold exactly: "rgb", "pal", "pal16", "grey",
  // "bin", "rgba" or "orig"; nullptr: as `decoder` or ImageMagick decodes it.
  const char* same = nullptr;
  int tolerance = 0;
  uint16_t kind = 0;   // the kind read back (0: not checked)
  int maxColours = 0;  // colorCount read back at most (0: not checked)
  // A command turning {out} into PNM on stdout, whose RGB the picture must
  // match, instead of ImageMagick's decoding.
  const char* decoder = nullptr;
};

// Test names for the instantiations: the row number plus its format.
template <typename T>
std::string caseName(const testing::TestParamInfo<T>& info) {
  return std::string(info.param.format) + "_" + std::to_string(info.index);
}

inline double meanDifference(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  double sum = 0;
  for (size_t i = 0; i < a.size(); ++i) sum += std::abs(a[i] - b[i]);
  return a.empty() ? 0 : sum / static_cast<double>(a.size());
}

inline double psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  double sum = 0;
  for (size_t i = 0; i < a.size(); ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
  return sum == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * static_cast<double>(a.size()) / sum);
}

// A smooth picture that lossy coders keep close: red grows across, green
// down, blue follows a slow wave along the diagonal. Kind 512 is opaque on
// its left half and graded on the right.
inline void makeGradient(test::OwnedPicture& pic, uint16_t type, int w, int h) {
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, w, h));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      test::storeRgb(pic, x, y, static_cast<uint8_t>(x * 255 / (w - 1)),
                     static_cast<uint8_t>(y * 255 / (h - 1)),
                     static_cast<uint8_t>(128 + 100 * std::sin((x + y) / 9.0)));
      if (type == IMK_RGBX)
        pic.row(y)[x * 4 + 3] = static_cast<uint8_t>(x < w / 2 ? 255 : (y * 7) % 256);
    }
}

// Pseudo-random bytes: nothing for a coder to squeeze, so every part of a
// file holds rows of pixels.
inline void makeNoise(test::OwnedPicture& pic, uint16_t type, int w, int h) {
  ASSERT_TRUE(imkAllock(&pic.rec, type, 8, w, h));
  uint32_t state = 12345;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w * pic->bytesPerPixel; ++x) {
      state = state * 1103515245u + 12345u;
      pic.row(y)[x] = static_cast<uint8_t>(state >> 23);
    }
}

// --- progress ----------------------------------------------------------------

struct ProgressLog {
  std::vector<std::pair<int, int>> calls;  // (step, count)
  int stopAt = -1;                         // the step that asks to stop
};

inline ProgressLog& progressLog() {
  static ProgressLog log;
  return log;
}

inline int recordProgress(int step, int count) {
  progressLog().calls.emplace_back(step, count);
  return step == progressLog().stopAt;
}

inline int loadWithProgress(const std::string& path, test::OwnedPicture& pic, int stopAt,
                            int index = 0) {
  progressLog() = ProgressLog{{}, stopAt};
  pic.reset();
  LoadOptions o;
  imkDefaultOption(&o);
  o.flags |= IMK_FLAG_PROGRESS;
  o.progress = recordProgress;
  o.pictureIndex = index;
  return imkLoad(path.c_str(), &pic.rec, &o, nullptr);
}

// Loading reports step 0 first, then rising steps up to the count; asking to
// stop at step 0 or 1 gives IMK_ERR_STOPPED and no picture.
inline void expectProgressClimbsAndStops(const std::string& path, int index = 0) {
  test::OwnedPicture pic;
  ASSERT_EQ(loadWithProgress(path, pic, -1, index), 0) << path;
  const auto& calls = progressLog().calls;
  ASSERT_GE(calls.size(), 2u) << path;
  EXPECT_EQ(calls.front().first, 0) << path;
  EXPECT_EQ(calls.back().first, calls.back().second) << path;
  for (size_t i = 1; i < calls.size(); ++i) EXPECT_GT(calls[i].first, calls[i - 1].first) << path;
  for (int stopAt : {0, 1}) {
    EXPECT_EQ(loadWithProgress(path, pic, stopAt, index), IMK_ERR_STOPPED)
        << path << " stop at " << stopAt;
    EXPECT_EQ(pic->pixels, nullptr);
  }
}

// Loading reports every step from 0 to `steps` one by one; asking to stop at
// `stopAt` gives IMK_ERR_STOPPED, no pixels and no palette, with `stopAt` the
// last step reported.
inline void expectEveryStepAndStopAt(const std::string& path, int stopAt, int index = 0,
                                     int steps = imk::ProgressMeter::kSteps) {
  test::OwnedPicture pic;
  ASSERT_EQ(loadWithProgress(path, pic, -1, index), 0) << path;
  const auto& calls = progressLog().calls;
  ASSERT_GE(calls.size(), 2u) << path;
  EXPECT_EQ(calls.front().first, 0) << path;
  EXPECT_EQ(calls.back().first, steps) << path;
  for (size_t i = 1; i < calls.size(); ++i) EXPECT_EQ(calls[i].first, calls[i - 1].first + 1);
  EXPECT_EQ(loadWithProgress(path, pic, stopAt, index), IMK_ERR_STOPPED) << path;
  EXPECT_EQ(pic->pixels, nullptr);
  EXPECT_EQ(pic->palette, nullptr);
  EXPECT_EQ(progressLog().calls.back().first, stopAt) << path;
}

// --- saving ---------------------------------------------------------------------

inline int stopAtFirstStep(int step, int) { return step >= 1; }

// A save stopped from the progress callback gives IMK_ERR_STOPPED and leaves
// no file, or the old file as it was; a save that runs out of disk (files
// limited to 4 KiB) gives IMK_ERR_WRITE and leaves the old file as it was.
inline void expectStoppedAndFailedSavesLeaveFilesAlone(const ImageRecord& pic, const char* format,
                                                       int quality = 0, int option = 0) {
  test::TempDir dir;
  LoadOptions o;
  imkDefaultOption(&o);
  o.formatIndex = imkGetIndex(format);
  o.flags |= IMK_FLAG_PROGRESS;
  o.progress = stopAtFirstStep;
  o.saveQuality = static_cast<uint16_t>(quality);
  o.saveOption = static_cast<uint16_t>(option);
  EXPECT_EQ(imkSave(dir.file("stopped").c_str(), &pic, &o), IMK_ERR_STOPPED) << format;
  EXPECT_FALSE(test::fileExists(dir.file("stopped"))) << format;
  const std::string target = dir.file("full");
  test::writeFile(target, {'o', 'l', 'd'});
  EXPECT_EQ(imkSave(target.c_str(), &pic, &o), IMK_ERR_STOPPED) << format;
  EXPECT_EQ(test::readFile(target), (std::vector<uint8_t>{'o', 'l', 'd'})) << format;

  struct rlimit old;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  auto oldHandler = signal(SIGXFSZ, SIG_IGN);
  struct rlimit tight = old;
  tight.rlim_cur = 4096;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
  const int rc = test::save(target, pic, format, quality, option);
  setrlimit(RLIMIT_FSIZE, &old);
  signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(rc, IMK_ERR_WRITE) << format;
  EXPECT_EQ(test::readFile(target), (std::vector<uint8_t>{'o', 'l', 'd'})) << format;
}

// Loads with the pixel budget lowered to `bytes`; the result code, the
// reason in `info`.
inline int loadWithBudget(const std::string& path, size_t bytes, test::OwnedPicture& pic,
                          FileInfo* info) {
  const size_t old = imk::pixelByteLimit();
  imk::setPixelByteLimit(bytes);
  const int rc = test::load(path, pic, 0, 0, info);
  imk::setPixelByteLimit(old);
  return rc;
}

// A picture saved as `format` is refused with "picture too large" when the
// pixel budget is `budget` bytes.
inline void expectRefusedUnderBudget(const char* format, int width, int height, size_t budget) {
  test::TempDir dir;
  test::OwnedPicture pic, back;
  test::makePattern(pic, IMK_RGB, width, height);
  const std::string path = dir.file("budget");
  ASSERT_EQ(test::save(path, pic.rec, format), 0) << format;
  FileInfo info;
  EXPECT_EQ(loadWithBudget(path, budget, back, &info), IMK_ERR_BAD_FILE) << format;
  EXPECT_STREQ(info.errorText, "picture too large") << format;
}

}  // namespace checks

// The shared suites' fixtures, outside the namespace so that every format's
// file can name them when instantiating.
class RoundTrip : public testing::TestWithParam<checks::RoundTripCase> {};
class ToolWrites : public testing::TestWithParam<checks::ToolWriteCase> {};
