// Test lines on standard output, only when VIMORA_TEST is set.
#include "core/test_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

bool TestMode() {
  static const bool on = std::getenv("VIMORA_TEST") != nullptr;
  return on;
}

void TestLog(const char* format, ...) {
  if (!TestMode()) return;
  std::va_list args;
  va_start(args, format);
  std::fputs("TEST ", stdout);
  std::vfprintf(stdout, format, args);
  std::fputc('\n', stdout);
  std::fflush(stdout);
  va_end(args);
}
