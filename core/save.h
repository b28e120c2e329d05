// Saving a picture: every save goes through SavePicture, which makes the
// picture fit what the output format can hold (a conversion chosen by the
// user, or the one remembered during a batch, and the format's fixed size),
// fills the format's write options from the settings and calls imkSave.
#pragma once

#include <atomic>
#include <cstdint>

#include "imgkit/imgkit.h"

// What the window system provides around a save; every member may be null (a
// save without a display: no question is asked, nothing is shown).
struct SaveHooks {
  void* data = nullptr;
  // Asks which conversion to apply (the dialog titled "Convert "<path>""):
  // an Image-menu conversion item 1..32, or 0 to cancel.
  int (*askConversion)(void* data, const char* title, const ImageRecord& picture) = nullptr;
  // Shows an error message ("Error converting picture !!", a write error).
  void (*showError)(void* data, const char* text) = nullptr;
  // Shows a passing status text during a batch ("Resizing in %dx%d").
  void (*showStatus)(void* data, const char* text) = nullptr;
  // Busy cursor on / off.
  void (*busy)(void* data, bool on) = nullptr;
  // The progress dialog: opened with a title and text, given as the library's
  // progress callback while saving, closed afterwards.
  void (*openProgress)(void* data, const char* title, const char* text) = nullptr;
  ImkProgressFunc progress = nullptr;
  void (*closeProgress)(void* data) = nullptr;
  // Where the conversion choice of a batch is remembered; null keeps it in
  // the program's own slot (RememberedConversion). A batch converting files
  // on several threads gives each file or job its own slot.
  std::atomic<int>* rememberedChoice = nullptr;
};

constexpr int kSaveCancelled = 255;
constexpr int kNoConversion = 65535;

// Saves `picture` (never changed) in format `formatIndex` to `path`. Returns
// 0, the library's error code (low 8 bits), or 255 when the conversion was
// cancelled or failed. `extraFlags` non-zero saves with flags 193 instead of
// 1; `batchContinuation` non-zero (second and later files of a batch) reuses
// the remembered conversion choice instead of asking again.
int SavePicture(const SaveHooks& hooks, const char* path, int16_t formatIndex,
                const ImageRecord* picture, int extraFlags, int batchContinuation,
                bool showProgress);

// SavePicture with the kinds the output can hold given by the caller instead
// of taken from the format's FormatInfo; the file is still written by the
// writer of `formatIndex`. SavePicture is this with the format's own list.
int SavePictureFitting(const SaveHooks& hooks, const char* path, int16_t formatIndex,
                       const FormatInfo& holds, const ImageRecord* picture, int extraFlags,
                       int batchContinuation, bool showProgress);

// The conversion choice remembered for the rest of a batch (kNoConversion
// when none).
int RememberedConversion();

// Whether a picture of this kind fits the format as it is, and the size the
// format requires for it (-1 when any size will do). False when a conversion
// is needed.
bool FormatAccepts(const FormatInfo& info, const ImageRecord& picture, int* requiredWidth,
                   int* requiredHeight);

// Fills the save options for a format from the settings (flags, quality and
// the per-format words).
void SaveOptionsFor(int16_t formatIndex, int extraFlags, LoadOptions* options);
