// The compiler's own loops for the data benchmarks: plain C++ doing the same
// arithmetic as the library's kernels, compiled with -O3 for this machine
// (native_loops) and for AVX2 (avx2_loops) in translation units of their own.
#pragma once

#include <cstddef>

#define VTCORE_DECLARE_COMPILER_LOOPS(ns)                                                          \
  namespace ns {                                                                                   \
  void swap16(void* values, std::size_t count);                                                    \
  void swap32(void* values, std::size_t count);                                                    \
  void swap64(void* values, std::size_t count);                                                    \
  /* Big-endian signed integers of `width` bytes (1 to 4) to floats, and back. */                  \
  void integersToFloats(int width, float* dst, const unsigned char* src, std::size_t count);       \
  void floatsToIntegers(int width, unsigned char* dst, const float* src, std::size_t count);       \
  /* CRC-16/AUG-CCITT a byte at a time through one 256-entry table. */                             \
  unsigned crc16ByteTable(const char* text);                                                       \
  }

VTCORE_DECLARE_COMPILER_LOOPS(native_loops)
VTCORE_DECLARE_COMPILER_LOOPS(avx2_loops)
