// The UTF-8 walkers and copies on random bytes with random capacities. Every
// string and destination is a heap block of exactly its size, so AddressSanitizer
// sees any byte read or written outside it. The fast validation and counting
// are checked against the byte-by-byte rules on every code path the processor
// has (utf8_is_ascii against its rule in the differential test).

#include "../tests/core/text/utf8_reference.h"

#include <vtcore/core/text/dispatch/data_dispatch.h>
#include <vtcore/core/text/utf8/utf8.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

void require(bool condition) {
  if (!condition)
    std::abort();
}

std::unique_ptr<char[]> exactBuffer(std::size_t size, char fill) {
  std::unique_ptr<char[]> buffer(new char[size]);
  std::memset(buffer.get(), fill, size);
  return buffer;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3)
    return 0;
  // Three control bytes: a capacity, a character count and a search byte.
  const std::size_t capacity = data[0] % 24;
  const std::size_t count = data[1] % 16;
  const int c = static_cast<signed char>(data[2]);
  data += 3;
  size -= 3;

  std::unique_ptr<char[]> s(new char[size + 1]);
  std::memcpy(s.get(), data, size);
  s[size] = 0;
  const std::size_t length = std::strlen(s.get());
  const auto* u = reinterpret_cast<const unsigned char*>(s.get());

  const int valid = utf8_reference::check(u, length);
  const std::size_t characters = utf8_reference::strlen(u, length);
  const vtcore::DataCodePath chosen = vtcore::dataCodePath();
  const bool ascii = std::none_of(u, u + length, [](unsigned char b) { return b >= 0x80; });
  for (auto path :
       {vtcore::DataCodePath::Portable, vtcore::DataCodePath::SSSE3, vtcore::DataCodePath::AVX,
        vtcore::DataCodePath::AVX2, vtcore::DataCodePath::AVX512}) {
    if (!vtcore::setDataCodePath(path)) {
      static bool reported[5] = {};
      if (!reported[static_cast<int>(path)]) {
        reported[static_cast<int>(path)] = true;
        std::fprintf(stderr, "utf8_fuzz: processor lacks %s, not fuzzed\n",
                     vtcore::dataCodePathName(path));
      }
      continue;
    }
    require(utf8_check(s.get()) == valid);
    require(utf8_strlen(s.get()) == characters);
    require(utf8_is_ascii(s.get(), 0) == (ascii ? 1 : 0));
  }
  vtcore::setDataCodePath(chosen);
  require(utf8_check_no_assertion(s.get()) == utf8_check(s.get()));
  (void)utf8_is_ascii(s.get(), capacity);
  for (const char* p = s.get(); p != nullptr && *p != 0;)
    p = utf8_next(p);

  // utf8_previous has no lower bound: only walk back while a lead byte lies
  // ahead of the position inside the string.
  std::size_t firstLead = 0;
  while (firstLead < length && (u[firstLead] & 0xC0) == 0x80)
    ++firstLead;
  const char* end = s.get() + length;
  for (const char* p = end; p != nullptr && p > s.get() + firstLead;)
    p = utf8_previous(p);

  const char* found = utf8_strchr(s.get(), c);
  require(found == nullptr || (found >= s.get() && found <= end));
  const char* last = utf8_strrchr(s.get(), c);
  require(last == nullptr || (last >= s.get() && last <= end));

  // The copies never write outside their capacity and always produce a
  // prefix of the source (after any leading continuation bytes).
  const char* from = s.get();
  while ((static_cast<unsigned char>(*from) & 0xC0) == 0x80)
    ++from;
  {
    auto dst = exactBuffer(capacity == 0 ? 1 : capacity, '\x55');
    utf8_strncpy(dst.get(), s.get(), capacity);
    std::size_t copied = strnlen(dst.get(), capacity);
    require(std::memcmp(dst.get(), from, copied) == 0);
  }
  if (capacity > 0) {
    auto dst = exactBuffer(capacity, '\x55');
    utf8_strlcpy(dst.get(), s.get(), capacity);
    require(std::strncmp(dst.get(), from, std::strlen(dst.get())) == 0);
    utf8_strlcat(dst.get(), s.get(), capacity);
    require(std::strlen(dst.get()) < capacity);

    auto chars = exactBuffer(capacity, '\x55');
    utf8_copy_chars(chars.get(), s.get(), count, capacity);
    require(std::strlen(chars.get()) < capacity);
    require(chars[0] == 0 || utf8_check(s.get()) == 1);
    require(std::strncmp(chars.get(), s.get(), std::strlen(chars.get())) == 0);

    auto unterminated = exactBuffer(capacity, 'x');
    utf8_strlcat(unterminated.get(), s.get(), capacity);
  }
  return 0;
}
