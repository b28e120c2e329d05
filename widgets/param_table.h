// The parameter dialogs of the processing operations as data: one descriptor
// per dialog (title, shell name, controls with their ranges, value mappings
// and remembered slots, and the operation it runs). Nothing here needs a
// display; widgets/param_dialog.h builds the dialogs from these tables.
#pragma once

#include <string>
#include <vector>

#include "imgkit/imgkit.h"

namespace params {

enum class ControlKind {
  kScale,   // a slider of positions min..max
  kRadio,   // a framed radio box, one of `choices`; the position is the index
  kOption,  // an option menu of `choices`
  kToggle,  // a toggle button: 0 / 1
  kText,    // a number typed in a text field, min..max
  kMatrix,  // 5 x 5 text fields of numbers (25 positions, row-major)
};

// How a control's position becomes the value the operation receives.
enum class ValueMap {
  kSame,        // the position itself
  kPowerOfTwo,  // 2^(p + 1): the posterize levels 2..256
  kHundredths,  // (p + 1) / 100: gamma 0.01..5.00
  kOddSize,     // 3 + 2p: filter sizes 3..13
};

// Where a control's start position comes from and where it is remembered.
constexpr int kNoSlot = -1;           // not remembered: `start`, or the picture's size
constexpr int kResampleSetting = -2;  // the settings' resizeResample

struct ParamControl {
  ControlKind kind;
  const char* label;  // scale title, frame title, toggle text
  int min, max;       // positions; radio and option boxes: 0 .. choices - 1
  int slot;           // ProcessSlot (core/process_slots.h), kNoSlot or kResampleSetting
  ValueMap map = ValueMap::kSame;
  const char* choices = nullptr;  // kRadio / kOption: labels separated by '|'
  const char* name = nullptr;     // widget name; null: derived from the label
  char pictureSide = 0;           // kNoSlot text: starts at the picture's 'w'idth / 'h'eight
  int start = 0;                  // kNoSlot, no picture side: the start position
};

// Runs the operation: src to dst by the destination convention, with the
// mapped values in control order. 0, or 1 when memory is short.
using ParamApply = int (*)(ImageRecord* src, ImageRecord* dst, const double* values);

struct ParamDialog {
  const char* title;      // the dialog's title
  const char* shellName;  // "Vmora..."
  const char* word;       // the batch option word of the same operation, or null
  bool preview;           // shows the operation on a reduced copy while values change
  std::vector<ParamControl> controls;
  ParamApply apply;
};

enum class DialogId {
  kSolarize,
  kPosterize,
  kBrightness,
  kContrast,
  kGamma,
  kBalance,
  kSoften,
  kBlur,
  kEnhanceEdges,
  kSharpen,
  kAverage,
  kGaussian,
  kMaximum,
  kMinimum,
  kMedianBox,
  kMedianCross,
  kUserFilter,
  kMosaic,
  kOilPaint,
  kDeinterlace,
  kCanvas,
  kResize,
  kRotate,
  kNoise,
  kShear,
  kSwirl,
  kSpread,
  kLens,
  kWaves,
  kSlice,
  kTile,
  kCount
};

const std::vector<ParamDialog>& paramDialogs();  // indexed by DialogId
const ParamDialog& paramDialog(DialogId id);

// Positions a control holds (25 for the matrix, else 1) and a dialog holds.
int positionCount(const ParamControl& control);
int positionCount(const ParamDialog& dialog);

// The value a position stands for.
double mapPosition(ValueMap map, int position);
// The text shown for a position: the level count, gamma as "%d.%02d", the
// filter size as "%dX%d", otherwise the number.
std::string positionText(const ParamControl& control, int position);

// Choices of a radio or option control.
std::vector<std::string> choiceLabels(const char* choices);
// The widget name: the given one, else a prefix by kind ("scale", "radio",
// "option", "toggle", "text", "matrix") and the label's letters and digits.
std::string controlName(const ParamControl& control);
// The widget name of a choice: "toggle" and its letters and digits ("3X3"
// gives "toggle3X3", "Odd Fields" "toggleOddFields").
std::string choiceName(const std::string& label);

// Start positions of every control of the dialog, in order: the remembered
// values (clamped to the ranges), the picture's size for the size fields.
std::vector<int> startPositions(const ParamDialog& dialog, const ImageRecord* picture);
// Stores the positions as the remembered values of the dialog's slots.
void rememberPositions(const ParamDialog& dialog, const std::vector<int>& positions);
// The values the operation receives for these positions.
std::vector<double> dialogValues(const ParamDialog& dialog, const std::vector<int>& positions);
// Runs the dialog's operation with these positions (see ParamApply).
int applyDialog(const ParamDialog& dialog, ImageRecord* src, ImageRecord* dst,
                const std::vector<int>& positions);

}  // namespace params
