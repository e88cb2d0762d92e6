#include <vtcore/ui/common/alerts/alert_presenter.h>

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QThread>
#include <QTimer>

#include <cmath>

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

} // namespace

int presentQtAlert(const AlertRequest& request) {
  auto* application = qobject_cast<QApplication*>(QCoreApplication::instance());
  if (!application)
    return kAlertDefault;
  if (QThread::currentThread() == application->thread())
    return showOnThisThread(request);
  int answer = kAlertCancel;
  QMetaObject::invokeMethod(
      application, [&request] { return showOnThisThread(request); }, Qt::BlockingQueuedConnection,
      &answer);
  return answer;
}

AlertPresenter installQtAlertPresenter() {
  return setAlertPresenter(&presentQtAlert);
}

} // namespace vtcore
