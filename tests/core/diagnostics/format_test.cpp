#include <vtcore/core/diagnostics/exception/exception.h>
#include <vtcore/core/diagnostics/log/format.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <sys/types.h>

using vtcore::detail::FormatArgument;
using vtcore::detail::formatSafely;

namespace {

template <typename... Arguments>
std::string format(const char* text, const Arguments&... arguments) {
  const FormatArgument packed[] = {FormatArgument(arguments)..., FormatArgument()};
  return formatSafely(text, std::span(packed, sizeof...(Arguments)));
}

TEST(FormatSafely, BehavesLikePrintfForItsConversions) {
  char expected[256];
  std::snprintf(expected, sizeof expected, "%5d|%-4u|%08.3f|%x|%X|%o|%+i|%.2s|%c|%e|%%", -42, 7u,
                3.14159, 255u, 255u, 8u, 5, "abc", 'z', 1e10);
  EXPECT_EQ(format("%5d|%-4u|%08.3f|%x|%X|%o|%+i|%.2s|%c|%e|%%", -42, 7u, 3.14159, 255u, 255u, 8u,
                   5, "abc", 'z', 1e10),
            expected);
  EXPECT_EQ(format("%*d|%.*f", 6, 12, 1, 2.25), "    12|2.2");
  EXPECT_EQ(format("%lld %zu %hhd", 1LL << 40, std::size_t{9}, 3), "1099511627776 9 3");
}

// snprintf's own answer for the same format and arguments.
template <typename... Arguments>
std::string printed(const char* text, Arguments... arguments) {
  char buffer[512];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(buffer, sizeof buffer, text, arguments...);
#pragma GCC diagnostic pop
  return buffer;
}

struct PrintfCase {
  const char* format;
  std::string ours;
  std::string reference;
};

// Each row formats the same literal with the same C-typed arguments through
// formatSafely and through snprintf; the literal is also checked by the
// compiler's printf format checking, so the table holds only well-defined calls.
#define LIKE_PRINTF(text, ...)                                                                     \
  PrintfCase {                                                                                     \
    text, format(text, __VA_ARGS__), printed(text, __VA_ARGS__)                                    \
  }

TEST(FormatSafely, MatchesSnprintfForArgumentTypesLengthModifiersAndPositions) {
  int dummy = 0;
  const PrintfCase cases[] = {
      // The argument's own type and the length modifier decide what is read.
      LIKE_PRINTF("%x|%X|%o|%u", -1, -255, -1, -1),
      LIKE_PRINTF("%hhd|%hhu|%hhx|%hhd", 300, 300, -1, -129),
      LIKE_PRINTF("%hd|%hu|%hx", 70000, -1, 65537),
      LIKE_PRINTF("%d|%u|%x", static_cast<short>(-3), static_cast<unsigned char>(200), 'a'),
      LIKE_PRINTF("%ld|%lu|%lx", std::numeric_limits<long>::min(),
                  std::numeric_limits<unsigned long>::max(), -1L),
      LIKE_PRINTF("%lld|%llu|%llX|%qd", std::numeric_limits<long long>::min(),
                  std::numeric_limits<unsigned long long>::max(), -2LL, 5LL),
      LIKE_PRINTF("%zu|%zd|%zx", SIZE_MAX, static_cast<ssize_t>(-5), std::size_t{48879}),
      LIKE_PRINTF("%jd|%ju|%td|%tx", INTMAX_MIN, UINTMAX_MAX, static_cast<std::ptrdiff_t>(-7),
                  static_cast<std::ptrdiff_t>(-1)),
      LIKE_PRINTF("%d|%i|%u", std::numeric_limits<int>::min(), 0, 4000000000u),
      // Flags, width and precision.
      LIKE_PRINTF("%5.3d|%-+6d|% d|%#o|%#x|%#X|%05d|%.0d|", 7, 42, 5, 8u, 255u, 0u, -42, 0),
      LIKE_PRINTF("%*d|%-*d|%*d|%.*f|%.*f", 6, 12, 4, 3, -5, 1, 1, 2.25, -1, 2.5),
      LIKE_PRINTF("%'d|%+.3e|%10.4f|%-10g|", 1234567, 12345.678, -3.14159, 1e20),
      LIKE_PRINTF("%e|%E|%g|%G|%a|%A", 1e-300, 6.02e23, 0.0001, 1e-5, 1.0, -0.5),
      LIKE_PRINTF("%f|%F|%.1f", static_cast<double>(1.5f), -0.0, 0.05),
      LIKE_PRINTF("%Lf|%.20Lg|%Le", 1.5L, 1.0L / 3, -2.5L),
      // Characters and texts.
      LIKE_PRINTF("%c|%c|%3c|%-3c|", 'A', 300, 'x', 'y'),
      LIKE_PRINTF("%s|%.2s|%10s|%-6s|", "abc", "abc", "right", "left"),
      LIKE_PRINTF("%p|%p", static_cast<void*>(&dummy), static_cast<void*>(nullptr)),
      // Numbered conversions, also for widths and precisions, used twice or
      // out of order.
      LIKE_PRINTF("%2$s %1$s", "a", "b"),
      LIKE_PRINTF("%3$s-%1$s-%2$s-%1$s", "x", "y", "z"),
      LIKE_PRINTF("[%1$*2$d][%1$-*2$x]", 255, 6),
      LIKE_PRINTF("[%1$*2$.*3$f]", 3.14159, 10, 2),
      LIKE_PRINTF("%2$hhd %1$lld %%", 1LL << 40, 300),
  };
  for (const auto& c : cases)
    EXPECT_EQ(c.ours, c.reference) << c.format;
}

TEST(FormatSafely, NumberedObjectsAndMixedNumbering) {
  EXPECT_EQ(format("%2$@ %1$@", "a", "b"), "b a");
  EXPECT_EQ(format("%2$@ is %1$5.1f", 2.25, icu::UnicodeString::fromUTF8("ü")), "ü is   2.2");
  // printf takes one kind per format: the first conversion decides.
  EXPECT_EQ(format("%1$s %s", "a", "b"), "a %s");
  EXPECT_EQ(format("%s %1$s", "a", "b"), "a %1$s");
  EXPECT_EQ(format("%1$*d", 1, 2), "%1$*d");
  // A number past the arguments is shown as it stands, and so is 0.
  EXPECT_EQ(format("%3$s|%0$s|%1$s", "a", "b"), "%3$s|%0$s|a");
  // Floating point read by integer conversions is held in range, not undefined.
  EXPECT_EQ(format("%d|%lld|%u|%hhd|%d|%d", 1e300, -1e300, -1.0, 1000.0, std::nan(""), -2.9),
            "2147483647|-9223372036854775808|0|127|0|-2");
}

TEST(FormatSafely, MissingArgumentsAndUnknownConversionsStayAsTheyStand) {
  EXPECT_EQ(format("%d and %s and %@"), "%d and %s and %@");
  EXPECT_EQ(format("%d %d", 1), "1 %d");
  EXPECT_EQ(format("%n %k %", 1), "%n %k %");
  EXPECT_EQ(format("%*d", 5), "%*d"); // width consumed nothing: needs two
  EXPECT_EQ(format("[%2000000000d]", 1), "[%2000000000d]");
}

TEST(FormatSafely, ObjectPlaceholderPrintsDescriptions) {
  struct Thing {
    std::string description() const { return "a thing"; }
  };
  Thing thing;
  const Thing* none = nullptr;
  KWException error("KWFlyweight", "bad init");
  EXPECT_EQ(format("%@|%@|%@|%@|%@|%@", icu::UnicodeString::fromUTF8("ü"), thing, &thing, none, 12,
                   error),
            "ü|a thing|a thing|(null)|12|bad init");
  EXPECT_EQ(format("%C", 0xB1u), "±");
  EXPECT_EQ(format("%s", static_cast<const char*>(nullptr)), "(null)");
}

TEST(KWExceptionTest, CarriesNameReasonAndCallChain) {
  KWException error("ESSingleton", "no storage", {{"key", "value"}});
  EXPECT_EQ(error.name(), "ESSingleton");
  EXPECT_STREQ(error.what(), "no storage");
  EXPECT_EQ(error.userInfo().at("key"), "value");
  const std::string& chain = error.userInfo().at(KWExceptionStackTraceKey);
  EXPECT_EQ(chain.rfind("0x", 0), 0u);
  EXPECT_NE(chain.find("  0x"), std::string::npos);
}

TEST(AssertionHandler, DefaultThrowsAndReplacementIsCalled) {
  vtcore::AssertionFailure failure{"compressedData", "<data>", "data.cpp", 12, "zlib failed"};
  try {
    vtcore::handleAssertionFailure(failure);
    FAIL() << "expected KWException";
  } catch (const KWException& error) {
    EXPECT_EQ(error.name(), "KWInternalInconsistencyException");
    EXPECT_EQ(error.reason(), "zlib failed");
  }
  int calls = 0;
  vtcore::setAssertionHandler([&](const vtcore::AssertionFailure& f) {
    ++calls;
    EXPECT_EQ(f.line, 12);
  });
  vtcore::handleAssertionFailure(failure);
  vtcore::setAssertionHandler({});
  EXPECT_EQ(calls, 1);
}

} // namespace
