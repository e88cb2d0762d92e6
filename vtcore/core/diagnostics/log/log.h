// Levelled logging to the system log and standard error, and assertions that
// log and may ask the user.
#pragma once

#include <vtcore/core/diagnostics/log/format.h>
#include <vtcore/export.h>

#include <stdbool.h>

#ifdef __cplusplus
#include <atomic>
#include <optional>
#include <unicode/unistr.h>
#endif

VTCORE_EXTERN_C_BEGIN

/// Returns 1 when the environment variable "VTCORE_TRACE_WITHOUT_BANNER" is
/// not set, else 0 (read at every call). Pass the result as a banner flag.
VTCORE_EXPORT int KWLogWithSyslogBanner(void);

/// Logs one message at `level` (0 most severe .. 7 debug, the syslog
/// severities).
///
/// The message is `format` filled printf-style with the arguments, or no
/// message when `format` is null; it is never truncated. The system log gets
/// a record with "QXLog Local Time" and "QXLog Thread" (only with a banner),
/// "ReadUID", "Level" and "Message" (the tag when there is no message), under
/// the identity `tag` ("KWLogCString" when `tag` is null). Standard error gets
/// the banner "YYYY-MM-DD hh:mm:ss.mmm process[pid:tid] tag: " (when
/// `withBanner` is true) and the message, with a line feed added unless the
/// message ends in a line feed or a backspace byte; it is written when
/// "QXLOG_FORCE_STDERR" is set (ignored in set-user-id processes), when
/// standard error is a regular file, or when it is open and is not the
/// journal stream systemd gave this process. One writev per line, serialised
/// across threads.
///
/// Does nothing when `level` is outside 0..7 or when both `tag` and `format`
/// are null. A closed standard error only loses the standard-error copy.
/// Out of memory, the message is absent when it cannot be formatted and the
/// system-log record is absent; the standard-error line is written without
/// allocating. No exception leaves this function.
VTCORE_EXPORT void KWLogCString(int level, bool withBanner, const char* tag, const char* format,
                                ...) __attribute__((format(printf, 4, 5)));

/// Assertion check. When `condition` is 0: sets `sAssertionFailed`, logs
/// "ASSERT(<expression>) in <location> failed.\n" (cut to 4095 bytes) at
/// level 3 with tag "dbgASSERT", and asks the user through the alert
/// presenter (vtcore/core/platform/alert.h) with the buttons "Resume",
/// "Debugger" and "Don't show again" (with a counter) or "Stop" (without).
///
/// `counter` (may be null) is the call site's display counter: -1 shows every
/// time, n > 0 shows n more times (decremented after each showing), 0 or
/// below -1 is silenced. "Don't show again" sets it to 0; "Stop" without a
/// counter ends the process with status 1.
///
/// The logged text is formatted a second time as the logger's format, so a
/// "%%" in the expression prints as "%"; conversions with no argument are
/// printed as they stand. Returns 1 when the user chose "Debugger", else 0.
/// Out of memory, the text still goes to standard error and the alert is
/// answered as cancelled (0); no exception leaves this function.
VTCORE_EXPORT int dbgASSERT(int condition, const char* expression, const char* location,
                            int* counter);

/// Returns whether the last dbgASSERT call saw a false condition, and clears
/// that state (read and clear).
VTCORE_EXPORT int dbgAssertionFailed(void);

/// The assertion kinds of bbAssert; the library never distinguishes them.
typedef enum TAssertType {
  kAssertTypeDefault = 0,
  kAssertTypeDebug = 1,
  kAssertTypeRelease = 2
} TAssertType;

/// Assertion with source position. When `condition` is false, composes
/// "AAssert (<expression>) in <file>, line <line> failed." and passes it to
/// dbgASSERT(0, text, file, counter). Returns true to go on, false when the
/// user asked for the debugger. `line` is the line number as text; `type` is
/// ignored. Null texts print as "(null)". Out of memory it behaves as
/// dbgASSERT does; no exception leaves this function.
VTCORE_EXPORT bool bbAssert(bool condition, const char* expression, const char* line,
                            const char* file, TAssertType type, int* counter);

/// Memory-dump entry point, kept for compatibility: it prints nothing.
VTCORE_EXPORT void KWOutputMemory(const void* address, int byteCount);

VTCORE_EXTERN_C_END

#ifdef __cplusplus

/// 1 when the last dbgASSERT saw a false condition, else 0. Relaxed atomic:
/// threads racing on it see one of the values written, nothing stronger.
extern VTCORE_EXPORT std::atomic<int> sAssertionFailed;

namespace vtcore::detail {
/// The logger after formatting: logs `message` (`length` bytes; null for no
/// message) exactly as KWLogCString logs its formatted text.
/// The standard-error copy never allocates.
VTCORE_EXPORT void logMessage(int level, bool withBanner, const char* tag, const char* message,
                              std::size_t length) noexcept;
/// KWLog after its arguments are packed; the message is absent when it
/// cannot be formatted (out of memory, a description that throws).
VTCORE_EXPORT void logFormatted(int level, bool withBanner, const char* tag,
                                const std::optional<icu::UnicodeString>& format,
                                std::span<const FormatArgument> arguments) noexcept;
/// Turns each "%%" of `text` into "%" in place.
VTCORE_EXPORT void collapsePercentSigns(char* text) noexcept;
} // namespace vtcore::detail

/// Logs a message whose format is a host string. The format is filled with
/// `arguments`: "%@" prints the description of the argument standing there
/// (a host string or text as itself, an object by its description(), an
/// exception by its what(), a number in decimal) and every other conversion
/// behaves as printf's. The finished text is then handed to the logger as its
/// format, as it always has been: a "%%" that survives the first pass becomes
/// "%". A conversion with no argument left for it, in either pass, is printed
/// as it stands; an argument is never read that is not there. A null
/// `format` (std::nullopt) logs the tag alone, as KWLogCString does. When
/// the message cannot be made (out of memory, a description that throws) it
/// is absent and the tag alone is logged; no exception leaves KWLog.
template <typename... Arguments>
void KWLog(int level, bool withBanner, const char* tag,
           const std::optional<icu::UnicodeString>& format,
           const Arguments&... arguments) noexcept {
  try {
    const vtcore::detail::FormatArgument packed[] = {vtcore::detail::FormatArgument(arguments)...,
                                                     vtcore::detail::FormatArgument()};
    vtcore::detail::logFormatted(level, withBanner, tag, format,
                                 std::span(packed, sizeof...(Arguments)));
  } catch (...) {
    vtcore::detail::logFormatted(level, withBanner, tag, std::nullopt, {});
  }
}

#endif
