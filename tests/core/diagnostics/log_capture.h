// Test helpers: capture what the logger writes to standard error and to its
// sink.
#pragma once

#include <vtcore/core/diagnostics/log_sink.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace vtcore::test {

/// Points descriptor 2 at a fresh regular file for its lifetime.
class StandardErrorToFile {
public:
  StandardErrorToFile() {
    char path[] = "/tmp/vtcore-stderr-XXXXXX";
    fd_ = mkstemp(path);
    path_ = path;
    std::fflush(stderr);
    saved_ = dup(STDERR_FILENO);
    dup2(fd_, STDERR_FILENO);
  }
  ~StandardErrorToFile() {
    restore();
    close(fd_);
    unlink(path_.c_str());
  }
  StandardErrorToFile(const StandardErrorToFile&) = delete;
  StandardErrorToFile& operator=(const StandardErrorToFile&) = delete;

  void restore() {
    if (saved_ >= 0) {
      dup2(saved_, STDERR_FILENO);
      close(saved_);
      saved_ = -1;
    }
  }
  std::string contents() const {
    std::string text;
    char buffer[65536];
    ssize_t n;
    off_t offset = 0;
    while ((n = pread(fd_, buffer, sizeof buffer, offset)) > 0) {
      text.append(buffer, static_cast<std::size_t>(n));
      offset += n;
    }
    return text;
  }

private:
  int fd_ = -1;
  int saved_ = -1;
  std::string path_;
};

/// Installs a MemoryLogSink for its lifetime.
class CapturedLog {
public:
  CapturedLog() { previous_ = setLogSink(&sink_); }
  ~CapturedLog() { setLogSink(previous_); }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;
  MemoryLogSink& sink() { return sink_; }

private:
  MemoryLogSink sink_;
  LogSink* previous_ = nullptr;
};

/// Sets or unsets an environment variable for its lifetime.
class ScopedEnv {
public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name))
      old_ = old, hadOld_ = true;
    if (value)
      setenv(name, value, 1);
    else
      unsetenv(name);
  }
  ~ScopedEnv() {
    if (hadOld_)
      setenv(name_.c_str(), old_.c_str(), 1);
    else
      unsetenv(name_.c_str());
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
  std::string name_, old_;
  bool hadOld_ = false;
};

} // namespace vtcore::test
