#include <tests/support/log_capture.h>

#include <vtcore/core/diagnostics/log/log.h>
#include <vtcore/core/platform/alert.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace vtcore::test;

namespace {

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  return text.toUTF8String(out);
}

class Assertions : public ::testing::Test {
protected:
  ~Assertions() override { vtcore::setAlertPresenter({}); }
  // Answers from `answers`, then with the default, and records each request.
  void answer(std::vector<int> answers) {
    vtcore::setAlertPresenter([this, answers](const vtcore::AlertRequest& request) {
      m_requests.push_back(request);
      const std::size_t i = m_requests.size() - 1;
      return i < answers.size() ? answers[i] : vtcore::kAlertDefault;
    });
  }
  std::string message(std::size_t i) const { return utf8(m_requests.at(i).message); }

  ScopedEnv m_banner{"VTCORE_TRACE_WITHOUT_BANNER", "1"};
  StandardErrorToFile m_err;
  CapturedLog m_log;
  std::vector<vtcore::AlertRequest> m_requests;
};

TEST_F(Assertions, NoPresenterMeansResumeAndATrueConditionShowsNothing) {
  int counter = 1;
  EXPECT_TRUE(bbAssert(false, "x", "1", "f", kAssertTypeRelease, &counter));
  EXPECT_EQ(counter, 0);
  answer({});
  dbgASSERT(0, "x", "here", nullptr);
  EXPECT_EQ(dbgASSERT(1, "x", "here", nullptr), 0);
  EXPECT_EQ(dbgAssertionFailed(), 0) << "a passing assertion clears the flag";
  EXPECT_TRUE(bbAssert(true, "x", "1", "file", kAssertTypeDefault, nullptr));
  EXPECT_EQ(m_requests.size(), 1u);
}

TEST_F(Assertions, AlertAndLogTextsAreExactAndDebuggerAnswersOne) {
  answer({vtcore::kAlertAlternate});
  int counter = -1;
  EXPECT_EQ(dbgASSERT(0, "n > 0", "Player", &counter), 1);
  const auto& r = m_requests.at(0);
  EXPECT_EQ(utf8(r.header) + "|" + utf8(r.message) + "|" + utf8(r.defaultButton) + "|" +
                utf8(r.alternateButton) + "|" + utf8(r.otherButton),
            "Assertion failed|ASSERT(n > 0) in Player failed.\n|Resume|Debugger|Don't show again");
  EXPECT_EQ(r.timeoutSeconds, 60);
  EXPECT_EQ(counter, -1);
  const auto records = m_log.sink().records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].identity + "|" + records[0].field("Level") + "|" +
                records[0].field("Message"),
            "dbgASSERT|3|ASSERT(n > 0) in Player failed.\n");
  EXPECT_EQ(dbgAssertionFailed(), 1);
  EXPECT_EQ(dbgAssertionFailed(), 0);
}

TEST_F(Assertions, CounterCountsDownAndCanBeSilenced) {
  answer({vtcore::kAlertDefault, vtcore::kAlertCancel, vtcore::kAlertOther});
  int counter = 3;
  EXPECT_EQ(dbgASSERT(0, "a", "f", &counter), 0);
  EXPECT_EQ(counter, 2);
  EXPECT_EQ(dbgASSERT(0, "a", "f", &counter), 0); // timed out: like Resume
  EXPECT_EQ(counter, 1);
  EXPECT_EQ(dbgASSERT(0, "a", "f", &counter), 0); // "Don't show again"
  EXPECT_EQ(counter, 0);
  EXPECT_EQ(dbgASSERT(0, "a", "f", &counter), 0); // silenced: not shown, not logged
  counter = -2;                                   // and so is any value below -1
  EXPECT_EQ(dbgASSERT(0, "a", "f", &counter), 0);
  EXPECT_EQ(m_requests.size(), 3u);
  EXPECT_EQ(m_log.sink().records().size(), 3u);
  EXPECT_EQ(dbgAssertionFailed(), 1); // still recorded as failed
}

TEST_F(Assertions, MessagesNestAreCutTo4095BytesAndNeverReadArguments) {
  answer({vtcore::kAlertAlternate}); // the debugger's answer makes bbAssert false
  EXPECT_FALSE(bbAssert(false, "n > 0", "212", "Player", kAssertTypeDebug, nullptr));
  EXPECT_EQ(message(0), "ASSERT(AAssert (n > 0) in Player, line 212 failed.) in Player failed.\n");
  EXPECT_EQ(utf8(m_requests[0].otherButton), "Stop") << "without a counter";
  dbgASSERT(0, std::string(5000, 'e').c_str(), "loc", nullptr);
  EXPECT_EQ(m_requests.at(1).message.length(), 4095);
  // The log formats the text once more; the alert shows it as it is.
  dbgASSERT(0, "ratio %% > %s %d", "loc", nullptr);
  EXPECT_EQ(m_log.sink().records().at(2).field("Message"),
            "ASSERT(ratio % > %s %d) in loc failed.\n");
  EXPECT_EQ(message(2), "ASSERT(ratio %% > %s %d) in loc failed.\n");
}

TEST_F(Assertions, StopWithoutCounterEndsTheProcessWithStatusOne) {
  answer({vtcore::kAlertOther});
  EXPECT_EXIT(dbgASSERT(0, "fatal", "loc", nullptr), ::testing::ExitedWithCode(1), "");
}

} // namespace
