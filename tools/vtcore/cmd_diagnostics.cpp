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
  std::cout << "The logger writes each message twice: as a record in the system journal\n"
               "(systemd's log; during this tour the records go to a sink of the tour's own)\n"
               "and as a line on standard error that starts with a banner: date, time,\n"
               "process[pid:thread] and the sender's tag. Levels are syslog's, 0 (emergency)\n"
               "to 7 (debug).\n"
            << std::flush;
  KWLogCString(6, true, "tour", "the logger writes to the journal and to standard error");
  std::cout << "KWLog takes a host-string format; its %@ placeholder prints an object's text:\n"
            << std::flush;
  KWLog(6, true, "tour", icu::UnicodeString::fromUTF8("%@ has %d channels at %.1f kHz"),
        icu::UnicodeString::fromUTF8("Surround 5.1"), 6, 48.0);
}

void tourAssertion() {
  std::cout << "An assertion checks a condition the program relies on. When it fails, it logs\n"
               "at level 3 and asks the user through an alert whether to resume, stop in the\n"
               "debugger, or silence that site. No alert presenter is installed here, so the\n"
               "default answer, Resume, is taken. Each site has a counter: how many more\n"
               "times it may ask (-1 always, 0 silenced).\n"
            << std::flush;
  static int counter = 2;
  const int debugger = dbgASSERT(0, "1 + 1 == 3", "tour.cpp:42", &counter);
  std::cout << "dbgASSERT returned " << debugger << " (" << (debugger ? "debugger" : "go on")
            << "); the site's counter went from 2 to " << counter
            << "; dbgAssertionFailed() = " << dbgAssertionFailed() << "\n";
  // bbAssert wraps its own text into dbgASSERT's, so a shown bbAssert line
  // names the failure twice; the silenced site shows the counter at work.
  static int silenced = 0;
  const bool goOn =
      bbAssert(1 + 1 == 3, "1 + 1 == 3", "43", "tour.cpp", kAssertTypeDefault, &silenced);
  std::cout << "bbAssert, the form with file and line, at a silenced site (counter 0): no log "
               "line, no alert, returns "
            << (goOn ? "true (go on)" : "false (debugger)") << "\n";
}

void tourTrace() {
  std::cout << "Trace output: records print themselves indented by a stack of levels, each\n"
               "level adding its own number of blanks:\n";
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
  std::cout << "The guarded allocation module (Mem_) counts its live blocks, so that a\n"
               "program can check at the end that it freed what it took.\n";
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
