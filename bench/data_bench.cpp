// The data family next to its peers, in one run: KWCRC32 vs Intel ISA-L's
// crc32_gzip_refl, libdeflate and zlib; KWCRC16 vs a byte-table loop; the
// swaps and sample converters vs memcpy and the compiler's own loops (built
// for this machine and for AVX2); decompressedData vs zlib's uncompress.
// Every pair is checked for the same result before it is timed, and every
// buffer is 64-byte aligned. A path or method the processor lacks is
// reported as skipped, with its name.

#include "aligned_buffer.h"
#include "compiler_loops.h"

#include <vtcore/core/text/checksum/crc.h>
#include <vtcore/core/text/checksum/data_compression.h>
#include <vtcore/core/text/dispatch/data_dispatch.h>
#include <vtcore/core/text/swap/byte_swap.h>
#include <vtcore/core/text/swap/sample_convert.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <isa-l/crc.h>
#include <libdeflate.h>
#include <zlib.h>

namespace {

using bench::AlignedBuffer;

AlignedBuffer<unsigned char> randomBytes(std::size_t n) {
  AlignedBuffer<unsigned char> b(n);
  std::mt19937_64 rng(1);
  for (std::size_t i = 0; i < n; i += 8) {
    const auto v = rng();
    std::memcpy(b.data() + i, &v, std::min<std::size_t>(8, n - i));
  }
  return b;
}

void reportMismatch(benchmark::State& state, const char* what) {
  state.SkipWithError((std::string("result differs from VTCore's: ") + what).c_str());
}

// ---- CRC-32 ------------------------------------------------------------------

// Every peer gives zlib's value for the same data and start.
std::uint32_t vtcoreCrc(const AlignedBuffer<unsigned char>& d) {
  return KWCRC32(0, d.data(), static_cast<std::uint32_t>(d.size()));
}

void BM_KWCRC32(benchmark::State& state) {
  const auto data = randomBytes(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state)
    benchmark::DoNotOptimize(vtcoreCrc(data));
  state.SetBytesProcessed(state.iterations() * state.range(0));
  state.SetLabel(vtcore::crc32MethodName(vtcore::crc32Method()));
}

void BM_isal_crc32_gzip_refl(benchmark::State& state) {
  const auto data = randomBytes(static_cast<std::size_t>(state.range(0)));
  const auto length = static_cast<std::uint64_t>(data.size());
  if (crc32_gzip_refl(0, data.data(), length) != vtcoreCrc(data))
    return reportMismatch(state, "crc32_gzip_refl");
  for (auto _ : state)
    benchmark::DoNotOptimize(crc32_gzip_refl(0, data.data(), length));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_libdeflate_crc32(benchmark::State& state) {
  const auto data = randomBytes(static_cast<std::size_t>(state.range(0)));
  if (libdeflate_crc32(0, data.data(), data.size()) != vtcoreCrc(data))
    return reportMismatch(state, "libdeflate_crc32");
  for (auto _ : state)
    benchmark::DoNotOptimize(libdeflate_crc32(0, data.data(), data.size()));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_zlib_crc32(benchmark::State& state) {
  const auto data = randomBytes(static_cast<std::size_t>(state.range(0)));
  if (crc32(0, data.data(), static_cast<uInt>(data.size())) != vtcoreCrc(data))
    return reportMismatch(state, "zlib crc32");
  for (auto _ : state)
    benchmark::DoNotOptimize(crc32(0, data.data(), static_cast<uInt>(data.size())));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_crc32Method(benchmark::State& state) {
  const auto method = static_cast<vtcore::Crc32Method>(state.range(1));
  if (!vtcore::crc32MethodAvailable(method)) {
    state.SkipWithError(
        (std::string("processor lacks ") + vtcore::crc32MethodName(method)).c_str());
    return;
  }
  const auto data = randomBytes(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state)
    benchmark::DoNotOptimize(vtcore::crc32Using(method, 0, data.data(), data.size()));
  state.SetBytesProcessed(state.iterations() * state.range(0));
  state.SetLabel(vtcore::crc32MethodName(method));
}

BENCHMARK(BM_KWCRC32)->Arg(64 << 10)->Arg(16 << 20);
BENCHMARK(BM_isal_crc32_gzip_refl)->Arg(64 << 10)->Arg(16 << 20);
BENCHMARK(BM_libdeflate_crc32)->Arg(64 << 10)->Arg(16 << 20);
BENCHMARK(BM_zlib_crc32)->Arg(64 << 10)->Arg(16 << 20);
BENCHMARK(BM_crc32Method)->ArgsProduct({{64 << 10}, {0, 1, 2, 3, 4}});

// ---- CRC-16 of a name of 65,535 bytes (the longest it takes whole) ---------

const AlignedBuffer<char>& crc16Text() {
  static const AlignedBuffer<char> text = [] {
    AlignedBuffer<char> t(65536);
    std::mt19937 rng(16);
    for (std::size_t i = 0; i + 1 < t.size(); ++i)
      t[i] = static_cast<char>(1 + rng() % 255);
    t[t.size() - 1] = 0;
    return t;
  }();
  return text;
}

void BM_KWCRC16(benchmark::State& state) {
  const char* text = crc16Text().data();
  for (auto _ : state) {
    benchmark::DoNotOptimize(text);
    benchmark::DoNotOptimize(KWCRC16(text));
  }
  state.SetBytesProcessed(state.iterations() * 65535);
}

void BM_crc16ByteTable(benchmark::State& state) {
  const char* text = crc16Text().data();
  if (native_loops::crc16ByteTable(text) != KWCRC16(text))
    return reportMismatch(state, "byte-table CRC-16");
  for (auto _ : state) {
    benchmark::DoNotOptimize(text);
    benchmark::DoNotOptimize(native_loops::crc16ByteTable(text));
  }
  state.SetBytesProcessed(state.iterations() * 65535);
}

BENCHMARK(BM_KWCRC16);
BENCHMARK(BM_crc16ByteTable);

// ---- Swaps and converters (64 KiB of integer-side bytes) --------------------

constexpr std::size_t kBlock = 64 << 10;

void BM_memcpy(benchmark::State& state) {
  const auto src = randomBytes(kBlock);
  AlignedBuffer<unsigned char> dst(kBlock);
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), kBlock);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kBlock);
}
BENCHMARK(BM_memcpy);

// Selects the code path given as the benchmark's argument `index`.
bool usePath(benchmark::State& state, int index) {
  const auto path = static_cast<vtcore::DataCodePath>(state.range(index));
  if (!vtcore::setDataCodePath(path)) {
    state.SkipWithError((std::string("processor lacks ") + vtcore::dataCodePathName(path)).c_str());
    return false;
  }
  state.SetLabel(vtcore::dataCodePathName(path));
  return true;
}

// Code paths as benchmark arguments: portable, ssse3, avx (VEX-encoded ssse3),
// avx2, avx512.
const std::vector<std::int64_t> kPaths = {0, 2, 4, 1, 3};

void swapWith(int width, unsigned char* data) {
  if (width == 2)
    PSwapInt16(data, kBlock / 2);
  else if (width == 4)
    PSwapInt32(data, kBlock / 4);
  else
    PSwapInt64(data, kBlock / 8);
}

void BM_PSwapInt(benchmark::State& state) {
  if (!usePath(state, 1))
    return;
  auto data = randomBytes(kBlock);
  const int width = static_cast<int>(state.range(0));
  for (auto _ : state) {
    swapWith(width, data.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kBlock);
}
BENCHMARK(BM_PSwapInt)->ArgsProduct({{2, 4, 8}, kPaths});

// The compiler's loop: argument 1 is 0 for -march=native, 1 for AVX2.
void BM_compilerSwap(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0));
  const bool native = state.range(1) == 0;
  auto swap = width == 2   ? (native ? native_loops::swap16 : avx2_loops::swap16)
              : width == 4 ? (native ? native_loops::swap32 : avx2_loops::swap32)
                           : (native ? native_loops::swap64 : avx2_loops::swap64);
  auto data = randomBytes(kBlock);
  auto expected = randomBytes(kBlock);
  swapWith(width, expected.data());
  swap(data.data(), kBlock / width);
  if (std::memcmp(data.data(), expected.data(), kBlock) != 0)
    return reportMismatch(state, "swap loop");
  for (auto _ : state) {
    swap(data.data(), kBlock / width);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kBlock);
  state.SetLabel(native ? "march=native" : "avx2");
}
BENCHMARK(BM_compilerSwap)->ArgsProduct({{2, 4, 8}, {0, 1}});

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
BENCHMARK(BM_ProcessSwapIntel)->ArgsProduct({{8, 16, 24, 32}, kPaths});

AlignedBuffer<float> randomFloats(std::size_t count) {
  AlignedBuffer<float> src(count);
  std::mt19937 rng(2);
  std::uniform_real_distribution<float> pick(-1.0f, 1.0f);
  for (auto& f : src)
    f = pick(rng);
  return src;
}

// Big-endian signed integers of 1 to 4 bytes, 64 KiB of them, to floats.
void BM_ConvertNToFloat(benchmark::State& state) {
  if (!usePath(state, 1))
    return;
  const int width = static_cast<int>(state.range(0));
  const std::size_t count = kBlock / width;
  const auto src = randomBytes(count * width);
  AlignedBuffer<float> dst(count);
  const KWSampleConverter convert = GetConvertNToFloat(width, 0);
  for (auto _ : state) {
    convert(dst.data(), src.data(), count, nullptr);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(src.size()));
}
BENCHMARK(BM_ConvertNToFloat)->ArgsProduct({{1, 2, 3, 4}, kPaths});

void BM_compilerNToFloat(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0));
  const bool native = state.range(1) == 0;
  auto loop = native ? native_loops::integersToFloats : avx2_loops::integersToFloats;
  const std::size_t count = kBlock / width;
  const auto src = randomBytes(count * width);
  AlignedBuffer<float> dst(count), expected(count);
  GetConvertNToFloat(width, 0)(expected.data(), src.data(), count, nullptr);
  loop(width, dst.data(), src.data(), count);
  if (std::memcmp(dst.data(), expected.data(), count * 4) != 0)
    return reportMismatch(state, "conversion loop");
  for (auto _ : state) {
    loop(width, dst.data(), src.data(), count);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(src.size()));
  state.SetLabel(native ? "march=native" : "avx2");
}
BENCHMARK(BM_compilerNToFloat)->ArgsProduct({{1, 2, 3, 4}, {0, 1}});

void BM_ConvertFloatToN(benchmark::State& state) {
  if (!usePath(state, 1))
    return;
  const int width = static_cast<int>(state.range(0));
  const std::size_t count = kBlock / width;
  const auto src = randomFloats(count);
  AlignedBuffer<unsigned char> dst(count * width);
  const KWSampleConverter convert = GetConvertFloatToN(width, 0);
  for (auto _ : state) {
    convert(dst.data(), src.data(), count, nullptr);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(dst.size()));
}
BENCHMARK(BM_ConvertFloatToN)->ArgsProduct({{1, 2, 3, 4}, kPaths});

void BM_compilerFloatToN(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0));
  const bool native = state.range(1) == 0;
  auto loop = native ? native_loops::floatsToIntegers : avx2_loops::floatsToIntegers;
  const std::size_t count = kBlock / width;
  const auto src = randomFloats(count);
  AlignedBuffer<unsigned char> dst(count * width), expected(count * width);
  GetConvertFloatToN(width, 0)(expected.data(), src.data(), count, nullptr);
  loop(width, dst.data(), src.data(), count);
  if (std::memcmp(dst.data(), expected.data(), count * width) != 0)
    return reportMismatch(state, "conversion loop");
  for (auto _ : state) {
    loop(width, dst.data(), src.data(), count);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(dst.size()));
  state.SetLabel(native ? "march=native" : "avx2");
}
BENCHMARK(BM_compilerFloatToN)->ArgsProduct({{1, 2, 3, 4}, {0, 1}});

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
