// CMusicalContext: the musical situation at a position, filled by a
// calculator the application can install.
#pragma once

#include <vtcore/export.h>

#include <atomic>
#include <cstdint>

class CMusicalContext;

/// Fills `context` for (position, reference).
using CMusicalContextCalculator = void (*)(long position, long reference, CMusicalContext& context);

/// The musical situation at a position. Results 4 and 5 and the three flags
/// are never set by the library; their meaning belongs to the calculators.
class VTCORE_EXPORT CMusicalContext {
public:
  /// Stores `position` and `reference`, sets tempo 120000 (thousandths of a
  /// beat per minute), metre 4/4, results and flags 0; then fills the results
  /// with `calculator` when it is not null, else with s_funcDefaultCalculator
  /// when set, else with the built-in default:
  ///   result1 = trunc(p / 1.435546875 + 0.5),
  ///   result2 = trunc(remainder(p / 22050, 4) x 15360),
  ///   result3 = trunc(1.435546875 - remainder(p, 1.435546875)),
  /// where p is the position as a double and remainder is the IEEE one.
  CMusicalContext(long position, long reference, CMusicalContextCalculator calculator);

  std::int64_t position;         ///< the position given to the constructor
  std::int64_t reference;        ///< the reference given to the constructor
  std::int64_t tempo;            ///< thousandths of a beat per minute (120000 at start)
  std::int64_t metreNumerator;   ///< beats per bar (4 at start)
  std::int64_t metreDenominator; ///< the beat's note value (4 at start)
  /// What the calculator found; the built-in calculator sets results 1 to 3
  /// (see the constructor), results 4 and 5 and the flags belong to the
  /// application's calculators.
  ///@{
  std::int64_t result1;
  std::int64_t result2;
  std::int64_t result3;
  std::int64_t result4;
  std::int64_t result5;
  std::uint8_t flag1;
  std::uint8_t flag2;
  std::uint8_t flag3;
  ///@}

  /// The calculator used when a context is built without one; null at start.
  /// Set it at start-up, before contexts are built on other threads.
  static std::atomic<CMusicalContextCalculator> s_funcDefaultCalculator;
};
