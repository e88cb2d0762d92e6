#include <vtcore/ui/common/alerts/initialize.h>

#include <vtcore/ui/common/alerts/alert_presenter.h>
#include <vtcore/ui/common/images/images.h>

namespace vtcore {

void initializeUi() {
  registerImageResources();
  installQtAlertPresenter();
}

} // namespace vtcore
