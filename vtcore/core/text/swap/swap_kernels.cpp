#include <vtcore/core/text/swap/detail/swap_kernels.h>

#include <vtcore/core/text/dispatch/data_dispatch.h>

#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#define VTCORE_HAVE_X86_KERNELS 1
#endif

namespace vtcore::detail {
namespace {

template <int Width>
inline void reverseOne(unsigned char* dst, const unsigned char* src) noexcept {
  if constexpr (Width == 2) {
    std::uint16_t v;
    std::memcpy(&v, src, 2);
    v = __builtin_bswap16(v);
    std::memcpy(dst, &v, 2);
  } else if constexpr (Width == 4) {
    std::uint32_t v;
    std::memcpy(&v, src, 4);
    v = __builtin_bswap32(v);
    std::memcpy(dst, &v, 4);
  } else {
    std::uint64_t v;
    std::memcpy(&v, src, 8);
    v = __builtin_bswap64(v);
    std::memcpy(dst, &v, 8);
  }
}

template <int Width>
void reversePortable(unsigned char* dst, const unsigned char* src, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i)
    reverseOne<Width>(dst + i * Width, src + i * Width);
}

#ifdef VTCORE_HAVE_X86_KERNELS
// Shuffle masks reversing each value within a 16-byte lane.
alignas(32) constexpr unsigned char kReverse2[32] = {1,  0,  3,  2,  5,  4,  7,  6,  9,  8, 11,
                                                     10, 13, 12, 15, 14, 1,  0,  3,  2,  5, 4,
                                                     7,  6,  9,  8,  11, 10, 13, 12, 15, 14};
alignas(32) constexpr unsigned char kReverse4[32] = {3, 2,  1,  0,  7,  6, 5,  4,  11, 10, 9,
                                                     8, 15, 14, 13, 12, 3, 2,  1,  0,  7,  6,
                                                     5, 4,  11, 10, 9,  8, 15, 14, 13, 12};
alignas(32) constexpr unsigned char kReverse8[32] = {7,  6,  5,  4,  3,  2,  1,  0,  15, 14, 13,
                                                     12, 11, 10, 9,  8,  7,  6,  5,  4,  3,  2,
                                                     1,  0,  15, 14, 13, 12, 11, 10, 9,  8};

template <int Width>
__attribute__((target("avx2"))) void reverseAvx2(unsigned char* dst, const unsigned char* src,
                                                 std::size_t count) noexcept {
  const unsigned char* maskBytes = Width == 2 ? kReverse2 : Width == 4 ? kReverse4 : kReverse8;
  const __m256i mask = _mm256_load_si256(reinterpret_cast<const __m256i*>(maskBytes));
  const std::size_t bytes = count * Width;
  std::size_t i = 0;
  for (; i + 128 <= bytes; i += 128) {
    __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
    __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i + 32));
    __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i + 64));
    __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i + 96));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), _mm256_shuffle_epi8(a, mask));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i + 32), _mm256_shuffle_epi8(b, mask));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i + 64), _mm256_shuffle_epi8(c, mask));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i + 96), _mm256_shuffle_epi8(d, mask));
  }
  for (; i + 32 <= bytes; i += 32) {
    __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), _mm256_shuffle_epi8(a, mask));
  }
  for (; i < bytes; i += Width)
    reverseOne<Width>(dst + i, src + i);
}

// 3-byte samples straddle the 16-byte lanes, so each 48-byte block (16
// samples) is rebuilt from its three 16-byte pieces: output piece r takes its
// bytes from input piece s through mask kSwap24[r][s] (0x80 = none). Two
// blocks travel side by side in the two lanes of a 256-bit register.
struct Swap24Masks {
  unsigned char mask[3][3][16];
};

constexpr Swap24Masks makeSwap24Masks() {
  Swap24Masks m{};
  for (int r = 0; r < 3; ++r)
    for (int s = 0; s < 3; ++s)
      for (int j = 0; j < 16; ++j) {
        const int out = 16 * r + j;
        const int in = 3 * (out / 3) + (2 - out % 3);
        m.mask[r][s][j] = in / 16 == s ? static_cast<unsigned char>(in % 16) : 0x80;
      }
  return m;
}

constexpr Swap24Masks kSwap24 = makeSwap24Masks();

__attribute__((target("avx2"))) inline __m256i swap24Mask(int r, int s) {
  const __m128i half = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kSwap24.mask[r][s]));
  return _mm256_broadcastsi128_si256(half);
}

// Piece q of this block in the low lane, of the next block in the high lane.
__attribute__((target("avx2"))) inline __m256i loadPieces(const unsigned char* q) {
  return _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(q))),
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(q + 48)), 1);
}

__attribute__((target("avx2"))) inline void storePieces(unsigned char* q, __m256i v) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(q), _mm256_castsi256_si128(v));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(q + 48), _mm256_extracti128_si256(v, 1));
}

__attribute__((target("avx2"))) void reverse24Avx2(unsigned char* p, std::size_t count) noexcept {
  const __m256i m00 = swap24Mask(0, 0), m01 = swap24Mask(0, 1), m10 = swap24Mask(1, 0),
                m11 = swap24Mask(1, 1), m12 = swap24Mask(1, 2), m21 = swap24Mask(2, 1),
                m22 = swap24Mask(2, 2);
  std::size_t i = 0;
  for (; i + 32 <= count; i += 32, p += 96) {
    const __m256i a = loadPieces(p), b = loadPieces(p + 16), c = loadPieces(p + 32);
    storePieces(p, _mm256_or_si256(_mm256_shuffle_epi8(a, m00), _mm256_shuffle_epi8(b, m01)));
    storePieces(p + 16, _mm256_or_si256(_mm256_or_si256(_mm256_shuffle_epi8(a, m10),
                                                        _mm256_shuffle_epi8(b, m11)),
                                        _mm256_shuffle_epi8(c, m12)));
    storePieces(p + 32, _mm256_or_si256(_mm256_shuffle_epi8(b, m21), _mm256_shuffle_epi8(c, m22)));
  }
  for (; i < count; ++i, p += 3) {
    const unsigned char first = p[0];
    p[0] = p[2];
    p[2] = first;
  }
}

__attribute__((target("avx2"))) void flipAvx2(unsigned char* p, std::size_t count) noexcept {
  const __m256i bit = _mm256_set1_epi8(static_cast<char>(0x80));
  std::size_t i = 0;
  for (; i + 32 <= count; i += 32) {
    __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + i));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p + i), _mm256_xor_si256(a, bit));
  }
  for (; i < count; ++i)
    p[i] ^= 0x80;
}

// GCC 12 takes the deliberately undefined sources inside some AVX-512
// intrinsics for uninitialised variables.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#define VTCORE_AVX512_TARGET __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx2")))

VTCORE_AVX512_TARGET inline __m512i reverseMask512(int width) {
  const unsigned char* maskBytes = width == 2 ? kReverse2 : width == 4 ? kReverse4 : kReverse8;
  const __m256i half = _mm256_load_si256(reinterpret_cast<const __m256i*>(maskBytes));
  return _mm512_inserti64x4(_mm512_zextsi256_si512(half), half, 1);
}

// The tail, shorter than a register, goes through masked loads and stores,
// which neither read nor write the bytes outside the mask.
template <int Width>
VTCORE_AVX512_TARGET void reverseAvx512(unsigned char* dst, const unsigned char* src,
                                        std::size_t count) noexcept {
  const __m512i mask = reverseMask512(Width);
  const std::size_t bytes = count * Width;
  std::size_t i = 0;
  // Each store follows its own load: in place, that is the order in which
  // the processor streams the block fastest.
  for (; i + 256 <= bytes; i += 256)
    for (std::size_t k = 0; k < 256; k += 64)
      _mm512_storeu_si512(dst + i + k, _mm512_shuffle_epi8(_mm512_loadu_si512(src + i + k), mask));
  for (; i + 64 <= bytes; i += 64)
    _mm512_storeu_si512(dst + i, _mm512_shuffle_epi8(_mm512_loadu_si512(src + i), mask));
  if (i < bytes) {
    const __mmask64 tail = (std::uint64_t{1} << (bytes - i)) - 1;
    const __m512i a = _mm512_maskz_loadu_epi8(tail, src + i);
    _mm512_mask_storeu_epi8(dst + i, tail, _mm512_shuffle_epi8(a, mask));
  }
}

// Byte permutes across two registers: output byte j of a 64-byte block takes
// input byte 3 * (j / 3) + 2 - j % 3, counted from the block's first window.
struct Swap24Permutes {
  unsigned char index[3][64];
};

constexpr Swap24Permutes makeSwap24Permutes() {
  // Output block r reads the 128 bytes of its two windows, which start at
  // these offsets of the 192-byte step.
  constexpr int windowStart[3] = {0, 32, 64};
  Swap24Permutes m{};
  for (int r = 0; r < 3; ++r)
    for (int j = 0; j < 64; ++j) {
      const int out = 64 * r + j;
      const int in = 3 * (out / 3) + (2 - out % 3);
      m.index[r][j] = static_cast<unsigned char>(in - windowStart[r]);
    }
  return m;
}

constexpr Swap24Permutes kSwap24Permutes = makeSwap24Permutes();

// 64 samples (192 bytes) a step; all loads come before the stores, as the
// swap is in place.
VTCORE_AVX512_TARGET void reverse24Avx512(unsigned char* p, std::size_t count) noexcept {
  const __m512i i0 = _mm512_loadu_si512(kSwap24Permutes.index[0]);
  const __m512i i1 = _mm512_loadu_si512(kSwap24Permutes.index[1]);
  const __m512i i2 = _mm512_loadu_si512(kSwap24Permutes.index[2]);
  std::size_t i = 0;
  for (; i + 64 <= count; i += 64, p += 192) {
    const __m512i a = _mm512_loadu_si512(p);
    const __m512i b = _mm512_loadu_si512(p + 64);
    const __m512i c = _mm512_loadu_si512(p + 128);
    const __m512i m1 = _mm512_loadu_si512(p + 32);
    const __m512i m2 = _mm512_loadu_si512(p + 96);
    _mm512_storeu_si512(p, _mm512_permutex2var_epi8(a, i0, b));
    _mm512_storeu_si512(p + 64, _mm512_permutex2var_epi8(m1, i1, m2));
    _mm512_storeu_si512(p + 128, _mm512_permutex2var_epi8(b, i2, c));
  }
  reverse24Avx2(p, count - i);
}

VTCORE_AVX512_TARGET void flipAvx512(unsigned char* p, std::size_t count) noexcept {
  const __m512i bit = _mm512_set1_epi8(static_cast<char>(0x80));
  std::size_t i = 0;
  for (; i + 64 <= count; i += 64)
    _mm512_storeu_si512(p + i, _mm512_xor_si512(_mm512_loadu_si512(p + i), bit));
  if (i < count) {
    const __mmask64 tail = (std::uint64_t{1} << (count - i)) - 1;
    _mm512_mask_storeu_epi8(p + i, tail,
                            _mm512_xor_si512(_mm512_maskz_loadu_epi8(tail, p + i), bit));
  }
}

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

namespace legacy {
#define VTCORE_KERNEL128_TARGET __attribute__((target("ssse3")))
#include <vtcore/core/text/swap/detail/swap_kernels128.inc>
#undef VTCORE_KERNEL128_TARGET
} // namespace legacy

namespace vex {
#define VTCORE_KERNEL128_TARGET __attribute__((target("avx")))
#include <vtcore/core/text/swap/detail/swap_kernels128.inc>
#undef VTCORE_KERNEL128_TARGET
} // namespace vex
#endif

bool useAvx512() noexcept {
#ifdef VTCORE_HAVE_X86_KERNELS
  return dataCodePath() == DataCodePath::AVX512;
#else
  return false;
#endif
}

bool useAvx2() noexcept {
#ifdef VTCORE_HAVE_X86_KERNELS
  return dataCodePath() == DataCodePath::AVX2;
#else
  return false;
#endif
}

bool useSsse3() noexcept {
#ifdef VTCORE_HAVE_X86_KERNELS
  return dataCodePath() == DataCodePath::SSSE3;
#else
  return false;
#endif
}

bool useAvx() noexcept {
#ifdef VTCORE_HAVE_X86_KERNELS
  return dataCodePath() == DataCodePath::AVX;
#else
  return false;
#endif
}

template <int Width>
void reverseDispatch(unsigned char* dst, const unsigned char* src, std::size_t count) noexcept {
#ifdef VTCORE_HAVE_X86_KERNELS
  if (useAvx512())
    return reverseAvx512<Width>(dst, src, count);
  if (useAvx2())
    return reverseAvx2<Width>(dst, src, count);
  if (useAvx())
    return vex::reverse<Width>(dst, src, count);
  if (useSsse3())
    return legacy::reverse<Width>(dst, src, count);
#endif
  reversePortable<Width>(dst, src, count);
}

} // namespace

void reverseValues(void* dst, const void* src, std::size_t count, int width) noexcept {
  auto* d = static_cast<unsigned char*>(dst);
  auto* s = static_cast<const unsigned char*>(src);
  switch (width) {
  case 2:
    return reverseDispatch<2>(d, s, count);
  case 4:
    return reverseDispatch<4>(d, s, count);
  case 8:
    return reverseDispatch<8>(d, s, count);
  default:
    return;
  }
}

void reverse24(void* samples, std::size_t count) noexcept {
  auto* p = static_cast<unsigned char*>(samples);
#ifdef VTCORE_HAVE_X86_KERNELS
  if (useAvx512())
    return reverse24Avx512(p, count);
  if (useAvx2())
    return reverse24Avx2(p, count);
  if (useAvx())
    return vex::reverse24(p, count);
  if (useSsse3())
    return legacy::reverse24(p, count);
#endif
  // Unrolled by four samples: the 3-byte stride defeats the byte shuffles of
  // the other widths, and the loop stays short enough to be memory-bound.
  std::size_t i = 0;
  for (; i + 4 <= count; i += 4, p += 12) {
    for (int k = 0; k < 4; ++k) {
      unsigned char first = p[3 * k];
      p[3 * k] = p[3 * k + 2];
      p[3 * k + 2] = first;
    }
  }
  for (; i < count; ++i, p += 3) {
    unsigned char first = p[0];
    p[0] = p[2];
    p[2] = first;
  }
}

void flipSignBit8(void* bytes, std::size_t count) noexcept {
  auto* p = static_cast<unsigned char*>(bytes);
#ifdef VTCORE_HAVE_X86_KERNELS
  if (useAvx512())
    return flipAvx512(p, count);
  if (useAvx2())
    return flipAvx2(p, count);
  if (useAvx())
    return vex::flip(p, count);
  if (useSsse3())
    return legacy::flip(p, count);
#endif
  std::size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    std::uint64_t v;
    std::memcpy(&v, p + i, 8);
    v ^= 0x8080808080808080ull;
    std::memcpy(p + i, &v, 8);
  }
  for (; i < count; ++i)
    p[i] ^= 0x80;
}

} // namespace vtcore::detail
