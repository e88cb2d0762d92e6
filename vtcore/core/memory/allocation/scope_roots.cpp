// The scope roots: an array of frames replaced whole on every change and
// read without a lock, retired arrays freed once no reader can hold them.
#include <vtcore/core/memory/allocation/detail/hook_code.h>
#include <vtcore/core/memory/allocation/detail/scope_roots.h>

#include <cstring>

namespace vtcore::detail {

namespace {

// An array of `count` roots: the retire link, the count, the frames. Readers
// get the address of the count.
void** newArray(std::uintptr_t count, ScopeRoots::Allocate allocate) {
  auto** words = static_cast<void**>(allocate((count + 2) * sizeof(void*)));
  if (!words)
    return nullptr;
  words[0] = nullptr;
  words[1] = reinterpret_cast<void*>(count);
  return words + 1;
}

} // namespace

// Retiring instead of freeing: a hook on another thread may have loaded the
// old array just before the swap and still be walking it. The reader count
// tells when none can: a reader counts itself before it loads the array and
// uncounts itself after its last read of it. With both sides sequentially
// consistent, a change that swaps the array and then finds no reader counted
// knows that every reader still to come will load the new array, so every
// array retired so far may go.
VTCORE_HOOK_CODE ScopeRoots::Reader::Reader(const ScopeRoots& roots) {
  // No scope open: nothing to hold, and no shared counter touched.
  if (!roots.m_roots.load(std::memory_order_relaxed))
    return;
  roots.m_readers.fetch_add(1, std::memory_order_seq_cst);
  m_counted = &roots;
  m_frames = roots.m_roots.load(std::memory_order_seq_cst);
}

VTCORE_HOOK_CODE ScopeRoots::Reader::~Reader() {
  if (m_counted)
    m_counted->m_readers.fetch_sub(1, std::memory_order_release);
}

bool ScopeRoots::add(void* frame, Allocate allocate, Release release) {
  std::lock_guard writer(m_writer);
  void** old = m_roots.load(std::memory_order_relaxed);
  const std::uintptr_t count = old ? reinterpret_cast<std::uintptr_t>(old[0]) : 0;
  void** roots = newArray(count + 1, allocate);
  if (!roots)
    return false;
  if (count)
    std::memcpy(roots + 1, old + 1, count * sizeof(void*));
  roots[count + 1] = frame;
  replace(roots, release);
  return true;
}

bool ScopeRoots::remove(void* frame, Allocate allocate, Release release) {
  std::lock_guard writer(m_writer);
  void** old = m_roots.load(std::memory_order_relaxed);
  if (!old)
    return false;
  const auto count = reinterpret_cast<std::uintptr_t>(old[0]);
  std::uintptr_t found = 0;
  for (std::uintptr_t i = 1; i <= count; ++i)
    if (old[i] == frame) {
      found = i;
      break;
    }
  if (!found)
    return false;
  void** roots = nullptr;
  if (count > 1) {
    roots = newArray(count - 1, allocate);
    if (!roots)
      return false;
    std::memcpy(roots + 1, old + 1, (count - 1) * sizeof(void*));
    if (found != count)
      roots[found] = old[count]; // the last root takes the closed one's place
  }
  replace(roots, release);
  return true;
}

void ScopeRoots::replace(void** roots, Release release) {
  void** old = m_roots.exchange(roots, std::memory_order_seq_cst);
  if (old) {
    old[-1] = m_retired;
    m_retired = old;
    ++m_retiredCount;
  }
  if (m_readers.load(std::memory_order_seq_cst) != 0)
    return; // a reader may hold one of them: the next change tries again
  while (m_retired) {
    void** next = static_cast<void**>(m_retired[-1]);
    release(m_retired - 1);
    m_retired = next;
  }
  m_retiredCount = 0;
}

void ScopeRoots::lockChangesBeforeFork() {
  m_writer.lock();
}

void ScopeRoots::unlockChangesAfterFork(bool inChild) {
  if (inChild)
    m_readers.store(0, std::memory_order_relaxed);
  m_writer.unlock();
}

std::size_t ScopeRoots::retiredCount() const {
  std::lock_guard writer(m_writer);
  return m_retiredCount;
}

VTCORE_HOOK_CODE bool isRoot(void* const* roots, std::uintptr_t frame) {
  const auto count = reinterpret_cast<std::uintptr_t>(roots[0]);
  for (std::uintptr_t i = 1; i <= count; ++i)
    if (reinterpret_cast<std::uintptr_t>(roots[i]) == frame)
      return true;
  return false;
}

} // namespace vtcore::detail
