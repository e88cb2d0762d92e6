// Where the system log sink sends its records. Internal; not installed.
#pragma once

#include <vtcore/export.h>

#include <string>

namespace vtcore::detail {

/// The sockets of the system sink: the journal's ("/run/systemd/journal/
/// socket"), whose presence decides whether records go to the journal (they
/// are sent through libsystemd, which knows its own path), and the syslog
/// daemon's ("/dev/log"), used when the journal's is not there.
struct SystemLogPaths {
  std::string journal;
  std::string syslog;
};

/// Points the system sink at other sockets, for tests; empty texts restore
/// the system's. Returns the paths it replaces. Safe on any thread.
VTCORE_EXPORT SystemLogPaths setSystemLogPaths(SystemLogPaths paths);

} // namespace vtcore::detail
