#include <vtcore/core/diagnostics/alert.h>
#include <vtcore/core/diagnostics/log.h>
#include <vtcore/ui/common/alert_presenter.h>
#include <vtcore/ui/common/initialize.h>

#include <QAbstractButton>
#include <QApplication>
#include <QEventLoop>
#include <QMessageBox>
#include <QTimer>
#include <gtest/gtest.h>

#include <string>
#include <thread>

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

// Clicks the button titled `title` of the first message box that shows up,
// from the event loop the box runs. Returns the polling timer.
std::unique_ptr<QTimer> clickWhenShown(const QString& title, QString* seenMessage = nullptr) {
  auto poll = std::make_unique<QTimer>();
  QTimer* timer = poll.get();
  QObject::connect(timer, &QTimer::timeout, [timer, title, seenMessage] {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
      auto* box = qobject_cast<QMessageBox*>(widget);
      if (!box || !box->isVisible())
        continue;
      for (QAbstractButton* button : box->buttons()) {
        if (button->text() == title) {
          if (seenMessage)
            *seenMessage = box->informativeText();
          timer->stop();
          button->click();
          return;
        }
      }
    }
  });
  poll->start(0);
  return poll;
}

struct ButtonAnswer {
  const char* title;
  int answer;
};

class QtAlertButtons : public testing::TestWithParam<ButtonAnswer> {};

} // namespace

TEST_P(QtAlertButtons, EachButtonGivesItsAnswer) {
  QString message;
  auto clicker = clickWhenShown(QString::fromUtf8(GetParam().title), &message);
  EXPECT_EQ(vtcore::presentQtAlert(threeButtonRequest()), GetParam().answer);
  EXPECT_EQ(message, QString::fromUtf8("Message with ümlauts"));
}

INSTANTIATE_TEST_SUITE_P(Answers, QtAlertButtons,
                         testing::Values(ButtonAnswer{"Resume", vtcore::kAlertDefault},
                                         ButtonAnswer{"Debugger", vtcore::kAlertAlternate},
                                         ButtonAnswer{"Stop", vtcore::kAlertOther}),
                         [](const testing::TestParamInfo<ButtonAnswer>& param) {
                           return std::string(param.param.title);
                         });

TEST(QtAlert, TimeOutAnswersCancel) {
  vtcore::AlertRequest request = threeButtonRequest();
  request.timeoutSeconds = 0.01;
  EXPECT_EQ(vtcore::presentQtAlert(request), vtcore::kAlertCancel);
}

TEST(QtAlert, OnlyTheDefaultButtonWhenTheOthersHaveNoTitle) {
  vtcore::AlertRequest request;
  request.header = icu::UnicodeString::fromUTF8("Note");
  int buttons = -1;
  QTimer poll;
  QObject::connect(&poll, &QTimer::timeout, [&] {
    if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
      buttons = static_cast<int>(box->buttons().size());
      poll.stop();
      box->buttons().front()->click();
    }
  });
  poll.start(0);
  EXPECT_EQ(vtcore::presentQtAlert(request), vtcore::kAlertDefault);
  EXPECT_EQ(buttons, 1);
}

TEST(QtAlert, WorkerThreadAlertIsShownOnTheMainThread) {
  vtcore::AlertRequest request = threeButtonRequest();
  request.timeoutSeconds = 0.01;
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
  auto clicker = clickWhenShown(QStringLiteral("Debugger"));
  EXPECT_EQ(dbgASSERT(0, "1 == 2", "alert_presenter_test", nullptr), 1);
  vtcore::setAlertPresenter({});
}
