// Sample converters between the integer and floating-point formats of audio
// files and the 32-bit floats of processing.
#pragma once

#include <vtcore/export.h>

#include <stddef.h>

VTCORE_EXTERN_C_BEGIN

/// A sample converter: converts `count` samples from `src` into `dst`.
///
/// Integer to float: `src` holds file samples, `dst` receives floats. When
/// `secondChannel` is not null, `src` holds `count` interleaved pairs (first
/// channel first): the first sample of each pair goes to `dst`, the second to
/// `secondChannel` (a float buffer of `count` samples).
///
/// Float to integer: `src` holds floats, `dst` receives file samples. When
/// `secondChannel` is not null it is a second float buffer of `count` samples
/// and `dst` receives `count` interleaved pairs (first `src`, then
/// `secondChannel`).
///
/// `dst` may be the very buffer of `src` (conversion in place); other overlaps
/// are not supported. A null `dst` or `src` does nothing.
typedef void (*KWSampleConverter)(void* dst, const void* src, size_t count, void* secondChannel);

/// Returns the converter from file format `format` to 32-bit floats; the byte
/// order of the file data is little-endian when `littleEndian` is non-zero.
/// Formats: 1, 2, 3, 4 = signed integers of that many bytes (1 with the
/// little-endian flag = unsigned 8-bit, 128 being zero); -4 = 32-bit float;
/// -8 = 64-bit float (big-endian only). An integer v of w bytes becomes
/// exactly v / 2^(8w-1), except that 32-bit integers keep their top 24 bits
/// (v / 2^31 truncated to 23 fraction bits); results lie in [-1.0, 1.0).
/// Doubles are rounded to the nearest float. Any other combination gives a
/// converter that does nothing.
VTCORE_EXPORT KWSampleConverter GetConvertNToFloat(int format, int littleEndian);

/// Returns the converter from 32-bit floats to file format `format` (codes as
/// above). A float of magnitude below 1.0 becomes its magnitude times 2^31,
/// truncated, with its sign; 1.0 or more (and NaN) clips to +/-0x7FFFFF00.
/// Narrower integers store the top bytes of that 32-bit result (so 1.0 gives
/// 0x7FFFFF, 0x7FFF, 0x7F; -1.0 gives -0x7FFFFF, -0x8000, -0x80). Unsigned
/// 8-bit adds 128. -8 widens to big-endian doubles. Any other combination
/// gives a converter that does nothing.
VTCORE_EXPORT KWSampleConverter GetConvertFloatToN(int format, int littleEndian);

VTCORE_EXTERN_C_END
