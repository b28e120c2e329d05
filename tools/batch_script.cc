// Writing and reading the batch script line.
#include "tools/batch_script.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

namespace tools {

namespace {

const char* const kChannelTypes[] = {"grey", "rgb", "bgr", "rgba", "abgr", "cmy", "cmyk"};
const char* const kChannelOrders[] = {"inter", "seq", "sep"};

bool readLong(const std::string& word, long min, long max, long* value) {
  if (word.empty()) return false;
  char* end = nullptr;
  errno = 0;
  const long v = std::strtol(word.c_str(), &end, 10);
  if (errno || *end || v < min || v > max) return false;
  *value = v;
  return true;
}

template <size_t N>
int nameIndex(const char* const (&names)[N], const std::string& word) {
  for (size_t k = 0; k < N; ++k)
    if (word == names[k]) return static_cast<int>(k);
  return -1;
}

// "WxH+OFFSET", every number a non-negative decimal.
bool readSize(const std::string& word, BatchScript* s) {
  const size_t x = word.find('x'), plus = word.find('+');
  if (x == std::string::npos || plus == std::string::npos || plus < x) return false;
  long w, h, o;
  if (!readLong(word.substr(0, x), 0, INT_MAX, &w) ||
      !readLong(word.substr(x + 1, plus - x - 1), 0, INT_MAX, &h) ||
      !readLong(word.substr(plus + 1), 0, INT_MAX, &o))
    return false;
  s->rawWidth = static_cast<int>(w);
  s->rawHeight = static_cast<int>(h);
  s->rawOffset = static_cast<int>(o);
  s->sizeGiven = true;
  return true;
}

}  // namespace

void ScriptLoadValuesFrom(const Settings& settings, BatchScript* s) {
  s->pcdBase = settings.loadPcdBase != 0 ? settings.loadPcdBase : -1;
  s->grobBppPlusOne = settings.loadGrobBpp != 0 ? settings.loadGrobBpp + 1 : -1;
  s->sizeGiven = true;
  s->rawWidth = settings.loadWidth;
  s->rawHeight = settings.loadHeight;
  s->rawOffset = settings.loadOffset;
  s->channelType = settings.loadChannelType;
  s->channelOrder = settings.loadChannelOrder;
}

BatchLoadSettings ScriptLoadSettings(const BatchScript& s, BatchLoadSettings base) {
  if (s.pcdBase >= 0) base.pcdBase = s.pcdBase;
  if (s.grobBppPlusOne >= 0) base.grobBpp = s.grobBppPlusOne - 1;
  if (s.sizeGiven) {
    base.rawWidth = s.rawWidth;
    base.rawHeight = s.rawHeight;
    base.rawOffset = s.rawOffset;
  }
  if (s.channelType >= 0) base.channelType = s.channelType;
  if (s.channelOrder >= 0) base.channelOrder = s.channelOrder;
  return base;
}

std::string BatchScriptLine(const BatchScript& s) {
  std::string line;
  auto word = [&line](const std::string& w) { line += w + " "; };
  word("pixbatch");
  if (s.pcdBase >= 0) word("-npcd " + std::to_string(s.pcdBase));
  // The GrobBpp value goes under the same option word, as the second -npcd.
  if (s.grobBppPlusOne >= 0) word("-npcd " + std::to_string(s.grobBppPlusOne));
  if (s.sizeGiven) {
    char size[64];
    std::snprintf(size, sizeof size, "-size %dx%d+%d", s.rawWidth, s.rawHeight, s.rawOffset);
    word(size);
  }
  if (s.channelType >= 0 && s.channelType < 7)
    word(std::string("-ctype ") + kChannelTypes[s.channelType]);
  if (s.channelOrder >= 0 && s.channelOrder < 3)
    word(std::string("-corder ") + kChannelOrders[s.channelOrder]);
  if (!s.outFormat.empty()) word("-out " + s.outFormat);
  if (s.deleteOriginals) word("-D");
  if (!s.outDir.empty()) word("-o " + s.outDir);
  if (s.sequence) {
    if (!s.inFormat.empty()) word("-in " + s.inFormat);
    word("-n " + std::to_string(s.start) + " " + std::to_string(s.end) + " " +
         std::to_string(s.step));
    word("-outname " + s.outTemplate);
  }
  for (const process::AdvancedStep& step : s.steps) word(process::advancedOpWords(step));
  for (const std::string& input : s.inputs) word(input);
  return line + "\n";
}

std::vector<std::string> SplitScriptWords(const std::string& line) {
  std::vector<std::string> words;
  std::string w;
  for (char c : line) {
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
      if (!w.empty()) words.push_back(w);
      w.clear();
    } else {
      w += c;
    }
  }
  if (!w.empty()) words.push_back(w);
  return words;
}

bool ParseBatchScript(const std::vector<std::string>& words, BatchScript* script,
                      std::string* error) {
  BatchScript s;
  size_t i = 0;
  if (i < words.size() && words[i] == "pixbatch") ++i;
  int npcdSeen = 0;
  auto fail = [&](const std::string& text) {
    if (error) *error = text;
    return false;
  };
  // The value words after option words[i]; false when there are too few.
  auto has = [&](size_t count) { return i + count < words.size(); };
  auto missing = [&](const std::string& what) {
    return fail(words[i] + ": " + what + " is missing");
  };
  auto bad = [&](size_t k, const std::string& what) {
    return fail(words[i] + ": \"" + words[i + k] + "\" is not " + what);
  };
  while (i < words.size()) {
    const std::string& w = words[i];
    if (w == "-" || w.empty() || w[0] != '-') break;
    long v = 0;
    if (w == "-npcd") {
      if (!has(1)) return missing("a number");
      if (!readLong(words[i + 1], 0, 255, &v)) return bad(1, "a number 0..255");
      if (npcdSeen == 0)
        s.pcdBase = static_cast<int>(v);
      else if (npcdSeen == 1)
        s.grobBppPlusOne = static_cast<int>(v);
      else
        return fail("-npcd: given more than twice");
      ++npcdSeen;
      i += 2;
    } else if (w == "-size") {
      if (!has(1)) return missing("WxH+OFFSET");
      if (!readSize(words[i + 1], &s)) return bad(1, "WxH+OFFSET");
      i += 2;
    } else if (w == "-ctype" || w == "-corder") {
      const bool type = w == "-ctype";
      const char* names = type ? "grey|rgb|bgr|rgba|abgr|cmy|cmyk" : "inter|seq|sep";
      if (!has(1)) return missing(std::string("one of ") + names);
      const int k =
          type ? nameIndex(kChannelTypes, words[i + 1]) : nameIndex(kChannelOrders, words[i + 1]);
      if (k < 0) return bad(1, std::string("one of ") + names);
      (type ? s.channelType : s.channelOrder) = k;
      i += 2;
    } else if (w == "-out" || w == "-in" || w == "-o" || w == "-outname" || w == "-ini") {
      if (!has(1) || words[i + 1].empty())
        return missing(w == "-o"         ? "the directory"
                       : w == "-ini"     ? "the file"
                       : w == "-outname" ? "the template"
                                         : "the format name");
      std::string& target = w == "-out"   ? s.outFormat
                            : w == "-in"  ? s.inFormat
                            : w == "-o"   ? s.outDir
                            : w == "-ini" ? s.iniFile
                                          : s.outTemplate;
      target = words[i + 1];
      i += 2;
    } else if (w == "-D") {
      s.deleteOriginals = true;
      ++i;
    } else if (w == "-help") {
      s.help = true;
      ++i;
    } else if (w == "-n") {
      long n[3];
      for (size_t k = 1; k <= 3; ++k) {
        if (!has(k)) return missing("START END STEP");
        if (!readLong(words[i + k], LONG_MIN / 4, LONG_MAX / 4, &n[k - 1]))
          return bad(k, "an integer");
      }
      if (n[2] == 0) return fail("-n: the step must not be 0");
      if ((n[1] - n[0]) / n[2] < 0)
        return fail("-n: no number from " + words[i + 1] + " to " + words[i + 2] + " by " +
                    words[i + 3]);
      s.sequence = true;
      s.start = n[0], s.end = n[1], s.step = n[2];
      i += 4;
    } else if (w == "-q" || w == "-j") {
      const bool q = w == "-q";
      if (!has(1)) return missing("a number");
      if (!readLong(words[i + 1], 1, q ? 100 : 64, &v))
        return bad(1, q ? "a number 1..100" : "a number 1..64");
      (q ? s.jpegQuality : s.jobs) = static_cast<int>(v);
      i += 2;
    } else {
      process::AdvancedStep step{};
      std::string stepError;
      size_t at = i;
      if (!process::parseAdvancedStep(words, &at, &step, &stepError))
        return fail(stepError.empty() ? "unknown option \"" + w + "\"" : stepError);
      s.steps.push_back(step);
      i = at;
    }
  }
  s.inputs.assign(words.begin() + static_cast<long>(i), words.end());
  if (s.sequence) {
    if (s.inputs.empty()) return fail("The input filename is missing !!");
    if (s.outTemplate.empty()) return fail("The output filename is missing !!");
    if (s.inputs.size() > 1)
      return fail("-n: one input name template is expected, not " +
                  std::to_string(s.inputs.size()) + " words (\"" + s.inputs[1] + "\")");
    if (s.inputs[0] == "-") return fail("-n: the input is a name template, not \"-\"");
  } else if (!s.outTemplate.empty()) {
    return fail("-outname: only for a numbered sequence (-n START END STEP)");
  }
  *script = s;
  return true;
}

std::vector<std::pair<std::string, std::string>> SequencePaths(const BatchScript& s) {
  std::vector<std::pair<std::string, std::string>> paths;
  if (!s.sequence || s.inputs.empty() || s.step == 0) return paths;
  const std::string dir = DirectoryOf(s.inputs[0]);
  const std::string name = FileNameOf(s.inputs[0]);
  const std::string outDir = OutputDirectory(s.inputs[0], s.outDir);
  for (long n = s.start; s.step > 0 ? n <= s.end : n >= s.end; n += s.step)
    paths.emplace_back(dir + SequenceName(name, n), outDir + SequenceName(s.outTemplate, n));
  return paths;
}

std::string BatchHelpText() {
  std::string out =
      "usage: pixbatch [options] [operations] file ...\n"
      "       pixbatch [options] -n START END STEP -outname TEMPLATE [operations] TEMPLATE\n"
      "\n"
      "Converts every file (or the numbered sequence named by TEMPLATE, where a run of\n"
      "'#' stands for the number zero-padded to as many digits) into the output format,\n"
      "applying the operations in the order given.\n"
      "\n"
      "Options:\n"
      "  -out FMT            output format by short name (jpeg, png, gif, tiff, bmp, ppm, ...);\n"
      "                      without it each file keeps the format it was read in\n"
      "  -o DIR              output directory (default: beside each input)\n"
      "  -D                  delete each original once its conversion is written\n"
      "                      (never when the result replaced it in place)\n"
      "  -in FMT             input format by short name (default: recognised)\n"
      "  -n START END STEP   numbered sequence, END included; STEP may be negative\n"
      "  -outname TEMPLATE   output name template of a sequence (e.g. img###.png)\n"
      "  -size WxH+OFFSET    raw files: width, height, bytes skipped before the pixels\n"
      "  -ctype TYPE         raw files: grey|rgb|bgr|rgba|abgr|cmy|cmyk\n"
      "  -corder ORDER       raw files: inter|seq|sep\n"
      "  -npcd N             Photo CD resolution step 0..255; a second -npcd gives the\n"
      "                      GrobBpp setting plus one\n"
      "  -ini FILE           settings file for save and load options (default $HOME/.vimorarc)\n"
      "  -q N                JPEG quality 1..100 (default: the settings file's)\n"
      "  -j N                convert N files at a time, 1..64 (default 1)\n"
      "  -                   read input paths from standard input, one per line\n"
      "  -help               this text\n"
      "\n"
      "Operations (applied in order; integers unless said otherwise):\n";
  for (const process::AdvancedOp& op : process::advancedOps()) {
    std::string line = "  " + process::advancedOpSyntax(op);
    line.resize(std::max<size_t>(line.size() + 1, 50), ' ');
    line += op.label;
    out += line + "\n";
    const std::string ranges = process::advancedOpRanges(op);
    if (!ranges.empty()) out += "      " + ranges + "\n";
  }
  out +=
      "\n"
      "A percentage of the picture's size is given as \"50%\"; a -resize side of 0 follows\n"
      "from the other by the picture's aspect. -rotate 90 is a quarter turn right.\n"
      "A picture the output format cannot hold is converted automatically to the\n"
      "closest kind it holds; the summary says which conversions were made.\n"
      "Exit status: 0 when every file was converted, 1 when some failed, 2 for bad options.\n";
  return out;
}

}  // namespace tools
