// Start-up: the usage text, the version check, the banner, the signal
// handlers, the toolkit with its fallback resources, the command line and
// the first windows; and the start window.
#pragma once

#include <X11/Intrinsic.h>

#include <cstdint>
#include <string>
#include <vector>

struct FallbackResource {
  const char* resource;
  const char* value;
};
constexpr int kFallbackResourceCount = 121;
extern const FallbackResource kFallbackResources[kFallbackResourceCount];

// The fallback resources as the toolkit takes them: "resource: value", in
// table order.
std::vector<std::string> FallbackResourceLines();

// What the options at the head of the command line ask for. Options are
// compared exactly; the first argument that is none of them starts the
// files, so options after the first file are file names.
struct CommandLine {
  int32_t visualId = -1;  // "-visualid <hex>", with or without 0x
  bool own = false;
  bool popup = false;
  bool browser = false;
  bool all = false;
  bool full = false;
  std::string slideFile;  // "-slide <file>"; empty: none
  int firstFile = 0;      // index in argv of the first file (argc when none)
};
CommandLine ParseCommandLine(int argc, char** argv);

// The settings file named by the first "-ini" that has a following argument
// (anywhere on the command line); empty when there is none.
std::string IniPathFromArguments(int argc, char** argv);

// Prints the four banner lines on standard output.
void PrintBanner();

// The whole program: returns only if the main loop ever ends.
int VimoraMain(int argc, char** argv);

// The start window "VmoraInit" with its File, Option and Info menus.
void OpenStartWindow();
Widget StartWindow();
