// Internal: the byte-reversal loops shared by the swaps and the sample
// converters, each built for every code path and dispatched at run time.
#pragma once

#include <cstddef>

namespace vtcore::detail {

/// Writes `count` values of `width` bytes (2, 4 or 8) from `src` to `dst` with
/// their bytes reversed. `dst` and `src` are the same buffer or do not overlap.
void reverseValues(void* dst, const void* src, std::size_t count, int width) noexcept;

/// Exchanges the first and third byte of `count` 3-byte samples in place.
void reverse24(void* samples, std::size_t count) noexcept;

/// Adds 128 (modulo 256) to `count` bytes in place.
void flipSignBit8(void* bytes, std::size_t count) noexcept;

} // namespace vtcore::detail
