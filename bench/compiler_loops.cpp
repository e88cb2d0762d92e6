// Compiled twice (see CMakeLists.txt) into VTCORE_LOOPS_NAMESPACE. Nothing
// here may be an inline function or template shared with other translation
// units: the linker could otherwise keep this copy, built for other
// instructions, for the whole program.
#include "compiler_loops.h"

#include <cstdint>
#include <cstring>

namespace VTCORE_LOOPS_NAMESPACE {
namespace {

// Swaps in place: the same loads, byte reversal and stores as the library.
template <typename T>
void swapValues(void* values, std::size_t count) {
  auto* p = static_cast<unsigned char*>(values);
  for (std::size_t i = 0; i < count; ++i) {
    T v;
    std::memcpy(&v, p + i * sizeof(T), sizeof(T));
    if constexpr (sizeof(T) == 2)
      v = __builtin_bswap16(v);
    else if constexpr (sizeof(T) == 4)
      v = __builtin_bswap32(v);
    else
      v = __builtin_bswap64(v);
    std::memcpy(p + i * sizeof(T), &v, sizeof(T));
  }
}

template <int Width>
void toFloats(float* __restrict dst, const unsigned char* __restrict src, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const unsigned char* p = src + i * Width;
    std::uint32_t bits = 0;
    for (int k = 0; k < Width; ++k)
      bits |= static_cast<std::uint32_t>(p[Width - 1 - k]) << (8 * k);
    const std::int32_t v = static_cast<std::int32_t>(bits << (32 - 8 * Width)) >> (32 - 8 * Width);
    if constexpr (Width == 4)
      dst[i] = static_cast<float>(v >> 8) * 0x1p-23f;
    else
      dst[i] = static_cast<float>(v) * (1.0f / static_cast<float>(1 << (8 * Width - 1)));
  }
}

template <int Width>
void fromFloats(unsigned char* __restrict dst, const float* __restrict src, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t f;
    std::memcpy(&f, src + i, 4);
    const int shift = 127 - static_cast<int>((f >> 23) & 0xFF);
    std::uint32_t magnitude = shift <= 0    ? 0x7FFFFF00u
                              : shift >= 32 ? 0
                                            : ((f << 8) | 0x80000000u) >> shift;
    const auto value = static_cast<std::int32_t>(magnitude);
    const std::int32_t result = (f & 0x80000000u) ? -value : value;
    const auto bits = static_cast<std::uint32_t>(result >> (32 - 8 * Width));
    for (int k = 0; k < Width; ++k)
      dst[i * Width + Width - 1 - k] = static_cast<unsigned char>(bits >> (8 * k));
  }
}

struct Crc16Table {
  std::uint16_t entry[256];
};

constexpr Crc16Table makeTable() {
  Crc16Table t{};
  for (unsigned i = 0; i < 256; ++i) {
    unsigned c = i << 8;
    for (int bit = 0; bit < 8; ++bit)
      c = (c & 0x8000) ? ((c << 1) ^ 0x1021) : (c << 1);
    t.entry[i] = static_cast<std::uint16_t>(c);
  }
  return t;
}

constexpr Crc16Table kTable = makeTable();

} // namespace

void swap16(void* values, std::size_t count) {
  swapValues<std::uint16_t>(values, count);
}
void swap32(void* values, std::size_t count) {
  swapValues<std::uint32_t>(values, count);
}
void swap64(void* values, std::size_t count) {
  swapValues<std::uint64_t>(values, count);
}

void integersToFloats(int width, float* dst, const unsigned char* src, std::size_t count) {
  switch (width) {
  case 1:
    return toFloats<1>(dst, src, count);
  case 2:
    return toFloats<2>(dst, src, count);
  case 3:
    return toFloats<3>(dst, src, count);
  default:
    return toFloats<4>(dst, src, count);
  }
}

void floatsToIntegers(int width, unsigned char* dst, const float* src, std::size_t count) {
  switch (width) {
  case 1:
    return fromFloats<1>(dst, src, count);
  case 2:
    return fromFloats<2>(dst, src, count);
  case 3:
    return fromFloats<3>(dst, src, count);
  default:
    return fromFloats<4>(dst, src, count);
  }
}

unsigned crc16ByteTable(const char* text) {
  std::uint16_t c = 0x1D0F;
  const auto* p = reinterpret_cast<const unsigned char*>(text);
  for (std::uint32_t i = 0; i < 0x10000 && p[i] != 0; ++i)
    c = static_cast<std::uint16_t>((c << 8) ^ kTable.entry[((c >> 8) ^ p[i]) & 0xFF]);
  return c;
}

} // namespace VTCORE_LOOPS_NAMESPACE
