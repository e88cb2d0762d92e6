// vtcore subcommands and tour steps of the memory layer: the allocator zone,
// the memory reserve, the leak guard and the user-defaults store.

#include "command.h"

#include <vtcore/vtcore.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace vtcore::cli;

// --- leaks: plant leaks inside a leak-guard scope and report them -----------

__attribute__((noinline)) void* plantLeak(std::size_t size) {
  return std::malloc(size);
}
__attribute__((noinline)) char* plantCopy(const char* text) {
  return strdup(text);
}

__attribute__((noinline)) std::vector<void*> leakInScope(unsigned long count, std::size_t size) {
  std::vector<void*> leaked;
  leaked.reserve(count + 1);
  KWLeakGuard guard;
  for (unsigned long i = 0; i < count; ++i)
    leaked.push_back(plantLeak(size));
  leaked.push_back(plantCopy("a planted copy"));
  std::free(plantLeak(1000)); // freed in scope: not reported
  return leaked;
}

int reportPlantedLeaks(unsigned long count, std::size_t size) {
  if (!vtcore::mallocZoneInterposed())
    return fail("leaks", "this build uses a sanitizer's allocator: the leak guard cannot hook it");
  vtcore::setLeakGuardEnabled(true);
  KWResetLeakGuardHistory(false);
  std::vector<void*> leaked = leakInScope(count, size);
  std::cout << std::flush;
  KWResetLeakGuardHistory(true);
  for (void* block : leaked)
    std::free(block);
  // Switched off again, the guard does not repeat its (now empty) report
  // when the process exits.
  vtcore::setLeakGuardEnabled(false);
  return 0;
}

int runLeaks(const Invocation& call) {
  const auto& args = call.operands();
  if (args.size() > 2)
    return usage("leaks");
  unsigned long count = 2, size = 48;
  if (args.size() >= 1)
    count = static_cast<unsigned long>(integerArgument("COUNT", args[0], 0, 1000));
  if (args.size() == 2)
    size = static_cast<unsigned long>(integerArgument("SIZE", args[1], 1, 1 << 20));
  return reportPlantedLeaks(count, size);
}

Register leaksCommand{{"leaks",
                       "[COUNT [SIZE]]",
                       "plant COUNT leaks of SIZE bytes and a strdup in a leak-guard scope "
                       "and print the guard's report",
                       {},
                       runLeaks,
                       "COUNT is 0 to 1000 (default 2), SIZE 1 to 1048576 bytes (default 48). The "
                       "report\nlists each leaked block with its call chain: address, source file "
                       "(its last 32\ncharacters), line and function. Exit status 1 in a "
                       "sanitizer build, where the\nleak guard cannot hook the allocator.",
                       {}}};

// --- memory-reserve: options and probe -----------------------------------------

int runReserve(const Invocation& call) {
  const auto& args = call.operands();
  if (!args.empty() && args.size() != 2)
    return usage("memory-reserve");
  std::cout << "reserve held by this build: "
            << (vtcore::memoryReserveAvailable() ? "yes" : "no (64-bit build)") << "\n";
  static const char* names[] = {"MaxSensibleSize", "BlockSize",        "FinalBlockSize",
                                "MemAvailSize",    "MemAvailFragment", "Verbose"};
  for (unsigned option = 0; option < 6; ++option)
    std::cout << "  " << names[option] << " = " << KWMemoryReserveGetOption(option) << "\n";
  if (args.size() == 2) {
    const auto size = static_cast<unsigned long>(integerArgument("SIZE_MB", args[0], 0, 1 << 30));
    const auto fragment =
        static_cast<unsigned long>(integerArgument("FRAGMENT_MB", args[1], 0, 1 << 30));
    KWMemoryReserveEnter(nullptr, nullptr);
    const int available = KWMemoryReserveTestAvailableMemory(size << 20, fragment << 20);
    std::cout << "probe of " << size << " MB in fragments of at least " << fragment
              << " MB: " << (available ? "available" : "not available") << " (level "
              << KWMemoryReserveGetLowMemoryLevel() << ")\n";
    KWMemoryReserveExit();
  }
  return 0;
}

Register reserveCommand{{"memory-reserve",
                         "[SIZE_MB FRAGMENT_MB]",
                         "show the memory reserve's options; probe SIZE_MB in fragments",
                         {},
                         runReserve,
                         "Without arguments prints the reserve's options. With SIZE_MB and "
                         "FRAGMENT_MB (0 to\n1073741824 each) it also asks whether SIZE_MB "
                         "megabytes can be had in pieces of at\nleast FRAGMENT_MB "
                         "(KWMemoryReserveTestAvailableMemory).",
                         {}}};

// --- defaults: the user-defaults store of an application ---------------------

int runDefaults(const Invocation& call) {
  const auto& args = call.operands();
  if (args.empty())
    return usage("defaults");
  const std::string& action = args[0];
  auto& defaults = vtcore::UserDefaults::standard();
  if (action == "path" && args.size() == 1) {
    std::cout << defaults.path().string() << "\n";
    return 0;
  }
  if (action == "get" && args.size() == 2) {
    if (!defaults.synchronize())
      return fail("defaults", "the defaults file cannot be parsed");
    auto value = defaults.objectForKey(args[1]);
    if (!value)
      return fail("defaults", "no value for " + args[1]);
    std::cout << value->dump(2) << "\n";
    return 0;
  }
  if (action == "set" && args.size() == 3) {
    auto value = nlohmann::json::parse(args[2], nullptr, false);
    if (value.is_discarded())
      value = args[2]; // not JSON: stored as a string
    return defaults.setObject(value, args[1]) ? 0 : fail("defaults", "not written (see the log)");
  }
  if (action == "remove" && args.size() == 2)
    return defaults.removeObjectForKey(args[1]) ? 0 : fail("defaults", "not written (see the log)");
  return usage("defaults");
}

Register defaultsCommand{
    {"defaults",
     "path | get KEY | set KEY VALUE | remove KEY",
     "read or write the user-defaults store of this application "
     "(VTCORE_DEFAULTS_FILE names another file)",
     {},
     runDefaults,
     "  path             the file that holds the store\n"
     "  get KEY          the value of KEY as JSON (exit 1 when there is none)\n"
     "  set KEY VALUE    store VALUE, read as JSON when it parses, else as a "
     "string\n"
     "  remove KEY       remove KEY",
     {"path", "get", "set", "remove"}}};

// --- tour ----------------------------------------------------------------------

KWMallocZoneFunctions savedZone;
std::atomic<long> tourMallocs{0};
void* countingMalloc(KWMallocZone* zone, std::size_t size) {
  tourMallocs.fetch_add(1, std::memory_order_relaxed);
  return savedZone.malloc(zone, size);
}

void tourZone() {
  std::cout << "The allocator zone is the table of entry points (malloc, free, ...) that every\n"
               "allocation of the process goes through; the memory reserve and the leak guard\n"
               "work by writing their own hooks into it.\n";
  std::cout << "Every malloc of this process passes through VTCore's zone table"
            << (vtcore::mallocZoneInterposed() ? "" : " (not in sanitizer builds)") << ".\n";
  savedZone = vtcore::mallocZoneFunctions(nullptr);
  KWMallocZoneFunctions hook{};
  hook.malloc = countingMalloc;
  vtcore::setMallocZoneFunctions(nullptr, hook);
  {
    std::string text(100, 'x'); // operator new
    std::unique_ptr<char, decltype(&std::free)> copy(strdup("C library"), &std::free);
    std::vector<int> numbers(50);
  }
  vtcore::setMallocZoneFunctions(nullptr, savedZone);
  std::cout << "A counting hook installed around a std::string, a strdup and a std::vector saw "
            << tourMallocs.load() << " mallocs; restored.\n";
}

void tourReserve() {
  std::cout << "The memory reserve holds back blocks of memory and frees them when an\n"
               "allocation fails, so that the application can still save its work.\n";
  std::cout << "Memory reserve: "
            << (vtcore::memoryReserveAvailable()
                    ? "held in this build"
                    : "off in 64-bit builds (configure with VTCORE_MEMORY_RESERVE_ON_64BIT=ON)")
            << "; block " << KWMemoryReserveGetOption(kKWMemReserveOptionBlockSize)
            << " MB, final block " << KWMemoryReserveGetOption(kKWMemReserveOptionFinalBlockSize)
            << " MB.\n";
  std::cout << "Low-memory level " << KWMemoryReserveGetLowMemoryLevel()
            << " (0: no shortage yet); probe of 64 MB in 1 MB fragments: "
            << (KWMemoryReserveTestAvailableMemory(64u << 20, 1u << 20) ? "available" : "short")
            << "\n";
  const vtcore::AvailableMemory memory = vtcore::readAvailableMemory();
  auto mb = [](std::uint64_t bytes) {
    return bytes == vtcore::AvailableMemory::kNoLimit ? std::string("no limit")
                                                      : std::to_string(bytes >> 20) + " MB";
  };
  std::cout << "What the low-memory centre counts as available now: MemAvailable "
            << mb(memory.memAvailable) << ", memory cgroup"
            << (memory.cgroupVersion ? " v" + std::to_string(memory.cgroupVersion) : "") << " "
            << mb(memory.cgroupRoom) << ", RLIMIT_AS " << mb(memory.addressSpaceRoom)
            << ", RLIMIT_DATA " << mb(memory.dataRoom) << ": " << mb(memory.room()) << ".\n";
}

// The report gives each source file as its last 32 characters, which often
// starts in the middle of a folder name ("ork/wt/app/main.cpp") or looks
// like a shorter absolute path ("/app/main.cpp" of "/work/wt/app/main.cpp").
// For the reader a name that fills the field is cut back to a whole folder
// and marked with "...": the field grows by those three characters.
std::string tidyReportLine(const std::string& line) {
  constexpr std::size_t kField = 32;
  const std::string prefix = "LLD:         0x";
  if (!line.starts_with(prefix))
    return line;
  const std::size_t field = line.find(' ', prefix.size());
  if (field == std::string::npos || line.size() < field + 1 + kField)
    return line;
  std::string file = line.substr(field + 1, kField);
  const std::size_t slash = file.find('/');
  if (file.back() != ' ' && slash != std::string::npos)
    file = "..." + file.substr(slash);
  file.resize(kField + 3, ' ');
  return line.substr(0, field + 1) + file + line.substr(field + 1 + kField);
}

// Runs `report` with standard output caught in a temporary file and prints
// what it wrote, line by line through tidyReportLine.
void printTidiedReport(void (*report)()) {
  std::cout << std::flush;
  std::fflush(stdout);
  std::FILE* caught = std::tmpfile();
  const int saved = caught ? dup(STDOUT_FILENO) : -1;
  if (saved < 0) {
    if (caught)
      std::fclose(caught);
    report();
    return;
  }
  dup2(fileno(caught), STDOUT_FILENO);
  report();
  std::cout << std::flush;
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  std::rewind(caught);
  char buffer[4096];
  while (std::fgets(buffer, sizeof buffer, caught)) {
    std::string line = buffer;
    const bool ended = !line.empty() && line.back() == '\n';
    if (ended)
      line.pop_back();
    std::cout << tidyReportLine(line) << (ended ? "\n" : "");
  }
  std::fclose(caught);
}

void plantTourLeaks() {
  reportPlantedLeaks(2, 48);
}

void tourLeakGuard() {
  if (!vtcore::mallocZoneInterposed()) {
    std::cout << "(the leak guard needs VTCore's own allocator hooks; skipped in this build)\n";
    return;
  }
  std::cout << "The leak guard records every block allocated inside a scope with the call\n"
               "chain (the functions that led to the allocation) and reports the blocks that\n"
               "were not freed, in lines that start with LLD:. Each call-chain line gives the\n"
               "code address, the source file (its last 32 characters; \"...\" where a folder\n"
               "name is cut), the line and the function.\n"
               "A scope that leaks two 48-byte blocks and a strdup, with the guard's report:\n"
            << std::flush;
  printTidiedReport(plantTourLeaks);
}

void tourDefaults() {
  std::cout << "User defaults are an application's stored preferences (the memory layer reads\n"
               "its settings there).\n";
  std::cout << "User defaults of \"" << vtcore::UserDefaults::applicationIdentifier()
            << "\" live in " << vtcore::UserDefaults::standard().path().string()
            << " (VTCORE_DEFAULTS_FILE names another file).\n";
}

TourStep zoneStep{40, "Allocator zone", tourZone};
TourStep reserveStep{41, "Memory reserve", tourReserve};
TourStep leakStep{42, "Leak guard", tourLeakGuard};
TourStep defaultsStep{43, "User defaults", tourDefaults};

} // namespace
