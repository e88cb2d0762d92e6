// Internal to the leak guard: the root frames of the open scopes, read by
// the allocator hooks on every thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace vtcore::detail {

/// The open scopes' root frames, as one array (word 0 the count, the frames
/// after it) that is replaced whole on every change, so that a hook never
/// sees a half-written one. The arrays come from the entry points the caller
/// passes (the zone's saved ones: they must not reach the guard's hooks).
class ScopeRoots {
public:
  using Allocate = void* (*)(std::size_t size);
  using Release = void (*)(void* block);

  constexpr ScopeRoots() = default;
  ScopeRoots(const ScopeRoots&) = delete;
  ScopeRoots& operator=(const ScopeRoots&) = delete;

  /// Adds `frame` (a frame may be added more than once). False when no new
  /// array could be allocated; the roots are then unchanged.
  bool add(void* frame, Allocate allocate, Release release);
  /// Removes one occurrence of `frame`. False when it is not a root or no
  /// new array could be allocated; the roots are then unchanged.
  bool remove(void* frame, Allocate allocate, Release release);

  /// The current array, null while no scope is open.
  void* const* current() const;

private:
  std::atomic<void**> m_roots{nullptr};
};

/// Whether `frame` is one of the frames of a non-null root array.
bool isRoot(void* const* roots, std::uintptr_t frame);

/// The leak guard's roots.
ScopeRoots& leakGuardRoots();

} // namespace vtcore::detail
