// The user-defaults store of the current application: the preferences that
// the memory reserve, the low-memory centre and the leak guard read.
//
// One JSON document per application, at
// $XDG_CONFIG_HOME/<application id>/defaults.json (~/.config when
// XDG_CONFIG_HOME is unset), or the file named by VTCORE_DEFAULTS_FILE. The
// application id is the process name unless the application sets one.
#pragma once

#include <vtcore/export.h>

#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace vtcore {

namespace detail {
/// Identifies one version of a defaults file: every write renames a new
/// inode into place, so versions differ even within one timestamp tick.
struct DefaultsFileVersion {
  unsigned long long device = 0;
  unsigned long long inode = 0;
  long long seconds = 0;
  long nanoseconds = 0;
  long long size = 0;
  bool operator==(const DefaultsFileVersion&) const = default;
};
} // namespace detail

/// The user-defaults store of one application (see the top of this file):
/// the preferences the library's services read, by group and key.
class VTCORE_EXPORT UserDefaults {
public:
  /// The store of the current application (see setApplicationIdentifier).
  static UserDefaults& standard();

  /// Sets the application id used by standard() for its file, before its
  /// first use; later calls change the file standard() reads on its next
  /// synchronize(). An empty id restores the process name.
  static void setApplicationIdentifier(std::string identifier);
  /// The application id: the one set, else the process name.
  static std::string applicationIdentifier();

  /// A store backed by `file` (it need not exist yet).
  explicit UserDefaults(std::filesystem::path file);

  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;

  /// The file behind this store.
  std::filesystem::path path() const;

  /// The value stored under `key`, or nullopt.
  std::optional<nlohmann::json> objectForKey(const std::string& key);
  /// The dictionary stored under `key`, or nullopt when absent or not a
  /// dictionary.
  std::optional<nlohmann::json> dictionaryForKey(const std::string& key);
  /// The integer value of `key`: a number (truncated toward zero), a boolean
  /// (0/1) or a string that starts with a number; 0 when absent or otherwise.
  long long integerForKey(const std::string& key);
  /// Whether `key` holds a value.
  bool hasKey(const std::string& key);

  /// Stores `value` under `key` and writes the file. The file is replaced
  /// atomically and keeps every other key as it is on disk. Returns false,
  /// logging one error, when the file on disk cannot be parsed (a damaged
  /// file is never overwritten) or cannot be written.
  bool setObject(const nlohmann::json& value, const std::string& key);
  /// Removes `key` and writes the file, under the same rules as setObject.
  bool removeObjectForKey(const std::string& key);

  /// Re-reads the file when it changed since it was last read. Returns false
  /// when the file exists but cannot be parsed (the old values are kept).
  bool synchronize();

private:
  bool loadIfChanged();

  mutable std::mutex m_mutex;
  std::filesystem::path m_path;
  nlohmann::json m_values = nlohmann::json::object();
  std::optional<detail::DefaultsFileVersion> m_loadedVersion; // none when nothing was read
  bool m_loaded = false;
  bool m_damaged = false;
};

/// Interprets a defaults value as an integer as integerForKey does.
VTCORE_EXPORT long long defaultsIntegerValue(const nlohmann::json& value);

} // namespace vtcore
