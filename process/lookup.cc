// Byte look-up over interleaved channels. On processors with the 512-bit
// byte permutes a 256-entry table is four registers, and 64 bytes are looked
// up with two two-register permutes and a blend on the top bit of the index;
// elsewhere a plain unrolled loop does it.
#include "process/lookup.h"

#include "process/operation.h"

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define VIMORA_HAVE_VBMI 1
#endif

namespace process {

namespace {

template <int kPeriod>
void lookupScalar(const uint8_t* s, uint8_t* d, size_t n, const uint8_t* const tables[]) {
  size_t i = 0;
  if constexpr (kPeriod == 1) {
    const uint8_t* t = tables[0];
    for (; i + 8 <= n; i += 8) {
      d[i] = t[s[i]];
      d[i + 1] = t[s[i + 1]];
      d[i + 2] = t[s[i + 2]];
      d[i + 3] = t[s[i + 3]];
      d[i + 4] = t[s[i + 4]];
      d[i + 5] = t[s[i + 5]];
      d[i + 6] = t[s[i + 6]];
      d[i + 7] = t[s[i + 7]];
    }
  } else {
    for (; i + kPeriod <= n; i += kPeriod)
      for (int k = 0; k < kPeriod; ++k) d[i + k] = tables[k][s[i + k]];
  }
  for (int k = 0; i < n; ++i, k = (k + 1) % kPeriod) d[i] = tables[k][s[i]];
}

#ifdef VIMORA_HAVE_VBMI

struct Table512 {
  __m512i q[4];
};

__attribute__((target("avx512f,avx512bw,avx512vbmi"))) inline __m512i lookup64(const Table512& t,
                                                                               __m512i v) {
  const __m512i low = _mm512_permutex2var_epi8(t.q[0], v, t.q[1]);
  const __m512i high = _mm512_permutex2var_epi8(t.q[2], v, t.q[3]);
  return _mm512_mask_blend_epi8(_mm512_movepi8_mask(v), low, high);
}

template <int kPeriod>
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) void lookupVbmi(
    const uint8_t* s, uint8_t* d, size_t n, const uint8_t* const tables[]) {
  Table512 t[kPeriod];
  for (int k = 0; k < kPeriod; ++k)
    for (int q = 0; q < 4; ++q) t[k].q[q] = _mm512_loadu_si512(tables[k] + 64 * q);
  // lanes[p][k]: the lanes of a 64-byte block starting at phase p that hold
  // byte position k of a group.
  __mmask64 lanes[kPeriod][kPeriod] = {};
  for (int p = 0; p < kPeriod; ++p)
    for (int j = 0; j < 64; ++j) lanes[p][(p + j) % kPeriod] |= __mmask64{1} << j;
  size_t i = 0;
  int phase = 0;
  for (; i + 64 <= n; i += 64) {
    const __m512i v = _mm512_loadu_si512(s + i);
    __m512i r = lookup64(t[0], v);
    for (int k = 1; k < kPeriod; ++k)
      r = _mm512_mask_mov_epi8(r, lanes[phase][k], lookup64(t[k], v));
    _mm512_storeu_si512(d + i, r);
    phase = (phase + 64) % kPeriod;
  }
  const uint8_t* rest[4];
  for (int k = 0; k < kPeriod; ++k) rest[k] = tables[(phase + k) % kPeriod];
  lookupScalar<kPeriod>(s + i, d + i, n - i, rest);
}

#endif

template <int kPeriod>
void lookupWith(const uint8_t* s, uint8_t* d, size_t n, const uint8_t* const tables[]) {
#ifdef VIMORA_HAVE_VBMI
  if (wideBytePermutes()) return lookupVbmi<kPeriod>(s, d, n, tables);
#endif
  lookupScalar<kPeriod>(s, d, n, tables);
}

}  // namespace

void lookupBytes(const uint8_t* src, uint8_t* dst, size_t n, const uint8_t* const tables[],
                 int period) {
  switch (period) {
    case 1:
      return lookupWith<1>(src, dst, n, tables);
    case 2:
      return lookupWith<2>(src, dst, n, tables);
    case 3:
      return lookupWith<3>(src, dst, n, tables);
    default:
      return lookupWith<4>(src, dst, n, tables);
  }
}

}  // namespace process
