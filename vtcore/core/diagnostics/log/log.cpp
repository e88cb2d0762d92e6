#include <vtcore/core/diagnostics/log/log.h>
#include <vtcore/core/platform/alert.h>
#include <vtcore/core/platform/log_sink.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <thread>
#include <unistd.h>

std::atomic<int> sAssertionFailed{0};

namespace vtcore {
namespace {

std::atomic<LogSink*> gInstalledSink{nullptr};

LogSink& currentSink() {
  LogSink* sink = gInstalledSink.load(std::memory_order_acquire);
  return sink ? *sink : systemLogSink();
}

const char* const kLevelDigits[8] = {"0", "1", "2", "3", "4", "5", "6", "7"};

// Serialises the standard-error writes of all threads so that lines never
// interleave. A spin lock: the critical section is one writev.
std::atomic_flag gStandardErrorLock = ATOMIC_FLAG_INIT;

class SpinLockGuard {
public:
  SpinLockGuard() {
    int spins = 0;
    while (gStandardErrorLock.test_and_set(std::memory_order_acquire)) {
      if (++spins > 64)
        std::this_thread::yield();
    }
  }
  ~SpinLockGuard() { gStandardErrorLock.clear(std::memory_order_release); }
  SpinLockGuard(const SpinLockGuard&) = delete;
  SpinLockGuard& operator=(const SpinLockGuard&) = delete;
};

struct FreeDeleter {
  void operator()(char* text) const { std::free(text); }
};
using MallocText = std::unique_ptr<char, FreeDeleter>;

// The banner and the time attributes, in fixed buffers: the standard-error
// copy must be possible when nothing can be allocated. The tag and ": " are
// written as pieces of their own, so a long tag is never cut.
struct TimeParts {
  char localTime[64];
  char thread[16];
  char prefix[512]; // "<local time> <process>[<pid>:<thread>] "
};

bool makeTimeParts(TimeParts& parts) {
  timespec now{};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0)
    return false;
  tm broken{};
  if (!localtime_r(&now.tv_sec, &broken))
    return false;
  const int milliseconds =
      static_cast<int>(std::floor(static_cast<double>(now.tv_nsec) / 1e9 * 1000.0));
  const unsigned thread = static_cast<unsigned>(gettid());
  std::snprintf(parts.localTime, sizeof parts.localTime, "%04d-%02d-%02d %02d:%02d:%02d.%03d",
                broken.tm_year + 1900, broken.tm_mon + 1, broken.tm_mday, broken.tm_hour,
                broken.tm_min, broken.tm_sec, milliseconds);
  std::snprintf(parts.prefix, sizeof parts.prefix, "%s %s[%d:%x] ", parts.localTime,
                program_invocation_short_name, static_cast<int>(getpid()), thread);
  std::snprintf(parts.thread, sizeof parts.thread, "%x", thread);
  return true;
}

// The system-log copy. It needs memory; without any the record is left out
// and the standard-error copy still goes. A sink that throws loses its record
// the same way: nothing crosses the C entry points.
void sendRecord(int level, bool haveTime, const TimeParts& time, const char* tag,
                const char* message, std::size_t length) noexcept {
  try {
    LogRecord record;
    record.identity = tag ? tag : "KWLogCString";
    record.level = level;
    if (haveTime) {
      record.fields.emplace_back("QXLog Local Time", time.localTime);
      record.fields.emplace_back("QXLog Thread", time.thread);
    }
    record.fields.emplace_back("ReadUID", std::to_string(geteuid()));
    record.fields.emplace_back("Level", kLevelDigits[level]);
    record.fields.emplace_back("Message", message ? std::string(message, length)
                                                  : std::string(tag ? tag : ""));
    currentSink().send(record);
  } catch (...) {
  }
}

// True when systemd started this process with its standard error connected
// to the journal: then the copy to standard error would log every line twice.
bool managedByServiceLauncher(const struct stat& standardError) {
  const char* stream = std::getenv("JOURNAL_STREAM");
  if (!stream)
    return false;
  unsigned long long device = 0, inode = 0;
  if (std::sscanf(stream, "%llu:%llu", &device, &inode) != 2)
    return false;
  return device == static_cast<unsigned long long>(standardError.st_dev) &&
         inode == static_cast<unsigned long long>(standardError.st_ino);
}

bool shouldWriteToStandardError() {
  if (getauxval(AT_SECURE) == 0 && std::getenv("QXLOG_FORCE_STDERR"))
    return true;
  if (fcntl(STDERR_FILENO, F_GETFD) == -1)
    return false;
  struct stat status {};
  if (fstat(STDERR_FILENO, &status) != 0)
    return false;
  if (S_ISREG(status.st_mode))
    return true;
  return !managedByServiceLauncher(status);
}

void writeAll(iovec* pieces, int count) {
  while (count > 0) {
    ssize_t written = writev(STDERR_FILENO, pieces, count);
    if (written < 0) {
      if (errno == EINTR)
        continue;
      return;
    }
    // A short write (a pipe, a signal) goes on where it stopped.
    auto left = static_cast<std::size_t>(written);
    while (count > 0 && left >= pieces->iov_len) {
      left -= pieces->iov_len;
      ++pieces;
      --count;
    }
    if (count > 0) {
      pieces->iov_base = static_cast<char*>(pieces->iov_base) + left;
      pieces->iov_len -= left;
    }
  }
}

} // namespace

LogSink* setLogSink(LogSink* sink) {
  return gInstalledSink.exchange(sink);
}

namespace detail {

// The logger after formatting: `message` is null when there is none. Never
// allocates on the way to standard error.
void logMessage(int level, bool withBanner, const char* tag, const char* message,
                std::size_t length) noexcept {
  if (level < 0 || level > 7)
    return;
  const bool messageNonEmpty = message && length > 0;

  TimeParts time;
  const bool haveTime = withBanner && makeTimeParts(time);
  sendRecord(level, haveTime, time, tag, message, length);

  if (!shouldWriteToStandardError())
    return;
  const char* body = message;
  std::size_t bodyLength = length;
  if (!message) {
    body = haveTime ? "\n" : (tag ? tag : "");
    bodyLength = std::strlen(body);
  }
  // A line that ends in a backspace is continued by the next one on purpose.
  const bool addLineFeed =
      bodyLength == 0 || (body[bodyLength - 1] != '\n' && body[bodyLength - 1] != '\b');
  static char separator[] = ": ";
  static char lineFeed[] = "\n";
  iovec pieces[5];
  int count = 0;
  if (haveTime) {
    pieces[count++] = {time.prefix, std::strlen(time.prefix)};
    if (tag) {
      pieces[count++] = {const_cast<char*>(tag), std::strlen(tag)};
      if (messageNonEmpty)
        pieces[count++] = {separator, 2};
    }
  }
  if (bodyLength > 0)
    pieces[count++] = {const_cast<char*>(body), bodyLength};
  if (addLineFeed)
    pieces[count++] = {lineFeed, 1};
  SpinLockGuard lock;
  writeAll(pieces, count);
}

void logFormatted(int level, bool withBanner, const char* tag,
                  const std::optional<icu::UnicodeString>& format,
                  std::span<const FormatArgument> arguments) noexcept {
  if (level < 0 || level > 7)
    return;
  if (!format) {
    if (tag)
      logMessage(level, withBanner, tag, nullptr, 0);
    return;
  }
  std::string text;
  try {
    std::string utf8;
    format->toUTF8String(utf8);
    // The finished text is the logger's format in turn: the second pass has
    // no arguments, so only "%%" changes and nothing is ever read that is not
    // there.
    text = formatSafely(formatSafely(utf8, arguments), {});
  } catch (...) {
    // Out of memory (or an object whose description threw): the message is
    // absent, as KWLogCString leaves it when formatting fails.
    if (tag)
      logMessage(level, withBanner, tag, nullptr, 0);
    return;
  }
  logMessage(level, withBanner, tag, text.c_str(), text.size());
}

// "%%" as "%", the rest as it stands: the second formatting pass of an
// assertion text done in place, for when formatSafely cannot allocate.
void collapsePercentSigns(char* text) noexcept {
  char* out = text;
  for (const char* in = text; *in; ++in) {
    *out++ = *in;
    if (in[0] == '%' && in[1] == '%')
      ++in;
  }
  *out = '\0';
}

} // namespace detail
} // namespace vtcore

extern "C" {

int KWLogWithSyslogBanner(void) {
  return std::getenv("VTCORE_TRACE_WITHOUT_BANNER") ? 0 : 1;
}

void KWLogCString(int level, bool withBanner, const char* tag, const char* format, ...) {
  if (level < 0 || level > 7 || (!tag && !format))
    return;
  vtcore::MallocText message;
  int length = 0;
  if (format) {
    va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    length = vasprintf(&text, format, arguments);
#pragma GCC diagnostic pop
    va_end(arguments);
    // An allocation failure leaves the message out, as if there were none.
    if (length >= 0)
      message.reset(text);
  }
  vtcore::detail::logMessage(level, withBanner, tag, message.get(),
                             message ? static_cast<std::size_t>(length) : 0);
}

int dbgASSERT(int condition, const char* expression, const char* location, int* counter) {
  sAssertionFailed.store(0, std::memory_order_relaxed);
  if (condition)
    return 0;
  sAssertionFailed.store(1, std::memory_order_relaxed);

  char buffer[4096];
  std::snprintf(buffer, sizeof buffer, "ASSERT(%s) in %s failed.\n",
                expression ? expression : "(null)", location ? location : "(null)");
  // The alert shows the text as the classic 8-bit Roman encoding reads it.
  const icu::UnicodeString message(buffer, static_cast<int32_t>(std::strlen(buffer)), "macintosh");

  int local = counter ? *counter : 0;
  const bool show = !counter || local > 0 || local == -1;
  int answer = vtcore::kAlertDefault;
  if (show) {
    const bool banner = KWLogWithSyslogBanner() != 0;
    try {
      const std::string text = vtcore::detail::formatSafely(buffer, {});
      vtcore::detail::logMessage(3, banner, "dbgASSERT", text.c_str(), text.size());
    } catch (...) {
      // Without memory the text is still logged, formatted in a copy here.
      char text[sizeof buffer];
      std::memcpy(text, buffer, sizeof text);
      vtcore::detail::collapsePercentSigns(text);
      vtcore::detail::logMessage(3, banner, "dbgASSERT", text, std::strlen(text));
    }
    vtcore::AlertRequest request;
    request.level = vtcore::AlertLevel::Stop;
    request.header = icu::UnicodeString::fromUTF8("Assertion failed");
    request.message = message;
    request.defaultButton = icu::UnicodeString::fromUTF8("Resume");
    request.alternateButton = icu::UnicodeString::fromUTF8("Debugger");
    request.otherButton = icu::UnicodeString::fromUTF8(counter ? "Don't show again" : "Stop");
    request.timeoutSeconds = 60;
    answer = vtcore::presentAlert(request);
    if (counter && *counter > 0)
      --*counter;
  }
  switch (answer) {
  case vtcore::kAlertAlternate:
    return 1;
  case vtcore::kAlertOther:
    if (!counter)
      std::exit(1);
    *counter = 0;
    return 0;
  default:
    return 0;
  }
}

int dbgAssertionFailed(void) {
  // A plain read followed by a plain write, as the flag has always been.
  const int failed = sAssertionFailed.load(std::memory_order_relaxed);
  sAssertionFailed.store(0, std::memory_order_relaxed);
  return failed;
}

bool bbAssert(bool condition, const char* expression, const char* line, const char* file,
              TAssertType /*type*/, int* counter) {
  if (condition)
    return true;
  // Composed without allocating. dbgASSERT cuts its whole text to 4095
  // bytes, and this one goes in after "ASSERT(", so a longer one would be
  // cut there anyway: the buffer loses nothing.
  char text[4096];
  std::snprintf(text, sizeof text, "AAssert (%s) in %s, line %s failed.",
                expression ? expression : "(null)", file ? file : "(null)", line ? line : "(null)");
  return dbgASSERT(0, text, file, counter) == 0;
}

void KWOutputMemory(const void* /*address*/, int /*byteCount*/) {}

} // extern "C"
