// The validation and stepping rules of the UTF-8 walkers, transcribed one byte
// at a time with no fast path: the oracle of the differential test and the
// fuzzer.
#pragma once

#include <cstddef>

namespace utf8_reference {

inline int check(const unsigned char* s, std::size_t n) {
  // Lead-byte masks in the order the rule tests them; the last one, 0xFD,
  // makes 0xFC and 0xFE both six-byte leads.
  static const unsigned masks[][2] = {
      {0xE0, 0xC0}, {0xF0, 0xE0}, {0xF8, 0xF0}, {0xFC, 0xF8}, {0xFD, 0xFC}};
  std::size_t expectedEnd = 0;
  bool inSequence = false;
  for (std::size_t i = 0; i < n; ++i) {
    unsigned b = s[i];
    if ((b & 0xC0) == 0x80 && !inSequence)
      return 0;
    if (b < 0x80) {
      if (expectedEnd != i)
        return 0;
      expectedEnd = i + 1;
      inSequence = false;
    }
    for (std::size_t k = 0; b >= 0x80 && k < 5; ++k)
      if ((b & masks[k][0]) == masks[k][1]) {
        expectedEnd = i + k + 2, inSequence = true;
        break;
      }
  }
  return expectedEnd == n ? 1 : 0;
}

inline std::size_t strlen(const unsigned char* s, std::size_t n) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < n; ++count) {
    unsigned b = s[i];
    std::size_t k = b < 0x80 ? 1 : b < 0xC2 ? 0 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : b < 0xF5 ? 4 : 0;
    if (k == 0 || i + k > n)
      break;
    i += k;
  }
  return count;
}

} // namespace utf8_reference
