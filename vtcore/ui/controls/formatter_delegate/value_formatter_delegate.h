// ValueFormatterDelegate: item views (QTableView, QListView, QTreeView) that
// show their values through one of the core's value formatters, such as
// KWMIDIFormatter in any of its note styles.
#pragma once

#include <vtcore/export.h>
#include <vtcore/music/midi/midi_formatter.h>

#include <QStyledItemDelegate>

#include <any>
#include <memory>

namespace vtcore {

/// Displays each item's display value as text made by a vtcore::ValueFormatter.
/// It only displays: a formatter has no parsing direction, so the delegate
/// opens no editor, and items shown through it cannot be edited in place.
/// Without a formatter it displays values as QStyledItemDelegate does.
class VTCORE_UI_EXPORT ValueFormatterDelegate : public QStyledItemDelegate {
  Q_OBJECT
public:
  /// The delegate shares `formatter` (which may be null) with its creator.
  explicit ValueFormatterDelegate(std::shared_ptr<const ValueFormatter> formatter = {},
                                  QObject* parent = nullptr);
  ~ValueFormatterDelegate() override;

  /// The formatter in use; null when none is set.
  const std::shared_ptr<const ValueFormatter>& formatter() const { return m_formatter; }
  /// Replaces the formatter (null: none). Views show the change when they
  /// next repaint; so does a change of the formatter's own settings.
  void setFormatter(std::shared_ptr<const ValueFormatter> formatter);

  /// The formatter's text for `value`; see objectValue for what it is given.
  QString displayText(const QVariant& value, const QLocale& locale) const override;
  /// None: returns null.
  QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                        const QModelIndex& index) const override;

  /// The object value a formatter is given for a model value: an invalid or
  /// null QVariant is null (an empty std::any); a QVariant holding a C++
  /// arithmetic type (bool, the char and integer types, float, double) is a
  /// number object holding that type; anything else (strings included) is
  /// held as the QVariant itself, which is not a number object.
  static std::any objectValue(const QVariant& value);

private:
  std::shared_ptr<const ValueFormatter> m_formatter;
};

} // namespace vtcore
