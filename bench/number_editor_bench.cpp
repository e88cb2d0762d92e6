// The number editor's font fit and paint, offscreen. The fit's worst case is
// a width nothing fits, where every one of the 198 sizes is measured; the
// peer is one measurement of the same texts at one size (what each step
// costs). The paint is compared with a QLabel showing the same text.
#include <vtcore/ui/controls/number_editor/number_editor_control.h>

#include <QApplication>
#include <QFontMetricsF>
#include <QImage>
#include <QLabel>
#include <QPainter>
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>

namespace {

std::unique_ptr<DfNumberEditorControl> fourFields(int width) {
  auto editor = std::make_unique<DfNumberEditorControl>(QRect(0, 0, width, 24));
  editor->setEditorCellCount(4);
  editor->setValue(0);
  return editor;
}

void BM_RecalculateFontSize_FloorWidth(benchmark::State& state) {
  auto editor = fourFields(8);
  for (auto _ : state)
    editor->recalculateFontSize();
  if (editor->font().pointSizeF() != 1.5)
    state.SkipWithError("the width does not force the 1.5-point floor");
}
BENCHMARK(BM_RecalculateFontSize_FloorWidth)->Unit(benchmark::kMicrosecond);

void BM_RecalculateFontSize_Wide(benchmark::State& state) {
  auto editor = fourFields(240);
  for (auto _ : state)
    editor->recalculateFontSize();
}
BENCHMARK(BM_RecalculateFontSize_Wide)->Unit(benchmark::kMicrosecond);

// Peer: one step of the ladder done by hand with Qt.
void BM_Peer_QFontMetricsOneSize(benchmark::State& state) {
  QFont font = fourFields(8)->font();
  const QString texts[] = {".00", "/", ".00", "/", ".00", "/", ".00"};
  qreal size = 1.5;
  for (auto _ : state) {
    font.setPointSizeF(size);
    const QFontMetricsF metrics(font);
    qreal total = 0;
    for (const QString& text : texts)
      total += metrics.horizontalAdvance(text);
    benchmark::DoNotOptimize(total);
    size = size >= 100 ? 1.5 : size + 0.5;
  }
}
BENCHMARK(BM_Peer_QFontMetricsOneSize)->Unit(benchmark::kMicrosecond);

void BM_PaintFourFields(benchmark::State& state) {
  auto editor = fourFields(240);
  editor->setValue(1234);
  QImage image(editor->size(), QImage::Format_ARGB32_Premultiplied);
  for (auto _ : state) {
    editor->render(&image);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_PaintFourFields)->Unit(benchmark::kMicrosecond);

// Peer: a QLabel showing the same text at the same size.
void BM_Peer_QLabelPaint(benchmark::State& state) {
  auto editor = fourFields(240);
  QLabel label(QStringLiteral("1 / 2 / 3 / 4"));
  label.setFont(editor->font());
  label.resize(editor->size());
  label.setAlignment(Qt::AlignRight | Qt::AlignVCenter);
  QImage image(label.size(), QImage::Format_ARGB32_Premultiplied);
  for (auto _ : state) {
    label.render(&image);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Peer_QLabelPaint)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
  if (!std::getenv("QT_QPA_PLATFORM"))
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
  QApplication application(argc, argv);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
