// VTAccesoryViewAnimation (spelled so): slides an accessory view in and out
// beside a main view and lets the user resize it.
//
// The main view and the slide view are siblings in a common parent (the root
// view), laid out without a QLayout, and share one edge. The animation owns
// the geometry of both: it moves the shared edge, shrinking one view by what
// the other grows, so the two always fill the same space.
//
// The side of the slide view (the alignment) and its shown size are read
// from the two frames by resetProperties():
//   1  slide view left of the main view      sizes are widths
//   2  slide view right of the main view     sizes are widths
//   3  slide view above the main view        sizes are heights
//   4  slide view below the main view        sizes are heights
//
// States: 0 slided in (shown), 1 sliding in, 2 sliding out, 3 slided out
// (hidden), 4 resizing under animation. A request that does not fit the
// current state is ignored; nothing is ever reported as an error.
//
// While a slide runs, the direct children of the slide view stick to the
// shared edge (their autoresizing masks are changed and restored afterwards,
// see autoresizing.h), so the panel's content moves in with the edge instead
// of being squeezed. When the panel has slided out to less than one point,
// the slide view (or the views set with setViewsToHide()) is taken out of the
// hierarchy (hidden and unparented) and put back when it slides in again;
// views deleted meanwhile are skipped.
//
// Single-threaded, like every widget.
#pragma once

#include <vtcore/export.h>
#include <vtcore/ui/views/animation/animation.h>
#include <vtcore/ui/views/autoresizing/autoresizing.h>

#include <QPointer>
#include <QRect>
#include <QSize>
#include <QWidget>

#include <vector>

class VTAccesoryViewAnimation;

/// The notifications of an accessory view animation, each optional.
class VTCORE_UI_EXPORT VTAccesoryViewAnimationDelegate : public VTAnimationDelegate {
public:
  /// A slide or an animated resize is about to move the edge.
  virtual void accessoryViewAnimationWillBeginAnimation(VTAccesoryViewAnimation* animation);
  /// A slide or an animated resize has ended.
  virtual void accessoryViewAnimationDidEndAnimation(VTAccesoryViewAnimation* animation);
};

/// Slides a panel (the slide view) in and out beside a main view by moving
/// their shared edge; see the top of this file.
class VTCORE_UI_EXPORT VTAccesoryViewAnimation : public VTAnimation {
  Q_OBJECT
public:
  /// Where the panel is: shown, coming in, going out, hidden, or being
  /// resized by an animated setSlideSize().
  enum State { SlidedIn = 0, SlidingIn = 1, SlidingOut = 2, SlidedOut = 3, Resizing = 4 };

  /// An animation of views in `rootView` (not owned), with no views yet,
  /// state 0 and alignment 0 (no side: nothing moves until resetProperties()
  /// has read the frames).
  explicit VTAccesoryViewAnimation(QWidget* rootView);
  /// Puts views taken out of the hierarchy back into their former parents
  /// (hidden as they were), so that those parents own them again; a view
  /// whose former parent is gone is deleted, as nothing else owns it.
  ~VTAccesoryViewAnimation() override;

  /// The view the animated views live in (not owned; null once deleted).
  QWidget* rootView() const { return m_rootView.data(); }
  ///@{
  /// The views (not owned; null once deleted). Setting them does not read
  /// the frames: call resetProperties() once both are set.
  void setMainView(QWidget* view) { m_mainView = view; }
  void setSlideView(QWidget* view) { m_slideView = view; }
  QWidget* mainView() const { return m_mainView.data(); }
  QWidget* slideView() const { return m_slideView.data(); }
  ///@}

  /// Reads the alignment and the shown size from the two frames (in their
  /// parent's coordinates): the slide view is left of the main view (1) when
  /// its x is smaller, right (2) when larger; with equal x it is below (4)
  /// when its y is larger, otherwise above (3) (two views at the same place
  /// count as above). The shown size becomes the slide view's current size,
  /// and the state 3 when that is not more than 0.1 above the slided-out
  /// size, else 0. Nothing unless both views are set.
  void resetProperties();

  // Showing and hiding. `sender` is informational and may be null. A slave
  // that is an accessory view animation is given the same request.

  /// 3 -> 1: slides in over the slide-in time. Only when slided out.
  void slideIn(QObject* sender = nullptr);
  /// 0 -> 2: slides out over the slide-out time. Only when slided in.
  void slideOut(QObject* sender = nullptr);
  /// slideOut() when slided in, slideIn() when slided out, else nothing.
  void toggle(QObject* sender = nullptr);
  ///@{
  /// The same three, jumping to the end in a single frame.
  void swapIn(QObject* sender = nullptr);
  void swapOut(QObject* sender = nullptr);
  void swapToggle(QObject* sender = nullptr);
  ///@}
  ///@{
  /// The sliding form for `animate` true, the swap form for false.
  void slideInWithAnimation(bool animate);
  void slideOutWithAnimation(bool animate);
  void toggleWithAnimation(bool animate);
  ///@}
  /// When slided out: takes `size` as the shown size and slides in (with or
  /// without animation). Otherwise the same as setSlideSize().
  void slideInWithSlideSize(float size, bool animate);
  /// Changes the shown size: when slided out, only stores it for the next
  /// slide in; when slided in, resizes (animated: state 4 until done;
  /// immediate: as a user resize, so within the limits); while moving,
  /// nothing. Negative sizes count as 0; not-a-number is ignored.
  void setSlideSize(float size, bool animate);
  /// setSlideSize() with the minimum slide size, without animation.
  void setViewSizesToMinSlideSize();

  // Queries.

  /// The State, as a number.
  int state() const { return m_state; }
  /// States 1, 2 and 4.
  bool isSliding() const;
  ///@{
  /// Whether the state is the one named.
  bool isSlidingIn() const { return m_state == SlidingIn; }
  bool isSlidingOut() const { return m_state == SlidingOut; }
  bool isSlidedIn() const { return m_state == SlidedIn; }
  bool isSlidedOut() const { return m_state == SlidedOut; }
  bool isResizing() const { return m_state == Resizing; }
  ///@}
  /// Alignments 1 and 2: sizes are widths.
  bool isHorizontal() const { return m_SlideAlignment == 1 || m_SlideAlignment == 2; }
  /// The panel's side of the main view: 1 left, 2 right, 3 above, 4 below,
  /// 0 not known yet.
  int slideAlignment() const { return m_SlideAlignment; }
  /// The size the slide view has when shown.
  float slidedInSize() const { return m_slidedInSize; }
  /// The size the slide view has when hidden.
  float slidedOutSize() const { return m_slidedOutSize; }
  /// The slide view's current width (alignments 1, 2) or height; 0 without
  /// a slide view.
  float currentSlideSize() const;
  /// The same for the main view.
  float currentMainViewSize() const;
  ///@{
  /// The limits of user resizing (see setMinSlideSize()).
  float minSlideFrameSizeValue() const { return m_minSlideSize; }
  float maxSlideFrameSizeValue() const { return m_maxSlideSize; }
  float minMainFrameSizeValue() const { return m_minMainViewSize; }
  ///@}
  /// The slide view is at or below its minimum size.
  bool minSplitSizeReached() const;
  /// The main view is at or below its minimum size, or the slide view at or
  /// above its maximum.
  bool maxSplitSizeReached() const;
  /// Whether userResize() can act: slided in, with both views set and a side
  /// known.
  bool userResizingPossible() const;
  /// The T applied by the last frame.
  float lastAnimationT() const { return m_lastAnimationT; }

  // Settings. Not-a-number values are ignored; negative sizes and times
  // count as 0.

  ///@{
  /// How long a slide in and a slide out take, in seconds.
  void setSlideInTimeAmount(double seconds);
  void setSlideOutTimeAmount(double seconds);
  double slideInTimeAmount() const { return m_slideInTimeAmount; }
  double slideOutTimeAmount() const { return m_slideOutTimeAmount; }
  ///@}
  /// The slide view's size when hidden (0 by default).
  void setSlidedOutSize(float size);
  ///@{
  /// The limits of user resizing (100, 1000000 and 200 by default). With a
  /// minimum above the maximum, the maximum wins.
  void setMinSlideSize(float size);
  void setMaxSlideSize(float size);
  void setMinMainViewSize(float size);
  ///@}
  /// The views taken out of the hierarchy when the panel has slided out (not
  /// owned while in the hierarchy). Empty: the slide view itself, if the
  /// slided-out size is below 1.
  void setViewsToHide(const std::vector<QWidget*>& views);
  ///@{
  /// Whether the slide view itself gets a mask of its own during a slide,
  /// and which.
  void setUseCustomSlideViewAutoresizeMask(bool use) { m_useCustomSlideViewAutoresizeMask = use; }
  void setCustomSlideViewAutoresizeMask(vtcore::AutoresizingMask mask) {
    m_customSlideViewAutoresizeMask = mask;
  }
  ///@}
  /// Whether the slide view's children stick to the shared edge during a
  /// slide (yes by default).
  void setChangeSlideSubviewAutoresizeMasks(bool change) {
    m_changeSlideSubviewAutoresizeMasks = change;
  }
  ///@{
  /// An object of the application's that the live-resize optimisation may
  /// consult (not owned). The animation itself sets both frames in one step
  /// per frame and lets Qt repaint only what changed, so it is only kept.
  void setOptimizationDelegate(QObject* delegate) { m_optimizationDelegate = delegate; }
  QObject* optimizationDelegate() const { return m_optimizationDelegate.data(); }
  ///@}

  // User resizing.

  ///@{
  /// Brackets of a user's drag of the edge; hooks for subclasses.
  virtual void onBeginUserResize();
  virtual void onEndUserResize();
  ///@}
  /// Grows the slide view by `change` points (shrinks it when negative),
  /// only when slided in: the new size is held within the minimum and
  /// maximum slide sizes, and the change is cut so that the main view keeps
  /// its minimum size. The new size becomes the shown size.
  void userResize(float change);

  /// Deletes the views that are out of the hierarchy now. For an owner that
  /// is going away together with their former parents, where putting them
  /// back is no longer possible.
  void deleteRemovedViews();

  /// Moves the views taken out of the hierarchy whose former parent is the
  /// root view as their masks say, for a root resize from `oldSize` to
  /// `newSize`, so that they are in place when put back.
  void resizeRemovedViewsWithOldSize(const QSize& oldSize, const QSize& newSize);

protected:
  /// Prepares the views for a slide (masks, views back into the hierarchy);
  /// answers whether the animation may start.
  bool onStartAnimation() override;
  /// The frame step: moves the shared edge so that the slide view has the
  /// size that `T` stands for. Answers whether the edge moved.
  bool animate(float T) override;
  /// The default curve while sliding in or resizing, its mirror 1 - T while
  /// sliding out, so that T is always the shown fraction of the panel.
  float calculateT(float t) override;
  /// Puts the views in their final place and state once the animation ends.
  void onStopAnimation() override;

  ///@{
  /// Switch the views' resizing masks to the ones a slide needs, and back.
  void saveAndChangeResizeBehavior();
  void restoreResizeBehavior();
  ///@}

private:
  struct RemovedView {
    QPointer<QWidget> view;
    QPointer<QWidget> superview;
    bool wasHidden;
    QRect frame; // in the former parent's coordinates, kept up to date
  };

  void startSlide(State state, double timeAmount, float stopT);
  void setSlidedInSizeValue(float size) { m_slidedInSize = size; }
  void resizeSlideToNewSizeValue(float size, bool animate);
  /// Moves the shared edge so that the slide view shrinks by `d` points and
  /// the main view grows by as much (negative: the other way round). The
  /// edge never passes the far side of either view.
  bool resizeSlideAndMainView(int d);
  void putBackRemovedViews();
  void removeViewsToHide();
  float sizeOf(const QWidget* view) const;
  VTAccesoryViewAnimationDelegate* accessoryDelegate() const;
  VTAccesoryViewAnimation* accessorySlave() const;

  QPointer<QWidget> m_rootView;
  QPointer<QWidget> m_mainView;
  QPointer<QWidget> m_slideView;
  QPointer<QObject> m_optimizationDelegate;
  double m_slideInTimeAmount = 0.5;
  double m_slideOutTimeAmount = 0.6;
  int m_state = SlidedIn;
  int m_SlideAlignment = 0;
  std::vector<std::pair<QPointer<QWidget>, vtcore::AutoresizingMask>> m_resizingMasks;
  float m_slidedInSize = 0;
  float m_slidedOutSize = 0;
  float m_minSlideSize = 100.0f;
  float m_maxSlideSize = 1000000.0f;
  float m_minMainViewSize = 200.0f;
  std::vector<QPointer<QWidget>> m_viewsToHide;
  bool m_useCustomSlideViewAutoresizeMask = false;
  vtcore::AutoresizingMask m_customSlideViewAutoresizeMask;
  bool m_changeSlideSubviewAutoresizeMasks = true;
  float m_resizeStartSizeValue = 0;
  float m_lastAnimationT = 0;
  bool m_viewsRemoved = false;
  std::vector<RemovedView> m_removedViewsSuperviews;
};
