// The processing items of the view's Image and Filter menus: one table of
// actions (parameterless operations with their fixed argument, or a
// parameter dialog), applied to the current picture by one function.
#pragma once

#include <X11/Intrinsic.h>

#include "imgkit/imgkit.h"
#include "view/view_commands.h"

struct ViewWindow;

enum ProcessActionId : int {
  kActNegative,
  kActLogarithmic,
  kActNormalize,
  kActEqualize,
  kActSolarize,
  kActPosterize,
  kActBrightness,
  kActContrast,
  kActGamma,
  kActBalance,
  kActSwapRBG,  // the five swaps in mode order 0..4
  kActSwapBGR,
  kActSwapBRG,
  kActSwapGRB,
  kActSwapGBR,
  kActFlipHorizontal,
  kActFlipVertical,
  kActRotateRight,
  kActRotateLeft,
  kActRotateCustom,
  kActCanvas,
  kActResize,
  kActEnhanceDetail,
  kActEnhanceFocus,
  kActFocusRestoration,
  kActEdgeLight,
  kActEdgeMedium,
  kActEdgeHeavy,
  kActEmboss,
  kActEmbossMore,
  kActSoften,
  kActBlur,
  kActEnhanceEdges,
  kActSharpen,
  kActAverage,
  kActGaussian,
  kActMaximum,
  kActMinimum,
  kActMedianBox,
  kActMedianCross,
  kActReduceNoise,
  kActUserFilter,
  kActMosaic,
  kActOilPaint,
  kActDeinterlace,
  kActNoise,
  kActShear,
  kActSwirl,
  kActSpread,
  kActLens,
  kActWaves,
  kActSlice,
  kActTile,
  kProcessActionCount
};

struct ProcessAction {
  const char* label;  // the menu item's text
  const char* name;   // the menu item's widget name
  int dialog;         // params::DialogId, or -1: applies at once
  // Parameterless operations: src to dst with the fixed argument.
  int (*apply)(ImageRecord* src, ImageRecord* dst, int argument);
  int argument;
  // Works on the bytes as numbers (filters, mosaic, oil painting,
  // de-interlace): not offered for colour-mapped pictures, whose bytes are
  // palette indices.
  bool bytesAsNumbers;
};
extern const ProcessAction kProcessActions[kProcessActionCount];

// Runs an action on the view's current picture: asks for its parameters
// first when it has a dialog (Cancel changes nothing); the result becomes the
// picture and the picture before it the undo picture. A failure shows
// "Not enough memory" and changes nothing.
void ApplyProcessAction(ViewWindow* view, ProcessActionId id);

// Menu callback: `number` is the ProcessActionId.
void ProcessMenuCB(Widget item, int number);

// Submenus of the Image menu.
extern const MenuRecord MenuMap, MenuAdjust, MenuSwap, MenuFlip, MenuRotate;
// The Filter menu's update: its byte filters are insensitive for a
// colour-mapped picture.
void UpdateFilterMenu(Widget pulldown, ViewWindow* view);
