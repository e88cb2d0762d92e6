// Internal to the leak guard: the root frames of the open scopes, read by
// the allocator hooks on every thread while scopes open and close.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace vtcore::detail {

/// The open scopes' root frames, as one array (word 0 the count, the frames
/// after it) that is replaced whole on every change, so that a reader never
/// sees a half-written one. A replaced array is retired, not freed: it is
/// freed by a later change once no reader can still hold it. Readers take no
/// lock (a hook must not); changes are serialised among themselves. The
/// arrays come from the entry points the caller passes (the zone's saved
/// ones: they must not reach the guard's hooks), and a change must always
/// pass the same pair.
class ScopeRoots {
public:
  using Allocate = void* (*)(std::size_t size);
  using Release = void (*)(void* block);

  /// A reader's hold on the current array: no array it saw is freed while
  /// it lives. Never allocates or blocks; costs nothing while no scope is open.
  class Reader {
  public:
    explicit Reader(const ScopeRoots& roots);
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    /// The array seen, null while no scope is open.
    void* const* frames() const { return m_frames; }

  private:
    const ScopeRoots* m_counted = nullptr;
    void* const* m_frames = nullptr;
  };

  constexpr ScopeRoots() = default;
  ScopeRoots(const ScopeRoots&) = delete;
  ScopeRoots& operator=(const ScopeRoots&) = delete;

  /// Adds `frame` (a frame may be added more than once). False when no new
  /// array could be allocated; the roots are then unchanged.
  bool add(void* frame, Allocate allocate, Release release);
  /// Removes one occurrence of `frame`. False when it is not a root or no
  /// new array could be allocated; the roots are then unchanged.
  bool remove(void* frame, Allocate allocate, Release release);

  /// Around fork: the forking thread holds off changes, and the child, where
  /// no other thread is left, forgets the readers it inherited (they would
  /// keep retired arrays from ever being freed there).
  void lockChangesBeforeFork();
  void unlockChangesAfterFork(bool inChild);

  /// Number of retired arrays not yet freed (a reader held them at the last
  /// change). For tests.
  std::size_t retiredCount() const;

private:
  // Installs `roots` (null: no scope open), retires the array it replaces
  // and frees what no reader can hold any more. Called with m_writer held.
  void replace(void** roots, Release release);

  std::atomic<void**> m_roots{nullptr};
  mutable std::atomic<long> m_readers{0};
  // Each array has one word before its count: the link of the retired list.
  void** m_retired = nullptr;
  std::size_t m_retiredCount = 0;
  mutable std::mutex m_writer;
};

/// Whether `frame` is one of the frames of a non-null root array.
bool isRoot(void* const* roots, std::uintptr_t frame);

/// The leak guard's roots.
ScopeRoots& leakGuardRoots();

} // namespace vtcore::detail
