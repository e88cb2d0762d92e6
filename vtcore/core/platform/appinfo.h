// Application information: the texts the exception report (and an About box)
// shows. The application sets its name and version at start; the system
// version is read from the machine.
#pragma once

#include <vtcore/export.h>

#include <optional>
#include <string>
#include <string_view>
#include <unicode/unistr.h>

/// The application's name: the one set with vtcore::setApplicationName, else
/// the process name.
VTCORE_EXPORT icu::UnicodeString KWApplicationName();
/// The application's version text: the one set with
/// vtcore::setApplicationVersion, else an empty text.
VTCORE_EXPORT icu::UnicodeString KWApplicationVersion();
/// The operating system's version text: PRETTY_NAME of /etc/os-release (or
/// /usr/lib/os-release; "Linux" when neither names one) and the kernel
/// release, as in "Debian GNU/Linux 12 (bookworm), kernel 6.1.0-18-amd64".
VTCORE_EXPORT icu::UnicodeString KWOSVersion();

namespace vtcore {

/// Sets the name KWApplicationName returns; an empty name restores the
/// process name. Any thread.
VTCORE_EXPORT void setApplicationName(const icu::UnicodeString& name);
/// Sets the text KWApplicationVersion returns. Any thread.
VTCORE_EXPORT void setApplicationVersion(const icu::UnicodeString& version);

namespace detail {
/// The PRETTY_NAME value of an os-release text (KEY=VALUE lines, values
/// unquoted or in shell-style single or double quotes), or nullopt when the
/// text has none.
VTCORE_EXPORT std::optional<std::string> osReleasePrettyName(std::string_view text);
} // namespace detail

} // namespace vtcore
