#include <vtcore/ui/views/animation/accessory_view_animation.h>

#include <algorithm>
#include <cmath>

namespace {

// Sizes and times given by applications: not-a-number leaves the old value,
// below zero counts as zero.
template <class T>
void setSanitized(T& field, T value) {
  if (std::isnan(value))
    return;
  field = std::max(value, T(0));
}

} // namespace

void VTAccesoryViewAnimationDelegate::accessoryViewAnimationWillBeginAnimation(
    VTAccesoryViewAnimation*) {}
void VTAccesoryViewAnimationDelegate::accessoryViewAnimationDidEndAnimation(
    VTAccesoryViewAnimation*) {}

VTAccesoryViewAnimation::VTAccesoryViewAnimation(QWidget* rootView) : m_rootView(rootView) {}

VTAccesoryViewAnimation::~VTAccesoryViewAnimation() {
  restoreResizeBehavior();
  // Views out of the hierarchy have no Qt parent: give them back to their
  // former parents so that they are not lost, or delete the ones nobody
  // would ever own again.
  for (RemovedView& removed : m_removedViewsSuperviews) {
    if (!removed.view)
      continue;
    if (removed.superview)
      removed.view->setParent(removed.superview);
    else
      delete removed.view.data();
  }
}

void VTAccesoryViewAnimation::resetProperties() {
  if (!m_mainView || !m_slideView)
    return;
  const QRect main = m_mainView->geometry();
  const QRect slide = m_slideView->geometry();
  if (main.x() > slide.x())
    m_SlideAlignment = 1;
  else if (main.x() < slide.x())
    m_SlideAlignment = 2;
  else // y-down: the slide view is below when its top is lower down
    m_SlideAlignment = slide.y() > main.y() ? 4 : 3;
  m_slidedInSize = sizeOf(m_slideView);
  m_state = m_slidedOutSize + 0.1f >= m_slidedInSize ? SlidedOut : SlidedIn;
}

// --- showing and hiding ---------------------------------------------------

void VTAccesoryViewAnimation::startSlide(State state, double timeAmount, float stopT) {
  m_state = state;
  if (!isSlave())
    startAnimationWithTimeAmount(timeAmount, stopT);
}

void VTAccesoryViewAnimation::slideIn(QObject* sender) {
  if (m_state != SlidedOut)
    return;
  m_state = SlidingIn;
  if (VTAccesoryViewAnimation* slave = accessorySlave())
    slave->slideIn(sender);
  startSlide(SlidingIn, m_slideInTimeAmount, 1.0f);
}

void VTAccesoryViewAnimation::slideOut(QObject* sender) {
  if (m_state != SlidedIn)
    return;
  m_state = SlidingOut;
  if (VTAccesoryViewAnimation* slave = accessorySlave())
    slave->slideOut(sender);
  startSlide(SlidingOut, m_slideOutTimeAmount, 0.0f);
}

void VTAccesoryViewAnimation::toggle(QObject* sender) {
  if (m_state == SlidedIn)
    slideOut(sender);
  else if (m_state == SlidedOut)
    slideIn(sender);
}

void VTAccesoryViewAnimation::swapIn(QObject* sender) {
  if (m_state != SlidedOut)
    return;
  m_state = SlidingIn;
  if (VTAccesoryViewAnimation* slave = accessorySlave())
    slave->swapIn(sender);
  startSlide(SlidingIn, 0.0, 1.0f);
}

void VTAccesoryViewAnimation::swapOut(QObject* sender) {
  if (m_state != SlidedIn)
    return;
  m_state = SlidingOut;
  if (VTAccesoryViewAnimation* slave = accessorySlave())
    slave->swapOut(sender);
  startSlide(SlidingOut, 0.0, 0.0f);
}

void VTAccesoryViewAnimation::swapToggle(QObject* sender) {
  if (m_state == SlidedIn)
    swapOut(sender);
  else if (m_state == SlidedOut)
    swapIn(sender);
}

void VTAccesoryViewAnimation::slideInWithAnimation(bool animate) {
  animate ? slideIn() : swapIn();
}

void VTAccesoryViewAnimation::slideOutWithAnimation(bool animate) {
  animate ? slideOut() : swapOut();
}

void VTAccesoryViewAnimation::toggleWithAnimation(bool animate) {
  animate ? toggle() : swapToggle();
}

void VTAccesoryViewAnimation::slideInWithSlideSize(float size, bool animate) {
  if (std::isnan(size))
    return;
  if (m_state == SlidedOut) {
    setSlidedInSizeValue(std::max(size, 0.0f));
    slideInWithAnimation(animate);
  } else {
    setSlideSize(size, animate);
  }
}

void VTAccesoryViewAnimation::setSlideSize(float size, bool animate) {
  if (std::isnan(size))
    return;
  size = std::max(size, 0.0f);
  if (m_state == SlidedOut)
    setSlidedInSizeValue(size);
  else if (m_state == SlidedIn)
    resizeSlideToNewSizeValue(size, animate);
}

void VTAccesoryViewAnimation::setViewSizesToMinSlideSize() {
  setSlideSize(m_minSlideSize, false);
}

void VTAccesoryViewAnimation::resizeSlideToNewSizeValue(float size, bool animate) {
  if (m_state != SlidedIn || size == m_slidedInSize)
    return;
  if (!animate) {
    userResize(size - currentSlideSize());
    return;
  }
  m_resizeStartSizeValue = m_slidedInSize;
  m_slidedInSize = size;
  m_state = Resizing;
  if (VTAccesoryViewAnimation* slave = accessorySlave())
    slave->resizeSlideToNewSizeValue(size, animate);
  startSlide(Resizing, m_slideInTimeAmount, 1.0f);
}

// --- queries --------------------------------------------------------------

bool VTAccesoryViewAnimation::isSliding() const {
  return m_state == SlidingIn || m_state == SlidingOut || m_state == Resizing;
}

float VTAccesoryViewAnimation::sizeOf(const QWidget* view) const {
  if (!view)
    return 0;
  return float(isHorizontal() ? view->width() : view->height());
}

float VTAccesoryViewAnimation::currentSlideSize() const {
  return sizeOf(m_slideView);
}

float VTAccesoryViewAnimation::currentMainViewSize() const {
  return sizeOf(m_mainView);
}

bool VTAccesoryViewAnimation::minSplitSizeReached() const {
  return currentSlideSize() <= m_minSlideSize;
}

bool VTAccesoryViewAnimation::maxSplitSizeReached() const {
  return currentMainViewSize() <= m_minMainViewSize || currentSlideSize() >= m_maxSlideSize;
}

bool VTAccesoryViewAnimation::userResizingPossible() const {
  return m_state == SlidedIn && m_mainView && m_slideView && m_SlideAlignment >= 1 &&
         m_SlideAlignment <= 4;
}

// --- settings -------------------------------------------------------------

void VTAccesoryViewAnimation::setSlideInTimeAmount(double seconds) {
  setSanitized(m_slideInTimeAmount, seconds);
}
void VTAccesoryViewAnimation::setSlideOutTimeAmount(double seconds) {
  setSanitized(m_slideOutTimeAmount, seconds);
}
void VTAccesoryViewAnimation::setSlidedOutSize(float size) {
  setSanitized(m_slidedOutSize, size);
}
void VTAccesoryViewAnimation::setMinSlideSize(float size) {
  setSanitized(m_minSlideSize, size);
}
void VTAccesoryViewAnimation::setMaxSlideSize(float size) {
  setSanitized(m_maxSlideSize, size);
}
void VTAccesoryViewAnimation::setMinMainViewSize(float size) {
  setSanitized(m_minMainViewSize, size);
}

void VTAccesoryViewAnimation::setViewsToHide(const std::vector<QWidget*>& views) {
  m_viewsToHide.assign(views.begin(), views.end());
}

// --- user resizing --------------------------------------------------------

void VTAccesoryViewAnimation::onBeginUserResize() {}
void VTAccesoryViewAnimation::onEndUserResize() {}

void VTAccesoryViewAnimation::userResize(float change) {
  if (!userResizingPossible() || std::isnan(change))
    return;
  const float current = currentSlideSize();
  // Within the slide limits first (the maximum wins over a larger minimum),
  // then never at the cost of the main view's minimum.
  const float requested = std::min(std::max(current + change, m_minSlideSize), m_maxSlideSize);
  change = requested - current;
  if (change > 0)
    change = std::min(change, std::max(0.0f, currentMainViewSize() - m_minMainViewSize));
  const long d = -std::lround(change);
  if (d != 0)
    resizeSlideAndMainView(int(d));
  resetProperties();
}

// --- the frame step -------------------------------------------------------

float VTAccesoryViewAnimation::calculateT(float t) {
  const float T = VTAnimation::calculateT(t);
  return m_state == SlidingOut ? 1.0f - T : T;
}

bool VTAccesoryViewAnimation::animate(float T) {
  m_lastAnimationT = T;
  const float from = m_state == Resizing ? m_resizeStartSizeValue : m_slidedOutSize;
  const float target = from + std::ceil((m_slidedInSize - from) * T);
  const long d = std::lround(currentSlideSize() - target);
  if (d == 0)
    return false;
  return resizeSlideAndMainView(int(d));
}

bool VTAccesoryViewAnimation::resizeSlideAndMainView(int d) {
  QWidget* slideView = m_slideView.data();
  QWidget* mainView = m_mainView.data();
  if (!slideView || !mainView || m_SlideAlignment < 1 || m_SlideAlignment > 4)
    return false;
  d = std::clamp(d, -int(currentMainViewSize()), int(currentSlideSize()));
  if (d == 0)
    return false;
  QRect slide = slideView->geometry();
  QRect main = mainView->geometry();
  // The slide view shrinks by d at the shared edge and the main view grows
  // by d there; y-down, so "above" is the smaller y:
  //   1 slide left:  slide width - d;              main x - d, main width + d
  //   2 slide right: slide x + d, slide width - d; main width + d
  //   3 slide above: slide height - d;             main y - d, main height + d
  //   4 slide below: slide y + d, slide height - d; main height + d
  switch (m_SlideAlignment) {
  case 1:
    slide.setWidth(slide.width() - d);
    main.setLeft(main.left() - d);
    break;
  case 2:
    slide.setLeft(slide.left() + d);
    main.setWidth(main.width() + d);
    break;
  case 3:
    slide.setHeight(slide.height() - d);
    main.setTop(main.top() - d);
    break;
  case 4:
    slide.setTop(slide.top() + d);
    main.setHeight(main.height() + d);
    break;
  }
  // Both frames in one step: Qt coalesces the repaints of the two views
  // and of the uncovered strip of the parent into the next paint pass.
  vtcore::setFrame(slideView, slide);
  if (m_mainView)
    vtcore::setFrame(m_mainView, main);
  return true;
}

// --- start and end of a slide ---------------------------------------------

bool VTAccesoryViewAnimation::onStartAnimation() {
  if (m_state != Resizing) {
    saveAndChangeResizeBehavior();
    putBackRemovedViews();
  }
  if (VTAccesoryViewAnimationDelegate* delegate = accessoryDelegate())
    delegate->accessoryViewAnimationWillBeginAnimation(this);
  return true;
}

void VTAccesoryViewAnimation::onStopAnimation() {
  const int ended = m_state;
  if (ended == SlidingIn || ended == Resizing)
    m_state = SlidedIn;
  else if (ended == SlidingOut)
    m_state = SlidedOut;
  // Views are taken out and masks restored before the delegate hears of the
  // end: a delegate may start the next slide from that message, which must
  // find the panel complete and must not save the masks of this slide.
  if (ended == SlidingOut)
    removeViewsToHide();
  restoreResizeBehavior();
  if (ended == SlidingIn || ended == SlidingOut || ended == Resizing)
    if (VTAccesoryViewAnimationDelegate* delegate = accessoryDelegate())
      delegate->accessoryViewAnimationDidEndAnimation(this);
}

void VTAccesoryViewAnimation::saveAndChangeResizeBehavior() {
  using F = vtcore::AutoresizingFlag;
  restoreResizeBehavior();
  QWidget* slideView = m_slideView.data();
  if (!slideView)
    return;
  if (m_changeSlideSubviewAutoresizeMasks) {
    // The children stick to the shared edge and ride with it; the outer
    // side of the panel is what appears and disappears.
    vtcore::AutoresizingMask stuck;
    switch (m_SlideAlignment) {
    case 1:
      stuck = F::FlexibleLeftMargin | F::FlexibleHeight;
      break;
    case 2:
      stuck = F::FlexibleRightMargin | F::FlexibleHeight;
      break;
    case 3:
      stuck = F::FlexibleTopMargin | F::FlexibleWidth;
      break;
    case 4:
      stuck = F::FlexibleBottomMargin | F::FlexibleWidth;
      break;
    default:
      break;
    }
    if (m_SlideAlignment >= 1 && m_SlideAlignment <= 4) {
      for (QObject* object : slideView->children()) {
        if (!object->isWidgetType())
          continue;
        auto* child = static_cast<QWidget*>(object);
        m_resizingMasks.emplace_back(child, vtcore::autoresizingMask(child));
        vtcore::setAutoresizingMask(child, stuck);
      }
    }
  }
  if (m_useCustomSlideViewAutoresizeMask) {
    m_resizingMasks.emplace_back(slideView, vtcore::autoresizingMask(slideView));
    vtcore::setAutoresizingMask(slideView, m_customSlideViewAutoresizeMask);
  }
}

void VTAccesoryViewAnimation::restoreResizeBehavior() {
  for (auto& [view, mask] : m_resizingMasks)
    if (view)
      vtcore::setAutoresizingMask(view, mask);
  m_resizingMasks.clear();
}

void VTAccesoryViewAnimation::removeViewsToHide() {
  if (m_viewsToHide.empty() && m_slidedOutSize < 1.0f && m_slideView)
    m_viewsToHide.emplace_back(m_slideView);
  for (const QPointer<QWidget>& view : m_viewsToHide) {
    if (!view || !view->parentWidget())
      continue;
    m_removedViewsSuperviews.push_back(
        {view, view->parentWidget(), view->isHidden(), view->geometry()});
    view->hide();
    view->setParent(nullptr);
  }
  m_viewsRemoved = !m_removedViewsSuperviews.empty();
}

void VTAccesoryViewAnimation::putBackRemovedViews() {
  if (!m_viewsRemoved)
    return;
  std::vector<RemovedView> removed;
  removed.swap(m_removedViewsSuperviews);
  m_viewsRemoved = false;
  for (RemovedView& entry : removed) {
    if (!entry.view)
      continue;
    if (!entry.superview) {
      // Nothing to put it back into: it stays out, and stays ours to free.
      m_removedViewsSuperviews.push_back(entry);
      m_viewsRemoved = true;
      continue;
    }
    entry.view->setParent(entry.superview);
    vtcore::setFrame(entry.view, entry.frame);
    if (!entry.wasHidden)
      entry.view->show();
  }
}

void VTAccesoryViewAnimation::deleteRemovedViews() {
  std::vector<RemovedView> removed;
  removed.swap(m_removedViewsSuperviews);
  m_viewsRemoved = false;
  for (RemovedView& entry : removed)
    delete entry.view.data();
}

void VTAccesoryViewAnimation::resizeRemovedViewsWithOldSize(const QSize& oldSize,
                                                            const QSize& newSize) {
  for (RemovedView& entry : m_removedViewsSuperviews) {
    if (!entry.view || !entry.superview || entry.superview != m_rootView)
      continue;
    entry.frame = vtcore::autoresizedFrame(entry.frame, vtcore::autoresizingMask(entry.view),
                                           oldSize, newSize);
    // The view's own children follow now, and its size answers the queries.
    vtcore::setFrame(entry.view, entry.frame);
  }
}

VTAccesoryViewAnimationDelegate* VTAccesoryViewAnimation::accessoryDelegate() const {
  return dynamic_cast<VTAccesoryViewAnimationDelegate*>(delegate());
}

VTAccesoryViewAnimation* VTAccesoryViewAnimation::accessorySlave() const {
  return qobject_cast<VTAccesoryViewAnimation*>(slave());
}
