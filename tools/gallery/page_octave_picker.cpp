// Gallery samples of the octave picker and of MIDI values shown through the
// value-formatter delegate.
#include "gallery.h"

#include <vtcore/ui.h>

#include <QHeaderView>
#include <QLabel>
#include <QStandardItemModel>
#include <QTableView>
#include <QVBoxLayout>

#include <array>
#include <memory>

namespace {

// The MIDI note of a white key counted from C-2, the picker's left end.
int whiteKeyNote(std::size_t whiteKey) {
  static constexpr std::array<int, 7> kSteps = {0, 2, 4, 5, 7, 9, 11};
  return static_cast<int>(12 * (whiteKey / 7)) + kSteps[whiteKey % 7];
}

QString noteName(const KWMIDIFormatter& formatter, std::size_t whiteKey) {
  const icu::UnicodeString text = formatter.stringForObjectValue(whiteKeyNote(whiteKey));
  return QString(reinterpret_cast<const QChar*>(text.getBuffer()), text.length());
}

// The picker's target: shows the marker's first and last key as note names.
class RangeReadout : public QObject {
  Q_OBJECT
public:
  explicit RangeReadout(QLabel* label, QObject* parent) : QObject(parent), m_label(label) {
    m_formatter.setNoteStyle(3);
  }

public Q_SLOTS:
  void octaveChanged(DfOctavePickerView* picker) {
    const vtcore::KeyRange range = picker->keyRange();
    if (range.length == 0) {
      m_label->setText(QStringLiteral("empty range at white key %1").arg(range.location));
      return;
    }
    m_label->setText(QStringLiteral("<b>%1 \u2013 %2</b>  (white keys %3 to %4)")
                         .arg(noteName(m_formatter, range.location),
                              noteName(m_formatter, range.location + range.length - 1))
                         .arg(range.location)
                         .arg(range.location + range.length - 1));
  }

private:
  QLabel* m_label;
  KWMIDIFormatter m_formatter;
};

void addPicker(QVBoxLayout* column, QWidget* sample, bool large, int dragRaster) {
  DfOctavePickerView* picker = DfOctavePickerView::octavePickerViewLarge(large);
  auto* readout = new QLabel;
  auto* target = new RangeReadout(readout, sample);
  picker->setTarget(target);
  picker->setAction("octaveChanged(DfOctavePickerView*)");
  picker->setDragRaster(dragRaster);
  target->octaveChanged(picker);
  column->addWidget(new QLabel(large ? QStringLiteral("Large, 75 white keys; drags move by keys")
                                     : QStringLiteral("Short, 74 white keys; drags move by "
                                                      "octaves too (drag raster 7)")));
  column->addWidget(picker);
  column->addWidget(readout);
}

QWidget* makeOctavePickerSample() {
  auto* sample = new QWidget;
  auto* column = new QVBoxLayout(sample);
  column->setContentsMargins(0, 0, 0, 0);
  addPicker(column, sample, true, 1);
  column->addSpacing(8);
  addPicker(column, sample, false, 7);
  column->addStretch(1);
  return sample;
}

QWidget* makeFormatterSample() {
  static constexpr const char* kStyles[] = {"0 decimal", "1 signed", "2 hex", "3 note"};
  const QVariant values[] = {0,         5, -5, 9, 15, 16, 60, 61, 127, 255, QStringLiteral("text"),
                             QVariant()};
  const int rows = static_cast<int>(std::size(values));

  auto* model = new QStandardItemModel(rows, 4);
  for (int column = 0; column < 4; ++column) {
    model->setHeaderData(column, Qt::Horizontal, QString::fromUtf8(kStyles[column]));
    for (int row = 0; row < rows; ++row)
      model->setData(model->index(row, column), values[row]);
  }
  for (int row = 0; row < rows; ++row) {
    const QVariant& value = values[row];
    model->setHeaderData(row, Qt::Vertical,
                         value.isValid() ? (value.typeId() == QMetaType::QString
                                                ? QStringLiteral("\"%1\"").arg(value.toString())
                                                : value.toString())
                                         : QStringLiteral("null"));
  }

  auto* table = new QTableView;
  model->setParent(table);
  table->setModel(model);
  for (int column = 0; column < 4; ++column) {
    auto formatter = std::make_shared<KWMIDIFormatter>();
    formatter->setNoteStyle(column);
    table->setItemDelegateForColumn(column, new vtcore::ValueFormatterDelegate(formatter, table));
  }
  table->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
  table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  table->verticalHeader()->setDefaultSectionSize(table->fontMetrics().height() + 6);
  table->setEditTriggers(QAbstractItemView::NoEditTriggers);
  int height = table->horizontalHeader()->sizeHint().height() + 2 * table->frameWidth();
  for (int row = 0; row < rows; ++row)
    height += table->rowHeight(row);
  table->setFixedHeight(height);
  return table;
}

const vtcore::gallery::Sample octavePickerSample{
    22, "DfOctavePickerView",
    "A keyboard of every MIDI note with a range marker counted in white keys. Click beside "
    "the marker to jump it to that octave; drag it to move it. The readout is the target of "
    "the picker's action and names the marker's first and last key through KWMIDIFormatter.",
    makeOctavePickerSample};
const vtcore::gallery::Sample formatterSample{
    23, "ValueFormatterDelegate",
    "A table whose cells show their numbers through KWMIDIFormatter, one note style per "
    "column. A text or an empty cell is no number: every style shows nothing.",
    makeFormatterSample};

} // namespace

#include "page_octave_picker.moc"
