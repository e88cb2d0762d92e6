#include <vtcore/core/platform/alert.h>

#include <mutex>

namespace vtcore {
namespace {
std::mutex& presenterMutex() {
  static std::mutex mutex;
  return mutex;
}
AlertPresenter& installedPresenter() {
  static AlertPresenter presenter;
  return presenter;
}
} // namespace

AlertPresenter setAlertPresenter(AlertPresenter presenter) {
  std::lock_guard lock(presenterMutex());
  std::swap(installedPresenter(), presenter);
  return presenter;
}

int presentAlert(const AlertRequest& request) {
  AlertPresenter presenter;
  {
    // The presenter runs outside the lock: it blocks for as long as the user
    // takes, and may itself assert.
    std::lock_guard lock(presenterMutex());
    presenter = installedPresenter();
  }
  if (!presenter)
    return kAlertDefault;
  try {
    int answer = presenter(request);
    return answer >= kAlertDefault && answer <= kAlertCancel ? answer : kAlertCancel;
  } catch (...) {
    return kAlertCancel;
  }
}

} // namespace vtcore
