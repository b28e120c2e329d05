// GIF codec: reads every frame of a file as its own picture, composed on the
// logical screen the way an animation is shown, and writes single-frame GIF89a
// files for binary, grey and colour-mapped pictures.
//
// Reading composes frames 0..N in order: each frame is drawn at its offset,
// clipped to the screen, skipping its transparent index, and the disposal of
// each earlier frame is applied before the next one is drawn (0/1 keep, 2
// restore the frame's area to the background, 3 restore what was there
// before). The background is the screen's background colour from the global
// colour table; with no global table at all it is white (blank paper, as
// ImageMagick shows it too), and a background index outside the global table
// gives black. Pixel values beyond the active colour table are drawn as entry
// 0 of that table, so every output index is valid. A frame without any colour
// table (neither local nor global) is shown as grey, the pixel value taken as
// the intensity. A screen declared 0 wide or high takes the first frame's
// extent.
//
// The result stays colour-mapped with the global palette when every frame up
// to the requested one uses the global table and the background is one of its
// entries; otherwise it becomes R,G,B.
#include <gif_lib.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

// ---------------------------------------------------------------------------
// Block structure, walked without LZW decoding.

constexpr uint8_t kImageIntroducer = 0x2C;
constexpr uint8_t kExtensionIntroducer = 0x21;
constexpr uint8_t kTrailer = 0x3B;

struct GifFrame {
  int left = 0, top = 0, width = 0, height = 0;
  bool localTable = false;
  int localBits = 0;
  bool interlaced = false;
  int codeSize = 0;  // LZW minimum code size
};

struct GifLayout {
  int screenWidth = 0, screenHeight = 0;
  int globalBits = 0;  // 0: no global colour table
  int background = 0;
  int colorResolution = 0;
  std::vector<GifFrame> frames;
};

// Skips a chain of data sub-blocks; false when the file ends inside it.
bool skipSubBlocks(ByteReader& r) {
  for (;;) {
    const uint8_t n = r.u8();
    if (r.overrun()) return false;
    if (n == 0) return true;
    r.skip(n);
    if (r.overrun()) return false;
  }
}

// Reads the screen descriptor and lists the image descriptors. A frame is
// listed once its descriptor (and local table) is complete, even when its
// data is truncated. False when the file is not a GIF at all.
bool walkGif(const uint8_t* data, size_t size, GifLayout& out) {
  ByteReader r(data, size);
  uint8_t sig[6];
  if (!r.bytes(sig, 6) || std::memcmp(sig, "GIF", 3) != 0) return false;
  out.screenWidth = r.u16le();
  out.screenHeight = r.u16le();
  const uint8_t packed = r.u8();
  out.background = r.u8();
  r.u8();  // aspect ratio
  if (r.overrun()) return false;
  out.colorResolution = ((packed >> 4) & 7) + 1;
  if (packed & 0x80) {
    out.globalBits = (packed & 7) + 1;
    r.skip(3u << out.globalBits);
  }
  while (!r.overrun()) {
    const uint8_t type = r.u8();
    if (r.overrun() || type == kTrailer) break;
    if (type == kExtensionIntroducer) {
      r.u8();  // label
      if (!skipSubBlocks(r)) break;
    } else if (type == kImageIntroducer) {
      GifFrame f;
      f.left = r.u16le();
      f.top = r.u16le();
      f.width = r.u16le();
      f.height = r.u16le();
      const uint8_t flags = r.u8();
      f.interlaced = (flags & 0x40) != 0;
      if (flags & 0x80) {
        f.localTable = true;
        f.localBits = (flags & 7) + 1;
        r.skip(3u << f.localBits);
      }
      if (r.overrun()) break;
      f.codeSize = r.u8();
      out.frames.push_back(f);
      if (!skipSubBlocks(r)) break;
    } else {
      break;  // not a block GIF defines: the decoder stops here too
    }
  }
  return true;
}

// Rows of an interlaced frame in the order they are stored.
std::vector<int> interlacedOrder(int height) {
  static constexpr int kStart[4] = {0, 4, 2, 1};
  static constexpr int kStep[4] = {8, 8, 4, 2};
  std::vector<int> order;
  order.reserve(static_cast<size_t>(height));
  for (int pass = 0; pass < 4; ++pass)
    for (int y = kStart[pass]; y < height; y += kStep[pass]) order.push_back(y);
  return order;
}

// ---------------------------------------------------------------------------
// Reading.

struct MemorySource {
  const uint8_t* data;
  size_t size;
  size_t pos;
};

int readFromMemory(GifFileType* gif, GifByteType* buf, int len) {
  auto* src = static_cast<MemorySource*>(gif->UserData);
  if (len <= 0) return 0;
  const size_t left = src->size - src->pos;
  const size_t n = std::min(static_cast<size_t>(len), left);
  std::memcpy(buf, src->data + src->pos, n);
  src->pos += n;
  return static_cast<int>(n);
}

struct GifReaderCloser {
  void operator()(GifFileType* gif) const {
    int error = 0;
    DGifCloseFile(gif, &error);
  }
};
using GifReaderPtr = std::unique_ptr<GifFileType, GifReaderCloser>;

struct GraphicsControl {
  int disposal = 0;
  int transparent = -1;
};

struct Rgb {
  uint8_t r = 0, g = 0, b = 0;
};

// A colour table of 256 entries; entries past `count` repeat entry 0 so that
// out-of-table pixel values draw a defined colour.
struct ColorTable {
  Rgb colors[256];
  int count = 0;
};

void loadTable(const ColorMapObject* map, ColorTable& t) {
  if (map && map->ColorCount > 0 && map->Colors) {
    t.count = std::min(map->ColorCount, 256);
    for (int i = 0; i < t.count; ++i)
      t.colors[i] = {map->Colors[i].Red, map->Colors[i].Green, map->Colors[i].Blue};
    for (int i = t.count; i < 256; ++i) t.colors[i] = t.colors[0];
  } else {
    t.count = 256;  // no table at all: values are grey intensities
    for (int i = 0; i < 256; ++i) t.colors[i] = {uint8_t(i), uint8_t(i), uint8_t(i)};
  }
}

// The canvas being composed: the output picture itself, one byte (index) or
// three bytes (R,G,B) per pixel.
class Canvas {
 public:
  Canvas(Picture& pic, bool mapped, Rgb background, int backgroundIndex)
      : pic_(pic),
        mapped_(mapped),
        bpp_(mapped ? 1 : 3),
        bg_(background),
        bgIndex_(backgroundIndex) {}

  int width() const { return pic_.rec().width; }
  int height() const { return pic_.rec().height; }

  void fillBackground(int x0, int y0, int x1, int y1) {
    for (int y = y0; y < y1; ++y) {
      uint8_t* row = pic_.row(y);
      for (int x = x0; x < x1; ++x) {
        if (mapped_) {
          row[x] = static_cast<uint8_t>(bgIndex_);
        } else {
          row[3 * x] = bg_.r, row[3 * x + 1] = bg_.g, row[3 * x + 2] = bg_.b;
        }
      }
    }
  }

  // Draws the visible part [x0, x1) of one decoded frame row at canvas row y.
  void drawRow(int y, int x0, int x1, int left, const uint8_t* line, const ColorTable& table,
               int transparent) {
    uint8_t* row = pic_.row(y);
    for (int x = x0; x < x1; ++x) {
      const int v = line[x - left];
      if (v == transparent) continue;
      if (mapped_) {
        row[x] = static_cast<uint8_t>(v < table.count ? v : 0);
      } else {
        const Rgb& c = table.colors[v];
        row[3 * x] = c.r, row[3 * x + 1] = c.g, row[3 * x + 2] = c.b;
      }
    }
  }

  void save(int x0, int y0, int x1, int y1, std::vector<uint8_t>& out) const {
    out.clear();
    for (int y = y0; y < y1; ++y) {
      const uint8_t* row = pic_.row(y);
      out.insert(out.end(), row + x0 * bpp_, row + x1 * bpp_);
    }
  }
  void restore(int x0, int y0, int x1, int y1, const std::vector<uint8_t>& saved) {
    const size_t n = static_cast<size_t>(x1 - x0) * bpp_;
    if (saved.size() < n * static_cast<size_t>(std::max(0, y1 - y0))) return;
    for (int y = y0; y < y1; ++y)
      std::memcpy(pic_.row(y) + x0 * bpp_, saved.data() + static_cast<size_t>(y - y0) * n, n);
  }

 private:
  Picture& pic_;
  bool mapped_;
  int bpp_;
  Rgb bg_;
  int bgIndex_;
};

// The part of a frame that lies on the canvas.
struct ClipRect {
  int x0, y0, x1, y1;
};

ClipRect clipFrame(const GifImageDesc& d, int width, int height) {
  ClipRect c;
  c.x0 = std::min(d.Left, width);
  c.y0 = std::min(d.Top, height);
  c.x1 = static_cast<int>(std::min<int64_t>(int64_t{d.Left} + d.Width, width));
  c.y1 = static_cast<int>(std::min<int64_t>(int64_t{d.Top} + d.Height, height));
  return c;
}

const char* gifErrorText(int code) {
  switch (code) {
    case D_GIF_ERR_READ_FAILED:
      return "truncated";
    case D_GIF_ERR_EOF_TOO_SOON:
      return "image data ends early";
    case D_GIF_ERR_IMAGE_DEFECT:
      return "damaged image data";
    case D_GIF_ERR_DATA_TOO_BIG:
      return "too much image data";
    case D_GIF_ERR_WRONG_RECORD:
      return "unknown block type";
    case D_GIF_ERR_NOT_ENOUGH_MEM:
      return "not enough memory";
    default:
      return "damaged file";
  }
}

// Decision on the output kind for frames 0..last, from the block walk.
bool useGlobalPalette(const GifLayout& layout, size_t last) {
  if (layout.globalBits == 0 || layout.background >= (1 << layout.globalBits)) return false;
  for (size_t i = 0; i <= last && i < layout.frames.size(); ++i)
    if (layout.frames[i].localTable) return false;
  return true;
}

class FrameComposer {
 public:
  FrameComposer(ReadContext& ctx, GifFileType* gif, Canvas& canvas, bool mapped)
      : ctx_(ctx), gif_(gif), canvas_(canvas), mapped_(mapped) {
    loadTable(gif->SColorMap, global_);
  }

  // Walks the records up to and including frame `target`. 0 or a code.
  int run(int target) {
    int frame = -1;
    GraphicsControl gce, previous;
    ClipRect previousRect{0, 0, 0, 0};
    std::vector<uint8_t> saved;
    for (;;) {
      GifRecordType type;
      if (DGifGetRecordType(gif_, &type) == GIF_ERROR) return damaged();
      if (type == TERMINATE_RECORD_TYPE) break;
      if (type == EXTENSION_RECORD_TYPE) {
        int code = 0;
        GifByteType* ext = nullptr;
        if (DGifGetExtension(gif_, &code, &ext) == GIF_ERROR) return damaged();
        if (code == GRAPHICS_EXT_FUNC_CODE && ext && ext[0] >= 4) {
          gce.disposal = (ext[1] >> 2) & 7;
          gce.transparent = (ext[1] & 1) ? ext[4] : -1;
        }
        while (ext)
          if (DGifGetExtensionNext(gif_, &ext) == GIF_ERROR) return damaged();
        continue;
      }
      if (type != IMAGE_DESC_RECORD_TYPE) continue;
      if (DGifGetImageDesc(gif_) == GIF_ERROR) return damaged();
      ++frame;
      // The previous frame leaves the stage before this one is drawn.
      const ClipRect& p = previousRect;
      if (previous.disposal == 2) canvas_.fillBackground(p.x0, p.y0, p.x1, p.y1);
      if (previous.disposal == 3) canvas_.restore(p.x0, p.y0, p.x1, p.y1, saved);
      const ClipRect rect = clipFrame(gif_->Image, canvas_.width(), canvas_.height());
      if (gce.disposal == 3 && frame < target)
        canvas_.save(rect.x0, rect.y0, rect.x1, rect.y1, saved);
      if (int rc = drawFrame(gce.transparent, rect)) return rc;
      if (frame == target) return 0;
      previous = gce;
      previousRect = rect;
      gce = GraphicsControl{};
    }
    return ctx_.fail(IMK_ERR_BAD_FILE, "no such frame in file");
  }

 private:
  int damaged() {
    if (ctx_.stopped()) return IMK_ERR_STOPPED;
    return ctx_.damaged(IMK_ERR_CORRUPT, gifErrorText(gif_->Error));
  }

  int drawFrame(int transparent, const ClipRect& rect) {
    const GifImageDesc& d = gif_->Image;
    ColorTable local;
    const ColorTable* table = &global_;
    if (d.ColorMap) {
      if (mapped_) return ctx_.fail(IMK_ERR_CORRUPT, "inconsistent colour tables");
      loadTable(d.ColorMap, local);
      table = &local;
    } else if (!gif_->SColorMap && mapped_) {
      return ctx_.fail(IMK_ERR_CORRUPT, "inconsistent colour tables");
    }
    if (d.Width <= 0 || d.Height <= 0) return skipData();
    std::vector<uint8_t> line(static_cast<size_t>(d.Width));
    const std::vector<int> order = d.Interlace ? interlacedOrder(d.Height) : std::vector<int>();
    for (int i = 0; i < d.Height; ++i) {
      const int row = d.Interlace ? order[static_cast<size_t>(i)] : i;
      const int64_t y = int64_t{d.Top} + row;
      // Rows of a plain frame below the canvas are never seen: their data is
      // skipped undecoded (still read, so that truncation is noticed).
      if (!d.Interlace && y >= canvas_.height()) return skipData();
      if (DGifGetLine(gif_, line.data(), d.Width) == GIF_ERROR) return damaged();
      if (y < canvas_.height() && rect.x0 < rect.x1)
        canvas_.drawRow(static_cast<int>(y), rect.x0, rect.x1, d.Left, line.data(), *table,
                        transparent);
      if (ctx_.advanceProgress(++rowsDone_)) return IMK_ERR_STOPPED;
    }
    return 0;
  }

  int skipData() {
    GifByteType* block = nullptr;
    do {
      if (DGifGetCodeNext(gif_, &block) == GIF_ERROR) return damaged();
    } while (block);
    return 0;
  }

  ReadContext& ctx_;
  GifFileType* gif_;
  Canvas& canvas_;
  bool mapped_;
  ColorTable global_;
  int64_t rowsDone_ = 0;
};

int openGif(ReadContext& ctx, MemorySource& src, GifReaderPtr& gif) {
  int error = 0;
  gif.reset(DGifOpen(&src, readFromMemory, &error));
  if (!gif) {
    if (error == D_GIF_ERR_NOT_ENOUGH_MEM) return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
    if (error == D_GIF_ERR_NOT_GIF_FILE) return ctx.fail(IMK_ERR_BAD_FILE, "not a GIF file");
    return ctx.fail(IMK_ERR_CORRUPT, "truncated header");
  }
  return 0;
}

void fillHeader(const GifLayout& layout, int width, int height, HeaderInfo& h) {
  h.width = width;
  h.height = height;
  h.planes = 1;
  int bits = layout.globalBits;
  if (bits == 0 && !layout.frames.empty()) bits = layout.frames[0].localBits;
  h.bitsPerPlane = static_cast<int16_t>(bits ? bits : layout.colorResolution);
  h.pictureCount = static_cast<int32_t>(std::min<size_t>(layout.frames.size(), INT32_MAX));
}

// The canvas size: the logical screen, or the first frame's extent when the
// screen is declared empty.
bool canvasSize(const GifLayout& layout, int* width, int* height) {
  *width = layout.screenWidth;
  *height = layout.screenHeight;
  if ((*width == 0 || *height == 0) && !layout.frames.empty()) {
    *width = layout.frames[0].left + layout.frames[0].width;
    *height = layout.frames[0].top + layout.frames[0].height;
  }
  return *width > 0 && *height > 0;
}

bool sniffGif(const uint8_t* data, size_t size) {
  return size >= 6 && std::memcmp(data, "GIF", 3) == 0 &&
         (std::memcmp(data + 3, "87a", 3) == 0 || std::memcmp(data + 3, "89a", 3) == 0);
}

int infoGif(ReadContext& ctx) {
  GifLayout layout;
  if (!walkGif(ctx.data, ctx.size, layout)) return ctx.fail(IMK_ERR_BAD_FILE, "not a GIF file");
  int width, height;
  const bool sized = canvasSize(layout, &width, &height);
  fillHeader(layout, width, height, ctx.header);
  if (!sized) return ctx.fail(IMK_ERR_BAD_FILE, "empty screen");
  if (layout.frames.empty()) return ctx.fail(IMK_ERR_BAD_FILE, "no image in file");
  return 0;
}

int readGif(ReadContext& ctx, Picture& out) {
  GifLayout layout;
  if (!walkGif(ctx.data, ctx.size, layout)) return ctx.fail(IMK_ERR_BAD_FILE, "not a GIF file");
  int width, height;
  const bool sized = canvasSize(layout, &width, &height);
  fillHeader(layout, width, height, ctx.header);
  if (!sized) return ctx.fail(IMK_ERR_BAD_FILE, "empty screen");
  if (layout.frames.empty()) return ctx.fail(IMK_ERR_BAD_FILE, "no image in file");
  const size_t target = static_cast<size_t>(ctx.pictureIndex());
  if (target >= layout.frames.size()) return ctx.fail(IMK_ERR_BAD_FILE, "no such frame in file");

  for (size_t i = 0; i <= target; ++i)
    if (layout.frames[i].codeSize > 8)
      return ctx.fail(IMK_ERR_BAD_FILE, "LZW code size above 8 bits");

  MemorySource src{ctx.data, ctx.size, 0};
  GifReaderPtr gif;
  if (int rc = openGif(ctx, src, gif)) return rc;

  const bool mapped = useGlobalPalette(layout, target) && gif->SColorMap;
  if (!out.allocate(mapped ? IMK_MAPPED : IMK_RGB, width, height))
    return ctx.fail(IMK_ERR_MEMORY, "picture too large");
  ColorTable global;
  loadTable(gif->SColorMap, global);
  Rgb background{255, 255, 255};
  if (gif->SColorMap)
    background =
        gif->SBackGroundColor < global.count ? global.colors[gif->SBackGroundColor] : Rgb{};
  if (mapped) {
    ImageRecord& rec = out.rec();
    rec.colorCount = global.count;
    std::memset(rec.palette, 0, 768);
    for (int i = 0; i < global.count; ++i) {
      rec.palette[i] = global.colors[i].r;
      rec.palette[256 + i] = global.colors[i].g;
      rec.palette[512 + i] = global.colors[i].b;
    }
  }
  Canvas canvas(out, mapped, background, mapped ? gif->SBackGroundColor : 0);
  canvas.fillBackground(0, 0, width, height);

  int64_t totalRows = 0;
  for (size_t i = 0; i <= target; ++i) totalRows += layout.frames[i].height;
  if (ctx.beginProgress(totalRows)) return IMK_ERR_STOPPED;
  FrameComposer composer(ctx, gif.get(), canvas, mapped);
  const int rc = composer.run(static_cast<int>(target));
  if (rc != 0) return rc;
  // Rows never decoded (below the canvas, or after damage) still count.
  if (ctx.advanceProgress(totalRows)) return IMK_ERR_STOPPED;
  if (mapped) simplifyMappedPicture(out.rec());
  return 0;
}

// ---------------------------------------------------------------------------
// Writing.

int writeToFile(GifFileType* gif, const GifByteType* buf, int len) {
  FILE* f = static_cast<FILE*>(gif->UserData);
  if (len <= 0) return 0;
  return std::fwrite(buf, 1, static_cast<size_t>(len), f) == static_cast<size_t>(len) ? len : 0;
}

struct ColorMapFree {
  void operator()(ColorMapObject* m) const { GifFreeMapObject(m); }
};

// Closes the encoder exactly once; close() reports whether the trailer and
// everything before it reached the file.
class GifWriter {
 public:
  explicit GifWriter(FILE* f) {
    int error = 0;
    gif_ = EGifOpen(f, writeToFile, &error);
  }
  ~GifWriter() {
    if (gif_) close();
  }
  GifWriter(const GifWriter&) = delete;
  GifWriter& operator=(const GifWriter&) = delete;
  GifFileType* get() { return gif_; }
  bool close() {
    int error = 0;
    const bool ok = EGifCloseFile(gif_, &error) == GIF_OK;
    gif_ = nullptr;
    return ok;
  }

 private:
  GifFileType* gif_ = nullptr;
};

int writeGif(WriteContext& ctx, const ImageRecord& pic) {
  if (isTrueColor(pic.type)) return IMK_ERR_CANNOT_SAVE;
  if (pic.width > 65535 || pic.height > 65535) return IMK_ERR_CANNOT_SAVE;
  const int w = pic.width, h = pic.height;

  // Colours in use: binary 2, grey its level count, mapped the palette size
  // widened to cover every index actually present.
  int colors = 2;
  if (pic.type == IMK_GREY)
    colors = pic.colorCount >= 2 && pic.colorCount <= 256 ? pic.colorCount : 256;
  if (pic.type == IMK_MAPPED) {
    colors = std::clamp(pic.colorCount, 1, 256);
    for (int y = 0; y < h; ++y) {
      const uint8_t* row = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
      for (int x = 0; x < w; ++x) colors = std::max(colors, row[x] + 1);
    }
  }
  int bits = 1;
  while ((1 << bits) < colors) ++bits;
  const int tableSize = 1 << bits;

  std::vector<GifColorType> entries(static_cast<size_t>(tableSize), GifColorType{0, 0, 0});
  for (int i = 0; i < colors; ++i) {
    uint8_t r, g, b;
    if (pic.type == IMK_MAPPED && pic.palette) {
      r = pic.palette[i], g = pic.palette[256 + i], b = pic.palette[512 + i];
    } else {
      r = g = b = greyLevelIntensity(i, colors);
    }
    entries[static_cast<size_t>(i)] = GifColorType{r, g, b};
  }
  std::unique_ptr<ColorMapObject, ColorMapFree> map(GifMakeMapObject(tableSize, entries.data()));
  if (!map) return IMK_ERR_MEMORY;

  GifWriter writer(ctx.out.file());
  GifFileType* gif = writer.get();
  if (!gif) return IMK_ERR_WRITE;
  EGifSetGifVersion(gif, true);
  const bool interlace = ctx.options.saveOption == 1;
  if (EGifPutScreenDesc(gif, w, h, bits, 0, map.get()) == GIF_ERROR ||
      EGifPutImageDesc(gif, 0, 0, w, h, interlace, nullptr) == GIF_ERROR)
    return IMK_ERR_WRITE;

  if (ctx.progress.begin(h)) return IMK_ERR_STOPPED;
  const std::vector<int> order = interlace ? interlacedOrder(h) : std::vector<int>();
  // The encoder masks the values it is given in place, so rows are copied.
  std::vector<GifPixelType> line(static_cast<size_t>(w));
  for (int i = 0; i < h; ++i) {
    const int y = interlace ? order[static_cast<size_t>(i)] : i;
    const uint8_t* row = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
    for (int x = 0; x < w; ++x) {
      const int v = pic.type == IMK_BINARY ? (row[x] != 0) : std::min<int>(row[x], colors - 1);
      line[static_cast<size_t>(x)] = static_cast<GifPixelType>(v);
    }
    if (EGifPutLine(gif, line.data(), w) == GIF_ERROR) return IMK_ERR_WRITE;
    if (ctx.progress.advance(i + 1)) return IMK_ERR_STOPPED;
  }
  if (!writer.close() || std::ferror(ctx.out.file())) return IMK_ERR_WRITE;
  return 0;
}

}  // namespace

const Codec kGifCodec = {"gif",
                         "GIF",
                         {"gif"},
                         IMK_CAN_READ | IMK_CAN_WRITE | IMK_MULTI_PICTURE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize},
                          {IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_MAPPED, 256, kAnySize, kAnySize},
                          kEndKinds},
                         sniffGif,
                         infoGif,
                         readGif,
                         writeGif};

}  // namespace imk
