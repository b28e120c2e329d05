// Converting one file of a batch, output names and the automatic conversion.
#include "tools/batch.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iterator>

#include "core/messages.h"
#include "process/conversion_items.h"

namespace tools {

namespace {

// Messages of the library come with a line break before the path; a batch
// reports one line per file.
std::string oneLine(std::string text) {
  std::string out;
  for (char c : text) {
    if (c == '\n') {
      while (!out.empty() && out.back() == ' ') out.pop_back();
      out += ' ';
    } else {
      out += c;
    }
  }
  return out;
}

// Whether two paths name the same existing file. A path that cannot be
// looked at counts as the same, so that doubt never removes a file.
bool sameFile(const std::string& a, const std::string& b) {
  struct stat sa, sb;
  if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0) return true;
  return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

// Frees the picture of a conversion on every way out.
struct Loaded {
  ImageRecord rec{};
  ~Loaded() {
    if (rec.pixels || rec.palette) imkFree(&rec);
  }
};

}  // namespace

BatchLoadSettings LoadSettingsFrom(const Settings& s) {
  BatchLoadSettings l;
  l.pcdBase = s.loadPcdBase;
  l.grobBpp = s.loadGrobBpp;
  l.ignoreError = s.loadIgnoreError;
  l.rawWidth = s.loadWidth;
  l.rawHeight = s.loadHeight;
  l.rawOffset = s.loadOffset;
  l.channelOrder = s.loadChannelOrder;
  l.channelType = s.loadChannelType;
  return l;
}

FileResult ConvertOneFile(const BatchHooks& hooks, const ConvertRequest& request) {
  FileResult result;
  const char* in = request.input.c_str();

  // 1. Load: the library's defaults, the progress bit (no function is given,
  // so nothing is called), the load bit every load sets, picture 0 and the
  // load settings as the load with progress passes them.
  LoadOptions options;
  imkDefaultOption(&options);
  options.reserved0 = 0;
  options.flags =
      IMK_FLAG_PROGRESS | IMK_FLAG_LOAD | (request.load.ignoreError ? IMK_FLAG_IGNORE_ERRORS : 0);
  options.formatIndex = request.inputFormat;
  options.pictureIndex = 0;
  options.reserved38 = 1;
  options.pcdBase = static_cast<uint16_t>(request.load.pcdBase);
  options.grobBpp = static_cast<uint16_t>(request.load.grobBpp);
  options.rawWidth = request.load.rawWidth;
  options.rawHeight = request.load.rawHeight;
  options.rawOffset = request.load.rawOffset;
  options.rawChannelOrder = static_cast<uint16_t>(request.load.channelOrder);
  options.rawChannelType = static_cast<uint16_t>(request.load.channelType);
  options.progress = nullptr;
  FileInfo info{};
  info.formatIndex = -1;
  Loaded picture;
  const int loadCode = imkLoad(in, &picture.rec, &options, &info) & 0xFF;
  result.formatRead = info.formatIndex;
  // 2. A failed load: reported unless read errors are suppressed; the file
  // is given up.
  if (loadCode != 0 || !picture.rec.pixels) {
    result.status = FileStatus::kLoadFailed;
    result.code = loadCode ? loadCode : IMK_ERR_READ;
    result.message = oneLine(PictureErrorText(in, result.code, info.errorText));
    if (!(request.flags & kSuppressReadErrors) && hooks.loadError)
      hooks.loadError(hooks.data, result.message.c_str());
    return result;
  }

  // 3. The advanced operations, in list order.
  if (request.steps) {
    for (const process::AdvancedStep& step : *request.steps) {
      if (process::runAdvancedStep(step, &picture.rec) != 0 || !picture.rec.pixels) {
        result.status = FileStatus::kOperationFailed;
        result.code = IMK_ERR_MEMORY;
        result.message = std::string(step.op->label) + ": Not enough memory";
        return result;
      }
    }
  }

  // 4. Save; SavePicture converts the kind when the format needs it.
  const int16_t format = request.outputFormat >= 0 ? request.outputFormat : info.formatIndex;
  const int saveCode = SavePicture(hooks.save, request.output.c_str(), format, &picture.rec, 0,
                                   request.firstFileFlag, false);
  if (saveCode != 0) {
    result.status = FileStatus::kSaveFailed;
    result.code = saveCode;
    result.message = saveCode == kSaveCancelled
                         ? std::string("no conversion to the output format")
                         : oneLine(PictureErrorText(request.output.c_str(), saveCode, nullptr));
    return result;
  }
  result.status = FileStatus::kConverted;

  // 5. The original goes only once its conversion is written, and never when
  // it was converted in place: the paths are equal as strings, or spelled
  // differently ("dir/./a.png") but naming the file just written.
  if ((request.flags & kDeleteOriginal) && request.input != request.output &&
      !sameFile(request.input, request.output))
    result.deleted = ::unlink(in) == 0;
  return result;
}

std::string SequenceName(const std::string& templ, long number) {
  const size_t hash = templ.find('#');
  if (hash == std::string::npos) return templ + std::to_string(number);
  size_t run = hash;
  while (run < templ.size() && templ[run] == '#') ++run;
  const int width = static_cast<int>(run - hash);
  char digits[48];
  std::snprintf(digits, sizeof digits, "%0*ld", width, number);
  return templ.substr(0, hash) + digits + templ.substr(run);
}

std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string FileNameOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string OutputDirectory(const std::string& input, const std::string& outputDir) {
  std::string dir = outputDir.empty() ? DirectoryOf(input) : outputDir;
  if (!dir.empty() && dir.back() != '/') dir += '/';
  return dir;
}

std::string FormatExtension(int16_t format) {
  if (format < 0 || format >= imkCount()) return "";
  FormatInfo info{};
  imkGetInfo(format, &info);
  return std::string(info.extensions[0], strnlen(info.extensions[0], sizeof info.extensions[0]));
}

std::string OutputPath(const std::string& input, const std::string& outputDir, int16_t format) {
  std::string name = FileNameOf(input);
  const std::string extension = FormatExtension(format);
  if (!extension.empty()) {
    // A leading dot (".profile") is part of the name, not an extension.
    const size_t dot = name.rfind('.');
    if (dot != std::string::npos && dot > 0) name.resize(dot);
    name += "." + extension;
  }
  return OutputDirectory(input, outputDir) + name;
}

namespace {

// The kind and largest colour count that a conversion item produces.
struct Produced {
  uint32_t kind;
  uint32_t colours;
};

Produced producedBy(int item) {
  const process::ConversionItem* c = process::conversionItem(item);
  static const uint32_t kGreyLevels[] = {0, 0, 4, 8, 16, 32, 64, 128, 0, 256};
  static const uint32_t kColours[] = {8, 16, 32, 64, 128, 216, 256};
  if (c->code == 1) return {IMK_BINARY, 2};
  if (c->code <= 9) return {IMK_GREY, kGreyLevels[c->code]};
  if (c->code <= 18) {
    // The ordered dither of 128 colours uses the 256-entry cube.
    const uint32_t n = kColours[c->code - 12];
    return {IMK_MAPPED, c->method == 1 && n == 128 ? 256 : n};
  }
  return {IMK_ANY_TRUECOLOR, 0};
}

bool formatHolds(const FormatInfo& format, Produced p) {
  if (format.kinds[0].kind >= 0xFFFF) return true;
  for (int i = 0; i < IMK_MAX_KINDS && format.kinds[i].kind < 0xFFFF; ++i) {
    const ImkKind& k = format.kinds[i];
    if (k.kind != p.kind) continue;
    if (p.kind == IMK_BINARY || p.kind == IMK_ANY_TRUECOLOR) return true;
    if (k.maxColors >= 0xFFFFFFFEu || p.colours <= k.maxColors) return true;
  }
  return false;
}

}  // namespace

int ChooseConversion(const FormatInfo& format, const ImageRecord& picture) {
  // Items in order of preference for each kind of picture: first what loses
  // nothing or least (more levels and colours before fewer), then other kinds.
  static const int kFromTrueColour[] = {24, 23, 22, 21, 20, 19, 18, 11, 17, 16, 15, 14, 13, 12, 2};
  static const int kFromMapped[] = {32, 24, 23, 22, 21, 20, 19, 18, 11, 17, 16, 15, 14, 13, 12, 2};
  static const int kFromGrey[] = {11, 17, 16, 15, 14, 13, 12, 32, 24, 23, 22, 21, 20, 19, 18, 2};
  // Two levels go into the smallest picture that holds them exactly.
  static const int kFromBinary[] = {5, 6, 7, 8, 9, 10, 11, 18, 19, 20, 21, 22, 23, 24, 32};
  const int* order;
  size_t count;
  switch (picture.type) {
    case IMK_BINARY:
      order = kFromBinary, count = std::size(kFromBinary);
      break;
    case IMK_GREY:
      order = kFromGrey, count = std::size(kFromGrey);
      break;
    case IMK_MAPPED:
      order = kFromMapped, count = std::size(kFromMapped);
      break;
    default:
      order = kFromTrueColour, count = std::size(kFromTrueColour);
      break;
  }
  for (size_t k = 0; k < count; ++k) {
    const Produced p = producedBy(order[k]);
    if (formatHolds(format, p)) return order[k];
  }
  return 0;
}

}  // namespace tools
