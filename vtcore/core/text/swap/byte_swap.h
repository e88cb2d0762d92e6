// Byte-order swapping in place: single values, runs of values, records
// described by a table of one-byte field codes, copy-and-swap by a signed
// table, and audio sample buffers by bit depth. "Intel" means little-endian.
// Every swap is its own inverse, so the same call converts either way.
#pragma once

#include <vtcore/export.h>

#include <stddef.h>
#include <stdint.h>

VTCORE_EXTERN_C_BEGIN

/// Field codes of the record tables. Each describes one field at the cursor:
///   0-3 nothing (1 byte)   4, 5, 6 raw 2, 3, 4 bytes, left as they are
///   7 a 32-bit value       8, 9, 10 two, three, four of them
///   11 a 64-bit value      12, 13, 14 two, three, four of them
///   15 a 16-bit value      16, 17, 18 two, three, four of them
///   19 a 32-bit then a 16-bit value (6 bytes)   20 two 64-bit values
///   21 a 16-bit record length: after swapping, a value above 2 (read as a
///      signed 16-bit host-order number) makes the field's address plus that
///      value the limit for the fields that follow
///   22-255 unknown: nothing (1 byte)
/// A field that would end beyond the limit is left unswapped (the cursor still
/// advances over it). For a repeated code whose group ends beyond the limit,
/// the elements are judged one by one and then the group's first element is
/// swapped once more, as stored records have always been treated.

/// Swaps the field of `code` at `cursor`; returns the cursor after the field.
VTCORE_EXPORT void* IntelSwap(void* cursor, int code);

/// Applies IntelSwap `count` times; a count of 0 or less returns `cursor`.
VTCORE_EXPORT void* MultiIntelSwap(void* cursor, int code, int count);

/// Runs a record table from `cursor` with `limit` as the limit and returns the
/// cursor after the last field. Table bytes: 0 ends it; 1, code, n applies the
/// code n times (8-bit n); 2, code, hi, lo applies it hi*256+lo times; any other
/// byte is a code applied once. The limit in force before the call is saved and
/// restored. Nothing at or past `limit` is ever written, even by a code 21
/// record length that points further. The table must be terminated and the
/// record must be readable up to the limit (or to the table's end).
VTCORE_EXPORT void* LimitTabIntelSwap(void* cursor, const unsigned char* table, void* limit);

/// LimitTabIntelSwap with no limit.
VTCORE_EXPORT void* TabIntelSwap(void* cursor, const unsigned char* table);

/// The process-wide limit of IntelSwap; all-ones ((void*)UINTPTR_MAX) means
/// none. Record swapping is for one thread at a time.
VTCORE_EXPORT void* GetPIntelLimit(void);
VTCORE_EXPORT void SetPIntelLimit(void* limit);

/// Copies `src` to `dst` item by item following `table` (signed bytes, 0 ends
/// it): +n copies n bytes and reverses them when n is 2, 4 or 8; -n copies n
/// bytes unchanged. Returns 0 when the table ran to its end, otherwise the size
/// of the first item that did not fit into the remaining `length` (nothing of
/// it is written). Never writes more than `length` bytes. `dst` may equal `src`.
VTCORE_EXPORT int SwapData(void* dst, const void* src, const signed char* table, int64_t length);

/// Reverse the bytes of one 32-bit or 64-bit value in place.
VTCORE_EXPORT void SwapInt32(void* value);
VTCORE_EXPORT void SwapInt64(void* value);

/// Reverse the bytes of `count` consecutive 16-, 32- or 64-bit values in place
/// (no alignment needed); return the address just past the last one.
VTCORE_EXPORT void* PSwapInt16(void* values, size_t count);
VTCORE_EXPORT void* PSwapInt32(void* values, size_t count);
VTCORE_EXPORT void* PSwapInt64(void* values, size_t count);

/// Writes `count` 32-bit values from `src` to `dst` with their bytes reversed.
/// `dst` and `src` must be the same buffer or not overlap.
VTCORE_EXPORT void PSwapCopyInt32(void* dst, const void* src, size_t count);

/// Converts `sampleCount` audio samples between big-endian and little-endian
/// file order: 32 reverses each 4-byte sample, 24 exchanges the outer bytes of
/// each 3-byte sample, 8 adds 128 to every byte (signed <-> unsigned 8-bit),
/// any other value reverses each 2-byte sample. The third argument is unused.
/// Always returns 1.
VTCORE_EXPORT int ProcessSwapIntel(void* buffer, size_t sampleCount, int unused, int bitsPerSample);

VTCORE_EXTERN_C_END
