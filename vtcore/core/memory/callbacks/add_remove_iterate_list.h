// A list of callbacks that any thread may add to or remove from at any time,
// even from inside a callback during an iteration, without taking a lock.
#pragma once

#include <vtcore/export.h>

#include <atomic>
#include <cstdint>
#include <vector>

/// Callbacks (an object pointer with a function) that any number of threads
/// may add and remove while one thread at a time iterates them.
///
/// Add() and Remove() only queue a request on a lock-free stack; the
/// iterating thread applies the queued requests, oldest first, at the start
/// of each Iterate() and is the only one that changes the list it walks. So
/// a request made from inside a callback takes effect on the next Iterate():
/// an entry removed during an iteration may still be called in that pass, an
/// entry added during it is first called in the next.
///
/// Removal keeps a long-standing quirk that callers rely on: of two adjacent
/// entries of the removed object behind the first entry of the list, only
/// the first goes. A list p, q, q, r is p, q, r after Remove(q); entries of
/// the object at the head of the list all go.
class VTCORE_EXPORT CAddRemoveIterateList {
public:
  /// A callback: called with its object and Iterate()'s message and argument.
  using Function = void (*)(void* object, unsigned message, void* argument);

  /// One entry of the list, or one queued request (a removal has the
  /// function RemoveMark).
  struct SEntry {
    SEntry* next;      ///< the next entry, null at the end
    void* object;      ///< the object the function is called on
    Function function; ///< the callback
  };

  CAddRemoveIterateList() = default;
  /// Waits until no Add, Remove or Iterate is in progress (spinning), then
  /// frees every entry and queued request. Afterwards every operation on the
  /// list returns at once. Must not run inside a callback of this list.
  ~CAddRemoveIterateList();
  CAddRemoveIterateList(const CAddRemoveIterateList&) = delete;
  CAddRemoveIterateList& operator=(const CAddRemoveIterateList&) = delete;

  /// Queues the addition of `function` on `object`. The same object may be
  /// added several times, with the same or another function; it is then
  /// called once per entry. Ignored when `object` or `function` is null.
  void Add(void* object, Function function);
  /// Queues the removal of the entries of `object` (see the class comment
  /// for which ones go). Ignored for null.
  void Remove(void* object);
  /// Applies the queued requests, then calls every entry's function with
  /// (its object, `message`, `argument`) in order of addition. One thread
  /// at a time may iterate a list.
  void Iterate(unsigned message, void* argument);

  /// Applies a chain of requests taken from the queue (newest first) to the
  /// list, oldest first, and frees the removal marks. Returns whether the
  /// list changed. Internal to Iterate().
  bool Modify(SEntry* chain);

  /// The function of a queued removal; it does nothing.
  static void RemoveMark(void* object, unsigned message, void* argument);

private:
  struct Callback {
    void* object;
    Function function;
  };

  void push(void* object, Function function);

  SEntry* m_pHead = nullptr;
  SEntry* m_pTail = nullptr;
  std::atomic<SEntry*> m_pPending{nullptr};
  std::atomic<std::int32_t> m_iUseCount{0};
  // Iterations in progress. Only the iterating thread writes it, so a plain
  // increment loses nothing, and a pass costs one locked instruction.
  std::atomic<std::int32_t> m_iIterating{0};

  // Owned by the iterating thread: the active list copied into contiguous
  // memory, rebuilt after the list changed, so that a pass walks an array
  // instead of chasing pointers.
  std::vector<Callback> m_callbacks;
  bool m_bCallbacksCurrent = true;
  int m_iIterationDepth = 0;
};
