// The settings file: the key table, the reading rule and the writer.
#include "core/settings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

Settings gSettings;

namespace {

struct Builder {
  std::vector<SettingKey> keys;
  void text(const std::string& key, size_t offset, size_t size) {
    keys.push_back({key, SettingKind::kText, offset, size});
  }
  void integer(const std::string& key, size_t offset) {
    keys.push_back({key, SettingKind::kInteger, offset, sizeof(int)});
  }
  void boolean(const std::string& key, size_t offset) {
    keys.push_back({key, SettingKind::kBoolean, offset, sizeof(bool)});
  }
};

#define TEXT(key, field) b.text(key, offsetof(Settings, field), sizeof(Settings::field))
#define INT(key, field) b.integer(key, offsetof(Settings, field))
#define BOOL(key, field) b.boolean(key, offsetof(Settings, field))

std::vector<SettingKey> buildKeys() {
  Builder b;
  TEXT("PathLoad", pathLoad);
  TEXT("PathSave", pathSave);
  TEXT("PathBrowse", pathBrowse);
  for (int i = 0; i < kRecentFiles; ++i)
    b.text("FileName_" + std::to_string(i), offsetof(Settings, fileName) + i * kPathSize,
           kPathSize);
  for (int i = 0; i < kRecentDirs; ++i)
    b.text("DirName_" + std::to_string(i), offsetof(Settings, dirName) + i * kPathSize, kPathSize);

  INT("StartX", startX);
  INT("StartY", startY);
  INT("StartWidth", startWidth);
  INT("StartHeight", startHeight);
  BOOL("StartSavePosition", startSavePosition);
  BOOL("StartLaunchBrowserAtStartup", startLaunchBrowserAtStartup);

  BOOL("ViewUsePopupInView", viewUsePopupInView);
  BOOL("ViewOpenHexaViewIfNotPicture", viewOpenHexaViewIfNotPicture);
  BOOL("ViewFitToWindow", viewFitToWindow);
  BOOL("ViewStatusBar", viewStatusBar);
  BOOL("ViewToolBar", viewToolBar);
  BOOL("ViewUseUndo", viewUseUndo);
  BOOL("ViewShowFilename", viewShowFilename);
  BOOL("ViewMouseNavigation", viewMouseNavigation);

  INT("ResizeResample", resizeResample);

  INT("BrowserX", browserX);
  INT("BrowserY", browserY);
  INT("BrowserWidth", browserWidth);
  INT("BrowserHeight", browserHeight);
  INT("BrowserIconWidth", browserIconWidth);
  INT("BrowserIconHeight", browserIconHeight);
  INT("BrowserViewas", browserViewas);
  INT("BrowserArrangeBy", browserArrangeBy);
  INT("BrowserViewColumn", browserViewColumn);
  INT("BrowserLayout", browserLayout);
  INT("BrowserDirListWidth", browserDirListWidth);
  INT("BrowserDirListHeight", browserDirListHeight);
  INT("BrowserIconListWidth", browserIconListWidth);
  INT("BrowserIconListHeight", browserIconListHeight);
  BOOL("BrowserShowDirList", browserShowDirList);
  BOOL("BrowserShowDirInBrowser", browserShowDirInBrowser);
  BOOL("BrowserShowStatusBar", browserShowStatusBar);
  BOOL("BrowserShowToolBar", browserShowToolBar);
  BOOL("BrowserShowParentDir", browserShowParentDir);
  BOOL("BrowserHideNonImageFile", browserHideNonImageFile);
  BOOL("BrowserShowHiddenFile", browserShowHiddenFile);
  BOOL("BrowserShowPreview", browserShowPreview);
  BOOL("BrowserFitPreviewWindow", browserFitPreviewWindow);
  BOOL("BrowserShowContent", browserShowContent);
  BOOL("BrowserShowInAscii", browserShowInAscii);
  BOOL("BrowserStartInPrevDir", browserStartInPrevDir);
  BOOL("BrowserRecognizeByExt", browserRecognizeByExt);
  INT("BrowserFitWindowOption", browserFitWindowOption);

  INT("SaveJpegQuality", saveJpegQuality);
  BOOL("SaveJpegProgressive", saveJpegProgressive);
  INT("SavePngQuality", savePngQuality);
  BOOL("SaveGifInterlaced", saveGifInterlaced);
  BOOL("SaveIffCompress", saveIffCompress);
  BOOL("SavePcxCompress", savePcxCompress);
  BOOL("SaveTgaCompress", saveTgaCompress);
  INT("SaveTiffCompress", saveTiffCompress);
  BOOL("SaveSoftCompress", saveSoftCompress);
  BOOL("SaveRgbCompress", saveRgbCompress);
  BOOL("SaveBmpCompress", saveBmpCompress);

  INT("LoadPcdBase", loadPcdBase);
  INT("LoadGrobBpp", loadGrobBpp);
  BOOL("LoadIgnoreError", loadIgnoreError);
  INT("LoadWidth", loadWidth);
  INT("LoadHeight", loadHeight);
  INT("LoadOffset", loadOffset);
  INT("LoadChannelOrder", loadChannelOrder);
  INT("LoadChannelType", loadChannelType);
  BOOL("LoadPreview", loadPreview);

  INT("SlideTimer", slideTimer);
  BOOL("SlideLoop", slideLoop);
  BOOL("SlideFull", slideFull);
  BOOL("SlideCenter", slideCenter);
  BOOL("SlideResize", slideResize);
  BOOL("SlideRandom", slideRandom);
  BOOL("SlideFitToWindow", slideFitToWindow);
  BOOL("SlideNoTitle", slideNoTitle);
  BOOL("SlideNoError", slideNoError);

  INT("RenameStart", renameStart);
  INT("RenameStep", renameStep);
  TEXT("RenameTemplate", renameTemplate);

  INT("HtmlTableColumns", htmlTableColumns);
  INT("HtmlTableBorder", htmlTableBorder);
  INT("HtmlThumbWidth", htmlThumbWidth);
  INT("HtmlThumbHeight", htmlThumbHeight);
  INT("HtmlFormat", htmlFormat);
  BOOL("HtmlInterlacedGif", htmlInterlacedGif);
  BOOL("HtmlProgressiveJpeg", htmlProgressiveJpeg);
  INT("HtmlQualityJpeg", htmlQualityJpeg);
  BOOL("HtmlUseOriginalIfSmaller", htmlUseOriginalIfSmaller);
  INT("HtmlDisplay", htmlDisplay);
  INT("HtmlSort", htmlSort);
  TEXT("HtmlOutputDirectory", htmlOutputDirectory);

  BOOL("ProcessAutoView", processAutoView);
  for (int i = 0; i < kProcessValues; ++i)
    b.integer("ProcessLastValue_" + std::to_string(i),
              offsetof(Settings, processLastValue) + i * sizeof(int));

  BOOL("ConvertHideError", convertHideError);
  return b.keys;
}

#undef TEXT
#undef INT
#undef BOOL

// The file as the reader sees it: pieces of at most 1023 characters, each
// ending at a newline or where the piece is full (a longer line is read as
// several pieces).
std::vector<std::string> readPieces(FILE* f) {
  std::vector<std::string> pieces;
  char buffer[1024];
  while (std::fgets(buffer, sizeof buffer, f)) pieces.emplace_back(buffer);
  return pieces;
}

// The value of `key` by the reading rule: the first piece holding the key
// anywhere; blanks, "=", blanks; the rest without its line end. Empty when
// not found (an empty value counts as not found too).
std::string findValue(const std::vector<std::string>& pieces, const std::string& key) {
  for (const std::string& piece : pieces) {
    const size_t at = piece.find(key);
    if (at == std::string::npos) continue;
    size_t i = at + key.size();
    while (i < piece.size() && (piece[i] == ' ' || piece[i] == '\t')) ++i;
    if (i >= piece.size() || piece[i] != '=') return {};
    ++i;
    while (i < piece.size() && (piece[i] == ' ' || piece[i] == '\t')) ++i;
    std::string value = piece.substr(i);
    while (!value.empty() && (value.back() == '\n' || value.back() == '\r')) value.pop_back();
    return value;
  }
  return {};
}

void storeValue(Settings& settings, const SettingKey& k, const std::string& value) {
  char* field = reinterpret_cast<char*>(&settings) + k.offset;
  switch (k.kind) {
    case SettingKind::kText: {
      const size_t n = std::min(value.size(), k.size - 1);
      std::memcpy(field, value.data(), n);
      field[n] = '\0';
      break;
    }
    case SettingKind::kInteger: {
      long v = std::strtol(value.c_str(), nullptr, 10);
      v = std::clamp<long>(v, INT_MIN, INT_MAX);
      const int i = static_cast<int>(v);
      std::memcpy(field, &i, sizeof i);
      break;
    }
    case SettingKind::kBoolean: {
      std::string lower = value;
      for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      if (lower == "true") *reinterpret_cast<bool*>(field) = true;
      if (lower == "false") *reinterpret_cast<bool*>(field) = false;
      break;
    }
  }
}

std::string formatValue(const Settings& settings, const SettingKey& k) {
  const char* field = reinterpret_cast<const char*>(&settings) + k.offset;
  switch (k.kind) {
    case SettingKind::kText:
      return std::string(field, strnlen(field, k.size));
    case SettingKind::kInteger: {
      int i;
      std::memcpy(&i, field, sizeof i);
      return std::to_string(i);
    }
    case SettingKind::kBoolean:
      return *reinterpret_cast<const bool*>(field) ? "True" : "False";
  }
  return {};
}

}  // namespace

const std::vector<SettingKey>& SettingKeys() {
  static const std::vector<SettingKey> keys = buildKeys();
  return keys;
}

std::string DefaultSettingsPath() {
  const char* home = std::getenv("HOME");
  return home ? std::string(home) + "/.vimorarc" : std::string(".vimorarc");
}

bool ReadSettings(const std::string& path, Settings& settings) {
  FILE* f = std::fopen(path.c_str(), "r");
  if (!f) return false;
  const std::vector<std::string> pieces = readPieces(f);
  std::fclose(f);
  for (const SettingKey& k : SettingKeys()) {
    const std::string value = findValue(pieces, k.key);
    if (!value.empty()) storeValue(settings, k, value);
  }
  return true;
}

bool WriteSettings(const std::string& path, const Settings& settings) {
  // Write beside the real file (through a symbolic link), keep its mode, and
  // replace it only once everything is on disk.
  char resolved[PATH_MAX];
  const std::string target = realpath(path.c_str(), resolved) ? std::string(resolved) : path;
  std::string temp = target + ".XXXXXX";
  const int fd = mkstemp(temp.data());
  FILE* f = fd >= 0 ? fdopen(fd, "w") : nullptr;
  if (!f) {
    if (fd >= 0) {
      close(fd);
      unlink(temp.c_str());
    }
    std::printf("Error in creating <%s>\n", path.c_str());
    return false;
  }
  struct stat old {};
  mode_t mode;
  if (stat(target.c_str(), &old) == 0) {
    mode = old.st_mode & 07777;
  } else {
    const mode_t mask = umask(0);
    umask(mask);
    mode = 0666 & ~mask;
  }
  fchmod(fd, mode);
  for (const SettingKey& k : SettingKeys())
    std::fprintf(f, "%s = %s\n", k.key.c_str(), formatValue(settings, k).c_str());
  const bool written = std::fflush(f) == 0 && !std::ferror(f) && fsync(fd) == 0;
  if (std::fclose(f) != 0 || !written || std::rename(temp.c_str(), target.c_str()) != 0) {
    unlink(temp.c_str());
    std::printf("Error in creating <%s>\n", path.c_str());
    return false;
  }
  return true;
}

namespace {

template <size_t N>
void putFirst(char (&list)[N][kPathSize], const std::string& path) {
  if (path.empty()) return;
  std::vector<std::string> recent{path};
  for (const auto& name : list)
    if (name[0] && path != name) recent.emplace_back(name);
  recent.resize(N);
  for (size_t i = 0; i < N; ++i) {
    std::strncpy(list[i], recent[i].c_str(), kPathSize - 1);
    list[i][kPathSize - 1] = '\0';
  }
}

}  // namespace

void AddRecentDirectory(Settings& settings, const std::string& directory) {
  putFirst(settings.dirName, directory);
}

void AddRecentFile(Settings& settings, const std::string& path) {
  putFirst(settings.fileName, path);
}
