// The settings file: the reading rule's edge cases, the written form and order,
// and a write-read round trip of every key.
#include "core/settings.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace {

void writeFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

Settings readFrom(const std::string& text) {
  test::TempDir dir;
  writeFile(dir.file("rc"), text);
  Settings s;
  EXPECT_TRUE(ReadSettings(dir.file("rc"), s));
  return s;
}

TEST(SettingsRead, BooleansInAnyCaseWithOrWithoutBlanks) {
  const Settings defaults;
  ASSERT_FALSE(defaults.viewFitToWindow);
  EXPECT_TRUE(readFrom("ViewFitToWindow=true\n").viewFitToWindow);
  EXPECT_TRUE(readFrom("ViewFitToWindow = TRUE\n").viewFitToWindow);
  EXPECT_TRUE(readFrom("ViewFitToWindow\t=\tTrUe\n").viewFitToWindow);
  EXPECT_FALSE(readFrom("ViewStatusBar = false\n").viewStatusBar);
  // Anything but true/false leaves the default in force.
  EXPECT_FALSE(readFrom("ViewFitToWindow = yes\n").viewFitToWindow);
  EXPECT_TRUE(readFrom("ViewStatusBar = 0\n").viewStatusBar);
}

TEST(SettingsRead, EmptyValueOrNoEqualsSignIsNotFound) {
  const Settings defaults;
  EXPECT_EQ(readFrom("StartWidth =\n").startWidth, defaults.startWidth);
  EXPECT_EQ(readFrom("StartWidth = \n").startWidth, defaults.startWidth);
  EXPECT_EQ(readFrom("StartWidth\n").startWidth, defaults.startWidth);
  EXPECT_EQ(readFrom("StartWidth 600\n").startWidth, defaults.startWidth);
  EXPECT_EQ(readFrom("StartWidth = 600\n").startWidth, 600);
  EXPECT_EQ(readFrom("StartWidth = -17px\n").startWidth, -17);  // signed decimal prefix
  EXPECT_EQ(readFrom("StartWidth = px\n").startWidth, 0);
}

TEST(SettingsRead, FirstLineHoldingTheKeyAnywhereWins) {
  // The key is found inside a longer word and inside an earlier line's value.
  EXPECT_EQ(readFrom("XStartX = 5\nStartX = 9\n").startX, 5);
  EXPECT_EQ(readFrom("PathLoad = /a/StartX = 7\nStartX = 9\n").startX, 7);
  // A first match without "=" right after the key hides a good later line.
  EXPECT_EQ(readFrom("StartXY = 3\nStartX = 9\n").startX, Settings().startX);
  EXPECT_EQ(readFrom("SlideTimer = 5\nSlideTimer = 8\n").slideTimer, 5);
}

TEST(SettingsRead, TextIsTheRestOfTheLineCutToItsBuffer) {
  EXPECT_STREQ(readFrom("PathLoad =   /home/user/my pictures  \n").pathLoad,
               "/home/user/my pictures  ");
  EXPECT_STREQ(readFrom("FileName_3 = /tmp/a.gif\r\n").fileName[3], "/tmp/a.gif");
  const std::string longPath(2000, 'p');
  // Lines are read in pieces of at most 1023 characters: the value is what
  // the first piece holds after the key.
  const Settings s = readFrom("PathSave = " + longPath + "\n");
  EXPECT_EQ(std::strlen(s.pathSave), 1023u - std::strlen("PathSave = "));
}

TEST(SettingsRead, MissingFileKeepsEverySetting) {
  test::TempDir dir;
  Settings s;
  s.startWidth = 1234;
  EXPECT_FALSE(ReadSettings(dir.file("absent"), s));
  EXPECT_EQ(s.startWidth, 1234);
}

TEST(SettingsWrite, EveryKeyInOrderAsKeyEqualsValueLines) {
  test::TempDir dir;
  Settings s;
  std::strcpy(s.pathLoad, "/home/user/pictures");
  std::strcpy(s.fileName[0], "/tmp/a.gif");
  s.startWidth = 600;
  s.viewFitToWindow = true;
  s.slideTimer = 5;
  ASSERT_TRUE(WriteSettings(dir.file("rc"), s));
  const std::string text = readFile(dir.file("rc"));
  EXPECT_NE(text.find("PathLoad = /home/user/pictures\n"), std::string::npos);
  EXPECT_NE(text.find("FileName_0 = /tmp/a.gif\n"), std::string::npos);
  EXPECT_NE(text.find("FileName_1 = \n"), std::string::npos);
  EXPECT_NE(text.find("StartWidth = 600\n"), std::string::npos);
  EXPECT_NE(text.find("ViewFitToWindow = True\n"), std::string::npos);
  EXPECT_NE(text.find("ViewUsePopupInView = False\n"), std::string::npos);
  EXPECT_NE(text.find("SlideTimer = 5\n"), std::string::npos);
  // One line per key, in table order, with group-then-name keys.
  std::istringstream lines(text);
  std::string line;
  size_t i = 0;
  for (; std::getline(lines, line); ++i) {
    ASSERT_LT(i, SettingKeys().size());
    EXPECT_EQ(line.rfind(SettingKeys()[i].key + " = ", 0), 0u) << line;
  }
  EXPECT_EQ(i, SettingKeys().size());
  const char* order[] = {"PathLoad",
                         "PathSave",
                         "PathBrowse",
                         "FileName_0",
                         "FileName_8",
                         "DirName_0",
                         "DirName_9",
                         "StartX",
                         "StartLaunchBrowserAtStartup",
                         "ViewUsePopupInView",
                         "ViewMouseNavigation",
                         "ResizeResample",
                         "BrowserX",
                         "BrowserFitWindowOption",
                         "SaveJpegQuality",
                         "SaveBmpCompress",
                         "LoadPcdBase",
                         "LoadPreview",
                         "SlideTimer",
                         "SlideNoError",
                         "RenameStart",
                         "RenameTemplate",
                         "HtmlTableColumns",
                         "HtmlOutputDirectory",
                         "ProcessAutoView",
                         "ProcessLastValue_0",
                         "ConvertHideError"};
  size_t last = 0;
  const std::string lined = "\n" + text;
  for (const char* key : order) {
    const size_t at = lined.find(std::string("\n") + key + " = ");
    ASSERT_NE(at, std::string::npos) << key;
    EXPECT_GE(at, last) << key;
    last = at;
  }
}

TEST(SettingsWrite, WriteThenReadGivesBackEveryValue) {
  // Every key gets a value different from its default, then comes back.
  test::TempDir dir;
  Settings out;
  int n = 0;
  for (const SettingKey& k : SettingKeys()) {
    char* field = reinterpret_cast<char*>(&out) + k.offset;
    ++n;
    if (k.kind == SettingKind::kText) {
      const std::string v = "/value/" + std::to_string(n) + " with blanks";
      std::strcpy(field, v.c_str());
    } else if (k.kind == SettingKind::kInteger) {
      const int v = (n % 2 ? -1 : 1) * (1000 + n);
      std::memcpy(field, &v, sizeof v);
    } else {
      *reinterpret_cast<bool*>(field) = !*reinterpret_cast<bool*>(field);
    }
  }
  ASSERT_TRUE(WriteSettings(dir.file("rc"), out));
  Settings in;
  ASSERT_TRUE(ReadSettings(dir.file("rc"), in));
  for (const SettingKey& k : SettingKeys()) {
    const char* a = reinterpret_cast<const char*>(&out) + k.offset;
    const char* b = reinterpret_cast<const char*>(&in) + k.offset;
    if (k.kind == SettingKind::kText)
      EXPECT_STREQ(a, b) << k.key;
    else
      EXPECT_EQ(std::memcmp(a, b, k.size), 0) << k.key;
  }
}

TEST(SettingsWrite, FailureLeavesTheOldFileAndSaysSo) {
  test::TempDir dir;
  // A directory that cannot be written: nothing is created, the message names
  // the file.
  const std::string locked = dir.file("locked");
  ASSERT_EQ(mkdir(locked.c_str(), 0500), 0);
  if (geteuid() != 0) {
    testing::internal::CaptureStdout();
    EXPECT_FALSE(WriteSettings(locked + "/rc", Settings()));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error in creating <" + locked + "/rc>\n");
  }
  // A path whose directory does not exist fails the same way for anyone.
  testing::internal::CaptureStdout();
  EXPECT_FALSE(WriteSettings(dir.file("none/rc"), Settings()));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Error in creating <" + dir.file("none/rc") + ">\n");
  // A successful rewrite replaces the file as a whole and keeps its mode.
  writeFile(dir.file("rc"), "StartWidth = 1\n");
  chmod(dir.file("rc").c_str(), 0640);
  Settings s;
  s.startWidth = 777;
  ASSERT_TRUE(WriteSettings(dir.file("rc"), s));
  struct stat st {};
  ASSERT_EQ(stat(dir.file("rc").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  EXPECT_EQ(readFrom(readFile(dir.file("rc"))).startWidth, 777);
}

using Names = std::vector<std::string>;

template <size_t N>
Names recent(const char (&list)[N][kPathSize]) {
  Names names;
  for (const auto& d : list) names.emplace_back(d);
  return names;
}

TEST(RecentDirectories, MostRecentFirstNoDuplicatesTenAtMost) {
  Settings s;
  AddRecentDirectory(s, "/a");
  AddRecentDirectory(s, "/b");
  EXPECT_EQ(recent(s.dirName), (Names{"/b", "/a", "", "", "", "", "", "", "", ""}));
  AddRecentDirectory(s, "/a");  // moves to the front, not added twice
  EXPECT_EQ(recent(s.dirName), (Names{"/a", "/b", "", "", "", "", "", "", "", ""}));
  AddRecentDirectory(s, "");
  EXPECT_EQ(recent(s.dirName)[0], "/a");
  for (const char* d : {"/1", "/2", "/3", "/4", "/5", "/6", "/7", "/8", "/9"})
    AddRecentDirectory(s, d);
  EXPECT_EQ(recent(s.dirName), (Names{"/9", "/8", "/7", "/6", "/5", "/4", "/3", "/2", "/1", "/a"}));
  AddRecentDirectory(s, "/10");  // "/a" falls off the end
  EXPECT_EQ(recent(s.dirName),
            (Names{"/10", "/9", "/8", "/7", "/6", "/5", "/4", "/3", "/2", "/1"}));
  AddRecentDirectory(s, "/5");
  EXPECT_EQ(recent(s.dirName),
            (Names{"/5", "/10", "/9", "/8", "/7", "/6", "/4", "/3", "/2", "/1"}));
}

TEST(RecentFiles, NineAtMostMostRecentFirst) {
  Settings s;
  for (const char* f : {"/1", "/2", "/3", "/4", "/5", "/6", "/7", "/8", "/9", "/10"})
    AddRecentFile(s, f);
  EXPECT_EQ(recent(s.fileName), (Names{"/10", "/9", "/8", "/7", "/6", "/5", "/4", "/3", "/2"}));
  AddRecentFile(s, "/4");
  EXPECT_EQ(recent(s.fileName), (Names{"/4", "/10", "/9", "/8", "/7", "/6", "/5", "/3", "/2"}));
  EXPECT_EQ(recent(s.dirName)[0], "");  // the directories are another list
}

}  // namespace
