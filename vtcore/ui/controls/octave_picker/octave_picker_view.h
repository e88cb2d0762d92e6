// DfOctavePickerView: a picture of a whole piano keyboard with a highlighted
// range marker over it, counted in white keys from the left end. The user
// moves the marker with the mouse: a click outside it jumps it in steps of the
// click raster (an octave by default), a drag moves it key by key. The owner
// hears about every move through target/action and the keyRangeMoved signal.
//
// It is a plain view, not a control: it never takes keyboard focus
// (Qt::NoFocus) and it handles the first click into an inactive window like
// any other. Geometry is in points (Qt's device-independent pixels); the view
// is as large as its background image and keeps that size.
#pragma once

#include <vtcore/export.h>
#include <vtcore/ui/common/target_action/target_action.h>

#include <QImage>
#include <QRect>
#include <QRectF>
#include <QWidget>

#include <cstddef>

class QMouseEvent;

namespace vtcore {

/// A stretch of keys: the first key and the number of keys, both counted in
/// white keys from the left end of the keyboard.
struct KeyRange {
  std::size_t location = 0; ///< the first key
  std::size_t length = 0;   ///< the number of keys

  /// Same location and same length.
  friend bool operator==(const KeyRange&, const KeyRange&) = default;
};

} // namespace vtcore

/// A piano keyboard with a range marker the user moves; see the top of this
/// file.
class VTCORE_UI_EXPORT DfOctavePickerView : public QWidget {
  Q_OBJECT
  // What a form (Qt Designer, uic, QUiLoader) sets.
  /// The first key of the marker, in white keys (keyRangeLocation()).
  Q_PROPERTY(int keyRangeLocation READ keyRangeLocation WRITE setKeyRangeLocation)
  /// The marker's width, in white keys (keyRangeLength()).
  Q_PROPERTY(int keyRangeLength READ keyRangeLength WRITE setKeyRangeLength)
  /// The step of a click outside the marker, in white keys.
  Q_PROPERTY(int clickRaster READ clickRaster WRITE setClickRaster)
  /// The step of a drag, in white keys.
  Q_PROPERTY(int dragRaster READ dragRaster WRITE setDragRaster)
public:
  /// Where the keyboard picture starts, in points from the view's left edge.
  static constexpr float kKeysLeft = 6.0f;
  /// How far the keyboard picture's bottom edge stands above the view's.
  static constexpr float kKeysBottom = 2.0f;

  /// A new picker with a zero origin: the large one (75 white keys, C-2 to G8)
  /// when `large` is true, the short one (74 white keys) otherwise. The view
  /// has no parent: the caller owns it, or hands it to a parent widget that
  /// then owns it.
  static DfOctavePickerView* octavePickerViewLarge(bool large);

  /// Makes the picker as initWithFrame does; `parent` owns it when given.
  explicit DfOctavePickerView(const QRect& frame = {}, bool isLarge = true,
                              QWidget* parent = nullptr);
  /// The large picker at the origin, owned by `parent` when given: the
  /// constructor forms (uic, QUiLoader) call.
  explicit DfOctavePickerView(QWidget* parent);
  ~DfOctavePickerView() override;

  /// Loads the images of the chosen variant, puts the view at the frame's
  /// origin with the background image's size (the frame's size is not used),
  /// and resets everything to the defaults: key range location 10, length
  /// 10; click raster 7, drag raster 1; no target and no action; drags
  /// ignored until the next press. Returns this view.
  DfOctavePickerView* initWithFrame(const QRect& frame, bool isLarge);

  /// The marker's range, counted in white keys.
  vtcore::KeyRange keyRange() const { return m_keyRange; }
  /// Stores `range` as it is, without any check: the mouse alone keeps the
  /// marker inside the keyboard. A range partly or wholly outside the
  /// keyboard (any location and length, up to the type's maximum) is drawn
  /// clipped to the view, or not at all. Repaints the old and the new marker
  /// rectangles, each widened by 1 point. Sends no action.
  void setKeyRange(vtcore::KeyRange range);
  /// The key range's location, as forms read it: INT_MAX when it is larger.
  int keyRangeLocation() const;
  /// Moves the key range to `location` (negative: 0), keeping its length;
  /// otherwise as setKeyRange().
  void setKeyRangeLocation(int location);
  /// The key range's length, as forms read it: INT_MAX when it is larger.
  int keyRangeLength() const;
  /// Gives the key range the length `length` (negative: 0), keeping its
  /// location; otherwise as setKeyRange().
  void setKeyRangeLength(int length);

  ///@{
  /// The object told about moves; not owned, and forgotten when destroyed.
  QObject* target() const { return m_targetAction.target(); }
  void setTarget(QObject* target) { m_targetAction.setTarget(target); }
  ///@}
  ///@{
  /// The action: the signature of a slot or Q_INVOKABLE method of the target
  /// that takes the view, such as "octaveChanged(DfOctavePickerView*)" (see
  /// target_action.h). Null clears it. Sent only when both target and action
  /// are set and the target responds to it.
  QByteArray action() const { return m_targetAction.action(); }
  void setAction(const char* action) { m_targetAction.setAction(action); }
  ///@}

  ///@{
  /// The snap, in white keys, for clicks outside the marker; 7 (an octave) by
  /// default. Values of 1 or less mean no snapping.
  int clickRaster() const { return m_clickRaster; }
  void setClickRaster(int raster) { m_clickRaster = raster; }
  ///@}
  ///@{
  /// The snap, in white keys, for drags; 1 by default. Values of 1 or less
  /// mean no snapping.
  int dragRaster() const { return m_dragRaster; }
  void setDragRaster(int raster) { m_dragRaster = raster; }
  ///@}

  /// The width of one white key in points: the keyboard picture's width over
  /// its number of white keys (0 when the picture could not be loaded).
  float keyWidth() const;
  /// White keys in the keyboard picture: 75 (large) or 74 (short).
  int totalNumWhiteKeys() const { return m_totalNumWhiteKeys; }

  /// The marker's rectangle in view coordinates, with w the key width:
  /// x = floor(location * w) + 6, right = floor(w * (location + length) - 1)
  /// + 6, y = 0, height = the view's height. Computed in double precision, so
  /// that no stored range overflows it, however far outside the view it lies
  /// (the width is negative for an empty range).
  QRectF rangeRect() const;

  /// Moves the marker to the mouse and sends the action: the key under the
  /// event's x less the grab offset (where in the marker the last press took
  /// hold of it; -1 before the first press and while drags are ignored), not
  /// below 0, snapped down to a multiple of `raster` when it is above 1, and
  /// pushed back so that the marker ends at the keyboard's right end at the
  /// latest. The length does not change; a marker longer than the whole
  /// keyboard goes to location 0. Then emits keyRangeMoved. Does nothing for
  /// a null event. The view touches nothing of itself after sending the
  /// action, so the target may delete it there (from inside a mouse event
  /// handler, deleteLater is still the safe way in Qt).
  void setKeyRangeForMouseEvent(const QMouseEvent* event, int raster);

  ///@{
  /// The host's event answers. Qt has no counterpart for asking a view about
  /// window ordering or window dragging; these functions keep the answers
  /// for code that asks, and the view behaves accordingly: it never takes
  /// keyboard focus, handles the click that activates its window, and a
  /// press on it never moves the window.
  bool acceptsFirstResponder() const { return false; }
  bool acceptsFirstMouse(const QMouseEvent*) const { return true; }
  bool shouldDelayWindowOrderingForEvent(const QMouseEvent*) const { return true; }
  bool mouseDownCanMoveWindow() const { return false; }
  ///@}

  /// The size of the background image: the view keeps that size.
  QSize sizeHint() const override;

Q_SIGNALS:
  /// Emitted whenever the mouse moves the marker (every press outside the
  /// marker and every drag event that is not ignored), right after the
  /// action was sent, whether or not a target and action are set.
  void keyRangeMoved(DfOctavePickerView* view);

protected:
  /// Draws the keyboard and the marker over it.
  void paintEvent(QPaintEvent* event) override;
  /// Left button only: grabs the marker, or jumps it to the click.
  void mousePressEvent(QMouseEvent* event) override;
  /// Drags the grabbed marker while the left button is down.
  void mouseMoveEvent(QMouseEvent* event) override;
  /// Does nothing: the marker is where the last press or drag put it.
  void mouseReleaseEvent(QMouseEvent* event) override;

private:
  void markDirty(const QRectF& markerRect);

  QImage m_bgImage;
  QImage m_glyphKeysImage;
  QImage m_rangeLeftEdgeImage;
  QImage m_rangeFillImage;
  QImage m_rangeRightEdgeImage;
  vtcore::KeyRange m_keyRange;
  float m_totalKeysWidth = 0.0f;
  // The target (not owned) and the action.
  vtcore::TargetAction m_targetAction;
  // The grab offset inside the marker; -1 means that drags are ignored.
  float m_mouseDownOffset = -1.0f;
  int m_clickRaster = 7;
  int m_dragRaster = 1;
  int m_totalNumWhiteKeys = 0;
};

/// The short picker (74 white keys) as a class of its own, so that a form
/// names the variant by its class: DfOctavePickerView is the large one.
class VTCORE_UI_EXPORT DfOctavePickerViewShort : public DfOctavePickerView {
  Q_OBJECT
public:
  /// The short picker at the origin, owned by `parent` when given.
  explicit DfOctavePickerViewShort(QWidget* parent = nullptr);
  ~DfOctavePickerViewShort() override;
};
