// Which machine-code path the hot loops of the data family use: the
// byte-order swaps, the sample converters, UTF-8 validation and counting, and
// CRC-32. The library is built for any x86-64 processor; the faster paths are
// compiled alongside and one is picked once, from the processor, on first
// use. On a processor with AVX every vector path in use is VEX- or
// EVEX-encoded, so none of them slows down when another library has left the
// upper halves of the vector registers dirty.
#pragma once

#include <vtcore/export.h>

namespace vtcore {

/// Code paths of the byte-order swaps, sample converters and UTF-8 scans.
enum class DataCodePath {
  Portable, ///< plain C++, runs on every processor
  AVX2,     ///< 256-bit byte shuffles and conversions (x86-64 with AVX2)
  SSSE3,    ///< 128-bit byte shuffles and conversions (x86-64 with SSSE3)
  AVX512,   ///< 512-bit, with mask registers and byte permutes (AVX-512 F, BW,
            ///< VL and VBMI)
  AVX,      ///< the SSSE3 loops VEX-encoded (x86-64 with AVX; the choice where
            ///< AVX2 is missing), so that they keep their speed after code that
            ///< left the upper halves of the vector registers dirty
};

/// Ways of computing CRC-32; all give identical results.
enum class Crc32Method {
  Reference,        ///< one 256-entry table, eight bytes per loop step
  Slicing16,        ///< sixteen tables, sixteen bytes per step
  CarrylessFold,    ///< carry-less multiplication folding, 128 bits a step (x86-64
                    ///< with PCLMULQDQ; VEX-encoded where the processor has AVX)
  CarrylessFold256, ///< the same on 256-bit registers (VPCLMULQDQ and AVX2)
  CarrylessFold512, ///< the same on 512-bit registers (VPCLMULQDQ and AVX-512)
};

/// True when this processor can run `path` / `method`.
VTCORE_EXPORT bool dataCodePathAvailable(DataCodePath path) noexcept;
VTCORE_EXPORT bool crc32MethodAvailable(Crc32Method method) noexcept;

/// The path in use: the fastest available unless another was set (AVX512,
/// then AVX2, AVX, SSSE3, Portable; CarrylessFold512, then CarrylessFold256,
/// CarrylessFold, Slicing16).
VTCORE_EXPORT DataCodePath dataCodePath() noexcept;
VTCORE_EXPORT Crc32Method crc32Method() noexcept;

/// Selects a path for the whole process (tests and benchmarks compare them).
/// Returns false, and changes nothing, when the processor lacks it. Not meant
/// to be called while another thread is swapping or converting.
VTCORE_EXPORT bool setDataCodePath(DataCodePath path) noexcept;
VTCORE_EXPORT bool setCrc32Method(Crc32Method method) noexcept;

/// Short lower-case names ("portable", "avx2", "ssse3", "avx512", "avx", "reference",
/// "slicing16", "carryless-fold", "carryless-fold-256", "carryless-fold-512")
/// for reports.
VTCORE_EXPORT const char* dataCodePathName(DataCodePath path) noexcept;
VTCORE_EXPORT const char* crc32MethodName(Crc32Method method) noexcept;

} // namespace vtcore
