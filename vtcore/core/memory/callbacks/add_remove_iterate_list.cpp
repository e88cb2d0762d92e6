#include <vtcore/core/memory/callbacks/add_remove_iterate_list.h>

#include <climits>
#include <linux/futex.h>
#include <new>
#include <sys/syscall.h>
#include <unistd.h>

// The use count only tells the destructor when the list is idle and locks
// later calls out; it orders nothing else. Add and Remove change it by an
// atomic add: a lost increment or decrement between two threads would lock
// the list out for good (a negative count) or make the destructor wait
// forever. The decrement publishes the operation's work to the destructor,
// which acquires it when it takes the count from 0 to -1.
//
// Iterate, which one thread runs at a time, counts itself in m_iIterating
// instead: it announces itself and then looks at the use count, while the
// destructor locks the use count and then looks at m_iIterating. Both in
// sequentially consistent order, so at least one of them sees the other: the
// iteration returns at once, or the destructor waits for it.
//
// The destructor sleeps while it waits (a list may be destroyed while an
// audio thread runs a long pass). It sets kDestructorWaits in the counter it
// waits on, by an atomic or; whoever takes the counter down then sees the bit
// in the value its own atomic subtraction returns, and wakes it. Both are
// read-modify-writes of the one word, so no wake-up is lost, and the waker
// touches nothing of the list after its subtraction: the destructor may have
// finished by then, and a futex wake needs only the address.

namespace {

constexpr std::int32_t kDestructorWaits = 0x40000000;

static_assert(sizeof(std::atomic<std::int32_t>) == sizeof(std::int32_t) &&
              std::atomic<std::int32_t>::is_always_lock_free);

// Sleeps while `counter` still holds `expected` (returns at once when it no
// longer does, and now and then for no reason: callers look again).
void sleepWhile(std::atomic<std::int32_t>& counter, std::int32_t expected) {
  syscall(SYS_futex, reinterpret_cast<std::int32_t*>(&counter), FUTEX_WAIT_PRIVATE, expected,
          nullptr, nullptr, 0);
}

// Wakes the destructor sleeping on the counter at `address`. Takes only the
// address, which the kernel never dereferences for a wake.
void wakeDestructor(const void* address) {
  syscall(SYS_futex, address, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

// Takes one off `counter`, waking a destructor that waits for it.
void countDown(std::atomic<std::int32_t>& counter, std::memory_order order) {
  const void* address = &counter;
  if (counter.fetch_sub(1, order) & kDestructorWaits)
    wakeDestructor(address);
}

// Free functions rather than members: members of the exported class would be
// called through the PLT, which a pass over a few callbacks notices.
bool enter(std::atomic<std::int32_t>& useCount) {
  if (useCount.load(std::memory_order_relaxed) < 0)
    return false;
  useCount.fetch_add(1, std::memory_order_relaxed);
  return true;
}

void leave(std::atomic<std::int32_t>& useCount) {
  countDown(useCount, std::memory_order_release);
}

void walk(CAddRemoveIterateList::SEntry* entry, unsigned message, void* argument) {
  while (entry) {
    entry->function(entry->object, message, argument);
    // Read after the call: only the iterating thread changes the list, and
    // the call may have queued requests but not applied them.
    entry = entry->next;
  }
}

} // namespace

void CAddRemoveIterateList::push(void* object, Function function) {
  auto* entry = new SEntry{nullptr, object, function};
  SEntry* top = m_pPending.load(std::memory_order_relaxed);
  do {
    entry->next = top;
  } while (!m_pPending.compare_exchange_weak(top, entry, std::memory_order_seq_cst,
                                             std::memory_order_relaxed));
}

void CAddRemoveIterateList::Add(void* object, Function function) {
  if (!enter(m_iUseCount))
    return;
  if (object && function)
    push(object, function);
  leave(m_iUseCount);
}

void CAddRemoveIterateList::Remove(void* object) {
  if (!enter(m_iUseCount))
    return;
  if (object)
    push(object, &RemoveMark);
  leave(m_iUseCount);
}

void CAddRemoveIterateList::RemoveMark(void*, unsigned, void*) {}

bool CAddRemoveIterateList::Modify(SEntry* chain) {
  // The chain is newest first; reverse it so requests apply in the order they
  // were made (iteratively, so a long queue cannot exhaust the stack).
  SEntry* oldest = nullptr;
  while (chain) {
    SEntry* next = chain->next;
    chain->next = oldest;
    oldest = chain;
    chain = next;
  }

  bool changed = false;
  while (oldest) {
    SEntry* request = oldest;
    oldest = oldest->next;
    request->next = nullptr;

    if (request->function != &RemoveMark) {
      if (m_pTail)
        m_pTail->next = request;
      else
        m_pHead = request;
      m_pTail = request;
      changed = true;
      continue;
    }

    void* const object = request->object;
    delete request;
    while (m_pHead && m_pHead->object == object) {
      SEntry* gone = m_pHead;
      m_pHead = gone->next;
      delete gone;
      changed = true;
    }
    if (!m_pHead)
      m_pTail = nullptr;
    for (SEntry* previous = m_pHead; previous && previous->next;) {
      SEntry* current = previous->next;
      if (current->object != object) {
        previous = current;
        continue;
      }
      previous->next = current->next;
      if (current == m_pTail)
        m_pTail = previous;
      delete current;
      changed = true;
      // Deliberately steps onto the entry after the removed one without
      // comparing it: of two adjacent matches only the first goes.
      previous = previous->next;
    }
  }
  // Iterate walks a copy of the active list; a change made here, whoever
  // called, must reach the next pass.
  if (changed)
    m_bCallbacksCurrent = false;
  return changed;
}

void CAddRemoveIterateList::Iterate(unsigned message, void* argument) {
  struct Leave {
    std::atomic<std::int32_t>& iterating;
    ~Leave() { countDown(iterating, std::memory_order_release); }
  };
  // Read-modify-writes, not plain stores, so that the destructor's waiting
  // bit is never written over.
  m_iIterating.fetch_add(1, std::memory_order_seq_cst);
  Leave leaveOnExit{m_iIterating}; // also when a callback throws
  if (m_iUseCount.load(std::memory_order_seq_cst) < 0)
    return;

  SEntry* taken = m_pPending.load(std::memory_order_relaxed);
  while (taken && !m_pPending.compare_exchange_weak(taken, nullptr, std::memory_order_seq_cst,
                                                    std::memory_order_relaxed)) {
  }
  if (taken)
    Modify(taken);

  // A callback that iterates the same list again (on this thread) walks the
  // list itself: the outer pass's array must not move under it.
  if (m_iIterationDepth > 0) {
    walk(m_pHead, message, argument);
    return;
  }
  if (!m_bCallbacksCurrent) {
    try {
      m_callbacks.clear();
      for (SEntry* entry = m_pHead; entry; entry = entry->next)
        m_callbacks.push_back({entry->object, entry->function});
      m_bCallbacksCurrent = true;
    } catch (const std::bad_alloc&) {
      m_callbacks.clear(); // no memory for the copy: walk the list this time
      walk(m_pHead, message, argument);
      return;
    }
  }
  struct Depth {
    int& depth;
    ~Depth() { --depth; }
  } depthOnExit{++m_iIterationDepth};
  // Same calls in the same order as walking the list: between two Modify
  // calls the active list does not change.
  for (const Callback& callback : m_callbacks)
    callback.function(callback.object, message, argument);
}

CAddRemoveIterateList::~CAddRemoveIterateList() {
  // Wait for the list to be idle, then lock every later call out.
  std::int32_t seen = m_iUseCount.fetch_or(kDestructorWaits, std::memory_order_seq_cst);
  for (;;) {
    seen |= kDestructorWaits;
    if (seen == kDestructorWaits) {
      if (m_iUseCount.compare_exchange_strong(seen, -1, std::memory_order_seq_cst,
                                              std::memory_order_relaxed))
        break;
      continue;
    }
    sleepWhile(m_iUseCount, seen);
    seen = m_iUseCount.load(std::memory_order_seq_cst);
  }
  // Then for a pass in progress (a pass that starts now sees the lock-out).
  for (std::int32_t passes =
           m_iIterating.fetch_or(kDestructorWaits, std::memory_order_seq_cst) | kDestructorWaits;
       passes != kDestructorWaits; passes = m_iIterating.load(std::memory_order_seq_cst))
    sleepWhile(m_iIterating, passes);
  for (SEntry* chain : {m_pPending.exchange(nullptr, std::memory_order_acquire), m_pHead}) {
    while (chain) {
      SEntry* next = chain->next;
      delete chain;
      chain = next;
    }
  }
  m_pHead = m_pTail = nullptr;
}
