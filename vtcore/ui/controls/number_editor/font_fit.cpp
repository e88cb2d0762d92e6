#include "detail/font_fit.h"

#include <QFontMetricsF>

#include <cmath>

namespace vtcore::detail {
namespace {

// How many sizes above a bisected answer are measured again. Hinted glyph
// advances are rounded per size, so the needed width is not strictly
// monotonic in the size; its wobble spans far less than two points.
constexpr int kCheckedAbove = 4;

class Fitter {
public:
  explicit Fitter(const FontFitRequest& request) : m_request(request), m_font(request.font) {}

  bool fits(int step) {
    m_font.setPointSizeF(fontFitSize(step));
    const QFontMetricsF metrics(m_font);
    qreal needed = m_request.fixed;
    for (const QString& text : m_request.texts)
      needed += std::ceil(metrics.horizontalAdvance(text));
    return m_request.available > needed;
  }

private:
  const FontFitRequest& m_request;
  QFont m_font;
};

} // namespace

qreal fitFontSizeByLadder(const FontFitRequest& request) {
  Fitter fitter(request);
  for (int step = 0; step < kFontFitSteps; ++step) {
    if (fitter.fits(step))
      return fontFitSize(step);
  }
  return fontFitSize(kFontFitSteps - 1);
}

qreal fitFontSize(const FontFitRequest& request) {
  Fitter fitter(request);
  // The first fitting step, as if fitting were monotonic: [low, high) holds
  // the boundary; `high` is kFontFitSteps when nothing fits.
  int low = 0;
  int high = kFontFitSteps;
  while (low < high) {
    const int middle = low + (high - low) / 2;
    if (fitter.fits(middle))
      high = middle;
    else
      low = middle + 1;
  }
  // The ladder takes the first fitting size from the top: look just above.
  const int found = high;
  for (int step = std::max(0, found - kCheckedAbove); step < found; ++step) {
    if (fitter.fits(step))
      return fontFitSize(step);
  }
  return fontFitSize(std::min(found, kFontFitSteps - 1));
}

} // namespace vtcore::detail
