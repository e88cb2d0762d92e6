// Arbitrary bytes as a defaults file: reading never crashes, a file that does
// not parse as a dictionary is never overwritten, and a write to one that
// does keeps every other key.
#include <vtcore/core/platform/log_sink.h>
#include <vtcore/core/platform/user_defaults.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = "/tmp/vtcore-defaults-fuzz-" + std::to_string(getpid()) + ".json";
  // Refused writes log an error each: keep them out of the system log.
  static vtcore::MemoryLogSink sink;
  [[maybe_unused]] static const bool installed = (vtcore::setLogSink(&sink), true);
  sink.clear();
  const std::string input(reinterpret_cast<const char*>(data), size);
  std::ofstream(path, std::ios::binary | std::ios::trunc) << input;

  vtcore::UserDefaults defaults(path);
  const bool parsed = defaults.synchronize();
  for (const char* key : {"MemoryReserve", "LeakGuard", ""}) {
    (void)defaults.integerForKey(key);
    (void)defaults.dictionaryForKey(key);
  }
  auto before = nlohmann::json::parse(input, nullptr, false);
  const bool written = defaults.setObject(42, "fuzz-key");
  std::stringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  if (!parsed || !before.is_object()) {
    if (written || text.str() != input)
      std::abort(); // a damaged file was overwritten
  } else {
    auto after = nlohmann::json::parse(text.str(), nullptr, false);
    if (!written || !after.is_object() || after.value("fuzz-key", 0) != 42)
      std::abort();
    after.erase("fuzz-key");
    before.erase("fuzz-key");
    if (after != before)
      std::abort(); // another key was lost or changed
  }
  std::remove(path.c_str());
  return 0;
}
