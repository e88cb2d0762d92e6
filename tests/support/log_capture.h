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
  StandardErrorToFile() : file_(std::tmpfile()), saved_(dup(STDERR_FILENO)) {
    std::fflush(stderr);
    dup2(fileno(file_), STDERR_FILENO);
  }
  ~StandardErrorToFile() {
    restore();
    std::fclose(file_);
  }
  StandardErrorToFile(const StandardErrorToFile&) = delete;
  StandardErrorToFile& operator=(const StandardErrorToFile&) = delete;

  void restore() {
    if (saved_ >= 0)
      dup2(saved_, STDERR_FILENO), close(saved_), saved_ = -1;
  }
  std::string contents() const {
    std::string text;
    char buffer[65536];
    for (ssize_t n;
         (n = pread(fileno(file_), buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0;)
      text.append(buffer, static_cast<std::size_t>(n));
    return text;
  }

private:
  std::FILE* file_;
  int saved_;
};

/// Installs a MemoryLogSink for its lifetime.
class CapturedLog {
public:
  CapturedLog() : previous_(setLogSink(&sink_)) {}
  ~CapturedLog() { setLogSink(previous_); }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;
  MemoryLogSink& sink() { return sink_; }

private:
  MemoryLogSink sink_;
  LogSink* previous_;
};

/// Sets (or, with a null value, unsets) an environment variable for its
/// lifetime.
class ScopedEnv {
public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name))
      old_ = old;
    value ? setenv(name, value, 1) : unsetenv(name);
  }
  ~ScopedEnv() { old_ ? setenv(name_.c_str(), old_->c_str(), 1) : unsetenv(name_.c_str()); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
  std::string name_;
  std::optional<std::string> old_;
};

} // namespace vtcore::test
