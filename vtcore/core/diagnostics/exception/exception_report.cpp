#include <vtcore/core/diagnostics/exception/exception.h>
#include <vtcore/core/diagnostics/exception/exception_report.h>
#include <vtcore/core/diagnostics/log/format.h>
#include <vtcore/core/diagnostics/log/log.h>
#include <vtcore/core/platform/alert.h>
#include <vtcore/core/platform/appinfo.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

constexpr const char* kLogTag = "KWDisplayExceptionReport";
constexpr const char* kDefaultSymbolTool = "eu-addr2line";

// True while a report is on screen. Relaxed: the flag only keeps the report
// from running inside itself on the thread that shows it.
std::atomic<bool> reporting{false};

struct Hooks {
  std::mutex mutex;
  vtcore::TerminateHook terminate;
  std::string symbolTool = kDefaultSymbolTool;
};

Hooks& hooks() {
  static Hooks theHooks;
  return theHooks;
}

// Symbol tools still running; each is reaped by a thread of its own so that
// no zombie stays and the report never waits.
struct RunningTools {
  std::mutex mutex;
  std::condition_variable ended;
  int count = 0;
};

RunningTools& runningTools() {
  static auto* tools = new RunningTools; // reaper threads may outlive statics
  return *tools;
}

void logText(const std::string& text) {
  vtcore::detail::logMessage(3, true, kLogTag, text.c_str(), text.size());
}

std::string format(std::string_view format,
                   std::initializer_list<vtcore::detail::FormatArgument> arguments) {
  return vtcore::detail::formatSafely(format, std::span(arguments.begin(), arguments.size()));
}

std::string exceptionText(const std::exception& exception) {
  if (const auto* named = dynamic_cast<const KWException*>(&exception))
    return named->description();
  return exception.what();
}

void reapInBackground(pid_t pid) {
  auto& tools = runningTools();
  {
    std::lock_guard lock(tools.mutex);
    ++tools.count;
  }
  auto reap = [pid, &tools] {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    std::lock_guard lock(tools.mutex);
    --tools.count;
    tools.ended.notify_all();
  };
  try {
    std::thread(reap).detach();
  } catch (const std::system_error&) {
    reap(); // no thread to spare: waiting is better than leaving a zombie
  }
}

// Starts the symbol tool on the addresses of `stackTrace` (separated by two
// blanks), its standard output sent to our standard error.
void startSymbolTool(const std::string& stackTrace) {
  std::string tool;
  {
    std::lock_guard lock(hooks().mutex);
    tool = hooks().symbolTool;
  }
  std::vector<std::string> arguments{tool, "-p", std::to_string(getpid()), "-a", "-f", "-C"};
  arguments.reserve(20);
  std::string_view rest = stackTrace;
  while (!rest.empty()) {
    const std::size_t separator = rest.find("  ");
    std::string_view piece = rest.substr(0, separator);
    if (!piece.empty()) // stray blanks would become empty addresses
      arguments.emplace_back(piece);
    rest = separator == std::string_view::npos ? std::string_view() : rest.substr(separator + 2);
  }
  std::vector<char*> argv;
  for (std::string& argument : arguments)
    argv.push_back(argument.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
  pid_t pid = 0;
  const int error = posix_spawnp(&pid, tool.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error == ENOENT) {
    logText(format("The symbol tool %@ was not found: the stack trace stays unresolved.", {tool}));
    return;
  }
  if (error != 0) {
    logText(format("The symbol tool %@ could not be started: %@", {tool, std::strerror(error)}));
    return;
  }
  reapInBackground(pid);
}

// Writes 4711 to address 0 so that the process dies with an invalid-memory
// fault (SIGSEGV at address 0), which the system's crash reporter records.
//
// The store is written in assembly: a store through a null pointer in C++ is
// undefined, and optimisers (GCC at -O2, clang) replace it, volatile or not,
// by their trap instruction, which dies with SIGILL instead. The sanitizers
// would likewise report it as their own error before the fault. Assembly is
// neither analysed nor instrumented, so every build faults the same way.
[[noreturn]] __attribute__((noinline)) void crashForCrashReport() {
#if defined(__x86_64__) || defined(__i386__)
  asm volatile("movl %0, (%1)" : : "r"(4711u), "r"(std::uintptr_t{0}) : "memory");
#elif defined(__aarch64__)
  asm volatile("str %w0, [%1]" : : "r"(4711u), "r"(std::uintptr_t{0}) : "memory");
#else
  // Elsewhere: hide the address from the optimiser, then store through it.
  std::uintptr_t address = 0;
  asm volatile("" : "+r"(address));
  *reinterpret_cast<volatile std::uint32_t*>(address) = 4711;
#endif
  // Should the store not fault after all, stop as a debugger would.
  __builtin_trap();
}

} // namespace

void KWDisplayExceptionReport(const std::exception& exception) {
  if (reporting.load(std::memory_order_relaxed))
    return; // an exception raised while a report is shown is dropped
  reporting.store(true, std::memory_order_relaxed);

  int answer = vtcore::kAlertCancel;
  try {
    const icu::UnicodeString name = KWApplicationName();
    const std::string text = exceptionText(exception);
    const std::string title = format("%@ has encountered an unexpected error.", {name});
    logText(format("**** %@ ****\n\n%@\n\n%@ %@\n%@\n\n",
                   {title, text, name, KWApplicationVersion(), KWOSVersion()}));

    const auto* named = dynamic_cast<const KWException*>(&exception);
    const auto trace = named ? named->userInfo().find(KWExceptionStackTraceKey)
                             : KWException::UserInfo::const_iterator();
    if (named && trace != named->userInfo().end() && !trace->second.empty())
      startSymbolTool(trace->second);
    else
      logText("No stack trace available.");

    vtcore::AlertRequest request;
    request.level = vtcore::AlertLevel::Critical;
    request.header = icu::UnicodeString::fromUTF8(title);
    request.message = icu::UnicodeString::fromUTF8(
        format("%@\n\nA stack trace has been written to the log.", {text}));
    request.defaultButton = u"Stop";
    request.alternateButton = u"Resume";
    request.otherButton = u"Crash with crash report";
    answer = vtcore::presentAlert(request);
  } catch (...) {
    // Out of memory while reporting: go on as if the user had resumed rather
    // than leave the report blocked for good.
    answer = vtcore::kAlertCancel;
  }
  reporting.store(false, std::memory_order_relaxed);

  switch (answer) {
  case vtcore::kAlertDefault:
    vtcore::requestTerminate();
    return;
  case vtcore::kAlertOther:
    crashForCrashReport();
  default:
    return; // "Resume", or an alert that was cancelled or timed out
  }
}

namespace vtcore {

TerminateHook setTerminateHook(TerminateHook hook) {
  std::lock_guard lock(hooks().mutex);
  std::swap(hooks().terminate, hook);
  return hook;
}

void requestTerminate() {
  TerminateHook hook;
  {
    std::lock_guard lock(hooks().mutex);
    hook = hooks().terminate;
  }
  if (hook)
    hook();
  else
    std::exit(0); // the normal exit path: atexit handlers and static destructors run
}

std::string setSymbolTool(std::string program) {
  if (program.empty())
    program = kDefaultSymbolTool;
  std::lock_guard lock(hooks().mutex);
  std::swap(hooks().symbolTool, program);
  return program;
}

bool waitForSymbolTools(double timeoutSeconds) {
  auto& tools = runningTools();
  std::unique_lock lock(tools.mutex);
  return tools.ended.wait_for(lock, std::chrono::duration<double>(timeoutSeconds),
                              [&tools] { return tools.count == 0; });
}

} // namespace vtcore
