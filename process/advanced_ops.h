// The advanced-operations vocabulary: one table of every operation a batch
// can apply, with its option word, its parameters and their ranges, and the
// label its dialog shows. The menus, the batch dialogs, "Save Batch..." and
// pixbatch all read this table.
#pragma once

#include <string>
#include <vector>

#include "imgkit/imgkit.h"

namespace process {

struct AdvancedParam {
  const char* name;  // dialog label of the value
  double min, max, start;
  bool integer;
};

constexpr int kMaxAdvancedParams = 4;

struct AdvancedOp {
  const char* word;   // option word, e.g. "-brightness" or "-edgedetect light"
  const char* label;  // what the operations list and its dialog show
  int paramCount;
  AdvancedParam params[kMaxAdvancedParams];
  // Applies the operation in place; 0, or 1 when memory is short.
  int (*run)(ImageRecord* picture, const double* values);
};

// The whole vocabulary, in the order the option words are listed.
const std::vector<AdvancedOp>& advancedOps();
// The operation with this option word, or null.
const AdvancedOp* findAdvancedOp(const std::string& word);

// One operation of a list with its parameter values.
struct AdvancedStep {
  const AdvancedOp* op;
  double values[kMaxAdvancedParams];
};

// Runs `op` on `picture` in place with `values` clamped to the ranges.
int runAdvancedOp(const AdvancedOp& op, ImageRecord* picture, const double* values);

// The script words of one step: the option word followed by its values
// ("-brightness 20"); a resize also writes "-ratio" when the aspect is kept
// and "-rtype linear" or "-rtype quick".
std::string advancedOpWords(const AdvancedStep& step);

// Reads one step from script words starting at words[*pos] (advancing
// *pos); false when the word is not an operation or a value is missing.
bool parseAdvancedStep(const std::vector<std::string>& words, size_t* pos, AdvancedStep* step);

}  // namespace process
