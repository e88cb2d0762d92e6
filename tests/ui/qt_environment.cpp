// One QApplication for every UI test, made before the first test runs and
// only then, so that listing the tests needs no display.
#include <QApplication>
#include <gtest/gtest.h>

#include <memory>

// Leaks of system libraries that Qt's xcb platform loads (D-Bus for the
// accessibility bridge, fontconfig's caches) are not ours and end with the
// process; LeakSanitizer reads this list when it is linked in.
extern "C" const char* __lsan_default_suppressions();
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libdbus-1.so\nleak:libfontconfig.so\n";
}

// Qt and GLib are not built with ThreadSanitizer: the locks and queues by
// which they hand work between threads (queued calls, the X event reader)
// are invisible to it, and every hand-off looks like a race. Races with a
// Qt or GLib frame on either stack are therefore not reported.
extern "C" const char* __tsan_default_suppressions();
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
  return "race:libQt6Core.so\nrace:libQt6Gui.so\nrace:libQt6Widgets.so\n"
         "race:libQt6XcbQpa.so\nrace:libglib-2.0.so\n";
}

namespace {

class QtEnvironment : public testing::Environment {
public:
  void SetUp() override {
    // The tests run offscreen unless the environment chooses a platform.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
      qputenv("QT_QPA_PLATFORM", "offscreen");
    m_application = std::make_unique<QApplication>(m_argc, m_argv);
  }
  void TearDown() override { m_application.reset(); }

private:
  char m_name[16] = "vtcore-ui-test";
  char* m_argv[2] = {m_name, nullptr};
  int m_argc = 1;
  std::unique_ptr<QApplication> m_application;
};

[[maybe_unused]] testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(new QtEnvironment);

} // namespace
