// Which machine-code path the hot loops of the data family use: the
// byte-order swaps, the sample converters and CRC-32. The library is built
// for any x86-64 processor; the faster paths are compiled alongside and one
// is picked once, from the processor, on first use.
#pragma once

#include <vtcore/export.h>

namespace vtcore {

/// Code paths of the byte-order swaps and sample converters.
enum class DataCodePath {
  Portable, ///< plain C++, runs on every processor
  AVX2,     ///< 256-bit byte shuffles and conversions (x86-64 with AVX2)
  SSSE3,    ///< 128-bit byte shuffles and conversions (x86-64 with SSSE3)
};

/// Ways of computing CRC-32; all give identical results.
enum class Crc32Method {
  Reference,     ///< one 256-entry table, eight bytes per loop step
  Slicing16,     ///< sixteen tables, sixteen bytes per step
  CarrylessFold, ///< carry-less multiplication folding (x86-64 with PCLMULQDQ)
};

/// True when this processor can run `path` / `method`.
VTCORE_EXPORT bool dataCodePathAvailable(DataCodePath path) noexcept;
VTCORE_EXPORT bool crc32MethodAvailable(Crc32Method method) noexcept;

/// The path in use: the fastest available unless another was set.
VTCORE_EXPORT DataCodePath dataCodePath() noexcept;
VTCORE_EXPORT Crc32Method crc32Method() noexcept;

/// Selects a path for the whole process (tests and benchmarks compare them).
/// Returns false, and changes nothing, when the processor lacks it. Not meant
/// to be called while another thread is swapping or converting.
VTCORE_EXPORT bool setDataCodePath(DataCodePath path) noexcept;
VTCORE_EXPORT bool setCrc32Method(Crc32Method method) noexcept;

/// Short lower-case names ("portable", "avx2", "ssse3", "reference", "slicing16",
/// "carryless-fold") for reports.
VTCORE_EXPORT const char* dataCodePathName(DataCodePath path) noexcept;
VTCORE_EXPORT const char* crc32MethodName(Crc32Method method) noexcept;

} // namespace vtcore
