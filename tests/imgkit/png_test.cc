// PNG: round trips of every picture kind and grey level count, PngSuite
// against ImageMagick and netpbm, corrupt files, transparency, damaged and
// hand-made hostile files, cancelling, header look-ups and write failures.
#include <dirent.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

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

void addChunk(std::vector<uint8_t>& png, const char* type, const std::vector<uint8_t>& data) {
  test::putBe(png, static_cast<uint32_t>(data.size()), 4);
  const size_t start = png.size();
  png.insert(png.end(), type, type + 4);
  png.insert(png.end(), data.begin(), data.end());
  test::putBe(
      png, static_cast<uint32_t>(crc32(0, &png[start], static_cast<uInt>(png.size() - start))), 4);
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
  test::putBe(ihdr, w, 4);
  test::putBe(ihdr, h, 4);
  ihdr.insert(ihdr.end(), {static_cast<uint8_t>(depth), static_cast<uint8_t>(colorType), 0, 0, 0});
  addChunk(png, "IHDR", ihdr);
  for (const auto& [type, data] : before) addChunk(png, type, data);
  addChunk(png, "IDAT", idat);
  addChunk(png, "IEND", {});
  return png;
}

// --- round trips ------------------------------------------------------------

// IHDR's bit depth (byte 24, when given) and colour type (byte 25).
void pngHeader(const std::vector<uint8_t>& file, const checks::RoundTripCase& c, int) {
  ASSERT_GT(file.size(), 25u);
  if (c.fileDepth) {
    EXPECT_EQ(file[24], c.fileDepth);
  }
  EXPECT_EQ(file[25], c.fileKind);
}

checks::RoundTripCase png(uint16_t kind, int levels, uint16_t loaded, int colourType, int depth,
                          int colours = -1) {
  return {.format = "png",
          .kind = kind,
          .levels = levels,
          .loaded = loaded,
          .colours = colours,
          .sameNumbers =
              kind == loaded && (kind == IMK_GREY || kind == IMK_MAPPED) && colours == levels,
          .toolReads = {"pngtopnm {file}"},
          .header = pngHeader,
          .fileKind = colourType,
          .fileDepth = depth};
}

INSTANTIATE_TEST_SUITE_P(
    Png, RoundTrip,
    testing::Values(
        png(IMK_BINARY, 2, IMK_BINARY, 0, 1),
        // 4, 16 and 256 levels are stored as level numbers at depth 2, 4, 8.
        png(IMK_GREY, 4, IMK_GREY, 0, 2, 4), png(IMK_GREY, 16, IMK_GREY, 0, 4, 16),
        png(IMK_GREY, 256, IMK_GREY, 0, 8, 256),
        // Two grey levels are one bit per pixel: that reads back as binary.
        png(IMK_GREY, 2, IMK_BINARY, 0, 1),
        // Any other count is written as 8-bit intensities: level * 255 / (n - 1).
        png(IMK_GREY, 7, IMK_GREY, 0, 8, 256), png(IMK_GREY, 5, IMK_GREY, 0, 8, 256),
        // Palettes keep their count; the depth is the smallest that holds it.
        png(IMK_MAPPED, 2, IMK_MAPPED, 3, 1, 2), png(IMK_MAPPED, 3, IMK_MAPPED, 3, 2, 3),
        png(IMK_MAPPED, 16, IMK_MAPPED, 3, 4, 16), png(IMK_MAPPED, 17, IMK_MAPPED, 3, 8, 17),
        png(IMK_MAPPED, 40, IMK_MAPPED, 3, 8, 40), png(IMK_MAPPED, 200, IMK_MAPPED, 3, 8, 200),
        png(IMK_MAPPED, 256, IMK_MAPPED, 3, 8, 256), png(IMK_RGB, 256, IMK_RGB, 2, 8),
        png(IMK_BGR, 256, IMK_RGB, 2, 8), png(IMK_XBGR, 256, IMK_RGB, 2, 8),
        // The spare byte varies in the pattern: it is written as alpha.
        png(IMK_RGBX, 256, IMK_RGBX, 6, 8)),
    checks::caseName<checks::RoundTripCase>);

checks::ToolWriteCase pngTool(const char* command, const char* same, uint16_t kind) {
  return {"png", command, same, 0, kind};
}

INSTANTIATE_TEST_SUITE_P(
    Png, ToolWrites,
    testing::Values(pngTool("pnmtopng {dir}/rgb.ppm > {out}", "rgb", IMK_RGB),
                    pngTool("pnmtopng {dir}/grey.pgm > {out}", "grey", IMK_GREY),
                    pngTool("pnmtopng -interlace {dir}/rgb.ppm > {out}", "rgb", IMK_RGB),
                    pngTool("convert {dir}/rgb.ppm -depth 16 png48:{out}", "rgb", IMK_RGB),
                    pngTool("convert {dir}/grey.pgm -depth 16 png:{out}", "grey", IMK_GREY),
                    pngTool("convert {dir}/rgb.ppm -alpha on png32:{out}", "rgb", IMK_RGBX),
                    pngTool("convert {dir}/rgb.ppm -interlace PNG png24:{out}", "rgb", IMK_RGB),
                    pngTool("convert {dir}/bin.pbm -type bilevel png:{out}", "bin", IMK_BINARY),
                    // Quantised: as ImageMagick reads its own file.
                    checks::ToolWriteCase{
                        "png", "convert {dir}/rgb.ppm -colors 8 -define png:bit-depth=4 png8:{out}",
                        nullptr, 0, IMK_MAPPED, 8}),
    checks::caseName<checks::ToolWriteCase>);

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
  const std::pair<uint16_t, int> kinds[] = {{IMK_BINARY, 2}, {IMK_GREY, 4},     {IMK_GREY, 16},
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

TEST(PngProgress, CancellingGives15AndAnEmptyRecord) {
  // A step a row of the plain 32-row file; the interlaced one's passes share
  // the meter's full count.
  for (const auto& [name, steps] : {std::pair{"basn2c08.png", 32}, {"basi2c08.png", 40}})
    for (int stop : {0, 5}) checks::expectEveryStepAndStopAt(kSuite + name, stop, 0, steps);
}

TEST(PngWrite, CancellingOrAFullDiskLeavesTheTargetAlone) {
  OwnedPicture pic;
  test::makePattern(pic, IMK_RGB, 300, 200);
  checks::expectStoppedAndFailedSavesLeaveFilesAlone(pic.rec, "png");
}

}  // namespace
