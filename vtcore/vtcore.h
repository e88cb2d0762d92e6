// VTCore core library: every public declaration of libvtcore.
#pragma once

// Diagnostics
#include <vtcore/core/diagnostics/VTTrace.h>
#include <vtcore/core/diagnostics/alert.h>
#include <vtcore/core/diagnostics/exception.h>
#include <vtcore/core/diagnostics/log.h>
#include <vtcore/core/diagnostics/log_sink.h>
#include <vtcore/core/diagnostics/mem.h>

// Text and data

// Memory and objects
#include <vtcore/core/memory/leak_guard.h>
#include <vtcore/core/memory/malloc_zone.h>
#include <vtcore/core/memory/memory_reserve.h>
#include <vtcore/core/memory/user_defaults.h>

// Music

// System
