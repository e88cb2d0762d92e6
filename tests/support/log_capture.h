// Test helpers: capture what the logger writes to standard error and to its
// sink, and set environment variables for a scope.
#pragma once

#include <vtcore/core/platform/log_sink.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <unistd.h>

namespace vtcore::test {

/// Points descriptor 2 at a fresh regular file until restore().
class StandardErrorToFile {
public:
  StandardErrorToFile() : m_file(std::tmpfile()), m_saved(dup(STDERR_FILENO)) {
    std::fflush(stderr);
    dup2(fileno(m_file), STDERR_FILENO);
  }
  ~StandardErrorToFile() {
    restore();
    std::fclose(m_file);
  }
  StandardErrorToFile(const StandardErrorToFile&) = delete;
  StandardErrorToFile& operator=(const StandardErrorToFile&) = delete;

  void restore() {
    if (m_saved >= 0)
      dup2(m_saved, STDERR_FILENO), close(m_saved), m_saved = -1;
  }
  std::string contents() const {
    std::string text;
    char buffer[65536];
    for (ssize_t n;
         (n = pread(fileno(m_file), buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0;)
      text.append(buffer, static_cast<std::size_t>(n));
    return text;
  }

private:
  std::FILE* m_file;
  int m_saved;
};

/// Installs a MemoryLogSink for its lifetime.
class CapturedLog {
public:
  CapturedLog() : m_previous(setLogSink(&m_sink)) {}
  ~CapturedLog() { setLogSink(m_previous); }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;
  MemoryLogSink& sink() { return m_sink; }

private:
  MemoryLogSink m_sink;
  LogSink* m_previous;
};

/// Sets (or, with a null value, unsets) an environment variable for its
/// lifetime.
class ScopedEnv {
public:
  ScopedEnv(const char* name, const char* value) : m_name(name) {
    if (const char* old = std::getenv(name))
      m_old = old;
    value ? setenv(name, value, 1) : unsetenv(name);
  }
  ~ScopedEnv() { m_old ? setenv(m_name.c_str(), m_old->c_str(), 1) : unsetenv(m_name.c_str()); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
  std::string m_name;
  std::optional<std::string> m_old;
};

} // namespace vtcore::test
