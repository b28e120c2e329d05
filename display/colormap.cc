// The process-wide list of colormap records, the colour cubes allocated in
// them on mapped visuals, and the cached ordered-dither tables.
#include "display/colormap.h"

#include <X11/Xutil.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "display/xerror.h"

namespace {

ColormapRecord* recordList = nullptr;
DitherCube* cubeList = nullptr;

// The 8x8 thresholds (in 64ths) of the cube dither, row by row. It is not a
// regular Bayer matrix: some values repeat and some never occur, and the
// pictures on screen are expected to look exactly like this.
constexpr uint8_t kThresholds[8][8] = {
    {0, 38, 9, 47, 2, 40, 11, 50},  {25, 12, 35, 22, 27, 15, 37, 24},
    {6, 44, 3, 41, 8, 47, 5, 43},   {31, 19, 28, 15, 34, 21, 31, 18},
    {1, 39, 11, 49, 0, 39, 10, 48}, {27, 14, 36, 23, 26, 13, 35, 23},
    {7, 46, 4, 43, 7, 45, 3, 42},   {33, 20, 30, 17, 32, 19, 29, 16},
};

bool isMapped(const Visual* visual) {
  return visual->c_class == PseudoColor || visual->c_class == GrayScale;
}

bool isDefaultColormap(const ColormapRecord* record) {
  const int screen = screenOfVisual(record->display, record->visual);
  return record->colormap == DefaultColormap(record->display, screen);
}

// One channel's table: the level below the value, how far (in 64ths) the
// value lies towards the next level, and both levels times the weight.
void buildChannel(DitherEntry* table, uint32_t levels, uint32_t weight, const char* name,
                  const char* format) {
  const uint32_t n1 = levels - 1;
  for (uint32_t v = 0; v < 256; ++v) {
    // level = v / (255 / n1) and fraction = (v - level * step) / (step / 63),
    // in exact integer form: the floating-point quotient of v = 255 comes out
    // a hair under 63 and would truncate to 62.
    uint32_t level = v * n1 / 255;
    if (level == n1) level = n1 - 1;
    const uint32_t fraction = (v * n1 - level * 255) * 63 / 255;
    if (fraction > 63) printf(format, name, static_cast<int>(v), static_cast<int>(fraction));
    table[v].fraction = static_cast<uint8_t>(fraction);
    table[v].lowTerm = static_cast<uint8_t>(level * weight);
    table[v].highTerm = static_cast<uint8_t>((level + 1) * weight);
    table[v].unused = 0;
  }
}

void freeCube(DitherCube* cube) {
  delete[] cube->redTable;
  delete[] cube->greenTable;
  delete[] cube->blueTable;
  delete[] cube->matrix;
  delete cube;
}

XColor channelColour(unsigned long pixel, unsigned red, unsigned green, unsigned blue) {
  XColor c{};
  c.pixel = pixel;
  c.red = static_cast<unsigned short>(red);
  c.green = static_cast<unsigned short>(green);
  c.blue = static_cast<unsigned short>(blue);
  c.flags = DoRed | DoGreen | DoBlue;
  return c;
}

// DirectColor maps are indexed per channel: allocate a ramp in which each
// channel only takes the values its levels can show.
void fillDirectColour(ColormapRecord* record, const DisplayVisual& visual) {
  const int size = visual.colormapSize;
  if (size < 2) return;
  auto keep = [](int levels) { return static_cast<unsigned>((levels - 1) * (65536 / levels)); };
  for (int i = 0; i < size; ++i) {
    const unsigned v = static_cast<uint16_t>(static_cast<unsigned>(i) * 65535u / (size - 1));
    XColor c = channelColour(0, v & keep(visual.redLevels), v & keep(visual.greenLevels),
                             v & keep(visual.blueLevels));
    XAllocColor(record->display, record->colormap, &c);
  }
}

}  // namespace

ColormapRecord* colormapList() { return recordList; }

DitherCube* getDitherCube(uint32_t r, uint32_t g, uint32_t b) {
  for (DitherCube* c = cubeList; c; c = c->next)
    if (c->redLevels == r && c->greenLevels == g && c->blueLevels == b) return c;

  auto* cube = new DitherCube{};
  cube->redLevels = r;
  cube->greenLevels = g;
  cube->blueLevels = b;
  cube->matrix = new uint8_t[8][8][64];
  for (int row = 0; row < 8; ++row)
    for (int col = 0; col < 8; ++col)
      for (int f = 0; f < 64; ++f) cube->matrix[row][col][f] = f > kThresholds[row][col];
  cube->redTable = new DitherEntry[256];
  cube->greenTable = new DitherEntry[256];
  cube->blueTable = new DitherEntry[256];
  buildChannel(cube->redTable, r, g * b, "red", "ERROR ptr->%s: %d  %d \n");
  buildChannel(cube->greenTable, g, b, "green", "ERROR ptr->%s: %d   %d \n");
  buildChannel(cube->blueTable, b, 1, "blue", "ERROR ptr->%s: %d   %d \n");
  cube->next = cubeList;
  cubeList = cube;
  return cube;
}

bool allocColorCube(ColormapRecord* record, uint32_t r, uint32_t g, uint32_t b, bool allocate) {
  const uint32_t count = r * g * b;
  if (r < 2 || g < 2 || b < 2 || count > 256) return false;
  std::vector<XColor> stored;
  uint32_t index = 0;
  for (uint32_t ri = 0; ri < r; ++ri) {
    for (uint32_t gi = 0; gi < g; ++gi) {
      for (uint32_t bi = 0; bi < b; ++bi, ++index) {
        XColor c =
            channelColour(index, ri * 65535 / (r - 1), gi * 65535 / (g - 1), bi * 65535 / (b - 1));
        if (allocate) {
          if (!XAllocColor(record->display, record->colormap, &c)) {
            // Give back every cell this attempt took, so that a smaller
            // cube can be tried in the space a partial one would waste.
            std::vector<unsigned long> taken(record->pixels, record->pixels + index);
            if (!taken.empty())
              XFreeColors(record->display, record->colormap, taken.data(),
                          static_cast<int>(taken.size()), 0);
            std::memset(record->pixels, 0, sizeof record->pixels);
            return false;
          }
        } else {
          stored.push_back(c);
        }
        record->pixels[index] = static_cast<uint32_t>(c.pixel);
      }
    }
  }
  if (!allocate)
    XStoreColors(record->display, record->colormap, stored.data(), static_cast<int>(stored.size()));

  record->blackPixel = record->pixels[0];
  record->whitePixel = record->pixels[count - 1];
  if (r == 2 && g == 2 && b == 2)
    record->mode = kModeCube222;
  else if (r == 4 && g == 4 && b == 4)
    record->mode = kModeCube444;
  else if (r == 4 && g == 8 && b == 4)
    record->mode = kModeCube484;
  else if (r == 6 && g == 6 && b == 6)
    record->mode = kModeCube666;
  else
    record->mode = kModeCube884;
  record->colourCount = count;
  fprintf(stderr, "Use %dx%dx%d colormap \n", static_cast<int>(r), static_cast<int>(g),
          static_cast<int>(b));
  record->cube = getDitherCube(r, g, b);
  return true;
}

void storePalette(const ImageRecord& picture, ColormapRecord* record) {
  if (picture.type & (IMK_BINARY | IMK_GREY | IMK_MAPPED)) {
    int n = picture.colorCount;
    if (n > 256) n = 256;
    if (n < 0) n = 0;
    std::vector<XColor> colours;
    for (int i = 0; i < n; ++i) {
      unsigned red, green, blue;
      if (picture.palette) {
        red = picture.palette[i] * 257u;
        green = picture.palette[256 + i] * 257u;
        blue = picture.palette[512 + i] * 257u;
      } else {
        red = green = blue = n > 1 ? static_cast<unsigned>(i) * 65535u / (n - 1) : 0;
      }
      colours.push_back(channelColour(static_cast<unsigned long>(i), red, green, blue));
      record->pixels[i] = static_cast<uint32_t>(i);
    }
    if (!colours.empty()) {
      // A colormap that was not made writable (an "own" colormap on a visual
      // of fewer than 8 bits) refuses the store; the old colours then stay.
      XErrorTrap trap(record->display);
      XStoreColors(record->display, record->colormap, colours.data(),
                   static_cast<int>(colours.size()));
    }
    record->colourCount = static_cast<uint32_t>(n);
  } else {
    XErrorTrap trap(record->display);
    allocColorCube(record, 8, 8, 4, false);
  }
  record->mode = kModePalette;
  record->privatePalette = 1;
}

void fillColormap(ColormapRecord* record, const ImageRecord& picture, int depth, bool wantOwn) {
  std::memset(record->pixels, 0, sizeof record->pixels);
  if (depth <= 2) {
    XColor black = channelColour(0, 0, 0, 0);
    XColor white = channelColour(0, 65535, 65535, 65535);
    if (!XAllocColor(record->display, record->colormap, &black)) {
      fprintf(stderr, "Failed to allocate\n");
      black.pixel = 0;
    }
    if (!XAllocColor(record->display, record->colormap, &white)) {
      fprintf(stderr, "Failed to allocate\n");
      white.pixel = 0;
    }
    record->pixels[0] = record->blackPixel = static_cast<uint32_t>(black.pixel);
    record->pixels[1] = record->whitePixel = static_cast<uint32_t>(white.pixel);
    record->colourCount = 2;
    return;
  }
  if (depth > 4 && wantOwn) {
    storePalette(picture, record);
    return;
  }
  if (depth > 4) {
    static const uint32_t kLadder[][3] = {{8, 8, 4}, {6, 6, 6}, {4, 8, 4}, {4, 4, 4}};
    for (const auto& size : kLadder)
      if (allocColorCube(record, size[0], size[1], size[2], true)) return;
  }
  // The last resort; when even this fails every pixel stays 0.
  allocColorCube(record, 2, 2, 2, true);
}

ColormapRecord* acquireColormap(Display* display, const ImageRecord& picture,
                                const DisplayVisual& visual, bool wantOwn) {
  Visual* v = visual.visual;
  const bool mapped = isMapped(v);
  if (!(wantOwn && mapped)) {
    for (ColormapRecord* r = recordList; r; r = r->next) {
      if (r->shared == 1 && r->display == display &&
          XVisualIDFromVisual(r->visual) == visual.visualId) {
        ++r->refCount;
        return r;
      }
    }
  }

  const int screen = screenOfVisual(display, v);
  auto* record = new ColormapRecord{};
  record->next = recordList;
  recordList = record;
  record->display = display;
  record->visual = v;
  record->blackPixel = static_cast<uint32_t>(BlackPixel(display, screen));
  record->whitePixel = static_cast<uint32_t>(WhitePixel(display, screen));
  if (!mapped) {
    record->blackPixel = 0;
    record->whitePixel = static_cast<uint32_t>(directPixel(visual, 255, 255, 255));
  }

  const Window root = RootWindow(display, screen);
  if (!wantOwn && v == DefaultVisual(display, screen)) {
    record->colormap = DefaultColormap(display, screen);
    record->shared = 1;
  } else if (!mapped) {
    record->colormap = XCreateColormap(display, root, v, AllocNone);
    record->shared = 1;
  } else if (visual.depth > 7 && wantOwn) {
    record->colormap = XCreateColormap(display, root, v, AllocAll);
  } else {
    record->colormap = XCreateColormap(display, root, v, AllocNone);
    record->shared = 1;
  }

  if (v->c_class == DirectColor)
    fillDirectColour(record, visual);
  else if (mapped)
    fillColormap(record, picture, visual.depth, wantOwn);

  record->refCount = 1;
  return record;
}

void releaseColormap(ColormapRecord* record) {
  ColormapRecord** link = &recordList;
  while (*link && *link != record) link = &(*link)->next;
  if (!*link) return;
  const uint32_t count = record->refCount;
  if (count > 0) --record->refCount;
  if (count == 1 && !record->shared) {
    if (!isDefaultColormap(record)) XFreeColormap(record->display, record->colormap);
    *link = record->next;
    delete record;
  }
}

void restorePalette(const ImageRecord& picture, ColormapRecord* record) {
  if (record && record->privatePalette) storePalette(picture, record);
}

void freeAllColormaps() {
  while (ColormapRecord* record = recordList) {
    recordList = record->next;
    if (isDefaultColormap(record)) {
      if (isMapped(record->visual) && record->colourCount > 0) {
        std::vector<unsigned long> pixels(record->pixels, record->pixels + record->colourCount);
        XFreeColors(record->display, record->colormap, pixels.data(),
                    static_cast<int>(pixels.size()), 0);
      }
    } else {
      XFreeColormap(record->display, record->colormap);
    }
    delete record;
  }
  while (DitherCube* cube = cubeList) {
    cubeList = cube->next;
    freeCube(cube);
  }
}
