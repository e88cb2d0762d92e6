// UTF-8 scanning over 1 MiB of text, in bytes per second, next to its peers
// in the same run: strlen as the limit of a plain scan, ICU's checked UTF-8
// to UTF-16 conversion (u_strFromUTF8) and GLib's g_utf8_validate for
// validation, GLib's g_utf8_strlen for counting. Two texts: mostly ASCII
// (about one multi-byte character per 60 bytes) and mixed (Latin with
// accents, Greek, Cyrillic, CJK and emoji; about half the characters
// multi-byte). Every peer is checked for VTCore's result before it is timed;
// the texts are 64-byte aligned. The second argument of the VTCore rows is
// the code path (0 portable, 2 ssse3, 1 avx2, 3 avx512); a path the processor
// lacks is reported as skipped.

#include "aligned_buffer.h"

#include <vtcore/core/text/dispatch/data_dispatch.h>
#include <vtcore/core/text/utf8/utf8.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <glib.h>
#include <unicode/ustring.h>

namespace {

using bench::AlignedBuffer;

AlignedBuffer<char> alignedText(const std::vector<const char*>& words, unsigned percentFirst,
                                std::size_t common) {
  std::mt19937 rng(42);
  std::string s;
  while (s.size() < (1u << 20)) {
    const std::size_t pick = rng() % 100;
    s += pick < percentFirst ? words[rng() % common]
                             : words[common + rng() % (words.size() - common)];
  }
  s.resize(1u << 20);
  // Keep it valid: drop a multi-byte character the cut may have split.
  while (!s.empty() && (static_cast<unsigned char>(s.back()) & 0x80) != 0)
    s.pop_back();
  AlignedBuffer<char> text(s.size() + 1);
  std::memcpy(text.data(), s.c_str(), s.size() + 1);
  return text;
}

const AlignedBuffer<char>& mostlyAscii() {
  static const AlignedBuffer<char> text = alignedText(
      {"the ", "tempo ", "track ", "mix ", "bus ", "fader ", "automation ", "channel ", "send ",
       "return ", "Dvo\xC5\x99\xC3\xA1k ", "caf\xC3\xA9 ", "10\xE2\x82\xAC ", "\xF0\x9F\x8E\xB9 "},
      96, 10);
  return text;
}

const AlignedBuffer<char>& mixed() {
  static const AlignedBuffer<char> text =
      alignedText({"the ", "mix ", "fader ", "Dvo\xC5\x99\xC3\xA1k ", "caf\xC3\xA9 ",
                   "Stra\xC3\x9F"
                   "e ",
                   "\xCE\xBC\xCE\xBF\xCF\x85\xCF\x83\xCE\xB9\xCE\xBA\xCE\xAE ",
                   "\xD0\xBC\xD1\x83\xD0\xB7\xD1\x8B\xD0\xBA\xD0\xB0 ", "\xE9\x9F\xB3\xE6\xA5\xBD ",
                   "\xE3\x83\x86\xE3\x83\xB3\xE3\x83\x9D ", "10\xE2\x82\xAC ", "\xF0\x9F\x8E\xB9 ",
                   "\xF0\x9F\x8E\xBB\xF0\x9F\x8E\xB7 "},
                  30, 3);
  return text;
}

const AlignedBuffer<char>& textOf(benchmark::State& state) {
  return state.range(0) == 0 ? mostlyAscii() : mixed();
}

void setBytes(benchmark::State& state, const AlignedBuffer<char>& text) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(text.size() - 1));
}

bool usePath(benchmark::State& state) {
  const auto path = static_cast<vtcore::DataCodePath>(state.range(1));
  if (!vtcore::setDataCodePath(path)) {
    state.SkipWithError((std::string("processor lacks ") + vtcore::dataCodePathName(path)).c_str());
    return false;
  }
  state.SetLabel(vtcore::dataCodePathName(path));
  return true;
}

// Argument 0: 0 mostly ASCII, 1 mixed. Argument 1: the code path.
void Utf8Check(benchmark::State& state) {
  if (!usePath(state))
    return;
  const char* s = textOf(state).data();
  for (auto _ : state) {
    benchmark::DoNotOptimize(s);
    benchmark::DoNotOptimize(utf8_check(s));
  }
  setBytes(state, textOf(state));
}

void Utf8Strlen(benchmark::State& state) {
  if (!usePath(state))
    return;
  const char* s = textOf(state).data();
  for (auto _ : state) {
    benchmark::DoNotOptimize(s);
    benchmark::DoNotOptimize(utf8_strlen(s));
  }
  setBytes(state, textOf(state));
}

void GlibUtf8Validate(benchmark::State& state) {
  const char* s = textOf(state).data();
  if ((g_utf8_validate(s, -1, nullptr) ? 1 : 0) != utf8_check(s)) {
    state.SkipWithError("g_utf8_validate differs from utf8_check");
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(s);
    benchmark::DoNotOptimize(g_utf8_validate(s, -1, nullptr));
  }
  setBytes(state, textOf(state));
}

void GlibUtf8Strlen(benchmark::State& state) {
  const char* s = textOf(state).data();
  if (static_cast<std::size_t>(g_utf8_strlen(s, -1)) != utf8_strlen(s)) {
    state.SkipWithError("g_utf8_strlen differs from utf8_strlen");
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(s);
    benchmark::DoNotOptimize(g_utf8_strlen(s, -1));
  }
  setBytes(state, textOf(state));
}

void IcuFromUtf8(benchmark::State& state) {
  const AlignedBuffer<char>& text = textOf(state);
  AlignedBuffer<UChar> buffer(text.size());
  auto convert = [&] {
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8(buffer.data(), static_cast<int32_t>(buffer.size()), &length, text.data(), -1,
                  &status);
    return U_SUCCESS(status) ? 1 : 0;
  };
  if (convert() != utf8_check(text.data())) {
    state.SkipWithError("u_strFromUTF8 differs from utf8_check");
    return;
  }
  for (auto _ : state)
    benchmark::DoNotOptimize(convert());
  setBytes(state, text);
}

void Strlen(benchmark::State& state) {
  const char* s = textOf(state).data();
  for (auto _ : state) {
    benchmark::DoNotOptimize(s);
    benchmark::DoNotOptimize(std::strlen(s));
  }
  setBytes(state, textOf(state));
}

void Utf8IsAscii(benchmark::State& state) {
  // An all-ASCII text, so that the scan has to go to the end.
  static const AlignedBuffer<char> ascii = [] {
    AlignedBuffer<char> t((1u << 20) + 1);
    std::memset(t.data(), 'a', 1u << 20);
    return t;
  }();
  for (auto _ : state)
    benchmark::DoNotOptimize(utf8_is_ascii(ascii.data(), 0));
  setBytes(state, ascii);
}

const std::vector<std::int64_t> kPaths = {0, 2, 4, 1, 3};

BENCHMARK(Utf8Check)->ArgsProduct({{0, 1}, kPaths});
BENCHMARK(Utf8Strlen)->ArgsProduct({{0, 1}, kPaths});
BENCHMARK(GlibUtf8Validate)->Arg(0)->Arg(1);
BENCHMARK(GlibUtf8Strlen)->Arg(0)->Arg(1);
BENCHMARK(IcuFromUtf8)->Arg(0)->Arg(1);
BENCHMARK(Strlen)->Arg(0)->Arg(1);
BENCHMARK(Utf8IsAscii);

} // namespace
