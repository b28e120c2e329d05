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

// "-binary" names in the order of their values, and the method of each.
constexpr const char* kBinaryNames = "pattern|floyd|halftone45|halftone90|threshold";
constexpr int kBinaryMethods[] = {kMethodOrdered, kMethodErrorDiffusion, kMethodHalftone45,
                                  kMethodHalftone90, kMethodThreshold};

}  // namespace

const std::vector<AdvancedOp>& advancedOps() {
  static const std::vector<AdvancedOp> ops = {
      {"-binary",
       "Convert to Binary",
       1,
       {{"Method", 0, 4, 0, true, ParamKind::kChoice, kBinaryNames}},
       [](ImageRecord* p, const double* v) {
         return convertPicture(p, nullptr, kToBinary, kBinaryMethods[i(v, 0)]);
       }},
      {"-grey",
       "Convert to Grey",
       2,
       {{"Levels", 2, 256, 256, true},
        {"Method", 0, 1, 0, true, ParamKind::kChoice, "plain|dither"}},
       [](ImageRecord* p, const double* v) {
         return convertToGrey(p, nullptr, i(v, 0), i(v, 1) ? kMethodOrdered : kMethodPlain);
       }},
      {"-colors",
       "Convert to Colors",
       2,
       {{"Colors", 2, 256, 256, true},
        {"Method", 0, 1, 1, true, ParamKind::kChoice, "dither|adaptive"}},
       [](ImageRecord* p, const double* v) {
         return reduceColours(p, nullptr, i(v, 0), i(v, 1) ? kMethodPlain : kMethodOrdered);
       }},
      {"-truecolors",
       "Convert to True Color",
       0,
       {},
       [](ImageRecord* p, const double*) { return convertPicture(p, nullptr, 19, 0); }},
      {"-resize",
       "Resize",
       4,
       {{"Width", 0, 65535, 640, true, ParamKind::kLength, nullptr, nullptr, 'x'},
        {"Height", 0, 65535, 480, true, ParamKind::kLength, nullptr, nullptr, 'y'},
        {"Keep ratio", 0, 1, 1, true, ParamKind::kFlag, nullptr, "-ratio"},
        {"Resampling", 0, 1, 1, true, ParamKind::kKeyed, "quick|linear", "-rtype"}},
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
       {{"Angle", -360, 360, 90, false}},
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
       {{"Mode", 0, 4, 1, true, ParamKind::kChoice, "rbg|bgr|brg|grb|gbr"}},
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
       {{"Size", 1, 1024, 16, true},
        {"Offset", -1024, 1024, 8, true},
        {"Direction", 0, 1, 0, true, ParamKind::kChoice, "horizontal|vertical"}},
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

int runAdvancedStep(const AdvancedStep& step, ImageRecord* picture) {
  double values[kMaxAdvancedParams] = {};
  for (int k = 0; k < step.op->paramCount; ++k) {
    values[k] = step.values[k];
    if (!step.percent[k]) continue;
    const int side = step.op->params[k].axis == 'y' ? picture->height : picture->width;
    // A percentage never rounds a side away: 1% of a small picture is 1 pixel.
    values[k] = std::max(1.0, std::round(side * step.values[k] / 100.0));
  }
  return runAdvancedOp(*step.op, picture, values);
}

namespace {

std::string number(double v, bool integer) {
  char buf[32];
  if (integer)
    std::snprintf(buf, sizeof buf, "%ld", std::lround(v));
  else
    std::snprintf(buf, sizeof buf, "%.10g", v);
  return buf;
}

std::vector<std::string> choiceNames(const char* choices) {
  std::vector<std::string> names;
  std::string name;
  for (const char* c = choices; c && *c; ++c) {
    if (*c == '|') {
      names.push_back(name);
      name.clear();
    } else {
      name += *c;
    }
  }
  if (choices && *choices) names.push_back(name);
  return names;
}

int choiceIndex(const AdvancedParam& p, const std::string& word) {
  const std::vector<std::string> names = choiceNames(p.choices);
  for (size_t k = 0; k < names.size(); ++k)
    if (names[k] == word) return static_cast<int>(k);
  return -1;
}

bool trailing(const AdvancedParam& p) {
  return p.kind == ParamKind::kFlag || p.kind == ParamKind::kKeyed;
}

// What a well-formed value of `p` looks like, for error messages and help.
std::string expected(const AdvancedParam& p) {
  switch (p.kind) {
    case ParamKind::kChoice:
    case ParamKind::kKeyed:
      return std::string("one of ") + p.choices;
    case ParamKind::kFlag:
      return "no value";
    case ParamKind::kLength:
      return number(p.min, true) + ".." + number(p.max, true) + " pixels or a percentage up to " +
             number(kMaxPercent, true) + "%";
    case ParamKind::kNumber:
      break;
  }
  return std::string(p.integer ? "an integer " : "a number ") + number(p.min, p.integer) + ".." +
         number(p.max, p.integer);
}

// Reads one number (with `percent` allowed, a trailing '%'); false when the
// word is not a number in range.
bool readNumber(const AdvancedParam& p, const std::string& word, double* value, bool* percent) {
  std::string text = word;
  *percent = p.kind == ParamKind::kLength && !text.empty() && text.back() == '%';
  if (*percent) text.pop_back();
  if (text.empty()) return false;
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || *end) return false;
  if (*percent) {
    if (!(v > 0 && v <= kMaxPercent)) return false;
  } else {
    if (!(v >= p.min && v <= p.max)) return false;
    if (p.integer && v != std::floor(v)) return false;
  }
  *value = v;
  return true;
}

}  // namespace

std::string advancedOpWords(const AdvancedStep& step) {
  const AdvancedOp& op = *step.op;
  std::string out = op.word;
  for (int k = 0; k < op.paramCount; ++k) {
    const AdvancedParam& p = op.params[k];
    const double v = step.values[k];
    switch (p.kind) {
      case ParamKind::kNumber:
        out += " " + number(v, p.integer);
        break;
      case ParamKind::kLength:
        out += " " + (step.percent[k] ? number(v, false) + "%" : number(v, true));
        break;
      case ParamKind::kChoice:
        out += " " + choiceNames(p.choices).at(std::lround(std::clamp(v, p.min, p.max)));
        break;
      case ParamKind::kFlag:
        if (std::lround(v)) out += std::string(" ") + p.key;
        break;
      case ParamKind::kKeyed:
        out += std::string(" ") + p.key + " " +
               choiceNames(p.choices).at(std::lround(std::clamp(v, p.min, p.max)));
        break;
    }
  }
  return out;
}

bool parseAdvancedStep(const std::vector<std::string>& words, size_t* pos, AdvancedStep* step,
                       std::string* error) {
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
  auto fail = [&](const AdvancedParam& p, const std::string& got) {
    if (error)
      *error = std::string(op->word) + ": " + p.name + " must be " + expected(p) +
               (got.empty() ? " (missing)" : ", not \"" + got + "\"");
    return false;
  };
  AdvancedStep s{op, {}};
  for (int k = 0; k < op->paramCount; ++k) s.values[k] = op->params[k].start;
  // Positional parameters first, in order.
  for (int k = 0; k < op->paramCount; ++k) {
    const AdvancedParam& p = op->params[k];
    if (trailing(p)) continue;
    if (at >= words.size()) return fail(p, "");
    const std::string& w = words[at];
    if (p.kind == ParamKind::kChoice) {
      const int c = choiceIndex(p, w);
      if (c < 0) return fail(p, w);
      s.values[k] = c;
    } else if (!readNumber(p, w, &s.values[k], &s.percent[k])) {
      return fail(p, w);
    }
    ++at;
  }
  // Then the optional trailing words, in any order, each at most once. A flag
  // left out is off; a keyed choice left out keeps its default.
  bool seen[kMaxAdvancedParams] = {};
  for (int k = 0; k < op->paramCount; ++k)
    if (op->params[k].kind == ParamKind::kFlag) s.values[k] = 0;
  for (bool more = true; more && at < words.size();) {
    more = false;
    for (int k = 0; k < op->paramCount; ++k) {
      const AdvancedParam& p = op->params[k];
      if (!trailing(p) || seen[k] || words[at] != p.key) continue;
      if (p.kind == ParamKind::kFlag) {
        s.values[k] = 1;
        at += 1;
      } else {
        const std::string next = at + 1 < words.size() ? words[at + 1] : "";
        const int c = choiceIndex(p, next);
        if (c < 0) return fail(p, next);
        s.values[k] = c;
        at += 2;
      }
      seen[k] = more = true;
      break;
    }
  }
  *step = s;
  *pos = at;
  return true;
}

std::string advancedOpSyntax(const AdvancedOp& op) {
  std::string out = op.word;
  for (int k = 0; k < op.paramCount; ++k) {
    const AdvancedParam& p = op.params[k];
    switch (p.kind) {
      case ParamKind::kNumber:
      case ParamKind::kLength:
        out += std::string(" <") + p.name + ">";
        break;
      case ParamKind::kChoice:
        out += std::string(" ") + p.choices;
        break;
      case ParamKind::kFlag:
        out += std::string(" [") + p.key + "]";
        break;
      case ParamKind::kKeyed:
        out += std::string(" [") + p.key + " " + p.choices + "]";
        break;
    }
  }
  return out;
}

std::string advancedOpRanges(const AdvancedOp& op) {
  std::string out;
  for (int k = 0; k < op.paramCount; ++k) {
    const AdvancedParam& p = op.params[k];
    if (p.kind != ParamKind::kNumber && p.kind != ParamKind::kLength) continue;
    if (!out.empty()) out += "; ";
    out += std::string("<") + p.name + ">: " + expected(p);
  }
  return out;
}

}  // namespace process
