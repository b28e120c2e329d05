// Process-wide settings: every preference, the last used directories and the
// recent-file lists, kept in one text file (by default $HOME/.vimorarc) of
// "key = value" lines. The values below are the built-in defaults; a key the
// file does not hold (or holds with an empty or unreadable value) keeps its
// default.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "core/process_slots.h"

constexpr int kRecentFiles = 9;
constexpr int kRecentDirs = 10;
constexpr int kProcessValues = 64;  // remembered parameters of the processing dialogs
constexpr size_t kPathSize = 1024;

struct Settings {
  // No group: paths and the recent lists.
  char pathLoad[kPathSize] = "";
  char pathSave[kPathSize] = "";
  char pathBrowse[kPathSize] = "";
  char fileName[kRecentFiles][kPathSize] = {};
  char dirName[kRecentDirs][kPathSize] = {};

  // Start: the start window.
  int startX = 0, startY = 0, startWidth = 400, startHeight = 300;
  bool startSavePosition = false;
  bool startLaunchBrowserAtStartup = false;

  // View: the view windows.
  bool viewUsePopupInView = false;
  bool viewOpenHexaViewIfNotPicture = true;
  bool viewFitToWindow = false;
  bool viewStatusBar = true;
  bool viewToolBar = true;
  bool viewUseUndo = true;
  bool viewShowFilename = true;
  bool viewMouseNavigation = true;

  // Resize: the resampling of the resize dialog (process::ResampleType: 0
  // quick, 1 linear).
  int resizeResample = 0;

  // Browser: the browser window's state.
  int browserX = 0, browserY = 0, browserWidth = 800, browserHeight = 600;
  int browserIconWidth = 64, browserIconHeight = 64;
  int browserViewas = 0;     // 0 icons, 1 small icons, 2 list, 3 columns
  int browserArrangeBy = 1;  // by name, forward
  int browserViewColumn = 0xFF;
  int browserLayout = 0;
  int browserDirListWidth = 200, browserDirListHeight = 300;
  int browserIconListWidth = 600, browserIconListHeight = 300;
  bool browserShowDirList = true;
  bool browserShowDirInBrowser = true;
  bool browserShowStatusBar = true;
  bool browserShowToolBar = true;
  bool browserShowParentDir = true;
  bool browserHideNonImageFile = false;
  bool browserShowHiddenFile = false;
  bool browserShowPreview = true;
  bool browserFitPreviewWindow = true;
  bool browserShowContent = true;
  bool browserShowInAscii = false;
  bool browserStartInPrevDir = true;
  bool browserRecognizeByExt = false;
  int browserFitWindowOption = 0;

  // Save: the per-format write options.
  int saveJpegQuality = 90;
  bool saveJpegProgressive = false;
  int savePngQuality = 6;  // zlib level
  bool saveGifInterlaced = false;
  bool saveIffCompress = true;
  bool savePcxCompress = true;
  bool saveTgaCompress = false;
  int saveTiffCompress = 1;  // LZW
  bool saveSoftCompress = true;
  bool saveRgbCompress = true;
  bool saveBmpCompress = false;

  // Load: copied into the options of every load.
  int loadPcdBase = 3;
  int loadGrobBpp = 0;
  bool loadIgnoreError = false;
  int loadWidth = 0;
  int loadHeight = 0;
  int loadOffset = 0;
  int loadChannelOrder = 0;
  int loadChannelType = 1;
  bool loadPreview = true;

  // Slide: the slide-show defaults.
  int slideTimer = 5;
  bool slideLoop = true;
  bool slideFull = false;
  bool slideCenter = true;
  bool slideResize = true;
  bool slideRandom = false;
  bool slideFitToWindow = false;
  bool slideNoTitle = false;
  bool slideNoError = false;

  // Rename: the browser's renaming by template.
  int renameStart = 1, renameStep = 1;
  char renameTemplate[kPathSize] = "img###";

  // Html: the thumbnail gallery page.
  int htmlTableColumns = 4, htmlTableBorder = 1, htmlThumbWidth = 128, htmlThumbHeight = 128;
  int htmlFormat = 0;
  bool htmlInterlacedGif = false;
  bool htmlProgressiveJpeg = false;
  int htmlQualityJpeg = 75;
  bool htmlUseOriginalIfSmaller = true;
  int htmlDisplay = 0, htmlSort = 0;
  char htmlOutputDirectory[kPathSize] = "";

  // Process: show results at once, and the last value of each dialog.
  bool processAutoView = true;
  // Slots and their defaults: core/process_slots.h.
  std::array<int, kProcessValues> processLastValue = ProcessSlotDefaults<kProcessValues>();

  // Convert: go on without a message when a file of a batch fails.
  bool convertHideError = false;
};

extern Settings gSettings;

// One key of the file, in the order the file is written.
enum class SettingKind { kText, kInteger, kBoolean };
struct SettingKey {
  std::string key;  // group + name, e.g. "ViewFitToWindow"
  SettingKind kind;
  size_t offset;  // of the value inside Settings
  size_t size;    // text buffers: the buffer's size
};
const std::vector<SettingKey>& SettingKeys();

// Puts a path first in the recent directories (DirName_0..9) or the recent
// files (FileName_0..8): an earlier copy of it is removed, the others move
// down, the last falls off. An empty path changes nothing.
void AddRecentDirectory(Settings& settings, const std::string& directory);
void AddRecentFile(Settings& settings, const std::string& path);

// $HOME/.vimorarc (".vimorarc" when HOME is not set).
std::string DefaultSettingsPath();

// Reads every key from the file; keys not found keep their current values. A
// missing file is not an error (false is returned and nothing changes).
bool ReadSettings(const std::string& path, Settings& settings = gSettings);

// Writes every key in order to a temporary file beside `path`, then renames it
// over `path`, so that a failed or interrupted write leaves the old file as it
// was. On failure prints "Error in creating <path>" and returns false.
bool WriteSettings(const std::string& path, const Settings& settings = gSettings);
