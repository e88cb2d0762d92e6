// Formats arbitrary format strings against a fixed set of arguments of every
// kind, and with none: no conversion may read past the arguments given.
#include <vtcore/core/diagnostics/log/format.h>

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using vtcore::detail::FormatArgument;
  const std::string format(reinterpret_cast<const char*>(data), size);
  const FormatArgument arguments[] = {FormatArgument(-7),
                                      FormatArgument(42u),
                                      FormatArgument(2.5),
                                      FormatArgument("text"),
                                      FormatArgument(icu::UnicodeString::fromUTF8("héllo")),
                                      FormatArgument(static_cast<const void*>(data))};
  for (std::size_t count = 0; count <= std::size(arguments); count += 3) {
    const std::string once = vtcore::detail::formatSafely(format, std::span(arguments, count));
    (void)vtcore::detail::formatSafely(once, {});
  }
  return 0;
}
