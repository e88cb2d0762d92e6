#include <vtcore/ui/common/alerts/initialize.h>

#include <vtcore/ui/common/alerts/alert_presenter.h>
#include <vtcore/ui/common/images/detail/image_resources.h>

namespace vtcore {

void initializeUi() {
  detail::registerImageResources();
  installQtAlertPresenter();
}

} // namespace vtcore
