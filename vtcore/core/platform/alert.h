// The modal alert that assertions and the exception report put up.
//
// The core library has no user interface of its own: it asks an alert
// presenter that the application (or vtcore-ui, for Qt applications)
// installs. With none installed every alert is answered 0, the default
// button, without showing anything.
#pragma once

#include <vtcore/export.h>

#include <functional>
#include <unicode/unistr.h>

namespace vtcore {

enum class AlertLevel { Stop, Note, Caution, Critical };

/// The answers of an alert.
enum AlertAnswer : int {
  kAlertDefault = 0,   ///< the default button (also: no alert was shown)
  kAlertAlternate = 1, ///< the alternate button
  kAlertOther = 2,     ///< the third button
  kAlertCancel = 3     ///< cancelled, or the time-out ran out
};

/// What an alert shows: its level, texts, buttons and time-out.
struct AlertRequest {
  AlertLevel level = AlertLevel::Stop; ///< how serious, for the icon
  icu::UnicodeString header;           ///< the bold first line
  icu::UnicodeString message;          ///< the explanation below it
  icu::UnicodeString defaultButton;    ///< the default button's title
  icu::UnicodeString alternateButton;  ///< empty: no such button
  icu::UnicodeString otherButton;      ///< empty: no such button
  double timeoutSeconds = 0;           ///< 0: wait for the user
};

/// Shows `request` and returns one of AlertAnswer's values; it blocks the
/// calling thread until answered.
using AlertPresenter = std::function<int(const AlertRequest& request)>;

/// Installs `presenter` for all later alerts, on any thread; an empty
/// function removes it. Returns the presenter it replaces.
VTCORE_EXPORT AlertPresenter setAlertPresenter(AlertPresenter presenter);

/// Asks the installed presenter; 0 when none is installed. An answer outside
/// 0..3, an exception thrown by the presenter, or too little memory to call
/// it counts as 3 (cancelled). Never throws.
VTCORE_EXPORT int presentAlert(const AlertRequest& request) noexcept;

} // namespace vtcore
