// The library's checksums: a 16-bit CRC of names and a running 32-bit CRC of
// data blocks, both with values stored by existing applications.
#pragma once

#include <vtcore/export.h>

#include <stddef.h>
#include <stdint.h>

VTCORE_EXTERN_C_BEGIN

/// CRC-16/AUG-CCITT of the NUL-terminated `text` (polynomial 0x1021, not
/// reflected, start 0xFFFF with 16 zero bits fed after the data, no final
/// XOR), in the low 16 bits: "123456789" gives 0xE5CC, "" gives 0x1D0F.
/// The position is a 16-bit counter, so `text` must be shorter than 65,536
/// bytes; a longer text is cut at 65,536 bytes, where the counter wraps. A
/// null `text` counts as empty.
VTCORE_EXPORT unsigned int KWCRC16(const char* text);

/// Running CRC-32 (the zlib / ISO-HDLC variant) of `length` bytes at `data`,
/// continued from `crc`: start from 0, and pass each result into the next call
/// to checksum a stream in pieces. Returns the same values as zlib's crc32,
/// including 0 for a null `data` whatever `crc` is, and `crc` unchanged for a
/// length of 0.
VTCORE_EXPORT uint32_t KWCRC32(uint32_t crc, const unsigned char* data, uint32_t length);

VTCORE_EXTERN_C_END

#ifdef __cplusplus
#include <vtcore/core/text/dispatch/data_dispatch.h>

namespace vtcore {

/// KWCRC32 computed with a particular method, for comparing them; a method
/// the processor lacks falls back to the reference one. Any length.
VTCORE_EXPORT uint32_t crc32Using(Crc32Method method, uint32_t crc, const unsigned char* data,
                                  size_t length) noexcept;

} // namespace vtcore
#endif
