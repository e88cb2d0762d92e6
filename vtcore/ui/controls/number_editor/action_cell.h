// KwActionCell: a lightweight cell that a control paints and drives.
//
// A cell is a plain C++ object, not a widget: the control that holds it lays
// it out in a frame of its own coordinates, paints it inside its paintEvent
// and routes its mouse, wheel and key events to it. A cell keeps a text (its
// string value, from which its integer value is read), the usual state of a
// control (enabled, editable, alignment, font, control size) and a target
// and action of its own.
//
// The cell's action is a method signature taking one `KwActionCell*`, such as
// "cellContentDidChange(KwActionCell*)": a slot or Q_INVOKABLE method of the
// target. It is sent only when the target has a method of exactly that
// signature (see target_action.h for the same rule between controls).
#pragma once

#include <vtcore/export.h>

#include <QByteArray>
#include <QFont>
#include <QObject>
#include <QPointF>
#include <QPointer>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QWidget>

#include <cstdint>

class QKeyEvent;
class QMouseEvent;
class QPainter;
class QWheelEvent;

/// The size class of a control and its cells. Stored and passed on; the
/// cells of this library draw the same in every size.
enum class KwControlSize { Regular = 0, Small = 1, Mini = 2 };

/// A cell that a control lays out, paints and drives: a text with the state
/// of a control and a target and action of its own; see the top of this file.
/// Not copyable. Single-threaded, like the control that holds it.
class VTCORE_UI_EXPORT KwActionCell {
public:
  /// An enabled, not editable cell with empty text and the application font.
  KwActionCell();
  /// The same with `text` as its string value.
  explicit KwActionCell(const QString& text);
  /// Destroys the cell; its target and control view are not touched.
  virtual ~KwActionCell();

  ///@{
  /// A cell belongs to one control and is not copied.
  KwActionCell(const KwActionCell&) = delete;
  KwActionCell& operator=(const KwActionCell&) = delete;
  ///@}

  // --- Content ---

  /// The cell's text, as set; any text is accepted, digits or not.
  QString stringValue() const { return m_stringValue; }
  /// Sets the text and asks the control view to repaint.
  virtual void setStringValue(const QString& text);
  /// The number the text starts with: leading white space is skipped, then
  /// an optional sign and decimal digits are read. A text without digits
  /// reads as 0; a number beyond 32 bits reads as the nearest of INT32_MIN
  /// and INT32_MAX.
  std::int32_t intValue() const;
  /// Sets the text to `value` in decimal and asks the control view to repaint.
  virtual void setIntValue(std::int32_t value);

  // --- State ---

  ///@{
  /// Whether the cell takes part at all; true by default. A disabled cell
  /// refuses tracking, and a number editor cell also refuses editing and
  /// changes of its number. Changing it asks the control view to repaint.
  bool isEnabled() const { return m_enabled; }
  virtual void setEnabled(bool enabled);
  ///@}
  ///@{
  /// Whether the user may change the cell (track, scroll, edit); false by
  /// default. Separator cells are not editable.
  bool isEditable() const { return m_editable; }
  void setEditable(bool editable) { m_editable = editable; }
  ///@}
  ///@{
  /// Stored for the control's owner; the cells of this library neither
  /// scroll nor wrap their text, whatever these say. False by default.
  bool isScrollable() const { return m_scrollable; }
  void setScrollable(bool scrollable) { m_scrollable = scrollable; }
  bool wraps() const { return m_wraps; }
  void setWraps(bool wraps) { m_wraps = wraps; }
  ///@}
  ///@{
  /// Stored for the control's owner; the cells of this library draw no bezel
  /// and no border, whatever these say. False by default.
  bool isBezeled() const { return m_bezeled; }
  void setBezeled(bool bezeled) { m_bezeled = bezeled; }
  bool isBordered() const { return m_bordered; }
  void setBordered(bool bordered) { m_bordered = bordered; }
  ///@}
  ///@{
  /// The horizontal alignment of the text (Qt::AlignLeft, Qt::AlignRight or
  /// Qt::AlignHCenter; left by default). The setter keeps only the horizontal
  /// flags of its argument and asks the control view to repaint.
  Qt::Alignment alignment() const { return m_alignment; }
  void setAlignment(Qt::Alignment alignment);
  ///@}
  ///@{
  /// The font the text is measured and drawn in; the application font by
  /// default. Setting it asks the control view to repaint.
  QFont font() const { return m_font; }
  void setFont(const QFont& font);
  ///@}
  ///@{
  /// The size class; Regular by default. Stored only: it changes nothing of
  /// the cell's size or drawing.
  KwControlSize controlSize() const { return m_controlSize; }
  void setControlSize(KwControlSize size) { m_controlSize = size; }
  ///@}

  // --- Target and action ---

  ///@{
  /// The object the action is sent to; not owned, null once destroyed. Null
  /// (the default) sends nothing.
  QObject* target() const { return m_target.data(); }
  void setTarget(QObject* target) { m_target = target; }
  ///@}
  /// The normalised action signature; empty when none is set.
  const QByteArray& action() const { return m_action; }
  /// Sets the action signature (normalised); null clears it.
  void setAction(const char* action);
  /// Whether the target has a method of the action's signature whose one
  /// parameter is a `KwActionCell*`.
  bool targetRespondsToAction() const;
  /// Calls the action on the target with this cell as its argument, if the
  /// target responds to it; returns whether it was called. The target may
  /// destroy this cell inside the call; nothing of the cell is touched after.
  bool sendActionToTarget();

  // --- Drawing ---

  ///@{
  /// The view the cell was last drawn into or handed by its control; not
  /// owned, null once destroyed. The cell repaints through it and, when it
  /// leaves editing, clears the keyboard focus of its window.
  QWidget* controlView() const { return m_controlView.data(); }
  void setControlView(QWidget* view) { m_controlView = view; }
  ///@}
  /// Asks the control view, if any, to repaint; nothing without one.
  void updateCell();

  /// The size the cell wants with no limit: cellSizeForBounds of a huge rectangle.
  QSizeF cellSize() const;
  /// The size the cell wants within `bounds`. Here: the text's size, each
  /// side no larger than the bounds' (negative bounds count as empty).
  virtual QSizeF cellSizeForBounds(const QRectF& bounds) const;
  /// Draws the cell into `frame` of `view` with `painter`: the interior only.
  void drawWithFrame(const QRectF& frame, QWidget* view, QPainter& painter);
  /// Draws the text in the frame, aligned as alignment() says and centred
  /// vertically, in the view palette's window text colour, and remembers
  /// `view` as the control view. Subclasses draw themselves here.
  virtual void drawInteriorWithFrame(const QRectF& frame, QWidget* view, QPainter& painter);

  // --- Events routed by the control ---

  /// The entry a control's mouse press reaches. Answers whether the press
  /// starts a tracking session: false when the cell is disabled or when
  /// startTracking (with the press point made relative to `cellFrame`)
  /// refuses. No event loop runs here: the control then routes the press's
  /// drags to continueTracking and its release to stopTracking.
  virtual bool trackMouse(const QMouseEvent& event, const QRectF& cellFrame, QWidget* view,
                          bool untilMouseUp);
  /// Whether a press at `startPoint` (cell coordinates) may be tracked;
  /// here: whether the cell is editable.
  virtual bool startTracking(QPointF startPoint, QWidget* view);
  /// One drag from `lastPoint` to `currentPoint` (cell coordinates). Answers
  /// whether tracking goes on; here: yes, nothing changes.
  virtual bool continueTracking(QPointF lastPoint, QPointF currentPoint, QWidget* view);
  /// The end of tracking; `mouseIsUp` tells whether the button was released.
  virtual void stopTracking(QPointF lastPoint, QPointF stopPoint, QWidget* view, bool mouseIsUp);

  /// Whether the cell handles wheel events (scrollWheel); not here.
  virtual bool respondsToScrollWheel() const { return false; }
  /// A wheel event over the cell; nothing here.
  virtual void scrollWheel(QWheelEvent* event);
  /// A key pressed while the cell's control has the focus; nothing here.
  virtual void keyDown(QKeyEvent* event);

private:
  QString m_stringValue;
  QFont m_font;
  Qt::Alignment m_alignment = Qt::AlignLeft;
  KwControlSize m_controlSize = KwControlSize::Regular;
  bool m_enabled = true;
  bool m_editable = false;
  bool m_scrollable = false;
  bool m_wraps = false;
  bool m_bezeled = false;
  bool m_bordered = false;
  QPointer<QObject> m_target;
  QByteArray m_action;
  QPointer<QWidget> m_controlView;
};
