// Picture to screen pixels. The scaling tables built per picture and output
// size make every inner loop pure indexing; the per-layout loops are
// templates over the picture's pixel layout, the pixel rule and the way a
// pixel is stored in the tile.
#include "display/converter.h"

#include <X11/Xutil.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "display/xerror.h"

namespace {

constexpr int kTileSize = 256;

int shmSetting = -1;  // -1: not decided yet (environment), 0 off, 1 on

bool shmAllowed() {
  if (shmSetting < 0) shmSetting = getenv("VIMORA_NO_SHM") ? 0 : 1;
  return shmSetting == 1;
}

// Shared memory only reaches a server on this machine.
bool isLocal(Display* display) {
  const char* name = DisplayString(display);
  return name[0] == ':' || strncmp(name, "unix:", 5) == 0;
}

// The 16x16 Bayer index matrix: from N of size n, the matrix of size 2n is
// [[4N, 4N+2], [4N+3, 4N+1]], starting from the 1x1 matrix 0.
struct Bayer16 {
  uint8_t cell[16][16];
};

constexpr Bayer16 makeBayer16() {
  Bayer16 b{};
  for (int n = 1; n < 16; n *= 2) {
    for (int y = 0; y < n; ++y) {
      for (int x = 0; x < n; ++x) {
        const int v = b.cell[y][x] * 4;
        b.cell[y][x] = static_cast<uint8_t>(v);
        b.cell[y][x + n] = static_cast<uint8_t>(v + 2);
        b.cell[y + n][x] = static_cast<uint8_t>(v + 3);
        b.cell[y + n][x + n] = static_cast<uint8_t>(v + 1);
      }
    }
  }
  return b;
}

constexpr Bayer16 kBayer = makeBayer16();

// Picture layouts: a palette index, or three bytes at fixed offsets.
struct PaletteSource {
  static constexpr bool kPalette = true;
  static void read(const ImageConverter* c, const uint8_t* p, unsigned& r, unsigned& g,
                   unsigned& b) {
    r = c->red[*p];
    g = c->green[*p];
    b = c->blue[*p];
  }
};

template <int kR, int kG, int kB>
struct TrueColourSource {
  static constexpr bool kPalette = false;
  static void read(const ImageConverter*, const uint8_t* p, unsigned& r, unsigned& g, unsigned& b) {
    r = p[kR];
    g = p[kG];
    b = p[kB];
  }
};

using RgbSource = TrueColourSource<0, 1, 2>;   // R,G,B and R,G,B,spare
using BgrSource = TrueColourSource<2, 1, 0>;   // B,G,R
using XbgrSource = TrueColourSource<3, 2, 1>;  // spare,B,G,R

// Pixel rules.
struct Rgb32Rule {  // masks red 0xFF, green 0xFF00, blue 0xFF0000
  Rgb32Rule(const ColormapRecord*, const ImageConverter*) {}
  template <class S>
  uint32_t pixel(const ImageConverter* c, const uint8_t* p, int, int) const {
    unsigned r, g, b;
    S::read(c, p, r, g, b);
    return r | g << 8 | b << 16;
  }
};

struct Bgr32Rule {  // masks red 0xFF0000, green 0xFF00, blue 0xFF
  Bgr32Rule(const ColormapRecord*, const ImageConverter*) {}
  template <class S>
  uint32_t pixel(const ImageConverter* c, const uint8_t* p, int, int) const {
    unsigned r, g, b;
    S::read(c, p, r, g, b);
    return b | g << 8 | r << 16;
  }
};

struct DirectRule {
  const DisplayVisual* visual;
  DirectRule(const ColormapRecord*, const ImageConverter* c) : visual(c->visual) {}
  template <class S>
  unsigned long pixel(const ImageConverter* c, const uint8_t* p, int, int) const {
    unsigned r, g, b;
    S::read(c, p, r, g, b);
    return directPixel(*visual, r, g, b);
  }
};

struct CubeRule {
  const DitherCube* cube;
  const uint32_t* pixels;
  CubeRule(const ColormapRecord* cm, const ImageConverter*)
      // A record whose last-resort cube could not be allocated has no
      // tables; its pixels are all 0, so any in-range index will do.
      : cube(cm->cube ? cm->cube : getDitherCube(2, 2, 2)), pixels(cm->pixels) {}
  template <class S>
  uint32_t pixel(const ImageConverter* c, const uint8_t* p, int x, int y) const {
    unsigned r, g, b;
    S::read(c, p, r, g, b);
    return pixels[ditherIndex(*cube, r, g, b, x, y)];
  }
};

// Eight colours: a channel bit is set when the value is strictly above the
// threshold; bit 2 red, bit 1 green, bit 0 blue, the 2x2x2 cube's order.
struct Threshold8Rule {
  const uint32_t* pixels;
  Threshold8Rule(const ColormapRecord* cm, const ImageConverter*) : pixels(cm->pixels) {}
  template <class S>
  uint32_t pixel(const ImageConverter* c, const uint8_t* p, int x, int y) const {
    unsigned r, g, b;
    S::read(c, p, r, g, b);
    const unsigned t = kBayer.cell[y & 15][x & 15];
    return pixels[(r > t) << 2 | (g > t) << 1 | (b > t)];
  }
};

// Black or white: white when the luminance is at or above the threshold
// (unlike the colour rule, so black still lights the one cell of 0).
struct MonoRule {
  uint32_t black, white;
  MonoRule(const ColormapRecord* cm, const ImageConverter*)
      : black(cm->pixels[0]), white(cm->pixels[1]) {}
  template <class S>
  uint32_t pixel(const ImageConverter* c, const uint8_t* p, int x, int y) const {
    unsigned r, g, b;
    S::read(c, p, r, g, b);
    const unsigned luminance = (77 * r + 150 * g + 29 * b) >> 8;
    return luminance >= kBayer.cell[y & 15][x & 15] ? white : black;
  }
};

struct PrivatePaletteRule {  // palette pictures in their own colormap
  const uint32_t* pixels;
  PrivatePaletteRule(const ColormapRecord* cm, const ImageConverter*) : pixels(cm->pixels) {}
  template <class S>
  uint32_t pixel(const ImageConverter*, const uint8_t* p, int, int) const {
    return pixels[*p];
  }
};

// Tile stores.
struct Word32Sink {  // native 32-bit words straight into the row
  uint32_t* row;
  Word32Sink(XImage* t, int j)
      : row(reinterpret_cast<uint32_t*>(t->data + j * t->bytes_per_line)) {}
  void put(int i, unsigned long p) { row[i] = static_cast<uint32_t>(p); }
};

struct ByteSink {  // the pixel's low byte straight into the row
  uint8_t* row;
  ByteSink(XImage* t, int j) : row(reinterpret_cast<uint8_t*>(t->data + j * t->bytes_per_line)) {}
  void put(int i, unsigned long p) { row[i] = static_cast<uint8_t>(p); }
};

struct PutPixelSink {  // any other layout, through the image's own routine
  XImage* tile;
  int j;
  PutPixelSink(XImage* t, int row) : tile(t), j(row) {}
  void put(int i, unsigned long p) { XPutPixel(tile, i, j, p); }
};

template <class Source, class Rule, class Sink>
void convertRect(const ColormapRecord* cm, ImageConverter* c, int x, int y, int w, int h) {
  const Rule rule(cm, c);
  const uint32_t* columns = c->columnOffset + x;
  for (int j = 0; j < h; ++j) {
    const uint8_t* source = c->rowStart[y + j];
    Sink sink(c->tile, j);
    for (int i = 0; i < w; ++i)
      sink.put(i, rule.template pixel<Source>(c, source + columns[i], x + i, y + j));
  }
}

enum RuleKind {
  kRuleRgb32,
  kRuleBgr32,
  kRuleDirect,
  kRuleCubeBytes,
  kRuleCubePut,
  kRuleThreshold8,
  kRuleMono,
  kRulePrivateBytes,
  kRulePrivatePut,
  kRuleCount
};

template <class S>
struct ConverterRow {
  PixelConverter entry[kRuleCount] = {
      convertRect<S, Rgb32Rule, Word32Sink>,
      convertRect<S, Bgr32Rule, Word32Sink>,
      convertRect<S, DirectRule, PutPixelSink>,
      convertRect<S, CubeRule, ByteSink>,
      convertRect<S, CubeRule, PutPixelSink>,
      convertRect<S, Threshold8Rule, PutPixelSink>,
      convertRect<S, MonoRule, PutPixelSink>,
      S::kPalette ? convertRect<S, PrivatePaletteRule, ByteSink> : nullptr,
      S::kPalette ? convertRect<S, PrivatePaletteRule, PutPixelSink> : nullptr,
  };
};

const ConverterRow<PaletteSource> kPaletteRow;
const ConverterRow<RgbSource> kRgbRow;
const ConverterRow<BgrSource> kBgrRow;
const ConverterRow<XbgrSource> kXbgrRow;

bool isPaletteType(const ImageRecord& picture) {
  return picture.type & (IMK_BINARY | IMK_GREY | IMK_MAPPED);
}

const PixelConverter* rowFor(const ImageRecord& picture) {
  if (isPaletteType(picture)) return kPaletteRow.entry;
  switch (picture.type) {
    case IMK_BGR:
      return kBgrRow.entry;
    case IMK_XBGR:
      return kXbgrRow.entry;
    default:  // R,G,B with or without a spare byte, and anything unknown
      return kRgbRow.entry;
  }
}

// Which pixel rule fits the visual and the tile; kRuleCount when none does.
RuleKind chooseRule(const ImageRecord& picture, const ImageConverter* c) {
  const XImage* tile = c->tile;
  const int depth = c->visual->depth;
  switch (c->visual->visual->c_class) {
    case TrueColor:
    case DirectColor:
    case StaticColor:
    case StaticGray:
      if (tile->bits_per_pixel == 32 && tile->red_mask == 0xFF && tile->green_mask == 0xFF00 &&
          tile->blue_mask == 0xFF0000)
        return kRuleRgb32;
      if (tile->bits_per_pixel == 32 && tile->red_mask == 0xFF0000 && tile->green_mask == 0xFF00 &&
          tile->blue_mask == 0xFF)
        return kRuleBgr32;
      return kRuleDirect;
    case PseudoColor:
    case GrayScale:
      if (depth >= 8) {
        const bool bytes = tile->bits_per_pixel == 8;
        if (isPaletteType(picture) && c->colormap->privatePalette)
          return bytes ? kRulePrivateBytes : kRulePrivatePut;
        return bytes ? kRuleCubeBytes : kRuleCubePut;
      }
      if (depth == 4) return kRuleThreshold8;
      if (depth == 2) return kRuleMono;
      return kRuleCount;
    default:
      return kRuleCount;
  }
}

XImage* makeSharedTile(Display* display, DisplayVisual* visual, XShmSegmentInfo* shm) {
  if (!shmAllowed() || !isLocal(display) || !XShmQueryExtension(display)) return nullptr;
  XImage* tile = XShmCreateImage(display, visual->visual, static_cast<unsigned>(visual->depth),
                                 ZPixmap, nullptr, shm, kTileSize, kTileSize);
  if (!tile) return nullptr;
  shm->shmid =
      shmget(IPC_PRIVATE, static_cast<size_t>(tile->bytes_per_line) * kTileSize, IPC_CREAT | 0600);
  if (shm->shmid < 0) {
    XDestroyImage(tile);
    return nullptr;
  }
  void* address = shmat(shm->shmid, nullptr, 0);
  if (address == reinterpret_cast<void*>(-1)) {
    shmctl(shm->shmid, IPC_RMID, nullptr);
    XDestroyImage(tile);
    return nullptr;
  }
  shm->shmaddr = tile->data = static_cast<char*>(address);
  shm->readOnly = False;
  bool attached;
  {
    // A server that cannot reach the segment (another host or container
    // despite a local name) answers with an error: draw without it then.
    XErrorTrap trap(display);
    XShmAttach(display, shm);
    attached = !trap.failed();
  }
  // Marked for removal now that both sides hold it: it goes away with them.
  shmctl(shm->shmid, IPC_RMID, nullptr);
  if (!attached) {
    shmdt(shm->shmaddr);
    tile->data = nullptr;
    XDestroyImage(tile);
    return nullptr;
  }
  return tile;
}

XImage* makeImage(Display* display, DisplayVisual* visual, int width, int height) {
  XImage* image = XCreateImage(display, visual->visual, static_cast<unsigned>(visual->depth),
                               ZPixmap, 0, nullptr, static_cast<unsigned>(width),
                               static_cast<unsigned>(height), BitmapPad(display), 0);
  if (!image) return nullptr;
  image->data = static_cast<char*>(
      calloc(static_cast<size_t>(image->bytes_per_line), static_cast<size_t>(height)));
  if (!image->data) {
    XDestroyImage(image);
    return nullptr;
  }
  return image;
}

void freeTables(ImageConverter* c) {
  delete[] c->columnOffset;
  delete[] c->rowStart;
  c->columnOffset = nullptr;
  c->rowStart = nullptr;
}

void putTile(ImageConverter* c, Drawable drawable, GC gc, const XRectangle& r, bool converted) {
  if (c->useShm) {
    XShmPutImage(c->display, drawable, gc, c->tile, 0, 0, r.x, r.y, r.width, r.height, False);
    // The next tile is converted into the same segment: wait until the
    // server has read this one.
    XSync(c->display, False);
  } else {
    XPutImage(c->display, drawable, gc, c->tile, 0, 0, r.x, r.y, r.width, r.height);
  }
  if (c->tileHook) c->tileHook(c->tileHookData, r, converted);
}

}  // namespace

unsigned long screenPixel(const ColormapRecord* colormap, const DisplayVisual* visual, unsigned r,
                          unsigned g, unsigned b, int x, int y) {
  // Through the same rules as the converters, on a one-pixel palette picture.
  ImageConverter c{};
  c.visual = const_cast<DisplayVisual*>(visual);
  c.red[0] = static_cast<uint8_t>(r);
  c.green[0] = static_cast<uint8_t>(g);
  c.blue[0] = static_cast<uint8_t>(b);
  const uint8_t index = 0;
  switch (visual->visual->c_class) {
    case TrueColor:
    case DirectColor:
    case StaticColor:
    case StaticGray:
      return DirectRule(colormap, &c).pixel<PaletteSource>(&c, &index, x, y);
    default:
      if (visual->depth >= 8) return CubeRule(colormap, &c).pixel<PaletteSource>(&c, &index, x, y);
      if (visual->depth == 4)
        return Threshold8Rule(colormap, &c).pixel<PaletteSource>(&c, &index, x, y);
      if (visual->depth == 2) return MonoRule(colormap, &c).pixel<PaletteSource>(&c, &index, x, y);
      return 0;
  }
}

unsigned bayerThreshold(int x, int y) { return kBayer.cell[y & 15][x & 15]; }

void setConverterSharedMemory(bool allowed) { shmSetting = allowed ? 1 : 0; }

void initConverter(ImageConverter* converter, Display* display, ColormapRecord* colormap,
                   DisplayVisual* visual) {
  *converter = ImageConverter{};
  converter->display = display;
  converter->visual = visual;
  converter->colormap = colormap;
  converter->tile = makeSharedTile(display, visual, &converter->shm);
  converter->useShm = converter->tile != nullptr;
  if (!converter->tile) converter->tile = makeImage(display, visual, kTileSize, kTileSize);
  std::fill(std::begin(converter->lastTile), std::end(converter->lastTile), -1);
  std::fill(std::begin(converter->lastOrigin), std::end(converter->lastOrigin), -1);
}

void ConvertBitmapToImage(ImageConverter* c, const ImageRecord* picture, int outWidth,
                          int outHeight) {
  if (isPaletteType(*picture)) {
    if (picture->palette) {
      memcpy(c->red, picture->palette, 256);
      memcpy(c->green, picture->palette + 256, 256);
      memcpy(c->blue, picture->palette + 512, 256);
    } else {
      const int n = picture->colorCount;
      for (int i = 0; i < 256; ++i) {
        const int v = i >= n ? 255 : (n > 1 ? i * 255 / (n - 1) : 0);
        c->red[i] = c->green[i] = c->blue[i] = static_cast<uint8_t>(v);
      }
    }
  }
  freeTables(c);
  c->picture = picture;
  c->outWidth = outWidth;
  c->outHeight = outHeight;
  std::fill(std::begin(c->lastTile), std::end(c->lastTile), -1);
  c->convert = nullptr;
  if (!picture->pixels || outWidth < 1 || outHeight < 1 || !c->tile) return;

  // Nearest neighbour in integers: enlarging repeats source pixels, reducing
  // drops them. 64-bit products: output sizes times picture sizes overflow
  // 32 bits on large pictures.
  const int64_t w = picture->width, h = picture->height;
  const int64_t bpp = picture->bytesPerPixel, stride = picture->bytesPerLine;
  c->columnOffset = new uint32_t[static_cast<size_t>(outWidth)];
  c->rowStart = new const uint8_t*[static_cast<size_t>(outHeight)];
  for (int64_t x = 0; x < outWidth; ++x)
    c->columnOffset[x] = static_cast<uint32_t>((outWidth == w ? x : x * w / outWidth) * bpp);
  for (int64_t y = 0; y < outHeight; ++y)
    c->rowStart[y] = picture->pixels + (outHeight == h ? y : y * h / outHeight) * stride;

  const RuleKind rule = chooseRule(*picture, c);
  if (rule != kRuleCount) c->convert = rowFor(*picture)[rule];
  if (!c->convert) fprintf(stderr, "******** ERROR : ConvertBitmapToImage NULL \n");
}

void drawArea(Drawable drawable, GC gc, ImageConverter* c, int originX, int originY,
              const XRectangle& exposed) {
  if (!c->convert) return;
  const int x0 = std::max<int>(exposed.x, originX);
  const int y0 = std::max<int>(exposed.y, originY);
  const int x1 = std::min<int>(exposed.x + exposed.width, originX + c->outWidth);
  const int y1 = std::min<int>(exposed.y + exposed.height, originY + c->outHeight);
  if (x0 >= x1 || y0 >= y1) return;

  if (originX == c->lastOrigin[0] && originY == c->lastOrigin[1] && x0 == c->lastTile[0] &&
      y0 == c->lastTile[1] && x1 - x0 == c->lastTile[2] && y1 - y0 == c->lastTile[3]) {
    const XRectangle again{static_cast<short>(x0), static_cast<short>(y0),
                           static_cast<unsigned short>(x1 - x0),
                           static_cast<unsigned short>(y1 - y0)};
    putTile(c, drawable, gc, again, false);
    return;
  }

  c->lastOrigin[0] = originX;
  c->lastOrigin[1] = originY;
  // Tiles are aligned to the exposed area, not to the picture.
  for (int y = y0; y < y1; y += kTileSize) {
    const int h = std::min(kTileSize, y1 - y);
    for (int x = x0; x < x1; x += kTileSize) {
      const int w = std::min(kTileSize, x1 - x);
      c->convert(c->colormap, c, x - originX, y - originY, w, h);
      const XRectangle tile{static_cast<short>(x), static_cast<short>(y),
                            static_cast<unsigned short>(w), static_cast<unsigned short>(h)};
      putTile(c, drawable, gc, tile, true);
      c->lastTile[0] = x;
      c->lastTile[1] = y;
      c->lastTile[2] = w;
      c->lastTile[3] = h;
    }
  }
}

void freeConverter(ImageConverter* c) {
  freeTables(c);
  if (c->tile) {
    if (c->useShm) {
      XShmDetach(c->display, &c->shm);
      XSync(c->display, False);
      shmdt(c->shm.shmaddr);
      c->tile->data = nullptr;
    }
    XDestroyImage(c->tile);
  }
  c->tile = nullptr;
  c->useShm = false;
  c->convert = nullptr;
}

Pixmap pictureToPixmap(Display* display, const ImageRecord& picture, GC gc,
                       ColormapRecord* colormap, DisplayVisual* visual) {
  if (!picture.pixels || picture.width < 1 || picture.height < 1) return None;
  ImageConverter c{};
  c.display = display;
  c.visual = visual;
  c.colormap = colormap;
  c.tile = makeImage(display, visual, picture.width, picture.height);
  if (!c.tile) return None;
  ConvertBitmapToImage(&c, &picture, picture.width, picture.height);
  Pixmap pixmap = None;
  if (c.convert) {
    c.convert(colormap, &c, 0, 0, picture.width, picture.height);
    const Window root = RootWindow(display, screenOfVisual(display, visual->visual));
    pixmap =
        XCreatePixmap(display, root, static_cast<unsigned>(picture.width),
                      static_cast<unsigned>(picture.height), static_cast<unsigned>(visual->depth));
    GC own = gc ? nullptr : XCreateGC(display, pixmap, 0, nullptr);
    XPutImage(display, pixmap, gc ? gc : own, c.tile, 0, 0, 0, 0,
              static_cast<unsigned>(picture.width), static_cast<unsigned>(picture.height));
    if (own) XFreeGC(display, own);
  }
  freeTables(&c);
  XDestroyImage(c.tile);
  return pixmap;
}
