// Conformance against third-party test suites, driven by the corpus manifest:
// good files load with the expected size and, where ImageMagick decodes them,
// the same pixels; bad files are refused without crashing; questionable ones
// either load or fail cleanly. Every file runs under the sanitizers.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace {

struct Row {
  std::string path, format, expected, role, consensus, oracles, note;
  int width = 0, height = 0;
};

std::vector<std::string> splitTabs(const std::string& line) {
  std::vector<std::string> cells;
  std::stringstream ss(line);
  std::string cell;
  while (std::getline(ss, cell, '\t')) cells.push_back(cell);
  return cells;
}

const std::vector<Row>& manifest() {
  static const std::vector<Row> rows = [] {
    std::vector<Row> out;
    std::ifstream in(test::corpusDir() + "/MANIFEST.tsv");
    std::string line;
    std::getline(in, line);  // header
    while (std::getline(in, line)) {
      auto c = splitTabs(line);
      if (c.size() < 12) c.resize(13);
      Row r;
      r.path = c[0], r.format = c[1], r.expected = c[2], r.role = c[7], r.consensus = c[9];
      r.oracles = c[11], r.note = c.size() > 12 ? c[12] : "";
      r.width = c[3].empty() ? 0 : std::stoi(c[3]);
      r.height = c[4].empty() ? 0 : std::stoi(c[4]);
      out.push_back(r);
    }
    return out;
  }();
  return rows;
}

struct FormatCase {
  const char* format;  // the manifest's format column
  int tolerance;       // largest per-channel difference from ImageMagick's decode
};

// Good files that are refused on purpose, with the reason; anything else that
// fails to load is a conformance failure.
const std::map<std::string, std::string>& knownUnsupported() {
  static const std::map<std::string, std::string> m = {};
  return m;
}

// Good files whose pixels legitimately differ from ImageMagick's decode.
const std::map<std::string, std::string>& knownPixelDifferences() {
  static const std::map<std::string, std::string> m = {};
  return m;
}

bool imageMagickDecodes(const Row& r) {
  return r.oracles.find("im=ok") != std::string::npos ||
         r.oracles.find("im=warn") != std::string::npos;
}

// ImageMagick's RGBA decode of the first picture, composed on its canvas.
bool magickRgba(const std::string& path, const std::string& format, int width, int height,
                std::vector<uint8_t>* rgba) {
  std::string cmd = "/usr/bin/convert " + test::quote(path + "[0]");
  if (format == "gif") cmd += " -coalesce";
  cmd += " -depth 8 rgba:- 2>/dev/null";
  std::string out;
  if (test::run(cmd, &out) != 0) return false;
  if (out.size() != static_cast<size_t>(width) * height * 4) return false;
  rgba->assign(out.begin(), out.end());
  return true;
}

// Number of pixels that differ; the first difference is described in `why`.
long comparePixels(const test::OwnedPicture& pic, const std::vector<uint8_t>& ref, int tolerance,
                   std::string* why) {
  const std::vector<uint8_t> ours = test::toRgb(pic.rec);
  const bool ourAlpha = pic->type == IMK_RGBX;
  long bad = 0;
  for (int y = 0; y < pic->height; ++y)
    for (int x = 0; x < pic->width; ++x) {
      const size_t i = static_cast<size_t>(y) * pic->width + x;
      const uint8_t* r = &ref[i * 4];
      const uint8_t* o = &ours[i * 3];
      const int alpha = ourAlpha ? pic.row(y)[x * 4 + 3] : 255;
      bool differs = false;
      if (ourAlpha) differs = std::abs(alpha - r[3]) > tolerance;
      // Colours matter only where both sides show them.
      if (r[3] == 255 && alpha == 255)
        for (int c = 0; c < 3; ++c) differs |= std::abs(o[c] - r[c]) > tolerance;
      if (differs && bad++ == 0) {
        char buf[160];
        std::snprintf(buf, sizeof buf, "first at (%d,%d): ours %d,%d,%d,%d reference %d,%d,%d,%d", x, y,
                      o[0], o[1], o[2], alpha, r[0], r[1], r[2], r[3]);
        *why = buf;
      }
    }
  return bad;
}

class Corpus : public testing::TestWithParam<FormatCase> {
 protected:
  std::vector<const Row*> rows(const char* expected) const {
    std::vector<const Row*> out;
    for (const Row& r : manifest())
      if (r.role == "test" && r.format == GetParam().format && r.expected == expected) out.push_back(&r);
    return out;
  }
};

TEST_P(Corpus, GoodFilesLoadWithTheirSizeAndPixels) {
  const auto good = rows("good");
  ASSERT_FALSE(good.empty());
  int loaded = 0, compared = 0, matched = 0, refused = 0;
  for (const Row* r : good) {
    const std::string path = test::corpusDir() + "/" + r->path;
    test::OwnedPicture pic;
    FileInfo info;
    const int rc = test::load(path, pic, 0, 0, &info);
    if (rc != 0) {
      ++refused;
      if (!knownUnsupported().count(r->path))
        ADD_FAILURE() << r->path << ": error " << rc << " (" << info.errorText << ")";
      continue;
    }
    ++loaded;
    EXPECT_EQ(pic->width, r->width) << r->path;
    EXPECT_EQ(pic->height, r->height) << r->path;
    if (pic->width != r->width || pic->height != r->height || !imageMagickDecodes(*r)) continue;
    std::vector<uint8_t> ref;
    if (!magickRgba(path, r->format, r->width, r->height, &ref)) continue;
    ++compared;
    std::string why;
    const long bad = comparePixels(pic, ref, GetParam().tolerance, &why);
    if (bad == 0)
      ++matched;
    else if (!knownPixelDifferences().count(r->path))
      ADD_FAILURE() << r->path << ": " << bad << " pixels differ from ImageMagick, " << why;
  }
  std::printf("[corpus %s] good: %d/%zu loaded, %d refused; pixels: %d/%d match ImageMagick\n",
              GetParam().format, loaded, good.size(), refused, matched, compared);
}

TEST_P(Corpus, BadFilesAreRefusedWithoutCrashing) {
  const auto bad = rows("bad");
  int refused = 0;
  std::string tolerated;
  for (const Row* r : bad) {
    test::OwnedPicture pic;
    const int rc = test::load(test::corpusDir() + "/" + r->path, pic);
    if (rc != 0) {
      ++refused;
      EXPECT_EQ(pic->pixels, nullptr) << r->path;
      continue;
    }
    // Files that every independent decoder refuses must be refused here too;
    // the rest are damaged in ways decoders commonly tolerate.
    if (r->consensus == "all-fail")
      ADD_FAILURE() << r->path << " loaded but every independent decoder refuses it";
    tolerated += " " + r->path.substr(r->path.rfind('/') + 1);
  }
  std::printf("[corpus %s] bad: %d/%zu refused; tolerated:%s\n", GetParam().format, refused,
              bad.size(), tolerated.empty() ? " none" : tolerated.c_str());
}

TEST_P(Corpus, QuestionableFilesLoadOrFailCleanly) {
  const auto q = rows("questionable");
  int loaded = 0;
  for (const Row* r : q) {
    test::OwnedPicture pic;
    const int rc = test::load(test::corpusDir() + "/" + r->path, pic);
    if (rc == 0) {
      ++loaded;
      EXPECT_GT(pic->width, 0) << r->path;
      EXPECT_NE(pic->pixels, nullptr) << r->path;
    } else {
      EXPECT_EQ(pic->pixels, nullptr) << r->path;
    }
    // Ignoring errors must never crash either.
    test::OwnedPicture partial;
    test::load(test::corpusDir() + "/" + r->path, partial, 0, IMK_FLAG_IGNORE_ERRORS);
  }
  std::printf("[corpus %s] questionable: %d/%zu loaded\n", GetParam().format, loaded, q.size());
}

TEST_P(Corpus, HeaderInformationAgreesWithTheLoad) {
  int checked = 0;
  for (const Row* r : rows("good")) {
    const std::string path = test::corpusDir() + "/" + r->path;
    FileInfo info;
    if (imkFileInformation(path.c_str(), -1, 0, &info) != 0) continue;
    test::OwnedPicture pic;
    FileInfo loadInfo;
    if (test::load(path, pic, 0, 0, &loadInfo) != 0) continue;
    ++checked;
    EXPECT_EQ(info.width, pic->width) << r->path;
    EXPECT_EQ(info.height, pic->height) << r->path;
    EXPECT_EQ(info.formatIndex, loadInfo.formatIndex) << r->path;
    EXPECT_EQ(info.pictureCount, loadInfo.pictureCount) << r->path;
    EXPECT_GE(info.pictureCount, 1) << r->path;
    EXPECT_GT(info.planes * info.bitsPerPlane, 0) << r->path;
  }
  EXPECT_GT(checked, 0);
}

INSTANTIATE_TEST_SUITE_P(Formats, Corpus,
                         testing::Values(FormatCase{"png", 1}, FormatCase{"jpeg", 2},
                                         FormatCase{"gif", 0}, FormatCase{"tiff", 1},
                                         FormatCase{"bmp", 1}, FormatCase{"pnm", 1}),
                         [](const testing::TestParamInfo<FormatCase>& info) {
                           return std::string(info.param.format);
                         });

}  // namespace
