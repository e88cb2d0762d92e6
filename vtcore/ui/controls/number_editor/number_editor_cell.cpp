#include <vtcore/ui/controls/number_editor/number_editor_cell.h>

#include <QFontMetricsF>
#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace {

constexpr int kMostLeadingZeros = 64;
constexpr QLatin1StringView kEights("88888888888888888888");
const QColor kDefaultShadowEightColor = QColor::fromRgbF(0.8f, 0.8f, 0.8f, 0.5f);

// The decimal digits of `value` without its sign (INT32_MIN included).
QString magnitudeDigits(std::int32_t value) {
  return QString::number(std::llabs(static_cast<long long>(value)));
}

// printf("%0*i", width, value): the sign first, then zeros up to `width`.
QString zeroPadded(std::int32_t value, int width) {
  QString digits = magnitudeDigits(value);
  const QString sign = value < 0 ? QStringLiteral("-") : QString();
  const qsizetype zeros = std::max<qsizetype>(0, width - sign.size() - digits.size());
  return sign + QString(zeros, u'0') + digits;
}

// printf("%*i", width, value): spaces on the left up to `width`.
QString spacePadded(std::int32_t value, int width) {
  const QString text = QString::number(value);
  return QString(std::max<qsizetype>(0, width - text.size()), u' ') + text;
}

// What one key press means to an editing cell.
enum class CellKey { Other, Up, Down, Digit, Delete, Escape, Commit };

CellKey classify(const QKeyEvent& event, QChar* digit) {
  const int key = event.key();
  if (key >= Qt::Key_0 && key <= Qt::Key_9) {
    *digit = QChar(u'0' + (key - Qt::Key_0));
    return CellKey::Digit;
  }
  switch (key) {
  case Qt::Key_Up:
    return CellKey::Up;
  case Qt::Key_Down:
    return CellKey::Down;
  // The delete character is what the Backspace key types; the forward
  // Delete key is taken as the same.
  case Qt::Key_Backspace:
  case Qt::Key_Delete:
    return CellKey::Delete;
  case Qt::Key_Escape:
    return CellKey::Escape;
  case Qt::Key_Return:
  case Qt::Key_Enter:
    return CellKey::Commit;
  default:
    return CellKey::Other;
  }
}

// `value` moved by `delta`, held at the 32-bit limits rather than wrapping:
// a number never jumps from the top of the range to the bottom.
std::int32_t steppedBy(std::int32_t value, std::int64_t delta) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(
      std::int64_t{value} + delta, std::numeric_limits<std::int32_t>::min(),
      std::numeric_limits<std::int32_t>::max()));
}

QColor paletteColor(const QWidget* view, QPalette::ColorRole role) {
  return view ? view->palette().color(role) : QPalette().color(role);
}

} // namespace

void KwNumberEditorCellDelegate::dfNumberEditorCell(KwNumberEditorCell* /*cell*/,
                                                    int /*stoppedEditingWithReason*/) {}

KwNumberEditorCell::KwNumberEditorCell() = default;

KwNumberEditorCell::KwNumberEditorCell(const QString& text) : KwActionCell(text) {}

KwNumberEditorCell::~KwNumberEditorCell() = default;

void KwNumberEditorCell::setColor(QColor& field, const QColor& color) {
  if (field == color)
    return;
  field = color;
  updateCell();
}

void KwNumberEditorCell::setBackgroundColor(const QColor& color) {
  setColor(m_backgroundColor, color);
}
void KwNumberEditorCell::setTextColor(const QColor& color) {
  setColor(m_textColor, color);
}
void KwNumberEditorCell::setEditBackgroundColor(const QColor& color) {
  setColor(m_editBackgroundColor, color);
}
void KwNumberEditorCell::setEditTextColor(const QColor& color) {
  setColor(m_editTextColor, color);
}
void KwNumberEditorCell::setShadowEightColor(const QColor& color) {
  setColor(m_shadowEightColor, color);
}
void KwNumberEditorCell::setLeadingZerosColor(const QColor& color) {
  setColor(m_leadingZerosColor, color);
}

void KwNumberEditorCell::setPlaceHolderString(const QString& text) {
  m_placeHolderString = text;
}

void KwNumberEditorCell::setDrawsBackground(bool draws) {
  m_drawsBackground = draws;
  updateCell();
}

void KwNumberEditorCell::setLeadingZeros(int count) {
  m_leadingZeros = std::clamp(count, 0, kMostLeadingZeros);
  updateCell();
}

void KwNumberEditorCell::setShadowEights(int count) {
  m_shadowEights = std::clamp(count, 0, static_cast<int>(kEights.size()));
  updateCell();
}

void KwNumberEditorCell::setLeftTextInset(float inset) {
  m_leftTextInset = inset;
}
void KwNumberEditorCell::setRightTextInset(float inset) {
  m_rightTextInset = inset;
}
void KwNumberEditorCell::setHorizontalTextInsets(float inset) {
  m_leftTextInset = inset;
  m_rightTextInset = inset;
}
void KwNumberEditorCell::setVerticalTextInset(float inset) {
  m_verticalTextInset = inset;
}

void KwNumberEditorCell::setDisablesFontSmoothing(bool disables) {
  m_disableFontSmoothing = disables;
  updateCell();
}

void KwNumberEditorCell::setMinimumDelta(int delta) {
  m_minimumDelta = std::max(1, delta);
}

void KwNumberEditorCell::setMaxEditStringLen(int length) {
  m_maxEditStringLen = std::max(0, length);
}

void KwNumberEditorCell::startEditing() {
  if (m_editing || !isEnabled() || !isEditable())
    return;
  m_editing = true;
  m_editedByNumberKeys = false;
}

void KwNumberEditorCell::stopEditing() {
  stopEditingAndResignFirstResponder(true);
}

void KwNumberEditorCell::stopEditingAndResignFirstResponder(bool resign) {
  stopEditingWithReason(dfne_se_StopEditingCalled, resign);
}

void KwNumberEditorCell::stopEditingWithReason(int reason, bool resignFirstResponder) {
  if (!m_editing)
    return;
  if (m_editedByNumberKeys) {
    setNewValueAndSendAction(intValue());
    m_editedByNumberKeys = false;
  }
  updateCell();
  m_editing = false;
  // The delegate and the action's target may react by changing the control;
  // keep the view in a guarded pointer across the call.
  const QPointer<QWidget> view = controlView();
  if (KwNumberEditorCellDelegate* delegate = m_delegate.get())
    delegate->dfNumberEditorCell(this, reason);
  if (resignFirstResponder && view) {
    if (QWidget* focus = view->window()->focusWidget())
      focus->clearFocus();
  }
}

void KwNumberEditorCell::setNewValueAndSendAction(std::int32_t value) {
  m_editedByNumberKeys = false;
  if (!isEnabled())
    return;
  setIntValue(value);
  sendCellAction();
}

void KwNumberEditorCell::sendCellAction() {
  sendActionToTarget();
}

void KwNumberEditorCell::keyDown(QKeyEvent* event) {
  if (!m_editing || !isEditable())
    return;
  QChar digit;
  switch (classify(*event, &digit)) {
  case CellKey::Up:
    setNewValueAndSendAction(steppedBy(intValue(), 1));
    break;
  case CellKey::Down:
    setNewValueAndSendAction(steppedBy(intValue(), -1));
    break;
  case CellKey::Digit: {
    QString text;
    if (!m_editedByNumberKeys)
      m_editedByNumberKeysOldValue = intValue();
    else
      text = stringValue();
    text.append(digit);
    // Keep the digits typed last, as a hardware display shifts them in.
    if (text.size() > m_maxEditStringLen)
      text.remove(0, text.size() - m_maxEditStringLen);
    setStringValue(text);
    m_editedByNumberKeys = true;
    break;
  }
  case CellKey::Delete: {
    QString text = stringValue();
    if (!text.isEmpty()) {
      text.chop(1);
      setStringValue(text);
      m_editedByNumberKeys = true;
    }
    break;
  }
  case CellKey::Escape:
    if (m_editedByNumberKeys) {
      setIntValue(m_editedByNumberKeysOldValue);
      m_editedByNumberKeys = false;
    }
    stopEditingWithReason(dfne_se_EscapePressed, true);
    break;
  case CellKey::Commit:
    setNewValueAndSendAction(intValue());
    stopEditingWithReason(dfne_se_EnterPressed, true);
    break;
  case CellKey::Other:
    break;
  }
}

double KwNumberEditorCell::verticalWheelDelta(const QWheelEvent& event) {
  if (!event.pixelDelta().isNull())
    return event.pixelDelta().y();
  return event.angleDelta().y() / 120.0;
}

void KwNumberEditorCell::scrollWheel(QWheelEvent* event) {
  const double delta = verticalWheelDelta(*event);
  const double rounded = delta >= 0 ? std::ceil(delta) : std::floor(delta);
  if (rounded == 0 || std::isnan(rounded))
    return;
  setNewValueAndSendAction(steppedBy(intValue(), rounded > 0 ? m_minimumDelta : -m_minimumDelta));
}

bool KwNumberEditorCell::startTracking(QPointF /*startPoint*/, QWidget* /*view*/) {
  return isEditable();
}

bool KwNumberEditorCell::continueTracking(QPointF lastPoint, QPointF currentPoint,
                                          QWidget* /*view*/) {
  // The travel is taken upward-positive before rounding up, so that a small
  // move up raises the number by the minimum and a small move down does
  // nothing, just as on a display whose y axis points up.
  const double upward = lastPoint.y() - currentPoint.y();
  if (!std::isfinite(upward))
    return true;
  const double ceiling =
      std::clamp(std::ceil(upward), -double{std::numeric_limits<std::int32_t>::max()},
                 double{std::numeric_limits<std::int32_t>::max()});
  std::int64_t delta = static_cast<std::int64_t>(ceiling);
  if (delta == 0)
    return true;
  if (delta > 0 && delta < m_minimumDelta)
    delta = m_minimumDelta;
  else if (delta < 0 && delta > -m_minimumDelta)
    delta = -m_minimumDelta;
  setNewValueAndSendAction(steppedBy(intValue(), delta));
  return true;
}

QSizeF KwNumberEditorCell::cellSizeForBounds(const QRectF& bounds) const {
  const QFontMetricsF metrics(font());
  const QString& text = m_placeHolderString.isEmpty() ? stringValue() : m_placeHolderString;
  const qreal width = std::min(std::max(0.0, bounds.width()), metrics.horizontalAdvance(text));
  const qreal height = std::min(std::max(0.0, bounds.height()), metrics.height());
  return {std::ceil(m_leftTextInset + m_rightTextInset + width),
          std::ceil(2 * m_verticalTextInset + height)};
}

void KwNumberEditorCell::drawInteriorWithFrame(const QRectF& frame, QWidget* view,
                                               QPainter& painter) {
  m_cellFrame = frame;
  setControlView(view);
  if (m_drawsBackground && m_backgroundColor.isValid())
    painter.fillRect(frame, m_backgroundColor);
  if (m_editing)
    drawEditingBackgroundWithFrame(frame, view, painter);
  drawTitleWithFrame(frame, view, painter);
}

void KwNumberEditorCell::drawEditingBackgroundWithFrame(const QRectF& frame, QWidget* view,
                                                        QPainter& painter) {
  const QRectF rect(frame.x() + 1.5, frame.y() + 1.5, frame.width() - 3, frame.height() - 3);
  if (rect.width() <= 0 || rect.height() <= 0)
    return;
  const qreal radius = frame.height() * 0.125;
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(paletteColor(view, QPalette::Mid), 1.0));
  painter.setBrush(m_editBackgroundColor.isValid() ? m_editBackgroundColor
                                                   : paletteColor(view, QPalette::Highlight));
  painter.drawRoundedRect(rect, radius, radius);
  painter.restore();
}

QString KwNumberEditorCell::displayString() const {
  if (m_leadingZeros > 0)
    return zeroPadded(intValue(), m_leadingZeros);
  if (m_shadowEights > 0) {
    if (!(alignment() & Qt::AlignLeft))
      return spacePadded(intValue(), m_shadowEights);
    return (QString::number(intValue()) + QString(16, u' ')).left(m_shadowEights);
  }
  return stringValue();
}

void KwNumberEditorCell::drawTitleWithFrame(const QRectF& frame, QWidget* view, QPainter& painter) {
  if (stringValue().isEmpty())
    return;
  QColor color = m_editing ? m_editTextColor : m_textColor;
  if (!color.isValid())
    color = paletteColor(view, m_editing ? QPalette::HighlightedText : QPalette::WindowText);

  const QString text = displayString();
  painter.save();
  QFont drawFont = font();
  if (m_disableFontSmoothing)
    drawFont.setStyleStrategy(QFont::NoAntialias);
  painter.setFont(drawFont);
  const QFontMetricsF metrics(drawFont);
  const qreal textHeight = metrics.height();
  // The frame's own y is left out on purpose: the text stands where it
  // would if the frame were at y = 0, as the cells of a row always are.
  const QRectF textRect(frame.x() + m_leftTextInset,
                        m_verticalTextInset + std::ceil(frame.height() / 2 - textHeight / 2),
                        frame.width() - (m_leftTextInset + m_rightTextInset),
                        std::min(textHeight, frame.height() - 2 * m_verticalTextInset));
  const int flags = static_cast<int>(alignment() | Qt::AlignTop) | Qt::TextDontClip;
  const auto draw = [&](const QRectF& rect, const QColor& pen, const QString& string) {
    if (rect.width() <= 0 || rect.height() <= 0)
      return;
    painter.setPen(pen);
    painter.drawText(rect, flags, string);
  };

  if (m_shadowEights > 0)
    draw(textRect, m_shadowEightColor.isValid() ? m_shadowEightColor : kDefaultShadowEightColor,
         QString(kEights.left(m_shadowEights)));

  if (m_leadingZeros > 0 && m_leadingZerosColor.isValid()) {
    qsizetype zeros = 0;
    while (zeros < text.size() && text.at(zeros) == u'0')
      ++zeros;
    const QString rest = text.mid(zeros);
    draw(textRect, color, rest);
    QRectF zerosRect = textRect;
    zerosRect.setWidth(textRect.width() - metrics.horizontalAdvance(rest));
    draw(zerosRect, m_leadingZerosColor, text.left(zeros));
  } else {
    draw(textRect, color, text);
  }
  painter.restore();
}
