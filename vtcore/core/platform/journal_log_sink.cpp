// The system sink: the systemd journal when its socket is there, else syslog.

#include <vtcore/core/platform/log_sink.h>

#include <atomic>
#include <string>
#include <sys/stat.h>
#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>

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

const char* journalSocketPath() {
  // Tests point this at a private journald.
  return "/run/systemd/journal/socket";
}

bool journalIsListening() {
  // sd_journal_sendv reports success even when nobody listens, so the socket
  // is looked for here.
  struct stat status {};
  return ::stat(journalSocketPath(), &status) == 0 && S_ISSOCK(status.st_mode);
}

class SystemLogSink final : public LogSink {
public:
  void send(const LogRecord& record) override {
    if (journalIsListening() && sendToJournal(record))
      return;
    sendToSyslog(record);
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

  static void sendToSyslog(const LogRecord& record) {
    // openlog keeps the identity pointer until closelog, so it lives here.
    const std::string identity = record.identity;
    openlog(identity.c_str(), LOG_PID, LOG_USER);
    syslog(record.level, "%s", record.field("Message").c_str());
    closelog();
  }
};

} // namespace

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
