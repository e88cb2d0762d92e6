#include <vtcore/core/platform/symbolicator.h>

#include <cxxabi.h>
#include <elfutils/libdwfl.h>
#include <memory>
#include <mutex>
#include <unistd.h>
#include <unordered_map>

namespace vtcore::detail {
namespace {

struct DwflDeleter {
  void operator()(Dwfl* dwfl) const { dwfl_end(dwfl); }
};

class Symbolicator {
public:
  SymbolInfo lookup(std::uintptr_t returnAddress) {
    std::lock_guard lock(m_mutex);
    if (auto cached = m_cache.find(returnAddress); cached != m_cache.end())
      return cached->second;
    // The call instruction lies before the return address; looking up the
    // address itself could name the next function or line.
    const Dwarf_Addr address = returnAddress - 1;
    Dwfl_Module* module = moduleFor(address);
    if (!module && refresh()) // a library loaded since the last report
      module = moduleFor(address);
    SymbolInfo info;
    if (module) {
      if (const char* name = dwfl_module_addrname(module, address))
        info.name = demangle(name);
      if (Dwfl_Line* line = dwfl_module_getsrc(module, address)) {
        int lineNumber = 0;
        if (const char* file =
                dwfl_lineinfo(line, nullptr, &lineNumber, nullptr, nullptr, nullptr)) {
          info.file = file;
          info.line = lineNumber;
        }
      }
    }
    m_cache.emplace(returnAddress, info);
    return info;
  }

private:
  Dwfl_Module* moduleFor(Dwarf_Addr address) {
    if (!m_dwfl && !refresh())
      return nullptr;
    return dwfl_addrmodule(m_dwfl.get(), address);
  }

  bool refresh() {
    static const Dwfl_Callbacks callbacks = {dwfl_linux_proc_find_elf, dwfl_standard_find_debuginfo,
                                             nullptr, nullptr};
    std::unique_ptr<Dwfl, DwflDeleter> dwfl(dwfl_begin(&callbacks));
    if (!dwfl)
      return false;
    dwfl_report_begin(dwfl.get());
    const bool reported = dwfl_linux_proc_report(dwfl.get(), getpid()) == 0;
    dwfl_report_end(dwfl.get(), nullptr, nullptr);
    if (!reported)
      return false;
    m_dwfl = std::move(dwfl);
    return true;
  }

  static std::string demangle(const char* name) {
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(name, nullptr, nullptr, &status), &std::free);
    return status == 0 && demangled ? std::string(demangled.get()) : std::string(name);
  }

  std::mutex m_mutex;
  std::unique_ptr<Dwfl, DwflDeleter> m_dwfl;
  std::unordered_map<std::uintptr_t, SymbolInfo> m_cache;
};

} // namespace

SymbolInfo symbolicate(std::uintptr_t returnAddress) {
  // Never destroyed: reports run from static destructors at process exit.
  static Symbolicator* symbolicator = new Symbolicator;
  return symbolicator->lookup(returnAddress);
}

} // namespace vtcore::detail
