// A sliding accessory panel holding 50 widgets, offscreen: a full slide-in
// on the real timer (frames per second, counted from the timer's firings
// and from the panel's paints), and the cost of one frame step, against
// Qt's own QSplitter moving the same edge as its peer.
#include <vtcore/ui.h>

#include <QApplication>
#include <QEventLoop>
#include <QGridLayout>
#include <QLabel>
#include <QSplitter>
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>

namespace {

void ensureApplication() {
  static std::unique_ptr<QApplication> application;
  if (application)
    return;
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  static int argc = 1;
  static char name[] = "accessory_slide_bench";
  static char* argv[] = {name, nullptr};
  application = std::make_unique<QApplication>(argc, argv);
}

constexpr int kWidth = 1000, kHeight = 700, kPanel = 300, kChildren = 50;

// Counts the paints the panel receives.
class PaintCounter : public QObject {
public:
  int paints = 0;
  bool eventFilter(QObject*, QEvent* event) override {
    if (event->type() == QEvent::Paint)
      ++paints;
    return false;
  }
};

// Quits a loop when the slide ends.
class EndOfSlide : public VTAccessoryContainerViewDelegate {
public:
  QEventLoop loop;
  void accessoryContainerViewDidEndAnimation(VTAccessoryContainerView*) override { loop.quit(); }
};

void fillPanel(QWidget* panel, bool withLayout) {
  auto* grid = withLayout ? new QGridLayout(panel) : nullptr;
  for (int i = 0; i < kChildren; ++i) {
    auto* label = new QLabel(QStringLiteral("Parameter %1").arg(i + 1));
    label->setAutoFillBackground(true);
    label->setBackgroundRole(QPalette::Button);
    if (grid) {
      grid->addWidget(label, i / 2, i % 2);
    } else {
      label->setParent(panel);
      label->setGeometry(8 + (i % 2) * 145, 8 + (i / 2) * 26, 140, 22);
    }
  }
}

// Made before any widget or event loop of the benchmark.
struct WithApplication {
  WithApplication() { ensureApplication(); }
};

struct Panels : WithApplication {
  Panels() {
    window.resize(kWidth, kHeight);
    container = new VTAccessoryContainerView(&window);
    container->setGeometry(0, 0, kWidth, kHeight);
    main = new QWidget(container);
    main->setGeometry(0, 0, kWidth - kPanel, kHeight);
    main->setAutoFillBackground(true);
    main->setBackgroundRole(QPalette::Base);
    panel = new QWidget(container);
    panel->setGeometry(kWidth - kPanel, 0, kPanel, kHeight);
    panel->setAutoFillBackground(true);
    panel->setBackgroundRole(QPalette::AlternateBase);
    fillPanel(panel, false);
    panel->installEventFilter(&paints);
    container->setMainView(main);
    container->setSlideView(panel);
    container->setDelegate(&end);
    window.show();
    QCoreApplication::processEvents();
  }

  PaintCounter paints;
  EndOfSlide end;
  QWidget window;
  VTAccessoryContainerView* container;
  QWidget* main;
  QWidget* panel;
};

// One full slide-in of 0.5 s on the animation's own KwTimer.
void BM_SlideInOnTheTimer(benchmark::State& state) {
  Panels p;
  double frames = 0, paints = 0, seconds = 0;
  for (auto _ : state) {
    p.container->swapOut();
    QCoreApplication::processEvents();
    p.paints.paints = 0;
    const auto start = std::chrono::steady_clock::now();
    p.container->slideIn();
    p.end.loop.exec();
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    frames += p.container->animationObject()->lastFramesCount();
    QCoreApplication::processEvents();
    paints += p.paints.paints;
  }
  state.counters["frames_per_second"] = frames / seconds;
  state.counters["panel_paints_per_second"] = paints / seconds;
  state.counters["frames_per_slide"] = frames / double(state.iterations());
}
BENCHMARK(BM_SlideInOnTheTimer)->Iterations(4)->Unit(benchmark::kMillisecond)->UseRealTime();

// One frame step: the edge moves by about 140 points and the 50 children
// ride along; with `paint`, the resulting repaint is done too.
void frameStep(benchmark::State& state, bool paint) {
  Panels p;
  VTAccesoryViewAnimation* animation = p.container->animationObject();
  animation->setSlideInTimeAmount(1e9); // driven by injected time stamps only
  p.container->swapOut();
  p.container->slideIn();
  const double start = animation->startTimeStamp();
  bool flip = false;
  for (auto _ : state) {
    flip = !flip;
    animation->handleIdle(nullptr, start + (flip ? 0.4e9 : 0.6e9));
    if (paint)
      QCoreApplication::processEvents();
  }
  animation->stopAnimation();
}
void BM_FrameStep(benchmark::State& state) {
  frameStep(state, false);
}
void BM_FrameStepPainted(benchmark::State& state) {
  frameStep(state, true);
}
BENCHMARK(BM_FrameStep)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FrameStepPainted)->Unit(benchmark::kMicrosecond);

// The peer: QSplitter moving the same edge by the same amount, the panel's
// 50 children laid out by a grid layout.
void BM_QSplitterSetSizes(benchmark::State& state) {
  ensureApplication();
  QSplitter splitter;
  splitter.resize(kWidth, kHeight);
  auto* main = new QWidget;
  auto* panel = new QWidget;
  fillPanel(panel, true);
  splitter.addWidget(main);
  splitter.addWidget(panel);
  splitter.show();
  QCoreApplication::processEvents();
  bool flip = false;
  for (auto _ : state) {
    flip = !flip;
    const int shown = flip ? 140 : 260;
    splitter.setSizes({kWidth - shown, shown});
    QCoreApplication::processEvents();
  }
}
BENCHMARK(BM_QSplitterSetSizes)->Unit(benchmark::kMicrosecond);

} // namespace
