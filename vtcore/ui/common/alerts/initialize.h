// Start-up of the user-interface library.
#pragma once

#include <vtcore/export.h>

namespace vtcore {

/// Prepares vtcore-ui for a Qt application: installs the Qt alert presenter
/// into the core's alert hook (so failed assertions and the exception report
/// ask the user in a QMessageBox), installs the terminate hook of the
/// exception report (its "Stop" answer then queues QCoreApplication::quit,
/// so the application ends through its usual quit sequence: windows are
/// closed, aboutToQuit is emitted, exec() returns), and registers the
/// library's image resources. Call it once, after creating the
/// QApplication; a later call installs both hooks again, replacing whatever
/// was installed since. Without it the controls work all the same, but
/// alerts go to whatever presenter the application installed (none: nothing
/// is shown and the default answer is taken) and "Stop" calls exit(0).
VTCORE_UI_EXPORT void initializeUi();

} // namespace vtcore
