// The one-line command scripts of "Save Batch..." and the command line of
// pixbatch: the same words, written by BatchScriptLine and read back by
// ParseBatchScript.
//
//   pixbatch [-npcd N [-npcd N]] [-size WxH+OFFSET] [-ctype TYPE] [-corder ORDER]
//            [-out FMT] [-D] [-o DIR] [-in FMT] [-n START END STEP] [-outname TEMPLATE]
//            [OPERATION ...] INPUT ...
//
// With -n the job is a numbered sequence: the single input is a name
// template ("scans/img###.tif") and -outname the template of the results;
// START to END (inclusive) by STEP. The first -npcd is the Photo CD
// resolution step, a second one the GrobBpp setting plus one (a script whose
// only -npcd came from GrobBpp reads it back as the Photo CD step: the two
// share the word). Paths are words, so a path with blanks cannot stand in a
// line. pixbatch also
// takes -help, -ini FILE, -q N, -j N and "-" (input paths from standard
// input), which scripts never hold.
#pragma once

#include <string>
#include <vector>

#include "core/settings.h"
#include "process/advanced_ops.h"
#include "tools/batch.h"

namespace tools {

struct BatchScript {
  // Load options; -1 where the script does not give the value.
  int pcdBase = -1;
  int grobBppPlusOne = -1;
  bool sizeGiven = false;
  int rawWidth = 0, rawHeight = 0, rawOffset = 0;
  int channelType = -1;   // 0..6: grey rgb bgr rgba abgr cmy cmyk
  int channelOrder = -1;  // 0..2: inter seq sep

  std::string outFormat;  // short name; empty: each file keeps its format
  bool deleteOriginals = false;
  std::string outDir;

  // The sequence form.
  std::string inFormat;
  bool sequence = false;
  long start = 0, end = 0, step = 1;
  std::string outTemplate;

  std::vector<process::AdvancedStep> steps;
  std::vector<std::string> inputs;  // paths, "-" for standard input, or the input template

  // pixbatch's own options.
  bool help = false;
  std::string iniFile;
  int jpegQuality = -1;
  int jobs = 1;
};

// The script's load values from the `Load` settings, by the rules of "Save
// Batch...": the Photo CD step only when non-zero, GrobBpp plus one only when
// GrobBpp is non-zero, the raw size, channel type and order always.
void ScriptLoadValuesFrom(const Settings& settings, BatchScript* script);

// The load settings of a batch: `base` with what the script gives instead.
BatchLoadSettings ScriptLoadSettings(const BatchScript& script, BatchLoadSettings base);

// The script line, each word followed by one blank, ended by a newline.
std::string BatchScriptLine(const BatchScript& script);

// Splits a line into words at blanks, tabs and the line end.
std::vector<std::string> SplitScriptWords(const std::string& line);

// Reads the words after "pixbatch" (a leading "pixbatch" is skipped).
// Options and operations come first, in any order; the first word that is
// neither starts the inputs, and every word after it is an input. False with
// `error` naming the offending word for an unknown option, a missing or
// malformed parameter or one out of range. Formats are checked by the
// caller, which knows the library.
bool ParseBatchScript(const std::vector<std::string>& words, BatchScript* script,
                      std::string* error);

// The (input, output) paths of a sequence: names from the templates for
// START, START + STEP, ... up to END inclusive. Outputs go to the -o
// directory, or beside their inputs.
std::vector<std::pair<std::string, std::string>> SequencePaths(const BatchScript& script);

// The help text of pixbatch: every option and operation with its parameters
// and their ranges.
std::string BatchHelpText();

}  // namespace tools
