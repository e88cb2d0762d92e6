#include <vtcore/ui/controls/formatter_delegate/value_formatter_delegate.h>

#include <QMetaType>

namespace vtcore {
namespace {

template <typename T>
std::any numberOf(const QVariant& value) {
  return std::any(value.value<T>());
}

QString toQString(const icu::UnicodeString& text) {
  // Both are UTF-16; a bogus string has no buffer and length 0.
  return QString(reinterpret_cast<const QChar*>(text.getBuffer()), text.length());
}

} // namespace

ValueFormatterDelegate::ValueFormatterDelegate(std::shared_ptr<const ValueFormatter> formatter,
                                               QObject* parent)
    : QStyledItemDelegate(parent), m_formatter(std::move(formatter)) {}

ValueFormatterDelegate::~ValueFormatterDelegate() = default;

void ValueFormatterDelegate::setFormatter(std::shared_ptr<const ValueFormatter> formatter) {
  m_formatter = std::move(formatter);
}

std::any ValueFormatterDelegate::objectValue(const QVariant& value) {
  if (!value.isValid() || value.isNull())
    return {};
  switch (value.metaType().id()) {
  case QMetaType::Bool:
    return numberOf<bool>(value);
  case QMetaType::Char:
    return numberOf<char>(value);
  case QMetaType::SChar:
    return numberOf<signed char>(value);
  case QMetaType::UChar:
    return numberOf<unsigned char>(value);
  case QMetaType::Short:
    return numberOf<short>(value);
  case QMetaType::UShort:
    return numberOf<unsigned short>(value);
  case QMetaType::Int:
    return numberOf<int>(value);
  case QMetaType::UInt:
    return numberOf<unsigned int>(value);
  case QMetaType::Long:
    return numberOf<long>(value);
  case QMetaType::ULong:
    return numberOf<unsigned long>(value);
  case QMetaType::LongLong:
    return numberOf<long long>(value);
  case QMetaType::ULongLong:
    return numberOf<unsigned long long>(value);
  case QMetaType::Float:
    return numberOf<float>(value);
  case QMetaType::Double:
    return numberOf<double>(value);
  default:
    return std::any(value);
  }
}

QString ValueFormatterDelegate::displayText(const QVariant& value, const QLocale& locale) const {
  if (!m_formatter)
    return QStyledItemDelegate::displayText(value, locale);
  return toQString(m_formatter->stringForObjectValue(objectValue(value)));
}

QWidget* ValueFormatterDelegate::createEditor(QWidget*, const QStyleOptionViewItem&,
                                              const QModelIndex&) const {
  return nullptr;
}

} // namespace vtcore
