#include "swap_kernels.h"

#include <vtcore/core/text/data_dispatch.h>

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
#endif

bool useAvx2() noexcept {
#ifdef VTCORE_HAVE_X86_KERNELS
  return dataCodePath() == DataCodePath::AVX2;
#else
  return false;
#endif
}

template <int Width>
void reverseDispatch(unsigned char* dst, const unsigned char* src, std::size_t count) noexcept {
#ifdef VTCORE_HAVE_X86_KERNELS
  if (useAvx2())
    return reverseAvx2<Width>(dst, src, count);
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
  if (useAvx2())
    return flipAvx2(p, count);
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
