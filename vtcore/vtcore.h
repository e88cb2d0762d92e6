// VTCore core library: every public declaration of libvtcore.
#pragma once

#include <vtcore/version.h>

// Diagnostics
#include <vtcore/core/diagnostics/exception/exception.h>
#include <vtcore/core/diagnostics/exception/exception_report.h>
#include <vtcore/core/diagnostics/log/log.h>
#include <vtcore/core/diagnostics/mem/mem.h>
#include <vtcore/core/diagnostics/trace/VTTrace.h>
#include <vtcore/core/platform/alert.h>
#include <vtcore/core/platform/log_sink.h>

// Text and data
#include <vtcore/core/text/checksum/crc.h>
#include <vtcore/core/text/checksum/data_compression.h>
#include <vtcore/core/text/dispatch/data_dispatch.h>
#include <vtcore/core/text/swap/byte_swap.h>
#include <vtcore/core/text/swap/sample_convert.h>
#include <vtcore/core/text/utf8/utf8.h>
#include <vtcore/core/text/web/string_extension.h>

// Memory and objects
#include <vtcore/core/memory/allocation/leak_guard.h>
#include <vtcore/core/memory/allocation/malloc_zone.h>
#include <vtcore/core/memory/allocation/memory_reserve.h>
#include <vtcore/core/memory/callbacks/add_remove_iterate_list.h>
#include <vtcore/core/memory/lowmemory/low_memory_notification_center.h>
#include <vtcore/core/memory/objects/flyweight.h>
#include <vtcore/core/memory/objects/object.h>
#include <vtcore/core/memory/objects/singleton.h>
#include <vtcore/core/platform/available_memory.h>
#include <vtcore/core/platform/notification_center.h>
#include <vtcore/core/platform/user_defaults.h>

// Music
#include <vtcore/music/keys/key_code_converter.h>
#include <vtcore/music/layouts/channel_layouts.h>
#include <vtcore/music/midi/midi_formatter.h>
#include <vtcore/music/midi/musical_context.h>
#include <vtcore/music/midi/time_marker.h>
#include <vtcore/music/transients/deviation.h>
#include <vtcore/music/transients/transients.h>

// System

#include <vtcore/core/platform/appinfo.h>
#include <vtcore/system/dispatch/dot_api.h>