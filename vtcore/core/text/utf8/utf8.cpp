#include <vtcore/core/diagnostics/log/log.h>
#include <vtcore/core/text/utf8/icu_handles.h>
#include <vtcore/core/text/utf8/utf8.h>

#include <vtcore/core/text/dispatch/data_dispatch.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

using Byte = unsigned char;

const Byte* bytes(const char* s) {
  return reinterpret_cast<const Byte*>(s);
}

bool isContinuation(Byte b) {
  return (b & 0xC0) == 0x80;
}

// Character length by lead byte for forward stepping; 0 for a byte that is
// not a lead byte (0x80-0xC1, 0xF5-0xFF).
int leadLength(Byte b) {
  if (b < 0x80)
    return 1;
  if (b < 0xC2)
    return 0;
  if (b < 0xE0)
    return 2;
  if (b < 0xF0)
    return 3;
  if (b < 0xF5)
    return 4;
  return 0;
}

bool isBackwardLead(Byte b) {
  return !isContinuation(b) && b != 0xC0 && b != 0xC1 && b < 0xF5;
}

// Length of the character at `p` when it is whole: a lead byte and no
// terminator among the bytes it claims. 0 when the walk must end here.
std::size_t wholeCharacterLength(const Byte* p) {
  int length = leadLength(*p);
  for (int i = 1; i < length; ++i)
    if (p[i] == 0)
      return 0;
  return static_cast<std::size_t>(length);
}

#if defined(__x86_64__)
namespace legacy {
#define VTCORE_ASCII_TARGET
#include <vtcore/core/text/utf8/detail/utf8_ascii.inc>
#undef VTCORE_ASCII_TARGET
} // namespace legacy

namespace vex {
#define VTCORE_ASCII_TARGET __attribute__((target("avx")))
#include <vtcore/core/text/utf8/detail/utf8_ascii.inc>
#undef VTCORE_ASCII_TARGET
} // namespace vex

// The ASCII skips of the byte rules, as types: each rule is compiled once per
// encoding and chooses it once per string rather than once per ASCII run.
struct LegacyAscii {
  static const Byte* skip(const Byte* p, const Byte* end) { return legacy::skipAscii(p, end); }
};
struct VexAscii {
  static const Byte* skip(const Byte* p, const Byte* end) { return vex::skipAscii(p, end); }
};

bool vexEncodedPath() {
  const vtcore::DataCodePath path = vtcore::dataCodePath();
  return path == vtcore::DataCodePath::AVX || path == vtcore::DataCodePath::AVX2 ||
         path == vtcore::DataCodePath::AVX512;
}

// Runs `rule` with the ASCII skip that matches the code path in use: the
// paths that need AVX keep every vector instruction VEX-encoded, the others
// keep legacy SSE2, which every x86-64 processor has.
template <class Rule>
auto withAsciiSkip(Rule rule) {
  return vexEncodedPath() ? rule(VexAscii{}) : rule(LegacyAscii{});
}

// Whether [p, p + n) holds no byte of 0x80 or above, 128 bytes a step: the
// whole-string ASCII test wants to run at the speed of strlen.
__attribute__((target("avx2"))) bool allAsciiAvx2(const Byte* p, std::size_t n) {
  const Byte* const end = p + n;
  while (end - p >= 128) {
    const auto* v = reinterpret_cast<const __m256i*>(p);
    __m256i any =
        _mm256_or_si256(_mm256_or_si256(_mm256_loadu_si256(v), _mm256_loadu_si256(v + 1)),
                        _mm256_or_si256(_mm256_loadu_si256(v + 2), _mm256_loadu_si256(v + 3)));
    if (_mm256_movemask_epi8(any) != 0)
      return false;
    p += 128;
  }
  return vex::skipAscii(p, end) == end;
}

bool allAscii(const Byte* p, std::size_t n) {
  switch (vtcore::dataCodePath()) {
  case vtcore::DataCodePath::AVX512:
  case vtcore::DataCodePath::AVX2:
    return allAsciiAvx2(p, n);
  case vtcore::DataCodePath::AVX:
    return vex::skipAscii(p, p + n) == p + n;
  case vtcore::DataCodePath::SSSE3:
  case vtcore::DataCodePath::Portable:
    break;
  }
  return legacy::skipAscii(p, p + n) == p + n;
}
#else
// Returns the first byte in [p, end) that is 0x80 or above, or `end`.
struct PortableAscii {
  static const Byte* skip(const Byte* p, const Byte* end) {
    while (end - p >= 8) {
      std::uint64_t word;
      std::memcpy(&word, p, sizeof word);
      if ((word & 0x8080808080808080ULL) != 0)
        break;
      p += 8;
    }
    while (p < end && *p < 0x80)
      ++p;
    return p;
  }
};

template <class Rule>
auto withAsciiSkip(Rule rule) {
  return rule(PortableAscii{});
}

bool allAscii(const Byte* p, std::size_t n) {
  return PortableAscii::skip(p, p + n) == p + n;
}
#endif

// The validation rule over [p, end), starting in the given state: the index
// where the current sequence must end, and whether a sequence is open. ASCII
// runs are skipped in blocks: an ASCII byte is only legal where the previous
// sequence ended, and then leaves the state "no sequence open, next sequence
// starts after it", so a run changes the state exactly as its bytes would one
// by one.
template <class Ascii>
int checkBytesFrom(const Byte* p, const Byte* end, const Byte* expectedEnd, bool inSequence) {
  while (p < end) {
    Byte b = *p;
    if (b < 0x80) {
      if (p != expectedEnd)
        return 0;
      p = Ascii::skip(p + 1, end);
      expectedEnd = p;
      inSequence = false;
      continue;
    }
    if (isContinuation(b)) {
      if (!inSequence)
        return 0;
    } else if ((b & 0xE0) == 0xC0) {
      expectedEnd = p + 2, inSequence = true;
    } else if ((b & 0xF0) == 0xE0) {
      expectedEnd = p + 3, inSequence = true;
    } else if ((b & 0xF8) == 0xF0) {
      expectedEnd = p + 4, inSequence = true;
    } else if ((b & 0xFC) == 0xF8) {
      expectedEnd = p + 5, inSequence = true;
    } else if ((b & 0xFD) == 0xFC) {
      // The 0xFD mask is historical: it takes 0xFE as a six-byte lead and
      // lets 0xFD and 0xFF through without touching the state.
      expectedEnd = p + 6, inSequence = true;
    }
    ++p;
  }
  // Compared as offsets: a sequence may claim bytes past the end.
  return expectedEnd == end ? 1 : 0;
}

template <class Ascii>
int checkBytes(const Byte* s, std::size_t length) {
  return checkBytesFrom<Ascii>(s, s + length, s, false);
}

// The stepping rule over [p, end): the number of characters before the walk
// ends.
template <class Ascii>
std::size_t countCharacters(const Byte* p, const Byte* const end) {
  std::size_t count = 0;
  while (p < end) {
    if (*p < 0x80) {
      const Byte* runEnd = Ascii::skip(p + 1, end);
      count += static_cast<std::size_t>(runEnd - p);
      p = runEnd;
      continue;
    }
    int length = leadLength(*p);
    if (length == 0 || end - p < length)
      break; // not a lead byte, or a character cut short by the terminator
    p += length;
    ++count;
  }
  return count;
}

// ---- Vector scans of validation and counting ---------------------------------

enum class ScanRule { Validation, Counting };

// Where a block scan ended: at the terminator with the whole string
// well-formed by structure (`complete`), or at a character boundary `at`
// before which it is, with the continuation bytes before `at` counted.
struct ScanEnd {
  const Byte* at;
  std::size_t continuations;
  bool complete;
};

// The blocks before `block` passed: resume at the start of the last
// character that began before it when that character runs into `block`.
ScanEnd resumeBefore(const Byte* s, const Byte* block, std::size_t continuations) {
  if (block <= s)
    return {s, 0, false};
  const Byte* last = block - 1;
  while (last > s && isContinuation(*last))
    --last;
  const std::size_t length = *last < 0xC0 ? 1 : *last < 0xE0 ? 2 : *last < 0xF0 ? 3 : 4;
  if (last + length > block)
    return {last, continuations - static_cast<std::size_t>(block - 1 - last), false};
  return {block, continuations, false};
}

// The continuation bytes owed at `block` by the three bytes before it, as the
// block scan's carry mask (bit i: byte i of the block must be one).
std::uint64_t owedAfter(const Byte* block) {
  const Byte b1 = block[-1], b2 = block[-2], b3 = block[-3];
  return std::uint64_t{b1 >= 0xC0 || b2 >= 0xE0 || b3 >= 0xF0} |
         std::uint64_t{b1 >= 0xE0 || b2 >= 0xF0} << 1 | std::uint64_t{b1 >= 0xF0} << 2;
}

#if defined(__x86_64__)
// The scans deliberately read the rest of the aligned blocks that hold the
// string's first and last bytes; see utf8_scan.inc.
#define VTCORE_SCAN_OUTSIDE_STRING __attribute__((no_sanitize_address))

namespace sse {
#define VTCORE_SCAN_TARGET __attribute__((target("ssse3")))
#include <vtcore/core/text/utf8/detail/utf8_scan128.inc>
#undef VTCORE_SCAN_TARGET
} // namespace sse

namespace vex128 {
#define VTCORE_SCAN_TARGET __attribute__((target("avx")))
#include <vtcore/core/text/utf8/detail/utf8_scan128.inc>
#undef VTCORE_SCAN_TARGET
} // namespace vex128

namespace avx2 {
#define VTCORE_SCAN_TARGET __attribute__((target("avx2")))

struct Block {
  __m256i low, high;
};

VTCORE_SCAN_TARGET VTCORE_SCAN_OUTSIDE_STRING inline Block loadBlock(const Byte* p) {
  const auto* v = reinterpret_cast<const __m256i*>(p);
  return {_mm256_load_si256(v), _mm256_load_si256(v + 1)};
}

VTCORE_SCAN_TARGET inline std::uint64_t mask64(__m256i low, __m256i high) {
  return static_cast<std::uint64_t>(static_cast<unsigned>(_mm256_movemask_epi8(low))) |
         static_cast<std::uint64_t>(static_cast<unsigned>(_mm256_movemask_epi8(high))) << 32;
}

VTCORE_SCAN_TARGET inline __m256i isAtLeast(__m256i v, Byte least) {
  return _mm256_cmpeq_epi8(_mm256_max_epu8(v, _mm256_set1_epi8(static_cast<char>(least))), v);
}

VTCORE_SCAN_TARGET inline __m256i isNotStepLead(__m256i v) {
  const __m256i c0c1 =
      _mm256_cmpeq_epi8(_mm256_and_si256(v, _mm256_set1_epi8(static_cast<char>(0xFE))),
                        _mm256_set1_epi8(static_cast<char>(0xC0)));
  return _mm256_or_si256(c0c1, isAtLeast(v, 0xF5));
}

VTCORE_SCAN_TARGET inline std::uint64_t zeroMask(const Block& b) {
  const __m256i zero = _mm256_setzero_si256();
  return mask64(_mm256_cmpeq_epi8(b.low, zero), _mm256_cmpeq_epi8(b.high, zero));
}
VTCORE_SCAN_TARGET inline std::uint64_t highMask(const Block& b) {
  return mask64(b.low, b.high);
}
VTCORE_SCAN_TARGET inline std::uint64_t atLeast(const Block& b, Byte least) {
  return mask64(isAtLeast(b.low, least), isAtLeast(b.high, least));
}
VTCORE_SCAN_TARGET inline std::uint64_t notStepLead(const Block& b) {
  return mask64(isNotStepLead(b.low), isNotStepLead(b.high));
}

template <ScanRule Rule>
VTCORE_SCAN_TARGET inline __m256i halfProblems(__m256i before, __m256i v) {
  // The last 16 bytes of `before` and the first 16 of `v`, so that the
  // in-lane byte alignment sees the three bytes before each byte.
  const __m256i shifted = _mm256_permute2x128_si256(before, v, 0x21);
  const __m256i owing =
      _mm256_or_si256(_mm256_or_si256(_mm256_subs_epu8(_mm256_alignr_epi8(v, shifted, 15),
                                                       _mm256_set1_epi8(static_cast<char>(0xBF))),
                                      _mm256_subs_epu8(_mm256_alignr_epi8(v, shifted, 14),
                                                       _mm256_set1_epi8(static_cast<char>(0xDF)))),
                      _mm256_subs_epu8(_mm256_alignr_epi8(v, shifted, 13),
                                       _mm256_set1_epi8(static_cast<char>(0xEF))));
  const __m256i continuation = _mm256_cmpgt_epi8(_mm256_set1_epi8(-64), v);
  // Wrong where "is a continuation byte" equals "owes none".
  const __m256i wrong =
      _mm256_cmpeq_epi8(continuation, _mm256_cmpeq_epi8(owing, _mm256_setzero_si256()));
  const __m256i odd = Rule == ScanRule::Validation ? isAtLeast(v, 0xF8) : isNotStepLead(v);
  return _mm256_or_si256(_mm256_or_si256(wrong, odd), _mm256_cmpeq_epi8(v, _mm256_setzero_si256()));
}

template <ScanRule Rule>
VTCORE_SCAN_TARGET inline bool blockPasses(const Block& previous, const Block& current) {
  const __m256i problems = _mm256_or_si256(halfProblems<Rule>(previous.high, current.low),
                                           halfProblems<Rule>(current.low, current.high));
  return _mm256_testz_si256(problems, problems) != 0;
}

// Continuation bytes counted per byte lane, added up before a lane can wrap.
class ContinuationCounter {
public:
  VTCORE_SCAN_TARGET ContinuationCounter()
      : m_lanes(_mm256_setzero_si256()), m_total(_mm256_setzero_si256()) {}
  VTCORE_SCAN_TARGET void add(const Block& b) {
    const __m256i limit = _mm256_set1_epi8(-64);
    m_lanes = _mm256_sub_epi8(m_lanes, _mm256_cmpgt_epi8(limit, b.low));
    m_lanes = _mm256_sub_epi8(m_lanes, _mm256_cmpgt_epi8(limit, b.high));
    if (++m_blocks == 127)
      flush();
  }
  VTCORE_SCAN_TARGET std::size_t drain() {
    flush();
    const __m128i sum =
        _mm_add_epi64(_mm256_castsi256_si128(m_total), _mm256_extracti128_si256(m_total, 1));
    return static_cast<std::size_t>(_mm_cvtsi128_si64(sum)) +
           static_cast<std::size_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(sum, sum)));
  }

private:
  VTCORE_SCAN_TARGET void flush() {
    m_total = _mm256_add_epi64(m_total, _mm256_sad_epu8(m_lanes, _mm256_setzero_si256()));
    m_lanes = _mm256_setzero_si256();
    m_blocks = 0;
  }
  __m256i m_lanes;
  __m256i m_total;
  int m_blocks = 0;
};

#include <vtcore/core/text/utf8/detail/utf8_scan.inc>
#undef VTCORE_SCAN_TARGET
} // namespace avx2

// GCC 12 takes the deliberately undefined sources inside some AVX-512
// intrinsics for uninitialised variables.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
namespace avx512 {
#define VTCORE_SCAN_TARGET __attribute__((target("avx512f,avx512bw,avx512vl,avx2")))

struct Block {
  __m512i v;
};

VTCORE_SCAN_TARGET VTCORE_SCAN_OUTSIDE_STRING inline Block loadBlock(const Byte* p) {
  return {_mm512_load_si512(p)};
}

VTCORE_SCAN_TARGET inline std::uint64_t zeroMask(const Block& b) {
  return _mm512_testn_epi8_mask(b.v, b.v);
}
VTCORE_SCAN_TARGET inline std::uint64_t highMask(const Block& b) {
  return _mm512_movepi8_mask(b.v);
}
VTCORE_SCAN_TARGET inline std::uint64_t atLeast(const Block& b, Byte least) {
  return _mm512_cmpge_epu8_mask(b.v, _mm512_set1_epi8(static_cast<char>(least)));
}
VTCORE_SCAN_TARGET inline std::uint64_t notStepLead(const Block& b) {
  const __m512i masked = _mm512_and_si512(b.v, _mm512_set1_epi8(static_cast<char>(0xFE)));
  return _mm512_cmpeq_epi8_mask(masked, _mm512_set1_epi8(static_cast<char>(0xC0))) |
         _mm512_cmpge_epu8_mask(b.v, _mm512_set1_epi8(static_cast<char>(0xF5)));
}

// Non-zero where the byte `previous` stands for is `least` or above.
VTCORE_SCAN_TARGET inline __m512i owed(__m512i previous, Byte least) {
  return _mm512_subs_epu8(previous, _mm512_set1_epi8(static_cast<char>(least - 1)));
}

// The sixteen bytes before the block and its first 48 come from one
// unaligned load (cheaper here than a shuffle across the register); the
// in-lane byte alignment then gives each byte the three bytes before it.
// They lie in this block and the one before, which the fast loop only
// enters once it is inside the string.
template <ScanRule Rule>
VTCORE_SCAN_TARGET VTCORE_SCAN_OUTSIDE_STRING inline bool blockPasses(const Byte* at,
                                                                      const Block& current) {
  const __m512i v = current.v;
  const __m512i shifted = _mm512_loadu_si512(at - 16);
  // 0xFE: the three-way or.
  const __m512i owing =
      _mm512_ternarylogic_epi64(owed(_mm512_alignr_epi8(v, shifted, 15), 0xC0),
                                owed(_mm512_alignr_epi8(v, shifted, 14), 0xE0),
                                owed(_mm512_alignr_epi8(v, shifted, 13), 0xF0), 0xFE);
  const std::uint64_t expected = _mm512_test_epi8_mask(owing, owing);
  const std::uint64_t continuation = _mm512_cmplt_epi8_mask(v, _mm512_set1_epi8(-64));
  // The terminator and the bytes that stop the scan (0xF8 and above, or for
  // counting 0xF5 and above) in one comparison: one less wraps them to the
  // top of the byte range.
  const __m512i lessOne = _mm512_sub_epi8(v, _mm512_set1_epi8(1));
  std::uint64_t stop = _mm512_cmpge_epu8_mask(
      lessOne, _mm512_set1_epi8(static_cast<char>(Rule == ScanRule::Validation ? 0xF7 : 0xF4)));
  if constexpr (Rule == ScanRule::Counting)
    stop |= _mm512_cmpeq_epi8_mask(_mm512_and_si512(v, _mm512_set1_epi8(static_cast<char>(0xFE))),
                                   _mm512_set1_epi8(static_cast<char>(0xC0)));
  return ((expected ^ continuation) | stop) == 0;
}

#define VTCORE_SCAN_LOADS_BYTES_BEFORE 1
// Continuation bytes counted per byte lane, added up before a lane can wrap.
class ContinuationCounter {
public:
  VTCORE_SCAN_TARGET ContinuationCounter()
      : m_lanes(_mm512_setzero_si512()), m_total(_mm512_setzero_si512()) {}
  VTCORE_SCAN_TARGET void add(const Block& b) {
    const __mmask64 continuation = _mm512_cmplt_epi8_mask(b.v, _mm512_set1_epi8(-64));
    m_lanes = _mm512_mask_sub_epi8(m_lanes, continuation, m_lanes, _mm512_set1_epi8(-1));
    if (++m_blocks == 255)
      flush();
  }
  VTCORE_SCAN_TARGET std::size_t drain() {
    flush();
    return static_cast<std::size_t>(_mm512_reduce_add_epi64(m_total));
  }

private:
  VTCORE_SCAN_TARGET void flush() {
    m_total = _mm512_add_epi64(m_total, _mm512_sad_epu8(m_lanes, _mm512_setzero_si512()));
    m_lanes = _mm512_setzero_si512();
    m_blocks = 0;
  }
  __m512i m_lanes;
  __m512i m_total;
  int m_blocks = 0;
};

#include <vtcore/core/text/utf8/detail/utf8_scan.inc>
#undef VTCORE_SCAN_LOADS_BYTES_BEFORE
#undef VTCORE_SCAN_TARGET
} // namespace avx512
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
#endif

// The block scan of the code path in use; nullopt on the portable path.
template <ScanRule Rule>
std::optional<ScanEnd> scanByPath(const Byte* s) {
#if defined(__x86_64__)
  switch (vtcore::dataCodePath()) {
  case vtcore::DataCodePath::AVX512:
    return avx512::scanStructure<Rule>(s);
  case vtcore::DataCodePath::AVX2:
    return avx2::scanStructure<Rule>(s);
  case vtcore::DataCodePath::AVX:
    return vex128::scanStructure<Rule>(s);
  case vtcore::DataCodePath::SSSE3:
    return sse::scanStructure<Rule>(s);
  case vtcore::DataCodePath::Portable:
    break;
  }
#endif
  (void)s;
  return std::nullopt;
}

// Host string from exactly `length` UTF-8 bytes, refusing anything that is
// not well-formed.
std::optional<icu::UnicodeString> strictFromUtf8(const char* s, std::size_t length) {
  if (length > static_cast<std::size_t>(INT32_MAX) / 2)
    return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  int32_t units = 0;
  u_strFromUTF8(nullptr, 0, &units, s, static_cast<int32_t>(length), &status);
  if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status))
    return std::nullopt;
  icu::UnicodeString result;
  char16_t* buffer = result.getBuffer(units > 0 ? units : 1);
  if (buffer == nullptr)
    return std::nullopt;
  status = U_ZERO_ERROR;
  u_strFromUTF8(buffer, units, nullptr, s, static_cast<int32_t>(length), &status);
  result.releaseBuffer(U_SUCCESS(status) ? units : 0);
  if (U_FAILURE(status))
    return std::nullopt;
  return result;
}

// The legacy 8-bit file-name encoding: the classic Mac Roman set.
vtcore::IcuConverter openLegacyConverter() {
  return vtcore::openRomanConverter('_');
}

std::string debugDescription(const icu::UnicodeString& text) {
  std::string out = "\"";
  for (int32_t i = 0; i < text.length();) {
    UChar32 c = text.char32At(i);
    i += U16_LENGTH(c);
    char escape[16];
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\r') {
      out += "\\r";
    } else if (!u_isprint(c) || U_IS_SURROGATE(c)) {
      std::snprintf(escape, sizeof escape, c > 0xFFFF ? "\\U%08X" : "\\u%04X",
                    static_cast<unsigned>(c));
      out += escape;
    } else {
      icu::UnicodeString(c).toUTF8String(out);
    }
  }
  out += '"';
  return out;
}

void logText(const char* s, const char* malformedMessage, bool describe) {
  if (s == nullptr || *s == 0)
    return;
  std::optional<icu::UnicodeString> text = strictFromUtf8(s, std::strlen(s));
  if (!text) {
    KWLogCString(5, true, nullptr, "%s", malformedMessage);
    return;
  }
  if (describe) {
    std::string description = debugDescription(*text) + "\n";
    std::fwrite(description.data(), 1, description.size(), stderr);
    std::fflush(stderr);
  }
  std::string utf8;
  text->toUTF8String(utf8);
  KWLogCString(5, true, nullptr, "%s", utf8.c_str());
}

} // namespace

VTCORE_EXTERN_C_BEGIN

int utf8_check(const char* s) {
  if (s == nullptr)
    return 0;
  const Byte* const start = bytes(s);
  const std::optional<ScanEnd> scanned = scanByPath<ScanRule::Validation>(start);
  if (scanned && scanned->complete)
    return 1;
  return withAsciiSkip([&](auto ascii) {
    using Ascii = decltype(ascii);
    if (!scanned)
      return checkBytes<Ascii>(start, std::strlen(s));
    // What the scan passed was valid and closed its last character at `at`.
    const Byte* at = scanned->at;
    const bool inSequence = at > start && at[-1] >= 0x80;
    return checkBytesFrom<Ascii>(at, at + std::strlen(reinterpret_cast<const char*>(at)), at,
                                 inSequence);
  });
}

int utf8_check_no_assertion(const char* s) {
  return utf8_check(s);
}

int utf8_verify(const char*) {
  return 0;
}

int utf8_unitTest(void) {
  return 1;
}

int utf8_is_ascii(const char* s, size_t n) {
  if (s == nullptr)
    return 0;
  // Find the end in cache-sized pieces and scan each piece while it is hot:
  // the scan needs the length first so that it never reads past the
  // terminator.
  constexpr std::size_t piece = 16384;
  std::size_t remaining = n;
  const char* p = s;
  for (;;) {
    std::size_t want = (n == 0 || remaining > piece) ? piece : remaining;
    std::size_t length = strnlen(p, want);
    if (!allAscii(bytes(p), length))
      return 0;
    if (length < want)
      return 1;
    p += length;
    if (n != 0) {
      remaining -= length;
      if (remaining == 0)
        return 1;
    }
  }
}

const char* utf8_next(const char* p) {
  if (p == nullptr || *p == 0)
    return nullptr;
  std::size_t length = wholeCharacterLength(bytes(p));
  return length == 0 ? nullptr : p + length;
}

const char* utf8_previous(const char* p) {
  if (p == nullptr)
    return nullptr;
  const Byte* q = bytes(p) - 1;
  while (isContinuation(*q))
    --q;
  return isBackwardLead(*q) ? reinterpret_cast<const char*>(q) : nullptr;
}

size_t utf8_strlen(const char* s) {
  if (s == nullptr)
    return 0;
  const Byte* const start = bytes(s);
  const std::optional<ScanEnd> scanned = scanByPath<ScanRule::Counting>(start);
  if (scanned && scanned->complete)
    return static_cast<std::size_t>(scanned->at - start) - scanned->continuations;
  return withAsciiSkip([&](auto ascii) {
    using Ascii = decltype(ascii);
    if (!scanned)
      return countCharacters<Ascii>(start, start + std::strlen(s));
    const Byte* at = scanned->at;
    const std::size_t count = static_cast<std::size_t>(at - start) - scanned->continuations;
    return count + countCharacters<Ascii>(at, at + std::strlen(reinterpret_cast<const char*>(at)));
  });
}

const char* utf8_strchr(const char* s, int c) {
  if (s == nullptr)
    return nullptr;
  const Byte* p = bytes(s);
  for (;;) {
    if (*p == 0)
      return c == 0 ? reinterpret_cast<const char*>(p) : nullptr;
    // Compared as a signed byte, as callers have always relied on.
    if (static_cast<signed char>(*p) == c)
      return reinterpret_cast<const char*>(p);
    std::size_t length = wholeCharacterLength(p);
    if (length == 0)
      return nullptr;
    p += length;
  }
}

const char* utf8_strrchr(const char* s, int c) {
  if (s == nullptr)
    return nullptr;
  const Byte* const start = bytes(s);
  const Byte* q = start + std::strlen(s);
  if (c == 0)
    return reinterpret_cast<const char*>(q);
  while (q > start) {
    --q;
    while (q > start && isContinuation(*q))
      --q;
    if (!isBackwardLead(*q))
      return nullptr;
    if (static_cast<signed char>(*q) == c)
      return reinterpret_cast<const char*>(q);
  }
  return nullptr;
}

char* utf8_strncpy(char* dst, const char* src, size_t n) {
  if (src != nullptr)
    while (isContinuation(static_cast<Byte>(*src)))
      ++src;
  if (dst == nullptr || src == nullptr)
    return dst;
  const Byte* from = bytes(src);
  std::size_t i = 0;
  for (;;) {
    if (from[i] == 0)
      break; // the zero fill below writes the terminator when a byte is left
    if (from[i] < 0x80 && i < n) {
      dst[i] = static_cast<char>(from[i]);
      ++i;
      continue;
    }
    std::size_t length = wholeCharacterLength(from + i);
    if (length == 0 || length > n - i)
      break;
    std::memcpy(dst + i, from + i, length);
    i += length;
  }
  if (i < n)
    std::memset(dst + i, 0, n - i);
  return dst;
}

char* utf8_strlcpy(char* dst, const char* src, size_t size) {
  if (dst == nullptr || size == 0)
    return dst;
  if (src == nullptr)
    dst[0] = 0;
  utf8_strncpy(dst, src, size - 1);
  dst[size - 1] = 0;
  return dst;
}

char* utf8_strlcat(char* dst, const char* src, size_t size) {
  if (dst == nullptr || size == 0)
    return dst;
  // Bounded so that a destination without a terminator is not overrun.
  std::size_t used = strnlen(dst, size);
  if (used < size - 1)
    utf8_strncpy(dst + used, src, size - 1 - used);
  dst[size - 1] = 0;
  return dst;
}

char* utf8_copy_chars(char* dst, const char* src, size_t count, size_t size) {
  if (dst == nullptr || size == 0)
    return dst;
  dst[0] = 0;
  if (src == nullptr || !utf8_check(src))
    return dst;
  const Byte* p = bytes(src);
  for (std::size_t i = 0; i < count && *p != 0; ++i) {
    std::size_t length = wholeCharacterLength(p);
    if (length == 0)
      break;
    p += length;
  }
  std::size_t byteCount = std::min(static_cast<std::size_t>(p - bytes(src)), size - 1);
  utf8_strncpy(dst, src, byteCount);
  dst[byteCount] = 0;
  return dst;
}

char* utf8_to_fileSystemRepresentation(char* dst, const char* src, size_t size) {
  if (dst == nullptr || size == 0)
    return dst;
  dst[0] = 0;
  if (src == nullptr || *src == 0)
    return dst;
  std::optional<icu::UnicodeString> text = strictFromUtf8(src, std::strlen(src));
  if (!text)
    return dst;
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
  if (U_FAILURE(status))
    return dst;
  icu::UnicodeString decomposed = nfd->normalize(*text, status);
  if (U_FAILURE(status))
    return dst;
  std::string utf8;
  decomposed.toUTF8String(utf8);
  utf8_strlcpy(dst, utf8.c_str(), size);
  return dst;
}

void utf8_log(const char* s) {
  logText(s, "utf8_log: malformed string", false);
}

void utf8_trace(const char* s) {
  logText(s, "utf8_trace: malformed string", true);
}

VTCORE_EXTERN_C_END

std::optional<icu::UnicodeString> utf8_to_qxstring(const char* s) {
  if (s == nullptr || *s == 0)
    return std::nullopt;
  return strictFromUtf8(s, std::strlen(s));
}

std::optional<icu::UnicodeString> utf8_to_zvstring(const char* s) {
  return utf8_to_qxstring(s);
}

void utf8_from_qxstring(char* dst, const std::optional<icu::UnicodeString>& str, size_t size) {
  if (dst == nullptr || size == 0)
    return;
  if (!str) {
    dst[0] = 0;
    return;
  }
  const char16_t* units = str->getBuffer();
  const std::size_t limit = size - 1;
  const int32_t unitCount = static_cast<int32_t>(
      std::min(limit, static_cast<std::size_t>(std::max<int32_t>(str->length(), 0))));
  std::size_t written = 0;
  for (int32_t i = 0; i < unitCount && units != nullptr;) {
    UChar32 c;
    U16_NEXT(units, i, unitCount, c);
    char encoded[4];
    std::size_t length = 0;
    if (U_IS_SURROGATE(c)) {
      encoded[length++] = '?';
    } else {
      UBool error = false;
      U8_APPEND(reinterpret_cast<uint8_t*>(encoded), length, 4, c, error);
      (void)error;
    }
    if (length > limit - written)
      break;
    std::memcpy(dst + written, encoded, length);
    written += length;
  }
  dst[written] = 0;
}

void utf8_from_zvstring(char* dst, const std::optional<icu::UnicodeString>& str, size_t size) {
  utf8_from_qxstring(dst, str, size);
}

char* utf8_to_legacyFileSystemCString(char* dst, const char* src, size_t size,
                                      std::optional<icu::UnicodeString>* outName) {
  if (dst == nullptr || size == 0)
    return dst;
  dst[0] = 0;
  if (outName != nullptr)
    outName->reset();
  if (src == nullptr || *src == 0)
    return dst;
  std::optional<icu::UnicodeString> text = strictFromUtf8(src, std::strlen(src));
  vtcore::IcuConverter converter = openLegacyConverter();
  if (!text || !converter)
    return dst;
  // One byte per character either way (mapped or "_"), so converting the
  // whole text and keeping the first size - 1 bytes never splits anything.
  UErrorCode status = U_ZERO_ERROR;
  int32_t needed =
      ucnv_fromUChars(converter.get(), nullptr, 0, text->getBuffer(), text->length(), &status);
  if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status))
    return dst;
  std::string converted(static_cast<std::size_t>(needed), '\0');
  status = U_ZERO_ERROR;
  ucnv_fromUChars(converter.get(), converted.data(), needed, text->getBuffer(), text->length(),
                  &status);
  if (U_FAILURE(status) && status != U_STRING_NOT_TERMINATED_WARNING)
    return dst;
  std::size_t length = std::min(converted.size(), size - 1);
  std::memcpy(dst, converted.data(), length);
  dst[length] = 0;
  if (outName != nullptr) {
    status = U_ZERO_ERROR;
    icu::UnicodeString readBack(dst, static_cast<int32_t>(length), converter.get(), status);
    if (U_SUCCESS(status) && readBack != *text)
      *outName = readBack;
  }
  return dst;
}

char* utf8_to_legacyFileSystemPascalString(char* dst, const char* src, size_t size,
                                           std::optional<icu::UnicodeString>* outName) {
  if (dst == nullptr || size == 0)
    return dst;
  utf8_to_legacyFileSystemCString(dst, src, std::min<size_t>(size, 255), outName);
  std::size_t length = std::strlen(dst);
  std::memmove(dst + 1, dst, length);
  dst[0] = static_cast<char>(length);
  return dst;
}
