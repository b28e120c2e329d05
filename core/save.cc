// SavePicture and the per-format save options.
#include "core/save.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/messages.h"
#include "core/settings.h"
#include "process/conversion_items.h"
#include "process/resize.h"

namespace {

std::atomic<int> gRememberedChoice{kNoConversion};

// A temporary picture released on every way out.
struct TempPicture {
  ImageRecord rec{};
  ~TempPicture() {
    if (rec.pixels || rec.palette) imkFree(&rec);
  }
  bool empty() const { return !rec.pixels; }
};

bool isTrueColour(uint16_t type) { return type & 0xF00; }

// The kind entry accepting the picture, or null. A format without any entry
// accepts everything.
const ImkKind* acceptingKind(const FormatInfo& info, const ImageRecord& picture, bool* anyKind) {
  *anyKind = info.kinds[0].kind >= 0xFFFF;
  for (int i = 0; i < IMK_MAX_KINDS && info.kinds[i].kind < 0xFFFF; ++i) {
    const ImkKind& k = info.kinds[i];
    const bool allColours = k.maxColors >= 0xFFFFFFFEu;
    const uint32_t colours = static_cast<uint32_t>(picture.colorCount);
    switch (k.kind) {
      case IMK_BINARY:
        if (picture.type == IMK_BINARY) return &k;
        break;
      case IMK_GREY:
      case IMK_MAPPED:
        if (picture.type == k.kind && (allColours || colours <= k.maxColors)) return &k;
        break;
      case IMK_ANY_TRUECOLOR:
        if (isTrueColour(picture.type)) return &k;
        break;
      default:
        break;
    }
  }
  return nullptr;
}

// The fixed size a kind entry demands, when the picture is not already of it.
bool needsResize(const ImkKind* k, const ImageRecord& picture, int* w, int* h) {
  if (!k || k->width >= 0xFFFFFFFFu) return false;
  *w = static_cast<int>(k->width);
  *h = static_cast<int>(k->height);
  return picture.width != *w || picture.height != *h;
}

// The size a conversion's result must have: the fixed size of the first
// entry of the converted picture's kind, if any.
bool sizeAfterConversion(const FormatInfo& info, int item, const ImageRecord& picture, int* w,
                         int* h) {
  const process::ConversionItem* c = process::conversionItem(item);
  if (!c) return false;
  // The kind the conversion produces: binary, grey, colour-mapped or true colour.
  uint32_t kind = c->code == 1    ? IMK_BINARY
                  : c->code <= 9  ? IMK_GREY
                  : c->code <= 18 ? IMK_MAPPED
                                  : IMK_ANY_TRUECOLOR;
  for (int i = 0; i < IMK_MAX_KINDS && info.kinds[i].kind < 0xFFFF; ++i)
    if (info.kinds[i].kind == kind) return needsResize(&info.kinds[i], picture, w, h);
  return false;
}

void say(const SaveHooks& hooks, void (*show)(void*, const char*), const std::string& text) {
  if (show) show(hooks.data, text.c_str());
}

}  // namespace

int RememberedConversion() { return gRememberedChoice.load(); }

bool FormatAccepts(const FormatInfo& info, const ImageRecord& picture, int* requiredWidth,
                   int* requiredHeight) {
  bool any = false;
  const ImkKind* k = acceptingKind(info, picture, &any);
  *requiredWidth = *requiredHeight = -1;
  if (k && k->width < 0xFFFFFFFFu) {
    *requiredWidth = static_cast<int>(k->width);
    *requiredHeight = static_cast<int>(k->height);
  }
  return k || any;
}

void SaveOptionsFor(int16_t formatIndex, int extraFlags, LoadOptions* o) {
  imkDefaultOption(o);
  o->flags = static_cast<uint16_t>((extraFlags ? 193 : 1) | 4);
  o->formatIndex = formatIndex;
  o->saveQuality = 100;
  o->saveOption = 0;
  o->saveOption2 = 0;
  const Settings& s = gSettings;
  struct Word {
    const char* shortName;
    int value;
  };
  if (formatIndex == imkGetIndex("jpeg")) {
    o->saveQuality = static_cast<uint16_t>(s.saveJpegQuality);
    o->saveOption = s.saveJpegProgressive;
    return;
  }
  if (formatIndex == imkGetIndex("png")) {
    o->saveQuality = static_cast<uint16_t>(s.savePngQuality);
    return;
  }
  const Word words[] = {
      {"gif", s.saveGifInterlaced}, {"iff", s.saveIffCompress},   {"pcx", s.savePcxCompress},
      {"tga", s.saveTgaCompress},   {"tiff", s.saveTiffCompress}, {"soft", s.saveSoftCompress},
      {"sgi", s.saveRgbCompress},   {"bmp", s.saveBmpCompress},
  };
  for (const Word& w : words)
    if (formatIndex == imkGetIndex(w.shortName)) {
      o->saveOption = static_cast<uint16_t>(w.value);
      return;
    }
}

int SavePicture(const SaveHooks& hooks, const char* path, int16_t formatIndex,
                const ImageRecord* picture, int extraFlags, int batchContinuation,
                bool showProgress) {
  FormatInfo info{};
  imkGetInfo(formatIndex, &info);
  return SavePictureFitting(hooks, path, formatIndex, info, picture, extraFlags, batchContinuation,
                            showProgress);
}

int SavePictureFitting(const SaveHooks& hooks, const char* path, int16_t formatIndex,
                       const FormatInfo& info, const ImageRecord* picture, int extraFlags,
                       int batchContinuation, bool showProgress) {
  std::atomic<int>& remembered =
      hooks.rememberedChoice ? *hooks.rememberedChoice : gRememberedChoice;
  if (!batchContinuation) remembered = kNoConversion;

  bool anyKind = false;
  const ImkKind* accepted = acceptingKind(info, *picture, &anyKind);
  const ImageRecord* toSave = picture;
  TempPicture resized, converted;
  char status[64];

  if (!accepted && !anyKind) {
    int choice = remembered.load();
    if (!(batchContinuation && choice != kNoConversion)) {
      const std::string title = std::string("Convert \"") + path + "\"";
      choice = hooks.askConversion ? hooks.askConversion(hooks.data, title.c_str(), *picture) : 0;
    }
    if (choice < 1 || choice > process::kConversionItemCount) return kSaveCancelled;
    const ImageRecord* from = picture;
    int w, h;
    if (sizeAfterConversion(info, choice, *picture, &w, &h)) {
      if (batchContinuation) {
        std::snprintf(status, sizeof status, "Resizing in %dx%d", w, h);
        say(hooks, hooks.showStatus, status);
      }
      if (process::resizePicture(const_cast<ImageRecord*>(picture), &resized.rec, w, h) != 0) {
        say(hooks, hooks.showError, "Error converting picture !!");
        return kSaveCancelled;
      }
      from = &resized.rec;
    }
    if (process::convertByItem(const_cast<ImageRecord*>(from), &converted.rec, choice) != 0 ||
        converted.empty()) {
      say(hooks, hooks.showError, "Error converting picture !!");
      return kSaveCancelled;
    }
    remembered = choice;
    toSave = &converted.rec;
  } else {
    int w, h;
    if (needsResize(accepted, *picture, &w, &h)) {
      if (batchContinuation) {
        std::snprintf(status, sizeof status, "Resizing in %dx%d", w, h);
        say(hooks, hooks.showStatus, status);
      }
      if (process::resizePicture(const_cast<ImageRecord*>(picture), &resized.rec, w, h) != 0)
        return 1;  // not enough memory
      toSave = &resized.rec;
    }
  }

  if (hooks.busy) hooks.busy(hooks.data, true);
  const bool progress = showProgress && hooks.openProgress;
  if (progress) {
    const char* slash = std::strrchr(path, '/');
    const std::string text = std::string("Saving ") + (slash ? slash + 1 : path);
    hooks.openProgress(hooks.data, "Saving...", text.c_str());
  }
  LoadOptions options;
  SaveOptionsFor(formatIndex, extraFlags, &options);
  if (progress) options.progress = hooks.progress;
  const int rc = imkSave(path, toSave, &options) & 0xFF;
  if (progress && hooks.closeProgress) hooks.closeProgress(hooks.data);
  if (hooks.busy) hooks.busy(hooks.data, false);
  // 15: the user stopped the save from the progress dialog; nothing to report.
  if (rc != 0 && rc != 15) say(hooks, hooks.showError, PictureErrorText(path, rc, nullptr));
  return rc;
}
