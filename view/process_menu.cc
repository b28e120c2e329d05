// The processing actions and their menus; every item ends in
// ApplyProcessAction.
#include "view/process_menu.h"

#include <Xm/Xm.h>

#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "core/picture_io.h"
#include "core/settings.h"
#include "core/test_log.h"
#include "process/filter.h"
#include "process/geometry.h"
#include "process/tone.h"
#include "view/view_window.h"
#include "widgets/message_box.h"
#include "widgets/param_dialog.h"
#include "widgets/param_table.h"

namespace {

using D = params::DialogId;

constexpr int dialog(D id) { return static_cast<int>(id); }

using Apply = int (*)(ImageRecord*, ImageRecord*, int);

constexpr Apply kNegate = [](ImageRecord* s, ImageRecord* d, int) {
  return process::negatePicture(s, d);
};
constexpr Apply kLogarithmic = [](ImageRecord* s, ImageRecord* d, int) {
  return process::logarithmicPicture(s, d);
};
constexpr Apply kNormalize = [](ImageRecord* s, ImageRecord* d, int) {
  return process::normalizePicture(s, d);
};
constexpr Apply kEqualize = [](ImageRecord* s, ImageRecord* d, int) {
  return process::equalizePicture(s, d);
};
constexpr Apply kSwap = [](ImageRecord* s, ImageRecord* d, int mode) {
  return process::swapChannels(s, d, mode);
};
constexpr Apply kFlipH = [](ImageRecord* s, ImageRecord* d, int) {
  return process::flipHorizontal(s, d);
};
constexpr Apply kFlipV = [](ImageRecord* s, ImageRecord* d, int) {
  return process::flipVertical(s, d);
};
constexpr Apply kRotate = [](ImageRecord* s, ImageRecord* d, int angle) {
  return process::rotatePicture(s, d, angle);
};
constexpr Apply kKernel = [](ImageRecord* s, ImageRecord* d, int number) {
  return process::convolve3x3(s, d, number);
};
constexpr Apply kReduceNoise = [](ImageRecord* s, ImageRecord* d, int) {
  return process::reduceNoiseFilter(s, d);
};

}  // namespace

// In ProcessActionId order.
constexpr ProcessAction kProcessActions[kProcessActionCount] = {
    {"Negative", "Negative", -1, kNegate, 0, false},
    {"Logarithmic Lut", "LogarithmicLut", -1, kLogarithmic, 0, false},
    {"Normalize", "Normalize", -1, kNormalize, 0, false},
    {"Equalize", "Equalize", -1, kEqualize, 0, false},
    {"Solarize...", "Solarize", dialog(D::kSolarize), nullptr, 0, false},
    {"Posterize...", "Posterize", dialog(D::kPosterize), nullptr, 0, false},
    {"Brightness...", "Brightness", dialog(D::kBrightness), nullptr, 0, false},
    {"Contrast...", "Contrast", dialog(D::kContrast), nullptr, 0, false},
    {"Gamma...", "Gamma", dialog(D::kGamma), nullptr, 0, false},
    {"Colors Balance...", "ColorsBalance", dialog(D::kBalance), nullptr, 0, false},
    {"RGB->RBG", "SwapRBG", -1, kSwap, process::kSwapRBG, false},
    {"RGB->BGR", "SwapBGR", -1, kSwap, process::kSwapBGR, false},
    {"RGB->BRG", "SwapBRG", -1, kSwap, process::kSwapBRG, false},
    {"RGB->GRB", "SwapGRB", -1, kSwap, process::kSwapGRB, false},
    {"RGB->GBR", "SwapGBR", -1, kSwap, process::kSwapGBR, false},
    {"Horizontal", "FlipHorizontal", -1, kFlipH, 0, false},
    {"Vertical", "FlipVertical", -1, kFlipV, 0, false},
    {"Right", "RotateRight", -1, kRotate, 90, false},
    {"Left", "RotateLeft", -1, kRotate, -90, false},
    {"Custom...", "RotateCustom", dialog(D::kRotate), nullptr, 0, false},
    {"Canvas size...", "CanvasSize", dialog(D::kCanvas), nullptr, 0, false},
    {"Resize...", "Resize", dialog(D::kResize), nullptr, 0, false},
    {"Enhance Detail", "EnhanceDetail", -1, kKernel, 0, true},
    {"Enhance Focus", "EnhanceFocus", -1, kKernel, 1, true},
    {"Focus Restoration", "FocusRestoration", -1, kKernel, 2, true},
    {"Edge detect Light", "EdgeDetectLight", -1, kKernel, 4, true},
    {"Edge detect Medium", "EdgeDetectMedium", -1, kKernel, 5, true},
    {"Edge detect Heavy", "EdgeDetectHeavy", -1, kKernel, 6, true},
    {"Emboss", "Emboss", -1, kKernel, 7, true},
    {"Emboss More", "EmbossMore", -1, kKernel, 8, true},
    {"Soften...", "Soften", dialog(D::kSoften), nullptr, 0, true},
    {"Blur...", "Blur", dialog(D::kBlur), nullptr, 0, true},
    {"Enhance Edges...", "EnhanceEdges", dialog(D::kEnhanceEdges), nullptr, 0, true},
    {"Sharpen...", "Sharpen", dialog(D::kSharpen), nullptr, 0, true},
    {"Average...", "Average", dialog(D::kAverage), nullptr, 0, true},
    {"Blur Gaussian...", "BlurGaussian", dialog(D::kGaussian), nullptr, 0, true},
    {"Maximum...", "Maximum", dialog(D::kMaximum), nullptr, 0, true},
    {"Minimum...", "Minimum", dialog(D::kMinimum), nullptr, 0, true},
    {"Median Box...", "MedianBox", dialog(D::kMedianBox), nullptr, 0, true},
    {"Median Cross...", "MedianCross", dialog(D::kMedianCross), nullptr, 0, true},
    {"Reduce noise", "ReduceNoise", -1, kReduceNoise, 0, true},
    {"User filter...", "UserFilter", dialog(D::kUserFilter), nullptr, 0, true},
    {"Mosaic...", "Mosaic", dialog(D::kMosaic), nullptr, 0, true},
    {"Oil Painting...", "OilPainting", dialog(D::kOilPaint), nullptr, 0, true},
    {"De-Interlace...", "DeInterlace", dialog(D::kDeinterlace), nullptr, 0, true},
    {"Add Noise...", "AddNoise", dialog(D::kNoise), nullptr, 0, false},
    {"Shear...", "Shear", dialog(D::kShear), nullptr, 0, false},
    {"Swirl...", "Swirl", dialog(D::kSwirl), nullptr, 0, false},
    {"Spread...", "Spread", dialog(D::kSpread), nullptr, 0, false},
    {"Lens...", "Lens", dialog(D::kLens), nullptr, 0, false},
    {"Waves...", "Waves", dialog(D::kWaves), nullptr, 0, false},
    {"Slice...", "Slice", dialog(D::kSlice), nullptr, 0, false},
    {"Tile...", "Tile", dialog(D::kTile), nullptr, 0, false},
};

void ApplyProcessAction(ViewWindow* v, ProcessActionId id) {
  if (!v || !v->picture.pixels || id < 0 || id >= kProcessActionCount) return;
  const ProcessAction& action = kProcessActions[id];
  std::vector<int> positions;
  const params::ParamDialog* dialog = nullptr;
  if (action.dialog >= 0) {
    dialog = &params::paramDialog(static_cast<params::DialogId>(action.dialog));
    if (!RunParamDialog(v->shell, *dialog, &v->picture, &v->visual, v->colormap, &positions))
      return;
  }
  const bool applied = ApplyViewOperation(v, [&](ImageRecord* src, ImageRecord* dst) {
    return dialog ? params::applyDialog(*dialog, src, dst, positions)
                  : action.apply(src, dst, action.argument);
  });
  if (applied && TestMode()) {
    // The new size and the bytes of the top-left pixel, for tests that check
    // the result without reading the screen.
    std::string bytes;
    for (int k = 0; k < v->picture.bytesPerPixel; ++k)
      bytes += (k ? "," : "") + std::to_string(v->picture.pixels[k]);
    TestLog("processed %s %dx%d pixel %s", action.name, v->picture.width, v->picture.height,
            bytes.c_str());
  }
}

void ProcessMenuCB(Widget item, int number) {
  ApplyProcessAction(ViewOfWidget(item), static_cast<ProcessActionId>(number));
}

namespace {

using K = MenuItemKind;

constexpr MenuItem item(ProcessActionId id, char mnemonic) {
  return {kProcessActions[id].label,
          kProcessActions[id].name,
          K::kPush,
          nullptr,
          nullptr,
          mnemonic,
          nullptr,
          ProcessMenuCB,
          id};
}

constexpr MenuItem kMapItems[] = {
    item(kActNegative, 'N'), item(kActLogarithmic, 'L'), item(kActNormalize, 'o'),
    item(kActEqualize, 'E'), item(kActSolarize, 'S'),    item(kActPosterize, 'P'),
};
constexpr MenuItem kAdjustItems[] = {
    item(kActBrightness, 'B'),
    item(kActContrast, 'C'),
    item(kActGamma, 'G'),
    item(kActBalance, 'o'),
};
constexpr MenuItem kSwapItems[] = {
    item(kActSwapRBG, 0), item(kActSwapBGR, 0), item(kActSwapBRG, 0),
    item(kActSwapGRB, 0), item(kActSwapGBR, 0),
};
constexpr MenuItem kFlipItems[] = {item(kActFlipHorizontal, 'H'), item(kActFlipVertical, 'V')};
constexpr MenuItem kRotateItems[] = {
    item(kActRotateRight, 'R'),
    item(kActRotateLeft, 'L'),
    item(kActRotateCustom, 'C'),
};
constexpr MenuItem kEffectItems[] = {
    item(kActMosaic, 'M'), item(kActOilPaint, 'O'), item(kActDeinterlace, 'D'),
    item(kActNoise, 'N'),  item(kActShear, 'S'),    item(kActSwirl, 'w'),
    item(kActSpread, 'p'), item(kActLens, 'L'),     item(kActWaves, 'v'),
    item(kActSlice, 'i'),  item(kActTile, 'T'),
};

}  // namespace

const MenuRecord MenuMap = {"Map",     "MenuMap",          false,  false, 'M',
                            kMapItems, countOf(kMapItems), nullptr};
const MenuRecord MenuAdjust = {"Adjust",     "MenuAdjust",          false,  false, 'A',
                               kAdjustItems, countOf(kAdjustItems), nullptr};
const MenuRecord MenuSwap = {"Swap",     "MenuSwap",          false,  false, 'w',
                             kSwapItems, countOf(kSwapItems), nullptr};
const MenuRecord MenuFlip = {"Flip",     "MenuFlip",          false,  false, 'F',
                             kFlipItems, countOf(kFlipItems), nullptr};
const MenuRecord MenuRotate = {"Rotate",     "MenuRotate",          false,  false, 'R',
                               kRotateItems, countOf(kRotateItems), nullptr};

namespace {

const MenuRecord MenuEffects = {"Effects",    "MenuEffects",         false,  false, 'E',
                                kEffectItems, countOf(kEffectItems), nullptr};

constexpr MenuItem kSeparator1 = {"", "sep1", K::kSeparator};
constexpr MenuItem kSeparator2 = {"", "sep2", K::kSeparator};
constexpr MenuItem kSeparator3 = {"", "sep3", K::kSeparator};
constexpr MenuItem kSeparator4 = {"", "sep4", K::kSeparator};

const MenuItem kFilterItems[] = {
    item(kActEnhanceDetail, 'D'),
    item(kActEnhanceFocus, 'F'),
    item(kActFocusRestoration, 'R'),
    item(kActEdgeLight, 'L'),
    item(kActEdgeMedium, 0),
    item(kActEdgeHeavy, 'H'),
    item(kActEmboss, 'm'),
    item(kActEmbossMore, 0),
    kSeparator1,
    item(kActSoften, 'S'),
    item(kActBlur, 'B'),
    item(kActEnhanceEdges, 0),
    item(kActSharpen, 'p'),
    kSeparator2,
    item(kActAverage, 'A'),
    item(kActGaussian, 'G'),
    item(kActMaximum, 'x'),
    item(kActMinimum, 'i'),
    item(kActMedianBox, 'o'),
    item(kActMedianCross, 'C'),
    kSeparator3,
    item(kActReduceNoise, 'n'),
    item(kActUserFilter, 't'),
    kSeparator4,
    {"Effects", "MenuEffects", K::kCascade, nullptr, nullptr, 'E', &MenuEffects},
};

}  // namespace

void UpdateFilterMenu(Widget pulldown, ViewWindow* v) {
  const bool mapped = v && v->picture.type == IMK_MAPPED;
  // The effects sit in a submenu, which is not a child of this pulldown.
  Widget effects = nullptr;
  if (Widget cascade = XtNameToWidget(pulldown, "MenuEffects"))
    XtVaGetValues(cascade, XmNsubMenuId, &effects, nullptr);
  for (const ProcessAction& a : kProcessActions) {
    if (!a.bytesAsNumbers) continue;
    for (Widget menu : {pulldown, effects}) {
      if (!menu) continue;
      if (Widget w = XtNameToWidget(menu, a.name)) XtSetSensitive(w, !mapped);
    }
  }
}

const MenuRecord MenuFilter = {"Filter",     "MenuFilter",          false,           false, 'l',
                               kFilterItems, countOf(kFilterItems), UpdateFilterMenu};
