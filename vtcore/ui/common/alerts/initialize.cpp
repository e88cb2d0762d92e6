#include <vtcore/ui/common/alerts/initialize.h>

#include <vtcore/core/diagnostics/exception/exception_report.h>
#include <vtcore/ui/common/alerts/alert_presenter.h>
#include <vtcore/ui/common/images/images.h>

#include <QCoreApplication>

#include <cstdlib>

namespace vtcore {

void initializeUi() {
  registerImageResources();
  installQtAlertPresenter();
  // "Stop" in the exception report quits the way the application always
  // does: windows are asked to close, aboutToQuit is emitted and exec()
  // returns, instead of exit(0) under the running event loop. Queued, so
  // that it also works from another thread and before exec() has started.
  setTerminateHook([] {
    QCoreApplication* application = QCoreApplication::instance();
    if (!application)
      std::exit(0); // no application left to quit: the plain normal exit
    QMetaObject::invokeMethod(application, &QCoreApplication::quit, Qt::QueuedConnection);
  });
}

} // namespace vtcore
