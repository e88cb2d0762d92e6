// The trace module: indented, self-printing records on an output stream.
//
// A global stack of indentation widths frames nested traces; IndentToCout
// writes the current width to standard output. The framing hooks are
// deliberately empty, so a trace consists only of the indentation and each
// element's own text. Not thread-safe: one tracing thread at a time.
#pragma once

#include <vtcore/export.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

/// Stack of absolute indentation widths, in blanks; the top is current.
extern VTCORE_EXPORT std::vector<std::int32_t> gTraceIndent;
/// Kept for compatibility; nothing reads or writes it.
extern VTCORE_EXPORT std::vector<std::int32_t> gLastContainerSizes;

/// The most blanks IndentToCout writes.
inline constexpr int kTraceMaxIndent = 2048;

/// Pushes (current width, or 0) + `indent` and returns the pushed width.
/// A sum beyond the 32-bit range is held at its nearest end (INT32_MAX or
/// INT32_MIN) instead of wrapping; IndentToCout writes at most 2048 blanks
/// whatever the width. `name` and `text` are accepted and not printed.
VTCORE_EXPORT int bbTraceIndentBegin(const char* name, std::string text, int indent);

/// Pops the current width; an empty stack is left alone.
VTCORE_EXPORT void bbTraceIndentEnd();

/// Writes min(current width, 2048) blanks to standard output; nothing when
/// the stack is empty or the width is 0 or negative.
VTCORE_EXPORT void IndentToCout();

/// Framing hooks: each returns `stream` and writes nothing.
VTCORE_EXPORT std::ostream& TraceOutIndentBegin(std::ostream& stream, const char* name,
                                                std::string text, int indent);
VTCORE_EXPORT std::ostream& TraceOutIndentEnd(std::ostream& stream);
VTCORE_EXPORT std::ostream& TraceOutContainerBegin(std::ostream& stream, const char* name,
                                                   int count, std::string text, int indent);
VTCORE_EXPORT std::ostream& TraceOutContainerEndl(std::ostream& stream);
VTCORE_EXPORT std::ostream& TraceOutContainerEnd(std::ostream& stream);

/// Prints every element of `container` (a copy) with its own insertion
/// operator, each preceded by IndentToCout. The indentation goes to standard
/// output whatever `stream` is; with another stream the blanks and the
/// elements land in different places, as they always have. `flags` is unused.
template <typename T>
std::ostream& TraceOutContainer(std::ostream& stream, T container, const char* name, int flags) {
  (void)flags;
  TraceOutContainerBegin(stream, name, static_cast<int>(container.size()), std::string(), 2);
  for (const auto& element : container) {
    IndentToCout();
    stream << element;
    TraceOutContainerEndl(stream);
  }
  return TraceOutContainerEnd(stream);
}

// Records print themselves through free functions declared next to their
// type: TraceStream(stream, record) and TraceStreamBrief(stream, record), the
// brief form writing the same text; their insertion operator calls
// TraceStream.
