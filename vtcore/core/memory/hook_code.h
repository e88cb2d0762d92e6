// Internal to the core library: marks the code that runs inside allocator
// hooks, so that call-chain recording can skip the hook frames themselves.
#pragma once

#include <cstdint>

/// Places a function in the section of allocator-hook code.
#define VTCORE_HOOK_CODE __attribute__((section("vtcore_hooks"), noinline))

namespace vtcore::detail {

/// Whether `address` lies in code marked VTCORE_HOOK_CODE.
bool isHookCode(std::uintptr_t address);

} // namespace vtcore::detail
