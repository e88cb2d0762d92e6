// The smallest vtcore-ui application: a KwTimer ticks three times into a
// target, a library image loads and a border view paints; then it quits.
// Runs without a display with `-platform offscreen` (or QT_QPA_PLATFORM=offscreen).
#include <vtcore/ui.h>

#include <QApplication>
#include <cstdio>

class Ticker : public QObject {
  Q_OBJECT
public:
  int ticks = 0;

public Q_SLOTS:
  void tick(KwTimer* timer) {
    if (++ticks == 3) {
      timer->stop();
      QApplication::quit();
    }
  }
};

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  vtcore::initializeUi();

  Ticker ticker;
  KwTimer timer(0.01, &ticker, "tick(KwTimer*)");
  timer.start();
  QApplication::exec();

  const QImage logo = kw_loadQuillonBundleImage(QStringLiteral("vtcore-logo"));
  DfBorderView border;
  border.resize(100, 9);
  const bool painted = !border.grab().isNull();

  std::printf("ui-consumer: %d ticks, logo %dx%d, border view %s\n", ticker.ticks, logo.width(),
              logo.height(), painted ? "painted" : "not painted");
  return ticker.ticks == 3 && !logo.isNull() && painted ? 0 : 1;
}

#include "main.moc"
