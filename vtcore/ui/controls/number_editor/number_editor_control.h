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
    int index;
  };
  /// Names the editor cell whose accessibility maximum is asked.
  struct GetAccessibilityMaxValueForEditorCellAtIndex {
    int index;
  };

  /// The editor cells' numbers for `calculateCellValuesFromValue`, one per
  /// editor cell in order. A shorter list leaves the remaining cells as they
  /// are; extra numbers are ignored.
  virtual std::optional<std::vector<std::int32_t>>
  numberEditorControl(DfNumberEditorControl* control, std::int64_t calculateCellValuesFromValue);
  /// The value for the editor cells' numbers `calculateValueFromCellValues`.
  virtual std::optional<std::int64_t>
  numberEditorControl(DfNumberEditorControl* control,
                      const std::vector<std::int32_t>& calculateValueFromCellValues);
  /// Told that the number of `valueOfCellChanged` changed, before the value
  /// is recomputed: the place to clamp the cell. Nothing by default.
  virtual void numberEditorControl(DfNumberEditorControl* control,
                                   KwNumberEditorCell* valueOfCellChanged);
  /// The least number the editor cell may hold, for assistive technology.
  virtual std::optional<std::int64_t>
  numberEditorControl(DfNumberEditorControl* control,
                      GetAccessibilityMinValueForEditorCellAtIndex editorCell);
  /// The greatest number the editor cell may hold, for assistive technology.
  virtual std::optional<std::int64_t>
  numberEditorControl(DfNumberEditorControl* control,
                      GetAccessibilityMaxValueForEditorCellAtIndex editorCell);
};

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
  ~DfNumberEditorControl() override;

  /// The cell factory of controls made from now on (all new controls).
  static void setCellClassForNewControls(CellClass cellClass);
  /// The cell factory of this control, used by setEditorCellCount from now on.
  void setCellClass(CellClass cellClass);
  const CellClass& cellClass() const { return m_cellClass; }

  // --- Archiving ---

  /// Writes the control into `coder`: "NUMBEREDITOR_VALUE" (integer),
  /// "NUMBEREDITOR_CONTINUOUS", "NUMBEREDITOR_CUSTOMSEPARATORWIDTHS" (bools),
  /// "NUMBEREDITOR_SHADOWCOLOR" (an ARGB colour name, only when one is set),
  /// and the base keys "CONTROL_FRAME" (x, y, width, height), "CONTROL_ENABLED"
  /// and "CONTROL_FONT" (QFont::toString).
  void encodeWithCoder(QCborMap& coder) const;

  // --- Value, target and action ---

  std::int64_t value() const { return m_value; }
  /// Stores the value and sets the editor cells from it.
  void setValue(std::int64_t value);
  std::int64_t oldValue() const { return m_oldValue; }
  void setOldValue(std::int64_t value) { m_oldValue = value; }
  /// Copies value() into oldValue(); done after every sent action.
  void updateOldValue() { m_oldValue = m_value; }

  /// Not owned; null once destroyed.
  QObject* target() const { return m_targetAction.target(); }
  void setTarget(QObject* target) { m_targetAction.setTarget(target); }
  /// A method signature taking one DfNumberEditorControl* (or a base).
  const QByteArray& action() const { return m_targetAction.action(); }
  void setAction(const char* action) { m_targetAction.setAction(action); }
  const QByteArray& longClickAction() const { return m_longClickAction; }
  /// The action sent on a press held for 0.6 s; null or empty: none.
  void setLongClickAction(const char* action);
  bool sendsActionContinuous() const { return m_sendActionContinuous; }
  void setSendsActionContinuous(bool continuous) { m_sendActionContinuous = continuous; }

  DfNumberEditorDelegate* numberEditorDelegate() const;
  void setDelegate(DfNumberEditorDelegate* delegate);

  // --- Cells ---

  /// Replaces every cell by `count` editor cells (text "0", place holder
  /// ".00") with a "/" separator between each two. Negative counts as 0.
  void setEditorCellCount(int count);
  int editorCellCount() const;
  int separatorCellCount() const;
  /// The editor or separator cell of that number, or null.
  KwNumberEditorCell* editorCellAtIndex(int index) const;
  KwNumberEditorCell* separatorCellAtIndex(int index) const;
  /// The editor cells' numbers, in order.
  std::vector<std::int32_t> editorCellValues() const;

  void setMaxEditStringLen(int length, int ofEditorCellAtIndex);
  int maxEditStringLenOfEditorCellAtIndex(int index) const;
  void setPlaceHolderString(const QString& text, int ofEditorCellAtIndex);
  QString placeHolderStringOfEditorCellAtIndex(int index) const;
  void setLeadingZeros(int count, int ofEditorCellAtIndex);
  int leadingZerosOfEditorCellAtIndex(int index) const;
  void setShadowEights(int count, int ofEditorCellAtIndex);
  int shadowEightsOfEditorCellAtIndex(int index) const;
  void setString(const QString& text, int ofSeparatorCellAtIndex);
  QString stringOfSeparatorCellAtIndex(int index) const;
  /// The strings of all separator cells, in order.
  QStringList separatorStrings() const;
  /// Sets the separator cells' strings in order, as setString does one by
  /// one: strings past the last separator are ignored, and separators past
  /// the last string keep theirs.
  void setSeparatorStrings(const QStringList& strings);
  /// The separator's width when custom separator widths are used.
  void setWidth(qreal width, int ofSeparatorCellAtIndex);
  qreal widthOfSeparatorCellAtIndex(int index) const;
  bool useCustomSeparatorWidths() const { return m_useCustomSeparatorWidths; }
  void setUseCustomSeparatorWidths(bool use);
  /// The colour of every editor cell's shadow eights; invalid: the default.
  QColor shadowEightColor() const { return m_shadowEightColor; }
  void setShadowEightColor(const QColor& color);

  /// Editor cells also get the shadow-eight colour, separators centred text;
  /// every cell gets the control as target with cellContentDidChange.
  void setUpAddedCellAttributes(KwActionCell* cell) override;

  // --- Sizes ---

  /// Fits the font to the width (see the class comment), then the cells.
  void recalculateFontSize();
  /// The font size recalculateFontSize would choose for `width` with the
  /// current cells and font family.
  qreal fittingFontSize(qreal width) const;
  /// Every cell gets the control's height and its own width (custom widths
  /// for separators when used); a single cell gets the whole control.
  void recalculateCellSizes();
  void recalculateCellPositionsAndSizes() override { recalculateCellSizes(); }
  /// Sizes the control to its current font: with `keepLeftEdge` false the
  /// right edge stays where it was.
  void adjustCellsAndControlSizeToFontSize(bool keepLeftEdge);
  /// The size adjustCellsAndControlSizeToFontSize would give the control.
  QSize sizeForCurrentFont() const;
  QSize sizeHint() const override { return sizeForCurrentFont(); }

  /// The pending long-click timer, or null (there is one only while the
  /// button is down and a long-click action is set).
  KwTimer* longClickTimer() const { return m_longClickTimer.get(); }

public Q_SLOTS:
  /// The action of every cell: lets the delegate see the change, recomputes
  /// the value, then sends the action (or marks it for mouse-up).
  void cellContentDidChange(KwActionCell* sender);
  /// Sends the action to the target (if it responds), emits actionSent(),
  /// then updateOldValue().
  void sendAction();
  /// The long-click timer fired: ends the press's tracking as a mouse-up and
  /// sends the long-click action.
  void longClickTimeOut(KwTimer* timer);

Q_SIGNALS:
  /// Emitted whenever the action is sent (target or not).
  void actionSent(DfNumberEditorControl* control);
  /// Emitted whenever the long-click action is sent (target or not).
  void longClicked(DfNumberEditorControl* control);

protected:
  void mouseButtonWentDown() override;
  void mouseButtonWentUp() override;
  void resizeEvent(QResizeEvent* event) override;

  /// Sets the editor cells from value() (the delegate's split or cell 0).
  void calculateCellValuesFromValue();
  /// The value the editor cells stand for (the delegate's join or cell 0).
  std::int64_t calculateValueFromCellValues() const;
  /// Tells the delegate that `cell` changed.
  void valueOfCellChanged(KwNumberEditorCell* cell);

public:
  /// The delegate's accessibility minimum and maximum for the editor cell
  /// `cell` (its editor number is its cell index / 2); empty when the
  /// delegate does not answer or `cell` is not an editor cell of this control.
  std::optional<std::int64_t>
  _askDelegateForAXMinValueForCell(const KwNumberEditorCell* cell) const;
  std::optional<std::int64_t>
  _askDelegateForAXMaxValueForCell(const KwNumberEditorCell* cell) const;

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
