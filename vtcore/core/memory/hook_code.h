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

namespace vtcore::detail {

/// Whether `address` lies in code marked VTCORE_HOOK_CODE.
bool isHookCode(std::uintptr_t address);

} // namespace vtcore::detail

// The memory reserve's hooks under hidden names, so that the malloc family
// can recognise them and call them directly: an indirect jump through the
// table costs as much as the rest of the hooked path.
extern "C" {
struct KWMallocZone;
void* vtcoreReserveMallocHook(KWMallocZone* zone, std::size_t size) noexcept
    __attribute__((visibility("hidden")));
void* vtcoreReserveCallocHook(KWMallocZone* zone, std::size_t count, std::size_t size) noexcept
    __attribute__((visibility("hidden")));
void* vtcoreReserveVallocHook(KWMallocZone* zone, std::size_t size) noexcept
    __attribute__((visibility("hidden")));
void vtcoreReserveFreeHook(KWMallocZone* zone, void* block) noexcept
    __attribute__((visibility("hidden")));
}

// The default zone's own entries (calling the C library), under hidden names
// so that hooks can recognise a saved entry that is just the C library and
// call it directly.
extern "C" {
void* vtcoreSystemMalloc(KWMallocZone* zone, std::size_t size) noexcept
    __attribute__((visibility("hidden")));
void vtcoreSystemFree(KWMallocZone* zone, void* block) noexcept
    __attribute__((visibility("hidden")));
}
