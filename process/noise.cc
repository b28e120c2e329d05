// Added noise. Every distribution is turned once per call into a table of
// 2^16 (additive kinds) or 2^10 (photon noise, per intensity) equally likely
// outcomes placed at the mid-points of its cumulative distribution; each byte
// then costs one pseudo-random number and a table look-up.
#include "process/noise.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "process/operation.h"

namespace process {

namespace {

constexpr int kSpan = 256;  // offsets beyond +-256 clamp like +-256 itself
constexpr int kAdditiveBits = 16;
constexpr int kPhotonBits = 10;

struct Random {
  uint64_t state;
  uint64_t bits = 0;
  int left = 0;
  // splitmix64, cut into four 16-bit draws.
  unsigned next16() {
    if (left == 0) {
      uint64_t z = (state += 0x9e3779b97f4a7c15ull);
      z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
      z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
      bits = z ^ (z >> 31);
      left = 4;
    }
    const unsigned v = static_cast<unsigned>(bits & 0xffff);
    bits >>= 16;
    --left;
    return v;
  }
};

// Fills `table` (2^bits entries) with the outcomes of a distribution given by
// its probability masses (mass[i] for outcome first + i): entry k is the
// outcome whose cumulative range holds (k + 0.5) / 2^bits.
template <class T>
void fillQuantiles(T* table, int bits, const std::vector<double>& mass, int first) {
  double total = 0.0;
  for (double m : mass) total += m;
  const int size = 1 << bits;
  double cumulative = 0.0;
  size_t i = 0;
  for (int k = 0; k < size; ++k) {
    const double u = (k + 0.5) / size * total;
    while (i + 1 < mass.size() && cumulative + mass[i] <= u) cumulative += mass[i++];
    table[k] = static_cast<T>(first + static_cast<int>(i));
  }
}

double normalCdf(double x) { return 0.5 * std::erfc(-x / std::sqrt(2.0)); }

double laplaceCdf(double x, double b) {
  return x < 0 ? 0.5 * std::exp(x / b) : 1.0 - 0.5 * std::exp(-x / b);
}

// Offsets -kSpan..kSpan with their probabilities (the tails folded into the
// ends, where every result clamps alike).
std::vector<double> offsetMasses(NoiseKind kind, int amount) {
  std::vector<double> mass(2 * kSpan + 1, 0.0);
  const double a = amount;
  for (int n = -kSpan; n <= kSpan; ++n) {
    const double lo = n == -kSpan ? -HUGE_VAL : n - 0.5;
    const double hi = n == kSpan ? HUGE_VAL : n + 0.5;
    double p = 0.0;
    switch (kind) {
      case NoiseKind::uniform:
        p = std::abs(n) <= amount ? 1.0 : 0.0;
        break;
      case NoiseKind::gaussian:
        p = normalCdf(hi / a) - normalCdf(lo / a);
        break;
      case NoiseKind::laplacian: {
        const double b = a / std::sqrt(2.0);  // standard deviation b * sqrt(2)
        p = laplaceCdf(hi, b) - laplaceCdf(lo, b);
        break;
      }
      case NoiseKind::poisson:
        break;
    }
    mass[n + kSpan] = p;
  }
  return mass;
}

// Outcome masses of round(Poisson(v * c) / c), clamped to 0..255.
std::vector<double> photonMasses(int v, double c) {
  std::vector<double> mass(256, 0.0);
  const double lambda = v * c;
  if (lambda <= 0.0) {
    mass[0] = 1.0;
    return mass;
  }
  const double spread = 12.0 * std::sqrt(lambda) + 12.0;
  const long first = std::max(0L, static_cast<long>(lambda - spread));
  const long last = static_cast<long>(lambda + spread);
  const double logLambda = std::log(lambda);
  for (long k = first; k <= last; ++k) {
    const double p = std::exp(k * logLambda - lambda - std::lgamma(k + 1.0));
    const long out = std::min(255L, static_cast<long>(std::floor(k / c + 0.5)));
    mass[static_cast<size_t>(out)] += p;
  }
  return mass;
}

// Noise for one intensity at a time, drawn from one shared sequence.
struct NoiseSource {
  bool photon = false;
  std::vector<int16_t> offsets;  // additive kinds
  std::vector<uint8_t> photons;  // [v << kPhotonBits | k]
  uint8_t clampTable[2 * kSpan + 256];
  Random random;

  uint8_t apply(uint8_t v) {
    const unsigned r = random.next16();
    if (photon) return photons[(static_cast<size_t>(v) << kPhotonBits) | (r >> (16 - kPhotonBits))];
    return clampTable[v + offsets[r] + kSpan];
  }
};

bool prepare(NoiseSource& source, NoiseKind kind, int amount, uint32_t seed) {
  source.random.state = seed;
  for (int i = 0; i < 2 * kSpan + 256; ++i)
    source.clampTable[i] = static_cast<uint8_t>(std::clamp(i - kSpan, 0, 255));
  try {
    if (kind == NoiseKind::poisson) {
      source.photon = true;
      source.photons.resize(static_cast<size_t>(256) << kPhotonBits);
      const double c = 255.0 / (static_cast<double>(amount) * amount);
      for (int v = 0; v < 256; ++v)
        fillQuantiles(source.photons.data() + (static_cast<size_t>(v) << kPhotonBits), kPhotonBits,
                      photonMasses(v, c), 0);
    } else {
      source.offsets.resize(size_t{1} << kAdditiveBits);
      fillQuantiles(source.offsets.data(), kAdditiveBits, offsetMasses(kind, amount), -kSpan);
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

// The palette entry nearest to each colour of a 32 x 32 x 32 grid (colours
// taken at the middle of their cells).
std::vector<uint8_t> nearestEntries(const ImageRecord& picture) {
  const int count = std::clamp(picture.colorCount, 1, 256);
  const uint8_t* pal = picture.palette;
  std::vector<uint8_t> nearest(32768);
  for (int cell = 0; cell < 32768; ++cell) {
    const int r = ((cell >> 10) << 3) + 4, g = (((cell >> 5) & 31) << 3) + 4,
              b = ((cell & 31) << 3) + 4;
    int best = 0, bestDistance = 1 << 30;
    for (int i = 0; i < count; ++i) {
      const int dr = r - pal[i], dg = g - pal[256 + i], db = b - pal[512 + i];
      const int d = dr * dr + dg * dg + db * db;
      if (d < bestDistance) bestDistance = d, best = i;
    }
    nearest[cell] = static_cast<uint8_t>(best);
  }
  return nearest;
}

}  // namespace

int addNoise(ImageRecord* src, ImageRecord* dst, NoiseKind kind, int amount, uint32_t seed) {
  amount = std::clamp(amount, 0, 255);
  if (amount == 0) return duplicate(src, dst);
  NoiseSource source;
  std::vector<uint8_t> nearest;
  if (!prepare(source, kind, amount, seed)) return 1;
  if (src->type == 4 && src->palette) {
    try {
      nearest = nearestEntries(*src);
    } catch (const std::bad_alloc&) {
      return 1;
    }
  }
  ImageRecord result;
  if (!newResult(*src, result)) return 1;
  if (src->palette && result.palette) std::memcpy(result.palette, src->palette, 768);
  const int width = src->width;
  if (isTrueColour(src->type)) {
    const int bpp = src->bytesPerPixel > 0 ? src->bytesPerPixel : 3;
    const ChannelOffsets o = channelOffsets(src->type);
    for (int y = 0; y < src->height; ++y) {
      const uint8_t* in = rowOf(*src, y);
      uint8_t* out = rowOf(result, y);
      std::memcpy(out, in, static_cast<size_t>(width) * bpp);  // keeps the spare byte
      for (int x = 0; x < width; ++x, in += bpp, out += bpp) {
        out[o.r] = source.apply(in[o.r]);
        out[o.g] = source.apply(in[o.g]);
        out[o.b] = source.apply(in[o.b]);
      }
    }
  } else if (src->type == 4 && src->palette) {
    const uint8_t* pal = src->palette;
    for (int y = 0; y < src->height; ++y) {
      const uint8_t* in = rowOf(*src, y);
      uint8_t* out = rowOf(result, y);
      for (int x = 0; x < width; ++x) {
        const uint8_t i = in[x];
        const int r = source.apply(pal[i]), g = source.apply(pal[256 + i]),
                  b = source.apply(pal[512 + i]);
        out[x] = nearest[((r >> 3) << 10) | ((g >> 3) << 5) | (b >> 3)];
      }
    }
  } else {
    // Binary and grey (and a palette-less mapped picture, taken as grey
    // levels 0..255): level -> intensity, noise, intensity -> nearest level.
    uint8_t up[256], down[256];
    if (src->type == 1) {
      up[0] = 0;
      for (int i = 1; i < 256; ++i) up[i] = 255;
      for (int i = 0; i < 256; ++i) down[i] = i >= 128 ? 1 : 0;
    } else {
      // A single-level picture has nowhere to go: it stays level 0.
      const int count = src->type == 2 ? std::clamp(src->colorCount, 1, 256) : 256;
      for (int i = 0; i < 256; ++i) {
        up[i] = count > 1 ? static_cast<uint8_t>(std::min(i, count - 1) * 255 / (count - 1)) : 0;
        down[i] = static_cast<uint8_t>((i * (count - 1) + 127) / 255);
      }
    }
    for (int y = 0; y < src->height; ++y) {
      const uint8_t* in = rowOf(*src, y);
      uint8_t* out = rowOf(result, y);
      for (int x = 0; x < width; ++x) out[x] = down[source.apply(up[in[x]])];
    }
  }
  return deliver(src, dst, result);
}

}  // namespace process
