#include <vtcore/core/diagnostics/exception/exception.h>
#include <vtcore/core/diagnostics/log/format.h>

#include <gtest/gtest.h>

#include <cstdio>

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
