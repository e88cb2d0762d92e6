#include <vtcore/core/memory/callbacks/add_remove_iterate_list.h>

#include <new>

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

namespace {

// Free functions rather than members: members of the exported class would be
// called through the PLT, which a pass over a few callbacks notices.
bool enter(std::atomic<std::int32_t>& useCount) {
  if (useCount.load(std::memory_order_relaxed) < 0)
    return false;
  useCount.fetch_add(1, std::memory_order_relaxed);
  return true;
}

void leave(std::atomic<std::int32_t>& useCount) {
  useCount.fetch_sub(1, std::memory_order_release);
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
  return changed;
}

void CAddRemoveIterateList::Iterate(unsigned message, void* argument) {
  struct Leave {
    std::atomic<std::int32_t>& iterating;
    ~Leave() {
      iterating.store(iterating.load(std::memory_order_relaxed) - 1, std::memory_order_release);
    }
  };
  m_iIterating.store(m_iIterating.load(std::memory_order_relaxed) + 1, std::memory_order_seq_cst);
  Leave leaveOnExit{m_iIterating}; // also when a callback throws
  if (m_iUseCount.load(std::memory_order_seq_cst) < 0)
    return;

  SEntry* taken = m_pPending.load(std::memory_order_relaxed);
  while (taken && !m_pPending.compare_exchange_weak(taken, nullptr, std::memory_order_seq_cst,
                                                    std::memory_order_relaxed)) {
  }
  if (taken && Modify(taken))
    m_bCallbacksCurrent = false;

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
  std::int32_t idle = 0;
  while (!m_iUseCount.compare_exchange_weak(idle, -1, std::memory_order_seq_cst,
                                            std::memory_order_relaxed))
    idle = 0;
  while (m_iIterating.load(std::memory_order_seq_cst) != 0) {
  }
  for (SEntry* chain : {m_pPending.exchange(nullptr, std::memory_order_acquire), m_pHead}) {
    while (chain) {
      SEntry* next = chain->next;
      delete chain;
      chain = next;
    }
  }
  m_pHead = m_pTail = nullptr;
}
