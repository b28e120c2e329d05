// The remembered parameters of the processing dialogs: each one has a fixed
// slot of the settings' processLastValue array ("ProcessLastValue_<slot>" in
// the settings file), holding the control's position as the dialog shows it
// (a slider position, a choice's index, a toggle's 0 / 1 or a typed number).
// The defaults are the positions a dialog starts from before anything has
// been remembered.
#pragma once

#include <array>
#include <cstddef>

enum ProcessSlot : int {
  kSlotSolarize = 0,    // threshold 0..255, starts at 128
  kSlotPosterize,       // position 0..7 (2^(p+1) levels), starts at 7 (256 levels)
  kSlotBrightness,      // -255..255, starts at 0
  kSlotContrast,        // -127..127, starts at 0
  kSlotGamma,           // position 0..499 (gamma (p+1)/100), starts at 99 (1.00)
  kSlotBalanceRed,      // -100..100, starts at 0
  kSlotBalanceGreen,    // -100..100, starts at 0
  kSlotBalanceBlue,     // -100..100, starts at 0
  kSlotSoften,          // strength 1..100, starts at 5
  kSlotBlur,            // strength 1..100, starts at 5
  kSlotEnhanceEdges,    // strength 1..100, starts at 50
  kSlotSharpen,         // strength 1..100, starts at 50
  kSlotFilterSize,      // choice 0..5 (3X3 .. 13X13), shared by the six size filters, starts at 0
  kSlotMosaic,          // step 1..64, starts at 4
  kSlotOilPaint,        // radius 1..16, starts at 1
  kSlotDeinterlaceOdd,  // "Eliminate": 0 "Odd Fields", 1 "Even Fields"; starts at 0
  kSlotDeinterlaceNew,  // "New Fields": 0 "Duplication", 1 "Interpolation"; starts at 0
  kSlotResizeRatio,     // keep the aspect ratio: 0 / 1, starts at 1
  kSlotRotateAngle,     // degrees -180..180, starts at 45
  kSlotNoiseKind,       // 0 uniform, 1 gaussian, 2 laplacian, 3 poisson; starts at 0
  kSlotNoiseAmount,     // 0..255, starts at 32
  kSlotShearX,          // degrees -80..80, starts at 20
  kSlotShearY,          // degrees -80..80, starts at 0
  kSlotSwirl,           // degrees -720..720, starts at 90
  kSlotSpread,          // radius 0..64, starts at 4
  kSlotLens,            // -100..100, starts at 50
  kSlotWavesAmplitude,  // pixels 0..100, starts at 10
  kSlotWavesLength,     // pixels 1..1000, starts at 60
  kSlotSliceSize,       // 1..1024, starts at 16
  kSlotSliceOffset,     // -1024..1024, starts at 8
  kSlotSliceVertical,   // 0 horizontal, 1 vertical; starts at 0
  kSlotTileColumns,     // 1..64, starts at 2
  kSlotTileRows,        // 1..64, starts at 2
  kSlotUserMatrix,  // 25 slots: the 5x5 weights, row-major; the centre starts at 1, the rest at 0
  kSlotUserDivisor = kSlotUserMatrix + 25,  // starts at 1
  kSlotUserBias,                            // starts at 0
  kProcessSlotCount
};

struct ProcessSlotDefault {
  int slot;
  int value;
};

// The slots whose default is not 0.
inline constexpr ProcessSlotDefault kProcessSlotDefaults[] = {
    {kSlotSolarize, 128},
    {kSlotPosterize, 7},
    {kSlotGamma, 99},
    {kSlotSoften, 5},
    {kSlotBlur, 5},
    {kSlotEnhanceEdges, 50},
    {kSlotSharpen, 50},
    {kSlotMosaic, 4},
    {kSlotOilPaint, 1},
    {kSlotResizeRatio, 1},
    {kSlotRotateAngle, 45},
    {kSlotNoiseAmount, 32},
    {kSlotShearX, 20},
    {kSlotSwirl, 90},
    {kSlotSpread, 4},
    {kSlotLens, 50},
    {kSlotWavesAmplitude, 10},
    {kSlotWavesLength, 60},
    {kSlotSliceSize, 16},
    {kSlotSliceOffset, 8},
    {kSlotTileColumns, 2},
    {kSlotTileRows, 2},
    {kSlotUserMatrix + 12, 1},
    {kSlotUserDivisor, 1},
};

// Every slot's default, for an array of N slots (N at least kProcessSlotCount).
template <size_t N>
constexpr std::array<int, N> ProcessSlotDefaults() {
  static_assert(N >= kProcessSlotCount, "too few remembered values for the dialogs");
  std::array<int, N> values{};
  for (const ProcessSlotDefault& d : kProcessSlotDefaults)
    values[static_cast<size_t>(d.slot)] = d.value;
  return values;
}
