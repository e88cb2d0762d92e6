// vtcore subcommands and tour steps of the diagnostics layer.

#include "command.h"

#include <vtcore/vtcore.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace {

using namespace vtcore::cli;

int runLog(const Invocation& call) {
  const auto& args = call.operands();
  if (args.empty())
    return usage("log");
  const long long level = integerArgument("LEVEL", args[0], 0, 7);
  const std::string message = textInput(call, 1);
  // The text is an argument, never a format.
  KWLogCString(static_cast<int>(level), KWLogWithSyslogBanner() != 0, "vtcore", "%s",
               message.c_str());
  return 0;
}

Register logCommand{
    {"log",
     "LEVEL [MESSAGE... | --input FILE|-]",
     "log a message at a syslog level to the system journal and standard error (KWLogCString)",
     {inputOption()},
     runLog,
     "LEVEL is a syslog severity: 0 emergency, 1 alert, 2 critical, 3 error, 4 warning,\n"
     "5 notice, 6 informational, 7 debug. The message is the arguments joined with\n"
     "blanks, the file named by --input, or standard input. The journal record carries\n"
     "the identity \"vtcore\" (journalctl -t vtcore shows it); the copy on standard error\n"
     "starts with a banner of date, time, process[pid:thread] and tag, unless\n"
     "VTCORE_TRACE_WITHOUT_BANNER is set.",
     {}}};

void tourLog() {
  std::cout << "A logged line, with its banner (date, time, process[pid:thread] tag):\n"
            << std::flush;
  KWLogCString(6, true, "tour", "the logger writes to the journal and to standard error");
  std::cout << "KWLog with a host-string format and the object placeholder %@:\n" << std::flush;
  KWLog(6, true, "tour", icu::UnicodeString::fromUTF8("%@ has %d channels at %.1f kHz"),
        icu::UnicodeString::fromUTF8("Surround 5.1"), 6, 48.0);
}

void tourAssertion() {
  std::cout << "A failing assertion; no alert presenter is installed, so the default\n"
               "answer (\"Resume\") is taken and the program goes on:\n"
            << std::flush;
  static int counter = 2;
  bool goOn = bbAssert(1 + 1 == 3, "1 + 1 == 3", "42", "tour.cpp", kAssertTypeDefault, &counter);
  std::cout << "bbAssert returned " << (goOn ? "true (go on)" : "false (debugger)")
            << "; site counter now " << counter
            << "; dbgAssertionFailed() = " << dbgAssertionFailed() << "\n";
}

void tourTrace() {
  std::cout << "Indented trace output:\n";
  bbTraceIndentBegin("tour", "", 2);
  IndentToCout();
  std::cout << "level 1 (2 blanks)\n";
  bbTraceIndentBegin("tour", "", 4);
  IndentToCout();
  std::cout << "level 2 (6 blanks)\n";
  bbTraceIndentEnd();
  IndentToCout();
  std::cout << "back to level 1\n";
  bbTraceIndentEnd();
}

void tourMem() {
  Mem_InitModule();
  void* a = Mem_malloc(64);
  char* b = Mem_strdup("guarded");
  std::cout << "Guarded allocation: two blocks live -> count " << Mem_LiveBlockCount();
  Mem_free(a);
  Mem_free(b);
  std::cout << ", after freeing both -> " << Mem_LiveBlockCount() << "\n";
}

TourStep logStep{10, "Logging", tourLog};
TourStep assertStep{11, "Assertions", tourAssertion};
TourStep traceStep{12, "Trace output", tourTrace};
TourStep memStep{13, "Guarded allocation", tourMem};

} // namespace
