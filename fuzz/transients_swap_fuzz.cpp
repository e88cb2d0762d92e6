// SwapTransientCallback on random blocks and byte counts: it must stay inside
// the block, touch only the header words and whole records, and undo itself.
#include <vtcore/music/transients/transients.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2)
    return 0;
  // The first two bytes pick how much of the rest the block is, so that
  // counts around 1024 and around record boundaries all come up.
  const std::size_t available = size - 2;
  const std::size_t wanted = (std::size_t{data[0]} << 8 | data[1]) + 960;
  const std::size_t count = wanted < available ? wanted : available;
  // An exact-size heap block lets the sanitizer see any write past the end.
  std::vector<std::uint8_t> block(data + 2, data + 2 + count);
  const std::vector<std::uint8_t> original = block;

  SwapTransientCallback(block.data(), block.size(), (data[0] & 1) != 0);
  if (count < 1024) {
    if (block != original)
      std::abort();
    return 0;
  }
  const std::size_t end = 1024 + (count - 1024) / 36 * 36;
  if (std::memcmp(block.data() + 16, original.data() + 16, 1024 - 16) != 0 ||
      std::memcmp(block.data() + end, original.data() + end, count - end) != 0)
    std::abort();
  for (std::size_t record = 1024; record < end; record += 36)
    for (std::size_t b = 0; b < 8; ++b)
      if (block[record + b] != original[record + 7 - b])
        std::abort();
  SwapTransientCallback(block.data(), block.size(), (data[0] & 1) == 0);
  if (block != original)
    std::abort();
  return 0;
}
