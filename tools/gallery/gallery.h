// Samples of the widget gallery.
//
// A file tools/gallery/page_<area>.cpp makes one sample per widget and
// registers it with a static registrar object:
//
//   static vtcore::gallery::Sample timer{10, "KwTimer", "A restartable timer...", makeTimer};
//
// Samples are shown in ascending order (common 10-19, controls 20-29,
// views 30-39, forms 40-49); each is a widget made on demand, shown with its title and
// explanation beside it.
#pragma once

#include <QString>
#include <QWidget>

#include <functional>
#include <vector>

namespace vtcore::gallery {

struct SampleInfo {
  int order;
  QString title;
  QString explanation;
  std::function<QWidget*()> make;
};

/// Registers a sample at static-initialisation time.
struct Sample {
  Sample(int order, const char* title, const char* explanation, std::function<QWidget*()> make);
};

/// Every registered sample, in ascending order.
std::vector<SampleInfo> samples();

} // namespace vtcore::gallery
