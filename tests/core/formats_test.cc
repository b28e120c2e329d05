// Format lists for file dialogs, built from the codec library's registry.
#include "core/formats.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "imgkit/imgkit.h"

namespace {

TEST(FormatList, GenericRowsComeFirstInTheirFixedOrder) {
  auto rows = BuildFormatList(kFormatListAutomatic | kFormatListAllGraphics | kFormatListAllFiles);
  ASSERT_EQ(rows.size(), 3u);  // no format rows without the read/write bits
  EXPECT_EQ(rows[0].label, "Automatic");
  EXPECT_EQ(rows[1].label, "All Files");
  EXPECT_EQ(rows[2].label, "All Graphics Files");
  for (const auto& r : rows) EXPECT_EQ(r.index, -1);
  EXPECT_EQ(rows[0].pattern, "");
  EXPECT_EQ(rows[1].pattern, "");
}

TEST(FormatList, AllGraphicsJoinsEveryExtensionInLibraryOrder) {
  std::string expected;
  for (int16_t i = 0; i < imkCount(); ++i) {
    FormatInfo info;
    imkGetInfo(i, &info);
    for (const auto& ext : info.extensions) {
      if (!ext[0]) break;
      expected += std::string(ext) + ";";
    }
  }
  auto rows = BuildFormatList(kFormatListAllGraphics);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].pattern, expected);
  EXPECT_NE(expected.find("jpg;jpeg;"), std::string::npos);
}

TEST(FormatList, FormatRowsAreSortedAndFilteredByCapability) {
  auto readable = BuildFormatList(kFormatListReadable);
  auto writable = BuildFormatList(kFormatListWritable);
  ASSERT_FALSE(readable.empty());
  for (size_t i = 1; i < readable.size(); ++i)
    EXPECT_LT(std::strcmp(readable[i - 1].label.c_str(), readable[i].label.c_str()), 0);
  for (const auto& r : readable) {
    FormatInfo info;
    imkGetInfo(r.index, &info);
    EXPECT_TRUE(info.capabilities & IMK_CAN_READ) << r.label;
    EXPECT_EQ(r.label, info.name);
    EXPECT_EQ(CompareFormatNames(r.index, r.index), 0);
  }
  for (const auto& r : writable) {
    FormatInfo info;
    imkGetInfo(r.index, &info);
    EXPECT_TRUE(info.capabilities & IMK_CAN_WRITE) << r.label;
  }
  // The raw reader cannot write: it is readable but never writable.
  const int16_t raw = imkGetIndex("raw");
  auto has = [](const std::vector<FormatListRow>& rows, int16_t index) {
    for (const auto& r : rows)
      if (r.index == index) return true;
    return false;
  };
  EXPECT_TRUE(has(readable, raw));
  EXPECT_FALSE(has(writable, raw));
  EXPECT_TRUE(has(writable, imkGetIndex("png")));
}

TEST(FormatList, CompareFormatNamesOrdersByDisplayName) {
  const int16_t jpeg = imkGetIndex("jpeg"), png = imkGetIndex("png");
  EXPECT_LT(CompareFormatNames(jpeg, png), 0);
  EXPECT_GT(CompareFormatNames(png, jpeg), 0);
}

}  // namespace
