#include <vtcore/core/text/data_compression.h>

#include <vtcore/core/diagnostics/exception.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

#include <zlib.h>

namespace vtcore::byte_buffer {
namespace {

struct FreeDeleter {
  void operator()(unsigned char* p) const noexcept { std::free(p); }
};
using RawBuffer = std::unique_ptr<unsigned char, FreeDeleter>;

// Ends an inflate stream on every path out of decompressedData.
struct InflateStream {
  z_stream stream{};
  bool open = false;
  ~InflateStream() {
    if (open)
      inflateEnd(&stream);
  }
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
  // A growable block rather than a vector: realloc of a large block remaps
  // pages instead of copying, so the small growth steps of a highly
  // compressible stream stay linear, and nothing is zero-filled first.
  RawBuffer buffer(static_cast<unsigned char*>(std::malloc(capacity)));
  if (!buffer)
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
      auto* grown = static_cast<unsigned char*>(std::realloc(buffer.get(), capacity + step));
      if (grown == nullptr)
        return std::nullopt;
      buffer.release();
      buffer.reset(grown);
      capacity += step;
    }
    const std::size_t space = capacity - produced;
    // zlib counts output space in 32 bits; a larger gap is filled in pieces.
    const uInt chunk =
        static_cast<uInt>(std::min<std::size_t>(space, std::numeric_limits<uInt>::max()));
    inflater.stream.next_out = buffer.get() + produced;
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
    result.insert(result.end(), buffer.get(), buffer.get() + produced);
    return result;
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

} // namespace vtcore::byte_buffer
