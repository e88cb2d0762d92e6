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
#include <vtcore/core/text/byte_swap.h>
#include <vtcore/core/text/crc.h>
#include <vtcore/core/text/data_compression.h>
#include <vtcore/core/text/data_dispatch.h>
#include <vtcore/core/text/sample_convert.h>
#include <vtcore/core/text/string_extension.h>
#include <vtcore/core/text/utf8.h>

// Memory and objects
#include <vtcore/core/memory/add_remove_iterate_list.h>
#include <vtcore/core/memory/flyweight.h>
#include <vtcore/core/memory/leak_guard.h>
#include <vtcore/core/memory/low_memory_notification_center.h>
#include <vtcore/core/memory/malloc_zone.h>
#include <vtcore/core/memory/memory_reserve.h>
#include <vtcore/core/memory/notification_center.h>
#include <vtcore/core/memory/object.h>
#include <vtcore/core/memory/singleton.h>
#include <vtcore/core/memory/user_defaults.h>

// Music
#include <vtcore/music/channel_layouts.h>
#include <vtcore/music/deviation.h>
#include <vtcore/music/key_code_converter.h>
#include <vtcore/music/midi_formatter.h>
#include <vtcore/music/musical_context.h>
#include <vtcore/music/time_marker.h>
#include <vtcore/music/transients.h>

// System

#include <vtcore/system/appinfo.h>
#include <vtcore/system/dot_api.h>