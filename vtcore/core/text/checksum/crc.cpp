#include <vtcore/core/text/checksum/crc.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#define VTCORE_HAVE_X86_KERNELS 1
#endif

namespace {

// ---- CRC-16/AUG-CCITT --------------------------------------------------------

constexpr std::array<std::uint16_t, 256> makeCrc16Table() {
  std::array<std::uint16_t, 256> table{};
  for (unsigned i = 0; i < 256; ++i) {
    unsigned c = i << 8;
    for (int bit = 0; bit < 8; ++bit)
      c = (c & 0x8000) ? ((c << 1) ^ 0x1021) : (c << 1);
    table[i] = static_cast<std::uint16_t>(c);
  }
  return table;
}

constexpr auto kCrc16Table = makeCrc16Table();

// Table k holds the CRC of a byte followed by k zero bytes, so that sixteen
// bytes are folded in with sixteen independent look-ups instead of a chain of
// sixteen dependent ones.
using Crc16Tables = std::array<std::array<std::uint16_t, 256>, 16>;

constexpr Crc16Tables makeCrc16Tables() {
  Crc16Tables tables{};
  tables[0] = makeCrc16Table();
  for (int k = 1; k < 16; ++k)
    for (int i = 0; i < 256; ++i) {
      const unsigned previous = tables[k - 1][i];
      tables[k][i] = static_cast<std::uint16_t>((previous << 8) ^ tables[0][previous >> 8]);
    }
  return tables;
}

constexpr Crc16Tables kCrc16 = makeCrc16Tables();

std::uint16_t crc16Bytes(std::uint16_t c, const unsigned char* p, std::size_t length) {
  while (length >= 16) {
    // The register enters the first two bytes; the rest go in as they are.
    unsigned v = kCrc16[15][(c >> 8) ^ p[0]] ^ kCrc16[14][(c & 0xFF) ^ p[1]];
    for (int i = 2; i < 16; ++i)
      v ^= kCrc16[15 - i][p[i]];
    c = static_cast<std::uint16_t>(v);
    p += 16;
    length -= 16;
  }
  for (; length > 0; --length, ++p)
    c = static_cast<std::uint16_t>((c << 8) ^ kCrc16Table[((c >> 8) ^ *p) & 0xFF]);
  return c;
}

// ---- CRC-32 tables -----------------------------------------------------------

using Crc32Tables = std::array<std::array<std::uint32_t, 256>, 16>;

// Table k holds the CRC of a byte followed by k zero bytes, so that sixteen
// bytes can be folded in with sixteen independent look-ups.
constexpr Crc32Tables makeCrc32Tables() {
  Crc32Tables tables{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t c = i;
    for (int bit = 0; bit < 8; ++bit)
      c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
    tables[0][i] = c;
  }
  for (int k = 1; k < 16; ++k)
    for (int i = 0; i < 256; ++i)
      tables[k][i] = (tables[k - 1][i] >> 8) ^ tables[0][tables[k - 1][i] & 0xFF];
  return tables;
}

constexpr Crc32Tables kCrc32 = makeCrc32Tables();

inline std::uint32_t crcByte(std::uint32_t c, unsigned char byte) {
  return kCrc32[0][(c ^ byte) & 0xFF] ^ (c >> 8);
}

// The running value here is the complemented one throughout.
std::uint32_t crc32Reference(std::uint32_t c, const unsigned char* p, std::size_t length) {
  while (length >= 8) {
    for (int i = 0; i < 8; ++i)
      c = crcByte(c, p[i]);
    p += 8;
    length -= 8;
  }
  while (length-- > 0)
    c = crcByte(c, *p++);
  return c;
}

inline std::uint32_t loadLittle32(const unsigned char* p) {
  std::uint32_t v;
  std::memcpy(&v, p, 4);
  if constexpr (std::endian::native == std::endian::big)
    v = __builtin_bswap32(v);
  return v;
}

std::uint32_t crc32Slicing16(std::uint32_t c, const unsigned char* p, std::size_t length) {
  while (length >= 16) {
    const std::uint32_t a = loadLittle32(p) ^ c;
    const std::uint32_t b = loadLittle32(p + 4);
    const std::uint32_t d = loadLittle32(p + 8);
    const std::uint32_t e = loadLittle32(p + 12);
    c = kCrc32[15][a & 0xFF] ^ kCrc32[14][(a >> 8) & 0xFF] ^ kCrc32[13][(a >> 16) & 0xFF] ^
        kCrc32[12][a >> 24] ^ kCrc32[11][b & 0xFF] ^ kCrc32[10][(b >> 8) & 0xFF] ^
        kCrc32[9][(b >> 16) & 0xFF] ^ kCrc32[8][b >> 24] ^ kCrc32[7][d & 0xFF] ^
        kCrc32[6][(d >> 8) & 0xFF] ^ kCrc32[5][(d >> 16) & 0xFF] ^ kCrc32[4][d >> 24] ^
        kCrc32[3][e & 0xFF] ^ kCrc32[2][(e >> 8) & 0xFF] ^ kCrc32[1][(e >> 16) & 0xFF] ^
        kCrc32[0][e >> 24];
    p += 16;
    length -= 16;
  }
  while (length-- > 0)
    c = crcByte(c, *p++);
  return c;
}

#ifdef VTCORE_HAVE_X86_KERNELS
// Folding with carry-less multiplication: accumulators advance over the data,
// are folded into one 128-bit value, and a Barrett reduction brings it down
// to the 32-bit remainder. Folding by d bytes multiplies the low half by
// x^(8d+32) and the high half by x^(8d-32), both reduced and bit-reflected.
namespace legacy {
#define VTCORE_FOLD_TARGET __attribute__((target("pclmul,sse4.1")))
#include <vtcore/core/text/checksum/detail/crc_fold128.inc>
#undef VTCORE_FOLD_TARGET
} // namespace legacy

namespace vex {
#define VTCORE_FOLD_TARGET __attribute__((target("avx,pclmul,sse4.1")))
#include <vtcore/core/text/checksum/detail/crc_fold128.inc>
#undef VTCORE_FOLD_TARGET
} // namespace vex

#define VTCORE_FOLD256_TARGET __attribute__((target("avx2,vpclmulqdq,pclmul,sse4.1")))
#define VTCORE_FOLD512_TARGET                                                                      \
  __attribute__((target("avx512f,avx512vl,avx2,vpclmulqdq,pclmul,sse4.1")))

VTCORE_FOLD256_TARGET inline __m256i fold256(__m256i x, __m256i k, __m256i data) {
  return _mm256_xor_si256(
      _mm256_xor_si256(_mm256_clmulepi64_epi128(x, k, 0x00), _mm256_clmulepi64_epi128(x, k, 0x11)),
      data);
}

VTCORE_FOLD256_TARGET inline __m256i load256(const unsigned char* q) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q));
}

VTCORE_FOLD256_TARGET inline __m256i foldConstants256(long long low, long long high) {
  return _mm256_broadcastsi128_si256(_mm_set_epi64x(high, low));
}

// Four 256-bit accumulators, 128 bytes per step. Requires length >= 128 and
// a multiple of 16.
VTCORE_FOLD256_TARGET std::uint32_t foldBlocks256(std::uint32_t c, const unsigned char* p,
                                                  std::size_t length) {
  __m256i x0 =
      _mm256_xor_si256(load256(p), _mm256_zextsi128_si256(_mm_cvtsi32_si128(static_cast<int>(c))));
  __m256i x1 = load256(p + 32), x2 = load256(p + 64), x3 = load256(p + 96);
  p += 128;
  length -= 128;
  const __m256i by128 = foldConstants256(0x1e88ef372, 0x14a7fe880);
  while (length >= 128) {
    x0 = fold256(x0, by128, load256(p));
    x1 = fold256(x1, by128, load256(p + 32));
    x2 = fold256(x2, by128, load256(p + 64));
    x3 = fold256(x3, by128, load256(p + 96));
    p += 128;
    length -= 128;
  }
  const __m256i by32 = foldConstants256(0x0f1da05aa, 0x15a546366);
  x0 = fold256(x0, by32, x1);
  x0 = fold256(x0, by32, x2);
  x0 = fold256(x0, by32, x3);
  while (length >= 32) {
    x0 = fold256(x0, by32, load256(p));
    p += 32;
    length -= 32;
  }
  const __m128i by16 = _mm_set_epi64x(0x0ccaa009e, 0x1751997d0);
  const __m128i low = _mm256_castsi256_si128(x0);
  const __m128i x = _mm_xor_si128(
      _mm_xor_si128(_mm_clmulepi64_si128(low, by16, 0x00), _mm_clmulepi64_si128(low, by16, 0x11)),
      _mm256_extracti128_si256(x0, 1));
  return vex::finish(x, p, length);
}

VTCORE_FOLD512_TARGET inline __m512i fold512(__m512i x, __m512i k, __m512i data) {
  // 0x96: the three-way exclusive or.
  return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(x, k, 0x00),
                                   _mm512_clmulepi64_epi128(x, k, 0x11), data, 0x96);
}

VTCORE_FOLD512_TARGET inline __m512i load512(const unsigned char* q) {
  return _mm512_loadu_si512(q);
}

VTCORE_FOLD512_TARGET inline __m512i foldConstants512(long long low, long long high) {
  return _mm512_set_epi64(high, low, high, low, high, low, high, low);
}

// Four 512-bit accumulators, 256 bytes per step. Requires length >= 256 and
// a multiple of 16.
VTCORE_FOLD512_TARGET std::uint32_t foldBlocks512(std::uint32_t c, const unsigned char* p,
                                                  std::size_t length) {
  __m512i x0 =
      _mm512_xor_si512(load512(p), _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(c))));
  __m512i x1 = load512(p + 64), x2 = load512(p + 128), x3 = load512(p + 192);
  p += 256;
  length -= 256;
  const __m512i by256 = foldConstants512(0x11542778a, 0x1322d1430);
  while (length >= 256) {
    x0 = fold512(x0, by256, load512(p));
    x1 = fold512(x1, by256, load512(p + 64));
    x2 = fold512(x2, by256, load512(p + 128));
    x3 = fold512(x3, by256, load512(p + 192));
    p += 256;
    length -= 256;
  }
  const __m512i by64 = foldConstants512(0x154442bd4, 0x1c6e41596);
  x0 = fold512(x0, by64, x1);
  x0 = fold512(x0, by64, x2);
  x0 = fold512(x0, by64, x3);
  while (length >= 64) {
    x0 = fold512(x0, by64, load512(p));
    p += 64;
    length -= 64;
  }
  // The four lanes lie 48, 32, 16 and 0 bytes before the end of the folded
  // data: each moves by its own distance, the last stays where it is.
  const __m512i byLane = _mm512_set_epi64(0, 0, 0x0ccaa009e, 0x1751997d0, 0x15a546366, 0x0f1da05aa,
                                          0x174359406, 0x03db1ecdc);
  const __m512i moved = _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(x0, byLane, 0x00),
                                                  _mm512_clmulepi64_epi128(x0, byLane, 0x11),
                                                  _mm512_maskz_mov_epi64(0xC0, x0), 0x96);
  const __m256i half = _mm256_xor_si256(_mm512_maskz_extracti64x4_epi64(0xF, moved, 0),
                                        _mm512_maskz_extracti64x4_epi64(0xF, moved, 1));
  const __m128i x = _mm_xor_si128(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
  return vex::finish(x, p, length);
}

bool processorHasAvx() noexcept {
  static const bool has = __builtin_cpu_supports("avx");
  return has;
}

// The carry-less methods on their whole 16-byte blocks, slicing-by-16 on the
// rest. Each wide method needs a few blocks to fill its accumulators and
// hands shorter data to the next narrower one.
std::uint32_t crc32Fold(vtcore::Crc32Method method, std::uint32_t c, const unsigned char* p,
                        std::size_t length) {
  const std::size_t blocks = length & ~std::size_t{15};
  if (method == vtcore::Crc32Method::CarrylessFold512 && blocks >= 256)
    c = foldBlocks512(c, p, blocks);
  else if (method != vtcore::Crc32Method::CarrylessFold && blocks >= 128)
    c = foldBlocks256(c, p, blocks);
  else if (blocks >= 64)
    c = processorHasAvx() ? vex::foldBlocks(c, p, blocks) : legacy::foldBlocks(c, p, blocks);
  else
    return crc32Slicing16(c, p, length);
  return crc32Slicing16(c, p + blocks, length - blocks);
}
#endif

std::uint32_t crc32Complemented(vtcore::Crc32Method method, std::uint32_t c, const unsigned char* p,
                                std::size_t length) {
  switch (method) {
  case vtcore::Crc32Method::CarrylessFold:
  case vtcore::Crc32Method::CarrylessFold256:
  case vtcore::Crc32Method::CarrylessFold512:
#ifdef VTCORE_HAVE_X86_KERNELS
    if (vtcore::crc32MethodAvailable(method))
      return crc32Fold(method, c, p, length);
#endif
    return crc32Reference(c, p, length);
  case vtcore::Crc32Method::Slicing16:
    return crc32Slicing16(c, p, length);
  case vtcore::Crc32Method::Reference:
    break;
  }
  return crc32Reference(c, p, length);
}

} // namespace

unsigned int KWCRC16(const char* text) {
  std::uint16_t c = 0x1D0F; // 0xFFFF followed by the 16 augmenting zero bits
  if (text == nullptr)
    return c;
  // The position counter is 16 bits wide: it ends where it would wrap.
  const std::size_t length = strnlen(text, 0x10000);
  return crc16Bytes(c, reinterpret_cast<const unsigned char*>(text), length);
}

uint32_t KWCRC32(uint32_t crc, const unsigned char* data, uint32_t length) {
  if (data == nullptr)
    return 0;
  return ~crc32Complemented(vtcore::crc32Method(), ~crc, data, length);
}

namespace vtcore {

uint32_t crc32Using(Crc32Method method, uint32_t crc, const unsigned char* data,
                    size_t length) noexcept {
  if (data == nullptr)
    return 0;
  return ~crc32Complemented(method, ~crc, data, length);
}

} // namespace vtcore
