#include "log_capture.h"

#include <vtcore/core/diagnostics/log.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
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

TEST_F(Logging, RecordCarriesTheKeysInOrder) {
  StandardErrorToFile err;
  KWLogCString(4, true, "Loader", "loaded %d files", 3);
  KWLogCString(2, false, nullptr, "plain");
  err.restore();
  auto records = log_.sink().records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(keys(records[0]), (std::vector<std::string>{"QXLog Local Time", "QXLog Thread",
                                                        "ReadUID", "Level", "Message"}));
  EXPECT_EQ(records[0].identity, "Loader");
  EXPECT_EQ(records[0].field("Level"), "4");
  EXPECT_EQ(records[0].field("Message"), "loaded 3 files");
  EXPECT_EQ(records[0].field("ReadUID"), std::to_string(geteuid()));
  // Without a banner there are no time attributes, and the identity falls
  // back to the logger's own name.
  EXPECT_EQ(keys(records[1]), (std::vector<std::string>{"ReadUID", "Level", "Message"}));
  EXPECT_EQ(records[1].identity, "KWLogCString");
}

TEST_F(Logging, BannerNamesTimeProcessPidAndThread) {
  StandardErrorToFile err;
  KWLogCString(6, true, "Loader", "ready");
  err.restore();
  const std::string text = err.contents();
  std::ostringstream expected;
  expected << R"(^\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3} )" << program_invocation_short_name
           << R"(\[)" << getpid() << ":" << std::hex << static_cast<unsigned>(gettid())
           << R"(\] Loader: ready\n$)";
  EXPECT_TRUE(std::regex_match(text, std::regex(expected.str()))) << text;
  auto record = log_.sink().records().at(0);
  EXPECT_TRUE(std::regex_match(record.field("QXLog Local Time"),
                               std::regex(R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3})")));
  std::ostringstream thread;
  thread << std::hex << static_cast<unsigned>(gettid());
  EXPECT_EQ(record.field("QXLog Thread"), thread.str());
  EXPECT_EQ(text.substr(0, 23), record.field("QXLog Local Time"));
}

TEST_F(Logging, TagWithoutMessageEndsTheBannerWithoutColon) {
  StandardErrorToFile err;
  KWLogCString(6, true, "Loader", nullptr);
  err.restore();
  const std::string text = err.contents();
  EXPECT_TRUE(text.ends_with("] Loader\n")) << text;
  EXPECT_EQ(log_.sink().records().at(0).field("Message"), "Loader");
}

TEST_F(Logging, PlainMessageGetsExactlyOneLineFeed) {
  StandardErrorToFile err;
  KWLogCString(6, false, nullptr, "x=%d", 5);
  KWLogCString(6, false, nullptr, "ends in a line feed\n");
  KWLogCString(6, false, nullptr, "ends in a backspace\b");
  KWLogCString(6, false, "TagOnly", nullptr);
  KWLogCString(6, false, nullptr, "%s", "");
  err.restore();
  EXPECT_EQ(err.contents(), "x=5\nends in a line feed\nends in a backspace\bTagOnly\n\n");
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

// Runs `body` with descriptor 2 replaced by the write end of a pipe and
// returns what arrived on the pipe.
template <typename Body>
std::string throughPipe(Body body) {
  int fds[2];
  EXPECT_EQ(pipe2(fds, O_CLOEXEC | O_NONBLOCK), 0);
  std::fflush(stderr);
  int saved = dup(STDERR_FILENO);
  dup2(fds[1], STDERR_FILENO);
  body(fds[1]);
  dup2(saved, STDERR_FILENO);
  close(saved);
  close(fds[1]);
  std::string text;
  char buffer[4096];
  ssize_t n;
  while ((n = read(fds[0], buffer, sizeof buffer)) > 0)
    text.append(buffer, static_cast<std::size_t>(n));
  close(fds[0]);
  return text;
}

std::string streamIdentity(int fd) {
  struct stat status {};
  fstat(fd, &status);
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

TEST_F(Logging, PipeIsWrittenUnlessItIsTheJournalStream) {
  EXPECT_EQ(throughPipe([](int) { KWLogCString(6, false, nullptr, "to a pipe"); }), "to a pipe\n");
  EXPECT_EQ(throughPipe([](int fd) {
              ScopedEnv stream("JOURNAL_STREAM", streamIdentity(fd).c_str());
              KWLogCString(6, false, nullptr, "already in the journal");
            }),
            "");
  // A journal stream that is some other file does not count.
  EXPECT_EQ(throughPipe([](int) {
              ScopedEnv stream("JOURNAL_STREAM", "1:2");
              KWLogCString(6, false, nullptr, "other stream");
            }),
            "other stream\n");
  // Forcing the copy wins over the journal stream.
  EXPECT_EQ(throughPipe([](int fd) {
              ScopedEnv stream("JOURNAL_STREAM", streamIdentity(fd).c_str());
              ScopedEnv force("QXLOG_FORCE_STDERR", "1");
              KWLogCString(6, false, nullptr, "forced");
            }),
            "forced\n");
  EXPECT_EQ(log_.sink().records().size(), 4u);
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

TEST_F(Logging, BannerSwitchIsReadAtEveryCall) {
  EXPECT_EQ(KWLogWithSyslogBanner(), 1);
  ScopedEnv off("VTCORE_TRACE_WITHOUT_BANNER", "");
  EXPECT_EQ(KWLogWithSyslogBanner(), 0);
}

TEST(JournalFieldName, KeysBecomeUpperCaseWithUnderscores) {
  EXPECT_EQ(vtcore::journalFieldName("QXLog Local Time"), "QXLOG_LOCAL_TIME");
  EXPECT_EQ(vtcore::journalFieldName("ReadUID"), "READUID");
  EXPECT_EQ(vtcore::journalFieldName("Message"), "MESSAGE");
}

} // namespace
