// The processing dialogs' descriptors: value mappings, shown texts, the
// remembered-value slots and the agreement with the batch vocabulary.
#include "widgets/param_table.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <set>

#include "core/process_slots.h"
#include "core/settings.h"
#include "process/advanced_ops.h"

using params::ControlKind;
using params::DialogId;
using params::ParamControl;
using params::ValueMap;

namespace {

const ParamControl& firstControl(DialogId id) { return params::paramDialog(id).controls.front(); }

class ParamTable : public ::testing::Test {
 protected:
  void SetUp() override { gSettings = Settings(); }
  void TearDown() override { gSettings = Settings(); }
};

}  // namespace

TEST(ParamMapping, PosterizePositionsGiveTwoToTheLevels) {
  const int expected[] = {2, 4, 8, 16, 32, 64, 128, 256};
  const ParamControl& levels = firstControl(DialogId::kPosterize);
  for (int p = 0; p <= 7; ++p) {
    EXPECT_EQ(params::mapPosition(ValueMap::kPowerOfTwo, p), expected[p]);
    EXPECT_EQ(params::positionText(levels, p), std::to_string(expected[p]));
  }
}

TEST(ParamMapping, GammaIsHundredthsShownWithTwoDecimals) {
  const ParamControl& gamma = firstControl(DialogId::kGamma);
  const struct {
    int position;
    double value;
    const char* text;
  } cases[] = {{0, 0.01, "0.01"},   {9, 0.10, "0.10"},   {99, 1.00, "1.00"},
               {149, 1.50, "1.50"}, {204, 2.05, "2.05"}, {499, 5.00, "5.00"}};
  for (const auto& c : cases) {
    EXPECT_DOUBLE_EQ(params::mapPosition(ValueMap::kHundredths, c.position), c.value);
    EXPECT_EQ(params::positionText(gamma, c.position), c.text);
  }
}

TEST(ParamMapping, FilterSizeChoicesAndLabels) {
  const ParamControl& size = firstControl(DialogId::kAverage);
  EXPECT_STREQ(size.label, "Filter size");
  const std::vector<std::string> labels = params::choiceLabels(size.choices);
  const std::vector<std::string> expected = {"3X3", "5X5", "7X7", "9X9", "11X11", "13X13"};
  EXPECT_EQ(labels, expected);
  for (int p = 0; p < 6; ++p) {
    EXPECT_EQ(params::mapPosition(size.map, p), 3 + 2 * p);
    EXPECT_EQ(params::positionText(size, p), expected[static_cast<size_t>(p)]);
  }
  EXPECT_EQ(params::choiceName("11X11"), "toggle11X11");
  EXPECT_EQ(params::choiceName("Odd Fields"), "toggleOddFields");
}

TEST(ParamMapping, WidgetNamesOfTheSizeDialogs) {
  const params::ParamDialog& resize = params::paramDialog(DialogId::kResize);
  std::set<std::string> names;
  for (const ParamControl& c : resize.controls) names.insert(params::controlName(c));
  EXPECT_EQ(names, (std::set<std::string>{"textWidth", "textHeight", "toggleSizeRatio",
                                          "optionSizeResample"}));
  const params::ParamDialog& user = params::paramDialog(DialogId::kUserFilter);
  EXPECT_EQ(params::positionCount(user), 27);
  EXPECT_EQ(params::controlName(user.controls[1]), "ValueDivisor");
  EXPECT_EQ(params::controlName(user.controls[2]), "ValueBias");
}

TEST(ParamDialogs, TitlesAndShellNames) {
  std::set<std::string> shells;
  for (const params::ParamDialog& d : params::paramDialogs()) {
    EXPECT_EQ(std::strncmp(d.shellName, "Vmora", 5), 0) << d.shellName;
    EXPECT_TRUE(shells.insert(d.shellName).second) << d.shellName;
    EXPECT_FALSE(d.controls.empty()) << d.title;
    EXPECT_NE(d.apply, nullptr) << d.title;
  }
  EXPECT_STREQ(params::paramDialog(DialogId::kGamma).title, "Change Gamma");
  EXPECT_STREQ(params::paramDialog(DialogId::kBalance).title, "Colors Balance...");
  EXPECT_STREQ(params::paramDialog(DialogId::kDeinterlace).title, "De-Interlace...");
  const params::ParamDialog& balance = params::paramDialog(DialogId::kBalance);
  ASSERT_EQ(balance.controls.size(), 3u);
  EXPECT_STREQ(balance.controls[0].label, "Red");
  EXPECT_STREQ(balance.controls[1].label, "Green");
  EXPECT_STREQ(balance.controls[2].label, "Blue");
}

// Each remembered parameter has its own slot; only the six size filters,
// which show one and the same "Filter size" choice, share theirs.
TEST(ParamDialogs, SlotsAreNotShared) {
  std::map<int, std::string> owner;
  for (const params::ParamDialog& d : params::paramDialogs()) {
    for (const ParamControl& c : d.controls) {
      if (c.slot < 0) continue;
      for (int k = 0; k < params::positionCount(c); ++k) {
        const int slot = c.slot + k;
        EXPECT_LT(slot, kProcessValues);
        const std::string what = std::string(c.label) + "#" + std::to_string(k) +
                                 (c.kind == ControlKind::kRadio && c.slot == kSlotFilterSize
                                      ? ""
                                      : std::string(" of ") + d.title);
        auto [it, fresh] = owner.emplace(slot, what);
        EXPECT_TRUE(fresh || it->second == what)
            << "slot " << slot << ": " << it->second << " and " << what;
      }
    }
  }
  std::set<int> defaults;
  for (const ProcessSlotDefault& d : kProcessSlotDefaults)
    EXPECT_TRUE(defaults.insert(d.slot).second) << d.slot;
  EXPECT_LE(static_cast<int>(kProcessSlotCount), kProcessValues);
}

// The start values the dialogs offer before anything is remembered, as the
// operations receive them.
TEST_F(ParamTable, DefaultStartValues) {
  const struct {
    DialogId id;
    std::vector<double> values;
  } cases[] = {
      {DialogId::kSolarize, {128}}, {DialogId::kPosterize, {256}}, {DialogId::kBrightness, {0}},
      {DialogId::kContrast, {0}},   {DialogId::kGamma, {1.0}},     {DialogId::kBalance, {0, 0, 0}},
      {DialogId::kSoften, {5}},     {DialogId::kBlur, {5}},        {DialogId::kEnhanceEdges, {50}},
      {DialogId::kSharpen, {50}},   {DialogId::kAverage, {3}},     {DialogId::kMedianCross, {3}},
      {DialogId::kMosaic, {4}},     {DialogId::kOilPaint, {1}},
  };
  for (const auto& c : cases) {
    const params::ParamDialog& d = params::paramDialog(c.id);
    const std::vector<double> values = params::dialogValues(d, params::startPositions(d, nullptr));
    ASSERT_EQ(values.size(), c.values.size()) << d.title;
    for (size_t k = 0; k < values.size(); ++k)
      EXPECT_DOUBLE_EQ(values[k], c.values[k]) << d.title << " value " << k;
  }
  // The user filter starts as the identity: centre weight 1, divisor 1.
  const params::ParamDialog& user = params::paramDialog(DialogId::kUserFilter);
  const std::vector<int> start = params::startPositions(user, nullptr);
  for (int k = 0; k < 25; ++k) EXPECT_EQ(start[static_cast<size_t>(k)], k == 12 ? 1 : 0) << k;
  EXPECT_EQ(start[25], 1);
  EXPECT_EQ(start[26], 0);
}

TEST_F(ParamTable, RememberedValuesStartTheNextDialog) {
  const params::ParamDialog& balance = params::paramDialog(DialogId::kBalance);
  params::rememberPositions(balance, {10, -20, 30});
  EXPECT_EQ(gSettings.processLastValue[kSlotBalanceRed], 10);
  EXPECT_EQ(gSettings.processLastValue[kSlotBalanceGreen], -20);
  EXPECT_EQ(gSettings.processLastValue[kSlotBalanceBlue], 30);
  EXPECT_EQ(params::startPositions(balance, nullptr), (std::vector<int>{10, -20, 30}));
  // A value out of range in the settings file is brought back into range.
  gSettings.processLastValue[kSlotSolarize] = 999;
  EXPECT_EQ(params::startPositions(params::paramDialog(DialogId::kSolarize), nullptr),
            std::vector<int>{255});
  // The canvas starts at the picture's size; the resize's resampling is the
  // resize setting.
  ImageRecord picture;
  std::memset(&picture, 0, sizeof picture);
  picture.width = 123;
  picture.height = 45;
  EXPECT_EQ(params::startPositions(params::paramDialog(DialogId::kCanvas), &picture),
            (std::vector<int>{123, 45}));
  gSettings.resizeResample = 1;
  const params::ParamDialog& resize = params::paramDialog(DialogId::kResize);
  EXPECT_EQ(params::startPositions(resize, &picture), (std::vector<int>{123, 45, 1, 1}));
  params::rememberPositions(resize, {10, 10, 0, 0});
  EXPECT_EQ(gSettings.resizeResample, 0);
  EXPECT_EQ(gSettings.processLastValue[kSlotResizeRatio], 0);
}

// Each dialog's range, mapped to values, is the range of the same parameter
// in the batch vocabulary (the free rotation offers the half-turn range
// only).
TEST(ParamDialogs, RangesMatchTheBatchVocabulary) {
  int checked = 0;
  for (const params::ParamDialog& d : params::paramDialogs()) {
    if (!d.word) continue;
    const process::AdvancedOp* op = process::findAdvancedOp(d.word);
    ASSERT_NE(op, nullptr) << d.word;
    int param = 0;
    for (const ParamControl& c : d.controls) {
      if (c.kind != ControlKind::kScale && c.kind != ControlKind::kRadio &&
          c.kind != ControlKind::kText)
        continue;
      if (c.kind == ControlKind::kRadio && c.slot == kSlotNoiseKind) continue;  // in the word
      ASSERT_LT(param, op->paramCount) << d.title;
      const process::AdvancedParam& p = op->params[param++];
      const double lo = params::mapPosition(c.map, c.min), hi = params::mapPosition(c.map, c.max);
      if (std::strcmp(d.word, "-rotate") == 0) {
        EXPECT_EQ(lo, -180);
        EXPECT_EQ(hi, 180);
        EXPECT_GE(lo, p.min);
        EXPECT_LE(hi, p.max);
      } else if (c.kind == ControlKind::kText) {
        EXPECT_GE(lo, std::max(1.0, p.min)) << d.title;
        EXPECT_LE(hi, p.max) << d.title;
      } else {
        EXPECT_DOUBLE_EQ(lo, p.min) << d.title << " " << c.label;
        EXPECT_DOUBLE_EQ(hi, p.max) << d.title << " " << c.label;
      }
      ++checked;
    }
  }
  EXPECT_GE(checked, 30);
}
