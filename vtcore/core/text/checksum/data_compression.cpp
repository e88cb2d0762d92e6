#include <vtcore/core/text/checksum/data_compression.h>

#include <vtcore/core/diagnostics/exception/exception.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

#include <sys/mman.h>
#include <zlib.h>

namespace vtcore::byte_buffer {
namespace {

// Ends an inflate stream on every path out of decompressedData.
struct InflateStream {
  z_stream stream{};
  bool open = false;
  ~InflateStream() {
    if (open)
      inflateEnd(&stream);
  }
};

constexpr std::size_t kHugePage = std::size_t{2} << 20;

// Asks for transparent huge pages on the whole 2 MiB pages inside a large,
// not yet touched block: one fault per 2 MiB instead of 512. Only a hint.
void preferHugePages(void* block, std::size_t size) {
  if (size < 4 * kHugePage)
    return;
  const auto begin = reinterpret_cast<std::uintptr_t>(block);
  const auto start = (begin + kHugePage - 1) & ~(kHugePage - 1);
  const auto end = (begin + size) & ~(kHugePage - 1);
  if (end > start)
    madvise(reinterpret_cast<void*>(start), end - start, MADV_HUGEPAGE);
}

// The output of an inflate: a block that grows without copying. Small
// blocks live on the heap; past a few MiB the block moves once into its own
// mapping that doubles by mremap (page tables move, bytes do not) and asks
// for transparent huge pages, since it is written once from start to end and
// a 2 MiB page costs one fault instead of 512.
class OutputBlock {
public:
  OutputBlock() = default;
  OutputBlock(const OutputBlock&) = delete;
  OutputBlock& operator=(const OutputBlock&) = delete;
  ~OutputBlock() {
    if (m_mapped != 0)
      munmap(m_data, m_mapped);
    else
      std::free(m_data);
  }

  unsigned char* data() const { return m_data; }

  /// Makes at least `size` bytes usable, keeping the contents; false when
  /// memory runs out.
  bool reserve(std::size_t size) {
    if (size <= m_usable)
      return true;
    if (size <= kHeapLimit) {
      auto* grown = static_cast<unsigned char*>(std::realloc(m_data, size));
      if (grown == nullptr)
        return false;
      m_data = grown;
      m_usable = size;
      return true;
    }
    std::size_t target = std::max(size, m_usable * 2);
    target = (target + kHugePage - 1) & ~(kHugePage - 1);
    if (target < size)
      return false; // overflow
    if (m_mapped == 0) {
      void* block =
          mmap(nullptr, target, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
      if (block == MAP_FAILED)
        return false;
      madvise(block, target, MADV_HUGEPAGE);
      if (m_data != nullptr)
        std::memcpy(block, m_data, m_usable);
      std::free(m_data);
      m_data = static_cast<unsigned char*>(block);
    } else {
      void* block = mremap(m_data, m_mapped, target, MREMAP_MAYMOVE);
      if (block == MAP_FAILED)
        return false;
      m_data = static_cast<unsigned char*>(block);
    }
    m_mapped = target;
    m_usable = target;
    return true;
  }

private:
  static constexpr std::size_t kHeapLimit = std::size_t{4} << 20;
  unsigned char* m_data = nullptr;
  std::size_t m_usable = 0;
  std::size_t m_mapped = 0;
};

std::string describe(std::span<const std::uint8_t> bytes) {
  char text[64];
  std::snprintf(text, sizeof text, "<byte buffer: %zu bytes>", bytes.size());
  return text;
}

} // namespace

std::uint64_t compressedDataCapacity(std::size_t length) noexcept {
  // n + n * 0.001 rather than n * 1.001: the constant 1.001 is just below its
  // decimal value in binary, which would lose a byte on round sizes
  // (1,000,000 must give 1,001,012).
  const double n = static_cast<double>(length);
  return static_cast<std::uint64_t>(n + n * 0.001 + 12.0);
}

std::optional<std::vector<std::uint8_t>> compressedData(std::span<const std::uint8_t> bytes) {
  if (bytes.empty())
    return std::nullopt;
  const std::uint64_t capacity = compressedDataCapacity(bytes.size());
  int status = Z_MEM_ERROR;
  std::vector<std::uint8_t> buffer;
  uLongf produced = 0;
  if (capacity <= std::numeric_limits<uLongf>::max() && capacity <= buffer.max_size()) {
    try {
      buffer.resize(static_cast<std::size_t>(capacity));
      produced = static_cast<uLongf>(capacity);
      status = compress(buffer.data(), &produced, bytes.data(), static_cast<uLong>(bytes.size()));
    } catch (const std::bad_alloc&) {
      status = Z_MEM_ERROR;
    }
  }
  if (status != Z_OK) {
    // Reported as an internal inconsistency, under the source line the
    // report has always carried.
    handleAssertionFailure(
        {"compressedData", describe(bytes), "data_compression.cpp", 36, "-compressedData error"});
    return std::nullopt;
  }
  // The working buffer becomes the result: it keeps its full allocation.
  buffer.resize(produced);
  return buffer;
}

std::optional<std::vector<std::uint8_t>> decompressedData(std::span<const std::uint8_t> bytes) {
  const std::size_t n = bytes.size();
  if (n == 0)
    return std::vector<std::uint8_t>{};
  if (n > std::numeric_limits<uInt>::max())
    return std::nullopt; // zlib takes its input length as a 32-bit count
  const std::size_t step = n / 2;
  std::size_t capacity = n + step;
  OutputBlock buffer;
  if (!buffer.reserve(capacity))
    return std::nullopt;

  InflateStream inflater;
  inflater.stream.next_in = const_cast<Bytef*>(bytes.data());
  inflater.stream.avail_in = static_cast<uInt>(n);
  if (inflateInit(&inflater.stream) != Z_OK)
    return std::nullopt;
  inflater.open = true;

  std::size_t produced = 0;
  bool done = false;
  for (;;) {
    if (produced >= capacity) {
      if (step > std::numeric_limits<std::size_t>::max() - capacity)
        return std::nullopt;
      if (!buffer.reserve(capacity + step))
        return std::nullopt;
      capacity += step;
    }
    const std::size_t space = capacity - produced;
    // zlib counts output space in 32 bits; a larger gap is filled in pieces.
    const uInt chunk =
        static_cast<uInt>(std::min<std::size_t>(space, std::numeric_limits<uInt>::max()));
    inflater.stream.next_out = buffer.data() + produced;
    inflater.stream.avail_out = chunk;
    const int status = inflate(&inflater.stream, Z_SYNC_FLUSH);
    produced += chunk - inflater.stream.avail_out;
    if (status == Z_STREAM_END) {
      done = true;
      break;
    }
    // Anything but plain progress (an error, a needed dictionary, or no room
    // to make progress, as for a one-byte input) ends without a result.
    if (status != Z_OK)
      break;
  }
  inflater.open = false;
  if (inflateEnd(&inflater.stream) != Z_OK || !done)
    return std::nullopt;

  try {
    std::vector<std::uint8_t> result;
    result.reserve(produced);
    preferHugePages(result.data(), produced);
    result.insert(result.end(), buffer.data(), buffer.data() + produced);
    return result;
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

} // namespace vtcore::byte_buffer
