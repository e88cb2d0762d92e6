// Internal to the leak guard: reading the calling thread's call chain from
// inside an allocator hook.
#pragma once

#include <cstdint>

namespace vtcore::detail {

/// The calling thread's stack, [low, high).
struct StackBounds {
  std::uintptr_t low;
  std::uintptr_t high;
};

/// The calling thread's stack, found once per thread and cached. Never
/// allocates through the hooks (its helpers run under a reentrancy guard).
StackBounds threadStackBounds();

/// Up to 16 return addresses of a call chain, innermost first (null after
/// the last when fewer), and whether the chain passes through a root.
struct CallChain {
  void* addresses[16];
  int recorded = 0;
  bool matched = false;

  void record(std::uintptr_t address);
};

/// Reads the calling thread's call chain and whether it passes through one
/// of `roots` (a non-null array of ScopeRoots). Walks the frame-pointer
/// chain; where that gives out before the outermost frame, or the chain
/// passes through a root, the unwinder reads the chain from the unwind
/// tables instead, skipping the hooks' own frames.
CallChain walkCallChain(void* const* roots);

} // namespace vtcore::detail
