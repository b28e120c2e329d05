// Redraw timing of the screen-image converter: a 6000 x 4000 picture fitted
// into a 1280 x 1024 window, prepared with ConvertBitmapToImage and drawn
// whole with drawArea, through shared memory and through plain XPutImage.
//   bench_display [runs]      (needs DISPLAY; bench/display_run.sh starts Xvfb)
#include <X11/Xlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "display/colormap.h"
#include "display/converter.h"
#include "display/visual.h"
#include "imgkit/imgkit.h"

namespace {

constexpr int kWindowW = 1280, kWindowH = 1024;
constexpr int kPictureW = 6000, kPictureH = 4000;
constexpr double kBudgetMs = 30.0;

double now() {
  return std::chrono::duration<double, std::milli>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 9;
  Display* display = XOpenDisplay(nullptr);
  if (!display) {
    fprintf(stderr, "bench_display: no X display (run bench/display_run.sh)\n");
    return 1;
  }
  DisplayVisual visual{};
  chooseVisual(display, -1, &visual);
  ImageRecord picture{};
  if (!imkAllock(&picture, IMK_RGB, 8, kPictureW, kPictureH)) {
    fprintf(stderr, "bench_display: not enough memory\n");
    return 1;
  }
  for (int y = 0; y < kPictureH; ++y) {
    unsigned char* row = picture.pixels + static_cast<size_t>(y) * picture.bytesPerLine;
    for (int x = 0; x < kPictureW; ++x) {
      row[3 * x] = static_cast<unsigned char>(x);
      row[3 * x + 1] = static_cast<unsigned char>(y);
      row[3 * x + 2] = static_cast<unsigned char>(x ^ y);
    }
  }
  ColormapRecord* colormap = acquireColormap(display, picture, visual, false);

  // Fit: the larger scale that keeps the whole picture inside the window.
  int outW = kWindowW, outH = kPictureH * kWindowW / kPictureW;
  if (outH > kWindowH) {
    outH = kWindowH;
    outW = kPictureW * kWindowH / kPictureH;
  }

  const int screen = DefaultScreen(display);
  XSetWindowAttributes attributes{};
  attributes.colormap = colormap->colormap;
  attributes.background_pixel = colormap->blackPixel;
  Window window =
      XCreateWindow(display, RootWindow(display, screen), 0, 0, kWindowW, kWindowH, 0, visual.depth,
                    InputOutput, visual.visual, CWColormap | CWBackPixel, &attributes);
  XMapWindow(display, window);
  GC gc = XCreateGC(display, window, 0, nullptr);
  XSync(display, False);

  printf("Fit redraw of a %dx%d picture at %dx%d in a %dx%d window, median of %d runs\n", kPictureW,
         kPictureH, outW, outH, kWindowW, kWindowH, runs);
  for (bool shm : {true, false}) {
    setConverterSharedMemory(shm);
    ImageConverter converter;
    initConverter(&converter, display, colormap, &visual);
    if (shm && !converter.useShm) {
      printf("  MIT-SHM      : not available\n");
      freeConverter(&converter);
      continue;
    }
    std::vector<double> prepare, draw;
    const XRectangle whole{0, 0, kWindowW, kWindowH};
    for (int i = 0; i < runs + 1; ++i) {
      const double t0 = now();
      ConvertBitmapToImage(&converter, &picture, outW, outH);
      const double t1 = now();
      drawArea(window, gc, &converter, (kWindowW - outW) / 2, (kWindowH - outH) / 2, whole);
      XSync(display, False);
      const double t2 = now();
      if (i == 0) continue;  // warm-up: page faults of the fresh tables
      prepare.push_back(t1 - t0);
      draw.push_back(t2 - t1);
    }
    std::vector<double> total;
    for (size_t i = 0; i < draw.size(); ++i) total.push_back(prepare[i] + draw[i]);
    const double ms = median(total);
    printf("  %-13s: prepare %6.2f ms  draw %6.2f ms  total %6.2f ms  (budget %.0f ms: %s)\n",
           shm ? "MIT-SHM" : "XPutImage", median(prepare), median(draw), ms, kBudgetMs,
           ms < kBudgetMs ? "met" : "MISSED");
    freeConverter(&converter);
  }
  XFreeGC(display, gc);
  XDestroyWindow(display, window);
  releaseColormap(colormap);
  freeAllColormaps();
  imkFree(&picture);
  XCloseDisplay(display);
  return 0;
}
