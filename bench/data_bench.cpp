// The data family next to its peers, in one run: KWCRC32 vs zlib's crc32,
// the swaps and sample converters vs memcpy of the same buffer, and
// decompressedData vs zlib's uncompress into a buffer of the right size.

#include <vtcore/core/text/checksum/crc.h>
#include <vtcore/core/text/checksum/data_compression.h>
#include <vtcore/core/text/dispatch/data_dispatch.h>
#include <vtcore/core/text/swap/byte_swap.h>
#include <vtcore/core/text/swap/sample_convert.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include <zlib.h>

namespace {

std::vector<unsigned char> randomBytes(std::size_t n) {
  std::vector<unsigned char> b(n);
  std::mt19937_64 rng(1);
  for (std::size_t i = 0; i < n; i += 8) {
    const auto v = rng();
    std::memcpy(b.data() + i, &v, std::min<std::size_t>(8, n - i));
  }
  return b;
}

// ---- CRC-32 ------------------------------------------------------------------

void BM_KWCRC32(benchmark::State& state) {
  const auto data = randomBytes(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state)
    benchmark::DoNotOptimize(KWCRC32(0, data.data(), static_cast<std::uint32_t>(data.size())));
  state.SetBytesProcessed(state.iterations() * state.range(0));
  state.SetLabel(vtcore::crc32MethodName(vtcore::crc32Method()));
}

void BM_zlib_crc32(benchmark::State& state) {
  const auto data = randomBytes(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state)
    benchmark::DoNotOptimize(crc32(0, data.data(), static_cast<uInt>(data.size())));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_crc32Method(benchmark::State& state) {
  const auto method = static_cast<vtcore::Crc32Method>(state.range(1));
  if (!vtcore::crc32MethodAvailable(method)) {
    state.SkipWithError("method not available");
    return;
  }
  const auto data = randomBytes(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state)
    benchmark::DoNotOptimize(vtcore::crc32Using(method, 0, data.data(), data.size()));
  state.SetBytesProcessed(state.iterations() * state.range(0));
  state.SetLabel(vtcore::crc32MethodName(method));
}

BENCHMARK(BM_KWCRC32)->Arg(64 << 10)->Arg(16 << 20);
BENCHMARK(BM_zlib_crc32)->Arg(64 << 10)->Arg(16 << 20);
BENCHMARK(BM_crc32Method)->ArgsProduct({{64 << 10}, {0, 1, 2}});

// ---- Swaps and converters (64 KiB of integer-side bytes) --------------------

constexpr std::size_t kBlock = 64 << 10;

void BM_memcpy(benchmark::State& state) {
  const auto src = randomBytes(kBlock);
  std::vector<unsigned char> dst(kBlock);
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), kBlock);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kBlock);
}
BENCHMARK(BM_memcpy);

// Runs `body` on the code path given as the benchmark's last argument.
bool usePath(benchmark::State& state, int index) {
  const auto path = static_cast<vtcore::DataCodePath>(state.range(index));
  if (!vtcore::setDataCodePath(path)) {
    state.SkipWithError("path not available");
    return false;
  }
  state.SetLabel(vtcore::dataCodePathName(path));
  return true;
}

void BM_PSwapInt(benchmark::State& state) {
  if (!usePath(state, 1))
    return;
  auto data = randomBytes(kBlock);
  const int width = static_cast<int>(state.range(0));
  for (auto _ : state) {
    if (width == 2)
      PSwapInt16(data.data(), kBlock / 2);
    else if (width == 4)
      PSwapInt32(data.data(), kBlock / 4);
    else
      PSwapInt64(data.data(), kBlock / 8);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kBlock);
}
BENCHMARK(BM_PSwapInt)->ArgsProduct({{2, 4, 8}, {0, 2, 1}});

void BM_ProcessSwapIntel(benchmark::State& state) {
  if (!usePath(state, 1))
    return;
  const int bits = static_cast<int>(state.range(0));
  const std::size_t count = kBlock / (bits / 8);
  auto data = randomBytes(count * (bits / 8));
  for (auto _ : state) {
    ProcessSwapIntel(data.data(), count, 0, bits);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(data.size()));
}
BENCHMARK(BM_ProcessSwapIntel)->ArgsProduct({{8, 16, 24, 32}, {0, 2, 1}});

void BM_ConvertNToFloat(benchmark::State& state) {
  if (!usePath(state, 1))
    return;
  const int width = static_cast<int>(state.range(0));
  const std::size_t count = kBlock / width;
  const auto src = randomBytes(count * width);
  std::vector<float> dst(count);
  const KWSampleConverter convert = GetConvertNToFloat(width, 0);
  for (auto _ : state) {
    convert(dst.data(), src.data(), count, nullptr);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(src.size()));
}
BENCHMARK(BM_ConvertNToFloat)->ArgsProduct({{2, 3, 4}, {0, 2, 1}});

void BM_ConvertFloatToN(benchmark::State& state) {
  if (!usePath(state, 1))
    return;
  const int width = static_cast<int>(state.range(0));
  const std::size_t count = kBlock / width;
  std::vector<float> src(count);
  std::mt19937 rng(2);
  std::uniform_real_distribution<float> pick(-1.0f, 1.0f);
  for (auto& f : src)
    f = pick(rng);
  std::vector<unsigned char> dst(count * width);
  const KWSampleConverter convert = GetConvertFloatToN(width, 0);
  for (auto _ : state) {
    convert(dst.data(), src.data(), count, nullptr);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(dst.size()));
}
BENCHMARK(BM_ConvertFloatToN)->ArgsProduct({{2, 3, 4}, {0, 2, 1}});

// ---- Decompression of 64 MiB from a highly compressible stream -------------

constexpr std::size_t kExpanded = 64 << 20;

const std::vector<unsigned char>& compressibleStream() {
  static const std::vector<unsigned char> stream = [] {
    std::vector<unsigned char> plain(kExpanded);
    for (std::size_t i = 0; i < plain.size(); ++i)
      plain[i] = static_cast<unsigned char>("tempo swing octave velocity "[i % 28]);
    uLongf size = compressBound(static_cast<uLong>(plain.size()));
    std::vector<unsigned char> packed(size);
    compress2(packed.data(), &size, plain.data(), static_cast<uLong>(plain.size()), 9);
    packed.resize(size);
    return packed;
  }();
  return stream;
}

void BM_decompressedData(benchmark::State& state) {
  const auto& stream = compressibleStream();
  for (auto _ : state) {
    auto out = vtcore::byte_buffer::decompressedData(stream);
    benchmark::DoNotOptimize(out->data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kExpanded));
  state.counters["stream_bytes"] = static_cast<double>(stream.size());
}

// The peer allocates its right-size result each time, as a caller must.
void BM_zlib_uncompress(benchmark::State& state) {
  const auto& stream = compressibleStream();
  for (auto _ : state) {
    std::vector<unsigned char> out(kExpanded);
    uLongf size = static_cast<uLongf>(out.size());
    uncompress(out.data(), &size, stream.data(), static_cast<uLong>(stream.size()));
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kExpanded));
}

// The same, into one buffer reused across iterations (no allocation at all).
void BM_zlib_uncompress_reused(benchmark::State& state) {
  const auto& stream = compressibleStream();
  std::vector<unsigned char> out(kExpanded);
  for (auto _ : state) {
    uLongf size = static_cast<uLongf>(out.size());
    uncompress(out.data(), &size, stream.data(), static_cast<uLong>(stream.size()));
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kExpanded));
}

BENCHMARK(BM_decompressedData)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_zlib_uncompress)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_zlib_uncompress_reused)->Unit(benchmark::kMillisecond);

} // namespace
