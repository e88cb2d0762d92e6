#include "log_capture.h"

#include <vtcore/core/diagnostics/log.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <regex>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <vector>

using vtcore::test::CapturedLog;
using vtcore::test::ScopedEnv;
using vtcore::test::StandardErrorToFile;

namespace {

// Every test starts from a neutral environment: no forced copy, no systemd
// stream, banners allowed.
class Logging : public ::testing::Test {
protected:
  ScopedEnv force_{"QXLOG_FORCE_STDERR", nullptr};
  ScopedEnv journal_{"JOURNAL_STREAM", nullptr};
  ScopedEnv banner_{"VTCORE_TRACE_WITHOUT_BANNER", nullptr};
  CapturedLog log_;
};

std::vector<std::string> keys(const vtcore::LogRecord& record) {
  std::vector<std::string> names;
  for (const auto& field : record.fields)
    names.push_back(field.first);
  return names;
}

TEST_F(Logging, LevelsOutsideZeroToSevenAndMissingTextsWriteNothing) {
  StandardErrorToFile err;
  KWLogCString(8, true, "tag", "message");
  KWLogCString(-1, false, "tag", "message");
  KWLogCString(3, true, nullptr, nullptr);
  KWLog(9, true, "tag", icu::UnicodeString::fromUTF8("message"));
  err.restore();
  EXPECT_EQ(err.contents(), "");
  EXPECT_TRUE(log_.sink().records().empty());
}

TEST_F(Logging, RecordAndBannerNameTimeProcessPidAndThread) {
  StandardErrorToFile err;
  KWLogCString(4, true, "Loader", "loaded %d files", 3);
  KWLogCString(2, false, nullptr, "plain");
  err.restore();
  std::ostringstream thread;
  thread << std::hex << static_cast<unsigned>(gettid());
  const std::string text = err.contents();
  EXPECT_TRUE(
      std::regex_match(text, std::regex(R"(^\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3} )" +
                                        std::string(program_invocation_short_name) + R"(\[)" +
                                        std::to_string(getpid()) + ":" + thread.str() +
                                        R"(\] Loader: loaded 3 files\nplain\n$)")))
      << text;

  auto records = log_.sink().records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(keys(records[0]), (std::vector<std::string>{"QXLog Local Time", "QXLog Thread",
                                                        "ReadUID", "Level", "Message"}));
  EXPECT_EQ(records[0].identity, "Loader");
  EXPECT_EQ(records[0].field("QXLog Local Time"), text.substr(0, 23));
  EXPECT_EQ(records[0].field("QXLog Thread"), thread.str());
  EXPECT_EQ(records[0].field("ReadUID"), std::to_string(geteuid()));
  EXPECT_EQ(records[0].field("Level"), "4");
  EXPECT_EQ(records[0].field("Message"), "loaded 3 files");
  // Without a banner there are no time attributes; the identity falls back
  // to the logger's own name.
  EXPECT_EQ(keys(records[1]), (std::vector<std::string>{"ReadUID", "Level", "Message"}));
  EXPECT_EQ(records[1].identity, "KWLogCString");
}

TEST_F(Logging, LineFeedIsAddedUnlessTheBodyEndsALineOrBackspaces) {
  StandardErrorToFile err;
  KWLogCString(6, true, "Loader", nullptr); // the banner ends in the tag, no ": "
  KWLogCString(6, false, nullptr, "x=%d", 5);
  KWLogCString(6, false, nullptr, "ends in a line feed\n");
  KWLogCString(6, false, nullptr, "ends in a backspace\b");
  KWLogCString(6, false, "TagOnly", nullptr);
  KWLogCString(6, false, nullptr, "%s", "");
  err.restore();
  const std::string text = err.contents();
  const std::size_t firstLine = text.find('\n') + 1;
  EXPECT_TRUE(text.substr(0, firstLine).ends_with("] Loader\n")) << text;
  EXPECT_EQ(text.substr(firstLine), "x=5\nends in a line feed\nends in a backspace\bTagOnly\n\n");
  EXPECT_EQ(log_.sink().records().front().field("Message"), "Loader");
}

TEST_F(Logging, HugeMessageIsWrittenWhole) {
  const std::string big(1 << 20, 'm');
  StandardErrorToFile err;
  KWLogCString(5, false, nullptr, "%s", big.c_str());
  err.restore();
  EXPECT_EQ(err.contents(), big + "\n");
  EXPECT_EQ(log_.sink().records().at(0).field("Message").size(), big.size());
}

TEST_F(Logging, EightThreadsNeverInterleaveWithinALine) {
  constexpr int kThreads = 8, kLines = 10000;
  StandardErrorToFile err;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i)
        KWLogCString(6, true, "worker", "thread %d line %d payload %s", t, i,
                     "abcdefghijklmnopqrstuvwxyz0123456789");
    });
  for (auto& thread : threads)
    thread.join();
  err.restore();
  std::istringstream lines(err.contents());
  std::string line;
  const std::regex shape(
      R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \S+\[\d+:[0-9a-f]+\] )"
      R"(worker: thread (\d) line (\d+) payload abcdefghijklmnopqrstuvwxyz0123456789$)");
  std::vector<std::vector<bool>> seen(kThreads, std::vector<bool>(kLines, false));
  int count = 0;
  while (std::getline(lines, line)) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, shape)) << "torn line: " << line;
    const int t = std::stoi(match[1]), i = std::stoi(match[2]);
    ASSERT_FALSE(seen[t][i]) << line;
    seen[t][i] = true;
    ++count;
  }
  EXPECT_EQ(count, kThreads * kLines);
}

// --- The standard-error decision -------------------------------------------

std::string streamIdentity(int fd) {
  struct stat status {};
  fstat(fd, &status);
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

TEST_F(Logging, PipeIsWrittenUnlessItIsTheJournalStream) {
  enum class Stream { Unset, ThisPipe, Other };
  const struct {
    Stream journalStream;
    bool force;
    bool written;
  } cases[] = {{Stream::Unset, false, true},
               {Stream::ThisPipe, false, false}, // systemd already logs it
               {Stream::Other, false, true},
               {Stream::ThisPipe, true, true}}; // forcing the copy wins
  for (const auto& c : cases) {
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC | O_NONBLOCK), 0);
    std::fflush(stderr);
    const int saved = dup(STDERR_FILENO);
    dup2(fds[1], STDERR_FILENO);
    {
      const std::string identity = c.journalStream == Stream::ThisPipe ? streamIdentity(fds[1])
                                   : c.journalStream == Stream::Other  ? "1:2"
                                                                       : "";
      ScopedEnv stream("JOURNAL_STREAM", identity.empty() ? nullptr : identity.c_str());
      ScopedEnv force("QXLOG_FORCE_STDERR", c.force ? "1" : nullptr);
      KWLogCString(6, false, nullptr, "line");
    }
    dup2(saved, STDERR_FILENO);
    close(saved);
    close(fds[1]);
    char buffer[64];
    const ssize_t n = read(fds[0], buffer, sizeof buffer);
    close(fds[0]);
    EXPECT_EQ(n > 0 ? std::string(buffer, static_cast<std::size_t>(n)) : "",
              c.written ? "line\n" : "");
  }
  EXPECT_EQ(log_.sink().records().size(), 4u); // the journal record is always made
}

TEST_F(Logging, RegularFileIsWrittenEvenAsJournalStream) {
  StandardErrorToFile err;
  ScopedEnv stream("JOURNAL_STREAM", streamIdentity(STDERR_FILENO).c_str());
  KWLogCString(6, false, nullptr, "regular");
  err.restore();
  EXPECT_EQ(err.contents(), "regular\n");
}

TEST_F(Logging, ClosedStandardErrorOnlyLosesTheCopy) {
  std::fflush(stderr);
  int saved = dup(STDERR_FILENO);
  close(STDERR_FILENO);
  KWLogCString(3, true, "closed", "still logged");
  {
    ScopedEnv force("QXLOG_FORCE_STDERR", "1");
    KWLogCString(3, true, "closed", "forced into nothing");
  }
  dup2(saved, STDERR_FILENO);
  close(saved);
  auto records = log_.sink().records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].field("Message"), "still logged");
}

// --- KWLog --------------------------------------------------------------------

struct Described {
  std::string description() const { return "<described>"; }
};

TEST_F(Logging, KWLogFillsObjectPlaceholdersAndFormatsTwice) {
  StandardErrorToFile err;
  KWLog(6, false, nullptr, icu::UnicodeString::fromUTF8("%@ and %@: %d%% of %s, %5.2f"),
        icu::UnicodeString::fromUTF8("Grüße"), Described{}, 42, "all", 3.14159);
  // A "%" left over from the first pass is seen again, and a conversion
  // without an argument stays as it is instead of reading garbage.
  KWLog(6, false, nullptr, icu::UnicodeString::fromUTF8("%s then %d"), "%d%%");
  KWLog(6, false, "NullFormat", std::nullopt);
  err.restore();
  EXPECT_EQ(err.contents(), "Grüße and <described>: 42% of all,  3.14\n%d% then %d\nNullFormat\n");
  auto records = log_.sink().records();
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records[2].field("Message"), "NullFormat");
}

TEST(JournalFieldName, KeysBecomeUpperCaseWithUnderscores) {
  EXPECT_EQ(vtcore::journalFieldName("QXLog Local Time"), "QXLOG_LOCAL_TIME");
  EXPECT_EQ(vtcore::journalFieldName("ReadUID"), "READUID");
  EXPECT_EQ(vtcore::journalFieldName("Message"), "MESSAGE");
}

} // namespace
