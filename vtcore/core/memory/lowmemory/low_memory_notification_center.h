// Low-memory notifications: check points that ask whether memory can still be
// had, observers asked level by level to give memory back when it cannot, and
// a small reserve block that critical operations may use up.
#pragma once

#include <vtcore/export.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <pthread.h>
#include <unicode/unistr.h>

/// A static class (no instances). Set it up once with
/// InitializeLMNotificationCenter(); it reads two preferences of the
/// current application from vtcore::UserDefaults::standard():
/// "LowMemoryReserve" (bytes of the reserve block; absent or 0: the centre
/// stays off) and "MinAvailMemoryThreshold" (the smallest size a check point
/// probes; 104857600 when absent). While the centre is off every operation
/// but CheckMemory() answers true, except Add/RemoveLMObserver (false).
///
/// Observers are called on the thread that detects the shortage, in order of
/// registration, with the level (0, 1, 2, or 10 for a critical operation
/// about to fail) and the size the centre needs. One lock, held for the
/// whole escalation, guards the observers. It is not recursive: an observer
/// must not call AddLMObserver, RemoveLMObserver, PostLMNotification or
/// CheckPoint on its own thread. Such a call does not deadlock: the lock
/// reports the re-entry and the call answers false (CheckPoint then goes on
/// as when the lock cannot be had, see there). Observers on other threads
/// wait for the escalation to end. The same holds for observers of
/// kLowMemoryNotification in vtcore::NotificationCenter, which are called
/// under the same lock.
///
/// EnterCriticalOperation, LeaveCriticalOperation and the reserve release
/// take no lock and may be called on any thread. No messages are written.
///
/// On Linux an allocation of untouched pages succeeds almost whatever is
/// left, so a size counts as available only when it can be allocated and
/// also fits what the system can really give (vtcore::readAvailableMemory:
/// MemAvailable, the memory cgroup's limit, RLIMIT_AS and RLIMIT_DATA). The
/// reserve block is committed: its pages are written once when it is taken,
/// so it costs "LowMemoryReserve" bytes of resident memory while held, and
/// giving it back frees real memory.
class VTCORE_EXPORT LowMemoryNotificationCenter {
public:
  /// An observer: called with its context, the level and the size needed;
  /// returns the number of bytes it released. The answer matters only at
  /// level 10, where any non-zero answer marks the critical operation as
  /// failed (see LeaveCriticalOperation).
  using ObserverFunction = unsigned long (*)(void* context, unsigned char level,
                                             unsigned long size);

  /// An observer with its context; equal when both are equal.
  struct Observer {
    ObserverFunction function; ///< called at each level of an escalation
    void* context;             ///< passed to `function` as it is
    /// Same function and same context.
    friend bool operator==(const Observer&, const Observer&) = default;
  };

  /// "kLowMemoryNotification": posted to vtcore::NotificationCenter's default
  /// centre, with no object, at every level of every escalation.
  static const icu::UnicodeString kLowMemoryNotification;

  LowMemoryNotificationCenter() = delete;

  /// Sets the centre up from the preferences and allocates the reserve
  /// block. True when on (also when already on); false when a preference
  /// gives 0 (the default for "LowMemoryReserve") or the reserve block or the
  /// lock cannot be made (a block larger than the system can really give
  /// cannot).
  static bool InitializeLMNotificationCenter();
  /// Whether the centre is on (initialised and not shut down).
  static bool IsLMNotificationCenterInitialized();
  /// Frees the reserve block and switches the centre off. Keeps the
  /// observers, the critical-operation count and the critical-failure mark
  /// for a later initialisation. Does nothing when off.
  static void ShutdownLMNotificationCenter();

  /// Whether `size` bytes can be had now: they fit what the system can
  /// really give (see above) and can be allocated (allocates and frees them).
  /// Works whether the centre is on or off; calls no observer.
  static bool CheckMemory(unsigned long size);

  /// Begins a critical operation (the count is kept also when off). Returns
  /// true when off, else whether the reserve block is held.
  static bool EnterCriticalOperation();
  /// Ends a critical operation. When on, takes a new reserve block if the
  /// old one was given up; returns false when that fails, or when an
  /// observer ever answered non-zero at level 10 (for the rest of the
  /// process). True when off.
  static bool LeaveCriticalOperation();

  /// Asks the observers for memory, level by level from `fromLevel` to
  /// `toLevel`, for max(`size`, minimum probe size) bytes. Without
  /// `notifyAll`, the escalation stops as soon as that size can be
  /// allocated after an observer, and the answer is true whatever happened.
  /// With `notifyAll`, every observer is called at every level and the answer
  /// is false. The answer is no sign that memory is now available. Inverted
  /// levels post nothing and answer !notifyAll. True when off; false when
  /// the lock cannot be had (also from inside an observer).
  static bool PostLMNotification(int fromLevel, int toLevel, unsigned long size, bool notifyAll);

  /// The application's check before a memory-hungry step: true when
  /// max(`size`, minimum probe size) bytes can be allocated, or after
  /// escalating through levels 0 to 2 (which answers true). Only when the
  /// escalation cannot take the lock does a critical operation in progress
  /// get the reserve block, and level 10 is posted if that is not enough.
  /// True when off.
  static bool CheckPoint(unsigned long size);

  /// Registers an observer. False when off, for a null function, or when
  /// the same function with the same context is already registered.
  static bool AddLMObserver(ObserverFunction function, void* context);
  /// Unregisters an observer, keeping the order of the others. False when
  /// off or when it was not registered.
  static bool RemoveLMObserver(ObserverFunction function, void* context);

private:
  static bool lock();
  static void unlock();

  static std::atomic<bool> s_bInitialized;
  static std::atomic<unsigned long> s_ulReserveSize;
  static std::atomic<unsigned long> s_ulMinAvailMemoryThreshold;
  static std::atomic<void*> s_ptrReserve;
  static std::atomic<std::int32_t> s_iCriticalOperationCount;
  static std::atomic<bool> s_bCriticalFailure;
  static std::deque<Observer> s_observers;
  static pthread_mutex_t s_lock;
};
