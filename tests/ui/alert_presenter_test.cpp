#include <vtcore/core/diagnostics/exception/exception_report.h>
#include <vtcore/core/diagnostics/log/log.h>
#include <vtcore/core/platform/alert.h>
#include <vtcore/ui/common/alerts/alert_presenter.h>
#include <vtcore/ui/common/alerts/initialize.h>

#include <QAbstractButton>
#include <QApplication>
#include <QCloseEvent>
#include <QEventLoop>
#include <QMessageBox>
#include <QTimer>
#include <QWidget>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

vtcore::AlertRequest threeButtonRequest() {
  vtcore::AlertRequest request;
  request.level = vtcore::AlertLevel::Caution;
  request.header = icu::UnicodeString::fromUTF8("Header");
  request.message = icu::UnicodeString::fromUTF8("Message with ümlauts");
  request.defaultButton = icu::UnicodeString::fromUTF8("Resume");
  request.alternateButton = icu::UnicodeString::fromUTF8("Debugger");
  request.otherButton = icu::UnicodeString::fromUTF8("Stop");
  return request;
}

// Clicks the button titled `title` (the first one if `title` is empty) of
// the first message box that shows up, from the event loop the box runs, and
// records what the box showed.
struct BoxClicker {
  QString message;
  int buttons = -1;
  QTimer poll;

  explicit BoxClicker(const QString& title) {
    QObject::connect(&poll, &QTimer::timeout, [this, title] {
      auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
      for (QAbstractButton* button : box ? box->buttons() : QList<QAbstractButton*>()) {
        if (title.isEmpty() || button->text() == title) {
          message = box->informativeText();
          buttons = static_cast<int>(box->buttons().size());
          poll.stop();
          button->click();
          return;
        }
      }
    });
    poll.start(0);
  }
};

// Counts the message boxes that were shown while it lives.
class ShownBoxes : public QObject {
public:
  ShownBoxes() { qApp->installEventFilter(this); }
  ~ShownBoxes() override { qApp->removeEventFilter(this); }
  int count = 0;

protected:
  bool eventFilter(QObject* object, QEvent* event) override {
    if (event->type() == QEvent::Show && qobject_cast<QMessageBox*>(object))
      ++count;
    return false;
  }
};

struct Window : QWidget {
  bool closed = false;
  void closeEvent(QCloseEvent* event) override {
    closed = true;
    QWidget::closeEvent(event);
  }
};

// Set while the application is being quit on purpose: an exit() instead of
// the quit sequence would otherwise end the test process with status 0.
std::atomic<bool> quitSequenceExpected{false};

} // namespace

TEST(QtAlert, EachButtonGivesItsAnswer) {
  const std::pair<const char*, int> cases[] = {{"Resume", vtcore::kAlertDefault},
                                               {"Debugger", vtcore::kAlertAlternate},
                                               {"Stop", vtcore::kAlertOther}};
  for (const auto& [title, answer] : cases) {
    BoxClicker clicker(QString::fromUtf8(title));
    EXPECT_EQ(vtcore::presentQtAlert(threeButtonRequest()), answer) << title;
    EXPECT_EQ(clicker.message, QString::fromUtf8("Message with ümlauts"));
  }

  // Buttons without a title are left out.
  vtcore::AlertRequest request;
  request.header = icu::UnicodeString::fromUTF8("Note");
  BoxClicker clicker{QString()};
  EXPECT_EQ(vtcore::presentQtAlert(request), vtcore::kAlertDefault);
  EXPECT_EQ(clicker.buttons, 1);
}

TEST(QtAlert, TimeOutAnswersCancelOnTheMainOrAWorkerThread) {
  vtcore::AlertRequest request = threeButtonRequest();
  request.timeoutSeconds = 0.01;
  EXPECT_EQ(vtcore::presentQtAlert(request), vtcore::kAlertCancel);

  // From a worker, the box is shown by the main thread's event loop.
  int answer = -1;
  QEventLoop loop;
  std::thread worker([&] {
    answer = vtcore::presentQtAlert(request);
    QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
  });
  loop.exec();
  worker.join();
  EXPECT_EQ(answer, vtcore::kAlertCancel);
}

TEST(QtAlert, InitializationInstallsThePresenterThatAssertionsAsk) {
  vtcore::initializeUi();
  // dbgASSERT's alternate button breaks into the debugger: it answers 1.
  BoxClicker clicker(QStringLiteral("Debugger"));
  EXPECT_EQ(dbgASSERT(0, "1 == 2", "alert_presenter_test", nullptr), 1);
  vtcore::setAlertPresenter({});
}

// The worker asks while the main thread runs no event loop (here it waits
// for the worker): the answer still comes at the time-out, and the box that
// was queued for the main thread is never shown afterwards.
TEST(QtAlert, AWorkerIsAnsweredAtItsTimeOutWhenTheMainThreadRunsNoEventLoop) {
  vtcore::AlertRequest request = threeButtonRequest();
  request.timeoutSeconds = 0.05;
  ShownBoxes shown;
  int answer = -1;
  std::thread worker([&] { answer = vtcore::presentQtAlert(request); });
  worker.join();
  EXPECT_EQ(answer, vtcore::kAlertCancel);
  QCoreApplication::processEvents();
  EXPECT_EQ(shown.count, 0);
}

// "Stop" in the exception report, with the hooks initializeUi installs, ends
// the event loop through the application's quit sequence.
TEST(QtAlert, StopInTheExceptionReportQuitsTheApplicationThroughItsQuitSequence) {
  std::atexit([] {
    if (quitSequenceExpected)
      _exit(3); // exit() was called instead of quitting the event loop
  });
  vtcore::initializeUi();
  Window window;
  window.show();
  bool aboutToQuit = false;
  const auto connection = QObject::connect(qApp, &QCoreApplication::aboutToQuit,
                                           [&aboutToQuit] { aboutToQuit = true; });
  BoxClicker clicker(QStringLiteral("Stop"));
  QTimer::singleShot(0, [] { KWDisplayExceptionReport(std::runtime_error("unexpected")); });
  quitSequenceExpected = true;
  const int status = QApplication::exec();
  quitSequenceExpected = false;
  QObject::disconnect(connection);
  vtcore::setTerminateHook({});
  vtcore::setAlertPresenter({});

  EXPECT_EQ(status, 0);
  EXPECT_NE(clicker.message.indexOf(QStringLiteral("unexpected")), -1);
  EXPECT_TRUE(aboutToQuit);
  EXPECT_TRUE(window.closed);
  EXPECT_FALSE(window.isVisible());
}
