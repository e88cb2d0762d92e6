#include <tests/support/log_capture.h>
#include <tests/support/refusing_allocator.h>

#include <vtcore/core/diagnostics/log/log.h>
#include <vtcore/core/platform/alert.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <regex>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <utility>
#include <vector>

using namespace vtcore::test;

namespace {

// Every test starts with no forced copy, no systemd stream and banners on.
class Logging : public ::testing::Test {
protected:
  ScopedEnv m_force{"QXLOG_FORCE_STDERR", nullptr};
  ScopedEnv m_journal{"JOURNAL_STREAM", nullptr};
  ScopedEnv m_banner{"VTCORE_TRACE_WITHOUT_BANNER", nullptr};
  CapturedLog m_log;
};

using Fields = decltype(vtcore::LogRecord::fields);

TEST_F(Logging, BannerRecordsAndTheLineFeedRule) {
  StandardErrorToFile err;
  KWLogCString(4, true, "Loader", "loaded %d files", 3);
  KWLogCString(2, false, nullptr, "plain");
  KWLogCString(6, false, nullptr, "ends in a line feed\n");
  KWLogCString(6, false, nullptr, "ends in a backspace\b");
  KWLogCString(6, false, "TagOnly", nullptr);
  KWLogCString(6, false, nullptr, "%s", "");
  KWLogCString(6, true, "Loader", nullptr); // the banner ends in the tag, no ": "
  KWLogCString(8, true, "tag", "message");  // bad levels and texts write nothing
  KWLogCString(-1, false, "tag", "message");
  KWLogCString(3, true, nullptr, nullptr);
  // The "%%" the first pass of KWLog leaves is seen again by the second; a
  // conversion without an argument stays as it is instead of reading garbage.
  KWLog(6, false, nullptr, icu::UnicodeString::fromUTF8("%@, %s then %d"),
        icu::UnicodeString::fromUTF8("Grüße"), "%d%%");
  KWLog(6, false, "NullFormat", std::nullopt);
  err.restore();
  std::ostringstream thread;
  thread << std::hex << static_cast<unsigned>(gettid());
  const std::string text = err.contents(),
                    banner = R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3} )" +
                             std::string(program_invocation_short_name) + R"(\[)" +
                             std::to_string(getpid()) + ":" + thread.str() + R"(\] )";
  EXPECT_TRUE(
      std::regex_match(text, std::regex(banner +
                                        "Loader: loaded 3 files\nplain\n"
                                        "ends in a line feed\nends in a backspace\b"
                                        "TagOnly\n\n" +
                                        banner + "Loader\nGrüße, %d% then %d\nNullFormat\n")))
      << text;

  auto records = m_log.sink().records();
  ASSERT_EQ(records.size(), 9u);
  const std::string uid = std::to_string(geteuid());
  EXPECT_EQ(records[0].identity, "Loader");
  EXPECT_EQ(records[0].fields, (Fields{{"QXLog Local Time", text.substr(0, 23)},
                                       {"QXLog Thread", thread.str()},
                                       {"ReadUID", uid},
                                       {"Level", "4"},
                                       {"Message", "loaded 3 files"}}));
  // Without a banner there are no time attributes; without a tag the
  // identity falls back to the logger's own name.
  EXPECT_EQ(records[1].fields, (Fields{{"ReadUID", uid}, {"Level", "2"}, {"Message", "plain"}}));
  EXPECT_EQ(records[1].identity, "KWLogCString");
  EXPECT_EQ(records[6].field("Message"), "Loader");
}

TEST_F(Logging, EightThreadsNeverInterleaveWithinALine) {
  constexpr int kThreads = 8, kLines = 10000;
  static constexpr char kPayload[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  StandardErrorToFile err;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i)
        KWLogCString(6, true, "worker", "thread %d line %d payload %s", t, i, kPayload);
    });
  for (auto& thread : threads)
    thread.join();
  err.restore();
  // The banner's own shape is checked above; here a torn line cannot match.
  const std::regex shape(
      R"(^\S+ \S+ \S+\[\d+:[0-9a-f]+\] worker: thread (\d) line (\d+) payload )" +
      std::string(kPayload) + "$");
  std::vector<char> seen(kThreads * kLines);
  int count = 0;
  std::istringstream lines(err.contents());
  for (std::string line; std::getline(lines, line); ++count) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, shape)) << "torn line: " << line;
    const int index = std::stoi(match[1]) * kLines + std::stoi(match[2]);
    ASSERT_FALSE(std::exchange(seen[index], 1)) << "twice: " << line;
  }
  EXPECT_EQ(count, kThreads * kLines);
}

std::string streamIdentity(int fd) {
  struct stat status {};
  fstat(fd, &status);
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

TEST_F(Logging, RegularFileGetsAWholeCopyEvenAsTheJournalStream) {
  const std::string big(1 << 20, 'm');
  StandardErrorToFile err;
  ScopedEnv stream("JOURNAL_STREAM", streamIdentity(STDERR_FILENO).c_str());
  KWLogCString(5, false, nullptr, "%s", big.c_str());
  err.restore();
  EXPECT_EQ(err.contents(), big + "\n");
  EXPECT_EQ(m_log.sink().records().at(0).field("Message").size(), big.size());
}

TEST_F(Logging, PipeIsWrittenUnlessItIsTheJournalStream) {
  // "pipe" stands for the pipe's own identity: systemd already logs that
  // stream, so the copy is left out unless it is forced.
  const struct {
    const char* journalStream;
    bool force, written;
  } cases[] = {
      {"", false, true}, {"pipe", false, false}, {"1:2", false, true}, {"pipe", true, true}};
  for (const auto& c : cases) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::fflush(stderr);
    const int saved = dup(STDERR_FILENO);
    dup2(fds[1], STDERR_FILENO);
    std::string identity = c.journalStream;
    if (identity == "pipe")
      identity = streamIdentity(fds[1]);
    ScopedEnv stream("JOURNAL_STREAM", identity.empty() ? nullptr : identity.c_str());
    ScopedEnv force("QXLOG_FORCE_STDERR", c.force ? "1" : nullptr);
    KWLogCString(6, false, nullptr, "line");
    dup2(saved, STDERR_FILENO);
    close(saved);
    close(fds[1]);
    char buffer[64];
    const ssize_t n = read(fds[0], buffer, sizeof buffer);
    close(fds[0]);
    EXPECT_EQ(n > 0 ? std::string(buffer, static_cast<std::size_t>(n)) : "",
              c.written ? "line\n" : "");
  }
  EXPECT_EQ(m_log.sink().records().size(), 4u); // the journal record is always made
}

TEST_F(Logging, ClosedStandardErrorOnlyLosesTheCopy) {
  std::fflush(stderr);
  const int saved = dup(STDERR_FILENO);
  close(STDERR_FILENO);
  KWLogCString(3, true, "closed", "still logged");
  dup2(saved, STDERR_FILENO);
  close(saved);
  EXPECT_EQ(m_log.sink().records().at(0).field("Message"), "still logged");
}

TEST_F(Logging, KWLogFormatsLikePrintfWithNumberedObjects) {
  KWLog(6, false, "T", icu::UnicodeString::fromUTF8("%2$@ %1$@ %3$x %3$hhd"), "a", "b", -1);
  KWLog(6, false, "T", icu::UnicodeString::fromUTF8("%x|%hhd|%lu|%zu|%c"), -1, 300, 7ul,
        std::size_t{8}, 65);
  const auto records = m_log.sink().records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].field("Message"), "b a ffffffff -1");
  EXPECT_EQ(records[1].field("Message"), "ffffffff|44|7|8|A");
}

// Running out of memory is when an application most needs its log: nothing
// may throw through the C entry points, the pieces that need memory are left
// out, and the standard-error line still goes out.
TEST_F(Logging, RefusedAllocationsLeaveOutPiecesButNeverThrow) {
  if (!RefusingAllocator::available())
    GTEST_SKIP() << "the sanitizer's allocator cannot be made to refuse";
  StandardErrorToFile err;
  // A presenter too big to be copied without the heap: asking it fails too.
  std::array<char, 256> ballast{};
  vtcore::setAlertPresenter([ballast](const vtcore::AlertRequest&) {
    return ballast[0] == 0 ? vtcore::kAlertAlternate : vtcore::kAlertDefault;
  });
  const std::optional<icu::UnicodeString> format = icu::UnicodeString::fromUTF8("%@ and %d");
  // As in a running application, the time zone and ICU's converters are
  // loaded before memory runs out (ICU remembers a failed first load).
  KWLogCString(6, true, "warm", "up");
  int silenced = 0;
  dbgASSERT(0, "warm", "up", &silenced);
  m_log.sink().clear();
  const std::string before = err.contents();

  int escaped = 0, debugger = -1, counter = 3;
  bool goOn = false;
  {
    RefusingAllocator refusing;
    try {
      KWLogCString(2, true, "OutOfMemory", "x=%d", 5);
    } catch (...) {
      ++escaped;
    }
    try {
      KWLog(2, true, "KWLog", format, "text", 5);
    } catch (...) {
      ++escaped;
    }
    try {
      debugger = dbgASSERT(0, "n > 0 %%", "Player", &counter);
    } catch (...) {
      ++escaped;
    }
    try {
      goOn = bbAssert(false, "p", "12", "Loader", kAssertTypeDefault, nullptr);
    } catch (...) {
      ++escaped;
    }
  }
  vtcore::setAlertPresenter({});

  EXPECT_EQ(escaped, 0);
  EXPECT_EQ(debugger, 0) << "an alert that cannot be asked counts as cancelled";
  EXPECT_EQ(counter, 2);
  EXPECT_TRUE(goOn);
  EXPECT_TRUE(m_log.sink().records().empty()) << "the records needed memory";
  std::istringstream lines(err.contents().substr(before.size()));
  std::vector<std::string> written;
  for (std::string line; std::getline(lines, line);)
    written.push_back(line);
  const std::regex banner(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \S+\[\d+:[0-9a-f]+\] )");
  const std::string expected[] = {
      "OutOfMemory", // the message could not be formatted: the tag alone
      "KWLog", "dbgASSERT: ASSERT(n > 0 %) in Player failed.",
      "dbgASSERT: ASSERT(AAssert (p) in Loader, line 12 failed.) in Loader failed."};
  ASSERT_EQ(written.size(), std::size(expected)) << err.contents();
  for (std::size_t i = 0; i < written.size(); ++i) {
    std::smatch match;
    ASSERT_TRUE(std::regex_search(written[i], match, banner)) << written[i];
    EXPECT_EQ(match.position(0), 0) << written[i];
    EXPECT_EQ(match.suffix().str(), expected[i]);
  }
}

} // namespace
