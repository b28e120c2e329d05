// A short, repeatable fuzz run for one reader with any compiler: the seed
// files (every file under the given directories, and a picture the codec
// writes itself when it can) are mutated a fixed number of times with a fixed
// random sequence (bit flips, byte overwrites with boundary values, cuts,
// repeated and dropped ranges) and each result goes through the reader under
// the sanitizers of the build.
//
//   fuzz_smoke CODEC RUNS [SEED_DIR...]
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/fuzz_target.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes readFile(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// A small picture written by the codec itself, when it writes.
bool ownPicture(const imk::Codec& codec, Bytes& out) {
  if (!codec.write || !(codec.capabilities & IMK_CAN_WRITE)) return false;
  const std::string path = std::filesystem::temp_directory_path() /
                           ("vimora-smoke-" + std::to_string(getpid()) + "." + codec.shortName);
  ImageRecord pic{};
  const bool rgb =
      codec.kinds[0].kind >= IMK_RGB || codec.kinds[0].kind == 0 || codec.kinds[0].kind >= 0xFFFF;
  const uint16_t type = rgb ? uint16_t{IMK_RGB} : static_cast<uint16_t>(codec.kinds[0].kind);
  if (!imkAllock(&pic, type, 8, 13, 7)) return false;
  if (!rgb) pic.colorCount = pic.type == IMK_BINARY ? 2 : 16;
  for (int y = 0; y < pic.height; ++y)
    for (int x = 0; x < pic.width * pic.bytesPerPixel; ++x)
      pic.pixels[y * pic.bytesPerLine + x] =
          static_cast<uint8_t>(rgb ? x * 19 + y * 7 : (x + y) % pic.colorCount);
  LoadOptions options;
  imkDefaultOption(&options);
  options.formatIndex = fuzz::codecIndex(codec);
  const bool ok = imkSave(path.c_str(), &pic, &options) == 0;
  imkFree(&pic);
  if (ok) out = readFile(path);
  std::filesystem::remove(path);
  return ok && !out.empty();
}

void mutate(Bytes& b, std::mt19937& rng) {
  auto pick = [&](size_t n) { return n ? static_cast<size_t>(rng() % n) : 0; };
  const int edits = 1 + static_cast<int>(rng() % 4);
  for (int e = 0; e < edits; ++e) {
    switch (rng() % 6) {
      case 0:  // flip a bit
        if (!b.empty()) b[pick(b.size())] ^= static_cast<uint8_t>(1u << (rng() % 8));
        break;
      case 1: {  // a boundary value, often in the headers
        static const uint8_t kValues[] = {0, 1, 0x7F, 0x80, 0xFE, 0xFF};
        if (!b.empty())
          b[pick(std::min<size_t>(b.size(), rng() % 2 ? 64 : b.size()))] = kValues[rng() % 6];
        break;
      }
      case 2:  // cut the file
        b.resize(pick(b.size() + 1));
        break;
      case 3: {  // repeat a range
        if (b.empty() || b.size() > (1u << 20)) break;
        const size_t at = pick(b.size()), n = 1 + pick(std::min<size_t>(64, b.size() - at));
        b.insert(b.begin() + static_cast<ptrdiff_t>(at), b.begin() + static_cast<ptrdiff_t>(at),
                 b.begin() + static_cast<ptrdiff_t>(at + n));
        break;
      }
      case 4: {  // drop a range
        if (b.empty()) break;
        const size_t at = pick(b.size()), n = 1 + pick(std::min<size_t>(64, b.size() - at));
        b.erase(b.begin() + static_cast<ptrdiff_t>(at), b.begin() + static_cast<ptrdiff_t>(at + n));
        break;
      }
      default: {  // a random 32-bit value (sizes, offsets, counts)
        if (b.size() < 4) break;
        const size_t at = pick(std::min<size_t>(b.size() - 3, 256));
        const uint32_t v = rng();
        for (int k = 0; k < 4; ++k) b[at + k] = static_cast<uint8_t>(v >> (8 * k));
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: fuzz_smoke CODEC RUNS [SEED_DIR...]\n");
    return 2;
  }
  const imk::Codec* codec = fuzz::codecNamed(argv[1]);
  if (!codec) {
    std::fprintf(stderr, "fuzz_smoke: no codec named %s\n", argv[1]);
    return 2;
  }
  const long runs = std::atol(argv[2]);
  std::vector<Bytes> seeds;
  for (int i = 3; i < argc; ++i) {
    std::error_code ec;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i], ec))
      // Small seeds only: a mutation of a large file costs a whole large
      // decode, and the conformance tests read the large files already.
      if (entry.is_regular_file() && entry.file_size() <= (16u << 10))
        seeds.push_back(readFile(entry.path()));
  }
  Bytes own;
  if (ownPicture(*codec, own)) seeds.push_back(own);
  if (seeds.empty()) seeds.push_back(Bytes(64, 0));
  std::mt19937 rng(20261122);
  for (const Bytes& seed : seeds) fuzz::runCodec(*codec, seed.data(), seed.size());
  for (long r = 0; r < runs; ++r) {
    Bytes b = seeds[static_cast<size_t>(r) % seeds.size()];
    mutate(b, rng);
    fuzz::runCodec(*codec, b.data(), b.size());
  }
  std::printf("%s: %zu seeds, %ld mutated inputs\n", codec->shortName, seeds.size(), runs);
  return 0;
}
