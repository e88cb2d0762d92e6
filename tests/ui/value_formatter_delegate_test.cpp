#include <vtcore/ui/controls/formatter_delegate/value_formatter_delegate.h>

#include <QLocale>
#include <QStandardItemModel>
#include <QStyleOptionViewItem>
#include <QTableView>
#include <gtest/gtest.h>

#include <memory>

namespace {

struct DisplayCase {
  QVariant value;
  int style;
  QString text;
};

// Model values reach the formatter as the number objects it formats, and
// everything else as something that is no number.
TEST(ValueFormatterDelegate, ShowsModelValuesThroughTheMidiFormatter) {
  const DisplayCase cases[] = {
      {61, 3, QStringLiteral("C#3")},
      {60.9, 3, QStringLiteral("C3")}, // truncated toward zero, as the formatter takes numbers
      {QVariant::fromValue<qint64>(127), 3, QStringLiteral("G8")},
      {QVariant::fromValue<quint8>(255), 2, QStringLiteral("0xFF")},
      {15u, 2, QStringLiteral("0x F")},
      {0, 1, QStringLiteral("\u00B1 0")},
      {-5, 1, QStringLiteral("-5")},
      {true, 0, QStringLiteral("1")},
      {1.5f, 0, QStringLiteral("1")},
      {-1, 3, QString()},
      {QStringLiteral("60"), 0, QString()},
      {QStringLiteral("60"), 3, QString()},
      {QVariant(), 0, QString()},
      {QVariant(QMetaType::fromType<int>()), 0, QString()}, // a null int
      {61, 4, QString()},
  };
  auto formatter = std::make_shared<KWMIDIFormatter>();
  vtcore::ValueFormatterDelegate delegate(formatter);
  for (const DisplayCase& c : cases) {
    formatter->setNoteStyle(c.style);
    EXPECT_EQ(delegate.displayText(c.value, QLocale::c()), c.text)
        << qPrintable(c.value.toString()) << " in style " << c.style;
  }
}

TEST(ValueFormatterDelegate, DisplaysOnlyAndFallsBackWithoutAFormatter) {
  QStandardItemModel model(1, 1);
  model.setData(model.index(0, 0), 61);
  QTableView table;
  table.setModel(&model);
  auto* delegate = new vtcore::ValueFormatterDelegate({}, &table);
  table.setItemDelegate(delegate);

  EXPECT_EQ(delegate->displayText(61, QLocale::c()), QStringLiteral("61"));
  auto formatter = std::make_shared<KWMIDIFormatter>();
  formatter->setNoteStyle(3);
  delegate->setFormatter(formatter);
  EXPECT_EQ(delegate->displayText(61, QLocale::c()), QStringLiteral("C#3"));

  // No editor opens, whatever the view's edit triggers.
  table.edit(model.index(0, 0));
  EXPECT_EQ(table.indexWidget(model.index(0, 0)), nullptr);
  EXPECT_EQ(delegate->createEditor(&table, QStyleOptionViewItem(), model.index(0, 0)), nullptr);
}

} // namespace
