// The swaps, sample converters and checksums on every code path and CRC-32
// method the processor has, against the portable path and the reference
// method. Every buffer is a heap block of exactly its size, so AddressSanitizer
// sees any byte a vector loop or its masked tail reads or writes outside it.
#include <vtcore/core/text/checksum/crc.h>
#include <vtcore/core/text/dispatch/data_dispatch.h>
#include <vtcore/core/text/swap/byte_swap.h>
#include <vtcore/core/text/swap/sample_convert.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

void require(bool condition) {
  if (!condition)
    std::abort();
}

using vtcore::DataCodePath;

constexpr DataCodePath kPaths[] = {DataCodePath::Portable, DataCodePath::SSSE3, DataCodePath::AVX,
                                   DataCodePath::AVX2, DataCodePath::AVX512};

// The bytes one path leaves after a conversion of `input` selected by `kind`.
std::vector<unsigned char> runKind(int kind, const std::uint8_t* input, std::size_t size) {
  const int formats[] = {1, 2, 3, 4, -4, -8};
  const int format = formats[(kind >> 2) % 6];
  const int little = (kind >> 1) & 1;
  const bool toFloat = kind & 1;
  const std::size_t width = static_cast<std::size_t>(format < 0 ? -format : format);
  if (toFloat) {
    const std::size_t count = size / width;
    std::unique_ptr<unsigned char[]> src(new unsigned char[count * width]);
    std::memcpy(src.get(), input, count * width);
    // Zeroed: a format a direction lacks (little-endian doubles) writes
    // nothing, and every path must then leave the same bytes.
    std::unique_ptr<float[]> dst(new float[count]());
    GetConvertNToFloat(format, little)(dst.get(), src.get(), count, nullptr);
    const auto* bytes = reinterpret_cast<const unsigned char*>(dst.get());
    return std::vector<unsigned char>(bytes, bytes + count * 4);
  }
  const std::size_t count = size / 4;
  std::unique_ptr<float[]> src(new float[count]);
  std::memcpy(src.get(), input, count * 4);
  std::unique_ptr<unsigned char[]> dst(new unsigned char[count * width]());
  GetConvertFloatToN(format, little)(dst.get(), src.get(), count, nullptr);
  return std::vector<unsigned char>(dst.get(), dst.get() + count * width);
}

std::vector<unsigned char> runSwap(int bits, const std::uint8_t* input, std::size_t size) {
  std::unique_ptr<unsigned char[]> data(new unsigned char[size]);
  std::memcpy(data.get(), input, size);
  switch (bits) {
  case 0:
    PSwapInt16(data.get(), size / 2);
    break;
  case 1:
    PSwapInt64(data.get(), size / 8);
    break;
  default: // 8, 16, 24 or 32-bit samples
    ProcessSwapIntel(data.get(), size / static_cast<std::size_t>(bits / 8), 0, bits);
  }
  return std::vector<unsigned char>(data.get(), data.get() + size);
}

// Says once, on standard error, which paths this processor cannot fuzz.
void reportMissingPaths() {
  static const bool reported = [] {
    for (DataCodePath path : kPaths)
      if (!vtcore::dataCodePathAvailable(path))
        std::fprintf(stderr, "data_paths_fuzz: processor lacks %s, not fuzzed\n",
                     vtcore::dataCodePathName(path));
    for (auto method : {vtcore::Crc32Method::CarrylessFold, vtcore::Crc32Method::CarrylessFold256,
                        vtcore::Crc32Method::CarrylessFold512})
      if (!vtcore::crc32MethodAvailable(method))
        std::fprintf(stderr, "data_paths_fuzz: processor lacks %s, not fuzzed\n",
                     vtcore::crc32MethodName(method));
    return true;
  }();
  (void)reported;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  reportMissingPaths();
  if (size < 1)
    return 0;
  const int kind = data[0];
  ++data, --size;
  const int swapBits[] = {0, 1, 8, 16, 24, 32};

  const DataCodePath chosen = vtcore::dataCodePath();
  std::vector<unsigned char> converted, swapped;
  for (DataCodePath path : kPaths) {
    if (!vtcore::setDataCodePath(path))
      continue;
    auto c = runKind(kind, data, size);
    auto s = runSwap(swapBits[kind % 6], data, size);
    if (path == DataCodePath::Portable) {
      converted = std::move(c), swapped = std::move(s);
    } else {
      require(c == converted);
      require(s == swapped);
    }
  }
  vtcore::setDataCodePath(chosen);

  std::unique_ptr<unsigned char[]> block(new unsigned char[size]);
  std::memcpy(block.get(), data, size);
  const std::uint32_t start = kind * 0x01000193u;
  const std::uint32_t expected =
      vtcore::crc32Using(vtcore::Crc32Method::Reference, start, block.get(), size);
  for (auto method : {vtcore::Crc32Method::Slicing16, vtcore::Crc32Method::CarrylessFold,
                      vtcore::Crc32Method::CarrylessFold256, vtcore::Crc32Method::CarrylessFold512})
    if (vtcore::crc32MethodAvailable(method))
      require(vtcore::crc32Using(method, start, block.get(), size) == expected);

  std::unique_ptr<char[]> text(new char[size + 1]);
  std::memcpy(text.get(), data, size);
  text[size] = 0;
  (void)KWCRC16(text.get());
  return 0;
}
