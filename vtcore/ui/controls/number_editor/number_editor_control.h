// DfNumberEditorControl: a number editor holding one 64-bit value, shown as
// a row of editor cells with separator cells between them ("1 / 1 / 1 / 0").
//
// Editor cells stand at the even cell indexes (0, 2, 4 ...), separators at
// the odd ones; there is one separator fewer than editor cells. A delegate
// may split the value into the editor cells' numbers and join them back
// (bar / beat / division / tick, say); without one, the value is the number
// of cell 0. The font is fitted to the control's width: the largest size,
// from 100 points down in steps of 0.5 to 1.5, at which every place holder
// and separator fits.
//
// When the value changes through a cell the control sends its action to its
// target ("valueChanged(DfNumberEditorControl*)", say, see target_action.h)
// and emits actionSent(): at once, or, with continuous sending off, once at
// mouse-up and only if something changed. A press held for 0.6 s with a
// long-click action set ends the drag and sends the long-click action.
#pragma once

#include <vtcore/export.h>
#include <vtcore/ui/common/target_action/delegate.h>
#include <vtcore/ui/common/target_action/target_action.h>
#include <vtcore/ui/controls/number_editor/cell_group_control.h>

#include <QCborMap>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class DfNumberEditorControl;
class KwTimer;

/// Optional questions a number editor asks its owner. Each has a default
/// meaning "not answered" (an empty optional), and the control then uses its
/// own default. A delegate that overrides some of these overloads should
/// bring the others into scope with `using DfNumberEditorDelegate::numberEditorControl;`.
class VTCORE_UI_EXPORT DfNumberEditorDelegate : public vtcore::Delegate {
public:
  /// Names the editor cell whose accessibility minimum is asked.
  struct GetAccessibilityMinValueForEditorCellAtIndex {
    /// The editor cell's number: 0 for the first editor cell, and so on.
    int index;
  };
  /// Names the editor cell whose accessibility maximum is asked.
  struct GetAccessibilityMaxValueForEditorCellAtIndex {
    /// The editor cell's number: 0 for the first editor cell, and so on.
    int index;
  };

  /// The editor cells' numbers for `calculateCellValuesFromValue`, one per
  /// editor cell in order. A shorter list leaves the remaining cells as they
  /// are; extra numbers are ignored.
  virtual std::optional<std::vector<std::int32_t>>
  numberEditorControl(DfNumberEditorControl* control, std::int64_t calculateCellValuesFromValue);
  /// The value for the editor cells' numbers `calculateValueFromCellValues`
  /// (one per editor cell, in order).
  virtual std::optional<std::int64_t>
  numberEditorControl(DfNumberEditorControl* control,
                      const std::vector<std::int32_t>& calculateValueFromCellValues);
  /// Told that the number of `valueOfCellChanged` changed, before the value
  /// is recomputed: the place to clamp the cell. Nothing by default.
  virtual void numberEditorControl(DfNumberEditorControl* control,
                                   KwNumberEditorCell* valueOfCellChanged);
  /// The least number the editor cell may hold, for assistive technology;
  /// not answered, the cell reports no minimum.
  virtual std::optional<std::int64_t>
  numberEditorControl(DfNumberEditorControl* control,
                      GetAccessibilityMinValueForEditorCellAtIndex editorCell);
  /// The greatest number the editor cell may hold, for assistive technology;
  /// not answered, the cell reports no maximum.
  virtual std::optional<std::int64_t>
  numberEditorControl(DfNumberEditorControl* control,
                      GetAccessibilityMaxValueForEditorCellAtIndex editorCell);
};

/// A number editor holding one 64-bit value in a row of editor and separator
/// cells; see the top of this file. Single-threaded: use it on the GUI
/// thread only.
class VTCORE_UI_EXPORT DfNumberEditorControl : public KwCellGroupControl {
  Q_OBJECT
  // What a form (Qt Designer, uic, QUiLoader) sets. The cell count comes
  // first: setting it replaces the separators, whose strings follow it.
  /// The number of editor cells (setEditorCellCount()).
  Q_PROPERTY(int editorCellCount READ editorCellCount WRITE setEditorCellCount)
  /// The separator cells' strings, in order (setSeparatorStrings()).
  Q_PROPERTY(QStringList separatorStrings READ separatorStrings WRITE setSeparatorStrings)
  /// Whether the action is sent at every change or once at mouse-up.
  Q_PROPERTY(bool sendsActionContinuous READ sendsActionContinuous WRITE setSendsActionContinuous)
  /// The value (setValue()).
  Q_PROPERTY(qlonglong value READ value WRITE setValue)
public:
  /// Makes the cells of new controls (or of one control): editor and
  /// separator cells alike. A factory that is empty or returns null makes
  /// plain KwNumberEditorCell objects.
  using CellClass = std::function<std::unique_ptr<KwNumberEditorCell>()>;

  /// One editable cell showing 0 (place holder "000"), right-aligned, in the
  /// system font at 12 points fitted to the width, continuous sending on.
  explicit DfNumberEditorControl(QWidget* parent = nullptr);
  /// The same with `frame` as its geometry.
  explicit DfNumberEditorControl(const QRect& frame, QWidget* parent = nullptr);
  /// A control made from an archive written by encodeWithCoder: missing or
  /// mistyped keys keep the defaults above.
  explicit DfNumberEditorControl(const QCborMap& coder, QWidget* parent = nullptr);
  /// Destroys the control, its cells and any pending long-click timer;
  /// nothing is sent.
  ~DfNumberEditorControl() override;

  /// The cell factory of controls made from now on (all new controls).
  static void setCellClassForNewControls(CellClass cellClass);
  ///@{
  /// The cell factory of this control, used by setEditorCellCount from now
  /// on; cells already made stay. A new control starts with the factory set
  /// for new controls (empty by default).
  void setCellClass(CellClass cellClass);
  const CellClass& cellClass() const { return m_cellClass; }
  ///@}

  // --- Archiving ---

  /// Writes the control into `coder`: "NUMBEREDITOR_VALUE" (integer),
  /// "NUMBEREDITOR_CONTINUOUS", "NUMBEREDITOR_CUSTOMSEPARATORWIDTHS" (bools),
  /// "NUMBEREDITOR_SHADOWCOLOR" (an ARGB colour name, only when one is set),
  /// and the base keys "CONTROL_FRAME" (x, y, width, height), "CONTROL_ENABLED"
  /// and "CONTROL_FONT" (QFont::toString).
  void encodeWithCoder(QCborMap& coder) const;

  // --- Value, target and action ---

  ///@{
  /// The 64-bit value; 0 by default. The setter stores any value and sets the
  /// editor cells from it (calculateCellValuesFromValue); it sends no action
  /// and leaves oldValue() alone. Without a delegate's split, cell 0 shows
  /// the value cut to its low 32 bits.
  std::int64_t value() const { return m_value; }
  void setValue(std::int64_t value);
  ///@}
  ///@{
  /// The value as it was after the last sent action, for the action's
  /// receiver to compare with; stored as given.
  std::int64_t oldValue() const { return m_oldValue; }
  void setOldValue(std::int64_t value) { m_oldValue = value; }
  ///@}
  /// Copies value() into oldValue(); done after every sent action.
  void updateOldValue() { m_oldValue = m_value; }

  ///@{
  /// The object both actions are sent to; not owned, null once destroyed.
  /// Null (the default) sends nothing.
  QObject* target() const { return m_targetAction.target(); }
  void setTarget(QObject* target) { m_targetAction.setTarget(target); }
  ///@}
  ///@{
  /// A method signature taking one DfNumberEditorControl* (or a base),
  /// stored normalised; null or empty: none. Sent only when the target
  /// responds to it.
  const QByteArray& action() const { return m_targetAction.action(); }
  void setAction(const char* action) { m_targetAction.setAction(action); }
  ///@}
  ///@{
  /// The action sent on a press held for 0.6 s, a signature like action()'s,
  /// stored normalised; null or empty: none (a long press is then an
  /// ordinary one).
  const QByteArray& longClickAction() const { return m_longClickAction; }
  void setLongClickAction(const char* action);
  ///@}
  ///@{
  /// Whether every change through a cell sends the action at once (true, the
  /// default); false: changes made while the button is down send it once,
  /// when the button goes up after a press a cell tracked, and only if
  /// something changed.
  bool sendsActionContinuous() const { return m_sendActionContinuous; }
  void setSendsActionContinuous(bool continuous) { m_sendActionContinuous = continuous; }
  ///@}

  ///@{
  /// The delegate asked to split and join the value; not owned, null once
  /// destroyed, and null when the control's delegate (set through the base
  /// class) is not a DfNumberEditorDelegate. Setting it changes no cell:
  /// call setValue to apply a new split.
  DfNumberEditorDelegate* numberEditorDelegate() const;
  void setDelegate(DfNumberEditorDelegate* delegate);
  ///@}

  // --- Cells ---

  /// Replaces every cell by `count` editor cells (text "0", place holder
  /// ".00") with a "/" separator between each two. Negative counts as 0.
  /// Cells come from cellClass(), custom separator widths are forgotten,
  /// an editing cell stops first, and the font is fitted again. The cells
  /// show 0 whatever value() is: call setValue to show it.
  void setEditorCellCount(int count);
  ///@{
  /// The number of editor cells (cells at even indexes) and of separator
  /// cells (at odd indexes).
  int editorCellCount() const;
  int separatorCellCount() const;
  ///@}
  ///@{
  /// The editor or separator cell of that number (0 for the first), still
  /// owned by the control; null out of range.
  KwNumberEditorCell* editorCellAtIndex(int index) const;
  KwNumberEditorCell* separatorCellAtIndex(int index) const;
  ///@}
  /// The editor cells' numbers, in order.
  std::vector<std::int32_t> editorCellValues() const;

  ///@{
  /// The settings of one editor cell by its number, as the cell's own
  /// (KwNumberEditorCell::setMaxEditStringLen and so on). A setter with a
  /// number out of range does nothing; a getter answers 0 or an empty
  /// string. Nothing is laid out again: after changing place holders, call
  /// recalculateFontSize (or adjustCellsAndControlSizeToFontSize).
  void setMaxEditStringLen(int length, int ofEditorCellAtIndex);
  int maxEditStringLenOfEditorCellAtIndex(int index) const;
  void setPlaceHolderString(const QString& text, int ofEditorCellAtIndex);
  QString placeHolderStringOfEditorCellAtIndex(int index) const;
  void setLeadingZeros(int count, int ofEditorCellAtIndex);
  int leadingZerosOfEditorCellAtIndex(int index) const;
  void setShadowEights(int count, int ofEditorCellAtIndex);
  int shadowEightsOfEditorCellAtIndex(int index) const;
  ///@}
  ///@{
  /// The text of one separator cell by its number ("/" by default). A setter
  /// with a number out of range does nothing; the getter answers an empty
  /// string. Nothing is laid out again.
  void setString(const QString& text, int ofSeparatorCellAtIndex);
  QString stringOfSeparatorCellAtIndex(int index) const;
  ///@}
  /// The strings of all separator cells, in order.
  QStringList separatorStrings() const;
  /// Sets the separator cells' strings in order, as setString does one by
  /// one: strings past the last separator are ignored, and separators past
  /// the last string keep theirs.
  void setSeparatorStrings(const QStringList& strings);
  ///@{
  /// The separator's width when custom separator widths are used. A negative
  /// or not finite width counts as 0; a number out of range does nothing.
  /// The getter answers the width set, else the separator's own cellSize()
  /// width, and 0 out of range. Widths are forgotten by setEditorCellCount.
  void setWidth(qreal width, int ofSeparatorCellAtIndex);
  qreal widthOfSeparatorCellAtIndex(int index) const;
  ///@}
  ///@{
  /// Whether separators take the widths set with setWidth instead of their
  /// text's width; false by default. Nothing is laid out again.
  bool useCustomSeparatorWidths() const { return m_useCustomSeparatorWidths; }
  void setUseCustomSeparatorWidths(bool use);
  ///@}
  ///@{
  /// The colour of every editor cell's shadow eights, now and for editor
  /// cells added later; invalid (the default): the cells' default.
  QColor shadowEightColor() const { return m_shadowEightColor; }
  void setShadowEightColor(const QColor& color);
  ///@}

  /// As the base class, then: editor cells (even indexes) also get the
  /// shadow-eight colour, separators centred text; number editor cells draw
  /// no background; every cell gets no bezel or border and the control as
  /// target with cellContentDidChange as action.
  void setUpAddedCellAttributes(KwActionCell* cell) override;

  // --- Sizes ---

  /// Fits the font to the width (see the top of this file), then the cell
  /// sizes, and repaints. Heights are not considered; when nothing fits,
  /// 1.5 points is kept.
  void recalculateFontSize();
  /// The font size recalculateFontSize would choose for `width` with the
  /// current cells and font family.
  qreal fittingFontSize(qreal width) const;
  /// Every cell gets the control's height and its own width (custom widths
  /// for separators when used), laid out from x = 0 without gaps; a single
  /// cell gets the whole control.
  void recalculateCellSizes();
  void recalculateCellPositionsAndSizes() override { recalculateCellSizes(); }
  /// Sizes the control to its current font (see sizeForCurrentFont), then
  /// its cells, and repaints; the font is not fitted again. With
  /// `keepLeftEdge` false the right edge stays where it was.
  void adjustCellsAndControlSizeToFontSize(bool keepLeftEdge);
  /// The size adjustCellsAndControlSizeToFontSize would give the control:
  /// the width of every editor cell's place holder and separator's text (or
  /// custom width) in the control's font plus their insets, by the tallest
  /// text height plus twice the cell's vertical inset, rounded up.
  QSize sizeForCurrentFont() const;
  /// sizeForCurrentFont().
  QSize sizeHint() const override { return sizeForCurrentFont(); }

  /// The pending long-click timer, or null (there is one only while the
  /// button is down and a long-click action is set).
  KwTimer* longClickTimer() const { return m_longClickTimer.get(); }

public Q_SLOTS:
  /// The action of every cell: lets the delegate see the change, recomputes
  /// the value, then sends the action, or, with continuous sending off and
  /// the button down, marks it for mouse-up. Ignores a sender that is not a
  /// number editor cell of this control.
  void cellContentDidChange(KwActionCell* sender);
  /// Sends the action to the target (if it responds), emits actionSent(),
  /// then updateOldValue().
  void sendAction();
  /// The long-click timer fired: ends the press's tracking as a mouse-up,
  /// sends the long-click action to the target (if it responds) and emits
  /// longClicked(). Ignores any timer other than the pending one.
  void longClickTimeOut(KwTimer* timer);

Q_SIGNALS:
  /// Emitted whenever the action is sent (target or not).
  void actionSent(DfNumberEditorControl* control);
  /// Emitted whenever the long-click action is sent (target or not).
  void longClicked(DfNumberEditorControl* control);

protected:
  /// Forgets a pending mouse-up action and any long-click timer, then, when
  /// a long-click action is set, starts a 0.6 s one-shot long-click timer.
  void mouseButtonWentDown() override;
  /// Drops the long-click timer and sends the action marked for mouse-up, if
  /// a cell tracked the press.
  void mouseButtonWentUp() override;
  /// Fits the font again when the width differs from the one it was last
  /// fitted or sized to; otherwise only the cell sizes follow.
  void resizeEvent(QResizeEvent* event) override;

  /// Sets the editor cells from value(): the delegate's split (a shorter
  /// list leaves the remaining cells, extra numbers are ignored), or else
  /// cell 0 to the value cut to 32 bits.
  void calculateCellValuesFromValue();
  /// The value the editor cells stand for: the delegate's join, or else
  /// cell 0's number (0 without cells).
  std::int64_t calculateValueFromCellValues() const;
  /// Tells the delegate that `cell` changed, then sets value() from the
  /// cells (calculateValueFromCellValues).
  void valueOfCellChanged(KwNumberEditorCell* cell);

public:
  ///@{
  /// The delegate's accessibility minimum and maximum for the editor cell
  /// `cell` (its editor number is its cell index / 2); empty when the
  /// delegate does not answer or `cell` is not an editor cell of this control.
  std::optional<std::int64_t>
  _askDelegateForAXMinValueForCell(const KwNumberEditorCell* cell) const;
  std::optional<std::int64_t>
  _askDelegateForAXMaxValueForCell(const KwNumberEditorCell* cell) const;
  ///@}

private:
  void initialize();
  QFont fittingFamilyFont() const;
  std::unique_ptr<KwNumberEditorCell> makeCell() const;

  std::int64_t m_value = 0;
  std::int64_t m_oldValue = 0;
  bool m_useCustomSeparatorWidths = false;
  vtcore::TargetAction m_targetAction;
  bool m_sendActionContinuous = true;
  bool m_needsToSendActionWhenMouseButtonGoesUp = false;
  QColor m_shadowEightColor;
  std::unique_ptr<KwTimer> m_longClickTimer;
  QByteArray m_longClickAction;
  CellClass m_cellClass;
  // Separator widths by separator number, for custom separator widths.
  std::vector<qreal> m_separatorWidths;
  // The width the font was last fitted to: a resize to another width fits it
  // again, while sizing the control to its font does not undo the font.
  int m_fittedWidth = -1;
};
