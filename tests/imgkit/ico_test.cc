// ICO and CUR: hand-built entries (masks, alpha, palettes, PNG), several
// pictures in one file, round trips, cross-checks with ImageMagick in both
// directions, the corpus's v5-header entry against the BMP suite's rendering
// and hostile files.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

namespace {

using test::OwnedPicture;
using Bytes = std::vector<uint8_t>;

void le(Bytes& b, uint32_t v, int n) {
  for (int i = 0; i < n; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

// A DIB entry: 40-byte header, palette (0xRRGGBB), colour rows and mask rows
// bottom-up, padded to 32 bits. `pixels` are top-down values (indices, or
// 0xAARRGGBB), `mask` top-down '1' where the AND bit is set.
Bytes dib(int w, int h, int bits, const std::vector<uint32_t>& palette,
          const std::vector<uint32_t>& pixels, const std::vector<std::string>& mask,
          uint32_t colorsUsed = 0, uint32_t compression = 0) {
  Bytes b;
  le(b, 40, 4), le(b, w, 4), le(b, 2 * h, 4), le(b, 1, 2), le(b, bits, 2), le(b, compression, 4);
  le(b, 0, 4), le(b, 0, 4), le(b, 0, 4), le(b, colorsUsed, 4), le(b, 0, 4);
  for (uint32_t c : palette) le(b, c, 4);
  const size_t xorStride = (static_cast<size_t>(w) * bits + 31) / 32 * 4;
  for (int y = h - 1; y >= 0; --y) {
    Bytes row(xorStride, 0);
    for (int x = 0; x < w; ++x) {
      const uint32_t v = pixels[static_cast<size_t>(y) * w + x];
      if (bits >= 24) {
        for (int c = 0; c < bits / 8; ++c)
          row[x * bits / 8 + c] = static_cast<uint8_t>(v >> (8 * c));
      } else {
        row[x * bits / 8] |= static_cast<uint8_t>(v << (8 - bits - (x * bits) % 8));
      }
    }
    b.insert(b.end(), row.begin(), row.end());
  }
  const size_t andStride = (static_cast<size_t>(w) + 31) / 32 * 4;
  for (int y = h - 1; y >= 0; --y) {
    Bytes row(andStride, 0);
    for (int x = 0; x < w; ++x)
      if (mask[y][x] == '1') row[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
    b.insert(b.end(), row.begin(), row.end());
  }
  return b;
}

// An icon (type 1) or cursor (type 2) file holding the given entries.
Bytes iconFile(const std::vector<Bytes>& entries, uint16_t type = 1) {
  Bytes b;
  le(b, 0, 2), le(b, type, 2), le(b, static_cast<uint32_t>(entries.size()), 2);
  uint32_t offset = 6 + 16 * static_cast<uint32_t>(entries.size());
  for (const Bytes& e : entries) {
    le(b, 0, 4);  // size and colours: not used by readers
    le(b, 1, 2), le(b, 32, 2);
    le(b, static_cast<uint32_t>(e.size()), 4), le(b, offset, 4);
    offset += static_cast<uint32_t>(e.size());
  }
  for (const Bytes& e : entries) b.insert(b.end(), e.begin(), e.end());
  return b;
}

struct Rgba {
  int r, g, b, a;
  bool operator==(const Rgba& o) const { return r == o.r && g == o.g && b == o.b && a == o.a; }
};
std::ostream& operator<<(std::ostream& os, const Rgba& c) {
  return os << c.r << "," << c.g << "," << c.b << "," << c.a;
}

Rgba pixelAt(const OwnedPicture& pic, int x, int y) {
  std::vector<uint8_t> rgba(static_cast<size_t>(pic->width) * 4);
  imk::rowToRgba(pic.rec, y, rgba.data());
  const uint8_t* p = &rgba[static_cast<size_t>(x) * 4];
  return {p[0], p[1], p[2], p[3]};
}

class IcoFile : public testing::Test {
 protected:
  int load(const Bytes& bytes, OwnedPicture& pic, int index = 0, uint16_t flags = 0,
           FileInfo* info = nullptr) {
    test::writeFile(dir_.file("t.ico"), bytes);
    return test::load(dir_.file("t.ico"), pic, index, flags, info);
  }
  test::TempDir dir_;
};

const std::vector<std::string> kNoMask = {"0000", "0000"};

TEST_F(IcoFile, MaskBitsBecomeTransparencyOnlyWhereSet) {
  const std::vector<uint32_t> pal = {0x000000, 0xFF0000, 0x00FF00, 0x0000FF};
  const std::vector<uint32_t> px = {1, 2, 3, 0, 0, 1, 2, 3};
  OwnedPicture pic;
  FileInfo info;
  // No mask bit: the palette picture stays colour-mapped.
  ASSERT_EQ(load(iconFile({dib(4, 2, 4, pal, px, kNoMask, 4)}), pic, 0, 0, &info), 0);
  EXPECT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(pic->colorCount, 4);
  EXPECT_EQ(info.planes * info.bitsPerPlane, 4);
  EXPECT_EQ(pixelAt(pic, 0, 0), (Rgba{255, 0, 0, 255}));
  EXPECT_EQ(pixelAt(pic, 3, 1), (Rgba{0, 0, 255, 255}));
  // Mask bits at (1,0) and (0,1): R,G,B + alpha, transparent exactly there.
  ASSERT_EQ(load(iconFile({dib(4, 2, 4, pal, px, {"0100", "1000"}, 4)}), pic), 0);
  EXPECT_EQ(pic->type, IMK_RGBX);
  EXPECT_EQ(pixelAt(pic, 0, 0), (Rgba{255, 0, 0, 255}));
  EXPECT_EQ(pixelAt(pic, 1, 0).a, 0);
  EXPECT_EQ(pixelAt(pic, 0, 1).a, 0);
  EXPECT_EQ(pixelAt(pic, 2, 1), (Rgba{0, 255, 0, 255}));
  // 24-bit colours (B,G,R in the file) with a mask.
  ASSERT_EQ(load(iconFile({dib(2, 1, 24, {}, {0x102030, 0x405060}, {"01"})}), pic), 0);
  EXPECT_EQ(pixelAt(pic, 0, 0), (Rgba{0x10, 0x20, 0x30, 255}));
  EXPECT_EQ(pixelAt(pic, 1, 0), (Rgba{0x40, 0x50, 0x60, 0}));
}

TEST_F(IcoFile, ThirtyTwoBitAlphaWinsUnlessItIsAllZero) {
  OwnedPicture pic;
  // Alpha bytes present: they are the transparency, the mask is not used.
  ASSERT_EQ(load(iconFile({dib(3, 1, 32, {}, {0xFF112233, 0x80445566, 0x00778899}, {"100"})}), pic),
            0);
  ASSERT_EQ(pic->type, IMK_RGBX);
  EXPECT_EQ(pixelAt(pic, 0, 0), (Rgba{0x11, 0x22, 0x33, 255}));
  EXPECT_EQ(pixelAt(pic, 1, 0), (Rgba{0x44, 0x55, 0x66, 0x80}));
  EXPECT_EQ(pixelAt(pic, 2, 0).a, 0);
  // All alpha bytes zero (older icons): the mask decides.
  ASSERT_EQ(load(iconFile({dib(3, 1, 32, {}, {0x112233, 0x445566, 0x778899}, {"010"})}), pic), 0);
  ASSERT_EQ(pic->type, IMK_RGBX);
  EXPECT_EQ(pixelAt(pic, 0, 0), (Rgba{0x11, 0x22, 0x33, 255}));
  EXPECT_EQ(pixelAt(pic, 1, 0).a, 0);
  EXPECT_EQ(pixelAt(pic, 2, 0), (Rgba{0x77, 0x88, 0x99, 255}));
  // Opaque everywhere: plain R,G,B.
  ASSERT_EQ(load(iconFile({dib(3, 1, 32, {}, {0xFF112233, 0xFF445566, 0xFF778899}, {"000"})}), pic),
            0);
  EXPECT_EQ(pic->type, IMK_RGB);
}

TEST_F(IcoFile, EveryEntryIsAPictureOfTheFile) {
  // Entries: a 2x1 1-bit, a 3x2 8-bit and a PNG written by the PNG codec.
  OwnedPicture png;
  test::makePattern(png, IMK_RGB, 5, 4);
  ASSERT_EQ(test::save(dir_.file("e.png"), png.rec, "png"), 0);
  const Bytes file =
      iconFile({dib(2, 1, 1, {0x000000, 0xFFFFFF}, {1, 0}, {"00"}),
                dib(3, 2, 8, {0x0A0B0C, 0x0D0E0F}, {0, 1, 0, 1, 0, 1}, {"000", "000"}, 2),
                test::readFile(dir_.file("e.png"))});
  const int sizes[3][2] = {{2, 1}, {3, 2}, {5, 4}};
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    OwnedPicture pic;
    FileInfo info;
    ASSERT_EQ(load(file, pic, i, 0, &info), 0) << info.errorText;
    EXPECT_EQ(info.pictureCount, 3);
    EXPECT_EQ(pic->width, sizes[i][0]);
    EXPECT_EQ(pic->height, sizes[i][1]);
    FileInfo header;
    ASSERT_EQ(imkFileInformation(dir_.file("t.ico").c_str(), -1, i, &header), 0);
    EXPECT_EQ(header.width, sizes[i][0]);
    EXPECT_EQ(header.pictureCount, 3);
  }
  OwnedPicture pic;
  ASSERT_EQ(load(file, pic, 0), 0);
  EXPECT_EQ(pic->type, IMK_BINARY);
  EXPECT_EQ(pic.row(0)[0], 1);
  ASSERT_EQ(load(file, pic, 1), 0);
  EXPECT_EQ(pixelAt(pic, 0, 1), (Rgba{0x0D, 0x0E, 0x0F, 255}));
  ASSERT_EQ(load(file, pic, 2), 0);
  EXPECT_EQ(test::toRgb(pic.rec), test::toRgb(png.rec));
  FileInfo info;
  EXPECT_EQ(load(file, pic, 3, 0, &info), IMK_ERR_BAD_FILE);
  EXPECT_STREQ(info.errorText, "no such picture in file");
}

TEST(IcoCorpus, EntriesOfEveryDepthInDirectoryOrder) {
  const std::string path =
      test::corpusDir() + "/ico/image-rs/multiple_entries_with_different_bit_depth.ico";
  const int sizes[] = {32, 16, 48, 32, 16, 48, 32, 24, 16};
  const int bits[] = {4, 4, 8, 8, 8, 32, 32, 32, 32};
  for (int i = 0; i < 9; ++i) {
    SCOPED_TRACE(i);
    OwnedPicture pic;
    FileInfo info;
    ASSERT_EQ(test::load(path, pic, i, 0, &info), 0);
    EXPECT_EQ(info.pictureCount, 9);
    EXPECT_EQ(pic->width, sizes[i]);
    EXPECT_EQ(pic->height, sizes[i]);
    EXPECT_EQ(info.planes * info.bitsPerPlane, bits[i]);
    int w, h;
    std::vector<uint8_t> ref;
    ASSERT_TRUE(test::magickToRgb(path, &w, &h, &ref, i));
    // ImageMagick flattens transparent pixels differently: compare opaque ones.
    const std::vector<uint8_t> ours = test::toRgb(pic.rec);
    for (int y = 0; y < sizes[i]; ++y)
      for (int x = 0; x < sizes[i]; ++x) {
        if (pixelAt(pic, x, y).a != 255) continue;
        const size_t k = (static_cast<size_t>(y) * sizes[i] + x) * 3;
        ASSERT_EQ(Bytes(ours.begin() + k, ours.begin() + k + 3),
                  Bytes(ref.begin() + k, ref.begin() + k + 3))
            << x << "," << y;
      }
  }
}

TEST(IcoCorpus, V5HeaderEntryWithAProfileShowsTheBmpSuitePicture) {
  // The entry's embedded colour profile lies where a mask would be: no mask,
  // and the colours are the BMP suite's rgb24 reference rendering.
  OwnedPicture pic;
  ASSERT_EQ(test::load(test::corpusDir() + "/ico/image-rs/bmp_v5_with_icc.ico", pic), 0);
  EXPECT_EQ(pic->type, IMK_RGB);
  int w, h;
  std::vector<uint8_t> ref;
  ASSERT_TRUE(test::magickToRgb(test::corpusDir() + "/bmp/bmpsuite/ref/rgb24.png", &w, &h, &ref));
  EXPECT_EQ(test::toRgb(pic.rec), ref);
}

// Type (1 icon, 2 cursor), the directory's size, a cursor's hot spot at 0,0
// and the entry's bits per pixel.
void icoHeader(const Bytes& b, const checks::RoundTripCase& c, int) {
  ASSERT_GT(b.size(), 62u);
  const bool icon = c.format[0] == 'i';
  EXPECT_EQ(b[2], icon ? 1 : 2);
  EXPECT_EQ(b[6], 37);
  EXPECT_EQ(b[7], 23);
  if (!icon) {
    EXPECT_EQ(b[10] | b[11] | b[12] | b[13], 0);
  }
  EXPECT_EQ(b[22 + 14], c.fileDepth);  // biBitCount
}

std::vector<checks::RoundTripCase> icoCases() {
  const struct {
    uint16_t kind;
    int levels;
    uint16_t loaded;
    int bits;
  } kinds[] = {{IMK_BINARY, 2, IMK_BINARY, 1},   {IMK_MAPPED, 12, IMK_MAPPED, 4},
               {IMK_MAPPED, 200, IMK_MAPPED, 8}, {IMK_GREY, 256, IMK_GREY, 8},
               {IMK_GREY, 16, IMK_MAPPED, 4},    {IMK_RGB, 256, IMK_RGB, 32},
               {IMK_BGR, 256, IMK_RGB, 32},      {IMK_XBGR, 256, IMK_RGB, 32}};
  std::vector<checks::RoundTripCase> cases;
  for (const char* format : {"ico", "cur"})
    for (const auto& k : kinds)
      cases.push_back(
          {.format = format,
           .kind = k.kind,
           .levels = k.levels,
           .loaded = k.loaded,
           // ImageMagick checks icons of palettes and true colour.
           .magickReads = format[0] == 'i' && (k.kind == IMK_MAPPED || k.kind >= IMK_RGB),
           .header = icoHeader,
           .fileDepth = k.bits});
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Ico, RoundTrip, testing::ValuesIn(icoCases()),
                         checks::caseName<checks::RoundTripCase>);

TEST(IcoRoundTrip, AlphaIsKeptAndTheMaskMarksFullyTransparentPixels) {
  test::TempDir dir;
  OwnedPicture src, back;
  test::makePattern(src, IMK_RGBX, 16, 16);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) src.row(y)[x * 4 + 3] = static_cast<uint8_t>(x * 17);
  ASSERT_EQ(test::save(dir.file("a.ico"), src.rec, "ico"), 0);
  ASSERT_EQ(test::load(dir.file("a.ico"), back), 0);
  ASSERT_EQ(back->type, IMK_RGBX);
  EXPECT_EQ(test::pixelsOf(back.rec), test::pixelsOf(src.rec));
  // The AND mask follows the 16 rows of 64 bytes: column 0 (alpha 0) set.
  const Bytes b = test::readFile(dir.file("a.ico"));
  const size_t maskStart = 22 + 40 + 16 * 64;
  ASSERT_EQ(b.size(), maskStart + 16 * 4);
  for (int row = 0; row < 16; ++row) {
    EXPECT_EQ(b[maskStart + row * 4], 0x80);
    EXPECT_EQ(b[maskStart + row * 4 + 1], 0);
  }
}

TEST(IcoWrite, SizesAboveTwoHundredFiftySixAreRefusedAndCursorsDeclareThirtyTwo) {
  test::TempDir dir;
  OwnedPicture big;
  test::makePattern(big, IMK_RGB, 257, 4);
  EXPECT_EQ(test::save(dir.file("big.ico"), big.rec, "ico"), IMK_ERR_CANNOT_SAVE);
  OwnedPicture full;
  test::makePattern(full, IMK_RGB, 256, 256);
  ASSERT_EQ(test::save(dir.file("full.ico"), full.rec, "ico"), 0);
  EXPECT_EQ(test::readFile(dir.file("full.ico"))[6], 0);  // 256 is written as 0
  OwnedPicture back;
  ASSERT_EQ(test::load(dir.file("full.ico"), back), 0);
  EXPECT_EQ(back->width, 256);

  FormatInfo cur, ico;
  imkGetInfo(imkGetIndex("cur"), &cur);
  imkGetInfo(imkGetIndex("ico"), &ico);
  for (int i = 0; cur.kinds[i].kind < 65535; ++i) {
    EXPECT_EQ(cur.kinds[i].width, 32u);
    EXPECT_EQ(cur.kinds[i].height, 32u);
  }
  EXPECT_EQ(ico.kinds[0].width, imk::kAnySize);
  EXPECT_TRUE(ico.capabilities & IMK_MULTI_PICTURE);
}

TEST(IcoCrossCheck, WeReadImageMagicksIconOfThreeSizes) {
  test::TempDir dir;
  // ImageMagick's icon of three sizes from a PNG with alpha.
  OwnedPicture src;
  test::makePattern(src, IMK_RGBX, 48, 48);
  ASSERT_EQ(test::save(dir.file("src.png"), src.rec, "png"), 0);
  ASSERT_EQ(test::run("/usr/bin/convert " + test::quote(dir.file("src.png")) +
                      " -define icon:auto-resize=48,32,16 " + test::quote(dir.file("theirs.ico")) +
                      " 2>/dev/null"),
            0);
  const int sizes[] = {48, 32, 16};
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    OwnedPicture back;
    FileInfo info;
    ASSERT_EQ(test::load(dir.file("theirs.ico"), back, i, 0, &info), 0);
    EXPECT_EQ(info.pictureCount, 3);
    EXPECT_EQ(back->width, sizes[i]);
    std::string ref;
    ASSERT_EQ(test::run("/usr/bin/convert " +
                            test::quote(dir.file("theirs.ico") + "[" + std::to_string(i) + "]") +
                            " -depth 8 rgba:-",
                        &ref),
              0);
    ASSERT_EQ(ref.size(), static_cast<size_t>(sizes[i]) * sizes[i] * 4);
    for (int y = 0; y < sizes[i]; ++y)
      for (int x = 0; x < sizes[i]; ++x) {
        const uint8_t* r = reinterpret_cast<const uint8_t*>(&ref[(y * sizes[i] + x) * 4]);
        const Rgba got = pixelAt(back, x, y);
        ASSERT_EQ(got.a, r[3]) << x << "," << y;
        if (r[3]) {
          ASSERT_EQ(got, (Rgba{r[0], r[1], r[2], r[3]})) << x << "," << y;
        }
      }
  }
}

TEST_F(IcoFile, HostileAndBrokenFilesAreRefused) {
  const std::vector<uint32_t> pal = {0x000000, 0xFFFFFF};
  const Bytes entry = dib(4, 2, 4, pal, {0, 1, 0, 1, 1, 0, 1, 0}, kNoMask, 2);
  Bytes farOffset = iconFile({entry});
  farOffset[18] = 0xFF, farOffset[19] = 0xFF;  // offset 65535+ past the end
  Bytes huge = iconFile({dib(4, 2, 4, pal, {0, 1, 0, 1, 1, 0, 1, 0}, kNoMask, 2)});
  huge[22 + 4] = 0xD0, huge[22 + 5] = 0x07;  // width 2000
  Bytes depth7 = iconFile({entry});
  depth7[22 + 14] = 7;
  struct Case {
    const char* name;
    Bytes file;
    int code;
    const char* text;
  } cases[] = {
      {"offset", farOffset, IMK_ERR_BAD_FILE, "entry offset outside file"},
      {"huge", huge, IMK_ERR_BAD_FILE, "icon bitmap too large"},
      {"depth", depth7, IMK_ERR_BAD_FILE, "unsupported icon bit depth"},
      {"rle", iconFile({dib(4, 2, 4, pal, {0, 1, 0, 1, 1, 0, 1, 0}, kNoMask, 2, 2)}),
       IMK_ERR_BAD_FILE, "unsupported icon compression"},
      {"directory", Bytes{0, 0, 1, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x96, 0, 0, 0},
       IMK_ERR_BAD_FILE, "truncated directory"},
      // Indices 2 and 5 of a 2-entry palette.
      {"index", iconFile({dib(4, 2, 4, pal, {0, 1, 2, 1, 1, 0, 5, 0}, kNoMask, 2)}),
       IMK_ERR_CORRUPT, "palette index out of range"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(load(c.file, pic, 0, 0, &info), c.code);
    EXPECT_STREQ(info.errorText, c.text);
    EXPECT_EQ(pic->pixels, nullptr);
    load(c.file, pic, 0, IMK_FLAG_IGNORE_ERRORS);
  }
  // Out-of-range indices show the last entry when errors are ignored.
  OwnedPicture pic;
  ASSERT_EQ(load(cases[5].file, pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(pic->colorCount, 2);
  EXPECT_EQ(pic.row(0)[2], 1);
  EXPECT_EQ(pic.row(1)[2], 1);
}

TEST_F(IcoFile, CutEntriesFailOrKeepTheRowsPresent) {
  OwnedPicture src;
  test::makePattern(src, IMK_MAPPED, 64, 64, 200);
  ASSERT_EQ(test::save(dir_.file("whole.ico"), src.rec, "ico"), 0);
  Bytes bytes = test::readFile(dir_.file("whole.ico"));
  bytes.resize(bytes.size() / 2);
  OwnedPicture pic;
  FileInfo info;
  EXPECT_EQ(load(bytes, pic, 0, 0, &info), IMK_ERR_CORRUPT);
  EXPECT_STREQ(info.errorText, "truncated");
  ASSERT_EQ(load(bytes, pic, 0, IMK_FLAG_IGNORE_ERRORS), 0);
  // Rows are stored bottom-up: the lower rows survive the cut.
  const std::vector<uint8_t> a = test::toRgb(pic.rec), b = test::toRgb(src.rec);
  int same = 0;
  for (int y = 0; y < 64; ++y)
    same += std::equal(a.begin() + y * 192, a.begin() + (y + 1) * 192, b.begin() + y * 192);
  EXPECT_GE(same, 25);
  EXPECT_LT(same, 64);
  EXPECT_TRUE(std::equal(a.end() - 192, a.end(), b.end() - 192));
}

}  // namespace
