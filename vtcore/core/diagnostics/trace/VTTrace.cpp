#include <vtcore/core/diagnostics/trace/VTTrace.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <limits>

std::vector<std::int32_t> gTraceIndent;
std::vector<std::int32_t> gLastContainerSizes;

int bbTraceIndentBegin(const char* /*name*/, std::string text, int indent) {
  // The text would open a framed block; the framing prints nothing here.
  (void)text.empty();
  // Summed wide and held within the stack's 32-bit range: nested huge
  // indents must not wrap round to a negative (blank-less) width.
  const std::int64_t sum =
      std::int64_t{gTraceIndent.empty() ? 0 : gTraceIndent.back()} + std::int64_t{indent};
  const auto width = static_cast<std::int32_t>(std::clamp<std::int64_t>(
      sum, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
  gTraceIndent.push_back(width);
  return width;
}

void bbTraceIndentEnd() {
  if (!gTraceIndent.empty())
    gTraceIndent.pop_back();
}

void IndentToCout() {
  if (gTraceIndent.empty())
    return;
  const int width = std::min(gTraceIndent.back(), kTraceMaxIndent);
  for (int i = 0; i < width; ++i)
    std::cout << " ";
}

std::ostream& TraceOutIndentBegin(std::ostream& stream, const char*, std::string, int) {
  return stream;
}
std::ostream& TraceOutIndentEnd(std::ostream& stream) {
  return stream;
}
std::ostream& TraceOutContainerBegin(std::ostream& stream, const char*, int, std::string, int) {
  return stream;
}
std::ostream& TraceOutContainerEndl(std::ostream& stream) {
  return stream;
}
std::ostream& TraceOutContainerEnd(std::ostream& stream) {
  return stream;
}
