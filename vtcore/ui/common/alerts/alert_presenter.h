// The Qt side of the core's alert hook: assertions and the exception report
// ask the user through a QMessageBox.
#pragma once

#include <vtcore/core/platform/alert.h>
#include <vtcore/export.h>

namespace vtcore {

/// Shows `request` in an application-modal QMessageBox and waits for the
/// answer: the default button answers 0, the alternate 1, the third 2. A
/// time-out above 0 closes the box after that many seconds and answers 3.
/// Empty alternate and third titles leave those buttons out; an empty
/// default title shows "OK". Escape and the window's close button answer
/// nothing unless the box has a single button; the user has to choose.
///
/// On a thread other than the application's main thread the box is shown by
/// the main thread's event loop and the caller waits for it, at most the
/// time-out: when it runs out first (the main thread is busy, or waits for
/// the caller) the answer is 3 and the box is never shown, or closes. With
/// no time-out the caller waits until the user answers. Without a
/// QApplication nothing is shown and the answer is 0, as without any
/// presenter.
VTCORE_UI_EXPORT int presentQtAlert(const AlertRequest& request);

/// Installs presentQtAlert() as the core's alert presenter and returns the
/// presenter it replaces (see vtcore::setAlertPresenter).
VTCORE_UI_EXPORT AlertPresenter installQtAlertPresenter();

} // namespace vtcore
