#include <vtcore/core/memory/add_remove_iterate_list.h>

// The use count only tells the destructor when the list is idle and locks
// later calls out; it orders nothing else. It is changed by an atomic add: a
// lost increment or decrement between two threads would lock the list out
// for good (a negative count) or make the destructor wait forever. The
// decrement publishes the operation's work to the destructor, which acquires
// it when it takes the count from 0 to -1.

bool CAddRemoveIterateList::enter() {
  if (m_iUseCount.load(std::memory_order_relaxed) < 0)
    return false;
  m_iUseCount.fetch_add(1, std::memory_order_relaxed);
  return true;
}

void CAddRemoveIterateList::leave() {
  m_iUseCount.fetch_sub(1, std::memory_order_release);
}

void CAddRemoveIterateList::push(void* object, Function function) {
  auto* entry = new SEntry{nullptr, object, function};
  SEntry* top = m_pPending.load(std::memory_order_relaxed);
  do {
    entry->next = top;
  } while (!m_pPending.compare_exchange_weak(top, entry, std::memory_order_seq_cst,
                                             std::memory_order_relaxed));
}

void CAddRemoveIterateList::Add(void* object, Function function) {
  if (!enter())
    return;
  if (object && function)
    push(object, function);
  leave();
}

void CAddRemoveIterateList::Remove(void* object) {
  if (!enter())
    return;
  if (object)
    push(object, &RemoveMark);
  leave();
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
  if (!enter())
    return;
  SEntry* taken = m_pPending.load(std::memory_order_relaxed);
  while (taken && !m_pPending.compare_exchange_weak(taken, nullptr, std::memory_order_seq_cst,
                                                    std::memory_order_relaxed)) {
  }
  if (taken)
    Modify(taken);
  for (SEntry* entry = m_pHead; entry;) {
    entry->function(entry->object, message, argument);
    // Read after the call: only this thread changes the list, and the call
    // may have queued requests but not applied them.
    entry = entry->next;
  }
  leave();
}

CAddRemoveIterateList::~CAddRemoveIterateList() {
  std::int32_t idle = 0;
  while (!m_iUseCount.compare_exchange_weak(idle, -1, std::memory_order_acq_rel,
                                            std::memory_order_relaxed))
    idle = 0;
  for (SEntry* chain : {m_pPending.exchange(nullptr, std::memory_order_acquire), m_pHead}) {
    while (chain) {
      SEntry* next = chain->next;
      delete chain;
      chain = next;
    }
  }
  m_pHead = m_pTail = nullptr;
}
