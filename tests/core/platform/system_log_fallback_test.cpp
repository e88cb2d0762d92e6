// The system sink without a journal: records go to a syslog socket, here one
// of the test's own, while the application keeps its own openlog settings.

#include <tests/support/log_capture.h>

#include <vtcore/core/diagnostics/log/log.h>
#include <vtcore/core/platform/detail/system_log_paths.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>

using namespace vtcore::test;

namespace {

// A datagram socket bound in a fresh directory, standing in for /dev/log.
class SyslogDaemon {
public:
  SyslogDaemon() {
    char directory[] = "/tmp/vtcore-syslog-XXXXXX";
    m_directory = mkdtemp(directory);
    m_path = m_directory + "/log";
    m_socket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    m_path.copy(address.sun_path, sizeof address.sun_path - 1);
    bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    // A bound on a lost datagram, not a synchronisation: the test reads
    // exactly as many as were sent.
    timeval limit{30, 0};
    setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }
  ~SyslogDaemon() {
    close(m_socket);
    unlink(m_path.c_str());
    rmdir(m_directory.c_str());
  }
  const std::string& path() const { return m_path; }
  // The next datagram, or "" when none came.
  std::string receive() {
    char buffer[4096];
    const ssize_t length = recv(m_socket, buffer, sizeof buffer, 0);
    return length > 0 ? std::string(buffer, static_cast<std::size_t>(length)) : std::string();
  }

private:
  std::string m_directory, m_path;
  int m_socket = -1;
};

// The system sink, without a journal and with `daemon` as its syslog, for a
// scope.
class SystemSinkTo {
public:
  explicit SystemSinkTo(const SyslogDaemon& daemon)
      : m_paths(vtcore::detail::setSystemLogPaths({"/nonexistent/journal", daemon.path()})),
        m_sink(vtcore::setLogSink(nullptr)) {}
  ~SystemSinkTo() {
    vtcore::setLogSink(m_sink);
    vtcore::detail::setSystemLogPaths(m_paths);
  }
  SystemSinkTo(const SystemSinkTo&) = delete;
  SystemSinkTo& operator=(const SystemSinkTo&) = delete;

private:
  vtcore::detail::SystemLogPaths m_paths;
  vtcore::LogSink* m_sink;
};

TEST(SystemLogFallback, EachRecordHasItsOwnIdentityAndTheApplicationKeepsItsOpenlog) {
  SyslogDaemon daemon;
  SystemSinkTo systemSink(daemon);
  ScopedEnv banner{"VTCORE_TRACE_WITHOUT_BANNER", nullptr};
  StandardErrorToFile err; // the logger's copies and the application's go here
  // The application's own syslog settings; LOG_PERROR makes them visible.
  openlog("application", LOG_PERROR, LOG_LOCAL3);

  constexpr int kPerThread = 200;
  auto logFrom = [](const char* tag) {
    for (int i = 0; i < kPerThread; ++i)
      KWLogCString(5, false, tag, "from %s %d", tag, i);
  };
  std::thread alpha(logFrom, "alpha"), beta(logFrom, "beta");
  std::map<std::string, int> counts;
  int misattributed = 0;
  const std::string pid = std::to_string(getpid());
  for (int i = 0; i < 2 * kPerThread; ++i) {
    const std::string datagram = daemon.receive();
    ASSERT_FALSE(datagram.empty()) << "datagram " << i << " never came";
    EXPECT_EQ(datagram.rfind("<13>", 0), 0u) << datagram; // facility user, level 5
    const std::size_t identity = datagram.find(' ', datagram.find(':')) + 1;
    const std::size_t bracket = datagram.find('[', identity);
    const std::string tag = datagram.substr(identity, bracket - identity);
    if (datagram.substr(bracket) !=
        "[" + pid + "]: from " + tag + " " + std::to_string(counts[tag]++))
      ++misattributed;
  }
  alpha.join();
  beta.join();
  EXPECT_EQ(misattributed, 0);
  EXPECT_EQ(counts["alpha"], kPerThread);
  EXPECT_EQ(counts["beta"], kPerThread);

  // Still the application's identity and options (LOG_PERROR): the library
  // neither reopened nor closed its connection.
  syslog(LOG_INFO, "application line");
  closelog();
  const std::string written = err.contents();
  EXPECT_NE(written.find("application: application line\n"), std::string::npos) << written;
}

} // namespace
