// The leak guard's call chains: the frame-pointer walker and the unwinder
// that takes over where frame pointers give out.
#include <vtcore/core/memory/allocation/detail/call_chain.h>
#include <vtcore/core/memory/allocation/detail/hook_code.h>
#include <vtcore/core/memory/allocation/detail/scope_roots.h>
#include <vtcore/core/memory/allocation/malloc_zone.h>

#include <cstddef>
#include <pthread.h>
#include <unwind.h>

namespace vtcore::detail {

namespace {

constexpr int kMaxDepth = 1024;
// A return address of 0x1000 marks the outermost frame of some start-up code.
constexpr std::uintptr_t kRootReturnAddress = 0x1000;

// Initial-exec TLS so that reading it from a hook never allocates.
__thread StackBounds cachedBounds __attribute__((tls_model("initial-exec"))) = {0, 0};

struct UnwindWalk {
  void* const* roots;
  CallChain* chain;
  bool skipping;
};

VTCORE_HOOK_CODE _Unwind_Reason_Code unwindStep(struct _Unwind_Context* context, void* argument) {
  auto& walk = *static_cast<UnwindWalk*>(argument);
  const std::uintptr_t ip = _Unwind_GetIP(context);
  if (ip == 0)
    return _URC_END_OF_STACK;
  if (walk.skipping && isHookCode(ip))
    return _URC_NO_REASON;
  walk.skipping = false;
  walk.chain->record(ip);
  // A function that keeps a frame pointer has it 16 bytes below its
  // canonical frame address (return address and saved link).
  const std::uintptr_t cfa = _Unwind_GetCFA(context);
  if (!walk.chain->matched && cfa >= 16 && isRoot(walk.roots, cfa - 16))
    walk.chain->matched = true;
  if (walk.chain->matched && walk.chain->recorded >= 16)
    return _URC_END_OF_STACK;
  return _URC_NO_REASON;
}

} // namespace

VTCORE_HOOK_CODE StackBounds threadStackBounds() {
  if (cachedBounds.high != 0)
    return cachedBounds;
  // pthread_getattr_np allocates (and reads /proc for the main thread): its
  // allocations must pass the hooks untouched.
  HookReentrancyGuard guard;
  StackBounds bounds{reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)), UINTPTR_MAX};
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
    void* address = nullptr;
    std::size_t size = 0;
    if (pthread_attr_getstack(&attributes, &address, &size) == 0 && size != 0)
      bounds = {reinterpret_cast<std::uintptr_t>(address),
                reinterpret_cast<std::uintptr_t>(address) + size};
    pthread_attr_destroy(&attributes);
  }
  cachedBounds = bounds;
  return bounds;
}

VTCORE_HOOK_CODE void CallChain::record(std::uintptr_t address) {
  if (recorded < 16)
    addresses[recorded++] = reinterpret_cast<void*>(address);
  if (recorded < 16)
    addresses[recorded] = nullptr;
}

// The frame-pointer chain is fast; where it gives out before reaching the
// outermost frame (code built without frame pointers uses the register for
// other things), the unwinder, which reads the unwind tables, takes over so
// that allocations inside a scope are not missed.
VTCORE_HOOK_CODE CallChain walkCallChain(void* const* roots) {
  CallChain chain;
  chain.addresses[0] = nullptr;
  const StackBounds bounds = threadStackBounds();
  auto frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  bool complete = false;
  for (int depth = 0; depth < kMaxDepth; ++depth) {
    if (frame < bounds.low || frame > bounds.high - 16 || (frame & 7) != 0)
      break;
    const auto* words = reinterpret_cast<const std::uintptr_t*>(frame);
    const std::uintptr_t next = words[0];
    const std::uintptr_t returnAddress = words[1];
    if (returnAddress == kRootReturnAddress || returnAddress == 0) {
      complete = true;
      break;
    }
    if (isRoot(roots, next)) {
      chain.matched = true;
      break;
    }
    if (next == 0) {
      complete = true;
      break;
    }
    if (next <= frame)
      break;
    frame = next;
  }
  if (!chain.matched && complete)
    return chain;

  // The unwinder reads the unwind tables, so it also sees the callers of
  // functions without a frame record (operator new, strdup): it records the
  // call chain of every tracked block, and decides whether the block is
  // tracked where the frame-pointer chain could not. It may allocate on
  // first use; keep that out of the records.
  HookReentrancyGuard guard;
  CallChain unwound;
  unwound.addresses[0] = nullptr;
  unwound.matched = chain.matched;
  UnwindWalk walk{roots, &unwound, true};
  _Unwind_Backtrace(unwindStep, &walk);
  return unwound;
}

} // namespace vtcore::detail
