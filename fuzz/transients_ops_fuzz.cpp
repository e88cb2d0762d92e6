// Thinning, unique and energy-sorting operations on random collections, NaN
// energies included: no crash, no endless loop, and the promised order.
#include <vtcore/music/transients/transients.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>

namespace {

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
  // Each element is 6 input bytes: a 16-bit position (few distinct values, so
  // duplicates are common) and the raw bits of the energy (NaNs and infinities
  // come up by themselves).
  CTransients transients;
  for (std::size_t i = 2; i + 6 <= size; i += 6) {
    std::int16_t pos;
    std::memcpy(&pos, data + i, 2);
    transients.emplace_back().pos = pos;
    std::memcpy(&transients.back().Energy, data + i + 2, 4);
  }
  const auto all = positions(transients);
  const unsigned long keep = data[1];

  switch (data[0] % 3) {
  case 0:
    transients.ThinOutToSizeAndSortByPos(keep);
    check(transients.size() == std::min<std::size_t>(keep, all.size()));
    check(transients.AreSortedByPos());
    for (const auto pos : positions(transients))
      check(all.count(pos) > 0);
    break;
  case 1:
    transients.SortAndMakeUniquePos();
    check(transients.AreUniqueAndSortedByPos());
    check(transients.size() == std::set<std::int64_t>(all.begin(), all.end()).size());
    break;
  default: {
    transients.SortByEnergyAndPos();
    check(positions(transients) == all);
    const auto isNaN = [](const CTransient& t) { return std::isnan(t.Energy); };
    const auto firstNaN = std::find_if(transients.begin(), transients.end(), isNaN);
    check(std::is_sorted(transients.begin(), firstNaN, SortFunctor_CTransient_EnergyAndPos()));
    check(std::all_of(firstNaN, transients.end(), isNaN));
    break;
  }
  }
  return 0;
}
