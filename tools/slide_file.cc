#include "tools/slide_file.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "imgkit/imgkit.h"

namespace tools {
namespace {

struct FileCloser {
  void operator()(FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

// Keys of the "key = number" lines, and what a number does to the flags.
struct SlideKey {
  const char* key;
  uint32_t bit;
  bool clear;         // the bit is cleared instead of set
  bool needsNonZero;  // a zero number changes nothing
};
constexpr SlideKey kSlideKeys[] = {
    {"FullScreen", kSlideFullScreen, false, true}, {"NoTitleBar", kSlideNoTitle, true, true},
    {"CenterWindow", kSlideCenter, false, true},   {"Loop", kSlideLoop, false, true},
    {"ReadErrors", kSlideNoErrors, true, true},    {"RandomOrder", kSlideRandom, false, true},
    {"HideMouse", kSlideHideMouse, false, true},
};

void addFile(SlideFileContents* contents, char* line) {
  // The path runs from after the opening quote to the line's last quote;
  // without a closing quote the rest of the line is taken as it stands.
  char* text = line + 1;
  if (char* end = std::strrchr(text, '"')) *end = '\0';
  SlideFileName name{};  // cut to the entry's size, always terminated
  std::memcpy(name.path, text, std::min(std::strlen(text), sizeof name.path - 1));
  contents->files.push_back(name);
}

void applyKey(SlideFileContents* contents, const char* key, int value) {
  if (std::strcmp(key, "Timer") == 0) {
    contents->flags |= kSlideTimer;
    contents->timer = value;
    return;
  }
  if (std::strcmp(key, "View") == 0) {
    if (value == 1) contents->flags |= kSlideFitLarge;
    if (value == 2) contents->flags |= kSlideFitAll;
    return;
  }
  for (const SlideKey& k : kSlideKeys) {
    if (std::strcmp(key, k.key) != 0) continue;
    if (k.needsNonZero && value == 0) return;
    if (k.clear)
      contents->flags &= ~k.bit;
    else
      contents->flags |= k.bit;
    return;
  }
}

}  // namespace

SlideFileResult ReadSlideFile(const char* path, SlideFileContents* contents) {
  File f(std::fopen(path, "rt"));
  if (!f) return SlideFileResult::kCannotOpen;
  char line[512];
  if (!std::fgets(line, sizeof line, f.get()) || !std::strstr(line, "# Slide Show Sequence"))
    return SlideFileResult::kNotSlideFile;
  SlideFileContents read;
  while (std::fgets(line, sizeof line, f.get())) {
    if (line[0] == '"') {
      addFile(&read, line);
      continue;
    }
    char key[33];
    int value = 0;
    if (std::sscanf(line, "%32s = %d", key, &value) == 2) applyKey(&read, key, value);
  }
  if (read.timer <= 0) read.timer = 1;
  *contents = std::move(read);
  return SlideFileResult::kLoaded;
}

bool WriteSlideFile(const char* path, const SlideDialogState& s) {
  File f(std::fopen(path, "wt"));
  if (!f) return false;
  std::fprintf(f.get(), "# Slide Show Sequence\n");
  if (s.timerMode) std::fprintf(f.get(), "Timer = %d\n", s.timer);
  std::fprintf(f.get(), "Loop = %d\n", s.loop ? 1 : 0);
  std::fprintf(f.get(), "CenterWindow = %d\n", s.center ? 1 : 0);
  std::fprintf(f.get(), "RandomOrder = %d\n", s.random ? 1 : 0);
  std::fprintf(f.get(), "ReadErrors = %d\n", s.suppressErrors ? 0 : 1);
  // The reader knows no "TitleBar" key: a saved "No Title Bar" is not
  // restored by a load (files are read with the title bar off).
  std::fprintf(f.get(), "TitleBar = %d\n", s.noTitle ? 0 : 1);
  std::fprintf(f.get(), "FullScreen = %d\n", s.fullScreen ? 1 : 0);
  std::fprintf(f.get(), "View = %d\n", s.view == 1 || s.view == 2 ? s.view : 0);
  for (const std::string& file : s.files) std::fprintf(f.get(), "\"%s\"\n", file.c_str());
  return std::ferror(f.get()) == 0;
}

uint32_t SlideFlagsOf(const SlideDialogState& s) {
  uint32_t flags = s.timerMode ? uint32_t{kSlideTimer} : 0u;
  if (s.loop) flags |= kSlideLoop;
  if (s.fullScreen) flags |= kSlideFullScreen;
  if (s.view == 1) flags |= kSlideFitLarge;
  if (s.view == 2) flags |= kSlideFitAll;
  if (s.center) flags |= kSlideCenter;
  if (s.noTitle) flags |= kSlideNoTitle;
  if (s.suppressErrors) flags |= kSlideNoErrors;
  if (s.random) flags |= kSlideRandom;
  return flags;
}

int32_t SlideDelayOf(const SlideDialogState& s) { return std::max(s.timer, 1) * 1000; }

void ApplySlideFile(const SlideFileContents& c, SlideDialogState* s) {
  s->timerMode = (c.flags & kSlideTimer) != 0;
  s->timer = c.timer;
  s->loop = (c.flags & kSlideLoop) != 0;
  s->center = (c.flags & kSlideCenter) != 0;
  s->random = (c.flags & kSlideRandom) != 0;
  s->suppressErrors = (c.flags & kSlideNoErrors) != 0;
  s->noTitle = (c.flags & kSlideNoTitle) != 0;
  s->fullScreen = (c.flags & kSlideFullScreen) != 0;
  s->view = (c.flags & kSlideFitLarge) ? 1 : (c.flags & kSlideFitAll) ? 2 : 0;
  if (c.files.empty()) return;
  s->files.clear();
  for (const SlideFileName& f : c.files) s->files.emplace_back(f.path);
}

std::vector<std::string> PicturesInFolder(const std::string& folder) {
  std::vector<std::string> found;
  DIR* dir = opendir(folder.c_str());
  if (!dir) return found;
  const std::string base = folder.empty() || folder.back() == '/' ? folder : folder + "/";
  while (const dirent* e = readdir(dir)) {
    if (e->d_name[0] == '.') continue;
    const std::string path = base + e->d_name;
    struct stat st {};
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
    FileInfo info{};
    if (imkFileInformation(path.c_str(), -1, 0, &info) == 0) found.push_back(path);
  }
  closedir(dir);
  std::sort(found.begin(), found.end());
  return found;
}

int SlideAdvance(int32_t* current, uint8_t* shown, int32_t count, uint32_t flags, int step,
                 int (*randomValue)()) {
  if (count <= 0) return -1;
  *current += step == 0 ? 1 : step;
  if (*current < 0 || *current >= count) {
    if (!(flags & kSlideLoop)) return -1;
    *current = *current < 0 ? count - 1 : 0;
    if (shown) std::memset(shown, 0, static_cast<size_t>(count));
  }
  if (!(flags & kSlideRandom) || !shown) return *current;
  // Random order: from a random start take the first file not shown yet in
  // this round, wrapping once; when all were shown, a new round begins with
  // the first file. `current` goes on counting steps, so that a show without
  // loop still ends after `count` pictures.
  const int32_t r = randomValue() % count;
  int32_t pick = -1;
  for (int32_t i = r; i < count && pick < 0; ++i)
    if (!shown[i]) pick = i;
  for (int32_t i = 0; i < r && pick < 0; ++i)
    if (!shown[i]) pick = i;
  if (pick < 0) {
    std::memset(shown, 0, static_cast<size_t>(count));
    pick = 0;
  }
  shown[pick] = 1;
  return pick;
}

}  // namespace tools
