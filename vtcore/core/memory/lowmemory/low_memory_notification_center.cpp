#include <vtcore/core/memory/lowmemory/low_memory_notification_center.h>
#include <vtcore/core/platform/available_memory.h>
#include <vtcore/core/platform/notification_center.h>
#include <vtcore/core/platform/user_defaults.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <optional>
#include <unistd.h>

namespace {

// The probes allocate and free at once without touching the block: called
// through volatile pointers so that the compiler cannot drop the pair and
// answer "yes" without asking the allocator.
void* (*volatile probeAllocate)(std::size_t) = std::malloc;
void (*volatile probeFree)(void*) = std::free;

constexpr unsigned long kDefaultMinAvailMemoryThreshold = 104857600; // 100 MiB

// The reserve block is committed memory: every page is written once, so
// that giving the block back returns real memory and not just address space
// Linux never backed. A block that does not fit what the system can give is
// not taken at all (touching it could wake the out-of-memory killer rather
// than fail).
void* allocateCommitted(unsigned long size) {
  if (!vtcore::availableMemoryFits(size))
    return nullptr;
  void* block = std::malloc(size);
  if (!block)
    return nullptr;
  const auto page = static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
  auto* bytes = static_cast<volatile unsigned char*>(block);
  for (unsigned long offset = 0; offset < size; offset += page)
    bytes[offset] = 0;
  return block;
}

// The integer under `key`, when the key holds a valid integer: a number, a
// boolean, or a text that is a whole decimal number.
std::optional<long long> integerPreference(const char* key) {
  auto value = vtcore::UserDefaults::standard().objectForKey(key);
  if (!value)
    return std::nullopt;
  if (value->is_number() || value->is_boolean())
    return vtcore::defaultsIntegerValue(*value);
  if (value->is_string()) {
    const std::string& text = value->get_ref<const std::string&>();
    char* end = nullptr;
    errno = 0;
    long long number = std::strtoll(text.c_str(), &end, 10);
    if (!text.empty() && end && *end == '\0' && errno == 0)
      return number;
  }
  return std::nullopt;
}

} // namespace

const icu::UnicodeString
    LowMemoryNotificationCenter::kLowMemoryNotification(u"kLowMemoryNotification");

std::atomic<bool> LowMemoryNotificationCenter::s_bInitialized{false};
std::atomic<unsigned long> LowMemoryNotificationCenter::s_ulReserveSize{0};
std::atomic<unsigned long> LowMemoryNotificationCenter::s_ulMinAvailMemoryThreshold{0};
std::atomic<void*> LowMemoryNotificationCenter::s_ptrReserve{nullptr};
std::atomic<std::int32_t> LowMemoryNotificationCenter::s_iCriticalOperationCount{0};
std::atomic<bool> LowMemoryNotificationCenter::s_bCriticalFailure{false};
std::deque<LowMemoryNotificationCenter::Observer> LowMemoryNotificationCenter::s_observers;
pthread_mutex_t LowMemoryNotificationCenter::s_lock;

bool LowMemoryNotificationCenter::lock() {
  return pthread_mutex_lock(&s_lock) == 0;
}

void LowMemoryNotificationCenter::unlock() {
  pthread_mutex_unlock(&s_lock);
}

bool LowMemoryNotificationCenter::InitializeLMNotificationCenter() {
  if (s_bInitialized.load(std::memory_order_relaxed))
    return true;
  const auto reserve =
      static_cast<unsigned long>(integerPreference("LowMemoryReserve").value_or(0));
  const auto threshold = static_cast<unsigned long>(
      integerPreference("MinAvailMemoryThreshold").value_or(kDefaultMinAvailMemoryThreshold));
  s_ulReserveSize.store(reserve, std::memory_order_relaxed);
  s_ulMinAvailMemoryThreshold.store(threshold, std::memory_order_relaxed);
  if (reserve == 0 || threshold == 0)
    return false;
  void* block = allocateCommitted(reserve);
  if (!block)
    return false;
  // A block left by an earlier attempt that failed later on is replaced.
  std::free(s_ptrReserve.exchange(block));
  s_iCriticalOperationCount.store(0);

  // An error-checking mutex: an observer that calls back into the centre on
  // its own thread gets an error (and a false answer) instead of a deadlock.
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0)
    return false;
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  const bool made = pthread_mutex_init(&s_lock, &attributes) == 0;
  pthread_mutexattr_destroy(&attributes);
  if (!made)
    return false;
  s_bInitialized.store(true, std::memory_order_relaxed);
  return true;
}

bool LowMemoryNotificationCenter::IsLMNotificationCenterInitialized() {
  return s_bInitialized.load(std::memory_order_relaxed);
}

void LowMemoryNotificationCenter::ShutdownLMNotificationCenter() {
  if (!s_bInitialized.load(std::memory_order_relaxed))
    return;
  std::free(s_ptrReserve.exchange(nullptr));
  pthread_mutex_destroy(&s_lock);
  s_bInitialized.store(false, std::memory_order_relaxed);
}

bool LowMemoryNotificationCenter::CheckMemory(unsigned long size) {
  // Linux lends address space it may never back: the size must also fit
  // what the system can really give.
  if (!vtcore::availableMemoryFits(size))
    return false;
  void* block = probeAllocate(size);
  if (!block)
    return false;
  probeFree(block);
  return true;
}

bool LowMemoryNotificationCenter::EnterCriticalOperation() {
  s_iCriticalOperationCount.fetch_add(1);
  if (!s_bInitialized.load(std::memory_order_relaxed))
    return true;
  return s_ptrReserve.load() != nullptr;
}

bool LowMemoryNotificationCenter::LeaveCriticalOperation() {
  s_iCriticalOperationCount.fetch_sub(1);
  if (!s_bInitialized.load(std::memory_order_relaxed))
    return true;
  if (!s_ptrReserve.load()) {
    if (void* block = allocateCommitted(s_ulReserveSize.load(std::memory_order_relaxed))) {
      void* expected = nullptr;
      // Another thread may have put one back first: keep one block only.
      if (!s_ptrReserve.compare_exchange_strong(expected, block))
        std::free(block);
    }
    if (!s_ptrReserve.load())
      return false;
  }
  return !s_bCriticalFailure.load(std::memory_order_relaxed);
}

bool LowMemoryNotificationCenter::PostLMNotification(int fromLevel, int toLevel, unsigned long size,
                                                     bool notifyAll) {
  if (!s_bInitialized.load(std::memory_order_relaxed))
    return true;
  const unsigned long needed =
      std::max(size, s_ulMinAvailMemoryThreshold.load(std::memory_order_relaxed));
  if (!lock())
    return false;
  struct Unlock {
    ~Unlock() { unlock(); }
  } unlockOnExit; // also when an observer throws
  if (fromLevel > toLevel)
    return !notifyAll;

  // 64-bit so that a range ending at INT_MAX still ends.
  for (long long level = fromLevel; level <= toLevel; ++level) {
    vtcore::NotificationCenter::defaultCenter().postNotification(kLowMemoryNotification);
    for (const Observer& observer : s_observers) {
      const unsigned long released =
          observer.function(observer.context, static_cast<unsigned char>(level), needed);
      if (released != 0 && level == 10)
        s_bCriticalFailure.store(true, std::memory_order_relaxed);
      if (!notifyAll && CheckMemory(needed))
        return true;
    }
  }
  // Without notifyAll the answer is true whatever happened; with it, no
  // probe is made and the answer is the "failed" probe. Callers must not
  // read either as "memory is available now".
  return !notifyAll;
}

bool LowMemoryNotificationCenter::CheckPoint(unsigned long size) {
  if (!s_bInitialized.load(std::memory_order_relaxed))
    return true;
  const unsigned long needed =
      std::max(size, s_ulMinAvailMemoryThreshold.load(std::memory_order_relaxed));
  if (CheckMemory(needed))
    return true;
  if (PostLMNotification(0, 2, needed, false))
    return true;
  // Only reached when the escalation could not take the lock.
  if (s_iCriticalOperationCount.load() < 1)
    return false;
  void* reserve = s_ptrReserve.load();
  if (reserve && s_ptrReserve.compare_exchange_strong(reserve, nullptr))
    std::free(reserve);
  if (CheckMemory(needed))
    return true;
  return PostLMNotification(10, 10, needed, false);
}

bool LowMemoryNotificationCenter::AddLMObserver(ObserverFunction function, void* context) {
  if (!s_bInitialized.load(std::memory_order_relaxed) || !function)
    return false;
  if (!lock())
    return false;
  const Observer observer{function, context};
  bool added = std::find(s_observers.begin(), s_observers.end(), observer) == s_observers.end();
  if (added) {
    try {
      s_observers.push_back(observer);
    } catch (const std::bad_alloc&) {
      added = false; // out of memory: not registered, and the lock is not left held
    }
  }
  unlock();
  return added;
}

bool LowMemoryNotificationCenter::RemoveLMObserver(ObserverFunction function, void* context) {
  if (!s_bInitialized.load(std::memory_order_relaxed))
    return false;
  if (!lock())
    return false;
  auto found = std::find(s_observers.begin(), s_observers.end(), Observer{function, context});
  const bool removed = found != s_observers.end();
  if (removed)
    s_observers.erase(found);
  unlock();
  return removed;
}
