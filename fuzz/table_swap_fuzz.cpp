// Record-table swapping with random tables and limits: nothing at or past the
// limit may be touched, the saved limit comes back, and a table without
// record lengths is its own inverse.
#include <vtcore/core/text/swap/byte_swap.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3)
    return 0;
  // Layout: table length, limit offset, table bytes, record bytes.
  const std::size_t tableLength = std::min<std::size_t>(data[0], size - 2);
  const std::uint8_t limitByte = data[1];
  std::vector<unsigned char> table(data + 2, data + 2 + tableLength);
  // Terminated even when it ends inside a counted entry (1 or 2 reads up to
  // three more bytes): tables are trusted to be well formed.
  table.insert(table.end(), 4, 0);
  const std::uint8_t* recordBytes = data + 2 + tableLength;
  const std::size_t recordSize = size - 2 - tableLength;

  // An exact-size heap block, so that any access past it is caught.
  auto* record = static_cast<unsigned char*>(std::malloc(recordSize + 1));
  std::memcpy(record, recordBytes, recordSize);
  const std::size_t limitOffset = recordSize == 0 ? 0 : limitByte % (recordSize + 1);
  unsigned char* limit = record + limitOffset;

  void* const before = GetPIntelLimit();
  LimitTabIntelSwap(record, table.data(), limit);
  if (GetPIntelLimit() != before)
    std::abort();
  if (std::memcmp(record + limitOffset, recordBytes + limitOffset, recordSize - limitOffset) != 0)
    std::abort(); // wrote at or past the limit

  if (std::find(table.begin(), table.end(), 21) == table.end()) {
    LimitTabIntelSwap(record, table.data(), limit);
    if (std::memcmp(record, recordBytes, recordSize) != 0)
      std::abort(); // swapping twice must restore the record
  }
  std::free(record);
  return 0;
}
