// Slide shows without the window: the ".sld" slide file (read and written),
// and the order in which a show steps through its files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tools {

// Option bits of a slide show.
enum : uint32_t {
  kSlideTimer = 0x1,        // advance by timer (else by key or mouse button)
  kSlideLoop = 0x2,         // after the last file start again
  kSlideFullScreen = 0x4,   // full screen
  kSlideFitLarge = 0x8,     // full screen: fit pictures larger than the screen
  kSlideFitAll = 0x10,      // full screen: fit every picture
  kSlideCenter = 0x20,      // centre the window on the screen
  kSlideNoTitle = 0x40,     // no title bar
  kSlideNoErrors = 0x80,    // do not report pictures that fail to load
  kSlideHideMouse = 0x100,  // hide the pointer (slide files only)
  kSlideRandom = 0x200,     // random order
};

// One entry of a show's file list: a path of at most 267 bytes.
struct SlideFileName {
  char path[268];
};

// What a slide file holds.
struct SlideFileContents {
  uint32_t flags = kSlideNoTitle | kSlideNoErrors;
  int timer = 1;  // seconds in the dialog, milliseconds when a show starts from the file
  std::vector<SlideFileName> files;
};

enum class SlideFileResult { kLoaded, kNotSlideFile, kCannotOpen };

// Reads a slide file. Without the "# Slide Show Sequence" header nothing is
// loaded (kNotSlideFile, `contents` untouched).
SlideFileResult ReadSlideFile(const char* path, SlideFileContents* contents);

// What the slide-show dialog saves: its toggles, its timer and its list.
struct SlideDialogState {
  bool timerMode = false;
  int timer = 5;  // seconds
  bool loop = false, center = false, random = false;
  bool suppressErrors = false, noTitle = false, fullScreen = false;
  int view = 0;  // 0 normal size, 1 fit large pictures only, 2 fit all
  std::vector<std::string> files;
};

// The option bits and the delay (milliseconds) of a show started from the
// dialog: the timer in seconds, at least one.
uint32_t SlideFlagsOf(const SlideDialogState& state);
int32_t SlideDelayOf(const SlideDialogState& state);

// The dialog's state after loading a slide file (the list is replaced only
// when the file holds files).
void ApplySlideFile(const SlideFileContents& contents, SlideDialogState* state);

// The pictures of a folder that the codec library recognises, sorted by
// name (hidden files left out).
std::vector<std::string> PicturesInFolder(const std::string& folder);

// Writes the slide file; false when it cannot be created.
bool WriteSlideFile(const char* path, const SlideDialogState& state);

// One step of a show over `count` files (step 0 counts as +1). `current` is
// the step counter (-1 before the first picture); `shown` (count marks) is
// used in random order. Returns the index of the file to show, or -1 when the
// show has ended (past either end without loop). `randomValue` is called for
// a random order's draw.
int SlideAdvance(int32_t* current, uint8_t* shown, int32_t count, uint32_t flags, int step,
                 int (*randomValue)());

}  // namespace tools
