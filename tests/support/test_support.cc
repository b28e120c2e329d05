#include "tests/support/test_support.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

namespace test {

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string templ = std::string(base && *base ? base : "/tmp") + "/vimora-test-XXXXXX";
  if (!mkdtemp(templ.data())) std::abort();
  path_ = templ;
}

TempDir::~TempDir() { run("rm -rf " + quote(path_)); }

void OwnedPicture::reset() {
  if (rec.pixels || rec.palette) imkFree(&rec);
  std::memset(&rec, 0, sizeof rec);
}

void makePattern(OwnedPicture& pic, uint16_t type, int width, int height, int levels) {
  pic.reset();
  if (!imkAllock(&pic.rec, type, 8, width, height)) std::abort();
  ImageRecord& r = pic.rec;
  if (type == IMK_GREY || type == IMK_MAPPED) r.colorCount = levels;
  if (type == IMK_GREY)
    for (int i = 0; i < levels; ++i)
      r.palette[i] = r.palette[256 + i] = r.palette[512 + i] =
          static_cast<uint8_t>(levels > 1 ? i * 255 / (levels - 1) : 0);
  if (type == IMK_MAPPED)
    for (int i = 0; i < levels; ++i) {
      r.palette[i] = static_cast<uint8_t>(i * 37 + 11);
      r.palette[256 + i] = static_cast<uint8_t>(255 - i * 3);
      r.palette[512 + i] = static_cast<uint8_t>(i * 101 + 7);
    }
  for (int y = 0; y < height; ++y) {
    uint8_t* row = pic.row(y);
    for (int x = 0; x < width; ++x) {
      const unsigned v = static_cast<unsigned>(x * 7 + y * 13 + ((x ^ y) & 5));
      switch (type) {
        case IMK_BINARY:
          row[x] = ((x / 3 + y / 2) & 1) ^ (x == y);
          break;
        case IMK_GREY:
        case IMK_MAPPED:
          row[x] = static_cast<uint8_t>(v % static_cast<unsigned>(levels));
          break;
        default:
          for (int c = 0; c < r.bytesPerPixel; ++c)
            row[x * r.bytesPerPixel + c] =
                static_cast<uint8_t>(v * (c + 1) + c * 60 + (y & 3) * 17);
      }
    }
  }
}

int load(const std::string& path, OwnedPicture& pic, int pictureIndex, uint16_t flags,
         FileInfo* info) {
  pic.reset();
  LoadOptions o;
  imkDefaultOption(&o);
  o.pictureIndex = pictureIndex;
  o.flags |= flags;
  return imkLoad(path.c_str(), &pic.rec, &o, info);
}

int save(const std::string& path, const ImageRecord& pic, const char* shortName, int quality,
         int option, int option2) {
  LoadOptions o;
  imkDefaultOption(&o);
  o.formatIndex = imkGetIndex(shortName);
  o.flags = 1 | 4;
  o.saveQuality = static_cast<uint16_t>(quality);
  o.saveOption = static_cast<uint16_t>(option);
  o.saveOption2 = static_cast<uint16_t>(option2);
  return imkSave(path.c_str(), &pic, &o);
}

bool storeRgb(OwnedPicture& pic, int x, int y, uint8_t r, uint8_t g, uint8_t b) {
  uint8_t* px = pic.row(y) + x * pic->bytesPerPixel;
  switch (pic->type) {
    case IMK_RGB:
    case IMK_RGBX:
      px[0] = r, px[1] = g, px[2] = b;
      return true;
    case IMK_BGR:
      px[0] = b, px[1] = g, px[2] = r;
      return true;
    case IMK_XBGR:
      px[1] = b, px[2] = g, px[3] = r;
      return true;
    default:
      return false;
  }
}

std::vector<uint8_t> pixelsOf(const ImageRecord& pic) {
  std::vector<uint8_t> out;
  const size_t rowBytes = static_cast<size_t>(pic.width) * pic.bytesPerPixel;
  for (int y = 0; y < pic.height; ++y) {
    const uint8_t* row = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
    out.insert(out.end(), row, row + rowBytes);
  }
  return out;
}

std::vector<uint8_t> toRgb(const ImageRecord& pic) {
  std::vector<uint8_t> out(static_cast<size_t>(pic.width) * pic.height * 3);
  for (int y = 0; y < pic.height; ++y) {
    const uint8_t* row = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
    uint8_t* o = &out[static_cast<size_t>(y) * pic.width * 3];
    for (int x = 0; x < pic.width; ++x, o += 3) {
      switch (pic.type) {
        case IMK_BINARY:
          o[0] = o[1] = o[2] = row[x] ? 255 : 0;
          break;
        case IMK_GREY: {
          const int n = pic.colorCount > 1 ? pic.colorCount : 256;
          o[0] = o[1] = o[2] = static_cast<uint8_t>(row[x] * 255 / (n - 1));
          break;
        }
        case IMK_MAPPED:
          o[0] = pic.palette[row[x]], o[1] = pic.palette[256 + row[x]],
          o[2] = pic.palette[512 + row[x]];
          break;
        case IMK_RGB:
        case IMK_RGBX: {
          const uint8_t* p = row + x * pic.bytesPerPixel;
          o[0] = p[0], o[1] = p[1], o[2] = p[2];
          break;
        }
        case IMK_XBGR: {
          const uint8_t* p = row + x * 4;
          o[0] = p[3], o[1] = p[2], o[2] = p[1];
          break;
        }
        default: {
          const uint8_t* p = row + x * pic.bytesPerPixel;
          o[0] = p[2], o[1] = p[1], o[2] = p[0];
        }
      }
    }
  }
  return out;
}

int maxDifference(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  if (a.size() != b.size()) return 256;
  int worst = 0;
  for (size_t i = 0; i < a.size(); ++i) worst = std::max(worst, std::abs(a[i] - b[i]));
  return worst;
}

std::string quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

int run(const std::string& command, std::string* out) {
  FILE* p = popen(command.c_str(), "r");
  if (!p) return -1;
  std::string text;
  char buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) text.append(buf, n);
  const int status = pclose(p);
  if (out) *out = std::move(text);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool parseNetpbm(const std::string& data, int* width, int* height, std::vector<uint8_t>* rgb) {
  size_t pos = 2;
  auto next = [&]() -> long {
    while (pos < data.size()) {
      if (data[pos] == '#') {
        while (pos < data.size() && data[pos] != '\n') ++pos;
      } else if (std::isspace(static_cast<unsigned char>(data[pos]))) {
        ++pos;
      } else {
        break;
      }
    }
    long v = 0;
    bool any = false;
    while (pos < data.size() && std::isdigit(static_cast<unsigned char>(data[pos]))) {
      v = v * 10 + (data[pos++] - '0');
      any = true;
    }
    return any ? v : -1;
  };
  if (data.size() < 3 || data[0] != 'P') return false;
  const char kind = data[1];
  if (kind != '5' && kind != '6' && kind != '4') return false;
  const long w = next(), h = next();
  const long maxval = kind == '4' ? 1 : next();
  if (w <= 0 || h <= 0 || maxval <= 0 || maxval > 65535) return false;
  ++pos;
  *width = static_cast<int>(w), *height = static_cast<int>(h);
  rgb->assign(static_cast<size_t>(w * h * 3), 0);
  if (kind == '4') {
    const size_t stride = static_cast<size_t>((w + 7) / 8);
    if (data.size() < pos + stride * h) return false;
    for (long y = 0; y < h; ++y)
      for (long x = 0; x < w; ++x) {
        const bool black = (data[pos + y * stride + x / 8] >> (7 - x % 8)) & 1;
        for (int c = 0; c < 3; ++c) (*rgb)[(y * w + x) * 3 + c] = black ? 0 : 255;
      }
    return true;
  }
  const int ch = kind == '6' ? 3 : 1;
  const int sampleBytes = maxval > 255 ? 2 : 1;
  if (data.size() < pos + static_cast<size_t>(w * h * ch * sampleBytes)) return false;
  for (long i = 0; i < w * h; ++i)
    for (int c = 0; c < 3; ++c) {
      const size_t at = pos + static_cast<size_t>((i * ch + (ch == 3 ? c : 0)) * sampleBytes);
      long v = static_cast<unsigned char>(data[at]);
      if (sampleBytes == 2) v = v * 256 + static_cast<unsigned char>(data[at + 1]);
      // 8-bit levels scale by truncation, as the picture record's level ramp
      // does; 16-bit samples round to the nearest 8-bit value.
      (*rgb)[i * 3 + c] = static_cast<uint8_t>(sampleBytes == 2 ? (v * 255 + maxval / 2) / maxval
                                                                : v * 255 / maxval);
    }
  return true;
}

bool readNetpbmAsRgb(const std::string& path, int* width, int* height, std::vector<uint8_t>* rgb) {
  std::ifstream in(path, std::ios::binary);
  std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return parseNetpbm(data, width, height, rgb);
}

bool magickToRgb(const std::string& path, int* width, int* height, std::vector<uint8_t>* rgb,
                 int frame) {
  std::string out;
  const std::string cmd = "/usr/bin/convert " + quote(path + "[" + std::to_string(frame) + "]") +
                          " -depth 8 ppm:- 2>/dev/null";
  if (run(cmd, &out) != 0) return false;
  return parseNetpbm(out, width, height, rgb);
}

bool fileExists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

std::vector<uint8_t> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

void writeText(const std::string& path, const std::string& text) {
  writeFile(path, std::vector<uint8_t>(text.begin(), text.end()));
}

std::string expand(std::string text, const std::string& key, const std::string& value) {
  const std::string k = "{" + key + "}";
  for (size_t at = 0; (at = text.find(k, at)) != std::string::npos; at += value.size())
    text.replace(at, k.size(), value);
  return text;
}

uint32_t le(const std::vector<uint8_t>& b, size_t at, int n) {
  uint32_t v = 0;
  for (int i = n - 1; i >= 0; --i) v = v << 8 | b.at(at + static_cast<size_t>(i));
  return v;
}

uint32_t be(const std::vector<uint8_t>& b, size_t at, int n) {
  uint32_t v = 0;
  for (int i = 0; i < n; ++i) v = v << 8 | b.at(at + static_cast<size_t>(i));
  return v;
}

void putLe(std::vector<uint8_t>& b, uint32_t v, int n) {
  for (int i = 0; i < n; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

void putBe(std::vector<uint8_t>& b, uint32_t v, int n) {
  for (int i = n - 1; i >= 0; --i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

std::vector<uint8_t> patched(std::vector<uint8_t> file, size_t at,
                             std::initializer_list<uint8_t> bytes) {
  if (file.size() < at + bytes.size()) file.resize(at + bytes.size());
  std::copy(bytes.begin(), bytes.end(), file.begin() + static_cast<long>(at));
  return file;
}

namespace {
int gStopAt = -1;
std::vector<int>* gSteps = nullptr;
int stopWhenAsked(int step, int) {
  if (gSteps) gSteps->push_back(step);
  return step == gStopAt;
}
}  // namespace

int loadStoppingAt(const std::string& path, OwnedPicture& pic, int stopAt,
                   std::vector<int>* steps) {
  pic.reset();
  if (steps) steps->clear();
  gStopAt = stopAt;
  gSteps = steps;
  LoadOptions o;
  imkDefaultOption(&o);
  o.flags |= IMK_FLAG_PROGRESS;
  o.progress = stopWhenAsked;
  const int rc = imkLoad(path.c_str(), &pic.rec, &o, nullptr);
  gSteps = nullptr;
  return rc;
}

void expectRefused(const std::vector<Refusal>& files, uint16_t flags, int infoCode,
                   bool needReason) {
  TempDir dir;
  for (const Refusal& r : files) {
    SCOPED_TRACE(r.name);
    writeFile(dir.file("refused"), r.file);
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(load(dir.file("refused"), pic, 0, flags, &info), r.code) << info.errorText;
    if (r.reason) {
      EXPECT_STREQ(info.errorText, r.reason);
    } else if (needReason) {
      EXPECT_NE(info.errorText[0], '\0');
    }
    EXPECT_EQ(pic->pixels, nullptr);
    const int rc = imkFileInformation(dir.file("refused").c_str(), -1, 0, &info);
    if (infoCode < 0) {
      EXPECT_NE(rc, 0);
    } else if (infoCode > 0) {
      EXPECT_EQ(rc, infoCode);
    }
  }
}

void expectCutFileKeepsRows(const std::vector<uint8_t>& file, size_t size, const char* reason,
                            OwnedPicture& kept, int code) {
  TempDir dir;
  writeFile(dir.file("cut"),
            std::vector<uint8_t>(file.begin(),
                                 file.begin() + static_cast<long>(std::min(size, file.size()))));
  FileInfo info;
  EXPECT_EQ(load(dir.file("cut"), kept, 0, 0, &info), code);
  EXPECT_STREQ(info.errorText, reason);
  EXPECT_EQ(kept->pixels, nullptr);
  ASSERT_EQ(load(dir.file("cut"), kept, 0, IMK_FLAG_IGNORE_ERRORS, &info), 0);
  EXPECT_STREQ(info.errorText, reason);
}

std::vector<uint8_t> rgbaOf(const ImageRecord& pic) {
  const std::vector<uint8_t> rgb = toRgb(pic);
  std::vector<uint8_t> out(static_cast<size_t>(pic.width) * pic.height * 4);
  for (int y = 0; y < pic.height; ++y)
    for (int x = 0; x < pic.width; ++x) {
      const size_t i = static_cast<size_t>(y) * pic.width + x;
      for (int c = 0; c < 3; ++c) out[i * 4 + c] = rgb[i * 3 + c];
      out[i * 4 + 3] = pic.type == IMK_RGBX
                           ? pic.pixels[static_cast<size_t>(y) * pic.bytesPerLine + x * 4 + 3]
                           : 255;
    }
  return out;
}

bool magickRgba(const std::string& path, int width, int height, std::vector<uint8_t>* out,
                int frame) {
  std::string data;
  const std::string src = path + "[" + std::to_string(frame) + "]";
  if (run("/usr/bin/convert " + quote(src) + " -auto-orient -depth 8 rgba:- 2>/dev/null", &data) !=
      0)
    return false;
  if (data.size() != static_cast<size_t>(width) * height * 4) return false;
  out->assign(data.begin(), data.end());
  return true;
}

RgbaDiff compareRgba(const std::vector<uint8_t>& got, const std::vector<uint8_t>& ref) {
  RgbaDiff d;
  if (got.size() != ref.size()) return {256, 256};
  for (size_t i = 0; i < got.size(); i += 4) {
    d.alpha = std::max(d.alpha, std::abs(got[i + 3] - ref[i + 3]));
    if (ref[i + 3] == 0) continue;
    for (int c = 0; c < 3; ++c) d.color = std::max(d.color, std::abs(got[i + c] - ref[i + c]));
  }
  return d;
}

std::string corpusDir() { return VIMORA_CORPUS_DIR; }
std::string sourceDir() { return VIMORA_SOURCE_DIR; }

FormatInfo formatWith(std::initializer_list<ImkKind> kinds) {
  FormatInfo info{};
  int i = 0;
  for (const ImkKind& k : kinds) info.kinds[i++] = k;
  info.kinds[i].kind = 0xFFFFFFFFu;
  return info;
}

}  // namespace test
