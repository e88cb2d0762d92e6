#include <vtcore/core/diagnostics/trace/VTTrace.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>
#include <limits>
#include <sstream>
#include <vector>

namespace {

// Swaps std::cout's buffer for a string buffer, and empties the indentation
// stack, for the test's duration.
class Trace : public ::testing::Test {
protected:
  void SetUp() override {
    gTraceIndent.clear();
    m_saved = std::cout.rdbuf(m_out.rdbuf());
  }
  void TearDown() override {
    std::cout.rdbuf(m_saved);
    gTraceIndent.clear();
  }
  std::string taken() {
    std::string text = m_out.str();
    m_out.str("");
    return text;
  }
  std::ostringstream m_out;
  std::streambuf* m_saved = nullptr;
};

TEST_F(Trace, IndentationNestsAndUnwinds) {
  IndentToCout();
  EXPECT_EQ(taken(), "");
  EXPECT_EQ(bbTraceIndentBegin("a", "", 2), 2);
  IndentToCout();
  EXPECT_EQ(taken(), "  ");
  EXPECT_EQ(bbTraceIndentBegin("b", "text", 2), 4);
  IndentToCout();
  EXPECT_EQ(taken(), "    ");
  bbTraceIndentEnd();
  IndentToCout();
  EXPECT_EQ(taken(), "  ");
  bbTraceIndentEnd();
  bbTraceIndentEnd(); // unbalanced end on an empty stack is harmless
  EXPECT_TRUE(gTraceIndent.empty());
}

TEST_F(Trace, WidthIsCappedAndNegativeWidthWritesNothing) {
  bbTraceIndentBegin("wide", "", 5000);
  IndentToCout();
  EXPECT_EQ(taken(), std::string(2048, ' '));
  gTraceIndent.clear();
  EXPECT_EQ(bbTraceIndentBegin("negative", "", -3), -3);
  IndentToCout();
  EXPECT_EQ(taken(), "");
}

TEST_F(Trace, HugeIndentsSaturateInsteadOfWrapping) {
  constexpr int kMax = std::numeric_limits<std::int32_t>::max();
  constexpr int kMin = std::numeric_limits<std::int32_t>::min();
  EXPECT_EQ(bbTraceIndentBegin("a", "", kMax), kMax);
  EXPECT_EQ(bbTraceIndentBegin("b", "", kMax), kMax) << "held, not wrapped negative";
  IndentToCout();
  EXPECT_EQ(taken(), std::string(2048, ' '));
  bbTraceIndentEnd();
  // Back down from the held width: the arithmetic stays exact below the limit.
  EXPECT_EQ(bbTraceIndentBegin("c", "", -kMax), 0);
  gTraceIndent.clear();
  EXPECT_EQ(bbTraceIndentBegin("d", "", kMin), kMin);
  EXPECT_EQ(bbTraceIndentBegin("e", "", -1), kMin);
  IndentToCout();
  EXPECT_EQ(taken(), "");
}

struct Element {
  int value;
};
std::ostream& operator<<(std::ostream& stream, const Element& element) {
  return stream << "element " << element.value << "\n";
}

TEST_F(Trace, ContainerIndentsEveryElementOnStandardOutput) {
  std::vector<Element> none;
  TraceOutContainer(std::cout, none, "none", 0);
  EXPECT_EQ(taken(), "");
  bbTraceIndentBegin("list", "", 4);
  std::vector<Element> three{{1}, {2}, {3}};
  TraceOutContainer(std::cout, three, "three", 0);
  EXPECT_EQ(taken(), "    element 1\n    element 2\n    element 3\n");
  // With another stream, the elements go there and the blanks to stdout.
  std::ostringstream other;
  TraceOutContainer(other, three, "three", 0);
  EXPECT_EQ(other.str(), "element 1\nelement 2\nelement 3\n");
  EXPECT_EQ(taken(), std::string(12, ' '));
}

} // namespace
