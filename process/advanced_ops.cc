// The advanced-operations table and the script words of each operation.
#include "process/advanced_ops.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "process/colour_reduce.h"
#include "process/convert.h"
#include "process/distort.h"
#include "process/effects.h"
#include "process/filter.h"
#include "process/geometry.h"
#include "process/noise.h"
#include "process/resize.h"
#include "process/tone.h"

namespace process {

namespace {

int i(const double* v, int k) { return static_cast<int>(std::lround(v[k])); }

// Fixed seed: a batch gives the same result every time it runs.
constexpr uint32_t kSeed = 12345;

int kernel(ImageRecord* p, int number) { return convolve3x3(p, nullptr, number); }

constexpr AdvancedParam kSize = {"Filter size", 3, 13, 3, true};
constexpr AdvancedParam kStrength5 = {"Strength", 1, 100, 5, true};
constexpr AdvancedParam kStrength50 = {"Strength", 1, 100, 50, true};
constexpr AdvancedParam kNoiseAmount = {"Amount", 0, 255, 32, true};

}  // namespace

const std::vector<AdvancedOp>& advancedOps() {
  static const std::vector<AdvancedOp> ops = {
      {"-binary",
       "Convert to Binary",
       1,
       {{"Method", 0, 5, 1, true}},
       [](ImageRecord* p, const double* v) { return convertPicture(p, nullptr, 1, i(v, 0)); }},
      {"-grey",
       "Convert to Grey",
       2,
       {{"Levels", 2, 256, 256, true}, {"Method", 0, 5, 1, true}},
       [](ImageRecord* p, const double* v) { return convertToGrey(p, nullptr, i(v, 0), i(v, 1)); }},
      {"-colors",
       "Convert to Colors",
       2,
       {{"Colors", 2, 256, 256, true}, {"Method", 1, 4, 1, true}},
       [](ImageRecord* p, const double* v) { return reduceColours(p, nullptr, i(v, 0), i(v, 1)); }},
      {"-truecolors",
       "Convert to True Color",
       0,
       {},
       [](ImageRecord* p, const double*) { return convertPicture(p, nullptr, 19, 0); }},
      {"-resize",
       "Resize",
       4,
       {{"Width", 1, 65535, 640, true},
        {"Height", 1, 65535, 480, true},
        {"Keep ratio", 0, 1, 1, true},
        {"Linear", 0, 1, 1, true}},
       [](ImageRecord* p, const double* v) {
         return resizePicture(p, nullptr, i(v, 0), i(v, 1),
                              i(v, 3) ? kResampleLinear : kResampleQuick, i(v, 2) != 0);
       }},
      {"-canvas",
       "Resize Canvas",
       2,
       {{"Width", 1, 65535, 640, true}, {"Height", 1, 65535, 480, true}},
       [](ImageRecord* p, const double* v) { return resizeCanvas(p, nullptr, i(v, 0), i(v, 1)); }},
      {"-crop",
       "Crop",
       4,
       {{"X", -65535, 65535, 0, true},
        {"Y", -65535, 65535, 0, true},
        {"Width", 1, 65535, 100, true},
        {"Height", 1, 65535, 100, true}},
       [](ImageRecord* p, const double* v) {
         return cropPicture(p, nullptr, i(v, 0), i(v, 1), i(v, 2), i(v, 3));
       }},
      {"-xflip",
       "Flip Horizontal",
       0,
       {},
       [](ImageRecord* p, const double*) { return flipHorizontal(p, nullptr); }},
      {"-yflip",
       "Flip Vertical",
       0,
       {},
       [](ImageRecord* p, const double*) { return flipVertical(p, nullptr); }},
      {"-rotate",
       "Rotate",
       1,
       {{"Angle", -180, 180, 90, false}},
       [](ImageRecord* p, const double* v) { return rotatePicture(p, nullptr, v[0]); }},
      {"-negate",
       "Negative",
       0,
       {},
       [](ImageRecord* p, const double*) { return negatePicture(p, nullptr); }},
      {"-brightness",
       "Brightness",
       1,
       {{"Brightness", -255, 255, 0, true}},
       [](ImageRecord* p, const double* v) { return brightnessPicture(p, nullptr, i(v, 0)); }},
      {"-contrast",
       "Contrast",
       1,
       {{"Contrast", -127, 127, 0, true}},
       [](ImageRecord* p, const double* v) { return contrastPicture(p, nullptr, i(v, 0)); }},
      {"-gamma",
       "Change Gamma",
       1,
       {{"Gamma", 0.01, 5.0, 1.0, false}},
       [](ImageRecord* p, const double* v) { return gammaPicture(p, nullptr, v[0]); }},
      {"-balance",
       "Colors Balance",
       3,
       {{"Red", -100, 100, 0, true}, {"Green", -100, 100, 0, true}, {"Blue", -100, 100, 0, true}},
       [](ImageRecord* p, const double* v) {
         return balancePicture(p, nullptr, i(v, 0), i(v, 1), i(v, 2));
       }},
      {"-log",
       "Logarithmic Lut",
       0,
       {},
       [](ImageRecord* p, const double*) { return logarithmicPicture(p, nullptr); }},
      {"-solarize",
       "Solarize",
       1,
       {{"Threshold", 0, 255, 255, true}},
       [](ImageRecord* p, const double* v) { return solarizePicture(p, nullptr, i(v, 0)); }},
      {"-posterize",
       "Posterize",
       1,
       {{"Levels", 2, 256, 256, true}},
       [](ImageRecord* p, const double* v) { return posterizePicture(p, nullptr, i(v, 0)); }},
      {"-normalize",
       "Normalize",
       0,
       {},
       [](ImageRecord* p, const double*) { return normalizePicture(p, nullptr); }},
      {"-equalize",
       "Equalize",
       0,
       {},
       [](ImageRecord* p, const double*) { return equalizePicture(p, nullptr); }},
      {"-swap",
       "Swap Channels",
       1,
       {{"Mode", 0, 4, 1, true}},
       [](ImageRecord* p, const double* v) { return swapChannels(p, nullptr, i(v, 0)); }},
      {"-edetail",
       "Enhance Detail",
       0,
       {},
       [](ImageRecord* p, const double*) { return kernel(p, 0); }},
      {"-efocus",
       "Enhance Focus",
       0,
       {},
       [](ImageRecord* p, const double*) { return kernel(p, 1); }},
      {"-eedge",
       "Enhance Edges",
       1,
       {kStrength50},
       [](ImageRecord* p, const double* v) { return enhanceEdgesFilter(p, nullptr, i(v, 0)); }},
      {"-frestore",
       "Focus Restoration",
       0,
       {},
       [](ImageRecord* p, const double*) { return kernel(p, 2); }},
      {"-edgedetect light",
       "Edge detect Light",
       0,
       {},
       [](ImageRecord* p, const double*) { return kernel(p, 4); }},
      {"-edgedetect medium",
       "Edge detect Medium",
       0,
       {},
       [](ImageRecord* p, const double*) { return kernel(p, 5); }},
      {"-edgedetect heavy",
       "Edge detect Heavy",
       0,
       {},
       [](ImageRecord* p, const double*) { return kernel(p, 6); }},
      {"-emboss", "Emboss", 0, {}, [](ImageRecord* p, const double*) { return kernel(p, 7); }},
      {"-embossmore",
       "Emboss More",
       0,
       {},
       [](ImageRecord* p, const double*) { return kernel(p, 8); }},
      {"-average",
       "Average",
       1,
       {kSize},
       [](ImageRecord* p, const double* v) { return averageFilter(p, nullptr, i(v, 0)); }},
      {"-soften",
       "Soften",
       1,
       {kStrength5},
       [](ImageRecord* p, const double* v) { return softenFilter(p, nullptr, i(v, 0)); }},
      {"-blur",
       "Blur",
       1,
       {kStrength5},
       [](ImageRecord* p, const double* v) { return blurFilter(p, nullptr, i(v, 0)); }},
      {"-gauss",
       "Blur Gaussian",
       1,
       {kSize},
       [](ImageRecord* p, const double* v) { return gaussianFilter(p, nullptr, i(v, 0)); }},
      {"-maximum",
       "Maximum",
       1,
       {kSize},
       [](ImageRecord* p, const double* v) { return maximumFilter(p, nullptr, i(v, 0)); }},
      {"-minimum",
       "Minimum",
       1,
       {kSize},
       [](ImageRecord* p, const double* v) { return minimumFilter(p, nullptr, i(v, 0)); }},
      {"-medianb",
       "Median Box",
       1,
       {kSize},
       [](ImageRecord* p, const double* v) { return medianBoxFilter(p, nullptr, i(v, 0)); }},
      {"-medianc",
       "Median Cross",
       1,
       {kSize},
       [](ImageRecord* p, const double* v) { return medianCrossFilter(p, nullptr, i(v, 0)); }},
      {"-sharpen",
       "Sharpen",
       1,
       {kStrength50},
       [](ImageRecord* p, const double* v) { return sharpenFilter(p, nullptr, i(v, 0)); }},
      {"-noise reduce",
       "Reduce noise",
       0,
       {},
       [](ImageRecord* p, const double*) { return reduceNoiseFilter(p, nullptr); }},
      {"-noise uniform",
       "Add Uniform Noise",
       1,
       {kNoiseAmount},
       [](ImageRecord* p, const double* v) {
         return addNoise(p, nullptr, NoiseKind::uniform, i(v, 0), kSeed);
       }},
      {"-noise gaussian",
       "Add Gaussian Noise",
       1,
       {kNoiseAmount},
       [](ImageRecord* p, const double* v) {
         return addNoise(p, nullptr, NoiseKind::gaussian, i(v, 0), kSeed);
       }},
      {"-noise laplacian",
       "Add Laplacian Noise",
       1,
       {kNoiseAmount},
       [](ImageRecord* p, const double* v) {
         return addNoise(p, nullptr, NoiseKind::laplacian, i(v, 0), kSeed);
       }},
      {"-noise poisson",
       "Add Poisson Noise",
       1,
       {kNoiseAmount},
       [](ImageRecord* p, const double* v) {
         return addNoise(p, nullptr, NoiseKind::poisson, i(v, 0), kSeed);
       }},
      {"-mosaic",
       "Mosaic",
       1,
       {{"Step", 1, 64, 4, true}},
       [](ImageRecord* p, const double* v) { return mosaicEffect(p, nullptr, i(v, 0)); }},
      {"-slice",
       "Slice",
       3,
       {{"Size", 1, 1024, 16, true}, {"Offset", -1024, 1024, 8, true}, {"Vertical", 0, 1, 0, true}},
       [](ImageRecord* p, const double* v) {
         return sliceEffect(p, nullptr, i(v, 0), i(v, 1), i(v, 2) != 0);
       }},
      {"-tile",
       "Tile",
       2,
       {{"Columns", 1, 64, 2, true}, {"Rows", 1, 64, 2, true}},
       [](ImageRecord* p, const double* v) { return tileEffect(p, nullptr, i(v, 0), i(v, 1)); }},
      {"-shear",
       "Shear",
       2,
       {{"X angle", -80, 80, 20, false}, {"Y angle", -80, 80, 0, false}},
       [](ImageRecord* p, const double* v) { return shearEffect(p, nullptr, v[0], v[1]); }},
      {"-oil",
       "Oil Painting",
       1,
       {{"Radius", 1, 16, 1, true}},
       [](ImageRecord* p, const double* v) { return oilPaintEffect(p, nullptr, i(v, 0)); }},
      {"-swirl",
       "Swirl",
       1,
       {{"Degrees", -720, 720, 90, false}},
       [](ImageRecord* p, const double* v) { return swirlEffect(p, nullptr, v[0]); }},
      {"-spread",
       "Spread",
       1,
       {{"Radius", 0, 64, 4, true}},
       [](ImageRecord* p, const double* v) { return spreadEffect(p, nullptr, i(v, 0), kSeed); }},
      {"-lens",
       "Lens",
       1,
       {{"Amount", -100, 100, 50, true}},
       [](ImageRecord* p, const double* v) { return lensEffect(p, nullptr, i(v, 0)); }},
      {"-waves",
       "Waves",
       2,
       {{"Amplitude", 0, 100, 10, false}, {"Wavelength", 1, 1000, 60, false}},
       [](ImageRecord* p, const double* v) { return wavesEffect(p, nullptr, v[0], v[1]); }},
  };
  return ops;
}

const AdvancedOp* findAdvancedOp(const std::string& word) {
  for (const AdvancedOp& op : advancedOps())
    if (word == op.word) return &op;
  return nullptr;
}

int runAdvancedOp(const AdvancedOp& op, ImageRecord* picture, const double* values) {
  double clamped[kMaxAdvancedParams] = {};
  for (int k = 0; k < op.paramCount; ++k) {
    const AdvancedParam& p = op.params[k];
    clamped[k] = std::clamp(values[k], p.min, p.max);
    if (p.integer) clamped[k] = std::round(clamped[k]);
  }
  return op.run(picture, clamped);
}

static std::string number(double v, bool integer) {
  char buf[32];
  if (integer)
    std::snprintf(buf, sizeof buf, "%ld", std::lround(v));
  else
    std::snprintf(buf, sizeof buf, "%g", v);
  return buf;
}

std::string advancedOpWords(const AdvancedStep& step) {
  const AdvancedOp& op = *step.op;
  std::string out = op.word;
  const bool resize = std::string(op.word) == "-resize";
  // A resize writes width and height, then its two settings as words.
  const int shown = resize ? 2 : op.paramCount;
  for (int k = 0; k < shown; ++k) out += " " + number(step.values[k], op.params[k].integer);
  if (resize) {
    if (std::lround(step.values[2])) out += " -ratio";
    out += std::lround(step.values[3]) ? " -rtype linear" : " -rtype quick";
  }
  return out;
}

bool parseAdvancedStep(const std::vector<std::string>& words, size_t* pos, AdvancedStep* step) {
  size_t at = *pos;
  if (at >= words.size()) return false;
  // Two-word operations ("-noise gaussian", "-edgedetect light") first.
  const AdvancedOp* op =
      at + 1 < words.size() ? findAdvancedOp(words[at] + " " + words[at + 1]) : nullptr;
  if (op)
    at += 2;
  else if ((op = findAdvancedOp(words[at])))
    at += 1;
  else
    return false;
  const bool resize = std::string(op->word) == "-resize";
  const int given = resize ? 2 : op->paramCount;
  AdvancedStep s{op, {}};
  for (int k = 0; k < op->paramCount; ++k) s.values[k] = op->params[k].start;
  for (int k = 0; k < given; ++k) {
    if (at >= words.size()) return false;
    char* end = nullptr;
    s.values[k] = std::strtod(words[at].c_str(), &end);
    if (end == words[at].c_str() || *end) return false;
    ++at;
  }
  if (resize) {
    s.values[2] = 0;
    for (;;) {
      if (at < words.size() && words[at] == "-ratio") {
        s.values[2] = 1;
        ++at;
      } else if (at + 1 < words.size() && words[at] == "-rtype" &&
                 (words[at + 1] == "linear" || words[at + 1] == "quick")) {
        s.values[3] = words[at + 1] == "linear";
        at += 2;
      } else {
        break;
      }
    }
  }
  *step = s;
  *pos = at;
  return true;
}

}  // namespace process
