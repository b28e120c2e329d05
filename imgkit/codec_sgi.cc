// SGI image files.
//
// Reads 8- and 16-bit channels (16-bit samples are rounded to 8 bits), with
// 1 channel (grey), 2 (grey + alpha, kind 512), 3 (RGB) or 4 (RGBA, kind 512;
// channels past the fourth are ignored), stored verbatim or run-length
// encoded. Rows are stored bottom-up, each channel as a plane of its own.
//
// Writes grey and binary pictures as one channel, kind 512 as four and every
// other kind as three (colour-mapped pictures expanded to RGB), 8 bits each;
// saveOption 1 run-length encodes the rows, 0 stores them verbatim.
//
// The run-length offset and length tables come from the file: every entry is
// checked against the file size before any row is decoded, and a row's codes
// never write past the row.
#include <algorithm>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

constexpr size_t kHeaderSize = 512;
constexpr uint16_t kMagic = 474;
constexpr int kMaxRun = 127;

struct SgiLayout {
  bool rle = false;
  int bpc = 1;  // bytes per sample
  int32_t width = 0;
  int32_t height = 0;
  int channels = 0;  // in the file
  uint16_t kind = 0;

  // Entry i of the offset (or length) table: row r of channel c.
  size_t tableIndex(int row, int channel) const {
    return static_cast<size_t>(channel) * height + row;
  }
};

uint16_t be16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
uint32_t be32(const uint8_t* p) { return static_cast<uint32_t>(be16(p)) << 16 | be16(p + 2); }

bool sniffSgi(const uint8_t* d, size_t size) {
  return size >= 12 && be16(d) == kMagic && d[2] <= 1 && (d[3] == 1 || d[3] == 2) &&
         be16(d + 4) >= 1 && be16(d + 4) <= 3;
}

int parseHeader(ReadContext& ctx, SgiLayout& L) {
  if (ctx.size < kHeaderSize) return ctx.fail(IMK_ERR_BAD_FILE, "file too short");
  const uint8_t* d = ctx.data;
  if (be16(d) != kMagic) return ctx.fail(IMK_ERR_BAD_FILE, "not an SGI file");
  if (d[2] > 1) return ctx.fail(IMK_ERR_BAD_FILE, "unknown SGI storage");
  if (d[3] != 1 && d[3] != 2) return ctx.fail(IMK_ERR_BAD_FILE, "unsupported bytes per channel");
  const int dimension = be16(d + 4);
  if (dimension < 1 || dimension > 3) return ctx.fail(IMK_ERR_BAD_FILE, "bad dimension");
  if (be32(d + 104) != 0) return ctx.fail(IMK_ERR_BAD_FILE, "SGI colour map files not supported");
  L.rle = d[2] == 1;
  L.bpc = d[3];
  L.width = be16(d + 6);
  // A one-dimensional file is a single row; below three dimensions, a single
  // channel (some writers leave the unused sizes zero).
  L.height = dimension == 1 && be16(d + 8) == 0 ? 1 : be16(d + 8);
  L.channels = dimension < 3 && be16(d + 10) == 0 ? 1 : be16(d + 10);
  if (L.width == 0 || L.height == 0 || L.channels == 0)
    return ctx.fail(IMK_ERR_BAD_FILE, "bad picture size");
  L.kind = L.channels == 1 ? IMK_GREY : L.channels == 3 ? IMK_RGB : IMK_RGBX;

  HeaderInfo& h = ctx.header;
  h.width = L.width;
  h.height = L.height;
  h.planes = static_cast<int16_t>(L.channels);
  h.bitsPerPlane = static_cast<int16_t>(8 * L.bpc);
  h.pictureCount = 1;
  return IMK_OK;
}

// 16-bit samples to the nearest 8-bit value.
inline uint8_t sample(const uint8_t* p, int bpc) {
  return bpc == 1 ? p[0] : static_cast<uint8_t>((be16(p) + 128) / 257);
}

// Decodes one run-length row of `width` samples. False when the codes end
// before the row is full or would run past it (the rest stays as decoded).
// A zero code ends the row.
bool decodeRleRow(const uint8_t* src, size_t length, int bpc, uint8_t* out, int width) {
  const uint8_t* end = src + length / bpc * bpc;
  int x = 0;
  while (end - src >= bpc) {
    const int code = bpc == 1 ? src[0] : be16(src) & 0xFF;
    src += bpc;
    const int n = code & 0x7F;
    if (n == 0) return x == width;
    if (n > width - x) return false;
    if (code & 0x80) {  // n literal samples
      if (end - src < static_cast<ptrdiff_t>(n) * bpc) return false;
      for (int i = 0; i < n; ++i, src += bpc) out[x++] = sample(src, bpc);
    } else {  // one sample repeated n times
      if (end - src < bpc) return false;
      std::memset(out + x, sample(src, bpc), static_cast<size_t>(n));
      src += bpc;
      x += n;
    }
  }
  return x == width;  // a full row needs no end code
}

// Places one channel's row of samples into the record's row.
void scatter(const SgiLayout& L, int channel, const uint8_t* samples, uint8_t* row) {
  const int w = L.width;
  if (L.kind == IMK_GREY) {
    std::memcpy(row, samples, static_cast<size_t>(w));
    return;
  }
  const int step = L.kind == IMK_RGB ? 3 : 4;
  if (L.channels == 2 && channel == 0) {  // grey of grey + alpha
    for (int x = 0; x < w; ++x) row[x * 4] = row[x * 4 + 1] = row[x * 4 + 2] = samples[x];
    return;
  }
  const int at = L.channels == 2 ? 3 : channel;
  for (int x = 0; x < w; ++x) row[x * step + at] = samples[x];
}

// One channel of one file row as 8-bit samples: straight from the file when
// stored so, else decoded into `samples`. Null when the row is damaged (the
// first problem is noted in `damage`; `samples` then holds what was decoded,
// zeros elsewhere).
const uint8_t* channelRow(const ReadContext& ctx, const SgiLayout& L, int row, int channel,
                          std::vector<uint8_t>& samples, const char** damage) {
  auto broken = [damage](const char* why) -> const uint8_t* {
    if (!*damage) *damage = why;
    return nullptr;
  };
  uint8_t* out = samples.data();
  if (!L.rle) {
    const size_t rowBytes = static_cast<size_t>(L.width) * L.bpc;
    const uint64_t start = kHeaderSize + L.tableIndex(row, channel) * rowBytes;
    if (start + rowBytes > ctx.size) {
      std::fill(samples.begin(), samples.end(), 0);
      return broken("truncated");
    }
    const uint8_t* src = ctx.data + start;
    if (L.bpc == 1) return src;
    for (int x = 0; x < L.width; ++x) out[x] = sample(src + 2 * x, 2);
    return out;
  }
  const uint8_t* starts = ctx.data + kHeaderSize;
  const uint8_t* lengths = starts + size_t{static_cast<uint32_t>(L.height)} * L.channels * 4;
  const size_t i = L.tableIndex(row, channel) * 4;
  const uint64_t start = be32(starts + i), length = be32(lengths + i);
  std::fill(samples.begin(), samples.end(), 0);
  if (start + length > ctx.size) return broken("bad RLE row offset");
  if (!decodeRleRow(ctx.data + start, length, L.bpc, out, L.width)) return broken("bad RLE row");
  return out;
}

int decodePixels(ReadContext& ctx, const SgiLayout& L, Picture& out, const char** damage) {
  const int used = std::min(L.channels, 4);
  std::vector<uint8_t> samples(static_cast<size_t>(L.width));
  for (int y = 0; y < L.height; ++y) {
    const int row = L.height - 1 - y;  // rows are stored bottom-up
    for (int c = 0; c < used; ++c) {
      const uint8_t* s = channelRow(ctx, L, row, c, samples, damage);
      if (!s && !ctx.ignoreErrors()) return IMK_ERR_CORRUPT;
      scatter(L, c, s ? s : samples.data(), out.row(y));
    }
    if (ctx.advanceProgress(y + 1)) return IMK_ERR_STOPPED;
  }
  return IMK_OK;
}

int infoSgi(ReadContext& ctx) {
  SgiLayout L;
  return parseHeader(ctx, L);
}

int readSgi(ReadContext& ctx, Picture& out) {
  SgiLayout L;
  if (int rc = parseHeader(ctx, L)) return rc;
  const uint64_t planeRows = uint64_t{static_cast<uint32_t>(L.height)} * L.channels;
  if (L.rle) {
    // Both tables must be present, and every entry must lie in the file.
    if (kHeaderSize + planeRows * 8 > ctx.size)
      return ctx.fail(IMK_ERR_BAD_FILE, "truncated RLE tables");
    const uint8_t* starts = ctx.data + kHeaderSize;
    const uint8_t* lengths = starts + planeRows * 4;
    for (uint64_t i = 0; i < planeRows && !ctx.ignoreErrors(); ++i)
      if (uint64_t{be32(starts + 4 * i)} + be32(lengths + 4 * i) > ctx.size)
        return ctx.fail(IMK_ERR_CORRUPT, "bad RLE row offset");
  } else if (int rc = ctx.requireData(planeRows * static_cast<uint32_t>(L.width) * L.bpc,
                                      ctx.size - kHeaderSize)) {
    return rc;
  }
  if (!sizeAcceptable(L.width, L.height, bytesPerPixelOf(L.kind)))
    return ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  if (!out.allocate(L.kind, L.width, L.height))
    return ctx.fail(IMK_ERR_MEMORY, "not enough memory");
  if (ctx.beginProgress(L.height)) return IMK_ERR_STOPPED;
  const char* damage = nullptr;
  const int rc = decodePixels(ctx, L, out, &damage);
  if (rc == IMK_ERR_CORRUPT) return ctx.fail(rc, damage);
  if (rc) return rc;
  if (damage) return ctx.damaged(IMK_ERR_CORRUPT, damage);
  return IMK_OK;
}

// ---------------------------------------------------------------------------
// Writing.

bool put(FILE* f, const void* p, size_t n) { return n == 0 || std::fwrite(p, 1, n, f) == n; }

void putBe16(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 8), p[1] = static_cast<uint8_t>(v);
}
void putBe32(uint8_t* p, uint32_t v) { putBe16(p, v >> 16), putBe16(p + 2, v); }

// Run-length codes for one row of samples, ended by a zero code: repeats of
// three or more become runs, the rest literal stretches.
void encodeRow(const uint8_t* src, int n, std::vector<uint8_t>& out) {
  auto runAt = [&](int i) {
    int run = 1;
    while (i + run < n && run < kMaxRun && src[i + run] == src[i]) ++run;
    return run;
  };
  for (int x = 0; x < n;) {
    const int run = runAt(x);
    if (run >= 3) {
      out.push_back(static_cast<uint8_t>(run));
      out.push_back(src[x]);
      x += run;
      continue;
    }
    int end = x + 1;
    while (end < n && end - x < kMaxRun && runAt(end) < 3) ++end;
    out.push_back(static_cast<uint8_t>(0x80 | (end - x)));
    out.insert(out.end(), src + x, src + end);
    x = end;
  }
  out.push_back(0);
}

int writeSgi(WriteContext& ctx, const ImageRecord& pic) {
  FILE* f = ctx.out.file();
  const int w = pic.width, h = pic.height;
  if (w > 65535 || h > 65535) return IMK_ERR_CANNOT_SAVE;
  const bool grey = pic.type == IMK_GREY || pic.type == IMK_BINARY;
  const int channels = grey ? 1 : pic.type == IMK_RGBX ? 4 : 3;
  const bool rle = ctx.options.saveOption == 1;

  uint8_t head[kHeaderSize] = {};
  putBe16(head, kMagic);
  head[2] = rle ? 1 : 0;
  head[3] = 1;
  putBe16(head + 4, grey ? 2 : 3);
  putBe16(head + 6, static_cast<uint32_t>(w));
  putBe16(head + 8, static_cast<uint32_t>(h));
  putBe16(head + 10, static_cast<uint32_t>(channels));
  putBe32(head + 16, 255);  // pixmax
  if (!put(f, head, sizeof head)) return IMK_ERR_WRITE;

  // Interleaved samples of a picture row, and one channel of it.
  std::vector<uint8_t> pixels(static_cast<size_t>(w) * 4), plane(static_cast<size_t>(w)), coded;
  int converted = -1;
  auto channelOf = [&](int y, int c) -> const uint8_t* {
    if (grey) {
      rowToGrey(pic, y, plane.data());
      return plane.data();
    }
    if (y != converted && channels == 4)
      rowToRgba(pic, y, pixels.data());
    else if (y != converted)
      rowToRgb(pic, y, pixels.data());
    converted = y;
    for (int x = 0; x < w; ++x) plane[x] = pixels[static_cast<size_t>(x) * channels + c];
    return plane.data();
  };

  const int64_t units = int64_t{h} * channels;
  if (ctx.progress.begin(units)) return IMK_ERR_STOPPED;
  if (!rle) {
    // Channel planes one after the other, each bottom-up.
    for (int c = 0; c < channels; ++c)
      for (int r = 0; r < h; ++r) {
        if (!put(f, channelOf(h - 1 - r, c), static_cast<size_t>(w))) return IMK_ERR_WRITE;
        if (ctx.progress.advance(int64_t{c} * h + r + 1)) return IMK_ERR_STOPPED;
      }
    return std::ferror(f) ? IMK_ERR_WRITE : IMK_OK;
  }

  // The tables go between the header and the rows; their entries are known
  // once the rows are written.
  const size_t entries = static_cast<size_t>(units);
  std::vector<uint8_t> tables(entries * 8);
  if (!put(f, tables.data(), tables.size())) return IMK_ERR_WRITE;
  uint64_t offset = kHeaderSize + tables.size();
  for (int r = 0; r < h; ++r) {
    for (int c = 0; c < channels; ++c) {
      coded.clear();
      encodeRow(channelOf(h - 1 - r, c), w, coded);
      if (offset + coded.size() > 0xFFFFFFFFu) return IMK_ERR_CANNOT_SAVE;
      const size_t i = static_cast<size_t>(c) * h + r;
      putBe32(&tables[i * 4], static_cast<uint32_t>(offset));
      putBe32(&tables[(entries + i) * 4], static_cast<uint32_t>(coded.size()));
      if (!put(f, coded.data(), coded.size())) return IMK_ERR_WRITE;
      offset += coded.size();
    }
    if (ctx.progress.advance(int64_t{r + 1} * channels)) return IMK_ERR_STOPPED;
  }
  if (std::fseek(f, static_cast<long>(kHeaderSize), SEEK_SET) != 0 ||
      !put(f, tables.data(), tables.size()) || std::fseek(f, 0, SEEK_END) != 0)
    return IMK_ERR_WRITE;
  return std::ferror(f) ? IMK_ERR_WRITE : IMK_OK;
}

}  // namespace

const Codec kSgiCodec = {"sgi",
                         "SGI",
                         {"sgi", "rgb", "rgba", "bw", "int", "inta"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         sniffSgi,
                         infoSgi,
                         readSgi,
                         writeSgi};

}  // namespace imk
