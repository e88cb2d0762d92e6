#include <vtcore/core/text/swap/sample_convert.h>

#include <vtcore/core/text/swap/detail/swap_kernels.h>

#include <vtcore/core/text/dispatch/data_dispatch.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#define VTCORE_HAVE_X86_KERNELS 1
#endif

namespace {

// ---- One sample ------------------------------------------------------------

template <int Width, bool Little, bool Unsigned>
inline std::int32_t loadInteger(const unsigned char* p) {
  if constexpr (Width == 1) {
    return Unsigned ? static_cast<std::int32_t>(p[0]) - 128 : static_cast<std::int8_t>(p[0]);
  } else {
    std::uint32_t bits = 0;
    for (int i = 0; i < Width; ++i)
      bits |= static_cast<std::uint32_t>(p[Little ? i : Width - 1 - i]) << (8 * i);
    // Sign-extend from the top bit of the sample.
    return static_cast<std::int32_t>(bits << (32 - 8 * Width)) >> (32 - 8 * Width);
  }
}

// The exponent trick of the stored formats (mantissa bits added to 1.0, then
// 1.0 taken away) gives exactly these values: v / 2^(8w-1) for the narrow
// widths, and for 32-bit samples the top 24 bits of v over 2^23.
template <int Width>
inline float integerToFloat(std::int32_t v) {
  if constexpr (Width == 4)
    return static_cast<float>(v >> 8) * 0x1p-23f;
  else
    return static_cast<float>(v) * (1.0f / static_cast<float>(1 << (8 * Width - 1)));
}

// Mantissa shift and clip: the magnitude below 1.0 times 2^31, truncated; 1.0
// or more (and NaN, whose exponent is all ones) clips to 0x7FFFFF00.
inline std::int32_t floatToInteger32(float x) {
  const std::uint32_t f = std::bit_cast<std::uint32_t>(x);
  const int shift = 127 - static_cast<int>((f >> 23) & 0xFF);
  std::uint32_t magnitude;
  if (shift <= 0)
    magnitude = 0x7FFFFF00u;
  else if (shift >= 32)
    magnitude = 0;
  else
    magnitude = ((f << 8) | 0x80000000u) >> shift;
  const auto value = static_cast<std::int32_t>(magnitude);
  return (f & 0x80000000u) ? -value : value;
}

template <int Width, bool Little, bool Unsigned>
inline void storeInteger(unsigned char* p, std::int32_t result32) {
  // Narrower formats keep the top bytes of the 32-bit result.
  std::int32_t v = result32 >> (32 - 8 * Width);
  if constexpr (Unsigned)
    v += 128;
  const auto bits = static_cast<std::uint32_t>(v);
  for (int i = 0; i < Width; ++i)
    p[Little ? i : Width - 1 - i] = static_cast<unsigned char>(bits >> (8 * i));
}

// ---- Bulk loops of the integer formats (single channel, no overlap) --------

#ifdef VTCORE_HAVE_X86_KERNELS
alignas(32) constexpr unsigned char kSwap16[16] = {1, 0, 3,  2,  5,  4,  7,  6,
                                                   9, 8, 11, 10, 13, 12, 15, 14};
alignas(32) constexpr unsigned char kSwap32x2[32] = {3, 2,  1,  0,  7,  6, 5,  4,  11, 10, 9,
                                                     8, 15, 14, 13, 12, 3, 2,  1,  0,  7,  6,
                                                     5, 4,  11, 10, 9,  8, 15, 14, 13, 12};
constexpr unsigned char Z = 0x80; // shuffle index that yields a zero byte
// 3-byte samples into the top three bytes of 32-bit lanes.
alignas(32) constexpr unsigned char kWiden24Little[32] = {Z, 0, 1, 2,  Z,  3, 4, 5, Z,  6, 7,
                                                          8, Z, 9, 10, 11, Z, 0, 1, 2,  Z, 3,
                                                          4, 5, Z, 6,  7,  8, Z, 9, 10, 11};
alignas(32) constexpr unsigned char kWiden24Big[32] = {Z, 2, 1,  0,  Z, 5, 4, 3,  Z,  8, 7,
                                                       6, Z, 11, 10, 9, Z, 2, 1,  0,  Z, 5,
                                                       4, 3, Z,  8,  7, 6, Z, 11, 10, 9};
// The top three bytes of 32-bit lanes, packed.
alignas(32) constexpr unsigned char kNarrow24Little[32] = {
    1, 2, 3, 5, 6, 7, 9, 10, 11, 13, 14, 15, Z, Z, Z, Z,
    1, 2, 3, 5, 6, 7, 9, 10, 11, 13, 14, 15, Z, Z, Z, Z};
alignas(32) constexpr unsigned char kNarrow24Big[32] = {3,  2,  1, 7,  6,  5,  11, 10, 9, 15, 14,
                                                        13, Z,  Z, Z,  Z,  3,  2,  1,  7, 6,  5,
                                                        11, 10, 9, 15, 14, 13, Z,  Z,  Z, Z};

template <int Width, bool Little, bool Unsigned>
__attribute__((target("avx2"))) std::size_t
integersToFloatsAvx2(float* dst, const unsigned char* src, std::size_t count) {
  std::size_t i = 0;
  if constexpr (Width == 1) {
    const __m256 scale = _mm256_set1_ps(1.0f / 128.0f);
    const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
    for (; i + 8 <= count; i += 8) {
      __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + i));
      if constexpr (Unsigned)
        v = _mm_xor_si128(v, bias);
      const __m256 f = _mm256_cvtepi32_ps(_mm256_cvtepi8_epi32(v));
      _mm256_storeu_ps(dst + i, _mm256_mul_ps(f, scale));
    }
  } else if constexpr (Width == 2) {
    const __m256 scale = _mm256_set1_ps(1.0f / 32768.0f);
    const __m128i swap = _mm_load_si128(reinterpret_cast<const __m128i*>(kSwap16));
    for (; i + 8 <= count; i += 8) {
      __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * i));
      if constexpr (!Little)
        v = _mm_shuffle_epi8(v, swap);
      const __m256 f = _mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(v));
      _mm256_storeu_ps(dst + i, _mm256_mul_ps(f, scale));
    }
  } else if constexpr (Width == 3) {
    const __m256 scale = _mm256_set1_ps(0x1p-23f);
    const __m256i widen =
        _mm256_load_si256(reinterpret_cast<const __m256i*>(Little ? kWiden24Little : kWiden24Big));
    // Each half reads 16 bytes for 12: keep two samples of slack at the end.
    for (; i + 10 <= count; i += 8) {
      const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 3 * i));
      const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 3 * i + 12));
      __m256i v = _mm256_set_m128i(high, low);
      v = _mm256_srai_epi32(_mm256_shuffle_epi8(v, widen), 8);
      _mm256_storeu_ps(dst + i, _mm256_mul_ps(_mm256_cvtepi32_ps(v), scale));
    }
  } else {
    const __m256 scale = _mm256_set1_ps(0x1p-23f);
    const __m256i swap = _mm256_load_si256(reinterpret_cast<const __m256i*>(kSwap32x2));
    for (; i + 8 <= count; i += 8) {
      __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 4 * i));
      if constexpr (!Little)
        v = _mm256_shuffle_epi8(v, swap);
      v = _mm256_srai_epi32(v, 8);
      _mm256_storeu_ps(dst + i, _mm256_mul_ps(_mm256_cvtepi32_ps(v), scale));
    }
  }
  return i;
}

// Eight floats to their 32-bit results, as floatToInteger32 computes them.
__attribute__((target("avx2"))) inline __m256i floatsToIntegers32Avx2(__m256 x) {
  const __m256 magnitude = _mm256_and_ps(x, _mm256_castsi256_ps(_mm256_set1_epi32(0x7FFFFFFF)));
  // Not-less-than is also true for NaN, which clips like the scalar rule.
  const __m256i clip =
      _mm256_castps_si256(_mm256_cmp_ps(magnitude, _mm256_set1_ps(1.0f), _CMP_NLT_UQ));
  __m256i m = _mm256_cvttps_epi32(_mm256_mul_ps(magnitude, _mm256_set1_ps(2147483648.0f)));
  m = _mm256_blendv_epi8(m, _mm256_set1_epi32(0x7FFFFF00), clip);
  const __m256i sign = _mm256_srai_epi32(_mm256_castps_si256(x), 31);
  return _mm256_sub_epi32(_mm256_xor_si256(m, sign), sign);
}

template <int Width, bool Little, bool Unsigned>
__attribute__((target("avx2"))) std::size_t
floatsToIntegersAvx2(unsigned char* dst, const float* src, std::size_t count) {
  std::size_t i = 0;
  if constexpr (Width == 1) {
    const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
    for (; i + 8 <= count; i += 8) {
      const __m256i r = _mm256_srai_epi32(floatsToIntegers32Avx2(_mm256_loadu_ps(src + i)), 24);
      const __m128i words =
          _mm_packs_epi32(_mm256_castsi256_si128(r), _mm256_extracti128_si256(r, 1));
      __m128i bytes = _mm_packs_epi16(words, words);
      if constexpr (Unsigned)
        bytes = _mm_xor_si128(bytes, bias);
      _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + i), bytes);
    }
  } else if constexpr (Width == 2) {
    const __m128i swap = _mm_load_si128(reinterpret_cast<const __m128i*>(kSwap16));
    const __m256i swap2 = _mm256_broadcastsi128_si256(swap);
    for (; i + 16 <= count; i += 16) {
      const __m256i a = _mm256_srai_epi32(floatsToIntegers32Avx2(_mm256_loadu_ps(src + i)), 16);
      const __m256i b = _mm256_srai_epi32(floatsToIntegers32Avx2(_mm256_loadu_ps(src + i + 8)), 16);
      // The pack works lane by lane; the permute puts the four quarters in order.
      __m256i words = _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
      if constexpr (!Little)
        words = _mm256_shuffle_epi8(words, swap2);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * i), words);
    }
    for (; i + 8 <= count; i += 8) {
      const __m256i r = _mm256_srai_epi32(floatsToIntegers32Avx2(_mm256_loadu_ps(src + i)), 16);
      __m128i words = _mm_packs_epi32(_mm256_castsi256_si128(r), _mm256_extracti128_si256(r, 1));
      if constexpr (!Little)
        words = _mm_shuffle_epi8(words, swap);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * i), words);
    }
  } else if constexpr (Width == 3) {
    const __m256i narrow = _mm256_load_si256(
        reinterpret_cast<const __m256i*>(Little ? kNarrow24Little : kNarrow24Big));
    // Each half writes 16 bytes for 12; the next step (or the scalar tail)
    // overwrites the extra bytes, so keep two samples of slack at the end.
    for (; i + 10 <= count; i += 8) {
      const __m256i r =
          _mm256_shuffle_epi8(floatsToIntegers32Avx2(_mm256_loadu_ps(src + i)), narrow);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 3 * i), _mm256_castsi256_si128(r));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 3 * i + 12),
                       _mm256_extracti128_si256(r, 1));
    }
  } else {
    const __m256i swap = _mm256_load_si256(reinterpret_cast<const __m256i*>(kSwap32x2));
    for (; i + 8 <= count; i += 8) {
      __m256i r = floatsToIntegers32Avx2(_mm256_loadu_ps(src + i));
      if constexpr (!Little)
        r = _mm256_shuffle_epi8(r, swap);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 4 * i), r);
    }
  }
  return i;
}

// The same loops on 512-bit registers, sixteen samples a step. The 3-byte
// formats go through byte permutes across the register and masked loads and
// stores of exactly 48 bytes, so they need no slack at the end.
// GCC 12 takes the deliberately undefined sources inside some AVX-512
// intrinsics for uninitialised variables.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#define VTCORE_AVX512_TARGET __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx2")))

VTCORE_AVX512_TARGET inline __m512i broadcast256(const unsigned char* bytes) {
  const __m256i half = _mm256_load_si256(reinterpret_cast<const __m256i*>(bytes));
  return _mm512_inserti64x4(_mm512_zextsi256_si512(half), half, 1);
}

// Byte k of sixteen 32-bit lanes from sixteen packed 3-byte samples: the
// sample in the top three bytes (the low byte is shifted out afterwards).
struct Permute24 {
  unsigned char index[64];
};

constexpr Permute24 makeWiden24(bool little) {
  Permute24 m{};
  for (int k = 0; k < 16; ++k) {
    m.index[4 * k] = 0;
    for (int j = 0; j < 3; ++j)
      m.index[4 * k + 1 + j] = static_cast<unsigned char>(3 * k + (little ? j : 2 - j));
  }
  return m;
}

constexpr Permute24 makeNarrow24(bool little) {
  Permute24 m{};
  for (int k = 0; k < 16; ++k)
    for (int j = 0; j < 3; ++j)
      m.index[3 * k + j] = static_cast<unsigned char>(4 * k + (little ? 1 + j : 3 - j));
  for (int i = 48; i < 64; ++i)
    m.index[i] = 0;
  return m;
}

constexpr Permute24 kWiden24Little512 = makeWiden24(true), kWiden24Big512 = makeWiden24(false);
constexpr Permute24 kNarrow24Little512 = makeNarrow24(true), kNarrow24Big512 = makeNarrow24(false);
constexpr __mmask64 k48Bytes = (std::uint64_t{1} << 48) - 1;

template <int Width, bool Little, bool Unsigned>
VTCORE_AVX512_TARGET std::size_t integersToFloatsAvx512(float* dst, const unsigned char* src,
                                                        std::size_t count) {
  std::size_t i = 0;
  if constexpr (Width == 1) {
    const __m512 scale = _mm512_set1_ps(1.0f / 128.0f);
    const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
    for (; i + 16 <= count; i += 16) {
      __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
      if constexpr (Unsigned)
        v = _mm_xor_si128(v, bias);
      const __m512 f = _mm512_cvtepi32_ps(_mm512_cvtepi8_epi32(v));
      _mm512_storeu_ps(dst + i, _mm512_mul_ps(f, scale));
    }
  } else if constexpr (Width == 2) {
    const __m512 scale = _mm512_set1_ps(1.0f / 32768.0f);
    const __m256i swap2 =
        _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(kSwap16)));
    for (; i + 16 <= count; i += 16) {
      __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * i));
      if constexpr (!Little)
        v = _mm256_shuffle_epi8(v, swap2);
      const __m512 f = _mm512_cvtepi32_ps(_mm512_cvtepi16_epi32(v));
      _mm512_storeu_ps(dst + i, _mm512_mul_ps(f, scale));
    }
  } else if constexpr (Width == 3) {
    const __m512 scale = _mm512_set1_ps(0x1p-23f);
    const __m512i widen = _mm512_loadu_si512((Little ? kWiden24Little512 : kWiden24Big512).index);
    for (; i + 16 <= count; i += 16) {
      const __m512i packed = _mm512_maskz_loadu_epi8(k48Bytes, src + 3 * i);
      const __m512i v = _mm512_srai_epi32(_mm512_permutexvar_epi8(widen, packed), 8);
      _mm512_storeu_ps(dst + i, _mm512_mul_ps(_mm512_cvtepi32_ps(v), scale));
    }
  } else {
    const __m512 scale = _mm512_set1_ps(0x1p-23f);
    const __m512i swap = broadcast256(kSwap32x2);
    for (; i + 16 <= count; i += 16) {
      __m512i v = _mm512_loadu_si512(src + 4 * i);
      if constexpr (!Little)
        v = _mm512_shuffle_epi8(v, swap);
      v = _mm512_srai_epi32(v, 8);
      _mm512_storeu_ps(dst + i, _mm512_mul_ps(_mm512_cvtepi32_ps(v), scale));
    }
  }
  return i;
}

// Sixteen floats to their 32-bit results, as floatToInteger32 computes them.
VTCORE_AVX512_TARGET inline __m512i floatsToIntegers32Avx512(__m512 x) {
  const __m512i bits = _mm512_castps_si512(x);
  const __m512 magnitude =
      _mm512_castsi512_ps(_mm512_and_si512(bits, _mm512_set1_epi32(0x7FFFFFFF)));
  // Not-less-than is also true for NaN, which clips like the scalar rule.
  const __mmask16 clip = _mm512_cmp_ps_mask(magnitude, _mm512_set1_ps(1.0f), _CMP_NLT_UQ);
  __m512i m = _mm512_cvttps_epi32(_mm512_mul_ps(magnitude, _mm512_set1_ps(2147483648.0f)));
  m = _mm512_mask_mov_epi32(m, clip, _mm512_set1_epi32(0x7FFFFF00));
  const __m512i sign = _mm512_srai_epi32(bits, 31);
  return _mm512_sub_epi32(_mm512_xor_si512(m, sign), sign);
}

template <int Width, bool Little, bool Unsigned>
VTCORE_AVX512_TARGET std::size_t floatsToIntegersAvx512(unsigned char* dst, const float* src,
                                                        std::size_t count) {
  std::size_t i = 0;
  if constexpr (Width == 1) {
    const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
    for (; i + 16 <= count; i += 16) {
      const __m512i r = _mm512_srai_epi32(floatsToIntegers32Avx512(_mm512_loadu_ps(src + i)), 24);
      __m128i bytes = _mm512_cvtepi32_epi8(r);
      if constexpr (Unsigned)
        bytes = _mm_xor_si128(bytes, bias);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), bytes);
    }
  } else if constexpr (Width == 2) {
    const __m256i swap =
        _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(kSwap16)));
    for (; i + 16 <= count; i += 16) {
      const __m512i r = _mm512_srai_epi32(floatsToIntegers32Avx512(_mm512_loadu_ps(src + i)), 16);
      __m256i words = _mm512_cvtepi32_epi16(r);
      if constexpr (!Little)
        words = _mm256_shuffle_epi8(words, swap);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * i), words);
    }
  } else if constexpr (Width == 3) {
    const __m512i narrow =
        _mm512_loadu_si512((Little ? kNarrow24Little512 : kNarrow24Big512).index);
    for (; i + 16 <= count; i += 16) {
      const __m512i r = floatsToIntegers32Avx512(_mm512_loadu_ps(src + i));
      _mm512_mask_storeu_epi8(dst + 3 * i, k48Bytes, _mm512_permutexvar_epi8(narrow, r));
    }
  } else {
    const __m512i swap = broadcast256(kSwap32x2);
    for (; i + 16 <= count; i += 16) {
      __m512i r = floatsToIntegers32Avx512(_mm512_loadu_ps(src + i));
      if constexpr (!Little)
        r = _mm512_shuffle_epi8(r, swap);
      _mm512_storeu_si512(dst + 4 * i, r);
    }
  }
  return i;
}

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

namespace legacy {
#define VTCORE_KERNEL128_TARGET __attribute__((target("ssse3")))
#include <vtcore/core/text/swap/detail/convert_kernels128.inc>
#undef VTCORE_KERNEL128_TARGET
} // namespace legacy

namespace vex {
#define VTCORE_KERNEL128_TARGET __attribute__((target("avx")))
#include <vtcore/core/text/swap/detail/convert_kernels128.inc>
#undef VTCORE_KERNEL128_TARGET
} // namespace vex
#endif

vtcore::DataCodePath codePath() {
#ifdef VTCORE_HAVE_X86_KERNELS
  return vtcore::dataCodePath();
#else
  return vtcore::DataCodePath::Portable;
#endif
}

// ---- Formats ---------------------------------------------------------------

template <int Width, bool Little, bool Unsigned = false>
struct IntegerFormat {
  static constexpr int size = Width;
  static float toFloat(const unsigned char* p) {
    return integerToFloat<Width>(loadInteger<Width, Little, Unsigned>(p));
  }
  static void fromFloat(unsigned char* p, float x) {
    storeInteger<Width, Little, Unsigned>(p, floatToInteger32(x));
  }
  static std::size_t toFloatBulk(float* dst, const unsigned char* src, std::size_t count) {
#ifdef VTCORE_HAVE_X86_KERNELS
    switch (codePath()) {
    case vtcore::DataCodePath::AVX512:
      return integersToFloatsAvx512<Width, Little, Unsigned>(dst, src, count);
    case vtcore::DataCodePath::AVX2:
      return integersToFloatsAvx2<Width, Little, Unsigned>(dst, src, count);
    case vtcore::DataCodePath::AVX:
      return vex::integersToFloats<Width, Little, Unsigned>(dst, src, count);
    case vtcore::DataCodePath::SSSE3:
      return legacy::integersToFloats<Width, Little, Unsigned>(dst, src, count);
    case vtcore::DataCodePath::Portable:
      break;
    }
#endif
    (void)dst, (void)src, (void)count;
    return 0;
  }
  static std::size_t fromFloatBulk(unsigned char* dst, const float* src, std::size_t count) {
#ifdef VTCORE_HAVE_X86_KERNELS
    switch (codePath()) {
    case vtcore::DataCodePath::AVX512:
      return floatsToIntegersAvx512<Width, Little, Unsigned>(dst, src, count);
    case vtcore::DataCodePath::AVX2:
      return floatsToIntegersAvx2<Width, Little, Unsigned>(dst, src, count);
    case vtcore::DataCodePath::AVX:
      return vex::floatsToIntegers<Width, Little, Unsigned>(dst, src, count);
    case vtcore::DataCodePath::SSSE3:
      return legacy::floatsToIntegers<Width, Little, Unsigned>(dst, src, count);
    case vtcore::DataCodePath::Portable:
      break;
    }
#endif
    (void)dst, (void)src, (void)count;
    return 0;
  }
};

template <bool Little>
struct Float32Format {
  static constexpr int size = 4;
  static float toFloat(const unsigned char* p) {
    std::uint32_t bits;
    std::memcpy(&bits, p, 4);
    return std::bit_cast<float>(Little ? bits : __builtin_bswap32(bits));
  }
  static void fromFloat(unsigned char* p, float x) {
    const auto bits = std::bit_cast<std::uint32_t>(x);
    const std::uint32_t stored = Little ? bits : __builtin_bswap32(bits);
    std::memcpy(p, &stored, 4);
  }
  static std::size_t toFloatBulk(float* dst, const unsigned char* src, std::size_t count) {
    if constexpr (Little)
      std::memcpy(dst, src, count * 4);
    else
      vtcore::detail::reverseValues(dst, src, count, 4);
    return count;
  }
  static std::size_t fromFloatBulk(unsigned char* dst, const float* src, std::size_t count) {
    return toFloatBulk(reinterpret_cast<float*>(dst), reinterpret_cast<const unsigned char*>(src),
                       count);
  }
};

struct Float64BigFormat {
  static constexpr int size = 8;
  static float toFloat(const unsigned char* p) {
    std::uint64_t bits;
    std::memcpy(&bits, p, 8);
    return static_cast<float>(std::bit_cast<double>(__builtin_bswap64(bits)));
  }
  static void fromFloat(unsigned char* p, float x) {
    const std::uint64_t bits =
        __builtin_bswap64(std::bit_cast<std::uint64_t>(static_cast<double>(x)));
    std::memcpy(p, &bits, 8);
  }
  static std::size_t toFloatBulk(float*, const unsigned char*, std::size_t) { return 0; }
  static std::size_t fromFloatBulk(unsigned char*, const float*, std::size_t) { return 0; }
};

// ---- Converters ------------------------------------------------------------

// The plain loops assume non-overlapping buffers; the entry points below
// route every other case through a small staging block.
template <class Format>
void toFloats(float* dst, const unsigned char* src, std::size_t count, float* second) {
  constexpr int size = Format::size;
  if (second == nullptr) {
    std::size_t i = Format::toFloatBulk(dst, src, count);
    for (; i < count; ++i)
      dst[i] = Format::toFloat(src + i * size);
    return;
  }
  for (std::size_t i = 0; i < count; ++i) {
    dst[i] = Format::toFloat(src + 2 * i * size);
    second[i] = Format::toFloat(src + (2 * i + 1) * size);
  }
}

template <class Format>
void fromFloats(unsigned char* dst, const float* src, std::size_t count, const float* second) {
  constexpr int size = Format::size;
  if (second == nullptr) {
    std::size_t i = Format::fromFloatBulk(dst, src, count);
    for (; i < count; ++i)
      Format::fromFloat(dst + i * size, src[i]);
    return;
  }
  for (std::size_t i = 0; i < count; ++i) {
    Format::fromFloat(dst + 2 * i * size, src[i]);
    Format::fromFloat(dst + (2 * i + 1) * size, second[i]);
  }
}

bool overlaps(const void* a, std::size_t aBytes, const void* b, std::size_t bBytes) {
  if (a == nullptr || b == nullptr)
    return false;
  const auto x = reinterpret_cast<std::uintptr_t>(a);
  const auto y = reinterpret_cast<std::uintptr_t>(b);
  return x < y + bBytes && y < x + aBytes;
}

constexpr std::size_t kStagingSamples = 256;

// Visits [0, count) in blocks, from the last block to the first when
// `backward`. In place, the side with the wider samples must be written from
// the end, so that no sample is overwritten before it has been read.
template <class Visit>
void forEachBlock(std::size_t count, bool backward, Visit visit) {
  const std::size_t blocks = (count + kStagingSamples - 1) / kStagingSamples;
  for (std::size_t k = 0; k < blocks; ++k) {
    const std::size_t block = backward ? blocks - 1 - k : k;
    const std::size_t start = block * kStagingSamples;
    visit(start, std::min(kStagingSamples, count - start));
  }
}

template <class Format>
void convertToFloat(void* dst, const void* src, std::size_t count, void* secondChannel) {
  if (dst == nullptr || src == nullptr || count == 0)
    return;
  auto* out = static_cast<float*>(dst);
  auto* in = static_cast<const unsigned char*>(src);
  auto* second = static_cast<float*>(secondChannel);
  const std::size_t stride = Format::size * (second ? 2 : 1);
  if (!overlaps(in, count * stride, out, count * 4) &&
      !overlaps(in, count * stride, second, count * 4))
    return toFloats<Format>(out, in, count, second);
  alignas(32) unsigned char staging[kStagingSamples * 16];
  forEachBlock(count, stride <= 4, [&](std::size_t start, std::size_t n) {
    std::memcpy(staging, in + start * stride, n * stride);
    toFloats<Format>(out + start, staging, n, second ? second + start : nullptr);
  });
}

template <class Format>
void convertFromFloat(void* dst, const void* src, std::size_t count, void* secondChannel) {
  if (dst == nullptr || src == nullptr || count == 0)
    return;
  auto* out = static_cast<unsigned char*>(dst);
  auto* in = static_cast<const float*>(src);
  auto* second = static_cast<const float*>(secondChannel);
  const std::size_t stride = Format::size * (second ? 2 : 1);
  if (!overlaps(out, count * stride, in, count * 4) &&
      !overlaps(out, count * stride, second, count * 4))
    return fromFloats<Format>(out, in, count, second);
  alignas(32) float staging[kStagingSamples];
  alignas(32) float stagingSecond[kStagingSamples];
  forEachBlock(count, stride > 4, [&](std::size_t start, std::size_t n) {
    std::memcpy(staging, in + start, n * 4);
    if (second)
      std::memcpy(stagingSecond, second + start, n * 4);
    fromFloats<Format>(out + start * stride, staging, n, second ? stagingSecond : nullptr);
  });
}

void convertNothing(void*, const void*, std::size_t, void*) {}

// One selection table for both directions: Direction::of<Format>() is the
// converter of that format in that direction.
struct ToFloat {
  template <typename Format>
  static constexpr KWSampleConverter of() {
    return convertToFloat<Format>;
  }
};
struct FromFloat {
  template <typename Format>
  static constexpr KWSampleConverter of() {
    return convertFromFloat<Format>;
  }
};

template <typename Direction>
KWSampleConverter selectConverter(int format, int littleEndian) {
  if (littleEndian == 0) {
    switch (format) {
    case -8:
      return Direction::template of<Float64BigFormat>();
    case -4:
      return Direction::template of<Float32Format<false>>();
    case 1:
      return Direction::template of<IntegerFormat<1, false>>();
    case 2:
      return Direction::template of<IntegerFormat<2, false>>();
    case 3:
      return Direction::template of<IntegerFormat<3, false>>();
    case 4:
      return Direction::template of<IntegerFormat<4, false>>();
    default:
      return convertNothing;
    }
  }
  switch (format) {
  case -4:
    return Direction::template of<Float32Format<true>>();
  case 1:
    return Direction::template of<IntegerFormat<1, true, true>>();
  case 2:
    return Direction::template of<IntegerFormat<2, true>>();
  case 3:
    return Direction::template of<IntegerFormat<3, true>>();
  case 4:
    return Direction::template of<IntegerFormat<4, true>>();
  default:
    return convertNothing;
  }
}

} // namespace

KWSampleConverter GetConvertNToFloat(int format, int littleEndian) {
  return selectConverter<ToFloat>(format, littleEndian);
}

KWSampleConverter GetConvertFloatToN(int format, int littleEndian) {
  return selectConverter<FromFloat>(format, littleEndian);
}
