#include <vtcore/music/midi/musical_context.h>

#include <cmath>

std::atomic<CMusicalContextCalculator> CMusicalContext::s_funcDefaultCalculator{nullptr};

namespace {

// The built-in default's constants are part of what the applications expect
// from a context built without a calculator; they stay exactly as they are.
constexpr double kDefaultStep = 1.435546875;
constexpr double kDefaultRate = 22050.0;
constexpr double kDefaultBeats = 4.0;
constexpr double kDefaultTicks = 15360.0;

void builtInDefault(long position, long, CMusicalContext& context) {
  const double p = static_cast<double>(position);
  context.result1 = static_cast<std::int64_t>(std::trunc(p / kDefaultStep + 0.5));
  context.result2 = static_cast<std::int64_t>(
      std::trunc(std::remainder(p / kDefaultRate, kDefaultBeats) * kDefaultTicks));
  context.result3 =
      static_cast<std::int64_t>(std::trunc(kDefaultStep - std::remainder(p, kDefaultStep)));
}

} // namespace

CMusicalContext::CMusicalContext(long m_position, long m_reference,
                                 CMusicalContextCalculator calculator)
    : position(m_position), reference(m_reference), tempo(120000), metreNumerator(4),
      metreDenominator(4), result1(0), result2(0), result3(0), result4(0), result5(0), flag1(0),
      flag2(0), flag3(0) {
  if (calculator == nullptr)
    calculator = s_funcDefaultCalculator.load(std::memory_order_relaxed);
  if (calculator == nullptr)
    calculator = builtInDefault;
  calculator(m_position, m_reference, *this);
}
