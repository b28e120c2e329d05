// The parameter-dialog descriptors, the position mappings and the
// remembered values.
#include "widgets/param_table.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

#include "core/process_slots.h"
#include "core/settings.h"
#include "process/distort.h"
#include "process/effects.h"
#include "process/filter.h"
#include "process/geometry.h"
#include "process/noise.h"
#include "process/resize.h"
#include "process/tone.h"

namespace params {

namespace {

using K = ControlKind;
using M = ValueMap;

int i(const double* v, int k) { return static_cast<int>(std::lround(v[k])); }

// The preview must show what OK gives, so the random effects always start
// from the same seed.
constexpr uint32_t kSeed = 12345;

constexpr const char* kSizeChoices = "3X3|5X5|7X7|9X9|11X11|13X13";

ParamControl strength(int slot) { return {K::kScale, "Strength", 1, 100, slot}; }
ParamControl filterSize() {
  return {K::kRadio, "Filter size", 0, 5, kSlotFilterSize, M::kOddSize, kSizeChoices};
}
ParamControl sizeText(const char* label, char side) {
  return {K::kText, label, 1, 65535, kNoSlot, M::kSame, nullptr, nullptr, side};
}
ParamControl scale(const char* label, int min, int max, int slot) {
  return {K::kScale, label, min, max, slot};
}

std::vector<ParamDialog> buildDialogs() {
  std::vector<ParamDialog> d(static_cast<size_t>(DialogId::kCount));
  auto at = [&d](DialogId id) -> ParamDialog& { return d[static_cast<size_t>(id)]; };

  at(DialogId::kSolarize) = {"Solarize...",
                             "VmoraSolarize",
                             "-solarize",
                             true,
                             {scale("Threshold", 0, 255, kSlotSolarize)},
                             [](ImageRecord* s, ImageRecord* r, const double* v) {
                               return process::solarizePicture(s, r, i(v, 0));
                             }};
  at(DialogId::kPosterize) = {"Posterize...",
                              "VmoraPosterize",
                              "-posterize",
                              true,
                              {{K::kScale, "Levels", 0, 7, kSlotPosterize, M::kPowerOfTwo}},
                              [](ImageRecord* s, ImageRecord* r, const double* v) {
                                return process::posterizePicture(s, r, i(v, 0));
                              }};
  at(DialogId::kBrightness) = {"Brightness...",
                               "VmoraBrightness",
                               "-brightness",
                               true,
                               {scale("Brightness", -255, 255, kSlotBrightness)},
                               [](ImageRecord* s, ImageRecord* r, const double* v) {
                                 return process::brightnessPicture(s, r, i(v, 0));
                               }};
  at(DialogId::kContrast) = {"Contrast...",
                             "VmoraContrast",
                             "-contrast",
                             true,
                             {scale("Contrast", -127, 127, kSlotContrast)},
                             [](ImageRecord* s, ImageRecord* r, const double* v) {
                               return process::contrastPicture(s, r, i(v, 0));
                             }};
  at(DialogId::kGamma) = {"Change Gamma",
                          "VmoraGamma",
                          "-gamma",
                          true,
                          {{K::kScale, "Gamma", 0, 499, kSlotGamma, M::kHundredths}},
                          [](ImageRecord* s, ImageRecord* r, const double* v) {
                            return process::gammaPicture(s, r, v[0]);
                          }};
  at(DialogId::kBalance) = {
      "Colors Balance...",
      "VmoraBalance",
      "-balance",
      true,
      {scale("Red", -100, 100, kSlotBalanceRed), scale("Green", -100, 100, kSlotBalanceGreen),
       scale("Blue", -100, 100, kSlotBalanceBlue)},
      [](ImageRecord* s, ImageRecord* r, const double* v) {
        return process::balancePicture(s, r, i(v, 0), i(v, 1), i(v, 2));
      }};
  at(DialogId::kSoften) = {"Soften...",
                           "VmoraSoften",
                           "-soften",
                           true,
                           {strength(kSlotSoften)},
                           [](ImageRecord* s, ImageRecord* r, const double* v) {
                             return process::softenFilter(s, r, i(v, 0));
                           }};
  at(DialogId::kBlur) = {"Blur...",
                         "VmoraBlur",
                         "-blur",
                         true,
                         {strength(kSlotBlur)},
                         [](ImageRecord* s, ImageRecord* r, const double* v) {
                           return process::blurFilter(s, r, i(v, 0));
                         }};
  at(DialogId::kEnhanceEdges) = {"Enhance Edges...",
                                 "VmoraEnhanceEdges",
                                 "-eedge",
                                 true,
                                 {strength(kSlotEnhanceEdges)},
                                 [](ImageRecord* s, ImageRecord* r, const double* v) {
                                   return process::enhanceEdgesFilter(s, r, i(v, 0));
                                 }};
  at(DialogId::kSharpen) = {"Sharpen...",
                            "VmoraSharpen",
                            "-sharpen",
                            true,
                            {strength(kSlotSharpen)},
                            [](ImageRecord* s, ImageRecord* r, const double* v) {
                              return process::sharpenFilter(s, r, i(v, 0));
                            }};
  at(DialogId::kAverage) = {"Average...",
                            "VmoraAverage",
                            "-average",
                            true,
                            {filterSize()},
                            [](ImageRecord* s, ImageRecord* r, const double* v) {
                              return process::averageFilter(s, r, i(v, 0));
                            }};
  at(DialogId::kGaussian) = {"Blur Gaussian...",
                             "VmoraGaussian",
                             "-gauss",
                             true,
                             {filterSize()},
                             [](ImageRecord* s, ImageRecord* r, const double* v) {
                               return process::gaussianFilter(s, r, i(v, 0));
                             }};
  at(DialogId::kMaximum) = {"Maximum...",
                            "VmoraMaximum",
                            "-maximum",
                            true,
                            {filterSize()},
                            [](ImageRecord* s, ImageRecord* r, const double* v) {
                              return process::maximumFilter(s, r, i(v, 0));
                            }};
  at(DialogId::kMinimum) = {"Minimum...",
                            "VmoraMinimum",
                            "-minimum",
                            true,
                            {filterSize()},
                            [](ImageRecord* s, ImageRecord* r, const double* v) {
                              return process::minimumFilter(s, r, i(v, 0));
                            }};
  at(DialogId::kMedianBox) = {"Median Box...",
                              "VmoraMedianBox",
                              "-medianb",
                              true,
                              {filterSize()},
                              [](ImageRecord* s, ImageRecord* r, const double* v) {
                                return process::medianBoxFilter(s, r, i(v, 0));
                              }};
  at(DialogId::kMedianCross) = {"Median Cross...",
                                "VmoraMedianCross",
                                "-medianc",
                                true,
                                {filterSize()},
                                [](ImageRecord* s, ImageRecord* r, const double* v) {
                                  return process::medianCrossFilter(s, r, i(v, 0));
                                }};
  at(DialogId::kUserFilter) = {
      "User filter...",
      "VmoraUserFilter",
      nullptr,
      false,
      {{K::kMatrix, "Filter matrix", -9999, 9999, kSlotUserMatrix},
       {K::kText, "Divisor", -9999, 9999, kSlotUserDivisor, M::kSame, nullptr, "ValueDivisor"},
       {K::kText, "Bias", -255, 255, kSlotUserBias, M::kSame, nullptr, "ValueBias"}},
      [](ImageRecord* s, ImageRecord* r, const double* v) {
        int weights[25];
        for (int k = 0; k < 25; ++k) weights[k] = i(v, k);
        return process::userFilter(s, r, weights, i(v, 25), i(v, 26));
      }};
  at(DialogId::kMosaic) = {"Mosaic...",
                           "VmoraMosaic",
                           "-mosaic",
                           true,
                           {scale("Step", 1, 64, kSlotMosaic)},
                           [](ImageRecord* s, ImageRecord* r, const double* v) {
                             return process::mosaicEffect(s, r, i(v, 0));
                           }};
  at(DialogId::kOilPaint) = {"Oil Painting...",
                             "VmoraOilPaint",
                             "-oil",
                             true,
                             {scale("Radius", 1, 16, kSlotOilPaint)},
                             [](ImageRecord* s, ImageRecord* r, const double* v) {
                               return process::oilPaintEffect(s, r, i(v, 0));
                             }};
  // "Odd Fields" (index 0) gives keepOdd 1 and "Duplication" (index 0)
  // duplicate 1.
  at(DialogId::kDeinterlace) = {
      "De-Interlace...",
      "VmoraDeinterlace",
      nullptr,
      true,
      {{K::kRadio, "Eliminate", 0, 1, kSlotDeinterlaceOdd, M::kSame, "Odd Fields|Even Fields"},
       {K::kRadio, "New Fields", 0, 1, kSlotDeinterlaceNew, M::kSame, "Duplication|Interpolation"}},
      [](ImageRecord* s, ImageRecord* r, const double* v) {
        return process::deinterlaceEffect(s, r, i(v, 0) == 0, i(v, 1) == 0);
      }};
  at(DialogId::kCanvas) = {"Canvas size...",
                           "VmoraCanvas",
                           "-canvas",
                           false,
                           {sizeText("Width", 'w'), sizeText("Height", 'h')},
                           [](ImageRecord* s, ImageRecord* r, const double* v) {
                             return process::resizeCanvas(s, r, i(v, 0), i(v, 1));
                           }};
  at(DialogId::kResize) = {"Resize...",
                           "VmoraResize",
                           "-resize",
                           false,
                           {sizeText("Width", 'w'),
                            sizeText("Height", 'h'),
                            {K::kToggle, "Keep aspect ratio", 0, 1, kSlotResizeRatio, M::kSame,
                             nullptr, "toggleSizeRatio"},
                            {K::kOption, "Resampling", 0, 1, kResampleSetting, M::kSame,
                             "Quick|Linear", "optionSizeResample"}},
                           [](ImageRecord* s, ImageRecord* r, const double* v) {
                             return process::resizePicture(
                                 s, r, i(v, 0), i(v, 1),
                                 static_cast<process::ResampleType>(i(v, 3)), i(v, 2) != 0);
                           }};
  at(DialogId::kRotate) = {"Rotate...",
                           "VmoraRotate",
                           "-rotate",
                           true,
                           {scale("Angle", -180, 180, kSlotRotateAngle)},
                           [](ImageRecord* s, ImageRecord* r, const double* v) {
                             return process::rotatePicture(s, r, v[0]);
                           }};
  at(DialogId::kNoise) = {
      "Add Noise...",
      "VmoraNoise",
      "-noise uniform",
      true,
      {{K::kRadio, "Noise", 0, 3, kSlotNoiseKind, M::kSame, "Uniform|Gaussian|Laplacian|Poisson"},
       scale("Amount", 0, 255, kSlotNoiseAmount)},
      [](ImageRecord* s, ImageRecord* r, const double* v) {
        return process::addNoise(s, r, static_cast<process::NoiseKind>(i(v, 0)), i(v, 1), kSeed);
      }};
  at(DialogId::kShear) = {
      "Shear...",
      "VmoraShear",
      "-shear",
      true,
      {scale("X angle", -80, 80, kSlotShearX), scale("Y angle", -80, 80, kSlotShearY)},
      [](ImageRecord* s, ImageRecord* r, const double* v) {
        return process::shearEffect(s, r, v[0], v[1]);
      }};
  at(DialogId::kSwirl) = {"Swirl...",
                          "VmoraSwirl",
                          "-swirl",
                          true,
                          {scale("Degrees", -720, 720, kSlotSwirl)},
                          [](ImageRecord* s, ImageRecord* r, const double* v) {
                            return process::swirlEffect(s, r, v[0]);
                          }};
  at(DialogId::kSpread) = {"Spread...",
                           "VmoraSpread",
                           "-spread",
                           true,
                           {scale("Radius", 0, 64, kSlotSpread)},
                           [](ImageRecord* s, ImageRecord* r, const double* v) {
                             return process::spreadEffect(s, r, i(v, 0), kSeed);
                           }};
  at(DialogId::kLens) = {"Lens...",
                         "VmoraLens",
                         "-lens",
                         true,
                         {scale("Amount", -100, 100, kSlotLens)},
                         [](ImageRecord* s, ImageRecord* r, const double* v) {
                           return process::lensEffect(s, r, i(v, 0));
                         }};
  at(DialogId::kWaves) = {"Waves...",
                          "VmoraWaves",
                          "-waves",
                          true,
                          {scale("Amplitude", 0, 100, kSlotWavesAmplitude),
                           scale("Wavelength", 1, 1000, kSlotWavesLength)},
                          [](ImageRecord* s, ImageRecord* r, const double* v) {
                            return process::wavesEffect(s, r, v[0], v[1]);
                          }};
  at(DialogId::kSlice) = {
      "Slice...",
      "VmoraSlice",
      "-slice",
      true,
      {scale("Size", 1, 1024, kSlotSliceSize),
       scale("Offset", -1024, 1024, kSlotSliceOffset),
       {K::kRadio, "Direction", 0, 1, kSlotSliceVertical, M::kSame, "Horizontal|Vertical"}},
      [](ImageRecord* s, ImageRecord* r, const double* v) {
        return process::sliceEffect(s, r, i(v, 0), i(v, 1), i(v, 2) != 0);
      }};
  at(DialogId::kTile) = {
      "Tile...",
      "VmoraTile",
      "-tile",
      true,
      {scale("Columns", 1, 64, kSlotTileColumns), scale("Rows", 1, 64, kSlotTileRows)},
      [](ImageRecord* s, ImageRecord* r, const double* v) {
        return process::tileEffect(s, r, i(v, 0), i(v, 1));
      }};
  return d;
}

std::string alnum(const char* text) {
  std::string out;
  for (const char* c = text; c && *c; ++c)
    if (std::isalnum(static_cast<unsigned char>(*c))) out += *c;
  return out;
}

// The remembered value behind position k of a control, or null.
int* storage(const ParamControl& c, int k) {
  if (c.slot == kResampleSetting) return &gSettings.resizeResample;
  if (c.slot < 0 || c.slot + k >= kProcessValues) return nullptr;
  return &gSettings.processLastValue[static_cast<size_t>(c.slot + k)];
}

}  // namespace

const std::vector<ParamDialog>& paramDialogs() {
  static const std::vector<ParamDialog> dialogs = buildDialogs();
  return dialogs;
}

const ParamDialog& paramDialog(DialogId id) { return paramDialogs()[static_cast<size_t>(id)]; }

int positionCount(const ParamControl& control) {
  return control.kind == ControlKind::kMatrix ? 25 : 1;
}

int positionCount(const ParamDialog& dialog) {
  int n = 0;
  for (const ParamControl& c : dialog.controls) n += positionCount(c);
  return n;
}

double mapPosition(ValueMap map, int position) {
  switch (map) {
    case ValueMap::kSame:
      return position;
    case ValueMap::kPowerOfTwo:
      return std::ldexp(1.0, std::clamp(position, 0, 30) + 1);
    case ValueMap::kHundredths:
      return (position + 1) / 100.0;
    case ValueMap::kOddSize:
      return 3 + 2 * position;
  }
  return position;
}

std::string positionText(const ParamControl& control, int position) {
  char text[32];
  switch (control.map) {
    case ValueMap::kHundredths:
      std::snprintf(text, sizeof text, "%d.%02d", (position + 1) / 100, (position + 1) % 100);
      break;
    case ValueMap::kOddSize:
      std::snprintf(text, sizeof text, "%dX%d", 3 + 2 * position, 3 + 2 * position);
      break;
    default:
      std::snprintf(text, sizeof text, "%.0f", mapPosition(control.map, position));
      break;
  }
  return text;
}

std::vector<std::string> choiceLabels(const char* choices) {
  std::vector<std::string> labels;
  if (!choices || !*choices) return labels;
  std::string label;
  for (const char* c = choices;; ++c) {
    if (*c == '|' || *c == '\0') {
      labels.push_back(label);
      label.clear();
      if (*c == '\0') break;
    } else {
      label += *c;
    }
  }
  return labels;
}

std::string controlName(const ParamControl& control) {
  if (control.name) return control.name;
  static const char* const kPrefix[] = {"scale", "radio", "option", "toggle", "text", "matrix"};
  return kPrefix[static_cast<int>(control.kind)] + alnum(control.label);
}

std::string choiceName(const std::string& label) { return "toggle" + alnum(label.c_str()); }

std::vector<int> startPositions(const ParamDialog& dialog, const ImageRecord* picture) {
  std::vector<int> positions;
  for (const ParamControl& c : dialog.controls) {
    for (int k = 0; k < positionCount(c); ++k) {
      int p = c.start;
      if (const int* stored = storage(c, k))
        p = *stored;
      else if (c.pictureSide && picture)
        p = c.pictureSide == 'h' ? picture->height : picture->width;
      positions.push_back(std::clamp(p, c.min, c.max));
    }
  }
  return positions;
}

void rememberPositions(const ParamDialog& dialog, const std::vector<int>& positions) {
  size_t n = 0;
  for (const ParamControl& c : dialog.controls) {
    for (int k = 0; k < positionCount(c); ++k, ++n) {
      int* stored = storage(c, k);
      if (stored && n < positions.size()) *stored = positions[n];
    }
  }
}

std::vector<double> dialogValues(const ParamDialog& dialog, const std::vector<int>& positions) {
  std::vector<double> values;
  size_t n = 0;
  for (const ParamControl& c : dialog.controls)
    for (int k = 0; k < positionCount(c); ++k, ++n)
      values.push_back(mapPosition(c.map, n < positions.size() ? positions[n] : c.start));
  return values;
}

int applyDialog(const ParamDialog& dialog, ImageRecord* src, ImageRecord* dst,
                const std::vector<int>& positions) {
  const std::vector<double> values = dialogValues(dialog, positions);
  return dialog.apply(src, dst, values.data());
}

}  // namespace params
