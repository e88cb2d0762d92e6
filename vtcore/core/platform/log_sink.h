// Where the logger's structured records go. The default sink writes to the
// systemd journal when its socket exists and otherwise to the syslog daemon's
// socket, one datagram per record on a connection of its own (the
// application's own openlog identity, options and facility are never
// touched); tests and applications may install their own.
#pragma once

#include <vtcore/export.h>

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace vtcore {

/// One structured log record: the sender's identity and the key/value
/// attributes with the keys as the logger names them ("QXLog Local Time",
/// "QXLog Thread", "ReadUID", "Level", "Message"), in that order.
struct VTCORE_EXPORT LogRecord {
  std::string identity; ///< the sender (SYSLOG_IDENTIFIER in the journal)
  int level = 0;        ///< syslog priority, 0 (emergency) to 7 (debug)
  std::vector<std::pair<std::string, std::string>> fields; ///< the attributes, in order

  /// The value of `key`, or an empty text when the record has no such key.
  std::string field(const std::string& key) const;
};

/// Where the logger's records go: the system sink (the journal, or syslog)
/// unless an application or a test installs another with setLogSink.
class VTCORE_EXPORT LogSink {
public:
  virtual ~LogSink();
  /// Delivers one record. Called on the logging thread, possibly from
  /// several threads at once.
  virtual void send(const LogRecord& record) = 0;
};

/// Installs `sink` (not owned; it must outlive its use) and returns the one
/// it replaces. Null restores the system sink.
VTCORE_EXPORT LogSink* setLogSink(LogSink* sink);

/// The system sink: journal fields are the keys in upper case with every
/// other character than A-Z and 0-9 turned into '_' ("QXLog Local Time"
/// becomes QXLOG_LOCAL_TIME), plus PRIORITY and SYSLOG_IDENTIFIER. Without a
/// journal, the record's message goes to /dev/log as syslog(3) would write
/// it ("<priority>Mmm dd hh:mm:ss identity[pid]: message", facility user),
/// on a socket opened and closed for that record alone.
VTCORE_EXPORT LogSink& systemLogSink();

/// Maps a record key to its journal field name, as the system sink does.
VTCORE_EXPORT std::string journalFieldName(const std::string& key);

/// A sink that keeps every record in memory, for tests.
class VTCORE_EXPORT MemoryLogSink : public LogSink {
public:
  void send(const LogRecord& record) override;
  /// A copy of the records received so far, oldest first.
  std::vector<LogRecord> records() const;
  /// Forgets every record received so far.
  void clear();

private:
  mutable std::mutex m_mutex;
  std::vector<LogRecord> m_records;
};

} // namespace vtcore
