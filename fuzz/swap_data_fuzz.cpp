// Copy-and-swap tables: never more than `length` bytes written, the result is
// 0 or the size of the item that did not fit, and a second pass restores the
// source.
#include <vtcore/core/text/swap/byte_swap.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2)
    return 0;
  const std::size_t tableLength = std::min<std::size_t>(data[0], size - 1);
  std::vector<signed char> table(data + 1, data + 1 + tableLength);
  table.push_back(0);
  const std::uint8_t* src = data + 1 + tableLength;
  const std::size_t length = size - 1 - tableLength;

  auto* dst = static_cast<unsigned char*>(std::malloc(length + 1)); // exact size for ASan
  const int result = SwapData(dst, src, table.data(), static_cast<std::int64_t>(length));

  std::size_t used = 0;
  int expected = 0;
  for (signed char t : table) {
    if (t == 0)
      break;
    const std::size_t n = static_cast<std::size_t>(t < 0 ? -t : t);
    if (n > length - used) {
      expected = static_cast<int>(n);
      break;
    }
    used += n;
  }
  if (result != expected)
    std::abort();

  // Swapping the copy back in place gives the source again.
  if (SwapData(dst, dst, table.data(), static_cast<std::int64_t>(used)) != 0 && expected == 0)
    std::abort();
  if (std::memcmp(dst, src, used) != 0)
    std::abort();
  std::free(dst);
  return 0;
}
