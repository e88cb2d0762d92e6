// Internal to the core library: marks the code that runs inside allocator
// hooks, so that call-chain recording can skip the hook frames themselves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#if !defined(VTCORE_NO_MALLOC_INTERPOSE)
// The C library's own allocator, under the names it exports for exactly this
// purpose: a program that replaces malloc can still reach the original.
extern "C" {
void* __libc_malloc(std::size_t size) noexcept;
void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
void* __libc_valloc(std::size_t size) noexcept;
void* __libc_realloc(void* block, std::size_t size) noexcept;
void __libc_free(void* block) noexcept;
}
/// The C library's entry point `name` (malloc, calloc, ...), bypassing the
/// zone; the ordinary function when a sanitizer provides the allocator.
#define VTCORE_SYSTEM(name) __libc_##name
#else
#define VTCORE_SYSTEM(name) ::name
#endif

/// Places a function in the section of allocator-hook code.
#define VTCORE_HOOK_CODE __attribute__((section("vtcore_hooks")))

/// Builds one function without a frame pointer (GCC; other compilers keep
/// it). Only for hook code that never records a call chain itself.
#if defined(__GNUC__) && !defined(__clang__)
#define VTCORE_NO_FRAME_POINTER __attribute__((optimize("omit-frame-pointer")))
#else
#define VTCORE_NO_FRAME_POINTER
#endif

namespace vtcore::detail {

/// Whether `address` lies in code marked VTCORE_HOOK_CODE.
bool isHookCode(std::uintptr_t address);

} // namespace vtcore::detail

// The memory reserve's malloc and free hooks under hidden names, so that
// the zone can recognise them in its table.
extern "C" {
struct KWMallocZone;
void* vtcoreReserveMallocHook(KWMallocZone* zone, std::size_t size) noexcept
    __attribute__((visibility("hidden")));
void vtcoreReserveFreeHook(KWMallocZone* zone, void* block) noexcept
    __attribute__((visibility("hidden")));

/// Whether the reserve's malloc and free hooks, as installed now, would do no
/// more than call the C library: monitoring is off and the entries they saved
/// are the zone's own. The malloc family then calls glibc itself and hands
/// only failed allocations to vtcoreReserveMallocFailed.
bool vtcoreReservePassesThrough() noexcept __attribute__((visibility("hidden")));

/// The malloc hook's handling of a failed allocation: the release step, then
/// the one retry through the saved entry.
void* vtcoreReserveMallocFailed(std::size_t size) noexcept __attribute__((visibility("hidden")));
}

namespace vtcore::detail {
/// Recomputes how the malloc family dispatches, after a change of state that
/// vtcoreReservePassesThrough reads. Never allocates.
void refreshMallocDispatch() noexcept __attribute__((visibility("hidden")));
} // namespace vtcore::detail

// The default zone's own entries (calling the C library), under hidden names
// so that hooks can recognise a saved entry that is just the C library and
// call it directly.
extern "C" {
void* vtcoreSystemMalloc(KWMallocZone* zone, std::size_t size) noexcept
    __attribute__((visibility("hidden")));
void vtcoreSystemFree(KWMallocZone* zone, void* block) noexcept
    __attribute__((visibility("hidden")));
}
