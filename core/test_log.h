// Test lines. With VIMORA_TEST set in the environment the program prints one
// line per change of state on standard output ("TEST " and the text) and
// flushes it at once, so that a test driving the program from outside can
// follow it; without it nothing is printed.
#pragma once

bool TestMode();
void TestLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
