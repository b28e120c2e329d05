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
  static const std::map<std::string, std::string> m = {
      {"gif/pillow/issue_2811.gif", "LZW code size above 8 bits, which the GIF decoder refuses"},
      {"tiff/libtiffpic/text.tif",
       "page 0 is short of data at scanline 320; it loads when read errors are ignored"},
      {"ico/pillow/no_cursors.cur", "a directory of no entries: the file holds no picture"},
  };
  return m;
}

// Good files whose size differs from the manifest's (which records what
// ImageMagick reports), with the reason.
const std::map<std::string, std::string>& knownSizeDifferences() {
  static const std::map<std::string, std::string> m = {
      {"tiff/pillow/g4_orientation_5.tif", "orientation tag applied (transposed)"},
      {"tiff/pillow/g4_orientation_6.tif", "orientation tag applied (transposed)"},
      {"tiff/pillow/g4_orientation_7.tif", "orientation tag applied (transposed)"},
      {"tiff/pillow/g4_orientation_8.tif", "orientation tag applied (transposed)"}};
  return m;
}

// Good files whose pixels legitimately differ from every independent decoder.
const std::map<std::string, std::string>& knownPixelDifferences() {
  static const std::string kSigned =
      "signed samples shown offset by half their range (most negative = black); the other "
      "decoders show the two's-complement bit pattern";
  static const std::string kOriented =
      "orientation tag applied; the other decoders show the stored raster (checked separately "
      "against orientation 1)";
  static const std::string kFourBit =
      "4-bit channels scaled exactly (15 -> 255); the other decoders shift them (15 -> 240)";
  static const std::map<std::string, std::string> m = {
      {"tiff/image-tiff/int8.tif", kSigned},
      {"tiff/image-tiff/seq/seq-1c-i32-99fddec2.tiff", kSigned},
      {"tiff/image-tiff/seq/seq-1c-i8-f8446bbe.tiff", kSigned},
      {"tiff/image-tiff/seq/seq-3c-i16-f7fcf423.tiff", kSigned},
      {"tiff/image-tiff/seq/seq-3c-i8-d7550ce4.tiff", kSigned},
      {"tiff/pillow/8bit.s.tif", kSigned},
      {"tiff/pillow/g4_orientation_5.tif", kOriented},
      {"tiff/pillow/g4_orientation_6.tif", kOriented},
      {"tiff/pillow/g4_orientation_7.tif", kOriented},
      {"tiff/pillow/g4_orientation_8.tif", kOriented},
      {"tiff/pillow/lab.tif",
       "CIE L*a*b* to RGB differs between decoders (ImageMagick and GraphicsMagick disagree "
       "with each other too)"},
      {"bmp/image-rs/V3_X4_R4_G4_B4.bmp", kFourBit},
      {"bmp/image-rs/V3_X4_R4_G4_B4_Top_Down.bmp", kFourBit},
      {"iff/iffshow/glass.iff",
       "HAM6 over a 4-bit CMAP: channels widened like the CMAP; netpbm keeps stale low bits"},
      {"iff/iffshow/worldmap.iff", "4-bit CMAP widened (0xF0 -> 0xFF); netpbm does not detect it"},
      {"iff/iffshow/rt64.iff",
       "EHB colours 32-63 are the halves of 0-31 (as displayed); netpbm shows the surplus CMAP"},
      {"iff/iffshow/tos.iff",
       "HAM rows start from CMAP colour 0 (the border); netpbm starts from black"},
      {"tga/image-rs/b5-unused-cmap.tga",
       "the unused colour map is skipped (pixels equal b5-noattrib.tga); GraphicsMagick reads "
       "it as pixels, ImageMagick refuses the file"},
      {"tga/pillow/la.tga",
       "grey + alpha shown with its alpha; ImageMagick reads the two bytes as colour, "
       "GraphicsMagick refuses the file"},
      {"ras/generated/gimp_rgb_rle.ras",
       "matches netpbm but for its last 39 pixels: the length field counts unencoded bytes and "
       "netpbm stops there; ImageMagick swaps red and blue, GraphicsMagick refuses the file"},
  };
  return m;
}

// The logical screen size of a GIF (bytes 6..9): a GIF's pictures are its
// frames composed on that screen, while the manifest records the first
// frame's own size.
bool isGifScreenSize(const std::string& path, int width, int height) {
  const std::vector<uint8_t> b = test::readFile(path);
  return b.size() >= 10 && width == (b[6] | b[7] << 8) && height == (b[8] | b[9] << 8);
}

// An independent decoder: a command printing the first picture, composed on
// its canvas, as raw RGBA ("rgba") or as binary netpbm ("pnm").
struct Oracle {
  const char* name;
  std::string (*command)(const std::string& path, const std::string& format);
  bool pnm;
};

std::string imageMagick(const std::string& path, const std::string& format) {
  // ImageMagick keeps a Targa file's rows as stored; -auto-orient applies
  // the orientation it records.
  return "/usr/bin/convert " + test::quote(path + "[0]") + (format == "gif" ? " -coalesce" : "") +
         (format == "tga" ? " -auto-orient" : "") + " -depth 8 rgba:- 2>/dev/null";
}
std::string graphicsMagick(const std::string& path, const std::string& format) {
  return "gm convert " + test::quote(path + "[0]") + (format == "gif" ? " -coalesce" : "") +
         " -depth 8 rgba:- 2>/dev/null";
}
// netpbm's converters (and djpeg) print the stored samples with no colour
// management, which is what the viewer shows.
std::string netpbm(const std::string& path, const std::string& format) {
  static const std::map<std::string, std::string> tools = {
      {"png", "pngtopnm"},
      {"tiff", "tifftopnm"},
      {"bmp", "bmptopnm"},
      {"jpeg", "djpeg -pnm"},
      {"gif", "giftopnm"},
      {"pnm", "pamtopnm"},
      {"iff", "ilbmtoppm -adjustcolors"},
      {"xbm", "xbmtopbm"},
      {"xpm", "xpmtoppm"},
      {"ico", "sh -c 'winicontopam \"$0\" | pamtopnm'"},
      {"pcx", "pcxtoppm"},
      {"tga", "tgatopnm"},
      {"sgi", "sgitopnm"},
      {"ras", "rasttopnm"}};
  auto it = tools.find(format);
  return it == tools.end() ? "" : it->second + " " + test::quote(path) + " 2>/dev/null";
}

// Targa suites ship their expected renderings: gdk-pixbuf's <file>.ref.png,
// and Pillow's common/<size>_<mode>.png for every origin and compression.
std::string targaSuiteReference(const std::string& path, const std::string& format) {
  if (format != "tga") return "";
  std::string ref = path + ".ref.png";
  const size_t common = path.find("/pillow/common/");
  if (!test::fileExists(ref) && common != std::string::npos) {
    const size_t name = common + 15, mode = path.find('_', name);
    const size_t origin = mode == std::string::npos ? mode : path.find('_', mode + 1);
    if (origin != std::string::npos) ref = path.substr(0, origin) + ".png";
  }
  if (!test::fileExists(ref)) return "";
  return "/usr/bin/convert " + test::quote(ref) + " -depth 8 rgba:- 2>/dev/null";
}

const Oracle kOracles[] = {{"ImageMagick", imageMagick, false},
                           {"GraphicsMagick", graphicsMagick, false},
                           {"netpbm", netpbm, true},
                           {"suite reference", targaSuiteReference, false}};

bool decodeWith(const Oracle& oracle, const std::string& path, const std::string& format, int width,
                int height, std::vector<uint8_t>* rgba) {
  const std::string cmd = oracle.command(path, format);
  std::string out;
  if (cmd.empty() || test::run(cmd, &out) != 0) return false;
  if (!oracle.pnm) {
    if (out.size() != static_cast<size_t>(width) * height * 4) return false;
    rgba->assign(out.begin(), out.end());
    return true;
  }
  int w, h;
  std::vector<uint8_t> rgb;
  if (!test::parseNetpbm(out, &w, &h, &rgb) || w != width || h != height) return false;
  rgba->resize(static_cast<size_t>(w) * h * 4);
  for (size_t i = 0; i < static_cast<size_t>(w) * h; ++i) {
    for (int c = 0; c < 3; ++c) (*rgba)[i * 4 + c] = rgb[i * 3 + c];
    (*rgba)[i * 4 + 3] = 255;  // netpbm's main output carries no alpha
  }
  return true;
}

// Number of pixels that differ; the first difference is described in `why`.
long comparePixels(const test::OwnedPicture& pic, const std::vector<uint8_t>& ref, int tolerance,
                   bool referenceHasAlpha, std::string* why) {
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
      if (ourAlpha && referenceHasAlpha) differs = std::abs(alpha - r[3]) > tolerance;
      // Colours matter only where both sides show them.
      if (r[3] == 255 && (alpha == 255 || !referenceHasAlpha))
        for (int c = 0; c < 3; ++c) differs |= std::abs(o[c] - r[c]) > tolerance;
      if (differs && bad++ == 0) {
        char buf[160];
        std::snprintf(buf, sizeof buf, "first at (%d,%d): ours %d,%d,%d,%d reference %d,%d,%d,%d",
                      x, y, o[0], o[1], o[2], alpha, r[0], r[1], r[2], r[3]);
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
      if (r.role == "test" && r.format == GetParam().format && r.expected == expected)
        out.push_back(&r);
    return out;
  }
};

TEST_P(Corpus, GoodFilesLoadWithTheirSizeAndPixels) {
  const auto good = rows("good");
  ASSERT_FALSE(good.empty());
  int loaded = 0, compared = 0, matched = 0, refused = 0;
  std::map<std::string, int> agreedBy;
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
    const bool sizeKnownToDiffer =
        knownSizeDifferences().count(r->path) > 0 ||
        (r->format == "gif" && isGifScreenSize(path, pic->width, pic->height));
    if (!sizeKnownToDiffer) {
      EXPECT_EQ(pic->width, r->width) << r->path;
      EXPECT_EQ(pic->height, r->height) << r->path;
    }
    // Pixels must agree with at least one independent decoder that reads the
    // file; decoders disagree among themselves on colour management and on
    // rarely used variants.
    std::string why, agreeing;
    int decoders = 0;
    for (const Oracle& oracle : kOracles) {
      std::vector<uint8_t> ref;
      if (!decodeWith(oracle, path, r->format, pic->width, pic->height, &ref)) continue;
      ++decoders;
      std::string detail;
      if (comparePixels(pic, ref, GetParam().tolerance, !oracle.pnm, &detail) == 0) {
        agreeing = oracle.name;
        break;
      }
      why += std::string(" ") + oracle.name + ": " + detail + ";";
    }
    if (decoders == 0) continue;
    ++compared;
    if (!agreeing.empty()) {
      ++matched;
      ++agreedBy[agreeing];
    } else if (!knownPixelDifferences().count(r->path)) {
      ADD_FAILURE() << r->path << ": no independent decoder agrees." << why;
    }
  }
  std::string by;
  for (const auto& [name, n] : agreedBy) by += " " + name + " " + std::to_string(n);
  std::printf("[corpus %s] good: %d/%zu loaded, %d refused; pixels: %d/%d agree (%s )\n",
              GetParam().format, loaded, good.size(), refused, matched, compared, by.c_str());
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

// Every orientation of the same G4 page displays the same text: the decoded
// pictures agree with orientation 1 but for a few edge pixels of the glyphs.
TEST(CorpusTiff, EveryOrientationDisplaysLikeOrientationOne) {
  const std::string dir = test::corpusDir() + "/tiff/pillow/";
  test::OwnedPicture first;
  ASSERT_EQ(test::load(dir + "g4_orientation_1.tif", first), 0);
  const std::vector<uint8_t> reference = test::toRgb(first.rec);
  for (int i = 2; i <= 8; ++i) {
    test::OwnedPicture pic;
    const std::string name = "g4_orientation_" + std::to_string(i) + ".tif";
    ASSERT_EQ(test::load(dir + name, pic), 0) << name;
    ASSERT_EQ(pic->width, first->width) << name;
    ASSERT_EQ(pic->height, first->height) << name;
    const std::vector<uint8_t> rgb = test::toRgb(pic.rec);
    long differing = 0;
    for (size_t p = 0; p < rgb.size(); p += 3) differing += rgb[p] != reference[p];
    EXPECT_LT(differing, static_cast<long>(rgb.size() / 3 / 200)) << name;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Formats, Corpus,
    testing::Values(FormatCase{"png", 1}, FormatCase{"jpeg", 2}, FormatCase{"gif", 0},
                    FormatCase{"tiff", 1}, FormatCase{"bmp", 1}, FormatCase{"pnm", 1},
                    FormatCase{"iff", 1}, FormatCase{"pic", 0}, FormatCase{"xbm", 0},
                    FormatCase{"xpm", 0}, FormatCase{"ico", 0}, FormatCase{"webp", 1},
                    FormatCase{"pcx", 0}, FormatCase{"dcx", 0}, FormatCase{"tga", 1},
                    FormatCase{"sgi", 1}, FormatCase{"ras", 0}),
    [](const testing::TestParamInfo<FormatCase>& info) { return std::string(info.param.format); });

}  // namespace
