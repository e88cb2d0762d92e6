// KwNumberEditorCell: one integer of a number editor, edited like a
// hardware display.
//
// The number changes by dragging vertically (one point of travel is one
// unit, at least `m_minimumDelta`), by the wheel (exactly `m_minimumDelta`
// per event), by the up and down arrows (1) while editing, or by typing
// digits while editing (the last `m_maxEditStringLen` are kept; Return or
// Enter commits, Escape restores the number from before typing). Every
// committed change calls the cell's action on its target. The cell has no
// range of its own: clamping is the business of whoever receives the action.
//
// The cell is painted by its control (see KwCellGroupControl). It can show
// its number zero-padded, with the leading zeros in their own colour, over a
// row of dim "8" digits like a seven-segment display.
#pragma once

#include <vtcore/export.h>
#include <vtcore/ui/common/target_action/delegate.h>
#include <vtcore/ui/controls/number_editor/action_cell.h>

#include <QColor>

class KwNumberEditorCell;

///@{
/// Why a cell left editing (the reason given to its delegate): a call to
/// stopEditing or one of its forms (1), Escape (2), Return or Enter (3).
inline constexpr int dfne_se_StopEditingCalled = 1;
inline constexpr int dfne_se_EscapePressed = 2;
inline constexpr int dfne_se_EnterPressed = 3;
///@}

/// Told by a number editor cell when it leaves editing.
class VTCORE_UI_EXPORT KwNumberEditorCellDelegate : public vtcore::Delegate {
public:
  /// `cell` stopped editing for `stoppedEditingWithReason` (one of the
  /// dfne_se_ constants). Nothing by default.
  virtual void dfNumberEditorCell(KwNumberEditorCell* cell, int stoppedEditingWithReason);
};

/// One integer of a number editor, changed by drag, wheel, arrow keys and
/// typing; see the top of this file. Painted and driven by its control.
class VTCORE_UI_EXPORT KwNumberEditorCell : public KwActionCell {
public:
  /// An enabled, not editable cell with empty text and the defaults: no
  /// colours set, insets 1, 1 and 0, at most 3 typed digits, no leading
  /// zeros, no shadow eights, a minimum delta of 1.
  KwNumberEditorCell();
  /// The same with `text` as its string value.
  explicit KwNumberEditorCell(const QString& text);
  /// Destroys the cell without leaving editing: the delegate is not told.
  ~KwNumberEditorCell() override;

  // --- Colours. An invalid colour means "none". Setting a colour equal to
  // the current one does nothing; any other change repaints. ---

  ///@{
  /// Fill behind the cell when drawsBackground().
  QColor backgroundColor() const { return m_backgroundColor; }
  void setBackgroundColor(const QColor& color);
  ///@}
  ///@{
  /// Text colour when not editing; none: the view palette's window text
  /// (black in a light palette).
  QColor textColor() const { return m_textColor; }
  void setTextColor(const QColor& color);
  ///@}
  ///@{
  /// Fill of the editing frame; none: the view palette's highlight.
  QColor editBackgroundColor() const { return m_editBackgroundColor; }
  void setEditBackgroundColor(const QColor& color);
  ///@}
  ///@{
  /// Text colour while editing; none: the view palette's highlighted text,
  /// which stands out on the highlight.
  QColor editTextColor() const { return m_editTextColor; }
  void setEditTextColor(const QColor& color);
  ///@}
  ///@{
  /// Colour of the shadow eights; none: RGB 0.8, 0.8, 0.8 at alpha 0.5.
  QColor shadowEightColor() const { return m_shadowEightColor; }
  void setShadowEightColor(const QColor& color);
  ///@}
  ///@{
  /// Colour of the leading zeros; none: the text colour.
  QColor leadingZerosColor() const { return m_leadingZerosColor; }
  void setLeadingZerosColor(const QColor& color);
  ///@}

  // --- Layout and look ---

  ///@{
  /// The text measured for the cell's size instead of its own (never drawn);
  /// empty: the cell's own text is measured. Setting it neither repaints nor
  /// resizes: the control's layout does that.
  QString placeHolderString() const { return m_placeHolderString; }
  void setPlaceHolderString(const QString& text);
  ///@}
  ///@{
  /// Whether the cell fills its frame with backgroundColor() (when one is
  /// set); false by default. Setting it repaints.
  bool drawsBackground() const { return m_drawsBackground; }
  void setDrawsBackground(bool draws);
  ///@}
  ///@{
  /// If above 0, the number is drawn zero-padded to this many characters
  /// (sign included). Negative counts as 0; more than 64 as 64.
  int leadingZeros() const { return m_leadingZeros; }
  void setLeadingZeros(int count);
  ///@}
  ///@{
  /// If above 0, this many dim "8" glyphs are drawn behind the number, which
  /// is padded to stand over them. Negative counts as 0; more than 20 as 20.
  int shadowEights() const { return m_shadowEights; }
  void setShadowEights(int count);
  ///@}
  ///@{
  /// The room between the frame's left or right edge and the text, in
  /// points; 1 by default. Stored as given (a negative inset widens the text
  /// rectangle); setting it neither repaints nor resizes.
  float leftTextInset() const { return m_leftTextInset; }
  void setLeftTextInset(float inset);
  float rightTextInset() const { return m_rightTextInset; }
  void setRightTextInset(float inset);
  ///@}
  /// Sets the left and right insets to `inset`.
  void setHorizontalTextInsets(float inset);
  /// The left inset plus the right inset.
  float horizontalTextInsetSum() const { return m_leftTextInset + m_rightTextInset; }
  ///@{
  /// The room above and below the text, in points; 0 by default. Stored as
  /// given; setting it neither repaints nor resizes.
  float verticalTextInset() const { return m_verticalTextInset; }
  void setVerticalTextInset(float inset);
  ///@}
  ///@{
  /// Draw the text without antialiasing (a crisp, display-like look).
  bool disablesFontSmoothing() const { return m_disableFontSmoothing; }
  void setDisablesFontSmoothing(bool disables);
  ///@}

  // --- Editing ---

  ///@{
  /// The least change per drag or wheel step; values below 1 count as 1.
  int minimumDelta() const { return m_minimumDelta; }
  void setMinimumDelta(int delta);
  ///@}
  ///@{
  /// The most digits kept while typing; below 0 counts as 0 (typing then
  /// leaves the text empty, which reads as 0).
  int maxEditStringLen() const { return m_maxEditStringLen; }
  void setMaxEditStringLen(int length);
  ///@}
  ///@{
  /// Told when the cell leaves editing; not owned, null once destroyed.
  KwNumberEditorCellDelegate* delegate() const { return m_delegate.get(); }
  void setDelegate(KwNumberEditorCellDelegate* delegate) { m_delegate = delegate; }
  ///@}

  /// Whether the cell is in editing state (keys reach it, the editing frame
  /// is drawn).
  bool isEditing() const { return m_editing; }
  /// Whether typed digits or Delete changed the text since the last commit.
  bool isEditedByNumberKeys() const { return m_editedByNumberKeys; }
  /// The number before typing began; Escape restores it.
  std::int32_t editedByNumberKeysOldValue() const { return m_editedByNumberKeysOldValue; }

  /// Enters editing; nothing if already editing, disabled or not editable.
  void startEditing();
  /// stopEditingAndResignFirstResponder(true).
  void stopEditing();
  /// Leaves editing with reason dfne_se_StopEditingCalled; with `resign`
  /// the control view's window loses its keyboard focus.
  void stopEditingAndResignFirstResponder(bool resign);
  /// Leaves editing (nothing if not editing): commits typed digits first,
  /// repaints, tells the delegate with `reason`, and with `resign` clears the
  /// keyboard focus of the control view's window.
  void stopEditingWithReason(int reason, bool resignFirstResponder);

  /// Sets the number (if enabled), repaints and sends the action; clears the
  /// typed-digits state in any case.
  void setNewValueAndSendAction(std::int32_t value);
  /// Sends the cell's action to its target with the cell as argument, if the
  /// target responds to it.
  void sendCellAction();

  // --- Events (routed by the control) ---

  /// Keys while editing (ignored otherwise and when not editable): up and
  /// down arrows step by 1 and send the action; digits type (no action is
  /// sent; only the last maxEditStringLen() are kept); Backspace or Delete
  /// remove the last character; Escape restores the number from before
  /// typing and stops editing (dfne_se_EscapePressed); Return or Enter send
  /// the action and stop editing (dfne_se_EnterPressed). Both resign the
  /// keyboard focus. Other keys are ignored. Steps stop at the 32-bit limits.
  void keyDown(QKeyEvent* event) override;
  /// Yes: the wheel changes the number.
  bool respondsToScrollWheel() const override { return true; }
  /// Changes the number by exactly +/- minimumDelta() when the event's
  /// vertical delta, rounded away from zero, is not 0, and sends the action.
  /// The delta is the pixel delta when the event has one, else the angle
  /// delta / 120. Works whether or not the cell is editing; the number stops
  /// at the 32-bit limits.
  void scrollWheel(QWheelEvent* event) override;
  /// The vertical delta in the units scrollWheel rounds: the pixel delta
  /// when present, else the angle delta over 120 (one notch is 1.0).
  static double verticalWheelDelta(const QWheelEvent& event);
  /// A press is tracked only by an editable cell.
  bool startTracking(QPointF startPoint, QWidget* view) override;
  /// A drag: the vertical travel upward (Qt's y grows downward), rounded up,
  /// is the change; 0 changes nothing, anything else is raised to at least
  /// minimumDelta() in size, applied by setNewValueAndSendAction and stopped
  /// at the 32-bit limits. A travel that is not a finite number changes
  /// nothing. Always answers true.
  bool continueTracking(QPointF lastPoint, QPointF currentPoint, QWidget* view) override;
  /// The cell tracks until the mouse goes up.
  static bool prefersTrackingUntilMouseUp() { return true; }

  // --- Size and drawing ---

  /// Measures the place holder (or the text) in the cell's font: width =
  /// ceiling(insets + min(bounds width, text width)), height =
  /// ceiling(2 x vertical inset + min(bounds height, text height)).
  QSizeF cellSizeForBounds(const QRectF& bounds) const override;
  /// Remembers `frame` and `view`, then draws the background (when
  /// drawsBackground() and a colour is set), the editing frame (while
  /// editing) and the title.
  void drawInteriorWithFrame(const QRectF& frame, QWidget* view, QPainter& painter) override;
  /// The editing frame: a rounded rectangle inset by 1.5 points on every side,
  /// corner radius 1/8 of the frame's height, filled with the editing
  /// background colour and outlined 1 point wide in the palette's mid
  /// colour. Nothing when the frame is 3 points or less in either direction.
  virtual void drawEditingBackgroundWithFrame(const QRectF& frame, QWidget* view,
                                              QPainter& painter);
  /// The text of displayString(), over its shadow eights, with the leading
  /// zeros in their own colour when one is set; nothing when the cell's text
  /// is empty. The text rectangle's top is computed as if the frame stood at
  /// y = 0, whatever its own y.
  virtual void drawTitleWithFrame(const QRectF& frame, QWidget* view, QPainter& painter);
  /// The frame the cell was last drawn into.
  QRectF cellFrame() const { return m_cellFrame; }

  /// The text drawTitleWithFrame shows with these settings: the number
  /// zero-padded to leadingZeros() characters, else padded with spaces to
  /// shadowEights() characters (on the right for left-aligned cells, cut to
  /// that length; on the left otherwise), else the text as it is.
  QString displayString() const;

private:
  void setColor(QColor& field, const QColor& color);

  QColor m_backgroundColor;
  QColor m_textColor;
  QColor m_editBackgroundColor;
  QColor m_editTextColor;
  QColor m_shadowEightColor;
  QColor m_leadingZerosColor;
  QString m_placeHolderString;
  bool m_drawsBackground = false;
  bool m_editedByNumberKeys = false;
  std::int32_t m_editedByNumberKeysOldValue = 0;
  bool m_editing = false;
  float m_leftTextInset = 1.0f;
  float m_rightTextInset = 1.0f;
  float m_verticalTextInset = 0.0f;
  std::int32_t m_maxEditStringLen = 3;
  std::int32_t m_leadingZeros = 0;
  std::int32_t m_shadowEights = 0;
  vtcore::DelegatePointer<KwNumberEditorCellDelegate> m_delegate;
  QRectF m_cellFrame;
  std::int32_t m_minimumDelta = 1;
  bool m_disableFontSmoothing = false;
};
