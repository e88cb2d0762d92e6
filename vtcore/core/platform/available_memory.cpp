#include <vtcore/core/platform/available_memory.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace vtcore {

namespace {

// Everything here may run inside an allocator hook, so nothing allocates:
// files are read into buffers on the stack, and paths are built in them.
constexpr std::size_t kFileSize = 4096;
constexpr std::size_t kPathSize = 1024;
// cgroup v1 writes "no limit" as the largest page-aligned signed 64-bit value.
constexpr std::uint64_t kUnlimitedFrom = std::uint64_t(1) << 62;

constinit std::atomic<const char*> meminfoSource{nullptr};
constinit std::atomic<const char*> cgroupSource{nullptr};

// Reads at most size - 1 bytes of a file and terminates them; the length, or
// -1 when the file cannot be read.
long readSmallFile(const char* path, char* buffer, std::size_t size) {
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return -1;
  std::size_t used = 0;
  while (used + 1 < size) {
    const ssize_t got = ::read(fd, buffer + used, size - 1 - used);
    if (got < 0 && errno == EINTR)
      continue;
    if (got <= 0) {
      if (got < 0)
        used = 0;
      break;
    }
    used += static_cast<std::size_t>(got);
  }
  ::close(fd);
  buffer[used] = '\0';
  return static_cast<long>(used);
}

// A decimal number at `text`, after blanks; false when there is none or it
// does not fit 64 bits.
bool parseNumber(const char* text, std::uint64_t& value, const char** end = nullptr) {
  while (*text == ' ' || *text == '\t')
    ++text;
  if (*text < '0' || *text > '9')
    return false;
  std::uint64_t number = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    const auto digit = static_cast<std::uint64_t>(*text - '0');
    if (number > (UINT64_MAX - digit) / 10)
      return false;
    number = number * 10 + digit;
  }
  value = number;
  if (end)
    *end = text;
  return true;
}

std::uint64_t memAvailable() {
  const char* path = meminfoSource.load(std::memory_order_acquire);
  char text[kFileSize];
  if (readSmallFile(path ? path : "/proc/meminfo", text, sizeof text) <= 0)
    return AvailableMemory::kNoLimit;
  const char* line = std::strstr(text, "MemAvailable:");
  std::uint64_t kilobytes = 0;
  if (!line || !parseNumber(line + std::strlen("MemAvailable:"), kilobytes) ||
      kilobytes > AvailableMemory::kNoLimit / 1024)
    return AvailableMemory::kNoLimit;
  return kilobytes * 1024;
}

// A cgroup file holding one number (or "max", no limit), appended to `dir`.
bool readCgroupValue(const char* dir, const char* name, std::uint64_t& value) {
  char path[kPathSize];
  const std::size_t dirLength = std::strlen(dir), nameLength = std::strlen(name);
  if (dirLength + 1 + nameLength + 1 > sizeof path)
    return false;
  std::memcpy(path, dir, dirLength);
  path[dirLength] = '/';
  std::memcpy(path + dirLength + 1, name, nameLength + 1);
  char text[64];
  if (readSmallFile(path, text, sizeof text) <= 0)
    return false;
  if (std::strncmp(text, "max", 3) == 0) {
    value = AvailableMemory::kNoLimit;
    return true;
  }
  if (!parseNumber(text, value))
    return false;
  if (value >= kUnlimitedFrom)
    value = AvailableMemory::kNoLimit;
  return true;
}

// The room one cgroup directory leaves (limit less usage), and which
// version's files it has (0: neither).
int cgroupRoomOf(const char* dir, std::uint64_t& room) {
  std::uint64_t limit = 0, usage = 0;
  int version = 0;
  if (readCgroupValue(dir, "memory.max", limit) && readCgroupValue(dir, "memory.current", usage))
    version = 2;
  else if (readCgroupValue(dir, "memory.limit_in_bytes", limit) &&
           readCgroupValue(dir, "memory.usage_in_bytes", usage))
    version = 1;
  else
    return 0;
  room = limit == AvailableMemory::kNoLimit ? AvailableMemory::kNoLimit
                                            : (limit > usage ? limit - usage : 0);
  return version;
}

// Whether the comma-separated `list` (of `length` bytes) has `item`.
bool listHas(const char* list, std::size_t length, const char* item) {
  const std::size_t itemLength = std::strlen(item);
  const char* end = list + length;
  while (list < end) {
    const char* comma = static_cast<const char*>(std::memchr(list, ',', end - list));
    const char* stop = comma ? comma : end;
    if (static_cast<std::size_t>(stop - list) == itemLength &&
        std::memcmp(list, item, itemLength) == 0)
      return true;
    list = stop + 1;
  }
  return false;
}

// The process's memory cgroup path from /proc/self/cgroup: the v1 memory
// hierarchy's when there is one (hybrid systems mount a v2 tree without the
// memory controller next to it), else the v2 path.
int ownCgroupPath(char* path, std::size_t size) {
  char text[kFileSize];
  if (readSmallFile("/proc/self/cgroup", text, sizeof text) <= 0)
    return 0;
  int found = 0;
  for (char* line = text; *line;) {
    char* newline = std::strchr(line, '\n');
    const std::size_t length =
        newline ? static_cast<std::size_t>(newline - line) : std::strlen(line);
    // hierarchy-id:controllers:path
    char* first = static_cast<char*>(std::memchr(line, ':', length));
    char* second = first
                       ? static_cast<char*>(std::memchr(first + 1, ':', line + length - first - 1))
                       : nullptr;
    if (second) {
      const std::size_t pathLength = static_cast<std::size_t>(line + length - second - 1);
      const bool v1Memory =
          listHas(first + 1, static_cast<std::size_t>(second - first - 1), "memory");
      const bool v2 = second == first + 1 && first == line + 1 && line[0] == '0';
      if ((v1Memory || (v2 && found == 0)) && pathLength < size) {
        std::memcpy(path, second + 1, pathLength);
        path[pathLength] = '\0';
        found = v1Memory ? 1 : 2;
        if (v1Memory)
          break;
      }
    }
    if (!newline)
      break;
    line = newline + 1;
  }
  return found;
}

// Where the hierarchy of `version` is mounted (and which of its cgroups is
// the mount's root), from /proc/self/mountinfo, read line by line.
bool cgroupMount(int version, char* mountPoint, std::size_t mountSize, char* root,
                 std::size_t rootSize) {
  const int fd = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return false;
  char text[kFileSize];
  std::size_t used = 0;
  bool found = false, atEnd = false;
  while (!found && !(atEnd && used == 0)) {
    if (!atEnd && used + 1 < sizeof text) {
      const ssize_t got = ::read(fd, text + used, sizeof text - 1 - used);
      if (got < 0 && errno == EINTR)
        continue;
      if (got <= 0)
        atEnd = true;
      else
        used += static_cast<std::size_t>(got);
    }
    text[used] = '\0';
    char* newline = std::strchr(text, '\n');
    if (!newline) {
      if (!atEnd && used + 1 < sizeof text)
        continue;            // read more of this line
      newline = text + used; // the last line, or one too long to matter
    }
    *newline = '\0';
    // id parent major:minor root mount-point options [optional...] - type source super-options
    const char* fields[5] = {};
    char* cursor = text;
    for (int i = 0; i < 5 && cursor; ++i) {
      fields[i] = cursor;
      cursor = std::strchr(cursor, ' ');
      if (cursor)
        *cursor++ = '\0';
    }
    const char* separator = cursor ? std::strstr(cursor, " - ") : nullptr;
    if (fields[4] && separator) {
      const char* type = separator + 3;
      const char* typeEnd = std::strchr(type, ' ');
      const char* superOptions = typeEnd ? std::strchr(typeEnd + 1, ' ') : nullptr;
      const std::size_t typeLength = typeEnd ? static_cast<std::size_t>(typeEnd - type) : 0;
      bool match = false;
      if (version == 2)
        match = typeLength == 7 && std::memcmp(type, "cgroup2", 7) == 0;
      else if (typeLength == 6 && std::memcmp(type, "cgroup", 6) == 0 && superOptions)
        match = listHas(superOptions + 1, std::strlen(superOptions + 1), "memory");
      if (match && std::strlen(fields[4]) < mountSize && std::strlen(fields[3]) < rootSize) {
        std::strcpy(mountPoint, fields[4]);
        std::strcpy(root, fields[3]);
        found = true;
      }
    }
    const std::size_t consumed = std::min(used, static_cast<std::size_t>(newline - text) + 1);
    std::memmove(text, text + consumed, used - consumed);
    used -= consumed;
  }
  ::close(fd);
  return found;
}

// The directory of the process's memory cgroup, and the length of its mount
// point's part (the walk up to the ancestors stops there).
int ownCgroupDirectory(char* directory, std::size_t size, std::size_t& mountLength) {
  char path[kPathSize], mountPoint[kPathSize], root[kPathSize];
  const int version = ownCgroupPath(path, sizeof path);
  if (version == 0 || !cgroupMount(version, mountPoint, sizeof mountPoint, root, sizeof root))
    return 0;
  // Inside a cgroup namespace or a bind mount of a sub-tree, the mount's root
  // is a prefix of the path that the mount point already stands for.
  const char* relative = path;
  const std::size_t rootLength = std::strlen(root);
  if (std::strcmp(root, "/") != 0 && std::strncmp(path, root, rootLength) == 0)
    relative = path + rootLength;
  mountLength = std::strlen(mountPoint);
  const std::size_t relativeLength = std::strlen(relative);
  if (mountLength + relativeLength + 1 > size)
    return 0;
  std::memcpy(directory, mountPoint, mountLength);
  std::memcpy(directory + mountLength, relative, relativeLength + 1);
  while (std::strlen(directory) > mountLength && directory[std::strlen(directory) - 1] == '/')
    directory[std::strlen(directory) - 1] = '\0';
  return version;
}

// The tightest room of the cgroup and its ancestors (a parent's limit binds
// its children too).
int cgroupRoom(std::uint64_t& room) {
  room = AvailableMemory::kNoLimit;
  if (const char* given = cgroupSource.load(std::memory_order_acquire))
    return cgroupRoomOf(given, room);
  char directory[kPathSize];
  std::size_t mountLength = 0;
  if (ownCgroupDirectory(directory, sizeof directory, mountLength) == 0)
    return 0;
  int version = 0;
  for (;;) {
    std::uint64_t here = AvailableMemory::kNoLimit;
    if (const int found = cgroupRoomOf(directory, here)) {
      version = found;
      room = std::min(room, here);
    }
    char* slash = std::strrchr(directory, '/');
    if (std::strlen(directory) <= mountLength || !slash ||
        static_cast<std::size_t>(slash - directory) < mountLength)
      break;
    *slash = '\0';
  }
  return version;
}

// A limit of the process less what it uses of it; `statmField` is the field
// of /proc/self/statm (in pages) that the limit counts.
std::uint64_t limitRoom(int resource, int statmField) {
  rlimit limit{};
  if (getrlimit(resource, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
    return AvailableMemory::kNoLimit;
  char text[256];
  if (readSmallFile("/proc/self/statm", text, sizeof text) <= 0)
    return AvailableMemory::kNoLimit;
  const char* cursor = text;
  std::uint64_t pages = 0;
  for (int field = 0; field <= statmField; ++field)
    if (!parseNumber(cursor, pages, &cursor))
      return AvailableMemory::kNoLimit;
  const std::uint64_t used = pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  const auto allowed = static_cast<std::uint64_t>(limit.rlim_cur);
  return allowed > used ? allowed - used : 0;
}

} // namespace

AvailableMemory readAvailableMemory() noexcept {
  const int savedErrno = errno; // callers inside hooks keep the allocator's errno
  AvailableMemory memory;
  memory.memAvailable = memAvailable();
  memory.cgroupVersion = cgroupRoom(memory.cgroupRoom);
  memory.addressSpaceRoom = limitRoom(RLIMIT_AS, 0); // statm: size
  memory.dataRoom = limitRoom(RLIMIT_DATA, 5);       // statm: data (+ stack)
  errno = savedErrno;
  return memory;
}

bool availableMemoryFits(std::uint64_t size) noexcept {
  return size <= readAvailableMemory().room();
}

void setAvailableMemorySources(const char* meminfo, const char* cgroupDirectory) noexcept {
  meminfoSource.store(meminfo, std::memory_order_release);
  cgroupSource.store(cgroupDirectory, std::memory_order_release);
}

int memoryCgroupDirectory(char* buffer, std::size_t size) noexcept {
  buffer[0] = '\0';
  const int savedErrno = errno;
  std::size_t mountLength = 0;
  const int version = ownCgroupDirectory(buffer, size, mountLength);
  if (version == 0)
    buffer[0] = '\0';
  errno = savedErrno;
  return version;
}

} // namespace vtcore
