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

// The default zone's own entries (calling the C library), under hidden names
// so that hooks can recognise a saved entry that is just the C library and
// call it directly.
extern "C" {
struct KWMallocZone;
void* vtcoreSystemMalloc(KWMallocZone* zone, std::size_t size) noexcept
    __attribute__((visibility("hidden")));
void vtcoreSystemFree(KWMallocZone* zone, void* block) noexcept
    __attribute__((visibility("hidden")));
}
