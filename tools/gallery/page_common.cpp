// Gallery samples of the common pieces: the timer, the border view, the
// library's images and the alert presenter.
#include "gallery.h"

#include <vtcore/ui.h>

#include <QDir>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

// The target of the sample timer: counts its firings.
class TimerCounter : public QObject {
  Q_OBJECT
public:
  explicit TimerCounter(QLabel* display, QLabel* state, QObject* parent)
      : QObject(parent), m_display(display), m_state(state) {}

  void showState(const KwTimer& timer, const QString& how) {
    m_state->setText(timer.isActive() ? how : QStringLiteral("stopped"));
  }

public Q_SLOTS:
  void tick(KwTimer* timer) {
    m_display->setText(QStringLiteral("%1").arg(++m_count, 4, 10, QLatin1Char('0')));
    if (!timer->isActive())
      m_state->setText(QStringLiteral("stopped (it ran once)"));
  }

private:
  QLabel* m_display;
  QLabel* m_state;
  int m_count = 0;
};

QWidget* makeTimerSample() {
  auto* sample = new QWidget;
  auto* layout = new QVBoxLayout(sample);

  auto* display = new QLabel(QStringLiteral("0000"));
  QFont big = display->font();
  big.setPointSize(28);
  big.setBold(true);
  big.setStyleHint(QFont::Monospace);
  big.setFamily(QStringLiteral("DejaVu Sans Mono"));
  display->setFont(big);
  auto* state = new QLabel;
  auto* counter = new TimerCounter(display, state, sample);

  // Ten times a second; owned by the sample through Qt's parent ownership.
  auto* timer = new KwTimer(0.1, counter, "tick(KwTimer*)");
  timer->setParent(sample);

  auto* buttons = new QHBoxLayout;
  const auto addButton = [&](const char* title, std::function<void()> run) {
    auto* button = new QPushButton(QString::fromUtf8(title));
    QObject::connect(button, &QPushButton::clicked, sample, std::move(run));
    buttons->addWidget(button);
  };
  addButton("Start", [=] {
    timer->start();
    counter->showState(*timer, QStringLiteral("running every 0.1 s"));
  });
  addButton("Start at 0.5 s", [=] {
    timer->startWithTimeInterval(0.5);
    counter->showState(*timer, QStringLiteral("running (started while running: unchanged)"));
  });
  addButton("Stop", [=] {
    timer->stop();
    counter->showState(*timer, {});
  });
  addButton("Fire", [=] { timer->fire(); });
  buttons->addStretch(1);

  auto* top = new QHBoxLayout;
  top->addWidget(display);
  top->addWidget(state, 1);
  layout->addLayout(top);
  layout->addLayout(buttons);

  timer->start();
  counter->showState(*timer, QStringLiteral("running every 0.1 s"));
  return sample;
}

QLabel* makePane(const QString& text, QPalette::ColorRole role) {
  auto* pane = new QLabel(text);
  pane->setAlignment(Qt::AlignCenter);
  pane->setAutoFillBackground(true);
  pane->setBackgroundRole(role);
  pane->setMinimumHeight(60);
  return pane;
}

QWidget* makeBorderViewSample() {
  auto* sample = new QWidget;
  auto* grid = new QGridLayout(sample);
  grid->setSpacing(0);

  auto* vertical = new DfBorderView;
  vertical->setBorderEdges(Qt::LeftEdge | Qt::RightEdge);
  vertical->setFixedWidth(9);
  auto* horizontal = new DfBorderView;
  horizontal->setBorderEdges(Qt::TopEdge | Qt::BottomEdge);
  horizontal->setFixedHeight(9);

  grid->addWidget(makePane(QStringLiteral("main view"), QPalette::Base), 0, 0);
  grid->addWidget(vertical, 0, 1);
  grid->addWidget(makePane(QStringLiteral("accessory"), QPalette::AlternateBase), 0, 2);
  grid->addWidget(horizontal, 1, 0, 1, 3);
  grid->addWidget(makePane(QStringLiteral("accessory below"), QPalette::AlternateBase), 2, 0, 1, 3);
  grid->setColumnStretch(0, 2);
  grid->setColumnStretch(2, 1);
  return sample;
}

QWidget* makeImagesSample() {
  auto* sample = new QWidget;
  // One image a line, its name below it: pictures as wide as a keyboard do
  // not fit side by side.
  auto* column = new QVBoxLayout(sample);
  const QStringList files =
      QDir(QStringLiteral(":/vtcore/images")).entryList({QStringLiteral("*.png")}, QDir::Files);
  for (const QString& file : files) {
    if (file.contains(QLatin1String("@2x")))
      continue;
    const QString name = file.chopped(4);
    auto* picture = new QLabel;
    picture->setPixmap(QPixmap::fromImage(kw_loadQuillonBundleImage(name)));
    column->addWidget(picture);
    column->addWidget(new QLabel(QStringLiteral("\"%1\"").arg(name)));
  }
  column->addStretch(1);
  return sample;
}

QWidget* makeAlertSample() {
  auto* sample = new QWidget;
  auto* row = new QHBoxLayout(sample);
  auto* button = new QPushButton(QStringLiteral("Ask through the alert hook"));
  auto* answer = new QLabel(QStringLiteral("answer: -"));
  QObject::connect(button, &QPushButton::clicked, sample, [answer] {
    vtcore::AlertRequest request;
    request.level = vtcore::AlertLevel::Caution;
    request.header = icu::UnicodeString::fromUTF8("Something unexpected happened");
    request.message = icu::UnicodeString::fromUTF8(
        "This is the alert that failed assertions show. It closes by itself after 10 s, "
        "and the timer above keeps counting meanwhile.");
    request.defaultButton = icu::UnicodeString::fromUTF8("Resume");
    request.alternateButton = icu::UnicodeString::fromUTF8("Debugger");
    request.otherButton = icu::UnicodeString::fromUTF8("Stop");
    request.timeoutSeconds = 10;
    static const char* const names[] = {"0 (Resume)", "1 (Debugger)", "2 (Stop)", "3 (time-out)"};
    const int result = vtcore::presentAlert(request);
    answer->setText(QStringLiteral("answer: %1").arg(QString::fromUtf8(names[result & 3])));
  });
  row->addWidget(button);
  row->addWidget(answer, 1);
  return sample;
}

const vtcore::gallery::Sample timerSample{
    10, "KwTimer",
    "A restartable timer: it keeps its interval and target while stopped, ignores a start "
    "while running, and keeps firing while a dialog is open or the mouse is held. "
    "After Stop, \"Start at 0.5 s\" runs at that rate for one run only: Stop and Start are "
    "back at 0.1 s.",
    makeTimerSample};
const vtcore::gallery::Sample borderSample{
    11, "DfBorderView",
    "The border view with its grip handle, drawn in the style's palette; the splitter of the "
    "accessory views is built on it. Hover to see the grip darken.",
    makeBorderViewSample};
const vtcore::gallery::Sample imagesSample{
    12, "kw_loadQuillonBundleImage",
    "The library's own images, compiled into vtcore-ui and loaded by name.", makeImagesSample};
const vtcore::gallery::Sample alertSample{
    13, "Alert presenter",
    "vtcore::initializeUi() installs a QMessageBox presenter into the core's alert hook: "
    "assertions and the exception report ask the user through it, with a time-out.",
    makeAlertSample};

} // namespace

#include "page_common.moc"
