#include <vtcore/core/diagnostics/alert.h>
#include <vtcore/core/diagnostics/exception.h>
#include <vtcore/core/diagnostics/exception_report.h>
#include <vtcore/core/diagnostics/log_sink.h>
#include <vtcore/system/appinfo.h>

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(VTCORE_TEST_SANITIZED)
#define SANITIZED 1
#else
#define SANITIZED 0
#endif

namespace {

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  return text.toUTF8String(out);
}

class ExceptionReport : public testing::Test {
protected:
  void SetUp() override {
    previousSink_ = vtcore::setLogSink(&sink_);
    vtcore::setApplicationName(u"Tester");
    vtcore::setApplicationVersion(u"1.2");
    vtcore::setTerminateHook([this] { ++terminations_; });
    answerWith(vtcore::kAlertAlternate);
  }
  void TearDown() override {
    vtcore::setAlertPresenter({});
    vtcore::setTerminateHook({});
    vtcore::setSymbolTool("");
    vtcore::setLogSink(previousSink_);
  }

  void answerWith(int answer) {
    vtcore::setAlertPresenter([this, answer](const vtcore::AlertRequest& request) {
      requests_.push_back(request);
      return answer;
    });
  }

  // The messages the report logged.
  std::vector<std::string> messages() const {
    std::vector<std::string> result;
    for (const auto& record : sink_.records())
      if (record.identity == "KWDisplayExceptionReport")
        for (const auto& [key, value] : record.fields)
          if (key == "Message")
            result.push_back(value);
    return result;
  }

  std::string header() const { return "**** Tester has encountered an unexpected error. ****\n\n"; }
  std::string footer() const { return "\n\nTester 1.2\n" + utf8(KWOSVersion()) + "\n\n"; }

  vtcore::MemoryLogSink sink_;
  vtcore::LogSink* previousSink_ = nullptr;
  std::vector<vtcore::AlertRequest> requests_;
  int terminations_ = 0;
};

TEST_F(ExceptionReport, ResumeReturnsAndALaterExceptionIsReportedAgain) {
  KWDisplayExceptionReport(std::runtime_error("disk full"));
  ASSERT_EQ(messages(), (std::vector<std::string>{header() + "disk full" + footer(),
                                                  "No stack trace available."}));
  ASSERT_EQ(requests_.size(), 1u);
  const auto& alert = requests_[0];
  EXPECT_EQ(alert.level, vtcore::AlertLevel::Critical);
  EXPECT_EQ(utf8(alert.header), "Tester has encountered an unexpected error.");
  EXPECT_EQ(utf8(alert.message), "disk full\n\nA stack trace has been written to the log.");
  EXPECT_EQ(utf8(alert.defaultButton), "Stop");
  EXPECT_EQ(utf8(alert.alternateButton), "Resume");
  EXPECT_EQ(utf8(alert.otherButton), "Crash with crash report");
  EXPECT_EQ(terminations_, 0);

  KWDisplayExceptionReport(std::runtime_error("again 100%"));
  EXPECT_EQ(messages().size(), 4u);
  EXPECT_EQ(messages()[2], header() + "again 100%" + footer()) << "texts are never formats";
  EXPECT_EQ(requests_.size(), 2u);
}

TEST_F(ExceptionReport, AReportDuringAReportIsDroppedSilently) {
  vtcore::setAlertPresenter([this](const vtcore::AlertRequest& request) {
    requests_.push_back(request);
    const auto logged = messages().size();
    KWDisplayExceptionReport(std::runtime_error("nested"));
    EXPECT_EQ(messages().size(), logged);
    return vtcore::kAlertAlternate;
  });
  KWDisplayExceptionReport(std::runtime_error("outer"));
  EXPECT_EQ(requests_.size(), 1u);
  EXPECT_EQ(messages().size(), 2u);
}

TEST_F(ExceptionReport, StopAsksTheApplicationToTerminate) {
  KWDisplayExceptionReport(
      KWException("ESSingleton", "+singleton not implemented", {{KWExceptionStackTraceKey, ""}}));
  EXPECT_EQ(terminations_, 0);
  // An exception prints as its reason.
  EXPECT_EQ(messages()[0], header() + "+singleton not implemented" + footer());
  EXPECT_EQ(messages()[1], "No stack trace available.") << "an empty trace is no trace";

  answerWith(vtcore::kAlertDefault);
  KWDisplayExceptionReport(std::runtime_error("x"));
  EXPECT_EQ(terminations_, 1);
  vtcore::setAlertPresenter({}); // no presenter answers the default, "Stop"
  KWDisplayExceptionReport(std::runtime_error("x"));
  EXPECT_EQ(terminations_, 2);
  answerWith(vtcore::kAlertCancel);
  KWDisplayExceptionReport(std::runtime_error("x"));
  EXPECT_EQ(terminations_, 2) << "a cancelled alert resumes";
}

// A stand-in symbol tool that writes its arguments, one a line, to a file.
std::string writeArgumentRecorder(const std::string& directory) {
  const std::string tool = directory + "/symbols";
  std::ofstream(tool) << "#!/bin/sh\nprintf '%s\\n' \"$@\" > \"" << directory << "/arguments\"\n";
  chmod(tool.c_str(), 0755);
  return tool;
}

TEST_F(ExceptionReport, StartsTheSymbolToolWithTheSplitStackAddresses) {
  char directory[] = "/tmp/vtcore-report-XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  vtcore::setSymbolTool(writeArgumentRecorder(directory));
  KWDisplayExceptionReport(KWException("KWFlyweight", "bad",
                                       {{KWExceptionStackTraceKey, "0x401000  0x401abc  0x7f00"}}));
  ASSERT_TRUE(vtcore::waitForSymbolTools(30));
  std::ifstream in(std::string(directory) + "/arguments");
  std::string arguments, line;
  while (std::getline(in, line))
    arguments += line + " ";
  EXPECT_EQ(arguments, "-p " + std::to_string(getpid()) + " -a -f -C 0x401000 0x401abc 0x7f00 ");
  EXPECT_EQ(messages().size(), 1u) << "no 'No stack trace' line";
  EXPECT_EQ(requests_.size(), 1u);
}

TEST_F(ExceptionReport, AMissingSymbolToolCostsOneLoggedLine) {
  vtcore::setSymbolTool("/nonexistent/eu-addr2line");
  KWDisplayExceptionReport(KWException("KWInternalInconsistencyException", "broken"));
  const auto logged = messages();
  ASSERT_EQ(logged.size(), 2u);
  EXPECT_NE(logged[1].find("/nonexistent/eu-addr2line was not found"), std::string::npos)
      << logged[1];
  EXPECT_EQ(requests_.size(), 1u) << "the report went on";
}

int childStatus(const std::function<void()>& body) {
  const pid_t pid = fork();
  if (pid == 0) {
    body();
    _exit(7); // the report returned
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return status;
}

TEST_F(ExceptionReport, CrashWithCrashReportEndsTheProcessWithAnInvalidMemoryFault) {
  const int status = childStatus([this] {
    answerWith(vtcore::kAlertOther);
    KWDisplayExceptionReport(std::runtime_error("crash"));
  });
  if (SANITIZED)
    EXPECT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) == 7)
        << "the sanitizers report the fault";
  else
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
}

TEST_F(ExceptionReport, TheDefaultTerminateHookExitsNormally) {
  const int status = childStatus([this] {
    vtcore::setTerminateHook({});
    answerWith(vtcore::kAlertDefault);
    KWDisplayExceptionReport(std::runtime_error("stop"));
  });
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

} // namespace
