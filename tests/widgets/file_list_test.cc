// What the file selector lists: filter patterns, directory contents, path
// arithmetic and the recent directories.
#include "widgets/file_list.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "core/formats.h"
#include "tests/support/test_support.h"

namespace {

using Names = std::vector<std::string>;

TEST(FilterPattern, ExtensionsMatchWithoutRegardToCase) {
  const std::string jpeg = "jpg;jpeg;jpe;jfif;";
  EXPECT_TRUE(MatchesPattern("a.jpg", jpeg));
  EXPECT_TRUE(MatchesPattern("HOLIDAY.JPEG", jpeg));
  EXPECT_TRUE(MatchesPattern("x.y.Jfif", jpeg));
  EXPECT_FALSE(MatchesPattern("a.jpgx", jpeg));
  EXPECT_FALSE(MatchesPattern("jpg", jpeg));        // no extension at all
  EXPECT_FALSE(MatchesPattern("a.", jpeg));         // an empty one
  EXPECT_FALSE(MatchesPattern("a.png.bak", jpeg));  // only the last counts
  EXPECT_TRUE(MatchesPattern("show.SLD", "*.sld"));
  EXPECT_TRUE(MatchesPattern("anything", ""));  // "All Files", "Automatic"
}

TEST(FilterPattern, RowsOfTheFormatListFilterTheirOwnFiles) {
  // Every readable format's row lets through a file named with each of its
  // own extensions, and the "All Graphics Files" row lets through all of them.
  const auto rows = BuildFormatList(kFormatListAllGraphics | kFormatListReadable);
  ASSERT_GT(rows.size(), 5u);
  ASSERT_EQ(rows[0].label, "All Graphics Files");
  for (size_t i = 1; i < rows.size(); ++i) {
    FormatInfo info;
    imkGetInfo(rows[i].index, &info);
    for (const auto& ext : info.extensions) {
      if (!ext[0]) break;
      const std::string name = std::string("picture.") + ext;
      EXPECT_TRUE(MatchesPattern(name, rows[i].pattern)) << name << " " << rows[i].label;
      EXPECT_TRUE(MatchesPattern(name, rows[0].pattern)) << name;
    }
  }
  EXPECT_FALSE(MatchesPattern("notes.txt", rows[0].pattern));
}

void touch(const std::string& path) { std::ofstream(path) << "x"; }

TEST(DirectoryListing, DirectoriesFirstWithParentThenFilteredFilesSorted) {
  test::TempDir dir;
  for (const char* name : {"b.PNG", "a.png", "c.gif", "notes.txt", ".hidden.png"})
    touch(dir.file(name));
  mkdir(dir.file("zeta").c_str(), 0755);
  mkdir(dir.file("Alpha").c_str(), 0755);
  mkdir(dir.file(".cache").c_str(), 0755);
  ASSERT_EQ(symlink("a.png", dir.file("link.png").c_str()), 0);
  ASSERT_EQ(symlink("zeta", dir.file("to_zeta").c_str()), 0);
  ASSERT_EQ(symlink("missing.png", dir.file("dangling.png").c_str()), 0);

  DirectoryListing all = ListDirectory(dir.path(), "");
  ASSERT_TRUE(all.readable);
  EXPECT_EQ(all.directories, (Names{"..", "Alpha", "to_zeta", "zeta"}));
  EXPECT_EQ(all.files, (Names{"a.png", "b.PNG", "c.gif", "link.png", "notes.txt"}));

  DirectoryListing png = ListDirectory(dir.path(), "png;");
  EXPECT_EQ(png.files, (Names{"a.png", "b.PNG", "link.png"}));
  EXPECT_EQ(png.directories, all.directories);  // directories are never filtered

  DirectoryListing hidden = ListDirectory(dir.path(), "png;", true);
  EXPECT_EQ(hidden.directories, (Names{"..", ".cache", "Alpha", "to_zeta", "zeta"}));
  EXPECT_EQ(hidden.files, (Names{".hidden.png", "a.png", "b.PNG", "link.png"}));

  EXPECT_FALSE(ListDirectory(dir.file("nowhere"), "").readable);
  // The root has no parent to offer.
  for (const std::string& d : ListDirectory("/", "").directories) EXPECT_NE(d, "..");
}

TEST(Paths, JoinCleanAndSplit) {
  EXPECT_EQ(JoinPath("/home/u", "a.png"), "/home/u/a.png");
  EXPECT_EQ(JoinPath("/", "a.png"), "/a.png");
  EXPECT_EQ(JoinPath("/home/u/", "a.png"), "/home/u/a.png");
  EXPECT_EQ(JoinPath("/home/u", "/tmp/b.png"), "/tmp/b.png");

  EXPECT_EQ(CleanPath("..", "/home/u"), "/home");
  EXPECT_EQ(CleanPath("../..", "/home/u"), "/");
  EXPECT_EQ(CleanPath("../../../..", "/home/u"), "/");
  EXPECT_EQ(CleanPath("pics/./a.png", "/home/u"), "/home/u/pics/a.png");
  EXPECT_EQ(CleanPath("//tmp///x/../y/", "/home/u"), "/tmp/y");
  EXPECT_EQ(CleanPath("/", "/home/u"), "/");

  EXPECT_EQ(DirectoryOf("/home/u/a.png"), "/home/u");
  EXPECT_EQ(DirectoryOf("/a.png"), "/");
  EXPECT_EQ(BaseName("/home/u/a.png"), "a.png");
  EXPECT_EQ(BaseName("a.png"), "a.png");
}

}  // namespace
