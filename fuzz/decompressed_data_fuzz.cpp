// decompressedData on random and mutated streams: null or bytes, never a
// crash or a leak; and every compressedData stream comes back intact.
#include <vtcore/core/text/checksum/data_compression.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using vtcore::byte_buffer::compressedData;
  using vtcore::byte_buffer::decompressedData;
  const std::span<const std::uint8_t> input(data, size);

  // The input as a stream of its own.
  (void)decompressedData(input);

  if (size == 0)
    return 0;
  auto packed = compressedData(input);
  if (!packed)
    std::abort();
  auto back = decompressedData(*packed);
  if (!back || *back != std::vector<std::uint8_t>(data, data + size))
    std::abort();

  // A mutation of that stream, steered by the input: one flipped byte and a
  // possible cut. Such a stream may still be valid; it must just not crash.
  const std::size_t at = data[0] % packed->size();
  (*packed)[at] ^= static_cast<std::uint8_t>(data[size - 1] | 1);
  if (size > 1 && (data[1] & 1))
    packed->resize(data[1] % packed->size());
  (void)decompressedData(*packed);
  return 0;
}
