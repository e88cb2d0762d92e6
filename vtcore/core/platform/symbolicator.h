// Internal to the core library: names, files and lines of code addresses in
// this process, for leak reports.
#pragma once

#include <cstdint>
#include <string>

namespace vtcore::detail {

struct SymbolInfo {
  std::string name; ///< demangled function name; empty when unknown
  std::string file; ///< source file; empty without debug information
  long line = 0;    ///< source line; 0 without debug information
};

/// Looks up a return address (the call it returns from is what is named).
/// Results are cached; thread-safe. Callers inside allocator hooks must hold
/// a HookReentrancyGuard: the lookup allocates.
SymbolInfo symbolicate(std::uintptr_t returnAddress);

} // namespace vtcore::detail
