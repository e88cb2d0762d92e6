// The number editor driven by real Qt events: hand-built mouse and wheel
// events with fractional positions, and QTest key clicks.
#include <vtcore/ui/common/timer/timer.h>
#include <vtcore/ui/controls/number_editor/detail/font_fit.h>
#include <vtcore/ui/controls/number_editor/number_editor_control.h>

#include <QAccessible>
#include <QApplication>
#include <QCborMap>
#include <QImage>
#include <QKeyEvent>
#include <QTest>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

namespace {

// Receives the control's actions.
class Recorder : public QObject {
  Q_OBJECT
public:
  int actions = 0;
  int longClicks = 0;
  std::int64_t lastValue = 0;

public Q_SLOTS:
  void valueChanged(DfNumberEditorControl* control) {
    ++actions;
    lastValue = control->value();
  }
  void longClick(DfNumberEditorControl*) { ++longClicks; }
};

// Remembers why cells stopped editing.
class ReasonRecordingEditor : public DfNumberEditorControl {
public:
  using DfNumberEditorControl::DfNumberEditorControl;
  std::vector<int> reasons;
  void dfNumberEditorCell(KwNumberEditorCell* cell, int reason) override {
    reasons.push_back(reason);
    DfNumberEditorControl::dfNumberEditorCell(cell, reason);
  }
};

// Splits a value into hundreds and the rest, clamps the rest to 0..99, and
// tells assistive technology that range.
class HundredsDelegate : public DfNumberEditorDelegate {
public:
  using DfNumberEditorDelegate::numberEditorControl;
  std::optional<std::vector<std::int32_t>> numberEditorControl(DfNumberEditorControl*,
                                                               std::int64_t value) override {
    return std::vector<std::int32_t>{static_cast<std::int32_t>(value / 100),
                                     static_cast<std::int32_t>(value % 100)};
  }
  std::optional<std::int64_t> numberEditorControl(DfNumberEditorControl*,
                                                  const std::vector<std::int32_t>& cells) override {
    return std::int64_t{cells.at(0)} * 100 + cells.at(1);
  }
  void numberEditorControl(DfNumberEditorControl* control, KwNumberEditorCell* cell) override {
    if (cell == control->editorCellAtIndex(1))
      cell->setIntValue(std::clamp(cell->intValue(), 0, 99));
  }
  std::optional<std::int64_t>
  numberEditorControl(DfNumberEditorControl*,
                      GetAccessibilityMaxValueForEditorCellAtIndex cell) override {
    return cell.index == 1 ? std::optional<std::int64_t>(99) : std::nullopt;
  }
  std::optional<std::int64_t>
  numberEditorControl(DfNumberEditorControl*,
                      GetAccessibilityMinValueForEditorCellAtIndex) override {
    return 0;
  }
};

void sendMouse(QWidget* widget, QEvent::Type type, QPointF at, Qt::MouseButton button,
               Qt::MouseButtons buttons) {
  QMouseEvent event(type, at, widget->mapToGlobal(at), button, buttons, Qt::NoModifier);
  QApplication::sendEvent(widget, &event);
}

void press(QWidget* widget, QPointF at) {
  sendMouse(widget, QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton);
}
void dragTo(QWidget* widget, QPointF at) {
  sendMouse(widget, QEvent::MouseMove, at, Qt::NoButton, Qt::LeftButton);
}
void release(QWidget* widget, QPointF at) {
  sendMouse(widget, QEvent::MouseButtonRelease, at, Qt::LeftButton, Qt::NoButton);
}
void doubleClick(QWidget* widget, QPointF at) {
  press(widget, at);
  release(widget, at);
  sendMouse(widget, QEvent::MouseButtonDblClick, at, Qt::LeftButton, Qt::LeftButton);
  release(widget, at);
}

void wheel(QWidget* widget, QPointF at, QPoint pixelDelta, QPoint angleDelta) {
  QWheelEvent event(at, widget->mapToGlobal(at), pixelDelta, angleDelta, Qt::NoButton,
                    Qt::NoModifier, Qt::NoScrollPhase, false);
  QApplication::sendEvent(widget, &event);
}

// A one-field editor filling 60 x 20, its action going to `recorder`.
std::unique_ptr<ReasonRecordingEditor> singleField(Recorder& recorder) {
  auto editor = std::make_unique<ReasonRecordingEditor>(QRect(0, 0, 60, 20));
  editor->setTarget(&recorder);
  editor->setAction("valueChanged(DfNumberEditorControl*)");
  editor->setLongClickAction("longClick(DfNumberEditorControl*)");
  return editor;
}

// The centre of editor cell `index`.
QPointF centreOfEditor(const DfNumberEditorControl& editor, int index) {
  return editor.frameOfCellAtIndex(index * 2).center();
}

struct DragCase {
  double travel; // positive: downward on screen
  int minimumDelta;
  int change;
};

class NumberEditorDrag : public testing::TestWithParam<DragCase> {};

TEST_P(NumberEditorDrag, OnePointOfUpwardTravelIsOneUnitAtLeastTheMinimum) {
  Recorder recorder;
  auto editor = singleField(recorder);
  editor->editorCellAtIndex(0)->setMinimumDelta(GetParam().minimumDelta);
  editor->setValue(10);
  const QPointF start(30.25, 10.0);
  press(editor.get(), start);
  dragTo(editor.get(), start + QPointF(0, GetParam().travel));
  release(editor.get(), start + QPointF(0, GetParam().travel));
  EXPECT_EQ(editor->value(), 10 + GetParam().change);
  EXPECT_EQ(recorder.actions, GetParam().change == 0 ? 0 : 1);
  EXPECT_FALSE(editor->editingCell()) << "a drag never starts editing";
}

INSTANTIATE_TEST_SUITE_P(Travel, NumberEditorDrag,
                         testing::Values(DragCase{-0.4, 1, 1}, DragCase{0.4, 1, 0},
                                         DragCase{-0.4, 5, 5}, DragCase{-3.2, 1, 4},
                                         DragCase{2.6, 1, -2}, DragCase{1.5, 4, -4},
                                         DragCase{-6.0, 4, 6}, DragCase{0.0, 1, 0}));

TEST(NumberEditorDrag, OnlyDragsOfTheTrackedPressReachTheCell) {
  Recorder recorder;
  auto editor = singleField(recorder);
  dragTo(editor.get(), QPointF(10, 5)); // no press yet
  EXPECT_EQ(editor->value(), 0);
  // A press outside any editable cell tracks nothing.
  editor->editorCellAtIndex(0)->setEnabled(false);
  press(editor.get(), QPointF(10, 10));
  dragTo(editor.get(), QPointF(10, 2));
  release(editor.get(), QPointF(10, 2));
  EXPECT_EQ(editor->value(), 0);
}

struct WheelCase {
  QPoint pixelDelta;
  QPoint angleDelta;
  int change;
};

class NumberEditorWheel : public testing::TestWithParam<WheelCase> {};

TEST_P(NumberEditorWheel, StepsByExactlyTheMinimumWhateverTheDelta) {
  Recorder recorder;
  auto editor = singleField(recorder);
  editor->editorCellAtIndex(0)->setMinimumDelta(3);
  wheel(editor.get(), QPointF(20.5, 9.5), GetParam().pixelDelta, GetParam().angleDelta);
  EXPECT_EQ(editor->value(), GetParam().change);
  EXPECT_EQ(recorder.actions, GetParam().change == 0 ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(
    Deltas, NumberEditorWheel,
    testing::Values(WheelCase{{}, {0, 900}, 3},      // 7.5 notches
                    WheelCase{{}, {0, -900}, -3},    //
                    WheelCase{{}, {0, 10}, 3},       // a twelfth of a notch rounds away from 0
                    WheelCase{{}, {0, -10}, -3},     //
                    WheelCase{{0, 1}, {0, -900}, 3}, // the pixel delta wins when present
                    WheelCase{{}, {0, 0}, 0}, WheelCase{{}, {120, 0}, 0}));

TEST(NumberEditorKeys, TypedDigitsKeepTheLastOnesAndEscapeRestoresWithoutAction) {
  Recorder recorder;
  auto editor = singleField(recorder);
  editor->setValue(42);
  QTest::keyClick(editor.get(), Qt::Key_Return); // starts editing cell 0
  ASSERT_EQ(editor->editingCell(), editor->editorCellAtIndex(0));
  QTest::keyClicks(editor.get(), QStringLiteral("1234"));
  EXPECT_EQ(editor->editorCellAtIndex(0)->stringValue(), QStringLiteral("234"));
  EXPECT_EQ(recorder.actions, 0) << "typing sends nothing";
  QTest::keyClick(editor.get(), Qt::Key_Backspace);
  EXPECT_EQ(editor->editorCellAtIndex(0)->stringValue(), QStringLiteral("23"));
  QTest::keyClick(editor.get(), Qt::Key_Escape);
  EXPECT_EQ(editor->editorCellAtIndex(0)->intValue(), 42);
  EXPECT_EQ(editor->value(), 42);
  EXPECT_EQ(recorder.actions, 0);
  EXPECT_FALSE(editor->editingCell());
  EXPECT_EQ(editor->reasons, std::vector<int>{dfne_se_EscapePressed});
}

TEST(NumberEditorKeys, ReturnCommitsOnceAndArrowsStepByOne) {
  Recorder recorder;
  auto editor = singleField(recorder);
  editor->editorCellAtIndex(0)->setMinimumDelta(10);
  QTest::keyClick(editor.get(), Qt::Key_Enter);
  QTest::keyClick(editor.get(), Qt::Key_Up);
  QTest::keyClick(editor.get(), Qt::Key_Up);
  QTest::keyClick(editor.get(), Qt::Key_Down);
  EXPECT_EQ(editor->value(), 1) << "arrows step by 1, not by the minimum delta";
  EXPECT_EQ(recorder.actions, 3);
  QTest::keyClicks(editor.get(), QStringLiteral("57"));
  QTest::keyClick(editor.get(), Qt::Key_Return);
  EXPECT_EQ(editor->value(), 57);
  EXPECT_EQ(recorder.actions, 4);
  EXPECT_EQ(recorder.lastValue, 57);
  EXPECT_EQ(editor->reasons, std::vector<int>{dfne_se_EnterPressed});
  // Keys reach no cell once editing is over.
  QTest::keyClick(editor.get(), Qt::Key_Up);
  EXPECT_EQ(editor->value(), 57);
}

TEST(NumberEditorKeys, StoppingEditingCommitsTypedDigits) {
  Recorder recorder;
  auto editor = singleField(recorder);
  QTest::keyClick(editor.get(), Qt::Key_Return);
  QTest::keyClicks(editor.get(), QStringLiteral("9"));
  editor->stopEditingAndResignFirstResponder(false);
  EXPECT_EQ(editor->value(), 9);
  EXPECT_EQ(recorder.actions, 1);
  EXPECT_EQ(editor->reasons, std::vector<int>{dfne_se_StopEditingCalled});
}

// Records the keys that the editor passes on.
class KeyParent : public QWidget {
public:
  std::vector<int> keys;

protected:
  void keyPressEvent(QKeyEvent* event) override { keys.push_back(event->key()); }
};

TEST(NumberEditorKeys, ArrowsMoveBetweenFieldsWrappingAndSkippingSeparators) {
  KeyParent parent;
  Recorder recorder;
  auto* editor = new ReasonRecordingEditor(QRect(0, 0, 240, 24), &parent);
  editor->setEditorCellCount(3);
  QTest::keyClick(editor, Qt::Key_Left); // nothing editing: starts cell 0
  EXPECT_EQ(editor->editingCell(), editor->editorCellAtIndex(0));
  QTest::keyClick(editor, Qt::Key_Left); // wraps backwards to the last editor
  EXPECT_EQ(editor->editingCell(), editor->editorCellAtIndex(2));
  QTest::keyClick(editor, Qt::Key_Right); // wraps forwards
  EXPECT_EQ(editor->editingCell(), editor->editorCellAtIndex(0));
  QTest::keyClick(editor, Qt::Key_Right);
  EXPECT_EQ(editor->editingCell(), editor->editorCellAtIndex(1));
  EXPECT_TRUE(parent.keys.empty());
  EXPECT_EQ(editor->reasons.size(), 3u) << "each move stops the previous cell";

  // One field: nothing to move to, and the key goes on to the parent.
  editor->setEditorCellCount(1);
  QTest::keyClick(editor, Qt::Key_Right);
  EXPECT_EQ(editor->editingCell(), nullptr) << "fewer than two cells: Right starts nothing";
  QTest::keyClick(editor, Qt::Key_Return);
  ASSERT_EQ(editor->editingCell(), editor->editorCellAtIndex(0));
  QTest::keyClick(editor, Qt::Key_Right);
  EXPECT_EQ(editor->editingCell(), editor->editorCellAtIndex(0));
  EXPECT_EQ(parent.keys, std::vector<int>{Qt::Key_Right});
}

TEST(NumberEditorMouse, ContinuousOffSendsOnceAtMouseUpOnlyWhenChanged) {
  Recorder recorder;
  auto editor = singleField(recorder);
  editor->setLongClickAction(nullptr);
  editor->setSendsActionContinuous(false);
  press(editor.get(), QPointF(30, 10));
  for (double y = 9.0; y > 2; y -= 1.0)
    dragTo(editor.get(), QPointF(30, y));
  EXPECT_EQ(editor->value(), 7);
  EXPECT_EQ(recorder.actions, 0);
  release(editor.get(), QPointF(30, 3));
  EXPECT_EQ(recorder.actions, 1);
  EXPECT_EQ(recorder.lastValue, 7);
  EXPECT_EQ(editor->oldValue(), 7);

  press(editor.get(), QPointF(30, 10));
  dragTo(editor.get(), QPointF(30, 10.4));
  release(editor.get(), QPointF(30, 10.4));
  EXPECT_EQ(recorder.actions, 1) << "nothing changed, nothing sent";
}

TEST(NumberEditorMouse, LongClickEndsTrackingAndSendsTheLongClickAction) {
  Recorder recorder;
  auto editor = singleField(recorder);
  editor->setSendsActionContinuous(false);
  press(editor.get(), QPointF(30, 10));
  KwTimer* timer = editor->longClickTimer();
  ASSERT_NE(timer, nullptr);
  EXPECT_TRUE(timer->isActive());
  EXPECT_DOUBLE_EQ(timer->timeInterval(), 0.6);
  EXPECT_FALSE(timer->isRepeating());
  dragTo(editor.get(), QPointF(30, 8));
  timer->fire(); // what 0.6 s of holding does
  EXPECT_EQ(recorder.longClicks, 1);
  EXPECT_FALSE(editor->isMouseTrackingActive());
  EXPECT_EQ(recorder.actions, 1) << "the pending change goes out as the drag ends";
  dragTo(editor.get(), QPointF(30, 1)); // the drag is over
  release(editor.get(), QPointF(30, 1));
  EXPECT_EQ(editor->value(), 2);
  EXPECT_EQ(recorder.actions, 1);
  EXPECT_EQ(recorder.longClicks, 1);

  // Released in time: no long click.
  press(editor.get(), QPointF(30, 10));
  release(editor.get(), QPointF(30, 10));
  EXPECT_EQ(editor->longClickTimer(), nullptr);
  EXPECT_EQ(recorder.longClicks, 1);
}

TEST(NumberEditorMouse, SingleClickNeverEditsDoubleClickToggles) {
  QWidget window;
  auto* editor = new DfNumberEditorControl(QRect(0, 0, 200, 24), &window);
  editor->setEditorCellCount(2);
  window.show();
  window.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
  const QPointF second = centreOfEditor(*editor, 1);
  press(editor, second);
  release(editor, second);
  EXPECT_EQ(editor->editingCell(), nullptr);
  doubleClick(editor, second);
  EXPECT_EQ(editor->editingCell(), editor->editorCellAtIndex(1));
  EXPECT_TRUE(editor->hasFocus());
  doubleClick(editor, centreOfEditor(*editor, 0));
  EXPECT_EQ(editor->editingCell(), editor->editorCellAtIndex(0));
  doubleClick(editor, centreOfEditor(*editor, 0));
  EXPECT_EQ(editor->editingCell(), nullptr);
  EXPECT_FALSE(editor->hasFocus()) << "leaving by double click gives up the focus";

  // Losing the focus to another widget stops editing.
  doubleClick(editor, second);
  auto* other = new QWidget(&window);
  other->setFocusPolicy(Qt::StrongFocus);
  other->show();
  other->setFocus();
  EXPECT_EQ(editor->editingCell(), nullptr);
}

TEST(NumberEditorValue, DelegateSplitsJoinsAndClamps) {
  Recorder recorder;
  auto delegate = std::make_unique<HundredsDelegate>();
  DfNumberEditorControl editor(QRect(0, 0, 200, 24));
  editor.setEditorCellCount(2);
  editor.setDelegate(delegate.get());
  editor.setTarget(&recorder);
  editor.setAction("valueChanged(DfNumberEditorControl*)");
  editor.setValue(1234);
  EXPECT_EQ(editor.editorCellValues(), (std::vector<std::int32_t>{12, 34}));
  wheel(&editor, centreOfEditor(editor, 1), {}, {0, 120});
  EXPECT_EQ(editor.value(), 1235);
  EXPECT_EQ(recorder.lastValue, 1235);
  press(&editor, centreOfEditor(editor, 1));
  dragTo(&editor, centreOfEditor(editor, 1) - QPointF(0, 200.5));
  release(&editor, centreOfEditor(editor, 1) - QPointF(0, 200.5));
  EXPECT_EQ(editor.value(), 1299) << "the delegate clamps the field before the join";

  // The delegate goes away: the single-cell default takes over.
  delegate.reset();
  editor.setValue((std::int64_t{1} << 32) + 5);
  EXPECT_EQ(editor.editorCellValues(), (std::vector<std::int32_t>{5, 99}));
  EXPECT_EQ(editor.value(), (std::int64_t{1} << 32) + 5);
}

// Answers a fixed list, whatever the control has.
class FixedSplit : public DfNumberEditorDelegate {
public:
  using DfNumberEditorDelegate::numberEditorControl;
  explicit FixedSplit(std::vector<std::int32_t> numbers) : m_numbers(std::move(numbers)) {}
  std::optional<std::vector<std::int32_t>> numberEditorControl(DfNumberEditorControl*,
                                                               std::int64_t) override {
    return m_numbers;
  }

private:
  std::vector<std::int32_t> m_numbers;
};

TEST(NumberEditorValue, SplitsOfTheWrongLengthAndBadTextsHaveDefinedResults) {
  DfNumberEditorControl editor(QRect(0, 0, 200, 24));
  editor.setEditorCellCount(3);
  FixedSplit shorter({7});
  editor.setDelegate(&shorter);
  editor.setValue(1);
  EXPECT_EQ(editor.editorCellValues(), (std::vector<std::int32_t>{7, 0, 0}));
  FixedSplit longer({1, 2, 3, 4, 5});
  editor.setDelegate(&longer);
  editor.setValue(1);
  EXPECT_EQ(editor.editorCellValues(), (std::vector<std::int32_t>{1, 2, 3}));

  KwNumberEditorCell cell;
  const std::pair<const char*, std::int32_t> texts[] = {{"", 0},
                                                        {"  -12x", -12},
                                                        {"+7", 7},
                                                        {"abc", 0},
                                                        {"99999999999", INT32_MAX},
                                                        {"-99999999999", INT32_MIN},
                                                        {"2147483647", INT32_MAX}};
  for (const auto& [text, number] : texts) {
    cell.setStringValue(QString::fromLatin1(text));
    EXPECT_EQ(cell.intValue(), number) << text;
  }
  editor.setEditorCellCount(-3);
  EXPECT_EQ(editor.cellCount(), 0);
  editor.setValue(5); // no cell to show it: nothing breaks
  EXPECT_EQ(editor.value(), 5);
}

struct DisplayCase {
  std::int32_t value;
  int leadingZeros;
  int shadowEights;
  Qt::Alignment alignment;
  const char* shown;
};

class NumberEditorDisplay : public testing::TestWithParam<DisplayCase> {};

TEST_P(NumberEditorDisplay, PadsForZerosAndEights) {
  KwNumberEditorCell cell;
  cell.setIntValue(GetParam().value);
  cell.setLeadingZeros(GetParam().leadingZeros);
  cell.setShadowEights(GetParam().shadowEights);
  cell.setAlignment(GetParam().alignment);
  EXPECT_EQ(cell.displayString(), QString::fromLatin1(GetParam().shown));
}

INSTANTIATE_TEST_SUITE_P(Formats, NumberEditorDisplay,
                         testing::Values(DisplayCase{7, 3, 0, Qt::AlignRight, "007"},
                                         DisplayCase{-5, 3, 0, Qt::AlignRight, "-05"},
                                         DisplayCase{1234, 3, 0, Qt::AlignRight, "1234"},
                                         DisplayCase{7, 0, 3, Qt::AlignRight, "  7"},
                                         DisplayCase{7, 0, 3, Qt::AlignLeft, "7  "},
                                         DisplayCase{12345, 0, 3, Qt::AlignLeft, "123"},
                                         DisplayCase{7, 2, 3, Qt::AlignRight, "07"},
                                         DisplayCase{7, -4, 0, Qt::AlignRight, "7"}));

TEST(NumberEditorFont, FitsTheWidthAndKeepsTheFloorWhenNothingFits) {
  DfNumberEditorControl editor(QRect(0, 0, 400, 30));
  editor.setEditorCellCount(4);
  for (int width : {0, 3, 20})
    EXPECT_EQ(editor.fittingFontSize(width), 1.5) << width;
  // A hidden widget gets its resize when shown; the font follows it.
  editor.show();
  editor.resize(4, 30);
  EXPECT_EQ(editor.font().pointSizeF(), 1.5);
  // A wider control never gets a smaller font.
  qreal previous = 0;
  for (int width = 30; width <= 3000; width += 37) {
    const qreal size = editor.fittingFontSize(width);
    EXPECT_GE(size, previous) << width;
    previous = size;
  }
  editor.resize(300, 30);
  const qreal fitted = editor.font().pointSizeF();
  EXPECT_EQ(fitted, editor.fittingFontSize(300));
  EXPECT_LT(editor.sizeForCurrentFont().width(), 300);
}

// The bisection must find exactly the size the ladder finds, whatever the
// width, texts and family.
TEST(NumberEditorFont, BisectionFindsTheLaddersSize) {
  const std::vector<QString> fourFields = {".00", "/", ".00", "/", ".00", "/", ".00"};
  const std::vector<QString> midi = {"000"};
  const std::vector<QString> mixed = {"Wide", "::", "1", "88888"};
  QFont mono(QStringLiteral("DejaVu Sans Mono"));
  QFont sans(QStringLiteral("DejaVu Sans"));
  QFont bold(QStringLiteral("DejaVu Sans"));
  bold.setBold(true);
  int compared = 0;
  for (const QFont& font : {mono, sans, bold}) {
    for (const auto* texts : {&fourFields, &midi, &mixed}) {
      for (int width = 0; width <= 900; width += 6) {
        const vtcore::detail::FontFitRequest request{font, *texts, 6.0, width + 0.5};
        ASSERT_EQ(vtcore::detail::fitFontSize(request),
                  vtcore::detail::fitFontSizeByLadder(request))
            << font.family().toStdString() << " width " << width;
        ++compared;
      }
    }
  }
  EXPECT_GT(compared, 1300);
}

TEST(NumberEditorFont, SizingToTheFontKeepsTheChosenEdge) {
  DfNumberEditorControl editor(QRect(100, 5, 300, 30));
  editor.setEditorCellCount(2);
  QFont font = editor.font();
  font.setPointSizeF(10);
  editor.setFont(font);
  editor.adjustCellsAndControlSizeToFontSize(false);
  EXPECT_EQ(editor.geometry().x() + editor.geometry().width(), 400);
  EXPECT_EQ(editor.font().pointSizeF(), 10) << "sizing to the font does not refit it";
  const QRect before = editor.geometry();
  font.setPointSizeF(20);
  editor.setFont(font);
  editor.adjustCellsAndControlSizeToFontSize(true);
  EXPECT_EQ(editor.geometry().x(), before.x());
  EXPECT_GT(editor.width(), before.width());
  // The cells stand side by side from x = 0 across the whole width.
  const QRectF last = editor.frameOfCellAtIndex(editor.cellCount() - 1);
  EXPECT_EQ(editor.frameOfCellAtIndex(0).x(), 0);
  EXPECT_NEAR(last.right(), editor.width(), 1.0);
}

TEST(NumberEditorArchive, RoundTripKeepsValueAndFlags) {
  DfNumberEditorControl original(QRect(3, 4, 150, 22));
  const std::int64_t big = (std::int64_t{1} << 53) + 1;
  original.setValue(big);
  original.setSendsActionContinuous(false);
  original.setUseCustomSeparatorWidths(true);
  original.setShadowEightColor(QColor(10, 20, 30, 40));
  QCborMap archive;
  original.encodeWithCoder(archive);
  const QCborMap reread = QCborValue::fromCbor(archive.toCborValue().toCbor()).toMap();

  DfNumberEditorControl copy(reread);
  EXPECT_EQ(copy.value(), big);
  EXPECT_FALSE(copy.sendsActionContinuous());
  EXPECT_TRUE(copy.useCustomSeparatorWidths());
  EXPECT_EQ(copy.shadowEightColor(), QColor(10, 20, 30, 40));
  EXPECT_EQ(copy.geometry(), QRect(3, 4, 150, 22));
  EXPECT_EQ(copy.font().pointSizeF(), original.font().pointSizeF());

  DfNumberEditorControl empty{
      QCborMap{{QStringLiteral("NUMBEREDITOR_VALUE"), QStringLiteral("x")}}};
  EXPECT_EQ(empty.value(), 0);
  EXPECT_TRUE(empty.sendsActionContinuous());
}

TEST(NumberEditorAccessibility, FieldsExposeValueAndTheDelegatesRange) {
  HundredsDelegate delegate;
  DfNumberEditorControl editor(QRect(0, 0, 200, 24));
  editor.setEditorCellCount(2);
  editor.setDelegate(&delegate);
  editor.setValue(742);
  QAccessibleInterface* control = QAccessible::queryAccessibleInterface(&editor);
  ASSERT_NE(control, nullptr);
  ASSERT_EQ(control->childCount(), 2);
  QAccessibleValueInterface* first = control->child(0)->valueInterface();
  QAccessibleValueInterface* second = control->child(1)->valueInterface();
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->currentValue().toInt(), 7);
  EXPECT_EQ(second->currentValue().toInt(), 42);
  EXPECT_EQ(first->minimumValue().toLongLong(), 0);
  EXPECT_FALSE(first->maximumValue().isValid()) << "not answered: no maximum";
  EXPECT_EQ(second->maximumValue().toLongLong(), 99);
  EXPECT_EQ(control->indexOfChild(control->child(1)), 1);
  second->setCurrentValue(150);
  EXPECT_EQ(editor.value(), 799);

  DfNumberEditorControl alone(QRect(0, 0, 60, 20));
  QAccessibleInterface* single = QAccessible::queryAccessibleInterface(&alone);
  EXPECT_FALSE(single->child(0)->valueInterface()->minimumValue().isValid());
}

// A cell subclass, to see that the factory is used.
class TaggedCell : public KwNumberEditorCell {};

TEST(NumberEditorCells, FactoriesMakeTheCellsForAllControlsOrOne) {
  DfNumberEditorControl::setCellClassForNewControls([] { return std::make_unique<TaggedCell>(); });
  DfNumberEditorControl tagged(QRect(0, 0, 200, 24));
  DfNumberEditorControl::setCellClassForNewControls(nullptr);
  DfNumberEditorControl plain(QRect(0, 0, 200, 24));
  EXPECT_TRUE(dynamic_cast<TaggedCell*>(tagged.editorCellAtIndex(0)));
  EXPECT_FALSE(dynamic_cast<TaggedCell*>(plain.editorCellAtIndex(0)));
  plain.setCellClass([] { return std::unique_ptr<KwNumberEditorCell>(); }); // null: default cell
  plain.setEditorCellCount(2);
  EXPECT_NE(plain.separatorCellAtIndex(0), nullptr);
  plain.setCellClass([] { return std::make_unique<TaggedCell>(); });
  plain.setEditorCellCount(2);
  EXPECT_TRUE(dynamic_cast<TaggedCell*>(plain.separatorCellAtIndex(0)));
  EXPECT_EQ(plain.stringOfSeparatorCellAtIndex(0), QStringLiteral("/"));
  EXPECT_FALSE(plain.separatorCellAtIndex(0)->isEditable());
}

TEST(NumberEditorCells, ZeroAndNegativeSizesPaintAndTrackNothingWithoutHarm) {
  DfNumberEditorControl editor(QRect(0, 0, 0, 0));
  editor.setEditorCellCount(3);
  EXPECT_EQ(editor.font().pointSizeF(), 1.5);
  editor.setFrameOfCell(QRectF(5, 5, -20, -8), 0);
  editor.setWidth(-4, 0);
  editor.setUseCustomSeparatorWidths(true);
  EXPECT_EQ(editor.widthOfSeparatorCellAtIndex(0), 0);
  editor.recalculateCellSizes();
  QTest::keyClick(&editor, Qt::Key_Return);
  QImage image(40, 20, QImage::Format_ARGB32_Premultiplied);
  editor.resize(2, 1);
  editor.render(&image);
  press(&editor, QPointF(0.5, 0.5));
  dragTo(&editor, QPointF(0.5, -3.5));
  release(&editor, QPointF(0.5, -3.5));
  EXPECT_EQ(editor.editorCellValues().size(), 3u);
}

TEST(NumberEditorCells, ATargetDestroyedMeanwhileGetsNothing) {
  auto recorder = std::make_unique<Recorder>();
  auto editor = singleField(*recorder);
  recorder.reset();
  wheel(editor.get(), QPointF(10, 10), {}, {0, 120});
  EXPECT_EQ(editor->value(), 1);
  press(editor.get(), QPointF(10, 10));
  editor->longClickTimer()->fire();
  release(editor.get(), QPointF(10, 10));
}

TEST(NumberEditorDrawing, EditingFrameAndLeadingZerosUseTheirColours) {
  const QColor text(0, 0, 255), zeros(255, 0, 0), edit(0, 255, 0);
  DfNumberEditorControl editor(QRect(0, 0, 120, 40));
  editor.setTextColor(text);
  editor.setEditTextColor(text);
  editor.setEditBackgroundColor(edit);
  KwNumberEditorCell* cell = editor.editorCellAtIndex(0);
  cell->setLeadingZeros(3);
  cell->setLeadingZerosColor(zeros);
  cell->setDisablesFontSmoothing(true); // pure colours, no blending
  editor.setValue(7);

  const auto columns = [&](const QImage& image, const QColor& colour) {
    std::vector<int> found;
    for (int x = 0; x < image.width(); ++x)
      for (int y = 0; y < image.height(); ++y)
        if (image.pixelColor(x, y) == colour) {
          found.push_back(x);
          break;
        }
    return found;
  };
  QImage image = editor.grab().toImage().convertToFormat(QImage::Format_RGB32);
  const std::vector<int> zeroColumns = columns(image, zeros);
  const std::vector<int> digitColumns = columns(image, text);
  ASSERT_FALSE(zeroColumns.empty());
  ASSERT_FALSE(digitColumns.empty());
  EXPECT_LT(zeroColumns.back(), digitColumns.front()) << "the zeros stand left of the digit";
  EXPECT_TRUE(columns(image, edit).empty());

  QTest::keyClick(&editor, Qt::Key_Return);
  image = editor.grab().toImage().convertToFormat(QImage::Format_RGB32);
  EXPECT_EQ(image.pixelColor(60, 3), edit) << "the editing frame fills the inset rectangle";
  EXPECT_NE(image.pixelColor(60, 0), edit);
}

} // namespace

#include "number_editor_test.moc"
