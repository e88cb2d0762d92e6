// The library's named exception, and the assertion-handler hook through
// which internal consistency failures are raised.
#pragma once

#include <vtcore/export.h>

#include <exception>
#include <functional>
#include <map>
#include <string>

/// User-information key under which KWException keeps the call chain of its
/// construction: hexadecimal return addresses separated by two blanks.
inline constexpr const char* KWExceptionStackTraceKey = "KWStackTrace";

/// A named exception with a reason and user information, as the library's
/// object layer raises them ("ESSingleton", "KWFlyweight",
/// "KWInternalInconsistencyException", ...). The constructor records the
/// throwing call chain under KWExceptionStackTraceKey.
class VTCORE_EXPORT KWException : public std::exception {
public:
  /// Free-form key/value details of the exception (KWExceptionStackTraceKey
  /// among them).
  using UserInfo = std::map<std::string, std::string>;

  /// Makes the exception and records the current call chain in its user
  /// information under KWExceptionStackTraceKey.
  KWException(std::string name, std::string reason, UserInfo userInfo = {});

  /// The exception's name ("ESSingleton", ...).
  const std::string& name() const noexcept { return m_name; }
  /// The reason, a sentence for people.
  const std::string& reason() const noexcept { return m_reason; }
  /// The user information given to the constructor, plus the call chain.
  const UserInfo& userInfo() const noexcept { return m_userInfo; }
  /// The reason, as the exception's text.
  const char* what() const noexcept override { return m_reason.c_str(); }
  /// The reason: what the exception prints as with "%@".
  std::string description() const;

private:
  std::string m_name;
  std::string m_reason;
  UserInfo m_userInfo;
};

namespace vtcore {

/// An internal consistency failure, as reported to the assertion handler.
struct AssertionFailure {
  std::string operation;   ///< the failing operation, e.g. "compressedData"
  std::string object;      ///< a description of the object it ran on
  std::string sourceUnit;  ///< the source file
  int line = 0;            ///< the line in that file
  std::string description; ///< what went wrong
};

/// Receives internal consistency failures. It may throw (the default throws
/// KWException "KWInternalInconsistencyException" with the description as
/// reason) or return, in which case the failing operation returns its null
/// result.
using AssertionHandler = std::function<void(const AssertionFailure& failure)>;

/// Installs `handler` process-wide; an empty function restores the default.
/// Returns the handler it replaces (empty for the default).
VTCORE_EXPORT AssertionHandler setAssertionHandler(AssertionHandler handler);

/// Reports `failure` to the installed handler (or the default).
VTCORE_EXPORT void handleAssertionFailure(const AssertionFailure& failure);

} // namespace vtcore
