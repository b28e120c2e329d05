// JPEG 2000 (JP2 files and bare code streams): lossless round trips, lossy
// quality, files made and read by OpenJPEG's own tools and by ImageMagick,
// precisions other than 8, signed samples, subsampled chroma, reduced loads,
// progress, damaged and hostile files.
#include <gtest/gtest.h>
#include <openjpeg.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "imgkit/internal.h"
#include "tests/imgkit/codec_checks.h"
#include "tests/support/test_support.h"

namespace {

using checks::makeGradient;
using checks::meanDifference;
using checks::psnr;
using test::OwnedPicture;
using test::rgbaOf;

// opj_decompress's decoding of a file, as RGB (through a PNG it writes).
bool opjDecode(const std::string& path, OwnedPicture& pic, const test::TempDir& dir) {
  const std::string png = dir.file("opj.png");
  if (test::run("opj_decompress -i " + test::quote(path) + " -o " + test::quote(png) +
                " >/dev/null 2>&1") != 0)
    return false;
  return test::load(png, pic) == 0;
}

// A netpbm file written by hand: `samples` interleaved, maxval as given.
void writeNetpbm(const std::string& path, char kind, int w, int h, int maxval,
                 const std::vector<int>& samples) {
  const std::string head = std::string("P") + kind + "\n" + std::to_string(w) + " " +
                           std::to_string(h) + "\n" + std::to_string(maxval) + "\n";
  std::vector<uint8_t> bytes(head.begin(), head.end());
  for (int v : samples) {
    if (maxval > 255) bytes.push_back(static_cast<uint8_t>(v >> 8));
    bytes.push_back(static_cast<uint8_t>(v));
  }
  test::writeFile(path, bytes);
}

// --- files made through OpenJPEG directly ------------------------------------

struct Component {
  uint32_t dx = 1, dy = 1, prec = 8;
  bool sgnd = false;
  std::function<int(uint32_t x, uint32_t y)> value;  // sample at component position
};

OPJ_SIZE_T writeToFile(void* buffer, OPJ_SIZE_T n, void* user) {
  return std::fwrite(buffer, 1, n, static_cast<FILE*>(user));
}
OPJ_OFF_T skipInFile(OPJ_OFF_T n, void* user) {
  return fseeko(static_cast<FILE*>(user), n, SEEK_CUR) == 0 ? n : -1;
}
OPJ_BOOL seekInFile(OPJ_OFF_T n, void* user) {
  return fseeko(static_cast<FILE*>(user), n, SEEK_SET) == 0;
}

// Encodes the components losslessly on a width x height reference grid.
bool encodeComponents(const std::string& path, OPJ_CODEC_FORMAT format, uint32_t width,
                      uint32_t height, const std::vector<Component>& comps, OPJ_COLOR_SPACE space) {
  std::vector<opj_image_cmptparm_t> params(comps.size());
  for (size_t c = 0; c < comps.size(); ++c) {
    std::memset(&params[c], 0, sizeof params[c]);
    params[c].dx = comps[c].dx;
    params[c].dy = comps[c].dy;
    params[c].w = (width + comps[c].dx - 1) / comps[c].dx;
    params[c].h = (height + comps[c].dy - 1) / comps[c].dy;
    params[c].prec = comps[c].prec;
    params[c].sgnd = comps[c].sgnd;
  }
  opj_image_t* image =
      opj_image_create(static_cast<OPJ_UINT32>(comps.size()), params.data(), space);
  if (!image) return false;
  image->x1 = width;
  image->y1 = height;
  for (size_t c = 0; c < comps.size(); ++c)
    for (uint32_t y = 0; y < params[c].h; ++y)
      for (uint32_t x = 0; x < params[c].w; ++x)
        image->comps[c].data[y * params[c].w + x] = comps[c].value(x, y);
  opj_cparameters_t p;
  opj_set_default_encoder_parameters(&p);
  p.tcp_numlayers = 1;
  p.cp_disto_alloc = 1;
  p.tcp_rates[0] = 0;
  // Three resolution levels where the smallest component allows them.
  uint32_t side = std::min(width, height);
  for (const Component& c : comps) side = std::min({side, width / c.dx, height / c.dy});
  p.numresolution = side >= 4 ? 3 : side >= 2 ? 2 : 1;
  FILE* f = std::fopen(path.c_str(), "wb");
  opj_codec_t* codec = opj_create_compress(format);
  opj_stream_t* stream = opj_stream_create(1 << 16, OPJ_FALSE);
  opj_stream_set_write_function(stream, writeToFile);
  opj_stream_set_skip_function(stream, skipInFile);
  opj_stream_set_seek_function(stream, seekInFile);
  opj_stream_set_user_data(stream, f, nullptr);
  const bool ok = f && opj_setup_encoder(codec, &p, image) &&
                  opj_start_compress(codec, image, stream) && opj_encode(codec, stream) &&
                  opj_end_compress(codec, stream);
  opj_stream_destroy(stream);
  opj_destroy_codec(codec);
  opj_image_destroy(image);
  if (f) std::fclose(f);
  return ok;
}

// --- round trips ----------------------------------------------------------

// Lossless (quality 0 or 100) is exact for every kind in both containers;
// ImageMagick reads grey and true colour the same.
std::vector<checks::RoundTripCase> jpeg2000Cases() {
  std::vector<checks::RoundTripCase> cases;
  for (const char* format : {"jp2", "j2k"})
    for (uint16_t kind : {IMK_BINARY, IMK_GREY, IMK_MAPPED, IMK_RGB, IMK_BGR, IMK_XBGR, IMK_RGBX})
      for (int quality : {0, 100}) {
        const bool grey = kind == IMK_BINARY || kind == IMK_GREY;
        cases.push_back({.format = format,
                         .kind = kind,
                         .levels = kind == IMK_GREY ? 256 : 200,
                         .loaded = grey               ? IMK_GREY
                                   : kind == IMK_RGBX ? IMK_RGBX
                                                      : IMK_RGB,
                         .magickReads = kind == IMK_GREY || kind == IMK_RGB || kind == IMK_RGBX,
                         .width = 45,
                         .height = 29,
                         .quality = quality});
      }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Jpeg2000, RoundTrip, testing::ValuesIn(jpeg2000Cases()),
                         checks::caseName<checks::RoundTripCase>);

TEST(Jpeg2000RoundTrip, LossyQualityTradesSizeForFidelity) {
  test::TempDir dir;
  OwnedPicture pic;
  makeGradient(pic, IMK_RGB, 200, 150);
  std::vector<size_t> sizes;
  std::vector<double> fidelity;
  for (int quality : {10, 50, 90}) {
    const std::string path = dir.file("q" + std::to_string(quality) + ".jp2");
    ASSERT_EQ(test::save(path, pic.rec, "jp2", quality), 0);
    OwnedPicture back;
    ASSERT_EQ(test::load(path, back), 0);
    sizes.push_back(test::readFile(path).size());
    fidelity.push_back(psnr(test::toRgb(back.rec), test::toRgb(pic.rec)));
  }
  EXPECT_LT(sizes[0], sizes[1]);
  EXPECT_LT(sizes[1], sizes[2]);
  EXPECT_LT(fidelity[0], fidelity[1]);
  EXPECT_LT(fidelity[1], fidelity[2]);
  // Quality 50 aims at 35 dB, 90 at 47 dB.
  EXPECT_GT(fidelity[1], 33.0);
  EXPECT_GT(fidelity[2], 44.0);
  // Lossless files are larger still.
  ASSERT_EQ(test::save(dir.file("ll.jp2"), pic.rec, "jp2", 0), 0);
  EXPECT_GT(test::readFile(dir.file("ll.jp2")).size(), sizes[2]);
}

// --- independent tools ------------------------------------------------------

TEST(Jpeg2000CrossCheck, OpjDecompressReadsOurFilesAsTheyWere) {
  test::TempDir dir;
  for (const char* format : {"jp2", "j2k"}) {
    for (uint16_t type : {IMK_GREY, IMK_RGB, IMK_RGBX}) {
      OwnedPicture pic, theirs;
      test::makePattern(pic, type, 37, 23);
      const std::string path = dir.file(std::string("x.") + format);
      ASSERT_EQ(test::save(path, pic.rec, format), 0);
      ASSERT_TRUE(opjDecode(path, theirs, dir)) << format << " " << type;
      if (type == IMK_RGBX && std::string(format) == "jp2") {
        ASSERT_EQ(theirs->type, IMK_RGBX);  // the fourth component is marked alpha
        EXPECT_EQ(rgbaOf(theirs.rec), rgbaOf(pic.rec)) << format;
      } else {
        EXPECT_EQ(test::toRgb(theirs.rec), test::toRgb(pic.rec)) << format << " " << type;
      }
    }
  }
}

TEST(Jpeg2000CrossCheck, OpjCompressFilesReadLikeTheirSource) {
  test::TempDir dir;
  // 8-bit R,G,B and grey.
  OwnedPicture rgb, grey;
  test::makePattern(rgb, IMK_RGB, 50, 40);
  test::makePattern(grey, IMK_GREY, 50, 40);
  ASSERT_EQ(test::save(dir.file("rgb.ppm"), rgb.rec, "ppm"), 0);
  ASSERT_EQ(test::save(dir.file("grey.pgm"), grey.rec, "pgm"), 0);
  for (const auto& [src, pic] :
       {std::pair<const char*, OwnedPicture*>{"rgb.ppm", &rgb}, {"grey.pgm", &grey}}) {
    for (const char* ext : {".jp2", ".j2k"}) {
      const std::string out = dir.file(std::string(src) + ext);
      ASSERT_EQ(test::run("opj_compress -i " + test::quote(dir.file(src)) + " -o " +
                          test::quote(out) + " >/dev/null 2>&1"),
                0);
      OwnedPicture back;
      ASSERT_EQ(test::load(out, back), 0) << out;
      EXPECT_EQ(test::toRgb(back.rec), test::toRgb(pic->rec)) << out;
    }
  }
  // 16-bit samples round to the nearest 8-bit value.
  std::vector<int> samples;
  for (int i = 0; i < 16 * 8 * 3; ++i) samples.push_back((i * 2731 + 17) % 65536);
  writeNetpbm(dir.file("deep.ppm"), '6', 16, 8, 65535, samples);
  ASSERT_EQ(test::run("opj_compress -i " + test::quote(dir.file("deep.ppm")) + " -o " +
                      test::quote(dir.file("deep.jp2")) + " -n 2 >/dev/null 2>&1"),
            0);
  OwnedPicture deep;
  FileInfo info;
  ASSERT_EQ(test::load(dir.file("deep.jp2"), deep, 0, 0, &info), 0);
  EXPECT_EQ(info.bitsPerPlane, 16);
  EXPECT_EQ(info.planes, 3);
  const std::vector<uint8_t> deepRgb = test::toRgb(deep.rec);
  for (size_t i = 0; i < samples.size(); ++i)
    ASSERT_EQ(deepRgb[i], (samples[i] * 255 + 32767) / 65535) << i;
  // Lossy files: the same pixels opj_decompress gives.
  ASSERT_EQ(test::run("opj_compress -i " + test::quote(dir.file("rgb.ppm")) + " -o " +
                      test::quote(dir.file("lossy.jp2")) + " -r 20 -I >/dev/null 2>&1"),
            0);
  OwnedPicture ours, theirs;
  ASSERT_EQ(test::load(dir.file("lossy.jp2"), ours), 0);
  ASSERT_TRUE(opjDecode(dir.file("lossy.jp2"), theirs, dir));
  EXPECT_EQ(test::toRgb(ours.rec), test::toRgb(theirs.rec));
}

TEST(Jpeg2000Decode, SubsampledChromaIsUpsampledAndConvertedLikeOpjDecompress) {
  test::TempDir dir;
  const uint32_t w = 64, h = 48;
  std::vector<Component> comps(3);
  comps[0].value = [](uint32_t x, uint32_t y) { return static_cast<int>(40 + (x * 2 + y) % 170); };
  comps[1].dx = comps[1].dy = comps[2].dx = comps[2].dy = 2;
  comps[1].value = [](uint32_t x, uint32_t) { return static_cast<int>(90 + x * 2); };
  comps[2].value = [](uint32_t, uint32_t y) { return static_cast<int>(170 - y * 2); };
  for (const auto& [format, ext] :
       {std::pair{OPJ_CODEC_JP2, "jp2"}, std::pair{OPJ_CODEC_J2K, "j2k"}}) {
    const std::string path = dir.file(std::string("ycc.") + ext);
    ASSERT_TRUE(encodeComponents(path, format, w, h, comps, OPJ_CLRSPC_SYCC));
    OwnedPicture ours, theirs;
    ASSERT_EQ(test::load(path, ours), 0) << ext;
    ASSERT_EQ(ours->width, 64);
    ASSERT_EQ(ours->height, 48);
    ASSERT_TRUE(opjDecode(path, theirs, dir));
    const auto a = test::toRgb(ours.rec), b = test::toRgb(theirs.rec);
    EXPECT_LE(test::maxDifference(a, b), 2) << ext;
    // A mid-grey luma with neutral chroma stays grey: (0,0) has Cb 90, so
    // check the colour moves the right way instead: Cb < 128 means less blue.
    EXPECT_LT(a[2], a[0]) << ext;
  }
}

TEST(Jpeg2000Decode, SignedAndDeepSamplesScaleAndShallowGreyKeepsLevels) {
  test::TempDir dir;
  // Worked values: signed 8-bit -128 -> 0, 0 -> 128, 127 -> 255; 12-bit
  // 0 -> 0, 2048 -> 128 (2048 x 255 / 4095 = 127.5 rounds up), 4095 -> 255.
  std::vector<Component> signedGrey(1);
  signedGrey[0].sgnd = true;
  const int svals[3] = {-128, 0, 127};
  signedGrey[0].value = [&](uint32_t x, uint32_t) { return svals[x % 3]; };
  ASSERT_TRUE(
      encodeComponents(dir.file("s.j2k"), OPJ_CODEC_J2K, 9, 2, signedGrey, OPJ_CLRSPC_GRAY));
  OwnedPicture s;
  ASSERT_EQ(test::load(dir.file("s.j2k"), s), 0);
  EXPECT_EQ(s->type, IMK_GREY);
  EXPECT_EQ(s->colorCount, 256);
  EXPECT_EQ(s.row(1)[0], 0);
  EXPECT_EQ(s.row(1)[1], 128);
  EXPECT_EQ(s.row(1)[2], 255);

  std::vector<Component> deep(3);
  const int dvals[3] = {0, 2048, 4095};
  for (int c = 0; c < 3; ++c) {
    deep[c].prec = 12;
    deep[c].value = [&, c](uint32_t x, uint32_t) { return dvals[(x + c) % 3]; };
  }
  ASSERT_TRUE(encodeComponents(dir.file("d.jp2"), OPJ_CODEC_JP2, 3, 1, deep, OPJ_CLRSPC_SRGB));
  OwnedPicture d;
  ASSERT_EQ(test::load(dir.file("d.jp2"), d), 0);
  ASSERT_EQ(d->type, IMK_RGB);
  const uint8_t expected[9] = {0, 128, 255, 128, 255, 0, 255, 0, 128};
  EXPECT_TRUE(std::equal(expected, expected + 9, d.row(0)));

  // Four bits keep their 16 level numbers.
  std::vector<Component> four(1);
  four[0].prec = 4;
  four[0].value = [](uint32_t x, uint32_t y) { return static_cast<int>((x + 3 * y) % 16); };
  ASSERT_TRUE(encodeComponents(dir.file("f.j2k"), OPJ_CODEC_J2K, 20, 6, four, OPJ_CLRSPC_GRAY));
  OwnedPicture f;
  ASSERT_EQ(test::load(dir.file("f.j2k"), f), 0);
  ASSERT_EQ(f->type, IMK_GREY);
  EXPECT_EQ(f->colorCount, 16);
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 20; ++x) ASSERT_EQ(f.row(y)[x], (x + 3 * y) % 16);

  // One bit is a binary picture.
  std::vector<Component> bit(1);
  bit[0].prec = 1;
  bit[0].value = [](uint32_t x, uint32_t y) { return static_cast<int>((x + y) & 1); };
  ASSERT_TRUE(encodeComponents(dir.file("b.j2k"), OPJ_CODEC_J2K, 5, 4, bit, OPJ_CLRSPC_GRAY));
  OwnedPicture b;
  ASSERT_EQ(test::load(dir.file("b.j2k"), b), 0);
  ASSERT_EQ(b->type, IMK_BINARY);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 5; ++x) ASSERT_EQ(b.row(y)[x], (x + y) & 1);
}

// --- reduced loads, progress ------------------------------------------------

TEST(Jpeg2000Reduce, LowerResolutionLevelAveragesInsteadOfSampling) {
  test::TempDir dir;
  // Left half a smooth gradient, right half a one-pixel checkerboard that
  // sampling would turn black or white and averaging turns mid-grey.
  OwnedPicture pic;
  ASSERT_TRUE(imkAllock(&pic.rec, IMK_GREY, 8, 400, 300));
  for (int y = 0; y < 300; ++y)
    for (int x = 0; x < 400; ++x)
      pic.row(y)[x] = static_cast<uint8_t>(x < 200 ? (x + y) * 255 / 500 : ((x + y) & 1) * 255);
  const std::string path = dir.file("r.jp2");
  ASSERT_EQ(test::save(path, pic.rec, "jp2"), 0);
  LoadOptions o;
  imkDefaultOption(&o);
  o.flags |= IMK_FLAG_REDUCE;
  o.fitWidth = o.fitHeight = 90;
  OwnedPicture reduced;
  ASSERT_EQ(imkLoad(path.c_str(), &reduced.rec, &o, nullptr), 0);
  ASSERT_EQ(reduced->width, 90);
  ASSERT_EQ(reduced->height, 68);
  imk::Picture full;
  ASSERT_TRUE(full.allocate(IMK_GREY, 400, 300));
  for (int y = 0; y < 300; ++y) std::memcpy(full.row(y), pic.row(y), 400);
  ASSERT_TRUE(imk::reducePicture(full, 90, 90));
  const auto ours = test::toRgb(reduced.rec), area = test::toRgb(full.rec());
  double gradient = 0;
  int worstChecker = 0;
  for (int y = 2; y < 66; ++y)
    for (int x = 2; x < 88; ++x) {
      const size_t i = (static_cast<size_t>(y) * 90 + x) * 3;
      if (x < 43) gradient += std::abs(ours[i] - area[i]);
      if (x > 47) worstChecker = std::max(worstChecker, std::abs(ours[i] - 128));
    }
  EXPECT_LT(gradient / (64 * 41), 2.0);
  EXPECT_LE(worstChecker, 8);
}

TEST(Jpeg2000Progress, ClimbsFromZeroAndStopsWhenAsked) {
  test::TempDir dir;
  OwnedPicture pic;
  test::makePattern(pic, IMK_RGB, 120, 100);
  for (const char* format : {"j2k", "jp2"}) {
    const std::string path = dir.file(std::string("p.") + format);
    ASSERT_EQ(test::save(path, pic.rec, format), 0);
    checks::expectProgressClimbsAndStops(path);
  }
}

TEST(Jpeg2000Write, StoppingLeavesNoFileAndWriteErrorsAreReported) {
  OwnedPicture pic;
  test::makePattern(pic, IMK_RGB, 300, 200);
  checks::expectStoppedAndFailedSavesLeaveFilesAlone(pic.rec, "jp2");
  checks::expectStoppedAndFailedSavesLeaveFilesAlone(pic.rec, "j2k", 50);
}

// --- damaged and hostile files ------------------------------------------------

TEST(Jpeg2000Damaged, CutStreamFailsUnlessErrorsAreIgnored) {
  test::TempDir dir;
  OwnedPicture pic;
  makeGradient(pic, IMK_RGB, 160, 120);
  for (const char* format : {"jp2", "j2k"}) {
    const std::string path = dir.file(std::string("w.") + format);
    ASSERT_EQ(test::save(path, pic.rec, format), 0);
    std::vector<uint8_t> bytes = test::readFile(path);
    bytes.resize(bytes.size() * 6 / 10);
    const std::string cut = dir.file(std::string("cut.") + format);
    test::writeFile(cut, bytes);
    OwnedPicture part;
    FileInfo info;
    EXPECT_EQ(test::load(cut, part, 0, 0, &info), IMK_ERR_CORRUPT) << format;
    EXPECT_NE(info.errorText[0], '\0') << format;
    EXPECT_EQ(part->pixels, nullptr);
    ASSERT_EQ(test::load(cut, part, 0, IMK_FLAG_IGNORE_ERRORS), 0) << format;
    ASSERT_EQ(part->width, 160);
    ASSERT_EQ(part->height, 120);
    // The packets that arrived give a coarser but recognisable picture.
    EXPECT_LT(meanDifference(test::toRgb(part.rec), test::toRgb(pic.rec)), 30.0) << format;
    ASSERT_EQ(imkFileInformation(cut.c_str(), -1, 0, &info), 0);
    EXPECT_EQ(info.width, 160);
  }
}

void put16(std::vector<uint8_t>& v, uint32_t x) {
  v.push_back(static_cast<uint8_t>(x >> 8));
  v.push_back(static_cast<uint8_t>(x));
}
void put32(std::vector<uint8_t>& v, uint32_t x) {
  put16(v, x >> 16);
  put16(v, x & 0xFFFF);
}

// SOC and a SIZ segment for the given grid and components (8-bit each).
std::vector<uint8_t> codestreamHead(uint32_t w, uint32_t h, uint32_t comps, uint8_t depthByte = 7) {
  std::vector<uint8_t> s = {0xFF, 0x4F, 0xFF, 0x51};
  put16(s, 38 + 3 * comps);
  put16(s, 0);  // capabilities
  put32(s, w);  // grid
  put32(s, h);
  put32(s, 0);  // image offset
  put32(s, 0);
  put32(s, w);  // one tile
  put32(s, h);
  put32(s, 0);
  put32(s, 0);
  put16(s, comps);
  for (uint32_t c = 0; c < comps; ++c) s.insert(s.end(), {depthByte, 1, 1});
  return s;
}

TEST(Jpeg2000Hostile, BadHeadersHugeSizesAndLengthsPastTheEndFailCleanly) {
  test::TempDir dir;
  auto loadFails = [&](const std::vector<uint8_t>& bytes, const char* name) {
    const std::string path = dir.file(name);
    test::writeFile(path, bytes);
    for (uint16_t flags : {0, static_cast<int>(IMK_FLAG_IGNORE_ERRORS)}) {
      OwnedPicture pic;
      FileInfo info;
      const int rc = test::load(path, pic, 0, flags, &info);
      EXPECT_TRUE(rc == IMK_ERR_BAD_FILE || rc == IMK_ERR_CORRUPT) << name << ": " << rc;
      EXPECT_EQ(pic->pixels, nullptr) << name;
      EXPECT_NE(info.errorText[0], '\0') << name;
    }
  };
  // A 65535 x 65535 grid with nothing after the header.
  loadFails(codestreamHead(65535, 65535, 3), "huge.j2k");
  // No components, too many components.
  loadFails(codestreamHead(10, 10, 0), "none.j2k");
  loadFails(codestreamHead(10, 10, 40), "many.j2k");
  // A depth of 39 bits.
  loadFails(codestreamHead(10, 10, 1, 38), "deep.j2k");
  // Only the start of a header.
  std::vector<uint8_t> head = codestreamHead(10, 10, 1);
  head.resize(20);
  loadFails(head, "short.j2k");
  // A JP2 file whose header box claims more bytes than there are.
  std::vector<uint8_t> jp2 = {0, 0, 0, 0x0C, 'j', 'P', ' ', ' ', 0x0D, 0x0A, 0x87, 0x0A};
  put32(jp2, 20);
  jp2.insert(jp2.end(), {'f', 't', 'y', 'p', 'j', 'p', '2', ' ', 0, 0, 0, 0, 'j', 'p', '2', ' '});
  put32(jp2, 0x7FFFFFF0);
  jp2.insert(jp2.end(), {'j', 'p', '2', 'h', 0, 0, 0, 0});
  loadFails(jp2, "long.jp2");
}

// Found by fuzzing: a tile-part claiming 4 GB in a tiny file made the lenient
// retry (errors ignored) allocate all of it.
TEST(Jpeg2000Hostile, TilePartLengthFarBeyondThePictureIsNotRetriedLeniently) {
  test::TempDir dir;
  OwnedPicture pic;
  test::makePattern(pic, IMK_RGB, 32, 32);
  for (const char* format : {"j2k", "jp2"}) {
    const std::string path = dir.file(std::string("t.") + format);
    ASSERT_EQ(test::save(path, pic.rec, format), 0);
    std::vector<uint8_t> bytes = test::readFile(path);
    const uint8_t sot[2] = {0xFF, 0x90};
    auto at = std::search(bytes.begin(), bytes.end(), sot, sot + 2);
    ASSERT_NE(at, bytes.end());
    const size_t psot = static_cast<size_t>(at - bytes.begin()) + 6;
    bytes[psot] = 0xF7, bytes[psot + 1] = 0x00, bytes[psot + 2] = 0x01, bytes[psot + 3] = 0x5D;
    test::writeFile(path, bytes);
    for (uint16_t flags : {0, static_cast<int>(IMK_FLAG_IGNORE_ERRORS)}) {
      OwnedPicture back;
      EXPECT_EQ(test::load(path, back, 0, flags), IMK_ERR_CORRUPT) << format << " " << flags;
      EXPECT_EQ(back->pixels, nullptr);
    }
  }
}

TEST(Jpeg2000Hostile, PixelBudgetCountsOpenJpegsOwnSamples) {
  // Enough for the R,G,B picture, not for three planes of 32-bit samples.
  checks::expectRefusedUnderBudget("j2k", 100, 100, 100 * 100 * 6);
  checks::expectRefusedUnderBudget("jp2", 100, 100, 100 * 100 * 6);
}

}  // namespace
