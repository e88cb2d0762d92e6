// The report an application shows when an exception reaches its top level:
// a log entry with the application and system versions, the exception's call
// chain turned into symbols by an outside tool, and a critical alert that
// lets the user stop, resume, or crash on purpose for a crash report.
#pragma once

#include <vtcore/export.h>

#include <exception>
#include <functional>
#include <string>

/// Reports `exception`, which reached the application's top level.
///
/// Logs at level 3 "**** <title> ****\n\n<exception>\n\n<name> <version>\n
/// <system version>\n\n", where the title is "<name> has encountered an
/// unexpected error." and the texts come from KWApplicationName,
/// KWApplicationVersion and KWOSVersion; a KWException prints as its
/// description(), any other exception as its what(). When the exception is
/// a KWException with a call chain under KWExceptionStackTraceKey, starts
/// the symbol tool (see vtcore::setSymbolTool) as "<tool> -p <pid> -a -f -C
/// <address>..." with its output on standard error, without waiting for it;
/// otherwise logs "No stack trace available.". A tool that cannot be found
/// costs one logged line; the report goes on.
///
/// Then asks the alert presenter (vtcore/core/platform/alert.h) with a
/// critical alert: the title, "<exception>\n\nA stack trace has been written
/// to the log.", and the buttons "Stop" (default), "Resume" (alternate) and
/// "Crash with crash report" (other). "Stop" (also the answer when no
/// presenter is installed) calls the terminate hook (see
/// vtcore::setTerminateHook), which by default ends the process normally;
/// "Resume", and a cancelled alert, return to the caller; "Crash with crash
/// report" writes 4711 to address 0, so that the process ends with an
/// invalid-memory fault (SIGSEGV at address 0) in every build, optimised and
/// sanitized ones included, and the system records a crash report.
///
/// Not reentrant by design: a call made while a report is shown (for
/// instance from the presenter) returns at once and logs nothing. Meant for
/// the main thread.
VTCORE_EXPORT void KWDisplayExceptionReport(const std::exception& exception);

namespace vtcore {

/// Asks the application to terminate normally. It may return (an
/// application can refuse), in which case KWDisplayExceptionReport returns.
using TerminateHook = std::function<void()>;

/// Installs the hook that the report's "Stop" answer calls; an empty function
/// restores the default, std::exit(0). Returns the hook it replaces (empty
/// for the default). vtcore-ui installs the application's quit.
VTCORE_EXPORT TerminateHook setTerminateHook(TerminateHook hook);
/// Calls the installed terminate hook.
VTCORE_EXPORT void requestTerminate();

/// Sets the address-to-symbol program the report starts: a name searched on
/// PATH or a path. It is called with "-p", the process id, "-a", "-f", "-C"
/// and the addresses. Default "eu-addr2line" (elfutils); an empty text
/// restores it. Returns the program it replaces.
VTCORE_EXPORT std::string setSymbolTool(std::string program);

/// Waits until every symbol tool the report started has ended, at most
/// `timeoutSeconds`; returns whether they all ended. For tools and tests that
/// want the tool's output before they go on; the report itself never waits.
VTCORE_EXPORT bool waitForSymbolTools(double timeoutSeconds);

} // namespace vtcore
