// The command line and the fallback resources of start-up.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/startup.h"

namespace {

CommandLine parse(std::vector<std::string> words) {
  words.insert(words.begin(), "vimora");
  std::vector<char*> argv;
  for (std::string& w : words) argv.push_back(w.data());
  return ParseCommandLine(static_cast<int>(argv.size()), argv.data());
}

std::string ini(std::vector<std::string> words) {
  words.insert(words.begin(), "vimora");
  std::vector<char*> argv;
  for (std::string& w : words) argv.push_back(w.data());
  return IniPathFromArguments(static_cast<int>(argv.size()), argv.data());
}

TEST(CommandLine, VisualIdIsHexadecimalWithOrWithoutPrefix) {
  EXPECT_EQ(parse({"-visualid", "21", "x.png"}).visualId, 0x21);
  EXPECT_EQ(parse({"-visualid", "0x21", "x.png"}).visualId, 0x21);
  EXPECT_EQ(parse({"-visualid", "3e", "x.png"}).visualId, 62);
  EXPECT_EQ(parse({"x.png"}).visualId, -1);
  const CommandLine line = parse({"-visualid", "21", "x.png"});
  EXPECT_EQ(line.firstFile, 3);
}

TEST(CommandLine, OptionsEndAtTheFirstFile) {
  const CommandLine line = parse({"-own", "-all", "a.gif", "-help", "-popup"});
  EXPECT_TRUE(line.own);
  EXPECT_TRUE(line.all);
  EXPECT_FALSE(line.popup);  // after the first file: a file name
  EXPECT_EQ(line.firstFile, 3);
}

TEST(CommandLine, EveryOptionIsRecognised) {
  const CommandLine line =
      parse({"-popup", "-browser", "-full", "-ini", "my.rc", "-slide", "show.sld", "pic.png"});
  EXPECT_TRUE(line.popup);
  EXPECT_TRUE(line.browser);
  EXPECT_TRUE(line.full);
  EXPECT_FALSE(line.own);
  EXPECT_FALSE(line.all);
  EXPECT_EQ(line.slideFile, "show.sld");
  EXPECT_EQ(line.firstFile, 8);
}

TEST(CommandLine, ValueOptionsAsLastArgumentTakeNoValue) {
  CommandLine line = parse({"-visualid"});
  EXPECT_EQ(line.visualId, -1);
  EXPECT_EQ(line.firstFile, 2);
  line = parse({"-slide"});
  EXPECT_TRUE(line.slideFile.empty());
  EXPECT_EQ(line.firstFile, 2);
  EXPECT_EQ(ini({"-ini"}), "");
}

TEST(CommandLine, OptionsAreComparedExactly) {
  const CommandLine line = parse({"-Own", "-own"});
  EXPECT_FALSE(line.own);
  EXPECT_EQ(line.firstFile, 1);
}

TEST(CommandLine, FirstIniWithAValueNamesTheSettingsFile) {
  EXPECT_EQ(ini({"-ini", "a.rc", "-ini", "b.rc"}), "a.rc");
  EXPECT_EQ(ini({"x.png", "-ini", "late.rc"}), "late.rc");  // looked for everywhere
  EXPECT_EQ(ini({"x.png"}), "");
}

TEST(FallbackResources, HoldAllLinesWithTheRepeatedOnesTwice) {
  const std::vector<std::string> lines = FallbackResourceLines();
  ASSERT_EQ(lines.size(), 121u);
  EXPECT_EQ(lines.front(), "*fontList: -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1");
  EXPECT_EQ(lines.back(),
            "Vimora*VmoraView*labelInfo.fontList: "
            "-*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1");
  auto count = [&](const std::string& line) {
    int n = 0;
    for (const std::string& l : lines) n += l == line;
    return n;
  };
  EXPECT_EQ(count("*XmRowColumn.marginHeight: 1"), 2);
  EXPECT_EQ(count("Vimora*FileSelector*labelType.fontList: "
                  "-*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1"),
            2);
  // Every other line is there once.
  int repeated = 0;
  for (const std::string& l : lines) repeated += count(l) > 1;
  EXPECT_EQ(repeated, 4);
  EXPECT_EQ(count("*XmDrawingArea.background: #90abb1"), 1);
  EXPECT_EQ(count("*XmTextField.fontList: -*-fixed-medium-r-normal-*-14-*-*-*-*-*-iso8859-1"), 1);
}

}  // namespace
