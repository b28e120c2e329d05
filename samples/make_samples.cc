// Draws Vimora's sample pictures and writes them with libimgkit's own
// writers: samples/make_samples.sh runs it and assembles the multi-page TIFF.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "imgkit/imgkit.h"

namespace {

struct Owned {
  ImageRecord rec{};
  Owned(uint16_t type, int w, int h) {
    if (!imkAllock(&rec, type, 8, w, h)) {
      std::fprintf(stderr, "out of memory\n");
      std::exit(1);
    }
  }
  ~Owned() { imkFree(&rec); }
  uint8_t* row(int y) { return rec.pixels + static_cast<size_t>(y) * rec.bytesPerLine; }
};

void save(const Owned& pic, const std::string& path, const char* format, int quality = 0,
          int option = 0) {
  LoadOptions o;
  imkDefaultOption(&o);
  o.formatIndex = imkGetIndex(format);
  o.flags = 1 | 4;
  o.saveQuality = static_cast<uint16_t>(quality);
  o.saveOption = static_cast<uint16_t>(option);
  const int rc = imkSave(path.c_str(), &pic.rec, &o);
  if (rc != 0) {
    std::fprintf(stderr, "%s: error %d\n", path.c_str(), rc);
    std::exit(1);
  }
  std::printf("wrote %s\n", path.c_str());
}

uint8_t clamp8(double v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v + 0.5); }

// A sunset over two mountain ranges and a lake.
void sunset(Owned& p) {
  const int w = p.rec.width, h = p.rec.height;
  for (int y = 0; y < h; ++y) {
    uint8_t* row = p.row(y);
    for (int x = 0; x < w; ++x) {
      const double t = static_cast<double>(y) / h;
      double r = 255 * (0.98 - 0.3 * t), g = 120 + 110 * t, b = 90 + 140 * (1 - t);
      const double dx = x - w * 0.62, dy = y - h * 0.52;
      const double sun = std::sqrt(dx * dx + dy * dy);
      if (sun < h * 0.12) r = 255, g = 236, b = 160;
      else r += 60 * std::exp(-sun / (h * 0.2)), g += 40 * std::exp(-sun / (h * 0.25));
      const double far = h * (0.55 - 0.08 * std::sin(x * 0.021) - 0.05 * std::sin(x * 0.053 + 1));
      const double near = h * (0.68 - 0.06 * std::sin(x * 0.013 + 2) - 0.03 * std::sin(x * 0.09));
      if (y > far) r = 120, g = 70, b = 110;
      if (y > near) r = 50, g = 40, b = 70;
      if (y > h * 0.8) {  // the lake mirrors the sky, darker, with ripples
        const double ripple = 0.75 + 0.1 * std::sin(y * 0.9 + std::sin(x * 0.05) * 3);
        r = 255 * (0.7 - 0.3 * (1 - t)) * ripple, g = 150 * ripple, b = 200 * ripple;
      }
      row[x * 3] = clamp8(r), row[x * 3 + 1] = clamp8(g), row[x * 3 + 2] = clamp8(b);
    }
  }
}

int mandelbrotIterations(double cx, double cy, int limit) {
  double zx = 0, zy = 0;
  int i = 0;
  while (i < limit && zx * zx + zy * zy < 4) {
    const double t = zx * zx - zy * zy + cx;
    zy = 2 * zx * zy + cy;
    zx = t;
    ++i;
  }
  return i;
}

// The Mandelbrot set as a colour-mapped picture with a 64-entry palette.
void mandelbrot(Owned& p) {
  p.rec.colorCount = 64;
  for (int i = 0; i < 64; ++i) {
    const double t = i / 63.0;
    p.rec.palette[i] = clamp8(9 * (1 - t) * t * t * t * 255);
    p.rec.palette[256 + i] = clamp8(15 * (1 - t) * (1 - t) * t * t * 255);
    p.rec.palette[512 + i] = clamp8(8.5 * (1 - t) * (1 - t) * (1 - t) * t * 255);
  }
  p.rec.palette[63] = p.rec.palette[256 + 63] = p.rec.palette[512 + 63] = 0;
  const int w = p.rec.width, h = p.rec.height;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const int n = mandelbrotIterations(-2.2 + 3.0 * x / w, -1.2 + 2.4 * y / h, 63);
      p.row(y)[x] = static_cast<uint8_t>(n);
    }
}

// Concentric rings in 16 grey levels.
void rings(Owned& p) {
  p.rec.colorCount = 16;
  const int w = p.rec.width, h = p.rec.height;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const double d = std::hypot(x - w / 2.0, y - h / 2.0);
      p.row(y)[x] = static_cast<uint8_t>(static_cast<int>(d / 6) % 16);
    }
}

// Line art: a moire of two circle families, black on white.
void lineArt(Owned& p) {
  const int w = p.rec.width, h = p.rec.height;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const double a = std::hypot(x - w * 0.35, y - h * 0.5), b = std::hypot(x - w * 0.65, y - h * 0.5);
      const bool ink = (static_cast<int>(a / 5) + static_cast<int>(b / 5)) % 2 == 0;
      p.row(y)[x] = ink ? 0 : 1;
    }
}

// A hue wheel on white, in true colour with an alpha channel outside the disc.
void wheel(Owned& p) {
  const int w = p.rec.width, h = p.rec.height;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const double dx = x - w / 2.0, dy = y - h / 2.0, d = std::hypot(dx, dy) / (w / 2.0);
      const double hue = (std::atan2(dy, dx) / M_PI + 1) * 3;  // 0..6
      const double f = hue - std::floor(hue);
      double rgb[3];
      switch (static_cast<int>(hue) % 6) {
        case 0: rgb[0] = 1, rgb[1] = f, rgb[2] = 0; break;
        case 1: rgb[0] = 1 - f, rgb[1] = 1, rgb[2] = 0; break;
        case 2: rgb[0] = 0, rgb[1] = 1, rgb[2] = f; break;
        case 3: rgb[0] = 0, rgb[1] = 1 - f, rgb[2] = 1; break;
        case 4: rgb[0] = f, rgb[1] = 0, rgb[2] = 1; break;
        default: rgb[0] = 1, rgb[1] = 0, rgb[2] = 1 - f; break;
      }
      uint8_t* px = p.row(y) + x * p.rec.bytesPerPixel;
      for (int c = 0; c < 3; ++c) px[c] = clamp8(255 * (rgb[c] * d + (1 - d)));
      if (p.rec.bytesPerPixel == 4) px[3] = d <= 1 ? 255 : 0;
    }
}

// A smooth grey gradient with a title bar of blocks.
void gradient(Owned& p) {
  p.rec.colorCount = 256;
  const int w = p.rec.width, h = p.rec.height;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) p.row(y)[x] = static_cast<uint8_t>((x * 255 / (w - 1) + y) & 255);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string dir = argc > 1 ? argv[1] : ".";
  {
    Owned p(IMK_RGB, 480, 320);
    sunset(p);
    save(p, dir + "/sunset.jpg", "jpeg", 88);
  }
  {
    Owned p(IMK_MAPPED, 360, 270);
    mandelbrot(p);
    save(p, dir + "/mandelbrot.gif", "gif");
    save(p, dir + "/mandelbrot.bmp", "bmp", 0, 1);
  }
  {
    Owned p(IMK_RGBX, 256, 256);
    wheel(p);
    save(p, dir + "/wheel.png", "png", 9);
  }
  {
    Owned p(IMK_GREY, 240, 240);
    rings(p);
    save(p, dir + "/rings.pgm", "pgm");
  }
  // The three pages of pages.tif, joined by the script.
  {
    Owned p(IMK_BINARY, 320, 200);
    lineArt(p);
    save(p, dir + "/page1.tif", "tiff", 0, IMK_TIFF_G4);
  }
  {
    Owned p(IMK_GREY, 320, 200);
    gradient(p);
    save(p, dir + "/page2.tif", "tiff", 0, IMK_TIFF_DEFLATE);
  }
  {
    Owned p(IMK_RGB, 200, 200);
    wheel(p);
    save(p, dir + "/page3.tif", "tiff", 0, IMK_TIFF_LZW);
  }
  return 0;
}
