// XPM: colour values and X11 colour names (checked against the system's own
// rgb.txt), transparency, round trips of every kind, cross-checks with
// ImageMagick in both directions and refusal of broken files.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

namespace {

using test::OwnedPicture;

// An XPM3 file of one row, one pixel per colour entry (codes of two chars).
std::string oneRowXpm(const std::vector<std::string>& colours) {
  std::string text = "/* XPM */\nstatic char *t[] = {\n\"" + std::to_string(colours.size()) +
                     " 1 " + std::to_string(colours.size()) + " 2\",\n";
  std::string row;
  for (size_t i = 0; i < colours.size(); ++i) {
    const char code[3] = {static_cast<char>('A' + i / 26), static_cast<char>('a' + i % 26), 0};
    text += std::string("\"") + code + " " + colours[i] + "\",\n";
    row += code;
  }
  return text + "\"" + row + "\"};\n";
}

struct Rgba {
  int r, g, b, a;
  bool operator==(const Rgba& o) const { return r == o.r && g == o.g && b == o.b && a == o.a; }
};
std::ostream& operator<<(std::ostream& os, const Rgba& c) {
  return os << c.r << "," << c.g << "," << c.b << "," << c.a;
}

Rgba pixelAt(const OwnedPicture& pic, int x, int y) {
  std::vector<uint8_t> rgba(static_cast<size_t>(pic->width) * 4);
  imk::rowToRgba(pic.rec, y, rgba.data());
  const uint8_t* p = &rgba[static_cast<size_t>(x) * 4];
  return {p[0], p[1], p[2], p[3]};
}

TEST(XpmColours, ValuesNamesKeysAndNone) {
  test::TempDir dir;
  // Expected values worked out from the notation (#RGB doubles each digit,
  // 16-bit channels are rounded to 8) and from X11's rgb.txt.
  const std::vector<std::pair<std::string, Rgba>> cases = {
      {"c #FF8000", {255, 128, 0, 255}},
      {"c #f0a", {255, 0, 170, 255}},
      {"c #FFFF80000000", {255, 128, 0, 255}},
      {"c #123456789", {18, 69, 120, 255}},  // 0x789 * 255 / 4095 = 120.1 (rounded)
      {"c red", {255, 0, 0, 255}},
      {"c Navy Blue", {0, 0, 128, 255}},
      {"c light goldenrod yellow", {250, 250, 210, 255}},
      {"c LightGoldenrodYellow", {250, 250, 210, 255}},
      {"c DarkSlateGray4", {82, 139, 139, 255}},
      {"c gray50", {127, 127, 127, 255}},
      {"c GREY100", {255, 255, 255, 255}},
      {"c grey", {190, 190, 190, 255}},
      {"s sym m white c blue", {0, 0, 255, 255}},  // c wins over m
      {"m black s dark", {0, 0, 0, 255}},          // only a mono colour
      {"g #808080 m white", {128, 128, 128, 255}},
      {"c no-such-colour", {0, 0, 0, 255}},  // unknown names show black
      {"c None", {255, 255, 255, 0}},
      {"c none", {255, 255, 255, 0}},
  };
  std::vector<std::string> colours;
  for (const auto& c : cases) colours.push_back(c.first);
  test::writeText(dir.file("c.xpm"), oneRowXpm(colours));
  OwnedPicture pic;
  FileInfo info;
  ASSERT_EQ(test::load(dir.file("c.xpm"), pic, 0, 0, &info), 0) << info.errorText;
  EXPECT_EQ(info.formatIndex, imkGetIndex("xpm"));
  EXPECT_EQ(pic->type, IMK_RGBX);  // None makes the picture carry alpha
  for (size_t i = 0; i < cases.size(); ++i)
    EXPECT_EQ(pixelAt(pic, static_cast<int>(i), 0), cases[i].second) << cases[i].first;
}

// Every name of the system's colour database resolves to its value, spelled
// as the file spells it (spaces, capitals) and in lower case.
TEST(XpmColours, EveryNameOfTheX11DatabaseResolves) {
  std::ifstream in("/usr/share/X11/rgb.txt");
  if (!in) GTEST_SKIP() << "no /usr/share/X11/rgb.txt";
  std::vector<std::pair<std::string, Rgba>> all;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '!') continue;
    std::istringstream ss(line);
    Rgba c{0, 0, 0, 255};
    ss >> c.r >> c.g >> c.b;
    std::string name, word;
    while (ss >> word) name += (name.empty() ? "" : " ") + word;
    all.push_back({name, c});
  }
  ASSERT_GT(all.size(), 700u);
  test::TempDir dir;
  for (size_t start = 0; start < all.size(); start += 200) {
    const size_t n = std::min<size_t>(200, all.size() - start);
    std::vector<std::string> colours;
    for (size_t i = 0; i < n; ++i) colours.push_back("c " + all[start + i].first);
    test::writeText(dir.file("n.xpm"), oneRowXpm(colours));
    OwnedPicture pic;
    ASSERT_EQ(test::load(dir.file("n.xpm"), pic), 0);
    for (size_t i = 0; i < n; ++i)
      EXPECT_EQ(pixelAt(pic, static_cast<int>(i), 0), all[start + i].second)
          << all[start + i].first;
  }
}

TEST(XpmRead, SmallTablesAreMappedLargeOnesTrueColourAndXpm2IsRead) {
  test::TempDir dir;
  OwnedPicture pic;
  test::writeText(dir.file("bw.xpm"), oneRowXpm({"c #000000", "c white"}));
  ASSERT_EQ(test::load(dir.file("bw.xpm"), pic), 0);
  EXPECT_EQ(pic->type, IMK_BINARY);

  test::writeText(dir.file("three.xpm"), oneRowXpm({"c red", "c #00FF00", "c blue"}));
  ASSERT_EQ(test::load(dir.file("three.xpm"), pic), 0);
  EXPECT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(pic->colorCount, 3);
  EXPECT_EQ(pixelAt(pic, 1, 0), (Rgba{0, 255, 0, 255}));

  std::vector<std::string> many;
  for (int i = 0; i < 300; ++i) {
    char colour[16];
    std::snprintf(colour, sizeof colour, "c #%02X00%02X", i / 256, i % 256);
    many.push_back(colour);
  }
  test::writeText(dir.file("many.xpm"), oneRowXpm(many));
  ASSERT_EQ(test::load(dir.file("many.xpm"), pic), 0);
  EXPECT_EQ(pic->type, IMK_RGB);
  EXPECT_EQ(pixelAt(pic, 299, 0), (Rgba{1, 0, 299 - 256, 255}));

  // XPM2: plain lines, no C syntax.
  test::writeText(dir.file("v2.xpm"), "! XPM2\n3 2 2 1\n. c #FF0000\n# c blue\n.#.\n##.\n");
  ASSERT_EQ(test::load(dir.file("v2.xpm"), pic), 0);
  ASSERT_EQ(pic->width, 3);
  ASSERT_EQ(pic->height, 2);
  EXPECT_EQ(pixelAt(pic, 1, 0), (Rgba{0, 0, 255, 255}));
  EXPECT_EQ(pixelAt(pic, 2, 1), (Rgba{255, 0, 0, 255}));
}

checks::RoundTripCase xpm(uint16_t kind, int levels, uint16_t loaded) {
  return {.format = "xpm",
          .kind = kind,
          .levels = levels,
          .loaded = loaded,
          .colours = kind == IMK_GREY || kind == IMK_MAPPED ? levels : -1,
          // ImageMagick checks palettes and true colour.
          .magickReads = kind == IMK_MAPPED || kind >= IMK_RGB};
}

INSTANTIATE_TEST_SUITE_P(Xpm, RoundTrip,
                         testing::Values(xpm(IMK_BINARY, 2, IMK_BINARY),
                                         xpm(IMK_GREY, 256, IMK_GREY), xpm(IMK_GREY, 16, IMK_GREY),
                                         xpm(IMK_MAPPED, 200, IMK_MAPPED),
                                         xpm(IMK_MAPPED, 12, IMK_MAPPED),
                                         xpm(IMK_RGB, 256, IMK_RGB), xpm(IMK_BGR, 256, IMK_RGB),
                                         xpm(IMK_XBGR, 256, IMK_RGB)),
                         checks::caseName<checks::RoundTripCase>);

// ImageMagick reduces pictures of more than 256 colours when it writes XPM,
// so its file is made from a colour-mapped picture.
INSTANTIATE_TEST_SUITE_P(Xpm, ToolWrites,
                         testing::Values(checks::ToolWriteCase{
                             .format = "xpm",
                             .command = "/usr/bin/convert {dir}/pal.ppm {out}",
                             .same = "pal",
                             .kind = IMK_MAPPED}),
                         checks::caseName<checks::ToolWriteCase>);

TEST(XpmRoundTrip, TransparentPixelsBecomeNoneAndComeBack) {
  test::TempDir dir;
  OwnedPicture src, back;
  test::makePattern(src, IMK_RGBX, 20, 10);
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 20; ++x) src.row(y)[x * 4 + 3] = (x + y) % 3 ? 255 : 0;
  ASSERT_EQ(test::save(dir.file("a.xpm"), src.rec, "xpm"), 0);
  const std::vector<uint8_t> bytes = test::readFile(dir.file("a.xpm"));
  EXPECT_NE(std::string(bytes.begin(), bytes.end()).find(" c None\""), std::string::npos);
  ASSERT_EQ(test::load(dir.file("a.xpm"), back), 0);
  ASSERT_EQ(back->type, IMK_RGBX);
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 20; ++x) {
      const Rgba want = pixelAt(src, x, y), got = pixelAt(back, x, y);
      EXPECT_EQ(got.a, want.a);
      if (want.a) {
        EXPECT_EQ(got, want) << x << "," << y;
      }
    }
}

TEST(XpmWrite, CharactersPerPixelGrowWithTheColourCount) {
  test::TempDir dir;
  struct Case {
    int colours, cpp;
  } cases[] = {{2, 1}, {90, 1}, {91, 2}, {256, 2}};
  for (const Case& c : cases) {
    OwnedPicture src;
    test::makePattern(src, IMK_MAPPED, 64, 8, c.colours);
    ASSERT_EQ(test::save(dir.file("w.xpm"), src.rec, "xpm"), 0);
    const std::vector<uint8_t> bytes = test::readFile(dir.file("w.xpm"));
    const std::string text(bytes.begin(), bytes.end());
    const std::string values =
        "\"64 8 " + std::to_string(c.colours) + " " + std::to_string(c.cpp) + " \"";
    EXPECT_NE(text.find(values), std::string::npos) << c.colours;
    // The C source form: a static array of strings.
    EXPECT_EQ(text.rfind("/* XPM */\nstatic char *image[] = {\n", 0), 0u);
    EXPECT_EQ(text.substr(text.size() - 3), "};\n");
  }
}

TEST(XpmRead, BrokenFilesAreRefusedAndTruncationKeepsTheRowsRead) {
  test::TempDir dir;
  const std::string head = "/* XPM */\nstatic char *b[] = {\n";
  struct Case {
    const char* name;
    std::string text;
    int code;
  } cases[] = {
      {"cpp0", head + "\"2 1 1 0\",\"c red\",\"..\"};", IMK_ERR_BAD_FILE},
      {"cpp9", head + "\"2 1 1 9\",\"123456789 c red\",\"\"};", IMK_ERR_BAD_FILE},
      {"nocolours", head + "\"2 1 0 1\",\"..\"};", IMK_ERR_BAD_FILE},
      {"values", head + "\"2 x 1 1\",\". c red\",\"..\"};", IMK_ERR_BAD_FILE},
      {"table", head + "\"2 1 5 1\",\". c red\"};", IMK_ERR_CORRUPT},
      {"undefined", head + "\"2 1 1 1\",\". c red\",\".x\"};", IMK_ERR_CORRUPT},
      {"narrow", head + "\"3 1 1 1\",\". c red\",\"..\"};", IMK_ERR_CORRUPT},
      // A huge picture whose rows the file does not hold fails before
      // anything is allocated.
      {"huge", head + "\"40000 20000 1 1\",\". c red\",\"..\"};", IMK_ERR_CORRUPT},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    test::writeText(dir.file(c.name), c.text);
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(test::load(dir.file(c.name), pic, 0, 0, &info), c.code);
    EXPECT_NE(info.errorText[0], '\0');
    EXPECT_EQ(pic->pixels, nullptr);
  }

  // Ignoring errors does not make two codes worth 800 million pixels.
  OwnedPicture pic;
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("huge"), pic, 0, IMK_FLAG_IGNORE_ERRORS, &info), IMK_ERR_BAD_FILE);
  EXPECT_STREQ(info.errorText, "too little data for the picture");
  // Three rows declared, two present: with errors ignored the two are kept
  // and the third stays index 0.
  test::writeText(dir.file("cut.xpm"), head + "\"2 3 2 1\",\". c red\",\"# c blue\",\"#.\",\".#\"");
  EXPECT_EQ(test::load(dir.file("cut.xpm"), pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_STREQ(info.errorText, "truncated");
  ASSERT_EQ(test::load(dir.file("cut.xpm"), pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(pixelAt(pic, 0, 0), (Rgba{0, 0, 255, 255}));
  EXPECT_EQ(pixelAt(pic, 1, 1), (Rgba{0, 0, 255, 255}));
  EXPECT_EQ(pixelAt(pic, 0, 2), (Rgba{255, 0, 0, 255}));
  // An undefined code shows entry 0 when errors are ignored.
  ASSERT_EQ(test::load(dir.file("undefined"), pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(pixelAt(pic, 1, 0), (Rgba{255, 0, 0, 255}));
}

}  // namespace
