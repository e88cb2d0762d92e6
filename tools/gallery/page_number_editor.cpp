// Gallery samples of the number editor: a bar / beat / division / tick
// position over a 64-bit tick count, a three-digit MIDI value on a display,
// and a live readout of both.
#include "gallery.h"

#include <vtcore/ui.h>

#include <QFontDatabase>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QSlider>
#include <QVBoxLayout>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>

namespace {

// 4/4 at 960 ticks per quarter note; a division is a sixteenth note.
constexpr std::int64_t kTicksPerBeat = 960;
constexpr std::int64_t kBeatsPerBar = 4;
constexpr std::int64_t kDivisionsPerBeat = 4;
constexpr std::int64_t kTicksPerDivision = kTicksPerBeat / kDivisionsPerBeat;
constexpr std::int64_t kTicksPerBar = kTicksPerBeat * kBeatsPerBar;
constexpr std::int32_t kLastBar = 9999;

// Each field's range, shown to assistive technology and enforced on edits:
// bar, beat, division, tick, all counted from 1.
constexpr std::array<std::pair<std::int32_t, std::int32_t>, 4> kFieldRanges = {{
    {1, kLastBar},
    {1, static_cast<std::int32_t>(kBeatsPerBar)},
    {1, static_cast<std::int32_t>(kDivisionsPerBeat)},
    {1, static_cast<std::int32_t>(kTicksPerDivision)},
}};

// Splits a tick count into bar / beat / division / tick and joins it back.
class PositionDelegate : public DfNumberEditorDelegate {
public:
  using DfNumberEditorDelegate::numberEditorControl;

  std::optional<std::vector<std::int32_t>> numberEditorControl(DfNumberEditorControl*,
                                                               std::int64_t ticks) override {
    ticks = std::clamp<std::int64_t>(ticks, 0, kTicksPerBar * kLastBar - 1);
    const std::int64_t inBar = ticks % kTicksPerBar;
    return std::vector<std::int32_t>{
        static_cast<std::int32_t>(ticks / kTicksPerBar + 1),
        static_cast<std::int32_t>(inBar / kTicksPerBeat + 1),
        static_cast<std::int32_t>(inBar % kTicksPerBeat / kTicksPerDivision + 1),
        static_cast<std::int32_t>(inBar % kTicksPerDivision + 1)};
  }

  std::optional<std::int64_t>
  numberEditorControl(DfNumberEditorControl*, const std::vector<std::int32_t>& fields) override {
    if (fields.size() != kFieldRanges.size())
      return std::nullopt;
    std::int64_t clamped[4];
    for (std::size_t i = 0; i < kFieldRanges.size(); ++i)
      clamped[i] = std::clamp(fields[i], kFieldRanges[i].first, kFieldRanges[i].second) - 1;
    return clamped[0] * kTicksPerBar + clamped[1] * kTicksPerBeat + clamped[2] * kTicksPerDivision +
           clamped[3];
  }

  void numberEditorControl(DfNumberEditorControl* control, KwNumberEditorCell* cell) override {
    const int index = control->indexOfCell(cell) / 2;
    if (index >= 0 && index < static_cast<int>(kFieldRanges.size()))
      cell->setIntValue(std::clamp(cell->intValue(),
                                   kFieldRanges[static_cast<std::size_t>(index)].first,
                                   kFieldRanges[static_cast<std::size_t>(index)].second));
  }

  std::optional<std::int64_t>
  numberEditorControl(DfNumberEditorControl*,
                      GetAccessibilityMinValueForEditorCellAtIndex cell) override {
    if (cell.index < 0 || cell.index >= static_cast<int>(kFieldRanges.size()))
      return std::nullopt;
    return kFieldRanges[static_cast<std::size_t>(cell.index)].first;
  }

  std::optional<std::int64_t>
  numberEditorControl(DfNumberEditorControl*,
                      GetAccessibilityMaxValueForEditorCellAtIndex cell) override {
    if (cell.index < 0 || cell.index >= static_cast<int>(kFieldRanges.size()))
      return std::nullopt;
    return kFieldRanges[static_cast<std::size_t>(cell.index)].second;
  }
};

// A MIDI data byte: 0 to 127.
class MidiDelegate : public DfNumberEditorDelegate {
public:
  using DfNumberEditorDelegate::numberEditorControl;

  void numberEditorControl(DfNumberEditorControl*, KwNumberEditorCell* cell) override {
    cell->setIntValue(std::clamp(cell->intValue(), 0, 127));
  }
  std::optional<std::int64_t>
  numberEditorControl(DfNumberEditorControl*,
                      GetAccessibilityMinValueForEditorCellAtIndex) override {
    return 0;
  }
  std::optional<std::int64_t>
  numberEditorControl(DfNumberEditorControl*,
                      GetAccessibilityMaxValueForEditorCellAtIndex) override {
    return 127;
  }
};

// The editors' target: shows their values and the last action received.
class Readout : public QObject {
  Q_OBJECT
public:
  Readout(QLabel* values, QLabel* last, QObject* parent)
      : QObject(parent), m_values(values), m_last(last) {}

  PositionDelegate positionDelegate;
  MidiDelegate midiDelegate;
  DfNumberEditorControl* position = nullptr;
  DfNumberEditorControl* midi = nullptr;

  void showValues() {
    m_values->setText(QStringLiteral("position: tick %1    MIDI value: %2")
                          .arg(position->value())
                          .arg(midi->value()));
  }

public Q_SLOTS:
  void positionChanged(DfNumberEditorControl* control) {
    showLast(QStringLiteral("positionChanged, value %1").arg(control->value()));
  }
  void midiChanged(DfNumberEditorControl* control) {
    showLast(QStringLiteral("midiChanged, value %1").arg(control->value()));
  }
  void positionLongClick(DfNumberEditorControl*) {
    showLast(QStringLiteral("long click on the position: back to bar 1"));
    position->setValue(0);
    showValues();
  }

private:
  void showLast(const QString& text) {
    m_last->setText(QStringLiteral("last action: #%1 %2").arg(++m_count).arg(text));
    showValues();
  }

  QLabel* m_values;
  QLabel* m_last;
  int m_count = 0;
};

QWidget* makeNumberEditorSample() {
  auto* sample = new QWidget;
  auto* column = new QVBoxLayout(sample);
  auto* values = new QLabel;
  auto* last = new QLabel(QStringLiteral("last action: -"));
  auto* readout = new Readout(values, last, sample);

  // Bar / beat / division / tick, 1.2.1.1 at rest.
  auto* position = new DfNumberEditorControl;
  readout->position = position;
  position->setFixedSize(220, 30);
  position->setEditorCellCount(4);
  // Right-aligned fields whose place holders are one digit wider than the
  // number: the spare digit is the gap after each ".".
  const QString placeHolders[] = {QStringLiteral("0000"), QStringLiteral("00"),
                                  QStringLiteral("00"), QStringLiteral("0000")};
  const int lengths[] = {4, 1, 1, 3};
  for (int i = 0; i < 4; ++i) {
    position->setPlaceHolderString(placeHolders[i], i);
    position->setMaxEditStringLen(lengths[i], i);
    // Room between the digits and the editing frame.
    position->editorCellAtIndex(i)->setHorizontalTextInsets(3);
  }
  for (int i = 0; i < 3; ++i)
    position->setString(QStringLiteral("."), i);
  position->setDelegate(&readout->positionDelegate);
  position->setValue(kTicksPerBeat + 120);
  position->updateOldValue();
  position->setTarget(readout);
  position->setAction("positionChanged(DfNumberEditorControl*)");
  position->setLongClickAction("positionLongClick(DfNumberEditorControl*)");
  position->recalculateFontSize();

  // A three-digit MIDI value on a dim display: shadow eights behind the
  // digits, the leading zeros in a darker shade.
  auto* midi = new DfNumberEditorControl;
  readout->midi = midi;
  midi->setFixedSize(84, 40);
  QFont display(QStringLiteral("DejaVu Sans Mono"));
  display.setBold(true);
  midi->setFont(display);
  midi->setDrawsBackground(true);
  midi->setBackgroundColor(QColor(24, 28, 24));
  midi->setTextColor(QColor(120, 255, 140));
  midi->setEditBackgroundColor(QColor(40, 70, 45));
  midi->setEditTextColor(QColor(200, 255, 210));
  midi->setShadowEightColor(QColor(120, 255, 140, 60));
  midi->setShadowEights(3, 0);
  midi->setLeadingZeros(3, 0);
  midi->editorCellAtIndex(0)->setLeadingZerosColor(QColor(50, 110, 60));
  midi->setDelegate(&readout->midiDelegate);
  midi->setValue(64);
  midi->setTarget(readout);
  midi->setAction("midiChanged(DfNumberEditorControl*)");
  midi->recalculateFontSize();

  auto* form = new QFormLayout;
  form->addRow(QStringLiteral("bar . beat . division . tick"), position);
  form->addRow(QStringLiteral("MIDI value (0-127)"), midi);
  column->addLayout(form);

  // The position editor's width: the font follows it, down to 1.5 points.
  auto* widthRow = new QHBoxLayout;
  auto* width = new QSlider(Qt::Horizontal);
  width->setObjectName(QStringLiteral("numberEditorWidth"));
  width->setRange(20, 320);
  width->setValue(position->width());
  QObject::connect(width, &QSlider::valueChanged, position,
                   [position](int w) { position->setFixedWidth(w); });
  widthRow->addWidget(new QLabel(QStringLiteral("position width")));
  widthRow->addWidget(width, 1);
  column->addLayout(widthRow);
  column->addWidget(values);
  column->addWidget(last);
  readout->showValues();
  return sample;
}

const vtcore::gallery::Sample numberEditorSample{
    20, "DfNumberEditorControl",
    "Drag a field up or down, turn the wheel over it, or double-click it (or press Return) "
    "and type digits: Return commits, Escape cancels, the arrows step and move between "
    "fields. The position splits a 64-bit tick count (4/4, 960 per quarter) and clamps each "
    "field; holding the mouse on it for 0.6 s jumps back to bar 1. The slider narrows the "
    "editor: its font shrinks to fit.",
    makeNumberEditorSample};

} // namespace

#include "page_number_editor.moc"
