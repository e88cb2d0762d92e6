#include <vtcore/ui/common/initialize.h>

#include <vtcore/ui/common/alert_presenter.h>
#include <vtcore/ui/common/image_resources.h>

namespace vtcore {

void initializeUi() {
  detail::registerImageResources();
  installQtAlertPresenter();
}

} // namespace vtcore
