#include <vtcore/core/diagnostics/mem/mem.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

// Plain process-wide state by contract; relaxed atomics keep concurrent use
// free of undefined behaviour without adding any ordering.
std::atomic<int> gMode{MemFailReturnNull};
std::atomic<MemFailureHandler> gHandler{nullptr};
std::atomic<int> gLiveBlocks{0};
std::atomic<bool> gInitialised{false};

void adjustCount(int delta) {
  // A load and a store, not an atomic add: the count may drift under
  // concurrent use, as documented, but never tears.
  gLiveBlocks.store(gLiveBlocks.load(std::memory_order_relaxed) + delta, std::memory_order_relaxed);
}

// Runs `attempt` until it gives a block or the failure policy says stop.
template <typename Attempt>
void* allocateWithPolicy(Attempt attempt) {
  for (;;) {
    if (void* block = attempt())
      return block;
    int action = gMode.load(std::memory_order_relaxed);
    for (;;) {
      if (action == MemFailAskHandler) {
        MemFailureHandler handler = gHandler.load(std::memory_order_relaxed);
        action = handler ? handler() : MemFailReturnNull; // documented: no handler, null
        continue;
      }
      break;
    }
    switch (action) {
    case MemFailReportAndExit: {
      static const char kMessage[] = "Fatal error: out of memory\n";
      ssize_t ignored = write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
      (void)ignored;
      std::exit(1);
    }
    case MemFailExit:
      std::exit(1);
    case MemFailReturnNull:
      return nullptr;
    case MemFailRetry:
      continue;
    default:
      // An unknown action spins for ever, by long-standing contract.
      for (;;)
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
  }
}

} // namespace

extern "C" {

int Mem_InitModule(void) {
  if (!gInitialised.load(std::memory_order_relaxed)) {
    gLiveBlocks.store(0, std::memory_order_relaxed);
    gInitialised.store(true, std::memory_order_relaxed);
  }
  return 1;
}

void Mem_TermModule(void) {
  gInitialised.store(false, std::memory_order_relaxed);
}

int Mem_SetException(int mode, MemFailureHandler handler) {
  gMode.store(mode, std::memory_order_relaxed);
  gHandler.store(mode == MemFailAskHandler ? handler : nullptr, std::memory_order_relaxed);
  return 0;
}

void* Mem_malloc(size_t size) {
  if (size == 0)
    return nullptr;
  void* block = allocateWithPolicy([size] { return std::malloc(size); });
  if (block)
    adjustCount(+1);
  return block;
}

void* Mem_calloc(size_t count, size_t size) {
  if (count * size == 0) // wraps in size_t by contract
    return nullptr;
  void* block = allocateWithPolicy([count, size] { return std::calloc(count, size); });
  if (block)
    adjustCount(+1);
  return block;
}

void* Mem_realloc(void* pointer, size_t size) {
  if (!pointer)
    return size == 0 ? nullptr : Mem_malloc(size);
  if (size == 0) {
    Mem_free(pointer);
    return nullptr;
  }
  return allocateWithPolicy([pointer, size] { return std::realloc(pointer, size); });
}

char* Mem_strdup(const char* text) {
  if (!text)
    return nullptr;
  const size_t length = std::strlen(text);
  if (length == SIZE_MAX)
    return nullptr;
  void* copy = allocateWithPolicy([length] { return std::malloc(length + 1); });
  if (!copy)
    return nullptr;
  adjustCount(+1);
  std::memcpy(copy, text, length + 1);
  return static_cast<char*>(copy);
}

void Mem_free(void* pointer) {
  if (!pointer)
    return;
  adjustCount(-1);
  std::free(pointer);
}

int Mem_LiveBlockCount(void) {
  return gLiveBlocks.load(std::memory_order_relaxed);
}

} // extern "C"
