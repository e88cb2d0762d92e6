// One QApplication for every UI test, made when the tests start (listing
// them makes none). CTest chooses the platform: offscreen, or xcb under
// xvfb-run for the real-window tests. The UI is not built under
// ThreadSanitizer, so only LeakSanitizer needs suppressions.
#include <QApplication>
#include <gtest/gtest.h>

#include <memory>

// Leaks inside system libraries that Qt's xcb platform loads (D-Bus for the
// accessibility bridge, fontconfig's caches) are not ours.
extern "C" const char* __lsan_default_suppressions();
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libdbus-1.so\nleak:libfontconfig.so\n";
}

namespace {

class QtEnvironment : public testing::Environment {
  void SetUp() override { m_application = std::make_unique<QApplication>(m_argc, m_argv); }
  void TearDown() override { m_application.reset(); }

  char m_name[8] = "ui-test";
  char* m_argv[2] = {m_name, nullptr};
  int m_argc = 1;
  std::unique_ptr<QApplication> m_application;
};

[[maybe_unused]] testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(new QtEnvironment);

} // namespace
