#include "log_capture.h"

#include <vtcore/core/diagnostics/alert.h>
#include <vtcore/core/diagnostics/log.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using vtcore::test::CapturedLog;
using vtcore::test::ScopedEnv;
using vtcore::test::StandardErrorToFile;

namespace {

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

// Answers alerts from a script and remembers what it was asked.
class ScriptedPresenter {
public:
  explicit ScriptedPresenter(std::vector<int> answers) : answers_(std::move(answers)) {
    previous_ = vtcore::setAlertPresenter([this](const vtcore::AlertRequest& request) {
      requests_.push_back(request);
      const std::size_t i = requests_.size() - 1;
      return i < answers_.size() ? answers_[i] : vtcore::kAlertDefault;
    });
  }
  ~ScriptedPresenter() { vtcore::setAlertPresenter(std::move(previous_)); }
  ScriptedPresenter(const ScriptedPresenter&) = delete;
  ScriptedPresenter& operator=(const ScriptedPresenter&) = delete;
  const std::vector<vtcore::AlertRequest>& requests() const { return requests_; }

private:
  std::vector<int> answers_;
  std::vector<vtcore::AlertRequest> requests_;
  vtcore::AlertPresenter previous_;
};

class Assertions : public ::testing::Test {
protected:
  ScopedEnv banner_{"VTCORE_TRACE_WITHOUT_BANNER", "1"};
  StandardErrorToFile err_;
  CapturedLog log_;
};

TEST_F(Assertions, TrueConditionDoesNothingAndClearsTheFlag) {
  ScriptedPresenter presenter({});
  dbgASSERT(0, "x", "here", nullptr);
  EXPECT_EQ(dbgASSERT(1, "x", "here", nullptr), 0);
  EXPECT_EQ(dbgAssertionFailed(), 0);
  EXPECT_TRUE(bbAssert(true, "x", "1", "file", kAssertTypeDefault, nullptr));
  EXPECT_EQ(presenter.requests().size(), 1u);
}

TEST_F(Assertions, AlertAndLogTextsAreExact) {
  ScriptedPresenter presenter({vtcore::kAlertDefault});
  int counter = -1;
  EXPECT_EQ(dbgASSERT(0, "n > 0", "Player", &counter), 0);
  ASSERT_EQ(presenter.requests().size(), 1u);
  const auto& request = presenter.requests()[0];
  EXPECT_EQ(utf8(request.header), "Assertion failed");
  EXPECT_EQ(utf8(request.message), "ASSERT(n > 0) in Player failed.\n");
  EXPECT_EQ(utf8(request.defaultButton), "Resume");
  EXPECT_EQ(utf8(request.alternateButton), "Debugger");
  EXPECT_EQ(utf8(request.otherButton), "Don't show again");
  EXPECT_EQ(request.timeoutSeconds, 60);
  EXPECT_EQ(counter, -1);
  auto records = log_.sink().records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].identity, "dbgASSERT");
  EXPECT_EQ(records[0].field("Level"), "3");
  EXPECT_EQ(records[0].field("Message"), "ASSERT(n > 0) in Player failed.\n");
  EXPECT_EQ(dbgAssertionFailed(), 1);
  EXPECT_EQ(dbgAssertionFailed(), 0);
}

TEST_F(Assertions, CounterCountsDownAndCanBeSilenced) {
  ScriptedPresenter presenter({vtcore::kAlertDefault, vtcore::kAlertCancel, vtcore::kAlertOther});
  int counter = 3;
  EXPECT_EQ(dbgASSERT(0, "a", "f", &counter), 0);
  EXPECT_EQ(counter, 2);
  EXPECT_EQ(dbgASSERT(0, "a", "f", &counter), 0); // timed out: like Resume
  EXPECT_EQ(counter, 1);
  EXPECT_EQ(dbgASSERT(0, "a", "f", &counter), 0); // "Don't show again"
  EXPECT_EQ(counter, 0);
  EXPECT_EQ(dbgASSERT(0, "a", "f", &counter), 0); // silenced: not shown, not logged
  EXPECT_EQ(presenter.requests().size(), 3u);
  EXPECT_EQ(log_.sink().records().size(), 3u);
  EXPECT_EQ(dbgAssertionFailed(), 1); // still recorded as failed

  int below = -2; // any value below -1 is silenced too
  EXPECT_EQ(dbgASSERT(0, "a", "f", &below), 0);
  EXPECT_EQ(presenter.requests().size(), 3u);
}

TEST_F(Assertions, DebuggerAnswerIsReported) {
  ScriptedPresenter presenter({vtcore::kAlertAlternate, vtcore::kAlertAlternate});
  EXPECT_EQ(dbgASSERT(0, "x", "loc", nullptr), 1);
  EXPECT_EQ(utf8(presenter.requests()[0].otherButton), "Stop");
  EXPECT_FALSE(bbAssert(false, "n > 0", "212", "Player", kAssertTypeDebug, nullptr));
  EXPECT_EQ(utf8(presenter.requests()[1].message),
            "ASSERT(AAssert (n > 0) in Player, line 212 failed.) in Player failed.\n");
}

TEST_F(Assertions, NoPresenterMeansResume) {
  int counter = 1;
  EXPECT_TRUE(bbAssert(false, "x", "1", "f", kAssertTypeRelease, &counter));
  EXPECT_EQ(counter, 0);
}

TEST_F(Assertions, LongExpressionIsCutTo4095Bytes) {
  ScriptedPresenter presenter({});
  const std::string expression(5000, 'e');
  dbgASSERT(0, expression.c_str(), "loc", nullptr);
  EXPECT_EQ(presenter.requests().at(0).message.length(), 4095);
}

TEST_F(Assertions, PercentSignsAreFormattedOnceMoreButNeverReadArguments) {
  ScriptedPresenter presenter({});
  dbgASSERT(0, "ratio %% > %s %d", "loc", nullptr);
  EXPECT_EQ(log_.sink().records().at(0).field("Message"),
            "ASSERT(ratio % > %s %d) in loc failed.\n");
  EXPECT_EQ(utf8(presenter.requests().at(0).message), "ASSERT(ratio %% > %s %d) in loc failed.\n");
}

TEST(AssertionsDeath, StopWithoutCounterEndsTheProcessWithStatusOne) {
  EXPECT_EXIT(
      {
        vtcore::setAlertPresenter([](const vtcore::AlertRequest&) { return vtcore::kAlertOther; });
        dbgASSERT(0, "fatal", "loc", nullptr);
      },
      ::testing::ExitedWithCode(1), "");
}

} // namespace
