// IFF ILBM / PBM: hand-built files with worked-out pixels (HAM6, HAM8, EHB,
// mask plane, PBM, ByteRun1), round trips of every kind, cross-checks with
// netpbm's ilbmtoppm / ppmtoilbm in both directions and hostile files.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"

namespace {

using test::OwnedPicture;
using Bytes = std::vector<uint8_t>;

Bytes chunk(const char* id, const Bytes& data) {
  Bytes b(id, id + 4);
  test::putBe(b, static_cast<uint32_t>(data.size()), 4);
  b.insert(b.end(), data.begin(), data.end());
  if (data.size() & 1) b.push_back(0);
  return b;
}

Bytes form(const char* type, const std::vector<Bytes>& chunks) {
  Bytes body(type, type + 4);
  for (const Bytes& c : chunks) body.insert(body.end(), c.begin(), c.end());
  Bytes b = {'F', 'O', 'R', 'M'};
  test::putBe(b, static_cast<uint32_t>(body.size()), 4);
  b.insert(b.end(), body.begin(), body.end());
  return b;
}

Bytes bmhd(int w, int h, int planes, int masking = 0, int compression = 0) {
  Bytes b;
  test::putBe(b, w, 2), test::putBe(b, h, 2), test::putBe(b, 0, 4);
  b.push_back(static_cast<uint8_t>(planes));
  b.push_back(static_cast<uint8_t>(masking));
  b.push_back(static_cast<uint8_t>(compression));
  b.push_back(0);
  test::putBe(b, 0, 2), b.push_back(1), b.push_back(1), test::putBe(b, w, 2), test::putBe(b, h, 2);
  return b;
}

Bytes be32(uint32_t v) {
  Bytes b;
  test::putBe(b, v, 4);
  return b;
}

// Uncompressed ILBM rows: each row of values split into `planes` bitplanes
// (plane p holds bit p, most significant bit = leftmost pixel, rows padded
// to 16 bits), then `extra` planes of 0xFF (a mask plane).
Bytes planar(const std::vector<std::vector<uint32_t>>& rows, int planes, int extra = 0) {
  Bytes b;
  for (const auto& row : rows) {
    const size_t rowBytes = (row.size() + 15) / 16 * 2;
    for (int p = 0; p < planes; ++p) {
      Bytes plane(rowBytes, 0);
      for (size_t x = 0; x < row.size(); ++x)
        if ((row[x] >> p) & 1) plane[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
      b.insert(b.end(), plane.begin(), plane.end());
    }
    for (int p = 0; p < extra; ++p) b.insert(b.end(), rowBytes, 0xFF);
  }
  return b;
}

Bytes cmapOf(const std::vector<uint32_t>& colours) {
  Bytes b;
  for (uint32_t c : colours) test::putBe(b, c, 3);
  return b;
}

// An uncompressed ILBM of the given display mode (CAMG), CMAP and rows of
// pixel values.
Bytes amigaFile(uint32_t camg, int planes, const std::vector<uint32_t>& cmap,
                const std::vector<std::vector<uint32_t>>& rows) {
  const int w = static_cast<int>(rows[0].size()), h = static_cast<int>(rows.size());
  return form("ILBM", {chunk("BMHD", bmhd(w, h, planes)), chunk("CAMG", be32(camg)),
                       chunk("CMAP", cmapOf(cmap)), chunk("BODY", planar(rows, planes))});
}

struct Rgb {
  int r, g, b;
  bool operator==(const Rgb& o) const { return r == o.r && g == o.g && b == o.b; }
};
std::ostream& operator<<(std::ostream& os, const Rgb& c) {
  return os << c.r << "," << c.g << "," << c.b;
}

Rgb at(const OwnedPicture& pic, int x, int y) {
  const std::vector<uint8_t> rgb = test::toRgb(pic.rec);
  const size_t i = (static_cast<size_t>(y) * pic->width + x) * 3;
  return {rgb[i], rgb[i + 1], rgb[i + 2]};
}

class IffFile : public testing::Test {
 protected:
  int load(const Bytes& bytes, OwnedPicture& pic, uint16_t flags = 0, FileInfo* info = nullptr) {
    test::writeFile(dir_.file("t.iff"), bytes);
    return test::load(dir_.file("t.iff"), pic, 0, flags, info);
  }
  test::TempDir dir_;
};

// ---------------------------------------------------------------------------
// Hand-built files.

TEST_F(IffFile, Ham6KeepsTheLowBitsOfAnEightBitCmap) {
  // Base colours 0 = 10 20 31, 1 = 12 34 56. Pixel values are control << 4 |
  // data: 0x01 takes colour 1; 0x2A sets red's top nibble to A (12 -> A2);
  // 0x33 sets green's to 3 (34 stays 34); 0x1F sets blue's to F (56 -> F6);
  // 0x00 takes colour 0. Row 1 starts from colour 0: 0x25 gives red 50.
  std::vector<uint32_t> cmap(16, 0);
  cmap[0] = 0x102031, cmap[1] = 0x123456;
  OwnedPicture pic;
  FileInfo info;
  ASSERT_EQ(load(amigaFile(0x800, 6, cmap, {{0x01, 0x2A, 0x33, 0x1F, 0x00}, {0x25, 0, 0, 0, 0}}),
                 pic, 0, &info),
            0)
      << info.errorText;
  EXPECT_EQ(pic->type, IMK_RGB);
  EXPECT_EQ(at(pic, 0, 0), (Rgb{0x12, 0x34, 0x56}));
  EXPECT_EQ(at(pic, 1, 0), (Rgb{0xA2, 0x34, 0x56}));
  EXPECT_EQ(at(pic, 2, 0), (Rgb{0xA2, 0x34, 0x56}));
  EXPECT_EQ(at(pic, 3, 0), (Rgb{0xA2, 0x34, 0xF6}));
  EXPECT_EQ(at(pic, 4, 0), (Rgb{0x10, 0x20, 0x31}));
  EXPECT_EQ(at(pic, 0, 1), (Rgb{0x50, 0x20, 0x31}));
  EXPECT_EQ(info.planes, 1);
  EXPECT_EQ(info.bitsPerPlane, 6);
}

TEST_F(IffFile, Ham6OverAFourBitCmapWidensEveryChannel) {
  // A CMAP of multiples of 16 was made for 4-bit hardware: 10 20 30 shows as
  // 11 22 33, and a modified channel of value 5 as 55.
  std::vector<uint32_t> cmap(16, 0);
  cmap[0] = 0x102030, cmap[1] = 0xF08000;
  OwnedPicture pic;
  ASSERT_EQ(load(amigaFile(0x800, 6, cmap, {{0x01, 0x25, 0x00}}), pic), 0);
  EXPECT_EQ(at(pic, 0, 0), (Rgb{0xFF, 0x88, 0x00}));
  EXPECT_EQ(at(pic, 1, 0), (Rgb{0x55, 0x88, 0x00}));
  EXPECT_EQ(at(pic, 2, 0), (Rgb{0x11, 0x22, 0x33}));
}

TEST_F(IffFile, Ham8ModifiesTheTopSixBits) {
  // Colour 2 = 81 42 23. 0x80|63 sets red to 63 << 2 | (81 & 3) = FD;
  // 0xC0|1 green to 1 << 2 | (42 & 3) = 06; 0x40|32 blue to 80 | 3 = 83.
  std::vector<uint32_t> cmap(64, 0);
  cmap[2] = 0x814223;
  OwnedPicture pic;
  ASSERT_EQ(load(amigaFile(0x800, 8, cmap, {{0x02, 0x80 | 63, 0xC0 | 1, 0x40 | 32}}), pic), 0);
  EXPECT_EQ(at(pic, 0, 0), (Rgb{0x81, 0x42, 0x23}));
  EXPECT_EQ(at(pic, 1, 0), (Rgb{0xFD, 0x42, 0x23}));
  EXPECT_EQ(at(pic, 2, 0), (Rgb{0xFD, 0x06, 0x23}));
  EXPECT_EQ(at(pic, 3, 0), (Rgb{0xFD, 0x06, 0x83}));
}

TEST_F(IffFile, ExtraHalfBriteColoursAreHalvesWhateverTheCmapHolds) {
  // Entry 5 = 200 101 51; pixel 37 = 32 + 5 shows 100 50 25. A 64-entry
  // CMAP whose upper half holds something else changes nothing.
  for (size_t entries : {32u, 64u}) {
    SCOPED_TRACE(entries);
    std::vector<uint32_t> cmap(entries, 0xFFFFFF);
    cmap[5] = 0xC86533;
    OwnedPicture pic;
    ASSERT_EQ(load(amigaFile(0x80, 6, cmap, {{5, 37, 63}}), pic), 0);
    EXPECT_EQ(pic->type, IMK_MAPPED);
    EXPECT_EQ(pic->colorCount, 64);
    EXPECT_EQ(at(pic, 0, 0), (Rgb{200, 101, 51}));
    EXPECT_EQ(at(pic, 1, 0), (Rgb{100, 50, 25}));
    EXPECT_EQ(at(pic, 2, 0), (Rgb{127, 127, 127}));
  }
}

TEST_F(IffFile, MaskPlaneIsSkippedAndPbmRowsArePaddedToEvenLength) {
  const std::vector<uint32_t> cmap = {0x000000, 0xFF0000, 0x00FF00, 0x0000FF};
  OwnedPicture pic;
  ASSERT_EQ(load(form("ILBM", {chunk("BMHD", bmhd(4, 2, 2, 1)), chunk("CMAP", cmapOf(cmap)),
                               chunk("BODY", planar({{0, 1, 2, 3}, {3, 2, 1, 0}}, 2, 1))}),
                 pic),
            0);
  for (int x = 0; x < 4; ++x) {
    EXPECT_EQ(pic.row(0)[x], x);
    EXPECT_EQ(pic.row(1)[x], 3 - x);
  }
  // PBM: a byte per pixel, 3 pixels padded to 4 bytes a row.
  std::vector<uint32_t> grey(256);
  for (uint32_t i = 0; i < 256; ++i) grey[i] = (255 - i) * 0x010101;
  ASSERT_EQ(load(form("PBM ", {chunk("BMHD", bmhd(3, 2, 8)), chunk("CMAP", cmapOf(grey)),
                               chunk("BODY", {1, 2, 3, 99, 4, 5, 6, 99})}),
                 pic),
            0);
  ASSERT_EQ(pic->type, IMK_MAPPED);
  EXPECT_EQ(at(pic, 0, 0), (Rgb{254, 254, 254}));
  EXPECT_EQ(at(pic, 2, 1), (Rgb{249, 249, 249}));
}

TEST_F(IffFile, ByteRun1RunsLiteralsAndNoOps) {
  // One plane, 32 pixels: 4 bytes a row. Row 0: -3 repeats AA four times.
  // Row 1: 1 copies F0 0F, -128 does nothing, -1 repeats 00 twice.
  const Bytes body = {0xFD, 0xAA, 0x01, 0xF0, 0x0F, 0x80, 0xFF, 0x00};
  OwnedPicture pic;
  ASSERT_EQ(load(form("ILBM", {chunk("BMHD", bmhd(32, 2, 1, 0, 1)),
                               chunk("CMAP", cmapOf({0x000000, 0xFFFFFF})), chunk("BODY", body)}),
                 pic),
            0);
  ASSERT_EQ(pic->type, IMK_BINARY);
  std::string rows;
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 32; ++x) rows += pic.row(y)[x] ? '1' : '0';
  EXPECT_EQ(rows,
            "10101010101010101010101010101010"
            "11110000000011110000000000000000");
}

TEST_F(IffFile, NoCmapGivesGreyLevelsAndDeepPlanesGiveTrueColour) {
  OwnedPicture pic;
  ASSERT_EQ(
      load(form("ILBM", {chunk("BMHD", bmhd(2, 1, 2)), chunk("BODY", planar({{1, 3}}, 2))}), pic),
      0);
  EXPECT_EQ(pic->type, IMK_GREY);
  EXPECT_EQ(pic->colorCount, 4);
  EXPECT_EQ(at(pic, 0, 0), (Rgb{85, 85, 85}));
  // 24 planes: red in planes 0-7, green 8-15, blue 16-23; 32 adds alpha.
  ASSERT_EQ(load(form("ILBM",
                      {chunk("BMHD", bmhd(1, 1, 32)), chunk("BODY", planar({{0x80402010u}}, 32))}),
                 pic),
            0);
  ASSERT_EQ(pic->type, IMK_RGBX);
  EXPECT_EQ(pic.row(0)[0], 0x10);
  EXPECT_EQ(pic.row(0)[1], 0x20);
  EXPECT_EQ(pic.row(0)[2], 0x40);
  EXPECT_EQ(pic.row(0)[3], 0x80);
}

TEST_F(IffFile, HostileAndBrokenFilesAreRefused) {
  const Bytes good = planar({{0, 1, 2, 3}}, 2);
  const Bytes cmap = cmapOf({0x000000, 0xFF0000, 0x00FF00, 0x0000FF});
  Bytes longChunk = form("ILBM", {chunk("BMHD", bmhd(4, 1, 2)), chunk("BODY", good)});
  longChunk[longChunk.size() - good.size() - 1] = 0x40;  // BODY length 64 > FORM
  Bytes claims = form("ILBM", {chunk("BMHD", bmhd(65535, 65535, 8)), chunk("BODY", Bytes(10))});
  for (size_t at : {size_t{4}, claims.size() - 14}) claims[at] = claims[at + 1] = 0xFF;
  struct Case {
    const char* name;
    Bytes file;
    int code;
    const char* text;
  } cases[] = {
      {"chunk past FORM", longChunk, IMK_ERR_BAD_FILE, "chunk length past end of FORM"},
      {"no BMHD", form("ILBM", {chunk("BODY", good)}), IMK_ERR_BAD_FILE, "no BMHD chunk"},
      {"no BODY", form("ILBM", {chunk("BMHD", bmhd(4, 1, 2))}), IMK_ERR_BAD_FILE, "no BODY chunk"},
      {"compression 2", form("ILBM", {chunk("BMHD", bmhd(4, 1, 2, 0, 2)), chunk("BODY", good)}),
       IMK_ERR_BAD_FILE, "unsupported compression"},
      {"12 planes", form("ILBM", {chunk("BMHD", bmhd(4, 1, 12)), chunk("BODY", good)}),
       IMK_ERR_BAD_FILE, "unsupported plane count"},
      {"HAM7",
       form("ILBM",
            {chunk("BMHD", bmhd(4, 1, 7)), chunk("CAMG", be32(0x800)), chunk("BODY", good)}),
       IMK_ERR_BAD_FILE, "unsupported HAM depth"},
      {"run past row",
       form("ILBM", {chunk("BMHD", bmhd(16, 1, 1, 0, 1)), chunk("BODY", {0xFC, 0})}),
       IMK_ERR_CORRUPT, "ByteRun1 run past end of row"},
      {"index past CMAP",
       form("ILBM", {chunk("BMHD", bmhd(4, 1, 2)), chunk("CMAP", cmapOf({0, 0xFFFFFF, 0xFF})),
                     chunk("BODY", good)}),
       IMK_ERR_CORRUPT, "palette index out of range"},
      // 65535 x 65535 eight-plane pixels cannot come out of 10 bytes.
      {"huge", form("ILBM", {chunk("BMHD", bmhd(65535, 65535, 8, 0, 1)), chunk("BODY", Bytes(10))}),
       IMK_ERR_BAD_FILE, "BODY too short for the picture"},
      {"short BODY", form("ILBM", {chunk("BMHD", bmhd(4, 3, 2)), chunk("BODY", good)}),
       IMK_ERR_CORRUPT, "BODY too short"},
      // A file of a few bytes whose FORM and BODY claim 4 GB: even with errors
      // ignored it is not worth a picture of 65535 x 65535.
      {"claims", claims, IMK_ERR_BAD_FILE, "BODY too short for the picture"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    OwnedPicture pic;
    FileInfo info;
    EXPECT_EQ(load(c.file, pic, 0, &info), c.code);
    EXPECT_STREQ(info.errorText, c.text);
    EXPECT_EQ(pic->pixels, nullptr);
    // Ignoring errors must not reach outside the file either.
    if (c.code == IMK_ERR_BAD_FILE) {
      EXPECT_EQ(load(c.file, pic, IMK_FLAG_IGNORE_ERRORS), c.code);
    } else {
      load(c.file, pic, IMK_FLAG_IGNORE_ERRORS);
    }
  }
  // Indices past the CMAP are clamped to its last entry when errors are
  // ignored; a short BODY keeps its rows.
  OwnedPicture pic;
  ASSERT_EQ(load(cases[7].file, pic, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(pic->colorCount, 3);
  EXPECT_EQ(pic.row(0)[3], 2);
  ASSERT_EQ(load(cases[9].file, pic, IMK_FLAG_IGNORE_ERRORS), 0);
  EXPECT_EQ(pic.row(0)[3], 3);
  EXPECT_EQ(pic.row(2)[3], 0);
}

// ---------------------------------------------------------------------------
// Writing, and netpbm as the independent ILBM reader and writer.

// BMHD's plane count and compression.
void iffHeader(const Bytes& file, const checks::RoundTripCase& c, int byteRun) {
  ASSERT_GT(file.size(), 40u);
  EXPECT_EQ(file[28], c.fileDepth);
  EXPECT_EQ(file[30], byteRun);
}

checks::RoundTripCase iff(uint16_t kind, int levels, uint16_t loaded, int planes) {
  return {.format = "iff",
          .kind = kind,
          .levels = levels,
          .loaded = loaded,
          .options = {0, 1},
          .magickReads = false,
          .toolReads = {"ilbmtoppm {file}"},
          .header = iffHeader,
          .fileDepth = planes};
}

INSTANTIATE_TEST_SUITE_P(
    Iff, RoundTrip,
    testing::Values(iff(IMK_BINARY, 2, IMK_BINARY, 1), iff(IMK_GREY, 256, IMK_GREY, 8),
                    iff(IMK_GREY, 16, IMK_GREY, 8), iff(IMK_MAPPED, 200, IMK_MAPPED, 8),
                    iff(IMK_MAPPED, 12, IMK_MAPPED, 4), iff(IMK_MAPPED, 2, IMK_MAPPED, 1),
                    iff(IMK_RGB, 256, IMK_RGB, 24), iff(IMK_BGR, 256, IMK_RGB, 24),
                    iff(IMK_XBGR, 256, IMK_RGB, 24), iff(IMK_RGBX, 256, IMK_RGB, 24)),
    checks::caseName<checks::RoundTripCase>);

// Exact variants give the source back; lossy ones (HAM, 5/6-bit channels)
// are compared with netpbm's own decoding of the same file.
checks::ToolWriteCase ppmtoilbm(const char* command, const char* same) {
  return {.format = "iff",
          .command = command,
          .same = same,
          .tolerance = same ? 0 : 1,
          .decoder = "ilbmtoppm {out}"};
}

INSTANTIATE_TEST_SUITE_P(
    Iff, ToolWrites,
    testing::Values(ppmtoilbm("ppmtoilbm -nocompress {dir}/pal.ppm > {out}", "pal"),
                    ppmtoilbm("ppmtoilbm -compress {dir}/pal.ppm > {out}", "pal"),
                    ppmtoilbm("ppmtoilbm -24force {dir}/rgb.ppm > {out}", "rgb"),
                    ppmtoilbm("ppmtoilbm -ham6 {dir}/rgb.ppm > {out}", nullptr),
                    ppmtoilbm("ppmtoilbm -ham8 -nocompress {dir}/rgb.ppm > {out}", nullptr),
                    ppmtoilbm("ppmtoilbm -dcbits 5 6 5 {dir}/rgb.ppm > {out}", nullptr)),
    checks::caseName<checks::ToolWriteCase>);

TEST(IffWrite, ByteRun1ShrinksFlatPicturesAndLengthsAreConsistent) {
  test::TempDir dir;
  OwnedPicture flat;
  ASSERT_NE(imkAllock(&flat.rec, IMK_MAPPED, 8, 301, 40), 0);
  flat->colorCount = 40;
  for (int y = 0; y < 40; ++y) std::memset(flat.row(y), y, 301);
  ASSERT_EQ(test::save(dir.file("plain.iff"), flat.rec, "iff", 0, 0), 0);
  ASSERT_EQ(test::save(dir.file("packed.iff"), flat.rec, "iff", 0, 1), 0);
  const Bytes plain = test::readFile(dir.file("plain.iff"));
  const Bytes packed = test::readFile(dir.file("packed.iff"));
  // 6 planes of 304 bits (38 bytes) a row.
  const size_t body = 38u * 6 * 40;
  EXPECT_EQ(plain.size(), 12 + 28 + 8 + 120 + 8 + body);
  EXPECT_LT(packed.size() * 5, plain.size());
  for (const Bytes* b : {&plain, &packed}) {
    const uint32_t formLength = (*b)[4] << 24 | (*b)[5] << 16 | (*b)[6] << 8 | (*b)[7];
    EXPECT_EQ(formLength + 8, b->size());
  }
  OwnedPicture back;
  ASSERT_EQ(test::load(dir.file("packed.iff"), back), 0);
  EXPECT_EQ(test::toRgb(back.rec), test::toRgb(flat.rec));
}

TEST(IffCorpus, FourBitCmapPicturesAreNetpbmsWidened) {
  // glass.iff is HAM6 over a 4-bit CMAP: every channel of netpbm's plain
  // decoding is a multiple of 16, and ours is that value widened (v | v >> 4).
  const std::string path = test::corpusDir() + "/iff/iffshow/glass.iff";
  std::string out;
  ASSERT_EQ(test::run("ilbmtoppm " + test::quote(path) + " 2>/dev/null", &out), 0);
  int w, h;
  std::vector<uint8_t> ref;
  ASSERT_TRUE(test::parseNetpbm(out, &w, &h, &ref));
  for (uint8_t& v : ref) v = static_cast<uint8_t>(v | v >> 4);
  OwnedPicture pic;
  ASSERT_EQ(test::load(path, pic), 0);
  EXPECT_EQ(test::toRgb(pic.rec), ref);
}

}  // namespace
