// The program's own options at the head of the command line.
#include <cstdlib>
#include <cstring>

#include "core/startup.h"

CommandLine ParseCommandLine(int argc, char** argv) {
  CommandLine line;
  int i = 1;
  for (; i < argc; ++i) {
    const char* a = argv[i];
    const bool hasValue = i + 1 < argc;
    if (std::strcmp(a, "-visualid") == 0) {
      // Hexadecimal, with or without 0x; strtol takes both.
      if (hasValue) line.visualId = static_cast<int32_t>(std::strtol(argv[++i], nullptr, 16));
    } else if (std::strcmp(a, "-own") == 0) {
      line.own = true;
    } else if (std::strcmp(a, "-popup") == 0) {
      line.popup = true;
    } else if (std::strcmp(a, "-browser") == 0) {
      line.browser = true;
    } else if (std::strcmp(a, "-all") == 0) {
      line.all = true;
    } else if (std::strcmp(a, "-full") == 0) {
      line.full = true;
    } else if (std::strcmp(a, "-ini") == 0) {
      if (hasValue) ++i;  // read before the options, see IniPathFromArguments
    } else if (std::strcmp(a, "-slide") == 0) {
      if (hasValue) line.slideFile = argv[++i];
    } else {
      break;
    }
  }
  line.firstFile = i;
  return line;
}

std::string IniPathFromArguments(int argc, char** argv) {
  for (int i = 1; i + 1 < argc; ++i)
    if (std::strcmp(argv[i], "-ini") == 0) return argv[i + 1];
  return {};
}

std::vector<std::string> FallbackResourceLines() {
  std::vector<std::string> lines;
  lines.reserve(kFallbackResourceCount);
  for (const FallbackResource& r : kFallbackResources)
    lines.push_back(std::string(r.resource) + ": " + r.value);
  return lines;
}
