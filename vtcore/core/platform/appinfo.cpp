#include <vtcore/core/platform/appinfo.h>

#include <cerrno>
#include <fstream>
#include <mutex>
#include <sstream>
#include <sys/utsname.h>

namespace {

struct ApplicationInfo {
  std::mutex mutex;
  icu::UnicodeString name;
  icu::UnicodeString version;
};

ApplicationInfo& applicationInfo() {
  static ApplicationInfo info;
  return info;
}

std::optional<std::string> readFile(const char* path) {
  std::ifstream in(path);
  if (!in)
    return std::nullopt;
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string systemVersion() {
  std::optional<std::string> pretty;
  for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
    if (auto text = readFile(path)) {
      pretty = vtcore::detail::osReleasePrettyName(*text);
      break; // the first file that exists is the one that counts
    }
  }
  std::string version = pretty.value_or("Linux");
  utsname names{};
  if (uname(&names) == 0)
    version += std::string(", kernel ") + names.release;
  return version;
}

} // namespace

icu::UnicodeString KWApplicationName() {
  auto& info = applicationInfo();
  std::lock_guard lock(info.mutex);
  if (!info.name.isEmpty())
    return info.name;
  return icu::UnicodeString::fromUTF8(program_invocation_short_name);
}

icu::UnicodeString KWApplicationVersion() {
  auto& info = applicationInfo();
  std::lock_guard lock(info.mutex);
  return info.version;
}

icu::UnicodeString KWOSVersion() {
  // The system does not change under a running process.
  static const std::string version = systemVersion();
  return icu::UnicodeString::fromUTF8(version);
}

namespace vtcore {

void setApplicationName(const icu::UnicodeString& name) {
  auto& info = applicationInfo();
  std::lock_guard lock(info.mutex);
  info.name = name;
}

void setApplicationVersion(const icu::UnicodeString& version) {
  auto& info = applicationInfo();
  std::lock_guard lock(info.mutex);
  info.version = version;
}

std::optional<std::string> detail::osReleasePrettyName(std::string_view text) {
  constexpr std::string_view key = "PRETTY_NAME=";
  std::optional<std::string> result;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t'))
      line.remove_prefix(1);
    if (!line.starts_with(key))
      continue;
    line.remove_prefix(key.size());
    while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r'))
      line.remove_suffix(1);
    std::string value;
    if (!line.empty() && (line.front() == '"' || line.front() == '\'')) {
      const char quote = line.front();
      bool closed = false;
      for (std::size_t i = 1; i < line.size(); ++i) {
        char c = line[i];
        if (c == quote) {
          closed = true;
          break;
        }
        // Inside double quotes a backslash escapes the shell's specials.
        if (quote == '"' && c == '\\' && i + 1 < line.size() &&
            std::string_view("\"\\$`").find(line[i + 1]) != std::string_view::npos)
          c = line[++i];
        value += c;
      }
      if (!closed)
        continue; // a broken line is not a name
    } else {
      value = std::string(line);
    }
    result = std::move(value); // the last assignment wins, as in a shell
  }
  if (result && result->empty())
    return std::nullopt;
  return result;
}

} // namespace vtcore
