#include <vtcore/core/diagnostics/log/log.h>
#include <vtcore/core/platform/user_defaults.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vtcore {
namespace {

std::mutex& identifierMutex() {
  static std::mutex mutex;
  return mutex;
}
std::string& identifierStorage() {
  static std::string identifier;
  return identifier;
}

std::filesystem::path standardPath() {
  if (const char* file = std::getenv("VTCORE_DEFAULTS_FILE"); file && *file)
    return file;
  std::filesystem::path base;
  if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && *config)
    base = config;
  else if (const char* home = std::getenv("HOME"); home && *home)
    base = std::filesystem::path(home) / ".config";
  else
    base = "/tmp";
  return base / UserDefaults::applicationIdentifier() / "defaults.json";
}

enum class ReadResult { Missing, Parsed, Damaged };

using FileVersion = detail::DefaultsFileVersion;

FileVersion versionOf(const struct stat& status) {
  return {status.st_dev, status.st_ino, static_cast<long long>(status.st_mtim.tv_sec),
          status.st_mtim.tv_nsec, static_cast<long long>(status.st_size)};
}

// Reads and parses the file. A file that exists but cannot be read counts as
// damaged: it must not be mistaken for a missing one and overwritten.
ReadResult readDocument(const std::filesystem::path& path, nlohmann::json& document,
                        FileVersion* version = nullptr) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return errno == ENOENT ? ReadResult::Missing : ReadResult::Damaged;
  struct stat status {};
  std::string text;
  bool ok = ::fstat(fd, &status) == 0;
  char buffer[8192];
  while (ok) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR)
      continue;
    if (got <= 0) {
      ok = got == 0;
      break;
    }
    text.append(buffer, static_cast<std::size_t>(got));
  }
  ::close(fd);
  if (version && ok)
    *version = versionOf(status);
  if (!ok)
    return ReadResult::Damaged;
  auto parsed = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded() || !parsed.is_object())
    return ReadResult::Damaged;
  document = std::move(parsed);
  return ReadResult::Parsed;
}

std::optional<FileVersion> currentVersion(const std::filesystem::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0)
    return std::nullopt;
  return versionOf(status);
}

// Writes `document` to a temporary file beside `path`, flushes it and renames
// it over `path`, so that readers see the old or the new file, never a part.
bool writeDocumentAtomically(const std::filesystem::path& path, const nlohmann::json& document) {
  std::error_code error;
  std::filesystem::create_directories(path.parent_path(), error);
  std::string temporary =
      (path.parent_path() / ("." + path.filename().string() + ".XXXXXX")).string();
  int fd = mkstemp(temporary.data());
  if (fd < 0)
    return false;
  const std::string text = document.dump(2) + "\n";
  std::size_t done = 0;
  bool ok = true;
  while (done < text.size()) {
    ssize_t written = ::write(fd, text.data() + done, text.size() - done);
    if (written < 0) {
      if (errno == EINTR)
        continue;
      ok = false;
      break;
    }
    done += static_cast<std::size_t>(written);
  }
  // The new file keeps the permissions of the one it replaces.
  struct stat existing {};
  if (ok && ::stat(path.c_str(), &existing) == 0)
    ok = ::fchmod(fd, existing.st_mode & 07777) == 0;
  ok = ok && ::fsync(fd) == 0;
  ok = (::close(fd) == 0) && ok;
  ok = ok && std::rename(temporary.c_str(), path.c_str()) == 0;
  if (!ok) {
    const int savedErrno = errno;
    ::unlink(temporary.c_str());
    errno = savedErrno;
    return false;
  }
  // Make the rename itself durable.
  const int directory = ::open(path.parent_path().empty() ? "." : path.parent_path().c_str(),
                               O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory >= 0) {
    ::fsync(directory);
    ::close(directory);
  }
  return true;
}

// Serialises writers of the same file across processes: the read-modify-write
// of one writer never loses the keys of another.
class FileLock {
public:
  explicit FileLock(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::create_directories(path.parent_path(), error);
    const std::string lockPath =
        (path.parent_path() / ("." + path.filename().string() + ".lock")).string();
    m_fd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_fd >= 0)
      while (::flock(m_fd, LOCK_EX) != 0 && errno == EINTR) {
      }
  }
  ~FileLock() {
    if (m_fd >= 0)
      ::close(m_fd);
  }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

private:
  int m_fd = -1;
};

} // namespace

long long defaultsIntegerValue(const nlohmann::json& value) {
  if (value.is_number_unsigned()) {
    const auto number = value.get<unsigned long long>();
    return number > static_cast<unsigned long long>(LLONG_MAX) ? LLONG_MAX
                                                               : static_cast<long long>(number);
  }
  if (value.is_number_integer())
    return value.get<long long>();
  if (value.is_number_float()) {
    // Truncated toward zero and clamped: converting an out-of-range double
    // would be undefined.
    const double number = std::trunc(value.get<double>());
    if (!(number > static_cast<double>(LLONG_MIN)))
      return LLONG_MIN;
    if (!(number < static_cast<double>(LLONG_MAX)))
      return LLONG_MAX;
    return static_cast<long long>(number);
  }
  if (value.is_boolean())
    return value.get<bool>() ? 1 : 0;
  if (value.is_string())
    return std::strtoll(value.get_ref<const std::string&>().c_str(), nullptr, 10);
  return 0;
}

UserDefaults& UserDefaults::standard() {
  static UserDefaults defaults(standardPath());
  return defaults;
}

void UserDefaults::setApplicationIdentifier(std::string identifier) {
  {
    std::lock_guard lock(identifierMutex());
    identifierStorage() = std::move(identifier);
  }
  UserDefaults& defaults = standard();
  std::lock_guard lock(defaults.m_mutex);
  auto path = standardPath();
  if (path != defaults.m_path) {
    defaults.m_path = std::move(path);
    defaults.m_loaded = false;
  }
}

std::string UserDefaults::applicationIdentifier() {
  std::lock_guard lock(identifierMutex());
  return identifierStorage().empty() ? std::string(program_invocation_short_name)
                                     : identifierStorage();
}

UserDefaults::UserDefaults(std::filesystem::path file) : m_path(std::move(file)) {}

std::filesystem::path UserDefaults::path() const {
  std::lock_guard lock(m_mutex);
  return m_path;
}

bool UserDefaults::loadIfChanged() {
  const auto version = currentVersion(m_path);
  if (!version) {
    m_values = nlohmann::json::object();
    m_loaded = true;
    m_damaged = false;
    m_loadedVersion.reset();
    return true;
  }
  if (m_loaded && m_loadedVersion == version)
    return !m_damaged;
  nlohmann::json document;
  FileVersion read;
  auto result = readDocument(m_path, document, &read);
  m_loaded = true;
  m_damaged = result == ReadResult::Damaged;
  // Remember the version actually read, which a writer may have replaced
  // since the stat above; the next synchronize then sees the newer one.
  m_loadedVersion = result == ReadResult::Missing ? std::nullopt : std::optional(read);
  if (result == ReadResult::Parsed)
    m_values = std::move(document);
  else if (result == ReadResult::Missing)
    m_values = nlohmann::json::object();
  return !m_damaged;
}

std::optional<nlohmann::json> UserDefaults::objectForKey(const std::string& key) {
  std::lock_guard lock(m_mutex);
  if (!m_loaded)
    loadIfChanged();
  auto it = m_values.find(key);
  if (it == m_values.end())
    return std::nullopt;
  return *it;
}

std::optional<nlohmann::json> UserDefaults::dictionaryForKey(const std::string& key) {
  auto value = objectForKey(key);
  if (!value || !value->is_object())
    return std::nullopt;
  return value;
}

long long UserDefaults::integerForKey(const std::string& key) {
  auto value = objectForKey(key);
  return value ? defaultsIntegerValue(*value) : 0;
}

bool UserDefaults::hasKey(const std::string& key) {
  return objectForKey(key).has_value();
}

bool UserDefaults::setObject(const nlohmann::json& value, const std::string& key) {
  std::lock_guard lock(m_mutex);
  FileLock fileLock(m_path);
  nlohmann::json document = nlohmann::json::object();
  if (readDocument(m_path, document) == ReadResult::Damaged) {
    KWLogCString(3, true, "UserDefaults", "cannot read or parse %s: not overwriting it",
                 m_path.c_str());
    return false;
  }
  document[key] = value;
  if (!writeDocumentAtomically(m_path, document)) {
    KWLogCString(3, true, "UserDefaults", "cannot write %s: %s", m_path.c_str(),
                 std::strerror(errno));
    return false;
  }
  m_values = std::move(document);
  m_loaded = false; // the next read picks up the file as written
  return true;
}

bool UserDefaults::removeObjectForKey(const std::string& key) {
  std::lock_guard lock(m_mutex);
  FileLock fileLock(m_path);
  nlohmann::json document = nlohmann::json::object();
  auto result = readDocument(m_path, document);
  if (result == ReadResult::Damaged) {
    KWLogCString(3, true, "UserDefaults", "cannot read or parse %s: not overwriting it",
                 m_path.c_str());
    return false;
  }
  if (result == ReadResult::Missing || !document.contains(key))
    return true;
  document.erase(key);
  if (!writeDocumentAtomically(m_path, document)) {
    KWLogCString(3, true, "UserDefaults", "cannot write %s: %s", m_path.c_str(),
                 std::strerror(errno));
    return false;
  }
  m_values = std::move(document);
  m_loaded = false;
  return true;
}

bool UserDefaults::synchronize() {
  std::lock_guard lock(m_mutex);
  return loadIfChanged();
}

} // namespace vtcore
