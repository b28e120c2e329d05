// Times the picture operations of process/ on one picture, as the view
// window's menus and the batch conversion call them. The picture is loaded
// once; each operation then runs several times with a destination record (the
// source stays untouched) and the result is freed after each run. Only the
// operation is timed, not the load or the freeing. bench/process_run.sh sets
// these times side by side with peer tools.
//
//   bench_process [--cpu] [--repeat N] file op...     (op "all" runs every operation)
//   bench_process --list
//
// Prints one line per operation: name, best wall time in seconds.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "imgkit/imgkit.h"
#include "process/colour_reduce.h"
#include "process/convert.h"
#include "process/effects.h"
#include "process/filter.h"
#include "process/geometry.h"
#include "process/resize.h"
#include "process/tone.h"

namespace {

// The floor: a fresh picture of the same kind and a plain copy of the bytes,
// which is the least any operation producing a new picture has to do.
int copyPicture(ImageRecord* src, ImageRecord* dst) {
  ImageRecord r{};
  if (!imkAllock(&r, src->type, src->bitsPerComponent, src->width, src->height)) return 1;
  std::memcpy(r.pixels, src->pixels, static_cast<size_t>(src->bytesPerLine) * src->height);
  if (src->palette && r.palette) std::memcpy(r.palette, src->palette, 768);
  *dst = r;
  return 0;
}

// Memory bandwidth alone: a copy into a buffer that is reused between runs,
// so its pages are already mapped. The result is a throw-away empty record.
int copyWarm(ImageRecord* src, ImageRecord* dst) {
  static std::vector<uint8_t> buffer;
  const size_t n = static_cast<size_t>(src->bytesPerLine) * src->height;
  if (buffer.size() < n) buffer.resize(n);
  std::memcpy(buffer.data(), src->pixels, n);
  *dst = ImageRecord{};
  return 0;
}

using Operation = int (*)(ImageRecord* src, ImageRecord* dst);

struct Entry {
  const char* name;
  const char* what;
  Operation run;
};

// Every operation the benchmark knows, with the exact call it makes.
const Entry kOperations[] = {
    {"copy", "new picture + memcpy of the pixels (floor)", copyPicture},
    {"memcpy-warm", "memcpy into an already mapped buffer (bandwidth only)", copyWarm},
    {"grey", "convertPicture to 256 grey levels, plain",
     [](ImageRecord* s, ImageRecord* d) {
       return process::convertPicture(s, d, process::kToGrey256, process::kMethodPlain);
     }},
    {"fs-binary", "convertPicture to binary, error diffusion",
     [](ImageRecord* s, ImageRecord* d) {
       return process::convertPicture(s, d, process::kToBinary, process::kMethodErrorDiffusion);
     }},
    {"colours256-adaptive", "reduceColours 256, adaptive palette (box splitting)",
     [](ImageRecord* s, ImageRecord* d) { return process::reduceColours(s, d, 256, 0); }},
    {"colours256-dither", "reduceColours 256, ordered dither onto the colour cube",
     [](ImageRecord* s, ImageRecord* d) { return process::reduceColours(s, d, 256, 1); }},
    {"equalize", "equalizePicture", process::equalizePicture},
    {"normalize", "normalizePicture", process::normalizePicture},
    {"gamma", "gammaPicture 1.5",
     [](ImageRecord* s, ImageRecord* d) { return process::gammaPicture(s, d, 1.5); }},
    {"negate", "negatePicture", process::negatePicture},
    {"sharpen3", "sharpenFilter strength 50 (3x3)",
     [](ImageRecord* s, ImageRecord* d) { return process::sharpenFilter(s, d, 50); }},
    {"focus3", "convolve3x3 kernel 2 (0 -1 0 / -1 5 -1 / 0 -1 0)",
     [](ImageRecord* s, ImageRecord* d) { return process::convolve3x3(s, d, 2); }},
    {"gauss5", "gaussianFilter size 5",
     [](ImageRecord* s, ImageRecord* d) { return process::gaussianFilter(s, d, 5); }},
    {"median3", "medianBoxFilter size 3",
     [](ImageRecord* s, ImageRecord* d) { return process::medianBoxFilter(s, d, 3); }},
    {"median5", "medianBoxFilter size 5",
     [](ImageRecord* s, ImageRecord* d) { return process::medianBoxFilter(s, d, 5); }},
    {"oil3", "oilPaintEffect radius 3 (7x7 window)",
     [](ImageRecord* s, ImageRecord* d) { return process::oilPaintEffect(s, d, 3); }},
    {"turn90", "rotateQuarter clockwise",
     [](ImageRecord* s, ImageRecord* d) { return process::rotateQuarter(s, d, 1); }},
    {"flip", "flipHorizontal", process::flipHorizontal},
    {"half", "resizePicture to half size, linear (area average)",
     [](ImageRecord* s, ImageRecord* d) {
       return process::resizePicture(s, d, s->width / 2, s->height / 2, process::kResampleLinear);
     }},
};

const Entry* findOperation(const std::string& name) {
  for (const Entry& e : kOperations)
    if (name == e.name) return &e;
  return nullptr;
}

bool gCpuTime = false;  // --cpu: the thread's processor time instead of wall time

double now() {
  if (!gCpuTime)
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// Best time of `repeat` runs; -1 when the operation fails.
double timeOperation(const Entry& op, ImageRecord* picture, int repeat) {
  double best = 1e9;
  for (int r = 0; r < repeat; ++r) {
    ImageRecord result{};
    const double t0 = now();
    const int rc = op.run(picture, &result);
    const double t1 = now();
    if (rc != 0) return -1;
    if (result.pixels || result.palette) imkFree(&result);
    best = std::min(best, t1 - t0);
  }
  return best;
}

int usage() {
  std::fprintf(stderr, "usage: bench_process [--cpu] [--repeat N] file op...  |  bench_process --list\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  int repeat = 3;
  int first = 1;
  for (; first < argc && argv[first][0] == '-'; ++first) {
    if (!std::strcmp(argv[first], "--list")) {
      for (const Entry& e : kOperations) std::printf("%-20s %s\n", e.name, e.what);
      return 0;
    }
    if (!std::strcmp(argv[first], "--cpu")) {
      gCpuTime = true;
    } else if (!std::strcmp(argv[first], "--repeat") && first + 1 < argc) {
      repeat = std::max(1, std::atoi(argv[++first]));
    } else {
      return usage();
    }
  }
  if (argc - first < 2) return usage();

  std::vector<const Entry*> chosen;
  for (int i = first + 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "all")) {
      for (const Entry& e : kOperations) chosen.push_back(&e);
    } else if (const Entry* e = findOperation(argv[i])) {
      chosen.push_back(e);
    } else {
      std::fprintf(stderr, "bench_process: unknown operation %s (see --list)\n", argv[i]);
      return 2;
    }
  }

  LoadOptions options;
  imkDefaultOption(&options);
  ImageRecord picture{};
  if (const int rc = imkLoad(argv[first], &picture, &options, nullptr); rc != 0) {
    std::fprintf(stderr, "%s: load error %d\n", argv[first], rc);
    return 1;
  }
  std::fprintf(stderr, "%s: %dx%d type %d\n", argv[first], picture.width, picture.height,
               picture.type);

  int status = 0;
  for (const Entry* op : chosen) {
    const double t = timeOperation(*op, &picture, repeat);
    if (t < 0) {
      std::fprintf(stderr, "%s: failed\n", op->name);
      status = 1;
      continue;
    }
    std::printf("%s %.4f\n", op->name, t);
    std::fflush(stdout);
  }
  imkFree(&picture);
  return status;
}
