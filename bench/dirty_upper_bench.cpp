// The kernels right after code that leaves the upper halves of the vector
// registers dirty, next to the same kernels after a clean vzeroupper, in the
// same run. Applications load many libraries that return with dirty upper
// state (ISA-L's AVX-512 CRC among them); a legacy-SSE kernel can then run
// slower on some processors, a VEX- or EVEX-encoded one must not.
//
// Argument 0 picks the kernel, argument 1 what runs before each call:
//   0 vzeroupper (clean)   1 an AVX-512 (or AVX2) instruction in an asm
//   block, with no vzeroupper   2 ISA-L's crc32_gzip_refl on 256 bytes;
// argument 2 the code path of the swaps, converters and UTF-8 functions:
//   0 the dispatcher's choice   1 "avx", the VEX-encoded 128-bit loops that
//   processors with AVX but without AVX2 run   2 "ssse3", the same loops
//   legacy-encoded, for processors without AVX (shown for contrast).
// The control kernel is a legacy-SSE byte sum built in this file: it shows
// whether this processor penalises legacy SSE after dirty upper state at all.

#include "aligned_buffer.h"

#include <vtcore/core/text/checksum/crc.h>
#include <vtcore/core/text/swap/byte_swap.h>
#include <vtcore/core/text/swap/sample_convert.h>
#include <vtcore/core/text/utf8/utf8.h>

#include <benchmark/benchmark.h>

#include <vtcore/core/text/dispatch/data_dispatch.h>

#include <cstring>
#include <random>
#include <string>

#include <emmintrin.h>
#include <isa-l/crc.h>

namespace {

using bench::AlignedBuffer;

constexpr std::size_t kBlock = 64 << 10;

const AlignedBuffer<unsigned char>& data() {
  static const AlignedBuffer<unsigned char> bytes = [] {
    AlignedBuffer<unsigned char> b(kBlock + 1);
    std::mt19937 rng(9);
    for (std::size_t i = 0; i < kBlock; ++i)
      b[i] = static_cast<unsigned char>(' ' + rng() % 90); // ASCII text for utf8_check
    b[kBlock] = 0;
    return b;
  }();
  return bytes;
}

// The same text behind a five-byte sequence, which the validation rule
// accepts and the block scans stop at: utf8_check then runs the byte rules,
// whose ASCII runs go through the SSE2 skip.
const AlignedBuffer<unsigned char>& byteRuleText() {
  static const AlignedBuffer<unsigned char> bytes = [] {
    AlignedBuffer<unsigned char> b(kBlock + 1);
    std::memcpy(b.data(), data().data(), kBlock + 1);
    std::memcpy(b.data(), "\xF8\x88\x80\x80\x80", 5);
    return b;
  }();
  return bytes;
}

// Written by the asm blocks only; the compiler never sees AVX in this file.
void leaveUpperStateDirty() {
  static const bool avx512 = __builtin_cpu_supports("avx512f");
  if (avx512)
    asm volatile("vpternlogd $0xff, %%zmm1, %%zmm1, %%zmm1" ::: "xmm1");
  else
    asm volatile("vpcmpeqd %%ymm1, %%ymm1, %%ymm1" ::: "xmm1");
}

void cleanUpperState() {
  asm volatile("vzeroupper" ::
                   : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8", "xmm9",
                     "xmm10", "xmm11", "xmm12", "xmm13", "xmm14", "xmm15");
}

// Legacy SSE2 (this file is built without AVX): the control.
std::uint64_t sumBytesLegacySse(const unsigned char* p, std::size_t n) {
  __m128i sum = _mm_setzero_si128();
  for (std::size_t i = 0; i < n; i += 16)
    sum = _mm_add_epi64(sum, _mm_sad_epu8(_mm_load_si128(reinterpret_cast<const __m128i*>(p + i)),
                                          _mm_setzero_si128()));
  return static_cast<std::uint64_t>(_mm_cvtsi128_si64(sum)) +
         static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(sum, sum)));
}

void DirtyUpper(benchmark::State& state) {
  const int kernel = static_cast<int>(state.range(0));
  const int before = static_cast<int>(state.range(1));
  const int pathChoice = static_cast<int>(state.range(2));
  if (before != 0 && !__builtin_cpu_supports("avx")) {
    state.SkipWithError("processor lacks AVX: no upper state to leave dirty");
    return;
  }
  const vtcore::DataCodePath chosen = vtcore::dataCodePath();
  const vtcore::DataCodePath path = pathChoice == 1   ? vtcore::DataCodePath::AVX
                                    : pathChoice == 2 ? vtcore::DataCodePath::SSSE3
                                                      : chosen;
  if (!vtcore::setDataCodePath(path)) {
    state.SkipWithError((std::string("processor lacks ") + vtcore::dataCodePathName(path)).c_str());
    return;
  }
  const auto& d = data();
  const auto& oddText = byteRuleText();
  AlignedBuffer<unsigned char> scratch(kBlock);
  AlignedBuffer<float> floats(kBlock / 2);
  for (std::size_t i = 0; i < kBlock / 2; ++i)
    floats[i] = static_cast<float>(d[i]) / 128.0f - 0.5f;
  const KWSampleConverter toFloat = GetConvertNToFloat(2, 0);
  const KWSampleConverter fromFloat = GetConvertFloatToN(2, 0);
  static const char* kNames[] = {
      "KWCRC32",      "PSwapInt32",    "int16->float",           "utf8_check",
      "float->int16", "utf8_is_ascii", "utf8_check, byte rules", "legacy-SSE control"};
  static const char* kBefore[] = {"clean", "asm dirty", "after ISA-L"};
  std::uint32_t isal = 0;
  for (auto _ : state) {
    if (before == 0)
      cleanUpperState();
    else if (before == 1)
      leaveUpperStateDirty();
    else
      isal = crc32_gzip_refl(isal, d.data(), 256);
    switch (kernel) {
    case 0:
      benchmark::DoNotOptimize(KWCRC32(0, d.data(), kBlock));
      break;
    case 1:
      PSwapInt32(scratch.data(), kBlock / 4);
      break;
    case 2:
      toFloat(floats.data(), d.data(), kBlock / 2, nullptr);
      break;
    case 3:
      benchmark::DoNotOptimize(utf8_check(reinterpret_cast<const char*>(d.data())));
      break;
    case 4:
      fromFloat(scratch.data(), floats.data(), kBlock / 2, nullptr);
      break;
    case 5:
      benchmark::DoNotOptimize(utf8_is_ascii(reinterpret_cast<const char*>(d.data()), kBlock));
      break;
    case 6:
      benchmark::DoNotOptimize(utf8_check(reinterpret_cast<const char*>(oddText.data())));
      break;
    default:
      benchmark::DoNotOptimize(sumBytesLegacySse(d.data(), kBlock));
    }
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(isal);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kBlock));
  state.SetLabel(std::string(kNames[kernel]) + ", " + kBefore[before] + ", " +
                 vtcore::dataCodePathName(path));
  vtcore::setDataCodePath(chosen);
}

// KWCRC32 and the control do not depend on the data code path: once each.
BENCHMARK(DirtyUpper)->ArgsProduct({{0, 7}, {0, 1, 2}, {0}});
BENCHMARK(DirtyUpper)->ArgsProduct({{1, 2, 3, 4, 5, 6}, {0, 1, 2}, {0, 1, 2}});

} // namespace
