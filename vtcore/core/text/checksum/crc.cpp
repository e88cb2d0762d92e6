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
// Folding with carry-less multiplication: four 128-bit accumulators advance
// 64 bytes per step, are folded into one, and a Barrett reduction brings the
// last 128 bits down to the 32-bit remainder. The constants are powers of x
// modulo the bit-reflected CRC-32 polynomial.
__attribute__((target("pclmul,sse4.1"))) inline __m128i fold(__m128i x, __m128i k) {
  return _mm_xor_si128(_mm_clmulepi64_si128(x, k, 0x00), _mm_clmulepi64_si128(x, k, 0x11));
}

// Requires length >= 64 and a multiple of 16.
__attribute__((target("pclmul,sse4.1"))) std::uint32_t
crc32FoldBlocks(std::uint32_t c, const unsigned char* p, std::size_t length) {
  auto load = [](const unsigned char* q) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
  };
  __m128i x1 = _mm_xor_si128(load(p), _mm_cvtsi32_si128(static_cast<int>(c)));
  __m128i x2 = load(p + 16);
  __m128i x3 = load(p + 32);
  __m128i x4 = load(p + 48);
  p += 64;
  length -= 64;

  const __m128i k1k2 = _mm_set_epi64x(0x1c6e41596, 0x154442bd4);
  while (length >= 64) {
    x1 = _mm_xor_si128(fold(x1, k1k2), load(p));
    x2 = _mm_xor_si128(fold(x2, k1k2), load(p + 16));
    x3 = _mm_xor_si128(fold(x3, k1k2), load(p + 32));
    x4 = _mm_xor_si128(fold(x4, k1k2), load(p + 48));
    p += 64;
    length -= 64;
  }

  const __m128i k3k4 = _mm_set_epi64x(0x0ccaa009e, 0x1751997d0);
  x1 = _mm_xor_si128(fold(x1, k3k4), x2);
  x1 = _mm_xor_si128(fold(x1, k3k4), x3);
  x1 = _mm_xor_si128(fold(x1, k3k4), x4);
  while (length >= 16) {
    x1 = _mm_xor_si128(fold(x1, k3k4), load(p));
    p += 16;
    length -= 16;
  }

  // 128 bits to 64, then to 32 (appending the 32 zero bits of the remainder).
  x1 = _mm_xor_si128(_mm_clmulepi64_si128(k3k4, x1, 0x01), _mm_srli_si128(x1, 8));
  const __m128i mask32 = _mm_set_epi32(0, 0, 0, -1);
  const __m128i k5 = _mm_set_epi64x(0, 0x163cd6124);
  x2 = _mm_clmulepi64_si128(_mm_and_si128(x1, mask32), k5, 0x00);
  x1 = _mm_xor_si128(_mm_srli_si128(x1, 4), x2);

  // Barrett reduction by the polynomial and its reciprocal.
  const __m128i poly = _mm_set_epi64x(0x1F7011641, 0x1DB710641);
  x2 = _mm_clmulepi64_si128(_mm_and_si128(x1, mask32), poly, 0x10);
  x2 = _mm_clmulepi64_si128(_mm_and_si128(x2, mask32), poly, 0x00);
  x1 = _mm_xor_si128(x1, x2);
  return static_cast<std::uint32_t>(_mm_extract_epi32(x1, 1));
}

std::uint32_t crc32Fold(std::uint32_t c, const unsigned char* p, std::size_t length) {
  if (length >= 64) {
    const std::size_t blocks = length & ~std::size_t{15};
    c = crc32FoldBlocks(c, p, blocks);
    p += blocks;
    length -= blocks;
  }
  return crc32Slicing16(c, p, length);
}
#endif

std::uint32_t crc32Complemented(vtcore::Crc32Method method, std::uint32_t c, const unsigned char* p,
                                std::size_t length) {
  switch (method) {
  case vtcore::Crc32Method::CarrylessFold:
#ifdef VTCORE_HAVE_X86_KERNELS
    if (vtcore::crc32MethodAvailable(method))
      return crc32Fold(c, p, length);
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
  const auto* p = reinterpret_cast<const unsigned char*>(text);
  // The position counter is 16 bits wide: it ends where it would wrap.
  for (std::uint32_t i = 0; i < 0x10000 && p[i] != 0; ++i)
    c = static_cast<std::uint16_t>((c << 8) ^ kCrc16Table[((c >> 8) ^ p[i]) & 0xFF]);
  return c;
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
