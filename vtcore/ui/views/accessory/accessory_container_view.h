// VTAccessoryContainerView: a main view and an accessory panel that slides in
// and out beside it, with a shared edge the user can drag.
//
// The container holds the two views as children without a layout; their
// frames, set before the views are handed to the container, say on which
// side the panel is (see VTAccesoryViewAnimation) and how large it is when
// shown. The container owns the animation that moves the edge and reports
// to its own delegate. Give the two views autoresizing masks (see
// autoresizing.h) so that they follow the container when it is resized; the
// container moves a panel that is currently out of the hierarchy along too.
//
// In code: make the container, place the two views in it, set the masks,
// then call setMainView() and setSlideView(). In a Qt Designer form (uic or
// QUiLoader): put the main view and then the panel into the container; when
// neither view has been set, the container takes its first two child
// widgets, in that order, when Qt polishes it (once control is back in the
// event loop after it was made, before it is first shown, or on
// ensurePolished()). Children added after that are taken by
// adoptViewsFromChildren() or the two calls above.
//
// A VTAccessorySplitter placed on the edge (usually a child of the panel)
// lets the user drag it.
#pragma once

#include <vtcore/export.h>
#include <vtcore/ui/common/target_action/delegate.h>
#include <vtcore/ui/views/animation/accessory_view_animation.h>
#include <vtcore/ui/views/autoresizing/autoresizing.h>

#include <QPointer>
#include <QWidget>

#include <memory>
#include <vector>

class VTAccessoryContainerView;
class VTAccessorySplitter;

/// The notifications of a container, each optional.
class VTCORE_UI_EXPORT VTAccessoryContainerViewDelegate : public vtcore::Delegate {
public:
  /// A slide or an animated resize is about to move the edge.
  virtual void accessoryContainerViewWillBeginAnimation(VTAccessoryContainerView* container);
  /// That slide or resize has ended.
  virtual void accessoryContainerViewDidEndAnimation(VTAccessoryContainerView* container);
  /// A drag of the splitter has started to move the edge.
  virtual void accessoryContainerViewWillStartUserResize(VTAccessoryContainerView* container);
  /// That drag has ended.
  virtual void accessoryContainerViewDidEndUserResize(VTAccessoryContainerView* container);
};

/// A view holding a main view and a panel that slides in and out beside it;
/// see the top of this file.
class VTCORE_UI_EXPORT VTAccessoryContainerView : public QWidget,
                                                  public vtcore::AutoresizingView,
                                                  private VTAccesoryViewAnimationDelegate {
  Q_OBJECT
  // What a form (Qt Designer, uic, QUiLoader) sets; uic calls set<Name>(),
  // so each property is named after its setter. The alignment is read
  // from the two views' frames (see VTAccesoryViewAnimation): 0 until both
  // views are set.
  /// The panel's side, read from the views' frames (slideAlignment()).
  Q_PROPERTY(int slideAlignment READ slideAlignment)
  /// The smallest size the user can drag the panel to.
  Q_PROPERTY(double minSlideSize READ minSlideFrameSizeValue WRITE setMinSlideSize)
  /// The largest size the user can drag the panel to.
  Q_PROPERTY(double maxSlideSize READ maxSlideFrameSizeValue WRITE setMaxSlideSize)
  /// The smallest size the main view keeps while the user drags.
  Q_PROPERTY(double minMainViewSize READ minMainFrameSizeValue WRITE setMinMainViewSize)
  /// The panel's size when slided out.
  Q_PROPERTY(double slidedOutSize READ slidedOutSize WRITE setSlidedOutSize)
  /// How long sliding in takes, in seconds.
  Q_PROPERTY(double slideInTimeAmount READ slideInTimeAmount WRITE setSlideInTimeAmount)
  /// How long sliding out takes, in seconds.
  Q_PROPERTY(double slideOutTimeAmount READ slideOutTimeAmount WRITE setSlideOutTimeAmount)
public:
  /// An empty container, with its animation (rooted at the container).
  explicit VTAccessoryContainerView(QWidget* parent = nullptr);
  /// Detaches the animation from the views and the delegate before freeing
  /// it; a slide in progress simply stops. A panel that is out of the
  /// hierarchy is deleted, as the container's children are.
  ~VTAccessoryContainerView() override;

  ///@{
  /// The main view and the panel. A view that is not a child of the
  /// container is made one (keeping its frame). Once both are set the
  /// container calls awakeFromNib(); setting one again calls it again.
  /// Null takes the view away from the container and its animation.
  void setMainView(QWidget* view);
  void setSlideView(QWidget* view);
  QWidget* mainView() const { return m_mainView.data(); }
  QWidget* slideView() const { return m_slideView.data(); }
  ///@}
  /// Hands both views to the animation and lets it read the side and the
  /// shown size from their frames. Nothing moves. Without both views,
  /// requests still change the state as usual, but nothing moves and the
  /// edge cannot be dragged.
  void awakeFromNib();

  /// The animation that moves the edge (owned by the container).
  VTAccesoryViewAnimation* animationObject() const { return m_animation.get(); }
  /// Drives `slave`'s animation together with this one (not owned; null
  /// clears). Call setIsSlave(true) on the slave as well.
  void setSlave(VTAccessoryContainerView* slave);
  /// Marks this container's animation as driven by another's.
  void setIsSlave(bool isSlave) { m_animation->setIsSlave(isSlave); }

  ///@{
  /// The delegate (not owned; null once destroyed).
  VTAccessoryContainerViewDelegate* delegate() const { return m_delegate.get(); }
  void setDelegate(VTAccessoryContainerViewDelegate* delegate) { m_delegate = delegate; }
  ///@}

  ///@{
  /// Forwarded to the animation unchanged; see VTAccesoryViewAnimation.
  void slideInWithAnimation(bool animate) { m_animation->slideInWithAnimation(animate); }
  void slideOutWithAnimation(bool animate) { m_animation->slideOutWithAnimation(animate); }
  void toggleWithAnimation(bool animate) { m_animation->toggleWithAnimation(animate); }
  void slideIn(QObject* sender = nullptr) { m_animation->slideIn(sender); }
  void slideOut(QObject* sender = nullptr) { m_animation->slideOut(sender); }
  void toggle(QObject* sender = nullptr) { m_animation->toggle(sender); }
  void swapIn(QObject* sender = nullptr) { m_animation->swapIn(sender); }
  void swapOut(QObject* sender = nullptr) { m_animation->swapOut(sender); }
  void swapToggle(QObject* sender = nullptr) { m_animation->swapToggle(sender); }
  void setSlideSize(float size, bool animate) { m_animation->setSlideSize(size, animate); }
  void slideInWithSlideSize(float size, bool animate) {
    m_animation->slideInWithSlideSize(size, animate);
  }
  float currentSlideSize() const { return m_animation->currentSlideSize(); }
  float currentMainViewSize() const { return m_animation->currentMainViewSize(); }
  float slidedInSize() const { return m_animation->slidedInSize(); }
  bool isSliding() const { return m_animation->isSliding(); }
  bool isSlidingIn() const { return m_animation->isSlidingIn(); }
  bool isSlidingOut() const { return m_animation->isSlidingOut(); }
  bool isSlidedIn() const { return m_animation->isSlidedIn(); }
  bool isSlidedOut() const { return m_animation->isSlidedOut(); }
  bool isResizing() const { return m_animation->isResizing(); }
  bool isHorizontal() const { return m_animation->isHorizontal(); }
  void setSlidedOutSize(float size) { m_animation->setSlidedOutSize(size); }
  void setMinSlideSize(float size) { m_animation->setMinSlideSize(size); }
  void setMaxSlideSize(float size) { m_animation->setMaxSlideSize(size); }
  void setMinMainViewSize(float size) { m_animation->setMinMainViewSize(size); }
  float minSlideFrameSizeValue() const { return m_animation->minSlideFrameSizeValue(); }
  /// The largest size the user can drag the panel to.
  float maxSlideFrameSizeValue() const { return m_animation->maxSlideFrameSizeValue(); }
  /// The panel's size when slided out (0 unless set).
  float slidedOutSize() const { return m_animation->slidedOutSize(); }
  /// The panel's side, read from the views' frames: 1 left, 2 right, 3
  /// above, 4 below the main view; 0 until both views are set.
  int slideAlignment() const { return m_animation->slideAlignment(); }
  /// How long sliding in takes, in seconds; bad values as the animation's.
  void setSlideInTimeAmount(double seconds) { m_animation->setSlideInTimeAmount(seconds); }
  /// How long sliding out takes, in seconds; bad values as the animation's.
  void setSlideOutTimeAmount(double seconds) { m_animation->setSlideOutTimeAmount(seconds); }
  /// How long sliding in takes, in seconds (0.5 unless set).
  double slideInTimeAmount() const { return m_animation->slideInTimeAmount(); }
  /// How long sliding out takes, in seconds (0.6 unless set).
  double slideOutTimeAmount() const { return m_animation->slideOutTimeAmount(); }
  float minMainFrameSizeValue() const { return m_animation->minMainFrameSizeValue(); }
  void setViewSizesToMinSlideSize() { m_animation->setViewSizesToMinSlideSize(); }
  bool minSplitSizeReached() const { return m_animation->minSplitSizeReached(); }
  bool maxSplitSizeReached() const { return m_animation->maxSplitSizeReached(); }
  bool userResizingPossible() const { return m_animation->userResizingPossible(); }
  void setViewsToHide(const std::vector<QWidget*>& views) { m_animation->setViewsToHide(views); }
  void setUseCustomSlideViewAutoresizeMask(bool use) {
    m_animation->setUseCustomSlideViewAutoresizeMask(use);
  }
  void setCustomSlideViewAutoresizeMask(vtcore::AutoresizingMask mask) {
    m_animation->setCustomSlideViewAutoresizeMask(mask);
  }
  void setChangeSlideSubviewAutoresizeMasks(bool change) {
    m_animation->setChangeSlideSubviewAutoresizeMasks(change);
  }
  void setOptimizationDelegate(QObject* delegate) {
    m_animation->setOptimizationDelegate(delegate);
  }
  ///@}

  // What the splitter sends.

  /// A drag has started moving the edge: the animation's onBeginUserResize(),
  /// then the delegate.
  void accessorySplitterWillStartResize(VTAccessorySplitter* splitter);
  /// The drag has ended: the animation's onEndUserResize(), then the
  /// delegate.
  void accessorySplitterDidEndResize(VTAccessorySplitter* splitter);
  /// The handle is `delta` points from where it was grabbed, along the
  /// container's axis in the splitter's coordinates (right and down are
  /// positive). The sign is turned so that moving the handle towards the
  /// main view enlarges the panel: kept for a panel on the left (1) or above
  /// (3), negated for one on the right (2) or below (4).
  void accessorySplitter(VTAccessorySplitter* splitter, float delta);
  /// The animation's userResize(): grows the panel by `change` points.
  void doUserResize(float change) { m_animation->userResize(change); }

  /// Moves the panel along while it is out of the hierarchy, then lays out
  /// the children by their masks.
  void resizeSubviewsWithOldSize(const QSize& oldSize) override;

  /// Takes the first two child widgets as the main view and the slide view,
  /// as setMainView() and setSlideView() would, when neither view is set
  /// and there are two; otherwise does nothing. What a loaded form relies
  /// on; it runs by itself when the container is polished (see above).
  void adoptViewsFromChildren();

protected:
  /// Lays out the children by their masks (resizeSubviewsWithOldSize()).
  void resizeEvent(QResizeEvent* event) override;
  /// Takes the views from the children when Qt polishes the container.
  bool event(QEvent* event) override;

private:
  void accessoryViewAnimationWillBeginAnimation(VTAccesoryViewAnimation* animation) override;
  void accessoryViewAnimationDidEndAnimation(VTAccesoryViewAnimation* animation) override;
  void adopt(QWidget* view);

  QPointer<QWidget> m_mainView;
  QPointer<QWidget> m_slideView;
  vtcore::DelegatePointer<VTAccessoryContainerViewDelegate> m_delegate;
  std::unique_ptr<VTAccesoryViewAnimation> m_animation;
};
