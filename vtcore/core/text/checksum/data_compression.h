// Compression of byte buffers: the two methods the library adds to the byte
// buffer, as functions over a span of bytes. The compressed form is a bare
// zlib stream (two-byte header, deflate data, Adler-32 trailer) at zlib's
// default level, with no length or header of the library's own.
#pragma once

#include <vtcore/export.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace vtcore::byte_buffer {

/// The size of the working buffer compressedData allocates for `length`
/// bytes: length * 1.001 + 12, in double precision, truncated (zlib's old
/// worst-case bound). 1,000,000 bytes give 1,001,012.
VTCORE_EXPORT std::uint64_t compressedDataCapacity(std::size_t length) noexcept;

/// Compresses `bytes` into a zlib stream. Empty input gives null (not an empty
/// stream). A compressor failure is reported to the assertion handler
/// (operation "compressedData", description "-compressedData error"), whose
/// default throws KWException "KWInternalInconsistencyException"; if the
/// handler returns, the result is null.
VTCORE_EXPORT std::optional<std::vector<std::uint8_t>>
compressedData(std::span<const std::uint8_t> bytes);

/// Expands a zlib stream. Empty input gives an empty buffer (the input
/// itself); a damaged or truncated stream, one that needs a preset
/// dictionary, or a shortage of memory gives null. Bytes after the end of the
/// stream are ignored. The output grows in steps of half the input length, so a one-byte
/// input can never expand beyond its first buffer of one byte.
VTCORE_EXPORT std::optional<std::vector<std::uint8_t>>
decompressedData(std::span<const std::uint8_t> bytes);

} // namespace vtcore::byte_buffer
