// VTCore user-interface library (vtcore-ui, Qt 6 Widgets): every public
// declaration of libvtcore-ui. Link VTCore::ui (CMake) or vtcore-ui
// (pkg-config) and call vtcore::initializeUi() after creating the
// QApplication.
#pragma once

// Common: start-up, timer, target/action, delegates, border view, images
#include <vtcore/ui/common/alert_presenter.h>
#include <vtcore/ui/common/border_view.h>
#include <vtcore/ui/common/delegate.h>
#include <vtcore/ui/common/images.h>
#include <vtcore/ui/common/initialize.h>
#include <vtcore/ui/common/target_action.h>
#include <vtcore/ui/common/timer.h>

// Controls

// Views
