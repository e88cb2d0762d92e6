#include <vtcore/ui/views/accessory/accessory_container_view.h>

#include <QEvent>
#include <QResizeEvent>

void VTAccessoryContainerViewDelegate::accessoryContainerViewWillBeginAnimation(
    VTAccessoryContainerView*) {}
void VTAccessoryContainerViewDelegate::accessoryContainerViewDidEndAnimation(
    VTAccessoryContainerView*) {}
void VTAccessoryContainerViewDelegate::accessoryContainerViewWillStartUserResize(
    VTAccessoryContainerView*) {}
void VTAccessoryContainerViewDelegate::accessoryContainerViewDidEndUserResize(
    VTAccessoryContainerView*) {}

VTAccessoryContainerView::VTAccessoryContainerView(QWidget* parent)
    : QWidget(parent), m_animation(std::make_unique<VTAccesoryViewAnimation>(this)) {
  m_animation->setDelegate(this);
}

VTAccessoryContainerView::~VTAccessoryContainerView() {
  m_animation->setMainView(nullptr);
  m_animation->setSlideView(nullptr);
  m_animation->setDelegate(nullptr);
  // A panel out of the hierarchy would have been deleted with the other
  // children; putting it back is not safe while the window around the
  // container may be half torn down, so it is deleted directly.
  m_animation->deleteRemovedViews();
  m_animation.reset();
}

void VTAccessoryContainerView::adopt(QWidget* view) {
  if (!view || view->parentWidget() == this)
    return;
  const QRect frame = view->geometry();
  const bool hidden = view->isHidden();
  view->setParent(this);
  view->setGeometry(frame);
  if (!hidden)
    view->show();
}

void VTAccessoryContainerView::setMainView(QWidget* view) {
  adopt(view);
  m_mainView = view;
  // A view taken away is taken from the animation at once.
  if (!view)
    m_animation->setMainView(nullptr);
  if (m_mainView && m_slideView)
    awakeFromNib();
}

void VTAccessoryContainerView::setSlideView(QWidget* view) {
  adopt(view);
  m_slideView = view;
  // A view taken away is taken from the animation at once.
  if (!view)
    m_animation->setSlideView(nullptr);
  if (m_mainView && m_slideView)
    awakeFromNib();
}

void VTAccessoryContainerView::awakeFromNib() {
  m_animation->setSlideView(m_slideView);
  m_animation->setMainView(m_mainView);
  m_animation->resetProperties();
  // The frames as they are now are the arrangement later resizes start from.
  vtcore::markSubviewsLaidOut(this);
}

void VTAccessoryContainerView::setSlave(VTAccessoryContainerView* slave) {
  m_animation->setSlave(slave ? slave->animationObject() : nullptr);
}

void VTAccessoryContainerView::accessorySplitterWillStartResize(VTAccessorySplitter*) {
  m_animation->onBeginUserResize();
  if (VTAccessoryContainerViewDelegate* delegate = m_delegate.get())
    delegate->accessoryContainerViewWillStartUserResize(this);
}

void VTAccessoryContainerView::accessorySplitterDidEndResize(VTAccessorySplitter*) {
  m_animation->onEndUserResize();
  if (VTAccessoryContainerViewDelegate* delegate = m_delegate.get())
    delegate->accessoryContainerViewDidEndUserResize(this);
}

void VTAccessoryContainerView::accessorySplitter(VTAccessorySplitter*, float delta) {
  // Qt's y grows downwards: towards the main view is +x for a panel on the
  // left, -x on the right, +y above and -y below.
  const int alignment = m_animation->slideAlignment();
  doUserResize(alignment == 2 || alignment == 4 ? -delta : delta);
}

void VTAccessoryContainerView::resizeSubviewsWithOldSize(const QSize& oldSize) {
  m_animation->resizeRemovedViewsWithOldSize(oldSize, size());
  vtcore::resizeSubviewsWithOldSize(this, oldSize);
}

void VTAccessoryContainerView::adoptViewsFromChildren() {
  if (m_mainView || m_slideView)
    return;
  std::vector<QWidget*> views;
  for (QObject* child : children()) {
    QWidget* widget = child->isWidgetType() ? static_cast<QWidget*>(child) : nullptr;
    if (widget && !widget->isWindow())
      views.push_back(widget);
    if (views.size() == 2)
      break;
  }
  if (views.size() < 2)
    return;
  // Both are stored before awakeFromNib() runs, so that it runs once.
  m_mainView = views[0];
  m_slideView = views[1];
  awakeFromNib();
}

bool VTAccessoryContainerView::event(QEvent* event) {
  const bool handled = QWidget::event(event);
  // Generated form code and QUiLoader make the children and set their frames
  // in one go; Qt polishes a new widget only afterwards, when control is
  // back in the event loop or before it is first shown.
  if (event->type() == QEvent::Polish)
    adoptViewsFromChildren();
  return handled;
}

void VTAccessoryContainerView::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  vtcore::layoutSubviewsIfResized(this);
}

void VTAccessoryContainerView::accessoryViewAnimationWillBeginAnimation(VTAccesoryViewAnimation*) {
  if (VTAccessoryContainerViewDelegate* delegate = m_delegate.get())
    delegate->accessoryContainerViewWillBeginAnimation(this);
}

void VTAccessoryContainerView::accessoryViewAnimationDidEndAnimation(VTAccesoryViewAnimation*) {
  if (VTAccessoryContainerViewDelegate* delegate = m_delegate.get())
    delegate->accessoryContainerViewDidEndAnimation(this);
}
