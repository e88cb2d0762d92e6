// UTF-8 scanning over 1 MiB of mostly-ASCII text with some multi-byte
// characters, in bytes per second, next to its peers in the same run:
// ICU's checked UTF-8 to UTF-16 conversion (u_strFromUTF8) for validation and
// strlen as the limit of a plain scan.

#include <vtcore/core/text/utf8/utf8.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <unicode/ustring.h>

namespace {

// About one multi-byte character per 60 bytes: words of English with the
// odd accented name, euro sign or emoji.
const std::string& text() {
  static const std::string value = [] {
    const char* words[] = {"the ",
                           "tempo ",
                           "track ",
                           "mix ",
                           "bus ",
                           "fader ",
                           "automation ",
                           "channel ",
                           "send ",
                           "return ",
                           "Dvo\xC5\x99\xC3\xA1k ",
                           "caf\xC3\xA9 ",
                           "10\xE2\x82\xAC ",
                           "\xF0\x9F\x8E\xB9 "};
    std::mt19937 rng(42);
    std::string s;
    while (s.size() < (1u << 20)) {
      std::size_t pick = rng() % 100;
      s += pick < 96 ? words[pick % 10] : words[10 + pick % 4];
    }
    s.resize(1u << 20);
    // Keep it valid: drop a multi-byte character the cut may have split.
    while (!s.empty() && (static_cast<unsigned char>(s.back()) & 0x80) != 0)
      s.pop_back();
    return s;
  }();
  return value;
}

void setBytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(text().size()));
}

void Utf8Check(benchmark::State& state) {
  const char* s = text().c_str();
  for (auto _ : state)
    benchmark::DoNotOptimize(utf8_check(s));
  setBytes(state);
}

void IcuFromUtf8(benchmark::State& state) {
  const std::string& s = text();
  std::vector<UChar> buffer(s.size() + 1);
  for (auto _ : state) {
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8(buffer.data(), static_cast<int32_t>(buffer.size()), &length, s.c_str(), -1,
                  &status);
    benchmark::DoNotOptimize(length);
    benchmark::DoNotOptimize(status);
  }
  setBytes(state);
}

void Utf8Strlen(benchmark::State& state) {
  const char* s = text().c_str();
  for (auto _ : state)
    benchmark::DoNotOptimize(utf8_strlen(s));
  setBytes(state);
}

void Utf8IsAscii(benchmark::State& state) {
  // An all-ASCII text, so that the scan has to go to the end.
  static const std::string ascii(1u << 20, 'a');
  const char* s = ascii.c_str();
  for (auto _ : state)
    benchmark::DoNotOptimize(utf8_is_ascii(s, 0));
  setBytes(state);
}

void Strlen(benchmark::State& state) {
  const char* s = text().c_str();
  for (auto _ : state) {
    benchmark::DoNotOptimize(s);
    benchmark::DoNotOptimize(std::strlen(s));
  }
  setBytes(state);
}

BENCHMARK(Utf8Check);
BENCHMARK(IcuFromUtf8);
BENCHMARK(Utf8Strlen);
BENCHMARK(Utf8IsAscii);
BENCHMARK(Strlen);

} // namespace
