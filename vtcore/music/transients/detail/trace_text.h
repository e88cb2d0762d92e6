// Internal: the pieces every record's Trace, TraceBrief and TraceStr share.
// Not installed.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <ostream>
#include <string>

namespace vtcore::detail {

/// Size of the static buffer behind each TraceStr function.
inline constexpr std::size_t kTraceStrBufferSize = 256;
/// The most characters a TraceStr text keeps.
inline constexpr std::size_t kTraceStrMaxChars = 254;

/// Writes the stream-state pointer the trace functions end with: the
/// stream's own address while neither its fail nor its bad bit is set, else
/// a null pointer.
inline void writeStreamState(std::ostream& stream) {
  const void* state = stream.fail() ? nullptr : static_cast<const void*>(&stream);
  stream << state;
}

/// Copies at most 254 characters of `text` and a terminating zero into
/// `buffer`; returns `buffer`.
inline const char* copyTraceText(char (&buffer)[kTraceStrBufferSize], const std::string& text) {
  const std::size_t length = std::min(text.size(), kTraceStrMaxChars);
  std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
  return buffer;
}

} // namespace vtcore::detail
