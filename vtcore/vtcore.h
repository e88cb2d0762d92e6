// VTCore core library: every public declaration of libvtcore.
#pragma once

// Diagnostics
#include <vtcore/core/diagnostics/VTTrace.h>
#include <vtcore/core/diagnostics/alert.h>
#include <vtcore/core/diagnostics/exception.h>
#include <vtcore/core/diagnostics/exception_report.h>
#include <vtcore/core/diagnostics/log.h>
#include <vtcore/core/diagnostics/log_sink.h>
#include <vtcore/core/diagnostics/mem.h>

// Text and data

// Memory and objects
#include <vtcore/core/memory/add_remove_iterate_list.h>
#include <vtcore/core/memory/flyweight.h>
#include <vtcore/core/memory/low_memory_notification_center.h>
#include <vtcore/core/memory/notification_center.h>
#include <vtcore/core/memory/object.h>
#include <vtcore/core/memory/singleton.h>
#include <vtcore/core/memory/user_defaults.h>

// Music

// System
#include <vtcore/system/appinfo.h>
