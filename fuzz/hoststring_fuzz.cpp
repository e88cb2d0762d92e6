// Conversions between UTF-8 bytes and host strings, both ways, with random
// capacities: text that converts must round-trip, and no conversion may touch
// bytes outside its destination.

#include <vtcore/core/text/utf8/utf8.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

namespace {

void require(bool condition) {
  if (!condition)
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1)
    return 0;
  const std::size_t capacity = data[0] % 40;
  data += 1;
  size -= 1;

  // The bytes as a UTF-8 C string.
  std::unique_ptr<char[]> s(new char[size + 1]);
  std::memcpy(s.get(), data, size);
  s[size] = 0;
  const std::size_t length = std::strlen(s.get());

  std::optional<icu::UnicodeString> host = utf8_to_qxstring(s.get());
  require(utf8_to_zvstring(s.get()) == host);
  if (host) {
    std::unique_ptr<char[]> back(new char[length + 1]);
    utf8_from_zvstring(back.get(), host, length + 1);
    require(std::strcmp(back.get(), s.get()) == 0);
  }

  // The same bytes as UTF-16 units, unpaired surrogates included.
  icu::UnicodeString units;
  for (std::size_t i = 0; i + 1 < size; i += 2)
    units.append(static_cast<char16_t>(data[i] | (data[i + 1] << 8)));
  if (capacity > 0) {
    // One destination of exactly `capacity` bytes for every conversion.
    std::unique_ptr<char[]> dst(new char[capacity]);
    utf8_from_qxstring(dst.get(), units, capacity);
    require(std::strlen(dst.get()) < capacity);
    require(std::strlen(utf8_to_fileSystemRepresentation(dst.get(), s.get(), capacity)) < capacity);
    std::optional<icu::UnicodeString> lost;
    require(std::strlen(utf8_to_legacyFileSystemCString(dst.get(), s.get(), capacity, &lost)) <
            capacity);
    const auto* pascal = reinterpret_cast<const unsigned char*>(
        utf8_to_legacyFileSystemPascalString(dst.get(), s.get(), capacity, &lost));
    require(pascal[0] < capacity && pascal[0] <= 254);
  }
  return 0;
}
