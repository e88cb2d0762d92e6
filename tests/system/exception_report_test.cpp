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
    vtcore::setApplicationName(u"");
    vtcore::setApplicationVersion(u"");
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
      for (const auto& [key, value] : record.fields)
        if (record.identity == "KWDisplayExceptionReport" && key == "Message")
          result.push_back(value);
    return result;
  }
  // The logged report of an exception whose text is `text`.
  static std::string report(const std::string& text) {
    return "**** Tester has encountered an unexpected error. ****\n\n" + text + "\n\nTester 1.2\n" +
           utf8(KWOSVersion()) + "\n\n";
  }

  vtcore::MemoryLogSink sink_;
  vtcore::LogSink* previousSink_ = nullptr;
  std::vector<vtcore::AlertRequest> requests_;
  int terminations_ = 0;
};

TEST_F(ExceptionReport, ResumeReturnsAndALaterExceptionIsReportedAgain) {
  KWDisplayExceptionReport(std::runtime_error("disk full"));
  ASSERT_EQ(requests_.size(), 1u);
  const auto& alert = requests_[0];
  EXPECT_EQ(alert.level, vtcore::AlertLevel::Critical);
  EXPECT_EQ(utf8(alert.header) + "|" + utf8(alert.message) + "|" + utf8(alert.defaultButton) + "|" +
                utf8(alert.alternateButton) + "|" + utf8(alert.otherButton),
            "Tester has encountered an unexpected error.|disk full\n\nA stack trace has been "
            "written to the log.|Stop|Resume|Crash with crash report");
  KWDisplayExceptionReport(std::runtime_error("again 100%")); // texts are never formats
  // An exception prints as its reason; an empty trace is no trace.
  KWDisplayExceptionReport(
      KWException("ESSingleton", "+singleton not implemented", {{KWExceptionStackTraceKey, ""}}));
  const std::string none = "No stack trace available.";
  EXPECT_EQ(messages(),
            (std::vector<std::string>{report("disk full"), none, report("again 100%"), none,
                                      report("+singleton not implemented"), none}));
  EXPECT_EQ(terminations_, 0);
}

TEST_F(ExceptionReport, AReportDuringAReportIsDroppedSilently) {
  vtcore::setAlertPresenter([this](const vtcore::AlertRequest& request) {
    requests_.push_back(request);
    KWDisplayExceptionReport(std::runtime_error("nested"));
    return vtcore::kAlertAlternate;
  });
  KWDisplayExceptionReport(std::runtime_error("outer"));
  EXPECT_EQ(requests_.size(), 1u);
  EXPECT_EQ(messages().size(), 2u);
}

TEST_F(ExceptionReport, StopAsksTheApplicationToTerminateAndCancelResumes) {
  answerWith(vtcore::kAlertDefault);
  KWDisplayExceptionReport(std::runtime_error("x"));
  EXPECT_EQ(terminations_, 1);
  vtcore::setAlertPresenter({}); // no presenter answers the default, "Stop"
  KWDisplayExceptionReport(std::runtime_error("x"));
  EXPECT_EQ(terminations_, 2);
  answerWith(vtcore::kAlertCancel);
  KWDisplayExceptionReport(std::runtime_error("x"));
  EXPECT_EQ(terminations_, 2);
}

TEST_F(ExceptionReport, StartsTheSymbolToolWithTheSplitStackAddresses) {
  // A stand-in tool that writes its arguments, one a line, to a file.
  char directory[] = "/tmp/vtcore-report-XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  const std::string tool = std::string(directory) + "/symbols", out = tool + ".out";
  std::ofstream(tool) << "#!/bin/sh\nprintf '%s\\n' \"$@\" > \"" << out << "\"\n";
  chmod(tool.c_str(), 0755);
  vtcore::setSymbolTool(tool);
  KWDisplayExceptionReport(KWException("KWFlyweight", "bad",
                                       {{KWExceptionStackTraceKey, "0x401000  0x401abc  0x7f00"}}));
  ASSERT_TRUE(vtcore::waitForSymbolTools(30));
  std::ifstream in(out);
  std::string arguments, line;
  while (std::getline(in, line))
    arguments += line + " ";
  EXPECT_EQ(arguments, "-p " + std::to_string(getpid()) + " -a -f -C 0x401000 0x401abc 0x7f00 ");
  EXPECT_EQ(messages().size(), 1u) << "no 'No stack trace' line";
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

// Runs a report in a forked child answered with `answer`; the exit status.
int childStatus(int answer, bool defaultTerminateHook = false) {
  const pid_t pid = fork();
  if (pid == 0) {
    if (defaultTerminateHook)
      vtcore::setTerminateHook({});
    vtcore::setAlertPresenter([answer](const vtcore::AlertRequest&) { return answer; });
    KWDisplayExceptionReport(std::runtime_error("x"));
    _exit(7); // the report returned
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return status;
}

TEST_F(ExceptionReport, CrashWithCrashReportEndsTheProcessWithAnInvalidMemoryFault) {
  const int status = childStatus(vtcore::kAlertOther);
  if (SANITIZED)
    EXPECT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << "the sanitizers report it";
  else
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
  const int resumed = childStatus(vtcore::kAlertAlternate);
  EXPECT_TRUE(WIFEXITED(resumed) && WEXITSTATUS(resumed) == 7) << "Resume returns";
}

TEST_F(ExceptionReport, TheDefaultTerminateHookExitsNormally) {
  const int status = childStatus(vtcore::kAlertDefault, true);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

} // namespace
