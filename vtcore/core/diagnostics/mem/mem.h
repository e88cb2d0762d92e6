// The guarded allocation module: malloc and friends with one process-wide
// policy for failed allocations and a count of live blocks.
#pragma once

#include <vtcore/export.h>

#include <stddef.h>

VTCORE_EXTERN_C_BEGIN

/// What a failed allocation does (Mem_SetException).
enum {
  MemFailReportAndExit = 0, ///< write "Fatal error: out of memory\n" to stderr, exit(1)
  MemFailExit = 1,          ///< exit(1) silently
  MemFailReturnNull = 2,    ///< return null (the initial mode)
  MemFailAskHandler = 3,    ///< call the handler; its result is dispatched as a mode
  MemFailRetry = 4          ///< try the same allocation again
};
/// Any other mode, set directly or returned by the handler, makes the failing
/// call spin for ever: no range check is made, by long-standing contract.

/// A failure handler: returns the mode to apply to this failure.
typedef int (*MemFailureHandler)(void);

/// Sets the live-block count to 0 the first time; later calls change nothing.
/// Returns 1. The module works without it.
VTCORE_EXPORT int Mem_InitModule(void);
/// Marks the module uninitialised; frees nothing, keeps the count.
VTCORE_EXPORT void Mem_TermModule(void);
/// Sets the failure mode; keeps `handler` only when `mode` is
/// MemFailAskHandler. Returns 0. Asking with no handler returns null.
VTCORE_EXPORT int Mem_SetException(int mode, MemFailureHandler handler);

/// Null for size 0 (nothing allocated or counted).
VTCORE_EXPORT void* Mem_malloc(size_t size);
/// Null when count × size, wrapping in size_t, is 0; otherwise zeroed memory.
VTCORE_EXPORT void* Mem_calloc(size_t count, size_t size);
/// (null, 0) → null; (null, n) → Mem_malloc(n); (p, 0) → frees p, returns
/// null; otherwise realloc (p stays valid when null is returned).
VTCORE_EXPORT void* Mem_realloc(void* pointer, size_t size);
/// A copy of `text`; null for a null text.
VTCORE_EXPORT char* Mem_strdup(const char* text);
/// Frees `pointer` and counts it; null is ignored.
VTCORE_EXPORT void Mem_free(void* pointer);

/// The live-block count (+1 per block obtained, -1 per block freed). It is
/// not synchronised: under concurrent use it can drift.
VTCORE_EXPORT int Mem_LiveBlockCount(void);

VTCORE_EXTERN_C_END
