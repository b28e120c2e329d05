// Batch conversion: converting one file (load, advanced operations, save,
// optional removal of the original), the output names of a multi-file and of
// a numbered-sequence conversion, and the automatic choice of a conversion
// when nobody is there to answer. Free of any window system: questions,
// messages and progress go through callbacks, so the "Multi Convert" and
// "Sequence Convert" dialogs and pixbatch share this code.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/save.h"
#include "core/settings.h"
#include "imgkit/imgkit.h"
#include "process/advanced_ops.h"

namespace tools {

// The load options every file of a batch is read with (the `Load` settings).
struct BatchLoadSettings {
  int pcdBase = 0;
  int grobBpp = 0;  // the setting itself; passed to the library as it stands
  bool ignoreError = false;
  int rawWidth = 0, rawHeight = 0, rawOffset = 0;
  int channelOrder = 0, channelType = 0;
};
BatchLoadSettings LoadSettingsFrom(const Settings& settings);

// Flags of a conversion.
enum : unsigned {
  kDeleteOriginal = 1u << 0,      // remove the input once its result is written
  kSuppressReadErrors = 1u << 1,  // an unreadable file is skipped without a message
};

struct BatchHooks {
  void* data = nullptr;
  // Reports a file that could not be read (the load-error text).
  void (*loadError)(void* data, const char* text) = nullptr;
  // Handed to SavePicture: the conversion question, errors, status, cursor.
  SaveHooks save;
};

struct ConvertRequest {
  std::string input, output;
  int16_t inputFormat = -1;   // -1: recognised from the file
  int16_t outputFormat = -1;  // -1: the format the file was read in
  const std::vector<process::AdvancedStep>* steps = nullptr;
  unsigned flags = 0;
  // 0 for the first file of a batch, 1 afterwards: a conversion asked for
  // the first file is then reused without asking again.
  int firstFileFlag = 0;
  BatchLoadSettings load;
};

enum class FileStatus { kConverted, kLoadFailed, kOperationFailed, kSaveFailed };

struct FileResult {
  FileStatus status = FileStatus::kLoadFailed;
  int code = 0;          // the library's load or save code, 255 for a refused conversion
  bool deleted = false;  // the input was removed
  std::string message;   // what went wrong, one line
  int16_t formatRead = -1;
};

// Converts one file: load with the request's load settings, the advanced
// operations in order, SavePicture, and the removal of the input only after
// a successful save and only when input and output paths differ (and, however
// they are spelled, do not name the same file).
FileResult ConvertOneFile(const BatchHooks& hooks, const ConvertRequest& request);

// A file name from a template and a number: a run of k '#' becomes the
// number zero-padded to k digits ("img###.tif", 7 -> "img007.tif"); later '#'
// stay as they are; a template without '#' gets the number appended.
std::string SequenceName(const std::string& templ, long number);

// The directory of a path, with its trailing '/' ("" for a bare name).
std::string DirectoryOf(const std::string& path);
// The part of a path after its last '/'.
std::string FileNameOf(const std::string& path);

// The directory a result goes to: `outputDir` with a '/' appended when
// missing, or the input's own directory when `outputDir` is empty.
std::string OutputDirectory(const std::string& input, const std::string& outputDir);

// The first extension the format lists ("jpg"), or "" when none / -1.
std::string FormatExtension(int16_t format);

// The output path of a multi-file conversion: the output directory followed
// by the input's name with its extension replaced by the output format's (the
// name is kept as it is for format -1).
std::string OutputPath(const std::string& input, const std::string& outputDir, int16_t format);

// The conversion (an Image-menu item 1..32) that makes `picture` fit the
// format while losing the least: the closest kind the format holds (true
// colour to 256 adaptive colours for a palette-only format, grey to a binary
// Floyd-Steinberg picture for a binary-only one, ...). 0 when no conversion
// leads to a kind the format accepts.
int ChooseConversion(const FormatInfo& format, const ImageRecord& picture);

}  // namespace tools
