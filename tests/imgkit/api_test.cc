// The public interface: version, registry, result codes and safe saving.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>
#include <string>

#include "imgkit/internal.h"
#include "tests/support/test_support.h"

namespace {

TEST(Api, VersionIsExactly290) {
  char buf[16];
  std::memset(buf, 'x', sizeof buf);
  imkVersion(buf);
  EXPECT_EQ(std::memcmp(buf, "2.90", 5), 0);
}

TEST(Api, DefaultOptionsAreDeterministic) {
  LoadOptions a, b;
  std::memset(&a, 0x55, sizeof a);
  std::memset(&b, 0xAA, sizeof b);
  imkDefaultOption(&a);
  imkDefaultOption(&b);
  EXPECT_EQ(std::memcmp(&a, &b, 56), 0);
  EXPECT_EQ(a.progress, nullptr);
  EXPECT_EQ(a.reserved38, 1);
}

TEST(Registry, ShortNamesAreUniqueAndFoundByIndex) {
  std::set<std::string> names;
  for (int16_t i = 0; i < imkCount(); ++i) {
    FormatInfo info;
    imkGetInfo(i, &info);
    EXPECT_EQ(info.index, i);
    EXPECT_TRUE(names.insert(info.shortName).second) << info.shortName;
    EXPECT_EQ(imkGetIndex(info.shortName), i);
    EXPECT_NE(info.name[0], '\0');
    EXPECT_NE(info.extensions[0][0], '\0') << info.shortName;
    if (info.capabilities & IMK_CAN_WRITE) {
      // A writable format declares what it holds: a non-empty kind list.
      EXPECT_NE(info.kinds[0].kind, 0u) << info.shortName;
      EXPECT_LT(info.kinds[0].kind, 65535u) << info.shortName;
    }
  }
  for (const char* wanted : {"jpeg", "png", "gif", "tiff", "bmp", "pbm", "pgm", "ppm", "pam", "raw"})
    EXPECT_GE(imkGetIndex(wanted), 0) << wanted;
  EXPECT_EQ(imkGetIndex("nonsense"), -1);
}

TEST(Registry, OutOfRangeIndexGivesAnEmptyBlock) {
  FormatInfo info;
  imkGetInfo(999, &info);
  EXPECT_EQ(info.index, -1);
  EXPECT_EQ(info.capabilities, 0);
}

TEST(Load, MissingFileIsCannotOpenAndRecordStaysEmpty) {
  test::OwnedPicture p;
  p->pixels = reinterpret_cast<unsigned char*>(0x1);  // the library must clear it
  p->palette = reinterpret_cast<unsigned char*>(0x1);
  FileInfo info;
  LoadOptions o;
  imkDefaultOption(&o);
  EXPECT_EQ(imkLoad("/nonexistent/file.png", &p.rec, &o, &info), IMK_ERR_OPEN);
  EXPECT_EQ(p->pixels, nullptr);
  EXPECT_EQ(p->palette, nullptr);
}

TEST(Load, DirectoryAndUnknownContentAreRefused) {
  test::TempDir dir;
  test::OwnedPicture p;
  EXPECT_EQ(test::load(dir.path(), p), IMK_ERR_OPEN);
  test::writeFile(dir.file("text.txt"), {'h', 'e', 'l', 'l', 'o', '\n'});
  EXPECT_EQ(test::load(dir.file("text.txt"), p), IMK_ERR_UNKNOWN_FORMAT);
  test::writeFile(dir.file("empty"), {});
  EXPECT_EQ(test::load(dir.file("empty"), p), IMK_ERR_UNKNOWN_FORMAT);
  FileInfo info;
  EXPECT_NE(imkFileInformation(dir.file("text.txt").c_str(), -1, 0, &info), 0);
  EXPECT_EQ(p->pixels, nullptr);
}

TEST(Save, UnwritableFormatOrEmptyPictureIsCannotSave) {
  test::TempDir dir;
  test::OwnedPicture p;
  test::makePattern(p, IMK_RGB, 8, 8);
  EXPECT_EQ(test::save(dir.file("x.raw"), p.rec, "raw"), IMK_ERR_CANNOT_SAVE);
  ImageRecord empty{};
  EXPECT_EQ(test::save(dir.file("x.ppm"), empty, "ppm"), IMK_ERR_CANNOT_SAVE);
  EXPECT_FALSE(test::fileExists(dir.file("x.raw")));
}

TEST(AtomicFile, TargetUntouchedUntilCommitAndTempRemovedOnAbandon) {
  test::TempDir dir;
  const std::string target = dir.file("keep.bin");
  test::writeFile(target, {1, 2, 3});
  chmod(target.c_str(), 0640);
  {
    imk::AtomicFile f;
    ASSERT_TRUE(f.open(target.c_str()));
    std::fputs("new", f.file());
    EXPECT_EQ(test::readFile(target), (std::vector<uint8_t>{1, 2, 3}));
    // abandoned: destructor removes the temporary file
  }
  EXPECT_EQ(test::readFile(target), (std::vector<uint8_t>{1, 2, 3}));
  std::string listing;
  test::run("ls -A " + test::quote(dir.path()), &listing);
  EXPECT_EQ(listing, "keep.bin\n");
  {
    imk::AtomicFile f;
    ASSERT_TRUE(f.open(target.c_str()));
    std::fputs("new", f.file());
    ASSERT_TRUE(f.commit());
  }
  EXPECT_EQ(test::readFile(target), (std::vector<uint8_t>{'n', 'e', 'w'}));
  struct stat st;
  ASSERT_EQ(stat(target.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);  // the old file's mode is kept
}

TEST(AtomicFile, WritingThroughASymlinkKeepsTheLink) {
  test::TempDir dir;
  test::writeFile(dir.file("real.bin"), {1});
  ASSERT_EQ(symlink("real.bin", dir.file("link.bin").c_str()), 0);
  imk::AtomicFile f;
  ASSERT_TRUE(f.open(dir.file("link.bin").c_str()));
  std::fputs("xy", f.file());
  ASSERT_TRUE(f.commit());
  struct stat st;
  ASSERT_EQ(lstat(dir.file("link.bin").c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  EXPECT_EQ(test::readFile(dir.file("real.bin")).size(), 2u);
}

TEST(AtomicFile, UnwritableDirectoryFailsToOpen) {
  imk::AtomicFile f;
  EXPECT_FALSE(f.open("/nonexistent-dir/x.png"));
}

}  // namespace
