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

int presentAlert(const AlertRequest& request) noexcept {
  try {
    AlertPresenter presenter;
    {
      // The presenter runs outside the lock: it blocks for as long as the
      // user takes, and may itself assert. The copy may fail for want of
      // memory, which counts as a cancelled alert.
      std::lock_guard lock(presenterMutex());
      presenter = installedPresenter();
    }
    if (!presenter)
      return kAlertDefault;
    int answer = presenter(request);
    return answer >= kAlertDefault && answer <= kAlertCancel ? answer : kAlertCancel;
  } catch (...) {
    return kAlertCancel;
  }
}

} // namespace vtcore
