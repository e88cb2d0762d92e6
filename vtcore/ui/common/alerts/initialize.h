// Start-up of the user-interface library.
#pragma once

#include <vtcore/export.h>

namespace vtcore {

/// Prepares vtcore-ui for a Qt application: installs the Qt alert presenter
/// into the core's alert hook (so failed assertions and the exception report
/// ask the user in a QMessageBox) and registers the library's image
/// resources. Call it once, after creating the QApplication; a later call
/// installs the Qt presenter again, replacing whatever was installed since. Without it the controls
/// work all the same, but alerts go to whatever presenter the application installed (none: nothing
/// is shown and the default answer is taken).
VTCORE_UI_EXPORT void initializeUi();

} // namespace vtcore
