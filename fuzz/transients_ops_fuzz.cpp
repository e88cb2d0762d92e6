// Thinning, unique and energy-sorting operations on random collections, NaN
// energies included: no crash, no endless loop, and the promised order.
#include <vtcore/music/transients.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>

namespace {

// Each element is 6 input bytes: a 16-bit position (few distinct values, so
// duplicates are common) and the raw bits of the energy (NaNs and infinities
// come up by themselves).
CTransients collectionFrom(const std::uint8_t* data, std::size_t size) {
  CTransients transients;
  for (std::size_t i = 0; i + 6 <= size; i += 6) {
    CTransient transient;
    std::int16_t pos;
    std::memcpy(&pos, data + i, 2);
    std::memcpy(&transient.Energy, data + i + 2, 4);
    transient.pos = pos;
    transients.push_back(transient);
  }
  return transients;
}

std::multiset<std::int64_t> positions(const CTransients& transients) {
  std::multiset<std::int64_t> result;
  for (const auto& transient : transients)
    result.insert(std::int64_t{transient.pos});
  return result;
}

void check(bool condition) {
  if (!condition)
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2)
    return 0;
  const CTransients original = collectionFrom(data + 2, size - 2);
  const unsigned long keep = data[1];

  switch (data[0] % 3) {
  case 0: {
    CTransients thinned = original;
    thinned.ThinOutToSizeAndSortByPos(keep);
    check(thinned.size() == std::min<std::size_t>(keep, original.size()));
    check(thinned.AreSortedByPos());
    const auto all = positions(original);
    for (const auto pos : positions(thinned))
      check(all.count(pos) > 0);
    break;
  }
  case 1: {
    CTransients unique = original;
    unique.SortAndMakeUniquePos();
    check(unique.AreUniqueAndSortedByPos());
    const auto all = positions(original);
    check(unique.size() == std::set<std::int64_t>(all.begin(), all.end()).size());
    break;
  }
  default: {
    CTransients sorted = original;
    sorted.SortByEnergyAndPos();
    check(positions(sorted) == positions(original));
    const auto firstNaN = std::find_if(sorted.begin(), sorted.end(),
                                       [](const CTransient& t) { return std::isnan(t.Energy); });
    check(std::is_sorted(sorted.begin(), firstNaN, SortFunctor_CTransient_EnergyAndPos()));
    check(std::all_of(firstNaN, sorted.end(),
                      [](const CTransient& t) { return std::isnan(t.Energy); }));
    break;
  }
  }
  return 0;
}
