// What memory Linux can really give this process now. Linux overcommits:
// an allocation of untouched pages almost always succeeds, whatever is left,
// so "can this size still be had" is answered from what the kernel reports
// as well: MemAvailable of /proc/meminfo, the limit of the process's memory
// cgroup less its usage (v2: memory.max and memory.current; v1:
// memory.limit_in_bytes and memory.usage_in_bytes; the tightest of the
// cgroup and its ancestors), and the address-space and data-segment limits
// (RLIMIT_AS, RLIMIT_DATA) less what the process uses of each.
//
// The memory reserve and the low-memory notification centre ask this before
// they call a size available and before they commit a reserve block.
#pragma once

#include <vtcore/export.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>

namespace vtcore {

/// What each source allows now, in bytes. A source that sets no limit, or
/// cannot be read or understood, reads as kNoLimit: it never makes a size
/// unavailable.
struct AvailableMemory {
  static constexpr std::uint64_t kNoLimit = UINT64_MAX;

  std::uint64_t memAvailable = kNoLimit;     ///< MemAvailable of meminfo
  std::uint64_t cgroupRoom = kNoLimit;       ///< memory cgroup's limit less its usage
  std::uint64_t addressSpaceRoom = kNoLimit; ///< RLIMIT_AS less the address space in use
  std::uint64_t dataRoom = kNoLimit;         ///< RLIMIT_DATA less the data segment in use
  int cgroupVersion = 0;                     ///< 1 or 2 when a memory cgroup was read, else 0

  /// The least of the four: what the process can still be given.
  std::uint64_t room() const {
    std::uint64_t least = memAvailable;
    for (std::uint64_t other : {cgroupRoom, addressSpaceRoom, dataRoom})
      least = other < least ? other : least;
    return least;
  }
};

/// Reads every source now. Never allocates (the files are read into stack
/// buffers with open/read) and never throws; callable on any thread and
/// from inside allocator hooks. Costs a handful of system calls.
VTCORE_EXPORT AvailableMemory readAvailableMemory() noexcept;

/// Whether `size` bytes fit what the process can still be given
/// (`size <= readAvailableMemory().room()`). Same cost and guarantees.
VTCORE_EXPORT bool availableMemoryFits(std::uint64_t size) noexcept;

/// Points the file sources elsewhere, so that a test can simulate a machine
/// short of memory. `meminfo`: a file in /proc/meminfo's format; null means
/// /proc/meminfo. `cgroupDirectory`: a directory holding a memory cgroup's
/// files (either version's pair); only it is read, not its ancestors; null
/// means the process's own memory cgroup, found through /proc/self/cgroup
/// and /proc/self/mountinfo. The limits of the process are always its
/// own. The strings are not copied: they must stay valid until they are
/// replaced and no read that started before may still be running.
VTCORE_EXPORT void setAvailableMemorySources(const char* meminfo,
                                             const char* cgroupDirectory) noexcept;

/// Writes the directory of the process's own memory cgroup (as a null
/// cgroupDirectory finds it) into `buffer` and returns its version (1 or 2);
/// returns 0, leaving `buffer` empty, when there is none or it does not fit
/// in `size` bytes. Requires `size >= 1`. Never allocates.
VTCORE_EXPORT int memoryCgroupDirectory(char* buffer, std::size_t size) noexcept;

} // namespace vtcore
