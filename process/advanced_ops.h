// The advanced-operations vocabulary: one table of every operation a batch
// can apply, with its option word, the syntax and ranges of its parameters,
// and the label its dialog shows. The menus, the batch dialogs, "Save
// Batch..." and pixbatch all read this table, so a script written by one is
// read back by the other word for word.
#pragma once

#include <string>
#include <vector>

#include "imgkit/imgkit.h"

namespace process {

// How a parameter is written after the option word.
enum class ParamKind {
  kNumber,  // a decimal number in min..max (a whole number when `integer`)
  kLength,  // pixels in min..max, or a percentage of the picture ("50%")
  kChoice,  // one name of `choices`; the value is the name's position
  kFlag,    // an optional trailing word `key` ("-ratio"): 1 when present
  kKeyed,   // an optional trailing `key` and one name of `choices` ("-rtype quick")
};

struct AdvancedParam {
  const char* name;  // dialog label of the value
  double min, max, start;
  bool integer;
  ParamKind kind = ParamKind::kNumber;
  const char* choices = nullptr;  // kChoice / kKeyed: names separated by '|'
  const char* key = nullptr;      // kFlag / kKeyed: the trailing option word
  char axis = 0;                  // kLength: 'x' (of the width) or 'y' (of the height)
};

constexpr int kMaxAdvancedParams = 4;
// Largest percentage a length may be given as.
constexpr double kMaxPercent = 1000;

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

// One operation of a list with its parameter values. A length given as a
// percentage has its `percent` flag set and the percentage as value.
struct AdvancedStep {
  const AdvancedOp* op;
  double values[kMaxAdvancedParams];
  bool percent[kMaxAdvancedParams] = {};
};

// Runs `op` on `picture` in place with `values` clamped to the ranges.
int runAdvancedOp(const AdvancedOp& op, ImageRecord* picture, const double* values);
// Runs a step: percentages become pixels of the picture's current size.
int runAdvancedStep(const AdvancedStep& step, ImageRecord* picture);

// The script words of one step: the option word followed by its values
// ("-brightness 20", "-binary floyd"); a resize also writes "-ratio" when the
// aspect is kept and always "-rtype linear" or "-rtype quick".
std::string advancedOpWords(const AdvancedStep& step);

// Reads one step from script words starting at words[*pos] (advancing *pos
// past it). False when words[*pos] is not an operation (then `error` is left
// empty) or when a parameter is missing, malformed or out of range (then
// `error`, when given, names the word and what was expected, and *pos is not
// moved).
bool parseAdvancedStep(const std::vector<std::string>& words, size_t* pos, AdvancedStep* step,
                       std::string* error = nullptr);

// The syntax of an operation for a help text: "-grey N plain|dither".
std::string advancedOpSyntax(const AdvancedOp& op);
// Its parameters' ranges: "N: integer 2..256".
std::string advancedOpRanges(const AdvancedOp& op);

}  // namespace process
