// Shared machinery of the codec library: the codec registry row, the read and
// write contexts handed to every codec, the bounded reader for untrusted bytes,
// and pixel helpers. Not installed; codecs and tests include it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "imgkit/imgkit.h"

namespace imk {

// ---------------------------------------------------------------------------
// Limits for untrusted dimensions.

// Largest width or height any reader accepts.
constexpr int32_t kMaxDimension = 1 << 20;
// Largest pixel buffer a reader will allocate, in bytes. Tests and fuzzers
// lower it with setPixelByteLimit so that hostile headers fail fast.
size_t pixelByteLimit();
void setPixelByteLimit(size_t bytes);
// The PNG writer compresses a picture at once when its filtered rows take at
// most this many bytes, and streams it through zlib otherwise; tests lower
// it to reach the streaming path.
size_t pngOneShotLimit();
void setPngOneShotLimit(size_t bytes);

// True when width x height x bytesPerPixel is positive, within kMaxDimension
// and within pixelByteLimit(), computed without overflow.
bool sizeAcceptable(int64_t width, int64_t height, int bytesPerPixel);

// ---------------------------------------------------------------------------
// Bounded little/big-endian reader over a memory block. Reading past the end
// yields zeros and sets `overrun`; nothing is ever read outside the block.
class ByteReader {
 public:
  ByteReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  size_t size() const { return size_; }
  size_t pos() const { return pos_; }
  size_t remaining() const { return pos_ < size_ ? size_ - pos_ : 0; }
  bool overrun() const { return overrun_; }
  const uint8_t* data() const { return data_; }
  // Pointer to the current position when n bytes remain, else nullptr.
  const uint8_t* peek(size_t n) const { return remaining() >= n ? data_ + pos_ : nullptr; }

  void seek(size_t pos) {
    if (pos > size_) {
      overrun_ = true;
      pos_ = size_;
    } else {
      pos_ = pos;
    }
  }
  void skip(size_t n) { seek(n > remaining() ? size_ + 1 : pos_ + n); }

  uint8_t u8() {
    if (pos_ >= size_) {
      overrun_ = true;
      return 0;
    }
    return data_[pos_++];
  }
  uint16_t u16le() {
    uint16_t a = u8();
    return static_cast<uint16_t>(a | (u8() << 8));
  }
  uint16_t u16be() {
    uint16_t a = u8();
    return static_cast<uint16_t>((a << 8) | u8());
  }
  uint32_t u32le() {
    uint32_t a = u16le();
    return a | (static_cast<uint32_t>(u16le()) << 16);
  }
  uint32_t u32be() {
    uint32_t a = u16be();
    return (a << 16) | u16be();
  }
  // Copies n bytes; the part past the end is zero-filled. False on overrun.
  bool bytes(void* out, size_t n) {
    size_t avail = remaining();
    size_t take = n < avail ? n : avail;
    if (take) std::memcpy(out, data_ + pos_, take);
    if (take < n) {
      std::memset(static_cast<uint8_t*>(out) + take, 0, n - take);
      overrun_ = true;
    }
    pos_ += take;
    return take == n;
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
  bool overrun_ = false;
};

// ---------------------------------------------------------------------------
// Owned picture: frees its buffers unless released to the caller.
class Picture {
 public:
  Picture() { std::memset(&rec_, 0, sizeof rec_); }
  ~Picture() { reset(); }
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;
  Picture(Picture&& o) noexcept : rec_(o.rec_) { std::memset(&o.rec_, 0, sizeof o.rec_); }
  Picture& operator=(Picture&& o) noexcept {
    if (this != &o) {
      reset();
      rec_ = o.rec_;
      std::memset(&o.rec_, 0, sizeof o.rec_);
    }
    return *this;
  }

  // imkAllock with the size checks of sizeAcceptable; false when impossible.
  bool allocate(uint16_t type, int32_t width, int32_t height, int16_t bitsPerComponent = 8);
  void reset();
  bool empty() const { return rec_.pixels == nullptr; }
  ImageRecord& rec() { return rec_; }
  const ImageRecord& rec() const { return rec_; }
  uint8_t* row(int y) { return rec_.pixels + static_cast<size_t>(y) * rec_.bytesPerLine; }
  const uint8_t* row(int y) const {
    return rec_.pixels + static_cast<size_t>(y) * rec_.bytesPerLine;
  }
  // Hands the record to the caller; this object becomes empty.
  ImageRecord release() {
    ImageRecord r = rec_;
    std::memset(&rec_, 0, sizeof rec_);
    return r;
  }

 private:
  ImageRecord rec_;
};

// ---------------------------------------------------------------------------
// Plain or byte-oriented run-length data whose runs may continue from one
// row (or plane) into the next. `Codes::next(p, end, run)` reads one code
// from [p, end): a literal byte becomes a run of 1; it returns false when
// the data ends inside a code.
struct ByteRun {
  uint32_t left = 0;
  uint8_t value = 0;
};

template <class Codes>
class RunSource {
 public:
  RunSource(const uint8_t* p, const uint8_t* end, bool rle) : p_(p), end_(end), rle_(rle) {}

  // Fills the n bytes of `out`; false when the data ends first (the rest of
  // `out` is then zero).
  bool fill(uint8_t* out, size_t n) {
    size_t i = 0;
    if (!rle_) {
      i = n < static_cast<size_t>(end_ - p_) ? n : static_cast<size_t>(end_ - p_);
      std::memcpy(out, p_, i);
      p_ += i;
    }
    while (i < n) {
      if (run_.left) {
        const size_t k = run_.left < n - i ? run_.left : n - i;
        std::memset(out + i, run_.value, k);
        i += k;
        run_.left -= static_cast<uint32_t>(k);
      } else if (!Codes::next(p_, end_, run_)) {
        break;
      }
    }
    if (i < n) std::memset(out + i, 0, n - i);
    return i == n;
  }

 private:
  const uint8_t* p_;
  const uint8_t* end_;
  bool rle_;
  ByteRun run_;
};

// ---------------------------------------------------------------------------
// Pixel helpers shared by codecs.

inline bool isTrueColor(uint16_t type) {
  return type != IMK_BINARY && type != IMK_GREY && type != IMK_MAPPED;
}
// Bytes per pixel of a kind, 0 for an unknown kind.
int bytesPerPixelOf(uint16_t type);
// Intensity of grey level `level` out of `count` levels: level*255/(count-1).
inline uint8_t greyLevelIntensity(int level, int count) {
  return count <= 1 ? 0 : static_cast<uint8_t>(level * 255 / (count - 1));
}
// a * b / 255 rounded exactly, for a, b <= 255.
inline uint8_t mul255(unsigned a, unsigned b) {
  const unsigned x = a * b + 128;
  return static_cast<uint8_t>((x + (x >> 8)) >> 8);
}
// C,M,Y,K rows to R,G,B: ink amounts (255 = full ink), or with `inverted`
// the inverted inks some writers store (0 = full ink).
void cmykRowToRgb(const uint8_t* in, uint8_t* out, size_t width, bool inverted);
// Sets palette entries 0..count-1 to the grey ramp of `count` levels.
void fillGreyPalette(ImageRecord& rec, int count);
// Converts row y of any kind to 8-bit R,G,B triples (binary 0/255, grey via
// the level ramp, mapped through the palette).
void rowToRgb(const ImageRecord& rec, int y, uint8_t* out);
// As rowToRgb with a fourth byte: the spare byte of kind 512 (alpha), else 255.
void rowToRgba(const ImageRecord& rec, int y, uint8_t* out);
// Row y as 8-bit intensities: grey and binary through the level ramp, others
// by the luminance (77R + 150G + 29B) >> 8.
void rowToGrey(const ImageRecord& rec, int y, uint8_t* out);
// A colour-mapped picture whose palette is exactly black and white becomes a
// binary picture; one whose palette is the identity grey ramp of 256 becomes
// grey. Pixel values are rewritten where the mapping requires it.
void simplifyMappedPicture(ImageRecord& rec);

// ---------------------------------------------------------------------------
// What a codec reports about a file's headers.
struct HeaderInfo {
  int32_t width = 0;
  int32_t height = 0;
  int16_t planes = 0;
  int16_t bitsPerPlane = 0;
  int32_t pictureCount = 1;
};

// Calls the caller's progress function, if the options ask for it, with
// step 0 first and at most kSteps further steps over `total` units of work.
class ProgressMeter {
 public:
  explicit ProgressMeter(const LoadOptions& options)
      : fn_((options.flags & IMK_FLAG_PROGRESS) ? options.progress : nullptr) {}
  // Reports step 0; true when the caller asked to stop.
  bool begin(int64_t total);
  // Reports the steps reached after `done` of `total` units.
  bool advance(int64_t done);
  bool stopped() const { return stopped_; }

  static constexpr int kSteps = 40;

 private:
  ImkProgressFunc fn_;
  int64_t total_ = 0;
  int steps_ = 0;
  int reported_ = -1;
  bool stopped_ = false;
};

// Everything a reader needs for one load.
class ReadContext {
 public:
  ReadContext(const uint8_t* data, size_t size, const LoadOptions& options)
      : data(data), size(size), options(options) {}

  const uint8_t* data;
  size_t size;
  const LoadOptions& options;
  HeaderInfo header;

  int pictureIndex() const { return options.pictureIndex < 0 ? 0 : options.pictureIndex; }
  bool ignoreErrors() const { return (options.flags & IMK_FLAG_IGNORE_ERRORS) != 0; }
  // Target size of a reduced load, or false when no reduction was asked.
  bool reduceTarget(int32_t* fitWidth, int32_t* fitHeight) const;

  // Records a failure: returns `code` so that readers can write
  // `return ctx.fail(IMK_ERR_BAD_FILE, "bad header")`. The first text wins.
  int fail(int code, const char* text);
  // A damaged or truncated picture: with IMK_FLAG_IGNORE_ERRORS the partial
  // picture is kept (returns 0, text recorded); otherwise returns `code`.
  int damaged(int code, const char* text);
  const std::string& errorText() const { return errorText_; }
  // Before a reader allocates: the `present` bytes left must hold the
  // `least` bytes the picture needs. Short data fails ("truncated") unless
  // errors are ignored, and data for less than 1/kLeastShare of the picture
  // fails even then, so a tiny damaged file never makes a reader allocate a
  // huge picture. Returns 0 or the error code.
  static constexpr uint64_t kLeastShare = 64;
  int requireData(uint64_t least, uint64_t present);

  // Progress over `total` units of work (rows, say). begin() reports step 0;
  // advance(done) reports further steps. Both return true when the caller
  // asked to stop; the reader then returns IMK_ERR_STOPPED.
  bool beginProgress(int64_t total) { return progress_.begin(total); }
  bool advanceProgress(int64_t done) { return progress_.advance(done); }
  bool stopped() const { return progress_.stopped(); }

 private:
  std::string errorText_;
  ProgressMeter progress_{options};
};

// ---------------------------------------------------------------------------
// A whole input file in memory (mapped when it is a regular file).
class FileData {
 public:
  FileData() = default;
  ~FileData();
  FileData(const FileData&) = delete;
  FileData& operator=(const FileData&) = delete;
  // 0, IMK_ERR_OPEN when the file cannot be opened or is not a regular file,
  // IMK_ERR_READ when it cannot be read, IMK_ERR_MEMORY. `prefault` reads the
  // whole mapping at once (loads); header-only look-ups leave it lazy.
  int open(const char* path, bool prefault = true);
  const uint8_t* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  uint8_t* data_ = nullptr;
  size_t size_ = 0;
  bool mapped_ = false;
};

// ---------------------------------------------------------------------------
// A file being written: a temporary file in the target's directory, renamed
// over the target by commit(); removed when the object dies uncommitted.
class AtomicFile {
 public:
  AtomicFile() = default;
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  // False when the temporary file cannot be created.
  bool open(const char* path);
  FILE* file() { return file_; }
  int fd() const;
  const std::string& tempPath() const { return temp_; }
  // Flushes, closes and renames; false (and no change to the target) on error.
  bool commit();

 private:
  std::string target_;
  std::string temp_;
  FILE* file_ = nullptr;
};

struct WriteContext {
  WriteContext(const LoadOptions& options, AtomicFile& out) : options(options), out(out) {}
  const LoadOptions& options;
  AtomicFile& out;
  // Progress through the rows written (IMK_FLAG_PROGRESS in the save flags).
  ProgressMeter progress{options};
};

// ---------------------------------------------------------------------------
// One row of the registry. Functions a format does not support are null.
struct Codec {
  const char* shortName;
  const char* displayName;
  const char* extensions[IMK_MAX_EXTENSIONS];  // null-terminated list
  uint8_t capabilities;
  ImkKind kinds[IMK_MAX_KINDS];  // ended by kind >= 65535
  // Recognises the format from the first bytes; must check the length first.
  bool (*sniff)(const uint8_t* data, size_t size);
  // Header-only information; 0 or an error code (ctx.fail for details).
  int (*info)(ReadContext& ctx);
  // Decodes picture ctx.pictureIndex() into `out` and fills ctx.header.
  int (*read)(ReadContext& ctx, Picture& out);
  // Writes `picture` to ctx.out.file(); 0 or an error code.
  int (*write)(WriteContext& ctx, const ImageRecord& picture);
};

// Registry rows, one per codec file.
extern const Codec kJpegCodec;
extern const Codec kPngCodec;
extern const Codec kGifCodec;
extern const Codec kTiffCodec;
extern const Codec kBmpCodec;
extern const Codec kPbmCodec;
extern const Codec kPgmCodec;
extern const Codec kPpmCodec;
extern const Codec kPamCodec;
extern const Codec kRawCodec;
extern const Codec kPcxCodec;
extern const Codec kTgaCodec;
extern const Codec kSgiCodec;
extern const Codec kIffCodec;
extern const Codec kSoftCodec;
extern const Codec kSunCodec;
extern const Codec kXbmCodec;
extern const Codec kXpmCodec;
extern const Codec kIcoCodec;
extern const Codec kCurCodec;
extern const Codec kWebpCodec;
extern const Codec kJp2Codec;
extern const Codec kJ2kCodec;
extern const Codec kHeifCodec;
extern const Codec kAvifCodec;
extern const Codec kPsdCodec;

// The registry in index order, and its length.
const Codec* const* codecs();
int codecCount();

// Terminator for Codec::kinds and a kind row for any colour count / size.
constexpr uint32_t kAnySize = 0xFFFFFFFFu;
constexpr uint32_t kAnyColors = 0xFFFFFFFFu;
constexpr ImkKind kEndKinds = {0xFFFFFFFFu, 0, 0, 0};

// Reduces `pic` by area averaging so that it fits fitWidth x fitHeight with
// its aspect kept. Binary and grey pictures become 256-level grey, mapped and
// true-colour pictures R,G,B (kind 512 keeps its alpha). False when memory is
// short (pic unchanged). A picture that already fits is left alone.
bool reducePicture(Picture& pic, int32_t fitWidth, int32_t fitHeight);
// The reduced size for a picture of width x height.
void reducedSize(int32_t width, int32_t height, int32_t fitWidth, int32_t fitHeight,
                 int32_t* outWidth, int32_t* outHeight);

}  // namespace imk
