// Helpers shared by the unit tests: temporary directories, owned pictures,
// synthetic test pictures, pixel comparison and running independent tools.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "imgkit/imgkit.h"

namespace test {

// A fresh directory under $TMPDIR, removed with its contents on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// An ImageRecord freed with imkFree on destruction.
struct OwnedPicture {
  ImageRecord rec{};
  OwnedPicture() = default;
  ~OwnedPicture() { reset(); }
  OwnedPicture(const OwnedPicture&) = delete;
  OwnedPicture& operator=(const OwnedPicture&) = delete;
  void reset();
  ImageRecord* operator->() { return &rec; }
  const ImageRecord* operator->() const { return &rec; }
  uint8_t* row(int y) { return rec.pixels + static_cast<size_t>(y) * rec.bytesPerLine; }
  const uint8_t* row(int y) const { return rec.pixels + static_cast<size_t>(y) * rec.bytesPerLine; }
};

// A picture of the given kind filled with a deterministic pattern that uses
// every level / palette entry / colour channel (`levels` for grey and mapped).
void makePattern(OwnedPicture& pic, uint16_t type, int width, int height, int levels = 256);

// Loads `path` with default options (plus `flags`), returns the result code.
int load(const std::string& path, OwnedPicture& pic, int pictureIndex = 0, uint16_t flags = 0,
         FileInfo* info = nullptr);
// Saves with the format of that short name; quality/options as given.
int save(const std::string& path, const ImageRecord& pic, const char* shortName, int quality = 0,
         int option = 0, int option2 = 0);

// Writes a colour into a true-colour pixel, byte positions spelled out per
// layout; false for a picture that is not true colour.
bool storeRgb(OwnedPicture& pic, int x, int y, uint8_t r, uint8_t g, uint8_t b);
// The pixel bytes row after row, without any padding past width x bpp.
std::vector<uint8_t> pixelsOf(const ImageRecord& pic);

// Pixels as interleaved 8-bit RGB (any kind), for comparisons.
std::vector<uint8_t> toRgb(const ImageRecord& pic);
// Largest per-channel difference between two RGB buffers of the same size
// (255 + 1 when their sizes differ).
int maxDifference(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b);

// R,G,B,A of every pixel of any kind (alpha 255 unless the kind is 512).
std::vector<uint8_t> rgbaOf(const ImageRecord& pic);
// ImageMagick's RGBA decoding of one frame, rows in display order (the file's
// orientation applied); false when it fails or the size is not width x height.
bool magickRgba(const std::string& path, int width, int height, std::vector<uint8_t>* out,
                int frame = 0);
// Largest difference over colour channels of pixels that are not fully
// transparent in `ref`, and over alpha; 256 when the sizes differ.
struct RgbaDiff {
  int color = 0;
  int alpha = 0;
};
RgbaDiff compareRgba(const std::vector<uint8_t>& got, const std::vector<uint8_t>& ref);

// Runs a shell command; returns its exit status and, when `out` is given,
// its standard output.
int run(const std::string& command, std::string* out = nullptr);
// Parses binary PBM/PGM/PPM text (maxval up to 65535) into 8-bit RGB.
bool parseNetpbm(const std::string& data, int* width, int* height, std::vector<uint8_t>* rgb);
// Reads a binary PPM/PGM/PBM written by an independent tool into RGB.
bool readNetpbmAsRgb(const std::string& path, int* width, int* height, std::vector<uint8_t>* rgb);
// Decodes any file with ImageMagick into RGB (first frame unless `frame`).
bool magickToRgb(const std::string& path, int* width, int* height, std::vector<uint8_t>* rgb,
                 int frame = 0);
// Quotes a path for the shell.
std::string quote(const std::string& s);

bool fileExists(const std::string& path);
std::vector<uint8_t> readFile(const std::string& path);

// A format description holding only these kinds (the list's end is added).
FormatInfo formatWith(std::initializer_list<ImkKind> kinds);
void writeFile(const std::string& path, const std::vector<uint8_t>& bytes);
void writeText(const std::string& path, const std::string& text);
// Replaces `{key}` everywhere in `text` by `value`.
std::string expand(std::string text, const std::string& key, const std::string& value);

// Unsigned fields of `n` bytes read from or appended to a byte buffer.
uint32_t le(const std::vector<uint8_t>& b, size_t at, int n = 4);
uint32_t be(const std::vector<uint8_t>& b, size_t at, int n = 4);
void putLe(std::vector<uint8_t>& b, uint32_t v, int n);
void putBe(std::vector<uint8_t>& b, uint32_t v, int n);
// A copy of `file` with `bytes` written over it from `at` on.
std::vector<uint8_t> patched(std::vector<uint8_t> file, size_t at,
                             std::initializer_list<uint8_t> bytes);

// Loads with a progress callback that asks to stop at `stopAt` (-1: never);
// the result code, and in `steps` the steps reported.
int loadStoppingAt(const std::string& path, OwnedPicture& pic, int stopAt,
                   std::vector<int>* steps = nullptr);

// A hand-made file that must be refused.
struct Refusal {
  const char* name;
  std::vector<uint8_t> file;
  int code = IMK_ERR_BAD_FILE;
  const char* reason = nullptr;  // errorText, when it matters
};
// Each file fails with its code (loaded with `flags`), with a reason when
// `needReason`, and leaves no picture; the header look-up refuses it as well,
// with `infoCode` (-1: any code, 0: not checked).
void expectRefused(const std::vector<Refusal>& files, uint16_t flags = IMK_FLAG_IGNORE_ERRORS,
                   int infoCode = -1, bool needReason = true);
// `file` cut to `size` bytes fails with `code` and `reason` and no picture;
// with errors ignored it loads into `kept` with the same reason.
void expectCutFileKeepsRows(const std::vector<uint8_t>& file, size_t size, const char* reason,
                            OwnedPicture& kept, int code = IMK_ERR_CORRUPT);

// The corpus of third-party test files and the repository.
std::string corpusDir();
std::string sourceDir();

}  // namespace test
