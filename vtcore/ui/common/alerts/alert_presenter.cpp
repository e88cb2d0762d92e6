#include <vtcore/ui/common/alerts/alert_presenter.h>

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

namespace vtcore {
namespace {

QString toQString(const icu::UnicodeString& text) {
  return QString::fromUtf16(reinterpret_cast<const char16_t*>(text.getBuffer()), text.length());
}

QMessageBox::Icon iconFor(AlertLevel level) {
  switch (level) {
  case AlertLevel::Note:
    return QMessageBox::Information;
  case AlertLevel::Caution:
    return QMessageBox::Warning;
  case AlertLevel::Stop:
  case AlertLevel::Critical:
    break;
  }
  return QMessageBox::Critical;
}

int showOnThisThread(const AlertRequest& request) {
  QMessageBox box;
  box.setIcon(iconFor(request.level));
  const QString application = QApplication::applicationDisplayName();
  box.setWindowTitle(application.isEmpty() ? toQString(request.header) : application);
  box.setText(toQString(request.header));
  box.setInformativeText(toQString(request.message));
  box.setWindowModality(Qt::ApplicationModal);

  // Only the default button has the accept role: with the other two as plain
  // actions Escape never picks one of them (an accidental "Debugger" or
  // "Stop" would be worse than no answer).
  const QString defaultTitle = toQString(request.defaultButton);
  QPushButton* defaultButton = box.addButton(
      defaultTitle.isEmpty() ? QStringLiteral("OK") : defaultTitle, QMessageBox::AcceptRole);
  QPushButton* alternateButton =
      request.alternateButton.isEmpty()
          ? nullptr
          : box.addButton(toQString(request.alternateButton), QMessageBox::ActionRole);
  QPushButton* otherButton =
      request.otherButton.isEmpty()
          ? nullptr
          : box.addButton(toQString(request.otherButton), QMessageBox::ActionRole);
  box.setDefaultButton(defaultButton);

  bool timedOut = false;
  QTimer timeout;
  if (request.timeoutSeconds > 0 && std::isfinite(request.timeoutSeconds)) {
    timeout.setSingleShot(true);
    QObject::connect(&timeout, &QTimer::timeout, &box, [&] {
      timedOut = true;
      box.done(QDialog::Rejected);
    });
    const double milliseconds = std::min(request.timeoutSeconds * 1000.0, 2147483647.0);
    timeout.start(static_cast<int>(std::max(1.0, milliseconds)));
  }
  box.exec();

  const QAbstractButton* clicked = box.clickedButton();
  if (timedOut || !clicked)
    return kAlertCancel;
  if (clicked == defaultButton)
    return kAlertDefault;
  if (clicked == alternateButton)
    return kAlertAlternate;
  if (clicked == otherButton)
    return kAlertOther;
  return kAlertCancel;
}

// An alert asked from another thread than the main one. Shared between the
// asking thread and the main thread's queued call, so that the asker may give
// up at its time-out while the call is still queued.
struct PendingAlert {
  std::mutex mutex;
  std::condition_variable answered;
  AlertRequest request;
  std::optional<int> answer;
  bool abandoned = false;
  std::optional<std::chrono::steady_clock::time_point> deadline;
};

void showPending(const std::shared_ptr<PendingAlert>& pending) {
  AlertRequest shown;
  {
    std::lock_guard lock(pending->mutex);
    if (pending->abandoned)
      return; // the asker has given up: the box would answer no one
    shown = pending->request;
  }
  int answer = kAlertCancel;
  if (pending->deadline) {
    // The box closes when the asker gives up, however long the call queued.
    const std::chrono::duration<double> left =
        *pending->deadline - std::chrono::steady_clock::now();
    shown.timeoutSeconds = left.count();
    if (left.count() > 0)
      answer = showOnThisThread(shown);
  } else {
    answer = showOnThisThread(shown);
  }
  std::lock_guard lock(pending->mutex);
  pending->answer = answer;
  pending->answered.notify_all();
}

int presentFromAnotherThread(QApplication* application, const AlertRequest& request) {
  auto pending = std::make_shared<PendingAlert>();
  pending->request = request;
  if (request.timeoutSeconds > 0 && std::isfinite(request.timeoutSeconds)) {
    // Held below a day's worth of seconds per step, so that the time point
    // cannot overflow.
    pending->deadline = std::chrono::steady_clock::now() +
                        std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                            std::chrono::duration<double>(std::min(request.timeoutSeconds, 1e9)));
  }
  QMetaObject::invokeMethod(
      application, [pending] { showPending(pending); }, Qt::QueuedConnection);

  std::unique_lock lock(pending->mutex);
  const auto answered = [&pending] { return pending->answer.has_value(); };
  if (!pending->deadline) {
    pending->answered.wait(lock, answered);
    return *pending->answer;
  }
  // The main thread may not be running its event loop (it may be waiting for
  // this very thread): the time-out holds all the same.
  if (!pending->answered.wait_until(lock, *pending->deadline, answered)) {
    pending->abandoned = true;
    return kAlertCancel;
  }
  return *pending->answer;
}

} // namespace

int presentQtAlert(const AlertRequest& request) {
  auto* application = qobject_cast<QApplication*>(QCoreApplication::instance());
  if (!application)
    return kAlertDefault;
  if (QThread::currentThread() == application->thread())
    return showOnThisThread(request);
  return presentFromAnotherThread(application, request);
}

AlertPresenter installQtAlertPresenter() {
  return setAlertPresenter(&presentQtAlert);
}

} // namespace vtcore
