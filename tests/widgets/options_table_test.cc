// The options dialog's rows against the settings file's keys, the number
// rule of its fields, and the conversion choices offered when saving.
#include "widgets/options_table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <string>

#include "core/settings.h"
#include "process/conversion_items.h"
#include "widgets/conversion_dialog.h"

namespace {

const OptionRow& rowFor(const char* key) {
  for (const OptionRow& r : OptionRows())
    if (std::strcmp(r.key, key) == 0) return r;
  ADD_FAILURE() << "no row " << key;
  return OptionRows().front();
}

TEST(OptionRows, CoverEverySettingButPathsAndRememberedValuesOnce) {
  std::map<std::string, const OptionRow*> rows;
  for (const OptionRow& r : OptionRows()) EXPECT_TRUE(rows.emplace(r.key, &r).second) << r.key;
  size_t covered = 0;
  for (const SettingKey& k : SettingKeys()) {
    const bool userless = k.key.rfind("Path", 0) == 0 || k.key.rfind("FileName_", 0) == 0 ||
                          k.key.rfind("DirName_", 0) == 0 ||
                          k.key.rfind("ProcessLastValue_", 0) == 0;
    auto found = rows.find(k.key);
    if (userless) {
      EXPECT_EQ(found, rows.end()) << k.key;
      continue;
    }
    ASSERT_NE(found, rows.end()) << k.key << " has no control";
    const OptionRow& r = *found->second;
    ++covered;
    EXPECT_EQ(r.offset, k.offset) << k.key;
    switch (k.kind) {
      case SettingKind::kBoolean:
        EXPECT_EQ(r.kind, OptionKind::kToggle) << k.key;
        break;
      case SettingKind::kInteger:
        EXPECT_TRUE(r.kind == OptionKind::kNumber || r.kind == OptionKind::kChoice) << k.key;
        break;
      case SettingKind::kText:
        EXPECT_EQ(r.kind, OptionKind::kText) << k.key;
        break;
    }
  }
  EXPECT_EQ(covered, OptionRows().size());
}

TEST(OptionRows, PagesInCategoryOrderWithBrowserAtThree) {
  const auto& pages = OptionPages();
  ASSERT_EQ(pages.size(), 11u);
  EXPECT_STREQ(pages[0], "Start");
  EXPECT_STREQ(pages[3], "Browser");
  EXPECT_STREQ(pages[10], "Convert");
  // Each row sits on the page of its key's group, and the rows keep the
  // file's order, so the pages come out in list order.
  int last = 0;
  for (const OptionRow& r : OptionRows()) {
    ASSERT_GE(r.page, 0);
    ASSERT_LT(r.page, 11);
    EXPECT_EQ(std::string(r.key).rfind(pages[static_cast<size_t>(r.page)], 0), 0u) << r.key;
    EXPECT_GE(r.page, last) << r.key;
    last = r.page;
  }
}

TEST(OptionRows, DefaultsLieInRangesAndAmongChoices) {
  Settings defaults;
  for (const OptionRow& r : OptionRows()) {
    if (r.kind == OptionKind::kNumber) {
      EXPECT_LT(r.minimum, r.maximum) << r.key;
      EXPECT_GE(OptionInt(defaults, r), r.minimum) << r.key;
      EXPECT_LE(OptionInt(defaults, r), r.maximum) << r.key;
    } else if (r.kind == OptionKind::kChoice) {
      ASSERT_GT(r.choiceCount, 1) << r.key;
      const int p = OptionChoicePosition(r, OptionInt(defaults, r));
      EXPECT_EQ(r.choices[p].value, OptionInt(defaults, r)) << r.key;
      std::set<int> values;
      for (int i = 0; i < r.choiceCount; ++i) EXPECT_TRUE(values.insert(r.choices[i].value).second);
    }
  }
}

std::set<int> choiceValues(const char* key) {
  const OptionRow& r = rowFor(key);
  std::set<int> values;
  for (int i = 0; i < r.choiceCount; ++i) values.insert(r.choices[i].value);
  return values;
}

TEST(OptionRows, ChoicesAreWhatTheCodecsInterpret) {
  EXPECT_EQ(choiceValues("SaveTiffCompress"),
            (std::set<int>{IMK_TIFF_NONE, IMK_TIFF_LZW, IMK_TIFF_PACKBITS, IMK_TIFF_DEFLATE,
                           IMK_TIFF_G4}));
  EXPECT_EQ(choiceValues("LoadChannelType"),
            (std::set<int>{IMK_RAW_GREY, IMK_RAW_RGB, IMK_RAW_BGR, IMK_RAW_RGBA, IMK_RAW_ABGR,
                           IMK_RAW_CMY, IMK_RAW_CMYK}));
  EXPECT_EQ(choiceValues("LoadChannelOrder"),
            (std::set<int>{IMK_RAW_INTERLEAVED, IMK_RAW_SEQUENTIAL, IMK_RAW_PLANES}));
  // Every sort key of the browser, forward and reverse (bit 7).
  EXPECT_EQ(choiceValues("BrowserArrangeBy"),
            (std::set<int>{1, 2, 4, 8, 16, 129, 130, 132, 136, 144}));
  EXPECT_EQ(choiceValues("BrowserViewas"), (std::set<int>{0, 1, 2, 3}));
}

TEST(OptionNumber, TextGivesNumberHeldInRangeOrTheOldValue) {
  const OptionRow& quality = rowFor("SaveJpegQuality");  // 0..100
  EXPECT_EQ(OptionNumberFromText(quality, "75", 90), 75);
  EXPECT_EQ(OptionNumberFromText(quality, " 0 ", 90), 0);
  EXPECT_EQ(OptionNumberFromText(quality, "150", 90), 100);
  EXPECT_EQ(OptionNumberFromText(quality, "-3", 90), 0);
  EXPECT_EQ(OptionNumberFromText(quality, "", 90), 90);
  EXPECT_EQ(OptionNumberFromText(quality, "7x", 90), 90);
  EXPECT_EQ(OptionNumberFromText(quality, "abc", 90), 90);
  EXPECT_EQ(OptionNumberFromText(quality, "99999999999999999999", 90), 90);
  EXPECT_EQ(OptionNumberFromText(rowFor("SavePngQuality"), "12", 6), 9);
}

ImageRecord pictureOfType(uint16_t type) {
  ImageRecord p{};
  p.type = type;
  return p;
}

TEST(ConversionChoices, LeaveOutItemsGivingThePicturesOwnKind) {
  const std::vector<int> binary = ConversionChoices(pictureOfType(IMK_BINARY));
  ASSERT_EQ(binary.size(), 28u);
  EXPECT_EQ(binary.front(), 5);  // the first grey item
  EXPECT_EQ(binary.back(), 32);
  const std::vector<int> grey = ConversionChoices(pictureOfType(IMK_GREY));
  ASSERT_EQ(grey.size(), 32u);
  for (int i = 0; i < 32; ++i) EXPECT_EQ(grey[static_cast<size_t>(i)], i + 1);
  for (uint16_t type : {IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR}) {
    const std::vector<int> colour = ConversionChoices(pictureOfType(type));
    ASSERT_EQ(colour.size(), 31u);
    EXPECT_EQ(colour.back(), 31);
  }
}

}  // namespace
