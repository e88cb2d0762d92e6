// Buffers of the benchmarks, 64-byte aligned so that no kernel or peer gains
// or loses from where its data happens to start.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace bench {

struct FreeDeleter {
  void operator()(void* p) const noexcept { std::free(p); }
};

template <typename T>
class AlignedBuffer {
public:
  explicit AlignedBuffer(std::size_t count) : m_count(count) {
    const std::size_t bytes = (count * sizeof(T) + 63) / 64 * 64;
    m_data.reset(static_cast<T*>(std::aligned_alloc(64, bytes == 0 ? 64 : bytes)));
    if (!m_data)
      throw std::bad_alloc();
    std::memset(static_cast<void*>(m_data.get()), 0, bytes == 0 ? 64 : bytes);
  }
  T* data() const noexcept { return m_data.get(); }
  std::size_t size() const noexcept { return m_count; }
  T& operator[](std::size_t i) const noexcept { return m_data.get()[i]; }
  T* begin() const noexcept { return data(); }
  T* end() const noexcept { return data() + m_count; }

private:
  std::unique_ptr<T[], FreeDeleter> m_data;
  std::size_t m_count;
};

} // namespace bench
