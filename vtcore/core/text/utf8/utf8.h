// The UTF-8 string library: validation, stepping, search and copying over
// NUL-terminated UTF-8 byte strings, and conversions to and from host strings
// (icu::UnicodeString), the file-system representation and the legacy 8-bit
// file-name encoding.
//
// Two rules decide where characters are:
//
// - Stepping (utf8_next, utf8_strlen, utf8_strchr, utf8_strncpy,
//   utf8_copy_chars): a lead byte 0x00-0x7F is a 1-byte character, 0xC2-0xDF
//   starts 2 bytes, 0xE0-0xEF 3 bytes, 0xF0-0xF4 4 bytes. Any other byte
//   (0x80-0xC1, 0xF5-0xFF) is not a lead byte and ends the walk. Continuation
//   bytes are not inspected, except that a character cut short by the
//   terminator also ends the walk: no function uses a byte past the
//   terminator. (utf8_check and utf8_strlen, like strlen, read whole aligned
//   64-byte blocks, so they may load the rest of the block that holds the
//   terminator or the string's first byte; such a block never crosses into
//   another page, and the bytes do not change any result.)
// - Validation (utf8_check): deliberately looser than standard UTF-8; see
//   utf8_check.
//
// Every function is reentrant and keeps no state. Strings and destinations
// must not overlap.
#pragma once

#include <vtcore/export.h>

#include <stddef.h>

#ifdef __cplusplus
#include <optional>
#include <unicode/unistr.h>
#endif

VTCORE_EXTERN_C_BEGIN

/// Returns 1 when `s` is valid by the library's validation rule, else 0; a
/// null `s` is 0, the empty string 1. The rule walks the bytes keeping the
/// index where the current sequence must end and whether a sequence is open:
/// a continuation byte (10xxxxxx) outside a sequence is invalid; an ASCII
/// byte must stand exactly where the previous sequence ended and closes it; a
/// lead byte opens a sequence of 2 (110xxxxx), 3 (1110xxxx), 4 (11110xxx),
/// 5 (111110xx) or 6 (b & 0xFD == 0xFC, so 0xFC and 0xFE) bytes. 0xFD and
/// 0xFF change nothing at all. At the end the open sequence must end exactly
/// at the terminator. Hence overlong 0xC0/0xC1 forms, surrogates, code points
/// above U+10FFFF and 5- and 6-byte forms are accepted, and C3 C3 A9 is
/// valid (a sequence cut short by a lead byte whose own sequence ends on
/// time). Never logs.
VTCORE_EXPORT int utf8_check(const char* s);

/// Same result as utf8_check, kept for callers that asked for the variant
/// that never reports; neither logs.
VTCORE_EXPORT int utf8_check_no_assertion(const char* s);

/// Always returns 0 and does nothing else (kept for compatibility).
VTCORE_EXPORT int utf8_verify(const char* s);

/// Returns 1 when no byte of `s` is 0x80 or above, scanning to the terminator
/// (n = 0) or at most `n` bytes (n > 0); the empty string is ASCII. Returns 0
/// for a null `s`.
VTCORE_EXPORT int utf8_is_ascii(const char* s, size_t n);

/// Always returns 1 (kept for compatibility).
VTCORE_EXPORT int utf8_unitTest(void);

/// Returns the character after the one at `p` (by the stepping rule), which
/// may be the terminator. Returns null for a null `p`, for `p` at the
/// terminator, at a byte that is not a lead byte, or at a character cut short
/// by the terminator.
VTCORE_EXPORT const char* utf8_next(const char* p);

/// Returns the start of the character before `p`: steps back over
/// continuation bytes (0x80-0xBF) and returns that position when its byte is
/// a lead byte for backward stepping (not 0x80-0xBF, not 0xC0/0xC1, below
/// 0xF5), else null. Null `p` gives null.
///
/// Precondition: there is no lower bound. The caller must not call it with
/// `p` at the start of a string, and the bytes before `p` must contain a
/// non-continuation byte inside the same buffer.
VTCORE_EXPORT const char* utf8_previous(const char* p);

/// Returns the number of characters of `s` (stepping rule), stopping at the
/// terminator or at the first byte that ends the walk (the count so far is
/// returned). Null `s` gives 0.
VTCORE_EXPORT size_t utf8_strlen(const char* s);

/// Returns the first character whose lead byte, taken as a signed byte,
/// equals `c` (so bytes 0x80-0xFF never match a non-negative `c`: the search
/// is meant for ASCII). `c` = 0 finds the terminator. Returns null for a null
/// `s`, when the terminator is reached without a match, or when the walk ends
/// at a byte that is not a lead byte.
VTCORE_EXPORT const char* utf8_strchr(const char* s, int c);

/// Returns the last character whose lead byte, as a signed byte, equals `c`,
/// walking backwards from the terminator (backward stepping rule); `c` = 0
/// gives the terminator. Returns null for a null `s`, when the start is
/// reached without a match, or when backward stepping meets a byte that is
/// not a valid lead byte.
VTCORE_EXPORT const char* utf8_strrchr(const char* s, int c);

/// Bounded copy by whole characters. Continuation bytes at the start of `src`
/// are skipped first (a source starting inside a character starts at the
/// next one). Copies characters while each fits whole in the `n` bytes of
/// `dst`; at a byte that ends the walk or a character that does not fit, the
/// rest of the `n` bytes is zero-filled. When the copy fills exactly `n`
/// bytes no terminator is written. Returns `dst`; a null `dst` or `src`
/// writes nothing.
VTCORE_EXPORT char* utf8_strncpy(char* dst, const char* src, size_t n);

/// utf8_strncpy(dst, src, size - 1), then dst[size - 1] = 0: copies whole
/// characters and always terminates. Returns `dst` (not a length). A null
/// `src` leaves `dst` empty; a null `dst` or `size` 0 writes nothing.
VTCORE_EXPORT char* utf8_strlcpy(char* dst, const char* src, size_t size);

/// Appends whole characters of `src` to the string in `dst` (capacity `size`
/// bytes, terminator included) and always sets dst[size - 1] = 0. Nothing is
/// appended when `dst` already holds size - 1 bytes or more (or has no
/// terminator within `size` bytes). Returns `dst`; a null `dst` or `size` 0
/// writes nothing, a null `src` appends nothing.
VTCORE_EXPORT char* utf8_strlcat(char* dst, const char* src, size_t size);

/// Copies the first `count` characters of `src` (fewer at its terminator or
/// where the walk ends), at most `size - 1` bytes and never a split
/// character, and terminates `dst`. A null or invalid `src` (utf8_check)
/// leaves `dst` empty. Returns `dst`; a null `dst` or `size` 0 writes
/// nothing.
VTCORE_EXPORT char* utf8_copy_chars(char* dst, const char* src, size_t count, size_t size);

/// Decomposed (NFD) UTF-8 form of `src`, the form file names are stored in,
/// into `dst` (capacity `size`), cut at a character boundary to size - 1
/// bytes when it does not fit, and terminated. `dst` is left empty when `src`
/// is null or empty or is not well-formed UTF-8. Returns `dst`; `size` 0 or a
/// null `dst` writes nothing.
VTCORE_EXPORT char* utf8_to_fileSystemRepresentation(char* dst, const char* src, size_t size);

/// Writes `s` with the logger (level 5, with banner, identity
/// "KWLogCString"); a text that is not well-formed UTF-8 logs
/// "utf8_log: malformed string" instead. Null or empty `s` does nothing.
VTCORE_EXPORT void utf8_log(const char* s);

/// As utf8_log ("utf8_trace: malformed string" for bad text), and before
/// logging prints the text's debugging description to standard error: the
/// text in double quotes with quotes, backslashes and non-printable
/// characters escaped, then a line feed.
VTCORE_EXPORT void utf8_trace(const char* s);

VTCORE_EXTERN_C_END

#ifdef __cplusplus

/// A new host string from the UTF-8 bytes of `s`. Null `s`, the empty string
/// and bytes that are not well-formed UTF-8 (overlong forms, surrogates,
/// code points above U+10FFFF, cut sequences) give std::nullopt.
VTCORE_EXPORT std::optional<icu::UnicodeString> utf8_to_qxstring(const char* s);

/// Same as utf8_to_qxstring (the host string's lifetime is the value's).
VTCORE_EXPORT std::optional<icu::UnicodeString> utf8_to_zvstring(const char* s);

/// Converts the first min(size - 1, str.length()) UTF-16 units of `str` to
/// UTF-8 in `dst`, at most size - 1 bytes, stopping before a character that
/// would not fit, and terminates it. An unpaired surrogate (also one cut off
/// by the unit limit) becomes "?". A null string (std::nullopt) gives "".
/// `size` 0 or a null `dst` writes nothing.
VTCORE_EXPORT void utf8_from_qxstring(char* dst, const std::optional<icu::UnicodeString>& str,
                                      size_t size);

/// Same as utf8_from_qxstring.
VTCORE_EXPORT void utf8_from_zvstring(char* dst, const std::optional<icu::UnicodeString>& str,
                                      size_t size);

/// `src` in the legacy 8-bit file-name encoding (the classic Mac Roman
/// character set), each character it cannot represent written as "_", at
/// most size - 1 bytes, terminated. When `outName` is given it is first set
/// to std::nullopt, and afterwards receives the converted name read back as a
/// host string if that differs from `src` (the name lost characters or was
/// cut). `dst` is left empty when `src` is null, empty or not well-formed
/// UTF-8. Returns `dst`; `size` 0 or a null `dst` returns at once, writing
/// nothing and leaving `outName` as it was.
VTCORE_EXPORT char* utf8_to_legacyFileSystemCString(char* dst, const char* src, size_t size,
                                                    std::optional<icu::UnicodeString>* outName);

/// As utf8_to_legacyFileSystemCString with capacity min(size, 255), then as a
/// Pascal string: dst[0] holds the byte count (at most 254) and the bytes
/// follow with no terminator. Returns `dst`; `size` 0 or a null `dst` writes
/// nothing.
VTCORE_EXPORT char*
utf8_to_legacyFileSystemPascalString(char* dst, const char* src, size_t size,
                                     std::optional<icu::UnicodeString>* outName);

#endif
