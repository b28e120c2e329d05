// The options dialog's rows: every setting a user may change, page by page
// in the settings file's order.
#include "widgets/options_table.h"

#include <cerrno>
#include <cstdlib>
#include <iterator>

namespace {

enum Page {
  kStart,
  kView,
  kResize,
  kBrowser,
  kSave,
  kLoad,
  kSlide,
  kRename,
  kHtml,
  kProcess,
  kConvert
};

const OptionChoice kResample[] = {{"Linear", 0}, {"Quick", 1}};
const OptionChoice kViewas[] = {{"Icons", 0}, {"Small icons", 1}, {"List", 2}, {"Columns", 3}};
// The sort key in the low bits, 128 for the reverse order.
const OptionChoice kArrangeBy[] = {{"Name", 1},
                                   {"Extension", 2},
                                   {"Date", 4},
                                   {"Size", 8},
                                   {"Type", 16},
                                   {"Name (reverse)", 129},
                                   {"Extension (reverse)", 130},
                                   {"Date (reverse)", 132},
                                   {"Size (reverse)", 136},
                                   {"Type (reverse)", 144}};
const OptionChoice kLayout[] = {
    {"Layout 1", 0}, {"Layout 2", 1}, {"Layout 3", 2}, {"Layout 4", 3}, {"Layout 5", 4}};
// What the TIFF writer knows; CCITT G4 applies to binary pictures only, the
// writer falls back to LZW for the others.
const OptionChoice kTiff[] = {
    {"None", 0}, {"LZW", 1}, {"PackBits", 2}, {"Deflate", 3}, {"CCITT G4 (binary)", 4}};
// The raw reader's channel arrangements and layouts.
const OptionChoice kChannelOrder[] = {
    {"Interleaved (RGBRGB...)", 0}, {"Sequential rows (RRR..GGG..)", 1}, {"Planes", 2}};
const OptionChoice kChannelType[] = {{"Grey", 0}, {"RGB", 1}, {"BGR", 2}, {"RGBA", 3},
                                     {"ABGR", 4}, {"CMY", 5}, {"CMYK", 6}};
const OptionChoice kHtmlFormat[] = {{"JPEG", 0}, {"GIF", 1}};

template <size_t N>
constexpr int count(const OptionChoice (&)[N]) {
  return static_cast<int>(N);
}

#define TOGGLE(page, key, label, field) \
  { page, key, label, OptionKind::kToggle, offsetof(Settings, field), 0, 0, nullptr, 0 }
#define NUMBER(page, key, label, field, lo, hi) \
  { page, key, label, OptionKind::kNumber, offsetof(Settings, field), lo, hi, nullptr, 0 }
#define CHOICE(page, key, label, field, list) \
  { page, key, label, OptionKind::kChoice, offsetof(Settings, field), 0, 0, list, count(list) }
#define TEXT(page, key, label, field) \
  { page, key, label, OptionKind::kText, offsetof(Settings, field), 0, 0, nullptr, 0 }

const OptionRow kRows[] = {
    NUMBER(kStart, "StartX", "Window X", startX, -4096, 8192),
    NUMBER(kStart, "StartY", "Window Y", startY, -4096, 8192),
    NUMBER(kStart, "StartWidth", "Window width", startWidth, 50, 8192),
    NUMBER(kStart, "StartHeight", "Window height", startHeight, 30, 8192),
    TOGGLE(kStart, "StartSavePosition", "Save window position", startSavePosition),
    TOGGLE(kStart, "StartLaunchBrowserAtStartup", "Launch browser at startup",
           startLaunchBrowserAtStartup),

    TOGGLE(kView, "ViewUsePopupInView", "Use popup menu instead of menu bar", viewUsePopupInView),
    TOGGLE(kView, "ViewOpenHexaViewIfNotPicture", "Open hexa view if not a picture",
           viewOpenHexaViewIfNotPicture),
    TOGGLE(kView, "ViewFitToWindow", "Fit to window", viewFitToWindow),
    TOGGLE(kView, "ViewStatusBar", "Status bar", viewStatusBar),
    TOGGLE(kView, "ViewToolBar", "Tool bar", viewToolBar),
    TOGGLE(kView, "ViewUseUndo", "Keep a copy for undo", viewUseUndo),
    TOGGLE(kView, "ViewShowFilename", "Show file name in title", viewShowFilename),
    TOGGLE(kView, "ViewMouseNavigation", "Mouse navigation", viewMouseNavigation),

    CHOICE(kResize, "ResizeResample", "Resampling", resizeResample, kResample),

    NUMBER(kBrowser, "BrowserX", "Window X", browserX, -4096, 8192),
    NUMBER(kBrowser, "BrowserY", "Window Y", browserY, -4096, 8192),
    NUMBER(kBrowser, "BrowserWidth", "Window width", browserWidth, 100, 8192),
    NUMBER(kBrowser, "BrowserHeight", "Window height", browserHeight, 100, 8192),
    NUMBER(kBrowser, "BrowserIconWidth", "Thumbnail width", browserIconWidth, 16, 256),
    NUMBER(kBrowser, "BrowserIconHeight", "Thumbnail height", browserIconHeight, 16, 256),
    CHOICE(kBrowser, "BrowserViewas", "View as", browserViewas, kViewas),
    CHOICE(kBrowser, "BrowserArrangeBy", "Arrange by", browserArrangeBy, kArrangeBy),
    NUMBER(kBrowser, "BrowserViewColumn", "List columns (bit set)", browserViewColumn, 0, 255),
    CHOICE(kBrowser, "BrowserLayout", "Layout", browserLayout, kLayout),
    NUMBER(kBrowser, "BrowserDirListWidth", "Tree width", browserDirListWidth, 20, 8192),
    NUMBER(kBrowser, "BrowserDirListHeight", "Tree height", browserDirListHeight, 20, 8192),
    NUMBER(kBrowser, "BrowserIconListWidth", "File view width", browserIconListWidth, 20, 8192),
    NUMBER(kBrowser, "BrowserIconListHeight", "File view height", browserIconListHeight, 20, 8192),
    TOGGLE(kBrowser, "BrowserShowDirList", "Show directory tree", browserShowDirList),
    TOGGLE(kBrowser, "BrowserShowDirInBrowser", "Show directories", browserShowDirInBrowser),
    TOGGLE(kBrowser, "BrowserShowStatusBar", "Status bar", browserShowStatusBar),
    TOGGLE(kBrowser, "BrowserShowToolBar", "Tool bar", browserShowToolBar),
    TOGGLE(kBrowser, "BrowserShowParentDir", "Show parent directory", browserShowParentDir),
    TOGGLE(kBrowser, "BrowserHideNonImageFile", "Hide non-picture files", browserHideNonImageFile),
    TOGGLE(kBrowser, "BrowserShowHiddenFile", "Show hidden files", browserShowHiddenFile),
    TOGGLE(kBrowser, "BrowserShowPreview", "Show preview", browserShowPreview),
    TOGGLE(kBrowser, "BrowserFitPreviewWindow", "Fit preview to window", browserFitPreviewWindow),
    TOGGLE(kBrowser, "BrowserShowContent", "Show file content", browserShowContent),
    TOGGLE(kBrowser, "BrowserShowInAscii", "Show content in ASCII", browserShowInAscii),
    TOGGLE(kBrowser, "BrowserStartInPrevDir", "Start in previous directory", browserStartInPrevDir),
    TOGGLE(kBrowser, "BrowserRecognizeByExt", "Recognize pictures by extension",
           browserRecognizeByExt),
    NUMBER(kBrowser, "BrowserFitWindowOption", "Fit window option", browserFitWindowOption, 0, 15),

    NUMBER(kSave, "SaveJpegQuality", "JPEG quality", saveJpegQuality, 0, 100),
    TOGGLE(kSave, "SaveJpegProgressive", "JPEG progressive", saveJpegProgressive),
    NUMBER(kSave, "SavePngQuality", "PNG compression", savePngQuality, 0, 9),
    TOGGLE(kSave, "SaveGifInterlaced", "GIF interlaced", saveGifInterlaced),
    TOGGLE(kSave, "SaveIffCompress", "IFF compressed", saveIffCompress),
    TOGGLE(kSave, "SavePcxCompress", "PCX compressed", savePcxCompress),
    TOGGLE(kSave, "SaveTgaCompress", "Targa compressed", saveTgaCompress),
    CHOICE(kSave, "SaveTiffCompress", "TIFF compression", saveTiffCompress, kTiff),
    TOGGLE(kSave, "SaveSoftCompress", "Softimage compressed", saveSoftCompress),
    TOGGLE(kSave, "SaveRgbCompress", "SGI (Rgb) compressed", saveRgbCompress),
    TOGGLE(kSave, "SaveBmpCompress", "BMP compressed", saveBmpCompress),

    NUMBER(kLoad, "LoadPcdBase", "Photo CD resolution step", loadPcdBase, 0, 6),
    NUMBER(kLoad, "LoadGrobBpp", "Grob bits per pixel", loadGrobBpp, 0, 32),
    TOGGLE(kLoad, "LoadIgnoreError", "Ignore read errors (keep what was read)", loadIgnoreError),
    NUMBER(kLoad, "LoadWidth", "Raw width", loadWidth, 0, 65535),
    NUMBER(kLoad, "LoadHeight", "Raw height", loadHeight, 0, 65535),
    NUMBER(kLoad, "LoadOffset", "Raw offset", loadOffset, 0, 2147483647),
    CHOICE(kLoad, "LoadChannelOrder", "Raw channel order", loadChannelOrder, kChannelOrder),
    CHOICE(kLoad, "LoadChannelType", "Raw channel type", loadChannelType, kChannelType),
    TOGGLE(kLoad, "LoadPreview", "Preview in the file selector", loadPreview),

    NUMBER(kSlide, "SlideTimer", "Delay (seconds)", slideTimer, 1, 3600),
    TOGGLE(kSlide, "SlideLoop", "Loop", slideLoop),
    TOGGLE(kSlide, "SlideFull", "Full screen", slideFull),
    TOGGLE(kSlide, "SlideCenter", "Center Window", slideCenter),
    TOGGLE(kSlide, "SlideResize", "Fit to Window, large image only", slideResize),
    TOGGLE(kSlide, "SlideRandom", "Use Random Order", slideRandom),
    TOGGLE(kSlide, "SlideFitToWindow", "Fit to Window, all images", slideFitToWindow),
    TOGGLE(kSlide, "SlideNoTitle", "No Title Bar", slideNoTitle),
    TOGGLE(kSlide, "SlideNoError", "Suppress read error", slideNoError),

    NUMBER(kRename, "RenameStart", "First number", renameStart, 0, 999999),
    NUMBER(kRename, "RenameStep", "Step", renameStep, 1, 1000),
    TEXT(kRename, "RenameTemplate", "Template", renameTemplate),

    NUMBER(kHtml, "HtmlTableColumns", "Table columns", htmlTableColumns, 1, 32),
    NUMBER(kHtml, "HtmlTableBorder", "Table border", htmlTableBorder, 0, 16),
    NUMBER(kHtml, "HtmlThumbWidth", "Thumbnail width", htmlThumbWidth, 16, 1024),
    NUMBER(kHtml, "HtmlThumbHeight", "Thumbnail height", htmlThumbHeight, 16, 1024),
    CHOICE(kHtml, "HtmlFormat", "Thumbnail format", htmlFormat, kHtmlFormat),
    TOGGLE(kHtml, "HtmlInterlacedGif", "Interlaced GIF", htmlInterlacedGif),
    TOGGLE(kHtml, "HtmlProgressiveJpeg", "Progressive JPEG", htmlProgressiveJpeg),
    NUMBER(kHtml, "HtmlQualityJpeg", "JPEG quality", htmlQualityJpeg, 0, 100),
    TOGGLE(kHtml, "HtmlUseOriginalIfSmaller", "Use the original if smaller",
           htmlUseOriginalIfSmaller),
    NUMBER(kHtml, "HtmlDisplay", "Display", htmlDisplay, 0, 15),
    NUMBER(kHtml, "HtmlSort", "Sort", htmlSort, 0, 15),
    TEXT(kHtml, "HtmlOutputDirectory", "Output directory", htmlOutputDirectory),

    TOGGLE(kProcess, "ProcessAutoView", "Show results at once", processAutoView),

    TOGGLE(kConvert, "ConvertHideError", "Go on without a message when a file fails",
           convertHideError),
};

#undef TOGGLE
#undef NUMBER
#undef CHOICE
#undef TEXT

}  // namespace

const std::vector<const char*>& OptionPages() {
  static const std::vector<const char*> pages = {"Start", "View",    "Resize", "Browser",
                                                 "Save",  "Load",    "Slide",  "Rename",
                                                 "Html",  "Process", "Convert"};
  return pages;
}

const std::vector<OptionRow>& OptionRows() {
  static const std::vector<OptionRow> rows(std::begin(kRows), std::end(kRows));
  return rows;
}

int OptionNumberFromText(const OptionRow& row, const char* text, int old) {
  if (!text) return old;
  errno = 0;
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (end == text || errno == ERANGE) return old;
  while (*end == ' ' || *end == '\t') ++end;
  if (*end) return old;
  if (value < row.minimum) return row.minimum;
  if (value > row.maximum) return row.maximum;
  return static_cast<int>(value);
}

int OptionChoicePosition(const OptionRow& row, int value) {
  for (int i = 0; i < row.choiceCount; ++i)
    if (row.choices[i].value == value) return i;
  return 0;
}
