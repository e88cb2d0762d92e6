// Choosing the number editor's font size for a width. Not part of the
// library's API; tests compare the two searches.
#pragma once

#include <QFont>
#include <QString>

#include <vector>

namespace vtcore::detail {

/// What has to fit: `texts` measured in `font` (its size is replaced), each
/// width rounded up, plus `fixed`, strictly less than `available`.
struct FontFitRequest {
  QFont font;
  std::vector<QString> texts;
  qreal fixed = 0;
  qreal available = 0;
};

/// The sizes tried: 100 points down to 1.5 in steps of 0.5.
inline constexpr int kFontFitSteps = 198;
inline constexpr qreal fontFitSize(int step) {
  return 100.0 - 0.5 * step;
}

/// The first size of the ladder, from the top, at which the texts fit; the
/// last size (1.5) when none does. Measures up to 198 sizes.
qreal fitFontSizeByLadder(const FontFitRequest& request);

/// The same size, found by bisecting the ladder and then checking the few
/// sizes just above the answer, where rounding of glyph advances could make
/// a larger size fit after all. Measures about a dozen sizes.
qreal fitFontSize(const FontFitRequest& request);

} // namespace vtcore::detail
