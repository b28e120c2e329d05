// The file selector: a modal dialog (shell "FileSelector") with a directory
// combo box offering the current path and the recent directories, a list of
// directories, a list of the files that pass the chosen filter row, a file
// name, the chosen file's information and a preview of it.
#pragma once

#include <X11/Intrinsic.h>

#include <cstdint>
#include <string>
#include <vector>

#include "core/formats.h"

enum class FileSelectorMode {
  kOpenOne,    // one existing file
  kOpenMany,   // one or several existing files
  kSave,       // a name and a writable format
  kDirectory,  // a directory
};

struct FileSelectorRequest {
  const char* title = "";
  FileSelectorMode mode = FileSelectorMode::kOpenOne;
  // Option bits of BuildFormatList for the filter rows; with none, `filters`
  // gives them (e.g. {"Slide Files (*.sld)", "sld;", -1}). Save mode offers
  // the writable formats, unless `filters` names other rows (a script file).
  unsigned formatOptions = 0;
  std::vector<FormatListRow> filters;
  // Where to start; empty: PathLoad (PathSave when saving), else the
  // working directory.
  std::string directory;
  std::string name;     // the file name shown at first
  int16_t format = -1;  // save: the format chosen at first (else the name's)
};

struct FileSelectorResult {
  bool accepted = false;           // false: cancelled
  std::vector<std::string> paths;  // absolute; the directory in kDirectory mode
  // The format: the chosen format row's index, or for a single file under
  // a generic row the library's index of it (-1 when it does not know it).
  int16_t formatIndex = -1;
};

// Shows the dialog over `parent` (the application shell when null) and waits
// for the answer in a local event loop. Accepting remembers the directory in
// PathLoad (PathSave when saving) and first among the recent directories.
FileSelectorResult RunFileSelector(Widget parent, const FileSelectorRequest& request);

// The two dialogs of the view windows: "Load Files..." (several files, the
// readable formats) and "Save File..." (one name, the writable formats,
// starting with `startName`).
FileSelectorResult AskFilesToLoad(Widget parent);
FileSelectorResult AskFileToSave(Widget parent, const std::string& startName, int16_t startFormat);
