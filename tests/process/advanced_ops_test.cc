// The advanced-operations vocabulary: its words, script round trips, and
// every operation applied to every picture kind.
#include "process/advanced_ops.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "tests/support/test_support.h"

namespace {

std::vector<std::string> split(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  for (std::string w; in >> w;) words.push_back(w);
  return words;
}

TEST(AdvancedOps, VocabularyHoldsEveryOptionWordInOrder) {
  const char* expected[] = {"-binary",
                            "-grey",
                            "-colors",
                            "-truecolors",
                            "-resize",
                            "-canvas",
                            "-crop",
                            "-xflip",
                            "-yflip",
                            "-rotate",
                            "-negate",
                            "-brightness",
                            "-contrast",
                            "-gamma",
                            "-balance",
                            "-log",
                            "-solarize",
                            "-posterize",
                            "-normalize",
                            "-equalize",
                            "-swap",
                            "-edetail",
                            "-efocus",
                            "-eedge",
                            "-frestore",
                            "-edgedetect light",
                            "-edgedetect medium",
                            "-edgedetect heavy",
                            "-emboss",
                            "-embossmore",
                            "-average",
                            "-soften",
                            "-blur",
                            "-gauss",
                            "-maximum",
                            "-minimum",
                            "-medianb",
                            "-medianc",
                            "-sharpen",
                            "-noise reduce",
                            "-noise uniform",
                            "-noise gaussian",
                            "-noise laplacian",
                            "-noise poisson",
                            "-mosaic",
                            "-slice",
                            "-tile",
                            "-shear",
                            "-oil",
                            "-swirl",
                            "-spread",
                            "-lens",
                            "-waves"};
  const auto& ops = process::advancedOps();
  ASSERT_EQ(ops.size(), std::size(expected));
  std::set<std::string> labels;
  for (size_t k = 0; k < ops.size(); ++k) {
    EXPECT_STREQ(ops[k].word, expected[k]);
    EXPECT_EQ(process::findAdvancedOp(expected[k]), &ops[k]);
    EXPECT_TRUE(labels.insert(ops[k].label).second) << ops[k].label;
    for (int p = 0; p < ops[k].paramCount; ++p) {
      EXPECT_LE(ops[k].params[p].min, ops[k].params[p].start) << ops[k].word;
      EXPECT_LE(ops[k].params[p].start, ops[k].params[p].max) << ops[k].word;
    }
  }
  EXPECT_EQ(process::findAdvancedOp("-nonsense"), nullptr);
}

TEST(AdvancedOps, ScriptWordsReadBackToTheSameStep) {
  for (const process::AdvancedOp& op : process::advancedOps()) {
    process::AdvancedStep step{&op, {}};
    for (int p = 0; p < op.paramCount; ++p) step.values[p] = op.params[p].start;
    const std::string words = process::advancedOpWords(step);
    const std::vector<std::string> parts = split(words + " next.gif");
    size_t pos = 0;
    process::AdvancedStep back{};
    ASSERT_TRUE(process::parseAdvancedStep(parts, &pos, &back)) << words;
    EXPECT_EQ(back.op, &op) << words;
    EXPECT_EQ(parts[pos], "next.gif") << words;
    for (int p = 0; p < op.paramCount; ++p)
      EXPECT_DOUBLE_EQ(back.values[p], step.values[p]) << words;
  }
}

TEST(AdvancedOps, ResizeWritesRatioAndResamplingAsWords) {
  const process::AdvancedOp* resize = process::findAdvancedOp("-resize");
  ASSERT_NE(resize, nullptr);
  EXPECT_EQ(process::advancedOpWords({resize, {320, 200, 1, 1}}),
            "-resize 320 200 -ratio -rtype linear");
  EXPECT_EQ(process::advancedOpWords({resize, {64, 48, 0, 0}}), "-resize 64 48 -rtype quick");
  const process::AdvancedOp* gamma = process::findAdvancedOp("-gamma");
  EXPECT_EQ(process::advancedOpWords({gamma, {1.5}}), "-gamma 1.5");
  const process::AdvancedOp* edge = process::findAdvancedOp("-edgedetect heavy");
  EXPECT_EQ(process::advancedOpWords({edge, {}}), "-edgedetect heavy");
}

TEST(AdvancedOps, ParsingRefusesUnknownWordsAndMissingValues) {
  size_t pos = 0;
  process::AdvancedStep step{};
  EXPECT_FALSE(process::parseAdvancedStep(split("picture.gif"), &pos, &step));
  EXPECT_FALSE(process::parseAdvancedStep(split("-brightness"), &pos, &step));
  EXPECT_FALSE(process::parseAdvancedStep(split("-brightness ten"), &pos, &step));
  EXPECT_EQ(pos, 0u);
  ASSERT_TRUE(process::parseAdvancedStep(split("-noise poisson 12"), &pos, &step));
  EXPECT_STREQ(step.op->word, "-noise poisson");
  EXPECT_EQ(step.values[0], 12);
  EXPECT_EQ(pos, 3u);
}

TEST(AdvancedOps, NamedParametersAreThePortableWords) {
  struct Case {
    const char* words;
    std::vector<double> values;
  };
  // Each script reads into the value the dialog stores, and writes back as given.
  const Case cases[] = {
      {"-binary pattern", {0}},
      {"-binary floyd", {1}},
      {"-binary halftone45", {2}},
      {"-binary halftone90", {3}},
      {"-binary threshold", {4}},
      {"-grey 16 plain", {16, 0}},
      {"-grey 4 dither", {4, 1}},
      {"-colors 256 dither", {256, 0}},
      {"-colors 16 adaptive", {16, 1}},
      {"-swap rbg", {0}},
      {"-swap bgr", {1}},
      {"-swap brg", {2}},
      {"-swap grb", {3}},
      {"-swap gbr", {4}},
      {"-gamma 2.2", {2.2}},
      {"-rotate 90", {90}},
      {"-slice 8 -3 vertical", {8, -3, 1}},
      {"-resize 50% 25% -ratio -rtype quick", {50, 25, 1, 0}},
      {"-resize 800 0 -rtype linear", {800, 0, 0, 1}},
  };
  for (const Case& c : cases) {
    size_t pos = 0;
    process::AdvancedStep step{};
    std::string error;
    ASSERT_TRUE(process::parseAdvancedStep(split(c.words), &pos, &step, &error))
        << c.words << error;
    for (size_t k = 0; k < c.values.size(); ++k)
      EXPECT_DOUBLE_EQ(step.values[k], c.values[k]) << c.words;
    EXPECT_EQ(process::advancedOpWords(step), c.words);
  }
  // The resampling and ratio words may come in either order.
  size_t pos = 0;
  process::AdvancedStep step{};
  ASSERT_TRUE(
      process::parseAdvancedStep(split("-resize 10 20 -rtype quick -ratio x"), &pos, &step));
  EXPECT_EQ(pos, 6u);
  EXPECT_EQ(step.values[2], 1);
  EXPECT_EQ(step.values[3], 0);
  EXPECT_TRUE(step.percent[0] == false && step.percent[1] == false);
}

TEST(AdvancedOps, EveryWordRefusesMissingAndOutOfRangeParameters) {
  for (const process::AdvancedOp& op : process::advancedOps()) {
    process::AdvancedStep start{&op, {}};
    for (int q = 0; q < op.paramCount; ++q) start.values[q] = op.params[q].start;
    const std::vector<std::string> good = split(process::advancedOpWords(start));
    const size_t wordCount = split(op.word).size();
    for (int p = 0; p < op.paramCount; ++p) {
      const process::AdvancedParam& param = op.params[p];
      if (param.kind == process::ParamKind::kFlag) continue;
      // Replace the value of parameter p (positional ones follow the word in
      // order; the keyed choice follows its key) with bad ones.
      size_t at = wordCount + p;
      if (param.kind == process::ParamKind::kKeyed)
        at = std::find(good.begin(), good.end(), param.key) - good.begin() + 1;
      ASSERT_LT(at, good.size()) << op.word;
      std::vector<std::string> bad_values = {"nonsense"};
      if (param.kind == process::ParamKind::kNumber || param.kind == process::ParamKind::kLength) {
        bad_values.push_back(std::to_string(static_cast<long>(param.max) + 1));
        bad_values.push_back(std::to_string(static_cast<long>(param.min) - 1));
        if (param.integer) bad_values.push_back("1.5");
      }
      for (const std::string& v : bad_values) {
        std::vector<std::string> words = good;
        words[at] = v;
        size_t pos = 0;
        process::AdvancedStep step{};
        std::string error;
        EXPECT_FALSE(process::parseAdvancedStep(words, &pos, &step, &error)) << op.word << " " << v;
        EXPECT_EQ(pos, 0u);
        EXPECT_NE(error.find(op.word), std::string::npos) << error;
      }
      // The words cut before this parameter: it is missing.
      if (param.kind != process::ParamKind::kKeyed) {
        std::vector<std::string> cut(good.begin(), good.begin() + at);
        size_t pos = 0;
        process::AdvancedStep step{};
        std::string error;
        EXPECT_FALSE(process::parseAdvancedStep(cut, &pos, &step, &error)) << op.word;
        EXPECT_NE(error.find("missing"), std::string::npos) << error;
      }
    }
  }
  // Percentages: only for lengths, above 0 and up to the limit.
  for (const char* bad : {"-resize 0% 10", "-resize 1001% 10", "-canvas 50% 50%", "-resize 10 %"}) {
    size_t pos = 0;
    process::AdvancedStep step{};
    std::string error;
    EXPECT_FALSE(process::parseAdvancedStep(split(bad), &pos, &step, &error)) << bad;
    EXPECT_FALSE(error.empty()) << bad;
  }
}

TEST(AdvancedOps, PercentagesFollowThePictureSize) {
  test::OwnedPicture pic;
  test::makePattern(pic, IMK_RGB, 40, 30);
  size_t pos = 0;
  process::AdvancedStep step{};
  ASSERT_TRUE(process::parseAdvancedStep(split("-resize 50% 10% -rtype quick"), &pos, &step));
  ASSERT_EQ(process::runAdvancedStep(step, &pic.rec), 0);
  EXPECT_EQ(pic->width, 20);
  EXPECT_EQ(pic->height, 3);
  pos = 0;
  ASSERT_TRUE(process::parseAdvancedStep(split("-resize 1% 1%"), &pos, &step));
  ASSERT_EQ(process::runAdvancedStep(step, &pic.rec), 0);
  EXPECT_EQ(pic->width, 1);  // never below one pixel
  EXPECT_EQ(pic->height, 1);
}

TEST(AdvancedOps, EveryOperationRunsOnEveryKind) {
  for (uint16_t type : {IMK_BINARY, IMK_GREY, IMK_MAPPED, IMK_RGB, IMK_RGBX, IMK_BGR, IMK_XBGR}) {
    for (const process::AdvancedOp& op : process::advancedOps()) {
      test::OwnedPicture pic;
      test::makePattern(pic, type, 23, 17, type == IMK_GREY ? 16 : 100);
      double values[process::kMaxAdvancedParams] = {};
      for (int p = 0; p < op.paramCount; ++p) values[p] = op.params[p].start;
      if (std::string(op.word) == "-resize") values[0] = 12, values[1] = 9;
      EXPECT_EQ(process::runAdvancedOp(op, &pic.rec, values), 0) << op.word << " on " << type;
      ASSERT_NE(pic->pixels, nullptr) << op.word;
      EXPECT_GT(pic->width, 0);
    }
  }
}

TEST(AdvancedOps, ValuesAreClampedToTheirRanges) {
  test::OwnedPicture a, b;
  test::makePattern(a, IMK_RGB, 8, 8);
  test::makePattern(b, IMK_RGB, 8, 8);
  const process::AdvancedOp* brightness = process::findAdvancedOp("-brightness");
  const double huge[] = {5000};
  const double top[] = {255};
  ASSERT_EQ(process::runAdvancedOp(*brightness, &a.rec, huge), 0);
  ASSERT_EQ(process::runAdvancedOp(*brightness, &b.rec, top), 0);
  EXPECT_EQ(test::toRgb(a.rec), test::toRgb(b.rec));
  // Negating twice restores the picture.
  test::OwnedPicture c;
  test::makePattern(c, IMK_BGR, 9, 5);
  const std::vector<uint8_t> before = test::toRgb(c.rec);
  const process::AdvancedOp* negate = process::findAdvancedOp("-negate");
  ASSERT_EQ(process::runAdvancedOp(*negate, &c.rec, nullptr), 0);
  EXPECT_NE(test::toRgb(c.rec), before);
  ASSERT_EQ(process::runAdvancedOp(*negate, &c.rec, nullptr), 0);
  EXPECT_EQ(test::toRgb(c.rec), before);
}

}  // namespace
