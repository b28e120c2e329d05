// PNG: round trips of every picture kind and grey level count, PngSuite
// against ImageMagick and netpbm, corrupt files, transparency, damaged and
// hand-made hostile files, cancelling, header look-ups and write failures.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/support/test_support.h"

namespace {

using test::OwnedPicture;

const std::string kSuite = test::corpusDir() + "/png/pngsuite/";

std::vector<std::string> suiteFiles(bool corrupt) {
  std::vector<std::string> names;
  if (DIR* d = opendir(kSuite.c_str())) {
    while (dirent* e = readdir(d)) {
      const std::string n = e->d_name;
      if (n.size() > 4 && n.compare(n.size() - 4, 4, ".png") == 0 && (n[0] == 'x') == corrupt)
        names.push_back(n);
    }
    closedir(d);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Byte `offset` of a file (IHDR: 24 = bit depth, 25 = colour type).
int fileByte(const std::string& path, size_t offset) {
  const std::vector<uint8_t> b = test::readFile(path);
  return offset < b.size() ? b[offset] : -1;
}

// Spare byte (alpha) of every pixel of a kind-512 picture.
std::vector<uint8_t> alphaOf(const ImageRecord& pic) {
  std::vector<uint8_t> a;
  for (int y = 0; y < pic.height; ++y)
    for (int x = 0; x < pic.width; ++x)
      a.push_back(pic.pixels[static_cast<size_t>(y) * pic.bytesPerLine + x * 4 + 3]);
  return a;
}

// Shell output as a netpbm picture (RGB); empty on failure.
std::vector<uint8_t> netpbmFrom(const std::string& command, int* w, int* h) {
  test::TempDir dir;
  std::vector<uint8_t> rgb;
  if (test::run(command + " > " + test::quote(dir.file("o.pnm")) + " 2>/dev/null") != 0) return rgb;
  if (!test::readNetpbmAsRgb(dir.file("o.pnm"), w, h, &rgb)) rgb.clear();
  return rgb;
}

// ImageMagick's decoding with the stored values (no gamma conversion).
std::vector<uint8_t> magickStored(const std::string& path, int* w, int* h) {
  return netpbmFrom(
      "/usr/bin/convert " + test::quote(path) + " -set colorspace sRGB -depth 8 ppm:-", w, h);
}

// The alpha channel as ImageMagick reads it (one byte per pixel).
std::vector<uint8_t> magickAlpha(const std::string& path) {
  int w, h;
  const std::vector<uint8_t> rgb = netpbmFrom(
      "/usr/bin/convert " + test::quote(path) + " -alpha extract -depth 8 pgm:-", &w, &h);
  std::vector<uint8_t> a;
  for (size_t i = 0; i < rgb.size(); i += 3) a.push_back(rgb[i]);
  return a;
}

// --- hand-made files ---------------------------------------------------------

void put32(std::vector<uint8_t>& out, uint32_t v) {
  for (int s = 24; s >= 0; s -= 8) out.push_back(static_cast<uint8_t>(v >> s));
}

void addChunk(std::vector<uint8_t>& png, const char* type, const std::vector<uint8_t>& data) {
  put32(png, static_cast<uint32_t>(data.size()));
  const size_t start = png.size();
  png.insert(png.end(), type, type + 4);
  png.insert(png.end(), data.begin(), data.end());
  put32(png, static_cast<uint32_t>(crc32(0, &png[start], static_cast<uInt>(png.size() - start))));
}

std::vector<uint8_t> deflated(const std::vector<uint8_t>& raw) {
  uLongf size = compressBound(static_cast<uLong>(raw.size()));
  std::vector<uint8_t> out(size);
  compress(out.data(), &size, raw.data(), static_cast<uLong>(raw.size()));
  out.resize(size);
  return out;
}

// A PNG with the given header fields; `rows` is the filtered image data
// (filter byte first in each row), `before` chunks go between IHDR and IDAT.
std::vector<uint8_t> makePng(
    uint32_t w, uint32_t h, int depth, int colorType, const std::vector<uint8_t>& idat,
    const std::vector<std::pair<const char*, std::vector<uint8_t>>>& before = {}) {
  std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  std::vector<uint8_t> ihdr;
  put32(ihdr, w);
  put32(ihdr, h);
  ihdr.insert(ihdr.end(), {static_cast<uint8_t>(depth), static_cast<uint8_t>(colorType), 0, 0, 0});
  addChunk(png, "IHDR", ihdr);
  for (const auto& [type, data] : before) addChunk(png, type, data);
  addChunk(png, "IDAT", idat);
  addChunk(png, "IEND", {});
  return png;
}

// --- round trips ------------------------------------------------------------

TEST(PngRoundTrip, BinaryAndEachGreyLevelCountComeBackAsTheyWere) {
  test::TempDir dir;
  const std::string path = dir.file("g.png");
  OwnedPicture bin, back;
  test::makePattern(bin, IMK_BINARY, 37, 19);
  ASSERT_EQ(test::save(path, bin.rec, "png"), 0);
  EXPECT_EQ(fileByte(path, 24), 1);  // bit depth
  ASSERT_EQ(test::load(path, back), 0);
  EXPECT_EQ(back->type, IMK_BINARY);
  EXPECT_EQ(test::toRgb(back.rec), test::toRgb(bin.rec));

  // 4, 16 and 256 levels are stored as level numbers at depth 2, 4, 8.
  for (const auto& [levels, depth] : {std::pair{4, 2}, std::pair{16, 4}, std::pair{256, 8}}) {
    OwnedPicture grey;
    test::makePattern(grey, IMK_GREY, 41, 23, levels);
    ASSERT_EQ(test::save(path, grey.rec, "png"), 0);
    EXPECT_EQ(fileByte(path, 24), depth) << levels;
    ASSERT_EQ(test::load(path, back), 0);
    EXPECT_EQ(back->type, IMK_GREY);
    EXPECT_EQ(back->colorCount, levels);
    for (int y = 0; y < 23; ++y)
      ASSERT_TRUE(std::equal(back.row(y), back.row(y) + 41, grey.row(y))) << levels << " row " << y;
  }

  // Two grey levels are one bit per pixel: that reads back as binary.
  OwnedPicture two;
  test::makePattern(two, IMK_GREY, 20, 10, 2);
  ASSERT_EQ(test::save(path, two.rec, "png"), 0);
  ASSERT_EQ(test::load(path, back), 0);
  EXPECT_EQ(back->type, IMK_BINARY);
  EXPECT_EQ(test::toRgb(back.rec), test::toRgb(two.rec));

  // Any other count is written as 8-bit intensities: level * 255 / (n - 1).
  OwnedPicture seven;
  test::makePattern(seven, IMK_GREY, 20, 10, 7);
  ASSERT_EQ(test::save(path, seven.rec, "png"), 0);
  EXPECT_EQ(fileByte(path, 24), 8);
  ASSERT_EQ(test::load(path, back), 0);
  EXPECT_EQ(back->type, IMK_GREY);
  EXPECT_EQ(back->colorCount, 256);
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 20; ++x) ASSERT_EQ(back.row(y)[x], seven.row(y)[x] * 255 / 6);
}

TEST(PngRoundTrip, MappedKeepsItsPaletteCountAndIndices) {
  test::TempDir dir;
  const std::string path = dir.file("m.png");
  for (const auto& [count, depth] : {std::pair{2, 1}, std::pair{3, 2}, std::pair{16, 4},
                                     std::pair{17, 8}, std::pair{200, 8}, std::pair{256, 8}}) {
    OwnedPicture pic, back;
    test::makePattern(pic, IMK_MAPPED, 45, 21, count);
    ASSERT_EQ(test::save(path, pic.rec, "png"), 0);
    EXPECT_EQ(fileByte(path, 24), depth) << count;
    EXPECT_EQ(fileByte(path, 25), 3) << count;  // palette colour type
    ASSERT_EQ(test::load(path, back), 0);
    EXPECT_EQ(back->type, IMK_MAPPED) << count;
    EXPECT_EQ(back->colorCount, count);
    for (int c = 0; c < 3; ++c)
      EXPECT_TRUE(std::equal(back->palette + c * 256, back->palette + c * 256 + count,
                             pic->palette + c * 256))
          << count;
    for (int y = 0; y < 21; ++y)
      ASSERT_TRUE(std::equal(back.row(y), back.row(y) + 45, pic.row(y))) << count << " row " << y;
  }
}

TEST(PngRoundTrip, BlackAndWhitePaletteBecomesBinaryAndGreyRampBecomesGrey) {
  test::TempDir dir;
  const std::string path = dir.file("m.png");
  OwnedPicture bw, back;
  test::makePattern(bw, IMK_MAPPED, 30, 12, 2);
  bw->palette[0] = bw->palette[256] = bw->palette[512] = 255;  // entry 0 white
  bw->palette[1] = bw->palette[257] = bw->palette[513] = 0;    // entry 1 black
  ASSERT_EQ(test::save(path, bw.rec, "png"), 0);
  ASSERT_EQ(test::load(path, back), 0);
  EXPECT_EQ(back->type, IMK_BINARY);
  EXPECT_EQ(test::toRgb(back.rec), test::toRgb(bw.rec));

  OwnedPicture ramp;
  test::makePattern(ramp, IMK_MAPPED, 30, 12, 256);
  for (int i = 0; i < 256; ++i)
    ramp->palette[i] = ramp->palette[256 + i] = ramp->palette[512 + i] = i;
  ASSERT_EQ(test::save(path, ramp.rec, "png"), 0);
  ASSERT_EQ(test::load(path, back), 0);
  EXPECT_EQ(back->type, IMK_GREY);
  EXPECT_EQ(test::toRgb(back.rec), test::toRgb(ramp.rec));
}

TEST(PngRoundTrip, TrueColourIsExactAndAlphaSurvives) {
  test::TempDir dir;
  const std::string path = dir.file("t.png");
  for (uint16_t type : {IMK_RGB, IMK_BGR, IMK_XBGR}) {
    OwnedPicture pic, back;
    test::makePattern(pic, type, 33, 17);
    ASSERT_EQ(test::save(path, pic.rec, "png"), 0);
    EXPECT_EQ(fileByte(path, 25), 2) << type;  // RGB
    ASSERT_EQ(test::load(path, back), 0);
    EXPECT_EQ(back->type, IMK_RGB);
    EXPECT_EQ(test::toRgb(back.rec), test::toRgb(pic.rec)) << type;
  }
  OwnedPicture rgba, back;
  test::makePattern(rgba, IMK_RGBX, 33, 17);  // the spare byte varies: alpha
  ASSERT_EQ(test::save(path, rgba.rec, "png"), 0);
  EXPECT_EQ(fileByte(path, 25), 6);  // RGBA
  ASSERT_EQ(test::load(path, back), 0);
  EXPECT_EQ(back->type, IMK_RGBX);
  for (int y = 0; y < 17; ++y)
    ASSERT_TRUE(std::equal(back.row(y), back.row(y) + 33 * 4, rgba.row(y))) << "row " << y;
}

TEST(PngWrite, CompressionLevelShrinksTheFileAndClampsAtNine) {
  test::TempDir dir;
  OwnedPicture pic, a, b;
  test::makePattern(pic, IMK_RGB, 120, 80);
  ASSERT_EQ(test::save(dir.file("0.png"), pic.rec, "png", 0), 0);
  ASSERT_EQ(test::save(dir.file("9.png"), pic.rec, "png", 9), 0);
  ASSERT_EQ(test::save(dir.file("99.png"), pic.rec, "png", 99), 0);
  const auto l0 = test::readFile(dir.file("0.png")), l9 = test::readFile(dir.file("9.png"));
  EXPECT_GT(l0.size(), 120u * 80 * 3);  // level 0 stores
  EXPECT_LT(l9.size(), l0.size() / 2);
  EXPECT_EQ(test::readFile(dir.file("99.png")), l9);
  ASSERT_EQ(test::load(dir.file("0.png"), a), 0);
  ASSERT_EQ(test::load(dir.file("9.png"), b), 0);
  EXPECT_EQ(test::toRgb(a.rec), test::toRgb(b.rec));
}

TEST(PngWrite, StreamedAndOneShotCompressionStoreTheSamePictures) {
  test::TempDir dir;
  const size_t limit = imk::pngOneShotLimit();
  const std::pair<uint16_t, int> kinds[] = {{IMK_BINARY, 2}, {IMK_GREY, 4},   {IMK_GREY, 16},
                                            {IMK_GREY, 256}, {IMK_MAPPED, 100}, {IMK_RGB, 0},
                                            {IMK_RGBX, 0}};
  for (const auto& [type, levels] : kinds) {
    OwnedPicture pic, oneShot, streamed;
    test::makePattern(pic, type, 301, 77, levels ? levels : 256);
    ASSERT_EQ(test::save(dir.file("a.png"), pic.rec, "png", 6), 0);
    imk::setPngOneShotLimit(0);
    const int rc = test::save(dir.file("b.png"), pic.rec, "png", 6);
    imk::setPngOneShotLimit(limit);
    ASSERT_EQ(rc, 0);
    ASSERT_EQ(test::load(dir.file("a.png"), oneShot), 0);
    ASSERT_EQ(test::load(dir.file("b.png"), streamed), 0);
    EXPECT_EQ(test::pixelsOf(oneShot.rec), test::pixelsOf(pic.rec)) << type << " " << levels;
    EXPECT_EQ(test::pixelsOf(streamed.rec), test::pixelsOf(pic.rec)) << type << " " << levels;
    EXPECT_EQ(streamed->type, pic->type);
  }
}

// --- independent tools ---------------------------------------------------------

TEST(PngCrossCheck, NetpbmAndImageMagickReadOurFilesAsTheyWere) {
  test::TempDir dir;
  const struct {
    uint16_t type;
    int levels;
  } kinds[] = {{IMK_BINARY, 2}, {IMK_GREY, 4},    {IMK_GREY, 16}, {IMK_GREY, 256}, {IMK_GREY, 5},
               {IMK_MAPPED, 3}, {IMK_MAPPED, 40}, {IMK_RGB, 0},   {IMK_XBGR, 0},   {IMK_RGBX, 0}};
  for (const auto& k : kinds) {
    SCOPED_TRACE(std::to_string(k.type) + "/" + std::to_string(k.levels));
    OwnedPicture pic;
    test::makePattern(pic, k.type, 29, 13, k.levels ? k.levels : 256);
    const std::string path = dir.file("n.png");
    ASSERT_EQ(test::save(path, pic.rec, "png"), 0);
    int w, h;
    const std::vector<uint8_t> rgb = netpbmFrom("pngtopnm " + test::quote(path), &w, &h);
    ASSERT_EQ(w, 29);
    EXPECT_EQ(rgb, test::toRgb(pic.rec));
    if (k.type == IMK_RGBX) {
      EXPECT_EQ(magickAlpha(path), alphaOf(pic.rec));
    }
  }
}

TEST(PngCrossCheck, FilesFromNetpbmAndImageMagickReadBackTheirPixels) {
  test::TempDir dir;
  OwnedPicture rgb, grey, bin;
  test::makePattern(rgb, IMK_RGB, 43, 27);
  test::makePattern(grey, IMK_GREY, 43, 27, 256);
  test::makePattern(bin, IMK_BINARY, 43, 27);
  // Source pictures written by ImageMagick from raw bytes.
  auto raw = [&](const OwnedPicture& p, const char* name, const char* map) {
    std::vector<uint8_t> bytes;
    for (int y = 0; y < p->height; ++y)
      for (int x = 0; x < p->width; ++x) {
        if (p->type == IMK_RGB)
          bytes.insert(bytes.end(), p.row(y) + x * 3, p.row(y) + x * 3 + 3);
        else
          bytes.push_back(p->type == IMK_BINARY ? (p.row(y)[x] ? 255 : 0) : p.row(y)[x]);
      }
    test::writeFile(dir.file(name), bytes);
    return std::string("-size 43x27 -depth 8 ") + map + ":" + test::quote(dir.file(name));
  };
  const std::string rgbIn = raw(rgb, "rgb.raw", "rgb"), greyIn = raw(grey, "g.raw", "gray"),
                    binIn = raw(bin, "b.raw", "gray");
  ASSERT_EQ(test::run("/usr/bin/convert " + rgbIn + " " + test::quote(dir.file("in.ppm"))), 0);
  ASSERT_EQ(test::run("/usr/bin/convert " + greyIn + " " + test::quote(dir.file("in.pgm"))), 0);
  const std::string C = "/usr/bin/convert ";
  const struct {
    const char* name;
    std::string command;
    const OwnedPicture* expected;
    uint16_t kind;
  } files[] = {
      {"pnmtopng-rgb", "pnmtopng " + test::quote(dir.file("in.ppm")), &rgb, IMK_RGB},
      {"pnmtopng-grey", "pnmtopng " + test::quote(dir.file("in.pgm")), &grey, IMK_GREY},
      {"pnmtopng-interlaced", "pnmtopng -interlace " + test::quote(dir.file("in.ppm")), &rgb,
       IMK_RGB},
      {"magick-rgb16", C + rgbIn + " -depth 16 png48:-", &rgb, IMK_RGB},
      {"magick-grey16", C + greyIn + " -depth 16 png:-", &grey, IMK_GREY},
      {"magick-rgba", C + rgbIn + " -alpha on png32:-", &rgb, IMK_RGBX},
      {"magick-interlaced", C + rgbIn + " -interlace PNG png24:-", &rgb, IMK_RGB},
      {"magick-bilevel", C + binIn + " -type bilevel png:-", &bin, IMK_BINARY},
      {"magick-palette", C + rgbIn + " -colors 8 -define png:bit-depth=4 png8:-", nullptr,
       IMK_MAPPED},
  };
  for (const auto& f : files) {
    SCOPED_TRACE(f.name);
    const std::string path = dir.file(std::string(f.name) + ".png");
    ASSERT_EQ(test::run(f.command + " > " + test::quote(path) + " 2>/dev/null"), 0);
    OwnedPicture back;
    ASSERT_EQ(test::load(path, back), 0);
    EXPECT_EQ(back->type, f.kind);
    if (f.expected) {
      EXPECT_EQ(test::toRgb(back.rec), test::toRgb(f.expected->rec));
    } else {
      // Quantised: compare with ImageMagick's own reading of its file.
      int w, h;
      EXPECT_EQ(test::toRgb(back.rec), magickStored(path, &w, &h));
      EXPECT_LE(back->colorCount, 8);
    }
    if (f.kind == IMK_RGBX) {
      EXPECT_EQ(alphaOf(back.rec), std::vector<uint8_t>(43 * 27, 255));
    }
  }
}

// --- PngSuite ------------------------------------------------------------------

// The picture kind a PngSuite file must give, from the colour-type code in
// its name ("0g04": grey 4-bit) and whether it has a transparency key.
uint16_t expectedKind(const std::string& name, int* levels) {
  const char type = name[4];
  const int depth = std::stoi(name.substr(6, 2));
  const bool keyed = name[0] == 't' && name != "tp0n0g08.png" && name != "tp0n2c08.png";
  *levels = 0;
  if (type == '0') {
    if (keyed) return IMK_RGBX;
    if (depth == 1) return IMK_BINARY;
    *levels = depth < 8 ? 1 << depth : 256;
    return IMK_GREY;
  }
  if (type == '2') return keyed ? IMK_RGBX : IMK_RGB;
  if (type == '3') return IMK_MAPPED;
  return IMK_RGBX;  // 4 and 6: grey or RGB with alpha
}

TEST(PngSuite, EveryValidFileMatchesImageMagick) {
  const std::vector<std::string> names = suiteFiles(false);
  ASSERT_GE(names.size(), 150u);
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    const std::string path = kSuite + name;
    OwnedPicture pic;
    FileInfo info;
    ASSERT_EQ(test::load(path, pic, 0, 0, &info), 0) << info.errorText;
    int levels;
    const uint16_t kind = expectedKind(name, &levels);
    if (kind == IMK_MAPPED)  // may be simplified when the palette allows it
      EXPECT_TRUE(pic->type == IMK_MAPPED || pic->type == IMK_BINARY || pic->type == IMK_GREY);
    else
      EXPECT_EQ(pic->type, kind);
    if (levels) {
      EXPECT_EQ(pic->colorCount, levels);
    }
    int w, h;
    const std::vector<uint8_t> ref = magickStored(path, &w, &h);
    ASSERT_EQ(pic->width, w);
    ASSERT_EQ(pic->height, h);
    // ImageMagick cuts 16-bit samples to 8 bits by truncation, we round:
    // one level apart at most.
    const bool sixteen = name.substr(6, 2) == "16";
    EXPECT_LE(test::maxDifference(test::toRgb(pic.rec), ref), sixteen ? 1 : 0);
    if (pic->type == IMK_RGBX) {
      const std::vector<uint8_t> a = alphaOf(pic.rec), ref = magickAlpha(path);
      ASSERT_EQ(a.size(), ref.size());
      for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], ref[i], sixteen ? 1 : 0) << i;
    }
  }
}

TEST(PngSuite, SixteenBitSamplesAreRoundedToTheNearestLevel) {
  for (const char* name : {"basn0g16.png", "basn2c16.png", "basi2c16.png"}) {
    SCOPED_TRACE(name);
    OwnedPicture pic;
    ASSERT_EQ(test::load(kSuite + name, pic), 0);
    // netpbm's 16-bit samples; the nearest 8-bit level of v is round(v / 257).
    std::string pnm;
    ASSERT_EQ(test::run("pngtopnm " + test::quote(kSuite + name), &pnm), 0);
    const size_t data = pnm.find("65535\n");
    ASSERT_NE(data, std::string::npos);
    const std::vector<uint8_t> ours = test::toRgb(pic.rec);
    const bool grey = pnm[1] == '5';
    for (size_t i = 0; i < ours.size(); ++i) {
      const size_t s = data + 6 + 2 * (grey ? i / 3 : i);
      const int v = static_cast<uint8_t>(pnm[s]) << 8 | static_cast<uint8_t>(pnm[s + 1]);
      ASSERT_EQ(ours[i], static_cast<int>(std::lround(v / 257.0))) << i << " from " << v;
    }
  }
}

TEST(PngSuite, InterlacedAndPlainTwinsDecodeIdentically) {
  int twins = 0;
  for (const std::string& name : suiteFiles(false)) {
    if (name[3] != 'i' || name[0] == 'x') continue;
    std::string plain = name;
    plain[3] = 'n';
    if (!test::fileExists(kSuite + plain)) continue;
    SCOPED_TRACE(name);
    OwnedPicture a, b;
    ASSERT_EQ(test::load(kSuite + name, a), 0);
    ASSERT_EQ(test::load(kSuite + plain, b), 0);
    EXPECT_EQ(a->type, b->type);
    EXPECT_EQ(a->colorCount, b->colorCount);
    EXPECT_EQ(test::toRgb(a.rec), test::toRgb(b.rec));
    if (a->type == IMK_RGBX) {
      EXPECT_EQ(alphaOf(a.rec), alphaOf(b.rec));
    }
    ++twins;
  }
  EXPECT_GE(twins, 30);
}

TEST(PngSuite, EveryCorruptFileIsRefused) {
  const std::vector<std::string> names = suiteFiles(true);
  ASSERT_GE(names.size(), 14u);
  for (const std::string& name : names) {
    OwnedPicture pic;
    FileInfo info;
    EXPECT_NE(test::load(kSuite + name, pic, 0, 0, &info), 0) << name;
    EXPECT_EQ(pic->pixels, nullptr) << name;
    EXPECT_NE(info.errorText[0], '\0') << name;
  }
}

TEST(PngSuite, HeadersGivePlanesAndBitsPerPlane) {
  const struct {
    const char* name;
    int planes, bits;
  } files[] = {{"basn0g01.png", 1, 1}, {"basn0g16.png", 1, 16}, {"basn2c16.png", 3, 16},
               {"basn3p04.png", 1, 4}, {"basn4a08.png", 2, 8},  {"basn6a16.png", 4, 16}};
  for (const auto& f : files) {
    FileInfo info;
    ASSERT_EQ(imkFileInformation((kSuite + f.name).c_str(), -1, 0, &info), 0) << f.name;
    EXPECT_EQ(info.width, 32);
    EXPECT_EQ(info.height, 32);
    EXPECT_EQ(info.planes, f.planes) << f.name;
    EXPECT_EQ(info.bitsPerPlane, f.bits) << f.name;
    EXPECT_EQ(info.pictureCount, 1);
    EXPECT_STREQ(info.formatName, "PNG");
  }
}

// --- transparency ------------------------------------------------------------

TEST(PngTransparency, ColourKeysBecomeAlphaPalettesStayMapped) {
  // RGB and grey with a tRNS key: alpha 0 exactly where the key colour is.
  for (const char* name : {"tbrn2c08.png", "tbbn2c16.png", "tbbn0g04.png", "tbwn0g16.png"}) {
    SCOPED_TRACE(name);
    OwnedPicture pic;
    ASSERT_EQ(test::load(kSuite + name, pic), 0);
    ASSERT_EQ(pic->type, IMK_RGBX);
    const std::vector<uint8_t> a = alphaOf(pic.rec);
    EXPECT_EQ(a, magickAlpha(kSuite + name));
    EXPECT_NE(std::count(a.begin(), a.end(), 0), 0);
    EXPECT_NE(std::count(a.begin(), a.end(), 255), 0);
  }
  // Palette transparency is dropped: the picture keeps its palette.
  OwnedPicture pic;
  ASSERT_EQ(test::load(kSuite + "tbbn3p08.png", pic), 0);
  EXPECT_EQ(pic->type, IMK_MAPPED);
  int w, h;
  EXPECT_EQ(test::toRgb(pic.rec), magickStored(kSuite + "tbbn3p08.png", &w, &h));
}

// --- damage and hostile files ----------------------------------------------------

TEST(PngDamage, TruncatedFileKeepsItsDecodedRowsOnlyWhenErrorsAreIgnored) {
  test::TempDir dir;
  // Noise does not compress: the image data spreads over the whole file.
  OwnedPicture pic, whole, cut;
  ASSERT_TRUE(imkAllock(&pic.rec, IMK_RGB, 8, 200, 100));
  uint32_t seed = 12345;
  for (int y = 0; y < 100; ++y)
    for (int x = 0; x < 600; ++x)
      pic.row(y)[x] = static_cast<uint8_t>((seed = seed * 1103515245 + 12345) >> 24);
  ASSERT_EQ(test::save(dir.file("w.png"), pic.rec, "png", 6), 0);
  std::vector<uint8_t> bytes = test::readFile(dir.file("w.png"));
  bytes.resize(bytes.size() / 2);
  test::writeFile(dir.file("cut.png"), bytes);
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("cut.png"), cut, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_EQ(cut->pixels, nullptr);
  EXPECT_STREQ(info.errorText, "truncated file");

  ASSERT_EQ(test::load(dir.file("cut.png"), cut, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  ASSERT_EQ(test::load(dir.file("w.png"), whole), 0);
  ASSERT_EQ(cut->width, 200);
  ASSERT_EQ(cut->height, 100);
  int same = 0, blank = 0;
  for (int y = 0; y < 100; ++y) {
    same += std::equal(cut.row(y), cut.row(y) + 600, whole.row(y));
    blank += std::all_of(cut.row(y), cut.row(y) + 600, [](uint8_t v) { return v == 0; });
  }
  // Rows come whole out of the decoder: each is either complete or untouched.
  EXPECT_GE(same, 30);
  EXPECT_GE(blank, 30);
  EXPECT_EQ(same + blank, 100);
}

TEST(PngDamage, CrcAndZlibErrorsInImageDataFail) {
  test::TempDir dir;
  // 8x2 grey, filter 0, values 0..15.
  std::vector<uint8_t> rows;
  for (int y = 0; y < 2; ++y) {
    rows.push_back(0);
    for (int x = 0; x < 8; ++x) rows.push_back(static_cast<uint8_t>(y * 8 + x));
  }
  const std::vector<uint8_t> good = makePng(8, 2, 8, 0, deflated(rows));
  test::writeFile(dir.file("good.png"), good);
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("good.png"), pic), 0);
  EXPECT_EQ(pic.row(1)[7], 15);

  // A flipped bit inside IDAT: its CRC no longer matches.
  std::vector<uint8_t> crc = good;
  crc[33 + 8 + 3] ^= 0x10;  // signature 8 + IHDR 25, then IDAT length and type
  test::writeFile(dir.file("crc.png"), crc);
  EXPECT_NE(test::load(dir.file("crc.png"), pic), 0);
  EXPECT_EQ(pic->pixels, nullptr);

  // Broken deflate data with a correct CRC (invalid block type 3).
  std::vector<uint8_t> zlib = deflated(rows);
  zlib[2] = 0x07;
  test::writeFile(dir.file("zlib.png"), makePng(8, 2, 8, 0, zlib));
  EXPECT_NE(test::load(dir.file("zlib.png"), pic), 0);

  // A wrong Adler-32 checksum at the end of the zlib stream.
  std::vector<uint8_t> adler = deflated(rows);
  adler.back() ^= 0xFF;
  test::writeFile(dir.file("adler.png"), makePng(8, 2, 8, 0, adler));
  EXPECT_NE(test::load(dir.file("adler.png"), pic), 0);
}

TEST(PngDamage, PaletteIndicesPastThePaletteAreClamped) {
  test::TempDir dir;
  // 4x1 8-bit palette picture with 2 entries, holding indices 0, 1, 5, 255.
  const std::vector<uint8_t> rows = {0, 0, 1, 5, 255};
  const std::vector<uint8_t> plte = {10, 20, 30, 40, 50, 60};
  test::writeFile(dir.file("p.png"), makePng(4, 1, 8, 3, deflated(rows), {{"PLTE", plte}}));
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("p.png"), pic), 0);
  EXPECT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(pic->colorCount, 2);
  for (int x = 0; x < 4; ++x) EXPECT_LT(pic.row(0)[x], 2) << x;
  EXPECT_EQ(pic.row(0)[0], 0);
  EXPECT_EQ(pic.row(0)[1], 1);

  // Without any palette the file is refused.
  test::writeFile(dir.file("n.png"), makePng(4, 1, 8, 3, deflated(rows)));
  EXPECT_NE(test::load(dir.file("n.png"), pic), 0);
}

TEST(PngDamage, BrokenOrOversizedAncillaryChunks) {
  test::TempDir dir;
  const std::vector<uint8_t> rows = {0, 1, 2, 3, 4};  // 4x1 grey
  // A text chunk with a broken CRC in front of good image data: harmless.
  std::vector<uint8_t> png = makePng(4, 1, 8, 0, deflated(rows), {{"tEXt", {'a', 0, 'b'}}});
  png[33 + 8 + 3 + 1] ^= 0xFF;  // first CRC byte of tEXt (after 3 data bytes)
  test::writeFile(dir.file("t.png"), png);
  OwnedPicture pic;
  ASSERT_EQ(test::load(dir.file("t.png"), pic), 0);
  EXPECT_EQ(pic.row(0)[3], 4);

  // A text chunk claiming 1.8 GB in a tiny file: a clean refusal.
  std::vector<uint8_t> huge = makePng(4, 1, 8, 0, deflated(rows));
  const uint8_t header[] = {0x6C, 0x00, 0x00, 0x11, 't', 'E', 'X', 't', 'x', 'y', 'z'};
  huge.insert(huge.begin() + 33, std::begin(header), std::end(header));
  test::writeFile(dir.file("h.png"), huge);
  FileInfo info;
  EXPECT_EQ(test::load(dir.file("h.png"), pic, 0, IMK_FLAG_IGNORE_ERRORS, &info), IMK_ERR_BAD_FILE);
  EXPECT_STREQ(info.errorText, "truncated file");
  EXPECT_EQ(pic->pixels, nullptr);
}

TEST(PngDamage, AbsurdDimensionsAreRefusedBeforeAllocating) {
  test::TempDir dir;
  const std::vector<uint8_t> tiny = deflated({0, 0});
  for (const auto& [w, h] : {std::pair<uint32_t, uint32_t>{0, 10},
                             {10, 0},
                             {0x7FFFFFFF, 1},
                             {2000000, 1},
                             {100000, 100000},
                             {20000, 20000}}) {  // fits the byte limit, not the data
    test::writeFile(dir.file("d.png"), makePng(w, h, 8, 2, tiny));
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(test::load(dir.file("d.png"), pic, 0, IMK_FLAG_IGNORE_ERRORS, &info),
              IMK_ERR_BAD_FILE)
        << w << "x" << h;
    EXPECT_NE(info.errorText[0], '\0');
  }
  // The most compressible picture there is still loads.
  OwnedPicture black, back;
  ASSERT_TRUE(imkAllock(&black.rec, IMK_RGB, 8, 3000, 2000));
  ASSERT_EQ(test::save(dir.file("black.png"), black.rec, "png", 9), 0);
  EXPECT_LT(test::readFile(dir.file("black.png")).size(), 3000u * 2000 * 3 / 500);
  ASSERT_EQ(test::load(dir.file("black.png"), back), 0);
  EXPECT_EQ(back->width, 3000);
}

// --- progress, writing ---------------------------------------------------------

int gStopAt = -1;
int gLastStep = -1;
int stopAt(int step, int) {
  gLastStep = step;
  return step == gStopAt;
}

TEST(PngProgress, CancellingGives15AndAnEmptyRecord) {
  for (const char* name : {"basn2c08.png", "basi2c08.png"}) {
    for (int stop : {0, 5}) {
      OwnedPicture pic;
      LoadOptions o;
      imkDefaultOption(&o);
      o.flags |= IMK_FLAG_PROGRESS;
      o.progress = stopAt;
      gStopAt = stop;
      EXPECT_EQ(imkLoad((kSuite + name).c_str(), &pic.rec, &o, nullptr), IMK_ERR_STOPPED) << name;
      EXPECT_EQ(gLastStep, stop);
      EXPECT_EQ(pic->pixels, nullptr);
      EXPECT_EQ(pic->palette, nullptr);
    }
  }
}

TEST(PngWrite, CancellingOrAFullDiskLeavesTheTargetAlone) {
  test::TempDir dir;
  OwnedPicture pic;
  test::makePattern(pic, IMK_RGB, 300, 200);
  const std::string target = dir.file("t.png");
  test::writeFile(target, {'o', 'l', 'd'});
  LoadOptions o;
  imkDefaultOption(&o);
  o.formatIndex = imkGetIndex("png");
  o.flags |= IMK_FLAG_PROGRESS;
  o.progress = stopAt;
  gStopAt = 5;
  EXPECT_EQ(imkSave(target.c_str(), &pic.rec, &o), IMK_ERR_STOPPED);
  EXPECT_EQ(test::readFile(target), (std::vector<uint8_t>{'o', 'l', 'd'}));

  // Files may not grow beyond 4 KiB: the writes fail.
  struct rlimit old;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  auto oldHandler = signal(SIGXFSZ, SIG_IGN);
  struct rlimit tight = old;
  tight.rlim_cur = 4096;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
  const int rc = test::save(target, pic.rec, "png");
  setrlimit(RLIMIT_FSIZE, &old);
  signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(rc, IMK_ERR_WRITE);
  EXPECT_EQ(test::readFile(target), (std::vector<uint8_t>{'o', 'l', 'd'}));
}

}  // namespace
