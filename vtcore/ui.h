// VTCore user-interface library (vtcore-ui, Qt 6 Widgets): every public
// declaration of libvtcore-ui. Link VTCore::ui (CMake) or vtcore-ui
// (pkg-config) and call vtcore::initializeUi() after creating the
// QApplication.
#pragma once

// Common: start-up, timer, target/action, delegates, border view, images
#include <vtcore/ui/common/alerts/alert_presenter.h>
#include <vtcore/ui/common/alerts/initialize.h>
#include <vtcore/ui/common/border_view/border_view.h>
#include <vtcore/ui/common/images/images.h>
#include <vtcore/ui/common/target_action/delegate.h>
#include <vtcore/ui/common/target_action/target_action.h>
#include <vtcore/ui/common/timer/timer.h>

// Controls
#include <vtcore/ui/controls/formatter_delegate/value_formatter_delegate.h>
#include <vtcore/ui/controls/number_editor/action_cell.h>
#include <vtcore/ui/controls/number_editor/cell_group_control.h>
#include <vtcore/ui/controls/number_editor/number_editor_cell.h>
#include <vtcore/ui/controls/number_editor/number_editor_control.h>
#include <vtcore/ui/controls/octave_picker/octave_picker_view.h>

// Views: autoresizing, the accessory view animation, container and splitter
#include <vtcore/ui/views/accessory/accessory_container_view.h>
#include <vtcore/ui/views/accessory/accessory_splitter.h>
#include <vtcore/ui/views/animation/accessory_view_animation.h>
#include <vtcore/ui/views/animation/animation.h>
#include <vtcore/ui/views/autoresizing/autoresizing.h>
