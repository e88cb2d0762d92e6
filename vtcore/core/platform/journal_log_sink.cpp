// The system sink: the systemd journal when its socket is there, else syslog.

#include <vtcore/core/platform/log_sink.h>

#include <vtcore/core/platform/detail/system_log_paths.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

namespace vtcore {

std::string LogRecord::field(const std::string& key) const {
  for (const auto& [name, value] : fields)
    if (name == key)
      return value;
  return {};
}

LogSink::~LogSink() = default;

std::string journalFieldName(const std::string& key) {
  std::string name;
  name.reserve(key.size());
  for (char c : key) {
    if (c >= 'a' && c <= 'z')
      name += static_cast<char>(c - 'a' + 'A');
    else if ((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
      name += c;
    else
      name += '_';
  }
  // Journal field names may not start with a digit or an underscore.
  while (!name.empty() && (name.front() == '_' || (name.front() >= '0' && name.front() <= '9')))
    name.erase(0, 1);
  return name.empty() ? std::string("FIELD") : name;
}

namespace {

constexpr const char* kJournalSocket = "/run/systemd/journal/socket";
constexpr const char* kSyslogSocket = "/dev/log";

struct PathSettings {
  std::mutex mutex;
  detail::SystemLogPaths paths{kJournalSocket, kSyslogSocket};
};

PathSettings& pathSettings() {
  static PathSettings settings;
  return settings;
}

detail::SystemLogPaths currentPaths() {
  auto& settings = pathSettings();
  std::lock_guard lock(settings.mutex);
  return settings.paths;
}

bool journalIsListening(const std::string& path) {
  // sd_journal_sendv reports success even when nobody listens, so the socket
  // is looked for here.
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

class SystemLogSink final : public LogSink {
public:
  void send(const LogRecord& record) override {
    const detail::SystemLogPaths paths = currentPaths();
    if (journalIsListening(paths.journal) && sendToJournal(record))
      return;
    sendToSyslog(paths.syslog, record);
  }

private:
  static bool sendToJournal(const LogRecord& record) {
    std::vector<std::string> entries;
    entries.reserve(record.fields.size() + 2);
    for (const auto& [key, value] : record.fields)
      entries.push_back(journalFieldName(key) + "=" + value);
    entries.push_back("PRIORITY=" + std::to_string(record.level));
    entries.push_back("SYSLOG_IDENTIFIER=" + record.identity);
    std::vector<iovec> vector;
    vector.reserve(entries.size());
    for (auto& entry : entries)
      vector.push_back({entry.data(), entry.size()});
    return sd_journal_sendv(vector.data(), static_cast<int>(vector.size())) == 0;
  }

  // One datagram on a socket of its own, in the format syslog(3) writes:
  // openlog/syslog keep one identity, option set and facility for the whole
  // process, which belong to the application, and a record of one thread
  // would go out under the identity another thread had just opened.
  static void sendToSyslog(const std::string& path, const LogRecord& record) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
      return;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);

    char stamp[32] = "";
    const std::time_t now = std::time(nullptr);
    std::tm broken{};
    if (localtime_r(&now, &broken))
      std::strftime(stamp, sizeof stamp, "%b %e %H:%M:%S", &broken);
    const std::string datagram = "<" + std::to_string(LOG_USER | (record.level & LOG_PRIMASK)) +
                                 ">" + stamp + " " + record.identity + "[" +
                                 std::to_string(getpid()) + "]: " + record.field("Message");

    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0)
      return;
    while (::sendto(socket, datagram.data(), datagram.size(), MSG_NOSIGNAL,
                    reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0 &&
           errno == EINTR) {
    }
    ::close(socket);
  }
};

} // namespace

detail::SystemLogPaths detail::setSystemLogPaths(SystemLogPaths paths) {
  if (paths.journal.empty())
    paths.journal = kJournalSocket;
  if (paths.syslog.empty())
    paths.syslog = kSyslogSocket;
  auto& settings = pathSettings();
  std::lock_guard lock(settings.mutex);
  std::swap(settings.paths, paths);
  return paths;
}

LogSink& systemLogSink() {
  static SystemLogSink sink;
  return sink;
}

void MemoryLogSink::send(const LogRecord& record) {
  std::lock_guard lock(m_mutex);
  m_records.push_back(record);
}

std::vector<LogRecord> MemoryLogSink::records() const {
  std::lock_guard lock(m_mutex);
  return m_records;
}

void MemoryLogSink::clear() {
  std::lock_guard lock(m_mutex);
  m_records.clear();
}

} // namespace vtcore
