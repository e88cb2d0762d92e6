#include <vtcore/core/text/swap/byte_swap.h>

#include <vtcore/core/text/swap/detail/swap_kernels.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>

namespace {

constexpr std::uintptr_t kNoLimit = UINTPTR_MAX;

// The limit seen by GetPIntelLimit, which a code 21 record length moves.
std::atomic<std::uintptr_t> g_limit{kNoLimit};
// The limit the caller gave (LimitTabIntelSwap or SetPIntelLimit): a record
// length may move the working limit but never past this one, so nothing
// beyond the caller's bound is ever written.
std::atomic<std::uintptr_t> g_bound{kNoLimit};

std::uintptr_t currentLimit() {
  return g_limit.load(std::memory_order_relaxed);
}
std::uintptr_t currentBound() {
  return g_bound.load(std::memory_order_relaxed);
}

bool fitsWithin(const unsigned char* field, std::size_t size, std::uintptr_t limit) {
  const auto start = reinterpret_cast<std::uintptr_t>(field);
  return start <= limit && size <= limit - start;
}

void reverseBytes(unsigned char* p, int size) {
  std::reverse(p, p + size);
}

struct FieldShape {
  int size;     // bytes the cursor advances
  int baseCode; // for repeat codes, the code of one element; else the code
  int repeats;  // elements of a repeat code, 0 for a single field
};

FieldShape shapeOf(int code) {
  switch (code) {
  case 4:
    return {2, code, 0};
  case 5:
    return {3, code, 0};
  case 6:
  case 7:
    return {4, code, 0};
  case 8:
  case 9:
  case 10:
    return {4 * (code - 6), 7, code - 6};
  case 11:
    return {8, code, 0};
  case 12:
  case 13:
  case 14:
    return {8 * (code - 10), 11, code - 10};
  case 15:
    return {2, code, 0};
  case 16:
  case 17:
  case 18:
    return {2 * (code - 14), 15, code - 14};
  case 19:
    return {6, code, 0};
  case 20:
    return {16, code, 0};
  default:
    return {1, code, 0}; // 0-3 and unknown codes: nothing to swap
  }
}

// The action of a single (non-repeat) field, without any limit.
void applyField(unsigned char* p, int code) {
  switch (code) {
  case 7:
    reverseBytes(p, 4);
    break;
  case 11:
    reverseBytes(p, 8);
    break;
  case 15:
    reverseBytes(p, 2);
    break;
  case 19:
    reverseBytes(p, 4);
    reverseBytes(p + 4, 2);
    break;
  case 20:
    reverseBytes(p, 8);
    reverseBytes(p + 8, 8);
    break;
  default:
    break;
  }
}

unsigned char* swapRecordLength(unsigned char* p) {
  unsigned char* end = p + 2;
  if (!fitsWithin(p, 2, currentBound()))
    return end;
  reverseBytes(p, 2);
  std::int16_t length;
  std::memcpy(&length, p, 2);
  if (length > 2) {
    const auto start = reinterpret_cast<std::uintptr_t>(p);
    const auto bound = currentBound();
    const auto recordEnd = start + static_cast<std::uintptr_t>(length);
    g_limit.store(recordEnd < start || recordEnd > bound ? bound : recordEnd,
                  std::memory_order_relaxed);
  } else if (!fitsWithin(p, 2, currentLimit())) {
    // A length field that crosses the limit without opening a new record is
    // left as it was.
    reverseBytes(p, 2);
  }
  return end;
}

unsigned char* swapField(unsigned char* p, int code) {
  if (code == 21)
    return swapRecordLength(p);
  const FieldShape shape = shapeOf(code);
  if (shape.repeats == 0) {
    // A single field that would cross the limit stays unswapped.
    if (fitsWithin(p, static_cast<std::size_t>(shape.size), currentLimit()))
      applyField(p, code);
    return p + shape.size;
  }
  const int elementSize = shape.size / shape.repeats;
  for (int i = 0; i < shape.repeats; ++i)
    swapField(p + i * elementSize, shape.baseCode);
  // A group that ends beyond the limit has its first element swapped once
  // more, as stored records have always been read; but never beyond the
  // caller's bound.
  if (!fitsWithin(p, static_cast<std::size_t>(shape.size), currentLimit()) &&
      fitsWithin(p, static_cast<std::size_t>(elementSize), currentBound()))
    applyField(p, shape.baseCode);
  return p + shape.size;
}

} // namespace

void* IntelSwap(void* cursor, int code) {
  return swapField(static_cast<unsigned char*>(cursor), code);
}

void* MultiIntelSwap(void* cursor, int code, int count) {
  auto* p = static_cast<unsigned char*>(cursor);
  for (int i = 0; i < count; ++i)
    p = swapField(p, code);
  return p;
}

void* LimitTabIntelSwap(void* cursor, const unsigned char* table, void* limit) {
  const auto savedLimit = currentLimit();
  const auto savedBound = currentBound();
  const auto newLimit = reinterpret_cast<std::uintptr_t>(limit);
  g_limit.store(newLimit, std::memory_order_relaxed);
  g_bound.store(newLimit, std::memory_order_relaxed);
  auto* p = static_cast<unsigned char*>(cursor);
  if (table != nullptr) {
    for (;;) {
      const unsigned char t = *table;
      if (t == 0)
        break;
      if (t == 1) {
        p = static_cast<unsigned char*>(MultiIntelSwap(p, table[1], table[2]));
        table += 3;
      } else if (t == 2) {
        p = static_cast<unsigned char*>(MultiIntelSwap(p, table[1], (table[2] << 8) | table[3]));
        table += 4;
      } else {
        p = swapField(p, t);
        table += 1;
      }
    }
  }
  g_limit.store(savedLimit, std::memory_order_relaxed);
  g_bound.store(savedBound, std::memory_order_relaxed);
  return p;
}

void* TabIntelSwap(void* cursor, const unsigned char* table) {
  return LimitTabIntelSwap(cursor, table, reinterpret_cast<void*>(kNoLimit));
}

void* GetPIntelLimit(void) {
  return reinterpret_cast<void*>(currentLimit());
}

void SetPIntelLimit(void* limit) {
  const auto value = reinterpret_cast<std::uintptr_t>(limit);
  g_limit.store(value, std::memory_order_relaxed);
  g_bound.store(value, std::memory_order_relaxed);
}

int SwapData(void* dst, const void* src, const signed char* table, int64_t length) {
  auto* out = static_cast<unsigned char*>(dst);
  auto* in = static_cast<const unsigned char*>(src);
  if (table == nullptr)
    return 0;
  for (; *table != 0; ++table) {
    const int item = *table;
    const int size = item < 0 ? -item : item;
    if (length < size)
      return size;
    std::memmove(out, in, static_cast<std::size_t>(size));
    if (item == 2 || item == 4 || item == 8)
      reverseBytes(out, size);
    out += size;
    in += size;
    length -= size;
  }
  return 0;
}

void SwapInt32(void* value) {
  reverseBytes(static_cast<unsigned char*>(value), 4);
}

void SwapInt64(void* value) {
  reverseBytes(static_cast<unsigned char*>(value), 8);
}

void* PSwapInt16(void* values, size_t count) {
  vtcore::detail::reverseValues(values, values, count, 2);
  return static_cast<unsigned char*>(values) + count * 2;
}

void* PSwapInt32(void* values, size_t count) {
  vtcore::detail::reverseValues(values, values, count, 4);
  return static_cast<unsigned char*>(values) + count * 4;
}

void* PSwapInt64(void* values, size_t count) {
  vtcore::detail::reverseValues(values, values, count, 8);
  return static_cast<unsigned char*>(values) + count * 8;
}

void PSwapCopyInt32(void* dst, const void* src, size_t count) {
  vtcore::detail::reverseValues(dst, src, count, 4);
}

int ProcessSwapIntel(void* buffer, size_t sampleCount, int /*unused*/, int bitsPerSample) {
  switch (bitsPerSample) {
  case 32:
    vtcore::detail::reverseValues(buffer, buffer, sampleCount, 4);
    break;
  case 24:
    vtcore::detail::reverse24(buffer, sampleCount);
    break;
  case 8:
    vtcore::detail::flipSignBit8(buffer, sampleCount);
    break;
  default:
    vtcore::detail::reverseValues(buffer, buffer, sampleCount, 2);
    break;
  }
  return 1;
}
