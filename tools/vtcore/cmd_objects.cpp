// vtcore subcommands and tour steps of the object layer and notifications.

#include "command.h"

#include <vtcore/vtcore.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace vtcore::cli;

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  return text.toUTF8String(out);
}

int runAppInfo(const Invocation& call) {
  const auto& args = call.operands();
  if (args.size() > 2)
    return usage("appinfo");
  if (args.size() > 0)
    vtcore::setApplicationName(icu::UnicodeString::fromUTF8(args[0]));
  if (args.size() > 1)
    vtcore::setApplicationVersion(icu::UnicodeString::fromUTF8(args[1]));
  std::cout << "name:    " << utf8(KWApplicationName()) << "\n"
            << "version: " << utf8(KWApplicationVersion()) << "\n"
            << "system:  " << utf8(KWOSVersion()) << "\n";
  return 0;
}

int runCheckMemory(const Invocation& call) {
  if (call.operands().size() != 1)
    return usage("checkmemory");
  const auto size = static_cast<unsigned long long>(
      integerArgument("SIZE", call.operands()[0], 0, std::numeric_limits<long long>::max()));
  const bool available = LowMemoryNotificationCenter::CheckMemory(size);
  std::cout << size << " bytes " << (available ? "can" : "cannot") << " be allocated now\n";
  return 0;
}

Register appInfoCommand{{"appinfo",
                         "[NAME [VERSION]]",
                         "print the application name, version and system version",
                         {},
                         runAppInfo,
                         "NAME and VERSION replace what the application-information service "
                         "reports, for\nthis run only.",
                         {}}};
Register checkMemoryCommand{{"checkmemory",
                             "SIZE",
                             "tell whether SIZE bytes can be allocated now",
                             {},
                             runCheckMemory,
                             "SIZE is a whole number of bytes. Asks the low-memory notification "
                             "centre\n(LowMemoryNotificationCenter::CheckMemory); prints the "
                             "answer, exit 0 either way.",
                             {}}};

// --- tour -------------------------------------------------------------------

constexpr unsigned long MiB = 1024 * 1024;
void* samplerCache = nullptr;

unsigned long samplerObserver(void*, unsigned char level, unsigned long size) {
  std::cout << "  level " << int(level) << ": sample cache asked for " << size / MiB << " MiB";
  if (level == 1 && samplerCache) {
    std::free(samplerCache);
    samplerCache = nullptr;
    std::cout << " -> frees its 64 MiB block\n";
    return 64 * MiB;
  }
  std::cout << " -> keeps its block for now\n";
  return 0;
}

unsigned long undoObserver(void*, unsigned char level, unsigned long) {
  std::cout << "  level " << int(level) << ": undo history has nothing to give\n";
  return 0;
}

// Runs in a child: it lowers its own address-space limit, so the shortage is
// real and the tool's own process is left alone.
void lowMemoryChild() {
  const auto file = std::filesystem::temp_directory_path() /
                    ("vtcore-tour-" + std::to_string(getpid()) + ".json");
  setenv("VTCORE_DEFAULTS_FILE", file.c_str(), 1);
  vtcore::UserDefaults::setApplicationIdentifier("vtcore-tour");
  auto& defaults = vtcore::UserDefaults::standard();
  defaults.setObject(16 * MiB, "LowMemoryReserve");
  defaults.setObject(32 * MiB, "MinAvailMemoryThreshold");
  const bool on = LowMemoryNotificationCenter::InitializeLMNotificationCenter();
  std::filesystem::remove(file);
  if (!on) {
    std::cout << "  the centre did not start\n";
    return;
  }
  vtcore::NotificationCenter::defaultCenter().addObserver(
      LowMemoryNotificationCenter::kLowMemoryNotification,
      [](const vtcore::Notification&) { std::cout << "  (kLowMemoryNotification posted)\n"; });
  LowMemoryNotificationCenter::AddLMObserver(samplerObserver, nullptr);
  LowMemoryNotificationCenter::AddLMObserver(undoObserver, nullptr);

  mallopt(M_MMAP_THRESHOLD, 256 * 1024);
  samplerCache = std::malloc(64 * MiB);
  std::ifstream statm("/proc/self/statm");
  unsigned long pages = 0;
  statm >> pages;
  rlimit limit{};
  getrlimit(RLIMIT_AS, &limit);
  limit.rlim_cur = pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) + 24 * MiB;
  if (!samplerCache || setrlimit(RLIMIT_AS, &limit) != 0) {
    std::cout << "  could not set up the shortage\n";
    return;
  }
  std::cout << "CheckPoint(8 MiB) with 24 MiB of address space left (probes are at least 32 MiB):\n"
            << std::flush;
  const bool result = LowMemoryNotificationCenter::CheckPoint(8 * MiB);
  std::cout << "CheckPoint returned " << (result ? "true" : "false") << "; 32 MiB "
            << (LowMemoryNotificationCenter::CheckMemory(32 * MiB) ? "can" : "cannot")
            << " be allocated now\n";
}

void tourLowMemory() {
  std::cout << "The low-memory centre probes at check points whether enough memory is left.\n"
               "When it is not, it escalates: it posts a notification and asks its observers\n"
               "(parts of the application that can free memory) level by level, stopping as\n"
               "soon as the probe succeeds.\n"
               "A real shortage, in a child process under an address-space limit, with two\n"
               "observers:\n"
            << std::flush;
  const pid_t pid = fork();
  if (pid == 0) {
    lowMemoryChild();
    std::cout << std::flush;
    _exit(0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
}

[[gnu::noinline]] void loadSession() {
  throw KWException("KWInternalInconsistencyException", "session file refers to track 12 of 8");
}

void tourExceptionReport() {
  std::cout << "An exception reaches the top level; the report logs it, has eu-addr2line turn\n"
               "its call chain (the code addresses of the functions that led to it) into\n"
               "function names and source lines, and asks the user through an alert (here a\n"
               "presenter that answers Resume):\n"
            << std::flush;
  vtcore::setApplicationName(u"vtcore tour");
  vtcore::setApplicationVersion(icu::UnicodeString::fromUTF8(vtcore::libraryVersion()));
  auto previous = vtcore::setAlertPresenter([](const vtcore::AlertRequest& request) {
    vtcore::waitForSymbolTools(10); // its output first, for a readable tour
    std::cerr << std::flush;
    std::cout << "[alert] " << utf8(request.header) << "\n[alert] " << utf8(request.message)
              << "\n[alert] buttons: " << utf8(request.defaultButton) << " | "
              << utf8(request.alternateButton) << " | " << utf8(request.otherButton)
              << "  -> Resume\n"
              << std::flush;
    return vtcore::kAlertAlternate;
  });
  try {
    loadSession();
  } catch (const KWException& exception) {
    KWDisplayExceptionReport(exception);
  }
  vtcore::setAlertPresenter(previous);
  std::cout << "KWDisplayExceptionReport returned: the application goes on.\n";
}

class Transport : public KWSingleton {
  KW_SINGLETON(Transport, KWSingleton)
  Transport() = default;
};

class Note : public KWFlyweight {
  VTCORE_OBJECT(Note, KWFlyweight)
public:
  explicit Note(int midiPitch) : pitch(midiPitch) {}
  void setupIntrinsicStateData() override {
    std::cout << "  setting up note " << pitch << " (once)\n";
  }
  int pitch;
};

void callbackPrinter(void* object, unsigned message, void*) {
  std::cout << "  " << static_cast<const char*>(object) << " got message " << message << "\n";
}

void tourObjects() {
  std::cout << "A singleton is a class with one shared instance; a flyweight is an object\n"
               "shared by everyone who asks for an equal value.\n";
  Transport* transport = Transport::sharedInstance();
  std::cout << "Singleton: two requests give "
            << (transport == Transport::sharedInstance() ? "the same instance"
                                                         : "different instances (!)")
            << "; its retain count (references held) reads " << transport->retainCount()
            << ", the largest value: a singleton is never released\n";
  KWSingleton::releaseAllSingletons();

  std::cout << "Flyweights: two notes with the same value, one with another:\n";
  auto c4 = makeFlyweight<Note>(60, 60);
  auto again = makeFlyweight<Note>(60, 60);
  auto e4 = makeFlyweight<Note>(64, 64);
  std::cout << "  same instance for equal values: " << (c4.get() == again.get() ? "yes" : "no")
            << "\n";
  KWFlyweight::releasePoolOfFlyweights(Note::classObject());

  std::cout << "Callback list: objects to call in turn, which may be added or removed while\n"
               "a pass runs; such requests queue up and apply at the start of the next pass:\n";
  static char mixer[] = "mixer", meter[] = "meter";
  CAddRemoveIterateList list;
  list.Add(mixer, callbackPrinter);
  list.Add(meter, callbackPrinter);
  list.Iterate(1, nullptr);
  list.Remove(meter);
  list.Iterate(2, nullptr);
}

TourStep lowMemoryStep{50, "Low-memory escalation", tourLowMemory};
TourStep reportStep{51, "Exception report", tourExceptionReport};
TourStep objectsStep{52, "Singletons, flyweights and the callback list", tourObjects};

} // namespace
