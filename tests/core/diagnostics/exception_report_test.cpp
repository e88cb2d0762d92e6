#include <vtcore/core/diagnostics/exception/exception.h>
#include <vtcore/core/diagnostics/exception/exception_report.h>
#include <vtcore/core/platform/alert.h>
#include <vtcore/core/platform/appinfo.h>
#include <vtcore/core/platform/log_sink.h>

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  return text.toUTF8String(out);
}

class ExceptionReport : public testing::Test {
protected:
  void SetUp() override {
    vtcore::setLogSink(&m_sink);
    vtcore::setApplicationName(u"Tester");
    vtcore::setApplicationVersion(u"1.2");
    vtcore::setTerminateHook([this] { ++m_terminations; });
    vtcore::setAlertPresenter([this](const vtcore::AlertRequest& request) {
      m_requests.push_back(request);
      if (m_nest)
        KWDisplayExceptionReport(std::runtime_error("nested"));
      return m_answer;
    });
  }
  void TearDown() override {
    vtcore::setAlertPresenter({});
    vtcore::setTerminateHook({});
    vtcore::setSymbolTool("");
    vtcore::setLogSink(nullptr);
    vtcore::setApplicationName(u"");
    vtcore::setApplicationVersion(u"");
  }
  // The messages the report logged.
  std::vector<std::string> messages() const {
    std::vector<std::string> result;
    for (const auto& record : m_sink.records())
      if (record.identity == "KWDisplayExceptionReport")
        result.push_back(record.field("Message"));
    return result;
  }

  vtcore::MemoryLogSink m_sink;
  std::vector<vtcore::AlertRequest> m_requests;
  int m_answer = vtcore::kAlertAlternate, m_terminations = 0;
  bool m_nest = false;
};

TEST_F(ExceptionReport, ResumeClearsTheFlagForTheNextReportAndAReportDuringOneIsDropped) {
  KWDisplayExceptionReport(std::runtime_error("disk full 100%")); // texts are never formats
  const auto& alert = m_requests.at(0);
  EXPECT_EQ(alert.level, vtcore::AlertLevel::Critical);
  EXPECT_EQ(utf8(alert.header) + "|" + utf8(alert.message) + "|" + utf8(alert.defaultButton) + "|" +
                utf8(alert.alternateButton) + "|" + utf8(alert.otherButton),
            "Tester has encountered an unexpected error.|disk full 100%\n\nA stack trace has been "
            "written to the log.|Stop|Resume|Crash with crash report");
  // An exception prints as its reason; an empty trace is no trace.
  KWDisplayExceptionReport(
      KWException("ESSingleton", "+singleton not implemented", {{KWExceptionStackTraceKey, ""}}));
  const auto report = [](const std::string& text) {
    return "**** Tester has encountered an unexpected error. ****\n\n" + text + "\n\nTester 1.2\n" +
           utf8(KWOSVersion()) + "\n\n";
  };
  const std::string none = "No stack trace available.";
  EXPECT_EQ(messages(), (std::vector<std::string>{report("disk full 100%"), none,
                                                  report("+singleton not implemented"), none}));
  EXPECT_EQ(m_terminations, 0);
  m_nest = true; // a report during a report is dropped
  m_answer = vtcore::kAlertDefault;
  KWDisplayExceptionReport(std::runtime_error("x"));
  EXPECT_EQ(m_requests.size(), 3u);
  EXPECT_EQ(messages().size(), 6u);
  EXPECT_EQ(m_terminations, 1) << "Stop asks the application to terminate";
}

TEST_F(ExceptionReport, StartsTheSymbolToolWithTheSplitStackAddressesOrLogsItsAbsence) {
  // A stand-in tool that writes its arguments to a file.
  char directory[] = "/tmp/vtcore-report-XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  const std::string tool = std::string(directory) + "/symbols", out = tool + ".out";
  std::ofstream(tool) << "#!/bin/sh\necho \"$*\" > \"" << out << "\"\n";
  chmod(tool.c_str(), 0755);
  vtcore::setSymbolTool(tool);
  KWDisplayExceptionReport(KWException("KWFlyweight", "bad",
                                       {{KWExceptionStackTraceKey, "0x401000  0x401abc  0x7f00"}}));
  ASSERT_TRUE(vtcore::waitForSymbolTools(30));
  std::ifstream in(out);
  std::string arguments; // two blanks would show an address list passed whole
  std::getline(in, arguments);
  EXPECT_EQ(arguments, "-p " + std::to_string(getpid()) + " -a -f -C 0x401000 0x401abc 0x7f00");
  EXPECT_EQ(messages().size(), 1u) << "no 'No stack trace' line";

  vtcore::setSymbolTool("/nonexistent/eu-addr2line");
  KWDisplayExceptionReport(KWException("KWInternalInconsistencyException", "broken"));
  ASSERT_EQ(messages().size(), 3u);
  EXPECT_NE(messages()[2].find("/nonexistent/eu-addr2line was not found"), std::string::npos);
  EXPECT_EQ(m_requests.size(), 2u) << "the report went on";
}

// In a forked child: a report answered with `answer`, then exit code 7.
[[noreturn]] void reportAnswered(int answer) {
  vtcore::setTerminateHook({}); // the default: a normal exit
  vtcore::setAlertPresenter([answer](const vtcore::AlertRequest&) { return answer; });
  KWDisplayExceptionReport(std::runtime_error("x"));
  std::_Exit(7);
}

// Checks the fault from inside the dying child: it must be a write to address
// 0. Then the default action is back and the store faults again, ending the
// child by SIGSEGV; any other fault ends it with an exit code that says why.
void checkFault(int, siginfo_t* info, void* context) {
  if (info->si_addr != nullptr)
    _exit(91);
#if defined(__x86_64__)
  // Bit 1 of the page-fault error code: the access was a write.
  const auto* machine = static_cast<const ucontext_t*>(context);
  if ((machine->uc_mcontext.gregs[REG_ERR] & 2) == 0)
    _exit(92);
#else
  (void)context;
#endif
}

[[noreturn]] void crashAnsweredAndChecked() {
  struct sigaction action {};
  action.sa_sigaction = checkFault;
  action.sa_flags = SA_SIGINFO | SA_RESETHAND;
  sigemptyset(&action.sa_mask);
  sigaction(SIGSEGV, &action, nullptr);
  reportAnswered(vtcore::kAlertOther);
}

// Also under the optimiser and the sanitizers, which would turn a plain C++
// store through null into a trap (SIGILL) or an error report of their own.
TEST_F(ExceptionReport, CrashWithCrashReportEndsTheProcessWithAnInvalidMemoryFault) {
  EXPECT_EXIT(crashAnsweredAndChecked(), testing::KilledBySignal(SIGSEGV), "");
  EXPECT_EXIT(reportAnswered(vtcore::kAlertDefault), testing::ExitedWithCode(0), "");
}

} // namespace
